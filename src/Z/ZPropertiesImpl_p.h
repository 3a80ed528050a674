// ZPropertiesImpl_p: how a cache holds its contents. Private to ZPropertiesImpl.
//
// The text of a file is read once into an arena; names, values and comments are places in it (a
// TextId; 0 is none). What refers to a text is a record in a flat array, and records refer to one
// another by their place there (an Id; 0 is none), so that nothing is allocated for a single key:
//
//     Category  its keys in the order in which they came, the head line, what the section needs
//     Key       name, first plain value, category, line; `more` when there is more to tell
//     KeyMore   further values, obfuscated values, lists that were made for callers
//     Value     one value in a chain of values
//     Line      a doubly linked list in file order: comment, blank, head or key line
//
// One open-addressing table finds a key by (category, name), a second one a category by its name.
//
// A section is what stands behind a head line up to the next head line. Key lines stand only in
// the section of their category. A category or key that was removed without its lines is kept
// `dormant`: it is found by what deals with lines, and by nothing else.
//
// Every operation first reserves what it may need, which may raise, and then changes the contents,
// which cannot fail.
#pragma once

#include <ctype.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <new>
#include <string_view>
#include <utility>

#include "ZArrayList.h"
#include "ZPropertiesImpl.h"

namespace cache {

using Id = uint32_t;      // place of a record in its array; 0 is none
using TextId = uint32_t;  // place of a text in the arena; 0 is none

constexpr Id kMostRecords = (1u << 30) - 1;     // ids share a word with two bits
constexpr size_t kLongestText = 0xFFFFFFF0u;    // lengths are kept in 32 bits
constexpr size_t kLineRoom = 8192;              // of the buffer that a line is read into
constexpr size_t kLongestLine = kLineRoom - 2;  // that reads back as one, without its line feed

[[noreturn]] void raiseOutOfMemory();

// As realloc(), but raises ZOutOfMemoryException_6_0.
void* reallocate(void* block, size_t size);

// As new, for classes without an operator of their own, but raises ZOutOfMemoryException_6_0.
template <class Class, class... Arguments>
Class* make(Arguments const&... arguments)
{
    Class* const made = new (std::nothrow) Class(arguments...);
    if (made == nullptr)
        raiseOutOfMemory();
    return made;
}

// Views a terminated text; null is an empty one. Raises when it is too long for a record.
std::string_view checkedView(char const* text);

// Returns a new string object with a copy of `text`, owned by the caller.
inline ZLCString_6_0* newString(std::string_view text)
{
    return new ZLCString_6_0(text.data(), static_cast<unsigned>(text.size()));
}

// Returns whether a byte is white space: those of ASCII in every locale, and what isspace() of the
// current locale adds.
inline bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r') || isspace(static_cast<unsigned char>(c)) != 0;
}

// The same for many bytes, in a table.
struct Spaces {
    Spaces();
    bool has(char c) const { return is[static_cast<unsigned char>(c)]; }

    bool is[256];
};

// Returns whether `text` begins with `pattern` when the blanks in the text are skipped.
bool beginsWithPattern(std::string_view pattern, char const* text);

// Hashes `text` under `salt`. A secret of the process goes into it: nobody can prepare a file whose
// names fall together.
uint32_t hashOf(std::string_view text, uint32_t salt = 0);

// ------------------------------------------------------------------------------------------------

// Records in one block, found by their place. Freed places are used again.
template <class Record>
class Records {
public:
    Records() = default;
    Records(Records const&) = delete;
    Records& operator=(Records const&) = delete;
    ~Records() { ::free(records_); }

    // Makes this empty array a copy of `other`.
    void copy(Records const& other)
    {
        if (other.size_ == 0)
            return;
        setCapacity(other.size_);
        memcpy(static_cast<void*>(records_), other.records_, other.size_ * sizeof(Record));
        size_ = other.size_;
        free_ = other.free_;
        freeCount_ = other.freeCount_;
    }

    Record& operator[](Id id) { return records_[id]; }
    Record const& operator[](Id id) const { return records_[id]; }
    Record const* data() const { return records_; }

    // Makes sure that `count` records can be made without raising.
    void reserve(size_t count)
    {
        if (capacity_ - size_ + freeCount_ < count)
            grow(count);
    }

