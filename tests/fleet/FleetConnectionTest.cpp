// ZFleetConnection, and the file of the fleets that it reads.
#include <Z/ZException.h>
#include <Z/ZFleetConnection.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "FleetFile.h"
#include "ScriptedServer.h"
#include "settings/fleet_settings.h"

namespace {

// Returns the exception of open() as "CLASS KEY" for the contents of a file of the fleets.
std::string openError(std::string const& text)
{
    FleetFile const file(text);
    try {
        ZFleetConnection_6_0::open("test")->release();
        return "none";
    } catch (ZPropertiesMissingPropertyException_6_0 const& e) {
        return std::string("missing ") + e.key().getChars();
    } catch (ZPropertiesInvalidValueException_6_0 const& e) {
        return std::string("invalid ") + e.key().getChars();
    } catch (ZPropertiesIOException_6_0 const& e) {
        return std::string(e.api().getChars()) + " " + std::to_string(e.excerrno());
    }
}

}  // namespace

TEST(FleetConnection, EachFaultOfTheFileNamesItsKey)
{
    struct Case {
        char const* name;
        char const* lines;
        char const* error;
    };
    Case const cases[] = {
        {"complete", "endpoint = host:2379\nplain = yes\n", "none"},
        {"no endpoint", "plain = yes\n", "missing endpoint"},
        {"neither CA nor plain", "endpoint = host:2379\n", "missing ca"},
        {"plain is not yes", "endpoint = host:2379\nplain = no\n", "missing ca"},
        {"CA and plain", "endpoint = host:2379\nplain = yes\nca = /etc/hostname\n",
         "invalid plain"},
        {"missing CA file", "endpoint = host:2379\nca = /nowhere/ca.pem\n", "read() 2"},
        {"CA is a directory", "endpoint = host:2379\nca = /\n", "read() 21"},
        {"key without certificate",
         "endpoint = host:2379\nca = /etc/hostname\nkey = /etc/hostname\n", "missing certificate"},
        {"certificate without key",
         "endpoint = host:2379\nca = /etc/hostname\ncertificate = /etc/hostname\n", "missing key"},
        {"no port", "endpoint = host\nplain = yes\n", "invalid endpoint"},
        {"URL", "endpoint = http://host:2379\nplain = yes\n", "invalid endpoint"},
        {"second endpoint", "endpoint = host:2379\nendpoint = unix:/x\nplain = yes\n",
         "invalid endpoint"},
        {"user without password", "endpoint = host:2379\nca = /etc/hostname\nuser = robot\n",
         "missing password"},
        {"readable password",
         "endpoint = host:2379\nca = /etc/hostname\nuser = robot\npassword = secret\n",
         "invalid password"},
        {"prefix without slash", "endpoint = host:2379\nplain = yes\nprefix = fleet\n",
         "invalid prefix"},
        {"prefix with a last slash", "endpoint = host:2379\nplain = yes\nprefix = /fleet/\n",
         "invalid prefix"},
        {"call is no number", "endpoint = host:2379\nplain = yes\ncall = soon\n", "invalid call"},
        {"call is 0", "endpoint = host:2379\nplain = yes\ncall = 0\n", "invalid call"},
        {"budget is 0", "endpoint = host:2379\nplain = yes\nbudget = 0\n", "invalid budget"},
        {"lease is 0", "endpoint = host:2379\nplain = yes\nlease = 0\n", "invalid lease"},
        {"keep is 101", "endpoint = host:2379\nplain = yes\nkeep = 101\n", "invalid keep"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.error, openError(std::string("[test]\n") + c.lines));
    }
    EXPECT_EQ("missing endpoint", openError("[other]\nendpoint = host:2379\n"));
}

