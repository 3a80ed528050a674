#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZHashKeyMap.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "Containers.h"
#include "FailingAllocator.h"
#include "ThrowingObject.h"

namespace {

Numbers keysOf(ZKeyMap_6_0 const& map)
{
    ZArrayList_6_0 list(1, kBorrows);
    map.listKeys(list);
    return numbersOf(list);
}

Numbers valuesOf(ZKeyMap_6_0 const& map)
{
    ZArrayList_6_0 list(1, kBorrows);
    map.listObjects(list);
    return numbersOf(list);
}

void put(ZKeyMap_6_0& map, int key, int value)
{
    CountedObject const keyObject(key), valueObject(value);
    map.putEntry(&keyObject, &valueObject);
}

int get(ZKeyMap_6_0 const& map, int key)
{
    CountedObject const keyObject(key);
    return numberOf(map.getEntry(&keyObject));
}

class ZHashKeyMap : public CountingTest {};

class ZKeyEntry : public ZHashKeyMap {};

}  // namespace

// ---- The entry

TEST_F(ZKeyEntry, HashesLikeItsKey)
{
    CountedObject key(1, 77), value(2, 88);
    ZKeyEntry_6_0 const entry(&key, &value, kBorrows);
    EXPECT_EQ(77u, entry.hash());
    EXPECT_EQ(&key, entry.key());
    EXPECT_EQ(&value, entry.value());
}

TEST_F(ZKeyEntry, EqualityComparesTheRememberedHashesThenTheKeys)
{
    CountedObject key(1, 77), same(1, 77), otherHash(1, 78), otherKey(2, 77);
    CountedObject value(5);
    struct Case {
        char const* name;
        CountedObject* key;
        bool hashed;
        bool equal;
    };
    Case const cases[] = {
        {"same", &same, true, true},
        {"same, hash() not called", &same, false, false},
        {"other hash", &otherHash, true, false},
        {"other key", &otherKey, true, false},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZKeyEntry_6_0 const entry(&key, nullptr, kBorrows), other(c.key, &value, kBorrows);
        entry.hash();
        if (c.hashed)
            other.hash();
        EXPECT_EQ(c.equal, entry.equals(other));
        EXPECT_EQ(c.equal, other.equals(entry));
    }
    ZKeyEntry_6_0 const one(&key, nullptr, kBorrows), two(&otherHash, nullptr, kBorrows);
    EXPECT_TRUE(one.equals(two));  // 0 is remembered until hash() is called
}

TEST_F(ZKeyEntry, OtherObjectsSortByAddressAndAreNotEqual)
{
    CountedObject key(1);
    ZKeyEntry_6_0 const entry(&key, nullptr, kBorrows);
    ZObject_6_0 const& asObject = entry;
    EXPECT_EQ(asObject.ZObject_6_0::compare(key), entry.compare(key));
    EXPECT_NE(0, entry.compare(key));
    EXPECT_FALSE(entry.equals(key));
}

TEST_F(ZKeyEntry, ComparesLikeItsKey)
{
    CountedObject one(1), two(2), value(0);
    ZKeyEntry_6_0 const first(&one, &value, kBorrows), second(&two, nullptr, kBorrows);
    EXPECT_EQ(-1, first.compare(second));
    EXPECT_EQ(1, second.compare(first));
    EXPECT_EQ(0, first.compare(first));
    EXPECT_TRUE(first < second);
}

TEST_F(ZKeyEntry, OwningClonesAndDeletesBoth)
{
    {
        ZKeyEntry_6_0 const entry(new CountedObject(1), new CountedObject(2), kOwns);
        entry.hash();
        std::unique_ptr<ZObject_6_0> const clone(entry.clone());
        auto const& copy = dynamic_cast<ZKeyEntry_6_0 const&>(*clone);
        EXPECT_NE(entry.key(), copy.key());
        EXPECT_EQ(1, numberOf(copy.key()));
        EXPECT_EQ(2, numberOf(copy.value()));
        EXPECT_TRUE(entry.equals(copy));  // the hash is remembered in the clone
        EXPECT_EQ(4, CountedObject::alive);
    }
    EXPECT_EQ(0, CountedObject::alive);
    ZKeyEntry_6_0 const none(nullptr, nullptr, kOwns);
    delete none.clone();
}

