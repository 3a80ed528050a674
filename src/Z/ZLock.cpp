#include "ZLock.h"

#include <pthread.h>

#include "ZException.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZLock";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInConstructor = 40,
    reportInDestructor = 58,
    raiseInLock = 77,
    raiseInUnlockOfStranger = 91,
    raiseInUnlock = 106,
    reportInGuard = 119
};

using enum zreporting::Message;

}  // namespace

ZLock_6_0::ZLock_6_0() : mutex_(), owner_(kNobody), nested_(0)
{
    int const rc = pthread_mutex_init(&mutex_, nullptr);
    if (rc != 0)
        ZCreateResourceException_6_0(mutexInit, rc).throwException(kSource, raiseInConstructor);
}

// KEPT: the copy constructor copies nothing and initialises no mutex. Classes that contain a lock
// are copied with it and then create a lock of their own; a copy with a mutex would leak it.
// Zeroes, so that destroying the copy is harmless. Test: ZLock.KeepsACopyFreeAndUninitialised
ZLock_6_0::ZLock_6_0(ZLock_6_0 const& other)
    : ZAbstractLock_6_0(), ZObject_6_0(other), mutex_(), owner_(kNobody), nested_(0)
{
}

// KEPT: assignment changes nothing. An object that contains a lock may be assigned while threads
// wait for that lock; if its mutex were replaced, they would wait forever.
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
