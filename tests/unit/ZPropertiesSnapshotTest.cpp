// Visits of a store in the order of its file, and snapshots.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZPropertiesIterator.h>
#include <Z/ZPropertiesSnapshot.h>
#include <Z/ZStanzaDialect.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>
#include <link.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "EachAllocation.h"
#include "FailingAllocator.h"
#include "LinearTime.h"
#include "Raised.h"
#include "StanzaStore.h"
#include "Threads.h"

namespace {

constexpr char kSource[] = "src/Z/ZProperties";

// Appends an entry as "[s]", "key=value", "key" without a value, or "key~value" if obfuscated.
int note(ZPropertiesEntry_6_0 const& entry, void* context)
{
    auto& log = *static_cast<std::string*>(context);
    EXPECT_EQ(std::string(entry.category), std::string(entry.category, entry.categoryLength));
    if (entry.key == nullptr) {
        EXPECT_EQ(nullptr, entry.value);
        log += std::string("[") + entry.category + "]";
        return 0;
    }
    log += std::string(entry.key, entry.keyLength);
    if (entry.value != nullptr)
        log += (entry.isObfuscated != 0 ? "~" : "=") + std::string(entry.value, entry.valueLength);
    EXPECT_EQ('\0', entry.key[entry.keyLength]);
    log += ' ';
    return 0;
}

template <class Visited>
std::string visited(Visited const& contents)
{
    std::string log;
    EXPECT_EQ(0, contents.visit(note, &log));
    return log;
}

// Calls a function for each entry.
int call(ZPropertiesEntry_6_0 const& entry, void* context)
{
    return (*static_cast<std::function<int(ZPropertiesEntry_6_0 const&)>*>(context))(entry);
}

ZStanzaDialect_6_0 dialect(char const* name)
{
    ZStanzaDialect_6_0 found;
    EXPECT_EQ(1, ZStanzaDialect_6_0::named(name, found));
    return found;
}

constexpr char kText[] =
    "# about the file\n\n[z]\nk = 2\nb =\nk = 1\n\n# about a\n[a]\n# about x\nx = y\n[empty]\n";

class SnapshotTest : public StanzaStoreTest {};

// A cache whose class keeps values of its own.
class DerivedCache final : public ZSCFData_6_0 {
public:
    ZArrayList_6_0* get(char const* category, char const* key, get_type_e type) override
    {
        ++lookups;
        return ZSCFData_6_0::get(category, key, type);
    }
    using ZSCFData_6_0::get;
    unsigned lookups = 0;
};

class DerivedStore final : public ZProperties_6_0 {
public:
    DerivedStore() : ZProperties_6_0(new DerivedCache) {}
    using ZProperties_6_0::cache;
};

}  // namespace

using ZPropertiesVisit = SnapshotTest;
using ZPropertiesSnapshot = SnapshotTest;

// ---- Visits ------------------------------------------------------------------------------------

TEST_F(ZPropertiesVisit, FollowsTheOrderOfTheFile)
{
    load(kText);
    EXPECT_EQ("[z]k=2 k=1 b [a]x=y [empty]", visited(store_));
}

TEST_F(ZPropertiesVisit, NewKeysAreWhereTheFileWillHaveThem)
{
    load("[b]\nk = 1\n\n# tail\n[a]\n# n = 0\nm = 1\n");
    store_.setValue("b", "l", "2");
    store_.setValue("c", "first", "3");
    store_.setValue("a", "n", "4");
    store_.deleteKey("b", "k");
    std::string const before = visited(store_);
    stored();
    ZStanzaFileProperties_6_0 fresh(1);
    fresh.load(store_.fileName().getChars());
    EXPECT_EQ(visited(fresh), before);
}

TEST_F(ZPropertiesVisit, KeysWithoutALineFollow)
{
    load("[s]\na = 1\n[t]\nb = 2\n");
    store_.setValue("s", "secret", "x", 1);
    store_.setValue("new", "secret", "y", 1);
    store_.setValue("s", "last", "3");
    std::string const log = visited(store_);
    EXPECT_NE(std::string::npos, log.find("secret~x ")) << log;
    EXPECT_NE(std::string::npos, log.find("[new]secret~y ")) << log;
    EXPECT_LT(log.find("secret~x"), log.find("[t]")) << log;
}

