// session: the configurations that a store object has loaded or stored, and its stores to them.
//
// For each path, a session knows the state that the store's contents derive from. A store is
// guarded by that state. If another program has changed the configuration in the meantime, both
// changes are merged, and the result is guarded by the new state. Stores with an unknown outcome
// are remembered until a later store has found out.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "configuration/live.h"
#include "configuration/merge.h"
#include "configuration/remote_configuration.h"

class ZFleetConnection_6_0;
class ZSCFData_6_0;

namespace zfleet {

struct CallError;

struct ReleaseConnection {
    void operator()(ZFleetConnection_6_0* connection) const;
};
using Connection = std::unique_ptr<ZFleetConnection_6_0, ReleaseConnection>;

// A store that conflicts with a store of another program.
struct ConflictError {
    std::vector<Conflict> conflicts;
};

// The caller serialises the calls of a session. Failed calls change nothing in the contents that
// the session knows.
class Session {
public:
    // A configuration that was read, with the connection that it needs.
    struct Loaded {
        Connection connection;
        Snapshot snapshot;
        bool isOffline = false;  // it is the replica: no node has replied
    };

    // The contents that a store has written.
    struct Stored {
        Contents contents;
        bool isMerged;  // they are not the contents that were passed
    };

    /// Reads the configuration at `path`, or its replica if no node replies and the session has not
    /// read the configuration before. If it does not exist, the next store creates it, unless
    /// another program does so first.
    /// throws  ZPropertiesIOException_6_0 if it does not exist, or if the path is invalid; as
    ///         ZFleetConnection_6_0::open(); CallError.
    Loaded load(char const* path);

    /// Reads the configuration at `path`, which the session knows, within a short time. If it does
    /// not exist, the revision of its text is 0.
    /// throws  CallError.
    Loaded look(char const* path);

    /// Returns whether the session has loaded or stored the configuration at `path`.
    bool knows(char const* path) const { return sources_.count(path) != 0; }

    /// Returns whether `present` has the contents that the session has last read from `path` or
    /// stored there. The session must know `path`.
    bool isCurrent(char const* path, Snapshot const& present) const
    {
        return sources_.at(path).guard.hasVersionOf(present);
    }

    /// Takes the hints of `live` about changes at `path`, which the session has loaded or stored.
    /// Returns whether look() should be called.
    bool processHints(char const* path, Live& live);

    /// Returns the time between looks without a hint.
    Clock::duration lookInterval(char const* path) const;

    /// Records that the store has these contents now, or contents that derive from `origin`, an
    /// earlier state: the next store merges both.
    void accept(char const* path, Loaded loaded, std::optional<Contents> origin = std::nullopt);

    /// Writes `mine`, or the result of a merge. `prototype` has the attributes of the store.
    /// throws  as load(); ConflictError; FenceError; ZPropertiesIOException_6_0 as
    /// ZFleetProperties_6_0::store().
    Stored store(char const* path, Contents const& mine, ZSCFData_6_0 const& prototype);

    /// Records that the store object has taken over the contents that it has stored at `path`.
    /// Without this call, the next store merges them again.
    void acceptMerge(char const* path);

    /// Returns the log of the configuration at `path`, without contents, the latest generation
    /// first.
    /// throws  as load().
    std::vector<LogEntry> log(char const* path);

    /// Returns the contents that a generation of the configuration had.
    /// throws  ZPropertiesIOException_6_0 with "log" and ENOENT if the log does not have them; as
    ///         load().
    Contents contentsOf(char const* path, uint64_t generation);

    /// Undoes the change that a generation made, 0 is the latest: merges it back into the present
    /// contents, and writes the result. After an unknown outcome, a call for the same generation or
    /// for 0 continues the undo, until the session loads or stores the configuration, or accepts a
    /// change by another program.
    /// throws  as contentsOf() and store().
    Contents undo(char const* path, uint64_t generation, ZSCFData_6_0 const& prototype);

    /// Returns whether no node has replied to the last load or store.
    bool isOffline() const { return isOffline_; }

    int64_t revision() const { return revision_; }  // of the text last loaded or stored; or 0
    uint64_t generation() const { return generation_; }

    std::string reason;          // of the next stores
    std::optional<Fence> fence;  // of the next store
    ConflictPolicy policy = ConflictPolicy::refuse;
    bool merges = true;  // else each lost race is refused

private:
    struct Target;
    using SharedContents = std::shared_ptr<Contents const>;

    // A store with an unknown outcome.
    struct Doubt {
        Attempt attempt;
        SharedContents mine;  // the contents of the store object at that time
    };

    // A configuration that the store object has loaded or stored.
    struct Source {
        Connection connection = nullptr;  // stays open
        Snapshot guard = {};              // the state that the next store replaces
        int64_t seen = 0;                 // no change up to this revision is unknown
        SharedContents origin = nullptr;  // the store's contents derive from it; null: not known
        std::vector<Doubt> doubts = {};   // the latest is the last
        Metadata metadata = {};           // of the last doubt
        Contents sent = {};               // by it
        bool isOffline = false;           // the contents come from the replica
        unsigned long used = 0;
    };

    // An undo. If its outcome is unknown, it is kept, so that a repetition is the same undo.
    struct Undo {
        uint64_t generation;
        SharedContents before;  // the contents before the generation
        Source source;          // its origin: the contents of the generation

        bool isFollowedBy(Snapshot const& present) const;
    };

    // A store that is being made.
    struct Operation {
        char const* path;
        ZSCFData_6_0 const& prototype;
        SharedContents mine;
        bool isCopy;  // the store object has not seen the configuration, which is replaced
        Snapshot guard;
        SharedContents origin;
        Contents sent = {};  // `mine`, or the result of a merge with the contents of `guard`
    };

    static Contents contentsBefore(Target& target, char const* path,
                                   LoggedGeneration const& undone);
    static Undo makeUndo(Target& target, char const* path, uint64_t generation);
    void prepare(Operation& operation) const;
    Stored write(Target& target, Operation& operation, Source& source);
    Metadata metadataFor(Operation const& operation, Source const& source) const;
    WriteResult send(Target& target, Operation const& operation, Source& source);
    Stored finish(Target& target, Operation const& operation, Snapshot state);
    void record(char const* path, Source source);
    Loaded loadReplica(Target& target, char const* path, CallError const& error);
    void reportReplica(std::string const& path, std::string const& call, int error);
    void keepReplica(char const* path, Source const& source);

    std::map<std::string, Source> sources_;  // by path
    std::map<std::string, Undo> undos_;      // by path; their outcome is unknown
    unsigned long uses_ = 0;
    bool isOffline_ = false;
    int replicaError_ = 0;  // errno of the last write of a replica
    int64_t revision_ = 0;
    uint64_t generation_ = 0;
};

}  // namespace zfleet
