#include "text_merge.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <utility>

#include "alignment.h"
#include "comment_merge.h"
#include "conflict_marks.h"
#include "copied_keys.h"
#include "difference.h"
#include "document.h"
#include "merge_side.h"
#include "merged_contents.h"

namespace zlines {

namespace {

using Position = EntryList::iterator;
// Of a stanza; of a key, or empty. The sides and the merged contents have the strings.
using Name = std::pair<std::string_view, std::string_view>;

// The position of a new stanza: after the first or last header of the stanza before it. If a
// removed stanza with the same contents is between them, the new stanza takes over its lines.
enum class NewStanzas { afterLastHeader, afterFirstHeader };

// Makes the changes of a merge in the entries of `ours`.
class Assembly {
public:
    Assembly(MergeSide const& base, MergeSide& ours, MergeSide const& theirs,
             MergedContents const& contents, NewStanzas place)
        : place_(place),
          base_(base),
          ours_(ours),
          theirs_(theirs),
          contents_(contents),
          entries_(ours.entries()),
          keyPositions_(ours.keyCount(), entries_.end()),
          movedComments_(base, ours, theirs, contents)
    {
        for (Position at = entries_.begin(); at != entries_.end(); ++at) {
            if (at->kind != SideEntry::comment && !has(at->stanza, at->name))
                setPosition(at->stanza, at->name, at);
            if (at->kind != SideEntry::header)
                continue;
            headers_[at->stanza].push_back(at);
            hasRepeatedHeaders_ = hasRepeatedHeaders_ || at->headerIndex > 0;
        }
    }

    void assemble()
    {
        removeMissing();
        for (Position at = entries_.begin(); at != entries_.end(); ++at)
            if (at->kind == SideEntry::comment)
                comments_.push_back(at);
        std::stable_sort(comments_.begin(), comments_.end(),
                         [](Position a, Position b) { return ownerOf(a) < ownerOf(b); });
        addStanzas();
        for (std::string const& stanza : theirs_.stanzas())
            if (contents_.has(stanza))
                addKeys(stanza);
        for (auto const& [stanza, keys] : contents_.stanzas()) {
            if (keys.isFixed || keys.conflict != MergedStanza::none)
                continue;
            mergeHeaderComments(stanza);
            for (MergedKey const& key : keys.keys)
                mergeCommentsOf(stanza, key.name);
        }
        mergeCommentsOf(kEndOfText, "");
        removeComments();
    }

private:
    // Returns the header or key that a comment belongs to.
    static Name ownerOf(Position comment) { return {comment->stanza, comment->name}; }

    // Returns the position of a header or key, or the end of the entries.
    Position positionOf(std::string_view stanza, std::string_view key) const
    {
        uint32_t const index = key.empty() ? kNone : ours_.indexOf(stanza, key);
        if (index != kNone)
            return keyPositions_[index];
        auto const found = positions_.find(Name(stanza, key));
        return found == positions_.end() ? entries_.end() : found->second;
    }

    bool has(std::string_view stanza, std::string_view key) const
    {
        return positionOf(stanza, key) != entries_.end();
    }

    void setPosition(std::string_view stanza, std::string_view key, Position at)
    {
        uint32_t const index = key.empty() ? kNone : ours_.indexOf(stanza, key);
        if (index != kNone)
            keyPositions_[index] = at;
        else
            positions_[Name(stanza, key)] = at;
    }

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
                setPosition(at->stanza, at->name, entries_.end());
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
            return key.empty() ? side.find(stanza) != nullptr : !!side.find(stanza, key);
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

    Position add(Position before, SideEntry const& entry)
    {
        Name const name(entry.stanza, entry.name);
        Position const at = entries_.insert(before, entry);
        if (!has(name.first, name.second))
            setPosition(name.first, name.second, at);
        return at;
    }

