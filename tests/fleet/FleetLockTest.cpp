// ZFleetReadWriteLock with a model of a cluster.
#include <Z/ZException.h>
#include <Z/ZFleetReadWriteLock.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "FleetFile.h"
#include "LockStates.h"
#include "ModelCluster.h"
#include "Raised.h"
#include "ScriptedClock.h"
#include "Threads.h"
#include "ZFleetReadWriteLock_p.h"
#include "transport/requests.h"

namespace {

using Lock = ZFleetReadWriteLock_6_0;
using Fate = ModelCluster::Fate;

using namespace zfleet_lock;
using std::chrono::seconds;

constexpr char kPath[] = "etcd://test/orders";
constexpr char kQueue[] = "/zfleet/6/lock/orders/q/";
constexpr char kSequence[] = "/zfleet/6/lock/orders/seq";

// The time of a new lease that is certain, in milliseconds.
constexpr int64_t kCertain = 27000;

// The entry of another program, which is before or after all entries of this one by its time.
constexpr char kOther[] = "/zfleet/6/lock/orders/q/00000000000000ff";

// Returns the key of an entry of another program.
std::string otherEntry(int number)
{
    return std::string(kQueue) + "00000000000000" + std::to_string(number);
}

class Observer final : public ZObserverInterface_6_0 {
public:
    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const& parm) override
    {
        if (auto const* const lost = dynamic_cast<ZFleetLockLost_6_0 const*>(&parm))
            seen += "lost " + std::to_string(lost->token()) + " ";
        else if (auto const* const change = dynamic_cast<ZSequenceUpdate_6_0 const*>(&parm))
            seen += std::to_string(change->getLastSequence()) + ">" +
                    std::to_string(change->getSequence()) + " ";
    }

    std::string seen;
};

class FleetLock : public testing::Test {
protected:
    void setUpFile(std::string const& more)
    {
        file_.reset();
        file_.emplace(FleetFile::textFor({cluster_.address()}) + more);
    }

    // The time of budgets passes only with the pauses between calls from now on.
    void setUpSteppedFile(std::string const& more)
    {
        setUpFile(more);
        clock_.emplace(ScriptedClock::stepped);
    }

    // The cluster gets another id, or is restored in an earlier state without the entries and with
    // their leases.
    void moveToAnotherCluster(bool isRestored)
    {
        for (std::string const& entry : cluster_.keys(kQueue))
            cluster_.put(entry, "");
        cluster_.becomeAnother(isRestored ? 1 : 2, isRestored ? 1 : 0);
    }

    void returnToTheCluster()
    {
        cluster_.becomeAnother(1, laterRevision_ += 1000);
        cluster_.endLeases();
    }

    size_t entries() const { return cluster_.keys(kQueue).size(); }
    size_t count(char const* method) const { return cluster_.server().count(method); }
    std::string sequence() const { return cluster_.get(kSequence); }

    void waitForEntries(size_t number) const
    {
        waitUntil([&] { return entries() == number; });
    }

    // Expects that the lock is free, and works.
    void expectFree(Lock& lock) const
    {
        ASSERT_EQ(kUnset, lock.getLockState());
        ASSERT_EQ(0, lock.getReaderCount());
        EXPECT_EQ(0, lock.token());
        EXPECT_EQ(0, lock.remaining());
        EXPECT_EQ(0u, entries());
        lock.setPatience(0);
        for (State const state : {kRead, kWrite}) {
            elsewhereInTime([&] {
                lock.lock(state);
                lock.unlock(0);
            });
        }
        lock.setPatience(-1);
    }

    // Runs an action in another thread. Calls have no time limit here, so a call without a reply
    // never ends, and its thread ends only with the program.
    static void elsewhereInTime(std::function<void()> const& action)
    {
        std::future<void> done = std::async(std::launch::async, action);
        if (done.wait_for(kHangs) != std::future_status::ready) {
            ADD_FAILURE() << "the cluster does not reply to a call for the lock";
            abort();
        }
        done.get();
    }

    // Expects that a renewal fails after its time, and leaves the certain time as it is.
    static void expectNoRenewal(Lock& lock)
    {
        int64_t const before = lock.remaining();
        ScriptedClock::suspend(seconds(1));
        EXPECT_TRUE(raises<ZLockResourceException_6_0>(33, ETIMEDOUT, kSource, raiseInKeepAlive,
                                                       [&] { lock.keepAlive(); }));
        EXPECT_GE(before - 1000, lock.remaining());
        EXPECT_EQ(0, lock.isLost());
    }

    template <class Call>
    static testing::AssertionResult isRefused(int error, Call call)
    {
        return raises<ZLockResourceException_6_0>(33, error, kSource, raiseInLock, call);
    }

    // Waits until a program watches the queue.
    void waitForWatch() const
    {
        waitUntil([&] { return cluster_.server().streams() == 1; });
    }

    // Counts the reads of the queue without a write, and their entries.
    struct Reads {
        std::atomic<size_t> count{0};
        std::atomic<int> mostEntries{0};  // of one read
    };

    std::shared_ptr<Reads> countReads()
    {
        auto const reads = std::make_shared<Reads>();
        cluster_.setFault([reads](auto const& request, auto const& execute) {
            ModelCluster::Reply const reply = execute(request);
            zfleet::wire::TxnRequest form;
            zfleet::wire::TxnResponse response;
            if (request.method != "Txn" || !form.ParseFromString(request.bytes) ||
                form.compare_size() != 0 || !response.ParseFromString(reply.text))
                return reply;
            int entries = 0;
            for (auto const& answer : response.responses())
                entries += answer.range().kvs_size();
            reads->mostEntries = std::max(reads->mostEntries.load(), entries);
            ++reads->count;
            return reply;
        });
        return reads;
    }

