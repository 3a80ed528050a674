// Stores with the attribute keepLines: the text after each kind of change, byte for byte.
#include <Z/ZException.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZUTF8String.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "EachAllocation.h"
#include "KeptLinesModel.h"
#include "KeptLinesStore.h"
#include "LinearTime.h"

TEST_F(KeptLines, AChangedValueKeepsTheRestOfItsLine)
{
    expectChanges({
        {"spaces", "[s]\n  k   =   v  \nl=w\n", setTo("k", "x"), "[s]\n  k   =   x  \nl=w\n"},
        {"no spaces", "[s]\nk=v\n", setTo("k", "x"), "[s]\nk=x\n"},
        {"tabs", "[s]\n\tk\t=\tv\n", setTo("k", "x y"), "[s]\n\tk\t=\tx y\n"},
        {"CR LF", "[s]\r\nk = v\r\nl = w\r\n", setTo("k", "x"), "[s]\r\nk = x\r\nl = w\r\n"},
        {"whitespace at the end", "[s]\nk = v  \t\n", setTo("k", "xx"), "[s]\nk = xx  \t\n"},
        {"a form feed at the end", "[s]\nk = v   \f\n", setTo("k", "xx"), "[s]\nk = xx   \f\n"},
        {"no line ending", "[s]\nk = v", setTo("k", "x"), "[s]\nk = x"},
        {"the same value", "[s]\n k=v \n", setTo("k", "v"), "[s]\n k=v \n"},
        {"a header with a tail", "#c\n\n [s] tail\n#d\nk=v\n", setTo("k", "x"),
         "#c\n\n [s] tail\n#d\nk=x\n"},
        {"a value with signs", "[s]\nk = a = b # c\n", setTo("k", "d = e # f"),
         "[s]\nk = d = e # f\n"},
        {"removed value", "[s]\nk = v\nl = w\n", setTo("k", ""), "[s]\nk = \nl = w\n"},
        {"first value", "[s]\nk =\nl=\nm = \n",
         [](Store& store) {
             for (char const* key : {"k", "l", "m"})
                 store.setValue("s", key, "v");
         },
         "[s]\nk = v\nl=v\nm = v\n"},
    });
}

TEST_F(KeptLines, ANewKeyFollowsItsTemplateOrTheLastKey)
{
    expectChanges({
        {"after the last key", "[s]\n k=v\n# end\n\n[t]\n", setTo("n", "x"),
         "[s]\n k=v\n n=x\n# end\n\n[t]\n"},
        {"after the header", "[s]\n[t]\n  k: =v\n", setTo("n", "x"), "[s]\n  n =x\n[t]\n  k: =v\n"},
        {"after a file without keys", "[s]\n", setTo("n", "x"), "[s]\nn = x\n"},
        {"after a line without an ending", "[s]\nk = v", setTo("n", "x"), "[s]\nk = v\nn = x"},
        {"CR LF without a last ending", "[s]\r\nk=v", setTo("n", "x"), "[s]\r\nk=v\r\nn=x"},
        {"in the column of its neighbours", "[s]\na      = 1\nlonger = 2\n", setTo("new", "3"),
         "[s]\na      = 1\nlonger = 2\nnew    = 3\n"},
        {"longer than the column", "[s]\na   = 1\nbcd = 2\n", setTo("longer", "3"),
         "[s]\na   = 1\nbcd = 2\nlonger = 3\n"},
        {"at its template", "[s]\n#n=5\nk = v\n", setTo("n", "x"), "[s]\n#n=5\nn=x\nk = v\n"},
        {"at a template in a block", "[s]\n# first\n# n   = 5\n# o = 6\n\nk=v\n", setTo("n", "x"),
         "[s]\n# first\n# n   = 5\nn   = x\n# o = 6\n\nk=v\n"},
        {"without a value", "[s]\nk=v\n", setTo("n", ""), "[s]\nk=v\nn=\n"},
        {"without a value, with spaces", "[s]\nk = v\n", setTo("n", ""), "[s]\nk = v\nn =\n"},
        {"two keys", "[s]\nk=v\n#t\n",
         [](Store& store) {
             store.setValue("s", "n", "1");
             store.setValue("s", "o", "2");
         },
         "[s]\nk=v\nn=1\no=2\n#t\n"},
        {"instead of the last key", "[s]\nk=v\n#t\nl=w\n",
         [](Store& store) {
             store.deleteKey("s", "l");
             store.setValue("s", "n", "1");
         },
         "[s]\nk=v\nn=1\n#t\n"},
    });
}

