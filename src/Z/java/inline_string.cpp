#include "inline_string.h"

#include <stdlib.h>

#include <algorithm>
#include <utility>

#include "../ZException.h"
#include "../memory/huge_pages.h"

namespace zjava {

namespace {

constexpr char kSource[] = "src/Z/ZJavaProperties";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseForBlock = 190, raiseInSetChars = 195 };

// A block is a fourth of the blocks before it. The smallest ones end before a page boundary by the
// size of a heap header, so that consecutive blocks leave no gap; the largest is two huge pages.
constexpr size_t kPage = 4096;
constexpr size_t kMaxBlock = 2 * zmemory::kHugePage;

constexpr size_t blockSizeAfter(size_t filled)
{
    size_t const size = std::clamp(filled / 4 / kPage * kPage, kPage, kMaxBlock);
    return size < kMaxBlock ? size - 2 * sizeof(void*) : size;
}

}  // namespace

void InlineString::Pool::Block::release()
{
    if (--users == 0)
        free(this);
}

void InlineString::Pool::closeBlock()
{
    if (block_ == nullptr)
        return;
    filled_ += block_->used;
    std::exchange(block_, nullptr)->release();
}

// Opens a block with space for a string of `size` bytes.
void InlineString::Pool::openBlock(size_t size)
{
    size_t const whole =
        std::max(sizeof(Block) + size, blockSizeAfter(filled_ + (block_ ? block_->used : 0)));
    void* const memory = whole == kMaxBlock ? zmemory::allocateLarge(whole) : malloc(whole);
    if (memory == nullptr)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseForBlock);
    closeBlock();
    block_ = ::new (memory) Block{sizeof(Block), whole, 1};
}

void InlineString::operator delete(InlineString* text, std::destroying_delete_t) noexcept
{
    auto* const block =
        reinterpret_cast<Pool::Block*>(reinterpret_cast<char*>(text) - text->offset_);
    text->~InlineString();
    block->release();
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
