// SystemCalls: replaces the system calls on files, so that a test can make them fail, observe them,
// and change their results. For test programs with SYSTEM_CALLS in their row.
//
//     CallPlan plan;
//     plan.failAt = 3;
//     plan.error = ENOSPC;
//     WatchedCalls const watched(plan);
//
// A plan applies to the calls of one thread while it is watched. A call that takes a directory
// descriptor appears under the name of the call without one, openat() as "open", with the full
// path.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <string>

struct SystemCall {
    std::string name;               // "open", ...
    int fd = -1;                    // -1 for a call with a path
    char const* path = nullptr;     // null for a call with a descriptor
    char const* newPath = nullptr;  // of rename()
    int flags = 0;                  // of open(), sync_file_range()
    off_t offset = 0;               // of the first byte in the file
    size_t length = 0;              // bytes to read, write or unmap, or the new file size
    void const* from = nullptr;     // the bytes to write
    void* to = nullptr;             // the output buffer
};

// A result of CallPlan::before: the call returns 0 and transfers nothing.
constexpr int kMovesNothing = -1;

constexpr int kDiedAtCall = 77;  // exit code of a process that CallPlan::dieAt ends

struct CallPlan {
    int failAt = 0;                      // number of the call that fails, from 1; 0: no call
    int failAlso = 0;                    // number of a second call that fails
    int failFrom = 0;                    // number of the first of the calls that fail; 0: no call
    int error = EIO;                     // the errno of these failures
    int dieAt = 0;                       // number of the call before which the process ends
    std::map<std::string, int> failing;  // the errno of calls that always fail, by name
    bool shortTransfers = false;         // every read and write transfers one byte
    // Runs before each call. Returns the errno with which the call fails, kMovesNothing, or 0 to
    // make the call. Its own calls are not watched.
    std::function<int(SystemCall const&)> before;
    // Runs after each call that was made. May change the result and the output buffer.
    std::function<void(SystemCall const&, ssize_t& result)> after;

    bool watched = false;
    int calls = 0;       // count so far
    std::string failed;  // name of the first call that failed
    int opened = -1;     // the last result of open()
};
inline thread_local CallPlan callPlan;

// Ends the watch of this thread. CountedExit.cpp calls it: the counts are written by the same
// calls.
extern "C" [[gnu::used]] inline void stopWatchingCalls()
{
    callPlan.watched = false;
}

// Watches the calls of this thread in this scope. Results stay in `callPlan` afterwards.
class WatchedCalls {
public:
    explicit WatchedCalls(CallPlan const& plan = CallPlan())
    {
        callPlan = plan;
        callPlan.watched = true;
    }
    WatchedCalls(WatchedCalls const&) = delete;
    WatchedCalls& operator=(WatchedCalls const&) = delete;
    ~WatchedCalls() { callPlan.watched = false; }
};

// Returns the planned failure of a call: an errno, kMovesNothing, or 0 if the call must be made.
inline int plannedFailure(SystemCall const& call)
{
    CallPlan& plan = callPlan;
    if (!plan.watched)
        return 0;
    ++plan.calls;
    if (plan.calls == plan.dieAt)
        _exit(kDiedAtCall);
    int failure = 0;
    if (plan.before) {
        plan.watched = false;
        failure = plan.before(call);
        plan.watched = true;
    }
    auto const always = plan.failing.find(call.name);
    if (failure == 0 && always != plan.failing.end())
        failure = always->second;
    if (failure == 0 && (plan.calls == plan.failAt || plan.calls == plan.failAlso ||
                         (plan.failFrom != 0 && plan.calls >= plan.failFrom)))
        failure = plan.error;
    if (failure > 0 && plan.failed.empty())
        plan.failed = call.name;
    return failure;
}

// Runs CallPlan::after for a call that was made, and returns the result.
inline ssize_t reportResult(SystemCall const& call, ssize_t result)
{
    CallPlan& plan = callPlan;
    if (!plan.watched || !plan.after)
        return result;
    int const error = errno;
    plan.watched = false;
    plan.after(call, result);
    plan.watched = true;
    errno = error;
    return result;
}

// Makes the call `real` unless a failure is planned.
template <class Real>
auto callAsPlanned(SystemCall const& call, Real real)
{
    using Result = decltype(real());
    int const failure = plannedFailure(call);
    if (failure == 0)
        return static_cast<Result>(reportResult(call, real()));
    if (failure == kMovesNothing)
        return Result{0};
    errno = failure;
    return Result{-1};
}

