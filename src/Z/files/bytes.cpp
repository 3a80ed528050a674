#include "bytes.h"

#include <stdlib.h>

#include <new>

#include "../memory/huge_pages.h"

namespace zfiles {

Bytes::Bytes(size_t length)
    : bytes_(static_cast<char*>(zmemory::allocateLarge(length > 0 ? length : 1))), length_(length)
{
    if (bytes_ == nullptr)
        throw std::bad_alloc();
}

void Bytes::grow(size_t length)
{
    void* const block = realloc(bytes_.get(), length);
    if (block == nullptr)
        throw std::bad_alloc();
    (void)bytes_.release();
    bytes_.reset(static_cast<char*>(block));
    length_ = length;
}

}  // namespace zfiles
