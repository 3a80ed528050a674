// line: a line of a file as read, by the positions of its parts.
#pragma once

#include <stdint.h>

#include <string>
#include <string_view>
#include <vector>

namespace zlines {

enum LineKind : uint32_t {
    blankLine,
    commentLine,
    headerLine,
    valueLine,    // a key with a value
    keyOnlyLine,  // a key without a value
    otherLine,    // kept, and never read or changed
};

// A line begins where the line before it ends: its end includes the line ending, and for a value of
// several lines all of them. Positions are bytes from the start of the text.
struct Line {
    uint32_t begin;
    uint32_t kind : 3;
    uint32_t indent : 29;  // bytes before the name
    uint32_t nameEnd;      // the name: a key, a stanza or the mark of a comment
    uint32_t valueBegin;   // the value of a key as spelled, or a comment without its mark
    uint32_t valueEnd;

    uint32_t nameBegin() const { return begin + indent; }
    bool isKey() const { return kind == valueLine || kind == keyOnlyLine; }
};
static_assert(sizeof(Line) == 20);

// The comment right above a header, if the cache has it in another stanza than the lines above it.
struct HeaderComment {
    uint32_t begin;      // position of its first line
    uint32_t end;        // of the header
    std::string stanza;  // as compared; empty: the lines above the first header

    // Whether the header was repeated: the cache has the comment between the lines of its stanza
    // above and below that header. Else the comment ends its stanza.
    bool isRepeated;
};

// The differences between text and the contents that stores have left.
struct TextHistory {
    std::vector<HeaderComment> headerComments = {};  // by their ends
    std::vector<uint32_t> movedComments = {};        // positions of comments that the contents lack
    bool isScattered = false;                        // other keys were between lines of a key
};

inline std::string_view slice(std::string_view text, uint32_t begin, uint32_t end)
{
    return {text.data() + begin, end - begin};
}

inline std::string_view withoutLineEnding(std::string_view line)
{
    line.remove_suffix(line.ends_with('\n') ? 1 : 0);
    line.remove_suffix(line.ends_with('\r') ? 1 : 0);
    return line;
}

/// Returns whether the line endings inside a line that continues are as given.
inline bool hasLineEndings(std::string_view line, std::string_view ending)
{
    size_t const newline = line.find('\n');
    bool const hasReturn = newline != 0 && newline != line.npos && line[newline - 1] == '\r';
    return newline == line.npos || hasReturn == (ending.size() == 2);
}

}  // namespace zlines
