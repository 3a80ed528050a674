#include "value_writer.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <bit>

#include "byte_vector.h"

namespace zjava {

namespace {

constexpr signed char kDelete = 0x7F;

bool isPlain(char c)
{
    return static_cast<signed char>(c) >= 0 && c != '\\' && c != ':' && c != kDelete;
}

template <class Word>
uint64_t loadWord(char const* bytes)
{
    Word word;
    memcpy(&word, bytes, sizeof word);
    return word;
}

// Loads the `count` bytes at `bytes`, less than a vector, and zeros after them.
inline ByteVector loadPart(char const* bytes, size_t count)
{
    uint64_t halves[2] = {};
    if constexpr (std::endian::native != std::endian::little) {
        if (count > 0)
            memcpy(halves, bytes, count);
    } else if (count >= 8) {
        halves[0] = loadWord<uint64_t>(bytes);
        // Two shifts: one of 64 bits is undefined.
        halves[1] = loadWord<uint64_t>(bytes + count - 8) >> 8 * (15 - count) >> 8;
    } else if (count >= 4) {
        halves[0] = loadWord<uint32_t>(bytes) | loadWord<uint32_t>(bytes + count - 4)
                                                    << 8 * (count - 4);
    } else if (count > 0) {
        halves[0] = loadWord<uint8_t>(bytes) |
                    loadWord<uint8_t>(bytes + count / 2) << 8 * (count / 2) |
                    loadWord<uint8_t>(bytes + count - 1) << 8 * (count - 1);
    }
    ByteVector vector;
    memcpy(&vector, halves, sizeof vector);
    return vector;
}

// Copies `value` up to the first byte that needs an escape, or to `end`. Writes whole blocks.
inline void copyPlain(char*& out, char const*& value, char const* end)
{
    constexpr ptrdiff_t kSize = sizeof(ByteVector);
    for (;;) {
        ptrdiff_t const count = std::min(end - value, kSize);
        ByteVector const bytes =
            count == kSize ? loadVector(value) : loadPart(value, static_cast<size_t>(count));
        memcpy(out, &bytes, sizeof bytes);
        ptrdiff_t const plain = std::min(
            count, firstFound((bytes == '\\') | (bytes == ':') | (bytes == kDelete) | (bytes < 0)));
        value += plain;
        out += plain;
        if (plain != kSize)
            return;
    }
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
