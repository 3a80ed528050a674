#include "memory.h"

#include <stdlib.h>

#include "../memory/huge_pages.h"
#include "../stanza/raise_sites.h"

namespace zcache {

void* reallocate(void* block, size_t size)
{
    void* const moved = realloc(block, size);
    if (moved == nullptr)
        zstanza::throwOutOfMemory();
    zmemory::preferHugePages(moved, size);
    return moved;
}

}  // namespace zcache
