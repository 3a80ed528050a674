// escaped_names: names whose characters are spelled as "\n" or "\x5b", as KConfig spells them.
//
// Brackets without an escape have a meaning: "][" is between two groups, and "[de]" at the end of a
// key is its language. So that no two names of a file are the same, these stay escaped in a name:
//
//  - escaped brackets that would read as "][", or as a language, without the escape
//  - a backslash before "x5b" and "x5d"
#pragma once

#include <string>
#include <string_view>

namespace zdialects {

/// Return the name, in `space` if it differs. An escape that does not exist stays in the name.
/// `spelled` may be in `space`.
std::string_view decodeEscapedStanza(std::string_view spelled, std::string& space);
std::string_view decodeEscapedKey(std::string_view spelled, std::string& space);

/// Append the spelling of a name.
void appendEscapedStanza(std::string_view name, std::string& out);
void appendEscapedKey(std::string_view name, std::string& out);

/// Returns whether a key of a cache has a backslash apart from escaped brackets. KConfig decodes
/// keys twice, so its programs do not find such a key.
bool hasBackslash(std::string_view key);

}  // namespace zdialects
