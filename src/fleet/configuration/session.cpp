#include "configuration/session.h"

#include <Z/ZException.h>
#include <errno.h>

#include <algorithm>

#include "ZFleetConnection_p.h"
#include "configuration/path.h"
#include "configuration/replica.h"
#include "transport/failure.h"

namespace zfleet {

namespace {

constexpr char kSource[] = "src/fleet/configuration/session";
enum RaiseSite {
    raiseForMissing = 1,
    raiseForSize,
    raiseForOvertaken,
    raiseForUnknown,
    raiseForGeneration,
    raiseForOffline,
    reportForReplica,
};

constexpr unsigned kMaxRaces = 16;  // that a store may lose
constexpr size_t kMaxDoubts = 8;    // whose contents are kept
constexpr size_t kMaxOrigins = 4;   // other configurations whose contents are kept

void requireSize(char const* path, Contents const& contents)
{
    if (contents.text.size() + contents.hidden.size() > kMaxConfigurationSize)
        ZPropertiesIOException_6_0(path, "write()", EFBIG).throwException(kSource, raiseForSize);
}

[[noreturn]] void throwOvertaken(char const* path)
{
    ZPropertiesIOException_6_0(path, "merge()", ESTALE).throwException(kSource, raiseForOvertaken);
}

}  // namespace

void ReleaseConnection::operator()(ZFleetConnection_6_0* connection) const
{
    connection->release();
}

// A configuration, with the connection that it uses.
struct Session::Target {
    explicit Target(char const* text) : Target(parsePath(text)) {}
    explicit Target(Path const& path)
        : connection(ZFleetConnection_6_0::open(path.fleet.c_str())),
          remote(cluster(), path.name),
          budget(cluster().settings().budget)
    {
    }

    ClusterInterface& cluster() const { return connection->rep().cluster; }

