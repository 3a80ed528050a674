// inline_string: the strings that are read from a Java property file.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "../ZUTF8String.h"

namespace zjava {

// An immutable UTF-8 string whose bytes follow the object. A file has many of them, and most are
// created and freed together: they are allocated next to each other in large blocks, without
// overhead.
class InlineString final : public ZAbstractString_6_0 {
public:
    // Allocates the strings. They outlive it.
    class Pool {
    public:
        Pool() = default;
        Pool(Pool const&) = delete;
        Pool& operator=(Pool const&) = delete;
        ~Pool() { closeBlock(); }

        /// Allocates no more strings in the current block.
        void closeBlock();

    private:
        friend class InlineString;
        struct Block;

        void* allocate(size_t size);

        Block* block_ = nullptr;  // the block that is being filled; null at first
    };

    /// Creates a string of `length` bytes.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    static InlineString* make(Pool& pool, char const* bytes, uint32_t length);
    InlineString(InlineString const&) = delete;
    InlineString& operator=(InlineString const&) = delete;

    ~InlineString() override = default;

    /// Returns a copy.
    /// owns    owned by the caller; released with delete.
    ZUTF8String_6_0* clone() const override;

    char const* getChars() const override { return reinterpret_cast<char const*>(this + 1); }

    /// throws  ZUnsupportedException_6_0.
    ZAbstractString_6_0& setChars(ZAbstractString_6_0 const& other) override;
    unsigned int getLength() const override { return length_; }
    qvr_cs const* getCodesetHandle() const override { return utf8_handle_; }

    static void operator delete(void* address) noexcept;

private:
    explicit InlineString(uint32_t length) : length_(length) {}

    uint32_t const length_;
};

}  // namespace zjava
