// The bytes of a file after changes, in dialects with rules that other dialects do not have.
#include <Z/ZException.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "DialectStore.h"

namespace {

using Store = ZStanzaFileProperties_6_0;
using Change = std::function<void(Store&)>;

std::string textAfter(std::string const& dialect, std::string const& text,
                      std::vector<Change> const& changes)
{
    Store store(1, dialectNamed(dialect));
    store.loadText(text.data(), text.size());
    for (Change const& change : changes)
        change(store);
    return textOf(store);
}

Change set(std::string const& stanza, std::string const& key, std::string const& value)
{
    return [=](Store& store) { store.setValue(stanza.c_str(), key.c_str(), value.c_str(), 0); };
}

Change setNone(std::string const& stanza, std::string const& key)
{
    return [=](Store& store) { store.setValues(stanza.c_str(), key.c_str(), nullptr, 0); };
}

}  // namespace

// git refuses a comment after a key without a value. A key that is added in the same store is no
// replacement of the invalid line.
TEST(DialectLines, ARefusedChangeIsRefusedTogetherWithAnAddition)
{
    std::string const text = "[a]\nk=1 ;c\nk=2\n";
    for (std::vector<Change> const& changes : {std::vector<Change>{setNone("a", "k")},
                                               {setNone("a", "k"), set("a", "y", "1")},
                                               {set("a", "y", "1"), setNone("a", "k")},
                                               {setNone("a", "k"), set("b", "y", "1")}})
        EXPECT_THROW(textAfter("git", text, changes), ZPropertiesInvalidValueException_6_0);
    EXPECT_EQ("[a]\nk #c\ny = 1\n",
              textAfter("mysql", "[a]\nk=1 #c\nk=2\n", {setNone("a", "k"), set("a", "y", "1")}));
}

