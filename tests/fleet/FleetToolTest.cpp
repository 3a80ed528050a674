// The program zfleet with a model of a cluster: output and exit codes.
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>

#include <string>

#include "FleetFile.h"
#include "ModelCluster.h"

namespace {

constexpr char kText[] = "/zfleet/6/cfg/gateway/text";

class FleetTool : public testing::Test {
protected:
    FleetTool() { cluster_.put(kText, "[listener]\nport = 1\nhost = a\nhost = b\n"); }

    // Runs a command line of zfleet in a shell. Returns its output, errors included, and its exit
    // code in brackets.
    static std::string run(std::string const& arguments)
    {
        FILE* const pipe =
            popen((std::string(ZFLEET_TOOL) + " " + arguments + " 2>&1").c_str(), "r");
        std::string output;
        char chunk[4096];
        size_t length;
        while ((length = fread(chunk, 1, sizeof chunk, pipe)) > 0)
            output.append(chunk, length);
        return output + "(" + std::to_string(WEXITSTATUS(pclose(pipe))) + ")";
    }

    ModelCluster cluster_;
    FleetFile const file_{FleetFile::textFor({cluster_.address()}) + "budget = 2\n"};
};

}  // namespace

TEST_F(FleetTool, GetAndListPrintTheFormsOfZstz)
{
    EXPECT_EQ("1\n(0)", run("get etcd://test/gateway listener port"));
    EXPECT_EQ("a\nb\n(0)", run("get etcd://test/gateway listener host --all"));
    EXPECT_EQ("{\"listener\": {\"host\": [\"a\", \"b\"]}}\n(0)",
              run("get etcd://test/gateway listener host --all --format json"));
    EXPECT_EQ("7\n(0)", run("get etcd://test/gateway listener absent --default 7"));
    EXPECT_EQ("[listener]\nport = 1\nhost = a\nhost = b\n(0)", run("list etcd://test/gateway"));
    EXPECT_EQ("listener\n(0)", run("stanzas etcd://test/gateway"));
    EXPECT_EQ("port\nhost\n(0)", run("keys etcd://test/gateway listener"));
}

TEST_F(FleetTool, SetStoresAValue)
{
    EXPECT_EQ("(0)", run("set etcd://test/gateway listener port 2"));
    EXPECT_EQ("[listener]\nport = 2\nhost = a\nhost = b\n", cluster_.get(kText));
    EXPECT_EQ("(0)", run("set etcd://test/gateway listener host c --all"));
    EXPECT_EQ("[listener]\nport = 2\nhost = c\n", cluster_.get(kText));
    std::string const secret = file_.directory().write("secret", "swordfish");
    EXPECT_EQ("(0)", run("set etcd://test/gateway listener secret --obfuscated <" + secret));
    EXPECT_EQ("[listener]\nport = 2\nhost = c\n", cluster_.get(kText));
    EXPECT_EQ("swordfish\n(0)", run("get etcd://test/gateway listener secret"));
    EXPECT_EQ("[listener]\nport = 2\nhost = c\nsecret = ********\n(0)",
              run("list etcd://test/gateway"));
    EXPECT_EQ("(0)", run("set etcd://test/new s k v --create"));
    EXPECT_EQ("v\n(0)", run("get etcd://test/new s k"));
}

TEST_F(FleetTool, LocalFilesWork)
{
    std::string const path = file_.directory().write("local.conf", "[s]\nk = 1\n");
    EXPECT_EQ("(0)", run("set " + path + " s k 2"));
    EXPECT_EQ("2\n(0)", run("get " + path + " s k"));
}

TEST_F(FleetTool, RefusalsChangeNothing)
{
    EXPECT_EQ(
        "zfleet: etcd://test/gateway: key \"host\" in [listener] has 2 values; pass --all to "
        "replace them\n(7)",
        run("set etcd://test/gateway listener host c"));
    EXPECT_EQ(
        "zfleet: etcd://test/none: no such configuration; check the name, or create it with "
        "--create\n(4)",
        run("set etcd://test/none s k v"));
    EXPECT_EQ("[listener]\nport = 1\nhost = a\nhost = b\n", cluster_.get(kText));
    EXPECT_EQ("(missing)", cluster_.get("/zfleet/6/cfg/none/text"));
}

