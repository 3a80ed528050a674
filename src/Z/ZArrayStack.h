// ZArrayStack: a stack, kept as a list whose last member is the top.
//
// Subsystem: collections.  Stands on: ZObject, ZArrayList.
//
// Ownership: a stack borrows; it neither clones nor deletes.
// Threads: unsynchronised; callers serialise access to one stack.
#pragma once

#include "ZArrayList.h"
#include "ZObject.h"

class ZStack_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Puts `obj` on top.
    virtual void push(ZObject_6_0* obj) = 0;
    /// Takes the top off and returns it; null when the stack is empty.
    virtual ZObject_6_0* pop() = 0;
    /// Takes everything off.
    virtual void popall() = 0;

protected:
    ZStack_6_0() = default;
    ZStack_6_0(ZStack_6_0 const&) = default;
    ZStack_6_0& operator=(ZStack_6_0 const&) = default;
    ~ZStack_6_0() = default;
};

class ZAbstractStack_6_0 : public ZStack_6_0 {
public:
    /// Takes everything off, from the top down.
    /// calls   pop().
    /// kept    stops behind the first null: what lies under it stays.
    void popall() override;

protected:
    ZAbstractStack_6_0() = default;
    ZAbstractStack_6_0(ZAbstractStack_6_0 const&) = default;
    ZAbstractStack_6_0& operator=(ZAbstractStack_6_0 const&) = default;
    ~ZAbstractStack_6_0() = default;
};

class ZArrayStack_6_0 : public ZArrayList_6_0, public ZAbstractStack_6_0 {
public:
    /// Makes an empty stack.
    /// range   `initialCapacity` 0 is taken as 1.
    /// throws  ZOutOfMemoryException_6_0.
    explicit ZArrayStack_6_0(unsigned int initialCapacity);
    /// Makes a stack of the same objects.
    /// throws  ZOutOfMemoryException_6_0.
    ZArrayStack_6_0(ZArrayStack_6_0 const& source);
    /// Takes over what is on `source`.
    /// calls   removeAll(), addList().
    /// throws  ZOutOfMemoryException_6_0.
    ZArrayStack_6_0& operator=(ZArrayStack_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZArrayStack_6_0() override;

    /// Returns a stack of the same objects.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;
    /// Puts `obj` on top.
    /// calls   add(ZObject_6_0 const*).
    /// owns    borrowed until it is popped.
    /// throws  ZOutOfMemoryException_6_0.
    void push(ZObject_6_0* obj) override;
    /// calls   isEmpty(), size(), get(), remove(unsigned int).
    ZObject_6_0* pop() override;
};
