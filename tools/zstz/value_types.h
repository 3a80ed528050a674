// value_types: the values that the programs of a dialect read as a boolean or a number.
#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Returns the boolean that a value means: a word of ztemplates::toBoolean(), or a word or number
/// that the programs of the dialect accept too. Nothing for any other value.
std::optional<bool> toBoolean(std::string const& value, std::string_view dialect);

/// Returns the number that a value means, in decimal: a number of ztemplates::toNumber(), or an
/// integer with a unit of the dialect. Nothing for any other value.
std::optional<std::string> toNumber(std::string const& value, std::string_view dialect);
