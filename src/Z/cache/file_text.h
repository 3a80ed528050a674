// file_text: writes the contents as the text of a stanza file, and as records of its companion.
#pragma once

#include "../stanza/companion_records.h"
#include "../stanza/text_buffer.h"
#include "contents.h"

namespace zcache {

/// Appends the text of the file to `text`.
void write(Contents const& contents, zstanza::TextBuffer& text);

/// Appends every category with its plain values, in map order.
void list(Contents const& contents, zstanza::TextBuffer& text);

/// Adds every obfuscated value to `writer`.
void writeObfuscated(Contents const& contents, zstanza::CompanionWriter& writer);

}  // namespace zcache
