// ascii: the case of ASCII letters, in vectors. Not installed.
#pragma once

#include <stddef.h>

namespace ztext {

// Changes `kBlock` bytes, unless one of them is zero or beyond ASCII; returns whether it did. The
// number of bytes is constant, so that the compiler forms vectors.
template <size_t kBlock>
bool switchCaseOfBlock(unsigned char* s, unsigned char first)
{
    unsigned char highest = 0;
    unsigned char lowest = 0xFF;
    for (size_t i = 0; i < kBlock; ++i) {
        highest = static_cast<unsigned char>(highest | s[i]);
        lowest = s[i] < lowest ? s[i] : lowest;
    }
    if (highest >= 0x80 || lowest == 0)
        return false;
    auto const toTop = static_cast<unsigned char>(0x7F - 25 - first);  // moves the last one to 0x7F
    for (size_t i = 0; i < kBlock; ++i) {
        bool const isLetter = static_cast<signed char>(s[i] + toTop) > 0x7F - 26;
        s[i] = static_cast<unsigned char>(s[i] ^ (isLetter ? 0x20 : 0));
    }
    return true;
}

/// Switches the case of the letters from `first` to `first` + 25 in the `n` bytes at `text`, up to
/// the first byte that is zero or beyond ASCII. Returns its position, `n` without one.
inline size_t switchCase(char* text, size_t n, char first)
{
    auto* const s = reinterpret_cast<unsigned char*>(text);
    auto const from = static_cast<unsigned char>(first);
    size_t at = 0;
    while (n - at >= 256 && switchCaseOfBlock<256>(s + at, from))
        at += 256;
    while (n - at >= 64 && switchCaseOfBlock<64>(s + at, from))
        at += 64;
    while (n - at >= 16 && switchCaseOfBlock<16>(s + at, from))
        at += 16;
    while (at < n && switchCaseOfBlock<1>(s + at, from))
        ++at;
    return at;
}

inline size_t lowerAscii(char* text, size_t n)
{
    return switchCase(text, n, 'A');
}

inline size_t upperAscii(char* text, size_t n)
{
    return switchCase(text, n, 'a');
}

}  // namespace ztext