    int64_t laterRevision_ = 0;
    // Calls fail on purpose only, even on a slow machine.
    std::optional<ScriptedClock> clock_{ScriptedClock::real};
    ModelCluster cluster_;
    std::optional<FleetFile> file_{FleetFile::textFor({cluster_.address()}) +
                                   "budget = 60\ncall = 1000\n"};
};

}  // namespace

// ---- Ordinary use ------------------------------------------------------------------------------

TEST_F(FleetLock, EntryNamesTheHolderAndEndsWithTheLock)
{
    char host[256];
    ASSERT_EQ(0, gethostname(host, sizeof host));
    std::string const holder = std::string(" ") + host + " " + std::to_string(getpid());
    Lock lock(kPath);
    EXPECT_STREQ(kPath, lock.getLockFileName());
    for (State const state : {kRead, kProtect, kWrite}) {
        EXPECT_EQ(0, lock.token());
        lock.lock(state);
        EXPECT_EQ(state == kRead ? kRead : kWrite, lock.getLockState());
        std::vector<std::string> const keys = cluster_.keys(kQueue);
        ASSERT_EQ(1u, keys.size());
        EXPECT_EQ(16u, keys[0].size() - std::string(kQueue).size());
        EXPECT_EQ((state == kRead ? "r" : "w") + holder, cluster_.get(keys[0]));
        EXPECT_LT(0, lock.token());
        lock.unlock(0);
        EXPECT_EQ(0u, entries());
    }
    EXPECT_EQ("(missing)", sequence());
    expectFree(lock);
}

TEST_F(FleetLock, UncontendedUseTakesTwoTransactions)
{
    Lock lock(kPath);
    lock.writeLock();
    lock.unlock();
    EXPECT_EQ(1u, count("LeaseGrant"));
    size_t const before = cluster_.server().requests().size();
    lock.writeLock();
    lock.unlock();
    EXPECT_EQ(before + 2, cluster_.server().requests().size());
    EXPECT_EQ("2", sequence());
}

TEST_F(FleetLock, TokensRise)
{
    Lock first(kPath);
    Lock second(kPath);
    int64_t last = 0;
    for (int i = 0; i < 3; ++i)
        for (Lock* const lock : {&first, &second}) {
            lock->writeLock();
            EXPECT_LT(last, lock->token());
            last = lock->token();
            lock->unlock();
        }
}

TEST_F(FleetLock, SequenceNumberIsToldToOtherObjects)
{
    Lock writer(kPath);
    Lock reader(kPath);
    Observer observer;
    reader.addObserver(&observer);
    reader.readLock();
    reader.unlock();
    EXPECT_EQ("", observer.seen);
    writer.writeLock();
    EXPECT_EQ("(missing)", sequence());
    writer.unlock();
    EXPECT_EQ("1", sequence());
    EXPECT_EQ(1ul, writer.getSequence());
    reader.readLock();
    EXPECT_EQ("0>1 ", observer.seen);
    EXPECT_EQ(kWrite, reader.getLockState());  // a reader that notifies has the write lock
    reader.unlock();
    EXPECT_EQ("1", sequence());
    writer.writeLock();
    writer.unlock(0);
    EXPECT_EQ("1", sequence());
}

TEST_F(FleetLock, SequenceNumberWrapsAround)
{
    cluster_.put(kSequence, "4294967294");
    Lock lock(kPath);
    lock.writeLock();
    EXPECT_EQ(4294967294ul, lock.getSequence());
    EXPECT_EQ(0ul, lock.incSequence());
    unsigned long number = 7;
    lock.readSequenceNumber(&number);
    EXPECT_EQ(0ul, number);
    lock.unlock(0);
    EXPECT_EQ("0", sequence());
    lock.readSequenceNumber(&number);
    EXPECT_EQ(0ul, number);
}

TEST_F(FleetLock, WriterExcludesAndReadersShare)
{
    Lock first(kPath);
    Lock second(kPath);
    second.setPatience(0);
    struct Case {
        State held;
        State wanted;
        bool isFree;
    };
    for (Case const c : {Case{kRead, kRead, true}, Case{kRead, kWrite, false},
                         Case{kWrite, kRead, false}, Case{kWrite, kWrite, false}}) {
        SCOPED_TRACE(std::to_string(c.held) + std::to_string(c.wanted));
        first.lock(c.held);
        std::thread([&] {
            if (!c.isFree) {
                EXPECT_TRUE(isRefused(ETIMEDOUT, [&] { second.lock(c.wanted); }));
                EXPECT_EQ(kUnset, second.getLockState());
                return;
            }
            second.lock(c.wanted);
            EXPECT_EQ(2u, entries());
            second.unlock(0);
        }).join();
        EXPECT_EQ(1u, entries());
        first.unlock(0);
    }
    expectFree(second);
}

TEST_F(FleetLock, RequestsAreServedInTheirOrder)
{
    Lock reader(kPath);
    Lock writer(kPath);
    Lock late(kPath);
    reader.readLock();
    std::string order;
    std::thread writing([&] {
        writer.writeLock();
        order += "w";
        writer.unlock();
    });
    waitForEntries(2);
    late.setPatience(0);
    EXPECT_TRUE(isRefused(ETIMEDOUT, [&] { late.readLock(); }));  // it would overtake the writer
    late.setPatience(-1);
    std::thread reading([&] {
        late.readLock();
        order += "r";
        late.unlock();
    });
    waitForEntries(3);
    reader.unlock();
    writing.join();
    reading.join();
    EXPECT_EQ("wr", order);
    EXPECT_EQ(0u, entries());
}

TEST_F(FleetLock, ThreadsOfAnObjectShareAnEntry)
{
    Lock lock(kPath);
    lock.readLock();
    std::thread([&] {
        lock.readLock();
        EXPECT_EQ(1u, entries());
        lock.unlock();
    }).join();
    EXPECT_EQ(1u, entries());
    lock.unlock();
    EXPECT_EQ(0u, entries());
}

