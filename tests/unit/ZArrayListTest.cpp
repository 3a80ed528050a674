#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "Containers.h"
#include "FailingAllocator.h"
#include "Raised.h"
#include "ThrowingObject.h"

namespace {

void fill(ZArrayList_6_0& list, Numbers const& numbers)
{
    for (int number : numbers)
        list.addNoCopy(number < 0 ? nullptr : new CountedObject(number));
}

// An owning list of objects with these numbers; -1 stands for a null.
struct OwningList : ZArrayList_6_0 {
    explicit OwningList(Numbers const& numbers) : ZArrayList_6_0(1, kOwns) { fill(*this, numbers); }
};

class ZArrayList : public CountingTest {};

class ZListIterator : public ZArrayList {};
class ZArrayListSort : public ZArrayList {};

}  // namespace

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

// ---- Callbacks may change the list

TEST_F(ZArrayList, CloneMayGrowTheListDuringAnAddition)
{
    OwningList list({1, 2});
    auto const addMany = [&] {
        for (int i = 0; i < 50; ++i)
            list.addNoCopy(0, new CountedObject(9));
    };
    Numbers expected(50, 9);
    expected.insert(expected.end(), {1, 2, 3});
    list.add(std::make_unique<Meddler>(3, addMany).get());
    EXPECT_EQ(expected, numbersOf(list));

    OwningList other({});
    other.addNoCopy(new Meddler(4, addMany));
    other.addNoCopy(new CountedObject(5));
    expected.insert(expected.begin(), 50, 9);
    expected.insert(expected.end(), {4, 5});
    list.addList(other);
    EXPECT_EQ(expected, numbersOf(list));
}

