// limits: how long a line of a stanza file may be.
#pragma once

#include <stddef.h>

namespace zstanza {

constexpr size_t kLineRoom = 8192;              // of the buffer that a line is read into
constexpr size_t kLongestLine = kLineRoom - 2;  // that reads back as one, without its line feed

}  // namespace zstanza
