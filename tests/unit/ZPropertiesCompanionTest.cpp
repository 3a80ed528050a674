#include <Z/ZProperties.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

#include "Nobody.h"
#include "PropertiesFixture.h"
#include "StanzaStore.h"
#include "Threads.h"

using ZProperties = PropertiesTest;

// ---- The companion file ------------------------------------------------------------------------

TEST_F(ZProperties, ObfuscatedValuesAreStoredInTheCompanion)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = a\n\n[configuration-database]\nfile = " + path + ".obf\n",
              directory_.read("conf"));
    EXPECT_EQ("conf conf.obf", directory_.names());
    EXPECT_EQ(std::string::npos, directory_.read("conf.obf").find("hidden"));
    Store again;
    again.load(path.c_str());
    EXPECT_EQ("hidden", valueOf(again, "s", "secret"));
    EXPECT_EQ(1, again.isObfuscated("s", "secret"));
}

TEST_F(ZProperties, CompanionHasTheModeOfItsFile)
{
    std::string const path = load("[s]\n");
    chmod(path.c_str(), 0640);
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    struct stat status;
    ASSERT_EQ(0, stat(directory_.at("conf.obf").c_str(), &status));
    EXPECT_EQ(0640u, status.st_mode & 07777);
}

TEST_F(ZProperties, CompanionIsRemovedWithItsLastItem)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    store_.setValue("s", "secret", "");
    store_.store(nullptr);
    EXPECT_EQ("conf", directory_.names());
    EXPECT_EQ(0, store_.exists("configuration-database", "file"));
    Store again;
    again.load(path.c_str());
    EXPECT_EQ(0, again.isObfuscated("s"));
}

TEST_F(ZProperties, RelativePathGivesAnAbsoluteCompanionPath)
{
    char before[4096];
    ASSERT_NE(nullptr, getcwd(before, sizeof before));
    ASSERT_EQ(0, chdir(directory_.path().c_str()));
    store_.setValue("s", "secret", "hidden", 1);
    store_.store("conf");
    ASSERT_EQ(0, chdir(before));
    EXPECT_EQ(directory_.at("conf.obf"), valueOf(store_, "configuration-database", "file"));
    EXPECT_EQ("conf conf.obf", directory_.names());
}

TEST_F(ZProperties, NamedCompanionIsUsedAsWritten)
{
    directory_.write("elsewhere", compressed({"s", "secret", "old"}));
    std::string const path =
        load("[s]\n[configuration-database]\nfile = " + directory_.at("elsewhere") + "\n");
    EXPECT_EQ("old", valueOf(store_, "s", "secret"));
    store_.setValue("s", "secret", "new", 1);
    store_.store(nullptr);
    EXPECT_EQ("conf elsewhere", directory_.names());
    Store again;
    again.load(path.c_str());
    EXPECT_EQ("new", valueOf(again, "s", "secret"));
    // A store removes only a companion with the file's own name.
    store_.setValue("s", "secret", "");
    store_.store(nullptr);
    EXPECT_EQ("conf elsewhere", directory_.names());
    EXPECT_EQ(0, store_.exists("configuration-database", "file"));
}

TEST_F(ZProperties, EmptyEntryNamesNoCompanion)
{
    for (bool const isBlanked : {false, true}) {
        SCOPED_TRACE(isBlanked);
        std::string const path =
            directory_.write("conf", "[configuration-database]\nfile =\n\n[s]\n");
        Store store;
        store.load(path.c_str());
        if (isBlanked) {
            store.setValue("configuration-database", "file", "elsewhere");
            ZAbstractPropertyValuesIterator_6_0 entry(store, "configuration-database", "file",
                                                      zPropLocalStrings, zPropIterPlain);
            entry.nextValue();
            entry.changeValue("");
        }
        store.setValue("s", "secret", "hidden", 1);
        store.store(nullptr);
        EXPECT_EQ("[configuration-database]\nfile = " + path + ".obf\n\n[s]\n",
                  directory_.read("conf"));
        EXPECT_EQ("conf conf.obf", directory_.names());
        Store again;
        again.load(path.c_str());
        EXPECT_EQ("hidden", valueOf(again, "s", "secret"));
    }
}

