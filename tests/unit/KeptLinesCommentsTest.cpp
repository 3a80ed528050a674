// Stores with the attribute keepLines after changes of comments, and renames.
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>

#include "KeptLinesModel.h"
#include "KeptLinesStore.h"

namespace {

class KeptLinesComments : public KeptLines {};

std::function<void(Store&)> setComment(char const* stanza, char const* key, char const* comment)
{
    return [=](Store& store) { store.setComment(stanza, key, comment); };
}

}  // namespace

TEST_F(KeptLinesComments, AReplacedCommentLeavesTheBlankLinesAsTheyAre)
{
    expectChanges({
        {"of a key", "[s]\nk=v\n\n# old\nl=w\n", setComment("s", "l", "# new"),
         "[s]\nk=v\n\n# new\nl=w\n"},
        {"of two lines", "[s]\nk=v\n\n# old\n# x\nl=w\n", setComment("s", "l", "# new"),
         "[s]\nk=v\n\n# new\nl=w\n"},
        {"of a stanza", "[s]\nk=v\n\n# old\n[t]\n", setComment("t", nullptr, "# new"),
         "[s]\nk=v\n\n# new\n[t]\n"},
        {"of the file", "# old\n\n[s]\n", setComment(nullptr, nullptr, "# new"), "# new\n\n[s]\n"},
        {"above a removed key", "[s]\n\nk=v\nl=w\n",
         [](Store& store) {
             store.deleteKey("s", "k");
             store.setComment("s", "l", "# c");
         },
         "[s]\n\n# c\nl=w\n"},
    });
}

TEST_F(KeptLinesComments, ACommentThatMovesIsWrittenAtItsNewKey)
{
    expectChanges({
        {"to the key below", "[s]\n# c\nk=v\n\nl=w\n",
         [](Store& store) {
             store.setComment("s", "k", nullptr);
             store.setComment("s", "l", "# c");
         },
         "[s]\nk=v\n\n# c\nl=w\n"},
        {"to the key above", "[s]\n\nk=v\n\n# c\nl=w\n",
         [](Store& store) {
             store.setComment("s", "l", nullptr);
             store.setComment("s", "k", "# c");
         },
         "[s]\n\n# c\nk=v\n\nl=w\n"},
        {"two change places", "[s]\n# a\nk=v\n# b\nl=w\n",
         [](Store& store) {
             store.setComment("s", "k", "# b");
             store.setComment("s", "l", "# a");
         },
         "[s]\n# b\nk=v\n# a\nl=w\n"},
        {"of a removed key", "[s]\n  # a\nk=v\n # b\nl=w\nm=x\n", removeKey("k"),
         "[s]\n  # a\n # b\nl=w\nm=x\n"},
    });
}

TEST_F(KeptLinesComments, ARenamedStanzaKeepsItsLines)
{
    auto const rename = [](char const* from, char const* to) {
        return [=](Store& store) { store.renameStanza(from, to); };
    };
    std::string const lines = "  k   =   v  \n\n\n# c\n  l=w\n";
    expectChanges({
        {"the only one", "[s] tail\n" + lines, rename("s", "t"), "[t] tail\n" + lines},
        {"in the middle", "[a]\nk=v\n# about b\n [b]\nl=w\n# about c\n[c]\n", rename("b", "x"),
         "[a]\nk=v\n# about b\n [x]\nl=w\n# about c\n[c]\n"},
        {"with CR LF", "[s]\r\nk=v\r\n", rename("s", "t"), "[t]\r\nk=v\r\n"},
        {"without keys", "[a]\n[b] tail\n[c]\n", rename("b", "x"), "[a]\n[x] tail\n[c]\n"},
        {"two, and a value", "[a]\nk=v\nl=w\n[b]\nm=1\n[c]\n",
         [](Store& store) {
             store.renameStanza("a", "x");
             store.renameStanza("b", "y");
             store.setValue("x", "l", "2");
         },
         "[x]\nk=v\nl=2\n[y]\nm=1\n[c]\n"},
        {"and another removed", "[a]\nk=v\n[b]\n m=1\n[c]\n",
         [](Store& store) {
             store.deleteStanza("a");
             store.renameStanza("b", "y");
         },
         "[y]\n m=1\n[c]\n"},
        {"with other values it is new", "[a] tail\n k=v\n m=1\n",
         [](Store& store) {
             store.deleteStanza("a");
             store.setValue("b", "k", "2");
         },
         "[b]\n k=2\n"},
    });
}

