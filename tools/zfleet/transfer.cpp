// transfer: the verbs push and pull, between local stanza files and configurations in a cluster.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <Z/lines/unified_diff.h>
#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "arguments.h"
#include "busy.h"
#include "configuration/parsing.h"
#include "configuration/session.h"
#include "edited_file.h"
#include "fleet_commands.h"
#include "key_lines.h"
#include "output.h"
#include "problems.h"
#include "translate_failures.h"

namespace {

using zfleet::Contents;
using zfleet::Session;
using CachePointer = std::unique_ptr<ZSCFData_6_0>;

constexpr char kSource[] = "tools/zfleet/transfer";

// Contents as bytes and as a cache; no cache: they cannot be read.
struct Side {
    Contents contents;
    CachePointer cache;
};

// A store whose cache keeps each line byte for byte.
class LineStore : public Store {
public:
    LineStore() { setAttributes(ZPCache_6_0::keepComments | ZPCache_6_0::keepLines, nullptr); }
};

// Requires that each line is read as a whole.
void requireWholeLines(std::string const& path, std::string const& text)
{
    using Cause = ZStanzaProblem_6_0::Cause;
    Problems const problems = Problems::ofText(text);
    for (unsigned i = 0; i < problems.size(); ++i) {
        ZStanzaProblem_6_0 const& problem = problems[i];
        if (problem.cause() == Cause::splitLine || problem.cause() == Cause::zeroByte)
            throw Failure{exitRefused, nameLine(path, problem.line(), problem.column()),
                          splitText("not copied: " + textOf(problem))};
    }
}

// Returns whether the obfuscated values differ. Equal ones may have other bytes.
bool differsInSecrets(Side const& before, Side const& after)
{
    if (before.contents.hidden == after.contents.hidden)
        return false;
    if (before.cache == nullptr || after.cache == nullptr)
        return true;
    auto const secretsOf = [](Side const& side) {
        std::map<std::pair<std::string, std::string>, std::vector<std::string>> all;
        for (auto const& [stanza, keys] : zfleet::valuesOf(*side.cache))
            for (auto const& [key, values] : keys)
                if (!values.obfuscated.empty())
                    all[{stanza, key}] = values.obfuscated;
        return all;
    };
    return secretsOf(before) != secretsOf(after);
}

void note(Request const& request, std::string const& path, std::string const& text)
{
    if (!request.quiet)
        fprintf(stderr, "%s: %s: note: %s\n", toolName(), toPrintable(path).c_str(), text.c_str());
}

// Prints the difference between the old and the new contents of the target of a copy.
void printDifference(Request const& request, std::string const& path, bool isNew,
                     Side const& before, Side const& after)
{
    if (request.quiet)
        return;
    std::string const name = patchPath(path);
    std::string const diff = zlines::formatUnifiedDiff(before.contents.text, after.contents.text,
                                                       isNew ? "/dev/null" : name, name);
    fwrite(diff.data(), 1, diff.size(), stdout);
    if (differsInSecrets(before, after))
        note(request, path,
             request.dryRun ? "the obfuscated values would change"
                            : "the obfuscated values have changed");
}

// Reads a configuration. It has no replica to use if no node replies.
Session::Loaded loadFrom(Session& session, char const* path)
{
    Session::Loaded loaded = session.load(path);
    if (loaded.isOffline)
        ZPropertiesIOException_6_0(path, "load()", ENOTCONN).throwException(kSource, 1);
    return loaded;
}

CachePointer parse(std::string const& path, Contents const& contents)
{
    LineStore const prototype;
    return zfleet::parseContents(path.c_str(), contents, prototype.contents());
}

// Returns the present contents of the configuration that a push replaces.
Side readTarget(Request const& request, Contents contents)
{
    try {
        CachePointer cache = parse(request.other, contents);
        return {std::move(contents), std::move(cache)};
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        if (request.overwrite)
            return {std::move(contents), nullptr};
        bool const isLine = e.badline() > 0;
        throw Failure{exitInvalidData,
                      isLine ? nameLine(request.other, static_cast<size_t>(e.badline()), e.column())
                             : request.other,
                      {isLine ? quote(toStdString(e.baddata())) + ": invalid line"
                              : std::string("damaged obfuscated values"),
                       "pass --force to replace the configuration"}};
    }
}

Side readFile(Request const& request)
{
    LineStore store;
    loadFile(request, store);
    requireWholeLines(request.file == kStandardInput ? kStandardInputName : request.file,
                      keptText(store)->text);
    Contents contents = zfleet::formatContents(store.contents());
    // A new cache does not know the name of the companion.
    CachePointer cache = parse(request.file, contents);
    return {std::move(contents), std::move(cache)};
}

void requirePaths(Request const& request)
{
    if (ZFleetProperties_6_0::isFleetPath(request.other.c_str()) == 0)
        throw UsageError{"CONFIGURATION is not in a cluster", "write it as etcd://FLEET/NAME"};
    if (ZFleetProperties_6_0::isFleetPath(request.file.c_str()) != 0)
        throw UsageError{"FILE is not a local file"};
}

// Describes a push of keys that another program has changed since they were read.
Failure describeLostRace(zfleet::Conflict const& conflict, size_t count, std::string const& path)
{
    std::string const what =
        conflict.key.empty() ? "[" + conflict.stanza + "]" : nameKey(conflict.key, conflict.stanza);
    std::string const more = count == 1 ? "" : " and " + std::to_string(count - 1) + " more";
    return {exitLocked, path, {what + more + ": another program was faster", "try again"}};
}

}  // namespace

