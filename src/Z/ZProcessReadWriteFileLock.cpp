#include "ZProcessReadWriteFileLock.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <new>

#include "ZException.h"
#include "ZReadWriteLock_p.h"
#include "ZSharedFile_p.h"
#include "ZSizeSignalGuard_p.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZProcessReadWriteFileLock";

// The number each raise site puts into its report. Log scanners match on it, so it belongs
// to the site and does not follow the line when the file is edited.
enum RaiseSite {
    raiseInIncSequence = 112,
    raiseInSetLockDirName = 131,
    raiseInSetLockDirNameOfHeld = 137,
    raiseInDolock = 203,
    raiseInDolockOfHeld = 211,
    raiseForMemory = 250,
    raiseInLockFileRange = 318,
    raiseInLock = 327,
    raiseInUnlock = 331,
    raiseInWriteBytes = 352,
    raiseInReadBytes = 377,
    raiseForReplacedFile = 398,
    reportInCleanUp = 406
};

enum Message { lockFailed = 33, unlockFailed = 34, readFailed = 35 };

constexpr char kPrefix[] = "._zpl";

struct Piece {
    unsigned start;
    unsigned length;
};
constexpr Piece kSequence = {0, 4};   // as a range: the data
constexpr Piece kProcessId = {4, 4};  // as a range: the gate

constexpr mode_t kMode = S_ISGID | S_IRUSR | S_IWUSR;
constexpr int kAttempts = 100;  // at a file that is replaced again and again while it is locked
constexpr int kTornFile = -1;   // the rc of a read that found fewer bytes than there should be

// Returns why a regular file must not become a lock file, or 0: bytes are written into it.
int refusal(struct stat const& status)
{
    // Another user's file may have been linked to the name of the lock. A file without a name was
    // removed just now; lockFile() notices that.
    if (status.st_nlink > 1)
        return EMLINK;
    // A file that its owner shares, by group, others or ACL, has a group or others that may write.
    // What root may use is not narrowed: it takes locks of every user's programs.
    bool const isShared = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    uid_t const self = geteuid();
    bool const isTrusted = status.st_uid == self || status.st_uid == 0 || self == 0;
    return isTrusted || isShared ? 0 : EPERM;
}

int holdsOfCaller(ZAbstractReadWriteLock_6_0 const& lock)
{
    auto const* const file = dynamic_cast<ZAbstractProcessReadWriteFileLock_6_0 const*>(&lock);
    return file != nullptr ? ZLockClaims::countHeld(file) : -1;
}

// Runs a step of the protocol after another one has failed; its own failure is reported. Returns
// whether it succeeded. The steps may be those of a derived class.
template <class Step>
bool rollBack(Step step)
{
    return zreporting::runCleanup({kSource, reportInCleanUp}, step);
}

// Runs `call`, and raises an exception of the library when there is no memory.
template <class Call>
auto withMemory(Call call)
{
    try {
        return call();
    } catch (std::bad_alloc const&) {
        ZOutOfMemoryException_6_0().throwException(kSource, raiseForMemory);
    }
}

// Repeats `move`, which reads or writes what lies behind the bytes that are done, until there are
// `length` of them. Returns whether it came so far; if not, errno says why, and 0 that nothing
// could be moved.
template <class Move>
bool movesAll(unsigned length, Move move)
{
    unsigned done = 0;
    while (done < length) {
        ssize_t const n = move(done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n == 0)
            errno = 0;
        if (n <= 0)
            return false;
        done += static_cast<unsigned>(n);
    }
    errno = 0;
    return length != 0;
}

// The lock objects are known by the address of this base.
ZSharedFile* makeShared(ZAbstractProcessReadWriteFileLock_6_0 const* object)
{
    return withMemory([object] { return new ZSharedFile(object); });
}

}  // namespace

// ---- The protocol ------------------------------------------------------------------------------
//
// How the process holds the file; `readers` counts its reading threads, who all hold the lock
// between the threads.
//
// from   event                             to      with the file
// unset  dolock(read)                      read    gate, id, data shared, gate free; read sequence
// unset  dolock(protect), dolock(write)    write   gate, id, data exclusive; read sequence
// read   dolock(read)                      read    nothing
// read   dolock(unset), readers > 1        read    nothing
// read   dolock(unset), readers = 1        unset   data free, closed
// write  dolock(unset)                     unset   data free, gate free, closed
// Whatever fails on the way to a lock leads back to where it started. What fails on the way out of
// one leaves it held.

