// ZObject: the root of every class of the library.
//
// Subsystem: root.  Stands on: ZException.
//
// It declares the four operations that all objects share (hash, compare, clone, equals), the
// comparison operators built on compare(), and allocation that throws the library's exception if
// the heap is exhausted. Containers copy, order, find and hash their elements only through these
// operations.
// Threads: no state; each class documents how its objects may be shared.
#pragma once

#include <stddef.h>
#include <stdint.h>

class ZObject_6_0 {
public:
    ZObject_6_0() = default;
    ZObject_6_0(ZObject_6_0 const&) = default;
    ZObject_6_0& operator=(ZObject_6_0 const&) = default;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Destroys the object.
    /// throws  only a few guards do, if a release fails and no other exception unwinds the stack.
    virtual ~ZObject_6_0() noexcept(false);

    /// Returns the hash of the object. A class that does not override this returns the low 32 bits
    /// of the address.
    virtual uint32_t hash() const;

    /// Returns a negative number, 0 or a positive number if this object sorts before, with or
    /// after `other`. A class that does not override this orders by address: -1, 0 or 1.
    virtual int compare(ZObject_6_0 const& other) const;

    /// Returns a copy of the object; null if its class does not override this.
    /// owns    owned by the caller; released with delete.
    virtual ZObject_6_0* clone() const;

    /// Returns whether `compare(other)` is 0.
    virtual bool equals(ZObject_6_0 const& other) const;

    // The operators follow compare(); a class changes them by overriding compare().
    bool operator==(ZObject_6_0 const& other) const { return compare(other) == 0; }
    bool operator!=(ZObject_6_0 const& other) const { return compare(other) != 0; }
    bool operator<(ZObject_6_0 const& other) const { return compare(other) < 0; }
    bool operator>(ZObject_6_0 const& other) const { return compare(other) > 0; }
    bool operator<=(ZObject_6_0 const& other) const { return compare(other) <= 0; }
    bool operator>=(ZObject_6_0 const& other) const { return compare(other) >= 0; }

    /// Allocates `size` bytes with the global allocator.
    /// throws  ZOutOfMemoryException_6_0 if memory is exhausted; never std::bad_alloc.
    static void* operator new(size_t size);
    /// Allocates `size` bytes for an array with the global allocator.
    /// throws  ZOutOfMemoryException_6_0 if memory is exhausted; never std::bad_alloc.
    static void* operator new[](size_t size);
    /// Returns `place`: the object is constructed in storage of the caller.
    static void* operator new(size_t, void* place) noexcept { return place; }
    /// Releases a block from operator new; null is ignored.
    static void operator delete(void* block) noexcept;
    /// Releases a block from operator new[]; null is ignored.
    static void operator delete[](void* block) noexcept;
    /// Counterpart of the placement form: releases nothing.
    static void operator delete(void*, void*) noexcept {}
};
