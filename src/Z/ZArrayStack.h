// ZArrayStack: a stack, implemented as a list whose last element is the top.
//
// Subsystem: collections.  Stands on: ZObject, ZArrayList.
//
// Ownership: a stack borrows; it neither clones nor deletes.
// Threads: unsynchronised; callers serialise access to one stack.
#pragma once

#include "ZArrayList.h"
#include "ZObject.h"

/// The interface of stacks: the object that was pushed last is popped first.
class ZStack_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Pushes `obj` onto the stack.
    virtual void push(ZObject_6_0* obj) = 0;
    /// Removes the top object and returns it; null if the stack is empty.
    virtual ZObject_6_0* pop() = 0;
    /// Pops every object.
    virtual void popall() = 0;

protected:
    ZStack_6_0() = default;
    ZStack_6_0(ZStack_6_0 const&) = default;
    ZStack_6_0& operator=(ZStack_6_0 const&) = default;
    ~ZStack_6_0() = default;
};

/// The base class of stacks.
class ZAbstractStack_6_0 : public ZStack_6_0 {
public:
    /// Pops every object, from the top down.
    /// calls   pop().
    /// kept    stops after popping a null: the objects below it stay.
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
    /// Copies the pointers of `source`.
    /// calls   removeAll(), addList().
    /// throws  ZOutOfMemoryException_6_0.
    ZArrayStack_6_0& operator=(ZArrayStack_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZArrayStack_6_0() override;

    /// Returns a stack of the same objects.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;
    /// Pushes `obj` onto the stack.
    /// calls   add(ZObject_6_0 const*).
    /// owns    borrowed until it is popped.
    /// throws  ZOutOfMemoryException_6_0.
    void push(ZObject_6_0* obj) override;
    /// Removes the top object and returns it; null if the stack is empty.
    /// calls   isEmpty(), size(), get(), remove(unsigned int).
    ZObject_6_0* pop() override;
};
