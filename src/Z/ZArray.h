// ZArray: a fixed number of slots, each empty or holding an object.
//
// Subsystem: collections.  Stands on: ZObject, ZException.
//
// Ownership is fixed at construction: an owning array stores clones and deletes an object that it
// removes or replaces; a borrowing array stores the caller's pointers and deletes nothing.
// setNoCopy() stores the pointer itself in both; an owning array takes it over.
// Threads: unsynchronised; callers serialise access to one array.
// Failures: an operation that throws leaves the array unchanged.
// Derived classes: an operation calls the virtual operations listed in its line `calls`, so an
// override of them takes effect. An array of exactly ZArray_6_0 may skip those calls.
#pragma once

#include "ZObject.h"

/// The interface of arrays: numbered slots, each empty or holding an object.
class ZArrayInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns the number of slots.
    virtual unsigned int size() const = 0;
    /// Returns whether a slot holds an object that `obj` equals; false for null.
    virtual bool contains(ZObject_6_0 const* obj) const = 0;
    /// Empties slot `index`; other slots do not move.
    virtual void remove(unsigned int index) = 0;
    /// Empties every slot.
    virtual void removeAll() = 0;
    /// Returns the object in slot `index`; null if the slot is empty.
    virtual ZObject_6_0* get(unsigned int index) const = 0;
    /// Stores `obj` in slot `index`.
    virtual void set(unsigned int index, ZObject_6_0 const* obj) = 0;
    /// Returns the first slot whose object `obj` equals; -1 if not found or `obj` is null.
    virtual int indexOf(ZObject_6_0 const* obj) const = 0;
    /// Returns the last slot whose object `obj` equals; -1 if not found or `obj` is null.
    virtual int lastIndexOf(ZObject_6_0 const* obj) const = 0;
    /// Exchanges the contents of two slots.
    virtual void swap(unsigned int one, unsigned int other) = 0;

protected:
    ZArrayInterface_6_0() = default;
    ZArrayInterface_6_0(ZArrayInterface_6_0 const&) = default;
    ZArrayInterface_6_0& operator=(ZArrayInterface_6_0 const&) = default;
    ~ZArrayInterface_6_0() = default;
};

/// The base class of arrays.
class ZAbstractArray_6_0 : public ZObject_6_0, public ZArrayInterface_6_0 {
public:
    ZAbstractArray_6_0() = default;
    // The derived class copies the elements.
    ZAbstractArray_6_0(ZAbstractArray_6_0 const&) : ZObject_6_0(), ZArrayInterface_6_0() {}
    ZAbstractArray_6_0& operator=(ZAbstractArray_6_0 const&) { return *this; }

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractArray_6_0() override;
};

class ZArray_6_0 : public ZAbstractArray_6_0 {
public:
    /// Makes an array of empty slots.
    /// range   `size` 0 is taken as 1.
    /// throws  ZOutOfMemoryException_6_0.
    ZArray_6_0(unsigned int size, int owns);
    /// Makes an array with the slots and the ownership of `source`.
    /// calls   get() of `source`.
    /// owns    an owning copy holds clones; a borrowing one the same pointers.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    ZArray_6_0(ZArray_6_0 const& source);
    /// Copies the number of slots and the contents of `source`. Releases the old contents as
    /// removeAll() does. Assigning an array to itself does nothing.
    /// calls   removeAll(), set(); get() of `source`.
    /// owns    this array's own flag decides whether clones or the same pointers are stored.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone(). If set() throws in an array
    ///         of a caller's class, that slot and all later ones are empty.
    /// kept    the ownership flag is not assigned, though the copy constructor copies it.
    ZArray_6_0& operator=(ZArray_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZArray_6_0() override;

    unsigned int size() const override;
    /// Returns the flag given at construction: not 0 if the array owns its elements.
    virtual int ownsMembers() const;
    /// Returns whether a slot holds an object that `obj` equals; false for null.
    /// calls   indexOf().
    bool contains(ZObject_6_0 const* obj) const override;
    /// Empties slot `index`; other slots do not move.
    /// calls   nothing else.
    /// owns    an owning array deletes the object.
    /// throws  ZInvalidParameterException_6_0 if `index >= size()`.
    void remove(unsigned int index) override;
    /// Empties every slot; the number of slots stays.
    /// calls   remove() for each slot.
    /// owns    an owning array deletes the objects.
    /// throws  the first exception of a destructor, after every slot has been emptied.
    void removeAll() override;
    /// Returns the object in slot `index`; null if the slot is empty.
    /// owns    borrowed until the slot is emptied or set again.
    /// throws  ZInvalidParameterException_6_0 if `index >= size()`.
    ZObject_6_0* get(unsigned int index) const override;
    /// Stores `obj` in slot `index`.
    /// calls   setNoCopy().
    /// owns    an owning array stores `obj->clone()` and deletes the old object; `obj` stays the
    ///         caller's.
    /// throws  ZInvalidParameterException_6_0 if `index >= size()`; any exception of clone().
    void set(unsigned int index, ZObject_6_0 const* obj) override;
    /// Stores `obj` itself in slot `index`, without a clone.
    /// calls   nothing else.
    /// owns    an owning array takes `obj` over and deletes the old object.
    /// throws  ZInvalidParameterException_6_0 if `index >= size()`.
    /// kept    an owning array deletes the old object even if it is `obj`.
    virtual void setNoCopy(unsigned int index, ZObject_6_0 const* obj);
    int indexOf(ZObject_6_0 const* obj) const override;
    int lastIndexOf(ZObject_6_0 const* obj) const override;
    /// Exchanges the contents of two slots.
    /// calls   nothing else.
    /// throws  ZInvalidParameterException_6_0 if `one` or `other` is not below `size()`.
    void swap(unsigned int one, unsigned int other) override;

private:
    void copyMembers(ZObject_6_0** slots, int owns) const;
    void swapSlots(ZArray_6_0& other);

    ZObject_6_0** elements_;  // never null; count_ slots, an empty slot is null
    int owns_;                // not 0: clones and deletes
    unsigned int count_;      // slots, at least 1
};
