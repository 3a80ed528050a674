#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "EachAllocation.h"
#include "FailingAllocator.h"
#include "LockStates.h"
#include "Nobody.h"
#include "NotedMessages.h"
#include "OtherLocker.h"
#include "Raised.h"
#include "SeenRanges.h"
#include "SystemCalls.h"
#include "TestDirectory.h"
#include "Threads.h"

namespace {

constexpr char kSource[] = "src/Z/ZProcessReadWriteFileLock";
constexpr char kBaseSource[] = "src/Z/ZProcessReadWriteLock";
constexpr char kThreadLock[] = "src/Z/ZReadWriteLock";

using Lock = ZUnixProcessReadWriteFileLock_6_0;

class Observer final : public ZObserverInterface_6_0 {
public:
    std::string told;  // "old>new " for each change
    bool throws = false;

    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm) override
    {
        auto const& change = static_cast<ZSequenceUpdate_6_0 const&>(parm);
        told += std::to_string(change.getLastSequence()) + ">" +
                std::to_string(change.getSequence()) + " ";
        if (throws)
            throw std::runtime_error("observer");
    }
};

// The n-th pthread_mutex_lock() of this thread from now fails, counted from 1; 0: none fails.
thread_local int failingMutex = 0;

int writesNothing(SystemCall const& call)
{
    return call.name == "pwrite" ? kMovesNothing : 0;
}

// Returns whether the action ends within ten seconds.
bool comesThrough(std::future<void>& done)
{
    if (done.wait_for(std::chrono::seconds(10)) != std::future_status::ready)
        return false;
    done.get();
    return true;
}

class ZProcessReadWriteFileLock : public testing::Test {
protected:
    std::string const& dir() const { return directory_.path(); }
    std::string path() const { return directory_.at("._zpla"); }
    std::string seen() const { return seenRanges(path()); }

    // Returns a word of the lock file.
    uint32_t word(size_t index) const
    {
        std::string const text = directory_.read("._zpla");
        uint32_t value = 0xDEADBEEF;
        if (text.size() >= 4 * index + 4)
            std::memcpy(&value, text.data() + 4 * index, sizeof value);
        return value;
    }
    void putSequence(uint32_t value) const
    {
        directory_.write("._zpla",
                         std::string(reinterpret_cast<char const*>(&value), sizeof value));
    }

    // Another process increments the sequence number.
    void changeElsewhere() const
    {
        OtherLocker other(dir(), "a");
        EXPECT_EQ("write", other.does('w').substr(0, 5));
        EXPECT_EQ("unset", other.does('u').substr(0, 5));
    }

    void expectFree(Lock& lock) const
    {
        EXPECT_EQ(kUnset, lock.getLockState());
        EXPECT_EQ(-1, lock.getFileHandle());
        EXPECT_EQ(0, lock.getReaderCount());
        std::string const ranges = seen();
        EXPECT_TRUE(ranges == "--" || ranges == "??") << ranges;
        // No thread holds the lock between threads either.
        CallPlan const before = callPlan;
        callPlan = CallPlan();
        elsewhere([&] {
            lock.writeLock();
            lock.unlock(0);
        });
        callPlan = before;
    }

    TestDirectory directory_{TestDirectory::Place::memory};
};

}  // namespace

extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t*);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex)
{
    if (failingMutex == 0 || --failingMutex > 0)
        return __real_pthread_mutex_lock(mutex);
    return EAGAIN;
}
}

// ---- Names and directories ---------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, PathIsDirectoryPrefixAndName)
{
    EXPECT_EQ(dir() + "/._zplorders", Lock(dir().c_str(), "orders").getLockFileName());
    EXPECT_STREQ("._zplorders", Lock("orders").getLockFileName());
    EXPECT_STREQ("", Lock("orders").getLockDirName());
    EXPECT_STREQ("._zplorders", Lock(nullptr, "orders").getLockFileName());
    Lock const unnamed;
    EXPECT_EQ(std::string("._zpl") + unnamed.getLockName().getChars(), unnamed.getLockFileName());
    ZStubProcessReadWriteFileLock_6_0 const stub(dir().c_str(), "s");
    EXPECT_EQ(dir() + "/._zpls", stub.getLockFileName());
    EXPECT_STREQ("._zpls", ZStubProcessReadWriteFileLock_6_0("s").getLockFileName());
}

TEST_F(ZProcessReadWriteFileLock, KeepsASlashInTheName)
{
    Lock lock(dir().c_str(), "a/b");
    EXPECT_EQ(dir() + "/._zpla/b", lock.getLockFileName());
    ASSERT_EQ(0, mkdir(path().c_str(), 0700));
    lock.writeLock();
    EXPECT_EQ(0, access(directory_.at("._zpla/b").c_str(), F_OK));
    lock.unlock();
}

TEST_F(ZProcessReadWriteFileLock, KeepsTheErrnoOfAFailedOpenHidden)
{
    Lock lock(dir().c_str(), "none/b");
    lock.createLockFile();
    EXPECT_EQ(-1, lock.getFileHandle());
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(33, EBADF, kSource, 327,
                                                   [&] { lock.lockFileRange(kRead, 0, 4); }));
}

