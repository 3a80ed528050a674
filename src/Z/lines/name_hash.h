// name_hash: the hash of category and key names.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string_view>

namespace zlines {

/// Hashes `text` with `salt` and a secret key of the process, so that a file cannot be prepared to
/// make names collide.
/// threads any.
uint32_t hashOf(std::string_view text, uint32_t salt = 0);

// The same for containers of the standard library, whose own hash has no secret.
struct NameHash {
    using is_transparent = void;

    size_t operator()(std::string_view name) const { return hashOf(name); }
};

}  // namespace zlines