TEST_F(KeptLines, NewKeysReplaceARemovedKeyWithTheValueOfTheLast)
{
    expectChanges({
        {"the last", "[s]\nk1=v0\n",
         [](Store& store) {
             store.deleteKey("s", "k1");
             store.setValue("s", "k2", "v2");
             store.setValue("s", "k0", "v0");
         },
         "[s]\nk2=v2\nk0=v0\n"},
        {"without the stanza's blank line", "[r]\n\n[s]\nk1=v0\n\n",
         [](Store& store) {
             store.deleteKey("s", "k1");
             store.addValue("s", "k2", "v2", 0);
             ZStanzaValueIterator_6_0 values(store, "s", "k0", zPropLocalStrings, zPropIterPlain);
             values.addValue("v0");
         },
         "[r]\n\n[s]\nk2=v2\nk0=v0\n\n"},
    });
}

TEST_F(KeptLines, NewKeysAtTemplatesTakeLinearTime)
{
    EXPECT_TRUE(takesLinearTime(500, [](size_t count) {
        std::string text = "[s]\n";
        for (size_t i = 0; i < count; ++i)
            text += "#key" + std::to_string(i) + "=\n# help\n\n";
        auto kept = std::make_shared<KeptLinesCache>(text + "# end\nlast=1\n");
        for (size_t i = 0; i < count; ++i)
            kept->set({"s", "key" + std::to_string(i)}, "v");
        return [kept] { EXPECT_LT(0u, kept->text().size()); };
    }));
}

TEST_F(KeptLines, ValuesOfAKeyKeepTheirLines)
{
    std::string const abc = "[s]\nk = a\n# c\n k=b\nl = 1\nk  =  c\n";
    expectChanges({
        {"one changed", abc, setAll("k", {"a", "x", "c"}),
         "[s]\nk = a\n# c\n k=x\nl = 1\nk  =  c\n"},
        {"the first removed", abc, setAll("k", {"b", "c"}), "[s]\n# c\n k=b\nl = 1\nk  =  c\n"},
        {"the last removed", abc, setAll("k", {"a", "b"}), "[s]\nk = a\n# c\n k=b\nl = 1\n"},
        {"one appended", abc, setAll("k", {"a", "b", "c", "d"}), abc + "k  =  d\n"},
        {"one inserted", abc, setAll("k", {"a", "x", "b", "c"}),
         "[s]\nk = a\nk = x\n# c\n k=b\nl = 1\nk  =  c\n"},
        {"one before the first", abc, setAll("k", {"x", "a", "b", "c"}),
         "[s]\nk = x\nk = a\n# c\n k=b\nl = 1\nk  =  c\n"},
        {"swapped", abc, setAll("k", {"b", "a", "c"}), "[s]\n# c\n k=b\n k=a\nl = 1\nk  =  c\n"},
        {"all replaced by one", abc, setTo("k", "x"), "[s]\nk = x\n# c\nl = 1\n"},
        {"all replaced by the second", abc, setTo("k", "b"), "[s]\n# c\n k=b\nl = 1\n"},
        {"removed", abc, removeKey("k"), "[s]\n# c\nl = 1\n"},
        {"none left", abc, setTo("k", ""), "[s]\nk = \n# c\nl = 1\n"},
        {"an empty line survives", "[s]\nk = a\nk =\nl = 1\n", setTo("l", "2"),
         "[s]\nk = a\nk =\nl = 2\n"},
        {"an empty line remains", "[s]\nk = a\nk =\nl = 1\n", setTo("k", ""), "[s]\nk =\nl = 1\n"},
        {"an empty line is removed with its key", "[s]\nk = a\nk =\nl = 1\n", removeKey("k"),
         "[s]\nl = 1\n"},
        {"new values in a last line without an ending", "[s]\nk =", setAll("k", {"a", "b"}),
         "[s]\nk = a\nk = b"},
        {"new values of a key without values", "[s]\nk =\nl = 1\n", setAll("k", {"a", "b"}),
         "[s]\nk = a\nk = b\nl = 1\n"},
    });
}

