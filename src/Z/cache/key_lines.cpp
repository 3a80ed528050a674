// key_lines: the lines of keys, and the position at which a new one is inserted.

#include "../stanza/comment_template.h"
#include "../stanza/limits.h"
#include "contents.h"

namespace zcache {

// Stores the key of the template on `line` in `key`; returns its length, or 0.
size_t Contents::templateKey(Id line, char* key, size_t capacity) const
{
    return zstanza::extractTemplateKey(text(lines_[line]), policy_->comments, key, capacity);
}

// Ensures that `count` calls of recordTemplate() do not throw. Creates the treap, too.
void Contents::reserveTemplates(size_t count)
{
    std::unique_ptr<Positions> created;
    if (positions_ == nullptr)
        created.reset(zstanza::allocate<Positions>());
    Positions& positions = created == nullptr ? *positions_ : *created;
    positions.templates.reserve(count);
    positions.index.reserve(count, positions.templates.end() + count,
                            [this](Id id) { return hashOfTemplate(id); });
    if (created != nullptr)
        positions_ = std::move(created);
}

// Records the comment on `line`, which is in the section's treap, if it is the first template for
// its key. Requires memory for a template and its key.
void Contents::recordTemplate(Id category, Id line)
{
    char text[zstanza::kLineBufferSize];
    std::string_view const key(text, templateKey(line, text, sizeof text));
    if (key.empty())
        return;
    SlotPool<Template>& templates = positions_->templates;
    if (Id const known = findTemplate(category, key); known != 0) {
        if (positions_->treap.isBefore(line, templates[known].line))
            templates[known].line = line;
        return;
    }
    Id const id = templates.allocate();
    templates[id] = {arena_.idOf(arena_.add(key).data()), category, line};
    positions_->index.add(policy_->keys.hash(key, category), id);
}

void Contents::forgetTemplate(Id category, Id line)
{
    char text[zstanza::kLineBufferSize];
    std::string_view const key(text, templateKey(line, text, sizeof text));
    Id const id = key.empty() ? 0 : findTemplate(category, key);
    if (id == 0)
        return;
    SlotPool<Template>& templates = positions_->templates;
    positions_->index.remove(policy_->keys.hash(key, category), id,
                             [this](Id other) { return hashOfTemplate(other); });
    arena_.drop(arena_.view(templates[id].key));
    templates[id].line = 0;
    templates.free(id);
}

Id Contents::findTemplate(Id category, std::string_view key) const
{
    if (positions_ == nullptr)
        return 0;
    return positions_->index.find(policy_->keys.hash(key, category), [&](Id id) {
        Template const& known = positions_->templates[id];
        return known.category == category && policy_->keys.matches(arena_.view(known.key), key);
    });
}

// Builds the treap of a section and records its templates. The contents are unchanged if it throws.
void Contents::indexSection(Id id)
{
    Id const first = lines_[categories_[id].header].next;
    Id const next = categories_[id].nextHeader;
    Id const end = next == 0 ? 0 : categories_[next].header;
    size_t comments = 0;
    size_t bytes = 0;
    for (Id line = first; line != end; line = lines_[line].next) {
        if (lines_[line].kind == commentLine) {
            ++comments;
            bytes += text(lines_[line]).size();
        }
    }
    reserveTemplates(comments);
    positions_->treap.reserve(lines_);
    arena_.reserve(bytes);

    categories_[id].root = positions_->treap.build(lines_, first, end);
    for (Id line = first; line != end; line = lines_[line].next)
        if (lines_[line].kind == commentLine)
            recordTemplate(id, line);
}

// Drops the treap and the templates of the last section.
void Contents::unindexLastSection()
{
    Category& last = categories_[lastHeader_];
    for (Id line = lines_[last.header].next; line != 0; line = lines_[line].next)
        if (lines_[line].kind == commentLine)
            forgetTemplate(lastHeader_, line);
    last.root = 0;
}

// Returns the line after which a new key's line is inserted: the last key line of the section, or
// its header. If the section has a template for the key and a blank line after it, the new line
// goes right before the first such blank line, or after the template itself (insertAtTemplates()).
Id Contents::insertionPoint(Id id, std::string_view key) const
{
    Category const& category = categories_[id];
    if (!category.hasComments)
        return category.lastKeyLine == 0 ? category.header : category.lastKeyLine;
    if (key.find('=') != key.npos)
        return insertionPointByScan(id, key);
    // The key of a template has no spaces. A key with spaces is found if the dialect ignores them.
    if (Id const known = findTemplate(id, key); known != 0) {
        if (insertsAtTemplates_)
            return positions_->templates[known].line;
        Id const blank = positions_->treap.nextBlankLine(lines_, positions_->templates[known].line);
        if (blank != 0)
            return lines_[blank].previous;
    }
    Id const last = category.tree() == 0 ? 0 : positions_->treap.lastKeyLine(lines_, category.root);
    return last == 0 ? category.header : last;
}

// The same for a key with "=" in it, which the index of templates cannot find.
Id Contents::insertionPointByScan(Id id, std::string_view key) const
{
    Id position = categories_[id].header;
    bool isTemplateSeen = false;
    for (Id line = lines_[position].next; line != 0; line = lines_[line].next) {
        switch (lines_[line].kind) {
            case keyLine:
                position = line;
                break;
            case commentLine:
                if (isTemplateSeen && lines_[line].isBelowBlank)
                    return lines_[line].previous;
                isTemplateSeen =
                    isTemplateSeen ||
                    zstanza::isTemplateFor(key, policy_->comments, arena_.at(lines_[line].ref));
                if (isTemplateSeen && insertsAtTemplates_)
                    return line;
                break;
            case blankLine:
                if (isTemplateSeen)
                    return lines_[line].previous;
                break;
            default:
                return position;
        }
    }
    return position;
}

// Creates the line of a key. Requires reserveLines(3), and an index if the section has comments.
void Contents::createKeyLine(Id keyId)
{
    Key& key = keys_[keyId];
    if (categories_[key.category].header == 0)
        appendHeader(key.category);
    Id const position = insertionPoint(key.category, name(key));
    key.line = createLine(keyLine, keyId, key.category, position) & kMaxRecords;
    if (!categories_[key.category].hasComments)
        categories_[key.category].lastKeyLine = key.line;
}

void Contents::removeKeyLine(Id keyId)
{
    Key& key = keys_[keyId];
    Id const id = key.line;
    key.line = 0;
    Category& category = categories_[key.category];
    if (category.tree() != 0)
        category.root = positions_->treap.remove(lines_, id);
    if (!category.hasComments && category.lastKeyLine == id) {
        Id last = lines_[id].previous;
        while (last != category.header && lines_[last].kind != keyLine)
            last = lines_[last].previous;
        category.lastKeyLine = last == category.header ? 0 : last;
    }
    unlinkLine(id);
    freeLine(id);
}

void Contents::addLine(std::string_view categoryName, std::string_view name, std::string_view value,
                       Kind kind)
{
    if (name.empty()) {
        addStanzaLine(categoryName);
        return;
    }
    reserveLines(3);
    LookupResult found = find(categoryName, name);
    reserveKeyLine(found);
    reserveFor(categoryName, name, value);
    if (found.category != 0 && !categories_[found.category].isLive) {
        removeDetachedSection(found.category);
        found.category = found.key = 0;
    }
    Id const key = set(found, categoryName, name, value, kind);
    if (keys_[key].line == 0)
        createKeyLine(key);
}

void Contents::deleteLine(std::string_view categoryName, std::string_view name)
{
    LookupResult const found = find(categoryName, name);
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

// Ensures that finding the position of a key line does not throw.
void Contents::reserveKeyLine(LookupResult const& found)
{
    if (found.category == 0 || (found.key != 0 && keys_[found.key].line != 0))
        return;
    Category const& category = categories_[found.category];
    if (category.isLive && category.hasComments && category.root == 0)
        indexSection(found.category);
}

}  // namespace zcache
