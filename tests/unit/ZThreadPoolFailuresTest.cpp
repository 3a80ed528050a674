// A pool and its sleepers when system calls fail: each call fails once, and no slot is lost and no
// thread waits forever.
#include <Z/ZException.h>
#include <Z/ZReadWriteLock.h>
#include <Z/ZSleeperThread.h>
#include <Z/ZThread.h>
#include <Z/ZThreadPool.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "FailingAllocator.h"
#include "NotedMessages.h"
#include "Raised.h"
#include "ThreadCalls.h"
#include "Threads.h"

namespace {

// The alarm ends a test that hangs.
struct Watchdog {
    Watchdog() { alarm(kHangs.count()); }
    ~Watchdog() { alarm(0); }
};

// Runs `action`; ignores the library's exceptions, because calls fail.
void attempt(std::function<void()> const& action)
{
    try {
        action();
    } catch (ZException_6_0 const&) {
    }
}

class Runner : public ZThread_6_0 {
public:
    explicit Runner(int detached = 1) : ZThread_6_0(detached, 0) {}
    void run() override { ++runs; }
    std::atomic<int> runs{0};
};

class Sleeper : public ZSleeperThread_6_0 {
public:
    using ZSleeperThread_6_0::ZSleeperThread_6_0;
    void doWork() override
    {
        if (allocationToFail > 0)
            FailingAllocator::failAt(allocationToFail);
        ++units;
    }
    void exit() override
    {
        failed = FailingAllocator::stop();
        ++exits;
    }

    unsigned long allocationToFail = 0;
    std::atomic<bool> failed{false};
    std::atomic<int> units{0};
    std::atomic<int> exits{0};
};

// Starts the maximum number of threads at the same time.
void expectAllSlotsFree(ZThreadPool_6_0& pool, int slots)
{
    class Meeting : public ZThread_6_0 {
    public:
        Meeting(std::atomic<int>& come, int all) : ZThread_6_0(1, 0), come_(come), all_(all) {}
        void run() override
        {
            ++come_;
            waitUntil([this] { return come_ == all_; });
        }

    private:
        std::atomic<int>& come_;
        int const all_;
    };
    std::atomic<int> come{0};
    std::vector<std::unique_ptr<Meeting>> threads;
    for (int i = 0; i < slots; ++i) {
        threads.push_back(std::make_unique<Meeting>(come, slots));
        pool.start(*threads.back());
    }
    pool.waitForExit();
    EXPECT_EQ(slots, come);
}

}  // namespace

TEST(ZThreadPoolFailures, NoFailedCallLosesASlotOrHangs)
{
    constexpr int kSlots = 2;
    NotedMessages const noted;
    for (ThreadCall const call : {threadCreate, mutexLock, condWait, condSignal, condBroadcast}) {
        SCOPED_TRACE(kThreadCallKinds[call].name);
        bool hasFailed = true;
        long n = 0;
        // The order of the threads decides which call is the n-th; some runs do not reach the last
        // ones.
        for (int missed = 0; missed < 3; missed += hasFailed ? 0 : 1) {
            SCOPED_TRACE(++n);
            Watchdog const watchdog;
            ZThreadPool_6_0 pool(1, kSlots);
            Sleeper sleeper;
            Runner one;
            Runner two;
            failThreadCall(call, n);
            attempt([&] { pool.start(sleeper); });
            attempt([&] { sleeper.wakeUp(); });
            attempt([&] { pool.start(one); });
            attempt([&] { pool.start(two); });
            ZThread_6_0* parked = nullptr;
            attempt([&] { pool.getAvailableIdleThread(parked); });
            attempt([&] { sleeper.wakeUp(); });
            hasFailed = stopFailingThreadCalls();
            // A sleeper that still runs works once more and is then parked.
            sleeper.wakeUp();
            pool.waitForExit();
            expectAllSlotsFree(pool, kSlots);
            attempt([&] { sleeper.waitForExit(); });
            EXPECT_LE(sleeper.exits, 1);
        }
        EXPECT_LT(call == threadCreate ? 2 : 3, n);
    }
}