TEST_F(FleetTool, FailuresNameTheirRemedy)
{
    EXPECT_EQ(
        "zfleet: etcd://test/gateway: no key \"x\" in [listener]; run 'zfleet keys "
        "etcd://test/gateway listener' to list them\n(1)",
        run("get etcd://test/gateway listener x"));
    EXPECT_EQ(
        "zfleet: etcd://test/a/b: not the path of a configuration; write it as "
        "etcd://FLEET/NAME\n(2)",
        run("get etcd://test/a/b s k"));
    EXPECT_EQ("zfleet: missing command; run 'zfleet --help' for a list\n(2)", run(""));
    EXPECT_EQ("zfleet: unknown command \"push\"; run 'zfleet --help' for a list\n(2)", run("push"));
    EXPECT_EQ("zfleet: set: VALUE is required; run 'zfleet set --help'\n(2)",
              run("set etcd://test/gateway s k"));
    std::string const help = run("set --help");
    EXPECT_NE(std::string::npos, help.find("Usage: zfleet set [OPTIONS] FILE STANZA KEY [VALUE]"))
        << help;
    cluster_.setFates({ModelCluster::Fate::refused});
    EXPECT_EQ(
        "zfleet: etcd://test/gateway: the database of the cluster is full; compact and "
        "defragment it\n(4)",
        run("set etcd://test/gateway listener port 2"));
}

TEST_F(FleetTool, SetIsRepeatedIfAnotherProgramIsFaster)
{
    cluster_.setPrelude([&] { cluster_.put(kText, "[listener]\nport = 4\n[new]\nk = v\n"); });
    EXPECT_EQ("(0)", run("set etcd://test/gateway listener port 5"));
    EXPECT_EQ("[listener]\nport = 5\n[new]\nk = v\n", cluster_.get(kText));
}

TEST_F(FleetTool, LogShowAndUndo)
{
    EXPECT_EQ("(1)", run("log etcd://test/gateway"));
    EXPECT_EQ("(0)", run("set etcd://test/gateway listener port 2"));
    EXPECT_EQ("(0)", run("set etcd://test/gateway listener port 3"));
    std::string const log = run("log etcd://test/gateway --format lines");
    EXPECT_EQ('2', log[0]);
    EXPECT_NE(std::string::npos, log.find("\tzfleet set\n1\t")) << log;
    EXPECT_NE(
        std::string::npos,
        run("log etcd://test/gateway --format json").find("{\"generation\": 2, \"time\": \"20"));
    EXPECT_EQ("[listener]\nport = 2\nhost = a\nhost = b\n(0)",
              run("show etcd://test/gateway --generation 1"));
    EXPECT_EQ("[listener]\nport = 2\n(0)",
              run("show etcd://test/gateway listener port --generation 1"));
    EXPECT_EQ("(0)", run("undo etcd://test/gateway"));
    EXPECT_EQ("[listener]\nport = 2\nhost = a\nhost = b\n", cluster_.get(kText));
    EXPECT_EQ(
        "zfleet: etcd://test/gateway: key \"port\" in [listener]: changed later; run 'zfleet show "
        "etcd://test/gateway --generation N', and set the values\n(7)",
        run("undo etcd://test/gateway --generation 2"));
    EXPECT_EQ(
        "zfleet: etcd://test/gateway: the log does not have the generation; run 'zfleet log "
        "etcd://test/gateway'\n(1)",
        run("show etcd://test/gateway --generation 9"));
    EXPECT_EQ("zfleet: show: GENERATION is not a number from 1; run 'zfleet show --help'\n(2)",
              run("show etcd://test/gateway --generation 0x1"));
    EXPECT_EQ("zfleet: show: --generation is required; run 'zfleet show --help'\n(2)",
              run("show etcd://test/gateway"));
    EXPECT_EQ(
        "zfleet: log: a local file has no log; write the path as etcd://FLEET/NAME, or run 'zfleet "
        "log --help'\n(2)",
        run("log /etc/hostname"));
}

TEST_F(FleetTool, StatusPrintsEachEndpoint)
{
    EXPECT_EQ(cluster_.address() + "  cluster 1  member 0  revision 2  term 0\n(0)",
              run("status test"));
    EXPECT_EQ("{\"endpoint\": \"" + cluster_.address() +
                  "\", \"cluster\": \"1\", \"member\": \"0\", \"revision\": 2, \"term\": 0}\n(0)",
              run("status test --format json"));
    FleetFile const other(FleetFile::textFor({cluster_.address(), "127.0.0.1:1"}));
    EXPECT_EQ(cluster_.address() +
                  "\t1\t0\t2\t0\t\n127.0.0.1:1\t\\-\t\\-\t\\-\t\\-\tConnection "
                  "timed out\n(8)",
              run("status test --format lines"));
    EXPECT_EQ("zfleet: " + other.path() +
                  ": no key \"endpoint\" in [none]; add it, or check the name of the fleet\n(1)",
              run("status none"));
    FleetFile const invalid(FleetFile::textFor({"host"}));
    EXPECT_EQ("zfleet: " + invalid.path() +
                  ": key \"endpoint\" in [test]: invalid value; see docs/fleet.md for the valid "
                  "ones\n(6)",
              run("get etcd://test/gateway s k"));
}
