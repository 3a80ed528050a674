// Campaigns with a cluster whose nodes are killed, suspended, filled and compacted: no update is
// lost, no read is older than an acknowledged write, no change is missed.
//
// With ZFLEET_CAMPAIGN=whole, the campaigns have their full size, otherwise a part of it. Each
// prints its figures.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "CampaignSize.h"
#include "Counters.h"
#include "EtcdCluster.h"
#include "FleetFile.h"
#include "WatchedValue.h"
#include "fleet_messages.pb.h"
#include "transport/cluster.h"
#include "transport/failure.h"

using namespace zfleet;
using std::chrono::milliseconds;

namespace {

class FleetCampaign : public OwnClusterTest {
protected:
    Settings settings() const
    {
        Settings result;
        result.fleet = "test";
        result.endpoints = nodes_->endpoints();
        result.budget = std::chrono::minutes(10);
        result.callTimeout = milliseconds(500);
        return result;
    }

    void restartLeader() { nodes_->restart(nodes_->leader()); }

    // Stops the leader until another one has been elected.
    void pauseLeader() { nodes_->pause(nodes_->leader(), milliseconds(600)); }
};

// Writers that increment counters: a counter that they share, and a counter of their own, in one
// store.
class Writers {
public:
    Writers(unsigned configurations, unsigned perConfiguration, unsigned increments)
        : perConfiguration_(perConfiguration), increments_(increments)
    {
        for (unsigned c = 0; c < configurations; ++c) {
            ZFleetProperties_6_0 store(1);
            store.setValue("counters", "shared", "0");
            store.store(pathOf(c).c_str());
            for (unsigned w = 0; w < perConfiguration; ++w) {
                ++running_;
                threads_.emplace_back([this, c, w] { run(c, w); });
            }
        }
    }
    Writers(Writers const&) = delete;
    Writers& operator=(Writers const&) = delete;
    ~Writers() { join(); }

    bool isRunning() const { return running_ > 0; }
    unsigned total() const { return static_cast<unsigned>(threads_.size()) * increments_; }
    unsigned long conflicts() const { return conflicts_; }
    unsigned done() const { return done_; }

    void join()
    {
        for (std::thread& thread : threads_)
            if (thread.joinable())
                thread.join();
    }

    void expectEveryIncrement() const
    {
        for (unsigned c = 0; c * perConfiguration_ < threads_.size(); ++c) {
            ZFleetProperties_6_0 const store(pathOf(c).c_str(), 1);
            unsigned const expected = perConfiguration_ * increments_;
            EXPECT_EQ(expected, store.getIntegerValue("counters", "shared", 1, 0));
            for (unsigned w = 0; w < perConfiguration_; ++w)
                EXPECT_EQ(increments_, store.getIntegerValue("counters", keyOf(w).c_str(), 1, 0));
            // Each increment was one store: none was executed twice.
            EXPECT_EQ(expected + 1, store.generation());
        }
    }

private:
    static std::string pathOf(unsigned c) { return "etcd://test/counters" + std::to_string(c); }
    static std::string keyOf(unsigned w) { return "writer" + std::to_string(w); }

    void run(unsigned c, unsigned w)
    {
        std::string const own = keyOf(w);
        ZFleetProperties_6_0 store(pathOf(c).c_str(), 1);
        for (unsigned i = 0; i < increments_ && !testing::Test::HasFailure();) {
            char const* const names[] = {"shared", own.c_str()};
            for (char const* const name : names)
                store.setIntegerValue("counters", name,
                                      store.getIntegerValue("counters", name, 0, 0) + 1);
            try {
                store.store(nullptr);
                ++i;
                ++done_;
            } catch (ZPropertiesIOException_6_0 const& e) {
                // The budget lasts longer than any failure, so each outcome is known.
                EXPECT_EQ(ESTALE, e.excerrno()) << e.api().getChars();
                ++conflicts_;
                store.reload(nullptr);
            }
        }
        --running_;
    }

