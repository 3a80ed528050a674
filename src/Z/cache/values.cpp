// values: counts, adds, sets and removes the values of a key.

#include "contents.h"
#include "new_string.h"

namespace zcache {

size_t Contents::valueCount(Id id, Kind kind) const
{
    KeyExtra const* const extra = findExtra(id);
    if (extra != nullptr && extra->lists[kind] != nullptr)
        return extra->lists[kind]->size();
    if (extra != nullptr)
        return extra->counts[kind];
    return kind == plain && keys_[id].value != 0 ? 1 : 0;
}

// Ensures that creating category, key and value does not throw.
void Contents::reserveFor(std::string_view category, std::string_view key, std::string_view value)
{
    reserveCategories(1);
    reserveKeys(1);
    keyExtras_.reserve(1);
    values_.reserve(2);  // extraOf() may take one for a present value
    arena_.reserve(category.size() + key.size() + value.size() + 3);
}

// Appends a value to the chain of a kind.
void Contents::chainValue(KeyExtra& extra, Value const& value, Kind kind)
{
    Id const id = values_.allocate();
    values_[id] = value;
    (extra.last[kind] == 0 ? extra.first[kind] : values_[extra.last[kind]].next) = id;
    extra.last[kind] = id;
    ++extra.counts[kind];
}

// Removes the values of a kind that are in records, not in a list.
void Contents::dropStoredValues(Id id, Kind kind)
{
    Key& key = keys_[id];
    if (!key.hasExtra) {
        if (kind == plain && key.value != 0) {
            arena_.drop(text(key));
            key.value = 0;
        }
        return;
    }
    KeyExtra& extra = keyExtras_[key.extra];
    while (extra.first[kind] != 0) {
        Id const value = extra.first[kind];
        extra.first[kind] = values_[value].next;
        arena_.drop(text(values_[value]));
        values_.free(value);
    }
    extra.last[kind] = 0;
    extra.counts[kind] = 0;
}

// Removes the values of a kind. A list that held them stays, empty.
void Contents::dropValues(Id key, Kind kind)
{
    KeyExtra const* const extra = findExtra(key);
    if (extra != nullptr && extra->lists[kind] != nullptr)
        extra->lists[kind]->removeAll();
    else
        dropStoredValues(key, kind);
}

void Contents::add(std::string_view category, std::string_view key, std::string_view value,
                   Kind kind)
{
    LookupResult const found = find(category, key);
    Id const old = found.key;
    if (old != 0 && findExtra(old) != nullptr && findExtra(old)->lists[kind] != nullptr) {
        if (isValue(value)) {
            NewString string;
            string.create(value);
            string.appendTo(*findExtra(old)->lists[kind]);
            if (kind == obfuscated)
                addItem(old);
        }
        return;
    }
    reserveFor(category, key, value);
    Id const id = reviveCategory(found.category, category, found.categoryHash);
    if (key.empty())
        return;
    Id const keyId = reviveKey(old, id, key, found.hash);
    if (!isValue(value))
        return;
    appendValue(keyId, arena_.add(value), kind);
    if (kind == obfuscated)
        addItem(keyId);
}

Id Contents::set(LookupResult const& found, std::string_view category, std::string_view key,
                 std::string_view value, Kind kind)
{
    Id const old = found.key;
    ZArrayList_6_0* const list =
        old == 0 || findExtra(old) == nullptr ? nullptr : findExtra(old)->lists[kind];
    NewString string;
    if (list != nullptr && isValue(value))
        string.create(value);
    // Removing the values of a key must not fail.
    if (old == 0 || !keys_[old].isLive || isValue(value))
        reserveFor(category, key, value);
    Id const id = reviveCategory(found.category, category, found.categoryHash);
    if (key.empty())
        return 0;
    Id const keyId = reviveKey(old, id, key, found.hash);
    // Copy `value` first: it may view a value that is removed.
    std::string_view const kept =
        list != nullptr || !isValue(value) ? std::string_view() : arena_.add(value);
    dropValues(keyId, obfuscated);
    dropValues(keyId, plain);
    if (kind == plain || !isValue(value))
        removeItem(keyId);
    if (!isValue(value))
        return keyId;
    if (list != nullptr)
        string.appendTo(*list);  // does not throw: the list keeps capacity for one
    else
        appendValue(keyId, kept, kind);
    if (kind == obfuscated)
        addItem(keyId);
    return keyId;
}

}  // namespace zcache
