// output: the forms in which zstz prints names and values: plain, json, sh and lines.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "request.h"

/// Obfuscated values are printed as this.
inline constexpr char kMask[] = "********";

/// Prints a line of the output. It ends with a newline, or with a zero byte if --null is set.
/// Prints nothing if --quiet is set.
void printLine(Request const& request, std::string_view text);

/// Prints names: one per line, or as a list of JSON.
void printNames(Request const& request, std::vector<std::string> const& names);

/// Returns `text` with "\t", "\n" and "\\" for a tab, a newline and a backslash.
std::string escapeField(std::string_view text);

/// Returns the path of a file in a unified diff. patch(1) refuses paths with ".." and absolute
/// paths: they are relative to the root directory.
std::string patchPath(std::string const& path);

// Prints keys with their values. Prints nothing before finish(), so that a failure leaves no
// partial output.
class ValuePrinter {
public:
    // The plain form of `get` has only the values.
    enum PlainForm { stanzasAndKeys, onlyValues };

    ValuePrinter(Request const& request, PlainForm plainForm);

    /// Prints a key without values as the key alone, not as "key =", in the form "plain".
    void printKeysAlone(bool isAlone) { hasKeysAlone_ = isAlone; }

    /// Starts a stanza. `heading` is its line in the form "plain"; if it is empty, "[NAME]".
    void addStanza(std::string_view name, std::string const& heading = {});

    /// Adds a key of the stanza that was added last. `values` is empty for a key without values.
    /// range   `counting` is the value that counts, see ZProperties_6_0::getValue().
    void addKey(std::string_view key, std::vector<std::string_view> const& values,
                std::string_view counting);

    /// throws  Failure if two variables of the form "sh" have the same name.
    void finish();

private:
    using Values = std::vector<std::string_view>;

    // A variable of the form "sh".
    struct Variable {
        size_t hash;
        size_t name;  // its place in the output
        size_t length;
        size_t stanza;
        size_t key;  // its place in `keys_`
        size_t keyLength;
    };

    // Adds a line that consists of the parts.
    template <class... Parts>
    void append(Parts const&... parts);
    void addPlain(std::string_view key, Values const& values);
    void addJson(std::string_view key, Values const& values);
    void addVariables(std::string_view key, Values const& values, std::string_view counting);
    void addVariable(std::string_view name, std::string_view key, std::string_view value);
    void requireDistinctNames();
    void addFields(std::string_view key, Values const& values);
    void endStanza();

    Request const& request_;
    PlainForm const plainForm_;
    std::string const form_;
    std::string out_;
    std::string stanza_;
    bool hasStanza_ = false;
    bool hasKeysAlone_ = false;
    bool hasKey_ = false;  // in this stanza
    // Only of the form "sh". A map of the names would take several times as long.
    std::vector<std::string> stanzas_;
    std::string keys_;
    std::vector<Variable> variables_;
};