TEST_F(ZProperties, EntrySetByTheCallerNamesTheCompanion)
{
    std::string const path = load("[s]\n");
    std::string const companion = directory_.at("mine");
    store_.setValue("configuration-database", "file", companion.c_str());
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    EXPECT_EQ("conf mine", directory_.names());
    Store again;
    again.load(path.c_str());
    EXPECT_EQ("hidden", valueOf(again, "s", "secret"));
}

TEST_F(ZProperties, WhitespaceAroundTheCompanionEntryIsIgnored)
{
    // Whitespace at the ends of an entry does not survive in the text.
    std::string const path = load("[s]\n");
    std::string const mine = directory_.at("mine");
    for (char const* const end : {" ", "\t", " \r"})
        for (std::string const& entry : {mine + end, end + mine}) {
            SCOPED_TRACE(entry);
            store_.setValue("configuration-database", "file", entry.c_str());
            store_.setValue("s", "secret", "hidden", 1);
            EXPECT_EQ("nothing", thrown([&] { store_.store(nullptr); }));
            EXPECT_EQ("conf mine", directory_.names());
            EXPECT_EQ(mine, valueOf(store_, "configuration-database", "file"));
            Store again;
            EXPECT_EQ("nothing", thrown([&] { again.load(path.c_str()); }));
            EXPECT_EQ("hidden", valueOf(again, "s", "secret"));
            std::filesystem::remove(mine);
        }
}

TEST_F(ZProperties, CompanionIsRemovedWithItsLastItemThoughAnotherFileWasStoredFirst)
{
    std::string const path = load("[s]\nk = a\n");
    std::string const other = directory_.at("other");
    for (bool const isEdited : {false, true}) {
        SCOPED_TRACE(isEdited);
        store_.setValue("s", "secret", "hidden", 1);
        store_.store(nullptr);
        store_.setValue("s", "secret", "");
        store_.store(other.c_str());
        EXPECT_EQ("conf conf.obf other", directory_.names());
        // Another program may have removed the entry, or the file.
        if (isEdited)
            std::filesystem::remove(path);
        store_.store(nullptr);
        EXPECT_EQ("conf other", directory_.names());
        EXPECT_EQ("[s]\nk = a\nsecret =\n\n[configuration-database]\n", directory_.read("conf"));
    }
    // The store no longer knows the companion: another program may have written a file of that
    // name.
    directory_.write("conf.obf", "foreign");
    store_.store(nullptr);
    EXPECT_EQ("foreign", directory_.read("conf.obf"));
}

TEST_F(ZProperties, StoreThatNeverReadTheFileRemovesItsCompanion)
{
    std::string const path = directory_.at("conf");
    Store first;
    first.setValue("s", "secret", "hidden", 1);
    first.store(path.c_str());
    ASSERT_EQ("conf conf.obf", directory_.names());
    store_.setValue("s", "k", "a");
    store_.store(path.c_str());
    EXPECT_EQ("conf", directory_.names());
    // A companion that the file does not name stays.
    directory_.write("conf.obf", compressed({"s", "secret", "old"}));
    store_.store(path.c_str());
    EXPECT_EQ("conf conf.obf", directory_.names());
    // A companion of another name stays, even if the file names it.
    directory_.write("conf", "[configuration-database]\nfile = " + directory_.at("foreign") + "\n");
    directory_.write("foreign", compressed({"s", "secret", "old"}));
    store_.store(path.c_str());
    EXPECT_EQ("conf conf.obf foreign", directory_.names());
}

