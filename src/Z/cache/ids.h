// ids: the 32-bit numbers by which records refer to each other and to strings.
#pragma once

#include <stdint.h>

namespace zcache {

using Id = uint32_t;        // index of a record in its pool; 0: no record
using StringId = uint32_t;  // of a string in the arena; 0: no string

constexpr Id kMaxRecords = (1u << 30) - 1;  // an id shares a word with two bits

}  // namespace zcache
