// The plain functions for process locks.
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "ZException.h"
#include "ZProcessReadWriteFileLock.h"
#include "files/lock_file.h"
#include "files/shared_file.h"
#include "handles/handle_table.h"
#include "handles/last_error.h"
#include "memory/malloc_ptr.h"
#include "zproperties_c.h"
#include "zproperties_c_p.h"

namespace {

using zhandles::recordFailure;
using Clock = std::chrono::steady_clock;

constexpr char kSource[] = "src/Z/zproperties_c";
constexpr int kLockFailed = 33;  // message number
constexpr char kOtherThread[] = "The lock belongs to another thread, or to the parent process.";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInLockAcquire = 520 };

[[noreturn]] void throwLockFailed(int error)
{
    ZLockResourceException_6_0(kLockFailed, error).throwException(kSource, raiseInLockAcquire);
}

// Calls `attempt` until it returns true. Returns false if the deadline passes first.
template <class Attempt>
bool retryUntil(Clock::time_point deadline, Attempt attempt)
{
    while (!attempt()) {
        if (Clock::now() >= deadline)
            return false;
        constexpr timespec kInterval = {0, 5'000'000};
        nanosleep(&kInterval, nullptr);
    }
    return true;
}

// ---- Inside the process -------------------------------------------------------------------------

// The locks of this process by path. They exclude each other here, because a wait of the library
// for another thread has no time limit.
class Claims {
public:
    /// Returns the claims of this process: a child process starts without any.
    static Claims& ofProcess()
    {
        static std::atomic<Claims*> current{nullptr};
        Claims* found = current.load(std::memory_order_acquire);
        while (found == nullptr || found->generation_ != zfiles::forkGeneration()) {
            // The claims of the parent process are abandoned: a thread may have held their mutex.
            auto fresh = std::make_unique<Claims>();
            if (current.compare_exchange_strong(found, fresh.get(), std::memory_order_acq_rel))
                found = fresh.release();
        }
        return *found;
    }

    bool tryAcquire(std::string const& path, bool isWriter)
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        Users& users = users_[path];
        if (users.isWritten || (isWriter && users.readers > 0))
            return false;
        users.isWritten = isWriter;
        users.readers += isWriter ? 0 : 1;
        return true;
    }

    void release(std::string const& path, bool isWriter)
    {
        std::lock_guard<std::mutex> const guard(mutex_);
        auto const found = users_.find(path);
        if (isWriter)
            found->second.isWritten = false;
        else
            --found->second.readers;
        if (found->second.readers == 0 && !found->second.isWritten)
            users_.erase(found);
    }

private:
    struct Users {
        int readers = 0;
        bool isWritten = false;
    };

    unsigned const generation_ = zfiles::forkGeneration();
    std::mutex mutex_;
    std::map<std::string, Users> users_;  // guarded by mutex_
};

// Releases a claim in the destructor.
class ScopedClaim {
public:
    explicit ScopedClaim(bool isWriter) : isWriter_(isWriter) {}
    ScopedClaim(ScopedClaim const&) = delete;
    ScopedClaim& operator=(ScopedClaim const&) = delete;
    ~ScopedClaim()
    {
        if (claims_ != nullptr)
            claims_->release(path_, isWriter_);
    }

    std::string const& path() const { return path_; }

    bool acquire(char const* path, Clock::time_point deadline)
    {
        path_ = path;
        Claims& claims = Claims::ofProcess();
        bool const isAcquired =
            retryUntil(deadline, [&] { return claims.tryAcquire(path_, isWriter_); });
        claims_ = isAcquired ? &claims : nullptr;
        return isAcquired;
    }

private:
    bool const isWriter_;
    std::string path_;
    Claims* claims_ = nullptr;  // null: nothing is claimed
};

// A lock whose waits for other processes end at a deadline.
class TimedLock : public ZUnixProcessReadWriteFileLock_6_0 {
public:
    TimedLock(char const* directory, char const* name, Clock::time_point deadline)
        : ZUnixProcessReadWriteFileLock_6_0(directory, name), deadline_(deadline)
    {
    }
    TimedLock(TimedLock const&) = delete;
    TimedLock& operator=(TimedLock const&) = delete;
    ~TimedLock() override = default;

    bool isHeld() const { return getLockState() != unset; }

    void lockFileRange(zlockstate state, unsigned int start, unsigned int length) override
    {
        if (state == unset) {
            ZUnixProcessReadWriteFileLock_6_0::lockFileRange(state, start, length);
            return;
        }
        if (getFileHandle() == -1)
            createLockFile();
        int error = EBADF;
        retryUntil(deadline_, [&] {
            if (getFileHandle() != -1)
                error = sharedFile().lock(state == read ? F_RDLCK : F_WRLCK, start, length);
            return error != EAGAIN && error != EACCES;
        });
        if (error != 0)
            throwLockFailed(error == EACCES ? EAGAIN : error);
    }

private:
    Clock::time_point const deadline_;
};

}  // namespace

