#include <Z/ZArrayList.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <random>
#include <vector>

#include "Lists.h"

TEST_F(ZArrayList, StartsEmptyWithCapacityForAtLeastOne)
{
    struct Case {
        char const* name;
        unsigned asked;
        unsigned capacity;
    };
    Case const cases[] = {{"none asked", 0, 1}, {"one asked", 1, 1}, {"several asked", 12, 12}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZArrayList_6_0 const list(c.asked, kOwns);
        EXPECT_EQ(c.capacity, list.capacity());
        EXPECT_EQ(0u, list.size());
        EXPECT_TRUE(list.isEmpty());
        EXPECT_EQ(1, list.ownsMembers());
    }
    EXPECT_EQ(0, ZArrayList_6_0(1, kBorrows).ownsMembers());
}

TEST_F(ZArrayList, GrowsByHalfAtLeastByOne)
{
    CountedObject object;
    ZArrayList_6_0 list(0, kBorrows);
    std::vector<unsigned> capacities{list.capacity()};
    for (int i = 0; i < 200; ++i) {
        list.add(&object);
        if (list.capacity() != capacities.back())
            capacities.push_back(list.capacity());
    }
    EXPECT_EQ((std::vector<unsigned>{1, 2, 3, 4, 6, 9, 13, 19, 28, 42, 63, 94, 141, 211}),
              capacities);
    ZArrayList_6_0 ten(10, kBorrows);
    for (int i = 0; i < 11; ++i)
        ten.add(&object);
    EXPECT_EQ(15u, ten.capacity());
}

TEST_F(ZArrayList, EveryAdditionGrowsAlike)
{
    CountedObject object;
    ZArrayList_6_0 source(1, kBorrows);
    for (unsigned members = 0; members < 50; ++members) {
        ZArrayList_6_0 added(3, kBorrows), inserted(3, kBorrows), listed(3, kBorrows);
        ZArrayList_6_0 assigned(3, kBorrows);
        for (unsigned i = 0; i < members; ++i) {
            added.add(&object);
            inserted.addNoCopy(0, &object);
        }
        listed.addList(source);
        assigned = source;
        EXPECT_EQ(added.capacity(), inserted.capacity());
        EXPECT_EQ(added.capacity(), listed.capacity());
        EXPECT_EQ(added.capacity(), assigned.capacity());
        source.add(&object);
    }
}

TEST_F(ZArrayList, CapacityFollowsTheLargestSize)
{
    constexpr unsigned kSeed = 31005;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    CountedObject object;
    for (unsigned asked : {1u, 4u, 17u}) {
        SCOPED_TRACE(asked);
        ZArrayList_6_0 list(asked, kBorrows);
        unsigned capacity = asked;
        auto const grow = [&] {
            if (list.size() == capacity)
                capacity += std::max(list.size() / 2, 1u);
        };
        for (int step = 0; step < 2000; ++step) {
            switch (random() % 8) {
                case 0:
                case 1:
                case 2:
                    grow();
                    list.add(&object);
                    break;
                case 3:
                    grow();
                    list.addNoCopy(0, &object);
                    break;
                case 4:
                case 5:
                    list.remove(0u);
                    break;
                case 6:
                    if (random() % 100 == 0) {
                        list.removeAll();
                    } else if (random() % 20 == 0) {
                        ZArrayList_6_0 other(1, kBorrows);
                        for (unsigned more = random() % 40; more > 0; --more)
                            other.add(&object);
                        list = other;
                        while (capacity < other.size())
                            capacity += std::max(capacity / 2, 1u);
                    }
                    break;
                default:
                    ASSERT_EQ(capacity, ZArrayList_6_0(list).capacity());
            }
            ASSERT_EQ(capacity, list.capacity()) << "step " << step;
        }
    }
}

TEST_F(ZArrayList, OwningAddStoresAClone)
{
    CountedObject const object(5);
    {
        ZArrayList_6_0 list(1, kOwns);
        list.add(&object);
        list.add(0, &object);
        EXPECT_EQ((Numbers{5, 5}), numbersOf(list));
        EXPECT_NE(&object, list.get(0));
        EXPECT_NE(&object, list.get(1));
        EXPECT_EQ(3, CountedObject::alive);
    }
    EXPECT_EQ(1, CountedObject::alive);
}

