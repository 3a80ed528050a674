#include "shared_file.h"

#include <errno.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "../reporting/cancellation.h"

namespace {

constexpr int kFirstDescriptor = 3;
constexpr pthread_t kNobody = ~pthread_t{0};

// A range that a reference holds or waits for.
struct Range {
    ZSharedFile const* user;
    void const* object;  // of `user`, if the thread had a claim on it; its claims name the holders
    pthread_t thread;    // locked the range, or waits; holds the range if `object` is null
    short type;
    off_t start;
    off_t length;
    bool waits;  // for other users of this process

    // Ranges of one file are identical or disjoint.
    bool is(off_t otherStart, off_t otherLength) const
    {
        return start == otherStart && length == otherLength;
    }
    bool overlaps(Range const& other) const { return is(other.start, other.length); }
};

// A lock object that a thread holds or requests.
struct Claim {
    void const* object;
    pthread_t thread;
    short type;
    bool held;

    bool isOf(void const* other, pthread_t self) const
    {
        return object == other && pthread_equal(thread, self);
    }
};

bool conflict(short a, short b)
{
    return a == F_WRLCK || b == F_WRLCK;
}

int openRetrying(int directory, char const* path, int flags, mode_t mode)
{
    int fd;
    do {
        fd = openat(directory, path, flags, mode);
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

// Returns 0 if the file can be used, else an errno.
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
    std::list<Range> ranges;       // a list: threads that wait keep iterators
    std::list<Range> spare;        // for the first range: locking an open file needs no memory
};

namespace {

using Entry = ZSharedFile::Entry;

struct Table {
    unsigned const forks = zforkMark();
    std::mutex mutex;
    std::condition_variable released;
    std::vector<std::unique_ptr<Entry>> entries;
    std::vector<Claim> claims;
    std::vector<int> unidentified;  // descriptors that may belong to an entry: fstat() failed

    // Moves each unidentified descriptor to its entry, or closes it if no entry has its inode.
    // Requires capacity for all of them in each entry.
    void identify()
    {
        std::erase_if(unidentified, [this](int fd) {
            struct stat status = {};
            if (!entries.empty() && fstat(fd, &status) != 0)
                return false;
            if (Entry* const entry = find(status))
                entry->descriptors.push_back(fd);
            else
                ::close(fd);
            return true;
        });
    }

    Entry* find(struct stat const& status)
    {
        for (auto const& entry : entries)
            if (entry->device == status.st_dev && entry->inode == status.st_ino)
                return entry.get();
        return nullptr;
    }

    // Calls `visit` with each thread that holds `range`, or waits for it.
    template <class Visit>
    void forEachThread(Range const& range, Visit visit) const
    {
        if (range.object == nullptr || range.waits)
            return visit(range.thread);
        for (Claim const& claim : claims)
            if (claim.object == range.object && claim.held)
                visit(claim.thread);
    }

    bool holds(Entry const& entry, Range const& wanted) const
    {
        bool found = false;
        for (Range const& range : entry.ranges)
            if (!range.waits && range.overlaps(wanted))
                forEachThread(range, [&](pthread_t thread) {
                    found = found || pthread_equal(thread, wanted.thread);
                });
        return found;
    }

    // Returns whether `wanted` must wait for `range`. A waiting writer has precedence over later
    // readers, except over a thread that holds the range already, for which the writer waits.
    bool standsInTheWay(Entry const& entry, Range const& range, Range const& wanted) const
    {
        if (!range.overlaps(wanted))
            return false;
        if (!range.waits)
            return conflict(wanted.type, range.type);
        return wanted.type == F_RDLCK && range.type == F_WRLCK && !holds(entry, wanted);
    }

    bool blocked(Entry const& entry, Range const& wanted) const
    {
        for (Range const& range : entry.ranges)
            if (standsInTheWay(entry, range, wanted))
                return true;
        return false;
    }

    // ---- The wait-for graph: each forEach…() visits the threads at the ends of edges.

    template <class Visit>
    void forEachAwaited(Entry const& entry, Range const& wanted, Visit visit) const
    {
        for (Range const& range : entry.ranges)
            if (standsInTheWay(entry, range, wanted))
                forEachThread(range, visit);
    }

    template <class Visit>
    void forEachAwaited(Claim const& wanted, Visit visit) const
    {
        auto const isInTheWay = [&](Claim const& claim) {
            return claim.held && conflict(wanted.type, claim.type);
        };
        bool const waits =
            !wanted.held && std::any_of(claims.begin(), claims.end(), [&](Claim const& claim) {
                return claim.object == wanted.object && isInTheWay(claim);
            });
        if (waits)
            for (Claim const& claim : claims)
                if (isInTheWay(claim) &&
                    (claim.object == wanted.object || hasLocked(claim.object, wanted.object)))
                    visit(claim.thread);
        // One thread at a time acquires the object, and later threads wait for it. Once it holds
        // the object, no thread waits for a range of the object.
        for (auto const& entry : entries)
            for (Range const& range : entry->ranges)
                if (range.waits && range.object == wanted.object &&
                    !pthread_equal(range.thread, wanted.thread))
                    visit(range.thread);
    }

    // Returns whether `holder` has locked a range of the file on which `object` has locked a range,
    // or waits for one.
    bool hasLocked(void const* holder, void const* object) const
    {
        for (auto const& entry : entries) {
            bool holds = false;
            bool isFile = false;
            for (Range const& range : entry->ranges) {
                holds = holds || (range.object == holder && !range.waits);
                isFile = isFile || range.object == object;
            }
            if (holds && isFile)
                return true;
        }
        return false;
    }

    template <class Visit>
    void forEachAwaited(pthread_t thread, Visit visit) const
    {
        for (auto const& entry : entries)
            for (Range const& range : entry->ranges)
                if (range.waits && pthread_equal(range.thread, thread))
                    forEachAwaited(*entry, range, visit);
        for (Claim const& claim : claims)
            if (pthread_equal(claim.thread, thread))
                forEachAwaited(claim, visit);
    }

    // Returns the threads that a thread awaits because of a range in an entry, or of a claim.
    template <class... Wanted>
    std::vector<pthread_t> awaitedBy(Wanted const&... wanted) const
    {
        std::vector<pthread_t> awaited;
        forEachAwaited(wanted..., [&](pthread_t thread) { awaited.push_back(thread); });
        return awaited;
    }

    // Returns whether `self` is reachable from `awaited`, the threads for which it is about to
    // wait.
    bool wouldDeadlock(pthread_t self, std::vector<pthread_t> awaited) const
    {
        std::vector<pthread_t> seen;
        while (!awaited.empty()) {
            pthread_t const thread = awaited.back();
            awaited.pop_back();
            if (pthread_equal(thread, self))
                return true;
            if (std::find(seen.begin(), seen.end(), thread) != seen.end())
                continue;
            seen.push_back(thread);
            forEachAwaited(thread, [&](pthread_t next) { awaited.push_back(next); });
        }
        return false;
    }

    // Returns the newest claim of a thread on an object.
    std::vector<Claim>::iterator findClaim(void const* object, pthread_t thread)
    {
        auto const found = std::find_if(claims.rbegin(), claims.rend(), [&](Claim const& claim) {
            return claim.isOf(object, thread);
        });
        return found == claims.rend() ? claims.end() : std::prev(found.base());
    }

    using Place = std::list<Range>::iterator;

    // Removes a range. The last holder also releases the record lock; if that fails, nothing
    // changes and the errno is returned.
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

    // Removes a range even if the record lock cannot be released.
    static void drop(Entry& entry, Place place)
    {
        if (release(entry, place) != 0)
            entry.ranges.erase(place);
    }
};

// Returns the table of this process. A child created by fork() has a copy of its parent's memory,
// but none of its locks, and a thread that does not exist in the child may hold the mutex. So the
// child gets a new table.
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
    return zmoveUp(openRetrying(AT_FDCWD, path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode));
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

int ZSharedFile::openAt(int directory, char const* path, int flags, mode_t mode, Refusal refusal)
{
    ZCancelGuard const uncancelled;
    close();
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    bool const writes = (flags & O_ACCMODE) == O_RDWR;

    // Check the file first: opening a device may have effects, and a second descriptor of an open
    // file must not be closed again.
    struct stat status;
    bool const asksFirst = (flags & O_NONBLOCK) == 0 || !files.entries.empty();
    int const links = (flags & O_NOFOLLOW) != 0 ? AT_SYMLINK_NOFOLLOW : 0;
    bool const isThere = asksFirst && fstatat(directory, path, &status, links) == 0;
    if (asksFirst && !isThere && errno != ENOENT && !files.entries.empty())
        return errno;  // the file may have an entry
    if (isThere) {
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

    // Reserve all memory first: nothing may throw once the file is open.
    auto fresh = std::make_unique<Entry>();
    fresh->descriptors.reserve(2);
    fresh->spare.resize(1);
    files.entries.reserve(files.entries.size() + 1);
    files.unidentified.reserve(files.unidentified.size() + 1);
    for (auto const& entry : files.entries)
        entry->descriptors.reserve(entry->descriptors.size() + files.unidentified.size() + 2);
    files.identify();

    int fd = openRetrying(directory, path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode);
    if (fd < 0)
        return errno;
    bool const isKnown = fstat(fd, &status) == 0;
    int error = isKnown ? kindError(status, refusal) : errno;
    // Since the check above, the path may have come to refer to a file that has an entry. Then this
    // descriptor must stay open with the others, even if the file is refused. So must a descriptor
    // whose inode is unknown.
    Entry* const known = isKnown ? files.find(status) : nullptr;
    auto const retire = [&](int descriptor) {
        if (known != nullptr)
            known->descriptors.push_back(descriptor);
        else if (!isKnown && !files.entries.empty())
            files.unidentified.push_back(descriptor);
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
    if (at == files.entries.end()) {  // a reference inherited through fork()
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
        if (files.entries.empty())
            files.identify();
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
        if (range.user == this) {
            range.user = nullptr;
            range.object = nullptr;
        }
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
    pthread_t const self = pthread_self();
    bool const claimed = object_ != nullptr && files.findClaim(object_, self) != files.claims.end();
    Range const wanted = {this, claimed ? object_ : nullptr, self, type, start, length, true};
    if (files.blocked(entry, wanted) && files.wouldDeadlock(self, files.awaitedBy(entry, wanted)))
        return EDEADLK;
    if (entry.spare.empty())
        entry.spare.resize(1);
    auto const place = entry.spare.begin();
    *place = wanted;
    entry.ranges.splice(entry.ranges.end(), entry.spare);

    // Removes the range unless it gets locked: a wait can fail or be cancelled.
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
            files.released.notify_all();  // readers may wait because of this writer
        }
    } undo{files, entry, place, guard};

    files.released.wait(guard, [&] { return !files.blocked(entry, wanted); });
    place->waits = false;
    int const fd = entry.fd;
    if (command == F_SETLKW)  // while it waits, other threads must be able to release ranges
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
        // A range for which another thread waits stays. Only the release by the last holder can
        // fail.
        if (place->user == this && !place->waits && place->is(start, length))
            error = Table::release(*entry_, place);
    }
    files.released.notify_all();
    return error;
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

int ZLockClaims::ask(void const* object, short type)
{
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    Claim const wanted = {object, pthread_self(), type, false};
    // A second request of the writer does not wait: the lock between threads refuses it.
    bool const isWriter =
        std::any_of(files.claims.begin(), files.claims.end(), [&](Claim const& claim) {
            return claim.isOf(object, wanted.thread) && claim.held && claim.type == F_WRLCK;
        });
    if (!isWriter) {
        std::vector<pthread_t> awaited = files.awaitedBy(wanted);
        if (!awaited.empty() && files.wouldDeadlock(wanted.thread, std::move(awaited)))
            return EDEADLK;
    }
    files.claims.push_back(wanted);
    return 0;
}

void ZLockClaims::hold(void const* object)
{
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    auto const claim = files.findClaim(object, pthread_self());
    if (claim != files.claims.end())
        claim->held = true;
}

void ZLockClaims::drop(void const* object)
{
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    auto claim = files.findClaim(object, pthread_self());
    if (claim == files.claims.end()) {
        int count = 0;
        for (auto place = files.claims.begin(); place != files.claims.end(); ++place)
            if (place->object == object && place->held && place->type == F_RDLCK) {
                claim = place;
                ++count;
            }
        if (count > 1)
            for (Claim& each : files.claims)
                if (each.object == object && each.held && each.type == F_RDLCK)
                    each.thread = kNobody;
    }
    if (claim != files.claims.end())
        files.claims.erase(claim);
}

int ZLockClaims::countHeld(void const* object)
{
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    int count = 0;
    for (Claim const& claim : files.claims) {
        if (claim.isOf(object, kNobody))
            return -1;
        if (claim.held && claim.isOf(object, pthread_self()))
            ++count;
    }
    return count;
}

void ZLockClaims::dropAll(void const* object)
{
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    std::erase_if(files.claims, [&](Claim const& claim) { return claim.object == object; });
}