TEST_F(ZProcessReadWriteFileLock, HashesAndComparesByPath)
{
    Lock const a(dir().c_str(), "a");
    Lock const b(dir().c_str(), "b");
    Lock const alsoA(dir().c_str(), "a");
    EXPECT_EQ(ZLCString_6_0(path().c_str()).hash(), a.hash());
    EXPECT_EQ(0, a.compare(alsoA));
    EXPECT_LT(a.compare(b), 0);
    EXPECT_GT(b.compare(a), 0);
    EXPECT_NE(0, a.compare(Lock("a")));
    ZObject_6_0 const stranger;
    EXPECT_EQ(a.ZObject_6_0::compare(stranger), a.compare(stranger));
}

TEST_F(ZProcessReadWriteFileLock, KeepsItsFileWhenRenamed)
{
    Lock lock(dir().c_str(), "a");
    ZLCString_6_0 name("b");
    lock.setLockName(name);
    EXPECT_EQ(path(), lock.getLockFileName());
    lock.setLockFileName("c");
    EXPECT_EQ(directory_.at("._zplc"), lock.getLockFileName());
    EXPECT_STREQ("b", lock.getLockName());
}

TEST_F(ZProcessReadWriteFileLock, MovesToAnotherDirectory)
{
    ASSERT_EQ(0, mkdir(directory_.at("sub").c_str(), 0700));
    Lock lock("a");
    lock.setLockDirName(directory_.at("sub").c_str());
    EXPECT_EQ(directory_.at("sub"), lock.getLockDirName());
    EXPECT_EQ(directory_.at("sub/._zpla"), lock.getLockFileName());
    lock.setLockDirName(nullptr);
    EXPECT_STREQ("", lock.getLockDirName());
    EXPECT_STREQ("._zpla", lock.getLockFileName());
}

TEST_F(ZProcessReadWriteFileLock, RefusesAnythingButAWritableDirectory)
{
    std::string const file = directory_.write("file", "");
    std::string const shut = directory_.at("shut");
    ASSERT_EQ(0, mkdir(shut.c_str(), 0500));
    std::string const blind = directory_.at("blind");
    ASSERT_EQ(0, mkdir(blind.c_str(), 0600));
    std::string const missing = directory_.at("missing");
    struct Case {
        char const* name;
        std::string dir;
    };
    Case const cases[] = {{"a file", file},
                          {"a device", "/dev/null"},
                          {"missing", missing},
                          {"not writable by its owner", shut},
                          {"not searchable by its owner", blind},
                          {"empty", ""}};
    Lock lock(dir().c_str(), "a");
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(
            22, kSource, 131, [&] { lock.setLockDirName(c.dir.c_str()); }));
        EXPECT_EQ(path(), lock.getLockFileName());
        EXPECT_EQ(dir(), lock.getLockDirName());
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(
            22, kSource, 131, [&] { Lock const other(c.dir.c_str(), "a"); }));
    }
}

TEST_F(ZProcessReadWriteFileLock, StaysInItsDirectoryWhileItIsHeld)
{
    Lock lock(dir().c_str(), "a");
    lock.readLock();
    EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(32, kSource, 137,
                                                           [&] { lock.setLockDirName("/tmp"); }));
    EXPECT_EQ(dir(), lock.getLockDirName());
    EXPECT_EQ(path(), lock.getLockFileName());
    lock.setLockDirName(dir().c_str());
    lock.unlock();
    lock.setLockDirName("/tmp");
    EXPECT_STREQ("/tmp/._zpla", lock.getLockFileName());
}

// ---- The file ----------------------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, FileIsCreatedByTheFirstLock)
{
    mode_t const mask = umask(0);
    Lock lock(dir().c_str(), "a");
    EXPECT_EQ("", directory_.names());
    lock.readLock();
    EXPECT_EQ("._zpla", directory_.names());
    struct stat status;
    ASSERT_EQ(0, stat(path().c_str(), &status));
    EXPECT_EQ(02600u, status.st_mode & 07777);
    lock.unlock();
    umask(mask);
    EXPECT_EQ("._zpla", directory_.names());
    EXPECT_EQ(0ul, lock.getSequence());
    EXPECT_EQ(8u, directory_.read("._zpla").size());
    EXPECT_EQ(0u, word(0));
    EXPECT_EQ(static_cast<uint32_t>(getpid()), word(1));
}

TEST_F(ZProcessReadWriteFileLock, FileIsOpenOnlyWhileItIsLocked)
{
    long const before = openDescriptors();
    Lock lock(dir().c_str(), "a");
    EXPECT_EQ(-1, lock.getFileHandle());
    for (State state : {kRead, kProtect, kWrite}) {
        lock.lock(state);
        int const fd = lock.getFileHandle();
        EXPECT_GE(fd, 3);
        EXPECT_EQ(before + 1, openDescriptors());
        EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
        EXPECT_EQ(O_RDWR | O_SYNC, fcntl(fd, F_GETFL) & (O_ACCMODE | O_SYNC));
        lock.unlock();
        EXPECT_EQ(-1, lock.getFileHandle());
        EXPECT_EQ(before, openDescriptors());
    }
}

TEST_F(ZProcessReadWriteFileLock, FirstUpdateOfAFreshFileWritesOne)
{
    directory_.write("._zpla", "");
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    EXPECT_EQ(0ul, lock.getSequence());
    lock.unlock();
    EXPECT_EQ(1ul, lock.getSequence());
    EXPECT_EQ(1u, word(0));
    EXPECT_EQ(8u, directory_.read("._zpla").size());
}

