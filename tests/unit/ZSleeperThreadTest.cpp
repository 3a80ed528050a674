#include <Z/ZCondition.h>
#include <Z/ZException.h>
#include <Z/ZSleeperThread.h>
#include <Z/ZThreadPool.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "NotedMessages.h"
#include "Raised.h"
#include "Threads.h"

namespace {

using Clock = std::chrono::steady_clock;

// Counts its units of work.
class TestSleeper : public ZSleeperThread_6_0 {
public:
    using ZSleeperThread_6_0::ZSleeperThread_6_0;
    ~TestSleeper() override { ++destroyed; }
    void doWork() override
    {
        if (work)
            work();
        ++units;
    }
    void exit() override
    {
        thread.enter();
        ++exits;
    }

    WatchedThread thread;  // the thread that ended last
    std::function<void()> work;
    std::atomic<int> units{0};
    std::atomic<int> exits{0};
    static inline std::atomic<int> destroyed{0};
};

}  // namespace

TEST(ZSleeperThread, WorksWhenWoken)
{
    TestSleeper sleeper;
    sleeper.start();
    EXPECT_EQ(0, sleeper.units);
    for (int i = 1; i <= 100; ++i) {
        sleeper.wakeUp();
        waitUntil([&] { return sleeper.units == i; });
    }
    sleeper.waitForExit();
    EXPECT_EQ(100, sleeper.units);
    EXPECT_EQ(1, sleeper.exits);
}

TEST(ZSleeperThread, AWakeUpBeforeTheStartIsNotLost)
{
    TestSleeper sleeper;
    sleeper.wakeUp();
    sleeper.start();
    waitUntil([&] { return sleeper.units == 1; });
    sleeper.waitForExit();
}

TEST(ZSleeperThread, WakeUpsDuringTheWorkStartOneUnit)
{
    TestSleeper sleeper;
    std::atomic<bool> working{false};
    std::atomic<bool> release{false};
    sleeper.work = [&] {
        working = true;
        waitUntil([&] { return release.load(); });
    };
    sleeper.start();
    sleeper.wakeUp();
    waitUntil([&] { return working.load(); });
    std::thread one([&] { sleeper.wakeUp(); });
    std::thread two([&] { sleeper.wakeUp(); });
    release = true;
    one.join();
    two.join();
    waitUntil([&] { return sleeper.units >= 2; });
    sleeper.waitForExit();
    EXPECT_GE(sleeper.units, 2);
    EXPECT_LE(sleeper.units, 3);
}

TEST(ZSleeperThread, WakeUpsBeforeTheWorkStartOneUnit)
{
    ZLock_6_0 lock;
    TestSleeper sleeper(lock);
    sleeper.start();
    {
        ZResourceLock_6_0 const guard(lock);
        for (int i = 0; i < 3; ++i)
            sleeper.wakeUp();
    }
    waitUntil([&] { return sleeper.units >= 1; });
    sleeper.wakeUp();  // waits until the sleeper sleeps
    waitUntil([&] { return sleeper.units >= 2; });
    sleeper.waitForExit();
    EXPECT_EQ(2, sleeper.units);
}

TEST(ZSleeperThread, WorksAtItsInterval)
{
    TestSleeper sleeper(1ul);
    Clock::time_point const before = Clock::now();
    sleeper.start();
    waitUntil([&] { return sleeper.units >= 3; });
    auto const passed = Clock::now() - before;
    sleeper.waitForExit();
    // Whole seconds of the real-time clock: the first may be short.
    EXPECT_GE(passed, std::chrono::milliseconds(1900));
    EXPECT_LE(passed, kHangs);
}

TEST(ZSleeperThread, TheLongestIntervalDoesNotOverflow)
{
    for (unsigned long interval : {~0ul, ~0ul / 2, ~0ul / 2 + 1}) {
        SCOPED_TRACE(interval);
        TestSleeper sleeper(interval);
        sleeper.start();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(0, sleeper.units);
        sleeper.wakeUp();
        waitUntil([&] { return sleeper.units >= 1; });
        sleeper.waitForExit();
    }
}

