// ids: how records and strings refer to each other.
#pragma once

#include <stdint.h>

namespace zcache {

using Id = uint32_t;      // place of a record in its array; 0 is none
using TextId = uint32_t;  // place of a text in the arena; 0 is none

constexpr Id kMostRecords = (1u << 30) - 1;  // ids share a word with two bits

}  // namespace zcache