TEST_F(ZProcessReadWriteFileLock, SequenceSkipsTheInvalidNumber)
{
    for (uint32_t const last : {0xFFFFFFFEu, 0xFFFFFFFFu}) {
        putSequence(last);
        Lock lock(dir().c_str(), "a");
        lock.writeLock();
        EXPECT_EQ(last, lock.getSequence());
        EXPECT_EQ(0ul, lock.incSequence());
        EXPECT_EQ(0u, word(0));
        lock.unlock();
        EXPECT_EQ(1u, word(0));
    }
}

TEST_F(ZProcessReadWriteFileLock, SequenceIncreasesIfAWriterReleasesWithUpdate)
{
    struct Case {
        char const* name;
        State state;
        int update;
        unsigned raisedBy;
    };
    Case const cases[] = {{"writer with update", kWrite, 1, 1},
                          {"writer without", kWrite, 0, 0},
                          {"protect is a writer", kProtect, 1, 1},
                          {"reader", kRead, 1, 0}};
    Lock lock(dir().c_str(), "a");
    uint32_t before = 0;
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        lock.lock(c.state);
        lock.unlock(c.update);
        EXPECT_EQ(before + c.raisedBy, word(0));
        EXPECT_EQ(before + c.raisedBy, lock.getSequence());
        EXPECT_EQ(lock.getSequence(), lock.getLastSequence());
        before += c.raisedBy;
    }
    // A writer has the flag set, a reader does not.
    lock.lock();
    lock.unlock();
    lock.readLock();
    lock.unlock();
    EXPECT_EQ(before + 1, word(0));
}

TEST_F(ZProcessReadWriteFileLock, SequenceIsIncrementedByWritersOnly)
{
    Lock lock(dir().c_str(), "a");
    auto const raisesState = [&](char const* state) {
        EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(32, kSource, 112,
                                                               [&] { lock.incSequence(); }));
        try {
            lock.incSequence();
        } catch (ZInvalidResourceStateException_6_0 const& e) {
            EXPECT_STREQ(state, e.value());
        }
    };
    raisesState("unset");
    lock.readLock();
    raisesState("read");
    lock.unlock();
    EXPECT_EQ(0u, word(0));
}

TEST_F(ZProcessReadWriteFileLock, WordsInTheFileHave32Bits)
{
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    lock.writeSequenceNumber(0x1122334455667788ul);
    unsigned long sequence = ~0ul;
    lock.readSequenceNumber(&sequence);
    EXPECT_EQ(0x55667788ul, sequence);
    lock.readSequenceNumber(nullptr);
    lock.unlock(0);
    EXPECT_EQ(static_cast<uint32_t>(getpid()), word(1));
}

TEST_F(ZProcessReadWriteFileLock, EmptyFileLeavesTheOutputUnchanged)
{
    directory_.write("._zpla", "");
    Lock lock(dir().c_str(), "a");
    lock.createLockFile();
    unsigned long sequence = 17;
    lock.readSequenceNumber(&sequence);
    EXPECT_EQ(17ul, sequence);
    lock.closeLockFile();
    lock.closeLockFile();
    EXPECT_EQ(-1, lock.getFileHandle());
}

TEST_F(ZProcessReadWriteFileLock, TornFileHasItsOwnFailure)
{
    for (char const* text : {"1", "12", "123"}) {
        directory_.write("._zpla", text);
        Lock lock(dir().c_str(), "a");
        lock.createLockFile();
        unsigned long sequence = 0;
        EXPECT_TRUE(raises<ZReadResourceException_6_0>(
            35, kSource, 377, [&] { lock.readSequenceNumber(&sequence); }));
        try {
            lock.readSequenceNumber(&sequence);
        } catch (ZReadResourceException_6_0 const& e) {
            EXPECT_EQ(-1, e.returnCode());
        }
        lock.closeLockFile();
    }
}

// ---- Ranges ------------------------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, FailedStatIsAFailureToRead)
{
    Lock lock(dir().c_str(), "a");
    lock.lockFileRange(kWrite, 0, 4);
    uint32_t word = 0xCAFE;
    CallPlan wanted;
    wanted.failing = {{"stat", EACCES}};
    {
        WatchedCalls const watched(wanted);
        EXPECT_TRUE(raises<ZReadResourceException_6_0>(35, EACCES, kSource, 377,
                                                       [&] { lock.readBytes(&word, 0, 4); }));
    }
    EXPECT_EQ(0xCAFEu, word);
    EXPECT_EQ("w-", seen());
    lock.closeLockFile();
}

TEST_F(ZProcessReadWriteFileLock, OtherProcessesSeeTheRanges)
{
    struct Case {
        State asked;
        State state;
        char const* ranges;
    };
    Case const cases[] = {{kRead, kRead, "r-"}, {kProtect, kWrite, "ww"}, {kWrite, kWrite, "ww"}};
    Lock lock(dir().c_str(), "a");
    for (Case const& c : cases) {
        lock.lock(c.asked);
        EXPECT_EQ(c.state, lock.getLockState());
        EXPECT_EQ(c.ranges, seen());
        lock.promoteReadToWriteLock();
        EXPECT_EQ(c.ranges, seen());
        lock.unlock(0);
        EXPECT_EQ(kUnset, lock.getLockState());
        EXPECT_EQ("--", seen());
    }
}

