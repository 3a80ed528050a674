#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <Z/ZProcessReadWriteLock.h>
#include <Z/ZReadWriteLock.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include "LockStates.h"
#include "NotedMessages.h"
#include "Raised.h"
#include "Reports.h"
#include "ThreadCalls.h"
#include "Threads.h"

namespace {

constexpr char kSource[] = "src/Z/ZReadWriteLock";

// A thread that runs the actions of the test, one at a time.
class Worker {
public:
    // Starts `action`; the future is ready when it has finished.
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
    return done.wait_for(kHangs) == std::future_status::ready;
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

// The smallest lock class that a caller can derive.
class Least : public ZAbstractReadWriteLock_6_0 {
public:
    using ZAbstractReadWriteLock_6_0::lock;
    void lock(State state) override { asked += getLockStateName(state) + std::string(" "); }
    int haveLock(State) const override { return 0; }
    int ownWriteLock() const override { return 0; }
    void readLock() override {}
    void writeLock() override {}
    void readWithIntentToWriteLock() override {}
    void promoteReadToWriteLock() override {}

    std::string asked;
};

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

TEST(ZReadWriteLock, ReadersMayStayAfterTheIntendingWriterHasLeft)
{
    ZReadWriteLock_6_0 lock;
    lock.readWithIntentToWriteLock();
    elsewhere([&] { lock.readLock(); });
    lock.unlock();
    expectState({1, kRead}, lock);
    elsewhere([&] { lock.unlock(); });
    expectState({0, kUnset}, lock);
}

TEST(ZReadWriteLock, WriterExcludesAllOthers)
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

TEST(ZReadWriteLock, IntendingWriterExcludesOnlyWriters)
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

TEST(ZReadWriteLock, PromotionWaitsForReadersAndBlocksNewOnes)
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

TEST(ZReadWriteLock, RecursionOfAWriterThrows)
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

TEST(ZReadWriteLock, OnlyTheIntendingWriterCanPromote)
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

TEST(ZReadWriteLock, ReleasingAnUnheldLockThrows)
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

TEST(ZReadWriteLock, BaseLocksForWritingAndReleasesWithTheFlag)
{
    Least least;
    least.lock();
    EXPECT_EQ("write ", least.asked);
    least.unlock();
    least.unlock(1);
    EXPECT_EQ("write ", least.asked);
    class Flagged : public Least {
    public:
        using Least::unlock;
        void unlock(int update) override { asked += "unlock " + std::to_string(update); }
        int getUpdate() const override { return 7; }
    } flagged;
    flagged.unlock();
    EXPECT_EQ("unlock 7", flagged.asked);
}

TEST(ZReadWriteLock, AFailedWaitLeavesTheLockUnchanged)
{
    NotedMessages const noted;
    for (State wanted : {kRead, kProtect, kWrite}) {
        SCOPED_TRACE(wanted);
        ZReadWriteLock_6_0 lock;
        elsewhere([&] { lock.writeLock(); });
        threadCalls.fail[condWait] = EINVAL;
        EXPECT_TRUE(raises<ZConditionException_6_0>(9, EINVAL, "src/Z/ZCondition", 121,
                                                    [&] { lock.lock(wanted); }));
        threadCalls = ThreadCalls();
        expectState({0, kWrite}, lock);
    }
    EXPECT_EQ(3u, noted.messages().size());
}

TEST(ZReadWriteLock, AFailedPromotionRestoresProtect)
{
    for (int broadcast : {0, EAGAIN}) {
        SCOPED_TRACE(broadcast);
        NotedMessages const noted;
        ZReadWriteLock_6_0 lock;
        lock.readLock();
        lock.readWithIntentToWriteLock();
        threadCalls.fail[condWait] = EINVAL;
        threadCalls.fail[condBroadcast] = broadcast;
        EXPECT_TRUE(raises<ZConditionException_6_0>(9, EINVAL, "src/Z/ZCondition", 121,
                                                    [&] { lock.promoteReadToWriteLock(); }));
        threadCalls = ThreadCalls();
        expectState({1, kProtect}, lock);
        ASSERT_EQ(broadcast == 0 ? 1u : 2u, noted.messages().size());
        EXPECT_EQ(9, noted.messages()[0].number);
        EXPECT_EQ(broadcast == 0 ? 9 : 27, noted.messages().back().number);
        elsewhere([&] { lock.unlock(); });
        lock.promoteReadToWriteLock();
        expectState({0, kWrite}, lock);
        lock.unlock();
        expectState({0, kUnset}, lock);
    }
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
        WatchedThread watched;
        CancellableThread thread([&] {
            watched.enter();
            lock.lock(wanted);
        });
        watched.waitUntilAsleep();
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

TEST(ZReadWriteLock, ACancelledPromotionRestoresProtect)
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

TEST(ZStackReadWriteLock, ReleasesTheLockAtTheEndOfTheScope)
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

// A guard constructed with a state in place of the update flag would compile and hold nothing.
template <class Object>
concept TakesAStateAsUpdateFlag = requires(Object& object)
{
    object.unlock(kWrite);
}
|| requires(Object& object)
{
    object.setUpdate(kWrite);
};

TEST(ZStackReadWriteLock, RejectsALockStateAsTheUpdateFlag)
{
    using Guard = ZStackReadWriteLock_6_0;
    static_assert(std::is_constructible_v<Guard, ZReadWriteLock_6_0&, int>);
    static_assert(std::is_constructible_v<Guard, ZReadWriteLock_6_0&, bool>);
    static_assert(!std::is_constructible_v<Guard, ZReadWriteLock_6_0&, State>);
    static_assert(!std::is_constructible_v<Guard, ZAbstractReadWriteLock_6_0&, State>);
    static_assert(!std::is_constructible_v<Guard, State, ZReadWriteLock_6_0&>);
    static_assert(!TakesAStateAsUpdateFlag<Guard>);
    ZReadWriteLock_6_0 lock;
    Guard guard(lock, true);
    guard.writeLock();
    guard.unlock(true);
    guard.setUpdate(false);
    guard.readLock();
    expectState({1, kRead}, lock);
}

template <class Lock>
concept SyncsAState = requires(Lock& lock)
{
    lock.sync(kWrite);
};

TEST(ZReadWriteLock, RejectsALockStateAsTheUpdateFlag)
{
    static_assert(!TakesAStateAsUpdateFlag<ZReadWriteLock_6_0>);
    static_assert(!TakesAStateAsUpdateFlag<ZAbstractReadWriteLock_6_0>);
    static_assert(!TakesAStateAsUpdateFlag<ZAbstractProcessReadWriteLock_6_0>);
    static_assert(!TakesAStateAsUpdateFlag<ZStubProcessReadWriteLock_6_0>);
    static_assert(!TakesAStateAsUpdateFlag<ZUnixProcessReadWriteFileLock_6_0>);
    static_assert(!TakesAStateAsUpdateFlag<ZStubProcessReadWriteFileLock_6_0>);
    static_assert(!SyncsAState<ZAbstractProcessReadWriteLock_6_0>);
    static_assert(!SyncsAState<ZStubProcessReadWriteLock_6_0>);
    static_assert(!SyncsAState<ZUnixProcessReadWriteFileLock_6_0>);
    ZReadWriteLock_6_0 lock;
    lock.setUpdate(true);
    lock.lock(kRead);
    lock.unlock(1);
    expectState({0, kUnset}, lock);
}

TEST(ZStackReadWriteLock, ThrowsIfNothingIsHeld)
{
    ZReadWriteLock_6_0 lock;
    EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(
        6, 0, kSource, 97, [&] { ZStackReadWriteLock_6_0 const guard(lock, 0); }));
}

TEST(ZStackReadWriteLock, ReportsDuringUnwinding)
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

// A release would throw, or release another thread's read lock.
TEST(ZStackReadWriteLock, ReleasesNothingIfItsWaitIsCancelled)
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

// The guard must not release locks of other threads.
TEST(ZStackReadWriteLock, ReleasesNothingIfItsAcquisitionFails)
{
    NotedMessages const noted;
    ZReadWriteLock_6_0 lock;
    elsewhere([&] { lock.readLock(); });
    threadCalls.fail[mutexLock] = EAGAIN;
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, EAGAIN, "src/Z/ZLock", 77, [&] {
        ZStackReadWriteLock_6_0 guard(lock, 1);
        guard.writeLock();
    }));
    threadCalls = ThreadCalls();
    expectState({1, kRead}, lock);
    threadCalls.fail[condWait] = EINVAL;
    EXPECT_TRUE(raises<ZConditionException_6_0>(9, EINVAL, "src/Z/ZCondition", 121, [&] {
        ZStackReadWriteLock_6_0 guard(lock, 1);
        guard.writeLock();
    }));
    threadCalls = ThreadCalls();
    expectState({1, kRead}, lock);
    EXPECT_EQ(0, noted.exceptions());
}

