// ZFleetKeeper with a model of a cluster.
#include <Z/ZException.h>
#include <Z/ZFleetKeeper.h>
#include <Z/ZFleetProperties.h>
#include <Z/ZFleetReadWriteLock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "FleetFile.h"
#include "ModelCluster.h"
#include "NotedMessages.h"
#include "ScriptedClock.h"
#include "Threads.h"
#include "transport/requests.h"

namespace {

using Keeper = ZFleetKeeper_6_0;
using Lock = ZFleetReadWriteLock_6_0;
using std::chrono::milliseconds;

constexpr char kStore[] = "etcd://test/gateway";
constexpr char kText[] = "/zfleet/6/cfg/gateway/text";

// Runs an action in update(), on the thread of the keeper.
class Observer final : public ZObserverInterface_6_0 {
public:
    explicit Observer(std::function<void()> action = nullptr) : action_(std::move(action)) {}

    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const&) override
    {
        ++notices;
        if (action_)
            action_();
    }

    std::atomic<int> notices{0};

private:
    std::function<void()> const action_;
};

class FleetKeeper : public testing::Test {
protected:
    FleetKeeper() { cluster_.put(kText, "[s]\nk = 1\n"); }

    size_t renewals() const { return cluster_.server().count("LeaseKeepAlive"); }

    // Waits until the keeper has renewed a lease, or has tried to, several times.
    void waitForRenewals(size_t number) const
    {
        size_t const before = renewals();
        waitUntil([&] { return renewals() >= before + number; });
    }

    // Calls fail on purpose only, even on a slow machine.
    ScriptedClock const clock_{ScriptedClock::real};
    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) +
                          "budget = 10\ncall = 300\nlease = 1\n"};
    NotedMessages messages_;
};

}  // namespace

TEST_F(FleetKeeper, HeldLocksAreRenewed)
{
    FleetFile const longer(FleetFile::textFor({cluster_.address()}) + "budget = 10\nlease = 6\n");
    Lock first("etcd://test/first");
    Lock second("etcd://test/second");
    Keeper keeper;
    keeper.addLock(first);
    keeper.addLock(first);  // once
    keeper.addLock(second);
    keeper.start();
    first.writeLock();  // acquired after the start
    second.readLock();
    auto const end = std::chrono::steady_clock::now() + milliseconds(15000);
    int64_t lowest = 6000;
    while (std::chrono::steady_clock::now() < end) {
        lowest = std::min({lowest, first.remaining(), second.remaining()});
        std::this_thread::sleep_for(milliseconds(5));
    }
    EXPECT_LT(0, lowest);
    keeper.waitForExit();
    first.unlock();
    second.unlock();
    EXPECT_EQ(0, messages_.exceptions());
}

TEST_F(FleetKeeper, FreeLocksAreNotRenewed)
{
    Lock lock("etcd://test/orders");
    lock.writeLock();
    lock.unlock();
    size_t const before = cluster_.server().requests().size();
    Keeper keeper;
    keeper.addLock(lock);
    keeper.start();
    std::this_thread::sleep_for(milliseconds(1500));
    EXPECT_EQ(before, cluster_.server().requests().size());
    keeper.waitForExit();
}

TEST_F(FleetKeeper, RemovedLocksAreNotRenewed)
{
    Lock lock("etcd://test/orders");
    Keeper keeper;
    keeper.addLock(lock);
    keeper.start();
    lock.writeLock();
    waitForRenewals(1);
    keeper.removeLock(lock);
    keeper.removeLock(lock);  // nothing is left to remove
    size_t const before = renewals();
    std::this_thread::sleep_for(milliseconds(1200));
    EXPECT_EQ(before, renewals());
    EXPECT_EQ(0, lock.remaining());
    keeper.waitForExit();
    lock.unlock(0);
}

TEST_F(FleetKeeper, ObserversAreNotifiedOfALoss)
{
    Lock lock("etcd://test/orders");
    std::atomic<std::thread::id> notified;
    Observer observer([&] { notified = std::this_thread::get_id(); });
    lock.addObserver(&observer);
    Keeper keeper;
    keeper.addLock(lock);
    lock.writeLock();
    keeper.start();
    cluster_.endLeases();
    waitUntil([&] { return notified.load() != std::thread::id(); });
    EXPECT_EQ(1, lock.isLost());
    EXPECT_NE(std::this_thread::get_id(), notified.load());
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_EQ(1, observer.notices);
    keeper.waitForExit();
    EXPECT_THROW(lock.unlock(), ZWriteResourceException_6_0);
    lock.unlock(0);
}

