#include "category_walk.h"

namespace zcache {

namespace {

// The text of a category is prefetched this number of steps ahead, its record twice the number.
constexpr size_t kAhead = 4;

}  // namespace

void CategoryWalk::start(MapOrder& order)
{
    count_ = static_cast<size_t>(order.end() - order.begin());
    next_ = 0;
    ids_ = order.release();
}

Id CategoryWalk::next(Contents const& contents, std::string_view name)
{
    if (ids_ == nullptr)
        return 0;
    Id const id = ids_[next_];
    if (contents.name(contents.category(id)) != name)
        return 0;
    next_ = next_ + 1 == count_ ? 0 : next_ + 1;
    if (count_ - next_ > 2 * kAhead) {
        __builtin_prefetch(&contents.category(ids_[next_ + 2 * kAhead]));
        Category const& coming = contents.category(ids_[next_ + kAhead]);
        __builtin_prefetch(contents.name(coming).data());
        if (coming.firstKey != 0)
            __builtin_prefetch(&contents.key(coming.firstKey));
    }
    return id;
}

}  // namespace zcache
