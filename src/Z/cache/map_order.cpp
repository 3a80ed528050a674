#include "map_order.h"

#include "memory.h"

namespace zcache {

namespace {

constexpr unsigned kBuckets = 15;  // of the maps whose order callers see

// The hash that string objects have: the order of the maps comes from it.
uint32_t visibleHash(std::string_view name)
{
    uint32_t hash = 5381;
    for (char const c : name)
        hash = (hash * 33) ^ static_cast<unsigned char>(c);
    return hash;
}

}  // namespace

MapOrder::MapOrder(Store const& store)
{
    fill(
        store.categoryCount(), store.firstCategory(),
        [&](Id id) { return store.name(store.category(id)); },
        [&](Id id) { return store.category(id).next; });
}

MapOrder::MapOrder(Store const& store, Id category)
{
    fill(
        store.category(category).keyCount, store.category(category).firstKey,
        [&](Id id) { return store.name(store.key(id)); },
        [&](Id id) { return store.key(id).next; });
}

MapOrder::~MapOrder()
{
    if (sorted_ != few_)
        free(sorted_);
}

template <class NameOf, class NextOf>
void MapOrder::fill(size_t count, Id first, NameOf nameOf, NextOf nextOf)
{
    if (count > kFew)
        sorted_ = static_cast<Id*>(reallocate(nullptr, count * sizeof(Id)));
    count_ = count;
    if (count == 1) {
        sorted_[0] = first;
        return;
    }
    // Count the members of each bucket, turn the counts into first places, fill the places.
    size_t places[kBuckets + 1] = {};
    for (Id id = first; id != 0; id = nextOf(id))
        ++places[visibleHash(nameOf(id)) % kBuckets + 1];
    for (unsigned i = 1; i <= kBuckets; ++i)
        places[i] += places[i - 1];
    for (Id id = first; id != 0; id = nextOf(id))
        sorted_[places[visibleHash(nameOf(id)) % kBuckets]++] = id;
}

}  // namespace zcache
