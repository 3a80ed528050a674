#include "ZCondition.h"

#include <errno.h>
#include <pthread.h>

#include <algorithm>
#include <limits>
#include <memory>

#include "ZException.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZCondition";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInConstructor = 52,
    reportInDestructor = 68,
    raiseInWait = 121,
    raiseInSignal = 136,
    raiseInBroadcast = 150,
    raiseInValidateLock = 164
};

using zreporting::Message;
using enum zreporting::Message;

[[noreturn]] void reportAndThrow(Message message, int rc, RaiseSite site)
{
    zreporting::reportRc({kSource, site}, message, rc);
    ZConditionException_6_0(message, rc).throwException(kSource, site);
}

}  // namespace

ZAbstractCondition_6_0::~ZAbstractCondition_6_0() = default;

ZCondition_6_0::ZCondition_6_0() : lock_(nullptr), ownsLock_(1), reserved_(0), condition_()
{
    std::unique_ptr<ZLock_6_0> lock(new ZLock_6_0);
    makeCondition();
    lock_ = lock.release();
}

ZCondition_6_0::ZCondition_6_0(ZLock_6_0& lock)
    : lock_(&lock), ownsLock_(0), reserved_(0), condition_()
{
    makeCondition();
}

void ZCondition_6_0::makeCondition()
{
    int const rc = pthread_cond_init(&condition_, nullptr);
    if (rc != 0)
        ZConditionException_6_0(conditionInit, rc).throwException(kSource, raiseInConstructor);
}

ZCondition_6_0::~ZCondition_6_0()
{
    int const rc = pthread_cond_destroy(&condition_);
    if (rc != 0)
        zreporting::reportRc({kSource, reportInDestructor}, conditionDestroy, rc);
    if (ownsLock_ != 0)
        delete lock_;
}

void ZCondition_6_0::wait()
{
    timespec noLimit = {0, 0};
    int timedOut = 0;
    wait(noLimit, timedOut);
}

void ZCondition_6_0::wait(long seconds, int& timedOut)
{
    // {0, 0} would wait forever, so the earliest end is the first second after the epoch. Do not
    // use time(): it may be a tick earlier than the clock of the wait, which would then end early.
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    time_t end = 0;
    if (__builtin_add_overflow(now.tv_sec, seconds, &end))
        end = std::numeric_limits<time_t>::max();
    timespec absTime = {std::max<time_t>(end, 1), 0};
    wait(absTime, timedOut);
}

void ZCondition_6_0::wait(timespec& absTime, int& timedOut)
{
    validateLock();
    timedOut = 0;

    // The mutex stays locked until the wait releases it; only clear the marks.
    int const nested = lock_->markFree();
    int rc = 0;
    try {
        pthread_mutex_t* const mutex = &lock_->mutex_;
        bool const unlimited = absTime.tv_sec == 0 && absTime.tv_nsec == 0;
        rc = unlimited ? pthread_cond_wait(&condition_, mutex)
                       : pthread_cond_timedwait(&condition_, mutex, &absTime);
        if (rc == ETIMEDOUT) {
            // KEPT: the hook runs while the lock is marked free, and the lock stays so if the hook
            // throws. A hook that examines the holder, as in ZBooleanCondition_6_0, throws; with
            // the marks restored before it, a wait that has timed out would return as if the
            // condition were true. Test: ZCondition.KeepsTheLockMarkedFreeInTheTimeOutHook
            rc = 0;
            waitTimedOut();
            timedOut = 1;
        }
    } catch (...) {
        // A cancelled wait has the mutex again; guards in the outer frames unlock it.
        if (zreporting::caughtCancellation())
            lock_->markHeld(nested);
        throw;
    }
    lock_->markHeld(nested);

    // KEPT: a failed timed wait reports the message of the untimed one. A log scanner that matches
    // that message would miss another. Test: ZCondition.KeepsOneMessageForBothWaits
    if (rc != 0)
        reportAndThrow(conditionWait, rc, raiseInWait);
}

void ZCondition_6_0::signal()
{
    int const rc = pthread_cond_signal(&condition_);
    if (rc != 0)
        reportAndThrow(conditionSignal, rc, raiseInSignal);
}

void ZCondition_6_0::broadcast()
{
    int const rc = pthread_cond_broadcast(&condition_);
    if (rc != 0)
        reportAndThrow(conditionBroadcast, rc, raiseInBroadcast);
}

void ZCondition_6_0::lock()
{
    lock_->lock();
}

void ZCondition_6_0::unlock()
{
    lock_->unlock();
}

ZLock_6_0* ZCondition_6_0::getResource() const
{
    return lock_;
}

void ZCondition_6_0::waitTimedOut()
{
}

void ZCondition_6_0::validateLock()
{
    if (!lock_->heldByCaller())
        ZLockResourceException_6_0(mutexLock, 0).throwException(kSource, raiseInValidateLock);
}

ZBooleanCondition_6_0::ZBooleanCondition_6_0() : flag_(0)
{
}

ZBooleanCondition_6_0::ZBooleanCondition_6_0(ZLock_6_0& lock) : ZCondition_6_0(lock), flag_(0)
{
}

ZBooleanCondition_6_0::~ZBooleanCondition_6_0() = default;

void ZBooleanCondition_6_0::wait()
{
    ZCondition_6_0::wait();
}

void ZBooleanCondition_6_0::wait(long seconds, int& timedOut)
{
    ZCondition_6_0::wait(seconds, timedOut);
}

void ZBooleanCondition_6_0::wait(timespec& absTime, int& timedOut)
{
    // KEPT: when the wait times out, waitTimedOut() sets the flag while the lock is marked free, so
    // the check of the holder throws. Without the exception the wait would return with the flag
    // set, and a program that ignores `timedOut` would take the condition for true.
    // Test: ZBooleanCondition.KeepsThrowingWhenTheTimeRunsOut
    while (testCondition() == 0)
        ZCondition_6_0::wait(absTime, timedOut);
}

void ZBooleanCondition_6_0::waitTimedOut()
{
    setCondition(1);
}

void ZBooleanCondition_6_0::initCondition()
{
    validateLock();
    flag_ = 0;
}

int ZBooleanCondition_6_0::testCondition()
{
    validateLock();
    return flag_;
}

int ZBooleanCondition_6_0::setCondition(int value)
{
    validateLock();
    flag_ = value;
    return 1;
}
