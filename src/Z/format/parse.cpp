// Parses a conversion: % [n$] [flags] [width] [.precision] [length] letter. Each part is read by a
// function of its own that advances the position. A table gives the type code for letter and
// length.

#include "parse.h"

#include <stdlib.h>
#include <string.h>

#include <array>

#include "arguments.h"

namespace zformat {
namespace {

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
constexpr Conversion kConversions[] = {
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
constexpr std::array<uint8_t, 256> kConversionOfByte = [] {
    std::array<uint8_t, 256> row{};
    for (uint8_t i = 1; i < sizeof kConversions / sizeof *kConversions; ++i)
        row[static_cast<unsigned char>(kConversions[i].letter)] = i;
    return row;
}();

Conversion const& conversionAt(char const* at)
{
    return kConversions[kConversionOfByte[static_cast<unsigned char>(*at)]];
}

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

// Reads the conversion at the % at `at` into `conversion`. Returns false if it is invalid.
bool readConversion(char const* at, ZPrintfConversion_6_0& conversion, ArgumentUsage& usage)
{
    conversion.start = at++;
    conversion.width = 0;
    conversion.precision = 0;
    if (Conversion const& row = conversionAt(at); row.type[0] != kNoType) {
        // The common case: nothing between the % and the letter.
        conversion.end = at;
        conversion.type = row.type[0];
        conversion.flags = row.flags;
        conversion.argIndex = row.flags & zprintfNoArgument ? 0 : ++usage.inOrder;
        return true;
    }

    uint32_t flags = 0;
    int32_t argIndex = 0;
    if (!readArgumentNumber(at, flags, argIndex, usage))
        return false;
    at = readFlags(at, flags);
    if (!readWidth(at, flags, conversion.width, usage) ||
        !readPrecision(at, flags, conversion.precision, usage))
        return false;
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

// Grows the array of conversions.
bool growConversions(ZPrintfContext_6_0& context, int32_t& capacity)
{
    if (capacity > INT32_MAX - zprintfInlineRecords)
        return false;
    bool const isInline = context.conversions == context.inlineConversions;
    size_t const size =
        sizeof(ZPrintfConversion_6_0) * (static_cast<size_t>(capacity) + zprintfInlineRecords);
    void* const grown = isInline ? malloc(size) : realloc(context.conversions, size);
    if (grown == nullptr)
        return false;
    if (isInline)
        memcpy(grown, context.inlineConversions, sizeof context.inlineConversions);
    context.conversions = static_cast<ZPrintfConversion_6_0*>(grown);
    capacity += zprintfInlineRecords;
    return true;
}

// Returns the next % or the end of the format.
char const* findPercent(char const* at)
{
    return *at == '%' ? at : strchrnul(at, '%');
}

bool readFormat(ZPrintfContext_6_0& context, ArgumentUsage& usage)
{
    int32_t capacity = zprintfInlineRecords;
    int32_t count = 0;
    char const* at = context.format;
    for (; *(at = findPercent(at)) != '\0'; ++at) {
        if (count == capacity && !growConversions(context, capacity))
            return false;
        ZPrintfConversion_6_0& conversion = context.conversions[count++];
        if (!readConversion(at, conversion, usage))
            return false;
        at = conversion.end;
    }
    context.conversionCount = count;
    context.formatEnd = at;
    return true;
}

}  // namespace

bool parse(ZPrintfContext_6_0& context, qvr_cs const* codeset, char const* format, va_list args)
{
    clear(context);
    context.codeset = codeset;
    context.format = format;
    if (format == nullptr)
        return false;
    ArgumentUsage usage;
    if (readFormat(context, usage) && fetchArguments(context, usage, args))
        return true;
    release(context);
    return false;
}

}  // namespace zformat
