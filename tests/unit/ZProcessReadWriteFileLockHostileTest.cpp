// Misuse of a lock between processes, and hostile changes of its file.
#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "../support/NotedMessages.h"
#include "../support/OtherLocker.h"
#include "../support/TestDirectory.h"
#include "../support/Threads.h"

namespace {

using FileLock = ZUnixProcessReadWriteFileLock_6_0;
using zlockstate = ZReadWriteLockInterface_6_0::zlockstate;

constexpr zlockstate kUnset = static_cast<zlockstate>(0);
constexpr zlockstate kRead = static_cast<zlockstate>(1);
constexpr zlockstate kWrite = static_cast<zlockstate>(3);

// Returns the class name of `e`.
std::string classOf(ZException_6_0 const& e)
{
    std::string const mangled = typeid(e).name();
    return mangled.substr(mangled.find('Z'));
}

// Returns the exception of `call`: class, message number and rc; "" if it throws nothing.
std::string thrown(std::function<void()> const& call)
{
    try {
        call();
    } catch (ZResourceException_6_0 const& e) {
        return classOf(e) + " " + std::to_string(e.messageNumber()) + " " +
               std::to_string(e.returnCode());
    } catch (ZException_6_0 const& e) {
        return classOf(e) + " " + std::to_string(e.messageNumber());
    } catch (int number) {
        return "int " + std::to_string(number);
    }
    return "";
}

std::string lockFails(int rc)
{
    return "ZLockResourceException_6_0 33 " + std::to_string(rc);
}

// An observer that runs an action of the test.
struct Doing final : ZObserverInterface_6_0 {
    explicit Doing(std::function<void()> what) : action(std::move(what)) {}
    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm) override
    {
        ++notifications;
        sequence = static_cast<ZSequenceUpdate_6_0 const&>(parm).getSequence();
        action();
    }
    std::function<void()> action;
    std::atomic<int> notifications{0};
    std::atomic<unsigned long> sequence{0};
};

class ZProcessReadWriteFileLockHostile : public testing::Test {
protected:
    // The alarm ends a test that hangs.
    void SetUp() override { alarm(kHangs.count()); }
    void TearDown() override { alarm(0); }

    char const* path() const { return directory_.path().c_str(); }

    // Returns whether nothing of the lock is held in any way.
    static testing::AssertionResult isFree(FileLock& lock)
    {
        if (lock.getLockState() == kUnset && lock.getReaderCount() == 0 &&
            lock.getFileHandle() == -1)
            return testing::AssertionSuccess();
        return testing::AssertionFailure()
               << "state " << lock.getLockState() << ", readers " << lock.getReaderCount()
               << ", descriptor " << lock.getFileHandle();
    }

    // Increments the sequence number through another object.
    void raiseSequence(char const* name = "x")
    {
        FileLock other(path(), name);
        other.writeLock();
        other.unlock(1);
    }

