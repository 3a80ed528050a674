// edit: the verb edit, which makes the changes of a script together, or none of them.
#include <errno.h>
#include <stdio.h>

#include <exception>
#include <memory>

#include "arguments.h"
#include "commands.h"
#include "dialect_choice.h"
#include "edited_file.h"
#include "failures.h"
#include "shell_words.h"

namespace {

// A line of a script.
struct Step {
    size_t line;
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
    step.request.dialect = script.dialect;
    step.request.quiet = script.quiet;
    resolveNames(step.request);
    if (verb->prepare != nullptr)
        verb->prepare(step.request);
    return step;
}

std::vector<Step> parseScript(Request const& request)
{
    std::vector<Step> steps;
    std::string const script = readScript(request);
    size_t line = 0;
    for (size_t at = 0; at < script.size();) {
        size_t const end = std::min(script.find('\n', at), script.size());
        std::string_view const text = std::string_view(script).substr(at, end - at);
        at = end + 1;
        runStep(request, ++line, [&] {
            std::vector<std::string> words;
            if (text.find('\0') != text.npos || !splitShellWords(text, words))
                throw UsageError{"a quote is not closed, or a byte is zero", "correct the line"};
            if (!words.empty())
                steps.push_back(parseStep(request, line, words));
        });
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
