#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZHashMap.h>
#include <Z/containers/hash_table.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "FailingAllocator.h"
#include "Maps.h"
#include "ThrowingObject.h"

// ---- Every map

TEST_F(ZHashMap, MapsStartEmpty)
{
    forEachMap([](ZMap_6_0& map, int) {
        CountedObject probe(1);
        EXPECT_EQ(0u, map.size());
        EXPECT_TRUE(map.isEmpty());
        EXPECT_FALSE(map.contains(&probe));
        EXPECT_EQ(nullptr, map.getEntry(&probe));
        map.removeEntry(&probe);
        map.removeAll();
        EXPECT_EQ(Numbers{}, orderOf(map));
    });
}

TEST_F(ZHashMap, MapsFindTheEntryThatTheProbeEquals)
{
    forEachMap([](ZMap_6_0& map, int owns) {
        CountedObject one(1), two(2);
        map.putEntry(&one);
        map.putEntry(&two);
        CountedObject const probe(2);
        EXPECT_EQ(2u, map.size());
        EXPECT_FALSE(map.isEmpty());
        EXPECT_TRUE(map.contains(&probe));
        EXPECT_EQ(2, numberOf(map.getEntry(&probe)));
        EXPECT_EQ(owns == kBorrows, map.getEntry(&probe) == &two);
        CountedObject const other(3);
        EXPECT_FALSE(map.contains(&other));
        EXPECT_EQ(nullptr, map.getEntry(&other));
        EXPECT_EQ(owns == kOwns ? 6 : 4, CountedObject::alive);
        map.removeAll();
    });
}

TEST_F(ZHashMap, MapsCallEqualsOfTheProbe)
{
    forEachMap([](ZMap_6_0& map, int) {
        CountedObject one(1, 7), two(2, 7);
        map.putEntry(&one);
        map.putEntry(&two);
        EqualToAll probe(7);
        EXPECT_TRUE(map.contains(&probe));
        EXPECT_EQ(1, numberOf(map.getEntry(&probe)));
        map.removeEntry(&probe);
        EXPECT_EQ(Numbers{2}, orderOf(map));
        map.putEntry(&probe);
        EXPECT_EQ(Numbers{-2}, orderOf(map));
        map.removeAll();
    });
}

TEST_F(ZHashMap, MapsReplaceAnEqualEntryInPlace)
{
    forEachMap([](ZMap_6_0& map, int) {
        Versioned old1(1, 1), old16(16, 1), old31(31, 1);  // one bucket in a map of 15
        map.putEntry(&old1);
        map.putEntry(&old16);
        map.putEntry(&old31);
        long const before = CountedObject::alive;
        Versioned next(16, 2);
        map.putEntry(&next);
        EXPECT_EQ(before + 1, CountedObject::alive);
        EXPECT_EQ(3u, map.size());
        EXPECT_EQ((Numbers{1, 16, 31}), orderOf(map));
        EXPECT_EQ(2, versionOf(map.getEntry(&old16)));
        map.removeAll();
    });
}

TEST_F(ZHashMap, MapsRemoveTheEqualEntry)
{
    forEachMap([](ZMap_6_0& map, int owns) {
        CountedObject one(1), two(16), three(31);
        map.putEntry(&one);
        map.putEntry(&two);
        map.putEntry(&three);
        CountedObject probe(16), stranger(46);
        map.removeEntry(&stranger);
        EXPECT_EQ(3u, map.size());
        map.removeEntry(&probe);
        EXPECT_EQ((Numbers{1, 31}), orderOf(map));
        EXPECT_EQ(owns == kOwns ? 7 : 5, CountedObject::alive);
        map.removeAll();
        EXPECT_TRUE(map.isEmpty());
        EXPECT_EQ(5, CountedObject::alive);
        map.putEntry(&three);
        EXPECT_EQ(1u, map.size());
        map.removeAll();
    });
}

