#include "line_rules.h"

#include <algorithm>

#include "switched_dialect.h"

namespace zdialects {

using zlines::Line;

namespace {

// Returns null for the stanza format.
SwitchedDialect const* switched(zlines::Dialect const& dialect)
{
    return dynamic_cast<SwitchedDialect const*>(&dialect);
}

}  // namespace

LoneText::LoneText(zlines::Dialect const& dialect, std::string_view bytes)
{
    dialect.appendHeader("a", text);
    text += '\n';
    begin = text.size();
    text.append(bytes).append("\n");
    dialect.split(text, lines);
}

Line const* LoneText::firstLine() const
{
    auto const found = std::find_if(lines.begin(), lines.end(),
                                    [&](Line const& line) { return line.begin == begin; });
    return found != lines.end() ? &*found : nullptr;
}

std::string LineRules::stanzaName(std::string_view text, Line const& header) const
{
    std::string space;
    SwitchedDialect const* const rules = switched(dialect_);
    return std::string(rules != nullptr ? rules->writtenStanza(text, header, space)
                                        : dialect_.stanzaName(text, header, space));
}

std::string LineRules::keyName(std::string_view text, Line const& line) const
{
    std::string space;
    SwitchedDialect const* const rules = switched(dialect_);
    return std::string(rules != nullptr ? rules->writtenKey(text, line, space)
                                        : dialect_.keyName(text, line, space));
}

std::string LineRules::stanzaIdentity(std::string_view name) const
{
    constexpr std::string_view kFirst = "]1";
    if (!dialect_.joinsHeaders() && name.ends_with(kFirst) && name != ".]1")
        name.remove_suffix(kFirst.size());
    std::string space;
    return std::string(dialect_.comparableStanza(name, space));
}

std::string LineRules::keyIdentity(std::string_view name) const
{
    std::string space;
    return std::string(dialect_.comparableKey(name, space));
}

bool LineRules::hasResets() const
{
    SwitchedDialect const* const rules = switched(dialect_);
    return rules != nullptr && rules->switches().emptyValues == EmptyValues::reset;
}

bool LineRules::dropsBlanks() const
{
    SwitchedDialect const* const rules = switched(dialect_);
    return rules != nullptr && rules->switches().dropBlanks;
}

bool LineRules::joinsComments() const
{
    LoneText const lone(dialect_, std::string(dialect_.ownComment()) + " k \\\n l");
    return lone.isOneLine() && lone.lines.back().kind == zlines::otherLine;
}

bool LineRules::startsComment(std::string_view line) const
{
    size_t const mark = line.find_first_not_of(" \t");
    return mark != line.npos && readAlone(line.substr(mark, 1)).kind == zlines::commentLine;
}

LineRules::LoneLine LineRules::readAlone(std::string_view line) const
{
    LoneText const lone(dialect_, line);
    Line const* const read = lone.firstLine();
    if (read == nullptr)
        return {zlines::otherLine, "", ""};
    std::string space;
    auto const kind = static_cast<zlines::LineKind>(read->kind);
    std::string const name = kind == zlines::headerLine ? stanzaName(lone.text, *read)
                             : read->isKey()            ? keyName(lone.text, *read)
                                                        : "";
    std::string_view const value =
        kind == zlines::valueLine ? dialect_.value(lone.text, *read, space) : "";
    return {kind, name, std::string(value)};
}

}  // namespace zdialects
