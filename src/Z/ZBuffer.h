// ZBuffer: a block of bytes, owned or viewed.
//
// Subsystem: collections.  Stands on: ZObject, ZException.
//
// Ownership: ZBuffer_6_0 owns a block of the C heap and copies into it; ZConstBuffer_6_0 views
// bytes of the caller.
// Threads: unsynchronised; callers serialise access to one buffer.
// Derived classes: an operation calls the virtual operations listed in its line `calls`, so an
// override of them takes effect.
#pragma once

#include <stddef.h>

#include "ZObject.h"

/// The interface of buffers: a block of bytes with its size.
class ZBufferInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Sets the size in bytes.
    virtual void setLength(unsigned long length) = 0;
    /// Sets the contents.
    virtual void setBuffer(unsigned long length, void* data) = 0;
    /// Returns the size in bytes.
    virtual unsigned long getLength() const = 0;
    /// Returns the address of the first byte; null if the buffer is empty.
    virtual void* getBuffer() const = 0;
    /// Moves size and contents to the caller and leaves the buffer empty.
    virtual void takeBuffer(unsigned long& length, void*& data) = 0;

protected:
    ZBufferInterface_6_0() = default;
    ZBufferInterface_6_0(ZBufferInterface_6_0 const&) = default;
    ZBufferInterface_6_0& operator=(ZBufferInterface_6_0 const&) = default;
    ~ZBufferInterface_6_0() = default;
};

/// The base class of buffers. It compares buffers by size and contents.
class ZAbstractBuffer_6_0 : public ZObject_6_0, public ZBufferInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractBuffer_6_0() override;

    /// Returns -1 or 1 if this buffer is shorter or longer. For equal lengths returns the result of
    /// memcmp(), which may be any number; 0 means equal contents.
    /// calls   getLength() and getBuffer() of both.
    /// range   with an object that is not a buffer, compares addresses.
    int compare(ZObject_6_0 const& other) const override;
};

/// A view of bytes that the caller owns.
class ZConstBuffer_6_0 : public ZAbstractBuffer_6_0 {
public:
    /// Makes an empty view.
    ZConstBuffer_6_0();
    /// Makes a view of `length` bytes at `data`.
    /// owns    borrowed as long as the view is used.
    ZConstBuffer_6_0(unsigned long length, void* data);
    /// Makes a view of the bytes that `source` views.
    ZConstBuffer_6_0(ZConstBuffer_6_0 const& source);
    /// Views the bytes that `source` views.
    /// calls   setBuffer().
    ZConstBuffer_6_0& operator=(ZConstBuffer_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZConstBuffer_6_0() override;

    /// Returns a view of the same bytes.
    /// owns    the view is owned by the caller, released with delete; the bytes stay borrowed.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;
    /// Sets the size of the view in bytes; its start stays.
    /// range   not checked: the caller must own at least `length` bytes there.
    void setLength(unsigned long length) override;
    /// Views `length` bytes at `data`.
    /// owns    borrowed as long as the view is used.
    void setBuffer(unsigned long length, void* data) override;
    unsigned long getLength() const override;
    void* getBuffer() const override;
    /// Returns size and address of the view through the arguments and leaves the view empty.
    void takeBuffer(unsigned long& length, void*& data) override;

    operator void*() const { return getBuffer(); }

private:
    unsigned long length_;
    void* data_;  // not owned
};

/// A block of bytes that it owns; it copies the contents that it is given.
class ZBuffer_6_0 : public ZAbstractBuffer_6_0 {
public:
    /// Makes an empty buffer.
    ZBuffer_6_0();
    /// Makes a buffer with a copy of the `length` bytes at `data`.
    /// range   if `data` is null, the bytes are zero.
    /// owns    copied.
    /// throws  ZOutOfMemoryException_6_0.
    ZBuffer_6_0(unsigned long length, void* data);
    /// Makes a buffer with a copy of the string and its terminating zero; empty for null.
    /// owns    copied.
    /// throws  ZOutOfMemoryException_6_0.
    ZBuffer_6_0(char const* text);
    /// Makes a buffer with a copy of the bytes of `source`.
    /// owns    copied.
    /// throws  ZOutOfMemoryException_6_0.
    ZBuffer_6_0(ZBuffer_6_0 const& source);
    /// Copies the bytes of `source`.
    /// calls   setBuffer(unsigned long, void*).
    /// owns    copied.
    /// throws  ZOutOfMemoryException_6_0; the buffer is unchanged then.
    ZBuffer_6_0& operator=(ZBuffer_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZBuffer_6_0() override;

    /// Returns a buffer with a copy of the bytes.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;
    /// Sets the size in bytes. 0 releases the block; a smaller size keeps the block and its first
    /// bytes; a larger size keeps the bytes and appends zeros.
    /// throws  ZOutOfMemoryException_6_0; the buffer is unchanged then.
    void setLength(unsigned long length) override;
    /// Replaces the contents by a copy of the `length` bytes at `data`.
    /// calls   setLength().
    /// range   if `data` is null, the bytes are zero. `data` may point anywhere into this buffer's
    ///         block, even past the current length; bytes past the end of the block are zero.
    /// owns    copied.
    /// throws  ZOutOfMemoryException_6_0; the buffer is unchanged then.
    void setBuffer(unsigned long length, void* data) override;
    /// Replaces the contents by a copy of the string and its terminating zero; null empties the
    /// buffer.
    /// calls   setBuffer(unsigned long, void*), or setLength() for null.
    /// owns    copied.
    /// throws  ZOutOfMemoryException_6_0; the buffer is unchanged then.
    virtual void setBuffer(char* text);
    /// Takes the block at `data` over and releases the old one.
    /// calls   setLength().
    /// range   `data` is from malloc() or realloc(); null empties the buffer.
    /// owns    taken over; released with free().
    virtual void setBufferNoCopy(unsigned long length, void* data);
    unsigned long getLength() const override;
    /// Returns the address of the first byte; null if the buffer is empty.
    /// owns    borrowed until the buffer is changed.
    void* getBuffer() const override;
    /// Moves the block to the caller and leaves the buffer empty.
    /// owns    owned by the caller; released with free().
    void takeBuffer(unsigned long& length, void*& data) override;

    operator void*() const { return getBuffer(); }

private:
    void setBufferOfDerived(unsigned long length, void const* data, size_t offset);
    void* roomFor(unsigned long length);

    unsigned long length_;
    void* data_;          // from malloc(), or null
    unsigned long room_;  // size of the block in bytes, at least length_
};
