#include <locale.h>
#include <strings.h>

#include <algorithm>
#include <cstring>

#include "codeset_p.h"
#include "locale_p.h"

namespace qvr {
namespace {

uint32_t upperOf(uint32_t value, bool turkic)
{
    if (turkic && value == 'i')
        return kDottedCapitalI;
    return static_cast<uint32_t>(u_toupper(static_cast<UChar32>(value)));
}

uint32_t lowerOf(uint32_t value, bool turkic)
{
    if (turkic && value == 'I')
        return kDotlessSmallI;
    return static_cast<uint32_t>(u_tolower(static_cast<UChar32>(value)));
}

// Switches the case of the letters from `kFirst` to `kFirst` + 25 in `kBlock` ASCII characters. The
// number of bytes is constant, so that the compiler forms vectors.
template <unsigned char kFirst, size_t kBlock>
void switchCaseOfBlock(unsigned char* s)
{
    if constexpr (kBlock == 32 || kBlock == 64) {
        // Without a loop, which would take a third of the time.
        switchCaseOfBlock<kFirst, kBlock / 2>(s);
        switchCaseOfBlock<kFirst, kBlock / 2>(s + kBlock / 2);
    } else {
        constexpr auto kToTop =
            static_cast<unsigned char>(0x7F - 25 - kFirst);  // moves the last one to 0x7F
        for (size_t i = 0; i < kBlock; ++i) {
            bool const isLetter = static_cast<signed char>(s[i] + kToTop) > 0x7F - 26;
            s[i] = static_cast<unsigned char>(s[i] ^ (isLetter ? 0x20 : 0));
        }
    }
}

// The same, unless a byte is beyond ASCII; returns whether it did.
template <unsigned char kFirst, size_t kBlock>
bool switchCaseOfAscii(unsigned char* s)
{
    if (hasNonAscii<kBlock / 8>(s))
        return false;
    switchCaseOfBlock<kFirst, kBlock>(s);
    return true;
}

// The same for the ASCII prefix of `n` bytes; returns its length. Most prefixes are short.
template <unsigned char kFirst>
size_t switchCaseOfPrefix(unsigned char* s, size_t n)
{
    size_t i = 0;
    while (n - i >= 64 && switchCaseOfAscii<kFirst, 64>(s + i)) {
        i += 64;
        while (n - i >= 512 && switchCaseOfAscii<kFirst, 512>(s + i))
            i += 512;
    }
    while (n - i >= 16 && switchCaseOfAscii<kFirst, 16>(s + i))
        i += 16;
    for (; i < n && s[i] < 0x80; ++i)
        switchCaseOfBlock<kFirst, 1>(s + i);
    return i;
}

// Replaces the character at `s` with its counterpart if that has the same length in bytes. Returns
// its length, 1 for an invalid byte.
template <class Counterpart>
size_t replaceCharacter(qvr_cs const& cs, unsigned char* s, bool turkic, Counterpart counterpart)
{
    DecodeResult const decoded = decode(cs, s, SIZE_MAX);
    if (decoded.length < 0)
        return 1;
    auto const length = static_cast<size_t>(decoded.length);
    if (decoded.value <= kMaxCodePoint) {
        uint32_t const mapped = counterpart(decoded.value, turkic);
        unsigned char out[qvrMbLenMax];
        if (mapped != decoded.value && encode(cs, mapped, out) == decoded.length)
            std::memcpy(s, out, length);
    }
    return length;
}

// Returns the length of a string, or of its first piece: the pieces of a long string stay in the
// cache of the processor from one step to the next.
size_t pieceLength(unsigned char const* s)
{
    return strnlen(reinterpret_cast<char const*>(s), 4096);
}

// Replaces each character with its counterpart if that has the same length in bytes. The two cases
// of an ASCII letter from `kFirst` to `kFirst` + 25 differ in one bit.
template <unsigned char kFirst, class Counterpart>
[[gnu::noinline]] void changeCase(qvr_cs const& cs, unsigned char* s, bool turkic,
                                  Counterpart counterpart)
{
    while (*s != 0) {
        unsigned char const* const end = s + pieceLength(s);
        while (s < end) {
            bool const isAscii = cs.ascii && *s < 0x80;
            if (isAscii && !turkic) {
                s += switchCaseOfPrefix<kFirst>(s, static_cast<size_t>(end - s));
            } else if (isAscii && *s != 'i' && *s != 'I') {
                switchCaseOfBlock<kFirst, 1>(s);
                ++s;
            } else {
                s += replaceCharacter(cs, s, turkic, counterpart);
            }
        }
    }
}

// The same; a short ASCII string takes the least time.
template <unsigned char kFirst, class Counterpart>
void changeCase(qvr_cs_t cs, qvr_loc_t loc, char* text, Counterpart counterpart)
{
    unsigned char* s = bytes(text);
    bool const turkic = isTurkic(loc);
    if (cs->ascii && !turkic)
        s += switchCaseOfPrefix<kFirst>(s, pieceLength(s));
    if (*s != 0)
        changeCase<kFirst>(*cs, s, turkic, counterpart);
}

// A string under comparison: the rest from `s` on, at most `left` bytes.
struct Cursor {
    unsigned char const* s;
    size_t left;
};

bool isSameAscii(unsigned a, unsigned b)
{
    return a < 0x80 && (a == b || ((a ^ b) == 0x20 && (a | 0x20) >= 'a' && (a | 0x20) <= 'z'));
}

constexpr uint64_t kEachByte = 0x0101010101010101;

// Returns whether eight bytes at `a` and `b` are ASCII characters that differ in case at most.
bool areSameAscii(unsigned char const* a, unsigned char const* b)
{
    uint64_t wordA, wordB;
    std::memcpy(&wordA, a, sizeof wordA);
    std::memcpy(&wordB, b, sizeof wordB);
    if (((wordA | wordB) & kEachByte * 0x80) != 0)
        return false;
    // The highest bit of each byte, unused in ASCII, marks the upper-case letters.
    auto const lowered = [](uint64_t word) {
        uint64_t const fromA = word + kEachByte * (0x80 - 'A');
        uint64_t const aboveZ = word + kEachByte * (0x80 - 'Z' - 1);
        return word | (fromA & ~aboveZ & kEachByte * 0x80) >> 2;
    };
    return wordA == wordB || lowered(wordA) == lowered(wordB);
}

// Returns whether `kBlock` bytes at `a` and `b` are ASCII characters that differ in case at most.
// The number of bytes is constant, so that the compiler forms vectors.
template <size_t kBlock>
bool areSameAscii(unsigned char const* a, unsigned char const* b)
{
    auto const lowered = [](unsigned char byte) {
        bool const isUpper = static_cast<unsigned char>(byte - 'A') < 26;
        return static_cast<unsigned char>(byte | (isUpper ? 0x20 : 0));
    };
    unsigned char different = 0;
    for (size_t i = 0; i < kBlock; ++i)
        different |=
            static_cast<unsigned char>((lowered(a[i]) ^ lowered(b[i])) | ((a[i] | b[i]) & 0x80));
    return different == 0;
}

constexpr size_t kShort = 64;  // most comparisons end within this many bytes
constexpr size_t kLong = 256;

// Skips the ASCII characters that are equal, without regard to case, on both sides. Searches for a
// terminator in `block` bytes at a time, and continues with the next block if `all`. Returns
// whether it skipped all bytes of the last block.
bool skipSameAscii(Cursor& a, Cursor& b, size_t block, bool all)
{
    size_t i;
    do {
        size_t limit = std::min({a.left, b.left, block});
        limit = strnlen(reinterpret_cast<char const*>(a.s), limit);
        limit = strnlen(reinterpret_cast<char const*>(b.s), limit);
        i = 0;
        while (limit - i >= sizeof(uint64_t) && areSameAscii(a.s + i, b.s + i)) {
            i += sizeof(uint64_t);
            // Most runs are short: only a longer one is compared in blocks.
            if (i == 32)
                while (limit - i >= 32 && areSameAscii<32>(a.s + i, b.s + i))
                    i += 32;
        }
        while (i < limit && isSameAscii(a.s[i], b.s[i]))
            ++i;
        a = {a.s + i, a.left - i};
        b = {b.s + i, b.left - i};
    } while (all && i == block);
    return i == block;
}

// Returns whether the C library, which compares in vectors, finds that the strings differ in the
// case of ASCII letters at most. After false they may still be equal.
bool areSameInC(Cursor const& a, Cursor const& b)
{
    static locale_t const locale = newlocale(LC_ALL_MASK, "C", nullptr);
    if (locale == nullptr)
        return false;
    char const* const textA = reinterpret_cast<char const*>(a.s);
    char const* const textB = reinterpret_cast<char const*>(b.s);
    if (a.left != b.left)
        return false;
    return a.left > SIZE_MAX / 2 ? strcasecmp_l(textA, textB, locale) == 0
                                 : strncasecmp_l(textA, textB, a.left, locale) == 0;
}

// Consumes the next unit and returns it folded; 0 at the end. Invalid bytes, and the few characters
// that have no single code point, are returned byte by byte and order after all characters.
uint32_t nextFolded(qvr_cs const& cs, bool turkic, Cursor& cursor)
{
    if (cursor.left == 0 || *cursor.s == 0)
        return 0;
    DecodeResult decoded{1, *cursor.s};
    if (!cs.ascii || *cursor.s >= 0x80)
        decoded = decode(cs, cursor.s, cursor.left);
    if (decoded.length < 0 || decoded.value > kMaxCodePoint) {
        --cursor.left;
        return kMaxCodePoint + 1 + *cursor.s++;
    }
    cursor.left -= static_cast<size_t>(decoded.length);
    cursor.s += decoded.length;
    return fold(decoded.value, turkic);
}

int compare(qvr_cs const& cs, bool turkic, Cursor a, Cursor b)
{
    bool const skips = cs.ascii && !turkic;
    // In codesets without bytes of ASCII inside longer characters, equal bytes are equal
    // characters.
    bool const comparesBytes = skips && cs.kind != Kind::multiByte;
    if (comparesBytes && skipSameAscii(a, b, kShort, false) && areSameInC(a, b))
        return 0;
    for (;;) {
        if (skips)
            skipSameAscii(a, b, kLong, true);
        uint32_t const fromA = nextFolded(cs, turkic, a);
        uint32_t const fromB = nextFolded(cs, turkic, b);
        if (fromA != fromB)
            return fromA < fromB ? -1 : 1;
        if (fromA == 0)
            return 0;
    }
}

}  // namespace
}  // namespace qvr

using namespace qvr;

char* qvr_strupper(qvr_cs_t cs, qvr_loc_t loc, char* s)
{
    if (cs == nullptr || s == nullptr)
        return nullptr;
    changeCase<'a'>(cs, loc, s, upperOf);
    return s;
}

char* qvr_strlower(qvr_cs_t cs, qvr_loc_t loc, char* s)
{
    if (cs == nullptr || s == nullptr)
        return nullptr;
    changeCase<'A'>(cs, loc, s, lowerOf);
    return s;
}

int qvr_stricmp(qvr_cs_t cs, qvr_loc_t loc, char const* a, char const* b)
{
    if (cs == nullptr || a == nullptr || b == nullptr)
        return -1;
    return compare(*cs, isTurkic(loc), {bytes(a), SIZE_MAX}, {bytes(b), SIZE_MAX});
}

int qvr_strnicmp(qvr_cs_t cs, qvr_loc_t loc, char const* a, char const* b, size_t n)
{
    if (n == 0)
        return 0;
    if (cs == nullptr || a == nullptr || b == nullptr)
        return -1;
    return compare(*cs, isTurkic(loc), {bytes(a), n}, {bytes(b), n});
}
