// ZPropertiesImpl: the cache of a configuration store: every value, and every line of the file.
//
// Subsystem: properties.  Stands on: ZObject, ZException, ZLCString, ZArrayList, ZHashKeyMap,
// ZBuffer, ZSqueeze.
//
// A cache holds categories of keys and the plain and obfuscated values of each key. It also holds
// the lines of the file in file order, so that a store rewrites the file with its comments, blank
// lines and key order. The text is in memory once, at most 4 GiB of it. `get` creates a list of the
// values of a key; from then on this list holds the values, so changing it changes the cache.
// Ownership: the cache owns everything that it returns, unless a contract specifies otherwise. If
// memory is exhausted, an operation throws ZOutOfMemoryException_6_0 and the cache is unchanged.
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

    /// Creates a line of `type`.
    /// owns    `text` is copied: the key of a key line, the category of a stanza header, a whole
    ///         comment, "" for a blank line. Null is treated as "".
    ZPropLine_6_0(unsigned type, char const* text);
    ZPropLine_6_0(ZPropLine_6_0 const& other);
    ZPropLine_6_0& operator=(ZPropLine_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZPropLine_6_0() override;

    /// Orders by type, then by the bytes of the text; returns 0 only if both are equal. Any other
    /// object is ordered by address.
    int compare(ZObject_6_0 const& other) const override;
    ZObject_6_0* clone() const override;

    unsigned type() const { return type_; }
    ZLCString_6_0 const& text() const { return text_; }

private:
    unsigned type_;
    ZLCString_6_0 text_;
};

