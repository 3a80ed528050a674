// value_writer: the form in which a value is written to a Java property file.
#pragma once

#include <stddef.h>

namespace zjava {

/// Returns the most bytes that writeValue() writes for a value of `length` bytes. They include the
/// rest of a block past the end of the value.
constexpr size_t roomForValue(size_t length)
{
    constexpr size_t kMaxGrowth = 3;  // "\uXXXX" for a character of two bytes
    constexpr size_t kBlocks = 32;
    return kMaxGrowth * length + kBlocks;
}

/// Writes a value of `length` bytes to `out`, with "\uXXXX" for every character that is not ASCII.
/// Returns the end of the written value.
/// range   `out` has roomForValue(length) bytes.
/// kept    writes only "\u" for a byte that does not start a character of two or three bytes.
char* writeValue(char* out, char const* value, size_t length);

}  // namespace zjava