TEST_F(FleetLock, EntryThatCannotBeReadExcludes)
{
    cluster_.put(kOther, "?");
    Lock lock(kPath);
    lock.setPatience(0);
    EXPECT_TRUE(isRefused(ETIMEDOUT, [&] { lock.readLock(); }));
    cluster_.put(kOther, "r elsewhere 1");
    lock.readLock();
    lock.unlock();
}

// ---- Waiting -----------------------------------------------------------------------------------

TEST_F(FleetLock, WaitsUntilAnotherProgramLeaves)
{
    cluster_.put(kOther, "w elsewhere 1");
    Lock lock(kPath);
    std::thread thread([&] {
        lock.readLock();
        EXPECT_EQ("(missing)", cluster_.get(kOther));
        lock.unlock();
    });
    waitForWatch();
    cluster_.put(kOther, "");
    thread.join();
    expectFree(lock);
}

TEST_F(FleetLock, LooksWithoutANotice)
{
    cluster_.put(kOther, "w elsewhere 1");
    Lock lock(kPath);
    std::thread thread([&] {
        lock.writeLock();
        lock.unlock();
    });
    waitForWatch();
    cluster_.silenceWatches();
    cluster_.put(kOther, "");
    thread.join();
    expectFree(lock);
}

// A program that waits in a long queue reads its own entry and the entry before, after a change of
// these two, and every 5 s.
TEST_F(FleetLock, WaitingWriterReadsOnlyTheEntryBeforeItsOwn)
{
    for (int i = 10; i < 30; ++i)
        cluster_.put(otherEntry(i), "w elsewhere 1");
    Lock lock(kPath);
    std::shared_ptr<Reads> const reads = countReads();
    auto const start = std::chrono::steady_clock::now();
    std::thread thread([&] {
        lock.writeLock();
        EXPECT_EQ(1u, entries());
        lock.unlock();
    });
    waitForWatch();
    for (int i = 10; i < 29; ++i) {
        cluster_.put(otherEntry(i), "");
        cluster_.put(otherEntry(i + 20), "r elsewhere 1");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    for (int i = 10; i < 29; ++i)
        cluster_.put(otherEntry(i + 20), "");
    cluster_.put(otherEntry(29), "");
    thread.join();
    auto const passed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(1 + static_cast<size_t>(passed / seconds(5)), reads->count);
    EXPECT_GE(2, reads->mostEntries);
}

// Three entries of other programs are before the entry. The last of them that excludes the entry
// ends first, without having had the lock.
TEST_F(FleetLock, EntryThatGivesUpLeavesTheWaitToEarlierOnes)
{
    struct Case {
        State wanted;
        std::string queue;
        std::vector<int> ends;
        size_t left;  // entries after the acquisition
    };
    for (Case const& c : {Case{kWrite, "wrw", {12, 11, 10}, 1},
                          Case{kWrite, "rrr", {12, 11, 10}, 1}, Case{kRead, "wrw", {12, 10}, 2},
                          Case{kRead, "www", {12, 11, 10}, 1}, Case{kRead, "rrw", {12}, 3}}) {
        SCOPED_TRACE(std::to_string(c.wanted) + c.queue);
        for (int i = 0; i < 3; ++i)
            cluster_.put(otherEntry(10 + i), c.queue.substr(i, 1) + " elsewhere 1");
        Lock lock(kPath);
        std::shared_ptr<Reads> const reads = countReads();
        std::thread thread([&] {
            lock.lock(c.wanted);
            EXPECT_EQ(c.left, entries());
            lock.unlock(0);
        });
        waitForWatch();
        for (int const number : c.ends) {
            size_t const before = reads->count;
            cluster_.put(otherEntry(number), "");
            waitUntil([&] { return reads->count > before; });
        }
        thread.join();
        cluster_.setFault(nullptr);
        for (int i = 0; i < 3; ++i)
            cluster_.put(otherEntry(10 + i), "");
        waitUntil([&] { return cluster_.server().streams() == 0; });
    }
}

TEST_F(FleetLock, PatienceEnds)
{
    cluster_.put(kOther, "w elsewhere 1");
    Lock lock(kPath);
    lock.setPatience(150);
    auto const start = std::chrono::steady_clock::now();
    EXPECT_TRUE(isRefused(ETIMEDOUT, [&] { lock.writeLock(); }));
    EXPECT_LE(std::chrono::milliseconds(150), std::chrono::steady_clock::now() - start);
    EXPECT_EQ(1u, entries());
    EXPECT_EQ(1u, cluster_.leases());  // kept: nothing is in doubt
    cluster_.put(kOther, "");
    expectFree(lock);
}

TEST_F(FleetLock, EntryThatEndedWhileWaitingIsAddedAgain)
{
    cluster_.put(kOther, "w elsewhere 1");
    Lock lock(kPath);
    std::thread thread([&] {
        lock.writeLock();
        EXPECT_EQ(1u, entries());
        lock.unlock();
    });
    waitForWatch();
    std::string const entry = cluster_.keys(kQueue).back();
    cluster_.endLeases();
    waitUntil([&] { return entries() == 2 && cluster_.keys(kQueue).back() != entry; });
    cluster_.put(kOther, "");
    thread.join();
    expectFree(lock);
}

TEST_F(FleetLock, WaitContinuesWhileTheClusterIsSilent)
{
    cluster_.put(kOther, "w elsewhere 1");
    setUpFile("budget = 3\ncall = 1000\n");
    Lock lock(kPath);
    std::thread thread([&] {
        lock.writeLock();
        lock.unlock();
    });
    waitForWatch();
    cluster_.refuse(14);
    cluster_.put(kOther, "");  // the notice leads to reads that fail
    std::this_thread::sleep_for(std::chrono::milliseconds(3500));
    cluster_.refuse(0);
    thread.join();
    expectFree(lock);
}

TEST_F(FleetLock, WaitTakesNoProcessorTime)
{
    auto const used = [] {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return time.tv_sec * 1000 + time.tv_nsec / 1'000'000;
    };
    cluster_.put(kOther, "w elsewhere 1");
    setUpFile("budget = 60\ncall = 1000\nlease = 1\n");
    Lock lock(kPath);
    lock.setPatience(2000);
    auto const before = used();
    EXPECT_TRUE(isRefused(ETIMEDOUT, [&] { lock.writeLock(); }));
    EXPECT_GT(500, used() - before);  // milliseconds
}

TEST_F(FleetLock, LostRightEndsTheWait)
{
    cluster_.put(kOther, "w elsewhere 1");
    Lock lock(kPath);
    std::thread thread([&] { EXPECT_TRUE(isRefused(EACCES, [&] { lock.writeLock(); })); });
    waitForWatch();
    cluster_.refuse(7);
    cluster_.put(kOther, "w elsewhere 2");
    thread.join();
    EXPECT_EQ(kUnset, lock.getLockState());
}

TEST_F(FleetLock, SignalHandlerEndsTheWaitUnlessItRestartsCalls)
{
    static std::atomic<int> handled;
    handled = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { ++handled; };
    struct sigaction before1;
    struct sigaction before2;
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, &before1));
    action.sa_flags = SA_RESTART;
    ASSERT_EQ(0, sigaction(SIGUSR2, &action, &before2));
    cluster_.put(kOther, "w elsewhere 1");
    Lock lock(kPath);
    std::thread thread([&] { EXPECT_TRUE(isRefused(EINTR, [&] { lock.writeLock(); })); });
    waitForWatch();
    ASSERT_EQ(0, pthread_kill(thread.native_handle(), SIGUSR2));
    waitUntil([] { return handled == 1; });
    EXPECT_EQ(2u, entries());
    ASSERT_EQ(0, pthread_kill(thread.native_handle(), SIGUSR1));
    thread.join();
    EXPECT_EQ(2, handled);
    cluster_.put(kOther, "");
    expectFree(lock);
    sigaction(SIGUSR1, &before1, nullptr);
    sigaction(SIGUSR2, &before2, nullptr);
}

