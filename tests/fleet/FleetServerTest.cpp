// The example fleet_server: 16 threads read all the time while the configuration is stored 200
// times, in a local file and in a cluster.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <thread>
#include <utility>

#include "EtcdCluster.h"
#include "FleetFile.h"

namespace {

constexpr unsigned kStores = 200;

// The server as a child process.
class Server {
public:
    explicit Server(std::string const& path)
        : pipe_(popen((std::string(FLEET_SERVER) + " " + path + " 2>&1").c_str(), "r"))
    {
    }
    Server(Server const&) = delete;
    Server& operator=(Server const&) = delete;
    ~Server()
    {
        if (pipe_ != nullptr)
            pclose(pipe_);
    }

    // Returns a line of its output; empty at the end.
    std::string line() const
    {
        char text[512];
        return fgets(text, sizeof text, pipe_) == nullptr ? "" : text;
    }

    int exitCode() { return WEXITSTATUS(pclose(std::exchange(pipe_, nullptr))); }

private:
    FILE* pipe_;
};

void setLimits(ZProperties_6_0& store, unsigned low)
{
    store.setIntegerValue("limits", "low", low);
    store.setIntegerValue("limits", "high", low + 100);
}

// Stores the configuration. A local file may be busy, because the server is reading it.
void store(ZProperties_6_0& administrator)
{
    for (;;) {
        try {
            administrator.store(nullptr);
            return;
        } catch (ZPropertiesIOException_6_0 const& e) {
            ASSERT_TRUE(e.excerrno() == EAGAIN || e.excerrno() == EACCES) << e.excerrno();
            std::this_thread::yield();
        }
    }
}

// Stores the configuration 200 times while the server reads it.
void runServer(std::string const& path)
{
    ZFleetProperties_6_0 administrator(1);
    setLimits(administrator, 0);
    administrator.store(path.c_str());
    Server server(path);
    ASSERT_EQ("serving\n", server.line());
    for (unsigned i = 1; i <= kStores; ++i) {
        setLimits(administrator, i);
        if (i == kStores)
            administrator.setValue("server", "stop", "yes");
        store(administrator);
    }
    std::string const counts = server.line();
    unsigned long requests = 0;
    unsigned threads = 0;
    unsigned changes = 0;
    EXPECT_EQ(3, sscanf(counts.c_str(), "%lu requests in %u threads, %u changes", &requests,
                        &threads, &changes))
        << counts;
    printf("%s", counts.c_str());
    EXPECT_LT(0u, changes);
    EXPECT_GE(kStores, changes);
    EXPECT_LT(threads, requests);
    EXPECT_EQ("0 from a mixture of configurations, 0 from an older one\n", server.line());
    EXPECT_EQ("low = 200, high = 300\n", server.line());
    EXPECT_EQ("", server.line());
    EXPECT_EQ(0, server.exitCode());
}

class FleetServer : public OwnClusterTest {};

}  // namespace

TEST(FleetLocalServer, ReadsWholeStates)
{
    TestDirectory const directory;
    runServer(directory.at("server.conf"));
}

TEST_F(FleetServer, ReadsWholeStates)
{
    start("look = 3600\n");  // without looks: each change has its notice
    runServer("etcd://test/server");
}
