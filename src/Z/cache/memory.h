// memory: blocks of the C heap.
#pragma once

#include <stddef.h>

namespace zcache {

// As realloc(), but raises ZOutOfMemoryException_6_0.
void* reallocate(void* block, size_t size);

}  // namespace zcache
