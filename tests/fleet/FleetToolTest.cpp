// The program zfleet with a model of a cluster: output and exit codes.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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

    static int exitOf(std::string const& arguments)
    {
        std::string const output = run(arguments);
        return atoi(output.c_str() + output.rfind('(') + 1);
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

// No verb of this tool takes --dialect, which zstz would suggest for this file.
TEST_F(FleetTool, FailuresSuggestNoDialect)
{
    std::string const path =
        file_.directory().write("long.conf", "[s]\nk = " + std::string(9000, 'v') + "\n");
    for (std::string const& command : {"push " + path + " etcd://test/gateway", "list " + path}) {
        std::string const output = run(command);
        EXPECT_NE(std::string::npos, output.find("shorten it or use a line per value\n(3)"));
        EXPECT_EQ(std::string::npos, output.find("--dialect")) << output;
    }
}

TEST_F(FleetTool, ConfigurationOfOneMebibyteIsTheLargest)
{
    std::string text = "[s]\n";
    for (int key = 0; text.size() < (1u << 20) - 8000; ++key)
        text += "k" + std::to_string(key) + " = " + std::string(1000, 'v') + "\n";
    text += "z = " + std::string((1u << 20) - text.size() - 5, 'v') + "\n";
    ASSERT_EQ(1u << 20, text.size());
    std::string const path = file_.directory().write("large.conf", text);
    EXPECT_EQ("(0)", run("push " + path + " etcd://test/large --create --quiet"));
    EXPECT_EQ(text, cluster_.get("/zfleet/6/cfg/large/text"));
    file_.directory().write("large.conf", text.insert(text.size() - 1, "v"));
    EXPECT_EQ(
        "zfleet: etcd://test/large: larger than the cluster stores; keep text and companion "
        "within 1 MiB\n(7)",
        run("push --force " + path + " etcd://test/large"));
    EXPECT_EQ((1u << 20), cluster_.get("/zfleet/6/cfg/large/text").size());
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

TEST_F(FleetTool, SetCreatesNoHeaderOfKeysAboveAllStanzas)
{
    for (std::string const& path : {std::string("etcd://test/gateway"),
                                    file_.directory().write("local.conf", "[s]\nk = 1\n")})
        EXPECT_EQ("zfleet: " + path +
                      ": invalid stanza name \".\": the dialect stanza has no keys above the first "
                      "header; use the name of a stanza\n(6)",
                  run("set " + path + " . k v"));
    EXPECT_EQ("[s]\nk = 1\n", file_.directory().read("local.conf"));
    EXPECT_EQ(6, exitOf("set etcd://test/new . k v --create"));
    EXPECT_EQ("(missing)", cluster_.get("/zfleet/6/cfg/new/text"));
    cluster_.put(kText, "[.]\nk = v\n");
    EXPECT_EQ("(0)", run("set etcd://test/gateway . k w"));
    EXPECT_EQ("[.]\nk = w\n", cluster_.get(kText));
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
    EXPECT_EQ(std::string::npos, run("get --help").find("dialect"));
    EXPECT_EQ("zfleet: missing command; run 'zfleet --help' for a list\n(2)", run(""));
    EXPECT_EQ("zfleet: unknown command \"shove\"; run 'zfleet --help' for a list\n(2)",
              run("shove"));
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

TEST_F(FleetTool, PrivateKeyThatOthersCanReadIsRefused)
{
    TestDirectory const directory;
    std::string const key = directory.write("host.key", "key");
    ASSERT_EQ(0, chmod(key.c_str(), 0644));
    FleetFile const file(
        "[test]\nendpoint = 127.0.0.1:1\nca = /etc/hostname\n"
        "certificate = /etc/hostname\nkey = " +
        key + "\n");
    EXPECT_EQ("zfleet: " + key + ": other users have access to this private key; run 'chmod 600 " +
                  key + "'\n(4)",
              run("get etcd://test/gateway s k"));
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
    cluster_.setFault([](auto const& request, auto const& execute) {
        zfleet::wire::TxnRequest form;
        bool const isWrite = request.method == "Txn" && form.ParseFromString(request.bytes) &&
                             form.compare_size() > 0;
        return isWrite ? ModelCluster::Reply{8, "Received message larger than max"}
                       : execute(request);
    });
    EXPECT_EQ(
        "zfleet: etcd://test/gateway: it is unknown whether the change was undone; run 'zfleet log "
        "etcd://test/gateway', and pass --generation to repeat the command\n(4)",
        run("undo etcd://test/gateway"));
    cluster_.setFault(nullptr);
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

TEST_F(FleetTool, LogPrintsNoControlCharacters)
{
    EXPECT_EQ("(0)", run("set etcd://test/gateway listener port 2"));
    // Another program has written this entry.
    std::string const entry = "/zfleet/6/cfg/gateway/log/0000000000000001";
    cluster_.put(entry,
                 "generation 1\nid x\nbase 2\nhost h\033[2J\nuser u\r\ntime 1\nreason \a!\n"
                 "omitted 1\n\n");
    EXPECT_EQ("1  1970-01-01T00:00:01Z  u?@h?[2J  ?!  (contents too large for the log)\n(0)",
              run("log etcd://test/gateway"));
}

// The configuration has rights in the cluster; a new copy of it has them for one user.
TEST_F(FleetTool, PulledFileWithObfuscatedValuesIsReadableForItsOwnerOnly)
{
    std::string const secret = file_.directory().write("secret", "swordfish");
    std::string const copy = file_.directory().at("copy.conf");
    std::string const pull = "umask 022; " ZFLEET_TOOL " pull -q etcd://test/gateway " + copy;
    struct stat status {};
    EXPECT_EQ(0, system(pull.c_str()));
    EXPECT_EQ(0, stat(copy.c_str(), &status));
    EXPECT_EQ(0644u, status.st_mode & 0777);
    remove(copy.c_str());
    EXPECT_EQ("(0)", run("set etcd://test/gateway listener secret --obfuscated <" + secret));
    EXPECT_EQ(0, system(pull.c_str()));
    for (std::string const& path : {copy, copy + ".obf"}) {
        EXPECT_EQ(0, stat(path.c_str(), &status));
        EXPECT_EQ(0600u, status.st_mode & 0777) << path;
    }
}

TEST_F(FleetTool, PushReplacesTheTextAndPrintsTheDifference)
{
    // Lines stay byte for byte.
    std::string const text = "# note\n[listener]\nport=2\n host =  a\n\n[new]\nk = v";
    std::string const path = file_.directory().write("local.conf", text);
    std::string const diff =
        "--- etcd://test/gateway\n"
        "+++ etcd://test/gateway\n"
        "@@ -1,4 +1,7 @@\n"
        "+# note\n"
        " [listener]\n"
        "-port = 1\n"
        "-host = a\n"
        "-host = b\n"
        "+port=2\n"
        "+ host =  a\n"
        "+\n"
        "+[new]\n"
        "+k = v\n"
        "\\ No newline at end of file\n";
    EXPECT_EQ(diff + "(0)", run("push -n " + path + " etcd://test/gateway"));
    EXPECT_EQ("[listener]\nport = 1\nhost = a\nhost = b\n", cluster_.get(kText));
    EXPECT_EQ(diff + "(0)",
              run("push --force " + path + " etcd://test/gateway --reason 'move to port 2'"));
    EXPECT_EQ(text, cluster_.get(kText));
    EXPECT_NE(std::string::npos, run("log etcd://test/gateway").find("  move to port 2\n"));
    EXPECT_EQ("(0)", run("push " + path + " etcd://test/gateway"));
    EXPECT_NE(std::string::npos, cluster_.get("/zfleet/6/cfg/gateway/meta").find("generation 1\n"));
    EXPECT_EQ("(0)", run("push - etcd://test/gateway --force -q <" +
                         file_.directory().write("other", "[s]\nk = 1\n")));
    EXPECT_EQ("[s]\nk = 1\n", cluster_.get(kText));
}

TEST_F(FleetTool, PushCreatesOnlyWithAnOption)
{
    std::string const path = file_.directory().write("local.conf", "[s]\nk = 1\n");
    EXPECT_EQ(
        "zfleet: etcd://test/none: no such configuration; check the name, or create it with "
        "--create\n(4)",
        run("push " + path + " etcd://test/none"));
    std::string const diff =
        "--- /dev/null\n+++ etcd://test/none\n@@ -0,0 +1,2 @@\n+[s]\n+k = 1\n(0)";
    EXPECT_EQ(diff, run("push -n --create " + path + " etcd://test/none"));
    EXPECT_EQ("(missing)", cluster_.get("/zfleet/6/cfg/none/text"));
    EXPECT_EQ(diff, run("push --create " + path + " etcd://test/none"));
    EXPECT_EQ("[s]\nk = 1\n", cluster_.get("/zfleet/6/cfg/none/text"));
}

TEST_F(FleetTool, ObfuscatedValuesTravelWithTheText)
{
    std::string const path = file_.directory().write("local.conf", "[s]\nk = 1\n");
    {
        ZStanzaFileProperties_6_0 local(path.c_str(), 1);
        local.setValue("s", "secret", "swordfish", 1);
        local.store(nullptr);
    }
    EXPECT_EQ("zfleet: etcd://test/new: note: the obfuscated values would change\n(0)",
              run("push -n --create " + path + " etcd://test/new 2>&1 >/dev/null #"));
    EXPECT_EQ("(0)", run("push -q --create " + path + " etcd://test/new"));
    // The path of the companion is a path of this machine.
    EXPECT_EQ(std::string::npos, cluster_.get("/zfleet/6/cfg/new/text").find("local"));
    EXPECT_NE("(missing)", cluster_.get("/zfleet/6/cfg/new/hidden"));
    EXPECT_EQ("swordfish\n(0)", run("get etcd://test/new s secret"));

    std::string const copy = file_.directory().at("copy.conf");
    EXPECT_EQ("(0)", run("pull -q etcd://test/new " + copy));
    ZStanzaFileProperties_6_0 pulled(copy.c_str(), 1);
    ZLCString_6_0 value;
    pulled.getValue("s", "secret", value, 0, "");
    EXPECT_STREQ("swordfish", value.getChars());
    EXPECT_EQ("zfleet: " + copy + ": note: copy of generation 1\n(0)",
              run("pull etcd://test/new " + copy));
    EXPECT_EQ("(0)", run("push " + copy + " etcd://test/new"));

    // A configuration without obfuscated values removes the values of the file.
    EXPECT_EQ("(0)", run("pull -q etcd://test/gateway " + copy));
    EXPECT_EQ("[listener]\nport = 1\nhost = a\nhost = b\n", file_.directory().read("copy.conf"));
    EXPECT_EQ("(missing)", file_.directory().read("copy.conf.obf"));
}

TEST_F(FleetTool, PullReplacesTheFileAndPrintsTheDifference)
{
    std::string const path = file_.directory().at("local.conf");
    std::string const name = path.substr(1);
    std::string const added = "--- /dev/null\n+++ " + name +
                              "\n@@ -0,0 +1,4 @@\n+[listener]\n+port = 1\n+host = a\n+host = b\n";
    EXPECT_EQ(added + "(0)", run("pull -n etcd://test/gateway " + path));
    EXPECT_NE(0, access(path.c_str(), F_OK));
    EXPECT_EQ(added + "(0)", run("pull etcd://test/gateway " + path));
    EXPECT_EQ("[listener]\nport = 1\nhost = a\nhost = b\n", file_.directory().read("local.conf"));
    EXPECT_EQ("(0)", run("pull etcd://test/gateway " + path));

    std::string const text = "[listener]\nport=3\n\n# end";
    cluster_.put(kText, text);
    std::string const changed = "--- " + name + "\n+++ " + name +
                                "\n@@ -1,4 +1,4 @@\n [listener]\n-port = 1\n-host = a\n-host = "
                                "b\n+port=3\n+\n+# end\n\\ No newline at end of file\n(0)";
    EXPECT_EQ(changed, run("pull -n etcd://test/gateway " + path));
    EXPECT_EQ(changed, run("pull etcd://test/gateway " + path));
    EXPECT_EQ(text, file_.directory().read("local.conf"));
}

TEST_F(FleetTool, UnreadableConfigurationIsReplacedByForceOnly)
{
    std::string const path = file_.directory().write("local.conf", "[s]\nk = 1\n");
    cluster_.put(kText, "[listener]\nno separator\nport = 1\n");
    EXPECT_EQ(
        "zfleet: etcd://test/gateway:2:1: \"no separator\": invalid line; pass --force to replace "
        "the configuration\n(3)",
        run("push " + path + " etcd://test/gateway"));
    EXPECT_EQ(3, exitOf("pull etcd://test/gateway " + file_.directory().at("none")));
    EXPECT_NE(0, access(file_.directory().at("none").c_str(), F_OK));
    std::string const diff =
        "--- etcd://test/gateway\n+++ etcd://test/gateway\n@@ -1,3 +1,2 @@\n-[listener]\n"
        "-no separator\n-port = 1\n+[s]\n+k = 1\n(0)";
    EXPECT_EQ(diff, run("push -n --force " + path + " etcd://test/gateway"));
    EXPECT_EQ("[listener]\nno separator\nport = 1\n", cluster_.get(kText));
    // Another program repairs the text at the same time: it stays.
    cluster_.setPrelude([&] { cluster_.put(kText, "[listener]\nport = 7\n"); });
    EXPECT_EQ(
        "zfleet: etcd://test/gateway: other programs change the configuration all the time; try "
        "again\n(5)",
        run("push --force " + path + " etcd://test/gateway"));
    EXPECT_EQ("[listener]\nport = 7\n", cluster_.get(kText));
    cluster_.put(kText, "[listener]\nno separator\nport = 1\n");
    EXPECT_EQ(diff, run("push --force " + path + " etcd://test/gateway"));
    EXPECT_EQ("[s]\nk = 1\n", cluster_.get(kText));
    cluster_.put("/zfleet/6/cfg/gateway/hidden", "damaged");
    EXPECT_EQ(
        "zfleet: etcd://test/gateway: damaged obfuscated values; pass --force to replace the "
        "configuration\n(3)",
        run("push " + path + " etcd://test/gateway"));
    EXPECT_EQ("zfleet: etcd://test/gateway: note: the obfuscated values have changed\n(0)",
              run("push --force " + path + " etcd://test/gateway"));
    EXPECT_EQ("(missing)", cluster_.get("/zfleet/6/cfg/gateway/hidden"));
}

TEST_F(FleetTool, PushIsMergedWithAStoreAtTheSameTime)
{
    std::string const path = file_.directory().write("local.conf", "[listener]\nport = 2\n");
    cluster_.put(kText, "[listener]\nport = 1\n");
    cluster_.setPrelude([&] { cluster_.put(kText, "[listener]\nport = 1\n[new]\nk = v\n"); });
    EXPECT_EQ("zfleet: etcd://test/gateway: note: merged with a change by another program\n(0)",
              run("push --force " + path + " etcd://test/gateway 2>&1 >/dev/null #"));
    EXPECT_EQ("[listener]\nport = 2\n[new]\nk = v\n", cluster_.get(kText));
    cluster_.put(kText, "[listener]\nport = 1\n");
    cluster_.setPrelude([&] { cluster_.put(kText, "[listener]\nport = 3\n"); });
    EXPECT_EQ(
        "zfleet: etcd://test/gateway: key \"port\" in [listener]: another program was faster; try "
        "again\n(5)",
        run("push --force " + path + " etcd://test/gateway"));
    EXPECT_EQ("[listener]\nport = 3\n", cluster_.get(kText));
}

TEST_F(FleetTool, PushOfAnOldCopyUndoesNoChange)
{
    std::string const path = file_.directory().at("local.conf");
    EXPECT_EQ("(0)", run("set etcd://test/gateway listener host c --all"));
    EXPECT_EQ("zfleet: " + path + ": note: copy of generation 1\n(0)",
              run("pull etcd://test/gateway " + path + " 2>&1 >/dev/null #"));
    EXPECT_EQ("(0)", run("set etcd://test/gateway listener port 2"));
    std::string const theirs = "[listener]\nport = 2\nhost = c\n";

    // The copy lacks the change of the port.
    file_.directory().write("local.conf", "# mine\n[listener]\nport = 1\nhost = d\n");
    EXPECT_EQ(
        "zfleet: etcd://test/gateway: differs from the file, which may lack changes by other "
        "programs; run 'zfleet push -n' to see the difference, and pass --generation N to store "
        "only the changes since generation N, or --force to replace everything\n(7)",
        run("push " + path + " etcd://test/gateway"));
    EXPECT_EQ(theirs, cluster_.get(kText));
    EXPECT_EQ("(0)", run("push " + path + " -q -n etcd://test/gateway"));

    std::string const diff =
        "--- etcd://test/gateway\n+++ etcd://test/gateway\n@@ -1,3 +1,4 @@\n+# mine\n [listener]\n"
        " port = 2\n-host = c\n+host = d\n(0)";
    std::string const push = "push " + path + " etcd://test/gateway --generation ";
    EXPECT_EQ(diff, run(push + "1 -n"));
    EXPECT_EQ(theirs, cluster_.get(kText));
    EXPECT_EQ(diff, run(push + "1"));
    EXPECT_EQ("# mine\n[listener]\nport = 2\nhost = d\n", cluster_.get(kText));
    // With the latest generation, the lines of the file stay byte for byte.
    file_.directory().write("local.conf", "[listener]\nport=9");
    EXPECT_EQ("(0)", run(push + "3 -q"));
    EXPECT_EQ("[listener]\nport=9", cluster_.get(kText));
}

TEST_F(FleetTool, PushSinceAGenerationRefusesConflicts)
{
    EXPECT_EQ("(0)", run("set etcd://test/gateway listener host c --all"));
    EXPECT_EQ("(0)", run("set etcd://test/gateway listener port 2"));
    std::string const push =
        "push " + file_.directory().write("local.conf", "[listener]\nport = 3\nhost = c\n") +
        " etcd://test/gateway --generation ";
    for (char const* const option : {"1", "1 -n"})
        EXPECT_EQ(
            "zfleet: etcd://test/gateway: key \"port\" in [listener]: changed since generation 1; "
            "pull the configuration, and change it again, or pass --force\n(7)",
            run(push + option));
    EXPECT_EQ("[listener]\nport = 2\nhost = c\n", cluster_.get(kText));
    EXPECT_EQ(
        "zfleet: etcd://test/gateway: the log does not have the generation; run 'zfleet log "
        "etcd://test/gateway'\n(1)",
        run(push + "9"));
    EXPECT_EQ(2, exitOf(push + "1 --force"));
    EXPECT_EQ(2, exitOf(push + "x"));
    // A file without changes stores nothing.
    file_.directory().write("local.conf", "[listener]\nport = 1\nhost = c\n");
    EXPECT_EQ("(0)", run(push + "1"));
    EXPECT_NE(std::string::npos, cluster_.get("/zfleet/6/cfg/gateway/meta").find("generation 2\n"));
}

TEST_F(FleetTool, PushAndPullRefuseIncompleteCopies)
{
    std::string const path = file_.directory().write("local.conf", "[s]\nk = 1\nno separator\n");
    EXPECT_EQ(3, exitOf("push " + path + " etcd://test/gateway"));
    EXPECT_EQ(3, exitOf("pull etcd://test/gateway " + path));
    EXPECT_EQ("[s]\nk = 1\nno separator\n", file_.directory().read("local.conf"));
    EXPECT_EQ(4, exitOf("push " + file_.directory().at("none") + " etcd://test/gateway"));
    std::string const zero =
        file_.directory().write("zero.conf", std::string("[s]\nk = 1\0 2\n", 13));
    EXPECT_EQ(7, exitOf("push " + zero + " etcd://test/gateway"));
    cluster_.put(kText, std::string("[s]\nk = 1\0 2\n", 13));
    EXPECT_EQ(7, exitOf("pull etcd://test/gateway " + file_.directory().at("new")));
    EXPECT_EQ(
        "zfleet: push: CONFIGURATION is not in a cluster; write it as etcd://FLEET/NAME, or run "
        "'zfleet push --help'\n(2)",
        run("push etcd://test/gateway " + path));
    EXPECT_EQ("zfleet: pull: FILE is not a local file; run 'zfleet pull --help'\n(2)",
              run("pull etcd://test/gateway etcd://test/other"));
    EXPECT_EQ("zfleet: etcd://test/none: no such configuration; check the name\n(4)",
              run("pull etcd://test/none " + path));
    cluster_.refuse(7);
    EXPECT_EQ(4, exitOf("pull etcd://test/gateway " + path));
}

TEST_F(FleetTool, StatusPrintsEachEndpoint)
{
    EXPECT_EQ(cluster_.address() + "  cluster 1  member 0  revision 2  term 1\n(0)",
              run("status test"));
    EXPECT_EQ("{\"endpoint\": \"" + cluster_.address() +
                  "\", \"cluster\": \"1\", \"member\": \"0\", \"revision\": 2, \"term\": 1}\n(0)",
              run("status test --format json"));
    FleetFile const other(FleetFile::textFor({cluster_.address(), "127.0.0.1:1"}));
    EXPECT_EQ(cluster_.address() +
                  "\t1\t0\t2\t1\t\n127.0.0.1:1\t\\-\t\\-\t\\-\t\\-\tConnection "
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