TEST_F(ZArrayList, BorrowingStoresThePointersAndDeletesNothing)
{
    CountedObject one(1), two(2);
    {
        ZArrayList_6_0 list(1, kBorrows);
        list.add(&one);
        list.add(0, &two);
        list.addNoCopy(&one);
        EXPECT_EQ(&two, list.get(0));
        EXPECT_EQ(&one, list.get(1));
        list.set(0, &one);
        list.remove(0u);
        list.remove(&one);
        EXPECT_EQ(Numbers{1}, numbersOf(list));
        list.add(&two);
        list.removeAll();
        list.add(&two);
    }
    EXPECT_EQ(2, CountedObject::alive);
}

TEST_F(ZArrayList, AddNoCopyTakesThePointerOver)
{
    ZArrayList_6_0 list(1, kOwns);
    auto* const one = new CountedObject(1);
    auto* const two = new CountedObject(2);
    list.addNoCopy(one);
    list.addNoCopy(0, two);
    EXPECT_EQ(two, list.get(0));
    EXPECT_EQ(one, list.get(1));
    list.removeAll();
    EXPECT_EQ(0, CountedObject::alive);
}

TEST_F(ZArrayList, InsertsAtEveryIndex)
{
    for (unsigned index = 0; index <= 3; ++index) {
        SCOPED_TRACE(index);
        OwningList list({1, 2, 3});
        Numbers expected{1, 2, 3};
        expected.insert(expected.begin() + index, 9);
        list.addNoCopy(index, new CountedObject(9));
        EXPECT_EQ(expected, numbersOf(list));
    }
}

