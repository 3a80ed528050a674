#include "text_merge.h"

#include <algorithm>
#include <iterator>
#include <list>
#include <map>
#include <set>
#include <utility>

#include "conflict_marks.h"
#include "difference.h"
#include "document.h"
#include "merge_side.h"
#include "merged_contents.h"

namespace zlines {

namespace {

using EntryList = std::list<SideEntry>;
using Position = EntryList::iterator;
// Of a stanza; of a key, or empty. The sides and the merged contents have the strings.
using Name = std::pair<std::string_view, std::string_view>;

// The comments of both sides, without comments that a side removed.
std::vector<SideComment> mergeComments(std::vector<SideComment> const& base,
                                       std::vector<SideComment> const& ours,
                                       std::vector<SideComment> const& theirs)
{
    auto const wordsOf = [](std::vector<SideComment> const& comments) {
        std::vector<std::string> words;
        for (SideComment const& comment : comments)
            words.emplace_back(comment.words);
        return words;
    };
    std::multimap<std::string_view, SideComment const*> known;
    for (std::vector<SideComment> const* side : {&ours, &theirs})
        for (SideComment const& comment : *side)
            known.emplace(comment.words, &comment);
    std::vector<SideComment> merged;
    auto const add = [&](std::string const& words) {
        merged.push_back(*known.lower_bound(words)->second);  // the first side has priority
    };
    for (MergedValue const& value : mergeValues(wordsOf(base), wordsOf(ours), wordsOf(theirs))) {
        bool const isSwapped = value.isConflict && value.theirs < value.ours;
        std::set<std::string> added;
        for (auto const* side :
             {isSwapped ? &value.theirs : &value.ours, isSwapped ? &value.ours : &value.theirs})
            for (std::string const& words : *side)
                if (!value.isConflict || added.insert(words).second)
                    add(words);
    }
    return merged;
}

// Makes the changes of a merge in the entries of `ours`.
class Assembly {
public:
    Assembly(MergeSide const& base, MergeSide& ours, MergeSide const& theirs,
             MergedContents const& contents)
        : base_(base),
          ours_(ours),
          theirs_(theirs),
          contents_(contents),
          entries_(ours.takeEntries())
    {
        for (Position at = entries_.begin(); at != entries_.end(); ++at) {
            if (at->kind == SideEntry::comment)
                comments_[Name(at->stanza, at->name)].push_back(at);
            else
                positions_.emplace(Name(at->stanza, at->name), at);
        }
    }

    EntryList const& assemble()
    {
        removeMissing();
        addStanzas();
        for (std::string const& stanza : theirs_.stanzas())
            if (contents_.has(stanza))
                addKeys(stanza);
        for (auto const& [stanza, keys] : contents_.stanzas()) {
            if (keys.isFixed || keys.conflict != MergedStanza::none)
                continue;
            mergeCommentsOf(stanza, "");
            for (auto const& [key, values] : keys.keys)
                mergeCommentsOf(stanza, key);
        }
        mergeCommentsOf(kEndOfText, "");
        return entries_;
    }

private:
    bool isWanted(std::string_view stanza, std::string_view key) const
    {
        return stanza == kTopOfText && key.empty()        ? true
               : stanza == kEndOfText                     ? true
               : key.empty() || key.front() == kOtherLine ? contents_.has(stanza)
                                                          : contents_.find(stanza, key) != nullptr;
    }

    void removeMissing()
    {
        for (Position at = entries_.begin(); at != entries_.end();) {
            if (isWanted(at->stanza, at->name)) {
                ++at;
                continue;
            }
            if (at->kind != SideEntry::comment)
                positions_.erase(Name(at->stanza, at->name));
            at = entries_.erase(at);
        }
    }

    // Returns the position of the next header from `at` on, or of the comments above it.
    Position endOfSection(Position at)
    {
        Position end = at;
        bool isInComments = false;
        for (; at != entries_.end(); ++at) {
            bool const isOfHeader =
                at->kind != SideEntry::key && at->name.empty() && at->stanza != kTopOfText;
            if (at->kind == SideEntry::header)
                return isInComments ? end : at;
            if (isOfHeader && !isInComments)
                end = at;
            isInComments = isOfHeader;
        }
        return isInComments ? end : at;
    }

    bool isOnlyOurs(std::string_view stanza, std::string_view key) const
    {
        auto const has = [&](MergeSide const& side) {
            return key.empty() ? side.find(stanza) != nullptr : side.find(stanza, key) != nullptr;
        };
        return has(ours_) && !has(base_) && !has(theirs_);
    }

    // Returns the position after the keys at `at` that only this side has added.
    Position skipNewKeys(Position at, std::string_view stanza)
    {
        Position end = at;
        for (; at != entries_.end() && at->kind != SideEntry::header && !at->name.empty() &&
               at->stanza == stanza && isOnlyOurs(stanza, at->name);
             ++at)
            if (at->kind == SideEntry::key)
                end = std::next(at);
        return end;
    }

