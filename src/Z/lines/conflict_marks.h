// conflict_marks: the lines of both sides of each conflict, between marks.
#pragma once

#include <stddef.h>

#include <string>
#include <string_view>
#include <vector>

#include "dialect.h"
#include "merge_side.h"
#include "merged_contents.h"

namespace zlines {

/// Returns `text` with the conflicts of `contents` marked. A block has the lines of each side as
/// they are in its text, but the line endings of `text`. Stores the number of blocks.
/// range   `text` has the merged contents; a conflict has the lines of `ours` or, without such
///         lines, of `theirs`. `names` has the names of its stanzas, as MergeSide takes them.
std::string markConflicts(std::string_view text, Dialect const& dialect,
                          std::vector<std::string> const& names, MergedContents const& contents,
                          MergeSide const& ours, MergeSide const& theirs, size_t& blocks);

}  // namespace zlines
