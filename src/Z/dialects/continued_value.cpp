#include "continued_value.h"

#include <algorithm>
#include <numeric>
#include <set>
#include <unordered_map>

#include "../lines/alignment.h"
#include "../lines/name_hash.h"
#include "escaped_values.h"
#include "escapes.h"
#include "plain_values.h"
#include "values.h"

namespace zdialects {

namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

std::string_view blanksAt(std::string_view text, size_t at)
{
    size_t const end = std::min(text.find_first_not_of(" \t", at), text.size());
    return text.substr(at, end - at);
}

// Splits text in words, runs of spaces, and newlines.
std::vector<std::string_view> tokensOf(std::string_view text)
{
    std::vector<std::string_view> tokens;
    for (size_t at = 0; at < text.size();) {
        size_t end = at + 1;
        if (text[at] != '\n')
            while (end < text.size() && text[end] != '\n' &&
                   isBlank(text[end]) == isBlank(text[at]))
                ++end;
        tokens.push_back(text.substr(at, end - at));
        at = end;
    }
    return tokens;
}

}  // namespace

ContinuedValue::ContinuedValue(LineJoining const& joining, std::string_view text,
                               zlines::Line const& line, std::string_view before)
    : joining_(joining),
      switches_(joining.switches()),
      characters_(joining.characters()),
      before_(before)
{
    bool const joinsLines = (switches_.join & kLineJoins) != 0;
    if (switches_.quoting == Quoting::ends || joinsLines != (switches_.quoting == Quoting::none))
        return;
    split(zlines::slice(text, line.valueBegin, line.valueEnd));
    std::string meaning;
    for (Part& part : parts_) {
        starts_.push_back(meaning.size());
        part.meaning = meaningOf(part, meaning);
        meaning += part.meaning;
    }
    starts_.push_back(meaning.size());
    if (meaning != before || parts_.back().quoteAfter != 0)
        parts_.clear();
}

void ContinuedValue::split(std::string_view spelled)
{
    for (size_t at = 0; at < spelled.size();) {
        PhysicalLine const line = physicalLineAt(spelled, at);
        at = line.next;
        std::string_view const chars = spelled.substr(line.begin, line.end - line.begin);
        if (!parts_.empty() && switches_.joinSkipsComments && joining_.isComment(chars)) {
            parts_.back().comments += spelled.substr(line.begin, line.next - line.begin);
            continue;
        }
        Part part{chars};
        if (!parts_.empty())
            part.quoteBefore = part.quoteAfter = parts_.back().quoteAfter;
        bool const isContinued = continues(part, parts_.empty());
        part.mark = spelled.substr(line.begin + part.chars.size(),
                                   line.next - line.begin - part.chars.size());
        if (at < spelled.size() && !isContinued)
            part.join = "\n";
        else if (at < spelled.size() && (switches_.join & joinAsBlank))
            part.join = " ";
        parts_.push_back(part);
    }
}

// Returns whether a backslash continues the line of a part. Leaves out the bytes after its
// characters. Finds the quote that is open at its end.
bool ContinuedValue::continues(Part& part, bool isFirst) const
{
    if (switches_.quoting == Quoting::none) {
        size_t const size = joining_.sizeIfContinued(part.chars);
        part.chars = part.chars.substr(0, size);
        return size != part.chars.npos;
    }
    bool const isWhole = switches_.quoting == Quoting::whole;
    char& quote = part.quoteAfter;
    for (size_t at = 0; at < part.chars.size();) {
        char const c = part.chars[at];
        if (c == '\\' && !(isWhole && quote == '\'')) {
            if (at + 1 == part.chars.size() && (switches_.join & joinInsideValue)) {
                part.chars.remove_suffix(1);
                return true;
            }
            at = isWhole ? at + 2 : readEscape(switches_.escapes, part.chars, at).end;
            continue;
        }
        if (quote != 0 && (!isWhole || c == quote) && characters_.isQuote(c))
            quote = 0;
        else if (quote == 0 && (!isWhole || (isFirst && at == 0)) && characters_.isQuote(c))
            quote = c;
        ++at;
    }
    return false;
}

