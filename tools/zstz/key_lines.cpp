#include "key_lines.h"

#include <Z/ZPropertiesImpl_p.h>
#include <Z/ZStanzaDialect_p.h>
#include <Z/dialects/line_rules.h>
#include <Z/dialects/switched_dialect.h>
#include <Z/lines/separate_stanzas.h>
#include <Z/stanza/stanza_dialect.h>

#include <algorithm>

zlines::SharedText keptText(Store const& store)
{
    return ZPCategoryBasedCache_6_0::KeptLines::textOf(store.contents());
}

zlines::SharedDialect lineDialectOf(ZStanzaDialect_6_0 const& dialect)
{
    zdialects::Switches const switches = zdialects::switchesOf(dialect);
    if (switches.isStanzaFormat())
        return zstanza::sharedStanzaDialect();
    return zdialects::dialectWith(switches);
}

namespace {

bool hasNumberedStanzas(ZStanzaDialect_6_0 const& dialect)
{
    return zdialects::switchesOf(dialect).repeatedHead == zdialects::RepeatedHead::separate;
}

}  // namespace

std::string formatHeading(ZStanzaDialect_6_0 const& dialect, std::string_view stanza)
{
    std::string const name(stanza);
    size_t const base = hasNumberedStanzas(dialect) ? zlines::withoutNumber(stanza).size() : 0;
    return base == 0 || base == name.size() ? '[' + name + ']' : '[' + name;
}

std::string resolveStanza(ZStanzaDialect_6_0 const& dialect, std::string const& name)
{
    constexpr int kSubsections = 4;  // of zDialectHeads
    if (name.starts_with('[') && hasNumberedStanzas(dialect)) {
        std::string_view const base = zlines::withoutNumber(name);
        bool const isFirst = base.size() == name.size();
        if (!isFirst || base.ends_with(']'))
            return name.substr(1, name.size() - (isFirst ? 2 : 1));
    }
    if (name.find('"') == name.npos || dialect.get(zDialectHeads) != kSubsections)
        return name;
    std::string_view spelled = name;
    if (spelled.starts_with('[') && spelled.ends_with(']'))
        spelled = spelled.substr(1, spelled.size() - 2);
    zlines::SharedDialect const lines = lineDialectOf(dialect);
    auto const line = zdialects::LineRules(*lines).readAlone("[" + std::string(spelled) + "]");
    return line.kind == zlines::headerLine ? line.name : name;
}

std::vector<KeyLine> findKeyLines(zlines::Outline& outline, std::string const& stanza,
                                  std::string const& key)
{
    std::vector<KeyLine> found;
    zlines::Dialect const& dialect = outline.dialect();
    std::string keySpace, space;
    uint32_t const index = outline.find(zdialects::LineRules(dialect).stanzaIdentity(stanza), 0);
    if (index == zlines::kNone)
        return found;
    std::string_view const wanted = dialect.comparableKey(key, keySpace);
    size_t number = 1;
    uint32_t counted = 0;
    for (uint32_t at = outline.stanzas()[index].firstSection; at != zlines::kNone;
         at = outline.sections()[at].next) {
        zlines::Section const section = outline.sections()[at];
        for (uint32_t i = section.first; i < section.end; ++i) {
            zlines::Line const& line = outline.lines()[i];
            if (!line.isKey() || outline.keyName(i, space) != wanted)
                continue;
            std::string_view const passed = zlines::slice(outline.text(), counted, line.begin);
            number += static_cast<size_t>(std::count(passed.begin(), passed.end(), '\n'));
            counted = line.begin;
            std::string_view const value =
                line.kind == zlines::valueLine ? outline.value(i, space) : "";
            found.push_back({line, i, number,
                             zlines::slice(outline.text(), line.valueBegin, line.valueEnd),
                             std::string(value)});
        }
    }
    return found;
}

namespace {

// A key line and its meaning.
struct Entry {
    uint32_t stanza;
    std::string key;
    std::string value;

    bool operator==(Entry const&) const = default;
};

// The order of lines in a file.
struct IsAbove {
    bool operator()(KeyLine const& a, uint32_t line) const { return a.index < line; }
    bool operator()(uint32_t line, KeyLine const& b) const { return line < b.index; }
};

// Returns the key lines of an outline, without the lines in `without`, which are in file order, if
// it is not null.
std::vector<Entry> entriesOf(zlines::Outline& outline, std::vector<KeyLine> const* without)
{
    std::vector<Entry> entries;
    std::string space;
    for (uint32_t i = 0; i < outline.stanzas().size(); ++i)
        for (uint32_t at = outline.stanzas()[i].firstSection; at != zlines::kNone;
             at = outline.sections()[at].next)
            for (uint32_t line = outline.sections()[at].first; line < outline.sections()[at].end;
                 ++line) {
                bool const isKey = outline.lines()[line].isKey();
                if (!isKey ||
                    (without != nullptr &&
                     std::binary_search(without->begin(), without->end(), line, IsAbove())))
                    continue;
                std::string const key(outline.keyName(line, space));
                entries.push_back({i, key,
                                   outline.lines()[line].kind == zlines::valueLine
                                       ? '=' + std::string(outline.value(line, space))
                                       : ""});
            }
    return entries;
}

// Returns the number of lines without a meaning, apart from comments of several lines.
size_t countOthers(zlines::Outline const& outline)
{
    zdialects::LineRules const rules(outline.dialect());
    bool const joinsComments = rules.joinsComments();
    size_t count = 0;
    for (uint32_t i = 0; i < outline.lines().size(); ++i) {
        zlines::Line const& line = outline.lines()[i];
        if (line.kind == zlines::otherLine &&
            !(joinsComments &&
              rules.startsComment(zlines::slice(outline.text(), line.begin, outline.endOf(i)))))
            ++count;
    }
    return count;
}

}  // namespace

bool differOnlyIn(zlines::Outline& before, std::vector<KeyLine> const* removed,
                  zlines::Outline& after, std::vector<KeyLine> const* added)
{
    return before.stanzas().size() == after.stanzas().size() &&
           countOthers(before) == countOthers(after) &&
           entriesOf(before, removed) == entriesOf(after, added);
}