TEST(ZSleeperThread, MayBeStartedAgain)
{
    TestSleeper sleeper;
    for (int i = 1; i <= 20; ++i) {
        sleeper.start();
        sleeper.wakeUp();
        waitUntil([&] { return sleeper.units == i; });
        sleeper.waitForExit();
        EXPECT_EQ(i, sleeper.exits);
    }
}

TEST(ZSleeperThread, ADetachedSleeperEndsAndMayBeStartedAgain)
{
    TestSleeper sleeper(1, 0);
    for (int i = 1; i <= 20; ++i) {
        sleeper.start();
        sleeper.waitForExit();
        waitUntil([&] { return sleeper.exits == i; });
    }
    sleeper.thread.waitUntilEnded();  // it may still be using the object
}

// No loop runs, so no thread would reset the request to end.
TEST(ZSleeperThread, WaitingForADetachedSleeperThatDoesNotRunChangesNothing)
{
    TestSleeper sleeper(1, 0);
    for (int i = 1; i <= 20; ++i) {
        sleeper.waitForExit();
        sleeper.start();
        sleeper.wakeUp();
        waitUntil([&] { return sleeper.units == i || sleeper.exits == i; });
        EXPECT_EQ(i, sleeper.units);
        sleeper.waitForExit();
        waitUntil([&] { return sleeper.exits == i; });
    }
    sleeper.thread.waitUntilEnded();  // it may still be using the object
}

TEST(ZSleeperThread, ADetachedSleeperDeletesItself)
{
    TestSleeper::destroyed = 0;
    for (int i = 1; i <= 20; ++i) {
        auto* const sleeper = new TestSleeper(1, 1);
        sleeper->start();
        sleeper->waitForExit();
        waitUntil([&] { return TestSleeper::destroyed == i; });
    }
}

TEST(ZSleeperThread, SleepsOnTheLockOfTheCaller)
{
    ZLock_6_0 lock;
    TestSleeper sleeper(lock);
    std::atomic<bool> held{false};
    sleeper.work = [&] {
        // The sleeper holds the wake lock during the work, and its thread may lock it again.
        lock.lock();
        held = true;
        lock.unlock();
    };
    sleeper.start();
    sleeper.wakeUp();
    waitUntil([&] { return sleeper.units == 1; });
    EXPECT_TRUE(held);
    sleeper.waitForExit();
}

TEST(ZSleeperThread, WorkThatThrowsEndsTheThread)
{
    NotedMessages noted;
    TestSleeper sleeper;
    sleeper.work = [] { ZUnsupportedException_6_0().throwException("src/x", 1); };
    sleeper.start();
    sleeper.wakeUp();
    waitUntil([&] { return sleeper.exits == 1; });
    sleeper.waitForExit();
    EXPECT_EQ(1, noted.exceptions());
    EXPECT_EQ(0, sleeper.units);
}

TEST(ZSleeperThread, TheNextStartDoesNotRepeatWorkThatThrew)
{
    NotedMessages const noted;
    TestSleeper sleeper;
    std::atomic<int> begun{0};
    sleeper.work = [&] {
        if (++begun == 1)
            throw 5;
    };
    sleeper.start();
    sleeper.wakeUp();
    waitUntil([&] { return sleeper.exits == 1; });
    sleeper.waitForExit();
    sleeper.start();
    sleeper.waitForExit();
    EXPECT_EQ(1, begun);
    // A wake-up between the two starts is not lost.
    sleeper.wakeUp();
    sleeper.start();
    waitUntil([&] { return sleeper.units == 1; });
    sleeper.waitForExit();
    EXPECT_EQ(2, begun);
}