// Returns the meaning of a part, whose reading depends on the meaning of the parts before it.
std::string ContinuedValue::meaningOf(Part const& part, std::string_view before) const
{
    std::string sample;
    if (part.quoteBefore != 0)
        sample += part.quoteBefore;
    size_t const hasBefore = before.empty() ? 0 : 1;
    if (hasBefore != 0)
        sample +=
            switches_.quoting == Quoting::none && isBlank(before.back()) ? before.back() : 'x';
    sample += part.chars;
    if (part.quoteAfter != 0 && switches_.quoting == Quoting::whole)
        sample += part.quoteAfter;
    std::string space;
    std::string_view const read = ValueDecoder(joining_).decode(sample, 0, 0, sample.size(), space);
    std::string meaning(read.substr(std::min(hasBefore, read.size())));
    return meaning += part.join;
}

std::optional<std::string> ContinuedValue::replaced(std::string_view value, Comparison comparison,
                                                    std::string& comments) const
{
    comments.clear();
    if (parts_.size() < 2 || value.empty() ||
        (switches_.quoting == Quoting::none && !isPlainSafe(switches_, value, {})))
        return {};
    std::vector<Segment> const segments = segmentsOf(value, comparison);
    if (segments.size() < 2)
        return {};
    std::string out;
    char quote = 0;
    for (Segment const& segment : segments) {
        bool const isGone = isDropped(segment);
        for (size_t part = segment.first; part < segment.end; ++part)
            if (isGone || segment.isLast || part + 1 < segment.end)
                comments += parts_[part].comments;
        if (isGone)
            continue;
        if (isKept(segment) && (segment.first == 0 || !out.empty()))
            out += parts_[segment.first].chars;
        else if (!appendChanged(value, segment, quote, out))
            return {};
        quote = quoteAfter(segment);
        out += segment.isLast ? parts_.back().mark : partAbove(segment).mark;
        if (!segment.isLast && segment.end > segment.first)
            out += parts_[segment.end - 1].comments;
    }
    return out;
}

// Returns the line breaks of the old value that are in the new one, and new ones at spaces of the
// new value that are like the spaces around old breaks.
std::vector<ContinuedValue::Break> ContinuedValue::breaksOf(std::string_view value,
                                                            Comparison comparison) const
{
    size_t first = 0;
    while (first + 1 < parts_.size() &&
           value.substr(starts_[first]).starts_with(parts_[first].meaning))
        ++first;
    std::string_view middle = value.substr(starts_[first]);
    size_t end = parts_.size();
    while (end > first && middle.ends_with(parts_[end - 1].meaning))
        middle.remove_suffix(parts_[--end].meaning.size());
    std::vector<Break> breaks;
    for (size_t part = 1; part <= first; ++part)
        breaks.push_back({starts_[part], part});
    Break const last{starts_[first] + middle.size(), end};
    if (!middle.empty()) {
        BreakRuns const runs = breakRuns();
        Break above{starts_[first], first};
        if (comparison == byLines) {
            for (Break const& found : findParts(above, last, value)) {
                std::string_view const between = value.substr(above.at, found.at - above.at);
                if (!between.empty() && between.find_first_not_of(" \t") == between.npos)
                    continue;  // no line has only spaces
                alignBreaks(above, found, value, runs, breaks);
                breaks.push_back(found);
                above = {found.at + parts_[found.part].meaning.size(), found.part + 1};
                breaks.push_back(above);
            }
        }
        alignBreaks(above, last, value, runs, breaks);
    }
    for (size_t part = std::max<size_t>(end, 1); part < parts_.size(); ++part)
        breaks.push_back({last.at + starts_[part] - starts_[end], part});
    return breaks;
}

// Returns where bytes with the meanings of the old parts between two breaks are in the new value.
// Returns nothing if that takes too long.
std::map<std::string_view, std::vector<size_t>> ContinuedValue::placesOfParts(
    Break first, Break end, std::string_view value) const
{
    constexpr size_t kMaxBytes = size_t{1} << 28;  // that are compared
    std::unordered_map<std::string_view, std::vector<size_t>, zlines::NameHash> places;
    std::set<size_t> sizes;
    bool isFirstByte[256] = {};
    for (size_t part = first.part; part < end.part; ++part) {
        std::string_view const meaning = parts_[part].meaning;
        if (meaning.find_first_not_of(" \t\n") == meaning.npos)
            continue;
        places.try_emplace(meaning);
        sizes.insert(meaning.size());
        isFirstByte[static_cast<unsigned char>(meaning.front())] = true;
    }
    if (std::accumulate(sizes.begin(), sizes.end(), size_t{0}) > kMaxBytes / (end.at - first.at))
        return {};
    for (size_t at = first.at; at < end.at; ++at) {
        if (!isFirstByte[static_cast<unsigned char>(value[at])])
            continue;
        for (size_t const size : sizes) {
            if (size > end.at - at)
                break;
            auto const found = places.find(value.substr(at, size));
            if (found != places.end())
                found->second.push_back(at);
        }
    }
    return {places.begin(), places.end()};
}

