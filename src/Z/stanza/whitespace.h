// whitespace: the bytes that are ignored around lines, keys and values.
#pragma once

#include <ctype.h>

namespace zstanza {

// Returns whether a byte is whitespace: the whitespace of ASCII in any locale, and any byte for
// which isspace() of the current locale returns true.
inline bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r') || isspace(static_cast<unsigned char>(c)) != 0;
}

// The results of isSpace() for the locale at construction.
struct WhitespaceTable {
    WhitespaceTable();
    bool contains(char c) const { return is[static_cast<unsigned char>(c)]; }

    bool is[256];
};

}  // namespace zstanza
