#include "file_watch.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "failures.h"

namespace {

constexpr uint32_t kEvents = IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE |
                             IN_DELETE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;

constexpr int kComparison = 1000;  // milliseconds between comparisons of the file's state
constexpr int kMaxLinks = 40;      // as the kernel follows

// Returns the target of a symbolic link; empty for anything else.
std::string targetOf(std::string const& path)
{
    char target[PATH_MAX];
    ssize_t const length = readlink(path.c_str(), target, sizeof target);
    return length <= 0 ? std::string() : std::string(target, static_cast<size_t>(length));
}

bool isSameState(struct stat const& one, struct stat const& other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino &&
           one.st_size == other.st_size && one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
           one.st_mtim.tv_nsec == other.st_mtim.tv_nsec;
}

}  // namespace

FileWatch::FileWatch(std::string const& path)
    : path_(path), fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
    if (fd_ < 0)
        throw Failure{exitNoAccess,
                      path,
                      {std::string("cannot watch: ") + strerror(errno),
                       "increase fs.inotify.max_user_instances"}};
    follow();
    size_t const slash = path.rfind('/');
    std::string const directory = slash == path.npos ? "." : path.substr(0, slash + 1);
    int const error = entries_.empty() ? errno : 0;
    if (error != 0 || access(directory.c_str(), F_OK) != 0) {
        int const code = error != 0 ? error : errno;
        close(fd_);
        throw Failure{exitNoAccess,
                      directory,
                      {std::string("cannot watch: ") + strerror(code), "check the path"}};
    }
}

FileWatch::~FileWatch()
{
    close(fd_);
}

void FileWatch::addEntry(std::vector<Entry>& entries, std::string const& directory,
                         std::string const& name)
{
    int const watched = inotify_add_watch(fd_, directory.c_str(), kEvents);
    if (watched >= 0)
        entries.push_back({watched, name});
}

// Watches the links on the way to the file, and the file. Returns whether they, or the state of the
// file, have changed since the last call.
bool FileWatch::follow()
{
    std::vector<Entry> entries;
    std::string directory = path_.starts_with('/') ? "/" : ".";
    std::string rest = path_;
    for (int links = 0; !rest.empty();) {
        size_t const end = rest.find('/');
        std::string const name = rest.substr(0, end);
        rest = end == rest.npos ? "" : rest.substr(end + 1);
        if (name.empty() || name == ".")
            continue;
        std::string const entry = directory + '/' + name;
        std::string const target = targetOf(entry);
        if (target.empty() || ++links > kMaxLinks) {
            bool const isLast = rest.empty() || access(entry.c_str(), F_OK) != 0;
            if (isLast)
                addEntry(entries, directory, name);
            if (isLast)
                break;
            directory = entry;
            continue;
        }
        addEntry(entries, directory, name);
        if (target.front() == '/')
            directory = "/";
        rest = target + (rest.empty() ? "" : '/' + rest);
    }
    struct stat state = {};
    bool const exists = stat(path_.c_str(), &state) == 0;
    bool const isSame = entries == entries_ && isSameState(state, state_);
    for (Entry const& old : entries_)
        if (std::none_of(entries.begin(), entries.end(),
                         [&](Entry const& entry) { return entry.directory == old.directory; }))
            inotify_rm_watch(fd_, old.directory);
    if (!exists || state.st_ino != state_.st_ino || state.st_dev != state_.st_dev)
        isOpen_ = false;
    entries_ = std::move(entries);
    state_ = state;
    return !isSame;
}

bool FileWatch::wait(int milliseconds)
{
    for (;;) {
        pollfd polled = {fd_, POLLIN, 0};
        bool const isShort = milliseconds >= 0 && milliseconds < kComparison;
        int const count = poll(&polled, 1, isShort ? milliseconds : kComparison);
        bool const isNamed = count > 0 && readEvents();
        // A change of a link has no event at the file.
        if ((isNamed || count == 0) && (follow() || isNamed))
            return true;
        if (count == 0 && milliseconds >= 0)
            return false;
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
            for (Entry const& entry : entries_)
                isNamed = isNamed || (event.len > 0 && event.wd == entry.directory &&
                                      entry.name == event.name);
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
