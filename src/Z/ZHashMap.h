// ZHashMap: maps of entries; an entry is one object whose own hash() and equals() are the key.
//
// Subsystem: collections.  Stands on: ZObject, ZException, ZIterator, ZArrayList, ZArray.
//
// What is looked up is given as a probe: any object that equals the stored entry and hashes alike.
// Of several entries that a probe equals, the first in its bucket is found, replaced or removed.
// Ownership is fixed at construction, as with lists: an owning map stores clones and deletes what
// it removes or replaces; a borrowing map stores the caller's pointers and deletes nothing.
// Threads: unsynchronised; callers serialise access to one map.
// An operation that raises leaves the entries as they were.
// Callbacks: what a map calls while it works (hash(), equals(), clone(), a destructor, the target
// of list()) may read the map. The clone() of putEntry() may change it too.
// Derived classes: an operation calls the virtual operations that its line `calls` names, so a
// class that overrides them sees them called. A map of exactly a class of this library may do the
// same work without the calls.
#pragma once

#include "ZArrayList.h"
#include "ZIterator.h"
#include "ZObject.h"

class ZMap_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns the number of entries.
    virtual unsigned int size() const = 0;
    /// Returns whether the map has no entries.
    virtual bool isEmpty() const = 0;
    /// Returns whether the map has an entry that `probe` equals.
    virtual bool contains(ZObject_6_0 const* probe) const = 0;
    /// Returns the entry that `probe` equals; null when there is none.
    virtual ZObject_6_0* getEntry(ZObject_6_0 const* probe) const = 0;
    /// Stores `entry` in the place of the one it equals, or as a new one.
    virtual void putEntry(ZObject_6_0* entry) = 0;
    /// Stores the entries of `other`.
    virtual void putAll(ZMap_6_0& other) = 0;
    /// Removes the entry that `probe` equals.
    virtual void removeEntry(ZObject_6_0* probe) = 0;
    /// Removes every entry.
    virtual void removeAll() = 0;
    /// Adds every entry to `target`, in the order of the map.
    virtual void list(ZList_6_0& target) const = 0;

protected:
    ZMap_6_0() = default;
    ZMap_6_0(ZMap_6_0 const&) = default;
    ZMap_6_0& operator=(ZMap_6_0 const&) = default;
    ~ZMap_6_0() = default;
};

class ZAbstractMap_6_0 : public ZObject_6_0, public ZMap_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractMap_6_0() override;

    /// calls   size().
    bool isEmpty() const override;
};

