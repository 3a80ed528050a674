// ZProcessReadWriteFileLock: read-write locks between processes, by record locks on a small file.
//
// Subsystem: process locks.  Stands on: ZProcessReadWriteLock, ZReadWriteLock, ZLock, ZLCString,
// ZObserver, ZException.
//
// Ownership: a lock owns its texts; the descriptor is shared by all locks of the process on one
// file.
// Threads: a lock is made for use by every thread at once, except for the functions that set a
// name. First the lock between the threads is taken, then the file mutex, then the ranges of the
// file: the gate, then the data. Only the first reader of a process and its writer touch the file.
// Waiting for another process can be cancelled, and ends with an exception when a signal handler
// runs that does not restart calls; a reader that finds another thread of its process waiting there
// waits for that one, which neither ends. Two lock objects of one process on one file exclude each
// other as two processes do. A thread that would wait for itself, over any number of objects and
// threads of the process, gets the exception with EDEADLK instead.
// Processes: readers of several processes share the lock, a writer is alone. A writer that waits
// keeps new readers of every process out.
//
// The lock file, "._zpl" and the name in the lock directory, in the byte order of the host. It is
// opened for as long as it is locked, and never removed:
//
//     0   4  sequence number; an empty file counts as 0
//     4   4  id of the process that took the gate last
//
// Its bytes are also what is locked: [0, 4) shared by readers, exclusive for a writer; [4, 8), the
// gate, always exclusive, by a reader while it enters, by a writer until it leaves.
#pragma once

#include "ZLCString.h"
#include "ZLock.h"
#include "ZProcessReadWriteLock.h"

class ZSharedFile;

/// The protocol of the lock file; how the file is locked, read and written is the derived class's.
class ZAbstractProcessReadWriteFileLock_6_0 : public ZAbstractProcessReadWriteLock_6_0 {
public:
    /// Makes a free lock with a random name, as the base does, in the working directory.
    ZAbstractProcessReadWriteFileLock_6_0();

    /// Makes a free lock called `name`, in the working directory.
    explicit ZAbstractProcessReadWriteFileLock_6_0(char const* name);

    /// Makes a free lock called `name`, in the directory `dir`.
    /// throws  as setLockDirName().
    ZAbstractProcessReadWriteFileLock_6_0(char const* dir, char const* name);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractProcessReadWriteFileLock_6_0() override;

    /// Returns the hash of the lock file's path.
    uint32_t hash() const override;

    /// Orders by the lock file's path.
    /// range   an object of another class sorts by its address, as objects do.
    int compare(ZObject_6_0 const& other) const override;

    /// Acquires the lock for writing.
    void lock() override;

    /// Acquires the lock for `state`, or releases it for "unset", then tells the observers when the
    /// sequence number is not the one that was seen last. The very first acquisition tells nobody.
    /// throws  ZLockResourceException_6_0 (message 33) with the errno: EINTR after a signal,
    ///         EDEADLK, EBADF when the file could not be opened;
    ///         ZWriteResourceException_6_0 (message 33), ZReadResourceException_6_0 (message 35);
    ///         what an observer throws; what ZReadWriteLock_6_0 throws. Nothing is held then.
    ///         ZInvalidResourceStateException_6_0 (message 32) when `state` is none, or the process
    ///         holds the lock in a way that it should not.
    ///         Releasing: ZUnlockResourceException_6_0 (message 34): the lock is still held.
    /// kept    who has observers to tell comes back with the write lock whatever was asked for, and
    ///         releasing that does not raise the number.
    void lock(zlockstate state) override;

    /// Raises the sequence number in the file and returns it; 0 follows 0xFFFFFFFE.
    /// throws  ZInvalidResourceStateException_6_0 (message 32) when the state is not "write";
    ///         ZWriteResourceException_6_0 (message 33).
    unsigned long incSequence() override;

    /// Returns the lock directory; empty for the working directory.
    /// owns    borrowed until it is set.
    virtual char const* getLockDirName() const;

    /// Moves the lock to another directory.
    /// range   null stands for the working directory.
    /// throws  ZInvalidParameterException_6_0 (message 22) when `dir` is no directory that its
    ///         owner may write and search; ZInvalidResourceStateException_6_0 (message 32) when the
    ///         lock is held and `dir` is another directory.
    virtual void setLockDirName(char const* dir);

