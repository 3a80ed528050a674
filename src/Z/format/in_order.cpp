// The format is read to its end before the first byte is written, because an invalid format must
// leave the output untouched.

#include "in_order.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "conversions.h"
#include "numbers.h"
#include "output.h"
#include "render.h"

namespace zformat {
namespace {

constexpr unsigned kMaxConversions = 12;

// The conversions of a format, each with its own arguments as numbers from 1.
struct Conversions {
    ZPrintfConversion_6_0 all[kMaxConversions];
    ZPrintfConversion_6_0* end;
    char const* formatEnd;
};

// Returns whether the digits at `at`, if any, number an argument.
bool hasArgumentNumber(char const* at)
{
    while (*at >= '0' && *at <= '9')
        ++at;
    return *at == '$';
}

// Reads the format at `at`. Returns 0; kFailed if it is invalid; kNotInOrder if it has too many
// conversions or an explicit number.
[[gnu::always_inline]] inline int readFormat(char const* at, Conversions& conversions)
{
    ZPrintfConversion_6_0* next = conversions.all;
    for (; *(at = findPercent(at)) != '\0'; ++at) {
        if (next == conversions.all + kMaxConversions)
            return kNotInOrder;
        if (hasArgumentNumber(at + 1))
            return kNotInOrder;
        ArgumentUsage usage;
        if (!readConversion(at, *next, usage))
            return kFailed;
        if (usage.positional)  // only of a width or precision
            return kNotInOrder;
        at = next->end;
        ++next;
    }
    conversions.end = next;
    conversions.formatEnd = at;
    return 0;
}

// An integer as it is written.
struct Number {
    uint64_t magnitude;
    uint32_t flags;  // of the letter: the base, and whether 0x precedes the digits
    bool isNegative;
};

Number signedNumber(int64_t value)
{
    bool const isNegative = value < 0;
    return {isNegative ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value), 0,
            isNegative};
}

Number unsignedNumber(uint64_t value, uint32_t flags)
{
    return {value, flags, false};
}

unsigned digitCount(Number const& number)
{
    if (number.flags & (zprintfLowerHex | zprintfUpperHex))
        return (bitsOf(number.magnitude) + 3) / 4;
    if (number.flags & zprintfOctal)
        return (bitsOf(number.magnitude) + 2) / 3;
    return decimalDigits(number.magnitude);
}

void writeDigits(Number const& number, char* end)
{
    if (number.flags & zprintfUpperHex)
        writeBits(number.magnitude, 4, kUpperDigits, end);
    else if (number.flags & zprintfLowerHex)
        writeBits(number.magnitude, 4, kLowerDigits, end);
    else if (number.flags & zprintfOctal)
        writeBits(number.magnitude, 3, kLowerDigits, end);
    else
        writeDecimal(number.magnitude, end);
}

// Writes a number where it belongs, or a prefix of it if the capacity is less. Returns its
// length.
[[gnu::always_inline]] inline int64_t putNumber(Number const& number, Output& output)
{
    unsigned const prefix = number.flags & zprintfAlternate ? 2 : number.isNegative ? 1 : 0;
    size_t const length = prefix + digitCount(number);
    char cut[2 + kMaxDigits];
    bool const fits = length <= output.space();
    char* const at = fits ? output.at() : cut;
    if (prefix == 1)
        at[0] = '-';
    else if (prefix == 2)
        memcpy(at, "0x", 2);
    writeDigits(number, at + length);
    if (fits)
        output.advance(length);
    else
        output.put(cut, length);
    return static_cast<int64_t>(length);
}

[[gnu::always_inline]] inline int64_t putString(char const* text, Output& output)
{
    size_t const length = text != nullptr ? strlen(text) : 0;
    output.put(text, length);
    return static_cast<int64_t>(length);
}

[[gnu::always_inline]] inline int64_t putCharacter(char c, Output& output)
{
    output.put(c);
    return 1;
}

// Writes any conversion. Returns the length that it needs, or a negative value.
[[gnu::noinline]] int64_t putByRenderer(qvr_cs_t codeset, ZPrintfConversion_6_0 const& conversion,
                                        ArgumentList& args, Output& output)
{
    ZPrintfArgument_6_0 arguments[4];  // width, precision and value, in this order, from 1
    ZPrintfArgument_6_0* next = arguments;
    if (conversion.flags & zprintfStarWidth)
        fetch(zprintfInt, args, *++next);
    if (conversion.flags & zprintfStarPrecision)
        fetch(zprintfInt, args, *++next);
    if (conversion.type != zprintfPercent)
        fetch(conversion.type, args, *++next);
    int64_t const length =
        kRenderers[conversion.type](codeset, conversion, arguments, output.at(), output.space());
    if (length > 0)
        output.advance(std::min(static_cast<size_t>(length), output.space()));
    return length;
}

// Writes a conversion. Returns as putByRenderer does.
[[gnu::always_inline]] inline int64_t putConversion(qvr_cs_t codeset,
                                                    ZPrintfConversion_6_0 const& conversion,
                                                    ArgumentList& args, Output& output)
{
    if (isBeforeLetters(conversion.start[1]))
        return putByRenderer(codeset, conversion, args, output);
    uint32_t const flags = conversion.flags;
    Number number;
    switch (conversion.type) {
        case zprintfString:
            return putString(va_arg(args.list, char const*), output);
        case zprintfChar:
            return putCharacter(static_cast<char>(va_arg(args.list, int)), output);
        case zprintfPercent:
            return putCharacter('%', output);
        case zprintfInt:
            number = signedNumber(va_arg(args.list, int));
            break;
        case zprintfShort:
            number = signedNumber(static_cast<short>(va_arg(args.list, int)));
            break;
        case zprintfLong:
            number = signedNumber(va_arg(args.list, long));
            break;
        case zprintfLongLong:
            number = signedNumber(va_arg(args.list, long long));
            break;
        case zprintfUnsigned:
            number = unsignedNumber(va_arg(args.list, unsigned), flags);
            break;
        case zprintfUnsignedShort:
            number = unsignedNumber(static_cast<unsigned short>(va_arg(args.list, int)), flags);
            break;
        case zprintfUnsignedLong:
            number = unsignedNumber(va_arg(args.list, unsigned long), flags);
            break;
        case zprintfUnsignedLongLong:
            number = unsignedNumber(va_arg(args.list, unsigned long long), flags);
            break;
        case zprintfPointer:
            number =
                unsignedNumber(reinterpret_cast<uintptr_t>(va_arg(args.list, void const*)), flags);
            break;
        default:
            return putByRenderer(codeset, conversion, args, output);
    }
    return putNumber(number, output);
}

}  // namespace

int formatInOrder(char* out, size_t size, qvr_cs_t codeset, char const* format, ArgumentList& args)
{
    Conversions conversions;
    if (int const result = readFormat(format, conversions); result != 0)
        return result;
    Output output(out, size > 0 ? size - 1 : 0);
    int64_t total = 0;
    for (ZPrintfConversion_6_0 const* at = conversions.all; at != conversions.end; ++at) {
        if (size_t const literal = static_cast<size_t>(at->start - format); literal > 0) {
            output.put(format, literal);
            total += static_cast<int64_t>(literal);
        }
        format = at->end + 1;
        char* const start = output.at();
        int64_t const length = putConversion(codeset, *at, args, output);
        total += length;
        if (length < 0 || total >= kTooLong) {
            if (size > 0)
                *start = '\0';
            return kFailed;
        }
    }
    if (size_t const literal = static_cast<size_t>(conversions.formatEnd - format); literal > 0) {
        output.put(format, literal);
        total += static_cast<int64_t>(literal);
    }
    if (size > 0)
        *output.at() = '\0';
    return total < kTooLong ? static_cast<int>(total) : kFailed;
}

}  // namespace zformat
