// line_parts: the name in a header, `[name]`, and the key and value in a line `key = value`. Each
// function takes a line without whitespace at its ends.
#pragma once

#include <optional>
#include <string_view>

#include "whitespace.h"

namespace zstanza {

struct KeyLine {
    std::string_view key;
    std::string_view value;
};

/// Returns the name in a line that starts with "["; the bytes after "]" are ignored. Empty if the
/// line has no "]".
inline std::optional<std::string_view> findHeaderName(std::string_view line)
{
    size_t const end = line.find(']');
    if (end == line.npos)
        return {};
    return line.substr(1, end - 1);
}

/// Returns the key and the value of a line. Empty if the line has no "=", or nothing before it.
inline std::optional<KeyLine> splitKeyLine(std::string_view line, WhitespaceTable const& whitespace)
{
    size_t const sign = line.find('=');
    if (sign == line.npos || sign == 0)
        return {};
    return KeyLine{whitespace.trimEnd(line.substr(0, sign)),
                   whitespace.trimStart(line.substr(sign + 1))};
}

}  // namespace zstanza