TEST_F(ZProcessReadWriteFileLock, RangesAreLockedSeparately)
{
    Lock lock(dir().c_str(), "a");
    lock.lockFileRange(kRead, 0, 4);
    EXPECT_EQ("r-", seen());
    lock.lockFileRange(kProtect, 4, 4);
    EXPECT_EQ("rw", seen());
    lock.lockFileRange(kUnset, 0, 4);
    EXPECT_EQ("-w", seen());
    lock.unlockFileRange(4, 4);
    EXPECT_EQ("--", seen());
    EXPECT_GE(lock.getFileHandle(), 3);
    EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(
        32, kSource, 318, [&] { lock.lockFileRange(static_cast<State>(4), 0, 4); }));
    lock.closeLockFile();
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, ReleasingARangeOfAClosedFileDoesNothing)
{
    Lock lock(dir().c_str(), "a");
    lock.unlockFileRange(0, 4);
    EXPECT_EQ("", directory_.names());
    EXPECT_EQ(-1, lock.getFileHandle());
}

TEST_F(ZProcessReadWriteFileLock, ReleasingARangeAdmitsItsWaiter)
{
    Lock lock(dir().c_str(), "a");
    lock.lockFileRange(kWrite, 0, 4);
    std::future<void> waiting =
        std::async(std::launch::async, [&] { lock.lockFileRange(kWrite, 0, 4); });
    EXPECT_TRUE(staysBlocked(waiting));
    lock.unlockFileRange(0, 4);
    EXPECT_TRUE(comesThrough(waiting));
    EXPECT_EQ("w-", seen());
    lock.unlockFileRange(0, 4);
    EXPECT_EQ("--", seen());
    lock.closeLockFile();
}

TEST_F(ZProcessReadWriteFileLock, BytesAreWrittenAcrossTheWords)
{
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    char bytes[] = "12345678";
    lock.writeBytes(bytes, 2, 4);
    lock.writeBytes(bytes, 4, 4);
    lock.writeBytes(bytes, 4, 6);  // starts with the existing bytes
    lock.unlock(0);
    EXPECT_EQ(std::string(2, '\0') + "12123456", directory_.read("._zpla"));
}

TEST_F(ZProcessReadWriteFileLock, DerivedClassNeedsNoFile)
{
    class Elsewhere : public Lock {
    public:
        using Lock::Lock;
        void lockFileRange(State, unsigned, unsigned) override {}
        void unlockFileRange(unsigned, unsigned) override {}
        void writeBytes(void*, unsigned, unsigned) override {}
        void readBytes(void*, unsigned, unsigned) override {}
    };
    auto lock = std::make_unique<Elsewhere>(dir().c_str(), "a");
    for (State state : {kRead, kWrite}) {
        lock->lock(state);
        EXPECT_EQ(state, lock->getLockState());
        lock->unlock();
        EXPECT_EQ(kUnset, lock->getLockState());
    }
    lock->readLock();
    EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(32, kBaseSource, 64,
                                                           [&] { delete lock.release(); }));
    EXPECT_EQ("", directory_.names());
}

TEST_F(ZProcessReadWriteFileLock, ProtocolRunsTheStepsInOrder)
{
    // A lock that records the steps on its file.
    class Traced : public ZAbstractProcessReadWriteFileLock_6_0 {
    public:
        std::string steps;
        Traced() : ZAbstractProcessReadWriteFileLock_6_0("t") {}
        void lockFileRange(State state, unsigned start, unsigned length) override
        {
            steps += std::string(getLockStateName(state)) + std::to_string(start) +
                     std::to_string(length) + " ";
        }
        void unlockFileRange(unsigned start, unsigned length) override
        {
            lockFileRange(kUnset, start, length);
        }
        void writeBytes(void*, unsigned offset, unsigned length) override
        {
            steps += "put" + std::to_string(offset) + std::to_string(length) + " ";
        }
        void readBytes(void*, unsigned offset, unsigned length) override
        {
            steps += "get" + std::to_string(offset) + std::to_string(length) + " ";
        }
        std::string taken() { return std::move(steps); }
    } lock;
    lock.readLock();
    EXPECT_EQ("write44 put44 read04 unset44 get04 ", lock.taken());
    elsewhere([&] { lock.readLock(); });
    EXPECT_EQ("", lock.taken());
    lock.unlock();
    EXPECT_EQ("", lock.taken());
    elsewhere([&] { lock.unlock(); });
    EXPECT_EQ("unset04 ", lock.taken());
    lock.readWithIntentToWriteLock();
    EXPECT_EQ("write44 put44 write04 get04 ", lock.taken());
    lock.unlock(1);
    EXPECT_EQ("put04 unset04 unset44 ", lock.taken());
}

