// Changes by other programs that a store takes in.
#include <Z/ZException.h>
#include <Z/ZFleetProperties.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>

#include "FleetFile.h"
#include "ModelCluster.h"
#include "StoreChecks.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kPath[] = "etcd://test/gateway";
constexpr char kText[] = "/zfleet/6/cfg/gateway/text";
constexpr char kHidden[] = "/zfleet/6/cfg/gateway/hidden";

class FleetChanges : public testing::Test {
protected:
    FleetChanges() { cluster_.put(kText, "[s]\nx = 1\ny = 1\n"); }

    void setUpLooks(unsigned seconds)
    {
        file_ = nullptr;
        file_ = std::make_unique<FleetFile>(
            FleetFile::textFor({cluster_.address()}) +
            "budget = 2\ncall = 500\nlook = " + std::to_string(seconds) + "\n");
    }

    // Returns whether the store takes something in before the time is over.
    static bool waitForChange(ZFleetProperties_6_0& store,
                              Clock::duration time = std::chrono::seconds(20))
    {
        Clock::time_point const end = Clock::now() + time;
        while (Clock::now() < end) {
            pollfd wait{store.descriptor(), POLLIN, 0};
            auto const left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
            poll(&wait, 1, static_cast<int>(left.count()) + 1);
            if (store.processChanges() != 0)
                return true;
        }
        return false;
    }

    // Waits until a watch has been started.
    void waitForWatch(ZFleetProperties_6_0& store) const
    {
        while (cluster_.server().streams() == 0) {
            usleep(1000);
            store.processChanges();
        }
    }

    ModelCluster cluster_;
    std::unique_ptr<FleetFile> file_{std::make_unique<FleetFile>(
        FleetFile::textFor({cluster_.address()}) + "budget = 2\ncall = 500\nlook = 3600\n")};
};

}  // namespace

TEST_F(FleetChanges, ChangeOfAnotherProgramIsTakenIn)
{
    ZFleetProperties_6_0 store(kPath, 1);
    NoticeRecorder recorder;
    store.addObserver(&recorder);
    int const descriptor = store.descriptor();
    ASSERT_LE(0, descriptor);
    EXPECT_EQ(0, store.processChanges());
    cluster_.put(kText, "[s]\nx = 2\n[t]\nk = v\n");
    EXPECT_TRUE(waitForChange(store));
    EXPECT_EQ("2", value(store, "x"));
    EXPECT_EQ("11s/y 12s/x 10t/ 12t/k ", recorder.seen);
    EXPECT_EQ(0, store.isModified());
    EXPECT_EQ(descriptor, store.descriptor());
    store.deleteObserver(&recorder);
    // The store derives from the new contents.
    store.setValue("s", "x", "3");
    store.store(nullptr);
    EXPECT_EQ("[s]\nx = 3\n[t]\nk = v\n", cluster_.get(kText));
}

TEST_F(FleetChanges, ChangeBeforeTheWatchIsTakenIn)
{
    ZFleetProperties_6_0 store(kPath, 1);
    cluster_.put(kText, "[s]\nx = 2\n");
    EXPECT_TRUE(waitForChange(store));
    EXPECT_EQ("2", value(store, "x"));
}

TEST_F(FleetChanges, OwnStoreIsNotRead)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.descriptor();
    waitForWatch(store);
    store.setValue("s", "x", "2");
    store.store(nullptr);
    size_t const sent = cluster_.server().count("Txn");
    EXPECT_FALSE(waitForChange(store, std::chrono::milliseconds(100)));
    EXPECT_EQ(sent, cluster_.server().count("Txn"));
}

TEST_F(FleetChanges, UnsavedChangesWait)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.descriptor();
    waitForWatch(store);
    store.setValue("s", "y", "5");
    cluster_.put(kText, "[s]\nx = 2\ny = 1\n");
    Clock::time_point const end = Clock::now() + std::chrono::seconds(20);
    while (store.isBehind() == 0 && Clock::now() < end)
        EXPECT_FALSE(waitForChange(store, std::chrono::milliseconds(5)));
    EXPECT_EQ(1, store.isBehind());
    EXPECT_EQ("1", value(store, "x"));
    store.store(nullptr);
    EXPECT_EQ(0, store.isBehind());
    EXPECT_EQ("2", value(store, "x"));
    EXPECT_EQ("[s]\nx = 2\ny = 5\n", cluster_.get(kText));
}

