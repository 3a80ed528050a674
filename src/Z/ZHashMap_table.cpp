#include <algorithm>
#include <memory>
#include <utility>

#include "ZException.h"
#include "ZHashMap_p.h"

namespace {

constexpr char kSource[] = "src/Z/ZHashMap";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInMake = 74, raiseInReserve = 152, raiseInLayIndex = 178 };

uint32_t bucketsFor(unsigned int capacity)
{
    uint32_t const buckets = std::max(uint32_t{capacity}, uint32_t{2}) * 3 / 2;
    return std::max(buckets, uint32_t{1});  // the product may have wrapped around to 0
}

}  // namespace

HashTable::HashTable(unsigned int capacity, int owns)
    : bucketCount_(bucketsFor(capacity)), owns_(owns != 0)
{
    buckets_.makeZero(bucketCount_, kSource, raiseInMake);
}

HashTable::HashTable(HashTable const& source)
    : bucketCount_(source.bucketCount_), owns_(source.owns_)
{
    buckets_.makeZero(bucketCount_, kSource, raiseInMake);
    try {
        source.forEach([this](Node const& node) {
            std::unique_ptr<ZObject_6_0> key(owns_ ? cloneOf(node.key) : nullptr);
            if (owns_ && key == nullptr)
                return;
            std::unique_ptr<ZObject_6_0> value(owns_ ? cloneOf(node.value) : nullptr);
            reserve(0, node.hash);
            append(node.hash, owns_ ? key.release() : node.key,
                   owns_ ? value.release() : node.value);
        });
    } catch (...) {
        removeAll();
        throw;
    }
}

// The maps call removeAll() first: unlike this destructor, they may throw.
HashTable::~HashTable() = default;

void HashTable::reserve(Place place, uint32_t hash)
{
    if (place != 0)
        return;
    if (freeNodes_ == 0 && nodesUsed_ == nodeRoom_) {
        if (nodeRoom_ == kMostNodes)
            ZOutOfMemoryException_6_0().throwException(kSource, raiseInReserve);
        uint32_t const room = std::max(nodeRoom_ * 2, uint32_t{4});
        nodes_.resize(room, kSource, raiseInReserve);
        nodeRoom_ = room;
    }
    if (markCount_ != 0) {
        if (size_ >= markCount_ / 2)
            layIndex(marksFor(size_));
    } else if (size_ >= kLongChain && chainLength(hash) >= kLongChain) {
        layIndex(marksFor(size_));
    }
}

void HashTable::put(Place place, uint32_t hash, ZObject_6_0* key, ZObject_6_0* value)
{
    if (place == 0) {
        append(hash, key, value);
        return;
    }
    nodeAt(place).hash = hash;
    exchange(place, key, value);
    if (owns_) {
        ObjectDeleter deleter;
        deleter.drop(key);
        deleter.drop(value);
        deleter.finish();
    }
}

void HashTable::remove(Place place)
{
    Node const node = take(place);
    if (owns_) {
        ObjectDeleter deleter;
        deleter.drop(node.key);
        deleter.drop(node.value);
        deleter.finish();
    }
}

HashTable::Node HashTable::take(Place place)
{
    Node& node = nodeAt(place);
    if (markCount_ != 0)
        unmark(node.hash, place);
    Chain& chain = buckets_[bucketOf(node.hash)];
    (node.previous != 0 ? nodeAt(node.previous).next : chain.first) = node.next;
    (node.next != 0 ? nodeAt(node.next).previous : chain.last) = node.previous;
    Node const taken = node;
    node = Node{nullptr, nullptr, 0, freeNodes_, 0};
    freeNodes_ = place;
    --size_;
    return taken;
}

// Empties the table before the first destructor runs: a destructor that reads or changes the map
// must not see nodes that are being deleted.
void HashTable::removeAll()
{
    if (size_ == 0)
        return;
    Place first = 0;
    Place last = 0;
    for (uint32_t bucket = 0; bucket < bucketCount_; ++bucket) {
        Chain const chain = std::exchange(buckets_[bucket], Chain{0, 0});
        if (chain.first == 0)
            continue;
        (last != 0 ? nodeAt(last).next : first) = chain.first;
        last = chain.last;
    }
    PlainBlock<Node> nodes;
    nodes.swap(nodes_);
    marks_.clear();
    markCount_ = size_ = nodesUsed_ = nodeRoom_ = 0;
    freeNodes_ = 0;
    ascends_ = true;
    if (!owns_)
        return;
    ObjectDeleter deleter;
    for (Place place = first; place != 0; place = nodes[place - 1].next) {
        deleter.drop(nodes[place - 1].key);
        deleter.drop(nodes[place - 1].value);
    }
    deleter.finish();
}

uint32_t HashTable::chainLength(uint32_t hash) const
{
    uint32_t length = 0;
    for (Place place = buckets_[bucketOf(hash)].first; place != 0; place = at(place).next)
        ++length;
    return length;
}

HashTable::Place HashTable::append(uint32_t hash, ZObject_6_0* key, ZObject_6_0* value)
{
    Place place = freeNodes_;
    if (place != 0) {
        freeNodes_ = nodeAt(place).next;
        ascends_ = false;
    } else {
        place = ++nodesUsed_;
    }
    Chain& chain = buckets_[bucketOf(hash)];
    nodeAt(place) = Node{key, value, hash, 0, chain.last};
    (chain.last != 0 ? nodeAt(chain.last).next : chain.first) = place;
    chain.last = place;
    ++size_;
    if (markCount_ != 0)
        mark(marks_, markCount_, Mark{hash, place});
    return place;
}

// Builds the index over all nodes, in chain order: nodes of the same hash start at the same slot,
// and a lookup must find the first node of the chain first.
void HashTable::layIndex(uint32_t markCount)
{
    PlainBlock<Mark> marks;
    marks.makeZero(markCount, kSource, raiseInLayIndex);
    if (ascends_) {  // the block is in chain order, and faster to read than the chains
        for (Place place = 1; place <= nodesUsed_; ++place) {
            if (nodeAt(place).key != nullptr)
                mark(marks, markCount, Mark{nodeAt(place).hash, place});
        }
    } else {
        forEach([&](Node const& node) {
            mark(marks, markCount, Mark{node.hash, static_cast<Place>(&node - nodes_.data()) + 1});
        });
    }
    marks_.swap(marks);
    markCount_ = markCount;
}

void HashTable::mark(PlainBlock<Mark>& marks, uint32_t markCount, Mark mark) const
{
    uint32_t i = startOf(mark.hash, markCount);
    while (marks[i].place != 0)
        i = (i + 1) & (markCount - 1);
    marks[i] = mark;
}

// Frees the node's slot in the index and moves up later slots that a lookup could no longer reach.
void HashTable::unmark(uint32_t hash, Place place)
{
    uint32_t const wrap = markCount_ - 1;
    uint32_t gap = startOf(hash, markCount_);
    while (marks_[gap].place != place)
        gap = (gap + 1) & wrap;
    for (uint32_t i = (gap + 1) & wrap; marks_[i].place != 0; i = (i + 1) & wrap) {
        uint32_t const start = startOf(marks_[i].hash, markCount_);
        if (((i - start) & wrap) >= ((i - gap) & wrap)) {
            marks_[gap] = marks_[i];
            gap = i;
        }
    }
    marks_[gap] = Mark{0, 0};
}
