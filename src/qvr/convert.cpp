#include <unicode/ucnv.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <cstring>

#include "codeset_p.h"
#include "converter_p.h"

namespace qvr {
namespace {

// The output of a conversion. Writes nothing past `end`.
class Output {
public:
    Output(char* begin, size_t capacity)
        : begin_(bytes(begin)), at_(begin_), end_(begin_ + capacity)
    {
    }

    unsigned char* at() { return at_; }
    size_t space() const { return static_cast<size_t>(end_ - at_); }
    ptrdiff_t written() const { return at_ - begin_; }
    void advance(size_t n) { at_ += n; }

    bool copy(unsigned char const* s, size_t n)
    {
        if (space() < n)
            return false;
        if (n < kShort) {  // short words between other characters: a call would take longer
            for (size_t i = 0; i < n; ++i)
                at_[i] = s[i];
        } else {
            std::memcpy(at_, s, n);
        }
        at_ += n;
        return true;
    }

    bool put(uint32_t value)
    {
        int const length = utf8Length(value);
        if (space() < static_cast<size_t>(length))
            return false;
        encodeUtf8(value, length, at_);
        at_ += length;
        return true;
    }

private:
    static constexpr size_t kShort = 16;

    unsigned char* begin_;
    unsigned char* at_;
    unsigned char* end_;
};

// Copies UTF-8 if it is valid.
ptrdiff_t copyUtf8(unsigned char const* s, size_t n, Output& out)
{
    for (size_t i = 0; i < n;) {
        i += asciiRun(s + i, n - i);
        if (i == n)
            break;
        DecodeResult const decoded = decodeUtf8(s + i, n - i);
        if (decoded.length < 0)
            return qvrInvalid;
        i += static_cast<size_t>(decoded.length);
    }
    if (!out.copy(s, n))
        return qvrNoRoom;
    return out.written();
}

// Converts character by character, and runs of ASCII in one copy. `convert` converts the character
// at `s`, of which `n` bytes remain, and returns its length, an error code, or 0: `convertRest`
// then converts all remaining bytes. `convertRest` has a single call site, so that the compiler
// keeps `out` in registers in the loop.
template <class Convert, class ConvertRest>
ptrdiff_t convertEach(qvr_cs const& cs, unsigned char const* s, size_t n, Output& out,
                      Convert convert, ConvertRest convertRest)
{
    while (n > 0) {
        size_t consumed;
        if (cs.ascii && *s < 0x80) {
            consumed = asciiRun(s, n);
            if (!out.copy(s, consumed))
                return qvrNoRoom;
        } else {
            ptrdiff_t const result = convert(s, n);
            if (result == 0)
                return convertRest(s, n);
            if (result < 0)
                return result;
            consumed = static_cast<size_t>(result);
        }
        s += consumed;
        n -= consumed;
    }
    return out.written();
}

ptrdiff_t errorCode(UErrorCode rc)
{
    return rc == U_BUFFER_OVERFLOW_ERROR     ? qvrNoRoom
           : rc == U_MEMORY_ALLOCATION_ERROR ? qvrNoMemory
                                             : qvrInvalid;
}

constexpr size_t kUnits = 1024;     // UTF-16 units between the converter and UTF-8
constexpr size_t kBlock = 1 << 16;  // bytes in one call of ICU, whose lengths have 31 bits
static_assert(kBlock >= kUnits * 32, "kUnits units must fit into a block in any codeset");

// Replaces the characters for which ICU's table differs from ours, in one direction.
void applyOverrides(Codeset const& codeset, UChar* begin, UChar* end,
                    char16_t MappingOverride::*from, char16_t MappingOverride::*to)
{
    if (codeset.overrides.empty())
        return;
    for (UChar* unit = begin; unit != end; ++unit) {
        for (MappingOverride const& mapping : codeset.overrides) {
            if (mapping.*from == *unit) {
                *unit = mapping.*to;
                break;
            }
        }
    }
}

// Appends UTF-16 units. `high` carries the first half of a pair from one call to the next.
ptrdiff_t appendUnits(UChar const* begin, UChar const* end, UChar& high, Output& out)
{
    for (UChar const* unit = begin; unit != end; ++unit) {
        uint32_t value = *unit;
        if (high != 0) {
            if (!U16_IS_TRAIL(value))
                return qvrInvalid;
            value = static_cast<uint32_t>(U16_GET_SUPPLEMENTARY(high, value));
            high = 0;
        } else if (U16_IS_LEAD(value)) {
            high = *unit;
            continue;
        } else if (U16_IS_TRAIL(value)) {
            return qvrInvalid;
        }
        if (!out.put(value))
            return qvrNoRoom;
    }
    return 0;
}

ptrdiff_t converterToUtf8(Codeset const& codeset, unsigned char const* s, size_t n, Output& out)
{
    ThreadConverter const converter(codeset);
    if (converter.get() == nullptr)
        return qvrNoMemory;
    char const* source = reinterpret_cast<char const*>(s);
    char const* const sourceEnd = source + n;
    UChar units[kUnits];
    UChar high = 0;
    for (;;) {
        char const* const blockEnd =
            source + std::min<ptrdiff_t>(sourceEnd - source, ptrdiff_t{kBlock});
        UChar* end = units;
        UErrorCode rc = U_ZERO_ERROR;
        ucnv_toUnicode(converter.get(), &end, units + kUnits, &source, blockEnd, nullptr,
                       blockEnd == sourceEnd, &rc);
        if (U_FAILURE(rc) && rc != U_BUFFER_OVERFLOW_ERROR)
            return errorCode(rc);
        applyOverrides(codeset, units, end, &MappingOverride::icu, &MappingOverride::ours);
        if (ptrdiff_t const failed = appendUnits(units, end, high, out); failed != 0)
            return failed;
        if (U_SUCCESS(rc) && blockEnd == sourceEnd)
            break;
    }
    if (high != 0)
        return qvrInvalid;
    return out.written();
}

ptrdiff_t utf8ToConverter(Codeset const& codeset, unsigned char const* s, size_t n, Output& out)
{
    ThreadConverter const converter(codeset);
    if (converter.get() == nullptr)
        return qvrNoMemory;
    UChar units[kUnits];
    size_t i = 0;
    do {
        UChar* end = units;
        while (i < n && end + 2 <= units + kUnits) {
            DecodeResult const decoded = decodeUtf8(s + i, n - i);
            if (decoded.length < 0)
                return qvrInvalid;
            i += static_cast<size_t>(decoded.length);
            if (decoded.value > 0xFFFF) {
                *end++ = static_cast<UChar>(U16_LEAD(decoded.value));
                *end++ = static_cast<UChar>(U16_TRAIL(decoded.value));
            } else {
                *end++ = static_cast<UChar>(decoded.value);
            }
        }
        applyOverrides(codeset, units, end, &MappingOverride::ours, &MappingOverride::icu);
        UChar const* source = units;
        char* const begin = reinterpret_cast<char*>(out.at());
        char* target = begin;
        UErrorCode rc = U_ZERO_ERROR;
        ucnv_fromUnicode(converter.get(), &target, begin + std::min(out.space(), kBlock), &source,
                         end, nullptr, i == n, &rc);
        if (U_FAILURE(rc))
            return errorCode(rc);
        out.advance(static_cast<size_t>(target - begin));
    } while (i < n);
    return out.written();
}

ptrdiff_t singleByteToUtf8(qvr_cs const& cs, unsigned char const* s, size_t n, Output& out)
{
    DecodeTable const& table = cs.codeset->first;
    return convertEach(
        cs, s, n, out,
        [&](unsigned char const* at, size_t) -> ptrdiff_t {
            uint32_t const value = table[*at];
            if (value == kNoCharacter)
                return 0;
            return out.put(value) ? 1 : ptrdiff_t{qvrNoRoom};
        },
        [](unsigned char const*, size_t) { return ptrdiff_t{qvrInvalid}; });
}

ptrdiff_t utf8ToSingleByte(qvr_cs const& cs, unsigned char const* s, size_t n, Output& out)
{
    Codeset const& codeset = *cs.codeset;
    return convertEach(
        cs, s, n, out,
        [&](unsigned char const* at, size_t left) -> ptrdiff_t {
            DecodeResult const decoded = decodeUtf8(at, left);
            if (decoded.length < 0)
                return qvrInvalid;
            auto const byte = static_cast<unsigned char>(lookUpBytes(codeset, decoded.value));
            if (byte == 0 && decoded.value != 0)
                return 0;
            return out.copy(&byte, 1) ? decoded.length : ptrdiff_t{qvrNoRoom};
        },
        [](unsigned char const*, size_t) { return ptrdiff_t{qvrInvalid}; });
}

// The two functions below use the tables until a character needs a converter, which then converts
// the rest: after each character the codeset is in its initial state.

ptrdiff_t multiByteToUtf8(qvr_cs const& cs, unsigned char const* s, size_t n, Output& out)
{
    Codeset const& codeset = *cs.codeset;
    return convertEach(
        cs, s, n, out,
        [&](unsigned char const* at, size_t left) -> ptrdiff_t {
            DecodeResult const decoded = decodeByTables(codeset, at, left);
            if (decoded.length < 0)
                return qvrInvalid;
            if (decoded.value > kMaxCodePoint)
                return 0;
            return out.put(decoded.value) ? decoded.length : ptrdiff_t{qvrNoRoom};
        },
        [&](unsigned char const* at, size_t left) {
            return converterToUtf8(codeset, at, left, out);
        });
}

ptrdiff_t utf8ToMultiByte(qvr_cs const& cs, unsigned char const* s, size_t n, Output& out)
{
    Codeset const& codeset = *cs.codeset;
    return convertEach(
        cs, s, n, out,
        [&](unsigned char const* at, size_t left) -> ptrdiff_t {
            DecodeResult const decoded = decodeUtf8(at, left);
            if (decoded.length < 0)
                return qvrInvalid;
            unsigned char bytes[2];
            int const length = encodeByTables(codeset, decoded.value, bytes);
            if (length < 0)
                return 0;
            return out.copy(bytes, static_cast<size_t>(length)) ? decoded.length
                                                                : ptrdiff_t{qvrNoRoom};
        },
        [&](unsigned char const* at, size_t left) {
            return utf8ToConverter(codeset, at, left, out);
        });
}

bool isUsable(qvr_cs_t cs, char const* src, size_t srcLen, char const* dst, size_t dstLen)
{
    return cs != nullptr && (src != nullptr || srcLen == 0) && (dst != nullptr || dstLen == 0);
}

}  // namespace
}  // namespace qvr

