#include "reserved_entry.h"

#include "line_parts.h"
#include "line_splitter.h"
#include "whitespace.h"

namespace zstanza {

std::string findCompanion(std::string_view text)
{
    // The text may be large, and few files have a companion.
    size_t const at = text.find(std::string("[") + kReservedCategory + "]");
    if (at == text.npos)
        return std::string();
    // Start with the whole line: the match may be in a comment or a value.
    size_t const lineEnd = text.rfind('\n', at);
    text.remove_prefix(lineEnd == text.npos ? 0 : lineEnd + 1);

    WhitespaceTable const whitespace;
    LineSplitter lines(text.data(), text.size());
    std::string_view companion;
    bool isReserved = false;
    char const* bytes;
    for (size_t length; lines.next(bytes, length);) {
        std::string_view const line = whitespace.trim(std::string_view(bytes, length));
        if (line.empty() || line.front() == '#')
            continue;
        if (line.front() == '[') {
            if (isReserved)
                break;
            isReserved = findHeaderName(line) == kReservedCategory;
        } else if (isReserved) {
            auto const parts = splitKeyLine(line, whitespace);
            if (parts && parts->key == kReservedKey)
                companion = parts->value;
        }
    }
    return std::string(companion);
}

}  // namespace zstanza
