#include <Z/ZCondition.h>
#include <Z/ZException.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "NotedMessages.h"
#include "Raised.h"
#include "ThreadCalls.h"
#include "Threads.h"

namespace {

constexpr char kSource[] = "src/Z/ZCondition";
enum Site {
    siteInConstructor = 52,
    siteInDestructor = 68,
    siteInWait = 121,
    siteInSignal = 136,
    siteInBroadcast = 150,
    siteInValidateLock = 164
};

// If true, the allocations of objects fail in this thread.
thread_local bool newFails = false;

template <class Exception, class Action>
void expectFailure(Action action, uint32_t number, int rc, unsigned site)
{
    EXPECT_TRUE(raises<Exception>(number, rc, kSource, site, action));
}

template <class Action>
void expectNotHolder(Action action)
{
    threadCalls.count[condWait] = 0;
    threadCalls.count[condTimedWait] = 0;
    expectFailure<ZLockResourceException_6_0>(action, 5, 0, siteInValidateLock);
    EXPECT_EQ(0, threadCalls.count[condWait]);
    EXPECT_EQ(0, threadCalls.count[condTimedWait]);
}

void expectReported(NotedMessages const& noted, int site, int number, std::string const& rc)
{
    ASSERT_EQ(1u, noted.messages().size());
    NotedMessages::Message const message = noted.messages()[0];
    EXPECT_EQ(kSource, message.file);
    EXPECT_EQ(site, message.line);
    EXPECT_EQ(number, message.number);
    EXPECT_EQ(1, message.insertCount);
    std::vector<std::string> const inserts = {rc, "(null)", "(null)", "(null)", "(null)", "(null)"};
    EXPECT_EQ(inserts, message.inserts);
}

// Unlocks until unlock() throws; returns the number of successful calls.
template <class Lock>
int depthOf(Lock& lock)
{
    for (int depth = 0;; ++depth) {
        try {
            lock.unlock();
        } catch (ZUnlockResourceException_6_0 const&) {
            return depth;
        }
    }
}

// A condition whose hook counts its calls and runs an action of the test.
class Hooked : public ZCondition_6_0 {
public:
    using ZCondition_6_0::ZCondition_6_0;
    void waitTimedOut() override
    {
        ++timeOuts;
        try {
            validateLock();
            heldInHook = true;
        } catch (ZLockResourceException_6_0 const&) {
        }
        if (throws)
            throw std::runtime_error("hook");
    }

    int timeOuts = 0;
    bool heldInHook = false;
    bool throws = false;
};

// A condition that any thread may wait for: it replaces the check of the lock.
class Unchecked : public ZCondition_6_0 {
public:
    void validateLock() override { ++checks; }
    int checks = 0;
};

}  // namespace

// The form of operator new that allocates the library's objects.
void* operator new(std::size_t size, std::nothrow_t const&) noexcept
{
    return newFails ? nullptr : ::operator new(size);
}

TEST(ZCondition, RestoresTheDepthOfTheLockAfterAWait)
{
    ZLock_6_0 lock;
    ZCondition_6_0 condition(lock);
    bool waiting = false;
    bool ready = false;
    int depth = 0;
    std::thread waiter([&] {
        lock.lock();
        condition.lock();
        lock.lock();
        waiting = true;
        while (!ready)
            condition.wait();
        depth = depthOf(condition);
    });
    for (bool signalled = false; !signalled;) {
        // The lock is free only after the waiter has released all three levels.
        ZResourceLock_6_0 const guard(lock);
        if (waiting) {
            ready = true;
            condition.signal();
            signalled = true;
        }
    }
    waiter.join();
    EXPECT_EQ(3, depth);
}

TEST(ZCondition, BroadcastWakesAllWaiters)
{
    constexpr int kWaiters = 4;
    ZCondition_6_0 condition;
    int waiting = 0;
    bool ready = false;
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i) {
        waiters.emplace_back([&] {
            ZResourceLock_6_0 const guard(*condition.getResource());
            ++waiting;
            while (!ready)
                condition.wait();
        });
    }
    for (bool all = false; !all; std::this_thread::yield()) {
        ZResourceLock_6_0 const guard(*condition.getResource());
        all = waiting == kWaiters;
    }
    condition.lock();
    ready = true;
    condition.unlock();
    condition.broadcast();
    for (std::thread& waiter : waiters)
        waiter.join();
}

