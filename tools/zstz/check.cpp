// check: the verb zstz check, which validates files and counts their contents.
#include <algorithm>
#include <exception>

#include "busy.h"
#include "commands.h"
#include "failures.h"
#include "output.h"
#include "problems.h"
#include "stanza_file.h"

namespace {

std::string formatNote(std::string const& path, ZStanzaProblem_6_0 const& problem)
{
    return nameLine(path, problem.line()) + ": note: " + textOf(problem);
}

void checkFile(Request const& request, std::string const& path)
{
    Store store(chooseDialect(request, path));
    loadFile(path, request.wait, store);
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
    if (path == kStandardInput || !store.isStanzaFile())
        return;
    // First the lines that are not read completely, then the lines that are ignored.
    using Problem = ZStanzaProblem_6_0;
    Problems const problems(path, request.wait);
    for (bool const isIgnored : {false, true})
        for (unsigned i = 0; i < problems.size(); ++i) {
            Problem::Cause const cause = problems[i].cause();
            if (isIgnored ? cause == Problem::droppedLine || cause == Problem::omitted
                          : cause == Problem::splitLine || cause == Problem::zeroByte)
                printLine(request, formatNote(path, problems[i]));
        }
}

}  // namespace

int runCheck(Request const& request)
{
    int worst = exitDone;
    for (std::string const& path : request.files) {
        try {
            checkFile(request, path);
        } catch (...) {
            worst = std::max(worst, report(describe(std::current_exception(), path)));
        }
    }
    return worst;
}