TEST_F(ZPropertiesVisit, EndsWithTheFirstResultThatIsNotZero)
{
    load(kText);
    unsigned count = 0;
    std::function<int(ZPropertiesEntry_6_0 const&)> const third = [&](auto const&) {
        return ++count == 3 ? -7 : 0;
    };
    EXPECT_EQ(-7, store_.visit(call, const_cast<void*>(static_cast<void const*>(&third))));
    EXPECT_EQ(3u, count);
}

TEST_F(ZPropertiesVisit, VisitorMayReadTheStore)
{
    load(kText);
    std::string values;
    std::function<int(ZPropertiesEntry_6_0 const&)> reader = [&](auto const& entry) {
        if (entry.key == nullptr)
            return 0;
        ZLCString_6_0 value;
        store_.getValue(entry.category, entry.key, value, 0, "none");
        values += value.getChars() + valuesOf(store_, entry.category, entry.key) + ' ';
        ZStanzaIterator_6_0 keys(store_, entry.category);
        EXPECT_NE(0, keys.keyCount());
        return visited(store_).empty() ? 1 : 0;
    };
    EXPECT_EQ(0, store_.visit(call, &reader));
    EXPECT_EQ("12,1, 12,1, none yy, ", values);
}

TEST_F(ZPropertiesVisit, EndsIfTheVisitorChangesTheStore)
{
    std::string const another = directory_.write("another", "[other]\nk = v\n");
    std::function<void()> const changes[] = {
        [&] { store_.setValue("z", "k", "3"); },
        [&] { store_.setValue("new", "k", "3"); },
        [&] { store_.deleteKey("z", "b"); },
        [&] { store_.reload(nullptr); },
        [&] { store_.load(another.c_str()); },
        [&] { ZStanzaValueIterator_6_0 values(store_, "z", "k", zPropLocalStrings, zPropIterAny); },
    };
    std::string const path = directory_.write("conf", kText);
    unsigned index = 0;
    for (auto const& change : changes) {
        SCOPED_TRACE(index++);
        store_.reload(path.c_str());
        unsigned count = 0;
        std::function<int(ZPropertiesEntry_6_0 const&)> changer = [&](auto const&) {
            change();
            ++count;
            return 0;
        };
        EXPECT_TRUE(raises<ZPropertiesIteratorException_6_0>(
            42, kSource, 700, [&] { store_.visit(call, &changer); }));
        EXPECT_EQ(1u, count);
        std::function<int(ZPropertiesEntry_6_0 const&)> last = [&](auto const&) {
            change();
            return 5;  // a visit that ends does not use the store again
        };
        store_.reload(path.c_str());
        EXPECT_EQ(5, store_.visit(call, &last));
    }
}

TEST_F(ZPropertiesVisit, ExceptionsOfTheVisitorReleaseTheStore)
{
    load(kText);
    std::function<int(ZPropertiesEntry_6_0 const&)> thrower = [](auto const&) -> int { throw 5; };
    EXPECT_THROW(store_.visit(call, &thrower), int);
    std::thread([&] { EXPECT_EQ(1, store_.exists("z")); }).join();
}

TEST_F(ZPropertiesVisit, NullVisitorIsRefused)
{
    EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 700,
                                                       [&] { store_.visit(nullptr, nullptr); }));
    EXPECT_EQ("", visited(store_));
}

TEST_F(ZPropertiesVisit, AllocatesNothing)
{
    load(kText);
    std::string log;
    log.reserve(1000);
    FailingAllocator::failAt(1, FailingAllocator::once);
    store_.visit(note, &log);
    EXPECT_FALSE(FailingAllocator::stop());
}

TEST_F(ZPropertiesVisit, CacheOfADerivedClassIsAsked)
{
    DerivedStore store;
    store.load(directory_.write("conf", kText).c_str());
    auto& cache = dynamic_cast<DerivedCache&>(store.cache());
    cache.lookups = 0;
    std::string const log = visited(store);
    EXPECT_LE(3u, cache.lookups);
    for (char const* const piece : {"[z]", "k=2 k=1 ", "b ", "[a]x=y ", "[empty]"})
        EXPECT_NE(std::string::npos, log.find(piece)) << piece;
    ZPropertiesSnapshot_6_0 const snapshot(store);
    EXPECT_EQ(log, visited(snapshot));
    EXPECT_STREQ("1", snapshot.getValue("z", "k"));
}

