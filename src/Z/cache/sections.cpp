// sections: the lines of a category.

#include "contents.h"

namespace zcache {

// Puts a category behind the last one that has a head.
void Store::enlistHead(Id id)
{
    Category& category = categories_[id];
    category.previousHead = lastHead_;
    category.nextHead = 0;
    (lastHead_ == 0 ? firstHead_ : categories_[lastHead_].nextHead) = id;
    lastHead_ = id;
}

// Appends a blank line and the head of a category that has none. Needs room for two lines.
//
// KEPT: the blank line comes first in a new file, too; files written so are compared byte for byte.
// Test: ZPropertiesImpl.KeepsABlankLineAtTheTopOfANewFile
void Store::appendHead(Id id)
{
    makeLine(blankLine, 0, lastHead_, lastLine_);
    categories_[id].head = makeLine(headLine, id, 0, lastLine_);
    enlistHead(id);
}

void Store::removeSection(Id id)
{
    // KEPT: the comments right above the next head go along, though they speak of the next stanza:
    // a section is what callers see between two heads.
    // Test: ZPropertiesImpl.KeepsTakingTheCommentsAboveTheNextHeadAlong
    Category& category = categories_[id];
    Id const before = lines_[category.head].previous;
    Id const end = category.nextHead == 0 ? 0 : categories_[category.nextHead].head;
    uint32_t const categoryHash = hashOf(name(category));
    for (Id line = category.head; line != end;) {
        Id const next = lines_[line].next;
        // A key with values stays, in a cache of a derived class.
        if (lines_[line].kind == keyLine && keys_[lines_[line].of].isLive)
            keys_[lines_[line].of].line = 0;
        else if (lines_[line].kind == keyLine)
            freeKey(lines_[line].of, hashOf(name(keys_[lines_[line].of]), categoryHash));
        else if (lines_[line].kind == commentLine && category.tree() != 0)
            forgetTemplate(id, line);
        freeLine(line);
        line = next;
    }
    link(before, end);
    (category.previousHead == 0 ? firstHead_ : categories_[category.previousHead].nextHead) =
        category.nextHead;
    (category.nextHead == 0 ? lastHead_ : categories_[category.nextHead].previousHead) =
        category.previousHead;
}

// Removes the lines of a category that was removed without them: they would come back as a second
// section of the same name.
void Store::removeDormant(Id category)
{
    removeSection(category);
    freeCategory(category);
}

void Store::addStanzaLine(std::string_view name)
{
    Id const known = findCategory(name);
    if (known != 0 && categories_[known].isLive)
        return;
    reserveLines(2);
    reserveFor(name, {}, {});
    if (known != 0)
        removeDormant(known);
    appendHead(wakeCategory(0, name, hashOf(name)));
}

void Store::deleteStanza(std::string_view name)
{
    Id const category = findCategory(name);
    if (category == 0)
        return;
    bool const hasHead = categories_[category].head != 0;
    if (categories_[category].isLive)
        removeCategory(category);
    if (hasHead)
        removeDormant(category);
}

}  // namespace zcache
