// edit: the verb edit, which makes the changes of a script together, or none of them.
#include <errno.h>
#include <stdio.h>

#include <algorithm>
#include <exception>
#include <memory>

#include "arguments.h"
#include "commands.h"
#include "dialect_choice.h"
#include "edited_file.h"
#include "failures.h"
#include "shell_words.h"

namespace {

// A change of a script.
struct Step {
    size_t line;  // its first
    Verb const* verb;
    Request request;
};

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};

bool isStandardInput(Request const& request)
{
    return request.script.empty() || request.script == kStandardInput;
}

std::string readScript(Request const& request)
{
    if (isStandardInput(request))
        return readStandardInput("the script");
    std::unique_ptr<FILE, CloseFile> const file(fopen(request.script.c_str(), "re"));
    if (file == nullptr)
        throw describeOpenError(request.script, errno);
    std::string text;
    char chunk[65536];
    size_t length;
    while ((length = fread(chunk, 1, sizeof chunk, file.get())) > 0)
        text.append(chunk, length);
    if (ferror(file.get()) != 0)
        throw Failure{exitNoAccess, request.script, {"cannot read the script", "check its path"}};
    return text;
}

std::string nameStep(Request const& request, size_t line)
{
    return nameLine(isStandardInput(request) ? kStandardInputName : request.script, line);
}

// Runs `action`. A failure names the line of the script.
template <class Action>
void runStep(Request const& script, size_t line, Action action)
{
    std::string const where = nameStep(script, line);
    try {
        action();
    } catch (UsageError const& error) {
        throw Failure{exitUsage, where, {error.problem, error.remedy}};
    } catch (...) {
        Failure failure = describe(std::current_exception(), script.file);
        failure.where = where;
        throw failure;
    }
}

Step parseStep(Request const& script, size_t line, std::vector<std::string> const& words)
{
    Verb const* const verb = findVerb(words.front());
    if (verb == nullptr || verb->apply == nullptr)
        throw UsageError{"no change has the name " + quote(words.front()),
                         "use set, add, unset, rename or comment"};
    Step step = {line, verb, {}};
    step.request.dialect = script.dialect;
    bool hasArguments = false;
    try {
        hasArguments =
            parseArguments(*verb, {words.begin() + 1, words.end()}, step.request, &script.file);
    } catch (UsageError& error) {
        if (error.remedy.empty())
            error.remedy = "see 'zstz " + words.front() + " --help'";
        throw;
    }
    if (!hasArguments || step.request.obfuscated)
        throw UsageError{step.request.obfuscated ? "a script cannot have obfuscated values"
                                                 : "a script cannot print help",
                         "run the verb by itself"};
    if (script.normalise && (step.request.raw || step.request.off || step.request.on))
        throw UsageError{"a line with --raw, --off or --on excludes --normalise of the script",
                         "leave out --normalise"};
    step.request.normalise = script.normalise;
    step.request.quiet = script.quiet;
    resolveNames(step.request);
    if (verb->prepare != nullptr)
        verb->prepare(step.request);
    return step;
}

// Returns the number of a line of a script, from 1.
size_t lineAt(std::string_view script, size_t position)
{
    script = script.substr(0, position);
    return 1 + static_cast<size_t>(std::count(script.begin(), script.end(), '\n'));
}

std::vector<Step> parseScript(Request const& request)
{
    std::vector<Step> steps;
    std::string const script = readScript(request);
    auto const refuse = [&](size_t position, char const* problem, char const* remedy) {
        throw Failure{exitUsage, nameStep(request, lineAt(script, position)), {problem, remedy}};
    };
    size_t line = 1;
    for (size_t at = 0; at < script.size();) {
        ShellLine const read = readShellLine(script, at);
        std::string_view const text = std::string_view(script).substr(at, read.end - at);
        if (size_t const zero = text.find('\0'); zero != text.npos)
            refuse(at + zero, "a byte is zero", "remove it");
        if (read.fault == ShellLine::Fault::openQuote)
            refuse(read.faultAt, "a quote is not closed", "close it, or quote it with a backslash");
        if (read.fault == ShellLine::Fault::backslashAtEnd)
            refuse(read.faultAt, "a backslash ends the line",
                   "double it, or put a line break in quotes");
        if (!read.words.empty())
            runStep(request, line, [&] { steps.push_back(parseStep(request, line, read.words)); });
        line += static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
        at = read.end;
    }
    return steps;
}

}  // namespace

int runEdit(Request const& request)
{
    std::vector<Step> const steps = parseScript(request);
    return runChange(request, [&](EditedFile& file, Request const&) {
        for (Step const& step : steps)
            runStep(request, step.line, [&] { step.verb->apply(file, step.request); });
    });
}