TEST_F(FleetChanges, WatchThatEndsIsResumedWithoutALoss)
{
    struct Case {
        int code;
        char const* text;
    };
    ZFleetProperties_6_0 store(kPath, 1);
    int number = 10;
    for (Case const& c : {Case{14, "etcdserver: no leader"},
                          {14, "Socket closed"},
                          {13, "RST"},
                          {0, ""},
                          {1, "canceled"},
                          {16, "etcdserver: invalid auth token"}}) {
        SCOPED_TRACE(c.text);
        store.descriptor();
        waitForWatch(store);
        cluster_.endWatches(c.code, c.text);
        // No stream has this change, unless one is resumed at the next revision.
        std::string const text = std::to_string(++number);
        cluster_.put(kText, "[s]\nx = " + text + "\n");
        EXPECT_TRUE(waitForChange(store));
        EXPECT_EQ(text, value(store, "x"));
    }
}

// A node can be reachable, reply to pings, and stay silent otherwise.
TEST_F(FleetChanges, WatchThatIsNotAcceptedIsReplaced)
{
    auto const watches = std::make_shared<unsigned>(0);
    cluster_.setFault([=](auto const& request, auto const& execute) {
        bool const isIgnored = request.method == "Watch" && ++*watches <= 2;
        return isIgnored ? ModelCluster::Reply{0, "", ModelCluster::Reply::never}
                         : execute(request);
    });
    ZFleetProperties_6_0 store(kPath, 1);
    store.descriptor();
    cluster_.put(kText, "[s]\nx = 2\n");
    EXPECT_TRUE(waitForChange(store));
    EXPECT_EQ("2", value(store, "x"));
    EXPECT_EQ(3u, cluster_.server().count("Watch"));
}

// A node accepts the watch of a user without the right to read, and cancels it with the same reply.
TEST_F(FleetChanges, WatchThatIsCanceledAtOnceIsNotRepeatedAllTheTime)
{
    zfleet::wire::WatchResponse canceled;
    canceled.set_created(true);
    canceled.set_canceled(true);
    canceled.set_reason("etcdserver: permission denied");
    cluster_.setFault([text = canceled.SerializeAsString()](auto const& request,
                                                            auto const& execute) {
        return request.method == "Watch" ? ModelCluster::Reply{0, text, ModelCluster::Reply::stream}
                                         : execute(request);
    });
    ZFleetProperties_6_0 store(kPath, 1);
    store.descriptor();
    EXPECT_FALSE(waitForChange(store, std::chrono::seconds(2)));
    // The pauses are 3 ms at least, and double up to 201 ms at least.
    EXPECT_GE(17u, cluster_.server().count("Watch"));
    EXPECT_LE(5u, cluster_.server().count("Watch"));
    cluster_.setFault(nullptr);
    cluster_.put(kText, "[s]\nx = 2\n");
    EXPECT_TRUE(waitForChange(store));
}

TEST_F(FleetChanges, CompactedRevisionsAreReadAgain)
{
    ZFleetProperties_6_0 store(kPath, 1);
    cluster_.put(kText, "[s]\nx = 2\n");
    cluster_.put(kText, "[s]\nx = 3\n");
    cluster_.compact();
    EXPECT_TRUE(waitForChange(store));
    EXPECT_EQ("3", value(store, "x"));
    waitForWatch(store);
    cluster_.put(kText, "[s]\nx = 4\n");
    EXPECT_TRUE(waitForChange(store));
    EXPECT_EQ("4", value(store, "x"));
}

// The cluster has dropped the revision of the text, which is still the latest one.
TEST_F(FleetChanges, UnchangedConfigurationIsWatchedAfterACompaction)
{
    file_ = nullptr;
    file_ = std::make_unique<FleetFile>(FleetFile::textFor({cluster_.address()}) +
                                        "budget = 600\ncall = 60000\nlook = 3600\n");
    cluster_.put("/other", "1");
    cluster_.put("/other", "2");
    cluster_.compact();
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("s", "y", "2");  // with unsaved changes, the store ignores hints
    for (size_t const watches : {1, 3}) {
        store.descriptor();
        EXPECT_FALSE(waitForChange(store, std::chrono::milliseconds(1500)));
        EXPECT_EQ(watches, cluster_.server().count("Watch"));
        cluster_.put("/other", "3");
        cluster_.compact();
        cluster_.endWatches(14, "stopped");
    }
}

TEST_F(FleetChanges, LooksFindChangesWithoutAHint)
{
    setUpLooks(1);
    ZFleetProperties_6_0 store(kPath, 1);
    store.descriptor();
    waitForWatch(store);
    cluster_.silenceWatches();
    cluster_.put(kText, "[s]\nx = 2\n");
    Clock::time_point const start = Clock::now();
    EXPECT_TRUE(waitForChange(store));
    EXPECT_LT(std::chrono::milliseconds(500), Clock::now() - start);
    EXPECT_EQ("2", value(store, "x"));
}

