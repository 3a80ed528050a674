// secrets: the list of keys with obfuscated values, and the values that a companion holds.

#include "../ZException.h"
#include "../stanza/companion_records.h"
#include "contents.h"
#include "hash_index.h"
#include "new_string.h"

namespace zcache {

using zstanza::CompanionRecord;

void Contents::addItem(Id key)
{
    KeyExtra& extra = extraOf(key);
    if (extra.isItem)
        return;
    Id const id = keys_[key].extra;
    extra.isItem = 1;
    extra.previousItem = lastItem_;
    extra.nextItem = 0;
    (lastItem_ == 0 ? firstItem_ : keyExtras_[lastItem_].nextItem) = id;
    lastItem_ = id;
    ++itemCount_;
    ++categories_[keys_[key].category].items;
}

void Contents::removeItem(Id key)
{
    if (!keys_[key].hasExtra || !keyExtras_[keys_[key].extra].isItem)
        return;
    KeyExtra& extra = keyExtras_[keys_[key].extra];
    extra.isItem = 0;
    (extra.previousItem == 0 ? firstItem_ : keyExtras_[extra.previousItem].nextItem) =
        extra.nextItem;
    (extra.nextItem == 0 ? lastItem_ : keyExtras_[extra.nextItem].previousItem) =
        extra.previousItem;
    --itemCount_;
    --categories_[keys_[key].category].items;
}

namespace {

// Counts the distinct names in records, and the values.
struct DistinctNames {
    DistinctNames(char const* text, size_t records)
    {
        // An id is the offset of the first record with a name, plus 1.
        HashIndex categoryIndex;
        HashIndex keyIndex;
        for (char const* at = text; records > 0; --records) {
            Id const id = static_cast<Id>(at - text) + 1;
            CompanionRecord const record(at);
            auto const isSameCategory = [&](Id other) {
                return strcmp(text + other - 1, record.category.data()) == 0;
            };
            auto const isSameKey = [&](Id other) {
                return isSameCategory(other) &&
                       strcmp(text + other + record.category.size(), record.key.data()) == 0;
            };
            uint32_t const categoryHash = hashOf(record.category);
            if (categoryIndex.find(categoryHash, isSameCategory) == 0) {
                categoryIndex.add(categoryHash, id);
                ++categories;
            }
            if (record.key.empty())
                continue;
            uint32_t const hash = hashOf(record.key, categoryHash);
            if (keyIndex.find(hash, isSameKey) == 0) {
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

// Returns the list that holds the obfuscated values of a record's key; null if a record of the key
// holds them, or if the record has no value.
ZArrayList_6_0* Contents::obfuscatedList(zstanza::CompanionRecord const& record) const
{
    Id const key = find(record.category, record.key).key;
    return key == 0 || findExtra(key) == nullptr || record.value.empty()
               ? nullptr
               : findExtra(key)->lists[obfuscated];
}

// Appends the values whose keys have lists. On failure removes them again.
void Contents::addToObfuscatedLists(char const* bytes, size_t records)
{
    size_t done = 0;
    try {
        for (char const* at = bytes; done < records; ++done) {
            CompanionRecord const record(at);
            if (ZArrayList_6_0* const list = obfuscatedList(record); list != nullptr) {
                NewString string;
                string.create(record.value);
                string.appendTo(*list);
            }
        }
    } catch (ZOutOfMemoryException_6_0 const&) {
        for (char const* at = bytes; done > 0; --done) {
            CompanionRecord const record(at);
            if (ZArrayList_6_0* const list = obfuscatedList(record); list != nullptr)
                list->remove(list->size() - 1);
        }
        throw;
    }
}

void Contents::addObfuscated(Arena::Block& block, size_t bytes, size_t records)
{
    // Reserve for the distinct names, not for the number of records: a few KiB of compressed data
    // can expand to millions of empty records.
    DistinctNames const names(block.chars(), records);
    reserveCategories(names.categories);
    reserveKeys(names.keys);
    keyExtras_.reserve(names.keys);
    values_.reserve(names.values + names.keys);  // also for a plain value of each key
    arena_.reserveBlock(bytes);
    addToObfuscatedLists(block.chars(), records);

    // From here nothing throws. The records refer to new names and values in the adopted block.
    char const* at = block.chars();
    arena_.adopt(block, bytes);
    for (; records > 0; --records) {
        CompanionRecord const record(at);
        bool const isInList = obfuscatedList(record) != nullptr;
        arena_.drop({});
        LookupResult const found = find(record.category, record.key);
        Id const category =
            reviveCategory(found.category, record.category, found.categoryHash, insideArena);
        Id const key = record.key.empty()
                           ? 0
                           : reviveKey(found.key, category, record.key, found.hash, insideArena);
        if (key == 0 || isInList || record.value.empty())
            arena_.drop(record.value);
        else
            appendValue(key, record.value, obfuscated);
        if (key != 0 && !record.value.empty())
            addItem(key);
    }
    shrinkToFit();
}

}  // namespace zcache
