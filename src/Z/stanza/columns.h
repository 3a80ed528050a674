// columns: the columns of complaints about a line.
#pragma once

#include <stddef.h>

#include <string_view>

namespace zstanza {

/// Returns the number of characters in `text`, whatever the locale: a valid sequence of UTF-8 is
/// one character, and so is every byte that belongs to none.
size_t countCharacters(std::string_view text);

/// Returns the length in bytes of the character that `text`, which is not empty, starts with.
size_t characterLength(std::string_view text);

}  // namespace zstanza
