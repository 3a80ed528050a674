// ZProcessReadWriteLock: base of read-write locks between processes, and a stub that excludes only
// threads of its own process.
//
// Subsystem: process locks.  Stands on: ZReadWriteLock, ZLock, ZLCString, ZException.
//
// The lock also tells its holder whether anything changed since it was last held. A writer that
// releases with the update flag set increments a sequence number; a lock object that sees a new
// number notifies its observers (ZSequenceUpdate_6_0). This module has the common parts of all
// variants: the name, the numbers, the flag and the lock between the threads of the process.
//
// Ownership: a lock owns its name.
// Threads: any number of threads may use a lock at the same time, except for setLockName().
// Processes: after fork() the child does not hold its parent's locks. In the child, a lock object
// that was held at the fork refuses to lock and unlock (ZInvalidResourceStateException_6_0).
#pragma once

#include <stdint.h>

#include "ZLCString.h"
#include "ZReadWriteLock.h"

/// The base class of read-write locks between processes: the name, the sequence numbers, the
/// update flag and the lock between the threads of this process.
class ZAbstractProcessReadWriteLock_6_0 : public ZAbstractReadWriteLock_6_0 {
public:
    // Not a sequence number: no number has been seen yet.
    static constexpr uint32_t invalidSequence = 0xFFFFFFFF;

    /// Creates a free lock with a name of six random characters: letters, digits, "_" and "-".
    ZAbstractProcessReadWriteLock_6_0();

    /// Creates a free lock called `name`.
    explicit ZAbstractProcessReadWriteLock_6_0(char const* name);
    ZAbstractProcessReadWriteLock_6_0(ZAbstractProcessReadWriteLock_6_0 const&) = delete;
    ZAbstractProcessReadWriteLock_6_0& operator=(ZAbstractProcessReadWriteLock_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Destroys the lock.
    /// throws  ZInvalidResourceStateException_6_0 (message 32) if it is held; reported through the
    ///         message service instead while another exception is in flight.
    ~ZAbstractProcessReadWriteLock_6_0() override;

    /// Returns the hash of the name.
    uint32_t hash() const override;

    /// Orders by the name.
    /// range   orders an object of another class by its address, as ZObject_6_0 does.
    int compare(ZObject_6_0 const& other) const override;

    /// Acquires the lock for writing.
    void lock() override;

    /// Acquires the lock between the threads of the process, "protect" as "write", or releases it.
    /// Sets the update flag for "protect" and "write", clears it for "read" and "unset".
    /// throws  as ZReadWriteLock_6_0; nothing has changed then.
    void lock(zlockstate state) override;

    /// Returns whether the sequence number equals the last one seen.
    int isCurrent() const override;

    /// Releases the lock, with `getUpdate()`.
    void unlock() override;

    /// Releases the lock; a writer first increments the sequence number if `update` is not 0.
    /// throws  as incSequence() and the release. If incrementing fails the lock is still held, and
    ///         `unlock(0)` releases it. ZUnlockResourceException_6_0 (message 6, rc 0) if the
    ///         calling thread does not hold the lock; nothing has changed then.
    void unlock(int update) override;
    void unlock(zlockstate) = delete;

    int haveLock(zlockstate state) const override;

    /// Returns whether any thread holds the lock for writing.
    int ownWriteLock() const override;

    int getUpdate() const override;

    /// Sets whether `unlock()` increments the sequence number. Each acquisition resets the flag.
    void setUpdate(int update) override;
    void setUpdate(zlockstate) = delete;

    // Each acquires the lock by lock(zlockstate).
    void readLock() override;
    void writeLock() override;
    void readWithIntentToWriteLock() override;

    /// Does nothing: "protect" is "write" between processes.
    void promoteReadToWriteLock() override;

    /// Returns how the process holds the lock: "unset", "read" or "write".
    virtual zlockstate getLockState() const;

    /// Returns the name.
    /// owns    borrowed until the name is replaced.
    virtual ZLCString_6_0 const& getLockName() const;

    /// Replaces the name.
    /// threads no other thread may use the lock during the call.
    /// kept    the path of a lock file does not change.
    virtual void setLockName(ZLCString_6_0& name);

    /// Returns the number of reading threads in this process.
    virtual int getReaderCount();

    /// Returns the sequence number as of the last acquisition or increment.
    virtual unsigned long getSequence() const;

    /// Increments the sequence number and returns it; 0 follows 0xFFFFFFFE.
    virtual unsigned long incSequence();

    /// Returns the last sequence number seen; `invalidSequence` if none was seen.
    virtual unsigned long getLastSequence() const;

    /// Sets the last sequence number seen.
    /// range   stored as 32 bits.
    virtual void setLastSequence(unsigned long sequence);

    /// Marks the current sequence number as seen.
    virtual void setLastSequence();

    /// Prepares a release: in the state "write", increments the sequence number if `update` is not
    /// 0. In every state but "unset", marks the number as seen.
    /// throws  as incSequence().
    virtual void sync(int update);
    void sync(zlockstate) = delete;

protected:
    // Stores the state or the sequence number; neither locks nor notifies.
    void setLockState(zlockstate state);
    void setSequence(unsigned long sequence);

    unsigned long nextSequence() const;  // getSequence() + 1, skipping invalidSequence

    // The lock between the threads of the process.
    ZReadWriteLock_6_0& threadLock() { return threads_; }

    // After a failed write the sequence is lost: the number in the file is unknown.
    bool isSequenceLost() const { return sequenceLost_; }
    void setSequenceLost(bool lost) { sequenceLost_ = lost; }

    // Throws message 32 with the name of the lock's state.
    [[noreturn]] void raiseInvalidState(char const* source, int site) const;
    // Throws message 32 in a child of the process that acquired the lock.
    void failIfInherited() const;
    // Throws message 6 if "protect" or "write" is held, but not by the calling thread.
    void failIfStranger();

private:
    zlockstate rawState() const;
    bool inherited() const;

    // Several readers may read and write these words: relaxed atomics.
    int state_;  // a zlockstate
    ZLCString_6_0 name_;
    uint32_t sequence_;
    uint32_t lastSequence_;
    [[maybe_unused]] uint32_t reserved_;  // 0; unused
    bool sequenceLost_;                   // used by the writer only; moves no other field
    ZReadWriteLock_6_0 threads_;
    int update_;
    unsigned forkMark_;  // fork mark of the process that acquired the lock
};

/// A process lock that excludes only the threads of this process.
class ZStubProcessReadWriteLock_6_0 : public ZAbstractProcessReadWriteLock_6_0 {
public:
    // As the base's.
    ZStubProcessReadWriteLock_6_0();
    explicit ZStubProcessReadWriteLock_6_0(char const* name);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZStubProcessReadWriteLock_6_0() override;

    /// Acquires the lock for writing.
    void lock() override;

    /// Acquires or releases the lock between threads and sets the state to `state`.
    /// throws  ZInvalidResourceStateException_6_0 (message 32) if `state` is not a state; as
    ///         ZReadWriteLock_6_0. Nothing has changed then.
    /// kept    a release sets "unset" even if other readers remain; "protect" stays "protect".
    void lock(zlockstate state) override;
};
