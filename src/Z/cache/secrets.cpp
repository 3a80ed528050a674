// secrets: the obfuscated values.

#include "../stanza/companion_records.h"
#include "contents.h"
#include "new_string.h"

namespace zcache {

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

using zstanza::ObfuscatedRecord;

namespace {

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

}  // namespace zcache
