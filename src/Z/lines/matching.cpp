#include "matching.h"

#include <algorithm>
#include <deque>
#include <iterator>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "alignment.h"
#include "name_hash.h"

namespace zlines {

namespace {

// Calls `call(line)` for each line of a key of a stanza, in order.
template <class Call>
void forEachKeyLine(Outline const& outline, ReadStanza const& stanza, Call call)
{
    for (uint32_t i = stanza.firstSection; i != kNone; i = outline.sections()[i].next)
        for (uint32_t line = outline.sections()[i].first; line < outline.sections()[i].end; ++line)
            if (outline.lines()[line].isKey())
                call(line);
}

// Bits: the lines next to an entry. A gap is a line that is not an entry, and not blank.
enum Neighbours : uint8_t { nothing = 0, blankAbove = 1, gapAbove = 2, partedBelow = 4 };
constexpr uint32_t kNeighbours = 8;  // sets of these

// A comment or a line of a key.
struct ReadLine {
    uint32_t line;
    uint8_t neighbours;
};

// The lines of a stanza above the next entry, as the reader counts them: a gap above a blank line
// is also above the comment that is right below that line.
class LinesAbove {
public:
    void addGap() { hasGap_ = true; }

    void addBlank()
    {
        hasBlank_ = true;
        isBlankBelowGap_ = std::exchange(hasGap_, false);
    }

    // Returns the neighbours above the next entry.
    uint8_t take(bool isComment)
    {
        bool const hasGap = hasGap_ || (isComment && isBlankBelowGap_);
        uint8_t const found = (hasBlank_ ? blankAbove : nothing) | (hasGap ? gapAbove : nothing);
        *this = {};
        return found;
    }

private:
    bool hasBlank_ = false;
    bool hasGap_ = false;
    bool isBlankBelowGap_ = false;
};

class Matcher {
public:
    Matcher(Outline& outline, Document const& document, Entries entries, bool isNextParted)
        : outline_(outline),
          document_(document),
          entries_(entries),
          isNextParted_(isNextParted),
          compared_(document.hasGaps ? blankAbove | gapAbove : blankAbove)
    {
        found_.lineOf.assign(entries.size(), kNone);
        found_.movedFrom.assign(entries.size(), kNone);
    }

    Matching match(ReadStanza const& stanza, bool isScattered, bool hasOldNames)
    {
        std::vector<ReadLine> const lines = findLines(stanza);
        auto const isRenamed = [](Entry const& entry) { return !entry.oldName.empty(); };
        bool const isAnyRenamed =
            hasOldNames && std::any_of(entries_.begin(), entries_.end(), isRenamed);
        selectAll(lines);
        if (!isAnyRenamed)
            matchEnds(lines);
        readLines(std::span(lines).subspan(firstLine_, endLine_ - firstLine_));
        if (isAnyRenamed)
            matchOldNames();
        matchNames();
        bool const isOrdered = matchRanges();
        matchCommentsAnywhere(isScattered || found_.isScattered || !isOrdered, hasOldNames);
        for (Item const& item : read_)
            if (!item.isKey && !isMatched_[&item - read_.data()])
                found_.removedComments.push_back(item.at);
        std::move(lastKeys_.rbegin(), lastKeys_.rend(), std::back_inserter(found_.keys));
        return std::move(found_);
    }

private:
    // A comment, or the first line of a key.
    struct Item {
        bool isKey;
        uint32_t at;   // the line in the text, or the wanted entry
        uint32_t key;  // of found_.keys; kNone: a comment, or not in the text
        uint8_t neighbours = nothing;
        uint32_t range = kNone;  // the number of its range
    };

    struct Range {
        uint32_t first;
        uint32_t end;

        bool isEmpty() const { return first == end; }
    };

    bool isComment(uint32_t line) const { return outline_.lines()[line].kind == commentLine; }

