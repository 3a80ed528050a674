#include "line_splitter.h"

namespace zstanza {

Expected expect(char const* text, size_t length)
{
    Expected expected = {};
    char const* const end = text + length;
    for (char const* at = text; at != end;) {
        switch (*at) {
            case '[':
                ++expected.heads;
                break;
            case '#':
                ++expected.comments;
                break;
            case '\n':
                ++expected.blanks;
                break;
            default:
                ++expected.keys;
                break;
        }
        auto const* const feed =
            static_cast<char const*>(memchr(at, '\n', static_cast<size_t>(end - at)));
        at = feed == nullptr ? end : feed + 1;
    }
    return expected;
}

}  // namespace zstanza
