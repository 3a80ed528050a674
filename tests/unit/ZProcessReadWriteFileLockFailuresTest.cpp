#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "EachAllocation.h"
#include "FailingAllocator.h"
#include "FileLockFixture.h"
#include "NotedMessages.h"
#include "ThreadCalls.h"

using namespace file_lock;

namespace {

int writesNothing(SystemCall const& call)
{
    return call.name == "pwrite" ? kMovesNothing : 0;
}

}  // namespace

// ---- Failures ----------------------------------------------------------------------------------

// Each call of an acquisition fails once: the lock leaves nothing held.
TEST_F(ZProcessReadWriteFileLock, FailedAcquisitionIsUndoneCompletely)
{
    NotedMessages const noted;
    for (State state : {kRead, kWrite})
        for (bool forEver : {false, true})
            for (int n = 1;; ++n) {
                SCOPED_TRACE(state * 1000 + forEver * 100 + n);
                unlink(path().c_str());
                Lock lock(dir().c_str(), "a");
                long const before = openDescriptors();
                int message = 0;
                int rc = 0;
                std::string failed;
                {
                    CallPlan wanted;
                    (forEver ? wanted.failFrom : wanted.failAt) = n;
                    WatchedCalls const watched(wanted);
                    try {
                        lock.lock(state);
                    } catch (ZResourceException_6_0 const& e) {
                        message = static_cast<int>(e.messageNumber());
                        rc = e.returnCode();
                        EXPECT_STREQ(kSource, e.who());
                    }
                    failed = callPlan.failed;
                }
                if (message == 0) {
                    // An acquisition succeeds even if the checks of the path and of the process id
                    // fail.
                    EXPECT_TRUE(failed.empty() || failed == "stat" || failed == "pread") << failed;
                    lock.unlock(0);
                    expectFree(lock);
                    if (failed.empty())
                        break;
                    continue;
                }
                std::string const& first = failed;
                if (!forEver) {
                    int const expected = first == "pread" ? 35 : first == "F_SETLK" ? 34 : 33;
                    EXPECT_EQ(expected, message) << first;
                    EXPECT_EQ(first == "open" || first == "fstat" ? EBADF : EIO, rc) << first;
                }
                EXPECT_EQ(kUnset, lock.getLockState()) << first;
                EXPECT_EQ(-1, lock.getFileHandle()) << first;
                EXPECT_EQ(before, openDescriptors()) << first;
                expectFree(lock);
            }
}

// A reader whose acquisition fails counts as a reader for a moment. A reader that leaves in that
// moment must not leave the file locked for it.
TEST_F(ZProcessReadWriteFileLock, FailedAcquisitionOfOneThreadLeavesTheFileToNoReader)
{
    class Failing : public ZStubProcessReadWriteFileLock_6_0 {
    public:
        void lockFile(State) override
        {
            if (++calls_ % 3 == 0)
                ZLockResourceException_6_0(33, EINTR).throwException("test", 1);
        }

    private:
        std::atomic<unsigned> calls_{0};
    } lock;
    std::atomic<int> others{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            for (int n = i; n < 20000; ++n) {
                try {
                    lock.lock(n % 8 == 0 ? kWrite : kRead);
                    lock.unlock(0);
                } catch (ZLockResourceException_6_0 const&) {
                } catch (ZException_6_0 const&) {
                    ++others;
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, others);
    EXPECT_EQ(kUnset, lock.getLockState());
    EXPECT_EQ(0, lock.getReaderCount());
}

TEST_F(ZProcessReadWriteFileLock, FileMutexThatFailsLeavesNothingHeld)
{
    Lock lock(dir().c_str(), "a");
    for (State state : {kRead, kWrite}) {
        SCOPED_TRACE(state);
        // The mutex of the file table is locked first: once to register the claim, and once after
        // the lock between threads is acquired.
        failThreadCall(mutexLock, 3);
        EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, EAGAIN, "src/Z/ZLock", 77,
                                                       [&] { lock.lock(state); }));
        EXPECT_TRUE(stopFailingThreadCalls());
        EXPECT_EQ("", directory_.names()) << "the file is not opened without its mutex";
        elsewhere([&] { EXPECT_EQ(0, lock.getReaderCount()); });
        lock.lock(state);
        lock.unlock(0);
        expectFree(lock);
        unlink(path().c_str());
    }
}

