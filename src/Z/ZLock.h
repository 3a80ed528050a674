// ZLock: a recursive mutex that knows its owning thread, and a guard that holds one for a scope.
//
// Subsystem: threads.  Stands on: ZObject, ZException, ZMessage.
//
// Ownership: a lock owns its mutex; a guard borrows the lock it holds.
// Threads: a lock is made for use by every thread at once; a guard belongs to the thread that
// made it.
//
// Taking and releasing a free lock is inline, and <pthread.h> here for that: a call into the
// library and on into the C library costs a fifth of the whole.
#pragma once

#include <pthread.h>

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
    void lock() override
    {
        pthread_t const caller = self();
        if (owner() == caller) {
            ++nested_;
            return;
        }
        int const rc = pthread_mutex_lock(&mutex_);
        if (__builtin_expect(rc != 0, 0))
            raiseLock(rc);
        setOwner(caller);
    }

    /// Releases one level; the last one frees the lock.
    /// throws  ZUnlockResourceException_6_0 (message 6): rc 0 when the calling thread does not
    ///         hold the lock, else the rc of pthread_mutex_unlock(); the lock stays as it was.
    void unlock() override
    {
        pthread_t const caller = self();
        if (__builtin_expect(owner() != caller, 0))
            raiseUnlock(0, stranger);
        if (nested_ != 0) {
            --nested_;
            return;
        }
        setOwner(kNobody);
        int const rc = pthread_mutex_unlock(&mutex_);
        if (__builtin_expect(rc != 0, 0)) {
            setOwner(caller);
            raiseUnlock(rc, mutexFailed);
        }
    }

    /// Destroys the mutex; a failure is reported through the message service (message 4).
    ~ZLock_6_0() override;

private:
    friend class ZCondition_6_0;      // marks the lock free while it waits on the mutex
    friend class ZReadWriteLock_6_0;  // knows its threads by self()

    static constexpr pthread_t kNobody = ~pthread_t{0};
    enum UnlockFailure { stranger, mutexFailed };

    // The id that pthread_self() gives. On x86-64 glibc's id is the thread pointer, which the
    // compiler reads in one instruction.
    static pthread_t self()
    {
#if defined(__x86_64__) && defined(__GLIBC__)
        return reinterpret_cast<pthread_t>(__builtin_thread_pointer());
#else
        return pthread_self();
#endif
    }

    // The owner is read by threads that do not hold the mutex. Only the holder can find its own id
    // there, so that no order is needed.
    pthread_t owner() const
    {
        return __atomic_load_n(&owner_, __ATOMIC_RELAXED);
    }
    void setOwner(pthread_t id)
    {
        __atomic_store_n(&owner_, id, __ATOMIC_RELAXED);
    }

    bool heldByCaller() const;
    int markFree();  // returns what markHeld() gives back
    void markHeld(int nested);

    [[noreturn]] static void raiseLock(int rc);
    [[noreturn]] static void raiseUnlock(int rc, UnlockFailure failure);

    pthread_mutex_t mutex_;
    pthread_t owner_;  // the thread that holds the mutex, kNobody when it is free
    int nested_;       // lock() calls of the holder beyond his first; his alone, 0 when free
};

/// Holds a lock from construction to destruction.
class ZResourceLock_6_0 : public ZObject_6_0 {
public:
    /// Acquires `lock`.
    /// owns    `lock` is borrowed until the guard is destroyed.
    /// throws  what `lock.lock()` throws; there is no guard then.
    [[nodiscard]] explicit ZResourceLock_6_0(ZLock_6_0& lock);
    ZResourceLock_6_0(ZResourceLock_6_0 const&) = delete;
    ZResourceLock_6_0& operator=(ZResourceLock_6_0 const&) = delete;

    /// Releases the lock.
    /// throws  what `unlock()` throws; while another exception is on its way that failure is
    ///         reported through the message service instead.
    ~ZResourceLock_6_0() override;

private:
    ZLock_6_0& lock_;
};
