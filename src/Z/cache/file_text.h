// file_text: the contents as the text of a file.
#pragma once

#include "../stanza/companion_records.h"
#include "../stanza/text_buffer.h"
#include "contents.h"

namespace zcache {

/// Writes the text of the file.
void write(Store const& store, zstanza::TextBuffer& text);

/// Adds every obfuscated value to the companion.
void writeObfuscated(Store const& store, zstanza::CompanionWriter& writer);

}  // namespace zcache
