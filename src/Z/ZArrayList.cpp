#include "ZArrayList.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <memory>
#include <typeinfo>
#include <utility>

#include "ZException.h"
#include "containers/list_rollback.h"
#include "containers/object_deleter.h"
#include "containers/slots.h"
#include "memory/malloc_ptr.h"
#include "memory/owned_block.h"
#include "reporting/failures.h"
#include "sorting/partition.h"
#include "sorting/strings.h"

namespace {

constexpr char kSource[] = "src/Z/ZArrayList";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInAllocate = 61,
    raiseInGrow = 187,
    reportInDestructor = 214,
    raiseInSort = 253
};

// The capacity to grow to: larger by half, at least by one.
unsigned int nextCapacity(unsigned int capacity)
{
    size_t const next = size_t{capacity} + std::max(capacity / 2, 1u);
    if (next > UINT_MAX)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInGrow);
    return static_cast<unsigned int>(next);
}

// The capacity to which a list of `capacity` grows if it holds `count` elements.
unsigned int capacityFor(unsigned int capacity, size_t count)
{
    while (capacity < count)
        capacity = nextCapacity(capacity);
    return capacity;
}

// The number of slots allocated for a capacity: at least as many as fit the heap's smallest block.
unsigned int slotsFor(unsigned int capacity)
{
    return std::max(capacity, 3u);
}

// The number of slots to allocate for a capacity to which a list grows: two growths ahead, because
// moving the slots costs more than the spare memory.
unsigned int slotsAhead(unsigned int capacity)
{
    size_t const ahead = size_t{capacity} * 9 / 4;
    return ahead <= UINT_MAX / 2 ? static_cast<unsigned int>(ahead) : capacity;
}

// Moves the first `used` slots to a longer block of `length` slots. Copies a short block, because
// malloc() finds a free short block faster than realloc() does. Returns null if there is no memory.
ZObject_6_0** moveSlots(ZObject_6_0** slots, unsigned int used, unsigned int length)
{
    constexpr unsigned int kShort = 128;
    bool const copies = length <= kShort;
    void* const block = copies ? malloc(length * sizeof(ZObject_6_0*))
                               : reallocarray(slots, length, sizeof(ZObject_6_0*));
    if (copies && block != nullptr && slots != nullptr) {
        memcpy(block, slots, used * sizeof(ZObject_6_0*));
        free(slots);
    }
    return static_cast<ZObject_6_0**>(block);
}

// A list with at least this number of elements has free slots before them, for insertion and
// removal in its first half. Moving all elements of a shorter list is cheaper.
constexpr unsigned int kLongList = 8;

// The order of a sort by a comparator.
template <bool kAscends>
class ByComparator {
public:
    explicit ByComparator(ZSortCompare_6_0 const& comparator) : comparator_(comparator) {}
    bool sortsBefore(ZObject_6_0 const* element, ZObject_6_0 const* pivot) const
    {
        int const order = comparator_.sortCompare(element, pivot);
        return kAscends ? order < 0 : order > 0;
    }
    bool sortsAfter(ZObject_6_0 const* element, ZObject_6_0 const* pivot) const
    {
        int const order = comparator_.sortCompare(element, pivot);
        return kAscends ? order > 0 : order < 0;
    }

private:
    ZSortCompare_6_0 const& comparator_;
};

// The order of a sort by the default comparator, which is final.
template <bool kAscends>
class ByCompare {
public:
    static bool sortsBefore(ZObject_6_0 const* element, ZObject_6_0 const* pivot)
    {
        int const order = element->compare(*pivot);
        return kAscends ? order < 0 : order > 0;
    }
    static bool sortsAfter(ZObject_6_0 const* element, ZObject_6_0 const* pivot)
    {
        int const order = element->compare(*pivot);
        return kAscends ? order > 0 : order < 0;
    }
};

// A list of any class, sorted through its virtual operations.
class AnyList {
public:
    explicit AnyList(ZList_6_0& list) : list_(list) {}
    ZObject_6_0* get(uint32_t at) const { return list_.get(at); }
    void swap(uint32_t one, uint32_t other) { list_.swap(one, other); }
    static void prefetch(uint32_t) {}

private:
    ZList_6_0& list_;
};

