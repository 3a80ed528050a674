// key_lines: where the line of a new key goes.

#include "../stanza/comment_template.h"
#include "../stanza/limits.h"
#include "contents.h"

namespace zcache {

// Notes the comment on `line`, which is in the section's tree, when it is the first template for
// its key. Never raises when room was reserved.
void Store::noteTemplate(Id category, Id line)
{
    char text[zstanza::kLineRoom];
    std::string_view const key(text, zstanza::takeTemplateKey(this->text(lines_[line]), text));
    if (key.empty())
        return;
    if (Id const known = findTemplate(category, key); known != 0) {
        if (trees_.isBefore(line, templates_[known].line))
            templates_[known].line = line;
        return;
    }
    Id const id = templates_.make();
    templates_[id] = {arena_.placeOf(arena_.add(key).data()), category, line};
    templateIndex_.add(hashOf(key, category), id);
}

void Store::forgetTemplate(Id category, Id line)
{
    char text[zstanza::kLineRoom];
    std::string_view const key(text, zstanza::takeTemplateKey(this->text(lines_[line]), text));
    Id const id = key.empty() ? 0 : findTemplate(category, key);
    if (id == 0)
        return;
    templateIndex_.remove(hashOf(key, category), id);
    arena_.drop(key);
    templates_[id].line = 0;
    templates_.free(id);
}

Id Store::findTemplate(Id category, std::string_view key) const
{
    return templateIndex_.find(hashOf(key, category), [&](Id id) {
        return templates_[id].category == category && arena_.view(templates_[id].key) == key;
    });
}

// Gives a section its tree and its templates. May raise, and then changed nothing.
void Store::indexSection(Id id)
{
    Id const first = lines_[categories_[id].head].next;
    Id const next = categories_[id].nextHead;
    Id const end = next == 0 ? 0 : categories_[next].head;
    size_t comments = 0;
    size_t bytes = 0;
    for (Id line = first; line != end; line = lines_[line].next) {
        if (lines_[line].kind == commentLine) {
            ++comments;
            bytes += text(lines_[line]).size();
        }
    }
    trees_.reserve(lines_);
    templates_.reserve(comments);
    templateIndex_.reserve(comments);
    arena_.reserve(bytes);

    categories_[id].root = trees_.build(lines_, first, end);
    for (Id line = first; line != end; line = lines_[line].next)
        if (lines_[line].kind == commentLine)
            noteTemplate(id, line);
}

// Takes tree and templates from the last section.
void Store::unindexLastSection()
{
    Category& last = categories_[lastHead_];
    for (Id line = lines_[last.head].next; line != 0; line = lines_[line].next)
        if (lines_[line].kind == commentLine)
            forgetTemplate(lastHead_, line);
    last.root = 0;
}

// Returns the line behind which a new key's line belongs: behind the last key line of the section,
// or its head; but when a template for the key stands in the section, and a blank line somewhere
// behind the template, right before the first such blank line.
Id Store::placeForKeyLine(Id id, std::string_view key) const
{
    Category const& category = categories_[id];
    if (!category.hasComments)
        return category.lastKeyLine == 0 ? category.head : category.lastKeyLine;
    if (key.find('=') != key.npos)
        return placeByWalk(id, key);
    // A template's key has no blanks, so a key with blanks is not found.
    if (Id const known = findTemplate(id, key); known != 0) {
        Id const blank = trees_.blankBehind(lines_, templates_[known].line);
        if (blank != 0)
            return lines_[blank].previous;
    }
    Id const last = trees_.lastKeyLine(lines_, category.root);
    return last == 0 ? category.head : last;
}

// The same for a key that the templates are not sorted by: one with "=" in it.
Id Store::placeByWalk(Id id, std::string_view key) const
{
    Id place = categories_[id].head;
    bool isTemplateSeen = false;
    for (Id line = lines_[place].next; line != 0; line = lines_[line].next) {
        switch (lines_[line].kind) {
            case keyLine:
                place = line;
                break;
            case commentLine:
                if (isTemplateSeen && lines_[line].isBelowBlank)
                    return lines_[line].previous;
                isTemplateSeen =
                    isTemplateSeen || zstanza::isTemplateFor(key, arena_.at(lines_[line].of));
                break;
            case blankLine:
                if (isTemplateSeen)
                    return lines_[line].previous;
                break;
            default:
                return place;
        }
    }
    return place;
}

// Gives a key its line. Needs room for three lines, and a section with comments its index.
void Store::makeKeyLine(Id keyId)
{
    Key& key = keys_[keyId];
    if (categories_[key.category].head == 0)
        appendHead(key.category);
    Id const place = placeForKeyLine(key.category, name(key));
    key.line = makeLine(keyLine, keyId, key.category, place);
    if (!categories_[key.category].hasComments)
        categories_[key.category].lastKeyLine = key.line;
}

void Store::removeKeyLine(Id keyId)
{
    Id const id = std::exchange(keys_[keyId].line, 0);
    Category& category = categories_[keys_[keyId].category];
    if (category.tree() != 0)
        category.root = trees_.remove(lines_, id);
    if (!category.hasComments && category.lastKeyLine == id) {
        Id last = lines_[id].previous;
        while (last != category.head && lines_[last].kind != keyLine)
            last = lines_[last].previous;
        category.lastKeyLine = last == category.head ? 0 : last;
    }
    unlinkLine(id);
    freeLine(id);
}

void Store::addLine(std::string_view categoryName, std::string_view name, std::string_view value,
                    Kind kind)
{
    if (name.empty()) {
        addStanzaLine(categoryName);
        return;
    }
    reserveLines(3);
    Found found = find(categoryName, name);
    reserveKeyLine(found);
    reserveFor(categoryName, name, value);
    if (found.category != 0 && !categories_[found.category].isLive) {
        removeDormant(found.category);
        found.category = found.key = 0;
    }
    Id const key = set(found, categoryName, name, value, kind);
    if (keys_[key].line == 0)
        makeKeyLine(key);
}

void Store::deleteLine(std::string_view categoryName, std::string_view name)
{
    Found const found = find(categoryName, name);
    Id const key = found.key;
    if (key == 0)
        return;
    bool const hasLine = keys_[key].line != 0;
    if (keys_[key].isLive)
        removeKey(key);
    if (hasLine) {
        removeKeyLine(key);
        freeKey(key, found.hash);
    }
}

// Makes sure that the place of a key line can be found without raising.
void Store::reserveKeyLine(Found const& found)
{
    if (found.category == 0 || (found.key != 0 && keys_[found.key].line != 0))
        return;
    Category const& category = categories_[found.category];
    if (category.isLive && category.hasComments && category.root == 0)
        indexSection(found.category);
}

}  // namespace zcache
