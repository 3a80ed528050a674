#include <Z/ZException.h>
#include <Z/zproperties_c.h>
#include <Z/zproperties_c_p.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "FailingAllocator.h"
#include "LockingProcess.h"
#include "TestDirectory.h"

namespace {

constexpr int kDefault = 1;   // a missing key is an empty value
constexpr int kRequired = 0;  // a missing key is an error
constexpr int kUntouched = 12345;

constexpr char kText[] =
    "# how the service is reached\n"
    "\n"
    "[server]\n"
    "# where it listens\n"
    "port = 8080\n"
    "host = alpha\n"
    "host = beta\n"
    "host = gamma\n"
    "empty =\n"
    "debug = yes\n"
    "\n"
    "[client]\n"
    "retries = 3\n";

struct FreeText {
    void operator()(char* text) const { zstzPropFree_6_0(text); }
};
using Text = std::unique_ptr<char, FreeText>;

std::string textOf(Text const& text)
{
    return text == nullptr ? "(null)" : text.get();
}

// Opens a file in a new directory for each test.
class PlainFunctionsTest : public testing::Test {
protected:
    void SetUp() override
    {
        write("service.conf", kText);
        ASSERT_EQ(0, zstzPropOpen_6_0(&file_, path("service.conf").c_str(), zpropOpenUpdate));
        ASSERT_NE(nullptr, file_);
    }
    void TearDown() override { zstzPropClose_6_0(file_); }

    std::string path(std::string const& name) const { return directory_.at(name); }
    std::string write(std::string const& name, std::string const& text) const
    {
        return directory_.write(name, text);
    }
    std::string read(std::string const& name) const { return directory_.read(name); }
    std::string stored()
    {
        EXPECT_EQ(0, zstzPropStore_6_0(file_, path("stored.conf").c_str()));
        return read("stored.conf");
    }
    ZPROP_handle* reopened(std::string const& text)
    {
        zstzPropClose_6_0(file_);
        write("service.conf", text);
        EXPECT_EQ(0, zstzPropOpen_6_0(&file_, path("service.conf").c_str(), zpropOpenRead));
        return file_;
    }

    std::string value(char const* stanza, char const* key, int flag = kRequired)
    {
        int code = kUntouched;
        Text const text(zstzPropGetStringValue_6_0(file_, stanza, key, flag, &code));
        return code == 0 ? textOf(text) : "code " + std::to_string(code);
    }
    std::string values(char const* stanza, char const* key)
    {
        std::string all;
        ZPROP_iter_handle* iterator = nullptr;
        EXPECT_EQ(0, zstzPropIter_init_6_0(file_, stanza, key, &iterator));
        int code = kUntouched;
        while (zstzPropIter_next_6_0(iterator, &code) == 1)
            all += textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))) + " ";
        EXPECT_EQ(0, code);
        EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
        return all;
    }

    TestDirectory directory_;
    ZPROP_handle* file_ = nullptr;
};

using ZPropertiesC = PlainFunctionsTest;

// A call of each function that takes a handle, with its code for a bad handle.
struct FileCall {
    char const* name;
    std::function<int(ZPROP_handle*)> code;  // returns the code, or -1 if the result is not 0
};

template <class Call>
std::function<int(ZPROP_handle*)> resultCall(Call call)
{
    return [call](ZPROP_handle* file) {
        int code = kUntouched;
        auto const result = call(file, &code);
        return result == decltype(result){} ? code : -1;
    };
}

std::vector<FileCall> fileCalls()
{
    return {
        {"Store", [](auto* f) { return zstzPropStore_6_0(f, nullptr); }},
        {"SetStringValue", [](auto* f) { return zstzPropSetStringValue_6_0(f, "s", "k", "v"); }},
        {"SetBooleanValue", [](auto* f) { return zstzPropSetBooleanValue_6_0(f, "s", "k", 1); }},
        {"SetIntegerValue", [](auto* f) { return zstzPropSetIntegerValue_6_0(f, "s", "k", 1); }},
        {"RemoveKey", [](auto* f) { return zstzPropRemoveKey_6_0(f, "s", "k"); }},
        {"RemoveStanza", [](auto* f) { return zstzPropRemoveStanza_6_0(f, "s"); }},
        {"AddLineComment", [](auto* f) { return zstzPropAddLineComment_6_0(f, "s", "k", "c"); }},
        {"AddStanzaComment", [](auto* f) { return zstzPropAddStanzaComment_6_0(f, "s", "c"); }},
        {"AddFileComment", [](auto* f) { return zstzPropAddFileComment_6_0(f, "c"); }},
        {"GetValues",
         [](auto* f) {
             int result = kUntouched;
             ZPROPValue record = {zpropInteger, "server", "port", kRequired, &result};
             int const code = zstzPropGetValues_6_0(f, &record, 1);
             return result == kUntouched ? code : -1;
         }},
        {"GetValues of none", [](auto* f) { return zstzPropGetValues_6_0(f, nullptr, 0); }},
        {"GetStringValue", resultCall([](auto* f, int* code) {
             return zstzPropGetStringValue_6_0(f, "server", "port", kRequired, code);
         })},
        {"GetBooleanValue", resultCall([](auto* f, int* code) {
             return zstzPropGetBooleanValue_6_0(f, "server", "debug", kRequired, code);
         })},
        {"GetIntegerValue", resultCall([](auto* f, int* code) {
             return zstzPropGetIntegerValue_6_0(f, "server", "port", kRequired, code);
         })},
        {"Exists", resultCall([](auto* f, int* code) {
             return zstzPropExists_6_0(f, "server", "port", code);
         })},
        {"NumStanzas",
         resultCall([](auto* f, int* code) { return zstzPropNumStanzas_6_0(f, code); })},
        {"NumKeys",
         resultCall([](auto* f, int* code) { return zstzPropNumKeys_6_0(f, "server", code); })},
        {"NumValues", resultCall([](auto* f, int* code) {
             return zstzPropNumValues_6_0(f, "server", "host", code);
         })},
        {"Iter_init",
         [](auto* f) {
             int marker = 0;
             auto* const before = reinterpret_cast<ZPROP_iter_handle*>(&marker);
             ZPROP_iter_handle* iterator = before;
             int const code = zstzPropIter_init_6_0(f, "server", nullptr, &iterator);
             return iterator == before ? code : -1;
         }},
    };
}

struct IterCall {
    char const* name;
    std::function<int(ZPROP_iter_handle*)> code;
};

template <class Call>
std::function<int(ZPROP_iter_handle*)> resultIterCall(Call call)
{
    return [call](ZPROP_iter_handle* iterator) {
        int code = kUntouched;
        auto const result = call(iterator, &code);
        return result == decltype(result){} ? code : -1;
    };
}

std::vector<IterCall> iterCalls()
{
    return {
        {"chgValue", [](auto* i) { return zstzPropIter_chgValue_6_0(i, "v"); }},
        {"addValue", [](auto* i) { return zstzPropIter_addValue_6_0(i, "v"); }},
        {"rmvValue", [](auto* i) { return zstzPropIter_rmvValue_6_0(i); }},
        {"next", resultIterCall([](auto* i, int* c) { return zstzPropIter_next_6_0(i, c); })},
        {"getKey", resultIterCall([](auto* i, int* c) { return zstzPropIter_getKey_6_0(i, c); })},
        {"getValue",
         resultIterCall([](auto* i, int* c) { return zstzPropIter_getValue_6_0(i, c); })},
        {"numKeys", resultIterCall([](auto* i, int* c) { return zstzPropIter_numKeys_6_0(i, c); })},
        {"numValues",
         resultIterCall([](auto* i, int* c) { return zstzPropIter_numValues_6_0(i, c); })},
        {"close", [](auto* i) { return zstzPropIter_close_6_0(i); }},
    };
}

}  // namespace

int main(int argc, char** argv)
{
    if (LockingProcess::isWanted(argc, argv))
        return LockingProcess::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

// ---- Opening, closing, storing ------------------------------------------------------------------

TEST_F(ZPropertiesC, OpenRefusesBadArgumentsAndTouchesNothing)
{
    int marker = 0;
    auto* const before = reinterpret_cast<ZPROP_handle*>(&marker);
    std::string const name = path("service.conf");
    struct Case {
        char const* name;
        char const* file;
        int mode;
    };
    Case const cases[] = {{"mode 0", name.c_str(), 0},   {"mode 3", name.c_str(), 3},
                          {"mode -1", name.c_str(), -1}, {"mode 1000", name.c_str(), 1000},
                          {"no file", nullptr, 1},       {"nothing", nullptr, 0}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZPROP_handle* handle = before;
        EXPECT_EQ(55, zstzPropOpen_6_0(&handle, c.file, c.mode));
        EXPECT_EQ(before, handle);
    }
    EXPECT_EQ(55, zstzPropOpen_6_0(nullptr, name.c_str(), 1));
}

TEST_F(ZPropertiesC, OpenReadsInBothModes)
{
    for (int mode : {zpropOpenRead, zpropOpenUpdate}) {
        SCOPED_TRACE(mode);
        ZPROP_handle* handle = nullptr;
        ASSERT_EQ(0, zstzPropOpen_6_0(&handle, path("service.conf").c_str(), mode));
        int code = kUntouched;
        EXPECT_EQ(2, zstzPropNumStanzas_6_0(handle, &code));
        EXPECT_EQ(0, code);
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(handle, "server", "port", "1"));
        zstzPropClose_6_0(handle);
    }
}