TEST_F(ZHashMap, MapsNeverFindNull)
{
    forEachMap([](ZMap_6_0& map, int) {
        CountedObject one(1);
        map.putEntry(&one);
        EXPECT_FALSE(map.contains(nullptr));
        EXPECT_EQ(nullptr, map.getEntry(nullptr));
        map.removeEntry(nullptr);
        EXPECT_EQ(1u, map.size());
        map.removeAll();
    });
}

TEST_F(ZHashMap, ListUsesTheOwnershipOfTheTarget)
{
    forEachMap([](ZMap_6_0& map, int) {
        CountedObject one(1), two(2);
        map.putEntry(&one);
        map.putEntry(&two);
        ZArrayList_6_0 owning(1, kOwns), borrowing(1, kBorrows);
        owning.addNoCopy(new CountedObject(9));
        map.list(owning);
        map.list(borrowing);
        EXPECT_EQ((Numbers{9, 1, 2}), numbersOf(owning));
        EXPECT_EQ(map.getEntry(&one), borrowing.get(0));
        EXPECT_NE(map.getEntry(&one), owning.get(1));
        map.removeAll();
    });
}

// ---- The hash map

TEST_F(ZHashMap, BucketsFollowTheCapacity)
{
    // Two entries whose hashes differ by the number of buckets share a bucket and are ordered by
    // insertion; entries of different buckets are ordered by bucket.
    struct Case {
        unsigned capacity;
        uint32_t buckets;
    };
    Case const cases[] = {{0, 3},           {1, 3},           {2, 3},          {3, 4},
                          {7, 10},          {10, 15},         {100, 150},      {1000, 1500},
                          {0xAAAAAAABu, 1}, {0xAAAAAAACu, 2}, {0xAAAAAAADu, 3}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.capacity);
        ZHashMap_6_0 map(c.capacity, kBorrows);
        CountedObject late(0, c.buckets * 2), early(1, 0), before(2, c.buckets - 1);
        CountedObject last(3, 0xFFFFFFFFu / c.buckets * c.buckets - 1);
        map.putEntry(&last);
        map.putEntry(&before);
        map.putEntry(&late);
        map.putEntry(&early);
        EXPECT_EQ(c.buckets == 1 ? (Numbers{3, 2, 0, 1}) : (Numbers{0, 1, 3, 2}), orderOf(map));
    }
}

TEST_F(ZHashMap, OrdersByBucketThenByInsertion)
{
    ZHashMap_6_0 map(0, kOwns);  // 3 buckets
    put(map, {5, 4, 3, 2, 1, 0, 8, 7, 6});
    EXPECT_EQ((Numbers{3, 0, 6, 4, 1, 7, 5, 2, 8}), orderOf(map));
    CountedObject probe(0);
    map.removeEntry(&probe);
    put(map, {0});
    EXPECT_EQ((Numbers{3, 6, 0, 4, 1, 7, 5, 2, 8}), orderOf(map));
    map.removeAll();
    put(map, {2, 1, 0});
    EXPECT_EQ((Numbers{0, 1, 2}), orderOf(map));
}

TEST_F(ZHashMap, KeepsItsOrderWhenItGrowsFarPastItsBuckets)
{
    ZHashMap_6_0 map(10, kOwns);
    Numbers numbers;
    for (int i = 0; i < 5000; ++i)
        numbers.push_back(i * 7919 % 5003);
    put(map, numbers);
    Numbers ordered;
    for (int bucket = 0; bucket < 15; ++bucket)
        std::copy_if(numbers.begin(), numbers.end(), std::back_inserter(ordered),
                     [bucket](int number) { return number % 15 == bucket; });
    EXPECT_EQ(ordered, orderOf(map));
    EXPECT_EQ(5000u, map.size());
}

TEST_F(ZHashMap, LookupCostDoesNotGrowWithTheEntries)
{
    ZHashMap_6_0 map(10, kOwns);
    for (int i = 0; i < 20000; ++i)
        put(map, {i});
    CountedObject::compared = 0;
    for (int i = 0; i < 40000; ++i) {
        CountedObject const probe(i);
        EXPECT_EQ(i < 20000, map.contains(&probe));
    }
    EXPECT_GE(2 * 40000, CountedObject::compared);
    CountedObject::compared = 0;
    for (int i = 0; i < 20000; ++i) {
        CountedObject probe(i);
        map.removeEntry(&probe);
    }
    EXPECT_GE(2 * 20000, CountedObject::compared);
    EXPECT_TRUE(map.isEmpty());
}

