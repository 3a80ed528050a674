#include <Z/ZArray.h>
#include <Z/ZException.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "Containers.h"
#include "FailingAllocator.h"
#include "Raised.h"
#include "ThrowingObject.h"

namespace {

void fill(ZArray_6_0& array, std::vector<int> const& numbers)
{
    for (unsigned i = 0; i < numbers.size(); ++i)
        array.setNoCopy(i, numbers[i] < 0 ? nullptr : new CountedObject(numbers[i]));
}

class ZArray : public CountingTest {};

}  // namespace

TEST_F(ZArray, HasAtLeastOneSlotAndAllAreEmpty)
{
    struct Case {
        char const* name;
        unsigned asked;
        unsigned size;
    };
    Case const cases[] = {{"size 0", 0, 1}, {"size 1", 1, 1}, {"size 7", 7, 7}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZArray_6_0 const array(c.asked, kOwns);
        EXPECT_EQ(c.size, array.size());
        EXPECT_EQ(Numbers(c.size, -1), numbersOf(array));
    }
}

TEST_F(ZArray, ReturnsItsOwnership)
{
    EXPECT_EQ(0, ZArray_6_0(1, 0).ownsMembers());
    EXPECT_EQ(1, ZArray_6_0(1, 1).ownsMembers());
    EXPECT_EQ(5, ZArray_6_0(1, 5).ownsMembers());
}

TEST_F(ZArray, OwningStoresClonesAndDeletesReplacedObjects)
{
    CountedObject const object(1);
    {
        ZArray_6_0 array(2, kOwns);
        array.set(0, &object);
        EXPECT_NE(&object, array.get(0));
        EXPECT_EQ(1, numberOf(array.get(0)));
        EXPECT_EQ(2, CountedObject::alive);
        array.set(0, &object);
        EXPECT_EQ(2, CountedObject::alive);
        array.set(0, nullptr);
        EXPECT_EQ(nullptr, array.get(0));
        EXPECT_EQ(1, CountedObject::alive);
        array.set(1, &object);
    }
    EXPECT_EQ(1, CountedObject::alive);
}

TEST_F(ZArray, BorrowingStoresThePointersAndDeletesNothing)
{
    CountedObject one(1), two(2);
    {
        ZArray_6_0 array(2, kBorrows);
        array.set(0, &one);
        EXPECT_EQ(&one, array.get(0));
        array.set(0, &two);
        array.setNoCopy(1, &one);
        EXPECT_EQ(&two, array.get(0));
        EXPECT_EQ(&one, array.get(1));
        array.remove(0);
        array.removeAll();
        array.set(0, &one);
    }
    EXPECT_EQ(2, CountedObject::alive);
}

TEST_F(ZArray, SetNoCopyTakesThePointerOver)
{
    ZArray_6_0 array(1, kOwns);
    auto* const first = new CountedObject(1);
    array.setNoCopy(0, first);
    EXPECT_EQ(first, array.get(0));
    array.setNoCopy(0, new CountedObject(2));
    EXPECT_EQ(1, CountedObject::alive);
    array.setNoCopy(0, nullptr);
    EXPECT_EQ(0, CountedObject::alive);
}

TEST_F(ZArray, SetStoresThroughSetNoCopy)
{
    class RecordingArray : public ZArray_6_0 {
    public:
        RecordingArray() : ZArray_6_0(2, kOwns) {}
        void setNoCopy(unsigned int index, ZObject_6_0 const* obj) override
        {
            stored.push_back(numberOf(obj));
            ZArray_6_0::setNoCopy(index, obj);
        }
        Numbers stored;
    };
    RecordingArray array;
    CountedObject const object(7);
    array.set(1, &object);
    array.set(1, nullptr);
    EXPECT_EQ((Numbers{7, -1}), array.stored);
}

