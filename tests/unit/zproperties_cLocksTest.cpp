#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <Z/zproperties_c.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "FailingAllocator.h"
#include "TestDirectory.h"

namespace {

constexpr int kReader = 0;
constexpr int kWriter = 1;
constexpr int kLong = 60'000;  // milliseconds; no test waits for it

class ZPropertiesCLocks : public testing::Test {
protected:
    ZPROP_lock* acquired(int isWriter, int milliseconds = kLong)
    {
        ZPROP_lock* lock = nullptr;
        EXPECT_EQ(0, acquire(&lock, isWriter, milliseconds));
        EXPECT_NE(nullptr, lock);
        return lock;
    }
    int acquire(ZPROP_lock** lock, int isWriter, int milliseconds = 0)
    {
        return zstzLockAcquire_6_0(lock, lockDirectory_.c_str(), "routes", isWriter, milliseconds);
    }
    // Returns the code of an acquisition that does not wait; a lock is released again.
    int tried(int isWriter)
    {
        ZPROP_lock* lock = nullptr;
        int const code = acquire(&lock, isWriter);
        EXPECT_EQ(code == 0, lock != nullptr);
        if (code == 0) {
            EXPECT_EQ(0, zstzLockRelease_6_0(lock, 0));
        }
        return code;
    }
    static ZPROPError lastError()
    {
        ZPROPError error = {};
        error.size = sizeof error;
        EXPECT_EQ(0, zstzPropGetLastError_6_0(&error));
        return error;
    }
    static unsigned long sequence(ZPROP_lock* lock)
    {
        int code = -1;
        unsigned long const number = zstzLockGetSequence_6_0(lock, &code);
        EXPECT_EQ(0, code);
        return number;
    }
    std::string lockFile() const { return directory_.at("._zplroutes"); }

