// stanza_file: loads, checks and changes stanza files for the verbs of zstz.
#pragma once

#include <Z/ZPropertiesImpl.h>
#include <Z/ZStanzaDialect_p.h>
#include <Z/ZStanzaFileProperties.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "dialect_choice.h"
#include "request.h"

struct Stanza {
    std::string name;
    std::vector<std::string> keys;
};

// A store whose cache the tool reads.
class Store : public ZStanzaFileProperties_6_0 {
public:
    explicit Store(ZStanzaDialect_6_0 const& dialect = {}) : ZStanzaFileProperties_6_0(1, dialect)
    {
    }

    bool isStanzaFile() const { return dialect().name() == std::string_view("stanza"); }
    zdialects::Switches switches() const { return zdialects::switchesOf(dialect()); }

    ZSCFData_6_0& contents() const { return static_cast<ZSCFData_6_0&>(cache()); }
};

/// The name of standard input as a file, and its name in reports.
inline constexpr char kStandardInput[] = "-";
inline constexpr char kStandardInputName[] = "standard input";

/// Reads standard input to its end.
/// range   `contents` is a noun for the report.
/// throws  Failure.
std::string readStandardInput(char const* contents = "the text");

/// Loads the text of standard input, or of the pipe `name`, into an empty store.
/// throws  Failure.
void loadText(std::string const& text, Store& store, std::string const& name = kStandardInputName);

/// Loads a path that is not a file into an empty store; returns false if `path` is a file. A
/// program with other kinds of paths sets it before the first load.
using RemoteLoader = bool (*)(std::string const& path, Store& store);
void setRemoteLoader(RemoteLoader loader);

/// Loads the file at `path`, or standard input, into an empty store. Waits up to `wait` seconds for
/// a busy file.
/// throws  Failure for standard input; as ZProperties_6_0::load().
void loadFile(std::string const& path, double wait, Store& store);
inline void loadFile(Request const& request, Store& store)
{
    loadFile(request.file, request.wait, store);
}

/// Return the stanzas with their keys, or the stanza names, in file order. Stanzas and keys that
/// are only in the companion file follow.
std::vector<Stanza> outlineOf(Store const& store);

// A key of a store and its values, valid during a call.
struct KeyView {
    std::string_view stanza;
    std::string_view name;
    std::vector<std::string_view> const& values;
    bool isObfuscated;
};

/// Returns the last value of a key that counts in a dialect; empty without values.
std::string_view countingValue(zdialects::Switches const& switches, KeyView const& key);

/// Calls `onStanza` with the name of each stanza, and `onKey` for each of its keys if `onStanza`
/// returns true, in the order of outlineOf().
/// cost    O(n) in the lines, keys and values, which are not copied.
void forEachKey(Store const& store, std::function<bool(std::string_view)> const& onStanza,
                std::function<void(KeyView const&)> const& onKey);

/// Returns the values of a key, in order.
std::vector<std::string> valuesOf(Store const& store, std::string const& stanza,
                                  std::string const& key);

/// Returns the values of a key that count in the dialect of the file, in order.
std::vector<std::string> countingValuesOf(Store const& store, std::string const& stanza,
                                          std::string const& key);

/// Returns the last of these values; empty without values.
std::string countingValue(Store const& store, std::string const& stanza, std::string const& key);

/// Loads the file at `path` into an empty store.
/// throws  Failure if the contents are invalid in another dialect than "stanza"; as
///         ZProperties_6_0::load().
void loadOnce(std::string const& path, Store& store);

/// Returns whether a stanza has comments: between its lines, or directly above its header.
bool hasComments(Store const& store, std::string const& stanza);

/// Requires that a stanza exists.
/// throws  Failure.
void requireStanza(Store const& store, std::string const& path, std::string const& stanza);

/// Requires that the key of a request exists.
/// throws  Failure.
void requireKey(Store const& store, Request const& request);

/// Requires that the stanza of a change is one stanza.
/// throws  Failure if several stanzas have the name.
void requireUnambiguous(Store const& store, Request const& request);

/// Refuses the stanza that the library itself writes: a change there could lose the obfuscated
/// values.
/// throws  Failure.
void checkReserved(std::string const& path, std::string const& stanza);

/// Refuses the name of a new stanza because of its number, if stanzas with one name are separate:
/// the number must be the next.
/// throws  Failure.
void checkNewNumber(Store const& store, std::string const& path, std::string const& stanza);

/// Returns whether no other stanza prevents a new name. Where stanzas with one name are separate,
/// a number in the name must be the position of the stanza among them.
bool canRenameStanza(Store const& store, std::string const& stanza, std::string const& newName);

/// Refuses the new name of a stanza because of its number, which must be the position of the stanza
/// among those with the name.
/// throws  Failure.
void checkRenamedNumber(Store const& store, Request const& request);

/// Refuses names, or a value, that the dialect of a store cannot spell.
/// range   `key` is empty for the name of a stanza only; `value` is null for names only.
/// throws  Failure.
void checkSpelling(Store const& store, Request const& request, std::string const& stanza,
                   std::string const& key, char const* value);

/// Refuses the stanza "." in contents of the dialect "stanza", which has no keys above the first
/// header, unless a header [.] exists.
/// throws  Failure.
void checkTopStanza(ZPCache_6_0 const& contents, std::string const& path, std::string const& stanza,
                    std::string const& remedy);

/// Refuses the stanza "." of a file in the dialect "stanza", unless a header [.] exists, and
/// suggests a dialect that has keys above the first header.
/// throws  Failure.
void checkTopStanza(Store const& store, Request const& request, std::string const& stanza);

/// Refuses names that would not read back unchanged.
/// throws  Failure.
void checkNames(std::string const& path, std::string const& stanza, std::string const& key);

/// Refuses a plain value that would not read back unchanged.
/// throws  Failure.
void checkValue(std::string const& path, std::string const& key, std::string const& value);
