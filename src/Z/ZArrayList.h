// ZArrayList: a growing list, and its iterator.
//
// Subsystem: collections.  Stands on: ZObject, ZException, ZIterator, ZSortCompare, ZArray.
//
// Ownership is fixed at construction: an owning list stores clones and deletes an element that it
// removes or replaces; a borrowing list stores the caller's pointers and deletes nothing.
// addNoCopy() stores the pointer itself in both; an owning list takes it over.
// Range: an index out of range is not an error; the call does nothing, or returns null.
// Either kind of list may contain nulls.
// Threads: unsynchronised; callers serialise access to one list.
// Failures: an operation that throws leaves the elements unchanged.
// Callbacks: the functions that a list calls (clone(), equals(), a destructor, a comparator, the
// target of subList()) may read the list. Except for destructors during removeAll(), they may also
// change it, but not the elements that they were called with: the operation continues with the
// changed list.
// Derived classes: an operation calls the virtual operations listed in its line `calls`, so an
// override of them takes effect. A list of exactly a class of this library may skip those calls.
#pragma once

#include "ZIterator.h"
#include "ZObject.h"
#include "ZSortCompare.h"

class ZAbstractObservable_6_0;
class ZArrayMap_6_0;
class ZArrayStack_6_0;
class ZListIterator_6_0;

/// The interface of lists: an ordered sequence of objects that can grow.
class ZList_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Returns the number of elements.
    virtual unsigned int size() const = 0;
    /// Returns whether the list has no elements.
    virtual bool isEmpty() const = 0;
    /// Returns whether `obj` equals an element.
    virtual bool contains(ZObject_6_0 const* obj) const = 0;
    /// Appends `obj`.
    virtual void add(ZObject_6_0 const* obj) = 0;
    /// Inserts `obj` before the element at `index`; an index of `size()` appends.
    virtual void add(unsigned int index, ZObject_6_0 const* obj) = 0;
    /// Appends every element of `other`, in order.
    virtual void addList(ZList_6_0 const& other) = 0;
    /// Removes the first element that `obj` equals.
    virtual void remove(ZObject_6_0 const* obj) = 0;
    /// Removes the element at `index`; the elements after it move up.
    virtual void remove(unsigned int index) = 0;
    /// Removes the element that `iterator` returned last; the iterator continues with the next.
    virtual void remove(ZListIterator_6_0& iterator) = 0;
    /// Removes every element.
    virtual void removeAll() = 0;
    /// Returns the element at `index`; null if the index is out of range.
    virtual ZObject_6_0* get(unsigned int index) const = 0;
    /// Replaces the element at `index` by `obj`.
    virtual void set(unsigned int index, ZObject_6_0 const* obj) = 0;
    /// Returns the index of the first element that `obj` equals; -1 if not found.
    virtual int indexOf(ZObject_6_0 const* obj) const = 0;
    /// Sorts the elements.
    virtual void sort(ZSortCompare_6_0 const& comparator,
                      ZSortCompare_6_0::sortorder const& order) = 0;
    /// Returns the index of the last element that `obj` equals; -1 if not found.
    virtual int lastIndexOf(ZObject_6_0 const* obj) const = 0;
    /// Appends the elements from index `from` to index `to`, both included, to `target`.
    virtual void subList(ZList_6_0& target, unsigned int from, unsigned int to) const = 0;
    /// Exchanges two elements.
    virtual void swap(unsigned int one, unsigned int other) = 0;
    /// Shuffles the elements.
    virtual void shuffle() = 0;
    /// Steps `iterator` back by one element.
    /// calls   the iterator's backUp().
    virtual void backUp(ZListIterator_6_0& iterator);
    /// Returns the index of the element that `iterator` returned last.
    /// calls   the iterator's indexOf().
    virtual int indexOf(ZListIterator_6_0& iterator);

protected:
    ZList_6_0() = default;
    ZList_6_0(ZList_6_0 const&) = default;
    ZList_6_0& operator=(ZList_6_0 const&) = default;
    ~ZList_6_0() = default;
};

/// The base class of lists. It sorts any list through the interface.
class ZAbstractList_6_0 : public ZObject_6_0, public ZList_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZAbstractList_6_0() override;

    /// Returns whether the list has no elements.
    /// calls   size().
    bool isEmpty() const override;
    /// Sorts the elements by quicksort, which is not stable.
    /// calls   size(), get(), swap().
    /// range   nulls are neither compared nor moved.
    /// throws  any exception of `comparator`; ZOutOfMemoryException_6_0 for long lists only. The
    ///         list still has every element then.
    /// cost    O(n log n) comparisons for every input; usually constant memory. A part that is
    ///         still long after 2 * log2(n) partitions is merge-sorted, with 12 bytes per element;
    ///         the comparator's second argument is then not the pivot of a partition.
    ///         A ZArrayList_6_0 whose elements are all of one of the library's string classes is
    ///         sorted by keys if the comparator is a ZDefaultSortCompare_6_0, with the same
    ///         result: 32 bytes per element, and in a locale that does not collate by bytes up to
    ///         256 MiB of collation keys and 4 bytes per element. Without that memory, and for
    ///         strings that are long in such a locale, it compares the strings.
    void sort(ZSortCompare_6_0 const& comparator,
              ZSortCompare_6_0::sortorder const& order) override;

