// Parses a conversion: % [n$] [flags] [width] [.precision] [length] letter. Each part is read by a
// function of its own that advances the position. A table gives the type code for letter and
// length.

#include "conversions.h"

namespace zformat {
namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Reads the digits at `at`, if any, and advances past them; no digits give 0. Returns false above
// INT32_MAX.
bool readNumber(char const*& at, int32_t& number)
{
    int64_t value = 0;
    for (; isDigit(*at); ++at) {
        value = value * 10 + (*at - '0');
        if (value > INT32_MAX)
            return false;
    }
    number = static_cast<int32_t>(value);
    return true;
}

void useNumber(int32_t number, ArgumentUsage& usage)
{
    usage.positional = true;
    if (number > usage.highest)
        usage.highest = number;
}

// Reads the rest of a `*`: a number and $, or nothing, which uses the next argument.
bool readStar(char const*& at, uint32_t positionalFlag, int32_t& number, uint32_t& flags,
              ArgumentUsage& usage)
{
    if (!isDigit(*at)) {
        number = ++usage.inOrder;
        return true;
    }
    if (!readNumber(at, number) || number == 0 || *at != '$')
        return false;
    ++at;
    flags |= positionalFlag;
    useNumber(number, usage);
    return true;
}

// Reads the flags at `at`.
//
// KEPT: a second 0 starts the width and is not another flag, so no flag may follow it. A format
// such as "%00-5d" would be accepted otherwise.
// Test: zsnprintf.KeepsASecondZeroAsTheWidth
char const* readFlags(char const* at, uint32_t& flags)
{
    for (;; ++at) {
        switch (*at) {
            case ' ':
                flags |= zprintfBlank;
                break;
            case '#':
                flags |= zprintfAlternate;
                break;
            case '\'':
                flags |= zprintfGrouped;
                break;
            case '+':
                flags |= zprintfPlus;
                break;
            case '-':
                flags = (flags | zprintfLeft) & ~uint32_t{zprintfZero};
                break;
            case '0':
                if (flags & zprintfZero)
                    return at;
                if (!(flags & zprintfLeft))
                    flags |= zprintfZero;
                break;
            default:
                return at;
        }
    }
}

// Reads the number of the argument and its $ at `at`. Digits without $ are not consumed: they are a
// 0 flag or the width.
bool readArgumentNumber(char const*& at, uint32_t& flags, int32_t& argIndex, ArgumentUsage& usage)
{
    if (!isDigit(*at))
        return true;
    char const* const digits = at;
    int32_t number;
    if (!readNumber(at, number))
        return false;
    if (*at != '$') {
        at = digits;
        return true;
    }
    if (number == 0)
        return false;
    ++at;
    flags |= zprintfPositional;
    argIndex = number;
    useNumber(number, usage);
    return true;
}

bool readWidth(char const*& at, uint32_t& flags, int32_t& width, ArgumentUsage& usage)
{
    if (isDigit(*at)) {
        flags |= zprintfWidth;
        return readNumber(at, width);
    }
    if (*at != '*')
        return true;
    flags |= zprintfStarWidth;
    return readStar(++at, zprintfPositionalWidth, width, flags, usage);
}

bool readPrecision(char const*& at, uint32_t& flags, int32_t& precision, ArgumentUsage& usage)
{
    if (*at != '.')
        return true;
    ++at;
    // KEPT: clears the 0 flag for doubles too, unlike the platform. Columns of numbers with a
    // precision would be padded with zeros otherwise.
    // Test: zsnprintf.KeepsPrecisionClearingTheZeroFlag
    flags &= ~uint32_t{zprintfZero};
    if (*at == '*') {
        flags |= zprintfStarPrecision;
        return readStar(++at, zprintfPositionalPrecision, precision, flags, usage);
    }
    flags |= zprintfPrecision;
    return readNumber(at, precision);
}

// Reads the length at `at`, if any. Returns its column of Conversion::type.
int readLength(char const*& at, uint32_t& flags)
{
    switch (*at) {
        case 'h':
            ++at;
            flags |= zprintfHalf;
            return 1;
        case 'l':
            ++at;
            if (*at != 'l') {
                flags |= zprintfDouble;
                return 2;
            }
            ++at;
            flags |= zprintfQuad;
            return 3;
        case 'L':
        case 'q':
            ++at;
            flags |= zprintfQuad;
            return 3;
        default:
            return 0;
    }
}

}  // namespace

bool readParts(char const* at, ZPrintfConversion_6_0& conversion, ArgumentUsage& usage)
{
    uint32_t flags = 0;
    int32_t argIndex = 0;
    if (!readArgumentNumber(at, flags, argIndex, usage))
        return false;
    if (isBeforeLetters(*at)) {
        at = readFlags(at, flags);
        if (!readWidth(at, flags, conversion.width, usage) ||
            !readPrecision(at, flags, conversion.precision, usage))
            return false;
    }
    int const length = readLength(at, flags);

    // A second length, a second precision and the end of the format are not letters either.
    Conversion const& row = conversionAt(at);
    conversion.type = row.type[length];
    if (conversion.type == kNoType)
        return false;
    flags |= row.flags;
    if (flags & zprintfNoArgument)
        argIndex = 0;
    else if (!(flags & zprintfPositional))
        argIndex = ++usage.inOrder;
    conversion.flags = flags;
    conversion.argIndex = argIndex;
    conversion.end = at;
    return true;
}

}  // namespace zformat