/// A map with a fixed number of buckets. Its order is that of the buckets, and within a bucket that
/// in which entries were first put. Look-up, insertion and removal do not depend on the number of
/// entries; entries that are equal must hash alike.
class ZHashMap_6_0 : public ZAbstractMap_6_0 {
public:
    /// Makes an empty map with max(`capacity`, 2) * 3 / 2 buckets, computed in 32 bits. An entry's
    /// bucket is its hash modulo that number, which never changes.
    /// range   any `capacity`; there is always at least one bucket.
    /// throws  ZOutOfMemoryException_6_0.
    ZHashMap_6_0(unsigned int capacity, int owns);
    /// Makes a map with the buckets, the ownership and the entries of `source`.
    /// owns    an owning copy holds clones; a borrowing one the same pointers.
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises.
    ZHashMap_6_0(ZHashMap_6_0 const& source);
    /// Takes buckets, ownership and entries of `source`; what was held goes as removeAll() lets it
    /// go. Assigning a map to itself does nothing.
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises.
    ZHashMap_6_0& operator=(ZHashMap_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZHashMap_6_0() override;

    /// Returns a copy of the map.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises.
    ZObject_6_0* clone() const override;
    unsigned int size() const override;
    /// calls   getEntry().
    bool contains(ZObject_6_0 const* probe) const override;
    /// Returns the entry that `probe` equals; null when there is none.
    /// calls   nothing else.
    /// owns    borrowed until the map lets the entry go.
    /// cost    O(1) expected.
    ZObject_6_0* getEntry(ZObject_6_0 const* probe) const override;
    /// Stores `entry` in the place of the one it equals, or behind the others of its bucket.
    /// calls   nothing else.
    /// range   not null; an owning map puts nothing when `entry` cannot be cloned.
    /// owns    an owning map stores `entry->clone()` and deletes what it replaces; `entry` stays
    ///         the caller's either way.
    /// throws  ZOutOfMemoryException_6_0; what clone() raises.
    /// cost    O(1) expected, plus one clone when owning.
    void putEntry(ZObject_6_0* entry) override;
    /// Puts every entry of `other`, in its order; equal ones are replaced.
    /// calls   list() of `other`; putEntry().
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises. Entries put before stay.
    void putAll(ZMap_6_0& other) override;
    /// Removes the entry that `probe` equals.
    /// calls   nothing else.
    /// owns    an owning map deletes it.
    /// cost    O(1) expected.
    void removeEntry(ZObject_6_0* probe) override;
    /// calls   nothing else.
    void removeAll() override;
    /// Adds every entry to `target`: bucket after bucket, in each in the order of insertion.
    /// calls   `target.addList()` with the entries of a bucket.
    /// owns    as `target.addList()` does.
    /// throws  ZOutOfMemoryException_6_0; what `target.addList()` raises. `target` then has
    ///         the members it had before.
    /// cost    O(buckets + entries).
    void list(ZList_6_0& target) const override;

private:
    struct Rep;  // ZHashMap_p.h

    Rep* rep_;  // never null; the buckets, and whether the map clones and deletes
};

/// A list searched from its beginning; its order is that in which entries were first put.
class ZArrayMap_6_0 : public ZArrayList_6_0, public ZMap_6_0 {
public:
    /// Makes an empty map.
    /// range   `initialCapacity` 0 is taken as 1.
    /// throws  ZOutOfMemoryException_6_0.
    ZArrayMap_6_0(unsigned int initialCapacity, int owns);
    /// Makes a map with the capacity, the ownership and the entries of `source`.
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises.
    ZArrayMap_6_0(ZArrayMap_6_0 const& source);
    /// Takes the entries of `source`; capacity and ownership stay, as with lists.
    /// calls   removeAll(), addList().
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises.
    ZArrayMap_6_0& operator=(ZArrayMap_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZArrayMap_6_0() override;

    /// Returns a copy of the map.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises.
    ZObject_6_0* clone() const override;
    /// calls   size().
    bool isEmpty() const override;
    unsigned int size() const override;
    /// calls   getIndex().
    bool contains(ZObject_6_0 const* probe) const override;
    /// calls   nothing else.
    void removeAll() override;
    /// Returns the entry that `probe` equals; null when there is none.
    /// calls   getIndex(), get().
    /// owns    borrowed until the map lets the entry go.
    /// cost    O(n).
    ZObject_6_0* getEntry(ZObject_6_0 const* probe) const override;
    /// Stores `entry` in the place of the one it equals, or behind the others.
    /// calls   getIndex(), and add(ZObject_6_0 const*) or set().
    /// owns    an owning map stores `entry->clone()` and deletes what it replaces; `entry` stays
    ///         the caller's either way.
    /// throws  ZOutOfMemoryException_6_0; what clone() raises.
    /// cost    O(n).
    void putEntry(ZObject_6_0* entry) override;
    /// Adds every entry of `other` behind the others.
    /// calls   list() of `other`, and that addList() or add(ZObject_6_0 const*) of this map.
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises.
    /// kept    an entry whose equal is there already is stored a second time; look-up goes on
    ///         finding the first.
    void putAll(ZMap_6_0& other) override;
    /// Removes the entry that `probe` equals, the first if there are several.
    /// calls   getIndex(), remove(unsigned int).
    /// owns    an owning map deletes it.
    /// cost    O(n).
    void removeEntry(ZObject_6_0* probe) override;
    /// Adds every entry to `target`.
    /// calls   `target.addList()` with this map.
    /// owns    as `target.addList()` does.
    /// throws  what `target.addList()` raises.
    void list(ZList_6_0& target) const override;
    /// Returns the index of the first entry that `probe` equals; -1 when there is none.
    /// calls   size(), get().
    virtual int getIndex(ZObject_6_0 const* probe) const;
};

/// Walks the entries that a map had when the iterator was made, in the map's order.
class ZMapIterator_6_0 : public ZAbstractIterator_6_0 {
public:
    /// Makes an iterator over the entries that `map` has now.
    /// owns    the entries stay the map's: once it lets one go, the iterator must not reach it.
    /// throws  ZOutOfMemoryException_6_0.
    explicit ZMapIterator_6_0(ZMap_6_0 const& map);
    /// Makes an iterator over the same entries, at the same place.
    /// throws  ZOutOfMemoryException_6_0.
    ZMapIterator_6_0(ZMapIterator_6_0 const& source);
    ZMapIterator_6_0& operator=(ZMapIterator_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZMapIterator_6_0() override;

    /// Returns an iterator over the same entries, at the same place.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;
    bool hasMore() override;
    ZObject_6_0* getNext() override;
    /// Goes back before the first entry.
    virtual void reset();

private:
    ZArrayList_6_0* snapshot_;     // owned; borrows the entries
    ZListIterator_6_0* iterator_;  // owned; walks snapshot_
};

/// Walks the entries of an array map as they are: what is added behind its place is met. The entry
/// handed out last is removed with `map.remove(iterator)`.
class ZArrayMapIterator_6_0 : public ZListIterator_6_0 {
public:
    /// Makes an iterator that stands before the first entry.
    /// owns    `map` is borrowed and must outlive the iterator.
    explicit ZArrayMapIterator_6_0(ZArrayMap_6_0& map);
    ZArrayMapIterator_6_0(ZArrayMapIterator_6_0 const&) = default;
    ZArrayMapIterator_6_0& operator=(ZArrayMapIterator_6_0 const&) = default;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZArrayMapIterator_6_0() override;

    /// Returns an iterator over the same map, at the same place.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;
};