TEST_F(ZArray, CallsOverriddenOperations)
{
    class RecordingArray : public ZArray_6_0 {
    public:
        explicit RecordingArray(unsigned size) : ZArray_6_0(size, kOwns) {}
        void remove(unsigned int index) override
        {
            calls += "remove " + std::to_string(index) + "; ";
            ZArray_6_0::remove(index);
        }
        void removeAll() override
        {
            calls += "removeAll; ";
            ZArray_6_0::removeAll();
        }
        ZObject_6_0* get(unsigned int index) const override
        {
            calls += "get " + std::to_string(index) + "; ";
            return ZArray_6_0::get(index);
        }
        void set(unsigned int index, ZObject_6_0 const* obj) override
        {
            calls += "set " + std::to_string(index) + "; ";
            ZArray_6_0::set(index, obj);
        }
        int indexOf(ZObject_6_0 const* obj) const override
        {
            calls += "indexOf; ";
            return ZArray_6_0::indexOf(obj);
        }
        mutable std::string calls;
    };
    CountedObject const one(1), two(2);
    for (unsigned size : {2u, 3u}) {
        SCOPED_TRACE(size);
        ZArray_6_0 source(2, kOwns);
        source.set(0, &one);
        source.set(1, &two);
        RecordingArray array(size);
        array.setNoCopy(1, new CountedObject(7));

        array.ZArray_6_0::operator=(source);
        EXPECT_EQ(size == 2 ? "removeAll; remove 0; remove 1; set 0; set 1; "
                            : "removeAll; remove 0; remove 1; remove 2; set 0; set 1; ",
                  array.calls);
        EXPECT_EQ((Numbers{1, 2}), numbersOf(array));

        array.calls.clear();
        EXPECT_TRUE(array.contains(&two));
        EXPECT_EQ("indexOf; ", array.calls);
        array.calls.clear();
        ZArray_6_0 const copy(array);
        source = array;
        EXPECT_EQ("get 0; get 1; get 0; get 1; ", array.calls);
        EXPECT_EQ((Numbers{1, 2}), numbersOf(copy));
        EXPECT_EQ((Numbers{1, 2}), numbersOf(source));

        CountedObject::clonesUntilThrow = 2;
        EXPECT_THROW(array.ZArray_6_0::operator=(source), std::runtime_error);
        EXPECT_EQ((Numbers{1, -1}), numbersOf(array));
    }
}

TEST_F(ZArray, RemoveAllContinuesAfterAFailedRemove)
{
    class UnremovableFirst : public ZArray_6_0 {
    public:
        UnremovableFirst() : ZArray_6_0(3, kOwns) {}
        void remove(unsigned int index) override
        {
            if (index == 0)
                throw std::runtime_error("stays");
            ZArray_6_0::remove(index);
        }
    };
    UnremovableFirst array;
    fill(array, {1, 2, 3});
    EXPECT_THROW(array.removeAll(), std::runtime_error);
    EXPECT_EQ((Numbers{1, -1, -1}), numbersOf(array));
    // Assigning an array of another size releases the remaining object with the old slots.
    ZArray_6_0 const one(1, kOwns);
    EXPECT_THROW(array.ZArray_6_0::operator=(one), std::runtime_error);
    EXPECT_EQ((Numbers{1, -1, -1}), numbersOf(array));
}

TEST_F(ZArray, AnOwnedObjectMayBeSetAgain)
{
    ZArray_6_0 array(1, kOwns);
    array.setNoCopy(0, new CountedObject(3));
    array.set(0, array.get(0));
    EXPECT_EQ(Numbers{3}, numbersOf(array));
    EXPECT_EQ(1, CountedObject::alive);
}

TEST_F(ZArray, RemoveEmptiesTheSlotAndMovesNothing)
{
    ZArray_6_0 array(3, kOwns);
    fill(array, {1, 2, 3});
    array.remove(1);
    EXPECT_EQ((Numbers{1, -1, 3}), numbersOf(array));
    EXPECT_EQ(2, CountedObject::alive);
    array.remove(1);
    EXPECT_EQ((Numbers{1, -1, 3}), numbersOf(array));
}

TEST_F(ZArray, RemoveAllEmptiesEverySlot)
{
    ZArray_6_0 array(3, kOwns);
    fill(array, {1, -1, 3});
    array.removeAll();
    EXPECT_EQ((Numbers{-1, -1, -1}), numbersOf(array));
    EXPECT_EQ(0, CountedObject::alive);
}

TEST_F(ZArray, FindsTheFirstAndTheLastEqual)
{
    ZArray_6_0 array(6, kOwns);
    fill(array, {3, 7, 5, -1, 7, -1});
    struct Case {
        char const* name;
        int number;
        int first;
        int last;
    };
    Case const cases[] = {{"twice", 7, 1, 4},
                          {"once", 5, 2, 2},
                          {"in the first slot", 3, 0, 0},
                          {"never", 9, -1, -1}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        CountedObject const probe(c.number);
        EXPECT_EQ(c.first, array.indexOf(&probe));
        EXPECT_EQ(c.last, array.lastIndexOf(&probe));
        EXPECT_EQ(c.first >= 0, array.contains(&probe));
    }
}