TEST_F(ZArrayList, CloneMayEmptyTheListDuringAnAddition)
{
    struct Case {
        char const* name;
        void (*action)(ZArrayList_6_0&, ZObject_6_0 const*);
        Numbers left;
    };
    Case const cases[] = {
        {"add", [](ZArrayList_6_0& list, ZObject_6_0 const* object) { list.add(object); }, {9}},
        {"add at the start",
         [](ZArrayList_6_0& list, ZObject_6_0 const* object) { list.add(0, object); },
         {9}},
        {"add past the end",
         [](ZArrayList_6_0& list, ZObject_6_0 const* object) { list.add(2, object); },
         {}},
        {"set", [](ZArrayList_6_0& list, ZObject_6_0 const* object) { list.set(1, object); }, {}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        OwningList list({1, 2, 3});
        Meddler const object(9, [&] { list.removeAll(); });
        c.action(list, &object);
        EXPECT_EQ(c.left, numbersOf(list));
        EXPECT_EQ(1 + static_cast<long>(c.left.size()), CountedObject::alive);
    }
}

TEST_F(ZArrayList, CloneMayChangeTheCopiedList)
{
    struct Case {
        char const* name;
        void (*deed)(ZArrayList_6_0&);
        Numbers copied;
    };
    Case const cases[] = {
        {"adds",
         [](ZArrayList_6_0& list) {
             for (int i = 0; i < 50; ++i)
                 list.addNoCopy(new CountedObject(9));
         },
         {1, 2, 3}},
        {"removes",
         [](ZArrayList_6_0& list) {
             list.remove(2u);
             list.remove(1u);
         },
         {1}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const sourceOf = [&](ZArrayList_6_0& source) {
            source.addNoCopy(new Meddler(1, [&] { c.deed(source); }));
            source.addNoCopy(new CountedObject(2));
            source.addNoCopy(new CountedObject(3));
        };
        ZArrayList_6_0 source(3, kOwns), second(3, kOwns);
        sourceOf(source);
        EXPECT_EQ(c.copied, numbersOf(ZArrayList_6_0(source)));
        sourceOf(second);
        OwningList target({7});
        static_cast<ZArrayList_6_0&>(target) = second;
        EXPECT_EQ(c.copied, numbersOf(target));
    }
}

TEST_F(ZArrayList, SubListEndsIfTheTargetCannotRemove)
{
    class Stubborn : public ZArrayList_6_0 {
    public:
        Stubborn() : ZArrayList_6_0(1, kOwns) {}
        using ZArrayList_6_0::remove;
        void remove(unsigned int) override { ++asked; }
        int asked = 0;
    };
    OwningList const list({1, 2, 3});
    Stubborn target;
    CountedObject::clonesUntilThrow = 3;
    EXPECT_THROW(list.subList(target, 0, 2), std::runtime_error);
    EXPECT_EQ(2, target.asked);
    EXPECT_EQ((Numbers{1, 2}), numbersOf(target));
}

// ---- Derived classes

namespace {

// A list that records the calls of its operations.
class Noting : public ZArrayList_6_0 {
public:
    explicit Noting(int owns = kOwns) : ZArrayList_6_0(1, owns) {}
    Noting(Noting const&) = default;
    Noting& operator=(Noting const&) = default;

    unsigned int size() const override
    {
        ++sizesAsked;
        return ZArrayList_6_0::size();
    }
    void add(ZObject_6_0 const* obj) override
    {
        note("add", obj);
        ZArrayList_6_0::add(obj);
    }
    void add(unsigned int index, ZObject_6_0 const* obj) override
    {
        note("add at " + std::to_string(index), obj);
        ZArrayList_6_0::add(index, obj);
    }
    void addList(ZList_6_0 const& other) override
    {
        notes += "addList; ";
        ZArrayList_6_0::addList(other);
    }
    void addNoCopy(ZObject_6_0 const* obj) override
    {
        note("addNoCopy", obj);
        ZArrayList_6_0::addNoCopy(obj);
    }
    void addNoCopy(unsigned int index, ZObject_6_0 const* obj) override
    {
        note("addNoCopy at " + std::to_string(index), obj);
        ZArrayList_6_0::addNoCopy(index, obj);
    }
    void remove(ZObject_6_0 const* obj) override
    {
        note("remove", obj);
        ZArrayList_6_0::remove(obj);
    }
    void remove(unsigned int index) override
    {
        notes += "remove at " + std::to_string(index) + "; ";
        ZArrayList_6_0::remove(index);
    }
    void remove(ZListIterator_6_0& iterator) override { ZArrayList_6_0::remove(iterator); }
    void removeAll() override
    {
        notes += "removeAll; ";
        ZArrayList_6_0::removeAll();
    }
    ZObject_6_0* get(unsigned int index) const override
    {
        notes += "get " + std::to_string(index) + "; ";
        return ZArrayList_6_0::get(index);
    }
    int indexOf(ZObject_6_0 const* obj) const override
    {
        note("indexOf", obj);
        return ZArrayList_6_0::indexOf(obj);
    }
    int indexOf(ZListIterator_6_0& iterator) override
    {
        notes += "indexOf iterator; ";
        return ZArrayList_6_0::indexOf(iterator);
    }
    void backUp(ZListIterator_6_0& iterator) override
    {
        notes += "backUp; ";
        ZArrayList_6_0::backUp(iterator);
    }
    void swap(unsigned int one, unsigned int other) override
    {
        notes += "swap; ";
        ZArrayList_6_0::swap(one, other);
    }

    mutable std::string notes;
    mutable int sizesAsked = 0;

private:
    void note(std::string const& call, ZObject_6_0 const* obj) const
    {
        notes += call + " " + std::to_string(numberOf(obj)) + "; ";
    }
};

}  // namespace

TEST_F(ZArrayList, CallsOverriddenOperations)
{
    CountedObject const nine(9), two(2);
    OwningList other({5, 6});
    struct Case {
        char const* name;
        std::function<void(Noting&)> action;
        char const* notes;
    };
    // The list has the elements 1, 2 and 3.
    Case const cases[] = {
        {"add", [&](Noting& l) { l.ZArrayList_6_0::add(&nine); }, "addNoCopy at 3 9; "},
        {"add at an index", [&](Noting& l) { l.ZArrayList_6_0::add(1, &nine); },
         "addNoCopy at 1 9; "},
        {"add too far out", [&](Noting& l) { l.ZArrayList_6_0::add(4, nullptr); }, ""},
        {"addNoCopy", [&](Noting& l) { l.ZArrayList_6_0::addNoCopy(nullptr); },
         "addNoCopy at 3 -1; "},
        {"addList", [&](Noting& l) { l.ZArrayList_6_0::addList(other); },
         "add 5; addNoCopy at 3 5; add 6; addNoCopy at 4 6; "},
        {"addList of none", [&](Noting& l) { l.ZArrayList_6_0::addList(ZArrayList_6_0(1, kOwns)); },
         ""},
        {"assignment", [&](Noting& l) { l.ZArrayList_6_0::operator=(other); },
         "removeAll; addList; add 5; addNoCopy at 0 5; add 6; addNoCopy at 1 6; "},
        {"assignment to itself", [&](Noting& l) { l.ZArrayList_6_0::operator=(l); }, ""},
        {"remove", [&](Noting& l) { l.ZArrayList_6_0::remove(&two); }, "indexOf 2; remove at 1; "},
        {"remove with an iterator",
         [&](Noting& l) {
             ZListIterator_6_0 iterator(l);
             iterator.getNext();
             l.notes.clear();
             l.remove(iterator);
             EXPECT_EQ(2, numberOf(iterator.getNext()));
         },
         "indexOf iterator; remove at 0; backUp; get 0; "},
        {"contains", [&](Noting& l) { EXPECT_TRUE(l.contains(&two)); }, "indexOf 2; "},
        {"subList",
         [&](Noting& l) {
             Noting part(kBorrows);
             l.subList(part, 1, 2);
             EXPECT_EQ("add 2; addNoCopy at 0 2; add 3; addNoCopy at 1 3; ", part.notes);
         },
         "get 1; get 2; "},
        {"shuffle", [&](Noting& l) { l.shuffle(); }, "swap; swap; "},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Noting list;
        fill(list, {1, 2, 3});
        list.notes.clear();
        c.action(list);
        EXPECT_EQ(c.notes, list.notes);
    }
    Noting list(kBorrows);
    list.ZArrayList_6_0::add(&nine);
    list.ZArrayList_6_0::add(&two);
    list.ZArrayList_6_0::add(0, &two);
    EXPECT_EQ("addNoCopy at 0 9; addNoCopy at 1 2; addNoCopy at 0 2; ", list.notes);
    list.sizesAsked = 0;
    EXPECT_FALSE(list.isEmpty());
    EXPECT_EQ(1, list.sizesAsked);
}

TEST_F(ZArrayList, ReadsADerivedSourceThroughItsOperations)
{
    // A list that returns its elements in reverse order and omits the last one.
    class Turned : public ZArrayList_6_0 {
    public:
        explicit Turned(Numbers const& numbers) : ZArrayList_6_0(1, kOwns) { fill(*this, numbers); }
        unsigned int size() const override
        {
            unsigned const members = ZArrayList_6_0::size();
            return shown_ && members > 0 ? members - 1 : members;
        }
        ZObject_6_0* get(unsigned int index) const override
        {
            return ZArrayList_6_0::get(ZArrayList_6_0::size() - 1 - index);
        }
        void show() { shown_ = true; }

    private:
        bool shown_ = false;
    };
    Turned source({1, 2, 3});
    source.show();
    EXPECT_EQ((Numbers{3, 2}), numbersOf(ZArrayList_6_0(source)));
    ZArrayList_6_0 target(1, kOwns);
    target = source;
    EXPECT_EQ((Numbers{3, 2}), numbersOf(target));
    target.addList(source);
    EXPECT_EQ((Numbers{3, 2, 3, 2}), numbersOf(target));
}

TEST_F(ZArrayList, FailedAddListLeavesADerivedListUnchanged)
{
    OwningList source({4, 5, 6});
    Noting list;
    fill(list, {1, 2});
    for (long clone : {1, 2, 3}) {
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(list.addList(source), std::runtime_error);
        EXPECT_EQ((Numbers{1, 2}), numbersOf(list));
    }
    CountedObject::clonesUntilThrow = 2;
    EXPECT_THROW(static_cast<ZArrayList_6_0&>(list) = source, std::runtime_error);
    EXPECT_EQ(Numbers{}, numbersOf(list));
    EXPECT_EQ(3, CountedObject::alive);
    static_cast<ZArrayList_6_0&>(list) = source;
    EXPECT_EQ((Numbers{4, 5, 6}), numbersOf(list));
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

// ---- Sorting

namespace {

// A recursive model of the list's quicksort, by the last digit. The upper end may be one past the
// last element.
void sortByTheRule(Numbers& list, bool ascending, int low, int high)
{
    auto const get = [&](int at) { return at < static_cast<int>(list.size()) ? list[at] : -1; };
    auto const isBefore = [](int left, int right) { return left % 10 < right % 10; };
    while (low < high) {
        int pivot = -1;
        int const middle = (low + high) / 2;
        for (int away = 0; pivot < 0 && away <= high - low; ++away) {
            if (middle - away >= low)
                pivot = get(middle - away);
            if (pivot < 0 && middle + away <= high)
                pivot = get(middle + away);
        }
        if (pivot < 0)
            return;
        int i = low;
        int j = high;
        do {
            while (i < high &&
                   (get(i) < 0 || (ascending ? isBefore(get(i), pivot) : isBefore(pivot, get(i)))))
                ++i;
            while (j > low &&
                   (get(j) < 0 || (ascending ? isBefore(pivot, get(j)) : isBefore(get(j), pivot))))
                --j;
            if (i <= j) {
                if (i < static_cast<int>(list.size()) && j < static_cast<int>(list.size()))
                    std::swap(list[i], list[j]);
                ++i;
                --j;
            }
        } while (i <= j);
        if (low < j)
            sortByTheRule(list, ascending, low, j);
        low = i;
    }
}

// Compares only the last digit, so that equal elements are distinguishable.
class ByLastDigit final : public ZSortCompare_6_0 {
public:
    int sortCompare(ZObject_6_0 const* left, ZObject_6_0 const* right) const override
    {
        ++calls;
        if (calls == raisesAt)
            throw std::runtime_error("no order");
        return numberOf(left) % 10 - numberOf(right) % 10;
    }
    mutable long calls = 0;
    long raisesAt = 0;
};

}  // namespace

TEST_F(ZArrayListSort, SortsShortLists)
{
    struct Case {
        Numbers before;
        Numbers ascending;
        Numbers descending;
    };
    Case const cases[] = {
        {{}, {}, {}},
        {{1}, {1}, {1}},
        {{1, 2}, {1, 2}, {2, 1}},
        {{2, 1}, {1, 2}, {2, 1}},
        {{3, 1, 2}, {1, 2, 3}, {3, 2, 1}},
        {{2, 2, 1, 1}, {1, 1, 2, 2}, {2, 2, 1, 1}},
    };
    for (Case const& c : cases) {
        for (int owns : {kBorrows, kOwns}) {
            OwningList members(c.before);
            ZArrayList_6_0 list(1, owns);
            list.addList(members);
            list.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
            EXPECT_EQ(c.ascending, numbersOf(list));
            list.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::descending);
            EXPECT_EQ(c.descending, numbersOf(list));
        }
    }
}

TEST_F(ZArrayListSort, EveryOrderButOneIsDescending)
{
    for (int order : {0, 2, -1, 1000}) {
        OwningList list({1, 3, 2});
        list.sort(ZSortCompare_6_0::defaultSortCompare(),
                  static_cast<ZSortCompare_6_0::sortorder>(order));
        EXPECT_EQ((Numbers{3, 2, 1}), numbersOf(list)) << order;
    }
}

TEST_F(ZArrayListSort, SortsAroundNulls)
{
    OwningList list({5, -1, 3, -1, 1});
    list.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
    EXPECT_EQ((Numbers{1, -1, 3, -1, 5}), numbersOf(list));
    OwningList nulls({-1, -1, -1});
    nulls.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
    EXPECT_EQ((Numbers{-1, -1, -1}), numbersOf(nulls));
    OwningList last({-1, -1, 2, 1});
    last.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
    EXPECT_EQ((Numbers{-1, -1, 1, 2}), numbersOf(last));
}

TEST_F(ZArrayListSort, EveryArrangementOfElementsAndNullsIsSortedWithTheNullsInPlace)
{
    for (int length = 0; length <= 7; ++length) {
        for (int nulls = 0; nulls < 1 << length; ++nulls) {
            Numbers numbers(static_cast<size_t>(length));
            std::iota(numbers.begin(), numbers.end(), 0);
            do {
                Numbers before = numbers;
                for (int i = 0; i < length; ++i) {
                    if (nulls >> i & 1)
                        before[i] = -1;
                }
                Numbers sorted;
                std::copy_if(before.begin(), before.end(), std::back_inserter(sorted),
                             [](int number) { return number >= 0; });
                std::sort(sorted.begin(), sorted.end());
                std::vector<CountedObject> members;
                members.reserve(8);
                ZArrayList_6_0 list(8, kBorrows);
                for (int number : before)
                    list.add(number < 0 ? nullptr : &members.emplace_back(number));
                list.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
                Numbers const after = numbersOf(list);
                Numbers rest;
                for (int i = 0; i < length; ++i) {
                    ASSERT_EQ(nulls >> i & 1, after[i] < 0);
                    if (after[i] >= 0)
                        rest.push_back(after[i]);
                }
                ASSERT_EQ(sorted, rest);
            } while (length < 7 && std::next_permutation(numbers.begin(), numbers.end()));
        }
    }
}

TEST_F(ZArrayListSort, OrdersEqualElementsLikeTheModel)
{
    constexpr unsigned kSeed = 31002;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    ByLastDigit const comparator;
    for (int round = 0; round < 3000; ++round) {
        // Numbers that agree in the last digit are equal to the comparator, but not to the test.
        unsigned const size = random() % 60;
        bool const ascending = random() % 2 == 0;
        Numbers model;
        for (unsigned i = 0; i < size; ++i)
            model.push_back(random() % 5 == 0 ? -1 : static_cast<int>(i * 10 + random() % 10));
        OwningList list(model);
        list.sort(comparator,
                  ascending ? ZSortCompare_6_0::ascending : ZSortCompare_6_0::descending);
        sortByTheRule(model, ascending, 0, static_cast<int>(size));
        ASSERT_EQ(model, numbersOf(list)) << "round " << round;
    }
}

TEST_F(ZArrayListSort, LongListsOfEveryShapeNeedNoDeepStack)
{
    constexpr int kMembers = 4000;
    std::vector<Numbers> shapes(4, Numbers(kMembers));
    std::iota(shapes[0].begin(), shapes[0].end(), 0);
    std::iota(shapes[1].rbegin(), shapes[1].rend(), 0);
    shapes[2].assign(kMembers, 7);
    // The middle of every range is the largest: recursion would be as deep as the list is long.
    Numbers& worst = shapes[3];
    std::iota(worst.begin(), worst.end(), 0);
    for (int high = 1; high < kMembers - 1; ++high)
        std::swap(worst[high], worst[high / 2]);
    std::swap(worst[kMembers - 1], worst[kMembers / 2]);
    for (Numbers const& shape : shapes) {
        OwningList list(shape);
        pthread_attr_t smallStack;
        pthread_attr_init(&smallStack);
        ASSERT_EQ(0, pthread_attr_setstacksize(&smallStack, 128 * 1024));
        auto const sort = [](void* argument) -> void* {
            static_cast<OwningList*>(argument)->sort(ZSortCompare_6_0::defaultSortCompare(),
                                                     ZSortCompare_6_0::ascending);
            return nullptr;
        };
        pthread_t thread;
        ASSERT_EQ(0, pthread_create(&thread, &smallStack, sort, &list));
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&smallStack);
        Numbers sorted = shape;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(sorted, numbersOf(list));
    }
}

TEST_F(ZArrayListSort, FailedComparatorLosesNoElement)
{
    Numbers const before{9, 4, 7, 1, 8, 2, 6, 3, 5, 0};
    for (long raisesAt = 1; raisesAt < 20; ++raisesAt) {
        OwningList list(before);
        ByLastDigit comparator;
        comparator.raisesAt = raisesAt;
        EXPECT_THROW(list.sort(comparator, ZSortCompare_6_0::ascending), std::runtime_error);
        Numbers after = numbersOf(list);
        std::sort(after.begin(), after.end());
        EXPECT_EQ((Numbers{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}), after);
    }
}

// A list that partitions do not divide: up, then down.
Numbers upThenDown(int members)
{
    Numbers numbers;
    for (int i = 0; i < members; ++i)
        numbers.push_back(std::min(2 * i, 2 * (members - i) - 1));
    return numbers;
}

TEST_F(ZArrayListSort, FailedComparatorLosesNoElementDuringAMerge)
{
    Numbers const before = upThenDown(600);
    Numbers sorted = before;
    std::sort(sorted.begin(), sorted.end());
    bool raised = true;
    for (long raisesAt = 1; raised; raisesAt += 997) {
        class Raising final : public ZSortCompare_6_0 {
        public:
            explicit Raising(long at) : left_(at) {}
            int sortCompare(ZObject_6_0 const* left, ZObject_6_0 const* right) const override
            {
                if (--left_ == 0)
                    throw std::runtime_error("no order");
                return left->compare(*right);
            }

        private:
            mutable long left_;
        };
        OwningList list(before);
        raised = false;
        try {
            list.sort(Raising(raisesAt), ZSortCompare_6_0::ascending);
        } catch (std::runtime_error const&) {
            raised = true;
        }
        Numbers after = numbersOf(list);
        if (raised)
            std::sort(after.begin(), after.end());
        EXPECT_EQ(sorted, after);
    }
}

TEST_F(ZArrayListSort, ComparatorMayRemoveElementsDuringAMerge)
{
    class Removing final : public ZSortCompare_6_0 {
    public:
        explicit Removing(ZArrayList_6_0& list) : list_(list) {}
        int sortCompare(ZObject_6_0 const* left, ZObject_6_0 const* right) const override
        {
            unsigned const last = list_.size() - 1;
            if (++calls_ % 50 == 0 && list_.get(last) != left && list_.get(last) != right)
                list_.remove(last);
            return left->compare(*right);
        }

    private:
        ZArrayList_6_0& list_;
        mutable long calls_ = 0;
    };
    for (int members : {40, 200, 1000, 5000}) {
        OwningList list(upThenDown(members));
        list.sort(Removing(list), ZSortCompare_6_0::ascending);
        EXPECT_EQ(static_cast<long>(list.size()), CountedObject::alive);
        EXPECT_GT(static_cast<unsigned>(members), list.size());
    }
}

TEST_F(ZArrayListSort, FailedAllocationForAMergeLosesNoElement)
{
    Numbers const before = upThenDown(2000);
    Numbers sorted = before;
    std::sort(sorted.begin(), sorted.end());
    OwningList list(before);
    EXPECT_LE(
        1u,
        failEachAllocation(
            [&] { list.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending); },
            [&] {
                Numbers after = numbersOf(list);
                std::sort(after.begin(), after.end());
                EXPECT_EQ(sorted, after);
                list.removeAll();
                fill(list, before);
            }));
    EXPECT_EQ(sorted, numbersOf(list));
    list.removeAll();
    fill(list, before);
    FailingAllocator::failAt(1);
    EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(1, "src/Z/ZArrayList", 253, [&] {
        list.sort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending);
    }));
    FailingAllocator::stop();
}