TEST_F(FleetChanges, LooksFindACompanionPutByHand)
{
    setUpLooks(1);
    ZFleetProperties_6_0 store(kPath, 1);
    store.setValue("s", "password", "before", 1);
    store.store(nullptr);
    putCompanionByHand(cluster_, "s");
    NoticeRecorder recorder;
    store.addObserver(&recorder);
    EXPECT_TRUE(waitForChange(store));
    EXPECT_EQ("by hand", value(store, "password"));
    EXPECT_EQ("12s/password ", recorder.seen);
    cluster_.put(kHidden, "");
    EXPECT_TRUE(waitForChange(store));
    EXPECT_EQ("(none)", value(store, "password"));
    cluster_.put(kHidden, "damaged");
    EXPECT_THROW(waitForChange(store), ZPropertiesException_6_0);
    EXPECT_FALSE(waitForChange(store, std::chrono::milliseconds(1500)));
}

TEST_F(FleetChanges, ContentsThatDoNotParseAreReportedOnce)
{
    setUpLooks(1);
    ZFleetProperties_6_0 store(kPath, 1);
    store.descriptor();
    waitForWatch(store);
    cluster_.put(kText, "[s\n");
    EXPECT_THROW(waitForChange(store), ZPropertiesInvalidDataException_6_0);
    EXPECT_EQ("1", value(store, "x"));
    EXPECT_FALSE(waitForChange(store, std::chrono::milliseconds(1500)));
    cluster_.put(kText, "[s]\nx = 2\n");
    EXPECT_TRUE(waitForChange(store));
    EXPECT_EQ("2", value(store, "x"));
}

TEST_F(FleetChanges, AnotherClusterIsReportedOnceAndKeepsTheValues)
{
    setUpLooks(1);
    ZFleetProperties_6_0 store(kPath, 1);
    store.descriptor();
    waitForWatch(store);
    cluster_.becomeAnother(2);
    cluster_.put(kText, "[s]\nx = 2\n");
    try {
        waitForChange(store);
        FAIL() << "nothing was thrown";
    } catch (ZPropertiesIOException_6_0 const& e) {
        EXPECT_EQ(EREMCHG, e.excerrno());
        EXPECT_STREQ(kPath, e.propFile().getChars());
    }
    EXPECT_FALSE(waitForChange(store, std::chrono::milliseconds(1500)));
    EXPECT_EQ("1", value(store, "x"));
}

TEST_F(FleetChanges, OutageKeepsTheValuesAndEnds)
{
    setUpLooks(1);
    ZFleetProperties_6_0 store(kPath, 1);
    store.descriptor();
    waitForWatch(store);
    cluster_.refuse(14);
    cluster_.endWatches(14, "Socket closed");
    Clock::time_point const end = Clock::now() + std::chrono::seconds(30);
    while (store.isOffline() == 0 && Clock::now() < end)
        EXPECT_FALSE(waitForChange(store, std::chrono::milliseconds(100)));
    EXPECT_EQ(1, store.isOffline());
    EXPECT_EQ("1", value(store, "x"));
    cluster_.refuse(7);
    EXPECT_THROW(waitForChange(store), ZPropertiesIOException_6_0);
    // Only once.
    EXPECT_FALSE(waitForChange(store, std::chrono::milliseconds(1500)));
    cluster_.refuse(0);
    cluster_.put(kText, "[s]\nx = 2\n");
    EXPECT_TRUE(waitForChange(store));
    EXPECT_EQ(0, store.isOffline());
    EXPECT_EQ("2", value(store, "x"));
}

TEST_F(FleetChanges, LocalFilesAndNewStoresHaveNoDescriptor)
{
    ZFleetProperties_6_0 none(1);
    EXPECT_EQ(-1, none.descriptor());
    EXPECT_EQ(0, none.processChanges());
    std::string const path = file_->directory().write("local.conf", "[s]\nx = 1\n");
    ZFleetProperties_6_0 local(path.c_str(), 1);
    EXPECT_EQ(-1, local.descriptor());
    EXPECT_EQ(0, local.processChanges());
    EXPECT_EQ(0, local.isBehind());
    EXPECT_EQ(0u, cluster_.server().requests().size());
}

TEST_F(FleetChanges, ChildOfForkIsRefused)
{
    ZFleetProperties_6_0 store(kPath, 1);
    store.descriptor();
    waitForWatch(store);
    pid_t const child = fork();
    if (child == 0) {
        alarm(20);
        try {
            store.processChanges();
            _exit(1);
        } catch (ZPropertiesIOException_6_0 const& e) {
            _exit(e.excerrno() == ECHILD ? 0 : 2);
        }
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    cluster_.put(kText, "[s]\nx = 2\n");
    EXPECT_TRUE(waitForChange(store));
}
