// copied_keys: keys of a merge that take all lines of the other side, because the order of lines
// with and without a value is not in a list of values.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "dialect.h"
#include "merge_side.h"
#include "merged_contents.h"

namespace zlines {

/// Returns `text` with all lines of `theirs` of the keys that take them, at the first line of each
/// key. The lines are copied byte for byte if all keys of the result read back. Otherwise each gets
/// a new spelling in the style of `text`: a backslash at the end of a file joins no line there, but
/// in a copy it would join the line below.
/// range   `text` has the merged values. `names` has the names of its stanzas, as MergeSide takes
///         them.
/// throws  Refusal if the new spellings do not read back either.
std::string copyKeys(std::string_view text, Dialect const& dialect,
                     std::vector<std::string> const& names, MergedContents const& contents,
                     MergeSide const& theirs);

}  // namespace zlines
