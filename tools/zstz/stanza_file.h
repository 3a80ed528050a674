// stanza_file: stanza files as the verbs of zstz read and change them.
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

// A configuration file as it was read: the store, and the cache in which its lines stand in order.
class LoadedFile {
public:
    /// throws  what loading throws.
    explicit LoadedFile(std::string const& path);

    /// Returns the stanzas with their keys, in file order. Behind them comes what has no line in
    /// the file because the companion file alone knows it.
    std::vector<Stanza> outline() const;

    /// Returns the values of a key, in order.
    std::vector<std::string> values(std::string const& stanza, std::string const& key) const;

    /// Returns the number of the values of a key.
    size_t valueCount(std::string const& stanza, std::string const& key) const;

    /// Returns whether the values of a key are obfuscated.
    bool isObfuscated(std::string const& stanza, std::string const& key) const;

    /// Returns whether a stanza has comments: between its lines, or right above its head.
    bool hasComments(std::string const& stanza) const;

    ZProperties_6_0& store() { return store_; }

private:
    ZSCFData_6_0* cache_;  // owned by the store
    ZProperties_6_0 store_;
};

// A file that is read, changed and stored with its comments, while no other zstz does so.
class EditedFile {
public:
    enum MissingFile { failIfMissing, createIfMissing };

    // What an edit removes with all its lines.
    struct Removal {
        std::string stanza;  // empty: nothing
        std::string key;     // empty: the whole stanza
    };

    /// throws  Failure when the file is not read whole, and would not be written back whole but for
    ///         the lines of `replaced`; what loading throws.
    explicit EditedFile(std::string const& path, Removal const& removal = {},
                        MissingFile missing = failIfMissing);

    ZStanzaFileProperties_6_0& store() { return store_; }

private:
    EditLock const editLock_;
    ZStanzaFileProperties_6_0 store_;
};

/// Says that a stanza is not there.
/// throws  Failure.
void requireStanza(ZProperties_6_0 const& store, std::string const& path,
                   std::string const& stanza);

/// Refuses the stanza that a store writes itself: what is changed there by hand costs the
/// obfuscated values.
/// throws  Failure, as do the two below.
void checkReserved(std::string const& stanza);

/// Says what is wrong with names that the file could not give back.
void checkNames(std::string const& stanza, std::string const& key);

/// Says what is wrong with a plain value that the file could not give back.
void checkValue(std::string const& key, std::string const& value);
