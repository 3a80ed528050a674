#include "hash_index.h"

#include <string.h>

#include <utility>

#include "../memory/huge_pages.h"
#include "../stanza/raise_sites.h"
#include "memory.h"

namespace zcache {

void HashIndex::copy(HashIndex const& other)
{
    if (other.size_ == 0)
        return;
    reallocate(slots_, other.size_);
    memcpy(slots_.get(), other.slots_.get(), other.size_ * sizeof(Slot));
    size_ = other.size_;
    count_ = other.count_;
    maxCount_ = other.maxCount_;
}

void HashIndex::put(Slot* slots, size_t size, size_t at, Slot slot)
{
    while (slots[at].id != 0)
        at = at + 1 == size ? 0 : at + 1;
    slots[at] = slot;
}

void HashIndex::add(uint32_t hash, Id id)
{
    reserve(1);
    put(slots_.get(), size_, home(hash), {hash, id});
    ++count_;
}

size_t HashIndex::find(uint32_t hash, Id id) const
{
    size_t at = home(hash);
    while (slots_[at].id != id)
        at = next(at);
    return at;
}

void HashIndex::remove(uint32_t hash, Id id)
{
    size_t gap = find(hash, id);
    // Move each following id into the gap, unless its search starts after the gap.
    for (size_t at = next(gap); slots_[at].id != 0; at = next(at)) {
        size_t const begin = home(slots_[at].hash);
        bool const startsAfterGap =
            gap < at ? gap < begin && begin <= at : gap < begin || begin <= at;
        if (!startsAfterGap) {
            slots_[gap] = slots_[at];
            gap = at;
        }
    }
    slots_[gap].id = 0;
    --count_;
}

namespace {

// Returns the table size for `count` ids: a load factor of at most 5/8, or 1/4 in a small table,
// where memory does not matter and nearly every lookup hits its first slot.
size_t slotsFor(size_t count)
{
    constexpr size_t kSmallCount = 1024;
    return (count <= kSmallCount ? count * 4 : count * 8 / 5) + 1;
}

}  // namespace

void HashIndex::grow(size_t count)
{
    size_t const needed = slotsFor(count_ + count);
    size_t const size = needed > size_ * 2 ? needed : size_ * 2;
    if (!resize(size < 8 ? 8 : size))
        zstanza::throwOutOfMemory();
}

void HashIndex::shrinkToFit()
{
    if (count_ == 0) {
        slots_.reset();
        size_ = maxCount_ = 0;
    } else if (size_ > 2 * slotsFor(count_)) {
        resize(slotsFor(count_) + 8);  // without memory for it, the table stays as it is
    }
}

// Moves the ids to a table of `size` slots. Returns false if memory is exhausted.
bool HashIndex::resize(size_t size)
{
    zmemory::MallocPtr<Slot[]> slots(static_cast<Slot*>(calloc(size, sizeof(Slot))));
    if (slots == nullptr)
        return false;
    zmemory::preferHugePages(slots.get(), size * sizeof(Slot));
    for (size_t i = 0; i < size_; ++i) {
        Slot const slot = slots_[i];
        if (slot.id != 0)
            put(slots.get(), size,
                static_cast<size_t>((static_cast<uint64_t>(slot.hash) * size) >> 32), slot);
    }
    slots_ = std::move(slots);
    size_ = size;
    maxCount_ = size * 7 / 10;
    return true;
}

void HashIndex::swap(HashIndex& other)
{
    std::swap(slots_, other.slots_);
    std::swap(size_, other.size_);
    std::swap(count_, other.count_);
    std::swap(maxCount_, other.maxCount_);
}

}  // namespace zcache
