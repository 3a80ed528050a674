// The lines of a cache.

#include <string.h>

#include "ZException.h"
#include "ZPropertiesImpl_p.h"

namespace cache {

// --- Trees

void Trees::reserve(Records<Line> const& lines)
{
    if (capacity_ >= lines.capacity())
        return;
    nodes_ =
        static_cast<Node*>(reallocate(static_cast<void*>(nodes_), lines.capacity() * sizeof(Node)));
    capacity_ = lines.capacity();
}

void Trees::swap(Trees& other)
{
    std::swap(nodes_, other.nodes_);
    std::swap(capacity_, other.capacity_);
}

void Trees::update(Records<Line> const& lines, Id id)
{
    Node node = nodes_[id];
    node.size = 1;
    node.hasKeyLine = lines[id].kind == keyLine;
    node.hasBlank = lines[id].hasBlank();
    for (Id const child : {node.left, node.right}) {
        if (child != 0) {
            Node const& below = nodes_[child];
            node.size += below.size;
            node.hasKeyLine |= below.hasKeyLine;
            node.hasBlank |= below.hasBlank;
        }
    }
    nodes_[id] = node;
}

// Every line in turn becomes the last one: it takes the place of those on the right edge whose
// priority is lower, and they become its left subtree.
Id Trees::build(Records<Line> const& lines, Id first, Id end)
{
    Id last = 0;
    for (Id id = first; id != end; id = lines[id].next) {
        Id below = 0;
        while (last != 0 && priority(last) < priority(id)) {
            update(lines, last);
            below = last;
            last = nodes_[last].parent;
        }
        nodes_[id] = {};
        nodes_[id].left = below;
        nodes_[id].parent = last;
        if (below != 0)
            nodes_[below].parent = id;
        if (last != 0)
            nodes_[last].right = id;
        last = id;
    }
    Id root = 0;
    for (; last != 0; last = nodes_[last].parent) {
        update(lines, last);
        root = last;
    }
    return root;
}

void Trees::rotateUp(Records<Line> const& lines, Id id)
{
    Id const parent = nodes_[id].parent;
    Id const above = nodes_[parent].parent;
    Id moved;
    if (nodes_[parent].left == id) {
        moved = nodes_[id].right;
        nodes_[parent].left = moved;
        nodes_[id].right = parent;
    } else {
        moved = nodes_[id].left;
        nodes_[parent].right = moved;
        nodes_[id].left = parent;
    }
    if (moved != 0)
        nodes_[moved].parent = parent;
    nodes_[parent].parent = id;
    nodes_[id].parent = above;
    if (above != 0)
        (nodes_[above].left == parent ? nodes_[above].left : nodes_[above].right) = id;
    update(lines, parent);
    update(lines, id);
}

// Brings what is above `id` up to date. Returns the root.
Id Trees::settle(Records<Line> const& lines, Id id)
{
    update(lines, id);
    while (nodes_[id].parent != 0) {
        id = nodes_[id].parent;
        update(lines, id);
    }
    return id;
}

Id Trees::insert(Records<Line> const& lines, Id root, Id id, Id before)
{
    nodes_[id] = {};
    Id parent = before;
    if (before != 0 && nodes_[before].right == 0) {
        nodes_[before].right = id;
    } else {
        parent = before == 0 ? root : nodes_[before].right;
        while (nodes_[parent].left != 0)
            parent = nodes_[parent].left;
        nodes_[parent].left = id;
    }
    nodes_[id].parent = parent;
    update(lines, id);
    while (nodes_[id].parent != 0 && priority(nodes_[id].parent) < priority(id))
        rotateUp(lines, id);
    return settle(lines, id);
}

Id Trees::remove(Records<Line> const& lines, Id id)
{
    for (;;) {
        Id const left = nodes_[id].left;
        Id const right = nodes_[id].right;
        if (left == 0 && right == 0)
            break;
        rotateUp(lines,
                 right == 0 || (left != 0 && priority(left) > priority(right)) ? left : right);
    }
    Id const parent = nodes_[id].parent;
    if (parent == 0)
        return 0;
    (nodes_[parent].left == id ? nodes_[parent].left : nodes_[parent].right) = 0;
    return settle(lines, parent);
}

Id Trees::lastKeyLine(Records<Line> const& lines, Id root) const
{
    if (root == 0 || !nodes_[root].hasKeyLine)
        return 0;
    for (Id id = root;;) {
        Id const right = nodes_[id].right;
        if (right != 0 && nodes_[right].hasKeyLine)
            id = right;
        else if (lines[id].kind == keyLine)
            return id;
        else
            id = nodes_[id].left;
    }
}

// Returns the first blank line of the subtree, which has one.
Id Trees::firstBlank(Records<Line> const& lines, Id id) const
{
    for (;;) {
        Id const left = nodes_[id].left;
        if (left != 0 && nodes_[left].hasBlank)
            id = left;
        else if (lines[id].hasBlank())
            return id;
        else
            id = nodes_[id].right;
    }
}

Id Trees::blankBehind(Records<Line> const& lines, Id id) const
{
    for (;;) {
        Id const right = nodes_[id].right;
        if (right != 0 && nodes_[right].hasBlank)
            return firstBlank(lines, right);
        // Up to the first node that has this one on its left: the next one in order.
        Id parent = nodes_[id].parent;
        while (parent != 0 && nodes_[parent].right == id) {
            id = parent;
            parent = nodes_[id].parent;
        }
        if (parent == 0 || lines[parent].hasBlank())
            return parent;
        id = parent;
    }
}

uint32_t Trees::rank(Id id) const
{
    uint32_t before = nodes_[id].left == 0 ? 0 : nodes_[nodes_[id].left].size;
    for (Id parent = nodes_[id].parent; parent != 0; id = parent, parent = nodes_[id].parent) {
        if (nodes_[parent].right == id) {
            Id const left = nodes_[parent].left;
            before += 1 + (left == 0 ? 0 : nodes_[left].size);
        }
    }
    return before;
}

// --- comments as they are stored

// Cuts a comment into the lines that it becomes: at its line feeds, and where a line would be too
// long to be read back as one. Every line but the first gets a "#" when it has none.
class Store::Pieces {
public:
    explicit Pieces(std::string_view comment)
    {
        char const* const end = comment.data() + comment.size();
        isClosed_ = !comment.empty() && end[-1] == '\n';  // the last line feed begins no line
        rest_ = {comment.data(), comment.size() - (isClosed_ ? size_t{1} : size_t{0})};
        Pieces counting(*this, 0);
        do {
            bytes_ += counting.size() + 1;
            ++count_;
        } while (counting.step());
    }

