// The calls to a cluster, with a server that replies as each test has scripted.
#include <Sanitizers.h>
#include <TestDirectory.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "LoopbackSocket.h"
#include "ScriptedClock.h"
#include "ScriptedServer.h"
#include "transport/cluster.h"
#include "transport/failure.h"

using namespace zfleet;
using Reply = ScriptedServer::Reply;

namespace {

Settings settingsFor(std::vector<std::string> const& endpoints)
{
    Settings settings;
    settings.fleet = "test";
    settings.endpoints = endpoints;
    return settings;
}

Settings settingsWithUser(std::vector<std::string> const& endpoints)
{
    Settings settings = settingsFor(endpoints);
    settings.user = "robot";
    settings.password = "secret";
    return settings;
}

// Reads the key "k" and returns its value, or "CALL errno ERRNO" after a failure.
std::string readValue(Cluster& cluster, Clock::duration time = std::chrono::seconds(60))
{
    try {
        Budget budget(time);
        RangeResult const result = cluster.read({"k"}, budget);
        return result.entries.empty() ? "" : result.entries[0].value;
    } catch (CallError const& error) {
        return error.call + " errno " + std::to_string(error.error);
    }
}

std::string failure(char const* call, int error)
{
    return std::string(call) + " errno " + std::to_string(error);
}

Transaction putOf(char const* key)
{
    return {{}, {Put{key, "v"}}, {}};
}

// Runs a test of this program, which calls a server, as another process with a trace of gRPC.
// Returns the trace. If `program` sets the user id, the process has more rights than its user.
std::string traceOf(std::string const& program, TestDirectory const& directory, uid_t user)
{
    std::string const trace = directory.write("trace", "");
    pid_t const child = fork();
    if (child == 0) {
        setenv("GRPC_VERBOSITY", "DEBUG", 1);
        setenv("GRPC_TRACE", "all", 1);
        bool const isReady = dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), 1) == 1 &&
                             dup2(open(trace.c_str(), O_WRONLY | O_CLOEXEC), 2) == 2 &&
                             setresuid(user, user, user) == 0;
        if (isReady)
            execl(program.c_str(), "program", "--gtest_filter=FleetCalls.ReadReturnsTheEntry",
                  nullptr);
        _exit(127);
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    return directory.read("trace");
}

}  // namespace

TEST(FleetCalls, ReadReturnsTheEntry)
{
    ScriptedServer server;
    server.script("Range", {{0, rangeReply("k", "hello", 12)}});
    Cluster cluster(settingsFor({server.address()}));
    Budget budget(std::chrono::seconds(60));
    RangeResult const result = cluster.read({"k"}, budget);
    ASSERT_EQ(1u, result.entries.size());
    EXPECT_EQ("k", result.entries[0].key);
    EXPECT_EQ("hello", result.entries[0].value);
    EXPECT_EQ(12, result.entries[0].modRevision);
    EXPECT_EQ(12, result.header.revision);
    ASSERT_EQ(1u, server.requests().size());
    EXPECT_EQ("true", server.requests()[0].needsLeader);
    EXPECT_EQ("", server.requests()[0].token);
}

TEST(FleetCalls, CallAfterATimeoutStartsAtAnotherEndpoint)
{
    ScriptedServer servers[2];
    Settings settings = settingsFor({servers[0].address(), servers[1].address()});
    settings.callTimeout = std::chrono::milliseconds(200);
    for (ScriptedServer& server : servers)
        for (char const* const method : {"Range", "Txn"})
            server.script(method, {{0, "", Reply::never}});
    Cluster cluster(settings);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(failure("Range", ETIMEDOUT), readValue(cluster, std::chrono::milliseconds(200)));
    for (int i = 0; i < 2; ++i) {
        Budget budget(std::chrono::seconds(60));
        EXPECT_THROW(cluster.commit(putOf("k"), Repetition::isHarmful, budget), CallError);
    }
    for (ScriptedServer const& server : servers) {
        EXPECT_EQ(1u, server.count("Range"));
        EXPECT_EQ(1u, server.count("Txn"));
    }
}