TEST_F(ZHashMap, DistinguishesEntriesOfTheSameHash)
{
    ZHashMap_6_0 map(10, kBorrows);
    std::vector<std::unique_ptr<CountedObject>> entries;
    for (int i = 0; i < 100; ++i) {
        entries.push_back(std::make_unique<CountedObject>(i, 77));
        map.putEntry(entries.back().get());
    }
    EXPECT_EQ(100u, map.size());
    for (int i = 0; i < 100; i += 2)
        map.removeEntry(entries[i].get());
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(i % 2 ? entries[i].get() : nullptr, map.getEntry(entries[i].get()));
}

TEST_F(ZHashMap, CopyHasBucketsAndOwnershipOfItsSource)
{
    for (int count : {4, 200}) {
        SCOPED_TRACE(count);
        ZHashMap_6_0 owning(0, kOwns);
        for (int i = count; i-- > 0;)
            put(owning, {i});
        std::unique_ptr<ZObject_6_0> const clone(owning.clone());
        auto& copy = dynamic_cast<ZHashMap_6_0&>(*clone);
        EXPECT_EQ(orderOf(owning), orderOf(copy));
        EXPECT_EQ(2 * count, CountedObject::alive);
        put(copy, {count, count + 1, count + 2});
        EXPECT_EQ(static_cast<unsigned>(count), owning.size());
        CountedObject const probe(count + 2);
        EXPECT_TRUE(copy.contains(&probe));

        ZHashMap_6_0 borrowing(5, kBorrows);
        CountedObject const zero(0);
        borrowing.putEntry(owning.getEntry(&zero));
        ZHashMap_6_0 const borrowingCopy(borrowing);
        EXPECT_EQ(owning.getEntry(&zero), borrowingCopy.getEntry(&zero));
    }
}

TEST_F(ZHashMap, CopyKeepsTheOrderInEachBucket)
{
    ZHashMap_6_0 map(0, kOwns);
    put(map, {9, 3, 6, 0, 12, 1});
    CountedObject probe(6);
    map.removeEntry(&probe);
    put(map, {6});
    ZHashMap_6_0 const copy(map);
    EXPECT_EQ((Numbers{9, 3, 0, 12, 6, 1}), orderOf(copy));
}

TEST_F(ZHashMap, AssignmentCopiesBucketsAndOwnership)
{
    ZHashMap_6_0 owning(0, kOwns);
    put(owning, {5, 4, 3, 2, 1, 0});
    CountedObject nine(9);
    ZHashMap_6_0 target(100, kBorrows);
    target.putEntry(&nine);
    target = owning;
    EXPECT_EQ((Numbers{3, 0, 4, 1, 5, 2}), orderOf(target));
    EXPECT_EQ(13, CountedObject::alive);
    put(target, {6});  // the map owns a clone now, which outlives the argument
    EXPECT_EQ((Numbers{3, 0, 6, 4, 1, 5, 2}), orderOf(target));

    ZHashMap_6_0 borrowing(0, kBorrows);
    borrowing.putEntry(&nine);
    target = borrowing;
    EXPECT_EQ(7, CountedObject::alive);
    EXPECT_EQ(&nine, target.getEntry(&nine));
    ZHashMap_6_0& self = target;
    target = self;
    EXPECT_EQ(&nine, target.getEntry(&nine));
}

