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

namespace zfiles {

namespace {

constexpr int kFirstDescriptor = 3;
constexpr pthread_t kNoThread = ~pthread_t{0};

// A range that a reference holds or waits for.
struct Range {
    SharedFile const* user;
    void const* object;  // of `user`, if the thread had a claim on it; its claims name the holders
    pthread_t thread;    // locked the range, or waits; holds the range if `object` is null
    short type;
    off_t start;
    off_t length;
    bool waits;  // for other users of this process

    // Ranges of one file are identical or disjoint.
    bool hasBounds(off_t otherStart, off_t otherLength) const
    {
        return start == otherStart && length == otherLength;
    }
    bool overlaps(Range const& other) const { return hasBounds(other.start, other.length); }
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

// The arguments of SharedFile::openAt().
struct OpenRequest {
    int directory;
    char const* path;
    int flags;
    mode_t mode;
    SharedFile::Refusal refusal;

    bool writes() const { return (flags & O_ACCMODE) == O_RDWR; }
};

int openRetrying(OpenRequest const& request)
{
    int const flags = request.flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    int fd;
    do {
        fd = openat(request.directory, request.path, flags, request.mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Returns 0 if the file can be used, else an errno.
int checkKind(struct stat const& status, SharedFile::Refusal refusal)
{
    if (S_ISREG(status.st_mode))
        return refusal != nullptr ? refusal(status) : 0;
    return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
}

std::atomic<unsigned> forks{0};

}  // namespace

unsigned forkGeneration()
{
    static bool const counts = pthread_atfork(nullptr, nullptr, [] { ++forks; }) == 0;
    return counts ? forks.load(std::memory_order_relaxed) : static_cast<unsigned>(getpid());
}

// All fields are guarded by the table's mutex.
struct SharedFile::Inode {
    dev_t device;
    ino_t number;
    int users = 0;
    int fd = -1;                   // the descriptor in use
    bool writable = false;         // it was opened for writing too
    std::vector<int> descriptors;  // every descriptor of the inode, `fd` among them
    std::list<Range> ranges;       // a list: threads that wait keep iterators
    std::list<Range> spare;        // for the first range: locking an open file needs no memory
};

namespace {

using Inode = SharedFile::Inode;

struct Table {
    unsigned const forks = forkGeneration();
    std::mutex mutex;
    std::condition_variable released;
    std::vector<std::unique_ptr<Inode>> inodes;
    std::vector<Claim> claims;
    std::vector<int> unidentified;  // descriptors of unknown inodes: fstat() failed

    // Moves each unidentified descriptor to its inode, or closes it if the inode is not in the
    // table. Requires capacity for all of them in each inode.
    void identify()
    {
        std::erase_if(unidentified, [this](int fd) {
            struct stat status = {};
            if (!inodes.empty() && fstat(fd, &status) != 0)
                return false;
            if (Inode* const inode = find(status))
                inode->descriptors.push_back(fd);
            else
                ::close(fd);
            return true;
        });
    }

    // If the file of a request is open already, uses its inode. Sets `inode`, unless the file must
    // be opened. Returns 0 or an errno.
    int shareOpen(OpenRequest const& request, Inode*& inode)
    {
        // Check the file before it is opened: opening a device may have effects, and a second
        // descriptor of an open file must not be closed again.
        if ((request.flags & O_NONBLOCK) != 0 && inodes.empty())
            return 0;
        struct stat status;
        int const links = (request.flags & O_NOFOLLOW) != 0 ? AT_SYMLINK_NOFOLLOW : 0;
        if (fstatat(request.directory, request.path, &status, links) != 0)
            return errno != ENOENT && !inodes.empty() ? errno : 0;  // the file may be in the table
        bool const isLink = S_ISLNK(status.st_mode);
        if (int const error = isLink ? ELOOP : checkKind(status, request.refusal))
            return error;
        Inode* const found = (request.flags & O_EXCL) != 0 ? nullptr : find(status);
        if (found != nullptr && (found->writable || !request.writes())) {
            ++found->users;
            inode = found;
        }
        return 0;
    }

    // Opens the file of a request, and sets `inode`. Returns 0 or an errno.
    int open(OpenRequest const& request, Inode*& inode)
    {
        std::unique_ptr<Inode> fresh = reserve();
        identify();
        int fd = openRetrying(request);
        if (fd < 0)
            return errno;
        struct stat status;
        bool const hasStatus = fstat(fd, &status) == 0;
        int error = hasStatus ? checkKind(status, request.refusal) : errno;
        Inode* const known = hasStatus ? find(status) : nullptr;
        if (error == 0 && fd < kFirstDescriptor) {
            int const low = fd;
            fd = fcntl(low, F_DUPFD_CLOEXEC, kFirstDescriptor);
            error = fd < 0 ? errno : 0;
            retire(low, known, hasStatus);
        }
        if (error != 0) {
            if (fd >= 0)
                retire(fd, known, hasStatus);
            return error;
        }
        inode = known;
        if (known == nullptr) {
            fresh->device = status.st_dev;
            fresh->number = status.st_ino;
            inode = fresh.get();
            inodes.push_back(std::move(fresh));
        }
        inode->descriptors.push_back(fd);
        if (inode->fd < 0 || (request.writes() && !inode->writable)) {
            inode->fd = fd;
            inode->writable = request.writes();
        }
        ++inode->users;
        return 0;
    }

    // Returns a new inode, and reserves all memory for open(): nothing may throw once the file is
    // open.
    std::unique_ptr<Inode> reserve()
    {
        auto fresh = std::make_unique<Inode>();
        fresh->descriptors.reserve(2);
        fresh->spare.resize(1);
        inodes.reserve(inodes.size() + 1);
        unidentified.reserve(unidentified.size() + 1);
        for (auto const& inode : inodes)
            inode->descriptors.reserve(inode->descriptors.size() + unidentified.size() + 2);
        return fresh;
    }

    // Closes an unneeded descriptor, but keeps it open if `known` is its inode: since the check
    // before open(), the path may have come to refer to another open file. A descriptor of an
    // unknown inode is kept until its inode is known.
    void retire(int fd, Inode* known, bool hasStatus)
    {
        if (known != nullptr)
            known->descriptors.push_back(fd);
        else if (!hasStatus && !inodes.empty())
            unidentified.push_back(fd);
        else
            ::close(fd);
    }

    Inode* find(struct stat const& status)
    {
        for (auto const& inode : inodes)
            if (inode->device == status.st_dev && inode->number == status.st_ino)
                return inode.get();
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

    bool holds(Inode const& inode, Range const& wanted) const
    {
        bool found = false;
        for (Range const& range : inode.ranges)
            if (!range.waits && range.overlaps(wanted))
                forEachThread(range, [&](pthread_t thread) {
                    found = found || pthread_equal(thread, wanted.thread);
                });
        return found;
    }

    // Returns whether `wanted` must wait for `range`. A waiting writer has precedence over later
    // readers, except over a thread that holds the range already, for which the writer waits.
    bool blocks(Inode const& inode, Range const& range, Range const& wanted) const
    {
        if (!range.overlaps(wanted))
            return false;
        if (!range.waits)
            return conflict(wanted.type, range.type);
        return wanted.type == F_RDLCK && range.type == F_WRLCK && !holds(inode, wanted);
    }

    bool isBlocked(Inode const& inode, Range const& wanted) const
    {
        for (Range const& range : inode.ranges)
            if (blocks(inode, range, wanted))
                return true;
        return false;
    }

    // ---- The wait-for graph: each forEach…() visits the threads at the ends of edges.

    template <class Visit>
    void forEachAwaited(Inode const& inode, Range const& wanted, Visit visit) const
    {
        for (Range const& range : inode.ranges)
            if (blocks(inode, range, wanted))
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
        for (auto const& inode : inodes)
            for (Range const& range : inode->ranges)
                if (range.waits && range.object == wanted.object &&
                    !pthread_equal(range.thread, wanted.thread))
                    visit(range.thread);
    }

    // Returns whether `holder` has locked a range of the file on which `object` has locked a range,
    // or waits for one.
    bool hasLocked(void const* holder, void const* object) const
    {
        for (auto const& inode : inodes) {
            bool holds = false;
            bool isFile = false;
            for (Range const& range : inode->ranges) {
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
        for (auto const& inode : inodes)
            for (Range const& range : inode->ranges)
                if (range.waits && pthread_equal(range.thread, thread))
                    forEachAwaited(*inode, range, visit);
        for (Claim const& claim : claims)
            if (pthread_equal(claim.thread, thread))
                forEachAwaited(claim, visit);
    }

    // Returns the threads that a thread awaits because of a range of an inode, or of a claim.
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

    using RangeIterator = std::list<Range>::iterator;

    // Removes a range. The last holder also releases the record lock; if that fails, nothing
    // changes and the errno is returned.
    static int release(Inode& inode, RangeIterator position)
    {
        bool const others =
            std::any_of(inode.ranges.begin(), inode.ranges.end(), [&](Range const& other) {
                return &other != &*position && !other.waits && other.overlaps(*position);
            });
        if (!others)
            if (int const error =
                    setLock(inode.fd, F_SETLK, F_UNLCK, position->start, position->length))
                return error;
        inode.ranges.erase(position);
        return 0;
    }

    // Removes a range even if the record lock cannot be released.
    static void drop(Inode& inode, RangeIterator position)
    {
        if (release(inode, position) != 0)
            inode.ranges.erase(position);
    }
};

// Returns the table of this process. A child created by fork() has a copy of its parent's memory,
// but none of its locks, and a thread that does not exist in the child may hold the mutex. So the
// child gets a new table.
Table& table()
{
    static std::atomic<Table*> current{nullptr};
    Table* found = current.load(std::memory_order_acquire);
    while (found == nullptr || found->forks != forkGeneration()) {
        auto made = std::make_unique<Table>();
        if (current.compare_exchange_strong(found, made.get(), std::memory_order_acq_rel))
            return *made.release();
    }
    return *found;
}

}  // namespace

int moveAboveStdio(int fd)
{
    if (fd < 0 || fd >= kFirstDescriptor)
        return fd;
    int const moved = fcntl(fd, F_DUPFD_CLOEXEC, kFirstDescriptor);
    int const error = errno;
    ::close(fd);
    errno = error;
    return moved;
}

int SharedFile::openAt(int directory, char const* path, int flags, mode_t mode, Refusal refusal)
{
    zreporting::CancelGuard const uncancelled;
    close();
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    OpenRequest const request = {directory, path, flags, mode, refusal};
    int const error = files.shareOpen(request, inode_);
    return error != 0 || inode_ != nullptr ? error : files.open(request, inode_);
}

void SharedFile::close()
{
    if (inode_ == nullptr)
        return;
    zreporting::CancelGuard const uncancelled;
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    auto const at = std::find_if(files.inodes.begin(), files.inodes.end(),
                                 [this](auto const& inode) { return inode.get() == inode_; });
    if (at == files.inodes.end()) {  // a reference inherited through fork()
        inode_ = nullptr;
        return;
    }
    if (--inode_->users == 0) {
        for (int fd : inode_->descriptors)
            ::close(fd);  // also drops the record locks
        files.inodes.erase(at);
        if (files.inodes.empty())
            files.identify();
    } else {
        for (auto next = inode_->ranges.begin(); next != inode_->ranges.end();) {
            auto const position = next++;
            if (position->user == this)
                Table::drop(*inode_, position);
        }
    }
    inode_ = nullptr;
    files.released.notify_all();
}

void SharedFile::abandon()
{
    if (inode_ == nullptr)
        return;
    std::lock_guard<std::mutex> guard(table().mutex);
    for (Range& range : inode_->ranges)
        if (range.user == this) {
            range.user = nullptr;
            range.object = nullptr;
        }
    inode_ = nullptr;
}

int SharedFile::lock(short type, off_t start, off_t length)
{
    return lockWith(F_SETLK, type, start, length);
}

int SharedFile::lockWaiting(short type, off_t start, off_t length)
{
    return lockWith(F_SETLKW, type, start, length);
}

int SharedFile::lockWith(int command, short type, off_t start, off_t length)
{
    Table& files = table();
    std::unique_lock<std::mutex> guard(files.mutex);
    Inode& inode = *inode_;
    pthread_t const self = pthread_self();
    bool const claimed = object_ != nullptr && files.findClaim(object_, self) != files.claims.end();
    Range const wanted = {this, claimed ? object_ : nullptr, self, type, start, length, true};
    if (files.isBlocked(inode, wanted) && files.wouldDeadlock(self, files.awaitedBy(inode, wanted)))
        return EDEADLK;
    if (inode.spare.empty())
        inode.spare.resize(1);
    auto const position = inode.spare.begin();
    *position = wanted;
    inode.ranges.splice(inode.ranges.end(), inode.spare);

    // Removes the range unless it gets locked: a wait can fail or be cancelled.
    struct Undo {
        Table& files;
        Inode& inode;
        Table::RangeIterator position;
        std::unique_lock<std::mutex>& guard;
        bool done = false;
        ~Undo()
        {
            if (done)
                return;
            if (!guard.owns_lock())
                guard.lock();
            Table::drop(inode, position);
            files.released.notify_all();  // readers may wait because of this writer
        }
    } undo{files, inode, position, guard};

    files.released.wait(guard, [&] { return !files.isBlocked(inode, wanted); });
    position->waits = false;
    int const fd = inode.fd;
    if (command == F_SETLKW)  // while it waits, other threads must be able to release ranges
        guard.unlock();
    int const error = setLock(fd, command, type, start, length);
    undo.done = error == 0;
    return error;
}

int SharedFile::unlock(off_t start, off_t length)
{
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    int error = 0;
    for (auto next = inode_->ranges.begin(); next != inode_->ranges.end();) {
        auto const position = next++;
        // A range for which another thread waits stays. Only the release by the last holder can
        // fail.
        if (position->user == this && !position->waits && position->hasBounds(start, length))
            error = Table::release(*inode_, position);
    }
    files.released.notify_all();
    return error;
}

bool SharedFile::isNamed(char const* path) const
{
    struct stat status;
    if (stat(path, &status) != 0)
        return errno != ENOENT;
    // The identity of an inode never changes.
    return status.st_dev == inode_->device && status.st_ino == inode_->number;
}

int SharedFile::descriptor() const
{
    std::lock_guard<std::mutex> guard(table().mutex);
    return inode_->fd;
}

int LockClaims::ask(void const* object, short type)
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

void LockClaims::hold(void const* object)
{
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    auto const claim = files.findClaim(object, pthread_self());
    if (claim != files.claims.end())
        claim->held = true;
}

void LockClaims::drop(void const* object)
{
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    auto claim = files.findClaim(object, pthread_self());
    if (claim == files.claims.end()) {
        int count = 0;
        for (auto position = files.claims.begin(); position != files.claims.end(); ++position)
            if (position->object == object && position->held && position->type == F_RDLCK) {
                claim = position;
                ++count;
            }
        if (count > 1)
            for (Claim& reader : files.claims)
                if (reader.object == object && reader.held && reader.type == F_RDLCK)
                    reader.thread = kNoThread;
    }
    if (claim != files.claims.end())
        files.claims.erase(claim);
}

int LockClaims::countHeld(void const* object)
{
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    int count = 0;
    for (Claim const& claim : files.claims) {
        if (claim.isOf(object, kNoThread))
            return -1;
        if (claim.held && claim.isOf(object, pthread_self()))
            ++count;
    }
    return count;
}

void LockClaims::dropAll(void const* object)
{
    Table& files = table();
    std::lock_guard<std::mutex> guard(files.mutex);
    std::erase_if(files.claims, [&](Claim const& claim) { return claim.object == object; });
}

}  // namespace zfiles
