#include "line_writer.h"

#include "limits.h"

namespace zstanza {

void writeValue(std::string_view name, std::string_view value, TextBuffer& text)
{
    // A line read as "key=value" may be too long with the two spaces: it would be read back as two
    // lines.
    if (name.size() + 3 + value.size() > kMaxLineLength) {
        text.add(name);
        text.add("=");
        text.add(value);
        text.add("\n");
        return;
    }
    char* const to = text.append(name.size() + 3 + value.size() + 1);
    // Copy the line in one step if it is in memory as read: the parser replaced only
    // the space after the name.
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
    char* const to = text.append(line.size() + 1);
    memcpy(to, line.data(), line.size());
    to[line.size()] = '\n';
}

void writeHeader(std::string_view name, TextBuffer& text)
{
    char* const to = text.append(name.size() + size_t{3});
    *to = '[';
    memcpy(to + 1, name.data(), name.size());
    memcpy(to + 1 + name.size(), "]\n", 2);
}

void writeEmptyKey(std::string_view name, TextBuffer& text)
{
    text.add(name);
    text.add(" =\n");
}

void listValue(std::string_view name, std::string_view value, TextBuffer& text)
{
    text.add(name);
    text.add(" = ");
    text.add(value);
    text.add("\n");
}

}  // namespace zstanza
