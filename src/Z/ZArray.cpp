#include "ZArray.h"

#include <algorithm>
#include <memory>
#include <typeinfo>
#include <utility>

#include "ZException.h"
#include "containers/object_deleter.h"
#include "containers/slots.h"
#include "memory/malloc_ptr.h"
#include "memory/owned_block.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZArray";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInAllocate = 52,
    reportInDestructor = 69,
    raiseInRemove = 119,
    raiseInGet = 139,
    raiseInSet = 161,
    raiseInSetNoCopy = 181,
    raiseInSwap = 223
};

// Whether no derived class can override the virtual operations that the array calls.
bool isExactClass(ZArray_6_0 const& array)
{
    return typeid(array) == typeid(ZArray_6_0);
}

void checkIndex(bool inRange, RaiseSite site)
{
    if (!inRange)
        ZInvalidParameterException_6_0().throwException(kSource, site);
}

}  // namespace

ZAbstractArray_6_0::~ZAbstractArray_6_0() = default;

ZArray_6_0::ZArray_6_0(unsigned int size, int owns) : owns_(owns), count_(std::max(size, 1u))
{
    zmemory::OwnedBlock<ZObject_6_0*> slots;
    slots.allocateZeroed(count_, kSource, raiseInAllocate);
    elements_ = slots.release();
}

ZArray_6_0::ZArray_6_0(ZArray_6_0 const& source)
    : ZAbstractArray_6_0(source), owns_(source.owns_), count_(source.count_)
{
    zmemory::OwnedBlock<ZObject_6_0*> slots;
    slots.allocateZeroed(count_, kSource, raiseInAllocate);
    source.copyMembers(slots.data(), owns_);
    elements_ = slots.release();
}

ZArray_6_0& ZArray_6_0::operator=(ZArray_6_0 const& source)
{
    if (this == &source)
        return *this;
    // KEPT: owns_ is not assigned, although the copy constructor copies it. An assigned flag would
    // delete or leak the objects of a program that assigns between owning and borrowing arrays.
    // Test: ZArray.KeepsItsOwnershipWhenAssigned
    if (isExactClass(*this)) {
        ZArray_6_0 old(source.count_, owns_);
        source.copyMembers(old.elements_, owns_);
        swapSlots(old);
        old.removeAll();
        return *this;
    }
    if (count_ == source.count_) {
        removeAll();
    } else {
        ZArray_6_0 old(source.count_, owns_);  // may throw, so before removeAll()
        removeAll();
        swapSlots(old);
    }
    unsigned int const most = count_;
    for (unsigned int i = 0; i < most; ++i)
        set(i, source.get(i));
    return *this;
}

ZArray_6_0::~ZArray_6_0()
{
    zmemory::MallocPtr<ZObject_6_0*> const slots(elements_);
    zreporting::runInDestructor({kSource, reportInDestructor}, [this] { ZArray_6_0::removeAll(); });
}

unsigned int ZArray_6_0::size() const
{
    return count_;
}

int ZArray_6_0::ownsMembers() const
{
    return owns_;
}

bool ZArray_6_0::contains(ZObject_6_0 const* obj) const
{
    return indexOf(obj) >= 0;
}

void ZArray_6_0::remove(unsigned int index)
{
    checkIndex(index < count_, raiseInRemove);
    ZObject_6_0* const old = std::exchange(elements_[index], nullptr);
    if (owns_ != 0)
        delete old;
}

void ZArray_6_0::removeAll()
{
    zcontainers::ObjectDeleter deleter;
    if (!isExactClass(*this)) {
        for (unsigned int i = 0; i < count_; ++i)
            deleter.run([&] { remove(i); });
        deleter.rethrowFirst();
        return;
    }
    for (unsigned int i = 0; i < count_; ++i) {
        ZObject_6_0* const old = std::exchange(elements_[i], nullptr);
        if (owns_ != 0)
            deleter.destroy(old);
    }
    deleter.rethrowFirst();
}

ZObject_6_0* ZArray_6_0::get(unsigned int index) const
{
    checkIndex(index < count_, raiseInGet);
    return elements_[index];
}

void ZArray_6_0::set(unsigned int index, ZObject_6_0 const* obj)
{
    checkIndex(index < count_, raiseInSet);
    if (owns_ == 0) {
        setNoCopy(index, obj);
        return;
    }
    std::unique_ptr<ZObject_6_0> copy(zcontainers::cloneOf(obj));
    checkIndex(index < count_, raiseInSet);  // clone() may have changed the array
    setNoCopy(index, copy.release());
}

void ZArray_6_0::setNoCopy(unsigned int index, ZObject_6_0 const* obj)
{
    checkIndex(index < count_, raiseInSetNoCopy);
    ZObject_6_0* const old = std::exchange(elements_[index], const_cast<ZObject_6_0*>(obj));
    // KEPT: `old` is deleted even if it is `obj`, which is always taken for a new object. A
    // reference-counted class with an `operator delete` of its own gives up a reference here; a
    // check would leak it. Test: ZArray.KeepsDeletingAnObjectStoredAgain
    if (owns_ != 0)
        delete old;
}

int ZArray_6_0::indexOf(ZObject_6_0 const* obj) const
{
    return zcontainers::firstEqual(elements_, count_, obj);
}

int ZArray_6_0::lastIndexOf(ZObject_6_0 const* obj) const
{
    return zcontainers::lastEqual(elements_, count_, obj);
}

void ZArray_6_0::swap(unsigned int one, unsigned int other)
{
    checkIndex(one < count_ && other < count_, raiseInSwap);
    std::swap(elements_[one], elements_[other]);
}

// Fills `slots` with this array's objects, or with their clones if `owns` is not 0. Reads an array
// of a derived class through its get().
void ZArray_6_0::copyMembers(ZObject_6_0** slots, int owns) const
{
    zcontainers::SlotFiller filler(slots, owns);
    if (isExactClass(*this)) {
        filler.addAll(elements_, count_);
    } else {
        unsigned int const most = count_;
        for (unsigned int i = 0; i < most && i < count_; ++i)
            filler.add(get(i));
    }
    filler.release();
}

void ZArray_6_0::swapSlots(ZArray_6_0& other)
{
    std::swap(elements_, other.elements_);
    std::swap(count_, other.count_);
}