TEST_F(ZArrayListSort, ThePivotIsTheSecondArgument)
{
    class Recorder final : public ZSortCompare_6_0 {
    public:
        int sortCompare(ZObject_6_0 const* left, ZObject_6_0 const* right) const override
        {
            pivots.push_back(numberOf(right));
            return left->compare(*right);
        }
        mutable Numbers pivots;
    };
    OwningList list({1, 2});
    Recorder const recorder;
    list.sort(recorder, ZSortCompare_6_0::ascending);
    ASSERT_FALSE(recorder.pivots.empty());
    EXPECT_EQ(2, recorder.pivots.front());  // the middle of 0 and 2, one past the last
}

TEST_F(ZArrayListSort, InconsistentComparatorTerminates)
{
    class Contrary final : public ZSortCompare_6_0 {
    public:
        int sortCompare(ZObject_6_0 const*, ZObject_6_0 const*) const override { return result; }
        int result = -1;
    };
    for (int result : {-1, 1, 0}) {
        OwningList list({3, 1, 2, 5, 4});
        Contrary comparator;
        comparator.result = result;
        list.sort(comparator, ZSortCompare_6_0::ascending);
        EXPECT_EQ(5u, list.size());
    }
}

TEST_F(ZArrayListSort, SortsPartOfTheList)
{
    struct Open : ZArrayList_6_0 {
        Open() : ZArrayList_6_0(1, kOwns) {}
        using ZArrayList_6_0::quickSort;
    };
    Open list;
    fill(list, {9, 5, 4, 3, 0});
    list.quickSort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending, 1, 3);
    EXPECT_EQ((Numbers{9, 3, 4, 5, 0}), numbersOf(list));
    list.quickSort(ZSortCompare_6_0::defaultSortCompare(), ZSortCompare_6_0::ascending, 3, 1);
    EXPECT_EQ((Numbers{9, 3, 4, 5, 0}), numbersOf(list));
}

