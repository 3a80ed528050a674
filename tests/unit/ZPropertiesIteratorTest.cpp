#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZPropertiesIterator.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "EachAllocation.h"
#include "LinearTime.h"
#include "NotedMessages.h"
#include "Raised.h"
#include "StanzaStore.h"
#include "Threads.h"

namespace {

constexpr char kSource[] = "src/Z/ZPropertiesIterator";

class Store final : public ZProperties_6_0 {
public:
    Store() : ZProperties_6_0(new ZSCFData_6_0) { setAttributes(1, nullptr); }
};

constexpr char kText[] = "[s]\na = 1\nb = 2\nb = 3\nempty =\n[t]\nx = 1\n";

class IteratorTest : public testing::Test {
public:
    ~IteratorTest() noexcept override {}

protected:
    void SetUp() override
    {
        path_ = directory_.write("conf", kText);
        store_.load(path_.c_str());
    }

    TestDirectory directory_;
    std::string path_;
    Store store_;
};

using Keys = ZPropertiesIterator_6_0;
using Values = ZAbstractPropertyValuesIterator_6_0;

// A store of many stanzas finds each stanza by the order in which it has returned their names.
class StanzaWalkTest : public testing::Test {
public:
    ~StanzaWalkTest() noexcept override {}

protected:
    static constexpr int kStanzas = 400;

    void SetUp() override
    {
        std::string text;
        for (int i = 0; i < kStanzas; ++i)
            text += "[" + stanza(i) + "]\nkey = " + std::to_string(i) + "\n";
        store_.load(directory_.write("conf", text).c_str());
        names_.reset(store_.categoryNames());
        ASSERT_EQ(static_cast<unsigned>(kStanzas), names_->size());
    }

    static std::string stanza(int number) { return "stanza" + std::to_string(number); }

    std::string name(unsigned index) const
    {
        return static_cast<ZLCString_6_0 const*>(names_->get(index))->getChars();
    }

    // Returns the keys and values that an iterator over the stanza visits.
    std::string visited(std::string const& stanza)
    {
        std::string all;
        for (Keys keys(store_, stanza.c_str()); keys.hasMore();) {
            keys.nextEntry();
            char const* const value = keys.entryValue(0);
            all += std::string(keys.entryName()) + "=" + (value == nullptr ? "" : value) + ";";
        }
        return all;
    }

    // Returns the same for a stanza whose only key can be "key".
    std::string expected(std::string const& stanza) const
    {
        std::string const values = valuesOf(store_, stanza.c_str(), "key");
        return values.empty() ? "" : "key=" + values.substr(0, values.size() - 1) + ";";
    }

    TestDirectory directory_;
    ZStanzaFileProperties_6_0 store_{1};
    std::unique_ptr<ZArrayList_6_0> names_;
};

}  // namespace

using ZPropertiesIterator = IteratorTest;

// ---- Keys --------------------------------------------------------------------------------------

TEST_F(ZPropertiesIterator, VisitsEveryKeyOnceWithItsValues)
{
    Keys keys(store_, "s");
    EXPECT_EQ(3, keys.keyCount());
    std::string seen;
    while (keys.hasMore()) {
        keys.nextEntry();
        seen += std::string(keys.entryName()) + ":" + std::to_string(keys.valueCount());
        for (int i = 0; i < keys.valueCount(); ++i)
            seen += std::string(" ") + keys.entryValue(i);
        seen += ";";
    }
    EXPECT_NE(std::string::npos, seen.find("a:1 1;"));
    EXPECT_NE(std::string::npos, seen.find("b:2 2 3;"));
    EXPECT_NE(std::string::npos, seen.find("empty:0;"));
    EXPECT_EQ(0, keys.hasMore());
}

TEST_F(ZPropertiesIterator, ThrowsBeforeTheFirstKeyAndAfterTheLast)
{
    Keys keys(store_, "t");
    auto const before = [&](auto call) {
        return raises<ZPropertiesIteratorException_6_0>(42, kSource, 80, call);
    };
    EXPECT_TRUE(before([&] { keys.entryName(); }));
    EXPECT_TRUE(before([&] { keys.entryValue(0); }));
    EXPECT_TRUE(before([&] { keys.valueCount(); }));
    keys.nextEntry();
    EXPECT_TRUE(
        raises<ZPropertiesIteratorException_6_0>(42, kSource, 70, [&] { keys.nextEntry(); }));
    EXPECT_STREQ("x", keys.entryName());
    try {
        keys.nextEntry();
    } catch (ZPropertiesIteratorException_6_0 const& e) {
        EXPECT_STREQ(path_.c_str(), e.propFile().getChars());
    }
}