    // Returns the comments and the lines of keys of a stanza, in order. The further headers of the
    // stanza and the further lines of its keys are gaps.
    std::vector<ReadLine> findLines(ReadStanza const& stanza)
    {
        std::vector<ReadLine> found;
        bool const hasKeysInGaps = document_.hasGaps && hasComments(stanza);
        std::unordered_set<std::string_view, NameHash> keys;
        auto const isFurtherLine = [&](uint32_t line) {
            return hasKeysInGaps &&
                   !keys.insert(outline_.keep(outline_.keyName(line, space_), space_)).second;
        };
        LinesAbove above;
        size_t last = kNone;  // the entry above
        std::vector<Section> const& sections = outline_.sections();
        for (uint32_t i = stanza.firstSection; i != kNone; i = sections[i].next) {
            if (i != stanza.firstSection)
                above.addGap();
            for (uint32_t line = sections[i].first; line < sections[i].end; ++line) {
                Line const& read = outline_.lines()[line];
                if (read.kind == blankLine) {
                    above.addBlank();
                } else if (read.isKey() && isFurtherLine(line)) {
                    above.addGap();
                    found.push_back({line, nothing});
                } else if (read.isKey() || read.kind == commentLine) {
                    uint8_t const neighbours = above.take(read.kind == commentLine) & compared_;
                    if (last != kNone && neighbours != nothing)
                        found[last].neighbours |= partedBelow;
                    last = found.size();
                    found.push_back({line, neighbours});
                } else {
                    above.addGap();
                }
            }
        }
        if (last != kNone && (above.take(false) != nothing || !isAboveHeader(found[last].line)))
            found[last].neighbours |= partedBelow;
        return found;
    }

    bool isAboveHeader(uint32_t line) const
    {
        return line + 1 < outline_.lines().size() && outline_.lines()[line + 1].kind == headerLine;
    }

    bool hasComments(ReadStanza const& stanza) const
    {
        for (uint32_t i = stanza.firstSection; i != kNone; i = outline_.sections()[i].next)
            for (uint32_t line = outline_.sections()[i].first; line < outline_.sections()[i].end;
                 ++line)
                if (isComment(line))
                    return true;
        return false;
    }

    uint8_t neighboursOf(uint32_t entry) const
    {
        Entry const& wanted = entries_[entry];
        bool const isPartedBelow =
            entry + 1 < entries_.size() ? entries_[entry + 1].isParted() : isNextParted_;
        return (wanted.isBelowBlank ? blankAbove : nothing) |
               (wanted.isBelowGap ? gapAbove : nothing) | (isPartedBelow ? partedBelow : nothing);
    }

    bool isWithoutLine(Entry const& entry) const
    {
        return !entry.isComment && entry.valueCount == 0 && !entry.needsLine;
    }

    bool isSame(ReadLine const& read, uint32_t index)
    {
        Entry const& entry = entries_[index];
        if (isComment(read.line) != entry.isComment)
            return false;
        Dialect const& dialect = outline_.dialect();
        return entry.isComment ? dialect.commentText(entry.text) == outline_.comment(read.line) &&
                                     read.neighbours == neighboursOf(index)
                               : dialect.comparableKey(entry.text, entrySpace_) ==
                                     outline_.keyName(read.line, space_);
    }

    void selectAll(std::vector<ReadLine> const& lines)
    {
        firstLine_ = 0;
        firstEntry_ = 0;
        endLine_ = lines.size();
        endEntry_ = static_cast<uint32_t>(entries_.size());
    }

    // Matches the lines at both ends of the stanza that are in the order of the entries, without an
    // index. It holds the keys between them, which are few after most changes.
    void matchEnds(std::vector<ReadLine> const& lines)
    {
        while (firstLine_ < endLine_ && matchFirst(lines)) {
        }
        while (firstLine_ < endLine_ && matchLast(lines)) {
        }
        if (!haveKeysBetween(lines))
            return;
        // A key has lines there and at an end: match all.
        found_.keys.clear();
        lastKeys_.clear();
        found_.lineOf.assign(entries_.size(), kNone);
        selectAll(lines);
    }

    bool matchFirst(std::vector<ReadLine> const& lines)
    {
        uint32_t next = firstEntry_;
        while (next < endEntry_ && isWithoutLine(entries_[next]) &&
               !isSame(lines[firstLine_], next))
            ++next;
        if (next == endEntry_ || !isSame(lines[firstLine_], next))
            return false;
        found_.lineOf[next] = lines[firstLine_].line;
        firstEntry_ = next + 1;
        if (entries_[next].isComment) {
            ++firstLine_;
            return true;
        }
        ReadKey& key = found_.keys.emplace_back();
        key.entry = next;
        while (firstLine_ < endLine_ && isSame(lines[firstLine_], next))
            key.lines.push_back(lines[firstLine_++].line);
        return true;
    }

