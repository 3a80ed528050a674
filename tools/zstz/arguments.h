// arguments: parses the command line of a verb.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "verbs.h"

// A command line that cannot be parsed.
struct UsageError {
    std::string problem;
    std::string remedy = {};  // before "run 'zstz VERB --help'"
};

// The names of the arguments and options of a command line, such as "KEY" and "--all".
class PassedNames {
public:
    bool has(std::string_view name) const { return names_.contains(name); }
    void add(std::string_view name) { names_.insert(name); }

private:
    std::set<std::string_view> names_;  // of the tables
};

/// Stores the arguments and options in `request`. Returns false if one of them asks for help.
/// range   `fixedFile`: the file of an edit script; the command line has no argument FILE then, and
///         none of the options that many verbs share. Null: none.
/// throws  UsageError.
bool parseArguments(Verb const& verb, std::vector<std::string> const& words, Request& request,
                    std::string const* fixedFile = nullptr);

/// Describes a missing argument. Names the stanza "." if the dialect of the file has keys without
/// a header: the stanza may be missing.
UsageError missingArgument(Request const& request, std::string const& name);

/// Returns whether `word` is one of `words`, which are separated by "|".
bool isOneOf(std::string_view word, std::string_view words);