TEST_F(ZPropertiesC, OpenFailsIfTheFileCannotBeRead)
{
    write("bad.conf", "[a]\nno equals sign\n");
    write("companion.conf", "[configuration-database]\nfile = " + path("service.conf") + ".obf\n");
    struct Case {
        char const* name;
        std::string file;
    };
    Case const cases[] = {
        {"missing", path("none.conf")},     {"an empty name", ""},
        {"a directory", directory_.path()}, {"below a file", path("service.conf/none")},
        {"invalid data", path("bad.conf")}, {"a missing companion", path("companion.conf")}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        int marker = 0;
        auto* handle = reinterpret_cast<ZPROP_handle*>(&marker);
        EXPECT_EQ(51, zstzPropOpen_6_0(&handle, c.file.c_str(), zpropOpenRead));
        EXPECT_EQ(nullptr, handle);
    }
}

TEST_F(ZPropertiesC, StoreWritesTheFileThatWasOpened)
{
    for (char const* name : {static_cast<char const*>(nullptr), ""}) {
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", name ? "82" : "81"));
        EXPECT_EQ(0, zstzPropStore_6_0(file_, name));
        std::string expected = kText;
        expected.replace(expected.find("8080"), 4, name ? "82" : "81");
        EXPECT_EQ(expected, read("service.conf"));
    }
}

TEST_F(ZPropertiesC, StoreToAnotherFileKeepsTheText)
{
    EXPECT_EQ(kText, stored()) << "comments, blank lines and order are kept";
    EXPECT_EQ(kText, read("service.conf"));
}

TEST_F(ZPropertiesC, StoreFailsIfTheFileCannotBeWritten)
{
    EXPECT_EQ(51, zstzPropStore_6_0(file_, directory_.path().c_str()));
    EXPECT_EQ(51, zstzPropStore_6_0(file_, path("none/none").c_str()));
    EXPECT_EQ("8080", value("server", "port"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr)) << "the handle stays usable";
    EXPECT_EQ(kText, read("service.conf"));
}

TEST_F(ZPropertiesC, OpenAndStoreFailWhileAnotherProcessHoldsAConflictingLock)
{
    std::string const name = path("service.conf");
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "9"));
    ZPROP_handle* second = nullptr;
    {
        LockingProcess const reading(name, F_RDLCK);
        EXPECT_EQ(0, zstzPropOpen_6_0(&second, name.c_str(), zpropOpenRead));
        zstzPropClose_6_0(second);
        EXPECT_EQ(51, zstzPropStore_6_0(file_, nullptr));
        EXPECT_EQ(kText, read("service.conf"));
    }
    {
        LockingProcess const writing(name, F_WRLCK);
        EXPECT_EQ(51, zstzPropOpen_6_0(&second, name.c_str(), zpropOpenRead));
        EXPECT_EQ(nullptr, second);
        EXPECT_EQ(51, zstzPropStore_6_0(file_, nullptr));
        EXPECT_EQ(kText, read("service.conf"));
    }
    EXPECT_EQ("9", value("server", "port"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    EXPECT_NE(std::string::npos, read("service.conf").find("port = 9\n"));
}

// ---- Handles ------------------------------------------------------------------------------------

TEST_F(ZPropertiesC, EveryFunctionRefusesABadHandle)
{
    ZPROP_handle* closed = nullptr;
    ASSERT_EQ(0, zstzPropOpen_6_0(&closed, path("service.conf").c_str(), zpropOpenRead));
    zstzPropClose_6_0(closed);
    // A new handle reuses the slot of the closed handle; the old token must not find it.
    ZPROP_handle* successor = nullptr;
    ASSERT_EQ(0, zstzPropOpen_6_0(&successor, path("service.conf").c_str(), zpropOpenRead));
    ASSERT_NE(closed, successor);
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", nullptr, &iterator));
    uint32_t const foreign[8] = {kZPropFirstMagic, 1, kZPropSecondMagic, 0,
                                 kZPropFirstMagic, 1, kZPropSecondMagic, 0};
    auto const handle = [](uintptr_t word) { return reinterpret_cast<ZPROP_handle*>(word); };
    auto const live = reinterpret_cast<uintptr_t>(file_);
    struct Case {
        char const* name;
        ZPROP_handle* handle;
    };
    Case const cases[] = {{"null", nullptr},
                          {"closed", closed},
                          {"memory of the caller", handle(reinterpret_cast<uintptr_t>(foreign))},
                          {"memory that is not there", handle(8)},
                          {"an iterator", reinterpret_cast<ZPROP_handle*>(iterator)},
                          {"the next slot", handle(live + 4)},
                          {"a slot that was never made", handle(live + 4000000)},
                          {"a slot beyond all", handle(live | 0xFFFFFFFC)},
                          {"another tag", handle(live ^ 1)},
                          {"another generation", handle(live + (uintptr_t{1} << 32))},
                          {"not live", handle(live & ~(uintptr_t{1} << 63))}};
    for (Case const& c : cases) {
        for (FileCall const& call : fileCalls()) {
            SCOPED_TRACE(std::string(c.name) + ": " + call.name);
            EXPECT_EQ(55, call.code(c.handle));
        }
        zstzPropClose_6_0(c.handle);
        ZPROPValue record = {zpropString, "s", "k", kDefault, nullptr};
        zstzPropFreeValuesList_6_0(c.handle, &record, 1);
    }
    EXPECT_EQ("8080", value("server", "port"));
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    zstzPropClose_6_0(successor);
    EXPECT_EQ(kText, read("service.conf"));
}

TEST_F(ZPropertiesC, EveryFunctionRefusesABadIterator)
{
    ZPROP_iter_handle* closed = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &closed));
    ASSERT_EQ(0, zstzPropIter_close_6_0(closed));
    ZPROP_iter_handle* successor = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &successor));
    ASSERT_NE(closed, successor);
    uint32_t const foreign[8] = {1, kZPropFirstMagic, kZPropSecondMagic, 0};
    struct Case {
        char const* name;
        ZPROP_iter_handle* iterator;
    };
    Case const cases[] = {{"null", nullptr},
                          {"closed", closed},
                          {"memory of the caller", reinterpret_cast<ZPROP_iter_handle*>(
                                                       reinterpret_cast<uintptr_t>(foreign))},
                          {"a file", reinterpret_cast<ZPROP_iter_handle*>(file_)}};
    for (Case const& c : cases) {
        for (IterCall const& call : iterCalls()) {
            SCOPED_TRACE(std::string(c.name) + ": " + call.name);
            EXPECT_EQ(55, call.code(c.iterator));
        }
    }
    int code = kUntouched;
    EXPECT_EQ(3, zstzPropIter_numValues_6_0(successor, &code));
    EXPECT_EQ(0, zstzPropIter_close_6_0(successor));
}

TEST_F(ZPropertiesC, AHandleWithoutItsMagicWordsIsBad)
{
    zhandles::HandleTable<ZPROP_handle>::Pin const inside = zpropOpenFiles.pin(file_);
    ASSERT_TRUE(inside);
    EXPECT_EQ(0xbeeff00d, inside->first);
    EXPECT_EQ(0xd00ffeeb, inside->second);
    EXPECT_EQ(2, inside->mode);
    for (uint32_t volatile* word : {&inside->first, &inside->second}) {
        uint32_t const kept = *word;
        *word = 0;
        for (FileCall const& call : fileCalls()) {
            SCOPED_TRACE(call.name);
            EXPECT_EQ(55, call.code(file_));
        }
        zstzPropClose_6_0(file_);
        char* text = strdup("a result");
        ZPROPValue record = {zpropString, "server", "port", 0, &text};
        zstzPropFreeValuesList_6_0(file_, &record, 1);
        EXPECT_STREQ("a result", text);
        free(text);
        *word = kept;
        EXPECT_EQ("8080", value("server", "port")) << "it was not closed";
    }
}