    // Returns the place of a new record, which is all zero. Never raises after reserve().
    Id make()
    {
        Id id = free_;
        if (id != 0) {
            memcpy(&free_, static_cast<void const*>(&records_[id]), sizeof free_);
            --freeCount_;
        } else {
            if (size_ == capacity_)
                grow(1);
            id = size_++;
        }
        memset(static_cast<void*>(&records_[id]), 0, sizeof(Record));
        return id;
    }

    void free(Id id)
    {
        memcpy(static_cast<void*>(&records_[id]), &free_, sizeof free_);
        free_ = id;
        ++freeCount_;
    }

    // Returns how many records there are; place 0 is none.
    size_t count() const { return size_ == 0 ? 0 : size_ - 1 - freeCount_; }

    // Returns a number above the place of every record.
    Id end() const { return size_; }

    size_t capacity() const { return capacity_; }
    size_t bytes() const { return capacity_ * sizeof(Record); }

    // Forgets the places from `end` on, which are all free, and gives their room back.
    void cut(Id end)
    {
        Id id = std::exchange(free_, 0);
        freeCount_ = 0;
        while (id != 0) {
            Id const place = id;
            memcpy(&id, static_cast<void const*>(&records_[place]), sizeof id);
            if (place < end)
                free(place);
        }
        size_ = end < size_ ? end : size_;
        fit();
    }

    // Gives back what is not in use, when that is worth the call.
    void fit()
    {
        if (size_ == 0) {
            ::free(std::exchange(records_, nullptr));
            capacity_ = 0;
        } else if (capacity_ - size_ > capacity_ / 16) {
            void* const block = realloc(static_cast<void*>(records_), size_ * sizeof(Record));
            if (block != nullptr) {
                records_ = static_cast<Record*>(block);
                capacity_ = size_;
            }
        }
    }

    void swap(Records& other)
    {
        std::swap(records_, other.records_);
        std::swap(capacity_, other.capacity_);
        std::swap(size_, other.size_);
        std::swap(free_, other.free_);
        std::swap(freeCount_, other.freeCount_);
    }

private:
    void grow(size_t count)
    {
        size_t const needed = size_ + count + 1;  // one more: place 0
        size_t const wished = capacity_ + capacity_ / 2;
        setCapacity(needed > wished ? needed : wished);
        if (size_ == 0)
            size_ = 1;
    }

    void setCapacity(size_t wished)
    {
        if (wished > kMostRecords)
            raiseOutOfMemory();
        wished = wished < 8 ? 8 : wished;
        records_ =
            static_cast<Record*>(reallocate(static_cast<void*>(records_), wished * sizeof(Record)));
        capacity_ = wished;
    }

    Record* records_ = nullptr;
    size_t capacity_ = 0;
    Id size_ = 0;  // places in use or free, place 0 included
    Id free_ = 0;  // the free place to use next; each holds the one behind it
    Id freeCount_ = 0;
};

// ------------------------------------------------------------------------------------------------

// Finds the ids of records by the hash of their names. Linear probing over slots that are sorted by
// hash, but for what moved on: growing the table reads and writes it once from start to end.
class Index {
public:
    Index() = default;
    Index(Index const&) = delete;
    Index& operator=(Index const&) = delete;
    ~Index() { free(slots_); }

    // Makes this empty table a copy of `other`.
    void copy(Index const& other);

    // Returns the id under `hash` for which `isIt(id)` is true, or 0.
    template <class IsIt>
    Id find(uint32_t hash, IsIt isIt) const
    {
        if (count_ == 0)
            return 0;
        for (size_t at = home(hash);; at = next(at)) {
            Slot const slot = slots_[at];
            if (slot.id == 0)
                return 0;
            if (slot.hash == hash && isIt(slot.id))
                return slot.id;
        }
    }

    // Asks the memory for the slots where find() will begin.
    void prefetch(uint32_t hash) const
    {
        if (size_ != 0)
            __builtin_prefetch(&slots_[home(hash)]);
    }

    // Makes sure that `count` ids can be entered without raising.
    void reserve(size_t count)
    {
        if (count_ + count > most_)
            grow(count);
    }