TEST_F(ZProperties, EntryOfAnUnreadTextIsFoundAsALoadFindsIt)
{
    std::string const head = "[configuration-database]\n";
    std::string const entry = "file = " + directory_.at("conf.obf");
    std::string const longComment = "#" + std::string(8190, 'x');  // fills the buffer of a load
    struct Case {
        char const* name;
        std::string text;
        char const* names;  // of the files afterwards
    };
    Case const cases[] = {
        {"entry", head + entry + "\n", "conf"},
        {"header after a long comment", longComment + head + entry + "\n", "conf"},
        {"entry after a long comment", head + longComment + entry + "\n", "conf"},
        {"zero byte after the entry", head + entry + '\0' + "x\n", "conf"},
        {"invalid line", head + "invalid\n" + entry + "\n", "conf"},
        {"header in a comment", "#" + head + entry + "\n", "conf conf.obf"},
        {"entry in a comment", head + "#" + entry + "\n", "conf conf.obf"},
        {"entry of another stanza", head + "[s]\n" + entry + "\n", "conf conf.obf"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        directory_.write("conf.obf", compressed({"s", "secret", "old"}));
        std::string const path = directory_.write("conf", c.text);
        Store store;
        store.setValue("s", "k", "a");
        store.store(path.c_str());
        EXPECT_EQ(c.names, directory_.names());
    }
}

TEST_F(ZProperties, CopyOfAFileGetsItsOwnCompanion)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "first", 1);
    store_.store(nullptr);
    std::string const copy = directory_.write("copy", directory_.read("conf"));
    Store second;
    second.load(copy.c_str());
    EXPECT_EQ("first", valueOf(second, "s", "secret"));
    second.setValue("s", "secret", "second", 1);
    second.store(nullptr);
    EXPECT_EQ("conf conf.obf copy copy.obf", directory_.names());
    EXPECT_EQ("[s]\nk = a\n\n[configuration-database]\nfile = " + copy + ".obf\n",
              directory_.read("copy"));
    EXPECT_EQ(copy + ".obf", valueOf(second, "configuration-database", "file"));
    store_.reload(nullptr);
    EXPECT_EQ("first", valueOf(store_, "s", "secret"));
    second.reload(nullptr);
    EXPECT_EQ("second", valueOf(second, "s", "secret"));
    // Removing the last secret of the copy does not remove the secret of the original.
    second.setValue("s", "secret", "");
    second.store(nullptr);
    EXPECT_EQ("conf conf.obf copy", directory_.names());
    store_.reload(nullptr);
    EXPECT_EQ("first", valueOf(store_, "s", "secret"));
}

TEST_F(ZProperties, FileStoredByAnotherNameGetsItsOwnCompanion)
{
    std::string const path = load("[s]\nk = a\n");
    std::string const other = directory_.at("other");
    store_.setValue("s", "secret", "first", 1);
    store_.store(nullptr);
    store_.store(other.c_str());
    EXPECT_EQ("conf conf.obf other other.obf", directory_.names());
    store_.setValue("s", "secret", "second", 1);
    store_.store(nullptr);
    for (auto const& [name, secret] : {std::pair(path, "second"), std::pair(other, "first")}) {
        Store again;
        again.load(name.c_str());
        EXPECT_EQ(secret, valueOf(again, "s", "secret"));
        EXPECT_EQ(name + ".obf", valueOf(again, "configuration-database", "file"));
    }
}

TEST_F(ZProperties, CompanionIsKeptIfItsFileIsMissingOrTheSame)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    // The file was moved: no other file has that companion.
    std::string const moved = directory_.at("moved");
    std::filesystem::rename(path, moved);
    Store again;
    again.load(moved.c_str());
    again.setValue("s", "secret", "new", 1);
    again.store(nullptr);
    EXPECT_EQ("conf.obf moved", directory_.names());
    // The old name is a link to the file.
    ASSERT_EQ(0, symlink(moved.c_str(), path.c_str()));
    again.setValue("s", "secret", "newer", 1);
    again.store(nullptr);
    EXPECT_EQ("conf conf.obf moved", directory_.names());
    Store last;
    last.load(moved.c_str());
    EXPECT_EQ("newer", valueOf(last, "s", "secret"));
    // A directory of that name has no companion.
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    last.setValue("s", "secret", "newest", 1);
    last.store(nullptr);
    EXPECT_EQ("conf conf.obf moved", directory_.names());
}