    TestDirectory directory_;
    std::string const lockDirectory_ = directory_.at("");
};

// Runs `action` in a child process. Returns its result, at most 127.
int inChild(std::function<int()> const& action)
{
    fflush(nullptr);
    pid_t const child = fork();
    if (child == 0)
        _exit(action());
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST_F(ZPropertiesCLocks, ReadersShareAndAWriterExcludes)
{
    ZPROP_lock* const first = acquired(kReader);
    EXPECT_EQ(0, tried(kReader));
    EXPECT_EQ(51, tried(kWriter));
    EXPECT_EQ(0, inChild([this] { return tried(kReader); }));
    EXPECT_EQ(51, inChild([this] { return tried(kWriter); }));
    EXPECT_EQ(0, zstzLockRelease_6_0(first, 0));
    ZPROP_lock* const writer = acquired(kWriter);
    for (int const isWriter : {kReader, kWriter}) {
        EXPECT_EQ(51, tried(isWriter));
        EXPECT_EQ(EAGAIN, lastError().errorNumber);
        EXPECT_EQ(lockFile(), lastError().file);
        EXPECT_EQ(51, inChild([&] { return tried(isWriter); }));
    }
    EXPECT_EQ(0, zstzLockRelease_6_0(writer, 0));
    EXPECT_EQ(0, inChild([this] { return tried(kWriter); }));
}

TEST_F(ZPropertiesCLocks, AnotherSpellingOfTheDirectoryIsTheSameLock)
{
    ZPROP_lock* const held = acquired(kWriter);
    ZPROP_lock* lock = nullptr;
    EXPECT_EQ(51, zstzLockAcquire_6_0(&lock, (directory_.at("") + "/./").c_str(), "routes", 0, 0));
    EXPECT_EQ(nullptr, lock);
    EXPECT_EQ(0, zstzLockAcquire_6_0(&lock, directory_.at("").c_str(), "other", 1, 0));
    EXPECT_EQ(0, zstzLockRelease_6_0(lock, 0));
    EXPECT_EQ(0, zstzLockRelease_6_0(held, 0));
}

TEST_F(ZPropertiesCLocks, AWaitEndsWhenTheLockIsReleased)
{
    ZPROP_lock* const held = acquired(kWriter);
    std::atomic<int> released{0};
    std::thread waiting([&] {
        ZPROP_lock* const lock = acquired(kReader);
        EXPECT_EQ(1, released);
        EXPECT_EQ(0, zstzLockRelease_6_0(lock, 0));
    });
    EXPECT_EQ(51, tried(kReader));
    released = 1;
    EXPECT_EQ(0, zstzLockRelease_6_0(held, 0));
    waiting.join();
}

TEST_F(ZPropertiesCLocks, AWaitForAnotherProcessEndsWhenItReleases)
{
    int ready[2];
    int go[2];
    ASSERT_EQ(0, pipe(ready));
    ASSERT_EQ(0, pipe(go));
    pid_t const child = fork();
    if (child == 0) {
        ZPROP_lock* const lock = acquired(kWriter);
        char byte = 1;
        bool const isDone = write(ready[1], &byte, 1) == 1 && read(go[0], &byte, 1) == 1;
        _exit(isDone ? zstzLockRelease_6_0(lock, 1) : 1);
    }
    char byte = 0;
    ASSERT_EQ(1, read(ready[0], &byte, 1));
    EXPECT_EQ(51, tried(kReader));
    ASSERT_EQ(1, write(go[1], &byte, 1));
    ZPROP_lock* const lock = acquired(kReader);
    EXPECT_EQ(1u, sequence(lock));
    EXPECT_EQ(0, zstzLockRelease_6_0(lock, 1));
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    for (int const end : {ready[0], ready[1], go[0], go[1]})
        close(end);
}

TEST_F(ZPropertiesCLocks, WritersCountTheirChanges)
{
    for (unsigned long expected = 0; expected < 3; ++expected) {
        ZPROP_lock* const lock = acquired(kWriter);
        EXPECT_EQ(expected, sequence(lock));
        EXPECT_EQ(0, zstzLockRelease_6_0(lock, 1));
    }
    ZPROP_lock* lock = acquired(kWriter);
    EXPECT_EQ(0, zstzLockRelease_6_0(lock, 0));
    lock = acquired(kReader);
    EXPECT_EQ(0, zstzLockRelease_6_0(lock, 1));
    lock = acquired(kReader);
    EXPECT_EQ(3u, sequence(lock));
    EXPECT_EQ(0, zstzLockRelease_6_0(lock, 0));
}

TEST_F(ZPropertiesCLocks, SharesTheLockWithTheClass)
{
    ZUnixProcessReadWriteFileLock_6_0 other(directory_.at("").c_str(), "routes");
    ZPROP_lock* const held = acquired(kReader);
    other.lock(ZUnixProcessReadWriteFileLock_6_0::read);
    EXPECT_EQ(0, zstzLockRelease_6_0(held, 0));
    other.unlock(0);
    EXPECT_EQ(0, inChild([this] { return tried(kWriter); }));
}

TEST_F(ZPropertiesCLocks, OnlyItsThreadReleasesALock)
{
    for (int const isWriter : {kReader, kWriter}) {
        ZPROP_lock* const lock = acquired(isWriter);
        std::thread([&] {
            EXPECT_EQ(52, zstzLockRelease_6_0(lock, 0));
            EXPECT_STREQ("The lock belongs to another thread, or to the parent process.",
                         lastError().text);
            EXPECT_EQ(0u, sequence(lock));
        }).join();
        EXPECT_EQ(51, tried(kWriter));
        EXPECT_EQ(0, zstzLockRelease_6_0(lock, 0));
        EXPECT_EQ(0, tried(kWriter));
    }
}

TEST_F(ZPropertiesCLocks, AChildHoldsNoLockOfItsParent)
{
    ZPROP_lock* const lock = acquired(kWriter);
    EXPECT_EQ(52, inChild([&] { return zstzLockRelease_6_0(lock, 1); }));
    EXPECT_EQ(51, inChild([this] { return tried(kReader); }));
    EXPECT_EQ(0, zstzLockRelease_6_0(lock, 0));
    EXPECT_EQ(0, inChild([this] { return tried(kReader); }));
}

TEST_F(ZPropertiesCLocks, RefusesBadHandlesAndArguments)
{
    ZPROP_lock* const lock = acquired(kWriter);
    EXPECT_EQ(0, zstzLockRelease_6_0(lock, 0));
    ZPROP_handle* file = nullptr;
    ASSERT_EQ(0, zstzPropNew_6_0(&file, nullptr));
    int marker = 0;
    for (ZPROP_lock* const bad :
         {static_cast<ZPROP_lock*>(nullptr), lock, reinterpret_cast<ZPROP_lock*>(file),
          reinterpret_cast<ZPROP_lock*>(&marker)}) {
        EXPECT_EQ(55, zstzLockRelease_6_0(bad, 0));
        int code = -1;
        EXPECT_EQ(0u, zstzLockGetSequence_6_0(bad, &code));
        EXPECT_EQ(55, code);
        EXPECT_EQ(0u, zstzLockGetSequence_6_0(bad, nullptr));
    }
    zstzPropClose_6_0(file);
    auto* const before = reinterpret_cast<ZPROP_lock*>(&marker);
    ZPROP_lock* out = before;
    EXPECT_EQ(55, zstzLockAcquire_6_0(nullptr, nullptr, "routes", 0, 0));
    EXPECT_EQ(55, zstzLockAcquire_6_0(&out, nullptr, nullptr, 0, 0));
    EXPECT_EQ(55, zstzLockAcquire_6_0(&out, nullptr, "", 0, 0));
    EXPECT_EQ(55, zstzLockAcquire_6_0(&out, nullptr, "routes", 0, -1));
    EXPECT_EQ(before, out);
}

TEST_F(ZPropertiesCLocks, ExplainsALockFileThatCannotBeUsed)
{
    struct Case {
        char const* name;
        std::function<void()> prepare;
        int error;
    };
    Case const cases[] = {
        {"a directory", [this] { ASSERT_EQ(0, mkdir(lockFile().c_str(), 0700)); }, EINVAL},
        {"a symbolic link", [this] { ASSERT_EQ(0, symlink("x", lockFile().c_str())); }, ELOOP},
        {"two names",
         [this] {
             directory_.write("file", "");
             ASSERT_EQ(0, link(directory_.at("file").c_str(), lockFile().c_str()));
         },
         EMLINK},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        c.prepare();
        ZPROP_lock* lock = nullptr;
        EXPECT_EQ(51, acquire(&lock, kWriter));
        EXPECT_EQ(nullptr, lock);
        EXPECT_EQ(c.error, lastError().errorNumber);
        EXPECT_EQ(0, remove(lockFile().c_str()));
        EXPECT_EQ(0, tried(kWriter));
        EXPECT_EQ(0, remove(lockFile().c_str()));
    }
    ZPROP_lock* lock = nullptr;
    EXPECT_EQ(51, zstzLockAcquire_6_0(&lock, directory_.at("nothing").c_str(), "routes", 0, 0));
    EXPECT_EQ(nullptr, lock);
}

TEST_F(ZPropertiesCLocks, IsReleasedEvenIfTheNumberCannotBeWritten)
{
    ZPROP_lock* const lock = acquired(kWriter);
    rlimit before = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
    rlimit limit = before;
    limit.rlim_cur = 0;
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
    int const code = zstzLockRelease_6_0(lock, 1);
    int const error = lastError().errorNumber;
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &before));
    EXPECT_EQ(51, code);
    EXPECT_EQ(EFBIG, error);
    EXPECT_EQ(55, zstzLockRelease_6_0(lock, 0));
    EXPECT_EQ(0, tried(kWriter));
    EXPECT_EQ(0, inChild([this] { return tried(kWriter); }));
}

