// contents: the stanzas, keys and values of a file, and the changes between two states of it.
#pragma once

#include <Z/lines/kept_text.h>
#include <Z/lines/merge_side.h>

#include <memory>
#include <string>
#include <vector>

#include "request.h"
#include "stanza_file.h"

// A value of a key, or a line that has only the key; or one side of a change.
struct ValueState {
    enum Kind { absent, withoutValue, withValue };

    Kind kind = absent;
    std::string value = {};
    uint32_t line = zlines::kNone;  // of the outline of the file
};

struct KeyContents {
    std::string name;
    std::string comparable;  // equal for spellings of one name
    std::vector<ValueState> values;
    bool isObfuscated = false;
};

struct StanzaContents {
    std::string name;
    std::string comparable;
    std::vector<KeyContents> keys;
    uint32_t line = zlines::kNone;  // of the header
};

// The text that the lines above belong to.
struct ReadText {
    explicit ReadText(zlines::SharedText text)
        : kept(std::move(text)), side(kept->text, kept->dialect)
    {
        for (size_t at = 0; (at = kept->text.find('\n', at)) != std::string::npos;)
            starts.push_back(static_cast<uint32_t>(++at));
    }

    zlines::SharedText const kept;
    zlines::MergeSide const side;
    std::vector<uint32_t> starts{0};  // of the lines of the file
};

struct FileContents {
    std::vector<StanzaContents> stanzas;  // in file order
    std::shared_ptr<ReadText const> text = {};
    bool isStanzaFile = true;
    ZStanzaDialect_6_0 dialect = {};
};

/// Returns the contents of a store. The entry that names the companion file is left out. Lines are
/// known if the store keeps them.
FileContents contentsOf(Store const& store);

// A value that was changed, added or removed. An empty key: the stanza was.
struct Change {
    std::string stanza;
    std::string key;
    ValueState before;
    ValueState after;
    bool isObfuscated;  // before or after
    std::string comparableStanza;
    std::string comparableKey;
    bool isOfRemovedStanza;
};

/// Returns the changes by stanza and key. The order of stanzas and keys does not matter; the order
/// of the values of a key does. Where each header starts a stanza of its own, stanzas of one name
/// are matched by their contents, and have the numbers of the state after the change.
std::vector<Change> compareContents(FileContents const& before, FileContents const& after);

/// Returns a side of a change for output: the value, or a mask if it is obfuscated.
std::string shownValue(Change const& change, ValueState const& state);

/// Returns the fields "STANZA, KEY, OLD, NEW" of the form "lines", separated by tabs. A missing
/// value is "\-".
std::string formatFields(Change const& change);

/// Returns the change as an object of JSON in the file at `path`. `place` has its line; null: it
/// has none. A missing value is null; a key without a value has an empty list.
std::string formatJson(Change const& change, std::string const& path, FileContents const* place,
                       uint32_t line);
