#include <memory>
#include <thread>
#include <vector>

#include "FileLockFixture.h"
#include "NotedMessages.h"

using namespace file_lock;

// ---- Several lock objects ----------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, TwoObjectsOnOneFileExcludeOneAnother)
{
    Lock one(dir().c_str(), "a");
    ASSERT_EQ(0, symlink(".", directory_.at("sub").c_str()));
    Lock sameFile(directory_.at("sub").c_str(), "a");
    for (State first : {kRead, kWrite})
        for (State second : {kRead, kWrite}) {
            SCOPED_TRACE(first * 10 + second);
            one.lock(first);
            std::future<void> done = std::async(std::launch::async, [&] {
                sameFile.lock(second);
                sameFile.unlock(0);
            });
            bool const together = first == kRead && second == kRead;
            EXPECT_TRUE(together ? comesThrough(done) : staysBlocked(done));
            // The other object has closed its file or waits; the ranges of this object are
            // unchanged.
            EXPECT_EQ(first == kRead ? 'r' : 'w', seen()[0]);
            one.unlock(0);
            EXPECT_TRUE(together || comesThrough(done));
            expectFree(one);
            expectFree(sameFile);
        }
}

TEST_F(ZProcessReadWriteFileLock, ThreadThatWouldWaitForItselfGetsDeadlock)
{
    Lock one(dir().c_str(), "a");
    Lock two(dir().c_str(), "a");
    for (State first : {kRead, kWrite})
        for (State second : {kRead, kWrite}) {
            SCOPED_TRACE(first * 10 + second);
            if (first == kRead && second == kRead)
                continue;
            one.lock(first);
            std::string const ranges = seen();
            EXPECT_TRUE(
                raises<ZLockResourceException_6_0>(33, kSource, 327, [&] { two.lock(second); }));
            try {
                two.lock(second);
            } catch (ZLockResourceException_6_0 const& e) {
                EXPECT_EQ(EDEADLK, e.returnCode());
            }
            EXPECT_EQ(ranges, seen());
            EXPECT_EQ(kUnset, two.getLockState());
            EXPECT_EQ(0, two.getReaderCount());
            EXPECT_EQ(-1, two.getFileHandle());
            one.unlock(0);
            expectFree(one);
            expectFree(two);
        }
}

TEST_F(ZProcessReadWriteFileLock, FormerReaderIsNotTreatedAsAReader)
{
    Lock one(dir().c_str(), "a");
    Lock two(dir().c_str(), "a");
    one.readLock();
    std::promise<void> leave;
    std::promise<void> entered;
    std::thread other([&] {
        one.readLock();
        entered.set_value();
        leave.get_future().wait();
        one.unlock();
    });
    entered.get_future().wait();
    one.unlock();
    // This thread locked the file but no longer reads: it may wait for the other thread.
    WatchedThread writer;
    writer.enter();
    std::thread release([&] {
        writer.waitUntilAsleep();
        leave.set_value();
    });
    two.writeLock();
    two.unlock();
    release.join();
    other.join();
    // The library also knows the reader that arrived later.
    one.readLock();
    elsewhere([&] {
        one.readLock();
        EXPECT_TRUE(raises<ZLockResourceException_6_0>(33, kSource, 327, [&] { two.writeLock(); }));
        one.unlock();
    });
    one.unlock();
    expectFree(one);
    expectFree(two);
}

TEST_F(ZProcessReadWriteFileLock, CycleOfObjectsAndThreadsIsBroken)
{
    Lock reads(dir().c_str(), "a");
    Lock writes(dir().c_str(), "a");
    Lock readsToo(dir().c_str(), "a");
    reads.readLock();
    WatchedThread writer;
    std::future<void> writing = startWatched(writer, [&] {
        writes.writeLock();
        writes.unlock(0);
    });
    EXPECT_TRUE(staysBlocked(writer, writing));
    // The writer holds the gate and waits for this thread.
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(33, kSource, 327, [&] { readsToo.readLock(); }));
    reads.unlock();
    EXPECT_TRUE(comesThrough(writing));
    expectFree(reads);
    expectFree(readsToo);
}

TEST_F(ZProcessReadWriteFileLock, ThreadGetsDeadlockInAnObjectWhereAnotherThreadWaits)
{
    Lock held(dir().c_str(), "a");
    Lock waited(dir().c_str(), "a");
    for (State inside : {kRead, kWrite})
        for (State state : {kRead, kWrite}) {
            SCOPED_TRACE(inside * 10 + state);
            held.writeLock();
            WatchedThread threads[2];
            std::future<void> waiting = startWatched(threads[0], [&] {
                waited.lock(inside);
                waited.unlock(0);
            });
            EXPECT_TRUE(staysBlocked(threads[0], waiting));
            std::future<void> another = startWatched(threads[1], [&] {
                waited.writeLock();
                waited.unlock(0);
            });
            EXPECT_TRUE(staysBlocked(threads[1], another));
            EXPECT_TRUE(raises<ZLockResourceException_6_0>(33, EDEADLK, kSource, 327,
                                                           [&] { waited.lock(state); }));
            EXPECT_EQ("ww", seen());
            held.unlock(0);
            EXPECT_TRUE(comesThrough(waiting));
            EXPECT_TRUE(comesThrough(another));
            expectFree(held);
            expectFree(waited);
        }
}

