// zfleet: reads and changes configurations in a cluster from the command line.
//
// The program contains the sources of zstz: output, exit codes and reading verbs are the same. A
// path other than "etcd://FLEET/NAME" is a local stanza file.
#include <Z/ZException.h>
#include <Z/text/process_locale.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <utility>

#include "arguments.h"
#include "commands.h"
#include "failures.h"
#include "fleet_commands.h"
#include "help.h"
#include "process_setup.h"
#include "stanza_file.h"

namespace {

constexpr Option kQuiet = {"--quiet", 'q', nullptr, "print only errors", &Request::quiet};
constexpr Option kFormat = {"--format", 0, "FORMAT", "the form of the output", &Request::format};
constexpr Option kNull = {"--null", '0', nullptr, "end each line of the output with a zero byte",
                          &Request::null};

constexpr Option kGetOptions[] = {
    {"--all", 0, nullptr, "print every value, one per line", &Request::all},
    {"--as", 0, "text|number|boolean", "convert the value; a boolean is printed as yes or no",
     &Request::as},
    {"--default", 0, "VALUE", "the value to print if the key is missing", &Request::fallback,
     &Request::hasFallback},
    kFormat,
    kNull,
    kQuiet,
};
constexpr Option kListOptions[] = {kFormat, kNull, kQuiet};
constexpr Option kSetOptions[] = {
    {"--all", 0, nullptr, "replace all values of the key", &Request::all},
    {"--create", 0, nullptr, "create a missing configuration", &Request::create},
    {"--obfuscated", 0, nullptr, "keep the value out of the text and read it from standard input",
     &Request::obfuscated},
};

constexpr Option kGeneration = {"--generation", 0, "N", "the number of the generation",
                                &Request::nth};
constexpr Option kShowOptions[] = {kGeneration, kFormat, kNull, kQuiet};
constexpr Option kUndoOptions[] = {kGeneration};

constexpr Option kDryRun = {"--dry-run", 'n', nullptr, "print the difference and change nothing",
                            &Request::dryRun};
constexpr Option kWait = {"--wait", 0, "SECONDS",
                          "wait for a file that another process uses; default: 2", &Request::wait};
constexpr Option kPushOptions[] = {
    {"--create", 0, nullptr, "create a missing configuration", &Request::create},
    kDryRun,
    {"--force", 0, nullptr,
     "replace a configuration with all its changes, also if it cannot be read",
     &Request::overwrite},
    {"--generation", 0, "N", "store only the changes of the file since generation N, a copy of it",
     &Request::nth},
    {"--reason", 0, "TEXT", "the reason that the log records", &Request::text},
    kQuiet,
    kWait,
};
constexpr Option kLockOptions[] = {
    {"--read", 0, nullptr, "lock for reading; other readers may hold the lock too", &Request::read},
    {"--write", 0, nullptr, "lock exclusively, and increment the sequence number afterwards",
     &Request::write},
    {"--wait", 0, "SECONDS", "wait for the lock; default: fail immediately", &Request::lockWait},
    {"--show", 0, nullptr, "print the queue and the sequence number; run no command",
     &Request::show},
};
constexpr Option kPullOptions[] = {kDryRun, kQuiet, kWait};

constexpr char kForms[] = "plain|json|sh|lines";
constexpr char kNameForms[] = "plain|json|lines";

void checkShow(Request const& request, PassedNames const&)
{
    if (request.nth.empty())
        throw UsageError{"--generation is required"};
}

void checkSet(Request const& request, PassedNames const&)
{
    if (!request.obfuscated && !request.hasValue)
        throw UsageError{"VALUE is required"};
}

constexpr Verb kVerbs[] = {
    {"get", "FILE STANZA KEY", "print the last value of a key",
     "zfleet get etcd://main/gateway listener port", kGetOptions, noOptions, false, "--all --as",
     kForms, nullptr, runGet, nullptr, nullptr},
    {"list", "FILE [STANZA [KEY]]", "print stanzas, keys and values; obfuscated values are masked",
     "zfleet list etcd://main/gateway listener\nzfleet list etcd://main/gateway --format json",
     kListOptions, noOptions, false, "", kForms, nullptr, runList, nullptr, nullptr},
    {"stanzas", "FILE", "print the stanza names", "zfleet stanzas etcd://main/gateway",
     kListOptions, noOptions, false, "", kNameForms, nullptr, runStanzas, nullptr, nullptr},
    {"keys", "FILE STANZA", "print the key names of a stanza",
     "zfleet keys etcd://main/gateway listener", kListOptions, noOptions, false, "", kNameForms,
     nullptr, runKeys, nullptr, nullptr},
    {"set", "FILE STANZA KEY [VALUE]",
     "set a key to a single value; creates the stanza and the key",
     "zfleet set etcd://main/gateway listener port 8443\n"
     "zfleet set etcd://main/gateway upstream password --obfuscated <password.txt",
     kSetOptions, noOptions, false, "--obfuscated VALUE", "", checkSet, runFleetSet, prepareValue,
     nullptr},
    {"push", "FILE CONFIGURATION",
     "replace a configuration by a local file, and print the difference",
     "zfleet push gateway.conf etcd://main/gateway --dry-run\n"
     "zfleet push gateway.conf etcd://main/gateway --create\n"
     "zfleet push gateway.conf etcd://main/gateway --generation 12",
     kPushOptions, noOptions, false, "--force --generation; --create --generation", "", nullptr,
     runPush, nullptr, nullptr},
    {"pull", "CONFIGURATION FILE",
     "replace a local file by a configuration, and print the difference",
     "zfleet pull etcd://main/gateway gateway.conf", kPullOptions, noOptions, false, "", "",
     nullptr, runPull, nullptr, nullptr},
    {"log", "FILE", "print the generations of a configuration, the latest first",
     "zfleet log etcd://main/gateway\nzfleet log etcd://main/gateway --format json", kListOptions,
     noOptions, false, "", kNameForms, nullptr, runFleetLog, nullptr, nullptr},
    {"show", "FILE [STANZA [KEY]]", "print an earlier generation, as list does",
     "zfleet show etcd://main/gateway --generation 12", kShowOptions, noOptions, false, "", kForms,
     checkShow, runFleetShow, nullptr, nullptr},
    {"undo", "FILE",
     "undo the change of a generation, by default of the latest; later changes stay",
     "zfleet undo etcd://main/gateway\nzfleet undo etcd://main/gateway --generation 12",
     kUndoOptions, noOptions, false, "", "", nullptr, runFleetUndo, nullptr, nullptr},
    {"lock", "NAME [-- COMMAND...]", "run a command under a lock between machines",
     "zfleet lock --write --wait 10 etcd://main/routes -- make -C /etc/gateway routes\n"
     "zfleet lock --show etcd://main/routes",
     kLockOptions, noOptions, false,
     "--write --read; --show --read; --show --write; --show --wait; --show COMMAND...", "",
     checkFleetLock, runFleetLock, nullptr, nullptr},
    {"status", "NAME", "print the state of each endpoint of the fleet NAME", "zfleet status main",
     kListOptions, noOptions, false, "", kNameForms, nullptr, runFleetStatus, nullptr, nullptr},
};

constexpr char kHelp[] = R"(zfleet: read and change configurations in a cluster
usage: zfleet VERB [OPTION...] etcd://FLEET/NAME [STANZA [KEY [VALUE]]]