TEST_F(KeptLinesComments, ARenamedKeyKeepsItsLines)
{
    auto const rename = [](char const* from, char const* to) {
        return [=](Store& store) { store.renameKey("s", from, to); };
    };
    expectChanges({
        {"one line", "[s]\na=1\n  k   =   v  \nb=2\n", rename("k", "n"),
         "[s]\na=1\n  n   =   v  \nb=2\n"},
        {"two lines", "[s]\nk=1\na=0\n# second\n k=2\n", rename("k", "n"),
         "[s]\nn=1\na=0\n# second\n n=2\n"},
        {"the first and the last", "[s]\nk=1\na=0\nl=1\n",
         [](Store& store) {
             store.renameKey("s", "k", "m");
             store.renameKey("s", "l", "n");
         },
         "[s]\nm=1\na=0\nn=1\n"},
        {"without a value", "[s]\nk =\n", rename("k", "n"), "[s]\nn =\n"},
        {"in a last line without an ending", "[s]\nk = v", rename("k", "longer"),
         "[s]\nlonger = v"},
    });
}

TEST_F(KeptLinesComments, NewLinesAtTheTopEndAsTheOthers)
{
    expectChanges({
        {"a comment of the file", "[s]\r\nk=v\r\n", setComment(nullptr, nullptr, "# c"),
         "# c\r\n\r\n[s]\r\nk=v\r\n"},
        {"a stanza", "[s]\r\nk=v\r\n",
         [](Store& store) {
             store.deleteStanza("s");
             store.setValue("t", "m", "1");
         },
         "[t]\r\nm=1\r\n"},
    });
}

TEST_F(KeptLinesComments, ARemovedStanzaLeavesTheCommentOfTheNext)
{
    auto const remove = [](char const* stanza) {
        return [=](Store& store) { store.deleteStanza(stanza); };
    };
    expectChanges({
        {"the first", "[s]\nk=v\n\n# about t\n[t]\nl=w\n", remove("s"), "# about t\n[t]\nl=w\n"},
        {"in the middle", "[a]\nx=1\n\n# about s\n[s]\nk=v\n# end of s\n\n # about t\n[t]\nl=w\n",
         remove("s"), "[a]\nx=1\n\n# about s\n\n # about t\n[t]\nl=w\n"},
        {"two", "[a]\nx=1\n[s]\nk=v\n# about t\n[t]\nl=w\n# about u\n[u]\n",
         [](Store& store) {
             store.deleteStanza("t");
             store.deleteStanza("s");
         },
         "[a]\nx=1\n# about t\n\n# about u\n[u]\n"},
        {"and a change above", "[a]\nx=1\n[s]\nk=v\n # about t\n[t]\n",
         [](Store& store) {
             store.deleteStanza("s");
             store.setValue("a", "y", "2");
         },
         "[a]\nx=1\ny=2\n # about t\n[t]\n"},
    });
    // The comment belongs to the next stanza in memory, too.
    load("[s]\nk=v\n\n# about t\n[t]\nl=w\n");
    store_.deleteStanza("s");
    ZLCString_6_0 comment;
    EXPECT_EQ(1, store_.getComment("t", nullptr, comment));
    EXPECT_STREQ("# about t", comment.getChars());
}