int runPush(Request const& request)
{
    requirePaths(request);
    char const* const path = request.other.c_str();
    Side const mine = readFile(request);
    zfleet::translateFailures(kSource, path, [&] {
        Session session;
        session.reason = request.text.empty() ? "zfleet push" : request.text;
        Session::Loaded loaded;
        bool isNew = false;
        try {
            loaded = loadFrom(session, path);
        } catch (ZPropertiesIOException_6_0 const& e) {
            if (!request.create || e.excerrno() != ENOENT)
                throw;
            isNew = true;
        }
        Side const present = isNew ? Side{{}, parse(request.other, {})}
                                   : readTarget(request, loaded.snapshot.contents);
        bool const isSame = !isNew && present.contents.text == mine.contents.text &&
                            !differsInSecrets(present, mine);
        if (isSame)
            return;
        if (!request.dryRun) {
            // Contents that cannot be read cannot be merged.
            session.merges = present.cache != nullptr;
            if (!isNew)
                session.accept(path, std::move(loaded));
            try {
                Session::Stored const stored = session.store(path, mine.contents, *mine.cache);
                if (stored.isMerged)
                    note(request, request.other, "merged with a change by another program");
            } catch (zfleet::ConflictError const& error) {
                throw describeLostRace(error.conflicts.front(), error.conflicts.size(),
                                       request.other);
            }
        }
        printDifference(request, request.other, isNew, present, mine);
    });
    return exitDone;
}

int runPull(Request const& request)
{
    requirePaths(request);
    char const* const path = request.other.c_str();
    Side theirs;
    try {
        zfleet::translateFailures(kSource, path, [&] {
            Session session;
            theirs.contents = loadFrom(session, path).snapshot.contents;
        });
    } catch (ZPropertiesIOException_6_0 const& e) {
        if (e.excerrno() != ENOENT)
            throw;
        throw Failure{exitNoAccess, request.other, {"no such configuration", "check the name"}};
    }
    requireWholeLines(request.other, theirs.contents.text);
    theirs.cache = parse(request.other, theirs.contents);
    // The text may name a companion, if it was put by hand.
    theirs.contents = zfleet::formatContents(*theirs.cache);
    if (request.file == kStandardInput)
        throw UsageError{"FILE is not the path of a file"};
    Side before;
    bool isNew = false;
    Request change = request;
    change.create = true;
    auto const read = [&](EditedFile& file) {
        isNew = access(request.file.c_str(), F_OK) != 0;
        before.contents = zfleet::formatContents(file.store().contents());
        before.cache = parse(request.file, before.contents);
    };
    if (request.dryRun)
        retryWhileBusy(Deadline(request.wait), [&] {
            EditedFile file(change);
            read(file);
        });
    else
        runChange(change, [&](EditedFile& file, Request const&) {
            read(file);
            if (!isNew && before.contents.text == theirs.contents.text &&
                !differsInSecrets(before, theirs))
                return;
            ZSCFData_6_0& cache = file.store().contents();
            std::string const companion = toStdString(cache.companionFile());
            cache.swapContents(*parse(request.other, theirs.contents));
            cache.setCompanionFile(companion.c_str());
        });
    printDifference(request, request.file, isNew, before, theirs);
    return exitDone;
}