// A step overridden by a derived class may throw anything.
TEST_F(ZProcessReadWriteFileLock, CleanUpThatThrowsIsReportedAndContinues)
{
    class Failing : public ZStubProcessReadWriteFileLock_6_0 {
    public:
        void unlockFile() override
        {
            if (fails)
                throw std::runtime_error("unlockFile");
        }
        void readSequenceNumber(unsigned long*) override
        {
            if (fails)
                ZReadResourceException_6_0(35, EIO).throwException("test", 1);
        }
        bool fails = true;
    } lock;
    NotedMessages const noted;
    for (State state : {kRead, kWrite}) {
        SCOPED_TRACE(state);
        lock.fails = true;
        EXPECT_TRUE(raises<ZReadResourceException_6_0>(35, "test", 1, [&] { lock.lock(state); }));
        EXPECT_EQ(kUnset, lock.getLockState());
        EXPECT_EQ(0, lock.getReaderCount());
        lock.fails = false;
        lock.writeLock();
        lock.unlock();
    }
    ASSERT_EQ(4u, noted.messages().size()) << "each tries twice";
    EXPECT_EQ(19, noted.messages()[0].number);
    EXPECT_EQ(kSource, noted.messages()[0].file);
    EXPECT_EQ(406, noted.messages()[0].line);
}

TEST_F(ZProcessReadWriteFileLock, FailedReleaseLeavesTheLockHeld)
{
    for (State state : {kRead, kWrite})
        for (int n = 1;; ++n) {
            SCOPED_TRACE(state * 100 + n);
            Lock lock(dir().c_str(), "a");
            lock.lock(state);
            bool raised = false;
            std::string failed;
            {
                CallPlan wanted;
                wanted.failAt = n;
                WatchedCalls const watched(wanted);
                try {
                    lock.unlock(0);
                } catch (ZUnlockResourceException_6_0 const& e) {
                    raised = true;
                    EXPECT_EQ(34u, e.messageNumber());
                    EXPECT_EQ(EIO, e.returnCode());
                    EXPECT_EQ(331u, e.where());
                }
                failed = callPlan.failed;
            }
            EXPECT_EQ(failed == "F_SETLK", raised) << failed;
            if (raised) {
                EXPECT_EQ(state, lock.getLockState());
                EXPECT_NE("--", seen());
                lock.unlock(0);
            }
            expectFree(lock);
            if (failed.empty())
                break;
        }
}

TEST_F(ZProcessReadWriteFileLock, FailedIncrementLeavesTheLockHeld)
{
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    lock.unlock();
    lock.writeLock();
    {
        CallPlan wanted;
        wanted.failAt = 1;
        wanted.error = ENOSPC;
        WatchedCalls const watched(wanted);
        EXPECT_TRUE(raises<ZWriteResourceException_6_0>(33, kSource, 352, [&] { lock.unlock(); }));
        EXPECT_EQ("pwrite", callPlan.failed);
    }
    EXPECT_EQ(kWrite, lock.getLockState());
    EXPECT_EQ("ww", seen());
    EXPECT_EQ(0ul, lock.getSequence());
    EXPECT_EQ(1u, word(0));
    lock.unlock(0);
    EXPECT_EQ(1u, word(0));
    expectFree(lock);
}

// Another process may have seen any lower number last, and would not notice the update.
TEST_F(ZProcessReadWriteFileLock, SequenceIncreasesAfterAFailedIncrement)
{
    putSequence(5);
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    for (char const* call : {"pwrite", "pread"}) {
        CallPlan wanted;
        wanted.failAt = 1;
        WatchedCalls const watched(wanted);
        EXPECT_THROW(lock.unlock(), ZWriteResourceException_6_0);
        EXPECT_EQ(call, callPlan.failed);
        EXPECT_EQ(kWrite, lock.getLockState());
        EXPECT_EQ(0ul, lock.getSequence());
        EXPECT_EQ(5u, word(0));
    }
    lock.unlock();
    EXPECT_EQ(6u, word(0));
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, GuardReleasesWithoutTheFailedUpdate)
{
    Lock lock(dir().c_str(), "a");
    EXPECT_THROW(
        {
            ZStackReadWriteLock_6_0 guard(lock, 1);
            guard.writeLock();
            CallPlan wanted;
            wanted.failAt = 1;
            callPlan = wanted;
            callPlan.watched = true;
        },
        ZWriteResourceException_6_0);
    callPlan = CallPlan();
    EXPECT_EQ(0u, word(0));
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, GuardReleasesNothingIfItsAcquisitionFails)
{
    NotedMessages const noted;
    Lock lock(dir().c_str(), "a");
    CallPlan wanted;
    wanted.failing = {{"F_SETLKW", ENOLCK}};
    for (State state : {kRead, kProtect, kWrite}) {
        SCOPED_TRACE(state);
        EXPECT_TRUE(raises<ZLockResourceException_6_0>(33, ENOLCK, kSource, 327, [&] {
            ZStackReadWriteLock_6_0 guard(lock, 1);
            WatchedCalls const watched(wanted);
            if (state == kRead)
                guard.readLock();
            else if (state == kProtect)
                guard.readWithIntentToWriteLock();
            else
                guard.writeLock();
        }));
        expectFree(lock);
    }
    EXPECT_EQ(0, noted.exceptions());
}

