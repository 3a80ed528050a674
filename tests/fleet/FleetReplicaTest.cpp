// Replicas of configurations, and starts without the cluster.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "FleetFile.h"
#include "ModelCluster.h"
#include "StoreChecks.h"

namespace {

constexpr char kPath[] = "etcd://test/gateway";
constexpr char kText[] = "/zfleet/6/cfg/gateway/text";
constexpr uid_t kStranger = 65534;

class FleetReplica : public testing::Test {
protected:
    FleetReplica() { start(); }

    // Starts a cluster with the contents "x = 1"; its revision is 2.
    void start()
    {
        cluster_ = std::make_unique<ModelCluster>();
        cluster_->put(kText, "# top\n[s]\nx = 1\n");
        connect(cluster_->address());
    }

    // From now on, no node replies to new connections of the fleet.
    void cutOff() { connect("127.0.0.1:1"); }

    void connect(std::string const& address)
    {
        file_ = nullptr;  // its destructor clears the variable
        file_ = std::make_unique<FleetFile>(FleetFile::textFor({address}) +
                                            "budget = 1\nreplica = " + directory_.path() + "\n");
    }

    // Loads the configuration, so that the replica has it.
    void loadOnce() const { ZFleetProperties_6_0 const store(kPath, 1); }

    std::string replica() const { return directory_.at("test/gateway.conf"); }

    static std::string valueIn(std::string const& path, char const* key)
    {
        return value(ZFleetProperties_6_0(path.c_str(), 1), key);
    }

    // Returns "access()" if `action` prints the report of a replica that is not trusted, else "".
    template <class Action>
    static std::string reported(Action action)
    {
        testing::internal::CaptureStderr();
        action();
        std::string const printed = testing::internal::GetCapturedStderr();
        return printed.find("access()") != std::string::npos ? "access()" : "";
    }

    static unsigned modeOf(std::string const& path)
    {
        struct stat state {};
        stat(path.c_str(), &state);
        return state.st_mode & 0777;
    }

    TestDirectory const directory_;
    std::unique_ptr<ModelCluster> cluster_;
    std::unique_ptr<FleetFile> file_;
};

}  // namespace

TEST_F(FleetReplica, LoadsAndStoresWriteTheReplica)
{
    ZFleetProperties_6_0 store(kPath, 1);
    EXPECT_EQ("1", valueIn(replica(), "x"));
    EXPECT_EQ(0u, modeOf(replica()) & 077);
    EXPECT_EQ(0700u, modeOf(directory_.at("test")));
    store.setValue("s", "x", "2");
    store.setValue("s", "password", "secret", 1);
    store.store(nullptr);
    EXPECT_EQ("2", valueIn(replica(), "x"));
    EXPECT_EQ("secret", valueIn(replica(), "password"));
    EXPECT_EQ(std::string::npos, directory_.read("test/gateway.conf").find("secret"));
    EXPECT_EQ(0u, modeOf(replica() + ".obf") & 077);
    EXPECT_EQ(0, store.isOffline());
}

TEST_F(FleetReplica, StartWithoutTheClusterReadsTheReplica)
{
    {
        ZFleetProperties_6_0 store(kPath, 1);
        store.setValue("s", "password", "secret", 1);
        store.store(nullptr);
    }
    cutOff();
    ZFleetProperties_6_0 store(kPath, 1);
    EXPECT_EQ(1, store.isOffline());
    EXPECT_EQ("1", value(store, "x"));
    EXPECT_EQ("secret", value(store, "password"));
    EXPECT_EQ(1, store.isObfuscated("s", "password"));
    EXPECT_EQ(0, store.isModified());
    EXPECT_EQ(1u, store.generation());
    EXPECT_EQ(0, store.exists("configuration-database"));
    EXPECT_STREQ(kPath, store.fileName().getChars());
    store.setValue("s", "x", "2");
    EXPECT_EQ(code("store()", ENOTCONN), failure([&] { store.store(nullptr); }));
    EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.reload(nullptr); }));
    EXPECT_EQ("2", value(store, "x"));
    EXPECT_EQ(1, store.isModified());
}

