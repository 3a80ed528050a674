// remote_configuration: a configuration in a cluster, read and written as a whole.
//
// The keys below PREFIX/cfg/NAME/ are "text", "hidden" (the companion), "meta" and
// "log/GENERATION". A write is one transaction, guarded by the revisions of the text and of the
// companion that were changed. It has a random id, so that its outcome can be found after a lost
// reply.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "configuration/fence.h"
#include "configuration/metadata.h"
#include "transport/cluster_interface.h"

namespace zfleet {

/// The largest sum of the sizes of text and companion, in bytes.
inline constexpr size_t kMaxConfigurationSize = size_t{1} << 20;

// The contents of a configuration.
struct Contents {
    std::string text;
    std::string hidden;

    bool operator==(Contents const&) const = default;
};

// A state of a configuration.
struct Snapshot {
    Contents contents;
    std::string metaLines;
    int64_t textRevision = 0;    // 0: the configuration does not exist
    int64_t hiddenRevision = 0;  // another one than of the text: the companion was put by hand
    int64_t metaRevision = 0;    // another one than of the text: the text was put by hand
    int64_t asOf = 0;            // the configuration had this state at this revision of the cluster

    /// Returns the revision of the last write of text or companion. Removals are ignored.
    int64_t revision() const { return std::max(textRevision, hiddenRevision); }

    /// Returns whether no program has written the contents between the two snapshots.
    bool hasVersionOf(Snapshot const& other) const
    {
        return textRevision == other.textRevision && hiddenRevision == other.hiddenRevision;
    }

    Metadata metadata() const { return parseMetadata(metaLines); }
};

// A write that may have been executed.
struct Attempt {
    std::string id;
    int64_t base;         // revision of the contents that it replaced
    uint64_t generation;  // that it wrote
};

// A generation in the log.
struct LoggedGeneration {
    LogEntry entry;
    int64_t revision;  // that wrote it
};

struct WriteResult {
    enum Outcome {
        stored,
        storedEarlier,  // the earlier write `id` was executed; `current` is its state
        overtaken,      // another program has written first; `current` is its state
        fenced,         // the lock is not held; nothing was written
        unknown         // the cluster has dropped the history that would show the outcome
    };

    Outcome outcome;
    int64_t textRevision;  // of the stored text
    Snapshot current = {};
    std::string id = {};
};

class RemoteConfiguration {
public:
    RemoteConfiguration(ClusterInterface& cluster, std::string const& name);

    /// Returns the key of the text.
    std::string textKey() const { return directory_ + "text"; }

    /// Reads the configuration, in one transaction.
    /// throws  CallError.
    Snapshot read(Budget& budget);

    /// Reads the latest kMaxKeptGenerations entries of the log, without their contents, the latest
    /// first. Entries that are damaged are left out.
    /// throws  CallError.
    /// cost    the memory of a few entries at a time.
    std::vector<LogEntry> readLog(Budget& budget);

    /// Reads a generation of the log; none if the log does not have it.
    /// throws  CallError.
    std::optional<LoggedGeneration> readGeneration(uint64_t generation, Budget& budget);

    /// Reads the state of the configuration at a revision; 0 is the latest.
    /// throws  CallError with ESTALE if the cluster has dropped the revision.
    Snapshot readAt(int64_t revision, Budget& budget);

    /// Writes `contents` if the configuration has the state `guard`, and if the lock of `fence`,
    /// which may be null, is held. `earlier` are writes by the caller whose outcome is unknown.
    /// range   at most kMaxConfigurationSize bytes.
    /// throws  CallError. If `isDoubtful` is set, the outcome is unknown.
    WriteResult write(Contents const& contents, Snapshot const& guard, Metadata const& metadata,
                      Fence const* fence, std::vector<Attempt> const& earlier, Budget& budget);

private:
    std::string keyOf(uint64_t generation) const;
    Transaction writeTransaction(Contents const& contents, Snapshot const& guard,
                                 Metadata const& metadata) const;
    std::vector<Operation> readOperations(int64_t revision = 0) const;
    Snapshot snapshotOf(TransactionResult& result) const;
    WriteResult find(std::vector<Attempt> const& attempts, std::string const& own, Snapshot current,
                     Budget& budget);

    ClusterInterface& cluster_;
    std::string const directory_;  // of the keys, with "/" at its end
};

}  // namespace zfleet
