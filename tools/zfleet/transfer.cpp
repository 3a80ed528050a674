// transfer: the verbs push and pull, between local stanza files and configurations in a cluster.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <Z/lines/unified_diff.h>
#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "arguments.h"
#include "busy.h"
#include "configuration/merge.h"
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

// Stores the file, or its merge with a change by another program at the same time.
Contents store(Request const& request, Session& session, Side const& mine)
{
    Session::Stored stored = session.store(request.other.c_str(), mine.contents, *mine.cache);
    if (stored.isMerged && request.nth.empty())
        note(request, request.other, "merged with a change by another program");
    return std::move(stored.contents);
}

void requirePaths(Request const& request)
{
    if (ZFleetProperties_6_0::isFleetPath(request.other.c_str()) == 0)
        throw UsageError{"CONFIGURATION is not in a cluster", "write it as etcd://FLEET/NAME"};
    if (ZFleetProperties_6_0::isFleetPath(request.file.c_str()) != 0)
        throw UsageError{"FILE is not a local file"};
}

// Describes a push of keys that another program has changed since they were read, or since the
// generation of the request.
Failure describeConflicts(std::vector<zfleet::Conflict> const& conflicts, Request const& request)
{
    zfleet::Conflict const& first = conflicts.front();
    std::string const name =
        first.key.empty() ? "[" + first.stanza + "]" : nameKey(first.key, first.stanza);
    std::string const more =
        conflicts.size() == 1 ? "" : " and " + std::to_string(conflicts.size() - 1) + " more";
    if (request.nth.empty())
        return {
            exitLocked, request.other, {name + more + ": another program was faster", "try again"}};
    return {exitRefused,
            request.other,
            {name + more + ": changed since generation " + request.nth,
             "pull the configuration, and change it again, or pass --force"}};
}

// Describes the generation of a state, for a later push of its copy; empty without a generation.
std::string describeOrigin(zfleet::Snapshot const& snapshot)
{
    uint64_t const generation = snapshot.metadata().generation;
    if (generation == 0)
        return {};
    bool const isChanged = snapshot.revision() != snapshot.metaRevision;
    return std::string(isChanged ? "changed by hand after generation " : "copy of generation ") +
           std::to_string(generation);
}

bool isSame(Side const& one, Side const& other)
{
    return one.contents.text == other.contents.text && !differsInSecrets(one, other);
}

// Returns the contents of the generation that the file is a changed copy of: the present ones
// without a generation.
// throws  Failure if neither a generation nor --force was passed.
Side readBase(Request const& request, Session& session, Side const& present)
{
    if (!request.nth.empty()) {
        Contents contents = session.contentsOf(request.other.c_str(), generationOf(request));
        CachePointer cache = parse(request.other, contents);
        return {std::move(contents), std::move(cache)};
    }
    if (!request.overwrite && !request.dryRun)
        throw Failure{
            exitRefused,
            request.other,
            {"differs from the file, which may lack changes by other programs",
             "run 'zfleet push -n' to see the difference, and pass --generation N to store only "
             "the changes since generation N, or --force to replace everything"}};
    return {present.contents, nullptr};
}

// Returns the contents that push() would store.
Contents preview(Request const& request, Contents const& base, Side const& mine,
                 Side const& present)
{
    if (base == present.contents)
        return mine.contents;
    zfleet::Merged merged =
        zfleet::merge(request.other.c_str(), base, mine.contents, present.contents,
                      zfleet::ConflictPolicy::refuse, *mine.cache);
    if (!merged.conflicts.empty())
        throw zfleet::ConflictError{std::move(merged.conflicts)};
    return std::move(merged.contents);
}

// Replaces a configuration, which was loaded, or merges the changes since a generation. Returns the
// contents that were stored, or would be.
Contents push(Request const& request, Session& session, Session::Loaded loaded, Side const& mine,
              Side const& present)
{
    Side const base = readBase(request, session, present);
    if (base.cache != nullptr && isSame(base, mine))
        return present.contents;
    if (request.dryRun)
        return preview(request, base.contents, mine, present);
    // Contents that cannot be read cannot be merged.
    session.merges = present.cache != nullptr;
    session.accept(request.other.c_str(), std::move(loaded), base.contents);
    return store(request, session, mine);
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
        if (!isNew && isSame(present, mine))
            return;
        try {
            Contents after = !isNew ? push(request, session, std::move(loaded), mine, present)
                             : request.dryRun ? mine.contents
                                              : store(request, session, mine);
            CachePointer cache = parse(request.other, after);
            printDifference(request, request.other, isNew, present,
                            {std::move(after), std::move(cache)});
        } catch (zfleet::ConflictError const& error) {
            throw describeConflicts(error.conflicts, request);
        }
    });
    return exitDone;
}

int runPull(Request const& request)
{
    requirePaths(request);
    char const* const path = request.other.c_str();
    Side theirs;
    std::string origin;
    try {
        zfleet::translateFailures(kSource, path, [&] {
            Session session;
            zfleet::Snapshot const snapshot = loadFrom(session, path).snapshot;
            theirs.contents = snapshot.contents;
            origin = describeOrigin(snapshot);
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
    // A user who cannot read the configuration in the cluster should not read a new copy.
    if (!theirs.contents.hidden.empty())
        umask(S_IRWXG | S_IRWXO);
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
    if (!request.dryRun && !origin.empty())
        note(request, request.file, origin);
    return exitDone;
}
