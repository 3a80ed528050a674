// A process that writes a replica is killed at each of its calls on files: the next start finds the
// old replica or the new one, and nothing is lost.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "../multi/Stepper.h"
#include "CampaignSize.h"
#include "FleetFile.h"
#include "ModelCluster.h"
#include "configuration/replica.h"

using namespace zfleet;

namespace {

// The contents of a configuration, with a companion, as the cluster has them.
Snapshot snapshotOf(char const* value, int64_t revision)
{
    ModelCluster cluster;
    FleetFile const file(FleetFile::textFor({cluster.address()}));
    ZFleetProperties_6_0 store(1);
    store.setValue("s", "x", value);
    store.setValue("s", "secret", value, 1);
    store.store("etcd://test/gateway");
    std::string const directory = "/zfleet/6/cfg/gateway/";
    return {{cluster.get(directory + "text"), cluster.get(directory + "hidden")},
            cluster.get(directory + "meta"),
            revision,
            revision};
}

// Returns "old", "new", "third", "damaged" for a file that is not a replica, or "none".
class Reader {
public:
    Reader(Settings const& settings, Snapshot const& before, Snapshot const& after,
           Snapshot const& third)
        : settings_(settings), before_(before), after_(after), third_(third)
    {
    }

    std::string read() const
    {
        Replica const replica(settings_, "gateway");
        if (access(replica.path().c_str(), F_OK) != 0)
            return "none";
        try {
            return nameOf(replica.read().snapshot);
        } catch (ZPropertiesException_6_0 const&) {
            return "damaged";
        }
    }

private:
    // The text without the empty lines at its end.
    static std::string trimmed(std::string const& text)
    {
        return text.substr(0, text.find_last_not_of('\n') + 1);
    }

    std::string nameOf(Snapshot const& found) const
    {
        for (auto const& [name, snapshot] :
             {std::pair("old", &before_), {"new", &after_}, {"third", &third_}})
            if (trimmed(found.contents.text) == trimmed(snapshot->contents.text) &&
                found.contents.hidden == snapshot->contents.hidden &&
                found.textRevision == snapshot->textRevision)
                return name;
        return "a mixture";
    }

    Settings const& settings_;
    Snapshot const& before_;
    Snapshot const& after_;
    Snapshot const& third_;
};

// A replica before the write, and its possible states after the write.
struct Case {
    char const* name;
    uint64_t cluster;  // of the old replica; 0: none exists
    bool isDamaged;
    char const* allowed;  // states of the replica, separated by spaces
};

Case const kCases[] = {{"no replica", 0, false, "none damaged new"},
                       {"older replica", 1, false, "old new"},
                       {"replica of another cluster", 2, false, "old none damaged new"},
                       {"damaged replica", 1, true, "damaged none new"}};

}  // namespace

TEST(FleetReplicaCampaign, KillAtEachCallKeepsAReplica)
{
    std::string const obstacle = Stepper::obstacle();
    if (!obstacle.empty())
        GTEST_SKIP() << obstacle;
    Snapshot const before = snapshotOf("old", 10);
    Snapshot const after = snapshotOf("new", 20);
    Snapshot const third = snapshotOf("third", 30);
    for (Case const& c : kCases) {
        unsigned kills = 0;
        for (unsigned call = 0, isOver = 0; isOver == 0; call += scaled(1, 5)) {
            SCOPED_TRACE(std::string(c.name) + ", call " + std::to_string(call));
            TestDirectory const directory;
            Settings settings;
            settings.fleet = "test";
            settings.replicaDirectory = directory.path();
            Replica const replica(settings, "gateway");
            Reader const reader(settings, before, after, third);
            if (c.cluster != 0) {
                ASSERT_TRUE(replica.write({before, c.cluster}, 10));
            }
            if (c.isDamaged)
                directory.write("test/gateway.conf", "[s\n");
            Stepper process([&] {
                replica.write({after, 1}, 20);
                return 0;
            });
            isOver = 1;
            for (unsigned i = 0; process.nextOnFiles(); ++i)
                if (i == call) {
                    process.kill();
                    isOver = 0;
                    ++kills;
                    break;
                }
            std::string const found = reader.read();
            EXPECT_NE(std::string::npos,
                      (" " + std::string(c.allowed) + " ").find(" " + found + " "))
                << found;
            // The replica of another cluster is in the replica file or in the ".orphan" file.
            std::string const orphan = directory.read("test/gateway.conf.orphan");
            if (c.cluster == 2 && found != "old") {
                EXPECT_NE(std::string::npos, orphan.find("x = old")) << found << orphan;
            }
            if (c.isDamaged && found != "damaged") {
                EXPECT_EQ("[s\n", orphan);
            }
            replica.write({third, 1}, 30);
            EXPECT_EQ("third", reader.read());
        }
        printf("%s: %u kills\n", c.name, kills);
        EXPECT_LT(2u, kills);
    }
}
