// Sorting.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <iostream>
#include <numeric>
#include <random>
#include <stdexcept>
#include <vector>

#include "FailingAllocator.h"
#include "Lists.h"
#include "Raised.h"

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
