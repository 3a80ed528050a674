#include "ZProcessReadWriteFileLock.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <new>

#include "ZException.h"
#include "files/lock_file.h"
#include "files/shared_file.h"
#include "files/size_signal_guard.h"
#include "locks/hold_counters.h"
#include "memory/out_of_memory.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZProcessReadWriteFileLock";

// Stable ids in reports; log scanners match them. See docs/failures.md.
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

using enum zreporting::Message;
using zfiles::LockFile;

constexpr mode_t kMode = S_ISGID | S_IRUSR | S_IWUSR;
constexpr int kAttempts = 100;  // acquisitions of a file that keeps being replaced
constexpr int kTornFile = -1;   // rc of a read from a file with 1 to 3 bytes

// Returns an errno if the lock may not use this file, whose first bytes it would overwrite; else 0.
int checkLockFile(struct stat const& status)
{
    // Another user may have linked one of our files to the lock's path. A file without a name was
    // just removed; lockFile() detects that.
    if (status.st_nlink > 1)
        return EMLINK;
    // An owner that shares a file, by group, others or ACL, makes it writable for the group or
    // others. Root may use any user's file: it takes locks of every user's programs.
    bool const isShared = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    uid_t const self = geteuid();
    bool const isTrusted = status.st_uid == self || status.st_uid == 0 || self == 0;
    return isTrusted || isShared ? 0 : EPERM;
}

int holdsOfCaller(ZAbstractReadWriteLock_6_0 const& lock)
{
    auto const* const file = dynamic_cast<ZAbstractProcessReadWriteFileLock_6_0 const*>(&lock);
    return file != nullptr ? zfiles::LockClaims::countHeld(file) : -1;
}

// Runs a step of the protocol while another failure is in flight, and reports its exception.
// Returns whether it succeeded. Steps are virtual, so they can throw anything.
template <class Step>
bool rollBack(Step step)
{
    return zreporting::runCleanup({kSource, reportInCleanUp}, step);
}

