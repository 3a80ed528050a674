// ZPropertiesImpl: the cache behind a configuration store: every value, and every line of the file.
//
// Subsystem: properties.  Stands on: ZObject, ZException, ZLCString, ZArrayList, ZHashKeyMap,
// ZBuffer, ZSqueeze.
//
// A cache keeps categories of keys, the values of each key (plain ones and obfuscated ones), and
// beside them the lines of the file in file order, so that a store rewrites the file with its
// comments, blank lines and key order. The text lies in memory once; the value lists that callers
// see are made when `get` is called for them, and from then on such a list is what the key holds:
// whoever changes it changes the cache. There is room for 4 GiB of text.
// Ownership: the cache owns everything it hands out, unless a contract says otherwise. Every
// operation either happens or, when memory is short, raises ZOutOfMemoryException_6_0 and leaves
// the cache as it was.
// Threads: unsynchronised; the store that owns a cache calls it under the store's lock.
// File format: stanza files and their companion, see docs/file-formats.md.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "ZHashKeyMap.h"
#include "ZLCString.h"
#include "ZObject.h"

class ZArrayList_6_0;
class ZBuffer_6_0;
class ZList_6_0;
class ZPCategoryBasedCache_6_0;

// One line of a file.
class ZPropLine_6_0 : public ZObject_6_0 {
public:
    enum LineType : unsigned { comment = 1, blank = 2, stanzaHead = 4, keyLine = 8 };

    /// Makes a line of `type`.
    /// owns    `text` is copied: the key of a key line, the category of a stanza head, a comment
    ///         as a whole, nothing for a blank line. Null is taken as "".
    ZPropLine_6_0(unsigned type, char const* text);
    ZPropLine_6_0(ZPropLine_6_0 const& other);
    ZPropLine_6_0& operator=(ZPropLine_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZPropLine_6_0() override;

    /// Orders by type, then by the bytes of the text; 0 exactly when both are equal, and with
    /// anything that is no line by address.
    int compare(ZObject_6_0 const& other) const override;
    ZObject_6_0* clone() const override;

    unsigned type() const { return type_; }
    ZLCString_6_0 const& text() const { return text_; }

private:
    unsigned type_;
    ZLCString_6_0 text_;
};

// Names a key that holds obfuscated values.
class ZObfuscatedItem_6_0 : public ZObject_6_0 {
public:
    /// Names `key` of `category`.
    /// owns    both are copied; null is taken as "".
    ZObfuscatedItem_6_0(char const* category, char const* key);
    ZObfuscatedItem_6_0(ZObfuscatedItem_6_0 const& other);
    ZObfuscatedItem_6_0& operator=(ZObfuscatedItem_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZObfuscatedItem_6_0() override;

    /// Orders by the bytes of the category, then of the key; with anything else by address.
    int compare(ZObject_6_0 const& other) const override;
    ZObject_6_0* clone() const override;

    /// Returns whether `other` is an item with the same two names.
    bool equals(ZObject_6_0 const& other) const override;

    ZLCString_6_0 const& category() const { return category_; }
    ZLCString_6_0 const& key() const { return key_; }

private:
    ZLCString_6_0 category_;
    ZLCString_6_0 key_;
};

// The keys of one category: key name to value entry. A value entry is an owning list of exactly two
// owning lists of ZLCString_6_0: the plain values, then the obfuscated ones.
class ZPKVList_6_0 : public ZHashKeyMap_6_0 {
public:
    /// Makes an empty map of 15 buckets that owns its keys and entries.
    ZPKVList_6_0();
    ZPKVList_6_0(ZPKVList_6_0 const& other);
    ZPKVList_6_0& operator=(ZPKVList_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZPKVList_6_0() override;
    ZObject_6_0* clone() const override;
    void putEntry(ZObject_6_0 const* key, ZObject_6_0 const* value) override;
    void removeEntry(ZObject_6_0 const* key) override;
    void removeAll() override;
    void listKeys(ZList_6_0& target) const override;

    /// Returns copies of the key names, in map order.
    /// owns    owned by the caller; released with delete. The list owns its members.
    virtual ZArrayList_6_0* getKeys() const;

    /// Returns an entry without values: two empty lists.
    /// owns    owned by the caller; released with delete.
    static ZArrayList_6_0* makeEntry();
};

// What a store asks of its cache. The value operations are empty here: getters return null or 0,
// changes do nothing.
class ZPCache_6_0 {
public:
    /// Selects the values of a key.
    enum get_type_e {
        anyValues = 0,        // the plain ones, or the obfuscated ones when there is no plain one
        plainValues = 1,      // the plain ones
        obfuscatedValues = 2  // the obfuscated ones
    };

