#include <Z/ZCondition.h>
#include <Z/ZException.h>
#include <Z/ZProcessReadWriteLock.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>

#include "LockStates.h"
#include "NotedMessages.h"
#include "Raised.h"
#include "ThreadCalls.h"
#include "Threads.h"

namespace {

// How getrandom() behaves.
bool randomFails = false;
bool randomIsInterrupted = false;

constexpr unsigned long kInvalid = ZAbstractProcessReadWriteLock_6_0::invalidSequence;

constexpr char kSource[] = "src/Z/ZProcessReadWriteLock";
constexpr char kThreadLock[] = "src/Z/ZReadWriteLock";

using Lock = ZStubProcessReadWriteLock_6_0;

// Returns whether a child process knows that it does not hold a lock that its parent holds.
bool childHoldsNothing()
{
    Lock lock("a");
    lock.writeLock();
    pid_t const child = fork();
    if (child == 0) {
        bool const free = lock.getLockState() == kUnset;
        bool const raised = static_cast<bool>(
            raises<ZInvalidResourceStateException_6_0>(32, kSource, 83, [&] { lock.unlock(); }));
        _exit(free && raised ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    bool const held = lock.getLockState() == kWrite;
    lock.unlock();
    return held && status == 0;
}

}  // namespace

extern "C" {
ssize_t __real_getrandom(void*, size_t, unsigned);

ssize_t __wrap_getrandom(void* to, size_t length, unsigned flags)
{
    if (randomIsInterrupted) {
        randomIsInterrupted = false;
        errno = EINTR;
        return -1;
    }
    if (randomFails) {
        errno = ENOSYS;
        return -1;
    }
    return __real_getrandom(to, length, flags);
}
}

// Runs in a process of its own, in which no thread has read the fork mark yet.
TEST(ZProcessReadWriteLockDeathTest, AChildIsRecognisedByItsIdIfAtforkFails)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (bool fails : {false, true}) {
        SCOPED_TRACE(fails);
        EXPECT_EXIT(
            {
                threadCalls.fail[atFork] = fails ? ENOMEM : 0;
                std::exit(childHoldsNothing() ? 0 : 1);
            },
            testing::ExitedWithCode(0), "");
    }
}

TEST(ZProcessReadWriteLock, IsInitiallyFree)
{
    ZAbstractProcessReadWriteLock_6_0 lock("orders");
    EXPECT_STREQ("orders", lock.getLockName());
    EXPECT_EQ(kUnset, lock.getLockState());
    EXPECT_EQ(0ul, lock.getSequence());
    EXPECT_EQ(kInvalid, lock.getLastSequence());
    EXPECT_EQ(0xFFFFFFFFul, kInvalid);
    EXPECT_EQ(kInvalid, ZSequenceUpdate_6_0().getSequence());
    EXPECT_EQ(1, lock.getUpdate());
    EXPECT_EQ(0, lock.getReaderCount());
    EXPECT_EQ(0, lock.isCurrent());
    EXPECT_EQ(0, lock.ownWriteLock());
    EXPECT_EQ(0u, lock.countObservers());
    EXPECT_EQ(nullptr, lock.clone());
}

TEST(ZProcessReadWriteLock, HasARandomNameByDefault)
{
    std::set<std::string> names;
    for (int i = 0; i < 100; ++i) {
        Lock const lock;
        std::string const name = lock.getLockName().getChars();
        ASSERT_EQ(6u, name.size());
        for (char c : name)
            EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-') << c;
        names.insert(name);
    }
    EXPECT_EQ(100u, names.size());
}

TEST(ZProcessReadWriteLock, RetriesTheRandomNameAfterASignal)
{
    randomIsInterrupted = true;
    Lock const lock;
    EXPECT_FALSE(randomIsInterrupted);
    EXPECT_EQ(6u, lock.getLockName().getLength());
}

TEST(ZProcessReadWriteLock, IsNamedAfterTheProcessIfNoRandomBytesExist)
{
    randomFails = true;
    Lock const lock;
    randomFails = false;
    EXPECT_EQ(std::to_string(getpid()) + ".zpl", lock.getLockName().getChars());
}

TEST(ZProcessReadWriteLock, HashesAndComparesByName)
{
    Lock const a("a");
    Lock const alsoA("a");
    Lock const b("b");
    EXPECT_EQ(ZLCString_6_0("a").hash(), a.hash());
    EXPECT_EQ(0, a.compare(alsoA));
    EXPECT_LT(a.compare(b), 0);
    EXPECT_GT(b.compare(a), 0);
    ZObject_6_0 const stranger;
    EXPECT_EQ(a.ZObject_6_0::compare(stranger), a.compare(stranger));
    EXPECT_TRUE(a.equals(alsoA));
}

TEST(ZProcessReadWriteLock, CanBeRenamed)
{
    Lock lock("a");
    ZLCString_6_0 name("b");
    lock.setLockName(name);
    EXPECT_STREQ("b", lock.getLockName());
}

TEST(ZProcessReadWriteLock, SkipsTheInvalidSequenceNumber)
{
    Lock lock("a");
    EXPECT_EQ(1ul, lock.incSequence());
    EXPECT_EQ(1ul, lock.getSequence());
    struct Reach : ZAbstractProcessReadWriteLock_6_0 {
        Reach() : ZAbstractProcessReadWriteLock_6_0("a") { setSequence(0xFFFFFFFD); }
    } last;
    EXPECT_EQ(0xFFFFFFFEul, last.incSequence());
    EXPECT_EQ(0ul, last.incSequence());
    EXPECT_EQ(1ul, last.incSequence());
}

TEST(ZProcessReadWriteLock, KnowsWhetherItIsCurrent)
{
    Lock lock("a");
    lock.setLastSequence();
    EXPECT_EQ(0ul, lock.getLastSequence());
    EXPECT_EQ(1, lock.isCurrent());
    lock.incSequence();
    EXPECT_EQ(0, lock.isCurrent());
    lock.setLastSequence(1);
    EXPECT_EQ(1, lock.isCurrent());
    lock.setLastSequence(0x100000001ul);
    EXPECT_EQ(1ul, lock.getLastSequence());
}

TEST(ZProcessReadWriteLock, LocksByEveryName)
{
    Lock lock("a");
    struct Case {
        char const* name;
        void (*acquire)(Lock&);
        State state;
        int update;
        int readers;
    };
    Case const cases[] = {
        {"lock()", [](Lock& l) { l.lock(); }, kWrite, 1, 0},
        {"lock(read)", [](Lock& l) { l.lock(kRead); }, kRead, 0, 1},
        {"lock(protect)", [](Lock& l) { l.lock(kProtect); }, kProtect, 1, 0},
        {"lock(write)", [](Lock& l) { l.lock(kWrite); }, kWrite, 1, 0},
        {"readLock", [](Lock& l) { l.readLock(); }, kRead, 0, 1},
        {"readWithIntent", [](Lock& l) { l.readWithIntentToWriteLock(); }, kProtect, 1, 0},
        {"writeLock", [](Lock& l) { l.writeLock(); }, kWrite, 1, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        c.acquire(lock);
        EXPECT_EQ(c.state, lock.getLockState());
        EXPECT_EQ(c.update, lock.getUpdate());
        EXPECT_EQ(c.readers, lock.getReaderCount());
        EXPECT_EQ(1, lock.haveLock(c.state));
        EXPECT_EQ(0, lock.haveLock(kUnset));
        EXPECT_EQ(c.state == kWrite ? 1 : 0, lock.ownWriteLock());
        lock.promoteReadToWriteLock();
        EXPECT_EQ(c.state, lock.getLockState());
        lock.unlock(0);
        EXPECT_EQ(kUnset, lock.getLockState());
        EXPECT_EQ(0, lock.getUpdate());
    }
}

TEST(ZProcessReadWriteLock, BaseLocksOnlyBetweenThreads)
{
    ZAbstractProcessReadWriteLock_6_0 lock("a");
    lock.setUpdate(0);
    lock.lock();
    EXPECT_EQ(1, lock.getUpdate());
    EXPECT_EQ(kUnset, lock.getLockState());
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, kThreadLock, 61, [&] { lock.readLock(); }));
    lock.lock(kUnset);
    EXPECT_EQ(0, lock.getUpdate());
    lock.readLock();
    EXPECT_EQ(1, lock.getReaderCount());
    lock.lock(kUnset);
}

