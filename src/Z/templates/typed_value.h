// typed_value: values that are read as a boolean or a number.
#pragma once

#include <optional>
#include <string>

namespace ztemplates {

/// Returns the boolean that a value means: yes, y, true, t, on or 1; no, n, false, f, off or 0;
/// case is ignored. Nothing for any other value.
std::optional<bool> toBoolean(std::string const& value);

struct Number {
    std::string text;  // in decimal
    double value;
};

/// Returns the number that a value means: an integer in decimal, in hexadecimal after 0x or in
/// octal after 0, or a decimal fraction; after an optional sign. Nothing for any other value, and
/// for an integer below -2^63 or above 2^64 - 1.
std::optional<Number> toNumber(std::string const& value);

}  // namespace ztemplates