    /// Attribute: keep comment lines and blank lines when reading.
    enum : unsigned long { keepComments = 1 };

    /// The empty text.
    static char const empty_[1];

    ZPCache_6_0();
    ZPCache_6_0(ZPCache_6_0 const& other);
    ZPCache_6_0& operator=(ZPCache_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    virtual ~ZPCache_6_0();

    /// Returns a copy of the cache: values, lines, companion file name and attributes.
    /// owns    owned by the caller; released with delete.
    virtual ZPCache_6_0* clone() const = 0;

    /// Returns the list of the values of (category, key) that `type` selects: owning, of
    /// ZLCString_6_0, in the order in which they were added. Null when the key is missing.
    /// owns    borrowed until the key is removed; it is the cache's own list, so changing it
    ///         changes the key. `generation()` tells whether lists went away.
    virtual ZArrayList_6_0* get(char const* category, char const* key, get_type_e type);

    /// Returns copies of the values of a whole category that `type` selects for each key: key by
    /// key in map order, a key's values in their order. Null when the category is missing.
    /// owns    borrowed until the category is removed; the next call for it fills the list anew.
    virtual ZArrayList_6_0* get(char const* category, get_type_e type);

    /// Adds a value behind those that the key has, making category and key when they are new.
    /// range   null or empty `value` adds the key alone; null `key` the category alone; null
    ///         `category` does nothing. The same holds for every operation below.
    virtual void add(char const* category, char const* key, char const* value, int obfuscated);

    /// Adds a key without a value, when it is new.
    virtual void add(char const* category, char const* key, int obfuscated);

    /// Makes `value` the key's one value, as a plain one; an empty one leaves the key without
    /// value.
    virtual void set(char const* category, char const* key, char const* value);

    /// Leaves the key without value.
    virtual void set(char const* category, char const* key);

    /// Makes `value` the key's one value, as an obfuscated one. A key that held obfuscated values
    /// already keeps its place among those that do.
    virtual void setObfuscated(char const* category, char const* key, char const* value);

    /// Leaves the key without value.
    virtual void setObfuscated(char const* category, char const* key);

    /// Removes a key with its values. Its line stays, and is written again if the key comes back.
    virtual void remove(char const* category, char const* key);

    /// Removes a category with its keys. Its lines stay, and are written again if it comes back.
    virtual void remove(char const* category);

    /// Returns how many values `get(category, anyValues)` lists; 0 when the category is missing.
    virtual int countValues(char const* category);

    /// Returns how many values `get(category, key, anyValues)` lists; 0 when the key is missing.
    virtual int countValues(char const* category, char const* key);

    /// Returns the number of keys of a category; 0 when it is missing.
    virtual int keyCount(char const* category) const;

    /// Returns 1 when the category exists, else 0.
    virtual int contains(char const* category) const;

    /// Returns 1 when the key exists in the category, else 0.
    virtual int contains(char const* category, char const* key) const;

    /// Returns 1 when some key of the category holds obfuscated values, else 0.
    virtual int isObfuscated(char const* category) const;

    /// Returns 1 when the key holds obfuscated values, else 0.
    virtual int isObfuscated(char const* category, char const* key) const;

    /// Returns the number of categories.
    virtual int count() const;

    /// Appends the category names to `out`, in map order, as ZLCString_6_0.
    /// owns    an owning `out` gets names of its own; to one that only borrows, the names stay the
    ///         cache's, until the category is removed.
    virtual void getNames(ZArrayList_6_0& out) const;

    /// Appends the names of a category's keys to `out`, in map order; nothing when it is missing.
    /// owns    as for the category names: until the key is removed.
    virtual void getNames(char const* category, ZArrayList_6_0& out) const;

    /// Returns the names of a category's keys, in map order; null when the category is missing.
    /// owns    owned by the caller; released with delete. The list owns its members.
    virtual ZArrayList_6_0* getNames(char const* category) const;

    /// Prints every category with its plain values, in map order: "\n[%s]\n", then "%s = %s\n" for
    /// each value, or "%s =\n" for a key without one. When writing fails, ferror() of `file` tells,
    /// unless the program has made it wide.
    /// range   null does nothing.
    virtual void list(FILE* file) const;

    /// Reads the text of `file` from where it stands to its end.
    virtual void be_read(char const* path, FILE* file);

    /// Writes the text to `file` where it stands.
    virtual void be_write(char const* path, FILE* file);

    /// Reads the contents of a companion file.
    virtual void be_read_obfuscated(ZBuffer_6_0& buffer);

    /// Makes `buffer` the contents of a companion file; empty when there is nothing to keep in one.
    virtual void be_write_obfuscated(ZBuffer_6_0& buffer);

    /// Removes a category with its values and its lines: head, keys, comments and blank lines.
    /// kept    comments that stand above the next head go along.
    virtual void delLine(char const* category);

    /// Removes a key with its values and its line.
    virtual void delLine(char const* category, char const* key);

    /// Sets the value of a key as `set` or `setObfuscated` does, and gives the category a head line
    /// and the key a line where they have none. Null or empty `key`: the category alone.
    /// kept    a new head has a blank line above it, also at the top of a new file.
    virtual void addLine(char const* category, char const* key, char const* value, int obfuscated);

    /// Does the same without a value.
    virtual void addLine(char const* category, char const* key, int obfuscated);

    /// Adds a comment to the block that leads the file. The lines of a comment of several lines
    /// stay together; each but the first gets a leading "#" if it has none. The same holds for the
    /// two operations below.
    virtual void addFileComment(char const* comment);

    /// Adds a comment above the head of a category, with a blank line above the comment unless
    /// there is one; nothing when the category is missing.
    virtual void addLineComment(char const* category, char const* comment);

    /// Adds a comment above the line of a key, adding the key when it is missing.
    virtual void addLineComment(char const* category, char const* key, char const* comment);

    /// Removes all values and lines and forgets the companion file. The attributes stay.
    virtual void clear();

    /// Sets the attributes (see `keepComments`) and the argument that goes with them.
    virtual void setAttributes(unsigned long attributes, void* argument);

    /// Makes `out` one name for (category, key): "[category]key".
    virtual void makeKey(ZLCString_6_0& out, char const* category, char const* key) const;

    /// Returns an empty cache of the same class with the same attributes; here null: this cache
    /// cannot be made anew.
    /// owns    owned by the caller; released with delete.
    virtual ZPCache_6_0* makeEmpty() const;

    /// Exchanges values, lines and companion file name with `other`, and returns 1; attributes stay
    /// where they are. Here, and between caches that hold their contents differently, does nothing
    /// and returns 0. Never fails otherwise.
    /// owns    lists got from either cache stay valid and go along.
    virtual int swapContents(ZPCache_6_0& other);

    /// Returns the number of keys that were given obfuscated values and still have a place for
    /// them.
    virtual int obfuscatedItemCount() const;

    /// Returns this cache when it is exactly a ZPCategoryBasedCache_6_0 or a ZSCFData_6_0, so that
    /// its non-virtual look-ups give what the virtual ones give; null for any class derived by
    /// others.
    ZPCategoryBasedCache_6_0 const* direct() const;

    /// Returns the path of the companion file; empty while none is known.
    ZLCString_6_0 const& companionFile() const { return *companionFile_; }

    /// Sets the path of the companion file; null is taken as "".
    void setCompanionFile(char const* path);

    unsigned long attributes() const { return attributes_; }
    void* attributeArgument() const { return attributeArgument_; }

    /// Returns a number that changes whenever a list that `get` returned went away or changed
    /// hands; whoever keeps such a list compares it and calls `get` again.
    unsigned long generation() const { return generation_; }

protected:
    void listsWentAway() { ++generation_; }
    void swapCompanionFile(ZPCache_6_0& other);
    void takeCompanionFile(ZLCString_6_0* path);  // takes `path` over

private:
    ZLCString_6_0* companionFile_;  // never null
    unsigned long attributes_;
    void* attributeArgument_;
    unsigned long generation_;
};

// A key by the place where a cache keeps it: it is found there again without its name, until the
// cache is changed in any way, see `ZPCategoryBasedCache_6_0::changes()`.
struct ZPCachedKey_6_0 {
    char const* name;
    uint32_t place;
};

// The cache of categories. It has no file format of its own: reading and writing do nothing.
//
// In a class derived by others, reading, writing and the line operations go through the virtual
// value operations, so that an override sees every value; exactly the library's own classes take a
// shorter way with the same result. The operations and what they call, in this order:
//
//     be_read, readText     for each header contains(category), set(category, null, null); for each
//                           key line add(category, key, value, 0)
//     be_read_obfuscated    add(category, key, value, 1) for each record
//     be_write, writeText   contains(category) for each header; for each key line
//                           contains(category, key), get(plainValues), and without plain values
//                           get(obfuscatedValues)
//     be_write_obfuscated   get(obfuscatedValues) for each key that was given obfuscated values
//     list                  getNames(), getNames(category), get(plainValues)
//     addStanzaLine         contains(category); set(category, null, null) if it is new
//     addLine               as addStanzaLine; then set or setObfuscated of the key
//     delLine               remove of the key or the category
//     addLineComment        contains; for a new key also as addStanzaLine, and add(category, key,
//     0)
//
// What an override throws reaches the caller; lines and values of the cache are as they were then,
// but lists that `get` returned are gone if reading was interrupted, see `generation()`.
class ZPCategoryBasedCache_6_0 : public ZPCache_6_0 {
public:
    // A text inside the cache; a zero byte follows its `length` bytes.
    struct Text {
        char const* chars;
        size_t length;
    };