TEST_F(ZProperties, CompanionIsReadOnce)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    std::string const second = directory_.write("second", "[t]\nk = b\n");
    std::string const third = directory_.write("third", "[u]\nk = c\n");
    store_.load(second.c_str());
    EXPECT_EQ("hidden,", valuesOf(store_, "s", "secret")) << "stored before";
    Store again;
    again.load(path.c_str());
    again.load(second.c_str());
    EXPECT_EQ("hidden,", valuesOf(again, "s", "secret")) << "read before";
    EXPECT_EQ("b", valueOf(again, "t", "k"));
    Store copy(again);
    copy.load(third.c_str());
    EXPECT_EQ("hidden,", valuesOf(copy, "s", "secret")) << "read by the copied store";
    // A failed load changes nothing; reload() reads the companion again.
    directory_.write("broken", "[v]\nbroken\n");
    EXPECT_NE("nothing", thrown([&] { again.load(directory_.at("broken").c_str()); }));
    EXPECT_NE("nothing", thrown([&] { again.reload(directory_.at("broken").c_str()); }));
    again.load(third.c_str());
    EXPECT_EQ("hidden,", valuesOf(again, "s", "secret")) << "after failures";
    again.reload(nullptr);
    EXPECT_EQ("hidden,", valuesOf(again, "s", "secret")) << "read again";
}

TEST_F(ZProperties, CompanionIsReadAgainForEachTextThatNamesIt)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    struct Case {
        char const* name;
        std::function<void(ZStanzaFileProperties_6_0&)> remove;
    };
    Case const cases[] = {
        {"all stanzas removed",
         [](ZStanzaFileProperties_6_0& store) {
             store.deleteStanza("s");
             store.deleteStanza("configuration-database");
         }},
        {"another obfuscated value remains",
         [](ZStanzaFileProperties_6_0& store) {
             store.deleteStanza("s");
             store.deleteStanza("configuration-database");
             store.setValue("t", "other", "value", 1);
         }},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZStanzaFileProperties_6_0 store(path.c_str(), 1);
        c.remove(store);
        store.load(nullptr);
        EXPECT_EQ("hidden,", valuesOf(store, "s", "secret"));
        store.store(nullptr);
        ZStanzaFileProperties_6_0 const again(path.c_str(), 1);
        EXPECT_EQ("hidden", valueOf(again, "s", "secret"));
    }
    // A derived store may empty its cache itself.
    class Emptied final : public Store {
    public:
        void empty() { cache().clear(); }
    };
    Emptied store;
    store.load(path.c_str());
    store.empty();
    store.load(nullptr);
    EXPECT_EQ("hidden,", valuesOf(store, "s", "secret"));
}

TEST_F(ZProperties, DamagedCompanionsAreRefusedAndChangeNothing)
{
    std::string const companion = directory_.at("conf.obf");
    std::string const whole = compressed({"s", "secret", "value"});
    struct Case {
        char const* name;
        std::string contents;
        std::string expected;
    };
    std::string const data = "data " + companion + " 0 ";
    Case const cases[] = {
        {"empty", "", "io " + companion + " mapFile() 22"},
        {"truncated", whole.substr(0, whole.size() - 5), data},
        {"not compressed", "not zlib data", data},
    };
    load("[s]\nk = a\n");
    std::string const path = directory_.write(
        "conf", "[s]\nk = b\n[configuration-database]\nfile = " + companion + "\n");
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        directory_.write("conf.obf", c.contents);
        EXPECT_EQ(c.expected, thrown([&] { store_.reload(nullptr); }));
        EXPECT_EQ("a", valueOf(store_, "s", "k"));
    }
    std::filesystem::remove(companion);
    mkdir(companion.c_str(), 0700);
    EXPECT_EQ("io " + companion + " mapFile() 19", thrown([&] { store_.reload(nullptr); }));
    EXPECT_EQ("a", valueOf(store_, "s", "k"));
}

