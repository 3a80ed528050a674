// lookup: finds a category by its name, and a key by its category and name.

#include <string.h>

#include "contents.h"

namespace zcache {

Id Contents::findCategory(std::string_view name, uint32_t hash) const
{
    return categoryIndex_.find(hash, [&](Id id) {
        return policy_->categories.matches(this->name(categories_[id]), name);
    });
}

Id Contents::findKey(Id category, std::string_view name, uint32_t hash) const
{
    return keyIndex_.find(hash, [&](Id id) {
        return keys_[id].category == category && policy_->keys.matches(this->name(keys_[id]), name);
    });
}

Id Contents::liveCategory(char const* name) const
{
    size_t const length = name == nullptr ? 0 : strlen(name);
    if (name == nullptr || length > kMaxStringLength)
        return 0;
    Id const category = findCategory({name, length});
    return category != 0 && categories_[category].isLive ? category : 0;
}

Id Contents::liveKey(char const* categoryName, char const* name) const
{
    if (categoryName == nullptr || name == nullptr)
        return 0;
    size_t const categoryLength = strlen(categoryName);
    size_t const length = strlen(name);
    if (categoryLength > kMaxStringLength || length > kMaxStringLength)
        return 0;
    std::string_view const category(categoryName, categoryLength);
    std::string_view const view(name, length);
    Id const key = findKey(category, view, keyHash(view, categoryHash(category)));
    return key != 0 && keys_[key].isLive ? key : 0;
}

// Finds a key with one index lookup: the key record names its category.
Id Contents::findKey(std::string_view category, std::string_view name, uint32_t hash) const
{
    return keyIndex_.find(hash, [&](Id id) {
        return policy_->keys.matches(this->name(keys_[id]), name) &&
               policy_->categories.matches(this->name(categories_[keys_[id].category]), category);
    });
}

Contents::LookupResult Contents::find(std::string_view category, std::string_view key) const
{
    LookupResult found = {};
    found.categoryHash = categoryHash(category);
    found.hash = keyHash(key, found.categoryHash);
    found.key = key.empty() ? 0 : findKey(category, key, found.hash);
    found.category =
        found.key == 0 ? findCategory(category, found.categoryHash) : keys_[found.key].category;
    return found;
}

}  // namespace zcache
