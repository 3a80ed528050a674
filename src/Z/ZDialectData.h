// ZDialectData: the cache of a configuration file in any dialect but "stanza".
//
// Subsystem: properties.  Stands on: ZStanzaDialect, ZPropertiesImpl, ZBuffer, ZException.
//
// The text is always kept as read and written by difference: only the lines of changed values
// change. Values are decoded, and spelled for the line that they go to. Names are found as the
// dialect compares them and returned as first written. A key can have empty values; a null value
// means no value. There are no obfuscated values and no companion file, whatever the file contains.
// Ownership, memory and threads: as ZPropertiesImpl.
// File formats: docs/file-formats.md.
#pragma once

#include <stddef.h>

#include "ZPropertiesImpl.h"
#include "ZStanzaDialect.h"

class ZDialectData_6_0 final : public ZSCFData_6_0 {
public:
    /// Creates an empty cache with the attributes `keepComments` and `keepLines`.
    /// throws  ZInvalidParameterException_6_0 for the dialect "stanza", which has a cache of its
    ///         own: ZSCFData_6_0.
    explicit ZDialectData_6_0(ZStanzaDialect_6_0 const& dialect);
    ZDialectData_6_0(ZDialectData_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZDialectData_6_0() override;
    ZPCache_6_0* clone() const override;
    void be_read(char const* path, FILE* file) override;     // as readText()
    void be_read_obfuscated(ZBuffer_6_0& buffer) override;   // does nothing
    void be_write_obfuscated(ZBuffer_6_0& buffer) override;  // empties `buffer`
    void clear() override;

    /// Sets the attributes; `keepComments` and `keepLines` are always set.
    void setAttributes(unsigned long attributes, void* argument) override;
    ZPCache_6_0* makeEmpty() const override;

    /// Swaps the contents with another ZDialectData_6_0 that has the same switches, and returns 1.
    /// Returns 0 for any other cache.
    int swapContents(ZPCache_6_0& other) override;

    /// Removes a category. If a repeated header starts another stanza, the number of each following
    /// category of that name decreases by one.
    /// cost    O(keys of these categories).
    void delLine(char const* category) override;
    using ZSCFData_6_0::delLine;

    /// Returns 1 if a header can have this name, or has it, or if the name is "." and keys can be
    /// above the first header. A number, as in NAME]2, must be one of the existing or the next.
    int validCategory(char const* category) const override;

    /// Returns 1 as in the base class and for an existing key, but 0 if the category is ambiguous.
    int validKey(char const* category, char const* key) const override;

    /// Returns 1 if one of the dialect's spellings is read back as this value.
    /// range   null `value`: whether a key can be without a separator.
    int validValue(char const* key, char const* value) const override;

    /// Reads the contents of a file into an empty cache.
    /// throws  ZPropertiesInvalidDataException_6_0 (path, line text, line number, column) for the
    ///         first invalid line; ZUnsupportedException_6_0 if the cache is not empty: two
    ///         files of a dialect cannot be joined. The cache is unchanged then.
    /// cost    O(bytes).
    void readText(char const* path, char const* text, size_t length) override;

    /// Returns 1 if several stanzas have this name and it has no number: it is the first of them,
    /// which NAME]1 is, too.
    int isAmbiguous(char const* category) const;

    /// Returns 1 if a key has no value, and the dialect reads that as true.
    int isOption(char const* category, char const* key) const;

    /// Returns 1 if `name` is another spelling of the name of a key or, if `key` is null, of a
    /// category: they are compared as one name.
    int isRespelled(char const* category, char const* key, char const* name) const;

    /// Returns 1 if a category can get a name that validCategory() accepts: no other category has
    /// it or, if each header starts a stanza of its own, its number is the position of the category
    /// among the headers of that name.
    int validNewName(char const* category, char const* name) const;

    /// Renames a category in place, as renameCategory(). The following categories of the old name
    /// get numbers smaller by one, and the following categories of the new name get numbers greater
    /// by one.
    /// range   `name` is a validNewName().
    /// cost    O(keys of these categories).
    void renameStanza(char const* category, char const* name);

    ZStanzaDialect_6_0 const& dialect() const { return dialect_; }

private:
    class Renumbering;

    ZStanzaDialect_6_0 const dialect_;
};
