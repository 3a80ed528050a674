#include "EtcdCluster.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>
#include <utility>

#include "FleetNetwork.h"
#include "LoopbackSocket.h"
#include "transport/cluster.h"
#include "transport/failure.h"

namespace {

constexpr char kProgram[] = "/usr/bin/etcd";

std::string url(std::string const& host, unsigned port)
{
    return "http://" + host + ":" + std::to_string(port);
}

std::string nameOf(unsigned node)
{
    return "n" + std::to_string(node);
}

}  // namespace

bool EtcdCluster::isInstalled()
{
    return access(kProgram, X_OK) == 0;
}

EtcdCluster::EtcdCluster(unsigned nodes, std::vector<std::string> const& options,
                         FleetNetwork* network, zfleet::Certificates clients)
    : options_(options), network_(network), clients_(std::move(clients)), nodes_(nodes)
{
    if (network_ != nullptr) {
        for (unsigned i = 0; i < nodes; ++i)
            nodes_[i] = {0, network_->address(i), 2379, 2380, false};
    } else {
        std::vector<LoopbackSocket> const ports(2 * nodes);  // reserved until the nodes listen
        for (unsigned i = 0; i < nodes; ++i) {
            nodes_[i].clientPort = ports[2 * i].port();
            nodes_[i].peerPort = ports[2 * i + 1].port();
        }
    }
    for (unsigned i = 0; i < nodes; ++i)
        start(i);
    waitUntilReady();
}

EtcdCluster::~EtcdCluster()
{
    for (unsigned i = 0; i < size(); ++i)
        kill(i);
}

std::vector<std::string> EtcdCluster::endpoints() const
{
    std::vector<std::string> all;
    for (Node const& node : nodes_)
        all.push_back(node.host + ":" + std::to_string(node.clientPort));
    return all;
}

std::string EtcdCluster::members() const
{
    std::string all;
    for (unsigned i = 0; i < size(); ++i)
        all += (i == 0 ? "" : ",") + nameOf(i) + "=" + url(nodes_[i].host, nodes_[i].peerPort);
    return all;
}

// Short timers: an election ends within a second.
std::vector<std::string> EtcdCluster::commandFor(unsigned node) const
{
    std::string client = url(nodes_[node].host, nodes_[node].clientPort);
    if (!clients_.ca.empty())
        client.insert(4, "s");
    std::string const peer = url(nodes_[node].host, nodes_[node].peerPort);
    std::vector<std::string> command{kProgram,
                                     "--name=" + nameOf(node),
                                     "--data-dir=" + directory_.at(nameOf(node)),
                                     "--listen-client-urls=" + client,
                                     "--advertise-client-urls=" + client,
                                     "--listen-peer-urls=" + peer,
                                     "--initial-advertise-peer-urls=" + peer,
                                     "--initial-cluster=" + members(),
                                     "--initial-cluster-token=" + directory_.path(),
                                     "--heartbeat-interval=20",
                                     "--election-timeout=200"};
    command.insert(command.end(), options_.begin(), options_.end());
    return command;
}