TEST_F(ZPropertiesIterator, EntryValueChecksItsIndex)
{
    Keys keys(store_, "s");
    for (keys.nextEntry(); std::string("b") != keys.entryName();)
        keys.nextEntry();
    EXPECT_STREQ("2", keys.entryValue(0));
    EXPECT_STREQ("3", keys.entryValue(1));
    for (int index : {2, 100, -1})
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 95,
                                                           [&] { keys.entryValue(index); }));
}

TEST_F(ZPropertiesIterator, EntryValueReturnsCurrentValuesInAnyOrder)
{
    for (char const* value : {"4", "5", "6"})
        Values(store_, "s", "b", zPropLocalStrings, zPropIterAny).addValue(value);
    store_.store(nullptr);
    store_.reload(nullptr);
    ASSERT_EQ("6,5,4,2,3,", valuesOf(store_, "s", "b"));
    Keys keys(store_, "s");
    for (keys.nextEntry(); std::string("b") != keys.entryName();)
        keys.nextEntry();
    auto const all = [&](std::vector<int> const& order) {
        std::string joined;
        for (int const index : order)
            joined += keys.entryValue(index);
        return joined;
    };
    EXPECT_EQ("65423", all({0, 1, 2, 3, 4}));
    EXPECT_EQ("3245666", all({4, 3, 2, 1, 0, 0, 0}));
    EXPECT_EQ("54425", all({1, 2, 2, 3, 1}));
    {
        // The values are moved from the text of the file into a list.
        Values values(store_, "s", "b", zPropLocalStrings, zPropIterAny);
        EXPECT_EQ("42", all({2, 3}));
        values.nextValue();
        values.removeValue();
        EXPECT_EQ("2", all({2}));
    }
    store_.reload(nullptr);
    EXPECT_EQ("42", all({2, 3}));
    keys.getValues("a");
    EXPECT_EQ("1", all({0}));
    keys.getValues("b");
    EXPECT_EQ("42", all({2, 3}));
    store_.setValue("s", "b", "only");
    EXPECT_EQ("only", all({0}));
    EXPECT_TRUE(
        raises<ZInvalidParameterException_6_0>(22, kSource, 95, [&] { keys.entryValue(2); }));
}

TEST_F(ZPropertiesIterator, VisitingAllValuesTakesLinearTime)
{
    auto const prepare = [this](size_t count) {
        std::string text = "[s]\n";
        for (size_t i = 0; i < count; ++i)
            text += "k = v\n";
        std::string const path = directory_.write("conf" + std::to_string(count), text);
        return [this, path, count] {
            store_.reload(path.c_str());
            Keys keys(store_, "s");
            keys.nextEntry();
            for (size_t i = 0; i < count; ++i)
                EXPECT_STREQ("v", keys.entryValue(static_cast<int>(i)));
        };
    };
    EXPECT_TRUE(takesLinearTime(2000, prepare));
}

TEST_F(ZPropertiesIterator, KeyWithoutValuesGivesNull)
{
    Keys keys(store_, "s");
    for (keys.nextEntry(); std::string("empty") != keys.entryName();)
        keys.nextEntry();
    EXPECT_EQ(nullptr, keys.entryValue(0));
    EXPECT_EQ(nullptr, keys.entryValue(7));
    EXPECT_EQ(0, keys.valueCount());
}

TEST_F(ZPropertiesIterator, RequiresACategory)
{
    EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 45,
                                                       [&] { Keys keys(store_, nullptr); }));
    EXPECT_THROW(Keys(store_, ""), ZInvalidParameterException_6_0);
    Keys missing(store_, "nowhere");
    EXPECT_EQ(0, missing.hasMore());
    EXPECT_EQ(0, missing.keyCount());
}

TEST_F(ZPropertiesIterator, WithoutACategoryHasNoKeysAndCountsValues)
{
    Keys all(store_);
    EXPECT_EQ(0, all.hasMore());
    EXPECT_EQ(0, all.keyCount());
    EXPECT_THROW(all.nextEntry(), ZPropertiesIteratorException_6_0);
    all.getValues("s");
    EXPECT_EQ(store_.numValues("s"), all.valueCount());
    EXPECT_THROW(all.entryValue(0), ZPropertiesIteratorException_6_0);
}