// Makes an acquisition through `guard` fail that would have to wait.
template <class Acquire>
void failToAcquire(Acquire acquire)
{
    threadCalls.fail[mutexLock] = EAGAIN;
    EXPECT_TRUE((raises<ZLockResourceException_6_0>(5, EAGAIN, "src/Z/ZLock", 77, acquire)));
    threadCalls = ThreadCalls();
}

TEST(ZStackReadWriteLock, ReleasesTheLockIfItsThreadAcquiresItAfterAFailure)
{
    for (State const taken : {kRead, kProtect, kWrite}) {
        SCOPED_TRACE(taken);
        ZReadWriteLock_6_0 lock;
        elsewhere([&] { lock.readLock(); });
        {
            ZStackReadWriteLock_6_0 guard(lock, 0);
            failToAcquire([&] { guard.writeLock(); });
            elsewhere([&] { lock.unlock(); });
            lock.lock(taken);
        }
        expectState({0, kUnset}, lock);
    }
}

TEST(ZStackReadWriteLock, ReleasesNothingThatItsThreadHasReleasedAfterAFailure)
{
    ZReadWriteLock_6_0 lock;
    elsewhere([&] { lock.readLock(); });
    {
        ZStackReadWriteLock_6_0 guard(lock, 0);
        failToAcquire([&] { guard.writeLock(); });
        lock.readLock();
        lock.readLock();
        lock.unlock();
        lock.unlock();
        // In the meantime other threads acquire and release.
        elsewhere([&] { lock.readLock(); });
    }
    expectState({2, kRead}, lock);
}

