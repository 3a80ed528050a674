// contents: the stanzas, keys and values of a file, and the changes between two states of it.
#pragma once

#include <string>
#include <vector>

#include "request.h"
#include "stanza_file.h"

struct KeyContents {
    std::string name;
    std::vector<std::string> values;
    bool isObfuscated = false;
};

struct StanzaContents {
    std::string name;
    std::vector<KeyContents> keys;
};

using FileContents = std::vector<StanzaContents>;

/// Returns the contents of a store, in file order.
FileContents contentsOf(Store const& store);

// One side of a change.
struct ValueState {
    enum Kind { absent, withoutValue, withValue };

    Kind kind = absent;
    std::string value = {};
};

// A value that was changed, added or removed. An empty key: the stanza was.
struct Change {
    std::string stanza;
    std::string key;
    ValueState before;
    ValueState after;
    bool isObfuscated;  // before or after
};

/// Returns the changes by stanza and key. The order of stanzas and keys does not matter; the order
/// of the values of a key does.
std::vector<Change> compareContents(FileContents const& before, FileContents const& after);

/// Returns a side of a change for output: the value, or a mask if it is obfuscated.
std::string shownValue(Change const& change, ValueState const& state);

/// Returns the fields "STANZA, KEY, OLD, NEW" of the form "lines", separated by tabs. A missing
/// value is "\-".
std::string formatFields(Change const& change);

/// Returns the members of a JSON object: "stanza", "key", "old" and "new". A missing value is null;
/// a key without a value has an empty list.
std::string formatMembers(Change const& change);
