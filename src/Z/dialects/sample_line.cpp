#include "sample_line.h"

#include <algorithm>
#include <vector>

#include "plain_values.h"

namespace zdialects {

namespace {

using zlines::Line;

std::vector<Line> linesOf(SwitchedDialect const& dialect, std::string_view text)
{
    std::vector<Line> lines;
    dialect.split(text, lines);
    return lines;
}

}  // namespace

// Returns the text above a key.
std::string SampleLine::start() const
{
    std::string text;
    if (dialect_.topStanza().empty()) {
        dialect_.appendHeader("a", text);
        text += '\n';
    }
    return text;
}

bool SampleLine::isValidStanza(std::string_view name) const
{
    if (name.empty())
        return false;
    if (name == dialect_.topStanza())
        return true;
    if (dialect_.switches().heads == Heads::none)
        return false;
    std::string text;
    dialect_.appendHeader(name, text);
    text += '\n';
    std::vector<Line> const lines = linesOf(dialect_, text);
    std::string read;
    std::string wanted;
    return lines.size() == 1 && lines[0].kind == zlines::headerLine &&
           dialect_.stanzaName(text, lines[0], read) == dialect_.comparableStanza(name, wanted);
}

bool SampleLine::isValidKey(std::string_view name) const
{
    if (name.empty())
        return false;
    std::string text = start();
    size_t const before = text.empty() ? 0 : 1;  // lines
    dialect_.appendKey(name, text);
    text += dialect_.ownSeparator();
    text += "a\n";
    std::vector<Line> const lines = linesOf(dialect_, text);
    std::string read;
    std::string wanted;
    return lines.size() == before + 1 && lines.back().kind == zlines::valueLine &&
           dialect_.keyName(text, lines.back(), read) == dialect_.comparableKey(name, wanted);
}

bool SampleLine::canBeNewStanza(std::string_view name) const
{
    return isNewStanzaSafe(dialect_.switches(), name);
}

bool SampleLine::canBeNew(std::string_view key) const
{
    return isNewKeySafe(dialect_.switches(), key);
}

// Returns whether each line has at most the length of a written line.
bool SampleLine::isShortEnough(std::string_view lines) const
{
    while (!lines.empty()) {
        size_t const end = std::min(lines.find('\n'), lines.size() - 1);
        if (end > dialect_.maxLineLength())
            return false;
        lines.remove_prefix(end + 1);
    }
    return true;
}

bool SampleLine::isValidValue(std::string_view key, std::string_view value) const
{
    std::string text = start();
    size_t const before = text.empty() ? 0 : 1;
    dialect_.appendKey(key, text);
    text += dialect_.ownSeparator();
    text += "a\n";
    std::vector<Line> const lines = linesOf(dialect_, text);
    if (lines.size() != before + 1 || lines.back().kind != zlines::valueLine)
        return false;
    for (unsigned spelling = 0; spelling < dialect_.spellingCount(); ++spelling) {
        std::optional<zlines::Replacement> const change = dialect_.replaceValue(
            text, lines.back(), static_cast<uint32_t>(text.size()), value, spelling);
        if (!change)
            continue;
        std::string changed = text;
        changed.replace(change->begin, change->end - change->begin, change->text);
        std::vector<Line> const read = linesOf(dialect_, changed);
        std::string space;
        if (read.size() == before + 1 && read.back().kind == zlines::valueLine &&
            dialect_.value(changed, read.back(), space) == value &&
            isShortEnough(std::string_view(changed).substr(read.back().begin)))
            return true;
    }
    return false;
}

bool SampleLine::canStandAlone() const
{
    return dialect_.switches().keyAlone == KeyAlone::option;
}

}  // namespace zdialects