TEST_F(ZPropertiesC, DestroyingAHandleClearsItsMagicWords)
{
    auto const store = zpropOpenFiles.pin(file_)->store;
    // Destroys a handle in its buffer and returns the words that remain in the buffer.
    using Word = uint32_t const volatile*;
    auto const left = [](auto& handle, Word first, Word second, void const volatile* kind) {
        using Handle = std::remove_reference_t<decltype(handle)>;
        Word const words[] = {first, second, static_cast<Word>(kind)};
        std::vector<uint32_t> before, after;
        for (Word const word : words)
            before.push_back(uint32_t{*word});
        EXPECT_EQ(0, std::count(before.begin(), before.end(), 0u));
        handle.~Handle();
        for (Word const word : words)
            after.push_back(uint32_t{*word});
        return after;
    };
    std::vector<uint32_t> const none(3, 0);
    alignas(max_align_t) char buffer[4096];
    auto* const file = new (buffer) ZPROP_handle(zpropOpenRead, store);
    EXPECT_EQ(none, left(*file, &file->first, &file->second, &file->mode));
    auto* const stanza = new (buffer) ZPROP_stz_handle(zpropOpenRead, store);
    EXPECT_EQ(none, left(*stanza, &stanza->first, &stanza->second, &stanza->mode));
    static_assert(sizeof(ZPROP_stz_iter_handle) <= sizeof buffer);
    auto* const keys = new (buffer) ZPROP_stz_iter_handle(store, "server");
    EXPECT_EQ(none, left(*keys, &keys->first, &keys->second, &keys->type));
    static_assert(sizeof(ZPROP_stzvalue_iter_handle) <= sizeof buffer);
    auto* const values = new (buffer) ZPROP_stzvalue_iter_handle(store, "server", "host");
    EXPECT_EQ(none, left(*values, &values->first, &values->second, &values->type));
}

TEST_F(ZPropertiesC, KeepsClosingADamagedIterator)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", nullptr, &iterator));
    {
        zhandles::HandleTable<ZPROP_iter_handle>::Pin const inside =
            zpropOpenIterators.pin(iterator);
        ASSERT_TRUE(inside);
        EXPECT_EQ(1, inside->type);
        EXPECT_EQ(0xbeeff00d, inside->first);
        EXPECT_EQ(0xd00ffeeb, inside->second);
        inside->second = 0;
    }
    for (IterCall const& call : iterCalls()) {
        SCOPED_TRACE(call.name);
        EXPECT_EQ(55, call.code(iterator));
    }
    EXPECT_FALSE(zpropOpenIterators.pin(iterator)) << "it is closed";
    std::string seen;
    std::thread([&] { seen = value("server", "port"); }).join();
    EXPECT_EQ("8080", seen) << "its lock is released";
}

TEST_F(ZPropertiesC, AnIteratorOutlivesTheHandleItCameFrom)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "client", nullptr, &iterator));
    zstzPropClose_6_0(file_);
    int code = kUntouched;
    EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ("retries", textOf(Text(zstzPropIter_getKey_6_0(iterator, &code))));
    EXPECT_EQ("3", textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
    EXPECT_EQ(0, code);
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ(55, zstzPropIter_close_6_0(iterator));
}

TEST_F(ZPropertiesC, ManyHandlesHaveDistinctTokens)
{
    constexpr size_t kMany = 600;  // more than one chunk of the table
    std::vector<ZPROP_handle*> handles(kMany);
    for (int round = 0; round < 2; ++round) {
        for (ZPROP_handle*& handle : handles)
            ASSERT_EQ(0, zstzPropOpen_6_0(&handle, path("service.conf").c_str(), zpropOpenRead));
        std::vector<ZPROP_handle*> sorted = handles;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(sorted.end(), std::unique(sorted.begin(), sorted.end()));
        for (ZPROP_handle* handle : handles) {
            int code = kUntouched;
            EXPECT_EQ(2, zstzPropNumStanzas_6_0(handle, &code));
            zstzPropClose_6_0(handle);
            EXPECT_EQ(0, zstzPropNumStanzas_6_0(handle, &code));
            EXPECT_EQ(55, code);
        }
    }
}

TEST(ZPropertiesCTable, ATokenIsNeverReused)
{
    constexpr uint64_t kGeneration = uint64_t{1} << 32;
    constexpr uint64_t kLast = 0x7FFFFFFF * kGeneration;
    struct Counted {
        explicit Counted(int& liveObjects) : live(liveObjects) { ++live; }
        ~Counted() { --live; }
        int& live;
    };
    int live = 0;
    static zhandles::HandleTable<Counted> table(3);
    auto const insert = [&] { return table.insert(std::make_unique<Counted>(live)); };
    auto const word = [](Counted* token) { return reinterpret_cast<uintptr_t>(token); };

    Counted* const first = insert();
    EXPECT_EQ((uint64_t{1} << 63) | 3, word(first));
    EXPECT_TRUE(table.close(first));
    EXPECT_FALSE(table.close(first));
    EXPECT_EQ(0, live);
    Counted* const second = insert();
    EXPECT_EQ(word(first) + kGeneration, word(second)) << "the same slot, the next generation";
    EXPECT_FALSE(table.pin(first));
    {
        auto const pin = table.pin(second);
        ASSERT_TRUE(pin);
        EXPECT_TRUE(table.close(second));
        EXPECT_FALSE(table.pin(second));
        EXPECT_EQ(1, pin->live) << "it is still pinned";
    }
    EXPECT_EQ(0, live);

    // A slot in its last generation is not reused.
    table.slotAt(0).state = kLast;
    Counted* const last = insert();
    EXPECT_EQ(word(first) + kLast, word(last));
    EXPECT_TRUE(table.close(last));
    Counted* const next = insert();
    EXPECT_EQ(word(first) + 4, word(next)) << "the next slot";
    EXPECT_FALSE(table.pin(first));
    EXPECT_TRUE(table.close(next));
    EXPECT_EQ(0, live);
}

TEST(ZPropertiesCTable, InsertFailsIfAllTokensAreInUse)
{
    // An object that takes no memory.
    struct Weightless {
        static void* operator new(size_t)
        {
            static char place;
            return &place;
        }
        static void operator delete(void*) {}
    };
    static zhandles::HandleTable<Weightless> table(1);
    constexpr size_t kTokens = size_t{1} << 20;
    Weightless* last = nullptr;
    for (size_t i = 0; i < kTokens; ++i)
        last = table.insert(std::make_unique<Weightless>());
    EXPECT_THROW(table.insert(std::make_unique<Weightless>()), std::bad_alloc);
    EXPECT_TRUE(table.close(last));
    EXPECT_NE(last, table.insert(std::make_unique<Weightless>()));
    EXPECT_THROW(table.insert(std::make_unique<Weightless>()), std::bad_alloc);
}

// ---- Missing arguments --------------------------------------------------------------------------

