// SystemCalls: lets the system calls on files fail on demand, and shows them to a test, in a test
// program whose row says SYSTEM_CALLS.
//
//     CallPlan wanted;
//     wanted.failAt = 3;
//     wanted.error = ENOSPC;
//     WatchedCalls const watched(wanted);
//
// A plan counts for one thread, as long as it watches; other calls go through.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <string>

struct SystemCall {
    std::string name;  // "open", ...
    int fd;            // what it works on; -1 when that is no descriptor
    char const* path;  // what it works on; null when that is no path. Of rename() the old one
    int flags;         // of open()
    size_t length;     // bytes to read, to write, to give back
};

// From CallPlan::before: the call moves no byte, and says so.
constexpr int kMovesNothing = -1;

struct CallPlan {
    int failAt = 0;                      // number of the call that fails, counted from 1; 0: none
    int failFrom = 0;                    // all from this one on fail; 0: none
    int error = EIO;                     // with this errno
    std::map<std::string, int> failing;  // the errno of calls that always fail, by name
    bool shortTransfers = false;         // every read and write moves one byte
    // Is told of each call first. Returns the errno that it fails with, kMovesNothing, or 0 to let
    // it go on. The calls it makes itself are not watched.
    std::function<int(SystemCall const&)> before;

    bool watched = false;
    int calls = 0;       // seen
    std::string failed;  // name of the first that failed
    int opened = -1;     // what open() returned last
};
inline thread_local CallPlan callPlan;

// Watches the calls of this thread for a scope.
class WatchedCalls {
public:
    explicit WatchedCalls(CallPlan const& wanted = CallPlan())
    {
        callPlan = wanted;
        callPlan.watched = true;
    }
    WatchedCalls(WatchedCalls const&) = delete;
    WatchedCalls& operator=(WatchedCalls const&) = delete;
    ~WatchedCalls() { callPlan = CallPlan(); }
};

// Returns what the call is to end with: an errno, kMovesNothing, or 0 when it goes through.
inline int plannedEnd(SystemCall const& call)
{
    CallPlan& plan = callPlan;
    if (!plan.watched)
        return 0;
    ++plan.calls;
    int end = 0;
    if (plan.before) {
        plan.watched = false;
        end = plan.before(call);
        plan.watched = true;
    }
    auto const always = plan.failing.find(call.name);
    if (end == 0 && always != plan.failing.end())
        end = always->second;
    if (end == 0 &&
        (plan.calls == plan.failAt || (plan.failFrom != 0 && plan.calls >= plan.failFrom)))
        end = plan.error;
    if (end > 0 && plan.failed.empty())
        plan.failed = call.name;
    return end;
}

// Runs `real` unless another end is planned for the call.
template <class Real>
auto asPlanned(SystemCall const& call, Real real)
{
    using Result = decltype(real());
    int const end = plannedEnd(call);
    if (end == 0)
        return real();
    if (end == kMovesNothing)
        return Result{0};
    errno = end;
    return Result{-1};
}

inline SystemCall callOn(char const* name, int fd)
{
    return {name, fd, nullptr, 0, 0};
}

inline SystemCall callOn(char const* name, char const* path, int flags = 0)
{
    return {name, -1, path, flags, 0};
}

// As asPlanned(), for a call that moves `length` bytes, or one when transfers are short.
template <class Real>
ssize_t movesAsPlanned(char const* name, int fd, size_t length, Real real)
{
    bool const isShort = callPlan.watched && callPlan.shortTransfers && length > 1;
    return asPlanned({name, fd, nullptr, 0, length}, [&] { return real(isShort ? 1 : length); });
}

