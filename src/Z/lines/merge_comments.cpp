#include "merge_comments.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "outline.h"

namespace zlines {

namespace {

using Strings = std::vector<std::string>;

// A stanza and a key; an empty key: the header. Both are as compared.
using Anchor = std::pair<std::string, std::string>;

// The start of the file. No header has a newline.
Anchor fileAnchor()
{
    return {"\n", ""};
}

struct Comments {
    std::map<Anchor, Strings> blocks;  // the lines right above each key and header
    std::multiset<std::string> all;
};

Comments commentsOf(std::string_view text, Dialect const& dialect)
{
    Comments found;
    Outline outline(text, dialect);
    std::vector<Line> const& lines = outline.lines();
    auto const above = [&](uint32_t line) {
        Strings block;
        for (; line > 0 && lines[line - 1].kind == commentLine; --line)
            block.insert(block.begin(), std::string(outline.comment(line - 1)));
        return block;
    };
    std::string space;
    for (ReadStanza const& stanza : outline.stanzas())
        for (uint32_t i = stanza.firstSection; i != kNone; i = outline.sections()[i].next) {
            Section const& section = outline.sections()[i];
            std::string const name(stanza.name);
            if (section.header != kNone)
                found.blocks.try_emplace({name, ""}, above(section.header));
            for (uint32_t line = section.first; line < section.end; ++line) {
                if (lines[line].kind == commentLine)
                    found.all.emplace(outline.comment(line));
                if (lines[line].isKey())
                    found.blocks.try_emplace({name, std::string(outline.keyName(line, space))},
                                             above(line));
            }
        }
    uint32_t end = 0;
    while (end < lines.size() && lines[end].kind == commentLine)
        ++end;
    bool const isOfNext =
        end < lines.size() && (lines[end].kind == headerLine || lines[end].isKey());
    found.blocks.emplace(fileAnchor(), isOfNext ? Strings() : above(end));
    return found;
}

// A wanted comment: its lines as compared, and as they are.
struct Wanted {
    Anchor anchor;
    std::string stanza;
    std::string key;
    Strings block;
    std::string text;
};

class Reader {
public:
    Reader(Document const& document, Dialect const& dialect)
        : entries_(document.entries), dialect_(dialect)
    {
        std::string space;
        std::string const top(dialect.topStanza());
        for (size_t i = 0; i < document.stanzas.size(); ++i) {
            Stanza const& stanza = document.stanzas[i];
            std::string const name(dialect.comparableStanza(stanza.name, space));
            uint32_t const end = stanza.firstEntry + stanza.entryCount;
            bool const hasHeader = i > 0 && (top.empty() || name != top);
            if (hasHeader)
                add({{name, ""}, std::string(stanza.name), "", {}, ""}, 0, stanza.firstEntry,
                    stanza.isBelowBlank);
            else if (i == 0)
                addFileComment(document, end);
            uint32_t const start = hasHeader ? stanza.firstEntry : 0;
            for (uint32_t at = stanza.firstEntry; at < end; ++at)
                if (!entries_[at].isComment && hasLine(entries_[at]))
                    add({{name, std::string(dialect.comparableKey(entries_[at].text, space))},
                         std::string(stanza.name),
                         std::string(entries_[at].text),
                         {},
                         ""},
                        start, at, entries_[at].isBelowBlank);
        }
        for (uint32_t at = 0; at < entries_.size(); ++at)
            if (entries_[at].isComment && !used_.contains(at))
                free.emplace_back(dialect.commentText(entries_[at].text));
    }

    std::vector<Wanted> comments;
    Strings free;  // comments right above nothing

private:
    static bool hasLine(Entry const& entry) { return entry.valueCount > 0 || entry.needsLine; }

    // Adds the comment that ends before the entry `end`, and is after `start`.
    void add(Wanted wanted, uint32_t start, uint32_t end, bool isBelowBlank)
    {
        uint32_t first = end;
        while (first > start && !isBelowBlank && entries_[first - 1].isComment)
            isBelowBlank = entries_[--first].isBelowBlank;
        take(std::move(wanted), first, end);
    }

    void addFileComment(Document const& document, uint32_t end)
    {
        uint32_t last = 0;
        while (last < end && entries_[last].isComment &&
               (last == 0 || !entries_[last].isBelowBlank))
            ++last;
        bool const isOfNext =
            last == end && document.stanzas.size() > 1 && !document.stanzas[1].isBelowBlank;
        take({fileAnchor(), "", "", {}, ""}, 0, isOfNext ? 0 : last);
    }

    void take(Wanted wanted, uint32_t first, uint32_t end)
    {
        for (uint32_t at = first; at < end; ++at) {
            used_.insert(at);
            wanted.block.emplace_back(dialect_.commentText(entries_[at].text));
            wanted.text += at == first ? "" : "\n";
            wanted.text += entries_[at].text;
        }
        comments.push_back(std::move(wanted));
    }

    std::vector<Entry> const& entries_;
    Dialect const& dialect_;
    std::set<uint32_t> used_;
};

MergeStep stepFor(Wanted const& wanted)
{
    return {wanted.anchor == fileAnchor() ? MergeStep::commentFile
            : wanted.key.empty()          ? MergeStep::commentStanza
                                          : MergeStep::commentKey,
            wanted.stanza, wanted.key, wanted.block.empty() ? Strings() : Strings{wanted.text}};
}

}  // namespace

bool planComments(std::string_view base, Document const& document, std::string_view other,
                  Dialect const& dialect, std::vector<MergeStep>& steps)
{
    Comments const before = commentsOf(base, dialect);
    Comments const there = commentsOf(other, dialect);
    Reader const now(document, dialect);
    Strings const none;
    std::set<Anchor> present;
    std::set<Strings> added;  // above new keys and headers
    for (Wanted const& wanted : now.comments) {
        present.insert(wanted.anchor);
        auto const old = before.blocks.find(wanted.anchor);
        auto const found = there.blocks.find(wanted.anchor);
        Strings const& oldBlock = old == before.blocks.end() ? none : old->second;
        Strings const& block = found == there.blocks.end() ? none : found->second;
        if (old == before.blocks.end() && !wanted.block.empty())
            added.insert(wanted.block);
        if (wanted.block == oldBlock)
            continue;
        bool const isGone = old != before.blocks.end() && found == there.blocks.end();
        if (isGone || (block != oldBlock && block != wanted.block))
            return false;
        if (block != wanted.block)
            steps.push_back(stepFor(wanted));
    }
    for (std::string const& comment : now.free)
        if (!before.all.contains(comment))
            return false;
    // A renamed key or stanza takes its comment along.
    std::vector<MergeStep> removals;
    for (auto const& [anchor, block] : before.blocks) {
        auto const found = there.blocks.find(anchor);
        if (!present.contains(anchor) && added.contains(block) && found != there.blocks.end() &&
            found->second == block)
            removals.push_back(stepFor({anchor, anchor.first, anchor.second, {}, ""}));
    }
    steps.insert(steps.begin(), removals.begin(), removals.end());
    return true;
}

}  // namespace zlines