TEST(ZThreadPoolFailures, ASleeperWithoutMemoryFreesItsSlot)
{
    NotedMessages const noted;
    // The list of parked sleepers allocates; so may other steps.
    bool hasFailed = true;
    for (unsigned long n = 1; hasFailed; ++n) {
        SCOPED_TRACE(n);
        Watchdog const watchdog;
        ZThreadPool_6_0 pool(1, 1);
        Sleeper sleeper;
        sleeper.allocationToFail = n;
        pool.start(sleeper);
        sleeper.wakeUp();
        pool.waitForExit();
        attempt([&] { sleeper.ZThread_6_0::waitForExit(); });
        hasFailed = sleeper.failed;
        EXPECT_EQ(1, sleeper.units);
        EXPECT_EQ(1, sleeper.exits);
        expectAllSlotsFree(pool, 1);
    }
}

TEST(ZThreadPoolFailures, FailedConstructionsLeakNothing)
{
    auto const unchanged = [] {};
    EXPECT_LE(1u, failEachAllocation([] { ZThreadPool_6_0 const pool(2, 3); }, unchanged));
    EXPECT_LE(1u, failEachAllocation([] { Sleeper const sleeper; }, unchanged));
    EXPECT_LE(1u, failEachAllocation([] { ZReadWriteLock_6_0 const lock; }, unchanged));
    ZReadWriteLock_6_0 const lock;
    EXPECT_LE(1u, failEachAllocation([&] { delete lock.clone(); }, unchanged));
    long const before = FailingAllocator::blocks();
    failThreadCall(mutexInit, 1);
    EXPECT_TRUE(raises<ZThreadException_6_0>(3, ENOMEM, "src/Z/ZThreadPool", 52,
                                             [] { ZThreadPool_6_0 const pool(1, 1); }));
    failThreadCall(condInit, 1);
    EXPECT_TRUE(raises<ZThreadException_6_0>(7, EAGAIN, "src/Z/ZThreadPool", 58,
                                             [] { ZThreadPool_6_0 const pool(1, 1); }));
    stopFailingThreadCalls();
    EXPECT_EQ(before, FailingAllocator::blocks());
}

TEST(ZThreadPoolFailures, AFailureToBeDestroyedIsOnlyReported)
{
    struct Case {
        ThreadCall call;
        int message;
        int site;
    };
    Case const cases[] = {{mutexDestroy, 4, 71}, {condDestroy, 8, 76}};
    for (Case const& c : cases) {
        SCOPED_TRACE(kThreadCallKinds[c.call].name);
        NotedMessages const noted;
        auto pool = std::make_unique<ZThreadPool_6_0>(1, 1);
        failThreadCall(c.call, 1);
        pool.reset();
        EXPECT_TRUE(stopFailingThreadCalls());
        ASSERT_EQ(1u, noted.messages().size());
        EXPECT_EQ("src/Z/ZThreadPool", noted.messages()[0].file);
        EXPECT_EQ(c.message, noted.messages()[0].number);
        EXPECT_EQ(c.site, noted.messages()[0].line);
        EXPECT_EQ(std::to_string(EBUSY), noted.messages()[0].inserts[0]);
    }
}