TEST_F(ZArray, CallsEqualsOfTheProbe)
{
    ZArray_6_0 array(4, kOwns);
    fill(array, {-1, 1, 2, -1});
    EqualToAll const probe;
    EXPECT_EQ(1, array.indexOf(&probe));
    EXPECT_EQ(2, array.lastIndexOf(&probe));
    EXPECT_TRUE(array.contains(&probe));
}

TEST_F(ZArray, NeverFindsNull)
{
    ZArray_6_0 const array(2, kOwns);
    EXPECT_EQ(-1, array.indexOf(nullptr));
    EXPECT_EQ(-1, array.lastIndexOf(nullptr));
    EXPECT_FALSE(array.contains(nullptr));
}

TEST_F(ZArray, SwapsSlotsEmptyOnesToo)
{
    ZArray_6_0 array(3, kOwns);
    fill(array, {1, 2, -1});
    array.swap(0, 1);
    EXPECT_EQ((Numbers{2, 1, -1}), numbersOf(array));
    array.swap(2, 0);
    EXPECT_EQ((Numbers{-1, 1, 2}), numbersOf(array));
    array.swap(1, 1);
    EXPECT_EQ((Numbers{-1, 1, 2}), numbersOf(array));
}

TEST_F(ZArray, CopyHasTheOwnershipOfItsSource)
{
    ZArray_6_0 owning(3, kOwns);
    fill(owning, {1, -1, 3});
    ZArray_6_0 const owningCopy(owning);
    EXPECT_EQ(kOwns, owningCopy.ownsMembers());
    EXPECT_EQ(numbersOf(owning), numbersOf(owningCopy));
    EXPECT_NE(owning.get(0), owningCopy.get(0));
    EXPECT_EQ(4, CountedObject::alive);

    ZArray_6_0 borrowing(2, kBorrows);
    borrowing.set(1, owning.get(0));
    ZArray_6_0 const borrowingCopy(borrowing);
    EXPECT_EQ(kBorrows, borrowingCopy.ownsMembers());
    EXPECT_EQ(owning.get(0), borrowingCopy.get(1));
    EXPECT_EQ(2u, borrowingCopy.size());
}

TEST_F(ZArray, AssignmentCopiesSlotsAndContents)
{
    for (unsigned size : {1u, 3u, 5u}) {
        SCOPED_TRACE(size);
        ZArray_6_0 source(3, kOwns);
        fill(source, {1, -1, 3});
        ZArray_6_0 target(size, kOwns);
        fill(target, Numbers(size, 9));
        target = source;
        EXPECT_EQ((Numbers{1, -1, 3}), numbersOf(target));
        EXPECT_NE(source.get(0), target.get(0));
        EXPECT_EQ(4, CountedObject::alive);
    }
}

TEST_F(ZArray, AssignmentToItselfDoesNothing)
{
    ZArray_6_0 array(2, kOwns);
    fill(array, {1, 2});
    ZObject_6_0* const member = array.get(0);
    ZArray_6_0& self = array;
    array = self;
    EXPECT_EQ(member, array.get(0));
    EXPECT_EQ((Numbers{1, 2}), numbersOf(array));
}

TEST_F(ZArray, AbstractArrayCopiesNothing)
{
    ZArray_6_0 one(1, kOwns);
    ZArray_6_0 other(2, kOwns);
    ZAbstractArray_6_0& target = one;
    ZAbstractArray_6_0 const& source = other;
    target = source;
    EXPECT_EQ(1u, one.size());
}

TEST_F(ZArray, IsNotCloneable)
{
    EXPECT_EQ(nullptr, ZArray_6_0(1, kOwns).clone());
}

TEST_F(ZArray, IsUsableThroughItsInterface)
{
    ZArray_6_0 held(2, kBorrows);
    CountedObject one(1);
    ZArrayInterface_6_0& array = held;
    array.set(1, &one);
    EXPECT_EQ(2u, array.size());
    EXPECT_EQ(&one, array.get(1));
    EXPECT_EQ(1, array.indexOf(&one));
    EXPECT_EQ(1, array.lastIndexOf(&one));
    EXPECT_TRUE(array.contains(&one));
    array.swap(0, 1);
    array.remove(0);
    EXPECT_FALSE(array.contains(&one));
    array.removeAll();
}

