#include "separate_stanzas.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "alignment.h"

namespace zlines {

std::string_view withoutNumber(std::string_view name)
{
    size_t const digits = name.find_last_not_of("0123456789");
    bool const isNumbered =
        digits != std::string_view::npos && digits + 1 < name.size() && name[digits] == ']';
    return name.substr(0, isNumbered ? digits : name.size());
}

namespace {

// A stanza without the number in its name.
class Signature {
public:
    Signature(std::string_view name, std::vector<std::string> keys, std::vector<std::string> below,
              std::string commentAbove)
        : lines(std::move(keys)), comments(std::move(below)), above(std::move(commentAbove))
    {
        header = withoutNumber(name);
        std::sort(lines.begin(), lines.end());
        std::sort(comments.begin(), comments.end());
        text_ = header;
        for (std::string const& line : lines)
            (text_ += '\0') += line;
        contentsSize_ = text_.size();
        for (std::string const& comment : comments)
            (text_ += '\n') += comment;
        (text_ += '\n') += above;
    }

    std::string_view contents() const { return std::string_view(text_).substr(0, contentsSize_); }
    std::string_view contentsAndComments() const { return text_; }

    std::string header;
    std::vector<std::string> lines;     // of keys and values, sorted
    std::vector<std::string> comments;  // of the stanza, but not above the next header; sorted
    std::string above;                  // the comment right above the header

private:
    std::string text_;
    size_t contentsSize_;
};

Signature read(Outline const& outline, ReadStanza const& stanza)
{
    std::vector<std::string> lines;
    std::vector<std::string> comments;
    std::string comment;
    std::string space;
    Section const& section = outline.sections()[stanza.firstSection];
    Section const& previous = outline.sections()[stanza.firstSection - 1];
    for (uint32_t line = outline.firstCommentAbove(previous.first, section.header);
         line < section.header; ++line)
        (comment += '\n') += outline.comment(line);
    bool const isLast = section.end == outline.lines().size();
    uint32_t const nextComment =
        isLast ? section.end : outline.firstCommentAbove(section.first, section.end);
    for (uint32_t line = section.first; line < section.end; ++line) {
        if (outline.lines()[line].kind == commentLine && line < nextComment)
            comments.emplace_back(outline.comment(line));
        if (!outline.lines()[line].isKey())
            continue;
        std::string text(outline.keyName(line, space));
        if (outline.lines()[line].kind == valueLine)
            (text += '\0') += outline.value(line, space);
        lines.push_back(std::move(text));
    }
    return Signature(stanza.name, std::move(lines), std::move(comments), std::move(comment));
}

// Returns the first entry of the comment right above the header after a wanted stanza; the end of
// the stanza if it has none.
uint32_t firstAboveNext(Document const& document, size_t stanza)
{
    Stanza const& above = document.stanzas[stanza];
    uint32_t const end = above.firstEntry + above.entryCount;
    uint32_t first = end;
    if (stanza + 1 == document.stanzas.size() || document.stanzas[stanza + 1].isParted())
        return first;
    while (first > above.firstEntry && document.entries[first - 1].isComment &&
           (first == end || !document.entries[first].isParted()))
        --first;
    return first;
}

// Returns the comment right above the header of a wanted stanza: the last of the stanza before.
std::string commentAbove(Outline const& outline, Document const& document, size_t stanza)
{
    Stanza const& previous = document.stanzas[stanza - 1];
    std::string comment;
    for (uint32_t i = firstAboveNext(document, stanza - 1);
         i < previous.firstEntry + previous.entryCount; ++i)
        (comment += '\n') += outline.dialect().commentText(document.entries[i].text);
    return comment;
}

Signature wanted(Outline const& outline, Document const& document, size_t index)
{
    Stanza const& stanza = document.stanzas[index];
    std::vector<std::string> lines;
    std::vector<std::string> comments;
    std::string space;
    uint32_t const nextComment = firstAboveNext(document, index);
    for (uint32_t i = stanza.firstEntry; i < nextComment; ++i) {
        Entry const& entry = document.entries[i];
        if (entry.isComment) {
            comments.emplace_back(outline.dialect().commentText(entry.text));
            continue;
        }
        std::string const key(outline.dialect().comparableKey(entry.text, space));
        if (entry.valueCount == 0)
            lines.push_back(key);
        for (uint32_t value = 0; value < entry.valueCount; ++value) {
            lines.push_back(key);
            (lines.back() += '\0') += document.values[entry.firstValue + value];
        }
    }
    std::string const name(outline.dialect().comparableStanza(stanza.name, space));
    return Signature(name, std::move(lines), std::move(comments),
                     commentAbove(outline, document, index));
}

std::vector<Signature> read(Outline const& outline)
{
    std::vector<Signature> signatures;
    for (size_t i = 1; i < outline.stanzas().size(); ++i)
        signatures.push_back(read(outline, outline.stanzas()[i]));
    return signatures;
}

uint32_t countCommon(std::vector<std::string> const& a, std::vector<std::string> const& b)
{
    std::vector<std::string_view> common;
    std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(common));
    return static_cast<uint32_t>(common.size());
}

// Returns the value of a match: the common lines. A comment counts less than a key, and a header or
// the comment above it less still: that comment remains if its stanza is removed. Of matches with
// equal numbers of common lines, a match of equal keys and values has the highest value.
uint32_t valueOf(Signature const& before, Signature const& after)
{
    uint32_t const common = 8 * countCommon(before.lines, after.lines) +
                            4 * countCommon(before.comments, after.comments);
    if (before.header != after.header)
        return common;  // the stanza may have another name
    // A comment of the text starts after a line that is passed over; the wanted contents lack it.
    bool const hasSameAbove = !before.above.empty() && after.above.ends_with(before.above);
    return 2 + common + (hasSameAbove ? 2 : 0) + (before.contents() == after.contents() ? 1 : 0);
}

using Range = std::pair<uint32_t, uint32_t>;  // first and end

// Matches stanzas with equal headers, in order.
void matchHeaders(std::vector<Signature> const& before, Range old,
                  std::vector<Signature> const& after, Range now, std::vector<uint32_t>& readOf)
{
    for (uint32_t at = old.first, next = now.first; next < now.second; ++next) {
        uint32_t same = at;
        while (same < old.second && before[same].header != after[next].header)
            ++same;
        if (same == old.second)
            continue;
        readOf[next] = same;
        at = same + 1;
    }
}

// Matches changed stanzas with the most common lines. The stanzas of `after` that match none, or a
// stanza with another header, keep kNone.
void matchChanged(std::vector<Signature> const& before, Range old,
                  std::vector<Signature> const& after, Range now, std::vector<uint32_t>& readOf)
{
    size_t const rows = old.second - old.first;
    size_t const columns = now.second - now.first;
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
            if (before[old.first + i].header == after[now.first + j].header)
                readOf[now.first + j] = old.first + static_cast<uint32_t>(i);
            ++i, ++j;
        } else if (bestAt(i, j) == bestAt(i, j + 1)) {
            ++j;
        } else {
            ++i;
        }
    }
}

