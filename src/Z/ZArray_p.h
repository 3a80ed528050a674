// ZArray_p: what the containers share. Not installed.
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

/// Returns the index of the first of the `count` members at `slots` that `obj` equals; -1 when
/// there is none or `obj` is null. Both are read afresh for each member: an equals() may change
/// what they are of.
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

/// Returns the index of the last of them, as firstEqual() does that of the first.
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

/// Makes a Rep, the part of an object that its header hides.
/// throws  ZOutOfMemoryException_6_0, at `site` or as the Rep does.
template <class Rep, class... Arguments>
Rep* makeRep(char const* source, int site, Arguments const&... arguments)
{
    Rep* const rep = new (std::nothrow) Rep(arguments...);
    if (rep == nullptr)
        ZOutOfMemoryException_6_0().throwException(source, site);
    return rep;
}

/// Deletes objects one after another, all of them even when a destructor raises.
class ObjectDeleter {
public:
    void drop(ZObject_6_0 const* obj)
    {
        run([obj] { delete obj; });
    }

    /// Calls `deletes()`, which may raise.
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

    /// Raises what the first failing destructor raised.
    void finish()
    {
        if (first_ != nullptr)
            std::rethrow_exception(std::exchange(first_, nullptr));
    }

private:
    std::exception_ptr first_;
};

/// A block of the C heap that holds plain values and may grow.
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

    /// Makes the block one of `count` values, all bytes zero. What it held is gone.
    /// throws  ZOutOfMemoryException_6_0; the block is as it was then.
    void makeZero(size_t count, char const* source, int site)
    {
        void* const block = calloc(count, sizeof(T));
        if (block == nullptr)
            ZOutOfMemoryException_6_0().throwException(source, site);
        free(at_);
        at_ = static_cast<T*>(block);
    }

    /// Makes room for `count` values; those that fit stay.
    /// throws  ZOutOfMemoryException_6_0; the block is as it was then.
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

/// The slots of an array or a list while they are filled: clones in an owning container, the
/// pointers themselves in a borrowing one. What is not released goes with this object.
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
    /// Adds the `count` members at `slots`, which are those of a container. A clone() may change
    /// that container: both are read afresh for each member, and none that comes meanwhile is
    /// added.
    void addAll(ZObject_6_0** const& slots, unsigned int const& count)
    {
        unsigned int const most = count;
        for (unsigned int i = 0; i < most && i < count; ++i)
            add(slots[i]);
    }

    /// Lets go of the slots and returns how many have been filled.
    unsigned int release() { return std::exchange(count_, 0); }

private:
    ZObject_6_0** const slots_;
    int const owns_;
    unsigned int count_ = 0;
};
