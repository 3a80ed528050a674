#include "hash_table.h"

#include <stdlib.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "../ZException.h"
#include "../memory/huge_pages.h"
#include "object_deleter.h"
#include "slots.h"

namespace zcontainers {

namespace {

constexpr char kSource[] = "src/Z/ZHashMap";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseInConstruct = 74, raiseInReserve = 152, raiseInBuildIndex = 178 };

uint32_t bucketsFor(unsigned int capacity)
{
    uint32_t const buckets = std::max(uint32_t{capacity}, uint32_t{2}) * 3 / 2;
    return std::max(buckets, uint32_t{1});  // the product may have wrapped around to 0
}

}  // namespace

HashTable::HashTable(unsigned int capacity, int owns)
    : bucketCount_(bucketsFor(capacity)), owns_(owns != 0)
{
    buckets_.allocateZeroed(bucketCount_, kSource, raiseInConstruct);
}

HashTable::Cells::~Cells()
{
    for (uint32_t i = 0; i < count_; ++i)
        free(blocks_[i]);
}

char* HashTable::Cells::at(NodeIndex index)
{
    uint32_t const node = index - 1;
    Block const block = blockOf(node);
    if (block.number >= count_ || blocks_[block.number] == nullptr)
        allocate(block);
    return blocks_[block.number] + kPairSize * (node - block.first);
}

void HashTable::Cells::freeLarge()
{
    for (uint32_t i = 1; i < count_; ++i)
        free(blocks_[i]);
    count_ = count_ != 0 ? 1 : 0;
}

void HashTable::Cells::allocate(Block block)
{
    if (block.number >= count_) {
        blocks_.resize(block.number + 1, kSource, raiseInReserve);
        while (count_ <= block.number)
            blocks_[count_++] = nullptr;
    }
    void* const cells = zmemory::allocateLarge(kPairSize * block.nodes);
    if (cells == nullptr)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInReserve);
    blocks_[block.number] = static_cast<char*>(cells);
}

