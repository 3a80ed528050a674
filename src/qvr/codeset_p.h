// codeset_p: the tables of a codeset handle; decoding and encoding of one character.
//
// Subsystem: text services.  Stands on: utf8_p, qvr.h.
//
// A Codeset holds the tables of one codeset. All its handles share it; it is built for the first
// handle and is immutable afterwards. Tables decode and encode characters of one and two bytes, and
// decode characters of three bytes in a codeset that has none of four. A converter object of the
// calling thread (converter_p) handles longer characters.
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
    utf8,         // decoded and encoded by code, without tables
    singleByte,   // `first` and the reverse table
    multiByte,    // `first`, `tables`, the reverse table, and converters
    convertOnly,  // whole strings only, by converters
};

// An entry of a decoding table is a code point or one of these.
constexpr uint32_t kNoCharacter = 0xFFFFFFFF;     // no valid character starts like this
constexpr uint32_t kManyCodePoints = 0xFFFFFFFE;  // a character that maps to several code points
constexpr uint32_t kNeedsConverter = 0xFFFFFFFD;  // only a converter can decode it
constexpr uint32_t kTable = 0x80000000;           // plus the index of the table for the next byte

using DecodeTable = std::array<uint32_t, 256>;

// A character for which ICU's table and ours differ. Applied to the output of ICU and, reversed, to
// its input.
struct MappingOverride {
    char16_t icu;
    char16_t ours;
};

struct Codeset {
    Codeset() = default;
    Codeset(Codeset const&) = delete;
    Codeset& operator=(Codeset const&) = delete;
    ~Codeset();

    std::string key;          // identifies the codeset
    Codeset* next = nullptr;  // in the list of all; guarded by its lock
    unsigned handles = 0;     // guarded by the same lock
    uint64_t id = 0;          // unique; a thread's converter refers to its codeset by it
    Kind kind = Kind::utf8;
    bool ascii = false;   // bytes below 0x80 are ASCII characters
    DecodeTable first{};  // by the first byte
    std::vector<DecodeTable> tables;
    std::array<uint8_t, 256> page{};               // reverse table: code point / 256 to a page
    std::vector<std::array<uint16_t, 256>> pages;  // one or two bytes; 0 if not encodable
    std::vector<MappingOverride> overrides;
    UConverter* master = nullptr;  // only cloned, for each thread's converter
};

// Decodes the character at `s` with the tables of a multibyte codeset. The value is kNeedsConverter
// if only a converter can decode it.
inline DecodeResult decodeByTables(Codeset const& codeset, unsigned char const* s, size_t n)
{
    uint32_t value = codeset.first[*s];
    int length = 1;
    while (value >= kTable && value < kNeedsConverter) {
        if (static_cast<size_t>(length) == n)
            return {kTruncated, 0};
        value = codeset.tables[value - kTable][s[length]];
        ++length;
    }
    return {value == kNoCharacter ? kInvalid : length, value};
}

DecodeResult decodeMultiByte(Codeset const& codeset, unsigned char const* s, size_t n);
int encodeMultiByte(Codeset const& codeset, uint32_t value, unsigned char* out);

}  // namespace qvr

// The handle itself holds the fields that the hot functions read.
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

// Decodes the character at `s`. At most `n` bytes (at least 1) may be read, and none past the
// terminator, which is a character of one byte. The value is kManyCodePoints if the character is
// valid but maps to several code points.
inline DecodeResult decode(qvr_cs const& cs, unsigned char const* s, size_t n)
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

// Returns the entry of the reverse table for a code point: a byte, or two with the first in the
// higher half. 0 means the terminator for code point 0, and "not encodable" for all others.
inline unsigned lookUpBytes(Codeset const& codeset, uint32_t value)
{
    return value > 0xFFFF ? 0u : codeset.pages[codeset.page[value >> 8]][value & 0xFF];
}

// Encodes a code point with the reverse table into at most two bytes. Returns its length, or
// kInvalid if the table does not have it.
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

// Encodes a code point into at most qvrMbLenMax bytes. Returns its length, or kInvalid if the
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

// Returns the length of the unit at `s`, which is not the terminator: a whole character, or one
// invalid byte.
inline size_t unitLength(qvr_cs const& cs, unsigned char const* s)
{
    int const length = decode(cs, s, SIZE_MAX).length;
    return length > 0 ? static_cast<size_t>(length) : 1;
}

}  // namespace qvr
