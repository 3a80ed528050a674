// stanza_file: loads, checks and changes stanza files for the verbs of zstz.
#pragma once

#include <Z/ZPropertiesImpl.h>
#include <Z/ZStanzaFileProperties.h>

#include <string>
#include <vector>

#include "edit_lock.h"

struct Stanza {
    std::string name;
    std::vector<std::string> keys;
};

// A loaded configuration file: the store, and its cache, which keeps the lines in file order.
class LoadedFile {
public:
    /// throws  as ZProperties_6_0::load().
    explicit LoadedFile(std::string const& path);

    /// Returns the stanzas with their keys, in file order. Stanzas and keys that are only in the
    /// companion file follow.
    std::vector<Stanza> outline() const;

    /// Returns the values of a key, in order.
    std::vector<std::string> values(std::string const& stanza, std::string const& key) const;

    /// Returns the number of values of a key.
    size_t valueCount(std::string const& stanza, std::string const& key) const;

    /// Returns whether the values of a key are obfuscated.
    bool isObfuscated(std::string const& stanza, std::string const& key) const;

    /// Returns whether a stanza has comments: between its lines, or directly above its header.
    bool hasComments(std::string const& stanza) const;

    ZProperties_6_0& store() { return store_; }

private:
    ZSCFData_6_0* cache_;  // owned by the store
    ZProperties_6_0 store_;
};

// A file that is loaded to be changed and stored. Lines that do not change are stored byte for
// byte, unless the whole file is normalised. Holds the edit lock.
class EditedFile {
public:
    enum MissingFile { failIfMissing, createIfMissing };

    struct Edit {
        std::string stanza;  // that changes
        std::string key;     // empty: any
        bool removesLines;   // the edit removes or replaces all lines of the key or stanza
        bool isNormalised;   // every line is stored in the form of the library
        MissingFile missing = failIfMissing;
    };

    /// throws  Failure if the changed stanza has a line that is not read completely or, in a
    ///         normalised file, if storing would lose any line that the edit does not remove; else
    ///         as ZProperties_6_0::load().
    EditedFile(std::string const& path, Edit const& edit);

    ZStanzaFileProperties_6_0& store() { return store_; }

private:
    EditLock const editLock_;
    ZStanzaFileProperties_6_0 store_;
};

/// Requires that a stanza exists.
/// throws  Failure.
void requireStanza(ZProperties_6_0 const& store, std::string const& path,
                   std::string const& stanza);

/// Refuses the stanza that the library itself writes: a change there could lose the obfuscated
/// values.
/// throws  Failure.
void checkReserved(std::string const& path, std::string const& stanza);

/// Refuses names that would not read back unchanged.
/// throws  Failure.
void checkNames(std::string const& path, std::string const& stanza, std::string const& key);

/// Refuses a plain value that would not read back unchanged.
/// throws  Failure.
void checkValue(std::string const& path, std::string const& key, std::string const& value);
