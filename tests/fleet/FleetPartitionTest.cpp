// Nodes and clients that are cut off: no update is lost, no outcome is unknown, no change is
// missed.
//
// The writers are processes on hosts of their own, which can be cut off, too. Cut packets are
// dropped, so that each side only sees that the other one is silent.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CampaignProcess.h"
#include "CampaignSize.h"
#include "EtcdCluster.h"
#include "FleetFile.h"
#include "FleetNetwork.h"
#include "WatchedValue.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr char kSwitch[] = "--increment";
constexpr char kPath[] = "etcd://test/counters";
constexpr unsigned kNodes = 3;
constexpr unsigned kWriters = 4;  // processes, each on a host of its own

// The figures of the writers, in memory that all processes share.
struct Shared {
    std::atomic<unsigned> done;
    std::atomic<unsigned> conflicts;
    std::atomic<unsigned> unknown;  // outcomes, and unexpected failures
};

std::string keyOf(unsigned writer)
{
    return "writer" + std::to_string(writer);
}

// Increments the shared counter and a counter of its own, in one store.
int runWriter(char** argv)
{
    SharedObject<Shared> const shared(argv[2]);
    std::string const own = keyOf(static_cast<unsigned>(atoi(argv[3])));
    int const increments = atoi(argv[4]);
    try {
        ZFleetProperties_6_0 store(kPath, 1);
        for (int i = 0; i < increments;) {
            for (char const* const name : {"shared", own.c_str()})
                store.setIntegerValue("counters", name,
                                      store.getIntegerValue("counters", name, 0, 0) + 1);
            try {
                store.store(nullptr);
                ++i;
                ++shared->done;
            } catch (ZPropertiesIOException_6_0 const& e) {
                if (e.excerrno() != ESTALE)
                    throw;
                ++shared->conflicts;
                store.reload(nullptr);
            }
        }
        return 0;
    } catch (ZException_6_0& failure) {
        failure.dumpException();
        ++shared->unknown;
        return 1;
    }
}

class FleetPartition : public OwnClusterTest {
protected:
    void prepare() override
    {
        if (!FleetNetwork::isPossible())
            GTEST_SKIP() << "network namespaces need root and the package iproute2";
        network_ = std::make_unique<FleetNetwork>(kNodes + kWriters);
    }

    pid_t startWriter(unsigned writer, std::string const& shared, unsigned increments)
    {
        return startProcess(network_.get(), kNodes + writer,
                            {kSwitch, shared, std::to_string(writer), std::to_string(increments)});
    }

    // Cuts off the leader, two nodes, or a writer, for 1 to 3 seconds.
    void cut(unsigned number)
    {
        std::vector<unsigned> hosts;
        if (number % 3 == 0)
            hosts = {nodes_->leader()};
        else if (number % 3 == 1)
            hosts = {number % kNodes, (number + 1) % kNodes};
        else
            hosts = {kNodes + number / 3 % kWriters};
        for (unsigned const host : hosts)
            network_->cut(host);
        std::this_thread::sleep_for(milliseconds(1000 + number % 5 * 500));
        for (unsigned const host : hosts)
            network_->connect(host);
        nodes_->waitUntilReady();
    }

    std::unique_ptr<FleetNetwork> network_;
};

}  // namespace

TEST_F(FleetPartition, NoUpdateIsLostWhileHostsAreCutOff)
{
    start("budget = 600\ncall = 500\n", {}, network_.get());
    {
        ZFleetProperties_6_0 store(1);
        store.setValue("counters", "shared", "0");
        store.store(kPath);
    }
    SharedObject<Shared> const memory;
    Shared const& shared = *memory;
    unsigned const increments = scaled(100'000, 1000) / kWriters;
    unsigned const wanted = scaled(100, 6);
    Clock::time_point const begin = Clock::now();
    std::vector<pid_t> writers;
    for (unsigned writer = 0; writer < kWriters; ++writer)
        writers.push_back(startWriter(writer, memory.argument(), increments));
    unsigned cuts = 0;
    for (; (shared.done < kWriters * increments || cuts < wanted) && shared.unknown == 0; ++cuts) {
        unsigned const before = shared.done;
        cut(cuts);
        // Progress between two cuts.
        while (shared.done == before && shared.done < kWriters * increments && shared.unknown == 0)
            std::this_thread::sleep_for(milliseconds(10));
    }
    for (pid_t const writer : writers) {
        int status = 0;
        waitpid(writer, &status, 0);
        EXPECT_EQ(0, status);
    }
    ZFleetProperties_6_0 const store(kPath, 1);
    EXPECT_EQ(kWriters * increments, store.getIntegerValue("counters", "shared", 1, 0));
    for (unsigned writer = 0; writer < kWriters; ++writer)
        EXPECT_EQ(increments, store.getIntegerValue("counters", keyOf(writer).c_str(), 1, 0));
    EXPECT_EQ(kWriters * increments + 1, store.generation());
    printf("%u of %u increments, %u conflicts, %u unknown outcomes, %u cuts, %.0f s\n",
           shared.done.load(), kWriters * increments, shared.conflicts.load(),
           shared.unknown.load(), cuts, secondsSince(begin));
}

// Without looks, only a watch finds a change. The isolated node still replies to the pings of the
// program, but hears of no change: it ends the watch when it has no leader.
TEST_F(FleetPartition, WatchAtAnIsolatedNodeMissesNoChange)
{
    constexpr double kLongest = 4.1 + 2;  // seconds; a busy machine is slower than an idle one
    start("budget = 60\ncall = 500\nlook = 3600\n", {}, network_.get());
    WatchedValue watched;
    unsigned const rounds = scaled(60, 6);
    unsigned cutOff = 0;  // watches
    double longest = 0;
    for (unsigned round = 0; round < rounds && !HasFailure(); ++round) {
        network_->isolate(round % kNodes, kNodes);
        for (unsigned change = 0; change < 2; ++change) {
            double const silence = watched.change();
            cutOff += silence > 0.1 ? 1 : 0;
            longest = std::max(longest, silence);
        }
        network_->rejoin(round % kNodes, kNodes);
        nodes_->waitUntilReady();
    }
    printf("%u nodes isolated, %u changes, 0 missed, %u watches cut off, longest silence %.1f s\n",
           rounds, watched.changes(), cutOff, longest);
    EXPECT_GT(kLongest, longest);
    EXPECT_LT(0u, cutOff);  // else no watch was at an isolated node
}

int main(int argc, char** argv)
{
    if (argc == 5 && strcmp(argv[1], kSwitch) == 0)
        return runWriter(argv);
    return runTestsInNetwork(argc, argv);
}
