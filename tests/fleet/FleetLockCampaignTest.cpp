// Programs that take turns at locks in a cluster, while they are stopped or cut off for longer than
// the lease, and killed, and while nodes fail and are cut off.
//
// Each holder of a lock increments two counters: one with a transaction that the token guards, and
// another without. The first one must not lose an increment. The second one must: otherwise the
// test would not show anything. A holder also publishes the time up to which it is certain to hold
// the lock; the next holder must not be certain at the same time.
#include <Z/ZException.h>
#include <Z/ZFleetReadWriteLock.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "CampaignProcess.h"
#include "CampaignSize.h"
#include "EtcdCluster.h"
#include "FleetFile.h"
#include "FleetNetwork.h"
#include "ZFleetConnection_p.h"
#include "ZFleetReadWriteLock_p.h"
#include "transport/cluster.h"
#include "transport/failure.h"

namespace {

using Lock = ZFleetReadWriteLock_6_0;
using std::chrono::milliseconds;

constexpr char kSwitch[] = "--take-turns";
constexpr unsigned kLocks = 4;
constexpr unsigned kHolders = 3;      // of each lock, at a time
constexpr size_t kMaxHolders = 4096;  // in all, killed ones included
constexpr unsigned kNodes = 3;
constexpr unsigned kClientHosts = 3;  // for the holders, in a network that can be cut

// The figures of a holder, in memory that all processes share.
struct Holder {
    std::atomic<int64_t> certainUntil;  // bootTime(); 0: it does not hold the lock
    std::atomic<bool> isBetween;        // reading and writing the counters
    std::atomic<uint64_t> acquired;
    std::atomic<uint64_t> acknowledged;  // increments that were executed
    std::atomic<uint64_t> fencedOff;     // increments that were refused
    std::atomic<uint64_t> unfenced;      // increments without the token
    std::atomic<uint64_t> released;      // with a new sequence number
    std::atomic<uint64_t> lost;          // locks
    pid_t process;
    unsigned lock;
};

struct Shared {
    std::atomic<bool> isEnding;
    std::atomic<uint64_t> overlaps;  // of two certain holders
    std::atomic<uint64_t> failures;  // calls with an unexpected outcome
    std::atomic<size_t> holders;
    std::array<Holder, kMaxHolders> all;
};

std::string nameOf(unsigned lock)
{
    return "turns" + std::to_string(lock);
}

// ---- A holder ----------------------------------------------------------------------------------

class Turns {
public:
    Turns(Shared& shared, size_t index)
        : shared_(shared),
          own_(shared.all[index]),
          lock_(("etcd://test/" + nameOf(own_.lock)).c_str()),
          cluster_(lock_.rep().connection->rep().cluster),
          prefix_("/campaign/" + nameOf(own_.lock) + "/"),
          ackKey_("/campaign/acks/" + std::to_string(index))
    {
    }

    void run()
    {
        while (!shared_.isEnding) {
            lock_.writeLock();
            ++own_.acquired;
            publish();
            increment();
            own_.certainUntil = 0;
            release();
        }
    }

private:
    // Publishes that this process holds the lock, and looks for another one.
    void publish()
    {
        int64_t const now = zfleet::bootTime();
        own_.certainUntil = now + lock_.remaining() * 1'000'000;
        int64_t const looked = zfleet::bootTime();
        for (size_t i = 0; i < shared_.holders; ++i) {
            Holder const& other = shared_.all[i];
            if (&other != &own_ && other.lock == own_.lock && other.certainUntil > looked &&
                lock_.remaining() > 0)
                ++shared_.overlaps;
        }
    }

    uint64_t read(char const* counter)
    {
        zfleet::Budget budget(std::chrono::minutes(10));
        zfleet::RangeResult const result = cluster_.read({prefix_ + counter}, budget);
        return result.entries.empty() ? 0 : strtoull(result.entries[0].value.c_str(), nullptr, 10);
    }

    void increment()
    {
        uint64_t const fenced = read("fenced");
        uint64_t const unfenced = read("unfenced");
        own_.isBetween = true;
        std::this_thread::sleep_for(std::chrono::microseconds(random_() % 2000));
        own_.isBetween = false;
        writeFenced(fenced + 1);
        writeUnfenced(unfenced + 1);
    }

