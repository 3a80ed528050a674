// logical_line: the lines of a file, and lines that a backslash joins.
#pragma once

#include <stdint.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "characters.h"

namespace zdialects {

constexpr size_t kMaxLineLength = 1024 * 1024;

// A line without its line ending, "\n" or "\r\n".
struct PhysicalLine {
    size_t begin;
    size_t end;
    size_t next;  // begin of the following line
};

/// Returns the line of `text` that begins at `begin`.
/// range   `begin` is less than the size.
inline PhysicalLine physicalLineAt(std::string_view text, size_t begin)
{
    size_t const feed = text.find('\n', begin);
    if (feed == text.npos)
        return {begin, text.size(), text.size()};
    bool const hasReturn = feed > begin && text[feed - 1] == '\r';
    return {begin, feed - (hasReturn ? 1 : 0), feed + 1};
}

/// Returns the size of the byte order mark of UTF-8 at the start, or 0.
constexpr size_t byteOrderMarkSize(std::string_view text)
{
    return text.starts_with("\xef\xbb\xbf") ? 3 : 0;
}

// How lines are joined.
class LineJoining {
public:
    LineJoining(Switches const& switches, Characters const& characters)
        : switches_(switches), characters_(characters)
    {
    }

    /// Returns whether the first character that is not a space starts a comment.
    bool isComment(std::string_view chars) const
    {
        size_t const at = characters_.afterBlanks(chars, 0);
        return at < chars.size() && characters_.isMark(chars[at]);
    }

    /// Returns the size of the line without the backslash that continues it, or npos.
    size_t sizeIfContinued(std::string_view chars) const;

    /// Returns `slice`, a part of a logical line, with its lines joined. It is a view of `slice` if
    /// there is only one.
    std::string_view joined(std::string_view slice, std::string& space) const;

    Switches const& switches() const { return switches_; }
    Characters const& characters() const { return characters_; }

private:
    Switches const& switches_;
    Characters const& characters_;
};

// A line of the file, or several that are joined. Only joined lines are copied.
class LogicalLine {
public:
    /// Takes the line at `begin`, with the lines that it continues in.
    void take(LineJoining const& joining, std::string_view text, size_t begin)
    {
        PhysicalLine const line = physicalLineAt(text, begin);
        begin_ = begin;
        next_ = line.next;
        chars_ = text.substr(begin, line.end - begin);
        parts_.clear();
        hasSeveralLines_ = false;
        if (joining.switches().join & kLineJoins)
            joinAt(joining, text, line);
    }

    std::string_view chars() const { return chars_; }
    size_t begin() const { return begin_; }
    size_t next() const { return next_; }  // begin of the following line

    /// Returns whether a backslash ends the line. The last line of a file has nothing to join.
    bool isJoined() const { return !parts_.empty(); }
    bool hasSeveralLines() const { return hasSeveralLines_; }

    /// Returns the position of a character, or of the end.
    size_t offset(size_t index) const
    {
        return parts_.empty() ? begin_ + std::min(index, chars_.size()) : joinedOffset(index);
    }

    /// Drops the characters from `size`.
    void cut(size_t size) { chars_ = chars_.substr(0, size); }

private:
    // Characters from `index` are in the file from `offset`.
    struct Part {
        size_t index;
        size_t offset;
    };

    void joinAt(LineJoining const& joining, std::string_view text, PhysicalLine line);
    size_t joinedOffset(size_t index) const;
    void join(LineJoining const& joining, std::string_view text, PhysicalLine line, size_t size);

    std::string_view chars_;
    size_t begin_ = 0;
    size_t next_ = 0;
    bool hasSeveralLines_ = false;
    std::string buffer_;
    std::vector<Part> parts_;
};

}  // namespace zdialects