// The sanitizers do not see that a cancellation ends poll() and the frames above the handlers.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(FleetLock, CancelledThreadLeavesTheQueue)
{
    cluster_.put(kOther, "w elsewhere 1");
    Lock lock(kPath);
    CancellableThread thread([&] { lock.writeLock(); });
    waitForWatch();
    thread.cancel();
    EXPECT_TRUE(thread.endsCancelled());
    EXPECT_EQ(1u, entries());
    cluster_.put(kOther, "");
    expectFree(lock);
}
#endif

// ---- Replies that are lost, late or doubled ----------------------------------------------------

TEST_F(FleetLock, LostReplyToARequestIsRepeated)
{
    for (Fate const fate : {Fate::replyLost, Fate::requestLost, Fate::noReply}) {
        SCOPED_TRACE(static_cast<int>(fate));
        Lock lock(kPath);
        cluster_.setFates({fate});
        ScriptedClock::setTimeouts(fate == Fate::noReply);
        lock.writeLock();
        ScriptedClock::setTimeouts(false);
        EXPECT_EQ(1u, entries());
        lock.unlock();
        EXPECT_EQ(0u, cluster_.leases());  // a late request cannot add the entry again
        expectFree(lock);
    }
    EXPECT_EQ("3", sequence());
}

TEST_F(FleetLock, LateRequestAddsNoEntry)
{
    Lock lock(kPath);
    cluster_.setFates({Fate::delayed});
    lock.writeLock();
    EXPECT_EQ(1u, entries());
    lock.unlock();
    cluster_.deliver();
    expectFree(lock);
}

TEST_F(FleetLock, RequestThatWasGivenUpAddsNoEntryLater)
{
    setUpSteppedFile("budget = 1\ncall = 300\n");
    Lock lock(kPath);
    cluster_.setFates(std::deque<Fate>(200, Fate::delayed));
    EXPECT_TRUE(isRefused(ETIMEDOUT, [&] { lock.writeLock(); }));
    EXPECT_EQ(0u, cluster_.leases());
    cluster_.setFates({});
    cluster_.deliver();
    expectFree(lock);
}

TEST_F(FleetLock, LeaseThatCannotBeRevokedIsNotRenewed)
{
    setUpSteppedFile("budget = 1\ncall = 300\n");
    Lock lock(kPath);
    cluster_.setFates(std::deque<Fate>(200, Fate::delayed));
    cluster_.refuseLeases("LeaseRevoke", 14);
    EXPECT_TRUE(isRefused(ETIMEDOUT, [&] { lock.writeLock(); }));
    cluster_.setFates({});
    cluster_.deliver();
    EXPECT_EQ(1u, entries());
    lock.setPatience(0);
    EXPECT_TRUE(isRefused(ETIMEDOUT, [&] { lock.writeLock(); }));  // until the lease ends
    EXPECT_EQ(0u, count("LeaseKeepAlive"));
    cluster_.refuseLeases("LeaseRevoke", 0);
    cluster_.endLeases();
    expectFree(lock);
}

TEST_F(FleetLock, LeaseThatEndedBetweenAcquisitionsIsReplaced)
{
    Lock lock(kPath);
    lock.writeLock();
    lock.unlock();
    cluster_.endLeases();
    expectFree(lock);
    EXPECT_EQ(2u, count("LeaseGrant"));
}

// A program that is suspended or cut off again and again needs one lease after another.
TEST_F(FleetLock, LeasesThatEndBeforeTheEntryAreReplaced)
{
    auto const endLeasesFor = [this](unsigned entries) {
        auto const left = std::make_shared<unsigned>(entries);
        cluster_.setFault([=, this](auto const& request, auto const& execute) {
            if (request.method == "Txn" && *left > 0) {
                --*left;
                cluster_.endLeases();
            }
            return execute(request);
        });
    };
    {
        Lock lock(kPath);
        endLeasesFor(12);
        lock.writeLock();
        EXPECT_EQ(1u, entries());
        lock.unlock();
    }
    EXPECT_EQ(13u, count("LeaseGrant"));
    setUpFile("budget = 1\n");
    Lock late(kPath);
    endLeasesFor(1'000'000);
    EXPECT_TRUE(isRefused(ETIMEDOUT, [&] { late.writeLock(); }));
    cluster_.setFault(nullptr);
    expectFree(late);
}

