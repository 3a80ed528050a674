// ZHashMap: maps of entries. An entry is its own key: the map finds it by its hash() and equals().
//
// Subsystem: collections.  Stands on: ZObject, ZException, ZIterator, ZArrayList, ZArray.
//
// Lookups take a probe: any object that equals the stored entry and has the same hash. If a probe
// equals several entries, the operation finds, replaces or removes the first in the map's order.
// Ownership is fixed at construction: an owning map stores clones and deletes an entry that it
// removes or replaces; a borrowing map stores the caller's pointers and deletes nothing.
// Threads: unsynchronised; callers serialise access to one map.
// Failures: an operation that throws leaves the entries unchanged, unless its contract differs. An
// exception of an entry's destructor is thrown after the operation has completed.
// Callbacks: the functions that a map calls (hash(), equals(), clone(), a destructor, the target of
// list()) may read the map. The clone() that putEntry() calls may also change it.
// Derived classes: an operation calls the virtual operations listed in its line `calls` ("nothing
// else": none), so an override of them takes effect. Objects of the classes below, but not of
// derived classes, may skip those calls.
#pragma once

#include "ZArrayList.h"
#include "ZIterator.h"
#include "ZObject.h"

/// The interface of maps of entries. An entry is its own key.
class ZMap_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns the number of entries.
    virtual unsigned int size() const = 0;
    /// Returns whether the map has no entries.
    virtual bool isEmpty() const = 0;
    /// Returns whether the map has an entry that `probe` equals.
    virtual bool contains(ZObject_6_0 const* probe) const = 0;
    /// Returns the entry that `probe` equals; null if not found.
    virtual ZObject_6_0* getEntry(ZObject_6_0 const* probe) const = 0;
    /// Stores `entry`, replacing an entry that it equals.
    virtual void putEntry(ZObject_6_0* entry) = 0;
    /// Stores the entries of `other`.
    virtual void putAll(ZMap_6_0& other) = 0;
    /// Removes the entry that `probe` equals.
    virtual void removeEntry(ZObject_6_0* probe) = 0;
    /// Removes every entry.
    virtual void removeAll() = 0;
    /// Appends every entry to `target`, in the order of the map.
    virtual void list(ZList_6_0& target) const = 0;

protected:
    ZMap_6_0() = default;
    ZMap_6_0(ZMap_6_0 const&) = default;
    ZMap_6_0& operator=(ZMap_6_0 const&) = default;
    ~ZMap_6_0() = default;
};

/// The base class of maps of entries.
class ZAbstractMap_6_0 : public ZObject_6_0, public ZMap_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractMap_6_0() override;

    /// Returns whether the map has no entries.
    /// calls   size().
    bool isEmpty() const override;
};

/// A hash map with a fixed number of buckets. It orders entries by bucket and, within a bucket, by
/// their first insertion. The cost of lookup, insertion and removal does not depend on the number
/// of entries. Equal entries must have equal hashes.
class ZHashMap_6_0 : public ZAbstractMap_6_0 {
public:
    /// Makes an empty map with max(`capacity`, 2) * 3 / 2 buckets, computed in 32 bits. An entry's
    /// bucket is its hash modulo that number, which never changes.
    /// range   any `capacity`; there is always at least one bucket.
    /// throws  ZOutOfMemoryException_6_0.
    ZHashMap_6_0(unsigned int capacity, int owns);
    /// Makes a map with the buckets, the ownership and the entries of `source`.
    /// owns    an owning copy stores clones, a borrowing copy the pointers of `source`.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    ZHashMap_6_0(ZHashMap_6_0 const& source);
    /// Copies buckets, ownership and entries of `source` and releases the old entries as
    /// removeAll() does. Assigning a map to itself does nothing.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    ZHashMap_6_0& operator=(ZHashMap_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZHashMap_6_0() override;

    /// Returns a copy of the map.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    ZObject_6_0* clone() const override;
    unsigned int size() const override;
    /// Returns whether the map has an entry that `probe` equals.
    /// calls   getEntry().
    bool contains(ZObject_6_0 const* probe) const override;
    /// Returns the entry that `probe` equals; null if not found.
    /// calls   nothing else.
    /// owns    borrowed until the map removes or replaces the entry.
    /// cost    O(1) expected.
    ZObject_6_0* getEntry(ZObject_6_0 const* probe) const override;
    /// Stores `entry`: replaces the entry that it equals, or appends to its bucket.
    /// calls   nothing else.
    /// range   null is ignored. An owning map also ignores an entry whose clone() returns null.
    /// owns    an owning map stores `entry->clone()` and deletes a replaced entry; `entry` stays
    ///         the caller's either way.
    /// throws  ZOutOfMemoryException_6_0; any exception of clone().
    /// cost    O(1) expected, plus one clone in an owning map.
    void putEntry(ZObject_6_0* entry) override;
    /// Stores every entry of `other`, in the order of `other`, and replaces equal entries.
    /// calls   list() of `other`; putEntry().
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone(). Entries stored before the
    ///         exception stay.
    void putAll(ZMap_6_0& other) override;
    /// Removes the entry that `probe` equals.
    /// calls   nothing else.
    /// owns    an owning map deletes the entry.
    /// cost    O(1) expected.
    void removeEntry(ZObject_6_0* probe) override;
    /// Removes every entry.
    /// calls   nothing else.
    void removeAll() override;
    /// Appends every entry to `target`, ordered by bucket and by insertion.
    /// calls   `target.addList()` once per bucket that is not empty, with its entries.
    /// owns    as `target.addList()` does.
    /// throws  ZOutOfMemoryException_6_0; any exception of `target.addList()`. The added entries
    ///         are removed from `target` then.
    /// cost    O(buckets + entries).
    void list(ZList_6_0& target) const override;

private:
    struct Rep;  // ZHashMap.cpp

