// escaped_values: values whose characters are spelled as `\n` and `\xe9`.
#pragma once

#include <string>
#include <string_view>

#include "switches.h"

namespace zdialects {

/// Appends a value with escapes. Spaces at its ends have an escape in some dialects. Characters
/// without an escape stay as they are; so do newlines, unless `escapesNewlines`.
void appendEscaped(Switches const& switches, std::string_view value, bool escapesNewlines,
                   std::string& out);

}  // namespace zdialects
