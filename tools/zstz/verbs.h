// verbs: the table of verbs, with the arguments and options of each.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "request.h"

// An argument that follows the options, by its name in a usage line.
struct Argument {
    std::string_view name;
    std::variant<std::string Request::*, std::vector<std::string> Request::*> target;
    bool Request::*isPassed;  // may be null
    std::string_view words;   // the valid words, separated by "|"; empty: any text
    bool mayBeEmpty;
};

struct Option {
    // "[SUFFIX]" as a value is optional: `--backup=SUFFIX`.
    char const* name;   // with "--"
    char shortName;     // 0: none
    char const* value;  // the name of its value, or the valid words separated by "|"; null: none
    char const* purpose;
    std::variant<bool Request::*, std::string Request::*, double Request::*> target;
    bool Request::*isPassed = nullptr;   // for a value that may be empty
    char const* defaultValue = nullptr;  // of an optional value
};

// Sets of options that many verbs share.
enum OptionSet : unsigned { noOptions = 0, fileOptions = 1, changeOptions = 2, outputOptions = 4 };

class EditedFile;
class PassedNames;

struct Verb {
    char const* name;
    char const* arguments;  // as in usage lines; brackets enclose optional arguments
    char const* purpose;
    char const* examples;             // one command per line
    std::span<Option const> options;  // of this verb
    unsigned optionSets;
    bool takesEmptyKey;
    char const* excludes;  // pairs "--all --as", separated by ";": the first excludes the second
    char const* formats;   // the valid words of --format, separated by "|"

    /// Checks the arguments, beyond `excludes`; may be null.
    /// throws  UsageError.
    void (*check)(Request const&, PassedNames const&);

    // Either a function that does everything and returns the exit code, or two functions that
    // change a file.
    int (*run)(Request const&);
    void (*prepare)(Request&);  // before the file is read: reads and checks values; may be null
    void (*apply)(EditedFile&, Request const&);
};

/// Returns the verbs, in the order of the help text.
std::span<Verb const> verbs();

/// Returns the verb with a name, or null.
Verb const* findVerb(std::string_view name);

/// Returns the advice to use the verb whose name is similar to `name`, as "use 'zstz get', or ";
/// empty if no verb is. `command` precedes the verb.
std::string similarVerbRemedy(std::string const& command, std::string_view name);

/// Returns the arguments that usage lines name.
Argument const* findArgument(std::string_view name);

/// Calls `visit` for each option of a verb.
template <class Visit>
void forEachOption(Verb const& verb, Visit visit);

/// Return the options of the sets.
std::span<Option const> optionsOfFiles();
std::span<Option const> optionsOfChanges();
std::span<Option const> optionsOfOutput();

template <class Visit>
void forEachOption(Verb const& verb, Visit visit)
{
    for (Option const& option : verb.options)
        visit(option);
    if ((verb.optionSets & changeOptions) != 0)
        for (Option const& option : optionsOfChanges())
            visit(option);
    if ((verb.optionSets & outputOptions) != 0)
        for (Option const& option : optionsOfOutput())
            visit(option);
    if ((verb.optionSets & fileOptions) != 0)
        for (Option const& option : optionsOfFiles())
            visit(option);
}