  get FILE STANZA KEY          the last value of a key; --all, --as number|boolean|text, --default V
  list FILE [STANZA [KEY]]     everything; stanzas FILE, keys FILE STANZA: only names
  set FILE STANZA KEY VALUE    the one value; --all to replace several, --create, --obfuscated
  push FILE CONFIGURATION      a local file to the cluster, with a diff; -n, --create, --force, or
                               --generation N: only the changes since generation N
  pull CONFIGURATION FILE      a configuration to a local file, with a diff; -n
  log FILE                     the generations, the latest first
  show FILE [STANZA [KEY]]     an earlier generation; --generation N
  undo FILE                    undoes the last change; --generation N another change. Later ones stay
  lock NAME -- COMMAND...      runs a command under a lock; --read, --write, --wait SECONDS, --show
  status FLEET                 the state of each endpoint

FILE is etcd://FLEET/NAME, or the path of a local stanza file. FLEET is a stanza of the file of the
fleets, which ZFLEETCONF can name. The NAME of a lock is etcd://FLEET/NAME.
exit     0 done, 1 not found, 2 usage, 3 invalid data, 4 cannot reach, read or write, 5 other
         programs were faster, or hold the lock, or the lock was lost, 6 invalid value, 7 change
         refused, 8 an endpoint does not reply, 9 internal; of lock also the code of COMMAND, or
         126, 127, or 128 plus a signal
zfleet VERB --help has examples; zfleet(1)
)";