TEST_F(ZProperties, CompanionThatExpandsToTooMuchIsRefused)
{
    std::string const companion = directory_.at("conf.obf");
    // A block that expands to 64 KiB, many times.
    z_stream stream = {};
    ASSERT_EQ(Z_OK, deflateInit(&stream, 9));
    std::string zeros(1 << 16, '\0');
    std::string contents;
    std::string room(1 << 16, '\0');
    std::string block;
    for (int i = 0; i < 2; ++i) {
        stream.next_in = reinterpret_cast<Bytef*>(zeros.data());
        stream.avail_in = static_cast<uInt>(zeros.size());
        stream.next_out = reinterpret_cast<Bytef*>(room.data());
        stream.avail_out = static_cast<uInt>(room.size());
        ASSERT_EQ(Z_OK, deflate(&stream, Z_FULL_FLUSH));
        block.assign(room.data(), room.size() - stream.avail_out);
        contents += block;
    }
    deflateEnd(&stream);
    for (int i = 0; i < (300 << 20) / (1 << 16); ++i)
        contents += block;
    directory_.write("conf.obf", contents);
    std::string const path =
        directory_.write("conf", "[configuration-database]\nfile = " + companion + "\n");
    EXPECT_EQ("data " + companion + " 0 ", thrown([&] { store_.load(path.c_str()); }));
    EXPECT_EQ(0, store_.count());
}

TEST_F(ZProperties, FileThatOtherUsersCanWriteMayNameOnlyItsOwnCompanion)
{
    std::string const decoy = directory_.write("decoy", compressed({"s", "secret", "stolen"}));
    std::string const path =
        directory_.write("conf", "[s]\n[configuration-database]\nfile = " + decoy + "\n");
    chmod(path.c_str(), 0666);
    EXPECT_EQ("io " + decoy + " access() 1", thrown([&] { store_.load(path.c_str()); }));
    store_.setValue("configuration-database", "file", decoy.c_str());
    store_.setValue("s", "secret", "mine", 1);
    EXPECT_EQ("io " + decoy + " access() 1", thrown([&] { store_.store(path.c_str()); }));
    EXPECT_EQ(compressed({"s", "secret", "stolen"}), directory_.read("decoy"));
    // The file's own companion is valid if it is a regular file of the same owner.
    store_.setValue("configuration-database", "file", directory_.at("conf.obf").c_str());
    store_.store(path.c_str());
    Store again;
    again.load(path.c_str());
    EXPECT_EQ("mine", valueOf(again, "s", "secret"));
    std::filesystem::remove(directory_.at("conf.obf"));
    ASSERT_EQ(0, symlink(decoy.c_str(), directory_.at("conf.obf").c_str()));
    EXPECT_EQ("io " + directory_.at("conf.obf") + " access() 1",
              thrown([&] { again.reload(nullptr); }));
    std::filesystem::remove(directory_.at("conf.obf"));
    ASSERT_EQ(0, link(decoy.c_str(), directory_.at("conf.obf").c_str()));
    EXPECT_EQ("io " + directory_.at("conf.obf") + " access() 1",
              thrown([&] { again.reload(nullptr); }));
}

TEST_F(ZProperties, CompanionThatMayBelongToAnotherFileIsNotRemoved)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    store_.setValue("s", "secret", "");
    // The companion has a second name, and other users can write the file.
    ASSERT_EQ(0, link(directory_.at("conf.obf").c_str(), directory_.at("second").c_str()));
    chmod(path.c_str(), 0666);
    store_.store(nullptr);
    EXPECT_EQ("conf conf.obf second", directory_.names());
    EXPECT_EQ("[s]\nk = a\nsecret =\n\n[configuration-database]\n", directory_.read("conf"));
}