TEST_F(ZKeyEntry, BorrowingSharesBoth)
{
    CountedObject key(1), value(2);
    {
        ZKeyEntry_6_0 const entry(&key, &value, kBorrows);
        std::unique_ptr<ZObject_6_0> const clone(entry.clone());
        EXPECT_EQ(&key, dynamic_cast<ZKeyEntry_6_0 const&>(*clone).key());
        EXPECT_EQ(&value, dynamic_cast<ZKeyEntry_6_0 const&>(*clone).value());
    }
    EXPECT_EQ(2, CountedObject::alive);
}

TEST_F(ZKeyEntry, FailedDestructorOfTheKeyDoesNotKeepTheValue)
{
    auto* const entry = new ZKeyEntry_6_0(new ThrowingObject(1), new CountedObject(2), kOwns);
    EXPECT_THROW(delete entry, std::runtime_error);
    EXPECT_EQ(0, CountedObject::alive);
}

// ---- The map

TEST_F(ZHashKeyMap, StartsEmpty)
{
    ZHashKeyMap_6_0 map(10, kOwns);
    EXPECT_EQ(0u, map.size());
    EXPECT_TRUE(map.isEmpty());
    EXPECT_EQ(-1, get(map, 1));
    CountedObject const key(1);
    EXPECT_FALSE(map.contains(&key));
    map.removeEntry(&key);
    map.removeAll();
    EXPECT_EQ(Numbers{}, keysOf(map));
    EXPECT_EQ(Numbers{}, valuesOf(map));
}

TEST_F(ZHashKeyMap, OwningStoresCopiesOfKeyAndValue)
{
    ZHashKeyMap_6_0 map(10, kOwns);
    CountedObject key(1), value(100);
    map.putEntry(&key, &value);
    EXPECT_EQ(4, CountedObject::alive);
    key.setNumber(2);
    value.setNumber(200);
    EXPECT_EQ(100, get(map, 1));
    EXPECT_EQ(-1, get(map, 2));
    key.setNumber(1);
    map.removeEntry(&key);
    EXPECT_EQ(2, CountedObject::alive);
    EXPECT_TRUE(map.isEmpty());
}

TEST_F(ZHashKeyMap, BorrowingStoresThePointers)
{
    CountedObject key(1), value(100), other(200);
    {
        ZHashKeyMap_6_0 map(10, kBorrows);
        map.putEntry(&key, &value);
        EXPECT_EQ(&value, map.getEntry(&key));
        map.putEntry(&key, &other);
        EXPECT_EQ(&other, map.getEntry(&key));
        ZArrayList_6_0 keys(1, kBorrows);
        map.listKeys(keys);
        EXPECT_EQ(&key, keys.get(0));
        map.removeEntry(&key);
        map.putEntry(&key, &value);
        map.removeAll();
        map.putEntry(&key, &value);
    }
    EXPECT_EQ(3, CountedObject::alive);
}

TEST_F(ZHashKeyMap, PutReplacesTheValueOfAnEqualKeyInPlace)
{
    ZHashKeyMap_6_0 map(10, kOwns);  // 15 buckets
    for (int key : {1, 16, 31})
        put(map, key, key * 10);
    put(map, 16, 5);
    EXPECT_EQ(3u, map.size());
    EXPECT_EQ((Numbers{1, 16, 31}), keysOf(map));
    EXPECT_EQ((Numbers{10, 5, 310}), valuesOf(map));
    EXPECT_EQ(6, CountedObject::alive);
}

TEST_F(ZHashKeyMap, OrderIsByBucketThenByInsertion)
{
    ZHashKeyMap_6_0 map(0, kOwns);  // 3 buckets
    for (int key : {5, 4, 3, 2, 1, 0})
        put(map, key, key + 100);
    EXPECT_EQ((Numbers{3, 0, 4, 1, 5, 2}), keysOf(map));
    EXPECT_EQ((Numbers{103, 100, 104, 101, 105, 102}), valuesOf(map));
}

TEST_F(ZHashKeyMap, AValueMayBeNull)
{
    for (int owns : {kBorrows, kOwns}) {
        ZHashKeyMap_6_0 map(1, owns);
        CountedObject const key(1);
        map.putEntry(&key, nullptr);
        EXPECT_EQ(nullptr, map.getEntry(&key));
        EXPECT_TRUE(map.contains(&key));
        EXPECT_EQ(1u, map.size());
        EXPECT_EQ(Numbers{-1}, valuesOf(map));
        ZHashKeyMap_6_0 const copy(map);
        EXPECT_TRUE(copy.contains(&key));
    }
}

