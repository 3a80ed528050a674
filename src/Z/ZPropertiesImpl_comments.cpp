// The comments that callers read and replace.

#include "ZPropertiesImpl_p.h"

using zcache::Contents;
using zcache::Id;

namespace {

// Returns whether a category has no header: the comment of the file is also its comment. A comment
// above the first key is the comment of that key.
bool isWithoutHeader(Contents const& contents, char const* category)
{
    Id const id = category == nullptr ? 0 : contents.liveCategory(category);
    return id != 0 && contents.isTop(id);
}

Contents::CommentBlock blockOf(Contents const& contents, char const* category, char const* key)
{
    if (category == nullptr || (key == nullptr && isWithoutHeader(contents, category)))
        return contents.fileComment();
    if (key != nullptr) {
        Id const id = contents.liveKey(category, key);
        return id == 0 ? Contents::CommentBlock{0, 0, 0} : contents.keyComment(id);
    }
    Id const id = contents.liveCategory(category);
    return id == 0 ? Contents::CommentBlock{0, 0, 0} : contents.stanzaComment(id);
}

}  // namespace

int ZPCategoryBasedCache_6_0::getComment(char const* category, char const* key,
                                         ZLCString_6_0& out) const
{
    Contents::CommentBlock const block = blockOf(*rep_, category, key);
    zstanza::TextBuffer text;
    for (Id line = block.first; line != 0; line = rep_->line(line).next) {
        if (line != block.first)
            text.add("\n");
        text.add(rep_->text(rep_->line(line)));
        if (line == block.last)
            break;
    }
    out = ZLCString_6_0(text.chars(), static_cast<unsigned>(text.length()));
    return block.first != 0;
}

void ZPCategoryBasedCache_6_0::setComment(char const* category, char const* key,
                                          char const* comment)
{
    Contents::CommentBlock const block = blockOf(*rep_, category, key);
    if (block.first != 0)
        rep_->replaceComment(
            block, comment == nullptr ? std::string_view() : zcache::checkedView(comment));
    else if (comment == nullptr)
        return;
    else if (key != nullptr)
        addLineComment(category, key, comment);
    else if (category != nullptr && !isWithoutHeader(*rep_, category))
        addStanzaComment(category, comment);
    else
        rep_->setFileComment(zcache::checkedView(comment));
    changed();
}
