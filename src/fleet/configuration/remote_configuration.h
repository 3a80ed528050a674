// remote_configuration: a configuration in a cluster, read and written as a whole.
//
// The keys below PREFIX/cfg/NAME/ are "text", "hidden" (the companion), "meta" and
// "log/GENERATION". A write is one transaction, guarded by the revision of the text that was
// changed. It has a random id, so that its outcome can be found after a lost reply.
#pragma once

#include <string>

#include "configuration/metadata.h"
#include "transport/cluster.h"

namespace zfleet {

/// The largest sum of the sizes of text and companion, in bytes.
inline constexpr size_t kMaxConfigurationSize = size_t{1} << 20;

// A state of a configuration.
struct Snapshot {
    std::string text;
    std::string hidden;
    Metadata metadata;
    int64_t textRevision = 0;  // 0: the configuration does not exist
};

// The contents that a write stores.
struct Contents {
    std::string text;
    std::string hidden;
};

struct WriteResult {
    enum Outcome {
        stored,
        overtaken,  // another program has written first; `current` is its state
        unknown     // the cluster has dropped the history that would show the outcome
    };

    Outcome outcome;
    int64_t textRevision;  // of the stored text
    Snapshot current;
};

class RemoteConfiguration {
public:
    RemoteConfiguration(Cluster& cluster, std::string const& name);

    /// Reads the configuration, in one transaction.
    /// throws  CallError.
    Snapshot read(Budget& budget);

    /// Writes `contents` if the text has the revision `base`.
    /// range   at most kMaxConfigurationSize bytes.
    /// throws  CallError. If `isDoubtful` is set, the outcome is unknown.
    WriteResult write(Contents const& contents, int64_t base, Metadata const& metadata,
                      Budget& budget);

private:
    std::string keyOf(uint64_t generation) const;
    Transaction writeTransaction(Contents const& contents, int64_t base,
                                 Metadata const& metadata) const;
    std::vector<Operation> readOperations() const;
    Snapshot snapshotOf(TransactionResult& result) const;
    WriteResult resolve(Snapshot current, int64_t base, Metadata const& metadata, Budget& budget);
    Metadata metadataAt(int64_t revision, int64_t& modRevision, Budget& budget);

    Cluster& cluster_;
    std::string const directory_;  // of the keys, with "/" at its end
};

}  // namespace zfleet
