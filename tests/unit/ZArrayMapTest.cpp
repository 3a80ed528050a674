// The map with linear search, and the iterators over maps.
#include <Z/ZArrayList.h>
#include <Z/ZHashMap.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "Maps.h"

// ---- The linear map

TEST_F(ZArrayMap, IsAListInTheOrderOfInsertion)
{
    ZArrayMap_6_0 map(0, kOwns);
    EXPECT_EQ(1u, map.capacity());
    put(map, {5, 1, 3});
    EXPECT_EQ((Numbers{5, 1, 3}), numbersOf(map));
    CountedObject one(1), nine(9);
    EXPECT_EQ(1, map.getIndex(&one));
    EXPECT_EQ(-1, map.getIndex(&nine));
    EXPECT_EQ(map.get(1), map.getEntry(&one));
    map.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
    EXPECT_EQ((Numbers{1, 3, 5}), orderOf(map));
    map.add(&nine);
    EXPECT_EQ(4u, map.size());
    ZList_6_0& list = map;
    EXPECT_TRUE(list.contains(&nine));
    list.removeAll();
    ZMap_6_0& asMap = map;
    EXPECT_TRUE(asMap.isEmpty());
}

TEST_F(ZArrayMap, RemovesTheFirstOfEqualEntries)
{
    Versioned first(1, 1), second(1, 2);
    ZArrayMap_6_0 map(1, kBorrows);
    map.add(&first);
    map.add(&second);
    EXPECT_EQ(&first, map.getEntry(&second));
    map.removeEntry(&second);
    EXPECT_EQ(&second, map.getEntry(&first));
    EXPECT_EQ(1u, map.size());
}

TEST_F(ZArrayMap, CopiesLikeAList)
{
    ZArrayMap_6_0 owning(7, kOwns);
    put(owning, {1, 2});
    std::unique_ptr<ZObject_6_0> const clone(owning.clone());
    auto const& copy = dynamic_cast<ZArrayMap_6_0 const&>(*clone);
    EXPECT_EQ(7u, copy.capacity());
    EXPECT_EQ((Numbers{1, 2}), numbersOf(copy));
    EXPECT_EQ(4, CountedObject::alive);
    ZArrayMap_6_0 borrowing(1, kBorrows);
    borrowing = owning;
    EXPECT_EQ(kBorrows, borrowing.ownsMembers());
    EXPECT_EQ(owning.get(0), borrowing.get(0));
}

TEST_F(ZArrayMap, CallsOverriddenOperations)
{
    class Noting : public ZArrayMap_6_0 {
    public:
        Noting() : ZArrayMap_6_0(1, kOwns) {}
        using ZArrayMap_6_0::add;
        using ZArrayMap_6_0::addNoCopy;
        using ZArrayMap_6_0::remove;
        void add(ZObject_6_0 const* obj) override
        {
            notes += "add " + std::to_string(numberOf(obj)) + "; ";
            ZArrayMap_6_0::add(obj);
        }
        void addList(ZList_6_0 const& other) override
        {
            notes += "addList; ";
            ZArrayMap_6_0::addList(other);
        }
        void addNoCopy(unsigned int index, ZObject_6_0 const* obj) override
        {
            notes += "addNoCopy at " + std::to_string(index) + "; ";
            ZArrayMap_6_0::addNoCopy(index, obj);
        }
        void remove(unsigned int index) override
        {
            notes += "remove " + std::to_string(index) + "; ";
            ZArrayMap_6_0::remove(index);
        }
        ZObject_6_0* get(unsigned int index) const override
        {
            notes += "get " + std::to_string(index) + "; ";
            return ZArrayMap_6_0::get(index);
        }
        void set(unsigned int index, ZObject_6_0 const* obj) override
        {
            notes += "set " + std::to_string(index) + "; ";
            ZArrayMap_6_0::set(index, obj);
        }
        mutable std::string notes;
    };
    CountedObject one(1), two(2), three(3);
    ZArrayMap_6_0 arrayMap(1, kOwns);
    ZHashMap_6_0 hashMap(0, kOwns);
    for (ZMap_6_0* other : {static_cast<ZMap_6_0*>(&arrayMap), static_cast<ZMap_6_0*>(&hashMap)}) {
        other->putEntry(&one);
        CountedObject four(4);  // in the bucket of 1
        other->putEntry(&four);
        Noting map;
        map.putAll(*other);
        EXPECT_EQ("addList; add 1; addNoCopy at 0; add 4; addNoCopy at 1; ", map.notes);
        map.notes.clear();
        map.putEntry(&two);
        EXPECT_EQ("get 0; get 1; add 2; addNoCopy at 2; ", map.notes);
        map.notes.clear();
        map.putEntry(&one);
        EXPECT_EQ("get 0; set 0; ", map.notes);
        map.notes.clear();
        map.removeEntry(&one);
        EXPECT_EQ("get 0; remove 0; ", map.notes);
        EXPECT_EQ(nullptr, map.getEntry(nullptr));
        EXPECT_EQ(nullptr, map.getEntry(&three));
        map.notes.clear();
        EXPECT_EQ(2, numberOf(map.getEntry(&two)));
        EXPECT_EQ("get 0; get 1; get 1; ", map.notes);
        map.notes.clear();
        static_cast<ZArrayMap_6_0&>(map) = arrayMap;
        EXPECT_EQ("addList; add 1; addNoCopy at 0; add 4; addNoCopy at 1; ", map.notes);
    }
}

