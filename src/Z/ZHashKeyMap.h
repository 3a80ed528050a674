// ZHashKeyMap: a map from key objects to value objects.
//
// Subsystem: collections.  Stands on: ZObject, ZException, ZLCString, ZUTF8String, ZArrayList,
// ZHashMap, ZArray.
//
// The map finds a key by its hash() and equals(). Equal keys must have equal hashes.
// Ownership is fixed at construction: an owning map stores clones of keys and values and deletes
// them with their entry; a borrowing map stores the caller's pointers and deletes neither.
// Threads: unsynchronised; callers serialise access to one map.
// Failures: an operation that throws leaves the map unchanged, unless its contract differs. An
// exception of a key's or value's destructor is thrown after the operation has completed.
// Callbacks: the functions that a map calls (hash(), equals(), clone(), a destructor, the target of
// listKeys() and listObjects()) may read the map. The clone() in putEntry() may also change it.
// Derived classes: an operation calls the virtual operations listed in its line `calls` ("nothing
// else": none), so an override of them takes effect.
#pragma once

#include "ZArrayList.h"
#include "ZObject.h"

/// The interface of maps from key objects to value objects.
class ZKeyMap_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns the number of keys.
    virtual unsigned int size() const = 0;
    /// Returns whether the map has no keys.
    virtual bool isEmpty() const = 0;
    /// Returns whether the map has the key.
    virtual bool contains(ZObject_6_0 const* key) const = 0;
    /// Returns the value of the key; null if the key is not found.
    virtual ZObject_6_0* getEntry(ZObject_6_0 const* key) const = 0;
    /// Sets the value of the key.
    virtual void putEntry(ZObject_6_0 const* key, ZObject_6_0 const* value) = 0;
    /// Copies every key of `other` with its value.
    virtual void putAll(ZKeyMap_6_0 const& other) = 0;
    /// Removes the key and its value.
    virtual void removeEntry(ZObject_6_0 const* key) = 0;
    /// Removes every key.
    virtual void removeAll() = 0;
    /// Appends every key to `target`, in the order of the map.
    virtual void listKeys(ZList_6_0& target) const = 0;
    /// Appends every value to `target`, in the order of the map.
    virtual void listObjects(ZList_6_0& target) const = 0;

protected:
    ZKeyMap_6_0() = default;
    ZKeyMap_6_0(ZKeyMap_6_0 const&) = default;
    ZKeyMap_6_0& operator=(ZKeyMap_6_0 const&) = default;
    ~ZKeyMap_6_0() = default;
};

/// The base class of maps from keys to values.
class ZAbstractKeyMap_6_0 : public ZObject_6_0, public ZKeyMap_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractKeyMap_6_0() override;

    /// Returns whether the map has no keys.
    /// calls   size().
    bool isEmpty() const override;
};

