// zstz: reads and edits stanza configuration files from the command line.
//
// This file parses the command line. commands.h declares the verbs; failures.h has the exit codes.
#include <ctype.h>
#include <fcntl.h>
#include <limits.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <functional>
#include <sstream>

#include "commands.h"
#include "failures.h"

namespace {

constexpr double kMaxWait = 1e9;  // seconds

// ---- The arguments of each verb ----------------------------------------------------------------

// Returns a validator that accepts only the given words.
template <size_t count>
std::function<std::string(std::string const&)> oneOf(std::array<char const*, count> const& words)
{
    return [words](std::string const& text) -> std::string {
        std::string list;
        for (size_t i = 0; i < count; ++i) {
            if (text == words[i])
                return "";
            list += std::string(i == 0 ? "" : i + 1 < count ? ", " : " or ") + words[i];
        }
        return quote(text) + " is not " + list;
    };
}

std::string validateSeconds(std::string const& text)
{
    double seconds = 0;
    bool const isValid =
        CLI::detail::lexical_cast(text, seconds) && seconds >= 0 && seconds <= kMaxWait;
    return isValid ? "" : quote(text) + " is not a number of seconds from 0 to 1000000000";
}

// An empty file, stanza or key name is a mistake, often an unset shell variable.
std::string validateNotEmpty(std::string const& text)
{
    return text.empty() ? "must not be empty" : "";
}

CLI::Option* addText(CLI::App& verb, char const* name, std::string& text, char const* purpose)
{
    return verb.add_option(name, text, purpose)->check(validateNotEmpty, "");
}

void addFile(CLI::App& verb, Request& request)
{
    addText(verb, "FILE", request.file, "configuration file")->required();
}

void addFiles(CLI::App& verb, Request& request)
{
    verb.add_option("FILE", request.files, "configuration files")
        ->required()
        ->check(validateNotEmpty, "");
}

void addLint(CLI::App& verb, Request& request)
{
    addFiles(verb, request);
    verb.add_option("--format", request.format,
                    "plain: FILE:LINE:COLUMN: TEXT; json: an object per line")
        ->check(oneOf<2>({"plain", "json"}), "");
}

void addFileAndStanza(CLI::App& verb, Request& request)
{
    addFile(verb, request);
    addText(verb, "STANZA", request.stanza, "name of the stanza")->required();
}

CLI::Option* addKey(CLI::App& verb, Request& request)
{
    addFileAndStanza(verb, request);
    return addText(verb, "KEY", request.key, "name of the key");
}

void addGet(CLI::App& verb, Request& request)
{
    addKey(verb, request)->required();
    CLI::Option* const all = verb.add_flag("--all", request.all, "print every value, one per line");
    verb.add_option("--as", request.as, "print the value as text, number or boolean (yes or no)")
        ->check(oneOf<3>({"text", "number", "boolean"}), "")
        ->excludes(all);
}

void addStoreOptions(CLI::App& verb, Request& request)
{
    verb.add_flag("--normalise", request.normalise,
                  "store every line of the file as \"key = value\"; default: change only the lines "
                  "of the edit");
    verb.add_flag("--replace", request.replace,
                  "rename a new file over the old one, for readers that take no lock");
}

void addAdd(CLI::App& verb, Request& request)
{
    addKey(verb, request)->required();
    addStoreOptions(verb, request);
    CLI::Option* const value = verb.add_option("VALUE", request.value, "value of the key");
    verb.add_flag("--obfuscated", request.obfuscated,
                  "keep the value out of the file and read it from standard input")
        ->excludes(value);
}

void addSet(CLI::App& verb, Request& request)
{
    addAdd(verb, request);
    verb.add_flag("--all", request.all, "replace all values if the key has more than one");
}

void checkValue(CLI::App const& verb, Request const& request)
{
    if (!request.obfuscated && verb.count("VALUE") == 0)
        throw CLI::RequiredError("VALUE");
}

void addUnset(CLI::App& verb, Request& request)
{
    CLI::Option* const key = addKey(verb, request);
    addStoreOptions(verb, request);
    CLI::Option* const all =
        verb.add_flag("--all", request.all, "remove the key even if it has more than one value");
    verb.add_flag("--stanza", request.wholeStanza, "remove the whole stanza")
        ->excludes(key)
        ->excludes(all);
}

void checkUnset(CLI::App const& verb, Request const& request)
{
    if (!request.wholeStanza && verb.count("KEY") == 0)
        throw CLI::RequiredError("KEY or --stanza");
}

void addList(CLI::App& verb, Request& request)
{
    addFile(verb, request);
    addText(verb, "STANZA", request.stanza, "name of the stanza");
}

void addJava(CLI::App& verb, Request& request)
{
    addText(verb, "FILE", request.file, "Java property file")->required();
    verb.add_option("ACTION", request.action, "get, set, list or check")
        ->required()
        ->check(oneOf<4>({"get", "set", "list", "check"}), "");
    verb.add_option("KEY", request.key, "name of the key, for get and set");
    verb.add_option("VALUE", request.value, "value of the key, for set");
    verb.add_flag("--drop-comments", request.dropComments,
                  "set the value even if the comments of the file are lost");
}

void checkJava(CLI::App const& verb, Request const& request)
{
    bool const needsValue = request.action == "set";
    bool const needsKey = needsValue || request.action == "get";
    if (needsKey && verb.count("KEY") == 0)
        throw CLI::RequiredError("KEY");
    if (needsValue && verb.count("VALUE") == 0)
        throw CLI::RequiredError("VALUE");
    if (!needsKey && verb.count("KEY") != 0)
        throw CLI::ExtrasError({request.key});
    if (!needsValue && verb.count("VALUE") != 0)
        throw CLI::ExtrasError({request.value});
}

void addConvert(CLI::App& verb, Request& request)
{
    addFileAndStanza(verb, request);
    CLI::Option* const from =
        addText(verb, "--from", request.javaFrom, "create the stanza from this Java file");
    addText(verb, "--to", request.javaTo, "create this Java file from the stanza")->excludes(from);
    verb.add_flag("--drop-comments", request.dropComments, "convert even if comments are lost");
    verb.add_flag("--normalise", request.normalise,
                  "with --from: store every line of the file as \"key = value\"");
    verb.add_flag("--overwrite", request.overwrite, "replace an existing stanza or Java file");
}

void checkConvert(CLI::App const&, Request const& request)
{
    if (request.javaFrom.empty() && request.javaTo.empty())
        throw CLI::RequiredError("--from or --to");
}

void addLock(CLI::App& verb, Request& request)
{
    addText(verb, "NAME", request.lockName, "name of the lock; its file is DIR/._zplNAME")
        ->required();
    verb.add_option("COMMAND", request.command, "after --: the command to run, with its arguments");
    CLI::Option* const read = verb.add_flag(
        "--read", request.read, "lock for reading; other readers may hold the lock too");
    CLI::Option* const write =
        verb.add_flag("--write", request.write,
                      "lock exclusively, and increment the sequence number afterwards")
            ->excludes(read);
    addText(verb, "--dir", request.lockDir,
            "directory of the lock file; default: the working directory");
    CLI::Option* const wait =
        verb.add_option("--wait", request.wait,
                        "seconds to wait for the lock; default: fail immediately")
            ->check(validateSeconds, "");
    verb.add_flag("--show", request.show,
                  "print the lock file, state and sequence number; run no command")
        ->excludes(read)
        ->excludes(write)
        ->excludes(wait);
}

void checkLock(CLI::App const&, Request const& request)
{
    if (!request.show && !request.read && !request.write)
        throw CLI::RequiredError("--read, --write or --show");
    if (!request.show && request.command.empty())
        throw CLI::RequiredError("-- COMMAND");
    if (request.show && !request.command.empty())
        throw CLI::ExcludesError("--show", "COMMAND");
}

void addHexdump(CLI::App& verb, Request& request)
{
    verb.add_option("FILE", request.files, "files of any kind; - is standard input")
        ->required()
        ->check(validateNotEmpty, "");
}

// ---- The verbs ---------------------------------------------------------------------------------

struct Verb {
    char const* group;  // heading of the first verb in a group, else null
    char const* name;
    char const* arguments;
    char const* purpose;
    char const* example;  // one command per line
    void (*add)(CLI::App&, Request&);
    void (*check)(CLI::App const&, Request const&);  // beyond the checks of CLI11; may be null
    int (*run)(Request const&);
};

// In the order of the help text.
constexpr Verb kVerbs[] = {
    {"Read", "get", "FILE STANZA KEY", "print the last value of a key; --all prints every value",
     "zstz get /etc/gateway.conf listener port", addGet, nullptr, runGet},
    {nullptr, "list", "FILE [STANZA]",
     "print stanzas, keys and values; obfuscated values are masked",
     "zstz list /etc/gateway.conf listener", addList, nullptr, runList},
    {nullptr, "stanzas", "FILE", "print the stanza names", "zstz stanzas /etc/gateway.conf",
     addFile, nullptr, runStanzas},
    {nullptr, "keys", "FILE STANZA", "print the key names of a stanza",
     "zstz keys /etc/gateway.conf listener", addFileAndStanza, nullptr, runKeys},
    {nullptr, "check", "FILE...", "validate files and count their stanzas, keys and values",
     "zstz check /etc/gateway.conf", addFiles, nullptr, runCheck},
    {nullptr, "lint", "FILE...", "print every invalid line, and every line that storing changes",
     "zstz lint /etc/gateway.conf\nzstz lint --format json /etc/*.conf", addLint, nullptr, runLint},
    {"Edit", "set", "FILE STANZA KEY VALUE",
     "set a key to a single value; creates the stanza and the key",
     "zstz set /etc/gateway.conf listener port 8443\n"
     "zstz set /etc/gateway.conf upstream password --obfuscated <password.txt",
     addSet, checkValue, runSet},
    {nullptr, "add", "FILE STANZA KEY VALUE", "add a value, unless the key already has it",
     "zstz add /etc/gateway.conf listener address 10.0.0.7", addAdd, checkValue, runAdd},
    {nullptr, "unset", "FILE STANZA KEY", "remove a key; --stanza removes the whole stanza",
     "zstz unset /etc/gateway.conf listener motd\n"
     "zstz unset /etc/gateway.conf listener port --all\n"
     "zstz unset /etc/gateway.conf upstream --stanza",
     addUnset, checkUnset, runUnset},
    {"Java property files", "java", "FILE ACTION [KEY VALUE]", "get, set, list or check",
     "zstz java app.properties get greeting\nzstz java app.properties set greeting hello\n"
     "zstz java app.properties list",
     addJava, checkJava, runJava},
    {nullptr, "convert", "FILE STANZA", "convert a stanza --from or --to a Java property file",
     "zstz convert /etc/gateway.conf app --from app.properties\n"
     "zstz convert /etc/gateway.conf app --to app.properties",
     addConvert, checkConvert, runConvert},
    {"Other", "lock", "NAME -- COMMAND...",
     "run a command under a process lock; --show prints its state",
     "zstz lock --write --dir /run/gateway --wait 10 routes -- make -C /etc/gateway routes\n"
     "zstz lock --read routes -- cat routes.conf\nzstz lock --show --dir /run/gateway routes",
     addLock, checkLock, runLock},
    {nullptr, "hexdump", "FILE...", "print files as a hex dump",
     "zstz hexdump /etc/gateway.conf.obf\nhead -c 64 /dev/urandom | zstz hexdump -", addHexdump,
     nullptr, runHexdump},
};

std::string formatHelp()
{
    constexpr size_t kPurposeColumn = 32;
    std::string help =
        "Read and edit stanza configuration files.\n"
        "Usage: zstz COMMAND [OPTIONS] ...\n"
        "       zstz --help | --version\n\n";
    for (Verb const& verb : kVerbs) {
        if (verb.group != nullptr)
            help += std::string(verb.group) + '\n';
        std::string line = std::string("  ") + verb.name + ' ' + verb.arguments;
        line.resize(kPurposeColumn, ' ');
        help += line + verb.purpose + '\n';
    }
    return help +
           "\nExit status: 0 success, 1 not found, 2 usage, 3 invalid file, 4 I/O error, 5 "
           "locked,\n"
           "6 invalid value, 7 change refused, 9 internal error. Examples: zstz COMMAND --help\n";
}

Verb const& findVerb(CLI::App const& app)
{
    for (Verb const& verb : kVerbs)
        if (app.got_subcommand(verb.name))
            return verb;
    throw CLI::RequiredError("VERB");
}

std::string formatExamples(char const* commands)
{
    std::string text = "Example:\n  ";
    for (char const* c = commands; *c != 0; ++c) {
        text += *c;
        if (*c == '\n')
            text += "  ";
    }
    return text;
}

// Describes a missing or unknown verb.
Failure describeVerb(int argc, char const* const* argv)
{
    std::string const problem =
        argc < 2 ? "missing command"
                 : (argv[1][0] == '-' ? "unknown option " : "unknown command ") + quote(argv[1]);
    return {exitUsage, "", {problem, "run 'zstz --help' for a list"}};
}

int reportUsageError(CLI::App const& app, CLI::ParseError const& e)
{
    CLI::App const& sub = *app.get_subcommands().front();
    std::string const verb = sub.get_name();
    std::string problem = e.what();
    std::string remedy;
    if (dynamic_cast<CLI::ExtrasError const*>(&e) != nullptr) {
        std::vector<std::string> const extras = sub.remaining();
        std::string const argument =
            extras.empty() ? problem.substr(problem.find(": ") + 2) : extras.front();
        problem = "unexpected argument " + quote(argument);
        if (argument.starts_with('-'))
            remedy = "put -- before names and values that start with \"-\", or ";
    }
    return report({exitUsage, verb, {problem, remedy + "run 'zstz " + verb + " --help'"}});
}

// Sets QVRDIR to the tables of the text services that are installed with the tool, unless QVRDIR is
// set. Returns whether it has set QVRDIR.
bool setTablesVariable()
{
    if (getenv("QVRDIR") != nullptr)
        return false;
    char self[PATH_MAX];
    ssize_t const length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        return false;
    self[length] = 0;
    *strrchr(self, '/') = 0;
    std::string const tables = std::string(self) + "/" + ZSTZ_TABLES;
    setenv("QVRDIR", tables.c_str(), 1);
    return true;
}

// If a standard descriptor were closed, the next file opened would get its number and receive the
// output. Opens /dev/null instead, in the wrong mode, so that using it fails.
void openStandardDescriptors()
{
    for (int fd = 0; fd < 3; ++fd)
        if (fcntl(fd, F_GETFD) < 0)
            open("/dev/null", fd == 0 ? O_WRONLY : O_RDONLY);
}

void requirePrinted()
{
    if (fflush(stdout) != 0 || ferror(stdout))
        throw Failure{exitNoAccess, "standard output", {"cannot write", "check its destination"}};
}

}  // namespace

