// renaming: renames keys and categories in place.

#include "contents.h"

namespace zcache {

// Calls `call(Id)` for each key of a category, including the detached keys, which have a line.
template <class Call>
void Contents::forEachKeyOf(Id category, Call call)
{
    for (Id key = categories_[category].firstKey; key != 0; key = keys_[key].next)
        call(key);
    if (categories_[category].header == 0)
        return;
    for (Id line = lines_[categories_[category].header].next;
         line != 0 && lines_[line].kind != headerLine; line = lines_[line].next)
        if (lines_[line].kind == keyLine && !keys_[lines_[line].ref].isLive)
            call(lines_[line].ref);
}

void Contents::keepOldKeyName(std::string_view categoryName, std::string_view keyName)
{
    Id const id = find(categoryName, keyName).key;
    changes().keyNames.try_emplace(id, name(keys_[id]));
}

void Contents::keepOldCategoryName(std::string_view categoryName)
{
    Id const id = findCategory(categoryName);
    changes().categoryNames.try_emplace(id, name(categories_[id]));
}

Contents::Changes& Contents::changes()
{
    if (changes_ == nullptr)
        changes_ = std::make_unique<Changes>();
    return *changes_;
}

void Contents::forgetChanges()
{
    changes_.reset();
}

std::string_view Contents::oldKeyName(Id key) const
{
    if (changes_ == nullptr)
        return {};
    auto const found = changes_->keyNames.find(key);
    return found == changes_->keyNames.end() ||
                   policy_->keys.matches(found->second, name(keys_[key]))
               ? std::string_view()
               : found->second;
}

std::string_view Contents::oldCategoryName(Id category) const
{
    if (changes_ == nullptr)
        return {};
    auto const found = changes_->categoryNames.find(category);
    return found == changes_->categoryNames.end() ||
                   policy_->categories.matches(found->second, name(categories_[category]))
               ? std::string_view()
               : found->second;
}

void Contents::renameKey(std::string_view categoryName, std::string_view oldName,
                         std::string_view newName)
{
    arena_.reserve(newName.size() + 1);
    // A removed key of the new name may have left its line.
    if (!policy_->keys.matches(oldName, newName))
        deleteLine(categoryName, newName);
    LookupResult const found = find(categoryName, oldName);
    Key& key = keys_[found.key];
    removeKeyFromIndex(found.key, found.hash);
    arena_.drop(name(key));
    std::string_view const kept = arena_.add(newName);
    key.name = arena_.idOf(kept.data());
    key.nameLength = Arena::encodeLength(kept);
    key.hasNewName = 1;
    keyIndex_.add(keyHash(kept, found.categoryHash), found.key);  // in the slot that is free now
    if (key.hasExtra)
        delete std::exchange(keyExtras_[key.extra].name, nullptr);
}

void Contents::renameCategory(std::string_view oldName, std::string_view newName)
{
    arena_.reserve(newName.size() + 1);
    reserveLines(1);
    // A removed category of the new name may have left its lines.
    if (!policy_->categories.matches(oldName, newName))
        deleteStanza(newName);
    uint32_t const oldHash = categoryHash(oldName);
    uint32_t const newHash = categoryHash(newName);
    Id const id = findCategory(oldName, oldHash);
    bool const wasTop = isTop(id);
    // The hash of a key depends on the name of its category, so remove every key before the change.
    forEachKeyOf(id, [&](Id key) { removeKeyFromIndex(key, keyHash(name(keys_[key]), oldHash)); });
    Category& category = categories_[id];
    removeCategoryFromIndex(id, oldHash);
    arena_.drop(name(category));
    std::string_view const kept = arena_.add(newName);
    category.name = arena_.idOf(kept.data());
    category.nameLength = Arena::encodeLength(kept);
    category.hasNewName = true;
    categoryIndex_.add(newHash, id);
    forEachKeyOf(id, [&](Id key) { keyIndex_.add(keyHash(name(keys_[key]), newHash), key); });
    if (category.extra != 0)
        delete std::exchange(categoryExtras_[category.extra].name, nullptr);
    if (wasTop && !isTop(id))
        showTopHeader(id);
}

// Gives the lines above the first keys to their header, which the file has from now on. Requires
// reserveLines(1).
void Contents::showTopHeader(Id category)
{
    Id const header = categories_[category].header;
    Id const next = header == 0 ? 0 : lines_[header].next;
    if (next == 0)
        return;
    moveGap(next, header);
    if (lines_[next].isBelowBlank) {
        lines_[next].isBelowBlank = 0;
        createLine(blankLine, 0, 0, lines_[header].previous);
    }
}

}  // namespace zcache