TEST(ZThreadPoolFailures, MutexFailuresThrow)
{
    ZThreadPool_6_0 pool(1, 1);
    Runner thread;
    ZThread_6_0* parked = nullptr;
    int keep = 7;
    std::function<void()> const calls[] = {[&] { pool.start(thread); }, [&] { pool.waitForExit(); },
                                           [&] { pool.getAvailableIdleThread(parked); },
                                           [&] { pool.threadDoneNotification(thread, keep); }};
    for (auto const& call : calls) {
        failThreadCall(mutexLock, 1);
        EXPECT_TRUE(raises<ZThreadException_6_0>(5, EAGAIN, "src/Z/ZThreadPool", 97, call));
        stopFailingThreadCalls();
    }
    EXPECT_EQ(0, keep);
    EXPECT_EQ(0, thread.runs);
    failThreadCall(mutexUnlock, 1);
    EXPECT_TRUE(raises<ZThreadException_6_0>(6, EPERM, "src/Z/ZThreadPool", 109,
                                             [&] { pool.waitForExit(); }));
    stopFailingThreadCalls();
    failThreadCall(mutexUnlock, 1);
    EXPECT_TRUE(raises<ZThreadException_6_0>(6, EPERM, "src/Z/ZThreadPool", 109,
                                             [&] { pool.getAvailableIdleThread(parked); }));
    stopFailingThreadCalls();
    expectAllSlotsFree(pool, 1);
}

TEST(ZThreadPoolFailures, AFailedStartFreesItsSlotForWaitingThreads)
{
    Watchdog const watchdog;
    NotedMessages const noted;
    // One slot, taken. Three threads wait for it, and two of their starts fail.
    ZThreadPool_6_0 pool(0, 1);
    std::atomic<bool> release{false};
    class Holder : public ZThread_6_0 {
    public:
        explicit Holder(std::atomic<bool>& release) : ZThread_6_0(1, 0), release_(release) {}
        void run() override
        {
            waitUntil([this] { return release_.load(); });
        }

    private:
        std::atomic<bool>& release_;
    } holder(release);
    class Unstartable : public Runner {
    public:
        void start() override { ZUnsupportedException_6_0().throwException("src/x", 1); }
    };
    Unstartable bad[2];
    Runner good;
    pool.start(holder);
    std::vector<std::thread> starters;
    WatchedThread watched[3];
    ZThread_6_0* const threads[] = {&bad[0], &good, &bad[1]};
    for (int i = 0; i < 3; ++i)
        starters.emplace_back([&, i] {
            watched[i].enter();
            pool.start(*threads[i]);
        });
    for (WatchedThread const& starter : watched)
        starter.waitUntilAsleep();
    release = true;
    for (std::thread& starter : starters)
        starter.join();
    pool.waitForExit();
    EXPECT_EQ(1, good.runs);
    EXPECT_EQ(2, noted.exceptions());
}

TEST(ZThreadPoolFailures, AStartThatFailsAfterCreatingItsThreadHoldsItsSlot)
{
    Watchdog const watchdog;
    NotedMessages const noted;
    class Late : public Runner {
    public:
        void start() override
        {
            Runner::start();
            ZUnsupportedException_6_0().throwException("src/x", 1);
        }
    } thread;
    ZThreadPool_6_0 pool(1, 1);
    pool.start(thread);
    pool.waitForExit();
    EXPECT_EQ(1, thread.runs);
    expectAllSlotsFree(pool, 1);
}

TEST(ZThreadPoolFailures, AFailedReleaseIsReportedDuringUnwinding)
{
    NotedMessages const noted;
    constexpr int kSlots = 17;
    ZThreadPool_6_0 pool(kSlots, kSlots);
    Runner threads[kSlots];
    int keep = 0;
    // The list of parked sleepers has this capacity at first.
    for (int i = 0; i < 16; ++i)
        pool.threadDoneNotification(threads[i], keep);
    EXPECT_EQ(1, keep);
    failThreadCall(mutexUnlock, 1);
    FailingAllocator::failAt(1);
    EXPECT_THROW(pool.threadDoneNotification(threads[16], keep), ZOutOfMemoryException_6_0);
    EXPECT_TRUE(FailingAllocator::stop());
    EXPECT_TRUE(stopFailingThreadCalls());
    EXPECT_EQ(0, keep);
    ASSERT_EQ(1u, noted.messages().size());
    EXPECT_EQ(6, noted.messages()[0].number);
    EXPECT_EQ(109, noted.messages()[0].line);
    EXPECT_EQ(std::to_string(EPERM), noted.messages()[0].inserts[0]);
    expectAllSlotsFree(pool, kSlots);
}