// After random changes of a store, a visit passes the values that lookups find.
TEST_F(ZPropertiesVisit, PassesWhatLookupsFind)
{
    load(kText);
    std::minstd_rand random(7);
    auto const name = [&](char first) {
        return std::string(1, first) + std::to_string(random() % 5);
    };
    for (unsigned round = 0; round < 300; ++round) {
        std::string const category = name('s');
        std::string const key = name('k');
        switch (random() % 5) {
            case 0:
                if (store_.exists(category.c_str(), key.c_str()) != 0)
                    store_.deleteKey(category.c_str(), key.c_str());
                break;
            case 1:
                if (store_.exists(category.c_str(), key.c_str()) == 0)
                    store_.setValue(category.c_str(), key.c_str(), "secret", 1);
                break;
            case 2: {
                if (store_.exists(category.c_str(), key.c_str()) == 0)
                    break;
                ZStanzaValueIterator_6_0 values(store_, category.c_str(), key.c_str(),
                                                zPropLocalStrings, zPropIterAny);
                values.addValue("more");
                break;
            }
            default:
                if (store_.isObfuscated(category.c_str(), key.c_str()) == 0)
                    store_.setValue(category.c_str(), key.c_str(),
                                    std::to_string(random() % 9).c_str());
        }
        int keys = 0;
        int stanzas = 0;
        std::string last;
        std::string values;
        auto const check = [&] {
            if (last.empty())
                return;
            size_t const at = last.find('\n');
            EXPECT_EQ(valuesOf(store_, last.substr(0, at).c_str(), last.substr(at + 1).c_str()),
                      values);
        };
        ZPropertiesSnapshot_6_0 const snapshot(store_);
        std::function<int(ZPropertiesEntry_6_0 const&)> visitor = [&](auto const& entry) {
            std::string const current =
                entry.key == nullptr ? "" : std::string(entry.category) + '\n' + entry.key;
            if (current != last || entry.key == nullptr) {
                check();
                values.clear();
                (entry.key == nullptr ? stanzas : keys)++;
            }
            last = current;
            if (entry.value != nullptr) {
                values += std::string(entry.value) + ",";
                EXPECT_EQ(entry.isObfuscated, store_.isObfuscated(entry.category, entry.key));
            }
            return 0;
        };
        ASSERT_EQ(0, snapshot.visit(call, &visitor));
        check();
        ASSERT_EQ(store_.count(), stanzas);
        int expected = 0;
        std::unique_ptr<ZArrayList_6_0> const names(store_.categoryNames());
        for (unsigned i = 0; i < names->size(); ++i)
            expected += store_.count(static_cast<ZLCString_6_0*>(names->get(i))->getChars());
        ASSERT_EQ(expected, keys);
        ASSERT_EQ(visited(store_), visited(snapshot));
    }
}

TEST_F(ZPropertiesVisit, TimeIsLinear)
{
    auto const prepare = [this](size_t size) {
        std::string text;
        for (size_t i = 0; i < size; ++i)
            text += (i % 10 == 0 ? "[s" + std::to_string(i) + "]\n" : "") + "k" +
                    std::to_string(i) + " = v\n";
        auto const store = std::make_shared<ZStanzaFileProperties_6_0>(1);
        store->load(directory_.write("large", text).c_str());
        return [store, size] {
            size_t count = 0;
            std::function<int(ZPropertiesEntry_6_0 const&)> counter = [&](auto const& entry) {
                count += entry.value != nullptr;
                return 0;
            };
            store->visit(call, &counter);
            EXPECT_EQ(size, count);
        };
    };
    EXPECT_TRUE(takesLinearTime(10000, prepare));
}

// ---- Snapshots ---------------------------------------------------------------------------------

TEST_F(ZPropertiesSnapshot, HasTheContentsOfItsMoment)
{
    load(kText);
    ZPropertiesSnapshot_6_0 const before(store_);
    std::string const log = visited(store_);
    store_.setValue("z", "k", "new");
    store_.deleteKey("a", "x");
    store_.setValue("b", "c", "d");
    ZPropertiesSnapshot_6_0 const after(store_);
    EXPECT_EQ(log, visited(before));
    EXPECT_EQ(visited(store_), visited(after));
    EXPECT_STREQ("1", before.getValue("z", "k"));
    EXPECT_STREQ("new", after.getValue("z", "k"));
    EXPECT_EQ(1, before.exists("a", "x"));
    EXPECT_EQ(0, after.exists("a", "x"));
    EXPECT_EQ(0, before.exists("b"));
    EXPECT_EQ(1, after.exists("b"));
    EXPECT_STREQ(store_.fileName().getChars(), before.fileName());
}