TEST_F(ZProcessReadWriteFileLock, GuardReleasesTheLockIfItsThreadAcquiresItAfterAFailure)
{
    NotedMessages const noted;
    Lock lock(dir().c_str(), "a");
    CallPlan wanted;
    wanted.failing = {{"F_SETLKW", ENOLCK}};
    for (State const state : {kRead, kWrite}) {
        SCOPED_TRACE(state);
        {
            ZStackReadWriteLock_6_0 guard(lock, 1);
            {
                WatchedCalls const watched(wanted);
                EXPECT_THROW(guard.writeLock(), ZLockResourceException_6_0);
            }
            lock.lock(state);
        }
        expectFree(lock);
    }
    {
        ZStackReadWriteLock_6_0 guard(lock, 1);
        {
            WatchedCalls const watched(wanted);
            EXPECT_THROW(guard.writeLock(), ZLockResourceException_6_0);
        }
        elsewhere([&] { lock.readLock(); });
    }
    EXPECT_EQ(1, lock.getReaderCount());
    lock.unlock();
    expectFree(lock);
    EXPECT_EQ(0, noted.exceptions());
}

// The thread would wait for itself: it already holds the guard's lock for reading.
TEST_F(ZProcessReadWriteFileLock, GuardReleasesAReadLockThatItsThreadHeldAlready)
{
    NotedMessages const noted;
    Lock lock(dir().c_str(), "a");
    lock.readLock();
    {
        ZStackReadWriteLock_6_0 guard(lock, 0);
        EXPECT_TRUE(raises<ZLockResourceException_6_0>(33, EDEADLK, kSource, 327,
                                                       [&] { guard.writeLock(); }));
        EXPECT_EQ(1, lock.getReaderCount());
    }
    expectFree(lock);
    // Read locks of another thread, or of this thread through another lock object, stay held.
    Lock other(dir().c_str(), "a");
    other.readLock();
    elsewhere([&] { lock.readLock(); });
    {
        ZStackReadWriteLock_6_0 guard(lock, 0);
        EXPECT_THROW(guard.writeLock(), ZLockResourceException_6_0);
    }
    EXPECT_EQ(1, lock.getReaderCount());
    EXPECT_EQ(1, other.getReaderCount());
    other.unlock();
    lock.unlock();
    EXPECT_EQ(0, noted.exceptions());
}

TEST_F(ZProcessReadWriteFileLock, KeepsTheMessageOfAFailedWrite)
{
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    uint32_t value = 5;
    {
        CallPlan wanted;
        wanted.before = writesNothing;
        WatchedCalls const watched(wanted);
        EXPECT_TRUE(raises<ZWriteResourceException_6_0>(33, kSource, 352,
                                                        [&] { lock.writeBytes(&value, 0, 4); }));
    }
    EXPECT_TRUE(raises<ZWriteResourceException_6_0>(33, kSource, 352,
                                                    [&] { lock.writeBytes(&value, 0, 0); }));
    lock.unlock(0);
    EXPECT_EQ(0u, word(0));
}