TEST_F(ZProperties, ForeignFileIsNotReadAsACompanion)
{
    std::string const foreign = directory_.write("foreign", "root:x:0:0\n");
    std::string const path = load("[s]\n");
    for (std::string const& name : {foreign, path, directory_.path()}) {
        SCOPED_TRACE(name);
        store_.setValue("configuration-database", "file", name.c_str());
        store_.setValue("s", "secret", "hidden", 1);
        EXPECT_EQ("io " + name + " access() 1", thrown([&] { store_.store(nullptr); }));
        store_.setValue("s", "secret", "");
        EXPECT_EQ("nothing", thrown([&] { store_.store(nullptr); }));
    }
    EXPECT_EQ("root:x:0:0\n", directory_.read("foreign"));
    EXPECT_EQ("conf foreign", directory_.names());
}

TEST_F(ZProperties, CopyReplacesTheFileIfTheOriginalDoes)
{
    std::string const path = load("[s]\nk = a\n");
    for (int const replacing : {0, 1}) {
        SCOPED_TRACE(replacing);
        store_.setReplacing(replacing);
        Store copy(store_);
        EXPECT_EQ(replacing, copy.isReplacing());
        struct stat before = {};
        struct stat after = {};
        ASSERT_EQ(0, stat(path.c_str(), &before));
        copy.setValue("s", "k", replacing != 0 ? "b" : "c");
        copy.store(nullptr);
        ASSERT_EQ(0, stat(path.c_str(), &after));
        EXPECT_EQ(replacing != 0, before.st_ino != after.st_ino);
    }
}

TEST_F(ZProperties, LimitOfZeroRefusesFilesThatAreNotEmpty)
{
    struct RestoredLimit {
        unsigned long const before = ZProperties_6_0::maxFileSize();
        ~RestoredLimit() { ZProperties_6_0::setMaxFileSize(before); }
    } const restored;
    std::string const path = load("[s]\nk = a\n");
    std::string const empty = directory_.write("empty", "");
    ZProperties_6_0::setMaxFileSize(0);
    EXPECT_EQ("io " + path + " read() 27", thrown([&] { store_.reload(nullptr); }));
    Store other;
    EXPECT_EQ("nothing", thrown([&] { other.load(empty.c_str()); }));
}

TEST_F(ZProperties, FileWithTheNameOfTheCompanionIsNotOverwritten)
{
    std::string const stanzas = "[other]\nk = v\n";
    std::string const companion = directory_.write("conf.obf", stanzas);
    std::string const refused = "io " + companion + " access() 17";
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    for (int const replacing : {0, 1}) {
        SCOPED_TRACE(replacing);
        store_.setReplacing(replacing);
        // The second call must not mistake the file for a companion that the store wrote.
        EXPECT_EQ(refused, thrown([&] { store_.store(nullptr); }));
        EXPECT_EQ(refused, thrown([&] { store_.store(nullptr); }));
    }
    EXPECT_EQ(1, store_.isModified());
    EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
    EXPECT_EQ(stanzas, directory_.read("conf.obf"));
    EXPECT_EQ("conf conf.obf", directory_.names());

    // A file is not created either if it cannot have its companion.
    directory_.write("new.obf", stanzas);
    Store other;
    other.setValue("s", "secret", "hidden", 1);
    EXPECT_EQ("io " + directory_.at("new.obf") + " access() 17",
              thrown([&] { other.store(directory_.at("new").c_str()); }));
    EXPECT_EQ("conf conf.obf new.obf", directory_.names());

    std::filesystem::remove(companion);
    EXPECT_EQ("nothing", thrown([&] { store_.store(nullptr); }));
    EXPECT_EQ("hidden,", valuesOf(store_, "s", "secret"));
}

