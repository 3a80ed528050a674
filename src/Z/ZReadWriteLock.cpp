#include "ZReadWriteLock.h"

#include <atomic>

#include "ZException.h"
#include "locks/hold_counters.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZReadWriteLock";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInUnlockOfFree = 97,
    raiseInUnlockBesideWriter = 104,
    raiseInRecursion = 61,
    raiseInPromote = 142,
    reportInGuard = 171
};

using enum zreporting::Message;

constexpr unsigned long kNoThread = ~0ul;

constexpr char const* kStateName[] = {"unset", "read", "protect", "write"};

[[noreturn]] void throwLockException(RaiseSite site)
{
    ZLockResourceException_6_0(mutexLock, 0).throwException(kSource, site);
}

[[noreturn]] void throwUnlockException(RaiseSite site)
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
// read            readLock, unlock                     read (1 more, 1 less); unset without any
// unset, read     readWithIntentToWriteLock            protect; readers stay
// protect         readLock                             protect (1 reader more)
// protect         promoteReadToWriteLock by holder     write, once the readers have left
// unset           writeLock                            write
// protect, write  unlock by the writer                 read with readers left, else unset
// protect, write  unlock by a reader                   the same (1 reader less)
// Every other acquisition waits until the state allows it.
//
// One word has the number of readers and the flags below; without a flag the state is "read" or
// "unset". An uncontended operation is one compare-and-swap. A thread that must wait takes the
// condition's lock, sets kWaiting in the word and sleeps. While kWaiting is set, every release
// takes the condition's lock too: no wake-up is lost, and a woken thread may destroy the lock
// because no other thread is inside it.

namespace {

constexpr unsigned long kReader = 1;
constexpr unsigned long kReaders = 0xFFFFFFFF;
constexpr unsigned long kProtect = 1ul << 32;
constexpr unsigned long kWrite = 1ul << 33;
constexpr unsigned long kWaiting = 1ul << 34;  // a thread waits; guarded by the condition's lock
constexpr unsigned long kPromotion = kWrite - kProtect;

using Word = std::atomic_ref<unsigned long>;

ZReadWriteLockInterface_6_0::zlockstate stateIn(unsigned long word)
{
    using Lock = ZReadWriteLockInterface_6_0;
    if ((word & kWrite) != 0)
        return Lock::write;
    if ((word & kProtect) != 0)
        return Lock::protect;
    return (word & kReaders) != 0 ? Lock::read : Lock::unset;
}

// Returns `word` after its holder of "protect" or "write", or else one reader, has released.
inline unsigned long afterRelease(unsigned long word, bool byHolder)
{
    if (byHolder)
        return word & ~(kProtect | kWrite);
    if ((word & kReaders) == 0)
        throwUnlockException(stateIn(word) == ZReadWriteLockInterface_6_0::unset
                                 ? raiseInUnlockOfFree
                                 : raiseInUnlockBesideWriter);
    return word - kReader;
}

// Adds `step` to the word if no bit of `blockers` is set. Returns whether it did.
inline bool tryAdd(unsigned long& state, unsigned long blockers, unsigned long step)
{
    Word const word(state);
    unsigned long now = word.load(std::memory_order_relaxed);
    while ((now & blockers) == 0)
        if (word.compare_exchange_weak(now, now + step, std::memory_order_acquire,
                                       std::memory_order_relaxed))
            return true;
    return false;
}

}  // namespace

inline unsigned long ZReadWriteLock_6_0::word() const
{
    return Word(const_cast<unsigned long&>(word_)).load(std::memory_order_relaxed);
}

// A relaxed load suffices: only the thread that holds "protect" or "write" can find its own id.
inline bool ZReadWriteLock_6_0::callerHolds() const
{
    unsigned long& holder = const_cast<unsigned long&>(holder_);
    return Word(holder).load(std::memory_order_relaxed) == ZLock_6_0::self();
}

inline void ZReadWriteLock_6_0::setHolder(unsigned long id)
{
    Word(holder_).store(id, std::memory_order_relaxed);
}

inline void ZReadWriteLock_6_0::noteCallerAsHolder()
{
    setHolder(ZLock_6_0::self());
    Word(writer_).store(ZLock_6_0::self(), std::memory_order_relaxed);
}

inline void ZReadWriteLock_6_0::failIfCallerHolds() const
{
    if (callerHolds())
        throwLockException(raiseInRecursion);
}

// Counts a waiting thread in its scope. Created and destroyed under the condition's lock.
class ZReadWriteLock_6_0::Waiter {
public:
    explicit Waiter(ZReadWriteLock_6_0& lock) : lock_(lock)
    {
        if (++lock_.waiters_ == 1)
            Word(lock_.word_).fetch_or(kWaiting, std::memory_order_relaxed);
    }
    Waiter(Waiter const&) = delete;
    Waiter& operator=(Waiter const&) = delete;
    ~Waiter()
    {
        if (--lock_.waiters_ == 0)
            Word(lock_.word_).fetch_and(~kWaiting, std::memory_order_relaxed);
    }

private:
    ZReadWriteLock_6_0& lock_;
};

