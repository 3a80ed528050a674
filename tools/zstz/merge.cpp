// merge: the verb merge.
//
// As a merge driver of git, which passes --path, it must not leave OURS as it is and report a
// conflict: a commit would lose the other version. If a version cannot be read, the versions are
// merged line by line; any other failure stops git.
#include <Z/ZStanzaDialect_p.h>
#include <Z/dialects/switched_dialect.h>
#include <Z/lines/difference.h>
#include <Z/lines/text_merge.h>
#include <Z/lines/unified_diff.h>
#include <Z/stanza/reserved_entry.h>
#include <Z/stanza/stanza_dialect.h>
#include <stdio.h>

#include <optional>

#include "busy.h"
#include "commands.h"
#include "dialect_choice.h"
#include "edit_lock.h"
#include "failures.h"
#include "line_merge.h"
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
void requireReadable(std::string const& text, std::string const& name,
                     ZStanzaDialect_6_0 const& dialect)
{
    if (std::optional<Failure> const failure =
            describeFailedLoad(Problems::ofText(text, dialect), name, text, dialect))
        throw *failure;
}

struct Versions {
    std::string base;
    std::string ours;
    std::string theirs;
};

struct Result {
    std::string text;
    size_t conflicts;
    bool isValid;  // false: the file can be read no longer
};

// Merges by stanza and key.
Result mergeKeys(Request const& request, Versions const& versions,
                 ZStanzaDialect_6_0 const& dialect)
{
    requireReadable(versions.base, nameOf(request, request.base, "base"), dialect);
    requireReadable(versions.ours, nameOf(request, request.file, "ours"), dialect);
    requireReadable(versions.theirs, nameOf(request, request.other, "theirs"), dialect);
    if (zlines::changesUnreadBytes(versions.base, versions.ours, versions.theirs))
        throw Failure{exitInvalidData,
                      nameOf(request, request.other, "theirs"),
                      {"bytes after a zero byte have changed, which are not read",
                       "remove the zero bytes, or merge by hand"}};
    zdialects::Switches const switches = zdialects::switchesOf(dialect);
    auto const other = switches.isStanzaFormat() ? nullptr : zdialects::dialectWith(switches);
    zlines::Dialect const& reader =
        other == nullptr ? zstanza::stanzaDialect() : static_cast<zlines::Dialect const&>(*other);
    if (zlines::changesLinesPassedOver(versions.base, versions.ours, versions.theirs, reader))
        throw Failure{
            exitInvalidData,
            nameOf(request, request.other, "theirs"),
            {"lines that are passed over, or comments above them, have changed", "merge by hand"}};
    try {
        zlines::MergedText merged =
            zlines::mergeTexts(versions.base, versions.ours, versions.theirs, reader,
                               other == nullptr ? zstanza::kReservedCategory : "");
        return {std::move(merged.text), merged.conflicts, true};
    } catch (zlines::Refusal const& refusal) {
        if (refusal.reason == zlines::Refusal::leavesNoKey)
            throw Failure{exitRefused,
                          nameOf(request, request.file, "ours"),
                          {"both sides together leave neither a header nor a key, and programs "
                           "would refuse the file",
                           "merge by hand"}};
        throw Failure{exitInvalidValue,
                      nameOf(request, request.file, "ours"),
                      {nameKey(refusal.key, refusal.stanza) + ": " + quote(refusal.value) +
                           " does not fit into its line",
                       "merge this value by hand"}};
    }
}

bool isReadable(std::string const& text, ZStanzaDialect_6_0 const& dialect)
{
    try {
        requireReadable(text, "", dialect);
        return true;
    } catch (Failure const&) {
        return false;
    }
}

// Merges by line, because the versions cannot be merged by key.
Result mergeByLine(Versions const& versions, ZStanzaDialect_6_0 const& dialect)
{
    MergedLines merged = mergeLines(versions.base, versions.ours, versions.theirs);
    bool const isValid = isReadable(merged.text, dialect) || !isReadable(versions.ours, dialect);
    return {std::move(merged.text), merged.conflicts, isValid};
}

// range   `reason` is set if the versions were merged line by line.
Result merge(Request const& request, Versions const& versions, std::optional<Failure>& reason)
{
    std::string const& name = request.path.empty() ? request.file : request.path;
    ZStanzaDialect_6_0 const dialect = chooseDialect(request, name, nullptr, &versions.ours);
    try {
        return mergeKeys(request, versions, dialect);
    } catch (Failure const& failure) {
        if (request.path.empty())
            throw;
        reason = failure;
        return mergeByLine(versions, dialect);
    }
}

// Stores or prints the result.
void finish(Request const& request, std::string const& ours, std::string const& text)
{
    std::string const name = request.path.empty() ? request.file : request.path;
    if (request.dryRun) {
        std::string const diff =
            zlines::formatUnifiedDiff(ours, text, patchPath(name), patchPath(name));
        fwrite(diff.data(), 1, diff.size(), stdout);
    } else if (request.file == kStandardInput) {
        fwrite(text.data(), 1, text.size(), stdout);
    } else {
        storeText(request.file, ours, text);
    }
}

int mergeFiles(Request const& request)
{
    Result merged = {};
    std::optional<Failure> reason;
    Versions versions;
    versions.base = readText(request.base, request.wait);
    versions.theirs = readText(request.other, request.wait);
    auto const run = [&] {
        versions.ours = readText(request.file, 0);
        reason.reset();
        merged = merge(request, versions, reason);
        finish(request, versions.ours, merged.text);
    };
    if (request.file == kStandardInput) {
        run();
    } else {
        Deadline const deadline(request.wait);
        EditLock const lock(request.file, deadline);
        retryWhileBusy(deadline, run);
    }
    if (reason) {
        reason->problem.text += ", so the versions are merged line by line";
        report(*reason);
    }
    bool const isStored = !request.dryRun && request.file != kStandardInput;
    std::string const& name = request.path.empty() ? request.file : request.path;
    if (merged.conflicts > 0 && isStored)
        printLine(request, name + ": " + formatCount(merged.conflicts, "conflict", "conflicts") +
                               "; edit the lines between the marks");
    else if (!merged.isValid && isStored)
        printLine(request, name + ": merged, but cannot be read; correct the reported line");
    return merged.conflicts > 0 || !merged.isValid ? exitDiffers : exitDone;
}

}  // namespace

int runMerge(Request const& request)
{
    if (request.path.empty())
        return mergeFiles(request);
    try {
        return mergeFiles(request);
    } catch (...) {
        return kStopsGit + report(describe(std::current_exception(), request.path));
    }
}