TEST_F(FleetReplica, StartWithoutAReplicaFails)
{
    cutOff();
    ZFleetProperties_6_0 store(1);
    EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.load(kPath); }));
    EXPECT_EQ(1, store.isOffline());
    directory_.write("test", "");
    EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.load(kPath); }));
}

TEST_F(FleetReplica, RunningProgramKeepsItsValuesAndRecovers)
{
    ZFleetProperties_6_0 store(kPath, 1);
    cluster_->refuse(14);
    store.setValue("s", "x", "2");
    EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.reload(nullptr); }));
    EXPECT_EQ(1, store.isOffline());
    EXPECT_EQ("2", value(store, "x"));
    EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.store(nullptr); }));
    EXPECT_EQ(1, store.isOffline());
    cluster_->refuse(0);
    store.store(nullptr);
    EXPECT_EQ(0, store.isOffline());
    EXPECT_EQ("2", valueIn(replica(), "x"));
}

TEST_F(FleetReplica, OfflineStartRecoversWithTheNextLoad)
{
    loadOnce();
    cluster_->refuse(14);
    ZFleetProperties_6_0 store(kPath, 1);
    EXPECT_EQ(1, store.isOffline());
    cluster_->refuse(0);
    cluster_->put(kText, "[s]\nx = 3\n");
    store.reload(nullptr);
    EXPECT_EQ(0, store.isOffline());
    EXPECT_EQ("3", value(store, "x"));
    store.setValue("s", "x", "4");
    store.store(nullptr);
    EXPECT_EQ("[s]\nx = 4\n", cluster_->get(kText));
}

TEST_F(FleetReplica, MissingRightIsNoReasonForTheReplica)
{
    loadOnce();
    for (auto const& [status, error] : {std::pair(7, EACCES), {8, ENOSPC}, {12, EPROTO}}) {
        cluster_->refuse(status);
        ZFleetProperties_6_0 store(1);
        EXPECT_EQ(code("Txn", error), failure([&] { store.load(kPath); }));
        EXPECT_EQ(0, store.isOffline());
        EXPECT_EQ("(none)", value(store, "x"));
    }
}

TEST_F(FleetReplica, ReplicaOfAnotherClusterIsKeptAsAnOrphan)
{
    for (bool const isRestored : {false, true}) {
        SCOPED_TRACE(isRestored);
        {
            ZFleetProperties_6_0 store(kPath, 1);
            store.setValue("s", "x", "7");
            store.store(nullptr);
        }
        start();
        if (!isRestored)
            cluster_->becomeAnother(9);
        cluster_->put(kText, "[s]\nx = 1\n");
        if (isRestored)
            cluster_->becomeAnother(9, 2);  // the replica has the revision 4
        ZFleetProperties_6_0 const store(kPath, 1);
        EXPECT_EQ("1", value(store, "x"));
        EXPECT_EQ("1", valueIn(replica(), "x"));
        EXPECT_EQ("7", valueIn(replica() + ".orphan", "x"));
    }
}

TEST_F(FleetReplica, EarlierStateDoesNotReplaceTheReplica)
{
    ZFleetProperties_6_0 slow(kPath, 1);
    {
        ZFleetProperties_6_0 store(kPath, 1);
        store.setValue("s", "x", "7");
        store.store(nullptr);
    }
    std::string const text = directory_.read("test/gateway.conf");
    // This load starts before the store, and its reply is late.
    cluster_->replace(kText, "[s]\nx = 0\n");
    slow.reload(nullptr);
    EXPECT_EQ(text, directory_.read("test/gateway.conf"));
}

TEST_F(FleetReplica, CompanionPutByHandReplacesTheCompanionOfTheReplica)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("s", "password", "before", 1);
    store.store(nullptr);
    putCompanionByHand(*cluster_, "s");
    store.load(kPath);
    EXPECT_EQ("by hand", valueIn(replica(), "password"));
    cluster_->put("/zfleet/6/cfg/gateway/hidden", "");
    store.load(kPath);
    EXPECT_EQ("(none)", valueIn(replica(), "password"));
}

