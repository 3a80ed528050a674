// fleet_lock: a lock in a cluster, as one program holds it.
//
// The lock has a lease, which it keeps between acquisitions, and while it is held or requested, an
// entry in the queue. If the entry may be added later than this program knows, by a lost request,
// the lease is ended with the acquisition: the entry ends with it, or cannot be added any more.
//
//     free     no entry
//     held     the entry is in the queue, as far as this program knows
//     doubted  a release has got no reply: the entry may have been removed
//     lost     the entry has ended, or its lease is no longer certain
//
// Only release() ends the states "held", "doubted" and "lost".
#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "configuration/fence.h"
#include "locking/lease.h"
#include "locking/lock_queue.h"

namespace zfleet {

class FleetLock {
public:
    // The result of a release. After any other than `released`, release() must be called again.
    enum class Release {
        released,
        lost,       // another program may have had the lock in the meantime
        notCounted  // the entry was removed, but the cluster has no space for the sequence number
    };

    FleetLock(ClusterInterface& cluster, std::string const& name);
    FleetLock(FleetLock const&) = delete;
    FleetLock& operator=(FleetLock const&) = delete;

    /// Ends the lease, unless the lock is held: then the lease expires.
    ~FleetLock();

    /// Waits for the lock. Returns the sequence number, as text; empty without a number.
    /// range   the lock is free, and one thread at a time acquires or releases it. Without
    ///         `patience`, waits forever for other programs.
    /// throws  CallError: ETIMEDOUT when the patience is over, or if the cluster does not reply
    ///         within the budget before the entry is in the queue; EINTR. The lock is free then.
    std::string acquire(LockMode mode, std::optional<Clock::duration> patience);

    /// Releases the lock, and writes the sequence number, if any, in the same transaction.
    /// range   `tells` 0: a lost lock is released, too.
    /// throws  CallError; the lock is still held then.
    Release release(std::optional<std::string> const& number, bool tells);

    /// Releases the lock after a failure, in any state.
    void drop();

    /// Renews the lease if the lock is held. Returns whether it is still held.
    /// throws  CallError; the lock is still held then.
    /// threads any.
    bool keepAlive();

    // The state, for any thread.
    int64_t token() const;      // 0: not held
    int64_t remaining() const;  // nanoseconds for which the lock is certain to be held
    bool isLost() const;

    /// Returns the entry of the queue that exists as long as the lock is held.
    /// range   the lock is held.
    Fence fence() const;

    /// Returns the time until the lease of a held lock should be renewed, or until the next
    /// question, if that is earlier.
    Clock::duration untilRenewal() const;

    /// Records that the entry of a token has ended.
    /// threads any.
    void recordLoss(int64_t token);

    /// Returns the token of a loss that the observers do not know yet; 0: none.
    /// threads any.
    int64_t takeLoss();

    /// Returns the sequence number of the cluster.
    /// throws  CallError.
    std::string readSequence();

private:
    struct Hold {
        int64_t ticket = 0;  // 0: free
        std::string key = {};
        bool isDoubted = false;
        bool isLost = false;
        bool isRemoved = false;  // the entry has ended
    };

    static bool isCertain(Hold const& hold);
    Clock::duration leaseTime() const;
    Clock::duration renewalTime() const;
    Budget budgetUntil(Clock::time_point deadline) const;
    LockQueue::View enter(LockMode mode, Clock::time_point deadline);
    bool waitForTurn(LockMode mode, LockQueue::View& view, Clock::time_point deadline,
                     int cancelState);
    bool confirm(LockQueue::View const& view);
    void abandon();
    bool leave(Hold const& hold);
    void finish();
    Hold hold() const;
    template <class Change>
    void changeHold(Change change);

    ClusterInterface& cluster_;
    LockQueue queue_;
    Lease lease_;
    std::mutex renewal_;      // held by a thread that renews the lease, or adds an entry with it
    std::string key_;         // of the request in the queue
    int64_t entered_ = 0;     // ticket of the request
    bool isTainted_ = false;  // a lost request may add the entry later
    mutable std::mutex mutex_;
    Hold hold_;            // guarded by mutex_
    int64_t newLoss_ = 0;  // guarded by mutex_
};

}  // namespace zfleet
