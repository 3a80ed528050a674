#include "configuration/remote_configuration.h"

#include <errno.h>
#include <inttypes.h>
#include <stdio.h>

#include "transport/failure.h"

namespace zfleet {

namespace {

// The place of each key in readOperations().
enum Read { readText, readHidden, readMeta, readCount };

// The cluster accepts requests of 1.5 MiB.
constexpr size_t kMaxWriteSize = 1'400'000;  // text, companion and log entry, in bytes

std::string digitsOf(uint64_t generation)
{
    char digits[17];
    snprintf(digits, sizeof digits, "%016" PRIx64, generation);
    return digits;
}

std::string valueOf(RangeResult& result)
{
    return result.entries.empty() ? std::string() : std::move(result.entries[0].value);
}

}  // namespace

RemoteConfiguration::RemoteConfiguration(Cluster& cluster, std::string const& name)
    : cluster_(cluster), directory_(cluster.settings().prefix + "/cfg/" + name + "/")
{
}

std::string RemoteConfiguration::keyOf(uint64_t generation) const
{
    return directory_ + "log/" + digitsOf(generation);
}

std::vector<Operation> RemoteConfiguration::readOperations() const
{
    return {Range{directory_ + "text"}, Range{directory_ + "hidden"}, Range{directory_ + "meta"}};
}

Snapshot RemoteConfiguration::snapshotOf(TransactionResult& result) const
{
    if (result.ranges.size() != readCount)
        throw CallError{"Txn", EPROTO, false, "a reply without the requested keys"};
    Snapshot snapshot;
    if (!result.ranges[readText].entries.empty())
        snapshot.textRevision = result.ranges[readText].entries[0].modRevision;
    snapshot.text = valueOf(result.ranges[readText]);
    snapshot.hidden = valueOf(result.ranges[readHidden]);
    snapshot.metadata = parseMetadata(valueOf(result.ranges[readMeta]));
    return snapshot;
}

Snapshot RemoteConfiguration::read(Budget& budget)
{
    TransactionResult result =
        cluster_.commit({{}, readOperations(), {}}, Repetition::isHarmless, budget);
    return snapshotOf(result);
}

Transaction RemoteConfiguration::writeTransaction(Contents const& contents, int64_t base,
                                                  Metadata const& metadata) const
{
    size_t const maxEntrySize = kMaxWriteSize - contents.text.size() - contents.hidden.size();
    Transaction transaction;
    transaction.conditions = {
        {directory_ + "text", Condition::modRevision, Condition::equal, base}};
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

WriteResult RemoteConfiguration::write(Contents const& contents, int64_t base,
                                       Metadata const& metadata, Budget& budget)
{
    TransactionResult result =
        cluster_.commit(writeTransaction(contents, base, metadata), Repetition::isHarmless, budget);
    if (result.hasSucceeded)
        return {WriteResult::stored, result.header.revision, {}};
    Snapshot current = snapshotOf(result);
    if (!result.wasDoubtful)
        return {WriteResult::overtaken, 0, std::move(current)};
    return resolve(std::move(current), base, metadata, budget);
}

// Finds the outcome of a write after a lost reply. Its transaction cannot be executed any more: the
// text has another revision than `base`, and revisions only rise.
WriteResult RemoteConfiguration::resolve(Snapshot current, int64_t base, Metadata const& metadata,
                                         Budget& budget)
{
    if (current.metadata.id == metadata.id) {
        int64_t const revision = current.textRevision;
        return {WriteResult::stored, revision, std::move(current)};
    }
    RangeResult logged = cluster_.read({keyOf(metadata.generation)}, budget);
    if (!logged.entries.empty()) {
        KeyValue const& entry = logged.entries[0];
        bool const isOwn = parseMetadata(entry.value).id == metadata.id;
        return {isOwn ? WriteResult::stored : WriteResult::overtaken, entry.modRevision,
                std::move(current)};
    }
    // The log no longer has the generation: look for the id in earlier revisions of the metadata.
    try {
        int64_t revision = 0;  // the latest
        int64_t modRevision = 0;
        do {
            Metadata const earlier = metadataAt(revision, modRevision, budget);
            if (earlier.id == metadata.id)
                return {WriteResult::stored, modRevision, std::move(current)};
            revision = modRevision - 1;
        } while (modRevision > base && revision > 0);
    } catch (CallError const& error) {
        if (error.error != ESTALE)
            throw;
        return {WriteResult::unknown, 0, std::move(current)};
    }
    return {WriteResult::overtaken, 0, std::move(current)};
}

// Returns the metadata at a revision, and stores the revision that wrote them, or 0, in
// `modRevision`.
Metadata RemoteConfiguration::metadataAt(int64_t revision, int64_t& modRevision, Budget& budget)
{
    Range range{directory_ + "meta"};
    range.revision = revision;
    RangeResult result = cluster_.read(range, budget);
    modRevision = result.entries.empty() ? 0 : result.entries[0].modRevision;
    return parseMetadata(valueOf(result));
}

}  // namespace zfleet
