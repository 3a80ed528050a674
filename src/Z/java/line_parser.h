// line_parser: reads the lines of a Java property file that need no state machine.
//
// The state machine of ZJavaProperties_6_0 takes one character at a time. This parser reads whole
// lines in memory, with the same result, but refuses each line that is invalid, has a zero byte in
// its key or has no line ending. The state machine reads such a line instead.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <memory>
#include <string_view>

namespace zjava {

class LineParser {
public:
    enum class Line { refused, empty, entry };

    /// range   `text` must outlive the parser.
    LineParser(std::string_view text, size_t from)
        : begin_(text.data()), end_(begin_ + text.size()), at_(begin_ + from)
    {
    }

    /// Reads an empty line, a comment, or an entry up to its value. Reads nothing if the line is
    /// refused, or at the end of the text; at the end, the last entry is still available.
    /// throws  std::bad_alloc.
    Line readKey();
    /// Reads the value after readKey() has returned Line::entry. Returns false, and continues at
    /// the start of the line, if the entry is refused.
    /// throws  std::bad_alloc.
    bool readValue();

    /// Returns the position of the next line.
    size_t position() const { return static_cast<size_t>(at_ - begin_); }
    bool isAtEnd() const { return at_ == end_; }
    /// Returns the key or the value of the last entry.
    /// owns    borrowed until the next call of readKey() that is not at the end.
    std::string_view key() const { return key_; }
    std::string_view value() const { return value_; }
    /// Returns the hash of the key, as ZAbstractString_6_0::hash() does.
    uint32_t hash() const { return hash_; }
    /// Returns whether the last line of the entry is an empty continuation line.
    bool endsInEmptyLine() const { return endsInEmptyLine_; }

private:
    static constexpr size_t kMaxPrefix = 64;

    // Text with its escapes replaced.
    class Decoded {
    public:
        void clear() { length_ = 0; }
        void append(char const* bytes, size_t count)
        {
            if (count == 0)
                return;  // without a block yet, memcpy() would get a null pointer
            reserve(count);
            memcpy(chars_.get() + length_, bytes, count);
            length_ += count;
        }
        // As append(), for bytes that are followed by others up to `end`. Mostly copies a block of
        // constant size, which needs no call.
        void appendRun(char const* bytes, size_t count, char const* end)
        {
            if (count > kBlock || end - bytes < static_cast<ptrdiff_t>(kBlock)) {
                append(bytes, count);
                return;
            }
            reserve(kBlock);
            memcpy(chars_.get() + length_, bytes, kBlock);
            length_ += count;
        }
        // Never a view of a null pointer.
        std::string_view view() const
        {
            return length_ == 0 ? std::string_view("") : std::string_view(chars_.get(), length_);
        }

    private:
        static constexpr size_t kBlock = 16;

        void reserve(size_t count)
        {
            if (capacity_ - length_ < count)
                grow(count);
        }
        void grow(size_t count);

        std::unique_ptr<char[]> chars_;
        size_t length_ = 0;
        size_t capacity_ = 0;
    };

    Line skipTo(char const* at);
    char const* endOfPair(char const* at) const;
    char const* appendUnit(char const* at);
    uint32_t commonPrefix(char const* at) const;

    char const* const begin_;
    char const* const end_;
    char const* at_;                 // the start of the line
    char const* valueAt_ = nullptr;  // the start of the value
    std::string_view key_;
    std::string_view value_;
    Decoded decodedKey_;
    Decoded decodedValue_;
    uint32_t hash_ = 0;
    // Keys often have a common prefix with the key before. The hash of a prefix is known then.
    std::string_view prefix_;  // of the last key, up to an escape
    uint32_t prefixHashes_[kMaxPrefix];
    bool endsInEmptyLine_ = false;
};

}  // namespace zjava
