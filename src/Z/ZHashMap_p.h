// ZHashMap_p: how a hash map holds its entries. Not installed.
#pragma once

#include <stdint.h>

#include <utility>

#include "ZArray_p.h"
#include "ZHashMap.h"

// The buckets are chains through one block of nodes, each chain in the order of insertion. That is
// the order callers see, and as long as every chain is short it is also where an entry is looked
// up. The number of buckets never changes, so in a map that was planned too small the chains get
// long: once one is about to pass kLongChain nodes, an index is laid beside them, a table with open
// addressing from the whole hash to the node, and look-up goes there from then on.
struct ZHashMap_6_0::Rep {
    using Place = uint32_t;  // of a node, counted from 1; 0 is none

    struct Node {
        ZObject_6_0* entry;  // null while the node is free
        uint32_t hash;
        Place next;  // in the chain, or among the free nodes
        Place previous;
    };

    struct Chain {
        Place first;
        Place last;
    };

    struct Mark {  // of a node in the index
        uint32_t hash;
        Place place;  // 0: the mark is free
    };

    Rep(uint32_t numberOfBuckets, int ownsEntries);
    ~Rep();

    static Rep* make(uint32_t numberOfBuckets, int ownsEntries);

    /// Returns the place of the node with `hash` that `isEntry(node)` accepts; 0 when there is
    /// none.
    template <class IsEntry>
    Place find(uint32_t hash, IsEntry isEntry) const;

    /// Stores `entry`, in an owning map a clone of it, in the node at `place` that find() returned
    /// for it: in the place of the entry there, or in a new node behind the others of its bucket.
    /// What has no clone is not put.
    /// throws  ZOutOfMemoryException_6_0, what clone() raises; the map is as it was then.
    void put(Place place, uint32_t hash, ZObject_6_0* entry);
    /// Takes the node out; deletes the entry of an owning map.
    void remove(Place place);
    /// Takes every node out; deletes the entries of an owning map.
    void removeAll();
    /// Puts every entry of `source` into this empty map.
    void copy(Rep const& source);
    /// Calls `visit(node)` for every node in the order of the map.
    template <class Visit>
    void forEach(Visit visit) const;

    Node& at(Place place) { return nodes[place - 1]; }
    Node const& at(Place place) const { return nodes[place - 1]; }

    PlainBlock<Chain> buckets;
    PlainBlock<Node> nodes;
    PlainBlock<Mark> marks;      // the index; empty until a chain gets long
    uint32_t const bucketCount;  // at least 1
    uint32_t markCount = 0;      // a power of 2, or 0 without an index
    uint32_t count = 0;          // entries
    uint32_t nodesUsed = 0;      // nodes that were in use at some time
    uint32_t nodeRoom = 0;       // nodes there is room for
    Place freeNodes = 0;         // the first of a chain of free ones
    int owns;                    // not 0: the map clones and deletes

private:
    static constexpr uint32_t kLongChain = 8;
    static constexpr uint32_t kMostNodes = uint32_t{1} << 30;

    /// Makes room for one more node with `hash`, so that append() cannot fail.
    void reserve(uint32_t hash);
    void append(uint32_t hash, ZObject_6_0* entry);
    uint32_t bucketOf(uint32_t hash) const { return hash % bucketCount; }
    uint32_t startOf(uint32_t hash, uint32_t marksInTable) const;
    uint32_t chainLength(uint32_t hash) const;
    void index(uint32_t newMarkCount);
    void mark(PlainBlock<Mark>& table, uint32_t tableSize, Mark mark) const;
    void unmark(uint32_t hash, Place place);
};

// Hashes may differ in few bits only (addresses do): multiplying by the golden ratio carries every
// bit into the upper ones, and those choose the mark.
inline uint32_t ZHashMap_6_0::Rep::startOf(uint32_t hash, uint32_t marksInTable) const
{
    uint32_t const spread = hash * 0x9E3779B1u;
    return static_cast<uint32_t>((uint64_t{spread} * marksInTable) >> 32);
}

template <class IsEntry>
ZHashMap_6_0::Rep::Place ZHashMap_6_0::Rep::find(uint32_t hash, IsEntry isEntry) const
{
    if (markCount == 0) {
        for (Place place = buckets[bucketOf(hash)].first; place != 0; place = at(place).next) {
            if (isEntry(at(place)))
                return place;
        }
        return 0;
    }
    for (uint32_t i = startOf(hash, markCount); marks[i].place != 0;
         i = (i + 1) & (markCount - 1)) {
        if (marks[i].hash == hash && isEntry(at(marks[i].place)))
            return marks[i].place;
    }
    return 0;
}

template <class Visit>
void ZHashMap_6_0::Rep::forEach(Visit visit) const
{
    if (count == 0)
        return;
    for (uint32_t bucket = 0; bucket < bucketCount; ++bucket) {
        for (Place place = buckets[bucket].first; place != 0; place = at(place).next)
            visit(at(place));
    }
}
