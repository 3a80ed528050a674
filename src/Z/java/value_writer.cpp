#include "value_writer.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "byte_vector.h"

namespace zjava {

namespace {

constexpr signed char kDelete = 0x7F;

bool isPlain(char c)
{
    return static_cast<signed char>(c) >= 0 && c != '\\' && c != ':' && c != kDelete;
}

// Returns whether all bytes of `word` are plain.
bool allPlain(uint64_t word)
{
    constexpr uint64_t kOnes = 0x0101010101010101;
    constexpr uint64_t kTops = 0x8080808080808080;
    // The top bit of some byte is set if a byte of `bytes` is 0; no byte of `word` has it.
    auto const hasZero = [](uint64_t bytes) { return bytes - kOnes; };
    return ((word | hasZero(word ^ kOnes * '\\') | hasZero(word ^ kOnes * ':') |
             hasZero(word ^ kOnes * kDelete)) &
            kTops) == 0;
}

// Copies `value` up to the first byte that needs an escape, or to `end`. Writes whole blocks.
inline void copyPlain(char*& out, char const*& value, char const* end)
{
    constexpr ptrdiff_t kSize = sizeof(ByteVector);
    while (end - value >= kSize) {
        ByteVector const bytes = loadVector(value);
        memcpy(out, &bytes, sizeof bytes);
        ptrdiff_t const plain =
            firstFound((bytes == '\\') | (bytes == ':') | (bytes == kDelete) | (bytes < 0));
        value += plain;
        out += plain;
        if (plain != kSize)
            return;
    }
    if (end - value >= static_cast<ptrdiff_t>(sizeof(uint64_t))) {
        uint64_t word;
        memcpy(&word, value, sizeof word);
        if (allPlain(word)) {
            memcpy(out, &word, sizeof word);
            value += sizeof word;
            out += sizeof word;
        }
    }
    while (value != end && isPlain(*value))
        *out++ = *value++;
}

// Writes the escape of the character at `value`, which ends before `end`.
inline void writeEscape(char*& out, char const*& value, char const* end)
{
    // Missing bytes of a truncated character are 0.
    auto const bits = [end](char const* at, int i) {
        return end - at > i ? static_cast<unsigned char>(at[i]) & 0x3Fu : 0u;
    };
    auto const lead = static_cast<unsigned char>(*value);
    *out++ = '\\';
    if (lead < kDelete) {
        *out++ = *value++;
        return;
    }
    // KEPT: a byte that does not start a character of two or three bytes is written as "\u"
    // only, and reading skips such a line. A program that loads the file uses its default for
    // the key; with a readable escape it would get a value that never was text.
    // Test: ZJavaProperties.KeepsWritingUAlone
    *out++ = 'u';
    unsigned unit;
    int bytes;
    if (lead >= 0xC0 && lead <= 0xDF) {
        unit = (lead & 0x1Fu) << 6 | bits(value, 1);
        bytes = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        unit = (lead & 0x0Fu) << 12 | bits(value, 1) << 6 | bits(value, 2);
        bytes = 3;
    } else {
        ++value;
        return;
    }
    constexpr char kDigits[] = "0123456789abcdef";
    out[0] = kDigits[unit >> 12];
    out[1] = kDigits[unit >> 8 & 0xF];
    out[2] = kDigits[unit >> 4 & 0xF];
    out[3] = kDigits[unit & 0xF];
    out += 4;
    value += std::min<ptrdiff_t>(bytes, end - value);
}

}  // namespace

char* writeValue(char* out, char const* value, size_t length)
{
    char const* const end = value + length;
    for (;;) {
        copyPlain(out, value, end);
        if (value == end)
            return out;
        do
            writeEscape(out, value, end);
        while (value != end && !isPlain(*value));
    }
}

}  // namespace zjava
