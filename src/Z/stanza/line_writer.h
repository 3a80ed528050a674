// line_writer: the lines of a stanza file as they are written.
#pragma once

#include <string_view>

#include "text_buffer.h"

namespace zstanza {

// Write a line of a file: ZPropertiesImpl_text.cpp.
void writeHead(std::string_view name, TextBuffer& text);
void writeValue(std::string_view name, std::string_view value, TextBuffer& text);
void writeEmptyKey(std::string_view name, TextBuffer& text);
void writeLine(std::string_view line, TextBuffer& text);  // a comment, or an empty line

}  // namespace zstanza
