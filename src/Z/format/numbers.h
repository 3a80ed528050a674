// numbers: writes integers in bases 8, 10 and 16, and measures them.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace zformat {

inline constexpr size_t kMaxDigits = 22;  // of a 64-bit number, octal
inline constexpr char kLowerDigits[] = "0123456789abcdef";
inline constexpr char kUpperDigits[] = "0123456789ABCDEF";

// The digits of 00 to 99, two bytes each.
extern char const kDigitPairs[201];

inline constexpr int kMaxScale = 19;  // of the largest power of ten in 64 bits
inline constexpr uint64_t kPowersOf10[kMaxScale + 1] = {1ull,
                                                        10ull,
                                                        100ull,
                                                        1000ull,
                                                        10000ull,
                                                        100000ull,
                                                        1000000ull,
                                                        10000000ull,
                                                        100000000ull,
                                                        1000000000ull,
                                                        10000000000ull,
                                                        100000000000ull,
                                                        1000000000000ull,
                                                        10000000000000ull,
                                                        100000000000000ull,
                                                        1000000000000000ull,
                                                        10000000000000000ull,
                                                        100000000000000000ull,
                                                        1000000000000000000ull,
                                                        10000000000000000000ull};

// Returns the number of bits of `value`, at least 1.
inline unsigned bitsOf(uint64_t value)
{
    return 64 - static_cast<unsigned>(__builtin_clzll(value | 1));
}

// Returns the number of decimal digits of `value`.
inline unsigned decimalDigits(uint64_t value)
{
    // 1233 / 4096 is slightly more than log10(2): the estimate is exact or 1 too small.
    unsigned const digits = bitsOf(value) * 1233 >> 12;
    return digits + ((value | 1) >= kPowersOf10[digits] ? 1 : 0);
}

// Writes `value` in decimal so that it ends at `end`, and returns its first digit.
inline char* writeDecimal(uint64_t value, char* end)
{
    while (value >= 100) {
        end -= 2;
        memcpy(end, kDigitPairs + value % 100 * 2, 2);
        value /= 100;
    }
    if (value >= 10) {
        end -= 2;
        memcpy(end, kDigitPairs + value * 2, 2);
    } else {
        *--end = static_cast<char>('0' + value);
    }
    return end;
}

// Writes `value` in base 8 or 16, with 3 or 4 bits per digit, like writeDecimal.
inline char* writeBits(uint64_t value, unsigned bits, char const* digits, char* end)
{
    do {
        *--end = digits[value & ((1u << bits) - 1)];
        value >>= bits;
    } while (value != 0);
    return end;
}

}  // namespace zformat