TEST(ZCondition, SignalAndBroadcastNeedNoLock)
{
    ZCondition_6_0 condition;
    condition.signal();
    condition.broadcast();
}

TEST(ZCondition, IsCreatedWithDefaultAttributes)
{
    threadCalls = ThreadCalls();
    ZCondition_6_0 const condition;
    EXPECT_TRUE(threadCalls.defaultAttributes);
}

TEST(ZCondition, KnowsItsLock)
{
    ZLock_6_0 lock;
    ZCondition_6_0 const borrowing(lock);
    EXPECT_EQ(&lock, borrowing.getResource());
    ZCondition_6_0 owning;
    ASSERT_NE(nullptr, owning.getResource());
    owning.lock();
    EXPECT_EQ(1, depthOf(*owning.getResource()));
}

TEST(ZCondition, DestroysOnlyALockOfItsOwn)
{
    // A sanitizer finds an own lock that leaks or a borrowed lock that is deleted.
    ZLock_6_0 lock;
    {
        ZCondition_6_0 const owning;
        ZCondition_6_0 const borrowing(lock);
    }
    lock.lock();
    EXPECT_EQ(1, depthOf(lock));
}

TEST(ZCondition, ZeroSecondsTimeOutImmediately)
{
    ZCondition_6_0 condition;
    condition.lock();
    condition.lock();
    int timedOut = 7;
    condition.wait(0, timedOut);
    EXPECT_EQ(1, timedOut);
    EXPECT_EQ(2, depthOf(condition));
}

TEST(ZCondition, ATimedWaitTakesItsTime)
{
    ZCondition_6_0 condition;
    condition.lock();
    auto const start = std::chrono::steady_clock::now();
    int timedOut = 0;
    condition.wait(2, timedOut);
    auto const taken = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(1, timedOut);
    EXPECT_GT(taken, std::chrono::milliseconds(900));  // whole seconds of the real-time clock
    EXPECT_LT(taken, kHangs);
    EXPECT_EQ(1, depthOf(condition));
}

TEST(ZCondition, ASignalledTimedWaitDoesNotTimeOut)
{
    ZCondition_6_0 condition;
    bool waiting = false;
    bool ready = false;
    int timedOut = 7;
    std::thread waiter([&] {
        ZResourceLock_6_0 const guard(*condition.getResource());
        waiting = true;
        while (!ready)
            condition.wait(600, timedOut);
    });
    for (bool signalled = false; !signalled; std::this_thread::yield()) {
        ZResourceLock_6_0 const guard(*condition.getResource());
        if (waiting) {
            ready = true;
            condition.signal();
            signalled = true;
        }
    }
    waiter.join();
    EXPECT_EQ(0, timedOut);
}

TEST(ZCondition, SecondsCountFromNowAndStayInRange)
{
    constexpr long kMost = std::numeric_limits<long>::max();
    constexpr long kLeast = std::numeric_limits<long>::min();
    long const now = time(nullptr);
    struct Case {
        char const* name;
        long seconds;
        long until;  // 0: seconds from now
    };
    Case const cases[] = {{"now", 0, 0},
                          {"a minute", 60, 0},
                          {"a moment ago", -60, 0},
                          {"at the epoch", -now, 1},
                          {"before the epoch", -now - 1000, 1},
                          {"the smallest number", kLeast, 1},
                          {"past the largest time", kMost, kMost}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZCondition_6_0 condition;
        condition.lock();
        threadCalls = ThreadCalls();
        threadCalls.fail[condTimedWait] = ETIMEDOUT;
        int timedOut = 0;
        condition.wait(c.seconds, timedOut);
        EXPECT_EQ(1, timedOut);
        EXPECT_EQ(0, threadCalls.count[condWait]);
        EXPECT_EQ(1, threadCalls.count[condTimedWait]);
        EXPECT_EQ(0, threadCalls.until.tv_nsec);
        if (c.until != 0) {
            EXPECT_EQ(c.until, threadCalls.until.tv_sec);
        } else {
            EXPECT_LE(now + c.seconds, threadCalls.until.tv_sec);
            EXPECT_GE(now + c.seconds + 60, threadCalls.until.tv_sec);
        }
        condition.unlock();
    }
    threadCalls = ThreadCalls();
}