TEST_F(FleetKeeper, LossIsReportedBeforeALeaseCanEndInASilentCluster)
{
    Lock lock("etcd://test/orders");
    std::atomic<int64_t> lostAt{0};
    Observer observer([&] { lostAt = zfleet::bootTime(); });
    lock.addObserver(&observer);
    Keeper keeper;
    keeper.addLock(lock);
    lock.writeLock();
    keeper.start();
    waitForRenewals(1);
    cluster_.refuse(14);
    int64_t const end = zfleet::bootTime() + lock.remaining() * 1'000'000;
    waitUntil([&] { return lostAt != 0; });
    EXPECT_LE(end, lostAt + 1'000'000);      // it was certain up to this time
    EXPECT_GT(end + 2'000'000'000, lostAt);  // the thread may run late on a busy machine
    EXPECT_EQ(0, lock.remaining());
    keeper.waitForExit();
    cluster_.refuse(0);
    lock.unlock(0);
}

TEST_F(FleetKeeper, RepeatedFailureIsReportedOnce)
{
    FleetFile const slower(FleetFile::textFor({cluster_.address()}) +
                           "budget = 10\ncall = 300\nlease = 9\n");
    Lock lock("etcd://test/orders");
    lock.writeLock();
    cluster_.refuseLeases("LeaseKeepAlive", 7);
    Keeper keeper;
    keeper.addLock(lock);
    keeper.start();
    waitForRenewals(3);
    EXPECT_EQ(1, messages_.exceptions());
    cluster_.refuseLeases("LeaseKeepAlive", 0);
    keeper.waitForExit();
    lock.unlock(0);
}

TEST_F(FleetKeeper, ChangesAreTakenIn)
{
    ZFleetProperties_6_0 store(kStore, 1);
    Observer observer;
    store.addObserver(&observer);
    Keeper keeper;
    keeper.addStore(store);
    keeper.addStore(store);
    keeper.start();
    for (unsigned i = 2; i < 5; ++i) {
        cluster_.put(kText, "[s]\nk = " + std::to_string(i) + "\n");
        waitUntil([&] { return store.getIntegerValue("s", "k", 0, 0) == i; });
    }
    keeper.removeStore(store);
    cluster_.put(kText, "[s]\nk = 5\n");
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_EQ(4u, store.getIntegerValue("s", "k", 0, 0));
    keeper.waitForExit();
    EXPECT_EQ(3, observer.notices);
    store.deleteObserver(&observer);
}

TEST_F(FleetKeeper, StoreThatIsLoadedLaterIsWatched)
{
    ZFleetProperties_6_0 store(1);
    Keeper keeper;
    keeper.addStore(store);
    keeper.start();
    store.load(kStore);
    cluster_.put(kText, "[s]\nk = 2\n");
    waitUntil([&] { return store.getIntegerValue("s", "k", 0, 0) == 2; });
}

TEST_F(FleetKeeper, BadContentsAreReportedOnceAndTheKeeperContinues)
{
    ZFleetProperties_6_0 store(kStore, 1);
    Keeper keeper;
    keeper.addStore(store);
    keeper.start();
    cluster_.put(kText, "[s\nk\n");
    waitUntil([&] { return messages_.exceptions() == 1; });
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_EQ(1, messages_.exceptions());
    EXPECT_EQ(1u, store.getIntegerValue("s", "k", 0, 0));
    cluster_.put(kText, "[s]\nk = 2\n");
    waitUntil([&] { return store.getIntegerValue("s", "k", 0, 0) == 2; });
    keeper.waitForExit();
}

TEST_F(FleetKeeper, ObserverThatThrowsIsReportedAndTheKeeperContinues)
{
    Lock lost("etcd://test/lost");
    Lock kept("etcd://test/kept");
    Observer known([] { ZInvalidParameterException_6_0().throwException("observer", 1); });
    Observer unknown([] { throw std::runtime_error("observer"); });
    lost.addObserver(&known);
    kept.addObserver(&unknown);
    Keeper keeper;
    keeper.addLock(lost);
    keeper.addLock(kept);
    lost.writeLock();
    kept.writeLock();
    keeper.start();
    cluster_.endLeases();
    waitUntil([&] { return known.notices == 1 && unknown.notices == 1; });
    waitUntil([&] { return messages_.exceptions() == 1 && messages_.messages().size() == 1; });
    EXPECT_EQ(19, messages_.messages()[0].number);
    lost.unlock(0);
    kept.unlock(0);
    kept.writeLock();
    waitForRenewals(1);
    keeper.waitForExit();
    kept.unlock(0);
}

TEST_F(FleetKeeper, RemovalWaitsForTheUseOfALock)
{
    Lock lock("etcd://test/orders");
    std::atomic<bool> mayEnd{false};
    Observer observer([&] { waitUntil([&] { return mayEnd.load(); }); });
    lock.addObserver(&observer);
    Keeper keeper;
    keeper.addLock(lock);
    lock.writeLock();
    keeper.start();
    cluster_.endLeases();
    waitUntil([&] { return observer.notices == 1; });
    std::future<void> const removed =
        std::async(std::launch::async, [&] { keeper.removeLock(lock); });
    EXPECT_TRUE(staysBlocked(removed));
    mayEnd = true;
    removed.wait();
    keeper.waitForExit();
    lock.unlock(0);
}

TEST_F(FleetKeeper, ObserverRemovesItsLock)
{
    Lock lock("etcd://test/orders");
    Keeper keeper;
    Observer observer([&] { keeper.removeLock(lock); });
    lock.addObserver(&observer);
    keeper.addLock(lock);
    lock.writeLock();
    keeper.start();
    cluster_.endLeases();
    waitUntil([&] { return observer.notices == 1; });
    keeper.waitForExit();
    lock.unlock(0);
}

TEST_F(FleetKeeper, StartsAgainAndEndsWithTheObject)
{
    Lock lock("etcd://test/orders");
    {
        Keeper keeper;
        keeper.addLock(lock);
        lock.writeLock();
        for (int i = 0; i < 3; ++i) {
            keeper.start();
            ZSleeperThread_6_0& base = keeper;
            base.wakeUp();  // does not wait for the work
            waitForRenewals(1);
            base.waitForExit();
        }
        keeper.start();
    }
    size_t const before = renewals();
    std::this_thread::sleep_for(milliseconds(600));
    EXPECT_EQ(before, renewals());
    lock.unlock(0);
    Keeper const unused;
}

TEST_F(FleetKeeper, CancelledKeeperUsesNoObject)
{
    Lock lock("etcd://test/orders");
    Keeper keeper;
    keeper.addLock(lock);
    lock.writeLock();
    keeper.start();
    waitForRenewals(1);
    ASSERT_EQ(0, pthread_cancel(keeper.getPThreadID()));
    keeper.removeLock(lock);
    keeper.waitForExit();
    lock.unlock(0);
}
