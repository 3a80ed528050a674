// returned_strings: the strings that the plain functions return, until their callers release them.
#pragma once

#include <stddef.h>

namespace zhandles {

/// Returns a copy of `length` bytes at `text`, terminated by a zero; null if memory is exhausted.
/// The block is marked and registered as a returned string.
/// owns    owned by the caller; released with freeString.
char* newString(char const* text, size_t length) noexcept;

/// Releases a string that newString returned. Any other pointer is ignored without dereferencing
/// it.
void freeString(char* text) noexcept;

}  // namespace zhandles