TEST(ZCondition, OnlyTheZeroMomentWaitsWithoutLimit)
{
    struct Case {
        char const* name;
        timespec until;
        int waits;
    };
    Case const cases[] = {
        {"zero", {0, 0}, 1}, {"a nanosecond", {0, 1}, 0}, {"a second", {1, 0}, 0}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZCondition_6_0 condition;
        condition.lock();
        threadCalls = ThreadCalls();
        threadCalls.fail[condTimedWait] = ETIMEDOUT;
        threadCalls.fail[condWait] = EINTR;
        timespec until = c.until;
        int timedOut = 7;
        NotedMessages const noted;
        try {
            condition.wait(until, timedOut);
        } catch (ZConditionException_6_0 const&) {
        }
        EXPECT_EQ(c.waits, threadCalls.count[condWait]);
        EXPECT_EQ(1 - c.waits, threadCalls.count[condTimedWait]);
        EXPECT_EQ(1 - c.waits, timedOut);
        condition.unlock();
    }
    threadCalls = ThreadCalls();
}

TEST(ZCondition, AWaitWithoutTheLockThrowsBeforeWaiting)
{
    ZLock_6_0 lock;
    ZCondition_6_0 condition(lock);
    int timedOut = 7;
    timespec until = {1, 0};
    expectNotHolder([&] { condition.wait(); });
    expectNotHolder([&] { condition.wait(1, timedOut); });
    expectNotHolder([&] { condition.wait(until, timedOut); });
    expectNotHolder([&] { condition.validateLock(); });
    EXPECT_EQ(7, timedOut);

    lock.lock();
    std::thread([&] { expectNotHolder([&] { condition.wait(); }); }).join();
    EXPECT_EQ(1, depthOf(lock));
}

TEST(ZCondition, CallsItsVirtualCheckOfTheLock)
{
    Unchecked condition;
    condition.lock();
    int timedOut = 0;
    condition.wait(0, timedOut);
    EXPECT_EQ(1, condition.checks);
    condition.unlock();
}

TEST(ZCondition, LockingFailsAsTheLockDoes)
{
    ZCondition_6_0 condition;
    EXPECT_THROW(condition.unlock(), ZUnlockResourceException_6_0);
}

TEST(ZCondition, ReportsAndThrowsAFailedWait)
{
    ZCondition_6_0 condition;
    condition.lock();
    condition.lock();
    NotedMessages const noted;
    threadCalls = ThreadCalls();
    threadCalls.fail[condWait] = EINVAL;
    expectFailure<ZConditionException_6_0>([&] { condition.wait(); }, 9, EINVAL, siteInWait);
    threadCalls = ThreadCalls();
    expectReported(noted, siteInWait, 9, "22");
    EXPECT_EQ(2, depthOf(condition));
}

TEST(ZCondition, KeepsOneMessageForBothWaits)
{
    ZCondition_6_0 condition;
    condition.lock();
    NotedMessages const noted;
    timespec noTime = {1, -1};  // invalid: the system refuses it
    int timedOut = 7;
    expectFailure<ZConditionException_6_0>([&] { condition.wait(noTime, timedOut); }, 9, EINVAL,
                                           siteInWait);
    EXPECT_EQ(0, timedOut);
    expectReported(noted, siteInWait, 9, "22");
    EXPECT_EQ(1, depthOf(condition));
}

