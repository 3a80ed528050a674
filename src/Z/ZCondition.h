// ZCondition: waiting, under a ZLock_6_0, for another thread's signal; with a flag or without.
//
// Subsystem: threads.  Stands on: ZObject, ZException, ZMessage, ZLock.
//
// Ownership: a condition borrows the lock it is given, or owns the one it makes for itself.
// Threads: for use by every thread at once. A wait needs the lock held, to whatever depth: it
// releases it completely and restores the depth; signal() and broadcast() do not need it.
#pragma once

#include <pthread.h>
#include <time.h>

#include "ZLock.h"
#include "ZObject.h"

/// What can be waited for.
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

    /// Is called when a timed wait ran out.
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
    /// Makes a condition with a lock of its own.
    /// throws  ZConditionException_6_0 (message 7) with the rc of pthread_cond_init(); what
    ///         making a lock throws; ZOutOfMemoryException_6_0.
    ZCondition_6_0();

    /// Makes a condition on `lock`.
    /// owns    `lock` is borrowed until the condition is destroyed.
    /// throws  ZConditionException_6_0 (message 7) with the rc of pthread_cond_init().
    explicit ZCondition_6_0(ZLock_6_0& lock);
    ZCondition_6_0(ZCondition_6_0 const&) = delete;
    ZCondition_6_0& operator=(ZCondition_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Destroys the condition, and its lock when it made that; a failure is reported through the
    /// message service (message 8).
    ~ZCondition_6_0() override;

    /// Waits without limit.
    /// throws  as the wait until an absolute time.
    void wait() override;

    /// Waits at most `seconds` from now; 0 runs out at once.
    /// units   whole seconds of the real-time clock.
    /// range   a moment before the epoch's first second counts as that second, one beyond the
    ///         end of time as the end.
    /// throws  as the wait until an absolute time.
    void wait(long seconds, int& timedOut) override;

    /// Waits until `absTime`; every other wait ends here.
    /// units   seconds and nanoseconds since the epoch, real-time clock.
    /// range   {0, 0} waits without limit.
    /// throws  ZLockResourceException_6_0 (message 5, rc 0) when the calling thread does not hold
    ///         the lock; ZConditionException_6_0 (message 9), reported through the message service
    ///         as well, when the wait fails; what waitTimedOut() throws.
    /// threads the lock is held again, to its former depth, whenever the wait is left, also by an
    ///         exception or a cancellation; the one exception is a throwing waitTimedOut().
    /// kept    waitTimedOut() runs while the lock is still marked free. A failed timed wait
    ///         carries message 9 as well.
    void wait(timespec& absTime, int& timedOut) override;

    /// Wakes one waiter.
    /// throws  ZConditionException_6_0 (message 10), reported through the message service as well.
    void signal() override;

    /// Wakes all waiters.
    /// throws  ZConditionException_6_0 (message 27), reported through the message service as well.
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

    /// Is called when a timed wait ran out; does nothing here.
    void waitTimedOut() override;

    /// Passes when the calling thread holds the lock.
    /// throws  ZLockResourceException_6_0 (message 5, rc 0) when it does not.
    virtual void validateLock();

private:
    void makeCondition();

    ZLock_6_0* lock_;
    int ownsLock_;                   // 1 when the condition made its lock and deletes it
    [[maybe_unused]] int reserved_;  // 0; nothing reads it
    pthread_cond_t condition_;
};

/// A condition that carries a flag and waits until the flag is set.
///
/// A waiter locks, waits, unlocks; a notifier locks, calls setCondition(1), signals or broadcasts,
/// unlocks.
class ZBooleanCondition_6_0 : public ZCondition_6_0 {
public:
    /// Makes a condition with a lock of its own; the flag is 0.
    /// throws  as the base's.
    ZBooleanCondition_6_0();

    /// Makes a condition on `lock`; the flag is 0.
    /// owns    `lock` is borrowed until the condition is destroyed.
    /// throws  as the base's.
    explicit ZBooleanCondition_6_0(ZLock_6_0& lock);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZBooleanCondition_6_0() override;

    /// Waits until the flag is set; returns at once when it is.
    /// throws  ZLockResourceException_6_0 (message 5, rc 0) when the calling thread does not hold
    ///         the lock; ZConditionException_6_0 (message 9) when the wait fails.
    void wait() override;

    /// Waits until the flag is set.
    /// kept    see the wait until an absolute time.
    void wait(long seconds, int& timedOut) override;

    /// Waits until the flag is set.
    /// throws  as wait(); ZLockResourceException_6_0 (message 5, rc 0) when the time runs out.
    /// kept    a wait that runs out does not return: it throws and leaves the mutex held and the
    ///         lock marked free. Use the wait without limit.
    void wait(timespec& absTime, int& timedOut) override;

    /// Sets the flag to 1.
    /// throws  as setCondition(): always, when a wait calls it.
    void waitTimedOut() override;

    /// Sets the flag to 0.
    /// throws  as validateLock().
    virtual void initCondition();

    /// Returns the flag.
    /// throws  as validateLock().
    virtual int testCondition();

    /// Sets the flag to `value` and returns 1; wakes nobody.
    /// throws  as validateLock().
    virtual int setCondition(int value);

private:
    int flag_;  // guarded by the condition's lock
};
