#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZProperties.h>
#include <Z/ZPropertiesIterator.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>

#include "EachAllocation.h"
#include "LockingProcess.h"
#include "Nobody.h"
#include "PropertiesFixture.h"
#include "StanzaStore.h"
#include "TestDirectory.h"

using ZProperties = PropertiesTest;

// ---- Files -------------------------------------------------------------------------------------

TEST_F(ZProperties, FirstPathBecomesTheFileName)
{
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store_.load(nullptr); }));
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store_.load(""); }));
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store_.store(nullptr); }));
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store_.reload(""); }));
    EXPECT_NE("nothing", thrown([&] { store_.load(directory_.at("missing").c_str()); }));
    EXPECT_TRUE(store_.fileName().isEmpty());
    std::string const path = load("[s]\nk = a\n");
    EXPECT_STREQ(path.c_str(), store_.fileName().getChars());
    std::string const other = directory_.at("other");
    store_.store(other.c_str());
    EXPECT_STREQ(path.c_str(), store_.fileName().getChars());
    EXPECT_EQ("[s]\nk = a\n", directory_.read("other"));
    Store fresh;
    fresh.setValue("s", "k", "v");
    fresh.store(other.c_str());
    EXPECT_STREQ(other.c_str(), fresh.fileName().getChars());
}

TEST_F(ZProperties, DerivedClassSetsTheFileNameOnce)
{
    Store store;
    store.setFileName(nullptr);
    store.setFileName("");
    EXPECT_TRUE(store.fileName().isEmpty());
    store.setFileName("remote:one");
    store.setFileName("remote:two");
    EXPECT_STREQ("remote:one", store.fileName().getChars());
    try {
        ZLCString_6_0 value;
        store.getValue("s", "k", value, 1, nullptr);
        FAIL() << "nothing was thrown";
    } catch (ZPropertiesMissingPropertyException_6_0 const& e) {
        EXPECT_STREQ("remote:one", e.propFile().getChars());
    }
    load("[s]\nk = a\n");
    EXPECT_FALSE(store_.fileName().isEmpty());
    ZLCString_6_0 const name = store_.fileName();
    store_.setFileName("remote:one");
    EXPECT_STREQ(name.getChars(), store_.fileName().getChars());
}

TEST_F(ZProperties, StoreCreatesAMissingFileAndNoOther)
{
    store_.setValue("s", "k", "v");
    store_.store(directory_.at("new").c_str());
    EXPECT_EQ("\n[s]\nk = v\n", directory_.read("new"));
    EXPECT_EQ("new", directory_.names());
}

TEST_F(ZProperties, ShorterTextReplacesTheWholeFile)
{
    std::string const path = load("[s]\nk = " + std::string(4000, 'x') + "\n");
    store_.setValue("s", "k", "y");
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = y\n", directory_.read("conf"));
}

TEST_F(ZProperties, StoreKeepsInodeOwnerAndMode)
{
    std::string const path = load(kText);
    chmod(path.c_str(), 0640);
    struct stat before;
    stat(path.c_str(), &before);
    store_.setValue("server", "port", "8080");
    store_.store(nullptr);
    struct stat after;
    stat(path.c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mode, after.st_mode);
    EXPECT_EQ(before.st_uid, after.st_uid);
}

