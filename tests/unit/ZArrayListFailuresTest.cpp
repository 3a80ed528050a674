// Failed clones, allocations and destructors.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <memory>
#include <stdexcept>

#include "FailingAllocator.h"
#include "Lists.h"
#include "Raised.h"
#include "ThrowingObject.h"

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
    EXPECT_LE(1u, failEachAllocation([] { ZArrayList_6_0 made(8, kOwns); }, unchanged));
    EXPECT_LE(3u, failEachAllocation([&] { ZArrayList_6_0 copy(source); }, unchanged));
    EXPECT_LE(3u, failEachAllocation([&] { delete source.clone(); }, unchanged));
    EXPECT_LE(1u, failEachAllocation([&] { list->set(1, list->get(1)); }, unchanged));
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
    class ThreadEndingElement : public CountedObject {
    public:
        using CountedObject::CountedObject;
        ~ThreadEndingElement() noexcept(false) override
        {
            static int result;
            pthread_exit(&result);
        }
    };
    OwningList list({1, 2});
    list.addNoCopy(0, new ThreadEndingElement(3));
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