    // Enters `id`, which is not in the table. Never raises after reserve().
    void add(uint32_t hash, Id id);

    // Removes `id`, which is in the table.
    void remove(uint32_t hash, Id id);

    // Puts `id` in the place of `old`, which is in the table.
    void replace(uint32_t hash, Id old, Id id) { slots_[find(hash, old)].id = id; }

    // Gives back slots that so few ids do not need.
    void fit();

    size_t bytes() const { return size_ * sizeof(Slot); }
    void swap(Index& other);

private:
    struct Slot {
        uint32_t hash;
        Id id;  // 0: the slot is empty
    };

    size_t home(uint32_t hash) const
    {
        return static_cast<size_t>((static_cast<uint64_t>(hash) * size_) >> 32);
    }
    size_t next(size_t at) const { return at + 1 == size_ ? 0 : at + 1; }
    size_t find(uint32_t hash, Id id) const;
    void grow(size_t count);
    bool resize(size_t size);
    static void put(Slot* slots, size_t size, size_t home, Slot slot);

    Slot* slots_ = nullptr;
    size_t size_ = 0;
    size_t count_ = 0;
    size_t most_ = 0;  // ids that may be in the table before it grows
};

// ------------------------------------------------------------------------------------------------

// The texts: blocks that are filled from their start and given back together. A text never moves,
// and none has a zero byte in it but behind its end. Its place counts bytes through windows of 1
// MiB each, of which a block has as many as it needs, so that 32 bits tell it.
class Arena {
public:
    Arena() = default;
    Arena(Arena const&) = delete;
    Arena& operator=(Arena const&) = delete;
    ~Arena() { clear(); }

    // A block as it is filled by others; the arena takes it over with adopt().
    class Block {
    public:
        Block() = default;
        Block(Block const&) = delete;
        Block& operator=(Block const&) = delete;
        ~Block() { free(chunk_); }

        char* chars() { return chunk_->begin(); }
        size_t room() const { return room_; }
        void setRoom(size_t room);  // keeps what is in it, as far as it goes

    private:
        friend class Arena;
        struct Chunk {
            char* begin() { return reinterpret_cast<char*>(this + 1); }
            bool holds(char const* text)
            {
                return reinterpret_cast<uintptr_t>(text) - reinterpret_cast<uintptr_t>(begin()) <
                       size;
            }
            TextId placeOf(char const* text)
            {
                return (window << kWindowBits) + static_cast<TextId>(text - begin());
            }

            Chunk* next;
            uint32_t size;
            uint32_t window;  // the first one
        };
        Chunk* chunk_ = nullptr;
        size_t room_ = 0;
    };

    char const* at(TextId text) const
    {
        return reinterpret_cast<char const*>(windows_[text >> kWindowBits] + text);
    }

    std::string_view view(TextId text) const
    {
        char const* const chars = at(text);
        return {chars, strlen(chars)};
    }

    // The same with a length that packLength() made.
    std::string_view view(TextId text, uint16_t length) const
    {
        return length == kUnpacked ? view(text) : std::string_view(at(text), length);
    }

    // Makes 16 bits of a length, by which view() does not have to look for the end of the text.
    static uint16_t packLength(std::string_view text)
    {
        return static_cast<uint16_t>(text.size() < kUnpacked ? text.size() : kUnpacked);
    }

    // Returns the place of a text that is in the arena.
    TextId placeOf(char const* text) const;

    // Makes sure that texts of `bytes` together, their terminators included, can be added without
    // raising.
    void reserve(size_t bytes)
    {
        if (static_cast<size_t>(end_ - next_) < bytes)
            addChunk(bytes);
    }

    // Stores a copy of `text` and a zero byte. Never raises after reserve().
    std::string_view add(std::string_view text)
    {
        reserve(text.size() + 1);
        char* const at = next_;
        memcpy(at, text.data(), text.size());
        at[text.size()] = '\0';
        next_ += text.size() + 1;
        return {at, text.size()};
    }

    // Makes sure that a block can be taken over without raising.
    void reserveBlock(size_t bytes) { freeWindows(bytes); }

    // Takes over a block; of its room `bytes` are in use.
    void adopt(Block& block, size_t bytes);

