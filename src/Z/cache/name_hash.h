// name_hash: the hash of category and key names.
#pragma once

#include <stdint.h>

#include <string_view>

namespace zcache {

/// Hashes `text` with `salt` and a secret key of the process, so that a file cannot be prepared to
/// make names collide.
/// threads any.
uint32_t hashOf(std::string_view text, uint32_t salt = 0);

}  // namespace zcache
