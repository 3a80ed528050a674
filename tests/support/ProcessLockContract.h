// ProcessLockContract: the promises of every read-write lock between processes, in files or in a
// cluster.
//
// The tests are instantiated for a class Kind with
//
//     using Lock                             the class of the lock
//     std::unique_ptr<Lock> make()           a lock object; all of them are one lock
//     uint32_t sequence()                    the number that other processes see
//     void putSequence(uint32_t)             another process has written this number
//     std::string held()                     "free", "read" or "write", as other processes see it
//     void checkDetails(Lock const& lock)    checks that further properties of this kind of lock
//                                            agree with held(); only `lock` uses the lock then
#pragma once

#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "LockStates.h"
#include "ProcessLockChecks.h"
#include "Raised.h"
#include "Threads.h"

template <class Kind>
class ProcessLockContract : public testing::Test {
protected:
    static constexpr char kFileLock[] = "src/Z/ZProcessReadWriteFileLock";
    static constexpr char kThreadLock[] = "src/Z/ZReadWriteLock";

    using Lock = typename Kind::Lock;

    using Observer = process_lock::Observer;

    // Expects that other processes see this, while only this object uses the lock.
    void expectHeld(char const* held, Lock const& lock)
    {
        EXPECT_EQ(held, kind_.held());
        kind_.checkDetails(lock);
    }

    void expectFree(Lock& lock)
    {
        EXPECT_EQ(kUnset, lock.getLockState());
        EXPECT_EQ(0, lock.getReaderCount());
        expectHeld("free", lock);
        // No thread holds the lock between threads either.
        elsewhere([&] {
            lock.writeLock();
            lock.unlock(0);
        });
    }

    Kind kind_;
};

TYPED_TEST_SUITE_P(ProcessLockContract);

// ---- Exclusion ---------------------------------------------------------------------------------

TYPED_TEST_P(ProcessLockContract, TwoObjectsExcludeOneAnother)
{
    auto const one = this->kind_.make();
    auto const same = this->kind_.make();
    for (State first : {kRead, kWrite})
        for (State second : {kRead, kWrite}) {
            SCOPED_TRACE(first * 10 + second);
            one->lock(first);
            std::future<void> done = std::async(std::launch::async, [&] {
                same->lock(second);
                same->unlock(0);
            });
            bool const together = first == kRead && second == kRead;
            EXPECT_TRUE(together ? process_lock::comesThrough(done) : staysBlocked(done));
            EXPECT_EQ(first == kRead ? "read" : "write", this->kind_.held());
            one->unlock(0);
            EXPECT_TRUE(together || process_lock::comesThrough(done));
            this->expectFree(*one);
            this->expectFree(*same);
        }
}

TYPED_TEST_P(ProcessLockContract, ThreadsExcludeOneAnother)
{
    auto const lock = this->kind_.make();
    lock->writeLock();
    std::future<void> reading = std::async(std::launch::async, [&] {
        lock->readLock();
        lock->unlock();
    });
    EXPECT_TRUE(staysBlocked(reading));
    lock->unlock();
    EXPECT_TRUE(process_lock::comesThrough(reading));
    this->expectFree(*lock);
}

TYPED_TEST_P(ProcessLockContract, OneThreadMayReadTwice)
{
    auto const lock = this->kind_.make();
    lock->readLock();
    lock->readLock();
    EXPECT_EQ(2, lock->getReaderCount());
    lock->unlock();
    this->expectHeld("read", *lock);
    lock->unlock();
    this->expectFree(*lock);
}

TYPED_TEST_P(ProcessLockContract, LastReaderOfTheProcessReleasesTheLock)
{
    auto const lock = this->kind_.make();
    lock->readLock();
    elsewhere([&] {
        lock->readLock();
        EXPECT_EQ(2, lock->getReaderCount());
    });
    lock->unlock();
    EXPECT_EQ(kRead, lock->getLockState());
    this->expectHeld("read", *lock);
    elsewhere([&] { lock->unlock(); });
    this->expectFree(*lock);
}

// ---- The sequence number -----------------------------------------------------------------------

TYPED_TEST_P(ProcessLockContract, SequenceIncreasesIfAWriterReleasesWithUpdate)
{
    auto const lock = this->kind_.make();
    process_lock::expectWritersIncreaseSequence(*lock, [&] { return this->kind_.sequence(); });
}