    // Gives back the block that was adopted last, and forgets what was dropped since but `dead`
    // bytes. None of its texts is used any more.
    void dropAdopted(size_t dead);

    // Stores `text` with `first` in front of it.
    std::string_view add(char first, std::string_view text)
    {
        reserve(text.size() + size_t{2});
        *next_++ = first;
        std::string_view const rest = add(text);
        return {rest.data() - 1, rest.size() + 1};
    }

    // Notes that a text is not used any more.
    void drop(std::string_view text) { dead_ += text.size() + 1; }

    size_t dead() const { return dead_; }
    size_t used() const { return bytes_ - static_cast<size_t>(end_ - next_); }
    size_t bytes() const { return bytes_; }
    void clear();
    void swap(Arena& other);

private:
    using Chunk = Block::Chunk;

    static constexpr unsigned kWindowBits = 20;
    static constexpr TextId kWindow = 1 << kWindowBits;
    static constexpr size_t kMostWindows = size_t{1} << (32 - kWindowBits);
    static constexpr uint16_t kUnpacked = 0xFFFF;  // the length does not fit

    void addChunk(size_t bytes);
    uint32_t freeWindows(size_t bytes);
    void enter(Chunk* chunk, size_t bytes);
    void setWindows(Chunk const* chunk, uintptr_t address);

    Chunk* chunks_ = nullptr;
    uintptr_t* windows_ = nullptr;  // the address of place 0, were it there; 0: not in use
    size_t windowCount_ = 0;
    Chunk* filling_ = nullptr;  // the chunk that takes texts
    char* next_ = nullptr;      // and its free room
    char* end_ = nullptr;
    size_t bytes_ = 0;  // of all chunks
    size_t dead_ = 0;
    Chunk* adopted_ = nullptr;  // the block that was adopted last
    size_t deadBefore_ = 0;     // what was dead then
};

inline TextId Arena::placeOf(char const* text) const
{
    if (adopted_ != nullptr && adopted_->holds(text))
        return adopted_->placeOf(text);
    if (filling_ != nullptr && filling_->holds(text))
        return filling_->placeOf(text);
    Chunk* chunk = chunks_;
    while (!chunk->holds(text))
        chunk = chunk->next;
    return chunk->placeOf(text);
}

// ------------------------------------------------------------------------------------------------

struct Value {
    TextId text;
    uint32_t length;
    Id next;
};

// Half a cache line: look-ups come to one key after the other in no order.
struct Key {
    TextId name;
    TextId value;         // the first plain value; 0 when there is none, or when a list holds it
    uint16_t nameLength;  // as Arena::packLength() has it
    uint16_t valueLength;
    Id category : 30;
    uint32_t isLive : 1;  // 0: dormant
    Id more;
    Id line;
    Id previous;  // of the keys of its category, in the order in which they came
    Id next;
};

// What most keys do without. There are two kinds of values: 0 plain, 1 obfuscated.
struct KeyMore {
    ZArrayList_6_0* lists[2];  // the values, once a caller asked for them
    ZLCString_6_0* name;       // the name, once it was lent to a caller
    Id first[2];               // else the values; of the plain ones those behind the first
    Id last[2];
    uint32_t counts[2];
    Id key;           // 0: the record is not in use
    uint32_t isItem;  // 1: in the list of obfuscated items
    Id previousItem;
    Id nextItem;
};

struct Category {
    TextId name;
    uint16_t nameLength;  // as Arena::packLength() has it
    bool isLive;          // else dormant
    bool hasComments;     // in the section
    uint32_t keyCount;
    Id firstKey;  // in the order in which they came
    Id lastKey;
    Id previous;  // of the categories, in the order in which they came
    Id next;
    Id more;
    Id head;          // the head line
    Id previousHead;  // the categories whose heads stand before and behind, in file order
    Id nextHead;
    union {
        Id lastKeyLine;  // of a section without comments
        Id root;         // of a section with comments: of its tree, see Trees; 0: none was made
    };
    uint32_t items;  // keys in the list of obfuscated items

    Id tree() const { return hasComments ? root : 0; }

    // To be called before a section gets a comment.
    void expectComment()
    {
        if (!std::exchange(hasComments, true))
            root = 0;
    }
};

