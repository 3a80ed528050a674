// The verb lock of the program zfleet with a model of a cluster.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "FleetFile.h"
#include "ModelCluster.h"
#include "Threads.h"

namespace {

constexpr char kQueue[] = "/zfleet/6/lock/orders/q/";
constexpr char kSequence[] = "/zfleet/6/lock/orders/seq";
constexpr char kOther[] = "/zfleet/6/lock/orders/q/00000000000000ff";
constexpr char kLock[] = " etcd://test/orders ";

// A run of the tool in the background. Its standard output and error are one pipe.
class Tool {
public:
    explicit Tool(std::string const& arguments)
    {
        int ends[2];
        EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
        int input[2];
        EXPECT_EQ(0, pipe2(input, O_CLOEXEC));
        id_ = fork();
        if (id_ == 0) {
            dup2(input[0], STDIN_FILENO);
            dup2(ends[1], STDOUT_FILENO);
            dup2(ends[1], STDERR_FILENO);
            // A shell starts a program in the background with some of them ignored.
            for (int const number : {SIGHUP, SIGINT, SIGTERM})
                signal(number, SIG_DFL);
            std::string const command = "exec " ZFLEET_TOOL " lock " + arguments;
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
        close(ends[1]);
        close(input[0]);
        output_ = ends[0];
        input_ = input[1];
    }
    Tool(Tool const&) = delete;
    Tool& operator=(Tool const&) = delete;
    ~Tool()
    {
        endInput();
        close(output_);
        if (id_ > 0) {
            ::kill(id_, SIGKILL);
            waitpid(id_, nullptr, 0);
        }
    }

    void kill(int signal) const { EXPECT_EQ(0, ::kill(id_, signal)); }

    void endInput()
    {
        if (input_ >= 0)
            close(std::exchange(input_, -1));
    }

    // Returns the next line of the output, with its end; empty at the end of the output.
    std::string line() const
    {
        std::string text;
        char byte = 0;
        while (byte != '\n' && read(output_, &byte, 1) == 1)
            text += byte;
        return text;
    }

    // Returns the rest of the output, and "(CODE)" or "(signal NUMBER)".
    std::string end()
    {
        std::string text;
        for (std::string next = line(); !next.empty(); next = line())
            text += next;
        int status = 0;
        EXPECT_EQ(id_, waitpid(id_, &status, 0));
        id_ = -1;
        return text + (WIFSIGNALED(status) ? "(signal " + std::to_string(WTERMSIG(status)) + ")"
                                           : "(" + std::to_string(WEXITSTATUS(status)) + ")");
    }

private:
    pid_t id_;
    int output_;
    int input_;
};

class FleetToolLock : public testing::Test {
protected:
    static std::string run(std::string const& arguments) { return Tool(arguments).end(); }

    size_t entries() const { return cluster_.keys(kQueue).size(); }

    std::string state() const
    {
        std::string const text = run("--show" + std::string(kLock));
        size_t const begin = text.find("state: ") + 7;
        return text.substr(begin, text.find('\n', begin) - begin);
    }

    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) +
                          "budget = 5\ncall = 2000\nlease = 4\n"};
};

}  // namespace

// ---- Running a command -------------------------------------------------------------------------

TEST_F(FleetToolLock, CommandRunsWhileTheLockIsHeld)
{
    Tool reader("--read" + std::string(kLock) + "-- sh -c 'echo held; cat'");
    EXPECT_EQ("held\n", reader.line());
    ASSERT_EQ(1u, entries());
    EXPECT_EQ('r', cluster_.get(cluster_.keys(kQueue)[0])[0]);
    std::string const second = run("--read" + std::string(kLock) + "-- echo second");
    EXPECT_EQ("second\n(0)", second);
    reader.endInput();
    EXPECT_EQ("(0)", reader.end());
    EXPECT_EQ(0u, entries());
    EXPECT_EQ("(missing)", cluster_.get(kSequence));
}

TEST_F(FleetToolLock, OnlyAWriterIncrementsTheSequenceNumber)
{
    EXPECT_EQ("(0)", run("--write" + std::string(kLock) + "-- true"));
    EXPECT_EQ("1", cluster_.get(kSequence));
    EXPECT_EQ("(0)", run("--read" + std::string(kLock) + "-- true"));
    EXPECT_EQ("1", cluster_.get(kSequence));
    EXPECT_EQ("(3)", run("--write" + std::string(kLock) + "-- sh -c 'exit 3'"));
    EXPECT_EQ("2", cluster_.get(kSequence));
}