ZAbstractProcessReadWriteFileLock_6_0::ZAbstractProcessReadWriteFileLock_6_0()
{
    zholdsOfCaller.store(holdsOfCaller, std::memory_order_relaxed);
    ZAbstractProcessReadWriteFileLock_6_0::setLockFileName(getLockName());
}

ZAbstractProcessReadWriteFileLock_6_0::ZAbstractProcessReadWriteFileLock_6_0(char const* name)
    : ZAbstractProcessReadWriteLock_6_0(name)
{
    zholdsOfCaller.store(holdsOfCaller, std::memory_order_relaxed);
    ZAbstractProcessReadWriteFileLock_6_0::setLockFileName(getLockName());
}

ZAbstractProcessReadWriteFileLock_6_0::ZAbstractProcessReadWriteFileLock_6_0(char const* dir,
                                                                             char const* name)
    : ZAbstractProcessReadWriteLock_6_0(name)
{
    zholdsOfCaller.store(holdsOfCaller, std::memory_order_relaxed);
    ZAbstractProcessReadWriteFileLock_6_0::setLockDirName(dir);
    ZAbstractProcessReadWriteFileLock_6_0::setLockFileName(getLockName());
}

ZAbstractProcessReadWriteFileLock_6_0::~ZAbstractProcessReadWriteFileLock_6_0()
{
    if (ZAbstractProcessReadWriteLock_6_0::getLockState() != unset)
        ZLockClaims::dropAll(this);
}

uint32_t ZAbstractProcessReadWriteFileLock_6_0::hash() const
{
    return path_.hash();
}

int ZAbstractProcessReadWriteFileLock_6_0::compare(ZObject_6_0 const& other) const
{
    auto const* const lock = dynamic_cast<ZAbstractProcessReadWriteFileLock_6_0 const*>(&other);
    return lock == nullptr ? ZObject_6_0::compare(other) : path_.compare(lock->path_);
}

void ZAbstractProcessReadWriteFileLock_6_0::lock()
{
    lock(write);
}

void ZAbstractProcessReadWriteFileLock_6_0::lock(zlockstate state)
{
    dolock(state);
    if (state == unset)
        return;
    if (getLastSequence() == invalidSequence)
        setLastSequence();
    if (isCurrent() != 0 || countObservers() == 0)
        return;
    // KEPT: observers bring up to date what the lock protects, for which they need the write lock,
    // whatever was asked for; that is no change that others should hear of.
    // Test: ZProcessReadWriteFileLock.KeepsTheWriteLockOfAReaderThatNotifies
    bool held = true;
    try {
        if (state != write) {
            dolock(unset);
            held = false;
            dolock(write);
            held = true;
            setUpdate(0);
        }
        notifyLockObservers();
    } catch (...) {
        if (held)
            rollBack([this] { release(Release::whateverHappens); });
        throw;
    }
}

void ZAbstractProcessReadWriteFileLock_6_0::notifyLockObservers()
{
    // Another thread may have seen the change while this one was on its way to the write lock.
    if (isCurrent() == 0)
        notifyObservers(ZSequenceUpdate_6_0(getSequence(), getLastSequence()));
}

unsigned long ZAbstractProcessReadWriteFileLock_6_0::incSequence()
{
    if (getLockState() != write)
        raiseInvalidState(kSource, raiseInIncSequence);
    unsigned long const next = nextSequence();
    writeSequenceNumber(next);
    setSequence(next);
    return next;
}

char const* ZAbstractProcessReadWriteFileLock_6_0::getLockDirName() const
{
    return directory_;
}

void ZAbstractProcessReadWriteFileLock_6_0::setLockDirName(char const* dir)
{
    struct stat status;
    constexpr mode_t kNeeded = S_IWUSR | S_IXUSR;
    if (dir != nullptr && (stat(dir, &status) != 0 || !S_ISDIR(status.st_mode) ||
                           (status.st_mode & kNeeded) != kNeeded))
        ZInvalidParameterException_6_0().throwException(kSource, raiseInSetLockDirName);
    if (dir == nullptr)
        dir = "";
    if (directory_ == dir)
        return;
    if (getLockState() != unset)
        raiseInvalidState(kSource, raiseInSetLockDirNameOfHeld);
    // Both or neither: the memory for the second may be missing.
    ZLCString_6_0 const before(directory_);
    directory_ = dir;
    try {
        setLockFileName(getLockName());
    } catch (...) {
        directory_ = before;  // it fits
        throw;
    }
}

char const* ZAbstractProcessReadWriteFileLock_6_0::getLockFileName() const
{
    return path_;
}

