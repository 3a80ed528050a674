// New lines: wanted comments, keys and stanzas that the text does not have.

#include "difference.h"

namespace zlines {

// Returns the last key line of a stanza, or the last that stays; kNone if there is no such line.
uint32_t Difference::lastKeyLine(ReadStanza const& read, Lines which) const
{
    uint32_t last = kNone;
    for (uint32_t i = read.firstSection; i != kNone; i = outline_.sections()[i].next)
        for (uint32_t line = outline_.sections()[i].first; line < outline_.sections()[i].end;
             ++line)
            if (outline_.lines()[line].isKey() && (which == allLines || !isGone(line)))
                last = line;
    return last;
}

// Inserts the new comments and keys of a stanza. Each is placed after the entry before it or, if a
// comment is directly above a key of the text, above that key.
void Difference::place(Reordered const& stanza)
{
    std::vector<Line> const& lines = outline_.lines();
    Section const& section = outline_.sections()[outline_.stanzas()[stanza.read].firstSection];
    Placement at{outline_.start(), kNone};
    if (section.header != kNone) {
        uint32_t const header = outline_.lastOnHeader(section);
        at = {outline_.endOf(header), header};
    }
    Placement last{static_cast<uint32_t>(text_.size()), static_cast<uint32_t>(lines.size() - 1)};
    bool hasLastSection = false;
    for (uint32_t i = outline_.stanzas()[stanza.read].firstSection; i != kNone;
         i = outline_.sections()[i].next)
        hasLastSection = hasLastSection || i + 1 == outline_.sectionCount();
    size_t lastKnown = 0;  // one past the last entry that has a key line
    size_t lastLine = 0;   // one past the entry whose line is the last in the text
    for (size_t i = 0; i < stanza.entries.size(); ++i) {
        if (stanza.lineOf[i] == kNone)
            continue;
        if (lastLine == 0 || stanza.lineOf[i] > stanza.lineOf[lastLine - 1])
            lastLine = i + 1;
        if (!stanza.entries[i].isComment)
            lastKnown = i + 1;
    }
    size_t const firstOfTop =
        stanza.read == 0 ? document_.stanzas[0].entryCount : stanza.entries.size();
    for (size_t i = 0; i < stanza.entries.size(); ++i) {
        Entry const& entry = stanza.entries[i];
        if (i == firstOfTop && topHeader_ != kNone)
            moveBelowTopHeader(at);
        else if (i == firstOfTop && !at.comments.empty() && entry.isParted())
            insertCommentsBelow(at, entry.isBelowBlank);
        uint32_t const line = stanza.lineOf[i];
        if (!at.comments.empty() && at.headerIndex != entry.headerIndex) {
            if (at.headerIndex != 0)
                placeHeaderComments(stanza, at.headerIndex, at);
            else
                insertCommentsBelow(at, entry.isBelowBlank);
        }
        at.headerIndex = entry.headerIndex;
        if (line == kNone) {
            if (entry.isComment && entry.isAtEnd && hasLastSection && i >= lastLine)
                last.comments.push_back({entry.text, entry.isBelowBlank, stanza.movedFrom[i]});
            else if (entry.isComment)
                at.comments.push_back({entry.text, entry.isBelowBlank, stanza.movedFrom[i]});
            else if (entry.valueCount > 0 || entry.needsLine)
                placeKey(stanza, entry, i >= lastKnown, at);
            if (entry.isBelowComment && isBelowComment(at.after))
                insertComments(at, at.position, at.after, otherLine, false);
            continue;
        }
        bool const isBelowFurtherLine = !entry.isBelowGap && hasLineBetween(at.after, line);
        if (!at.comments.empty() &&
            (at.headerIndex != 0 || isBelowFurtherLine || !entry.isParted()))
            insertComments(at, lines[line].begin, line == 0 ? kNone : line - 1,
                           entry.isComment ? otherLine : valueLine,
                           isBelowFurtherLine && entry.isBelowBlank);
        else if (!at.comments.empty())
            insertCommentsBelow(at, entry.isBelowBlank);
        at.after = entry.isComment ? line : firstStaying(line);
        at.position = outline_.endOf(at.after);
        at.isAfterKey = !entry.isComment;
    }
    if (!at.comments.empty() && at.headerIndex != 0)
        placeHeaderComments(stanza, at.headerIndex, at);
    else if (!at.comments.empty())
        placeRemainingComments(stanza, at);
    if (!last.comments.empty())
        insertComments(last, last.position, last.after, otherLine, false);
    newLineOrder_ = Edits::newLines;
}

// Inserts the new comments above a further header of a stanza.
void Difference::placeHeaderComments(Reordered const& stanza, uint32_t headerIndex, Placement& at)
{
    uint32_t header = kNone;
    for (uint32_t i = outline_.stanzas()[stanza.read].firstSection; i != kNone;
         i = outline_.sections()[i].next)
        if (i < outline_.sectionCount() && headerIndex-- == 0)
            header = outline_.sections()[i].header;
    if (header == kNone)
        insertCommentsBelow(at, false);
    else
        insertComments(at, outline_.lines()[header].begin, header == 0 ? kNone : header - 1,
                       headerLine, false);
}

// Inserts the new comments above the header that the first keys get, and moves below the header.
void Difference::moveBelowTopHeader(Placement& at)
{
    uint32_t const position = outline_.lines()[topHeader_].begin;
    uint32_t const after = topHeader_ == 0 ? kNone : topHeader_ - 1;
    Stanza const& headed = document_.stanzas[headed_];
    if (!at.comments.empty() && headed.isParted())
        insertCommentsBelow(at, true);
    else if (!at.comments.empty())
        insertComments(at, position, after, headerLine, false);
    at = {position, after};
    newLineOrder_ = Edits::newLinesBelowHeader;
}

// Returns the first line of a key, or the next if the first is removed. Only blank and removed
// lines are between them.
uint32_t Difference::firstStaying(uint32_t first)
{
    std::vector<Line> const& lines = outline_.lines();
    std::string const name(outline_.keyName(first, keySpace_));
    auto const isOfKey = [&](uint32_t line) {
        return lines[line].isKey() && outline_.keyName(line, keySpace_) == name;
    };
    uint32_t line = first;
    while (line < lines.size() &&
           (isBlank(line) || (isGone(line) && (isOfKey(line) || lines[line].kind == commentLine))))
        ++line;
    return line < lines.size() && isOfKey(line) ? line : first;
}

// Inserts the lines of a new key, and the new comments above it. If they do not read back there,
// they follow the last key of the stanza; below a line that continues, they are above it.
void Difference::placeKey(Reordered const& stanza, Entry const& entry, bool isLast, Placement& at)
{
    uint32_t const removed =
        at.isAfterKey ? kNone
                      : removedKeyBelow(at.after, outline_.stanzas()[stanza.read], entry.text);
    if (removed != kNone) {
        at.after = removed;
        at.position = outline_.endOf(removed);
    }
    at.isAfterKey = at.isAfterKey || entry.isBelowRemoved;
    // The key before it may have further lines.
    if (isLast && at.isAfterKey && !at.isLastKnown) {
        at.last = lastKeyLine(outline_.stanzas()[stanza.read]);
        if (at.last == kNone && entry.isBelowRemoved)
            at.last = lastKeyLine(outline_.stanzas()[stanza.read], allLines);
        at.isLastKnown = true;
    }
    uint32_t const last = isLast && at.isAfterKey ? at.last : kNone;
    if (last != kNone) {
        at.position = outline_.endOf(last);
        at.after = last;
    }
    // A line that is too long is read as several.
    while (at.after != kNone && at.after + 1 < outline_.lines().size() &&
           text_[at.position - 1] != '\n' && !outline_.sharesLine(at.after + 1))
        at.position = outline_.endOf(++at.after);
    record(stanzaName_, entry.text, entry.valueCount == 0 ? "" : valueOf(entry, 0));
    if (placeKeyAt(stanza, entry, at.position, at.after, at))
        return;
    uint32_t const key = lastKeyLine(outline_.stanzas()[stanza.read]);
    bool isPlaced =
        key != kNone && key != at.after && placeKeyAt(stanza, entry, outline_.endOf(key), key, at);
    if (!isPlaced && key != kNone && !outline_.sharesLine(key)) {
        // The comment right above the last key stays there, and so does a new comment. A comment
        // that continues is a line without a meaning.
        auto const isOfComment = [&](uint32_t line) {
            LineKind const kind = static_cast<LineKind>(outline_.lines()[line].kind);
            return kind == commentLine ||
                   (kind == otherLine && outline_.wholeLine(line).find('\n') != std::string::npos);
        };
        uint32_t first = key;
        while (first > outline_.sectionOf(key).first && isOfComment(first - 1))
            --first;
        Edits::Order const order = newLineOrder_;
        if (order == Edits::newLines)
            newLineOrder_ = Edits::valuesOfLineAbove;
        isPlaced = placeKeyAt(stanza, entry, outline_.lines()[first].begin,
                              first == 0 ? kNone : first - 1, at);
        newLineOrder_ = order;
    }
    if (!isPlaced)
        throw refusalBelow(at.after, entry.text, entry.valueCount == 0 ? "" : valueOf(entry, 0));
}

// Inserts them after the line `after`, which ends at `position`. Returns false if they do not read
// back there.
bool Difference::placeKeyAt(Reordered const& stanza, Entry const& entry, uint32_t position,
                            uint32_t after, Placement& at)
{
    uint32_t sectionIndex = outline_.stanzas()[stanza.read].firstSection;
    for (uint32_t i = sectionIndex; i != kNone; i = outline_.sections()[i].next)
        if (after != kNone && after >= outline_.sections()[i].first &&
            after < outline_.sections()[i].end)
            sectionIndex = i;
    Section const& section = outline_.sections()[sectionIndex];
    std::string key;
    dialect_.appendKey(entry.text, key);
    std::string lines;
    appendComments(at.comments, after, isBelowBlank(after), valueLine, lines);
    size_t const comments = lines.size();
    std::string const context = contextAbove(after);
    uint32_t const below = after == kNone ? 0 : after + 1;
    if (at.run.position != position)
        at.run = {position};
    NewKeyRun& run = at.run;
    bool const isFirst = run.lines.empty();
    Neighbours const neighbours(outline_, section, after,
                                run.style ? std::span<std::string const>() : run.lines);
    Style const style = isFirst     ? styleAfter(outline_, section, after, key)
                        : run.style ? *run.style
                                    : neighbours.style(key);
    bool isPlaced = appendKey(style, key, entry, context, below, lines);
    bool const isStyled =
        isPlaced && isFirst && entry.valueCount > 0 && isRepeated(outline_, section, after, style);
    if (!isPlaced) {
        // Next to a comment of the key, its indentation may continue the key above.
        lines.resize(comments);
        isPlaced =
            appendKey(styleAfter(outline_, section, after, {}), key, entry, context, below, lines);
    }
    if (!isPlaced)
        return false;
    at.comments.clear();
    if (isFirst && isStyled)
        run.style = style;
    else if (entry.valueCount == 0)
        run.style.reset();
    if (run.lines.size() == kMaxNeighbours)
        run.lines.erase(run.lines.begin());
    run.lines.push_back(lines.substr(comments));
    edits_.insertLines(position, std::move(lines), outline_.lineEndingAfter(after), newLineOrder_);
    return true;
}

// Moves below the last of the lines of a key that have only blank lines between them.
void Difference::moveBelowKey(Placement& at)
{
    std::vector<Line> const& lines = outline_.lines();
    if (at.after == kNone || !lines[at.after].isKey())
        return;  // a new key
    std::string const name(outline_.keyName(at.after, keySpace_));
    for (uint32_t line = at.after + 1; line < lines.size(); ++line) {
        if (lines[line].isKey() && outline_.keyName(line, keySpace_) == name)
            at.after = line;
        else if (!isBlank(line))
            break;
    }
    at.position = outline_.endOf(at.after);
}

// Inserts new comments at the end of a stanza: above the next header or, if another line is between
// them, after the entry before them.
void Difference::placeRemainingComments(Reordered const& stanza, Placement& at)
{
    size_t next = stanza.stanza + size_t{1};
    if (stanza.read == 0 && next < readOf_.size() && readOf_[next] == 0)
        ++next;  // the stanza of the keys above the first header
    if (next < readOf_.size() && readOf_[next] == kNone && !document_.stanzas[next].isBelowBlank) {
        carried_ = std::move(at.comments);
        return;
    }
    bool const isParted = next < readOf_.size() && document_.stanzas[next].isParted();
    if (next >= readOf_.size() || readOf_[next] == 0 || readOf_[next] == kNone)
        return insertCommentsBelow(at, isParted);
    uint32_t const header =
        outline_.sections()[outline_.stanzas()[readOf_[next]].firstSection].header;
    bool const isBelowFurtherLine =
        !document_.stanzas[next].isBelowGap && hasLineBetween(at.after, header);
    if (isParted && !isBelowFurtherLine)
        return insertCommentsBelow(at, isParted);
    insertComments(at, outline_.lines()[header].begin, header == 0 ? kNone : header - 1, headerLine,
                   isParted);
}

// Returns whether the line of a key or header that stays is right above `line`, perhaps with blank
// lines between, and after the line `after`: the key or stanza of an entry can have further lines.
bool Difference::hasLineBetween(uint32_t after, uint32_t line) const
{
    uint32_t const first = after == kNone ? 0 : after + 1;
    while (line > first && (isBlank(line - 1) || isGone(line - 1)))
        --line;
    if (line <= first)
        return false;
    Line const& above = outline_.lines()[line - 1];
    return above.isKey() || above.kind == headerLine;
}

// Inserts new comments after the entry before them.
void Difference::insertCommentsBelow(Placement& at, bool needsBlankBelow)
{
    if (at.isAfterKey)
        moveBelowKey(at);
    insertComments(at, at.position, at.after, otherLine, needsBlankBelow);
}

// Inserts new comments above a line of the kind `below`: a key, a header or neither.
void Difference::insertComments(Placement& at, uint32_t position, uint32_t after, LineKind below,
                                bool needsBlankBelow)
{
    std::string lines;
    appendComments(at.comments, after, isBelowBlank(after), below, lines);
    std::string_view const ending = outline_.lineEndingAfter(after);
    if (needsBlankBelow && !isAboveBlank(after))
        lines += ending;
    record(stanzaName_, {}, at.comments.front().text);
    edits_.insertLines(position, std::move(lines), ending, newLineOrder_);
    at.comments.clear();
}

// Appends new comments. A blank line parts them from a comment above. Above others it is written
// only where the comments of the file have it, too. The removal of a stanza right above removes it.
void Difference::appendComments(std::vector<NewComment> const& comments, uint32_t after,
                                bool isAtBlank, LineKind below, std::string& out)
{
    bool isAtComment = isBelowComment(after);
    uint32_t const above = lineAbove(after);
    bool const isBelowKey =
        !isAtBlank && !isAtComment && above != kNone && outline_.lines()[above].kind != headerLine;
    // A blank line at the start of the file parts the comment from nothing.
    bool hasBlankAbove = isAtBlank && above != kNone && above > 0;
    isAtBlank = isAtBlank || isBelowRemovedStanza(after);
    for (NewComment const& comment : comments) {
        if (comment.isBelowBlank && !isAtBlank &&
            (isAtComment || haveBlankAbove(outline_, after, below, newComments_))) {
            out += outline_.lineEndingAfter(after);
            hasBlankAbove = true;
        }
        appendMoved(comment, after, out);
        isAtBlank = false;
        isAtComment = true;
    }
    if (!comments.empty() && (hasBlankAbove || isBelowKey))
        newComments_.push_back({after == kNone ? 0 : after + 1, below, hasBlankAbove});
}

// Appends a new comment. A comment that moves keeps its bytes.
void Difference::appendMoved(NewComment const& comment, uint32_t after, std::string& out) const
{
    if (std::string_view const copied = document_.commentLineOf(comment.text); !copied.empty()) {
        (out += copied) += outline_.lineEndingAfter(after);
        return;
    }
    std::string_view const spaces = spacesOf(dialect_, comment.text);
    uint32_t const from = comment.movedFrom;
    if (from == kNone || (!spaces.empty() && spaces != slice(text_, outline_.lines()[from].nameEnd,
                                                             outline_.lines()[from].valueBegin)))
        return appendComment(outline_, after, comment.text, out);
    std::string_view const line = slice(text_, outline_.lines()[from].begin, outline_.endOf(from));
    (out += withoutLineEnding(line)) += outline_.lineEndingAfter(after);
}

// Appends the lines of a key, inserted between `context` and the line `below`. Returns false if a
// value does not read back.
bool Difference::appendKey(Style const& style, std::string_view key, Entry const& entry,
                           std::string const& context, uint32_t below, std::string& out) const
{
    std::string_view const own = document_.ownLineOf(entry.text);
    if (entry.valueCount == 0 && !own.empty()) {
        (out += own) += style.lineEnding;
    } else if (entry.valueCount == 0) {
        out += style.indent;
        out += key;
        out += dialect_.keyOnlyEnd(separatorFor(style, key));
        out += style.lineEnding;
    }
    for (size_t i = 0; i < entry.valueCount; ++i)
        if (!appendLine(style, key, valueOf(entry, i), context, below, out, lineOf(entry, i)))
            return false;
    return true;
}

// Appends the line of a key with a value, inserted between `context` and the line `below`: the line
// `copied` of another text, or a new one. Returns false, and appends nothing, if neither reads
// back.
bool Difference::appendLine(Style const& style, std::string_view key, std::string_view value,
                            std::string context, uint32_t below, std::string& out,
                            std::string_view copied) const
{
    if (!context.empty() && !context.ends_with('\n'))
        context += style.lineEnding;
    std::string space;
    std::string line;
    if (!copied.empty() && hasLineEndings(copied, style.lineEnding)) {
        (line = copied) += style.lineEnding;
        Line const name{0, valueLine, 0, static_cast<uint32_t>(key.size()), 0, 0};
        if (readsBack(context, 0, line, below, dialect_.keyName(key, name, space), value)) {
            out += line;
            return true;
        }
    }
    for (unsigned spelling = 0; spelling < dialect_.spellingCount(); ++spelling) {
        std::string spelled;
        if (!dialect_.appendValue(value, spelling, {style.indent, style.lineEnding}, spelled))
            continue;
        std::string const separator = separatorFor(style, key);
        line = style.indent;
        line += key;
        line += separator;
        line += spelled;
        // Too long with the spaces of its neighbours, a line does without.
        if (line.size() > dialect_.maxLineLength()) {
            line = key;
            line += separator[separator.find_first_of(dialect_.separatorBytes())];
            line += spelled;
        }
        line += style.lineEnding;
        bool const isUnchecked =
            spelling + 1 == dialect_.spellingCount() && !dialect_.needsContext();
        Line const whole{0, valueLine, 0, static_cast<uint32_t>(key.size()), 0, 0};
        std::string_view const name = dialect_.keyName(key, whole, space);
        // The last line of the file may get no line ending.
        bool const isAtEnd = below >= outline_.lines().size() && !text_.ends_with('\n');
        std::string_view const atEnd(line.data(), line.size() - style.lineEnding.size());
        if (isUnchecked || readsBack(context, 0, line, below, name, value) ||
            (isAtEnd && readsBack(context, 0, atEnd, below, name, value))) {
            out += line;
            return true;
        }
    }
    return false;
}

// Returns the refusal of a new line after the line `above`.
Refusal Difference::refusalBelow(uint32_t above, std::string_view key, std::string_view value) const
{
    bool isContinued = false;
    if (above != kNone && outline_.lines()[above].isKey()) {
        std::string_view line = slice(text_, outline_.lines()[above].begin, outline_.endOf(above));
        line = line.substr(0, line.find_last_not_of(" \t\r\n") + 1);
        isContinued = line.ends_with('\\');
    }
    auto const count = static_cast<uint32_t>(outline_.lines().size());
    uint32_t const below = above == kNone ? 0 : above + 1;
    Style const style{{}, dialect_.ownSeparator(), outline_.lineEndingAfter(above)};
    std::string name;
    dialect_.appendKey(key, name);
    std::string line;
    bool const continuesBelow = !isContinued && below < count &&
                                outline_.lines()[below].kind == otherLine &&
                                appendLine(style, name, value, contextAbove(above), count, line);
    return {std::string(stanzaName_), std::string(key), std::string(value),
            isContinued      ? Refusal::continuesAbove
            : continuesBelow ? Refusal::continuesBelow
                             : Refusal::doesNotReadBack};
}

// Adds a stanza that the text does not have, and the comments above its header: above the next
// wanted stanza that the text has, else at the end.
void Difference::addStanza(uint32_t index)
{
    Stanza const& stanza = document_.stanzas[index];
    auto const count = static_cast<uint32_t>(outline_.lines().size());
    uint32_t const next = nextKept_[index];
    bool const isLast = next == kNone;
    uint32_t const below =
        isLast ? count : outline_.sections()[outline_.stanzas()[readOf_[next]].firstSection].header;
    bool const isFirstHere = lastAdded_ != below;
    if (isFirstHere)
        lastAbove_ = below == 0 ? kNone : below - 1;
    uint32_t const blankAbove = lastAbove_;
    while (lastAbove_ != kNone && isGone(lastAbove_))
        lastAbove_ = lastAbove_ == 0 ? kNone : lastAbove_ - 1;
    uint32_t const above = lastAbove_;
    std::string_view const ending = outline_.lineEndingAfter(above);
    bool isAtBlank = isFirstHere ? isBelowBlank(blankAbove) : !isLast;
    std::string lines;
    auto const addBlank = [&](bool isWanted) {
        if (isWanted && !isAtBlank)
            lines += ending;
        isAtBlank = false;
    };
    record(stanza.name, {}, {});
    // A blank line is above a new stanza and its comments, and never between them.
    addBlank(true);
    if (!carried_.empty())
        carried_.front().isBelowBlank = false;
    appendComments(carried_, above, false, headerLine, lines);
    carried_.clear();
    std::string header(document_.ownLineOf(stanza.name));
    if (header.empty())
        dialect_.appendHeader(stanza.name, header);
    header += ending;
    lines += header;
    Section const here{kNone, below, below, kNone};
    bool isAtComment = false;
    for (uint32_t i = 0; i < stanza.entryCount; ++i) {
        Entry const& entry = document_.entries[stanza.firstEntry + i];
        if (!entry.isComment && entry.valueCount == 0 && !entry.needsLine)
            continue;
        bool const isAboveHeader = entry.isComment && isAboveNextHeader(index, i);
        if (isAboveHeader) {
            carried_.push_back({entry.text, entry.isBelowBlank, kNone});
            continue;
        }
        addBlank(entry.isBelowBlank && (!entry.isComment || isAtComment ||
                                        haveBlankAbove(outline_, above, valueLine, newComments_)));
        isAtComment = entry.isComment;
        if (entry.isComment)
            appendMoved({entry.text, false, kNone}, above, lines);
        else
            appendNewKey(here, above, entry, header, lines);
    }
    if (!isLast)
        lines += ending;
    bool const isCarriedHere = !isLast && next == index + 1 && !carried_.empty();
    if (isCarriedHere) {
        appendComments(carried_, above, true, headerLine, lines);
        carried_.clear();
    }
    uint32_t const position =
        isLast ? static_cast<uint32_t>(text_.size()) : outline_.lines()[below].begin;
    edits_.insertLines(position, std::move(lines), ending, Edits::newStanzas);
    lastAdded_ = below;
}

// Appends the lines of a key below a new header.
void Difference::appendNewKey(Section const& section, uint32_t after, Entry const& entry,
                              std::string const& header, std::string& out) const
{
    std::string key;
    dialect_.appendKey(entry.text, key);
    if (!appendKey(styleAfter(outline_, section, after, key), key, entry, header, kNone, out))
        throw Refusal{std::string(stanzaName_), std::string(entry.text),
                      std::string(entry.valueCount == 0 ? "" : valueOf(entry, 0))};
}

// Returns whether no key follows an entry of a new stanza, but another stanza does, so that
// comments from this entry on are above its header.
bool Difference::isAboveNextHeader(uint32_t index, uint32_t entry) const
{
    if (index + size_t{1} >= document_.stanzas.size() || readOf_[index + size_t{1}] == 0 ||
        document_.stanzas[index + size_t{1}].isBelowBlank)
        return false;
    Stanza const& stanza = document_.stanzas[index];
    for (uint32_t i = entry; i < stanza.entryCount; ++i)
        if (!document_.entries[stanza.firstEntry + i].isComment)
            return false;
    return true;
}

}  // namespace zlines