TEST_F(ZProperties, LoadFailuresReportTheCallAndChangeNothing)
{
    load("[s]\nk = a\n");
    store_.setValue("s", "k", "changed");
    std::string const conf = directory_.at("conf");
    mkdir(directory_.at("dir").c_str(), 0700);
    mkfifo(directory_.at("fifo").c_str(), 0600);
    struct Case {
        char const* name;
        char const* file;
        std::string text;
        std::string expected;
    };
    std::string const at = directory_.path() + "/";
    Case const cases[] = {
        {"missing", "missing", "", "io " + at + "missing fopen(r) 2"},
        {"missing directory", "no/where", "", "io " + at + "no/where fopen(r) 2"},
        {"file as directory", "conf/x", "", "io " + at + "conf/x fopen(r) 20"},
        {"directory", "dir", "", "io " + at + "dir fopen(r) 21"},
        {"fifo", "fifo", "", "io " + at + "fifo fopen(r) 22"},
        {"key before a header", "bad", "k = v\n", "data " + at + "bad 1 k = v"},
        {"no equals", "bad", "[t]\n\nword\n", "data " + at + "bad 3 word"},
        {"equals first", "bad", "[t]\n  = v  \n", "data " + at + "bad 2 = v"},
        {"no closing bracket", "bad", "# x\n[t\n", "data " + at + "bad 2 [t"},
        {"stanza twice", "bad", "[a]\nk=1\n[b]\n[a]\n", "data " + at + "bad 4 [a]"},
        {"long line", "bad", "[t]\nk = " + std::string(9000, 'x') + "\n",
         "data " + at + "bad 3 " + std::string(9000 - 8191 + 4, 'x')},
        {"byte order mark", "bad", "\xEF\xBB\xBF[t]\nk = v\n",
         "data " + at + "bad 1 \xEF\xBB\xBF[t]"},
        {"missing companion", "bad", "[configuration-database]\nfile = " + at + "nocompanion\n",
         "io " + at + "nocompanion mapFile() 22"},
    };
    long const descriptors = openDescriptors();
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        if (!c.text.empty())
            directory_.write(c.file, c.text);
        std::string const path = directory_.at(c.file);
        EXPECT_EQ(c.expected, thrown([&] { store_.load(path.c_str()); }));
        EXPECT_EQ(c.expected, thrown([&] { store_.reload(path.c_str()); }));
        Store fresh;
        EXPECT_EQ(c.expected, thrown([&] { fresh.load(path.c_str()); }));
        EXPECT_TRUE(fresh.fileName().isEmpty());
        EXPECT_EQ(0, fresh.count());
        EXPECT_EQ("changed", valueOf(store_, "s", "k"));
        EXPECT_EQ(1, store_.count());
        EXPECT_EQ(1, store_.isModified());
        EXPECT_STREQ(conf.c_str(), store_.fileName().getChars());
    }
    EXPECT_EQ(descriptors, openDescriptors());
    EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
}

TEST_F(ZProperties, LoadFailsIfTheFileCannotBeRead)
{
    // The memory of the process; nothing is mapped at address 0.
    load("[s]\nk = a\n");
    EXPECT_EQ("io /proc/self/mem read() " + std::to_string(EIO),
              thrown([&] { store_.load("/proc/self/mem"); }));
    EXPECT_EQ("a", valueOf(store_, "s", "k"));
}

TEST_F(ZProperties, UnusualTextIsRead)
{
    struct Case {
        char const* name;
        std::string text;
        char const* expected;
    };
    Case const cases[] = {
        {"CRLF", "[s]\r\nk = v\r\n", "v"},
        {"no newline at the end", "[s]\nk = v", "v"},
        {"NUL cuts the line", std::string("[s]\nk = v\0w\n", 12), "v"},
        {"invalid UTF-8", "[s]\nk = \xFF\xFE\n", "\xFF\xFE"},
        {"spaces", "  [s] tail\n  k   =   v  \n", "v"},
        {"blank before equals only", "[s]\nk =\n", "(none)"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Store store;
        store.load(directory_.write("conf", c.text).c_str());
        EXPECT_EQ(c.expected, valueOf(store, "s", "k"));
    }
    Store empty;
    empty.load(directory_.write("conf", "").c_str());
    EXPECT_EQ(0, empty.count());
}

TEST_F(ZProperties, LoadAddsToTheContents)
{
    load("[a]\nk = 1\n");
    store_.load(directory_.write("more", "[b]\nk = 2\n").c_str());
    EXPECT_EQ("1", valueOf(store_, "a", "k"));
    EXPECT_EQ("2", valueOf(store_, "b", "k"));
    std::string const again = directory_.write("again", "[c]\nk = 3\n[b]\nk = 4\n");
    EXPECT_EQ("data " + again + " 3 [b]", thrown([&] { store_.load(again.c_str()); }));
    EXPECT_EQ(2, store_.count());
}

TEST_F(ZProperties, ReloadReplacesTheContents)
{
    std::string const path = load("[a]\nk = 1\n");
    store_.setValue("b", "k", "2");
    store_.reload(nullptr);
    EXPECT_EQ(0, store_.exists("b"));
    EXPECT_EQ("1", valueOf(store_, "a", "k"));
    EXPECT_EQ(path, store_.loaded);
    directory_.write("conf", "broken");
    EXPECT_EQ("data " + path + " 1 broken", thrown([&] { store_.reload(nullptr); }));
    EXPECT_EQ("1", valueOf(store_, "a", "k"));
}

TEST_F(ZProperties, UnreadableAndUnwritableFilesAreRefused)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    chmod(directory_.path().c_str(), 0755);
    chmod(path.c_str(), 0000);
    asNobody([&] {
        Store store;
        bool const load =
            thrown([&] { store.load(path.c_str()); }) == "io " + path + " fopen(r) 13";
        store.setValue("s", "k", "b");
        bool const save =
            thrown([&] { store.store(path.c_str()); }) == "io " + path + " fopen(r+) 13";
        return load && save && store.isModified() != 0;
    });
    chmod(path.c_str(), 0600);
    EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
}

