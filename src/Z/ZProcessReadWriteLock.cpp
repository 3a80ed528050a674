#include "ZProcessReadWriteLock.h"

#include <errno.h>
#include <sys/random.h>
#include <unistd.h>

#include <atomic>

#include "ZException.h"
#include "files/shared_file.h"
#include "locks/hold_counters.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZProcessReadWriteLock";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInDestructor = 64, raiseInChild = 83, raiseInStub = 117 };

constexpr unsigned kNameLength = 6;
constexpr char kFallbackSuffix[] = ".zpl";  // appended to the process id if getrandom() fails

// 64 letters, so that `byte % 64` is uniform.
constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
static_assert(sizeof kLetters == 64 + 1);

bool isProcessLock(ZAbstractReadWriteLock_6_0 const& lock)
{
    return dynamic_cast<ZAbstractProcessReadWriteLock_6_0 const*>(&lock) != nullptr;
}

ZLCString_6_0 randomName()
{
    unsigned char bytes[kNameLength];
    ssize_t got;
    do {
        got = getrandom(bytes, sizeof bytes, 0);
    } while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(sizeof bytes)) {
        ZLCString_6_0 name(static_cast<int>(getpid()));
        name += kFallbackSuffix;
        return name;
    }
    char name[kNameLength + 1] = {};
    for (unsigned i = 0; i < kNameLength; ++i)
        name[i] = kLetters[bytes[i] % 64];
    return ZLCString_6_0(name);
}

// Words shared by several threads. Their order does not matter: a thread that needs more than the
// last value holds the lock.
template <class Word>
Word load(Word const& word)
{
    return std::atomic_ref(const_cast<Word&>(word)).load(std::memory_order_relaxed);
}

template <class Word>
void store(Word& word, Word value)
{
    std::atomic_ref(word).store(value, std::memory_order_relaxed);
}

}  // namespace

ZAbstractProcessReadWriteLock_6_0::ZAbstractProcessReadWriteLock_6_0()
    : ZAbstractProcessReadWriteLock_6_0(randomName())
{
}

ZAbstractProcessReadWriteLock_6_0::ZAbstractProcessReadWriteLock_6_0(char const* name)
    : state_(unset),
      name_(name),
      sequence_(0),
      lastSequence_(invalidSequence),
      reserved_(0),
      sequenceLost_(false),
      update_(1),
      forkMark_(0)
{
    zlocks::isProcessLock.store(isProcessLock, std::memory_order_relaxed);
}

ZAbstractProcessReadWriteLock_6_0::~ZAbstractProcessReadWriteLock_6_0()
{
    zlockstate const state = ZAbstractProcessReadWriteLock_6_0::getLockState();
    if (state == unset)
        return;
    zreporting::runInDestructor({kSource, raiseInDestructor}, [&] {
        ZInvalidResourceStateException_6_0(getLockStateName(state))
            .throwException(kSource, raiseInDestructor);
    });
}

uint32_t ZAbstractProcessReadWriteLock_6_0::hash() const
{
    return name_.hash();
}

int ZAbstractProcessReadWriteLock_6_0::compare(ZObject_6_0 const& other) const
{
    auto const* const lock = dynamic_cast<ZAbstractProcessReadWriteLock_6_0 const*>(&other);
    return lock == nullptr ? ZObject_6_0::compare(other) : name_.compare(lock->name_);
}

void ZAbstractProcessReadWriteLock_6_0::lock()
{
    lock(write);
}

void ZAbstractProcessReadWriteLock_6_0::lock(zlockstate state)
{
    if (state == unset) {
        // Clear the flag while the lock is still held: after the release it belongs to the next
        // writer.
        int const before = getUpdate();
        setUpdate(0);
        try {
            threads_.unlock();
        } catch (...) {
            setUpdate(before);
            throw;
        }
        zlocks::recordHold(this, -1);
        return;
    }
    threads_.lock(state == protect ? write : state);
    zlocks::recordHold(this, 1);
    setUpdate(state == protect || state == write ? 1 : 0);
}

int ZAbstractProcessReadWriteLock_6_0::isCurrent() const
{
    return getLastSequence() == getSequence() ? 1 : 0;
}

void ZAbstractProcessReadWriteLock_6_0::unlock()
{
    unlock(getUpdate());
}

void ZAbstractProcessReadWriteLock_6_0::unlock(int update)
{
    failIfStranger();
    sync(update);
    lock(unset);
}

int ZAbstractProcessReadWriteLock_6_0::haveLock(zlockstate state) const
{
    return getLockState() == state ? 1 : 0;
}

int ZAbstractProcessReadWriteLock_6_0::ownWriteLock() const
{
    return getLockState() == write ? 1 : 0;
}

int ZAbstractProcessReadWriteLock_6_0::getUpdate() const
{
    return load(update_);
}

void ZAbstractProcessReadWriteLock_6_0::setUpdate(int update)
{
    store(update_, update);
}

void ZAbstractProcessReadWriteLock_6_0::readLock()
{
    lock(read);
}