// As callAsPlanned(), for a call that transfers bytes: one byte if transfers are short.
template <class Real>
ssize_t transferAsPlanned(SystemCall const& call, Real real)
{
    bool const isShort = callPlan.watched && callPlan.shortTransfers && call.length > 1;
    return callAsPlanned(call, [&] { return real(isShort ? 1 : call.length); });
}

// The full path of a file in the directory that `directory` is a descriptor of; "" unless calls are
// watched. It allocates nothing: a test may count allocations.
class WatchedPath {
public:
    WatchedPath(int directory, char const* path)
    {
        if (!callPlan.watched)
            return;
        if (directory != AT_FDCWD && path[0] != '/') {
            char link[40];
            snprintf(link, sizeof link, "/proc/self/fd/%d", directory);
            ssize_t const length = readlink(link, text_, kRoom);
            size_t end = length > 0 ? static_cast<size_t>(length) : 0;
            if (end != 1)  // not for the root
                text_[end++] = '/';
            text_[end] = '\0';
        }
        strncat(text_, path, kRoom);
    }
    char const* get() const { return text_; }

private:
    static constexpr size_t kRoom = 4096;
    char text_[2 * kRoom + 2] = "";
};

extern "C" {
int __real_open(char const*, int, ...);
int __real_openat(int, char const*, int, ...);
int __real_close(int);
int __real_stat(char const*, struct stat*);
int __real_lstat(char const*, struct stat*);
int __real_fstatat(int, char const*, struct stat*, int);
int __real_fstat(int, struct stat*);
int __real_fstatfs(int, struct statfs*);
int __real_fcntl(int, int, ...);
int __real_ioctl(int, unsigned long, ...);
ssize_t __real_pread(int, void*, size_t, off_t);
ssize_t __real_write(int, void const*, size_t);
ssize_t __real_pwrite(int, void const*, size_t, off_t);
int __real_fsync(int);
int __real_fdatasync(int);
int __real_sync_file_range(int, off_t, off_t, unsigned);
int __real_ftruncate(int, off_t);
int __real_fallocate(int, int, off_t, off_t);
int __real_posix_fallocate(int, off_t, off_t);
int __real_fchown(int, uid_t, gid_t);
int __real_fchmod(int, mode_t);
int __real_futimens(int, timespec const*);
int __real_rename(char const*, char const*);
int __real_renameat(int, char const*, int, char const*);
int __real_renameat2(int, char const*, int, char const*, unsigned);
int __real_unlink(char const*);
int __real_unlinkat(int, char const*, int);
int __real_syncfs(int);
long __real_syscall(long, ...);
ssize_t __real_fgetxattr(int, char const*, void*, size_t);
int __real_fsetxattr(int, char const*, void const*, size_t, int);
int __real_fremovexattr(int, char const*);
int __real_munmap(void*, size_t);
int __real_sigtimedwait(sigset_t const*, siginfo_t*, timespec const*);

[[gnu::used]] inline int __wrap_open(char const* path, int flags, ...)
{
    va_list more;
    va_start(more, flags);
    mode_t const mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    int const fd = callAsPlanned({.name = "open", .path = path, .flags = flags},
                                 [&] { return __real_open(path, flags, mode); });
    if (callPlan.watched)
        callPlan.opened = fd;
    return fd;
}

[[gnu::used]] inline int __wrap_openat(int directory, char const* path, int flags, ...)
{
    va_list more;
    va_start(more, flags);
    mode_t const mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    WatchedPath const full(directory, path);
    int const fd = callAsPlanned({.name = "open", .path = full.get(), .flags = flags},
                                 [&] { return __real_openat(directory, path, flags, mode); });
    if (callPlan.watched)
        callPlan.opened = fd;
    return fd;
}

// A failing close() closes the descriptor anyway, as on Linux.
[[gnu::used]] inline int __wrap_close(int fd)
{
    SystemCall const call = {.name = "close", .fd = fd};
    int const failure = plannedFailure(call);
    int const rc = __real_close(fd);
    if (failure == 0)
        return static_cast<int>(reportResult(call, rc));
    errno = failure;
    return -1;
}

[[gnu::used]] inline int __wrap_stat(char const* path, struct stat* status)
{
    return callAsPlanned({.name = "stat", .path = path, .to = status},
                         [&] { return __real_stat(path, status); });
}

[[gnu::used]] inline int __wrap_lstat(char const* path, struct stat* status)
{
    return callAsPlanned({.name = "lstat", .path = path, .to = status},
                         [&] { return __real_lstat(path, status); });
}

[[gnu::used]] inline int __wrap_fstatat(int directory, char const* path, struct stat* status,
                                        int flags)
{
    WatchedPath const full(directory, path);
    char const* const name = (flags & AT_SYMLINK_NOFOLLOW) != 0 ? "lstat" : "stat";
    return callAsPlanned({.name = name, .path = full.get(), .to = status},
                         [&] { return __real_fstatat(directory, path, status, flags); });
}

[[gnu::used]] inline int __wrap_fstat(int fd, struct stat* status)
{
    return callAsPlanned({.name = "fstat", .fd = fd, .to = status},
                         [&] { return __real_fstat(fd, status); });
}

[[gnu::used]] inline int __wrap_fstatfs(int fd, struct statfs* system)
{
    return callAsPlanned({.name = "fstatfs", .fd = fd, .to = system},
                         [&] { return __real_fstatfs(fd, system); });
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
    return callAsPlanned({.name = name, .fd = fd},
                         [&] { return __real_fcntl(fd, command, argument); });
}

[[gnu::used]] inline int __wrap_ioctl(int fd, unsigned long request, ...)
{
    va_list more;
    va_start(more, request);
    void* const argument = va_arg(more, void*);
    va_end(more);
    return callAsPlanned({.name = "ioctl", .fd = fd, .to = argument},
                         [&] { return __real_ioctl(fd, request, argument); });
}

[[gnu::used]] inline ssize_t __wrap_pread(int fd, void* to, size_t length, off_t offset)
{
    return transferAsPlanned(
        {.name = "pread", .fd = fd, .offset = offset, .length = length, .to = to},
        [&](size_t n) { return __real_pread(fd, to, n, offset); });
}

[[gnu::used]] inline ssize_t __wrap_write(int fd, void const* from, size_t length)
{
    return transferAsPlanned({.name = "write", .fd = fd, .length = length, .from = from},
                             [&](size_t n) { return __real_write(fd, from, n); });
}

[[gnu::used]] inline ssize_t __wrap_pwrite(int fd, void const* from, size_t length, off_t offset)
{
    return transferAsPlanned(
        {.name = "pwrite", .fd = fd, .offset = offset, .length = length, .from = from},
        [&](size_t n) { return __real_pwrite(fd, from, n, offset); });
}

[[gnu::used]] inline int __wrap_fsync(int fd)
{
    return callAsPlanned({.name = "fsync", .fd = fd}, [&] { return __real_fsync(fd); });
}

[[gnu::used]] inline int __wrap_fdatasync(int fd)
{
    return callAsPlanned({.name = "fdatasync", .fd = fd}, [&] { return __real_fdatasync(fd); });
}

[[gnu::used]] inline int __wrap_sync_file_range(int fd, off_t offset, off_t length, unsigned flags)
{
    return callAsPlanned({.name = "sync_file_range",
                          .fd = fd,
                          .flags = static_cast<int>(flags),
                          .offset = offset,
                          .length = static_cast<size_t>(length)},
                         [&] { return __real_sync_file_range(fd, offset, length, flags); });
}

[[gnu::used]] inline int __wrap_ftruncate(int fd, off_t length)
{
    return callAsPlanned({.name = "ftruncate", .fd = fd, .length = static_cast<size_t>(length)},
                         [&] { return __real_ftruncate(fd, length); });
}

[[gnu::used]] inline int __wrap_fallocate(int fd, int mode, off_t offset, off_t length)
{
    return callAsPlanned({.name = "fallocate", .fd = fd},
                         [&] { return __real_fallocate(fd, mode, offset, length); });
}

// Returns its errno.
[[gnu::used]] inline int __wrap_posix_fallocate(int fd, off_t offset, off_t length)
{
    SystemCall const call = {.name = "posix_fallocate", .fd = fd};
    int const failure = plannedFailure(call);
    if (failure != 0)
        return failure;
    return static_cast<int>(reportResult(call, __real_posix_fallocate(fd, offset, length)));
}

[[gnu::used]] inline int __wrap_fchown(int fd, uid_t user, gid_t group)
{
    return callAsPlanned({.name = "fchown", .fd = fd},
                         [&] { return __real_fchown(fd, user, group); });
}

[[gnu::used]] inline int __wrap_fchmod(int fd, mode_t mode)
{
    return callAsPlanned({.name = "fchmod", .fd = fd}, [&] { return __real_fchmod(fd, mode); });
}

[[gnu::used]] inline int __wrap_futimens(int fd, timespec const* times)
{
    return callAsPlanned({.name = "futimens", .fd = fd},
                         [&] { return __real_futimens(fd, times); });
}

[[gnu::used]] inline int __wrap_rename(char const* from, char const* to)
{
    return callAsPlanned({.name = "rename", .path = from, .newPath = to},
                         [&] { return __real_rename(from, to); });
}

[[gnu::used]] inline int __wrap_unlink(char const* path)
{
    return callAsPlanned({.name = "unlink", .path = path}, [&] { return __real_unlink(path); });
}

[[gnu::used]] inline int __wrap_renameat(int fromIn, char const* from, int toIn, char const* to)
{
    WatchedPath const fullFrom(fromIn, from);
    WatchedPath const fullTo(toIn, to);
    return callAsPlanned({.name = "rename", .path = fullFrom.get(), .newPath = fullTo.get()},
                         [&] { return __real_renameat(fromIn, from, toIn, to); });
}

[[gnu::used]] inline int __wrap_renameat2(int fromIn, char const* from, int toIn, char const* to,
                                          unsigned flags)
{
    WatchedPath const fullFrom(fromIn, from);
    WatchedPath const fullTo(toIn, to);
    return callAsPlanned({.name = "rename",
                          .path = fullFrom.get(),
                          .newPath = fullTo.get(),
                          .flags = static_cast<int>(flags)},
                         [&] { return __real_renameat2(fromIn, from, toIn, to, flags); });
}

[[gnu::used]] inline int __wrap_unlinkat(int directory, char const* path, int flags)
{
    WatchedPath const full(directory, path);
    return callAsPlanned({.name = "unlink", .path = full.get()},
                         [&] { return __real_unlinkat(directory, path, flags); });
}

[[gnu::used]] inline int __wrap_syncfs(int fd)
{
    return callAsPlanned({.name = "syncfs", .fd = fd}, [&] { return __real_syncfs(fd); });
}

[[gnu::used]] inline ssize_t __wrap_fgetxattr(int fd, char const* name, void* value, size_t size)
{
    return callAsPlanned({.name = "fgetxattr", .fd = fd, .length = size, .to = value},
                         [&] { return __real_fgetxattr(fd, name, value, size); });
}

[[gnu::used]] inline int __wrap_fsetxattr(int fd, char const* name, void const* value, size_t size,
                                          int flags)
{
    return callAsPlanned({.name = "fsetxattr", .fd = fd, .length = size, .from = value},
                         [&] { return __real_fsetxattr(fd, name, value, size, flags); });
}

[[gnu::used]] inline int __wrap_fremovexattr(int fd, char const* name)
{
    return callAsPlanned({.name = "fremovexattr", .fd = fd},
                         [&] { return __real_fremovexattr(fd, name); });
}

// openat2() has no function of its own.
[[gnu::used]] inline long __wrap_syscall(long number, ...)
{
    va_list more;
    va_start(more, number);
    long arguments[6];
    for (long& argument : arguments)
        argument = va_arg(more, long);
    va_end(more);
    auto const real = [&] {
        return __real_syscall(number, arguments[0], arguments[1], arguments[2], arguments[3],
                              arguments[4], arguments[5]);
    };
    if (number != SYS_openat2)
        return real();
    return callAsPlanned({.name = "openat2", .path = reinterpret_cast<char const*>(arguments[1])},
                         real);
}

[[gnu::used]] inline int __wrap_munmap(void* address, size_t length)
{
    return callAsPlanned({.name = "munmap", .length = length},
                         [&] { return __real_munmap(address, length); });
}

[[gnu::used]] inline int __wrap_sigtimedwait(sigset_t const* wanted, siginfo_t* found,
                                             timespec const* timeout)
{
    return callAsPlanned({.name = "sigtimedwait"},
                         [&] { return __real_sigtimedwait(wanted, found, timeout); });
}
}
