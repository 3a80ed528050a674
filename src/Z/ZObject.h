// ZObject: the root of every class of the library.
//
// Subsystem: root.  Stands on: ZException.
//
// It fixes the four operations that all objects share (hash, compare, clone, equals), the
// comparison operators built on them, and allocation that turns an exhausted heap into an
// exception. Containers copy, order, find and hash their members through these operations alone.
// Threads: no state; a class says itself how its objects may be shared.
#pragma once

#include <stddef.h>
#include <stdint.h>

class ZObject_6_0 {
public:
    ZObject_6_0() = default;
    ZObject_6_0(ZObject_6_0 const&) = default;
    ZObject_6_0& operator=(ZObject_6_0 const&) = default;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Destroys the object. A few guards report through an exception when they cannot let go of
    /// what they hold; they do so only while no other exception is on its way.
    virtual ~ZObject_6_0() noexcept(false);

    /// Returns the hash of the object; here its identity: the address folded to its low 32 bits.
    virtual uint32_t hash() const;

    /// Returns a negative number, 0 or a positive number as this object sorts before, with or
    /// after `other`; here -1, 0 or 1 by address.
    virtual int compare(ZObject_6_0 const& other) const;

    /// Returns a copy of the object; here null: the object cannot be cloned.
    /// owns    owned by the caller; released with delete.
    virtual ZObject_6_0* clone() const;

    /// Returns whether `compare(other)` is 0.
    virtual bool equals(ZObject_6_0 const& other) const;

    // Order and equality follow compare(); a class changes them only by overriding it.
    bool operator==(ZObject_6_0 const& other) const { return compare(other) == 0; }
    bool operator!=(ZObject_6_0 const& other) const { return compare(other) != 0; }
    bool operator<(ZObject_6_0 const& other) const { return compare(other) < 0; }
    bool operator>(ZObject_6_0 const& other) const { return compare(other) > 0; }
    bool operator<=(ZObject_6_0 const& other) const { return compare(other) <= 0; }
    bool operator>=(ZObject_6_0 const& other) const { return compare(other) >= 0; }

    /// Allocates `size` bytes with the global allocator.
    /// throws  ZOutOfMemoryException_6_0 when there is no memory; never std::bad_alloc.
    static void* operator new(size_t size);
    /// Allocates the `size` bytes of an array with the global allocator.
    /// throws  ZOutOfMemoryException_6_0 when there is no memory; never std::bad_alloc.
    static void* operator new[](size_t size);
    /// Returns `place`: an object may be made in storage that the caller has.
    static void* operator new(size_t, void* place) noexcept { return place; }
    /// Releases what operator new returned; null is ignored.
    static void operator delete(void* block) noexcept;
    /// Releases what operator new[] returned; null is ignored.
    static void operator delete[](void* block) noexcept;
    /// Counterpart of the placement form: releases nothing.
    static void operator delete(void*, void*) noexcept {}
};