void ZAbstractProcessReadWriteFileLock_6_0::setLockFileName(char const* name)
{
    ZLCString_6_0 path(directory_);
    if (path.getLength() > 0)
        path += "/";
    path += kPrefix;
    // KEPT: a "/" is not refused; callers name locks in folders whose names begin with the prefix.
    // Test: ZProcessReadWriteFileLock.KeepsASlashInTheName
    path += name;
    path_ = path;
}

void ZAbstractProcessReadWriteFileLock_6_0::lockFile(zlockstate state)
{
    lockFileRange(write, kProcessId.start, kProcessId.length);
    try {
        writePid();
        lockFileRange(state, kSequence.start, kSequence.length);
    } catch (...) {
        rollBack([this] { unlockFileRange(kProcessId.start, kProcessId.length); });
        throw;
    }
    // A writer keeps the gate: who waits for readers to leave keeps new ones out.
    if (state != read)
        return;
    try {
        unlockFileRange(kProcessId.start, kProcessId.length);
    } catch (...) {
        rollBack([this] { unlockFileRange(kSequence.start, kSequence.length); });
        throw;
    }
}

void ZAbstractProcessReadWriteFileLock_6_0::unlockFile()
{
    unlockFileRange(kSequence.start, kSequence.length);
    if (getLockState() == write)
        unlockFileRange(kProcessId.start, kProcessId.length);
}

void ZAbstractProcessReadWriteFileLock_6_0::dolock(zlockstate state)
{
    failIfInherited();
    switch (state) {
        case unset:
            return release(Release::ifItSucceeds);
        case read:
            return acquire(read);
        case protect:
        case write:
            return acquire(write);
    }
    raiseInvalidState(kSource, raiseInDolock);
}

void ZAbstractProcessReadWriteFileLock_6_0::acquire(zlockstate state)
{
    // Given back first of all: the thread waits for nothing any more.
    auto const giveBack = [this] {
        ZLockClaims::drop(this);
        rollBack([this] { ZAbstractProcessReadWriteLock_6_0::lock(unset); });
    };
    short const type = state == read ? F_RDLCK : F_WRLCK;
    if (int const error = withMemory([&] { return ZLockClaims::ask(this, type); }))
        ZLockResourceException_6_0(lockFailed, error).throwException(kSource, raiseInLock);
    try {
        ZAbstractProcessReadWriteLock_6_0::lock(state);
    } catch (...) {
        ZLockClaims::drop(this);
        throw;
    }
    ZLockClaims::hold(this);
    try {
        file_.lock();
    } catch (...) {
        giveBack();
        throw;
    }
    // Given back under the file mutex: a reader that leaves must not count one that has failed
    // among those who read on, and leave the file to it.
    try {
        if (getLockState() == unset)
            acquireFile(state);
        else if (state == write)  // nobody in this process holds it, but the file is locked
            raiseInvalidState(kSource, raiseInDolockOfHeld);
    } catch (...) {
        giveBack();
        file_.unlock();
        throw;
    }
    file_.unlock();
}

void ZAbstractProcessReadWriteFileLock_6_0::acquireFile(zlockstate state)
{
    lockFile(state);
    setLockState(state);
    try {
        unsigned long sequence = 0;
        readSequenceNumber(&sequence);
        setSequence(sequence);
    } catch (...) {
        dropFile();
        throw;
    }
}

void ZAbstractProcessReadWriteFileLock_6_0::dropFile()
{
    bool const freed = rollBack([this] { unlockFile(); });
    setLockState(unset);
    if (!freed)  // without a state nothing is left locked, whatever happens
        rollBack([this] { unlockFile(); });
}

void ZAbstractProcessReadWriteFileLock_6_0::release(Release how)
{
    ZResourceLock_6_0 const guard(file_);
    failIfStranger();
    zlockstate const state = getLockState();
    bool const othersRead = state == read && getReaderCount() > 1;
    if (state != unset && !othersRead) {
        if (how == Release::whateverHappens) {
            dropFile();
        } else {
            unlockFile();
            setLockState(unset);
        }
    }
    ZLockClaims::drop(this);
    ZAbstractProcessReadWriteLock_6_0::lock(unset);
}

// The number stands in the file in 32 bits, whatever `long` has.
void ZAbstractProcessReadWriteFileLock_6_0::readSequenceNumber(unsigned long* sequence)
{
    if (sequence == nullptr)
        return;
    auto word = static_cast<uint32_t>(*sequence);
    readBytes(&word, kSequence.start, kSequence.length);
    *sequence = word;
}

