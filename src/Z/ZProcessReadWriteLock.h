// ZProcessReadWriteLock: the base of read-write locks between processes, and a stand-in for them
// that stays inside the process.
//
// Subsystem: process locks.  Stands on: ZReadWriteLock, ZLock, ZLCString, ZException.
//
// Such a lock also tells its holder whether anything has changed since it was held last: it carries
// a sequence number that every writer raises who releases with the update flag set. Who finds
// another number than last time tells his observers (ZSequenceUpdate_6_0). What is common to all
// variants is here: the name, the numbers, the flag and the lock between the threads of the
// process.
//
// Ownership: a lock owns its name.
// Threads: a lock is made for use by every thread at once, except for setLockName().
// Processes: after fork() the child does not hold what its parent held. A lock object that was held
// at that moment refuses to lock and unlock in the child (ZInvalidResourceStateException_6_0).
#pragma once

#include <stdint.h>

#include "ZLCString.h"
#include "ZReadWriteLock.h"

class ZAbstractProcessReadWriteLock_6_0 : public ZAbstractReadWriteLock_6_0 {
public:
    // The number that no lock ever carries: no number has been seen yet.
    static constexpr uint32_t invalidSequence = 0xFFFFFFFF;

    /// Makes a free lock with a name of six random characters: letters, digits, "_" and "-".
    ZAbstractProcessReadWriteLock_6_0();

    /// Makes a free lock called `name`.
    explicit ZAbstractProcessReadWriteLock_6_0(char const* name);
    ZAbstractProcessReadWriteLock_6_0(ZAbstractProcessReadWriteLock_6_0 const&) = delete;
    ZAbstractProcessReadWriteLock_6_0& operator=(ZAbstractProcessReadWriteLock_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Destroys the lock.
    /// throws  ZInvalidResourceStateException_6_0 (message 32) when it is held; while another
    ///         exception is on its way that is reported through the message service instead.
    ~ZAbstractProcessReadWriteLock_6_0() override;

    /// Returns the hash of the name.
    uint32_t hash() const override;

    /// Orders by the name.
    /// range   an object of another class sorts by its address, as objects do.
    int compare(ZObject_6_0 const& other) const override;

    /// Acquires the lock for writing.
    void lock() override;

    /// Takes the lock between the threads of the process; "protect" as "write". Acquiring "protect"
    /// or "write" sets the update flag, all else clears it.
    /// throws  what ZReadWriteLock_6_0 throws; nothing has changed then.
    void lock(zlockstate state) override;

    /// Returns whether the sequence number is the one that was seen last.
    int isCurrent() const override;

    /// Releases the lock, with `getUpdate()`.
    void unlock() override;

    /// Releases the lock; a writer raises the sequence number first when `update` is not 0.
    /// throws  what raising and releasing throw. When raising fails the lock is still held, and
    ///         can be released with `unlock(0)`.
    ///         ZUnlockResourceException_6_0 (message 6, rc 0) when the calling thread does not hold
    ///         it; nothing has changed then.
    void unlock(int update) override;
    void unlock(zlockstate) = delete;

    int haveLock(zlockstate state) const override;

    /// Returns whether the lock is held for writing, by whichever thread.
    int ownWriteLock() const override;

    int getUpdate() const override;

    /// Sets whether `unlock()` raises the sequence number. Acquiring sets the flag anew.
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
    /// kept    the path of a lock file stays what it is.
    /// threads no other thread may use the lock meanwhile.
    virtual void setLockName(ZLCString_6_0& name);

    /// Returns the number of reading threads in this process.
    virtual int getReaderCount();

    /// Returns the sequence number as it was when the lock was acquired last, or raised since.
    virtual unsigned long getSequence() const;

    /// Raises the sequence number and returns it; 0 follows 0xFFFFFFFE.
    virtual unsigned long incSequence();

    /// Returns the sequence number that was seen last; `invalidSequence` before the first one.
    virtual unsigned long getLastSequence() const;

    /// Sets the number that was seen last.
    /// range   kept as 32 bits.
    virtual void setLastSequence(unsigned long sequence);

    /// Takes the sequence number as seen.
    virtual void setLastSequence();

    /// Prepares a release: a writer raises the sequence number when `update` is not 0, and whoever
    /// holds the lock takes it as seen.
    /// throws  what incSequence() throws.
    virtual void sync(int update);
    void sync(zlockstate) = delete;

protected:
    // For the variants: what they set, and the lock between the threads of the process.
    void setLockState(zlockstate state);
    void setSequence(unsigned long sequence);
    unsigned long nextSequence() const;  // the one after getSequence(), never invalidSequence
    ZReadWriteLock_6_0& threadLock() { return threads_; }

    // Raise message 32 with the name of the state that the lock is in.
    [[noreturn]] void raiseInvalidState(char const* source, int site) const;
    // Raises message 32 in a child of the process that took the lock.
    void failIfInherited() const;
    // Raises message 6 when "protect" or "write" is held, and not by the calling thread.
    void failIfStranger();

private:
    zlockstate rawState() const;
    bool inherited() const;

    // Words that several readers may read and write are relaxed atomics.
    int state_;  // a zlockstate
    ZLCString_6_0 name_;
    uint32_t sequence_;
    uint32_t lastSequence_;
    [[maybe_unused]] uint32_t reserved_;  // 0; nothing reads it
    ZReadWriteLock_6_0 threads_;
    int update_;
    unsigned forkMark_;  // of the process that acquired the lock
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

    /// Acquires the lock between the threads, or releases it; the state is then `state`.
    /// throws  ZInvalidResourceStateException_6_0 (message 32) when `state` is none; what
    ///         ZReadWriteLock_6_0 throws. Nothing has changed then.
    /// kept    also when other readers are left, and "protect" stays "protect".
    void lock(zlockstate state) override;
};