// The longest sequence of present parts that do not overlap in the new value. Parts are added in
// their order, and each at descending positions.
class ContinuedValue::LongestSequence {
public:
    /// Adds a part that takes `size` bytes of the value.
    void add(Break part, size_t size)
    {
        auto const next =
            std::upper_bound(ends_.begin(), ends_.end(), part.at,
                             [](size_t position, End const& last) { return position < last.at; });
        End const last{part.at + size, all_.size()};
        size_t const above = next == ends_.begin() ? kNone : std::prev(next)->index;
        if (next == ends_.end())
            ends_.push_back(last);
        else if (last.at < next->at)
            *next = last;
        else
            return;
        all_.push_back({part, above});
    }

    std::vector<Break> parts() const
    {
        std::vector<Break> found;
        for (size_t at = ends_.empty() ? kNone : ends_.back().index; at != kNone;
             at = all_[at].above)
            found.push_back(all_[at].part);
        std::reverse(found.begin(), found.end());
        return found;
    }

private:
    static constexpr size_t kNone = SIZE_MAX;

    struct Entry {
        Break part;
        size_t above;  // the index of the part above, in `all_`
    };
    struct End {
        size_t at;     // in the value
        size_t index;  // of the last part, in `all_`
    };

    std::vector<Entry> all_;
    std::vector<End> ends_;  // the first ends of sequences of 1, 2, 3, … parts
};

// Returns the positions at which the new value contains old lines between two breaks: the longest
// sequence that keeps the order of the lines. Returns nothing if that takes too long.
std::vector<ContinuedValue::Break> ContinuedValue::findParts(Break first, Break end,
                                                             std::string_view value) const
{
    constexpr size_t kMaxPlaces = size_t{1} << 22;
    // The first line has the key, and the last one has no mark.
    first.part = std::max<size_t>(first.part, 1);
    end.part = std::min(end.part, parts_.size() - 1);
    auto const places = placesOfParts(first, end, value);
    LongestSequence sequence;
    size_t count = 0;
    for (size_t part = first.part; part < end.part; ++part) {
        size_t const size = parts_[part].meaning.size();
        auto const known = places.find(parts_[part].meaning);
        if (known == places.end())
            continue;
        count += known->second.size();
        if (count > kMaxPlaces)
            return {};
        for (auto at = known->second.rbegin(); at != known->second.rend(); ++at)
            if (isLineStart(value, *at, part) && isLineStart(value, *at + size, part + 1))
                sequence.add({*at, part}, size);
    }
    return sequence.parts();
}