TEST_F(ZPropertiesSnapshot, AnswersAsTheStore)
{
    load("[s]\nn = 0x1F\nt = Yes\nbad = maybe\nempty =\nmany = 1\nmany = 2\nmany = 3\n");
    store_.setValue("s", "secret", "x", 1);
    ZPropertiesSnapshot_6_0 const snapshot(store_);
    EXPECT_EQ(31u, snapshot.getIntegerValue("s", "n", 1, 0));
    EXPECT_EQ(9u, snapshot.getIntegerValue("s", "none", 0, 9));
    EXPECT_EQ(1, snapshot.getBooleanValue("s", "t", 1, 0));
    EXPECT_EQ(1, snapshot.getBooleanValue("t", "t", 0, 1));
    EXPECT_EQ(3, snapshot.numValues("s", "many"));
    EXPECT_EQ(0, snapshot.numValues("s", "none"));
    EXPECT_EQ(0, snapshot.numValues("s", "empty"));
    EXPECT_EQ(1, snapshot.count());
    EXPECT_EQ(6, snapshot.count("s"));
    EXPECT_EQ(0, snapshot.count("t"));
    EXPECT_STREQ("x", snapshot.getValue("s", "secret"));
    EXPECT_EQ(nullptr, snapshot.getValue("s", "empty"));
    EXPECT_EQ(nullptr, snapshot.getValue("s", "none"));
    EXPECT_STREQ("1", snapshot.getValue("s", "many", 0));
    EXPECT_STREQ("3", snapshot.getValue("s", "many", 2));
    EXPECT_EQ(nullptr, snapshot.getValue("s", "many", 3));
    EXPECT_EQ(nullptr, snapshot.getValue("s", "many", -1));
    EXPECT_EQ(nullptr, snapshot.getValue("s", "none", 0));
    ZUTF8String_6_0 text;
    snapshot.getValue("s", "t", text, 1, nullptr);
    EXPECT_STREQ("Yes", text.getChars());
    snapshot.getValue("s", "none", text, 0, "default");
    EXPECT_STREQ("default", text.getChars());
    snapshot.getValue("s", "none", text, 0, nullptr);
    EXPECT_TRUE(text.isEmpty());

    EXPECT_TRUE(raises<ZPropertiesInvalidValueException_6_0>(
        41, kSource, 185, [&] { snapshot.getBooleanValue("s", "bad", 1, 0); }));
    EXPECT_TRUE(raises<ZPropertiesInvalidValueException_6_0>(
        40, kSource, 160, [&] { snapshot.getIntegerValue("s", "bad", 1, 0); }));
    EXPECT_TRUE(raises<ZPropertiesMissingPropertyException_6_0>(
        28, kSource, 95, [&] { snapshot.getIntegerValue("s", "none", 1, 0); }));
    EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(
        22, kSource, 85, [&] { snapshot.getIntegerValue("s", "n", 1, 4); }));
    for (char const* const name : {static_cast<char const*>(nullptr), ""}) {
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 75,
                                                           [&] { snapshot.getValue(name, "k"); }));
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 75,
                                                           [&] { snapshot.getValue("s", name); }));
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(
            22, kSource, 75, [&] { snapshot.getValue("s", name, 0); }));
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 75,
                                                           [&] { snapshot.exists(name); }));
        EXPECT_TRUE(
            raises<ZInvalidParameterException_6_0>(22, kSource, 75, [&] { snapshot.count(name); }));
    }
    EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 700,
                                                       [&] { snapshot.visit(nullptr, nullptr); }));
}

TEST_F(ZPropertiesSnapshot, HasTheFileNameOfItsMoment)
{
    store_.setValue("a", "b", "c");
    ZPropertiesSnapshot_6_0 const before(store_);
    store_.store(directory_.at("new").c_str());
    ZPropertiesSnapshot_6_0 const after(store_);
    EXPECT_STREQ("", before.fileName());
    EXPECT_STREQ(directory_.at("new").c_str(), after.fileName());
}