TEST_F(ZProcessReadWriteFileLock, ReaderThatRequestsTheWriteLockGetsDeadlock)
{
    Lock lock(dir().c_str(), "a");
    ZStubProcessReadWriteFileLock_6_0 stub(dir().c_str(), "a");
    ZAbstractProcessReadWriteFileLock_6_0* const locks[] = {&lock, &stub};
    for (ZAbstractProcessReadWriteFileLock_6_0* each : locks) {
        each->readLock();
        EXPECT_TRUE(raises<ZLockResourceException_6_0>(33, EDEADLK, kSource, 327,
                                                       [&] { each->writeLock(); }));
        EXPECT_EQ(1, each->getReaderCount());
        each->unlock();
    }
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, LocksOnTwoFilesInOppositeOrderGetDeadlock)
{
    Lock one(dir().c_str(), "a");
    Lock two(dir().c_str(), "b");
    one.writeLock();
    std::promise<void> entered;
    WatchedThread otherThread;
    std::future<void> other = startWatched(otherThread, [&] {
        two.readLock();
        entered.set_value();
        one.readLock();
        one.unlock();
        two.unlock();
    });
    entered.get_future().wait();
    EXPECT_TRUE(staysBlocked(otherThread, other));
    EXPECT_TRUE(
        raises<ZLockResourceException_6_0>(33, EDEADLK, kSource, 327, [&] { two.writeLock(); }));
    one.unlock();
    EXPECT_TRUE(comesThrough(other));
    expectFree(one);
    expectFree(two);
}

// A thread may release a read lock of another thread. Its holder is unknown then, so the library
// reports no deadlock for any thread.
TEST_F(ZProcessReadWriteFileLock, ReadLockReleasedByAnotherThreadHasNoKnownHolder)
{
    Lock lock(dir().c_str(), "a");
    // Two threads acquire one read lock each. A third thread releases both, one of them later.
    std::promise<void> entered;
    std::promise<void> ended;
    std::thread reader([&] {
        lock.readLock();
        entered.set_value();
        ended.get_future().wait();
    });
    entered.get_future().wait();
    lock.readLock();
    std::promise<void> releasedOne;
    WatchedThread writer;
    std::thread stranger([&] {
        lock.unlock();
        releasedOne.set_value();
        writer.waitUntilAsleep();
        lock.unlock();
    });
    releasedOne.get_future().wait();
    EXPECT_EQ(1, lock.getReaderCount());
    writer.enter();
    lock.writeLock();
    lock.unlock(0);
    stranger.join();
    ended.set_value();
    reader.join();
    // After the last release no read lock is attributed to this thread.
    lock.readLock();
    elsewhere([&] { lock.unlock(); });
    lock.writeLock();
    lock.unlock(0);
    expectFree(lock);
}

// ---- Changes -----------------------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, FirstAcquisitionNotifiesNoObserver)
{
    putSequence(7);
    Lock lock(dir().c_str(), "a");
    Observer observer;
    lock.addObserver(&observer);
    lock.readLock();
    EXPECT_EQ(kRead, lock.getLockState());
    EXPECT_EQ(7ul, lock.getSequence());
    EXPECT_EQ(7ul, lock.getLastSequence());
    lock.unlock();
    EXPECT_EQ("", observer.changes);
}

TEST_F(ZProcessReadWriteFileLock, KeepsTheWriteLockOfAReaderThatNotifies)
{
    for (State asked : {kRead, kProtect}) {
        SCOPED_TRACE(asked);
        Lock lock(dir().c_str(), "a");
        Observer observer;
        lock.addObserver(&observer);
        lock.lock(asked);
        lock.unlock(0);
        changeElsewhere();
        uint32_t const sequence = word(0);
        lock.lock(asked);
        EXPECT_EQ(std::to_string(sequence - 1) + ">" + std::to_string(sequence) + " ",
                  observer.changes);
        EXPECT_EQ(kWrite, lock.getLockState());
        EXPECT_EQ("ww", seen());
        EXPECT_EQ(0, lock.getUpdate());
        EXPECT_EQ(0, lock.isCurrent());
        lock.unlock();
        EXPECT_EQ(sequence, word(0));
        EXPECT_EQ(1, lock.isCurrent());
        expectFree(lock);
    }
}