TEST_F(KeptLines, ARemovedKeyTakesNoOtherLine)
{
    expectChanges({
        {"comments and blank lines", "[s]\n# c\nk = v\n\nl = w\n", removeKey("k"),
         "[s]\n# c\n\nl = w\n"},
        {"the last line", "[s]\nk = v\nl = w", removeKey("l"), "[s]\nk = v"},
        {"the last line with CR LF", "[s]\r\nk = v\r\nl = w", removeKey("l"), "[s]\r\nk = v"},
        {"the only key", "[s]\nk = v\n", removeKey("k"), "[s]\n"},
    });
}

TEST_F(KeptLines, StanzasAreAppendedAndRemoved)
{
    expectChanges({
        {"appended", "[s]\nk=v\n", [](Store& store) { store.setValue("t", "l", "w"); },
         "[s]\nk=v\n\n[t]\nl=w\n"},
        {"appended after a blank line", "[s]\r\n k=v\r\n\r\n",
         [](Store& store) { store.setValue("t", "l", "w"); }, "[s]\r\n k=v\r\n\r\n[t]\r\n l=w\r\n"},
        {"appended without an ending", "[s]\nk = v", [](Store& store) { store.addStanza("t"); },
         "[s]\nk = v\n\n[t]"},
        {"two", "[s]\n",
         [](Store& store) {
             store.addStanza("t");
             store.setValue("u", "k", "v");
         },
         "[s]\n\n[t]\n\n[u]\nk = v\n"},
        {"the first", "", [](Store& store) { store.setValue("t", "l", "w"); }, "[t]\nl = w\n"},
        {"removed", "# f\n\n[s]\nk=v\n#x\n\n# t\n [t] tail\nl  =w\n",
         [](Store& store) { store.deleteStanza("s"); }, "# f\n\n# t\n [t] tail\nl  =w\n"},
        {"the last removed", "[s]\nk=v\n\n[t]\nl=w", [](Store& store) { store.deleteStanza("t"); },
         "[s]\nk=v"},
        {"the last removed, below a blank line", "[s]\nk=v\n\n[t]\nl=w\n",
         [](Store& store) { store.deleteStanza("t"); }, "[s]\nk=v\n\n"},
        {"a comment as in a stanza that is removed and added", "[s]\n# c\nk = v\n\n[t]\nl = w\n",
         [](Store& store) {
             store.deleteStanza("s");
             store.setValue("s", "k", "v");
             store.addEntryComment("t", "n", "c");
         },
         "[t]\nl = w\n# c\nn =\n\n[s]\nk = v\n"},
        {"a new stanza, and a key of the last", "[s]\n",
         [](Store& store) {
             store.setValue("t", "l", "w");
             store.deleteStanza("s");
             store.setValue("s", "k", "v");
         },
         "[t]\nl = w\n\n[s]\nk = v\n"},
        {"removed and added", "[s]\nk=v\n#x\n[t]\nl=w\n",
         [](Store& store) {
             store.deleteStanza("s");
             store.setValue("s", "k", "u");
         },
         "#x\n[t]\nl=w\n\n[s]\nk=u\n"},
    });
}

TEST_F(KeptLines, CommentsHaveTheStyleOfTheirNeighbours)
{
    expectChanges({
        {"of a key", "[s]\nk = v\n  # one\n  l = w\n",
         [](Store& store) { store.addEntryComment("s", "l", "two"); },
         "[s]\nk = v\n  # one\n  # two\n  l = w\n"},
        {"of a key after a key", "[s]\r\n# one\r\nk = v\r\nl = w\r\n",
         [](Store& store) { store.addEntryComment("s", "l", "#two"); },
         "[s]\r\n# one\r\nk = v\r\n# two\r\nl = w\r\n"},
        {"without neighbours", "[s]\nk = v\n",
         [](Store& store) { store.addEntryComment("s", "k", "# one"); }, "[s]\n# one\nk = v\n"},
        {"of a new key", "[s]\nk=v\n",
         [](Store& store) { store.addEntryComment("s", "n", "#one"); }, "[s]\nk=v\n#one\nn=\n"},
        {"of the file", "#one\n#two\n\n[s]\nk = v\n",
         [](Store& store) { store.addFileComment("# three"); },
         "#one\n#two\n# three\n\n[s]\nk = v\n"},
        {"the first of the file", "[s]\nk = v\n",
         [](Store& store) { store.addFileComment("# one\n# two"); },
         "# one\n# two\n\n[s]\nk = v\n"},
        {"of a stanza", "[s]\nk = v\n[t]\n#x\n",
         [](Store& store) { store.addStanzaComment("t", "of t"); }, "[s]\nk = v\n#of t\n[t]\n#x\n"},
        {"of a new stanza", "# one\n[s]\nk = v\n",
         [](Store& store) {
             store.addStanza("t");
             store.addStanzaComment("t", "two");
             store.setValue("t", "k", "v");
         },
         "# one\n[s]\nk = v\n\n# two\n[t]\nk = v\n"},
        {"equal to another", "[s]\n# c\nk = v\n# c\nl = w\nm = x\n",
         [](Store& store) { store.addEntryComment("s", "m", "# c"); },
         "[s]\n# c\nk = v\n# c\nl = w\n# c\nm = x\n"},
    });
}