struct CategoryMore {
    ZArrayList_6_0* values;  // what get(category) returned last
    ZLCString_6_0* name;     // the name, once it was lent to a caller
    Id category;             // 0: the record is not in use
    Id replaced;             // while reading: the dormant category of the same name
};

enum LineKind : uint32_t { commentLine, blankLine, headLine, keyLine };

struct Line {
    Id previous : 30;
    uint32_t kind : 2;
    Id next : 30;
    uint32_t isBelowBlank : 1;  // of a comment that was read: a blank line stands above it
    uint32_t of;                // a Category, a Key or the text of a comment, by kind

    bool hasBlank() const { return kind == blankLine || isBelowBlank; }
};

// A comment such as "# port = 5": the first one of its section for its key.
struct Template {
    TextId key;  // without blanks
    Id category;
    Id line;
};

// ------------------------------------------------------------------------------------------------

// The lines of a section as a search tree in file order, so that places are found without a walk. A
// treap: a node is a line, its priority comes from its number, and every node knows what is below.
// Only sections with comments that get a new key have one.
class Trees {
public:
    Trees() = default;
    Trees(Trees const&) = delete;
    Trees& operator=(Trees const&) = delete;
    ~Trees() { free(nodes_); }

    // Makes sure that a tree may hold every line that `lines` has room for.
    void reserve(Records<Line> const& lines);
    bool isUsed() const { return nodes_ != nullptr; }

    // Makes a tree of the lines from `first` up to, not including, `end`. Returns its root.
    Id build(Records<Line> const& lines, Id first, Id end);

    // Puts `line` into the tree behind `before`, at the front when that is 0. Returns the root.
    Id insert(Records<Line> const& lines, Id root, Id line, Id before);

    // Takes `line` out of its tree. Returns the root; 0 when the tree is empty.
    Id remove(Records<Line> const& lines, Id line);

    // Returns the last key line of the tree, or 0.
    Id lastKeyLine(Records<Line> const& lines, Id root) const;

    // Returns the first blank line behind `line`, or 0.
    Id blankBehind(Records<Line> const& lines, Id line) const;

    // Returns whether `line` stands before `other` of the same tree.
    bool isBefore(Id line, Id other) const { return rank(line) < rank(other); }

    size_t bytes() const { return capacity_ * sizeof(Node); }
    void swap(Trees& other);

private:
    struct Node {
        Id left;
        Id right;
        Id parent;
        uint32_t size : 30;  // of the subtree
        uint32_t hasKeyLine : 1;
        uint32_t hasBlank : 1;
    };

    static uint32_t priority(Id line) { return line * 0x9E3779B1u ^ (line * 0x85EBCA77u >> 15); }
    void update(Records<Line> const& lines, Id node);
    void rotateUp(Records<Line> const& lines, Id node);
    Id settle(Records<Line> const& lines, Id node);
    Id firstBlank(Records<Line> const& lines, Id node) const;
    uint32_t rank(Id line) const;

    Node* nodes_ = nullptr;  // the node of a line has the line's place
    size_t capacity_ = 0;
};

// ------------------------------------------------------------------------------------------------

class Store {
public:
    enum Kind { plain, obfuscated };

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

    // Calls `call(std::string_view)` for each value.
    template <class Call>
    void eachValue(Id key, Kind kind, Call call) const;

    // Returns the list of the values, making it when there is none: from then on it holds them.
    ZArrayList_6_0* list(Id key, Kind kind);

    // Returns a list of copies of the category's values.
    ZArrayList_6_0* valuesOf(Id category, ZPCache_6_0::get_type_e type);

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
    class NewString;
    class Pieces;

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

// The keys of a category, or all categories, in the order of a map with 15 buckets: bucket by
// bucket, in a bucket as they came.
class MapOrder {
public:
    explicit MapOrder(Store const& store);  // categories
    MapOrder(Store const& store, Id category);
    MapOrder(MapOrder const&) = delete;
    MapOrder& operator=(MapOrder const&) = delete;
    ~MapOrder();

    Id const* begin() const { return sorted_; }
    Id const* end() const { return sorted_ + count_; }

private:
    template <class NameOf, class NextOf>
    void fill(size_t count, Id first, NameOf nameOf, NextOf nextOf);

