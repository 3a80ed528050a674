// lines: the doubly linked list of the file's lines.
//
// The list is in file order and holds comments and blank lines too, so a comment stays above its
// key when values change.

#include "contents.h"

namespace zcache {

std::string_view Contents::text(Line const& line) const
{
    switch (line.kind) {
        case commentLine:
            return arena_.view(line.ref);
        case headerLine:
            return name(categories_[line.ref]);
        case keyLine:
            return name(keys_[line.ref]);
        default:
            return "";
    }
}

void Contents::reserveLines(size_t count)
{
    lines_.reserve(count);
    if (positions_ != nullptr && positions_->treap.isUsed())
        positions_->treap.reserve(lines_);
}

// Makes `next` the successor of `line`. Id 0 is before the first line and after the last line.
void Contents::link(Id line, Id next)
{
    if (line == 0)
        firstLine_ = next;
    else
        lines_[line].next = next & kMaxRecords;
    if (next == 0)
        lastLine_ = line;
    else
        lines_[next].previous = line & kMaxRecords;
}

// Inserts a line after `before`, or first if `before` is 0. `category` is the section of the line;
// 0 for a header and for the lines before the first header. Does not throw after reserveLines().
Id Contents::createLine(LineKind kind, uint32_t ref, Id categoryId, Id before)
{
    Id const id = lines_.allocate();
    lines_[id] = {0, kind, 0, 0, 0, ref};
    link(id, before == 0 ? firstLine_ : lines_[before].next);
    link(before, id);

    if (categoryId == 0)
        return id;
    Category& category = categories_[categoryId];
    if (kind == commentLine)
        category.expectComment();
    if (category.tree() != 0) {
        category.root = positions_->treap.insert(lines_, category.root, id,
                                                 before == category.header ? 0 : before);
        if (kind == commentLine)
            recordTemplate(categoryId, id);
    }
    return id;
}

void Contents::unlinkLine(Id id)
{
    moveGap(id, lines_[id].next);
    link(lines_[id].previous, lines_[id].next);
}

// A line that is not in the cache is above `to` from now on, if it was above `from`.
void Contents::moveGap(Id from, Id to)
{
    if (!lines_[from].isBelowGap || to == 0)
        return;
    lines_[from].isBelowGap = 0;
    lines_[to].isBelowGap = 1;
}

// Frees a line that has been unlinked, and its comment.
void Contents::freeLine(Id id)
{
    Line const line = lines_[id];
    if (line.kind == commentLine)
        arena_.drop(text(line));
    if (changes_ != nullptr)
        changes_->leftComments.erase(id);
    lines_.free(id);
}

}  // namespace zcache