TEST_F(ZProcessReadWriteFileLock, WriterNotifiesAndItsReleaseIsAnUpdate)
{
    Lock lock(dir().c_str(), "a");
    Observer observer;
    lock.addObserver(&observer);
    lock.readLock();
    lock.unlock();
    changeElsewhere();
    lock.writeLock();
    EXPECT_EQ("0>1 ", observer.changes);
    EXPECT_EQ(1, lock.getUpdate());
    lock.unlock();
    EXPECT_EQ(2u, word(0));
    // An object's own change is not reported to its own observers.
    lock.readLock();
    EXPECT_EQ(kRead, lock.getLockState());
    lock.unlock();
    EXPECT_EQ("0>1 ", observer.changes);
}

TEST_F(ZProcessReadWriteFileLock, WithoutObserversTheRequestedLockIsHeld)
{
    Lock lock(dir().c_str(), "a");
    lock.readLock();
    lock.unlock();
    changeElsewhere();
    lock.readLock();
    EXPECT_EQ(kRead, lock.getLockState());
    EXPECT_EQ(0, lock.isCurrent());
    lock.unlock();
    EXPECT_EQ(1, lock.isCurrent());
}

TEST_F(ZProcessReadWriteFileLock, ObserverThatThrowsLeavesNothingHeld)
{
    for (State asked : {kRead, kWrite}) {
        SCOPED_TRACE(asked);
        Lock lock(dir().c_str(), "a");
        Observer observer;
        observer.throws = true;
        lock.addObserver(&observer);
        lock.readLock();
        lock.unlock();
        changeElsewhere();
        uint32_t const sequence = word(0);
        EXPECT_THROW(lock.lock(asked), std::runtime_error);
        EXPECT_EQ(kUnset, lock.getLockState());
        EXPECT_EQ(-1, lock.getFileHandle());
        EXPECT_EQ("--", seen());
        EXPECT_EQ(sequence, word(0));
        // The observer must be notified again.
        observer.throws = false;
        observer.changes = "";
        lock.lock(asked);
        EXPECT_NE("", observer.changes);
        lock.unlock(0);
        expectFree(lock);
    }
}

TEST_F(ZProcessReadWriteFileLock, ReadersThatSeeAChangeTogetherReportItOnce)
{
    Lock lock(dir().c_str(), "a");
    Observer observer;
    lock.addObserver(&observer);
    lock.readLock();
    lock.unlock();
    for (int round = 1; round <= 20; ++round) {
        observer.changes = "";
        // Another process writes while no thread of this process holds the lock.
        putSequence(static_cast<uint32_t>(round));
        std::vector<std::thread> readers;
        for (int i = 0; i < 4; ++i)
            readers.emplace_back([&] {
                lock.readLock();
                lock.unlock();
            });
        for (std::thread& reader : readers)
            reader.join();
        EXPECT_EQ(std::to_string(round - 1) + ">" + std::to_string(round) + " ", observer.changes);
        EXPECT_EQ(static_cast<uint32_t>(round), word(0));
    }
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, ReaderDoesNotRepeatANotificationOfAnotherThread)
{
    // Another thread acquires the lock between the two acquisitions of the reader.
    class Overtaken : public Lock {
    public:
        using Lock::Lock;
        void dolock(State state) override
        {
            Lock::dolock(state);
            if (state != kUnset || !armed)
                return;
            armed = false;
            elsewhere([this] {
                writeLock();
                unlock(0);
            });
        }
        bool armed = false;
    } lock(dir().c_str(), "a");
    Observer observer;
    lock.addObserver(&observer);
    lock.setLastSequence(0);
    putSequence(5);
    lock.armed = true;
    lock.readLock();
    EXPECT_FALSE(lock.armed);
    EXPECT_EQ("0>5 ", observer.changes);
    EXPECT_EQ(kWrite, lock.getLockState());
    EXPECT_EQ(0, lock.getUpdate());
    lock.unlock();
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, ReaderThatFailsWhileItNotifiesHoldsNothing)
{
    NotedMessages const noted;
    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        Lock lock(dir().c_str(), "a");
        Observer observer;
        lock.addObserver(&observer);
        lock.setLastSequence(0);
        putSequence(5);
        bool raised = false;
        bool failed = false;
        {
            CallPlan wanted;
            wanted.failAt = n;
            WatchedCalls const watched(wanted);
            try {
                lock.readLock();
            } catch (ZResourceException_6_0 const&) {
                raised = true;
            }
            failed = !callPlan.failed.empty();
        }
        ASSERT_LT(n, 100);
        if (!raised) {
            EXPECT_EQ("0>5 ", observer.changes);
            EXPECT_EQ(kWrite, lock.getLockState());
            lock.unlock();
        }
        expectFree(lock);
        EXPECT_EQ(5u, word(0));
        if (!failed)
            break;
    }
}

int main(int argc, char** argv)
{
    if (OtherLocker::isWanted(argc, argv))
        return OtherLocker::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