TEST_F(ZPropertiesSnapshot, OutlivesItsStore)
{
    auto store = std::make_unique<ZStanzaFileProperties_6_0>(1);
    store->load(directory_.write("conf", kText).c_str());
    std::optional<ZPropertiesSnapshot_6_0> snapshot(*store);
    ZPropertiesSnapshot_6_0 const copy(*snapshot);
    store.reset();
    snapshot.reset();
    EXPECT_STREQ("y", copy.getValue("a", "x"));
}

TEST_F(ZPropertiesSnapshot, IsSharedWhileNothingChanges)
{
    load(kText);
    ZPropertiesSnapshot_6_0 const first(store_);
    ZLCString_6_0 value;
    store_.getValue("z", "k", value, 1, nullptr);
    visited(store_);
    EXPECT_EQ(1, first.isShared(ZPropertiesSnapshot_6_0(store_)));
    stored();
    EXPECT_EQ(1, first.isShared(ZPropertiesSnapshot_6_0(store_)));

    std::string const another = directory_.write("another", "[other]\nk = v\n");
    std::function<void()> const changes[] = {
        [&] { store_.setValue("z", "k", "3"); },
        [&] { store_.deleteKey("z", "b"); },
        [&] { store_.reload(nullptr); },
        [&] { store_.load(another.c_str()); },
        [&] { store_.setValue("z", "s", "t", 1); },
    };
    for (auto const& change : changes) {
        ZPropertiesSnapshot_6_0 const before(store_);
        EXPECT_EQ(1, before.isShared(ZPropertiesSnapshot_6_0(store_)));
        change();
        EXPECT_EQ(0, before.isShared(ZPropertiesSnapshot_6_0(store_)));
    }
    ZPropertiesSnapshot_6_0 assigned(store_);
    assigned = first;
    EXPECT_EQ(1, assigned.isShared(first));
    assigned = *&assigned;
    EXPECT_STREQ("1", assigned.getValue("z", "k"));
}

// The holder of a list of values changes the store without a call of it.
TEST_F(ZPropertiesSnapshot, SeesValuesThatAListChanges)
{
    load(kText);
    ZStanzaValueIterator_6_0 values(store_, "z", "k", zPropLocalStrings, zPropIterAny);
    ZPropertiesSnapshot_6_0 const before(store_);
    char const* value = nullptr;
    values.nextValue(value);
    values.changeValue("changed");
    values.addValue("added");
    ZPropertiesSnapshot_6_0 const after(store_);
    EXPECT_EQ("[z]k=2 k=1 b [a]x=y [empty]", visited(before));
    EXPECT_EQ("[z]k=changed k=added k=1 b [a]x=y [empty]", visited(after));
}

// Lists of values exist from the first iterator over values on.
TEST_F(ZPropertiesSnapshot, IsSharedWhileNoListChanges)
{
    load("[s]\nk = 1\nk = 2\nother = 3\n");
    store_.setValue("s", "secret", "x", 1);
    auto const sharesWith = [&](ZPropertiesSnapshot_6_0 const& before) {
        return before.isShared(ZPropertiesSnapshot_6_0(store_)) != 0;
    };
    ZPropertiesSnapshot_6_0 const first(store_);
    for (char const* const key : {"k", "other", "secret"}) {
        SCOPED_TRACE(key);
        ZStanzaValueIterator_6_0 values(store_, "s", key, zPropLocalStrings, zPropIterAny);
        char const* value = nullptr;
        values.nextValue(value);
        EXPECT_TRUE(sharesWith(first));
    }
    store_.addValue("s", "k", "4", 0);
    EXPECT_FALSE(sharesWith(first));

    struct Case {
        char const* name;
        char const* key;
        std::function<void(ZStanzaValueIterator_6_0&)> change;
        char const* contents;
    };
    Case const cases[] = {
        {"changed", "k", [](auto& values) { values.changeValue("5"); },
         "[s]k=5 k=2 k=4 other=3 secret~x "},
        {"same length of another list", "other", [](auto& values) { values.changeValue("6"); },
         "[s]k=5 k=2 k=4 other=6 secret~x "},
        {"added", "other", [](auto& values) { values.addValue("7"); },
         "[s]k=5 k=2 k=4 other=6 other=7 secret~x "},
        {"removed", "k", [](auto& values) { values.removeValue(); },
         "[s]k=2 k=4 other=6 other=7 secret~x "},
        {"obfuscated", "secret", [](auto& values) { values.changeValue("y"); },
         "[s]k=2 k=4 other=6 other=7 secret~y "},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZPropertiesSnapshot_6_0 const before(store_);
        std::string const contents = visited(before);
        ZStanzaValueIterator_6_0 values(store_, "s", c.key, zPropLocalStrings, zPropIterAny);
        char const* value = nullptr;
        values.nextValue(value);
        c.change(values);
        EXPECT_FALSE(sharesWith(before));
        EXPECT_EQ(contents, visited(before));
        ZPropertiesSnapshot_6_0 const after(store_);
        EXPECT_EQ(c.contents, visited(after));
        EXPECT_EQ(visited(store_), visited(after));
        EXPECT_TRUE(sharesWith(after));
    }
}

