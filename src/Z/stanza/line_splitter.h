// line_splitter: splits text into the lines that fgets() would return.
//
// The buffer of fgets() has 8192 bytes. A newline ends a line, and so do 8191 bytes. The bytes
// after a zero byte in a line are ignored.
#pragma once

#include <limits.h>
#include <stddef.h>
#include <string.h>

#include "limits.h"

namespace zstanza {

// The bytes of a full buffer without its zero byte.
constexpr size_t kMaxReadLength = kLineBufferSize - 1;

// Estimated numbers of lines, to reserve memory.
struct LineCounts {
    size_t headers;
    size_t keys;
    size_t comments;
    size_t blanks;
};

class LineSplitter {
public:
    LineSplitter(char const* text, size_t length)
        : next_(text), end_(text + length), hasZero_(memchr(text, '\0', length) != nullptr)
    {
    }

    /// Stores the next line, without its newline, and returns true. Returns false after the last
    /// line.
    bool next(char const*& line, size_t& length)
    {
        if (next_ == end_)
            return false;
        ++number_;
        line = next_;
        size_t const left = static_cast<size_t>(end_ - next_);
        size_t const longest = left < kMaxReadLength ? left : kMaxReadLength;
        auto const* const newline = static_cast<char const*>(memchr(next_, '\n', longest));
        length = newline == nullptr ? longest : static_cast<size_t>(newline - next_);
        // KEPT: a newline after exactly 8191 bytes is a blank line of its own. A program that reads
        // the file with fgets() and the same buffer sees the same lines and line numbers.
        // Test: ZPropertiesImplReads.KeepsTheNewlineOfASplitLineAsABlankLine
        next_ = newline == nullptr ? next_ + longest : newline + 1;
        isSplit_ = newline == nullptr && next_ != end_;
        if (hasZero_)
            length = strnlen(line, length);
        return true;
    }

    /// Returns whether the next line follows without a newline, so that the byte after this line
    /// belongs to the next one.
    bool isSplit() const { return isSplit_; }
    /// Returns the byte after the line and its newline.
    char const* end() const { return next_; }
    int number() const { return number_ < INT_MAX ? static_cast<int>(number_) : INT_MAX; }

private:
    char const* next_;
    char const* const end_;
    bool const hasZero_;
    bool isSplit_ = false;
    size_t number_ = 0;  // of the line, counted from 1
};

/// Counts the lines of each kind by their first bytes.
LineCounts estimateLines(char const* text, size_t length);

}  // namespace zstanza
