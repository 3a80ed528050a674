#include <Z/ZException.h>
#include <Z/ZReadWriteLock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <thread>

#include "LockStates.h"
#include "NotedMessages.h"
#include "Raised.h"
#include "Reports.h"
#include "Threads.h"

namespace {

constexpr char kSource[] = "src/Z/ZReadWriteLock";

// A thread that does what it is told, one action at a time.
class Worker {
public:
    // Starts `action`; it is finished when the future is ready.
    std::future<void> start(std::function<void()> action)
    {
        std::packaged_task<void()> task(std::move(action));
        std::future<void> done = task.get_future();
        thread_ = std::thread(std::move(task));
        return done;
    }
    ~Worker()
    {
        if (thread_.joinable())
            thread_.join();
    }

private:
    std::thread thread_;
};

bool isReady(std::future<void> const& done)
{
    return done.wait_for(std::chrono::milliseconds(0)) == std::future_status::ready;
}

bool comesThrough(std::future<void> const& done)
{
    return done.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
}

struct Counts {
    int readers;
    State state;
};

void expectState(Counts expected, ZReadWriteLock_6_0& lock)
{
    EXPECT_EQ(expected.readers, lock.getReaderCount());
    for (State state : {kUnset, kRead, kProtect, kWrite})
        EXPECT_EQ(state == expected.state, lock.haveLock(state) != 0) << "state " << state;
}

}  // namespace

TEST(ZReadWriteLock, NamesItsStates)
{
    ZReadWriteLock_6_0 const lock;
    EXPECT_STREQ("unset", lock.getLockStateName(kUnset));
    EXPECT_STREQ("read", lock.getLockStateName(kRead));
    EXPECT_STREQ("protect", lock.getLockStateName(kProtect));
    EXPECT_STREQ("write", lock.getLockStateName(kWrite));
    EXPECT_EQ(nullptr, lock.getLockStateName(static_cast<State>(7)));
    EXPECT_EQ(nullptr, lock.getLockStateName(static_cast<State>(-1)));
}

TEST(ZReadWriteLock, StatesHaveTheirNumbers)
{
    EXPECT_EQ(0, static_cast<int>(kUnset));
    EXPECT_EQ(1, static_cast<int>(kRead));
    EXPECT_EQ(2, static_cast<int>(kProtect));
    EXPECT_EQ(3, static_cast<int>(kWrite));
}

TEST(ZReadWriteLock, EveryStateIsEnteredAndLeft)
{
    ZReadWriteLock_6_0 lock;
    expectState({0, kUnset}, lock);
    lock.readLock();
    expectState({1, kRead}, lock);
    lock.readLock();
    expectState({2, kRead}, lock);
    lock.unlock();
    expectState({1, kRead}, lock);
    lock.unlock();
    expectState({0, kUnset}, lock);
    lock.readWithIntentToWriteLock();
    expectState({0, kProtect}, lock);
    lock.promoteReadToWriteLock();
    expectState({0, kWrite}, lock);
    lock.unlock();
    expectState({0, kUnset}, lock);
    lock.writeLock();
    expectState({0, kWrite}, lock);
    lock.unlock(1);
    expectState({0, kUnset}, lock);
}

TEST(ZReadWriteLock, LocksByState)
{
    ZReadWriteLock_6_0 lock;
    for (State state : {kRead, kProtect, kWrite}) {
        lock.lock(state);
        EXPECT_NE(0, lock.haveLock(state));
        lock.lock(kUnset);
        EXPECT_NE(0, lock.haveLock(kUnset));
    }
    lock.lock();
    EXPECT_NE(0, lock.haveLock(kWrite));
    lock.unlock();
    lock.lock(static_cast<State>(7));
    expectState({0, kUnset}, lock);
}