TEST_F(ZHashKeyMap, NullIsNotAKey)
{
    ZHashKeyMap_6_0 map(1, kOwns);
    CountedObject const value(1);
    map.putEntry(nullptr, &value);
    EXPECT_EQ(0u, map.size());
    EXPECT_EQ(nullptr, map.getEntry(nullptr));
    EXPECT_FALSE(map.contains(nullptr));
    map.removeEntry(nullptr);
}

TEST_F(ZHashKeyMap, KeyThatCannotBeClonedTwiceIsIgnored)
{
    class Single : public CountedObject {
        ZObject_6_0* clone() const override { return nullptr; }
    };
    class Once : public CountedObject {
        ZObject_6_0* clone() const override { return new Single; }
    };
    Single const single;
    Once const once;
    CountedObject const value(1);
    ZHashKeyMap_6_0 map(1, kOwns);
    map.putEntry(&single, &value);
    map.putEntry(&once, &value);
    EXPECT_EQ(0u, map.size());
    EXPECT_EQ(3, CountedObject::alive);
}

TEST_F(ZHashKeyMap, StoredKeyAndValueCanBePutAgain)
{
    ZHashKeyMap_6_0 map(1, kOwns);
    put(map, 1, 10);
    ZArrayList_6_0 keys(1, kBorrows);
    map.listKeys(keys);
    map.putEntry(keys.get(0), map.getEntry(keys.get(0)));
    EXPECT_EQ(10, get(map, 1));
    map.putAll(map);
    EXPECT_EQ(10, get(map, 1));
    keys.removeAll();
    map.listKeys(keys);
    map.removeEntry(keys.get(0));
    EXPECT_TRUE(map.isEmpty());
}

TEST_F(ZHashKeyMap, ListUsesTheOwnershipOfTheTarget)
{
    ZHashKeyMap_6_0 map(1, kOwns);
    put(map, 1, 10);
    ZArrayList_6_0 list(1, kOwns);
    map.listKeys(list);
    map.listObjects(list);
    EXPECT_EQ((Numbers{1, 10}), numbersOf(list));
    EXPECT_EQ(4, CountedObject::alive);
}

TEST_F(ZHashKeyMap, PutAllCopiesEveryKey)
{
    ZHashKeyMap_6_0 map(10, kOwns), other(3, kOwns);
    put(map, 1, 10);
    put(map, 2, 20);
    put(other, 2, 21);
    put(other, 3, 31);
    map.putAll(other);
    EXPECT_EQ((Numbers{1, 2, 3}), keysOf(map));
    EXPECT_EQ((Numbers{10, 21, 31}), valuesOf(map));
    EXPECT_EQ(2u, other.size());
}

TEST_F(ZHashKeyMap, PutAllCallsPutEntry)
{
    class Counting : public ZHashKeyMap_6_0 {
    public:
        Counting() : ZHashKeyMap_6_0(1, kOwns) {}
        void putEntry(ZObject_6_0 const* key, ZObject_6_0 const* value) override
        {
            ++calls;
            ZHashKeyMap_6_0::putEntry(key, value);
        }
        int calls = 0;
    };
    ZHashKeyMap_6_0 other(3, kOwns);
    put(other, 2, 21);
    put(other, 3, 31);
    Counting map;
    map.putAll(other);
    EXPECT_EQ(2, map.calls);
}

TEST_F(ZHashKeyMap, CopyHasBucketsAndOwnershipOfItsSource)
{
    ZHashKeyMap_6_0 owning(0, kOwns);
    for (int key : {5, 4, 3, 2, 1, 0})
        put(owning, key, key + 100);
    std::unique_ptr<ZObject_6_0> const clone(owning.clone());
    auto& copy = dynamic_cast<ZHashKeyMap_6_0&>(*clone);
    EXPECT_EQ(keysOf(owning), keysOf(copy));
    EXPECT_EQ(valuesOf(owning), valuesOf(copy));
    EXPECT_EQ(24, CountedObject::alive);
    put(copy, 0, 7);
    EXPECT_EQ(100, get(owning, 0));

    CountedObject key(1), value(2);
    ZHashKeyMap_6_0 borrowing(1, kBorrows);
    borrowing.putEntry(&key, &value);
    ZHashKeyMap_6_0 const borrowingCopy(borrowing);
    EXPECT_EQ(&value, borrowingCopy.getEntry(&key));
}