void ZAbstractProcessReadWriteFileLock_6_0::writeSequenceNumber(unsigned long sequence)
{
    auto word = static_cast<uint32_t>(sequence);
    writeBytes(&word, kSequence.start, kSequence.length);
}

void ZAbstractProcessReadWriteFileLock_6_0::writePid()
{
    auto word = static_cast<uint32_t>(getpid());
    writeBytes(&word, kProcessId.start, kProcessId.length);
}

// ---- With record locks -------------------------------------------------------------------------

ZUnixProcessReadWriteFileLock_6_0::ZUnixProcessReadWriteFileLock_6_0()
    : fd_(-1), shared_(makeShared(this))
{
}

ZUnixProcessReadWriteFileLock_6_0::ZUnixProcessReadWriteFileLock_6_0(char const* name)
    : ZAbstractProcessReadWriteFileLock_6_0(name), fd_(-1), shared_(makeShared(this))
{
}

ZUnixProcessReadWriteFileLock_6_0::ZUnixProcessReadWriteFileLock_6_0(char const* dir,
                                                                     char const* name)
    : ZAbstractProcessReadWriteFileLock_6_0(dir, name), fd_(-1), shared_(makeShared(this))
{
}

ZUnixProcessReadWriteFileLock_6_0::~ZUnixProcessReadWriteFileLock_6_0()
{
    // KEPT: the file is not closed under a lock that is held: what its writer was about to change
    // may be half changed. Test: ZProcessReadWriteFileLock.KeepsTheFileLockedThatAHeldLockLeaves
    if (getLockState() != unset)
        shared_->abandon();
    delete shared_;
}

void ZUnixProcessReadWriteFileLock_6_0::lockFile(zlockstate state)
{
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        try {
            ZAbstractProcessReadWriteFileLock_6_0::lockFile(state);
        } catch (...) {
            closeLockFile();
            throw;
        }
        // Who comes next locks the file that has the name: where somebody has removed or replaced
        // ours meanwhile, that would be another one.
        if (!shared_->isOpen() || shared_->isNamed(getLockFileName()))
            return;
        closeLockFile();
    }
    ZLockResourceException_6_0(lockFailed, ESTALE).throwException(kSource, raiseForReplacedFile);
}

void ZUnixProcessReadWriteFileLock_6_0::unlockFile()
{
    try {
        ZAbstractProcessReadWriteFileLock_6_0::unlockFile();
    } catch (...) {
        if (getLockState() == unset)  // an acquisition is taken back: closing frees everything
            closeLockFile();
        throw;
    }
    closeLockFile();
}

void ZUnixProcessReadWriteFileLock_6_0::dolock(zlockstate state)
{
    ZAbstractProcessReadWriteFileLock_6_0::dolock(state);
}

void ZUnixProcessReadWriteFileLock_6_0::lockFileRange(zlockstate state, unsigned int start,
                                                      unsigned int length)
{
    if (getLockStateName(state) == nullptr)
        raiseInvalidState(kSource, raiseInLockFileRange);
    if (state == unset) {
        int const error = shared_->isOpen() ? shared_->unlock(start, length) : 0;
        if (error != 0)
            ZUnlockResourceException_6_0(unlockFailed, error)
                .throwException(kSource, raiseInUnlock);
        return;
    }
    if (getFileHandle() == -1)
        createLockFile();
    short const type = state == read ? F_RDLCK : F_WRLCK;
    int const error = withMemory(
        [&] { return shared_->isOpen() ? shared_->lockWaiting(type, start, length) : EBADF; });
    if (error != 0)
        ZLockResourceException_6_0(lockFailed, error).throwException(kSource, raiseInLock);
}

void ZUnixProcessReadWriteFileLock_6_0::unlockFileRange(unsigned int start, unsigned int length)
{
    lockFileRange(unset, start, length);
}

void ZUnixProcessReadWriteFileLock_6_0::writeBytes(void* bytes, unsigned int offset,
                                                   unsigned int length)
{
    ZCancelGuard const uncancelled;
    int const fd = getFileHandle();
    // A process that takes the gate again finds its id there. Reading it is quick, but the file is
    // opened such that every write waits for the disk.
    uint32_t there;
    if (offset == kProcessId.start && length == sizeof there &&
        pread(fd, &there, sizeof there, offset) == sizeof there &&
        memcmp(&there, bytes, sizeof there) == 0)
        return;
    ZSizeSignalGuard const noSignal;
    auto const* const from = static_cast<char const*>(bytes);
    if (movesAll(length, [&](unsigned done) {
            return pwrite(fd, from + done, length - done, off_t{offset} + done);
        }))
        return;
    int const error = errno;
    setSequence(0);
    // KEPT: the message of a lock that could not be obtained, which scripts that watch the reports
    // look for. Test: ZProcessReadWriteFileLock.KeepsTheMessageOfAFailedWrite
    ZWriteResourceException_6_0(lockFailed, error).throwException(kSource, raiseInWriteBytes);
}

