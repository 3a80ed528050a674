// compact_index: finds records by the hash of their names, with four bytes a slot.
//
// Open addressing with linear probing. A slot holds the id of a record and, in the bits that ids do
// not need, the low bits of its hash. The full hash is computed again, by a function of the caller,
// when the table grows and when a removal moves slots. The index of a single record has no table.
#pragma once

#include <stddef.h>

#include <type_traits>

#include "../memory/malloc_ptr.h"
#include "ids.h"

namespace zcache {

class CompactIndex {
public:
    // Refers to a function that returns the hash of a record that is in the index. It must outlive
    // the call that it is passed to.
    class HashOf {
    public:
        template <class Call>
        HashOf(Call&& call)
            : call_(const_cast<void*>(static_cast<void const*>(&call))),
              invoke_([](void* target, Id id) {
                  return (*static_cast<std::remove_reference_t<Call>*>(target))(id);
              })
        {
        }
        uint32_t operator()(Id id) const { return invoke_(call_, id); }

    private:
        void* call_;
        uint32_t (*invoke_)(void*, Id);
    };

    CompactIndex() = default;
    CompactIndex(CompactIndex const&) = delete;
    CompactIndex& operator=(CompactIndex const&) = delete;

    /// Copies `other` into this empty index.
    void copy(CompactIndex const& other);

    /// Returns the id with `hash` for which `matches(id)` is true, or 0. `matches` may be called
    /// for an id with another hash.
    template <class Matches>
    Id find(uint32_t hash, Matches matches) const
    {
        Slot const* begin = slots_.get();
        Slot const* end = begin + size_;
        Slot const* at = begin + home(hash);
        uint32_t idEnd = uint32_t{1} << idBits_;
        uint32_t tag = hash << idBits_;
        Slot only[2];
        if (size_ == 0) {  // search a table of the only id, without a tag
            only[0] = only_;
            only[1] = 0;
            begin = at = only;
            end = only + 2;
            idEnd = kMaxRecords + 1;
            tag = 0;
        }
        while (*at != 0) {
            // Equal tags cancel out, and leave the id.
            if (Id const id = *at ^ tag; id < idEnd && matches(id))
                return id;
            if (++at == end)
                at = begin;
        }
        return 0;
    }

    /// Prefetches the slot at which find() will start.
    void prefetch(uint32_t hash) const
    {
        if (size_ != 0)
            __builtin_prefetch(&slots_[home(hash)]);
    }

    /// Ensures that the next `count` calls of add() do not throw, for ids up to `maxId`.
    template <class Call>
    void reserve(size_t count, size_t maxId, Call&& hashOf)
    {
        if (size_ == 0 ? count + count_ > 1 || maxId > kMaxRecords
                       : count > maxCount_ - count_ || maxId >> idBits_ != 0)
            grow(count, maxId, hashOf);
    }

    /// Adds `id`, which is not in the index. Requires reserve() or the slot of an id removed since.
    void add(uint32_t hash, Id id);

    /// Removes `id`, which is in the index.
    void remove(uint32_t hash, Id id, HashOf const& hashOf);

    /// Replaces `old`, which is in the index, by `id`, which was in the index before.
    void replace(uint32_t hash, Id old, Id id);

    /// Frees slots if most of them are unused.
    void shrinkToFit(HashOf const& hashOf);

    size_t bytes() const { return size_t{size_} * sizeof(Slot); }
    void swap(CompactIndex& other);

private:
    using Slot = uint32_t;  // 0: the slot is empty

    size_t home(uint32_t hash) const
    {
        return static_cast<size_t>((static_cast<uint64_t>(hash) * size_) >> 32);
    }
    size_t next(size_t at) const { return at + 1 == size_ ? 0 : at + 1; }
    Id idAt(size_t at) const { return slots_[at] & ((Id{1} << idBits_) - 1); }
    size_t find(uint32_t hash, Id id) const;
    void grow(size_t count, size_t maxId, HashOf const& hashOf);
    bool resize(size_t size, size_t maxId, HashOf const& hashOf);
    void put(uint32_t hash, Id id);
    void putAll(CompactIndex const& other, HashOf const& hashOf);

    zmemory::MallocPtr<Slot[]> slots_;
    uint32_t size_ = 0;  // of the table; 0: none
    uint32_t count_ = 0;
    union {
        Id only_ = 0;        // without a table: the id in the index, or 0
        uint32_t maxCount_;  // with a table: the number of ids that fit before it grows
    };
    unsigned idBits_ = 0;  // of a slot, for the id
};

}  // namespace zcache