TEST_F(ZHashMap, PutAllReplacesEqualEntries)
{
    Versioned one(1, 1), two(2, 1), newTwo(2, 2), newThree(3, 2);
    ZHashMap_6_0 map(10, kBorrows), other(10, kBorrows);
    map.putEntry(&one);
    map.putEntry(&two);
    other.putEntry(&newTwo);
    other.putEntry(&newThree);
    map.putAll(other);
    EXPECT_EQ((Numbers{1, 2, 3}), orderOf(map));
    EXPECT_EQ(&newTwo, map.getEntry(&two));
    map.putAll(map);
    EXPECT_EQ((Numbers{1, 2, 3}), orderOf(map));
    ZArrayMap_6_0 linear(1, kOwns);
    linear.add(&newThree);
    linear.add(&one);
    map.putAll(linear);
    EXPECT_EQ(linear.get(0), map.getEntry(&newThree));
}

TEST_F(ZHashMap, EntryThatCannotBeClonedIsIgnored)
{
    class Single : public CountedObject {
        ZObject_6_0* clone() const override { return nullptr; }
    };
    Single entry;
    ZHashMap_6_0 map(1, kOwns);
    map.putEntry(&entry);
    EXPECT_EQ(0u, map.size());
    map.putEntry(nullptr);
    EXPECT_EQ(0u, map.size());
}

TEST_F(ZHashMap, CopySkipsEntriesThatCannotBeCloned)
{
    // Its clones cannot be cloned.
    class Once : public CountedObject {
        class Last : public CountedObject {
        public:
            using CountedObject::CountedObject;
            ZObject_6_0* clone() const override { return nullptr; }
        };
        ZObject_6_0* clone() const override { return new Last(number()); }

    public:
        using CountedObject::CountedObject;
    };
    ZHashMap_6_0 map(1, kOwns);
    put(map, {1, 3});
    Once entry(2);
    map.putEntry(&entry);
    EXPECT_EQ(3u, map.size());
    EXPECT_EQ((Numbers{3, 1}), orderOf(ZHashMap_6_0(map)));
}