    static constexpr size_t kFew = 128;
    Id few_[kFew];
    Id* sorted_ = few_;
    size_t count_ = 0;
};

// A text that is made piece by piece.
class TextBuffer {
public:
    TextBuffer() = default;
    TextBuffer(TextBuffer const&) = delete;
    TextBuffer& operator=(TextBuffer const&) = delete;
    ~TextBuffer() { free(chars_); }

    void add(std::string_view text) { memcpy(take(text.size()), text.data(), text.size()); }

    // Adds `text`, a literal, without its zero byte.
    template <size_t Size>
    void add(char const (&text)[Size])
    {
        memcpy(take(Size - 1), text, Size - 1);
    }

    // Adds `length` bytes, which the caller fills.
    char* take(size_t length)
    {
        if (room_ - length_ <= length)
            grow(length);
        return chars_ + std::exchange(length_, length_ + length);
    }

    // Makes room for a text of about `length` bytes at once.
    void expect(size_t length)
    {
        if (room_ <= length)
            setRoom(length + 1);
    }

    char const* chars() const { return chars_; }
    size_t length() const { return length_; }

    // Hands the text over; it is released with free().
    char* release()
    {
        length_ = room_ = 0;
        return std::exchange(chars_, nullptr);
    }

private:
    void grow(size_t length)
    {
        size_t const wished = room_ * 2 < 4096 ? 4096 : room_ * 2;
        setRoom(wished <= length_ + length ? length_ + length + 1 : wished);
    }

    void setRoom(size_t room)
    {
        chars_ = static_cast<char*>(reallocate(chars_, room));
        room_ = room;
    }

    char* chars_ = nullptr;
    size_t length_ = 0;
    size_t room_ = 0;
};

// Write a line of a file: ZPropertiesImpl_text.cpp.
void writeHead(std::string_view name, TextBuffer& text);
void writeValue(std::string_view name, std::string_view value, TextBuffer& text);
void writeEmptyKey(std::string_view name, TextBuffer& text);
void writeLine(std::string_view line, TextBuffer& text);  // a comment, or an empty line

// Appends what a file holds to a store, and takes it out again unless finish() was called. What
// comes waits in a short queue, while the memory brings what finding it needs.
class Reader {
public:
    explicit Reader(Store& store);
    Reader(Reader const&) = delete;
    Reader& operator=(Reader const&) = delete;
    ~Reader();

    // Takes over the text that the views point into, of which `bytes` are in use.
    void adopt(Arena::Block& block, size_t bytes);

    // Makes room for about so many lines of each kind.
    struct Expected {
        size_t heads;
        size_t keys;
        size_t comments;
        size_t blanks;
    };
    void reserve(Expected const& lines);

    // Returns a copy of a text that has no room for its terminator.
    std::string_view keep(std::string_view text)
    {
        std::string_view const kept = store_.arena_.add(text);
        kept_ += kept.size() + 1;
        return kept;
    }

    void drop(std::string_view text) { store_.arena_.drop(text); }  // nothing will refer to it

    // A head that names a category that there is.
    struct Repetition {
        std::string_view name;
        int lineNumber;  // 0: there is none
    };

    void addHead(std::string_view name, int lineNumber)
    {
        categoryHash_ = hashOf(name);
        store_.categoryIndex_.prefetch(categoryHash_);
        push({headLine, categoryHash_, name, {}, lineNumber});
    }
    void addComment(std::string_view text) { push({commentLine, 0, text, {}, 0}); }
    void addBlank() { push({blankLine, 0, {}, {}, 0}); }

    // Adds a key to the category of the last head; there must be one.
    void addKey(std::string_view name, std::string_view value)
    {
        uint32_t const hash = hashOf(name, categoryHash_);
        store_.keyIndex_.prefetch(hash);
        push({keyLine, hash, name, value, 0});
    }

    // Returns the first head that repeated another; what came behind it was ignored.
    Repetition const& repetition() const { return repetition_; }

    // Enters what waits.
    void flush()
    {
        while (count_ != 0)
            enterFirst();
    }

    // Keeps what went in. Never raises when all of it was flushed.
    void finish();

private:
    struct Waiting {
        LineKind kind;
        uint32_t hash;
        std::string_view text;  // comment, category or key
        std::string_view value;
        int lineNumber;
    };
    static constexpr unsigned kMostWaiting = 16;

