// The comments that callers read and replace.

#include "ZPropertiesImpl_p.h"

using zcache::Contents;
using zcache::Id;

namespace {

Contents::CommentBlock blockOf(Contents const& contents, char const* category, char const* key)
{
    if (category == nullptr)
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
    else if (category != nullptr)
        addStanzaComment(category, comment);
    else
        rep_->setFileComment(zcache::checkedView(comment));
    changed();
}
