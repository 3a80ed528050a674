// codeset_p: what a codeset handle stands for, and one character of it.
//
// Subsystem: text services.  Stands on: utf8_p, qvr.h.
//
// A Codeset holds the tables of one codeset and is shared by all its handles; it is built once,
// when the first handle is made, and never changes afterwards. Characters of one and two bytes are
// decoded from and encoded by tables, and those of three are decoded so where a codeset has none of
// four. What is longer goes through a converter object of the calling thread (converter_p).
#pragma once

#include <unicode/utypes.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "qvr.h"
#include "utf8_p.h"

struct UConverter;

namespace qvr {

enum class Kind : uint8_t {
    utf8,         // straight code
    singleByte,   // `first` and the reverse table
    multiByte,    // `first`, `tables`, the reverse table, and converters
    convertOnly,  // whole texts only, by converters
};

// An entry of a decoding table is a code point or one of these.
constexpr uint32_t kNoCharacter = 0xFFFFFFFF;     // nothing that is valid begins like this
constexpr uint32_t kManyCodePoints = 0xFFFFFFFE;  // a character, but of several code points
constexpr uint32_t kLonger = 0xFFFFFFFD;  // begins a character that only a converter can judge
constexpr uint32_t kTable = 0x80000000;   // plus the index of the table for the next byte

using DecodeTable = std::array<uint32_t, 256>;

// A character for which ICU's table and ours differ: applied to what comes out of ICU, and the
// other way round to what goes in.
struct Exchange {
    char16_t icu;
    char16_t ours;
};

struct Codeset {
    Codeset() = default;
    Codeset(Codeset const&) = delete;
    Codeset& operator=(Codeset const&) = delete;
    ~Codeset();

    std::string key;          // tells codesets apart
    Codeset* next = nullptr;  // in the list of all; guarded by its lock
    unsigned handles = 0;     // guarded by the same lock
    uint64_t id = 0;          // never used twice, so that a thread's converter finds its codeset
    Kind kind = Kind::utf8;
    bool ascii = false;   // bytes below 0x80 are ASCII characters
    DecodeTable first{};  // by the first byte
    std::vector<DecodeTable> tables;
    std::array<uint8_t, 256> page{};               // reverse table: code point / 256 to a page
    std::vector<std::array<uint16_t, 256>> pages;  // byte or two bytes of it, 0 for neither
    std::vector<Exchange> exchanges;
    UConverter* master = nullptr;  // never converts; what the threads' converters are cloned from
};

// Decodes the character of a multibyte codeset at `s` as far as the tables go: the value kLonger
// says that only a converter can judge what begins with these bytes.
inline Step decodeByTables(Codeset const& codeset, unsigned char const* s, size_t n)
{
    uint32_t value = codeset.first[*s];
    int length = 1;
    while (value >= kTable && value < kLonger) {
        if (static_cast<size_t>(length) == n)
            return {kTruncated, 0};
        value = codeset.tables[value - kTable][s[length]];
        ++length;
    }
    return {value == kNoCharacter ? kInvalid : length, value};
}

Step decodeMultiByte(Codeset const& codeset, unsigned char const* s, size_t n);
int encodeMultiByte(Codeset const& codeset, uint32_t value, unsigned char* out);

}  // namespace qvr

// What the hot functions look at lies in the handle itself.
struct qvr_cs {
    qvr::Kind kind;
    bool ascii;
    qvr::Codeset const* codeset;
};

namespace qvr {

inline unsigned char const* bytes(char const* s)
{
    return reinterpret_cast<unsigned char const*>(s);
}

inline unsigned char* bytes(char* s)
{
    return reinterpret_cast<unsigned char*>(s);
}

// Decodes the character at `s`, of which `n` bytes (at least 1) may be read, none of them behind
// the terminator. The terminator is a character of one byte. A character that is valid but stands
// for several code points has the value kManyCodePoints.
inline Step decode(qvr_cs const& cs, unsigned char const* s, size_t n)
{
    switch (cs.kind) {
        case Kind::utf8:
            return decodeUtf8(s, n);
        case Kind::singleByte: {
            uint32_t const value = cs.codeset->first[*s];
            return {value <= kMaxCodePoint ? 1 : kInvalid, value};
        }
        case Kind::multiByte: {
            uint32_t const value = cs.codeset->first[*s];
            if (value <= kMaxCodePoint)
                return {1, value};
            return decodeMultiByte(*cs.codeset, s, n);
        }
        default:
            return {*s == 0 ? 1 : kInvalid, 0};
    }
}

// What the reverse table has for a code point: a byte, or two with the first in the higher half. 0
// is the terminator for the code point 0, and nothing for the others.
inline unsigned lookUpBytes(Codeset const& codeset, uint32_t value)
{
    return value > 0xFFFF ? 0u : codeset.pages[codeset.page[value >> 8]][value & 0xFF];
}

// Encodes a code point by the reverse table into at most two bytes. Returns their number, or
// kInvalid when the table does not have it.
inline int encodeByTables(Codeset const& codeset, uint32_t value, unsigned char* out)
{
    unsigned const both = lookUpBytes(codeset, value);
    if (both > 0xFF) {
        out[0] = static_cast<unsigned char>(both >> 8);
        out[1] = static_cast<unsigned char>(both);
        return 2;
    }
    if (both == 0 && value != 0)
        return kInvalid;
    *out = static_cast<unsigned char>(both);
    return 1;
}

// Encodes a code point into at most qvrMbLenMax bytes. Returns their number, or kInvalid when the
// codeset does not have it.
inline int encode(qvr_cs const& cs, uint32_t value, unsigned char* out)
{
    if (value > kMaxCodePoint || isSurrogate(value))
        return kInvalid;
    if (cs.ascii && value < 0x80) {
        *out = static_cast<unsigned char>(value);
        return 1;
    }
    switch (cs.kind) {
        case Kind::utf8: {
            int const length = utf8Length(value);
            encodeUtf8(value, length, out);
            return length;
        }
        case Kind::singleByte:
            return encodeByTables(*cs.codeset, value, out);
        case Kind::multiByte: {
            int const length = encodeByTables(*cs.codeset, value, out);
            return length > 0 ? length : encodeMultiByte(*cs.codeset, value, out);
        }
        default:
            return kInvalid;
    }
}

// The number of bytes to step at `s`, which is not at the terminator: a whole character, or one
// invalid byte.
inline size_t unitLength(qvr_cs const& cs, unsigned char const* s)
{
    int const length = decode(cs, s, SIZE_MAX).length;
    return length > 0 ? static_cast<size_t>(length) : 1;
}

}  // namespace qvr