TEST_F(FleetLock, ReleaseWithoutReplyCountsOnce)
{
    Lock lock(kPath);
    int expected = 0;
    for (Fate const fate : {Fate::replyLost, Fate::requestLost, Fate::noReply, Fate::delayed}) {
        SCOPED_TRACE(static_cast<int>(fate));
        lock.writeLock();
        cluster_.setFates({fate});
        ScriptedClock::setTimeouts(fate == Fate::noReply);
        lock.unlock();
        ScriptedClock::setTimeouts(false);
        cluster_.deliver();
        EXPECT_EQ(std::to_string(++expected), sequence());
        expectFree(lock);
    }
}

TEST_F(FleetLock, LateReleaseDoesNotRemoveALaterHolder)
{
    Lock lock(kPath);
    Observer observer;
    lock.addObserver(&observer);
    lock.writeLock();
    cluster_.setFates({Fate::delayed});
    lock.unlock();
    lock.writeLock();  // the key of the entry is the same
    cluster_.deliver();
    EXPECT_EQ(1u, entries());
    EXPECT_EQ(1, lock.keepAlive());
    lock.unlock();
    EXPECT_EQ("2", sequence());
    EXPECT_EQ("", observer.seen);
}

TEST_F(FleetLock, ReleaseIsFoundInTheHistory)
{
    Lock lock(kPath);
    lock.writeLock();
    cluster_.setFates({Fate::replyLost});
    cluster_.setInterlude([&] {
        cluster_.put(kSequence, "2");  // two later holders
        cluster_.put(kSequence, "3");
    });
    lock.unlock();
    EXPECT_EQ("3", sequence());
    expectFree(lock);
}

TEST_F(FleetLock, LossDuringAReleaseIsFoundInTheHistory)
{
    Lock lock(kPath);
    lock.writeLock();
    cluster_.setFates({Fate::requestLost});
    cluster_.setPrelude([&] {
        cluster_.endLeases();
        cluster_.put(kSequence, "1");  // the same number, by another holder
    });
    EXPECT_TRUE(raises<ZWriteResourceException_6_0>(34, ESTALE, kSource, raiseForLoss,
                                                    [&] { lock.unlock(); }));
    lock.unlock(0);
    expectFree(lock);
}

// The earlier holder has written the number while the entry of this program waited.
TEST_F(FleetLock, ReleaseOfTheEarlierHolderIsNotTakenForItsOwn)
{
    cluster_.put(kOther, "w other 1");
    Lock lock(kPath);
    std::thread([&] {
        std::thread earlier([&] {
            waitForEntries(2);
            cluster_.put(kSequence, "7");
            cluster_.put(kOther, "");
        });
        lock.writeLock();
        earlier.join();
        auto const isFirst = std::make_shared<bool>(true);
        cluster_.setFault([=, this](auto const& request, auto const& execute) {
            if (request.method != "Txn" || !std::exchange(*isFirst, false))
                return execute(request);
            cluster_.endLeases();
            return ModelCluster::Reply{14, "request lost"};
        });
        EXPECT_TRUE((raises<ZWriteResourceException_6_0>(34, ESTALE, kSource, raiseForLoss,
                                                         [&] { lock.unlock(); })));
        cluster_.setFault(nullptr);
        lock.unlock(0);
    }).join();
    EXPECT_EQ("7", sequence());
    expectFree(lock);
}

TEST_F(FleetLock, ReleaseWithoutHistoryHasAnUnknownOutcome)
{
    Lock lock(kPath);
    lock.writeLock();
    cluster_.setFates({Fate::replyLost});
    cluster_.setInterlude([&] {
        cluster_.put(kSequence, "2");
        cluster_.put("unrelated", "x");
        cluster_.compact();
    });
    EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(34, EINPROGRESS, kSource, raiseInUnlock,
                                                     [&] { lock.unlock(); }));
    EXPECT_EQ(kWrite, lock.getLockState());
    EXPECT_EQ(0, lock.remaining());
    lock.unlock(0);
    expectFree(lock);
}

TEST_F(FleetLock, FailedReleaseKeepsTheLock)
{
    setUpSteppedFile("budget = 1\ncall = 300\n");
    Lock lock(kPath);
    lock.writeLock();
    cluster_.refuse(14);
    EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(34, ETIMEDOUT, kSource, raiseInUnlock,
                                                     [&] { lock.unlock(); }));
    EXPECT_EQ(kWrite, lock.getLockState());
    EXPECT_EQ(0ul, lock.getSequence());
    EXPECT_EQ(0, lock.remaining());  // the request may still arrive
    cluster_.refuse(0);
    lock.unlock();
    EXPECT_EQ("1", sequence());
    expectFree(lock);
}

TEST_F(FleetLock, RefusedReleaseKeepsTheLockForSure)
{
    Lock lock(kPath);
    lock.writeLock();
    cluster_.refuse(7);
    EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(34, EACCES, kSource, raiseInUnlock,
                                                     [&] { lock.unlock(); }));
    EXPECT_LT(0, lock.remaining());
    cluster_.refuse(0);
    EXPECT_EQ(1, lock.keepAlive());
    lock.unlock();
    expectFree(lock);
}

// ---- Leases ------------------------------------------------------------------------------------

TEST_F(FleetLock, RemainingTimeIsNineTenthsOfTheLease)
{
    Lock lock(kPath);
    EXPECT_EQ(0, lock.remaining());
    lock.readLock();
    EXPECT_GE(kCertain, lock.remaining());
    EXPECT_LT(20000, lock.remaining());
    lock.unlock();
    EXPECT_EQ(0, lock.remaining());
}

