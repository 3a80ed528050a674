// spelled_value: the line that has a value, and the replacement of its spelling.
#pragma once

#include <stdint.h>

#include <span>
#include <string>
#include <string_view>

#include "outline.h"

namespace zlines {

/// Returns the line that has the value at `index` of a key, by its index in the outline; kNone if
/// no line has it. A key without values has its line at `index` 0.
/// range   `values` are all values of the key, in order.
uint32_t lineOfValue(Outline& outline, std::string_view stanza, std::string_view key,
                     std::span<std::string_view const> values, size_t index);

/// Stores the text with another spelling of the value of a valueLine in `out`, and the value in
/// `value`. Returns false if the spelling does not read back as one value in that line, or if
/// another line would read differently.
/// cost    O(text).
bool respell(Outline const& outline, uint32_t line, std::string_view spelling, std::string& out,
             std::string& value);

}  // namespace zlines