TEST_F(KeptLines, ACommentWithoutItsMarkGetsIt)
{
    KeptLinesCache kept("[s]\nk=v\n");
    kept.cache.addFileComment("of the file");
    EXPECT_EQ("# of the file\n\n[s]\nk=v\n", kept.text());
}

TEST_F(KeptLines, LinesThatAreNotReadCompletelySurvive)
{
    using namespace std::string_literals;
    std::string tail = "t = ";
    while (tail.size() < 9000)
        tail += "=x";
    tail += "\nu = a\0hidden\n"s;
    expectChanges({
        {"a change elsewhere", "[s]\nk=v\n" + tail, setTo("k", "x"), "[s]\nk=x\n" + tail},
        {"the line itself", "[s]\nu = a\0hidden\n"s, setTo("u", "b"), "[s]\nu = b\0hidden\n"s},
    });
}

TEST_F(KeptLines, AStoreWithoutAChangeWritesNothing)
{
    std::string const path = load("\n [s] x\n  k   = v\n\tk=\n#\n");
    timespec const before = changeTime();
    for (int const replacing : {0, 1}) {
        store_.setReplacing(replacing);
        store_.store(nullptr);
        store_.setValue("s", "k", "v");
        store_.store(nullptr);
        EXPECT_EQ("conf", namesIn(directory_.path()));
        EXPECT_EQ(before.tv_sec, changeTime().tv_sec);
        EXPECT_EQ(before.tv_nsec, changeTime().tv_nsec);
        EXPECT_EQ(0, store_.isModified());
    }
}