TEST_F(ZHashMap, ListsEachBucketToATargetOfADerivedClass)
{
    class Noting : public ZArrayList_6_0 {
    public:
        Noting() : ZArrayList_6_0(1, kBorrows) {}
        void addList(ZList_6_0 const& other) override
        {
            lists.push_back(numbersOf(other));
            ZArrayList_6_0::addList(other);
        }
        std::vector<Numbers> lists;
    };
    ZHashMap_6_0 map(0, kOwns);  // three buckets
    put(map, {4, 2, 1, 5});
    Noting target;
    map.list(target);
    EXPECT_EQ((std::vector<Numbers>{{4, 1}, {2, 5}}), target.lists);
    EXPECT_EQ((Numbers{4, 1, 2, 5}), numbersOf(target));
}

TEST_F(ZArrayMap, FailuresLeaveItUnchanged)
{
    ZArrayMap_6_0 map(2, kOwns);
    put(map, {1, 2});
    ZHashMap_6_0 other(2, kOwns);
    put(other, {3, 4});
    auto const unchanged = [&] {
        EXPECT_EQ((Numbers{1, 2}), numbersOf(map));
        EXPECT_EQ(4, CountedObject::alive);
    };
    for (long clone : {1, 2}) {
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(map.putAll(other), std::runtime_error);
        unchanged();
    }
    EXPECT_LT(2u, failEachAllocation([&] { map.putAll(other); }, unchanged));
    EXPECT_EQ((Numbers{1, 2, 3, 4}), numbersOf(map));
}

TEST_F(ZArrayMap, KeepsEqualEntriesTwiceWhenPuttingAll)
{
    Versioned one(1, 1), two(2, 1), newTwo(2, 2), three(3, 2);
    ZArrayMap_6_0 map(1, kBorrows), other(1, kBorrows);
    map.putEntry(&one);
    map.putEntry(&two);
    other.putEntry(&newTwo);
    other.putEntry(&three);
    map.putAll(other);
    EXPECT_EQ((Numbers{1, 2, 2, 3}), orderOf(map));
    EXPECT_EQ(&two, map.getEntry(&newTwo));
    map.putAll(map);
    EXPECT_EQ(8u, map.size());
}

// ---- The iterators

TEST_F(ZMapIterator, VisitsEntriesInTheOrderOfTheMap)
{
    forEachMap([](ZMap_6_0& map, int) {
        CountedObject five(5), one(1), three(3);
        map.putEntry(&five);
        map.putEntry(&one);
        map.putEntry(&three);
        Numbers const order = orderOf(map);
        ZMapIterator_6_0 iterator(map);
        for (int round = 0; round < 2; ++round) {
            for (int number : order) {
                EXPECT_TRUE(iterator.hasMore());
                EXPECT_EQ(number, numberOf(iterator.getNext()));
            }
            EXPECT_FALSE(iterator.hasMore());
            EXPECT_EQ(nullptr, iterator.getNext());
            iterator.reset();
        }
        EXPECT_EQ(3, numberOf(iterator.findNext(CountedObject(3))));
        map.removeAll();
    });
}

TEST_F(ZMapIterator, IsAtItsEndInAnEmptyMap)
{
    ZHashMap_6_0 const map(10, kOwns);
    ZMapIterator_6_0 iterator(map);
    EXPECT_FALSE(iterator.hasMore());
    EXPECT_EQ(nullptr, iterator.getNext());
}

