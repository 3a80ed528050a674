#include "file_watch.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "failures.h"

namespace {

constexpr uint32_t kEvents = IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE |
                             IN_DELETE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;

std::string directoryOf(std::string const& path)
{
    size_t const slash = path.rfind('/');
    return slash == path.npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(std::string const& path)
{
    size_t const slash = path.rfind('/');
    return slash == path.npos ? path : path.substr(slash + 1);
}

}  // namespace

FileWatch::FileWatch(std::string const& path) : fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
    if (fd_ < 0)
        throw Failure{exitNoAccess,
                      path,
                      {std::string("cannot watch: ") + strerror(errno),
                       "increase fs.inotify.max_user_instances"}};
    watch(path);
    char target[PATH_MAX];
    if (realpath(path.c_str(), target) != nullptr)
        watch(target);
}

FileWatch::~FileWatch()
{
    close(fd_);
}

void FileWatch::watch(std::string const& path)
{
    int const index = directories_[0] < 0 ? 0 : 1;
    std::string const directory = directoryOf(path);
    directories_[index] = inotify_add_watch(fd_, directory.c_str(), kEvents);
    names_[index] = nameOf(path);
    if (directories_[index] < 0)
        throw Failure{exitNoAccess,
                      directory,
                      {std::string("cannot watch: ") + strerror(errno), "check the path"}};
}

bool FileWatch::wait(int milliseconds)
{
    for (;;) {
        pollfd polled = {fd_, POLLIN, 0};
        int const count = poll(&polled, 1, milliseconds);
        if (count == 0)
            return false;
        if (count > 0 && readEvents())
            return true;
    }
}

bool FileWatch::isBeingWritten()
{
    readEvents();
    return isOpen_;
}

// Returns whether an event concerns the file.
bool FileWatch::readEvents()
{
    alignas(inotify_event) char buffer[16384];
    bool isOurs = false;
    for (ssize_t length; (length = read(fd_, buffer, sizeof buffer)) > 0;)
        for (ssize_t at = 0; at < length;) {
            auto const& event = *reinterpret_cast<inotify_event const*>(buffer + at);
            at += static_cast<ssize_t>(sizeof event + event.len);
            bool isNamed = (event.mask & (IN_Q_OVERFLOW | IN_DELETE_SELF | IN_MOVE_SELF)) != 0;
            for (int i = 0; i < 2 && event.len > 0; ++i)
                isNamed = isNamed || (event.wd == directories_[i] && names_[i] == event.name);
            if (!isNamed)
                continue;
            isOurs = true;
            if ((event.mask & IN_MODIFY) != 0)
                isOpen_ = true;
            if ((event.mask & (IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE | IN_Q_OVERFLOW)) != 0)
                isOpen_ = false;
        }
    return isOurs;
}

WriteGuard::WriteGuard(std::string const& path)
    : path_(path), fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
{
    if (fd_ < 0)
        return;
    signal(SIGIO, SIG_IGN);  // the kernel sends it to the holder when a writer waits
    if (fcntl(fd_, F_SETLEASE, F_RDLCK) == 0)
        state_ = held;
    else if (errno == EAGAIN)
        state_ = busy;
}

WriteGuard::~WriteGuard()
{
    if (state_ == held)
        fcntl(fd_, F_SETLEASE, F_UNLCK);
    if (fd_ >= 0)
        close(fd_);
}

bool WriteGuard::isCurrent() const
{
    struct stat opened;
    struct stat named;
    return fd_ >= 0 && fstat(fd_, &opened) == 0 && stat(path_.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}
