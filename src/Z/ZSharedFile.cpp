#include "ZSharedFile_p.h"

#include <errno.h>
#include <pthread.h>
#include <unistd.h>
#include "ZException_p.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

namespace {

constexpr int kFirstDescriptor = 3;
constexpr pthread_t kNobody = ~pthread_t{0};

// A range that a reference holds, or that it waits for.
struct Range {
    ZSharedFile const* user;
    pthread_t thread;
    short type;
    off_t start;
    off_t length;
    bool waits;           // for other users of this process
    bool joined = false;  // `thread` has been counted with join()

    // Ranges of one file are the same or do not overlap.
    bool is(off_t otherStart, off_t otherLength) const
    {
        return start == otherStart && length == otherLength;
    }
    bool overlaps(Range const& other) const { return is(other.start, other.length); }
};

int openRetrying(char const* path, int flags, mode_t mode)
{
    int fd;
    do {
        fd = ::open(path, flags, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Locks or unlocks with `command`, F_SETLK or F_SETLKW. Only waiting ends at a signal.
int setLock(int fd, int command, short type, off_t start, off_t length)
{
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = length;
    int rc;
    do {
        rc = fcntl(fd, command, &range);
    } while (rc < 0 && errno == EINTR && command == F_SETLK);
    return rc < 0 ? errno : 0;
}

// Returns why the file is not to be used, or 0.
int kindError(struct stat const& status, ZSharedFile::Refusal refusal)
{
    if (S_ISREG(status.st_mode))
        return refusal != nullptr ? refusal(status) : 0;
    return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
}

std::atomic<unsigned> forks{0};

}  // namespace

unsigned zforkMark()
{
    static bool const counts = pthread_atfork(nullptr, nullptr, [] { ++forks; }) == 0;
    return counts ? forks.load(std::memory_order_relaxed) : static_cast<unsigned>(getpid());
}

// All fields are guarded by the table's mutex.
struct ZSharedFile::Entry {
    dev_t device;
    ino_t inode;
    int users = 0;
    int fd = -1;                   // the descriptor in use
    bool writable = false;         // it was opened for writing too
    std::vector<int> descriptors;  // every descriptor of the inode, `fd` among them
    std::list<Range> ranges;       // each stays where it is until it goes
    std::list<Range> spare;        // for the first one: once a file is open it can be locked
};

namespace {

using Entry = ZSharedFile::Entry;

struct Table {
    unsigned const forks = zforkMark();
    std::mutex mutex;
    std::condition_variable released;
    std::vector<std::unique_ptr<Entry>> entries;

    Entry* find(struct stat const& status)
    {
        for (auto const& entry : entries)
            if (entry->device == status.st_dev && entry->inode == status.st_ino)
                return entry.get();
        return nullptr;
    }

    static bool holds(Entry const& entry, Range const& wanted)
    {
        for (Range const& range : entry.ranges)
            if (!range.waits && range.overlaps(wanted) &&
                pthread_equal(range.thread, wanted.thread))
                return true;
        return false;
    }

    // Returns whether `wanted` has to wait for `range`. Writers that wait go before readers that
    // come later, except for a reader that has the range already: the writer waits for that one.
    static bool standsInTheWay(Entry const& entry, Range const& range, Range const& wanted)
    {
        if (!range.overlaps(wanted))
            return false;
        if (!range.waits)
            return wanted.type == F_WRLCK || range.type == F_WRLCK;
        return wanted.type == F_RDLCK && range.type == F_WRLCK && !holds(entry, wanted);
    }

    static bool blocked(Entry const& entry, Range const& wanted)
    {
        for (Range const& range : entry.ranges)
            if (standsInTheWay(entry, range, wanted))
                return true;
        return false;
    }

    // Returns whether `self` would wait for itself: it holds the range, or who stands in its way
    // waits in this process for what `self` holds, and so on. Each thread is looked at once.
    bool closesRing(Entry const& entry, pthread_t self, Range const& wanted) const
    {
        if (!blocked(entry, wanted))
            return false;
        struct Wait {
            Entry const* entry;
            Range const* wanted;
        };
        std::vector<Wait> due{{&entry, &wanted}};
        std::vector<pthread_t> seen;
        while (!due.empty()) {
            Wait const wait = due.back();
            due.pop_back();
            for (Range const& range : wait.entry->ranges) {
                if (!standsInTheWay(*wait.entry, range, *wait.wanted))
                    continue;
                if (pthread_equal(range.thread, self))
                    return true;
                if (std::find(seen.begin(), seen.end(), range.thread) != seen.end())
                    continue;
                seen.push_back(range.thread);
                for (auto const& other : entries)
                    for (Range const& next : other->ranges)
                        if (next.waits && pthread_equal(next.thread, range.thread))
                            due.push_back({other.get(), &next});
            }
        }
        return false;
    }

    using Place = std::list<Range>::iterator;

    // Takes back the range at `place`; the record lock goes with its last holder. A failure to
    // release the record lock changes nothing and is returned.
    static int release(Entry& entry, Place place)
    {
        bool const others =
            std::any_of(entry.ranges.begin(), entry.ranges.end(), [&](Range const& other) {
                return &other != &*place && !other.waits && other.overlaps(*place);
            });
        if (!others)
            if (int const error = setLock(entry.fd, F_SETLK, F_UNLCK, place->start, place->length))
                return error;
        entry.ranges.erase(place);
        return 0;
    }

    // Takes back the range at `place` whatever becomes of the record lock.
    static void drop(Entry& entry, Place place)
    {
        if (release(entry, place) != 0)
            entry.ranges.erase(place);
    }
};

// The table of this process. A child made by fork() shares its parent's memory image but none of
// its locks, and the mutex may be held by a thread that is not there: it gets a new table.
Table& table()
{
    static std::atomic<Table*> current{nullptr};
    Table* found = current.load(std::memory_order_acquire);
    while (found == nullptr || found->forks != zforkMark()) {
        auto made = std::make_unique<Table>();
        if (current.compare_exchange_strong(found, made.get(), std::memory_order_acq_rel))
            return *made.release();
    }
    return *found;
}

}  // namespace

int zopenPrivate(char const* path, int flags, mode_t mode)
{
    return zmoveUp(openRetrying(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode));
}

int zmoveUp(int fd)
{
    if (fd < 0 || fd >= kFirstDescriptor)
        return fd;
    int const moved = fcntl(fd, F_DUPFD_CLOEXEC, kFirstDescriptor);
    int const error = errno;
    ::close(fd);
    errno = error;
    return moved;
}

int ZSharedFile::open(char const* path, int flags, mode_t mode, Refusal refusal)
{
    ZCancelGuard const uncancelled;
    close();
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    bool const writes = (flags & O_ACCMODE) == O_RDWR;

    // What is no regular file is not even opened: opening a device may do something. And a file
    // that is open already is not opened again, see above.
    struct stat status;
    bool const asksFirst = (flags & O_NONBLOCK) == 0 || !files.entries.empty();
    bool const follows = (flags & O_NOFOLLOW) == 0;
    if (asksFirst && (follows ? stat(path, &status) : lstat(path, &status)) == 0) {
        bool const link = S_ISLNK(status.st_mode);
        if (int const error = link ? ELOOP : kindError(status, refusal))
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
    fresh->spare.resize(1);
    files.entries.reserve(files.entries.size() + 1);
    for (auto const& entry : files.entries)
        entry->descriptors.reserve(entry->descriptors.size() + 2);

    int fd = openRetrying(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode);
    if (fd < 0)
        return errno;
    bool const isKnown = fstat(fd, &status) == 0;
    int error = isKnown ? kindError(status, refusal) : errno;
    // The file may have got another name since it was looked up: then it is open already after
    // all, and this descriptor must stay open with the others, also when it is refused.
    Entry* const known = isKnown ? files.find(status) : nullptr;
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
    ZCancelGuard const uncancelled;
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    auto const at = std::find_if(files.entries.begin(), files.entries.end(),
                                 [this](auto const& entry) { return entry.get() == entry_; });
    if (at == files.entries.end()) {  // a reference that came along through fork()
        entry_ = nullptr;
        return;
    }
    for (auto next = entry_->ranges.begin(); next != entry_->ranges.end();) {
        auto const place = next++;
        if (place->user == this)
            Table::drop(*entry_, place);
    }
    if (--entry_->users == 0) {
        for (int fd : entry_->descriptors)
            ::close(fd);
        files.entries.erase(at);
    }
    entry_ = nullptr;
    files.released.notify_all();
}

void ZSharedFile::abandon()
{
    if (entry_ == nullptr)
        return;
    std::lock_guard<std::mutex> guard(table().mutex);
    for (Range& range : entry_->ranges)
        if (range.user == this)
            range.user = nullptr;
    entry_ = nullptr;
}

int ZSharedFile::lock(short type, off_t start, off_t length)
{
    return lockWith(F_SETLK, type, start, length);
}

int ZSharedFile::lockWaiting(short type, off_t start, off_t length)
{
    return lockWith(F_SETLKW, type, start, length);
}

int ZSharedFile::lockWith(int command, short type, off_t start, off_t length)
{
    Table& files = table();
    std::unique_lock<std::mutex> guard(files.mutex);
    Entry& entry = *entry_;
    Range const wanted = {this, pthread_self(), type, start, length, true};
    if (files.closesRing(entry, wanted.thread, wanted))
        return EDEADLK;
    if (entry.spare.empty())
        entry.spare.resize(1);
    auto const place = entry.spare.begin();
    *place = wanted;
    entry.ranges.splice(entry.ranges.end(), entry.spare);

    // Takes the range back unless it is locked in the end: a wait can fail or be cancelled.
    struct Undo {
        Table& files;
        Entry& entry;
        Table::Place place;
        std::unique_lock<std::mutex>& guard;
        bool done = false;
        ~Undo()
        {
            if (done)
                return;
            if (!guard.owns_lock())
                guard.lock();
            Table::drop(entry, place);
            files.released.notify_all();  // readers may have stood back for this writer
        }
    } undo{files, entry, place, guard};

    files.released.wait(guard, [&] { return !Table::blocked(entry, wanted); });
    place->waits = false;
    int const fd = entry.fd;
    if (command == F_SETLKW)  // others must be able to release meanwhile
        guard.unlock();
    int const error = setLock(fd, command, type, start, length);
    undo.done = error == 0;
    return error;
}

int ZSharedFile::unlock(off_t start, off_t length)
{
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    int error = 0;
    for (auto next = entry_->ranges.begin(); next != entry_->ranges.end();) {
        auto const place = next++;
        // Not what another thread waits for. Only the last holder's release can fail.
        if (place->user == this && !place->waits && place->is(start, length))
            error = Table::release(*entry_, place);
    }
    files.released.notify_all();
    return error;
}

void ZSharedFile::join(off_t start, off_t length)
{
    std::lock_guard<std::mutex> guard(table().mutex);
    if (entry_ == nullptr)
        return;
    pthread_t const self = pthread_self();
    for (Range& range : entry_->ranges)
        if (range.user == this && range.is(start, length) && !range.joined &&
            (pthread_equal(range.thread, self) || pthread_equal(range.thread, kNobody))) {
            range.thread = self;
            range.joined = true;
            return;
        }
    entry_->ranges.push_back({this, self, F_RDLCK, start, length, false, true});
}

void ZSharedFile::leave(off_t start, off_t length)
{
    std::lock_guard<std::mutex> guard(table().mutex);
    if (entry_ == nullptr)
        return;
    auto& ranges = entry_->ranges;
    pthread_t const self = pthread_self();
    size_t count = 0;
    auto leaving = ranges.end();
    for (auto place = ranges.begin(); place != ranges.end(); ++place)
        if (place->user == this && place->is(start, length)) {
            ++count;
            if (place->joined && pthread_equal(place->thread, self))
                leaving = place;
        }
    if (leaving == ranges.end())
        return;
    if (count > 1) {
        ranges.erase(leaving);
    } else {
        leaving->thread = kNobody;
        leaving->joined = false;
    }
}

bool ZSharedFile::isNamed(char const* path) const
{
    struct stat status;
    if (stat(path, &status) != 0)
        return errno != ENOENT;
    // The identity of an entry never changes.
    return status.st_dev == entry_->device && status.st_ino == entry_->inode;
}

int ZSharedFile::descriptor() const
{
    std::lock_guard<std::mutex> guard(table().mutex);
    return entry_->fd;
}