TEST(FleetCalls, FinalStatusesFailAfterOneCall)
{
    struct Case {
        int code;
        char const* text;
        int error;
    };
    Case const cases[] = {
        {statusInvalidArgument, "etcdserver: key is not provided", EINVAL},
        {statusInvalidArgument, "etcdserver: request is too large", EFBIG},
        {statusNotFound, "etcdserver: requested lease not found", ENOENT},
        {statusAlreadyExists, "", EEXIST},
        {statusPermissionDenied, "etcdserver: permission denied", EACCES},
        {statusResourceExhausted, "etcdserver: mvcc: database space exceeded", ENOSPC},
        {statusResourceExhausted, "etcdserver: too many requests", EAGAIN},
        {statusResourceExhausted, "trying to send message larger than max", EFBIG},
        {statusFailedPrecondition, "", EINVAL},
        {statusOutOfRange, "etcdserver: mvcc: required revision has been compacted", ESTALE},
        {statusUnimplemented, "unknown service", EPROTO},
        {statusUnauthenticated, "etcdserver: invalid auth token", EACCES},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::to_string(c.code) + " " + c.text);
        ScriptedServer server;
        server.script("Range", {{c.code, c.text}});
        Cluster cluster(settingsFor({server.address()}));
        EXPECT_EQ(failure("Range", c.error), readValue(cluster));
        EXPECT_EQ(1u, server.count("Range"));
    }
}

TEST(FleetCalls, PassingStatusesAreRetried)
{
    for (int const code : {statusCancelled, statusUnknown, statusDeadlineExceeded, statusAborted,
                           statusInternal, statusUnavailable, statusDataLoss}) {
        SCOPED_TRACE(code);
        ScriptedServer server;
        server.script("Range", {{code, "first"}, {code, "second"}, {0, rangeReply("k", "value")}});
        Cluster cluster(settingsFor({server.address()}));
        EXPECT_EQ("value", readValue(cluster));
        EXPECT_EQ(3u, server.count("Range"));
    }
}

TEST(FleetCalls, PassingStatusThatLastsFailsAfterTheBudget)
{
    struct Case {
        int code;
        int error;
    };
    Case const cases[] = {
        {statusCancelled, ECANCELED}, {statusUnknown, EIO},  {statusDeadlineExceeded, ETIMEDOUT},
        {statusAborted, EAGAIN},      {statusInternal, EIO}, {statusUnavailable, ETIMEDOUT},
        {statusDataLoss, EIO}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.code);
        ScriptedServer server;
        server.script("Range", {{c.code, "lasting"}});
        Cluster cluster(settingsFor({server.address()}));
        // Long enough for one connection on a busy machine: until then the status is 14.
        readValue(cluster, std::chrono::milliseconds(1));
        while (server.count("Range") == 0)
            readValue(cluster, std::chrono::milliseconds(100));
        std::chrono::milliseconds const budget(200);
        std::string seen;
        // On a busy machine, the end of the budget can cut the last attempt off.
        for (int i = 0; i < 10 && seen != failure("Range", c.error); ++i) {
            Clock::time_point const start = Clock::now();
            seen = readValue(cluster, budget);
            EXPECT_LE(budget, Clock::now() - start);
        }
        EXPECT_EQ(failure("Range", c.error), seen);
        EXPECT_LE(2u, server.count("Range"));
    }
}