    unsigned const perConfiguration_;
    unsigned const increments_;
    std::atomic<unsigned> running_{0};
    std::atomic<unsigned> done_{0};
    std::atomic<unsigned long> conflicts_{0};
    std::vector<std::thread> threads_;
};

std::string valueOf(Cluster& cluster, std::string const& key)
{
    Budget budget(cluster.settings().budget);
    RangeResult const result = cluster.read({key}, budget);
    return result.entries.empty() ? "(missing)" : result.entries[0].value;
}

// Waits until a node replies at this connection.
void connect(Endpoint& endpoint)
{
    wire::RangeRequest request;
    request.set_key("k");
    wire::RangeResponse response;
    CallStatus status{statusUnavailable};
    for (int i = 0; status.code != 0 && i < 20; ++i)
        status = endpoint.invoke(kRangeMethod, request, response, std::chrono::seconds(10), "");
    ASSERT_EQ(0, status.code) << status.message;
}

// Writes the value "first"; with a guard, only if the key does not exist.
void putFirst(Endpoint& endpoint, std::string const& key, bool isGuarded)
{
    wire::TxnRequest request;
    if (isGuarded) {
        wire::Compare& guard = *request.add_compare();
        guard.set_key(key);
        guard.set_target(wire::Compare::MOD);
        guard.set_mod_revision(0);
    }
    wire::PutRequest& put = *request.add_success()->mutable_put();
    put.set_key(key);
    put.set_value("first");
    wire::TxnResponse response;
    endpoint.invoke(kTxnMethod, request, response, std::chrono::seconds(20), "");
}

// A key with rising values: one thread writes, four threads read.
class Register {
public:
    /// The writer writes until join(), the readers read `wanted` times in all.
    Register(Settings const& settings, unsigned wanted) : settings_(settings), wanted_(wanted)
    {
        threads_.emplace_back([this] { write(); });
        for (int i = 0; i < 4; ++i)
            threads_.emplace_back([this] { read(); });
    }
    Register(Register const&) = delete;
    Register& operator=(Register const&) = delete;
    ~Register() { join(); }

    void join()
    {
        isOver_ = true;
        for (std::thread& thread : threads_)
            thread.join();
        threads_.clear();
    }

    long acknowledged() const { return acknowledged_; }
    unsigned long reads() const { return reads_; }
    unsigned long older() const { return older_; }        // than an acknowledged write
    unsigned long backward() const { return backward_; }  // than the read before

private:
    void write()
    {
        Cluster cluster(settings_);
        int64_t base = 0;
        for (long value = 1; !isOver_; ++value) {
            // Without the guard, an attempt that is executed late would undo later writes.
            Budget budget(cluster.settings().budget);
            TransactionResult const result =
                cluster.commit({{{"register", Condition::modRevision, Condition::equal, base}},
                                {Put{"register", std::to_string(value)}},
                                {Range{"register"}}},
                               Repetition::isHarmless, budget);
            base = result.hasSucceeded ? result.header.revision
                                       : result.ranges.at(0).entries.at(0).modRevision;
            acknowledged_ = value;
        }
    }

    void read()
    {
        Cluster cluster(settings_);
        for (long last = 0; reads_ < wanted_; ++reads_) {
            long const least = acknowledged_;
            long const value = std::max(0L, atol(valueOf(cluster, "register").c_str()));
            older_ += value < least ? 1 : 0;
            backward_ += value < last ? 1 : 0;
            last = value;
        }
    }

    Settings const settings_;
    unsigned const wanted_;
    std::atomic<long> acknowledged_{0};
    std::atomic<unsigned long> reads_{0};
    std::atomic<unsigned long> older_{0};
    std::atomic<unsigned long> backward_{0};
    std::atomic<bool> isOver_{false};
    std::vector<std::thread> threads_;
};

// Reads the register without asking the leader. Returns whether the value is older than `least`.
bool isOlder(Endpoint& endpoint, long least)
{
    wire::RangeRequest request;
    request.set_key("register");
    request.set_serializable(true);
    wire::RangeResponse response;
    CallStatus const status =
        endpoint.invoke(kRangeMethod, request, response, std::chrono::seconds(5), "");
    return status.code == 0 && response.kvs_size() > 0 &&
           atol(response.kvs(0).value().c_str()) < least;
}

}  // namespace