TEST_F(ZProcessReadWriteFileLock, FileSizeLimitIsAnOrdinaryFailure)
{
    struct Case {
        char const* name;
        rlim_t limit;
        bool isPending;  // the caller has blocked the signal, and one is pending
        bool raises;     // incrementing the number fails, not the acquisition
    };
    Case const cases[] = {{"no byte", 0, false, false},
                          {"half the process id", 6, false, false},
                          {"a pending signal of the caller", 0, true, false},
                          {"a limit set while the lock is held", 0, false, true}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        unlink(path().c_str());
        pid_t const child = fork();
        if (child == 0) {
            signal(SIGXFSZ, SIG_DFL);
            sigset_t size;
            sigemptyset(&size);
            sigaddset(&size, SIGXFSZ);
            if (c.isPending) {
                pthread_sigmask(SIG_BLOCK, &size, nullptr);
                raise(SIGXFSZ);
            }
            Lock lock(dir().c_str(), "a");
            if (c.raises)
                lock.writeLock();
            rlimit limit;
            getrlimit(RLIMIT_FSIZE, &limit);
            limit.rlim_cur = c.limit;
            setrlimit(RLIMIT_FSIZE, &limit);
            int rc = 0;
            try {
                c.raises ? lock.unlock() : lock.writeLock();
            } catch (ZWriteResourceException_6_0 const& e) {
                rc = e.returnCode();
            }
            if (c.raises)
                lock.unlock(0);
            sigset_t pending;
            sigset_t mask;
            sigpending(&pending);
            pthread_sigmask(SIG_BLOCK, nullptr, &mask);
            bool const asBefore = sigismember(&pending, SIGXFSZ) == (c.isPending ? 1 : 0) &&
                                  sigismember(&mask, SIGXFSZ) == (c.isPending ? 1 : 0);
            _exit(rc == EFBIG && lock.getLockState() == kUnset && asBefore ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_EQ(0, status) << "ended by signal " << WTERMSIG(status);
    }
}

TEST_F(ZProcessReadWriteFileLock, SignalsAndShortTransfersAreRetried)
{
    Lock lock(dir().c_str(), "a");
    CallPlan wanted;
    wanted.shortTransfers = true;
    // A signal interrupts every second read, write or release.
    wanted.before = [turn = false](SystemCall const& call) mutable {
        if (call.name != "pread" && call.name != "pwrite" && call.name != "F_SETLK")
            return 0;
        turn = !turn;
        return turn ? EINTR : 0;
    };
    {
        WatchedCalls const watched(wanted);
        lock.writeLock();
        lock.writeSequenceNumber(0x01020304);
        unsigned long sequence = 0;
        lock.readSequenceNumber(&sequence);
        EXPECT_EQ(0x01020304ul, sequence);
        lock.unlock(0);
        lock.readLock();
        EXPECT_EQ(0x01020304ul, lock.getSequence());
        lock.unlock();
    }
    EXPECT_EQ(static_cast<uint32_t>(getpid()), word(1));
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, UnchangedProcessIdIsNotWrittenAgain)
{
    Lock lock(dir().c_str(), "a");
    lock.readLock();
    lock.unlock();
    CallPlan wanted;
    wanted.before = writesNothing;
    WatchedCalls const watched(wanted);
    lock.readLock();
    lock.unlock();
}

TEST_F(ZProcessReadWriteFileLock, FailedAllocationLeavesNothingHeld)
{
    Lock warm(dir().c_str(), "a");
    warm.writeLock();
    warm.unlock(0);
    std::string const name(300, 'n');
    unsigned long const made =
        failEachAllocation([&] { Lock const lock(dir().c_str(), name.c_str()); }, [] {});
    EXPECT_LT(0u, made);
    for (State state : {kRead, kWrite}) {
        SCOPED_TRACE(state);
        Lock lock(dir().c_str(), "a");
        unsigned long const locked = failEachAllocation([&] { lock.lock(state); },
                                                        [&] {
                                                            EXPECT_EQ(kUnset, lock.getLockState());
                                                            EXPECT_EQ(-1, lock.getFileHandle());
                                                            expectFree(lock);
                                                        });
        EXPECT_LT(0u, locked);
        lock.unlock(0);
        expectFree(lock);
    }
    // A reader that joins other readers.
    Lock lock(dir().c_str(), "a");
    lock.readLock();
    elsewhere([&] {
        constexpr int kReaders = 100;  // more than the table has capacity for
        unsigned long joined = 0;
        for (int i = 1; i <= kReaders; ++i)
            joined += failEachAllocation([&] { lock.readLock(); },
                                         [&] {
                                             EXPECT_EQ(kRead, lock.getLockState());
                                             EXPECT_EQ(i, lock.getReaderCount());
                                         });
        EXPECT_LT(0u, joined);
        for (int i = 1; i <= kReaders; ++i)
            lock.unlock();
    });
    lock.unlock();
    expectFree(lock);
    Lock moved("b");
    std::string const deep = directory_.at(std::string(200, 'd'));
    ASSERT_EQ(0, mkdir(deep.c_str(), 0700));
    // The string does not shrink.
    failEachAllocationOfSome([&] { moved.setLockDirName(deep.c_str()); },
                             [&] { moved.setLockDirName(nullptr); },
                             [&] {
                                 EXPECT_STREQ("", moved.getLockDirName());
                                 EXPECT_STREQ("._zplb", moved.getLockFileName());
                             },
                             false);
}

int main(int argc, char** argv)
{
    if (OtherLocker::isWanted(argc, argv))
        return OtherLocker::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
