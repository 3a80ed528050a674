// Changes in a cluster whose nodes are killed and suspended: a store takes each of them in.
#include <Z/ZFleetProperties.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <memory>

#include "EtcdCluster.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kPath[] = "etcd://test/watched";

// Waits until the store has a value. Returns false after a minute.
bool waitFor(ZFleetProperties_6_0& store, unsigned value)
{
    Clock::time_point const end = Clock::now() + std::chrono::minutes(1);
    while (store.getIntegerValue("s", "x", 0, 0) != value) {
        if (Clock::now() >= end)
            return false;
        pollfd wait{store.descriptor(), POLLIN, 0};
        poll(&wait, 1, 1000);
        store.processChanges();
    }
    return true;
}

class FleetWatches : public OwnClusterTest {
protected:
    void prepare() override
    {
        start("budget = 60\ncall = 500\nlook = 3600\n");  // without looks: only a watch can find a
                                                          // change
        writer_->setValue("s", "x", "0");
        writer_->store(kPath);
        reader_->load(kPath);
        reader_->descriptor();
    }

    // Stores the next value, and waits until the reader has it.
    void expectNotice()
    {
        writer_->setIntegerValue("s", "x", ++value_);
        writer_->store(nullptr);
        EXPECT_TRUE(waitFor(*reader_, value_)) << value_;
    }

    std::unique_ptr<ZFleetProperties_6_0> writer_ = std::make_unique<ZFleetProperties_6_0>(1);
    std::unique_ptr<ZFleetProperties_6_0> reader_ = std::make_unique<ZFleetProperties_6_0>(1);
    unsigned value_ = 0;
};

}  // namespace

TEST_F(FleetWatches, NoticesFollowEachStore)
{
    for (int i = 0; i < 200 && !HasFailure(); ++i)
        expectNotice();
}

TEST_F(FleetWatches, KilledNodesLoseNoChange)
{
    for (unsigned node = 0; node < nodes_->size() && !HasFailure(); ++node) {
        expectNotice();
        nodes_->kill(node);
        expectNotice();
        nodes_->start(node);
        nodes_->waitUntilReady();
        expectNotice();
    }
}

// A suspended node does not close its connections: only pings find out.
TEST_F(FleetWatches, SuspendedNodesLoseNoChange)
{
    for (unsigned node = 0; node < nodes_->size() && !HasFailure(); ++node) {
        expectNotice();
        nodes_->suspend(node);
        expectNotice();
        nodes_->resume(node);
        nodes_->waitUntilReady();
        expectNotice();
    }
}