// Calls `call(old, now)` for the ranges between signatures with equal results of `text`, which
// match.
template <class Text, class Call>
void matchEqual(std::vector<Signature> const& before, Range old,
                std::vector<Signature> const& after, Range now, Text text,
                std::vector<uint32_t>& readOf, Call call)
{
    auto const textsOf = [&](std::vector<Signature> const& signatures, Range range) {
        std::vector<std::string_view> texts;
        for (uint32_t i = range.first; i < range.second; ++i)
            texts.push_back((signatures[i].*text)());
        return texts;
    };
    Pairs pairs = align(textsOf(before, old), textsOf(after, now));
    pairs.push_back({old.second - old.first, now.second - now.first});
    uint32_t at = old.first;
    uint32_t next = now.first;
    for (auto const& [oldIndex, nowIndex] : pairs) {
        uint32_t const oldEnd = old.first + oldIndex;
        uint32_t const nowEnd = now.first + nowIndex;
        if (at < oldEnd && next < nowEnd)
            call(Range{at, oldEnd}, Range{next, nowEnd});
        if (nowEnd < now.second)
            readOf[nowEnd] = oldEnd;
        at = oldEnd + 1;
        next = nowEnd + 1;
    }
}

// Matches the equal stanzas at both ends of the lists, and returns the ranges between them.
std::pair<Range, Range> matchEnds(std::vector<Signature> const& before,
                                  std::vector<Signature> const& after,
                                  std::vector<uint32_t>& readOf)
{
    Range old{0, static_cast<uint32_t>(before.size())};
    Range now{0, static_cast<uint32_t>(after.size())};
    auto const isEqual = [&](uint32_t a, uint32_t b) {
        return before[a].contentsAndComments() == after[b].contentsAndComments();
    };
    auto const isRest = [&] { return old.first < old.second && now.first < now.second; };
    for (; isRest() && isEqual(old.first, now.first); ++old.first, ++now.first)
        readOf[now.first] = old.first;
    for (; isRest() && isEqual(old.second - 1, now.second - 1); --old.second, --now.second)
        readOf[now.second - 1] = old.second - 1;
    return {old, now};
}

// Returns the match of each stanza of `after`, by its number from 0 in each list.
std::vector<uint32_t> match(std::vector<Signature> const& before,
                            std::vector<Signature> const& after)
{
    std::vector<uint32_t> readOf(after.size(), kNone);
    auto const isFew = [](Range old, Range now) {
        constexpr size_t kMaxCells = 10000;
        return size_t{old.second - old.first} * (now.second - now.first) <= kMaxCells;
    };
    auto const matchRest = [&](Range old, Range now) {
        (isFew(old, now) ? matchChanged : matchHeaders)(before, old, after, now, readOf);
    };
    auto const matchBetween = [&](Range old, Range now) {
        if (isFew(old, now))
            matchChanged(before, old, after, now, readOf);
        else
            matchEqual(before, old, after, now, &Signature::contents, readOf, matchRest);
    };
    auto const [old, now] = matchEnds(before, after, readOf);
    if (isFew(old, now))
        matchChanged(before, old, after, now, readOf);
    else
        matchEqual(before, old, after, now, &Signature::contentsAndComments, readOf, matchBetween);
    return readOf;
}

}  // namespace

std::vector<uint32_t> matchSeparateStanzas(Outline const& outline, Document const& document)
{
    std::vector<Signature> after;
    for (size_t i = 1; i < document.stanzas.size(); ++i)
        after.push_back(wanted(outline, document, i));
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
        matched.push_back(
            {found[i] == kNone ? kNone : found[i] + 1, std::string(signatures[i].contents())});
    return matched;
}

}  // namespace zlines
