// ZProcessReadWriteFileLock: read-write locks between processes, by record locks on a small file.
//
// Subsystem: process locks.  Stands on: ZProcessReadWriteLock, ZReadWriteLock, ZLock, ZLCString,
// ZObserver, ZException.
//
// Ownership: a lock owns its strings; all locks of the process on one file share its descriptor.
// Threads: any number of threads may use a lock at the same time, except for the functions that set
// a name. A thread acquires the lock between threads, then the file mutex, then the ranges of the
// file: the gate, then the data. Only the first reader and the writer of a process access the file.
// Waits: pthread_cancel() ends a wait for another process. A signal handler that does not restart
// calls ends it with an exception. A reader waits for a thread of its own process that already
// waits there; neither of the two ends that wait. A thread that would wait for itself, over any
// number of objects and threads of the process, gets an exception with EDEADLK instead. Two lock
// objects of one process on one file exclude each other like two processes.
// Processes: readers of several processes share the lock; a writer excludes all others. A waiting
// writer blocks new readers of every process.
//
// The lock file is "._zpl" followed by the name, in the lock directory, in the host's byte order.
// It is open while it is locked, and is never removed:
//
//     0   4  sequence number; 0 if the file is empty
//     4   4  id of the process that last took the gate
//
// The record locks are on the same bytes. Readers share [0, 4), a writer has it exclusively. [4, 8)
// is the gate, always exclusive: a reader holds it while it acquires the data, a writer until it
// releases.
#pragma once

#include "ZLCString.h"
#include "ZLock.h"
#include "ZProcessReadWriteLock.h"

namespace zfiles {
class SharedFile;
}  // namespace zfiles

/// The protocol of the lock file. A derived class locks, reads and writes the file.
class ZAbstractProcessReadWriteFileLock_6_0 : public ZAbstractProcessReadWriteLock_6_0 {
public:
    /// Creates a free lock with a random name, as the base does, in the working directory.
    ZAbstractProcessReadWriteFileLock_6_0();

    /// Creates a free lock called `name`, in the working directory.
    explicit ZAbstractProcessReadWriteFileLock_6_0(char const* name);

    /// Creates a free lock called `name`, in the directory `dir`.
    /// throws  as setLockDirName().
    ZAbstractProcessReadWriteFileLock_6_0(char const* dir, char const* name);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractProcessReadWriteFileLock_6_0() override;

    /// Returns the hash of the lock file's path.
    uint32_t hash() const override;

    /// Orders by the lock file's path.
    /// range   orders an object of another class by its address, as ZObject_6_0 does.
    int compare(ZObject_6_0 const& other) const override;

    /// Acquires the lock for writing.
    void lock() override;

    /// Acquires the lock for `state`, or releases it for "unset". After acquiring, notifies the
    /// observers if the sequence number differs from the last one seen. The first acquisition of an
    /// object notifies no one.
    /// throws  acquiring, after which nothing is held: ZLockResourceException_6_0 (message 33) with
    ///         the errno (EINTR after a signal, EDEADLK, EBADF if the file could not be opened);
    ///         ZWriteResourceException_6_0 (message 33); ZReadResourceException_6_0 (message 35);
    ///         as an observer or ZReadWriteLock_6_0. Releasing, after which the lock is still held:
    ///         ZUnlockResourceException_6_0 (message 34). ZInvalidResourceStateException_6_0
    ///         (message 32) if `state` is not a state, or if the process holds the lock in an
    ///         impossible state.
    /// kept    a thread that notifies observers returns with the write lock even if another state
    ///         was requested; releasing that lock does not increment the number.
    void lock(zlockstate state) override;

    /// Increments the sequence number in the file and returns it; 0 follows 0xFFFFFFFE.
    /// throws  ZInvalidResourceStateException_6_0 (message 32) if the state is not "write";
    ///         ZWriteResourceException_6_0 (message 33), also if the number must be read again, as
    ///         after a failed write, and cannot be read.
    unsigned long incSequence() override;

    /// Returns the lock directory; empty for the working directory.
    /// owns    borrowed until the directory is set.
    virtual char const* getLockDirName() const;

    /// Moves the lock to another directory.
    /// range   null is the working directory.
    /// throws  ZInvalidParameterException_6_0 (message 22) if `dir` is not a directory that its
    ///         owner may write and search; ZInvalidResourceStateException_6_0 (message 32) if the
    ///         lock is held and `dir` is another directory.
    virtual void setLockDirName(char const* dir);

    /// Returns the path of the lock file.
    /// owns    borrowed until the path is set.
    virtual char const* getLockFileName() const;

    /// Acquires the gate, writes the process id and locks the data; a reader then releases the
    /// gate.
    /// throws  as the steps; the gate is free again then.
    virtual void lockFile(zlockstate state);

    /// Releases the data and, in the state "write", the gate.
    virtual void unlockFile();

    /// Acquires or releases the lock between threads and processes; does not notify observers.
    virtual void dolock(zlockstate state);

    /// Builds the path of the lock file from the lock directory and `name`.
    /// kept    a "/" in the name separates directories.
    virtual void setLockFileName(char const* name);

    /// Waits for a range of the file and locks it: shared for "read", exclusive for "protect" and
    /// "write". Releases it for "unset".
    /// range   ranges of one file are identical or disjoint.
    virtual void lockFileRange(zlockstate state, unsigned int start, unsigned int length) = 0;

    /// Releases a range of the file.
    virtual void unlockFileRange(unsigned int start, unsigned int length) = 0;

