// detached_lines: lines for caches whose values are kept elsewhere.

#include "contents.h"

namespace zcache {

// Removes the section of a category that stays, with its header.
void Store::dropSection(Id id)
{
    removeSection(id);
    Category& category = categories_[id];
    category.head = 0;
    category.hasComments = false;
    category.lastKeyLine = 0;
}

// Returns a category; one that is missing is made dormant. Needs room for one, and for its name.
Id Store::ensureCategory(std::string_view name)
{
    uint32_t const hash = hashOf(name);
    Id const known = findCategory(name, hash);
    return known != 0 ? known : newCategory(arena_.add(name), hash);
}

// The same for a key.
Id Store::ensureKey(std::string_view categoryName, std::string_view name)
{
    Id const category = ensureCategory(categoryName);
    Found const found = find(categoryName, name);
    return found.key != 0 ? found.key : newKey(category, arena_.add(name), found.hash);
}

void Store::restartSection(std::string_view name)
{
    reserveLines(2);
    reserveFor(name, {}, {});
    Id const id = ensureCategory(name);
    if (categories_[id].head != 0)
        dropSection(id);
    appendHead(id);
}

void Store::readHead(std::string_view name)
{
    reserveLines(1);
    reserveFor(name, {}, {});
    Id const id = ensureCategory(name);
    if (categories_[id].head != 0)
        return;
    categories_[id].head = makeLine(headLine, id, 0, lastLine_);
    enlistHead(id);
}

void Store::readComment(std::string_view comment)
{
    reserveLines(1);
    templates_.reserve(1);
    templateIndex_.reserve(1);
    arena_.reserve((comment.size() + 1) * 2);  // a template stores its key once more
    std::string_view const kept = arena_.add(comment);
    makeLine(commentLine, arena_.placeOf(kept.data()), lastHead_, lastLine_);
}

void Store::readBlank()
{
    reserveLines(1);
    makeLine(blankLine, 0, lastHead_, lastLine_);
}

void Store::readKey(std::string_view categoryName, std::string_view name)
{
    if (lastHead_ == 0 || this->name(categories_[lastHead_]) != categoryName) {
        // The category has its section further up: an override concealed it.
        ensureKeyLine(categoryName, name);
        return;
    }
    reserveLines(1);
    reserveFor(categoryName, name, {});
    Id const id = ensureKey(categoryName, name);
    if (keys_[id].line != 0)
        return;
    keys_[id].line = makeLine(keyLine, id, lastHead_, lastLine_);
    if (!categories_[lastHead_].hasComments)
        categories_[lastHead_].lastKeyLine = keys_[id].line;
}

bool Store::ensureKeyLine(std::string_view categoryName, std::string_view name)
{
    reserveLines(3);
    Id const known = findCategory(categoryName);
    if (known != 0 && categories_[known].head != 0 && categories_[known].hasComments &&
        categories_[known].root == 0)
        indexSection(known);
    reserveFor(categoryName, name, {});
    Id const key = ensureKey(categoryName, name);
    if (keys_[key].line != 0)
        return false;
    makeKeyLine(key);
    return true;
}

void Store::removeKeyLine(std::string_view categoryName, std::string_view name)
{
    Found const found = find(categoryName, name);
    if (found.key == 0 || keys_[found.key].line == 0)
        return;
    removeKeyLine(found.key);
    if (!keys_[found.key].isLive)
        freeKey(found.key, found.hash);
}

void Store::removeSection(std::string_view name)
{
    Id const id = findCategory(name);
    if (id == 0 || categories_[id].head == 0)
        return;
    dropSection(id);
    if (!categories_[id].isLive)
        freeCategory(id);
}

void Store::takeBackSection(std::string_view name)
{
    Id const id = findCategory(name);
    Id const blank =
        id == 0 || categories_[id].head == 0 ? 0 : lines_[categories_[id].head].previous;
    Id const before = blank == 0 ? 0 : categories_[id].previousHead;
    removeSection(name);
    if (blank == 0 || lines_[blank].kind != blankLine)
        return;
    if (before != 0 && categories_[before].tree() != 0)
        categories_[before].root = trees_.remove(lines_, blank);
    unlinkLine(blank);
    freeLine(blank);
}

void Store::commentStanza(std::string_view name, std::string_view comment)
{
    Pieces const pieces(comment);
    reserveLines(pieces.count() + 3);
    reserveFor(name, {}, {});
    reserveComments(pieces, 3, name.size() + 1);
    addStanzaComment(ensureCategory(name), comment);
}

void Store::commentKey(std::string_view categoryName, std::string_view name,
                       std::string_view comment)
{
    Pieces const pieces(comment);
    ensureKeyLine(categoryName, name);
    reserveComments(pieces, 1, 0);
    commentKey(find(categoryName, name).key, pieces);
}

}  // namespace zcache