TEST_F(ZArrayList, IgnoresWhatIsOutOfRange)
{
    CountedObject const object(9);
    for (unsigned index : {4u, 5u, 0x80000000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(index);
        OwningList list({1, 2, 3});
        unsigned const capacity = list.capacity();
        list.add(index, &object);
        list.addNoCopy(index, &object);
        list.set(index - 1, &object);
        list.remove(index - 1);
        list.swap(0, index - 1);
        list.swap(index - 1, 0);
        EXPECT_EQ(nullptr, list.get(index - 1));
        EXPECT_EQ((Numbers{1, 2, 3}), numbersOf(list));
        EXPECT_EQ(capacity, list.capacity());
        EXPECT_EQ(4, CountedObject::alive);
    }
}

TEST_F(ZArrayList, StoresNulls)
{
    for (int owns : {kBorrows, kOwns}) {
        ZArrayList_6_0 list(1, owns);
        list.add(nullptr);
        list.add(0, nullptr);
        list.addNoCopy(nullptr);
        list.set(0, nullptr);
        EXPECT_EQ((Numbers{-1, -1, -1}), numbersOf(list));
        list.remove(0u);
        EXPECT_EQ(2u, list.size());
        ZArrayList_6_0 const copy(list);
        EXPECT_EQ(2u, copy.size());
    }
}

TEST_F(ZArrayList, SetReplacesAndDeletesTheOldElement)
{
    OwningList list({1, 2, 3});
    CountedObject const object(9);
    list.set(1, &object);
    EXPECT_EQ((Numbers{1, 9, 3}), numbersOf(list));
    EXPECT_NE(&object, list.get(1));
    EXPECT_EQ(4, CountedObject::alive);
    list.set(2, list.get(2));
    EXPECT_EQ((Numbers{1, 9, 3}), numbersOf(list));
    EXPECT_EQ(4, CountedObject::alive);
}

TEST_F(ZArrayList, RemoveByIndexMovesLaterElementsUp)
{
    for (unsigned index = 0; index < 3; ++index) {
        SCOPED_TRACE(index);
        OwningList list({1, 2, 3});
        Numbers expected{1, 2, 3};
        expected.erase(expected.begin() + index);
        list.remove(index);
        EXPECT_EQ(expected, numbersOf(list));
        EXPECT_EQ(2, CountedObject::alive);
    }
}

TEST_F(ZArrayList, RemoveByObjectRemovesOnlyTheFirstEqual)
{
    OwningList list({1, 2, 1});
    CountedObject const one(1);
    CountedObject const nine(9);
    list.remove(&one);
    EXPECT_EQ((Numbers{2, 1}), numbersOf(list));
    list.remove(&nine);
    EXPECT_EQ((Numbers{2, 1}), numbersOf(list));
    list.remove(static_cast<ZObject_6_0 const*>(nullptr));
    EXPECT_EQ((Numbers{2, 1}), numbersOf(list));
    EXPECT_EQ(4, CountedObject::alive);
}

TEST_F(ZArrayList, RemovesAnElementPassedAsTheProbe)
{
    OwningList list({1, 2, 3});
    list.remove(list.get(1));
    EXPECT_EQ((Numbers{1, 3}), numbersOf(list));
    EXPECT_EQ(2, CountedObject::alive);
}

TEST_F(ZArrayList, RemoveAllKeepsTheCapacity)
{
    OwningList list({1, -1, 3, 4, 5});
    EXPECT_EQ(6u, list.capacity());
    list.removeAll();
    EXPECT_EQ(0u, list.size());
    EXPECT_EQ(6u, list.capacity());
    EXPECT_EQ(0, CountedObject::alive);
    EXPECT_EQ(nullptr, list.get(0));
}

TEST_F(ZArrayList, FindsTheFirstAndTheLastEqual)
{
    OwningList const list({7, -1, 5, 7, -1});
    struct Case {
        char const* name;
        int number;
        int first;
        int last;
    };
    Case const cases[] = {{"twice", 7, 0, 3}, {"once", 5, 2, 2}, {"never", 9, -1, -1}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        CountedObject const probe(c.number);
        EXPECT_EQ(c.first, list.indexOf(&probe));
        EXPECT_EQ(c.last, list.lastIndexOf(&probe));
        EXPECT_EQ(c.first >= 0, list.contains(&probe));
    }
    EXPECT_EQ(-1, list.indexOf(nullptr));
    EXPECT_EQ(-1, list.lastIndexOf(nullptr));
    EXPECT_FALSE(list.contains(nullptr));
}

TEST_F(ZArrayList, EqualsMayRemoveElementsDuringASearch)
{
    class Shortening : public CountedObject {
    public:
        explicit Shortening(ZArrayList_6_0& list) : CountedObject(1), list_(list) {}
        bool equals(ZObject_6_0 const& other) const override
        {
            bool const isEqual = CountedObject::equals(other);
            while (list_.size() > 1)
                list_.remove(list_.size() - 1);
            return isEqual;
        }

    private:
        ZArrayList_6_0& list_;
    };
    OwningList forward({2, 1, 1, 1});
    Shortening const ofForward(forward);
    EXPECT_EQ(-1, forward.indexOf(&ofForward));
    OwningList backward({1, 1, 1, 2});
    Shortening const ofBackward(backward);
    EXPECT_EQ(0, backward.lastIndexOf(&ofBackward));
}

TEST_F(ZArrayList, CallsEqualsOfTheProbe)
{
    OwningList list({-1, 1, 2, -1});
    EqualToAll const probe;
    EXPECT_EQ(1, list.indexOf(&probe));
    EXPECT_EQ(2, list.lastIndexOf(&probe));
    EXPECT_TRUE(list.contains(&probe));
    list.remove(&probe);
    EXPECT_EQ((Numbers{-1, 2, -1}), numbersOf(list));
}

TEST_F(ZArrayList, AddListUsesTheOwnershipOfTheTarget)
{
    OwningList source({1, -1, 3});
    OwningList owning({8, 9});
    owning.addList(source);
    EXPECT_EQ((Numbers{8, 9, 1, -1, 3}), numbersOf(owning));
    EXPECT_NE(source.get(0), owning.get(2));
    ZArrayList_6_0 borrowing(1, kBorrows);
    borrowing.addList(source);
    EXPECT_EQ((Numbers{1, -1, 3}), numbersOf(borrowing));
    EXPECT_EQ(source.get(0), borrowing.get(0));
    EXPECT_EQ(6, CountedObject::alive);
}

TEST_F(ZArrayList, CanBeAddedToItself)
{
    for (unsigned capacity : {2u, 100u}) {
        SCOPED_TRACE(capacity);
        ZArrayList_6_0 list(capacity, kOwns);
        fill(list, {1, 2});
        list.addList(list);
        EXPECT_EQ((Numbers{1, 2, 1, 2}), numbersOf(list));
        EXPECT_NE(list.get(0), list.get(2));
        EXPECT_EQ(4, CountedObject::alive);
    }
}

TEST_F(ZArrayList, SubListIncludesBothEnds)
{
    OwningList list({1, 2, 3, 4});
    struct Case {
        char const* name;
        unsigned from;
        unsigned to;
        Numbers added;
    };
    Case const cases[] = {
        {"all", 0, 3, {1, 2, 3, 4}},
        {"middle", 1, 2, {2, 3}},
        {"one", 3, 3, {4}},
        {"end is the size", 0, 4, {}},
        {"end far out", 0, 0xFFFFFFFFu, {}},
        {"wrong way round", 2, 1, {}},
        {"all out", 4, 4, {}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZArrayList_6_0 owning(1, kOwns), borrowing(1, kBorrows);
        list.subList(owning, c.from, c.to);
        EXPECT_EQ(c.added, numbersOf(owning));
        EXPECT_EQ(4 + static_cast<long>(c.added.size()), CountedObject::alive);
        list.subList(borrowing, c.from, c.to);
        EXPECT_EQ(c.added, numbersOf(borrowing));
        EXPECT_EQ(c.added.empty() ? nullptr : list.get(c.from), borrowing.get(0));
    }
    ZArrayList_6_0 const none(1, kOwns);
    none.subList(list, 0, 0);
    EXPECT_EQ(4u, list.size());
    list.subList(list, 1, 2);
    EXPECT_EQ((Numbers{1, 2, 3, 4, 2, 3}), numbersOf(list));
}

TEST_F(ZArrayList, SwapsElements)
{
    OwningList list({1, 2, -1});
    list.swap(0, 1);
    EXPECT_EQ((Numbers{2, 1, -1}), numbersOf(list));
    list.swap(0, 2);
    EXPECT_EQ((Numbers{-1, 1, 2}), numbersOf(list));
    list.swap(1, 1);
    EXPECT_EQ((Numbers{-1, 1, 2}), numbersOf(list));
}

TEST_F(ZArrayList, CopyHasCapacityAndOwnershipOfItsSource)
{
    ZArrayList_6_0 owning(20, kOwns);
    fill(owning, {1, -1, 3});
    std::unique_ptr<ZObject_6_0> const clone(owning.clone());
    auto const* const copy = dynamic_cast<ZArrayList_6_0*>(clone.get());
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(20u, copy->capacity());
    EXPECT_EQ(kOwns, copy->ownsMembers());
    EXPECT_EQ((Numbers{1, -1, 3}), numbersOf(*copy));
    EXPECT_NE(owning.get(0), copy->get(0));
    EXPECT_EQ(4, CountedObject::alive);

    ZArrayList_6_0 borrowing(7, kBorrows);
    borrowing.addList(owning);
    ZArrayList_6_0 const borrowingCopy(borrowing);
    EXPECT_EQ(7u, borrowingCopy.capacity());
    EXPECT_EQ(kBorrows, borrowingCopy.ownsMembers());
    EXPECT_EQ(owning.get(0), borrowingCopy.get(0));
}

TEST_F(ZArrayList, AssignmentToItselfDoesNothing)
{
    OwningList list({1, 2});
    ZObject_6_0* const member = list.get(0);
    ZArrayList_6_0& self = list;
    self = list;
    EXPECT_EQ(member, list.get(0));
    EXPECT_EQ((Numbers{1, 2}), numbersOf(list));
}

TEST_F(ZArrayList, IsUsableThroughItsInterface)
{
    ZArrayList_6_0 held(1, kOwns);
    ZList_6_0& list = held;
    CountedObject const two(2);
    CountedObject const one(1);
    list.add(&two);
    list.add(0, &one);
    list.addList(list);
    EXPECT_EQ((Numbers{1, 2, 1, 2}), numbersOf(list));
    list.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::descending);
    EXPECT_EQ((Numbers{2, 2, 1, 1}), numbersOf(list));
    EXPECT_EQ(2, list.indexOf(&one));
    EXPECT_EQ(3, list.lastIndexOf(&one));
    EXPECT_TRUE(list.contains(&two));
    list.swap(0, 3);
    list.set(1, &one);
    list.remove(0u);
    list.remove(&one);
    ZListIterator_6_0 iterator(list);
    EXPECT_EQ(1, numberOf(iterator.getNext()));
    EXPECT_EQ(0, list.indexOf(iterator));
    list.backUp(iterator);
    EXPECT_EQ(1, numberOf(iterator.getNext()));
    // The defaults for a caller's list that does not override them.
    EXPECT_EQ(0, list.ZList_6_0::indexOf(iterator));
    list.ZList_6_0::backUp(iterator);
    EXPECT_EQ(1, numberOf(iterator.getNext()));
    list.remove(iterator);
    EXPECT_EQ((Numbers{2}), numbersOf(list));
    list.shuffle();
    list.removeAll();
    EXPECT_TRUE(list.isEmpty());
}

// ---- The iterator

TEST_F(ZListIterator, VisitsElementsInOrder)
{
    OwningList const list({1, -1, 3});
    ZListIterator_6_0 iterator(list);
    EXPECT_EQ(-1, iterator.indexOf());
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(iterator.hasMore());
        EXPECT_EQ(list.get(static_cast<unsigned>(i)), iterator.getNext());
        EXPECT_EQ(i, iterator.indexOf());
    }
    EXPECT_FALSE(iterator.hasMore());
    EXPECT_EQ(nullptr, iterator.getNext());
    EXPECT_EQ(2, iterator.indexOf());
    iterator.reset();
    EXPECT_EQ(list.get(0), iterator.getNext());
}