TEST_F(ZProcessReadWriteFileLock, LastReaderOfTheProcessReleasesTheFile)
{
    Lock lock(dir().c_str(), "a");
    lock.readLock();
    int const fd = lock.getFileHandle();
    elsewhere([&] {
        lock.readLock();
        EXPECT_EQ(2, lock.getReaderCount());
        EXPECT_EQ(fd, lock.getFileHandle());
    });
    lock.unlock();
    EXPECT_EQ(kRead, lock.getLockState());
    EXPECT_EQ("r-", seen());
    EXPECT_EQ(fd, lock.getFileHandle());
    elsewhere([&] { lock.unlock(); });
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, OneThreadMayReadTwice)
{
    Lock lock(dir().c_str(), "a");
    lock.readLock();
    lock.readLock();
    EXPECT_EQ(2, lock.getReaderCount());
    lock.unlock();
    EXPECT_EQ("r-", seen());
    lock.unlock();
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, ThreadsExcludeOneAnother)
{
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    std::future<void> reading = std::async(std::launch::async, [&] {
        lock.readLock();
        lock.unlock();
    });
    EXPECT_TRUE(staysBlocked(reading));
    lock.unlock();
    EXPECT_TRUE(comesThrough(reading));
    expectFree(lock);
}

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
    std::thread release([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
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
    std::future<void> writing = std::async(std::launch::async, [&] {
        writes.writeLock();
        writes.unlock(0);
    });
    EXPECT_TRUE(staysBlocked(writing));
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
            std::future<void> waiting = std::async(std::launch::async, [&] {
                waited.lock(inside);
                waited.unlock(0);
            });
            EXPECT_TRUE(staysBlocked(waiting));
            std::future<void> another = std::async(std::launch::async, [&] {
                waited.writeLock();
                waited.unlock(0);
            });
            EXPECT_TRUE(staysBlocked(another));
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
    std::future<void> other = std::async(std::launch::async, [&] {
        two.readLock();
        entered.set_value();
        one.readLock();
        one.unlock();
        two.unlock();
    });
    entered.get_future().wait();
    EXPECT_TRUE(staysBlocked(other));
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
    std::thread stranger([&] {
        lock.unlock();
        releasedOne.set_value();
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        lock.unlock();
    });
    releasedOne.get_future().wait();
    EXPECT_EQ(1, lock.getReaderCount());
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

// ---- Releasing ---------------------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, ReleasingAFreeLockThrowsAndCreatesNoFile)
{
    Lock lock(dir().c_str(), "a");
    EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(6, kThreadLock, 97, [&] { lock.unlock(); }));
    EXPECT_EQ("", directory_.names());
}

TEST_F(ZProcessReadWriteFileLock, ReleasingInAnotherThreadThrowsAndChangesNothing)
{
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    elsewhere([&] {
        EXPECT_TRUE(
            raises<ZUnlockResourceException_6_0>(6, kThreadLock, 104, [&] { lock.unlock(); }));
        EXPECT_TRUE(
            raises<ZUnlockResourceException_6_0>(6, kThreadLock, 104, [&] { lock.lock(kUnset); }));
    });
    EXPECT_EQ("ww", seen());
    EXPECT_EQ(0u, word(0));
    EXPECT_EQ(kWrite, lock.getLockState());
    lock.unlock();
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, InvalidStateThrowsAndChangesNothing)
{
    Lock lock(dir().c_str(), "a");
    for (int value : {4, 7, -1})
        EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(
            32, kSource, 203, [&] { lock.lock(static_cast<State>(value)); }));
    EXPECT_EQ("", directory_.names());
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, RequestingTheWriteLockTwiceThrowsAndChangesNothing)
{
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, kThreadLock, 61, [&] { lock.writeLock(); }));
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, kThreadLock, 61, [&] { lock.readLock(); }));
    EXPECT_EQ("ww", seen());
    lock.unlock();
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, WriterIsRefusedIfTheStateIsSetButNoThreadHoldsTheLock)
{
    class Inconsistent : public ZStubProcessReadWriteFileLock_6_0 {
    public:
        void leaveReadBehind() { setLockState(kRead); }
        void repair() { setLockState(kUnset); }
    } lock;
    lock.leaveReadBehind();
    EXPECT_TRUE(
        raises<ZInvalidResourceStateException_6_0>(32, kSource, 211, [&] { lock.writeLock(); }));
    EXPECT_EQ(kRead, lock.getLockState());
    lock.repair();
    elsewhere([&] {
        lock.writeLock();
        lock.unlock();
    });
}

TEST_F(ZProcessReadWriteFileLock, DestroyingAHeldLockThrows)
{
    for (State state : {kRead, kWrite}) {
        auto lock = std::make_unique<ZStubProcessReadWriteFileLock_6_0>();
        lock->lock(state);
        EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(32, kBaseSource, 64,
                                                               [&] { delete lock.release(); }));
    }
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
    EXPECT_EQ("", observer.told);
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
                  observer.told);
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
    EXPECT_EQ("0>1 ", observer.told);
    EXPECT_EQ(1, lock.getUpdate());
    lock.unlock();
    EXPECT_EQ(2u, word(0));
    // An object's own change is not reported to its own observers.
    lock.readLock();
    EXPECT_EQ(kRead, lock.getLockState());
    lock.unlock();
    EXPECT_EQ("0>1 ", observer.told);
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
        observer.told = "";
        lock.lock(asked);
        EXPECT_NE("", observer.told);
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
        observer.told = "";
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
        EXPECT_EQ(std::to_string(round - 1) + ">" + std::to_string(round) + " ", observer.told);
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
    EXPECT_EQ("0>5 ", observer.told);
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
            EXPECT_EQ("0>5 ", observer.told);
            EXPECT_EQ(kWrite, lock.getLockState());
            lock.unlock();
        }
        expectFree(lock);
        EXPECT_EQ(5u, word(0));
        if (!failed)
            break;
    }
}

