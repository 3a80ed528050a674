#include "contents.h"

#include "../ZException.h"

namespace zcache {

namespace {

constexpr size_t kWorthTidying = 1 << 16;  // dead bytes

}  // namespace

Store::Store(Store const& other) : Store()
{
    categories_.copy(other.categories_);
    keys_.copy(other.keys_);
    values_.copy(other.values_);
    lines_.copy(other.lines_);
    categoryIndex_.copy(other.categoryIndex_);
    keyIndex_.copy(other.keyIndex_);
    firstCategory_ = other.firstCategory_;
    lastCategory_ = other.lastCategory_;
    categoryCount_ = other.categoryCount_;
    firstLine_ = other.firstLine_;
    lastLine_ = other.lastLine_;
    firstHead_ = other.firstHead_;
    lastHead_ = other.lastHead_;
    lastLeading_ = other.lastLeading_;
    // What was made for callers, and the trees, stay behind.
    categoryMores_.copy(other.categoryMores_);
    for (Id i = 1; i < categoryMores_.end(); ++i)
        if (categoryMores_[i].category != 0)
            categoryMores_[i].values = nullptr, categoryMores_[i].name = nullptr;
    for (Id i = firstHead_; i != 0; i = categories_[i].nextHead)
        if (categories_[i].hasComments)
            categories_[i].root = 0;

    keyMores_.copy(other.keyMores_);
    for (Id i = 1; i < keyMores_.end(); ++i) {
        KeyMore& more = keyMores_[i];
        if (more.key != 0)
            more.lists[plain] = more.lists[obfuscated] = nullptr, more.name = nullptr;
    }
    firstItem_ = other.firstItem_;
    lastItem_ = other.lastItem_;
    itemCount_ = other.itemCount_;
    for (Id i = 1; i < keyMores_.end(); ++i) {
        KeyMore const& more = other.keyMores_[i];
        if (more.key == 0)
            continue;
        for (Kind const kind : {plain, obfuscated})
            if (more.lists[kind] != nullptr)
                keyMores_[i].lists[kind] = new ZArrayList_6_0(*more.lists[kind]);
    }
    moveTexts(other.arena_);
}

Store::~Store()
{
    for (Id i = 1; i < keyMores_.end(); ++i) {
        KeyMore const& more = keyMores_[i];
        if (more.key == 0)
            continue;
        delete more.lists[plain];
        delete more.lists[obfuscated];
        delete more.name;
    }
    for (Id i = 1; i < categoryMores_.end(); ++i) {
        CategoryMore const& more = categoryMores_[i];
        if (more.category == 0)
            continue;
        delete more.values;
        delete more.name;
    }
}

void Store::swap(Store& other)
{
    arena_.swap(other.arena_);
    categories_.swap(other.categories_);
    categoryMores_.swap(other.categoryMores_);
    keys_.swap(other.keys_);
    keyMores_.swap(other.keyMores_);
    values_.swap(other.values_);
    lines_.swap(other.lines_);
    templates_.swap(other.templates_);
    categoryIndex_.swap(other.categoryIndex_);
    keyIndex_.swap(other.keyIndex_);
    templateIndex_.swap(other.templateIndex_);
    trees_.swap(other.trees_);
    std::swap(firstCategory_, other.firstCategory_);
    std::swap(lastCategory_, other.lastCategory_);
    std::swap(categoryCount_, other.categoryCount_);
    std::swap(firstItem_, other.firstItem_);
    std::swap(lastItem_, other.lastItem_);
    std::swap(itemCount_, other.itemCount_);
    std::swap(firstLine_, other.firstLine_);
    std::swap(lastLine_, other.lastLine_);
    std::swap(firstHead_, other.firstHead_);
    std::swap(lastHead_, other.lastHead_);
    std::swap(lastLeading_, other.lastLeading_);
    std::swap(tidyAt_, other.tidyAt_);
}

size_t Store::memoryUsed() const
{
    return arena_.bytes() + categories_.bytes() + categoryMores_.bytes() + keys_.bytes() +
           keyMores_.bytes() + values_.bytes() + lines_.bytes() + templates_.bytes() +
           categoryIndex_.bytes() + keyIndex_.bytes() + templateIndex_.bytes() + trees_.bytes();
}

// Calls `call(TextId& text, std::string_view)` for each text that is in use; the texts are in
// `arena`.
template <class Call>
void Store::eachText(Arena const& arena, Call call)
{
    auto const keyTexts = [&](Key& key) {
        call(key.name, arena.view(key.name, key.nameLength));
        if (key.value != 0)
            call(key.value, arena.view(key.value, key.valueLength));
        if (key.more == 0)
            return;
        for (Id const first : keyMores_[key.more].first)
            for (Id i = first; i != 0; i = values_[i].next)
                call(values_[i].text,
                     std::string_view(arena.at(values_[i].text), values_[i].length));
    };
    auto const categoryText = [&](Category& category) {
        call(category.name, arena.view(category.name, category.nameLength));
    };
    for (Id i = firstCategory_; i != 0; i = categories_[i].next) {
        categoryText(categories_[i]);
        for (Id k = categories_[i].firstKey; k != 0; k = keys_[k].next)
            keyTexts(keys_[k]);
    }
    for (Id i = firstLine_; i != 0; i = lines_[i].next) {
        Id const of = lines_[i].of;
        switch (lines_[i].kind) {
            case commentLine:
                call(lines_[i].of, arena.view(of));
                break;
            case headLine:
                if (!categories_[of].isLive)
                    categoryText(categories_[of]);
                break;
            case keyLine:
                if (!keys_[of].isLive)
                    keyTexts(keys_[of]);
                break;
            default:
                break;
        }
    }
    for (Id i = 1; i < templates_.end(); ++i)
        if (templates_[i].line != 0)
            call(templates_[i].key, arena.view(templates_[i].key));
}

// Makes the arena one chunk with copies of the texts in use, which are in `arena`.
void Store::moveTexts(Arena const& arena)
{
    size_t bytes = 0;
    eachText(arena, [&](TextId, std::string_view text) { bytes += text.size() + 1; });
    Arena fresh;
    if (bytes != 0)
        fresh.reserve(bytes);
    eachText(arena, [&](TextId& id, std::string_view text) {
        id = fresh.placeOf(fresh.add(text).data());
    });
    arena_.swap(fresh);
}

void Store::tidy()
{
    // To move the texts takes time for every line, with a text or without: so many must have died.
    size_t const dead = arena_.dead();
    if (dead <= kWorthTidying || dead <= arena_.used() / 2 + lines_.count() || dead <= tidyAt_)
        return;
    try {
        moveTexts(arena_);
        tidyAt_ = 0;
    } catch (ZOutOfMemoryException_6_0 const&) {
        tidyAt_ = dead * 2;  // it can wait: nothing depends on it
    }
}

void Store::fit()
{
    categories_.fit();
    keys_.fit();
    keyMores_.fit();
    values_.fit();
    lines_.fit();
}

}  // namespace zcache
