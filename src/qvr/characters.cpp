#include <unicode/uchar.h>

#include <atomic>
#include <cstring>

#include "codeset_p.h"

namespace qvr {
namespace {

enum Class : uint8_t { upper = 1, lower = 2, space = 4, alpha = 8, alnum = 16, known = 32 };

// The classes of an ASCII character: the most frequent characters need no lookup in ICU.
uint8_t classesOfAscii(uint32_t c)
{
    bool const isUpper = c >= 'A' && c <= 'Z';
    bool const isLower = c >= 'a' && c <= 'z';
    bool const isDigit = c >= '0' && c <= '9';
    return static_cast<uint8_t>((isUpper ? upper : 0) | (isLower ? lower : 0) |
                                (isUpper || isLower ? alpha : 0) |
                                (isUpper || isLower || isDigit ? alnum : 0) |
                                (c == ' ' || (c >= '\t' && c <= '\r') ? space : 0) | known);
}

bool isNoBreakSpace(uint32_t wc)
{
    return wc == 0x00A0 || wc == 0x2007 || wc == 0x202F;
}

uint8_t classesOf(uint32_t wc)
{
    if (wc < 0x80)
        return classesOfAscii(wc);
    if (wc > kMaxCodePoint || isSurrogate(wc))
        return known;
    auto const c = static_cast<UChar32>(wc);
    bool const isAlpha = u_hasBinaryProperty(c, UCHAR_ALPHABETIC);
    return static_cast<uint8_t>(
        (u_hasBinaryProperty(c, UCHAR_UPPERCASE) ? upper : 0) |
        (u_hasBinaryProperty(c, UCHAR_LOWERCASE) ? lower : 0) |
        (u_hasBinaryProperty(c, UCHAR_WHITE_SPACE) && !isNoBreakSpace(wc) ? space : 0) |
        (isAlpha ? alpha : 0) | (isAlpha || u_isdigit(c) ? alnum : 0) | known);
}

// The classes of characters below 0x10000, once they are known; 0: not yet.
// Threads that look up the same character at the same time store the same byte.
constinit std::array<std::atomic<uint8_t>, 0x10000> classes_{};

// Returns whether a character is in a class that was not looked up before.
[[gnu::noinline]] int findIsIn(Class wanted, uint32_t wc)
{
    uint8_t const classes = classesOf(wc);
    if (wc < classes_.size())
        classes_[wc].store(classes, std::memory_order_relaxed);
    return (classes & wanted) != 0;
}

int isIn(Class wanted, uint32_t wc)
{
    if (wc < classes_.size())
        if (uint8_t const classes = classes_[wc].load(std::memory_order_relaxed))
            return (classes & wanted) != 0;
    return findIsIn(wanted, wc);
}

constexpr size_t kBlock = 64;

// Returns whether the three bytes before `s` leave no character open that continues at `s`.
bool isBoundary(unsigned char const* s)
{
    return s[-1] < 0xC0 && s[-2] < 0xE0 && s[-3] < 0xF0;
}

using Vector [[gnu::vector_size(16)]] = unsigned char;
using Signed [[gnu::vector_size(16)]] = signed char;

Vector load(unsigned char const* s)
{
    Vector loaded;
    std::memcpy(&loaded, s, sizeof loaded);
    return loaded;
}

// Returns which bytes are wrong after the three bytes before each of them.
Vector findWrong(unsigned char const* s)
{
    auto const mask = [](auto comparison) { return reinterpret_cast<Vector>(comparison); };
    Vector const byte = load(s);
    Vector const before = load(s - 1);
    // Vectors compare signed bytes faster; trailing bytes are the lowest.
    Vector const trails = mask(reinterpret_cast<Signed>(byte) < static_cast<signed char>(-0x40));
    Vector const follows =
        mask(before >= 0xC0) | mask(load(s - 2) >= 0xE0) | mask(load(s - 3) >= 0xF0);
    // Bytes of no character, forms of shorter characters, surrogates, values above U+10FFFF.
    Vector const low = mask(byte < 0xA0);
    Vector const lowest = mask(byte < 0x90);
    return (trails ^ follows) | mask(byte >= 0xF5) | mask((byte & 0xFE) == 0xC0) |
           (mask(before == 0xE0) & low) | (mask(before == 0xED) & ~low) |
           (mask(before == 0xF0) & lowest) | (mask(before == 0xF4) & ~lowest);
}

// Returns whether the bytes of a block can follow the three bytes before it, which are valid. The
// last character of either may be open.
bool isValidBlock(unsigned char const* s)
{
    Vector wrong{};
    for (size_t i = 0; i < kBlock; i += sizeof wrong)
        wrong |= findWrong(s + i);
    uint64_t halves[2];
    std::memcpy(halves, &wrong, sizeof halves);
    return (halves[0] | halves[1]) == 0;
}

// Returns where the first invalid character from `at` on starts; a position not below `end` without
// one.
size_t endOfCharacters(unsigned char const* s, size_t n, size_t at, size_t end)
{
    while (at < end) {
        if (s[at] < 0x80) {
            ++at;
            continue;
        }
        DecodeResult const decoded = decodeUtf8(s + at, n - at);
        if (decoded.length < 0)
            break;
        at += static_cast<size_t>(decoded.length);
    }
    return at;
}

// Returns the length of the valid characters at the start of `n` bytes. Blocks are checked as a
// whole. The start, the rest and a block with an invalid byte are read character by character.
size_t spanOfUtf8(unsigned char const* s, size_t n)
{
    constexpr size_t kBefore = 3;
    if (n < kBefore + kBlock)
        return endOfCharacters(s, n, 0, n);
    size_t at = endOfCharacters(s, n, 0, kBefore);
    if (at < kBefore)
        return at;
    while (n - at >= kBlock) {
        bool const isAscii = !hasNonAscii<kBlock / 8>(s + at);
        if (isAscii ? !isBoundary(s + at) : !isValidBlock(s + at))
            break;
        at += kBlock;
    }
    while (!isBoundary(s + at))
        --at;
    return endOfCharacters(s, n, at, n);
}

size_t spanOfTables(qvr_cs const& cs, unsigned char const* s, size_t n)
{
    size_t at = 0;
    while (at < n) {
        if (cs.ascii)
            at += longAsciiRun(s + at, n - at);
        if (at == n)
            break;
        DecodeResult const decoded = decode(cs, s + at, n - at);
        if (decoded.length < 0)
            break;
        at += static_cast<size_t>(decoded.length);
    }
    return at;
}

}  // namespace
}  // namespace qvr

