// cluster: calls to the endpoints of a cluster: deadlines, retries, failover and tokens.
//
// An attempt that fails is repeated at another endpoint, after a pause that grows at random, until
// the budget of the operation is used up. Only requests whose repetition changes nothing are
// repeated after an attempt that the cluster may have executed; see Repetition.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "settings/fleet_settings.h"
#include "transport/endpoint.h"
#include "transport/requests.h"
#include "transport/watch.h"

namespace zfleet {

// Whether a transaction may be executed twice without harm. A put without a condition is not
// idempotent: repeated late, it would undo another program's later put. A call that changes nothing
// is never doubtful.
enum class Repetition { isHarmless, isHarmful, changesNothing };

/// Returns the random pause after a number of earlier pauses.
Clock::duration randomPause(unsigned pauses);

// The time that an operation may take, and the pauses between its attempts.
class Budget {
public:
    explicit Budget(Clock::duration time) : end_(Clock::now() + time) {}

    Clock::duration left() const { return end_ - Clock::now(); }
    bool isUsedUp() const { return left() <= Clock::duration::zero(); }

    /// Waits a random time before the next attempt, but not past the end.
    void pause();

private:
    Clock::time_point const end_;
    unsigned pauses_ = 0;
};

class Cluster {
public:
    /// range   the endpoints are nodes of one cluster. A reply of another cluster, or of an earlier
    ///         state of the cluster, fails with EREMCHG.
    explicit Cluster(Settings settings);

    Settings const& settings() const { return settings_; }

    /// Returns the id of the cluster, and the highest revision of all replies; 0 before the first.
    uint64_t id() const { return id_; }
    int64_t revision() const { return revision_; }

    /// Returns the highest term of all replies; 0 before the first.
    uint64_t term() const { return term_; }

    /// Reads keys.
    /// throws  CallError.
    RangeResult read(Range const& range, Budget& budget);

    /// Executes a transaction.
    /// throws  CallError. The transaction may have been executed if `isDoubtful` is set.
    TransactionResult commit(Transaction const& transaction, Repetition repetition, Budget& budget);

    /// Creates a lease. After a lost reply, another lease may exist, which ends unused.
    /// throws  CallError.
    LeaseResult grantLease(int64_t seconds, Budget& budget);

    /// Renews a lease, at a node that may have lost its leadership without noticing: the renewal is
    /// valid only if a later read has the same term.
    /// throws  CallError.
    LeaseResult renewLease(int64_t id, Budget& budget);

    /// Ends a lease, if it exists, and removes its keys.
    /// throws  CallError.
    void revokeLease(int64_t id, Budget& budget);

    /// Starts to watch keys for changes from `revision` on, at the endpoint with this number,
    /// counted modulo their number. Watches have channels of their own, which large replies of
    /// other calls do not delay.
    /// throws  CallError without a token, and with ECHILD.
    std::unique_ptr<Watch> watch(unsigned endpoint, WatchedKeys const& keys, int64_t revision,
                                 std::shared_ptr<Event> const& event);

    /// Forgets a token that the cluster has refused, unless another thread has replaced it.
    void dropToken(std::string const& token);

    /// Reads the state of the cluster from one endpoint, without failover. The cluster may be
    /// another one.
    /// throws  CallError.
    Header probe(unsigned endpoint, Budget& budget);

private:
    struct Attempts;
    using Message = google::protobuf::MessageLite;

    // A call that has succeeded.
    struct Call {
        bool wasDoubtful;  // an earlier attempt may have been executed
        int64_t sentAt;    // bootTime() before the successful attempt
    };

    Call call(char const* method, Message const& request, Message& response, Repetition repetition,
              Budget& budget);
    void handle(Attempts& attempts, CallStatus const& status, Repetition repetition,
                Budget& budget);
    void moveOn(Attempts& attempts);
    std::string tokenFor(Endpoint& endpoint, Budget const& budget, CallStatus& status);
    Clock::duration timeoutOf(Budget const& budget) const;
    void recognise(char const* method, Header const& header, int64_t earlier);

    Settings const settings_;
    std::vector<std::unique_ptr<Endpoint>> endpoints_;
    std::vector<std::unique_ptr<Endpoint>> watched_;  // the same, for watches
    std::atomic<unsigned> current_;                   // the endpoint of the next call
    std::atomic<uint64_t> id_{0};                     // of the cluster; 0: no reply yet
    std::atomic<int64_t> revision_{0};                // the highest of all replies
    std::atomic<uint64_t> term_{0};                   // the highest of all replies
    std::mutex mutex_;
    std::string token_;        // guarded by mutex_; empty: authenticate first
    bool hasNoUsers_ = false;  // guarded by mutex_; the cluster works without users
};

}  // namespace zfleet
