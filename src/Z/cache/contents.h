// contents: the contents of a cache: names, values, and the lines of the file.
//
// The file is read once into an arena. Strings are 32-bit ids into the arena; categories, keys,
// values and lines are records in pools that refer to each other by index, so no key costs an
// allocation. Two hash indexes find a category by name and a key by (category, name).
//
// A section is a header line and the lines up to the next header. Key lines are only in the section
// of their category. A category or key that is removed while its lines stay is `detached`: only
// operations on lines find it, and adding it again revives it.
//
// Every operation first reserves memory, which may throw, then modifies, which cannot fail.
// Most member functions are defined in files of their own, one per concern: lookup, categories,
// renaming, values, value_lists, secrets, lines, sections, key_lines, comments and detached_lines.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "../ZArrayList.h"
#include "../stanza/comment_splitter.h"
#include "arena.h"
#include "compact_index.h"
#include "line_treap.h"
#include "policy.h"
#include "records.h"
#include "slot_pool.h"

namespace zstanza {
struct CompanionRecord;
}

namespace zcache {

using zstanza::CommentSplitter;

class Contents {
public:
    enum Kind { plain, obfuscated };
    enum Selection { selectAny, selectPlain, selectObfuscated };

    Contents() = default;
    Contents(Contents const& other);
    Contents& operator=(Contents const&) = delete;
    ~Contents();

    /// range   empty contents.
    /// throws  std::bad_alloc.
    void setPolicy(Policy const& policy);
    void sharePolicyOf(Contents const& other) { policy_ = other.policy_; }
    Policy const& policy() const { return *policy_; }

    // --- lookup: find() and findCategory() also find detached ones

    Id findCategory(std::string_view name) const { return findCategory(name, categoryHash(name)); }

    // The hashes of two names, and the ids found; 0 if not found.
    struct LookupResult {
        uint32_t categoryHash;
        uint32_t hash;
        Id category;
        Id key;
    };
    LookupResult find(std::string_view category, std::string_view key) const;

    /// Return the id of a category or key that is not detached; 0 if not found.
    Id liveCategory(char const* name) const;
    Id liveKey(char const* category, char const* key) const;

    size_t categoryCount() const { return categoryCount_; }
    size_t itemCount() const { return itemCount_; }
    size_t lineCount() const { return lines_.count(); }
    size_t valueCount(Id key, Kind kind) const;

    /// Returns the kind of the values that a caller of "any values" receives.
    Kind anyKind(Id key) const
    {
        return valueCount(key, plain) == 0 && valueCount(key, obfuscated) != 0 ? obfuscated : plain;
    }

    /// Returns the kind of values that `selection` selects for a key.
    Kind kindOf(Id key, Selection selection) const
    {
        return selection == selectPlain        ? plain
               : selection == selectObfuscated ? obfuscated
                                               : anyKind(key);
    }

    /// Calls `call(std::string_view)` for each value.
    template <class Call>
    void forEachValue(Id key, Kind kind, Call call) const
    {
        findValue(key, kind, [&](std::string_view value) {
            call(value);
            return false;
        });
    }

    /// Calls `isWanted(std::string_view)` for each value until it returns true, and returns whether
    /// it did. It may change the contents then.
    template <class Predicate>
    bool findValue(Id key, Kind kind, Predicate isWanted) const;

    // --- objects that callers receive

    /// Returns the list of the values. The first call creates it; the list then holds the values.
    /// owns    borrowed until the key is removed.
    ZArrayList_6_0* list(Id key, Kind kind);

    /// Returns a list of copies of the category's values.
    /// owns    borrowed until the category is removed or this is called for it again.
    ZArrayList_6_0* valuesOf(Id category, Selection selection);

    /// owns    borrowed until the key or category is removed.
    ZLCString_6_0* keyName(Id key);
    ZLCString_6_0* categoryName(Id category);

    // --- changes of values

    /// Each creates the category, the key unless its name is empty, and the value unless it is
    /// null, or empty if the policy has no empty values.
    void add(std::string_view category, std::string_view key, std::string_view value, Kind kind);
    void set(std::string_view category, std::string_view key, std::string_view value, Kind kind)
    {
        set(find(category, key), category, key, value, kind);
    }
    void removeKey(Id key);            // its line stays
    void removeCategory(Id category);  // its lines stay

    /// Adds the obfuscated values of a companion's records, all or none.
    /// owns    `block`, of which `bytes` are in use, is taken over; it is unchanged on failure.
    void addObfuscated(Arena::Block& block, size_t bytes, size_t records);

    // --- changes of lines

    /// Makes new keys follow the template comment for them directly, instead of before the next
    /// blank line.
    void insertAtTemplates(bool isWanted) { insertsAtTemplates_ = isWanted; }