TEST_F(ZPropertiesCLocks, WithoutMemoryFailsAndHoldsNothing)
{
    EXPECT_EQ(0, tried(kWriter));
    unsigned long n = 1;
    for (;; ++n) {
        ZPROP_lock* lock = nullptr;
        FailingAllocator::failAt(n);
        int const code = acquire(&lock, kWriter);
        if (!FailingAllocator::stop()) {
            EXPECT_EQ(0, code);
            EXPECT_EQ(0, zstzLockRelease_6_0(lock, 0));
            break;
        }
        if (code == 0) {  // the failed allocation was not necessary
            EXPECT_EQ(0, zstzLockRelease_6_0(lock, 0));
        } else {
            EXPECT_EQ(51, code) << "allocation " << n;
            EXPECT_EQ(nullptr, lock);
        }
        EXPECT_EQ(0, tried(kWriter)) << "allocation " << n;
        EXPECT_EQ(0, inChild([this] { return tried(kWriter); })) << "allocation " << n;
    }
    EXPECT_GT(n, 3u);
}

TEST_F(ZPropertiesCLocks, OneWriterAtATimeAmongThreadsAndProcesses)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 25;
    std::string const counter = directory_.write("counter", "0");
    auto const count = [&] {
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i)
            threads.emplace_back([&] {
                for (int round = 0; round < kRounds; ++round) {
                    ZPROP_lock* const lock = acquired(kWriter);
                    directory_.write("counter",
                                     std::to_string(atoi(directory_.read("counter").c_str()) + 1));
                    EXPECT_EQ(0, zstzLockRelease_6_0(lock, 1));
                }
            });
        for (std::thread& thread : threads)
            thread.join();
        return testing::Test::HasFailure() ? 1 : 0;
    };
    pid_t const child = fork();
    if (child == 0)
        _exit(count());
    EXPECT_EQ(0, count());
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ(std::to_string(2 * kThreads * kRounds), directory_.read("counter"));
    ZPROP_lock* const lock = acquired(kReader);
    EXPECT_EQ(2u * kThreads * kRounds, sequence(lock));
    EXPECT_EQ(0, zstzLockRelease_6_0(lock, 0));
}
