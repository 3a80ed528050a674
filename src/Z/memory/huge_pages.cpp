#include "huge_pages.h"

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

namespace zmemory {

namespace {

constexpr size_t kHugePageThreshold = 1 << 22;

void advise(void* block, size_t size)
{
    // Round outward to whole pages: advice for part of a mapping splits it, and a split mapping
    // cannot grow without a copy.
    size_t const page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    uintptr_t const begin = reinterpret_cast<uintptr_t>(block) & ~(page - 1);
    uintptr_t const end = (reinterpret_cast<uintptr_t>(block) + size + page - 1) & ~(page - 1);
    int const before = errno;
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
    errno = before;
}

}  // namespace

void preferHugePages(void* block, size_t size)
{
    if (size >= kHugePageThreshold)
        advise(block, size);
}

void* allocateLarge(size_t size)
{
    if (size < kHugePage || size > SIZE_MAX - kHugePage)
        return malloc(size);
    size_t const whole = (size + kHugePage - 1) / kHugePage * kHugePage;
    void* const block = aligned_alloc(kHugePage, whole);
    if (block != nullptr)
        advise(block, whole);
    return block;
}

void* allocateLargeZeroed(size_t size)
{
    if (size < kHugePage)
        return calloc(size, 1);
    void* const block = allocateLarge(size);
    return block != nullptr ? memset(block, 0, size) : nullptr;
}

}  // namespace zmemory
