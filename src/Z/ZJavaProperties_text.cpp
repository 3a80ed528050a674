#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <new>
#include <utility>

#include "ZException.h"
#include "ZJavaProperties_p.h"

namespace {

constexpr char kSource[] = "src/Z/ZJavaProperties";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite { raiseForRoom = 190, raiseInSetChars = 195 };

// Alignment of a block. A block ends before the next multiple by the size of a heap header, so that
// consecutive blocks leave no gap.
constexpr size_t kAlignment = 4096;
constexpr size_t kPieceSize = kAlignment - 2 * sizeof(void*);

constexpr size_t roundedUp(size_t size, size_t unit)
{
    return (size + unit - 1) / unit * unit;
}

}  // namespace

// Blocks are aligned, so the address of a string gives its block. A block is freed by its last
// user: a string in it, or the allocator that is filling it.
struct ReadText::Room::Piece {
    static Piece* of(void* place)
    {
        return reinterpret_cast<Piece*>(reinterpret_cast<uintptr_t>(place) & ~(kAlignment - 1));
    }
    static Piece* make(size_t size)
    {
        void* block = nullptr;
        if (posix_memalign(&block, kAlignment, size) != 0)
            ZOutOfMemoryException_6_0().throwException(kSource, raiseForRoom);
        return ::new (block) Piece{sizeof(Piece), size, 1};
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

void ReadText::Room::leave()
{
    if (piece_ != nullptr)
        std::exchange(piece_, nullptr)->release();
}

void* ReadText::Room::take(size_t size)
{
    if (piece_ == nullptr || piece_->size - piece_->used < size) {
        Piece* const next = Piece::make(std::max(sizeof(Piece) + size, kPieceSize));
        leave();
        piece_ = next;
    }
    void* const place = reinterpret_cast<char*>(piece_) + piece_->used;
    piece_->used += size;
    ++piece_->users;
    return place;
}

ReadText* ReadText::make(Room& room, char const* bytes, uint32_t length)
{
    size_t const size = roundedUp(sizeof(ReadText) + length + 1, alignof(ReadText));
    auto* const text = ::new (room.take(size)) ReadText(length);
    char* const chars = reinterpret_cast<char*>(text + 1);
    memcpy(chars, bytes, length);
    chars[length] = '\0';
    return text;
}

void ReadText::operator delete(void* place) noexcept
{
    Room::Piece::of(place)->release();
}

ZUTF8String_6_0* ReadText::clone() const
{
    return new ZUTF8String_6_0(getChars(), length_);
}

ZAbstractString_6_0& ReadText::setChars(ZAbstractString_6_0 const&)
{
    ZUnsupportedException_6_0().throwException(kSource, raiseInSetChars);
}
