#include <Z/ZException.h>
#include <Z/ZSleeperThread.h>
#include <Z/ZThread.h>
#include <Z/ZThreadPool.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "NotedMessages.h"
#include "Raised.h"
#include "Threads.h"

namespace {

class TestThread : public ZThread_6_0 {
public:
    explicit TestThread(std::function<void()> work, int detached = 1, int autoDelete = 1)
        : ZThread_6_0(detached, autoDelete), work_(std::move(work))
    {
    }
    void run() override { work_(); }

private:
    std::function<void()> work_;
};

class Worker : public ZSleeperThread_6_0 {
public:
    explicit Worker(std::atomic<int>& units) : units_(units) {}
    void doWork() override { ++units_; }
    void exit() override { ++exits; }
    std::atomic<int> exits{0};

private:
    std::atomic<int>& units_;
};

// Joins a sleeper that may already be joined: the pool joins its parked sleepers.
void join(Worker& worker)
{
    try {
        worker.ZThread_6_0::waitForExit();
    } catch (ZThreadException_6_0 const& e) {
        EXPECT_EQ(ESRCH, e.returnCode());
    }
}

class FailingStart : public ZThread_6_0 {
public:
    FailingStart() : ZThread_6_0(0, 0) {}
    void start() override { ZUnsupportedException_6_0().throwException("src/x", 1); }
    void run() override {}
};

}  // namespace

TEST(ZThreadPool, RunsAtMostTheLargerNumber)
{
    for (bool smallerFirst : {true, false}) {
        ZThreadPool_6_0 pool(smallerFirst ? 2 : 5, smallerFirst ? 5 : 2);
        std::atomic<int> running{0};
        std::atomic<int> most{0};
        std::atomic<int> ended{0};
        for (int i = 0; i < 200; ++i)
            pool.start(*new TestThread([&] {
                int const now = ++running;
                for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
                }
                std::this_thread::yield();
                --running;
                ++ended;
            }));
        pool.waitForExit();
        EXPECT_EQ(200, ended);
        EXPECT_LE(most, 5);
    }
}

TEST(ZThreadPool, WaitsForAFreeSlot)
{
    ZThreadPool_6_0 pool(1, 0);
    std::atomic<bool> release{false};
    std::atomic<bool> second{false};
    pool.start(*new TestThread([&] { waitUntil([&] { return release.load(); }); }));
    WatchedThread watched;
    std::thread starter([&] {
        watched.enter();
        pool.start(*new TestThread([&] { second = true; }));
    });
    watched.waitUntilAsleep();
    EXPECT_FALSE(second);
    release = true;
    starter.join();
    pool.waitForExit();
    EXPECT_TRUE(second);
}

TEST(ZThreadPool, ParksSleepersForReuse)
{
    std::atomic<int> units{0};
    ZThreadPool_6_0 pool(1, 2);
    Worker one(units);
    Worker two(units);
    pool.start(one);
    one.wakeUp();
    ZThread_6_0* parked = nullptr;
    waitUntil([&] {
        pool.getAvailableIdleThread(parked);
        return parked != nullptr;
    });
    EXPECT_EQ(&one, parked);
    EXPECT_EQ(1, units);
    // The sleeper keeps its slot, and the pool parks it again after its next work.
    one.wakeUp();
    waitUntil([&] { return units == 2; });
    // The pool can park one sleeper: the other one ends after its work.
    pool.start(two);
    two.wakeUp();
    waitUntil([&] { return two.exits + one.exits == 1 && units == 3; });
    pool.waitForExit();
    join(one);
    join(two);
    EXPECT_EQ(1, one.exits);
    EXPECT_EQ(1, two.exits);
}

TEST(ZThreadPool, ParksNoThreadIfTheLimitIsZero)
{
    std::atomic<int> units{0};
    ZThreadPool_6_0 pool(0, 3);
    Worker worker(units);
    pool.start(worker);
    worker.wakeUp();
    waitUntil([&] { return worker.exits == 1; });
    ZThread_6_0* thread = &worker;
    pool.getAvailableIdleThread(thread);
    EXPECT_EQ(nullptr, thread);
    pool.waitForExit();
    join(worker);
    EXPECT_EQ(1, units);
}

TEST(ZThreadPool, CreatesAThreadIfNoneIsParked)
{
    class Making : public ZThreadPool_6_0 {
    public:
        using ZThreadPool_6_0::ZThreadPool_6_0;
        ZThread_6_0* createThread() override
        {
            ++made;
            return new TestThread([] {});
        }
        int made = 0;
    } pool(1, 1);
    ZThread_6_0* thread = nullptr;
    pool.getAvailableIdleThread(thread);
    EXPECT_EQ(1, pool.made);
    pool.start(*thread);
    pool.waitForExit();
}

TEST(ZThreadPool, WaitsForParkedSleepersToo)
{
    std::atomic<int> units{0};
    ZThreadPool_6_0 pool(4, 4);
    std::vector<std::unique_ptr<Worker>> workers;
    for (int i = 0; i < 4; ++i) {
        workers.push_back(std::make_unique<Worker>(units));
        pool.start(*workers.back());
        workers.back()->wakeUp();
    }
    waitUntil([&] { return units == 4; });
    pool.waitForExit();
    for (auto const& worker : workers) {
        join(*worker);
        EXPECT_EQ(1, worker->exits);
    }
    // The pool is usable again: it parks the next sleeper.
    Worker another(units);
    pool.start(another);
    another.wakeUp();
    ZThread_6_0* parked = nullptr;
    waitUntil([&] {
        pool.getAvailableIdleThread(parked);
        return parked != nullptr;
    });
    EXPECT_EQ(&another, parked);
    another.waitForExit();
    pool.waitForExit();
}

TEST(ZThreadPool, AThrowingThreadFreesItsSlot)
{
    NotedMessages noted;
    ZThreadPool_6_0 pool(1, 0);
    for (int i = 0; i < 10; ++i)
        pool.start(*new TestThread([] { ZUnsupportedException_6_0().throwException("src/x", 1); }));
    pool.waitForExit();
    EXPECT_EQ(10, noted.exceptions());
}

TEST(ZThreadPool, KeepsQuietAboutAThreadThatDoesNotStart)
{
    NotedMessages noted;
    ZThreadPool_6_0 pool(1, 0);
    FailingStart thread;
    pool.start(thread);
    pool.start(thread);  // the slot of the failed start is free
    EXPECT_EQ(2, noted.exceptions());
    pool.waitForExit();
}

TEST(ZThreadPool, RefusesToBeCloned)
{
    ZThreadPool_6_0 pool(1, 1);
    EXPECT_TRUE(
        raises<ZNotClonableException_6_0>(14, "src/Z/ZThreadPool", 84, [&] { pool.clone(); }));
}
