// ZStanzaFileProperties: the configuration store for stanza files.
//
// Subsystem: properties.  Stands on: ZProperties, ZPropertiesIterator, ZPropertiesImpl,
// ZPropertiesKVList, ZArrayList, ZLCString, ZUTF8String, ZException.
//
// A stanza file has stanzas, "[name]", each followed by lines "key = value", with comments and
// blank lines between them; see docs/file-formats.md.
// Ownership and threads: as ZProperties_6_0.
#pragma once

#include "ZProperties.h"
#include "ZPropertiesIterator.h"
#include "ZPropertiesKVList.h"

// What one ZStzFileItem_6_0 asks for, and where the answer goes.
enum ZStzFileItemType : int {
    zStzBoolean = 1,      // int
    zStzInteger = 2,      // unsigned int
    zStzString = 3,       // ZAbstractMutableString_6_0
    zStzStrings = 4,      // ZArrayList_6_0, of ZLCString_6_0
    zStzUTF8Strings = 5,  // ZArrayList_6_0, of ZUTF8String_6_0
    zStzStanza = 6,       // ZPropertiesKVList_6_0
};

// One request of ZStanzaFileProperties_6_0::getItems().
struct ZStzFileItem_6_0 {
    union Default {
        char const* text;     // zStzString; null for none
        unsigned int number;  // zStzInteger
        int truth;            // zStzBoolean
    };

    int type;  // a ZStzFileItemType
    char const* stanza;
    char const* key;       // not looked at for zStzStanza
    int required;          // above 0: a missing key raises
    void* result;          // borrowed: the receiving variable or object
    Default defaultValue;  // for a missing key; not looked at for zStzStrings and behind
};

class ZStanzaFileProperties_6_0 : public ZProperties_6_0 {
public:
    /// Makes a store and loads the file at `path`.
    /// range   `keepComments` 0 drops comments and blank lines when reading.
    /// throws  as load().
    ZStanzaFileProperties_6_0(char const* path, int keepComments);

    /// Makes an empty store.
    explicit ZStanzaFileProperties_6_0(int keepComments);
    ZStanzaFileProperties_6_0(ZStanzaFileProperties_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZStanzaFileProperties_6_0() override;

    /// Adds a comment above the line of `key`, which is made when it is missing. Every line of
    /// `comment` becomes a comment line.
    /// throws  ZInvalidParameterException_6_0 when a name is null, empty or none that a file can
    ///         hold, or the comment is null or has a line that is too long.
    void addEntryComment(char const* stanza, char const* key, char const* comment) override;

    /// Puts "#" before a `comment` that does not begin with it.
    void checkComment(ZLCString_6_0& comment) override;

    /// Adds a value behind those that `key` has, unless it has an equal one.
    /// throws  ZInvalidParameterException_6_0 when a text is null, empty or none that a file can
    ///         hold, or the key holds values of the other kind. Nothing is changed then.
    virtual void addValue(char const* stanza, char const* key, char const* value, int obfuscated);

    // The same for the four kinds of strings. UTF-8 text is converted to the local codeset; what
    // cannot be converted raises ZFromUTF8Exception_6_0 and changes nothing.
    virtual void addValue(char const* stanza, char const* key, ZLCString_6_0 const& value,
                          int obfuscated);
    virtual void addValue(char const* stanza, char const* key, ZUTF8String_6_0 const& value,
                          int obfuscated);
    virtual void addValue(char const* stanza, char const* key, ZLCConstString_6_0 const& value,
                          int obfuscated);
    virtual void addValue(char const* stanza, char const* key, ZUTF8ConstString_6_0 const& value,
                          int obfuscated);

    /// Adds those of `values` that `key` does not have, in list order, behind those that it has.
    /// range   the members are strings, of any of the four kinds.
    /// throws  as addValue(), but empty values are taken, except an empty UTF-8 text if `key` has a
    ///         value without a UTF-8 form: the text may be what was read for that value. Nothing is
    ///         changed then, and no observer is notified.
    /// kept    an empty value counts as one until the file is read again.
    /// cost    O(values held + values given).
    virtual void addValues(char const* stanza, char const* key, ZArrayList_6_0 const& values,
                           int obfuscated);

    /// Makes `out` a list of the keys of `stanza` with one value each.
    /// throws  ZInvalidParameterException_6_0 when the name is null or empty.
    /// kept    of several values it is the first; the getters of one value give the last.
    virtual void getStanza(char const* stanza, ZPropertiesKVList_6_0& out);

    /// Adds a stanza at the end; one that exists stays as it is.
    /// throws  ZInvalidParameterException_6_0 when the name is null, empty or none that a file can
    ///         hold.
    void addStanza(char const* stanza);

    /// Removes a stanza with its keys and lines; a missing one is ignored.
    /// throws  ZInvalidParameterException_6_0 when the name is null or empty.
    void deleteStanza(char const* stanza);

    /// Adds a comment above the head of `stanza`; nothing when it is missing. Every line of
    /// `comment` becomes a comment line.
    /// throws  ZInvalidParameterException_6_0 when the name is null or empty, or the comment is
    ///         null or has a line that is too long.
    void addStanzaComment(char const* stanza, char const* comment);

    /// Returns the names of the keys of `stanza`, as keyNames().
    ZArrayList_6_0* getKeys(char const* stanza) const;

    /// Serves `count` requests in order; one of a type that does not exist ends the batch.
    /// range   a negative `count` serves none.
    /// throws  ZInvalidParameterException_6_0 when `items` is null, `count` is 0 or a result is
    ///         null; what the getter of an item throws: the items before it are served then.
    void getItems(ZStzFileItem_6_0* items, int count) const;

    // Makes stores that keep comments.
    class ZStanzaFilePropertiesFactory : public ZAbstractPropertiesFactory_6_0 {
    public:
        ZStanzaFilePropertiesFactory();
        ~ZStanzaFilePropertiesFactory() override;

        ZProperties_6_0* makePropertiesInstance() override;
    };

    /// Returns the process-wide factory.
    /// owns    borrowed; it lives until the process ends.
    /// threads any.
    static ZStanzaFilePropertiesFactory* getFactory();

    /// Makes the process-wide factory unless it is there.
    /// threads any.
    static void init();

private:
    static ZStanzaFilePropertiesFactory* factory_;
};

// Walks the keys of a stanza.
class ZStanzaIterator_6_0 : public ZPropertiesIterator_6_0 {
public:
    /// Makes an iterator over the keys that `stanza` has now.
    /// throws  ZInvalidParameterException_6_0 when the name is null or empty.
    ZStanzaIterator_6_0(ZStanzaFileProperties_6_0& store, char const* stanza);
    ~ZStanzaIterator_6_0() override;
};

// Walks the values of a key of a stanza.
class ZStanzaValueIterator_6_0 : public ZAbstractPropertyValuesIterator_6_0 {
public:
    /// Makes an iterator over the values of (stanza, key), see ZAbstractPropertyValuesIterator_6_0.
    ZStanzaValueIterator_6_0(ZStanzaFileProperties_6_0& store, char const* stanza, char const* key,
                             ZPropertyStringType type, ZPropIter_valtype valtype);
    ~ZStanzaValueIterator_6_0() override;
};
