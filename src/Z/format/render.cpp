// Renders a context: the literal parts of its format and each conversion, by a table of renderers.
// The renderers apply the width themselves and write only the bytes that fit, so a huge width costs
// nothing.

#include "render.h"

#include <string.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "numbers.h"
#include "output.h"
#include "qvr.h"

namespace zformat {
namespace {

constexpr int64_t kFailed = -1;

// The pad characters before and after a conversion.
struct Padding {
    int64_t before;
    int64_t after;
};

// KEPT: a negative width from an argument pads nothing, whereas the platform left-justifies; only
// doubles do as the platform. A caller that computes widths would see other columns otherwise.
// Test: zsnprintf.KeepsANegativeWidthWithoutEffectExceptOnDoubles
Padding paddingFor(ZPrintfConversion_6_0 const& conversion, int width, int64_t length)
{
    int64_t const pad = std::max<int64_t>(width - length, 0);
    return conversion.flags & zprintfLeft ? Padding{0, pad} : Padding{pad, 0};
}

int64_t argumentInteger(ZPrintfArgument_6_0 const* arguments, int32_t number)
{
    return arguments[number].value.integer;
}

int64_t signedValue(ZPrintfConversion_6_0 const& conversion, ZPrintfArgument_6_0 const* arguments)
{
    // The argument may have been fetched for an unsigned conversion of the same width.
    int64_t const value = argumentInteger(arguments, conversion.argIndex);
    switch (conversion.type) {
        case zprintfShort:
            return static_cast<int16_t>(value);
        case zprintfInt:
            return static_cast<int32_t>(value);
        default:
            return value;
    }
}

uint64_t unsignedValue(ZPrintfConversion_6_0 const& conversion,
                       ZPrintfArgument_6_0 const* arguments)
{
    uint64_t const value = arguments[conversion.argIndex].value.unsignedInteger;
    switch (conversion.type) {
        case zprintfUnsignedShort:
            return static_cast<uint16_t>(value);
        case zprintfUnsigned:
            return static_cast<uint32_t>(value);
        case zprintfPointer:
            return reinterpret_cast<uintptr_t>(arguments[conversion.argIndex].value.pointer);
        default:
            return value;
    }
}

int64_t render_char(qvr_cs_t, ZPrintfConversion_6_0 const& conversion,
                    ZPrintfArgument_6_0 const* arguments, char* out, size_t capacity)
{
    char const character =
        conversion.type == zprintfPercent ? '%' : arguments[conversion.argIndex].value.character;
    Output output(out, capacity);
    if (!(conversion.flags & kHasWidth)) {
        output.put(character);
        return 1;
    }
    RenderParams const params = renderParams(conversion, arguments);
    Padding const pad = paddingFor(conversion, params.width, 1);
    output.fill(params.padChar, pad.before);
    output.put(character);
    output.fill(params.padChar, pad.after);
    return pad.before + 1 + pad.after;
}

int64_t render_wchar(qvr_cs_t codeset, ZPrintfConversion_6_0 const& conversion,
                     ZPrintfArgument_6_0 const* arguments, char* out, size_t capacity)
{
    char character[qvrMbLenMax];
    int const length = qvr_wctomb(codeset, character, sizeof character,
                                  arguments[conversion.argIndex].value.wideCharacter);
    if (length < 0)
        return kFailed;
    RenderParams const params = renderParams(conversion, arguments);
    Padding const pad = paddingFor(conversion, params.width, length);
    Output output(out, capacity);
    output.fill(params.padChar, pad.before);
    output.putWhole(character, static_cast<size_t>(length));
    output.fill(params.padChar, pad.after);
    return pad.before + length + pad.after;
}

// Converts the wide string `text` into `output`, up to its terminator or `limit` bytes. Returns the
// length of the converted part; fails if it is too long.
int64_t convertWide(qvr_cs_t codeset, uint16_t const* text, int64_t limit, Output& output)
{
    int64_t total = 0;
    for (; total < limit && *text != 0; ++text) {
        char character[qvrMbLenMax];
        int const length = qvr_wctomb(codeset, character, sizeof character, *text);
        if (length < 0)
            return kFailed;
        if (total + length > limit)
            break;
        output.putWhole(character, static_cast<size_t>(length));
        total += length;
        if (total >= kTooLong)
            return kFailed;
    }
    return total;
}

int64_t renderWideString(qvr_cs_t codeset, ZPrintfConversion_6_0 const& conversion,
                         ZPrintfArgument_6_0 const* arguments, char* out, size_t capacity)
{
    constexpr uint16_t kEmpty[] = {0};
    RenderParams const params = renderParams(conversion, arguments);
    void const* const given = arguments[conversion.argIndex].value.pointer;
    uint16_t const* const text = given != nullptr ? static_cast<uint16_t const*>(given) : kEmpty;
    int64_t const limit = params.hasPrecision ? params.precision : INT64_MAX;

    Output output(out, capacity);
    Padding pad = {0, 0};
    int64_t length = 0;
    if (params.width > 0) {
        Output nowhere(nullptr, 0);
        length = convertWide(codeset, text, limit, nowhere);
        pad = paddingFor(conversion, params.width, length);
        output.fill(params.padChar, pad.before);
    }
    length = convertWide(codeset, text, limit, output);
    if (length < 0)
        return kFailed;
    output.fill(params.padChar, pad.after);
    return pad.before + length + pad.after;
}

int64_t render_string(qvr_cs_t codeset, ZPrintfConversion_6_0 const& conversion,
                      ZPrintfArgument_6_0 const* arguments, char* out, size_t capacity)
{
    if (conversion.type == zprintfWideString)
        return renderWideString(codeset, conversion, arguments, out, capacity);
    // KEPT: a null string is empty; nothing is shown in its place. A report with an unset name
    // would contain a placeholder otherwise.
    // Test: zsnprintf.KeepsANullStringEmpty
    char const* const given =
        static_cast<char const*>(arguments[conversion.argIndex].value.pointer);
    char const* const text = given != nullptr ? given : "";
    Output output(out, capacity);
    if (!(conversion.flags & (kHasWidth | kHasPrecision))) {
        size_t const length = strlen(text);
        output.put(text, length);
        return static_cast<int64_t>(length);
    }
    RenderParams const params = renderParams(conversion, arguments);
    // With a precision the string may lack a terminator.
    size_t const length =
        params.hasPrecision ? strnlen(text, static_cast<size_t>(params.precision)) : strlen(text);
    Padding const pad = paddingFor(conversion, params.width, static_cast<int64_t>(length));
    output.fill(params.padChar, pad.before);
    output.put(text, length);
    output.fill(params.padChar, pad.after);
    return pad.before + static_cast<int64_t>(length) + pad.after;
}

// The flags that add to an integer more than its digits and a minus sign.
//
// KEPT: the ' flag is not one of them, and an unsigned number has no sign. A program that parses
// the output would fail on separators or a plus otherwise.
// Test: zsnprintf.KeepsSignsAndGroupingWithoutEffectOnIntegers
constexpr uint32_t kShapesInteger =
    zprintfAlternate | zprintfBlank | zprintfPlus | kHasWidth | kHasPrecision;

// Writes the digits [first, end) with leading zeros up to `count` digits.
void putDigits(Output& output, char const* first, char const* end, int64_t count)
{
    output.fill('0', count - (end - first));
    output.put(first, static_cast<size_t>(end - first));
}

int64_t render_longlong(qvr_cs_t, ZPrintfConversion_6_0 const& conversion,
                        ZPrintfArgument_6_0 const* arguments, char* out, size_t capacity)
{
    int64_t const value = signedValue(conversion, arguments);
    bool const isNegative = value < 0;
    uint64_t const magnitude =
        isNegative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    char digits[1 + kMaxDigits];
    char* const end = digits + sizeof digits;
    char* first = writeDecimal(magnitude, end);
    Output output(out, capacity);
    if (!(conversion.flags & kShapesInteger)) {
        if (isNegative)
            *--first = '-';
        output.put(first, static_cast<size_t>(end - first));
        return end - first;
    }

    RenderParams const params = renderParams(conversion, arguments);
    if (value == 0 && params.precision == 0)
        first = end;
    int64_t const count = std::max<int64_t>(end - first, params.precision);
    char const sign = isNegative                        ? '-'
                      : conversion.flags & zprintfPlus  ? '+'
                      : conversion.flags & zprintfBlank ? ' '
                                                        : '\0';
    int64_t const length = count + (sign != '\0');
    Padding const pad = paddingFor(conversion, params.width, length);
    // KEPT: zeros of the 0 flag precede the sign. A program that reads numbers from fixed columns
    // looks for the sign right before the digits of the number, and would not find it at the start
    // of the column. Test: zsnprintf.KeepsZerosBeforeTheSign
    output.fill(params.padChar, pad.before);
    if (sign != '\0')
        output.put(sign);
    putDigits(output, first, end, count);
    output.fill(params.padChar, pad.after);
    return pad.before + length + pad.after;
}

int64_t render_ulonglong(qvr_cs_t, ZPrintfConversion_6_0 const& conversion,
                         ZPrintfArgument_6_0 const* arguments, char* out, size_t capacity)
{
    uint64_t const value = unsignedValue(conversion, arguments);
    uint32_t const flags = conversion.flags;
    bool const isHex = flags & (zprintfLowerHex | zprintfUpperHex);
    char digits[kMaxDigits];
    char* const end = digits + sizeof digits;
    char* first;
    if (flags & zprintfUpperHex)
        first = writeBits(value, 4, kUpperDigits, end);
    else if (flags & zprintfLowerHex)
        first = writeBits(value, 4, kLowerDigits, end);
    else if (flags & zprintfOctal)
        first = writeBits(value, 3, kLowerDigits, end);
    else
        first = writeDecimal(value, end);
    Output output(out, capacity);
    if (!(flags & kShapesInteger)) {
        output.put(first, static_cast<size_t>(end - first));
        return end - first;
    }

    RenderParams const params = renderParams(conversion, arguments);
    int64_t precision = params.precision;
    if (value == 0 && precision == 0 && params.hasPrecision)
        first = end;
    if ((flags & zprintfAlternate) && (flags & zprintfOctal) && value != 0 &&
        precision <= end - first)
        precision = end - first + 1;
    int64_t const count = std::max<int64_t>(end - first, precision);

    // KEPT: 0 has the prefix too, though padding does not account for it: a null pointer is 0x0.
    // Reports with null pointers would change otherwise.
    // Test: zsnprintf.KeepsThePrefixOfZero
    bool const hasPrefix = (flags & zprintfAlternate) && isHex;
    char const prefix[] = {'0', flags & zprintfUpperHex ? 'X' : 'x'};
    int64_t const prefixLength = hasPrefix ? 2 : 0;
    Padding const pad =
        paddingFor(conversion, params.width, count + (value != 0 ? prefixLength : 0));
    int64_t const extraZeros =
        flags & zprintfWidthOf8 ? std::max<int64_t>(8 - count, 0) : int64_t{0};

    if (hasPrefix && (flags & zprintfZero))
        output.put(prefix, sizeof prefix);
    output.fill(params.padChar, pad.before);
    if (hasPrefix && !(flags & zprintfZero))
        output.put(prefix, sizeof prefix);
    output.fill('0', extraZeros);
    putDigits(output, first, end, count);
    // KEPT: a left-justified pointer is padded with zeros, because p sets the 0 flag. Output
    // compared byte for byte would change otherwise.
    // Test: zsnprintf.KeepsZerosAfterALeftJustifiedPointer
    output.fill(params.padChar, pad.after);
    return pad.before + prefixLength + extraZeros + count + pad.after;
}

}  // namespace

Renderer* const kRenderers[] = {
    render_char,       // zprintfChar
    render_wchar,      // zprintfWideChar
    render_string,     // zprintfString
    render_string,     // zprintfWideString
    render_longlong,   // zprintfShort
    render_ulonglong,  // zprintfUnsignedShort
    render_longlong,   // zprintfInt
    render_ulonglong,  // zprintfUnsigned
    render_longlong,   // zprintfLong
    render_ulonglong,  // zprintfUnsignedLong
    render_longlong,   // zprintfLongLong
    render_ulonglong,  // zprintfUnsignedLongLong
    render_ulonglong,  // zprintfPointer
    render_double,     // zprintfExponent
    render_double,     // zprintfFixed
    render_double,     // zprintfGeneral
    render_double,     // zprintfLongDoubleExponent
    render_double,     // zprintfLongDoubleFixed
    render_double,     // zprintfLongDoubleGeneral
    render_char,       // zprintfPercent
};

char const kDigitPairs[201] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

RenderParams renderParams(ZPrintfConversion_6_0 const& conversion,
                          ZPrintfArgument_6_0 const* arguments)
{
    uint32_t const flags = conversion.flags;
    int32_t const type = conversion.type;
    RenderParams params = {0, 0, ' ', false};
    if ((flags & zprintfZero) && type >= zprintfShort && type <= zprintfLongDoubleGeneral)
        params.padChar = '0';

    if (flags & zprintfWidth)
        params.width = conversion.width;
    else if (flags & zprintfStarWidth)
        params.width = static_cast<int>(argumentInteger(arguments, conversion.width));
    if (flags & zprintfWidthOf8)
        params.width = std::max(params.width, 8);

    if (flags & zprintfPrecision) {
        params.precision = conversion.precision;
        params.hasPrecision = true;
    } else if (flags & zprintfStarPrecision) {
        params.precision = static_cast<int>(argumentInteger(arguments, conversion.precision));
        params.hasPrecision = params.precision >= 0;
    }
    if (!params.hasPrecision) {
        bool const isFixed = type == zprintfFixed || type == zprintfLongDoubleFixed;
        bool const isInteger = type >= zprintfShort && type <= zprintfUnsignedLongLong;
        params.precision = isFixed ? 6 : isInteger ? 1 : 0;
    }
    if (flags & zprintfPrecisionOf8)
        params.precision = std::max(params.precision, 8);
    return params;
}

int render(ZPrintfContext_6_0 const& context, char* out, size_t size)
{
    size_t const capacity = size > 0 ? size - 1 : 0;
    Output output(out, capacity);
    int64_t total = 0;
    char const* literal = context.format;
    ZPrintfConversion_6_0 const* const end = context.conversions + context.conversionCount;
    for (ZPrintfConversion_6_0 const* conversion = context.conversions; conversion != end;
         ++conversion) {
        size_t const literalLength = static_cast<size_t>(conversion->start - literal);
        if (literalLength > 0)
            output.put(literal, literalLength);
        literal = conversion->end + 1;
        int64_t const length = kRenderers[conversion->type](
            context.codeset, *conversion, context.arguments, output.at(), output.space());
        total += static_cast<int64_t>(literalLength) + length;
        if (length < 0 || total >= kTooLong) {
            if (size > 0)
                *output.at() = '\0';
            return static_cast<int>(kFailed);
        }
        output.advance(std::min(static_cast<size_t>(length), output.space()));
    }
    size_t const literalLength = static_cast<size_t>(context.formatEnd - literal);
    output.put(literal, literalLength);
    total += static_cast<int64_t>(literalLength);
    if (size > 0)
        *output.at() = '\0';
    return total < kTooLong ? static_cast<int>(total) : static_cast<int>(kFailed);
}

}  // namespace zformat