TEST_F(ZPropertiesIterator, GetValuesSelectsAnotherKey)
{
    Keys keys(store_, "s");
    keys.nextEntry();
    keys.getValues("b");
    EXPECT_EQ(2, keys.valueCount());
    EXPECT_STREQ("3", keys.entryValue(1));
}

TEST_F(ZPropertiesIterator, ReturnsTheKeysAtItsCreationWithTheirCurrentValues)
{
    Keys keys(store_, "s");
    store_.setValue("s", "later", "1");
    store_.setValue("s", "a", "changed");
    store_.deleteKey("s", "b");
    int count = 0;
    while (keys.hasMore()) {
        keys.nextEntry();
        ++count;
        if (std::string("a") == keys.entryName()) {
            EXPECT_STREQ("changed", keys.entryValue(0));
        }
        if (std::string("b") == keys.entryName()) {
            EXPECT_EQ(nullptr, keys.entryValue(0));
            EXPECT_EQ(0, keys.valueCount());
        }
    }
    EXPECT_EQ(3, count);
}

// Keys of large categories are prefetched.
TEST_F(ZPropertiesIterator, VisitsTheKeysOfALargeCategoryThatChanges)
{
    constexpr int kKeys = 3000;
    std::string text = "[large]\n";
    for (int i = 0; i < kKeys; ++i)
        text += "key" + std::to_string(i) + " = value" + std::to_string(i) + "\n";
    Store store;
    std::string const path = directory_.write("large", text);
    store.load(path.c_str());
    Keys keys(store, "large");
    ASSERT_EQ(kKeys, keys.keyCount());
    std::vector<bool> isVisited(kKeys);
    for (int step = 0; keys.hasMore(); ++step) {
        keys.nextEntry();
        int const number = std::stoi(keys.entryName() + strlen("key"));
        EXPECT_FALSE(isVisited[static_cast<size_t>(number)]);
        isVisited[static_cast<size_t>(number)] = true;
        if (step == 500) {
            for (int i = 0; i < kKeys; i += 2)
                store.setValue("large", ("key" + std::to_string(i)).c_str(), "");
        }
        if (step == 2000)
            store.setValue("large", "other", "1");
        if (step == 500 || step == 2000)
            continue;
        bool const isMissing = step > 500 && number % 2 == 0;
        EXPECT_EQ(isMissing ? 0 : 1, keys.valueCount());
        if (!isMissing) {
            EXPECT_EQ("value" + std::to_string(number), keys.entryValue(0));
        }
    }
    EXPECT_EQ(isVisited.end(), std::find(isVisited.begin(), isVisited.end(), false));
}

TEST_F(ZPropertiesIterator, KeyInTheSlotOfARemovedKeyIsNotMistakenForIt)
{
    for (bool const afterTheStep : {false, true}) {
        SCOPED_TRACE(afterTheStep);
        store_.setValue("one", "gone", "old");
        Keys keys(store_, "one");
        if (afterTheStep) {
            keys.nextEntry();
            EXPECT_STREQ("old", keys.entryValue(0));
        }
        store_.deleteKey("one", "gone");
        store_.setValue("one", "new", "of another key");
        if (!afterTheStep)
            keys.nextEntry();
        EXPECT_STREQ("gone", keys.entryName());
        EXPECT_EQ(nullptr, keys.entryValue(0));
        EXPECT_EQ(0, keys.valueCount());
        EXPECT_EQ(0, keys.hasMore());

        store_.deleteKey("one", "new");
        store_.setValue("one", "gone", "back again");
        EXPECT_STREQ("back again", keys.entryValue(0));
        EXPECT_EQ(1, keys.valueCount());
        store_.deleteKey("one", "gone");
    }
}

