// ZReadWriteLock: many readers or one writer inside a process, and the base of such locks.
//
// Subsystem: threads.  Stands on: ZObject, ZException, ZLock, ZCondition, ZObserver.
//
// A lock is free ("unset"), shared by readers ("read"), held by one thread that reads and means to
// write ("protect": readers come and go beside it, nobody else may write first), or held by one
// writer ("write").
// Ownership: a guard borrows its lock.
// Threads: a lock is made for use by every thread at once; a guard belongs to one thread. Readers
// that keep coming can keep a writer waiting: there is no precedence. A reader that asks for the
// write lock waits for itself; take "protect" and promote it instead.
#pragma once

#include "ZCondition.h"
#include "ZLock.h"
#include "ZObject.h"
#include "ZObserver.h"

/// What readers and writers lock.
class ZReadWriteLockInterface_6_0 : public ZLockInterface_6_0 {
public:
    enum zlockstate : int {
        unset = 0,    // free; as an argument of lock(): release
        read = 1,     // shared by readers
        protect = 2,  // read by one thread that means to write
        write = 3     // held by one writer
    };

    // Virtual functions in slot order. The order is binary interface: append only.
    void lock() override = 0;
    void unlock() override = 0;

    /// Acquires the lock for `state`, or releases it for `unset`.
    virtual void lock(zlockstate state) = 0;

    /// Acquires the lock for reading.
    virtual void readLock() = 0;

    /// Acquires the lock for writing.
    virtual void writeLock() = 0;

    /// Acquires the lock for reading, with the right to be the next writer.
    virtual void readWithIntentToWriteLock() = 0;

    /// Turns "protect" into "write".
    virtual void promoteReadToWriteLock() = 0;

protected:
    ~ZReadWriteLockInterface_6_0() = default;
};

/// The base of read-write locks, in a process and between processes; announces changes to
/// observers.
class ZAbstractReadWriteLock_6_0 : public ZObject_6_0,
                                   public ZReadWriteLockInterface_6_0,
                                   public ZAbstractObservable_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractReadWriteLock_6_0() override;

    /// Acquires the lock for writing.
    void lock() override;
    void lock(zlockstate state) override = 0;

    /// Returns "unset", "read", "protect" or "write"; null for any other value.
    /// owns    static text.
    virtual char const* getLockStateName(zlockstate state) const;

    /// Returns whether nothing has changed since this lock was held last; here always 1.
    virtual int isCurrent() const;

    /// Releases the lock, with `getUpdate()`.
    void unlock() override;

    /// Releases the lock; here does nothing.
    virtual void unlock(int update);
    void unlock(zlockstate) = delete;  // a lock state is not an update flag

    /// Returns whether the lock is in `state`, whoever holds it.
    virtual int haveLock(zlockstate state) const = 0;

    /// Returns whether the calling thread holds the lock for writing.
    virtual int ownWriteLock() const = 0;

    /// Returns the update flag; here 0.
    virtual int getUpdate() const;

    /// Sets the update flag; here does nothing.
    virtual void setUpdate(int update);
    void setUpdate(zlockstate) = delete;

protected:
    ZAbstractReadWriteLock_6_0();
};

/// A read-write lock between the threads of one process.
class ZReadWriteLock_6_0 : public ZAbstractReadWriteLock_6_0 {
public:
    /// Makes a free lock.
    /// throws  what making a condition throws.
    ZReadWriteLock_6_0();

