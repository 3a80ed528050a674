// hash_table: the hash table of ZHashMap_6_0, ZHashKeyMap_6_0 and ZJavaProperties_6_0.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <utility>

#include "../ZObject.h"
#include "../memory/owned_block.h"

namespace zcontainers {

// A hash table of keys and values. A map of entries stores its entries as keys, without values.
//
// The table has a fixed number of buckets, each a chain of nodes in insertion order; callers see
// that order. All nodes are in one block. As the bucket count never changes, a map that outgrows
// its capacity gets long chains. Before a chain exceeds kLongChain nodes, the table builds an
// open-addressing index from the full hash to the node, and lookups use the index from then on.
// Nodes of the same hash are found in chain order: they are inserted into the index in that order,
// and a removal closes its gap without reordering them.
class HashTable {
public:
    using NodeIndex = uint32_t;  // counted from 1; 0 means no node

    struct Node {
        ZObject_6_0* key;  // null while the node is free
        ZObject_6_0* value;
        uint32_t hash;   // of the key
        NodeIndex next;  // in the chain, or among the free nodes
        NodeIndex previous;
        uint32_t placement;  // a Placement
    };

    // The memory of a node's key and value.
    enum Placement : uint32_t {
        kOwnObjects = 0,  // separate objects, deleted in the order of the chains
        kInCells = 1,     // in cells of the table
        kAnyOrder = 2     // separate objects, which can be deleted in any order and do not throw
    };

    // The size of the cells for the key and the value of a node.
    static constexpr size_t kCellSize = 128;

    /// Constructs a clone of `obj` in `cell`, of kCellSize bytes. Returns null, with nothing done,
    /// if objects of its class do not belong into cells. The destructor of a placed object must not
    /// throw.
    using PlaceClone = ZObject_6_0*(void* cell, ZObject_6_0 const& obj);

    /// Makes an empty table with max(`capacity`, 2) * 3 / 2 buckets, computed in 32 bits, but at
    /// least one.
    HashTable(unsigned int capacity, int owns);
    /// Copies the buckets, the ownership and the nodes of `source`; an owning table clones keys
    /// and values, into cells if `place` does, and skips a key that cannot be cloned.
    HashTable(HashTable const& source, PlaceClone* place = nullptr);
    HashTable& operator=(HashTable const&) = delete;
    ~HashTable();

    /// Returns the number of slots of an index over `size` nodes: a power of 2, at least four slots
    /// per node, but at most kMaxSlots.
    static constexpr uint32_t slotsFor(uint32_t size);

    bool owns() const { return owns_; }
    uint32_t size() const { return size_; }
    Node const& at(NodeIndex index) const { return nodes_[index - 1]; }

    /// Returns the index of the first node in the bucket of `hash` for which `matches(node)` is
    /// true; 0 if not found. Without an open-addressing index, `matches` also sees nodes of other
    /// hashes.
    template <class Matches>
    NodeIndex find(uint32_t hash, Matches matches) const;
    /// Returns the index of the node with this hash whose key `key` equals; 0 if not found.
    NodeIndex findKey(ZObject_6_0 const& key, uint32_t hash) const
    {
        return find(hash, [&key, hash](Node const& node) {
            return node.hash == hash && key.equals(*node.key);
        });
    }
    /// Calls `visit(node)` for every node, bucket by bucket.
    template <class Visit>
    void forEach(Visit visit) const;
    /// As forEach(), but calls `prefetch(node)` for each node some nodes before `visit(node)`.
    template <class Prefetch, class Visit>
    void forEachPrefetched(Prefetch prefetch, Visit visit) const;
    /// Calls `visit(first)` for every bucket that is not empty, with the index of its first node.
    template <class Visit>
    void forEachBucket(Visit visit) const;

