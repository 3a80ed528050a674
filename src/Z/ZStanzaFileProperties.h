// ZStanzaFileProperties: the configuration store for stanza files.
//
// Subsystem: properties.  Stands on: ZProperties, ZPropertiesIterator, ZPropertiesImpl,
// ZDialectData, ZStanzaDialect, ZPropertiesKVList, ZStanzaProblem, ZBuffer, ZArrayList, ZLCString,
// ZUTF8String, ZException.
//
// A stanza file consists of stanzas: a header line "[name]" and lines "key = value", with comments
// and blank lines between them. A store with another dialect has the files of other programs, such
// as unit files or desktop entries. See docs/file-formats.md.
// Ownership and threads: as ZProperties_6_0.
#pragma once

#include <stddef.h>

#include "ZProperties.h"
#include "ZPropertiesIterator.h"
#include "ZPropertiesKVList.h"
#include "ZStanzaDialect.h"

class ZBuffer_6_0;

/// The request of a ZStzFileItem_6_0; the comments are the types of its result.
enum ZStzFileItemType : int {
    zStzBoolean = 1,      // int
    zStzInteger = 2,      // unsigned int
    zStzString = 3,       // ZAbstractMutableString_6_0
    zStzStrings = 4,      // ZArrayList_6_0, of ZLCString_6_0
    zStzUTF8Strings = 5,  // ZArrayList_6_0, of ZUTF8String_6_0
    zStzStanza = 6,       // ZPropertiesKVList_6_0
};

/// One request of ZStanzaFileProperties_6_0::getItems().
struct ZStzFileItem_6_0 {
    /// The result for a missing key, by the type of the request.
    union Default {
        char const* text;     // zStzString; null for none
        unsigned int number;  // zStzInteger
        int truth;            // zStzBoolean
    };

    int type;  // a ZStzFileItemType
    char const* stanza;
    char const* key;       // ignored for zStzStanza
    int required;          // above 0: a missing key is an error
    void* result;          // borrowed: the receiving variable or object
    Default defaultValue;  // for a missing key; ignored for zStzStrings and later types
};

/// The configuration store for stanza files. A stanza is a category of ZProperties_6_0. Storing a
/// file that was loaded keeps its comments, blank lines and order. To store it so that only the
/// lines of changed values change, call setAttributes(ZPCache_6_0::keepLines, nullptr) before
/// load().
class ZStanzaFileProperties_6_0 : public ZProperties_6_0 {
public:
    /// Creates a store and loads the file at `path`.
    /// range   `keepComments` 0: load() drops comments and blank lines.
    /// throws  as load().
    ZStanzaFileProperties_6_0(char const* path, int keepComments);

    /// Creates an empty store.
    /// range   `keepComments` 0: load() drops comments and blank lines.
    explicit ZStanzaFileProperties_6_0(int keepComments);

    /// Creates a store for files of a dialect and loads the file at `path`. Except for "stanza":
    ///
    ///  - Only the lines of changed values change, and a store without a change writes nothing.
    ///  - A null value means no value; an empty one is a value. Names are found as the dialect
    ///    compares them. getValue() and the like return the value that counts: the last, the
    ///    first, or the last after a reset. The setters refuse values that no line can have. If a
    ///    value, or none, does not fit into the line of its key or between its neighbours, only
    ///    store() refuses, with ZPropertiesInvalidValueException_6_0; file and store are unchanged
    ///    then. For example, a key of "git" cannot lose its value before a comment in the line.
    ///  - Where each header starts a stanza of its own, NAME]2 is the second of a name. NAME alone
    ///    is the first for reading; changes throw ZInvalidParameterException_6_0 if there are
    ///    several, unless they name it NAME]1. A removed stanza leaves its number to the next.
    ///  - There are no obfuscated values, and no entry names a companion file.
    ///  - load() into a store with contents throws ZUnsupportedException_6_0; reload() does not.
    /// range   `keepComments` is ignored except for "stanza".
    /// throws  as load().
    ZStanzaFileProperties_6_0(char const* path, int keepComments,
                              ZStanzaDialect_6_0 const& dialect);

