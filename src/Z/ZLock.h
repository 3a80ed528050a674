// ZLock: a recursive mutex that knows its owning thread, and a guard that holds one for a scope.
//
// Subsystem: threads.  Stands on: ZObject, ZException, ZMessage.
//
// Ownership: a lock owns its mutex; a guard borrows the lock it holds.
// Threads: a lock is made for use by every thread at once; a guard belongs to the thread that
// made it.
#pragma once

#include "ZObject.h"

class ZCondition_6_0;

/// What can be locked and unlocked.
class ZLockInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Acquires the lock, waiting for it when need be.
    virtual void lock() = 0;

    /// Releases the lock.
    virtual void unlock() = 0;

protected:
    ~ZLockInterface_6_0() = default;
};

/// The base of concrete locks.
class ZAbstractLock_6_0 : public ZLockInterface_6_0 {
protected:
    ~ZAbstractLock_6_0() = default;
};

/// A recursive mutex: free, or held by one thread as often as that thread has locked it.
class ZLock_6_0 : public ZAbstractLock_6_0, public ZObject_6_0 {
public:
    /// Makes a free lock.
    /// throws  ZCreateResourceException_6_0 (message 3) with the rc of pthread_mutex_init().
    ZLock_6_0();

    /// Makes an object that is no usable lock; a lock is not meant to be copied.
    /// kept    nothing is copied and no mutex is made: classes that hold a lock stay copyable.
    ZLock_6_0(ZLock_6_0 const&);

    /// Does nothing.
    /// kept    a lock stays what it is when the object around it is assigned to.
    ZLock_6_0& operator=(ZLock_6_0 const&);

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Acquires the lock; a thread that holds it already holds it once more.
    /// throws  ZLockResourceException_6_0 (message 5) with the rc of pthread_mutex_lock().
    /// threads waits until the thread that holds the lock has released it.
    void lock() override;

    /// Releases one level; the last one frees the lock.
    /// throws  ZUnlockResourceException_6_0 (message 6): rc 0 when the calling thread does not
    ///         hold the lock, else the rc of pthread_mutex_unlock(); the lock stays as it was.
    void unlock() override;

    /// Destroys the mutex; a failure is reported through the message service (message 4).
    ~ZLock_6_0() override;

private:
    friend class ZCondition_6_0;  // marks the lock free while it waits on the mutex

    bool heldByCaller();
    int markFree();  // returns the depth that markHeld() gives back
    void markHeld(int depth);

    alignas(long) unsigned char mutex_[48];  // a pthread_mutex_t
    unsigned long owner_;  // atomic: the pthread_t of the holder, all bits set when free
    int count_;            // lock() calls not yet matched; only the holder reads or writes it
};

/// Holds a lock from construction to destruction.
class ZResourceLock_6_0 : public ZObject_6_0 {
public:
    /// Acquires `lock`.
    /// owns    `lock` is borrowed until the guard is destroyed.
    /// throws  what `lock.lock()` throws; there is no guard then.
    explicit ZResourceLock_6_0(ZLock_6_0& lock);
    ZResourceLock_6_0(ZResourceLock_6_0 const&) = delete;
    ZResourceLock_6_0& operator=(ZResourceLock_6_0 const&) = delete;

    /// Releases the lock.
    /// throws  what `unlock()` throws; while another exception is on its way that failure is
    ///         reported through the message service instead.
    ~ZResourceLock_6_0() override;

private:
    ZLock_6_0& lock_;
};
