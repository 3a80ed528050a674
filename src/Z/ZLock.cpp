#include "ZLock.h"

#include <pthread.h>

#include <atomic>
#include <charconv>
#include <cstring>
#include <exception>
#include <type_traits>

#include "ZException.h"
#include "ZLock_p.h"
#include "ZMessage.h"

namespace {

constexpr char kSource[] = "src/Z/ZLock";

// The number each raise site puts into its report. Log scanners match on it, so it belongs
// to the site and does not follow the line when the file is edited.
enum RaiseSite {
    raiseInConstructor = 40,
    reportInDestructor = 58,
    raiseInLock = 77,
    raiseInUnlockOfStranger = 91,
    raiseInUnlockOfFree = 94,
    raiseInUnlock = 106
};

enum Message { mutexInit = 3, mutexDestroy = 4, mutexLock = 5, mutexUnlock = 6 };

constexpr unsigned long kNobody = ~0ul;

static_assert(std::is_same_v<pthread_t, unsigned long>);

// The id that pthread_self() gives. On x86-64 glibc's id is the thread pointer, which the compiler
// reads in one instruction; the call would cost as much as the rest of the fast path.
inline unsigned long self()
{
#if defined(__x86_64__) && defined(__GLIBC__)
    return reinterpret_cast<unsigned long>(__builtin_thread_pointer());
#else
    return pthread_self();
#endif
}

// The owner word is read by threads that do not hold the mutex: only the holder can find its own
// id there, so that no order is needed.
inline unsigned long loadOwner(unsigned long& owner)
{
    return std::atomic_ref<unsigned long>(owner).load(std::memory_order_relaxed);
}

inline void storeOwner(unsigned long& owner, unsigned long id)
{
    std::atomic_ref<unsigned long>(owner).store(id, std::memory_order_relaxed);
}

inline pthread_mutex_t* mutexIn(unsigned char* storage)
{
    return reinterpret_cast<pthread_mutex_t*>(storage);
}

[[noreturn, gnu::cold, gnu::noinline]] void raiseLock(int rc)
{
    ZLockResourceException_6_0(mutexLock, rc).throwException(kSource, raiseInLock);
}

[[noreturn, gnu::cold, gnu::noinline]] void raiseUnlock(int rc, RaiseSite site)
{
    ZUnlockResourceException_6_0(mutexUnlock, rc).throwException(kSource, site);
}

}  // namespace

void zreportRc(char const* source, int site, int messageNumber, int rc) noexcept
{
    ZCancelGuard const uncancelled;
    char digits[16];
    *std::to_chars(digits, digits + sizeof digits - 1, rc).ptr = '\0';
    try {
        ZException_6_0::Text const text(digits);
        ZMessageService_6_0::messageService()->outputMessage(
            source, site, messageNumber, 1, &text, nullptr, nullptr, nullptr, nullptr, nullptr);
    } catch (...) {
        // There is nobody left to tell.
    }
}

void zreportException(ZException_6_0& failure) noexcept
{
    ZCancelGuard const uncancelled;
    try {
        failure.dumpException();
    } catch (...) {
        // There is nobody left to tell.
    }
}

ZLock_6_0::ZLock_6_0() : owner_(kNobody), count_(0)
{
    static_assert(sizeof(pthread_mutex_t) <= sizeof mutex_);
    static_assert(alignof(pthread_mutex_t) <= alignof(long));
    std::memset(mutex_, 0, sizeof mutex_);
    int const rc = pthread_mutex_init(mutexIn(mutex_), nullptr);
    if (rc != 0)
        ZCreateResourceException_6_0(mutexInit, rc).throwException(kSource, raiseInConstructor);
}

// KEPT: a copy is no copy and no initialised lock; classes that have a lock are copied with it,
// and each copy is given a lock of its own before it is used. Zeroes, so that destroying it is
// harmless. Test: ZLock.KeepsACopyFreeAndUninitialised
ZLock_6_0::ZLock_6_0(ZLock_6_0 const& other)
    : ZAbstractLock_6_0(), ZObject_6_0(other), owner_(kNobody), count_(0)
{
    std::memset(mutex_, 0, sizeof mutex_);
}

// KEPT: assigning changes nothing: the threads that hold or wait for the target rely on it.
// Test: ZLock.KeepsItsStateWhenAssignedTo
ZLock_6_0& ZLock_6_0::operator=(ZLock_6_0 const&)
{
    return *this;
}

ZLock_6_0::~ZLock_6_0()
{
    int const rc = pthread_mutex_destroy(mutexIn(mutex_));
    if (rc != 0)
        zreportRc(kSource, reportInDestructor, mutexDestroy, rc);
}

void ZLock_6_0::lock()
{
    unsigned long const caller = self();
    if (loadOwner(owner_) == caller) {
        ++count_;
        return;
    }
    int const rc = pthread_mutex_lock(mutexIn(mutex_));
    if (rc != 0) [[unlikely]]
        raiseLock(rc);
    count_ = 1;
    storeOwner(owner_, caller);
}

void ZLock_6_0::unlock()
{
    unsigned long const caller = self();
    if (loadOwner(owner_) != caller) [[unlikely]]
        raiseUnlock(0, raiseInUnlockOfStranger);
    if (count_ != 1) {
        if (count_ <= 0) [[unlikely]]
            raiseUnlock(0, raiseInUnlockOfFree);
        --count_;
        return;
    }
    storeOwner(owner_, kNobody);
    count_ = 0;
    int const rc = pthread_mutex_unlock(mutexIn(mutex_));
    if (rc != 0) [[unlikely]] {
        count_ = 1;
        storeOwner(owner_, caller);
        raiseUnlock(rc, raiseInUnlock);
    }
}

// The owner is asked first: the count is the holder's alone.
bool ZLock_6_0::heldByCaller()
{
    return pthread_equal(pthread_self(), loadOwner(owner_)) != 0 && count_ > 0;
}

int ZLock_6_0::markFree()
{
    int const depth = count_;
    storeOwner(owner_, kNobody);
    count_ = 0;
    return depth;
}

void ZLock_6_0::markHeld(int depth)
{
    count_ = depth;
    storeOwner(owner_, self());
}

ZResourceLock_6_0::ZResourceLock_6_0(ZLock_6_0& lock) : lock_(lock)
{
    lock_.lock();
}

ZResourceLock_6_0::~ZResourceLock_6_0()
{
    // A second exception would end the process while a first one unwinds the stack.
    try {
        lock_.unlock();
    } catch (ZException_6_0& failure) {
        if (std::uncaught_exceptions() == 0)
            throw;
        zreportException(failure);
    }
}