TEST_F(FleetToolLock, CommandGetsItsArgumentsAndTheToken)
{
    EXPECT_EQ("<a b><><--write><*>(0)",
              run("--read" + std::string(kLock) + "-- printf '<%s>' 'a b' '' --write '*'"));
    std::string const first = run("--write" + std::string(kLock) + "-- sh -c 'echo $ZFLEETTOKEN'");
    std::string const next = run("--write" + std::string(kLock) + "-- sh -c 'echo $ZFLEETTOKEN'");
    EXPECT_LT(0, atol(first.c_str()));
    EXPECT_LT(atol(first.c_str()), atol(next.c_str()));
}

TEST_F(FleetToolLock, CommandThatCannotRunIsReported)
{
    EXPECT_EQ(
        "zfleet: no-such-command: cannot run: No such file or directory; check its name and "
        "permissions\n(127)",
        run("--write" + std::string(kLock) + "-- no-such-command"));
    std::string const plain = file_.directory().write("plain", "no program\n");
    EXPECT_EQ("zfleet: " + plain +
                  ": cannot run: Permission denied; check its name and "
                  "permissions\n(126)",
              run("--write" + std::string(kLock) + "-- " + plain));
    EXPECT_EQ(0u, entries());
}

TEST_F(FleetToolLock, SignalsReachTheCommand)
{
    EXPECT_EQ("(" + std::to_string(128 + SIGKILL) + ")",
              run("--write" + std::string(kLock) + "-- sh -c 'kill -9 $$'"));
    Tool command("--write" + std::string(kLock) +
                 "-- sh -c 'trap \"echo caught; exit 5\" TERM; echo ready; while :; do sleep 0.05; "
                 "done'");
    EXPECT_EQ("ready\n", command.line());
    command.kill(SIGTERM);
    EXPECT_EQ("caught\n(5)", command.end());
    EXPECT_EQ(0u, entries());
}

TEST_F(FleetToolLock, CommandEndsWithTheTool)
{
    Tool command("--write" + std::string(kLock) + "-- sh -c 'echo $$; exec sleep 1000'");
    pid_t const process = atoi(command.line().c_str());
    ASSERT_LT(0, process);
    command.kill(SIGKILL);
    waitUntil([&] { return ::kill(process, 0) != 0; });
    EXPECT_EQ("(signal 9)", command.end());
}

TEST_F(FleetToolLock, LongCommandKeepsTheLock)
{
    Tool command("--write" + std::string(kLock) + "-- sh -c 'echo held; cat; echo done'");
    EXPECT_EQ("held\n", command.line());
    size_t const before = cluster_.server().count("LeaseKeepAlive");
    waitUntil([&] { return cluster_.server().count("LeaseKeepAlive") >= before + 4; });
    command.endInput();
    EXPECT_EQ("done\n(0)", command.end());
    EXPECT_EQ("1", cluster_.get(kSequence));
}

// ---- Loss --------------------------------------------------------------------------------------

TEST_F(FleetToolLock, LostLockEndsTheCommand)
{
    Tool command("--write" + std::string(kLock) +
                 "-- sh -c 'trap \"echo ended; exit 0\" TERM; echo held; while :; do sleep 0.05; "
                 "done'");
    EXPECT_EQ("held\n", command.line());
    cluster_.endLeases();
    EXPECT_EQ(
        "ended\nzfleet: etcd://test/orders: the lock was lost while the command ran; check its "
        "effects, and run it again\n(5)",
        command.end());
    EXPECT_EQ("(missing)", cluster_.get(kSequence));
}

TEST_F(FleetToolLock, LossThatTheReleaseFindsIsReported)
{
    FleetFile const slower(FleetFile::textFor({cluster_.address()}) +
                           "budget = 5\ncall = 2000\nlease = 600\n");
    Tool command("--write" + std::string(kLock) + "-- sh -c 'echo held; cat'");
    EXPECT_EQ("held\n", command.line());
    cluster_.endLeases();
    command.endInput();
    std::string const end = command.end();
    EXPECT_NE(std::string::npos, end.find("the lock was lost")) << end;
    EXPECT_EQ("(5)", end.substr(end.size() - 3));
}

TEST_F(FleetToolLock, SilentClusterEndsTheCommand)
{
    Tool command("--write" + std::string(kLock) + "-- sh -c 'echo held; exec sleep 1000'");
    EXPECT_EQ("held\n", command.line());
    cluster_.refuse(14);
    std::string const end = command.end();
    EXPECT_NE(std::string::npos, end.find("the lock was lost")) << end;
    EXPECT_EQ("(5)", end.substr(end.size() - 3));
}

