#include "reader.h"

#include <utility>

#include "../ZException.h"

namespace zcache {

Reader::Reader(Store& store)
    : store_(store),
      lastLine_(store.lastLine_),
      lastHead_(store.lastHead_),
      ends_{store.categories_.end(), store.categoryMores_.end(), store.keys_.end(),
            store.keyMores_.end(),   store.values_.end(),        store.lines_.end()}
{
    if (lastHead_ == 0)
        return;
    Category const& last = store_.categories_[lastHead_];
    if (last.tree() != 0)
        store_.unindexLastSection();
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
    store_.arena_.adopt(block, bytes);
    isAdopted_ = true;
}

void Reader::reserve(zstanza::Expected const& lines)
{
    try {
        store_.categories_.reserve(lines.heads);
        store_.categoryIndex_.reserve(lines.heads);
        store_.keys_.reserve(lines.keys);
        store_.keyIndex_.reserve(lines.keys);
        store_.lines_.reserve(lines.heads + lines.keys + lines.comments + lines.blanks);
    } catch (ZOutOfMemoryException_6_0 const&) {
        // What looks like so many lines need not be: room is made as they come.
    }
}

void Reader::enterFirst()
{
    Waiting const line = waiting_[first_];
    first_ = (first_ + 1) % kMostWaiting;
    --count_;
    if (repetition_.lineNumber != 0)
        return;
    switch (line.kind) {
        case headLine:
            enterHead(line);
            break;
        case keyLine:
            enterKey(line);
            break;
        case commentLine:
            enterComment(line);
            break;
        default:
            store_.lines_.reserve(1);
            append(blankLine, 0);
            break;
    }
}

void Reader::enterHead(Waiting const& line)
{
    Store& store = store_;
    Id const known = store.findCategory(line.text, line.hash);
    if (known != 0 && store.categories_[known].isLive) {
        repetition_ = {line.text, line.lineNumber};
        return;
    }
    store.categories_.reserve(1);
    store.categoryMores_.reserve(known == 0 ? 0 : 1);
    store.categoryIndex_.reserve(1);
    store.lines_.reserve(1);

    // A dormant category of that name stays aside until all is read.
    if (known != 0)
        store.categoryIndex_.remove(line.hash, known);
    Id const id = store.newCategory(line.text, line.hash);
    if (known != 0)
        store.moreOfCategory(id).replaced = known;
    store.categories_[id].head = append(headLine, id);
    store.enlist(id);
    store.enlistHead(id);
    category_ = id;
}

void Reader::enterComment(Waiting const& line)
{
    Store& store = store_;
    TextId const text = store.arena_.placeOf(line.text.data());
    Id const last = store.lastLine_;
    if (last != lastLine_ && store.lines_[last].kind == blankLine) {
        store.lines_[last].kind = commentLine;
        store.lines_[last].isBelowBlank = 1;
        store.lines_[last].of = text;
    } else {
        store.lines_.reserve(1);
        append(commentLine, text);
    }
    if (store.lastHead_ != 0)
        store.categories_[store.lastHead_].expectComment();
}

// Appends a line. Needs room for it.
Id Reader::append(LineKind kind, uint32_t of)
{
    Store& store = store_;
    Id const id = store.lines_.make();
    Id const last = std::exchange(store.lastLine_, id);
    store.lines_[id] = {last & kMostRecords, kind, 0, 0, of};
    if (last == 0)
        store.firstLine_ = id;
    else
        store.lines_[last].next = id & kMostRecords;
    return id;
}

void Reader::enterKey(Waiting const& line)
{
    Store& store = store_;
    store.keys_.reserve(1);
    store.keyIndex_.reserve(1);
    store.keyMores_.reserve(1);
    store.values_.reserve(1);
    store.lines_.reserve(1);
    Id id = store.findKey(category_, line.text, line.hash);
    if (id == 0) {
        id = store.newKey(category_, line.text, line.hash);
        store.enlistKey(id);
        store.keys_[id].line = append(keyLine, id);
        if (!store.categories_[category_].hasComments)
            store.categories_[category_].lastKeyLine = store.keys_[id].line;
    } else {
        store.arena_.drop(line.text);
    }
    if (!line.value.empty())
        store.appendText(id, line.value, Store::plain);
}

void Reader::finish()
{
    flush();
    isDone_ = true;
    Store& store = store_;
    Id stop = lastHead_;
    for (Id id = store.lastHead_; id != stop; id = store.categories_[id].previousHead) {
        if (store.categories_[id].more == 0)
            continue;
        Id const old = std::exchange(store.moreOfCategory(id).replaced, 0);
        if (old == stop)
            stop = store.categories_[old].previousHead;
        store.removeSection(old);
        store.arena_.drop(store.name(store.categories_[old]));
        store.categories_.free(old);
    }
    store.fit();
}

// Takes out what was appended. Nothing in it is known to callers yet.
void Reader::undo()
{
    Store& store = store_;
    while (store.lastHead_ != lastHead_) {
        Id const id = store.lastHead_;
        uint32_t const hash = hashOf(store.name(store.categories_[id]));
        Id const old = store.categories_[id].more == 0 ? 0 : store.moreOfCategory(id).replaced;
        store.removeCategory(id);
        store.removeSection(id);
        if (old == 0)
            store.categoryIndex_.remove(hash, id);
        else
            store.categoryIndex_.replace(hash, id, old);
        store.categories_.free(id);
    }
    while (store.lastLine_ != lastLine_) {
        Id const id = store.lastLine_;
        store.unlinkLine(id);
        store.freeLine(id);
    }
    if (lastHead_ != 0 && !hadComments_) {
        store.categories_[lastHead_].hasComments = false;
        store.categories_[lastHead_].lastKeyLine = lastKeyLine_;
    }
    store.lastLeading_ = 0;
    if (isAdopted_)
        store.arena_.dropAdopted(kept_);
    store.categories_.cut(ends_.categories);
    store.categoryMores_.cut(ends_.categoryMores);
    store.keys_.cut(ends_.keys);
    store.keyMores_.cut(ends_.keyMores);
    store.values_.cut(ends_.values);
    store.lines_.cut(ends_.lines);
    store.categoryIndex_.fit();
    store.keyIndex_.fit();
}

}  // namespace zcache
