// comments: adds comments.

#include "contents.h"

namespace zcache {

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

}  // namespace zcache
