#include "directory.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "shared_file.h"

namespace zfiles {

namespace {

constexpr int kDirectoryFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

// Calls again after a signal, and returns the descriptor or -1 with errno.
template <class Open>
int openRetrying(Open open)
{
    int fd;
    do {
        fd = open();
    } while (fd < 0 && errno == EINTR);
    return fd;
}

int openWithoutLinks(char const* path)
{
    open_how how = {};
    how.flags = static_cast<uint64_t>(kDirectoryFlags);
    how.resolve = RESOLVE_NO_SYMLINKS;
    return openRetrying(
        [&] { return static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof how)); });
}

// For kernels and sandboxes without openat2().
int walkWithoutLinks(std::string const& path)
{
    ScopedFd at(openRetrying([] { return open("/", kDirectoryFlags); }));
    size_t begin = 1;
    while (at.isOpen() && begin < path.size()) {
        size_t const end = std::min(path.find('/', begin), path.size());
        std::string const part = path.substr(begin, end - begin);
        int const next = openRetrying(
            [&] { return openat(at.get(), part.c_str(), kDirectoryFlags | O_NOFOLLOW); });
        int const error = errno;
        at.reset(next);
        errno = error;
        begin = end + 1;
    }
    return at.release();
}

}  // namespace

std::string directoryPart(std::string const& path)
{
    size_t const slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string namePart(std::string const& path)
{
    size_t const slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string hiddenSibling(std::string const& name, char const* suffix)
{
    return "." + name + suffix;
}

int Directory::openResolved(std::string const& path)
{
    std::string copy = path;
    int fd = openWithoutLinks(path.c_str());
    if (fd < 0 && (errno == ENOSYS || errno == EPERM || errno == EINVAL || errno == E2BIG))
        fd = walkWithoutLinks(path);
    return adopt(fd, std::move(copy));
}

int Directory::openFollowingLinks(std::string const& path)
{
    std::string copy = path;
    int const fd = openRetrying([&] { return open(path.c_str(), kDirectoryFlags); });
    return adopt(fd, std::move(copy));
}

int Directory::adopt(int fd, std::string&& path)
{
    fd = moveAboveStdio(fd);
    if (fd < 0)
        return errno;
    fd_.reset(fd);
    path_ = std::move(path);
    return 0;
}

std::string Directory::pathOf(std::string const& name) const
{
    if (path_ == ".")
        return name;
    return path_ == "/" ? path_ + name : path_ + "/" + name;
}

int Directory::stat(std::string const& name, struct stat& status) const
{
    return fstatat(descriptor(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ? errno : 0;
}

int Directory::check(std::string const& name, struct stat const& file) const
{
    struct stat named;
    int const error = stat(name, named);
    if (error == ENOENT || (error == 0 && !isSameFile(named, file)))
        return ESTALE;
    return error;
}

int Directory::compare(Directory const& other, bool& isSame) const
{
    struct stat ours;
    struct stat theirs;
    if (fstat(descriptor(), &ours) != 0 || fstat(other.descriptor(), &theirs) != 0)
        return errno;
    isSame = isSameFile(ours, theirs);
    return 0;
}

bool Directory::isSticky() const
{
    struct stat status;
    return fstat(descriptor(), &status) == 0 && (status.st_mode & S_ISVTX) != 0;
}

int Directory::rename(std::string const& from, std::string const& to) const
{
    int const at = descriptor();
    return renameat(at, from.c_str(), at, to.c_str()) != 0 ? errno : 0;
}

int Directory::exchange(std::string const& a, std::string const& b) const
{
    int const at = descriptor();
    return renameat2(at, a.c_str(), at, b.c_str(), RENAME_EXCHANGE) != 0 ? errno : 0;
}

int Directory::renameWithoutReplacing(std::string const& from, std::string const& to) const
{
    int const at = descriptor();
    if (renameat2(at, from.c_str(), at, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    struct stat status;
    int const error = stat(to, status);
    if (error != ENOENT)
        return error == 0 ? EEXIST : error;
    return rename(from, to);
}

int Directory::remove(std::string const& name) const
{
    return unlinkat(descriptor(), name.c_str(), 0) != 0 && errno != ENOENT ? errno : 0;
}

int Directory::openFile(std::string const& name, int flags, mode_t mode) const
{
    flags |= O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    return moveAboveStdio(
        openRetrying([&] { return openat(descriptor(), name.c_str(), flags, mode); }));
}

int Directory::sync(int anyFile) const
{
    ScopedFd const readable(openFile(".", O_RDONLY | O_DIRECTORY, 0));
    if (readable.isOpen())
        return syncFile(readable.get());
    return retryOnEintr([anyFile] { return syncfs(anyFile); });
}

}  // namespace zfiles
