// contents: all that a cache holds.
#pragma once

#include <string_view>
#include <utility>

#include "../ZArrayList.h"
#include "../stanza/comment_splitter.h"
#include "arena.h"
#include "hash_index.h"
#include "line_treap.h"
#include "name_hash.h"
#include "records.h"
#include "slot_pool.h"

namespace zcache {

using zstanza::Pieces;

class Store {
public:
    enum Kind { plain, obfuscated };
    enum Selection { selectAny, selectPlain, selectObfuscated };

    Store() = default;
    Store(Store const& other);
    Store& operator=(Store const&) = delete;
    ~Store();

    // Categories, keys and values: ZPropertiesImpl_store.cpp. To find gives dormant ones too.

    Id findCategory(std::string_view name) const { return findCategory(name, hashOf(name)); }

    // A category and a key of it by their names; an id is 0 when there is none.
    struct Found {
        uint32_t categoryHash;
        uint32_t hash;
        Id category;
        Id key;
    };
    Found find(std::string_view category, std::string_view key) const;

    Id liveCategory(char const* name) const;
    Id liveKey(char const* category, char const* key) const;

    size_t categoryCount() const { return categoryCount_; }
    size_t itemCount() const { return itemCount_; }
    size_t valueCount(Id key, Kind kind) const;

    // Returns the kind that a caller means who takes either.
    Kind eitherKind(Id key) const
    {
        return valueCount(key, plain) == 0 && valueCount(key, obfuscated) != 0 ? obfuscated : plain;
    }

    // Returns the kind that `selection` means for a key.
    Kind kindOf(Id key, Selection selection) const
    {
        return selection == selectPlain        ? plain
               : selection == selectObfuscated ? obfuscated
                                               : eitherKind(key);
    }

    // Calls `call(std::string_view)` for each value.
    template <class Call>
    void eachValue(Id key, Kind kind, Call call) const;

    // Returns the list of the values, making it when there is none: from then on it holds them.
    ZArrayList_6_0* list(Id key, Kind kind);

    // Returns a list of copies of the category's values.
    ZArrayList_6_0* valuesOf(Id category, Selection selection);

    // Returns the name as an object that stays until the key or category is removed.
    ZLCString_6_0* keyName(Id key);
    ZLCString_6_0* categoryName(Id category);

    // An empty `key` names none: only the category is made. An empty value is none.
    void add(std::string_view category, std::string_view key, std::string_view value, Kind kind);
    void set(std::string_view category, std::string_view key, std::string_view value, Kind kind)
    {
        set(find(category, key), category, key, value, kind);
    }
    void removeKey(Id key);            // the line stays
    void removeCategory(Id category);  // the lines stay

    // Adds obfuscated values from the first `bytes` of `block`, which is taken over. It holds
    // `records` times category, key, value and an empty text, each with its zero byte.
    void addObfuscated(Arena::Block& block, size_t bytes, size_t records);

    // Lines: ZPropertiesImpl_lines.cpp.

    void addStanzaLine(std::string_view category);
    void addLine(std::string_view category, std::string_view key, std::string_view value,
                 Kind kind);
    void deleteLine(std::string_view category, std::string_view key);
    void deleteStanza(std::string_view category);
    void addFileComment(std::string_view comment);
    void addStanzaComment(Id category, std::string_view comment);
    void addLineComment(std::string_view category, std::string_view key, std::string_view comment);

    // Lines for caches of derived classes. Their overrides need not keep a value here: a line
    // refers to a dormant category or key then.

    void restartSection(
        std::string_view category);  // a blank line and the header at the end; its lines go
    void readHead(std::string_view category);  // the header at the end, unless the category has one
    void readComment(std::string_view comment);
    void readBlank();
    void readKey(std::string_view category, std::string_view key);  // its line, unless it has one
    bool ensureKeyLine(std::string_view category,
                       std::string_view key);  // returns whether it made the line
    void removeKeyLine(std::string_view category, std::string_view key);
    void removeSection(std::string_view category);
    void takeBackSection(std::string_view category);  // undoes restartSection()
    void commentStanza(std::string_view category, std::string_view comment);
    void commentKey(std::string_view category, std::string_view key, std::string_view comment);

    // All of it.

    Category const& category(Id id) const { return categories_[id]; }
    Key const& key(Id id) const { return keys_[id]; }
    KeyMore const* more(Id key) const
    {
        return keys_[key].more == 0 ? nullptr : &keyMores_[keys_[key].more];
    }
    Value const& value(Id id) const { return values_[id]; }
    Line const& line(Id id) const { return lines_[id]; }
    std::string_view name(Category const& category) const
    {
        return arena_.view(category.name, category.nameLength);
    }
    std::string_view name(Key const& key) const { return arena_.view(key.name, key.nameLength); }
    std::string_view text(Key const& key) const { return arena_.view(key.value, key.valueLength); }
    std::string_view text(Value const& value) const
    {
        return {arena_.at(value.text), value.length};
    }
    std::string_view text(Line const& line) const;
    Id firstCategory() const { return firstCategory_; }
    Id firstLine() const { return firstLine_; }
    Id firstItem() const { return firstItem_; }
    KeyMore const& item(Id id) const { return keyMores_[id]; }

