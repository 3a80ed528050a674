// ZCondition: condition variables bound to a ZLock_6_0, with or without a flag.
//
// Subsystem: threads.  Stands on: ZObject, ZException, ZMessage, ZLock.
//
// Ownership: a condition borrows the lock passed to its constructor, or owns the lock it creates.
// Threads: any number of threads may use a condition at the same time. A wait requires the lock, at
// any depth: it releases the lock completely and restores the depth. signal() and broadcast() do
// not require it.
#pragma once

#include <pthread.h>
#include <time.h>

#include "ZLock.h"
#include "ZObject.h"

/// The interface of condition variables.
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
    /// throws  ZConditionException_6_0 (message 7) with the rc of pthread_cond_init();
    ///         ZOutOfMemoryException_6_0; any exception of the ZLock_6_0 constructor.
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
    /// throws  as wait(timespec&, int&).
    void wait() override;

    /// Waits at most `seconds` from now; 0 times out immediately.
    /// units   whole seconds of the real-time clock.
    /// range   the end of the wait is clamped to the range from 1 second after the epoch to the
    ///         largest time_t.
    /// throws  as wait(timespec&, int&).
    void wait(long seconds, int& timedOut) override;

    /// Waits for a signal, at most until `absTime`. Sets `timedOut` to 1 if the time runs out, else
    /// to 0. May also return without a signal. The other waits call this function.
    /// units   seconds and nanoseconds since the epoch, real-time clock.
    /// range   {0, 0} waits without limit.
    /// throws  ZLockResourceException_6_0 (message 5, rc 0) if the calling thread does not hold the
    ///         lock; ZConditionException_6_0 (message 9), also reported through the message
    ///         service, if the wait fails; any exception of waitTimedOut().
    /// threads when the wait ends, also by a cancellation, the thread holds the lock again at its
    ///         former depth. If waitTimedOut() throws, the lock stays marked free.
    /// kept    while waitTimedOut() runs, the thread holds the mutex, but the lock is marked free.
    ///         A failed timed wait throws message 9, as an unlimited wait does.
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

/// A condition with a flag. A wait ends when the flag is set.
///
/// A waiter locks, waits and unlocks. A notifier locks, calls setCondition(1), calls signal() or
/// broadcast(), and unlocks.
class ZBooleanCondition_6_0 : public ZCondition_6_0 {
public:
    /// Creates a condition with a lock of its own; the flag is 0.
    /// throws  as ZCondition_6_0().
    ZBooleanCondition_6_0();

    /// Creates a condition on `lock`; the flag is 0.
    /// owns    `lock` is borrowed until the condition is destroyed.
    /// throws  as ZCondition_6_0(ZLock_6_0&).
    explicit ZBooleanCondition_6_0(ZLock_6_0& lock);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZBooleanCondition_6_0() override;

    /// Waits until the flag is set; returns immediately if it is.
    /// throws  ZLockResourceException_6_0 (message 5, rc 0) if the calling thread does not hold the
    ///         lock; ZConditionException_6_0 (message 9) if the wait fails.
    void wait() override;

    /// Waits until the flag is set.
    /// throws  as wait(timespec&, int&).
    /// kept    as wait(timespec&, int&).
    void wait(long seconds, int& timedOut) override;

    /// Waits until the flag is set.
    /// throws  as wait(); ZLockResourceException_6_0 (message 5, rc 0) if the wait times out.
    /// kept    a wait that times out throws instead of returning, and leaves the mutex held and the
    ///         lock marked free. Use wait() instead.
    void wait(timespec& absTime, int& timedOut) override;

    /// Sets the flag to 1.
    /// throws  as setCondition(). Always throws if a wait calls it: the lock is marked free then.
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