TEST_F(FleetLock, RenewalExtendsTheTime)
{
    Lock lock(kPath);
    lock.writeLock();
    ScriptedClock::suspend(seconds(20));
    EXPECT_GE(kCertain - 20000, lock.remaining());
    EXPECT_EQ(1, lock.keepAlive());
    EXPECT_LT(20000, lock.remaining());
    ScriptedClock::suspend(seconds(27));
    EXPECT_EQ(0, lock.remaining());
    EXPECT_EQ(0, lock.isLost());
    EXPECT_EQ(1, lock.keepAlive());  // the cluster still has the lease, so nothing was lost
    EXPECT_LT(20000, lock.remaining());
    lock.unlock();
    EXPECT_EQ("1", sequence());
}

TEST_F(FleetLock, OldLeaseIsRenewedBeforeTheNextAcquisition)
{
    Lock lock(kPath);
    lock.writeLock();
    lock.unlock();
    ScriptedClock::suspend(seconds(10));  // a third of the lease
    lock.writeLock();
    EXPECT_EQ(1u, count("LeaseKeepAlive"));
    EXPECT_LT(20000, lock.remaining());
    lock.unlock();
    ScriptedClock::suspend(seconds(27));
    lock.writeLock();
    EXPECT_EQ(2u, count("LeaseGrant"));
    EXPECT_LT(20000, lock.remaining());
    lock.unlock();
}

TEST_F(FleetLock, RenewalByAnOldLeaderIsNotValid)
{
    setUpSteppedFile("call = 200\n");
    Lock lock(kPath);
    lock.writeLock();
    cluster_.setRenewalTerm(0);
    expectNoRenewal(lock);
    cluster_.setRenewalTerm(std::nullopt);
    cluster_.denyLeases(true);  // but the entry exists
    expectNoRenewal(lock);
    cluster_.denyLeases(false);
    EXPECT_EQ(1, lock.keepAlive());
    lock.unlock();
}

// A leader that was suspended does not know the renewals by the next leader, and ends the lease.
TEST_F(FleetLock, LeaderOfAnEarlierTermCannotEndARenewedLease)
{
    Lock lock(kPath);
    lock.writeLock();
    int64_t const token = lock.token();
    cluster_.elect();
    EXPECT_EQ(1, lock.keepAlive());
    cluster_.endEarlierLeases();
    EXPECT_EQ(1, lock.keepAlive());
    EXPECT_EQ(token, lock.token());
    EXPECT_LT(0, lock.remaining());
    EXPECT_EQ(1u, cluster_.keys(kQueue).size());
    EXPECT_EQ(2u, count("LeaseGrant"));
    lock.unlock();
    EXPECT_EQ("1", sequence());
    lock.writeLock();
    EXPECT_EQ(2u, count("LeaseGrant"));
    lock.unlock();
}

// The lease is only certain for the time of its last renewal in its own term.
TEST_F(FleetLock, RenewalInALaterTermIsNotValid)
{
    setUpSteppedFile("call = 200\n");
    Lock lock(kPath);
    lock.writeLock();
    cluster_.elect();
    cluster_.refuseLeases("LeaseGrant", 14);
    expectNoRenewal(lock);
    cluster_.refuseLeases("LeaseGrant", 0);
    int64_t const start = zfleet::bootTime();
    EXPECT_EQ(1, lock.keepAlive());
    int64_t const left = lock.remaining();
    EXPECT_LE(kCertain - (zfleet::bootTime() - start) / 1'000'000 - 1, left);  // both are rounded
    lock.unlock();
}

// The reply to the transaction that moves the entry is lost.
TEST_F(FleetLock, EntryThatWasMovedInDoubtIsFound)
{
    for (auto const fate : {ModelCluster::Fate::replyLost, ModelCluster::Fate::delayed}) {
        for (bool const isFinal : {false, true}) {
            setUpSteppedFile("call = 200\n");
            Lock lock(kPath);
            lock.writeLock();
            int64_t const token = lock.token();
            cluster_.elect();
            cluster_.setFates(std::deque(isFinal ? 1000 : 1, fate));
            if (isFinal) {
                expectNoRenewal(lock);
                cluster_.setFates({});
            }
            EXPECT_EQ(1, lock.keepAlive());
            cluster_.deliver();
            cluster_.endEarlierLeases();
            EXPECT_EQ(1, lock.keepAlive());
            EXPECT_EQ(token, lock.token());
            EXPECT_EQ(1u, cluster_.keys(kQueue).size());
            lock.unlock();
            expectFree(lock);
        }
    }
}

TEST_F(FleetLock, LeaseOfAnEarlierTermIsReplacedBeforeALock)
{
    Lock lock(kPath);
    lock.writeLock();
    lock.unlock();
    cluster_.elect();
    ScriptedClock::suspend(seconds(10));  // a third of the lease
    lock.writeLock();
    cluster_.endEarlierLeases();
    EXPECT_EQ(1, lock.keepAlive());
    lock.unlock();
}

