#include "arena.h"

#include <utility>

#include "../stanza/raise_sites.h"
#include "memory.h"

namespace zcache {

namespace {

constexpr size_t kFirstChunk = 512;        // room for texts that are set one by one,
constexpr size_t kLargestChunk = 1 << 20;  // doubled from chunk to chunk

}  // namespace

std::string_view checkedView(char const* text)
{
    if (text == nullptr)
        return "";
    size_t const length = strlen(text);
    if (length > kLongestText)
        zstanza::raiseOutOfMemory();
    return {text, length};
}

void Arena::Block::setRoom(size_t room)
{
    chunk_ = static_cast<Chunk*>(reallocate(chunk_, sizeof(Chunk) + room));
    room_ = room;
}

void Arena::addChunk(size_t bytes)
{
    size_t size = chunks_ == nullptr ? kFirstChunk : bytes_;
    size = size > kLargestChunk ? kLargestChunk : size;
    size = size < bytes ? bytes : size;
    freeWindows(size);
    auto* const chunk = static_cast<Chunk*>(reallocate(nullptr, sizeof(Chunk) + size));
    enter(chunk, size);
    filling_ = chunk;
    dead_ += static_cast<size_t>(end_ - next_);  // what is left of the last one
    next_ = chunk->begin();
    end_ = next_ + size;
}

// Returns the first of as many windows in a row as `bytes` need, none of them in use, and makes
// sure that they are in the table.
uint32_t Arena::freeWindows(size_t bytes)
{
    size_t const needed = (bytes - 1) / kWindow + 1;
    size_t first = 1;
    for (size_t i = first; i < windowCount_ && i < first + needed; ++i)
        if (windows_[i] != 0)
            first = i + 1;
    size_t const end = first + needed;
    if (end > kMostWindows)
        zstanza::raiseOutOfMemory();
    if (end > windowCount_) {
        windows_ = static_cast<uintptr_t*>(reallocate(windows_, end * sizeof(windows_[0])));
        while (windowCount_ < end)
            windows_[windowCount_++] = 0;
    }
    return static_cast<uint32_t>(first);
}

// Enters a chunk of `bytes`. Never raises after freeWindows().
void Arena::enter(Chunk* chunk, size_t bytes)
{
    chunk->window = freeWindows(bytes);
    chunk->size = static_cast<uint32_t>(bytes);
    chunk->next = chunks_;
    chunks_ = chunk;
    bytes_ += bytes;
    setWindows(chunk, reinterpret_cast<uintptr_t>(chunk->begin()) - chunk->placeOf(chunk->begin()));
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
    block.room_ = 0;
    enter(adopted_, bytes);
    deadBefore_ = dead_;
}

void Arena::dropAdopted(size_t dead)
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
    dead_ = deadBefore_ + dead;
}

void Arena::clear()
{
    while (chunks_ != nullptr)
        free(std::exchange(chunks_, chunks_->next));
    free(std::exchange(windows_, nullptr));
    windowCount_ = 0;
    filling_ = adopted_ = nullptr;
    next_ = end_ = nullptr;
    bytes_ = dead_ = 0;
}

void Arena::swap(Arena& other)
{
    std::swap(chunks_, other.chunks_);
    std::swap(windows_, other.windows_);
    std::swap(windowCount_, other.windowCount_);
    std::swap(filling_, other.filling_);
    std::swap(next_, other.next_);
    std::swap(end_, other.end_);
    std::swap(bytes_, other.bytes_);
    std::swap(dead_, other.dead_);
    std::swap(adopted_, other.adopted_);
    std::swap(deadBefore_, other.deadBefore_);
}

}  // namespace zcache