// A held lock.
struct ZPROP_lock {
    ZPROP_lock(char const* directory, char const* name, bool isWriter, Clock::time_point deadline)
        : claim(isWriter), lock(directory, name, deadline)
    {
    }
    ZPROP_lock(ZPROP_lock const&) = delete;
    ZPROP_lock& operator=(ZPROP_lock const&) = delete;
    ~ZPROP_lock() = default;

    std::string const& path() const { return claim.path(); }

    // Returns whether the calling thread acquired the lock, in this process.
    bool isHeldHere() const
    {
        return pthread_equal(creator, pthread_self()) != 0 &&
               generation == zfiles::forkGeneration();
    }

    ScopedClaim claim;  // released after the lock
    TimedLock lock;
    pthread_t const creator = pthread_self();
    unsigned const generation = zfiles::forkGeneration();
};

namespace {

using Locks = zhandles::HandleTable<ZPROP_lock>;

constexpr uint32_t kLockTag = 3;  // differs from the tags of files and iterators
constinit Locks locks(kLockTag);

// Returns the errno that explains why a lock file could not be opened. It must not be opened here:
// closing it would release the other locks of this process on it.
int explainUnusable(char const* path)
{
    struct stat status = {};
    if (lstat(path, &status) != 0)
        return errno == ENOENT ? EACCES : errno;
    if (!S_ISREG(status.st_mode))
        return S_ISLNK(status.st_mode) ? ELOOP : EINVAL;
    if (status.st_nlink > 1)
        return EMLINK;
    return access(path, R_OK | W_OK) != 0 ? errno : EPERM;
}

// Acquires a new lock.
void acquire(ZPROP_lock& created, bool isWriter, char const* path, Clock::time_point deadline)
{
    if (!created.claim.acquire(path, deadline))
        throwLockFailed(EAGAIN);
    try {
        created.lock.lock(isWriter ? TimedLock::write : TimedLock::read);
    } catch (ZLockResourceException_6_0 const& failure) {
        if (failure.returnCode() != EBADF)
            throw;
        throwLockFailed(explainUnusable(path));
    }
}

// Releases a lock; `changed` increments the sequence number.
void release(TimedLock& lock, int changed)
{
    try {
        lock.unlock(changed);
    } catch (ZWriteResourceException_6_0 const&) {
        // The number could not be incremented, and the lock is still held.
        lock.unlock(0);
        throw;
    }
}

// Returns a path that is the same for each spelling of the directory.
std::string uniquePath(char const* directory, char const* name)
{
    bool const isGiven = directory != nullptr && *directory != '\0';
    zmemory::MallocPtr<char[]> const real(realpath(isGiven ? directory : ".", nullptr));
    std::string path = real != nullptr ? real.get() : isGiven ? directory : ".";
    return path + '/' + zfiles::LockFile::kPrefix + name;
}

// Runs `action` on the lock file at `path`. Returns the code.
template <class Action>
int codeOfLock(char const* path, Action action)
{
    zhandles::Call call;
    call.file = path;
    return zhandles::codeOf(zhandles::openStoreCode, call, nullptr, action);
}

}  // namespace

int zstzLockAcquire_6_0(ZPROP_lock** lock, char const* directory, char const* name, int isWriter,
                        int milliseconds)
{
    if (lock == nullptr || name == nullptr || *name == '\0' || milliseconds < 0)
        return zhandles::missingArgument();
    *lock = nullptr;
    Clock::time_point const deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    std::string path;
    if (int const code = codeOfLock("", [&] { path = uniquePath(directory, name); }))
        return code;
    return codeOfLock(path.c_str(), [&] {
        // Create the handle before the lock is held: it may fail for lack of memory.
        ZPROP_lock* const handle = locks.insert(std::make_unique<ZPROP_lock>(
            directory != nullptr && *directory != '\0' ? directory : nullptr, name, isWriter != 0,
            deadline));
        Locks::Pin const created = locks.pin(handle);
        try {
            acquire(*created, isWriter != 0, path.c_str(), deadline);
        } catch (...) {
            locks.close(handle);
            throw;
        }
        *lock = handle;
    });
}

unsigned long zstzLockGetSequence_6_0(ZPROP_lock* lock, int* code)
{
    if (code == nullptr)
        return zhandles::missingArgument(0UL);
    Locks::Pin const held = locks.pin(lock);
    *code = held ? zpropOk : zhandles::badHandle();
    return held ? held->lock.getSequence() : 0;
}

int zstzLockRelease_6_0(ZPROP_lock* lock, int changed)
{
    Locks::Pin const held = locks.pin(lock);
    if (!held)
        return zhandles::badHandle();
    char const* const path = held->path().c_str();
    if (!held->isHeldHere())
        return recordFailure(zpropChangeFailed, kOtherThread, {nullptr, nullptr, path});
    int const code = codeOfLock(path, [&] { release(held->lock, changed); });
    if (!held->lock.isHeld())
        locks.close(lock);
    return code;
}
