// inline_string: the strings that are read from a Java property file.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <new>
#include <string_view>

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

        // A block is freed by its last user: a string in it, or the pool that is filling it.
        struct Block {
            void release();

            size_t used;  // bytes, including this header
            size_t size;
            size_t users;
        };

        void openBlock(size_t size);

        Block* block_ = nullptr;  // the block that is being filled; null at first
        size_t filled_ = 0;       // bytes of all blocks before it
    };

    /// Creates a string of `length` bytes.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    static InlineString* make(Pool& pool, char const* bytes, uint32_t length)
    {
        constexpr size_t kUnit = sizeof(void*);
        size_t const size = (sizeof(InlineString) + length + 1 + kUnit - 1) / kUnit * kUnit;
        if (pool.block_ == nullptr || pool.block_->size - pool.block_->used < size)
            pool.openBlock(size);
        Pool::Block& block = *pool.block_;
        auto* const text = ::new (reinterpret_cast<char*>(&block) + block.used)
            InlineString(length, static_cast<uint32_t>(block.used));
        block.used += size;
        ++block.users;
        char* const chars = reinterpret_cast<char*>(text + 1);
        memcpy(chars, bytes, length);
        chars[length] = '\0';
        return text;
    }
    InlineString(InlineString const&) = delete;
    InlineString& operator=(InlineString const&) = delete;

    ~InlineString() override = default;

    /// Returns a copy.
    /// owns    owned by the caller; released with delete.
    ZUTF8String_6_0* clone() const override;

    char const* getChars() const override { return reinterpret_cast<char const*>(this + 1); }
    std::string_view text() const { return {InlineString::getChars(), length_}; }

    /// throws  ZUnsupportedException_6_0.
    ZAbstractString_6_0& setChars(ZAbstractString_6_0 const& other) override;
    unsigned int getLength() const override { return length_; }
    qvr_cs const* getCodesetHandle() const override { return utf8_handle_; }

    /// Runs the destructor, after which `offset_` could not be read, and releases the block.
    static void operator delete(InlineString* text, std::destroying_delete_t) noexcept;

private:
    InlineString(uint32_t length, uint32_t offset) : length_(length), offset_(offset) {}

    uint32_t const length_;
    uint32_t const offset_;  // in the block
};

}  // namespace zjava