ZReadWriteLock_6_0::ZReadWriteLock_6_0()
    : word_(0), holder_(kNoThread), writer_(kNoThread), waiters_(0)
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
    bool const byHolder = callerHolds();
    if (byHolder)
        setHolder(kNoThread);
    Word const word(word_);
    unsigned long now = word.load(std::memory_order_relaxed);
    while ((now & kWaiting) == 0)
        if (word.compare_exchange_weak(now, afterRelease(now, byHolder), std::memory_order_release,
                                       std::memory_order_relaxed)) {
            zlocks::recordHold(this, -1);
            return;
        }
    if (byHolder)
        setHolder(ZLock_6_0::self());
    if (releaseAndWake(byHolder))
        zlocks::recordHold(this, -1);
    else
        unlock();
}

// Releases the lock while a thread waits for it. Returns false, without releasing, if no thread
// waits any more: then the lock may be destroyed as soon as it is free, but this function still has
// to unlock the condition's lock.
bool ZReadWriteLock_6_0::releaseAndWake(bool byHolder)
{
    ZResourceLock_6_0 const guard(*changed_.getResource());
    Word const word(word_);
    if ((word.load(std::memory_order_relaxed) & kWaiting) == 0)
        return false;
    if (byHolder)
        setHolder(kNoThread);
    unsigned long now = word.load(std::memory_order_relaxed);
    unsigned long next = 0;
    do
        next = afterRelease(now, byHolder);
    while (!word.compare_exchange_weak(now, next, std::memory_order_release,
                                       std::memory_order_relaxed));
    // A leaving reader unblocks a waiter only if it was the last reader and "protect" is not held.
    if (byHolder || (next & (kReaders | kProtect)) == 0)
        changed_.broadcast();
    return true;
}

void ZReadWriteLock_6_0::unlock(int)
{
    unlock();
}

int ZReadWriteLock_6_0::haveLock(zlockstate state) const
{
    return stateIn(word()) == state ? 1 : 0;
}

int ZReadWriteLock_6_0::ownWriteLock() const
{
    // KEPT: the result does not depend on the state. A thread that asks after its release whether
    // the last change was its own, so as not to read it again, would read it again.
    // Test: ZReadWriteLock.KeepsTheLastWriterAfterItsRelease
    unsigned long& writer = const_cast<unsigned long&>(writer_);
    return Word(writer).load(std::memory_order_relaxed) == ZLock_6_0::self() ? 1 : 0;
}

void ZReadWriteLock_6_0::readLock()
{
    failIfCallerHolds();
    if (!tryAdd(word_, kWrite, kReader))
        waitAndEnter(kWrite, kReader);
    zlocks::recordHold(this, 1);
}

void ZReadWriteLock_6_0::writeLock()
{
    failIfCallerHolds();
    if (!tryAdd(word_, kReaders | kProtect | kWrite, kWrite))
        waitAndEnter(kReaders | kProtect | kWrite, kWrite);
    noteCallerAsHolder();
    zlocks::recordHold(this, 1);
}

void ZReadWriteLock_6_0::readWithIntentToWriteLock()
{
    failIfCallerHolds();
    if (!tryAdd(word_, kProtect | kWrite, kProtect))
        waitAndEnter(kProtect | kWrite, kProtect);
    noteCallerAsHolder();
    zlocks::recordHold(this, 1);
}

void ZReadWriteLock_6_0::promoteReadToWriteLock()
{
    if (!callerHolds() || stateIn(word()) != protect)
        throwLockException(raiseInPromote);
    if (!tryAdd(word_, kReaders, kPromotion))
        waitAndPromote();
}

int ZReadWriteLock_6_0::getReaderCount()
{
    return static_cast<int>(word() & kReaders);
}

void ZReadWriteLock_6_0::waitAndEnter(unsigned long blockers, unsigned long step)
{
    ZResourceLock_6_0 const guard(*changed_.getResource());
    Waiter const waiter(*this);
    while (!tryAdd(word_, blockers, step))
        changed_.wait();
}

void ZReadWriteLock_6_0::waitAndPromote()
{
    ZResourceLock_6_0 const guard(*changed_.getResource());
    // A failed or cancelled wait restores "protect" and wakes the threads that the promotion
    // blocked.
    struct Undo {
        ZReadWriteLock_6_0* lock;
        ~Undo()
        {
            if (lock == nullptr)
                return;
            Word(lock->word_).fetch_sub(kPromotion, std::memory_order_release);
            try {
                lock->changed_.broadcast();
            } catch (ZException_6_0 const&) {
                // It is reported where it was thrown; the exception in flight matters more.
            }
        }
    };
    Word(word_).fetch_add(kPromotion, std::memory_order_relaxed);
    Undo undo{this};
    Waiter const waiter(*this);
    while (!tryAdd(word_, kReaders, 0))
        changed_.wait();
    undo.lock = nullptr;
}

