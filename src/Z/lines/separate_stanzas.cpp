#include "separate_stanzas.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "alignment.h"

namespace zlines {

namespace {

// A stanza without the number in its name.
struct Signature {
    std::string header;
    std::string all;                 // with the keys and values
    std::vector<std::string> lines;  // sorted
};

Signature signatureOf(std::string_view name, std::vector<std::string> lines)
{
    size_t const digits = name.find_last_not_of("0123456789");
    bool const isNumbered =
        digits != std::string_view::npos && digits + 1 < name.size() && name[digits] == ']';
    Signature signature{std::string(name.substr(0, isNumbered ? digits : name.size())), {}, {}};
    signature.all = signature.header;
    std::sort(lines.begin(), lines.end());
    for (std::string const& line : lines)
        (signature.all += '\0') += line;
    signature.lines = std::move(lines);
    return signature;
}

Signature read(Outline const& outline, ReadStanza const& stanza)
{
    std::vector<std::string> lines;
    std::string space;
    Section const& section = outline.sections()[stanza.firstSection];
    for (uint32_t line = section.first; line < section.end; ++line) {
        if (!outline.lines()[line].isKey())
            continue;
        std::string text(outline.keyName(line, space));
        if (outline.lines()[line].kind == valueLine)
            (text += '\0') += outline.value(line, space);
        lines.push_back(std::move(text));
    }
    return signatureOf(stanza.name, std::move(lines));
}

Signature wanted(Outline const& outline, Document const& document, Stanza const& stanza)
{
    std::vector<std::string> lines;
    std::string space;
    for (uint32_t i = 0; i < stanza.entryCount; ++i) {
        Entry const& entry = document.entries[stanza.firstEntry + i];
        if (entry.isComment)
            continue;
        std::string const key(outline.dialect().comparableKey(entry.text, space));
        if (entry.valueCount == 0)
            lines.push_back(key);
        for (uint32_t value = 0; value < entry.valueCount; ++value) {
            lines.push_back(key);
            (lines.back() += '\0') += document.values[entry.firstValue + value];
        }
    }
    std::string name(outline.dialect().comparableStanza(stanza.name, space));
    return signatureOf(name, std::move(lines));
}

std::vector<Signature> read(Outline const& outline)
{
    std::vector<Signature> signatures;
    for (size_t i = 1; i < outline.stanzas().size(); ++i)
        signatures.push_back(read(outline, outline.stanzas()[i]));
    return signatures;
}

// Returns the value of a match: the common lines, if the headers are equal.
uint32_t valueOf(Signature const& before, Signature const& after)
{
    if (before.header != after.header)
        return 0;
    std::vector<std::string_view> common;
    std::set_intersection(before.lines.begin(), before.lines.end(), after.lines.begin(),
                          after.lines.end(), std::back_inserter(common));
    return 1 + 2 * static_cast<uint32_t>(common.size());
}

using Range = std::pair<uint32_t, uint32_t>;  // first and end

// Matches changed stanzas with the most common lines, or the first with equal headers if there are
// many. The stanzas of `after` that match none keep kNone.
void matchChanged(std::vector<Signature> const& before, Range old,
                  std::vector<Signature> const& after, Range now, std::vector<uint32_t>& readOf)
{
    constexpr size_t kMaxCells = 10000;
    size_t const rows = old.second - old.first;
    size_t const columns = now.second - now.first;
    if (rows == 0 || columns == 0)
        return;
    if (rows * columns > kMaxCells) {
        for (uint32_t at = old.first, next = now.first; next < now.second; ++next) {
            uint32_t same = at;
            while (same < old.second && before[same].header != after[next].header)
                ++same;
            if (same == old.second)
                continue;
            readOf[next] = same;
            at = same + 1;
        }
        return;
    }
    std::vector<uint32_t> values(rows * columns);
    std::vector<uint32_t> best((rows + 1) * (columns + 1));  // from each pair to the end
    auto const bestAt = [&](size_t i, size_t j) -> uint32_t& {
        return best[i * (columns + 1) + j];
    };
    for (size_t i = rows; i-- > 0;)
        for (size_t j = columns; j-- > 0;) {
            uint32_t const value = valueOf(before[old.first + i], after[now.first + j]);
            values[i * columns + j] = value;
            bestAt(i, j) = std::max({bestAt(i + 1, j), bestAt(i, j + 1),
                                     value == 0 ? 0 : value + bestAt(i + 1, j + 1)});
        }
    for (size_t i = 0, j = 0; i < rows && j < columns;) {
        uint32_t const value = values[i * columns + j];
        if (value > 0 && bestAt(i, j) == value + bestAt(i + 1, j + 1)) {
            readOf[now.first + j] = old.first + static_cast<uint32_t>(i);
            ++i, ++j;
        } else if (bestAt(i, j) == bestAt(i, j + 1)) {
            ++j;
        } else {
            ++i;
        }
    }
}

// Returns the match of each stanza of `after`, by its number from 0 in each list.
std::vector<uint32_t> match(std::vector<Signature> const& before,
                            std::vector<Signature> const& after)
{
    auto const all = [](std::vector<Signature> const& signatures) {
        std::vector<std::string_view> texts;
        for (Signature const& signature : signatures)
            texts.push_back(signature.all);
        return texts;
    };
    Pairs pairs = align(all(before), all(after));
    pairs.push_back({static_cast<uint32_t>(before.size()), static_cast<uint32_t>(after.size())});

    std::vector<uint32_t> readOf(after.size(), kNone);
    uint32_t at = 0;
    uint32_t next = 0;
    for (auto const& [old, now] : pairs) {
        matchChanged(before, {at, old}, after, {next, now}, readOf);
        if (now < after.size())
            readOf[now] = old;
        at = old + 1;
        next = now + 1;
    }
    return readOf;
}

}  // namespace

std::vector<uint32_t> matchSeparateStanzas(Outline const& outline, Document const& document)
{
    std::vector<Signature> after;
    for (size_t i = 1; i < document.stanzas.size(); ++i)
        after.push_back(wanted(outline, document, document.stanzas[i]));
    std::vector<uint32_t> readOf{0};
    for (uint32_t const found : match(read(outline), after))
        readOf.push_back(found == kNone ? kNone : found + 1);
    return readOf;
}

std::vector<MatchedStanza> matchSeparateStanzas(Outline const& before, Outline const& after)
{
    std::vector<Signature> signatures = read(after);
    std::vector<uint32_t> const found = match(read(before), signatures);
    std::vector<MatchedStanza> matched{{0, {}}};
    for (size_t i = 0; i < found.size(); ++i)
        matched.push_back({found[i] == kNone ? kNone : found[i] + 1, std::move(signatures[i].all)});
    return matched;
}

}  // namespace zlines
