#include "Stepper.h"

#include <elf.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

#include "Campaign.h"

namespace {

using Family = Stepper::Family;

constexpr long kMark = 100000;  // no kernel has a call of this number
constexpr int kNone = -1;

// A call that uses a file, and the indexes of its path and descriptor among the arguments. Of two
// paths it is the last, which rename() and link() create.
struct Known {
    long number;
    char const* name;
    Family family;
    int pathAt;
    int fdAt;
};

constexpr Known kKnown[] = {
#ifdef SYS_open
    {SYS_open, "open", Family::open, 0, kNone},
    {SYS_creat, "creat", Family::open, 0, kNone},
    {SYS_stat, "stat", Family::look, 0, kNone},
    {SYS_lstat, "lstat", Family::look, 0, kNone},
    {SYS_access, "access", Family::look, 0, kNone},
    {SYS_readlink, "readlink", Family::readLink, 0, kNone},
    {SYS_rename, "rename", Family::rename, 1, kNone},
    {SYS_link, "link", Family::link, 1, kNone},
    {SYS_symlink, "symlink", Family::link, 1, kNone},
    {SYS_unlink, "unlink", Family::unlink, 0, kNone},
    {SYS_rmdir, "rmdir", Family::unlink, 0, kNone},
    {SYS_mkdir, "mkdir", Family::makeDirectory, 0, kNone},
    {SYS_chmod, "chmod", Family::mode, 0, kNone},
    {SYS_chown, "chown", Family::owner, 0, kNone},
    {SYS_lchown, "lchown", Family::owner, 0, kNone},
    {SYS_dup2, "dup2", Family::duplicate, kNone, 0},
    {SYS_getdents, "getdents", Family::other, kNone, 0},
#endif
#ifdef SYS_newfstatat
    {SYS_newfstatat, "fstatat", Family::look, 1, 0},
#endif
#ifdef SYS_renameat
    {SYS_renameat, "renameat", Family::rename, 3, kNone},
#endif
#ifdef SYS_fchmodat2
    {SYS_fchmodat2, "fchmodat2", Family::mode, 1, 0},
#endif
    {SYS_openat, "openat", Family::open, 1, kNone},
    {SYS_openat2, "openat2", Family::open, 1, kNone},
    {SYS_fstat, "fstat", Family::look, kNone, 0},
    {SYS_statx, "statx", Family::look, 1, 0},
    {SYS_faccessat, "faccessat", Family::look, 1, 0},
    {SYS_faccessat2, "faccessat2", Family::look, 1, 0},
    {SYS_readlinkat, "readlinkat", Family::readLink, 1, 0},
    {SYS_renameat2, "renameat2", Family::rename, 3, kNone},
    {SYS_linkat, "linkat", Family::link, 3, kNone},
    {SYS_symlinkat, "symlinkat", Family::link, 2, kNone},
    {SYS_unlinkat, "unlinkat", Family::unlink, 1, kNone},
    {SYS_mkdirat, "mkdirat", Family::makeDirectory, 1, kNone},
    {SYS_read, "read", Family::read, kNone, 0},
    {SYS_pread64, "pread", Family::read, kNone, 0},
    {SYS_readv, "readv", Family::read, kNone, 0},
    {SYS_preadv, "preadv", Family::read, kNone, 0},
    {SYS_write, "write", Family::write, kNone, 0},
    {SYS_pwrite64, "pwrite", Family::write, kNone, 0},
    {SYS_writev, "writev", Family::write, kNone, 0},
    {SYS_pwritev, "pwritev", Family::write, kNone, 0},
    {SYS_copy_file_range, "copy_file_range", Family::write, kNone, 2},
    {SYS_truncate, "truncate", Family::cut, 0, kNone},
    {SYS_ftruncate, "ftruncate", Family::cut, kNone, 0},
    {SYS_fallocate, "fallocate", Family::reserve, kNone, 0},
    {SYS_fsync, "fsync", Family::sync, kNone, 0},
    {SYS_fdatasync, "fdatasync", Family::sync, kNone, 0},
    {SYS_syncfs, "syncfs", Family::sync, kNone, 0},
    {SYS_sync_file_range, "sync_file_range", Family::sync, kNone, 0},
    {SYS_fchown, "fchown", Family::owner, kNone, 0},
    {SYS_fchownat, "fchownat", Family::owner, 1, 0},
    {SYS_fchmod, "fchmod", Family::mode, kNone, 0},
    {SYS_fchmodat, "fchmodat", Family::mode, 1, 0},
    {SYS_getxattr, "getxattr", Family::attribute, 0, kNone},
    {SYS_lgetxattr, "lgetxattr", Family::attribute, 0, kNone},
    {SYS_fgetxattr, "fgetxattr", Family::attribute, kNone, 0},
    {SYS_listxattr, "listxattr", Family::attribute, 0, kNone},
    {SYS_llistxattr, "llistxattr", Family::attribute, 0, kNone},
    {SYS_flistxattr, "flistxattr", Family::attribute, kNone, 0},
    {SYS_setxattr, "setxattr", Family::attribute, 0, kNone},
    {SYS_lsetxattr, "lsetxattr", Family::attribute, 0, kNone},
    {SYS_fsetxattr, "fsetxattr", Family::attribute, kNone, 0},
    {SYS_removexattr, "removexattr", Family::attribute, 0, kNone},
    {SYS_fremovexattr, "fremovexattr", Family::attribute, kNone, 0},
    {SYS_utimensat, "utimensat", Family::times, 1, 0},
    {SYS_fcntl, "fcntl", Family::lock, kNone, 0},
    {SYS_flock, "flock", Family::lock, kNone, 0},
    {SYS_mmap, "mmap", Family::map, kNone, 4},
    {SYS_dup, "dup", Family::duplicate, kNone, 0},
    {SYS_dup3, "dup3", Family::duplicate, kNone, 0},
    {SYS_statfs, "statfs", Family::fileSystem, 0, kNone},
    {SYS_fstatfs, "fstatfs", Family::fileSystem, kNone, 0},
    {SYS_getcwd, "getcwd", Family::workingDirectory, kNone, kNone},
    {SYS_getdents64, "getdents64", Family::other, kNone, 0},
    {SYS_ioctl, "ioctl", Family::other, kNone, 0},
    {SYS_lseek, "lseek", Family::other, kNone, 0},
    {SYS_close, "close", Family::close, kNone, 0},
    {kMark, "mark", Family::mark, kNone, kNone},
};

Known const* known(long number)
{
    for (Known const& each : kKnown)
        if (each.number == number)
            return &each;
    return nullptr;
}

Family familyOfFcntl(int command)
{
    switch (command) {
        case F_SETLK:
        case F_SETLKW:
        case F_OFD_SETLK:
        case F_OFD_SETLKW:
        case F_GETLK:
            return Family::lock;
        case F_DUPFD:
        case F_DUPFD_CLOEXEC:
            return Family::duplicate;
        default:
            return Family::other;
    }
}

// Replaces the number of the call that `child` is about to make by an invalid number.
bool cancelCall(pid_t child)
{
#if defined(__x86_64__)
    return ptrace(PTRACE_POKEUSER, child, offsetof(user_regs_struct, orig_rax), -1L) == 0;
#elif defined(__aarch64__)
    int number = -1;
    iovec const piece = {&number, sizeof number};
    return ptrace(PTRACE_SETREGSET, child, NT_ARM_SYSTEM_CALL, &piece) == 0;
#else
    (void)child;
    return false;
#endif
}

bool setResult(pid_t child, long result)
{
#if defined(__x86_64__)
    return ptrace(PTRACE_POKEUSER, child, offsetof(user_regs_struct, rax), result) == 0;
#elif defined(__aarch64__)
    user_regs_struct registers;
    iovec piece = {&registers, sizeof registers};
    if (ptrace(PTRACE_GETREGSET, child, NT_PRSTATUS, &piece) != 0)
        return false;
    registers.regs[0] = static_cast<unsigned long long>(result);
    return ptrace(PTRACE_SETREGSET, child, NT_PRSTATUS, &piece) == 0;
#else
    (void)child;
    (void)result;
    return false;
#endif
}

void require(bool done, char const* what)
{
    if (!done)
        throw std::runtime_error(std::string("stepping through a process: ") + what);
}

}  // namespace