// ---- Failures

TEST_F(ZArrayList, FailedCloneLeavesTheListUnchanged)
{
    OwningList source({4, 5, 6});
    ZArrayList_6_0 list(1, kOwns);
    fill(list, {1, 2});
    unsigned const capacity = list.capacity();
    ZArrayList_6_0 wide(50, kOwns);
    for (long clone : {1, 2, 3}) {
        SCOPED_TRACE(clone);
        using Action = void (*)(ZArrayList_6_0&, OwningList&);
        Action const actions[] = {
            [](ZArrayList_6_0& l, OwningList& s) { l = s; },
            [](ZArrayList_6_0& l, OwningList& s) { l.addList(s); },
            [](ZArrayList_6_0& l, OwningList& s) { s.subList(l, 0, 2); },
            [](ZArrayList_6_0&, OwningList& s) { ZArrayList_6_0 copy(s); },
        };
        for (Action action : actions) {
            CountedObject::clonesUntilThrow = clone;
            EXPECT_THROW(action(list, source), std::runtime_error);
            EXPECT_EQ((Numbers{1, 2}), numbersOf(list));
            EXPECT_EQ(5, CountedObject::alive);
        }
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(wide.addList(source), std::runtime_error);
        EXPECT_EQ(0u, wide.size());
        EXPECT_EQ(5, CountedObject::alive);
    }
    // One element at a time: the list is full, so add() would have grown it.
    CountedObject::clonesUntilThrow = 1;
    EXPECT_THROW(list.add(source.get(0)), std::runtime_error);
    CountedObject::clonesUntilThrow = 1;
    EXPECT_THROW(list.add(0, source.get(0)), std::runtime_error);
    CountedObject::clonesUntilThrow = 1;
    EXPECT_THROW(list.set(0, source.get(0)), std::runtime_error);
    EXPECT_EQ((Numbers{1, 2}), numbersOf(list));
    EXPECT_LE(capacity, list.capacity());
    EXPECT_EQ(5, CountedObject::alive);
}

