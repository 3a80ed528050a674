// ZFleetReadWriteLock: a read-write lock between the machines that use a cluster.
//
// Subsystem: fleet.  Stands on: ZFleetConnection and the foundation's ZProcessReadWriteFileLock,
// ZObserver.
//
// The path "etcd://FLEET/NAME" names the lock NAME of a fleet; docs/fleet.md describes fleets.
// Readers share the lock, a writer excludes all others, and they get it in the order of their
// requests. Each acquisition has a token, which is higher than all earlier ones.
//
// The cluster can only promise the lock for a time, the lease: a program that is stopped, or cut
// off from the cluster for longer, loses the lock without noticing. remaining() is the time for
// which the lock is certain to be held. keepAlive() extends it, and so does a ZFleetKeeper_6_0.
// A change that needs the lock is guarded by the token: stores by
// ZFleetProperties_6_0::setFence(), other resources by refusing a lower token than their highest.
//
// Ownership: a lock owns its strings and a reference to the connection.
// Threads: as ZAbstractProcessReadWriteFileLock_6_0. token(), remaining(), isLost() and keepAlive()
// may be called by any thread at any time.
// Processes: a child of fork() cannot use the lock.
#pragma once

#include <Z/ZObserver.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <stdint.h>

/// Notification that a lock was lost while it was held.
class ZFleetLockLost_6_0 : public ZObservedParm_6_0 {
public:
    explicit ZFleetLockLost_6_0(int64_t token);
    ZFleetLockLost_6_0(ZFleetLockLost_6_0 const& other);
    ZFleetLockLost_6_0& operator=(ZFleetLockLost_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZFleetLockLost_6_0() override;
    ZObject_6_0* clone() const override;

    /// Returns the token of the lost acquisition.
    int64_t token() const { return token_; }

private:
    int64_t const token_;
};

/// A read-write lock between machines. Observers get ZSequenceUpdate_6_0 as from other locks
/// between processes, and ZFleetLockLost_6_0 if the lock was lost.
class ZFleetReadWriteLock_6_0 : public ZAbstractProcessReadWriteFileLock_6_0 {
public:
    /// Creates a free lock. Does not connect to the cluster.
    /// range   `path` is "etcd://FLEET/NAME".
    /// throws  ZInvalidParameterException_6_0 if the path does not start with "etcd://";
    ///         ZPropertiesIOException_6_0 (path, "etcd://", EINVAL) if it does not name a lock; as
    ///         ZFleetConnection_6_0::open().
    explicit ZFleetReadWriteLock_6_0(char const* path);

    using ZAbstractProcessReadWriteFileLock_6_0::lock;
    using ZAbstractProcessReadWriteFileLock_6_0::unlock;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Destroys the lock, and ends its lease: at most "call" of the file of the fleets.
    /// throws  as the base's. The lease of a held lock expires.
    ~ZFleetReadWriteLock_6_0() override;

    /// Acquires or releases the lock as the base does. A thread waits for other programs until
    /// the patience is over, and for the cluster at most for "budget" of the file of the fleets:
    /// then, or before, if the cluster refuses the request. While it waits in the queue, it also
    /// waits for a cluster that does not reply. A signal handler without SA_RESTART ends a wait.
    /// throws  as the base, with the errno of docs/fleet.md; ZLockResourceException_6_0 (message
    ///         33) with ETIMEDOUT when the patience is over, and with EINTR; ENOSPC if the
    ///         database of the cluster is full. ZReadResourceException_6_0 (message 35, rc -1)
    ///         if the sequence number in the cluster is not a number. Releasing, as unlock(0).
    void lock(zlockstate state) override;

