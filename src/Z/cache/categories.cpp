// categories: creates and removes categories and keys.

#include "contents.h"

namespace zcache {

// Makes a dormant category of a name in the arena.
Id Store::newCategory(std::string_view name, uint32_t hash)
{
    Id const id = categories_.make();
    categories_[id].name = arena_.placeOf(name.data());
    categories_[id].nameLength = Arena::packLength(name);
    categoryIndex_.add(hash, id);
    return id;
}

// Puts a category behind the live ones.
void Store::enlist(Id id)
{
    Category& category = categories_[id];
    category.isLive = true;
    category.previous = lastCategory_;
    category.next = 0;
    (lastCategory_ == 0 ? firstCategory_ : categories_[lastCategory_].next) = id;
    lastCategory_ = id;
    ++categoryCount_;
}

// Wakes the category, or makes it when `id` is 0. A name in the arena is kept where it is.
Id Store::wakeCategory(Id id, std::string_view name, uint32_t hash, Place place)
{
    if (id == 0)
        id = newCategory(place == inArena ? name : arena_.add(name), hash);
    else if (place == inArena)
        arena_.drop(name);
    if (!categories_[id].isLive)
        enlist(id);
    return id;
}

// Makes a dormant key of a name in the arena.
Id Store::newKey(Id category, std::string_view name, uint32_t hash)
{
    Id const id = keys_.make();
    Key& key = keys_[id];
    key.name = arena_.placeOf(name.data());
    key.nameLength = Arena::packLength(name);
    key.category = category & kMostRecords;
    keyIndex_.add(hash, id);
    return id;
}

// Puts a key behind the live ones of its category.
void Store::enlistKey(Id id)
{
    Key& key = keys_[id];
    Category& category = categories_[key.category];
    key.isLive = 1;
    key.previous = category.lastKey;
    key.next = 0;
    (category.lastKey == 0 ? category.firstKey : keys_[category.lastKey].next) = id;
    category.lastKey = id;
    ++category.keyCount;
}

// Wakes the key, or makes it when `id` is 0. A name in the arena is kept where it is.
Id Store::wakeKey(Id id, Id category, std::string_view name, uint32_t hash, Place place)
{
    if (id == 0)
        id = newKey(category, place == inArena ? name : arena_.add(name), hash);
    else if (place == inArena)
        arena_.drop(name);
    if (!keys_[id].isLive)
        enlistKey(id);
    return id;
}

KeyMore& Store::moreOf(Id key)
{
    if (keys_[key].more == 0) {
        keys_[key].more = keyMores_.make();
        keyMores_[keys_[key].more].key = key;
    }
    return keyMores_[keys_[key].more];
}

void Store::unlinkKey(Id id)
{
    Key& key = keys_[id];
    Category& category = categories_[key.category];
    (key.previous == 0 ? category.firstKey : keys_[key.previous].next) = key.next;
    (key.next == 0 ? category.lastKey : keys_[key.next].previous) = key.previous;
    --category.keyCount;
    key.isLive = 0;
}

void Store::freeKey(Id id, uint32_t hash)
{
    keyIndex_.remove(hash, id);
    arena_.drop(name(keys_[id]));
    keys_.free(id);
}

void Store::removeKey(Id id)
{
    removeItem(id);
    dropTexts(id, plain);
    dropTexts(id, obfuscated);
    unlinkKey(id);
    if (Id const moreId = std::exchange(keys_[id].more, 0); moreId != 0) {
        KeyMore& more = keyMores_[moreId];
        listsWentAway_ |= more.lists[plain] != nullptr || more.lists[obfuscated] != nullptr;
        delete more.lists[plain];
        delete more.lists[obfuscated];
        delete more.name;
        more.key = 0;
        keyMores_.free(moreId);
    }
    if (keys_[id].line == 0)
        freeKey(id, hashOf(name(keys_[id]), hashOf(name(categories_[keys_[id].category]))));
}

CategoryMore& Store::moreOfCategory(Id category)
{
    if (categories_[category].more == 0) {
        categories_[category].more = categoryMores_.make();
        categoryMores_[categories_[category].more].category = category;
    }
    return categoryMores_[categories_[category].more];
}

void Store::dropCategoryMore(Id id)
{
    Id const moreId = std::exchange(categories_[id].more, 0);
    if (moreId == 0)
        return;
    CategoryMore& more = categoryMores_[moreId];
    listsWentAway_ |= more.values != nullptr;
    delete more.values;
    delete more.name;
    more.category = 0;
    categoryMores_.free(moreId);
}

void Store::freeCategory(Id id)
{
    std::string_view const name = this->name(categories_[id]);
    categoryIndex_.remove(hashOf(name), id);
    arena_.drop(name);
    categories_.free(id);
}

void Store::removeCategory(Id id)
{
    while (categories_[id].firstKey != 0)
        removeKey(categories_[id].firstKey);
    dropCategoryMore(id);
    Category& category = categories_[id];
    (category.previous == 0 ? firstCategory_ : categories_[category.previous].next) = category.next;
    (category.next == 0 ? lastCategory_ : categories_[category.next].previous) = category.previous;
    --categoryCount_;
    category.isLive = false;
    if (category.head == 0)
        freeCategory(id);
}

}  // namespace zcache
