// hash_index: finds records by the hash of their names.
#pragma once

#include <stddef.h>
#include <stdlib.h>

#include "ids.h"

namespace zcache {

// Finds the ids of records by the hash of their names. Linear probing over slots that are sorted by
// hash, but for what moved on: growing the table reads and writes it once from start to end.
class Index {
public:
    Index() = default;
    Index(Index const&) = delete;
    Index& operator=(Index const&) = delete;
    ~Index() { free(slots_); }

    // Makes this empty table a copy of `other`.
    void copy(Index const& other);

    // Returns the id under `hash` for which `isIt(id)` is true, or 0.
    template <class IsIt>
    Id find(uint32_t hash, IsIt isIt) const
    {
        if (count_ == 0)
            return 0;
        for (size_t at = home(hash);; at = next(at)) {
            Slot const slot = slots_[at];
            if (slot.id == 0)
                return 0;
            if (slot.hash == hash && isIt(slot.id))
                return slot.id;
        }
    }

    // Asks the memory for the slots where find() will begin.
    void prefetch(uint32_t hash) const
    {
        if (size_ != 0)
            __builtin_prefetch(&slots_[home(hash)]);
    }

    // Makes sure that `count` ids can be entered without raising.
    void reserve(size_t count)
    {
        if (count_ + count > most_)
            grow(count);
    }

    // Enters `id`, which is not in the table. Never raises after reserve().
    void add(uint32_t hash, Id id);

    // Removes `id`, which is in the table.
    void remove(uint32_t hash, Id id);

    // Puts `id` in the place of `old`, which is in the table.
    void replace(uint32_t hash, Id old, Id id) { slots_[find(hash, old)].id = id; }

    // Gives back slots that so few ids do not need.
    void fit();

    size_t bytes() const { return size_ * sizeof(Slot); }
    void swap(Index& other);

private:
    struct Slot {
        uint32_t hash;
        Id id;  // 0: the slot is empty
    };

    size_t home(uint32_t hash) const
    {
        return static_cast<size_t>((static_cast<uint64_t>(hash) * size_) >> 32);
    }
    size_t next(size_t at) const { return at + 1 == size_ ? 0 : at + 1; }
    size_t find(uint32_t hash, Id id) const;
    void grow(size_t count);
    bool resize(size_t size);
    static void put(Slot* slots, size_t size, size_t home, Slot slot);

    Slot* slots_ = nullptr;
    size_t size_ = 0;
    size_t count_ = 0;
    size_t most_ = 0;  // ids that may be in the table before it grows
};

}  // namespace zcache