TEST(ZStackReadWriteLock, ReleasesTheLockIfItHeldItBeforeTheFailure)
{
    ZReadWriteLock_6_0 lock;
    elsewhere([&] { lock.readLock(); });
    {
        ZStackReadWriteLock_6_0 guard(lock, 0);
        guard.readLock();
        failToAcquire([&] { guard.writeLock(); });
        failToAcquire([&] { guard.writeLock(); });
    }
    expectState({1, kRead}, lock);
    {
        ZStackReadWriteLock_6_0 guard(lock, 0);
        guard.readLock();
        guard.unlock(0);
        failToAcquire([&] { guard.writeLock(); });
    }
    expectState({1, kRead}, lock);
    {
        ZStackReadWriteLock_6_0 guard(lock, 0);
        failToAcquire([&] { guard.writeLock(); });
        guard.readLock();
    }
    expectState({1, kRead}, lock);
}

TEST(ZStackReadWriteLock, TwoGuardsOfOneLockReleaseTheHoldsOfTheirThread)
{
    ZReadWriteLock_6_0 lock;
    ZReadWriteLock_6_0 other;
    elsewhere([&] { lock.readLock(); });
    {
        ZStackReadWriteLock_6_0 outer(lock, 0);
        failToAcquire([&] { outer.writeLock(); });
        lock.readLock();
        {
            ZStackReadWriteLock_6_0 inner(lock, 0);
            failToAcquire([&] { inner.writeLock(); });
            other.readLock();  // changes only guards of another lock
        }
        expectState({2, kRead}, lock);
    }
    expectState({1, kRead}, lock);
    expectState({1, kRead}, other);
}

