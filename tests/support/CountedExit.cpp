// Includes the children of tests when executed lines are counted: a child ends by _exit(), which
// does not write the counts otherwise. A child with a root directory of its own
// returns to the first one for this: the files of counts have absolute paths, and below the new
// root they would be among the files that the test examines.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

int firstRoot = -1;

// Some children continue as another user, who must be able to write the counts as well. The mask is
// not lifted earlier, since the files of a test have their modes from it.
[[gnu::destructor]] void makeCountsWritable()
{
    umask(0);
}

}  // namespace

extern "C" {
void __gcov_dump();
[[gnu::weak]] void stopWatchingCalls();  // of SystemCalls.h

int chroot(char const* path) noexcept
{
    if (firstRoot < 0)
        firstRoot =
            static_cast<int>(syscall(SYS_openat, AT_FDCWD, "/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    return static_cast<int>(syscall(SYS_chroot, path));
}

void _exit(int status)
{
    if (stopWatchingCalls != nullptr)
        stopWatchingCalls();
    // The test may be about a limit on the size of files.
    rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    makeCountsWritable();
    if (firstRoot >= 0 && fchdir(firstRoot) == 0)
        syscall(SYS_chroot, ".");
    __gcov_dump();
    syscall(SYS_exit_group, status);
    __builtin_unreachable();
}
}
