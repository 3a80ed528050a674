// stanza_file: loads, checks and changes stanza files for the verbs of zstz.
#pragma once

#include <Z/ZPropertiesImpl.h>
#include <Z/ZStanzaFileProperties.h>

#include <string>
#include <vector>

#include "request.h"

struct Stanza {
    std::string name;
    std::vector<std::string> keys;
};

// A store whose cache the tool reads.
class Store : public ZStanzaFileProperties_6_0 {
public:
    Store() : ZStanzaFileProperties_6_0(1) {}

    ZSCFData_6_0& contents() const { return static_cast<ZSCFData_6_0&>(cache()); }
};

/// The name of standard input as a file, and its name in reports.
inline constexpr char kStandardInput[] = "-";
inline constexpr char kStandardInputName[] = "standard input";

/// Reads standard input to its end.
/// range   `contents` is a noun for the report.
/// throws  Failure.
std::string readStandardInput(char const* contents = "the text");

/// Loads the text of standard input into an empty store.
/// throws  Failure.
void loadText(std::string const& text, Store& store);

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

/// Returns the values of a key, in order.
std::vector<std::string> valuesOf(Store const& store, std::string const& stanza,
                                  std::string const& key);

/// Returns the value of a key that counts; empty if it has no value.
std::string countingValue(std::vector<std::string> const& values);

/// Returns whether a stanza has comments: between its lines, or directly above its header.
bool hasComments(Store const& store, std::string const& stanza);

/// Requires that a stanza exists.
/// throws  Failure.
void requireStanza(Store const& store, std::string const& path, std::string const& stanza);

/// Requires that the key of a request exists.
/// throws  Failure.
void requireKey(Store const& store, Request const& request);

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
