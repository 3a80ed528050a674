// arena: a bump allocator for strings, which are freed by the block.
//
// A string never moves, is zero-terminated and contains no other zero byte. Its 32-bit id is a
// 12-bit window number and an offset in the 1 MiB window; a large chunk spans several windows.
#pragma once

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <string_view>

#include "ids.h"

namespace zcache {

constexpr size_t kMaxStringLength = 0xFFFFFFF0u;  // records hold lengths in 32 bits

/// Views a zero-terminated string; null is viewed as "".
/// throws  ZOutOfMemoryException_6_0 if it is longer than kMaxStringLength.
std::string_view checkedView(char const* text);

class Arena {
public:
    Arena() = default;
    Arena(Arena const&) = delete;
    Arena& operator=(Arena const&) = delete;
    ~Arena() { clear(); }

    // A block that a caller fills before an arena takes it over with adopt().
    class Block {
    public:
        Block() = default;
        Block(Block const&) = delete;
        Block& operator=(Block const&) = delete;
        ~Block() { free(chunk_); }

        char* chars() { return chunk_->begin(); }
        size_t capacity() const { return capacity_; }

        /// Reallocates the block; keeps its bytes up to the new capacity.
        void setCapacity(size_t capacity);

    private:
        friend class Arena;
        struct Chunk {
            char* begin() { return reinterpret_cast<char*>(this + 1); }
            bool holds(char const* text)
            {
                return reinterpret_cast<uintptr_t>(text) - reinterpret_cast<uintptr_t>(begin()) <
                       size;
            }
            StringId idOf(char const* text)
            {
                return (window << kWindowBits) + static_cast<StringId>(text - begin());
            }

            Chunk* next;
            uint32_t size;
            uint32_t window;  // the first window
        };
        Chunk* chunk_ = nullptr;
        size_t capacity_ = 0;
    };

    char const* at(StringId text) const
    {
        return reinterpret_cast<char const*>(windows_[text >> kWindowBits] + text);
    }

    std::string_view view(StringId text) const
    {
        char const* const chars = at(text);
        return {chars, strlen(chars)};
    }

    /// Views a string whose length encodeLength() has encoded.
    std::string_view view(StringId text, uint16_t length) const
    {
        return length == kLengthUnknown ? view(text) : std::string_view(at(text), length);
    }

    /// Encodes a length in 16 bits, which saves view() a strlen().
    static uint16_t encodeLength(std::string_view text)
    {
        return static_cast<uint16_t>(text.size() < kLengthUnknown ? text.size() : kLengthUnknown);
    }

    /// Returns the id of a string that is in the arena.
    StringId idOf(char const* text) const;

    /// Ensures that strings of `bytes` in total, with their zero bytes, can be added without
    /// throwing.
    void reserve(size_t bytes)
    {
        if (static_cast<size_t>(end_ - next_) < bytes)
            addChunk(bytes);
    }

    /// Stores a copy of `text`. Does not throw after reserve().
    std::string_view add(std::string_view text)
    {
        reserve(text.size() + 1);
        char* const at = next_;
        memcpy(at, text.data(), text.size());
        at[text.size()] = '\0';
        next_ += text.size() + 1;
        return {at, text.size()};
    }

    /// Ensures that adopt() does not throw for a block of `bytes`.
    void reserveBlock(size_t bytes) { freeWindows(bytes); }

    /// Takes over a block, of which `bytes` are in use.
    void adopt(Block& block, size_t bytes);

    /// Frees the block adopted last. Resets the garbage count to its value at that time plus
    /// `garbage`. No string of the block may be in use.
    void freeAdopted(size_t garbage);

    /// Stores a copy of `first` and `text`. Does not throw after reserve().
    std::string_view add(char first, std::string_view text)
    {
        reserve(text.size() + size_t{2});
        *next_++ = first;
        std::string_view const rest = add(text);
        return {rest.data() - 1, rest.size() + 1};
    }

    /// Counts a string as garbage: compaction will free it.
    void drop(std::string_view text) { garbage_ += text.size() + 1; }

    size_t garbage() const { return garbage_; }
    size_t used() const { return bytes_ - static_cast<size_t>(end_ - next_); }
    size_t bytes() const { return bytes_; }
    void clear();
    void swap(Arena& other);

private:
    using Chunk = Block::Chunk;

    static constexpr unsigned kWindowBits = 20;
    static constexpr StringId kWindow = 1 << kWindowBits;
    static constexpr size_t kMaxWindows = size_t{1} << (32 - kWindowBits);
    static constexpr uint16_t kLengthUnknown = 0xFFFF;  // the length does not fit in 16 bits

    void addChunk(size_t bytes);
    uint32_t freeWindows(size_t bytes);
    void growWindows(size_t count);
    void registerChunk(Chunk* chunk, size_t bytes);
    void setWindows(Chunk const* chunk, uintptr_t address);

    // Window 0 is never used: no id is 0. Most arenas need a single window.
    static constexpr uint32_t kInlineWindows = 2;

    Chunk* chunks_ = nullptr;
    uintptr_t* windows_ = inline_;  // address of a window minus its first id; 0: unused
    uintptr_t inline_[kInlineWindows] = {};
    size_t windowCount_ = kInlineWindows;
    Chunk* current_ = nullptr;  // the chunk to which strings are added
    char* next_ = nullptr;      // its unused bytes
    char* end_ = nullptr;
    size_t bytes_ = 0;  // of all chunks
    size_t garbage_ = 0;
    Chunk* adopted_ = nullptr;  // the block adopted last
    size_t garbageBefore_ = 0;  // garbage_ at that time
};

inline StringId Arena::idOf(char const* text) const
{
    if (adopted_ != nullptr && adopted_->holds(text))
        return adopted_->idOf(text);
    if (current_ != nullptr && current_->holds(text))
        return current_->idOf(text);
    Chunk* chunk = chunks_;
    while (!chunk->holds(text))
        chunk = chunk->next;
    return chunk->idOf(text);
}

}  // namespace zcache
