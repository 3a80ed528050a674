#include "edit_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "failures.h"

namespace {

constexpr int kTries = 100;
constexpr useconds_t kBetweenTries = 50000;  // microseconds

int openForTurn(std::string const& path)
{
    return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

// Another process may have replaced the file while this one waited for its turn.
bool isNamed(int fd, std::string const& path)
{
    struct stat opened;
    struct stat named;
    return fstat(fd, &opened) != 0 || stat(path.c_str(), &named) != 0 ||
           (opened.st_dev == named.st_dev && opened.st_ino == named.st_ino);
}

}  // namespace

Turn::Turn(std::string const& path) : fd_(openForTurn(path))
{
    for (int tries = 0; fd_ >= 0;) {
        if (flock(fd_, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) {
            if (isNamed(fd_, path))
                return;
            close(fd_);
            fd_ = openForTurn(path);
            continue;
        }
        if (++tries > kTries) {
            close(fd_);
            throw Failure{exitLocked,
                          path + " is being changed by another process; try again in a moment"};
        }
        usleep(kBetweenTries);
    }
}

Turn::~Turn()
{
    if (fd_ >= 0)
        close(fd_);
}