TEST(ZProcessReadWriteLock, IncrementsTheNumberIfAWriterReleasesWithUpdate)
{
    struct Case {
        char const* name;
        State state;
        int update;
        unsigned long raisedBy;
    };
    Case const cases[] = {{"writer with update", kWrite, 1, 1},
                          {"writer without", kWrite, 0, 0},
                          {"any value but 0", kWrite, -5, 1},
                          {"reader with update", kRead, 1, 0},
                          {"protect with update", kProtect, 1, 0}};
    Lock lock("a");
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        unsigned long const before = lock.getSequence();
        lock.lock(c.state);
        lock.unlock(c.update);
        EXPECT_EQ(before + c.raisedBy, lock.getSequence());
        EXPECT_EQ(lock.getSequence(), lock.getLastSequence());
    }
}

TEST(ZProcessReadWriteLock, ReleasesWithTheCurrentFlag)
{
    Lock lock("a");
    lock.writeLock();
    lock.unlock();
    EXPECT_EQ(1ul, lock.getSequence());
    lock.writeLock();
    lock.setUpdate(0);
    EXPECT_EQ(0, lock.getUpdate());
    lock.unlock();
    EXPECT_EQ(1ul, lock.getSequence());
}

TEST(ZProcessReadWriteLock, SyncDoesNothingOnAFreeLock)
{
    Lock lock("a");
    lock.sync(1);
    EXPECT_EQ(0ul, lock.getSequence());
    EXPECT_EQ(kInvalid, lock.getLastSequence());
    lock.readLock();
    lock.sync(1);
    EXPECT_EQ(0ul, lock.getLastSequence());
    lock.unlock();
}