TEST_F(ZProperties, LoadAndStoreDoNotWaitForAnotherProcess)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "k", "b");
    {
        LockingProcess const writer(path, F_WRLCK);
        EXPECT_EQ("io " + path + " fcntl() 11", thrown([&] { store_.reload(nullptr); }));
        EXPECT_EQ("io " + path + " fcntl() 11", thrown([&] { store_.store(nullptr); }));
        EXPECT_EQ("b", valueOf(store_, "s", "k"));
        EXPECT_EQ(1, store_.isModified());
    }
    {
        LockingProcess const reader(path, F_RDLCK);
        EXPECT_EQ("io " + path + " fcntl() 11", thrown([&] { store_.store(nullptr); }));
        Store other;
        other.load(path.c_str());
        EXPECT_EQ("a", valueOf(other, "s", "k"));
    }
    EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
    EXPECT_EQ("conf", directory_.names());
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = b\n", directory_.read("conf"));
}

TEST_F(ZProperties, PostLoadSeesTheLoadedStoreAndItsExceptionUndoesTheLoad)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    std::string seen;
    NotedChanges observer;
    store_.addObserver(&observer);
    store_.onPostLoad = [&] {
        seen = valueOf(store_, "s", "k");
        store_.setValue("s", "made", "in postLoad");
        store_.sendChangeNotice(ZPropertyChanged_6_0::storeChanged, ZPropertyChanged_6_0::set, "s",
                                "made");
    };
    store_.load(path.c_str());
    EXPECT_EQ("a", seen);
    EXPECT_EQ(path, store_.loaded);
    EXPECT_EQ(0, store_.isModified());
    EXPECT_EQ("", observer.log);
    store_.onPostLoad = [&] { throw std::runtime_error("no"); };
    directory_.write("conf", "[s]\nk = b\n");
    EXPECT_THROW(store_.reload(nullptr), std::runtime_error);
    EXPECT_EQ("a", valueOf(store_, "s", "k"));
    store_.onPostLoad = nullptr;
    store_.setValue("s", "k", "c");
    EXPECT_EQ("2[s]k ", observer.log);  // the loading flag is reset
}

TEST_F(ZProperties, StoreInPostLoadResetsTheLoadingFlag)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    NotedChanges observer;
    store_.addObserver(&observer);
    store_.onPostLoad = [&] {
        store_.setValue("s", "k", "b");
        store_.store(path.c_str());
        store_.setValue("s", "k", "c");
    };
    store_.load(path.c_str());
    EXPECT_EQ("[s]\nk = b\n", directory_.read("conf"));
    EXPECT_EQ("2[s]k ", observer.log);
    EXPECT_EQ("c", valueOf(store_, "s", "k"));
}

TEST_F(ZProperties, StoreWritesTheFileThatWasRenamedIntoPlace)
{
    std::string const path = load("[s]\nk = a\n");
    directory_.write("edited", "[s]\nk = by an editor\n");
    rename(directory_.at("edited").c_str(), path.c_str());
    store_.setValue("s", "k", "b");
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = b\n", directory_.read("conf"));
}

