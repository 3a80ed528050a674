// A connection whose calls fail immediately makes progress in the pauses between the calls.
//
// Each thread of gRPC that polls reads from all connections of its process. So the node is a
// process of its own, this process has no watch, and the test stops the periodic polling of gRPC.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>

#include "CuttingProxy.h"
#include "ScriptedServer.h"
#include "transport/cluster.h"
#include "transport/failure.h"

using namespace zfleet;

namespace {

// A node of a cluster in another process. Each key has the value "value".
class NodeProcess {
public:
    NodeProcess()
    {
        int ends[2];
        EXPECT_EQ(0, pipe(ends));
        process_ = fork();
        if (process_ == 0)
            serve(ends[1]);
        close(ends[1]);
        std::array<char, 64> text{};
        EXPECT_LT(0, read(ends[0], text.data(), text.size() - 1));
        close(ends[0]);
        address_ = text.data();
    }
    NodeProcess(NodeProcess const&) = delete;
    NodeProcess& operator=(NodeProcess const&) = delete;
    ~NodeProcess()
    {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }

    std::string const& address() const { return address_; }

private:
    [[noreturn]] static void serve(int out)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        ScriptedServer server;
        server.script("Range", {{0, rangeReply("k", "value")}});
        std::string const address = server.address();
        if (write(out, address.data(), address.size()) < 0)
            _exit(1);
        for (;;)
            pause();
    }

    pid_t process_ = -1;
    std::string address_;
};

std::string readValue(Cluster& cluster)
{
    try {
        Budget budget(std::chrono::seconds(60));
        return cluster.read({"k"}, budget).entries.at(0).value;
    } catch (CallError const& error) {
        return error.detail;
    }
}

}  // namespace

TEST(FleetStalledConnection, MakesProgressInThePausesBetweenCalls)
{
    // gRPC starts with the cluster, after the environment is set and the process has forked.
    ASSERT_EQ(0, setenv("GRPC_CLIENT_CHANNEL_BACKUP_POLL_INTERVAL_MS", "0", 1));
    NodeProcess const node;
    CuttingProxy proxy(CuttingProxy::toServer, SIZE_MAX);
    Settings settings;
    settings.endpoints = {proxy.address()};
    settings.callTimeout = std::chrono::seconds(60);
    Cluster cluster(settings);
    // The proxy does not reply yet, so the first attempt to connect fails, and the call with it.
    // Until the connection exists, all further calls fail immediately.
    Budget budget(std::chrono::seconds(60));
    EXPECT_THROW(cluster.commit({{}, {Put{"k", "v"}}, {}}, Repetition::isHarmful, budget),
                 CallError);
    EXPECT_FALSE(budget.isUsedUp());
    proxy.serve(node.address());
    EXPECT_EQ("value", readValue(cluster));
}