void ZAbstractProcessReadWriteLock_6_0::writeLock()
{
    lock(write);
}

void ZAbstractProcessReadWriteLock_6_0::readWithIntentToWriteLock()
{
    lock(protect);
}

void ZAbstractProcessReadWriteLock_6_0::promoteReadToWriteLock()
{
}

ZReadWriteLockInterface_6_0::zlockstate ZAbstractProcessReadWriteLock_6_0::getLockState() const
{
    return inherited() ? unset : rawState();
}

ZLCString_6_0 const& ZAbstractProcessReadWriteLock_6_0::getLockName() const
{
    return name_;
}

void ZAbstractProcessReadWriteLock_6_0::setLockName(ZLCString_6_0& name)
{
    // KEPT: the path of a lock file is built from the first name and does not follow a rename. A
    // program that renames a lock only for its reports would lose its lock file.
    // Test: ZProcessReadWriteFileLock.KeepsItsFileWhenRenamed
    name_ = name;
}

int ZAbstractProcessReadWriteLock_6_0::getReaderCount()
{
    return threads_.getReaderCount();
}

unsigned long ZAbstractProcessReadWriteLock_6_0::getSequence() const
{
    return load(sequence_);
}

unsigned long ZAbstractProcessReadWriteLock_6_0::incSequence()
{
    setSequence(nextSequence());
    return getSequence();
}

unsigned long ZAbstractProcessReadWriteLock_6_0::getLastSequence() const
{
    return load(lastSequence_);
}

void ZAbstractProcessReadWriteLock_6_0::setLastSequence(unsigned long sequence)
{
    store(lastSequence_, static_cast<uint32_t>(sequence));
}

void ZAbstractProcessReadWriteLock_6_0::setLastSequence()
{
    setLastSequence(getSequence());
}

void ZAbstractProcessReadWriteLock_6_0::sync(int update)
{
    zlockstate const state = getLockState();
    if (state == write && update != 0)
        incSequence();
    if (state != unset)
        setLastSequence();
}

void ZAbstractProcessReadWriteLock_6_0::setLockState(zlockstate state)
{
    // Set the mark first: no thread may see the new state with an older mark.
    if (state != unset)
        store(forkMark_, zfiles::forkGeneration());
    std::atomic_ref(state_).store(state, std::memory_order_release);
}

void ZAbstractProcessReadWriteLock_6_0::setSequence(unsigned long sequence)
{
    store(sequence_, static_cast<uint32_t>(sequence));
}

unsigned long ZAbstractProcessReadWriteLock_6_0::nextSequence() const
{
    uint32_t const next = static_cast<uint32_t>(getSequence()) + 1;
    return next == invalidSequence ? 0 : next;
}

void ZAbstractProcessReadWriteLock_6_0::raiseInvalidState(char const* source, int site) const
{
    ZInvalidResourceStateException_6_0(getLockStateName(rawState())).throwException(source, site);
}

void ZAbstractProcessReadWriteLock_6_0::failIfInherited() const
{
    if (inherited())
        raiseInvalidState(kSource, raiseInChild);
}

void ZAbstractProcessReadWriteLock_6_0::failIfStranger()
{
    failIfInherited();
    zlockstate const state = rawState();
    if ((state == write || state == protect) && threads_.ownWriteLock() == 0)
        threads_.unlock();  // throws: there is a writer but no reader
}

ZReadWriteLockInterface_6_0::zlockstate ZAbstractProcessReadWriteLock_6_0::rawState() const
{
    return static_cast<zlockstate>(
        std::atomic_ref(const_cast<int&>(state_)).load(std::memory_order_acquire));
}

bool ZAbstractProcessReadWriteLock_6_0::inherited() const
{
    return rawState() != unset && load(forkMark_) != zfiles::forkGeneration();
}

// ---- The stub ----------------------------------------------------------------------------------

ZStubProcessReadWriteLock_6_0::ZStubProcessReadWriteLock_6_0() = default;

ZStubProcessReadWriteLock_6_0::ZStubProcessReadWriteLock_6_0(char const* name)
    : ZAbstractProcessReadWriteLock_6_0(name)
{
}

ZStubProcessReadWriteLock_6_0::~ZStubProcessReadWriteLock_6_0() = default;

void ZStubProcessReadWriteLock_6_0::lock()
{
    lock(write);
}

void ZStubProcessReadWriteLock_6_0::lock(zlockstate state)
{
    if (getLockStateName(state) == nullptr)
        raiseInvalidState(kSource, raiseInStub);
    failIfInherited();
    // KEPT: the state is the last one requested, even if a leaving reader leaves other readers. A
    // thread that requires `unset` after its own release would fail while other threads read; the
    // lock between threads has the true state.
    // Test: ZProcessReadWriteLock.KeepsTheStateRequestedLast
    if (state == unset) {
        failIfStranger();
        setLockState(unset);  // while no other thread can have acquired it
        ZAbstractProcessReadWriteLock_6_0::lock(unset);
        return;
    }
    ZAbstractProcessReadWriteLock_6_0::lock(state);
    setLockState(state);
}