TEST_F(FleetReplica, DamagedReplicaIsKeptAsAnOrphan)
{
    loadOnce();
    std::string const text = directory_.read("test/gateway.conf");
    for (std::string const damaged :
         {"[s\n", "[s]\nx = 5\n", "[configuration-database]\ncluster = 1\n", ""}) {
        SCOPED_TRACE(damaged);
        directory_.write("test/gateway.conf", damaged);
        cutOff();
        ZFleetProperties_6_0 store(1);
        EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.load(kPath); }));
        connect(cluster_->address());
        loadOnce();
        EXPECT_EQ(text, directory_.read("test/gateway.conf"));
        if (!damaged.empty()) {
            EXPECT_EQ(damaged, directory_.read("test/gateway.conf.orphan"));
            remove(directory_.at("test/gateway.conf.orphan").c_str());
        }
    }
    EXPECT_EQ("gateway.conf", namesIn(directory_.at("test")));
}

TEST_F(FleetReplica, ReplicaThatAnotherUserCanWriteIsNotWritten)
{
    struct Case {
        char const* name;  // of a file in the directory of the replicas
        mode_t mode;
        bool isForeign;  // another user is the owner
        bool isUsed;
    };
    Case const cases[] = {
        {".", 0755, false, true},
        {".", 01777, false, true},
        {".", 0777, false, false},
        {".", 0775, false, false},
        {".", 01777, true, false},
        {"test", 0755, false, true},
        {"test", 01777, false, false},
        {"test", 0770, false, false},
        {"test", 0755, true, false},
        {"test/gateway.conf", 0644, false, true},
        {"test/gateway.conf", 0620, false, false},
        {"test/gateway.conf", 0644, true, false},
    };
    for (Case const& c : cases) {
        if (c.isForeign && geteuid() != 0)
            continue;  // only root can create such files
        SCOPED_TRACE(c.name + std::to_string(c.mode));
        start();
        loadOnce();
        std::string const path = directory_.at(c.name);
        chmod(path.c_str(), c.mode);
        EXPECT_EQ(0, chown(path.c_str(), c.isForeign ? kStranger : geteuid(), getegid()));
        cluster_->put(kText, "[s]\nx = 2\n");
        EXPECT_EQ(c.isUsed ? "" : "access()", reported([&] { loadOnce(); }));
        EXPECT_EQ(c.isUsed ? "2" : "1", valueIn(replica(), "x"));
        EXPECT_EQ(0, chown(path.c_str(), geteuid(), getegid()));
        chmod(path.c_str(), 0700);
        remove(replica().c_str());
    }
}

TEST_F(FleetReplica, ReplicaThatAnotherUserCanWriteIsNotRead)
{
    loadOnce();
    cutOff();
    for (char const* const name : {".", "test", "test/gateway.conf"}) {
        SCOPED_TRACE(name);
        chmod(directory_.at(name).c_str(), 0777);
        ZFleetProperties_6_0 store(1);
        EXPECT_EQ("access()", reported([&] {
                      EXPECT_EQ(code("Txn", ETIMEDOUT), failure([&] { store.load(kPath); }));
                  }));
        chmod(directory_.at(name).c_str(), 0700);
    }
    EXPECT_EQ("1", value(ZFleetProperties_6_0(kPath, 1), "x"));
}

TEST_F(FleetReplica, DirectoryThatAnotherUserCanWriteGetsNoReplica)
{
    mkdir(directory_.at("test").c_str(), 0700);
    chmod(directory_.at("test").c_str(), 0777);
    EXPECT_EQ("access()", reported([&] { loadOnce(); }));
    EXPECT_EQ("", namesIn(directory_.at("test")));
}

TEST_F(FleetReplica, ReplicaThatCannotBeWrittenIsReportedOnce)
{
    directory_.write("test", "");  // in place of the directory
    testing::internal::CaptureStderr();
    ZFleetProperties_6_0 store(kPath, 1);
    store.reload(nullptr);
    store.setValue("s", "x", "2");
    store.store(nullptr);
    std::string const printed = testing::internal::GetCapturedStderr();
    size_t const first = printed.find("gateway.conf");
    EXPECT_NE(std::string::npos, first) << printed;
    EXPECT_EQ(first, printed.rfind("gateway.conf")) << printed;
    EXPECT_EQ("2", value(store, "x"));
    EXPECT_EQ("# top\n[s]\nx = 2\n", cluster_->get(kText));
}
