// dialect_loader: fills the contents from the lines of a file in a dialect with switches.
#pragma once

#include <string_view>

#include "../dialects/switched_dialect.h"
#include "contents.h"

namespace zcache {

/// Returns the policy of a cache for files of a dialect.
Policy policyOf(zdialects::SwitchedDialect const& dialect);

/// Adds the lines of `text` to contents with this policy.
/// range   empty contents.
/// throws  ZPropertiesInvalidDataException_6_0 (path, line text, line number, column) for the first
///         invalid line; std::bad_alloc; ZOutOfMemoryException_6_0. The contents are empty then.
void load(zdialects::SwitchedDialect const& dialect, char const* path, std::string_view text,
          Contents& contents);

}  // namespace zcache