    bool matchLast(std::vector<ReadLine> const& lines)
    {
        if (firstEntry_ == endEntry_ || !isSame(lines[endLine_ - 1], endEntry_ - 1))
            return false;
        if (entries_[--endEntry_].isComment) {
            found_.lineOf[endEntry_] = lines[--endLine_].line;
            return true;
        }
        ReadKey& key = lastKeys_.emplace_back();
        key.entry = endEntry_;
        while (firstLine_ < endLine_ && isSame(lines[endLine_ - 1], endEntry_))
            key.lines.push_back(lines[--endLine_].line);
        std::reverse(key.lines.begin(), key.lines.end());
        found_.lineOf[endEntry_] = key.lines.front();
        return true;
    }

    // Returns whether a key at an end of the stanza has lines between the ends, too.
    bool haveKeysBetween(std::vector<ReadLine> const& lines)
    {
        std::unordered_map<std::string_view, uint32_t, NameHash> between;
        for (size_t i = firstLine_; i < endLine_; ++i)
            if (uint32_t const line = lines[i].line; !isComment(line))
                between.emplace(outline_.keep(outline_.keyName(line, space_), space_), 0);
        auto const isBetween = [&](ReadKey const& key) {
            return between.contains(outline_.keyName(key.lines.front(), space_));
        };
        return !between.empty() &&
               (std::any_of(found_.keys.begin(), found_.keys.end(), isBetween) ||
                std::any_of(lastKeys_.begin(), lastKeys_.end(), isBetween));
    }

    void readLines(std::span<ReadLine const> lines)
    {
        for (auto const& [line, neighbours] : lines) {
            if (isComment(line)) {
                read_.push_back({false, line, kNone, neighbours});
                continue;
            }
            std::string_view const name = outline_.keyName(line, space_);
            auto known = index_.find(name);
            if (known == index_.end()) {
                auto const key = static_cast<uint32_t>(found_.keys.size());
                known = index_.emplace(outline_.keep(name, space_), key).first;
                found_.keys.push_back({});
                read_.push_back({true, line, key});
            }
            found_.isScattered = found_.isScattered || read_.back().key != known->second;
            found_.keys[known->second].lines.push_back(line);
        }
        isMatched_.resize(read_.size());
    }

    void matchOldNames()
    {
        for (uint32_t i = 0; i < entries_.size(); ++i) {
            if (entries_[i].oldName.empty())
                continue;
            auto const known =
                index_.find(outline_.dialect().comparableKey(entries_[i].oldName, space_));
            if (known == index_.end() || found_.keys[known->second].entry != kNone)
                continue;
            assign(known->second, i);
            found_.keys[known->second].isRenamed = true;
            renamed_.emplace(i, known->second);
        }
    }

    void matchNames()
    {
        for (uint32_t i = firstEntry_; i < endEntry_; ++i) {
            Entry const& entry = entries_[i];
            if (entry.isComment) {
                wanted_.push_back({false, i, kNone, neighboursOf(i)});
                continue;
            }
            if (auto const renamed = renamed_.find(i); renamed != renamed_.end()) {
                wanted_.push_back({true, i, renamed->second});
                continue;
            }
            auto const known = index_.find(outline_.dialect().comparableKey(entry.text, space_));
            if (known != index_.end() && found_.keys[known->second].entry == kNone) {
                assign(known->second, i);
                wanted_.push_back({true, i, known->second});
            } else if (entry.valueCount > 0 || entry.needsLine) {
                wanted_.push_back({true, i, kNone});
            }
        }
    }

    void assign(uint32_t key, uint32_t entry)
    {
        found_.keys[key].entry = entry;
        found_.lineOf[entry] = found_.keys[key].lines.front();
    }

    // Returns whether all keys are in one order.
    bool matchRanges()
    {
        // The matched keys of both, and their items.
        std::vector<uint32_t> keys[2];
        std::vector<uint32_t> items[2];
        auto const collect = [&](std::vector<Item> const& all, int side) {
            for (uint32_t i = 0; i < all.size(); ++i)
                if (all[i].key != kNone && found_.keys[all[i].key].entry != kNone) {
                    keys[side].push_back(all[i].key);
                    items[side].push_back(i);
                }
        };
        collect(read_, 0);
        collect(wanted_, 1);
        Pairs const anchors = align(keys[0], keys[1], static_cast<uint32_t>(found_.keys.size()));
        Range read{0, 0};
        Range wanted{0, 0};
        uint32_t number = 0;
        auto const matchNext = [&] {
            for (uint32_t i = read.first; i < read.end; ++i)
                read_[i].range = number;
            for (uint32_t i = wanted.first; i < wanted.end; ++i)
                wanted_[i].range = number;
            ++number;
            matchRange(read, wanted);
        };
        for (auto const& [a, b] : anchors) {
            read.end = items[0][a];
            wanted.end = items[1][b];
            matchNext();
            read.first = read.end + 1;
            wanted.first = wanted.end + 1;
        }
        read.end = static_cast<uint32_t>(read_.size());
        wanted.end = static_cast<uint32_t>(wanted_.size());
        matchNext();
        return anchors.size() == keys[0].size();
    }

