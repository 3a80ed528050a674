// check: the verb zstz check, which validates files and counts their contents.
#include <algorithm>
#include <exception>
#include <vector>

#include "busy.h"
#include "commands.h"
#include "failures.h"
#include "json.h"
#include "output.h"
#include "problems.h"
#include "stanza_file.h"

namespace {

using Note = ZStanzaProblem_6_0;

// Loads a file.
// throws  as loadFile(); std::vector<Failure>, not empty, with each error of an invalid file.
void load(Request const& request, std::string const& path, Store& store)
{
    if (path == kStandardInput) {
        std::string const text = readStandardInput();
        std::vector<Failure> const errors = describeErrors(
            Problems::ofText(text, store.dialect()), kStandardInputName, text, store.dialect());
        if (!errors.empty())
            throw errors;
        return loadText(text, store);
    }
    try {
        loadFile(path, request.wait, store);
    } catch (...) {
        std::exception_ptr const failure = std::current_exception();
        if (describe(failure, path).code != exitInvalidData)
            throw;
        std::vector<Failure> const errors =
            describeErrors(Problems(path, request.wait, store.dialect()), path, readContents(path),
                           store.dialect());
        if (errors.empty())
            std::rethrow_exception(failure);
        throw errors;
    }
}

// Returns whether a note is about a line that is not read completely or, if `isIgnored`, about a
// line that is not read.
bool isAbout(Note const& problem, bool isIgnored, bool isStanzaFile)
{
    Note::Cause const cause = problem.cause();
    if (!isStanzaFile)
        return isIgnored && problem.kind() == Note::note;
    return isIgnored ? cause == Note::droppedLine || cause == Note::omitted
                     : cause == Note::splitLine || cause == Note::zeroByte;
}

struct Counts {
    size_t stanzas = 0;
    size_t keys = 0;
    size_t values = 0;
};

Counts countContents(Store const& store)
{
    Counts counts;
    for (Stanza const& stanza : outlineOf(store)) {
        ++counts.stanzas;
        counts.keys += stanza.keys.size();
        for (std::string const& key : stanza.keys)
            counts.values +=
                static_cast<size_t>(store.contents().countValues(stanza.name.c_str(), key.c_str()));
    }
    return counts;
}

// Prints an object with the numbers, which are null for an invalid file, and with the problems.
// Returns the exit code.
int checkAsJson(Request const& request, std::string const& path)
{
    Store store(chooseDialect(request, path));
    bool const isInput = path == kStandardInput;
    std::string const text = isInput ? readStandardInput() : "";
    Problems const problems = isInput ? Problems::ofText(text, store.dialect())
                                      : Problems(path, request.wait, store.dialect());
    int worst = exitDone;
    bool isLoaded = true;
    std::string list;
    for (unsigned i = 0; i < problems.size(); ++i) {
        Note const& problem = problems[i];
        bool const isListed = problem.kind() == Note::error ||
                              isAbout(problem, false, store.isStanzaFile()) ||
                              isAbout(problem, true, store.isStanzaFile());
        if (isListed)
            list += (list.empty() ? "" : ", ") + formatJson(path, problem, textOf(problem));
        worst = std::max<int>(worst, codeOf(problem));
        isLoaded = isLoaded && problem.messageNumber() == 0;
    }
    if (isLoaded && isInput)
        loadText(text, store);
    else if (isLoaded)
        loadFile(path, request.wait, store);
    Counts const counts = isLoaded ? countContents(store) : Counts();
    auto const format = [&](size_t count) {
        return isLoaded ? std::to_string(count) : std::string("null");
    };
    printLine(request, "{\"file\": " + toJson(path) + ", \"stanzas\": " + format(counts.stanzas) +
                           ", \"keys\": " + format(counts.keys) + ", \"values\": " +
                           format(counts.values) + ", \"problems\": [" + list + "]}");
    return worst;
}

void checkFile(Request const& request, std::string const& path)
{
    Store store(chooseDialect(request, path));
    load(request, path, store);
    Counts const counts = countContents(store);
    printLine(request, path + ": " + formatCount(counts.stanzas, "stanza", "stanzas") + ", " +
                           formatCount(counts.keys, "key", "keys") + ", " +
                           formatCount(counts.values, "value", "values"));
    if (path == kStandardInput)
        return;
    Problems const problems(path, request.wait, store.dialect());
    for (bool const isIgnored : {false, true})
        for (unsigned i = 0; i < problems.size(); ++i)
            if (isAbout(problems[i], isIgnored, store.isStanzaFile()))
                printLine(request, nameLine(path, problems[i].line(), problems[i].column()) +
                                       ": note: " + textOf(problems[i]));
    std::vector<Failure> const refusals = describeRefusals(problems, path);
    if (!refusals.empty())
        throw refusals;
}

}  // namespace

int runCheck(Request const& request)
{
    int worst = exitDone;
    for (std::string const& path : request.files) {
        try {
            if (request.format == "json")
                worst = std::max(worst, checkAsJson(request, path));
            else
                checkFile(request, path);
        } catch (std::vector<Failure> const& errors) {
            for (Failure const& error : errors)
                worst = std::max(worst, report(error));
        } catch (...) {
            worst = std::max(worst, report(describe(std::current_exception(), path)));
        }
    }
    return worst;
}
