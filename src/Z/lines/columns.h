// columns: columns in a line, in characters of UTF-8, whatever the locale.
#pragma once

#include <stddef.h>

#include <string_view>

namespace zlines {

/// Returns the length in bytes of the character at the start of `text`: of a valid sequence of
/// UTF-8, else 1.
/// range   `text` is not empty.
inline size_t characterLength(std::string_view text)
{
    // After four of the first bytes, the second byte has a smaller range: overlong forms,
    // surrogates and code points above U+10FFFF are invalid.
    struct Row {
        unsigned char first;
        unsigned char last;
        unsigned char minSecond;
        unsigned char maxSecond;
        size_t length;
    };
    constexpr Row kRows[] = {
        {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
        {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
        {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
    };
    auto const byteAt = [text](size_t index) {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
    };
    unsigned const first = byteAt(0);
    if (first < 0x80)
        return 1;
    for (Row const& row : kRows) {
        if (first < row.first || first > row.last)
            continue;
        bool isValid = byteAt(1) >= row.minSecond && byteAt(1) <= row.maxSecond;
        for (size_t i = 2; i < row.length; ++i)
            isValid = isValid && (byteAt(i) & 0xC0) == 0x80;
        return isValid ? row.length : 1;
    }
    return 1;
}

/// Returns the number of characters in `text`: every byte that belongs to no valid sequence is one.
inline size_t countCharacters(std::string_view text)
{
    size_t count = 0;
    for (; !text.empty(); ++count)
        text.remove_prefix(characterLength(text));
    return count;
}

}  // namespace zlines
