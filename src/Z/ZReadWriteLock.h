// ZReadWriteLock: many readers or one writer inside a process, and the base of such locks.
//
// Subsystem: threads.  Stands on: ZObject, ZException, ZLock, ZCondition, ZObserver.
//
// A lock has four states:
//
//     unset    free
//     read     shared by readers
//     protect  held by a thread that reads and is the next to write; other readers may come and go
//     write    held by one writer
//
// Ownership: a guard borrows its lock.
// Threads: any number of threads may use a lock at the same time; a guard belongs to one thread.
// Precedence: none, so a stream of readers can starve a writer. A reader that requests the write
// lock waits for itself; acquire "protect" and promote it instead.
#pragma once

#include "ZCondition.h"
#include "ZLock.h"
#include "ZObject.h"
#include "ZObserver.h"

/// A lock with readers and writers.
class ZReadWriteLockInterface_6_0 : public ZLockInterface_6_0 {
public:
    // clang 14 reports that these names hide read() and write(), if <unistd.h> is included before.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
    enum zlockstate : int {
        unset = 0,    // free; as an argument of lock(): release
        read = 1,     // shared by readers
        protect = 2,  // held by a reader that is the next writer
        write = 3     // held by one writer
    };
#pragma GCC diagnostic pop

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

/// The base of read-write locks, in a process and between processes. Notifies observers of changes.
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
    /// owns    static string.
    virtual char const* getLockStateName(zlockstate state) const;

    /// Returns whether nothing has changed since this lock was last held. A lock inside a process
    /// always returns 1.
    virtual int isCurrent() const;

    /// Releases the lock with the update flag `getUpdate()`.
    void unlock() override;

    /// Releases the lock. The base class does nothing.
    virtual void unlock(int update);
    void unlock(zlockstate) = delete;  // a lock state is not an update flag

    /// Returns whether any thread holds the lock in `state`.
    virtual int haveLock(zlockstate state) const = 0;

    /// Returns whether the calling thread holds the lock for writing.
    virtual int ownWriteLock() const = 0;

    /// Returns the update flag. A lock inside a process always returns 0.
    virtual int getUpdate() const;

    /// Sets the update flag. A lock inside a process ignores it.
    virtual void setUpdate(int update);
    void setUpdate(zlockstate) = delete;

protected:
    ZAbstractReadWriteLock_6_0();
};

/// A read-write lock between the threads of one process.
class ZReadWriteLock_6_0 : public ZAbstractReadWriteLock_6_0 {
public:
    /// Creates a free lock.
    /// throws  as creating a ZCondition_6_0.
    ZReadWriteLock_6_0();

    /// Creates a free lock; copies no state of the other lock.
    ZReadWriteLock_6_0(ZReadWriteLock_6_0 const&);
    ZReadWriteLock_6_0& operator=(ZReadWriteLock_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZReadWriteLock_6_0() override;

    /// Returns a new, free lock.
    /// owns    owned by the caller; released with delete.
    ZObject_6_0* clone() const override;

    void lock() override;

    /// Performs the operation for `state`; does nothing if `state` is not a state.
    void lock(zlockstate state) override;

    /// Releases "protect" or "write" if the calling thread holds it, else one reader.
    /// throws  ZUnlockResourceException_6_0 (message 6, rc 0) if no lock is held that the thread
    ///         could release; the lock is unchanged then.
    void unlock() override;

    /// Releases as `unlock()`; ignores the flag.
    void unlock(int update) override;
    void unlock(zlockstate) = delete;

    int haveLock(zlockstate state) const override;

    /// Returns whether the calling thread was the last to acquire "protect" or "write".
    /// kept    stays true after the release, until another thread acquires "protect" or "write".
    int ownWriteLock() const override;

    /// Acquires the lock for reading; waits while a writer holds it.
    /// throws  ZLockResourceException_6_0 (message 5, rc 0) if the calling thread holds "protect"
    ///         or "write"; as ZCondition_6_0::wait(). The lock is unchanged then.
    void readLock() override;

    /// Acquires the lock for writing; waits until it is free.
    /// throws  as readLock().
    void writeLock() override;

    /// Acquires "protect"; waits while another thread holds "protect" or "write".
    /// throws  as readLock().
    void readWithIntentToWriteLock() override;

    /// Turns the calling thread's "protect" into "write": blocks new readers and waits for the
    /// current ones to leave.
    /// throws  ZLockResourceException_6_0 (message 5, rc 0) if the calling thread does not hold
    ///         "protect"; as ZCondition_6_0::wait(). The lock is unchanged then.
    void promoteReadToWriteLock() override;

    /// Returns the number of read locks held; ignores a thread that holds "protect".
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
    int waiters_;           // waiting threads; guarded by the condition's lock
    ZCondition_6_0 changed_;
};

/// Releases a read-write lock at the end of the scope. The lock can be acquired through the guard
/// or directly.
class ZStackReadWriteLock_6_0 : public ZObject_6_0 {
public:
    /// Borrows `lock` and sets its update flag; acquires nothing.
    /// kept    sets the flag immediately, even if another thread holds a process lock; each
    ///         acquisition resets the flag.
    [[nodiscard]] ZStackReadWriteLock_6_0(ZAbstractReadWriteLock_6_0& lock, int update);

    // A lock state is not an update flag: the guard acquires nothing.
    ZStackReadWriteLock_6_0(ZAbstractReadWriteLock_6_0& lock,
                            ZReadWriteLockInterface_6_0::zlockstate) = delete;
    ZStackReadWriteLock_6_0(ZStackReadWriteLock_6_0 const&) = delete;
    ZStackReadWriteLock_6_0& operator=(ZStackReadWriteLock_6_0 const&) = delete;

    /// Releases the lock. If the last acquisition through this guard failed, releases the lock only
    /// if the thread still holds it: by an earlier acquisition through the guard, or by a later one
    /// through the guard or the lock; a lock file also counts earlier acquisitions without the
    /// guard. If incrementing the sequence number fails, releases without incrementing it.
    /// throws  as `unlock()`. While an exception unwinds the stack, or after the thread was
    ///         cancelled while it waited for the lock, reports the failure through the message
    ///         service instead.
    ~ZStackReadWriteLock_6_0() override;

    // Each performs the lock's operation of the same name.
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
