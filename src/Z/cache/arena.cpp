#include "arena.h"

#include <algorithm>
#include <utility>

#include "../stanza/raise_sites.h"
#include "memory.h"

namespace zcache {

namespace {

// Chunk sizes double from the first to the largest.
constexpr size_t kFirstChunk = 512;
constexpr size_t kLargestChunk = 1 << 20;

}  // namespace

std::string_view checkedView(char const* text)
{
    if (text == nullptr)
        return "";
    size_t const length = strlen(text);
    if (length > kMaxStringLength)
        zstanza::throwOutOfMemory();
    return {text, length};
}

void Arena::Block::setCapacity(size_t capacity)
{
    chunk_ = static_cast<Chunk*>(reallocate(chunk_, sizeof(Chunk) + capacity));
    capacity_ = capacity;
}

void Arena::addChunk(size_t bytes)
{
    size_t size = chunks_ == nullptr ? kFirstChunk : bytes_;
    size = size > kLargestChunk ? kLargestChunk : size;
    size = size < bytes ? bytes : size;
    Block block;
    block.setCapacity(size);
    registerChunk(block.chunk_, size);
    current_ = std::exchange(block.chunk_, nullptr);
    garbage_ += static_cast<size_t>(end_ - next_);  // the unused rest of the last chunk
    next_ = current_->begin();
    end_ = next_ + size;
}

// Returns the first of enough consecutive unused windows for `bytes`, and extends the table to
// include them.
uint32_t Arena::freeWindows(size_t bytes)
{
    size_t const needed = (bytes - 1) / kWindow + 1;
    size_t first = 1;
    for (size_t i = first; i < windowCount_ && i < first + needed; ++i)
        if (windows_[i] != 0)
            first = i + 1;
    size_t const end = first + needed;
    if (end > kMaxWindows)
        zstanza::throwOutOfMemory();
    if (end > windowCount_)
        growWindows(end);
    return static_cast<uint32_t>(first);
}

void Arena::growWindows(size_t count)
{
    bool const isInline = windows_ == inline_;
    auto* const windows = static_cast<uintptr_t*>(
        reallocate(isInline ? nullptr : windows_, count * sizeof(windows_[0])));
    if (isInline)
        memcpy(windows, inline_, sizeof inline_);
    windows_ = windows;
    while (windowCount_ < count)
        windows_[windowCount_++] = 0;
}

// Adds a chunk of `bytes` to the arena. Changes nothing if it throws, and does not throw after
// reserveBlock().
void Arena::registerChunk(Chunk* chunk, size_t bytes)
{
    chunk->window = freeWindows(bytes);
    chunk->size = static_cast<uint32_t>(bytes);
    chunk->next = chunks_;
    chunks_ = chunk;
    bytes_ += bytes;
    setWindows(chunk, reinterpret_cast<uintptr_t>(chunk->begin()) - chunk->idOf(chunk->begin()));
}

void Arena::setWindows(Chunk const* chunk, uintptr_t address)
{
    for (size_t i = 0; i * kWindow < chunk->size; ++i)
        windows_[chunk->window + i] = address;
}

void Arena::adopt(Block& block, size_t bytes)
{
    reserveBlock(bytes);
    adopted_ = std::exchange(block.chunk_, nullptr);
    block.capacity_ = 0;
    registerChunk(adopted_, bytes);
    garbageBefore_ = garbage_;
}

void Arena::freeAdopted(size_t garbage)
{
    for (Chunk** at = &chunks_; *at != nullptr; at = &(*at)->next) {
        if (*at == adopted_) {
            *at = adopted_->next;
            bytes_ -= adopted_->size;
            setWindows(adopted_, 0);
            free(adopted_);
            break;
        }
    }
    adopted_ = nullptr;
    garbage_ = garbageBefore_ + garbage;
}

void Arena::clear()
{
    while (chunks_ != nullptr)
        free(std::exchange(chunks_, chunks_->next));
    if (windows_ != inline_)
        free(windows_);
    windows_ = inline_;
    windowCount_ = kInlineWindows;
    std::fill(inline_, inline_ + kInlineWindows, 0);
    current_ = adopted_ = nullptr;
    next_ = end_ = nullptr;
    bytes_ = garbage_ = 0;
}

void Arena::swap(Arena& other)
{
    std::swap(chunks_, other.chunks_);
    std::swap(windows_, other.windows_);
    std::swap(inline_, other.inline_);
    std::swap(windowCount_, other.windowCount_);
    for (Arena* const arena : {this, &other})
        if (arena->windowCount_ == kInlineWindows)
            arena->windows_ = arena->inline_;
    std::swap(current_, other.current_);
    std::swap(next_, other.next_);
    std::swap(end_, other.end_);
    std::swap(bytes_, other.bytes_);
    std::swap(garbage_, other.garbage_);
    std::swap(adopted_, other.adopted_);
    std::swap(garbageBefore_, other.garbageBefore_);
}

}  // namespace zcache