    // Gives back the room of dead texts once they are more than the living ones.
    void tidy();

    size_t memoryUsed() const;

    // Returns about how long the text of the file is: the texts, and what stands between them.
    size_t textLength() const { return arena_.used() + 4 * lines_.count(); }

    void swap(Store& other);

    // Returns whether lists that callers may know went away since the last call.
    bool takeListsWentAway() { return std::exchange(listsWentAway_, false); }

private:
    friend class Reader;

    enum Place { elsewhere, inArena };  // where a text is

    Id findCategory(std::string_view name, uint32_t hash) const;
    Id findKey(Id category, std::string_view name, uint32_t hash) const;
    Id findKey(std::string_view category, std::string_view name, uint32_t hash) const;
    Id newCategory(std::string_view name, uint32_t hash);
    void enlist(Id category);
    Id wakeCategory(Id known, std::string_view name, uint32_t hash, Place place = elsewhere);
    Id wakeKey(Id known, Id category, std::string_view name, uint32_t hash,
               Place place = elsewhere);
    Id newKey(Id category, std::string_view name, uint32_t hash);
    void enlistKey(Id key);
    KeyMore& moreOf(Id key);
    Id set(Found const& found, std::string_view category, std::string_view key,
           std::string_view value, Kind kind);  // the key
    void reserveFor(std::string_view category, std::string_view key, std::string_view value);
    void appendText(Id key, std::string_view value, Kind kind);
    void dropValues(Id key, Kind kind);
    void dropTexts(Id key, Kind kind);
    void addItem(Id key);
    void removeItem(Id key);
    void unlinkKey(Id key);
    void freeKey(Id key, uint32_t hash);
    CategoryMore& moreOfCategory(Id category);
    void dropCategoryMore(Id category);
    void freeCategory(Id category);
    template <class Call>
    void eachText(Arena const& arena, Call call);
    void moveTexts(Arena const& arena);
    void fit();

    void reserveLines(size_t count);
    void reserveKeyLine(Found const& found);
    void reserveComments(Pieces const& pieces, size_t lines, size_t bytes);
    Id makeLine(LineKind kind, uint32_t of, Id category, Id before);
    Id makeComments(Pieces const& pieces, Id category, Id before);
    void link(Id line, Id next);
    void unlinkLine(Id line);
    void freeLine(Id line);
    void enlistHead(Id category);
    void appendHead(Id category);
    Id placeForKeyLine(Id category, std::string_view key) const;
    Id placeByWalk(Id category, std::string_view key) const;
    void makeKeyLine(Id key);
    void removeKeyLine(Id key);
    void removeSection(Id category);
    void dropSection(Id category);
    Id ensureCategory(std::string_view name);
    Id ensureKey(std::string_view category, std::string_view key);
    void commentKey(Id key, Pieces const& pieces);
    void removeDormant(Id category);
    void indexSection(Id category);
    void unindexLastSection();
    void noteTemplate(Id category, Id line);
    void forgetTemplate(Id category, Id line);
    Id findTemplate(Id category, std::string_view key) const;

    Arena arena_;
    Records<Category> categories_;
    Records<CategoryMore> categoryMores_;
    Records<Key> keys_;
    Records<KeyMore> keyMores_;
    Records<Value> values_;
    Records<Line> lines_;
    Records<Template> templates_;
    Index categoryIndex_;
    Index keyIndex_;
    Index templateIndex_;
    Trees trees_;

    Id firstCategory_ = 0;  // the live ones, in the order in which they came
    Id lastCategory_ = 0;
    size_t categoryCount_ = 0;
    Id firstItem_ = 0;  // of KeyMore, in the order in which they came
    Id lastItem_ = 0;
    size_t itemCount_ = 0;
    Id firstLine_ = 0;
    Id lastLine_ = 0;
    Id firstHead_ = 0;  // categories with a head line, in file order
    Id lastHead_ = 0;
    Id lastLeading_ = 0;  // of the comments that lead the file, as far as they were walked
    size_t tidyAt_ = 0;   // dead bytes to wait for before tidy() tries again
    bool listsWentAway_ = false;
};

template <class Call>
void Store::eachValue(Id id, Kind kind, Call call) const
{
    Key const& key = keys_[id];
    KeyMore const* const further = more(id);
    if (further != nullptr && further->lists[kind] != nullptr) {
        ZArrayList_6_0 const& list = *further->lists[kind];
        for (unsigned i = 0; i < list.size(); ++i) {
            auto const* const text = static_cast<ZAbstractString_6_0 const*>(list.get(i));
            if (text != nullptr)
                call(std::string_view(text->getChars(), text->getLength()));
        }
        return;
    }
    if (kind == plain && key.value != 0)
        call(text(key));
    for (Id i = further == nullptr ? 0 : further->first[kind]; i != 0; i = values_[i].next)
        call(text(values_[i]));
}

}  // namespace zcache
