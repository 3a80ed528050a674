// lock: the verb zstz lock, which runs a command under a process lock or prints the lock's state.
#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <Z/files/lock_file.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "commands.h"
#include "failures.h"

namespace {

using Clock = std::chrono::steady_clock;
using Lock = ZUnixProcessReadWriteFileLock_6_0;
using zfiles::LockFile;

// Exit codes if the command could not run or was killed, as in a shell.
constexpr int kCannotRun = 126;
constexpr int kNotFound = 127;
constexpr int kBySignal = 128;

std::string lockFilePath(Request const& request)
{
    return (request.lockDir.empty() ? "" : request.lockDir + "/") + LockFile::kPrefix +
           request.lockName;
}

char const* lockDirectory(Request const& request)
{
    return request.lockDir.empty() ? nullptr : request.lockDir.c_str();
}

// ---- Waiting ----------------------------------------------------------------------------------

// Limits the library's wait for a lock, which has no timeout: a repeating alarm interrupts it. The
// alarm repeats because the first one may fire just before the wait starts.
class ScopedAlarm {
public:
    explicit ScopedAlarm(double seconds)
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {};  // no SA_RESTART: interrupts the wait
        sigaction(SIGALRM, &action, &savedAction_);
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        sigprocmask(SIG_UNBLOCK, &alarm, &savedMask_);
        itimerval timer = {};
        timer.it_value.tv_sec = static_cast<time_t>(seconds);
        timer.it_value.tv_usec =
            static_cast<suseconds_t>((seconds - static_cast<double>(timer.it_value.tv_sec)) * 1e6);
        timer.it_interval.tv_usec = kRepeatInterval;
        setitimer(ITIMER_REAL, &timer, nullptr);
    }
    ScopedAlarm(ScopedAlarm const&) = delete;
    ScopedAlarm& operator=(ScopedAlarm const&) = delete;
    ~ScopedAlarm()
    {
        itimerval const off = {};
        setitimer(ITIMER_REAL, &off, nullptr);
        sigprocmask(SIG_SETMASK, &savedMask_, nullptr);
        sigaction(SIGALRM, &savedAction_, nullptr);
    }

private:
    static constexpr suseconds_t kRepeatInterval = 20000;

    struct sigaction savedAction_;
    sigset_t savedMask_;
};

[[noreturn]] void throwLockFileError(Request const& request, std::string const& problem)
{
    throw Failure{
        exitNoAccess,
        lockFilePath(request),
        {"cannot use the lock file: " + problem, "check it, its directory and their permissions"}};
}

constexpr char kNotRegular[] = "it is not a regular file";

// Describes the errno of an open() with O_NOFOLLOW.
char const* explainOpenError(int error)
{
    return error == ELOOP ? "it is a symbolic link" : strerror(error);
}

// Finds out why the library could not open a lock file, which it reports only as EBADF.
std::string explainUnusableFile(std::string const& path)
{
    constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW;
    int fd = open(path.c_str(), kFlags);
    if (fd < 0 && errno == ENOENT)
        fd = open(path.c_str(), kFlags | O_CREAT | O_EXCL, 0600);
    if (fd < 0)
        return explainOpenError(errno);
    struct stat status = {};
    fstat(fd, &status);
    close(fd);
    if (!S_ISREG(status.st_mode))
        return kNotRegular;
    return status.st_nlink > 1 ? "it has more than one name (hard links)"
                               : "it belongs to another user";
}

void acquire(Lock& lock, Request const& request)
{
    // Waits a little even without --wait: a process that acquires a read lock blocks other
    // processes for a moment.
    constexpr double kMinimumWait = 0.05;
    double const seconds = std::max(request.lockWait, kMinimumWait);
    auto const deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                             std::chrono::duration<double>(seconds));
    ScopedAlarm const alarm(seconds);
    for (;;) {
        try {
            lock.lock(request.write ? Lock::write : Lock::read);
            return;
        } catch (ZLockResourceException_6_0 const& e) {
            if (e.returnCode() == EBADF)
                throwLockFileError(request, explainUnusableFile(lockFilePath(request)));
            if (e.returnCode() != EINTR)
                throwLockFileError(request, strerror(e.returnCode()));
            if (Clock::now() >= deadline)
                throw Failure{exitLocked,
                              "",
                              {"lock " + quote(request.lockName) + " is held by another process",
                               "try again, or pass --wait SECONDS"}};
        } catch (ZWriteResourceException_6_0 const& e) {
            throwLockFileError(request, strerror(e.returnCode()));
        } catch (ZReadResourceException_6_0 const& e) {
            throwLockFileError(request,
                               e.returnCode() < 0 ? "it is too short" : strerror(e.returnCode()));
        }
    }
}

// ---- Running ----------------------------------------------------------------------------------

// signals that zstz forwards to the command
constexpr int kForwardedSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2, SIGALRM};

// Blocks the forwarded signals and SIGCHLD, so that wait() can receive them. Resets SIGCHLD to its
// default: if it is ignored, the kernel discards the exit status.
class SignalForwarder {
public:
    SignalForwarder()
    {
        sigemptyset(&awaited_);
        sigaddset(&awaited_, SIGCHLD);
        for (int const signal : kForwardedSignals)
            sigaddset(&awaited_, signal);
        sigprocmask(SIG_BLOCK, &awaited_, &savedMask_);
        struct sigaction action = {};
        action.sa_handler = SIG_DFL;
        sigaction(SIGCHLD, &action, &savedChildAction_);
    }
    SignalForwarder(SignalForwarder const&) = delete;
    SignalForwarder& operator=(SignalForwarder const&) = delete;
    ~SignalForwarder() { restore(); }