using namespace qvr;

int qvr_mblen(qvr_cs_t cs, char const* s, size_t n)
{
    if (cs == nullptr || s == nullptr || n == 0)
        return -1;
    if (*s == 0)
        return 0;
    int const length = decode(*cs, bytes(s), n).length;
    return length > 0 ? length : -1;
}

size_t qvr_mbspan(qvr_cs_t cs, char const* s, size_t n)
{
    if (cs == nullptr || s == nullptr)
        return 0;
    unsigned char const* const text = bytes(s);
    return cs->kind == Kind::utf8 ? spanOfUtf8(text, n) : spanOfTables(*cs, text, n);
}

int qvr_mbtowc(qvr_cs_t cs, uint32_t* wc, char const* s, size_t n)
{
    if (cs == nullptr || s == nullptr || n == 0)
        return -1;
    DecodeResult const decoded = *s == 0 ? DecodeResult{0, 0} : decode(*cs, bytes(s), n);
    if (decoded.length < 0 || decoded.value > kMaxCodePoint)
        return -1;
    if (wc != nullptr)
        *wc = decoded.value;
    return decoded.length;
}

int qvr_wctomb(qvr_cs_t cs, char* s, size_t room, uint16_t wc)
{
    if (cs == nullptr || s == nullptr)
        return -1;
    unsigned char out[qvrMbLenMax];
    int length = 1;
    if (wc == 0)
        out[0] = 0;
    else
        length = encode(*cs, wc, out);
    if (length < 0 || static_cast<size_t>(length) > room)
        return -1;
    std::memcpy(s, out, static_cast<size_t>(length));
    return length;
}

int qvr_iswupper(uint32_t wc)
{
    return isIn(upper, wc);
}

int qvr_iswlower(uint32_t wc)
{
    return isIn(lower, wc);
}

int qvr_iswspace(uint32_t wc)
{
    return isIn(space, wc);
}

int qvr_iswdigit(uint32_t wc)
{
    return wc >= '0' && wc <= '9';
}

int qvr_iswalpha(uint32_t wc)
{
    return isIn(alpha, wc);
}

int qvr_iswalnum(uint32_t wc)
{
    return isIn(alnum, wc);
}