// The group may read a key of root: services share it so.
TEST(FleetConnection, PrivateKeyThatOthersCanReadIsRefused)
{
    struct Case {
        bool isOfRoot;
        mode_t mode;
        char const* error;
    };
    Case const cases[] = {
        {false, 0600, "none"},      {false, 0400, "none"},      {false, 0640, "fstat() 1"},
        {false, 0620, "fstat() 1"}, {false, 0604, "fstat() 1"}, {true, 0600, "none"},
        {true, 0640, "none"},       {true, 0440, "none"},       {true, 0660, "fstat() 1"},
        {true, 0644, "fstat() 1"},
    };
    TestDirectory const directory;
    std::string const key = directory.write("host.key", "key");
    bool const isRoot = geteuid() == 0;
    for (Case const& c : cases) {
        if (c.isOfRoot && !isRoot)
            continue;
        SCOPED_TRACE(testing::Message() << c.isOfRoot << " " << std::oct << c.mode);
        if (isRoot) {
            ASSERT_EQ(0, chown(key.c_str(), c.isOfRoot ? 0 : 65534, getegid()));
        }
        ASSERT_EQ(0, chmod(key.c_str(), c.mode));
        EXPECT_EQ(c.error, openError("[test]\nendpoint = host:2379\nca = /etc/hostname\n"
                                     "certificate = /etc/hostname\nkey = " +
                                     key + "\n"));
    }
}

TEST(FleetConnection, MissingFileOfTheFleetsIsReported)
{
    setenv("ZFLEETCONF", "/nowhere/fleets.conf", 1);
    try {
        ZFleetConnection_6_0::open("test");
        FAIL() << "nothing was thrown";
    } catch (ZPropertiesIOException_6_0 const& e) {
        EXPECT_STREQ("/nowhere/fleets.conf", e.propFile().getChars());
        EXPECT_EQ(ENOENT, e.excerrno());
    }
    unsetenv("ZFLEETCONF");
    EXPECT_THROW(ZFleetConnection_6_0::open(nullptr), ZInvalidParameterException_6_0);
    EXPECT_THROW(ZFleetConnection_6_0::open(""), ZInvalidParameterException_6_0);
}

TEST(FleetConnection, SettingsHaveTheirDefaultsAndValues)
{
    {
        FleetFile const file(FleetFile::textFor({"a:1", "[::1]:2"}));
        zfleet::Settings const settings = zfleet::readSettings("test");
        EXPECT_EQ((std::vector<std::string>{"a:1", "[::1]:2"}), settings.endpoints);
        EXPECT_EQ("/zfleet/6", settings.prefix);
        EXPECT_EQ("", settings.replicaDirectory);
        EXPECT_EQ(std::chrono::milliseconds(1500), settings.callTimeout);
        EXPECT_EQ(std::chrono::seconds(15), settings.budget);
        EXPECT_EQ(30u, settings.leaseSeconds);
        EXPECT_EQ(64u, settings.keptGenerations);
    }
    FleetFile const file(
        "[test]\nendpoint = a:1\nca = /etc/hostname\n"
        "prefix = /p\nreplica = /var/lib/r\ncall = 20\nbudget = 2\nlease = 3\n"
        "keep = 4\nuser = robot\n");
    file.obfuscate("test", "password", "secret");
    zfleet::Settings const settings = zfleet::readSettings("test");
    EXPECT_EQ("/p", settings.prefix);
    EXPECT_EQ("/var/lib/r", settings.replicaDirectory);
    EXPECT_EQ(std::chrono::milliseconds(20), settings.callTimeout);
    EXPECT_EQ(std::chrono::seconds(2), settings.budget);
    EXPECT_EQ(3u, settings.leaseSeconds);
    EXPECT_EQ(4u, settings.keptGenerations);
    EXPECT_EQ("robot", settings.user);
    EXPECT_EQ("secret", settings.password);
}

TEST(FleetConnection, PasswordIsNotSentWithoutEncryption)
{
    FleetFile const file(FleetFile::textFor({"a:1"}) + "user = robot\n");
    file.obfuscate("test", "password", "secret");
    try {
        zfleet::readSettings("test");
        FAIL() << "nothing was thrown";
    } catch (ZPropertiesInvalidValueException_6_0 const& e) {
        EXPECT_STREQ("plain", e.key().getChars());
    }
}

