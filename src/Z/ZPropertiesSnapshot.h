// ZPropertiesSnapshot: the contents of a configuration store at one moment, which any number of
// threads read without a lock.
//
// Subsystem: properties.  Stands on: ZProperties, ZPropertiesImpl, ZDialectData, ZLCString,
// ZException.
//
// A server with many threads takes a snapshot after each load of its configuration and looks up
// values in it: the lookups of a thread wait for no other thread and write no memory that another
// thread uses. Changes of the store leave a snapshot as it is; the next snapshot has them.
// Ownership: snapshots of the same contents share them. They stay in memory as long as a snapshot
// has them, and the store keeps the contents of its last snapshot. A snapshot needs neither its
// store nor the file. Threads: every const function is safe from every thread at the same time,
// without a lock. Assigning to a snapshot and destroying it need the only access to this snapshot,
// as with other values, but not to copies of it.
#pragma once

#include "ZProperties.h"

class ZDialectData_6_0;
class ZPCategoryBasedCache_6_0;

/// An immutable view of the contents that a store had when the snapshot was created.
class ZPropertiesSnapshot_6_0 {
public:
    /// Makes a snapshot of `store`.
    /// throws  ZOutOfMemoryException_6_0.
    /// threads locks the store, and waits while another thread loads it.
    /// cost    O(1) if nothing has changed since the last snapshot of the store. Otherwise O(size):
    ///         a copy of the contents. Also O(size) for a cache of a class outside the library.
    ///         After functions that create lists of values, the values in these lists are compared
    ///         with the last snapshot until the next reload(), because the holder of a list can
    ///         change it: ZPCache_6_0::get(), iterators over values, addValue().
    explicit ZPropertiesSnapshot_6_0(ZProperties_6_0 const& store);

    /// Shares the contents of `other`.
    /// cost    O(1).
    ZPropertiesSnapshot_6_0(ZPropertiesSnapshot_6_0 const& other);
    ZPropertiesSnapshot_6_0& operator=(ZPropertiesSnapshot_6_0 const& other);
    ~ZPropertiesSnapshot_6_0();

    /// Returns 1 if both have the same contents because nothing changed between them, else 0.
    /// kept    snapshots of equal contents that were copied separately are not shared.
    int isShared(ZPropertiesSnapshot_6_0 const& other) const;

    // The following functions return the same as the functions of the store with these names, and
    // have the same parameters, exceptions and cost.

    int exists(char const* category, char const* key) const;
    int exists(char const* category) const;
    void getValue(char const* category, char const* key, ZAbstractMutableString_6_0& out,
                  int required, char const* defaultValue) const;
    unsigned int getIntegerValue(char const* category, char const* key, int required,
                                 unsigned int defaultValue) const;
    int getBooleanValue(char const* category, char const* key, int required,
                        int defaultValue) const;
    int numValues(char const* category, char const* key) const;
    int count() const;
    int count(char const* category) const;

    /// Returns the value that getValue() copies; null if it does not exist.
    /// owns    borrowed as long as this snapshot or a copy of it exists.
    /// throws  ZInvalidParameterException_6_0 if a name is null or empty.
    /// cost    O(1), without allocation.
    char const* getValue(char const* category, char const* key) const;

    /// Returns the value at `index`, where 0 is the first; null if it does not exist.
    /// owns    as above.
    /// throws  as above.
    /// cost    O(index).
    char const* getValue(char const* category, char const* key, int index) const;

    /// Calls `visitor` as ZProperties_6_0::visit().
    int visit(ZPropertiesVisitor_6_0 visitor, void* context) const;

    /// Returns the store's file name; empty if it had none.
    /// owns    as above.
    char const* fileName() const;

private:
    struct Rep;

    void swap(ZPropertiesSnapshot_6_0& other);

    Rep const* rep_;                         // never null
    ZPCategoryBasedCache_6_0 const* cache_;  // the contents
    ZDialectData_6_0 const* dialect_;        // the contents, if they are of a dialect
};