    // Runs `child` in a forked process and returns its exit status; -1 if it was killed.
    static int inChild(std::function<int()> const& child)
    {
        pid_t const id = fork();
        if (id == 0) {
            alarm(kHangs.count());
            _exit(child());
        }
        int status = 0;
        waitpid(id, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    TestDirectory directory_;
};

TEST_F(ZProcessReadWriteFileLockHostile, TwoReadersThatSeeAChangeAreNotifiedExclusively)
{
    FileLock lock(path(), "x");
    lock.readLock();
    lock.unlock();
    std::atomic<int> inside{0};
    std::atomic<int> crowded{0};
    Doing observer([] {});
    lock.addObserver(&observer);
    for (int round = 0; round < 50; ++round) {
        raiseSequence();
        std::atomic<int> ready{0};
        auto const reader = [&] {
            ++ready;
            waitUntil([&] { return ready == 3; });
            lock.readLock();
            if (lock.getLockState() == kWrite) {
                crowded += inside++ != 0;
                sched_yield();
                --inside;
            }
            lock.unlock();
        };
        std::thread one(reader);
        std::thread two(reader);
        std::thread three(reader);
        one.join();
        two.join();
        three.join();
        ASSERT_TRUE(isFree(lock));
        ASSERT_EQ(round + 1, observer.notifications) << "each change is reported once";
        ASSERT_TRUE(lock.isCurrent());
    }
    EXPECT_EQ(0, crowded);
    EXPECT_EQ(50UL, lock.getSequence());
}

TEST_F(ZProcessReadWriteFileLockHostile, ObserverThatThrowsIsNotifiedAgain)
{
    for (zlockstate const asked : {kRead, static_cast<zlockstate>(2), kWrite}) {
        SCOPED_TRACE(asked);
        FileLock lock(path(), "x");
        lock.readLock();
        lock.unlock();
        bool throws = true;
        Doing observer([&] {
            if (throws)
                throw 7;
        });
        lock.addObserver(&observer);
        raiseSequence();
        OtherLocker other(directory_.path(), "x");
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ("int 7", thrown([&] { lock.lock(asked); }));
            EXPECT_TRUE(isFree(lock));
        }
        EXPECT_EQ("write", other.does('w').substr(0, 5));
        other.does('n');
        throws = false;
        lock.lock(asked);
        EXPECT_EQ(4, observer.notifications);
        lock.unlock(0);
        lock.lock(asked);
        EXPECT_EQ(4, observer.notifications);
        lock.unlock(0);
        EXPECT_TRUE(isFree(lock));
    }
}

TEST_F(ZProcessReadWriteFileLockHostile, ObserversThatUseTheLock)
{
    struct Case {
        char const* name;
        std::function<void(FileLock&, FileLock&, Doing&, Doing&)> meddles;
        std::string raised;
    };
    std::string const recursion = "ZLockResourceException_6_0 5 0";
    Case const cases[] = {
        {"removes itself",
         [](FileLock& lock, FileLock&, Doing& self, Doing&) { lock.deleteObserver(&self); }, ""},
        {"removes all", [](FileLock& lock, FileLock&, Doing&, Doing&) { lock.deleteObservers(); },
         ""},
        {"adds another",
         [](FileLock& lock, FileLock&, Doing&, Doing& more) { lock.addObserver(&more); }, ""},
        {"uses a lock on another file",
         [](FileLock&, FileLock& other, Doing&, Doing&) {
             other.writeLock();
             other.unlock();
         },
         ""},
        {"requests the lock for reading",
         [](FileLock& lock, FileLock&, Doing&, Doing&) { lock.readLock(); }, recursion},
        {"requests the lock for writing",
         [](FileLock& lock, FileLock&, Doing&, Doing&) { lock.writeLock(); }, recursion},
        {"releases and throws",
         [](FileLock& lock, FileLock&, Doing&, Doing&) {
             lock.unlock(0);
             throw 8;
         },
         "int 8"},
        {"sets the last number seen",
         [](FileLock& lock, FileLock&, Doing&, Doing&) { lock.setLastSequence(); }, ""},
    };
    NotedMessages const reports;
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        FileLock lock(path(), "x");
        FileLock elsewhere(path(), "y");
        lock.readLock();
        lock.unlock();
        Doing more([] {});
        Doing* self = nullptr;
        Doing observer([&] { c.meddles(lock, elsewhere, *self, more); });
        self = &observer;
        lock.addObserver(&observer);
        raiseSequence();
        EXPECT_EQ(c.raised, thrown([&] { lock.readLock(); }));
        EXPECT_EQ(1, observer.notifications);
        if (c.raised.empty()) {
            EXPECT_EQ(kWrite, lock.getLockState());
            EXPECT_EQ(0, lock.getUpdate());
            lock.unlock();
        }
        EXPECT_TRUE(isFree(lock));
        EXPECT_TRUE(isFree(elsewhere));
        lock.deleteObservers();
        lock.writeLock();
        lock.unlock();
    }
}

