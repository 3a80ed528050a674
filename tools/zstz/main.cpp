// zstz: reads and edits stanza configuration files from the command line.
//
// verbs.h has the table of verbs, commands.h declares their functions; failures.h has the exit
// codes.
#include <Z/text/process_locale.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include "arguments.h"

#include "commands.h"
#include "dialect_choice.h"
#include "edited_file.h"
#include "failures.h"
#include "help.h"
#include "process_setup.h"

namespace {

// Describes a missing or unknown verb.
Failure describeVerb(int argc, char const* const* argv)
{
    // An option may have a value.
    for (int i = 2; i < std::min(argc, 4) && argv[1][0] == '-'; ++i) {
        if (findVerb(argv[i]) == nullptr)
            continue;
        std::string const verb = argv[i];
        return {exitUsage,
                "",
                {"option " + quote(argv[1]) + " is before the command " + quote(verb),
                 "put it after the command, as in 'zstz " + verb + ' ' + argv[1] + "'"}};
    }
    std::string const list = "run 'zstz --help' for a list";
    if (argc < 2)
        return {exitUsage, "", {"missing command", list}};
    if (argv[1][0] == '-')
        return {exitUsage, "", {"unknown option " + quote(argv[1]), list}};
    return {exitUsage,
            "",
            {"unknown command " + quote(argv[1]), similarVerbRemedy("zstz", argv[1]) + list}};
}

Failure describeUsage(Verb const& verb, UsageError const& error)
{
    std::string const command = "run 'zstz " + std::string(verb.name) + " --help'";
    return {exitUsage,
            verb.name,
            {error.problem, error.remedy.empty() ? command : error.remedy + ", or " + command}};
}

// Runs the command line and returns the exit code.
int run(int argc, char const* const* argv, Request& request)
{
    std::string_view const name = argc < 2 ? "" : argv[1];
    if (name == "--help" || name == "-h" || name == "--version") {
        fputs(name == "--version" ? "zstz 6.0\n" : formatHelp().c_str(), stdout);
        return exitDone;
    }
    Verb const* const verb = findVerb(name);
    if (verb == nullptr)
        return report(describeVerb(argc, argv));
    try {
        if (!parseArguments(*verb, {argv + 2, argv + argc}, request)) {
            fputs(formatHelp(*verb).c_str(), stdout);
            return exitDone;
        }
        resolveNames(request);
        if (verb->prepare != nullptr)
            verb->prepare(request);
        return verb->run != nullptr ? verb->run(request) : runChange(request, verb->apply);
    } catch (UsageError const& error) {
        int const code = report(describeUsage(*verb, error));
        return request.path.empty() ? code : kStopsGit + code;
    }
}

}  // namespace

int main(int argc, char** argv)
{
    openStandardDescriptors();
    // The other categories are files that no command reads, and a decimal comma would change
    // numbers.
    setlocale(LC_CTYPE, "");
    ztext::keepProcessLocale();
    Request request;
    request.hasSetTablesVariable = setTablesVariable();
    try {
        int const code = run(argc, argv, request);
        if (code != exitUsage)
            requirePrinted();
        return code;
    } catch (...) {
        return report(describe(std::current_exception(), request.file));
    }
}
