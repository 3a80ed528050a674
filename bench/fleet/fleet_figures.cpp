// The time of operations of libzfleet, as a ratio to a bare client of gRPC. Both call the same node
// of a cluster of three, in turns. Ends with 2 if a figure misses its target.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <Z/ZFleetReadWriteLock.h>
#include <Z/ZObserver.h>
#include <grpcpp/grpcpp.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string_view>
#include <thread>

#include "../run_program.h"
#include "EtcdCluster.h"
#include "FleetFile.h"
#include "bare_client.grpc.pb.h"
#include "configuration.h"
#include "measuring.h"
#include "settings/fleet_settings.h"
#include "transport/cluster.h"

namespace {

namespace wire = zfleet::wire;

constexpr char kConfiguration[] = "etcd://test/figures";
constexpr char kLock[] = "etcd://test/figures";
constexpr size_t kSmall = 100;  // bytes
constexpr size_t kMegabyte = 1'000'000;
constexpr unsigned kUnderWay = 64;

int shortRows = 0;

struct Medians {
    double ours;
    double bare;
};

void report(std::string const& name, Medians const& times, double limit)
{
    bool const isShort = times.ours > limit;
    shortRows += isShort ? 1 : 0;
    printf("%-42s %8.3f %8.3f %6.2f   at most %.3f%s\n", name.c_str(), times.ours, times.bare,
           times.ours / times.bare, limit, isShort ? "  SHORT" : "");
    fflush(stdout);
}

// The calls that the compiler of gRPC generates, without a deadline or a repetition.
class BareClient {
public:
    explicit BareClient(std::string const& address)
        : stub_(etcdserverpb::KV::NewStub(
              grpc::CreateChannel(address, grpc::InsecureChannelCredentials())))
    {
    }

    void get(std::string const& key) const
    {
        wire::RangeRequest request;
        request.set_key(key);
        wire::RangeResponse response;
        grpc::ClientContext context;
        require(stub_->Range(&context, request, &response));
    }

    void put(std::string const& key, std::string const& value) const
    {
        wire::PutRequest request;
        request.set_key(key);
        request.set_value(value);
        wire::PutResponse response;
        grpc::ClientContext context;
        require(stub_->Put(&context, request, &response));
    }

    // The library sends each put in a transaction.
    void transact(std::string const& key, std::string const& value) const
    {
        wire::TxnRequest request;
        wire::PutRequest& put = *request.add_success()->mutable_put();
        put.set_key(key);
        put.set_value(value);
        wire::TxnResponse response;
        grpc::ClientContext context;
        require(stub_->Txn(&context, request, &response));
    }

private:
    static void require(grpc::Status const& status)
    {
        if (status.ok())
            return;
        fprintf(stderr, "fleet_figures: %s\n", status.error_message().c_str());
        exit(1);
    }

    std::unique_ptr<etcdserverpb::KV::Stub> const stub_;
};

// The same calls by the transport of the library.
class Transport {
public:
    Transport() : cluster_(zfleet::readSettings("test")) {}

    void get(std::string const& key)
    {
        zfleet::Budget budget(cluster_.settings().budget);
        cluster_.read({key}, budget);
    }

