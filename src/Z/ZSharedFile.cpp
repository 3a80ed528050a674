#include "ZSharedFile_p.h"

#include <errno.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace {

constexpr int kFirstDescriptor = 3;

// A range that a reference holds.
struct Held {
    ZSharedFile const* user;
    pthread_t thread;
    short type;
    off_t start;
    off_t length;
};

bool sameRange(Held const& held, off_t start, off_t length)
{
    return held.start == start && held.length == length;
}

int openRetrying(char const* path, int flags, mode_t mode)
{
    int fd;
    do {
        fd = ::open(path, flags, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

int setLock(int fd, short type, off_t start, off_t length)
{
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = length;
    int rc;
    do {
        rc = fcntl(fd, F_SETLK, &range);
    } while (rc < 0 && errno == EINTR);
    return rc < 0 ? errno : 0;
}

int kindError(struct stat const& status)
{
    if (S_ISREG(status.st_mode))
        return 0;
    return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
}

}  // namespace

// All fields are guarded by the table's mutex.
struct ZSharedFile::Entry {
    dev_t device;
    ino_t inode;
    int users = 0;
    int fd = -1;                   // the descriptor in use
    bool writable = false;         // it was opened for writing too
    std::vector<int> descriptors;  // every descriptor of the inode, `fd` among them
    std::vector<Held> held;
    int waitingWriters = 0;  // they go before readers that come later
};

namespace {

struct Table {
    pid_t const owner = getpid();
    std::mutex mutex;
    std::condition_variable released;
    std::vector<std::unique_ptr<ZSharedFile::Entry>> entries;

    ZSharedFile::Entry* find(struct stat const& status)
    {
        for (auto const& entry : entries)
            if (entry->device == status.st_dev && entry->inode == status.st_ino)
                return entry.get();
        return nullptr;
    }

    // Returns whether `user` must wait for the range.
    bool blocked(ZSharedFile::Entry const& entry, short type, off_t start, off_t length) const
    {
        pthread_t const self = pthread_self();
        bool holdsOne = false;
        for (Held const& held : entry.held) {
            if (!sameRange(held, start, length))
                continue;
            if (type == F_WRLCK || held.type == F_WRLCK)
                return true;
            holdsOne = holdsOne || pthread_equal(held.thread, self);
        }
        return type == F_RDLCK && entry.waitingWriters > 0 && !holdsOne;
    }

    // Takes back the held range at `index`; the record lock goes with its last holder.
    static void release(ZSharedFile::Entry& entry, size_t index)
    {
        Held const range = entry.held[index];
        entry.held.erase(entry.held.begin() + static_cast<std::ptrdiff_t>(index));
        for (Held const& other : entry.held)
            if (sameRange(other, range.start, range.length))
                return;
        setLock(entry.fd, F_UNLCK, range.start, range.length);
    }
};

// The table of this process. A child made by fork() shares its parent's memory image but none of
// its locks, and the mutex may be held by a thread that is not there: it gets a new table.
Table& table()
{
    static std::atomic<Table*> current{nullptr};
    Table* found = current.load(std::memory_order_acquire);
    while (found == nullptr || found->owner != getpid()) {
        auto made = std::make_unique<Table>();
        if (current.compare_exchange_strong(found, made.get(), std::memory_order_acq_rel))
            return *made.release();
    }
    return *found;
}

}  // namespace

int zopenPrivate(char const* path, int flags, mode_t mode)
{
    int const fd = openRetrying(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode);
    if (fd < 0 || fd >= kFirstDescriptor)
        return fd;
    int const moved = fcntl(fd, F_DUPFD_CLOEXEC, kFirstDescriptor);
    int const error = errno;
    ::close(fd);
    errno = error;
    return moved;
}

int ZSharedFile::open(char const* path, int flags, mode_t mode)
{
    close();
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    bool const writes = (flags & O_ACCMODE) == O_RDWR;

    // What is no regular file is not even opened: opening a device may do something. And a file
    // that is open already is not opened again, see above.
    struct stat status;
    bool const follows = (flags & O_NOFOLLOW) == 0;
    if ((follows ? stat(path, &status) : lstat(path, &status)) == 0) {
        bool const link = S_ISLNK(status.st_mode);
        if (int const error = link ? ELOOP : kindError(status))
            return error;
        Entry* const entry = (flags & O_EXCL) != 0 ? nullptr : files.find(status);
        if (entry != nullptr && (entry->writable || !writes)) {
            ++entry->users;
            entry_ = entry;
            return 0;
        }
    }

    // Room for everything first: nothing may fail once the file is open.
    auto fresh = std::make_unique<Entry>();
    fresh->descriptors.reserve(2);
    files.entries.reserve(files.entries.size() + 1);
    for (auto const& entry : files.entries)
        entry->descriptors.reserve(entry->descriptors.size() + 2);

    int fd = openRetrying(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode);
    if (fd < 0)
        return errno;
    int error = fstat(fd, &status) < 0 ? errno : kindError(status);
    // The file may have got another name since it was looked up: then it is open already after
    // all, and this descriptor must stay open with the others.
    Entry* const known = error == 0 ? files.find(status) : nullptr;
    auto const retire = [known](int descriptor) {
        if (known != nullptr)
            known->descriptors.push_back(descriptor);
        else
            ::close(descriptor);
    };
    if (error == 0 && fd < kFirstDescriptor) {
        int const low = fd;
        fd = fcntl(low, F_DUPFD_CLOEXEC, kFirstDescriptor);
        error = fd < 0 ? errno : 0;
        retire(low);
        if (error != 0)
            return error;
    }
    if (error != 0) {
        retire(fd);
        return error;
    }

    Entry* entry = known;
    if (known == nullptr) {
        fresh->device = status.st_dev;
        fresh->inode = status.st_ino;
        entry = fresh.get();
        files.entries.push_back(std::move(fresh));
    }
    entry->descriptors.push_back(fd);
    if (entry->fd < 0 || (writes && !entry->writable)) {
        entry->fd = fd;
        entry->writable = writes;
    }
    ++entry->users;
    entry_ = entry;
    return 0;
}

void ZSharedFile::close()
{
    if (entry_ == nullptr)
        return;
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    auto const at = std::find_if(files.entries.begin(), files.entries.end(),
                                 [this](auto const& entry) { return entry.get() == entry_; });
    if (at == files.entries.end()) {  // a reference that came along through fork()
        entry_ = nullptr;
        return;
    }
    auto& held = entry_->held;
    for (size_t i = held.size(); i-- > 0;)
        if (held[i].user == this)
            files.release(*entry_, i);
    if (--entry_->users == 0) {
        for (int fd : entry_->descriptors)
            ::close(fd);
        files.entries.erase(at);
    }
    entry_ = nullptr;
    files.released.notify_all();
}

int ZSharedFile::lock(short type, off_t start, off_t length)
{
    Table& files = table();
    std::unique_lock<std::mutex> guard(files.mutex);
    Entry& entry = *entry_;
    pthread_t const self = pthread_self();
    for (Held const& held : entry.held)
        if (sameRange(held, start, length) && pthread_equal(held.thread, self) &&
            (type == F_WRLCK || held.type == F_WRLCK))
            return EDEADLK;
    if (type == F_WRLCK)
        ++entry.waitingWriters;
    files.released.wait(guard, [&] { return !files.blocked(entry, type, start, length); });
    if (type == F_WRLCK)
        --entry.waitingWriters;
    try {
        entry.held.reserve(entry.held.size() + 1);
    } catch (...) {
        files.released.notify_all();  // readers may have stood back for this writer
        throw;
    }
    int const error = setLock(entry.fd, type, start, length);
    if (error == 0)
        entry.held.push_back({this, self, type, start, length});
    else
        files.released.notify_all();
    return error;
}

void ZSharedFile::unlock(off_t start, off_t length)
{
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    auto& held = entry_->held;
    for (size_t i = held.size(); i-- > 0;)
        if (held[i].user == this && sameRange(held[i], start, length))
            files.release(*entry_, i);
    files.released.notify_all();
}

int ZSharedFile::descriptor() const
{
    std::lock_guard<std::mutex> guard(table().mutex);
    return entry_->fd;
}