// ---- Other processes ---------------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, ChildDoesNotHoldTheLocksOfItsParent)
{
    for (State state : {kRead, kWrite}) {
        SCOPED_TRACE(state);
        Lock lock(dir().c_str(), "a");
        Lock unused(dir().c_str(), "b");
        lock.lock(state);
        pid_t const child = fork();
        if (child == 0) {
            int bad = 0;
            bad |= lock.getLockState() == kUnset ? 0 : 1;
            bad |= lock.haveLock(state) == 0 && lock.ownWriteLock() == 0 ? 0 : 2;
            auto const refused = [&](auto action) {
                return raises<ZInvalidResourceStateException_6_0>(32, kBaseSource, 83, action);
            };
            bad |= refused([&] { lock.unlock(); }) ? 0 : 4;
            bad |= refused([&] { lock.readLock(); }) ? 0 : 8;
            bad |= refused([&] { lock.lock(kUnset); }) ? 0 : 16;
            // A lock that the parent did not hold belongs to the child.
            unused.writeLock();
            bad |= unused.getLockState() == kWrite ? 0 : 32;
            unused.unlock();
            _exit(bad);
        }
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_EQ(0, WEXITSTATUS(status));
        EXPECT_EQ(state, lock.getLockState());
        EXPECT_EQ(state == kRead ? "r-" : "ww", seen());
        lock.unlock(0);
        expectFree(lock);
    }
}

TEST_F(ZProcessReadWriteFileLock, ChildMayDestroyALockOfItsParent)
{
    auto lock = std::make_unique<Lock>(dir().c_str(), "a");
    lock->writeLock();
    pid_t const child = fork();
    if (child == 0) {
        int bad = 0;
        try {
            lock.reset();
        } catch (ZException_6_0 const&) {
            bad = 1;
        }
        _exit(bad);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_EQ("ww", seen());
    lock->unlock();
}

TEST_F(ZProcessReadWriteFileLock, SignalEndsAWaitForAnotherProcess)
{
    struct sigaction handler = {};
    handler.sa_handler = [](int) {};
    struct sigaction before;
    sigaction(SIGUSR1, &handler, &before);
    OtherLocker other(dir(), "a");
    ASSERT_EQ("write 0", other.does('w'));
    for (State state : {kRead, kWrite}) {
        SCOPED_TRACE(state);
        Lock lock(dir().c_str(), "a");
        std::atomic<bool> ended{false};
        int rc = 0;
        std::thread waiting([&] {
            try {
                lock.lock(state);
            } catch (ZLockResourceException_6_0 const& e) {
                rc = e.returnCode();
            }
            ended = true;
        });
        while (!ended) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            pthread_kill(waiting.native_handle(), SIGUSR1);
        }
        waiting.join();
        EXPECT_EQ(EINTR, rc);
        EXPECT_EQ(kUnset, lock.getLockState());
        EXPECT_EQ(-1, lock.getFileHandle());
        EXPECT_EQ(0, lock.getReaderCount());
    }
    EXPECT_EQ("unset 1", other.does('u'));
    EXPECT_EQ("--", seen());
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(ZProcessReadWriteFileLock, CancellationEndsAWaitForAnotherProcess)
{
    OtherLocker other(dir(), "a");
    for (char holds : {'r', 'w'}) {
        other.does(holds);
        Lock lock(dir().c_str(), "a");
        CancellableThread waiting([&] { lock.writeLock(); });
        waitUntil([&] { return lock.getFileHandle() != -1; });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        waiting.cancel();
        EXPECT_TRUE(waiting.endsCancelled());
        other.does('n');
        expectFree(lock);
    }
}

TEST_F(ZProcessReadWriteFileLock, RemovedFileIsReplacedByTheNextHolder)
{
    OtherLocker other(dir(), "a");
    ASSERT_EQ("write 0", other.does('w'));
    Lock lock(dir().c_str(), "a");
    std::future<void> waiting = std::async(std::launch::async, [&] { lock.readLock(); });
    EXPECT_TRUE(staysBlocked(waiting));
    ASSERT_EQ(0, unlink(path().c_str()));
    EXPECT_TRUE(staysBlocked(waiting));
    other.does('u');
    EXPECT_TRUE(comesThrough(waiting));
    // The lock has a new file, under the same name.
    struct stat locked;
    struct stat named;
    ASSERT_EQ(0, fstat(lock.getFileHandle(), &locked));
    ASSERT_EQ(0, stat(path().c_str(), &named));
    EXPECT_EQ(named.st_ino, locked.st_ino);
    EXPECT_EQ("r-", seen());
    EXPECT_EQ(0ul, lock.getSequence());
    lock.unlock();
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, FileThatKeepsBeingRemovedFails)
{
    long const before = openDescriptors();
    Lock lock(dir().c_str(), "a");
    int looks = 0;
    CallPlan removing;
    removing.before = [&](SystemCall const& call) {
        if (call.name == "stat") {
            ++looks;
            unlink(path().c_str());
        }
        return 0;
    };
    for (State state : {kRead, kWrite}) {
        SCOPED_TRACE(state);
        looks = 0;
        {
            WatchedCalls const watched(removing);
            EXPECT_TRUE(raises<ZLockResourceException_6_0>(33, ESTALE, kSource, 398,
                                                           [&] { lock.lock(state); }));
        }
        EXPECT_EQ(100, looks);
        EXPECT_EQ(before, openDescriptors());
        EXPECT_EQ(kUnset, lock.getLockState());
        expectFree(lock);
    }
}

TEST_F(ZProcessReadWriteFileLock, FollowsNoLinkAndOpensOnlyRegularFiles)
{
    std::string const victim = directory_.write("victim", "untouched");
    struct Case {
        char const* name;
        void (*make)(std::string const&);
    };
    Case const cases[] = {
        {"a link", [](std::string const& path) { (void)!symlink("victim", path.c_str()); }},
        {"a dangling link", [](std::string const& path) { (void)!symlink("new", path.c_str()); }},
        {"a directory", [](std::string const& path) { mkdir(path.c_str(), 0700); }},
        {"a FIFO", [](std::string const& path) { mkfifo(path.c_str(), 0600); }},
    };
    long const before = openDescriptors();
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        c.make(path());
        Lock lock(dir().c_str(), "a");
        EXPECT_TRUE(
            raises<ZLockResourceException_6_0>(33, kSource, 327, [&] { lock.writeLock(); }));
        try {
            lock.readLock();
        } catch (ZLockResourceException_6_0 const& e) {
            EXPECT_EQ(EBADF, e.returnCode());
        }
        EXPECT_EQ(before, openDescriptors());
        EXPECT_EQ(0, lock.getReaderCount());
        remove(path().c_str());
        expectFree(lock);
        remove(path().c_str());
    }
    EXPECT_EQ("untouched", directory_.read("victim"));
    EXPECT_EQ("victim", directory_.names());
}

