#include "compact_index.h"

#include <string.h>

#include <algorithm>
#include <bit>
#include <utility>

#include "../memory/huge_pages.h"
#include "../stanza/raise_sites.h"
#include "memory.h"

namespace zcache {

namespace {

constexpr size_t kMinSlots = 6;
constexpr size_t kSmallCount = 1024;

// Returns the table size for `count` ids: a load factor of at most 5/7, or 1/2 in a small table,
// where most lookups hit their first slot.
size_t slotsFor(size_t count)
{
    return std::max(kMinSlots, (count <= kSmallCount ? count * 2 : count * 7 / 5) + 1);
}

// Returns the number of ids beyond which a table of `size` slots grows.
size_t maxCountOf(size_t size)
{
    return size <= slotsFor(kSmallCount) ? size * 7 / 10 : size / 5 * 4;
}

}  // namespace

void CompactIndex::copy(CompactIndex const& other)
{
    if (other.size_ != 0) {
        reallocate(slots_, other.size_);
        memcpy(slots_.get(), other.slots_.get(), other.bytes());
    }
    size_ = other.size_;
    count_ = other.count_;
    maxCount_ = other.maxCount_;  // or only_
    idBits_ = other.idBits_;
}

void CompactIndex::put(uint32_t hash, Id id)
{
    Slot* const begin = slots_.get();
    Slot* const end = begin + size_;
    Slot* at = begin + home(hash);
    while (*at != 0)
        if (++at == end)
            at = begin;
    *at = hash << idBits_ | id;
}

void CompactIndex::add(uint32_t hash, Id id)
{
    if (size_ == 0)
        only_ = id;
    else
        put(hash, id);
    ++count_;
}

void CompactIndex::replace(uint32_t hash, Id old, Id id)
{
    if (size_ == 0)
        only_ = id;
    else
        slots_[find(hash, old)] = hash << idBits_ | id;
}

size_t CompactIndex::find(uint32_t hash, Id id) const
{
    size_t at = home(hash);
    while (idAt(at) != id)
        at = next(at);
    return at;
}

void CompactIndex::remove(uint32_t hash, Id id, HashOf const& hashOf)
{
    if (size_ == 0) {
        only_ = 0;
        count_ = 0;
        return;
    }
    size_t gap = find(hash, id);
    // Move each following id into the gap, unless its search starts after the gap.
    for (size_t at = next(gap); slots_[at] != 0; at = next(at)) {
        size_t const begin = home(hashOf(idAt(at)));
        bool const startsAfterGap =
            gap < at ? gap < begin && begin <= at : gap < begin || begin <= at;
        if (!startsAfterGap) {
            slots_[gap] = slots_[at];
            gap = at;
        }
    }
    slots_[gap] = 0;
    --count_;
}

void CompactIndex::grow(size_t count, size_t maxId, HashOf const& hashOf)
{
    bool const needsSlots = size_ == 0 || count > maxCount_ - count_;
    size_t const size = needsSlots ? std::max(slotsFor(count_ + count), size_t{size_} * 2)
                                   : size_;  // only the ids are larger
    if (count > kMaxRecords || maxId > kMaxRecords || !resize(size, maxId, hashOf))
        zstanza::throwOutOfMemory();
}

void CompactIndex::shrinkToFit(HashOf const& hashOf)
{
    if (count_ == 0)
        CompactIndex().swap(*this);
    else if (size_ > 2 * slotsFor(count_))
        resize(slotsFor(count_) + 8, 0, hashOf);  // without memory for it, the table is unchanged
}

// Moves the ids to a table of `size` slots, for ids up to `maxId`. Returns false if memory is
// exhausted.
bool CompactIndex::resize(size_t size, size_t maxId, HashOf const& hashOf)
{
    CompactIndex made;
    made.slots_.reset(static_cast<Slot*>(calloc(size, sizeof(Slot))));
    if (made.slots_ == nullptr)
        return false;
    zmemory::preferHugePages(made.slots_.get(), size * sizeof(Slot));
    made.size_ = static_cast<uint32_t>(size);
    made.maxCount_ = static_cast<uint32_t>(maxCountOf(size));
    made.count_ = count_;
    size_t const ids = maxId | made.maxCount_ | (size_ == 0 ? only_ : 0);
    made.idBits_ = std::max(idBits_, static_cast<unsigned>(std::bit_width(ids)));
    made.putAll(*this, hashOf);
    swap(made);
    return true;
}

// Puts the ids of `other` into this table. A large table is read in the order of its ids, because
// records in the order of their hashes miss the processor's cache.
void CompactIndex::putAll(CompactIndex const& other, HashOf const& hashOf)
{
    using Word = uint64_t;
    constexpr size_t kWordBits = 64;
    size_t const words = (size_t{1} << other.idBits_) / kWordBits + 1;
    zmemory::MallocPtr<Word[]> isUsed;
    if (other.count_ > kSmallCount)
        isUsed.reset(static_cast<Word*>(calloc(words, sizeof(Word))));
    if (other.size_ == 0 && other.only_ != 0)
        put(hashOf(other.only_), other.only_);
    for (size_t at = 0; at < other.size_; ++at) {
        Id const id = other.idAt(at);
        if (id == 0)
            continue;
        if (isUsed != nullptr)
            isUsed[id / kWordBits] |= Word{1} << id % kWordBits;
        else
            put(hashOf(id), id);
    }
    for (size_t i = 0; isUsed != nullptr && i < words; ++i) {
        for (Word left = isUsed[i]; left != 0; left &= left - 1) {
            Id const id = static_cast<Id>(i * kWordBits) + static_cast<Id>(std::countr_zero(left));
            put(hashOf(id), id);
        }
    }
}

void CompactIndex::swap(CompactIndex& other)
{
    std::swap(slots_, other.slots_);
    std::swap(size_, other.size_);
    std::swap(count_, other.count_);
    std::swap(maxCount_, other.maxCount_);  // or only_
    std::swap(idBits_, other.idBits_);
}

}  // namespace zcache