TEST_F(ZProcessReadWriteFileLockHostile, ObserverThatReleasesLeavesAFreeLock)
{
    FileLock lock(path(), "x");
    lock.readLock();
    lock.unlock();
    Doing observer([&] { lock.unlock(); });
    lock.addObserver(&observer);
    raiseSequence();
    lock.readLock();
    EXPECT_TRUE(isFree(lock));
    EXPECT_EQ("ZUnlockResourceException_6_0 6 0", thrown([&] { lock.unlock(); }));
    lock.writeLock();
    lock.unlock();
}

TEST_F(ZProcessReadWriteFileLockHostile, NamesSetWhileHeldDoNotReachTheHeldFile)
{
    FileLock lock(path(), "x");
    OtherLocker other(directory_.path(), "x");
    lock.writeLock();
    ZLCString_6_0 name("renamed");
    lock.setLockName(name);
    lock.setLockFileName("moved");
    other.order('r');
    EXPECT_TRUE(other.waits());
    lock.unlock();
    EXPECT_EQ("read 1", other.answer());
    EXPECT_EQ("unset 1", other.does('u'));
    EXPECT_TRUE(isFree(lock));
    lock.writeLock();
    lock.unlock();
    EXPECT_EQ("._zplmoved ._zplx", directory_.names());
}

TEST_F(ZProcessReadWriteFileLockHostile, WorkingDirectoryThatChangesWhileHeld)
{
    char back[PATH_MAX];
    ASSERT_NE(nullptr, getcwd(back, sizeof back));
    mkdir(directory_.at("one").c_str(), 0700);
    mkdir(directory_.at("two").c_str(), 0700);
    ASSERT_EQ(0, chdir(directory_.at("one").c_str()));
    {
        FileLock lock("x");
        FileLock dotted(".", "y");
        lock.writeLock();
        dotted.readLock();
        ASSERT_EQ(0, chdir("../two"));
        EXPECT_EQ("", thrown([&] { lock.unlock(); }));
        EXPECT_EQ("", thrown([&] { dotted.unlock(); }));
        lock.writeLock();
        EXPECT_EQ(0UL, lock.getSequence());
        lock.unlock();
    }
    ASSERT_EQ(0, chdir(back));
    EXPECT_EQ("._zplx ._zply", namesIn(directory_.at("one")));
    EXPECT_EQ("._zplx", namesIn(directory_.at("two")));
}