    /// Creates an empty store for files of a dialect.
    /// range   `keepComments` is ignored except for "stanza".
    ZStanzaFileProperties_6_0(int keepComments, ZStanzaDialect_6_0 const& dialect);
    ZStanzaFileProperties_6_0(ZStanzaFileProperties_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZStanzaFileProperties_6_0() override;

    /// Adds a comment above the line of `key`, which is created if it does not exist. Every line of
    /// `comment` becomes a comment line.
    /// throws  ZInvalidParameterException_6_0 if a name is null, empty or invalid in a file, or if
    ///         the comment is null or has a line that is too long.
    void addEntryComment(char const* stanza, char const* key, char const* comment) override;

    /// Prepends "#" unless `comment` starts with it.
    void checkComment(ZLCString_6_0& comment) override;

    /// Appends a value to the values of `key`, unless the key already has it.
    /// throws  ZInvalidParameterException_6_0 if a string is null, empty or invalid in a file, or
    ///         if the key has values of the other kind. Nothing is changed then.
    virtual void addValue(char const* stanza, char const* key, char const* value, int obfuscated);

    // The same for the four kinds of strings. UTF-8 is converted to the local codeset. A string
    // that cannot be converted throws ZFromUTF8Exception_6_0 and changes nothing.
    virtual void addValue(char const* stanza, char const* key, ZLCString_6_0 const& value,
                          int obfuscated);
    virtual void addValue(char const* stanza, char const* key, ZUTF8String_6_0 const& value,
                          int obfuscated);
    virtual void addValue(char const* stanza, char const* key, ZLCConstString_6_0 const& value,
                          int obfuscated);
    virtual void addValue(char const* stanza, char const* key, ZUTF8ConstString_6_0 const& value,
                          int obfuscated);

    /// Appends `values`, in list order, to the values of `key`, except values that the key already
    /// has.
    /// range   the elements are strings of any of the four kinds.
    /// throws  as addValue(), but empty values are valid. An empty UTF-8 string is still invalid if
    ///         `key` has a value without a UTF-8 form: the caller may have read the empty string in
    ///         place of that value. Nothing is changed then, and no observer is notified.
    /// cost    O(existing values + new values).
    /// kept    an empty value remains in the list until the file is read again.
    virtual void addValues(char const* stanza, char const* key, ZArrayList_6_0 const& values,
                           int obfuscated);

    /// Replaces the items of `out` by the keys of `stanza` with one value each.
    /// throws  ZInvalidParameterException_6_0 if the name is null or empty.
    /// kept    the item of a key with several values has the first value, although getValue()
    ///         returns the last.
    virtual void getStanza(char const* stanza, ZPropertiesKVList_6_0& out);

    /// Appends a stanza, unless it exists.
    /// throws  ZInvalidParameterException_6_0 if the name is null, empty or invalid in a file.
    void addStanza(char const* stanza);

    /// Removes a stanza with its keys and lines, if it exists.
    /// throws  ZInvalidParameterException_6_0 if the name is null or empty.
    void deleteStanza(char const* stanza);

    /// Adds a comment above the header of `stanza`, if the stanza exists. Every line of `comment`
    /// becomes a comment line.
    /// throws  ZInvalidParameterException_6_0 if the name is null or empty, or if the comment is
    ///         null or has a line that is too long.
    void addStanzaComment(char const* stanza, char const* comment);

    /// Returns the names of the keys of `stanza`, as keyNames().
    ZArrayList_6_0* getKeys(char const* stanza) const;

    /// Processes `count` requests in order. A request with an invalid type ends the batch.
    /// range   a negative `count` processes no request.
    /// throws  ZInvalidParameterException_6_0 if `items` is null, `count` is 0 or a result is null;
    ///         the exceptions of the function that reads an item. The results of earlier items are
    ///         valid then.
    void getItems(ZStzFileItem_6_0* items, int count) const;

    /// Appends every problem of the file at `path` to `list`, as ZStanzaProblem_6_0 in file order:
    /// an error for every line that load() refuses, and a note for every line that a store with
    /// comments would change or drop. Without an error, load() accepts the contents of the file.
    /// range   anything but a regular file fails with "fopen(r)". `list` must own its elements. At
    ///         most 100,000 problems are listed; one more record has the number of the others, and
    ///         is an error if one of them is.
    /// owns    `list` takes over the new records.
    /// throws  ZInvalidParameterException_6_0 if the path is null or empty, or if `list` does not
    ///         own its elements; ZPropertiesIOException_6_0 as load(), except that a companion
    ///         that cannot be read is a problem; ZOutOfMemoryException_6_0. `list` is unchanged
    ///         then.
    /// threads any; waits and fails as load().
    /// cost    O(bytes). Memory for two copies of the file and for each different key.
    static void findProblems(char const* path, ZArrayList_6_0& list);

    /// The same for a file of any dialect. Only stanza files have complaints about changes of a
    /// store; for the others, a note is about a line that is kept and never read, such as a line
    /// that programs of the format ignore, or a line of a key that another line outvotes.
    /// cost    O(bytes). Memory for a copy of the file, at most 24 bytes for each line and 30 bytes
    ///         for each different key, and for the listed problems.
    static void findProblems(char const* path, ZStanzaDialect_6_0 const& dialect,
                             ZArrayList_6_0& list);

    /// Replaces the values of `key` by the `count` strings at `values`. Without strings the key has
    /// no values.
    /// range   several values must not be empty; an only value may be, and leaves the key without
    ///         values.
    /// throws  ZInvalidParameterException_6_0 as setValue(), for each of them. Nothing is changed
    ///         then. In a dialect, each may be any value that the key has: its line stays.
    void setValues(char const* stanza, char const* key, char const* const* values, unsigned count);

    /// Removes the first value of `key` that equals `value`. The key is removed with its only
    /// value, unless the file also has a line of the key without a value and the attribute
    /// keepLines is set: that line stays.
    /// throws  ZInvalidParameterException_6_0 if a string is null, or a name is empty;
    ///         ZPropertiesMissingPropertyException_6_0 if the key does not have the value.
    void removeValue(char const* stanza, char const* key, char const* value);

    /// Renames a key in place: values, comments and position stay. Observers receive a notice for
    /// each of the two names.
    /// throws  ZPropertiesMissingPropertyException_6_0 if the key is missing;
    ///         ZInvalidParameterException_6_0 if a name is null, empty or invalid in a file, if a
    ///         key has the new name, or if a line would be too long. Nothing is changed then.
    void renameKey(char const* stanza, char const* key, char const* newKey);

    /// Renames a stanza in place.
    /// throws  as renameKey().
    /// cost    O(keys of the stanza).
    void renameStanza(char const* stanza, char const* newStanza);

    /// Stores the comment above `key` in `out`, above the header of `stanza` if `key` is null, or
    /// at the start of the file if both names are null: its lines up to the next blank line, with
    /// their
    /// "#", joined by newlines. Comments right above the first header do not belong to the file.
    /// Returns 1; 0 if there is no comment, and `out` is empty then.
    /// throws  ZInvalidParameterException_6_0 if a name is empty, or only the stanza is null;
    ///         ZPropertiesMissingPropertyException_6_0 if the stanza or the key is missing.
    int getComment(char const* stanza, char const* key, ZLCString_6_0& out) const;

    /// Replaces that comment; null removes it, and leaves a blank line above it.
    /// range   "#" is prepended to each line of `comment` that does not start with it.
    /// throws  as getComment(); ZInvalidParameterException_6_0 if a line is too long, or if the key
    ///         has obfuscated values, and so no line. Nothing is changed then.
    /// cost    O(lines of the stanza).
    void setComment(char const* stanza, char const* key, char const* comment);

    /// Returns the number of the line that has the value at `index` of `key` in the text that
    /// storeText() stores, counted from 1 by newlines; 0 if no line has it: it is obfuscated, or
    /// empty where no line can hold an empty value. A key without values has its line at `index` 0.
    /// throws  ZInvalidParameterException_6_0 if a name is null or empty;
    ///         ZPropertiesMissingPropertyException_6_0 if the key or the value is missing.
    /// cost    O(file) for the first call after a change of the contents, else O(values of a key);
    ///         O(file) for each call while a caller of the cache may hold a list of values.
    unsigned long lineOf(char const* stanza, char const* key, unsigned index) const;

    /// Stores the spelling of the value at `index` of `key` in `out`: its bytes in the text that
    /// storeText() stores.
    /// throws  as lineOf(); ZPropertiesMissingPropertyException_6_0 if no line has the value.
    /// cost    as lineOf().
    void getSpelling(char const* stanza, char const* key, unsigned index, ZLCString_6_0& out) const;

    /// Replaces that spelling, and so the value. If another program has changed the file since,
    /// store() keeps both changes; the value gets another spelling if this spelling would not read
    /// back in that file.
    /// throws  as getSpelling(); ZInvalidParameterException_6_0 if `spelling` is null, or does not
    ///         read back as one value of that line. Nothing is changed then.
    /// cost    O(file).
    void setSpelling(char const* stanza, char const* key, unsigned index, char const* spelling);

    /// Returns the dialect of the store.
    ZStanzaDialect_6_0 dialect() const;

    /// Returns 1 if several stanzas have the name `stanza`, because each header of the dialect
    /// starts a stanza of its own; else 0. Such a name without a number reads the first of them and
    /// is refused for changes, which need NAME]1, NAME]2 and so on.
    /// range   null or a missing stanza gives 0; so does a name with a number.
    int isAmbiguous(char const* stanza) const;

    /// Replaces the elements of `out` by the values of `key` that count, as ZLCString_6_0: all,
    /// those after the last reset, the last or the first, as the dialect specifies.
    /// range   `out` must own its elements. It is empty if the key is missing.
    /// throws  ZInvalidParameterException_6_0 if a name is null or empty, or for `out`.
    void countingValues(char const* stanza, char const* key, ZArrayList_6_0& out) const;

    /// Returns the names of the stanzas in file order.
    /// owns    owned by the caller; released with delete. The list owns its ZLCString_6_0 elements.
    ZArrayList_6_0* stanzaNames() const;

    /// Replaces the contents by the `length` bytes at `text`, which are read as a file is,
    /// and sets the modified flag.
    /// owns    `text` is copied; it may be null if `length` is 0.
    /// throws  ZPropertiesInvalidDataException_6_0 with an empty file name if a line is invalid;
    ///         ZUnsupportedException_6_0 if the text names a companion file: the text does not have
    ///         its values, and a later store() would remove them; ZPropertiesIOException_6_0 with
    ///         "read()" and EFBIG above maxFileSize(). The store is unchanged then.
    void loadText(char const* text, size_t length);

    /// Stores the text that store() writes in `buffer`, which is empty if there are no lines. The
    /// obfuscated values are not in the text.
    void storeText(ZBuffer_6_0& buffer) const;

    /// Creates stores that keep comments.
    class ZStanzaFilePropertiesFactory : public ZAbstractPropertiesFactory_6_0 {
    public:
        ZStanzaFilePropertiesFactory();
        ~ZStanzaFilePropertiesFactory() override;

        ZProperties_6_0* makePropertiesInstance() override;
    };

    /// Returns the process-wide factory.
    /// owns    borrowed; the factory exists until the process ends.
    /// threads any.
    static ZStanzaFilePropertiesFactory* getFactory();

    /// Creates the process-wide factory unless it exists.
    /// threads any.
    static void init();

private:
    static ZStanzaFilePropertiesFactory* factory_;
};

/// Creates stores for files of a dialect, for getPropertiesFor().
class ZStanzaDialectFactory_6_0 : public ZAbstractPropertiesFactory_6_0 {
public:
    /// owns    `dialect` is copied.
    explicit ZStanzaDialectFactory_6_0(ZStanzaDialect_6_0 const& dialect);
    ~ZStanzaDialectFactory_6_0() override;

    ZProperties_6_0* makePropertiesInstance() override;

private:
    ZStanzaDialect_6_0 const dialect_;
};

/// Iterates over the keys that a stanza had when the iterator was created.
class ZStanzaIterator_6_0 : public ZPropertiesIterator_6_0 {
public:
    /// Creates an iterator over the current keys of `stanza`.
    /// throws  ZInvalidParameterException_6_0 if the name is null or empty.
    ZStanzaIterator_6_0(ZStanzaFileProperties_6_0& store, char const* stanza);
    ~ZStanzaIterator_6_0() override;
};

/// Iterates over the values of a key of a stanza, and changes them.
class ZStanzaValueIterator_6_0 : public ZAbstractPropertyValuesIterator_6_0 {
public:
    /// Creates an iterator over the values of (stanza, key); see the constructor of
    /// ZAbstractPropertyValuesIterator_6_0.
    ZStanzaValueIterator_6_0(ZStanzaFileProperties_6_0& store, char const* stanza, char const* key,
                             ZPropertyStringType type, ZPropIter_valtype valtype);
    ~ZStanzaValueIterator_6_0() override;
};
