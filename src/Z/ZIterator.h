// ZIterator: the interface of iterators, which return objects one after another.
//
// Subsystem: root.  Stands on: ZObject.
//
// Ownership: an iterator owns neither the sequence nor the objects that it returns, unless its
// class documents otherwise.
// Threads: unsynchronised; an iterator and its sequence belong to one thread at a time.
#pragma once

#include "ZObject.h"

/// The interface of iterators, which return the objects of a sequence one after another.
class ZIterator_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns whether `getNext()` has an object to return.
    virtual bool hasMore() = 0;

    /// Returns the next object and steps past it; null at the end.
    /// owns    borrowed from the sequence.
    virtual ZObject_6_0* getNext() = 0;

protected:
    ZIterator_6_0() = default;
    ZIterator_6_0(ZIterator_6_0 const&) = default;
    ZIterator_6_0& operator=(ZIterator_6_0 const&) = default;
    ~ZIterator_6_0() = default;
};

/// The base class of iterators. It adds a search through the rest of the sequence.
class ZAbstractIterator_6_0 : public ZObject_6_0, public ZIterator_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractIterator_6_0() override;

    /// Returns the next object that `target` equals and leaves the iterator just past it. Returns
    /// null at the end if no such object follows. Skips nulls.
    /// owns    borrowed from the sequence.
    virtual ZObject_6_0* findNext(ZObject_6_0 const& target);
};