TEST_F(ZArrayList, FailedAllocationLeavesTheListUnchanged)
{
    Numbers const before(9, 1);
    OwningList source({4, 5, 6});
    CountedObject const object(3);
    auto const list = std::make_unique<ZArrayList_6_0>(9, kOwns);
    fill(*list, before);
    auto const unchanged = [&] {
        EXPECT_EQ(before, numbersOf(*list));
        EXPECT_EQ(9u, list->capacity());
        EXPECT_EQ(13, CountedObject::alive);
    };
    EXPECT_EQ(1u, failEachAllocation([] { ZArrayList_6_0 made(8, kOwns); }, unchanged));
    EXPECT_EQ(4u, failEachAllocation([&] { ZArrayList_6_0 copy(source); }, unchanged));
    EXPECT_EQ(5u, failEachAllocation([&] { delete source.clone(); }, unchanged));
    EXPECT_EQ(1u, failEachAllocation([&] { list->set(1, list->get(1)); }, unchanged));
    // The list is full: every addition grows it. The last run leaves it unchanged too.
    auto const failing = [&](auto action) {
        unsigned long const failures = failEachAllocation(action, unchanged);
        list->~ZArrayList_6_0();
        new (list.get()) ZArrayList_6_0(9, kOwns);
        fill(*list, before);
        return failures;
    };
    EXPECT_EQ(2u, failing([&] { list->add(&object); }));
    EXPECT_EQ(2u, failing([&] { list->add(0, &object); }));
    EXPECT_EQ(1u, failing([&] { list->addNoCopy(nullptr); }));
    EXPECT_EQ(1u, failing([&] { list->addNoCopy(1, nullptr); }));
    EXPECT_EQ(5u, failing([&] { list->addList(source); }));
    EXPECT_EQ(4u, failing([&] { *list = source; }));
}

