// text_buffer: text that is composed piece by piece.
#pragma once

#include <stddef.h>
#include <string.h>

#include <string_view>
#include <utility>

#include "../memory/huge_pages.h"
#include "../memory/owned_block.h"
#include "raise_sites.h"

namespace zstanza {

// A text that is made piece by piece.
class TextBuffer {
public:
    TextBuffer() = default;
    TextBuffer(TextBuffer const&) = delete;
    TextBuffer& operator=(TextBuffer const&) = delete;

    void add(std::string_view text) { memcpy(take(text.size()), text.data(), text.size()); }

    // Adds `text`, a literal, without its zero byte.
    template <size_t Size>
    void add(char const (&text)[Size])
    {
        memcpy(take(Size - 1), text, Size - 1);
    }

    // Adds `length` bytes, which the caller fills.
    char* take(size_t length)
    {
        if (room_ - length_ <= length)
            grow(length);
        return chars_.data() + std::exchange(length_, length_ + length);
    }

    // Makes room for a text of about `length` bytes at once.
    void expect(size_t length)
    {
        if (room_ <= length)
            setRoom(length + 1);
    }

    char const* chars() const { return chars_.data(); }
    size_t length() const { return length_; }

    // Hands the text over; it is released with free().
    char* release()
    {
        length_ = room_ = 0;
        return chars_.release();
    }

private:
    void grow(size_t length)
    {
        size_t const wished = room_ * 2 < 4096 ? 4096 : room_ * 2;
        setRoom(wished <= length_ + length ? length_ + length + 1 : wished);
    }

    void setRoom(size_t room)
    {
        chars_.resize(room, kSource, raiseInAllocate);
        zmemory::preferLargePages(chars_.data(), room);
        room_ = room;
    }

    zmemory::OwnedBlock<char> chars_;
    size_t length_ = 0;
    size_t room_ = 0;
};

}  // namespace zstanza