TEST(ZReadWriteLock, ReadersAndAnIntendingWriterCoexist)
{
    ZReadWriteLock_6_0 lock;
    elsewhere([&] { lock.readLock(); });
    lock.readWithIntentToWriteLock();
    elsewhere([&] { lock.readLock(); });
    expectState({2, kProtect}, lock);
    elsewhere([&] { lock.unlock(); });
    elsewhere([&] { lock.unlock(); });
    expectState({0, kProtect}, lock);
    lock.unlock();
    expectState({0, kUnset}, lock);
}

TEST(ZReadWriteLock, ReadersOutliveTheWriterTheyEnteredBeside)
{
    ZReadWriteLock_6_0 lock;
    lock.readWithIntentToWriteLock();
    elsewhere([&] { lock.readLock(); });
    lock.unlock();
    expectState({1, kRead}, lock);
    elsewhere([&] { lock.unlock(); });
    expectState({0, kUnset}, lock);
}

TEST(ZReadWriteLock, WriterKeepsEveryoneOut)
{
    for (State wanted : {kRead, kProtect, kWrite}) {
        SCOPED_TRACE(wanted);
        ZReadWriteLock_6_0 lock;
        lock.writeLock();
        Worker worker;
        std::future<void> const done = worker.start([&] {
            lock.lock(wanted);
            lock.unlock();
        });
        EXPECT_TRUE(staysBlocked(done));
        lock.unlock();
        EXPECT_TRUE(comesThrough(done));
        expectState({0, kUnset}, lock);
    }
}

TEST(ZReadWriteLock, IntendingWriterKeepsOnlyWritersOut)
{
    for (State wanted : {kProtect, kWrite}) {
        SCOPED_TRACE(wanted);
        ZReadWriteLock_6_0 lock;
        lock.readWithIntentToWriteLock();
        Worker worker;
        std::future<void> const done = worker.start([&] {
            lock.lock(wanted);
            lock.unlock();
        });
        EXPECT_TRUE(staysBlocked(done));
        lock.unlock();
        EXPECT_TRUE(comesThrough(done));
    }
}

TEST(ZReadWriteLock, WriterWaitsForReaders)
{
    ZReadWriteLock_6_0 lock;
    lock.readLock();
    lock.readLock();
    Worker worker;
    std::future<void> const done = worker.start([&] {
        lock.writeLock();
        lock.unlock();
    });
    EXPECT_TRUE(staysBlocked(done));
    lock.unlock();
    EXPECT_TRUE(staysBlocked(done));
    lock.unlock();
    EXPECT_TRUE(comesThrough(done));
}

TEST(ZReadWriteLock, PromotionWaitsForReadersAndLetsNobodyElseIn)
{
    ZReadWriteLock_6_0 lock;
    lock.readLock();
    std::promise<void> release;
    Worker promoter;
    std::atomic<bool> promoted{false};
    std::future<void> const promoterDone = promoter.start([&] {
        lock.readWithIntentToWriteLock();
        lock.promoteReadToWriteLock();
        promoted = true;
        release.get_future().wait();
        lock.unlock();
    });
    waitUntil([&] { return lock.haveLock(kWrite) != 0; });
    Worker reader;
    std::future<void> const readerDone = reader.start([&] {
        lock.readLock();
        lock.unlock();
    });
    EXPECT_TRUE(staysBlocked(readerDone));
    EXPECT_FALSE(promoted);
    lock.unlock();
    waitUntil([&] { return promoted.load(); });
    EXPECT_FALSE(isReady(readerDone));
    release.set_value();
    EXPECT_TRUE(comesThrough(promoterDone));
    EXPECT_TRUE(comesThrough(readerDone));
    expectState({0, kUnset}, lock);
}

TEST(ZReadWriteLock, RecursionOfAWriterRaises)
{
    for (State held : {kProtect, kWrite})
        for (State wanted : {kRead, kProtect, kWrite}) {
            SCOPED_TRACE(held);
            SCOPED_TRACE(wanted);
            ZReadWriteLock_6_0 lock;
            lock.lock(held);
            EXPECT_TRUE(
                raises<ZLockResourceException_6_0>(5, 0, kSource, 61, [&] { lock.lock(wanted); }));
            expectState({0, held}, lock);
            lock.unlock();
        }
}