TEST(ZSleeperThread, TheNextStartDoesNotRepeatWorkThatWasCancelled)
{
    TestSleeper sleeper;
    std::atomic<int> begun{0};
    sleeper.work = [&] {
        // Not pause(): ThreadSanitizer does not see the end of a call that is cancelled.
        if (++begun == 1)
            for (;;)
                pthread_testcancel();
    };
    sleeper.start();
    sleeper.wakeUp();
    waitUntil([&] { return begun == 1; });
    pthread_cancel(sleeper.getPThreadID());
    waitUntil([&] { return sleeper.exits == 1; });
    sleeper.waitForExit();
    sleeper.start();
    sleeper.waitForExit();
    EXPECT_EQ(1, begun);
}

// A wakeUp() that waits for a unit of work to end starts the next unit, even if the work throws.
TEST(ZSleeperThread, AWakeUpDuringWorkThatThrowsIsKeptForTheNextStart)
{
    NotedMessages const noted;
    TestSleeper sleeper;
    std::atomic<int> begun{0};
    std::atomic<bool> mayThrow{false};
    sleeper.work = [&] {
        if (++begun == 1) {
            waitUntil([&] { return mayThrow.load(); });
            throw 5;
        }
    };
    sleeper.start();
    sleeper.wakeUp();
    waitUntil([&] { return begun == 1; });
    std::future<void> const woken = std::async(std::launch::async, [&] { sleeper.wakeUp(); });
    EXPECT_TRUE(staysBlocked(woken));
    mayThrow = true;
    woken.wait();
    waitUntil([&] { return sleeper.exits == 1; });
    sleeper.waitForExit();
    sleeper.start();
    waitUntil([&] { return sleeper.units == 1; });
    sleeper.waitForExit();
    EXPECT_EQ(2, begun);
}

TEST(ZSleeperThread, KeepsNoWakeUpOfItsOwnWork)
{
    TestSleeper sleeper;
    sleeper.work = [&] {
        if (sleeper.units < 100)
            sleeper.wakeUp();
    };
    sleeper.start();
    for (int i = 1; i <= 3; ++i) {
        sleeper.wakeUp();  // waits until the sleeper sleeps
        waitUntil([&] { return sleeper.units >= i; });
    }
    sleeper.waitForExit();
    EXPECT_EQ(3, sleeper.units);
}

// The loop may end before start() checks whether it has started.
TEST(ZSleeperThread, MayEndBeforeItsStartReturns)
{
    ZThreadPool_6_0 pool(0, 1);
    for (int i = 1; i <= 200; ++i) {
        TestSleeper sleeper(1, 0);
        sleeper.wakeUp();
        pool.start(sleeper);
        pool.waitForExit();
        EXPECT_EQ(1, sleeper.units);
        EXPECT_EQ(1, sleeper.exits);
    }
}

TEST(ZSleeperThread, WaitingForASleeperThatDoesNotRunThrowsAndChangesNothing)
{
    TestSleeper sleeper;
    for (int i = 1; i <= 2; ++i) {
        EXPECT_TRUE(raises<ZThreadException_6_0>(20, ESRCH, "src/Z/ZThread", 151,
                                                 [&] { sleeper.waitForExit(); }));
        sleeper.start();
        sleeper.wakeUp();
        waitUntil([&] { return sleeper.units == i; });
        sleeper.waitForExit();
    }
}

// Sleepers that are parked, woken by their interval and shut down, all at the same time.
TEST(ZSleeperThread, WaitingForAPoolEndsParkedSleepersThatDeleteThemselves)
{
    TestSleeper::destroyed = 0;
    constexpr int kSleepers = 8;
    {
        ZThreadPool_6_0 pool(kSleepers, kSleepers);
        std::atomic<int> units{0};
        for (int i = 0; i < kSleepers; ++i) {
            auto* const sleeper = new TestSleeper(1, 1, 1);
            sleeper->work = [&] { ++units; };
            pool.start(*sleeper);
        }
        waitUntil([&] { return units >= kSleepers; });
        pool.waitForExit();
        waitUntil([&] { return TestSleeper::destroyed == kSleepers; });
    }
}
