#include "columns.h"

namespace zstanza {

namespace {

unsigned char byteAt(std::string_view text, size_t index)
{
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
}

bool isContinuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

}  // namespace

size_t characterLength(std::string_view text)
{
    // The second byte has a smaller range after four of the first bytes: overlong forms,
    // surrogates and code points above U+10FFFF are invalid.
    struct Row {
        unsigned char first;
        unsigned char last;
        unsigned char minSecond;
        unsigned char maxSecond;
        size_t length;
    };
    static constexpr Row kRows[] = {
        {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
        {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
        {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
    };
    unsigned char const first = byteAt(text, 0);
    if (first < 0x80)
        return 1;
    for (Row const& row : kRows) {
        if (first < row.first || first > row.last)
            continue;
        unsigned char const second = byteAt(text, 1);
        bool isValid = second >= row.minSecond && second <= row.maxSecond;
        for (size_t i = 2; i < row.length; ++i)
            isValid = isValid && isContinuation(byteAt(text, i));
        return isValid ? row.length : 1;
    }
    return 1;
}

size_t countCharacters(std::string_view text)
{
    size_t count = 0;
    for (; !text.empty(); ++count)
        text.remove_prefix(characterLength(text));
    return count;
}

}  // namespace zstanza
