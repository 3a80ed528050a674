// map_order: the order of names that callers see.
#pragma once

#include "contents.h"

namespace zcache {

// The keys of a category, or all categories, in the order of a map with 15 buckets: bucket by
// bucket, in a bucket as they came.
class MapOrder {
public:
    explicit MapOrder(Store const& store);  // categories
    MapOrder(Store const& store, Id category);
    MapOrder(MapOrder const&) = delete;
    MapOrder& operator=(MapOrder const&) = delete;
    ~MapOrder();

    Id const* begin() const { return sorted_; }
    Id const* end() const { return sorted_ + count_; }

private:
    template <class NameOf, class NextOf>
    void fill(size_t count, Id first, NameOf nameOf, NextOf nextOf);

    static constexpr size_t kFew = 128;
    Id few_[kFew];
    Id* sorted_ = few_;
    size_t count_ = 0;
};

}  // namespace zcache
