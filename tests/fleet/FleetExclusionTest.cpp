// ZFleetReadWriteLock with a cluster of three nodes.
#include <Z/ZException.h>
#include <Z/ZFleetReadWriteLock.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "EtcdCluster.h"
#include "FleetFile.h"
#include "LockStates.h"

namespace {

using Lock = ZFleetReadWriteLock_6_0;

class FleetExclusion : public SharedClusterTest<FleetExclusion> {
protected:
    void prepare() override
    {
        file_ = std::make_unique<FleetFile>(FleetFile::textFor(nodes_->endpoints()) +
                                            "budget = 60\ncall = 500\nlease = 2\n");
    }

    // Renews the lease. Returns false if the cluster does not reply in time.
    static bool isRenewed(Lock& lock)
    {
        try {
            EXPECT_EQ(1, lock.keepAlive());
            return true;
        } catch (ZLockResourceException_6_0 const&) {
            return false;
        }
    }

    std::unique_ptr<FleetFile> file_;
};

}  // namespace

TEST_F(FleetExclusion, LeaseLastsWhileItIsRenewed)
{
    Lock lock("etcd://test/renewed");
    lock.writeLock();
    int64_t const token = lock.token();
    EXPECT_LT(0, token);
    EXPECT_GE(1800, lock.remaining());
    for (int i = 0; i < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        EXPECT_EQ(1, lock.keepAlive());
        EXPECT_LT(1000, lock.remaining());
    }
    EXPECT_EQ(token, lock.token());
    lock.unlock();
    EXPECT_EQ(1ul, lock.getSequence());
    lock.writeLock();
    EXPECT_LT(token, lock.token());
    EXPECT_EQ(1ul, lock.getSequence());
    lock.unlock();
}

TEST_F(FleetExclusion, LeaseThatIsNotRenewedFreesTheLock)
{
    Lock holder("etcd://test/abandoned");
    Lock next("etcd://test/abandoned");
    holder.writeLock();
    next.setPatience(60000);
    std::thread([&] {
        next.writeLock();
        EXPECT_EQ(0, holder.remaining());
        EXPECT_LT(holder.token(), next.token());
        next.unlock();
    }).join();
    EXPECT_EQ(0, holder.keepAlive());
    EXPECT_EQ(1, holder.isLost());
    EXPECT_THROW(holder.unlock(), ZWriteResourceException_6_0);
    holder.unlock(0);
}

TEST_F(FleetExclusion, WaitLastsAfterTheEntryBeforeHasGivenUp)
{
    FleetFile const longer(FleetFile::textFor(nodes_->endpoints()) + "budget = 60\nlease = 60\n");
    constexpr char kPath[] = "etcd://test/impatient";
    for (bool const isReader : {false, true}) {
        Lock holder(kPath);
        Lock impatient(kPath);
        Lock next(kPath);
        holder.writeLock();
        impatient.setPatience(500);
        std::thread giving(
            [&] { EXPECT_THROW(impatient.writeLock(), ZLockResourceException_6_0); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        std::atomic<bool> isFree{false};
        std::thread waiting([&] {
            next.lock(isReader ? kRead : kWrite);
            EXPECT_TRUE(isFree);
            next.unlock(0);
        });
        giving.join();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        isFree = true;
        holder.unlock(0);
        waiting.join();
    }
}

TEST_F(FleetExclusion, HeldLockSurvivesTheDeathOfEachNode)
{
    FleetFile const longer(FleetFile::textFor(nodes_->endpoints()) + "call = 500\nlease = 60\n");
    Lock lock("etcd://test/survivor");
    lock.writeLock();
    for (unsigned node = 0; node < nodes_->size(); ++node) {
        nodes_->kill(node);
        // An election can take longer than a renewal.
        while (!isRenewed(lock))
            EXPECT_LT(0, lock.remaining());
        nodes_->start(node);
        nodes_->waitUntilReady();
        EXPECT_EQ(1, lock.keepAlive());
    }
    lock.unlock();
    EXPECT_EQ(1ul, lock.getSequence());
}
