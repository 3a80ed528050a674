#include "line_writer.h"

#include "limits.h"

namespace zstanza {

// Writes "name = value". Where a line still stands in memory as it was read, with zero bytes behind
// name and value, it is copied whole.
void writeValue(std::string_view name, std::string_view value, TextBuffer& text)
{
    // A line that was read without the blanks may have no room for them: with them it would come
    // back as two.
    if (name.size() + 3 + value.size() > kLongestLine) {
        text.add(name);
        text.add("=");
        text.add(value);
        text.add("\n");
        return;
    }
    char* const to = text.take(name.size() + 3 + value.size() + 1);
    if (value.data() == name.data() + name.size() + 3 && value.data()[-2] == '=' &&
        value.data()[-1] == ' ') {
        memcpy(to, name.data(), name.size() + 3 + value.size());
        to[name.size()] = ' ';
    } else {
        memcpy(to, name.data(), name.size());
        memcpy(to + name.size(), " = ", 3);
        memcpy(to + name.size() + 3, value.data(), value.size());
    }
    to[name.size() + 3 + value.size()] = '\n';
}

void writeLine(std::string_view line, TextBuffer& text)
{
    char* const to = text.take(line.size() + 1);
    memcpy(to, line.data(), line.size());
    to[line.size()] = '\n';
}

void writeHead(std::string_view name, TextBuffer& text)
{
    char* const to = text.take(name.size() + size_t{3});
    *to = '[';
    memcpy(to + 1, name.data(), name.size());
    memcpy(to + 1 + name.size(), "]\n", 2);
}

void writeEmptyKey(std::string_view name, TextBuffer& text)
{
    text.add(name);
    text.add(" =\n");
}

}  // namespace zstanza