    void addStanzaLine(std::string_view category);
    void addLine(std::string_view category, std::string_view key, std::string_view value,
                 Kind kind);
    void deleteLine(std::string_view category, std::string_view key);
    void deleteStanza(std::string_view category);

    /// Moves the comment of the next stanza, and the comments of stanzas that were removed after
    /// this call for them, above the header of `category`: the removal of this stanza does not
    /// remove them.
    /// throws  std::bad_alloc.
    void keepHeaderComments(std::string_view category);

    // The comment lines right above a header or key line, or at the start of the file: up to the
    // next blank line, or line that is not in the cache. Comments right above the first header or
    // key do not belong to the file.
    struct CommentBlock {
        Id first;  // 0: there is no comment
        Id last;
        Id category;  // the section of the lines
    };
    CommentBlock fileComment() const;
    CommentBlock stanzaComment(Id category) const;
    CommentBlock keyComment(Id key) const;

    /// Replaces the lines of a block by a comment; a null comment removes them.
    void replaceComment(CommentBlock const& block, std::string_view comment);

    /// Adds a comment at the start of a file that has none.
    void setFileComment(std::string_view comment);

    /// Each renames in place a key or category that is not detached. No other such key or category
    /// has the new name.
    void renameKey(std::string_view category, std::string_view key, std::string_view name);
    void renameCategory(std::string_view category, std::string_view name);

    /// Keep the present name of a key or category as its old name, until forgetChanges(). A key
    /// or category that has an old name keeps that.
    /// throws  std::bad_alloc.
    void keepOldKeyName(std::string_view category, std::string_view key);
    void keepOldCategoryName(std::string_view category);

    /// Forgets the old names, and which comments were above the headers of removed stanzas. Call
    /// this when the contents are the contents of the file.
    void forgetChanges();

    /// Return the old name if another name is present; else an empty view.
    std::string_view oldKeyName(Id key) const;
    std::string_view oldCategoryName(Id category) const;

    /// Ensures that renames to names of `bytes` in total, with their zero bytes, do not throw.
    void reserveNames(size_t bytes) { arena_.reserve(bytes); }

    void addFileComment(std::string_view comment);
    void addStanzaComment(Id category, std::string_view comment);
    void addLineComment(std::string_view category, std::string_view key, std::string_view comment);

    // --- lines of caches of derived classes, whose overrides may keep the values elsewhere: a line
    // then refers to a detached category or key

    /// Removes the section of a category and appends a blank line and a header for it.
    void restartSection(std::string_view category);
    void undoRestartSection(std::string_view category);

    /// Each appends a line, unless the category or key has one already.
    void readHeader(std::string_view category);
    void readComment(std::string_view comment);
    void readBlank();
    void readKey(std::string_view category, std::string_view key);

    /// Returns whether the line was created.
    bool ensureKeyLine(std::string_view category, std::string_view key);
    void removeKeyLine(std::string_view category, std::string_view key);
    void removeSection(std::string_view category);
    void commentStanza(std::string_view category, std::string_view comment);
    void commentKey(std::string_view category, std::string_view key, std::string_view comment);

    // --- records

    Category const& category(Id id) const { return categories_[id]; }
    Key const& key(Id id) const { return keys_[id]; }
    KeyExtra const* findExtra(Id key) const
    {
        return keys_[key].hasExtra ? &keyExtras_[keys_[key].extra] : nullptr;
    }
    Value const& value(Id id) const { return values_[id]; }
    Line const& line(Id id) const { return lines_[id]; }
    std::string_view name(Category const& category) const
    {
        return arena_.view(category.name, category.nameLength);
    }
    std::string_view name(Key const& key) const { return arena_.view(key.name, key.nameLength); }
    /// range   a key without extra fields.
    std::string_view text(Key const& key) const { return arena_.view(key.value, key.valueLength); }
    std::string_view text(Value const& value) const
    {
        return {arena_.at(value.text), value.length};
    }
    std::string_view text(Line const& line) const;
    Id firstCategory() const { return firstCategory_; }
    Id firstLine() const { return firstLine_; }
    Id firstHeader() const { return firstHeader_; }
    Id firstItem() const { return firstItem_; }
    KeyExtra const& item(Id id) const { return keyExtras_[id]; }

    // --- the whole

    /// Frees the memory of garbage strings if they are more than half of the strings in use.
    void compact();

    /// Returns whether a category has the keys above the first header. Its own header is no line of
    /// the file.
    bool isTop(Id id) const { return policy_->hasTop && name(categories_[id]) == kTopCategory; }

    size_t memoryUsed() const;

    /// Returns the estimated size of the text of the file.
    size_t textLength() const { return arena_.used() + 4 * lines_.count(); }