TEST_F(ZProperties, StoreToALinkWritesItsTarget)
{
    std::string const path = directory_.write("real", "[s]\nk = a\n");
    std::string const link = directory_.at("link");
    ASSERT_EQ(0, symlink(path.c_str(), link.c_str()));
    store_.load(link.c_str());
    store_.setValue("s", "k", "b");
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = b\n", directory_.read("real"));
    struct stat status;
    ASSERT_EQ(0, lstat(link.c_str(), &status));
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_EQ("link real", directory_.names());
}

TEST_F(ZProperties, TimeStampIsTheModificationTimeOfTheFile)
{
    std::string const path = load("[s]\nk = a\n");
    utimbuf const times = {1000000000, 1000000000};
    utime(path.c_str(), &times);
    store_.reload(nullptr);
    EXPECT_EQ(1000000000, store_.timeStamp());
    long stamp = 0;
    EXPECT_EQ(1, ZProperties_6_0::checkAndSetTimeStamp(path.c_str(), stamp));
    EXPECT_EQ(1000000000, stamp);
    EXPECT_EQ(0, ZProperties_6_0::checkAndSetTimeStamp(path.c_str(), stamp));
    EXPECT_EQ(0, ZProperties_6_0::checkAndSetTimeStamp("/no/such/file", stamp));
    EXPECT_EQ(0, ZProperties_6_0::checkAndSetTimeStamp(nullptr, stamp));
    EXPECT_EQ(1000000000, stamp);
}

TEST_F(ZProperties, OnlyTheFileNamedByTheStoreSetsTheTimeStamp)
{
    auto const setTime = [&](std::string const& path, time_t time) {
        utimbuf const times = {time, time};
        utime(path.c_str(), &times);
    };
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    std::string const other = directory_.write("other", "[t]\nk = b\n");
    std::string const third = directory_.at("third");
    setTime(path, 1000000000);
    setTime(other, 1100000000);
    Factory factory;
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    store->load(other.c_str());
    EXPECT_EQ(1000000000, store->timeStamp());
    store->store(third.c_str());
    EXPECT_EQ(1000000000, store->timeStamp());
    EXPECT_EQ(path, store->fileName().getChars());
    // The file named by the store has not changed and is not reloaded.
    EXPECT_EQ(store, ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0));
    EXPECT_EQ("b", valueOf(*store, "t", "k"));
    // Another path to the same file.
    std::string const link = directory_.at("link");
    ASSERT_EQ(0, symlink(path.c_str(), link.c_str()));
    store->store(link.c_str());
    struct stat status;
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(status.st_mtim.tv_sec, store->timeStamp());
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("b", valueOf(*store, "t", "k"));
    directory_.write("conf", "[s]\nk = changed\n");
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("changed", valueOf(*store, "s", "k"));
    EXPECT_EQ(0, store->exists("t"));
}

TEST_F(ZProperties, CheckFileAccessChecksTheFileOrItsDirectory)
{
    std::string const path = directory_.write("conf", "");
    ZProperties_6_0::checkFileAccess(path.c_str());
    ZProperties_6_0::checkFileAccess(directory_.at("missing").c_str());
    ZProperties_6_0::checkFileAccess("missing-in-the-current-directory");
    EXPECT_EQ("io /no/such access() 2",
              thrown([] { ZProperties_6_0::checkFileAccess("/no/such/file"); }));
    EXPECT_EQ("ZInvalidParameterException",
              thrown([] { ZProperties_6_0::checkFileAccess(nullptr); }));
    asNobody([] {
        bool const root =
            thrown([] { ZProperties_6_0::checkFileAccess("/missing"); }) == "io / access() 13";
        bool const file = thrown([] { ZProperties_6_0::checkFileAccess("/etc/passwd"); }) ==
                          "io /etc/passwd access() 13";
        return root && file;
    });
}