TEST_F(ZPropertiesIterator, ReloadDuringIterationIsHarmless)
{
    Keys keys(store_, "s");
    Values values(store_, "s", "b", zPropLocalStrings, zPropIterAny);
    keys.nextEntry();
    values.nextValue();
    directory_.write("conf", "[s]\nb = new\n");
    store_.reload(nullptr);
    while (keys.hasMore()) {
        keys.nextEntry();
        if (std::string("b") == keys.entryName())
            EXPECT_STREQ("new", keys.entryValue(0));
        else
            EXPECT_EQ(nullptr, keys.entryValue(0));
    }
    EXPECT_EQ(1, values.valueCount());
    EXPECT_EQ(1, values.isValid());
    EXPECT_EQ(0, values.hasMore());
    values.changeValue("newer");
    EXPECT_EQ("newer,", valuesOf(store_, "s", "b"));
}

TEST_F(StanzaWalkTest, VisitsEveryStanzaTwiceAndStanzasOutOfOrder)
{
    for (unsigned i = 0; i < 2 * kStanzas; ++i) {
        std::string const stanza = name(i % kStanzas);
        EXPECT_EQ(expected(stanza), visited(stanza));
        std::string const other = name(i * 7 % kStanzas);
        EXPECT_EQ(expected(other), visited(other));
        EXPECT_EQ("", visited("none"));
    }
}

TEST_F(StanzaWalkTest, StanzaInTheSlotOfARemovedStanzaIsNotMistakenForIt)
{
    for (unsigned steps = 0; steps < 40; ++steps) {
        SCOPED_TRACE(steps);
        names_.reset(store_.categoryNames());
        for (unsigned i = 0; i < steps; ++i)
            EXPECT_EQ(expected(name(i)), visited(name(i)));
        std::string const gone = name(steps);
        store_.deleteStanza(gone.c_str());
        std::string const added = "new" + std::to_string(steps);
        if (steps % 2 == 0)
            store_.setValue(added.c_str(), "key", "of another stanza");
        EXPECT_EQ("", visited(gone));
        EXPECT_EQ(expected(added), visited(added));
    }
}

TEST_F(StanzaWalkTest, VisitsTheStanzasOfAStoreThatChanges)
{
    for (unsigned i = 0; i < kStanzas; ++i) {
        SCOPED_TRACE(i);
        std::string const stanza = name(i);
        EXPECT_EQ(expected(stanza), visited(stanza));
        std::string const next = name((i + 1) % kStanzas);
        if (i % 50 == 20)
            store_.setValue(next.c_str(), "key", "changed");
        if (i % 50 == 30)
            store_.reload(nullptr);
        if (i % 50 == 40)
            names_.reset(store_.categoryNames());
    }
    directory_.write("conf", "[only]\nkey = 1\n");
    store_.reload(nullptr);
    for (unsigned i = 0; i < kStanzas; ++i)
        EXPECT_EQ("", visited(name(i)));
    EXPECT_EQ("key=1;", visited("only"));
}

TEST_F(ZPropertiesIterator, LocksTheStoreUntilItsDestruction)
{
    std::atomic<bool> done{false};
    WatchedThread setter;
    std::thread other;
    {
        Keys keys(store_, "s");
        Values values(store_, "s", "a", zPropLocalStrings, zPropIterAny);
        other = std::thread([&] {
            setter.enter();
            store_.setValue("s", "other", "1");
            done = true;
        });
        while (keys.hasMore()) {
            keys.nextEntry();
            EXPECT_EQ(1, store_.exists("s", keys.entryName()));
        }
        setter.waitUntilAsleep();
        EXPECT_FALSE(done);
    }
    other.join();
    EXPECT_TRUE(done);
}

TEST_F(ZPropertiesIterator, DestructionInAnotherThreadThrowsAndKeepsTheLock)
{
    static Store* const store = new Store;  // leaked: it stays locked
    store->load(path_.c_str());
    auto* const keys = new Keys(*store, "s");
    std::thread([&] { EXPECT_THROW(keys->~Keys(), ZUnlockResourceException_6_0); }).join();
    EXPECT_EQ(1, store->exists("s"));  // this thread still holds the lock
    operator delete(keys);
}

TEST_F(ZPropertiesIterator, DestructionInAnotherThreadIsReportedDuringUnwinding)
{
    static Store* const store = new Store;  // leaked: it stays locked
    store->load(path_.c_str());
    auto* const keys = new Keys(*store, "s");
    NotedMessages messages;
    std::thread([&] {
        struct End {
            Keys* keys;
            ~End() { keys->~Keys(); }
        };
        try {
            End const end{keys};
            throw std::logic_error("unwinding");
        } catch (std::logic_error const&) {
        }
    }).join();
    EXPECT_EQ(1, messages.exceptions());
    EXPECT_EQ(1, store->exists("s"));
    operator delete(keys);
}