// Locking writes into the file, so a file with another user's data must be refused.
TEST_F(ZProcessReadWriteFileLock, FileWithMoreThanOneNameIsRefusedAndUnchanged)
{
    std::string const victim = directory_.write("victim", "untouched");
    Lock lock(dir().c_str(), "a");
    for (State state : {kRead, kWrite}) {
        SCOPED_TRACE(state);
        ASSERT_EQ(0, link(victim.c_str(), path().c_str()));
        EXPECT_TRUE(
            raises<ZLockResourceException_6_0>(33, EBADF, kSource, 327, [&] { lock.lock(state); }));
        EXPECT_EQ("untouched", directory_.read("victim"));
        unlink(path().c_str());
        expectFree(lock);
        unlink(path().c_str());
    }
    // A link created while the file is held does not affect the holder, and refusing the next
    // acquisition leaves the holder's ranges unchanged.
    lock.writeLock();
    ASSERT_EQ(0, link(path().c_str(), directory_.at("second").c_str()));
    elsewhere([&] {
        Lock late(dir().c_str(), "a");
        EXPECT_TRUE(
            raises<ZLockResourceException_6_0>(33, EBADF, kSource, 327, [&] { late.readLock(); }));
    });
    EXPECT_EQ("ww", seen());
    lock.unlock();
    EXPECT_EQ(1u, word(0));
    unlink(directory_.at("second").c_str());
    expectFree(lock);
}

// The locked file is linked to the path of another lock just before that lock opens it.
TEST_F(ZProcessReadWriteFileLock, RefusedFileThatIsAlreadyLockedStaysLocked)
{
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    CallPlan wanted;
    wanted.before = [&](SystemCall const& call) {
        if (call.name == "open" && link(path().c_str(), directory_.at("._zplb").c_str()) != 0)
            ADD_FAILURE() << "no link";
        return 0;
    };
    elsewhere([&] {
        Lock other(dir().c_str(), "b");
        WatchedCalls const watched(wanted);
        EXPECT_TRUE(
            raises<ZLockResourceException_6_0>(33, EBADF, kSource, 327, [&] { other.readLock(); }));
    });
    EXPECT_EQ("ww", seen());
    lock.unlock();
    unlink(directory_.at("._zplb").c_str());
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, OwnersWhoseFilesAreAccepted)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "gives files to other users: needs root";
    constexpr uid_t kNobody = 65534;  // user id of the child process
    constexpr uid_t kStranger = 4321;
    struct Case {
        char const* name;
        uid_t owner;
        mode_t mode;
        bool byNobody;
        bool byRoot;
    };
    Case const cases[] = {{"the user's own", kNobody, 0600, true, true},
                          {"root's, for all", 0, 0666, true, true},
                          {"root's, private", 0, 0600, false, true},
                          {"a stranger's, for all", kStranger, 0666, true, true},
                          {"a stranger's, private", kStranger, 0600, false, true}};
    ASSERT_EQ(0, chmod(dir().c_str(), 01777));
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        directory_.write("._zpla", "");
        ASSERT_EQ(0, chmod(path().c_str(), c.mode));
        ASSERT_EQ(0, chown(path().c_str(), c.owner, c.owner));
        auto const locks = [&] {
            Lock lock(dir().c_str(), "a");
            try {
                lock.writeLock();
                lock.unlock();
                return true;
            } catch (ZLockResourceException_6_0 const& e) {
                EXPECT_EQ(EBADF, e.returnCode());
                return false;
            }
        };
        EXPECT_EQ(c.byRoot, locks());
        asNobody([&] { return locks() == c.byNobody; });
        unlink(path().c_str());
    }
}

