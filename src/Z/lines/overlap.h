// overlap: whether two changes of a file concern the same values, stanzas or comments.
#pragma once

#include <string_view>

#include "dialect.h"

namespace zlines {

/// Returns whether `ours` and `theirs` have different changes of a part of `base`: of the values of
/// a key, of a stanza that one of them removed, or of the comments of a key or header. Changes of
/// comments in `ours` count only if `theirs` changes them, too.
/// range   as for mergeTexts(), which has no conflicts if this returns false.
bool overlap(std::string_view base, std::string_view ours, std::string_view theirs,
             Dialect const& dialect, std::string_view fixed);

/// Returns whether a key has the same values in both, or is missing in both.
bool hasSameValues(std::string_view stanza, std::string_view key, std::string_view base,
                   std::string_view other, Dialect const& dialect);

}  // namespace zlines
