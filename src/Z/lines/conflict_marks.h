// conflict_marks: the lines of both sides of each conflict, between marks.
#pragma once

#include <string>
#include <string_view>

#include "dialect.h"
#include "merge_side.h"
#include "merged_contents.h"

namespace zlines {

/// Returns `text` with the conflicts of `contents` marked.
/// range   `text` has the merged contents; a conflict has the lines of `ours` or, without such
///         lines, of `theirs`.
std::string markConflicts(std::string_view text, Dialect const& dialect,
                          MergedContents const& contents, MergeSide const& ours,
                          MergeSide const& theirs);

}  // namespace zlines
