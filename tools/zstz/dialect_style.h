// dialect_style: files of other dialects than "stanza" in one style.
#pragma once

#include <Z/lines/dialect.h>

#include <string>
#include <string_view>

/// Returns contents with the separators of the dialect, without spaces at the ends of lines, and
/// with one blank line where there are several. Values, comments, names and indentation stay; so do
/// lines that are passed over, and spaces that belong to a value or follow a backslash.
std::string formatStyle(std::string_view text, zlines::Dialect const& dialect,
                        bool keepsBlanksAtEnd);