    // Steps through the values of a key without making lists of them. Valid until the cache is
    // changed in any way, or `get` is called for the key: see `changes()`.
    class Values {
    public:
        // Where a walk stands.
        struct Place {
            uint32_t next;
            int given;
        };

        /// Returns the number of values; -1 when the key is missing.
        int count() const { return count_; }

        /// Stores the next value and returns true; false behind the last one.
        bool next(Text& value);

        /// Goes on to where the value at `index` is the next one and returns true; false when that
        /// place was passed already, or is none.
        /// cost    O(values skipped); O(1) when a list was made of them.
        bool skipTo(int index);

        /// Returns the place where the walk stands.
        Place place() const { return {next_, given_}; }

        /// Goes on from a place in another walk through the same values.
        void resume(Place place)
        {
            next_ = place.next;
            given_ = place.given;
        }

        /// Stores the last of all values and returns true; false when there is none.
        /// cost    O(1), wherever the walk stands.
        bool last(Text& value) const;

    private:
        friend class ZPCategoryBasedCache_6_0;
        ZArrayList_6_0 const* list_;  // the values, when a list was made of them
        void const* store_;           // else the store of the texts,
        uint32_t next_;               // the text to come (an index into `list_`, or a text's id),
        Text first_;                  // the first text
        Text last_;                   // and the last
        int count_;
        int given_;
    };

