// ZArrayList: a list that grows, and the iterator that walks it.
//
// Subsystem: collections.  Stands on: ZObject, ZException, ZIterator, ZSortCompare, ZArray.
//
// Ownership is fixed at construction: an owning list stores clones and deletes what it removes,
// replaces or clears; a borrowing list stores the caller's pointers and deletes nothing.
// addNoCopy() stores the pointer as given in both; an owning list takes it over.
// An index that is out of range is not an error: the call does nothing, or returns null.
// A null may be a member of either kind of list; it is stored as it is.
// Threads: unsynchronised; callers serialise access to one list.
// An operation that raises leaves the members as they were.
// Callbacks: what a list calls while it works (clone(), equals(), a destructor, a comparator, the
// target of subList()) may read the list. All but the destructors that removeAll() runs may change
// it too, as long as they leave the members alone that they were called with: the operation goes on
// with the list as it finds it.
// Derived classes: an operation calls the virtual operations that its line `calls` names, so a
// class that overrides them sees them called. A list of exactly a class of this library may do the
// same work without the calls.
#pragma once

#include "ZIterator.h"
#include "ZObject.h"
#include "ZSortCompare.h"

class ZArrayMap_6_0;
class ZArrayStack_6_0;
class ZListIterator_6_0;

class ZList_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns the number of members.
    virtual unsigned int size() const = 0;
    /// Returns whether the list has no members.
    virtual bool isEmpty() const = 0;
    /// Returns whether `obj` equals a member.
    virtual bool contains(ZObject_6_0 const* obj) const = 0;
    /// Puts `obj` behind the last member.
    virtual void add(ZObject_6_0 const* obj) = 0;
    /// Puts `obj` before the member at `index`; `size()` is the place behind the last one.
    virtual void add(unsigned int index, ZObject_6_0 const* obj) = 0;
    /// Adds every member of `other`, in order.
    virtual void addList(ZList_6_0 const& other) = 0;
    /// Removes the first member that `obj` equals.
    virtual void remove(ZObject_6_0 const* obj) = 0;
    /// Removes the member at `index`; those behind it move up.
    virtual void remove(unsigned int index) = 0;
    /// Removes the member that `iterator` handed out last; the iterator goes on behind it.
    virtual void remove(ZListIterator_6_0& iterator) = 0;
    /// Removes every member.
    virtual void removeAll() = 0;
    /// Returns the member at `index`; null when there is none.
    virtual ZObject_6_0* get(unsigned int index) const = 0;
    /// Replaces the member at `index` by `obj`.
    virtual void set(unsigned int index, ZObject_6_0 const* obj) = 0;
    /// Returns the index of the first member that `obj` equals; -1 when there is none.
    virtual int indexOf(ZObject_6_0 const* obj) const = 0;
    /// Sorts the members.
    virtual void sort(ZSortCompare_6_0 const& comparator,
                      ZSortCompare_6_0::sortorder const& order) = 0;
    /// Returns the index of the last member that `obj` equals; -1 when there is none.
    virtual int lastIndexOf(ZObject_6_0 const* obj) const = 0;
    /// Adds the members from index `from` to index `to`, both included, to `target`.
    virtual void subList(ZList_6_0& target, unsigned int from, unsigned int to) const = 0;
    /// Exchanges two members.
    virtual void swap(unsigned int one, unsigned int other) = 0;
    /// Puts the members into a random order.
    virtual void shuffle() = 0;
    /// Steps `iterator` back by one member.
    /// calls   the iterator's backUp().
    virtual void backUp(ZListIterator_6_0& iterator);
    /// Returns the index of the member that `iterator` handed out last.
    /// calls   the iterator's indexOf().
    virtual int indexOf(ZListIterator_6_0& iterator);

protected:
    ZList_6_0() = default;
    ZList_6_0(ZList_6_0 const&) = default;
    ZList_6_0& operator=(ZList_6_0 const&) = default;
    ~ZList_6_0() = default;
};

class ZAbstractList_6_0 : public ZObject_6_0, public ZList_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractList_6_0() override;

    /// calls   size().
    bool isEmpty() const override;
    /// Sorts the members by quicksort; members that compare equal may change places.
    /// calls   size(), get(), swap().
    /// range   nulls are not compared and stay where the passes over the list find them.
    /// throws  what `comparator` raises; ZOutOfMemoryException_6_0 from long lists only. Every
    ///         member is still in the list then.
    /// cost    O(n log n) compares for every input; memory is constant as a rule. Parts that 2 *
    ///         log2(n) partitions have not divided are merge-sorted, with 12 bytes for each member:
    ///         there the comparator's second argument is not a pivot of the partition.
    void sort(ZSortCompare_6_0 const& comparator,
              ZSortCompare_6_0::sortorder const& order) override;