TYPED_TEST_P(ProcessLockContract, SequenceIsIncrementedByWritersOnly)
{
    auto const lock = this->kind_.make();
    process_lock::expectOnlyWritersIncrement(*lock, [&] { return this->kind_.sequence(); });
}

TYPED_TEST_P(ProcessLockContract, SequenceSkipsTheInvalidNumber)
{
    auto const lock = this->kind_.make();
    this->kind_.putSequence(0xFFFFFFFE);
    lock->writeLock();
    EXPECT_EQ(0xFFFFFFFEul, lock->getSequence());
    lock->unlock();
    EXPECT_EQ(0u, this->kind_.sequence());
    EXPECT_EQ(0ul, lock->getSequence());
}

TYPED_TEST_P(ProcessLockContract, SequenceHas32Bits)
{
    auto const lock = this->kind_.make();
    lock->writeLock();
    lock->writeSequenceNumber(0x1122334455667788ul);
    unsigned long sequence = ~0ul;
    lock->readSequenceNumber(&sequence);
    EXPECT_EQ(0x55667788ul, sequence);
    lock->readSequenceNumber(nullptr);
    lock->unlock(0);
    EXPECT_EQ(0x55667788u, this->kind_.sequence());
}

// ---- Releasing ---------------------------------------------------------------------------------

TYPED_TEST_P(ProcessLockContract, ReleasingAFreeLockThrows)
{
    auto const lock = this->kind_.make();
    EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(6, TestFixture::kThreadLock, 97,
                                                     [&] { lock->unlock(); }));
    this->expectFree(*lock);
}

TYPED_TEST_P(ProcessLockContract, ReleasingInAnotherThreadThrowsAndChangesNothing)
{
    auto const lock = this->kind_.make();
    lock->writeLock();
    elsewhere([&] {
        EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(6, TestFixture::kThreadLock, 104,
                                                         [&] { lock->unlock(); }));
        EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(6, TestFixture::kThreadLock, 104,
                                                         [&] { lock->lock(kUnset); }));
    });
    this->expectHeld("write", *lock);
    EXPECT_EQ(0u, this->kind_.sequence());
    EXPECT_EQ(kWrite, lock->getLockState());
    lock->unlock();
    this->expectFree(*lock);
}

TYPED_TEST_P(ProcessLockContract, InvalidStateThrowsAndChangesNothing)
{
    auto const lock = this->kind_.make();
    for (int value : {4, 7, -1})
        EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(
            32, TestFixture::kFileLock, 203, [&] { lock->lock(static_cast<State>(value)); }));
    this->expectFree(*lock);
}

TYPED_TEST_P(ProcessLockContract, RequestingTheWriteLockTwiceThrowsAndChangesNothing)
{
    auto const lock = this->kind_.make();
    lock->writeLock();
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, TestFixture::kThreadLock, 61,
                                                   [&] { lock->writeLock(); }));
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, TestFixture::kThreadLock, 61,
                                                   [&] { lock->readLock(); }));
    this->expectHeld("write", *lock);
    lock->unlock();
    this->expectFree(*lock);
}

// ---- Changes -----------------------------------------------------------------------------------

TYPED_TEST_P(ProcessLockContract, FirstAcquisitionNotifiesNoObserver)
{
    this->kind_.putSequence(7);
    auto const lock = this->kind_.make();
    typename TestFixture::Observer observer;
    lock->addObserver(&observer);
    lock->readLock();
    EXPECT_EQ(kRead, lock->getLockState());
    EXPECT_EQ(7ul, lock->getSequence());
    EXPECT_EQ(7ul, lock->getLastSequence());
    lock->unlock();
    EXPECT_EQ("", observer.changes);
}

TYPED_TEST_P(ProcessLockContract, WriterNotifiesAndItsReleaseIsAnUpdate)
{
    auto const lock = this->kind_.make();
    typename TestFixture::Observer observer;
    lock->addObserver(&observer);
    lock->readLock();
    lock->unlock();
    this->kind_.putSequence(1);
    lock->writeLock();
    EXPECT_EQ("0>1 ", observer.changes);
    EXPECT_EQ(1, lock->getUpdate());
    lock->unlock();
    EXPECT_EQ(2u, this->kind_.sequence());
    // An object's own change is not reported to its own observers.
    lock->readLock();
    EXPECT_EQ(kRead, lock->getLockState());
    lock->unlock();
    EXPECT_EQ("0>1 ", observer.changes);
}