// The fields of a list whose class overrides nothing. A comparison may change them.
class ExactList {
public:
    ExactList(ZObject_6_0** const& elements, unsigned int const& count)
        : elements_(elements), count_(count)
    {
    }
    ZObject_6_0* get(uint32_t at) const
    {
        return __builtin_expect(at < count_, 1) ? elements_[at] : nullptr;
    }
    void swap(uint32_t one, uint32_t other)
    {
        if (one < count_ && other < count_)
            std::swap(elements_[one], elements_[other]);
    }
    void prefetch(uint32_t at) const { __builtin_prefetch(get(at)); }

private:
    ZObject_6_0** const& elements_;
    unsigned int const& count_;
};

// A sequence for zsorting::quickSort().
template <class List, class Order>
class Sequence : public List, public Order {
public:
    using Element = ZObject_6_0*;

    Sequence(List list, Order order, zmemory::OwnedBlock<uint32_t>& indices)
        : List(list), Order(order), indices_(indices)
    {
    }
    uint32_t* indices(size_t count) const
    {
        indices_.resize(count, kSource, raiseInSort);
        return indices_.data();
    }

private:
    zmemory::OwnedBlock<uint32_t>& indices_;
};

template <class List, class Order>
void quickSortList(List list, Order order, int64_t low, int64_t high)
{
    zmemory::OwnedBlock<uint32_t> indices;
    zsorting::quickSort(Sequence(list, order, indices), low, high);
}

void quickSortAnyList(ZList_6_0& list, ZSortCompare_6_0 const& comparator, bool ascending,
                      int64_t low, int64_t high)
{
    if (ascending)
        quickSortList(AnyList(list), ByComparator<true>(comparator), low, high);
    else
        quickSortList(AnyList(list), ByComparator<false>(comparator), low, high);
}

// Whether no derived class can override the virtual operations that the list calls.
bool isExactClass(ZArrayList_6_0 const& list)
{
    return &typeid(list) == &typeid(ZArrayList_6_0);  // a single typeid object, in this library
}

}  // namespace

void ZList_6_0::backUp(ZListIterator_6_0& iterator)
{
    iterator.backUp();
}

int ZList_6_0::indexOf(ZListIterator_6_0& iterator)
{
    return iterator.indexOf();
}

ZAbstractList_6_0::~ZAbstractList_6_0() = default;

bool ZAbstractList_6_0::isEmpty() const
{
    return size() == 0;
}

void ZAbstractList_6_0::sort(ZSortCompare_6_0 const& comparator,
                             ZSortCompare_6_0::sortorder const& order)
{
    bool const ascending = order == ZSortCompare_6_0::ascending;
    // The upper end is one past the last element, where get() returns null and swap() does nothing.
    if (&typeid(*this) != &typeid(ZArrayList_6_0)) {
        quickSortAnyList(*this, comparator, ascending, 0, size());
        return;
    }
    auto& list = static_cast<ZArrayList_6_0&>(*this);
    ExactList const elements(list.elements_, list.count_);
    if (typeid(comparator) != typeid(ZDefaultSortCompare_6_0)) {
        if (ascending)
            quickSortList(elements, ByComparator<true>(comparator), 0, list.count_);
        else
            quickSortList(elements, ByComparator<false>(comparator), 0, list.count_);
    } else if (!zsorting::sortStrings(list.elements_, list.count_, ascending)) {
        if (ascending)
            quickSortList(elements, ByCompare<true>(), 0, list.count_);
        else
            quickSortList(elements, ByCompare<false>(), 0, list.count_);
    }
}

void ZAbstractList_6_0::quickSort(ZSortCompare_6_0 const& comparator,
                                  ZSortCompare_6_0::sortorder const& order, int low, int high)
{
    quickSortAnyList(*this, comparator, order == ZSortCompare_6_0::ascending, low, high);
}

ZArrayList_6_0::ZArrayList_6_0(unsigned int initialCapacity, int owns)
    : capacity_(std::max(initialCapacity, 1u)),
      front_(0),
      count_(0),
      owns_(owns),
      room_(0),
      slots_(slotsFor(capacity_))
{
    zmemory::OwnedBlock<ZObject_6_0*> slots;
    slots.resize(slots_, kSource, raiseInAllocate);
    elements_ = slots.release();
}

ZArrayList_6_0::ZArrayList_6_0(int owns)
    : capacity_(1), front_(0), elements_(nullptr), count_(0), owns_(owns), room_(0), slots_(0)
{
}

