// check: the verb zstz check, which validates files and counts their contents.
#include <algorithm>
#include <exception>
#include <vector>

#include "busy.h"
#include "commands.h"
#include "failures.h"
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

void checkFile(Request const& request, std::string const& path)
{
    Store store(chooseDialect(request, path));
    load(request, path, store);
    size_t stanzas = 0, keys = 0, values = 0;
    for (Stanza const& stanza : outlineOf(store)) {
        ++stanzas;
        keys += stanza.keys.size();
        for (std::string const& key : stanza.keys)
            values +=
                static_cast<size_t>(store.contents().countValues(stanza.name.c_str(), key.c_str()));
    }
    printLine(request, path + ": " + formatCount(stanzas, "stanza", "stanzas") + ", " +
                           formatCount(keys, "key", "keys") + ", " +
                           formatCount(values, "value", "values"));
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