TEST_F(ZPropertiesC, MissingArgumentsReturn55OrZero)
{
    ZPROP_iter_handle* iterator = nullptr;
    struct Case {
        char const* name;
        int code;
        int expected;
    };
    Case const cases[] = {
        {"SetStringValue, stanza", zstzPropSetStringValue_6_0(file_, nullptr, "k", "v"), 55},
        {"SetStringValue, key", zstzPropSetStringValue_6_0(file_, "s", nullptr, "v"), 55},
        {"SetBooleanValue, stanza", zstzPropSetBooleanValue_6_0(file_, nullptr, "k", 1), 55},
        {"SetBooleanValue, key", zstzPropSetBooleanValue_6_0(file_, "s", nullptr, 1), 55},
        {"SetIntegerValue, stanza", zstzPropSetIntegerValue_6_0(file_, nullptr, "k", 1), 55},
        {"SetIntegerValue, key", zstzPropSetIntegerValue_6_0(file_, "s", nullptr, 1), 55},
        {"RemoveKey, stanza", zstzPropRemoveKey_6_0(file_, nullptr, "k"), 55},
        {"RemoveKey, key", zstzPropRemoveKey_6_0(file_, "s", nullptr), 55},
        {"RemoveStanza", zstzPropRemoveStanza_6_0(file_, nullptr), 55},
        {"AddLineComment, stanza", zstzPropAddLineComment_6_0(file_, nullptr, "k", "c"), 55},
        {"AddLineComment, key", zstzPropAddLineComment_6_0(file_, "s", nullptr, "c"), 55},
        {"AddLineComment, comment", zstzPropAddLineComment_6_0(file_, "s", "k", nullptr), 55},
        {"AddStanzaComment, stanza", zstzPropAddStanzaComment_6_0(file_, nullptr, "c"), 55},
        {"AddStanzaComment, comment", zstzPropAddStanzaComment_6_0(file_, "s", nullptr), 55},
        {"AddFileComment", zstzPropAddFileComment_6_0(file_, nullptr), 55},
        {"GetValues", zstzPropGetValues_6_0(file_, nullptr, 1), 55},
        {"GetValues, negative", zstzPropGetValues_6_0(file_, nullptr, -1), 55},
        {"GetValues of none", zstzPropGetValues_6_0(file_, nullptr, 0), 0},
        {"Iter_init, stanza", zstzPropIter_init_6_0(file_, nullptr, "k", &iterator), 55},
        {"Iter_init, out", zstzPropIter_init_6_0(file_, "s", "k", nullptr), 55},
        // Without a pointer to the code, or without a name, no code is stored.
        {"GetBooleanValue, stanza", zstzPropGetBooleanValue_6_0(file_, nullptr, "k", 1, nullptr),
         55},
        {"GetBooleanValue, code", zstzPropGetBooleanValue_6_0(file_, "s", "k", 1, nullptr), 55},
        {"GetIntegerValue, code",
         static_cast<int>(zstzPropGetIntegerValue_6_0(file_, "s", "k", 1, nullptr)), 55},
        {"Exists, code", zstzPropExists_6_0(file_, "server", "port", nullptr), 0},
        {"NumStanzas, code", zstzPropNumStanzas_6_0(file_, nullptr), 0},
        {"NumKeys, code", zstzPropNumKeys_6_0(file_, "server", nullptr), 0},
        {"NumValues, code", zstzPropNumValues_6_0(file_, "server", "host", nullptr), 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, c.code);
    }
    EXPECT_EQ(nullptr, iterator);
    EXPECT_EQ(nullptr, zstzPropGetStringValue_6_0(file_, "server", "port", 1, nullptr));

    int code = kUntouched;
    EXPECT_EQ(nullptr, zstzPropGetStringValue_6_0(file_, nullptr, "k", 1, &code));
    EXPECT_EQ(nullptr, zstzPropGetStringValue_6_0(file_, "s", nullptr, 1, &code));
    EXPECT_EQ(55, zstzPropGetBooleanValue_6_0(file_, nullptr, "k", 1, &code));
    EXPECT_EQ(55, zstzPropGetBooleanValue_6_0(file_, "s", nullptr, 1, &code));
    EXPECT_EQ(55u, zstzPropGetIntegerValue_6_0(file_, nullptr, "k", 1, &code));
    EXPECT_EQ(55u, zstzPropGetIntegerValue_6_0(file_, "s", nullptr, 1, &code));
    EXPECT_EQ(0, zstzPropExists_6_0(file_, nullptr, "k", &code));
    EXPECT_EQ(0, zstzPropNumKeys_6_0(file_, nullptr, &code));
    EXPECT_EQ(0, zstzPropNumValues_6_0(file_, nullptr, "k", &code));
    EXPECT_EQ(0, zstzPropNumValues_6_0(file_, "s", nullptr, &code));
    EXPECT_EQ(kUntouched, code) << "no code was stored";
    EXPECT_EQ(kText, stored());

    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", nullptr, &iterator));
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, nullptr));
    EXPECT_EQ(nullptr, zstzPropIter_getKey_6_0(iterator, nullptr));
    EXPECT_EQ(nullptr, zstzPropIter_getValue_6_0(iterator, nullptr));
    EXPECT_EQ(0, zstzPropIter_numKeys_6_0(iterator, nullptr));
    EXPECT_EQ(0, zstzPropIter_numValues_6_0(iterator, nullptr));
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
}

TEST_F(ZPropertiesC, EmptyNamesAreRefused)
{
    struct Case {
        char const* name;
        int code;
        int expected;
    };
    Case const changes[] = {
        {"SetStringValue, stanza", zstzPropSetStringValue_6_0(file_, "", "k", "v"), 52},
        {"SetStringValue, key", zstzPropSetStringValue_6_0(file_, "s", "", "v"), 52},
        {"SetBooleanValue, stanza", zstzPropSetBooleanValue_6_0(file_, "", "k", 1), 52},
        {"SetBooleanValue, key", zstzPropSetBooleanValue_6_0(file_, "s", "", 1), 52},
        {"SetIntegerValue, stanza", zstzPropSetIntegerValue_6_0(file_, "", "k", 1), 52},
        {"SetIntegerValue, key", zstzPropSetIntegerValue_6_0(file_, "s", "", 1), 52},
        {"RemoveKey, stanza", zstzPropRemoveKey_6_0(file_, "", "k"), 52},
        {"RemoveKey, key", zstzPropRemoveKey_6_0(file_, "s", ""), 52},
        {"RemoveStanza", zstzPropRemoveStanza_6_0(file_, ""), 52},
        {"AddLineComment, stanza", zstzPropAddLineComment_6_0(file_, "", "k", "c"), 52},
        {"AddLineComment, key", zstzPropAddLineComment_6_0(file_, "s", "", "c"), 52},
        {"AddStanzaComment", zstzPropAddStanzaComment_6_0(file_, "", "c"), 52},
    };
    for (Case const& c : changes) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, c.code);
    }
    EXPECT_EQ(kText, stored());

    EXPECT_EQ("code 55", value("", "k"));
    EXPECT_EQ("code 55", value("s", ""));
    int code = kUntouched;
    EXPECT_EQ(0, zstzPropGetBooleanValue_6_0(file_, "", "k", kRequired, &code));
    EXPECT_EQ(55, code);
    EXPECT_EQ(0u, zstzPropGetIntegerValue_6_0(file_, "s", "", kDefault, &(code = kUntouched)));
    EXPECT_EQ(55, code);
    EXPECT_EQ(0, zstzPropExists_6_0(file_, "", nullptr, &(code = kUntouched)));
    EXPECT_EQ(55, code);
    EXPECT_EQ(0, zstzPropExists_6_0(file_, "s", "", &(code = kUntouched)));
    EXPECT_EQ(55, code);
    EXPECT_EQ(0, zstzPropNumKeys_6_0(file_, "", &(code = kUntouched)));
    EXPECT_EQ(55, code);
    EXPECT_EQ(0, zstzPropNumValues_6_0(file_, "s", "", &(code = kUntouched)));
    EXPECT_EQ(55, code);

    ZPROP_iter_handle* iterator = reinterpret_cast<ZPROP_iter_handle*>(this);
    EXPECT_EQ(55, zstzPropIter_init_6_0(file_, "", nullptr, &iterator));
    EXPECT_EQ(nullptr, iterator);
    // A key with an empty name has no values.
    struct Names {
        char const* stanza;
        char const* key;
    };
    for (Names const& names : {Names{"", "k"}, Names{"server", ""}, Names{"", ""}}) {
        ASSERT_EQ(0, zstzPropIter_init_6_0(file_, names.stanza, names.key, &iterator));
        EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &(code = kUntouched)));
        EXPECT_EQ(0, code);
        EXPECT_EQ(52, zstzPropIter_addValue_6_0(iterator, "v"));
        EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    }
    EXPECT_EQ(kText, stored());
}

// ---- Reading ------------------------------------------------------------------------------------

TEST_F(ZPropertiesC, ReturnsTheLastValueAsAString)
{
    struct Case {
        char const* name;
        char const* stanza;
        char const* key;
        int flag;
        char const* expected;
    };
    Case const cases[] = {{"one value", "server", "port", kRequired, "8080"},
                          {"the last of three", "server", "host", kRequired, "gamma"},
                          {"empty, required", "server", "empty", kRequired, "(null)"},
                          {"empty, default", "server", "empty", kDefault, "(null)"},
                          {"missing key, required", "server", "none", kRequired, "code 54"},
                          {"missing key, flag 2", "server", "none", 2, "code 54"},
                          {"missing key, flag -1", "server", "none", -1, "code 54"},
                          {"missing key, default", "server", "none", kDefault, "(null)"},
                          {"missing stanza, required", "none", "port", kRequired, "code 54"},
                          {"missing stanza, default", "none", "port", kDefault, "(null)"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, value(c.stanza, c.key, c.flag));
    }
}

TEST_F(ZPropertiesC, ReturnsNumbersInEveryNotation)
{
    struct Case {
        char const* text;
        unsigned int number;
        int code;
    };
    Case const cases[] = {{"0", 0, 0},
                          {"15", 15, 0},
                          {"017", 15, 0},
                          {"0x1F", 31, 0},
                          {"0X1f", 31, 0},
                          {"4294967295", 4294967295u, 0},
                          {"0xFFFFFFFF", 4294967295u, 0},
                          {"037777777777", 4294967295u, 0},
                          {"4294967296", 4294967295u, 0},
                          {"99999999999999999999999", 4294967295u, 0},
                          {"+7", 7, 0},
                          {"-1", 4294967295u, 0},
                          {"12abc", 0, 53},
                          {"1 2", 0, 53},
                          {"0x", 0, 53},
                          {"08", 0, 53},
                          {"abc", 0, 53},
                          {"1.5", 0, 53},
                          {"-", 0, 53}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        reopened(std::string("[s]\nk = ") + c.text + "\n");
        for (int flag : {kRequired, kDefault}) {
            int code = kUntouched;
            EXPECT_EQ(c.number, zstzPropGetIntegerValue_6_0(file_, "s", "k", flag, &code));
            EXPECT_EQ(c.code, code);
        }
    }
    int code = kUntouched;
    EXPECT_EQ(0u, zstzPropGetIntegerValue_6_0(file_, "s", "none", kRequired, &code));
    EXPECT_EQ(54, code);
    EXPECT_EQ(0u, zstzPropGetIntegerValue_6_0(file_, "s", "none", kDefault, &code));
    EXPECT_EQ(0, code);
}

