#include "outline.h"

#include <algorithm>

namespace zlines {

namespace {

// std::count() compares byte by byte.
size_t countFeeds(std::string_view text)
{
    size_t count = 0;
    for (size_t at = 0; (at = text.find('\n', at)) != text.npos; ++at)
        ++count;
    return count;
}

}  // namespace

Outline::Outline(std::string_view text, Dialect const& dialect,
                 std::vector<uint32_t> const& movedComments)
    : text_(text), dialect_(dialect)
{
    lines_.reserve(countFeeds(text) + 1);
    isValid_ = dialect.split(text, lines_);
    for (uint32_t const position : movedComments) {
        auto const found =
            std::lower_bound(lines_.begin(), lines_.end(), position,
                             [](Line const& line, uint32_t begin) { return line.begin < begin; });
        if (found != lines_.end() && found->begin == position && found->kind == commentLine)
            found->kind = otherLine;
    }
    sections_.push_back({kNone, 0, static_cast<uint32_t>(lines_.size()), kNone});
    stanzas_.push_back({dialect.topStanza(), 0, 0});
    for (uint32_t line = 0; line < lines_.size(); ++line)
        if (lines_[line].kind == headerLine)
            addHeader(line);
}

void Outline::addHeader(uint32_t line)
{
    sections_.back().end = line;
    auto const section = static_cast<uint32_t>(sections_.size());
    sections_.push_back({line, line + 1, static_cast<uint32_t>(lines_.size()), kNone});
    std::string_view const name = nameOf(line);
    uint32_t const known = find(name, stanzas_.size());
    if (known == kNone) {
        stanzas_.push_back({name, section, section});
        return;
    }
    if (dialect_.refusesRepeatedHeaders())
        repeatedHeader_ = line;
    sections_[stanzas_[known].lastSection].next = section;
    stanzas_[known].lastSection = section;
}

// Returns the name of the stanza of a header.
std::string_view Outline::nameOf(uint32_t header)
{
    std::string space;
    std::string_view const name = keep(dialect_.stanzaName(text_, lines_[header], space), space);
    if (dialect_.joinsHeaders())
        return name;
    uint32_t const count = ++headers_[name];
    return count == 1 ? name : owned_.emplace_back(std::string(name) + ']' + std::to_string(count));
}

uint32_t Outline::find(std::string_view name, size_t guess)
{
    if (guess > 0 && guess < stanzas_.size() && stanzas_[guess].name == name)
        return static_cast<uint32_t>(guess);
    // The first stanza has a name only if keys above the first header have a stanza.
    for (indexed_ = std::max<size_t>(indexed_, dialect_.topStanza().empty() ? 1 : 0);
         indexed_ < stanzas_.size(); ++indexed_)
        index_.emplace(stanzas_[indexed_].name, static_cast<uint32_t>(indexed_));
    auto const found = index_.find(name);
    return found == index_.end() ? kNone : found->second;
}

uint32_t Outline::sectionIndexOf(uint32_t line) const
{
    auto const next = std::upper_bound(
        sections_.begin() + 1, sections_.end() - static_cast<ptrdiff_t>(appended_), line,
        [](uint32_t at, Section const& section) { return at < section.header; });
    return static_cast<uint32_t>(next - sections_.begin()) - 1;
}

std::vector<uint32_t> const& Outline::keyLines() const
{
    if (keyLines_.empty())
        for (uint32_t line = 0; line < lines_.size(); ++line)
            if (lines_[line].isKey())
                keyLines_.push_back(line);
    if (keyLines_.empty())
        keyLines_.push_back(kNone);  // an end mark: the lines are searched once
    return keyLines_;
}

// Returns the first line that starts at a position or after it.
uint32_t Outline::lineAt(uint32_t position) const
{
    auto const found =
        std::lower_bound(lines_.begin(), lines_.end(), position,
                         [](Line const& line, uint32_t begin) { return line.begin < begin; });
    return static_cast<uint32_t>(found - lines_.begin());
}

// Adds the comments above headers that are not in `comments`, and whose stanza is not the stanza of
// the lines above.
void Outline::findHeaderComments(std::vector<uint32_t> const& previous,
                                 std::vector<uint32_t> const& stanzaOf,
                                 std::vector<HeaderComment>& comments) const
{
    auto const isBefore = [](HeaderComment const& comment, uint32_t end) {
        return comment.end < end;
    };
    std::vector<HeaderComment> added;
    for (uint32_t i = 1; i < sectionCount(); ++i) {
        bool const isRepeated = previous[i] != kNone;
        ReadStanza const& owner = stanzas_[isRepeated ? stanzaOf[i] : stanzaOf[i] - 1];
        if ((isRepeated ? previous[i] : owner.lastSection) == i - 1)
            continue;
        uint32_t const header = sections_[i].header;
        uint32_t const end = lines_[header].begin;
        auto const known = std::lower_bound(comments.begin(), comments.end(), end, isBefore);
        if (known != comments.end() && known->end == end)
            continue;
        // The comment of a header that was removed can be right above it.
        uint32_t const above = known == comments.begin() ? 0 : lineAt(known[-1].end);
        uint32_t const first = firstCommentAbove(std::max(sections_[i - 1].first, above), header);
        added.push_back({lines_[first].begin, end, std::string(owner.name), isRepeated});
    }
    comments.insert(comments.end(), added.begin(), added.end());
    std::sort(comments.begin(), comments.end(),
              [](HeaderComment const& a, HeaderComment const& b) { return a.end < b.end; });
}

std::vector<uint32_t> Outline::stanzasOfSections() const
{
    std::vector<uint32_t> stanzaOf(sections_.size(), 0);
    for (uint32_t stanza = 0; stanza < stanzas_.size(); ++stanza)
        for (uint32_t i = stanzas_[stanza].firstSection; i != kNone; i = sections_[i].next)
            stanzaOf[i] = stanza;
    return stanzaOf;
}

void Outline::moveHeaderComments(std::vector<HeaderComment>& comments)
{
    if (sections_.size() == stanzas_.size() && comments.empty())
        return;                                               // no header is repeated
    std::vector<uint32_t> previous(sections_.size(), kNone);  // section of the same stanza
    for (uint32_t i = 0; i < sections_.size(); ++i)
        if (sections_[i].next != kNone)
            previous[sections_[i].next] = i;
    std::vector<uint32_t> const stanzaOf = stanzasOfSections();
    findHeaderComments(previous, stanzaOf, comments);
    uint32_t const count = sectionCount();
    std::vector<uint32_t> restOf(count);  // of each section: its part below the last comment
    for (uint32_t i = 0; i < count; ++i)
        restOf[i] = i;
    for (HeaderComment const& comment : comments) {
        uint32_t const end = lineAt(comment.end);
        uint32_t const first = firstCommentAbove(lineAt(comment.begin), end);
        // A header can have an empty name, too.
        uint32_t const named = find(comment.stanza, stanzas_.size());
        uint32_t const owner = named == kNone && comment.stanza.empty() ? 0 : named;
        if (first == end || owner == kNone)
            continue;
        uint32_t const around = sectionIndexOf(first);
        uint32_t const section = restOf[around];
        if (first < sections_[section].first || end > sections_[section].end)
            continue;
        // Its header may have been removed, so that further lines follow it.
        if (end < sections_[section].end)
            restOf[around] =
                appendSection(stanzas_[stanzaOf[around]], section, end, sections_[section].end);
        sections_[section].end = first;
        uint32_t const next = around + 1;
        bool const hasHeader = next < count && sections_[next].header == end;
        bool const isRepeated =
            comment.isRepeated && hasHeader && stanzaOf[next] == owner && previous[next] != kNone;
        appendSection(stanzas_[owner], isRepeated ? previous[next] : stanzas_[owner].lastSection,
                      first, end);
    }
}

uint32_t Outline::firstCommentAbove(uint32_t first, uint32_t end) const
{
    while (end > first && lines_[end - 1].kind == commentLine)
        --end;
    return end;
}

uint32_t Outline::appendSection(ReadStanza& stanza, uint32_t previous, uint32_t first, uint32_t end)
{
    auto const section = static_cast<uint32_t>(sections_.size());
    sections_.push_back({kNone, first, end, sections_[previous].next});
    ++appended_;
    sections_[previous].next = section;
    if (stanza.lastSection == previous)
        stanza.lastSection = section;
    return section;
}

std::string_view Outline::lineEndingOf(uint32_t line) const
{
    while (line + 1 < lines_.size() && sharesLine(line + 1))
        ++line;
    for (uint32_t at = line + 1; at-- > 0;) {
        std::string_view const bytes = slice(text_, lines_[at].begin, endOf(at));
        if (bytes.ends_with("\r\n"))
            return "\r\n";
        if (bytes.ends_with('\n'))
            return "\n";
    }
    return "\n";
}

}  // namespace zlines