int main(int argc, char** argv)
{
    openStandardDescriptors();
    setlocale(LC_CTYPE, "");
    Request request;
    request.hasSetTablesVariable = setTablesVariable();
    CLI::App app("", "zstz");
    app.require_subcommand(1);
    app.set_help_flag("-h,--help", "print this help");
    app.set_version_flag("--version", "zstz 6.0");
    for (Verb const& verb : kVerbs) {
        std::string purpose = std::string(verb.purpose) + '.';
        purpose[0] = static_cast<char>(toupper(static_cast<unsigned char>(purpose[0])));
        CLI::App& sub = *app.add_subcommand(verb.name, purpose);
        sub.footer(formatExamples(verb.example));
        verb.add(sub, request);
    }
    app.formatter_fn(
        [](CLI::App const*, std::string const&, CLI::AppFormatMode) { return formatHelp(); });

    try {
        int code = exitDone;
        try {
            app.parse(argc, argv);
            Verb const& verb = findVerb(app);
            if (verb.check != nullptr)
                verb.check(*app.get_subcommand(verb.name), request);
            code = verb.run(request);
        } catch (CLI::ParseError const& e) {
            if (e.get_exit_code() != 0)
                return app.get_subcommands().empty() ? report(describeVerb(argc, argv))
                                                     : reportUsageError(app, e);
            std::ostringstream help;
            app.exit(e, help, help);
            fputs(help.str().c_str(), stdout);
        }
        requirePrinted();
        return code;
    } catch (...) {
        return report(describe(std::current_exception(), request.file));
    }
}