TEST_F(ZPropertiesC, ReturnsBooleansForEveryWord)
{
    struct Case {
        char const* text;
        int truth;
        int code;
    };
    Case const cases[] = {{"yes", 1, 0},    {"y", 1, 0},   {"true", 1, 0},  {"t", 1, 0},
                          {"1", 1, 0},      {"YES", 1, 0}, {"True", 1, 0},  {"T", 1, 0},
                          {"no", 0, 0},     {"n", 0, 0},   {"false", 0, 0}, {"f", 0, 0},
                          {"0", 0, 0},      {"NO", 0, 0},  {"False", 0, 0}, {"F", 0, 0},
                          {"maybe", 0, 53}, {"2", 0, 53},  {"yess", 0, 53}, {"ye", 0, 53},
                          {"on", 0, 53}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        reopened(std::string("[s]\nk = ") + c.text + "\n");
        for (int flag : {kRequired, kDefault}) {
            int code = kUntouched;
            EXPECT_EQ(c.truth, zstzPropGetBooleanValue_6_0(file_, "s", "k", flag, &code));
            EXPECT_EQ(c.code, code);
        }
    }
    int code = kUntouched;
    EXPECT_EQ(0, zstzPropGetBooleanValue_6_0(file_, "s", "none", kRequired, &code));
    EXPECT_EQ(54, code);
    EXPECT_EQ(0, zstzPropGetBooleanValue_6_0(file_, "s", "none", kDefault, &code));
    EXPECT_EQ(0, code);
}

TEST_F(ZPropertiesC, CountsAndFindsStanzasKeysAndValues)
{
    struct Case {
        char const* name;
        int result;
        int expected;
    };
    int code = kUntouched;
    int worst = 0;
    auto const noted = [&](int result) {
        worst = std::max(worst, code);
        return result;
    };
    Case const cases[] = {
        {"stanzas", noted(zstzPropNumStanzas_6_0(file_, &code)), 2},
        {"keys", noted(zstzPropNumKeys_6_0(file_, "server", &code)), 4},
        {"keys of no stanza", noted(zstzPropNumKeys_6_0(file_, "none", &code)), 0},
        {"one value", noted(zstzPropNumValues_6_0(file_, "server", "port", &code)), 1},
        {"three values", noted(zstzPropNumValues_6_0(file_, "server", "host", &code)), 3},
        {"no value", noted(zstzPropNumValues_6_0(file_, "server", "empty", &code)), 0},
        {"values of no key", noted(zstzPropNumValues_6_0(file_, "server", "none", &code)), 0},
        {"a stanza", noted(zstzPropExists_6_0(file_, "server", nullptr, &code)), 1},
        {"no stanza", noted(zstzPropExists_6_0(file_, "none", nullptr, &code)), 0},
        {"a key", noted(zstzPropExists_6_0(file_, "server", "port", &code)), 1},
        {"a key without a value", noted(zstzPropExists_6_0(file_, "server", "empty", &code)), 1},
        {"no key", noted(zstzPropExists_6_0(file_, "server", "none", &code)), 0},
        {"a key of another stanza", noted(zstzPropExists_6_0(file_, "client", "port", &code)), 0}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, c.result);
    }
    EXPECT_EQ(0, worst);
}

TEST_F(ZPropertiesC, ReadsObfuscatedValuesLikePlainValues)
{
    std::string const name = path("secret.conf");
    {
        ZStanzaFileProperties_6_0 store(1);
        store.addValue("login", "password", "open sesame", 1);
        store.addValue("login", "password", "second", 1);
        store.setValue("login", "user", "ali");
        store.store(name.c_str());
    }
    EXPECT_EQ(std::string::npos, read("secret.conf").find("sesame"));
    zstzPropClose_6_0(file_);
    ASSERT_EQ(0, zstzPropOpen_6_0(&file_, name.c_str(), zpropOpenUpdate));
    EXPECT_EQ("second", value("login", "password"));
    EXPECT_EQ("open sesame second ", values("login", "password"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    EXPECT_EQ(std::string::npos, read("secret.conf").find("sesame"));
    zstzPropClose_6_0(file_);
    ASSERT_EQ(0, zstzPropOpen_6_0(&file_, name.c_str(), zpropOpenUpdate));
    EXPECT_EQ("open sesame second ", values("login", "password"));
}

// ---- Changing -----------------------------------------------------------------------------------

TEST_F(ZPropertiesC, SetsValuesOfEveryType)
{
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "host", "delta"));
    EXPECT_EQ(0, zstzPropSetBooleanValue_6_0(file_, "server", "debug", 0));
    EXPECT_EQ(0, zstzPropSetIntegerValue_6_0(file_, "server", "port", 4294967295u));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "client", "retries", nullptr));
    EXPECT_EQ(0, zstzPropSetBooleanValue_6_0(file_, "client", "new", -3));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "added", "key", "two words = one value"));
    EXPECT_EQ("delta ", values("server", "host"));
    EXPECT_EQ("(null)", value("client", "retries"));
    EXPECT_EQ(
        "# how the service is reached\n"
        "\n"
        "[server]\n"
        "# where it listens\n"
        "port = 4294967295\n"
        "host = delta\n"
        "empty =\n"
        "debug = no\n"
        "\n"
        "[client]\n"
        "retries =\n"
        "new = yes\n"
        "\n"
        "[added]\n"
        "key = two words = one value\n",
        stored());
    EXPECT_EQ(kText, read("service.conf"));
}

TEST_F(ZPropertiesC, RefusesStringsThatAFileCannotRepresent)
{
    std::string const longValue(8200, 'x');
    struct Case {
        char const* name;
        char const* stanza;
        char const* key;
        char const* value;
    };
    Case const cases[] = {{"a bracket in a stanza", "a]b", "k", "v"},
                          {"a newline in a stanza", "a\nb", "k", "v"},
                          {"an equals sign in a key", "s", "a=b", "v"},
                          {"a key like a comment", "s", "#k", "v"},
                          {"a key like a stanza", "s", "[k", "v"},
                          {"a key that starts with a space", "s", " k", "v"},
                          {"a key that ends with a space", "s", "k ", "v"},
                          {"a newline in a key", "s", "a\nb", "v"},
                          {"a newline in a value", "s", "k", "v\n[x]"},
                          {"a value too long for a line", "s", "k", longValue.c_str()}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, c.stanza, c.key, c.value));
    }
    EXPECT_EQ(kText, stored());

    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &iterator));
    int code = kUntouched;
    ASSERT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(52, zstzPropIter_chgValue_6_0(iterator, "a\nb"));
    EXPECT_EQ(52, zstzPropIter_addValue_6_0(iterator, longValue.c_str()));
    EXPECT_EQ("alpha", textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ(kText, stored());
}

TEST_F(ZPropertiesC, RemovesKeysAndStanzas)
{
    EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, "server", "host"));
    EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, "server", "none"));
    EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, "none", "none"));
    EXPECT_EQ("code 54", value("server", "host"));
    EXPECT_EQ(
        "# how the service is reached\n"
        "\n"
        "[server]\n"
        "# where it listens\n"
        "port = 8080\n"
        "empty =\n"
        "debug = yes\n"
        "\n"
        "[client]\n"
        "retries = 3\n",
        stored());
    EXPECT_EQ(0, zstzPropRemoveStanza_6_0(file_, "server"));
    EXPECT_EQ(0, zstzPropRemoveStanza_6_0(file_, "none"));
    int code = kUntouched;
    EXPECT_EQ(1, zstzPropNumStanzas_6_0(file_, &code));
    EXPECT_EQ(
        "# how the service is reached\n"
        "\n"
        "[client]\n"
        "retries = 3\n",
        stored());
}

TEST_F(ZPropertiesC, AddsComments)
{
    EXPECT_EQ(0, zstzPropAddLineComment_6_0(file_, "server", "debug", "tell more"));
    EXPECT_EQ(0, zstzPropAddStanzaComment_6_0(file_, "client", "#who asks"));
    EXPECT_EQ(0, zstzPropAddFileComment_6_0(file_, "edited by hand"));
    EXPECT_EQ(0, zstzPropAddStanzaComment_6_0(file_, "none", "nothing to comment"));
    EXPECT_EQ(
        "# how the service is reached\n"
        "#edited by hand\n"
        "\n"
        "[server]\n"
        "# where it listens\n"
        "port = 8080\n"
        "host = alpha\n"
        "host = beta\n"
        "host = gamma\n"
        "empty =\n"
        "\n"
        "#tell more\n"
        "debug = yes\n"
        "\n"
        "#who asks\n"
        "[client]\n"
        "retries = 3\n",
        stored());
}

// ---- Lists of values ----------------------------------------------------------------------------

