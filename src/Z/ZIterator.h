// ZIterator: the protocol of everything that hands out objects one after another.
//
// Subsystem: root.  Stands on: ZObject.
//
// Ownership: an iterator owns neither what it walks nor what it hands out, unless its class says
// so. Threads: unsynchronised; one iterator belongs to one thread at a time, as does what it walks.
#pragma once

#include "ZObject.h"

class ZIterator_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns whether `getNext()` has something to hand out.
    virtual bool hasMore() = 0;

    /// Returns the next object and steps past it; null at the end.
    /// owns    borrowed from what is walked.
    virtual ZObject_6_0* getNext() = 0;

protected:
    ZIterator_6_0() = default;
    ZIterator_6_0(ZIterator_6_0 const&) = default;
    ZIterator_6_0& operator=(ZIterator_6_0 const&) = default;
    ~ZIterator_6_0() = default;
};

class ZAbstractIterator_6_0 : public ZObject_6_0, public ZIterator_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractIterator_6_0() override;

    /// Returns the next object that `target` equals and leaves the iterator just past it; null
    /// when none follows. Nulls on the way are skipped.
    /// owns    borrowed from what is walked.
    virtual ZObject_6_0* findNext(ZObject_6_0 const& target);
};
