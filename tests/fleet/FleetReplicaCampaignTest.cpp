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

class FleetReplicaCampaign : public testing::Test {
protected:
    // Writes a replica, and kills the writer at a call. Returns false if it has ended before.
    bool killAt(Case const& c, unsigned call) const
    {
        TestDirectory const directory;
        Settings settings;
        settings.fleet = "test";
        settings.replicaDirectory = directory.path();
        Replica const replica(settings, "gateway");
        Reader const reader(settings, before_, after_, third_);
        if (c.cluster != 0) {
            EXPECT_TRUE(replica.write({before_, c.cluster}, 10));
        }
        if (c.isDamaged)
            directory.write("test/gateway.conf", "[s\n");
        bool const isKilled = killWriterAt(replica, call);
        std::string const found = reader.read();
        EXPECT_NE(std::string::npos, (" " + std::string(c.allowed) + " ").find(" " + found + " "))
            << found;
        // The replica of another cluster is in the replica file or in the ".orphan" file.
        std::string const orphan = directory.read("test/gateway.conf.orphan");
        if (c.cluster == 2 && found != "old") {
            EXPECT_NE(std::string::npos, orphan.find("x = old")) << found << orphan;
        }
        if (c.isDamaged && found != "damaged") {
            EXPECT_EQ("[s\n", orphan);
        }
        replica.write({third_, 1}, 30);
        EXPECT_EQ("third", reader.read());
        return isKilled;
    }

private:
    bool killWriterAt(Replica const& replica, unsigned call) const
    {
        Stepper process([&] {
            replica.write({after_, 1}, 20);
            return 0;
        });
        for (unsigned i = 0; process.nextOnFiles(); ++i)
            if (i == call) {
                process.kill();
                return true;
            }
        return false;
    }

    Snapshot const before_ = snapshotOf("old", 10);
    Snapshot const after_ = snapshotOf("new", 20);
    Snapshot const third_ = snapshotOf("third", 30);
};

}  // namespace

TEST_F(FleetReplicaCampaign, KillAtEachCallKeepsAReplica)
{
    std::string const obstacle = Stepper::obstacle();
    if (!obstacle.empty())
        GTEST_SKIP() << obstacle;
    for (Case const& c : kCases) {
        unsigned kills = 0;
        bool isKilled = true;
        for (unsigned call = 0; isKilled; call += scaled(1, 5)) {
            SCOPED_TRACE(std::string(c.name) + ", call " + std::to_string(call));
            isKilled = killAt(c, call);
            kills += isKilled ? 1 : 0;
        }
        printf("%s: %u kills\n", c.name, kills);
        EXPECT_LT(2u, kills);
    }
}