TEST(FleetConnection, AddressesAreHostAndPort)
{
    for (char const* const address : {"a:1", "10.0.0.7:2379", "[::1]:65535", "node-1.example:80"})
        EXPECT_TRUE(zfleet::isAddress(address)) << address;
    for (char const* const address :
         {"", "a", ":1", "a:", "a:0", "a:65536", "a:1x", "a:-1", "unix:/x", "dns:///a:1", "a b:1",
          "::1:80", "[::1]", "[]:1", "a,b:1", "xds:///a:1", "a:1/"})
        EXPECT_FALSE(zfleet::isAddress(address)) << address;
}

TEST(FleetConnection, IsSharedUntilTheLastReferenceIsReleased)
{
    FleetFile const file(FleetFile::textFor({"a:1", "b:2"}));
    ZFleetConnection_6_0* const first = ZFleetConnection_6_0::open("test");
    ZFleetConnection_6_0* const second = ZFleetConnection_6_0::open("test");
    EXPECT_EQ(first, second);
    second->addReference();
    second->release();
    second->release();
    EXPECT_STREQ("test", first->fleet());
    EXPECT_STREQ("/zfleet/6", first->prefix());
    ASSERT_EQ(2u, first->endpointCount());
    EXPECT_STREQ("b:2", first->endpoint(1));
    EXPECT_THROW(first->endpoint(2), ZInvalidParameterException_6_0);

    // Reads the file again after the last release.
    FleetFile const other(FleetFile::textFor({"c:3"}));
    EXPECT_STREQ("a:1", ZFleetConnection_6_0::open("test")->endpoint(0));
    first->release();
    first->release();
    ZFleetConnection_6_0* const fresh = ZFleetConnection_6_0::open("test");
    EXPECT_STREQ("c:3", fresh->endpoint(0));
    fresh->release();
}

TEST(FleetConnection, EndpointReportsItsState)
{
    ScriptedServer server;
    server.script("Range", {{0, rangeReply("k", "v", 42)},
                            {7, "etcdserver: permission denied"},
                            {14, "shutting down"}});
    FleetFile const file(FleetFile::textFor({server.address()}));
    ZFleetConnection_6_0* const connection = ZFleetConnection_6_0::open("test");
    ZFleetMember_6_0 member{};
    connection->checkEndpoint(0, member);
    EXPECT_EQ(1u, member.cluster);
    EXPECT_EQ(42, member.revision);
    for (int const error : {EACCES, ETIMEDOUT}) {
        try {
            connection->checkEndpoint(0, member);
            FAIL() << "nothing was thrown";
        } catch (ZPropertiesIOException_6_0 const& e) {
            EXPECT_STREQ("etcd://test", e.propFile().getChars());
            EXPECT_STREQ("Range", e.api().getChars());
            EXPECT_EQ(error, e.excerrno());
        }
    }
    EXPECT_EQ(3u, server.count("Range"));
    connection->release();
}

// Children of a process whose threads open connections all the time.
TEST(FleetConnection, ChildOfForkDoesNotWaitForAnotherThread)
{
    FleetFile const file(FleetFile::textFor({"a:1"}));
    std::atomic<bool> isOver{false};
    std::thread opener([&isOver] {
        while (!isOver)
            ZFleetConnection_6_0::open("test")->release();
    });
    for (int i = 0; i < 100; ++i) {
        pid_t const child = fork();
        if (child == 0) {
            alarm(10);  // ends a child that waits
            try {
                ZFleetConnection_6_0::open("test")->release();
                _exit(0);
            } catch (ZPropertiesIOException_6_0 const& e) {
                _exit(e.excerrno() == ECHILD ? 0 : 1);
            }
        }
        int status = -1;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        ASSERT_EQ(0, status) << "child " << i;
    }
    isOver = true;
    opener.join();
}
