// comment_template: comments such as "# port = 5", which show where the line of a key belongs.
//
// Spaces in a comment are ignored.
#pragma once

#include <stddef.h>

#include <string_view>

namespace zstanza {

/// Returns whether `text` starts with `pattern`.
bool startsWithPattern(std::string_view pattern, char const* text);

/// Stores the key of a template, without spaces, in `key`. Returns its length; 0 if `comment` is
/// not a template.
/// range   `key` has as many bytes as `comment`.
size_t extractTemplateKey(std::string_view comment, char* key);

/// Returns whether `comment` is a template for `key`.
bool isTemplateFor(std::string_view key, char const* comment);

}  // namespace zstanza
