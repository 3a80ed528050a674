// The lines of a cache: where lines are added, kept and removed.
#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <string>

#include "CacheHelpers.h"

using namespace std::string_literals;

// --- lines

TEST(ZPropertiesImplLines, NewStanzaIsAppendedAfterABlankLine)
{
    EXPECT_EQ("[a]\nk = 1\n\n[b]\n",
              changed("[a]\nk=1\n", [](Cache& cache) { cache.addStanzaLine("b"); }));
    EXPECT_EQ("[a]\nk = 1\n\n[b]\nl = 2\n",
              changed("[a]\nk=1\n", [](Cache& cache) { cache.addLine("b", "l", "2", 0); }));
    EXPECT_EQ("[a]\nk = 1\n",
              changed("[a]\nk=1\n", [](Cache& cache) { cache.addStanzaLine("a"); }));
}

TEST(ZPropertiesImplLines, KeepsABlankLineAtTheTopOfANewFile)
{
    EXPECT_EQ("\n[a]\n", changed("", [](Cache& cache) { cache.addLine("a", nullptr, 0); }));
}

TEST(ZPropertiesImplLines, NewKeyIsInsertedAfterTheLastKeyLine)
{
    auto const add = [](Cache& cache) { cache.addLine("a", "new", "1", 0); };
    EXPECT_EQ("[a]\nk = 1\nnew = 1\n# end\n\n[b]\n", changed("[a]\nk=1\n# end\n\n[b]\n", add));
    EXPECT_EQ("[a]\nnew = 1\n# end\n\n[b]\n", changed("[a]\n# end\n\n[b]\n", add));
    EXPECT_EQ("[a]\nnew = 1\n", changed("[a]\n", add));
    EXPECT_EQ("[a]\nk = 1\nk = 2\nnew = 1\n\n\n", changed("[a]\nk=1\nk=2\n\n\n", add));
    EXPECT_EQ("[a]\nnew = 1\nk = 2\n", changed("[a]\nnew=0\nk=2\n", add));
}

