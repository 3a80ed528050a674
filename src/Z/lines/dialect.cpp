#include "dialect.h"

namespace zlines {

std::string_view Dialect::stanzaName(std::string_view text, Line const& header, std::string&) const
{
    return slice(text, header.nameBegin(), header.nameEnd);
}

std::string_view Dialect::keyName(std::string_view text, Line const& line, std::string&) const
{
    return slice(text, line.nameBegin(), line.nameEnd);
}

std::string_view Dialect::comparableStanza(std::string_view name, std::string&) const
{
    return name;
}

std::string_view Dialect::comparableKey(std::string_view name, std::string&) const
{
    return name;
}

std::string_view Dialect::value(std::string_view text, Line const& line, std::string&) const
{
    return slice(text, line.valueBegin, line.valueEnd);
}

bool Dialect::appendValue(std::string_view value, unsigned, LineForm const&, std::string& out) const
{
    out += value;
    return true;
}

std::optional<Replacement> Dialect::replaceValue(std::string_view text, Line const& line, uint32_t,
                                                 std::string_view value, unsigned spelling) const
{
    Replacement change{line.valueBegin, line.valueEnd, {}};
    // "key =" gets the space that it has before the separator.
    std::string_view const separator = slice(text, line.nameEnd, line.valueBegin);
    if (line.valueBegin == line.valueEnd && separator.size() > 1 && separator.front() == ' ' &&
        separatorBytes().find(separator.back()) != std::string_view::npos)
        change.text.push_back(' ');
    LineForm const form{slice(text, line.begin, line.nameBegin()), "\n"};
    if (!appendValue(value, spelling, form, change.text))
        return {};
    return change;
}

Replacement Dialect::removeValue(std::string_view, Line const& line) const
{
    return {line.valueBegin, line.valueEnd, {}};
}

Replacement Dialect::renameHeader(std::string_view, Line const& header, std::string_view name) const
{
    return {header.nameBegin(), header.nameEnd, std::string(name)};
}

Replacement Dialect::renameKey(std::string_view, Line const& line, std::string_view name) const
{
    Replacement change{line.nameBegin(), line.nameEnd, {}};
    appendKey(name, change.text);
    return change;
}

Replacement Dialect::removeLine(std::string_view, Line const& line, uint32_t end) const
{
    return {line.begin, end, {}};
}

}  // namespace zlines