// The names of a key that holds obfuscated values.
class ZObfuscatedItem_6_0 : public ZObject_6_0 {
public:
    /// owns    both names are copied; null is treated as "".
    ZObfuscatedItem_6_0(char const* category, char const* key);
    ZObfuscatedItem_6_0(ZObfuscatedItem_6_0 const& other);
    ZObfuscatedItem_6_0& operator=(ZObfuscatedItem_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZObfuscatedItem_6_0() override;

    /// Orders by the bytes of the category, then of the key. Any other object is ordered by
    /// address.
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

// Maps the key names of a category to value entries. A value entry is an owning list of exactly two
// owning lists of ZLCString_6_0: the plain values, then the obfuscated values.
class ZPKVList_6_0 : public ZHashKeyMap_6_0 {
public:
    /// Creates an empty map of 15 buckets that owns its keys and entries.
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
    /// owns    owned by the caller; released with delete. The list owns its elements.
    virtual ZArrayList_6_0* getKeys() const;

    /// Returns an entry without values: two empty lists.
    /// owns    owned by the caller; released with delete.
    static ZArrayList_6_0* makeEntry();
};

// The interface through which a store uses its cache. The value operations are empty here: getters
// return null or 0, changes do nothing.
class ZPCache_6_0 {
public:
    /// Selects the values of a key.
    enum get_type_e {
        anyValues = 0,  // the plain values; the obfuscated values if no plain value exists
        plainValues = 1,
        obfuscatedValues = 2
    };

    enum : unsigned long {
        /// Attribute: keep comment lines and blank lines when reading.
        keepComments = 1,

        /// Attribute: keep the bytes of the file as read, comments included, and write by
        /// difference: a line whose value stays is copied byte for byte. docs/file-formats.md has
        /// the rules. The copy takes as much memory as the file. Set the attribute before reading:
        /// if nothing was read with it, the first write has the usual form.
        keepLines = 2
    };

    /// The empty string.
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
    /// ZLCString_6_0, in the order in which they were added. Null if the key is missing.
    /// owns    borrowed until the key is removed; it is the cache's own list, so changing it
    ///         changes the key. `generation()` shows whether lists were deleted.
    virtual ZArrayList_6_0* get(char const* category, char const* key, get_type_e type);

    /// Returns copies of the values of a whole category that `type` selects for each key: key by
    /// key in map order, a key's values in their order. Null if the category is missing.
    /// owns    borrowed until the category is removed; the next call for it refills the list.
    virtual ZArrayList_6_0* get(char const* category, get_type_e type);

    /// Appends a value to the key; creates category and key if they are missing.
    /// range   null or empty `value` adds only the key; null `key` only the category; null
    ///         `category` does nothing. The same applies to every operation below.
    virtual void add(char const* category, char const* key, char const* value, int obfuscated);

    /// Adds a key without a value if it is missing.
    virtual void add(char const* category, char const* key, int obfuscated);

    /// Replaces the values of the key by one plain value; an empty value leaves the key without
    /// values.
    virtual void set(char const* category, char const* key, char const* value);

    /// Leaves the key without values.
    virtual void set(char const* category, char const* key);

    /// Replaces the values of the key by one obfuscated value. A key that already held obfuscated
    /// values keeps its position among the keys that do.
    virtual void setObfuscated(char const* category, char const* key, char const* value);

    /// Leaves the key without values.
    virtual void setObfuscated(char const* category, char const* key);

    /// Removes a key with its values. Its line stays, and is written again if the key is added
    /// again.
    virtual void remove(char const* category, char const* key);

    /// Removes a category with its keys. Its lines stay, and are written again if it is added
    /// again.
    virtual void remove(char const* category);

    /// Returns the number of values that `get(category, anyValues)` lists; 0 if the category is
    /// missing.
    virtual int countValues(char const* category);

    /// Returns the number of values that `get(category, key, anyValues)` lists; 0 if the key is
    /// missing.
    virtual int countValues(char const* category, char const* key);

    /// Returns the number of keys of a category; 0 if it is missing.
    virtual int keyCount(char const* category) const;

    /// Returns 1 if the category exists, else 0.
    virtual int contains(char const* category) const;

    /// Returns 1 if the key exists in the category, else 0.
    virtual int contains(char const* category, char const* key) const;

    /// Returns 1 if a key of the category holds obfuscated values, else 0.
    virtual int isObfuscated(char const* category) const;

    /// Returns 1 if the key holds obfuscated values, else 0.
    virtual int isObfuscated(char const* category, char const* key) const;

    /// Returns the number of categories.
    virtual int count() const;

    /// Appends the category names to `out`, in map order, as ZLCString_6_0.
    /// owns    an owning `out` receives copies; otherwise the names are borrowed until the category
    ///         is removed.
    virtual void getNames(ZArrayList_6_0& out) const;

    /// Appends the names of a category's keys to `out`, in map order; nothing if it is missing.
    /// owns    an owning `out` receives copies; otherwise the names are borrowed until the key is
    ///         removed.
    virtual void getNames(char const* category, ZArrayList_6_0& out) const;

    /// Returns the names of a category's keys, in map order; null if the category is missing.
    /// owns    owned by the caller; released with delete. The list owns its elements.
    virtual ZArrayList_6_0* getNames(char const* category) const;

    /// Prints every category with its plain values, in map order: "\n[%s]\n", then "%s = %s\n" for
    /// each value, or "%s =\n" for a key without values. After a failed write ferror() of `file` is
    /// set, unless the program has made the stream wide.
    /// range   null does nothing.
    virtual void list(FILE* file) const;

    /// Reads the text of `file` from its current position to its end.
    virtual void be_read(char const* path, FILE* file);

    /// Writes the text to `file` at its current position.
    virtual void be_write(char const* path, FILE* file);

    /// Reads the contents of a companion file.
    virtual void be_read_obfuscated(ZBuffer_6_0& buffer);

    /// Stores the contents of a companion file in `buffer`; empties it if no companion is needed.
    virtual void be_write_obfuscated(ZBuffer_6_0& buffer);

    /// Removes a category with its values and its lines: header, keys, comments and blank lines.
    /// kept    comments above the next header are removed too, unless the cache keeps lines.
    virtual void delLine(char const* category);

    /// Removes a key with its values and its line.
    virtual void delLine(char const* category, char const* key);

    /// Sets the value of a key as `set` or `setObfuscated` does. Creates a missing header of the
    /// category and a missing line of the key.
    /// range   null or empty `key` adds only the category.
    /// kept    a new header has a blank line above it, also at the top of a new file.
    virtual void addLine(char const* category, char const* key, char const* value, int obfuscated);

    /// Adds a line as above, without a value.
    virtual void addLine(char const* category, char const* key, int obfuscated);

    /// Appends a comment to the comments at the start of the file. The lines of a comment with
    /// newlines stay together; each line after the first gets a missing "#". The same applies to
    /// the two operations below.
    virtual void addFileComment(char const* comment);

    /// Adds a comment above the header of a category, and a blank line above the comment unless one
    /// exists. Does nothing if the category is missing.
    virtual void addLineComment(char const* category, char const* comment);

    /// Adds a comment above the line of a key. A missing key is added.
    virtual void addLineComment(char const* category, char const* key, char const* comment);

    /// Removes all values and lines and the companion file name. The attributes stay.
    virtual void clear();

    /// Sets the attributes (see `keepComments`) and their argument.
    virtual void setAttributes(unsigned long attributes, void* argument);

    /// Stores a combined name of (category, key) in `out`: "[category]key".
    virtual void makeKey(ZLCString_6_0& out, char const* category, char const* key) const;

    /// Returns an empty cache of the same class with the same attributes; here null, which means
    /// that the class cannot create one.
    /// owns    owned by the caller; released with delete.
    virtual ZPCache_6_0* makeEmpty() const;

    /// Swaps values, lines and companion file name with `other` and returns 1; attributes are not
    /// swapped. Here, and between caches that hold their contents differently, does nothing and
    /// returns 0.
    /// owns    lists from either cache stay valid and are swapped too.
    virtual int swapContents(ZPCache_6_0& other);

    /// Returns the number of keys that getObfuscatedItems() of a category-based cache lists.
    virtual int obfuscatedItemCount() const;

    // The next five are called only for caches with direct() != nullptr: in a class that was
    // compiled with an earlier version of this header, their slots have other functions.

    /// Returns 1 if a header for `category` would be read back as that name, else 0. Here as
    /// `ZPCategoryBasedCache_6_0::validateCategory`.
    virtual int validCategory(char const* category) const;

    /// Returns 1 if a line for (category, key) would be read back as the same pair, else 0. Here as
    /// `ZPCategoryBasedCache_6_0::validateKey`.
    virtual int validKey(char const* category, char const* key) const;

    /// Returns 1 if the line of a plain value would be read back as this value, else 0. Here as
    /// `ZPCategoryBasedCache_6_0::validateValue`.
    /// range   null `value`: whether a line of the key without a value is possible.
    virtual int validValue(char const* key, char const* value) const;

    /// Reads the `length` bytes at `text` as `be_read` reads a file. Here does nothing.
    /// owns    `text` is copied; it may be null if `length` is 0.
    virtual void readText(char const* path, char const* text, size_t length);

    /// Stores the text that `be_write` writes in `buffer`. Here empties it.
    virtual void writeText(ZBuffer_6_0& buffer) const;

    /// Returns this cache if it is exactly a ZPCategoryBasedCache_6_0, a ZSCFData_6_0 or a
    /// ZDialectData_6_0, so that
    /// its non-virtual lookups return the same results as the virtual ones; null for any derived
    /// class of a caller.
    ZPCategoryBasedCache_6_0 const* direct() const;

    /// Returns the path of the companion file; empty if there is none.
    ZLCString_6_0 const& companionFile() const { return *companionFile_; }

    /// Sets the path of the companion file; null is treated as "".
    void setCompanionFile(char const* path);

    unsigned long attributes() const { return attributes_; }
    void* attributeArgument() const { return attributeArgument_; }

    /// Returns a number that changes when a list that `get` returned is deleted or swapped. A
    /// caller that keeps such a list compares the number and calls `get` again if it has changed.
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

// A key and its index in a cache. The index finds the key without its name, until the cache changes
// in any way: see `ZPCategoryBasedCache_6_0::changes()`.
struct ZPCachedKey_6_0 {
    char const* name;
    uint32_t place;
};

// A cache of categories, without a file format: reading and writing do nothing.
//
// In a class that a caller derives, reading, writing and the line operations call the virtual value
// operations, so that an override sees every value. The library's own classes take a shorter path
// with the same result. Each operation calls, in this order:
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
//     addLineComment        contains; for a new key also as addStanzaLine, and
//                           add(category, key, 0)
//
// An exception of an override reaches the caller. Lines and values of the cache are unchanged then,
// but lists that `get` returned are deleted if a read was interrupted: see `generation()`.
class ZPCategoryBasedCache_6_0 : public ZPCache_6_0 {
public:
    // A string in the cache; a zero byte follows its `length` bytes.
    struct Text {
        char const* chars;
        size_t length;
    };

    // Iterates over the values of a key without creating lists. Valid until the cache changes in
    // any way, or `get` is called for the key: see `changes()`.
    class Values {
    public:
        // A position of an iteration.
        struct Place {
            uint32_t next;
            int given;
        };

        /// Returns the number of values; -1 if the key is missing.
        int count() const { return count_; }

        /// Stores the next value and returns true. Returns false after the last value.
        bool next(Text& value);

        /// Skips ahead so that the value at `index` is the next one, and returns true. Returns
        /// false if that value was already passed or does not exist.
        /// cost    O(values skipped); O(1) if a list holds the values.
        bool skipTo(int index);

        /// Returns the current position.
        Place place() const { return {next_, given_}; }

        /// Continues from a position of another iteration over the same values.
        void resume(Place place)
        {
            next_ = place.next;
            given_ = place.given;
        }

        /// Stores the last of all values and returns true. Returns false if there are no values.
        /// cost    O(1), at any position.
        bool last(Text& value) const;

    private:
        friend class ZPCategoryBasedCache_6_0;
        ZArrayList_6_0 const* list_;  // the values, if a list holds them
        void const* store_;           // else the contents that hold them
        uint32_t next_;               // the next value: an index of `list_`, or an id
        Text first_;
        Text last_;
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

    // Lookups that create no lists. They bypass overrides and return the cache's own values.

    /// Returns the values of (category, key) that `type` selects.
    /// cost    O(1).
    Values values(char const* category, char const* key, get_type_e type) const;

    /// Returns the values of the key at `place`, a valid result of placeOf(); 0 is a missing key.
    /// cost    O(1), without a search.
    Values values(uint32_t place, get_type_e type) const;

    /// Returns the index of (category, key), see ZPCachedKey_6_0; 0 if the key is missing.
    /// cost    O(1).
    uint32_t placeOf(char const* category, char const* key) const;

    /// Returns the keys of `category` in the order of `getNames`, and stores their number; null if
    /// there are no keys.
    /// owns    a single block, which includes the names, owned by the caller; released with free().
    /// cost    O(keys), one allocation; a second one for many keys.
    ZPCachedKey_6_0* listKeys(char const* category, int& count) const;

    /// Stores the last value that `type` selects and returns true. Returns false if the key is
    /// missing or has no such value.
    /// owns    borrowed until the cache changes in any way, or `get` is called for the key.
    /// cost    O(1).
    bool lastValue(char const* category, char const* key, get_type_e type, Text& value) const;

    // Operations on the contents of the library's own caches. They bypass overrides.

    /// Renames a key in place, with its line, values and comments. The caller has validated the
    /// names: the key exists, and no key has the new name. A name that `getNames` lent is deleted.
    void renameKey(char const* category, char const* key, char const* name);

    /// Renames a category in place; as renameKey().
    void renameCategory(char const* category, char const* name);

    /// Stores the comment of a key in `out`, of the category if `key` is null, or of the file if
    /// both names are null: its lines with their "#", joined by newlines. Returns 0 if there
    /// is no comment.
    int getComment(char const* category, char const* key, ZLCString_6_0& out) const;

    /// Replaces that comment; null removes it.
    void setComment(char const* category, char const* key, char const* comment);

    /// Appends the category names to `out`, in the order of their headers, as ZLCString_6_0.
    /// owns    `out` must own its elements; it takes over new strings.
    void getNamesInFileOrder(ZArrayList_6_0& out) const;

    // The line operations of stanzas.

    /// Creates a category and appends a blank line and its header. Does nothing if it exists.
    void addStanzaLine(char const* category);

    /// Removes a category as `delLine(category)` does.
    void delStanzaLine(char const* category);

    /// Adds a comment as `addLineComment(category, comment)` does.
    void addStanzaComment(char const* category, char const* comment);

    /// Returns whether `text`, without its spaces, starts with `pattern`: the comments "# port = 5"
    /// and "#port=" both start with "#port=".
    static bool isCommentWeWant(char const* pattern, char const* text);

    /// Returns 1 if a line for (category, key) would be read back as the same pair, else 0. Names
    /// must not be null or empty or contain a newline; the category must not contain "]". The key
    /// must not contain "=", start or end with whitespace, or start with "#" or "[". A line has at
    /// most 8190 bytes.
    static int validateKey(char const* category, char const* key);

    /// Returns 1 if a header for `category` would be read back as that name, else 0.
    static int validateCategory(char const* category);

    /// Returns 1 if the line of a plain value would be read back as a single line, else 0: it must
    /// not contain a newline, and has at most 8190 bytes with its key.
    static int validateValue(char const* key, char const* value);

    /// Appends the lines to `out` as ZPropLine_6_0, in file order.
    /// owns    `out` must own its elements; it takes over new lines.
    void getLines(ZArrayList_6_0& out) const;

    /// Appends the keys that were given obfuscated values, and have not been removed or given plain
    /// values since, to `out` as ZObfuscatedItem_6_0.
    /// owns    `out` must own its elements; it takes over new items.
    void getObfuscatedItems(ZArrayList_6_0& out) const;

    /// Returns a number that changes with every change of the cache and with `get`. For swaps with
    /// another cache see `generation()`.
    unsigned long changes() const { return changes_; }

    /// Returns the bytes that the cache has allocated for values, lines and the text as read.
    size_t memoryUsed() const;

    struct KeptLines;  // of the library: ZPropertiesImpl_p.h
    struct Visit;

protected:
    struct Rep;  // ZPropertiesImpl_p.h

    Rep& rep() { return *rep_; }
    Rep const& rep() const { return *rep_; }
    void changed();  // call this after every change of the contents

private:
    Rep* rep_;  // never null
    unsigned long changes_;
};

// The cache of a stanza file: reads and writes the text and the companion file.
class ZSCFData_6_0 : public ZPCategoryBasedCache_6_0 {
public:
    ZSCFData_6_0();
    ZSCFData_6_0(ZSCFData_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZSCFData_6_0() override;
    ZPCache_6_0* clone() const override;

    /// Reads a stanza file from the current position of `file`, and adds to the contents.
    /// throws  ZPropertiesInvalidDataException_6_0 (path, line text, line number) for an invalid
    ///         line; ZPropertiesIOException_6_0 (path, "fgets()", errno) if reading fails. The
    ///         cache is unchanged then.
    /// cost    O(bytes).
    /// kept    lines are split after 8191 bytes; a newline right after 8191 bytes is a blank line.
    void be_read(char const* path, FILE* file) override;

    /// Writes the stanza file at the current position of `file`, and flushes it.
    /// throws  ZPropertiesIOException_6_0 (path, "fwrite()", errno) if writing fails;
    ///         ZPropertiesInvalidValueException_6_0 with the attribute `keepLines`, if a name,
    ///         value or comment would not read back. Nothing is written then.
    void be_write(char const* path, FILE* file) override;

    /// Reads the contents of a companion file and adds each value as an obfuscated value.
    /// throws  ZPropertiesInvalidDataException_6_0 (companion file, "", 0) if the contents
    ///         cannot be decompressed, exceed 256 MiB, or are not records. The cache is unchanged
    ///         then.
    void be_read_obfuscated(ZBuffer_6_0& buffer) override;

    /// Stores the contents of a companion file in `buffer`; empties it if no key holds obfuscated
    /// values.
    /// throws  ZPropertiesInvalidDataException_6_0 (companion file, "", 0) if `be_read_obfuscated`
    ///         would refuse the contents; `buffer` is unchanged then.
    void be_write_obfuscated(ZBuffer_6_0& buffer) override;

    ZPCache_6_0* makeEmpty() const override;

    /// Reads the `length` bytes at `text` as `be_read` reads a file.
    /// owns    `text` is copied.
    void readText(char const* path, char const* text, size_t length) override;

    /// Stores the text that `be_write` writes in `buffer`, which is empty if there are no lines.
    /// throws  ZPropertiesInvalidValueException_6_0 as `be_write`, with an empty file name.
    void writeText(ZBuffer_6_0& buffer) const override;

private:
    void readBlock(char const* path, void* block, size_t length);
};