Verb const* findFleetVerb(std::string_view name)
{
    for (Verb const& verb : kVerbs)
        if (name == verb.name)
            return &verb;
    return nullptr;
}

int reportUsage(std::string const& where, std::string const& problem, std::string const& remedy)
{
    return report({exitUsage, where, {problem, remedy}});
}

int run(int argc, char const* const* argv, Request& request)
{
    std::string_view const name = argc < 2 ? "" : argv[1];
    if (name == "--help" || name == "-h" || name == "help" || name == "--version") {
        fputs(name == "--version" ? "zfleet 6.0\n" : kHelp, stdout);
        return exitDone;
    }
    Verb const* const verb = findFleetVerb(name);
    if (verb == nullptr)
        return reportUsage(
            "", argc < 2 ? "missing command" : "unknown command " + quote(std::string(name)),
            "run 'zfleet --help' for a list");
    // The name of a configuration does not determine a dialect.
    request.dialect = "stanza";
    try {
        if (!parseArguments(*verb, {argv + 2, argv + argc}, request)) {
            fputs(formatHelp(*verb).c_str(), stdout);
            return exitDone;
        }
        if (verb->prepare != nullptr)
            verb->prepare(request);
        return verb->run(request);
    } catch (UsageError const& error) {
        std::string const help = "run 'zfleet " + std::string(name) + " --help'";
        return reportUsage(std::string(name), error.problem,
                           error.remedy.empty() ? help : error.remedy + ", or " + help);
    }
}

// Drops the suggestion to read a file as another dialect: no verb of this tool takes a dialect.
Failure withoutDialect(Failure failure)
{
    std::string& remedy = failure.problem.remedy;
    remedy.erase(std::min(remedy.find("; reads as "), remedy.size()));
    for (Failure& other : failure.further)
        other = withoutDialect(std::move(other));
    return failure;
}

}  // namespace

int main(int argc, char** argv)
{
    setToolName("zfleet");
    openStandardDescriptors();
    // The other categories are files that no command reads, and a decimal comma would change
    // numbers.
    setlocale(LC_CTYPE, "");
    ztext::keepProcessLocale();
    setTablesVariable();
    // gRPC would print lines of its own on standard error.
    setenv("GRPC_VERBOSITY", "NONE", 0);
    setRemoteLoader(loadConfiguration);
    Request request;
    try {
        int const code = run(argc, argv, request);
        if (code != exitUsage)
            requirePrinted();
        return code;
    } catch (ZPropertiesIOException_6_0 const& exception) {
        return report(describeFleetError(exception, request));
    } catch (ZPropertiesMissingPropertyException_6_0 const& exception) {
        return report(describeFleetError(exception));
    } catch (ZPropertiesInvalidValueException_6_0 const& exception) {
        return report(describeFleetError(exception));
    } catch (...) {
        return report(withoutDialect(describe(std::current_exception(), request.file)));
    }
}
