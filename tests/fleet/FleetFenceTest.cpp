// Stores of ZFleetProperties that are tied to a lock, with a model of a cluster.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <Z/ZFleetReadWriteLock.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "FleetFile.h"
#include "ModelCluster.h"

namespace {

using Fate = ModelCluster::Fate;
using Lock = ZFleetReadWriteLock_6_0;

constexpr char kPath[] = "etcd://test/gateway";
constexpr char kText[] = "/zfleet/6/cfg/gateway/text";
constexpr char kQueue[] = "/zfleet/6/lock/gateway/q/";

class LossObserver final : public ZObserverInterface_6_0 {
public:
    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm) override
    {
        if (auto const* const lost = dynamic_cast<ZFleetLockLost_6_0 const*>(&parm))
            seen += std::to_string(lost->token()) + " ";
    }

    std::string seen;
};

class FleetFence : public testing::Test {
protected:
    FleetFence()
    {
        cluster_.put(kText, "[s]\nk = 1\n");
        store_.load(kPath);
        store_.setFence(&lock_);
        lock_.addObserver(&observer_);
    }

    // Another program gets the lock, because this one was stopped for longer than the lease.
    void loseLock() { cluster_.endLeases(); }

    std::string text() const { return cluster_.get(kText); }

    // Expects that a call fails with an errno, and changes neither the configuration nor the
    // store.
    template <class Call>
    void expectRefused(int error, Call call)
    {
        std::string const before = text();
        try {
            call();
            ADD_FAILURE() << "the store was not refused";
        } catch (ZPropertiesIOException_6_0 const& e) {
            EXPECT_STREQ("setFence()", e.api().getChars());
            EXPECT_EQ(error, e.excerrno());
        }
        EXPECT_EQ(before, text());
    }

    void expectStoreRefused(int error)
    {
        expectRefused(error, [&] { store_.store(nullptr); });
        EXPECT_EQ(1, store_.isModified());
    }

    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) + "budget = 10\ncall = 500\n" +
                          "[other]\nplain = yes\nendpoint = " + cluster_.address() + "\n"};
    LossObserver observer_;
    // Their destructors may throw; a fixture's may not.
    std::unique_ptr<ZFleetProperties_6_0> const ownedStore_{new ZFleetProperties_6_0(1)};
    std::unique_ptr<Lock> const ownedLock_{new Lock(kPath)};
    ZFleetProperties_6_0& store_ = *ownedStore_;
    Lock& lock_ = *ownedLock_;
};

}  // namespace

TEST_F(FleetFence, StoresWhileTheLockIsHeld)
{
    for (int i = 2; i < 5; ++i) {  // each acquisition has another token
        lock_.writeLock();
        store_.setIntegerValue("s", "k", static_cast<unsigned>(i));
        store_.store(nullptr);
        EXPECT_EQ("[s]\nk = " + std::to_string(i) + "\n", text());
        lock_.unlock();
    }
    EXPECT_EQ("", observer_.seen);
}

TEST_F(FleetFence, FreeLockRefusesAStoreWithoutARequest)
{
    store_.setValue("s", "k", "2");
    size_t const before = cluster_.server().requests().size();
    expectStoreRefused(EBADF);
    EXPECT_EQ(before, cluster_.server().requests().size());
    lock_.writeLock();
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = 2\n", text());
    lock_.unlock();
}

TEST_F(FleetFence, StoreFindsTheLossOfTheLock)
{
    lock_.writeLock();
    std::string const token = std::to_string(lock_.token());
    store_.setValue("s", "k", "2");
    loseLock();
    EXPECT_LT(0, lock_.remaining());  // the program does not know
    expectStoreRefused(ESTALE);
    EXPECT_EQ(token + " ", observer_.seen);
    EXPECT_EQ(1, lock_.isLost());
    EXPECT_EQ(0, lock_.remaining());
    size_t const before = cluster_.server().requests().size();
    expectStoreRefused(ESTALE);
    EXPECT_EQ(before, cluster_.server().requests().size());
    EXPECT_EQ(token + " ", observer_.seen);
    lock_.unlock(0);
    expectStoreRefused(EBADF);
    store_.setFence(nullptr);
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = 2\n", text());
}

TEST_F(FleetFence, StoreInAnotherClusterFindsTheLossOfTheLock)
{
    lock_.writeLock();
    std::string const token = std::to_string(lock_.token());
    store_.setValue("s", "k", "2");
    cluster_.becomeAnother(2);
    try {
        store_.store(nullptr);
        ADD_FAILURE() << "nothing was thrown";
    } catch (ZPropertiesIOException_6_0 const& e) {
        EXPECT_EQ(EREMCHG, e.excerrno());
    }
    EXPECT_EQ(token + " ", observer_.seen);
    EXPECT_EQ(1, lock_.isLost());
    EXPECT_EQ(0, lock_.remaining());
    lock_.unlock(0);
    EXPECT_EQ(0, lock_.token());
}

