#include "ZArrayList.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <bit>
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

// Moves the first `used` slots to a longer block of `length` slots. Copies a short block, because
// malloc() finds a free short block faster than realloc() does.
ZObject_6_0** moveSlots(ZObject_6_0** slots, unsigned int used, unsigned int length)
{
    constexpr unsigned int kShort = 128;
    bool const copies = length <= kShort;
    void* const block = copies ? malloc(length * sizeof(ZObject_6_0*))
                               : reallocarray(slots, length, sizeof(ZObject_6_0*));
    if (block == nullptr)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInGrow);
    if (copies) {
        memcpy(block, slots, used * sizeof(ZObject_6_0*));
        free(slots);
    }
    return static_cast<ZObject_6_0**>(block);
}

// The pivot of a partition: the non-null element nearest to the middle. Null if all elements, the
// last one excepted, are null.
ZObject_6_0* choosePivot(ZList_6_0 const& list, int64_t low, int64_t high)
{
    int64_t const middle = low + (high - low) / 2;
    for (int64_t away = 0; middle - away >= low; ++away) {
        for (int64_t const at : {middle - away, middle + away}) {
            if (ZObject_6_0* const element = list.get(static_cast<unsigned int>(at)))
                return element;
        }
    }
    return nullptr;
}

// An unsorted range; includes both ends.
struct Range {
    int64_t low;
    int64_t high;
    int depth;  // partitions so far
};

// A range of at most this length is never merge-sorted.
constexpr int64_t kShortRange = 16;

// Moves the element at slots[from[k]] to slots[k], for each k below `count`. Each cycle of the
// permutation is a chain of swaps. Overwrites `from`.
void permute(ZList_6_0& list, uint32_t const* slots, uint32_t* from, size_t count)
{
    for (size_t first = 0; first < count; ++first) {
        size_t at = first;
        while (from[at] != first) {
            list.swap(slots[at], slots[from[at]]);
            at = std::exchange(from[at], static_cast<uint32_t>(at));
        }
        from[at] = static_cast<uint32_t>(at);
    }
}

// Merge-sorts a range that partitions do not divide. Nulls keep their index, elements that compare
// equal keep their order. The comparator may change the list, so the merge works on indices and
// moves the elements only after the last comparison.
// throws  ZOutOfMemoryException_6_0; any exception of `comparator`. No element has moved then.
void mergeSortRange(ZList_6_0& list, ZSortCompare_6_0 const& comparator, bool ascending,
                    Range range)
{
    auto const get = [&](uint32_t at) { return list.get(at); };
    auto const isAfter = [&](ZObject_6_0 const* left, ZObject_6_0 const* right) {
        if (left == nullptr || right == nullptr)
            return false;
        int const order = comparator.sortCompare(left, right);
        return ascending ? order > 0 : order < 0;
    };

    auto const length = static_cast<size_t>(range.high - range.low + 1);
    zmemory::OwnedBlock<uint32_t> block;
    block.resize(3 * length, kSource, raiseInSort);
    uint32_t* const slots = block.data();  // indices of the elements that are not null
    uint32_t* from = slots + length;       // indices into slots, in sorted runs
    uint32_t* to = from + length;
    size_t count = 0;
    for (int64_t at = range.low; at <= range.high; ++at) {
        slots[count] = static_cast<uint32_t>(at);
        from[count] = static_cast<uint32_t>(count);
        if (get(slots[count]) != nullptr)
            ++count;
    }

    for (size_t width = 1; width < count; width *= 2) {
        for (size_t begin = 0; begin < count; begin += 2 * width) {
            size_t left = begin;
            size_t const middle = std::min(begin + width, count);
            size_t right = middle;
            size_t const end = std::min(middle + width, count);
            size_t next = begin;
            if (right < end && isAfter(get(slots[from[middle - 1]]), get(slots[from[middle]]))) {
                ZObject_6_0 const* leftElement = get(slots[from[left]]);
                ZObject_6_0 const* rightElement = get(slots[from[right]]);
                for (;;) {
                    if (isAfter(leftElement, rightElement)) {
                        to[next++] = from[right++];
                        if (right == end)
                            break;
                        rightElement = get(slots[from[right]]);
                    } else {
                        to[next++] = from[left++];
                        if (left == middle)
                            break;
                        leftElement = get(slots[from[left]]);
                    }
                }
            }
            next = static_cast<size_t>(std::copy(from + left, from + middle, to + next) - to);
            std::copy(from + right, from + end, to + next);
        }
        std::swap(from, to);
    }

    permute(list, slots, from, count);
}

