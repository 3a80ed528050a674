// comment_blocks: finds, replaces and removes the comment above a header or a key, and the comment
// at the start of the file.

#include "contents.h"

namespace zcache {

Contents::CommentBlock Contents::commentAbove(Id line, Id category) const
{
    CommentBlock block = {0, 0, category};
    Id const last = line == 0 || lines_[line].isBelowGap ? 0 : lines_[line].previous;
    for (Id at = last; at != 0 && lines_[at].kind == commentLine; at = lines_[at].previous) {
        block.first = at;
        block.last = last;
        if (lines_[at].startsComment())
            break;
    }
    return block;
}

Contents::CommentBlock Contents::keyComment(Id key) const
{
    return commentAbove(keys_[key].line, keys_[key].category);
}

Contents::CommentBlock Contents::stanzaComment(Id category) const
{
    // The lines above a header belong to the previous section.
    return commentAbove(categories_[category].header, categories_[category].previousHeader);
}

Contents::CommentBlock Contents::fileComment() const
{
    CommentBlock block = {0, 0, 0};
    Id at = firstLine_;
    for (; at != 0 && lines_[at].kind == commentLine && !lines_[at].startsComment();
         at = lines_[at].next) {
        block.first = firstLine_;
        block.last = at;
    }
    if (at != 0 && lines_[at].kind == headerLine && isTop(lines_[at].ref))
        at = lines_[at].next;  // that header is not in the file
    bool const isOfNextLine = at != 0 && !lines_[at].isBelowGap &&
                              (lines_[at].kind == headerLine || lines_[at].kind == keyLine);
    return isOfNextLine ? CommentBlock{0, 0, 0} : block;
}

// Drops the treap and the templates of a section. They are built again when they are needed.
void Contents::unindexSection(Id category)
{
    if (category == 0 || categories_[category].tree() == 0)
        return;
    for (Id line = lines_[categories_[category].header].next;
         line != 0 && lines_[line].kind != headerLine; line = lines_[line].next)
        if (lines_[line].kind == commentLine)
            forgetTemplate(category, line);
    categories_[category].root = 0;
}

void Contents::replaceComment(CommentBlock const& block, std::string_view comment)
{
    bool const isRemoved = comment.data() == nullptr;
    CommentSplitter const comments(isRemoved ? "" : comment, policy_->comments);
    reserveComments(comments, 1, 0);
    unindexSection(block.category);
    lastLeading_ = 0;  // it may be one of the lines that are removed
    Id const before = lines_[block.first].previous;
    // A comment that stands for a blank line too leaves the blank line.
    if (lines_[block.first].isBelowBlank)
        createLine(blankLine, 0, block.category, before);
    if (!isRemoved)
        createComments(comments, block.category, block.last);
    for (Id line = block.first;;) {
        Id const next = lines_[line].next;
        unlinkLine(line);
        freeLine(line);
        if (line == block.last)
            return;
        line = next;
    }
}

void Contents::setFileComment(std::string_view comment)
{
    CommentSplitter const comments(comment, policy_->comments);
    reserveComments(comments, 1, 0);
    Id old = firstLine_;
    // A hidden header can be above a comment.
    if (old != 0 && lines_[old].kind == headerLine && isTop(lines_[old].ref) &&
        lines_[lines_[old].next].kind == commentLine)
        old = lines_[old].next;
    lastLeading_ = 0;
    Id const last = createComments(comments, 0, 0);
    // Without a blank line the next comment would continue this comment, or the next header have
    // it.
    if (old != 0 && !lines_[old].hasBlank() && !lines_[old].isBelowGap)
        createLine(blankLine, 0, 0, last);
}

}  // namespace zcache
