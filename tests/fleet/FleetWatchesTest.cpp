// Changes in a cluster whose nodes are killed and suspended: a store takes each of them in.
#include <gtest/gtest.h>

#include <memory>

#include "EtcdCluster.h"
#include "WatchedValue.h"

namespace {

class FleetWatches : public OwnClusterTest {
protected:
    void prepare() override
    {
        start("budget = 60\ncall = 500\nlook = 3600\n");  // without looks: only a watch can find a
                                                          // change
        watched_ = std::make_unique<WatchedValue>();
    }

    std::unique_ptr<WatchedValue> watched_;
};

}  // namespace

TEST_F(FleetWatches, NoticesFollowEachStore)
{
    for (int i = 0; i < 200 && !HasFailure(); ++i)
        watched_->change();
}

TEST_F(FleetWatches, KilledNodesLoseNoChange)
{
    for (unsigned node = 0; node < nodes_->size() && !HasFailure(); ++node) {
        watched_->change();
        nodes_->kill(node);
        watched_->change();
        nodes_->start(node);
        nodes_->waitUntilReady();
        watched_->change();
    }
}

// A suspended node does not close its connections: only pings find out.
TEST_F(FleetWatches, SuspendedNodesLoseNoChange)
{
    for (unsigned node = 0; node < nodes_->size() && !HasFailure(); ++node) {
        watched_->change();
        nodes_->suspend(node);
        watched_->change();
        nodes_->resume(node);
        nodes_->waitUntilReady();
        watched_->change();
    }
}
