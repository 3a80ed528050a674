#include <Z/ZException.h>
#include <Z/memory/huge_pages.h>
#include <malloc.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "FailingAllocator.h"
#include "JavaFilesFixture.h"
#include "Raised.h"
#include "Sanitizers.h"
#include "SharedFileTable.h"

using namespace java_store;

namespace {

// A store with handlers of its own.
class OtherStates final : public Store {
public:
    void drop(int state) { handlers_[state] = nullptr; }
    void leave(int state, int to)
    {
        handlers_[state] = static_cast<Handler>(&OtherStates::nowhere);
        nowhere_ = to;
    }
    void shout() { handlers_[valChars] = static_cast<Handler>(&OtherStates::upper); }

private:
    int nowhere(char) { return nowhere_; }
    int upper(char c)
    {
        return doValCharsState(c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c);
    }

    int nowhere_ = 0;
};

TEST_F(ZJavaPropertiesFiles, WithoutAHandlerForAStateAddNothing)
{
    std::string const path = directory_.write("f", "a=2\nb\\=c=2\n");
    OtherStates store;
    setBytes(store, "a", "1");
    store.drop(5);
    EXPECT_TRUE(raises<ZJavaPropertyParseException_6_0>(54, kSource, 310,
                                                        [&] { store.load(path.c_str()); }));
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store));
}

TEST_F(ZJavaPropertiesFiles, AreReadByTheHandlersOfADerivedClass)
{
    std::string const path = directory_.write("f", "a=bcd\nb=ef\n");
    OtherStates store;
    store.shout();
    store.load(path.c_str());
    // The handler of the preceding state processes the first character of a value.
    EXPECT_EQ((Entries{{"a", "bCD"}, {"b", "eF"}}), entriesOf(store));

    for (int const nowhere : {99, 0, -1}) {
        SCOPED_TRACE(nowhere);
        OtherStates leaving;
        leaving.leave(5, nowhere);
        FILE* const stream = fopen(directory_.write("g", "a=1\nb\\=c=2\nd=3\n").c_str(), "r");
        EXPECT_EQ(0, leaving.loadProperties(stream, "g"));
        EXPECT_EQ('c', getc(stream));
        fclose(stream);
        EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(leaving));
    }
}

// A store that runs an action before every value.
class Interrupted final : public Store {
public:
    explicit Interrupted(std::function<void()> deed) : deed_(std::move(deed))
    {
        handlers_[keyEndBlanksFinal] = static_cast<Handler>(&Interrupted::interrupt);
    }
    ~Interrupted() override {}

private:
    int interrupt(char c)
    {
        deed_();
        return doKeyEndBlanksFinalState(c);
    }

    std::function<void()> const deed_;
};

TEST_F(ZJavaPropertiesFiles, AreLockedForOtherWritersWhileTheyAreRead)
{
    std::string const path = directory_.write("f", "a=2\nb=3\n");
    int asked = 0;
    Interrupted store([&] {
        ++asked;
        EXPECT_FALSE(isFree(path, F_WRLCK));
        EXPECT_TRUE(isFree(path, F_RDLCK));
    });
    store.load(path.c_str());
    EXPECT_EQ(2, asked);
    EXPECT_TRUE(isFree(path, F_WRLCK));
}

TEST_F(ZJavaPropertiesFiles, WithAHandlerThatThrowsAddNothing)
{
    std::string const path = directory_.write("f", "a=2\nb=3\nc=4\n");
    long const open = openDescriptors();
    int calls = 0;
    Interrupted store([&] {
        if (++calls == 2)
            throw 7;
    });
    setBytes(store, "a", "1");
    EXPECT_THROW(store.load(path.c_str(), "b"), int);
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store));
    EXPECT_EQ(open, openDescriptors());
    EXPECT_TRUE(isFree(path, F_WRLCK));
    // The stop key is reset too.
    store.load(path.c_str());
    EXPECT_EQ((Entries{{"a", "2"}, {"b", "3"}, {"c", "4"}}), entriesOf(store));
}