// The longest pauses are 5, 10, 20, ... 320 ms and then 400 ms each; the shortest have half of the
// time. So 31 to 56 pauses fill the budget. Without pauses, the last reply would arrive.
TEST(FleetCalls, CallsThatFailAtOnceAreRepeatedAfterPauses)
{
    ScriptedClock const clock(ScriptedClock::stepped);
    ScriptedServer server;
    std::vector<Reply> replies(1000, {statusUnavailable, "not now"});
    replies.push_back({0, rangeReply("k", "value")});
    server.script("Range", replies);
    Cluster cluster(settingsFor({server.address()}));
    EXPECT_EQ(failure("Range", ETIMEDOUT), readValue(cluster, std::chrono::seconds(10)));
    EXPECT_EQ(std::chrono::seconds(10), ScriptedClock::elapsed());
    EXPECT_LE(31u, server.count("Range"));
    EXPECT_GE(56u, server.count("Range"));
}

TEST(FleetCalls, MissingReplyEndsAtTheDeadlineAndIsRetried)
{
    ScriptedServer server;
    server.script("Range", {{0, "", Reply::never}, {0, rangeReply("k", "value")}});
    Settings settings = settingsFor({server.address()});
    settings.callTimeout = std::chrono::milliseconds(300);
    Cluster cluster(settings);
    Clock::time_point const start = Clock::now();
    EXPECT_EQ("value", readValue(cluster));
    EXPECT_LE(settings.callTimeout, Clock::now() - start);
    EXPECT_LE(2u, server.count("Range"));
}

TEST(FleetCalls, LateReplyWithinTheDeadlineIsTaken)
{
    ScriptedServer server;
    server.script("Range", {{0, rangeReply("k", "late"), Reply::late}});
    Settings settings = settingsFor({server.address()});
    settings.callTimeout = std::chrono::seconds(60);
    Cluster cluster(settings);
    EXPECT_EQ("late", readValue(cluster));
    EXPECT_EQ(1u, server.count("Range"));
}

TEST(FleetCalls, ReplyThatIsSentTwiceIsNotTaken)
{
    ScriptedServer server;
    server.script("Range",
                  {{0, rangeReply("k", "twice"), Reply::twice}, {0, rangeReply("k", "once")}});
    Settings settings = settingsFor({server.address()});
    settings.callTimeout = std::chrono::milliseconds(300);
    Cluster cluster(settings);
    EXPECT_EQ("once", readValue(cluster));
    EXPECT_EQ(2u, server.count("Range"));
}

TEST(FleetCalls, UnreadableReplyIsRetried)
{
    Reply const replies[] = {{0, "\xff\xff\xff"},
                             {0, ""},
                             {0, rangeReply("k", "v").substr(0, 5)},
                             {0, "", Reply::withoutMessage}};
    for (Reply const& reply : replies) {
        SCOPED_TRACE(&reply - replies);
        ScriptedServer server;
        server.script("Range", {reply, {0, rangeReply("k", "value")}});
        Cluster cluster(settingsFor({server.address()}));
        EXPECT_EQ("value", readValue(cluster));
        EXPECT_EQ(2u, server.count("Range"));
    }
}

TEST(FleetCalls, ReplyAboveTheLimitFails)
{
    ScriptedServer server;
    server.script("Range", {{0, rangeReply("k", std::string(9 << 20, 'x'))}});
    Cluster cluster(settingsFor({server.address()}));
    EXPECT_EQ(failure("Range", EFBIG), readValue(cluster));
    EXPECT_EQ(1u, server.count("Range"));
}

// The limit is for the expanded reply, which a node that is not trustworthy can make huge.
TEST(FleetCalls, CompressedReplyIsNotExpanded)
{
    auto const peak = [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss;  // KiB
    };
    ScriptedServer server;
    server.script("Range", {{0, std::string(1 << 20, 'x'), Reply::compressed}});
    Settings settings = settingsFor({server.address()});
    settings.callTimeout = std::chrono::seconds(60);  // for the compression
    Cluster cluster(settings);
    long const before = peak();
    EXPECT_EQ(failure("Range", EPROTO), readValue(cluster));
    EXPECT_GE(before + (64 << 10), peak());
}

