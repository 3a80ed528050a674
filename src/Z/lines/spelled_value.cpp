#include "spelled_value.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "name_hash.h"

namespace zlines {

SpelledText::SpelledText(std::string text, SharedDialect dialect)
    : text_(std::move(text)), dialect_(std::move(dialect)), outline_(text_, *dialect_)
{
    std::string space;
    for (uint32_t stanza = 0; stanza < outline_.stanzas().size(); ++stanza)
        for (uint32_t at = outline_.stanzas()[stanza].firstSection; at != kNone;
             at = outline_.sections()[at].next) {
            Section const& section = outline_.sections()[at];
            for (uint32_t line = section.first; line < section.end; ++line)
                if (outline_.lines()[line].isKey())
                    keyLines_.push_back(
                        {hashOf(outline_.keyName(line, space), stanza), stanza, line});
        }
    std::sort(keyLines_.begin(), keyLines_.end(), [](KeyLine const& a, KeyLine const& b) {
        return std::tie(a.hash, a.line) < std::tie(b.hash, b.line);
    });
    numbers_.reserve(outline_.lines().size());
    uint32_t number = 1;
    uint32_t counted = 0;
    for (Line const& line : outline_.lines()) {
        number += static_cast<uint32_t>(
            std::count(text_.begin() + counted, text_.begin() + line.begin, '\n'));
        counted = line.begin;
        numbers_.push_back(number);
    }
}

// Returns the lines of a key, in order.
std::vector<uint32_t> SpelledText::linesOf(std::string_view stanza, std::string_view key)
{
    std::vector<uint32_t> lines;
    std::string wantedSpace;
    uint32_t const found = outline_.find(dialect_->comparableStanza(stanza, wantedSpace), 0);
    if (found == kNone)
        return lines;
    std::string_view const wanted = dialect_->comparableKey(key, wantedSpace);
    std::string space;
    uint32_t const hash = hashOf(wanted, found);
    auto at =
        std::lower_bound(keyLines_.begin(), keyLines_.end(), hash,
                         [](KeyLine const& line, uint32_t value) { return line.hash < value; });
    for (; at != keyLines_.end() && at->hash == hash; ++at)
        if (at->stanza == found && outline_.keyName(at->line, space) == wanted)
            lines.push_back(at->line);
    return lines;
}

uint32_t SpelledText::lineOf(std::string_view stanza, std::string_view key,
                             std::span<std::string_view const> values, size_t index)
{
    std::vector<uint32_t> const lines = linesOf(stanza, key);
    if (values.empty())
        return lines.empty() ? kNone : lines.front();
    auto const kindOf = [&](size_t at) { return outline_.lines()[lines[at]].kind; };
    size_t at = 0;
    for (size_t i = 0; i <= index && i < values.size(); ++i) {
        // Where no line holds an empty value, a line without a value may stand for it.
        bool const isEmpty = values[i].empty() && !dialect_->hasEmptyValues();
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

namespace {

// The value lines of each key, by the names of its stanza and its own.
using ValueLines = std::map<std::pair<std::string, std::string>, std::vector<uint32_t>>;

ValueLines valueLinesOf(Outline const& outline)
{
    ValueLines found;
    std::string space;
    for (ReadStanza const& stanza : outline.stanzas())
        for (uint32_t at = stanza.firstSection; at != kNone; at = outline.sections()[at].next)
            for (uint32_t line = outline.sections()[at].first; line < outline.sections()[at].end;
                 ++line)
                if (outline.lines()[line].kind == valueLine)
                    found[{std::string(stanza.name), std::string(outline.keyName(line, space))}]
                        .push_back(line);
    return found;
}

std::string_view spellingOf(Outline const& outline, uint32_t line)
{
    return slice(outline.text(), outline.lines()[line].valueBegin, outline.lines()[line].valueEnd);
}

std::set<std::string_view> spellingsOf(Outline const& outline, std::vector<uint32_t> const& lines)
{
    std::set<std::string_view> spellings;
    for (uint32_t const line : lines)
        spellings.insert(spellingOf(outline, line));
    return spellings;
}

bool readsAs(Outline const& outline, Outline const& other)
{
    if (outline.lines().size() != other.lines().size())
        return false;
    std::string space;
    std::string otherSpace;
    for (uint32_t i = 0; i < outline.lines().size(); ++i) {
        if (outline.lines()[i].kind != other.lines()[i].kind)
            return false;
        if (outline.lines()[i].isKey() && outline.keyName(i, space) != other.keyName(i, otherSpace))
            return false;
        if (outline.lines()[i].kind == valueLine &&
            outline.value(i, space) != other.value(i, otherSpace))
            return false;
    }
    return true;
}

}  // namespace

std::string withSpellings(std::string text, std::string_view before, std::string_view spelled,
                          Dialect const& dialect)
{
    Outline const old(before, dialect);
    Outline const wanted(spelled, dialect);
    Outline const present(text, dialect);
    ValueLines const oldLines = valueLinesOf(old);
    ValueLines const presentLines = valueLinesOf(present);
    std::map<uint32_t, std::string_view> changes;  // by lines of `present`
    std::string space;
    for (auto const& [name, lines] : valueLinesOf(wanted)) {
        auto const here = presentLines.find(name);
        if (here == presentLines.end())
            continue;
        auto const unchanged = oldLines.find(name);
        std::set<std::string_view> known = spellingsOf(present, here->second);
        if (unchanged != oldLines.end())
            known.merge(spellingsOf(old, unchanged->second));
        std::multimap<std::string, uint32_t> byValue;
        for (uint32_t const line : here->second)
            byValue.emplace(present.value(line, space), line);
        for (uint32_t const line : lines) {
            std::string_view const spelling = spellingOf(wanted, line);
            if (known.contains(spelling))
                continue;
            auto const same = byValue.find(std::string(wanted.value(line, space)));
            if (same == byValue.end())
                continue;
            changes.emplace(same->second, spelling);
            byValue.erase(same);
        }
    }
    std::string changed;
    uint32_t done = 0;
    for (auto const& [line, spelling] : changes) {
        changed += slice(text, done, present.lines()[line].valueBegin);
        changed += spelling;
        done = present.lines()[line].valueEnd;
    }
    if (changes.empty())
        return text;
    changed += std::string_view(text).substr(done);
    return readsAs(Outline(changed, dialect), present) ? changed : text;
}

}  // namespace zlines
