// values: the values of a key.

#include "contents.h"
#include "new_string.h"

namespace zcache {

// Makes sure that category, key and value can be made without raising.
void Store::reserveFor(std::string_view category, std::string_view key, std::string_view value)
{
    categories_.reserve(1);
    categoryIndex_.reserve(1);
    keys_.reserve(1);
    keyIndex_.reserve(1);
    keyMores_.reserve(1);
    values_.reserve(1);
    arena_.reserve(category.size() + key.size() + value.size() + 3);
}

// Puts a text of the arena behind the texts of a kind.
void Store::appendText(Id key, std::string_view text, Kind kind)
{
    TextId const place = arena_.placeOf(text.data());
    if (kind == plain && keys_[key].value == 0) {
        keys_[key].value = place;
        keys_[key].valueLength = Arena::packLength(text);
        return;
    }
    Id const id = values_.make();
    values_[id] = {place, static_cast<uint32_t>(text.size()), 0};
    KeyMore& more = moreOf(key);
    (more.last[kind] == 0 ? more.first[kind] : values_[more.last[kind]].next) = id;
    more.last[kind] = id;
    ++more.counts[kind];
}

// Removes the values of a kind that no list holds.
void Store::dropTexts(Id id, Kind kind)
{
    Key& key = keys_[id];
    if (kind == plain && key.value != 0) {
        arena_.drop(text(key));
        key.value = 0;
    }
    if (key.more == 0)
        return;
    KeyMore& more = keyMores_[key.more];
    while (more.first[kind] != 0) {
        Id const value = more.first[kind];
        more.first[kind] = values_[value].next;
        arena_.drop(text(values_[value]));
        values_.free(value);
    }
    more.last[kind] = 0;
    more.counts[kind] = 0;
}

// Removes the values of a kind; a list that holds them stays, empty.
void Store::dropValues(Id key, Kind kind)
{
    KeyMore const* const further = more(key);
    if (further != nullptr && further->lists[kind] != nullptr)
        further->lists[kind]->removeAll();
    else
        dropTexts(key, kind);
}

void Store::add(std::string_view category, std::string_view key, std::string_view value, Kind kind)
{
    Found const found = find(category, key);
    Id const old = found.key;
    if (old != 0 && more(old) != nullptr && more(old)->lists[kind] != nullptr) {
        if (!value.empty()) {
            NewString string;
            string.make(value);
            string.appendTo(*more(old)->lists[kind]);
            if (kind == obfuscated)
                addItem(old);
        }
        return;
    }
    reserveFor(category, key, value);
    Id const id = wakeCategory(found.category, category, found.categoryHash);
    if (key.empty())
        return;
    Id const keyId = wakeKey(old, id, key, found.hash);
    if (value.empty())
        return;
    appendText(keyId, arena_.add(value), kind);
    if (kind == obfuscated)
        addItem(keyId);
}

Id Store::set(Found const& found, std::string_view category, std::string_view key,
              std::string_view value, Kind kind)
{
    Id const old = found.key;
    ZArrayList_6_0* const list =
        old == 0 || more(old) == nullptr ? nullptr : more(old)->lists[kind];
    NewString string;
    if (list != nullptr && !value.empty())
        string.make(value);
    // To take its values from a key needs no memory.
    if (old == 0 || !keys_[old].isLive || !value.empty())
        reserveFor(category, key, value);
    Id const id = wakeCategory(found.category, category, found.categoryHash);
    if (key.empty())
        return 0;
    Id const keyId = wakeKey(old, id, key, found.hash);
    // The value may be one of those that go.
    std::string_view const kept =
        list != nullptr || value.empty() ? std::string_view() : arena_.add(value);
    dropValues(keyId, obfuscated);
    dropValues(keyId, plain);
    if (kind == plain || value.empty())
        removeItem(keyId);
    if (value.empty())
        return keyId;
    if (list != nullptr)
        string.appendTo(*list);  // its room for one stays: this does not raise
    else
        appendText(keyId, kept, kind);
    if (kind == obfuscated)
        addItem(keyId);
    return keyId;
}

}  // namespace zcache
