// Categories, keys and values of a cache.

#include <stdlib.h>
#include <string.h>

#include "ZException.h"
#include "ZPropertiesImpl_p.h"

namespace cache {

namespace {

constexpr size_t kWorthTidying = 1 << 16;  // dead bytes

constexpr unsigned kBuckets = 15;  // of the maps whose order callers see

// The hash that string objects have: the order of the maps comes from it.
uint32_t visibleHash(std::string_view name)
{
    uint32_t hash = 5381;
    for (char const c : name)
        hash = (hash * 33) ^ static_cast<unsigned char>(c);
    return hash;
}

}  // namespace

// --- MapOrder

MapOrder::MapOrder(Store const& store)
{
    fill(
        store.categoryCount(), store.firstCategory(),
        [&](Id id) { return store.name(store.category(id)); },
        [&](Id id) { return store.category(id).next; });
}

MapOrder::MapOrder(Store const& store, Id category)
{
    fill(
        store.category(category).keyCount, store.category(category).firstKey,
        [&](Id id) { return store.name(store.key(id)); },
        [&](Id id) { return store.key(id).next; });
}

MapOrder::~MapOrder()
{
    if (sorted_ != few_)
        free(sorted_);
}

template <class NameOf, class NextOf>
void MapOrder::fill(size_t count, Id first, NameOf nameOf, NextOf nextOf)
{
    if (count > kFew)
        sorted_ = static_cast<Id*>(reallocate(nullptr, count * sizeof(Id)));
    count_ = count;
    if (count == 1) {
        sorted_[0] = first;
        return;
    }
    // Count the members of each bucket, turn the counts into first places, fill the places.
    size_t places[kBuckets + 1] = {};
    for (Id id = first; id != 0; id = nextOf(id))
        ++places[visibleHash(nameOf(id)) % kBuckets + 1];
    for (unsigned i = 1; i <= kBuckets; ++i)
        places[i] += places[i - 1];
    for (Id id = first; id != 0; id = nextOf(id))
        sorted_[places[visibleHash(nameOf(id)) % kBuckets]++] = id;
}

// --- Store: all of it

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

// --- Store: look-up

Id Store::findCategory(std::string_view name, uint32_t hash) const
{
    return categoryIndex_.find(hash, [&](Id id) { return this->name(categories_[id]) == name; });
}

Id Store::findKey(Id category, std::string_view name, uint32_t hash) const
{
    return keyIndex_.find(hash, [&](Id id) {
        return keys_[id].category == category && this->name(keys_[id]) == name;
    });
}

Id Store::liveCategory(char const* name) const
{
    size_t const length = name == nullptr ? 0 : strlen(name);
    if (name == nullptr || length > kLongestText)
        return 0;
    Id const category = findCategory({name, length});
    return category != 0 && categories_[category].isLive ? category : 0;
}

Id Store::liveKey(char const* categoryName, char const* name) const
{
    if (categoryName == nullptr || name == nullptr)
        return 0;
    size_t const categoryLength = strlen(categoryName);
    size_t const length = strlen(name);
    if (categoryLength > kLongestText || length > kLongestText)
        return 0;
    std::string_view const category(categoryName, categoryLength);
    std::string_view const view(name, length);
    Id const key = findKey(category, view, hashOf(view, hashOf(category)));
    return key != 0 && keys_[key].isLive ? key : 0;
}

// Finds a key by the table of the keys alone: a key leads to its category.
Id Store::findKey(std::string_view category, std::string_view name, uint32_t hash) const
{
    return keyIndex_.find(hash, [&](Id id) {
        return this->name(keys_[id]) == name &&
               this->name(categories_[keys_[id].category]) == category;
    });
}

Store::Found Store::find(std::string_view category, std::string_view key) const
{
    Found found = {};
    found.categoryHash = hashOf(category);
    found.hash = hashOf(key, found.categoryHash);
    found.key = key.empty() ? 0 : findKey(category, key, found.hash);
    found.category =
        found.key == 0 ? findCategory(category, found.categoryHash) : keys_[found.key].category;
    return found;
}

size_t Store::valueCount(Id id, Kind kind) const
{
    KeyMore const* const further = more(id);
    if (further != nullptr && further->lists[kind] != nullptr)
        return further->lists[kind]->size();
    return (kind == plain && keys_[id].value != 0 ? 1 : 0) +
           (further == nullptr ? 0 : further->counts[kind]);
}

// --- Store: changes

// A string object that a list will take over.
class Store::NewString {
public:
    NewString() = default;
    NewString(NewString const&) = delete;
    NewString& operator=(NewString const&) = delete;
    ~NewString() { delete string_; }