TEST_F(ZHashKeyMap, AssignmentCopiesOwnershipAndEntries)
{
    ZHashKeyMap_6_0 owning(0, kOwns);
    put(owning, 1, 10);
    CountedObject key(2), value(20);
    ZHashKeyMap_6_0 map(50, kBorrows);
    map.putEntry(&key, &value);
    map = owning;
    EXPECT_EQ((Numbers{1}), keysOf(map));
    put(map, 3, 30);  // owned now
    EXPECT_EQ(30, get(map, 3));
    ZHashKeyMap_6_0 borrowing(1, kBorrows);
    borrowing.putEntry(&key, &value);
    map = borrowing;
    EXPECT_EQ(4, CountedObject::alive);
    CountedObject other(9);
    map.putEntry(&key, &other);  // borrowed now
    EXPECT_EQ(&other, map.getEntry(&key));
    ZHashKeyMap_6_0& self = map;
    map = self;
    EXPECT_EQ(&other, map.getEntry(&key));
}

TEST_F(ZHashKeyMap, LookupDoesNotAllocate)
{
    ZHashKeyMap_6_0 map(10, kOwns);
    for (int key = 0; key < 1000; ++key)
        put(map, key, key);
    CountedObject const hit(500), miss(5000);
    FailingAllocator::failAt(1, FailingAllocator::forEver);
    ZObject_6_0* const found = map.getEntry(&hit);
    bool const has = map.contains(&hit);
    ZObject_6_0* const notFound = map.getEntry(&miss);
    map.removeEntry(&miss);
    map.removeEntry(&hit);
    EXPECT_FALSE(FailingAllocator::stop());
    EXPECT_NE(nullptr, found);
    EXPECT_TRUE(has);
    EXPECT_EQ(nullptr, notFound);
    EXPECT_EQ(999u, map.size());
}

TEST_F(ZHashKeyMap, StringsAreKeys)
{
    ZHashKeyMap_6_0 map(10, kOwns);
    map.putEntry(std::make_unique<ZUTF8String_6_0>("colour").get(),
                 std::make_unique<ZUTF8String_6_0>("blue").get());
    ZUTF8String_6_0 const key("colour"), otherCase("Colour"), blue("blue");
    ASSERT_NE(nullptr, map.getEntry(&key));
    EXPECT_TRUE(map.getEntry(&key)->equals(blue));
    EXPECT_EQ(nullptr, map.getEntry(&otherCase));
}