    /// Returns the path of the lock file.
    /// owns    borrowed until it is set.
    virtual char const* getLockFileName() const;

    /// Takes the gate, enters the process id and locks the data; only a reader leaves the gate.
    /// throws  what the steps throw; the gate is free again then.
    virtual void lockFile(zlockstate state);

    /// Frees the data, and the gate in the state "write".
    virtual void unlockFile();

    /// Acquires or releases the lock between threads and processes; tells no observers.
    virtual void dolock(zlockstate state);

    /// Makes the path of the lock file from the lock directory and `name`.
    /// kept    a "/" in the name separates folders.
    virtual void setLockFileName(char const* name);

    /// Locks a range of the file, waiting for it: shared for "read", exclusive for "protect" and
    /// "write"; releases it for "unset".
    /// range   ranges of one file are the same or do not overlap.
    virtual void lockFileRange(zlockstate state, unsigned int start, unsigned int length) = 0;

    /// Releases a range of the file.
    virtual void unlockFileRange(unsigned int start, unsigned int length) = 0;

    /// Reads the sequence number from the file; an empty file leaves `sequence` as it is.
    /// throws  ZReadResourceException_6_0 (message 35): rc -1 for a file of 1 to 3 bytes, else the
    ///         errno.
    virtual void readSequenceNumber(unsigned long* sequence);

    /// Writes the sequence number into the file.
    /// range   kept as 32 bits.
    /// throws  ZWriteResourceException_6_0 (message 33).
    virtual void writeSequenceNumber(unsigned long sequence);

    /// Writes the process id into the file.
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
    ZLock_6_0 file_;  // held around what a thread does with the file
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
    /// kept    what a held lock has locked stays locked, and its descriptor open, until the process
    ///         ends: nobody sees what its writer has left half done.
    ~ZUnixProcessReadWriteFileLock_6_0() override;

    /// Locks the file as the base does, and once more when it is no longer the one that its name
    /// means.
    void lockFile(zlockstate state) override;

    /// Frees the data, and the gate in the state "write"; closes the file.
    void unlockFile() override;

    /// Acquires or releases as the base does.
    void dolock(zlockstate state) override;

    /// throws  ZLockResourceException_6_0 (message 33), for "unset" ZUnlockResourceException_6_0
    ///         (message 34), with the errno; ZInvalidResourceStateException_6_0 (message 32) when
    ///         `state` is none.
    void lockFileRange(zlockstate state, unsigned int start, unsigned int length) override;
    void unlockFileRange(unsigned int start, unsigned int length) override;

    /// throws  ZWriteResourceException_6_0 with the errno, EFBIG at the file-size limit of the
    ///         process (no SIGXFSZ is delivered); the sequence number is 0 then.
    /// kept    the message is 33, as for a lock that could not be obtained.
    void writeBytes(void* bytes, unsigned int offset, unsigned int length) override;

    /// throws  ZReadResourceException_6_0 (message 35) with the errno; -1 when the file ends before
    ///         `length` bytes. An empty file leaves `bytes` as they are.
    void readBytes(void* bytes, unsigned int offset, unsigned int length) override;

    /// Opens the lock file, making it when it is missing; one that is open stays as it is.
    /// range   a regular file with one name. It belongs to the effective user or root, or its mode
    ///         allows its group or others to write; root may use every user's.
    /// kept    a failure shows only in what is done with the file next: errno EBADF.
    virtual void createLockFile();

    /// Closes the lock file; what this object has locked of it is free then.
    virtual void closeLockFile();

    /// Returns the descriptor of the lock file; -1 while it is closed.
    int getFileHandle() const;

private:
    int fd_;                     // read and written as a relaxed atomic
    ZSharedFile* const shared_;  // never null
};

/// A file lock without a file: it excludes only the threads of this process and keeps the sequence
/// number in memory.
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

    /// Stores the number kept in memory; null is ignored.
    void readSequenceNumber(unsigned long* sequence) override;

    /// Keeps the number in memory.
    /// range   kept as 32 bits.
    void writeSequenceNumber(unsigned long sequence) override;

    // These do nothing.
    void writeBytes(void* bytes, unsigned int offset, unsigned int length) override;
    void readBytes(void* bytes, unsigned int offset, unsigned int length) override;

private:
    uint32_t stored_;
};
