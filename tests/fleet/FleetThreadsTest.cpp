// The threads of gRPC in a program without a server.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "LoopbackSocket.h"
#include "transport/cluster.h"
#include "transport/failure.h"

using namespace zfleet;

namespace {

// Returns whether a thread of this process blocks a signal.
bool blocks(std::filesystem::path const& thread, int signal)
{
    constexpr char kBlocked[] = "SigBlk:";
    std::ifstream status(thread / "status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(kBlocked, 0) == 0)
            return (std::stoull(line.substr(sizeof kBlocked), nullptr, 16) >> (signal - 1) & 1) !=
                   0;
    return true;  // the thread has ended
}

}  // namespace

TEST(FleetThreads, ThreadsOfGrpcReceiveNoSignals)
{
    Settings settings;
    settings.fleet = "test";
    settings.endpoints = {"127.0.0.1:1", "localhost:1"};
    {
        Cluster cluster(settings);
        for (unsigned endpoint : {0u, 1u}) {
            Budget budget(std::chrono::milliseconds(200));
            EXPECT_THROW(cluster.probe(endpoint, budget), CallError);
        }
        int others = 0;
        std::string const self = std::to_string(getpid());
        for (auto const& thread : std::filesystem::directory_iterator("/proc/self/task")) {
            if (thread.path().filename() == self)
                continue;
            ++others;
            for (int const signal : {SIGUSR1, SIGTERM, SIGINT, SIGCHLD, SIGALRM})
                EXPECT_TRUE(blocks(thread.path(), signal)) << thread.path() << " " << signal;
            EXPECT_FALSE(blocks(thread.path(), SIGSEGV));
        }
        EXPECT_LT(0, others);
    }
    for (int const signal : {SIGUSR1, SIGTERM, SIGSEGV})
        EXPECT_FALSE(blocks("/proc/self/task/" + std::to_string(getpid()), signal));
}

// gRPC ends its threads with the last channel. A thread of gRPC that released this channel would
// wait for itself.
TEST(FleetThreads, WatchMayOutliveItsCluster)
{
    // A node that never replies.
    LoopbackSocket const silent;
    silent.listen(64);
    Settings settings;
    settings.fleet = "test";
    settings.endpoints = {silent.address()};
    auto const event = std::make_shared<Event>();
    for (int i = 0; i < 150; ++i) {
        auto cluster = std::make_unique<Cluster>(settings);
        std::unique_ptr<WatchInterface> watch = cluster->watch(0, {"k"}, 1, event);
        cluster = nullptr;
        watch = nullptr;
    }
}