// ---- Values ------------------------------------------------------------------------------------

TEST_F(ZPropertiesIterator, VisitsTheValuesOfAKey)
{
    Values values(store_, "s", "b", zPropLocalStrings, zPropIterAny);
    EXPECT_EQ(2, values.valueCount());
    EXPECT_EQ(0, values.isValid());
    EXPECT_EQ(1, values.hasMore());
    ZAbstractString_6_0 const& first = values.nextValue();
    EXPECT_STREQ("2", first.getChars());
    EXPECT_NE(nullptr, dynamic_cast<ZLCConstString_6_0 const*>(&first));
    EXPECT_EQ(1, values.isValid());
    char const* second = nullptr;
    values.nextValue(second);
    EXPECT_STREQ("3", second);
    EXPECT_EQ(0, values.hasMore());
    EXPECT_TRUE(
        raises<ZPropertiesIteratorException_6_0>(42, kSource, 185, [&] { values.nextValue(); }));
    EXPECT_TRUE(raises<ZPropertiesIteratorException_6_0>(42, kSource, 185,
                                                         [&] { values.nextValue(second); }));
    EXPECT_EQ(1, values.isValid());
}

TEST_F(ZPropertiesIterator, ReturnsUTF8OnRequest)
{
    Values values(store_, "s", "a", zPropUTF8Strings, zPropIterAny);
    EXPECT_NE(nullptr, dynamic_cast<ZUTF8String_6_0 const*>(&values.nextValue()));
    values.changeValue("neu");
    EXPECT_EQ("neu,", valuesOf(store_, "s", "a"));
    EXPECT_TRUE(
        raises<ZFromUTF8Exception_6_0>(50, kSource, 240, [&] { values.changeValue("\xC3"); }));
    EXPECT_EQ("neu,", valuesOf(store_, "s", "a"));
}

TEST_F(ZPropertiesIterator, ChecksItsArguments)
{
    store_.setValue("s", "hidden", "h", 1);
    struct Case {
        char const* name;
        char const* category;
        char const* key;
        int type;
        int kind;
    };
    Case const cases[] = {
        {"null category", nullptr, "a", 0, 0},
        {"null key", "s", nullptr, 0, 0},
        {"string type", "s", "a", 1, 0},
        {"string type 7", "s", "a", 7, 0},
        {"kind 3", "s", "a", 0, 3},
        {"kind -1", "s", "a", 0, -1},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 150, [&] {
            Values values(store_, c.category, c.key, static_cast<ZPropertyStringType>(c.type),
                          static_cast<ZPropIter_valtype>(c.kind));
        }));
    }
    // The store detects values of the wrong kind.
    EXPECT_THROW(Values(store_, "s", "a", zPropLocalStrings, zPropIterObfuscated),
                 ZInvalidParameterException_6_0);
    EXPECT_THROW(Values(store_, "s", "hidden", zPropLocalStrings, zPropIterPlain),
                 ZInvalidParameterException_6_0);
    // Empty names are invalid if a kind is requested; otherwise the key is missing.
    EXPECT_THROW(Values(store_, "", "a", zPropLocalStrings, zPropIterPlain),
                 ZInvalidParameterException_6_0);
    EXPECT_THROW(Values(store_, "s", "", zPropLocalStrings, zPropIterObfuscated),
                 ZInvalidParameterException_6_0);
    EXPECT_EQ(0, Values(store_, "", "", zPropLocalStrings, zPropIterAny).valueCount());
    // The store is not left locked.
    std::thread([&] { EXPECT_EQ(1, store_.exists("s")); }).join();
}

TEST_F(ZPropertiesIterator, KindFollowsTheKey)
{
    store_.setValue("s", "hidden", "h", 1);
    {
        Values values(store_, "s", "hidden", zPropLocalStrings, zPropIterAny);
        values.nextValue();
        values.addValue("h2");
    }
    EXPECT_EQ(1, store_.isObfuscated("s", "hidden"));
    EXPECT_EQ("h,h2,", valuesOf(store_, "s", "hidden"));
    Values missing(store_, "s", "missing", zPropLocalStrings, zPropIterObfuscated);
    EXPECT_EQ(0, missing.hasMore());
    missing.addValue("m");
    EXPECT_EQ(1, store_.isObfuscated("s", "missing"));
}