TEST(ZPropertiesImplLines, NewKeyIsInsertedBeforeTheBlankLineAfterItsTemplate)
{
    auto const add = [](Cache& cache) { cache.addLine("a", "k", "1", 0); };
    struct Case {
        char const* name;
        char const* before;
        char const* after;
    };
    Case const cases[] = {
        {"at the blank line", "[a]\n# k = default\n\nz=1\n",
         "[a]\n# k = default\nk = 1\n\nz = 1\n"},
        {"further comments", "[a]\n#k=\n# about k\n\nz=1\n",
         "[a]\n#k=\n# about k\nk = 1\n\nz = 1\n"},
        {"key lines between", "[a]\n#k=\ny=1\n\nz=1\n", "[a]\n#k=\ny = 1\nk = 1\n\nz = 1\n"},
        {"first of two", "[a]\n#k=\n\n#k=\n\nz=1\n", "[a]\n#k=\nk = 1\n\n#k=\n\nz = 1\n"},
        {"no blank line after it", "[a]\n\nz=1\n#k=\n", "[a]\n\nz = 1\nk = 1\n#k=\n"},
        {"not in another stanza", "[a]\nz=1\n\n[b]\n#k=\n\n", "[a]\nz = 1\nk = 1\n\n[b]\n#k=\n\n"},
        {"a longer key", "[a]\n#kk=\n\nz=1\n", "[a]\n#kk=\n\nz = 1\nk = 1\n"},
        {"a shorter key", "[a]\n#=\n\nz=1\n", "[a]\n#=\n\nz = 1\nk = 1\n"},
        {"spaces anywhere", "[a]\n#   k   =5\n\nz=1\n", "[a]\n#   k   =5\nk = 1\n\nz = 1\n"},
        {"a tab is no blank", "[a]\n#\tk=5\n\nz=1\n", "[a]\n#\tk=5\n\nz = 1\nk = 1\n"},
        {"without the sign", "[a]\n# k 5\n\nz=1\n", "[a]\n# k 5\n\nz = 1\nk = 1\n"},
        {"two marks", "[a]\n##k=\n\nz=1\n", "[a]\n##k=\n\nz = 1\nk = 1\n"},
        {"a comment after the blank line", "[a]\n#k=\n\n# z\nz=1\n",
         "[a]\n#k=\nk = 1\n\n# z\nz = 1\n"},
        {"blank lines on both sides", "[a]\n\n#k=\n\n# z\nz=1\n",
         "[a]\n\n#k=\nk = 1\n\n# z\nz = 1\n"},
        {"a blank line before it alone", "[a]\n\n#k=\nz=1\n", "[a]\n\n#k=\nz = 1\nk = 1\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.after, changed(c.before, add));
    }
}

TEST(ZPropertiesImplLines, TemplatesAreFoundWhateverTheKey)
{
    auto const add = [](char const* key) {
        return [key](Cache& cache) { cache.addLine("a", key, "1", 0); };
    };
    // A key with spaces never matches a template; a key with an equal sign may match.
    EXPECT_EQ("[a]\n# k y = 5\n\nz = 1\nk y = 1\n", changed("[a]\n# k y = 5\n\nz=1\n", add("k y")));
    EXPECT_EQ("[a]\n# k=y = 5\nk=y = 1\n\nz = 1\n", changed("[a]\n# k=y = 5\n\nz=1\n", add("k=y")));
    EXPECT_EQ("[a]\n# k=x = 5\n\nz = 1\nk=y = 1\n", changed("[a]\n# k=x = 5\n\nz=1\n", add("k=y")));
    EXPECT_EQ("[a]\n# k=y 5\n\nz = 1\nk=y = 1\n", changed("[a]\n# k=y 5\n\nz=1\n", add("k=y")));
    EXPECT_EQ("[a]\n#k=y=\nk=y = 1\n\n# z\nz = 1\n",
              changed("[a]\n#k=y=\n\n# z\nz=1\n", add("k=y")));
}

TEST(ZPropertiesImplLines, CommentsWithoutAnEqualSignAreNotTemplates)
{
    // A store adds a missing "#" to a comment; the cache stores a comment verbatim.
    for (std::string const comment : {"", "   ", "xk = 5", "  xk = 5"}) {
        SCOPED_TRACE(comment);
        auto const data = parsed("[a]\n# z = 1\n\ny = 1\n\nw = 1\n");
        data->addLine("a", "x", "1", 0);  // builds the index of the section
        data->addLineComment("a", "y", comment.c_str());
        data->addLine("a", "k", "1", 0);
        std::string const end = "\n" + comment + "\ny = 1\n\nw = 1\nx = 1\nk = 1\n";
        EXPECT_EQ("[a]\n# z = 1\n" + end, textOf(*data));
        data->addLine("a", "z", "1", 0);
        EXPECT_EQ("[a]\n# z = 1\nz = 1\n" + end, textOf(*data));
    }
}

TEST(ZPropertiesImplLines, CommentsAreMatchedWithoutTheirSpaces)
{
    struct Case {
        char const* pattern;
        char const* text;
        bool matches;
    };
    Case const cases[] = {
        {"#key=", "# key = 5", true},
        {"#key=", "#key=", true},
        {"#key=", "  #  k e y  =", true},
        {"#key=", "#key", false},
        {"#key=", "#key =x", true},
        {"#key=", "#\tkey=", false},
        {"#key=", "#Key=", false},
        {"", "anything", true},
        {"", "", true},
        {"#", "", false},
        {"#k y=", "#k y=", false},
        {"#key=", "key=", false},
        {nullptr, "#", false},
        {"#", nullptr, false},
    };
    for (Case const& c : cases)
        EXPECT_EQ(c.matches, Cache::isCommentWeWant(c.pattern, c.text))
            << (c.pattern == nullptr ? "null" : c.pattern);
}

TEST(ZPropertiesImplLines, SettingAKeyKeepsItsLine)
{
    EXPECT_EQ("[a]\nk = new\n# c\nz = 1\n", changed("[a]\nk=1\n# c\nz=1\n", [](Cache& cache) {
                  cache.addLine("a", "k", "new", 0);
              }));
    EXPECT_EQ("[a]\nk =\nz = 1\n",
              changed("[a]\nk=1\nz=1\n", [](Cache& cache) { cache.addLine("a", "k", 0); }));
    EXPECT_EQ("[a]\nz = 1\n", changed("[a]\nk=1\nz=1\n",
                                      [](Cache& cache) { cache.addLine("a", "k", "hidden", 1); }));
}

TEST(ZPropertiesImplLines, DeletedKeyLosesItsLine)
{
    auto const data = parsed("[a]\nk=1\nk=2\nz=1\n\n[b]\nk=3\n");
    data->delLine("a", "k");
    EXPECT_EQ("[a]\nz = 1\n\n[b]\nk = 3\n", textOf(*data));
    data->addLine("a", "k", "4", 0);
    EXPECT_EQ("[a]\nz = 1\nk = 4\n\n[b]\nk = 3\n", textOf(*data));
}

TEST(ZPropertiesImplLines, RemovedKeyKeepsItsLineForBeingAddedAgain)
{
    auto const data = parsed("[a]\nk=1\nz=1\n");
    data->remove("a", "k");
    EXPECT_EQ("[a]\nz = 1\n", textOf(*data));
    data->addLine("a", "k", "2", 0);
    EXPECT_EQ("[a]\nk = 2\nz = 1\n", textOf(*data));
    data->remove("a", "k");
    data->delLine("a", "k");
    data->addLine("a", "k", "3", 0);
    EXPECT_EQ("[a]\nz = 1\nk = 3\n", textOf(*data));
}

TEST(ZPropertiesImplLines, DeletingAStanzaRemovesItsLines)
{
    auto const data = parsed("# file\n\n[a]\nk=1\n# about\nl=1\n\n[b]\nk=2\n");
    data->delLine("a");
    EXPECT_EQ("# file\n\n[b]\nk = 2\n", textOf(*data));
    data->delLine("b");
    EXPECT_EQ("# file\n\n", textOf(*data));
    EXPECT_EQ(0, data->count());
    data->addLine("b", "k", "3", 0);
    EXPECT_EQ("# file\n\n\n[b]\nk = 3\n", textOf(*data));
}

TEST(ZPropertiesImplLines, KeepsRemovingTheCommentsAboveTheNextHeader)
{
    EXPECT_EQ("# about a\n[b]\nk = 2\n", changed("# about a\n[a]\nk=1\n\n# about b\n[b]\nk=2\n",
                                                 [](Cache& cache) { cache.delLine("a"); }));
}

TEST(ZPropertiesImplLines, RemovedStanzaIsNotWritten)
{
    auto const data = parsed("[a]\nk=1\n# about b\n\n[b]\nk=2\n");
    data->remove("a");
    EXPECT_EQ("[b]\nk = 2\n", textOf(*data));
    // The revived values use the old header: no new header is added.
    data->set("a", "k", "3");
    EXPECT_EQ("[a]\nk = 3\n# about b\n\n[b]\nk = 2\n", textOf(*data));
    // A new header replaces the old lines.
    data->remove("a");
    data->addLine("a", "k", "4", 0);
    EXPECT_EQ("[b]\nk = 2\n\n[a]\nk = 4\n", textOf(*data));
}

TEST(ZPropertiesImplLines, StanzaWithoutAHeaderGetsOneWithItsFirstKeyLine)
{
    auto const data = parsed("[a]\nk=1\n");
    data->add("b", "hidden", "secret", 1);
    EXPECT_EQ("[a]\nk = 1\n", textOf(*data));
    data->addStanzaLine("b");
    EXPECT_EQ("[a]\nk = 1\n", textOf(*data)) << "it exists";
    data->addLine("b", "k", "2", 0);
    EXPECT_EQ("[a]\nk = 1\n\n[b]\nk = 2\n", textOf(*data));
    data->add("c", "hidden", "secret", 1);
    data->addLineComment("c", "# about c");
    EXPECT_EQ("[a]\nk = 1\n\n[b]\nk = 2\n\n# about c\n[c]\n", textOf(*data));
}

TEST(ZPropertiesImplLines, FileCommentsAreAppendedToTheFirstCommentsOfTheFile)
{
    auto const add = [](Cache& cache) { cache.addFileComment("# new"); };
    struct Case {
        char const* name;
        char const* before;
        char const* after;
    };
    Case const cases[] = {
        {"a block and a blank line", "# one\n# two\n\n[a]\n", "# one\n# two\n# new\n\n[a]\n"},
        {"a block at the head", "# one\n[a]\n", "# one\n# new\n\n[a]\n"},
        {"a head alone", "[a]\n", "# new\n\n[a]\n"},
        {"a blank line first", "\n[a]\n", "# new\n\n[a]\n"},
        {"a blank line above a comment first", "\n# a\n[a]\n", "# new\n\n# a\n[a]\n"},
        {"a comment of the stanza", "# one\n\n# a\n[a]\n", "# one\n# new\n\n# a\n[a]\n"},
        {"nothing", "", "# new\n"},
        {"comments alone", "# one\n", "# one\n# new\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.after, changed(c.before, add));
    }
    EXPECT_EQ("# one\n# new\n# new\n\n[a]\n", changed("# one\n[a]\n", [&](Cache& cache) {
                  add(cache);
                  add(cache);
              }));
}

TEST(ZPropertiesImplLines, StanzaCommentsAreRightAboveTheHeader)
{
    auto const add = [](Cache& cache) { cache.addLineComment("b", "# new"); };
    EXPECT_EQ("[a]\nk = 1\n\n# new\n[b]\n", changed("[a]\nk=1\n[b]\n", add));
    EXPECT_EQ("[a]\nk = 1\n\n# new\n[b]\n", changed("[a]\nk=1\n\n[b]\n", add));
    EXPECT_EQ("[a]\n\n# old\n\n# new\n[b]\n", changed("[a]\n\n# old\n[b]\n", add));
    EXPECT_EQ("\n# new\n[b]\n", changed("[b]\n", add));
    EXPECT_EQ("[a]\n", changed("[a]\n", add));
    EXPECT_EQ("\n# new\n[b]\n",
              changed("[b]\n", [](Cache& cache) { cache.addStanzaComment("b", "# new"); }));
}

TEST(ZPropertiesImplLines, KeyCommentsAreRightAboveTheKey)
{
    auto const add = [](Cache& cache) { cache.addLineComment("a", "k", "# new"); };
    EXPECT_EQ("[a]\n\n# new\nk = 1\n", changed("[a]\nk=1\n", add));
    EXPECT_EQ("[a]\nj = 1\n\n# new\nk = 1\n", changed("[a]\nj=1\nk=1\n", add));
    EXPECT_EQ("[a]\nj = 1\n\n# new\nk = 1\n", changed("[a]\nj=1\n\nk=1\n", add));
    EXPECT_EQ("[a]\n# old\n# new\nk = 1\n", changed("[a]\n# old\nk=1\n", add));
    EXPECT_EQ("[a]\nj = 1\n\n# new\nk =\n", changed("[a]\nj=1\n", add));
    EXPECT_EQ("\n[a]\n\n# new\nk =\n", changed("", add));
    // A key without a line gets a line, and keeps its values.
    auto const data = parsed("[a]\nj=1\n");
    data->add("a", "k", "secret", 1);
    data->addLineComment("a", "k", "# new");
    EXPECT_EQ("[a]\nj = 1\n\n# new\n", textOf(*data));
    EXPECT_EQ((Strings{"secret"}), values(*data, "a", "k"));
}

TEST(ZPropertiesImplLines, CommentsWithNewlinesBecomeSeveralLines)
{
    auto const comment = [](std::string const& text) {
        auto const data = parsed("[a]\nk=1\n");
        data->addLineComment("a", "k", text.c_str());
        return textOf(*data);
    };
    EXPECT_EQ("[a]\n\n# one\n#two\n#\n# four\nk = 1\n", comment("# one\ntwo\n\n# four\n"));
    EXPECT_EQ("[a]\n\n\nk = 1\n", comment(""));
    EXPECT_EQ("[a]\n\n# one\nk = 1\n", comment("# one\n"));
    EXPECT_EQ("[a]\n\n# one\n#\nk = 1\n", comment("# one\n\n"));
    // A comment that is too long for a line is split.
    std::string const most(8190, 'x');
    EXPECT_EQ("[a]\n\n" + most + "\nk = 1\n", comment(most));
    EXPECT_EQ("[a]\n\n" + most + "\n#x\nk = 1\n", comment(most + "x"));
    std::string const lines = comment("#" + std::string(20000, 'x') + "\nend");
    auto const data = parsed(lines);
    EXPECT_EQ(lines, textOf(*data));
}

TEST(ZPropertiesImplLines, LinesAreReturnedInFileOrder)
{
    auto const data = parsed("# c\n\n[a]\nk=1\nk=2\n");
    ZArrayList_6_0 lines(1, 1);
    data->getLines(lines);
    ASSERT_EQ(4u, lines.size());
    EXPECT_TRUE(lines.get(0)->equals(ZPropLine_6_0(1, "# c")));
    EXPECT_TRUE(lines.get(1)->equals(ZPropLine_6_0(2, "")));
    EXPECT_TRUE(lines.get(2)->equals(ZPropLine_6_0(4, "a")));
    EXPECT_TRUE(lines.get(3)->equals(ZPropLine_6_0(8, "k")));
}