TEST_F(ZMapIterator, IteratesOverASnapshot)
{
    ZHashMap_6_0 map(10, kOwns);
    put(map, {1, 2});
    ZMapIterator_6_0 iterator(map);
    put(map, {0, 3});
    EXPECT_EQ(1, numberOf(iterator.getNext()));
    EXPECT_EQ(2, numberOf(iterator.getNext()));
    EXPECT_FALSE(iterator.hasMore());

    CountedObject five(5);
    ZHashMap_6_0 borrowing(10, kBorrows);
    borrowing.putEntry(&five);
    ZMapIterator_6_0 second(borrowing);
    borrowing.removeAll();
    EXPECT_EQ(&five, second.getNext());
}

TEST_F(ZMapIterator, DeletesNoEntry)
{
    ZHashMap_6_0 map(10, kOwns);
    put(map, {1, 2});
    {
        ZMapIterator_6_0 iterator(map);
        iterator.getNext();
    }
    EXPECT_EQ(2, CountedObject::alive);
}

TEST_F(ZMapIterator, CopiesHaveTheSamePosition)
{
    ZHashMap_6_0 map(10, kOwns);
    put(map, {1, 2, 3});
    ZMapIterator_6_0 iterator(map);
    iterator.getNext();
    ZMapIterator_6_0 copy(iterator);
    std::unique_ptr<ZObject_6_0> const clone(iterator.clone());
    iterator.getNext();
    EXPECT_EQ(2, numberOf(copy.getNext()));
    EXPECT_EQ(2, numberOf(dynamic_cast<ZMapIterator_6_0&>(*clone).getNext()));
    EXPECT_EQ(3, numberOf(iterator.getNext()));
}

TEST_F(ZMapIterator, FailedAllocationsLeakNothing)
{
    ZHashMap_6_0 map(10, kOwns);
    put(map, {1, 2, 3});
    EXPECT_LE(1u, failEachAllocation([&] { ZMapIterator_6_0 iterator(map); }, [] {}));
    ZMapIterator_6_0 const iterator(map);
    EXPECT_LE(1u, failEachAllocation([&] { delete iterator.clone(); }, [] {}));
}

TEST_F(ZMapIterator, CopiesOutliveTheirSource)
{
    ZHashMap_6_0 map(10, kOwns);
    put(map, {1, 2});
    auto source = std::make_unique<ZMapIterator_6_0>(map);
    ZMapIterator_6_0 copy(*source);
    source->getNext();
    source->getNext();
    ZMapIterator_6_0 atEnd(*source);
    source.reset();
    EXPECT_EQ(1, numberOf(copy.getNext()));
    EXPECT_EQ(2, numberOf(copy.getNext()));
    EXPECT_FALSE(copy.hasMore());
    EXPECT_FALSE(atEnd.hasMore());
    atEnd.reset();
    EXPECT_EQ(1, numberOf(atEnd.getNext()));
}

TEST_F(ZArrayMapIterator, IteratesOverTheLiveMap)
{
    ZArrayMap_6_0 map(1, kOwns);
    put(map, {1, 2});
    ZArrayMapIterator_6_0 iterator(map);
    EXPECT_EQ(1, numberOf(iterator.getNext()));
    put(map, {3});
    EXPECT_EQ(2, numberOf(iterator.getNext()));
    EXPECT_EQ(3, numberOf(iterator.getNext()));
    EXPECT_FALSE(iterator.hasMore());
    std::unique_ptr<ZObject_6_0> const clone(iterator.clone());
    auto& cloned = dynamic_cast<ZArrayMapIterator_6_0&>(*clone);
    put(map, {4});
    EXPECT_EQ(4, numberOf(cloned.getNext()));
}

TEST_F(ZArrayMapIterator, EntriesCanBeRemovedDuringIteration)
{
    ZArrayMap_6_0 map(1, kOwns);
    put(map, {0, 1, 2, 3, 4, 5});
    ZArrayMapIterator_6_0 iterator(map);
    Numbers met;
    while (iterator.hasMore()) {
        met.push_back(numberOf(iterator.getNext()));
        if (met.back() % 3 != 1)
            map.remove(iterator);
    }
    EXPECT_EQ((Numbers{0, 1, 2, 3, 4, 5}), met);
    EXPECT_EQ((Numbers{1, 4}), orderOf(map));
}