    // As endOfSection(), after the following stanzas that only this side has added.
    Position endOfNewSections(Position at)
    {
        Position end = endOfSection(at);
        for (Position header = end; header != entries_.end(); header = end) {
            while (header != entries_.end() && header->kind != SideEntry::header)
                ++header;
            if (header == entries_.end() || !isOnlyOurs(header->stanza, ""))
                break;
            end = endOfSection(std::next(header));
        }
        return end;
    }

    Position add(Position before, SideEntry entry)
    {
        Name const name(entry.stanza, entry.name);
        Position const at = entries_.insert(before, std::move(entry));
        positions_.emplace(name, at);
        return at;
    }

    // Adds the stanzas that only the other side has, each after its predecessor there.
    void addStanzas()
    {
        Position last = entries_.begin();  // in the section before
        for (std::string const& stanza : theirs_.stanzas()) {
            if (stanza == kTopOfText || !contents_.has(stanza))
                continue;
            auto const known = positions_.find(Name(stanza, ""));
            if (known != positions_.end()) {
                last = std::next(known->second);
                continue;
            }
            last = std::next(
                add(endOfNewSections(last),
                    {SideEntry::header, stanza, {}, {}, theirs_.find(stanza)->isBelowBlank}));
        }
    }

    // Returns the position after the comments at the start of the text.
    Position startOfTop()
    {
        Position at = entries_.begin();
        while (at != entries_.end() && at->kind == SideEntry::comment && at->stanza == kTopOfText &&
               at->name.empty())
            ++at;
        return at;
    }

    // Adds the keys that only the other side has, each after its predecessor there.
    void addKeys(std::string_view stanza)
    {
        auto const header = positions_.find(Name(stanza, ""));
        Position next = stanza == kTopOfText || header == positions_.end()
                            ? startOfTop()
                            : std::next(header->second);
        for (std::string_view const key : theirs_.find(stanza)->keys) {
            if (contents_.find(stanza, key) == nullptr)
                continue;
            auto const known = positions_.find(Name(stanza, key));
            Position const at =
                known != positions_.end()
                    ? known->second
                    : add(skipNewKeys(next, stanza), {SideEntry::key,
                                                      stanza,
                                                      key,
                                                      {},
                                                      theirs_.find(stanza, key)->isBelowBlank});
            next = std::next(at);
        }
    }

    // Returns whether the other side has a key or header below a blank line.
    bool isBelowBlankThere(std::string_view stanza, std::string_view key) const
    {
        if (key.empty()) {
            SideStanza const* const found = theirs_.find(stanza);
            return found != nullptr && found->isBelowBlank;
        }
        SideKey const* const found = theirs_.find(stanza, key);
        return found != nullptr && found->isBelowBlank;
    }

    void mergeCommentsOf(std::string_view stanza, std::string_view key)
    {
        std::vector<SideComment> const ours = ours_.commentsOf(stanza, key);
        std::vector<SideComment> const merged =
            mergeComments(base_.commentsOf(stanza, key), ours, theirs_.commentsOf(stanza, key));
        if (merged == ours)
            return;
        Position before = entries_.end();
        auto const known = positions_.find(Name(stanza, key));
        if (known != positions_.end())
            before = known->second;
        else if (stanza == kTopOfText && key.empty())
            before = entries_.begin();
        for (Position const at : comments_[Name(stanza, key)]) {
            if (before == at)
                ++before;
            entries_.erase(at);
        }
        // A blank line separates the comments at the start from the rest.
        if (stanza == kTopOfText && key.empty() && before != entries_.end())
            before->isBelowBlank = true;
        bool isBelowBlank = false;
        if (ours.empty() && known != positions_.end()) {
            // The blank line above the key or header is above its comments then.
            isBelowBlank = std::exchange(before->isBelowBlank, isBelowBlankThere(stanza, key));
        }
        for (SideComment const& comment : merged) {
            entries_.insert(before, {SideEntry::comment, stanza, key, comment,
                                     comment.isBelowBlank || isBelowBlank});
            isBelowBlank = false;
        }
    }

    MergeSide const& base_;
    MergeSide const& ours_;
    MergeSide const& theirs_;
    MergedContents const& contents_;
    EntryList entries_;
    std::map<Name, Position> positions_;              // of headers and keys
    std::map<Name, std::vector<Position>> comments_;  // of the first side
};

// Writes the entries as a document.
class Writer {
public:
    Writer(Dialect const& dialect, MergeSide const& ours, MergeSide const& theirs,
           MergedContents const& contents)
        : dialect_(dialect), ours_(ours), theirs_(theirs), contents_(contents)
    {
    }

