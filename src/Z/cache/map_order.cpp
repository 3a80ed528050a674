#include "map_order.h"

#include "memory.h"

namespace zcache {

namespace {

constexpr unsigned kBuckets = 15;

// The hash of string objects, which selects the bucket.
uint32_t stringHash(std::string_view name)
{
    uint32_t hash = 5381;
    for (char const c : name)
        hash = (hash * 33) ^ static_cast<unsigned char>(c);
    return hash;
}

}  // namespace

MapOrder::MapOrder(Contents const& contents)
{
    fill(
        contents.categoryCount(), contents.firstCategory(),
        [&](Id id) { return contents.name(contents.category(id)); },
        [&](Id id) { return contents.category(id).next; });
}

MapOrder::MapOrder(Contents const& contents, Id category)
{
    fill(
        contents.category(category).keyCount, contents.category(category).firstKey,
        [&](Id id) { return contents.name(contents.key(id)); },
        [&](Id id) { return contents.key(id).next; });
}

template <class NameOf, class NextOf>
void MapOrder::fill(size_t count, Id first, NameOf nameOf, NextOf nextOf)
{
    uint8_t inlineBuckets[kInlineCapacity];
    uint8_t* buckets = inlineBuckets;
    if (count > kInlineCapacity) {
        reallocate(block_, blockSize(count));
        sorted_ = block_.get();
        buckets = reinterpret_cast<uint8_t*>(sorted_ + count);
    }
    count_ = count;
    if (count == 1) {
        sorted_[0] = first;
        return;
    }
    // Counting sort: count each bucket, sum to start positions, place the ids.
    size_t starts[kBuckets + 1] = {};
    uint8_t* bucket = buckets;
    for (Id id = first; id != 0; id = nextOf(id)) {
        *bucket = static_cast<uint8_t>(stringHash(nameOf(id)) % kBuckets);
        ++starts[*bucket++ + 1];
    }
    for (unsigned i = 1; i <= kBuckets; ++i)
        starts[i] += starts[i - 1];
    bucket = buckets;
    for (Id id = first; id != 0; id = nextOf(id))
        sorted_[starts[*bucket++]++] = id;
}

}  // namespace zcache