TEST_F(FleetCampaign, NoUpdateIsLostWhileLeadersFail)
{
    start("budget = 600\ncall = 500\n");
    unsigned const rounds = scaled(100, 3);
    Writers writers(2, 3, scaled(100'000, 600) / 6);
    Clock::time_point const begin = Clock::now();
    unsigned kills = 0;
    unsigned stops = 0;
    while (writers.isRunning() || kills < rounds || stops < rounds) {
        if (kills <= stops) {
            restartLeader();
            ++kills;
        } else {
            pauseLeader();
            ++stops;
        }
    }
    writers.join();
    writers.expectEveryIncrement();
    printf("%u of %u increments, %lu conflicts, %u kills, %u stops, %.0f s\n", writers.done(),
           writers.total(), writers.conflicts(), kills, stops, secondsSince(begin));
}

// Programs that have read the same value increment it. Without the guard, only one increment
// stays.
TEST_F(FleetCampaign, IncrementsAreLostWithoutTheGuards)
{
    start("budget = 60\ncall = 500\n");
    {
        ZFleetProperties_6_0 store(1);
        store.setIntegerValue("s", "x", 0);
        for (char const* const path : {"etcd://test/guarded", "etcd://test/agreeing"})
            store.store(path);
    }
    struct Case {
        char const* name;
        std::function<std::unique_ptr<Counter>()> make;
        bool isGuarded;
    };
    Case const cases[] = {
        {"guarded", [] { return std::make_unique<GuardedCounter>("etcd://test/guarded"); }, true},
        {"equal values agree",
         [] { return std::make_unique<AgreeingCounter>("etcd://test/agreeing"); }, false},
        {"plain puts", [this] { return std::make_unique<PlainCounter>(settings(), "plain"); },
         false}};
    constexpr unsigned kPrograms = 4;
    unsigned const rounds = scaled(500, 10);
    for (Case const& c : cases) {
        std::vector<std::thread> programs;
        std::barrier<> all(kPrograms);
        for (unsigned i = 0; i < kPrograms; ++i)
            programs.emplace_back([&] {
                auto const counter = c.make();
                for (unsigned round = 0; round < rounds; ++round) {
                    counter->read();
                    all.arrive_and_wait();
                    if (!counter->store())
                        counter->increment();
                    all.arrive_and_wait();
                }
            });
        for (std::thread& program : programs)
            program.join();
        auto const counter = c.make();
        counter->read();
        unsigned const lost = kPrograms * rounds - counter->value();
        printf("%s: %u of %u increments lost\n", c.name, lost, kPrograms * rounds);
        EXPECT_EQ(c.isGuarded ? 0 : (kPrograms - 1) * rounds, lost);
    }
}

// A write that waits in the socket of a suspended leader is executed after a later write of
// another program. A guard makes it fail then; without one it undoes the later write.
TEST_F(FleetCampaign, LateWritesUndoNoLaterWrite)
{
    start("");
    constexpr unsigned kBatch = 10;
    unsigned const rounds = scaled(100, 2);
    unsigned undone[2] = {0, 0};  // with and without a guard
    Settings const known = settings();
    unsigned round = 0;
    // On a busy machine, no request of a round may have reached the leader in time.
    for (; round < rounds || (undone[1] == 0 && round < rounds + 20); ++round) {
        unsigned const leader = nodes_->leader();
        Certificates const plain;
        Endpoint endpoint(nodes_->endpoints()[leader], plain);
        ASSERT_NO_FATAL_FAILURE(connect(endpoint));
        auto const keyOf = [&](unsigned i) {
            return "late" + std::to_string(round) + "/" + std::to_string(i);
        };
        Settings others = known;
        others.endpoints.erase(others.endpoints.begin() + leader);
        Cluster cluster(others);
        nodes_->suspend(leader);
        std::vector<std::thread> writers;
        for (unsigned i = 0; i < 2 * kBatch; ++i)
            writers.emplace_back([&, i] { putFirst(endpoint, keyOf(i), i % 2 == 0); });
        std::this_thread::sleep_for(milliseconds(100));
        for (unsigned i = 0; i < 2 * kBatch; ++i) {
            Budget budget(known.budget);
            cluster.commit({{}, {Put{keyOf(i), "second"}}, {}}, Repetition::isHarmless, budget);
        }
        nodes_->resume(leader);
        for (std::thread& writer : writers)
            writer.join();
        nodes_->waitUntilReady();
        for (unsigned i = 0; i < 2 * kBatch; ++i)
            undone[i % 2] += valueOf(cluster, keyOf(i)) == "first" ? 1 : 0;
    }
    printf("%u of %u guarded late writes undid a later one; %u of %u without a guard\n", undone[0],
           round * kBatch, undone[1], round * kBatch);
    EXPECT_EQ(0u, undone[0]);
    EXPECT_LT(0u, undone[1]);  // else nothing was late
}

// The control reads without asking the leader, at a node that was suspended.
TEST_F(FleetCampaign, ReadsAreNeverOlderThanAcknowledgedWrites)
{
    start("");
    unsigned const wanted = scaled(1'000'000, 2'000);
    Register values(settings(), wanted);
    unsigned long controls = 0;
    unsigned long olderControls = 0;
    unsigned faults = 0;
    for (; values.reads() < wanted || olderControls == 0; ++faults) {
        if (faults % 3 == 2) {
            restartLeader();
            continue;
        }
        unsigned const node = faults % 3 == 0 ? nodes_->leader() : (nodes_->leader() + 1) % 3;
        Certificates const plain;
        Endpoint endpoint(nodes_->endpoints()[node], plain);
        nodes_->suspend(node);
        std::this_thread::sleep_for(milliseconds(600));
        long const least = values.acknowledged();
        nodes_->resume(node);
        for (int i = 0; i < 20; ++i, ++controls)
            olderControls += isOlder(endpoint, least) ? 1 : 0;
        nodes_->waitUntilReady();
    }
    values.join();
    printf("%lu reads, %ld writes, %u faults: %lu older, %lu back; %lu of %lu controls older\n",
           values.reads(), values.acknowledged(), faults, values.older(), values.backward(),
           olderControls, controls);
    EXPECT_EQ(0u, values.older());
    EXPECT_EQ(0u, values.backward());
}

// Without looks, only a watch finds a change.
TEST_F(FleetCampaign, WatchesMissNoChange)
{
    start("budget = 60\ncall = 500\nlook = 3600\n");
    WatchedValue watched;
    char const* const names[] = {"none", "kill", "stop", "compaction"};
    unsigned const rounds[] = {scaled(10'000, 50), scaled(60, 3), scaled(60, 3), scaled(300, 3)};
    for (unsigned fault = 0; fault < 4; ++fault) {
        double longest = 0;
        for (unsigned round = 0; round < rounds[fault] && !HasFailure(); ++round) {
            unsigned const node = round % 3;
            if (fault == 1)
                nodes_->kill(node);
            if (fault == 2)
                nodes_->suspend(node);
            if (fault == 3)
                nodes_->control("compact " + std::to_string(watched.writer().revision()));
            longest = std::max(longest, watched.change());
            if (fault == 1)
                nodes_->start(node);
            if (fault == 2)
                nodes_->resume(node);
            nodes_->waitUntilReady();
        }
        printf("%s: %u times, longest silence %.1f s\n", names[fault], rounds[fault], longest);
    }
}

// Without space in the database, writes fail without a retry, reads succeed, and an operator can
// free space.
TEST_F(FleetCampaign, FullDatabaseIsReportedAtOnceAndKeepsTheValues)
{
    start("budget = 20\nkeep = 64\n", {"--quota-backend-bytes=16777216"});
    ZFleetProperties_6_0 store(1);
    store.setValue("s", "x", "start");
    store.store("etcd://test/full");
    std::string const line(1000, 'x');
    for (int i = 0; i < 900; ++i)
        store.setValue("large", std::to_string(i).c_str(), line.c_str());
    unsigned stores = 0;
    double took = 0;
    int error = 0;
    for (; error == 0 && stores < 100; ++stores) {
        store.setIntegerValue("s", "x", stores);
        Clock::time_point const begin = Clock::now();
        try {
            store.store(nullptr);
        } catch (ZPropertiesIOException_6_0 const& e) {
            error = e.excerrno();
            took = secondsSince(begin);
        }
    }
    EXPECT_EQ(ENOSPC, error);
    EXPECT_EQ(1, store.isModified());
    EXPECT_GT(5, took);
    ZFleetProperties_6_0 reader("etcd://test/full", 1);
    EXPECT_EQ(stores - 2, reader.getIntegerValue("s", "x", 1, 0));
    nodes_->control("compact " + std::to_string(reader.revision()));
    nodes_->control("defrag");
    nodes_->control("alarm disarm");
    store.store(nullptr);
    reader.reload(nullptr);
    EXPECT_EQ(stores - 1, reader.getIntegerValue("s", "x", 1, 0));
    printf("full after %u stores, reported after %.2f s\n", stores, took);
}

// A node whose disk is full ends itself, as if it had crashed: no store fails, and none is lost.
TEST_F(FleetCampaign, FullDiskOfANodeLosesNoStore)
{
    start("budget = 60\ncall = 500\nkeep = 4\n");
    ZFleetProperties_6_0 store(1);
    store.setIntegerValue("s", "x", 0);
    std::string const line(1000, 'x');
    for (int i = 0; i < 400; ++i)
        store.setValue("large", std::to_string(i).c_str(), line.c_str());
    store.store("etcd://test/disk");
    unsigned stores = 0;
    for (unsigned round = 0; round < scaled(9, 1); ++round) {
        unsigned const node = round % 2 == 0 ? nodes_->leader() : round / 2 % 3;
        if (!nodes_->limitDisk(node, 400))
            GTEST_SKIP() << "file systems need the right to mount";
        nodes_->waitUntilReady();
        nodes_->fillDisk(node);
        Clock::time_point const begin = Clock::now();
        double longest = 0;
        unsigned const before = stores;
        while (!nodes_->hasEnded(node)) {
            ASSERT_GT(500u, stores - before) << "the node has not ended";
            Clock::time_point const started = Clock::now();
            store.setIntegerValue("s", "x", ++stores);
            store.store(nullptr);
            longest = std::max(longest, secondsSince(started));
        }
        printf("node %u has ended after %u stores in %.0f s, the longest took %.1f s\n", node,
               stores - before, secondsSince(begin), longest);
        nodes_->freeDisk(node);
        nodes_->start(node);
        nodes_->waitUntilReady();
    }
    ZFleetProperties_6_0 const reader("etcd://test/disk", 1);
    EXPECT_EQ(stores, reader.getIntegerValue("s", "x", 0, 0));
    EXPECT_EQ(stores + 1, reader.generation());
}