TEST_F(KeptLines, AStoreWithoutAChangeWritesNoCompanion)
{
    auto const inode = [this] {
        struct stat status = {};
        stat(directory_.at("conf.obf").c_str(), &status);
        return status.st_ino;
    };
    load("[s]\nk=v\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    timespec const before = changeTime();
    ino_t const companion = inode();
    for (int const replacing : {0, 1}) {
        store_.setReplacing(replacing);
        store_.setValue("s", "secret", "hidden", 1);
        store_.store(nullptr);
        EXPECT_EQ(before.tv_nsec, changeTime().tv_nsec);
        EXPECT_EQ(companion, inode());
    }
    store_.setValue("s", "secret", "other", 1);
    store_.store(nullptr);
    EXPECT_EQ("other,", readBack("s", "secret"));
}

TEST_F(KeptLines, AnEmptyStoreCreatesItsFile)
{
    store_.store(directory_.at("conf").c_str());
    EXPECT_EQ("", directory_.read("conf"));
    EXPECT_EQ("conf", namesIn(directory_.path()));
}

TEST_F(KeptLines, AStoreThatWasNotLoadedKeepsTheLinesThatItStored)
{
    store_.setValue("s", "k", "v");
    store_.store(directory_.at("conf").c_str());
    EXPECT_EQ("\n[s]\nk = v\n", directory_.read("conf"));
    store_.setValue("s", "k", "w");
    EXPECT_EQ("\n[s]\nk = w\n", stored());
}

TEST_F(KeptLines, ManyStoresInARowChangeOneLineEach)
{
    load("# f\n[s]\n a=1\n\n b=2\n");
    store_.setValue("s", "a", "3");
    EXPECT_EQ("# f\n[s]\n a=3\n\n b=2\n", stored());
    store_.setValue("s", "c", "4");
    EXPECT_EQ("# f\n[s]\n a=3\n\n b=2\n c=4\n", stored());
    store_.addEntryComment("s", "a", "x");
    EXPECT_EQ("# f\n[s]\n# x\n a=3\n\n b=2\n c=4\n", stored());
    store_.deleteKey("s", "b");
    EXPECT_EQ("# f\n[s]\n# x\n a=3\n\n c=4\n", stored());
    store_.setValue("s", "b", "5");
    EXPECT_EQ("# f\n[s]\n# x\n a=3\n\n c=4\n b=5\n", stored());
}

TEST_F(KeptLines, CopiesReloadsAndOtherNamesKeepLines)
{
    load("[s]\n  k=v\n");
    Store copy(store_);
    copy.setValue("s", "k", "x");
    copy.store(directory_.at("copy").c_str());
    EXPECT_EQ("[s]\n  k=x\n", directory_.read("copy"));
    EXPECT_EQ("[s]\n  k=v\n", directory_.read("conf"));

    directory_.write("conf", "[s]\n\tk=w\n");
    store_.reload(nullptr);
    store_.setValue("s", "k", "x");
    EXPECT_EQ("[s]\n\tk=x\n", stored());

    store_.setValue("s", "k", "y");
    directory_.write("other", "[other]\nsome = text\n");
    store_.store(directory_.at("other").c_str());
    EXPECT_EQ("[s]\n\tk=y\n", directory_.read("other"));
}

TEST_F(KeptLines, AFileThatIsAddedToAStoreIsKeptToo)
{
    directory_.write("more", "[t]\n\tl=w\n");
    load("[s]\n  k=v");
    store_.load(directory_.at("more").c_str());
    store_.setValue("t", "l", "x");
    EXPECT_EQ("[s]\n  k=v\n[t]\n\tl=x\n", stored());
}

TEST_F(KeptLines, AStanzaThatReturnsWithAnotherFileHasOneHeader)
{
    for (char const* second : {"[s]\nl=w\n", "[s] again\n  k  =  v\n"}) {
        std::string const path = load("[s]\nk=v\n[t]\nm=1\n");
        std::string const other = directory_.write("other", second);
        store_.deleteStanza("s");
        store_.load(other.c_str());
        EXPECT_EQ(std::string("[t]\nm=1\n") + second, stored());
        store_.reload(nullptr);
        EXPECT_EQ("1,", valuesOf(store_, "t", "m"));
        store_.deleteStanza("s");
        store_.deleteStanza("t");
    }
}

TEST_F(KeptLines, AValueThatWouldNotReadBackIsRefusedAndChangesNothing)
{
    load("[s]\nk=v\nl=w\n");
    for (char const* value : {" x", "x\t"}) {
        SCOPED_TRACE(value);
        store_.setValue("s", "k", value);
        try {
            store_.store(nullptr);
            ADD_FAILURE();
        } catch (ZPropertiesInvalidValueException_6_0 const& e) {
            EXPECT_STREQ(directory_.at("conf").c_str(), e.propFile().getChars());
            EXPECT_STREQ("s", e.category().getChars());
            EXPECT_STREQ("k", e.key().getChars());
            EXPECT_STREQ(value, e.value().getChars());
        }
        EXPECT_EQ("[s]\nk=v\nl=w\n", directory_.read("conf"));
        EXPECT_EQ(1, store_.isModified());
    }
    store_.setValue("s", "k", "x");
    EXPECT_EQ("[s]\nk=x\nl=w\n", stored());
}

TEST_F(KeptLines, ObfuscatedValuesTouchOnlyTheirLines)
{
    load("[s]\n  k=v\nsecret =\n");
    store_.setValue("s", "secret", "hidden", 1);
    std::string const entry =
        "\n[configuration-database]\n  file=" + directory_.at("conf") + ".obf\n";
    EXPECT_EQ("[s]\n  k=v\nsecret =\n" + entry, stored());
    store_.setValue("s", "k", "x");
    EXPECT_EQ("[s]\n  k=x\nsecret =\n" + entry, stored());
    store_.reload(nullptr);
    EXPECT_EQ("hidden,", valuesOf(store_, "s", "secret"));
    store_.deleteKey("s", "secret");
    EXPECT_EQ("[s]\n  k=x\n\n[configuration-database]\n", stored());
}

TEST_F(KeptLines, APlainValueThatBecomesObfuscatedLosesItsLine)
{
    load("[s]\n  k=v\n  l=w\n");
    store_.deleteKey("s", "k");
    store_.setValue("s", "k", "hidden", 1);
    store_.store(nullptr);
    EXPECT_EQ(0u, directory_.read("conf").find("[s]\n  l=w\n\n[configuration-database]\n"));
}

TEST_F(KeptLines, ADerivedCacheKeepsLines)
{
    std::string const path = directory_.write("conf", "#c\n[s]  x\n  k=v\nk  =w\nl=1\n");
    ZProperties_6_0 store(new CountingCache);
    store.setAttributes(ZPCache_6_0::keepLines, nullptr);
    store.load(path.c_str());
    store.setValue("s", "l", "2");
    store.store(nullptr);
    EXPECT_EQ("#c\n[s]  x\n  k=v\nk  =w\nl=2\n", directory_.read("conf"));
    store.deleteKey("s", "l");
    store.setValue("s", "n", "3");
    store.store(nullptr);
    EXPECT_EQ("#c\n[s]  x\n  k=v\nk  =w\nn  =3\n", directory_.read("conf"));
}

TEST_F(KeptLines, AFailedAllocationLosesNothing)
{
    std::string const text = "# c\n[s]\n k=v\n k=w\n l=1\n\n[t]\n";
    std::string const path = load(text);
    store_.setValue("s", "k", "x");
    store_.setValue("s", "n", "y");
    store_.addEntryComment("s", "l", "d");
    store_.setValue("u", "m", "z");
    unsigned long const failures =
        failEachAllocationOfSome([&] { store_.store(nullptr); }, [] {},
                                 [&] {
                                     std::string const now = directory_.read("conf");
                                     EXPECT_TRUE(now == text || store_.isModified() == 0);
                                     EXPECT_EQ("x,", valuesOf(store_, "s", "k"));
                                 },
                                 false);
    EXPECT_GT(failures, 10u);
    EXPECT_EQ("# c\n[s]\n k=x\n# d\n l=1\n n=y\n\n[t]\n\n[u]\n m=z\n", directory_.read("conf"));

    unsigned long const loads =
        failEachAllocationOfSome([&] { store_.reload(path.c_str()); }, [] {},
                                 [&] { EXPECT_EQ("x,", valuesOf(store_, "s", "k")); }, false);
    EXPECT_GT(loads, 5u);
    store_.setValue("s", "n", "0");
    EXPECT_EQ("# c\n[s]\n k=x\n# d\n l=1\n n=0\n\n[t]\n\n[u]\n m=z\n", stored());
}

TEST_F(KeptLines, TheTextTakesAsMuchMemoryAsTheFile)
{
    std::string text = "[s]\n";
    for (int i = 0; i < 10000; ++i)
        text += "key" + std::to_string(i) + " = value\n";
    ZSCFData_6_0 plain;
    plain.setAttributes(ZPCache_6_0::keepComments, nullptr);
    plain.readText("conf", text.data(), text.size());
    KeptLinesCache const kept(text);
    EXPECT_GE(kept.cache.memoryUsed(), plain.memoryUsed() + text.size());
    EXPECT_LE(kept.cache.memoryUsed(), plain.memoryUsed() + text.size() + 100);
}

TEST_F(KeptLines, MemoryUsedIncludesTheOldNames)
{
    constexpr size_t kCount = 1000;
    std::string const name(200, 'k');
    std::string text = "[s]\n";
    for (size_t i = 0; i < kCount; ++i)
        text += name + std::to_string(i) + "=v\n";
    ZSCFData_6_0 plain;
    plain.setAttributes(ZPCache_6_0::keepComments, nullptr);
    plain.readText("conf", text.data(), text.size());
    KeptLinesCache kept(text);
    for (size_t i = 0; i < kCount; ++i) {
        std::string const number = std::to_string(i);
        plain.renameKey("s", (name + number).c_str(), number.c_str());
        kept.cache.renameKey("s", (name + number).c_str(), number.c_str());
    }
    EXPECT_GE(kept.cache.memoryUsed(), plain.memoryUsed() + text.size() + kCount * name.size());
}

TEST_F(KeptLines, WithoutTheAttributeTheFormIsTheLibrarys)
{
    std::string const path = directory_.write("conf", "[s] x\n  k=v\n");
    Store store(1);
    store.load(path.c_str());
    store.store(nullptr);
    EXPECT_EQ("[s]\nk = v\n", directory_.read("conf"));
    store.setAttributes(ZPCache_6_0::keepLines, nullptr);
    directory_.write("conf", "[s] x\n  k=v\n");
    store.reload(nullptr);
    store.setAttributes(ZPCache_6_0::keepComments, nullptr);
    store.store(nullptr);
    EXPECT_EQ("[s]\nk = v\n", directory_.read("conf"));
}
