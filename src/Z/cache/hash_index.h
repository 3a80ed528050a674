// hash_index: finds records by the hash of their names, which the slots hold. compact_index has the
// index of a cache, in half the memory.
//
// Linear probing: slots are in hash order except where probing displaced them, so growing the table
// is one sequential pass.
#pragma once

#include <stddef.h>

#include "../memory/malloc_ptr.h"
#include "ids.h"

namespace zcache {

class HashIndex {
public:
    HashIndex() = default;
    HashIndex(HashIndex const&) = delete;
    HashIndex& operator=(HashIndex const&) = delete;

    /// Returns the id with `hash` for which `matches(id)` is true, or 0.
    template <class Matches>
    Id find(uint32_t hash, Matches matches) const
    {
        if (count_ == 0)
            return 0;
        for (size_t at = home(hash);; at = next(at)) {
            Slot const slot = slots_[at];
            if (slot.id == 0)
                return 0;
            if (slot.hash == hash && matches(slot.id))
                return slot.id;
        }
    }

    /// Ensures that the next `count` calls of add() do not throw.
    void reserve(size_t count)
    {
        if (count_ + count > maxCount_)
            grow(count);
    }

    /// Adds `id`, which is not in the index. Does not throw after reserve().
    void add(uint32_t hash, Id id);

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
    void grow(size_t count);
    static void put(Slot* slots, size_t size, size_t home, Slot slot);

    zmemory::MallocPtr<Slot[]> slots_;
    size_t size_ = 0;
    size_t count_ = 0;
    size_t maxCount_ = 0;  // the table grows beyond this number of ids
};

}  // namespace zcache
