// ZHashMap_p: the table behind both hash maps. Not installed.
#pragma once

#include <stdint.h>

#include <new>
#include <utility>

#include "ZArray_p.h"
#include "ZHashMap.h"

// Keys and their values in buckets. A map of entries has the entries as keys and no values.
//
// The buckets are chains through one block of nodes, each chain in the order of insertion. That is
// the order callers see, and as long as every chain is short it is also where a key is looked up.
// The number of buckets never changes, so in a map that was planned too small the chains get long:
// once one is about to pass kLongChain nodes, an index is laid beside them, a table with open
// addressing from the whole hash to the node, and look-up goes there from then on. Nodes of one
// hash are found in the order of their chain: each is marked after those before it, and a mark that
// is removed closes its gap without reordering them.
class HashTable {
public:
    using Place = uint32_t;  // of a node, counted from 1; 0 is none

    struct Node {
        ZObject_6_0* key;  // null while the node is free
        ZObject_6_0* value;
        uint32_t hash;  // of the key
        Place next;     // in the chain, or among the free nodes
        Place previous;
    };

    /// Makes max(`capacity`, 2) * 3 / 2 buckets, computed in 32 bits, but at least one.
    HashTable(unsigned int capacity, int owns);
    /// Makes a table with the buckets and the ownership of `source`, and with what it holds: clones
    /// in an owning table. A key that has no clone is left out.
    HashTable(HashTable const& source);
    HashTable& operator=(HashTable const&) = delete;
    ~HashTable();

    /// Returns how many marks an index over `size` nodes is laid with: a power of 2, four for each
    /// node and at least two for as many nodes as there may ever be.
    static constexpr uint32_t marksFor(uint32_t size);

    bool owns() const { return owns_; }
    uint32_t size() const { return size_; }
    Node const& at(Place place) const { return nodes_[place - 1]; }

    /// Returns the place of the first node in the bucket with `hash` that `isIt(node)` accepts; 0
    /// if there is none. Without an index, nodes of other hashes in the bucket are asked too.
    template <class IsIt>
    Place find(uint32_t hash, IsIt isIt) const;
    /// Returns the place of the node with this hash whose key `key` equals; 0 when there is none.
    Place findKey(ZObject_6_0 const& key, uint32_t hash) const
    {
        return find(hash, [&key, hash](Node const& node) {
            return node.hash == hash && key.equals(*node.key);
        });
    }
    /// Calls `visit(node)` for every node, bucket after bucket.
    template <class Visit>
    void forEach(Visit visit) const;
    /// Calls `visit(place)` for every bucket that is not empty, with the place of its first node.
    template <class Visit>
    void forEachBucket(Visit visit) const;

    /// Makes room for a put() of the same place and hash.
    /// throws  ZOutOfMemoryException_6_0; the table is as it was then.
    void reserve(Place place, uint32_t hash);
    /// Puts key and value at `place`, which find() gave for the key: instead of those there, or
    /// behind the others of the bucket when it is 0.
    /// range   room has been reserved.
    /// owns    an owning table takes both over and deletes those they replace.
    void put(Place place, uint32_t hash, ZObject_6_0* key, ZObject_6_0* value);
    /// Takes the node at `place` out; an owning table deletes key and value.
    void remove(Place place);
    /// Takes every node out; an owning table deletes the keys and values.
    void removeAll();

    /// Appends a new node as put() does at place 0, and returns its place.
    Place append(uint32_t hash, ZObject_6_0* key, ZObject_6_0* value);
    /// Exchanges the key and the value of the node at `place` for `key` and `value`.
    /// range   the hash of the keys is the same.
    /// owns    the node takes both over; the caller owns those that it had.
    void exchange(Place place, ZObject_6_0*& key, ZObject_6_0*& value)
    {
        std::swap(nodeAt(place).key, key);
        std::swap(nodeAt(place).value, value);
    }
    /// Takes the node at `place` out and returns it.
    /// owns    the caller owns the key and value.
    Node take(Place place);

private:
    struct Chain {
        Place first;
        Place last;
    };

    struct Mark {  // of a node in the index
        uint32_t hash;
        Place place;  // 0: the mark is free
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
    PlainBlock<Mark> marks_;      // the index; empty until a chain gets long
    uint32_t const bucketCount_;  // at least 1
    uint32_t markCount_ = 0;      // a power of 2, or 0 without an index
    uint32_t size_ = 0;           // nodes in use
    uint32_t nodesUsed_ = 0;      // nodes that were in use at some time
    uint32_t nodeRoom_ = 0;       // nodes there is room for
    Place freeNodes_ = 0;         // the first of a chain of free ones
    bool ascends_ = true;         // places ascend along every chain: no node has been reused
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

// Hashes may differ in few bits only (addresses do): multiplying by the golden ratio carries every
// bit into the upper ones, and those choose the mark.
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