TEST_F(ZPropertiesIterator, ChangesTheCurrentValueInPlace)
{
    NotedChanges observer;
    store_.addObserver(&observer);
    {
        Values values(store_, "s", "b", zPropLocalStrings, zPropIterPlain);
        EXPECT_TRUE(raises<ZPropertiesIteratorException_6_0>(42, kSource, 195,
                                                             [&] { values.changeValue("x"); }));
        EXPECT_EQ(0, store_.isModified());
        values.nextValue();
        values.changeValue("two");
        EXPECT_EQ(1, store_.isModified());
    }
    EXPECT_EQ("two,3,", valuesOf(store_, "s", "b"));
    EXPECT_EQ("", observer.log);
}

TEST_F(ZPropertiesIterator, AddsAfterTheCurrentValueAndMakesItCurrent)
{
    {
        Values values(store_, "s", "b", zPropLocalStrings, zPropIterPlain);
        values.addValue("first");
        EXPECT_EQ(1, values.isValid());
        values.nextValue();
        values.addValue("middle");
        values.changeValue("centre");
    }
    EXPECT_EQ("first,2,centre,3,", valuesOf(store_, "s", "b"));
    EXPECT_EQ(1, store_.isModified());
}

TEST_F(ZPropertiesIterator, AddToAKeyWithoutValuesSetsItAndNotifiesObservers)
{
    NotedChanges observer;
    store_.addObserver(&observer);
    {
        Values values(store_, "s", "new", zPropLocalStrings, zPropIterPlain);
        EXPECT_EQ(0, values.valueCount());
        values.addValue("1");
        EXPECT_EQ(1, values.isValid());
        EXPECT_EQ(1, values.valueCount());
        values.addValue("2");
    }
    EXPECT_EQ("1,2,", valuesOf(store_, "s", "new"));
    EXPECT_EQ("2[s]new ", observer.log);
    store_.store(nullptr);
    EXPECT_NE(std::string::npos, directory_.read("conf").find("new = 1\nnew = 2\n"));
}

TEST_F(ZPropertiesIterator, RemovesTheCurrentValueAndStepsBack)
{
    {
        Values values(store_, "s", "b", zPropLocalStrings, zPropIterPlain);
        EXPECT_TRUE(raises<ZPropertiesIteratorException_6_0>(42, kSource, 195,
                                                             [&] { values.removeValue(); }));
        values.nextValue();
        values.removeValue();
        EXPECT_EQ(0, values.isValid());
        EXPECT_EQ(1, values.hasMore());
        EXPECT_STREQ("3", values.nextValue().getChars());
        values.removeValue();
        EXPECT_EQ(0, values.valueCount());
        EXPECT_EQ(0, values.hasMore());
        values.addValue("again");
        EXPECT_EQ(1, values.isValid());
    }
    EXPECT_EQ("again,", valuesOf(store_, "s", "b"));
}

TEST_F(ZPropertiesIterator, KeepsRemovingAllObfuscatedValuesWithTheFirst)
{
    store_.setValue("s", "hidden", "1", 1);
    NotedChanges observer;
    store_.addObserver(&observer);
    {
        Values values(store_, "s", "hidden", zPropLocalStrings, zPropIterAny);
        values.nextValue();
        values.addValue("2");
        values.addValue("3");
        values.removeValue();
        EXPECT_EQ(2, values.valueCount());
    }
    EXPECT_EQ("1,2,", valuesOf(store_, "s", "hidden"));
    {
        Values values(store_, "s", "hidden", zPropLocalStrings, zPropIterAny);
        values.nextValue();
        values.removeValue();
        EXPECT_EQ(0, values.valueCount());
        EXPECT_EQ(0, values.isValid());
        EXPECT_EQ(0, values.hasMore());
    }
    EXPECT_EQ("", valuesOf(store_, "s", "hidden"));
    EXPECT_EQ(1, store_.exists("s", "hidden"));
    EXPECT_EQ(0, store_.isObfuscated("s", "hidden"));
    EXPECT_EQ("2[s]hidden ", observer.log);
}

