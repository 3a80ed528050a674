#include "hash_index.h"

#include <string.h>

#include <utility>

#include "../memory/huge_pages.h"
#include "../stanza/raise_sites.h"
#include "memory.h"

namespace zcache {

void Index::copy(Index const& other)
{
    if (other.size_ == 0)
        return;
    slots_ = static_cast<Slot*>(reallocate(nullptr, other.size_ * sizeof(Slot)));
    memcpy(slots_, other.slots_, other.size_ * sizeof(Slot));
    size_ = other.size_;
    count_ = other.count_;
    most_ = other.most_;
}

void Index::put(Slot* slots, size_t size, size_t at, Slot slot)
{
    while (slots[at].id != 0)
        at = at + 1 == size ? 0 : at + 1;
    slots[at] = slot;
}

void Index::add(uint32_t hash, Id id)
{
    reserve(1);
    put(slots_, size_, home(hash), {hash, id});
    ++count_;
}

size_t Index::find(uint32_t hash, Id id) const
{
    size_t at = home(hash);
    while (slots_[at].id != id)
        at = next(at);
    return at;
}

void Index::remove(uint32_t hash, Id id)
{
    size_t gap = find(hash, id);
    // What follows moves up into the gap, unless its search begins behind the gap.
    for (size_t at = next(gap); slots_[at].id != 0; at = next(at)) {
        size_t const begin = home(slots_[at].hash);
        bool const beginsBehind =
            gap < at ? gap < begin && begin <= at : gap < begin || begin <= at;
        if (!beginsBehind) {
            slots_[gap] = slots_[at];
            gap = at;
        }
    }
    slots_[gap].id = 0;
    --count_;
}

namespace {

// Returns the slots that so many ids need: at most five of eight are in use, and one of four in a
// small table, where nearly every id is found at once and the room does not count.
size_t slotsFor(size_t count)
{
    constexpr size_t kFew = 1024;
    return (count <= kFew ? count * 4 : count * 8 / 5) + 1;
}

}  // namespace

void Index::grow(size_t count)
{
    size_t const needed = slotsFor(count_ + count);
    size_t const size = needed > size_ * 2 ? needed : size_ * 2;
    if (!resize(size < 8 ? 8 : size))
        zstanza::raiseOutOfMemory();
}

void Index::fit()
{
    if (count_ == 0) {
        free(std::exchange(slots_, nullptr));
        size_ = most_ = 0;
    } else if (size_ > 2 * slotsFor(count_)) {
        resize(slotsFor(count_) + 8);  // where there is no memory for it, it stays as large
    }
}

// Moves to a table of `size` slots. Returns false when there is no memory for it.
bool Index::resize(size_t size)
{
    auto* const slots = static_cast<Slot*>(calloc(size, sizeof(Slot)));
    if (slots == nullptr)
        return false;
    zmemory::preferLargePages(slots, size * sizeof(Slot));
    for (size_t i = 0; i < size_; ++i) {
        Slot const slot = slots_[i];
        if (slot.id != 0)
            put(slots, size, static_cast<size_t>((static_cast<uint64_t>(slot.hash) * size) >> 32),
                slot);
    }
    free(slots_);
    slots_ = slots;
    size_ = size;
    most_ = size * 7 / 10;
    return true;
}

void Index::swap(Index& other)
{
    std::swap(slots_, other.slots_);
    std::swap(size_, other.size_);
    std::swap(count_, other.count_);
    std::swap(most_, other.most_);
}

}  // namespace zcache
