// name_hash: the hash of names.
#pragma once

#include <stdint.h>

#include <string_view>

namespace zcache {

// Hashes `text` under `salt`. A secret of the process goes into it: nobody can prepare a file whose
// names fall together.
uint32_t hashOf(std::string_view text, uint32_t salt = 0);

}  // namespace zcache