    // Adds the stanzas that only the other side has, each after its predecessor there.
    void addStanzas()
    {
        Position last = entries_.begin();  // in the section before
        for (std::string const& stanza : theirs_.stanzas()) {
            if (stanza == kTopOfText || !contents_.has(stanza))
                continue;
            Position const known = positionOf(stanza, "");
            if (known != entries_.end()) {
                auto const headers = headers_.find(stanza);
                bool const isFirst =
                    place_ == NewStanzas::afterFirstHeader || headers == headers_.end();
                last = std::next(isFirst ? known : headers->second.back());
                continue;
            }
            last = std::next(add(
                endOfNewSections(last),
                {SideEntry::header, theirs_.find(stanza)->isBelowBlank, false, false, 0, stanza}));
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
        Position const header = positionOf(stanza, "");
        Position next =
            stanza == kTopOfText || header == entries_.end() ? startOfTop() : std::next(header);
        for (uint32_t const index : theirs_.find(stanza)->keys) {
            SideKey const key = theirs_.key(index);
            if (contents_.find(stanza, key.name()) == nullptr)
                continue;
            Position const known = positionOf(stanza, key.name());
            Position const at =
                known != entries_.end()
                    ? known
                    : add(skipNewKeys(next, stanza), {SideEntry::key, key.isBelowBlank(), false,
                                                      false, 0, stanza, key.name()});
            next = std::next(at);
        }
    }

    // Each header has its own comments if all versions have the same number of headers. Otherwise
    // the comments of all headers of the stanza are one list.
    void mergeHeaderComments(std::string_view stanza)
    {
        uint32_t counts[3] = {};
        MergeSide const* const sides[] = {&base_, &ours_, &theirs_};
        for (size_t i = 0; i < 3; ++i)
            if (SideStanza const* const found = sides[i]->find(stanza))
                counts[i] = found->headerCount;
        if (stanza == kTopOfText || counts[1] < 2 || counts[0] != counts[1] ||
            counts[2] != counts[1]) {
            mergeCommentsOf(stanza, "");
            return;
        }
        for (uint32_t header = 0; header < counts[1]; ++header)
            mergeCommentsOf(stanza, "", header);
    }

    // The lines of `ours` that comments of a key or stanza are above.
    class Places {
    public:
        Places(Assembly const& assembly, std::string_view stanza, std::string_view key)
            : ours_(linesOf(assembly.ours_, stanza, key)),
              theirs_(linesOf(assembly.theirs_, stanza, key))
        {
            auto const read = [](MergeSide const& side, std::vector<uint32_t> const& lines) {
                std::vector<std::string_view> texts;
                for (uint32_t const line : lines)
                    texts.push_back(side.outline().wholeLine(line));
                return texts;
            };
            // The headers of a stanza are alike, so the keys below show which are the same.
            if (ours_.size() == theirs_.size() || ours_.empty())
                return;
            if (!key.empty())
                pairs_ = align(read(assembly.theirs_, theirs_), read(assembly.ours_, ours_));
            else
                pairs_ = pairHeaders(assembly, stanza);
        }

        // Returns the index of the line of `ours` for a line of `theirs`.
        uint32_t ofTheirs(uint32_t line) const
        {
            auto const index = static_cast<uint32_t>(
                std::find(theirs_.begin(), theirs_.end(), line) - theirs_.begin());
            if (ours_.size() == theirs_.size())
                return index;
            for (auto const& [their, our] : pairs_)
                if (their == index)
                    return our;
            return ours_.empty() ? 0 : std::min(index, static_cast<uint32_t>(ours_.size() - 1));
        }

        uint32_t ofOurs(uint32_t line) const
        {
            return static_cast<uint32_t>(std::find(ours_.begin(), ours_.end(), line) -
                                         ours_.begin());
        }

    private:
        static std::vector<uint32_t> linesOf(MergeSide const& side, std::string_view stanza,
                                             std::string_view key)
        {
            std::vector<uint32_t> lines;
            if (!key.empty())
                return side.find(stanza, key) ? side.find(stanza, key).lines() : lines;
            if (SideStanza const* const found = side.find(stanza))
                for (uint32_t const section : found->sections)
                    if (uint32_t const header = side.outline().sections()[section].header;
                        header != kNone)
                        lines.push_back(header);
            return lines;
        }

        // Returns pairs of headers, of `theirs` and `ours`, with the same first key below.
        static Pairs pairHeaders(Assembly const& assembly, std::string_view stanza)
        {
            auto const firstKeys = [&](MergeSide const& side, char unlike) {
                std::vector<std::string> names;
                Outline const& outline = side.outline();
                for (uint32_t const index : side.find(stanza)->sections) {
                    Section const& section = outline.sections()[index];
                    if (section.header == kNone)
                        continue;
                    std::string space;
                    std::string& name = names.emplace_back();
                    for (uint32_t line = section.first; line < section.end && name.empty(); ++line)
                        if (outline.lines()[line].isKey())
                            name = outline.keyName(line, space);
                    // A header without keys is like no other header.
                    if (name.empty())
                        name = '\n' + std::to_string(names.size()) + unlike;
                }
                return names;
            };
            if (assembly.ours_.find(stanza) == nullptr || assembly.theirs_.find(stanza) == nullptr)
                return {};
            std::vector<std::string> const theirs = firstKeys(assembly.theirs_, 't');
            std::vector<std::string> const ours = firstKeys(assembly.ours_, 'o');
            return align({theirs.begin(), theirs.end()}, {ours.begin(), ours.end()});
        }

        std::vector<uint32_t> ours_;
        std::vector<uint32_t> theirs_;
        Pairs pairs_;
    };

    // A comment of the result: its entry, and the line of `ours` that it is above.
    struct PlacedComment {
        Position at;
        uint32_t place;
    };

    // range   `header` is the index of a header of the stanza; kNone: all headers, or the key.
    void mergeCommentsOf(std::string_view stanza, std::string_view key, uint32_t header = kNone)
    {
        auto const commentsOf = [&](MergeSide const& side) {
            std::vector<SideComment> comments = side.commentsOf(stanza, key);
            if (header != kNone)
                std::erase_if(comments, [&](SideComment const& comment) {
                    return comment.headerIndex != header;
                });
            return comments;
        };
        std::vector<SideComment> const base = commentsOf(base_);
        std::vector<SideComment> ours = commentsOf(ours_);
        std::vector<SideComment> theirs = commentsOf(theirs_);
        if (!key.empty())
            moveFromGoneLines({stanza, key}, ours);
        movedComments_.undoMoves({stanza, key}, base, ours, theirs);
        std::vector<MergedComment> const merged = mergeComments(base, ours, theirs);
        if (merged.size() == ours.size() &&
            std::all_of(merged.begin(), merged.end(),
                        [](MergedComment const& comment) { return comment.ours != kNone; }))
            return;
        std::vector<Position> positions;  // of the comments of `ours`
        for (Position const at : commentsOfOwner({stanza, key}))
            if (header == kNone || at->headerIndex == header)
                positions.push_back(at);
        CommentPlacement(*this, {stanza, key}, ours, theirs, merged, positions).run();
        if (key.empty() && !headers_.contains(stanza))
            moveToNewHeader(stanza);
        // A blank line separates the comments at the start from the rest.
        Position const below = stanza == kTopOfText && key.empty() ? startOfTop() : entries_.end();
        if (!merged.empty() && below != entries_.end())
            below->isBelowBlank = true;
    }

    // Returns the positions of the comments of a key or header of `ours`.
    std::span<Position> commentsOfOwner(Name const& owner)
    {
        auto const first =
            std::lower_bound(comments_.begin(), comments_.end(), owner,
                             [](Position at, Name const& name) { return ownerOf(at) < name; });
        auto const end =
            std::find_if(first, comments_.end(), [&](Position at) { return ownerOf(at) != owner; });
        return {first, end};
    }

    // Returns the lines of a key of `ours` that the writer removes, with their values.
    static std::vector<uint32_t> goneLines(SideKey const& ours, MergedKey const& merged)
    {
        std::vector<std::string> const before = ours.values();
        std::vector<std::string> const after = merged.result();
        Pairs pairs = align({before.begin(), before.end()}, {after.begin(), after.end()});
        pairs.emplace_back(before.size(), after.size());
        std::vector<uint32_t> const lines = ours.valueLines();
        std::vector<uint32_t> gone;
        uint32_t line = 0;
        uint32_t value = 0;
        for (auto const& [nextLine, nextValue] : pairs) {
            for (line += std::min(nextLine - line, nextValue - value); line < nextLine; ++line)
                gone.push_back(lines[line]);
            line = nextLine + 1;
            value = nextValue + 1;
        }
        return gone;
    }

    // Moves the comments above removed lines of a key above its first line.
    void moveFromGoneLines(Name const& owner, std::vector<SideComment>& ours)
    {
        SideKey const key = ours_.find(owner.first, owner.second);
        MergedKey const& merged = *contents_.find(owner.first, owner.second);
        auto const isAboveFirst = [&](SideComment const& comment) {
            return comment.line == key.firstLine();
        };
        if (merged.side.isSame(key) || std::all_of(ours.begin(), ours.end(), isAboveFirst))
            return;
        std::vector<uint32_t> const gone = goneLines(key, merged);
        std::span<Position> const positions = commentsOfOwner(owner);
        Position const first = positionOf(owner.first, owner.second);
        size_t count = 0;  // of the comments above the first line
        for (size_t i = 0; i < ours.size(); ++i) {
            if (!isAboveFirst(ours[i])) {
                if (!std::binary_search(gone.begin(), gone.end(), ours[i].line))
                    continue;
                entries_.splice(first, entries_, positions[i]);
                positions[i]->isBelowBlank = std::exchange(first->isBelowBlank, false);
                positions[i]->isMoved = true;
                ours[i].line = key.firstLine();
            }
            std::rotate(ours.begin() + count, ours.begin() + i, ours.begin() + i + 1);
            std::rotate(positions.begin() + count, positions.begin() + i,
                        positions.begin() + i + 1);
            ++count;
        }
    }

    // Inserts the merged comments of a key or header. Comments of `ours` that stay are not moved. A
    // new comment replaces a removed comment above the same line, or follows the comment before it,
    // or precedes the comment after it. Otherwise it is right above the line.
    class CommentPlacement {
    public:
        /// range   the arguments, except the name of the owner, outlive the object.
        CommentPlacement(Assembly& assembly, Name owner, std::vector<SideComment> const& ours,
                         std::vector<SideComment> const& theirs,
                         std::vector<MergedComment> const& merged,
                         std::vector<Position> const& positions)
            : assembly_(assembly),
              owner_(owner),
              ours_(ours),
              theirs_(theirs),
              merged_(merged),
              positions_(positions),
              places_(assembly, owner.first, owner.second),
              isRemoved_(ours.size(), true)
        {
            for (SideComment const& comment : ours)
                placeOfOurs_.push_back(places_.ofOurs(comment.line));
            for (MergedComment const& comment : merged)
                if (comment.ours != kNone)
                    isRemoved_[comment.ours] = false;
            isFree_ = isRemoved_;
        }

        void run()
        {
            for (size_t i = 0; i < merged_.size(); ++i) {
                uint32_t const staying = merged_[i].ours;
                if (staying == kNone) {
                    insert(i);
                    continue;
                }
                nextOfOurs_ = staying + 1;
                placed_.push_back({positions_[staying], placeOfOurs_[staying]});
            }
            for (size_t i = 0; i < ours_.size(); ++i)
                if (isRemoved_[i])
                    assembly_.removed_.push_back({positions_[i], !isFree_[i]});
        }

    private:
        void insert(size_t index)
        {
            SideComment const& comment = merged_[index].comment;
            uint32_t const place = placeOf(comment);
            SideEntry entry{SideEntry::comment, comment.isBelowBlank, false,       true, 0,
                            owner_.first,       owner_.second,        comment.text};
            if (owner_.second.empty() && owner_.first != kTopOfText && owner_.first != kEndOfText)
                entry.headerIndex = place;
            Position const before = findPosition(index, place, entry);
            EntryList& entries = assembly_.entries_;
            entry.isBelowComment = before != entries.begin() && !placed_.empty() &&
                                   std::prev(before) == placed_.back().at && place != 0;
            placed_.push_back({entries.insert(before, entry), place});
        }

        bool isOurs(SideComment const& comment) const
        {
            return isPartOf(assembly_.ours_.outline().text(), comment.text);
        }

        uint32_t placeOf(SideComment const& comment) const
        {
            uint32_t const place =
                isOurs(comment) ? places_.ofOurs(comment.line) : places_.ofTheirs(comment.line);
            // Only the first line of a key is an entry.
            return owner_.second.empty() || hasStaying(place) ? place : 0;
        }

        bool hasStaying(uint32_t place) const
        {
            for (size_t i = 0; i < ours_.size(); ++i)
                if (placeOfOurs_[i] == place && !isRemoved_[i])
                    return true;
            return false;
        }

        // Returns the entry that a new comment precedes. Adapts the blank lines of both.
        Position findPosition(size_t index, uint32_t place, SideEntry& entry)
        {
            if (size_t const replaced = findReplaced(place); replaced < ours_.size()) {
                isFree_[replaced] = false;
                entry.isBelowBlank = positions_[replaced]->isBelowBlank;
                return positions_[replaced];
            }
            if (!placed_.empty() && placed_.back().place == place)
                return std::next(placed_.back().at);
            auto const after =
                std::find_if(merged_.begin() + static_cast<ptrdiff_t>(index), merged_.end(),
                             [&](MergedComment const& next) { return next.ours != kNone; });
            if (after != merged_.end() && placeOfOurs_[after->ours] == place) {
                Position const before = positions_[after->ours];
                entry.isBelowBlank = before->isBelowBlank;
                before->isBelowBlank = isBelowBlankIn(theirs_, after->comment);
                return before;
            }
            Position const before = assembly_.lineOf(owner_, place);
            takeBlankLine(merged_[index].comment, place, before, entry);
            return before;
        }

        // Returns the index of the removed comment that a new comment replaces, or the number of
        // the comments.
        size_t findReplaced(uint32_t place) const
        {
            size_t i = nextOfOurs_;
            while (i < ours_.size() && isRemoved_[i] && !(isFree_[i] && placeOfOurs_[i] == place))
                ++i;
            return i < ours_.size() && isFree_[i] ? i : ours_.size();
        }

        // The blank line above the key or header is above its comments then. If headers are
        // repeated, a blank line below them would give them to another stanza.
        void takeBlankLine(SideComment const& comment, uint32_t place, Position before,
                           SideEntry& entry) const
        {
            bool const isOnly =
                std::find(placeOfOurs_.begin(), placeOfOurs_.end(), place) == placeOfOurs_.end();
            bool const isTop = owner_ == Name(kTopOfText, "");
            if (!isOnly || isOurs(comment) || isTop || before == assembly_.entries_.end())
                return;
            bool const isParted = assembly_.theirs_.isBelowBlank(comment.line) &&
                                  !(owner_.second.empty() && assembly_.hasRepeatedHeaders_);
            entry.isBelowBlank =
                std::exchange(before->isBelowBlank, isParted) || entry.isBelowBlank;
        }

        Assembly& assembly_;
        Name const owner_;
        std::vector<SideComment> const& ours_;
        std::vector<SideComment> const& theirs_;
        std::vector<MergedComment> const& merged_;
        std::vector<Position> const& positions_;  // of the comments of `ours`
        Places const places_;
        std::vector<uint32_t> placeOfOurs_;
        std::vector<bool> isRemoved_;  // of the comments of `ours`
        std::vector<bool> isFree_;     // removed, and not replaced yet
        std::vector<PlacedComment> placed_;
        uint32_t nextOfOurs_ = 0;  // of `ours`: the comment after the last staying comment
    };

    // Removes comments. The blank line above a comment that has no replacement is above the entry
    // below.
    void removeComments()
    {
        for (auto const& [at, isReplaced] : removed_) {
            bool const isBelowBlank = !isReplaced && at->isBelowBlank;
            Position const next = entries_.erase(at);
            if (isBelowBlank && next != entries_.end())
                next->isBelowBlank = true;
        }
    }

    // Puts the comments of a new header right above the header. Below a blank line they would
    // belong to the stanza before, which can have further headers.
    void moveToNewHeader(std::string_view stanza)
    {
        Position const header = positionOf(stanza, "");
        if (header == entries_.end())
            return;
        Position first = header;
        while (first != entries_.begin() && std::prev(first)->kind == SideEntry::comment &&
               std::prev(first)->stanza == stanza && std::prev(first)->name.empty())
            --first;
        if (first != header)
            first->isBelowBlank = true;
        while (first != header)
            (++first)->isBelowBlank = false;
    }

    static bool isBelowBlankIn(std::vector<SideComment> const& comments, SideComment const& which)
    {
        auto const found = std::find(comments.begin(), comments.end(), which);
        return found != comments.end() && found->isBelowBlank;
    }

    // Returns the entry that new comments of a key or header are above.
    Position lineOf(Name const& owner, uint32_t place)
    {
        if (owner.first == kTopOfText && owner.second.empty())
            return startOfTop();
        if (owner.second.empty()) {
            auto const found = headers_.find(owner.first);
            if (found != headers_.end() && place < found->second.size())
                return found->second[place];
        }
        return positionOf(owner.first, owner.second);
    }

    NewStanzas const place_;
    MergeSide const& base_;
    MergeSide const& ours_;
    MergeSide const& theirs_;
    MergedContents const& contents_;
    EntryList& entries_;
    std::vector<Position> keyPositions_;              // of the keys of `ours`
    std::map<Name, Position> positions_;              // of headers and other keys
    std::vector<Position> comments_;                  // of the first side that stay, by owner
    std::vector<std::pair<Position, bool>> removed_;  // comments, and whether each was replaced
    std::map<std::string_view, std::vector<Position>> headers_;  // of each stanza of the first side
    bool hasRepeatedHeaders_ = false;                            // on the first side
    MovedComments movedComments_;
};

// Writes the entries into `document_`, which has views of the contents of both versions, but not of
// the objects of the sides.
class Writer {
public:
    Writer(MergeSide const& ours, MergeSide const& theirs, MergedContents const& contents,
           Document& document)
        : dialect_(ours.outline().dialect()),
          ours_(ours),
          theirs_(theirs),
          contents_(contents),
          document_(document)
    {
    }