TEST_F(ZPropertiesC, ReadsAListOfValues)
{
    int truth = kUntouched;
    unsigned int number = kUntouched;
    char* text = nullptr;
    char* none = nullptr;
    char** list = nullptr;
    char** noList = nullptr;
    int missing = kUntouched;
    ZPROPValue records[] = {{zpropBoolean, "server", "debug", kRequired, &truth},
                            {zpropInteger, "server", "port", kRequired, &number},
                            {zpropString, "server", "host", kRequired, &text},
                            {zpropString, "server", "empty", kRequired, &none},
                            {zpropStringList, "server", "host", kRequired, &list},
                            {zpropStringList, "server", "none", kRequired, &noList},
                            {zpropBoolean, "server", "none", kDefault, &missing}};
    constexpr int kCount = 7;
    ASSERT_EQ(0, zstzPropGetValues_6_0(file_, records, kCount));
    EXPECT_EQ(1, truth);
    EXPECT_EQ(8080u, number);
    EXPECT_STREQ("gamma", text);
    EXPECT_EQ(nullptr, none);
    ASSERT_NE(nullptr, list);
    EXPECT_STREQ("alpha", list[0]);
    EXPECT_STREQ("beta", list[1]);
    EXPECT_STREQ("gamma", list[2]);
    EXPECT_EQ(nullptr, list[3]);
    ASSERT_NE(nullptr, noList);
    EXPECT_EQ(nullptr, noList[0]);
    EXPECT_EQ(0, missing);

    zstzPropFreeValuesList_6_0(file_, nullptr, kCount);
    zstzPropFreeValuesList_6_0(file_, records, 0);
    zstzPropFreeValuesList_6_0(file_, records, -1);
    EXPECT_STREQ("gamma", text);
    for (int round = 0; round < 2; ++round) {
        zstzPropFreeValuesList_6_0(file_, records, kCount);
        EXPECT_EQ(nullptr, text);
        EXPECT_EQ(nullptr, list);
        EXPECT_EQ(nullptr, noList);
        EXPECT_EQ(1, truth);
        EXPECT_EQ(8080u, number);
    }
}

TEST_F(ZPropertiesC, AListEndsAtItsFirstFailure)
{
    reopened("[s]\nword = abc\nnumber = 5\nname = x\n");
    struct Case {
        char const* name;
        ZPROPValueType type;
        char const* stanza;
        char const* key;
        int flag;
        bool hasResult;
        int code;
    };
    Case const cases[] = {{"missing number", zpropInteger, "s", "none", kRequired, true, 54},
                          {"missing, flag 2", zpropInteger, "s", "none", 2, true, 54},
                          {"missing text", zpropString, "none", "name", kRequired, true, 54},
                          {"not a number", zpropInteger, "s", "word", kDefault, true, 53},
                          {"not a boolean", zpropBoolean, "s", "number", kDefault, true, 53},
                          {"no stanza", zpropBoolean, nullptr, "name", kDefault, true, 55},
                          {"no key", zpropStringList, "s", nullptr, kDefault, true, 55},
                          {"an empty key", zpropString, "s", "", kDefault, true, 55},
                          {"no result", zpropString, "s", "name", kDefault, false, 55}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        char* before = nullptr;
        union {
            void* pointer;
            unsigned int number;
        } failed = {nullptr};
        // The results after the failed record contain garbage before the call.
        int garbage = 0;
        auto* after = reinterpret_cast<char*>(&garbage);
        auto** list = reinterpret_cast<char**>(&garbage);
        unsigned int number = kUntouched;
        ZPROPValue records[] = {{zpropString, "s", "name", kRequired, &before},
                                {c.type, c.stanza, c.key, c.flag, c.hasResult ? &failed : nullptr},
                                {zpropString, "s", "name", kRequired, &after},
                                {zpropStringList, "s", "name", kRequired, &list},
                                {zpropInteger, "s", "number", kRequired, &number}};
        EXPECT_EQ(c.code, zstzPropGetValues_6_0(file_, records, 5));
        EXPECT_STREQ("x", before);
        EXPECT_EQ(nullptr, after);
        EXPECT_EQ(nullptr, list);
        EXPECT_EQ(unsigned{kUntouched}, number);
        zstzPropFreeValuesList_6_0(file_, records, 5);
        EXPECT_EQ(nullptr, before);
    }
}

TEST_F(ZPropertiesC, KeepsOneExceptionOfItsOwn)
{
    for (int type : {0, 5, -1, 1000}) {
        SCOPED_TRACE(type);
        char* before = nullptr;
        int garbage = 0;
        auto* after = reinterpret_cast<char*>(&garbage);
        ZPROPValue records[] = {{zpropString, "server", "port", kRequired, &before},
                                {type, "server", "port", kRequired, &garbage},
                                {zpropString, "server", "port", kRequired, &after}};
        try {
            zstzPropGetValues_6_0(file_, records, 3);
            FAIL() << "nothing was thrown";
        } catch (ZInvalidParameterException_6_0 const& failure) {
            EXPECT_EQ(22u, failure.messageNumber());
            EXPECT_STREQ("src/Z/zproperties_c", failure.who());
            EXPECT_EQ(431u, failure.where());
        }
        EXPECT_STREQ("8080", before);
        EXPECT_EQ(nullptr, after);
        zstzPropFreeValuesList_6_0(file_, records, 3);
        EXPECT_EQ(nullptr, before);
    }
    EXPECT_EQ("8080", value("server", "port"));
}

// ---- Iterators ----------------------------------------------------------------------------------

TEST_F(ZPropertiesC, IteratesOverTheKeysOfAStanza)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", nullptr, &iterator));
    int code = kUntouched;
    EXPECT_EQ(4, zstzPropIter_numKeys_6_0(iterator, &code));
    EXPECT_EQ(0, code);
    for (auto const &call :
         {IterCall{"getKey",
                   resultIterCall([](auto*i, int*c) { return zstzPropIter_getKey_6_0(i, c); })},
          IterCall{"getValue",
                   resultIterCall([](auto*i, int*c) { return zstzPropIter_getValue_6_0(i, c); })},
          IterCall{"numValues", resultIterCall([](auto*i, int*c) {
                       return zstzPropIter_numValues_6_0(i, c);
                   })}}) {
        SCOPED_TRACE(call.name);
        EXPECT_EQ(57, call.code(iterator)) << "before the first key";
    }
    struct Entry {
        std::string key;
        std::string value;
        int values;
        bool operator<(Entry const& other) const { return key < other.key; }
        bool operator==(Entry const& other) const
        {
            return key == other.key && value == other.value && values == other.values;
        }
    };
    std::vector<Entry> seen;
    while (zstzPropIter_next_6_0(iterator, &code) == 1) {
        EXPECT_EQ(0, code);
        seen.push_back({textOf(Text(zstzPropIter_getKey_6_0(iterator, &code))),
                        textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))),
                        zstzPropIter_numValues_6_0(iterator, &code)});
        EXPECT_EQ(0, code);
    }
    EXPECT_EQ(0, code);
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &code)) << "it stays at the end";
    std::sort(seen.begin(), seen.end());
    std::vector<Entry> const expected = {
        {"debug", "yes", 1}, {"empty", "(null)", 0}, {"host", "alpha", 3}, {"port", "8080", 1}};
    EXPECT_EQ(expected, seen);
    EXPECT_EQ(57, zstzPropIter_chgValue_6_0(iterator, "v"));
    EXPECT_EQ(57, zstzPropIter_addValue_6_0(iterator, "v"));
    EXPECT_EQ(57, zstzPropIter_rmvValue_6_0(iterator));
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ(kText, stored());
}

TEST_F(ZPropertiesC, AMissingStanzaGivesAnEmptyIterator)
{
    ZPROP_iter_handle* iterator = nullptr;
    int code = kUntouched;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "none", nullptr, &iterator));
    EXPECT_EQ(0, zstzPropIter_numKeys_6_0(iterator, &code));
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(0, code);
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "none", "none", &iterator));
    EXPECT_EQ(1, zstzPropIter_numKeys_6_0(iterator, &code));
    EXPECT_EQ(0, zstzPropIter_numValues_6_0(iterator, &code));
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(0, code);
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
}

