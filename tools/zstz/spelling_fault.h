// spelling_fault: why a dialect cannot spell a name or a value.
#pragma once

#include <functional>
#include <string>

#include "failures.h"

/// Returns whether a dialect can spell a string.
using IsValid = std::function<bool(std::string const&)>;

/// Returns why a dialect cannot spell a string, found by changes that make it valid.
/// range   `isValid` returns false for the string.
/// cost    O(1) calls of `isValid`.
Problem describeSpellingFault(std::string const& text, std::string const& dialect,
                              IsValid const& isValid);
