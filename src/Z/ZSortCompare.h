// ZSortCompare: the order in which a list is sorted.
//
// Subsystem: collections.  Stands on: ZObject.
//
// Ownership: a comparator owns nothing; the shared default comparator lives as long as the process.
// Threads: several threads may share a comparator that has no state, such as the default one.
#pragma once

#include "ZObject.h"

class ZDefaultSortCompare_6_0;

/// The interface of comparators. A comparator decides the order of two elements when a list is
/// sorted.
class ZSortCompare_6_0 {
public:
    /// Direction of a sort. Only 1 is ascending; every other value is descending.
    enum sortorder : int { descending = 0, ascending = 1 };

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns a negative number, 0 or a positive number if `left` sorts before, with or after
    /// `right`.
    /// range   a sort never passes null.
    virtual int sortCompare(ZObject_6_0 const* left, ZObject_6_0 const* right) const = 0;

    /// Returns the shared default comparator, which orders elements by their compare().
    /// owns    borrowed for the life of the process.
    /// threads any thread, at any time.
    static ZSortCompare_6_0 const& defaultSortCompare();

    /// Installs the default comparator. `defaultSortCompare()` calls it if none is installed.
    static void init();

protected:
    constexpr ZSortCompare_6_0() = default;
    constexpr ZSortCompare_6_0(ZSortCompare_6_0 const&) = default;
    ZSortCompare_6_0& operator=(ZSortCompare_6_0 const&) = default;
    ~ZSortCompare_6_0() = default;

    static ZDefaultSortCompare_6_0 const* dsc_;  // null until init()
};

/// Orders elements by their own compare(). `ZSortCompare_6_0::defaultSortCompare()` returns the
/// shared one.
class ZDefaultSortCompare_6_0 final : public ZSortCompare_6_0 {
public:
    constexpr ZDefaultSortCompare_6_0() = default;

    /// Returns `left->compare(*right)`.
    int sortCompare(ZObject_6_0 const* left, ZObject_6_0 const* right) const override;
};
