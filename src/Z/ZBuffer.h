// ZBuffer: a block of bytes, owned or viewed.
//
// Subsystem: collections.  Stands on: ZObject, ZException.
//
// Ownership: ZBuffer_6_0 owns a block of the C heap and copies into it; ZConstBuffer_6_0 views
// bytes that belong to someone else. Threads: unsynchronised; callers serialise access to one
// buffer.
// Derived classes: an operation calls the virtual operations that its line `calls` names, so a
// class that overrides them sees them called.
#pragma once

#include <stddef.h>

#include "ZObject.h"

class ZBufferInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Sets the number of bytes.
    virtual void setLength(unsigned long length) = 0;
    /// Sets the bytes.
    virtual void setBuffer(unsigned long length, void* data) = 0;
    /// Returns the number of bytes.
    virtual unsigned long getLength() const = 0;
    /// Returns the first byte; null when the buffer is empty.
    virtual void* getBuffer() const = 0;
    /// Hands length and bytes out and leaves the buffer empty.
    virtual void takeBuffer(unsigned long& length, void*& data) = 0;

protected:
    ZBufferInterface_6_0() = default;
    ZBufferInterface_6_0(ZBufferInterface_6_0 const&) = default;
    ZBufferInterface_6_0& operator=(ZBufferInterface_6_0 const&) = default;
    ~ZBufferInterface_6_0() = default;
};

class ZAbstractBuffer_6_0 : public ZObject_6_0, public ZBufferInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractBuffer_6_0() override;

    /// Returns -1 or 1 when this buffer is shorter or longer, whatever it holds; at equal lengths
    /// what memcmp() returns for the bytes, which may be any number, and 0 when both are the same.
    /// calls   getLength() and getBuffer() of both.
    /// range   an object that is no buffer sorts by address, as objects do.
    int compare(ZObject_6_0 const& other) const override;
};

class ZConstBuffer_6_0 : public ZAbstractBuffer_6_0 {
public:
    /// Makes an empty view.
    ZConstBuffer_6_0();
    /// Makes a view of `length` bytes at `data`.
    /// owns    borrowed as long as the view is used.
    ZConstBuffer_6_0(unsigned long length, void* data);
    /// Makes a view of the bytes that `source` views.
    ZConstBuffer_6_0(ZConstBuffer_6_0 const& source);
    /// Views what `source` views.
    /// calls   setBuffer().
    ZConstBuffer_6_0& operator=(ZConstBuffer_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZConstBuffer_6_0() override;

    /// Returns a view of the same bytes.
    /// owns    the view is owned by the caller, released with delete; the bytes stay borrowed.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;
    /// Sets the number of bytes viewed; where they start stays.
    /// range   that many bytes are there; nothing is checked.
    void setLength(unsigned long length) override;
    /// Views `length` bytes at `data`.
    /// owns    borrowed as long as the view is used.
    void setBuffer(unsigned long length, void* data) override;
    unsigned long getLength() const override;
    void* getBuffer() const override;
    /// Hands out what is viewed and views nothing then.
    void takeBuffer(unsigned long& length, void*& data) override;

    operator void*() const { return getBuffer(); }

private:
    unsigned long length_;
    void* data_;  // not owned
};

class ZBuffer_6_0 : public ZAbstractBuffer_6_0 {
public:
    /// Makes an empty buffer.
    ZBuffer_6_0();
    /// Makes a buffer of the `length` bytes at `data`.
    /// range   `data` null: the bytes are zero.
    /// owns    copied.
    /// throws  ZOutOfMemoryException_6_0.
    ZBuffer_6_0(unsigned long length, void* data);
    /// Makes a buffer of the text and its terminating zero; an empty one for null.
    /// owns    copied.
    /// throws  ZOutOfMemoryException_6_0.
    ZBuffer_6_0(char const* text);
    /// Makes a buffer of the bytes of `source`.
    /// owns    copied.
    /// throws  ZOutOfMemoryException_6_0.
    ZBuffer_6_0(ZBuffer_6_0 const& source);
    /// Takes the bytes of `source`.
    /// calls   setBuffer(unsigned long, void*).
    /// owns    copied.
    /// throws  ZOutOfMemoryException_6_0; the buffer is as it was then.
    ZBuffer_6_0& operator=(ZBuffer_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZBuffer_6_0() override;

    /// Returns a buffer with a copy of the bytes.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;
    /// Sets the number of bytes. 0 releases the block; a smaller number keeps it and its first
    /// bytes; a larger one keeps the bytes and adds zeros.
    /// throws  ZOutOfMemoryException_6_0; the buffer is as it was then.
    void setLength(unsigned long length) override;
    /// Makes the buffer a copy of the `length` bytes at `data`, which may lie inside the buffer.
    /// calls   setLength().
    /// range   `data` null: the bytes are zero. Inside the buffer is all of its block, also what a
    ///         shorter length has kept; bytes behind the end of the block are zero.
    /// owns    copied.
    /// throws  ZOutOfMemoryException_6_0; the buffer is as it was then.
    void setBuffer(unsigned long length, void* data) override;
    /// Makes the buffer a copy of the text and its terminating zero; null empties it.
    /// calls   setBuffer(unsigned long, void*), or setLength() for null.
    /// owns    copied.
    /// throws  ZOutOfMemoryException_6_0; the buffer is as it was then.
    virtual void setBuffer(char* text);
    /// Takes the block at `data` as the buffer's own and releases the old one.
    /// calls   setLength().
    /// range   `data` comes from malloc() or realloc(); null empties the buffer.
    /// owns    taken over; released with free().
    virtual void setBufferNoCopy(unsigned long length, void* data);
    unsigned long getLength() const override;
    /// Returns the first byte; null when the buffer is empty.
    /// owns    borrowed until the buffer is changed.
    void* getBuffer() const override;
    /// Hands the block out and leaves the buffer empty.
    /// owns    owned by the caller; released with free().
    void takeBuffer(unsigned long& length, void*& data) override;

    operator void*() const { return getBuffer(); }

private:
    void setBufferOfDerived(unsigned long length, void const* data, size_t offset);
    void* roomFor(unsigned long length);

    unsigned long length_;
    void* data_;          // from malloc(), or null
    unsigned long room_;  // bytes of the block, at least length_
};