    size_t count() const { return count_; }
    size_t bytes() const { return bytes_; }  // of all texts with their terminators

    // Calls `call(bool isMarked, std::string_view)` for each piece; one that is marked lacks its
    // "#".
    template <class Call>
    void each(Call call) const
    {
        Pieces walk(*this, 0);
        do
            call(walk.lacksMark(), walk.piece());
        while (walk.step());
    }

private:
    Pieces(Pieces const& other, int) : rest_(other.rest_), isClosed_(other.isClosed_) {}

    bool lacksMark() const { return !isFirst_ && (rest_.empty() || rest_[0] != '#'); }

    std::string_view piece() const
    {
        size_t const room = kLongestLine - (lacksMark() ? 1 : 0);
        size_t const most = rest_.size() < room ? rest_.size() : room;
        void const* const feed = memchr(rest_.data(), '\n', most);
        return {rest_.data(), feed == nullptr ? most
                                              : static_cast<size_t>(static_cast<char const*>(feed) -
                                                                    rest_.data())};
    }

    size_t size() const { return piece().size() + size_t{lacksMark()}; }

    bool step()
    {
        std::string_view const taken = piece();
        char const* const at = taken.data() + taken.size();
        size_t const left = rest_.size() - taken.size();
        if (left == 0)
            return false;
        rest_ = *at == '\n' ? std::string_view(at + 1, left - 1) : std::string_view(at, left);
        isFirst_ = false;
        return true;
    }

