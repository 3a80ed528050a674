// ZLock: a recursive mutex that knows its owning thread, and a guard that holds it in a scope.
//
// Subsystem: threads.  Stands on: ZObject, ZException, ZMessage.
//
// Ownership: a lock owns its mutex; a guard borrows the lock it holds.
// Threads: any number of threads may use a lock at the same time; a guard belongs to the thread
// that created it.
//
// Locking and unlocking a free lock is inline, hence <pthread.h> here: a call into the library and
// from there into the C library would take a fifth of the time.
#pragma once

#include <pthread.h>

#include "ZObject.h"

class ZCondition_6_0;

/// An object that can be locked and unlocked.
class ZLockInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Acquires the lock; waits for it if necessary.
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
    /// Creates a free lock.
    /// throws  ZCreateResourceException_6_0 (message 3) with the rc of pthread_mutex_init().
    ZLock_6_0();

    /// Creates an object that is not a usable lock; locks are not meant to be copied.
    /// kept    copies nothing and initialises no mutex: classes that contain a lock stay copyable.
    ZLock_6_0(ZLock_6_0 const&);

    /// Does nothing.
    /// kept    a lock keeps its state if the object that contains it is assigned to.
    ZLock_6_0& operator=(ZLock_6_0 const&);

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Acquires the lock; increments the depth if the calling thread already holds it.
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

    /// Releases one level; releasing the last one frees the lock.
    /// throws  ZUnlockResourceException_6_0 (message 6): rc 0 if the calling thread does not hold
    ///         the lock, else the rc of pthread_mutex_unlock(); the lock is unchanged then.
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
    friend class ZCondition_6_0;      // clears and sets the owner around a wait
    friend class ZReadWriteLock_6_0;  // compares threads by self()

    static constexpr pthread_t kNobody = ~pthread_t{0};
    enum UnlockFailure { stranger, mutexFailed };

    // Same as pthread_self(). On x86-64 glibc's id is the thread pointer, which the compiler reads
    // in one instruction.
    static pthread_t self()
    {
#if defined(__x86_64__) && defined(__GLIBC__)
        return reinterpret_cast<pthread_t>(__builtin_thread_pointer());
#else
        return pthread_self();
#endif
    }

    // Threads that do not hold the mutex read the owner too. A relaxed load suffices: only the
    // holder can find its own id.
    pthread_t owner() const
    {
        return __atomic_load_n(&owner_, __ATOMIC_RELAXED);
    }
    void setOwner(pthread_t id)
    {
        __atomic_store_n(&owner_, id, __ATOMIC_RELAXED);
    }

    bool heldByCaller() const;
    int markFree();  // returns the depth for markHeld()
    void markHeld(int nested);

    [[noreturn]] static void raiseLock(int rc);
    [[noreturn]] static void raiseUnlock(int rc, UnlockFailure failure);

    pthread_mutex_t mutex_;
    pthread_t owner_;  // the thread that holds the mutex; kNobody if it is free
    int nested_;       // lock() calls of the holder after its first; only the holder uses it
};

/// Holds a lock from construction to destruction.
class ZResourceLock_6_0 : public ZObject_6_0 {
public:
    /// Acquires `lock`.
    /// owns    `lock` is borrowed until the guard is destroyed.
    /// throws  as `lock.lock()`; no guard exists then.
    [[nodiscard]] explicit ZResourceLock_6_0(ZLock_6_0& lock);
    ZResourceLock_6_0(ZResourceLock_6_0 const&) = delete;
    ZResourceLock_6_0& operator=(ZResourceLock_6_0 const&) = delete;

    /// Releases the lock.
    /// throws  as `unlock()`; reported through the message service instead while another exception
    ///         is in flight.
    ~ZResourceLock_6_0() override;

private:
    ZLock_6_0& lock_;
};
