// limits: the length of lines in a stanza file, in bytes without the newline.
#pragma once

#include <stddef.h>

namespace zstanza {

// Files are read as if by fgets() with a buffer of this size.
constexpr size_t kLineBufferSize = 8192;

// A longer line is read back as several lines: the buffer also holds the newline and a zero byte.
constexpr size_t kMaxLineLength = kLineBufferSize - 2;

}  // namespace zstanza
