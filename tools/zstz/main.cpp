// zstz: reads and edits stanza configuration files from the command line.
//
// This file parses the command line. commands.h declares the verbs; failures.h has the exit codes.
#include <fcntl.h>
#include <limits.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <sstream>

#include "commands.h"
#include "failures.h"

namespace {

// ---- The arguments of each verb ----------------------------------------------------------------

// An empty file, stanza or key name is a mistake, often an unset shell variable.
std::string validateNotEmpty(std::string const& text)
{
    return text.empty() ? "it may not be empty" : "";
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
    CLI::Option* const all = verb.add_flag("--all", request.all, "print every value");
    verb.add_option("--as", request.as, "print it as text, number or boolean (yes or no)")
        ->check(CLI::IsMember({"text", "number", "boolean"}))
        ->excludes(all);
}

void addReplace(CLI::App& verb, Request& request)
{
    verb.add_flag("--replace", request.replace,
                  "rename a new file over the old one, for programs that read it without a lock");
}

void addAdd(CLI::App& verb, Request& request)
{
    addKey(verb, request)->required();
    addReplace(verb, request);
    CLI::Option* const value = verb.add_option("VALUE", request.value, "the value");
    verb.add_flag("--obfuscated", request.obfuscated,
                  "keep the value out of the file; it is read from standard input")
        ->excludes(value);
}

void addSet(CLI::App& verb, Request& request)
{
    addAdd(verb, request);
    verb.add_flag("--all", request.all, "replace several values by this one");
}

void checkValue(CLI::App const& verb, Request const& request)
{
    if (!request.obfuscated && verb.count("VALUE") == 0)
        throw CLI::RequiredError("VALUE");
}

void addUnset(CLI::App& verb, Request& request)
{
    CLI::Option* const key = addKey(verb, request);
    addReplace(verb, request);
    CLI::Option* const all =
        verb.add_flag("--all", request.all, "remove the key although it has several values");
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
        ->check(CLI::IsMember({"get", "set", "list", "check"}));
    verb.add_option("KEY", request.key, "name of the key, of get and set");
    verb.add_option("VALUE", request.value, "the value, of set");
    verb.add_flag("--drop-comments", request.dropComments,
                  "set the value although storing drops the comments");
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
        addText(verb, "--from", request.javaFrom, "make the stanza of this Java file");
    addText(verb, "--to", request.javaTo, "make this Java file of the stanza")->excludes(from);
    verb.add_flag("--drop-comments", request.dropComments, "do without the comments");
    verb.add_flag("--overwrite", request.overwrite,
                  "replace the stanza, or the Java file, that is there");
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
    verb.add_option("COMMAND", request.command, "behind --: what to run, and its arguments");
    CLI::Option* const read =
        verb.add_flag("--read", request.read, "share the lock with other readers");
    CLI::Option* const write =
        verb.add_flag("--write", request.write,
                      "be alone, and raise the sequence number when the command has ended")
            ->excludes(read);
    addText(verb, "--dir", request.lockDir, "folder of the lock file, else the working one");
    CLI::Option* const wait =
        verb.add_option("--wait", request.wait, "seconds to wait for the lock, else fail at once")
            ->check(CLI::Range(0.0, 1e9));
    verb.add_flag("--show", request.show, "print file, state and sequence number; run nothing")
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
    char const* name;
    char const* purpose;
    char const* example;  // one command per line
    void (*add)(CLI::App&, Request&);
    void (*check)(CLI::App const&, Request const&);  // what CLI11 cannot express; may be null
    int (*run)(Request const&);
};

constexpr Verb kVerbs[] = {
    {"get", "prints the value of a key, the last one when it has several",
     "zstz get /etc/gateway.conf listener port", addGet, nullptr, runGet},
    {"set", "makes a value the only one of a key; makes stanza and key when they are missing",
     "zstz set /etc/gateway.conf listener port 8443\n"
     "zstz set /etc/gateway.conf upstream password --obfuscated <password.txt",
     addSet, checkValue, runSet},
    {"add", "adds a value to those of a key, unless it has an equal one",
     "zstz add /etc/gateway.conf listener address 10.0.0.7", addAdd, checkValue, runAdd},
    {"unset", "removes a key with all its values, or a stanza with all its keys",
     "zstz unset /etc/gateway.conf listener motd\n"
     "zstz unset /etc/gateway.conf listener port --all\n"
     "zstz unset /etc/gateway.conf upstream --stanza",
     addUnset, checkUnset, runUnset},
    {"stanzas", "prints the names of the stanzas", "zstz stanzas /etc/gateway.conf", addFile,
     nullptr, runStanzas},
    {"keys", "prints the names of the keys of a stanza", "zstz keys /etc/gateway.conf listener",
     addFileAndStanza, nullptr, runKeys},
    {"list", "prints stanzas, keys and values; obfuscated values are masked",
     "zstz list /etc/gateway.conf listener", addList, nullptr, runList},
    {"check", "says whether files can be read, and what is in them", "zstz check /etc/gateway.conf",
     addFiles, nullptr, runCheck},
    {"java", "reads and changes Java property files: get KEY, set KEY VALUE, list, check",
     "zstz java app.properties get greeting\nzstz java app.properties set greeting hello\n"
     "zstz java app.properties list",
     addJava, checkJava, runJava},
    {"convert",
     "makes a stanza of a Java property file, or the other way round; refuses what would be lost",
     "zstz convert /etc/gateway.conf app --from app.properties\n"
     "zstz convert /etc/gateway.conf app --to app.properties",
     addConvert, checkConvert, runConvert},
    {"lock",
     "runs a command under a process lock, and ends as it does; or shows who holds the lock",
     "zstz lock --write --dir /run/gateway --wait 10 routes -- make -C /etc/gateway routes\n"
     "zstz lock --read routes -- cat routes.conf\nzstz lock --show --dir /run/gateway routes",
     addLock, checkLock, runLock},
    {"hexdump",
     "prints the bytes of files as a hexadecimal dump: offset, bytes, and a column of characters",
     "zstz hexdump /etc/gateway.conf.obf\nhead -c 64 /dev/urandom | zstz hexdump -", addHexdump,
     nullptr, runHexdump},
};

constexpr char kExitCodes[] =
    "Exit codes: 0 done, 1 not found, 2 usage, 3 invalid data, 4 cannot open, read or write,\n"
    "5 locked by another process, 6 invalid value, 7 change refused, 9 internal";

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

std::string verbNames()
{
    std::string names;
    for (Verb const& verb : kVerbs)
        names += std::string(names.empty() ? "" : ", ") + verb.name;
    return names;
}

// Describes a missing or unknown verb.
Failure describeVerb(int argc, char const* const* argv)
{
    std::string const problem =
        argc < 2
            ? "a verb is missing"
            : (argv[1][0] == '-' ? "there is no option " : "there is no verb ") + quote(argv[1]);
    return {exitUsage, problem + "; use one of " + verbNames() + ", and see zstz --help"};
}

int reportUsageError(CLI::App const& app, CLI::ParseError const& e)
{
    std::string text = e.what();
    if (dynamic_cast<CLI::ExtrasError const*>(&e) != nullptr && text.find(": -") != text.npos)
        text += "; put -- before names and values that begin with \"-\"";
    auto const verbs = app.get_subcommands();
    std::string const verb = verbs.empty() ? "" : " " + verbs.front()->get_name();
    return report({exitUsage, text + "; see zstz" + verb + " --help"});
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
        throw Failure{exitNoAccess, "cannot write to standard output; check where it goes"};
}

}  // namespace

int main(int argc, char** argv)
{
    openStandardDescriptors();
    setlocale(LC_CTYPE, "");
    Request request;
    request.hasSetTablesVariable = setTablesVariable();
    CLI::App app("Reads and edits stanza configuration files.", "zstz");
    app.require_subcommand(1);
    app.set_version_flag("--version", "zstz 6.0");
    app.get_formatter()->label("SUBCOMMAND", "VERB");
    app.footer(std::string("Example:\n  zstz list /etc/gateway.conf\n\n") + kExitCodes);
    for (Verb const& verb : kVerbs) {
        CLI::App& sub = *app.add_subcommand(verb.name, verb.purpose)->group("Verbs");
        sub.footer(formatExamples(verb.example));
        verb.add(sub, request);
    }

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