TEST_F(ZPropertiesSnapshot, FollowsTheRulesOfADialect)
{
    ZStanzaFileProperties_6_0 store(1, dialect("systemd"));
    store.load(directory_
                   .write("x.service",
                          "[Service]\nExecStart=/a\nExecStart=\nExecStart=/b\nReset=/a\nReset=\n")
                   .c_str());
    ZPropertiesSnapshot_6_0 const snapshot(store);
    EXPECT_STREQ("/b", snapshot.getValue("Service", "ExecStart"));
    EXPECT_EQ(nullptr, snapshot.getValue("Service", "Reset"));
    EXPECT_EQ("[Service]ExecStart=/a ExecStart= ExecStart=/b Reset=/a Reset= ", visited(snapshot));
    EXPECT_EQ(visited(store), visited(snapshot));

    ZStanzaFileProperties_6_0 options(1, dialect("git"));
    options.load(directory_.write("gitconfig", "[core]\n\tbare\n\tn = 1k\n").c_str());
    ZPropertiesSnapshot_6_0 const git(options);
    EXPECT_EQ(1, git.getBooleanValue("core", "bare", 1, 0));
    EXPECT_STREQ("1k", git.getValue("CORE", "N"));
}

TEST_F(ZPropertiesSnapshot, FailedAllocationsLeaveStoreAndSnapshots)
{
    load(kText);
    failEachAllocation([&] { ZPropertiesSnapshot_6_0 const snapshot(store_); },
                       [&] { EXPECT_EQ("[z]k=2 k=1 b [a]x=y [empty]", visited(store_)); });
}

TEST_F(ZPropertiesSnapshot, LookupsAllocateNothing)
{
    load(kText);
    ZPropertiesSnapshot_6_0 const snapshot(store_);
    std::string log;
    log.reserve(1000);
    FailingAllocator::failAt(1, FailingAllocator::once);
    snapshot.getValue("z", "k");
    snapshot.getIntegerValue("z", "k", 1, 0);
    snapshot.visit(note, &log);
    EXPECT_FALSE(FailingAllocator::stop());
}