    void make(std::string_view text) { string_ = newString(text); }

    void appendTo(ZArrayList_6_0& list)
    {
        list.addNoCopy(string_);
        string_ = nullptr;
    }

private:
    ZLCString_6_0* string_ = nullptr;
};

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

void Store::addItem(Id key)
{
    KeyMore& more = moreOf(key);
    if (more.isItem)
        return;
    Id const id = keys_[key].more;
    more.isItem = 1;
    more.previousItem = lastItem_;
    more.nextItem = 0;
    (lastItem_ == 0 ? firstItem_ : keyMores_[lastItem_].nextItem) = id;
    lastItem_ = id;
    ++itemCount_;
    ++categories_[keys_[key].category].items;
}

void Store::removeItem(Id key)
{
    if (keys_[key].more == 0 || !keyMores_[keys_[key].more].isItem)
        return;
    KeyMore& more = keyMores_[keys_[key].more];
    more.isItem = 0;
    (more.previousItem == 0 ? firstItem_ : keyMores_[more.previousItem].nextItem) = more.nextItem;
    (more.nextItem == 0 ? lastItem_ : keyMores_[more.nextItem].previousItem) = more.previousItem;
    --itemCount_;
    --categories_[keys_[key].category].items;
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

// --- Store: what callers see as objects

ZArrayList_6_0* Store::list(Id key, Kind kind)
{
    if (KeyMore const* const known = more(key); known != nullptr && known->lists[kind] != nullptr)
        return known->lists[kind];
    keyMores_.reserve(1);
    auto* const list = new ZArrayList_6_0(1, 1);
    try {
        eachValue(key, kind, [&](std::string_view value) {
            NewString string;
            string.make(value);
            string.appendTo(*list);
        });
    } catch (ZOutOfMemoryException_6_0 const&) {
        delete list;
        throw;
    }
    dropTexts(key, kind);
    moreOf(key).lists[kind] = list;
    return list;
}

ZArrayList_6_0* Store::valuesOf(Id id, ZPCache_6_0::get_type_e type)
{
    CategoryMore& more = moreOfCategory(id);
    if (more.values == nullptr)
        more.values = new ZArrayList_6_0(1, 1);
    ZArrayList_6_0& list = *more.values;

    // The new values come behind the old ones and change places with them in the end: until then
    // the old ones are there to go back to.
    unsigned const before = list.size();
    try {
        for (Id const key : MapOrder(*this, id)) {
            Kind const kind = type == ZPCache_6_0::plainValues        ? plain
                              : type == ZPCache_6_0::obfuscatedValues ? obfuscated
                                                                      : eitherKind(key);
            eachValue(key, kind, [&](std::string_view value) {
                NewString string;
                string.make(value);
                string.appendTo(list);
            });
        }
    } catch (ZOutOfMemoryException_6_0 const&) {
        while (list.size() > before)
            list.remove(list.size() - 1);
        throw;
    }
    unsigned const count = list.size() - before;
    for (unsigned i = 0; i < count && before != 0; ++i)
        list.swap(i, before + i);
    while (list.size() > count)
        list.remove(list.size() - 1);
    return &list;
}

ZLCString_6_0* Store::keyName(Id key)
{
    keyMores_.reserve(1);
    if (KeyMore const* const known = more(key); known != nullptr && known->name != nullptr)
        return known->name;
    std::string_view const text = name(keys_[key]);
    auto* const made = newString(text);
    return moreOf(key).name = made;
}

ZLCString_6_0* Store::categoryName(Id id)
{
    CategoryMore& more = moreOfCategory(id);
    if (more.name == nullptr) {
        std::string_view const text = name(categories_[id]);
        more.name = newString(text);
    }
    return more.name;
}

// --- Store: the companion file

namespace {

// Takes the texts of one record from the front of a block.
struct ObfuscatedRecord {
    explicit ObfuscatedRecord(char const*& at) : category(take(at)), key(take(at)), value(take(at))
    {
        ++at;  // the empty text
    }

    static std::string_view take(char const*& at)
    {
        std::string_view const text(at, strlen(at));
        at += text.size() + 1;
        return text;
    }

    std::string_view category;
    std::string_view key;
    std::string_view value;
};

// How many different names the records of a block have, and how many values.
struct ObfuscatedNames {
    ObfuscatedNames(char const* text, size_t records)
    {
        // An id is the place of the record that came first with a name, counted from 1.
        Index categoryIndex;
        Index keyIndex;
        for (char const* at = text; records > 0; --records) {
            Id const id = static_cast<Id>(at - text) + 1;
            ObfuscatedRecord const record(at);
            auto const isCategory = [&](Id other) {
                return strcmp(text + other - 1, record.category.data()) == 0;
            };
            auto const isKey = [&](Id other) {
                return isCategory(other) &&
                       strcmp(text + other + record.category.size(), record.key.data()) == 0;
            };
            uint32_t const categoryHash = hashOf(record.category);
            if (categoryIndex.find(categoryHash, isCategory) == 0) {
                categoryIndex.add(categoryHash, id);
                ++categories;
            }
            if (record.key.empty())
                continue;
            uint32_t const hash = hashOf(record.key, categoryHash);
            if (keyIndex.find(hash, isKey) == 0) {
                keyIndex.add(hash, id);
                ++keys;
            }
            values += record.value.empty() ? 0 : 1;
        }
    }

    size_t categories = 0;
    size_t keys = 0;
    size_t values = 0;
};

}  // namespace

void Store::addObfuscated(Arena::Block& block, size_t bytes, size_t records)
{
    // Room is made for what the records name, not for their number: a packed file of some KiB can
    // hold millions of empty ones.
    ObfuscatedNames const names(block.chars(), records);
    categories_.reserve(names.categories);
    categoryIndex_.reserve(names.categories);
    keys_.reserve(names.keys);
    keyIndex_.reserve(names.keys);
    keyMores_.reserve(names.keys);
    values_.reserve(names.values);
    arena_.reserveBlock(bytes);

    // Lists that callers know come first: adding to them may raise.
    auto const listOf = [&](ObfuscatedRecord const& record) -> ZArrayList_6_0* {
        Id const key = find(record.category, record.key).key;
        return key == 0 || more(key) == nullptr || record.value.empty()
                   ? nullptr
                   : more(key)->lists[obfuscated];
    };
    size_t done = 0;
    try {
        char const* at = block.chars();
        for (; done < records; ++done) {
            ObfuscatedRecord const record(at);
            if (ZArrayList_6_0* const list = listOf(record); list != nullptr) {
                NewString string;
                string.make(record.value);
                string.appendTo(*list);
            }
        }
    } catch (ZOutOfMemoryException_6_0 const&) {
        char const* at = block.chars();
        for (; done > 0; --done) {
            ObfuscatedRecord const record(at);
            if (ZArrayList_6_0* const list = listOf(record); list != nullptr)
                list->remove(list->size() - 1);
        }
        throw;
    }

    // Nothing raises from here on. Names that are new stay where they are, as the values do.
    char const* at = block.chars();
    arena_.adopt(block, bytes);
    for (; done > 0; --done) {
        ObfuscatedRecord const record(at);
        bool const isInList = listOf(record) != nullptr;
        arena_.drop({});
        Found const found = find(record.category, record.key);
        Id const category =
            wakeCategory(found.category, record.category, found.categoryHash, inArena);
        Id const key =
            record.key.empty() ? 0 : wakeKey(found.key, category, record.key, found.hash, inArena);
        if (key == 0 || isInList || record.value.empty())
            arena_.drop(record.value);
        else
            appendText(key, record.value, obfuscated);
        if (key != 0 && !record.value.empty())
            addItem(key);
    }
    fit();
}

void Store::fit()
{
    categories_.fit();
    keys_.fit();
    keyMores_.fit();
    values_.fit();
    lines_.fit();
}

}  // namespace cache
