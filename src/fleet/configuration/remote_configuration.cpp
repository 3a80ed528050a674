#include "configuration/remote_configuration.h"

#include <errno.h>
#include <inttypes.h>
#include <stdio.h>

#include <algorithm>
#include <map>

#include "transport/failure.h"

namespace zfleet {

namespace {

// The place of each key in readOperations().
enum Read { readText, readHidden, readMeta, readCount };

// The cluster accepts requests of 1.5 MiB.
constexpr size_t kMaxWriteSize = 1'400'000;  // text, companion and log entry, in bytes

// Entries of the log in a reply, which has a limit of 8 MiB.
constexpr int64_t kPageSize = 4;

std::string digitsOf(uint64_t generation)
{
    char digits[17];
    snprintf(digits, sizeof digits, "%016" PRIx64, generation);
    return digits;
}

[[noreturn]] void throwUnrequested(char const* method)
{
    throw CallError{method, EPROTO, false, "a reply without the requested keys"};
}

// Removes the last range, of one key, from the result. Returns the create revision of the key; 0 if
// it does not exist.
int64_t takeEntry(TransactionResult& result)
{
    if (result.ranges.empty())
        return 0;  // snapshotOf() reports it
    RangeResult const entry = std::move(result.ranges.back());
    result.ranges.pop_back();
    return entry.entries.empty() ? 0 : entry.entries[0].createRevision;
}

std::string valueOf(RangeResult& result)
{
    return result.entries.empty() ? std::string() : std::move(result.entries[0].value);
}

}  // namespace

RemoteConfiguration::RemoteConfiguration(ClusterInterface& cluster, std::string const& name)
    : cluster_(cluster), directory_(cluster.settings().prefix + "/cfg/" + name + "/")
{
}

std::string RemoteConfiguration::keyOf(uint64_t generation) const
{
    return directory_ + "log/" + digitsOf(generation);
}

std::vector<Operation> RemoteConfiguration::readOperations(int64_t revision) const
{
    std::vector<Operation> operations;
    for (char const* const name : {"text", "hidden", "meta"}) {
        Range range{directory_ + name};
        range.revision = revision;
        operations.emplace_back(std::move(range));
    }
    return operations;
}

Snapshot RemoteConfiguration::snapshotOf(TransactionResult& result) const
{
    if (result.ranges.size() != readCount)
        throwUnrequested("Txn");
    Snapshot snapshot;
    auto const revisionOf = [](RangeResult const& range) {
        return range.entries.empty() ? 0 : range.entries[0].modRevision;
    };
    snapshot.textRevision = revisionOf(result.ranges[readText]);
    snapshot.hiddenRevision = revisionOf(result.ranges[readHidden]);
    snapshot.metaRevision = revisionOf(result.ranges[readMeta]);
    snapshot.contents = {valueOf(result.ranges[readText]), valueOf(result.ranges[readHidden])};
    snapshot.metaLines = valueOf(result.ranges[readMeta]);
    snapshot.asOf = result.header.revision;
    return snapshot;
}

Snapshot RemoteConfiguration::readAt(int64_t revision, Budget& budget)
{
    TransactionResult result =
        cluster_.commit({{}, readOperations(revision), {}}, Repetition::changesNothing, budget);
    Snapshot snapshot = snapshotOf(result);
    if (revision != 0)
        snapshot.asOf = revision;
    return snapshot;
}

Snapshot RemoteConfiguration::read(Budget& budget)
{
    return readAt(0, budget);
}

std::vector<LogEntry> RemoteConfiguration::readLog(Budget& budget)
{
    std::vector<LogEntry> log;
    Range range{directory_ + "log/", endOfPrefix(directory_ + "log/"), kPageSize};
    range.isDescending = true;
    bool hasMore = true;
    for (size_t count = 0; hasMore && count < kMaxKeptGenerations;) {
        RangeResult const page = cluster_.read(range, budget);
        hasMore = page.hasMore;
        if (hasMore && page.entries.empty())
            throwUnrequested("Range");
        for (KeyValue const& entry : page.entries) {
            // Each entry is below the entries so far: a reply without progress could be endless.
            if (entry.key < range.key || entry.key >= range.end)
                throwUnrequested("Range");
            range.end = entry.key;
            LogEntry generation;
            if (++count <= kMaxKeptGenerations && parseLogEntry(entry.value, generation))
                log.push_back({std::move(generation.metadata), {}, {}, generation.isOmitted});
        }
    }
    return log;
}

std::optional<LoggedGeneration> RemoteConfiguration::readGeneration(uint64_t generation,
                                                                    Budget& budget)
{
    RangeResult const found = cluster_.read({keyOf(generation)}, budget);
    LoggedGeneration logged{};
    if (found.entries.empty() || !parseLogEntry(found.entries[0].value, logged.entry))
        return std::nullopt;
    logged.revision = found.entries[0].modRevision;
    return logged;
}

Transaction RemoteConfiguration::writeTransaction(Contents const& contents, Snapshot const& guard,
                                                  Metadata const& metadata) const
{
    size_t const maxEntrySize = kMaxWriteSize - contents.text.size() - contents.hidden.size();
    Transaction transaction;
    transaction.conditions = {
        {directory_ + "text", Condition::modRevision, Condition::equal, guard.textRevision}};
    // A companion without text is not a configuration.
    if (guard.textRevision != 0)
        transaction.conditions.push_back({directory_ + "hidden", Condition::modRevision,
                                          Condition::equal, guard.hiddenRevision});
    // In a cluster that was restored from a backup, other contents can have the same revision.
    if (!guard.metaLines.empty())
        transaction.conditions.push_back(
            {directory_ + "meta", Condition::value, Condition::equal, 0, guard.metaLines});
    transaction.success = {
        Put{directory_ + "text", contents.text}, Put{directory_ + "meta", format(metadata)},
        Put{keyOf(metadata.generation),
            format(LogEntry{metadata, contents.text, contents.hidden}, maxEntrySize)}};
    if (contents.hidden.empty())
        transaction.success.push_back(Remove{directory_ + "hidden"});
    else
        transaction.success.push_back(Put{directory_ + "hidden", contents.hidden});
    uint64_t const kept = cluster_.settings().keptGenerations;
    if (metadata.generation > kept)
        transaction.success.push_back(Remove{keyOf(0), keyOf(metadata.generation - kept + 1)});
    transaction.failure = readOperations();
    return transaction;
}

WriteResult RemoteConfiguration::write(Contents const& contents, Snapshot const& guard,
                                       Metadata const& metadata, Fence const* fence,
                                       std::vector<Attempt> const& earlier, Budget& budget)
{
    Transaction transaction = writeTransaction(contents, guard, metadata);
    if (fence != nullptr) {
        transaction.conditions.push_back(
            {fence->key, Condition::createRevision, Condition::equal, fence->createRevision});
        transaction.failure.emplace_back(Range{fence->key});
    }
    TransactionResult result = cluster_.commit(transaction, Repetition::isHarmless, budget);
    if (result.hasSucceeded)
        return {WriteResult::stored, result.header.revision};
    bool const isHeld = fence == nullptr || takeEntry(result) == fence->createRevision;
    auto const refused = isHeld ? WriteResult::overtaken : WriteResult::fenced;
    std::vector<Attempt> attempts = earlier;
    if (result.wasDoubtful)
        attempts.push_back({metadata.id, metadata.base, metadata.generation});
    Snapshot current = snapshotOf(result);
    if (attempts.empty())
        return {refused, 0, std::move(current)};
    try {
        WriteResult found = find(attempts, metadata.id, std::move(current), budget);
        if (found.outcome == WriteResult::overtaken)
            found.outcome = refused;
        return found;
    } catch (CallError& error) {
        error.isDoubtful = true;
        throw;
    }
}

// Finds the outcome of writes after lost replies. At most one of them was executed: each one was
// sent after the transactions of all others had failed, or with the same guard.
WriteResult RemoteConfiguration::find(std::vector<Attempt> const& attempts, std::string const& own,
                                      Snapshot current, Budget& budget)
{
    auto const isSought = [&](std::string const& id) {
        return std::any_of(attempts.begin(), attempts.end(),
                           [&](Attempt const& attempt) { return attempt.id == id; });
    };
    auto const found = [&](std::string const& id, int64_t revision) -> WriteResult {
        if (id == own)
            return {WriteResult::stored, revision};
        bool const isCurrent = revision == current.textRevision;
        return {WriteResult::storedEarlier, revision,
                isCurrent ? std::move(current) : readAt(revision, budget), id};
    };
    try {
        std::string id = current.metadata().id;
        if (isSought(id))
            return found(id, current.metaRevision);
        // Another program's entry with the same base shows that the attempt was overtaken.
        int64_t base = INT64_MAX;  // the earliest of an attempt without such an entry
        std::map<uint64_t, KeyValue> entries;
        for (Attempt const& attempt : attempts) {
            auto const [at, isNew] = entries.try_emplace(attempt.generation);
            KeyValue& entry = at->second;
            if (isNew) {
                RangeResult logged = cluster_.read({keyOf(attempt.generation)}, budget);
                if (!logged.entries.empty())
                    entry = std::move(logged.entries[0]);
            }
            Metadata const writer = parseMetadata(entry.value);
            if (isSought(writer.id))
                return found(writer.id, entry.modRevision);
            if (writer.id.empty() || writer.base != attempt.base)
                base = std::min(base, attempt.base);
        }
        // The log no longer has the generation: look for the ids in earlier revisions.
        for (int64_t last = current.metaRevision; last > base && last > 1;) {
            Snapshot const earlier = readAt(last - 1, budget);
            if (earlier.metaRevision >= last)
                throwUnrequested("Txn");
            last = earlier.metaRevision;
            id = earlier.metadata().id;
            if (isSought(id))
                return found(id, last);
        }
        return {WriteResult::overtaken, 0, std::move(current)};
    } catch (CallError const& error) {
        if (error.error != ESTALE)
            throw;
        return {WriteResult::unknown, 0, std::move(current)};
    }
}

}  // namespace zfleet