TEST_F(ZPropertiesIterator, RefusesStringsThatAFileCannotRepresent)
{
    Values values(store_, "s", "b", zPropLocalStrings, zPropIterPlain);
    values.nextValue();
    std::string const tooLong(8190, 'x');
    for (char const* text : {"a\nb", tooLong.c_str(), static_cast<char const*>(nullptr)}) {
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 230,
                                                           [&] { values.changeValue(text); }));
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 230,
                                                           [&] { values.addValue(text); }));
    }
    EXPECT_EQ("2,3,", valuesOf(store_, "s", "b"));
    EXPECT_EQ(0, store_.isModified());
    Values bad(store_, "s", "a=b", zPropLocalStrings, zPropIterPlain);
    EXPECT_THROW(bad.addValue("x"), ZInvalidParameterException_6_0);
}

TEST_F(ZPropertiesIterator, RemovingTheKeyDuringIterationIsHarmless)
{
    Values values(store_, "s", "b", zPropLocalStrings, zPropIterPlain);
    values.nextValue();
    store_.deleteKey("s", "b");
    EXPECT_EQ(0, values.isValid());
    EXPECT_EQ(0, values.hasMore());
    EXPECT_EQ(0, values.valueCount());
    EXPECT_THROW(values.changeValue("x"), ZPropertiesIteratorException_6_0);
    store_.setValue("s", "b", "back");
    EXPECT_EQ(1, values.isValid());
    EXPECT_EQ(1, values.valueCount());
}

TEST_F(ZPropertiesIterator, KeepsAnEmptyValueUntilTheFileIsReadAgain)
{
    {
        Values values(store_, "s", "b", zPropLocalStrings, zPropIterAny);
        values.nextValue();
        values.changeValue("");
        EXPECT_EQ(2, values.valueCount());
        values.addValue("");
        EXPECT_EQ(3, values.valueCount());
    }
    EXPECT_EQ(",,3,", valuesOf(store_, "s", "b"));
    store_.store(nullptr);
    EXPECT_NE(std::string::npos, directory_.read("conf").find("b = \nb = \nb = 3\n"));
    store_.reload(nullptr);
    EXPECT_EQ("3,", valuesOf(store_, "s", "b"));
    // A key without values still has none.
    Values values(store_, "s", "empty", zPropLocalStrings, zPropIterAny);
    values.addValue("");
    EXPECT_EQ(0, values.isValid());
    EXPECT_EQ(0, values.valueCount());
}

// ---- Failed allocations ------------------------------------------------------------------------

TEST_F(ZPropertiesIterator, FailedAllocationsChangeNothing)
{
    std::string const text(300, 'x');
    Values(store_, "s", "b", zPropLocalStrings, zPropIterAny);  // creates the list, which remains
    auto const check = [&] {
        EXPECT_EQ("2,3,", valuesOf(store_, "s", "b"));
        EXPECT_EQ(0, store_.exists("s", "new"));
        EXPECT_EQ(3, store_.count("s"));
        EXPECT_EQ(0, store_.isModified());
    };
    auto const nothing = [] {};
    failEachAllocationOfSome(
        [&] {
            Keys keys(store_, "s");
            while (keys.hasMore()) {
                keys.nextEntry();
                keys.entryValue(0);
            }
        },
        nothing, check);
    failEachAllocationOfSome(
        [&] {
            Values values(store_, "s", "b", zPropUTF8Strings, zPropIterAny);
            while (values.hasMore())
                values.nextValue();
        },
        nothing, check);
    failEachAllocationOfSome(
        [&] {
            Values values(store_, "s", "b", zPropLocalStrings, zPropIterAny);
            values.nextValue();
            values.changeValue(text.c_str());
        },
        [&] {
            Values values(store_, "s", "b", zPropLocalStrings, zPropIterAny);
            values.nextValue();
            values.changeValue("2");
            store_.resetModified();
        },
        check);
    failEachAllocationOfSome(
        [&] {
            Values values(store_, "s", "b", zPropLocalStrings, zPropIterAny);
            values.addValue(text.c_str());
        },
        [&] {
            Values values(store_, "s", "b", zPropLocalStrings, zPropIterAny);
            values.nextValue();
            values.removeValue();
            store_.resetModified();
        },
        check);
    failEachAllocationOfSome(
        [&] {
            Values values(store_, "s", "new", zPropLocalStrings, zPropIterAny);
            values.addValue(text.c_str());
        },
        [&] {
            store_.deleteKey("s", "new");
            store_.resetModified();
        },
        check);
}
