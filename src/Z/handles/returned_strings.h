// returned_strings: the strings that the plain functions return, until their callers release them.
#pragma once

#include <stddef.h>

namespace zhandles {

/// Returns a copy of `length` bytes at `text`, terminated by a zero; null if memory is exhausted.
/// The block is marked and registered as a returned string.
/// owns    owned by the caller; released with freeString.
char* newString(char const* text, size_t length) noexcept;

/// The bytes before a returned string in its block.
inline constexpr size_t kStringHeaderSize = 4;

/// Makes the string in `block` a returned string, without a copy, and returns it; null if memory is
/// exhausted. The block has kStringHeaderSize unused bytes, the `length` bytes of the string, and
/// at least one more byte.
/// owns    the block, from malloc(), is taken over. The string is owned by the caller; released
///         with freeString.
char* adoptString(char* block, size_t length) noexcept;

/// Releases a string that newString or adoptString returned. Any other pointer is ignored without
/// dereferencing it.
void freeString(char* text) noexcept;

}  // namespace zhandles
