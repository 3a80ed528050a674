// sections: headers, and the lines up to the next header.

#include <vector>

#include "contents.h"

namespace zcache {

// Appends a category to the list of categories with a header.
void Contents::linkHeader(Id id)
{
    Category& category = categories_[id];
    category.previousHeader = lastHeader_;
    category.nextHeader = 0;
    (lastHeader_ == 0 ? firstHeader_ : categories_[lastHeader_].nextHeader) = id;
    lastHeader_ = id;
}

// Inserts the hidden header of the top category at the start of the file, after its comment and a
// blank line. Requires reserveLines(2).
void Contents::insertTopHeader(Id id)
{
    Category& category = categories_[id];
    Id before = fileComment().last;
    if (before != 0 && (lines_[before].next == 0 || !lines_[lines_[before].next].hasBlank()))
        before = createLine(blankLine, 0, 0, before);
    category.header = createLine(headerLine, id, 0, before);
    category.previousHeader = 0;
    category.nextHeader = firstHeader_;
    (firstHeader_ == 0 ? lastHeader_ : categories_[firstHeader_].previousHeader) = id;
    firstHeader_ = id;
    category.expectComment();  // its section may begin with comments
    lastLeading_ = 0;
}

// Appends a blank line and the header of a category that has no header. Requires reserveLines(2).
//
// KEPT: a new file starts with the blank line, too. A program that verifies the files that it has
// created by their checksums would reject new ones.
// Test: ZPropertiesImplLines.KeepsABlankLineAtTheTopOfANewFile
void Contents::appendHeader(Id id)
{
    if (isTop(id)) {
        insertTopHeader(id);
        return;
    }
    createLine(blankLine, 0, lastHeader_, lastLine_);
    categories_[id].header = createLine(headerLine, id, 0, lastLine_);
    linkHeader(id);
}

void Contents::removeSection(Id id)
{
    // KEPT: removes the comments right above the next header too, although they refer to the next
    // stanza: a comment at the end of a section looks the same. A program that replaces a stanza
    // with such a comment, by removing and adding it, would collect another copy of the comment
    // each time. Test: ZPropertiesImplLines.KeepsRemovingTheCommentsAboveTheNextHeader
    Category& category = categories_[id];
    Id const before = lines_[category.header].previous;
    Id const end = category.nextHeader == 0 ? 0 : categories_[category.nextHeader].header;
    uint32_t const hash = categoryHash(name(category));
    for (Id line = category.header; line != end;) {
        Id const next = lines_[line].next;
        // In a cache of a derived class a key may still have values: only its line is removed.
        if (lines_[line].kind == keyLine && keys_[lines_[line].ref].isLive)
            keys_[lines_[line].ref].line = 0;
        else if (lines_[line].kind == keyLine)
            freeKey(lines_[line].ref, keyHash(name(keys_[lines_[line].ref]), hash));
        else if (lines_[line].kind == commentLine && category.tree() != 0)
            forgetTemplate(id, line);
        freeLine(line);
        line = next;
    }
    link(before, end);
    (category.previousHeader == 0 ? firstHeader_
                                  : categories_[category.previousHeader].nextHeader) =
        category.nextHeader;
    (category.nextHeader == 0 ? lastHeader_ : categories_[category.nextHeader].previousHeader) =
        category.previousHeader;
}

// Removes the remaining lines of a removed category. Otherwise they would reappear as a second
// section of the same name.
void Contents::removeDetachedSection(Id category)
{
    removeSection(category);
    freeCategory(category);
}

void Contents::addStanzaLine(std::string_view name)
{
    Id const known = findCategory(name);
    if (known != 0 && categories_[known].isLive)
        return;
    reserveLines(2);
    reserveFor(name, {}, {});
    if (known != 0)
        removeDetachedSection(known);
    appendHeader(reviveCategory(0, name, categoryHash(name)));
}

void Contents::deleteStanza(std::string_view name)
{
    Id const category = findCategory(name);
    if (category == 0)
        return;
    bool const hasHeader = categories_[category].header != 0;
    if (categories_[category].isLive)
        removeCategory(category);
    if (hasHeader)
        removeDetachedSection(category);
}

void Contents::keepHeaderComments(std::string_view name)
{
    Id const id = findCategory(name);
    if (id == 0 || categories_[id].header == 0)
        return;
    Id const header = categories_[id].header;
    Id const next = categories_[id].nextHeader;
    Id const end = next == 0 ? 0 : categories_[next].header;
    Id const nextComment = next == 0 ? 0 : stanzaComment(next).first;
    std::unordered_set<Id>& leftComments = changes().leftComments;
    std::vector<Id> staying;
    bool isAboveNext = false;
    for (Id line = lines_[header].next; line != end; line = lines_[line].next) {
        isAboveNext = isAboveNext || line == nextComment;
        if (isAboveNext || leftComments.contains(line))
            staying.push_back(line);
    }
    CommentBlock const own = stanzaComment(id);
    for (Id line = own.first; line != 0; line = line == own.last ? 0 : lines_[line].next)
        leftComments.insert(line);

    if (!staying.empty()) {
        unindexSection(id);
        unindexSection(categories_[id].previousHeader);
        lastLeading_ = 0;
    }
    // The lines of the section that part comments from the next header are removed, too. A blank
    // line then parts the comment of the removed stanza from the line below.
    uint32_t const isParted = own.first != 0 ? 1 : lines_[header].isBelowGap;
    lines_[header].isBelowGap = 0;
    if (end != 0 && staying.empty())
        lines_[end].isBelowGap = isParted;
    for (Id const line : staying) {
        lines_[line].isBelowBlank = 0;
        if (line == staying.front())
            lines_[line].isBelowGap = isParted;
        Id const above = lines_[header].previous;
        link(lines_[line].previous, lines_[line].next);
        link(above, line);
        link(line, header);
    }
}

}  // namespace zcache