TEST(FleetCalls, CompressedReplyOfATransactionIsDoubtful)
{
    ScriptedServer server;
    server.script("Txn", {{0, transactionReply(true), Reply::compressed}});
    Cluster cluster(settingsFor({server.address()}));
    Budget budget(std::chrono::seconds(60));
    try {
        cluster.commit(putOf("k"), Repetition::isHarmless, budget);
        FAIL() << "nothing was thrown";
    } catch (CallError const& error) {
        EXPECT_EQ(EPROTO, error.error);
        EXPECT_TRUE(error.isDoubtful);
    }
}

TEST(FleetCalls, UnguardedTransactionIsNotRepeatedAfterADoubtfulStatus)
{
    ScriptedServer server;
    server.script("Txn", {{statusUnavailable, "perhaps executed"}, {0, transactionReply(true)}});
    Cluster cluster(settingsFor({server.address()}));
    Budget budget(std::chrono::seconds(60));
    try {
        cluster.commit(putOf("k"), Repetition::isHarmful, budget);
        FAIL() << "nothing was thrown";
    } catch (CallError const& error) {
        EXPECT_EQ("Txn", error.call);
        EXPECT_EQ(ETIMEDOUT, error.error);
        EXPECT_TRUE(error.isDoubtful);
    }
    EXPECT_EQ(1u, server.count("Txn"));
}

TEST(FleetCalls, GuardedTransactionIsRepeatedAndReportsTheDoubt)
{
    for (int const code : {statusUnavailable, statusInternal, statusUnknown}) {
        SCOPED_TRACE(code);
        ScriptedServer server;
        server.script("Txn", {{code, "perhaps executed"}, {0, transactionReply(false)}});
        Cluster cluster(settingsFor({server.address()}));
        Budget budget(std::chrono::seconds(60));
        TransactionResult const result = cluster.commit(putOf("k"), Repetition::isHarmless, budget);
        EXPECT_FALSE(result.hasSucceeded);
        EXPECT_TRUE(result.wasDoubtful);
        ASSERT_EQ(2u, server.count("Txn"));
        EXPECT_EQ(server.requests()[0].bytes, server.requests()[1].bytes);
    }
}

TEST(FleetCalls, TransactionWithoutADoubtfulStatusIsCertain)
{
    ScriptedServer server;
    server.script("Authenticate", {{0, tokenReply("first")}, {0, tokenReply("second")}});
    server.script("Txn", {{statusUnauthenticated, "etcdserver: invalid auth token"},
                          {0, transactionReply(true)}});
    Cluster cluster(settingsWithUser({server.address()}));
    Budget budget(std::chrono::seconds(60));
    TransactionResult const result = cluster.commit(putOf("k"), Repetition::isHarmful, budget);
    EXPECT_TRUE(result.hasSucceeded);
    EXPECT_FALSE(result.wasDoubtful);
}

TEST(FleetCalls, RequestsHaveThePublicFieldNumbers)
{
    ScriptedServer server;
    server.script("Txn", {{0, transactionReply(true)}});
    Cluster cluster(settingsFor({server.address()}));
    Budget budget(std::chrono::seconds(60));
    Range newest{"h"};
    newest.limit = 1;
    newest.isNewestFirst = true;
    newest.maxCreateRevision = 5;
    Transaction const transaction{{{"a", Condition::modRevision, Condition::equal, 0},
                                   {"b", Condition::createRevision, Condition::greater, 3}},
                                  {Put{"c", "d", 9}, Remove{"e", "f"}},
                                  {Range{"g"}, newest}};
    cluster.commit(transaction, Repetition::isHarmless, budget);
    // Each field is a byte (number * 8 + type), then its length or value.
    std::string const expected(
        "\x0a\x07\x10\x02\x1a\x01"
        "a\x30\x00"
        "\x0a\x09\x08\x01\x10\x01\x1a\x01"
        "b\x28\x03"
        "\x12\x0a\x12\x08\x0a\x01"
        "c\x12\x01"
        "d\x18\x09"
        "\x12\x08\x1a\x06\x0a\x01"
        "e\x12\x01"
        "f"
        "\x1a\x05\x0a\x03\x0a\x01"
        "g"
        "\x1a\x0d\x0a\x0b\x0a\x01"
        "h\x18\x01\x28\x02\x30\x02\x68\x05",
        9 + 11 + 12 + 10 + 7 + 15);
    EXPECT_EQ(expected, server.requests()[0].bytes);
}