// A lock class of the caller, which does not report acquisitions to the guard.
class CallersLock : public ZAbstractReadWriteLock_6_0 {
public:
    using ZAbstractReadWriteLock_6_0::lock;
    void lock(State state) override
    {
        if (std::exchange(fails, false))
            throw std::runtime_error("lock");
        now = state;
        owner = std::this_thread::get_id();
    }
    using ZAbstractReadWriteLock_6_0::unlock;
    void unlock(int) override { now = kUnset; }
    int haveLock(State state) const override { return now == state ? 1 : 0; }
    int ownWriteLock() const override
    {
        return now == kWrite && owner == std::this_thread::get_id() ? 1 : 0;
    }
    void readLock() override { lock(kRead); }
    void writeLock() override { lock(kWrite); }
    void readWithIntentToWriteLock() override { lock(kProtect); }
    void promoteReadToWriteLock() override { lock(kWrite); }

    bool fails = true;
    State now = kUnset;
    std::thread::id owner;
};

TEST(ZStackReadWriteLock, UsesTheStateOfACallersLockAfterAFailure)
{
    for (State const taken : {kRead, kWrite}) {
        SCOPED_TRACE(taken);
        CallersLock lock;
        {
            ZStackReadWriteLock_6_0 guard(lock, 0);
            EXPECT_THROW(guard.readLock(), std::runtime_error);
            lock.lock(taken);
        }
        EXPECT_EQ(kUnset, lock.now);
    }
    CallersLock lock;
    {
        ZStackReadWriteLock_6_0 guard(lock, 0);
        EXPECT_THROW(guard.readLock(), std::runtime_error);
        elsewhere([&] { lock.writeLock(); });
    }
    EXPECT_EQ(kWrite, lock.now);
    lock.fails = true;
    {
        ZStackReadWriteLock_6_0 guard(lock, 0);
        EXPECT_THROW(guard.readLock(), std::runtime_error);
    }
    EXPECT_EQ(kWrite, lock.now);
}

// A lock class of the caller may throw anything.
TEST(ZStackReadWriteLock, HandlesExceptionsOfAnyClass)
{
    class Foreign : public ZReadWriteLock_6_0 {
    public:
        using ZReadWriteLock_6_0::unlock;
        void unlock() override
        {
            ZReadWriteLock_6_0::unlock();
            throw std::runtime_error("unlock");
        }
    } lock;
    NotedMessages const noted;
    EXPECT_THROW(
        {
            ZStackReadWriteLock_6_0 guard(lock, 0);
            guard.readLock();
        },
        std::runtime_error);
    EXPECT_EQ(0u, noted.messages().size());
    EXPECT_THROW(
        {
            ZStackReadWriteLock_6_0 guard(lock, 0);
            guard.readLock();
            throw std::logic_error("the first exception");
        },
        std::logic_error);
    ASSERT_EQ(1u, noted.messages().size());
    EXPECT_EQ(19, noted.messages()[0].number);
    EXPECT_EQ(kSource, noted.messages()[0].file);
    EXPECT_EQ(171, noted.messages()[0].line);
    expectState({0, kUnset}, lock);
}

TEST(ZStackReadWriteLock, ReleasesALockThatItsThreadHeldAlready)
{
    ZReadWriteLock_6_0 lock;
    lock.writeLock();
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, 0, kSource, 61, [&] {
        ZStackReadWriteLock_6_0 guard(lock, 1);
        guard.readLock();
    }));
    expectState({0, kUnset}, lock);
}

// A cancellation is not an exception that the guard could see.
TEST(ZStackReadWriteLock, ReportsIfADirectWaitIsCancelled)
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