ZArrayList_6_0::ZArrayList_6_0(ZArrayList_6_0 const& source)
    : ZAbstractList_6_0(source),
      capacity_(capacityFor(source.ZArrayList_6_0::capacity(), source.size())),
      front_(0),
      count_(0),
      owns_(source.owns_),
      room_(0),
      slots_(slotsFor(capacity_))
{
    zmemory::OwnedBlock<ZObject_6_0*> slots;
    slots.resize(slots_, kSource, raiseInAllocate);
    count_ = source.copyMembers(slots.data(), capacity_, owns_);
    elements_ = slots.release();
}

ZArrayList_6_0& ZArrayList_6_0::operator=(ZArrayList_6_0 const& source)
{
    if (isExactClass(*this)) {
        assign(source);
    } else if (this != &source) {
        removeAll();
        addList(source);
    }
    return *this;
}

ZArrayList_6_0::~ZArrayList_6_0()
{
    zmemory::MallocPtr<ZObject_6_0*> const slots(elements_ - front_);
    if (owns_ == 0)
        return;
    zreporting::runInDestructor({kSource, reportInDestructor},
                                [this] { ZArrayList_6_0::removeAll(); });
}

ZObject_6_0* ZArrayList_6_0::clone() const
{
    return new ZArrayList_6_0(*this);
}

bool ZArrayList_6_0::contains(ZObject_6_0 const* obj) const
{
    return indexOf(obj) >= 0;
}

void ZArrayList_6_0::add(unsigned int index, ZObject_6_0 const* obj)
{
    if (owns_ == 0) {
        if (room_ == 0 && isExactClass(*this))
            room_ = slots_;
        if (room_ != 0)
            ZArrayList_6_0::addNoCopy(index, obj);
        else
            addNoCopy(index, obj);
        return;
    }
    if (index > size())
        return;
    std::unique_ptr<ZObject_6_0> copy(zcontainers::cloneOf(obj));
    if (index > size())  // clone() has removed elements
        return;
    addNoCopy(index, copy.get());
    copy.release();
}

void ZArrayList_6_0::addList(ZList_6_0 const& other)
{
    unsigned int const more = other.size();
    if (more == 0)
        return;
    capacityFor(capacity_, size_t{count_} + more);  // may throw, so before the first clone()
    if (!isExactClass(*this)) {
        zcontainers::addAllOrNothing(*this, [&] {
            for (unsigned int i = 0; i < more && i < other.size(); ++i)
                add(other.get(i));
        });
        return;
    }
    // Clone into a block outside the list: a failure then leaves the list unchanged, and a clone()
    // may change it.
    zmemory::OwnedBlock<ZObject_6_0*> elements;
    elements.resize(more, kSource, raiseInGrow);
    zcontainers::SlotFiller filler(elements.data(), owns_);
    for (unsigned int i = 0; i < more; ++i)
        filler.add(other.get(i));
    makeRoom(size_t{count_} + more);
    memcpy(elements_ + count_, elements.data(), more * sizeof(ZObject_6_0*));
    count_ += filler.release();
}

void ZArrayList_6_0::addNoCopy(ZObject_6_0 const* obj)
{
    addNoCopy(size(), obj);
}

void ZArrayList_6_0::addNoCopy(unsigned int index, ZObject_6_0 const* obj)
{
    if (index > count_)
        return;
    if (count_ >= kLongList && index < count_ / 2) {
        if (front_ == 0)
            makeRoomInFront();
        if (front_ > 0) {
            --front_;
            --elements_;
            ++slots_;
            if (index > 0)
                memmove(elements_, elements_ + 1, index * sizeof(ZObject_6_0*));
            elements_[index] = const_cast<ZObject_6_0*>(obj);
            ++count_;
            return;
        }
    }
    if (count_ == slots_)
        makeRoom(size_t{count_} + 1);
    ZObject_6_0** const slot = elements_ + index;
    memmove(slot + 1, slot, (count_ - index) * sizeof(ZObject_6_0*));
    *slot = const_cast<ZObject_6_0*>(obj);
    ++count_;
}

void ZArrayList_6_0::remove(ZObject_6_0 const* obj)
{
    int const index = indexOf(obj);
    if (index >= 0)
        remove(static_cast<unsigned int>(index));
}

void ZArrayList_6_0::remove(unsigned int index)
{
    if (index >= count_)
        return;
    ZObject_6_0** const slot = elements_ + index;
    ZObject_6_0* const old = *slot;
    capacity_ = ZArrayList_6_0::capacity();
    --count_;
    if (count_ >= kLongList && index < count_ / 2) {
        if (index > 0)
            memmove(elements_ + 1, elements_, index * sizeof(ZObject_6_0*));
        ++front_;
        ++elements_;
        --slots_;
        room_ = std::min(room_, slots_);
    } else {
        memmove(slot, slot + 1, (count_ - index) * sizeof(ZObject_6_0*));
    }
    if (owns_ != 0)
        delete old;
}