void EtcdCluster::start(unsigned node)
{
    std::vector<std::string> command = commandFor(node);
    std::vector<char*> arguments;
    for (std::string& word : command)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    char path[] = "PATH=/usr/bin:/bin";
    char* environment[] = {path, nullptr};
    std::string const log = directory_.at(nameOf(node) + ".log");
    pid_t const parent = getpid();
    pid_t process = -1;
    starter_.run([&] {
        process = fork();
        if (process != 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        int const fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        if (getppid() != parent || fd < 0 || dup2(fd, 1) < 0 || dup2(fd, 2) < 0 ||
            (network_ != nullptr && !network_->join(node)))
            _exit(126);
        execve(kProgram, arguments.data(), environment);
        _exit(127);
    });
    ASSERT_LT(0, process);
    nodes_[node].process = process;
}

void EtcdCluster::kill(unsigned node)
{
    pid_t& process = nodes_[node].process;
    if (process == 0)
        return;
    ::kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    process = 0;
}

void EtcdCluster::suspend(unsigned node)
{
    ::kill(nodes_[node].process, SIGSTOP);
}

void EtcdCluster::resume(unsigned node)
{
    ::kill(nodes_[node].process, SIGCONT);
}

void EtcdCluster::restart(unsigned node)
{
    kill(node);
    start(node);
    waitUntilReady();
}

void EtcdCluster::pause(unsigned node, std::chrono::milliseconds time)
{
    suspend(node);
    std::this_thread::sleep_for(time);
    resume(node);
    waitUntilReady();
}

// The mount exists in the namespace of the starter, and of the nodes that start later.
bool EtcdCluster::limitDisk(unsigned node, unsigned megabytes)
{
    bool& isMounted = nodes_[node].hasDisk;
    if (isMounted)
        return true;
    kill(node);
    starter_.run([&] {
        if (!hasMounts_ && (unshare(CLONE_NEWNS) != 0 ||
                            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0))
            return;
        hasMounts_ = true;
        std::string const place = directory_.at(nameOf(node));
        std::string const size = "size=" + std::to_string(megabytes) + "m";
        std::filesystem::rename(place, place + ".old");
        std::filesystem::create_directory(place);
        isMounted = mount("none", place.c_str(), "tmpfs", 0, size.c_str()) == 0;
        std::filesystem::copy(place + ".old", place, std::filesystem::copy_options::recursive);
    });
    start(node);
    return isMounted;
}

void EtcdCluster::fillDisk(unsigned node)
{
    starter_.run([&] {
        std::ofstream out(directory_.at(nameOf(node)) + "/fill", std::ios::binary);
        std::string const block(4096, 'x');
        while (out.write(block.data(), static_cast<std::streamsize>(block.size())).flush()) {
        }
    });
}

void EtcdCluster::freeDisk(unsigned node)
{
    starter_.run([&] { std::filesystem::remove(directory_.at(nameOf(node)) + "/fill"); });
}

bool EtcdCluster::hasEnded(unsigned node)
{
    pid_t& process = nodes_[node].process;
    if (process != 0 && waitpid(process, nullptr, WNOHANG) == process)
        process = 0;
    return process == 0;
}

std::string EtcdCluster::backUp() const
{
    std::string const backup = directory_.at("backup.db");
    control("snapshot save " + backup);
    return backup;
}

void EtcdCluster::restore(std::string const& backup, bool keepsId)
{
    kill(0);
    std::string const data = directory_.at(nameOf(0));
    std::filesystem::remove_all(data);
    control("snapshot restore " + backup + " --name=" + nameOf(0) + " --data-dir=" + data +
            " --initial-advertise-peer-urls=" + url(nodes_[0].host, nodes_[0].peerPort) +
            " --initial-cluster=" + members() + " --initial-cluster-token=" + directory_.path() +
            (keepsId ? "" : "-restored"));
    start(0);
    waitUntilReady();
}

bool EtcdCluster::isReady(unsigned node) const
{
    zfleet::Settings settings;
    settings.endpoints = {endpoints()[node]};
    settings.certificates = clients_;
    zfleet::Cluster cluster(settings);
    try {
        zfleet::Budget budget(std::chrono::seconds(1));
        cluster.probe(0, budget);
        return true;
    } catch (zfleet::CallError const&) {
        return false;
    }
}

void EtcdCluster::waitUntilReady()
{
    for (unsigned i = 0; i < size(); ++i)
        while (nodes_[i].process != 0 && !isReady(i)) {
            ASSERT_EQ(0, waitpid(nodes_[i].process, nullptr, WNOHANG)) << "etcd has ended:\n"
                                                                       << log(i);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
}

std::string EtcdCluster::log(unsigned node) const
{
    return directory_.read(nameOf(node) + ".log");
}

std::string EtcdCluster::control(std::string const& arguments) const
{
    std::string all;
    for (std::string const& endpoint : endpoints())
        all += (all.empty() ? "" : ",") + endpoint;
    std::string const command =
        "ETCDCTL_API=3 etcdctl --endpoints=" + all + " " + arguments + " 2>/dev/null";
    FILE* const pipe = popen(command.c_str(), "re");
    std::string output;
    char bytes[4096];
    for (size_t length; (length = fread(bytes, 1, sizeof bytes, pipe)) > 0;)
        output.append(bytes, length);
    EXPECT_EQ(0, pclose(pipe)) << command;
    return output;
}

unsigned EtcdCluster::leader() const
{
    for (;;) {
        for (unsigned node = 0; node < size(); ++node) {
            // ENDPOINT, ID, VERSION, SIZE, LEADER, …
            FILE* const pipe = popen(("ETCDCTL_API=3 etcdctl --command-timeout=2s --endpoints=" +
                                      endpoints()[node] + " endpoint status 2>/dev/null")
                                         .c_str(),
                                     "re");
            char line[512] = "";
            bool const isRead = fgets(line, sizeof line, pipe) != nullptr;
            if (pclose(pipe) == 0 && isRead &&
                std::string(line).find(", true,") != std::string::npos)
                return node;
        }
    }
}
