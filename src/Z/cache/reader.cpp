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
    try {
        contents_.categories_.reserve(lines.headers);
        contents_.categoryIndex_.reserve(lines.headers);
        contents_.keys_.reserve(lines.keys);
        contents_.keyIndex_.reserve(lines.keys);
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
        duplicate_ = {line.text, line.lineNumber, line.indent};
        return;
    }
    contents.categories_.reserve(1);
    contents.categoryExtras_.reserve(known == 0 ? 0 : 1);
    contents.categoryIndex_.reserve(1);
    contents.lines_.reserve(1);

    // A detached category of that name is out of the index until finish() frees it.
    if (known != 0)
        contents.categoryIndex_.remove(line.hash, known);
    Id const id = contents.createCategory(line.text, line.hash);
    if (known != 0)
        contents.categoryExtraOf(id).replaced = known;
    contents.categories_[id].header = append(headerLine, id);
    contents.linkCategory(id);
    contents.linkHeader(id);
    category_ = id;
}

void Reader::insertComment(QueuedLine const& line)
{
    Contents& contents = contents_;
    StringId const text = contents.arena_.idOf(line.text.data());
    Id const last = contents.lastLine_;
    if (last != lastLine_ && contents.lines_[last].kind == blankLine) {
        contents.lines_[last].kind = commentLine;
        contents.lines_[last].isBelowBlank = 1;
        contents.lines_[last].ref = text;
    } else {
        contents.lines_.reserve(1);
        append(commentLine, text);
    }
    if (contents.lastHeader_ != 0)
        contents.categories_[contents.lastHeader_].expectComment();
}

// Appends a line. Requires memory for it.
Id Reader::append(LineKind kind, uint32_t ref)
{
    Contents& contents = contents_;
    Id const id = contents.lines_.allocate();
    Id const last = std::exchange(contents.lastLine_, id);
    contents.lines_[id] = {last & kMaxRecords, kind, 0, 0, ref};
    if (last == 0)
        contents.firstLine_ = id;
    else
        contents.lines_[last].next = id & kMaxRecords;
    return id;
}

void Reader::insertKey(QueuedLine const& line)
{
    Contents& contents = contents_;
    contents.keys_.reserve(1);
    contents.keyIndex_.reserve(1);
    contents.keyExtras_.reserve(1);
    contents.values_.reserve(1);
    contents.lines_.reserve(1);
    Id id = contents.findKey(category_, line.text, line.hash);
    if (id == 0) {
        id = contents.createKey(category_, line.text, line.hash);
        contents.linkKey(id);
        contents.keys_[id].line = append(keyLine, id);
        if (!contents.categories_[category_].hasComments)
            contents.categories_[category_].lastKeyLine = contents.keys_[id].line;
    } else {
        contents.arena_.drop(line.text);
    }
    if (!line.value.empty())
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
        uint32_t const hash = hashOf(contents.name(contents.categories_[id]));
        Id const old =
            contents.categories_[id].extra == 0 ? 0 : contents.categoryExtraOf(id).replaced;
        contents.removeCategory(id);
        contents.removeSection(id);
        if (old == 0)
            contents.categoryIndex_.remove(hash, id);
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
    contents.categoryIndex_.shrinkToFit();
    contents.keyIndex_.shrinkToFit();
}

}  // namespace zcache