protected:
    /// Sorts the members from index `low` to index `high`, both included. An index of `size()` is
    /// harmless: there is no member and swapping it does nothing.
    /// calls   get(), swap().
    void quickSort(ZSortCompare_6_0 const& comparator, ZSortCompare_6_0::sortorder const& order,
                   int low, int high);
};

class ZArrayList_6_0 : public ZAbstractList_6_0 {
public:
    /// Makes an empty list.
    /// range   `initialCapacity` 0 is taken as 1.
    /// throws  ZOutOfMemoryException_6_0.
    ZArrayList_6_0(unsigned int initialCapacity, int owns);
    /// Makes a list with the capacity, the ownership and the members of `source`.
    /// calls   size() and get() of `source`.
    /// owns    an owning copy holds clones; a borrowing one the same pointers.
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises.
    ZArrayList_6_0(ZArrayList_6_0 const& source);
    /// Takes the members of `source`; what was held goes as removeAll() lets it go. Assigning a
    /// list to itself does nothing.
    /// calls   removeAll(), addList().
    /// owns    this list's own flag decides whether clones or the same pointers are stored.
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises. A list of a caller's class is then
    ///         empty.
    /// kept    neither the ownership flag nor the capacity is assigned, though a copy takes both.
    ZArrayList_6_0& operator=(ZArrayList_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZArrayList_6_0() override;

    /// Returns a copy of the list.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises.
    ZObject_6_0* clone() const override;

    unsigned int size() const override { return count_; }
    /// Returns the flag given at construction: not 0 when the list owns its members.
    virtual int ownsMembers() const { return owns_; }
    /// calls   indexOf().
    bool contains(ZObject_6_0 const* obj) const override;
    /// Puts `obj` behind the last member.
    /// calls   size(), addNoCopy(unsigned int, ZObject_6_0 const*).
    /// owns    an owning list stores `obj->clone()`; `obj` stays the caller's either way.
    /// throws  ZOutOfMemoryException_6_0; what clone() raises.
    /// cost    O(1) amortised, plus one clone when owning.
    void add(ZObject_6_0 const* obj) override
    {
        if (owns_ == 0 && count_ < room_)
            elements_[count_++] = const_cast<ZObject_6_0*>(obj);
        else
            append(obj);
    }
    /// Puts `obj` before the member at `index`; nothing happens when `index > size()`.
    /// calls   size(), addNoCopy(unsigned int, ZObject_6_0 const*).
    /// owns    an owning list stores `obj->clone()`; `obj` stays the caller's either way.
    /// throws  ZOutOfMemoryException_6_0; what clone() raises.
    void add(unsigned int index, ZObject_6_0 const* obj) override;
    /// Adds every member that `other` has at the time of the call, in order; a list may be added to
    /// itself.
    /// calls   size() and get() of `other`; add(ZObject_6_0 const*).
    /// owns    an owning list stores clones.
    /// throws  ZOutOfMemoryException_6_0; what a clone() raises. A list of a caller's class removes
    ///         its last members then, until there are no more than before.
    void addList(ZList_6_0 const& other) override;
    /// Puts `obj` itself behind the last member.
    /// calls   size(), addNoCopy(unsigned int, ZObject_6_0 const*).
    /// owns    an owning list takes `obj` over; if the call raises, `obj` is still the caller's.
    /// throws  ZOutOfMemoryException_6_0.
    virtual void addNoCopy(ZObject_6_0 const* obj);
    /// Puts `obj` itself before the member at `index`; nothing happens when `index > size()`.
    /// calls   nothing else: every other way of adding comes here.
    /// owns    an owning list takes `obj` over, unless nothing happened or the call raised.
    /// throws  ZOutOfMemoryException_6_0.
    /// cost    O(members behind `index`). A full list grows by half its members, at least one.
    virtual void addNoCopy(unsigned int index, ZObject_6_0 const* obj);
    /// Removes the first member that `obj` equals.
    /// calls   indexOf(ZObject_6_0 const*), remove(unsigned int).
    /// owns    an owning list deletes it.
    void remove(ZObject_6_0 const* obj) override;
    /// Removes the member at `index`; nothing happens when `index >= size()`.
    /// calls   nothing else.
    /// owns    an owning list deletes it.
    void remove(unsigned int index) override;
    /// Removes the member that `iterator` handed out last and steps the iterator back, so that it
    /// goes on with the member that moved up: the way to remove while iterating.
    /// calls   indexOf(ZListIterator_6_0&), remove(unsigned int), backUp(ZListIterator_6_0&).
    /// owns    an owning list deletes the member.
    /// kept    an iterator that has handed out nothing yet is stepped back all the same and is at
    ///         its end then.
    void remove(ZListIterator_6_0& iterator) override;
    /// Removes every member; the capacity stays.
    /// calls   nothing else.
    /// owns    an owning list deletes them.
    /// throws  what a member's destructor raises first; every member is gone then.
    void removeAll() override;
    /// Returns the member at `index`; null when `index >= size()`.
    /// owns    borrowed until the list lets the member go.
    ZObject_6_0* get(unsigned int index) const override
    {
        return __builtin_expect(index < count_, 1) ? elements_[index] : nullptr;
    }
    /// Replaces the member at `index` by `obj`; nothing happens when `index >= size()`.
    /// calls   nothing else.
    /// owns    an owning list stores `obj->clone()` and deletes the old member.
    /// throws  what clone() raises.
    void set(unsigned int index, ZObject_6_0 const* obj) override;
    /// Returns the index of the first member that `obj` equals; -1 when there is none or `obj` is
    /// null. Nulls in the list are passed over.
    /// calls   nothing else.
    int indexOf(ZObject_6_0 const* obj) const override;
    /// Returns the index of the last member that `obj` equals; -1 when there is none or `obj` is
    /// null. Nulls in the list are passed over.
    /// calls   nothing else.
    int lastIndexOf(ZObject_6_0 const* obj) const override;
    /// Adds the members from index `from` to index `to`, both included, to `target`; nothing
    /// happens unless `from <= to` and `to < size()`.
    /// calls   get(); `target.add()`.
    /// owns    as `target.add()` does.
    /// throws  what `target.add()` raises; what it had added is removed again.
    void subList(ZList_6_0& target, unsigned int from, unsigned int to) const override;
    /// Exchanges two members; nothing happens unless both indexes are below `size()`.
    /// calls   nothing else.
    void swap(unsigned int one, unsigned int other) override;
    /// Returns how many members there is room for before the list grows.
    virtual unsigned int capacity() const;
    /// Puts the members into a random order.
    /// calls   size(), swap().
    /// kept    seeds the C library's generator with the time of day at each call: rand() of the
    ///         whole process starts anew, and two calls within a second shuffle alike.
    void shuffle() override;
    /// calls   the iterator's indexOf().
    int indexOf(ZListIterator_6_0& iterator) override;

private:
    friend ZArrayMap_6_0;    // assign()
    friend ZArrayStack_6_0;  // assign()

    void append(ZObject_6_0 const* obj);
    void makeRoom(size_t count);
    void assign(ZArrayList_6_0 const& source);
    unsigned int copyMembers(ZObject_6_0** slots, unsigned int room, int owns) const;

    unsigned int capacity_;  // at least 1, as when slots_ last rose or count_ last fell; capacity()
                             // adds what the list has grown by since
    ZObject_6_0** elements_;  // never null
    unsigned int count_;      // slots in use, from the first one on
    int owns_;                // not 0: clones and deletes
    unsigned int room_;       // slots that add() may fill itself: slots_ once append() has found
                              // this to be no derived class's list, else 0
    unsigned int slots_;      // slots in elements_
};

class ZListIterator_6_0 : public ZAbstractIterator_6_0 {
public:
    /// Makes an iterator that stands before the first member.
    /// owns    `list` is borrowed and must outlive the iterator. Changes to the list do not harm
    ///         the iterator: it goes on by index.
    explicit ZListIterator_6_0(ZList_6_0 const& list);
    /// Makes an iterator over the same list, at the same place.
    ZListIterator_6_0(ZListIterator_6_0 const&) = default;
    /// Takes over list and place of the other iterator.
    ZListIterator_6_0& operator=(ZListIterator_6_0 const&) = default;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZListIterator_6_0() override;

    /// Returns an iterator over the same list, at the same place.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;
    bool hasMore() override;
    ZObject_6_0* getNext() override;
    /// Goes back before the first member.
    virtual void reset();
    /// Goes back by one member.
    /// kept    before the first member the place wraps round: the iterator is at its end then and
    ///         stays there until `reset()`.
    virtual void backUp();
    /// Returns the index of the member handed out last; -1 when there is none.
    virtual int indexOf();

private:
    unsigned int next_;      // index of what getNext() hands out
    ZList_6_0 const* list_;  // never null; not owned
};