TEST_F(ZPropertiesC, IteratesOverTheValuesOfAKey)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &iterator));
    int code = kUntouched;
    EXPECT_EQ(1, zstzPropIter_numKeys_6_0(iterator, &code));
    EXPECT_EQ(3, zstzPropIter_numValues_6_0(iterator, &code));
    EXPECT_EQ("host", textOf(Text(zstzPropIter_getKey_6_0(iterator, &code))));
    EXPECT_EQ("(null)", textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
    EXPECT_EQ(0, code);
    for (char const* expected : {"alpha", "beta", "gamma"}) {
        EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
        EXPECT_EQ(expected, textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
        EXPECT_EQ(3, zstzPropIter_numValues_6_0(iterator, &code));
        EXPECT_EQ(0, code);
    }
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(0, code);
    EXPECT_EQ("gamma", textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
}

TEST_F(ZPropertiesC, ChangesAddsAndRemovesValues)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &iterator));
    EXPECT_EQ(57, zstzPropIter_chgValue_6_0(iterator, "v")) << "no current value";
    EXPECT_EQ(57, zstzPropIter_rmvValue_6_0(iterator));
    int code = kUntouched;
    auto const current = [&] { return textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))); };
    ASSERT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    ASSERT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(0, zstzPropIter_chgValue_6_0(iterator, "BETA"));
    EXPECT_EQ("BETA", current());
    EXPECT_EQ(0, zstzPropIter_addValue_6_0(iterator, "between"));
    EXPECT_EQ("between", current());
    EXPECT_EQ(4, zstzPropIter_numValues_6_0(iterator, &code));
    EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ("gamma", current());
    EXPECT_EQ(0, zstzPropIter_rmvValue_6_0(iterator));
    EXPECT_EQ("(null)", current());
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(0, zstzPropIter_chgValue_6_0(iterator, "before")) << "the previous value is current";
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ("alpha BETA before ", values("server", "host"));

    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "added", "key", &iterator));
    EXPECT_EQ(0, zstzPropIter_addValue_6_0(iterator, "one"));
    EXPECT_EQ(0, zstzPropIter_addValue_6_0(iterator, "two"));
    EXPECT_EQ("two", current());
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    std::string expected = kText;
    expected.replace(expected.find("host = beta\nhost = gamma"), 24, "host = BETA\nhost = before");
    EXPECT_EQ(expected + "\n[added]\nkey = one\nkey = two\n", stored());
}

TEST_F(ZPropertiesC, AnIteratorSeesTheChangesOfItsThread)
{
    ZPROP_iter_handle* keys = nullptr;
    ZPROP_iter_handle* hosts = nullptr;
    int code = kUntouched;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", nullptr, &keys));
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &hosts));
    ASSERT_EQ(1, zstzPropIter_next_6_0(keys, &code));
    ASSERT_EQ(1, zstzPropIter_next_6_0(hosts, &code));
    EXPECT_EQ(0, zstzPropRemoveStanza_6_0(file_, "server"));
    EXPECT_EQ(0, zstzPropIter_numValues_6_0(keys, &code));
    EXPECT_EQ(0, zstzPropIter_numValues_6_0(hosts, &code));
    EXPECT_EQ(0, zstzPropIter_next_6_0(hosts, &code));
    EXPECT_EQ(57, zstzPropIter_chgValue_6_0(hosts, "v"));
    EXPECT_EQ("alpha", textOf(Text(zstzPropIter_getValue_6_0(hosts, &code)))) << "a copy";
    EXPECT_EQ(0, zstzPropIter_close_6_0(keys));
    EXPECT_EQ(0, zstzPropIter_close_6_0(hosts));
}

TEST_F(ZPropertiesC, AnIteratorBelongsToItsThread)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &iterator));
    std::thread([&] {
        for (IterCall const& call : iterCalls()) {
            SCOPED_TRACE(call.name);
            EXPECT_EQ(57, call.code(iterator));
        }
    }).join();
    int code = kUntouched;
    EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ("alpha", textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ("alpha beta gamma ", values("server", "host"));
}

// ---- Returned strings ---------------------------------------------------------------------------

TEST_F(ZPropertiesC, AReturnedStringHasAMagicWord)
{
    int code = kUntouched;
    char* const text = zstzPropGetStringValue_6_0(file_, "server", "port", kRequired, &code);
    ASSERT_STREQ("8080", text);
    uint32_t magic = 0;
    memcpy(&magic, text - sizeof magic, sizeof magic);
    EXPECT_EQ(0xc0ffeeee, magic);
    zstzPropFree_6_0(text);
}

TEST_F(ZPropertiesC, FreeIgnoresOtherPointers)
{
    zstzPropFree_6_0(nullptr);
    char own[16] = "own text";
    zstzPropFree_6_0(own);
    char* const allocated = strdup("another block");
    zstzPropFree_6_0(allocated);
    EXPECT_STREQ("another block", allocated);
    free(allocated);
    zstzPropFree_6_0(reinterpret_cast<char*>(8));

    // A forged magic word is not enough.
    uint32_t const magic = 0xc0ffeeee;
    char forged[16] = {};
    memcpy(forged, &magic, sizeof magic);
    zstzPropFree_6_0(forged + sizeof magic);

    int code = kUntouched;
    char* const text = zstzPropGetStringValue_6_0(file_, "server", "port", kRequired, &code);
    zstzPropFree_6_0(text + 1);
    EXPECT_STREQ("8080", text);
    zstzPropFree_6_0(text);
    zstzPropFree_6_0(text);  // a second time: ignored
}

TEST_F(ZPropertiesC, AStringWithoutItsMagicWordIsNotFreed)
{
    int code = kUntouched;
    char* const text = zstzPropGetStringValue_6_0(file_, "server", "port", kRequired, &code);
    uint32_t const nothing = 0;
    memcpy(text - sizeof nothing, &nothing, sizeof nothing);
    zstzPropFree_6_0(text);
    EXPECT_STREQ("8080", text) << "still there";
    free(text - sizeof nothing);
}

TEST_F(ZPropertiesC, ManyStringsExistAtTheSameTime)
{
    constexpr size_t kMany = 20000;  // more than the table has slots
    std::vector<char*> texts(kMany);
    int code = kUntouched;
    for (char*& text : texts) {
        text = zstzPropGetStringValue_6_0(file_, "server", "port", kRequired, &code);
        ASSERT_NE(nullptr, text);
    }
    for (size_t i = 0; i < kMany; i += 2)
        zstzPropFree_6_0(texts[i]);
    for (size_t i = 1; i < kMany; i += 2) {
        ASSERT_STREQ("8080", texts[i]);
        zstzPropFree_6_0(texts[i]);
    }
    zstzPropFree_6_0(texts[1]);
}

// ---- Without memory -----------------------------------------------------------------------------

namespace {

// Runs `call` between `before` and `after` with every allocation failing, one after another. A call
// returns 0 or `expected`; after a failure the state passes `check`, and after `after` no block has
// leaked. Returns the number of calls that failed.
int failEach(int expected, std::function<void()> const& before, std::function<int()> const& call,
             std::function<void()> const& check, std::function<void()> const& after)
{
    int failures = 0;
    for (unsigned long n = 1;; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        long const blocks = FailingAllocator::blocks();
        before();
        FailingAllocator::failAt(n);
        int const code = call();
        bool const failed = FailingAllocator::stop();
        if (code != 0) {
            ++failures;
            EXPECT_TRUE(failed);
            EXPECT_EQ(expected, code);
            check();
        }
        after();
        // A sanitizer's strdup() is not counted, although free() of its block is.
        EXPECT_GE(blocks, FailingAllocator::blocks());
        if (!failed || testing::Test::HasFailure())
            return failures;
    }
}

void nothing()
{
}

}  // namespace

TEST_F(ZPropertiesC, OpenReturns51IfAnAllocationFails)
{
    std::string const name = path("service.conf");
    ZPROP_handle* handle = nullptr;
    int const failures = failEach(
        51, nothing, [&] { return zstzPropOpen_6_0(&handle, name.c_str(), zpropOpenRead); },
        [&] { EXPECT_EQ(nullptr, handle); }, [&] { zstzPropClose_6_0(handle); });
    EXPECT_GT(failures, 5);
}

TEST_F(ZPropertiesC, ReadingReturns52IfAnAllocationFails)
{
    std::string const longText(300, 'x');
    write("long.conf", "[s]\nk = " + longText + "\nk = " + longText + "\n");
    std::string const name = path("long.conf");
    ZPROP_handle* handle = nullptr;
    int code = kUntouched;
    auto const open = [&] { zstzPropOpen_6_0(&handle, name.c_str(), zpropOpenRead); };
    auto const close = [&] { zstzPropClose_6_0(handle); };
    auto const intact = [&] {
        Text const text(zstzPropGetStringValue_6_0(handle, "s", "k", kRequired, &code));
        EXPECT_EQ(longText, textOf(text));
    };
    int failures = failEach(
        52, open,
        [&] {
            Text const text(zstzPropGetStringValue_6_0(handle, "s", "k", kRequired, &code));
            EXPECT_EQ(code == 0, text != nullptr);
            return code;
        },
        intact, close);
    EXPECT_GE(failures, 1);

    // If many strings exist, registering another string allocates memory too.
    std::vector<char*> texts(20000);
    for (char*& text : texts)
        text = zstzPropGetStringValue_6_0(file_, "server", "port", kRequired, &code);
    for (int i = 0; i < 5; ++i)
        failures += failEach(
            52, open,
            [&] {
                Text const text(zstzPropGetStringValue_6_0(handle, "s", "k", kRequired, &code));
                EXPECT_EQ(code == 0, text != nullptr);
                return code;
            },
            intact, close);
    for (char* text : texts)
        zstzPropFree_6_0(text);
    EXPECT_GE(failures, 7);

    char* text = nullptr;
    char** list = nullptr;
    ZPROPValue records[] = {{zpropString, "s", "k", kRequired, &text},
                            {zpropStringList, "s", "k", kRequired, &list}};
    failures = failEach(
        52, open,
        [&] {
            int const result = zstzPropGetValues_6_0(handle, records, 2);
            if (result == 0) {
                EXPECT_EQ(longText, text);
                EXPECT_EQ(longText, list[0]);
                EXPECT_EQ(longText, list[1]);
                EXPECT_EQ(nullptr, list[2]);
            }
            return result;
        },
        intact,
        [&] {
            zstzPropFreeValuesList_6_0(handle, records, 2);
            zstzPropClose_6_0(handle);
        });
    EXPECT_GE(failures, 4);
}

