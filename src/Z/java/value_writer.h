// value_writer: the form in which a value is written to a Java property file.
#pragma once

#include <stddef.h>

#include <string>

namespace zjava {

/// Appends a value of `length` bytes, with "\uXXXX" for every character that is not ASCII.
/// throws  std::bad_alloc.
/// kept    writes only "\u" for a byte that does not start a character of two or three bytes.
void appendValue(std::string& text, char const* value, size_t length);

}  // namespace zjava
