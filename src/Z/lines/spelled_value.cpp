#include "spelled_value.h"

#include <algorithm>
#include <deque>
#include <map>
#include <tuple>
#include <utility>

#include "alignment.h"
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

std::vector<std::string> valuesOf(Outline const& outline, std::vector<uint32_t> const& lines)
{
    std::vector<std::string> values;
    std::string space;
    for (uint32_t const line : lines)
        values.emplace_back(outline.value(line, space));
    return values;
}

std::vector<std::string_view> spellingsOf(Outline const& outline,
                                          std::vector<uint32_t> const& lines)
{
    std::vector<std::string_view> spellings;
    for (uint32_t const line : lines)
        spellings.push_back(spellingOf(outline, line));
    return spellings;
}

using Spellings = std::map<uint32_t, std::string_view>;  // by lines of the merged text

// The value lines of a key in one of the three versions.
struct KeyText {
    KeyText(Outline const& outline, std::vector<uint32_t> const& keyLines)
        : lines(keyLines),
          values(valuesOf(outline, keyLines)),
          spellings(spellingsOf(outline, keyLines))
    {
    }

    std::vector<std::string_view> viewsOfValues() const { return {values.begin(), values.end()}; }

    std::vector<uint32_t> const& lines;
    std::vector<std::string> values;
    std::vector<std::string_view> spellings;
};

// Finds the lines of `present` that get another spelling, because `wanted` has it and `old` has
// not. A line is identified by its index among equal values and by its spelling.
void findSpellings(KeyText const& old, KeyText const& wanted, KeyText const& present,
                   Spellings& found)
{
    std::vector<uint32_t> presentOf(old.lines.size(), kNone);
    for (auto const& [before, after] : align(old.spellings, present.spellings))
        presentOf[before] = after;
    std::vector<uint32_t> oldOf(wanted.lines.size(), kNone);
    for (auto const& [before, after] : align(old.viewsOfValues(), wanted.viewsOfValues()))
        oldOf[after] = before;
    std::vector<bool> isPlaced(wanted.lines.size());
    std::vector<bool> isTaken(present.lines.size());
    auto const place = [&](size_t index, uint32_t at) {
        isPlaced[index] = isTaken[at] = true;
        bool const isSet =
            oldOf[index] == kNone || old.spellings[oldOf[index]] != wanted.spellings[index];
        if (isSet && present.spellings[at] != wanted.spellings[index])
            found.emplace(present.lines[at], wanted.spellings[index]);
    };
    for (size_t i = 0; i < oldOf.size(); ++i)
        if (oldOf[i] != kNone && presentOf[oldOf[i]] != kNone)
            place(i, presentOf[oldOf[i]]);
    std::map<std::string_view, std::deque<uint32_t>> free;
    for (uint32_t at = 0; at < present.lines.size(); ++at)
        if (!isTaken[at])
            free[present.values[at]].push_back(at);
    for (size_t i = 0; i < oldOf.size(); ++i) {
        auto const same = free.find(wanted.values[i]);
        if (isPlaced[i] || same == free.end() || same->second.empty())
            continue;
        place(i, same->second.front());
        same->second.pop_front();
    }
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

// Changes the spellings of lines, except where a line would read otherwise.
class Respelling {
public:
    Respelling(std::string const& text, Outline const& outline) : text_(text), outline_(outline) {}

    /// Returns the text.
    std::string apply(Spellings const& wanted)
    {
        std::string changed = text_;
        add({wanted.begin(), wanted.end()}, changed);
        return changed;
    }

private:
    using List = std::vector<Spellings::value_type>;

    // Adds spellings to the accepted ones. A list that does not read back is split in halves.
    void add(List const& list, std::string& changed)
    {
        if (list.empty())
            return;
        Spellings all = accepted_;
        all.insert(list.begin(), list.end());
        std::string text = compose(all);
        if (readsAs(Outline(text, outline_.dialect()), outline_)) {
            accepted_ = std::move(all);
            changed = std::move(text);
        } else if (list.size() > 1) {
            auto const middle = list.begin() + static_cast<ptrdiff_t>(list.size() / 2);
            add({list.begin(), middle}, changed);
            add({middle, list.end()}, changed);
        }
    }

    std::string compose(Spellings const& spellings) const
    {
        std::string out;
        uint32_t done = 0;
        for (auto const& [line, spelling] : spellings) {
            out += slice(text_, done, outline_.lines()[line].valueBegin);
            out += spelling;
            done = outline_.lines()[line].valueEnd;
        }
        return out += std::string_view(text_).substr(done);
    }

    std::string const& text_;
    Outline const& outline_;
    Spellings accepted_;
};

}  // namespace

std::string withSpellings(std::string const& text, std::string_view before,
                          std::string_view spelled, Dialect const& dialect)
{
    Outline const old(before, dialect);
    Outline const wanted(spelled, dialect);
    Outline const present(text, dialect);
    ValueLines const oldLines = valueLinesOf(old);
    ValueLines const presentLines = valueLinesOf(present);
    std::vector<uint32_t> const none;
    Spellings found;
    for (auto const& [name, lines] : valueLinesOf(wanted)) {
        auto const here = presentLines.find(name);
        if (here == presentLines.end())
            continue;
        auto const known = oldLines.find(name);
        findSpellings(KeyText(old, known == oldLines.end() ? none : known->second),
                      KeyText(wanted, lines), KeyText(present, here->second), found);
    }
    return Respelling(text, present).apply(found);
}

}  // namespace zlines