TEST_F(ZPropertiesC, ChangesReturn52IfAnAllocationFails)
{
    std::string const longText(300, 'x');
    std::string const name = path("service.conf");
    std::string const copy = path("copy.conf");
    ZPROP_handle* handle = nullptr;
    struct Case {
        char const* name;
        std::function<int()> change;
    };
    Case const cases[] = {
        {"a value",
         [&] { return zstzPropSetStringValue_6_0(handle, "server", "port", longText.c_str()); }},
        {"a new stanza",
         [&] { return zstzPropSetStringValue_6_0(handle, "new", "key", longText.c_str()); }},
        {"a number", [&] { return zstzPropSetIntegerValue_6_0(handle, "server", "new", 5); }},
        {"a boolean", [&] { return zstzPropSetBooleanValue_6_0(handle, "server", "new", 1); }},
        {"no key", [&] { return zstzPropRemoveKey_6_0(handle, "server", "host"); }},
        {"no stanza", [&] { return zstzPropRemoveStanza_6_0(handle, "server"); }},
        {"a comment on a key",
         [&] { return zstzPropAddLineComment_6_0(handle, "server", "debug", longText.c_str()); }},
        {"a comment on a stanza",
         [&] { return zstzPropAddStanzaComment_6_0(handle, "server", longText.c_str()); }},
        {"a comment on the file",
         [&] { return zstzPropAddFileComment_6_0(handle, longText.c_str()); }}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        failEach(
            52, [&] { zstzPropOpen_6_0(&handle, name.c_str(), zpropOpenRead); }, c.change,
            [&] {
                EXPECT_EQ(0, zstzPropStore_6_0(handle, copy.c_str()));
                EXPECT_EQ(kText, read("copy.conf"));
                EXPECT_EQ(0, c.change()) << "the next one goes well";
            },
            [&] { zstzPropClose_6_0(handle); });
    }
}

TEST_F(ZPropertiesC, StoreReturns51IfAnAllocationFails)
{
    std::string const longText(300, 'x');
    std::string const name = path("service.conf");
    ZPROP_handle* handle = nullptr;
    int const failures = failEach(
        51,
        [&] {
            write("service.conf", kText);
            EXPECT_EQ(0, zstzPropOpen_6_0(&handle, name.c_str(), zpropOpenRead));
            EXPECT_EQ(0, zstzPropSetStringValue_6_0(handle, "server", "port", longText.c_str()));
        },
        [&] { return zstzPropStore_6_0(handle, nullptr); },
        [&] {
            EXPECT_EQ(kText, read("service.conf"));
            EXPECT_EQ(0, zstzPropStore_6_0(handle, nullptr));
        },
        [&] {
            std::string expected = kText;
            expected.replace(expected.find("8080"), 4, longText);
            EXPECT_EQ(expected, read("service.conf"));
            zstzPropClose_6_0(handle);
        });
    EXPECT_GE(failures, 1);
}

TEST_F(ZPropertiesC, IteratorsReturn52IfAnAllocationFails)
{
    std::string const longText(300, 'x');
    std::string const other(301, 'y');
    write("long.conf", "[s]\nk = " + longText + "\nl = 1\n");
    std::string const name = path("long.conf");
    ZPROP_handle* handle = nullptr;
    ZPROP_iter_handle* iterator = nullptr;
    int code = kUntouched;
    auto const open = [&] {
        EXPECT_EQ(0, zstzPropOpen_6_0(&handle, name.c_str(), zpropOpenRead));
        iterator = nullptr;
    };
    auto const close = [&] {
        zstzPropIter_close_6_0(iterator);
        zstzPropClose_6_0(handle);
    };
    for (char const* key : {static_cast<char const*>(nullptr), "k"}) {
        SCOPED_TRACE(key == nullptr ? "keys" : "values");
        int failures = failEach(
            52, open, [&] { return zstzPropIter_init_6_0(handle, "s", key, &iterator); },
            [&] { EXPECT_EQ(nullptr, iterator); }, close);
        EXPECT_GE(failures, 2);
        auto const openIterator = [&] {
            open();
            EXPECT_EQ(0, zstzPropIter_init_6_0(handle, "s", key, &iterator));
        };
        failures = failEach(
            52, openIterator,
            [&] {
                int worst = 0;
                while (zstzPropIter_next_6_0(iterator, &code) == 1) {
                    Text const keyName(zstzPropIter_getKey_6_0(iterator, &code));
                    worst = std::max(worst, code);
                    Text const text(zstzPropIter_getValue_6_0(iterator, &code));
                    worst = std::max(worst, code);
                }
                return std::max(worst, code);
            },
            nothing, close);
        EXPECT_GE(failures, 2);
    }

    struct Case {
        char const* name;
        int (*change)(ZPROP_iter_handle*, char const*);
        std::string value;
        std::string after;
    };
    Case const cases[] = {
        {"change", zstzPropIter_chgValue_6_0, other, other},
        {"add", zstzPropIter_addValue_6_0, other, longText + " " + other},
        {"remove", [](ZPROP_iter_handle* i, char const*) { return zstzPropIter_rmvValue_6_0(i); },
         "", ""}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const contents = [&] {
            std::string all;
            ZPROP_iter_handle* walker = nullptr;
            EXPECT_EQ(0, zstzPropIter_init_6_0(handle, "s", "k", &walker));
            while (zstzPropIter_next_6_0(walker, &code) == 1) {
                Text const text(zstzPropIter_getValue_6_0(walker, &code));
                all += (all.empty() ? "" : " ") + textOf(text);
            }
            EXPECT_EQ(0, zstzPropIter_close_6_0(walker));
            return all;
        };
        failEach(
            52,
            [&] {
                open();
                EXPECT_EQ(0, zstzPropIter_init_6_0(handle, "s", "k", &iterator));
                EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
            },
            [&] { return c.change(iterator, c.value.c_str()); },
            [&] {
                EXPECT_EQ(longText, contents());
                EXPECT_EQ(longText, textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
                EXPECT_EQ(0, c.change(iterator, c.value.c_str()));
            },
            [&] {
                EXPECT_EQ(c.after, contents());
                close();
            });
    }
}

// ---- Threads ------------------------------------------------------------------------------------

TEST_F(ZPropertiesC, ThreadsShareAHandle)
{
    constexpr int kThreads = 8;
    constexpr int kRounds = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::string const key = "key" + std::to_string(t);
            for (int i = 0; i < kRounds; ++i) {
                unsigned int const number = static_cast<unsigned int>(i);
                EXPECT_EQ(0, zstzPropSetIntegerValue_6_0(file_, "s", key.c_str(), number));
                int code = kUntouched;
                EXPECT_EQ(number,
                          zstzPropGetIntegerValue_6_0(file_, "s", key.c_str(), kRequired, &code));
                EXPECT_EQ(0, code);
                EXPECT_EQ("gamma", value("server", "host"));
                if (i % 20 == 0) {
                    EXPECT_EQ("alpha beta gamma ", values("server", "host"));
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    int code = kUntouched;
    EXPECT_EQ(kThreads, zstzPropNumKeys_6_0(file_, "s", &code));
}

TEST_F(ZPropertiesC, AHandleMayBeClosedWhileThreadsUseIt)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 40;
    for (int round = 0; round < kRounds; ++round) {
        ZPROP_handle* handle = nullptr;
        ASSERT_EQ(0, zstzPropOpen_6_0(&handle, path("service.conf").c_str(), zpropOpenRead));
        std::atomic<int> running = 0;
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&] {
                ++running;
                for (int code = 0; code == 0;) {
                    Text const text(
                        zstzPropGetStringValue_6_0(handle, "server", "host", kRequired, &code));
                    EXPECT_EQ(code == 0 ? "gamma" : "(null)", textOf(text));
                    EXPECT_TRUE(code == 0 || code == 55) << code;
                    ZPROP_iter_handle* iterator = nullptr;
                    if (zstzPropIter_init_6_0(handle, "server", "host", &iterator) == 0) {
                        EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
                        EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
                    }
                }
            });
        }
        while (running < kThreads)
            std::this_thread::yield();
        std::thread closer([&] { zstzPropClose_6_0(handle); });
        zstzPropClose_6_0(handle);
        closer.join();
        for (std::thread& thread : threads)
            thread.join();
        for (FileCall const& call : fileCalls())
            EXPECT_EQ(55, call.code(handle)) << call.name;
    }
}
