// huge_pages: requests huge pages for large blocks, because faulting in small pages takes longer
// than filling such a block.
#pragma once

#include <stddef.h>

namespace zmemory {

inline constexpr size_t kHugePage = size_t{2} << 20;

/// Requests huge pages for `block` if `size`, in bytes, is at least 4 MiB. This is only advice: it
/// may fail, and errno is unchanged.
void preferHugePages(void* block, size_t size);

/// Allocates `size` bytes, as whole huge pages if they fill at least one. Returns null if memory is
/// exhausted.
/// owns    owned by the caller; released with free(), or enlarged with realloc().
void* allocateLarge(size_t size);

/// As allocateLarge(); all bytes are zero.
void* allocateLargeZeroed(size_t size);

}  // namespace zmemory