void ZArrayList_6_0::remove(ZListIterator_6_0& iterator)
{
    auto const index = static_cast<unsigned int>(indexOf(iterator));
    try {
        remove(index);
    } catch (...) {  // from the element's destructor; the element was removed anyway
        backUp(iterator);
        throw;
    }
    // KEPT: steps back even if the iterator has returned nothing yet, which leaves it at its end.
    // A loop that removes before its first getNext() would otherwise run over the whole list.
    // Test: ZArrayList.KeepsSteppingBackAFreshIterator
    backUp(iterator);
}

void ZArrayList_6_0::removeAll()
{
    capacity_ = ZArrayList_6_0::capacity();
    if (owns_ != 0) {
        zcontainers::ObjectDeleter deleter;
        for (unsigned int i = 0; i < count_; ++i)
            deleter.destroy(std::exchange(elements_[i], nullptr));
        count_ = 0;
        slide(0);
        deleter.rethrowFirst();
    }
    count_ = 0;
    slide(0);
}

void ZArrayList_6_0::set(unsigned int index, ZObject_6_0 const* obj)
{
    if (index >= count_)
        return;
    std::unique_ptr<ZObject_6_0> copy(owns_ != 0 ? zcontainers::cloneOf(obj) : nullptr);
    if (index >= count_)  // clone() has removed elements
        return;
    ZObject_6_0* const element = owns_ != 0 ? copy.release() : const_cast<ZObject_6_0*>(obj);
    ZObject_6_0* const old = std::exchange(elements_[index], element);
    if (owns_ != 0)
        delete old;
}

int ZArrayList_6_0::indexOf(ZObject_6_0 const* obj) const
{
    return zcontainers::firstEqual(elements_, count_, obj);
}

int ZArrayList_6_0::lastIndexOf(ZObject_6_0 const* obj) const
{
    return zcontainers::lastEqual(elements_, count_, obj);
}

void ZArrayList_6_0::subList(ZList_6_0& target, unsigned int from, unsigned int to) const
{
    if (from > to || to >= count_)
        return;
    zcontainers::addAllOrNothing(target, [&] {
        for (unsigned int i = from; i <= to; ++i)
            target.add(get(i));
    });
}

void ZArrayList_6_0::swap(unsigned int one, unsigned int other)
{
    if (one < count_ && other < count_)
        std::swap(elements_[one], elements_[other]);
}

unsigned int ZArrayList_6_0::capacity() const
{
    return capacityFor(capacity_, count_);
}

void ZArrayList_6_0::shuffle()
{
    // KEPT: seeds the generator of the whole process at each call, so two calls within a second
    // shuffle alike. A program that calls rand() after shuffle() sees the seed.
    // Test: ZArrayList.KeepsSeedingTheProcessGenerator
    srand(static_cast<unsigned int>(time(nullptr)));
    for (unsigned int i = size(); i > 1; --i)
        swap(i - 1, static_cast<unsigned int>(rand()) % i);
}

int ZArrayList_6_0::indexOf(ZListIterator_6_0& iterator)
{
    return iterator.indexOf();
}

// Ensures a capacity of `count` elements, without an allocation if the capacity suffices and there
// is no memory.
void ZArrayList_6_0::makeRoom(size_t count)
{
    if (count <= slots_)
        return;
    // Sliding is cheap only if at least as many slots as elements become free.
    bool const fits = count <= size_t{front_} + slots_;
    if (fits && front_ >= count_) {
        slide(0);
        return;
    }
    unsigned int const capacity = capacityFor(capacity_, count);
    unsigned int const slots = slotsAhead(capacity);
    slide(0);
    ZObject_6_0** const moved = moveSlots(elements_, count_, slots);
    if (moved == nullptr) {
        if (fits)
            return;
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInGrow);
    }
    elements_ = moved;
    capacity_ = capacity;
    slots_ = slots;
}