TYPED_TEST_P(ProcessLockContract, ReaderThatNotifiesHasTheWriteLock)
{
    for (State asked : {kRead, kProtect}) {
        SCOPED_TRACE(asked);
        auto const lock = this->kind_.make();
        typename TestFixture::Observer observer;
        lock->addObserver(&observer);
        lock->lock(asked);
        lock->unlock(0);
        uint32_t const sequence = this->kind_.sequence() + 1;
        this->kind_.putSequence(sequence);
        lock->lock(asked);
        EXPECT_EQ(std::to_string(sequence - 1) + ">" + std::to_string(sequence) + " ",
                  observer.changes);
        EXPECT_EQ(kWrite, lock->getLockState());
        this->expectHeld("write", *lock);
        EXPECT_EQ(0, lock->getUpdate());
        EXPECT_EQ(0, lock->isCurrent());
        lock->unlock();
        EXPECT_EQ(sequence, this->kind_.sequence());
        EXPECT_EQ(1, lock->isCurrent());
        this->expectFree(*lock);
    }
}

TYPED_TEST_P(ProcessLockContract, WithoutObserversTheRequestedLockIsHeld)
{
    auto const lock = this->kind_.make();
    lock->readLock();
    lock->unlock();
    this->kind_.putSequence(1);
    lock->readLock();
    EXPECT_EQ(kRead, lock->getLockState());
    EXPECT_EQ(0, lock->isCurrent());
    lock->unlock();
    EXPECT_EQ(1, lock->isCurrent());
}

TYPED_TEST_P(ProcessLockContract, ObserverThatThrowsLeavesNothingHeld)
{
    uint32_t sequence = 0;
    for (State asked : {kRead, kWrite}) {
        SCOPED_TRACE(asked);
        auto const lock = this->kind_.make();
        typename TestFixture::Observer observer;
        observer.throws = true;
        lock->addObserver(&observer);
        lock->readLock();
        lock->unlock();
        this->kind_.putSequence(++sequence);
        EXPECT_THROW(lock->lock(asked), std::runtime_error);
        EXPECT_EQ(kUnset, lock->getLockState());
        this->expectHeld("free", *lock);
        EXPECT_EQ(sequence, this->kind_.sequence());
        // The observer must be notified again.
        observer.throws = false;
        observer.changes = "";
        lock->lock(asked);
        EXPECT_NE("", observer.changes);
        lock->unlock(0);
        this->expectFree(*lock);
    }
}

TYPED_TEST_P(ProcessLockContract, ReadersThatSeeAChangeTogetherReportItOnce)
{
    auto const lock = this->kind_.make();
    typename TestFixture::Observer observer;
    lock->addObserver(&observer);
    lock->readLock();
    lock->unlock();
    for (int round = 1; round <= 20; ++round) {
        observer.changes = "";
        // Another process writes while no thread of this process holds the lock.
        this->kind_.putSequence(static_cast<uint32_t>(round));
        std::vector<std::thread> readers;
        for (int i = 0; i < 4; ++i)
            readers.emplace_back([&] {
                lock->readLock();
                lock->unlock();
            });
        for (std::thread& reader : readers)
            reader.join();
        EXPECT_EQ(std::to_string(round - 1) + ">" + std::to_string(round) + " ", observer.changes);
        EXPECT_EQ(static_cast<uint32_t>(round), this->kind_.sequence());
    }
    this->expectFree(*lock);
}

REGISTER_TYPED_TEST_SUITE_P(
    ProcessLockContract, TwoObjectsExcludeOneAnother, ThreadsExcludeOneAnother,
    OneThreadMayReadTwice, LastReaderOfTheProcessReleasesTheLock,
    SequenceIncreasesIfAWriterReleasesWithUpdate, SequenceIsIncrementedByWritersOnly,
    SequenceSkipsTheInvalidNumber, SequenceHas32Bits, ReleasingAFreeLockThrows,
    ReleasingInAnotherThreadThrowsAndChangesNothing, InvalidStateThrowsAndChangesNothing,
    RequestingTheWriteLockTwiceThrowsAndChangesNothing, FirstAcquisitionNotifiesNoObserver,
    WriterNotifiesAndItsReleaseIsAnUpdate, ReaderThatNotifiesHasTheWriteLock,
    WithoutObserversTheRequestedLockIsHeld, ObserverThatThrowsLeavesNothingHeld,
    ReadersThatSeeAChangeTogetherReportItOnce);