    void swap(Contents& other);

    /// Returns whether a list of values was ever created: its holder can change it at any time.
    bool hasLists() const { return hasLists_; }

    /// Returns whether each list that a caller may hold has the values that the key has in `copy`.
    /// range   a copy of these contents, which have not changed since, except by holders of lists.
    /// cost    O(values in lists).
    bool hasListsOf(Contents const& copy) const;

    /// Returns whether lists that callers may hold were deleted since the last call.
    bool exchangeListsRemoved() { return std::exchange(listsRemoved_, false); }

private:
    friend class Reader;

    enum Storage {
        outsideArena,
        insideArena
    };  // of a name: reviving copies it to the arena if it is outside

    uint32_t categoryHash(std::string_view name) const { return policy_->categories.hash(name, 0); }
    uint32_t keyHash(std::string_view name, uint32_t categoryHash) const
    {
        return policy_->keys.hash(name, categoryHash);
    }
    bool isValue(std::string_view value) const
    {
        return policy_->keepsEmpty ? value.data() != nullptr : !value.empty();
    }
    uint32_t hashOfCategory(Id id) const { return categoryHash(name(categories_[id])); }
    uint32_t hashOfKey(Id id) const
    {
        return keyHash(name(keys_[id]), hashOfCategory(keys_[id].category));
    }
    uint32_t hashOfTemplate(Id id) const
    {
        Template const& record = positions_->templates[id];
        return policy_->keys.hash(arena_.view(record.key), record.category);
    }
    void reserveCategories(size_t count)
    {
        categories_.reserve(count);
        categoryIndex_.reserve(count, categories_.end() + count,
                               [this](Id id) { return hashOfCategory(id); });
    }
    void reserveKeys(size_t count)
    {
        keys_.reserve(count);
        keyIndex_.reserve(count, keys_.end() + count, [this](Id id) { return hashOfKey(id); });
    }
    void reserveTemplates(size_t count);
    void removeCategoryFromIndex(Id category, uint32_t hash)
    {
        categoryIndex_.remove(hash, category, [this](Id id) { return hashOfCategory(id); });
    }
    void removeKeyFromIndex(Id key, uint32_t hash)
    {
        keyIndex_.remove(hash, key, [this](Id id) { return hashOfKey(id); });
    }
    Id findCategory(std::string_view name, uint32_t hash) const;
    Id findKey(Id category, std::string_view name, uint32_t hash) const;
    Id findKey(std::string_view category, std::string_view name, uint32_t hash) const;
    Id createCategory(std::string_view name, uint32_t hash);
    void linkCategory(Id category);
    Id reviveCategory(Id known, std::string_view name, uint32_t hash,
                      Storage storage = outsideArena);
    Id reviveKey(Id known, Id category, std::string_view name, uint32_t hash,
                 Storage storage = outsideArena);
    Id createKey(Id category, std::string_view name, uint32_t hash);
    void linkKey(Id key);
    KeyExtra& extraOf(Id key);
    static bool hasValues(ZArrayList_6_0 const& list, Contents const& copy, Id key, Kind kind);
    Id set(LookupResult const& found, std::string_view category, std::string_view key,
           std::string_view value, Kind kind);  // returns the key
    void reserveFor(std::string_view category, std::string_view key, std::string_view value);
    void appendValue(Id key, std::string_view value, Kind kind);
    void chainValue(KeyExtra& extra, Value const& value, Kind kind);
    void dropValues(Id key, Kind kind);
    void dropStoredValues(Id key, Kind kind);
    ZArrayList_6_0* obfuscatedList(zstanza::CompanionRecord const& record) const;
    void addToObfuscatedLists(char const* bytes, size_t records);
    void addItem(Id key);
    void removeItem(Id key);
    void unlinkKey(Id key);
    void freeKey(Id key, uint32_t hash);
    template <class Call>
    void forEachKeyOf(Id category, Call call);
    CategoryExtra& categoryExtraOf(Id category);
    void dropCategoryExtra(Id category);
    void freeCategory(Id category);
    template <class Call>
    void forEachText(Arena const& arena, Call call);
    void moveStrings(Arena const& arena);
    void shrinkToFit();

