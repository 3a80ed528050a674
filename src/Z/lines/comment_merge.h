// comment_merge: the comments of a key or header with the changes of both sides.
#pragma once

#include <stdint.h>

#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "line.h"
#include "merge_side.h"
#include "merged_contents.h"

namespace zlines {

struct MergedComment {
    SideComment comment;  // of `ours`, unless only `theirs` has these words
    uint32_t ours;        // the index of the comment among `ours`, if it stays; else kNone
};

/// Returns the comments of both sides, without comments that a side removed. Comments never
/// conflict.
std::vector<MergedComment> mergeComments(std::vector<SideComment> const& base,
                                         std::vector<SideComment> const& ours,
                                         std::vector<SideComment> const& theirs);

// The comments that belong to different keys, headers or lines in the versions. Some do because of
// a blank line or a removed key between them: the comments at the start or end of the text, and
// those above lines that are passed over. The lines passed over stay as `ours` has them, with their
// comments. Others were moved in both versions, to different keys or headers.
class MovedComments {
public:
    /// range   the arguments outlive the object. `contents` is the result of the merge.
    MovedComments(MergeSide const& base, MergeSide const& ours, MergeSide const& theirs,
                  MergedContents const& contents);

    /// Changes the comments of a key or header of `theirs` so that a merge adds no comment that
    /// `ours` has there or has moved, and removes no comment that `theirs` has above a
    /// line passed over.
    /// range   `owner` is the stanza and key of the comments.
    void undoMoves(std::pair<std::string_view, std::string_view> const& owner,
                   std::vector<SideComment> const& base, std::vector<SideComment> const& ours,
                   std::vector<SideComment>& theirs);

private:
    using Counts = std::map<std::string_view, ptrdiff_t>;

    bool takeKnown(bool isLoose, std::string_view words);

    Counts gained_;      // above lines passed over: more in `theirs` than in `ours`
    Counts ourLoose_;    // at the start or end of the text: more in `ours` than in the base
    Counts theirLoose_;  // the same of `theirs`
    Counts ourAdded_;    // of keys and headers of the result: only in `ours`
    Counts lost_;        // of keys and headers: only in the base
};

}  // namespace zlines
