// whitespace: the bytes that are ignored around lines, keys and values.
#pragma once

#include <ctype.h>

#include <string_view>

namespace zstanza {

// Returns whether a byte is whitespace: the whitespace of ASCII in any locale, and any byte for
// which isspace() of the current locale returns true.
inline bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r') || isspace(static_cast<unsigned char>(c)) != 0;
}

// The results of isSpace() for the locale at construction.
class WhitespaceTable {
public:
    WhitespaceTable()
    {
        for (int c = 0; c < 256; ++c)
            is_[c] = isSpace(static_cast<char>(c));
    }

    bool contains(char c) const { return is_[static_cast<unsigned char>(c)]; }

    std::string_view trimStart(std::string_view text) const
    {
        while (!text.empty() && contains(text.front()))
            text.remove_prefix(1);
        return text;
    }

    std::string_view trimEnd(std::string_view text) const
    {
        while (!text.empty() && contains(text.back()))
            text.remove_suffix(1);
        return text;
    }

    std::string_view trim(std::string_view text) const { return trimStart(trimEnd(text)); }

private:
    bool is_[256];
};

}  // namespace zstanza