    void write(EntryList const& entries, Document& document)
    {
        std::vector<std::string> order{kTopOfText};
        std::map<std::string_view, std::vector<SideEntry const*>> grouped;
        std::string_view current = kTopOfText;
        std::set<std::string_view> known{current};
        for (SideEntry const& entry : entries) {
            if (entry.kind != SideEntry::header) {
                grouped[current].push_back(&entry);
                continue;
            }
            current = entry.stanza;
            if (known.insert(current).second) {
                order.emplace_back(current);
                grouped[current].push_back(&entry);
            }
        }
        for (std::string const& stanza : order)
            for (SideEntry const* entry : grouped[stanza])
                write(*entry, document);
        names_ = std::move(order);
    }

    /// Returns the names of the stanzas in the document, in order.
    std::vector<std::string> const& names() const { return names_; }

private:
    void write(SideEntry const& entry, Document& document)
    {
        if (entry.kind == SideEntry::comment) {
            document.addComment(entry.text.text, entry.isBelowBlank);
            return;
        }
        bool const isOurs = entry.name.empty() ? ours_.find(entry.stanza) != nullptr
                                               : ours_.find(entry.stanza, entry.name) != nullptr;
        MergeSide const& side = isOurs ? ours_ : theirs_;
        if (entry.kind == SideEntry::header) {
            std::string_view const spelled = side.find(entry.stanza)->spelled;
            bool const isName = !dialect_.joinsHeaders() ||
                                dialect_.comparableStanza(spelled, space_) == entry.stanza;
            document.addStanza(isName ? spelled : entry.stanza, entry.isBelowBlank);
            return;
        }
        std::string_view const spelled = side.find(entry.stanza, entry.name)->spelled;
        bool const isName = dialect_.comparableKey(spelled, space_) == entry.name;
        document.addKey(isName ? spelled : entry.name, entry.isBelowBlank);
        MergedKey const& key = *contents_.find(entry.stanza, entry.name);
        if (key.side != nullptr)
            for (std::string const& text : key.side->values)
                document.addValue(text);
        for (MergedValue const& value : key.values)
            for (std::string const& text : value.ours.empty() ? value.theirs : value.ours)
                document.addValue(text);
    }

    Dialect const& dialect_;
    MergeSide const& ours_;
    MergeSide const& theirs_;
    MergedContents const& contents_;
    std::vector<std::string> names_;
    std::string space_;
};

// Returns whether two versions have the same values in a stanza.
bool haveSameStanza(MergeSide const& ours, MergeSide const& theirs, std::string_view name)
{
    SideStanza const* const our = ours.find(name);
    SideStanza const* const their = theirs.find(name);
    if (our == nullptr || their == nullptr || our->keys.size() != their->keys.size())
        return our == their;
    return std::all_of(our->keys.begin(), our->keys.end(), [&](std::string_view key) {
        SideKey const* const same = theirs.find(name, key);
        return same != nullptr && same->values == our->contents.find(key)->second.values;
    });
}

// Returns the bytes between a zero byte and the end of its line, a line for each such line.
std::string unreadBytes(std::string_view text)
{
    std::string unread;
    for (size_t at = text.find('\0'); at < text.size(); at = text.find('\0', at)) {
        size_t const end = std::min(text.find('\n', at), text.size());
        unread += text.substr(at, end - at);
        unread += '\n';
        at = end;
    }
    return unread;
}

}  // namespace

bool changesUnreadBytes(std::string_view base, std::string_view ours, std::string_view theirs)
{
    std::string const unread = unreadBytes(theirs);
    return unread != unreadBytes(base) && unread != unreadBytes(ours);
}

MergedText mergeTexts(std::string_view base, std::string_view ours, std::string_view theirs,
                      Dialect const& dialect, std::string_view fixed)
{
    if (ours == theirs || theirs == base)
        return {std::string(ours), 0};
    bool const hasFixed = !fixed.empty() && (ours.find(fixed) != std::string_view::npos ||
                                             theirs.find(fixed) != std::string_view::npos);
    if (ours == base && !hasFixed)
        return {std::string(theirs), 0};
    MergeSide const before(base, dialect);
    MergeSide our(ours, dialect, &before, MergeSide::withEntries);
    MergeSide const their(theirs, dialect, &before);
    if (ours == base && haveSameStanza(our, their, fixed))
        return {std::string(theirs), 0};
    MergedContents const contents(before, our, their, fixed);
    Assembly assembly(before, our, their, contents);
    Document document;
    Writer writer(dialect, our, their, contents);
    writer.write(assembly.assemble(), document);
    MergedText merged = {};
    TextHistory history;
    if (!rewrite(ours, dialect, document, history, merged.text))
        merged.text = ours;
    if (contents.hasConflicts())
        merged.text = markConflicts(merged.text, dialect, writer.names(), contents, our, their,
                                    merged.conflicts);
    return merged;
}

}  // namespace zlines
