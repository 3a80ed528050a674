// comments: adds comments at the start of the file, above headers and above keys.

#include "contents.h"

namespace zcache {

// Ensures that creating the comment lines, `lines` other lines and strings of `bytes` does not
// throw.
void Contents::reserveComments(CommentSplitter const& comments, size_t lines, size_t bytes)
{
    reserveLines(comments.count() + lines);
    reserveTemplates(comments.count());
    arena_.reserve(comments.bytes() * 2 + bytes);  // a template also stores its key
}

// Inserts comment lines after `before`. Returns the last one.
Id Contents::createComments(CommentSplitter const& comments, Id category, Id before)
{
    comments.forEachLine([&](bool lacksMark, std::string_view text) {
        std::string_view const kept =
            lacksMark ? arena_.add(policy_->comments.marks.front(), text) : arena_.add(text);
        before = createLine(commentLine, arena_.idOf(kept.data()), category, before);
    });
    return before;
}

void Contents::addFileComment(std::string_view comment)
{
    CommentSplitter const comments(comment, policy_->comments);
    reserveComments(comments, 1, 0);
    // Find the last of the comments at the start of the file. They are never removed one by one, so
    // resume where the last search ended.
    Id last = lastLeading_;
    for (Id next = last == 0 ? firstLine_ : lines_[last].next;
         next != 0 && lines_[next].kind == commentLine && !lines_[next].startsComment();
         next = lines_[next].next)
        last = next;
    lastLeading_ = createComments(comments, 0, last);
    Id const next = lines_[lastLeading_].next;
    if (next != 0 && lines_[next].kind == headerLine)
        createLine(blankLine, 0, 0, lastLeading_);
}

void Contents::addStanzaComment(Id id, std::string_view comment)
{
    CommentSplitter const comments(comment, policy_->comments);
    reserveComments(comments, 3, 0);
    if (categories_[id].header == 0)
        appendHeader(id);
    // The lines above a header belong to the previous section.
    Category const& category = categories_[id];
    Id before = lines_[category.header].previous;
    if (before == 0 || lines_[before].kind != blankLine)
        before = createLine(blankLine, 0, category.previousHeader, before);
    createComments(comments, category.previousHeader, before);
    moveGap(category.header, lines_[before].next);
}

void Contents::addLineComment(std::string_view categoryName, std::string_view name,
                              std::string_view comment)
{
    CommentSplitter const comments(comment, policy_->comments);
    reserveLines(comments.count() + 4);
    LookupResult found = find(categoryName, name);
    reserveKeyLine(found);
    reserveComments(comments, 4, categoryName.size() + name.size() + 3);
    if (found.key == 0 || !keys_[found.key].isLive) {
        addLine(categoryName, name, {}, plain);
        found = find(categoryName, name);
    } else if (keys_[found.key].line == 0) {
        createKeyLine(found.key);
    }
    commentKey(found.key, comments);
}

// Inserts comment lines above the line of a key, below a blank line if other lines are above.
// Requires reserveComments() with one more line.
void Contents::commentKey(Id key, CommentSplitter const& comments)
{
    Id const category = keys_[key].category;
    Id before = lines_[keys_[key].line].previous;
    LineKind const above = static_cast<LineKind>(lines_[before].kind);
    bool const isBelowGap = policy_->hasGaps && lines_[keys_[key].line].isBelowGap;
    if (above == keyLine || above == headerLine || isBelowGap)
        before = createLine(blankLine, 0, category, before);
    createComments(comments, category, before);
    moveGap(keys_[key].line, lines_[before].next);
}

}  // namespace zcache