TEST_F(ZListIterator, IsAtItsEndInAnEmptyList)
{
    ZArrayList_6_0 const list(1, kOwns);
    ZListIterator_6_0 iterator(list);
    EXPECT_FALSE(iterator.hasMore());
    EXPECT_EQ(nullptr, iterator.getNext());
}

TEST_F(ZListIterator, BacksUpByOne)
{
    OwningList const list({1, 2});
    ZListIterator_6_0 iterator(list);
    iterator.getNext();
    iterator.getNext();
    iterator.backUp();
    EXPECT_EQ(0, iterator.indexOf());
    EXPECT_EQ(list.get(1), iterator.getNext());
}

TEST_F(ZListIterator, FindsEqualsAndSkipsNulls)
{
    OwningList const list({-1, 2, -1, 2, 3});
    ZListIterator_6_0 iterator(list);
    CountedObject const two(2);
    EXPECT_EQ(list.get(1), iterator.findNext(two));
    EXPECT_EQ(1, iterator.indexOf());
    EXPECT_EQ(list.get(3), iterator.findNext(two));
    EXPECT_EQ(nullptr, iterator.findNext(two));
    EXPECT_FALSE(iterator.hasMore());
}

TEST_F(ZListIterator, CopiesHaveTheSamePosition)
{
    OwningList const list({1, 2, 3});
    OwningList const other({7, 8});
    ZListIterator_6_0 iterator(list);
    iterator.getNext();
    ZListIterator_6_0 copy(iterator);
    std::unique_ptr<ZObject_6_0> const clone(iterator.clone());
    ZListIterator_6_0 assigned(other);
    assigned = iterator;
    iterator.getNext();
    EXPECT_EQ(list.get(1), copy.getNext());
    EXPECT_EQ(list.get(1), dynamic_cast<ZListIterator_6_0&>(*clone).getNext());
    EXPECT_EQ(list.get(1), assigned.getNext());
}

