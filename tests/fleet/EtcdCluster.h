// EtcdCluster: a cluster of etcd processes on the loopback interface, for one test program.
#pragma once

#include <TestDirectory.h>
#include <sys/types.h>

#include <string>
#include <vector>

class EtcdCluster {
public:
    /// Returns whether etcd is installed. Tests with a cluster are skipped without it.
    static bool isInstalled();

    /// Starts the nodes and waits until all of them reply. The nodes end with this object and, if
    /// the program crashes, with the program.
    explicit EtcdCluster(unsigned nodes = 3, std::vector<std::string> const& options = {});
    EtcdCluster(EtcdCluster const&) = delete;
    EtcdCluster& operator=(EtcdCluster const&) = delete;
    ~EtcdCluster();

    unsigned size() const { return static_cast<unsigned>(nodes_.size()); }

    /// Returns the endpoints, as "127.0.0.1:PORT".
    std::vector<std::string> endpoints() const;

    /// Kills a node; its data stay.
    void kill(unsigned node);

    /// Starts a killed node again; does not wait until it replies.
    void start(unsigned node);

    /// Stops a node with SIGSTOP, and continues it.
    void suspend(unsigned node);
    void resume(unsigned node);

    /// Waits until every running node replies.
    void waitUntilReady();

    /// Returns the number of the leader; waits until there is one.
    unsigned leader() const;

    /// Runs etcdctl with these arguments at all nodes. Returns its output; adds a failure if it
    /// fails.
    std::string control(std::string const& arguments) const;

private:
    struct Node {
        pid_t process = 0;  // 0: not running
        unsigned clientPort = 0;
        unsigned peerPort = 0;
    };

    std::vector<std::string> commandFor(unsigned node) const;
    bool isReady(unsigned node) const;

    TestDirectory const directory_{TestDirectory::Place::memory};
    std::vector<std::string> const options_;
    std::vector<Node> nodes_;
};