HashTable::HashTable(HashTable const& source, PlaceClone* place)
    : bucketCount_(source.bucketCount_), owns_(source.owns_)
{
    buckets_.allocateZeroed(bucketCount_, kSource, raiseInConstruct);
    try {
        source.forEach([this, place](Node const& node) {
            if (owns_ && place != nullptr && appendPlaced(node.hash, *node.key, node.value, place))
                return;
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

void HashTable::reserve(NodeIndex index, uint32_t hash)
{
    if (index != 0)
        return;
    if (freeNodes_ == 0 && nodesUsed_ == nodeCapacity_) {
        if (nodeCapacity_ == kMaxNodes)
            ZOutOfMemoryException_6_0().throwException(kSource, raiseInReserve);
        uint32_t const capacity = std::clamp(nodeCapacity_ * 2, uint32_t{4}, kMaxNodes);
        nodes_.resize(capacity, kSource, raiseInReserve);
        nodeCapacity_ = capacity;
    }
    if (slotCount_ != 0) {
        if (size_ >= slotCount_ / 2)
            buildIndex(slotsFor(size_));
    } else if (size_ >= kLongChain && chainLength(hash) >= kLongChain) {
        buildIndex(slotsFor(size_));
    }
}

void HashTable::reserveAll(uint32_t size)
{
    size = std::min(size, kMaxNodes);
    if (size > nodeCapacity_) {
        if (nodeCapacity_ == 0)
            nodes_.allocateLarge(size, kSource, raiseInReserve);
        else
            nodes_.resize(size, kSource, raiseInReserve);
        nodeCapacity_ = size;
    }
    if (size <= kLongChain * bucketCount_)
        return;
    uint32_t slotCount = 4 * kLongChain;
    while (slotCount < kMaxSlots && slotCount / 2 < size)
        slotCount *= 2;
    if (slotCount > slotCount_)
        buildIndex(slotCount);
}

void HashTable::put(NodeIndex index, uint32_t hash, ZObject_6_0* key, ZObject_6_0* value)
{
    if (index == 0) {
        append(hash, key, value);
        return;
    }
    Node& node = nodeAt(index);
    Node const replaced = node;
    node.hash = hash;
    node.key = key;
    node.value = value;
    node.placement = kOwnObjects;
    if (owns_)
        destroy(replaced);
}

void HashTable::destroyInCells(Node const& node)
{
    node.key->~ZObject_6_0();
    if (node.value != nullptr)
        node.value->~ZObject_6_0();
}

void HashTable::destroy(Node const& node)
{
    if (node.placement == kInCells) {
        destroyInCells(node);
        return;
    }
    ObjectDeleter deleter;
    deleter.destroy(node.key);
    deleter.destroy(node.value);
    deleter.rethrowFirst();
}

void HashTable::remove(NodeIndex index)
{
    Node const node = extract(index);
    if (node.placement == kInCells)
        destroyInCells(node);
    if (size_ == 0) {
        // Every node is free: number them from 0, and keep only the cells of the first ones.
        nodesUsed_ = 0;
        freeNodes_ = 0;
        ascends_ = true;
        cells_.freeLarge();
    }
    if (owns_ && node.placement != kInCells)
        destroy(node);
}

HashTable::Node HashTable::extract(NodeIndex index)
{
    Node& node = nodeAt(index);
    if (slotCount_ != 0)
        removeFromIndex(node.hash, index);
    Chain& chain = buckets_[bucketOf(node.hash)];
    (node.previous != 0 ? nodeAt(node.previous).next : chain.first) = node.next;
    (node.next != 0 ? nodeAt(node.next).previous : chain.last) = node.previous;
    Node const extracted = node;
    node = Node{nullptr, nullptr, 0, freeNodes_, 0, kOwnObjects};
    freeNodes_ = index;
    --size_;
    return extracted;
}

// Empties the table before the first destructor runs: a destructor that reads or changes the map
// must not see nodes that are being deleted.
void HashTable::removeAll()
{
    if (size_ == 0)
        return;
    NodeIndex first = 0;
    NodeIndex last = 0;
    for (uint32_t bucket = 0; bucket < bucketCount_; ++bucket) {
        Chain const chain = std::exchange(buckets_[bucket], Chain{0, 0});
        if (chain.first == 0)
            continue;
        (last != 0 ? nodeAt(last).next : first) = chain.first;
        last = chain.last;
    }
    zmemory::OwnedBlock<Node> nodes;
    nodes.swap(nodes_);
    Cells cells;
    cells.swap(cells_);
    slots_.clear();
    uint32_t const used = nodesUsed_;
    slotCount_ = size_ = nodesUsed_ = nodeCapacity_ = 0;
    freeNodes_ = 0;
    ascends_ = true;
    if (!owns_)
        return;
    // Some objects may be destroyed in any order: use the order of the memory.
    bool isDone = true;
    for (uint32_t i = 0; i < used; ++i) {
        Node const& node = nodes[i];
        if (node.placement == kInCells) {
            destroyInCells(node);
        } else if (node.placement == kAnyOrder) {
            delete node.key;
            delete node.value;
        } else if (node.key != nullptr) {
            isDone = false;
        }
    }
    if (isDone)
        return;
    ObjectDeleter deleter;
    for (NodeIndex index = first; index != 0; index = nodes[index - 1].next) {
        Node const& node = nodes[index - 1];
        if (node.placement == kOwnObjects) {
            deleter.destroy(node.key);
            deleter.destroy(node.value);
        }
    }
    deleter.rethrowFirst();
}

uint32_t HashTable::chainLength(uint32_t hash) const
{
    uint32_t length = 0;
    for (NodeIndex index = buckets_[bucketOf(hash)].first; index != 0; index = at(index).next)
        ++length;
    return length;
}

HashTable::NodeIndex HashTable::append(uint32_t hash, ZObject_6_0* key, ZObject_6_0* value,
                                       Placement placement)
{
    NodeIndex index = freeNodes_;
    if (index != 0) {
        freeNodes_ = nodeAt(index).next;
        ascends_ = false;
    } else {
        index = ++nodesUsed_;
    }
    Chain& chain = buckets_[bucketOf(hash)];
    nodeAt(index) = Node{key, value, hash, 0, chain.last, placement};
    (chain.last != 0 ? nodeAt(chain.last).next : chain.first) = index;
    chain.last = index;
    ++size_;
    if (slotCount_ != 0)
        insertIntoIndex(slots_, slotCount_, IndexSlot{hash, index});
    return index;
}

bool HashTable::appendPlaced(uint32_t hash, ZObject_6_0 const& key, ZObject_6_0 const* value,
                             PlaceClone* place)
{
    reserve(0, hash);
    char* const cells = cells_.at(freeNodes_ != 0 ? freeNodes_ : nodesUsed_ + 1);
    ZObject_6_0* const placedKey = place(cells, key);
    if (placedKey == nullptr)
        return false;
    ZObject_6_0* placedValue = nullptr;
    if (value != nullptr) {
        try {
            placedValue = place(cells + kCellSize, *value);
        } catch (...) {
            placedKey->~ZObject_6_0();
            throw;
        }
        if (placedValue == nullptr) {
            placedKey->~ZObject_6_0();
            return false;
        }
    }
    append(hash, placedKey, placedValue, kInCells);
    return true;
}

// Builds the index over all nodes, in chain order: nodes of the same hash start at the same slot,
// and a lookup must find the first node of the chain first.
void HashTable::buildIndex(uint32_t slotCount)
{
    zmemory::OwnedBlock<IndexSlot> slots;
    slots.allocateLargeZeroed(slotCount, kSource, raiseInBuildIndex);
    if (ascends_) {  // the block is in chain order, and faster to read than the chains
        for (NodeIndex index = 1; index <= nodesUsed_; ++index) {
            if (nodeAt(index).key != nullptr)
                insertIntoIndex(slots, slotCount, IndexSlot{nodeAt(index).hash, index});
        }
    } else {
        forEach([&](Node const& node) {
            insertIntoIndex(
                slots, slotCount,
                IndexSlot{node.hash, static_cast<NodeIndex>(&node - nodes_.data()) + 1});
        });
    }
    slots_.swap(slots);
    slotCount_ = slotCount;
}

void HashTable::insertIntoIndex(zmemory::OwnedBlock<IndexSlot>& slots, uint32_t slotCount,
                                IndexSlot slot) const
{
    uint32_t i = startOf(slot.hash, slotCount);
    while (slots[i].node != 0)
        i = (i + 1) & (slotCount - 1);
    slots[i] = slot;
}

// Frees the node's slot in the index and moves up later slots that a lookup could no longer reach.
void HashTable::removeFromIndex(uint32_t hash, NodeIndex index)
{
    uint32_t const wrap = slotCount_ - 1;
    uint32_t gap = startOf(hash, slotCount_);
    while (slots_[gap].node != index)
        gap = (gap + 1) & wrap;
    for (uint32_t i = (gap + 1) & wrap; slots_[i].node != 0; i = (i + 1) & wrap) {
        uint32_t const start = startOf(slots_[i].hash, slotCount_);
        if (((i - start) & wrap) >= ((i - gap) & wrap)) {
            slots_[gap] = slots_[i];
            gap = i;
        }
    }
    slots_[gap] = IndexSlot{0, 0};
}

}  // namespace zcontainers