    void writeFenced(uint64_t value)
    {
        // The same transaction counts the increments of this process.
        std::string const count = std::to_string(own_.acknowledged + 1);
        zfleet::Fence const fence = lock_.rep().lock.fence();
        zfleet::Budget budget(std::chrono::minutes(10));
        zfleet::Transaction transaction;
        transaction.conditions = {{fence.key, zfleet::Condition::createRevision,
                                   zfleet::Condition::equal, fence.createRevision}};
        transaction.success = {zfleet::Put{prefix_ + "fenced", std::to_string(value)},
                               zfleet::Put{ackKey_, count}};
        transaction.failure = {zfleet::Range{ackKey_}};
        zfleet::TransactionResult const result =
            cluster_.commit(transaction, zfleet::Repetition::isHarmless, budget);
        bool isExecuted = result.hasSucceeded;
        if (!isExecuted && !result.ranges.empty() && !result.ranges[0].entries.empty())
            isExecuted = result.ranges[0].entries[0].value == count;  // by an earlier attempt
        ++(isExecuted ? own_.acknowledged : own_.fencedOff);
    }

    void writeUnfenced(uint64_t value)
    {
        zfleet::Budget budget(std::chrono::minutes(10));
        try {
            cluster_.commit({{}, {zfleet::Put{prefix_ + "unfenced", std::to_string(value)}}, {}},
                            zfleet::Repetition::isHarmful, budget);
        } catch (zfleet::CallError const&) {
            return;  // it may have been executed
        }
        ++own_.unfenced;
    }

    void release()
    {
        try {
            lock_.unlock();
            ++own_.released;
        } catch (ZWriteResourceException_6_0 const& e) {
            if (e.returnCode() != ESTALE)
                throw;
            ++own_.lost;
            lock_.unlock(0);
        }
    }

