// map_order: the order in which callers see names.
//
// It is the order of a hash map with 15 buckets: bucket by bucket, insertion order within a bucket.
#pragma once

#include <utility>

#include "../memory/malloc_ptr.h"
#include "contents.h"

namespace zcache {

// The ids of all categories, or of the keys of a category.
class MapOrder {
public:
    explicit MapOrder(Contents const& contents);  // categories
    MapOrder(Contents const& contents, Id category);
    MapOrder(MapOrder const&) = delete;
    MapOrder& operator=(MapOrder const&) = delete;

    Id const* begin() const { return sorted_; }
    Id const* end() const { return sorted_ + count_; }

    /// Returns the size of the block for many ids, in ids. The bucket of each name follows them.
    static size_t blockSize(size_t count) { return count + count / sizeof(Id) + 1; }

    /// Returns the block of the ids, or null if there are few. The order is empty then.
    /// owns    owned by the caller.
    zmemory::MallocPtr<Id[]> release()
    {
        count_ = 0;
        return std::move(block_);
    }

private:
    template <class NameOf, class NextOf>
    void fill(size_t count, Id first, NameOf nameOf, NextOf nextOf);

    static constexpr size_t kInlineCapacity = 128;
    Id inline_[kInlineCapacity];
    zmemory::MallocPtr<Id[]> block_;  // if `inline_` is too short
    Id* sorted_ = inline_;
    size_t count_ = 0;
};

}  // namespace zcache
