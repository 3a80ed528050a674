// zstz: reads and edits stanza configuration files from the command line.
//
// Options are parsed here; the verbs stand in commands.h, exit codes and messages in failures.h.
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "failures.h"

namespace {

struct Verb {
    char const* name;
    char const* purpose;
    char const* example;
    void (*run)(Request const&);
};

constexpr Verb kVerbs[] = {
    {"get", "prints the value of a key, the last one when it has several",
     "zstz get /etc/gateway.conf listener port", runGet},
    {"set", "makes a value the only one of a key; makes stanza and key when they are missing",
     "zstz set /etc/gateway.conf listener port 8443", runSet},
    {"add", "adds a value to those of a key, unless it has an equal one",
     "zstz add /etc/gateway.conf listener address 10.0.0.7", runAdd},
    {"unset", "removes a key with all its values, or a stanza with all its keys",
     "zstz unset /etc/gateway.conf listener port", runUnset},
    {"stanzas", "prints the names of the stanzas", "zstz stanzas /etc/gateway.conf", runStanzas},
    {"keys", "prints the names of the keys of a stanza", "zstz keys /etc/gateway.conf listener",
     runKeys},
    {"list", "prints stanzas, keys and values; obfuscated values are masked",
     "zstz list /etc/gateway.conf listener", runList},
    {"check", "says whether files can be read, and what is in them", "zstz check /etc/gateway.conf",
     runCheck},
};

constexpr char kExitCodes[] =
    "Exit codes: 0 done, 1 not found, 2 usage, 3 invalid data, 4 cannot open, read or write,\n"
    "5 locked by another process, 6 invalid value, 7 change refused, 9 internal";

// Finds the tables of the text services beside the tool, unless the user names others.
void findTables()
{
    char self[PATH_MAX];
    ssize_t const length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        return;
    self[length] = 0;
    *strrchr(self, '/') = 0;
    std::string const tables = std::string(self) + "/" + ZSTZ_TABLES;
    int const keepWhatIsSet = 0;
    setenv("QVRDIR", tables.c_str(), keepWhatIsSet);
}

// A file, stanza or key without a name is a slip of the caller's, often an unset shell variable.
std::string notEmpty(std::string const& text)
{
    return text.empty() ? "it may not be empty" : "";
}

void addArguments(CLI::App& verb, std::string const& name, Request& request)
{
    if (name == "check") {
        verb.add_option("FILE", request.files, "configuration files")
            ->required()
            ->check(notEmpty, "");
        return;
    }
    verb.add_option("FILE", request.file, "configuration file")->required()->check(notEmpty, "");
    if (name == "stanzas")
        return;
    CLI::Option* const stanza =
        verb.add_option("STANZA", request.stanza, "name of the stanza")->check(notEmpty, "");
    if (name == "list")
        return;
    stanza->required();
    if (name == "keys")
        return;
    CLI::Option* const key =
        verb.add_option("KEY", request.key, "name of the key")->check(notEmpty, "");
    if (name == "unset") {
        verb.add_flag("--stanza", request.wholeStanza, "remove the whole stanza")->excludes(key);
        return;
    }
    key->required();
    if (name == "get") {
        CLI::Option* const all = verb.add_flag("--all", request.all, "print every value");
        verb.add_option("--as", request.as, "print it as text, number or boolean (yes or no)")
            ->check(CLI::IsMember({"text", "number", "boolean"}))
            ->excludes(all);
        return;
    }
    CLI::Option* const value = verb.add_option("VALUE", request.value, "the value");
    verb.add_flag("--obfuscated", request.obfuscated,
                  "keep the value out of the file; it is read from standard input")
        ->excludes(value);
    if (name == "set")
        verb.add_flag("--all", request.all, "replace several values by this one");
}

// What the parser cannot express.
void checkUsage(std::string const& verb, CLI::App const& app, Request const& request)
{
    if ((verb == "set" || verb == "add") && !request.obfuscated && app.count("VALUE") == 0)
        throw CLI::RequiredError("VALUE");
    if (verb == "unset" && !request.wholeStanza && app.count("KEY") == 0)
        throw CLI::RequiredError("KEY or --stanza");
}

int fail(Failure const& failure)
{
    fprintf(stderr, "zstz: %s\n", failure.text.c_str());
    return failure.code;
}

// One line: the parser's own texts may have several.
int failUsage(CLI::App const& app, std::string text)
{
    for (char& c : text)
        if (c == '\n')
            c = ' ';
    auto const verbs = app.get_subcommands();
    std::string const verb = verbs.empty() ? "" : " " + verbs.front()->get_name();
    return fail({exitUsage, text + "; see zstz" + verb + " --help"});
}

}  // namespace

int main(int argc, char** argv)
{
    findTables();

    Request request;
    CLI::App app("Reads and edits stanza configuration files.", "zstz");
    app.require_subcommand(1);
    app.set_version_flag("--version", "zstz 6.0");
    app.footer(std::string("Example:\n  zstz list /etc/gateway.conf\n\n") + kExitCodes);
    for (Verb const& verb : kVerbs) {
        CLI::App& sub = *app.add_subcommand(verb.name, verb.purpose);
        sub.footer(std::string("Example:\n  ") + verb.example);
        addArguments(sub, verb.name, request);
    }

    try {
        app.parse(argc, argv);
        for (Verb const& verb : kVerbs) {
            CLI::App const& sub = *app.get_subcommand(verb.name);
            if (!sub.parsed())
                continue;
            checkUsage(verb.name, sub, request);
            verb.run(request);
        }
        if (fflush(stdout) != 0)
            throw Failure{exitNoAccess, "cannot write to standard output; check where it goes"};
    } catch (CLI::ParseError const& e) {
        return e.get_exit_code() == 0 ? app.exit(e) : failUsage(app, e.what());
    } catch (...) {
        return fail(describe(std::current_exception()));
    }
    return exitDone;
}