    // Finds the remaining comments anywhere in the stanza: they stay there or are moved. Comments
    // of one range are in another order than wanted, so they are moved.
    void matchCommentsAnywhere(bool areStaying, bool hasOldNames)
    {
        std::unordered_map<std::string_view, std::vector<uint32_t>, NameHash> left;  // last first
        for (auto i = static_cast<uint32_t>(read_.size()); i-- > 0;)
            if (!read_[i].isKey && !isMatched_[i])
                left[readText(read_[i])].push_back(i);
        for (uint32_t i = 0; i < wanted_.size() && !left.empty(); ++i) {
            if (wanted_[i].isKey || found_.lineOf[wanted_[i].at] != kNone)
                continue;
            auto const found = left.find(wantedText(wanted_[i]));
            if (found == left.end() || found->second.empty())
                continue;
            uint32_t const read = found->second.back();
            found->second.pop_back();
            if (areStaying && read_[read].range != wanted_[i].range &&
                !(hasOldNames && entries_[wanted_[i].at].isMoved))
                pair(read, i);
            else
                found_.movedFrom[wanted_[i].at] = read_[read].at;
        }
    }

    // Preferably, equal comments match if their neighbours are the same, and others match between
    // these.
    void matchRange(Range read, Range wanted)
    {
        while (!read.isEmpty() && !wanted.isEmpty() && areEqual(read.first, wanted.first))
            pair(read.first++, wanted.first++);
        while (!read.isEmpty() && !wanted.isEmpty() && areEqual(read.end - 1, wanted.end - 1))
            pair(--read.end, --wanted.end);
        Pairs const all = commonItems(read, wanted, textsAlone);
        Pairs const preferred = commonItemsByNeighbours(read, wanted);
        for (auto const& [a, b] : preferred.size() < all.size() ? all : preferred)
            pair(a, b);
    }

    // Returns a common subsequence of two ranges: first of comments with the same neighbours, and
    // then of comments between these.
    Pairs commonItemsByNeighbours(Range read, Range wanted)
    {
        Pairs all;
        Pairs anchors = commonItems(read, wanted, withNeighbours);
        anchors.push_back({read.end, wanted.end});
        for (auto const& [a, b] : anchors) {
            Pairs const between = commonItems({read.first, a}, {wanted.first, b}, textsAlone);
            all.insert(all.end(), between.begin(), between.end());
            if (a < read.end)
                all.push_back({a, b});
            read.first = a + 1;
            wanted.first = b + 1;
        }
        return all;
    }

    enum Equality { withNeighbours, textsAlone };

    // Returns the longest common subsequence of two ranges.
    Pairs commonItems(Range read, Range wanted, Equality equality)
    {
        if (read.isEmpty() || wanted.isEmpty())
            return {};
        tokens_.clear();
        joined_.clear();
        // Keys that match by name are in another order: they match nothing else.
        auto const tokensOf = [&](std::vector<Item> const& all, Range range, auto textOf,
                                  std::vector<uint32_t>& items) {
            std::vector<uint32_t> tokens;
            for (uint32_t i = range.first; i < range.end; ++i) {
                if (!isFree(all[i]))
                    continue;
                uint32_t const neighbours = equality == withNeighbours ? all[i].neighbours : 0;
                tokens.push_back(kNeighbours * tokens_.of(textOf(all[i])) + neighbours);
                items.push_back(i);
            }
            return tokens;
        };
        std::vector<uint32_t> items[2];
        auto const before = tokensOf(
            read_, read, [&](Item const& item) { return readText(item); }, items[0]);
        auto const after = tokensOf(
            wanted_, wanted, [&](Item const& item) { return wantedText(item); }, items[1]);
        Pairs pairs = align(before, after, kNeighbours * tokens_.count());
        for (auto& [a, b] : pairs) {
            a = items[0][a];
            b = items[1][b];
        }
        return pairs;
    }