TEST(FleetCalls, TokenIsRenewedOnceAndWithoutTheOldToken)
{
    ScriptedServer server;
    server.script("Authenticate", {{0, tokenReply("first")}, {0, tokenReply("second")}});
    server.script("Range", {{0, rangeReply("k", "a")},
                            {statusUnauthenticated, "etcdserver: invalid auth token"},
                            {0, rangeReply("k", "b")}});
    Cluster cluster(settingsWithUser({server.address()}));
    EXPECT_EQ("a", readValue(cluster));
    EXPECT_EQ("b", readValue(cluster));
    std::string seen;
    for (auto const& request : server.requests())
        seen += request.method + ":" + request.token + " ";
    EXPECT_EQ("Authenticate: Range:first Range:first Authenticate: Range:second ", seen);

    server.script("Range", {{statusUnauthenticated, "etcdserver: invalid auth token"}});
    EXPECT_EQ(failure("Range", EACCES), readValue(cluster));
    EXPECT_EQ(3u, server.count("Authenticate"));
}

TEST(FleetCalls, InvalidTokenIsRefused)
{
    for (char const* const token : {"a\nb", "a\x7f", "\xc3\xa4"}) {
        SCOPED_TRACE(token);
        ScriptedServer server;
        server.script("Authenticate", {{0, tokenReply(token)}});
        server.script("Range", {{0, rangeReply("k", "value")}});
        Cluster cluster(settingsWithUser({server.address()}));
        EXPECT_EQ(failure("Authenticate", EPROTO), readValue(cluster));
        EXPECT_EQ(1u, server.requests().size());
    }
}

TEST(FleetCalls, WrongPasswordIsNotRetried)
{
    ScriptedServer server;
    server.script("Authenticate",
                  {{statusInvalidArgument,
                    "etcdserver: authentication failed, invalid user ID or password"}});
    Cluster cluster(settingsWithUser({server.address()}));
    EXPECT_EQ(failure("Authenticate", EACCES), readValue(cluster));
    EXPECT_EQ(1u, server.requests().size());
}

TEST(FleetCalls, ClusterWithoutUsersNeedsNoToken)
{
    ScriptedServer server;
    server.script("Authenticate",
                  {{statusFailedPrecondition, "etcdserver: authentication is not enabled"}});
    server.script("Range", {{0, rangeReply("k", "value")}});
    Cluster cluster(settingsWithUser({server.address()}));
    EXPECT_EQ("value", readValue(cluster));
    EXPECT_EQ("value", readValue(cluster));
    EXPECT_EQ(1u, server.count("Authenticate"));
}

TEST(FleetCalls, OtherEndpointTakesOverAndIsKept)
{
    LoopbackSocket const closed;  // does not listen
    ScriptedServer server;
    server.script("Range", {{0, rangeReply("k", "value")}});
    Cluster cluster(settingsFor({closed.address(), server.address(), closed.address()}));
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ("value", readValue(cluster));
    EXPECT_EQ(5u, server.count("Range"));
}

TEST(FleetCalls, EndpointsThatAreNotOfAClusterAreCalledOnce)
{
    ScriptedServer first;
    ScriptedServer second;
    first.script("Range", {{statusUnimplemented, "unknown service"}});
    second.script("Range", {{statusUnimplemented, "unknown service"}});
    Cluster cluster(settingsFor({first.address(), second.address()}));
    EXPECT_EQ(failure("Range", EPROTO), readValue(cluster));
    EXPECT_EQ(1u, first.count("Range"));
    EXPECT_EQ(1u, second.count("Range"));

    second.script("Range", {{0, rangeReply("k", "value")}});
    EXPECT_EQ("value", readValue(cluster));
}

