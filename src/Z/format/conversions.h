// conversions: reads a conversion of a format.
#pragma once

#include <stdint.h>
#include <string.h>

#include <array>

#include "../zsnprintf.h"

namespace zformat {

inline constexpr int8_t kNoType = -1;  // no type code

// A letter that ends a conversion, with its type for no length, for h, for l, and for ll, L or q.
struct Conversion {
    char letter;
    int8_t type[4];
    uint32_t flags;
};

// KEPT: a length has no effect on a string, a pointer or a percent sign, whereas the platform takes
// wide characters for l. A format with %ls and a narrow argument would break otherwise; C and S are
// the wide conversions.
// Test: zsnprintf.KeepsLengthsWithoutEffectOnStrings
inline constexpr Conversion kConversions[] = {
    {'\0', {kNoType, kNoType, kNoType, kNoType}, 0},  // not a letter
    {'%', {19, 19, 19, 19}, zprintfNoArgument},
    {'C', {1, 1, 1, 1}, 0},
    {'E', {13, kNoType, kNoType, 16}, zprintfUpperExponent},
    {'G', {15, kNoType, kNoType, 18}, zprintfUpperExponent},
    {'S', {3, 3, 3, 3}, 0},
    {'X', {7, 5, 9, 11}, zprintfUpperHex},
    {'c', {0, 0, 0, 0}, 0},
    {'d', {6, 4, 8, 10}, 0},
    {'e', {13, kNoType, kNoType, 16}, 0},
    {'f', {14, kNoType, kNoType, 17}, 0},
    {'g', {15, kNoType, kNoType, 18}, 0},
    {'i', {6, 4, 8, 10}, 0},
    {'o', {7, 5, 9, 11}, zprintfOctal},
    {'p', {12, 12, 12, 12}, zprintfLowerHex | zprintfAlternate | zprintfZero},
    {'s', {2, 2, 2, 2}, 0},
    {'u', {7, 5, 9, 11}, 0},
    {'x', {7, 5, 9, 11}, zprintfLowerHex},
};

// The row of kConversions for each byte.
inline constexpr std::array<uint8_t, 256> kConversionOfByte = [] {
    std::array<uint8_t, 256> row{};
    for (uint8_t i = 1; i < sizeof kConversions / sizeof *kConversions; ++i)
        row[static_cast<unsigned char>(kConversions[i].letter)] = i;
    return row;
}();

inline Conversion const& conversionAt(char const* at)
{
    return kConversions[kConversionOfByte[static_cast<unsigned char>(*at)]];
}

// The argument numbers that a format uses, collected while it is read.
struct ArgumentUsage {
    int32_t inOrder = 0;      // arguments of conversions without n$
    int32_t highest = 0;      // largest explicit number
    bool positional = false;  // the format has an explicit number
};

// Reads the parts between the % of a conversion and its letter, from `at` on, and the letter.
// Returns false if they are invalid.
bool readParts(char const* at, ZPrintfConversion_6_0& conversion, ArgumentUsage& usage);

// Reads the conversion at the % at `at` into `conversion`. Returns false if it is invalid.
[[gnu::always_inline]] inline bool readConversion(char const* at, ZPrintfConversion_6_0& conversion,
                                                  ArgumentUsage& usage)
{
    conversion.start = at++;
    conversion.width = 0;
    conversion.precision = 0;
    Conversion const& row = conversionAt(at);
    if (row.type[0] == kNoType)
        return readParts(at, conversion, usage);
    // The common case: nothing between the % and the letter.
    conversion.end = at;
    conversion.type = row.type[0];
    conversion.flags = row.flags;
    conversion.argIndex = row.flags & zprintfNoArgument ? 0 : ++usage.inOrder;
    return true;
}

// Returns whether `c` may be part of a number, flags, a width or a precision. No letter may.
inline bool isBeforeLetters(char c)
{
    return static_cast<unsigned char>(c) < 'A' && c != '%';
}

// Returns the next % or the end of the format.
inline char const* findPercent(char const* at)
{
    return *at == '%' || *at == '\0' ? at : strchrnul(at, '%');
}

}  // namespace zformat