TEST_F(ZListIterator, ContinuesByIndexIfTheListChanges)
{
    OwningList list({1, 2, 3});
    ZListIterator_6_0 iterator(list);
    iterator.getNext();
    list.remove(0u);
    EXPECT_EQ(3, numberOf(iterator.getNext()));
    list.addNoCopy(new CountedObject(4));
    EXPECT_EQ(4, numberOf(iterator.getNext()));
    list.removeAll();
    EXPECT_FALSE(iterator.hasMore());
    EXPECT_EQ(nullptr, iterator.getNext());
}

TEST_F(ZListIterator, RemovalDuringIterationVisitsEveryElementOnce)
{
    for (int which = 0; which < 32; ++which) {
        SCOPED_TRACE(which);
        OwningList list({0, 1, 2, 3, 4});
        Numbers met, stay;
        ZListIterator_6_0 iterator(list);
        while (iterator.hasMore()) {
            int const number = numberOf(iterator.getNext());
            met.push_back(number);
            if (which >> number & 1)
                list.remove(iterator);
            else
                stay.push_back(number);
        }
        EXPECT_EQ((Numbers{0, 1, 2, 3, 4}), met);
        EXPECT_EQ(stay, numbersOf(list));
        EXPECT_EQ(static_cast<long>(stay.size()), CountedObject::alive);
    }
}