TEST_F(ZHashKeyMap, CloneMayChangeTheMapDuringAnInsertion)
{
    struct Case {
        char const* name;
        void (*change)(ZKeyMap_6_0&);
        Numbers keys;
        Numbers values;
    };
    Case const cases[] = {
        {"removes the key",
         [](ZKeyMap_6_0& map) {
             CountedObject const key(5);
             map.removeEntry(&key);
         },
         {1, 5},
         {10, 9}},
        {"sets the key", [](ZKeyMap_6_0& map) { put(map, 5, 7); }, {1, 5}, {10, 9}},
        {"removes everything", [](ZKeyMap_6_0& map) { map.removeAll(); }, {5}, {9}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZHashKeyMap_6_0 map(0, kOwns);  // 3 buckets
        put(map, 1, 10);
        put(map, 5, 50);
        CountedObject const key(5);
        CloneHook const value(9, [&] { c.change(map); });
        map.putEntry(&key, &value);
        EXPECT_EQ(c.keys, keysOf(map));
        EXPECT_EQ(c.values, valuesOf(map));
        EXPECT_EQ(2 + 2 * static_cast<long>(c.keys.size()), CountedObject::alive);
    }
}

TEST_F(ZHashKeyMap, FailedCloneLeavesTheMapUnchanged)
{
    ZHashKeyMap_6_0 source(0, kOwns);
    put(source, 7, 70);
    put(source, 8, 80);
    ZHashKeyMap_6_0 map(0, kOwns);
    put(map, 1, 10);
    auto const unchanged = [&] {
        EXPECT_EQ((Numbers{1}), keysOf(map));
        EXPECT_EQ((Numbers{10}), valuesOf(map));
        EXPECT_EQ(6, CountedObject::alive);
    };
    for (long clone : {1, 2, 3, 4}) {
        SCOPED_TRACE(clone);
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(map = source, std::runtime_error);
        unchanged();
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(ZHashKeyMap_6_0{source}, std::runtime_error);
        unchanged();
        for (int key : {1, 2}) {
            CountedObject::clonesUntilThrow = clone;
            EXPECT_THROW(put(map, key, 5), std::runtime_error);
            unchanged();
        }
    }
    for (long clone : {1, 2}) {
        ZArrayList_6_0 target(1, kOwns);
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(source.listKeys(target), std::runtime_error);
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(source.listObjects(target), std::runtime_error);
        EXPECT_EQ(0u, target.size());
        unchanged();
    }
}

TEST_F(ZHashKeyMap, FailedAllocationLeavesTheMapUnchanged)
{
    ZHashKeyMap_6_0 map(0, kOwns);
    for (int key = 0; key < 100; ++key) {
        Numbers const keys = keysOf(map);
        CountedObject const keyObject(key), value(key + 100);
        EXPECT_LE(2u, failEachAllocation([&] { map.putEntry(&keyObject, &value); },
                                         [&] { EXPECT_EQ(keys, keysOf(map)); }));
        EXPECT_LE(2u, failEachAllocation([&] { map.putEntry(&keyObject, &keyObject); },
                                         [&] { EXPECT_EQ(key + 100, get(map, key)); }));
        ASSERT_EQ(key, get(map, key));
    }
    Numbers const keys = keysOf(map);
    ZHashKeyMap_6_0 other(2, kOwns);
    put(other, 1, 2);
    auto const unchanged = [&] { EXPECT_EQ(keys, keysOf(map)); };
    failEachAllocation([&] { ZHashKeyMap_6_0 made(10, kOwns); }, unchanged);
    failEachAllocation([&] { delete map.clone(); }, unchanged);
    failEachAllocation([&] { map = other; }, unchanged);
    EXPECT_EQ((Numbers{1}), keysOf(map));
    for (auto mode : {FailingAllocator::once, FailingAllocator::forEver}) {
        ZKeyEntry_6_0 const entry(new CountedObject(1), new CountedObject(2), kOwns);
        EXPECT_LE(2u, failEachAllocation([&] { delete entry.clone(); }, [] {}, mode));
    }
}

TEST_F(ZHashKeyMap, AgreesWithAStdMapOverRandomOperations)
{
    constexpr unsigned kSeed = 32002;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    for (int owns : {kBorrows, kOwns}) {
        for (unsigned capacity : {0u, 10u, 3000u}) {
            std::vector<CountedObject> pool;  // keys and values of the borrowing map
            pool.reserve(3000);
            for (int i = 0; i < 3000; ++i)
                pool.emplace_back(i, static_cast<uint32_t>(i) * 2654435761u);
            ZHashKeyMap_6_0 map(capacity, owns);
            std::unordered_map<int, int> model;
            for (int step = 0; step < 20000; ++step) {
                CountedObject const& key = pool[random() % 3000];
                CountedObject const& value = pool[random() % 3000];
                switch (random() % 5) {
                    case 0:
                    case 1:
                        map.putEntry(&key, &value);
                        model[key.number()] = value.number();
                        break;
                    case 2:
                        map.removeEntry(&key);
                        model.erase(key.number());
                        break;
                    case 3:
                        if (random() % 2000 == 0) {
                            map.removeAll();
                            model.clear();
                        }
                        break;
                    default: {
                        auto const at = model.find(key.number());
                        ASSERT_EQ(at == model.end() ? -1 : at->second,
                                  numberOf(map.getEntry(&key)));
                        ASSERT_EQ(at != model.end(), map.contains(&key));
                    }
                }
                ASSERT_EQ(model.size(), map.size());
            }
            Numbers const keys = keysOf(map);
            Numbers const values = valuesOf(map);
            ASSERT_EQ(model.size(), keys.size());
            for (size_t i = 0; i < keys.size(); ++i)
                ASSERT_EQ(model.at(keys[i]), values[i]);
        }
    }
}

TEST_F(ZHashKeyMap, KeepsClonesOfClones)
{
    ZHashKeyMap_6_0 map(1, kOwns);
    CountedObject const key(1), value(2);
    map.putEntry(&key, &value);
    EXPECT_EQ(2, static_cast<CountedObject*>(map.getEntry(&key))->generation());
    ZArrayList_6_0 keys(1, kBorrows);
    map.listKeys(keys);
    EXPECT_EQ(2, static_cast<CountedObject*>(keys.get(0))->generation());
}