// A cluster that replaces another one, or that was restored from a backup, does not know the lock:
// other programs may hold it there.
TEST_F(FleetLock, LockIsLostInAnotherCluster)
{
    enum Finder { renewal, releaseWithNumber, releaseWithout };
    for (bool const isRestored : {false, true})
        for (Finder const finder : {renewal, releaseWithNumber, releaseWithout}) {
            SCOPED_TRACE(std::to_string(isRestored) + std::to_string(finder));
            Lock lock(kPath);
            Observer observer;
            lock.addObserver(&observer);
            lock.writeLock();
            std::string const loss = "lost " + std::to_string(lock.token()) + " ";
            moveToAnotherCluster(isRestored);
            auto const unlock = [&] { lock.unlock(); };
            if (finder == renewal) {
                EXPECT_EQ(0, lock.keepAlive());
            }
            if (finder != releaseWithout) {
                EXPECT_TRUE(
                    raises<ZWriteResourceException_6_0>(34, ESTALE, kSource, raiseForLoss, unlock));
                EXPECT_EQ(1, lock.isLost());
                EXPECT_EQ(0, lock.remaining());
                EXPECT_EQ(kWrite, lock.getLockState());
            }
            lock.unlock(0);
            EXPECT_EQ(loss, observer.seen);
            EXPECT_EQ(0, lock.token());
            EXPECT_TRUE(isRefused(EREMCHG, [&] { lock.writeLock(); }));
            EXPECT_EQ("(missing)", sequence());
            returnToTheCluster();
            lock.deleteObservers();
            expectFree(lock);
        }
}

TEST_F(FleetLock, GuardReleasesALockOfAnotherCluster)
{
    Lock lock(kPath);
    EXPECT_TRUE(raises<ZWriteResourceException_6_0>(34, ESTALE, kSource, raiseForLoss, [&] {
        ZStackReadWriteLock_6_0 guard(lock, 1);
        guard.writeLock();
        moveToAnotherCluster(false);
    }));
    returnToTheCluster();
    expectFree(lock);
}

// The request is executed in the state of the backup, and its reply is refused.
TEST_F(FleetLock, RefusedReplyLeavesNoEntryInARestoredCluster)
{
    Lock lock(kPath);
    lock.writeLock();
    lock.unlock();
    moveToAnotherCluster(true);
    EXPECT_TRUE(isRefused(EREMCHG, [&] { lock.writeLock(); }));
    EXPECT_EQ(0u, entries());
    EXPECT_EQ(0u, cluster_.leases());
}

TEST_F(FleetLock, FreeLockIsNotRenewed)
{
    Lock lock(kPath);
    EXPECT_EQ(0, lock.keepAlive());
    lock.writeLock();
    lock.unlock();
    EXPECT_EQ(0, lock.keepAlive());
    EXPECT_EQ(0u, count("LeaseKeepAlive"));
}

TEST_F(FleetLock, LeaseEndsWithTheObject)
{
    {
        Lock lock(kPath);
        lock.writeLock();
        lock.unlock();
        EXPECT_EQ(1u, cluster_.leases());
    }
    EXPECT_EQ(0u, cluster_.leases());
}

TEST_F(FleetLock, DestroyedHeldLockKeepsItsLease)
{
    auto lock = std::make_unique<Lock>(kPath);
    lock->writeLock();
    EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(32, "src/Z/ZProcessReadWriteLock", 64,
                                                           [&] { delete lock.release(); }));
    EXPECT_EQ(1u, entries());
    EXPECT_EQ(1u, cluster_.leases());
}

// ---- Losses ------------------------------------------------------------------------------------

TEST_F(FleetLock, RenewalFindsALoss)
{
    Lock lock(kPath);
    Observer observer;
    lock.addObserver(&observer);
    lock.writeLock();
    std::string const token = std::to_string(lock.token());
    cluster_.endLeases();
    EXPECT_EQ(0, lock.keepAlive());
    EXPECT_EQ(1, lock.isLost());
    EXPECT_EQ(0, lock.remaining());
    EXPECT_EQ("lost " + token + " ", observer.seen);
    EXPECT_EQ(0, lock.keepAlive());
    EXPECT_EQ(kWrite, lock.getLockState());
    EXPECT_TRUE(raises<ZWriteResourceException_6_0>(34, ESTALE, kSource, raiseForLoss,
                                                    [&] { lock.unlock(); }));
    EXPECT_EQ(kWrite, lock.getLockState());
    EXPECT_EQ(0ul, lock.getSequence());
    lock.unlock(0);
    EXPECT_EQ(0, lock.isLost());
    EXPECT_EQ("lost " + token + " ", observer.seen);
    EXPECT_EQ("(missing)", sequence());
    expectFree(lock);
}

TEST_F(FleetLock, ReleaseFindsALoss)
{
    for (State const state : {kRead, kWrite})
        for (int const update : {0, 1}) {
            SCOPED_TRACE(std::to_string(state) + std::to_string(update));
            Lock lock(kPath);
            Observer observer;
            lock.addObserver(&observer);
            lock.lock(state);
            std::string const token = std::to_string(lock.token());
            cluster_.endLeases();
            if (update != 0) {
                EXPECT_TRUE(raises<ZWriteResourceException_6_0>(34, ESTALE, kSource, raiseForLoss,
                                                                [&] { lock.unlock(1); }));
                EXPECT_EQ(1, lock.isLost());
                EXPECT_EQ(state, lock.getLockState());
            }
            lock.unlock(0);
            EXPECT_EQ("lost " + token + " ", observer.seen);
            EXPECT_EQ("(missing)", sequence());
            lock.deleteObservers();
            expectFree(lock);
        }
}

TEST_F(FleetLock, EntryThatSomeoneRemovedIsALoss)
{
    Lock lock(kPath);
    lock.writeLock();
    cluster_.put(cluster_.keys(kQueue).at(0), "");
    EXPECT_EQ(0, lock.keepAlive());
    EXPECT_EQ(1, lock.isLost());
    lock.unlock(0);
    expectFree(lock);
}

TEST_F(FleetLock, LockIsLostIfItCannotBeRenewedInTime)
{
    setUpSteppedFile("budget = 1\ncall = 100\n");
    Lock lock(kPath);
    Observer observer;
    lock.addObserver(&observer);
    lock.writeLock();
    cluster_.refuse(14);
    expectNoRenewal(lock);
    ScriptedClock::suspend(seconds(27));
    EXPECT_EQ(0, lock.remaining());
    EXPECT_EQ("", observer.seen);
    EXPECT_EQ(0, lock.keepAlive());
    EXPECT_EQ(1, lock.isLost());
    EXPECT_EQ(0u, observer.seen.find("lost"));
    cluster_.refuse(0);
    EXPECT_EQ(0, lock.keepAlive());  // a loss that was reported stays
    EXPECT_TRUE(raises<ZWriteResourceException_6_0>(34, ESTALE, kSource, raiseForLoss,
                                                    [&] { lock.unlock(); }));
    lock.unlock(0);
    expectFree(lock);  // the entry is removed, though the lease lasts
}

