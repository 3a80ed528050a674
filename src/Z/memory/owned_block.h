// owned_block: a block of the C heap with one owner.
#pragma once

#include <stdlib.h>

#include <type_traits>
#include <utility>

#include "../ZException.h"
#include "huge_pages.h"

namespace zmemory {

/// An owned block of the C heap that holds an array of plain values and can grow.
template <class T>
class OwnedBlock {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    OwnedBlock() = default;
    OwnedBlock(OwnedBlock const&) = delete;
    OwnedBlock& operator=(OwnedBlock const&) = delete;
    ~OwnedBlock() { free(values_); }

    T& operator[](size_t index) { return values_[index]; }
    T const& operator[](size_t index) const { return values_[index]; }
    T* data() { return values_; }
    T const* data() const { return values_; }

    T* release() { return std::exchange(values_, nullptr); }
    void swap(OwnedBlock& other) { std::swap(values_, other.values_); }
    void clear() { free(release()); }

    /// Replaces the block by `count` values, all bytes zero.
    /// throws  ZOutOfMemoryException_6_0 from `site`; the block is unchanged then.
    void allocateZeroed(size_t count, char const* source, int site)
    {
        replace(calloc(count, sizeof(T)), source, site);
    }

    /// Replaces the block by `count` values without contents, or with all bytes zero, in whole huge
    /// pages if they fill at least one.
    /// throws  as allocateZeroed().
    void allocateLarge(size_t count, char const* source, int site)
    {
        replace(zmemory::allocateLarge(count * sizeof(T)), source, site);
    }
    void allocateLargeZeroed(size_t count, char const* source, int site)
    {
        replace(zmemory::allocateLargeZeroed(count * sizeof(T)), source, site);
    }

    /// Reallocates the block for `count` values; keeps its values up to that number.
    /// throws  ZOutOfMemoryException_6_0 from `site`; the block is unchanged then.
    void resize(size_t count, char const* source, int site)
    {
        void* const block = reallocarray(values_, count, sizeof(T));
        if (block == nullptr)
            ZOutOfMemoryException_6_0().throwException(source, site);
        values_ = static_cast<T*>(block);
    }

private:
    void replace(void* block, char const* source, int site)
    {
        if (block == nullptr)
            ZOutOfMemoryException_6_0().throwException(source, site);
        free(values_);
        values_ = static_cast<T*>(block);
    }

    T* values_ = nullptr;
};

}  // namespace zmemory