extern "C" {
int __real_open(char const*, int, ...);
int __real_close(int);
int __real_stat(char const*, struct stat*);
int __real_fstat(int, struct stat*);
int __real_fcntl(int, int, ...);
ssize_t __real_pread(int, void*, size_t, off_t);
ssize_t __real_write(int, void const*, size_t);
ssize_t __real_pwrite(int, void const*, size_t, off_t);
int __real_fsync(int);
int __real_fdatasync(int);
int __real_ftruncate(int, off_t);
int __real_fallocate(int, int, off_t, off_t);
int __real_posix_fallocate(int, off_t, off_t);
int __real_fchown(int, uid_t, gid_t);
int __real_fchmod(int, mode_t);
int __real_rename(char const*, char const*);
int __real_unlink(char const*);
int __real_munmap(void*, size_t);

[[gnu::used]] inline int __wrap_open(char const* path, int flags, ...)
{
    va_list more;
    va_start(more, flags);
    mode_t const mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    int const fd =
        asPlanned(callOn("open", path, flags), [&] { return __real_open(path, flags, mode); });
    if (callPlan.watched)
        callPlan.opened = fd;
    return fd;
}

// A close that fails has closed all the same, as on Linux.
[[gnu::used]] inline int __wrap_close(int fd)
{
    int const end = plannedEnd(callOn("close", fd));
    int const rc = __real_close(fd);
    if (end == 0)
        return rc;
    errno = end;
    return -1;
}

[[gnu::used]] inline int __wrap_stat(char const* path, struct stat* status)
{
    return asPlanned(callOn("stat", path), [&] { return __real_stat(path, status); });
}

[[gnu::used]] inline int __wrap_fstat(int fd, struct stat* status)
{
    return asPlanned(callOn("fstat", fd), [&] { return __real_fstat(fd, status); });
}

// The commands that lock have names of their own.
[[gnu::used]] inline int __wrap_fcntl(int fd, int command, ...)
{
    va_list more;
    va_start(more, command);
    void* const argument = va_arg(more, void*);
    va_end(more);
    char const* const name = command == F_SETLK    ? "F_SETLK"
                             : command == F_SETLKW ? "F_SETLKW"
                                                   : "fcntl";
    return asPlanned(callOn(name, fd), [&] { return __real_fcntl(fd, command, argument); });
}

[[gnu::used]] inline ssize_t __wrap_pread(int fd, void* to, size_t length, off_t offset)
{
    return movesAsPlanned("pread", fd, length,
                          [&](size_t n) { return __real_pread(fd, to, n, offset); });
}

[[gnu::used]] inline ssize_t __wrap_write(int fd, void const* from, size_t length)
{
    return movesAsPlanned("write", fd, length, [&](size_t n) { return __real_write(fd, from, n); });
}

[[gnu::used]] inline ssize_t __wrap_pwrite(int fd, void const* from, size_t length, off_t offset)
{
    return movesAsPlanned("pwrite", fd, length,
                          [&](size_t n) { return __real_pwrite(fd, from, n, offset); });
}

[[gnu::used]] inline int __wrap_fsync(int fd)
{
    return asPlanned(callOn("fsync", fd), [&] { return __real_fsync(fd); });
}

[[gnu::used]] inline int __wrap_fdatasync(int fd)
{
    return asPlanned(callOn("fdatasync", fd), [&] { return __real_fdatasync(fd); });
}

[[gnu::used]] inline int __wrap_ftruncate(int fd, off_t length)
{
    return asPlanned(callOn("ftruncate", fd), [&] { return __real_ftruncate(fd, length); });
}

[[gnu::used]] inline int __wrap_fallocate(int fd, int mode, off_t offset, off_t length)
{
    return asPlanned(callOn("fallocate", fd),
                     [&] { return __real_fallocate(fd, mode, offset, length); });
}

// Returns its errno.
[[gnu::used]] inline int __wrap_posix_fallocate(int fd, off_t offset, off_t length)
{
    int const end = plannedEnd(callOn("posix_fallocate", fd));
    return end != 0 ? end : __real_posix_fallocate(fd, offset, length);
}

[[gnu::used]] inline int __wrap_fchown(int fd, uid_t user, gid_t group)
{
    return asPlanned(callOn("fchown", fd), [&] { return __real_fchown(fd, user, group); });
}

[[gnu::used]] inline int __wrap_fchmod(int fd, mode_t mode)
{
    return asPlanned(callOn("fchmod", fd), [&] { return __real_fchmod(fd, mode); });
}

[[gnu::used]] inline int __wrap_rename(char const* from, char const* to)
{
    return asPlanned(callOn("rename", from), [&] { return __real_rename(from, to); });
}

[[gnu::used]] inline int __wrap_unlink(char const* path)
{
    return asPlanned(callOn("unlink", path), [&] { return __real_unlink(path); });
}

[[gnu::used]] inline int __wrap_munmap(void* address, size_t length)
{
    return asPlanned({"munmap", -1, nullptr, 0, length},
                     [&] { return __real_munmap(address, length); });
}
}
