// ZJavaProperties_p: the texts that were read from a file. Not installed.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "ZUTF8String.h"

// A text in UTF-8 that does not change, with its bytes behind the object itself. A file has many,
// which are made one after another and go together: they lie side by side in large pieces of
// memory, and take no more of it than they need.
class ReadText final : public ZAbstractString_6_0 {
public:
    // Where texts are placed. Those that are there stay when the room goes.
    class Room {
    public:
        Room() = default;
        Room(Room const&) = delete;
        Room& operator=(Room const&) = delete;
        ~Room() { leave(); }

        /// Places no more texts where the last one is.
        void leave();

    private:
        friend class ReadText;
        struct Piece;

        void* take(size_t size);

        Piece* piece_ = nullptr;  // the one that is being filled; null at first
    };

    /// Makes a text of `length` bytes.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    static ReadText* make(Room& room, char const* bytes, uint32_t length);
    ReadText(ReadText const&) = delete;
    ReadText& operator=(ReadText const&) = delete;

    ~ReadText() override = default;

    /// Returns a string of the same bytes.
    /// owns    owned by the caller; released with delete.
    ZUTF8String_6_0* clone() const override;

    char const* getChars() const override { return reinterpret_cast<char const*>(this + 1); }

    /// throws  ZUnsupportedException_6_0.
    ZAbstractString_6_0& setChars(ZAbstractString_6_0 const& other) override;
    unsigned int getLength() const override { return length_; }
    qvr_cs const* getCodesetHandle() const override { return utf8_handle_; }

    static void operator delete(void* place) noexcept;

private:
    explicit ReadText(uint32_t length) : length_(length) {}

    uint32_t const length_;
};
