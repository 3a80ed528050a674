// file_text: writes the contents as the text of a stanza file or as a document, and the obfuscated
// values as records of its companion.
#pragma once

#include "../lines/document.h"
#include "../stanza/companion_records.h"
#include "../stanza/text_buffer.h"
#include "contents.h"

namespace zcache {

/// Appends the text of the file to `text`.
void write(Contents const& contents, zstanza::TextBuffer& text);

/// Adds the stanzas, comments, keys and plain values of the file to `document`, in file order.
/// range   `keepsEmpty`: empty values, too.
/// throws  std::bad_alloc.
void describe(Contents const& contents, bool keepsEmpty, zlines::Document& document);

/// Appends every category with its plain values, in map order.
void list(Contents const& contents, zstanza::TextBuffer& text);

/// Adds every obfuscated value to `writer`.
void writeObfuscated(Contents const& contents, zstanza::CompanionWriter& writer);

}  // namespace zcache
