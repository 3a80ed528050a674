// plain_values: values that read back without quotes, but that programs of the format read as
// something else.
#pragma once

#include <string_view>

#include "switches.h"

namespace zdialects {

/// Returns whether programs of the format read `spelled`, which has no quotes around it, as our
/// reader does.
/// range   `before` is the value that it replaces, if that had no quotes either; else empty. A
///         constant may replace a constant; an expression of error levels may replace any value.
bool isPlainSafe(Switches const& switches, std::string_view spelled, std::string_view before);

// Starts a variable of PHP, also in double quotes.
constexpr std::string_view kVariableStart = "${";

/// Returns whether a value is written in double quotes. With a variable, it is written in single
/// quotes if possible, which all versions of PHP read alike.
bool isQuotedSafe(Switches const& switches, std::string_view value);

/// Returns whether a new stanza can have this name. Stanzas of the file can have others.
bool isNewStanzaSafe(Switches const& switches, std::string_view name);

/// Returns whether a new key can have this name. Keys of the file can have others.
bool isNewKeySafe(Switches const& switches, std::string_view name);

}  // namespace zdialects
