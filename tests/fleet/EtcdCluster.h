// EtcdCluster: a cluster of etcd processes on the loopback interface, for one test program.
#pragma once

#include <TestDirectory.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "FleetFile.h"
#include "HelperThread.h"
#include "transport/endpoint.h"

class FleetNetwork;

class EtcdCluster {
public:
    /// Returns whether etcd is installed. Tests with a cluster are skipped without it.
    static bool isInstalled();

    /// Starts the nodes and waits until all of them reply. The nodes end with this object and, if
    /// the program crashes, with the program.
    /// With a network, which must live longer, the nodes are its first hosts.
    /// With certificates, clients connect to them with TLS; `options` have the nodes' certificates.
    explicit EtcdCluster(unsigned nodes = 3, std::vector<std::string> const& options = {},
                         FleetNetwork* network = nullptr, zfleet::Certificates clients = {});
    EtcdCluster(EtcdCluster const&) = delete;
    EtcdCluster& operator=(EtcdCluster const&) = delete;
    ~EtcdCluster();

    unsigned size() const { return static_cast<unsigned>(nodes_.size()); }

    /// Returns the endpoints, as "ADDRESS:PORT".
    std::vector<std::string> endpoints() const;

    /// Returns the process of a node; 0 if it was killed.
    pid_t process(unsigned node) const { return nodes_[node].process; }

    /// Kills a node; its data stay.
    void kill(unsigned node);

    /// Starts a killed node again; does not wait until it replies.
    void start(unsigned node);

    /// Stops a node with SIGSTOP, and continues it.
    void suspend(unsigned node);
    void resume(unsigned node);

    /// Kills a node and starts it again, or stops it for a time. Waits until every running node
    /// replies.
    void restart(unsigned node);
    void pause(unsigned node, std::chrono::milliseconds time);

    /// Gives a node a disk of its own with this size, with a restart, unless it has one. Returns
    /// false without the right to mount.
    bool limitDisk(unsigned node, unsigned megabytes);

    /// Fills the disk of a node, and frees the space again.
    void fillDisk(unsigned node);
    void freeDisk(unsigned node);

    /// Returns whether a node has ended itself.
    bool hasEnded(unsigned node);

    /// Saves a backup of a cluster of one node. Returns its path.
    std::string backUp() const;

    /// Replaces the data of a cluster of one node by a backup. If `keepsId` is not set, the cluster
    /// gets another id.
    void restore(std::string const& backup, bool keepsId);

    /// Waits until every running node replies.
    void waitUntilReady();

    /// Returns the number of the leader; waits until there is one.
    unsigned leader() const;

    /// Returns the text that a node has printed.
    std::string log(unsigned node) const;

    /// Runs etcdctl with these arguments at all nodes. Returns its output; adds a failure if it
    /// fails.
    std::string control(std::string const& arguments) const;

private:
    struct Node {
        pid_t process = 0;  // 0: not running
        std::string host = "127.0.0.1";
        unsigned clientPort = 0;
        unsigned peerPort = 0;
        bool hasDisk = false;  // of its own
    };

    std::string members() const;
    std::vector<std::string> commandFor(unsigned node) const;
    bool isReady(unsigned node) const;

    TestDirectory const directory_{TestDirectory::Place::memory};
    std::vector<std::string> const options_;
    FleetNetwork* const network_;
    zfleet::Certificates const clients_;
    bool hasMounts_ = false;
    std::vector<Node> nodes_;
    // The kernel ends a node when the thread that has started it ends: the nodes start in a thread
    // that ends with this object.
    HelperThread starter_;
};

// A test that needs etcd, and is skipped without it.
class EtcdTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (!EtcdCluster::isInstalled())
            GTEST_SKIP() << "the package etcd-server is not installed";
        prepare();
    }

    /// Runs before each test, if etcd is installed.
    virtual void prepare() {}
};

// A test with a cluster of its own.
class OwnClusterTest : public EtcdTest {
protected:
    /// Starts a cluster of three nodes, and writes a file of the fleets with a stanza "test", which
    /// has these keys, too.
    void start(std::string const& keys, std::vector<std::string> const& options = {},
               FleetNetwork* network = nullptr)
    {
        nodes_ = std::make_unique<EtcdCluster>(3, options, network);
        file_ = std::make_unique<FleetFile>(FleetFile::textFor(nodes_->endpoints()) + keys);
    }

    std::unique_ptr<EtcdCluster> nodes_;
    std::unique_ptr<FleetFile> file_;
};

// A test with a cluster that all tests of its suite share. `Suite` is the class of the tests.
template <class Suite>
class SharedClusterTest : public EtcdTest {
protected:
    static void SetUpTestSuite()
    {
        if (EtcdCluster::isInstalled())
            nodes_ = new EtcdCluster;
    }
    static void TearDownTestSuite()
    {
        delete nodes_;
        nodes_ = nullptr;
    }

    static inline EtcdCluster* nodes_ = nullptr;
};
