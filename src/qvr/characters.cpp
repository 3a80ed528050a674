#include <unicode/uchar.h>

#include <cstring>

#include "codeset_p.h"

namespace qvr {
namespace {

enum Class : uint8_t { upper = 1, lower = 2, space = 4, digit = 8 };

// Classes of the ASCII characters: the most frequent characters need no lookup in ICU.
constexpr std::array<uint8_t, 128> makeAsciiClasses()
{
    std::array<uint8_t, 128> classes{};
    for (unsigned c = 0; c < 128; ++c) {
        classes[c] = static_cast<uint8_t>((c >= 'A' && c <= 'Z' ? upper : 0) |
                                          (c >= 'a' && c <= 'z' ? lower : 0) |
                                          (c == ' ' || (c >= '\t' && c <= '\r') ? space : 0) |
                                          (c >= '0' && c <= '9' ? digit : 0));
    }
    return classes;
}

constexpr std::array<uint8_t, 128> kAsciiClasses = makeAsciiClasses();

int isIn(unsigned classes, uint32_t ascii)
{
    return (kAsciiClasses[ascii] & classes) != 0;
}

bool has(uint32_t wc, UProperty property)
{
    return wc <= kMaxCodePoint && !isSurrogate(wc) &&
           u_hasBinaryProperty(static_cast<UChar32>(wc), property);
}

bool isNoBreakSpace(uint32_t wc)
{
    return wc == 0x00A0 || wc == 0x2007 || wc == 0x202F;
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
    return wc < 0x80 ? isIn(upper, wc) : has(wc, UCHAR_UPPERCASE);
}

int qvr_iswlower(uint32_t wc)
{
    return wc < 0x80 ? isIn(lower, wc) : has(wc, UCHAR_LOWERCASE);
}

int qvr_iswspace(uint32_t wc)
{
    return wc < 0x80 ? isIn(space, wc) : has(wc, UCHAR_WHITE_SPACE) && !isNoBreakSpace(wc);
}

int qvr_iswdigit(uint32_t wc)
{
    return wc < 0x80 && isIn(digit, wc);
}

int qvr_iswalpha(uint32_t wc)
{
    return wc < 0x80 ? isIn(upper | lower, wc) : has(wc, UCHAR_ALPHABETIC);
}

int qvr_iswalnum(uint32_t wc)
{
    if (wc < 0x80)
        return isIn(upper | lower | digit, wc);
    return has(wc, UCHAR_ALPHABETIC) ||
           (wc <= kMaxCodePoint && u_isdigit(static_cast<UChar32>(wc)));
}