protected:
    /// Sorts the elements from index `low` to index `high`, both included. An index of `size()` is
    /// harmless: get() returns null for it, and swap() does nothing.
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
    /// Makes a list with the capacity, the ownership and the elements of `source`.
    /// calls   size() and get() of `source`.
    /// owns    an owning copy holds clones; a borrowing one the same pointers.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    ZArrayList_6_0(ZArrayList_6_0 const& source);
    /// Copies the elements of `source` and releases the old ones as removeAll() does. Assigning a
    /// list to itself does nothing.
    /// calls   removeAll(), addList().
    /// owns    this list's own flag decides whether clones or the same pointers are stored.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone(). A list of a caller's class is
    ///         then empty.
    /// kept    neither the ownership flag nor the capacity is assigned, though the copy constructor
    ///         copies both.
    ZArrayList_6_0& operator=(ZArrayList_6_0 const& source);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZArrayList_6_0() override;

    /// Returns a copy of the list.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone().
    ZObject_6_0* clone() const override;

    unsigned int size() const override { return count_; }
    /// Returns the flag given at construction: not 0 if the list owns its elements.
    virtual int ownsMembers() const { return owns_; }
    /// Returns whether `obj` equals an element.
    /// calls   indexOf().
    bool contains(ZObject_6_0 const* obj) const override;
    /// Appends `obj`.
    /// calls   size(), addNoCopy(unsigned int, ZObject_6_0 const*).
    /// owns    an owning list stores `obj->clone()`; `obj` stays the caller's either way.
    /// throws  ZOutOfMemoryException_6_0; any exception of clone().
    /// cost    O(1) amortised, plus one clone in an owning list.
    void add(ZObject_6_0 const* obj) override
    {
        if (owns_ == 0 && count_ < room_)
            elements_[count_++] = const_cast<ZObject_6_0*>(obj);
        else
            append(obj);
    }
    /// Inserts `obj` before the element at `index`; does nothing if `index > size()`.
    /// calls   size(), addNoCopy(unsigned int, ZObject_6_0 const*).
    /// owns    an owning list stores `obj->clone()`; `obj` stays the caller's either way.
    /// throws  ZOutOfMemoryException_6_0; any exception of clone().
    void add(unsigned int index, ZObject_6_0 const* obj) override;
    /// Appends every element that `other` has at the time of the call, in order. `other` may be
    /// this list.
    /// calls   size() and get() of `other`; add(ZObject_6_0 const*).
    /// owns    an owning list stores clones.
    /// throws  ZOutOfMemoryException_6_0; any exception of a clone(). A list of a caller's class
    ///         then removes elements from its end, down to its old size.
    void addList(ZList_6_0 const& other) override;
    /// Appends `obj` itself, without a clone.
    /// calls   size(), addNoCopy(unsigned int, ZObject_6_0 const*).
    /// owns    an owning list takes `obj` over, unless the call throws.
    /// throws  ZOutOfMemoryException_6_0.
    virtual void addNoCopy(ZObject_6_0 const* obj);
    /// Inserts `obj` itself before the element at `index`, without a clone; does nothing if
    /// `index > size()`. Every other operation that adds an element calls this one.
    /// calls   nothing else.
    /// owns    an owning list takes `obj` over, except if `index > size()` or the call throws.
    /// throws  ZOutOfMemoryException_6_0.
    /// cost    O(elements before or after `index`, whichever are fewer), amortised. A full list
    ///         grows by half its capacity, at least by one.
    virtual void addNoCopy(unsigned int index, ZObject_6_0 const* obj);
    /// Removes the first element that `obj` equals.
    /// calls   indexOf(ZObject_6_0 const*), remove(unsigned int).
    /// owns    an owning list deletes the element.
    void remove(ZObject_6_0 const* obj) override;
    /// Removes the element at `index`; does nothing if `index >= size()`.
    /// calls   nothing else.
    /// owns    an owning list deletes the element.
    /// cost    O(elements before or after `index`, whichever are fewer).
    void remove(unsigned int index) override;
    /// Removes the element that `iterator` returned last and steps the iterator back, so that it
    /// continues with the following element. Use this to remove while iterating.
    /// calls   indexOf(ZListIterator_6_0&), remove(unsigned int), backUp(ZListIterator_6_0&).
    /// owns    an owning list deletes the element.
    /// kept    an iterator that has returned nothing yet is stepped back too, and is then at its
    ///         end.
    void remove(ZListIterator_6_0& iterator) override;
    /// Removes every element; the capacity stays.
    /// calls   nothing else.
    /// owns    an owning list deletes the elements.
    /// throws  the first exception of a destructor, after every element has been removed.
    void removeAll() override;
    /// Returns the element at `index`; null if `index >= size()`.
    /// owns    borrowed until the list removes or replaces the element.
    ZObject_6_0* get(unsigned int index) const override
    {
        return __builtin_expect(index < count_, 1) ? elements_[index] : nullptr;
    }
    /// Replaces the element at `index` by `obj`; does nothing if `index >= size()`.
    /// calls   nothing else.
    /// owns    an owning list stores `obj->clone()` and deletes the old element.
    /// throws  any exception of clone().
    void set(unsigned int index, ZObject_6_0 const* obj) override;
    /// Returns the index of the first element that `obj` equals; -1 if not found or `obj` is null.
    /// Skips nulls.
    /// calls   nothing else.
    int indexOf(ZObject_6_0 const* obj) const override;
    /// Returns the index of the last element that `obj` equals; -1 if not found or `obj` is null.
    /// Skips nulls.
    /// calls   nothing else.
    int lastIndexOf(ZObject_6_0 const* obj) const override;
    /// Appends the elements from index `from` to index `to`, both included, to `target`. Does
    /// nothing unless `from <= to` and `to < size()`.
    /// calls   get(); `target.add()`.
    /// owns    as `target.add()` does.
    /// throws  any exception of `target.add()`, after the elements added so far were removed.
    void subList(ZList_6_0& target, unsigned int from, unsigned int to) const override;
    /// Exchanges two elements; does nothing unless both indexes are below `size()`.
    /// calls   nothing else.
    void swap(unsigned int one, unsigned int other) override;
    /// Returns the number of elements that the list can hold before it grows.
    virtual unsigned int capacity() const;
    /// Shuffles the elements.
    /// calls   size(), swap().
    /// kept    seeds the C library's rand() of the whole process with the time of day at each call,
    ///         so two calls within a second shuffle alike.
    void shuffle() override;
    /// Returns the index of the element that `iterator` returned last.
    /// calls   the iterator's indexOf().
    int indexOf(ZListIterator_6_0& iterator) override;