TEST(ZReadWriteLock, PromotionIsForTheIntendingWriterAlone)
{
    ZReadWriteLock_6_0 lock;
    auto const promote = [&] { lock.promoteReadToWriteLock(); };
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, 0, kSource, 142, promote));
    for (State held : {kRead, kWrite}) {
        SCOPED_TRACE(held);
        lock.lock(held);
        EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, 0, kSource, 142, promote));
        expectState({held == kRead ? 1 : 0, held}, lock);
        lock.unlock();
    }
    lock.readWithIntentToWriteLock();
    elsewhere(
        [&] { EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, 0, kSource, 142, promote)); });
    expectState({0, kProtect}, lock);
    lock.unlock();
}

TEST(ZReadWriteLock, ReleasingWhatIsNotHeldRaises)
{
    ZReadWriteLock_6_0 lock;
    auto const unlock = [&] { lock.unlock(); };
    EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(6, 0, kSource, 97, unlock));
    for (State held : {kProtect, kWrite}) {
        SCOPED_TRACE(held);
        lock.lock(held);
        elsewhere(
            [&] { EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(6, 0, kSource, 104, unlock)); });
        expectState({0, held}, lock);
        lock.unlock();
    }
}

TEST(ZReadWriteLock, CopiesAreFreeLocks)
{
    ZReadWriteLock_6_0 lock;
    lock.writeLock();
    ZReadWriteLock_6_0 copy(lock);
    expectState({0, kUnset}, copy);
    EXPECT_EQ(0, copy.ownWriteLock());
    std::unique_ptr<ZObject_6_0> const clone(lock.clone());
    auto* const cloned = dynamic_cast<ZReadWriteLock_6_0*>(clone.get());
    ASSERT_NE(nullptr, cloned);
    expectState({0, kUnset}, *cloned);
    lock.unlock();
}

TEST(ZReadWriteLock, HasTheDefaultsOfItsBase)
{
    ZReadWriteLock_6_0 lock;
    EXPECT_EQ(1, lock.isCurrent());
    EXPECT_EQ(0, lock.getUpdate());
    lock.setUpdate(1);
    EXPECT_EQ(0, lock.getUpdate());
    EXPECT_EQ(0u, lock.countObservers());
}

TEST(ZReadWriteLock, KeepsTheLastWriterAfterItsRelease)
{
    ZReadWriteLock_6_0 lock;
    EXPECT_EQ(0, lock.ownWriteLock());
    lock.writeLock();
    lock.unlock();
    EXPECT_NE(0, lock.ownWriteLock());
    elsewhere([&] {
        EXPECT_EQ(0, lock.ownWriteLock());
        lock.readWithIntentToWriteLock();
        EXPECT_NE(0, lock.ownWriteLock());
        lock.unlock();
    });
    EXPECT_EQ(0, lock.ownWriteLock());
}

TEST(ZReadWriteLock, ACancelledWaitLeavesTheLockUsable)
{
    for (State wanted : {kRead, kProtect, kWrite}) {
        SCOPED_TRACE(wanted);
        ZReadWriteLock_6_0 lock;
        lock.writeLock();
        std::atomic<bool> started{false};
        CancellableThread thread([&] {
            started = true;
            lock.lock(wanted);
        });
        waitUntil([&] { return started.load(); });
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        thread.cancel();
        EXPECT_TRUE(thread.endsCancelled());
        expectState({0, kWrite}, lock);
        lock.unlock();
        elsewhere([&] {
            lock.writeLock();
            lock.unlock();
        });
        expectState({0, kUnset}, lock);
    }
}