    std::string_view rest_;
    bool isClosed_ = false;
    bool isFirst_ = true;
    size_t count_ = 0;
    size_t bytes_ = 0;
};

// --- lines

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

// --- templates

namespace {

// Steps `text`, which is terminated, over `pattern`, skipping blanks before each character. Returns
// false when something else stands there.
bool stepOver(char const*& text, std::string_view pattern)
{
    for (size_t i = 0; i < pattern.size(); ++i, ++text) {
        while (*text == ' ')
            ++text;
        if (*text != pattern[i])
            return false;
    }
    return true;
}

// Takes the key of a template comment such as "# port = 5" into `key`, without its blanks. Returns
// its length; 0 when the comment is no template.
size_t takeTemplateKey(std::string_view comment, char* key)
{
    char const* at = comment.data();
    char const* const end = at + comment.size();
    while (at != end && *at == ' ')
        ++at;
    if (at == end || *at != '#')
        return 0;
    size_t length = 0;
    for (++at; at != end; ++at) {
        if (*at == '=')
            return length;
        if (*at != ' ')
            key[length++] = *at;
    }
    return 0;
}

bool isTemplateFor(std::string_view key, char const* comment)
{
    return stepOver(comment, "#") && stepOver(comment, key) && stepOver(comment, "=");
}

}  // namespace

// Notes the comment on `line`, which is in the section's tree, when it is the first template for
// its key. Never raises when room was reserved.
void Store::noteTemplate(Id category, Id line)
{
    char text[kLineRoom];
    std::string_view const key(text, takeTemplateKey(this->text(lines_[line]), text));
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
    char text[kLineRoom];
    std::string_view const key(text, takeTemplateKey(this->text(lines_[line]), text));
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

// --- key lines

bool beginsWithPattern(std::string_view pattern, char const* text)
{
    return stepOver(text, pattern);
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
                isTemplateSeen = isTemplateSeen || isTemplateFor(key, arena_.at(lines_[line].of));
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

// --- what callers ask for

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

// Makes sure that the place of a key line can be found without raising.
void Store::reserveKeyLine(Found const& found)
{
    if (found.category == 0 || (found.key != 0 && keys_[found.key].line != 0))
        return;
    Category const& category = categories_[found.category];
    if (category.isLive && category.hasComments && category.root == 0)
        indexSection(found.category);
}

// Makes sure that comment lines can be made without raising, and besides them `lines` more and
// texts of `bytes`.
void Store::reserveComments(Pieces const& pieces, size_t lines, size_t bytes)
{
    reserveLines(pieces.count() + lines);
    templates_.reserve(pieces.count());
    templateIndex_.reserve(pieces.count());
    arena_.reserve(pieces.bytes() * 2 + bytes);  // a template stores its key once more
}

// Makes comment lines behind `before`. Returns the last one.
Id Store::makeComments(Pieces const& pieces, Id category, Id before)
{
    pieces.each([&](bool lacksMark, std::string_view text) {
        std::string_view const kept = lacksMark ? arena_.add('#', text) : arena_.add(text);
        before = makeLine(commentLine, arena_.placeOf(kept.data()), category, before);
    });
    return before;
}

void Store::addFileComment(std::string_view comment)
{
    Pieces const pieces(comment);
    reserveComments(pieces, 1, 0);
    // The block is the run of comments that the file begins with. Its lines are never removed one
    // by one, so the walk goes on from where it ended last time.
    Id last = lastLeading_;
    for (Id next = last == 0 ? firstLine_ : lines_[last].next;
         next != 0 && lines_[next].kind == commentLine && !lines_[next].isBelowBlank;
         next = lines_[next].next)
        last = next;
    lastLeading_ = makeComments(pieces, 0, last);
    Id const next = lines_[lastLeading_].next;
    if (next != 0 && lines_[next].kind == headLine)
        makeLine(blankLine, 0, 0, lastLeading_);
}

void Store::addStanzaComment(Id id, std::string_view comment)
{
    Pieces const pieces(comment);
    reserveComments(pieces, 3, 0);
    if (categories_[id].head == 0)
        appendHead(id);
    // What stands above a head belongs to the section before it.
    Category const& category = categories_[id];
    Id before = lines_[category.head].previous;
    if (before == 0 || lines_[before].kind != blankLine)
        before = makeLine(blankLine, 0, category.previousHead, before);
    makeComments(pieces, category.previousHead, before);
}

void Store::addLineComment(std::string_view categoryName, std::string_view name,
                           std::string_view comment)
{
    Pieces const pieces(comment);
    reserveLines(pieces.count() + 4);
    Found found = find(categoryName, name);
    reserveKeyLine(found);
    reserveComments(pieces, 4, categoryName.size() + name.size() + 3);
    if (found.key == 0 || !keys_[found.key].isLive) {
        addLine(categoryName, name, {}, plain);
        found = find(categoryName, name);
    } else if (keys_[found.key].line == 0) {
        makeKeyLine(found.key);
    }
    commentKey(found.key, pieces);
}

// Makes comment lines above the line of a key. Needs room for them and for one line.
void Store::commentKey(Id key, Pieces const& pieces)
{
    Id const category = keys_[key].category;
    Id before = lines_[keys_[key].line].previous;
    LineKind const above = static_cast<LineKind>(lines_[before].kind);
    if (above == keyLine || above == headLine)
        before = makeLine(blankLine, 0, category, before);
    makeComments(pieces, category, before);
}

// --- lines for caches of derived classes

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

// --- Reader

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

void Reader::reserve(Expected const& lines)
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

}  // namespace cache