TEST_F(ZArrayList, FailedAllocationLeavesABorrowingListUnchanged)
{
    CountedObject const object;
    ZArrayList_6_0 list(1, kBorrows);
    unsigned long failures = 0;
    for (unsigned members = 0; members < 200; ++members) {
        unsigned const capacity = list.capacity();
        failures += failEachAllocation([&] { list.add(&object); },
                                       [&] {
                                           EXPECT_EQ(members, list.size());
                                           EXPECT_EQ(capacity, list.capacity());
                                       });
    }
    EXPECT_LT(2u, failures);
}

TEST_F(ZArrayList, FailedAllocationReportsTheListAsSource)
{
    char const* source = nullptr;
    unsigned site = 0;
    auto const note = [&](auto action) {
        FailingAllocator::failAt(1);
        try {
            action();
        } catch (ZOutOfMemoryException_6_0 const& exception) {
            source = exception.who();
            site = exception.where();
        }
        FailingAllocator::stop();
    };
    note([] { ZArrayList_6_0 made(5, kBorrows); });
    EXPECT_STREQ("src/Z/ZArrayList", source);
    EXPECT_EQ(61u, site);
    ZArrayList_6_0 list(4, kBorrows);
    for (int i = 0; i < 4; ++i)
        list.add(nullptr);
    note([&] { list.add(nullptr); });
    EXPECT_STREQ("src/Z/ZArrayList", source);
    EXPECT_EQ(187u, site);
    EXPECT_EQ(4u, list.size());
    list.add(nullptr);
    EXPECT_EQ(5u, list.size());
}

