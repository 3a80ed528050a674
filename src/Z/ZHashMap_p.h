// ZHashMap_p: the hash table of ZHashMap_6_0 and ZHashKeyMap_6_0. Not installed.
#pragma once

#include <stdint.h>

#include <new>
#include <utility>

#include "ZArray_p.h"
#include "ZHashMap.h"

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
    using Place = uint32_t;  // index of a node, counted from 1; 0 means no node

    struct Node {
        ZObject_6_0* key;  // null while the node is free
        ZObject_6_0* value;
        uint32_t hash;  // of the key
        Place next;     // in the chain, or among the free nodes
        Place previous;
    };

    /// Makes an empty table with max(`capacity`, 2) * 3 / 2 buckets, computed in 32 bits, but at
    /// least one.
    HashTable(unsigned int capacity, int owns);
    /// Copies the buckets, the ownership and the nodes of `source`; an owning table clones keys
    /// and values, and skips a key that cannot be cloned.
    HashTable(HashTable const& source);
    HashTable& operator=(HashTable const&) = delete;
    ~HashTable();

    /// Returns the number of slots of an index over `size` nodes: a power of 2, at least four slots
    /// per node, but at most kMostMarks.
    static constexpr uint32_t marksFor(uint32_t size);

    bool owns() const { return owns_; }
    uint32_t size() const { return size_; }
    Node const& at(Place place) const { return nodes_[place - 1]; }

    /// Returns the index of the first node in the bucket of `hash` for which `isIt(node)` is true;
    /// 0 if not found. Without an open-addressing index, `isIt` also sees nodes of other hashes.
    template <class IsIt>
    Place find(uint32_t hash, IsIt isIt) const;
    /// Returns the index of the node with this hash whose key `key` equals; 0 if not found.
    Place findKey(ZObject_6_0 const& key, uint32_t hash) const
    {
        return find(hash, [&key, hash](Node const& node) {
            return node.hash == hash && key.equals(*node.key);
        });
    }
    /// Calls `visit(node)` for every node, bucket by bucket.
    template <class Visit>
    void forEach(Visit visit) const;
    /// Calls `visit(first)` for every bucket that is not empty, with the index of its first node.
    template <class Visit>
    void forEachBucket(Visit visit) const;

    /// Allocates memory for a put() with the same arguments.
    /// throws  ZOutOfMemoryException_6_0; the table is unchanged then.
    void reserve(Place place, uint32_t hash);
    /// Stores key and value at `place`, the result of find(): replaces the node's key and value,
    /// or appends a node to the bucket if `place` is 0. Does not allocate.
    /// range   requires reserve().
    /// owns    an owning table takes both over and deletes a replaced key and value.
    void put(Place place, uint32_t hash, ZObject_6_0* key, ZObject_6_0* value);
    /// Removes the node at `place`. An owning table deletes its key and value.
    void remove(Place place);
    /// Removes every node. An owning table deletes the keys and values.
    void removeAll();

    /// Appends a node to the bucket of `hash` and returns its index.
    /// range   requires reserve().
    Place append(uint32_t hash, ZObject_6_0* key, ZObject_6_0* value);
    /// Swaps the key and the value of the node at `place` with `key` and `value`.
    /// range   both keys have the same hash.
    /// owns    the node takes the new pair over; the caller owns the old one.
    void exchange(Place place, ZObject_6_0*& key, ZObject_6_0*& value)
    {
        std::swap(nodeAt(place).key, key);
        std::swap(nodeAt(place).value, value);
    }
    /// Removes the node at `place` and returns it.
    /// owns    the caller takes key and value over.
    Node take(Place place);

private:
    struct Chain {
        Place first;
        Place last;
    };

    struct Mark {  // a slot of the open-addressing index
        uint32_t hash;
        Place place;  // 0 if the slot is free
    };

    static constexpr uint32_t kLongChain = 4;
    static constexpr uint32_t kMostNodes = uint32_t{1} << 30;
    static constexpr uint32_t kMostMarks = 2 * kMostNodes;

    uint32_t bucketOf(uint32_t hash) const { return hash % bucketCount_; }
    uint32_t startOf(uint32_t hash, uint32_t markCount) const;
    Node& nodeAt(Place place) { return nodes_[place - 1]; }
    uint32_t chainLength(uint32_t hash) const;
    void layIndex(uint32_t markCount);
    void mark(PlainBlock<Mark>& marks, uint32_t markCount, Mark mark) const;
    void unmark(uint32_t hash, Place place);

    PlainBlock<Chain> buckets_;
    PlainBlock<Node> nodes_;
    PlainBlock<Mark> marks_;      // the open-addressing index; empty until a chain gets long
    uint32_t const bucketCount_;  // at least 1
    uint32_t markCount_ = 0;      // slots of the index: a power of 2, or 0 without an index
    uint32_t size_ = 0;           // nodes in use
    uint32_t nodesUsed_ = 0;      // nodes in use or free
    uint32_t nodeRoom_ = 0;       // nodes allocated
    Place freeNodes_ = 0;         // first node of the free list
    bool ascends_ = true;         // node indices ascend along every chain: no node was reused
    bool const owns_;
};

struct ZHashMap_6_0::Rep : HashTable {
    using HashTable::HashTable;
};

constexpr uint32_t HashTable::marksFor(uint32_t size)
{
    uint32_t marks = 4 * kLongChain;
    while (marks < kMostMarks && marks / 4 < size)
        marks *= 2;
    return marks;
}

// Hashes can differ in only a few bits, as addresses do. Multiplication by the golden ratio spreads
// every bit to the upper bits, which select the slot.
inline uint32_t HashTable::startOf(uint32_t hash, uint32_t markCount) const
{
    uint32_t const spread = hash * 0x9E3779B1u;
    return static_cast<uint32_t>((uint64_t{spread} * markCount) >> 32);
}

template <class IsIt>
[[gnu::always_inline]] inline HashTable::Place HashTable::find(uint32_t hash, IsIt isIt) const
{
    if (markCount_ == 0) {
        for (Place place = buckets_[bucketOf(hash)].first; place != 0; place = at(place).next) {
            if (isIt(at(place)))
                return place;
        }
        return 0;
    }
    uint32_t const wrap = markCount_ - 1;
    for (uint32_t i = startOf(hash, markCount_); marks_[i].place != 0; i = (i + 1) & wrap) {
        if (marks_[i].hash == hash && isIt(at(marks_[i].place)))
            return marks_[i].place;
    }
    return 0;
}

template <class Visit>
void HashTable::forEach(Visit visit) const
{
    forEachBucket([&](Place first) {
        for (Place place = first; place != 0; place = at(place).next)
            visit(at(place));
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
