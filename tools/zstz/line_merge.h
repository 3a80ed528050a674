// line_merge: two changes of a file, merged line by line.
#pragma once

#include <stddef.h>

#include <string>
#include <string_view>

struct MergedLines {
    std::string text;
    size_t conflicts;  // marked in the text
};

/// Makes the changes from `base` to `theirs` in `ours`. Different changes between two lines that
/// both sides have left are a conflict: the result has the lines of both sides, between marks as
/// git writes them.
/// cost    as zlines::align().
MergedLines mergeLines(std::string_view base, std::string_view ours, std::string_view theirs);
