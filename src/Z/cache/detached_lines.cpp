// detached_lines: the line operations of derived classes, whose overrides may keep the
// values elsewhere.
//
// A line then refers to a category or key that is detached.

#include "contents.h"

namespace zcache {

// Removes the section of a category. The category stays.
void Contents::dropSection(Id id)
{
    removeSection(id);
    Category& category = categories_[id];
    category.header = 0;
    category.hasComments = false;
    category.lastKeyLine = 0;
}

// Returns a category; a missing one is created detached. Requires memory for it and its name.
Id Contents::ensureCategory(std::string_view name)
{
    uint32_t const hash = categoryHash(name);
    Id const known = findCategory(name, hash);
    return known != 0 ? known : createCategory(arena_.add(name), hash);
}

// The same for a key.
Id Contents::ensureKey(std::string_view categoryName, std::string_view name)
{
    Id const category = ensureCategory(categoryName);
    LookupResult const found = find(categoryName, name);
    return found.key != 0 ? found.key : createKey(category, arena_.add(name), found.hash);
}

void Contents::restartSection(std::string_view name)
{
    reserveLines(2);
    reserveFor(name, {}, {});
    Id const id = ensureCategory(name);
    if (categories_[id].header != 0)
        dropSection(id);
    appendHeader(id);
}

void Contents::readHeader(std::string_view name)
{
    reserveLines(1);
    reserveFor(name, {}, {});
    Id const id = ensureCategory(name);
    if (categories_[id].header != 0)
        return;
    categories_[id].header = createLine(headerLine, id, 0, lastLine_);
    linkHeader(id);
}

void Contents::readComment(std::string_view comment)
{
    reserveLines(1);
    reserveTemplates(1);
    arena_.reserve((comment.size() + 1) * 2);  // a template also stores its key
    std::string_view const kept = arena_.add(comment);
    createLine(commentLine, arena_.idOf(kept.data()), lastHeader_, lastLine_);
}

void Contents::readBlank()
{
    reserveLines(1);
    createLine(blankLine, 0, lastHeader_, lastLine_);
}

void Contents::readKey(std::string_view categoryName, std::string_view name)
{
    if (lastHeader_ == 0 || this->name(categories_[lastHeader_]) != categoryName) {
        // An override has concealed the category, so its section is not the last one.
        ensureKeyLine(categoryName, name);
        return;
    }
    reserveLines(1);
    reserveFor(categoryName, name, {});
    Id const id = ensureKey(categoryName, name);
    if (keys_[id].line != 0)
        return;
    keys_[id].line = createLine(keyLine, id, lastHeader_, lastLine_) & kMaxRecords;
    if (!categories_[lastHeader_].hasComments)
        categories_[lastHeader_].lastKeyLine = keys_[id].line;
}

bool Contents::ensureKeyLine(std::string_view categoryName, std::string_view name)
{
    reserveLines(3);
    Id const known = findCategory(categoryName);
    if (known != 0 && categories_[known].header != 0 && categories_[known].hasComments &&
        categories_[known].root == 0)
        indexSection(known);
    reserveFor(categoryName, name, {});
    Id const key = ensureKey(categoryName, name);
    if (keys_[key].line != 0)
        return false;
    createKeyLine(key);
    return true;
}

void Contents::removeKeyLine(std::string_view categoryName, std::string_view name)
{
    LookupResult const found = find(categoryName, name);
    if (found.key == 0 || keys_[found.key].line == 0)
        return;
    removeKeyLine(found.key);
    if (!keys_[found.key].isLive)
        freeKey(found.key, found.hash);
}

void Contents::removeSection(std::string_view name)
{
    Id const id = findCategory(name);
    if (id == 0 || categories_[id].header == 0)
        return;
    dropSection(id);
    if (!categories_[id].isLive)
        freeCategory(id);
}

void Contents::undoRestartSection(std::string_view name)
{
    Id const id = findCategory(name);
    Id const blank =
        id == 0 || categories_[id].header == 0 ? 0 : lines_[categories_[id].header].previous;
    Id const before = blank == 0 ? 0 : categories_[id].previousHeader;
    removeSection(name);
    if (blank == 0 || lines_[blank].kind != blankLine)
        return;
    if (before != 0 && categories_[before].tree() != 0)
        categories_[before].root = positions_->treap.remove(lines_, blank);
    unlinkLine(blank);
    freeLine(blank);
}

void Contents::commentStanza(std::string_view name, std::string_view comment)
{
    CommentSplitter const comments(comment, policy_->comments);
    reserveLines(comments.count() + 3);
    reserveFor(name, {}, {});
    reserveComments(comments, 3, name.size() + 1);
    addStanzaComment(ensureCategory(name), comment);
}

void Contents::commentKey(std::string_view categoryName, std::string_view name,
                          std::string_view comment)
{
    CommentSplitter const comments(comment, policy_->comments);
    ensureKeyLine(categoryName, name);
    reserveComments(comments, 1, 0);
    commentKey(find(categoryName, name).key, comments);
}

}  // namespace zcache