    /// Returns the names of the written stanzas, in order.
    std::vector<std::string> write(EntryList const& entries)
    {
        document_.reserve(ours_.stanzas().size(), entries.size());
        document_.removesHeaderComments = true;
        document_.versions = {ours_.outline().text(), theirs_.outline().text()};
        std::vector<std::string> order{kTopOfText};
        std::map<std::string_view, std::vector<Section>> sections;
        std::vector<Section> lastComments;  // of each stanza but the last
        std::string_view current = kTopOfText;
        EntryList::const_iterator first = entries.begin();
        for (auto at = entries.begin(); at != entries.end(); ++at) {
            if (at->kind != SideEntry::header)
                continue;
            bool const isNew =
                at->stanza != kTopOfText && at->stanza != current && !sections.contains(at->stanza);
            // The comments right above a header end the stanza before its stanza, which can have
            // no line right above. Those above a repeated header belong to its stanza.
            auto const end = firstCommentOf(at, first);
            sections[current].emplace_back(first, end);
            if (isNew) {
                lastComments.emplace_back(end, at);
                order.emplace_back(at->stanza);
            } else {
                sections[at->stanza].emplace_back(end, at);
            }
            current = at->stanza;
            first = isNew ? at : std::next(at);
        }
        sections[current].emplace_back(first, entries.end());
        for (size_t i = 0; i < order.size(); ++i) {
            std::vector<Section>& parts = sections[order[i]];
            if (i < lastComments.size())
                parts.push_back(lastComments[i]);
            for (auto const& [begin, end] : parts)
                for (auto at = begin; at != end; ++at)
                    write(*at, order[i]);
        }
        return order;
    }

private:
    using Section = std::pair<EntryList::const_iterator, EntryList::const_iterator>;

