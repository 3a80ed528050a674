// comment_form: the characters of comments, and of keys in comments.
#pragma once

#include <stddef.h>

#include <string_view>

#include "limits.h"

namespace zstanza {

// The default is the form of stanza files.
struct CommentForm {
    std::string_view marks = "#";       // each starts a comment; a missing one is the first of them
    std::string_view separators = "=";  // each separates a key from its value
    size_t maxLength = kMaxLineLength;  // of a line, in bytes

    bool isMark(char c) const { return marks.find(c) != marks.npos; }
    bool isSeparator(char c) const { return separators.find(c) != separators.npos; }
};

}  // namespace zstanza
