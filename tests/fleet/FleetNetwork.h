// FleetNetwork: hosts in network namespaces of their own, on a bridge whose ports can be cut.
//
// The bridge is in the namespace of the test program, which enter() creates. The program itself is
// never cut off; a client that shall be is a process that has joined a host.
#pragma once

#include <string>
#include <vector>

class FleetNetwork {
public:
    /// Moves the calling thread into a network namespace of its own. Returns the reason why it
    /// cannot; else "". Threads and processes that it starts later are in the same namespace.
    static std::string enter();

    /// Returns whether enter() has succeeded.
    static bool isPossible();

    /// range   isPossible(), and no other network exists.
    explicit FleetNetwork(unsigned hosts);
    FleetNetwork(FleetNetwork const&) = delete;
    FleetNetwork& operator=(FleetNetwork const&) = delete;
    ~FleetNetwork();

    /// Returns the address of a host.
    std::string address(unsigned host) const;

    /// Moves the calling thread into the namespace of a host, such as a child before exec().
    bool join(unsigned host) const;

    /// Cuts a host off from all others, and connects the host again. Packets are dropped silently.
    void cut(unsigned host) { setPort(host, "down"); }
    void connect(unsigned host) { setPort(host, "up"); }

    /// Drops the packets between a host and the other ones of the first `hosts`, and delivers them
    /// again. Packets between the host and the test program are delivered.
    void isolate(unsigned host, unsigned hosts) { setRoutes(host, hosts, "add"); }
    void rejoin(unsigned host, unsigned hosts) { setRoutes(host, hosts, "delete"); }

private:
    void add(unsigned host);
    void runAt(unsigned host, std::vector<std::string> const& commands) const;
    void setRoutes(unsigned host, unsigned hosts, char const* action) const;
    void setPort(unsigned host, char const* state);

    std::vector<int> namespaces_;  // descriptors
};