std::string Stepper::obstacle()
{
    try {
        Stepper stepper([] {
            mark(1);
            return access("/", F_OK) == 0 ? 1 : errno == EXDEV ? 0 : 2;
        });
        bool const marked = stepper.next() && stepper.call().family == Family::mark;
        if (!marked || !stepper.next())
            return "processes cannot be single-stepped here";
        stepper.fail(EXDEV);
        return stepper.finish() == 0 ? "" : "system calls cannot be failed on purpose here";
    } catch (std::runtime_error const&) {
        return "tracing is not permitted here";
    }
}

Stepper::Stepper(std::function<int()> const& body, unsigned seconds)
{
    child_ = inChild([&] {
        alarm(seconds);
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
            return 98;
        syscall(SYS_tgkill, getpid(), gettid(), SIGSTOP);
        return body();
    });
    require(waitpid(child_, &status_, 0) == child_, "waitpid()");
    if (!WIFSTOPPED(status_)) {
        child_ = -1;
        throw std::runtime_error("a child cannot be traced");
    }
    require(
        ptrace(PTRACE_SETOPTIONS, child_, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) == 0,
        "options");
}

Stepper::~Stepper()
{
    kill();
}

bool Stepper::resume()
{
    int signal = 0;
    for (;;) {
        require(ptrace(PTRACE_SYSCALL, child_, nullptr, static_cast<long>(signal)) == 0, "resume");
        while (waitpid(child_, &status_, 0) < 0)
            require(errno == EINTR, "waitpid()");
        if (!WIFSTOPPED(status_)) {
            child_ = -1;
            return false;
        }
        if (WSTOPSIG(status_) == (SIGTRAP | 0x80))
            return true;
        signal = WSTOPSIG(status_);
    }
}