    /// Makes a free lock; nothing of the other's state is copied.
    ZReadWriteLock_6_0(ZReadWriteLock_6_0 const&);
    ZReadWriteLock_6_0& operator=(ZReadWriteLock_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZReadWriteLock_6_0() override;

    /// Returns a new, free lock.
    /// owns    owned by the caller; released with delete.
    ZObject_6_0* clone() const override;

    void lock() override;

    /// Calls the operation for `state`; a value that is no state does nothing.
    void lock(zlockstate state) override;

    /// Releases what the calling thread holds: the writer's or intending writer's hold when it is
    /// theirs, else one reader.
    /// throws  ZUnlockResourceException_6_0 (message 6, rc 0) when there is nothing to release; the
    ///         lock is as it was.
    void unlock() override;

    /// Releases as `unlock()`; the flag says nothing here.
    void unlock(int update) override;
    void unlock(zlockstate) = delete;

    int haveLock(zlockstate state) const override;

    /// Returns whether the calling thread was the last to take "protect" or "write".
    /// kept    it stays true after the release, until another thread takes one of the two.
    int ownWriteLock() const override;

    /// Acquires the lock for reading; waits while there is a writer.
    /// throws  ZLockResourceException_6_0 (message 5, rc 0) when the calling thread holds "protect"
    ///         or "write"; what a wait throws. The lock is as it was.
    void readLock() override;

    /// Acquires the lock for writing; waits until it is free.
    /// throws  as readLock().
    void writeLock() override;

    /// Acquires "protect"; waits while another thread holds "protect" or "write".
    /// throws  as readLock().
    void readWithIntentToWriteLock() override;

    /// Turns the calling thread's "protect" into "write": no reader enters any more, those inside
    /// are waited for.
    /// throws  ZLockResourceException_6_0 (message 5, rc 0) when the calling thread does not hold
    ///         "protect"; what a wait throws. The lock is as it was.
    void promoteReadToWriteLock() override;

    /// Returns the number of read locks held; a thread that holds "protect" is not counted.
    virtual int getReaderCount();

private:
    class Waiter;  // ZReadWriteLock.cpp

    void waitAndEnter(unsigned long blockers, unsigned long step);
    void waitAndPromote();
    bool releaseAndWake(bool byHolder);
    unsigned long word() const;
    bool callerHolds() const;
    void setHolder(unsigned long id);
    void noteCallerAsHolder();
    void failIfCallerHolds() const;

    unsigned long word_;    // atomic: readers and state
    unsigned long holder_;  // atomic: the pthread_t that holds "protect" or "write"
    unsigned long writer_;  // atomic: the last pthread_t that took "protect" or "write"
    int waiters_;           // threads in a wait; guarded by the condition's lock
    ZCondition_6_0 changed_;
};

/// Releases a read-write lock at the end of a scope; acquiring is done through it or otherwise.
class ZStackReadWriteLock_6_0 : public ZObject_6_0 {
public:
    /// Borrows `lock` and sets its update flag; acquires nothing.
    /// kept    the flag is set at once, for whoever holds a process lock; acquiring sets it anew.
    [[nodiscard]] ZStackReadWriteLock_6_0(ZAbstractReadWriteLock_6_0& lock, int update);

    // A lock state is not an update flag: the guard acquires nothing.
    ZStackReadWriteLock_6_0(ZAbstractReadWriteLock_6_0& lock,
                            ZReadWriteLockInterface_6_0::zlockstate) = delete;
    ZStackReadWriteLock_6_0(ZStackReadWriteLock_6_0 const&) = delete;
    ZStackReadWriteLock_6_0& operator=(ZStackReadWriteLock_6_0 const&) = delete;

    /// Releases the lock. If the last acquisition through this guard failed, releases what the
    /// thread holds nevertheless: what it acquired through the guard before, or through guard or
    /// lock since, and nothing of other threads. A lock file also knows what the thread acquired
    /// without the guard before. If incrementing the sequence number fails, releases without
    /// incrementing it.
    /// throws  what `unlock()` throws. While an exception unwinds the stack, or after the thread
    ///         was cancelled while it waited for the lock, reports the failure through the message
    ///         service instead.
    ~ZStackReadWriteLock_6_0() override;

    // Each does what the lock's operation of the same name does.
    void readLock();
    void writeLock();
    void readWithIntentToWriteLock();
    void promoteReadToWriteLock();
    void unlock(int update);
    void unlock(ZReadWriteLockInterface_6_0::zlockstate) = delete;
    int getUpdate() const;
    void setUpdate(int update);
    void setUpdate(ZReadWriteLockInterface_6_0::zlockstate) = delete;

    /// Returns the lock.
    ZAbstractReadWriteLock_6_0& getReadWriteLock() const;

private:
    struct Rep;  // ZReadWriteLock.cpp

    template <class Action>
    void acquire(Action action);

    ZAbstractReadWriteLock_6_0& lock_;
    int held_;    // acquisitions through this guard that it has not released
    int failed_;  // after a failed acquisition: whether the lock was free then; else 0
};