    // Where the records ended.
    struct Ends {
        Id categories;
        Id categoryMores;
        Id keys;
        Id keyMores;
        Id values;
        Id lines;
    };

    void push(Waiting const& line)
    {
        if (count_ == kMostWaiting)
            enterFirst();
        waiting_[(first_ + count_++) % kMostWaiting] = line;
    }
    void enterFirst();
    void enterHead(Waiting const& line);
    void enterKey(Waiting const& line);
    void enterComment(Waiting const& line);
    Id append(LineKind kind, uint32_t of);
    void undo();

    Store& store_;
    uint32_t categoryHash_ = 0;  // of the last head that came
    Id category_ = 0;            // of the last head that was entered
    Id const lastLine_;          // what was there before
    Id const lastHead_;
    bool hadComments_ = false;  // the section of that head
    Id lastKeyLine_ = 0;        // else its last key line
    Ends const ends_;
    size_t kept_ = 0;  // bytes of copies
    Repetition repetition_ = {{}, 0};
    bool isAdopted_ = false;
    bool isDone_ = false;
    unsigned first_ = 0;  // of those that wait
    unsigned count_ = 0;
    Waiting waiting_[kMostWaiting];
};

}  // namespace cache

// Hidden here, because in signatures like these the patterns of exports.map see public names.
struct __attribute__((visibility("hidden"))) ZPCategoryBasedCache_6_0::Rep : cache::Store {
    struct Derived;
    class DerivedReader;
};

// The operations of a cache whose class is derived from those of the library. They call the virtual
// value operations, so that the overrides of the class see every value that is read, written or
// changed. ZPropertiesImpl_derived.cpp.
struct __attribute__((visibility("hidden"))) ZPCategoryBasedCache_6_0::Rep::Derived {
    using Cache = ZPCategoryBasedCache_6_0;

    static void addStanzaLine(Cache& cache, char const* category);
    static void addLine(Cache& cache, char const* category, char const* key, char const* value,
                        int obfuscated);
    static void addStanzaComment(Cache& cache, char const* category, char const* comment);
    static void addLineComment(Cache& cache, char const* category, char const* key,
                               char const* comment);
    static void deleteLine(Cache& cache, char const* category, char const* key);
    static void deleteStanza(Cache& cache, char const* category);
    static void list(Cache const& cache, cache::TextBuffer& text);
    static void write(Cache& cache, cache::TextBuffer& text);

    // Calls `call(to, category, key, value)` for each obfuscated value.
    static void eachObfuscated(Cache& cache,
                               void (*call)(void* to, std::string_view category,
                                            std::string_view key, std::string_view value),
                               void* to);

    // Adds the values of `records` records, as Store::addObfuscated().
    static void addObfuscated(Cache& cache, char const* text, size_t records);
};

// Adds what a text holds to a cache of a derived class as Reader adds it to the contents, through
// the virtual operations `contains`, `set` and `add`. The contents become what they were, unless
// finish() was called.
class __attribute__((visibility("hidden"))) ZPCategoryBasedCache_6_0::Rep::DerivedReader {
public:
    explicit DerivedReader(ZPCategoryBasedCache_6_0& cache);
    DerivedReader(DerivedReader const&) = delete;
    DerivedReader& operator=(DerivedReader const&) = delete;
    ~DerivedReader();

    void adopt(cache::Arena::Block&, size_t) {}
    void reserve(cache::Reader::Expected const&) {}
    std::string_view keep(std::string_view text);
    void drop(std::string_view) {}
    void addHead(std::string_view name, int lineNumber);
    void addComment(std::string_view text);
    void addBlank();
    void addKey(std::string_view name, std::string_view value);
    cache::Reader::Repetition const& repetition() const { return repetition_; }
    void flush() {}
    void finish();

private:
    // A copy of a text.
    struct Kept {
        Kept* next;
        char text[1];
    };

    ZPCategoryBasedCache_6_0& cache_;
    Rep* before_;                          // null once it is not needed any more
    std::string_view category_ = {"", 0};  // of the last header
    Kept* kept_ = nullptr;
    cache::Reader::Repetition repetition_ = {{}, 0};
};