    void reserveLines(size_t count);
    void reserveKeyLine(LookupResult const& found);
    void reserveComments(CommentSplitter const& comments, size_t lines, size_t bytes);
    Id createLine(LineKind kind, uint32_t ref, Id category, Id before);
    Id createComments(CommentSplitter const& comments, Id category, Id before);
    void link(Id line, Id next);
    void unlinkLine(Id line);
    void moveGap(Id from, Id to);
    void freeLine(Id line);
    void linkHeader(Id category);
    void appendHeader(Id category);
    void insertTopHeader(Id category);
    void showTopHeader(Id category);
    size_t templateKey(Id line, char* key, size_t capacity) const;
    Id insertionPoint(Id category, std::string_view key) const;
    Id insertionPointByScan(Id category, std::string_view key) const;
    void createKeyLine(Id key);
    void removeKeyLine(Id key);
    void removeSection(Id category);
    void dropSection(Id category);
    Id ensureCategory(std::string_view name);
    Id ensureKey(std::string_view category, std::string_view key);
    void commentKey(Id key, CommentSplitter const& comments);
    void removeDetachedSection(Id category);
    void indexSection(Id category);
    void unindexLastSection();
    void unindexSection(Id category);
    CommentBlock commentAbove(Id line, Id category) const;
    void recordTemplate(Id category, Id line);
    void forgetTemplate(Id category, Id line);
    Id findTemplate(Id category, std::string_view key) const;

    // Find the position of a new key in a section with comments.
    struct Positions {
        SlotPool<Template> templates;
        CompactIndex index;  // of the templates
        LineTreap treap;
    };

    // The changes since the contents were the contents of the file, as far as a merge needs them.
    struct Changes {
        std::unordered_map<Id, std::string> categoryNames;  // the old names
        std::unordered_map<Id, std::string> keyNames;
        std::unordered_set<Id> leftComments;  // lines above the headers of removed stanzas
    };
    Changes& changes();  // creates them; may throw
    static std::shared_ptr<Policy const> defaultPolicy();

    std::shared_ptr<Policy const> policy_ = defaultPolicy();  // never null
    Arena arena_;
    SlotPool<Category> categories_;
    SlotPool<CategoryExtra> categoryExtras_;
    SlotPool<Key> keys_;
    SlotPool<KeyExtra> keyExtras_;
    SlotPool<Value> values_;
    SlotPool<Line> lines_;
    CompactIndex categoryIndex_;
    CompactIndex keyIndex_;
    std::unique_ptr<Positions> positions_;  // null: no section has a treap or templates
    std::unique_ptr<Changes> changes_;      // null: none

    Id firstCategory_ = 0;  // not detached, in insertion order
    Id lastCategory_ = 0;
    Id categoryCount_ = 0;
    Id firstItem_ = 0;  // of KeyExtra, in insertion order
    Id lastItem_ = 0;
    Id itemCount_ = 0;
    Id firstLine_ = 0;
    Id lastLine_ = 0;
    Id firstHeader_ = 0;  // categories with a header, in file order
    Id lastHeader_ = 0;
    Id lastLeading_ = 0;    // of the comments at the start of the file, as far as scanned
    size_t compactAt_ = 0;  // after a failed compaction: garbage at which to try again
    bool hasLists_ = false;
    bool listsRemoved_ = false;
    bool insertsAtTemplates_ = false;
};

// The next three functions are inline, because a load calls them for each key.

// Creates a detached key. Its name is in the arena. Requires reserveKeys().
inline Id Contents::createKey(Id category, std::string_view name, uint32_t hash)
{
    Id const id = keys_.allocate();
    Key& key = keys_[id];
    key.name = arena_.idOf(name.data());
    key.nameLength = Arena::encodeLength(name);
    key.category = category & kMaxRecords;
    keyIndex_.add(hash, id);
    return id;
}

// Appends a key to the list of its category.
inline void Contents::linkKey(Id id)
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

// Appends a string of the arena to the values of a kind.
inline void Contents::appendValue(Id key, std::string_view text, Kind kind)
{
    StringId const string = arena_.idOf(text.data());
    if (kind == plain && !keys_[key].hasExtra && keys_[key].value == 0) {
        keys_[key].value = string;
        keys_[key].valueLength = Arena::encodeLength(text);
        return;
    }
    chainValue(extraOf(key), {string, static_cast<uint32_t>(text.size()), 0}, kind);
}

template <class Predicate>
bool Contents::findValue(Id id, Kind kind, Predicate isWanted) const
{
    Key const& key = keys_[id];
    KeyExtra const* const extra = findExtra(id);
    if (extra != nullptr && extra->lists[kind] != nullptr) {
        ZArrayList_6_0 const& list = *extra->lists[kind];
        for (unsigned i = 0; i < list.size(); ++i) {
            auto const* const text = static_cast<ZAbstractString_6_0 const*>(list.get(i));
            if (text != nullptr && isWanted(std::string_view(text->getChars(), text->getLength())))
                return true;
        }
        return false;
    }
    if (extra == nullptr)
        return kind == plain && key.value != 0 && isWanted(text(key));
    for (Id next = extra->first[kind]; next != 0;) {
        Value const value = values_[next];
        if (isWanted(text(value)))
            return true;
        next = value.next;
    }
    return false;
}

}  // namespace zcache
