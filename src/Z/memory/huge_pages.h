// huge_pages: asks the system to back large blocks with huge pages.
#pragma once

#include <stddef.h>

namespace zmemory {

/// Advises the system to back `block`, of `size` bytes, with huge pages if it is large.
void preferLargePages(void* block, size_t size);

}  // namespace zmemory
