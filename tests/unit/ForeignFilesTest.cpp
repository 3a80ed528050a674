// A file of another program names no file that a store opens, writes or removes.
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "DialectStore.h"
#include "SystemCalls.h"
#include "TestDirectory.h"

TEST(ForeignFiles, NameNoCompanion)
{
    TestDirectory const directory;
    std::string const owner = directory.at("owner");
    {
        ZStanzaFileProperties_6_0 store(1);
        store.setValue("a", "secret", "hidden", 1);
        store.store(owner.c_str());
    }
    for (char const* const dialect : {"ini", "systemd", "python", "windows", "samba"}) {
        for (char const* const name : {"owner.obf", "foreign.obf", "lone.obf"}) {
            SCOPED_TRACE(std::string(dialect) + " " + name);
            std::string const companion = directory.at(name);
            if (std::string(name) != "owner.obf")
                directory.write(name, directory.read("owner.obf"));
            std::string const bytes = directory.read(name);
            std::string const path = directory.write(
                "foreign", "[configuration-database]\nfile = " + companion + "\n\n[s]\nk = 1\n");
            std::set<std::string> paths;
            {
                CallPlan plan;
                plan.before = [&](SystemCall const& call) {
                    if (call.path != nullptr)
                        paths.insert(call.path);
                    if (call.newPath != nullptr)
                        paths.insert(call.newPath);
                    return 0;
                };
                WatchedCalls const watched(plan);
                ZStanzaFileProperties_6_0 store(path.c_str(), 1, dialectNamed(dialect));
                EXPECT_EQ(0, store.exists("a"));
                store.setValue("s", "k", "2");
                store.store(nullptr);
                store.setValue("configuration-database", "file", directory.at("other").c_str());
                store.store(nullptr);
                store.deleteStanza("configuration-database");
                store.store(nullptr);
                store.reload(nullptr);
            }
            EXPECT_TRUE(paths.count(path) != 0);
            for (std::string const& used : paths)
                EXPECT_EQ(std::string::npos, used.find(".obf")) << used;
            EXPECT_EQ(bytes, directory.read(name));
        }
    }
}

TEST(ForeignFiles, NameNoCompanionInAMerge)
{
    TestDirectory const directory;
    std::string const path = directory.write("foreign", "[s]\nk = 1\nl = 1\n");
    ZStanzaFileProperties_6_0 store(path.c_str(), 1, dialectNamed("ini"));
    store.setValue("s", "k", "2");
    directory.write("foreign", "[s]\nk = 1\nl = 3\n[configuration-database]\nfile = x.obf\n");
    store.store(nullptr);
    EXPECT_EQ("[s]\nk = 2\nl = 3\n[configuration-database]\nfile = x.obf\n",
              directory.read("foreign"));
}
