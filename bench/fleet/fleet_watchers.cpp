// The time from a store to the last notice, for fleets of different sizes, which four processes of
// this machine simulate: each host has its own store object and its own connections.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <Z/ZObserver.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <utility>

#include "EtcdCluster.h"
#include "FleetFile.h"
#include "configuration.h"
#include "measuring.h"

namespace {

constexpr unsigned kProcesses = 4;
constexpr unsigned kHosts[] = {10, 100, 1000};
constexpr unsigned kRounds = 20;
constexpr char kName[] = "/watched";

// The stanza of a host in the file of the fleets: each has a connection of its own.
std::string fleetOf(unsigned host)
{
    return "host" + std::to_string(host);
}

std::string pathOf(unsigned host)
{
    return "etcd://" + fleetOf(host) + kName;
}

// ---- The hosts of one process
// --------------------------------------------------------------------

// A host that records the time of its latest notice.
class Host final : public ZObserverInterface_6_0 {
public:
    explicit Host(unsigned number) : store_(pathOf(number).c_str(), 1)
    {
        store_.addObserver(this);
        store_.descriptor();
        store_.processChanges();
    }

    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const&) override
    {
        noticed_ = milliseconds();
    }

    int descriptor() { return store_.descriptor(); }
    void process() { store_.processChanges(); }

    /// Returns the time of the notice, and forgets it.
    std::optional<double> takeNotice() { return std::exchange(noticed_, std::nullopt); }

private:
    ZFleetProperties_6_0 store_;
    std::optional<double> noticed_;
};

// Processes the changes of the hosts until each has got a notice. Returns the times, sorted.
std::vector<double> waitForNotices(std::vector<std::unique_ptr<Host>> const& hosts,
                                   std::vector<pollfd>& waits)
{
    std::vector<double> times;
    while (times.size() < hosts.size()) {
        poll(waits.data(), waits.size(), -1);
        for (size_t i = 0; i < hosts.size(); ++i) {
            if (waits[i].revents == 0)
                continue;
            hosts[i]->process();
            if (std::optional<double> const time = hosts[i]->takeNotice())
                times.push_back(*time);
        }
    }
    std::sort(times.begin(), times.end());
    return times;
}

// Sends a time when the hosts watch, and for each store the times of all notices.
int simulateHosts(unsigned first, unsigned count)
{
    std::vector<std::unique_ptr<Host>> hosts;
    for (unsigned i = 0; i < count; ++i)
        hosts.push_back(std::make_unique<Host>(first + i));
    std::vector<pollfd> waits;
    for (std::unique_ptr<Host> const& host : hosts)
        waits.push_back({host->descriptor(), POLLIN, 0});
    sendTo(STDOUT_FILENO, milliseconds());
    for (;;)
        for (double const time : waitForNotices(hosts, waits))
            sendTo(STDOUT_FILENO, time);
}

// ---- The fleet
// -----------------------------------------------------------------------------------

unsigned hostsOf(unsigned process, unsigned hosts)
{
    return hosts / kProcesses + (process < hosts % kProcesses ? 1 : 0);
}

// Starts the processes, and waits until each host watches.
std::vector<OtherMachine> startHosts(unsigned hosts)
{
    std::vector<OtherMachine> machines;
    unsigned first = 0;
    for (unsigned i = 0; i < kProcesses; ++i) {
        unsigned const count = hostsOf(i, hosts);
        machines.emplace_back("hosts", std::to_string(first), std::to_string(count));
        first += count;
    }
    for (OtherMachine const& machine : machines)
        machine.receive<double>();
    return machines;
}

// The resources that the nodes of a cluster use.
struct Usage {
    double memory = 0;     // MB
    double processor = 0;  // milliseconds
};

Usage usageOf(EtcdCluster const& nodes)
{
    Usage sum;
    double const tick = 1000.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
    double const page = static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
    for (unsigned node = 0; node < nodes.size(); ++node) {
        std::ifstream status("/proc/" + std::to_string(nodes.process(node)) + "/stat");
        std::string const fields{std::istreambuf_iterator<char>(status), {}};
        // The fields after the name: user time is the 12th, system time the 13th, memory the 22nd.
        std::istringstream rest(fields.substr(fields.rfind(')') + 2));
        std::vector<std::string> const field{std::istream_iterator<std::string>(rest), {}};
        sum.processor += tick * (std::stod(field[11]) + std::stod(field[12]));
        sum.memory += page * std::stod(field[21]);
    }
    return sum;
}

struct Result {
    double half;  // half of the hosts have got their notice
    double last;
};

Result storeOnce(ZFleetProperties_6_0& store, unsigned round, unsigned hosts,
                 std::vector<OtherMachine> const& machines)
{
    store.setIntegerValue("stanza1", "key1", round);
    double const start = milliseconds();
    store.store(nullptr);
    std::vector<double> times;
    for (unsigned i = 0; i < kProcesses; ++i)
        for (unsigned host = 0; host < hostsOf(i, hosts); ++host)
            times.push_back(machines[i].receive<double>() - start);
    return {medianOf(times), *std::max_element(times.begin(), times.end())};
}

std::string fileText(EtcdCluster const& nodes, unsigned hosts)
{
    std::string text;
    for (unsigned host = 0; host < hosts; ++host) {
        text += FleetFile::textFor(nodes.endpoints());
        text.replace(text.rfind("[test]"), strlen("[test]"), "[" + fleetOf(host) + "]");
    }
    return text;
}

void measure(unsigned hosts)
{
    EtcdCluster const nodes;
    FleetFile const file(fileText(nodes, hosts));
    ZFleetProperties_6_0 store(1);
    fillConfiguration(store);
    store.store(pathOf(0).c_str());
    Usage const before = usageOf(nodes);
    double const start = milliseconds();
    std::vector<OtherMachine> const machines = startHosts(hosts);
    double const started = milliseconds() - start;
    Usage const watched = usageOf(nodes);
    std::vector<double> half;
    std::vector<double> last;
    for (unsigned round = 1; round <= kRounds; ++round) {
        Result const result = storeOnce(store, round, hosts, machines);
        half.push_back(result.half);
        last.push_back(result.last);
    }
    Usage const after = usageOf(nodes);
    printf("%6u %10.0f %10.1f %10.1f %10.1f %12.1f %10.0f\n", hosts, started, medianOf(half),
           medianOf(last), *std::max_element(last.begin(), last.end()),
           (after.processor - watched.processor) / kRounds, after.memory - before.memory);
    fflush(stdout);
}

// Each node has a connection for the calls and for the watches of each host.
void allowDescriptors()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

int measureAll()
{
    allowDescriptors();
    printf(
        "A store of 12 kB and its notices, in ms; processor time of the nodes for each store;\n"
        "memory of the nodes for the hosts in MB\n"
        "%6s %10s %10s %10s %10s %12s %10s\n",
        "hosts", "start", "half", "last", "slowest", "processor", "memory");
    for (unsigned const hosts : kHosts)
        measure(hosts);
    return 0;
}

}  // namespace

// usage: fleet_watchers [hosts FIRST COUNT]
int main(int argc, char** argv)
{
    setenv("QVRDIR", Z_TABLES, 0);
    try {
        if (argc == 4)
            return simulateHosts(static_cast<unsigned>(atoi(argv[2])),
                                 static_cast<unsigned>(atoi(argv[3])));
        return measureAll();
    } catch (ZException_6_0& e) {
        e.dumpException();
        return 1;
    }
}