TEST_F(KeptLinesComments, ABlankLinePartsTheCommentOfARemovedStanzaFromTheNext)
{
    auto const remove = [](char const* stanza) {
        return [=](Store& store) { store.deleteStanza(stanza); };
    };
    auto const removeBoth = [](Store& store) {
        store.deleteStanza("s");
        store.deleteStanza("t");
    };
    expectChanges({
        {"a blank line above the next header stays", "# about s\n[s]\nk=v\n\n[t]\nl=w\n",
         remove("s"), "# about s\n\n[t]\nl=w\n"},
        {"no blank line", "# about s\n[s]\nk=v\n[t]\nl=w\n", remove("s"),
         "# about s\n\n[t]\nl=w\n"},
        {"no blank line, CR LF", "# about s\r\n[s]\r\nk=v\r\n[t]\r\nl=w\r\n", remove("s"),
         "# about s\r\n\r\n[t]\r\nl=w\r\n"},
        {"the last blank line of two stays", "# about s\n[s]\nk=v\n\n \n# about t\n[t]\nl=w\n",
         remove("s"), "# about s\n \n# about t\n[t]\nl=w\n"},
        {"two stanzas", "# about s\n[s]\nk=v\n[t]\nl=w\n[u]\n", removeBoth, "# about s\n\n[u]\n"},
        {"two stanzas with comments", "# about s\n[s]\nk=v\n# about t\n[t]\nl=w\n[u]\n", removeBoth,
         "# about s\n\n# about t\n\n[u]\n"},
        {"no stanza follows", "# about s\n[s]\nk=v\n[t]\nl=w\n", removeBoth, "# about s\n"},
        {"a new comment of the next stanza", "# about s\n[s]\nk=v\n[t]\nl=w\n",
         [](Store& store) {
             store.deleteStanza("s");
             store.setComment("t", nullptr, "# about t");
         },
         "# about s\n\n# about t\n[t]\nl=w\n"},
        {"a new stanza", "# about s\n[s]\nk=v\n[t]\nl=w\n",
         [](Store& store) {
             store.deleteStanza("s");
             store.setValue("u", "m", "1");
         },
         "# about s\n\n[t]\nl=w\n\n[u]\nm=1\n"},
    });
    // Nor is it the comment of the next stanza in memory.
    for (char const* const text :
         {"# about s\n[s]\nk=v\n[t]\nl=w\n", "# about s\n[s]\nk=v\n\n# about t\n[t]\nl=w\n"}) {
        Store store(0);
        store.setAttributes(ZPCache_6_0::keepLines, nullptr);
        store.loadText(text, std::string(text).size());
        store.deleteStanza("s");
        ZLCString_6_0 comment;
        bool const hasOwn = std::string(text).find("about t") != std::string::npos;
        EXPECT_EQ(hasOwn ? 1 : 0, store.getComment("t", nullptr, comment)) << text;
        EXPECT_STREQ(hasOwn ? "# about t" : "", comment.getChars());
    }
}

TEST_F(KeptLinesComments, ACommentKeepsItsSpaces)
{
    std::string const usage = "# usage:\n#   a\n#   b";
    expectChanges({
        {"near a comment with more spaces", "[s]\n#  in detail\nk=v\nl=w\n",
         setComment("s", "l", "# c"), "[s]\n#  in detail\nk=v\n# c\nl=w\n"},
        {"several lines", "[s]\n  # x\nk=v\nl=w\n", setComment("s", "l", usage.c_str()),
         "[s]\n  # x\nk=v\n  # usage:\n  #   a\n  #   b\nl=w\n"},
        {"without spaces it gets the spaces of the first line", "[s]\n# x:\n#   y\nk=v\nl=w\n",
         setComment("s", "l", "#c"), "[s]\n# x:\n#   y\nk=v\n# c\nl=w\n"},
        {"above a template", "[s]\n#key=5\nk=v\n", setComment("s", "k", "# one"),
         "[s]\n# one\nk=v\n"},
        {"only the spaces change", "[s]\n  #foo\nk=v\n#bar\nl=w\n",
         [](Store& store) {
             store.setComment("s", "k", "# foo");
             store.setComment("s", "l", "#  bar");
         },
         "[s]\n  # foo\nk=v\n#  bar\nl=w\n"},
    });
}

TEST_F(KeptLinesComments, ANewCommentHasABlankLineAboveIfTheOthersHaveIt)
{
    expectChanges({
        {"of a key", "[s]\na=1\n\n# b\nb=2\nc=3\n", setComment("s", "c", "# c"),
         "[s]\na=1\n\n# b\nb=2\n\n# c\nc=3\n"},
        {"of a stanza", "[a]\nk=v\n\n# b\n[b]\n[c]\n", setComment("c", nullptr, "# c"),
         "[a]\nk=v\n\n# b\n[b]\n\n# c\n[c]\n"},
        {"below a comment of its own", "[a]\n# end\n\n[b]\n", setComment("b", nullptr, "# b"),
         "[a]\n# end\n\n# b\n[b]\n"},
        {"not of another kind", "[a]\n# k\nk=v\n\n# b\n[b]\nl=w\nm=x\n",
         setComment("b", "m", "# m"), "[a]\n# k\nk=v\n\n# b\n[b]\nl=w\n# m\nm=x\n"},
    });
}
