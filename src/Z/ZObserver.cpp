#include "ZObserver.h"

namespace {

constexpr int kOwns = 1;
constexpr unsigned long kInvalidSequence = 0xFFFFFFFF;

// The difference of two sequence numbers, which wrap around at 32 bits.
int difference(uint32_t mine, uint32_t theirs)
{
    return static_cast<int>(mine - theirs);
}

}  // namespace

ZObservedParm_6_0::~ZObservedParm_6_0() = default;

Voyeur_6_0::Voyeur_6_0(ZObserverInterface_6_0* observer) : observer_(observer)
{
}

Voyeur_6_0::~Voyeur_6_0() = default;

uint32_t Voyeur_6_0::hash() const
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(observer_));
}

int Voyeur_6_0::compare(ZObject_6_0 const& other) const
{
    auto const* const voyeur = dynamic_cast<Voyeur_6_0 const*>(&other);
    if (voyeur == nullptr)
        return ZObject_6_0::compare(other);
    auto const mine = reinterpret_cast<uintptr_t>(observer_);
    auto const theirs = reinterpret_cast<uintptr_t>(voyeur->observer_);
    return mine == theirs ? 0 : mine < theirs ? -1 : 1;
}

ZObject_6_0* Voyeur_6_0::clone() const
{
    return new Voyeur_6_0(observer_);
}

ZAbstractObservable_6_0::ZAbstractObservable_6_0() : observers_(kOwns)
{
}

void ZAbstractObservable_6_0::addObserver(ZObserverInterface_6_0* observer)
{
    if (observer == nullptr)
        return;
    Voyeur_6_0 const wrapped(observer);
    ZResourceLock_6_0 const guard(lock_);
    if (!observers_.contains(&wrapped))
        observers_.add(&wrapped);
}

void ZAbstractObservable_6_0::deleteObserver(ZObserverInterface_6_0* observer)
{
    Voyeur_6_0 const wrapped(observer);
    ZResourceLock_6_0 const guard(lock_);
    observers_.remove(&wrapped);
}

void ZAbstractObservable_6_0::deleteObservers()
{
    ZResourceLock_6_0 const guard(lock_);
    observers_.removeAll();
}

unsigned int ZAbstractObservable_6_0::countObservers()
{
    ZResourceLock_6_0 const guard(lock_);
    return observers_.size();
}

void ZAbstractObservable_6_0::notifyObservers(ZObservedParm_6_0 const& parm)
{
    ZResourceLock_6_0 const guard(lock_);
    // KEPT: reads the count once, although observers may add and remove observers. With the current
    // count, an observer that registers another one in each update() would make the pass endless.
    // Test: ZObserver.KeepsTheCountOfTheStartOfThePass
    unsigned int const count = observers_.size();
    for (unsigned int i = 0; i < count; ++i) {
        // Null past the end of the list, if an observer has removed observers.
        auto const* const wrapped = static_cast<Voyeur_6_0 const*>(observers_.get(i));
        if (wrapped == nullptr)
            return;
        wrapped->observer()->update(this, parm);
    }
}

ZSequenceUpdate_6_0::ZSequenceUpdate_6_0() : ZSequenceUpdate_6_0(kInvalidSequence, kInvalidSequence)
{
}

ZSequenceUpdate_6_0::ZSequenceUpdate_6_0(unsigned long sequence, unsigned long lastSequence)
    : sequence_(static_cast<uint32_t>(sequence)), lastSequence_(static_cast<uint32_t>(lastSequence))
{
}

ZSequenceUpdate_6_0::~ZSequenceUpdate_6_0() = default;

int ZSequenceUpdate_6_0::compare(ZObject_6_0 const& other) const
{
    auto const* const update = dynamic_cast<ZSequenceUpdate_6_0 const*>(&other);
    if (update == nullptr)
        return ZObject_6_0::compare(other);
    return sequence_ != update->sequence_ ? difference(sequence_, update->sequence_)
                                          : difference(lastSequence_, update->lastSequence_);
}

ZObject_6_0* ZSequenceUpdate_6_0::clone() const
{
    return new ZSequenceUpdate_6_0(sequence_, lastSequence_);
}

unsigned long ZSequenceUpdate_6_0::getSequence() const
{
    return sequence_;
}

unsigned long ZSequenceUpdate_6_0::getLastSequence() const
{
    return lastSequence_;
}
