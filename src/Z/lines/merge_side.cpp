#include "merge_side.h"

#include <algorithm>
#include <utility>

namespace zlines {

MergeSide::MergeSide(std::string_view text, Dialect const& dialect) : outline_(text, dialect)
{
    std::vector<uint32_t> stanzaOf(outline_.sections().size(), 0);
    auto const& read = outline_.stanzas();
    for (uint32_t i = 0; i < read.size(); ++i)
        for (uint32_t at = read[i].firstSection; at != kNone; at = outline_.sections()[at].next)
            stanzaOf[at] = i;
    for (uint32_t i = 0; i < stanzaOf.size(); ++i)
        addSection(outline_.sections()[i],
                   stanzaOf[i] == 0 ? kTopOfText : std::string(read[stanzaOf[i]].name));
    takeComments(kEndOfText, "");
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
    if (section.header != kNone) {
        takeCommentsAtStart(section.header);
        takeComments(name, "");
        if (at->second.header == kNone && name != kTopOfText) {
            at->second.header = section.header;
            at->second.spelled = outline_.spelledName(section.header);
            at->second.isBelowBlank = isBelowBlank(section.header);
        }
        entries_.push_back({SideEntry::header, name, "", {}, isBelowBlank(section.header)});
    }
    for (uint32_t line = section.first; line < section.end; ++line) {
        if (outline_.lines()[line].kind == commentLine)
            pending_.push_back(line);
        else if (outline_.lines()[line].isKey())
            addKey(name, line);
    }
}

void MergeSide::addKey(std::string const& stanza, uint32_t line)
{
    std::string space;
    std::string const name(outline_.keyName(line, space));
    SideStanza& parent = stanzas_.find(stanza)->second;
    auto const [at, isNew] = parent.contents.try_emplace(name);
    SideKey& key = at->second;
    takeCommentsAtStart(line);
    takeComments(stanza, name);
    if (isNew) {
        key.spelled = outline_.spelledName(line);
        key.isBelowBlank = isBelowBlank(line);
        parent.keys.push_back(at->first);
        entries_.push_back({SideEntry::key, stanza, name, {}, key.isBelowBlank});
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
        SideStanza& parent = stanzas_[stanza];
        (key.empty() ? parent.comments : parent.contents[key].comments).push_back(comment);
        entries_.push_back({SideEntry::comment, stanza, key, comment, comment.isBelowBlank});
    }
    pending_.clear();
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