// The values of a key do not include its lines without a value.
TEST(DialectLines, ARemovedLastValueLeavesTheLineWithoutAValue)
{
    auto const remove = [](char const* key, char const* value) -> Change {
        return [=](Store& store) { store.removeValue("a", key, value); };
    };
    auto const renameKey = [](Store& store) { store.renameKey("a", "k", "n"); };
    auto const renameStanza = [](Store& store) { store.renameStanza("b", "a"); };
    auto const deleteKey = [](Store& store) { store.deleteKey("a", "k"); };
    auto const read = [](std::string const& text) -> Change {
        return [=](Store& store) { store.loadText(text.data(), text.size()); };
    };
    struct Case {
        char const* name;
        char const* text;
        std::vector<Change> changes;
        char const* expected;
    };
    Case const cases[] = {
        {"below the value", "[a]\nk=1\nk\n", {remove("k", "1")}, "[a]\nk\n"},
        {"above the value", "[a]\nk\nj=1\nk=1\n", {remove("k", "1")}, "[a]\nk\nj=1\n"},
        {"two values", "[a]\nk=1\nk\nk=2\n", {remove("k", "1"), remove("k", "2")}, "[a]\nk\n"},
        {"another spelling", "[A]\nK=1\nk\n", {remove("K", "1")}, "[A]\nk\n"},
        {"a renamed key", "[a]\nk=1\nk\n", {renameKey, remove("n", "1")}, "[a]\nn\n"},
        {"a renamed stanza", "[b]\nk=1\nk\n", {renameStanza, remove("k", "1")}, "[a]\nk\n"},
        {"another key", "[a]\nk=1\nj\n", {remove("k", "1")}, "[a]\nj\n"},
        {"another stanza", "[a]\nk=1\n[b]\nk\nk=2\n", {remove("k", "1")}, "[a]\n[b]\nk\nk=2\n"},
        {"the key", "[a]\nk=1\nk\nj=1\n", {deleteKey}, "[a]\nj=1\n"},
        {"another text",
         "[a]\nk=1\nj=1\n",
         {remove("j", "1"), read("[a]\nk=1\nk\n"), remove("k", "1")},
         "[a]\nk\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, textAfter("git", c.text, c.changes));
    }
    Store store(1, dialectNamed("mysql"));
    store.loadText("[a]\nk=1\nk\n", 10);
    store.removeValue("a", "k", "1");
    EXPECT_EQ(1, store.exists("a", "k"));
    EXPECT_EQ(0, store.numValues("a", "k"));
}

// Nothing is above the mark, also if no line is below it.
TEST(DialectLines, AByteOrderMarkAloneStaysAtTheStart)
{
    std::string const mark = "\xef\xbb\xbf";
    struct Case {
        char const* dialect;
        char const* line;
        char const* comment;
    };
    for (Case const& c : {Case{"editorconfig", "root = false\n", "# c\n"},
                          {"git", "\troot = false\n", "# c\n"},
                          {"php", "root = \"false\"\n", "; c\n"},
                          {"samba", "root = false\n", "# c\n"},
                          {"qt", "root=false\n", "; c\n"},
                          {"ini", "root = false\n", "; c\n"},
                          {"windows", "root=false\n", "; c\n"}}) {
        SCOPED_TRACE(c.dialect);
        EXPECT_EQ(mark + c.line, textAfter(c.dialect, mark, {set(".", "root", "false")}));
        EXPECT_EQ(mark + c.comment, textAfter(c.dialect, mark, {[](Store& store) {
                                                  store.setComment(nullptr, nullptr, " c");
                                              }}));
    }
    EXPECT_EQ(mark + "[a]\nk=v\n", textAfter("systemd", mark, {set("a", "k", "v")}));
}

TEST(DialectLines, TheKeysAboveTheFirstHeaderGetAHeader)
{
    auto const rename = [](Store& store) { store.renameStanza(".", "n"); };
    struct Case {
        char const* dialect;
        char const* before;
        char const* after;
        char const* afterChanges;  // set k, add j, and comment the file and k
    };
    for (Case const& c :
         {Case{"php", "k = x y ; c\n; about l\nl = \"q\"   ; d\n",
               "[n]\nk = x y ; c\n; about l\nl = \"q\"   ; d\n",
               "; f\n\n[n]\n; g\nk = 7 ; c\n; about l\nl = \"q\"   ; d\nj = 8\n"},
          {"kconfig", "k[$e] = x\nl=2\n", "[n]\nk[$e] = x\nl=2\n",
           "# f\n\n[n]\n# g\nk[$e] = 7\nl=2\nj=8\n"},
          {"ini", "; e\n\n; of k\nk=1\nl=2\n\n; h\n[z]\nm=1\n",
           "; e\n\n[n]\n; of k\nk=1\nl=2\n\n; h\n[z]\nm=1\n",
           "; f\n\n[n]\n; g\nk=7\nl=2\nj=8\n\n; h\n[z]\nm=1\n"},
          {"ini", "junk\nk=1\njunk\nk=2\n[z]", "junk\n[n]\nk=1\njunk\nk=2\n[z]", nullptr},
          {"samba",
           "\xef\xbb\xbf"
           "k = x\r\n  l=2",
           "\xef\xbb\xbf[n]\r\nk = x\r\n  l=2",
           "\xef\xbb\xbf# f\r\n\r\n[n]\r\n# g\r\nk = 7\r\n  l=2\r\n  j=8"}}) {
        SCOPED_TRACE(c.before);
        EXPECT_EQ(c.after, textAfter(c.dialect, c.before, {rename}));
        if (c.afterChanges == nullptr)
            continue;
        std::vector<Change> const changes = {
            rename, set("n", "k", "7"), set("n", "j", "8"),
            [](Store& store) { store.setComment(nullptr, nullptr, " f"); },
            [](Store& store) { store.setComment("n", "k", " g"); }};
        EXPECT_EQ(c.afterChanges, textAfter(c.dialect, c.before, changes)) << "one store";
        std::string text = c.before;
        for (Change const& change : changes)
            text = textAfter(c.dialect, text, {change});
        EXPECT_EQ(c.afterChanges, text) << "a store for each change";
    }
}

TEST(DialectLines, TheKeysAboveTheFirstHeaderGetTheNameOfARemovedStanza)
{
    EXPECT_EQ("[n]\nk = 1 ; c\n[m]\nl=2\n",
              textAfter("php", "k = 1 ; c\n[n]\nk=2\n[o]\nl=2\n",
                        {[](Store& store) { store.deleteStanza("n"); },
                         [](Store& store) { store.renameStanza(".", "n"); },
                         [](Store& store) { store.renameStanza("o", "m"); }}));
}

// "key =" shows a space before the sign, and gets one after the sign with a value. A new key below
// looks the same, before and after that.
TEST(DialectLines, ANewKeyBelowAnEmptyValueHasItsSpaces)
{
    for (char const* const dialect : {"systemd", "kconfig", "desktop", "ini"})
        for (std::string const above : {"", "b =1\n", "b=1\n"}) {
            SCOPED_TRACE(dialect + above);
            std::string const text = "[a]\n" + above + "k =\n";
            EXPECT_EQ(text + "y = v\n", textAfter(dialect, text, {set("a", "y", "v")}));
            std::string const both = "[a]\n" + above + "k = w\ny = v\n";
            EXPECT_EQ(both, textAfter(dialect, text, {set("a", "k", "w"), set("a", "y", "v")}));
            EXPECT_EQ(both, textAfter(dialect, textAfter(dialect, text, {set("a", "y", "v")}),
                                      {set("a", "k", "w")}));
        }
    EXPECT_EQ("[a]\nk=\ny=v\n", textAfter("systemd", "[a]\nk=\n", {set("a", "y", "v")}));
}

TEST(DialectLines, ANewKeyHasTheIndentationOfAKeyWithoutAValue)
{
    struct Case {
        char const* dialect;
        char const* before;
        char const* after;
    };
    for (Case const& c : {Case{"mysql", "[a]\n  skip\n", "[a]\n  skip\n  x = 1\n"},
                          {"mysql", "[a]\n  port=2\n\tskip\n", "[a]\n  port=2\n\tskip\n\tx=1\n"},
                          {"mysql", "[a]\n  port=2\n\tskip\n\n[b]\nk=2\n",
                           "[a]\n  port=2\n\tskip\n\tx=1\n\n[b]\nk=2\n"},
                          {"mysql", "[a]\n  y    = 2\n  port = 2\n    skip\n",
                           "[a]\n  y    = 2\n  port = 2\n    skip\n    x  = 1\n"},
                          {"git", "[a]\nz9\n", "[a]\nz9\nx = 1\n"},
                          {"git", "[a] z9\n", "[a] z9\n\tx = 1\n"},
                          {"git", "[b]\n  k=2\n[a]\nz9\n", "[b]\n  k=2\n[a]\nz9\nx=1\n"}}) {
        SCOPED_TRACE(c.before);
        EXPECT_EQ(c.after, textAfter(c.dialect, c.before, {set("a", "x", "1")}));
    }
}

// The keys above the first header have no header that a comment could be above: a comment above the
// first of them is of that key.
TEST(DialectLines, TheCommentOfTheStanzaWithoutAHeaderIsTheFiles)
{
    Change const ofStanza = [](Store& store) { store.setComment(".", nullptr, " c"); };
    Change const ofKey = [](Store& store) { store.setComment(".", "k", " d"); };
    for (std::string const before : {"", "; old\n\n"}) {
        std::string const text = before + "k=1\n";
        EXPECT_EQ("; c\n\nk=1\n", textAfter("ini", text, {ofStanza}));
        std::string const both = "; c\n\n; d\nk=1\n";
        EXPECT_EQ(both, textAfter("ini", text, {ofStanza, ofKey}));
        EXPECT_EQ(both, textAfter("ini", textAfter("ini", text, {ofStanza}), {ofKey}));
        EXPECT_EQ(both, textAfter("ini", textAfter("ini", text, {ofKey}), {ofStanza}));
        EXPECT_EQ("k=1\n", textAfter("ini", text, {ofStanza, [](Store& store) {
                                                       store.setComment(".", nullptr, nullptr);
                                                   }}));
    }
}

// The second stanza of a name is NAME]2: a header of that name would be taken for that stanza.
TEST(DialectLines, AHeaderWithTheNameOfASecondStanzaIsInvalid)
{
    for (char const* const text : {"[a]2]\nk=1\n\n[a]\nk=2\n", "[a]\nk=1\n[]10]\n", "[.]1]\nk=1\n"})
        EXPECT_THROW(textAfter("networkd", text, {}), ZPropertiesInvalidDataException_6_0) << text;
    for (char const* const text : {"[a]]\nk=1\n", "[a]b]\nk=1\n", "[]2x]\n", "[.]\nk=1\n", "[2]\n"})
        EXPECT_EQ(text, textAfter("networkd", text, {}));
    EXPECT_EQ("[a]2]\nk=2\n", textAfter("systemd", "[a]2]\nk=1\n", {set("a]2", "k", "2")}));
}

// Each reason of a refusal has a site of its own.
TEST(DialectLines, ARefusalTellsThatTheLineBelowWouldContinueTheNewLine)
{
    auto const siteOf = [](char const* dialect, char const* text, Change const& change) {
        try {
            textAfter(dialect, text, {change});
        } catch (ZPropertiesInvalidValueException_6_0 const& e) {
            return static_cast<int>(e.where());
        }
        return 0;
    };
    EXPECT_EQ(88, siteOf("python", "[a]\n x\n", set("a", "k", "v")));
    EXPECT_EQ(0, siteOf("python", "[b]\n[a]\n\tx\n", set("b", "k", "v")));
    EXPECT_EQ(0, siteOf("systemd", "[a]\n x\n", set("a", "k", "v")));
    EXPECT_EQ(85, siteOf("git", "[a]\nk=1 ;c\n", setNone("a", "k")));
}

// The first comment below a blank line at the start is no model of a blank line above the next.
TEST(DialectLines, ABlankLineAtTheStartIsNoBlankLineAboveAComment)
{
    Change const ofA = [](Store& store) { store.setComment("a", nullptr, " c"); };
    Change const ofB = [](Store& store) { store.setComment("b", nullptr, " d"); };
    for (std::string const keys : {"", "k=1\n"})
        for (char const* const dialect : {"kconfig", "systemd"}) {
            SCOPED_TRACE(dialect + keys);
            std::string const text = "\n[a]\n" + keys + "[b]\n";
            std::string const both = "\n# c\n[a]\n" + keys + "# d\n[b]\n";
            EXPECT_EQ(both, textAfter(dialect, text, {ofA, ofB}));
            EXPECT_EQ(both, textAfter(dialect, textAfter(dialect, text, {ofA}), {ofB}));
            EXPECT_EQ(both, textAfter(dialect, textAfter(dialect, text, {ofB}), {ofA}));
        }
    EXPECT_EQ("k=1\n\n# e\n[a]\n\n# d\n[b]\n",
              textAfter("kconfig", "k=1\n\n# e\n[a]\n[b]\n", {ofB}));
}

// Comments between the lines of a value are above the key after a change, others stay.
TEST(DialectLines, ACommentInsideANameStaysWhenTheValueChanges)
{
    EXPECT_EQ("[s]\nk \\\n;c\nl=4\n",
              textAfter("systemd", "[s]\nk \\\n;c\nl=3\n", {set("s", "k  l", "4")}));
    EXPECT_EQ("[s]\n#d\nk \\\n;c\nl=4\n",
              textAfter("systemd", "[s]\nk \\\n;c\nl=3\\\n#d\n3\n", {set("s", "k  l", "4")}));
}

TEST(DialectLines, ACommentInsideANameStaysWhenTheKeyChanges)
{
    std::string const text = "[s]\nk \\\n;c\nl=3\n";
    auto const add = [](Store& store) { store.addValue("s", "k  l", "4", 0); };
    auto const rename = [](Store& store) { store.renameKey("s", "k  l", "m"); };
    auto const setRenamed = set("s", "m", "5");
    auto const remove = [](Store& store) { store.deleteKey("s", "k  l"); };
    EXPECT_EQ(text + "k  l=4\n", textAfter("systemd", text, {add}));
    EXPECT_EQ("[s]\n;c\nm=3\n", textAfter("systemd", text, {rename}));
    EXPECT_EQ("[s]\n;c\nm=5\n", textAfter("systemd", text, {rename, setRenamed}));
    EXPECT_EQ("[s]\n;c\nm=3\nm=4\n", textAfter("systemd", text, {add, rename}));
    EXPECT_EQ("[s]\n;c\n", textAfter("systemd", text, {remove}));
    EXPECT_EQ("[s]\n;d\n;c\nm=5\n",
              textAfter("systemd", "[s]\nk \\\n;c\nl=3\\\n;d\n3\n", {rename, setRenamed}));
}

// A backslash at the end of the file belongs to the value.
TEST(DialectLines, AnEmptyValueDoesNotContinueTheLineOfItsKey)
{
    for (char const* const dialect : {"samba", "systemd"})
        for (char const* const end : {"", "\n", "\nl=2\n"}) {
            std::string const text = "[s]\nk=\\\nx" + std::string(end);
            EXPECT_EQ("[s]\nk=" + std::string(end), textAfter(dialect, text, {set("s", "k", "")}))
                << dialect << ": " << text;
        }
    EXPECT_EQ("[s]\n;c\nk=\n", textAfter("systemd", "[s]\nk=\\\n;c\nx\n", {set("s", "k", "")}));
}

// The line of the value stays.
TEST(DialectLines, AValueThatIsThereCanBeSetAlsoIfNoNewLineCouldHaveIt)
{
    struct Case {
        char const* dialect;
        char const* text;
        char const* value;
    };
    for (Case const& c : {Case{"editorconfig", "[a]\nk = x\v\n", "x\v"},
                          {"samba", "[a]\nk = x\v\n", "x\v"},
                          {"systemd", "[a]\nk = \xff\n", "\xff"},
                          {"ini", "[a]\nk = x\rx\n", "x\rx"}}) {
        SCOPED_TRACE(c.dialect);
        EXPECT_EQ(c.text, textAfter(c.dialect, c.text, {set("a", "k", c.value)}));
        EXPECT_EQ(c.text, textAfter(c.dialect, c.text, {[&](Store& store) {
                                        store.setValues("a", "k", &c.value, 1);
                                    }}));
        EXPECT_THROW(textAfter(c.dialect, c.text, {set("a", "l", c.value)}),
                     ZInvalidParameterException_6_0);
    }
}

TEST(DialectLines, AKeyOfTheFileCanBeChangedAlsoIfNoNewLineCouldHaveItsName)
{
    std::string const name = "k\x11";
    std::string const text = "[\x11]\nk\x11=v\n";
    EXPECT_EQ("[\x11]\nk\x11=w\n", textAfter("qt", text, {set("\x11", name, "w")}));
    EXPECT_EQ(text + "l=w\n", textAfter("qt", text, {set("\x11", "l", "w")}));
    EXPECT_EQ(
        "[\x11]\nl=v\n",
        textAfter("qt", text, {[&](Store& store) { store.renameKey("\x11", name.c_str(), "l"); }}));
    EXPECT_EQ(text + "k\x11=w\n", textAfter("qt", text, {[&](Store& store) {
                                                store.addValue("\x11", name.c_str(), "w", 0);
                                            }}));
    EXPECT_THROW(textAfter("qt", "[a]\nl=v\n", {set("a", name, "w")}),
                 ZInvalidParameterException_6_0);
}

// A comment right above the first header would be of its stanza.
TEST(DialectLines, ANewCommentOfTheFileIsAboveALineThatIsPassedOver)
{
    Change const ofFile = [](Store& store) { store.setComment(nullptr, nullptr, " f"); };
    Change const rename = [](Store& store) { store.renameStanza(".", "n"); };
    struct Case {
        char const* dialect;
        char const* before;
        char const* after;
    };
    for (Case const& c : {Case{"systemd", "]\n[a]\nk=1\n", "# f\n\n]\n[a]\nk=1\n"},
                          {"networkd", "]\n[a]\nk=1\n", "# f\n\n]\n[a]\nk=1\n"},
                          {"ini", "# c\njunk\n[a]\nk=1\n", "# f\n\njunk\n[a]\nk=1\n"},
                          {"ini", "junk\n; of a\n[a]\n", "; f\njunk\n; of a\n[a]\n"},
                          {"ini", "junk\n\n; of a\n[a]\n", "; f\n\njunk\n\n; of a\n[a]\n"},
                          {"ini", "junk\nk=1\n", "; f\n\njunk\nk=1\n"},
                          {"php", ";\nk\nl=\n", "; f\nk\nl=\n"},
                          {"ini", ";\njunk\nk=1\n", "; f\njunk\nk=1\n"},
                          {"ini", "junk\n; f\nmore\nk=1\n", "; f\njunk\n; f\nmore\nk=1\n"}}) {
        SCOPED_TRACE(c.before);
        EXPECT_EQ(c.after, textAfter(c.dialect, c.before, {ofFile}));
    }
    std::string const text = "junk\nk=1\n";
    std::string const both = "; f\n\njunk\n[n]\nk=1\n";
    EXPECT_EQ(both, textAfter("ini", text, {rename, ofFile}));
    EXPECT_EQ(both, textAfter("ini", textAfter("ini", text, {rename}), {ofFile}));
    EXPECT_EQ(both, textAfter("ini", textAfter("ini", text, {ofFile}), {rename}));
}

// Of [v, ""] the second value stays, and the comment after the first would be a part of "".
TEST(DialectLines, AValueIsRemovedIfTheNextIsBelowAnotherKey)
{
    EXPECT_EQ("[b]\nl = 1\nk = \n",
              textAfter("editorconfig", "[b]\nk = v ; c\nl = 1\nk = \n",
                        {[](Store& store) { store.removeValue("b", "k", "v"); }}));
}

// The marker fills some of the column. Without spaces before "=", no column exists.
TEST(DialectLines, AFurtherValueOfAKeyWithAMarkerHasItsColumn)
{
    Change const add = [](Store& store) { store.addValue("a", "k", "3", 0); };
    EXPECT_EQ("[a]\nk[$e]   = 1\nk       = 3\nl       = 2\n",
              textAfter("kconfig", "[a]\nk[$e]   = 1\nl       = 2\n", {add}));
    EXPECT_EQ("[a]\nk[$e] = 1\nk = 3\nlllll = 2\n",
              textAfter("kconfig", "[a]\nk[$e] = 1\nlllll = 2\n", {add}));
}

// Above a key that follows another line of a key above, and above such a key with a comment.
TEST(DialectLines, ACommentOfAKeyIsBelowALineOfAKeyAbove)
{
    Change const ofKey = [](Store& store) { store.setComment("a", "m", " c"); };
    EXPECT_EQ("[a]\nk=1\nl=2\nk=3\n# c\nm=4\n",
              textAfter("systemd", "[a]\nk=1\nl=2\nk=3\nm=4\n", {ofKey}));
    EXPECT_EQ("[a]\nk=1\nl=2\nk=3\n# c\nm=4\n",
              textAfter("systemd", "[a]\nk=1\nl=2\nk=3\n# d\nm=4\n", {ofKey}));
    EXPECT_EQ("[a]\nk=1\njunk\n# c\nm=4\n",
              textAfter("systemd", "[a]\nk=1\njunk\n# d\nm=4\n", {ofKey}));
    EXPECT_EQ("[a]\nk=1\njunk\n# c\nm=4\n", textAfter("systemd", "[a]\nk=1\njunk\nm=4\n", {ofKey}));
}

// The first line of the new comment is equal to the comment of the key.
TEST(DialectLines, ACommentWithALineOfAnotherCommentIsAboveIt)
{
    Change const ofFile = [](Store& store) { store.setComment(nullptr, nullptr, ";\n; a"); };
    EXPECT_EQ(";\n; a\n\n;\nk=1\n", textAfter("php", "\n;\nk=1\n", {ofFile}));
}

TEST(DialectLines, ACommentAboveARepeatedHeaderWithoutANameStays)
{
    std::string const text = "[a]\n[]\n[a]\n#\n[]\n";
    EXPECT_EQ(text, textAfter("systemd", text, {}));
    EXPECT_EQ(text + "\n[b]\nk=1\n", textAfter("systemd", text, {set("b", "k", "1")}));
}

// The line starts above its key.
TEST(DialectLines, ARenamedKeyDoesNotRepeatACommentAboveItsName)
{
    Change const rename = [](Store& store) { store.renameKey("a", "k l", "m"); };
    EXPECT_EQ("[a]\n# d\n\\\n# c\nm=1\n",
              textAfter("systemd", "[a]\n\\\n# c\nk\\\n# d\nl=1\n", {rename}));
}

// Without the comment of the file, a comment of no key would be at the start.
TEST(DialectLines, AnotherCommentIsNotThatOfTheFileAfterItsRemoval)
{
    Change const remove = [](Store& store) { store.setComment(nullptr, nullptr, nullptr); };
    EXPECT_EQ("\n; d\n\nk=1\n", textAfter("php", "; c\n\n; d\n\nk=1\n", {remove}));
    EXPECT_EQ("\n; d\njunk\nk=1\n", textAfter("php", "; c\n\n; d\njunk\nk=1\n", {remove}));
    EXPECT_EQ("; d\nk=1\n", textAfter("php", "; c\n\n; d\nk=1\n", {remove}));
}

// The old comment is the last line of the new one.
TEST(DialectLines, ACommentThatEndsWithTheOldCommentIsAtItsPlace)
{
    Change const ofStanza = [](Store& store) { store.setComment("a", nullptr, "# d\n# e\n# c"); };
    EXPECT_EQ("# f\n\n# d\n# e\n# c\n[a]\nk=1\n",
              textAfter("systemd", "# f\n\n# c\n[a]\nk=1\n", {ofStanza}));
    Change const ofKey = [](Store& store) { store.setComment("a", "k", "# d\n# e\n# c"); };
    EXPECT_EQ("[a]\nl=1\n\n# d\n# e\n# c\nk=1\n",
              textAfter("systemd", "[a]\nl=1\n\n# c\nk=1\n", {ofKey}));
    EXPECT_EQ("[a]\nl=1\njunk\n# d\n# e\n# c\nk=1\n",
              textAfter("systemd", "[a]\nl=1\njunk\n# c\nk=1\n", {ofKey}));
}

// A further header of the stanza is above the first comment that stays.
TEST(DialectLines, TheCommentAboveAKeyIsRemovedNotAnEqualOne)
{
    std::string const above = "[a]\n; c\n\n[a]\n; d\n; i\njunk\n; i\njunk\n; i\njunk\n";
    EXPECT_EQ(above + "m=2\n", textAfter("systemd", above + "; i\nm=2\n", {[](Store& store) {
                                             store.setComment("a", "m", nullptr);
                                         }}));
}

// The last line of the new comment equals a comment below the second line of a key.
TEST(DialectLines, ALongerCommentIsAboveItsKeyBelowFurtherLinesOfAnotherKey)
{
    std::string const above = "[a]\nk=1\nk=2\n#\njunk\n";
    EXPECT_EQ(above + "# c\n#\nm=2\n", textAfter("systemd", above + "m=2\n", {[](Store& store) {
                                                     store.setComment("a", "m", "# c\n#");
                                                 }}));
}

// The new comment ends with the last line of the old comment, and no key precedes the two.
TEST(DialectLines, ALongerCommentIsAboveItsKeyBelowLinesThatAreKept)
{
    std::string const above = "junk\nhk= 1\n";
    EXPECT_EQ(above + "#f\n#kk=\n#\nk=1\n",
              textAfter("env", above + "#= a\n#\nk=1\n",
                        {[](Store& store) { store.setComment(".", "k", "#f\n#kk=\n#"); }}));
}

// Other stanzas of the name have the lines of the removed stanza.
TEST(DialectLines, TheStanzaWithTheNumberIsRemoved)
{
    auto const without = [](char const* stanza, std::string const& text) {
        return textAfter("networkd", text, {[=](Store& store) { store.deleteStanza(stanza); }});
    };
    EXPECT_EQ("[a]\n#\n", without("a]2", "[a]\n#\n[a]\nk=1\n\t#\n"));
    std::string const text = "[a]\nk=2\n# c\n[a]\njunk\nk=2\n# c\n";
    EXPECT_EQ("[a]\nk=2\n# c\n", without("a]2", text));
    EXPECT_EQ("# c\n[a]\njunk\nk=2\n# c\n", without("a]1", text));
}

// Comments with the same text are above further headers and lines of keys, and at other ends.
TEST(DialectLines, AnEqualCommentElsewhereStays)
{
    struct Case {
        char const* dialect;
        std::string before;
        Change change;
        std::string after;
    };
    auto const setComment = [](char const* stanza, char const* key, char const* comment) {
        return Change([=](Store& store) { store.setComment(stanza, key, comment); });
    };
    for (Case const& c : {
             Case{"git", "[b]\n[a]\nk=1\n#\n[b]\n# c\n# c\n#\n", setComment("a", nullptr, "# c\n#"),
                  "[b]\n# c\n#\n[a]\nk=1\n#\n[b]\n# c\n# c\n#\n"},
             Case{"python", "[a]\nj=1\n[b]\nk=2\n# c\n[a]\n# c\nk=1\n",
                  setComment("a", "k", nullptr), "[a]\nj=1\n[b]\nk=2\n# c\n[a]\nk=1\n"},
             Case{"qt", "junk\n# c\nk=1\n", setComment(nullptr, nullptr, "# c\n#"),
                  "# c\n#\njunk\n# c\nk=1\n"},
             Case{"windows", "m=2\n;\nk=2\n;\nm=2\n; c\n;\n[a]\nk=2\n",
                  setComment("a", nullptr, ";\n; c"), "m=2\n;\nk=2\n;\nm=2\n;\n; c\n[a]\nk=2\n"},
             Case{"windows", "[b]\n;\n[b]\nk=2\n[a]\n", setComment("a", nullptr, "; f\n;"),
                  "[b]\n;\n[b]\nk=2\n; f\n;\n[a]\n"},
             Case{"samba", "k=1\n# c\nk=2\n\n[a]\nm=2\n", setComment("a", nullptr, "# c"),
                  "k=1\n# c\nk=2\n\n# c\n[a]\nm=2\n"},
         }) {
        SCOPED_TRACE(c.before);
        EXPECT_EQ(c.after, textAfter(c.dialect, c.before, {c.change}));
    }
}

// No new line can follow a line that ends with a backslash. The comment above that line continues.
TEST(DialectLines, ANewKeyAboveALineThatContinuesIsAboveItsComment)
{
    std::string const key = "# c\\\n# d\nk=1\\\n";
    EXPECT_EQ("[a]\nn=1\n" + key, textAfter("samba", "[a]\n" + key,
                                            {[](Store& store) { store.setValue("a", "n", "1"); }}));
}

// Only headers with subsections fold the part of a name before a subsection.
TEST(DialectLines, HeadersWithoutSubsectionsKeepTheirCase)
{
    for (char const* const heads : {"toBracket", "endsLine", "alone"}) {
        std::string const dialect = std::string("git,heads=") + heads;
        EXPECT_EQ("[a]\n[A]\n", textAfter(dialect, "[a]\n[A]\n", {})) << heads;
        EXPECT_EQ("[a]\nk = 1\n[A]\nk = 3\n",
                  textAfter(dialect, "[a]\nk = 1\n[A]\nk = 2\n", {set("A", "k", "3")}))
            << heads;
    }
    EXPECT_EQ("[a]\nk = 3\n[A]\n", textAfter("git", "[a]\nk = 1\n[A]\n", {set("A", "k", "3")}));
}

// A new line is tried in a sample of the lines around it. The start of the sample is not a byte
// order mark.
TEST(DialectLines, ANewKeyIsBelowAKeyThatStartsLikeUtf16)
{
    for (std::string const mark : {"\xff\xfe", "\xfe\xff"}) {
        std::string const text = "; c\n" + mark + "=1\n";
        EXPECT_EQ(text + "k=2\n", textAfter("ini", text, {set(".", "k", "2")}));
        EXPECT_EQ("; c\n" + mark + "=3\n", textAfter("ini", text, {set(".", mark, "3")}));
    }
}

// Below the last line, the new key would continue its value.
TEST(DialectLines, ANewKeyAboveTheLastKeyIsAboveTheCommentOfThatKey)
{
    Change const setL = set("a", "l", "2");
    EXPECT_EQ("[a]\nl=2\nk=1\\", textAfter("systemd", "[a]\nk=1\\", {setL}));
    EXPECT_EQ("[a]\nl=2\n# c\n# d\nk=1\\", textAfter("systemd", "[a]\n# c\n# d\nk=1\\", {setL}));
    EXPECT_EQ("[a]\nj=0\n# c\n\nl=2\n# d\nk=1\\",
              textAfter("systemd", "[a]\nj=0\n# c\n\n# d\nk=1\\", {setL}));
    Change const ofK = [](Store& store) { store.setComment("a", "k", " n"); };
    for (std::vector<Change> const& changes : {std::vector<Change>{ofK, setL}, {setL, ofK}})
        EXPECT_EQ("[a]\nl=2\n# n\nk=1\\", textAfter("systemd", "[a]\nk=1\\", changes));
}