TEST_F(FleetLock, GuardReleasesALostLock)
{
    Lock lock(kPath);
    EXPECT_TRUE(raises<ZWriteResourceException_6_0>(34, ESTALE, kSource, raiseForLoss, [&] {
        ZStackReadWriteLock_6_0 guard(lock, 1);
        guard.writeLock();
        cluster_.endLeases();
    }));
    expectFree(lock);
}

// ---- Failures of the cluster -------------------------------------------------------------------

TEST_F(FleetLock, FullDatabaseGivesNoNewLock)
{
    cluster_.setFull(true);
    Lock lock(kPath);
    EXPECT_TRUE(isRefused(ENOSPC, [&] { lock.writeLock(); }));
    cluster_.setFull(false);
    expectFree(lock);
}

TEST_F(FleetLock, FullDatabaseReleasesWithoutTheNumber)
{
    Lock lock(kPath);
    lock.writeLock();
    cluster_.setFull(true);
    EXPECT_TRUE(raises<ZWriteResourceException_6_0>(33, ENOSPC, kSource, raiseForFullDatabase,
                                                    [&] { lock.unlock(); }));
    EXPECT_EQ(0u, entries());
    EXPECT_EQ(0, lock.remaining());
    EXPECT_EQ(kWrite, lock.getLockState());
    EXPECT_EQ(0ul, lock.getSequence());
    lock.unlock(0);
    EXPECT_EQ("(missing)", sequence());
    cluster_.setFull(false);
    expectFree(lock);
}

TEST_F(FleetLock, AcquisitionFailsWithTheErrnoOfTheCluster)
{
    setUpSteppedFile("budget = 1\ncall = 200\n");
    struct Case {
        int status;
        int error;
    };
    for (Case const c : {Case{14, ETIMEDOUT}, Case{7, EACCES}, Case{16, EACCES}, Case{13, EIO}}) {
        SCOPED_TRACE(c.status);
        Lock lock(kPath);
        cluster_.refuse(c.status);
        EXPECT_TRUE(isRefused(c.error, [&] { lock.writeLock(); }));
        cluster_.refuse(0);
        expectFree(lock);
    }
}

TEST_F(FleetLock, BadSequenceNumberIsRefused)
{
    for (char const* const text : {"x", "1x", "-1", "4294967295", "99999999999", " 1"}) {
        SCOPED_TRACE(text);
        cluster_.put(kSequence, text);
        Lock lock(kPath);
        EXPECT_TRUE(raises<ZReadResourceException_6_0>(35, -1, kSource, raiseInReadSequence,
                                                       [&] { lock.writeLock(); }));
        EXPECT_EQ(kUnset, lock.getLockState());
        EXPECT_EQ(0u, entries());
        EXPECT_EQ(text, sequence());
    }
}

// ---- Arguments ---------------------------------------------------------------------------------

TEST_F(FleetLock, PathNamesAFleetAndALock)
{
    for (char const* const path : {static_cast<char const*>(nullptr), "", "orders", "/tmp/x"})
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, raiseForPath,
                                                           [&] { Lock const lock(path); }));
    for (char const* const path :
         {"etcd://test", "etcd://test/", "etcd:///orders", "etcd://test/a/b", "etcd://test/a b"}) {
        SCOPED_TRACE(path);
        try {
            Lock const lock(path);
            FAIL() << "nothing was thrown";
        } catch (ZPropertiesIOException_6_0 const& e) {
            EXPECT_EQ(EINVAL, e.excerrno());
        }
    }
    EXPECT_THROW(Lock const lock("etcd://unknown/orders"), ZPropertiesException_6_0);
}

TEST_F(FleetLock, LockHasNoDirectory)
{
    Lock lock(kPath);
    EXPECT_STREQ("", lock.getLockDirName());
    lock.setLockDirName(nullptr);
    lock.setLockDirName("");
    EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, raiseForDirectory,
                                                       [&] { lock.setLockDirName("/tmp"); }));
    lock.setLockFileName(kPath);
    EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(
        22, kSource, raiseForFileName, [&] { lock.setLockFileName("etcd://test/other"); }));
    EXPECT_STREQ(kPath, lock.getLockFileName());
    EXPECT_EQ(0, lock.compare(Lock(kPath)));
    EXPECT_NE(0, lock.compare(Lock("etcd://test/other")));
}

TEST_F(FleetLock, NumberIsOnlyWrittenByAWriter)
{
    Lock lock(kPath);
    EXPECT_TRUE(raises<ZWriteResourceException_6_0>(33, EBADF, kSource, raiseInWriteSequence,
                                                    [&] { lock.writeSequenceNumber(1); }));
    lock.readLock();
    EXPECT_TRUE(raises<ZWriteResourceException_6_0>(33, EBADF, kSource, raiseInWriteSequence,
                                                    [&] { lock.writeSequenceNumber(1); }));
    lock.unlock();
    EXPECT_EQ("(missing)", sequence());
}

TEST_F(FleetLock, UnlockByAStrangerChangesNothing)
{
    Lock lock(kPath);
    lock.writeLock();
    std::thread([&] {
        EXPECT_TRUE(raises<ZUnlockResourceException_6_0>(6, "src/Z/ZReadWriteLock", 104,
                                                         [&] { lock.unlock(); }));
    }).join();
    EXPECT_EQ(1u, entries());
    EXPECT_EQ(kWrite, lock.getLockState());
    lock.unlock();
    EXPECT_EQ("1", sequence());
}