private:
    friend ZAbstractList_6_0;        // sort()
    friend ZAbstractObservable_6_0;  // the constructor of lists that often stay empty
    friend ZArrayMap_6_0;            // assign()
    friend ZArrayStack_6_0;          // assign()

    explicit ZArrayList_6_0(int owns);  // empty, without slots

    void append(ZObject_6_0 const* obj);
    void makeRoom(size_t count);
    void makeRoomInFront();
    void slide(unsigned int front);
    void assign(ZArrayList_6_0 const& source);
    unsigned int copyMembers(ZObject_6_0** slots, unsigned int room, int owns) const;

    unsigned int capacity_;   // at least 1; capacity() when slots_ last rose or count_ last fell,
                              // without the growth since then
    unsigned int front_;      // free slots before elements_
    ZObject_6_0** elements_;  // in a block that starts `front_` slots before; null if slots_ is 0
    unsigned int count_;      // slots in use
    int owns_;                // not 0: clones and deletes
    unsigned int room_;       // slots that the inline add() may fill: slots_ once append() has seen
                              // that the list is not of a derived class, else 0
    unsigned int slots_;      // slots from elements_ to the end of its block
};

/// Iterates over a list in order. The list may change during the iteration;
/// `list.remove(iterator)` removes the element that the iterator returned last.
class ZListIterator_6_0 : public ZAbstractIterator_6_0 {
public:
    /// Makes an iterator before the first element.
    /// owns    `list` is borrowed and must outlive the iterator. Changes to the list do not harm
    ///         the iterator, which continues by index.
    explicit ZListIterator_6_0(ZList_6_0 const& list);
    /// Makes an iterator over the same list, at the same position.
    ZListIterator_6_0(ZListIterator_6_0 const&) = default;
    /// Copies list and position of the other iterator.
    ZListIterator_6_0& operator=(ZListIterator_6_0 const&) = default;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZListIterator_6_0() override;

    /// Returns an iterator over the same list, at the same position.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;
    bool hasMore() override;
    ZObject_6_0* getNext() override;
    /// Moves back before the first element.
    virtual void reset();
    /// Moves back by one element.
    /// kept    before the first element the index wraps around: the iterator is then at its end
    ///         until `reset()`.
    virtual void backUp();
    /// Returns the index of the element returned last; -1 before the first.
    virtual int indexOf();

private:
    unsigned int next_;      // index of the element that getNext() returns
    ZList_6_0 const* list_;  // never null; not owned
};
