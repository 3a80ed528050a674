#include "ZLock.h"

#include <pthread.h>

#include "ZException.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZLock";

// The number each raise site puts into its report. Log scanners match on it, so it belongs
// to the site and does not follow the line when the file is edited.
enum RaiseSite {
    raiseInConstructor = 40,
    reportInDestructor = 58,
    raiseInLock = 77,
    raiseInUnlockOfStranger = 91,
    raiseInUnlock = 106,
    reportInGuard = 119
};

enum Message { mutexInit = 3, mutexDestroy = 4, mutexLock = 5, mutexUnlock = 6 };

}  // namespace

ZLock_6_0::ZLock_6_0() : mutex_(), owner_(kNobody), nested_(0)
{
    int const rc = pthread_mutex_init(&mutex_, nullptr);
    if (rc != 0)
        ZCreateResourceException_6_0(mutexInit, rc).throwException(kSource, raiseInConstructor);
}

// KEPT: a copy is no copy and no initialised lock; classes that have a lock are copied with it,
// and each copy is given a lock of its own before it is used. Zeroes, so that destroying it is
// harmless. Test: ZLock.KeepsACopyFreeAndUninitialised
ZLock_6_0::ZLock_6_0(ZLock_6_0 const& other)
    : ZAbstractLock_6_0(), ZObject_6_0(other), mutex_(), owner_(kNobody), nested_(0)
{
}

// KEPT: assigning changes nothing: the threads that hold or wait for the target rely on it.
// Test: ZLock.KeepsItsStateWhenAssignedTo
ZLock_6_0& ZLock_6_0::operator=(ZLock_6_0 const&)
{
    return *this;
}

ZLock_6_0::~ZLock_6_0()
{
    int const rc = pthread_mutex_destroy(&mutex_);
    if (rc != 0)
        zreporting::reportRc({kSource, reportInDestructor}, mutexDestroy, rc);
}

bool ZLock_6_0::heldByCaller() const
{
    return owner() == self();
}

int ZLock_6_0::markFree()
{
    int const nested = nested_;
    nested_ = 0;
    setOwner(kNobody);
    return nested;
}

void ZLock_6_0::markHeld(int nested)
{
    nested_ = nested;
    setOwner(self());
}

void ZLock_6_0::raiseLock(int rc)
{
    ZLockResourceException_6_0(mutexLock, rc).throwException(kSource, raiseInLock);
}

void ZLock_6_0::raiseUnlock(int rc, UnlockFailure failure)
{
    constexpr RaiseSite kSites[] = {raiseInUnlockOfStranger, raiseInUnlock};
    ZUnlockResourceException_6_0(mutexUnlock, rc).throwException(kSource, kSites[failure]);
}

ZResourceLock_6_0::ZResourceLock_6_0(ZLock_6_0& lock) : lock_(lock)
{
    lock_.lock();
}

ZResourceLock_6_0::~ZResourceLock_6_0()
{
    zreporting::runInDestructor({kSource, reportInGuard}, [this] { lock_.unlock(); });
}
