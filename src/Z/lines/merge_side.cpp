#include "merge_side.h"

#include <algorithm>

#include "separate_stanzas.h"

namespace zlines {

namespace {

// Returns the names of the stanzas of a side, as the base has them.
std::vector<std::string> namesLike(MergeSide const& base, Outline& side)
{
    std::vector<std::string> names;
    std::map<std::string, uint32_t> counts;
    std::vector<MatchedStanza> const matched = matchSeparateStanzas(base.outline(), side);
    for (MatchedStanza const& stanza : matched) {
        if (stanza.before != kNone) {
            names.emplace_back(base.outline().stanzas()[stanza.before].name);
            continue;
        }
        // No header has a newline. Equal stanzas that both sides add have one name.
        std::string name = '\n' + stanza.contents;
        name += '\n' + std::to_string(++counts[stanza.contents]);
        names.push_back(std::move(name));
    }
    return names;
}

}  // namespace

MergeSide::MergeSide(std::string_view text, Dialect const& dialect, MergeSide const* base,
                     Listing listing)
    : outline_(text, dialect), listing_(listing)
{
    bool const isMatched = base != nullptr && !dialect.joinsHeaders();
    read(isMatched ? namesLike(*base, outline_) : std::vector<std::string>());
}

MergeSide::MergeSide(std::string_view text, Dialect const& dialect,
                     std::vector<std::string> const& names)
    : outline_(text, dialect)
{
    read(names.size() == outline_.stanzas().size() && !dialect.joinsHeaders()
             ? names
             : std::vector<std::string>());
}

// range   `names` is empty: the stanzas have their own names.
void MergeSide::read(std::vector<std::string> const& names)
{
    std::vector<uint32_t> stanzaOf(outline_.sections().size(), 0);
    auto const& read = outline_.stanzas();
    for (uint32_t i = 0; i < read.size(); ++i)
        for (uint32_t at = read[i].firstSection; at != kNone; at = outline_.sections()[at].next)
            stanzaOf[at] = i;
    for (uint32_t i = 0; i < stanzaOf.size(); ++i)
        addSection(outline_.sections()[i], stanzaOf[i] == 0 ? kTopOfText
                                           : names.empty()  ? std::string(read[stanzaOf[i]].name)
                                                            : names[stanzaOf[i]]);
    takeComments(kEndOfText, "");
}

void MergeSide::addEntry(SideEntry const& entry)
{
    if (listing_ == withEntries)
        entries_.push_back(entry);
}

bool MergeSide::isBelowBlank(uint32_t line) const
{
    return line > 0 && outline_.lines()[line - 1].kind == blankLine;
}

void MergeSide::addSection(Section const& section, std::string const& name)
{
    auto const [at, isNew] = stanzas_.try_emplace(name);
    if (isNew)
        order_.push_back(name);
    at->second.sections.push_back(static_cast<uint32_t>(&section - outline_.sections().data()));
    if (section.header != kNone) {
        takeCommentsAtStart(section.header);
        takeComments(name, "");
        if (at->second.header == kNone && name != kTopOfText) {
            at->second.header = section.header;
            at->second.spelled = outline_.spelledName(section.header);
            at->second.isBelowBlank = isBelowBlank(section.header);
        }
        addEntry({SideEntry::header, at->first, {}, {}, isBelowBlank(section.header)});
    }
    for (uint32_t line = section.first; line < section.end; ++line) {
        if (outline_.lines()[line].kind == commentLine)
            pending_.push_back(line);
        else if (outline_.lines()[line].isKey())
            addKey(name, line);
        else if (outline_.lines()[line].kind == otherLine)
            addOtherLine(name, line);
    }
}

// The comments above a line without a meaning belong to it, and not to the key below it.
void MergeSide::addOtherLine(std::string const& stanza, uint32_t line)
{
    takeCommentsAtStart(line);
    if (pending_.empty())
        return;
    std::string owner(1, kOtherLine);
    owner += slice(outline_.text(), outline_.lines()[line].begin, outline_.endOf(line));
    takeComments(stanza, owner);
}

void MergeSide::addKey(std::string const& stanza, uint32_t line)
{
    std::string space;
    std::string const name(outline_.keyName(line, space));
    auto const place = stanzas_.find(stanza);
    SideStanza& parent = place->second;
    auto const [at, isNew] = parent.contents.try_emplace(name);
    SideKey& key = at->second;
    takeCommentsAtStart(line);
    takeComments(stanza, name);
    if (isNew) {
        key.spelled = outline_.spelledName(line);
        key.isBelowBlank = isBelowBlank(line);
        parent.keys.push_back(at->first);
        addEntry({SideEntry::key, place->first, at->first, {}, key.isBelowBlank});
    }
    if (outline_.lines()[line].kind == valueLine) {
        key.values.emplace_back(outline_.value(line, space));
        key.valueLines.push_back(line);
    } else {
        key.otherLines.push_back(line);
    }
}

// The comments at the start of the text belong to the text if a blank line follows them.
void MergeSide::takeCommentsAtStart(uint32_t line)
{
    if (!std::exchange(isAtStart_, false))
        return;
    while (line > 0 && outline_.lines()[line - 1].kind != blankLine)
        --line;
    auto const first = std::lower_bound(pending_.begin(), pending_.end(), line);
    std::vector<uint32_t> below(first, pending_.end());
    pending_.erase(first, pending_.end());
    takeComments(kTopOfText, "");
    pending_ = std::move(below);
}

void MergeSide::takeComments(std::string const& stanza, std::string const& key)
{
    for (uint32_t const line : pending_) {
        Line const& record = outline_.lines()[line];
        SideComment const comment{slice(outline_.text(), record.nameBegin(), record.valueEnd),
                                  outline_.comment(line), isBelowBlank(line)};
        auto const parent = stanzas_.try_emplace(stanza).first;
        if (key.empty()) {
            parent->second.comments.push_back(comment);
            addEntry({SideEntry::comment, parent->first, {}, comment, comment.isBelowBlank});
        } else {
            auto const owner = parent->second.contents.try_emplace(key).first;
            owner->second.comments.push_back(comment);
            addEntry(
                {SideEntry::comment, parent->first, owner->first, comment, comment.isBelowBlank});
        }
    }
    pending_.clear();
}

std::pair<uint32_t, uint32_t> MergeSide::rangeOf(uint32_t section) const
{
    Section const& found = outline_.sections()[section];
    std::vector<Line> const& lines = outline_.lines();
    uint32_t first = found.header;
    for (uint32_t at = first; at > 0; --at) {
        if (lines[at - 1].kind == commentLine)
            first = at - 1;
        else if (lines[at - 1].kind != blankLine)
            break;
        // Comments at the start of the text belong to it if a blank line follows them.
        if (at == 1)
            for (first = found.header; first > 0 && lines[first - 1].kind == commentLine;)
                --first;
    }
    uint32_t last = found.header;
    for (uint32_t line = found.first; line < found.end; ++line)
        if (lines[line].isKey())
            last = line;
    return {lines[first].begin, outline_.endOf(last)};
}

SideStanza const* MergeSide::find(std::string_view stanza) const
{
    auto const found = stanzas_.find(stanza);
    return found == stanzas_.end() ? nullptr : &found->second;
}

SideKey const* MergeSide::find(std::string_view stanza, std::string_view key) const
{
    SideStanza const* const parent = find(stanza);
    if (parent == nullptr)
        return nullptr;
    auto const found = parent->contents.find(key);
    return found == parent->contents.end() ? nullptr : &found->second;
}

std::vector<SideComment> MergeSide::commentsOf(std::string_view stanza, std::string_view key) const
{
    if (!key.empty()) {
        SideKey const* const found = find(stanza, key);
        return found == nullptr ? std::vector<SideComment>() : found->comments;
    }
    SideStanza const* const found = find(stanza);
    return found == nullptr ? std::vector<SideComment>() : found->comments;
}

}  // namespace zlines