    // Returns the position of the first comment right above a header, from `first` on.
    static EntryList::const_iterator firstCommentOf(EntryList::const_iterator header,
                                                    EntryList::const_iterator first)
    {
        auto const isComment = [&](SideEntry const& entry) {
            return entry.kind == SideEntry::comment && entry.stanza == header->stanza &&
                   entry.name.empty();
        };
        auto at = header;
        while (at != first && !at->isBelowBlank && isComment(*std::prev(at)))
            --at;
        return at;
    }

    // range   `document_` has the entry in `stanza`.
    void write(SideEntry const& entry, std::string_view stanza)
    {
        if (entry.kind == SideEntry::comment) {
            bool const isOfHeader = entry.name.empty() && entry.stanza == stanza;
            document_.addComment(entry.text, entry.isBelowBlank,
                                 isOfHeader ? entry.headerIndex : 0);
            document_.entries.back().isBelowComment = entry.isBelowComment && !entry.name.empty();
            document_.entries.back().isAtEnd = entry.stanza == kEndOfText;
            document_.entries.back().isMoved = entry.isMoved;
            return;
        }
        if (entry.kind == SideEntry::header) {
            SideStanza const* const ours = ours_.find(entry.stanza);
            std::string_view const spelled =
                (ours != nullptr ? ours : theirs_.find(entry.stanza))->spelled;
            bool const isName = !dialect_.joinsHeaders() ||
                                dialect_.comparableStanza(spelled, space_) == entry.stanza;
            document_.addStanza(keep(isName ? spelled : entry.stanza), entry.isBelowBlank);
            if (ours == nullptr && isName && !spelled.empty())
                document_.ownLines[spelled.data()] =
                    theirs_.outline().wholeLine(theirs_.find(entry.stanza)->header);
            return;
        }
        SideKey const ours = ours_.find(entry.stanza, entry.name);
        std::string_view const spelled =
            (ours ? ours : theirs_.find(entry.stanza, entry.name)).spelled();
        bool const isName = dialect_.comparableKey(spelled, space_) == entry.name;
        document_.addKey(keep(isName ? spelled : entry.name), entry.isBelowBlank);
        MergedKey const& key = *contents_.find(entry.stanza, entry.name);
        if (key.takesLines && isName && !key.side.hasValues() && !ours)
            document_.ownLines[spelled.data()] = key.side.textOf(key.side.firstLine());
        std::vector<uint32_t> const lines =
            key.takesLines ? key.side.valueLines() : std::vector<uint32_t>();
        size_t next = 0;
        if (key.side)
            key.side.forEachValue([&](std::string_view text) {
                document_.addValue(keep(text), lines.empty() ? std::string_view()
                                                             : key.side.textOf(lines[next++]));
            });
        for (MergedValue const& value : key.values)
            for (std::string const& text : value.ours.empty() ? value.theirs : value.ours)
                document_.addValue(keep(text));
    }

