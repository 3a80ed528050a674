// ZCondition: waits, under a ZLock_6_0, for another thread's signal; with or without a flag.
//
// Subsystem: threads.  Stands on: ZObject, ZException, ZMessage, ZLock.
//
// Ownership: a condition borrows the lock it is given, or owns the lock it creates.
// Threads: any number of threads may use a condition at the same time. A wait requires the lock, at
// any depth: it releases the lock completely and restores the depth. signal() and broadcast() do
// not require it.
#pragma once

#include <pthread.h>
#include <time.h>

#include "ZLock.h"
#include "ZObject.h"

/// An object that threads can wait for.
class ZConditionInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Waits without limit.
    virtual void wait() = 0;

    /// Waits at most `seconds`.
    virtual void wait(long seconds, int& timedOut) = 0;

    /// Waits until `absTime`.
    virtual void wait(timespec& absTime, int& timedOut) = 0;

    /// Wakes one waiter.
    virtual void signal() = 0;

    /// Wakes all waiters.
    virtual void broadcast() = 0;

    /// Called when a timed wait has timed out.
    virtual void waitTimedOut() = 0;

protected:
    ~ZConditionInterface_6_0() = default;
};

/// The base of concrete conditions.
class ZAbstractCondition_6_0 : public ZObject_6_0,
                               public ZConditionInterface_6_0,
                               public ZLockInterface_6_0 {
public:
    ~ZAbstractCondition_6_0() override;
};

/// A condition variable bound to one lock.
class ZCondition_6_0 : public ZAbstractCondition_6_0 {
public:
    /// Creates a condition with a lock of its own.
    /// throws  ZConditionException_6_0 (message 7) with the rc of pthread_cond_init(); as creating
    ///         a ZLock_6_0; ZOutOfMemoryException_6_0.
    ZCondition_6_0();

    /// Creates a condition on `lock`.
    /// owns    `lock` is borrowed until the condition is destroyed.
    /// throws  ZConditionException_6_0 (message 7) with the rc of pthread_cond_init().
    explicit ZCondition_6_0(ZLock_6_0& lock);
    ZCondition_6_0(ZCondition_6_0 const&) = delete;
    ZCondition_6_0& operator=(ZCondition_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Destroys the condition, and its lock if the condition created it; reports a failure through
    /// the message service (message 8).
    ~ZCondition_6_0() override;

    /// Waits without limit.
    /// throws  as the wait until an absolute time.
    void wait() override;

    /// Waits at most `seconds` from now; 0 times out immediately.
    /// units   whole seconds of the real-time clock.
    /// range   an end before the epoch's first second is that second; an end past the largest
    ///         time_t is the largest time_t.
    /// throws  as the wait until an absolute time.
    void wait(long seconds, int& timedOut) override;

    /// Waits until `absTime`. The other waits call this function.
    /// units   seconds and nanoseconds since the epoch, real-time clock.
    /// range   {0, 0} waits without limit.
    /// throws  ZLockResourceException_6_0 (message 5, rc 0) if the calling thread does not hold the
    ///         lock; ZConditionException_6_0 (message 9), also reported through the message
    ///         service, if the wait fails; as waitTimedOut().
    /// threads the lock is held again at its former depth when the wait ends, even by an exception
    ///         or a cancellation, unless waitTimedOut() throws.
    /// kept    waitTimedOut() runs while the lock is still marked free. A failed timed wait also
    ///         has message 9.
    void wait(timespec& absTime, int& timedOut) override;

    /// Wakes one waiter.
    /// throws  ZConditionException_6_0 (message 10), also reported through the message service.
    void signal() override;

    /// Wakes all waiters.
    /// throws  ZConditionException_6_0 (message 27), also reported through the message service.
    void broadcast() override;

    /// Locks the condition's lock.
    /// throws  as ZLock_6_0::lock().
    void lock() override;

    /// Unlocks the condition's lock.
    /// throws  as ZLock_6_0::unlock().
    void unlock() override;

    /// Returns the condition's lock.
    /// owns    borrowed until the condition is destroyed.
    virtual ZLock_6_0* getResource() const;

    /// Called when a timed wait has timed out. ZCondition_6_0 does nothing.
    void waitTimedOut() override;

    /// Checks that the calling thread holds the lock.
    /// throws  ZLockResourceException_6_0 (message 5, rc 0) if it does not.
    virtual void validateLock();

private:
    void makeCondition();

    ZLock_6_0* lock_;
    int ownsLock_;                   // 1 if the condition created its lock and deletes it
    [[maybe_unused]] int reserved_;  // 0; unused
    pthread_cond_t condition_;
};

/// A condition with a flag; waits until the flag is set.
///
/// A waiter locks, waits and unlocks. A notifier locks, calls setCondition(1), calls signal() or
/// broadcast(), and unlocks.
class ZBooleanCondition_6_0 : public ZCondition_6_0 {
public:
    /// Creates a condition with a lock of its own; the flag is 0.
    /// throws  as the base's.
    ZBooleanCondition_6_0();

    /// Creates a condition on `lock`; the flag is 0.
    /// owns    `lock` is borrowed until the condition is destroyed.
    /// throws  as the base's.
    explicit ZBooleanCondition_6_0(ZLock_6_0& lock);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZBooleanCondition_6_0() override;

    /// Waits until the flag is set; returns immediately if it is.
    /// throws  ZLockResourceException_6_0 (message 5, rc 0) if the calling thread does not hold the
    ///         lock; ZConditionException_6_0 (message 9) if the wait fails.
    void wait() override;

    /// Waits until the flag is set.
    /// kept    see the wait until an absolute time.
    void wait(long seconds, int& timedOut) override;

    /// Waits until the flag is set.
    /// throws  as wait(); ZLockResourceException_6_0 (message 5, rc 0) if the wait times out.
    /// kept    a wait that times out throws instead of returning, and leaves the mutex held and the
    ///         lock marked free. Use the wait without limit.
    void wait(timespec& absTime, int& timedOut) override;

    /// Sets the flag to 1.
    /// throws  as setCondition(): always, if a wait calls it.
    void waitTimedOut() override;

    /// Sets the flag to 0.
    /// throws  as validateLock().
    virtual void initCondition();

    /// Returns the flag.
    /// throws  as validateLock().
    virtual int testCondition();

    /// Sets the flag to `value` and returns 1; wakes no thread.
    /// throws  as validateLock().
    virtual int setCondition(int value);

private:
    int flag_;  // guarded by the condition's lock
};