    ZPCategoryBasedCache_6_0();
    ZPCategoryBasedCache_6_0(ZPCategoryBasedCache_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZPCategoryBasedCache_6_0() override;
    ZPCache_6_0* clone() const override;
    ZArrayList_6_0* get(char const* category, char const* key, get_type_e type) override;
    ZArrayList_6_0* get(char const* category, get_type_e type) override;
    void add(char const* category, char const* key, char const* value, int obfuscated) override;
    void add(char const* category, char const* key, int obfuscated) override;
    void set(char const* category, char const* key, char const* value) override;
    void set(char const* category, char const* key) override;
    void setObfuscated(char const* category, char const* key, char const* value) override;
    void setObfuscated(char const* category, char const* key) override;
    void remove(char const* category, char const* key) override;
    void remove(char const* category) override;
    int countValues(char const* category) override;
    int countValues(char const* category, char const* key) override;
    int keyCount(char const* category) const override;
    int contains(char const* category) const override;
    int contains(char const* category, char const* key) const override;
    int isObfuscated(char const* category) const override;
    int isObfuscated(char const* category, char const* key) const override;
    int count() const override;
    void getNames(ZArrayList_6_0& out) const override;
    void getNames(char const* category, ZArrayList_6_0& out) const override;
    ZArrayList_6_0* getNames(char const* category) const override;
    void list(FILE* file) const override;
    void delLine(char const* category) override;
    void delLine(char const* category, char const* key) override;
    void addLine(char const* category, char const* key, char const* value, int obfuscated) override;
    void addLine(char const* category, char const* key, int obfuscated) override;
    void addFileComment(char const* comment) override;
    void addLineComment(char const* category, char const* comment) override;
    void addLineComment(char const* category, char const* key, char const* comment) override;
    void clear() override;
    ZPCache_6_0* makeEmpty() const override;
    int swapContents(ZPCache_6_0& other) override;
    int obfuscatedItemCount() const override;

    // Look-ups that make no lists. They answer from this cache's own values, past any override.

    /// Returns the values of (category, key) that `type` selects.
    /// cost    O(1).
    Values values(char const* category, char const* key, get_type_e type) const;

    /// Returns the values of the key at `place`, which holds; 0: of a missing key.
    /// cost    O(1), without a search.
    Values values(uint32_t place, get_type_e type) const;

    /// Returns the place of (category, key), see ZPCachedKey_6_0; 0 when the key is missing.
    /// cost    O(1).
    uint32_t placeOf(char const* category, char const* key) const;

    /// Returns the keys of `category` in the order of `getNames`, and stores how many there are;
    /// null when there are none.
    /// owns    one block with the names in it, owned by the caller; released with free().
    /// cost    O(keys), one allocation; a second one for many keys.
    ZPCachedKey_6_0* listKeys(char const* category, int& count) const;

    /// Stores the last value that `type` selects and returns true; false when the key is missing or
    /// has none.
    /// owns    borrowed until the cache is changed in any way, or `get` is called for the key.
    /// cost    O(1).
    bool lastValue(char const* category, char const* key, get_type_e type, Text& value) const;

    // The line operations by their own names.

    /// Makes a category and appends a blank line and its head line; nothing when it exists.
    void addStanzaLine(char const* category);

    /// Removes a category as `delLine(category)` does.
    void delStanzaLine(char const* category);

    /// Adds a comment as `addLineComment(category, comment)` does.
    void addStanzaComment(char const* category, char const* comment);

    /// Returns whether `text` begins with `pattern` when runs of blanks in the text are skipped:
    /// the comments "# port = 5" and "#port=" both begin with "#port=".
    static bool isCommentWeWant(char const* pattern, char const* text);

    /// Returns 1 when a line for (category, key) would be read back as the same pair, else 0: no
    /// null or empty name, no line feed, no "]" in the category, no "=" in the key, no white space
    /// at either end of it, no "#" or "[" as its first character, and at most 8190 bytes a line.
    static int validateKey(char const* category, char const* key);

    /// Returns 1 when a head line for `category` would be read back as that name, else 0.
    static int validateCategory(char const* category);

    /// Returns 1 when the line of a plain value would be read back as one line, else 0: no line
    /// feed and at most 8190 bytes with its key.
    static int validateValue(char const* key, char const* value);

    /// Appends the lines to `out` as ZPropLine_6_0, in file order.
    /// owns    `out` must own its members; it gets lines of its own.
    void getLines(ZArrayList_6_0& out) const;

    /// Appends the keys that were given obfuscated values to `out` as ZObfuscatedItem_6_0.
    /// owns    `out` must own its members; it gets items of its own.
    void getObfuscatedItems(ZArrayList_6_0& out) const;

    /// Returns a number that changes with every change of the cache, and with `get`; what changes
    /// hands with another cache is told by `generation()`.
    unsigned long changes() const { return changes_; }

    /// Returns the bytes that the cache has allocated for values and lines.
    size_t memoryUsed() const;

protected:
    struct Rep;  // ZPropertiesImpl_p.h

    Rep& rep() { return *rep_; }
    Rep const& rep() const { return *rep_; }
    void changed();  // to be called behind every change of the contents

private:
    Rep* rep_;  // never null
    unsigned long changes_;
};

// The cache of a stanza file: adds the reading and writing of the text and of the companion file.
class ZSCFData_6_0 : public ZPCategoryBasedCache_6_0 {
public:
    ZSCFData_6_0();
    ZSCFData_6_0(ZSCFData_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZSCFData_6_0() override;
    ZPCache_6_0* clone() const override;

    /// Reads a stanza file from where `file` stands to its end, adding to what the cache holds.
    /// throws  ZPropertiesInvalidDataException_6_0 (path, line text, line number) for a line of no
    ///         kind; ZPropertiesIOException_6_0 (path, "fgets()", errno) when reading fails. The
    ///         cache is then as it was.
    /// cost    O(bytes).
    /// kept    lines are cut behind 8191 bytes; the line feed behind a full piece is a blank line.
    void be_read(char const* path, FILE* file) override;

    /// Writes the stanza file where `file` stands, and flushes it.
    /// throws  ZPropertiesIOException_6_0 (path, "fwrite()", errno) when writing fails.
    void be_write(char const* path, FILE* file) override;

    /// Reads the contents of a companion file and adds each value as an obfuscated one.
    /// throws  ZPropertiesInvalidDataException_6_0 (companion file, "", 0) when the contents cannot
    ///         be unpacked or exceed 256 MiB. The cache is then as it was.
    void be_read_obfuscated(ZBuffer_6_0& buffer) override;

    /// Makes `buffer` the contents of a companion file; empty when no key holds obfuscated values.
    /// throws  ZPropertiesInvalidDataException_6_0 (companion file, "", 0) when the contents would
    ///         be refused by `be_read_obfuscated`; `buffer` is then as it was.
    void be_write_obfuscated(ZBuffer_6_0& buffer) override;

    ZPCache_6_0* makeEmpty() const override;

    /// Reads the `length` bytes at `text` as `be_read` reads a file.
    /// owns    `text` is copied.
    void readText(char const* path, char const* text, size_t length);

    /// Makes `buffer` the text that `be_write` writes; empty when there is none.
    void writeText(ZBuffer_6_0& buffer) const;

private:
    void readBlock(char const* path, void* block, size_t length);
};