    /// Allocates memory for a put() with the same arguments.
    /// throws  ZOutOfMemoryException_6_0; the table is unchanged then.
    void reserve(NodeIndex index, uint32_t hash);
    /// Allocates memory for `size` nodes and an index over them: an estimate that avoids copies
    /// while the table grows.
    /// throws  ZOutOfMemoryException_6_0; the table is unchanged then.
    void reserveAll(uint32_t size);
    /// Starts to load the first slot that find() compares for `hash`.
    void prefetch(uint32_t hash) const
    {
        if (slotCount_ != 0)
            __builtin_prefetch(&slots_[startOf(hash, slotCount_)]);
    }
    /// Stores key and value at `index`, the result of find(): replaces the node's key and value,
    /// or appends a node to the bucket if `index` is 0. Does not allocate.
    /// range   requires reserve().
    /// owns    an owning table takes both over and deletes a replaced key and value.
    void put(NodeIndex index, uint32_t hash, ZObject_6_0* key, ZObject_6_0* value);
    /// Removes the node at `index`. An owning table deletes its key and value.
    void remove(NodeIndex index);
    /// Removes every node. An owning table deletes the keys and values.
    void removeAll();

    /// Appends a node to the bucket of `hash` and returns its index.
    /// range   requires reserve().
    NodeIndex append(uint32_t hash, ZObject_6_0* key, ZObject_6_0* value,
                     Placement placement = kOwnObjects);
    /// Appends clones of `key` and of `value`, which may be null, to the bucket of `hash`, in
    /// cells. Returns false, with the table unchanged, if `place` refuses one of the two.
    /// range   the table owns its keys and values.
    /// throws  ZOutOfMemoryException_6_0, and any exception of `place`; the table is unchanged
    ///         then.
    bool appendPlaced(uint32_t hash, ZObject_6_0 const& key, ZObject_6_0 const* value,
                      PlaceClone* place);
    /// Swaps the key and the value of the node at `index` with `key` and `value`.
    /// range   both keys have the same hash. The objects of the node are not in cells.
    /// owns    the node takes the new pair over; the caller owns the old one.
    void exchange(NodeIndex index, ZObject_6_0*& key, ZObject_6_0*& value,
                  Placement placement = kOwnObjects)
    {
        Node& node = nodeAt(index);
        std::swap(node.key, key);
        std::swap(node.value, value);
        node.placement = placement;
    }
    /// Removes the node at `index` from the table and returns its contents.
    /// owns    the caller takes key and value over; those in cells stay there until another node
    ///         is appended.
    Node extract(NodeIndex index);

private:
    struct Chain {
        NodeIndex first;
        NodeIndex last;
    };

    struct IndexSlot {  // of the open-addressing index
        uint32_t hash;
        NodeIndex node;  // 0 if the slot is free
    };

    // The cells of the nodes, in blocks: the first has the cells of kFirstNodes nodes, and two
    // blocks of the same size double that number, again and again, up to kSmallNodes nodes in all:
    // at most a third of the cells is unused. The blocks after them consist of huge pages.
    class Cells {
    public:
        Cells() = default;
        Cells(Cells const&) = delete;
        Cells& operator=(Cells const&) = delete;
        ~Cells();

        /// Returns the two cells of the node at `index`: of its key and of its value.
        /// throws  ZOutOfMemoryException_6_0.
        char* at(NodeIndex index);
        /// Frees every block but the first.
        void freeLarge();
        void swap(Cells& other)
        {
            blocks_.swap(other.blocks_);
            std::swap(count_, other.count_);
        }

    private:
        struct Block {
            uint32_t number;
            uint32_t first;  // its first node, counted from 0
            uint32_t nodes;
        };

        static constexpr size_t kPairSize = 2 * kCellSize;
        static constexpr uint32_t kFirstNodes = 2;
        static constexpr uint32_t kDoublings = 11;
        static constexpr uint32_t kSmallNodes = kFirstNodes << kDoublings;  // in the small blocks
        // In a huge block.
        static constexpr uint32_t kHugeNodes = 2 * zmemory::kHugePage / kPairSize;

        static Block blockOf(uint32_t node);
        void allocate(Block block);

        zmemory::OwnedBlock<char*> blocks_;  // null: not allocated yet
        uint32_t count_ = 0;
    };

    static constexpr uint32_t kLongChain = 4;
    static constexpr uint32_t kMaxNodes = uint32_t{1} << 30;
    static constexpr uint32_t kMaxSlots = 2 * kMaxNodes;

    uint32_t bucketOf(uint32_t hash) const { return hash % bucketCount_; }
    uint32_t startOf(uint32_t hash, uint32_t slotCount) const;
    Node& nodeAt(NodeIndex index) { return nodes_[index - 1]; }
    uint32_t chainLength(uint32_t hash) const;
    static void destroyInCells(Node const& node);
    static void destroy(Node const& node);
    void buildIndex(uint32_t slotCount);
    void insertIntoIndex(zmemory::OwnedBlock<IndexSlot>& slots, uint32_t slotCount,
                         IndexSlot slot) const;
    void removeFromIndex(uint32_t hash, NodeIndex index);

