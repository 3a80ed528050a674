// unified_diff: the difference of two files in the form that patch(1) reads.
#pragma once

#include <string>
#include <string_view>

namespace zlines {

/// Returns the unified diff of two files, with three lines of context; empty if they are equal.
/// range   the names are for the header lines: "/dev/null" for a file that does not exist.
/// cost    O((lines) * (differences)); beyond 2000 differences in a part, the diff replaces the
///         whole part.
std::string formatUnifiedDiff(std::string_view oldText, std::string_view newText,
                              std::string const& oldName, std::string const& newName);

}  // namespace zlines
