// memory: reallocation of heap blocks, with huge pages for large blocks.
#pragma once

#include <stddef.h>

namespace zcache {

/// As realloc().
/// throws  ZOutOfMemoryException_6_0; the block is unchanged then.
void* reallocate(void* block, size_t size);

}  // namespace zcache
