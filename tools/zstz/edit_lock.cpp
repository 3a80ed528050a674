#include "edit_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "failures.h"

namespace {

int openForLock(std::string const& path)
{
    return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

// Returns whether `fd` is still the file at `path`: another process may have replaced the file
// while this process waited for the lock.
bool refersTo(int fd, std::string const& path)
{
    struct stat opened;
    struct stat named;
    return fstat(fd, &opened) != 0 || stat(path.c_str(), &named) != 0 ||
           (opened.st_dev == named.st_dev && opened.st_ino == named.st_ino);
}

}  // namespace

EditLock::EditLock(std::string const& path, Deadline const& deadline) : fd_(openForLock(path))
{
    while (fd_ >= 0) {
        if (flock(fd_, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) {
            if (refersTo(fd_, path))
                return;
            close(fd_);
            fd_ = openForLock(path);
            continue;
        }
        if (deadline.hasPassed()) {
            close(fd_);
            throw Failure{exitLocked, path, {"locked by another process", "try again"}};
        }
        Deadline::pause();
    }
}

EditLock::~EditLock()
{
    if (fd_ >= 0)
        close(fd_);
}
