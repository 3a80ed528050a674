// ZArray_p: helpers that the containers share: searching and filling slots, deleting objects,
// owned blocks. Not installed.
#pragma once

#include <stdlib.h>

#include <exception>
#include <new>
#include <type_traits>
#include <utility>

#include "ZException.h"
#include "ZException_p.h"
#include "ZObject.h"

/// Returns a clone of `obj`; null for null.
inline ZObject_6_0* cloneOf(ZObject_6_0 const* obj)
{
    return obj != nullptr ? obj->clone() : nullptr;
}

/// Returns the index of the first of `count` elements at `slots` that `obj` equals; -1 if not found
/// or `obj` is null. Reads `slots` and `count` again for each element, because equals() may change
/// the container.
inline int firstEqual(ZObject_6_0** const& slots, unsigned int const& count, ZObject_6_0 const* obj)
{
    if (obj == nullptr)
        return -1;
    for (unsigned int i = 0; i < count; ++i) {
        if (slots[i] != nullptr && obj->equals(*slots[i]))
            return static_cast<int>(i);
    }
    return -1;
}

/// Returns the index of the last such element, otherwise like firstEqual().
inline int lastEqual(ZObject_6_0** const& slots, unsigned int const& count, ZObject_6_0 const* obj)
{
    if (obj == nullptr)
        return -1;
    for (unsigned int i = count; i-- > 0;) {
        if (i < count && slots[i] != nullptr && obj->equals(*slots[i]))
            return static_cast<int>(i);
    }
    return -1;
}

/// Allocates a Rep, the part of an object that its header hides.
/// throws  ZOutOfMemoryException_6_0 from `site`; any exception of the Rep's constructor.
template <class Rep, class... Arguments>
Rep* makeRep(char const* source, int site, Arguments const&... arguments)
{
    Rep* const rep = new (std::nothrow) Rep(arguments...);
    if (rep == nullptr)
        ZOutOfMemoryException_6_0().throwException(source, site);
    return rep;
}

/// Deletes objects one after another, all of them even if a destructor throws.
class ObjectDeleter {
public:
    void drop(ZObject_6_0 const* obj)
    {
        run([obj] { delete obj; });
    }

    /// Calls `deletes()`, which may throw. A cancellation passes through.
    template <class Deletes>
    void run(Deletes deletes)
    {
        try {
            deletes();
        } catch (...) {
            if (zcaughtCancellation())
                throw;
            if (first_ == nullptr)
                first_ = std::current_exception();
        }
    }

    /// Throws the first exception caught by drop() and run(), if any.
    void finish()
    {
        if (first_ != nullptr)
            std::rethrow_exception(std::exchange(first_, nullptr));
    }

private:
    std::exception_ptr first_;
};

/// An owned block of the C heap that holds an array of plain values and can grow.
template <class T>
class PlainBlock {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    PlainBlock() = default;
    PlainBlock(PlainBlock const&) = delete;
    PlainBlock& operator=(PlainBlock const&) = delete;
    ~PlainBlock() { free(at_); }

    T& operator[](size_t index) { return at_[index]; }
    T const& operator[](size_t index) const { return at_[index]; }
    T* data() { return at_; }
    T const* data() const { return at_; }

    T* release() { return std::exchange(at_, nullptr); }
    void swap(PlainBlock& other) { std::swap(at_, other.at_); }
    void clear() { free(release()); }

    /// Replaces the block by `count` values, all bytes zero.
    /// throws  ZOutOfMemoryException_6_0 from `site`; the block is unchanged then.
    void makeZero(size_t count, char const* source, int site)
    {
        void* const block = calloc(count, sizeof(T));
        if (block == nullptr)
            ZOutOfMemoryException_6_0().throwException(source, site);
        free(at_);
        at_ = static_cast<T*>(block);
    }

    /// Reallocates the block for `count` values; keeps its values up to that number.
    /// throws  ZOutOfMemoryException_6_0 from `site`; the block is unchanged then.
    void resize(size_t count, char const* source, int site)
    {
        void* const block = reallocarray(at_, count, sizeof(T));
        if (block == nullptr)
            ZOutOfMemoryException_6_0().throwException(source, site);
        at_ = static_cast<T*>(block);
    }

private:
    T* at_ = nullptr;
};

/// Fills the slots of an array or a list: with clones for an owning container, with the pointers
/// themselves for a borrowing one. The destructor deletes the clones unless release() was called.
class SlotFiller {
public:
    SlotFiller(ZObject_6_0** slots, int owns) : slots_(slots), owns_(owns) {}
    SlotFiller(SlotFiller const&) = delete;
    SlotFiller& operator=(SlotFiller const&) = delete;
    ~SlotFiller()
    {
        if (owns_ != 0) {
            while (count_ > 0)
                delete std::exchange(slots_[--count_], nullptr);
        }
    }

    void add(ZObject_6_0* obj)
    {
        slots_[count_] = owns_ != 0 ? cloneOf(obj) : obj;
        ++count_;
    }
    /// Adds the `count` elements at `slots`, both of them fields of a container. A clone() may
    /// change that container, so both are read again for each element; elements that a clone()
    /// appends are not added.
    void addAll(ZObject_6_0** const& slots, unsigned int const& count)
    {
        unsigned int const most = count;
        for (unsigned int i = 0; i < most && i < count; ++i)
            add(slots[i]);
    }

    /// Gives up ownership of the clones and returns the number of filled slots.
    unsigned int release() { return std::exchange(count_, 0); }

private:
    ZObject_6_0** const slots_;
    int const owns_;
    unsigned int count_ = 0;
};
