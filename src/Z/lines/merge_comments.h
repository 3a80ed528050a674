// merge_comments: the changes of comments since a file was read, as steps in its present text.
#pragma once

#include <string_view>
#include <vector>

#include "merge.h"

namespace zlines {

/// Adds the steps for the comments above keys and headers, and at the start of the file, to
/// `steps`. Returns false if such a comment, or its key or stanza, has changed in `other`, too, or
/// if a changed comment is above neither.
bool planComments(std::string_view base, Document const& document, std::string_view other,
                  Dialect const& dialect, std::vector<MergeStep>& steps);

}  // namespace zlines