    /// Releases the lock. A writer with `update` also increments the sequence number, in the same
    /// transaction: other programs see the new number if and only if the lock was released.
    /// throws  as the base. After a failure the lock is still held, and its numbers are unchanged.
    ///         ZWriteResourceException_6_0 with message 34 and ESTALE if the lock was lost: another
    ///         program may have had it, or the endpoints belong to another cluster than before.
    ///         `unlock(0)` releases it then.
    ///         ZWriteResourceException_6_0 with message 33 and ENOSPC if the database of the
    ///         cluster is full: other programs can acquire the lock, but do not see a new number.
    ///         `unlock(0)` releases it here. ZUnlockResourceException_6_0 (message 34) with
    ///         ETIMEDOUT if the cluster does not reply, and with EINPROGRESS if it is unknown
    ///         whether the number was incremented; remaining() is 0 then.
    void unlock(int update) override;
    void unlock(zlockstate) = delete;

    /// Returns an empty string: the lock is not in a directory.
    char const* getLockDirName() const override;

    /// Accepts only null and an empty string.
    /// throws  ZInvalidParameterException_6_0.
    void setLockDirName(char const* dir) override;

    /// Returns the path "etcd://FLEET/NAME".
    char const* getLockFileName() const override;

    /// Accepts only the path of the lock.
    /// throws  ZInvalidParameterException_6_0.
    void setLockFileName(char const* name) override;

    /// Waits in the queue until the lock is free for `state`.
    /// throws  as lock().
    void lockFile(zlockstate state) override;

    /// Leaves the queue, with the new sequence number, if writeSequenceNumber() was called.
    /// throws  as unlock().
    void unlockFile() override;

    // These do nothing: an entry of the queue is the whole lock.
    void lockFileRange(zlockstate state, unsigned int start, unsigned int length) override;
    void unlockFileRange(unsigned int start, unsigned int length) override;
    void writePid() override;
    void writeBytes(void* bytes, unsigned int offset, unsigned int length) override;
    void readBytes(void* bytes, unsigned int offset, unsigned int length) override;

    /// Returns the sequence number as of the acquisition, or the number that the release will
    /// write; reads it from the cluster if the lock is free. Leaves `sequence` unchanged if the
    /// cluster has no number.
    /// throws  ZReadResourceException_6_0 (message 35): rc -1 if it is not a number, else the
    ///         errno.
    void readSequenceNumber(unsigned long* sequence) override;

    /// Sets the number that the release will write.
    /// range   stored as 32 bits.
    /// throws  ZWriteResourceException_6_0 (message 33) with EBADF if the lock is not held for
    ///         writing.
    void writeSequenceNumber(unsigned long sequence) override;

    /// Sets the time that later acquisitions wait for other programs.
    /// units   milliseconds; 0: an acquisition fails unless the lock is free; negative: forever,
    ///         the default.
    /// threads any.
    void setPatience(int64_t milliseconds);

    /// Returns the fencing token of the acquisition, which is higher than the tokens of all
    /// earlier acquisitions by any program; 0 if the lock is not held.
    /// threads any.
    int64_t token() const;

    /// Returns the time for which no other program can acquire the lock; 0 if this is not certain,
    /// and if the lock is not held or was lost. Does not call the cluster.
    /// units   milliseconds, rounded down.
    /// threads any.
    int64_t remaining() const;

    /// Renews the lease of a held lock. Returns 1 if the lock is held, and 0 if it is not held or
    /// was lost: then the observers are notified on this thread, once.
    /// throws  ZLockResourceException_6_0 (message 33) with the errno if the cluster does not
    ///         reply or refuses; the lock is still held for remaining(). As an observer.
    /// threads any.
    /// cost    two calls, which take at most twice "call" of the file of the fleets.
    int keepAlive();

    /// Returns 1 if the lock was lost and has not been released since, else 0. Does not call the
    /// cluster, so a loss may be unknown yet.
    /// threads any.
    int isLost() const;

    struct Rep;

    /// Returns the hidden representation; of the library.
    Rep& rep() const { return *rep_; }

private:
    void notifyLoss();

    Rep* const rep_;  // never null
};