    void put(std::string const& key, std::string const& value)
    {
        zfleet::Budget budget(cluster_.settings().budget);
        zfleet::Transaction transaction;
        transaction.success.emplace_back(zfleet::Put{key, value});
        cluster_.commit(transaction, zfleet::Repetition::isHarmful, budget);
    }

private:
    zfleet::Cluster cluster_;
};

// Runs both in turns, so that a change of the machine's load concerns both.
Medians compare(unsigned rounds, std::function<void()> const& ours,
                std::function<void()> const& bare)
{
    std::vector<double> times[2];
    ours();
    bare();
    for (unsigned i = 0; i < rounds; ++i) {
        times[0].push_back(timeOf(ours));
        times[1].push_back(timeOf(bare));
    }
    return {medianOf(times[0]), medianOf(times[1])};
}

void compareCalls(Transport& ours, BareClient const& bare, char const* sizeName, size_t size,
                  unsigned rounds)
{
    std::string const value(size, 'v');
    std::string const name = std::string(" of ") + sizeName;
    ours.put("/figures/ours", value);
    bare.put("/figures/bare", value);
    Medians const gets = compare(
        rounds, [&] { ours.get("/figures/ours"); }, [&] { bare.get("/figures/bare"); });
    report("get" + name, gets, 1.2 * gets.bare);
    auto const put = [&] { ours.put("/figures/ours", value); };
    Medians const puts = compare(rounds, put, [&] { bare.put("/figures/bare", value); });
    report("put" + name, puts, 1.2 * puts.bare);
    Medians const transactions =
        compare(rounds, put, [&] { bare.transact("/figures/bare", value); });
    report("put" + name + ", and a bare transaction", transactions, 1.2 * transactions.bare);
}

// A load also reads metadata and parses the text. A store also formats the text and writes the log.
void compareStores(BareClient const& bare)
{
    ZFleetProperties_6_0 store(1);
    fillConfiguration(store);
    store.store(kConfiguration);
    std::string const text(12'000, 't');
    bare.put("/figures/text", text);
    ZFleetProperties_6_0 reader(1);
    Medians const loads = compare(
        500, [&] { reader.load(kConfiguration); }, [&] { bare.get("/figures/text"); });
    report("load of 12 kB, and a bare get", loads, 1.5 * loads.bare);
    int round = 0;
    Medians const stores = compare(
        300,
        [&] {
            store.setIntegerValue("stanza5", "key7", static_cast<unsigned>(++round));
            store.store(nullptr);
        },
        [&] { bare.put("/figures/text", text); });
    report("store of 12 kB, and a bare put", stores, 2.5 * stores.bare);
}

// ---- Other machines ----------------------------------------------------------------------------

class Notice final : public ZObserverInterface_6_0 {
public:
    void update(ZObservableInterface_6_0*, ZObservedParm_6_0 const&) override
    {
        sendTo(STDOUT_FILENO, milliseconds());
    }
};

// Sends the time of each notice.
int watchConfiguration()
{
    ZFleetProperties_6_0 store(kConfiguration, 1);
    Notice notice;
    store.addObserver(&notice);
    pollfd wait = {store.descriptor(), POLLIN, 0};
    sendTo(STDOUT_FILENO, milliseconds());
    while (poll(&wait, 1, -1) >= 0)
        store.processChanges();
    return 1;
}

void measureNotices(BareClient const& bare)
{
    std::string const text(12'000, 't');
    OtherMachine const machine("watch", "");
    ZFleetProperties_6_0 store(kConfiguration, 1);
    machine.receive<double>();
    std::vector<double> times;
    std::vector<double> puts;
    for (unsigned i = 0; i < 300; ++i) {
        store.setIntegerValue("stanza1", "key1", 1000 + i);
        double const start = milliseconds();
        store.store(nullptr);
        times.push_back(machine.receive<double>() - start);
        puts.push_back(timeOf([&] { bare.put("/figures/text", text); }));
    }
    double const put = medianOf(puts);
    report("store to notice, and a bare put", {medianOf(times), put}, 2 * put + 5);
}

void measureLocks(BareClient const& bare)
{
    ZFleetReadWriteLock_6_0 lock(kLock);
    std::string const value(kSmall, 'v');
    Medians const times = compare(
        500,
        [&] {
            lock.writeLock();
            lock.unlock(0);
        },
        [&] { bare.put("/figures/bare", value); });
    report("lock and unlock, and a bare put", times, 2.6 * times.bare);
}

// Acquires the lock at each command, sends the time, and releases the lock.
int takeLock()
{
    ZFleetReadWriteLock_6_0 lock(kLock);
    for (;;) {
        receiveFrom<char>(STDIN_FILENO);
        lock.writeLock();
        double const acquired = milliseconds();
        lock.unlock(0);
        sendTo(STDOUT_FILENO, acquired);
    }
}

// A bare put has the same pause before it: idle processors are slower.
void measureHandingOver(BareClient const& bare)
{
    constexpr unsigned kPause = 20'000;  // microseconds; the other machine waits in the queue then
    std::string const value(kSmall, 'v');
    OtherMachine const machine("take", "");
    ZFleetReadWriteLock_6_0 lock(kLock);
    std::vector<double> times;
    std::vector<double> puts;
    for (unsigned i = 0; i < 200; ++i) {
        lock.writeLock();
        machine.go();
        usleep(kPause);
        double const start = milliseconds();
        lock.unlock(0);
        times.push_back(machine.receive<double>() - start);
        usleep(kPause);
        puts.push_back(timeOf([&] { bare.put("/figures/bare", value); }));
    }
    double const put = medianOf(puts);
    report("handing over a lock, and a bare put", {medianOf(times), put}, 3 * put);
}

// ---- Throughput, threads, start
// ------------------------------------------------------------------

// Returns the puts per second of 64 threads that share a connection.
double putsPerSecond(std::function<void(std::string const&)> const& put)
{
    std::atomic<bool> isOver{false};
    std::atomic<unsigned> count{0};
    std::vector<std::thread> threads;
    double const start = milliseconds();
    for (unsigned i = 0; i < kUnderWay; ++i)
        threads.emplace_back([&, key = "/figures/" + std::to_string(i)] {
            while (!isOver) {
                put(key);
                ++count;
            }
        });
    sleep(3);
    isOver = true;
    for (std::thread& thread : threads)
        thread.join();
    return count / (milliseconds() - start) * 1e3;
}

void measureThroughput(Transport& ours, BareClient const& bare)
{
    constexpr double kTarget = 5000;
    std::string const value(kSmall, 'v');
    double const own = putsPerSecond([&](std::string const& key) { ours.put(key, value); });
    double const puts = putsPerSecond([&](std::string const& key) { bare.put(key, value); });
    double const transactions =
        putsPerSecond([&](std::string const& key) { bare.transact(key, value); });
    bool const isShort = own < kTarget;
    shortRows += isShort ? 1 : 0;
    printf("%-42s %8.0f %8.0f %6.2f   at least %.0f%s\n", "64 puts in flight, per second", own,
           puts, own / puts, kTarget, isShort ? "  SHORT" : "");
    printf("%-42s %8.0f %8.0f %6.2f\n", "  and bare transactions", own, transactions,
           own / transactions);
}

struct Threads {
    unsigned all;
    unsigned others;  // than the thread of the program and the threads of gRPC
};

Threads countThreads()
{
    static constexpr std::string_view kOfGrpc[] = {"default-executo", "event_engine",
                                                   "grpc_global_tim", "nexting_thread",
                                                   "resolver-execut", "timer_manager"};
    Threads threads{0, 0};
    std::string const self = std::to_string(getpid());
    for (auto const& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(thread.path() / "comm"), name);
        bool const isOfGrpc =
            std::find(std::begin(kOfGrpc), std::end(kOfGrpc), name) != std::end(kOfGrpc);
        ++threads.all;
        threads.others += isOfGrpc || thread.path().filename() == self ? 0 : 1;
    }
    return threads;
}

int countThreadsOfLibrary()
{
    ZFleetProperties_6_0 store(kConfiguration, 1);
    store.descriptor();
    store.processChanges();
    sendTo(STDOUT_FILENO, countThreads());
    return 0;
}

int countThreadsOfBareClient(char const* address)
{
    BareClient const client(address);
    client.get("/figures/bare");
    sendTo(STDOUT_FILENO, countThreads());
    return 0;
}

void compareThreads(std::string const& address)
{
    auto const ours = OtherMachine("threads", "").receive<Threads>();
    auto const bare = OtherMachine("bare-threads", address).receive<Threads>();
    shortRows += ours.others > 0 ? 1 : 0;
    printf("%-42s %8u %8u          %u are not of gRPC%s\n", "threads of a watching program",
           ours.all, bare.all, ours.others, ours.others > 0 ? "  SHORT" : "");
}

void compareStarts()
{
    TestDirectory const directory;
    std::string const file = directory.write("local.conf", "[listener]\naddress = 0.0.0.0:80\n");
    auto const start = [&](char const* program) {
        if (!runProgram({program, file.c_str()})) {
            fprintf(stderr, "fleet_figures: %s has failed\n", program);
            exit(1);
        }
    };
    Medians const starts = compare(
        100, [&] { start(LOAD_WITH_ZFLEET); }, [&] { start(LOAD_WITH_Z); });
    report("start with a local file, and without libzf", starts, starts.bare + 1);
}

int measure()
{
    EtcdCluster const nodes;
    // All calls go to the leader: a forwarded request takes longer, and the ratios would be
    // smaller.
    std::string const address = nodes.endpoints()[nodes.leader()];
    FleetFile const file(FleetFile::textFor({address}));
    printf("%-42s %8s %8s %6s\n", "median in ms", "ours", "bare", "ratio");
    BareClient const bare(address);
    Transport ours;
    compareCalls(ours, bare, "100 B", kSmall, 1000);
    compareCalls(ours, bare, "1 MB", kMegabyte, 100);
    compareStores(bare);
    measureNotices(bare);
    measureLocks(bare);
    measureHandingOver(bare);
    measureThroughput(ours, bare);
    compareThreads(address);
    compareStarts();
    return shortRows == 0 ? 0 : 2;
}

}  // namespace

// usage: fleet_figures [ROLE [ARGUMENT]]
int main(int argc, char** argv)
{
    setenv("QVRDIR", Z_TABLES, 0);
    std::string const role = argc > 1 ? argv[1] : "";
    try {
        if (role == "watch")
            return watchConfiguration();
        if (role == "take")
            return takeLock();
        if (role == "threads")
            return countThreadsOfLibrary();
        if (role == "bare-threads")
            return countThreadsOfBareClient(argv[2]);
        return measure();
    } catch (ZException_6_0& e) {
        e.dumpException();
        return 1;
    }
}
