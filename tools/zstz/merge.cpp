// merge: the verb merge.
#include <Z/lines/difference.h>
#include <Z/lines/text_merge.h>
#include <Z/lines/unified_diff.h>
#include <Z/stanza/stanza_dialect.h>
#include <stdio.h>

#include "busy.h"
#include "commands.h"
#include "edit_lock.h"
#include "failures.h"
#include "output.h"
#include "problems.h"
#include "raw_file.h"
#include "stanza_file.h"

namespace {

// Returns the name of a version in reports. The paths of a merge driver are temporary.
std::string nameOf(Request const& request, std::string const& path, char const* version)
{
    if (!request.path.empty())
        return request.path + " (" + version + ')';
    return path == kStandardInput ? kStandardInputName : path;
}

// Refuses contents that cannot be loaded.
void requireReadable(std::string const& text, std::string const& name)
{
    Problems const problems = Problems::ofText(text);
    for (unsigned i = 0; i < problems.size(); ++i) {
        ZStanzaProblem_6_0 const& problem = problems[i];
        bool const isOfCompanion = problem.cause() == ZStanzaProblem_6_0::unreadableCompanion ||
                                   problem.cause() == ZStanzaProblem_6_0::damagedCompanion;
        if (problem.kind() == ZStanzaProblem_6_0::error && !isOfCompanion)
            throw Failure{exitInvalidData, nameLine(name, problem.line()),
                          splitText(toStdString(problem.text()))};
    }
}

zlines::MergedText mergeTexts(Request const& request, std::string const& ours)
{
    std::string const base = readText(request.base, request.wait);
    std::string const theirs = readText(request.other, request.wait);
    requireReadable(base, nameOf(request, request.base, "base"));
    requireReadable(ours, nameOf(request, request.file, "ours"));
    requireReadable(theirs, nameOf(request, request.other, "theirs"));
    try {
        return zlines::mergeTexts(base, ours, theirs, zstanza::stanzaDialect());
    } catch (zlines::Refusal const& refusal) {
        throw Failure{exitInvalidValue,
                      nameOf(request, request.file, "ours"),
                      {nameKey(refusal.key, refusal.stanza) + ": " + quote(refusal.value) +
                           " does not fit into its line",
                       "merge this value by hand"}};
    }
}

// Stores or prints the result.
void finish(Request const& request, std::string const& ours, std::string const& text)
{
    std::string const name = request.path.empty() ? request.file : request.path;
    if (request.dryRun) {
        std::string const diff = zlines::formatUnifiedDiff(ours, text, name, name);
        fwrite(diff.data(), 1, diff.size(), stdout);
    } else if (request.file == kStandardInput) {
        fwrite(text.data(), 1, text.size(), stdout);
    } else {
        storeText(request.file, ours, text);
    }
}

}  // namespace

int runMerge(Request const& request)
{
    size_t conflicts = 0;
    auto const merge = [&] {
        std::string const ours = readText(request.file, 0);
        zlines::MergedText const merged = mergeTexts(request, ours);
        finish(request, ours, merged.text);
        conflicts = merged.conflicts;
    };
    if (request.file == kStandardInput) {
        merge();
    } else {
        Deadline const deadline(request.wait);
        EditLock const lock(request.file, deadline);
        retryWhileBusy(deadline, merge);
    }
    if (conflicts == 0)
        return exitDone;
    if (!request.dryRun && request.file != kStandardInput)
        printLine(request, (request.path.empty() ? request.file : request.path) + ": " +
                               formatCount(conflicts, "conflict", "conflicts") +
                               "; edit the lines between the marks");
    return exitDiffers;
}
