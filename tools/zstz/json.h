// json: strings and lists of JSON.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Returns `text` as a string of JSON. A byte that is not part of a valid character of UTF-8 is
/// written as the lone surrogate U+DC00 plus the byte.
std::string toJson(std::string_view text);

/// Return a list of strings.
std::string toJson(std::vector<std::string> const& texts);
std::string toJson(std::vector<std::string_view> const& texts);