TEST_F(ZArrayList, TooLargeAListIsOutOfMemory)
{
    // A list that claims more elements than memory can hold.
    class Endless : public ZArrayList_6_0 {
    public:
        Endless() : ZArrayList_6_0(1, kBorrows) {}
        unsigned int size() const override { return 0xFFFFFFFFu; }
        ZObject_6_0* get(unsigned int) const override { return nullptr; }
    };
    CountedObject const object;
    ZArrayList_6_0 list(1, kBorrows);
    list.add(&object);
    EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(1, "src/Z/ZArrayList", 187,
                                                  [&] { list.addList(Endless()); }));
    EXPECT_EQ(1u, list.size());
    EXPECT_EQ(1u, list.capacity());
}

TEST_F(ZArrayList, FailedDestructorDoesNotKeepOtherElements)
{
    auto list = std::make_unique<ZArrayList_6_0>(1, kOwns);
    auto const refill = [&] {
        list->addNoCopy(new CountedObject(1));
        list->addNoCopy(new ThrowingObject(2));
        list->addNoCopy(new ThrowingObject(3));
        list->addNoCopy(new CountedObject(4));
    };
    refill();
    EXPECT_THROW(list->removeAll(), std::runtime_error);
    EXPECT_TRUE(list->isEmpty());
    EXPECT_EQ(0, CountedObject::alive);
    refill();
    EXPECT_THROW(list->remove(1u), std::runtime_error);
    EXPECT_EQ((Numbers{1, 3, 4}), numbersOf(*list));
    CountedObject const object(5);
    EXPECT_THROW(list->set(1, &object), std::runtime_error);
    EXPECT_EQ((Numbers{1, 5, 4}), numbersOf(*list));
    list->addNoCopy(1, new ThrowingObject(6));
    ZListIterator_6_0 iterator(*list);
    iterator.getNext();
    iterator.getNext();
    EXPECT_THROW(list->remove(iterator), std::runtime_error);
    EXPECT_EQ(5, numberOf(iterator.getNext()));
    list->addNoCopy(new ThrowingObject(7));
    ZArrayList_6_0 const none(1, kOwns);
    EXPECT_THROW(*list = none, std::runtime_error);
    EXPECT_TRUE(list->isEmpty());
    refill();
    EXPECT_THROW(delete list.release(), std::runtime_error);
}

TEST_F(ZArrayList, ThreadMayEndInAnElementsDestructor)
{
    // Ends its thread, which unwinds the stack without an exception.
    class Ending : public CountedObject {
    public:
        using CountedObject::CountedObject;
        ~Ending() noexcept(false) override
        {
            static int result;
            pthread_exit(&result);
        }
    };
    OwningList list({1, 2});
    list.addNoCopy(0, new Ending(3));
    pthread_t thread;
    auto const removeAll = [](void* argument) -> void* {
        static_cast<OwningList*>(argument)->removeAll();
        return nullptr;
    };
    ASSERT_EQ(0, pthread_create(&thread, nullptr, removeAll, &list));
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_NE(nullptr, result) << "the thread continued";
    EXPECT_EQ((Numbers{-1, 1, 2}), numbersOf(list));
    list.removeAll();
}

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
