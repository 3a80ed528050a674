#include <Z/ZArrayStack.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "CountedObject.h"
#include "FailingAllocator.h"

TEST(ZArrayStack, PopsInReverseOrder)
{
    CountedObject one(1), two(2);
    ZArrayStack_6_0 stack(0);
    EXPECT_EQ(1u, stack.capacity());
    EXPECT_EQ(nullptr, stack.pop());
    stack.push(&one);
    stack.push(&two);
    EXPECT_EQ(2u, stack.size());
    EXPECT_EQ(&two, stack.pop());
    EXPECT_EQ(&one, stack.pop());
    EXPECT_EQ(nullptr, stack.pop());
    EXPECT_TRUE(stack.isEmpty());
}

TEST(ZArrayStack, NeitherClonesNorDeletes)
{
    CountedObject::alive = 0;
    CountedObject one(1);
    {
        ZArrayStack_6_0 stack(4);
        EXPECT_EQ(0, stack.ownsMembers());
        EXPECT_EQ(4u, stack.capacity());
        stack.push(&one);
        ZArrayStack_6_0 const copy(stack);
        ZArrayStack_6_0 assigned(1);
        assigned = stack;
        std::unique_ptr<ZObject_6_0> const clone(stack.clone());
        auto& cloned = dynamic_cast<ZArrayStack_6_0&>(*clone);
        EXPECT_EQ(&one, copy.get(0));
        EXPECT_EQ(&one, assigned.pop());
        EXPECT_EQ(&one, cloned.pop());
        EXPECT_EQ(&one, stack.get(0));
        EXPECT_EQ(1, CountedObject::alive);
    }
    EXPECT_EQ(1, CountedObject::alive);
}

TEST(ZArrayStack, PopAllEmptiesTheStack)
{
    CountedObject one(1);
    ZArrayStack_6_0 stack(1);
    stack.push(&one);
    stack.push(&one);
    ZStack_6_0& interface = stack;
    interface.popall();
    EXPECT_TRUE(stack.isEmpty());
    interface.popall();
    interface.push(&one);
    EXPECT_EQ(&one, interface.pop());
}

TEST(ZArrayStack, IsAlsoAList)
{
    CountedObject one(1), two(2);
    ZArrayStack_6_0 stack(1);
    stack.push(&one);
    ZList_6_0& list = stack;
    list.add(&two);
    EXPECT_EQ(&two, stack.pop());
    EXPECT_EQ(0, list.indexOf(&one));
}

TEST(ZArrayStack, FailedAllocationLeavesItUnchanged)
{
    CountedObject one(1), two(2);
    ZArrayStack_6_0 stack(4);
    for (int i = 0; i < 4; ++i)
        stack.push(&one);
    EXPECT_LE(1u, failEachAllocation([&] { stack.push(&two); },
                                     [&] {
                                         EXPECT_EQ(4u, stack.size());
                                         EXPECT_EQ(&one, stack.get(3));
                                     }));
    EXPECT_EQ(&two, stack.pop());
}

TEST(ZArrayStack, AgreesWithAVectorOverRandomOperations)
{
    constexpr unsigned kSeed = 31004;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    std::vector<CountedObject> pool(16);
    ZArrayStack_6_0 stack(1);
    std::vector<ZObject_6_0*> model;
    for (int step = 0; step < 100000; ++step) {
        unsigned const choice = random() % 1000;
        if (choice < 520) {
            model.push_back(&pool[random() % 16]);
            stack.push(model.back());
        } else if (choice < 999) {
            ZObject_6_0* const top = model.empty() ? nullptr : model.back();
            if (!model.empty())
                model.pop_back();
            ASSERT_EQ(top, stack.pop());
        } else {
            model.clear();
            stack.popall();
        }
        ASSERT_EQ(model.size(), stack.size());
    }
}

TEST(ZArrayStack, KeepsObjectsBelowANull)
{
    CountedObject a(1), b(2);
    ZArrayStack_6_0 stack(1);
    stack.push(&a);
    stack.push(nullptr);
    stack.push(&b);
    stack.popall();
    EXPECT_EQ(1u, stack.size());
    EXPECT_EQ(&a, stack.pop());
}