// ---- Waiting -----------------------------------------------------------------------------------

TEST_F(FleetToolLock, HeldLockIsReportedWithItsHolder)
{
    cluster_.put(kOther, "w elsewhere 17");
    EXPECT_EQ(
        "zfleet: etcd://test/orders: held by process 17 on elsewhere; try again, or pass "
        "--wait SECONDS\n(5)",
        run("--read" + std::string(kLock) + "-- echo never"));
    EXPECT_EQ(1u, entries());
}

TEST_F(FleetToolLock, WaitsForTheLock)
{
    cluster_.put(kOther, "w elsewhere 17");
    Tool command("--write --wait 1000" + std::string(kLock) + "-- echo got");
    waitUntil([&] { return entries() == 2; });
    cluster_.put(kOther, "");
    EXPECT_EQ("got\n(0)", command.end());
}

TEST_F(FleetToolLock, SignalEndsTheWaitAndLeavesTheQueue)
{
    for (int const number : {SIGHUP, SIGINT, SIGTERM}) {
        cluster_.put(kOther, "w elsewhere 17");
        Tool command("--write --wait 1000" + std::string(kLock) + "-- echo never");
        waitUntil([&] { return cluster_.server().streams() == 1; });
        command.kill(number);
        EXPECT_EQ("(signal " + std::to_string(number) + ")", command.end());
        EXPECT_EQ(1u, entries());
        cluster_.put(kOther, "");
        waitUntil([&] { return cluster_.server().streams() == 0; });
    }
}

TEST_F(FleetToolLock, FailuresOfTheClusterHaveTheirCodes)
{
    cluster_.refuse(7);
    EXPECT_EQ(
        "zfleet: etcd://test/orders: the cluster denies access; check user and password of "
        "the fleet, and the rights of the user\n(4)",
        run("--write" + std::string(kLock) + "-- echo never"));
    cluster_.refuse(14);
    EXPECT_EQ(
        "zfleet: etcd://test/orders: no majority of the cluster replies; run 'zfleet status "
        "test'\n(4)",
        run("--write" + std::string(kLock) + "-- echo never"));
    cluster_.refuse(0);
    cluster_.put(kSequence, "many");
    EXPECT_EQ(
        "zfleet: etcd://test/orders: the sequence number in the cluster is not a number; "
        "remove its key \"seq\"\n(3)",
        run("--write" + std::string(kLock) + "-- echo never"));
    EXPECT_EQ(0u, entries());
}

// ---- The state ---------------------------------------------------------------------------------

TEST_F(FleetToolLock, ShowPrintsTheQueueAndTheSequenceNumber)
{
    EXPECT_EQ("lock: etcd://test/orders\nstate: free\nsequence: 0\n(0)",
              run("--show" + std::string(kLock)));
    cluster_.put(kSequence, "7");
    cluster_.put(kOther, "r here 1");
    cluster_.put("/zfleet/6/lock/orders/q/00000000000000fe", "r there 2");
    EXPECT_EQ("read by process 1 on here, process 2 on there", state());
    cluster_.put("/zfleet/6/lock/orders/q/00000000000000fd", "w here 3");
    cluster_.put("/zfleet/6/lock/orders/q/00000000000000fc", "r here 4");
    EXPECT_EQ(
        "read by process 1 on here, process 2 on there, process 3 on here waits to write, "
        "process 4 on here waits to read",
        state());
    cluster_.put(kOther, "");
    cluster_.put("/zfleet/6/lock/orders/q/00000000000000fe", "");
    EXPECT_EQ(
        "lock: etcd://test/orders\nstate: write by process 3 on here, process 4 on here "
        "waits to read\nsequence: 7\n(0)",
        run("--show" + std::string(kLock)));
}

TEST_F(FleetToolLock, UsageIsChecked)
{
    for (char const* const arguments :
         {"--read --write etcd://test/orders -- true", "etcd://test/orders -- true",
          "--write etcd://test/orders", "--write orders -- true",
          "--show --read etcd://test/orders", "--show etcd://test/orders -- true",
          "--write etcd://test/a/b -- true"}) {
        std::string const end = run(arguments);
        EXPECT_EQ("(2)", end.substr(end.size() - 3)) << arguments << "\n" << end;
    }
    EXPECT_EQ(0u, cluster_.server().requests().size());
}