TEST(ZCondition, ReportsAndThrowsAFailedSignalOrBroadcast)
{
    ZCondition_6_0 condition;
    {
        NotedMessages const noted;
        threadCalls.fail[condSignal] = EINVAL;
        expectFailure<ZConditionException_6_0>([&] { condition.signal(); }, 10, EINVAL,
                                               siteInSignal);
        threadCalls = ThreadCalls();
        expectReported(noted, siteInSignal, 10, "22");
    }
    NotedMessages const noted;
    threadCalls.fail[condBroadcast] = EPERM;
    expectFailure<ZConditionException_6_0>([&] { condition.broadcast(); }, 27, EPERM,
                                           siteInBroadcast);
    threadCalls = ThreadCalls();
    expectReported(noted, siteInBroadcast, 27, "1");
}

TEST(ZCondition, IsNotConstructedIfTheSystemRefuses)
{
    ZLock_6_0 lock;
    threadCalls.fail[condInit] = EAGAIN;
    expectFailure<ZConditionException_6_0>([&] { ZCondition_6_0 const condition(lock); }, 7, EAGAIN,
                                           siteInConstructor);
    expectFailure<ZConditionException_6_0>([] { ZCondition_6_0 const condition; }, 7, EAGAIN,
                                           siteInConstructor);
    expectFailure<ZConditionException_6_0>([] { ZBooleanCondition_6_0 const condition; }, 7, EAGAIN,
                                           siteInConstructor);
    threadCalls = ThreadCalls();
}

TEST(ZCondition, IsNotConstructedWithoutMemoryForItsLock)
{
    newFails = true;
    EXPECT_THROW(ZCondition_6_0 const condition, ZOutOfMemoryException_6_0);
    EXPECT_THROW(ZBooleanCondition_6_0 const condition, ZOutOfMemoryException_6_0);
    ZLock_6_0 lock;
    EXPECT_NO_THROW(ZCondition_6_0 const condition(lock)) << "needs no memory";
    newFails = false;
}

TEST(ZCondition, OnlyReportsAFailureToBeDestroyed)
{
    NotedMessages const noted;
    {
        ZCondition_6_0 const condition;
        threadCalls.fail[condDestroy] = EBUSY;
    }
    threadCalls = ThreadCalls();
    expectReported(noted, siteInDestructor, 8, "16");
}

TEST(ZCondition, CallsItsHookOnceOnATimeout)
{
    Hooked condition;
    condition.lock();
    int timedOut = 0;
    condition.wait(0, timedOut);
    EXPECT_EQ(1, condition.timeOuts);
    EXPECT_EQ(1, depthOf(condition));
}

TEST(ZCondition, KeepsTheLockMarkedFreeInTheTimeOutHook)
{
    Hooked condition;
    condition.lock();
    int timedOut = 7;
    condition.wait(0, timedOut);
    EXPECT_FALSE(condition.heldInHook);
    EXPECT_EQ(1, timedOut);

    condition.throws = true;
    timedOut = 7;
    EXPECT_THROW(condition.wait(0, timedOut), std::runtime_error);
    EXPECT_EQ(0, timedOut);
    EXPECT_EQ(0, depthOf(condition)) << "marked free, although the mutex is held";
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(threadCalls.mutex));
    pthread_mutex_unlock(threadCalls.mutex);
}

TEST(ZCondition, ACancelledWaiterReleasesTheLock)
{
    ZCondition_6_0 condition;
    bool waiting = false;  // guarded by the condition's lock
    CancellableThread waiter([&] {
        ZResourceLock_6_0 const outer(*condition.getResource());
        ZResourceLock_6_0 const inner(*condition.getResource());
        waiting = true;
        for (;;)
            condition.wait();
    });
    waitUntil([&] {
        ZResourceLock_6_0 const guard(*condition.getResource());
        return waiting;
    });
    waiter.cancel();
    EXPECT_TRUE(waiter.endsCancelled());
    condition.lock();
    EXPECT_EQ(1, depthOf(condition));
}

TEST(ZCondition, AHookThatIsCancelledLeavesTheLockHeld)
{
    class Cancelled : public ZCondition_6_0 {
    public:
        void waitTimedOut() override
        {
            pthread_cancel(pthread_self());
            pthread_testcancel();
        }
    } condition;
    struct AtTheEnd {
        ZCondition_6_0& condition;
        int& depth;
        ~AtTheEnd() { depth = depthOf(condition); }
    };
    int depth = -1;
    CancellableThread waiter([&] {
        AtTheEnd const atTheEnd = {condition, depth};
        condition.lock();
        condition.lock();
        int timedOut = 0;
        condition.wait(0, timedOut);
    });
    EXPECT_TRUE(waiter.endsCancelled());
    EXPECT_EQ(2, depth);
}