// ---- Random operations

TEST_F(ZArrayList, AgreesWithAVectorOverRandomOperations)
{
    constexpr unsigned kSeed = 31003;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    std::vector<CountedObject> pool;
    pool.reserve(50);
    for (int i = 0; i < 50; ++i)
        pool.emplace_back(i);
    for (int owns : {kBorrows, kOwns}) {
        ZArrayList_6_0 list(1, owns);
        Numbers model;
        for (int step = 0; step < 100000; ++step) {
            CountedObject& object = pool[random() % 50];
            auto const size = static_cast<unsigned>(model.size());
            unsigned const i = random() % (size + 2);
            unsigned const j = random() % (size + 2);
            // More additions than removals, until one of the rare operations on the whole list.
            switch (random() % 16) {
                case 0:
                case 1:
                case 2:
                    list.add(&object);
                    model.push_back(object.number());
                    break;
                case 3:
                case 4:
                    list.add(i, &object);
                    if (i <= size)
                        model.insert(model.begin() + i, object.number());
                    break;
                case 5:
                    list.addNoCopy(i, owns && i <= size ? new CountedObject(object) : &object);
                    if (i <= size)
                        model.insert(model.begin() + i, object.number());
                    break;
                case 6:
                    list.set(i, &object);
                    if (i < size)
                        model[i] = object.number();
                    break;
                case 7:
                    list.remove(i);
                    if (i < size)
                        model.erase(model.begin() + i);
                    break;
                case 8: {
                    list.remove(&object);
                    auto const at = std::find(model.begin(), model.end(), object.number());
                    if (at != model.end())
                        model.erase(at);
                    break;
                }
                case 9:
                    list.swap(i, j);
                    if (i < size && j < size)
                        std::swap(model[i], model[j]);
                    break;
                case 10: {
                    auto const at = std::find(model.begin(), model.end(), object.number());
                    ASSERT_EQ(at == model.end() ? -1 : at - model.begin(), list.indexOf(&object));
                    auto const last = std::find(model.rbegin(), model.rend(), object.number());
                    ASSERT_EQ(model.rend() - last - 1, list.lastIndexOf(&object));
                    break;
                }
                case 11: {
                    ZListIterator_6_0 iterator(list);
                    if (iterator.findNext(object) != nullptr) {
                        model.erase(model.begin() + iterator.indexOf());
                        list.remove(iterator);
                    }
                    break;
                }
                case 12:
                    if (random() % 50 == 0) {
                        list.sort(ZSortCompare_6_0::defaultSortCompare(),
                                  ZSortCompare_6_0::ascending);
                        std::sort(model.begin(), model.end());
                    }
                    break;
                case 13:
                    if (size < 60 && random() % 20 == 0) {
                        list.addList(list);
                        model.insert(model.end(), model.begin(), model.begin() + size);
                    }
                    break;
                case 14:
                    if (random() % 20 == 0) {
                        ZArrayList_6_0 part(1, owns);
                        list.subList(part, i, j);
                        list = part;
                        model = i <= j && j < size
                                    ? Numbers(model.begin() + i, model.begin() + j + 1)
                                    : Numbers();
                    }
                    break;
                default: {
                    std::unique_ptr<ZObject_6_0> const clone(list.clone());
                    ASSERT_EQ(model, numbersOf(static_cast<ZArrayList_6_0&>(*clone)));
                }
            }
            ASSERT_EQ(model.size(), list.size()) << "step " << step;
            if (step % 16 == 0) {
                ASSERT_EQ(model, numbersOf(list)) << "step " << step;
            }
        }
    }
}

