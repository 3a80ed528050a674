// lock_queue: the queue of a lock in a cluster.
//
// A program that holds the lock or waits for it has an entry, the key PREFIX/lock/NAME/q/LEASE,
// which ends with its lease. The create revision of the entry is its position in the queue, and
// its token. A reader gets the lock if no writer is before it, a writer if no entry is. No entry is
// added before another, so a waiting program needs to know only the last entry that excludes it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "transport/cluster_interface.h"

namespace zfleet {

enum class LockMode { read, write };

// An entry of the queue.
struct QueueEntry {
    int64_t ticket;  // create revision
    LockMode mode;
    std::string host;
    std::string process;
};

class LockQueue {
public:
    // An entry that excludes a later one.
    struct Blocker {
        int64_t ticket = 0;  // 0: none
        std::string key = {};
    };

    // The queue as an entry sees it.
    struct View {
        int64_t ticket = 0;         // of the entry; 0: it does not exist
        Blocker blocker = {};       // the last one before the entry; none: the lock is free for it
        std::string sequence = {};  // the sequence number, as text; empty: none
        int64_t revision = 0;       // of this state
        bool wasDoubtful = false;   // an earlier attempt to add the entry may be executed later
    };

    enum class Removal {
        done,
        missing,  // the entry had ended before
        unknown   // the cluster has dropped the history that would show who removed the entry
    };

    LockQueue(ClusterInterface& cluster, std::string const& name);

    /// Returns the key of the entry of a lease.
    std::string keyOf(int64_t lease) const;

    /// Returns the keys of all entries, for a watch that reports changes of the entry `key` and of
    /// its blocker.
    WatchedKeys keysFor(std::string const& key, Blocker const& blocker) const;

    /// Adds an entry, unless it exists.
    /// throws  CallError, with ENOENT if the lease does not exist.
    View add(int64_t lease, LockMode mode, Budget& budget);

    /// Reads the entry `key`, and whether the blocker that it had, or an entry before this blocker,
    /// excludes it.
    /// throws  CallError.
    View look(std::string const& key, LockMode mode, Blocker const& blocker, Budget& budget);

    /// Removes an entry, and writes the sequence number in the same transaction.
    /// range   `isRepeated`: an earlier attempt may have been executed.
    /// throws  CallError.
    Removal remove(std::string const& key, int64_t ticket, std::optional<std::string> const& number,
                   bool isRepeated, Budget& budget);

    /// Reads all entries, in the order of the queue, and the sequence number.
    /// throws  CallError.
    std::vector<QueueEntry> list(std::string& sequence, Budget& budget);

private:
    Removal findRemoval(std::string const& key, int64_t ticket, int64_t written, Budget& budget);
    Range entries() const;
    std::vector<Operation> readOperations() const;

    ClusterInterface& cluster_;
    std::string const directory_;  // of the keys, with "/" at its end
};

}  // namespace zfleet
