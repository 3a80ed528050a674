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

#include "transport/cluster_interface.h"
#include "transport/endpoint.h"
#include "transport/watch.h"

namespace zfleet {

class Cluster : public ClusterInterface {
public:
    /// range   as openCluster().
    explicit Cluster(Settings settings);

    Settings const& settings() const override { return settings_; }
    uint64_t id() const override { return id_; }
    int64_t revision() const override { return revision_; }
    RangeResult read(Range const& range, Budget& budget) override;
    TransactionResult commit(Transaction const& transaction, Repetition repetition,
                             Budget& budget) override;
    LeaseResult grantLease(int64_t seconds, Budget& budget) override;
    LeaseResult renewLease(int64_t id, Budget& budget) override;
    void revokeLease(int64_t id, Budget& budget) override;
    std::unique_ptr<WatchInterface> watch(unsigned endpoint, WatchedKeys const& keys,
                                          int64_t revision,
                                          std::shared_ptr<Event> const& event) override;
    void dropToken(std::string const& token) override;
    Header probe(unsigned endpoint, Budget& budget) override;
    void requireUsable(char const* method) const override;

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
    void recognise(char const* method, Header const& header, int64_t earlier, bool isDoubtful);

    Settings const settings_;
    std::vector<std::unique_ptr<Endpoint>> endpoints_;
    std::vector<std::unique_ptr<Endpoint>> watched_;  // the same, for watches
    std::atomic<unsigned> current_;                   // the endpoint of the next call
    std::atomic<uint64_t> id_{0};                     // of the cluster; 0: no reply yet
    std::atomic<int64_t> revision_{0};                // the highest of all replies
    std::mutex mutex_;
    std::string token_;        // guarded by mutex_; empty: authenticate first
    bool hasNoUsers_ = false;  // guarded by mutex_; the cluster works without users
};

}  // namespace zfleet
