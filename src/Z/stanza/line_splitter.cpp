#include "line_splitter.h"

namespace zstanza {

LineCounts estimateLines(char const* text, size_t length)
{
    LineCounts counts = {};
    char const* const end = text + length;
    for (char const* at = text; at != end;) {
        switch (*at) {
            case '[':
                ++counts.headers;
                break;
            case '#':
                ++counts.comments;
                break;
            case '\n':
                ++counts.blanks;
                break;
            default:
                ++counts.keys;
                break;
        }
        auto const* const newline =
            static_cast<char const*>(memchr(at, '\n', static_cast<size_t>(end - at)));
        at = newline == nullptr ? end : newline + 1;
    }
    return counts;
}

}  // namespace zstanza
