#include "spelled_value.h"

#include <vector>

namespace zlines {

namespace {

// Returns the lines of a key, in order.
std::vector<uint32_t> linesOfKey(Outline& outline, std::string_view stanza, std::string_view key)
{
    Dialect const& dialect = outline.dialect();
    std::vector<uint32_t> lines;
    std::string wantedSpace;
    uint32_t const found = outline.find(dialect.comparableStanza(stanza, wantedSpace), 0);
    if (found == kNone)
        return lines;
    std::string_view const wanted = dialect.comparableKey(key, wantedSpace);
    std::string space;
    for (uint32_t at = outline.stanzas()[found].firstSection; at != kNone;
         at = outline.sections()[at].next) {
        Section const& section = outline.sections()[at];
        for (uint32_t line = section.first; line < section.end; ++line)
            if (outline.lines()[line].isKey() && outline.keyName(line, space) == wanted)
                lines.push_back(line);
    }
    return lines;
}

}  // namespace

uint32_t lineOfValue(Outline& outline, std::string_view stanza, std::string_view key,
                     std::span<std::string_view const> values, size_t index)
{
    std::vector<uint32_t> const lines = linesOfKey(outline, stanza, key);
    if (values.empty())
        return lines.empty() ? kNone : lines.front();
    auto const kindOf = [&](size_t at) { return outline.lines()[lines[at]].kind; };
    size_t at = 0;
    for (size_t i = 0; i <= index && i < values.size(); ++i) {
        // Where no line holds an empty value, a line without a value may stand for it.
        bool const isEmpty = values[i].empty() && !outline.dialect().hasEmptyValues();
        if (isEmpty && (at == lines.size() || kindOf(at) != keyOnlyLine)) {
            if (i == index)
                return kNone;
            continue;
        }
        while (at < lines.size() && !isEmpty && kindOf(at) != valueLine)
            ++at;
        if (at == lines.size())
            return kNone;
        if (i == index)
            return lines[at];
        ++at;
    }
    return kNone;
}

bool respell(Outline const& outline, uint32_t line, std::string_view spelling, std::string& out,
             std::string& value)
{
    std::string_view const text = outline.text();
    Line const& before = outline.lines()[line];
    if (spelling.size() >= kNone - text.size())
        return false;
    out.reserve(text.size() + spelling.size());
    out.assign(text.substr(0, before.valueBegin));
    out += spelling;
    out += text.substr(before.valueEnd);
    uint32_t const grown =
        static_cast<uint32_t>(spelling.size()) - (before.valueEnd - before.valueBegin);

    std::vector<Line> lines;
    lines.reserve(outline.lines().size());
    outline.dialect().split(out, lines);
    if (lines.size() != outline.lines().size())
        return false;
    for (uint32_t i = 0; i < lines.size(); ++i) {
        Line const& old = outline.lines()[i];
        uint32_t const moved = i > line ? grown : 0;
        if (lines[i].begin != old.begin + moved || lines[i].kind != old.kind ||
            lines[i].indent != old.indent || lines[i].nameEnd != old.nameEnd + moved ||
            lines[i].valueBegin != old.valueBegin + moved ||
            lines[i].valueEnd != old.valueEnd + (i >= line ? grown : 0))
            return false;
    }
    std::string space;
    value = outline.dialect().value(out, lines[line], space);
    return true;
}

}  // namespace zlines
