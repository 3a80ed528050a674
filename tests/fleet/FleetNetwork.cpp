#include "FleetNetwork.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <thread>

namespace {

bool isEntered = false;

bool isDone(std::string const& command)
{
    return system((command + " 2>/dev/null").c_str()) == 0;
}

void require(std::string const& command)
{
    EXPECT_TRUE(isDone(command)) << command;
}

std::string port(unsigned host)
{
    return "port" + std::to_string(host);
}

}  // namespace

std::string FleetNetwork::enter()
{
    if (unshare(CLONE_NEWNET) != 0)
        return std::string("no network namespace: ") + strerror(errno);
    isEntered = isDone("ip link set lo up") && isDone("ip link add hub type bridge") &&
                isDone("ip address add 10.99.0.254/24 dev hub") && isDone("ip link set hub up");
    return isEntered ? "" : "the program ip cannot create a bridge";
}

bool FleetNetwork::isPossible()
{
    return isEntered;
}

FleetNetwork::FleetNetwork(unsigned hosts)
{
    for (unsigned host = 0; host < hosts; ++host)
        add(host);
}

// The interfaces end with the namespaces: nothing else may have a descriptor of them.
FleetNetwork::~FleetNetwork()
{
    for (unsigned host = 0; host < namespaces_.size(); ++host) {
        isDone("ip link delete " + port(host));
        close(namespaces_[host]);
    }
}

void FleetNetwork::add(unsigned host)
{
    int fd = -1;
    std::string const name = port(host);
    std::thread([&] {
        EXPECT_EQ(0, unshare(CLONE_NEWNET));
        fd = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    }).join();
    namespaces_.push_back(fd);
    require("ip link add " + name + " type veth peer name inner" + std::to_string(host));
    require("ip link set inner" + std::to_string(host) + " netns /proc/" +
            std::to_string(getpid()) + "/fd/" + std::to_string(fd));
    require("ip link set " + name + " master hub up");
    std::string const inner = "inner" + std::to_string(host);
    runAt(host, {"ip link set lo up", "ip address add " + address(host) + "/24 dev " + inner,
                 "ip link set " + inner + " up"});
}

void FleetNetwork::runAt(unsigned host, std::vector<std::string> const& commands) const
{
    std::thread([&] {
        EXPECT_TRUE(join(host));
        for (std::string const& command : commands)
            require(command);
    }).join();
}

std::string FleetNetwork::address(unsigned host) const
{
    return "10.99.0." + std::to_string(host + 1);
}

bool FleetNetwork::join(unsigned host) const
{
    return setns(namespaces_[host], CLONE_NEWNET) == 0;
}

void FleetNetwork::setPort(unsigned host, char const* state)
{
    require("ip link set " + port(host) + " " + state);
}

// Each side drops the packets that it sends.
void FleetNetwork::setRoutes(unsigned host, unsigned hosts, char const* action) const
{
    std::string const command = std::string("ip route ") + action + " blackhole ";
    std::vector<std::string> own;
    for (unsigned neighbour = 0; neighbour < hosts; ++neighbour) {
        if (neighbour == host)
            continue;
        own.push_back(command + address(neighbour));
        runAt(neighbour, {command + address(host)});
    }
    runAt(host, own);
}
