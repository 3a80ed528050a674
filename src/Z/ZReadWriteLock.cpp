#include "ZReadWriteLock.h"

#include <pthread.h>

#include <exception>

#include "ZException.h"
#include "ZLock_p.h"

namespace {

constexpr char kSource[] = "src/Z/ZReadWriteLock";

// The number each raise site puts into its report. Log scanners match on it, so it belongs
// to the site and does not follow the line when the file is edited.
enum RaiseSite {
    raiseInUnlockOfReader = 88,
    raiseInUnlockOfFree = 97,
    raiseInUnlockBesideWriter = 104,
    raiseInRecursion = 61,
    raiseInPromote = 142
};

enum Message { mutexLock = 5, mutexUnlock = 6 };

constexpr unsigned long kNobody = ~0ul;

constexpr char const* kStateName[] = {"unset", "read", "protect", "write"};

[[noreturn]] void raiseLock(RaiseSite site)
{
    ZLockResourceException_6_0(mutexLock, 0).throwException(kSource, site);
}

[[noreturn]] void raiseUnlock(RaiseSite site)
{
    ZUnlockResourceException_6_0(mutexUnlock, 0).throwException(kSource, site);
}

}  // namespace

// ---- The base of read-write locks ------------------------------------------------------------

ZAbstractReadWriteLock_6_0::ZAbstractReadWriteLock_6_0() = default;
ZAbstractReadWriteLock_6_0::~ZAbstractReadWriteLock_6_0() = default;

void ZAbstractReadWriteLock_6_0::lock()
{
    lock(write);
}

char const* ZAbstractReadWriteLock_6_0::getLockStateName(zlockstate state) const
{
    return state >= unset && state <= write ? kStateName[state] : nullptr;
}

int ZAbstractReadWriteLock_6_0::isCurrent() const
{
    return 1;
}

void ZAbstractReadWriteLock_6_0::unlock()
{
    unlock(getUpdate());
}

void ZAbstractReadWriteLock_6_0::unlock(int)
{
}

int ZAbstractReadWriteLock_6_0::getUpdate() const
{
    return 0;
}

void ZAbstractReadWriteLock_6_0::setUpdate(int)
{
}

// ---- The lock between threads ----------------------------------------------------------------
//
// from            event                                to
// unset           readLock                             read (1 reader)
// read            readLock, unlock                     read (one more, one less); unset without any
// unset, read     readWithIntentToWriteLock            protect; readers stay
// protect         readLock                             protect (1 reader more)
// protect         promoteReadToWriteLock by holder     write, once the readers have left
// unset           writeLock                            write
// protect, write  unlock by the writer                 read with readers left, else unset
// protect, write  unlock by a reader                   the same (1 reader less)
// Every other acquisition waits until the state allows it.

// Counts a thread as waiting for as long as it waits, however the wait ends.
class ZReadWriteLock_6_0::Waiter {
public:
    explicit Waiter(int& waiters) : waiters_(waiters) { ++waiters_; }
    Waiter(Waiter const&) = delete;
    Waiter& operator=(Waiter const&) = delete;
    ~Waiter() { --waiters_; }

private:
    int& waiters_;
};

ZReadWriteLock_6_0::ZReadWriteLock_6_0() : readers_(0), state_(unset), writer_(kNobody), waiters_(0)
{
}

ZReadWriteLock_6_0::ZReadWriteLock_6_0(ZReadWriteLock_6_0 const&) : ZReadWriteLock_6_0()
{
}

ZReadWriteLock_6_0::~ZReadWriteLock_6_0() = default;

ZObject_6_0* ZReadWriteLock_6_0::clone() const
{
    return new ZReadWriteLock_6_0(*this);
}

void ZReadWriteLock_6_0::lock()
{
    lock(write);
}

void ZReadWriteLock_6_0::lock(zlockstate state)
{
    switch (state) {
        case unset:
            return unlock();
        case read:
            return readLock();
        case protect:
            return readWithIntentToWriteLock();
        case write:
            return writeLock();
    }
}

void ZReadWriteLock_6_0::unlock()
{
    ZResourceLock_6_0 const guard(*changed_.getResource());
    switch (state_) {
        case unset:
            raiseUnlock(raiseInUnlockOfFree);
        case read:
            if (readers_ < 1)
                raiseUnlock(raiseInUnlockOfReader);
            --readers_;
            break;
        case protect:
        case write:
            if (callerIsWriter())
                state_ = read;
            else if (readers_ < 1)
                raiseUnlock(raiseInUnlockBesideWriter);
            else
                --readers_;
            break;
    }
    if (readers_ == 0 && state_ == read)
        state_ = unset;
    // Nobody can go on while "protect" lasts, or before the last reader makes way for the writer.
    // Woken under the lock: a woken thread may destroy this object once it has the lock.
    bool const someoneCanGoOn = state_ != protect && !(state_ == write && readers_ > 0);
    if (waiters_ > 0 && someoneCanGoOn)
        changed_.broadcast();
}

