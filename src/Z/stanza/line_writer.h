// line_writer: appends the lines of a stanza file to a buffer.
#pragma once

#include <string_view>

#include "text_buffer.h"

namespace zstanza {

void writeHeader(std::string_view name, TextBuffer& text);
void writeValue(std::string_view name, std::string_view value, TextBuffer& text);
void writeEmptyKey(std::string_view name, TextBuffer& text);
void writeLine(std::string_view line, TextBuffer& text);  // a comment, or an empty string

/// Appends "name = value" whatever the length of the line.
void listValue(std::string_view name, std::string_view value, TextBuffer& text);

}  // namespace zstanza
