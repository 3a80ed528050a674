// malloc_ptr: owns a block of the C heap, which free() releases.
#pragma once

#include <stdlib.h>

#include <memory>

namespace zmemory {

struct FreeDeleter {
    void operator()(void* block) const { free(block); }
};

template <class T>
using MallocPtr = std::unique_ptr<T, FreeDeleter>;

}  // namespace zmemory
