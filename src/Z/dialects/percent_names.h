// percent_names: names whose characters are spelled as "%20" or "%U20AC", and "/" as a backslash.
#pragma once

#include <string>
#include <string_view>

namespace zdialects {

/// Returns the name, in `space` if it differs. A percent sign that starts no character, or a
/// control character, stays in the name. `spelled` may be in `space`.
std::string_view decodePercents(std::string_view spelled, std::string& space);

/// Appends the spelling of a name. Bytes that are not UTF-8 are appended unchanged.
void appendPercents(std::string_view name, std::string& out);

}  // namespace zdialects