TEST_F(ZJavaPropertiesFiles, WithAKeyThatCannotBeComparedAddNothing)
{
    std::string const path = directory_.write("f", "new=2\na=2\nz=2\na=3\n");
    int left = 0;  // calls until one throws; 0: none throws
    HookedString key("z");
    key.onChars = [&left] {
        if (left > 0 && --left == 0)
            throw 7;
    };
    store_.setValue(key, ZUTF8String_6_0("1"));
    int n = 1;
    for (bool threw = true; threw && n < 100; ++n) {
        left = n;
        try {
            store_.load(path.c_str());
            threw = false;
        } catch (int) {
        }
        left = 0;
        if (threw) {
            EXPECT_EQ((Entries{{"a", "1"}, {"z", "1"}}), entriesOf(store_)) << n;
        }
    }
    EXPECT_LT(2, n);
    EXPECT_EQ((Entries{{"a", "3"}, {"new", "2"}, {"z", "2"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, StoreAnEntryAtTheEndOfItsLine)
{
    Interrupted* self = nullptr;
    std::vector<Entries> seen;
    Interrupted store([&] { seen.push_back(entriesOf(*self)); });
    self = &store;
    setBytes(store, "a", "1");
    store.load(directory_.write("f", "a=2\nb=\nb=3\nc=4\n").c_str());
    std::vector<Entries> const expected = {
        {{"a", "1"}}, {{"a", "2"}}, {{"a", "2"}, {"b", ""}}, {{"a", "2"}, {"b", "3"}}};
    // This handler also processes a line ending, once for an empty value.
    seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
    EXPECT_EQ(expected, seen);
    EXPECT_EQ((Entries{{"a", "2"}, {"b", "3"}, {"c", "4"}}), entriesOf(store));
}

// A store whose handlers are called one character at a time.
class ByHand final : public Store {
public:
    int take(std::string_view text)
    {
        int state = startLine;
        for (char const c : text)
            state = (this->*handlers_[state])(c);
        return state;
    }
};

TEST_F(ZJavaPropertiesFiles, AreNotNeededForAHandlerToStore)
{
    ByHand store;
    setBytes(store, "b", "1");
    EXPECT_EQ(1, store.take("a=1\nb=2\nc\\=d=e \\u20ac\\\n  f\n"));
    EXPECT_EQ((Entries{{"a", "1"},
                       {"b", "2"},
                       {"c=d",
                        "e \xE2\x82\xAC"
                        "f"}}),
              entriesOf(store));
    // A failed read of a file undoes none of these entries.
    EXPECT_THROW(store.load(directory_.at("missing").c_str()), ZPropertiesIOException_6_0);
    EXPECT_EQ(3u, entriesOf(store).size());
    std::string const path = directory_.write("f", "a=3\nb=\\u0041\n");
    convertingFails_ = true;
    EXPECT_THROW(store.load(path.c_str()), ZToUTF8Exception_6_0);
    convertingFails_ = false;
    EXPECT_EQ("1", get(store, "a"));
    EXPECT_EQ("2", get(store, "b"));
}

TEST_F(ZJavaPropertiesFiles, MayBeReadDuringAnotherRead)
{
    std::string const inner = directory_.write("inner", "b=2\nc=3\nd");
    std::string const outer = directory_.write("outer", "w=0\nlong key=1 \\u0041\ny=2\nz=9\n");
    for (char const* const stopKey : {"", "y"}) {
        SCOPED_TRACE(stopKey);
        int depth = 0;
        Interrupted* self = nullptr;
        Interrupted store([&] {
            if (depth++ == 0)
                self->load(inner.c_str(), "none");
        });
        self = &store;
        EXPECT_EQ(1, store.load(outer.c_str(), stopKey));
        Entries expected = {{"w", "0"}, {"b", "2"}, {"c", "3"}, {"long", "key=1 A"}, {"y", "2"}};
        if (*stopKey == 0)
            expected["z"] = "9";
        EXPECT_EQ(expected, entriesOf(store));
    }
}

// A nested read starts in the middle of the second entry of the outer read; each of the two
// succeeds or fails.
TEST_F(ZJavaPropertiesFiles, ThatFailDuringAnotherReadUndoOnlyThemselves)
{
    std::string const inner = directory_.write("inner", "a=20\nb=20\nc=20\n");
    std::string const outer = directory_.write("outer", "a=10\nb=10\nd=10\n");
    Entries const before = {{"a", "1"}, {"z", "1"}};
    for (bool const innerFails : {false, true}) {
        for (bool const outerFails : {false, true}) {
            SCOPED_TRACE(
                std::string(innerFails ? "the inner read fails" : "the inner read succeeds") +
                (outerFails ? ", the outer read fails" : ", the outer read succeeds"));
            int calls = 0;
            Interrupted* self = nullptr;
            Interrupted store([&] {
                ++calls;
                if (innerFails && calls == 5)
                    throw 5;  // at the last entry of the inner file
                if (outerFails && calls == 6)
                    throw 6;  // at the last entry of the outer file
                if (calls != 2)
                    return;
                setBytes(*self, "z", "2");
                setBytes(*self, "new", "2");
                try {
                    self->load(inner.c_str());
                } catch (int) {
                }
                Entries expected = {{"a", "10"}, {"z", "2"}, {"new", "2"}};
                if (!innerFails)
                    expected.insert_or_assign("a", "20"), expected["b"] = expected["c"] = "20";
                EXPECT_EQ(expected, entriesOf(store));
            });
            self = &store;
            for (auto const& [key, value] : before)
                setBytes(store, key, value);
            if (outerFails)
                EXPECT_THROW(store.load(outer.c_str()), int);
            else
                EXPECT_EQ(1, store.load(outer.c_str()));
            Entries expected = before;
            if (!outerFails) {
                expected = {{"a", innerFails ? "10" : "20"},
                            {"b", "10"},
                            {"d", "10"},
                            {"z", "2"},
                            {"new", "2"}};
                if (!innerFails)
                    expected["c"] = "20";
            }
            EXPECT_EQ(6, calls);
            EXPECT_EQ(expected, entriesOf(store));
            // Later changes are not undone, and the next read starts from scratch.
            setBytes(store, "a", "3");
            EXPECT_THROW(store.load(directory_.at("missing").c_str()), ZPropertiesIOException_6_0);
            EXPECT_EQ("3", get(store, "a"));
        }
    }
}

TEST_F(ZJavaPropertiesFiles, ThatFailPreserveTheOrderOfTheKeys)
{
    std::string text;
    for (int i = 0; i < 300; ++i) {
        setBytes(store_, "old" + std::to_string(i), "1");
        text += "new" + std::to_string(i) + " = 2\nold" + std::to_string(i) + " = 2\n";
    }
    store_.store(directory_.at("before").c_str());
    std::string const path = directory_.write("f", text + "last=\\u0041\n");
    convertingFails_ = true;
    EXPECT_THROW(store_.load(path.c_str()), ZToUTF8Exception_6_0);
    convertingFails_ = false;
    store_.store(directory_.at("after").c_str());
    EXPECT_EQ(directory_.read("before"), directory_.read("after"));
}

// A value whose destructor runs an action.
class Parting final : public ZUTF8String_6_0 {
public:
    Parting(std::string const& text, std::function<void()> deed)
        : ZUTF8String_6_0(text.c_str()), deed_(std::move(deed))
    {
    }
    ~Parting() noexcept(false) override
    {
        if (deed_)
            deed_();
    }
    ZUTF8String_6_0* clone() const override { return new Parting(getChars(), deed_); }

private:
    std::function<void()> const deed_;
};

TEST_F(ZJavaPropertiesFiles, AreReadCompletelyIfDestroyingAnOldValueThrows)
{
    std::string const path = directory_.write("f", "old=2\na=2\nb=2\n");
    bool raising = false;
    store_.setValue(ZUTF8String_6_0("old"), Parting("1", [&] {
                        if (raising)
                            throw 7;
                    }));
    raising = true;
    EXPECT_THROW(store_.load(path.c_str()), int);
    raising = false;
    EXPECT_EQ((Entries{{"a", "2"}, {"b", "2"}, {"old", "2"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, ThatFailAreUndoneCompletelyIfDestroyingAValueThrows)
{
    std::string const path = directory_.write("f", "a=2\nb=2\nc=2\n");
    bool raising = false;
    int calls = 0;
    Interrupted* self = nullptr;
    Interrupted store([&] {
        if (++calls == 3)
            throw 3;
        if (calls == 2) {
            self->setValue(ZUTF8String_6_0("d"), Parting("2", [&] {
                               if (raising)
                                   throw 7;
                           }));
            raising = true;
        }
    });
    self = &store;
    setBytes(store, "a", "1");
    testing::internal::CaptureStderr();
    try {
        store.load(path.c_str());
        ADD_FAILURE();
    } catch (int raised) {
        EXPECT_EQ(3, raised);
    }
    raising = false;
    EXPECT_NE("", testing::internal::GetCapturedStderr());
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store));
}

TEST_F(ZJavaPropertiesFiles, ReadInsideOneAnotherAddNothingIfMemoryIsExhausted)
{
    std::string const longText(200, 'x');
    std::string const inner =
        directory_.write("inner", "a = 2\nin" + longText + " = " + longText + "\n");
    std::string const outer =
        directory_.write("outer", "a = 3\n" + longText + " = y\nb = " + longText + "\n");
    Entries const before = {{"a", "1"}, {longText, "1"}};
    Entries const expected = {{"a", "2"},
                              {"in" + longText, longText},
                              {longText, "y"},
                              {"b", longText},
                              {"set", longText}};
    createTableOfSharedFiles();
    unsigned long n = 1;
    for (bool failed = true; failed && !HasFailure(); ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        long const blocks = FailingAllocator::blocks();
        {
            int calls = 0;
            ZUTF8String_6_0 const key("set");
            ZUTF8String_6_0 const value(longText.c_str());
            Interrupted* self = nullptr;
            Interrupted store([&] {
                if (++calls == 3) {
                    self->setValue(key, value);
                    self->load(inner.c_str(), "none");
                }
            });
            self = &store;
            for (auto const& [name, text] : before)
                setBytes(store, name, text);
            bool raised = false;
            FailingAllocator::failAt(n);
            try {
                store.load(outer.c_str(), longText.c_str() + 1);
            } catch (ZOutOfMemoryException_6_0 const&) {
                raised = true;
            }
            failed = FailingAllocator::stop();
            EXPECT_EQ(failed, raised);
            EXPECT_EQ(failed ? before : expected, entriesOf(store));
        }
        EXPECT_EQ(blocks, FailingAllocator::blocks());
    }
    EXPECT_LT(20u, n);
}

TEST_F(ZJavaPropertiesFiles, AddNothingIfMemoryIsExhausted)
{
    std::string const longText(200, 'x');
    std::string text;
    Entries expected = {{"a", "2"}, {longText, "1"}};
    for (int i = 0; i < 100; ++i) {
        text += "key" + std::to_string(i) + " = one \\u20ac\\\n " + longText + "\n";
        expected["key" + std::to_string(i)] = "one \xE2\x82\xAC" + longText;
    }
    expected["key7"] = "3";
    // Existing keys, new keys, and one key twice.
    std::string const path = directory_.write("f", text + "a = 2\nkey7 = 3\n");
    Entries const before = {{"a", "1"}, {"key50", "before"}, {longText, "1"}};

    createTableOfSharedFiles();
    unsigned long n = 1;
    unsigned survived = 0;
    for (bool failed = true; failed && !HasFailure(); ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        long const blocks = FailingAllocator::blocks();
        {
            Store store;
            for (auto const& [key, value] : before)
                setBytes(store, key, value);
            bool raised = false;
            FailingAllocator::failAt(n);
            try {
                store.load(path.c_str(), "none");
            } catch (ZOutOfMemoryException_6_0 const&) {
                raised = true;
            }
            failed = FailingAllocator::stop();
            EXPECT_TRUE(failed || !raised);
            EXPECT_EQ(raised ? before : expected, entriesOf(store));
            survived += failed && !raised ? 1 : 0;
        }
        EXPECT_EQ(blocks, FailingAllocator::blocks());
    }
    EXPECT_LT(20u, n);
    EXPECT_EQ(2u, survived);  // the nodes and the index that the size of the file suggests
}

TEST_F(ZJavaPropertiesFiles, ReserveLittleMemoryIfOnlySomeLinesAreShort)
{
    if (kHasSanitizer)
        GTEST_SKIP() << "the allocator of a sanitizer has no mallinfo2()";
    auto const heapInUse = [] {
        struct mallinfo2 const info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    std::string comments;
    while (comments.size() < 2 << 20)
        comments += "# " + std::string(1000, 'x') + "\n";
    std::string shortLines;
    while (shortLines.size() < 8192)
        shortLines += "k=v\n";
    std::string const text = comments + shortLines + comments;
    std::string const path = directory_.write("f", text);
    Store store;
    size_t const before = heapInUse();
    store.load(path.c_str(), "none");
    // Two blocks of huge pages, each aligned to a huge page and rounded up to whole pages.
    constexpr size_t kRounding = 4 * zmemory::kHugePage;
    EXPECT_GT(before + 4 * text.size() + kRounding, heapInUse());
    EXPECT_EQ((Entries{{"k", "v"}}), entriesOf(store));
}

}  // namespace
