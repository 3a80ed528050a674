#include "hash_index.h"

#include <utility>

#include "../memory/huge_pages.h"
#include "../stanza/raise_sites.h"

namespace zcache {

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

namespace {

// Returns the table size for `count` ids: a load factor of at most 5/8, or 1/4 in a small table,
// where nearly every lookup hits its first slot.
size_t slotsFor(size_t count)
{
    constexpr size_t kSmallCount = 1024;
    return (count <= kSmallCount ? count * 4 : count * 8 / 5) + 1;
}

}  // namespace

void HashIndex::grow(size_t count)
{
    size_t const needed = slotsFor(count_ + count);
    size_t const doubled = needed > size_ * 2 ? needed : size_ * 2;
    size_t const size = doubled < 8 ? 8 : doubled;
    zmemory::MallocPtr<Slot[]> slots(static_cast<Slot*>(calloc(size, sizeof(Slot))));
    if (slots == nullptr)
        zstanza::throwOutOfMemory();
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
}

}  // namespace zcache