// A process may be able to open every file without being root (CAP_DAC_OVERRIDE).
TEST_F(ZProcessReadWriteFileLock, PrivateFileOfAnotherUserIsRefusedEvenIfItCanBeOpened)
{
    directory_.write("._zpla", "untouched");
    ASSERT_EQ(0, chmod(dir().c_str(), 0755));
    ASSERT_EQ(0, chmod(path().c_str(), 0666));
    asNobody([&] {
        CallPlan wanted;
        wanted.after = [](SystemCall const& call, ssize_t&) {
            if (call.name != "fstat")
                return;
            auto* const status = static_cast<struct stat*>(call.to);
            status->st_uid = 4321;
            status->st_mode = S_IFREG | 0600;
        };
        WatchedCalls const watched(wanted);
        Lock lock(dir().c_str(), "a");
        return static_cast<bool>(
            raises<ZLockResourceException_6_0>(33, EBADF, kSource, 327, [&] { lock.writeLock(); }));
    });
    EXPECT_EQ("untouched", directory_.read("._zpla"));
}

// The kernel refuses O_CREAT for another user's file in a sticky directory, even to root.
TEST_F(ZProcessReadWriteFileLock, ExistingFileIsOpenedWithoutCreate)
{
    Lock lock(dir().c_str(), "a");
    CallPlan wanted;
    wanted.before = [&](SystemCall const& call) {
        bool const isThere = access(path().c_str(), F_OK) == 0;
        return call.name == "open" && (call.flags & O_CREAT) != 0 && isThere ? EACCES : 0;
    };
    for (int i = 0; i < 2; ++i) {  // the file is missing, then exists
        WatchedCalls const watched(wanted);
        lock.writeLock();
        lock.unlock();
    }
    EXPECT_EQ(2u, word(0));
}

TEST_F(ZProcessReadWriteFileLock, FileThatIsCreatedOrRemovedDuringTheOpenIsFound)
{
    Lock lock(dir().c_str(), "a");
    int turns = 0;
    CallPlan wanted;
    wanted.before = [&](SystemCall const& call) {
        if (call.name != "open" || ++turns > 6)
            return 0;
        if ((call.flags & O_CREAT) != 0)
            directory_.write("._zpla", "");
        else
            unlink(path().c_str());
        return 0;
    };
    {
        WatchedCalls const watched(wanted);
        lock.writeLock();
    }
    EXPECT_LT(6, turns);
    EXPECT_EQ("ww", seen());
    lock.unlock();
    // The call gives up if the file never stays.
    unlink(path().c_str());
    wanted.before = [&](SystemCall const& call) {
        if (call.name == "open" && (call.flags & O_CREAT) != 0)
            directory_.write("._zpla", "");
        else if (call.name == "open")
            unlink(path().c_str());
        return 0;
    };
    {
        WatchedCalls const watched(wanted);
        EXPECT_TRUE(
            raises<ZLockResourceException_6_0>(33, EBADF, kSource, 327, [&] { lock.readLock(); }));
    }
    expectFree(lock);
}

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
        failingMutex = 3;
        EXPECT_TRUE(raises<ZLockResourceException_6_0>(5, EAGAIN, "src/Z/ZLock", 77,
                                                       [&] { lock.lock(state); }));
        EXPECT_EQ(0, failingMutex);
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
            rlimit const limit = {c.limit, c.limit};
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

// ---- Without a file ----------------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, StubKeepsTheSequenceInMemory)
{
    ZStubProcessReadWriteFileLock_6_0 lock(dir().c_str(), "a");
    Observer observer;
    lock.addObserver(&observer);
    lock.writeLock();
    EXPECT_EQ(kWrite, lock.getLockState());
    lock.unlock();
    EXPECT_EQ(1ul, lock.getSequence());
    lock.readLock();
    EXPECT_EQ(kRead, lock.getLockState());
    EXPECT_EQ(1ul, lock.getSequence());
    lock.unlock();
    EXPECT_EQ("", directory_.names());
    unsigned long sequence = 0;
    lock.readSequenceNumber(&sequence);
    EXPECT_EQ(1ul, sequence);
    lock.readSequenceNumber(nullptr);
    lock.writeSequenceNumber(0x100000009ul);
    lock.readSequenceNumber(&sequence);
    EXPECT_EQ(9ul, sequence);
    // A number that another object wrote is reported as usual.
    lock.readLock();
    EXPECT_EQ("1>9 ", observer.told);
    EXPECT_EQ(kWrite, lock.getLockState());
    lock.unlock();
    char bytes[4] = {'a', 'b', 'c', 'd'};
    lock.writeBytes(bytes, 0, 4);
    lock.readBytes(bytes, 0, 4);
    EXPECT_EQ("abcd", std::string(bytes, 4));
    lock.lockFileRange(kWrite, 0, 4);
    lock.unlockFileRange(0, 4);
}

// ---- Kept --------------------------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, KeepsTheFileOfADestroyedHeldLockLocked)
{
    // In a child process: the ranges that it leaves locked would block other tests.
    pid_t const child = fork();
    if (child == 0) {
        bool raised = false;
        int fd = -1;
        try {
            Lock lock(dir().c_str(), "a");
            lock.writeLock();
            fd = lock.getFileHandle();
        } catch (ZInvalidResourceStateException_6_0 const&) {
            raised = true;
        }
        bool const open = fcntl(fd, F_GETFD) != -1;
        Lock next(dir().c_str(), "a");
        bool const told = static_cast<bool>(
            raises<ZLockResourceException_6_0>(33, kSource, 327, [&] { next.readLock(); }));
        _exit(raised && open && told && seen() == "ww" ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_EQ("--", seen());
}

int main(int argc, char** argv)
{
    if (OtherLocker::isWanted(argc, argv))
        return OtherLocker::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
