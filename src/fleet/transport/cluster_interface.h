// cluster_interface: the calls to a cluster, independent of gRPC.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>

#include "settings/fleet_settings.h"
#include "transport/budget.h"
#include "transport/event.h"
#include "transport/requests.h"
#include "transport/watch_interface.h"

namespace zfleet {

// A cluster, as the other sources use it. Only a program that opens one loads gRPC.
class ClusterInterface {
public:
    ClusterInterface() = default;
    ClusterInterface(ClusterInterface const&) = delete;
    ClusterInterface& operator=(ClusterInterface const&) = delete;
    virtual ~ClusterInterface() = default;

    virtual Settings const& settings() const = 0;

    /// Returns the id of the cluster, and the highest revision of all replies; 0 before the first.
    virtual uint64_t id() const = 0;
    virtual int64_t revision() const = 0;

    /// Reads keys.
    /// throws  CallError.
    virtual RangeResult read(Range const& range, Budget& budget) = 0;

    /// Executes a transaction.
    /// throws  CallError. The transaction may have been executed if `isDoubtful` is set.
    virtual TransactionResult commit(Transaction const& transaction, Repetition repetition,
                                     Budget& budget) = 0;

    /// Creates a lease. After a lost reply, another lease may exist, which ends unused.
    /// throws  CallError.
    virtual LeaseResult grantLease(int64_t seconds, Budget& budget) = 0;

    /// Renews a lease, at a node that may have lost its leadership without noticing: the renewal is
    /// valid only if a later read has the same term.
    /// throws  CallError.
    virtual LeaseResult renewLease(int64_t id, Budget& budget) = 0;

    /// Ends a lease, if it exists, and removes its keys.
    /// throws  CallError.
    virtual void revokeLease(int64_t id, Budget& budget) = 0;

    /// Starts to watch keys for changes from `revision` on, at the endpoint with this number,
    /// counted modulo their number. Watches have channels of their own, which large replies of
    /// other calls do not delay.
    /// throws  CallError without a token, and with ECHILD.
    virtual std::unique_ptr<WatchInterface> watch(unsigned endpoint, WatchedKeys const& keys,
                                                  int64_t revision,
                                                  std::shared_ptr<Event> const& event) = 0;

    /// Forgets a token that the cluster has refused, unless another thread has replaced it.
    virtual void dropToken(std::string const& token) = 0;

    /// Reads the state of the cluster from one endpoint, without failover. The cluster may be
    /// another one.
    /// throws  CallError.
    virtual Header probe(unsigned endpoint, Budget& budget) = 0;

    /// Checks that this process may call the cluster with `method`.
    /// throws  CallError with ECHILD in a child of a process that has used gRPC.
    virtual void requireUsable(char const* method) const = 0;
};

/// Returns a cluster that is called by gRPC. Does not connect.
/// range   the endpoints are nodes of one cluster. A reply of another cluster, or of an earlier
/// state
///         of the cluster, fails with EREMCHG.
/// throws  CallError with "dlopen()" and ELIBACC if libzfleet cannot load its transport.
std::unique_ptr<ClusterInterface> openCluster(Settings settings);

}  // namespace zfleet
