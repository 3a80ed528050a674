#include "huge_pages.h"

#include <errno.h>
#include <stdint.h>
#include <sys/mman.h>
#include <unistd.h>

namespace zmemory {

namespace {

constexpr size_t kWorthLargePages = 1 << 22;

}  // namespace

// Lets the system back a large block with large pages: it is touched all over, and to be given it
// in small pages takes longer than to fill it. The pages at its ends are asked for as well: a
// mapping of which only a part is advised is two, and cannot grow without being copied.
void preferLargePages(void* block, size_t size)
{
    if (size < kWorthLargePages)
        return;
    size_t const page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    uintptr_t const begin = reinterpret_cast<uintptr_t>(block) & ~(page - 1);
    uintptr_t const end = (reinterpret_cast<uintptr_t>(block) + size + page - 1) & ~(page - 1);
    int const before = errno;
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);  // advice: it may fail
    errno = before;
}

}  // namespace zmemory