bool Stepper::next()
{
    if (child_ < 0)
        return false;
    if (call_.number >= 0) {
        // Resume to the exit of the call, and set its result to the failure.
        call_.number = -1;
        if (!resume())
            return false;
        if (failure_ != 0)
            require(setResult(child_, -failure_), "result");
        failure_ = 0;
    }
    if (!resume())
        return false;
    readCall();
    return true;
}

bool Stepper::nextOnFiles()
{
    while (next())
        if (call_.family != Family::none)
            return true;
    return false;
}

void Stepper::readCall()
{
    __ptrace_syscall_info info;
    require(ptrace(PTRACE_GET_SYSCALL_INFO, child_, sizeof info, &info) > 0 &&
                info.op == PTRACE_SYSCALL_INFO_ENTRY,
            "which call");
    call_ = {};
    call_.number = static_cast<long>(info.entry.nr);
    Known const* const found = known(call_.number);
    if (found == nullptr)
        return;
    call_.name = found->name;
    call_.family = found->family;
    call_.argument = static_cast<long>(info.entry.args[0]);
    unsigned long long arguments[6];
    for (size_t i = 0; i < 6; ++i)
        arguments[i] = info.entry.args[i];
    if (found->family == Family::mark)
        return;
    call_.file = fileOf(arguments, found->pathAt, found->fdAt);
    if (found->number == SYS_fcntl)
        call_.family = familyOfFcntl(static_cast<int>(arguments[1]));
    if (found->number == SYS_mmap && static_cast<int>(arguments[4]) < 0)
        call_.family = Family::none;  // memory without a file
}

std::string Stepper::fileOf(unsigned long long const* arguments, int pathAt, int fdAt) const
{
    char text[PATH_MAX] = "";
    if (pathAt != kNone) {
        // A path may end at the end of a page.
        unsigned long long const at = arguments[pathAt];
        size_t const page = static_cast<size_t>(getpagesize());
        iovec const here = {text, sizeof text - 1};
        iovec const there[] = {{reinterpret_cast<void*>(at), page - at % page},
                               {reinterpret_cast<void*>(at - at % page + page), page}};
        if (process_vm_readv(child_, &here, 1, there, 2, 0) < 0)
            text[0] = '\0';
    }
    if (text[0] == '\0' && fdAt != kNone) {
        std::string const link = "/proc/" + std::to_string(child_) + "/fd/" +
                                 std::to_string(static_cast<int>(arguments[fdAt]));
        ssize_t const length = readlink(link.c_str(), text, sizeof text - 1);
        text[length > 0 ? length : 0] = '\0';
        if (char* const deleted = std::strstr(text, " (deleted)"))
            *deleted = '\0';
    }
    std::string path = text;
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path.substr(path.rfind('/') + 1);
}

void Stepper::fail(int error)
{
    require(call_.number >= 0 && cancelCall(child_), "a call that fails");
    failure_ = error;
}

int Stepper::finish()
{
    while (failure_ != 0)
        if (!next())
            break;
    if (child_ >= 0) {
        require(ptrace(PTRACE_DETACH, child_, nullptr, nullptr) == 0, "detach");
        while (waitpid(child_, &status_, 0) < 0)
            require(errno == EINTR, "waitpid()");
        child_ = -1;
    }
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : 256 + WTERMSIG(status_);
}

void Stepper::kill()
{
    if (child_ < 0)
        return;
    ::kill(child_, SIGKILL);
    while (waitpid(child_, &status_, 0) == child_ && WIFSTOPPED(status_))
        continue;
    child_ = -1;
}

void Stepper::mark(long argument)
{
    (void)syscall(kMark, argument);
}

std::string describe(Stepper::Call const& call, size_t number)
{
    return std::string(call.name) + " " + std::to_string(number) +
           (call.file.empty() ? "" : " (" + call.file + ")");
}