TEST_F(ZArray, IndexOutOfRangeThrowsAndChangesNothing)
{
    CountedObject const object(9);
    using Action = void (*)(ZArray_6_0&, unsigned, CountedObject const&);
    struct Case {
        char const* name;
        unsigned site;
        Action action;
    };
    Case const cases[] = {
        {"remove", 119, [](ZArray_6_0& a, unsigned i, CountedObject const&) { a.remove(i); }},
        {"get", 139, [](ZArray_6_0& a, unsigned i, CountedObject const&) { a.get(i); }},
        {"set", 161, [](ZArray_6_0& a, unsigned i, CountedObject const& o) { a.set(i, &o); }},
        {"setNoCopy", 181,
         [](ZArray_6_0& a, unsigned i, CountedObject const& o) { a.setNoCopy(i, &o); }},
        {"swap, first", 223, [](ZArray_6_0& a, unsigned i, CountedObject const&) { a.swap(i, 0); }},
        {"swap, second", 223,
         [](ZArray_6_0& a, unsigned i, CountedObject const&) { a.swap(0, i); }},
        {"swap, both", 223, [](ZArray_6_0& a, unsigned i, CountedObject const&) { a.swap(i, i); }},
    };
    CountedObject const one(1);
    CountedObject const two(2);
    for (Case const& c : cases) {
        for (int owns : {kBorrows, kOwns}) {
            ZArray_6_0 array(2, owns);
            array.set(0, &one);
            array.set(1, &two);
            CountedObject::clonesUntilThrow = 1;  // a bad index is detected before clone()
            for (unsigned index : {2u, 3u, 0x80000000u, 0xFFFFFFFFu}) {
                SCOPED_TRACE(c.name + std::string(" ") + std::to_string(index));
                EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(
                    22, "src/Z/ZArray", c.site, [&] { c.action(array, index, object); }));
                EXPECT_EQ((Numbers{1, 2}), numbersOf(array));
            }
            CountedObject::clonesUntilThrow = 0;
        }
    }
}

TEST_F(ZArray, ACloneMayChangeTheArray)
{
    ZArray_6_0 const one(1, kOwns);
    ZArray_6_0 array(3, kOwns);
    CloneHook const object(9, [&] { array = one; });
    EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, "src/Z/ZArray", 161,
                                                       [&] { array.set(2, &object); }));
    EXPECT_EQ(Numbers{-1}, numbersOf(array));
    EXPECT_EQ(1, CountedObject::alive);

    ZArray_6_0 source(3, kOwns);
    fill(source, {1, -1, 3});
    source.setNoCopy(1, new CloneHook(2, [&] { source.remove(2); }));
    EXPECT_EQ((Numbers{1, 2, -1}), numbersOf(ZArray_6_0(source)));
}

TEST_F(ZArray, FailedCloneLeavesTheArrayUnchanged)
{
    ZArray_6_0 source(3, kOwns);
    fill(source, {4, 5, 6});
    ZArray_6_0 array(2, kOwns);
    fill(array, {1, 2});
    for (long clone : {1, 2, 3}) {
        SCOPED_TRACE(clone);
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(array = source, std::runtime_error);
        EXPECT_EQ((Numbers{1, 2}), numbersOf(array));
        CountedObject::clonesUntilThrow = clone;
        EXPECT_THROW(ZArray_6_0{source}, std::runtime_error);
        EXPECT_EQ(5, CountedObject::alive);
    }
    CountedObject::clonesUntilThrow = 1;
    EXPECT_THROW(array.set(0, source.get(0)), std::runtime_error);
    EXPECT_EQ((Numbers{1, 2}), numbersOf(array));
}

TEST_F(ZArray, FailedAllocationLeavesTheArrayUnchanged)
{
    ZArray_6_0 source(3, kOwns);
    fill(source, {4, 5, 6});
    ZArray_6_0 array(2, kOwns);
    fill(array, {1, 2});
    auto const unchanged = [&] {
        EXPECT_EQ((Numbers{1, 2}), numbersOf(array));
        EXPECT_EQ(5, CountedObject::alive);
    };
    EXPECT_LE(1u, failEachAllocation([&] { ZArray_6_0 made(8, kOwns); }, unchanged));
    EXPECT_LE(3u, failEachAllocation([&] { ZArray_6_0 copy(source); }, unchanged));
    EXPECT_LE(1u, failEachAllocation([&] { array.set(1, array.get(1)); }, unchanged));
    EXPECT_LE(3u, failEachAllocation([&] { array = source; }, unchanged));
    EXPECT_EQ((Numbers{4, 5, 6}), numbersOf(array));
}

TEST_F(ZArray, FailedAllocationReportsTheArrayAsSource)
{
    FailingAllocator::failAt(1, FailingAllocator::forEver);
    try {
        ZArray_6_0 array(8, kOwns);
        FailingAllocator::stop();
        ADD_FAILURE() << "no exception";
    } catch (ZOutOfMemoryException_6_0 const& exception) {
        FailingAllocator::stop();
        EXPECT_EQ(1u, exception.messageNumber());
        EXPECT_STREQ("src/Z/ZArray", exception.who());
        EXPECT_EQ(52u, exception.where());
    }
}

