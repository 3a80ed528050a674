#include "FailingAllocator.h"

#include <errno.h>
#include <stdlib.h>

// The replacements call the C library's own functions or the sanitizer's.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define UNDER_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define UNDER_SANITIZER 1
#endif
// clang links all of ThreadSanitizer into the program, where it cannot be replaced.
#if __has_feature(thread_sanitizer)
#define NOTHING_FAILS 1
#endif
#endif

extern "C" {
#ifdef UNDER_SANITIZER
void* __interceptor_malloc(size_t);
void* __interceptor_calloc(size_t, size_t);
void* __interceptor_realloc(void*, size_t);
void* __interceptor_aligned_alloc(size_t, size_t);
int __interceptor_posix_memalign(void**, size_t, size_t);
void __interceptor_free(void*);
#else
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
void __libc_free(void*);
#endif
}

#ifdef UNDER_SANITIZER
// A leak checker knows the loader's own blocks by their caller, and that is malloc() below now.
extern "C" char const* __lsan_default_suppressions()
{
    return "leak:_dl_map_object\nleak:add_to_global_resize\n";
}
extern "C" char const* __lsan_default_options()
{
    return "print_suppressions=0";
}
#endif

// The replacements run before a sanitizer is ready, so they must not be instrumented.
#define PLAIN __attribute__((no_sanitize("address"), no_sanitize("thread")))

namespace {

thread_local unsigned long asked_;
thread_local unsigned long failing_;  // number of the allocation that fails; 0: none does
thread_local bool forEver_;
thread_local bool failed_;
thread_local long blocks_;

// Counts one allocation. Returns whether it is to fail.
PLAIN bool fails()
{
    ++asked_;
    if (failing_ == 0 || asked_ < failing_ || (asked_ > failing_ && !forEver_))
        return false;
    failed_ = true;
    errno = ENOMEM;
    return true;
}

PLAIN void* counted(void* block)
{
    if (block != nullptr)
        ++blocks_;
    return block;
}

}  // namespace

void FailingAllocator::failAt(unsigned long n, Mode mode)
{
    asked_ = 0;
    failed_ = false;
    forEver_ = mode == forEver;
    failing_ = n;
}

bool FailingAllocator::stop()
{
    failing_ = 0;
    return failed_;
}

unsigned long FailingAllocator::asked()
{
    return asked_;
}

long FailingAllocator::blocks()
{
    return blocks_;
}

#if !defined(Z_TEST_ONLY_OPERATOR_NEW) && !defined(NOTHING_FAILS)

extern "C" {

#ifdef UNDER_SANITIZER

PLAIN void* malloc(size_t size)
{
    return fails() ? nullptr : counted(__interceptor_malloc(size));
}

PLAIN void* calloc(size_t count, size_t size)
{
    return fails() ? nullptr : counted(__interceptor_calloc(count, size));
}

PLAIN void* realloc(void* block, size_t size)
{
    if (fails())
        return nullptr;
    void* const moved = __interceptor_realloc(block, size);
    if (block == nullptr)
        counted(moved);
    else if (moved == nullptr && size == 0)
        --blocks_;
    return moved;
}

// The sanitizers have a reallocarray() of their own, which does not call realloc().
PLAIN void* reallocarray(void* block, size_t count, size_t size)
{
    size_t bytes;
    if (__builtin_mul_overflow(count, size, &bytes)) {
        errno = ENOMEM;
        return nullptr;
    }
    return realloc(block, bytes);
}

PLAIN void* aligned_alloc(size_t alignment, size_t size)
{
    return fails() ? nullptr : counted(__interceptor_aligned_alloc(alignment, size));
}

PLAIN int posix_memalign(void** block, size_t alignment, size_t size)
{
    if (fails())
        return ENOMEM;
    int const rc = __interceptor_posix_memalign(block, alignment, size);
    if (rc == 0)
        counted(*block);
    return rc;
}

PLAIN void free(void* block)
{
    if (block != nullptr)
        --blocks_;
    __interceptor_free(block);
}

#else

PLAIN void* malloc(size_t size)
{
    return fails() ? nullptr : counted(__libc_malloc(size));
}

PLAIN void* calloc(size_t count, size_t size)
{
    return fails() ? nullptr : counted(__libc_calloc(count, size));
}

PLAIN void* realloc(void* block, size_t size)
{
    if (fails())
        return nullptr;
    void* const moved = __libc_realloc(block, size);
    if (block == nullptr)
        counted(moved);
    else if (moved == nullptr && size == 0)
        --blocks_;
    return moved;
}

PLAIN void* aligned_alloc(size_t alignment, size_t size)
{
    return fails() ? nullptr : counted(__libc_memalign(alignment, size));
}

PLAIN int posix_memalign(void** block, size_t alignment, size_t size)
{
    if (fails())
        return ENOMEM;
    void* const made = __libc_memalign(alignment, size);
    if (made == nullptr)
        return ENOMEM;
    *block = counted(made);
    return 0;
}

PLAIN void free(void* block)
{
    if (block != nullptr)
        --blocks_;
    __libc_free(block);
}

#endif

}  // extern "C"

#endif

#if (defined(UNDER_SANITIZER) || defined(Z_TEST_ONLY_OPERATOR_NEW)) && !defined(NOTHING_FAILS)

namespace {

#ifdef Z_TEST_ONLY_OPERATOR_NEW
PLAIN void* take(size_t size)
{
    return fails() ? nullptr : counted(malloc(size));
}

PLAIN void give(void* block)
{
    if (block != nullptr)
        --blocks_;
    free(block);
}
#else
PLAIN void* take(size_t size)
{
    return malloc(size);
}

PLAIN void give(void* block)
{
    free(block);
}
#endif

PLAIN void* takeOrThrow(size_t size)
{
    void* const block = take(size == 0 ? 1 : size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

}  // namespace

PLAIN void* operator new(size_t size)
{
    return takeOrThrow(size);
}

PLAIN void* operator new[](size_t size)
{
    return takeOrThrow(size);
}

PLAIN void* operator new(size_t size, std::nothrow_t const&) noexcept
{
    return take(size == 0 ? 1 : size);
}

PLAIN void* operator new[](size_t size, std::nothrow_t const&) noexcept
{
    return take(size == 0 ? 1 : size);
}

PLAIN void operator delete(void* block) noexcept
{
    give(block);
}

PLAIN void operator delete[](void* block) noexcept
{
    give(block);
}

PLAIN void operator delete(void* block, size_t) noexcept
{
    give(block);
}

PLAIN void operator delete[](void* block, size_t) noexcept
{
    give(block);
}

PLAIN void operator delete(void* block, std::nothrow_t const&) noexcept
{
    give(block);
}

PLAIN void operator delete[](void* block, std::nothrow_t const&) noexcept
{
    give(block);
}

#endif