// Returns whether an old line can start at a position of the new value: between bytes of the same
// kinds as in the old value, or not inside a word.
bool ContinuedValue::isLineStart(std::string_view value, size_t at, size_t part) const
{
    if (at == 0 || at == value.size())
        return true;
    size_t const old = starts_[part];
    auto const isWordByte = [](char c) {
        return static_cast<unsigned char>(c) >= 0x80 || c == '_' || (c >= '0' && c <= '9') ||
               (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    };
    auto const isInWord = [&](std::string_view text, size_t position) {
        return isWordByte(text[position - 1]) && isWordByte(text[position]);
    };
    return value.substr(0, at).ends_with(parts_[part - 1].join) &&
           isBlank(value[at - 1]) == (old > 0 && isBlank(before_[old - 1])) &&
           (!isInWord(value, at) || (old > 0 && old < before_.size() && isInWord(before_, old)));
}

// Returns the runs of spaces that have a line break wherever they occur.
ContinuedValue::BreakRuns ContinuedValue::breakRuns() const
{
    BreakRuns runs;
    size_t part = 1;
    std::vector<std::string_view> const tokens = tokensOf(before_);
    for (std::string_view const token : tokens) {
        auto const at = static_cast<size_t>(token.data() - before_.data());
        while (part < parts_.size() && starts_[part] < at)
            ++part;
        bool const isBroken = part < parts_.size() && starts_[part] <= at + token.size() &&
                              parts_[part - 1].join != "\n";
        if (isBlank(token.front()) && token.size() > 1 && isBroken)
            runs.emplace(token, starts_[part] - at);
    }
    part = 1;
    for (std::string_view const token : tokens) {
        auto const at = static_cast<size_t>(token.data() - before_.data());
        while (part < parts_.size() && starts_[part] < at)
            ++part;
        if (part == parts_.size() || starts_[part] > at + token.size())
            runs.erase(token);
    }
    return runs;
}

// Finds the breaks between two others.
void ContinuedValue::alignBreaks(Break first, Break end, std::string_view value,
                                 BreakRuns const& runs, std::vector<Break>& breaks) const
{
    size_t const oldBegin = starts_[first.part];
    auto const from = tokensOf(before_.substr(oldBegin, starts_[end.part] - oldBegin));
    auto const to = tokensOf(value.substr(first.at, end.at - first.at));
    auto const pairs = zlines::align(from, to);

    constexpr size_t kNone = SIZE_MAX;
    std::vector<size_t> tokenOf(from.size(), kNone);
    std::vector<bool> isNew(to.size(), true);
    for (auto const& [old, now] : pairs) {
        tokenOf[old] = now;
        isNew[now] = false;
    }
    auto const positionOf = [](std::string_view token, std::string_view all) {
        return static_cast<size_t>(token.data() - all.data());
    };
    std::vector<Break> carried;
    size_t token = 0;
    for (size_t part = first.part + 1; part < end.part; ++part) {
        // The token that ends at the break or has it inside.
        while (token < from.size() &&
               positionOf(from[token], before_) + from[token].size() < starts_[part])
            ++token;
        if (token == from.size())
            break;
        size_t const inside = starts_[part] - positionOf(from[token], before_);
        if (tokenOf[token] != kNone)
            carried.push_back({positionOf(to[tokenOf[token]], value) + inside, part});
        else if (inside == from[token].size() && token + 1 < from.size() &&
                 tokenOf[token + 1] != kNone)
            carried.push_back({positionOf(to[tokenOf[token + 1]], value), part});
    }
    size_t next = 0;
    size_t part = first.part;
    auto const takeCarried = [&](size_t limit) {
        for (; next < carried.size() && carried[next].at <= limit; ++next) {
            breaks.push_back(carried[next]);
            part = carried[next].part;
        }
    };
    for (size_t i = 0; i < to.size(); ++i) {
        auto const run = isNew[i] ? runs.find(to[i]) : runs.end();
        if (run == runs.end())
            continue;
        size_t const at = positionOf(to[i], value) + run->second;
        takeCarried(at);
        size_t const limit =
            next < carried.size() ? carried[next].part : std::max<size_t>(end.part, 1);
        part = std::min(part + 1, limit);
        breaks.push_back({at, part});
    }
    takeCarried(kNone);
}

std::vector<ContinuedValue::Segment> ContinuedValue::segmentsOf(std::string_view value,
                                                                Comparison comparison) const
{
    std::vector<Break> const breaks = breaksOf(value, comparison);
    std::vector<Segment> segments;
    Segment next{0, {}, 0, 0, false};
    for (size_t i = 0; i <= breaks.size(); ++i) {
        next.isLast = i == breaks.size();
        next.end = next.isLast ? parts_.size() : breaks[i].part;
        size_t const at = next.isLast ? value.size() : breaks[i].at;
        next.meaning = value.substr(next.at, at - next.at);
        // A line break has a meaning, which must be in the value.
        if (!next.isLast && !isDropped(next) && !next.meaning.ends_with(partAbove(next).join))
            continue;
        segments.push_back(next);
        next.first = next.end;
        next.at = at;
    }
    // The last line cannot be empty.
    while (segments.size() > 1 && segments.back().meaning.empty() && !isKept(segments.back())) {
        segments.pop_back();
        Segment& last = segments.back();
        last.end = parts_.size();
        last.isLast = true;
    }
    return segments;
}

// Returns whether there is nothing in the place of the old parts.
bool ContinuedValue::isDropped(Segment const& segment) const
{
    char const before = segment.first == 0 ? '\0' : parts_[segment.first - 1].quoteAfter;
    return segment.meaning.empty() && !segment.isLast && !isKept(segment) &&
           before == quoteAfter(segment);
}

bool ContinuedValue::isKept(Segment const& segment) const
{
    return segment.end == segment.first + 1 && segment.isLast == (segment.end == parts_.size()) &&
           segment.meaning == parts_[segment.first].meaning;
}

// Returns the old part whose mark continues the line of a segment that is not the last.
ContinuedValue::Part const& ContinuedValue::partAbove(Segment const& segment) const
{
    return parts_[std::min(segment.end, parts_.size() - 1) - 1];
}

char ContinuedValue::quoteAfter(Segment const& segment) const
{
    return segment.isLast ? parts_.back().quoteAfter : partAbove(segment).quoteAfter;
}

bool ContinuedValue::appendChanged(std::string_view value, Segment const& segment, char quote,
                                   std::string& out) const
{
    std::string_view meaning = segment.meaning;
    if (!segment.isLast)
        meaning.remove_suffix(partAbove(segment).join.size());
    char const end = quoteAfter(segment);
    bool const isFirst = segment.at == 0;
    // Spaces at the start of the line have no meaning then.
    bool const dropsBlanks =
        quote == 0 &&
        (isFirst || (switches_.blankRuns == BlankRuns::first && isBlank(value[segment.at - 1])));
    std::string_view const indent = blanksAt(meaning, 0);
    Part const& old = parts_[std::min(segment.first, parts_.size() - 1)];
    std::string_view const oldIndent = blanksAt(old.chars, 0);
    bool const isSame = blanksAt(old.meaning, 0) == indent &&
                        (indent == oldIndent || dropsBlanks ||
                         (switches_.quoting == Quoting::none && indent != ""));
    bool const hasTabs = (switches_.notPlain & notPlainTabs) && indent.find('\t') != indent.npos;
    if (!out.empty() && (isSame || (quote == 0 && !isFirst && !hasTabs))) {
        meaning.remove_prefix(indent.size());
        out += isSame ? oldIndent : indent;
    }
    // Spaces after a closing quote are read.
    std::string_view blanksAtEnd;
    if (switches_.quoting == Quoting::anywhere && end == 0 && !segment.isLast) {
        blanksAtEnd = meaning.substr(characters_.withoutBlanksAtEnd(meaning, 0));
        meaning.remove_suffix(blanksAtEnd.size());
    }

    std::string spelled;
    char const open = quote != 0 ? quote : end;
    bool isQuoted = open != 0;
    if (open == '\'' && switches_.quoting == Quoting::whole) {
        if (meaning.find('\'') != meaning.npos)
            return false;
        spelled = meaning;
    } else if (switches_.quoting == Quoting::whole && !isQuoted) {
        spelled = meaning;
        if (!isPlainSafe(switches_, meaning, {}))
            return false;
    } else {
        if (switches_.quoting == Quoting::whole && !isQuotedSafe(switches_, value))
            return false;
        appendEscaped(switches_, meaning, true, spelled);
        auto const isMark = [this](char c) { return characters_.isTrailingMark(c); };
        isQuoted = isQuoted || (switches_.quoting != Quoting::none &&
                                (!isPlainSafe(switches_, spelled, before_) ||
                                 std::any_of(spelled.begin(), spelled.end(), isMark) ||
                                 (isFirst && !blanksAt(meaning, 0).empty()) ||
                                 (segment.isLast && !meaning.empty() && isBlank(meaning.back()))));
    }
    char const mark = open != 0 ? open : '"';
    if (quote == 0 && isQuoted)
        out += mark;
    std::string_view const lineEnding = partAbove(segment).mark.ends_with("\r\n") ? "\r\n" : "\n";
    for (char const c : spelled) {
        if (c == '\n')
            out += lineEnding;
        else
            out += c;
    }
    if (end == 0 && isQuoted)
        out += mark;
    out += blanksAtEnd;
    return true;
}

}  // namespace zdialects
