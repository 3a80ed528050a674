// categories: creates, revives and removes categories and keys.

#include "contents.h"

namespace zcache {

// Creates a detached category. Its name is in the arena. Requires reserveCategories().
Id Contents::createCategory(std::string_view name, uint32_t hash)
{
    Id const id = categories_.allocate();
    categories_[id].name = arena_.idOf(name.data());
    categories_[id].nameLength = Arena::encodeLength(name);
    categoryIndex_.add(hash, id);
    return id;
}

// Appends a category to the list of categories.
void Contents::linkCategory(Id id)
{
    Category& category = categories_[id];
    category.isLive = true;
    category.previous = lastCategory_;
    category.next = 0;
    (lastCategory_ == 0 ? firstCategory_ : categories_[lastCategory_].next) = id;
    lastCategory_ = id;
    ++categoryCount_;
}

// Revives the category, or creates it if `id` is 0. Requires reserveFor() if the name is outside
// the arena.
Id Contents::reviveCategory(Id id, std::string_view name, uint32_t hash, Storage storage)
{
    if (id == 0)
        id = createCategory(storage == insideArena ? name : arena_.add(name), hash);
    else if (storage == insideArena)
        arena_.drop(name);
    if (!categories_[id].isLive)
        linkCategory(id);
    return id;
}

// Revives the key, or creates it if `id` is 0. Requires reserveFor() if the name is outside the
// arena.
Id Contents::reviveKey(Id id, Id category, std::string_view name, uint32_t hash, Storage storage)
{
    if (id == 0)
        id = createKey(category, storage == insideArena ? name : arena_.add(name), hash);
    else if (storage == insideArena)
        arena_.drop(name);
    if (!keys_[id].isLive)
        linkKey(id);
    return id;
}

// Returns the extra fields of a key, which hold its only value from then on. Does not throw if
// memory for a KeyExtra and a Value is reserved.
KeyExtra& Contents::extraOf(Id id)
{
    Key& key = keys_[id];
    if (key.hasExtra)
        return keyExtras_[key.extra];
    keyExtras_.reserve(1);
    values_.reserve(1);
    StringId const value = key.value;
    auto const length = static_cast<uint32_t>(value == 0 ? 0 : text(key).size());
    key.extra = keyExtras_.allocate();
    key.hasExtra = 1;
    KeyExtra& extra = keyExtras_[key.extra];
    extra.key = id;
    if (value != 0)
        chainValue(extra, {value, length, 0}, plain);
    return extra;
}

void Contents::unlinkKey(Id id)
{
    Key& key = keys_[id];
    Category& category = categories_[key.category];
    (key.previous == 0 ? category.firstKey : keys_[key.previous].next) = key.next;
    (key.next == 0 ? category.lastKey : keys_[key.next].previous) = key.previous;
    --category.keyCount;
    key.isLive = 0;
}

void Contents::freeKey(Id id, uint32_t hash)
{
    removeKeyFromIndex(id, hash);
    arena_.drop(name(keys_[id]));
    if (changes_ != nullptr)
        changes_->keyNames.erase(id);
    keys_.free(id);
}

void Contents::removeKey(Id id)
{
    removeItem(id);
    dropStoredValues(id, plain);
    dropStoredValues(id, obfuscated);
    unlinkKey(id);
    if (keys_[id].hasExtra) {
        Id const extraId = std::exchange(keys_[id].extra, 0);
        keys_[id].hasExtra = 0;
        KeyExtra& extra = keyExtras_[extraId];
        listsRemoved_ |= extra.lists[plain] != nullptr || extra.lists[obfuscated] != nullptr;
        delete extra.lists[plain];
        delete extra.lists[obfuscated];
        delete extra.name;
        extra.key = 0;
        keyExtras_.free(extraId);
    }
    if (keys_[id].line == 0)
        freeKey(id, keyHash(name(keys_[id]), categoryHash(name(categories_[keys_[id].category]))));
}

CategoryExtra& Contents::categoryExtraOf(Id category)
{
    if (categories_[category].extra == 0) {
        categories_[category].extra = categoryExtras_.allocate();
        categoryExtras_[categories_[category].extra].category = category;
    }
    return categoryExtras_[categories_[category].extra];
}

void Contents::dropCategoryExtra(Id id)
{
    Id const extraId = std::exchange(categories_[id].extra, 0);
    if (extraId == 0)
        return;
    CategoryExtra& extra = categoryExtras_[extraId];
    listsRemoved_ |= extra.values != nullptr;
    delete extra.values;
    delete extra.name;
    extra.category = 0;
    categoryExtras_.free(extraId);
}

void Contents::freeCategory(Id id)
{
    std::string_view const name = this->name(categories_[id]);
    removeCategoryFromIndex(id, categoryHash(name));
    arena_.drop(name);
    if (changes_ != nullptr)
        changes_->categoryNames.erase(id);
    categories_.free(id);
}

void Contents::removeCategory(Id id)
{
    while (categories_[id].firstKey != 0)
        removeKey(categories_[id].firstKey);
    dropCategoryExtra(id);
    Category& category = categories_[id];
    (category.previous == 0 ? firstCategory_ : categories_[category.previous].next) = category.next;
    (category.next == 0 ? lastCategory_ : categories_[category.next].previous) = category.previous;
    --categoryCount_;
    category.isLive = false;
    if (category.header == 0)
        freeCategory(id);
}

}  // namespace zcache
