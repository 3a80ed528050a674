// lines: the lines of the file in their order.

#include "contents.h"

namespace zcache {

std::string_view Store::text(Line const& line) const
{
    switch (line.kind) {
        case commentLine:
            return arena_.view(line.of);
        case headLine:
            return name(categories_[line.of]);
        case keyLine:
            return name(keys_[line.of]);
        default:
            return "";
    }
}

void Store::reserveLines(size_t count)
{
    lines_.reserve(count);
    if (trees_.isUsed())
        trees_.reserve(lines_);
}

// Makes `next` the line behind `line`; 0 is what there is before the first and behind the last one.
void Store::link(Id line, Id next)
{
    if (line == 0)
        firstLine_ = next;
    else
        lines_[line].next = next & kMostRecords;
    if (next == 0)
        lastLine_ = line;
    else
        lines_[next].previous = line & kMostRecords;
}

// Makes a line behind `before`, or at the front when that is 0, in the section of `category`, which
// is 0 for heads and for the lines before the first one. Never raises after reserveLines().
Id Store::makeLine(LineKind kind, uint32_t of, Id categoryId, Id before)
{
    Id const id = lines_.make();
    lines_[id] = {0, kind, 0, 0, of};
    link(id, before == 0 ? firstLine_ : lines_[before].next);
    link(before, id);

    if (categoryId == 0)
        return id;
    Category& category = categories_[categoryId];
    if (kind == commentLine)
        category.expectComment();
    if (category.tree() != 0) {
        category.root =
            trees_.insert(lines_, category.root, id, before == category.head ? 0 : before);
        if (kind == commentLine)
            noteTemplate(categoryId, id);
    }
    return id;
}

void Store::unlinkLine(Id id)
{
    link(lines_[id].previous, lines_[id].next);
}

// Frees a line that is not in the list any more, with what it alone holds.
void Store::freeLine(Id id)
{
    Line const line = lines_[id];
    if (line.kind == commentLine)
        arena_.drop(text(line));
    lines_.free(id);
}

}  // namespace zcache