// Makes free slots before the elements, for a number of insertions that is proportional to the
// number of elements. Without memory it makes none, and throws if no slot after them is free.
void ZArrayList_6_0::makeRoomInFront()
{
    unsigned int const spare = slots_ - count_;
    if (spare >= count_ / 2) {
        slide(spare - spare / 4);
        return;
    }
    unsigned int const capacity = capacityFor(capacity_, size_t{count_} + 1);
    unsigned int const slots = slotsAhead(capacity);
    if (slots - count_ < count_ / 2)  // a list of billions of elements
        return;
    auto* const block = static_cast<ZObject_6_0**>(malloc(slots * sizeof(ZObject_6_0*)));
    if (block == nullptr) {
        if (spare > 0)
            return;
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInGrow);
    }
    unsigned int const front = (slots - count_) - (slots - count_) / 4;
    memcpy(block + front, elements_, count_ * sizeof(ZObject_6_0*));
    free(elements_ - front_);
    elements_ = block + front;
    front_ = front;
    slots_ = slots - front;
    capacity_ = capacity;
    room_ = std::min(room_, slots_);
}

// Moves the elements inside their block, so that `front` free slots precede them.
void ZArrayList_6_0::slide(unsigned int front)
{
    if (front == front_)
        return;
    ZObject_6_0** const block = elements_ - front_;
    memmove(block + front, elements_, count_ * sizeof(ZObject_6_0*));
    slots_ += front_ - front;
    elements_ = block + front;
    front_ = front;
    room_ = std::min(room_, slots_);
}

// Copies all elements of `source` or none, without calling this list's virtual operations.
void ZArrayList_6_0::assign(ZArrayList_6_0 const& source)
{
    if (this == &source)
        return;
    // KEPT: neither owns_ nor the capacity is assigned, although the copy constructor copies both.
    // An assigned flag would delete or leak the objects of a program that assigns between owning
    // and borrowing lists. Test: ZArrayList.KeepsItsOwnershipAndCapacityWhenAssigned
    ZArrayList_6_0 old(capacityFor(ZArrayList_6_0::capacity(), source.size()), owns_);
    old.count_ = source.copyMembers(old.elements_, old.capacity_, owns_);
    std::swap(capacity_, old.capacity_);
    std::swap(slots_, old.slots_);
    std::swap(front_, old.front_);
    std::swap(elements_, old.elements_);
    std::swap(count_, old.count_);
    room_ = std::min(room_, slots_);
    old.removeAll();
}

// Fills `slots` with at most `limit` elements of this list, or with their clones if `owns` is not
// 0, and returns their number. Reads a list of a derived class through its size() and get().
unsigned int ZArrayList_6_0::copyMembers(ZObject_6_0** slots, unsigned int limit, int owns) const
{
    zcontainers::SlotFiller filler(slots, owns);
    if (isExactClass(*this)) {
        filler.addAll(elements_, count_);
    } else {
        unsigned int const count = std::min(size(), limit);
        for (unsigned int i = 0; i < count && i < size(); ++i)
            filler.add(get(i));
    }
    return filler.release();
}

// The part of add() that is not inline: clones, grows, or calls a derived class's addNoCopy().
void ZArrayList_6_0::append(ZObject_6_0 const* obj)
{
    if (owns_ != 0) {
        std::unique_ptr<ZObject_6_0> copy(zcontainers::cloneOf(obj));
        addNoCopy(size(), copy.get());
        copy.release();
    } else if (room_ != 0 || isExactClass(*this)) {
        makeRoom(size_t{count_} + 1);
        room_ = slots_;
        elements_[count_++] = const_cast<ZObject_6_0*>(obj);
    } else {
        addNoCopy(size(), obj);
    }
}

ZListIterator_6_0::ZListIterator_6_0(ZList_6_0 const& list) : next_(0), list_(&list)
{
}

ZListIterator_6_0::~ZListIterator_6_0() = default;

ZObject_6_0* ZListIterator_6_0::clone() const
{
    return new ZListIterator_6_0(*this);
}

bool ZListIterator_6_0::hasMore()
{
    return next_ < list_->size();
}

ZObject_6_0* ZListIterator_6_0::getNext()
{
    return next_ < list_->size() ? list_->get(next_++) : nullptr;
}

void ZListIterator_6_0::reset()
{
    next_ = 0;
}

void ZListIterator_6_0::backUp()
{
    // KEPT: the index wraps around before the first element, which ends the iteration. A loop that
    // steps back without a preceding getNext() would otherwise start over.
    // Test: ZListIterator.KeepsWrappingAroundBeforeTheFirstElement
    --next_;
}

int ZListIterator_6_0::indexOf()
{
    return static_cast<int>(next_ - 1);
}