using namespace qvr;

ptrdiff_t qvr_to_utf8(qvr_cs_t cs, char const* src, size_t srcLen, char* dst, size_t dstLen)
{
    if (!isUsable(cs, src, srcLen, dst, dstLen))
        return qvrInvalid;
    if (srcLen == 0)
        return 0;
    unsigned char const* const s = bytes(src);
    Output out(dst, dstLen);
    switch (cs->kind) {
        case Kind::utf8:
            return copyUtf8(s, srcLen, out);
        case Kind::singleByte:
            return singleByteToUtf8(*cs, s, srcLen, out);
        case Kind::multiByte:
            return multiByteToUtf8(*cs, s, srcLen, out);
        default:
            return converterToUtf8(*cs->codeset, s, srcLen, out);
    }
}

ptrdiff_t qvr_from_utf8(qvr_cs_t cs, char const* src, size_t srcLen, char* dst, size_t dstLen)
{
    if (!isUsable(cs, src, srcLen, dst, dstLen))
        return qvrInvalid;
    if (srcLen == 0)
        return 0;
    unsigned char const* const s = bytes(src);
    Output out(dst, dstLen);
    switch (cs->kind) {
        case Kind::utf8:
            return copyUtf8(s, srcLen, out);
        case Kind::singleByte:
            return utf8ToSingleByte(*cs, s, srcLen, out);
        case Kind::multiByte:
            return utf8ToMultiByte(*cs, s, srcLen, out);
        default:
            return utf8ToConverter(*cs->codeset, s, srcLen, out);
    }
}