void ZReadWriteLock_6_0::unlock(int)
{
    unlock();
}

int ZReadWriteLock_6_0::haveLock(zlockstate state) const
{
    ZResourceLock_6_0 const guard(*changed_.getResource());
    return state_ == state ? 1 : 0;
}

int ZReadWriteLock_6_0::ownWriteLock() const
{
    ZResourceLock_6_0 const guard(*changed_.getResource());
    // KEPT: not tied to the state; the process locks ask after a release who wrote last.
    // Test: ZReadWriteLock.KeepsTheLastWriterAfterItsRelease
    return callerIsWriter() ? 1 : 0;
}

void ZReadWriteLock_6_0::readLock()
{
    ZResourceLock_6_0 const guard(*changed_.getResource());
    failIfCallerMayWrite();
    while (state_ == write)
        waitForChange();
    ++readers_;
    if (state_ == unset)
        state_ = read;
}

void ZReadWriteLock_6_0::writeLock()
{
    ZResourceLock_6_0 const guard(*changed_.getResource());
    failIfCallerMayWrite();
    // A free lock has no readers, so that there is nobody left to wait for behind this.
    while (state_ != unset)
        waitForChange();
    writer_ = pthread_self();
    state_ = write;
}

void ZReadWriteLock_6_0::readWithIntentToWriteLock()
{
    ZResourceLock_6_0 const guard(*changed_.getResource());
    failIfCallerMayWrite();
    while (state_ == protect || state_ == write)
        waitForChange();
    writer_ = pthread_self();
    state_ = protect;
}

void ZReadWriteLock_6_0::promoteReadToWriteLock()
{
    ZResourceLock_6_0 const guard(*changed_.getResource());
    if (state_ != protect || !callerIsWriter())
        raiseLock(raiseInPromote);
    state_ = write;
    // A wait that does not come back as it should leaves "protect" as it was, for those who were
    // kept out meanwhile too.
    struct Undo {
        ZReadWriteLock_6_0* lock;
        ~Undo()
        {
            if (lock == nullptr)
                return;
            lock->state_ = protect;
            try {
                lock->changed_.broadcast();
            } catch (ZException_6_0 const&) {
                // Reported where it was raised; the exception on its way matters more.
            }
        }
    } undo{this};
    while (readers_ > 0)
        waitForChange();
    undo.lock = nullptr;
}

int ZReadWriteLock_6_0::getReaderCount()
{
    ZResourceLock_6_0 const guard(*changed_.getResource());
    return readers_;
}

void ZReadWriteLock_6_0::waitForChange()
{
    Waiter const waiter(waiters_);
    changed_.wait();
}

void ZReadWriteLock_6_0::failIfCallerMayWrite()
{
    if ((state_ == protect || state_ == write) && callerIsWriter())
        raiseLock(raiseInRecursion);
}

bool ZReadWriteLock_6_0::callerIsWriter() const
{
    return pthread_equal(pthread_self(), writer_) != 0;
}

// ---- The guard -------------------------------------------------------------------------------

ZStackReadWriteLock_6_0::ZStackReadWriteLock_6_0(ZAbstractReadWriteLock_6_0& lock, int update)
    : lock_(lock)
{
    lock_.setUpdate(update);
}

ZStackReadWriteLock_6_0::~ZStackReadWriteLock_6_0()
{
    // A second exception would end the process while a first one unwinds the stack.
    try {
        try {
            lock_.unlock();
        } catch (ZWriteResourceException_6_0 const&) {
            // The lock is still held: let go of it without the update that failed.
            lock_.unlock(0);
            throw;
        }
    } catch (ZException_6_0& failure) {
        if (std::uncaught_exceptions() == 0)
            throw;
        zreportException(failure);
    }
}

void ZStackReadWriteLock_6_0::readLock()
{
    lock_.readLock();
}

void ZStackReadWriteLock_6_0::writeLock()
{
    lock_.writeLock();
}

void ZStackReadWriteLock_6_0::readWithIntentToWriteLock()
{
    lock_.readWithIntentToWriteLock();
}

void ZStackReadWriteLock_6_0::promoteReadToWriteLock()
{
    lock_.promoteReadToWriteLock();
}

void ZStackReadWriteLock_6_0::unlock(int update)
{
    lock_.unlock(update);
}

int ZStackReadWriteLock_6_0::getUpdate() const
{
    return lock_.getUpdate();
}

void ZStackReadWriteLock_6_0::setUpdate(int update)
{
    lock_.setUpdate(update);
}

ZAbstractReadWriteLock_6_0& ZStackReadWriteLock_6_0::getReadWriteLock() const
{
    return lock_;
}
