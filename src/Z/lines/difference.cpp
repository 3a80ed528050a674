#include "difference.h"

#include <algorithm>
#include <new>

#include "separate_stanzas.h"

namespace zlines {

namespace {

// Returns whether a key has no line: its values are in the companion.
bool isWithoutLine(Entry const& entry)
{
    return !entry.isComment && entry.valueCount == 0 && !entry.needsLine;
}

}  // namespace

Difference::Difference(std::string_view text, Dialect const& dialect, Document const& document,
                       TextHistory const& history, Names names, Steps steps)
    : text_(text),
      dialect_(dialect),
      document_(document),
      outline_(text, dialect, history.movedComments),
      edits_(text),
      names_(names),
      isScattered_(history.isScattered),
      headerComments_(history.headerComments)
{
    outline_.moveHeaderComments(headerComments_);
    matchStanzas();
    removeStanzas();
    for (uint32_t i = 0; i < readOf_.size(); ++i) {
        if (readOf_[i] == kNone || (i > 0 && readOf_[i] == 0))
            continue;
        stanzaName_ = nameOf(i);
        Entries const entries = entriesOf(i);
        if (!compareInOrder(entries, outline_.stanzas()[readOf_[i]]))
            reordered_.push_back({i, readOf_[i], entries, {}, {}});
    }
    if (!reordered_.empty())
        gone_.resize(outline_.lines().size());
    for (Reordered& stanza : reordered_)
        compareLines(stanza);
    isPartial_ = steps == removalsFirst && addsAfterRemovals();
    if (isPartial_) {
        removeBlankAtStart();
        return;
    }
    auto next = reordered_.begin();
    for (uint32_t i = 0; i < readOf_.size(); ++i) {
        stanzaName_ = nameOf(i);
        if (readOf_[i] == kNone) {
            addStanza(i);
        } else if (next != reordered_.end() && next->stanza == i) {
            place(*next++);
        }
    }
    removeBlankAtStart();
}

// Removes the blank lines between the comment of the file and the rest, if the comment was removed
// and not replaced. They stay above a comment of no key or header, which would become the comment
// of the file without them.
void Difference::removeBlankAtStart()
{
    std::vector<Line> const& lines = outline_.lines();
    uint32_t end = 0;
    while (end < gone_.size() && gone_[end] && lines[end].kind == commentLine)
        ++end;
    uint32_t below = end;
    while (below < lines.size() && isBlank(below) && !isGone(below))
        ++below;
    if (end == 0 || below == end || below == lines.size() || isGone(below) ||
        edits_.writesUpTo(lines[below].begin))
        return;
    uint32_t next = below;
    while (next < lines.size() && lines[next].kind == commentLine)
        ++next;
    if (next > below &&
        (next == lines.size() || !(lines[next].isKey() || lines[next].kind == headerLine)))
        return;
    edits_.replace({lines[end].begin, outline_.endOf(below - 1), {}});
}

// Returns whether keys or stanzas are removed and others are new, so that the places and the style
// of the new lines depend on the removed lines. New lines have the style of the lines that they
// replace if no key stays, if a stanza is removed and added again, or if they are comments; a key
// right below the only key of its stanza has its place, and so has a key below a line that is
// passed over.
bool Difference::addsAfterRemovals()
{
    bool removesKeys = false;
    bool keepsKeys = false;
    for (uint32_t line = 0; line < gone_.size(); ++line) {
        bool const isKey = outline_.lines()[line].isKey();
        removesKeys =
            removesKeys || (gone_[line] && (isKey || outline_.lines()[line].kind == headerLine));
        keepsKeys = keepsKeys || (!gone_[line] && isKey);
    }
    if (!removesKeys || !keepsKeys)
        return false;
    bool isAdding = false;
    for (uint32_t i = 1; i < readOf_.size(); ++i) {
        if (readOf_[i] != kNone)
            continue;
        isAdding = true;
        std::string_view const name =
            dialect_.comparableStanza(document_.stanzas[i].name, nameSpace_);
        if (outline_.find(name, i) != kNone)
            return false;
    }
    for (Reordered const& stanza : reordered_) {
        for (size_t i = 0; i < stanza.entries.size(); ++i) {
            Entry const& entry = stanza.entries[i];
            if (stanza.lineOf[i] != kNone || isWithoutLine(entry))
                continue;
            uint32_t const above = i == 0 ? kNone : stanza.lineOf[i - 1];
            if (!entry.isComment &&
                removedKeyBelow(above, outline_.stanzas()[stanza.read], entry.text) != kNone)
                return false;
            if (entry.isComment
                    ? stanza.movedFrom[i] != kNone || removesComments_
                    : entry.isBelowRemoved && lastKeyLine(outline_.stanzas()[stanza.read]) == kNone)
                return false;
            isAdding = isAdding || !entry.isComment;
        }
    }
    return isAdding;
}

// Returns the removed key line of a stanza below the entry `after`, a comment, if only blank lines,
// lines that are passed over and a repeated header are between, and at least one of them. Returns
// kNone if the comment is a template of the new key, which is right below it then.
uint32_t Difference::removedKeyBelow(uint32_t after, ReadStanza const& stanza,
                                     std::string_view key) const
{
    std::vector<Line> const& lines = outline_.lines();
    if (gone_.empty() || after == kNone || lines[after].kind != commentLine)
        return kNone;
    uint32_t line = after + 1;
    while (line < lines.size() &&
           (isBlank(line) || lines[line].kind == otherLine || lines[line].kind == headerLine))
        ++line;
    if (line == after + 1 || line == lines.size() || !lines[line].isKey() || !isGone(line))
        return kNone;
    uint32_t const section = outline_.sectionIndexOf(line);
    uint32_t own = stanza.firstSection;
    while (own != kNone && own != section)
        own = outline_.sections()[own].next;
    if (own == kNone)
        return kNone;
    for (uint32_t above = after; lines[above].kind == commentLine; --above) {
        if (isTemplateOf(outline_, above, key))
            return kNone;
        if (above == 0)
            break;
    }
    return line;
}

// Returns the name of a wanted stanza. The lines above the first header may have one, too.
std::string_view Difference::nameOf(uint32_t stanza) const
{
    return stanza == 0 ? dialect_.topStanza() : document_.stanzas[stanza].name;
}

// Returns whether a wanted stanza has another name in the text.
bool Difference::isRenamed(uint32_t stanza) const
{
    return names_ == oldNames && !document_.stanzas[stanza].oldName.empty();
}

// Returns the stanza of the text for each wanted stanza, or kNone. A stanza that was renamed is
// found by its old name, and no other stanza is.
std::vector<uint32_t> Difference::findStanzas()
{
    if (!dialect_.joinsHeaders() && !(names_ == oldNames && document_.hasOldNames))
        return matchSeparateStanzas(outline_, document_);
    std::vector<uint32_t> found(document_.stanzas.size(), kNone);
    std::vector<bool> isFound;  // of each stanza of the text, by its old name
    for (uint32_t i = 1; i < found.size(); ++i) {
        if (!isRenamed(i))
            continue;
        std::string_view const name =
            dialect_.comparableStanza(document_.stanzas[i].oldName, nameSpace_);
        uint32_t const read = outline_.find(name, i);
        isFound.resize(outline_.stanzas().size());
        if (read == kNone || read == 0 || isFound[read])
            continue;
        isFound[read] = true;
        found[i] = read;
    }
    for (uint32_t i = 1; i < found.size(); ++i) {
        if (found[i] != kNone)
            continue;
        std::string_view const name =
            dialect_.comparableStanza(document_.stanzas[i].name, nameSpace_);
        uint32_t const read = outline_.find(name, i);
        if (read != kNone && (isFound.empty() || !isFound[read]))
            found[i] = read;
    }
    return found;
}

// Finds each wanted stanza in the text. A stanza that was removed and added again follows the other
// wanted stanzas. If its old position in the text is earlier, it is removed there and added again.
void Difference::matchStanzas()
{
    readOf_.resize(document_.stanzas.size(), kNone);
    readOf_[0] = 0;
    outline_.stanzas()[0].isKept = true;
    headed_ = findRenamedTop();
    uint32_t last = 0;
    std::vector<uint32_t> const found = findStanzas();
    for (uint32_t i = 1; i < readOf_.size(); ++i) {
        uint32_t const read = found[i];
        if (i == headed_) {
            readOf_[i] = 0;
            insertTopHeader();
            continue;
        }
        if (read == kNone || (read != 0 && read <= last))
            continue;
        last = read == 0 ? last : read;
        readOf_[i] = read;
        outline_.stanzas()[read].isKept = true;
        if (isRenamed(i) && hasOtherName(outline_.stanzas()[read], document_.stanzas[i].name))
            renameHeaders(outline_.stanzas()[read], document_.stanzas[i].name);
        else if (document_.stanzas[i].hasNewName)
            respellHeaders(outline_.stanzas()[read], document_.stanzas[i].name);
    }
    if (document_.renamesStanzas)
        matchRenamedStanzas();
    nextKept_.resize(readOf_.size());
    uint32_t next = kNone;
    for (auto i = static_cast<uint32_t>(readOf_.size()); i-- > 0;) {
        nextKept_[i] = next;
        if (readOf_[i] != kNone && readOf_[i] != 0)
            next = i;
    }
}

// Returns the wanted stanza of the keys above the first header, if it was renamed and has keys in
// the text, and no other stanza takes its name; otherwise kNone.
uint32_t Difference::findRenamedTop()
{
    std::string_view const top = dialect_.topStanza();
    auto const isKey = [](Line const& line) { return line.isKey(); };
    auto const first = outline_.lines().begin();
    if (top.empty() || names_ != oldNames ||
        std::none_of(first, first + outline_.sections()[0].end, isKey))
        return kNone;
    uint32_t found = kNone;
    for (uint32_t i = 1; i < document_.stanzas.size(); ++i) {
        if (dialect_.comparableStanza(document_.stanzas[i].name, nameSpace_) == top)
            return kNone;
        if (isRenamed(i) &&
            dialect_.comparableStanza(document_.stanzas[i].oldName, nameSpace_) == top)
            found = i;
    }
    return found;
}

// Inserts a header above the first key and the comment right above that key.
void Difference::insertTopHeader()
{
    std::vector<Line> const& lines = outline_.lines();
    std::string_view const name = document_.stanzas[headed_].name;
    topHeader_ = 0;
    while (!lines[topHeader_].isKey())
        ++topHeader_;
    topHeader_ = outline_.firstCommentAbove(0, topHeader_);
    record(name, {}, {});
    if (hasHeaderComments())
        renamedStanzas_[dialect_.topStanza()] = dialect_.comparableStanza(name, nameSpace_);
    std::string_view const ending =
        outline_.lineEndingAfter(topHeader_ == 0 ? kNone : topHeader_ - 1);
    std::string header;
    dialect_.appendHeader(name, header);
    header += ending;
    edits_.insertLines(lines[topHeader_].begin, std::move(header), ending, Edits::topHeader);
}

// Finds stanzas that were renamed: they are between the same stanzas in both, and their contents
// are mostly the same.
void Difference::matchRenamedStanzas()
{
    constexpr uint32_t kMaxTries = 16;  // stanzas of the text for each wanted stanza
    std::vector<ReadStanza>& stanzas = outline_.stanzas();
    uint32_t first = 1;
    for (uint32_t i = 1; i < readOf_.size(); ++i) {
        for (uint32_t read = first; readOf_[i] == kNone && read < stanzas.size() &&
                                    !stanzas[read].isKept && read < first + kMaxTries;
             ++read) {
            Stanza const& wanted = document_.stanzas[i];
            Entries const entries =
                Entries(document_.entries).subspan(wanted.firstEntry, wanted.entryCount);
            if (!isSameStanza(outline_, stanzas[read], document_, entries))
                continue;
            readOf_[i] = read;
            stanzas[read].isKept = true;
            renameHeaders(stanzas[read], wanted.name);
        }
        if (readOf_[i] != kNone && readOf_[i] != 0)
            first = readOf_[i] + 1;
    }
}

// Renames the headers of a stanza that have another spelling of its name.
void Difference::respellHeaders(ReadStanza const& stanza, std::string_view name)
{
    if (!dialect_.foldsNames() || !dialect_.joinsHeaders())
        return;
    for (uint32_t i = stanza.firstSection; i != kNone; i = outline_.sections()[i].next) {
        uint32_t const header = outline_.sections()[i].header;
        if (header == kNone ||
            dialect_.writtenStanza(text_, outline_.lines()[header], nameSpace_) == name)
            continue;
        record(name, {}, {});
        renameHeader(header, name);
    }
}

// Returns whether the headers of a stanza have another name, apart from its number.
bool Difference::hasOtherName(ReadStanza const& stanza, std::string_view name)
{
    std::string_view const wanted = dialect_.comparableStanza(name, nameSpace_);
    return dialect_.joinsHeaders() ? stanza.name != wanted
                                   : withoutNumber(stanza.name) != withoutNumber(wanted);
}

// Returns whether the text after the changes can have comments whose stanzas must be known.
bool Difference::hasHeaderComments() const
{
    return !headerComments_.empty() || outline_.sectionCount() != outline_.stanzas().size();
}

void Difference::renameHeader(uint32_t header, std::string_view name)
{
    Line const& read = outline_.lines()[header];
    Replacement change = dialect_.renameHeader(text_, read, name);
    if (change.commentBytes > 0)
        edits_.moveComments(splitComments(read, read.nameBegin(), change));
    edits_.replace(std::move(change));
}

void Difference::renameHeaders(ReadStanza const& stanza, std::string_view name)
{
    record(name, {}, {});
    if (hasHeaderComments())
        renamedStanzas_[stanza.name] = dialect_.comparableStanza(name, nameSpace_);
    for (uint32_t i = stanza.firstSection; i != kNone; i = outline_.sections()[i].next) {
        uint32_t const header = outline_.sections()[i].header;
        if (header != kNone)
            renameHeader(header, name);
    }
}

// Removes stanzas, but not the comments right above the next header: they join the lines of the
// stanza before. Those above a repeated header of the stanza itself stay as lines of no meaning,
// unless a stanza that is removed after it would have them.
void Difference::removeStanzas()
{
    std::vector<ReadStanza>& stanzas = outline_.stanzas();
    if (std::all_of(stanzas.begin(), stanzas.end(),
                    [](ReadStanza const& stanza) { return stanza.isKept; }))
        return;
    gone_.resize(outline_.lines().size());
    std::vector<uint32_t> const stanzaOf = outline_.stanzasOfSections();
    std::vector<uint32_t> stanzaAbove(stanzaOf.size(), 0);  // the nearest other stanza
    for (size_t i = 1; i < stanzaOf.size(); ++i)
        stanzaAbove[i] = stanzaOf[i - 1] == stanzaOf[i] ? stanzaAbove[i - 1] : stanzaOf[i - 1];
    uint32_t kept = 0;
    for (uint32_t i = 1; i < stanzas.size(); ++i) {
        if (stanzas[i].isKept)
            kept = i;
        else
            removeStanza(i, kept, stanzaOf, stanzaAbove);
    }
    removeRanges();
}

void Difference::removeStanza(uint32_t removed, uint32_t kept,
                              std::vector<uint32_t> const& stanzaOf,
                              std::vector<uint32_t> const& stanzaAbove)
{
    ReadStanza const& stanza = outline_.stanzas()[removed];
    record(stanza.name, {}, {});
    for (uint32_t i = stanza.firstSection; i != kNone; i = outline_.sections()[i].next) {
        Section const section = outline_.sections()[i];
        bool const isLast = i == stanza.lastSection;
        bool const hasNextComment = section.end < outline_.lines().size() &&
                                    outline_.lines()[section.end].kind == headerLine;
        uint32_t const comment =
            hasNextComment ? outline_.firstCommentAbove(section.first, section.end) : section.end;
        uint32_t const first = section.header == kNone ? section.first : section.header;
        bool const hasComment = comment < section.end;
        uint32_t const at = hasComment ? outline_.sectionIndexOf(comment) : 0;
        uint32_t const around = stanzaOf[at] == removed ? stanzaAbove[at] : stanzaOf[at];
        bool const isInLater = !isLast && around > removed && !outline_.stanzas()[around].isKept;
        bool const isOfHeader = document_.removesHeaderComments && hasNextComment &&
                                i + 1 < stanzaOf.size() && stanzaOf[i + 1] == removed;
        uint32_t const end = isInLater || isOfHeader ? section.end : comment;
        dropsComments_ = dropsComments_ || isInLater;
        if (first < end) {
            std::fill(gone_.begin() + first, gone_.begin() + end, true);
            removedRanges_.push_back({first, end, removed});
        }
        if (isLast && hasComment)
            moveToEnd(outline_.stanzas()[kept], comment, section.end);
        for (uint32_t line = end; !isLast && line < section.end; ++line)
            leftComments_.push_back(outline_.lines()[line].begin);
    }
}

// Moves the comment from the line `first` to the header `end`, which can be removed, to the end of
// a stanza. That stanza can have lines below.
void Difference::moveToEnd(ReadStanza& stanza, uint32_t first, uint32_t end)
{
    std::vector<Line> const& lines = outline_.lines();
    if (hasHeaderComments()) {
        HeaderComment comment{lines[first].begin, lines[end].begin, std::string(stanza.name),
                              false};
        auto const isBefore = [](HeaderComment const& a, HeaderComment const& b) {
            return a.end < b.end;
        };
        auto const known =
            std::lower_bound(headerComments_.begin(), headerComments_.end(), comment, isBefore);
        if (known != headerComments_.end() && known->end == comment.end)
            *known = std::move(comment);
        else
            headerComments_.insert(known, std::move(comment));
    }
    outline_.appendSection(stanza, stanza.lastSection, first, end);
}

// Removes the lines of removed stanzas. A blank line stays between a comment above them and a
// comment or header below, which the comment would otherwise describe: their last blank line, or a
// new one. If a comment is removed with the second of two stanzas, the blank line also stays above
// the lines of the second.
void Difference::removeRanges()
{
    std::vector<Line> const& lines = outline_.lines();
    std::sort(removedRanges_.begin(), removedRanges_.end(),
              [](RemovedRange const& a, RemovedRange const& b) { return a.first < b.first; });
    for (size_t i = 0; i < removedRanges_.size(); ++i) {
        uint32_t first = removedRanges_[i].first;
        uint32_t end = removedRanges_[i].end;
        uint32_t const stanza = removedRanges_[i].stanza;
        auto const hasNext = [&] {
            return i + 1 < removedRanges_.size() && removedRanges_[i + 1].first == end;
        };
        while (hasNext() && (!dropsComments_ || removedRanges_[i + 1].stanza <= stanza))
            end = removedRanges_[++i].end;
        if (first > 0 && lines[first - 1].kind == commentLine && end < lines.size() &&
            (lines[end].kind == commentLine || lines[end].kind == headerLine)) {
            bool const isLastBlank = isBlank(end - 1);
            edits_.removeStanza(lines[first].begin, lines[isLastBlank ? end - 1 : end].begin);
            if (isLastBlank) {
                gone_[end - 1] = false;
            } else {
                blanks_.push_back(end - 1);
                edits_.replace({lines[end].begin, lines[end].begin,
                                std::string(outline_.lineEndingAfter(first - 1))});
            }
            first = end;
        }
        while (hasNext())
            end = removedRanges_[++i].end;
        if (first < end)
            edits_.removeStanza(lines[first].begin, outline_.endOf(end - 1));
    }
}

// Returns whether a line is removed with its stanza.
bool Difference::isInRemovedStanza(uint32_t line) const
{
    auto const next =
        std::upper_bound(removedRanges_.begin(), removedRanges_.end(), line,
                         [](uint32_t at, RemovedRange const& range) { return at < range.first; });
    return next != removedRanges_.begin() && line < next[-1].end;
}

// Returns whether a removed stanza is above a new line after the line `after`, apart from a removed
// comment.
bool Difference::isBelowRemovedStanza(uint32_t after) const
{
    while (after != kNone && isGone(after) && outline_.lines()[after].kind == commentLine &&
           !isInRemovedStanza(after))
        after = after == 0 ? kNone : after - 1;
    return after != kNone && isGone(after) && isInRemovedStanza(after);
}

// Returns whether a blank line replaces the removed lines up to a line.
bool Difference::becomesBlank(uint32_t line) const
{
    return std::binary_search(blanks_.begin(), blanks_.end(), line);
}

// Returns the entries of a stanza. If a stanza has the keys above the first header, its entries
// follow the comments there.
Entries Difference::entriesOf(uint32_t stanza)
{
    auto const of = [&](Stanza const& part) {
        return Entries(document_.entries).subspan(part.firstEntry, part.entryCount);
    };
    if (stanza != 0 || dialect_.topStanza().empty())
        return of(document_.stanzas[stanza]);
    for (uint32_t i = 0; i < readOf_.size(); ++i)
        if (readOf_[i] == 0)
            for (Entry const& entry : of(document_.stanzas[i]))
                topEntries_.push_back(entry);
    return topEntries_;
}

bool Difference::hasKey(Entry const& entry, uint32_t line)
{
    return dialect_.writtenKey(text_, outline_.lines()[line], keySpace_) == entry.text ||
           dialect_.comparableKey(entry.text, nameSpace_) == outline_.keyName(line, keySpace_);
}

// Returns whether a line of a key has another spelling of a name that was set.
bool Difference::isRespelled(Entry const& entry, uint32_t line)
{
    return entry.hasNewName && dialect_.foldsNames() &&
           dialect_.writtenKey(text_, outline_.lines()[line], nameSpace_) != entry.text;
}

// Compares lines and entries pairwise, and replaces values. Returns false, and changes nothing, if
// their order differs.
bool Difference::compareInOrder(Entries entries, ReadStanza const& read)
{
    if (names_ == oldNames && std::any_of(entries.begin(), entries.end(), [](Entry const& entry) {
            return !entry.oldName.empty();
        }))
        return false;
    size_t const count = edits_.count();
    size_t const proven = provenEdits_;
    bool const hadFirst = hasFirst_;
    auto const fail = [&] {
        edits_.truncate(count);
        provenEdits_ = proven;
        hasFirst_ = hadFirst;
        return false;
    };
    size_t next = 0;
    auto const skipTo = [&](auto isWanted) {
        while (next < entries.size() && isWithoutLine(entries[next]) && !isWanted(entries[next]))
            ++next;
        return next < entries.size() && isWanted(entries[next]);
    };
    for (uint32_t i = read.firstSection; i != kNone; i = outline_.sections()[i].next) {
        Section const& section = outline_.sections()[i];
        for (uint32_t line = section.first; line < section.end;) {
            if (outline_.lines()[line].kind == commentLine) {
                if (!skipTo([](Entry const& entry) { return entry.isComment; }) ||
                    dialect_.commentText(entries[next].text) != outline_.comment(line))
                    return fail();
                compareSpaces(line, entries[next++].text);
                ++line;
            } else if (outline_.lines()[line].isKey()) {
                if (!skipTo([&](Entry const& entry) {
                        return !entry.isComment && hasKey(entry, line);
                    }) ||
                    !compareKey(entries[next], line, section.end))
                    return fail();
                ++next;
            } else {
                ++line;
            }
        }
    }
    skipTo([](Entry const&) { return false; });
    return next == entries.size() ? true : fail();
}

// Compares the lines of one key from its line `line` on with its values, and stores the first line
// of another key. Returns false if the numbers of values differ, if several values do, or if a
// value does not read back.
bool Difference::compareKey(Entry const& entry, uint32_t& line, uint32_t end)
{
    uint32_t const first = line;
    uint32_t count = 0;
    do
        count += outline_.lines()[line++].kind == valueLine ? 1 : 0;
    while (line < end && outline_.lines()[line].isKey() && hasKey(entry, line));
    if (count != entry.valueCount)
        return false;
    for (uint32_t at = first; at < line; ++at)
        if (isRespelled(entry, at))
            renameKey(at, entry);
    for (uint32_t at = first, index = 0; at < line; ++at) {
        if (outline_.lines()[at].kind != valueLine)
            continue;
        std::string_view const copied = lineOf(entry, index);
        std::string_view const value = valueOf(entry, index++);
        if (outline_.value(at, valueSpace_) == value)
            continue;
        if (count > 1)
            return false;
        try {
            setValue(at, value, copied);
        } catch (Refusal const&) {
            return false;  // the key may have further lines below other keys
        }
    }
    return true;
}

std::string Difference::compose(TextHistory& history)
{
    history.isScattered = isScattered_;
    history.movedComments.insert(history.movedComments.end(), leftComments_.begin(),
                                 leftComments_.end());
    std::sort(history.movedComments.begin(), history.movedComments.end());
    history.headerComments = headerComments_;
    for (HeaderComment& comment : history.headerComments) {
        auto const renamed = renamedStanzas_.find(comment.stanza);
        if (renamed != renamedStanzas_.end())
            comment.stanza = renamed->second;
    }
    return edits_.compose(history);
}

// Returns the line above a position after the removal of lines: the line `after` or, if it is
// removed, a line above it that stays or becomes blank. kNone: at the start.
uint32_t Difference::lineAbove(uint32_t after) const
{
    while (after != kNone && isGone(after) && !becomesBlank(after))
        after = after == 0 ? kNone : after - 1;
    return after;
}

bool Difference::isBelowBlank(uint32_t after) const
{
    uint32_t const above = lineAbove(after);
    return above == kNone || becomesBlank(above) || isBlank(above);
}

bool Difference::isAboveBlank(uint32_t after) const
{
    uint32_t below = after == kNone ? 0 : after + 1;
    while (below < outline_.lines().size() && isGone(below) && !becomesBlank(below))
        ++below;
    return below >= outline_.lines().size() || becomesBlank(below) || isBlank(below);
}

// Returns whether a comment is above a new line after the line `after`. A removed key parts them,
// as if it was removed later.
bool Difference::isBelowComment(uint32_t after) const
{
    if (after != kNone && isGone(after) && outline_.lines()[after].isKey())
        return false;
    uint32_t const above = lineAbove(after);
    return above != kNone && !isGone(above) && outline_.lines()[above].kind == commentLine;
}

void Difference::requireValidText(Refusal const& change) const
{
    uint32_t const header = outline_.repeatedHeader();
    std::string space;
    if (header != kNone)
        throw Refusal{
            std::string(dialect_.stanzaName(text_, outline_.lines()[header], space)), {}, {}};
    auto const isKey = [](Line const& line) { return line.isKey(); };
    if (outline_.sectionCount() == 1 && !text_.empty() &&
        std::none_of(outline_.lines().begin(), outline_.lines().end(), isKey) &&
        !dialect_.acceptsWithoutKeys(text_))
        throw Refusal{change.stanza, change.key, change.value, Refusal::leavesNoKey};
}

void Difference::record(std::string_view stanza, std::string_view key, std::string_view value)
{
    if (hasFirst_)
        return;
    hasFirst_ = true;
    first_ = {std::string(stanza), std::string(key), std::string(value)};
}

namespace {

// As rewrite(), with the changes of `difference`.
bool rewriteBy(Difference& difference, Dialect const& dialect, Document const& document,
               TextHistory& history, std::string& out)
{
    if (!difference.isEmpty())
        out = difference.compose(history);
    if (out.size() >= kNone)
        throw std::bad_alloc();
    if (difference.isProven()) {
        difference.requireValidText(difference.first());
        return !difference.isEmpty();
    }
    Difference const remaining(out, dialect, document, history, Difference::presentNames,
                               Difference::oneStep);
    remaining.requireValidText(difference.first());
    if (remaining.isEmpty() && difference.hasValidLines() && !remaining.hasValidLines())
        throw difference.first();
    if (!remaining.isEmpty())
        throw difference.count() == 1 ? difference.first() : remaining.first();
    return true;
}

// Makes the changes that are not in `removals` in the text after it. Returns false, and changes
// nothing, if they would not read back.
bool rewriteAfter(Difference& removals, Dialect const& dialect, Document const& document,
                  TextHistory& history, std::string& out)
{
    TextHistory changed = history;
    std::string const left = removals.compose(changed);
    try {
        Difference additions(left, dialect, document, changed, Difference::presentNames,
                             Difference::oneStep);
        if (removals.hasValidLines() && !additions.hasValidLines())
            return false;  // the additions must not replace an invalid line
        std::string all;
        rewriteBy(additions, dialect, document, changed, all);
        out = std::move(all);
    } catch (Refusal const&) {
        return false;
    }
    history = std::move(changed);
    return true;
}

}  // namespace

bool rewrite(std::string_view text, Dialect const& dialect, Document const& document,
             TextHistory& history, std::string& out)
{
    Difference difference(text, dialect, document, history, Difference::oldNames,
                          Difference::removalsFirst);
    if (!difference.isPartial())
        return rewriteBy(difference, dialect, document, history, out);
    if (rewriteAfter(difference, dialect, document, history, out))
        return true;
    Difference atOnce(text, dialect, document, history, Difference::oldNames, Difference::oneStep);
    return rewriteBy(atOnce, dialect, document, history, out);
}

}  // namespace zlines