    /// Reads the sequence number from the file; leaves `sequence` unchanged if the file is empty.
    /// throws  ZReadResourceException_6_0 (message 35): rc -1 for a file of 1 to 3 bytes, else the
    ///         errno.
    virtual void readSequenceNumber(unsigned long* sequence);

    /// Writes the sequence number to the file.
    /// range   stored as 32 bits.
    /// throws  ZWriteResourceException_6_0 (message 33).
    virtual void writeSequenceNumber(unsigned long sequence);

    /// Writes the process id to the file.
    /// throws  ZWriteResourceException_6_0 (message 33).
    virtual void writePid();

    /// Writes `length` bytes at `offset` of the file.
    virtual void writeBytes(void* bytes, unsigned int offset, unsigned int length) = 0;

    /// Reads `length` bytes at `offset` of the file.
    virtual void readBytes(void* bytes, unsigned int offset, unsigned int length) = 0;

private:
    enum class Release { ifItSucceeds, whateverHappens };

    void acquire(zlockstate state);
    void acquireFile(zlockstate state);
    void dropFile();
    void release(Release how);
    void notifyLockObservers();

    ZLCString_6_0 directory_;
    ZLCString_6_0 path_;
    ZLock_6_0 file_;  // held while a thread uses the file
};

/// A read-write lock between processes.
class ZUnixProcessReadWriteFileLock_6_0 : public ZAbstractProcessReadWriteFileLock_6_0 {
public:
    // As the base's.
    ZUnixProcessReadWriteFileLock_6_0();
    explicit ZUnixProcessReadWriteFileLock_6_0(char const* name);
    ZUnixProcessReadWriteFileLock_6_0(char const* dir, char const* name);

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Destroys the lock.
    /// throws  as the base's.
    /// kept    if the lock is held, its ranges stay locked and its descriptor stays open until the
    ///         process ends, so that no other process reads half-written data.
    ~ZUnixProcessReadWriteFileLock_6_0() override;

    /// Locks the file as the base does; locks again if the path no longer refers to the locked
    /// file.
    void lockFile(zlockstate state) override;

    /// Releases the data and, in the state "write", the gate; closes the file.
    void unlockFile() override;

    /// Acquires or releases as the base does.
    void dolock(zlockstate state) override;

    /// Waits for a range of the file and locks it, or releases it for "unset", with a record lock.
    /// throws  ZLockResourceException_6_0 (message 33), or ZUnlockResourceException_6_0 (message
    ///         34) for "unset", with the errno; ZInvalidResourceStateException_6_0 (message 32) if
    ///         `state` is not a state.
    void lockFileRange(zlockstate state, unsigned int start, unsigned int length) override;
    void unlockFileRange(unsigned int start, unsigned int length) override;

    /// Writes bytes to the lock file.
    /// throws  ZWriteResourceException_6_0 with the errno, EFBIG at the file-size limit of the
    ///         process (no SIGXFSZ is delivered); the sequence number is 0 then.
    /// kept    the message is 33, as for a lock that could not be acquired.
    void writeBytes(void* bytes, unsigned int offset, unsigned int length) override;

    /// Reads bytes from the lock file.
    /// throws  ZReadResourceException_6_0 (message 35) with the errno, or -1 if the file ends
    ///         before `length` bytes. An empty file leaves `bytes` unchanged.
    void readBytes(void* bytes, unsigned int offset, unsigned int length) override;

    /// Opens the lock file and creates it if it is missing. Does nothing if it is open.
    /// range   a regular file with one name, owned by the effective user or root, or writable for
    ///         its group or others. Root may use any user's file.
    /// kept    does not report a failure; the next operation on the file fails with EBADF.
    virtual void createLockFile();

    /// Closes the lock file and so releases the ranges that this object has locked.
    virtual void closeLockFile();

    /// Returns the descriptor of the lock file; -1 while it is closed.
    int getFileHandle() const;

protected:
    /// Returns the library's reference to the lock file.
    /// owns    borrowed; the lock owns it.
    zfiles::SharedFile& sharedFile() const { return *shared_; }

private:
    int fd_;                            // read and written as a relaxed atomic
    zfiles::SharedFile* const shared_;  // never null
};

/// A file lock without a file: excludes only threads of this process and keeps the sequence number
/// in memory.
class ZStubProcessReadWriteFileLock_6_0 : public ZAbstractProcessReadWriteFileLock_6_0 {
public:
    // As the base's.
    ZStubProcessReadWriteFileLock_6_0();
    explicit ZStubProcessReadWriteFileLock_6_0(char const* name);
    ZStubProcessReadWriteFileLock_6_0(char const* dir, char const* name);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZStubProcessReadWriteFileLock_6_0() override;

    // These do nothing.
    void lockFile(zlockstate state) override;
    void unlockFile() override;
    void lockFileRange(zlockstate state, unsigned int start, unsigned int length) override;
    void unlockFileRange(unsigned int start, unsigned int length) override;

    /// Stores the number kept in memory in `sequence`; ignores null.
    void readSequenceNumber(unsigned long* sequence) override;

    /// Keeps the number in memory.
    /// range   stored as 32 bits.
    void writeSequenceNumber(unsigned long sequence) override;

    // These do nothing.
    void writeBytes(void* bytes, unsigned int offset, unsigned int length) override;
    void readBytes(void* bytes, unsigned int offset, unsigned int length) override;

private:
    uint32_t stored_;
};