// Servers of other protocols at the port of an endpoint.
TEST(FleetCalls, EndpointOfAnotherProtocolIsRefused)
{
    struct Case {
        char const* greeting;
        int error;
    };
    for (Case const& c : {Case{"HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n", EPROTO},
                          Case{"SSH-2.0-server\r\n", ETIMEDOUT}}) {
        SCOPED_TRACE(c.greeting);
        LoopbackSocket const server;
        server.listen();
        std::atomic<bool> isOver{false};
        std::thread greeter([&] {
            while (!isOver)
                if (int const client = server.accept(); client >= 0) {
                    send(client, c.greeting, strlen(c.greeting), MSG_NOSIGNAL);
                    shutdown(client, SHUT_WR);
                    char ignored[4096];
                    while (recv(client, ignored, sizeof ignored, 0) > 0) {
                    }
                    close(client);
                }
        });
        Cluster cluster(settingsFor({server.address()}));
        EXPECT_EQ(failure("Range", c.error), readValue(cluster, std::chrono::seconds(2)));
        isOver = true;
        greeter.join();
    }
}

TEST(FleetCalls, NoEndpointFailsAfterTheBudget)
{
    LoopbackSocket const closed;  // does not listen
    Cluster cluster(settingsFor({closed.address()}));
    EXPECT_EQ(failure("Range", ETIMEDOUT), readValue(cluster, std::chrono::milliseconds(100)));
}

TEST(FleetCalls, ProxyOfTheEnvironmentIsIgnored)
{
    LoopbackSocket const closed;  // does not listen
    ScriptedServer server;
    server.script("Range", {{0, rangeReply("k", "value")}});
    std::string const proxy = "http://" + closed.address();
    for (char const* const name : {"http_proxy", "https_proxy", "grpc_proxy"})
        setenv(name, proxy.c_str(), 1);
    Cluster cluster(settingsFor({server.address()}));
    EXPECT_EQ("value", readValue(cluster, std::chrono::seconds(20)));
    for (char const* const name : {"http_proxy", "https_proxy", "grpc_proxy"})
        unsetenv(name);
}

// The trace has tokens and passwords, which the user of such a program must not see.
TEST(FleetCalls, ProgramWithMoreRightsThanItsUserHasNoTrace)
{
    TestDirectory const directory;
    struct statvfs system {};
    ASSERT_EQ(0, statvfs(directory.path().c_str(), &system));
    if (geteuid() != 0 || (system.f_flag & ST_NOSUID) != 0 || kHasSanitizer)
        GTEST_SKIP() << "needs root, a file system with set-user-ID programs, and no sanitizer";
    chmod(directory.path().c_str(), 0755);
    std::string const program = directory.at("program");
    std::filesystem::copy_file("/proc/self/exe", program);
    EXPECT_NE("", traceOf(program, directory, 0));
    chmod(program.c_str(), 04755);
    EXPECT_EQ("", traceOf(program, directory, 65534));
}

TEST(FleetCalls, ChildOfForkIsRefused)
{
    ScriptedServer server;
    server.script("Range", {{0, rangeReply("k", "value")}});
    Settings const settings = settingsFor({server.address()});
    auto cluster = std::make_unique<Cluster>(settings);
    EXPECT_EQ("value", readValue(*cluster));
    pid_t const child = fork();
    if (child == 0) {
        bool const isOldRefused = readValue(*cluster) == failure("Range", ECHILD);
        cluster.reset();
        Cluster fresh(settings);
        bool const isNewRefused = readValue(fresh) == failure("Range", ECHILD);
        _exit(isOldRefused && isNewRefused ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ("value", readValue(*cluster));
}

TEST(FleetCalls, EndOfPrefixIsTheNextKeyOfAnotherPrefix)
{
    EXPECT_EQ("/a0", endOfPrefix("/a/"));
    EXPECT_EQ("b", endOfPrefix("a\xff"));
}