TEST(ZThreadPoolFailures, AnOverriddenStartMayThrowAnything)
{
    Watchdog const watchdog;
    class Foreign : public Runner {
    public:
        void start() override { throw 5; }
    } thread;
    NotedMessages const noted;
    ZThreadPool_6_0 pool(1, 1);
    pool.start(thread);
    ASSERT_EQ(1u, noted.messages().size());
    EXPECT_EQ(19, noted.messages()[0].number);
    EXPECT_EQ(148, noted.messages()[0].line);
    // The slot is freed even if waking the waiting threads fails.
    failThreadCall(condSignal, 1);
    pool.start(thread);
    EXPECT_TRUE(stopFailingThreadCalls());
    ASSERT_EQ(3u, noted.messages().size());
    EXPECT_EQ(10, noted.messages()[2].number);
    EXPECT_EQ(208, noted.messages()[2].line);
    EXPECT_EQ(std::to_string(EINVAL), noted.messages()[2].inserts[0]);
    expectAllSlotsFree(pool, 1);
}

TEST(ZThreadPoolFailures, ACancelledStartFreesItsSlot)
{
    Watchdog const watchdog;
    class Cancelling : public Runner {
    public:
        void start() override
        {
            pthread_cancel(pthread_self());
            pthread_testcancel();
        }
    } thread;
    ZThreadPool_6_0 pool(1, 1);
    CancellableThread starter([&] { pool.start(thread); });
    EXPECT_TRUE(starter.endsCancelled());
    expectAllSlotsFree(pool, 1);
}

TEST(ZThreadPoolFailures, WaitsMayEndInADifferentOrder)
{
    Watchdog const watchdog;
    class Slow : public Sleeper {
    public:
        void waitForExit() override
        {
            shutDown = true;
            waitUntil([this] { return released.load(); });
            Sleeper::waitForExit();
            threadCalls.wakes = &left;
        }
        std::atomic<bool> shutDown{false};
        std::atomic<bool> released{false};
        std::atomic<bool> left{false};  // set when the sleeper's end is reported to the waiting
                                        // threads
    } sleepers[2];
    ZThreadPool_6_0 pool(2, 2);
    for (Slow& sleeper : sleepers) {
        pool.start(sleeper);
        sleeper.wakeUp();
        waitUntil([&] { return sleeper.units == 1; });
        sleeper.reset();  // waits until the sleeper sleeps and is parked
    }
    std::vector<std::thread> waiting;
    for (Slow& sleeper : sleepers) {
        waiting.emplace_back([&] { pool.waitForExit(); });
        waitUntil([&] { return sleeper.shutDown.load(); });
    }
    for (Slow& sleeper : sleepers) {
        sleeper.released = true;
        waitUntil([&] { return sleeper.left.load(); });
    }
    for (std::thread& one : waiting)
        one.join();
    expectAllSlotsFree(pool, 2);
}

TEST(ZThreadPoolFailures, AMutexThatCannotBeRelockedEndsTheWait)
{
    class Arming : public Sleeper {
    public:
        void waitForExit() override
        {
            Sleeper::waitForExit();
            failThreadCall(mutexLock, 1);
            if (cancels) {
                pthread_cancel(pthread_self());
                pthread_testcancel();
            }
        }
        bool cancels = false;
    } sleeper;
    for (bool cancels : {false, true}) {
        SCOPED_TRACE(cancels);
        Watchdog const watchdog;
        NotedMessages const noted;
        ZThreadPool_6_0 pool(1, 1);
        sleeper.cancels = cancels;
        sleeper.units = 0;
        pool.start(sleeper);
        sleeper.wakeUp();
        waitUntil([&] { return sleeper.units == 1; });
        sleeper.reset();  // waits until the sleeper sleeps and is parked
        if (cancels) {
            CancellableThread waiting([&] { pool.waitForExit(); });
            EXPECT_TRUE(waiting.endsCancelled());
        } else {
            EXPECT_TRUE(raises<ZThreadException_6_0>(5, EAGAIN, "src/Z/ZThreadPool", 97,
                                                     [&] { pool.waitForExit(); }));
        }
        EXPECT_TRUE(stopFailingThreadCalls());
        EXPECT_EQ(cancels ? 1 : 0, noted.exceptions());
        expectAllSlotsFree(pool, 1);
    }
}

