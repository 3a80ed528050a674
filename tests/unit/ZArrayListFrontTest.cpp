// Insertion and removal in the first half of a list, which moves the elements before the index.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <random>
#include <vector>

#include "FailingAllocator.h"
#include "LinearTime.h"

namespace {

constexpr int kBorrows = 0;

// Objects that differ only in their addresses.
std::vector<ZObject_6_0> objects(1000);

ZObject_6_0* object(unsigned number)
{
    return &objects[number % objects.size()];
}

using Elements = std::vector<ZObject_6_0*>;

// A list as a vector, with the capacity that the list reports.
struct Model {
    Elements elements;
    unsigned capacity = 1;

    void insert(unsigned index, ZObject_6_0* element)
    {
        if (elements.size() == capacity)
            capacity += std::max(capacity / 2, 1u);
        elements.insert(elements.begin() + index, element);
    }
    void remove(unsigned index) { elements.erase(elements.begin() + index); }
};

Elements elementsOf(ZArrayList_6_0 const& list)
{
    Elements elements;
    for (unsigned i = 0; i < list.size(); ++i)
        elements.push_back(list.get(i));
    return elements;
}

// An index that is often the first or the last, and otherwise in the first half if `isFirstHalf`.
unsigned randomIndex(std::mt19937& random, size_t size, bool isFirstHalf)
{
    auto const end = static_cast<unsigned>(size);
    switch (random() % 4) {
        case 0:
            return 0;
        case 1:
            return end;
        default:
            return random() % (isFirstHalf ? end / 2 + 1 : end + 1);
    }
}

// One random operation on both.
void operate(std::mt19937& random, ZArrayList_6_0& list, Model& model, bool grows, bool isFirstHalf)
{
    auto const size = static_cast<unsigned>(model.elements.size());
    unsigned const index = randomIndex(random, size, isFirstHalf);
    ZObject_6_0* const element = object(random());
    if (random() % 2000 == 0) {
        list.removeAll();
        model.elements.clear();
    } else if (random() % 1000 == 0) {
        ZArrayList_6_0 const copy(list);
        ASSERT_EQ(list.capacity(), copy.capacity());
        list = copy;
    } else if (random() % 8 < (grows ? 5u : 3u)) {
        if (index == size && random() % 2 == 0)
            list.add(element);
        else
            list.add(index, element);
        model.insert(index, element);
    } else if (index < size) {
        list.remove(index);
        model.remove(index);
    } else if (size > 0) {
        list.swap(0, size - 1);
        std::swap(model.elements.front(), model.elements.back());
    }
}

template <class List>
void expectSameAsModel(unsigned seed)
{
    std::mt19937 random(seed);
    for (int round = 0; round < 20; ++round) {
        List list;
        Model model;
        for (int step = 0; step < 10000; ++step) {
            bool const grows = step / 1000 % 3 != 2;
            bool const isFirstHalf = step / 500 % 2 == 0;
            ASSERT_NO_FATAL_FAILURE(operate(random, list, model, grows, isFirstHalf));
            ASSERT_EQ(model.elements.size(), list.size());
            ASSERT_EQ(model.capacity, list.capacity());
            if (step % 50 == 0) {
                ASSERT_EQ(model.elements, elementsOf(list)) << "round " << round;
            }
        }
        ASSERT_EQ(model.elements, elementsOf(list)) << "round " << round;
    }
}

struct Plain : ZArrayList_6_0 {
    Plain() : ZArrayList_6_0(1, kBorrows) {}
};

// Not of a derived class, so that add() may fill slots inline.
struct Exact {
    ZArrayList_6_0 list{1, kBorrows};
    operator ZArrayList_6_0&() { return list; }
    operator ZArrayList_6_0 const&() const { return list; }
    unsigned size() const { return list.size(); }
    unsigned capacity() const { return list.capacity(); }
};

}  // namespace

TEST(ZArrayListFront, RandomOperationsGiveTheElementsAndTheCapacityOfTheModel)
{
    constexpr unsigned kSeed = 31021;
    std::cout << "seed " << kSeed << "\n";
    expectSameAsModel<Exact>(kSeed);
    expectSameAsModel<Plain>(kSeed);
}

TEST(ZArrayListFront, AQueueKeepsItsElementsInOrder)
{
    for (unsigned length : {1u, 7u, 8u, 9u, 100u, 1000u}) {
        ZArrayList_6_0 list(length, kBorrows);
        unsigned next = 0;
        for (; next < length; ++next)
            list.add(object(next));
        for (; next < 20 * length; ++next) {
            ASSERT_EQ(object(next - length), list.get(0));
            list.remove(0u);
            list.add(object(next));
            ASSERT_EQ(object(next), list.get(length - 1));
        }
        EXPECT_EQ(length, list.size());
        EXPECT_EQ(length, list.capacity());
    }
}

TEST(ZArrayListFront, AListWithinItsCapacityNeedsNoMemory)
{
    ZArrayList_6_0 list(200, kBorrows);
    Elements model;
    FailingAllocator::failAt(1, FailingAllocator::forEver);
    std::mt19937 random(31022);
    for (int step = 0; step < 20000; ++step) {
        // Fills the list to its capacity, then empties it, by turns.
        auto const size = static_cast<unsigned>(list.size());
        if (step / 300 % 2 == 0 && size < 200) {
            unsigned const index = random() % 3 == 0 ? 0 : size;
            list.add(index, object(static_cast<unsigned>(step)));
        } else if (size > 0) {
            list.remove(random() % 2 == 0 ? 0u : size - 1);
        }
    }
    FailingAllocator::stop();
    EXPECT_EQ(200u, list.capacity());
}

TEST(ZArrayListFront, FailedAllocationForAFullListChangesNoElement)
{
    for (unsigned length = 8; length < 120; ++length) {
        ZArrayList_6_0 list(length, kBorrows);
        Elements before;
        for (unsigned i = 0; i < length; ++i) {
            list.add(object(i));
            before.push_back(object(i));
        }
        FailingAllocator::failAt(1, FailingAllocator::forEver);
        EXPECT_THROW(list.add(0, object(999)), ZOutOfMemoryException_6_0);
        FailingAllocator::stop();
        ASSERT_EQ(before, elementsOf(list));
        list.add(0, object(999));
        before.insert(before.begin(), object(999));
        EXPECT_EQ(before, elementsOf(list));
    }
}

TEST(ZArrayListFront, InsertionAndRemovalAtTheFrontTakeConstantTime)
{
    EXPECT_TRUE(takesLinearTime(4000, [](size_t count) {
        return [count] {
            ZArrayList_6_0 list(1, kBorrows);
            for (unsigned i = 0; i < count; ++i)
                list.add(0, object(i));
            while (list.size() > 0)
                list.remove(0u);
        };
    }));
}

TEST(ZArrayListFront, TheSizeOfAListIsBinaryInterface)
{
    EXPECT_EQ(48u, sizeof(ZArrayList_6_0));
}
