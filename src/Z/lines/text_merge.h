// text_merge: two changes of a file, merged by stanza and key.
//
// The differences of `base` and `theirs` become edits of `ours`, so that every other line of `ours`
// stays byte for byte, with its order and blank lines. A comment belongs to the key or header below
// it.
#pragma once

#include <stddef.h>

#include <string>
#include <string_view>

#include "dialect.h"

namespace zlines {

struct MergedText {
    std::string text;
    size_t conflicts;  // blocks between marks in the text
};

/// Returns whether `theirs` changes bytes between a zero byte and the end of its line. A stanza
/// file can have such bytes, and a merge would lose the change, because they are not read.
bool changesUnreadBytes(std::string_view base, std::string_view ours, std::string_view theirs);

/// Returns whether `theirs` changes lines that are passed over, or comments above them, in another
/// way than `ours`. They have no stanza and key, so a merge would lose the change.
bool changesLinesPassedOver(std::string_view base, std::string_view ours, std::string_view theirs,
                            Dialect const& dialect);

/// Returns whether `merged` lacks lines that are passed over, or comments above them, although
/// `ours` changes such lines: lines of `ours` or `theirs` that neither removed.
bool losesLinesPassedOver(std::string_view base, std::string_view ours, std::string_view theirs,
                          std::string_view merged, Dialect const& dialect);

/// Merges the contents of a file. Two different changes of a value are a conflict; the result has
/// the lines of both sides then, between marks as git writes them. A change in a stanza or key that
/// the other side removed is a conflict, too, and the result has the whole stanza between marks.
/// Comments never conflict: the result gets the comments of both sides. Where empty values are
/// resets, a list with a reset conflicts as a whole, also if one side changes its resets and the
/// other side changes something else.
/// range   the arguments are readable files of the dialect. `fixed` is a stanza that stays as it
///         is in `ours`; empty: none.
/// throws  Refusal as rewrite(); std::bad_alloc.
MergedText mergeTexts(std::string_view base, std::string_view ours, std::string_view theirs,
                      Dialect const& dialect, std::string_view fixed = {});

}  // namespace zlines