TEST_F(ZProperties, FirstCompanionReplacesOnlyAFileThatAStoreCanHaveWritten)
{
    struct Case {
        char const* name;
        std::string contents;
        std::string expected;
    };
    std::string const refused = "io " + directory_.at("conf.obf") + " access() 17";
    Case const cases[] = {
        {"empty", "", "nothing"},
        {"earlier companion", compressed({"s", "secret", "old"}), "nothing"},
        {"one byte", "x", refused},
        {"Java property file", "x = 1\n", refused},
        {"comment", "# mine\n", refused},
        {"zero bytes", std::string(20, '\0'), refused},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        std::string const path = directory_.write("conf", "[s]\n");
        directory_.write("conf.obf", c.contents);
        Store store;
        store.load(path.c_str());
        store.setValue("s", "secret", "hidden", 1);
        EXPECT_EQ(c.expected, thrown([&] { store.store(nullptr); }));
        EXPECT_EQ(c.expected == "nothing", directory_.read("conf.obf") != c.contents);
    }
}

TEST_F(ZProperties, DamagedCompanionThatTheFileNamesIsReplaced)
{
    std::string const companion = directory_.write("conf.obf", "damaged");
    for (std::string const& entry : {companion, directory_.path() + "/./conf.obf"}) {
        SCOPED_TRACE(entry);
        directory_.write("conf.obf", "damaged");
        std::string const path =
            directory_.write("conf", "[configuration-database]\nfile = " + entry + "\n");
        Store store;
        store.setValue("s", "secret", "hidden", 1);
        EXPECT_EQ("nothing", thrown([&] { store.store(path.c_str()); }));
        Store again;
        again.load(path.c_str());
        EXPECT_EQ("hidden,", valuesOf(again, "s", "secret"));
    }
}

TEST_F(ZProperties, DirectoryOfALinkToASharedFileNeedNotBeWritable)
{
    // The companion of a file that others can write is created next to the file, not the link.
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    chmod(directory_.path().c_str(), 0755);
    std::filesystem::create_directory(directory_.at("shared"));
    ASSERT_EQ(0, chown(directory_.at("shared").c_str(), 65534, 65534));
    std::string const file = directory_.write("shared/conf", "[s]\nk = v\n");
    ASSERT_EQ(0, chown(file.c_str(), 65534, 65534));
    ASSERT_EQ(0, chmod(file.c_str(), 0660));
    std::string const link = directory_.at("link");
    std::filesystem::create_symlink(file, link);
    asNobody([&] {
        Store store;
        store.load(link.c_str());
        store.setValue("s", "password", "secret", 1);
        store.store(nullptr);
        return std::filesystem::exists(file + ".obf");
    });
}

TEST_F(ZProperties, CompanionDirectoryIsChecked)
{
    std::string const path = load("[s]\n");
    store_.setValue("configuration-database", "file", "/no/such/companion");
    store_.setValue("s", "secret", "hidden", 1);
    EXPECT_EQ("io /no/such access() 2", thrown([&] { store_.store(nullptr); }));
    EXPECT_EQ("[s]\n", directory_.read("conf"));
}

TEST_F(ZProperties, StoreFailsIfItCannotOpenTheDirectoryOfTheCompanionToRemove)
{
    // Otherwise a companion of the file itself would keep the secret.
    chmod(directory_.path().c_str(), 0777);
    std::string const locked = directory_.at("locked");
    asNobody([&] {
        mkdir(locked.c_str(), 0700);
        std::string const directory = locked + "/..";
        std::string const path = directory_.write(
            "conf", "[configuration-database]\nfile = " + directory + "/conf.obf\n");
        directory_.write("conf.obf", compressed({"s", "secret", "hidden"}));
        Store loaded;
        loaded.load(path.c_str());
        loaded.setValue("s", "secret", "");
        Store fresh;
        fresh.setValue("s", "k", "v");
        chmod(locked.c_str(), 0);
        for (Store* const store : {&loaded, &fresh}) {
            EXPECT_EQ("io " + directory + " access() 13",
                      thrown([&] { store->store(path.c_str()); }));
            EXPECT_EQ(compressed({"s", "secret", "hidden"}), directory_.read("conf.obf"));
        }
        chmod(locked.c_str(), 0700);
        loaded.store(nullptr);
        EXPECT_EQ("conf locked", directory_.names());
        return !testing::Test::HasFailure();
    });
}