TEST_F(ZProperties, CheckFileAccessFailsInARemovedDirectory)
{
    char back[4096];
    ASSERT_NE(nullptr, getcwd(back, sizeof back));
    std::string const directory = directory_.at("directory");
    ASSERT_EQ(0, mkdir(directory.c_str(), 0700));
    ASSERT_EQ(0, chdir(directory.c_str()));
    ASSERT_EQ(0, rmdir(directory.c_str()));
    EXPECT_EQ("io conf getcwd() 2", thrown([] { ZProperties_6_0::checkFileAccess("conf"); }));
    ASSERT_EQ(0, chdir(back));
}

// ---- Failed allocations ------------------------------------------------------------------------

TEST_F(ZProperties, FailedAllocationsChangeNeitherStoreNorFiles)
{
    std::string const path = load("[s]\nk = a\nk = b\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    std::string const text = directory_.read("conf");
    std::string const companion = directory_.read("conf.obf");
    store_.setValue("s", "k", "changed");
    std::string const longText(300, 'x');
    ZLCString_6_0 out("before");
    ZArrayList_6_0 list(1, 1);
    ZLCString_6_0 const old("old");
    list.add(&old);
    long const descriptors = openDescriptors();

    auto const check = [&] {
        EXPECT_EQ(2, store_.count("s"));
        EXPECT_EQ("changed,", valuesOf(store_, "s", "k"));
        EXPECT_EQ("hidden,", valuesOf(store_, "s", "secret"));
        EXPECT_EQ(1, store_.isModified());
        EXPECT_STREQ("before", out.getChars());
        EXPECT_EQ(1u, list.size());
        EXPECT_EQ(text, directory_.read("conf"));
        EXPECT_EQ(companion, directory_.read("conf.obf"));
        EXPECT_EQ("conf conf.obf", directory_.names());
        EXPECT_EQ(descriptors, openDescriptors());
    };
    // A failed allocation while a companion is expanded is reported as invalid data.
    auto const expanding = [](auto call) {
        try {
            call();
        } catch (ZPropertiesInvalidDataException_6_0 const&) {
            ZOutOfMemoryException_6_0().throwException("test", 1);
        }
    };
    // Runs each call with every allocation failing, one after another, then once without failures
    // and undoes that.
    struct Case {
        char const* name;
        std::function<void()> call;
        std::function<void()> undo;
    };
    Case const cases[] = {
        {"get", [&] { store_.getValue("s", "long", out, 0, longText.c_str()); },
         [&] { out = "before"; }},
        {"get all", [&] { store_.getValues("s", "k", list, zPropUTF8Strings); },
         [&] {
             list.removeAll();
             list.add(&old);
         }},
        {"set", [&] { store_.setValue("s", "new", longText.c_str()); },
         [&] { store_.deleteKey("s", "new"); }},
        {"set obfuscated", [&] { store_.setValue("s", "new", longText.c_str(), 1); },
         [&] { store_.deleteKey("s", "new"); }},
        {"set number", [&] { store_.setIntegerValue("s", "new", 5); },
         [&] { store_.deleteKey("s", "new"); }},
        {"delete", [&] { store_.deleteKey("s", "missing"); }, [] {}},
        {"iterate",
         [&] {
             ZPropertiesIterator_6_0 iterator(store_, "s");
             while (iterator.hasMore()) {
                 iterator.nextEntry();
                 iterator.entryValue(0);
             }
         },
         [] {}},
        {"names", [&] { delete store_.keyNames("s"); }, [] {}},
        {"categories", [&] { delete store_.categoryNames(); }, [] {}},
        {"reload", [&] { expanding([&] { store_.reload(nullptr); }); },
         [&] { store_.setValue("s", "k", "changed"); }},
        {"load into another", [&] { expanding([&] { Store().load(path.c_str()); }); }, [] {}},
        {"copy", [&] { ZProperties_6_0 const copy(store_); }, [] {}},
        {"store", [&] { store_.store(nullptr); },
         [&] {
             directory_.write("conf", text);
             directory_.write("conf.obf", companion);
             store_.setModified();
         }},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_LT(0u, failEachAllocationOfSome(c.call, c.undo, check));
        if (HasFailure())
            break;
    }
}

int main(int argc, char** argv)
{
    if (LockingProcess::isWanted(argc, argv))
        return LockingProcess::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