/// A key and its value in one object, for a map of entries.
class ZKeyEntry_6_0 : public ZObject_6_0 {
public:
    /// Makes an entry of `key` and `value`.
    /// owns    taken over if `owns` is not 0, else borrowed; never copied.
    ZKeyEntry_6_0(ZObject_6_0* key, ZObject_6_0* value, int owns);
    ZKeyEntry_6_0(ZKeyEntry_6_0 const&) = delete;
    ZKeyEntry_6_0& operator=(ZKeyEntry_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZKeyEntry_6_0() override;

    /// Returns the key's hash and caches it for equals().
    uint32_t hash() const override;
    /// Compares the keys.
    /// range   if `other` is not a ZKeyEntry_6_0, compares the addresses of the two objects.
    int compare(ZObject_6_0 const& other) const override;
    /// Returns an entry with the same ownership flag and the same cached hash.
    /// owns    owned by the caller, released with delete. An owning entry clones key and value; a
    ///         borrowing entry shares them.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    ZObject_6_0* clone() const override;
    /// Returns whether both cached hashes are the same and this key equals the key of `other`.
    /// range   hash() must have been called on both entries. False if `other` is not a
    ///         ZKeyEntry_6_0.
    bool equals(ZObject_6_0 const& other) const override;

    ZObject_6_0* key() const { return key_; }      // null if passed or cloned as null
    ZObject_6_0* value() const { return value_; }  // may be null

private:
    ZObject_6_0* key_;
    ZObject_6_0* value_;
    int owns_;                   // not 0: key_ and value_ are deleted with the entry
    mutable uint32_t hashCode_;  // the last result of hash(); 0 before the first call
};

/// A hash map from key objects to value objects, with a fixed number of buckets. It finds a key
/// by its hash() and equals().
class ZHashKeyMap_6_0 : public ZAbstractKeyMap_6_0 {
public:
    /// Makes an empty map with max(`capacity`, 2) * 3 / 2 buckets, as ZHashMap_6_0 does.
    /// throws  ZOutOfMemoryException_6_0.
    ZHashKeyMap_6_0(unsigned int capacity, int owns);
    /// Makes a map with the buckets, the ownership and the entries of `source`.
    /// owns    an owning copy stores clones, a borrowing copy the pointers of `source`.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    ZHashKeyMap_6_0(ZHashKeyMap_6_0 const& source);
    /// Copies buckets, ownership and entries of `source` and releases the old entries as
    /// removeAll() does. Assigning a map to itself does nothing.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    ZHashKeyMap_6_0& operator=(ZHashKeyMap_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZHashKeyMap_6_0() override;

    /// Returns a copy of the map.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    ZObject_6_0* clone() const override;
    unsigned int size() const override;
    /// Returns whether the map has the key.
    /// calls   nothing else.
    bool contains(ZObject_6_0 const* key) const override;
    /// Returns the value of the key; null if the key is not found.
    /// calls   nothing else.
    /// owns    borrowed until the map removes or replaces the value.
    /// cost    O(1) expected.
    ZObject_6_0* getEntry(ZObject_6_0 const* key) const override;
    /// Sets the value of the key: replaces an equal key and its value, or appends to the bucket.
    /// range   a null `key` is ignored. An owning map also ignores a key whose clone() returns
    ///         null. `value` may be null.
    /// owns    an owning map stores clones; key and value stay the caller's either way.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    /// cost    O(1) expected, plus the clones in an owning map. An owning map stores strings of the
    ///         classes ZLCString_6_0 and ZUTF8String_6_0 side by side, in blocks that it frees when
    ///         it has become empty.
    /// kept    an owning map stores clones of clones. Of a key and value that are both strings of
    ///         these two classes, it stores clones: nothing distinguishes the two.
    void putEntry(ZObject_6_0 const* key, ZObject_6_0 const* value) override;
    /// Copies every key of `other` with its value, in the order of `other`.
    /// calls   listKeys() and getEntry() of `other`; putEntry().
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone(). Keys copied before the
    ///         exception stay.
    void putAll(ZKeyMap_6_0 const& other) override;
    /// Removes the key and its value.
    /// owns    an owning map deletes its copies of both.
    /// cost    O(1) expected.
    void removeEntry(ZObject_6_0 const* key) override;
    void removeAll() override;
    /// Appends every key to `target`, in the order of ZHashMap_6_0.
    /// calls   `target.add(ZObject_6_0 const*)`.
    /// owns    as `target.add()` does.
    /// throws  any exception of `target.add()`. The added keys are removed from `target` then.
    /// cost    O(buckets + keys).
    void listKeys(ZList_6_0& target) const override;
    /// Appends every value to `target`, nulls included, in the order of ZHashMap_6_0.
    /// calls   `target.add(ZObject_6_0 const*)`.
    /// owns    as `target.add()` does.
    /// throws  any exception of `target.add()`. The added values are removed from `target` then.
    /// cost    O(buckets + keys).
    void listObjects(ZList_6_0& target) const override;

private:
    struct Rep;  // ZHashKeyMap.cpp

    Rep* rep_;  // never null; the buckets and the ownership flag
};
