// The calls to a cluster of three nodes.
#include <errno.h>
#include <gtest/gtest.h>

#include <set>

#include "EtcdCluster.h"
#include "transport/cluster.h"
#include "transport/failure.h"

using namespace zfleet;

namespace {

class FleetCluster : public SharedClusterTest<FleetCluster> {
protected:
    static Settings settings()
    {
        Settings result;
        result.fleet = "test";
        result.endpoints = nodes_->endpoints();
        result.budget = std::chrono::seconds(60);
        return result;
    }

    // Sets a key to a value if its revision is `base`.
    static TransactionResult put(Cluster& cluster, std::string const& key, std::string const& value,
                                 int64_t base)
    {
        Budget budget(cluster.settings().budget);
        return cluster.commit({{{key, Condition::modRevision, Condition::equal, base}},
                               {Put{key, value}},
                               {Range{key}}},
                              Repetition::isHarmless, budget);
    }

    static std::string get(Cluster& cluster, std::string const& key)
    {
        Budget budget(cluster.settings().budget);
        RangeResult const result = cluster.read({key}, budget);
        return result.entries.empty() ? "(missing)" : result.entries[0].value;
    }
};

}  // namespace

TEST_F(FleetCluster, NodesReportOneClusterAndTheirOwnIds)
{
    Cluster cluster(settings());
    std::set<uint64_t> clusters;
    std::set<uint64_t> members;
    for (unsigned i = 0; i < nodes_->size(); ++i) {
        Budget budget(std::chrono::seconds(60));
        Header const header = cluster.probe(i, budget);
        clusters.insert(header.cluster);
        members.insert(header.member);
        EXPECT_LT(0, header.revision);
    }
    EXPECT_EQ(1u, clusters.size());
    EXPECT_EQ(3u, members.size());
    EXPECT_EQ(0u, clusters.count(0));
}

TEST_F(FleetCluster, GuardedPutSucceedsOnceForARevision)
{
    Cluster cluster(settings());
    EXPECT_EQ("(missing)", get(cluster, "guarded"));
    EXPECT_TRUE(put(cluster, "guarded", "one", 0).hasSucceeded);
    TransactionResult const second = put(cluster, "guarded", "two", 0);
    EXPECT_FALSE(second.hasSucceeded);
    ASSERT_EQ(1u, second.ranges.size());
    ASSERT_EQ(1u, second.ranges[0].entries.size());
    EXPECT_EQ("one", second.ranges[0].entries[0].value);
    int64_t const base = second.ranges[0].entries[0].modRevision;
    EXPECT_TRUE(put(cluster, "guarded", "three", base).hasSucceeded);
    EXPECT_EQ("three", get(cluster, "guarded"));
}

TEST_F(FleetCluster, ValuesHaveAnyBytes)
{
    Cluster cluster(settings());
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    ASSERT_TRUE(put(cluster, bytes, bytes + bytes, 0).hasSucceeded);
    EXPECT_EQ(bytes + bytes, get(cluster, bytes));
}

TEST_F(FleetCluster, TooLargeRequestFailsAtOnce)
{
    Cluster cluster(settings());
    for (size_t const size : {size_t{1600} << 10, size_t{3} << 20}) {
        try {
            put(cluster, "large", std::string(size, 'x'), 0);
            FAIL() << "nothing was thrown";
        } catch (CallError const& error) {
            EXPECT_EQ(EFBIG, error.error) << error.detail;
        }
    }
    EXPECT_EQ("(missing)", get(cluster, "large"));
}

TEST_F(FleetCluster, CallsSurviveTheDeathOfEachNode)
{
    Cluster cluster(settings());
    int64_t base = 0;
    int written = 0;
    for (unsigned node = 0; node < nodes_->size(); ++node) {
        nodes_->kill(node);
        for (int i = 0; i < 20; ++i) {
            std::string const value = std::to_string(++written);
            TransactionResult const result = put(cluster, "survivor", value, base);
            base = result.hasSucceeded ? result.header.revision
                                       : result.ranges.at(0).entries.at(0).modRevision;
            // A failure is an earlier attempt that succeeded without a reply.
            EXPECT_TRUE(result.hasSucceeded || result.wasDoubtful);
            EXPECT_EQ(value, get(cluster, "survivor"));
        }
        nodes_->start(node);
        nodes_->waitUntilReady();
    }
}

TEST_F(FleetCluster, CallsSurviveASuspendedNode)
{
    Cluster cluster(settings());
    for (unsigned node = 0; node < nodes_->size(); ++node) {
        std::string const key = "suspended" + std::to_string(node);
        nodes_->suspend(node);
        TransactionResult const result = put(cluster, key, "value", 0);
        EXPECT_TRUE(result.hasSucceeded || result.wasDoubtful);
        EXPECT_EQ("value", get(cluster, key));
        nodes_->resume(node);
        nodes_->waitUntilReady();
    }
}

TEST_F(FleetCluster, MinorityRefusesReadsAndWrites)
{
    Settings few = settings();
    few.budget = std::chrono::seconds(2);
    Cluster cluster(few);
    ASSERT_TRUE(put(cluster, "majority", "value", 0).hasSucceeded);
    nodes_->kill(0);
    nodes_->kill(1);
    EXPECT_THROW(get(cluster, "majority"), CallError);
    try {
        put(cluster, "majority", "other", 0);
        FAIL() << "nothing was thrown";
    } catch (CallError const& error) {
        EXPECT_EQ(ETIMEDOUT, error.error) << error.detail;
    }
    nodes_->start(0);
    nodes_->start(1);
    nodes_->waitUntilReady();
    EXPECT_EQ("value", get(cluster, "majority"));
}
