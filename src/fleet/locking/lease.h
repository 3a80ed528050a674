// lease: a lease of the cluster, with the time for which it is certain to exist.
//
// The time is counted from the moment before the request was sent, on the clock that includes
// suspension, and is nine tenths of the lease: the clocks of two machines differ in speed.
//
// A node that has lost its leadership without noticing still renews leases. So a renewal is valid
// only if a linearizable read after it has the same term: then the node that renewed the lease was
// still the leader.
//
// Such a node does not know the renewals by a later leader. When it continues, for example after it
// was suspended, it can end a lease that was renewed elsewhere. So a lease is only renewed in the
// term in which it was granted: its leader knows all renewals. In a later term, the key of the
// lease is moved to a new lease, which earlier leaders do not know.
#pragma once

#include <mutex>
#include <string>

#include "transport/cluster_interface.h"

namespace zfleet {

class Lease {
public:
    // The result of a renewal, which includes a read of a key.
    struct Renewal {
        bool isAlive;       // the lease exists, and was granted in the present term
        int64_t createdAt;  // create revision of the key, if it belongs to the lease; else 0
    };

    explicit Lease(ClusterInterface& cluster) : cluster_(cluster) {}
    Lease(Lease const&) = delete;
    Lease& operator=(Lease const&) = delete;

    /// Returns the id; 0 without a lease.
    int64_t id() const;

    /// Returns the nanoseconds for which the lease is certain to exist; 0 if it is not.
    int64_t remaining() const;

    /// Returns whether less than a third of the lease has passed.
    bool isFresh() const;

    /// Returns the time until a third of the lease has passed; 0 if it has, or without a lease.
    Clock::duration untilRenewal() const;

    /// Creates a lease, or renews the present one if a third of its time has passed.
    /// throws  CallError.
    void require(std::string const& key, Budget& budget);

    /// Renews the lease. After its term, replaces it by another lease, which gets its key. If it
    /// does not exist, forgets it.
    /// range   one thread at a time, and none in require().
    /// throws  CallError.
    Renewal renew(std::string const& key, Budget& budget);

    /// Forgets the lease, which ends when its time has passed.
    void forget();

    /// Ends and forgets the lease, with the keys that belong to it. If the cluster does not reply,
    /// the lease ends when its time has passed.
    void revoke(Budget& budget);

private:
    struct State {
        int64_t id = 0;
        int64_t sentAt = 0;   // bootTime()
        int64_t seconds = 0;  // granted by the cluster
        uint64_t term = 0;    // of the grant

        int64_t remaining() const;
    };

    State state() const;
    void record(State const& state);
    void forget(int64_t id);
    State grant(std::string const& key, Budget& budget);
    State successorFor(std::string const& key, uint64_t term, Budget& budget);
    bool move(KeyValue const& entry, uint64_t term, Budget& budget);
    bool isMoved(RangeResult const& read);

    ClusterInterface& cluster_;
    mutable std::mutex mutex_;
    State state_;      // guarded by mutex_
    State successor_;  // guarded by mutex_; the key may have been moved to this lease
};

}  // namespace zfleet
