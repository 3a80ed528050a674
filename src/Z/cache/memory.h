// memory: reallocation of heap blocks, with huge pages for large blocks.
#pragma once

#include <stddef.h>

#include "../memory/malloc_ptr.h"

namespace zcache {

/// As realloc().
/// throws  ZOutOfMemoryException_6_0; the block is unchanged then.
void* reallocate(void* block, size_t size);

/// Reallocates the block for `count` values; keeps its values up to that number.
/// throws  ZOutOfMemoryException_6_0; the block is unchanged then.
template <class T>
void reallocate(zmemory::MallocPtr<T[]>& block, size_t count)
{
    void* const moved = reallocate(static_cast<void*>(block.get()), count * sizeof(T));
    (void)block.release();  // realloc() has freed it or returned it again
    block.reset(static_cast<T*>(moved));
}

}  // namespace zcache