TEST_F(ZProcessReadWriteFileLockHostile, FileThatIsRemovedWhileHeld)
{
    struct Case {
        char const* name;
        std::function<void(std::string const&)> happens;
    };
    Case const cases[] = {
        {"removed", [](std::string const& file) { unlink(file.c_str()); }},
        {"emptied", [](std::string const& file) { EXPECT_EQ(0, truncate(file.c_str(), 0)); }},
        {"cut", [](std::string const& file) { EXPECT_EQ(0, truncate(file.c_str(), 3)); }},
        {"read-only", [](std::string const& file) { chmod(file.c_str(), 0400); }},
        {"replaced",
         [](std::string const& file) {
             std::string const other = file + ".new";
             close(open(other.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
             EXPECT_EQ(0, rename(other.c_str(), file.c_str()));
         }},
    };
    for (Case const& c : cases) {
        for (zlockstate const held : {kRead, kWrite}) {
            SCOPED_TRACE(std::string(c.name) + " " + std::to_string(held));
            long const before = openDescriptors();
            {
                FileLock lock(path(), "x");
                lock.lock(held);
                c.happens(directory_.at("._zplx"));
                EXPECT_EQ("", thrown([&] { lock.unlock(); }));
                EXPECT_TRUE(isFree(lock));
                EXPECT_EQ("", thrown([&] { lock.lock(held); }));
                EXPECT_EQ("", thrown([&] { lock.unlock(); }));
            }
            EXPECT_EQ(before, openDescriptors());
            unlink(directory_.at("._zplx").c_str());
        }
    }
}

TEST_F(ZProcessReadWriteFileLockHostile, WaiterFollowsARemovedAndRecreatedFile)
{
    OtherLocker holder(directory_.path(), "x");
    EXPECT_EQ("write 0", holder.does('w'));
    FileLock lock(path(), "x");
    WatchedThread watched;
    std::thread waiter([&] {
        watched.enter();
        lock.writeLock();
        EXPECT_EQ(1UL, lock.getSequence());
        lock.unlock();
    });
    watched.waitUntilAsleep();
    unlink(directory_.at("._zplx").c_str());
    // A third process creates a new file and holds it.
    OtherLocker third(directory_.path(), "x");
    EXPECT_EQ("write 0", third.does('w'));
    EXPECT_EQ("unset 1", holder.does('u'));
    waitUntil([&] {
        struct stat open;
        struct stat named;
        // By path: the waiting thread may close the descriptor while it is examined.
        std::string const fd = "/proc/self/fd/" + std::to_string(lock.getFileHandle());
        return stat(fd.c_str(), &open) == 0 && stat(lock.getLockFileName(), &named) == 0 &&
               open.st_ino == named.st_ino;
    });
    watched.waitUntilAsleep();
    EXPECT_EQ(kUnset, lock.getLockState());
    EXPECT_EQ("unset 1", third.does('u'));
    waiter.join();
    EXPECT_TRUE(isFree(lock));
    EXPECT_EQ(2UL, lock.getSequence());
}

TEST_F(ZProcessReadWriteFileLockHostile, FilesOfEverySize)
{
    for (size_t size : {0, 1, 2, 3, 4, 5, 8, 9, 100}) {
        SCOPED_TRACE(size);
        std::string const text(size, '\x11');
        directory_.write("._zplx", text);
        FileLock lock(path(), "x");
        std::string const raised = thrown([&] { lock.readLock(); });
        if (raised.empty()) {
            unsigned long const expected = size == 0   ? 0x0
                                           : size == 1 ? 0x11
                                           : size == 2 ? 0x1111
                                           : size == 3 ? 0x111111
                                                       : 0x11111111;
            EXPECT_EQ(expected, lock.getSequence());
            lock.unlock();
        } else {
            EXPECT_TRUE(size >= 1 && size <= 3);
            EXPECT_EQ("ZReadResourceException_6_0 35 -1", raised);
        }
        EXPECT_TRUE(isFree(lock));
        EXPECT_EQ("", thrown([&] { lock.writeLock(); }));
        lock.unlock();
        std::string const after = directory_.read("._zplx");
        EXPECT_EQ(std::max(size, size_t{8}), after.size());
        EXPECT_EQ(text.substr(std::min<size_t>(size, 8)), after.substr(8));
    }
}

TEST_F(ZProcessReadWriteFileLockHostile, LockThatCannotBeOpenedLeavesNothingHeld)
{
    std::string const gone = directory_.at("gone");
    mkdir(gone.c_str(), 0700);
    long const before = openDescriptors();
    FileLock lock(gone.c_str(), "x");
    rmdir(gone.c_str());
    for (zlockstate const asked : {kRead, kWrite}) {
        EXPECT_EQ(lockFails(EBADF), thrown([&] { lock.lock(asked); }));
        EXPECT_TRUE(isFree(lock));
    }
    std::string const endless(5000, 'x');
    FileLock longName(path(), endless.c_str());
    EXPECT_EQ(lockFails(EBADF), thrown([&] { longName.readLock(); }));
    EXPECT_TRUE(isFree(longName));
    EXPECT_EQ(before, openDescriptors());
    mkdir(gone.c_str(), 0700);
    EXPECT_EQ("", thrown([&] { lock.writeLock(); }));
    lock.unlock();
}

TEST_F(ZProcessReadWriteFileLockHostile, DescriptorsAreNeverTheStandardOnesNorInherited)
{
    EXPECT_EQ(0, inChild([&] {
                  close(0);
                  close(1);
                  close(2);
                  FileLock lock(path(), "x");
                  lock.writeLock();
                  int const fd = lock.getFileHandle();
                  if (fd < 3 || (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0)
                      return 1;
                  for (int standard : {0, 1, 2}) {
                      if (fcntl(standard, F_GETFD) != -1)
                          return 2;
                  }
                  lock.unlock();
                  return isFree(lock) ? 0 : 3;
              }));
}

TEST_F(ZProcessReadWriteFileLockHostile, RunsOutOfDescriptors)
{
    EXPECT_EQ(0, inChild([&] {
                  FileLock lock(path(), "x");
                  int const next = dup(0);
                  close(next);
                  rlimit limit = {static_cast<rlim_t>(next), 100};
                  setrlimit(RLIMIT_NOFILE, &limit);
                  if (thrown([&] { lock.writeLock(); }) != lockFails(EBADF) || !isFree(lock))
                      return 1;
                  limit.rlim_cur = 100;
                  setrlimit(RLIMIT_NOFILE, &limit);
                  if (!thrown([&] { lock.writeLock(); }).empty())
                      return 2;
                  limit.rlim_cur = static_cast<rlim_t>(next);
                  setrlimit(RLIMIT_NOFILE, &limit);
                  if (!thrown([&] { lock.unlock(); }).empty())
                      return 3;
                  return isFree(lock) ? 0 : 4;
              }));
}

TEST_F(ZProcessReadWriteFileLockHostile, ChildWithALockOfItsOwnWaitsForItsParent)
{
    FileLock lock(path(), "x");
    lock.writeLock();
    int pipes[2];
    ASSERT_EQ(0, pipe2(pipes, O_CLOEXEC));
    pid_t const child = fork();
    if (child == 0) {
        alarm(kHangs.count());
        if (thrown([&] { lock.unlock(); }) != "ZInvalidResourceStateException_6_0 32 -1" ||
            thrown([&] { lock.readLock(); }).empty())
            _exit(1);
        FileLock own(path(), "x");
        if (!thrown([&] { own.writeLock(); }).empty())
            _exit(2);
        char byte = 'h';
        if (write(pipes[1], &byte, 1) != 1)
            _exit(3);
        own.unlock();
        _exit(isFree(own) ? 0 : 4);
    }
    pollfd ready = {pipes[0], POLLIN, 0};
    EXPECT_EQ(0, poll(&ready, 1, 100)) << "the child does not wait for its parent";
    lock.unlock();
    EXPECT_EQ(1, poll(&ready, 1, std::chrono::milliseconds(kHangs).count()));
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    close(pipes[0]);
    close(pipes[1]);
}

TEST_F(ZProcessReadWriteFileLockHostile, ForkWhileThreadsWaitForTheFile)
{
    OtherLocker holder(directory_.path(), "x");
    holder.does('w');
    FileLock a(path(), "x");
    FileLock b(path(), "x");
    WatchedThread watched[2];
    std::thread first([&] {
        watched[0].enter();
        a.writeLock();
        a.unlock();
    });
    std::thread second([&] {
        watched[1].enter();
        b.writeLock();
        b.unlock();
    });
    for (WatchedThread const& waiter : watched)
        waiter.waitUntilAsleep();
    pid_t const child = fork();
    if (child == 0) {
        alarm(kHangs.count());
        FileLock own(path(), "x");
        std::string const raised = thrown([&] { own.readLock(); });
        if (raised.empty())
            own.unlock();
        FileLock free(path(), "y");
        if (!thrown([&] {
                 free.writeLock();
                 free.unlock();
             }).empty())
            _exit(2);
        _exit(raised.empty() ? 0 : 1);
    }
    WatchedThread(child).waitUntilAsleep();
    EXPECT_EQ("unset 1", holder.does('u'));
    first.join();
    second.join();
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
}

TEST_F(ZProcessReadWriteFileLockHostile, SequencesAtTheEdge)
{
    struct Case {
        std::string file;
        unsigned long after;
    };
    Case const cases[] = {{std::string("\xFD\xFF\xFF\xFF", 4), 0xFFFFFFFE},
                          {std::string("\xFE\xFF\xFF\xFF", 4), 0},
                          {std::string("\xFF\xFF\xFF\xFF", 4), 0}};
    for (Case const& c : cases) {
        directory_.write("._zplx", c.file);
        FileLock lock(path(), "x");
        int notifications = 0;
        Doing observer([&] { ++notifications; });
        lock.addObserver(&observer);
        for (int i = 0; i < 2; ++i) {
            lock.readLock();
            lock.unlock();
        }
        EXPECT_EQ(0, notifications);
        lock.writeLock();
        lock.unlock();
        EXPECT_EQ(c.after, lock.getSequence());
        FileLock other(path(), "x");
        other.readLock();
        EXPECT_EQ(c.after, other.getSequence());
        other.unlock();
    }
}

TEST_F(ZProcessReadWriteFileLockHostile, OpeningTheFileWhileItIsLockedLosesNothing)
{
    FileLock lock(path(), "x");
    OtherLocker other(directory_.path(), "x");
    lock.writeLock();
    long const before = openDescriptors();
    lock.createLockFile();
    EXPECT_EQ(before, openDescriptors());
    other.order('r');
    EXPECT_TRUE(other.waits());
    lock.unlock();
    EXPECT_EQ("read 1", other.answer());
}

TEST_F(ZProcessReadWriteFileLockHostile, ThreadsThatReleaseReadLocksOfOthers)
{
    FileLock lock(path(), "x");
    std::atomic<int> others{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                if (t != 0)
                    thrown([&] { lock.readLock(); });
                std::string const raised = thrown([&] { lock.unlock(); });
                others += !raised.empty() && raised != "ZUnlockResourceException_6_0 6 0";
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, others);
    while (lock.getReaderCount() > 0)
        lock.unlock();
    EXPECT_TRUE(isFree(lock));
    lock.writeLock();
    lock.unlock();
}

TEST_F(ZProcessReadWriteFileLockHostile, StubIsNotLeftHeldByMistakes)
{
    ZStubProcessReadWriteLock_6_0 stub("x");
    EXPECT_EQ("ZInvalidResourceStateException_6_0 32 -1",
              thrown([&] { stub.lock(static_cast<zlockstate>(7)); }));
    EXPECT_EQ(kUnset, stub.getLockState());
    stub.readWithIntentToWriteLock();
    elsewhere([&] {
        EXPECT_EQ("ZUnlockResourceException_6_0 6 0", thrown([&] { stub.unlock(); }));
        EXPECT_EQ("ZUnlockResourceException_6_0 6 0", thrown([&] { stub.lock(kUnset); }));
    });
    EXPECT_EQ(static_cast<zlockstate>(2), stub.getLockState());
    EXPECT_EQ(ZStubProcessReadWriteLock_6_0::invalidSequence, stub.getLastSequence());
    EXPECT_EQ(1, stub.getUpdate());
    stub.unlock();
}

// A release must not undo the acquisition of the next thread.
TEST_F(ZProcessReadWriteFileLockHostile, EveryWriterIncrementsTheNumber)
{
    ZStubProcessReadWriteFileLock_6_0 fileLock(path(), "x");
    ZStubProcessReadWriteLock_6_0 stub("x");
    for (ZAbstractProcessReadWriteLock_6_0* lock :
         {static_cast<ZAbstractProcessReadWriteLock_6_0*>(&fileLock),
          static_cast<ZAbstractProcessReadWriteLock_6_0*>(&stub)}) {
        constexpr unsigned kRounds = 300000;
        std::atomic<int> unheld{0};
        auto const writer = [&] {
            for (unsigned i = 0; i < kRounds; ++i) {
                lock->writeLock();
                unheld += lock->haveLock(kWrite) == 0 || lock->getUpdate() == 0;
                lock->unlock();
            }
        };
        std::thread one(writer);
        std::thread two(writer);
        one.join();
        two.join();
        EXPECT_EQ(0, unheld);
        EXPECT_EQ(2 * kRounds, lock->getSequence());
    }
}

// Each point at which a thread can wait, and is cancelled.
TEST_F(ZProcessReadWriteFileLockHostile, CancellationAtEveryWait)
{
    struct Case {
        char const* name;
        char holder;        // lock of another process; 0 for none
        zlockstate same;    // lock of another thread through the same object
        zlockstate beside;  // lock of another thread through another object
        zlockstate requested;
    };
    Case const cases[] = {
        {"gate", 'w', kUnset, kUnset, kRead},
        {"gate, writer", 'w', kUnset, kUnset, kWrite},
        {"data", 'r', kUnset, kUnset, kWrite},
        {"thread", 0, kWrite, kUnset, kRead},
        {"thread, writer", 0, kRead, kUnset, kWrite},
        {"other object", 0, kUnset, kWrite, kRead},
        {"other object, writer", 0, kUnset, kWrite, kWrite},
        {"data of other object", 0, kUnset, kRead, kWrite},
    };
    long const before = openDescriptors();
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        FileLock lock(path(), "x");
        FileLock beside(path(), "x");
        std::unique_ptr<OtherLocker> holder;
        if (c.holder != 0) {
            holder.reset(new OtherLocker(directory_.path(), "x"));
            holder->does(c.holder);
        }
        if (c.same != kUnset)
            lock.lock(c.same);
        if (c.beside != kUnset)
            beside.lock(c.beside);
        WatchedThread watched;
        CancellableThread waiter([&] {
            watched.enter();
            lock.lock(c.requested);
        });
        watched.waitUntilAsleep();
        waiter.cancel();
        EXPECT_TRUE(waiter.endsCancelled());
        if (c.same != kUnset)
            lock.unlock(0);
        EXPECT_TRUE(isFree(lock));
        if (c.beside != kUnset)
            beside.unlock(0);
        EXPECT_TRUE(isFree(beside));
        if (holder)
            holder->does('n');
        elsewhere([&] {
            EXPECT_EQ("", thrown([&] {
                          lock.writeLock();
                          lock.unlock(0);
                      }));
        });
        EXPECT_EQ("", thrown([&] { beside.writeLock(); }));
        beside.unlock(0);
        OtherLocker next(directory_.path(), "x");
        EXPECT_EQ("write 0", next.does('w'));
    }
    EXPECT_EQ(before, openDescriptors());
}

TEST_F(ZProcessReadWriteFileLockHostile, CancellationInAnObserverAndDuringARelease)
{
    FileLock lock(path(), "x");
    lock.readLock();
    lock.unlock();
    Doing observer([] {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    });
    lock.addObserver(&observer);
    raiseSequence();
    auto const cancelled = [](std::function<void()> action) {
        return CancellableThread(std::move(action)).endsCancelled();
    };
    EXPECT_TRUE(cancelled([&] { lock.readLock(); }));
    EXPECT_TRUE(isFree(lock));
    lock.deleteObservers();
    lock.setLastSequence();
    EXPECT_TRUE(cancelled([&] {
        lock.writeLock();
        pthread_cancel(pthread_self());
        lock.unlock();
        pthread_testcancel();
    }));
    EXPECT_TRUE(isFree(lock));
    EXPECT_EQ(2UL, lock.getSequence());
    EXPECT_TRUE(cancelled([&] {
        pthread_cancel(pthread_self());
        lock.writeLock();
        lock.unlock(0);
        pthread_testcancel();
    }));
    EXPECT_TRUE(isFree(lock));
    lock.writeLock();
    lock.unlock(0);
}

TEST_F(ZProcessReadWriteFileLockHostile, DeadlockOfTwoProcessesIsBrokenOnce)
{
    FileLock a(path(), "a");
    FileLock b(path(), "b");
    int pipes[2];
    ASSERT_EQ(0, pipe2(pipes, O_CLOEXEC));
    a.writeLock();
    pid_t const child = fork();
    if (child == 0) {
        alarm(kHangs.count());
        FileLock first(path(), "b");
        FileLock second(path(), "a");
        first.writeLock();
        char byte = 'h';
        if (write(pipes[1], &byte, 1) != 1)
            _exit(3);
        std::string const raised = thrown([&] { second.writeLock(); });
        if (raised.empty())
            second.unlock();
        first.unlock();
        if (!isFree(first) || !isFree(second))
            _exit(4);
        _exit(raised.empty() ? 0 : raised == lockFails(EDEADLK) ? 1 : 2);
    }
    char byte;
    ASSERT_EQ(1, read(pipes[0], &byte, 1));
    std::string const raised = thrown([&] { b.writeLock(); });
    if (raised.empty())
        b.unlock();
    a.unlock();
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(raised.empty() || raised == lockFails(EDEADLK)) << raised;
    EXPECT_EQ(raised.empty() ? 1 : 0, WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    EXPECT_TRUE(isFree(a));
    EXPECT_TRUE(isFree(b));
    close(pipes[0]);
    close(pipes[1]);
}

TEST_F(ZProcessReadWriteFileLockHostile, SignalWhileItWaitsForTheData)
{
    struct sigaction handler = {};
    handler.sa_handler = [](int) {};
    struct sigaction old;
    sigaction(SIGUSR1, &handler, &old);
    OtherLocker holder(directory_.path(), "x");
    holder.does('r');
    FileLock lock(path(), "x");
    std::atomic<bool> ended{false};
    WatchedThread watched;
    std::thread waiter([&] {
        watched.enter();
        EXPECT_EQ(lockFails(EINTR), thrown([&] { lock.writeLock(); }));
        ended = true;
    });
    while (!ended) {
        watched.waitUntilAsleep();
        pthread_kill(waiter.native_handle(), SIGUSR1);
    }
    waiter.join();
    EXPECT_TRUE(isFree(lock));
    OtherLocker next(directory_.path(), "x");
    EXPECT_EQ("read 0", next.does('r')) << "the gate stays locked";
    sigaction(SIGUSR1, &old, nullptr);
}

// The kernel treats a process as one owner, so with several objects it may report a deadlock
// although a thread could continue: then the thread tries again.
TEST_F(ZProcessReadWriteFileLockHostile, ManyObjectsThreadsAndAProcessCountWithoutLoss)
{
    constexpr unsigned long kOfOther = 20;
    constexpr unsigned long kOfThread = 14;
    std::atomic<int> inside{0};
    std::atomic<int> crowded{0};
    std::atomic<int> failed{0};
    FileLock locks[3] = {{path(), "x"}, {path(), "x"}, {path(), "x"}};
    Doing observer([] {});
    locks[1].addObserver(&observer);
    OtherLocker other(directory_.path(), "x");
    auto const acquire = [&](FileLock& lock, zlockstate state) {
        std::string raised;
        while ((raised = thrown([&] { lock.lock(state); })) == lockFails(EDEADLK))
            sched_yield();
        failed += !raised.empty();
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            FileLock& lock = locks[t % 3];
            for (unsigned long i = 0; i < kOfThread; ++i) {
                acquire(lock, kWrite);
                crowded += inside++ != 0;
                --inside;
                lock.unlock(1);
                acquire(lock, kRead);
                crowded += inside != 0;
                lock.unlock();
            }
        });
    }
    std::string const deadlock = "33 " + std::to_string(EDEADLK);
    for (unsigned long i = 0; i < kOfOther; ++i) {
        std::string answer;
        while ((answer = other.does('w')) == deadlock)
            sched_yield();
        EXPECT_EQ("write", answer.substr(0, 5));
        other.does('u');
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, crowded);
    EXPECT_EQ(0, failed);
    for (FileLock& lock : locks)
        EXPECT_TRUE(isFree(lock));
    locks[0].readLock();
    EXPECT_EQ(kOfOther + 6 * kOfThread, locks[0].getSequence());
    locks[0].unlock();
}

}  // namespace

int main(int argc, char** argv)
{
    if (OtherLocker::isWanted(argc, argv))
        return OtherLocker::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
