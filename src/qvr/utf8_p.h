// utf8_p: strict UTF-8: shortest form, no surrogates, at most U+10FFFF.
//
// Subsystem: text services.  Stands on: nothing.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <cstring>

namespace qvr {

// The result of decoding at one position.
struct DecodeResult {
    int length;      // of the character in bytes, or one of the two below
    uint32_t value;  // code point; meaningless without a character
};

constexpr int kInvalid = -1;    // no character starts here
constexpr int kTruncated = -2;  // the input ends before the character does

constexpr uint32_t kMaxCodePoint = 0x10FFFF;

inline bool isSurrogate(uint32_t value)
{
    return (value & 0xFFFFF800u) == 0xD800;
}

inline bool isContinuation(unsigned byte)
{
    return (byte & 0xC0) == 0x80;
}

// Decodes the character at `s`, of which `n` bytes (at least 1) may be read. The terminator is a
// character like any other; nothing is read past it, because no other character contains a zero
// byte.
inline DecodeResult decodeUtf8(unsigned char const* s, size_t n)
{
    unsigned const lead = s[0];
    if (lead < 0x80)
        return {1, lead};
    if (lead < 0xC2 || lead > 0xF4)
        return {kInvalid, 0};
    if (n < 2)
        return {kTruncated, 0};
    unsigned const second = s[1];
    if (lead < 0xE0) {
        if (!isContinuation(second))
            return {kInvalid, 0};
        return {2, (lead & 0x1F) << 6 | (second & 0x3F)};
    }
    // The second byte is enough to reject overlong forms, surrogates and values past U+10FFFF.
    unsigned const lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned const highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (second < lowest || second > highest)
        return {kInvalid, 0};
    if (n < 3)
        return {kTruncated, 0};
    if (!isContinuation(s[2]))
        return {kInvalid, 0};
    if (lead < 0xF0)
        return {3, (lead & 0x0F) << 12 | (second & 0x3F) << 6 | (s[2] & 0x3Fu)};
    if (n < 4)
        return {kTruncated, 0};
    if (!isContinuation(s[3]))
        return {kInvalid, 0};
    return {4, (lead & 0x07) << 18 | (second & 0x3F) << 12 | (s[2] & 0x3Fu) << 6 | (s[3] & 0x3Fu)};
}

inline int utf8Length(uint32_t value)
{
    return value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
}

// Writes a code point, which is not a surrogate, in `length` = utf8Length(value) bytes.
inline void encodeUtf8(uint32_t value, int length, unsigned char* out)
{
    switch (length) {
        case 1:
            out[0] = static_cast<unsigned char>(value);
            break;
        case 2:
            out[0] = static_cast<unsigned char>(0xC0 | value >> 6);
            out[1] = static_cast<unsigned char>(0x80 | (value & 0x3F));
            break;
        case 3:
            out[0] = static_cast<unsigned char>(0xE0 | value >> 12);
            out[1] = static_cast<unsigned char>(0x80 | (value >> 6 & 0x3F));
            out[2] = static_cast<unsigned char>(0x80 | (value & 0x3F));
            break;
        default:
            out[0] = static_cast<unsigned char>(0xF0 | value >> 18);
            out[1] = static_cast<unsigned char>(0x80 | (value >> 12 & 0x3F));
            out[2] = static_cast<unsigned char>(0x80 | (value >> 6 & 0x3F));
            out[3] = static_cast<unsigned char>(0x80 | (value & 0x3F));
            break;
    }
}

// Returns the words at `s` combined by OR, in code without a loop.
template <size_t words>
inline uint64_t combinedWords(unsigned char const* s)
{
    if constexpr (words == 1) {
        uint64_t word;
        std::memcpy(&word, s, sizeof word);
        return word;
    } else {
        constexpr size_t kHalf = words / 2;
        return combinedWords<kHalf>(s) | combinedWords<words - kHalf>(s + kHalf * 8);
    }
}

// Returns whether any of the `words` * 8 bytes at `s` is beyond ASCII.
template <size_t words>
bool hasNonAscii(unsigned char const* s)
{
    constexpr size_t kStep = words < 8 ? words : 8;
    static_assert(words % kStep == 0);
    uint64_t all = 0;
    for (size_t i = 0; i < words; i += kStep)
        all |= combinedWords<kStep>(s + i * 8);
    return (all & 0x8080808080808080u) != 0;
}

// Returns the length of the ASCII prefix of `n` bytes; most are short.
inline size_t asciiRun(unsigned char const* s, size_t n)
{
    size_t i = 0;
    while (n - i >= 8 && !hasNonAscii<1>(s + i))
        i += 8;
    while (i < n && s[i] < 0x80)
        ++i;
    return i;
}

// The same; many are long.
inline size_t longAsciiRun(unsigned char const* s, size_t n)
{
    size_t i = 0;
    while (n - i >= 8 && !hasNonAscii<1>(s + i)) {
        i += 8;
        if (i == 32)
            while (n - i >= 64 && !hasNonAscii<8>(s + i))
                i += 64;
    }
    while (i < n && s[i] < 0x80)
        ++i;
    return i;
}

}  // namespace qvr