TEST_F(ZArray, FailedDestructorDoesNotKeepOtherElements)
{
    auto array = std::make_unique<ZArray_6_0>(4, kOwns);
    auto const refill = [&] {
        array->setNoCopy(0, new CountedObject(1));
        array->setNoCopy(1, new ThrowingObject(2));
        array->setNoCopy(2, new ThrowingObject(3));
        array->setNoCopy(3, new CountedObject(4));
    };
    refill();
    EXPECT_THROW(array->removeAll(), std::runtime_error);
    EXPECT_EQ(Numbers(4, -1), numbersOf(*array));
    EXPECT_EQ(0, CountedObject::alive);
    refill();
    EXPECT_THROW(array->remove(1), std::runtime_error);
    EXPECT_EQ((Numbers{1, -1, 3, 4}), numbersOf(*array));
    EXPECT_THROW(array->setNoCopy(2, new CountedObject(5)), std::runtime_error);
    EXPECT_EQ((Numbers{1, -1, 5, 4}), numbersOf(*array));
    array->removeAll();
    refill();
    EXPECT_THROW(delete array.release(), std::runtime_error);
}

TEST_F(ZArray, AgreesWithAVectorOverRandomOperations)
{
    constexpr unsigned kSeed = 31001;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    for (int owns : {kBorrows, kOwns}) {
        std::vector<CountedObject> pool;
        pool.reserve(8);
        for (int i = 0; i < 8; ++i)
            pool.emplace_back(i);
        ZArray_6_0 array(16, owns);
        Numbers model(16, -1);
        for (int step = 0; step < 100000; ++step) {
            unsigned const i = random() % 16;
            unsigned const j = random() % 16;
            CountedObject& object = pool[random() % 8];
            switch (random() % 8) {
                case 0:
                case 1:
                    array.set(i, &object);
                    model[i] = object.number();
                    break;
                case 2:
                    array.remove(i);
                    model[i] = -1;
                    break;
                case 3:
                    array.swap(i, j);
                    std::swap(model[i], model[j]);
                    break;
                case 4: {
                    auto const at = std::find(model.begin(), model.end(), object.number());
                    ASSERT_EQ(at == model.end() ? -1 : at - model.begin(), array.indexOf(&object));
                    auto const last = std::find(model.rbegin(), model.rend(), object.number());
                    ASSERT_EQ(model.rend() - last - 1, array.lastIndexOf(&object));
                    break;
                }
                case 5: {
                    ZArray_6_0 const copy(array);
                    ASSERT_EQ(model, numbersOf(copy));
                    break;
                }
                case 6: {
                    ZArray_6_0 other(1 + random() % 20, owns);
                    other = array;
                    ASSERT_EQ(model, numbersOf(other));
                    array = other;
                    break;
                }
                default:
                    if (random() % 100 == 0) {
                        array.removeAll();
                        model.assign(16, -1);
                    }
            }
            if (step % 16 == 0) {
                ASSERT_EQ(model, numbersOf(array)) << "step " << step;
            }
        }
    }
}

TEST_F(ZArray, KeepsItsOwnershipWhenAssigned)
{
    ZArray_6_0 owning(2, kOwns);
    fill(owning, {1, 2});
    ZArray_6_0 borrowing(1, kBorrows);
    borrowing = owning;
    EXPECT_EQ(kBorrows, borrowing.ownsMembers());
    EXPECT_EQ(owning.get(0), borrowing.get(0));
    ZArray_6_0 other(1, kOwns);
    other = borrowing;
    EXPECT_EQ(kOwns, other.ownsMembers());
    EXPECT_NE(owning.get(0), other.get(0));
    EXPECT_EQ(4, CountedObject::alive);
}

TEST_F(ZArray, KeepsDeletingAnObjectStoredAgain)
{
    // The storage outlives the object, so the deleted object can be constructed there again.
    struct InPlace : CountedObject {
        using CountedObject::CountedObject;
        static void operator delete(void*) {}
    };
    alignas(InPlace) char room[sizeof(InPlace)];
    auto* const object = ::new (room) InPlace(1);
    ZArray_6_0 array(1, kOwns);
    array.setNoCopy(0, object);
    array.setNoCopy(0, object);
    EXPECT_EQ(object, array.get(0));
    EXPECT_EQ(0, CountedObject::alive);
    ::new (room) InPlace(2);
}
