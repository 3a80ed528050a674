// category_walk: finds the categories of a large cache in the order in which a caller received
// their names.
//
// A caller that iterates over all categories looks up each name in that order, which is not the
// order in memory. The next category is known without the index, and the records of the following
// categories are prefetched.
#pragma once

#include <string_view>

#include "map_order.h"

namespace zcache {

class CategoryWalk {
public:
    /// Starts before the first category of `order`, whose block it takes over. The categories must
    /// not change until stop(). Few categories are not worth it: it is stopped then.
    void start(MapOrder& order);

    void stop() { ids_.reset(); }

    size_t bytes() const { return ids_ == nullptr ? 0 : MapOrder::blockSize(count_) * sizeof(Id); }

    /// Steps to the next category and returns its id if `name` is its name, else returns 0. The
    /// first category follows the last.
    Id next(Contents const& contents, std::string_view name);

private:
    zmemory::MallocPtr<Id[]> ids_;  // null: stopped
    size_t count_ = 0;
    size_t next_ = 0;
};

}  // namespace zcache