    Connection connection;
    RemoteConfiguration remote;
    Budget budget;
};

Session::Loaded Session::load(char const* path)
{
    Target target(path);
    Snapshot snapshot;
    try {
        snapshot = target.remote.read(target.budget);
        isOffline_ = false;
    } catch (CallError const& error) {
        isOffline_ = error.error == ETIMEDOUT;
        if (!isOffline_ || sources_.count(path) != 0)
            throw;
        return loadReplica(target, path, error);
    }
    // Unless the undo may still be executed, the caller sees its outcome now.
    auto const undo = undos_.find(path);
    if (undo != undos_.end() && !undo->second.source.guard.hasVersionOf(snapshot))
        undos_.erase(undo);
    if (snapshot.textRevision == 0) {
        Source missing;
        missing.connection = std::move(target.connection);
        missing.origin = std::make_shared<Contents const>();
        missing.guard.asOf = snapshot.asOf;
        record(path, std::move(missing));
        ZPropertiesIOException_6_0(path, "Txn", ENOENT).throwException(kSource, raiseForMissing);
    }
    return {std::move(target.connection), std::move(snapshot)};
}

Session::Loaded Session::look(char const* path)
{
    Target target(path);
    Budget budget(target.cluster().settings().callTimeout * 2);
    try {
        Loaded loaded{nullptr, target.remote.read(budget)};
        loaded.connection = std::move(target.connection);
        isOffline_ = false;
        int64_t& seen = sources_.at(path).seen;
        seen = std::max(seen, loaded.snapshot.asOf);
        return loaded;
    } catch (CallError const& error) {
        isOffline_ = error.error == ETIMEDOUT;
        throw;
    }
}

bool Session::processHints(char const* path, Live& live)
{
    Source const& source = sources_.at(path);
    ClusterInterface& cluster = source.connection->rep().cluster;
    RemoteConfiguration const remote(cluster, parsePath(path).name);
    return live.process(cluster, {remote.textKey()}, source.seen);
}

Clock::duration Session::lookInterval(char const* path) const
{
    return sources_.at(path).connection->rep().cluster.settings().lookInterval;
}

void Session::accept(char const* path, Loaded loaded, std::optional<Contents> origin)
{
    Source source;
    source.connection = std::move(loaded.connection);
    source.origin = std::make_shared<Contents const>(origin.has_value() ? std::move(*origin)
                                                                        : loaded.snapshot.contents);
    source.guard = std::move(loaded.snapshot);
    revision_ = source.guard.textRevision;
    generation_ = source.guard.metadata().generation;
    source.isOffline = loaded.isOffline;
    auto const undo = undos_.find(path);
    if (undo != undos_.end() && undo->second.isFollowedBy(source.guard))
        undos_.erase(undo);
    keepReplica(path, source);
    record(path, std::move(source));
}

// Returns whether another program has changed the configuration after the undo: `present` is
// neither the state that the undo replaces nor its result.
bool Session::Undo::isFollowedBy(Snapshot const& present) const
{
    bool const isResult = std::any_of(
        source.doubts.begin(), source.doubts.end(),
        [&, id = present.metadata().id](auto const& doubt) { return doubt.attempt.id == id; });
    bool const isByHand = present.revision() != present.metaRevision;
    return !source.guard.hasVersionOf(present) && (!isResult || isByHand);
}

// Returns the replica for a load that has failed with `error`. Rethrows it without a replica.
Session::Loaded Session::loadReplica(Target& target, char const* path, CallError const& error)
{
    Settings const& settings = target.cluster().settings();
    if (settings.replicaDirectory.empty())
        throw error;
    try {
        Replica const replica(settings, parsePath(path).name);
        return {std::move(target.connection), replica.read().snapshot, true};
    } catch (ZPropertiesIOException_6_0 const& e) {
        if (e.excerrno() != ENOENT)
            reportReplica(e.propFile().getChars(), e.api().getChars(), e.excerrno());
        throw error;
    } catch (ZPropertiesException_6_0 const&) {
        throw error;
    }
}

// Reports a replica that cannot be used, once. The error 0 ends this.
void Session::reportReplica(std::string const& path, std::string const& call, int error)
{
    if (error != 0 && error != replicaError_) {
        ZPropertiesIOException_6_0 report(path.c_str(), call.c_str(), error);
        report.addLocation(kSource, reportForReplica);
        report.dumpException();
    }
    replicaError_ = error;
}

// Writes the replica. A failure is reported: the configuration itself has been read or stored.
void Session::keepReplica(char const* path, Source const& source)
{
    ClusterInterface const& cluster = source.connection->rep().cluster;
    if (source.isOffline || cluster.settings().replicaDirectory.empty())
        return;
    Replica const replica(cluster.settings(), parsePath(path).name);
    try {
        bool const isWritten = replica.write({source.guard, cluster.id()}, cluster.revision());
        reportReplica(replica.path(), "rename()", isWritten ? 0 : EREMCHG);
    } catch (ZPropertiesIOException_6_0 const& e) {
        reportReplica(e.propFile().getChars(), e.api().getChars(), e.excerrno());
    } catch (ZPropertiesException_6_0 const&) {
        reportReplica(replica.path(), "rename()", EINVAL);
    }
}

// Replaces the entry of a path. Keeps the contents of a few configurations only: without them,
// stores to the others are still guarded, but cannot be merged.
void Session::record(char const* path, Source source)
{
    source.used = ++uses_;
    source.seen = std::max(source.guard.textRevision, source.guard.asOf);
    sources_.insert_or_assign(path, std::move(source));
    std::vector<Source*> kept;
    for (auto& [name, entry] : sources_)
        if (entry.origin != nullptr)
            kept.push_back(&entry);
    if (kept.size() <= kMaxOrigins)
        return;
    Source* const oldest = *std::min_element(
        kept.begin(), kept.end(), [](auto* one, auto* other) { return one->used < other->used; });
    oldest->origin = nullptr;
    oldest->guard.contents = {};
}

// Chooses the contents to send: `mine`, merged with the contents that they replace.
void Session::prepare(Operation& operation) const
{
    SharedContents const& origin = operation.origin;
    if (operation.isCopy || (origin != nullptr && *origin == operation.guard.contents)) {
        operation.sent = *operation.mine;
        return;
    }
    bool const isRemoved = operation.guard.textRevision == 0;
    if (!merges || origin == nullptr || isRemoved)
        throwOvertaken(operation.path);
    Merged merged = merge(operation.path, *origin, *operation.mine, operation.guard.contents,
                          policy, operation.prototype);
    if (!merged.conflicts.empty() && policy == ConflictPolicy::refuse)
        throw ConflictError{std::move(merged.conflicts)};
    if (!merged.isComplete)
        throwOvertaken(operation.path);
    requireSize(operation.path, merged.contents);
    operation.sent = std::move(merged.contents);
}

// Returns the metadata of a store. A repetition of the last store, whose outcome is unknown, is the
// same transaction.
Metadata Session::metadataFor(Operation const& operation, Source const& source) const
{
    int64_t const base = operation.guard.revision();
    uint64_t const generation = operation.guard.metadata().generation + 1;
    Metadata const& last = source.metadata;
    bool const isRepeated = !source.doubts.empty() && source.doubts.back().attempt.id == last.id &&
                            last.base == base && last.generation == generation &&
                            source.sent == operation.sent;
    return isRepeated ? last : makeMetadata(generation, base, reason);
}

// Sends a store. If its outcome is unknown, later stores look for it.
WriteResult Session::send(Target& target, Operation const& operation, Source& source)
{
    Metadata const metadata = metadataFor(operation, source);
    std::vector<Attempt> earlier;
    for (Doubt const& doubt : source.doubts)
        earlier.push_back(doubt.attempt);
    auto const addDoubt = [&] {
        if (!earlier.empty() && earlier.back().id == metadata.id)
            return;
        Attempt const attempt{metadata.id, metadata.base, metadata.generation};
        source.doubts.push_back({attempt, operation.mine});
        if (source.doubts.size() > kMaxDoubts)
            source.doubts[source.doubts.size() - kMaxDoubts - 1].mine = nullptr;
        source.metadata = metadata;
        source.sent = operation.sent;
    };
    try {
        WriteResult result =
            target.remote.write(operation.sent, operation.guard, metadata,
                                fence.has_value() ? &*fence : nullptr, earlier, target.budget);
        if (result.outcome == WriteResult::unknown)
            addDoubt();
        if (result.outcome == WriteResult::stored)
            source.metadata = metadata;
        return result;
    } catch (CallError const& error) {
        isOffline_ = error.error == ETIMEDOUT;
        if (error.isDoubtful)
            addDoubt();
        throw;
    }
}

void Session::acceptMerge(char const* path)
{
    Source& source = sources_.at(path);
    source.origin = std::make_shared<Contents const>(source.guard.contents);
}

// Records that `state` is in the cluster.
Session::Stored Session::finish(Target& target, Operation const& operation, Snapshot state)
{
    bool const isMerged = state.contents != *operation.mine;
    Source stored;
    stored.connection = std::move(target.connection);
    stored.guard = std::move(state);
    stored.origin = operation.mine;
    revision_ = stored.guard.textRevision;
    generation_ = stored.guard.metadata().generation;
    isOffline_ = false;
    keepReplica(operation.path, stored);
    Contents contents = stored.guard.contents;
    record(operation.path, std::move(stored));
    undos_.erase(operation.path);
    return {std::move(contents), isMerged};
}

Session::Stored Session::store(char const* path, Contents const& mine,
                               ZSCFData_6_0 const& prototype)
{
    requireSize(path, mine);
    auto const known = sources_.find(path);
    if (known != sources_.end() && known->second.isOffline)
        ZPropertiesIOException_6_0(path, "store()", ENOTCONN)
            .throwException(kSource, raiseForOffline);
    Target target(path);
    bool const isCopy = known == sources_.end();
    Source unseen;
    if (isCopy)
        unseen.guard = target.remote.read(target.budget);
    Source& source = isCopy ? unseen : known->second;
    Operation operation{path,   prototype,    std::make_shared<Contents const>(mine),
                        isCopy, source.guard, source.origin};
    return write(target, operation, source);
}

// Sends a store until it is executed.
Session::Stored Session::write(Target& target, Operation& operation, Source& source)
{
    char const* const path = operation.path;
    for (unsigned races = 0; races < kMaxRaces && !target.budget.isUsedUp(); ++races) {
        prepare(operation);
        WriteResult result = send(target, operation, source);
        std::vector<Doubt>& doubts = source.doubts;
        switch (result.outcome) {
            case WriteResult::stored: {
                int64_t const revision = result.textRevision;
                int64_t const hiddenRevision = operation.sent.hidden.empty() ? 0 : revision;
                return finish(target, operation,
                              {std::move(operation.sent), format(source.metadata), revision,
                               hiddenRevision, revision, revision});
            }
            case WriteResult::unknown:
                ZPropertiesIOException_6_0(path, "Txn", EINPROGRESS)
                    .throwException(kSource, raiseForUnknown);
                break;
            case WriteResult::fenced:
                throw FenceError{*fence};
            case WriteResult::storedEarlier: {
                auto const found =
                    std::find_if(doubts.begin(), doubts.end(),
                                 [&](auto const& doubt) { return doubt.attempt.id == result.id; });
                source.origin = operation.origin = found->mine;
                source.guard = operation.guard = std::move(result.current);
                doubts.clear();
                // A repetition of the earlier write has nothing to change.
                if (operation.origin != nullptr && *operation.origin == *operation.mine)
                    return finish(target, operation, operation.guard);
                break;
            }
            case WriteResult::overtaken: {
                operation.guard = std::move(result.current);
                // The others cannot be executed any more.
                auto const isDead = [&](Doubt const& doubt) {
                    return doubt.attempt.base != operation.guard.revision();
                };
                doubts.erase(std::remove_if(doubts.begin(), doubts.end(), isDead), doubts.end());
            }
        }
        target.budget.pause();
    }
    throw CallError{"Txn", EAGAIN, false, "other programs store all the time"};
}

std::vector<LogEntry> Session::log(char const* path)
{
    Target target(path);
    return target.remote.readLog(target.budget);
}

namespace {

[[noreturn]] void throwNotLogged(char const* path)
{
    ZPropertiesIOException_6_0(path, "log", ENOENT).throwException(kSource, raiseForGeneration);
}

LoggedGeneration requireGeneration(RemoteConfiguration& remote, char const* path,
                                   uint64_t generation, Budget& budget)
{
    std::optional<LoggedGeneration> logged = remote.readGeneration(generation, budget);
    if (!logged.has_value() || logged->entry.isOmitted)
        throwNotLogged(path);
    return std::move(*logged);
}

}  // namespace

Contents Session::contentsOf(char const* path, uint64_t generation)
{
    Target target(path);
    LogEntry entry = requireGeneration(target.remote, path, generation, target.budget).entry;
    return {std::move(entry.text), std::move(entry.hidden)};
}

// Returns the contents that a generation has replaced. If the cluster has dropped the revision, the
// log has them, unless they were put by hand.
Contents Session::contentsBefore(Target& target, char const* path, LoggedGeneration const& undone)
{
    Metadata const& metadata = undone.entry.metadata;
    try {
        Snapshot before;
        if (metadata.base != 0)
            before = target.remote.readAt(undone.revision - 1, target.budget);
        // A program that copies keys between clusters gives them other revisions.
        if (before.textRevision != 0 && before.revision() <= metadata.base)
            return std::move(before.contents);
    } catch (CallError const& error) {
        if (error.error != ESTALE)
            throw;
        std::optional<LoggedGeneration> logged =
            target.remote.readGeneration(metadata.generation - 1, target.budget);
        if (logged.has_value() && logged->revision == metadata.base && !logged->entry.isOmitted)
            return {std::move(logged->entry.text), std::move(logged->entry.hidden)};
    }
    throwNotLogged(path);
}

// Reads the contents before and after a generation.
Session::Undo Session::makeUndo(Target& target, char const* path, uint64_t generation)
{
    Source source;
    source.guard = target.remote.read(target.budget);
    if (generation == 0)
        generation = source.guard.metadata().generation;
    LoggedGeneration undone = requireGeneration(target.remote, path, generation, target.budget);
    auto const before = std::make_shared<Contents const>(contentsBefore(target, path, undone));
    source.origin = std::make_shared<Contents const>(
        Contents{std::move(undone.entry.text), std::move(undone.entry.hidden)});
    return {generation, before, std::move(source)};
}

Contents Session::undo(char const* path, uint64_t generation, ZSCFData_6_0 const& prototype)
{
    Target target(path);
    auto known = undos_.find(path);
    bool const isRepeated =
        known != undos_.end() && (generation == 0 || generation == known->second.generation);
    if (!isRepeated)
        known = undos_.insert_or_assign(path, makeUndo(target, path, generation)).first;
    Undo& undo = known->second;
    Operation operation{path, prototype, undo.before, false, undo.source.guard, undo.source.origin};
    try {
        Stored stored = write(target, operation, undo.source);
        acceptMerge(path);
        return std::move(stored.contents);
    } catch (...) {
        known = undos_.find(path);
        if (known != undos_.end() && known->second.source.doubts.empty())
            undos_.erase(known);
        throw;
    }
}

}  // namespace zfleet
