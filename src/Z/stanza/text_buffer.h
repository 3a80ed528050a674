// text_buffer: a growing block of text, for composing a file.
#pragma once

#include <stddef.h>
#include <string.h>

#include <string_view>
#include <utility>

#include "../memory/huge_pages.h"
#include "../memory/owned_block.h"
#include "raise_sites.h"

namespace zstanza {

class TextBuffer {
public:
    TextBuffer() = default;
    TextBuffer(TextBuffer const&) = delete;
    TextBuffer& operator=(TextBuffer const&) = delete;

    void add(std::string_view text) { memcpy(append(text.size()), text.data(), text.size()); }

    /// Appends a string literal, without its last zero byte.
    template <size_t Size>
    void add(char const (&text)[Size])
    {
        memcpy(append(Size - 1), text, Size - 1);
    }

    /// Appends `length` bytes, which the caller fills.
    char* append(size_t length)
    {
        if (capacity_ - length_ <= length)
            grow(length);
        return chars_.data() + std::exchange(length_, length_ + length);
    }

    /// Allocates memory for `length` bytes in one step.
    void reserve(size_t length)
    {
        if (capacity_ <= length)
            setCapacity(length + 1);
    }

    /// Empties the buffer, and keeps its memory.
    void clear() { length_ = 0; }

    char const* chars() const { return chars_.data(); }
    size_t length() const { return length_; }

    /// Returns the text and empties the buffer.
    /// owns    owned by the caller; released with free().
    char* release()
    {
        length_ = capacity_ = 0;
        return chars_.release();
    }

private:
    void grow(size_t length)
    {
        size_t const wanted = capacity_ * 2 < 4096 ? 4096 : capacity_ * 2;
        setCapacity(wanted <= length_ + length ? length_ + length + 1 : wanted);
    }

    void setCapacity(size_t capacity)
    {
        chars_.resize(capacity, kSource, raiseInAllocate);
        zmemory::preferHugePages(chars_.data(), capacity);
        capacity_ = capacity;
    }

    zmemory::OwnedBlock<char> chars_;
    size_t length_ = 0;
    size_t capacity_ = 0;
};

}  // namespace zstanza
