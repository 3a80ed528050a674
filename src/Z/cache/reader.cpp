#include "reader.h"

#include <utility>

#include "../ZException.h"

namespace zcache {

Reader::Reader(Contents& contents)
    : contents_(contents),
      lastLine_(contents.lastLine_),
      lastHeader_(contents.lastHeader_),
      sizes_{contents.categories_.end(), contents.categoryExtras_.end(), contents.keys_.end(),
             contents.keyExtras_.end(),  contents.values_.end(),         contents.lines_.end()}
{
    if (lastHeader_ == 0)
        return;
    Category const& last = contents_.categories_[lastHeader_];
    if (last.tree() != 0)
        contents_.unindexLastSection();
    hadComments_ = last.hasComments;
    lastKeyLine_ = last.lastKeyLine;
}

Reader::~Reader()
{
    if (!isDone_)
        undo();
}

void Reader::adopt(Arena::Block& block, size_t bytes)
{
    contents_.arena_.adopt(block, bytes);
    isAdopted_ = true;
}

void Reader::reserve(zstanza::LineCounts const& lines)
{
    isQueueing_ = contents_.keys_.count() + lines.keys > kSmallCount;
    try {
        contents_.reserveCategories(lines.headers);
        contents_.reserveKeys(lines.keys);
        contents_.lines_.reserve(lines.headers + lines.keys + lines.comments + lines.blanks);
    } catch (ZOutOfMemoryException_6_0 const&) {
        // The estimate may be too high: memory is reserved again for each line.
    }
}

void Reader::insertFirst()
{
    QueuedLine const line = queue_[first_];
    first_ = (first_ + 1) % kQueueSize;
    --count_;
    insert(line, line.isBelowGap);
}

void Reader::insert(QueuedLine const& line, bool isBelowGap)
{
    isBelowGap_ = isBelowGap_ || isBelowGap;
    if (duplicate_.lineNumber != 0)
        return;
    switch (line.kind) {
        case headerLine:
            insertHeader(line);
            break;
        case keyLine:
            insertKey(line);
            break;
        case commentLine:
            insertComment(line);
            break;
        default:
            contents_.lines_.reserve(1);
            append(blankLine, 0);
            break;
    }
}

void Reader::insertHeader(QueuedLine const& line)
{
    Contents& contents = contents_;
    Id const known = contents.findCategory(line.text, line.hash);
    if (known != 0 && contents.categories_[known].isLive) {
        if (contents.policy_->joinsHeads) {
            joinSection(known);
            return;
        }
        duplicate_ = {line.text, line.lineNumber, line.indent};
        return;
    }
    contents.reserveCategories(1);
    contents.categoryExtras_.reserve(known == 0 ? 0 : 1);
    contents.lines_.reserve(1);

    // A detached category of that name is out of the index until finish() frees it.
    if (known != 0)
        contents.removeCategoryFromIndex(known, line.hash);
    Id const id = contents.createCategory(line.text, line.hash);
    if (known != 0)
        contents.categoryExtraOf(id).replaced = known;
    if (joinedEnd_ != 0)
        takeHeaderComment();
    joinedEnd_ = 0;
    if (contents.isTop(id))
        insertTopHeader(id);
    else
        contents.categories_[id].header = append(headerLine, id);
    contents.linkCategory(id);
    contents.linkHeader(id);
    category_ = id;
}

// Inserts the hidden header of the first keys, above the comments right above them. Requires memory
// for a line.
void Reader::insertTopHeader(Id id)
{
    Contents& contents = contents_;
    Id before = contents.lastLine_;
    for (bool isAbove = !isBelowGap_; isAbove && before != 0;) {
        Line const& line = contents.lines_[before];
        isAbove = line.kind == commentLine && !line.startsComment();
        if (line.kind != commentLine)
            break;
        before = line.previous;
    }
    contents.categories_[id].header = contents.createLine(headerLine, id, 0, before);
    if (contents.categories_[id].header != contents.lastLine_)
        contents.categories_[id].expectComment();
}

// Returns the first of the comment lines right above the next header, which end with `last`; 0 if
// there is no comment.
Id Reader::firstCommentAbove(Id last) const
{
    Id first = 0;
    if (isBelowGap_)
        return first;
    for (Id line = last; line != 0 && contents_.lines_[line].kind == commentLine;
         line = contents_.lines_[line].previous) {
        first = line;
        if (contents_.lines_[line].startsComment())
            break;
    }
    return first;
}

// Moves lines after the line `before`, which is the last of a section so far.
void Reader::moveLines(Id first, Id last, Id before)
{
    Contents& contents = contents_;
    contents.link(contents.lines_[first].previous, contents.lines_[last].next);
    Id const next = contents.lines_[before].next;
    contents.link(before, first);
    contents.link(last, next);
    contents.lines_[first].isBelowGap = 1;
}

// Moves the comment right above a new header from a section that a repeated header continued to the
// end, where the header is added.
void Reader::takeHeaderComment()
{
    Contents& contents = contents_;
    Id const first = firstCommentAbove(joinedEnd_);
    if (first == 0) {
        isBelowGap_ = true;
        return;
    }
    joinedEnds_[category_] = contents.lines_[first].previous;
    moveLines(first, joinedEnd_, contents.lastLine_);
    contents.categories_[contents.lastHeader_].expectComment();
}

// Continues the section of a category. The new lines follow its last line, but the comment right
// above the next header stays there. The comment above the repeated header moves to that section.
void Reader::joinSection(Id id)
{
    Contents& contents = contents_;
    Id const last = lastLine();
    Id const first = firstCommentAbove(last);
    Id const next = contents.categories_[id].nextHeader;
    Id end = next == 0 ? contents.lastLine_ : endOfJoined(id);
    if (first != 0 && last != end) {
        if (joinedEnd_ != 0)
            joinedEnds_[category_] = contents.lines_[first].previous;
        moveLines(first, last, end);
        contents.categories_[id].expectComment();
        end = last;
    }
    category_ = id;
    joinedEnd_ = 0;
    if (next != 0) {
        joinedEnd_ = joinedEnds_[id] = end;
        contents.lines_[contents.lines_[end].next].isBelowGap = 1;
    }
    isBelowGap_ = true;  // the repeated header has no record
}

// Returns the last line of a section, without the comment right above the next header.
Id Reader::endOfJoined(Id id)
{
    auto const [known, isNew] = joinedEnds_.try_emplace(id, 0);
    if (isNew) {
        Id const next = contents_.categories_[id].nextHeader;
        Id const comment = contents_.stanzaComment(next).first;
        Id const below = comment != 0 ? comment : contents_.categories_[next].header;
        known->second = contents_.lines_[below].previous;
    }
    return known->second;
}

void Reader::insertComment(QueuedLine const& line)
{
    Contents& contents = contents_;
    StringId const text = contents.arena_.idOf(line.text.data());
    Id const last = lastLine();
    if (last != lastLine_ && contents.lines_[last].kind == blankLine && !isBelowGap_) {
        contents.lines_[last].kind = commentLine;
        contents.lines_[last].isBelowBlank = 1;
        contents.lines_[last].ref = text;
    } else {
        contents.lines_.reserve(1);
        append(commentLine, text);
    }
    Id const section = joinedEnd_ != 0 ? category_ : contents.lastHeader_;
    if (section != 0)
        contents.categories_[section].expectComment();
}

// Appends a line. Requires memory for it.
Id Reader::append(LineKind kind, uint32_t ref)
{
    Contents& contents = contents_;
    uint32_t const isBelowGap = std::exchange(isBelowGap_, false) ? 1 : 0;
    if (joinedEnd_ != 0) {
        // The treap of the section is not built yet.
        joinedEnd_ = contents.createLine(kind, ref, 0, joinedEnd_);
        joinedEnds_[category_] = joinedEnd_;
        contents.lines_[joinedEnd_].isBelowGap = isBelowGap;
        return joinedEnd_;
    }
    Id const id = contents.lines_.allocate();
    Id const last = std::exchange(contents.lastLine_, id);
    contents.lines_[id] = {last & kMaxRecords, kind, 0, 0, isBelowGap, ref};
    if (last == 0)
        contents.firstLine_ = id;
    else
        contents.lines_[last].next = id & kMaxRecords;
    return id;
}

void Reader::insertKey(QueuedLine const& line)
{
    Contents& contents = contents_;
    contents.reserveKeys(1);
    contents.lines_.reserve(1);
    Id id = contents.findKey(category_, line.text, line.hash);
    if (id == 0) {
        id = contents.createKey(category_, line.text, line.hash);
        contents.linkKey(id);
        contents.keys_[id].line = append(keyLine, id) & kMaxRecords;
        if (!contents.categories_[category_].hasComments)
            contents.categories_[category_].lastKeyLine = contents.keys_[id].line;
    } else {
        contents.keyExtras_.reserve(1);
        contents.values_.reserve(2);  // the first value moves to the chain of values
        contents.arena_.drop(line.text);
        isBelowGap_ = contents.policy_->hasGaps;
    }
    if (contents.isValue(line.value))
        contents.appendValue(id, line.value, Contents::plain);
}

void Reader::finish()
{
    flush();
    isDone_ = true;
    Contents& contents = contents_;
    Id stop = lastHeader_;
    for (Id id = contents.lastHeader_; id != stop; id = contents.categories_[id].previousHeader) {
        if (contents.categories_[id].extra == 0)
            continue;
        Id const old = std::exchange(contents.categoryExtraOf(id).replaced, 0);
        if (old == stop)
            stop = contents.categories_[old].previousHeader;
        contents.removeSection(old);
        contents.arena_.drop(contents.name(contents.categories_[old]));
        contents.categories_.free(old);
    }
    contents.shrinkToFit();
}

// Removes the appended lines. Callers have not received objects for them yet.
void Reader::undo()
{
    Contents& contents = contents_;
    while (contents.lastHeader_ != lastHeader_) {
        Id const id = contents.lastHeader_;
        uint32_t const hash = contents.categoryHash(contents.name(contents.categories_[id]));
        Id const old =
            contents.categories_[id].extra == 0 ? 0 : contents.categoryExtraOf(id).replaced;
        contents.removeCategory(id);
        contents.removeSection(id);
        if (old == 0)
            contents.removeCategoryFromIndex(id, hash);
        else
            contents.categoryIndex_.replace(hash, id, old);
        contents.categories_.free(id);
    }
    while (contents.lastLine_ != lastLine_) {
        Id const id = contents.lastLine_;
        contents.unlinkLine(id);
        contents.freeLine(id);
    }
    if (lastHeader_ != 0 && !hadComments_) {
        contents.categories_[lastHeader_].hasComments = false;
        contents.categories_[lastHeader_].lastKeyLine = lastKeyLine_;
    }
    contents.lastLeading_ = 0;
    if (isAdopted_)
        contents.arena_.freeAdopted(copiedBytes_);
    contents.categories_.truncate(sizes_.categories);
    contents.categoryExtras_.truncate(sizes_.categoryExtras);
    contents.keys_.truncate(sizes_.keys);
    contents.keyExtras_.truncate(sizes_.keyExtras);
    contents.values_.truncate(sizes_.values);
    contents.lines_.truncate(sizes_.lines);
    contents.categoryIndex_.shrinkToFit([&](Id id) { return contents.hashOfCategory(id); });
    contents.keyIndex_.shrinkToFit([&](Id id) { return contents.hashOfKey(id); });
}

}  // namespace zcache