TEST_F(FleetFence, EntryOfALaterAcquisitionIsNotMistaken)
{
    lock_.writeLock();
    std::string const key = cluster_.keys(kQueue)[0];
    store_.setValue("s", "k", "2");
    cluster_.put(key, "");
    cluster_.put(key, "w elsewhere 1");  // the same key, with another create revision
    expectStoreRefused(ESTALE);
    cluster_.put(key, "");
    lock_.unlock(0);
}

TEST_F(FleetFence, LossAndChangeByTheNextHolderAreALoss)
{
    lock_.writeLock();
    store_.setValue("s", "k", "2");
    loseLock();
    cluster_.put(kText, "[s]\nk = 1\nother = 1\n");
    expectStoreRefused(ESTALE);
    EXPECT_NE("", observer_.seen);
    lock_.unlock(0);
}

TEST_F(FleetFence, ChangesWithoutTheLockAreStillMerged)
{
    lock_.writeLock();
    store_.setValue("s", "k", "2");
    cluster_.put(kText, "[s]\nk = 1\nother = 1\n");
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = 2\nother = 1\n", text());
    lock_.unlock();
}

TEST_F(FleetFence, LossBetweenTwoAttemptsOfAMergeIsFound)
{
    lock_.writeLock();
    store_.setValue("s", "k", "2");
    cluster_.put(kText, "[s]\nk = 1\nother = 1\n");
    int attempts = 0;
    std::function<void()> const prelude = [&] {
        if (++attempts == 1)
            cluster_.setPrelude([&] { loseLock(); });
    };
    cluster_.setPrelude(prelude);
    expectStoreRefused(ESTALE);
    EXPECT_EQ(1, attempts);
    lock_.unlock(0);
}

TEST_F(FleetFence, StoreWhoseReplyWasLostWithTheLockIsFound)
{
    lock_.writeLock();
    store_.setValue("s", "k", "2");
    cluster_.setFates({Fate::replyLost});
    cluster_.setInterlude([&] { loseLock(); });
    store_.store(nullptr);  // it was executed while the lock was held
    EXPECT_EQ("[s]\nk = 2\n", text());
    EXPECT_EQ(0, store_.isModified());
    EXPECT_EQ(1u, store_.generation());
    EXPECT_EQ(0, lock_.keepAlive());
    lock_.unlock(0);
}

TEST_F(FleetFence, LateStoreOfAFormerHolderIsNotExecuted)
{
    lock_.writeLock();
    store_.setValue("s", "k", "2");
    cluster_.setFates({Fate::delayed});
    cluster_.setPrelude([&] { cluster_.setPrelude([&] { loseLock(); }); });
    expectStoreRefused(ESTALE);
    cluster_.deliver();
    EXPECT_EQ("[s]\nk = 1\n", text());
    lock_.unlock(0);
}

TEST_F(FleetFence, UndoIsFenced)
{
    lock_.writeLock();
    store_.setValue("s", "k", "2");
    store_.store(nullptr);
    store_.setValue("s", "k", "3");
    store_.store(nullptr);
    store_.undo(kPath, 0);
    EXPECT_EQ("[s]\nk = 2\n", text());
    loseLock();
    expectRefused(ESTALE, [&] { store_.undo(kPath, 0); });
    EXPECT_NE("", observer_.seen);
    lock_.unlock(0);
}

TEST_F(FleetFence, LockOfAnotherFleetGuardsNothing)
{
    std::string const local = file_.directory().write("local.conf", "[s]\nk = 1\n");
    lock_.writeLock();
    store_.setValue("s", "k", "2");
    expectRefused(EXDEV, [&] { store_.store("etcd://other/gateway"); });
    expectRefused(EXDEV, [&] { store_.store(local.c_str()); });
    EXPECT_EQ("[s]\nk = 1\n", file_.directory().read("local.conf"));
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = 2\n", text());
    lock_.unlock();
}

TEST_F(FleetFence, ObserverThatThrowsDoesNotReplaceTheFailure)
{
    class Thrower final : public ZObserverInterface_6_0 {
    public:
        void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const&) override
        {
            ZInvalidParameterException_6_0().throwException("observer", 1);
        }
    } thrower;
    lock_.addObserver(&thrower);
    lock_.writeLock();
    store_.setValue("s", "k", "2");
    loseLock();
    expectStoreRefused(ESTALE);
    lock_.unlock(0);
    lock_.deleteObserver(&thrower);
}
