// value_merge: two changes of a list of strings, made in one list.
//
// A value that took the place of another is a replacement; values that only moved are unchanged.
// The result does not depend on which side is which.
#pragma once

#include <string>
#include <vector>

namespace zlines {

// A value of the merged list or, in a conflict, the values of both sides.
struct MergedValue {
    std::vector<std::string> ours;
    std::vector<std::string> theirs;
    bool isConflict = false;  // else `ours` is the value, and `theirs` is empty
};

/// Returns the list `base` with the changes of both sides. Two replacements of one value are a
/// conflict, and so are a replacement and a removal. A value that both sides add is added once. Of
/// two lists without a common base, the longer must contain the other.
std::vector<MergedValue> mergeValues(std::vector<std::string> const& base,
                                     std::vector<std::string> const& ours,
                                     std::vector<std::string> const& theirs);

}  // namespace zlines