    Shared& shared_;
    Holder& own_;
    Lock lock_;
    zfleet::ClusterInterface& cluster_;
    std::string const prefix_;
    std::string const ackKey_;
    std::minstd_rand random_{std::random_device{}()};
};

int runHolder(char** argv)
{
    SharedObject<Shared> const shared(argv[2]);
    try {
        Turns(*shared, strtoul(argv[3], nullptr, 10)).run();
        return 0;
    } catch (ZException_6_0& failure) {
        failure.dumpException();
    } catch (zfleet::CallError const& error) {
        fprintf(stderr, "%s: %s %s\n", error.call.c_str(), strerror(error.error),
                error.detail.c_str());
    }
    ++shared->failures;
    return 1;
}

// ---- The campaign ------------------------------------------------------------------------------

// The number of events of each kind.
struct Size {
    uint64_t acquisitions;
    unsigned stops;
    unsigned kills;
    unsigned nodeFailures;
    unsigned cuts;  // 0 without a network that can be cut
};

Size sizeOfCampaign()
{
    if (isWholeCampaign())
        return {100'000, 1000, 200, 100, FleetNetwork::isPossible() ? 100u : 0};
    return {600, 12, 6, 2, FleetNetwork::isPossible() ? 2u : 0};
}

class Campaign {
public:
    /// range   `network` may be null.
    Campaign(EtcdCluster& nodes, FleetNetwork* network) : nodes_(nodes), network_(network)
    {
        for (unsigned i = 0; i < kLocks * kHolders; ++i)
            start(i % kLocks);
    }
    Campaign(Campaign const&) = delete;
    Campaign& operator=(Campaign const&) = delete;
    ~Campaign()
    {
        for (size_t const index : running_) {
            kill(shared_.all[index].process, SIGKILL);
            waitpid(shared_.all[index].process, nullptr, 0);
        }
    }

    void run(Size const& size)
    {
        std::atomic<bool> isOver{false};
        std::thread failures([&] { fail(isOver, size); });
        auto const isDone = [&] {
            return stops_ >= size.stops && kills_ >= size.kills &&
                   nodeFailures_ >= size.nodeFailures && cuts_ >= size.cuts &&
                   total(&Holder::acquired) >= size.acquisitions;
        };
        for (unsigned turn = 0; !isDone() && shared_.failures == 0; ++turn) {
            if (turn % 1000 == 0)
                failIfHolderHasEnded();
            for (unsigned lock = 0; lock < kLocks; ++lock)
                stopOrContinue(lock, stops_ < size.stops);
            if (kills_ < size.kills && stops_ >= (kills_ + 1) * size.stops / size.kills)
                killOne();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        isOver = true;
        failures.join();
        end();
    }

    uint64_t total(std::atomic<uint64_t> Holder::*figure) const
    {
        uint64_t sum = 0;
        for (size_t i = 0; i < shared_.holders; ++i)
            sum += shared_.all[i].*figure;
        return sum;
    }

    Shared const& shared() const { return shared_; }
    unsigned stops() const { return stops_; }
    unsigned kills() const { return kills_; }
    unsigned nodeFailures() const { return nodeFailures_; }
    unsigned cuts() const { return cuts_; }

private:
    // A holder that is stopped, and the progress of the others at that time.
    struct Stopped {
        size_t index = 0;
        uint64_t others = 0;
        bool is = false;
    };

    void start(unsigned lock)
    {
        size_t const index = shared_.holders;
        ASSERT_GT(kMaxHolders, index);
        shared_.all[index].lock = lock;
        shared_.all[index].process = startProcess(
            network_, hostOf(index), {kSwitch, memory_.argument(), std::to_string(index)});
        ++shared_.holders;
        running_.push_back(index);
    }

    // Returns the increments of the other holders of a lock.
    uint64_t progressOfOthers(unsigned lock, size_t but) const
    {
        uint64_t sum = 0;
        for (size_t i = 0; i < shared_.holders; ++i)
            if (i != but && shared_.all[i].lock == lock)
                sum += shared_.all[i].unfenced;
        return sum;
    }

    // Stops a holder of the lock between its two steps. Continues it when another one has
    // incremented the counters.
    void stopOrContinue(unsigned lock, bool mayStop)
    {
        Stopped& stopped = stopped_[lock];
        if (stopped.is) {
            if (progressOfOthers(lock, stopped.index) == stopped.others)
                return;
            kill(shared_.all[stopped.index].process, SIGCONT);
            stopped.is = false;
            ++stops_;
            return;
        }
        if (!mayStop)
            return;
        for (size_t const index : running_) {
            Holder const& holder = shared_.all[index];
            if (holder.lock != lock || !holder.isBetween)
                continue;
            kill(holder.process, SIGSTOP);
            int status = 0;
            waitpid(holder.process, &status, WUNTRACED);
            if (holder.isBetween)
                stopped = {index, progressOfOthers(lock, index), true};
            else
                kill(holder.process, SIGCONT);
            return;
        }
    }

    void failIfHolderHasEnded()
    {
        for (size_t const index : running_) {
            siginfo_t ended{};
            waitid(P_PID, static_cast<id_t>(shared_.all[index].process), &ended,
                   WEXITED | WNOHANG | WNOWAIT);
            shared_.failures += ended.si_pid != 0 ? 1 : 0;
        }
    }

    void killOne()
    {
        size_t const place = random_() % running_.size();
        size_t const index = running_[place];
        Holder& holder = shared_.all[index];
        if (stopped_[holder.lock].is)
            return;
        kill(holder.process, SIGKILL);
        waitpid(holder.process, nullptr, 0);
        holder.certainUntil = 0;
        running_.erase(running_.begin() + static_cast<std::ptrdiff_t>(place));
        ++kills_;
        start(holder.lock);
    }

    static unsigned hostOf(size_t holder)
    {
        return kNodes + static_cast<unsigned>(holder % kClientHosts);
    }

    void fail(std::atomic<bool> const& isOver, Size const& size)
    {
        while (!isOver && (nodeFailures_ < size.nodeFailures || cuts_ < size.cuts)) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
            if (nodeFailures_ < size.nodeFailures)
                failNode(nodeFailures_++);
            if (cuts_ < size.cuts)
                cutHost(cuts_++);
        }
    }

    void failNode(unsigned number)
    {
        unsigned const node = number % kNodes;
        if (number % 2 == 0)
            nodes_.pause(node, std::chrono::seconds(1));
        else
            nodes_.restart(node);
    }

    // Every second host is the leader's.
    void cutHost(unsigned number)
    {
        unsigned const host =
            number % 2 == 0 ? kNodes + number / 2 % kClientHosts : nodes_.leader();
        network_->cut(host);
        std::this_thread::sleep_for(milliseconds(2500));  // longer than a lease
        network_->connect(host);
        nodes_.waitUntilReady();
    }

    void end()
    {
        shared_.isEnding = true;
        for (Stopped const& stopped : stopped_)
            if (stopped.is)
                kill(shared_.all[stopped.index].process, SIGCONT);
        for (size_t const index : running_) {
            int status = 0;
            waitpid(shared_.all[index].process, &status, 0);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        }
        running_.clear();
    }

    EtcdCluster& nodes_;
    FleetNetwork* const network_;
    SharedObject<Shared> const memory_;
    Shared& shared_ = *memory_;
    std::vector<size_t> running_;
    std::array<Stopped, kLocks> stopped_;
    unsigned stops_ = 0;
    unsigned kills_ = 0;
    std::atomic<unsigned> nodeFailures_{0};
    std::atomic<unsigned> cuts_{0};
    std::minstd_rand random_{std::random_device{}()};
};

// The counters of the cluster after the campaign.
class Counters {
public:
    explicit Counters(EtcdCluster const& nodes) : cluster_(settingsFor(nodes)) {}

    uint64_t sum(char const* directory, char const* name)
    {
        uint64_t total = 0;
        for (unsigned lock = 0; lock < kLocks; ++lock)
            total += number(directory + nameOf(lock) + name);
        return total;
    }

    uint64_t number(std::string const& key)
    {
        zfleet::Budget budget(std::chrono::seconds(60));
        zfleet::RangeResult const result = cluster_.read({key}, budget);
        return result.entries.empty() ? 0 : strtoull(result.entries[0].value.c_str(), nullptr, 10);
    }

private:
    static zfleet::Settings settingsFor(EtcdCluster const& nodes)
    {
        zfleet::Settings settings;
        settings.endpoints = nodes.endpoints();
        return settings;
    }

    zfleet::Cluster cluster_;
};

class FleetLockCampaign : public OwnClusterTest {};

}  // namespace

TEST_F(FleetLockCampaign, TokensExcludeHoldersThatLostTheLock)
{
    std::unique_ptr<FleetNetwork> network;
    if (FleetNetwork::isPossible())
        network = std::make_unique<FleetNetwork>(kNodes + kClientHosts);
    start("budget = 600\ncall = 500\nlease = 1\n", {}, network.get());
    EtcdCluster& nodes = *nodes_;
    Campaign campaign(nodes, network.get());
    campaign.run(sizeOfCampaign());
    Shared const& shared = campaign.shared();
    EXPECT_EQ(0u, shared.failures);
    EXPECT_EQ(0u, shared.overlaps);

    Counters counters(nodes);
    uint64_t executed = 0;
    for (size_t i = 0; i < shared.holders; ++i)
        executed += counters.number("/campaign/acks/" + std::to_string(i));
    // A holder that was killed may not have counted its last increment.
    uint64_t const acknowledged = campaign.total(&Holder::acknowledged);
    EXPECT_LE(acknowledged, executed);
    EXPECT_GE(acknowledged + campaign.kills(), executed);
    EXPECT_EQ(executed, counters.sum("/campaign/", "/fenced"));
    EXPECT_LT(0u, campaign.total(&Holder::fencedOff));
    uint64_t const unfenced = campaign.total(&Holder::unfenced);
    uint64_t const kept = counters.sum("/campaign/", "/unfenced");
    EXPECT_GT(unfenced, kept);
    uint64_t const released = campaign.total(&Holder::released);
    uint64_t const numbers = counters.sum("/zfleet/6/lock/", "/seq");
    EXPECT_LE(released, numbers);
    EXPECT_GE(released + campaign.kills(), numbers);
    printf(
        "%llu acquisitions, %u stopped, %u killed, %u failures of nodes, %u cuts, %llu lost\n"
        "fenced:   %llu executed, %llu refused, 0 lost, if the test has passed\n"
        "unfenced: %llu executed, %lld lost\n",
        static_cast<unsigned long long>(campaign.total(&Holder::acquired)), campaign.stops(),
        campaign.kills(), campaign.nodeFailures(), campaign.cuts(),
        static_cast<unsigned long long>(campaign.total(&Holder::lost)),
        static_cast<unsigned long long>(executed),
        static_cast<unsigned long long>(campaign.total(&Holder::fencedOff)),
        static_cast<unsigned long long>(unfenced),
        static_cast<long long>(unfenced) - static_cast<long long>(kept));
}

int main(int argc, char** argv)
{
    if (argc == 4 && strcmp(argv[1], kSwitch) == 0)
        return runHolder(argv);
    return runTestsInNetwork(argc, argv);
}
