#include <Z/handles/handle_table.h>
#include <Z/zproperties_c.h>
#include <Z/zproperties_c_p.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "PlainFunctionsFixture.h"

using ZPropertiesC = PlainFunctionsTest;

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
    zhandles::HandleTable<ZPROP_handle>::Pin const inside = zhandles::openFiles.pin(file_);
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
    auto const store = zhandles::openFiles.pin(file_)->store;
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
            zhandles::openIterators.pin(iterator);
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
    EXPECT_FALSE(zhandles::openIterators.pin(iterator)) << "it is closed";
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

// Calls each function with a handle in several threads, each of which starts with another function,
// as often as `isDone` returns false for the code of a function.
template <class IsDone>
static void callAllInThreads(ZPROP_handle* handle, int rounds, std::atomic<int>& running,
                             std::vector<std::thread>& threads, IsDone isDone)
{
    constexpr size_t kThreads = 4;
    for (size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([=, &running] {
            std::vector<FileCall> const calls = fileCalls();
            ++running;
            for (int round = 0; round < rounds; ++round)
                for (size_t i = 0; i < calls.size(); ++i)
                    if (isDone(calls[(i + t * calls.size() / kThreads) % calls.size()], handle))
                        return;
        });
    }
}

TEST_F(ZPropertiesC, EveryFunctionRunsInSeveralThreads)
{
    std::atomic<int> running = 0;
    std::vector<std::thread> threads;
    callAllInThreads(file_, 5, running, threads, [](FileCall const& call, ZPROP_handle* handle) {
        EXPECT_NE(55, call.code(handle)) << call.name;
        return false;
    });
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_EQ(0, zstzPropLoadText_6_0(file_, kText, strlen(kText)));
    EXPECT_EQ("alpha beta gamma ", values("server", "host"));
    EXPECT_EQ(kText, stored());
}

TEST_F(ZPropertiesC, EveryFunctionRunsWhileAnotherThreadClosesTheHandle)
{
    for (int round = 0; round < 10; ++round) {
        write("shared.conf", kText);
        ZPROP_handle* handle = nullptr;
        ASSERT_EQ(0, zstzPropOpen_6_0(&handle, path("shared.conf").c_str(), zpropOpenUpdate));
        std::atomic<int> running = 0;
        std::vector<std::thread> threads;
        // A function that was called after the close is the last of its thread.
        callAllInThreads(
            handle, INT_MAX, running, threads,
            [](FileCall const& call, ZPROP_handle* file) { return call.code(file) == 55; });
        while (running < static_cast<int>(threads.size()))
            std::this_thread::yield();
        zstzPropClose_6_0(handle);
        for (std::thread& thread : threads)
            thread.join();
        for (FileCall const& call : fileCalls())
            EXPECT_EQ(55, call.code(handle)) << call.name;
    }
}
