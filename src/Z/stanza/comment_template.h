// comment_template: comments such as "# port = 5", which hold the place of a key.
#pragma once

#include <stddef.h>

#include <string_view>

namespace zstanza {

// Returns whether `text` begins with `pattern` when the blanks in the text are skipped.
bool beginsWithPattern(std::string_view pattern, char const* text);

// Takes the key of a template comment such as "# port = 5" into `key`, without its blanks. Returns
// its length; 0 when the comment is no template.
size_t takeTemplateKey(std::string_view comment, char* key);

bool isTemplateFor(std::string_view key, char const* comment);

}  // namespace zstanza
