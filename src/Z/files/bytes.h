// bytes: blocks of memory that the store passes to its callers.
#pragma once

#include <stddef.h>

#include <string_view>

#include "../memory/malloc_ptr.h"

namespace zfiles {

// Bytes from malloc().
class Bytes {
public:
    Bytes() = default;
    /// throws  std::bad_alloc.
    explicit Bytes(size_t length);

    char* data() { return bytes_.get(); }
    char const* data() const { return bytes_.get(); }
    size_t length() const { return length_; }
    std::string_view view() const { return {bytes_.get(), length_}; }
    void setLength(size_t length) { length_ = length; }  // at most the requested length

    /// Enlarges the block and keeps its contents.
    /// throws  std::bad_alloc.
    void grow(size_t length);

    char* release() { return bytes_.release(); }  // released with free()

private:
    zmemory::MallocPtr<char> bytes_;
    size_t length_ = 0;
};

}  // namespace zfiles
