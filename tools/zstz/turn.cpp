#include "turn.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "failures.h"

namespace {

constexpr int kTries = 100;
constexpr useconds_t kBetweenTries = 50000;  // microseconds

}  // namespace

Turn::Turn(std::string const& path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
{
    if (fd_ < 0)
        return;
    for (int tries = 0; flock(fd_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK; ++tries) {
        if (tries == kTries) {
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