TEST(ZReadWriteLock, ACancelledPromotionLeavesProtectAsItWas)
{
    ZReadWriteLock_6_0 lock;
    lock.readLock();
    struct Release {
        ZReadWriteLock_6_0& lock;
        ~Release()
        {
            EXPECT_NE(0, lock.haveLock(kProtect));
            lock.unlock();
        }
    };
    CancellableThread thread([&] {
        lock.readWithIntentToWriteLock();
        Release const release{lock};
        lock.promoteReadToWriteLock();
    });
    waitUntil([&] { return lock.haveLock(kWrite) != 0; });
    Worker reader;
    std::future<void> const readerDone = reader.start([&] {
        lock.readLock();
        lock.unlock();
    });
    EXPECT_TRUE(staysBlocked(readerDone));
    thread.cancel();
    EXPECT_TRUE(thread.endsCancelled());
    EXPECT_TRUE(comesThrough(readerDone));
    expectState({1, kRead}, lock);
    lock.unlock();
}

TEST(ZStackReadWriteLock, ReleasesWhatIsHeldAtTheEndOfTheScope)
{
    ZReadWriteLock_6_0 lock;
    {
        ZStackReadWriteLock_6_0 guard(lock, 1);
        EXPECT_EQ(&lock, &guard.getReadWriteLock());
        expectState({0, kUnset}, lock);
        guard.readWithIntentToWriteLock();
        guard.promoteReadToWriteLock();
        expectState({0, kWrite}, lock);
        guard.unlock(1);
        guard.writeLock();
        guard.unlock(0);
        guard.setUpdate(1);
        EXPECT_EQ(0, guard.getUpdate());
        guard.readLock();
        expectState({1, kRead}, lock);
    }
    expectState({0, kUnset}, lock);
}

TEST(ZStackReadWriteLock, RaisesWhenNothingIsHeld)
{
    ZReadWriteLock_6_0 lock;
    EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(
        6, 0, kSource, 97, [&] { ZStackReadWriteLock_6_0 const guard(lock, 0); }));
}

TEST(ZStackReadWriteLock, ReportsWhileAnotherExceptionIsOnItsWay)
{
    ZReadWriteLock_6_0 lock;
    std::string const report = reportOf([&] {
        try {
            ZStackReadWriteLock_6_0 const guard(lock, 0);
            throw 5;
        } catch (int) {
        }
    });
    EXPECT_NE(std::string::npos, report.find("Exception: ZResourceException\n"));
    EXPECT_NE(std::string::npos, report.find(" Error: 6\n"));
}

// It would raise, or release what another thread reads by then.
TEST(ZStackReadWriteLock, ReleasesNothingWhenItsWaitIsCancelled)
{
    NotedMessages const noted;
    for (State wanted : {kRead, kProtect, kWrite}) {
        SCOPED_TRACE(wanted);
        ZReadWriteLock_6_0 lock;
        lock.writeLock();
        CancellableThread thread([&] {
            ZStackReadWriteLock_6_0 guard(lock, 1);
            if (wanted == kRead)
                guard.readLock();
            else if (wanted == kProtect)
                guard.readWithIntentToWriteLock();
            else
                guard.writeLock();
        });
        thread.cancel();
        EXPECT_TRUE(thread.endsCancelled());
        expectState({0, kWrite}, lock);
        lock.unlock();
    }
    EXPECT_EQ(0, noted.exceptions());
}

TEST(ZStackReadWriteLock, ReleasesWhatItsThreadHeldAlready)
{
    ZReadWriteLock_6_0 lock;
    lock.writeLock();
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, 0, kSource, 61, [&] {
        ZStackReadWriteLock_6_0 guard(lock, 1);
        guard.readLock();
    }));
    expectState({0, kUnset}, lock);
}

// The cancellation is no exception that the guard could see.
TEST(ZStackReadWriteLock, ReportsWhenAWaitBesideItIsCancelled)
{
    NotedMessages const noted;
    ZReadWriteLock_6_0 lock;
    lock.writeLock();
    CancellableThread thread([&] {
        ZStackReadWriteLock_6_0 const guard(lock, 1);
        lock.readLock();
    });
    thread.cancel();
    EXPECT_TRUE(thread.endsCancelled());
    EXPECT_EQ(1, noted.exceptions());
    lock.unlock();
}