// Sorts by quicksort. Sorts the smaller part of a partition first and keeps the larger one on a
// stack, which therefore never holds more ranges than a size has bits. A range that is still long
// after twice the partitions that halving would need is merge-sorted, so that every input costs
// O(n log n) comparisons.
void quickSortRange(ZList_6_0& list, ZSortCompare_6_0 const& comparator, bool ascending,
                    int64_t low, int64_t high)
{
    // Both scans skip nulls, so nulls never move.
    auto const sortsBefore = [&](ZObject_6_0 const* element, ZObject_6_0 const* pivot) {
        if (element == nullptr)
            return true;
        int const order = comparator.sortCompare(element, pivot);
        return ascending ? order < 0 : order > 0;
    };
    auto const sortsAfter = [&](ZObject_6_0 const* element, ZObject_6_0 const* pivot) {
        if (element == nullptr)
            return true;
        int const order = comparator.sortCompare(element, pivot);
        return ascending ? order > 0 : order < 0;
    };
    auto const get = [&](int64_t at) { return list.get(static_cast<unsigned int>(at)); };

    int const deepest = 2 * std::bit_width(static_cast<uint64_t>(std::max<int64_t>(high - low, 1)));
    Range range{low, high, 0};
    Range pending[CHAR_BIT * sizeof(int64_t)];
    size_t pendingCount = 0;
    for (;;) {
        while (range.low < range.high) {
            if (range.depth > deepest && range.high - range.low >= kShortRange) {
                mergeSortRange(list, comparator, ascending, range);
                break;
            }
            ZObject_6_0 const* const pivot = choosePivot(list, range.low, range.high);
            if (pivot == nullptr)
                break;
            int64_t i = range.low;
            int64_t j = range.high;
            do {
                while (i < range.high && sortsBefore(get(i), pivot))
                    ++i;
                while (j > range.low && sortsAfter(get(j), pivot))
                    --j;
                if (i <= j) {
                    list.swap(static_cast<unsigned int>(i), static_cast<unsigned int>(j));
                    ++i;
                    --j;
                }
            } while (i <= j);
            Range smaller{range.low, j, range.depth + 1};
            Range larger{i, range.high, range.depth + 1};
            if (smaller.high - smaller.low > larger.high - larger.low)
                std::swap(smaller, larger);
            if (larger.low < larger.high)
                pending[pendingCount++] = larger;
            range = smaller;
        }
        if (pendingCount == 0)
            return;
        range = pending[--pendingCount];
    }
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
    // The upper end is one past the last element, where get() returns null and swap() does nothing.
    quickSortRange(*this, comparator, order == ZSortCompare_6_0::ascending, 0, size());
}

void ZAbstractList_6_0::quickSort(ZSortCompare_6_0 const& comparator,
                                  ZSortCompare_6_0::sortorder const& order, int low, int high)
{
    quickSortRange(*this, comparator, order == ZSortCompare_6_0::ascending, low, high);
}

ZArrayList_6_0::ZArrayList_6_0(unsigned int initialCapacity, int owns)
    : capacity_(std::max(initialCapacity, 1u)),
      count_(0),
      owns_(owns),
      room_(0),
      slots_(slotsFor(capacity_))
{
    zmemory::OwnedBlock<ZObject_6_0*> slots;
    slots.resize(slots_, kSource, raiseInAllocate);
    elements_ = slots.release();
}

ZArrayList_6_0::ZArrayList_6_0(ZArrayList_6_0 const& source)
    : ZAbstractList_6_0(source),
      capacity_(capacityFor(source.ZArrayList_6_0::capacity(), source.size())),
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
    zmemory::MallocPtr<ZObject_6_0*> const slots(elements_);
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
    memmove(slot, slot + 1, (count_ - index) * sizeof(ZObject_6_0*));
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
        deleter.rethrowFirst();
    }
    count_ = 0;
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

// Allocates two growths ahead: moving the slots costs more than the spare memory.
void ZArrayList_6_0::makeRoom(size_t count)
{
    if (count <= slots_)
        return;
    unsigned int const capacity = capacityFor(capacity_, count);
    size_t const ahead = size_t{capacity} * 9 / 4;
    unsigned int const slots = ahead <= UINT_MAX / 2 ? static_cast<unsigned int>(ahead) : capacity;
    elements_ = moveSlots(elements_, count_, slots);
    capacity_ = capacity;
    slots_ = slots;
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
