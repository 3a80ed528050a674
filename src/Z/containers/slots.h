// slots: searches and fills slots, the pointers to objects that a container stores.
#pragma once

#include <utility>

#include "../ZObject.h"

namespace zcontainers {

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

}  // namespace zcontainers
