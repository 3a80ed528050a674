// Formats floating-point conversions, byte for byte as the C library does. The fast path computes
// in 128 bits if that is exact, and uses std::to_chars() for other doubles. The C library formats
// the rest. Padding is added here, as far as the output has space, so a huge width is cheap.

#include <langinfo.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cfenv>
#include <charconv>
#include <cmath>
#include <limits>
#include <memory>
#include <type_traits>

#include "numbers.h"
#include "output.h"
#include "render.h"

namespace zformat {
namespace {

constexpr int kDefaultPrecision = 6;

// Past this many decimals, every digit of a long double is 0.
constexpr int kMaxPrecision = 16500;

// Limits of the fast path: the decimals and the power of ten up to which the arithmetic below is
// exact in 128 bits (and kMaxScale), and the largest precision for std::to_chars().
constexpr int kExactDecimals = 17;
constexpr int kFastPrecision = 40;
constexpr size_t kFastSize = 400;
static_assert(kFastSize > 2 + std::numeric_limits<double>::max_exponent10 + 1 + kFastPrecision);

__extension__ typedef unsigned __int128 Wide;

struct Free {
    void operator()(char* p) const { free(p); }
};

// The absolute value: mantissa * 2^exponent.
struct Magnitude {
    uint64_t mantissa;
    int exponent;
};

// Splits a finite value. Returns false if the arithmetic below does not support its format.
bool split(double value, Magnitude& magnitude)
{
    constexpr uint64_t kHiddenBit = uint64_t{1} << 52;
    uint64_t bits;
    memcpy(&bits, &value, sizeof bits);
    int const biased = static_cast<int>(bits >> 52) & 0x7FF;
    bits &= kHiddenBit - 1;
    magnitude.mantissa = biased == 0 ? bits : bits | kHiddenBit;
    magnitude.exponent = std::max(biased, 1) - 1075;
    return true;
}

bool split(long double value, Magnitude& magnitude)
{
    // Only the 80-bit format, whose 64-bit mantissa has an explicit leading bit.
    if constexpr (std::numeric_limits<long double>::digits == 64) {
        uint16_t signAndExponent;
        memcpy(&magnitude.mantissa, &value, sizeof magnitude.mantissa);
        memcpy(&signAndExponent, reinterpret_cast<char const*>(&value) + sizeof magnitude.mantissa,
               sizeof signAndExponent);
        int const biased = signAndExponent & 0x7FFF;
        magnitude.exponent = std::max(biased, 1) - 16446;
        return true;
    } else {
        return false;
    }
}

// Rounds half to even: returns `quotient`, plus 1 if `remainder` exceeds `half`, or if it equals
// `half` and `quotient` is odd. `isMore` rounds an equal remainder up: bits past it are set, or the
// digit before the quotient is odd.
uint64_t rounded(Wide quotient, Wide remainder, Wide half, bool isMore)
{
    bool const isOdd = quotient & 1;
    bool const up = remainder > half || (remainder == half && (isMore || isOdd));
    return static_cast<uint64_t>(quotient + (up ? 1 : 0));
}

// Writes the last `count` digits of `number` at `at` and returns the end.
char* writeDigits(uint64_t number, int count, char* at)
{
    char* digit = at + count;
    for (; digit - at >= 2; number /= 100)
        memcpy(digit -= 2, kDigitPairs + number % 100 * 2, 2);
    if (digit != at)
        *--digit = static_cast<char>('0' + number % 10);
    return at + count;
}

// Writes `magnitude` at `at` with `decimals` digits (at most kExactDecimals) after the point. The
// point is written if there are decimals or `showsPoint`. Returns the end, or null if the value is
// 2^64 or more.
//
// The fraction bits of the mantissa times 10^decimals are less than 2^121, so their division by
// 2^-exponent is exact in 128 bits. If -exponent is 122 or more, the result rounds to 0.
char* writeFixed(Magnitude magnitude, int decimals, bool showsPoint, char* at)
{
    uint64_t const scale = kPowersOf10[decimals];
    uint64_t whole = 0;
    uint64_t fraction = 0;
    if (magnitude.exponent > 0) {
        // The mantissa is not 0 here, as __builtin_clzll() requires: 0 has the smallest exponent.
        if (magnitude.exponent > __builtin_clzll(magnitude.mantissa))
            return nullptr;
        whole = magnitude.mantissa << magnitude.exponent;
    } else if (int const shift = -magnitude.exponent; shift == 0) {
        whole = magnitude.mantissa;
    } else if (shift < 122) {
        whole = shift < 64 ? magnitude.mantissa >> shift : 0;
        uint64_t const fractionBits =
            shift < 64 ? magnitude.mantissa - (whole << shift) : magnitude.mantissa;
        Wide const product = Wide{fractionBits} * scale;
        Wide const quotient = product >> shift;
        bool const isTieToOdd = decimals == 0 && (whole & 1);
        fraction =
            rounded(quotient, product - (quotient << shift), Wide{1} << (shift - 1), isTieToOdd);
        if (fraction == scale) {
            fraction = 0;
            ++whole;
        }
    }

    at = std::to_chars(at, at + 20, whole).ptr;
    if (decimals > 0 || showsPoint)
        *at++ = '.';
    return writeDigits(fraction, decimals, at);
}

// Computes `magnitude` * 10^scale, rounded to an integer. Returns false if an operand exceeds the
// range for which the rounding is exact in 128 bits.
bool scaled(Magnitude magnitude, int scale, uint64_t& result)
{
    int const exponent = magnitude.exponent;
    if (scale > kMaxScale || scale < -kMaxScale || exponent < -126 || exponent > 63)
        return false;
    Wide const mantissa = magnitude.mantissa;
    if (scale >= 0) {
        Wide const product = mantissa * kPowersOf10[scale];
        if (exponent >= 0) {
            result = static_cast<uint64_t>(product << exponent);
            return true;
        }
        Wide const quotient = product >> -exponent;
        result =
            rounded(quotient, product - (quotient << -exponent), Wide{1} << (-exponent - 1), false);
        return true;
    }
    Wide const whole = exponent >= 0 ? mantissa << exponent : mantissa >> -exponent;
    bool const isMore = exponent < 0 && (whole << -exponent) != mantissa;
    uint64_t const divisor = kPowersOf10[-scale];
    if (whole >> 64 != 0) {
        result = rounded(whole / divisor, whole % divisor, divisor / 2, isMore);
    } else {
        uint64_t const low = static_cast<uint64_t>(whole);
        result = rounded(low / divisor, low % divisor, divisor / 2, isMore);
    }
    return true;
}

// Writes `magnitude` with `count` significant digits (1 to kExactDecimals + 1) as %g if
// `isGeneral`, else as %e. `showsPoint` is the # flag. Returns the end, or null if the arithmetic
// is not exact or the C library must format the value.
char* writeSignificant(Magnitude magnitude, int count, bool isGeneral, bool showsPoint, char* at)
{
    uint64_t number = 0;
    int tens = 0;  // decimal exponent of the first digit
    if (magnitude.mantissa != 0) {
        // `tens`, estimated from the binary exponent, may be 1 too small, but not too large. If it
        // is too small, or if rounding carries into a new digit, `number` has an extra digit.
        int const binary = magnitude.exponent + 63 - __builtin_clzll(magnitude.mantissa);
        tens = (binary * 1233) >> 12;
        if (!scaled(magnitude, count - 1 - tens, number))
            return nullptr;
        if (number >= kPowersOf10[count]) {
            ++tens;
            if (!scaled(magnitude, count - 1 - tens, number))
                return nullptr;
        }
        // The C library's %#g may drop the trailing zeros of a value that it rounds up to a power
        // of ten. Leave powers of ten to it, so that the result is the same.
        if (isGeneral && showsPoint && number == kPowersOf10[count - 1])
            return nullptr;
    }

    char digits[kMaxScale + 1];
    char* last = writeDigits(number, count, digits);
    bool const hasExponent = !isGeneral || tens < -4 || tens >= count;
    if (isGeneral && !showsPoint) {
        while (last - digits > 1 && last[-1] == '0')
            --last;
    }
    int const kept = static_cast<int>(last - digits);
    int const whole = hasExponent ? 1 : tens + 1;  // digits before the point
    if (whole <= 0) {
        *at++ = '0';
        *at++ = '.';
        for (int i = whole; i < 0; ++i)
            *at++ = '0';
        for (int i = 0; i < kept; ++i)
            *at++ = digits[i];
    } else {
        for (int i = 0; i < whole; ++i)
            *at++ = i < kept ? digits[i] : '0';
        if (kept > whole || showsPoint)
            *at++ = '.';
        for (int i = whole; i < kept; ++i)
            *at++ = digits[i];
    }
    if (hasExponent) {
        *at++ = 'e';
        *at++ = tens < 0 ? '-' : '+';
        at = writeDigits(static_cast<uint64_t>(tens < 0 ? -tens : tens), 2, at);
    }
    return at;
}

// Writes the absolute value of `value` at `at`. Returns the end, or null if the C library must
// format the value.
template <class Real>
char* writeMagnitude(ZPrintfConversion_6_0 const& conversion, Real value, int precision, char* at,
                     char* end)
{
    int32_t const type = conversion.type;
    bool const showsPoint = conversion.flags & zprintfAlternate;
    Magnitude magnitude;
    if (!split(value, magnitude))
        return nullptr;
    bool const isFixed = type == zprintfFixed || type == zprintfLongDoubleFixed;
    bool const isGeneral = type == zprintfGeneral || type == zprintfLongDoubleGeneral;
    int const count = isGeneral ? std::max(precision, 1) : precision + 1;
    char* const exact = precision > kExactDecimals ? nullptr
                        : isFixed ? writeFixed(magnitude, precision, showsPoint, at)
                                  : writeSignificant(magnitude, count, isGeneral, showsPoint, at);
    if (exact != nullptr)
        return exact;
    // std::to_chars() is fast for doubles, but calls printf() for long doubles.
    if constexpr (std::is_same_v<Real, double>) {
        if (showsPoint)
            return nullptr;
        std::chars_format const format = isFixed     ? std::chars_format::fixed
                                         : isGeneral ? std::chars_format::general
                                                     : std::chars_format::scientific;
        return std::to_chars(at, end, std::fabs(value), format, precision).ptr;
    } else {
        return nullptr;
    }
}

// Formats a value on the fast path, without its padding. Returns the length, or 0 if the C library
// must format the value.
template <class Real>
size_t writeFast(ZPrintfConversion_6_0 const& conversion, Real value, int precision,
                 char (&text)[kFastSize])
{
    char* at = text;
    if (std::signbit(value))
        *at++ = '-';
    else if (conversion.flags & zprintfPlus)
        *at++ = '+';
    else if (conversion.flags & zprintfBlank)
        *at++ = ' ';

    bool const isUpper = conversion.flags & zprintfUpperExponent;
    if (!std::isfinite(value)) {
        memcpy(at, std::isnan(value) ? (isUpper ? "NAN" : "nan") : (isUpper ? "INF" : "inf"), 3);
        return static_cast<size_t>(at + 3 - text);
    }
    if ((conversion.flags & zprintfGrouped) || precision > kFastPrecision ||
        fegetround() != FE_TONEAREST)
        return 0;
    char const* const point = nl_langinfo(RADIXCHAR);
    if (point[0] == '\0' || point[1] != '\0')
        return 0;
    at = writeMagnitude(conversion, value, precision, at, text + sizeof text);
    if (at == nullptr)
        return 0;
    size_t const length = static_cast<size_t>(at - text);
    if (*point != '.') {
        if (void* const found = memchr(text, '.', length))
            *static_cast<char*>(found) = *point;
    }
    if (isUpper) {
        if (void* const found = memchr(text, 'e', length))
            *static_cast<char*>(found) = 'E';
    }
    return length;
}

bool isNonAscii(char c)
{
    return static_cast<unsigned char>(c) > 0x7F;
}

// Formats a value with the C library into `text` of `size` bytes. Returns the full length, even if
// it exceeds `size`, or a negative number if the C library fails. A `width` of 0 means no width.
int writeByPlatform(ZPrintfConversion_6_0 const& conversion, ZPrintfArgument_6_0 const& argument,
                    int width, int precision, char* text, size_t size)
{
    constexpr char kLetters[] = {'e', 'f', 'g', 'e', 'f', 'g'};
    constexpr char kUpperLetters[] = {'E', 'f', 'G', 'E', 'f', 'G'};
    bool const isLong = conversion.type >= zprintfLongDoubleExponent;
    int const row = conversion.type - zprintfExponent;
    bool const isUpper = conversion.flags & zprintfUpperExponent;
    char const letter = isUpper ? kUpperLetters[row] : kLetters[row];

    char format[sizeof "%# +'*.2147483647Lf"];
    char* at = format;
    constexpr uint32_t kShapes = zprintfAlternate | zprintfBlank | zprintfPlus | zprintfGrouped;
    if (width == 0 && !(conversion.flags & kShapes)) {
        // strfromd() and strfroml() write the same as snprintf(), with less overhead.
        *at++ = '%';
        *at++ = '.';
        at = std::to_chars(at, std::end(format), precision).ptr;
        *at++ = letter;
        *at = '\0';
        return isLong ? strfroml(text, size, format, argument.value.longReal)
                      : strfromd(text, size, format, argument.value.real);
    }
    *at++ = '%';
    if (conversion.flags & zprintfAlternate)
        *at++ = '#';
    if (conversion.flags & zprintfBlank)
        *at++ = ' ';
    if (conversion.flags & zprintfPlus)
        *at++ = '+';
    if (conversion.flags & zprintfGrouped)
        *at++ = '\'';
    *at++ = '*';
    *at++ = '.';
    *at++ = '*';
    if (isLong)
        *at++ = 'L';
    *at++ = letter;
    *at = '\0';
    return isLong ? snprintf(text, size, format, width, precision, argument.value.longReal)
                  : snprintf(text, size, format, width, precision, argument.value.real);
}

// A formatted value, without its padding.
struct Formatted {
    char scratch[kFastSize];
    std::unique_ptr<char, Free> block;
    char const* text = scratch;
    size_t length = 0;
    int64_t trailingZeros = 0;  // zeros to append to the digits
    int64_t uncounted = 0;      // bytes that are ignored for the width
};

// Formats a value with the C library, with at most kMaxPrecision as its precision. Returns false if
// the C library fails or memory is exhausted.
bool formatByPlatform(ZPrintfConversion_6_0 const& conversion, ZPrintfArgument_6_0 const& argument,
                      int width, int precision, Formatted& formatted)
{
    int const shown = std::min(precision, kMaxPrecision);
    int const needed = writeByPlatform(conversion, argument, 0, shown, formatted.scratch,
                                       sizeof formatted.scratch);
    if (needed < 0)
        return false;
    size_t const length = static_cast<size_t>(needed);
    if (length >= sizeof formatted.scratch) {
        formatted.block.reset(static_cast<char*>(malloc(length + 1)));
        char* const block = formatted.block.get();
        if (block == nullptr ||
            writeByPlatform(conversion, argument, 0, shown, block, length + 1) < 0)
            return false;
        formatted.text = block;
    }
    formatted.length = length;
    // The C library may count a multibyte decimal point or separator as a single column. Measure
    // how far it pads the value to a width equal to the length in bytes.
    if (width != 0 && std::any_of(formatted.text, formatted.text + length, isNonAscii)) {
        int const padded = writeByPlatform(conversion, argument, needed, shown, nullptr, 0);
        if (padded < 0)
            return false;
        formatted.uncounted = padded - needed;
    }
    // Only finite values get here. %g has no trailing zeros, unless # keeps them.
    bool const isGeneral =
        conversion.type == zprintfGeneral || conversion.type == zprintfLongDoubleGeneral;
    if (!isGeneral || (conversion.flags & zprintfAlternate))
        formatted.trailingZeros = precision - shown;
    return true;
}

// Writes a formatted value and its padding. The order is: spaces, sign, zeros of the width, digits,
// zeros of the precision, exponent, spaces. Returns the full length, even if the output is shorter.
int64_t writePadded(ZPrintfConversion_6_0 const& conversion, RenderParams const& params,
                    bool isFinite, Formatted const& formatted, Output output)
{
    char const* const text = formatted.text;
    int64_t const width = params.width;
    int64_t const needed = static_cast<int64_t>(formatted.length) + formatted.trailingZeros;
    int64_t const pad =
        std::max<int64_t>((width < 0 ? -width : width) - needed + formatted.uncounted, 0);
    if (pad == 0 && formatted.trailingZeros == 0) {
        output.put(text, formatted.length);
        return needed;
    }
    bool const isLeft = (conversion.flags & zprintfLeft) || width < 0;
    bool const isZero = !isLeft && isFinite && params.padChar == '0';
    size_t const sign = *text == '-' || *text == '+' || *text == ' ' ? 1 : 0;
    char const* const end = text + formatted.length;
    char const* const exponent =
        formatted.trailingZeros == 0
            ? end
            : std::find_if(text, end, [](char c) { return c == 'e' || c == 'E'; });
    if (!isLeft && !isZero)
        output.fill(' ', pad);
    output.put(text, sign);
    if (isZero)
        output.fill('0', pad);
    output.put(text + sign, static_cast<size_t>(exponent - text) - sign);
    output.fill('0', formatted.trailingZeros);
    output.put(exponent, static_cast<size_t>(end - exponent));
    if (isLeft)
        output.fill(' ', pad);
    return needed + pad;
}

}  // namespace

int64_t render_double(qvr_cs_t, ZPrintfConversion_6_0 const& conversion,
                      ZPrintfArgument_6_0 const* arguments, char* out, size_t capacity)
{
    ZPrintfArgument_6_0 const& argument = arguments[conversion.argIndex];
    RenderParams params = {0, 0, ' ', false};
    if (conversion.flags & (kHasWidth | kHasPrecision))
        params = renderParams(conversion, arguments);
    bool const hasPrecision = params.hasPrecision || (conversion.flags & zprintfPrecisionOf8);
    int const precision = hasPrecision ? params.precision : kDefaultPrecision;
    bool const isLong = conversion.type >= zprintfLongDoubleExponent;

    Formatted formatted;
    formatted.length =
        isLong ? writeFast(conversion, argument.value.longReal, precision, formatted.scratch)
               : writeFast(conversion, argument.value.real, precision, formatted.scratch);
    if (formatted.length == 0) {
        // If neither padding nor zeros are needed, the C library writes directly into the output.
        if (params.width == 0 && precision <= kMaxPrecision && capacity > 0)
            return writeByPlatform(conversion, argument, 0, precision, out, capacity + 1);
        if (!formatByPlatform(conversion, argument, params.width, precision, formatted))
            return -1;
    }
    bool const isFinite =
        isLong ? std::isfinite(argument.value.longReal) : std::isfinite(argument.value.real);
    return writePadded(conversion, params, isFinite, formatted, Output(out, capacity));
}

}  // namespace zformat
