// arena: the strings.
#pragma once

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <string_view>

#include "ids.h"

namespace zcache {

constexpr size_t kLongestText = 0xFFFFFFF0u;  // lengths are kept in 32 bits

// Views a terminated text; null is an empty one. Raises when it is too long for a record.
std::string_view checkedView(char const* text);

// The texts: blocks that are filled from their start and given back together. A text never moves,
// and none has a zero byte in it but behind its end. Its place counts bytes through windows of 1
// MiB each, of which a block has as many as it needs, so that 32 bits tell it.
class Arena {
public:
    Arena() = default;
    Arena(Arena const&) = delete;
    Arena& operator=(Arena const&) = delete;
    ~Arena() { clear(); }

    // A block as it is filled by others; the arena takes it over with adopt().
    class Block {
    public:
        Block() = default;
        Block(Block const&) = delete;
        Block& operator=(Block const&) = delete;
        ~Block() { free(chunk_); }

        char* chars() { return chunk_->begin(); }
        size_t room() const { return room_; }
        void setRoom(size_t room);  // keeps what is in it, as far as it goes

    private:
        friend class Arena;
        struct Chunk {
            char* begin() { return reinterpret_cast<char*>(this + 1); }
            bool holds(char const* text)
            {
                return reinterpret_cast<uintptr_t>(text) - reinterpret_cast<uintptr_t>(begin()) <
                       size;
            }
            TextId placeOf(char const* text)
            {
                return (window << kWindowBits) + static_cast<TextId>(text - begin());
            }

            Chunk* next;
            uint32_t size;
            uint32_t window;  // the first one
        };
        Chunk* chunk_ = nullptr;
        size_t room_ = 0;
    };

    char const* at(TextId text) const
    {
        return reinterpret_cast<char const*>(windows_[text >> kWindowBits] + text);
    }

    std::string_view view(TextId text) const
    {
        char const* const chars = at(text);
        return {chars, strlen(chars)};
    }

    // The same with a length that packLength() made.
    std::string_view view(TextId text, uint16_t length) const
    {
        return length == kUnpacked ? view(text) : std::string_view(at(text), length);
    }

    // Makes 16 bits of a length, by which view() does not have to look for the end of the text.
    static uint16_t packLength(std::string_view text)
    {
        return static_cast<uint16_t>(text.size() < kUnpacked ? text.size() : kUnpacked);
    }

    // Returns the place of a text that is in the arena.
    TextId placeOf(char const* text) const;

    // Makes sure that texts of `bytes` together, their terminators included, can be added without
    // raising.
    void reserve(size_t bytes)
    {
        if (static_cast<size_t>(end_ - next_) < bytes)
            addChunk(bytes);
    }

    // Stores a copy of `text` and a zero byte. Never raises after reserve().
    std::string_view add(std::string_view text)
    {
        reserve(text.size() + 1);
        char* const at = next_;
        memcpy(at, text.data(), text.size());
        at[text.size()] = '\0';
        next_ += text.size() + 1;
        return {at, text.size()};
    }

    // Makes sure that a block can be taken over without raising.
    void reserveBlock(size_t bytes) { freeWindows(bytes); }

    // Takes over a block; of its room `bytes` are in use.
    void adopt(Block& block, size_t bytes);

    // Gives back the block that was adopted last, and forgets what was dropped since but `dead`
    // bytes. None of its texts is used any more.
    void dropAdopted(size_t dead);

    // Stores `text` with `first` in front of it.
    std::string_view add(char first, std::string_view text)
    {
        reserve(text.size() + size_t{2});
        *next_++ = first;
        std::string_view const rest = add(text);
        return {rest.data() - 1, rest.size() + 1};
    }

    // Notes that a text is not used any more.
    void drop(std::string_view text) { dead_ += text.size() + 1; }

    size_t dead() const { return dead_; }
    size_t used() const { return bytes_ - static_cast<size_t>(end_ - next_); }
    size_t bytes() const { return bytes_; }
    void clear();
    void swap(Arena& other);

private:
    using Chunk = Block::Chunk;

    static constexpr unsigned kWindowBits = 20;
    static constexpr TextId kWindow = 1 << kWindowBits;
    static constexpr size_t kMostWindows = size_t{1} << (32 - kWindowBits);
    static constexpr uint16_t kUnpacked = 0xFFFF;  // the length does not fit

    void addChunk(size_t bytes);
    uint32_t freeWindows(size_t bytes);
    void enter(Chunk* chunk, size_t bytes);
    void setWindows(Chunk const* chunk, uintptr_t address);

    Chunk* chunks_ = nullptr;
    uintptr_t* windows_ = nullptr;  // the address of place 0, were it there; 0: not in use
    size_t windowCount_ = 0;
    Chunk* filling_ = nullptr;  // the chunk that takes texts
    char* next_ = nullptr;      // and its free room
    char* end_ = nullptr;
    size_t bytes_ = 0;  // of all chunks
    size_t dead_ = 0;
    Chunk* adopted_ = nullptr;  // the block that was adopted last
    size_t deadBefore_ = 0;     // what was dead then
};

inline TextId Arena::placeOf(char const* text) const
{
    if (adopted_ != nullptr && adopted_->holds(text))
        return adopted_->placeOf(text);
    if (filling_ != nullptr && filling_->holds(text))
        return filling_->placeOf(text);
    Chunk* chunk = chunks_;
    while (!chunk->holds(text))
        chunk = chunk->next;
    return chunk->placeOf(text);
}

}  // namespace zcache