    Rep* rep_;  // never null; the buckets and the ownership flag
};

/// A map stored as an array list in order of first insertion, with linear search.
class ZArrayMap_6_0 : public ZArrayList_6_0, public ZMap_6_0 {
public:
    /// Makes an empty map.
    /// range   `initialCapacity` 0 is taken as 1.
    /// throws  ZOutOfMemoryException_6_0.
    ZArrayMap_6_0(unsigned int initialCapacity, int owns);
    /// Makes a map with the capacity, the ownership and the entries of `source`.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    ZArrayMap_6_0(ZArrayMap_6_0 const& source);
    /// Replaces the entries by the entries of `source`, but keeps its own capacity and ownership,
    /// as ZArrayList_6_0 does.
    /// calls   removeAll(), addList().
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone(). A map of a derived class is
    ///         then empty.
    ZArrayMap_6_0& operator=(ZArrayMap_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZArrayMap_6_0() override;

    /// Returns a copy of the map.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    ZObject_6_0* clone() const override;
    /// Returns whether the map has no entries.
    /// calls   size().
    bool isEmpty() const override;
    unsigned int size() const override;
    /// Returns whether the map has an entry that `probe` equals.
    /// calls   getIndex().
    bool contains(ZObject_6_0 const* probe) const override;
    /// Removes every entry.
    /// calls   nothing else.
    void removeAll() override;
    /// Returns the entry that `probe` equals; null if not found.
    /// calls   getIndex(), get().
    /// owns    borrowed until the map removes or replaces the entry.
    /// cost    O(n).
    ZObject_6_0* getEntry(ZObject_6_0 const* probe) const override;
    /// Stores `entry`: replaces the entry that it equals, or appends.
    /// calls   getIndex(), and add(ZObject_6_0 const*) or set().
    /// owns    an owning map stores `entry->clone()` and deletes a replaced entry; `entry` stays
    ///         the caller's either way.
    /// throws  ZOutOfMemoryException_6_0; any exception of clone().
    /// cost    O(n).
    void putEntry(ZObject_6_0* entry) override;
    /// Appends every entry of `other`.
    /// calls   list() of `other`, which calls addList() or add(ZObject_6_0 const*) of this map.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    /// kept    an entry that equals an existing one is stored a second time; lookups still find
    ///         the first.
    void putAll(ZMap_6_0& other) override;
    /// Removes the first entry that `probe` equals.
    /// calls   getIndex(), remove(unsigned int).
    /// owns    an owning map deletes the entry.
    /// cost    O(n).
    void removeEntry(ZObject_6_0* probe) override;
    /// Appends every entry to `target`.
    /// calls   `target.addList()` with this map.
    /// owns    as `target.addList()` does.
    /// throws  any exception of `target.addList()`.
    void list(ZList_6_0& target) const override;
    /// Returns the index of the first entry that `probe` equals; -1 if not found.
    /// calls   size(), get().
    virtual int getIndex(ZObject_6_0 const* probe) const;
};

/// Iterates over a snapshot of a map's entries, in the map's order.
class ZMapIterator_6_0 : public ZAbstractIterator_6_0 {
public:
    /// Makes an iterator over the current entries of `map`.
    /// owns    borrows the entries. Do not call getNext() if the next entry has been deleted.
    /// throws  ZOutOfMemoryException_6_0.
    explicit ZMapIterator_6_0(ZMap_6_0 const& map);
    /// Makes an iterator over the same entries, at the same position.
    /// throws  ZOutOfMemoryException_6_0.
    ZMapIterator_6_0(ZMapIterator_6_0 const& source);
    ZMapIterator_6_0& operator=(ZMapIterator_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZMapIterator_6_0() override;

    /// Returns an iterator over the same entries, at the same position.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;
    bool hasMore() override;
    ZObject_6_0* getNext() override;
    /// Moves back before the first entry.
    virtual void reset();

private:
    ZArrayList_6_0* snapshot_;     // owned; borrows the entries
    ZListIterator_6_0* iterator_;  // owned; over snapshot_
};

/// Iterates over the current entries of an array map, including entries added after its position.
/// `map.remove(iterator)` removes the entry that the iterator returned last.
class ZArrayMapIterator_6_0 : public ZListIterator_6_0 {
public:
    /// Makes an iterator before the first entry.
    /// owns    `map` is borrowed and must outlive the iterator.
    explicit ZArrayMapIterator_6_0(ZArrayMap_6_0& map);
    ZArrayMapIterator_6_0(ZArrayMapIterator_6_0 const&) = default;
    ZArrayMapIterator_6_0& operator=(ZArrayMapIterator_6_0 const&) = default;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZArrayMapIterator_6_0() override;

    /// Returns an iterator over the same map, at the same position.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;
};