    // Returns a string that lives as long as both versions and `document_`.
    std::string_view keep(std::string_view view)
    {
        bool const isKept =
            isPartOf(ours_.outline().text(), view) || isPartOf(theirs_.outline().text(), view);
        return isKept ? view : document_.own(view);
    }

    Dialect const& dialect_;
    MergeSide const& ours_;
    MergeSide const& theirs_;
    MergedContents const& contents_;
    Document& document_;
    std::string space_;
};

// As rewrite(), with lines that are copied from the other side. If the result does not read back,
// no line is copied.
bool rewriteByLines(std::string_view ours, Dialect const& dialect, Document& document,
                    std::string& out)
{
    if (document.hasLines()) {
        try {
            TextHistory history;
            return rewrite(ours, dialect, document, history, out);
        } catch (Refusal const&) {
            document.dropLines();
            out.clear();
        }
    }
    TextHistory history;
    return rewrite(ours, dialect, document, history, out);
}

// Returns whether two versions have the same values in a stanza.
bool haveSameStanza(MergeSide const& ours, MergeSide const& theirs, std::string_view name)
{
    SideStanza const* const our = ours.find(name);
    SideStanza const* const their = theirs.find(name);
    if (our == nullptr || their == nullptr || our->keys.size() != their->keys.size())
        return our == their;
    return std::all_of(our->keys.begin(), our->keys.end(), [&](uint32_t index) {
        SideKey const key = ours.key(index);
        return key.hasSameValues(theirs.find(name, key.name()));
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

enum class Place { withStanza, anywhere };

// Returns the lines that are passed over, each with the comments above it and, for withStanza, with
// its stanza.
std::vector<std::string> linesPassedOver(std::string_view text, Dialect const& dialect, Place place)
{
    std::vector<std::string> found;
    Outline const outline(text, dialect);
    std::string stanza;
    std::string comments;
    std::string space;
    for (uint32_t line = 0; line < outline.lines().size(); ++line) {
        Line const& record = outline.lines()[line];
        if (record.kind == commentLine) {
            (comments += outline.comment(line)) += '\n';
            continue;
        }
        if (record.kind == blankLine)
            continue;
        if (record.kind == headerLine && place == Place::withStanza)
            (stanza = dialect.stanzaName(text, record, space)) += '\n';
        else if (record.kind == otherLine)
            found.push_back(stanza + comments + std::string(outline.wholeLine(line)));
        comments.clear();
    }
    return found;
}

}  // namespace

bool changesUnreadBytes(std::string_view base, std::string_view ours, std::string_view theirs)
{
    std::string const unread = unreadBytes(theirs);
    return unread != unreadBytes(base) && unread != unreadBytes(ours);
}

bool changesLinesPassedOver(std::string_view base, std::string_view ours, std::string_view theirs,
                            Dialect const& dialect)
{
    if (ours == base || theirs == base)
        return false;  // the merge takes a whole text
    std::vector<std::string> const passedOver = linesPassedOver(theirs, dialect, Place::withStanza);
    return passedOver != linesPassedOver(base, dialect, Place::withStanza) &&
           passedOver != linesPassedOver(ours, dialect, Place::withStanza);
}

bool losesLinesPassedOver(std::string_view base, std::string_view ours, std::string_view theirs,
                          std::string_view merged, Dialect const& dialect)
{
    std::vector<std::string> const before = linesPassedOver(base, dialect, Place::anywhere);
    std::vector<std::string> const our = linesPassedOver(ours, dialect, Place::anywhere);
    if (our == before)
        return false;
    std::map<std::string, ptrdiff_t> wanted;
    for (std::string const& line : our)
        ++wanted[line];
    for (std::string const& line : linesPassedOver(theirs, dialect, Place::anywhere))
        ++wanted[line];
    for (std::string const& line : before)
        --wanted[line];
    for (std::string const& line : linesPassedOver(merged, dialect, Place::anywhere))
        --wanted[line];
    return std::any_of(wanted.begin(), wanted.end(),
                       [](auto const& line) { return line.second > 0; });
}

namespace {

struct Attempt {
    NewStanzas place;
    bool renamesStanzas;
};

MergedText mergeAt(Attempt const& attempt, std::string_view base, std::string_view ours,
                   std::string_view theirs, Dialect const& dialect, std::string_view fixed)
{
    auto before = std::make_unique<MergeSide const>(base, dialect);
    auto our = std::make_unique<MergeSide>(ours, dialect, before.get(), MergeSide::withEntries);
    auto their = std::make_unique<MergeSide const>(theirs, dialect, before.get());
    if (ours == base && haveSameStanza(*our, *their, fixed))
        return {std::string(theirs), 0};
    auto contents = std::make_unique<MergedContents const>(*before, *our, *their, fixed);
    bool const isComplete = !contents->hasConflicts() && !contents->hasCopiedKeys();
    // A side needs more memory than its text, so it is released as soon as possible.
    Assembly(*before, *our, *their, *contents, attempt.place).assemble();
    before.reset();
    Document document;
    document.renamesStanzas = attempt.renamesStanzas;
    std::vector<std::string> const names =
        Writer(*our, *their, *contents, document).write(our->entries());
    if (isComplete) {
        contents.reset();
        their.reset();
        our.reset();
    }
    MergedText merged = {};
    if (!rewriteByLines(ours, dialect, document, merged.text))
        merged.text = ours;
    if (isComplete)
        return merged;
    if (contents->hasCopiedKeys())
        merged.text = copyKeys(merged.text, dialect, names, *contents, *their);
    if (contents->hasConflicts())
        merged.text =
            markConflicts(merged.text, dialect, names, *contents, *our, *their, merged.conflicts);
    return merged;
}

}  // namespace

MergedText mergeTexts(std::string_view base, std::string_view ours, std::string_view theirs,
                      Dialect const& dialect, std::string_view fixed)
{
    if (ours == theirs || theirs == base)
        return {std::string(ours), 0};
    bool const hasFixed = !fixed.empty() && (ours.find(fixed) != std::string_view::npos ||
                                             theirs.find(fixed) != std::string_view::npos);
    if (ours == base && !hasFixed)
        return {std::string(theirs), 0};
    // If headers are repeated, comments can belong to another stanza than the entries have them in.
    for (Attempt const& attempt :
         {Attempt{NewStanzas::afterLastHeader, true}, {NewStanzas::afterFirstHeader, true}})
        try {
            return mergeAt(attempt, base, ours, theirs, dialect, fixed);
        } catch (Refusal const& refusal) {
            if (refusal.reason == Refusal::leavesNoKey)
                throw;
        }
    return mergeAt({NewStanzas::afterLastHeader, false}, base, ours, theirs, dialect, fixed);
}

}  // namespace zlines
