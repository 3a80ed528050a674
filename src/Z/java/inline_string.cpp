#include "inline_string.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <new>
#include <utility>

#include "../ZException.h"

namespace zjava {

namespace {

constexpr char kSource[] = "src/Z/ZJavaProperties";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseForBlock = 190, raiseInSetChars = 195 };

// Alignment of a block. A block ends before the next multiple by the size of a heap header, so that
// consecutive blocks leave no gap.
constexpr size_t kAlignment = 4096;
constexpr size_t kBlockSize = kAlignment - 2 * sizeof(void*);

constexpr size_t roundedUp(size_t size, size_t unit)
{
    return (size + unit - 1) / unit * unit;
}

}  // namespace

// Blocks are aligned, so the address of a string gives its block. A block is freed by its last
// user: a string in it, or the allocator that is filling it.
struct InlineString::Pool::Block {
    static Block* of(void* address)
    {
        return reinterpret_cast<Block*>(reinterpret_cast<uintptr_t>(address) & ~(kAlignment - 1));
    }
    static Block* make(size_t size)
    {
        void* memory = nullptr;
        if (posix_memalign(&memory, kAlignment, size) != 0)
            ZOutOfMemoryException_6_0().throwException(kSource, raiseForBlock);
        return ::new (memory) Block{sizeof(Block), size, 1};
    }
    void release()
    {
        if (--users == 0)
            free(this);
    }

    size_t used;  // bytes, including this header
    size_t size;
    size_t users;
};

void InlineString::Pool::closeBlock()
{
    if (block_ != nullptr)
        std::exchange(block_, nullptr)->release();
}

void* InlineString::Pool::allocate(size_t size)
{
    if (block_ == nullptr || block_->size - block_->used < size) {
        Block* const next = Block::make(std::max(sizeof(Block) + size, kBlockSize));
        closeBlock();
        block_ = next;
    }
    void* const address = reinterpret_cast<char*>(block_) + block_->used;
    block_->used += size;
    ++block_->users;
    return address;
}

InlineString* InlineString::make(Pool& pool, char const* bytes, uint32_t length)
{
    size_t const size = roundedUp(sizeof(InlineString) + length + 1, alignof(InlineString));
    auto* const text = ::new (pool.allocate(size)) InlineString(length);
    char* const chars = reinterpret_cast<char*>(text + 1);
    memcpy(chars, bytes, length);
    chars[length] = '\0';
    return text;
}

void InlineString::operator delete(void* address) noexcept
{
    Pool::Block::of(address)->release();
}

ZUTF8String_6_0* InlineString::clone() const
{
    return new ZUTF8String_6_0(getChars(), length_);
}

ZAbstractString_6_0& InlineString::setChars(ZAbstractString_6_0 const&)
{
    ZUnsupportedException_6_0().throwException(kSource, raiseInSetChars);
}

}  // namespace zjava
