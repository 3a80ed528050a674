// line_splitter: the lines of a stanza file.
#pragma once

#include <limits.h>
#include <stddef.h>
#include <string.h>

#include "limits.h"

namespace zstanza {

// What a line is read into takes so many bytes of it, and a zero byte.
constexpr size_t kMostOfLine = kLineRoom - 1;

// Approximately how many lines of each kind there are.
struct Expected {
    size_t heads;
    size_t keys;
    size_t comments;
    size_t blanks;
};

// Cuts a text into lines as fgets() does with a buffer of 8192 bytes: a line feed ends a line, and
// so do 8191 bytes; what follows a zero byte in a line is lost.
class LineCutter {
public:
    LineCutter(char* text, size_t length)
        : next_(text), end_(text + length), hasZero_(memchr(text, '\0', length) != nullptr)
    {
    }

    // Stores the next line and returns true; false behind the last one.
    bool next(char*& line, size_t& length)
    {
        if (next_ == end_)
            return false;
        ++number_;
        line = next_;
        size_t const left = static_cast<size_t>(end_ - next_);
        size_t const most = left < kMostOfLine ? left : kMostOfLine;
        auto* const feed = static_cast<char*>(memchr(next_, '\n', most));
        length = feed == nullptr ? most : static_cast<size_t>(feed - next_);
        // KEPT: a line feed right behind 8191 bytes is a line of its own, a blank one: programs
        // that read the same files with fgets() see it so. Test:
        // ZPropertiesImpl.KeepsTheLineFeedOfATornLineAsABlankLine
        next_ = feed == nullptr ? next_ + most : feed + 1;
        // Without a line feed, and before the end, the byte behind the line is the next line's.
        isTorn_ = feed == nullptr && next_ != end_;
        if (hasZero_)
            length = strnlen(line, length);
        return true;
    }

    bool isTorn() const { return isTorn_; }
    int number() const { return number_ < INT_MAX ? static_cast<int>(number_) : INT_MAX; }

private:
    char* next_;
    char* const end_;
    bool const hasZero_;
    bool isTorn_ = false;
    size_t number_ = 0;  // of the line, counted from 1
};

// Counts the lines of each kind by their first bytes: near enough to know what room they need.
Expected expect(char const* text, size_t length);

}  // namespace zstanza
