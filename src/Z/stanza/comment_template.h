// comment_template: comments such as "# port = 5", which show where the line of a key belongs.
//
// Spaces in a comment are ignored.
#pragma once

#include <stddef.h>

#include <string_view>

#include "comment_form.h"

namespace zstanza {

/// Returns whether `text` starts with `pattern`.
bool startsWithPattern(std::string_view pattern, char const* text);

/// Stores the key of a template, without spaces, in `key`. Returns its length; 0 if `comment` is
/// not a template, or if the key has more than `capacity` bytes.
size_t extractTemplateKey(std::string_view comment, CommentForm const& form, char* key,
                          size_t capacity);

/// Returns whether `comment` is a template for `key`.
bool isTemplateFor(std::string_view key, CommentForm const& form, char const* comment);

}  // namespace zstanza