    bool isFree(Item const& item) const
    {
        return item.key == kNone || found_.keys[item.key].entry == kNone;
    }

    bool areEqual(uint32_t read, uint32_t wanted)
    {
        Item const& a = read_[read];
        Item const& b = wanted_[wanted];
        if (a.isKey != b.isKey || !isFree(a) || !isFree(b))
            return false;
        joined_.clear();
        return a.neighbours == b.neighbours && readText(a) == wantedText(b);
    }

    void pair(uint32_t read, uint32_t wanted)
    {
        uint32_t const entry = wanted_[wanted].at;
        if (read_[read].isKey) {
            found_.keys[read_[read].key].isRenamed = true;
            assign(read_[read].key, entry);
        } else {
            found_.lineOf[entry] = read_[read].at;
            isMatched_[read] = true;
        }
    }

    // Return the text of a comment, or the values of a key. No comment starts with a newline.
    std::string_view readText(Item const& item)
    {
        if (!item.isKey)
            return outline_.comment(item.at);
        std::string& all = joined_.emplace_back();
        for (uint32_t const line : found_.keys[item.key].lines)
            if (outline_.lines()[line].kind == valueLine)
                (all += '\n') += outline_.value(line, space_);
        return all.empty() ? all = "\n\n" : all;
    }

    std::string_view wantedText(Item const& item)
    {
        Entry const& entry = entries_[item.at];
        if (!item.isKey)
            return outline_.dialect().commentText(entry.text);
        std::string& all = joined_.emplace_back();
        for (uint32_t i = 0; i < entry.valueCount; ++i)
            (all += '\n') += document_.values[entry.firstValue + i];
        return all.empty() ? all = "\n\n" : all;
    }

    Outline& outline_;
    Document const& document_;
    Entries const entries_;
    bool const isNextParted_;
    uint8_t const compared_;  // neighbours above
    Matching found_;
    size_t firstLine_ = 0;  // of the lines between both ends
    size_t endLine_ = 0;
    uint32_t firstEntry_ = 0;  // of the entries between them
    uint32_t endEntry_ = 0;
    std::vector<ReadKey> lastKeys_;  // at the end of the stanza, the last first
    std::unordered_map<std::string_view, uint32_t, NameHash> index_;  // of the keys between
    std::unordered_map<uint32_t, uint32_t> renamed_;  // entries whose key has an old name, by entry
    std::vector<Item> read_;
    std::vector<Item> wanted_;
    std::vector<bool> isMatched_;  // of each item of the text
    Tokens tokens_;
    std::deque<std::string> joined_;
    std::string space_;
    std::string entrySpace_;
};

}  // namespace

Matching matchLines(Outline& outline, ReadStanza const& stanza, Document const& document,
                    Entries entries, bool isNextParted, bool isScattered, bool hasOldNames)
{
    return Matcher(outline, document, entries, isNextParted)
        .match(stanza, isScattered, hasOldNames);
}

bool isSameStanza(Outline& outline, ReadStanza const& stanza, Document const& document,
                  Entries entries)
{
    std::string space;
    struct Wanted {
        Entry const* entry;
        uint32_t index;  // of the next value
    };
    std::unordered_map<std::string_view, Wanted, NameHash> wanted;
    size_t wantedLines = 0;
    for (Entry const& entry : entries) {
        if (entry.isComment)
            continue;
        std::string_view const name = outline.dialect().comparableKey(entry.text, space);
        wanted.emplace(outline.keep(name, space), Wanted{&entry, 0});
        wantedLines += std::max(entry.valueCount, 1u);
    }
    size_t lines = 0;
    size_t common = 0;
    forEachKeyLine(outline, stanza, [&](uint32_t line) {
        ++lines;
        auto const found = wanted.find(outline.keyName(line, space));
        if (found == wanted.end())
            return;
        auto& [entry, index] = found->second;
        if (outline.lines()[line].kind != valueLine)
            common += entry->valueCount == 0 ? 1 : 0;
        else if (index < entry->valueCount)
            common += outline.value(line, space) == document.values[entry->firstValue + index++];
    });
    return 2 * common >= std::max(lines, wantedLines);
}

}  // namespace zlines
