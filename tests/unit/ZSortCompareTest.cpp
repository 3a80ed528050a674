#include <Z/ZSortCompare.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "CountedObject.h"

TEST(ZSortCompare, OnlyOneIsAscending)
{
    EXPECT_EQ(1, ZSortCompare_6_0::ascending);
    EXPECT_NE(1, ZSortCompare_6_0::descending);
}

TEST(ZSortCompare, DefaultComparesByTheElements)
{
    CountedObject const one(1), two(2), otherTwo(2);
    ZDefaultSortCompare_6_0 const comparator;
    EXPECT_EQ(-1, comparator.sortCompare(&one, &two));
    EXPECT_EQ(0, comparator.sortCompare(&two, &otherTwo));
    EXPECT_EQ(1, comparator.sortCompare(&two, &one));
}

TEST(ZSortCompare, ThreadsShareOneDefault)
{
    constexpr int kThreads = 8;
    std::atomic<int> ready{0};
    std::vector<ZSortCompare_6_0 const*> found(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            ++ready;
            while (ready < kThreads)
                std::this_thread::yield();
            found[i] = &ZSortCompare_6_0::defaultSortCompare();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (ZSortCompare_6_0 const* comparator : found)
        EXPECT_EQ(found[0], comparator);
    EXPECT_NE(nullptr, dynamic_cast<ZDefaultSortCompare_6_0 const*>(found[0]));
}

TEST(ZSortCompare, InitMayBeCalledAgain)
{
    ZSortCompare_6_0 const& before = ZSortCompare_6_0::defaultSortCompare();
    ZSortCompare_6_0::init();
    EXPECT_EQ(&before, &ZSortCompare_6_0::defaultSortCompare());
}
