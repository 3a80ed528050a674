#include "verbs.h"

#include <Z/ZStanzaDialect_p.h>
#include <stdlib.h>

#include "arguments.h"
#include "commands.h"
#include "dialect_choice.h"
#include "nearest_name.h"
#include "stanza_file.h"

namespace {

// ---- Arguments ---------------------------------------------------------------------------------

constexpr Argument kArguments[] = {
    {"FILE", &Request::file, nullptr, "", false},
    {"FILE...", &Request::files, nullptr, "", false},
    {"STANZA", &Request::stanza, nullptr, "", false},
    {"KEY", &Request::key, nullptr, "", false},
    {"VALUE", &Request::value, &Request::hasValue, "", true},
    {"NEW", &Request::newName, nullptr, "", false},
    {"TEXT", &Request::text, nullptr, "", true},
    {"SCRIPT", &Request::script, nullptr, "", false},
    {"ACTION", &Request::action, nullptr, "get|set|list|check", false},
    {"A", &Request::file, nullptr, "", false},
    {"B", &Request::other, nullptr, "", false},
    {"BASE", &Request::base, nullptr, "", false},
    {"OURS", &Request::file, nullptr, "", false},
    {"THEIRS", &Request::other, nullptr, "", false},
    {"CONFIGURATION", &Request::other, nullptr, "", false},
    {"TEMPLATE", &Request::file, nullptr, "", false},
    {"SHELL", &Request::shell, nullptr, "bash|zsh|fish|candidates", false},
    {"VERB", &Request::text, nullptr, "", false},
    {"NAME", &Request::lockName, nullptr, "", false},
    {"COMMAND...", &Request::command, nullptr, "", true},
};

// ---- Options -----------------------------------------------------------------------------------

constexpr Option kFileOptions[] = {
    {"--dialect", 0, "D", "the format of the file; default: by its name, else stanza",
     &Request::dialect},
    {"--quiet", 'q', nullptr, "print only errors", &Request::quiet},
    {"--wait", 0, "SECONDS", "wait for a file that another process uses; default: 2",
     &Request::wait},
};

constexpr Option kOutputOptions[] = {
    {"--format", 0, "FORMAT", "the form of the output", &Request::format},
    {"--null", '0', nullptr, "end each line of the output with a zero byte", &Request::null},
};

constexpr Option kChangeOptions[] = {
    {"--create", 0, nullptr, "create a missing file", &Request::create},
    {"--dry-run", 'n', nullptr, "print a unified diff and change nothing", &Request::dryRun},
    {"--backup", 0, "[SUFFIX]", "keep a copy of the old file as FILE~, or FILE with SUFFIX",
     &Request::backupSuffix, nullptr, "~"},
    {"--normalise", 0, nullptr,
     "store every line as \"key = value\"; default: change only the lines of the edit",
     &Request::normalise},
    {"--replace", 0, nullptr, "rename a new file over the old one, for readers that take no lock",
     &Request::replace},
};

constexpr Option kTemplate = {"--template", 0, "TEMPLATE",
                              "a file with comments \"# key = default\"", &Request::templateFile};

constexpr Option kGetOptions[] = {
    {"--all", 0, nullptr, "print every value, one per line", &Request::all},
    {"--as", 0, "text|number|boolean", "convert the value; a boolean is printed as yes or no",
     &Request::as},
    {"--default", 0, "VALUE", "the value to print if the key is missing", &Request::fallback,
     &Request::hasFallback},
    {"--line", 0, nullptr, "print the number of the line instead of the value", &Request::line},
    {"--raw", 0, nullptr, "print the value of every line of the key as it is spelled",
     &Request::raw},
    kTemplate,
};

constexpr Option kLintOptions[] = {kTemplate};

constexpr Option kDiffOptions[] = {
    {"--text", 0, nullptr, "print a unified diff of the lines", &Request::asText},
};

constexpr Option kMergeOptions[] = {
    {"--path", 0, "PATH",
     "the name of the file, which git passes; versions that cannot be read are merged by line, and "
     "a failure exits with 128 more",
     &Request::path},
    {"--dry-run", 'n', nullptr, "print a unified diff and change nothing", &Request::dryRun},
};

constexpr Option kObfuscated = {"--obfuscated", 0, nullptr,
                                "keep the value out of the file and read it from standard input",
                                &Request::obfuscated};

constexpr Option kRaw = {"--raw", 0, nullptr, "store VALUE as it is spelled", &Request::raw};

constexpr Option kSetOptions[] = {
    {"--old", 0, "VALUE", "replace this value", &Request::oldValue, &Request::hasOldValue},
    {"--nth", 0, "N", "replace the value with this number; the first valid value is 1",
     &Request::nth},
    {"--only", 0, "new|existing", "refuse to change, or to create, the key", &Request::only},
    {"--all", 0, nullptr, "replace all values of the key", &Request::all},
    {"--bare", 0, nullptr, "write the key alone, without \"=\", if the dialect has such keys",
     &Request::bare},
    kRaw,
    kObfuscated,
};

constexpr Option kAddOptions[] = {
    {"--first", 0, nullptr, "add it above the other valid values", &Request::first},
    {"--before", 0, "VALUE", "add it above this value", &Request::before, &Request::hasBefore},
    {"--behind", 0, "VALUE", "add it below this value", &Request::behind, &Request::hasBehind},
    kRaw,
    kObfuscated,
};

constexpr Option kUnsetOptions[] = {
    {"--all", 0, nullptr, "remove the key even if it has more than one value", &Request::all},
    {"--stanza", 0, nullptr, "remove the whole stanza", &Request::wholeStanza},
};

constexpr Option kCommentOptions[] = {
    {"--above", 0, nullptr, "keep the existing comment, and add TEXT above it", &Request::above},
    {"--off", 0, nullptr, "turn the lines of the key into comments", &Request::off},
    {"--on", 0, nullptr, "turn such a comment into a line of the key", &Request::on},
    {"--nth", 0, "N", "with --on: of several such comments, the one with this number",
     &Request::nth},
    {"--all", 0, nullptr, "with --on: all such comments", &Request::all},
};

constexpr Option kFmtOptions[] = {
    {"--check", 0, nullptr, "change nothing; exit with 8 if the file is in another style",
     &Request::check},
};

constexpr Option kJavaOptions[] = {
    {"--wait", 0, "SECONDS", "wait for a file that another process uses; default: 2",
     &Request::wait},
    {"--drop-comments", 0, nullptr, "set the value even if the comments of the file are lost",
     &Request::dropComments},
};

constexpr Option kConvertOptions[] = {
    {"--from", 0, "JAVA", "create the stanza from this Java file", &Request::javaFrom},
    {"--to", 0, "JAVA", "create this Java file from the stanza", &Request::javaTo},
    {"--drop-comments", 0, nullptr, "convert even if comments are lost", &Request::dropComments},
    {"--overwrite", 0, nullptr, "replace an existing stanza or Java file", &Request::overwrite},
};

constexpr Option kLockOptions[] = {
    {"--read", 0, nullptr, "lock for reading; other readers may hold the lock too", &Request::read},
    {"--write", 0, nullptr, "lock exclusively, and increment the sequence number afterwards",
     &Request::write},
    {"--dir", 0, "DIR", "directory of the lock file; default: the working directory",
     &Request::lockDir},
    {"--wait", 0, "SECONDS", "wait for the lock; default: fail immediately", &Request::lockWait},
    {"--show", 0, nullptr, "print the lock file, state and sequence number; run no command",
     &Request::show},
};

// ---- Checks ------------------------------------------------------------------------------------

void checkValueIsPassed(Request const& request, PassedNames const&)
{
    if (request.obfuscated || request.bare || request.hasValue)
        return;
    UsageError error = missingArgument(request, "VALUE");
    zdialects::Switches const switches =
        zdialects::switchesOf(chooseDialect(request, request.file));
    if (request.verb == "set" && switches.keyAlone == zdialects::KeyAlone::option)
        error.remedy +=
            std::string(error.remedy.empty() ? "" : ", and ") + "--bare writes the key alone";
    throw error;
}

void checkNth(Request const& request)
{
    unsigned long const number = strtoul(request.nth.c_str(), nullptr, 10);
    bool const isNumber = request.nth.find_first_not_of("0123456789") == std::string::npos;
    if (!request.nth.empty() && (!isNumber || number == 0))
        throw UsageError{"--nth: \"" + request.nth + "\" is not a number from 1"};
}

void checkSet(Request const& request, PassedNames const& passed)
{
    checkValueIsPassed(request, passed);
    checkNth(request);
}

void checkComment(Request const& request, PassedNames const&)
{
    checkNth(request);
    if (!request.on && (request.all || !request.nth.empty()))
        throw UsageError{std::string(request.all ? "--all" : "--nth") + " needs --on"};
}

void checkUnset(Request const& request, PassedNames const&)
{
    if (!request.wholeStanza && request.key.empty())
        throw missingArgument(request, "KEY or --stanza");
}

void checkEdit(Request const& request, PassedNames const&)
{
    bool const readsScript = request.script.empty() || request.script == "-";
    if (request.file == "-" && readsScript)
        throw UsageError{"FILE and SCRIPT are both standard input"};
}

void checkJava(Request const& request, PassedNames const& passed)
{
    bool const needsValue = request.action == "set";
    bool const needsKey = needsValue || request.action == "get";
    if (needsKey && !passed.has("KEY"))
        throw UsageError{"KEY is required"};
    if (needsValue && !passed.has("VALUE"))
        throw UsageError{"VALUE is required"};
    if (!needsKey && passed.has("KEY"))
        throw UsageError{"unexpected argument \"" + request.key + "\""};
    if (!needsValue && passed.has("VALUE"))
        throw UsageError{"unexpected argument \"" + request.value + "\""};
}

void checkConvert(Request const& request, PassedNames const&)
{
    if (request.javaFrom.empty() && request.javaTo.empty())
        throw UsageError{"--from or --to is required"};
}

void checkWatch(Request const& request, PassedNames const&)
{
    if (request.file == kStandardInput)
        throw UsageError{"FILE must not be standard input"};
}

void checkLock(Request const& request, PassedNames const&)
{
    if (!request.show && !request.read && !request.write)
        throw UsageError{"--read, --write or --show is required"};
    if (!request.show && request.command.empty())
        throw UsageError{"-- COMMAND is required"};
}

// ---- The verbs ---------------------------------------------------------------------------------

constexpr char kAllFormats[] = "plain|json|sh|lines";
constexpr char kChangeFormats[] = "plain|json|lines";
constexpr char kPlain[] = "plain";

constexpr Verb kVerbs[] = {
    {"get", "FILE STANZA KEY", "print the value of a key; of several values, the valid one",
     "zstz get /etc/gateway.conf listener port\n"
     "zstz get /etc/gateway.conf listener port --all\n"
     "zstz get /etc/gateway.conf listener idle-timeout --as number --default 30\n"
     "zstz get /etc/gateway.conf listener idle-timeout --template gateway.conf.example",
     kGetOptions, fileOptions | outputOptions, false,
     "--all --as; --line --as; --raw --as; --raw --line; --default --template; "
     "--default --line; --line --template",
     kAllFormats, nullptr, runGet, nullptr, nullptr},
    {"list",
     "FILE [STANZA [KEY]]",
     "print stanzas, keys and values; obfuscated values are masked",
     "zstz list /etc/gateway.conf listener\n"
     "zstz list /etc/gateway.conf --format json",
     {},
     fileOptions | outputOptions,
     false,
     "",
     kAllFormats,
     nullptr,
     runList,
     nullptr,
     nullptr},
    {"stanzas",
     "FILE",
     "print the stanza names",
     "zstz stanzas /etc/gateway.conf",
     {},
     fileOptions | outputOptions,
     false,
     "",
     "plain|json|lines",
     nullptr,
     runStanzas,
     nullptr,
     nullptr},
    {"keys",
     "FILE STANZA",
     "print the key names of a stanza",
     "zstz keys /etc/gateway.conf listener",
     {},
     fileOptions | outputOptions,
     false,
     "",
     "plain|json|lines",
     nullptr,
     runKeys,
     nullptr,
     nullptr},
    {"check",
     "FILE...",
     "validate files and count their stanzas, keys and values",
     "zstz check /etc/gateway.conf",
     {},
     fileOptions | outputOptions,
     false,
     "",
     "plain|json",
     nullptr,
     runCheck,
     nullptr,
     nullptr},
    {"lint", "FILE...", "print every invalid line, and every questionable line",
     "zstz lint /etc/gateway.conf\nzstz lint --format json /etc/*.conf\n"
     "zstz lint --template gateway.conf.example /etc/gateway.conf",
     kLintOptions, fileOptions | outputOptions, false, "", "plain|json", nullptr, runLint, nullptr,
     nullptr},
    {"set", "FILE STANZA KEY [VALUE]",
     "set a key to a single value; creates the stanza and the key",
     "zstz set /etc/gateway.conf listener port 8443\n"
     "zstz set /etc/gateway.conf upstream password --obfuscated <password.txt",
     kSetOptions, fileOptions | changeOptions, false,
     "--obfuscated VALUE; --bare VALUE; --bare --raw; --bare --obfuscated; --bare --normalise; "
     "--obfuscated --raw; --raw --normalise; --all --old; --all --nth; --old "
     "--nth; --obfuscated --old; --obfuscated "
     "--nth",
     "", checkSet, nullptr, prepareValue, applySet},
    {"add", "FILE STANZA KEY [VALUE]", "add a value, unless the key already has it",
     "zstz add /etc/gateway.conf listener address 10.0.0.7", kAddOptions,
     fileOptions | changeOptions, false,
     "--obfuscated VALUE; --obfuscated --raw; --raw --normalise; --obfuscated --first; "
     "--obfuscated --before; --obfuscated --behind; "
     "--first --before; --first --behind; --before --behind",
     "", checkValueIsPassed, nullptr, prepareValue, applyAdd},
    {"unset", "FILE STANZA [KEY [VALUE]]", "remove a value, a key or a stanza",
     "zstz unset /etc/gateway.conf listener motd\n"
     "zstz unset /etc/gateway.conf listener port --all\n"
     "zstz unset /etc/gateway.conf upstream --stanza",
     kUnsetOptions, fileOptions | changeOptions, false, "--stanza KEY; --stanza --all; --all VALUE",
     "", checkUnset, nullptr, prepareUnset, applyUnset},
    {"rename",
     "FILE STANZA [KEY] NEW",
     "rename a key or a stanza in its place",
     "zstz rename /etc/gateway.conf listener port listen\n"
     "zstz rename /etc/gateway.conf listener front",
     {},
     fileOptions | changeOptions,
     false,
     "",
     "",
     nullptr,
     nullptr,
     prepareRename,
     applyRename},
    {"comment", "FILE [STANZA [KEY]] TEXT\nFILE STANZA KEY --off|--on",
     "set the comment above a key, a stanza or at the start of the file",
     "zstz comment /etc/gateway.conf listener port \"ports to listen on\"\n"
     "zstz comment /etc/gateway.conf \"The gateway of the office.\"\n"
     "zstz comment /etc/gateway.conf listener motd --off",
     kCommentOptions, fileOptions | changeOptions, false,
     "--off --on; --off --above; --on --above; --off --normalise; --on --normalise; --nth --all",
     "", checkComment, nullptr, prepareComment, applyComment},
    {"edit",
     "FILE [SCRIPT]",
     "make the changes of a script, all or none",
     "zstz edit /etc/gateway.conf changes.txt\n"
     "zstz edit /etc/gateway.conf --dry-run <changes.txt",
     {},
     fileOptions | changeOptions,
     false,
     "",
     "",
     checkEdit,
     runEdit,
     nullptr,
     nullptr},
    {"fmt", "FILE", "store a file in one style", "zstz fmt /etc/gateway.conf", kFmtOptions,
     fileOptions | changeOptions, false, "--check --dry-run", "", nullptr, runFmt, nullptr,
     nullptr},
    {"java", "FILE ACTION [KEY [VALUE]]", "read or change a Java property file",
     "zstz java app.properties get greeting\nzstz java app.properties set greeting hello\n"
     "zstz java app.properties list",
     kJavaOptions, noOptions, true, "", "", checkJava, runJava, nullptr, nullptr},
    {"convert", "FILE STANZA", "convert a stanza from or to a Java property file",
     "zstz convert /etc/gateway.conf app --from app.properties\n"
     "zstz convert /etc/gateway.conf app --to app.properties",
     kConvertOptions, fileOptions | changeOptions, false,
     "--to --from; --to --dry-run; --to --backup; --to --normalise; --to --create", "",
     checkConvert, runConvert, nullptr, nullptr},
    {"diff", "A B", "print the changes from one file to another, by stanza and key",
     "zstz diff /etc/gateway.conf.bak /etc/gateway.conf\n"
     "zstz diff --text gateway.conf /etc/gateway.conf",
     kDiffOptions, fileOptions | outputOptions, false, "--text --format; --text --null",
     kChangeFormats, nullptr, runDiff, nullptr, nullptr},
    {"merge", "BASE OURS THEIRS",
     "make the changes of another version of BASE in OURS, and mark conflicts",
     "zstz merge gateway.conf.orig /etc/gateway.conf gateway.conf.new\n"
     "git config merge.zstz.driver 'zstz merge %O %A %B --path %P'\n"
     "echo '*.conf merge=zstz' >>.gitattributes",
     kMergeOptions, fileOptions | outputOptions, false, "", kPlain, nullptr, runMerge, nullptr,
     nullptr},
    {"watch",
     "FILE [STANZA [KEY]]",
     "print the changes of a file as they happen: STANZA KEY OLD NEW",
     "zstz watch /etc/gateway.conf listener\n"
     "zstz watch /etc/gateway.conf --format json",
     {},
     fileOptions | outputOptions,
     false,
     "",
     kChangeFormats,
     checkWatch,
     runWatch,
     nullptr,
     nullptr},
    {"doc",
     "TEMPLATE",
     "print the keys of a template, with their types, defaults and help",
     "zstz doc gateway.conf.example >gateway.md\n"
     "zstz doc gateway.conf.example --format json",
     {},
     fileOptions | outputOptions,
     false,
     "",
     kChangeFormats,
     nullptr,
     runDoc,
     nullptr,
     nullptr},
    {"dialects",
     "[FILE]",
     "print the names of the dialects, or the dialect of a file",
     "zstz dialects\nzstz dialects /etc/systemd/system/gateway.service",
     {},
     fileOptions | outputOptions,
     false,
     "",
     kChangeFormats,
     nullptr,
     runDialects,
     nullptr,
     nullptr},
    {"help",
     "[VERB]",
     "print this help, or the help of a verb",
     "zstz help\nzstz help set",
     {},
     noOptions,
     false,
     "",
     "",
     nullptr,
     runHelp,
     nullptr,
     nullptr},
    {"completion",
     "SHELL [-- COMMAND...]",
     "print a script that completes command lines of zstz in a shell",
     "source <(zstz completion bash)\n"
     "zstz completion zsh >~/.zsh/functions/_zstz\n"
     "zstz completion fish >~/.config/fish/completions/zstz.fish",
     {},
     noOptions,
     false,
     "",
     "",
     nullptr,
     runCompletion,
     nullptr,
     nullptr},
    {"lock", "NAME [-- COMMAND...]", "run a command under a process lock",
     "zstz lock --write --dir /run/gateway --wait 10 routes -- make -C /etc/gateway routes\n"
     "zstz lock --read routes -- cat routes.conf\nzstz lock --show --dir /run/gateway routes",
     kLockOptions, noOptions, false,
     "--write --read; --show --read; --show --write; --show --wait; --show COMMAND...", "",
     checkLock, runLock, nullptr, nullptr},
    {"hexdump",
     "FILE...",
     "print files as a hex dump; - is standard input",
     "zstz hexdump /etc/gateway.conf.obf\nhead -c 64 /dev/urandom | zstz hexdump -",
     {},
     noOptions,
     false,
     "",
     "",
     nullptr,
     runHexdump,
     nullptr,
     nullptr},
};

}  // namespace

std::span<Verb const> verbs()
{
    return kVerbs;
}

Verb const* findVerb(std::string_view name)
{
    for (Verb const& verb : kVerbs)
        if (verb.name == name)
            return &verb;
    return nullptr;
}

std::string similarVerbRemedy(std::string const& command, std::string_view name)
{
    NearestName nearest(name);
    for (Verb const& verb : kVerbs)
        nearest.compare(verb.name);
    return nearest.found().empty() ? "" : "use '" + command + ' ' + nearest.found() + "', or ";
}

Argument const* findArgument(std::string_view name)
{
    for (Argument const& argument : kArguments)
        if (argument.name == name)
            return &argument;
    return nullptr;
}

std::span<Option const> optionsOfFiles()
{
    return kFileOptions;
}

std::span<Option const> optionsOfOutput()
{
    return kOutputOptions;
}

std::span<Option const> optionsOfChanges()
{
    return kChangeOptions;
}