TEST(ZThreadPoolFailures, ASleeperReportsFailuresAtItsEnd)
{
    Watchdog const watchdog;
    class Arming : public Sleeper {
    public:
        void doWork() override
        {
            if (++units > 1)
                return;
            failThreadCall(mutexLock, 1);
            ZUnsupportedException_6_0().throwException("src/x", 1);
        }
    };
    NotedMessages const noted;
    {
        Arming sleeper;
        sleeper.start();
        sleeper.wakeUp();
        waitUntil([&] { return sleeper.exits == 1; });
        EXPECT_TRUE(stopFailingThreadCalls());
        EXPECT_EQ(2, noted.exceptions());
        sleeper.waitForExit();
        // The failed work is done; a wake-up before the start is still pending.
        sleeper.wakeUp();
        sleeper.start();
        waitUntil([&] { return sleeper.units == 2; });
        sleeper.waitForExit();
        EXPECT_EQ(2, sleeper.exits);
    }
    auto sleeper = std::make_unique<Sleeper>();
    failThreadCall(mutexLock, 1);
    sleeper.reset();
    EXPECT_TRUE(stopFailingThreadCalls());
    EXPECT_EQ(3, noted.exceptions());
}

TEST(ZThreadPoolFailures, ASleeperIgnoresSpuriousWakeUps)
{
    Watchdog const watchdog;
    class Waking : public Sleeper {
    public:
        void doWork() override
        {
            threadCalls.earlyWaits = 3;
            Sleeper::doWork();
        }
    } sleeper;
    sleeper.start();
    for (int i = 1; i <= 2; ++i) {
        sleeper.wakeUp();
        waitUntil([&] { return sleeper.units == i; });
        sleeper.reset();  // waits until the sleeper sleeps
        EXPECT_EQ(i, sleeper.units);
    }
    sleeper.waitForExit();
    EXPECT_EQ(2, sleeper.units);
}

// Its start() has not yet returned.
TEST(ZThreadPoolFailures, ASleeperThatDeletesItselfWaitsForItsStart)
{
    Watchdog const watchdog;
    class Short : public ZSleeperThread_6_0 {
    public:
        Short(std::atomic<bool>& ended, WatchedThread& thread)
            : ZSleeperThread_6_0(1, 1), ended_(ended), thread_(thread)
        {
        }
        ~Short() override { ended_ = true; }
        void doWork() override
        {
            thread_.enter();
            ZUnsupportedException_6_0().throwException("src/x", 1);
        }

    private:
        std::atomic<bool>& ended_;
        WatchedThread& thread_;
    };
    NotedMessages const noted;
    std::atomic<bool> ended{false};
    WatchedThread thread;
    auto* const sleeper = new Short(ended, thread);
    sleeper->wakeUp();
    withholdsBroadcast = true;
    sleeper->start();
    EXPECT_FALSE(withholdsBroadcast);
    EXPECT_EQ(nullptr, withheldCondition);
    EXPECT_TRUE(ended) << "it has waited";
    EXPECT_EQ(1, noted.exceptions());
    thread.waitUntilEnded();  // it may still be using the object
}

TEST(ZThreadPoolFailures, AFailedThreadCreationLeavesThePreviousThreadJoinable)
{
    Runner thread(0);
    thread.start();
    failThreadCall(threadCreate, 1);
    EXPECT_TRUE(
        raises<ZThreadException_6_0>(17, EAGAIN, "src/Z/ZThread", 124, [&] { thread.start(); }));
    stopFailingThreadCalls();
    thread.waitForExit();
    EXPECT_EQ(1, thread.runs);
}
