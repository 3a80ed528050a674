#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "FileLockFixture.h"
#include "Nobody.h"

using namespace file_lock;

namespace {

constexpr char kBaseSource[] = "src/Z/ZProcessReadWriteLock";

}  // namespace

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
        WatchedThread watched;
        std::thread waiting([&] {
            watched.enter();
            try {
                lock.lock(state);
            } catch (ZLockResourceException_6_0 const& e) {
                rc = e.returnCode();
            }
            ended = true;
        });
        while (!ended) {
            watched.waitUntilAsleep();
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
        WatchedThread watched;
        CancellableThread waiting([&] {
            watched.enter();
            lock.writeLock();
        });
        waitUntil([&] { return lock.getFileHandle() != -1; });
        watched.waitUntilAsleep();
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
    WatchedThread thread;
    std::future<void> waiting = startWatched(thread, [&] { lock.readLock(); });
    EXPECT_TRUE(staysBlocked(thread, waiting));
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
        bool const isRefused = static_cast<bool>(
            raises<ZLockResourceException_6_0>(33, kSource, 327, [&] { next.readLock(); }));
        _exit(raised && open && isRefused && seen() == "ww" ? 0 : 1);
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