// Calls `transfer(done)`, which reads or writes the bytes from `done` on, until `length` bytes are
// transferred. Returns false on failure, with errno set; 0 means that a call transferred nothing.
// Returns false for `length` 0.
template <class Transfer>
bool transferAll(unsigned length, Transfer transfer)
{
    unsigned done = 0;
    while (done < length) {
        ssize_t const n = transfer(done);
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

// zfiles::LockClaims knows a lock object by the address of this base.
zfiles::SharedFile* makeShared(ZAbstractProcessReadWriteFileLock_6_0 const* object)
{
    return zmemory::translateBadAlloc(kSource, raiseForMemory,
                                      [object] { return new zfiles::SharedFile(object); });
}

}  // namespace

// ---- The protocol ------------------------------------------------------------------------------
//
// States of the process on the file. `readers` is the number of its reading threads, all of which
// hold the lock between threads.
//
// from   event                             to      file
// unset  dolock(read)                      read    gate, id, data shared, gate free; read sequence
// unset  dolock(protect), dolock(write)    write   gate, id, data exclusive; read sequence
// read   dolock(read)                      read    nothing
// read   dolock(unset), readers > 1        read    nothing
// read   dolock(unset), readers = 1        unset   data free, closed
// write  dolock(unset)                     unset   data free, gate free, closed
// A failed acquisition restores the previous state. A failed release leaves the lock held.

ZAbstractProcessReadWriteFileLock_6_0::ZAbstractProcessReadWriteFileLock_6_0()
{
    zlocks::holdsOfCaller.store(holdsOfCaller, std::memory_order_relaxed);
    ZAbstractProcessReadWriteFileLock_6_0::setLockFileName(getLockName());
}

ZAbstractProcessReadWriteFileLock_6_0::ZAbstractProcessReadWriteFileLock_6_0(char const* name)
    : ZAbstractProcessReadWriteLock_6_0(name)
{
    zlocks::holdsOfCaller.store(holdsOfCaller, std::memory_order_relaxed);
    ZAbstractProcessReadWriteFileLock_6_0::setLockFileName(getLockName());
}

ZAbstractProcessReadWriteFileLock_6_0::ZAbstractProcessReadWriteFileLock_6_0(char const* dir,
                                                                             char const* name)
    : ZAbstractProcessReadWriteLock_6_0(name)
{
    zlocks::holdsOfCaller.store(holdsOfCaller, std::memory_order_relaxed);
    ZAbstractProcessReadWriteFileLock_6_0::setLockDirName(dir);
    ZAbstractProcessReadWriteFileLock_6_0::setLockFileName(getLockName());
}

ZAbstractProcessReadWriteFileLock_6_0::~ZAbstractProcessReadWriteFileLock_6_0()
{
    if (ZAbstractProcessReadWriteLock_6_0::getLockState() != unset)
        zfiles::LockClaims::dropAll(this);
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
    // KEPT: a reader that must notify observers ends up with the write lock and does not increment
    // the number. Observers update the protected data, so they need the write lock, and
    // updating their copy is not a change that other processes should read again.
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
    // Another thread may have seen the change while this thread waited for the write lock.
    if (isCurrent() == 0)
        notifyObservers(ZSequenceUpdate_6_0(getSequence(), getLastSequence()));
}

unsigned long ZAbstractProcessReadWriteFileLock_6_0::incSequence()
{
    if (getLockState() != write)
        raiseInvalidState(kSource, raiseInIncSequence);
    // After a failed write the number here may be lower than the number in the file. Incrementing
    // it could give the file a number that another process has already seen.
    if (isSequenceLost()) {
        unsigned long sequence = 0;
        try {
            readSequenceNumber(&sequence);
        } catch (ZReadResourceException_6_0 const& failure) {
            ZWriteResourceException_6_0(lockFailed, failure.returnCode())
                .throwException(kSource, raiseInIncSequence);
        }
        setSequence(sequence);
    }
    unsigned long const next = nextSequence();
    setSequenceLost(true);
    writeSequenceNumber(next);
    setSequenceLost(false);
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
    // Change both or neither: setLockFileName() can run out of memory.
    ZLCString_6_0 const before(directory_);
    directory_ = dir;
    try {
        setLockFileName(getLockName());
    } catch (...) {
        directory_ = before;  // does not throw: the capacity is sufficient
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
    path += LockFile::kPrefix;
    // KEPT: a "/" is accepted. A program with lock files in directories whose names start with the
    // prefix would lose them. Test: ZProcessReadWriteFileLock.KeepsASlashInTheName
    path += name;
    path_ = path;
}

void ZAbstractProcessReadWriteFileLock_6_0::lockFile(zlockstate state)
{
    lockFileRange(write, LockFile::kProcessId.start, LockFile::kProcessId.length);
    try {
        writePid();
        lockFileRange(state, LockFile::kSequence.start, LockFile::kSequence.length);
    } catch (...) {
        rollBack(
            [this] { unlockFileRange(LockFile::kProcessId.start, LockFile::kProcessId.length); });
        throw;
    }
    // A writer keeps the gate, so that new readers wait while it waits for readers to leave.
    if (state != read)
        return;
    try {
        unlockFileRange(LockFile::kProcessId.start, LockFile::kProcessId.length);
    } catch (...) {
        rollBack(
            [this] { unlockFileRange(LockFile::kSequence.start, LockFile::kSequence.length); });
        throw;
    }
}

void ZAbstractProcessReadWriteFileLock_6_0::unlockFile()
{
    unlockFileRange(LockFile::kSequence.start, LockFile::kSequence.length);
    if (getLockState() == write)
        unlockFileRange(LockFile::kProcessId.start, LockFile::kProcessId.length);
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
    // Drop the claim first: the thread no longer waits for anything.
    auto const undo = [this] {
        zfiles::LockClaims::drop(this);
        rollBack([this] { ZAbstractProcessReadWriteLock_6_0::lock(unset); });
    };
    short const type = state == read ? F_RDLCK : F_WRLCK;
    if (int const error = zmemory::translateBadAlloc(
            kSource, raiseForMemory, [&] { return zfiles::LockClaims::ask(this, type); }))
        ZLockResourceException_6_0(lockFailed, error).throwException(kSource, raiseInLock);
    try {
        ZAbstractProcessReadWriteLock_6_0::lock(state);
    } catch (...) {
        zfiles::LockClaims::drop(this);
        throw;
    }
    zfiles::LockClaims::hold(this);
    try {
        file_.lock();
    } catch (...) {
        undo();
        throw;
    }
    // Undo the acquisition while the file mutex is held. Otherwise a leaving reader would count
    // this failed reader among the remaining ones, and would leave the file locked.
    try {
        if (getLockState() == unset)
            acquireFile(state);
        else if (state == write)  // no thread here holds it, but the file is locked
            raiseInvalidState(kSource, raiseInDolockOfHeld);
    } catch (...) {
        undo();
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
        setSequenceLost(false);
    } catch (...) {
        dropFile();
        throw;
    }
}

void ZAbstractProcessReadWriteFileLock_6_0::dropFile()
{
    bool const freed = rollBack([this] { unlockFile(); });
    setLockState(unset);
    if (!freed)  // in the state "unset" unlockFile() also closes the file
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
    zfiles::LockClaims::drop(this);
    ZAbstractProcessReadWriteLock_6_0::lock(unset);
}

// The file stores the number in 32 bits, whatever the size of `long`.
void ZAbstractProcessReadWriteFileLock_6_0::readSequenceNumber(unsigned long* sequence)
{
    if (sequence == nullptr)
        return;
    auto word = static_cast<uint32_t>(*sequence);
    readBytes(&word, LockFile::kSequence.start, LockFile::kSequence.length);
    *sequence = word;
}

void ZAbstractProcessReadWriteFileLock_6_0::writeSequenceNumber(unsigned long sequence)
{
    auto word = static_cast<uint32_t>(sequence);
    writeBytes(&word, LockFile::kSequence.start, LockFile::kSequence.length);
}

void ZAbstractProcessReadWriteFileLock_6_0::writePid()
{
    auto word = static_cast<uint32_t>(getpid());
    writeBytes(&word, LockFile::kProcessId.start, LockFile::kProcessId.length);
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
    // KEPT: destroying a held lock does not close its file: other processes would read the
    // half-written data of its writer.
    // Test: ZProcessReadWriteFileLock.KeepsTheFileOfADestroyedHeldLockLocked
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
        // The next process locks whatever file has the name. If our file was removed or replaced,
        // that is a different file: try again.
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
        if (getLockState() == unset)  // undoing an acquisition: closing releases all ranges
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
    int const error = zmemory::translateBadAlloc(kSource, raiseForMemory, [&] {
        return shared_->isOpen() ? shared_->lockWaiting(type, start, length) : EBADF;
    });
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
    zreporting::CancelGuard const uncancelled;
    int const fd = getFileHandle();
    // If the file already has our id, skip the write. A read is cheap, but O_SYNC makes every write
    // wait for the disk.
    uint32_t there;
    if (offset == LockFile::kProcessId.start && length == sizeof there &&
        pread(fd, &there, sizeof there, offset) == sizeof there &&
        memcmp(&there, bytes, sizeof there) == 0)
        return;
    zfiles::SizeSignalGuard const noSignal;
    auto const* const from = static_cast<char const*>(bytes);
    if (transferAll(length, [&](unsigned done) {
            return pwrite(fd, from + done, length - done, off_t{offset} + done);
        }))
        return;
    int const error = errno;
    setSequence(0);
    // KEPT: a failed write has the message of a lock that could not be acquired. A log scanner that
    // matches 33 would miss it under another number.
    // Test: ZProcessReadWriteFileLock.KeepsTheMessageOfAFailedWrite
    ZWriteResourceException_6_0(lockFailed, error).throwException(kSource, raiseInWriteBytes);
}

void ZUnixProcessReadWriteFileLock_6_0::readBytes(void* bytes, unsigned int offset,
                                                  unsigned int length)
{
    zreporting::CancelGuard const uncancelled;
    int const fd = getFileHandle();
    auto* const to = static_cast<char*>(bytes);
    if (transferAll(length, [&](unsigned done) {
            return pread(fd, to + done, length - done, off_t{offset} + done);
        }))
        return;
    int rc = errno;
    if (rc == 0) {  // end of the file: an empty file is valid, any other is torn
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
    if (shared_->isOpen())  // open() would close the file first and so release its locks
        return;
    constexpr int kFlags = O_RDWR | O_SYNC | O_NOFOLLOW | O_NONBLOCK;
    auto const openWith = [this](int flags) {
        return zmemory::translateBadAlloc(kSource, raiseForMemory, [&] {
            return shared_->open(getLockFileName(), flags, kMode, checkLockFile);
        });
    };
    // The kernel can refuse O_CREAT for another user's file in a sticky directory
    // (fs.protected_regular), even to root. So pass O_CREAT only if the file is missing.
    int error = openWith(kFlags);
    for (int attempt = 0; error == ENOENT && attempt < kAttempts; ++attempt) {
        error = openWith(kFlags | O_CREAT | O_EXCL);
        if (error == EEXIST)  // another process created it, and may have removed it again
            error = openWith(kFlags);
    }
    // KEPT: the errno of a failed open is lost. The caller gets EBADF from the next
    // lockFileRange(); a program that creates the directory of its lock files when it gets EBADF
    // would not do so for another code.
    // Test: ZProcessReadWriteFileLock.KeepsTheErrnoOfAFailedOpenHidden
    std::atomic_ref(fd_).store(error == 0 ? shared_->descriptor() : -1, std::memory_order_relaxed);
}

void ZUnixProcessReadWriteFileLock_6_0::closeLockFile()
{
    shared_->close();
    std::atomic_ref(fd_).store(-1, std::memory_order_relaxed);
}

int ZUnixProcessReadWriteFileLock_6_0::getFileHandle() const
{
    return std::atomic_ref(const_cast<int&>(fd_)).load(std::memory_order_relaxed);
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