    void restore() const
    {
        sigaction(SIGCHLD, &savedChildAction_, nullptr);
        sigprocmask(SIG_SETMASK, &savedMask_, nullptr);
    }

    // Forwards signals until `command` ends; returns its exit code.
    int wait(pid_t command) const
    {
        for (;;) {
            int status;
            if (waitpid(command, &status, WNOHANG) == command)
                return WIFSIGNALED(status) ? kBySignal + WTERMSIG(status) : WEXITSTATUS(status);
            siginfo_t info;
            int const signal = sigwaitinfo(&awaited_, &info);
            // The terminal sends its signals (SI_KERNEL) to the command as well.
            if (signal > 0 && signal != SIGCHLD && info.si_code != SI_KERNEL)
                kill(command, signal);
        }
    }

private:
    sigset_t awaited_;
    sigset_t savedMask_;
    struct sigaction savedChildAction_;
};

// Executes the command. On failure writes the errno to the pipe `errorPipe`.
[[noreturn]] void execCommand(Request const& request, pid_t parent, int errorPipe)
{
    // If the parent ends, its lock is released, and the command must not run without the lock.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(kBySignal + SIGTERM);
    if (request.hasSetTablesVariable)
        unsetenv("QVRDIR");
    std::vector<char*> arguments;
    for (std::string const& argument : request.command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    int const error = errno;
    [[maybe_unused]] ssize_t const written = write(errorPipe, &error, sizeof error);
    _exit(error == ENOENT ? kNotFound : kCannotRun);
}

[[noreturn]] void throwCannotRun(Request const& request, int error)
{
    throw Failure{exitNoAccess,
                  request.command.front(),
                  {std::string("cannot start a process: ") + strerror(error),
                   "check the limits on processes and open files"}};
}

int runCommand(Request const& request)
{
    int pipeEnds[2];
    if (pipe2(pipeEnds, O_CLOEXEC) != 0)
        throwCannotRun(request, errno);
    fflush(nullptr);
    SignalForwarder const signals;
    pid_t const parent = getpid();
    pid_t const child = fork();
    if (child == 0) {
        signals.restore();
        execCommand(request, parent, pipeEnds[1]);
    }
    int const forkError = errno;
    close(pipeEnds[1]);
    if (child < 0) {
        close(pipeEnds[0]);
        throwCannotRun(request, forkError);
    }
    int error = 0;
    ssize_t length;
    do
        length = read(pipeEnds[0], &error, sizeof error);
    while (length < 0 && errno == EINTR);
    close(pipeEnds[0]);
    int const code = signals.wait(child);
    if (length > 0)
        report({exitNoAccess,
                request.command.front(),
                {std::string("cannot run: ") + strerror(error), "check its name and permissions"}});
    return code;
}

int runLocked(Request const& request)
{
    Lock lock(lockDirectory(request), request.lockName.c_str());
    acquire(lock, request);
    int code;
    try {
        code = runCommand(request);
    } catch (...) {
        lock.unlock(0);
        throw;
    }
    try {
        lock.unlock();
    } catch (ZWriteResourceException_6_0 const& e) {
        // The sequence number could not be incremented, and the lock is still held.
        lock.unlock(0);
        int const failure =
            report({exitNoAccess,
                    lockFilePath(request),
                    {std::string("cannot write the sequence number: ") + strerror(e.returnCode()),
                     "check the free space on its disk"}});
        return code != 0 ? code : failure;
    }
    return code;
}

// ---- Showing ----------------------------------------------------------------------------------

// Returns a lock that conflicts with `type` on the range, of type F_UNLCK if no lock conflicts.
struct flock findConflictingLock(int fd, short type, LockFile::Range bytes)
{
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = bytes.start;
    range.l_len = bytes.length;
    if (fcntl(fd, F_GETLK, &range) != 0)
        range.l_type = F_UNLCK;
    return range;
}

int show(Request const& request)
{
    std::string const path =
        Lock(lockDirectory(request), request.lockName.c_str()).getLockFileName();
    uint32_t sequence = 0;
    std::string state = "free";
    int const fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
    if (fd < 0 && errno != ENOENT)
        throwLockFileError(request, explainOpenError(errno));
    if (fd >= 0) {
        struct stat status = {};
        fstat(fd, &status);
        struct flock const data = findConflictingLock(fd, F_WRLCK, LockFile::kSequence);
        struct flock const gate = findConflictingLock(fd, F_WRLCK, LockFile::kProcessId);
        if (data.l_type != F_UNLCK)
            state = (data.l_type == F_RDLCK ? "read by process " : "write by process ") +
                    std::to_string(data.l_pid);
        if (data.l_type == F_RDLCK && gate.l_type != F_UNLCK)
            state += ", process " + std::to_string(gate.l_pid) + " waits to write";
        // The sequence number of an empty file is 0.
        ssize_t const length = pread(fd, &sequence, sizeof sequence, 0);
        close(fd);
        if (!S_ISREG(status.st_mode))
            throwLockFileError(request, kNotRegular);
        if (length != 0 && length != sizeof sequence)
            throwLockFileError(request, "it is too short");
    }
    printf("file: %s\nstate: %s\nsequence: %u\n", path.c_str(), state.c_str(), sequence);
    return exitDone;
}

}  // namespace

int runLock(Request const& request)
{
    try {
        return request.show ? show(request) : runLocked(request);
    } catch (ZInvalidParameterException_6_0 const&) {
        throw Failure{exitNoAccess,
                      request.lockDir.empty() ? "." : request.lockDir,
                      {"cannot lock: it is not a directory that its owner can write and search",
                       "create it, or choose another with --dir"}};
    }
}