TEST(ZProcessReadWriteLock, GuardReleasesIt)
{
    Lock lock("a");
    {
        ZStackReadWriteLock_6_0 guard(lock, 0);
        EXPECT_EQ(0, lock.getUpdate());
        guard.writeLock();
        EXPECT_EQ(1, lock.getUpdate());
        guard.setUpdate(0);
    }
    EXPECT_EQ(kUnset, lock.getLockState());
    EXPECT_EQ(0ul, lock.getSequence());
}

TEST(ZProcessReadWriteLock, KeepsTheFlagThatAGuardSetsImmediately)
{
    Lock lock("a");
    lock.writeLock();
    elsewhere([&] {
        EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(
            6, kThreadLock, 104, [&] { ZStackReadWriteLock_6_0 const guard(lock, 0); }));
    });
    lock.unlock();
    EXPECT_EQ(0ul, lock.getSequence());
}

TEST(ZProcessReadWriteLock, ReleasingAFreeLockThrowsAndChangesNothing)
{
    Lock lock("a");
    EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(6, kThreadLock, 97, [&] { lock.unlock(); }));
    EXPECT_EQ(kUnset, lock.getLockState());
    EXPECT_EQ(1, lock.getUpdate());
}

TEST(ZProcessReadWriteLock, ReleasingInAnotherThreadThrowsAndChangesNothing)
{
    Lock lock("a");
    lock.writeLock();
    elsewhere([&] {
        EXPECT_TRUE(
            raises<ZUnlockResourceException_6_0>(6, kThreadLock, 104, [&] { lock.unlock(1); }));
    });
    EXPECT_EQ(kWrite, lock.getLockState());
    EXPECT_EQ(0ul, lock.getSequence());
    lock.unlock();
    EXPECT_EQ(1ul, lock.getSequence());
}

TEST(ZProcessReadWriteLock, InvalidStateThrowsAndChangesNothing)
{
    Lock lock("a");
    for (int value : {4, -1}) {
        EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(
            32, kSource, 117, [&] { lock.lock(static_cast<State>(value)); }));
        EXPECT_EQ(kUnset, lock.getLockState());
        EXPECT_EQ(0, lock.getReaderCount());
    }
    elsewhere([&] {
        lock.writeLock();
        lock.unlock();
    });
}

TEST(ZProcessReadWriteLock, RequestingTheWriteLockTwiceThrowsAndChangesNothing)
{
    Lock lock("a");
    lock.writeLock();
    lock.setUpdate(0);
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, kThreadLock, 61, [&] { lock.writeLock(); }));
    EXPECT_EQ(kWrite, lock.getLockState());
    EXPECT_EQ(0, lock.getUpdate());
    lock.unlock();
}

TEST(ZProcessReadWriteLock, DestroyingAHeldLockThrows)
{
    auto lock = std::make_unique<Lock>("a");
    lock->writeLock();
    EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(32, kSource, 64,
                                                           [&] { delete lock.release(); }));
    try {
        Lock held("a");
        held.readLock();
    } catch (ZInvalidResourceStateException_6_0 const& e) {
        EXPECT_STREQ("read", e.value());
    }
}

TEST(ZProcessReadWriteLock, DestroyingAHeldLockReportsDuringUnwinding)
{
    NotedMessages const noted;
    try {
        Lock held("a");
        held.writeLock();
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(1, noted.exceptions());
}

TEST(ZProcessReadWriteLock, DestroyingAHeldLockReportsWhileTheThreadIsCancelled)
{
    NotedMessages const noted;
    ZCondition_6_0 condition;
    CancellableThread thread([&] {
        Lock held("a");
        held.writeLock();
        ZResourceLock_6_0 const guard(*condition.getResource());
        condition.wait();
    });
    thread.cancel();
    EXPECT_TRUE(thread.endsCancelled());
    EXPECT_EQ(1, noted.exceptions());
}

TEST(ZProcessReadWriteLock, KeepsTheStateRequestedLast)
{
    Lock lock("a");
    lock.readLock();
    elsewhere([&] { lock.readLock(); });
    EXPECT_EQ(2, lock.getReaderCount());
    lock.unlock();
    EXPECT_EQ(kUnset, lock.getLockState());
    EXPECT_EQ(1, lock.getReaderCount());
    elsewhere([&] { lock.unlock(); });
    EXPECT_EQ(0, lock.getReaderCount());
}
