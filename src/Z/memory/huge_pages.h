// huge_pages: requests huge pages for large blocks, because faulting in small pages takes longer
// than filling such a block.
#pragma once

#include <stddef.h>

namespace zmemory {

/// Requests huge pages for `block` if `size`, in bytes, is at least 4 MiB. This is only advice: it
/// may fail, and errno is unchanged.
void preferHugePages(void* block, size_t size);

}  // namespace zmemory