// ---- The guard -------------------------------------------------------------------------------
//
// See locks/hold_counters.h for the holds of a guard whose acquisition failed.

static_assert(sizeof(ZStackReadWriteLock_6_0) == 24);

namespace {

bool recordsHolds(ZAbstractReadWriteLock_6_0 const& lock)
{
    auto const isProcessLock = zlocks::isProcessLock.load(std::memory_order_relaxed);
    return dynamic_cast<ZReadWriteLock_6_0 const*>(&lock) != nullptr ||
           (isProcessLock != nullptr && isProcessLock(lock));
}

}  // namespace

struct ZStackReadWriteLock_6_0::Rep {
    // values of failed_ after a failure
    enum Failure { whileHeld = 1, whileFree = 2 };

    // Runs while an exception or a cancellation is in flight.
    static void noteFailure(ZStackReadWriteLock_6_0& guard, int heldBefore) noexcept
    {
        // A lock file knows how often its thread holds it, through the guard or not.
        auto const holdsOfCaller = zlocks::holdsOfCaller.load(std::memory_order_relaxed);
        int const known = holdsOfCaller != nullptr ? holdsOfCaller(guard.lock_) : -1;
        guard.held_ = known >= 0 ? known : heldBefore;
        zlocks::startCounting(&guard, &guard.lock_, guard.held_);
        guard.failed_ = whileHeld;
        try {
            if (guard.lock_.haveLock(ZReadWriteLockInterface_6_0::unset) != 0)
                guard.failed_ = whileFree;
        } catch (...) {
            // A class of the caller threw: treat the lock as held.
        }
    }

    // Ends the counter and returns whether the thread holds the lock.
    static bool holdsAfterFailure(ZStackReadWriteLock_6_0& guard)
    {
        if (zlocks::stopCounting(&guard, guard.held_) > 0)
            return true;
        // A class of the caller does not record its holders. If the lock was free at the failure
        // and is not free now, this thread has acquired it, as far as the lock can show.
        ZAbstractReadWriteLock_6_0 const& lock = guard.lock_;
        if (guard.failed_ != whileFree || recordsHolds(lock))
            return false;
        using Lock = ZReadWriteLockInterface_6_0;
        return lock.haveLock(Lock::unset) == 0 &&
               (lock.haveLock(Lock::read) != 0 || lock.ownWriteLock() != 0);
    }
};

ZStackReadWriteLock_6_0::ZStackReadWriteLock_6_0(ZAbstractReadWriteLock_6_0& lock, int update)
    : lock_(lock), held_(0), failed_(0)
{
    // KEPT: the flag is set here and not on acquisition. A program that puts a guard around a lock
    // that it already holds would lose its flag.
    // Test: ZProcessReadWriteLock.KeepsTheFlagThatAGuardSetsImmediately
    lock_.setUpdate(update);
}

ZStackReadWriteLock_6_0::~ZStackReadWriteLock_6_0()
{
    zreporting::runInDestructor({kSource, reportInGuard}, [this] {
        if (failed_ != 0 && !Rep::holdsAfterFailure(*this))
            return;
        try {
            lock_.unlock();
        } catch (ZWriteResourceException_6_0 const&) {
            // The lock is still held: release it without the failed update.
            lock_.unlock(0);
            throw;
        }
    });
}

template <class Action>
void ZStackReadWriteLock_6_0::acquire(Action action)
{
    struct Attempt {
        ZStackReadWriteLock_6_0& guard;
        int held;
        bool succeeded = false;

        ~Attempt()
        {
            if (!succeeded)
                Rep::noteFailure(guard, held);
        }
    } attempt{*this, failed_ != 0 ? zlocks::stopCounting(this, held_) : held_};
    try {
        action();
    } catch (ZLockResourceException_6_0 const& failure) {
        // This thread already holds the lock: the guard will release it.
        if (failure.messageNumber() == mutexLock && failure.returnCode() == 0)
            attempt.held = std::max(attempt.held, 1);
        throw;
    }
    attempt.succeeded = true;
    held_ = attempt.held + 1;
    failed_ = 0;
}

void ZStackReadWriteLock_6_0::readLock()
{
    acquire([this] { lock_.readLock(); });
}

void ZStackReadWriteLock_6_0::writeLock()
{
    acquire([this] { lock_.writeLock(); });
}

void ZStackReadWriteLock_6_0::readWithIntentToWriteLock()
{
    acquire([this] { lock_.readWithIntentToWriteLock(); });
}

void ZStackReadWriteLock_6_0::promoteReadToWriteLock()
{
    lock_.promoteReadToWriteLock();
}

void ZStackReadWriteLock_6_0::unlock(int update)
{
    lock_.unlock(update);
    held_ = std::max(held_ - 1, 0);
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