    zmemory::OwnedBlock<Chain> buckets_;
    zmemory::OwnedBlock<Node> nodes_;
    Cells cells_;
    zmemory::OwnedBlock<IndexSlot>
        slots_;                   // the open-addressing index; empty until a chain gets long
    uint32_t const bucketCount_;  // at least 1
    uint32_t slotCount_ = 0;      // slots of the index: a power of 2, or 0 without an index
    uint32_t size_ = 0;           // nodes in use
    uint32_t nodesUsed_ = 0;      // nodes in use or free
    uint32_t nodeCapacity_ = 0;   // nodes allocated
    NodeIndex freeNodes_ = 0;     // first node of the free list
    bool ascends_ = true;         // node indices ascend along every chain: no node was reused
    bool const owns_;
};

inline HashTable::Cells::Block HashTable::Cells::blockOf(uint32_t node)
{
    if (node < kFirstNodes)
        return {0, 0, kFirstNodes};
    if (node < kSmallNodes) {
        auto const doublings =
            static_cast<uint32_t>(__builtin_clz(kFirstNodes) - __builtin_clz(node));
        uint32_t const nodes = kFirstNodes / 2 << doublings;
        uint32_t const half = (node & nodes) != 0 ? 1 : 0;
        return {2 * doublings + half + 1, (half + 2) * nodes, nodes};
    }
    uint32_t const huge = (node - kSmallNodes) / kHugeNodes;
    return {2 * kDoublings + 1 + huge, kSmallNodes + huge * kHugeNodes, kHugeNodes};
}

constexpr uint32_t HashTable::slotsFor(uint32_t size)
{
    uint32_t slots = 4 * kLongChain;
    while (slots < kMaxSlots && slots / 4 < size)
        slots *= 2;
    return slots;
}

// Hashes can differ in only a few bits, as addresses do. Multiplication by the golden ratio spreads
// every bit to the upper bits, which select the slot.
inline uint32_t HashTable::startOf(uint32_t hash, uint32_t slotCount) const
{
    uint32_t const spread = hash * 0x9E3779B1u;
    return static_cast<uint32_t>((uint64_t{spread} * slotCount) >> 32);
}

template <class Matches>
[[gnu::always_inline]] inline HashTable::NodeIndex HashTable::find(uint32_t hash,
                                                                   Matches matches) const
{
    if (slotCount_ == 0) {
        for (NodeIndex index = buckets_[bucketOf(hash)].first; index != 0; index = at(index).next) {
            if (matches(at(index)))
                return index;
        }
        return 0;
    }
    uint32_t const wrap = slotCount_ - 1;
    for (uint32_t i = startOf(hash, slotCount_); slots_[i].node != 0; i = (i + 1) & wrap) {
        if (slots_[i].hash == hash && matches(at(slots_[i].node)))
            return slots_[i].node;
    }
    return 0;
}

template <class Visit>
void HashTable::forEach(Visit visit) const
{
    forEachBucket([&](NodeIndex first) {
        for (NodeIndex index = first; index != 0; index = at(index).next)
            visit(at(index));
    });
}

template <class Prefetch, class Visit>
void HashTable::forEachPrefetched(Prefetch prefetch, Visit visit) const
{
    constexpr int kAhead = 12;
    forEachBucket([&](NodeIndex first) {
        NodeIndex ahead = first;
        auto const step = [&] {
            if (ahead == 0)
                return;
            prefetch(at(ahead));
            ahead = at(ahead).next;
            if (ahead != 0)
                __builtin_prefetch(&at(ahead));
        };
        for (int i = 0; i < kAhead; ++i)
            step();
        for (NodeIndex index = first; index != 0; index = at(index).next) {
            step();
            visit(at(index));
        }
    });
}

template <class Visit>
void HashTable::forEachBucket(Visit visit) const
{
    if (size_ == 0)
        return;
    for (uint32_t bucket = 0; bucket < bucketCount_; ++bucket) {
        if (buckets_[bucket].first != 0)
            visit(buckets_[bucket].first);
    }
}

}  // namespace zcontainers
