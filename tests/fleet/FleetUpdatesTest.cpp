// Writers of one configuration in a cluster whose nodes are killed and suspended: no update is
// lost.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "EtcdCluster.h"

namespace {

constexpr char kPath[] = "etcd://test/counters";
constexpr unsigned kWriters = 3;
constexpr unsigned kIncrements = 30;  // of each writer

// Increments the shared counter and the writer's own counter in one store. Returns false if the
// store was refused, because another writer was faster.
bool increment(ZFleetProperties_6_0& store, char const* own)
{
    unsigned const shared = store.getIntegerValue("counters", "shared", 0, 0);
    unsigned const mine = store.getIntegerValue("counters", own, 0, 0);
    store.setIntegerValue("counters", "shared", shared + 1);
    store.setIntegerValue("counters", own, mine + 1);
    try {
        store.store(nullptr);
        return true;
    } catch (ZPropertiesIOException_6_0 const& e) {
        // The budget lasts longer than any failure of this test, so each outcome is known.
        EXPECT_EQ(ESTALE, e.excerrno()) << e.api().getChars();
        store.reload(nullptr);
        return false;
    }
}

void runWriter(unsigned number, std::atomic<unsigned>& running)
{
    std::string const own = "writer" + std::to_string(number);
    ZFleetProperties_6_0 store(kPath, 1);
    for (unsigned done = 0; done < kIncrements && !testing::Test::HasFailure();)
        done += increment(store, own.c_str()) ? 1 : 0;
    --running;
}

class FleetUpdates : public OwnClusterTest {};

}  // namespace

TEST_F(FleetUpdates, NoUpdateIsLostWhileNodesFail)
{
    start("budget = 600\ncall = 500\n");
    EtcdCluster& nodes = *nodes_;
    {
        ZFleetProperties_6_0 store(1);
        store.setValue("counters", "shared", "0");
        store.store(kPath);
    }
    std::atomic<unsigned> running{kWriters};
    std::vector<std::thread> writers;
    for (unsigned i = 0; i < kWriters; ++i)
        writers.emplace_back([i, &running] { runWriter(i, running); });
    for (unsigned round = 0; running > 0; ++round) {
        unsigned const node = round % nodes.size();
        if (round % 2 == 0)
            nodes.pause(node, std::chrono::milliseconds(300));
        else
            nodes.restart(node);
    }
    for (std::thread& writer : writers)
        writer.join();
    ZFleetProperties_6_0 const store(kPath, 1);
    EXPECT_EQ(kWriters * kIncrements, store.getIntegerValue("counters", "shared", 1, 0));
    for (unsigned i = 0; i < kWriters; ++i)
        EXPECT_EQ(kIncrements,
                  store.getIntegerValue("counters", ("writer" + std::to_string(i)).c_str(), 1, 0));
    EXPECT_EQ(kWriters * kIncrements + 1, store.generation());
}