void ZUnixProcessReadWriteFileLock_6_0::readBytes(void* bytes, unsigned int offset,
                                                  unsigned int length)
{
    ZCancelGuard const uncancelled;
    int const fd = getFileHandle();
    auto* const to = static_cast<char*>(bytes);
    if (movesAll(length, [&](unsigned done) {
            return pread(fd, to + done, length - done, off_t{offset} + done);
        }))
        return;
    int rc = errno;
    if (rc == 0) {  // the end of the file: an empty one holds nothing yet, any other is torn
        struct stat status;
        if (stat(getLockFileName(), &status) != 0)
            rc = errno;
        else if (status.st_size == 0)
            return;
        else
            rc = kTornFile;
    }
    ZReadResourceException_6_0(readFailed, rc).throwException(kSource, raiseInReadBytes);
}

void ZUnixProcessReadWriteFileLock_6_0::createLockFile()
{
    if (shared_->isOpen())  // opening it again would close it, and free what is locked
        return;
    constexpr int kFlags = O_RDWR | O_SYNC | O_NOFOLLOW | O_NONBLOCK;
    auto const openWith = [this](int flags) {
        return withMemory([&] { return shared_->open(getLockFileName(), flags, kMode, refusal); });
    };
    // The kernel may refuse O_CREAT for an existing file of another user in a sticky directory
    // (fs.protected_regular), even to root. Hence O_CREAT only for a file that is missing.
    int error = openWith(kFlags);
    for (int attempt = 0; error == ENOENT && attempt < kAttempts; ++attempt) {
        error = openWith(kFlags | O_CREAT | O_EXCL);
        if (error == EEXIST)  // another process has made it meanwhile, and may have removed it
            error = openWith(kFlags);
    }
    // KEPT: the errno of a failed open is lost; callers know EBADF, which the lock of the range
    // that is asked for next raises. Test: ZProcessReadWriteFileLock.KeepsAFailedOpenToItself
    __atomic_store_n(&fd_, error == 0 ? shared_->descriptor() : -1, __ATOMIC_RELAXED);
}

void ZUnixProcessReadWriteFileLock_6_0::closeLockFile()
{
    shared_->close();
    __atomic_store_n(&fd_, -1, __ATOMIC_RELAXED);
}

int ZUnixProcessReadWriteFileLock_6_0::getFileHandle() const
{
    return __atomic_load_n(&fd_, __ATOMIC_RELAXED);
}

// ---- Without a file ----------------------------------------------------------------------------

ZStubProcessReadWriteFileLock_6_0::ZStubProcessReadWriteFileLock_6_0() : stored_(0)
{
}

ZStubProcessReadWriteFileLock_6_0::ZStubProcessReadWriteFileLock_6_0(char const* name)
    : ZAbstractProcessReadWriteFileLock_6_0(name), stored_(0)
{
}

ZStubProcessReadWriteFileLock_6_0::ZStubProcessReadWriteFileLock_6_0(char const* dir,
                                                                     char const* name)
    : ZAbstractProcessReadWriteFileLock_6_0(dir, name), stored_(0)
{
}

ZStubProcessReadWriteFileLock_6_0::~ZStubProcessReadWriteFileLock_6_0() = default;

void ZStubProcessReadWriteFileLock_6_0::lockFile(zlockstate)
{
}

void ZStubProcessReadWriteFileLock_6_0::unlockFile()
{
}

void ZStubProcessReadWriteFileLock_6_0::lockFileRange(zlockstate, unsigned int, unsigned int)
{
}

void ZStubProcessReadWriteFileLock_6_0::unlockFileRange(unsigned int, unsigned int)
{
}

void ZStubProcessReadWriteFileLock_6_0::readSequenceNumber(unsigned long* sequence)
{
    if (sequence != nullptr)
        *sequence = stored_;
}

void ZStubProcessReadWriteFileLock_6_0::writeSequenceNumber(unsigned long sequence)
{
    stored_ = static_cast<uint32_t>(sequence);
}

void ZStubProcessReadWriteFileLock_6_0::writeBytes(void*, unsigned int, unsigned int)
{
}

void ZStubProcessReadWriteFileLock_6_0::readBytes(void*, unsigned int, unsigned int)
{
}