// ---- Shuffling

TEST_F(ZArrayList, ShuffleKeepsEveryElement)
{
    OwningList list({0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    list.shuffle();
    Numbers after = numbersOf(list);
    std::sort(after.begin(), after.end());
    EXPECT_EQ((Numbers{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}), after);
}

TEST_F(ZArrayList, ShuffleLeavesShortListsAlone)
{
    OwningList none({});
    none.shuffle();
    EXPECT_TRUE(none.isEmpty());
    OwningList one({1});
    one.shuffle();
    EXPECT_EQ((Numbers{1}), numbersOf(one));
}

// ---- Kept behaviours

TEST_F(ZArrayList, KeepsSeedingTheProcessGenerator)
{
    // The expected order is that of the generator, seeded with the second of the call.
    Numbers const before{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    OwningList list(before);
    time_t earliest = 0;
    time_t latest = 0;
    do {
        list.removeAll();
        fill(list, before);
        earliest = time(nullptr);
        list.shuffle();
        latest = time(nullptr);
    } while (earliest != latest);
    int const next = rand();

    Numbers model = before;
    srand(static_cast<unsigned>(earliest));
    for (unsigned k = 9; k > 0; --k)
        std::swap(model[k], model[static_cast<unsigned>(rand()) % (k + 1)]);
    EXPECT_EQ(model, numbersOf(list));
    EXPECT_EQ(rand(), next);

    OwningList one({1});
    do {
        earliest = time(nullptr);
        one.shuffle();
        latest = time(nullptr);
    } while (earliest != latest);
    int const first = rand();
    srand(static_cast<unsigned>(earliest));
    EXPECT_EQ(rand(), first);
}

TEST_F(ZArrayList, KeepsItsOwnershipAndCapacityWhenAssigned)
{
    OwningList owning({1, 2});
    ZArrayList_6_0 borrowing(30, kBorrows);
    borrowing = owning;
    EXPECT_EQ(kBorrows, borrowing.ownsMembers());
    EXPECT_EQ(30u, borrowing.capacity());
    EXPECT_EQ(owning.get(0), borrowing.get(0));
    ZArrayList_6_0 other(5, kOwns);
    fill(other, {7, 8, 9});
    other = borrowing;
    EXPECT_EQ(kOwns, other.ownsMembers());
    EXPECT_EQ(5u, other.capacity());
    EXPECT_EQ((Numbers{1, 2}), numbersOf(other));
    EXPECT_NE(owning.get(0), other.get(0));
    EXPECT_EQ(4, CountedObject::alive);

    ZArrayList_6_0 grown(1, kBorrows);
    for (int i = 0; i < 3; ++i)
        grown.add(owning.get(0));
    grown = ZArrayList_6_0(1, kBorrows);
    EXPECT_TRUE(grown.isEmpty());
    EXPECT_EQ(3u, grown.capacity());
}

TEST_F(ZArrayList, KeepsSteppingBackAFreshIterator)
{
    OwningList list({1, 2});
    ZListIterator_6_0 iterator(list);
    list.remove(iterator);
    EXPECT_EQ((Numbers{1, 2}), numbersOf(list));
    EXPECT_FALSE(iterator.hasMore());
    EXPECT_EQ(nullptr, iterator.getNext());
    iterator.reset();
    EXPECT_EQ(1, numberOf(iterator.getNext()));
}

TEST_F(ZListIterator, KeepsWrappingAroundBeforeTheFirstElement)
{
    OwningList const list({1, 2});
    ZListIterator_6_0 iterator(list);
    iterator.backUp();
    EXPECT_FALSE(iterator.hasMore());
    EXPECT_EQ(nullptr, iterator.getNext());
    iterator.reset();
    EXPECT_TRUE(iterator.hasMore());
}
