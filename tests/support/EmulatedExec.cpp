// EmulatedExec: lets a test program that was built for another processor run itself again.
//
// Death tests and OwnProgram.h do so with execv(). The kernel cannot run the program, but the
// emulator can, which Z_TEST_EMULATOR names: the execv() below runs the emulator with the program.
// Other programs belong to the processor of this machine; it runs them unchanged.
#include <errno.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool isSameFile(char const* a, char const* b)
{
    struct stat one;
    struct stat two;
    return stat(a, &one) == 0 && stat(b, &two) == 0 && one.st_dev == two.st_dev &&
           one.st_ino == two.st_ino;
}

}  // namespace

// May be called between fork() and exec in a program with several threads: does not allocate.
extern "C" int execv(char const* path, char* const arguments[]) noexcept
{
    constexpr char kOwnLink[] = "/proc/self/exe";
    char own[PATH_MAX] = "";
    // For the emulated program, readlink() of this link gives its path. With stat() and exec the
    // link is the emulator.
    ssize_t const length = readlink(kOwnLink, own, sizeof own - 1);
    if (length < 0)
        return -1;
    if (strcmp(path, kOwnLink) != 0 && !isSameFile(path, own))
        return execve(path, arguments, environ);

    constexpr int kMaxArguments = 64;
    char emulator[] = Z_TEST_EMULATOR;
    char* all[kMaxArguments + 3] = {emulator, own};
    for (int i = 1; arguments[0] != nullptr && arguments[i] != nullptr; ++i) {
        if (i > kMaxArguments) {
            errno = E2BIG;
            return -1;
        }
        all[i + 1] = arguments[i];
    }
    return execvp(emulator, all);
}
