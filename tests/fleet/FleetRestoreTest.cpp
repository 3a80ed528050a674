// Programs that run while their cluster is restored from a backup.
#include <Z/ZException.h>
#include <Z/ZFleetConnection.h>
#include <Z/ZFleetProperties.h>
#include <Z/ZFleetReadWriteLock.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "EtcdCluster.h"

namespace {

using Lock = ZFleetReadWriteLock_6_0;

constexpr char kConfiguration[] = "etcd://test/gateway";
constexpr char kLock[] = "etcd://test/orders";

// The cluster has one node: its term rises with each start, and is lower after a restoration.
class FleetRestore : public EtcdTest {
protected:
    void prepare() override
    {
        nodes_ = std::make_unique<EtcdCluster>(1);
        for (int i = 0; i < 3; ++i)
            nodes_->restart(0);
        std::string const more = "call = 5000\nlease = 600\n";
        std::string later = FleetFile::textFor(nodes_->endpoints());
        later.replace(later.find("test"), 4, "later");
        file_ = std::make_unique<FleetFile>(FleetFile::textFor(nodes_->endpoints()) + more + later);
    }

    static ZFleetMember_6_0 member()
    {
        ZFleetConnection_6_0* const connection = ZFleetConnection_6_0::open("test");
        ZFleetMember_6_0 member{};
        connection->checkEndpoint(0, member);
        connection->release();
        return member;
    }

    std::unique_ptr<EtcdCluster> nodes_;
    std::unique_ptr<FleetFile> file_;
};

}  // namespace

// The backup has the latest revision, so programs continue.
TEST_F(FleetRestore, LocksWorkInALowerTerm)
{
    ZFleetProperties_6_0 store(1);
    store.setValue("s", "k", "1");
    store.store(kConfiguration);
    Lock held(kLock);
    held.writeLock();
    int64_t const token = held.token();
    ZFleetMember_6_0 const before = member();
    nodes_->restore(nodes_->backUp(), true);
    ZFleetMember_6_0 const after = member();
    EXPECT_EQ(before.cluster, after.cluster);
    EXPECT_GT(before.term, after.term);

    EXPECT_EQ(1, held.keepAlive());
    EXPECT_EQ(token, held.token());
    Lock fresh("etcd://test/invoices");
    fresh.writeLock();
    EXPECT_LT(token, fresh.token());
    fresh.unlock();
    held.unlock();
    EXPECT_EQ(1ul, held.getSequence());
    store.setValue("s", "k", "2");
    store.store(nullptr);
}

// A program of the restored cluster gets a token of an earlier holder.
TEST_F(FleetRestore, FenceOfAnEarlierClusterIsRefusedThoughTokensRepeat)
{
    ZFleetProperties_6_0 store(1);
    store.setValue("s", "k", "1");
    store.store(kConfiguration);
    std::string const backup = nodes_->backUp();
    Lock held(kLock);
    held.writeLock();
    store.setFence(&held);
    int64_t const token = held.token();
    nodes_->restore(backup, false);

    Lock later("etcd://later/orders");
    later.writeLock();
    EXPECT_EQ(token, later.token());
    store.setValue("s", "k", "2");
    try {
        store.store(nullptr);
        ADD_FAILURE() << "the store was not refused";
    } catch (ZPropertiesIOException_6_0 const& e) {
        EXPECT_EQ(EREMCHG, e.excerrno());
    }
    EXPECT_EQ(1, held.isLost());
    held.unlock(0);
    EXPECT_THROW(held.writeLock(), ZLockResourceException_6_0);
    ZFleetProperties_6_0 restored("etcd://later/gateway", 1);
    EXPECT_EQ(1u, restored.getIntegerValue("s", "k", 0, 0));
    later.unlock();
}