// Readers see whole generations while another thread changes the store.
TEST_F(ZPropertiesSnapshot, ReadersSeeWholeGenerations)
{
    load("[s]\na = 0\nb = 0\n");
    std::mutex mutex;
    ZPropertiesSnapshot_6_0 current(store_);  // guarded by `mutex`
    auto const latest = [&] {
        std::lock_guard<std::mutex> const guard(mutex);
        return current;
    };
    std::atomic<bool> isDone = false;
    std::atomic<unsigned> wrong = 0;
    std::vector<std::thread> readers;
    for (unsigned i = 0; i < 4; ++i)
        readers.emplace_back([&] {
            unsigned last = 0;
            while (!isDone) {
                ZPropertiesSnapshot_6_0 const snapshot = latest();
                unsigned const a = snapshot.getIntegerValue("s", "a", 1, 0);
                wrong += a != snapshot.getIntegerValue("s", "b", 1, 0) || a < last;
                last = a;
            }
        });
    for (unsigned i = 1; i <= 300; ++i) {
        store_.setIntegerValue("s", "a", i);
        store_.setIntegerValue("s", "b", i);
        ZPropertiesSnapshot_6_0 const next(store_);
        std::lock_guard<std::mutex> const guard(mutex);
        current = next;
    }
    isDone = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(0u, wrong);
    EXPECT_EQ(300u, latest().getIntegerValue("s", "a", 1, 0));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace {

struct Range {
    uintptr_t begin;
    uintptr_t end;
};

// The pages with the thread-local data of the calling thread, and with the C library's record of
// the thread, to which the kernel writes when it interrupts the thread.
Range threadLocalPages()
{
    constexpr uintptr_t kMaxRecord = 4096;  // bytes; the C library declares no size
    auto const record = static_cast<uintptr_t>(pthread_self());
    Range data = {record, record + kMaxRecord};
    dl_iterate_phdr(
        [](dl_phdr_info* module, size_t, void* found) {
            Range& all = *static_cast<Range*>(found);
            for (unsigned i = 0; i < module->dlpi_phnum; ++i) {
                if (module->dlpi_phdr[i].p_type != PT_TLS || module->dlpi_tls_data == nullptr)
                    continue;
                uintptr_t const begin = reinterpret_cast<uintptr_t>(module->dlpi_tls_data);
                all = {std::min(all.begin, begin),
                       std::max<uintptr_t>(all.end, begin + module->dlpi_phdr[i].p_memsz)};
            }
            return 0;
        },
        &data);
    uintptr_t const pageSize = static_cast<uintptr_t>(getpagesize());
    return {data.begin & ~(pageSize - 1), (data.end + pageSize - 1) & ~(pageSize - 1)};
}

// Makes the writable memory of this process read-only, apart from the stack and the thread-local
// data of its only thread.
bool protectSharedMemory()
{
    constexpr size_t kMaxRanges = 4096;
    Range ranges[kMaxRanges];
    size_t count = 0;
    uintptr_t const stack = reinterpret_cast<uintptr_t>(&count);
    Range const own = threadLocalPages();
    if (own.end - own.begin > 16u * static_cast<uintptr_t>(getpagesize()))
        return false;
    FILE* const maps = fopen("/proc/self/maps", "r");
    if (maps == nullptr)
        return false;
    char line[512];
    while (fgets(line, sizeof line, maps) != nullptr && count + 2 < kMaxRanges) {
        Range range;
        char rights[5];
        if (sscanf(line, "%" SCNxPTR "-%" SCNxPTR " %4s", &range.begin, &range.end, rights) != 3 ||
            rights[1] != 'w' || (stack >= range.begin && stack < range.end))
            continue;
        if (own.begin < range.end && own.end > range.begin) {
            ranges[count++] = {range.begin, std::max(range.begin, own.begin)};
            range.begin = std::min(range.end, own.end);
        }
        ranges[count++] = range;
    }
    bool isProtected = fclose(maps) == 0 && count > 2;
    for (size_t i = 0; i < count; ++i)
        isProtected = (ranges[i].begin == ranges[i].end ||
                       mprotect(reinterpret_cast<void*>(ranges[i].begin),
                                ranges[i].end - ranges[i].begin, PROT_READ) == 0) &&
                      isProtected;
    return isProtected;
}

}  // namespace

TEST_F(ZPropertiesSnapshot, LookupsWriteNoSharedMemory)
{
    load(kText);
    store_.setValue("a", "secret", "x", 1);
    ZPropertiesSnapshot_6_0 const snapshot(store_);
    auto const exitCodeOf = [](std::function<bool()> const& run) {
        pid_t const child = fork();
        if (child == 0)
            _exit(!protectSharedMemory() ? 3 : run() ? 0 : 4);
        int status = 0;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    };
    std::function<bool()> const lookUp = [&] {
        unsigned count = 0;
        snapshot.visit(
            [](auto const&, void* number) { return ++*static_cast<unsigned*>(number), 0; }, &count);
        return snapshot.getIntegerValue("z", "k", 1, 0) == 1 &&
               snapshot.getBooleanValue("z", "k", 1, 0) == 1 && snapshot.exists("a", "x") == 1 &&
               snapshot.exists("none") == 0 && snapshot.getValue("a", "secret") != nullptr &&
               snapshot.getValue("z", "k", 1) != nullptr && snapshot.numValues("z", "k") == 2 &&
               count == 8;
    };
    EXPECT_TRUE(lookUp());  // also resolves functions, which writes to the tables of the loader
    EXPECT_EQ(0, exitCodeOf(lookUp));
    std::function<bool()> const change = [&] {
        store_.setValue("z", "k", "3");
        return true;
    };
    EXPECT_EQ(-SIGSEGV, exitCodeOf(change));  // the store does write
}

#endif