TEST_F(ZHashMap, CloneMayChangeTheMapDuringAnInsertion)
{
    struct Case {
        char const* name;
        void (*change)(ZHashMap_6_0&);
        Numbers before;
        Numbers after;
    };
    Case const cases[] = {
        {"removes its equal",
         [](ZHashMap_6_0& map) {
             CountedObject probe(5);
             map.removeEntry(&probe);
         },
         {1, 5, 9},
         {9, 1, 5}},
        {"puts its equal", [](ZHashMap_6_0& map) { put(map, {5}); }, {1, 9}, {9, 1, 5}},
        {"removes everything", [](ZHashMap_6_0& map) { map.removeAll(); }, {1, 5, 9}, {5}},
        {"puts many",
         [](ZHashMap_6_0& map) {
             put(map, {2, 8, 11, 14, 17, 20, 23});
         },
         {1, 5},
         {1, 5, 2, 8, 11, 14, 17, 20, 23}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZHashMap_6_0 map(0, kOwns);  // 3 buckets
        put(map, c.before);
        CloneHook entry(5, [&] { c.change(map); });
        map.putEntry(&entry);
        EXPECT_EQ(c.after, orderOf(map));
        EXPECT_EQ(1 + static_cast<long>(c.after.size()), CountedObject::alive);
    }
}

TEST_F(ZHashMap, IndexHasCapacityForTheMaximumOfEntries)
{
    struct Case {
        uint32_t entries;
        uint32_t marks;
    };
    Case const cases[] = {{0, 16},
                          {4, 16},
                          {5, 32},
                          {8, 32},
                          {1000, 4096},
                          {1u << 29, 1u << 31},
                          {(1u << 29) + 1, 1u << 31},
                          {1u << 30, 1u << 31}};
    for (Case const& c : cases)
        EXPECT_EQ(c.marks, zcontainers::HashTable::slotsFor(c.entries)) << c.entries;
}

TEST_F(ZHashMap, FailedCloneLeavesTheMapUnchanged)
{
    ZHashMap_6_0 source(0, kOwns);
    put(source, {4, 5, 6});
    ZHashMap_6_0 map(0, kOwns);
    put(map, {1, 2});
    auto const unchanged = [&] {
        EXPECT_EQ((Numbers{1, 2}), orderOf(map));
        EXPECT_EQ(5, CountedObject::alive);
    };
    for (long clone : {1, 2, 3}) {
        SCOPED_TRACE(clone);
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(map = source, std::runtime_error);
        unchanged();
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(ZHashMap_6_0{source}, std::runtime_error);
        unchanged();
        ZArrayList_6_0 target(1, kOwns);
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(source.list(target), std::runtime_error);
        EXPECT_EQ(0u, target.size());
        unchanged();
    }
    for (int number : {1, 3}) {
        auto const entry = std::make_unique<CountedObject>(number);
        CountedObject::clonesUntilThrow = 1;
        EXPECT_THROW(map.putEntry(entry.get()), std::runtime_error);
        EXPECT_EQ((Numbers{1, 2}), orderOf(map));
    }
    unchanged();
}

TEST_F(ZHashMap, FailedAllocationLeavesTheMapUnchanged)
{
    // At each size, puts the next entry with every allocation failing once. The sizes include those
    // at which the block of nodes grows, and at which the index is built and grows.
    ZHashMap_6_0 map(0, kOwns);
    unsigned long failures = 0;
    for (int number = 0; number < 300; ++number) {
        Numbers const before = orderOf(map);
        CountedObject entry(number);
        failures += failEachAllocation([&] { map.putEntry(&entry); },
                                       [&] {
                                           EXPECT_EQ(before, orderOf(map));
                                           EXPECT_EQ(nullptr, map.getEntry(&entry));
                                       });
        ASSERT_EQ(number, numberOf(map.getEntry(&entry)));
    }
    EXPECT_LT(310u, failures);
    Numbers const all = orderOf(map);
    auto const unchanged = [&] { EXPECT_EQ(all, orderOf(map)); };
    ZHashMap_6_0 other(2, kOwns);
    put(other, {1, 2, 3});
    failEachAllocation([&] { ZHashMap_6_0 made(10, kOwns); }, unchanged);
    failEachAllocation([&] { delete other.clone(); }, unchanged);
    failEachAllocation([&] { ZHashMap_6_0 copy(map); }, unchanged);
    failEachAllocation([&] { map = other; }, unchanged);
    EXPECT_EQ(orderOf(other), orderOf(map));
}

TEST_F(ZHashMap, MemoryOfARemovedEntryIsReused)
{
    for (unsigned capacity : {1u, 1000u}) {  // with an index, and without
        SCOPED_TRACE(capacity);
        std::vector<std::unique_ptr<CountedObject>> objects;
        for (int i = 0; i < 100; ++i)
            objects.push_back(std::make_unique<CountedObject>(i));
        ZHashMap_6_0 map(capacity, kBorrows);
        for (auto const& object : objects)
            map.putEntry(object.get());
        FailingAllocator::failAt(1, FailingAllocator::forEver);
        for (int round = 0; round < 3; ++round) {
            for (auto const& object : objects)
                map.removeEntry(object.get());
            for (auto const& object : objects)
                map.putEntry(object.get());
        }
        EXPECT_FALSE(FailingAllocator::stop());
        EXPECT_EQ(100u, map.size());
    }
}

TEST_F(ZHashMap, FailedAllocationReportsTheMapAsSource)
{
    unsigned const sites[] = {61, 74};
    for (unsigned long n = 1; n <= 2; ++n) {
        SCOPED_TRACE(n);
        char const* source = nullptr;
        unsigned site = 0;
        FailingAllocator::failAt(n, FailingAllocator::forEver);
        try {
            ZHashMap_6_0 const map(0xFFFFFFFFu, kOwns);  // 2^31 - 2 buckets
        } catch (ZOutOfMemoryException_6_0 const& exception) {
            source = exception.who();
            site = exception.where();
        }
        FailingAllocator::stop();
        EXPECT_STREQ("src/Z/ZHashMap", source);
        EXPECT_EQ(sites[n - 1], site);
    }
}

TEST_F(ZHashMap, DestructorMayReadTheMapDuringRemoveAll)
{
    class ReadingElement : public CountedObject {
    public:
        ReadingElement(int number, ZMap_6_0& map, int& found)
            : CountedObject(number), map_(map), found_(found)
        {
        }
        ~ReadingElement() override
        {
            for (int number = 1; number <= 20; ++number) {
                CountedObject const probe(number);
                found_ += map_.contains(&probe) ? 1 : 0;
            }
            found_ += static_cast<int>(map_.size());
        }
        ZObject_6_0* clone() const override { return new ReadingElement(*this); }

    private:
        ZMap_6_0& map_;
        int& found_;
    };
    for (int last : {3, 20}) {  // 3 buckets: without the index and with it
        SCOPED_TRACE(last);
        ZHashMap_6_0 map(0, kOwns);
        int found = 0;
        for (int number = 1; number <= last; ++number) {
            ReadingElement entry(number, map, found);
            map.putEntry(&entry);
        }
        found = 0;
        map.removeAll();
        EXPECT_EQ(0, found);
        EXPECT_TRUE(map.isEmpty());
        put(map, {1});
        EXPECT_EQ(Numbers{1}, orderOf(map));
    }
}

TEST_F(ZHashMap, FailedDestructorDoesNotKeepOtherEntries)
{
    class Throwing : public ThrowingObject {
    public:
        using ThrowingObject::ThrowingObject;
        ZObject_6_0* clone() const override { return new ThrowingObject(*this); }
    };
    auto map = std::make_unique<ZHashMap_6_0>(0, kOwns);
    auto const refill = [&] {
        for (int number : {1, 2, 3, 4}) {
            auto* const entry = new Throwing(number);
            map->putEntry(entry);
            EXPECT_THROW(delete entry, std::runtime_error);
        }
    };
    refill();
    EXPECT_THROW(map->removeAll(), std::runtime_error);
    EXPECT_TRUE(map->isEmpty());
    EXPECT_EQ(0, CountedObject::alive);
    refill();
    {
        CountedObject two(2);
        EXPECT_THROW(map->removeEntry(&two), std::runtime_error);
        EXPECT_THROW(put(*map, {3}), std::runtime_error);
        EXPECT_EQ((Numbers{3, 1, 4}), orderOf(*map));
    }
    ZHashMap_6_0 const none(1, kOwns);
    EXPECT_THROW(*map = none, std::runtime_error);
    EXPECT_TRUE(map->isEmpty());
    refill();
    EXPECT_THROW(delete map.release(), std::runtime_error);
}

namespace {

// A model of the hash map: buckets with linear search.
class Model {
public:
    explicit Model(uint32_t buckets) : buckets_(buckets) {}

    void put(int number, uint32_t hash, int version)
    {
        auto& bucket = buckets_[hash % buckets_.size()];
        auto const at = find(bucket, number);
        if (at == bucket.end())
            bucket.emplace_back(number, version);
        else
            at->second = version;
    }
    void remove(int number, uint32_t hash)
    {
        auto& bucket = buckets_[hash % buckets_.size()];
        auto const at = find(bucket, number);
        if (at != bucket.end())
            bucket.erase(at);
    }
    int get(int number, uint32_t hash)
    {
        auto& bucket = buckets_[hash % buckets_.size()];
        auto const at = find(bucket, number);
        return at == bucket.end() ? -1 : at->second;
    }
    void clear()
    {
        for (auto& bucket : buckets_)
            bucket.clear();
    }
    Numbers order() const
    {
        Numbers numbers;
        for (auto const& bucket : buckets_) {
            for (auto const& entry : bucket)
                numbers.push_back(entry.first);
        }
        return numbers;
    }

private:
    using Bucket = std::vector<std::pair<int, int>>;
    static Bucket::iterator find(Bucket& bucket, int number)
    {
        return std::find_if(bucket.begin(), bucket.end(),
                            [&](auto const& entry) { return entry.first == number; });
    }
    std::vector<Bucket> buckets_;
};

// Hashes of many shapes; equal numbers have equal hashes.
uint32_t hashOf(int number, int shape)
{
    auto const n = static_cast<uint32_t>(number);
    switch (shape) {
        case 0:
            return n;
        case 1:
            return n * 16;  // like addresses
        case 2:
            return n % 7;
        case 3:
            return n * 0x9E3779B1u;
        default:
            return n << 24 | n >> 8;
    }
}

}  // namespace

TEST_F(ZHashMap, AgreesWithAModelOverRandomOperations)
{
    constexpr unsigned kSeed = 32001;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    for (int shape = 0; shape < 5; ++shape) {
        for (int owns : {kBorrows, kOwns}) {
            for (int range : {40, 2000}) {
                unsigned const capacity = std::vector<unsigned>{0, 10, 500}[random() % 3];
                ZHashMap_6_0 map(capacity, owns);
                Model model(std::max(capacity, 2u) * 3 / 2);
                std::vector<std::unique_ptr<Versioned>> kept;  // the borrowing map's entries
                for (int step = 0; step < 10000; ++step) {
                    int const number = static_cast<int>(random() % range);
                    Versioned probe(number, step, hashOf(number, shape));
                    switch (random() % 8) {
                        case 0:
                        case 1:
                        case 2:
                        case 3:
                            if (owns) {
                                map.putEntry(&probe);
                            } else {
                                kept.push_back(
                                    std::make_unique<Versioned>(number, step, probe.hash()));
                                map.putEntry(kept.back().get());
                            }
                            model.put(number, probe.hash(), step);
                            break;
                        case 4:
                        case 5:
                            map.removeEntry(&probe);
                            model.remove(number, probe.hash());
                            break;
                        case 6:
                            if (random() % 1000 == 0) {
                                map.removeAll();
                                model.clear();
                            } else if (random() % 500 == 0) {
                                ZHashMap_6_0 const copy(map);
                                map.removeAll();
                                map = copy;
                            }
                            break;
                        default:
                            ASSERT_EQ(model.get(number, probe.hash()),
                                      versionOf(map.getEntry(&probe)));
                    }
                    if (step % 500 == 0) {
                        ASSERT_EQ(model.order(), orderOf(map)) << "step " << step;
                        ASSERT_EQ(model.order().size(), map.size());
                    }
                }
            }
        }
    }
}

namespace {

// As a probe it equals every object of its hash.
class EqualToItsHash : public CountedObject {
public:
    explicit EqualToItsHash(uint32_t hash) : CountedObject(-2, hash) {}
    bool equals(ZObject_6_0 const& other) const override { return other.hash() == hash(); }
};

}  // namespace

TEST_F(ZHashMap, FindsAndRemovesTheFirstOfSeveralEqualEntries)
{
    constexpr unsigned kSeed = 32002;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    // Three buckets and five hashes: buckets of every length, with the index and without it.
    for (unsigned most : {3u, 12u, 60u, 400u}) {
        SCOPED_TRACE(most);
        ZHashMap_6_0 map(0, kOwns);
        std::vector<Numbers> model(5);  // by hash, in the order of insertion
        for (int step = 0; step < 4000; ++step) {
            uint32_t const hash = random() % 5;
            int const number = static_cast<int>(random() % most) * 5 + static_cast<int>(hash);
            Numbers& numbers = model[hash];
            EqualToItsHash all(hash);
            CountedObject one(number, hash);
            auto const at = std::find(numbers.begin(), numbers.end(), number);
            switch (random() % 5) {
                case 0:
                    map.removeEntry(&one);
                    if (at != numbers.end())
                        numbers.erase(at);
                    break;
                case 1:
                    map.removeEntry(&all);
                    if (!numbers.empty())
                        numbers.erase(numbers.begin());
                    break;
                default:
                    map.putEntry(&one);
                    if (at == numbers.end())
                        numbers.push_back(number);
            }
            ASSERT_EQ(numbers.empty() ? -1 : numbers.front(), numberOf(map.getEntry(&all)))
                << "step " << step;
            ASSERT_EQ(!numbers.empty(), map.contains(&all));
            if (random() % 1000 == 0) {
                ZHashMap_6_0 const copy(map);
                map = copy;
            }
        }
    }
}
