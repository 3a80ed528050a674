// whitespace: the bytes that are ignored around keys and values.
#pragma once

#include <ctype.h>

namespace zstanza {

// Returns whether a byte is white space: those of ASCII in every locale, and what isspace() of the
// current locale adds.
inline bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r') || isspace(static_cast<unsigned char>(c)) != 0;
}

// The same for many bytes, in a table.
struct Spaces {
    Spaces();
    bool has(char c) const { return is[static_cast<unsigned char>(c)]; }

    bool is[256];
};

}  // namespace zstanza