TEST(ZBooleanCondition, HasAFlag)
{
    ZLock_6_0 lock;
    ZBooleanCondition_6_0 borrowing(lock);
    ZBooleanCondition_6_0 owning;
    for (ZBooleanCondition_6_0* condition : {&borrowing, &owning}) {
        condition->lock();
        EXPECT_EQ(0, condition->testCondition());
        EXPECT_EQ(1, condition->setCondition(-5));
        EXPECT_EQ(-5, condition->testCondition());
        condition->waitTimedOut();
        EXPECT_EQ(1, condition->testCondition());
        condition->initCondition();
        EXPECT_EQ(0, condition->testCondition());
        EXPECT_EQ(1, condition->setCondition(0));
        condition->unlock();
    }
}

TEST(ZBooleanCondition, RefusesItsFlagWithoutTheLock)
{
    ZBooleanCondition_6_0 condition;
    int timedOut = 7;
    timespec until = {1, 0};
    expectNotHolder([&] { condition.initCondition(); });
    expectNotHolder([&] { condition.testCondition(); });
    expectNotHolder([&] { condition.setCondition(1); });
    expectNotHolder([&] { condition.waitTimedOut(); });
    expectNotHolder([&] { condition.wait(); });
    expectNotHolder([&] { condition.wait(1, timedOut); });
    expectNotHolder([&] { condition.wait(until, timedOut); });
    condition.lock();
    EXPECT_EQ(0, condition.testCondition());
    condition.unlock();
}

TEST(ZBooleanCondition, DoesNotWaitIfTheFlagIsSet)
{
    ZBooleanCondition_6_0 condition;
    condition.lock();
    condition.setCondition(2);
    threadCalls = ThreadCalls();
    int timedOut = 7;
    timespec past = {1, 0};
    condition.wait();
    condition.wait(0, timedOut);
    condition.wait(past, timedOut);
    EXPECT_EQ(0, threadCalls.count[condWait]);
    EXPECT_EQ(0, threadCalls.count[condTimedWait]);
    EXPECT_EQ(7, timedOut);
    condition.unlock();
}

TEST(ZBooleanCondition, WaitsUntilTheFlagIsSet)
{
    ZBooleanCondition_6_0 condition;
    std::atomic<bool> waiting = false;
    int seen = 0;
    std::thread waiter([&] {
        ZResourceLock_6_0 const guard(*condition.getResource());
        waiting = true;
        condition.wait();
        seen = condition.testCondition();
    });
    while (!waiting)
        std::this_thread::yield();
    condition.lock();
    condition.signal();  // without the flag: the waiter waits again
    condition.unlock();
    condition.lock();
    condition.setCondition(3);
    condition.broadcast();
    condition.unlock();
    waiter.join();
    EXPECT_EQ(3, seen);
}

TEST(ZBooleanCondition, KeepsThrowingWhenTheTimeRunsOut)
{
    struct Case {
        char const* name;
        bool absolute;
    };
    Case const cases[] = {{"seconds", false}, {"absolute time", true}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZBooleanCondition_6_0 condition;
        condition.lock();
        condition.lock();
        timespec past = {1, 0};
        int timedOut = 7;
        expectFailure<ZLockResourceException_6_0>(
            [&] {
                if (c.absolute)
                    condition.wait(past, timedOut);
                else
                    condition.wait(0, timedOut);
            },
            5, 0, siteInValidateLock);
        EXPECT_EQ(0, timedOut);
        EXPECT_EQ(0, depthOf(condition)) << "marked free, although the mutex is held";
        EXPECT_EQ(EBUSY, pthread_mutex_trylock(threadCalls.mutex));
        pthread_mutex_unlock(threadCalls.mutex);
        condition.lock();
        EXPECT_EQ(0, condition.testCondition());
        condition.unlock();
    }
}
