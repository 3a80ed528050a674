// Changes of files in dialects, byte for byte: how values are spelled, and where new lines go.
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "DialectEdits.h"
#include "DialectStore.h"
#include "LinearTime.h"

namespace {

using Store = ZStanzaFileProperties_6_0;
using Change = std::function<void(Store&)>;

// Returns the text after the change, or the name of the exception.
std::string changed(std::string const& dialect, std::string const& text, Change const& change)
{
    try {
        Store store(1, dialectNamed(dialect));
        store.loadText(text.data(), text.size());
        change(store);
        std::string const after = textOf(store);
        Store again(1, dialectNamed(dialect));
        again.loadText(after.data(), after.size());
        EXPECT_EQ(after, textOf(again)) << "an unchanged store";
        return after;
    } catch (ZPropertiesInvalidValueException_6_0 const& e) {
        return "site " + std::to_string(e.where()) + " [" + e.category().getChars() + "] " +
               e.key().getChars() + ": " + e.value().getChars();
    } catch (ZInvalidParameterException_6_0 const&) {
        return "refused";
    }
}

Change set(char const* stanza, char const* key, std::string const& value)
{
    return [=](Store& store) { store.setValue(stanza, key, value.c_str()); };
}

std::string valueOf(std::string const& dialect, std::string const& text, char const* stanza,
                    char const* key)
{
    Store store(1, dialectNamed(dialect));
    store.loadText(text.data(), text.size());
    ZLCString_6_0 value;
    store.getValue(stanza, key, value, 0, nullptr);
    return value.getChars();
}

struct Case {
    char const* dialect;
    std::string before;
    Change change;
    std::string after;
};

void expectChanges(std::vector<Case> const& cases)
{
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.dialect) + ": " + c.before);
        EXPECT_EQ(c.after, changed(c.dialect, c.before, c.change));
    }
}

}  // namespace

TEST(DialectChanges, AValueInQuotesStaysInQuotes)
{
    expectChanges({
        {"env", "A=\"1\"\n", set(".", "A", "2"), "A=\"2\"\n"},
        {"env", "A='1'\n", set(".", "A", "2"), "A='2'\n"},
        {"env", "A='1'\n", set(".", "A", "it's"), "A=\"it's\"\n"},
        {"php", "[a]\nk = \"x\"\n", set("a", "k", "y"), "[a]\nk = \"y\"\n"},
        {"git", "[a]\n\tk = \"x\" ; c\n", set("a", "k", "y"), "[a]\n\tk = \"y\" ; c\n"},
        {"qt", "[a]\nk=\"x\"\n", set("a", "k", ""), "[a]\nk=\"\"\n"},
        {"mysql", "[a]\nk='x'\n", set("a", "k", "y z"), "[a]\nk='y z'\n"},
        {"mysql", "[a]\nk=x\n", set("a", "k", "y z"), "[a]\nk=y z\n"},
    });
}

TEST(DialectChanges, AShellReadsTheValue)
{
    expectChanges({
        {"env", "A=1\n", set(".", "A", "$(x)"), "A=\"\\$(x)\"\n"},
        {"env", "A=1\n", set(".", "A", "b c"), "A=\"b c\"\n"},
        {"env", "A=1\n", set(".", "A", "a;b&c"), "A=\"a;b&c\"\n"},
        {"env", "A=1\n", set(".", "A", "C:\\x"), "A=\"C:\\\\x\"\n"},
        {"env", "A=1\n", set(".", "A", "a.b/c:d,e+f@g%h=i-j_k"), "A=a.b/c:d,e+f@g%h=i-j_k\n"},
        {"env", "A=1\n", set(".", "A", ""), "A=\n"},
        {"env", "export A=1\n", set(".", "B", "~"), "export A=1\nB=\"~\"\n"},
        {"env", "A=1\n", set(".", "1x", "2"), "refused"},
        {"env", "A=1\n", set(".", "a.b", "2"), "refused"},
        {"env", "A=1\n", set(".", "_b2", "2"), "A=1\n_b2=2\n"},
        {"env", "a.b=1\n", set(".", "a.b", "2"), "a.b=2\n"},
    });
}

TEST(DialectChanges, PhpReadsTheValue)
{
    expectChanges({
        {"php", "[a]\nk = x\n", set("a", "k", "a=c"), "[a]\nk = \"a=c\"\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "x (z)"), "[a]\nk = \"x (z)\"\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "Off"), "[a]\nk = \"Off\"\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "on x"), "[a]\nk = \"on x\"\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "Offer"), "[a]\nk = Offer\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "${x}"), "[a]\nk = '${x}'\n"},
        {"php", "[a]\nk = \"x\"\n", set("a", "k", "${x}"), "[a]\nk = '${x}'\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "it's ${x}"), "[a]\nk = \"it's \\${x}\"\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "a\rb"), "[a]\nk = \"a\rb\"\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "C:\\x, y"), "[a]\nk = C:\\x, y\n"},
        {"php", "[a]\nk = x\n", set("a", "null", "1"), "refused"},
        {"php", "[a]\nk = x\n", set("a", "l[]", "1"), "[a]\nk = x\nl[] = 1\n"},
    });
}

TEST(DialectChanges, AConstantOfPhpReplacesAConstant)
{
    std::string const levels = "[a]\nk = E_ALL & ~E_NOTICE\n";
    expectChanges({
        {"php", levels, set("a", "k", "E_ALL & ~(E_NOTICE | E_STRICT)"),
         "[a]\nk = E_ALL & ~(E_NOTICE | E_STRICT)\n"},
        {"php", levels, set("a", "k", "E_ALL"), "[a]\nk = E_ALL\n"},
        {"php", levels, set("a", "k", "E_ALL &"), "[a]\nk = \"E_ALL &\"\n"},
        {"php", levels, set("a", "k", "(E_ALL"), "[a]\nk = \"(E_ALL\"\n"},
        {"php", levels, set("a", "k", "E_ALL & off"), "[a]\nk = \"E_ALL & off\"\n"},
        {"php", levels, set("a", "k", "tom & jerry"), "[a]\nk = \"tom & jerry\"\n"},
        {"php", "[a]\nk = -1\n", set("a", "k", "E_ALL & ~E_NOTICE"), levels},
        {"php", "[a]\nk = Off\n", set("a", "k", "On"), "[a]\nk = On\n"},
        {"php", "[a]\nk = \"x\"\n", set("a", "k", "A & B"), "[a]\nk = \"A & B\"\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "A & B"), "[a]\nk = \"A & B\"\n"},
        {"php", "[a]\nj = x\n", set("a", "k", "E_ALL & ~E_NOTICE"),
         "[a]\nj = x\nk = E_ALL & ~E_NOTICE\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "E_ALL & ~(E_NOTICE)"),
         "[a]\nk = E_ALL & ~(E_NOTICE)\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "E_ALL & ~8"), "[a]\nk = E_ALL & ~8\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "E_ALL & A"), "[a]\nk = \"E_ALL & A\"\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "1 & 2"), "[a]\nk = \"1 & 2\"\n"},
        {"php", "[a]\nk = x\n", set("a", "k", "~"), "[a]\nk = \"~\"\n"},
    });
}

TEST(DialectChanges, ProgramsOfOtherFormatsReadTheValue)
{
    std::string const longest(4094 - 4, 'x');
    expectChanges({
        {"kconfig", "[D]\nA=1\n", set("D", "A", "C:\\qux"), "[D]\nA=C:\\\\qux\n"},
        {"desktop", "[D]\nA=1\n", set("D", "A", "end\\"), "[D]\nA=end\\\\\n"},
        {"git", "[a]\n\tk = 1\n", set("a", "k", "a\tb"), "[a]\n\tk = a\\tb\n"},
        {"git", "[a]\n\tk = 1\r\n", set("a", "k", "a\r"), "[a]\n\tk = \"a\r\"\r\n"},
        {"qt", "[a]\nk=1\n", set("a", "k", "a,b"), "[a]\nk=\"a,b\"\n"},
        {"qt", "[a]\nk=1, 2\n", set("a", "k", "3, 4"), "[a]\nk=3, 4\n"},
        {"mysql", "[a]\nk=1\n", set("a", "k", "\v1"), "[a]\nk=\"\v1\"\n"},
        {"systemd", "[a]\nk=1\n", set("a", "k", "a\rb"), "refused"},
        {"python", "[a]\nk = 1\n", set("a", "k", "\xc2\xa0x"), "refused"},
        {"python", "[a]\nk = 1\n", set("a", "k", "x\n\fy"), "refused"},
        {"python", "[a]\nk = 1\n", set("a", "k", "x\xc2\xa0y"), "[a]\nk = x\xc2\xa0y\n"},
        {"mysql", "[a]\nk = 1\n", set("a", "k", longest), "[a]\nk = " + longest + "\n"},
        {"mysql", "[a]\nk   =   1\n", set("a", "k", longest), "[a]\nk=" + longest + "\n"},
        {"mysql", "[a]\nk = 1\n", set("a", "k", longest + "x"), "refused"},
    });
}

TEST(DialectChanges, ALineThatContinuesNothingStaysBelowAValueOfIndentedLines)
{
    expectChanges({
        {"python", "[s]\n  a = 1\njunk\n  b = 2\n", set("s", "a", "x"), "[s]\n  a = x\njunk\n"},
        {"python", "[s]\n  a = 1\njunk\n  b = 2\n", set("s", "a", "1\ny"),
         "[s]\n  a = 1\n      y\njunk\n"},
        {"python", "[s]\n  a = 1\n# c\njunk\n  b = 2\n  c = 3\nz = 4\n", set("s", "a", "x"),
         "[s]\n# c\n  a = x\njunk\nz = 4\n"},
        {"python", "[s]\n  a = 1\njunk\n  b = 2\nz = 4\n",
         [](Store& store) { store.deleteKey("s", "a"); }, "[s]\njunk\nz = 4\n"},
    });
}

TEST(DialectChanges, ABackslashAboveABlankLine)
{
    expectChanges({
        {"git", "[a]\n\tx = foo \\\n\n[c]\n\tk = 1\n", set("a", "x", "y"),
         "[a]\n\tx = y\n\n[c]\n\tk = 1\n"},
        {"env", "A=foo\\\n\nB=1\n", set(".", "A", "y"), "A=y\n\nB=1\n"},
        {"qt", "[s]\nA=foo\\\n\nB=1\n", set("s", "A", "y"), "[s]\nA=y\n\nB=1\n"},
    });
}

TEST(DialectChanges, ANewKeyIsAboveALineThatContinuesBelowTheEnd)
{
    expectChanges({
        {"systemd", "[s]\nj=1\nk=foo\\\n", set("s", "n", "y"), "[s]\nj=1\nn=y\nk=foo\\\n"},
        {"git", "[s]\n\tk = foo\\\n", set("s", "n", "y"), "[s]\n\tn = y\n\tk = foo\\\n"},
        {"samba", "k = foo\\\n", set(".", "n", "y"), "n = y\nk = foo\\\n"},
        {"systemd", "[s]\nk=foo\\\n", [](Store& store) { store.addValue("s", "k", "y", 0); },
         "site 86 [s] k: y"},
    });
}

TEST(DialectChanges, ANewKeyWhoseTemplateIsIndented)
{
    std::string comments;
    for (int i = 0; i < 70; ++i)
        comments += "  # help\n";
    expectChanges({
        {"python", "[s]\na = 1\n  # nk = x\n", set("s", "nk", "1"),
         "[s]\na = 1\n  # nk = x\nnk = 1\n"},
        {"python", "[s]\na = 1\n" + comments + "  # nk = x\n", set("s", "nk", "1"),
         "[s]\na = 1\n" + comments + "  # nk = x\nnk = 1\n"},
    });
}

TEST(DialectChanges, ANewFirstLineFollowsTheByteOrderMark)
{
    expectChanges({
        {"git", "\xef\xbb\xbf[a]\nk = 1\n", set(".", "k", "3"), "\xef\xbb\xbfk = 3\n[a]\nk = 1\n"},
        {"ini", "\xef\xbb\xbfk = 1\n", [](Store& store) { store.setComment(".", "k", "x"); },
         "\xef\xbb\xbf; x\nk = 1\n"},
        {"ini", "\xef\xbb\xbf", set("a", "k", "1"), "\xef\xbb\xbf[a]\nk = 1\n"},
    });
}

TEST(DialectChanges, AnEmptyValueGetsAValueAgain)
{
    for (char const* before : {"[D]\nName  =  x\n", "[D]\nName =   \n", "[D]\nName=\n"}) {
        std::string const empty = changed("desktop", before, set("D", "Name", ""));
        std::string const after = changed("desktop", empty, set("D", "Name", "y"));
        EXPECT_EQ("y", valueOf("desktop", after, "D", "Name")) << empty;
    }
    EXPECT_EQ("[D]\nName  = y\n", changed("desktop", "[D]\nName  =  \n", set("D", "Name", "y")));
}

TEST(DialectChanges, ARenamedGroupKeepsItsMarkers)
{
    expectChanges({
        {"kconfig", "[A][$i]\nk=1\n", [](Store& store) { store.renameStanza("A", "Z"); },
         "[Z][$i]\nk=1\n"},
        {"kconfig", "[A][B][$i]\nk[$e]=1\n", [](Store& store) { store.renameStanza("A][B", "C"); },
         "[C][$i]\nk[$e]=1\n"},
    });
}

TEST(DialectChanges, OnlyTheLastGroupOfALineCanBeAMarker)
{
    expectChanges({
        {"kconfig", "[$Version]\nu=1\n", set("$Version", "u", "2"), "[$Version]\nu=2\n"},
        {"kconfig", "[A]\nk=1\n", set("$e", "u", "2"), "[A]\nk=1\n\n[$e]\nu=2\n"},
        {"kconfig", "[A][$i][B]\nu=1\n", set("A][$i][B", "u", "2"), "[A][$i][B]\nu=2\n"},
        {"kconfig", "[A][$e]\nu=1\n", set("A][$e", "u", "2"), "[A][$e]\nu=2\n"},
        {"kconfig", "[A][$i] \nu=1\n", set("A", "u", "2"), "[A][$i] \nu=2\n"},
    });
}

TEST(DialectChanges, ANewKeyFollowsATemplateWithAnotherSpelling)
{
    expectChanges({
        {"samba", "[s]\n; Create  Mask=1\n; x = 1\n\nk = v\n", set("s", "create mask", "2"),
         "[s]\n; Create  Mask=1\ncreate mask=2\n; x = 1\n\nk = v\n"},
        {"python", "[s]\n# KEY=1\n# x = 1\n\nk = v\n", set("s", "key", "2"),
         "[s]\n# KEY=1\nkey=2\n# x = 1\n\nk = v\n"},
        {"mysql", "[s]\n# a-b=1\n# x = 1\n\nk = v\n", set("s", "a_b", "2"),
         "[s]\n# a-b=1\na_b=2\n# x = 1\n\nk = v\n"},
        {"ini", "[s]\n# KEY=1\n# x = 1\n\nk = v\n", set("s", "key", "2"),
         "[s]\n# KEY=1\n# x = 1\n\nk = v\nkey = 2\n"},
    });
}

TEST(DialectChanges, TheFileCommentTakesItsBlankLineAlong)
{
    auto const remove = [](Store& store) { store.setComment(nullptr, nullptr, nullptr); };
    expectChanges({
        {"ini", "; c\n\n[a]\nk = 1\n", remove, "[a]\nk = 1\n"},
        {"ini", "; c\n; d\n\n\n; e\n[a]\nk = 1\n", remove, "; e\n[a]\nk = 1\n"},
        {"systemd", "; c\n\njunk\n[a]\nk=1\n", remove, "junk\n[a]\nk=1\n"},
        {"ini", "; c\n\n[a]\nk = 1\n",
         [](Store& store) {
             store.setComment(nullptr, nullptr, nullptr);
             store.setValue("a", "k", "2");
         },
         "[a]\nk = 2\n"},
        {"ini", "; c\n\n[a]\nk = 1\n",
         [](Store& store) { store.setComment(nullptr, nullptr, "; d"); }, "; d\n\n[a]\nk = 1\n"},
    });
}

TEST(DialectChanges, ACommentKeepsItsColumnInCharacters)
{
    expectChanges({
        {"git", "[a]\n\tk = \xc3\xa4\xc3\xb6\xc3\xbc    # c\n", set("a", "k", "x"),
         "[a]\n\tk = x      # c\n"},
        {"git", "[a]\n\tk = x      # c\n", set("a", "k", "\xc3\xa4\xc3\xb6\xc3\xbc"),
         "[a]\n\tk = \xc3\xa4\xc3\xb6\xc3\xbc    # c\n"},
        {"ini", "\xc3\xa4\xc3\xb6  = 1\nabc = 2\n", set(".", "\xc3\xbc", "3"),
         "\xc3\xa4\xc3\xb6  = 1\nabc = 2\n\xc3\xbc   = 3\n"},
    });
}

TEST(DialectChanges, NewCommentsHaveTheMarkThatEveryReaderKnows)
{
    auto const comment = [](Store& store) { store.setComment("a", "k", "x"); };
    expectChanges({
        {"windows", "[a]\nk=1\n", comment, "[a]\n; x\nk=1\n"},
        {"qt", "[a]\nk=1\n", comment, "[a]\n; x\nk=1\n"},
        {"ini", "[a]\nk = 1\n", comment, "[a]\n; x\nk = 1\n"},
        {"git", "[a]\n\tk = 1\n", comment, "[a]\n#x\n\tk = 1\n"},
        {"ini", "# old\n\n[a]\nk = 1\n", comment, "# old\n\n[a]\n# x\nk = 1\n"},
    });
}

TEST(DialectChanges, AFurtherLineOfACommentIsBelowAllLinesOfTheKeyAbove)
{
    auto const comment = [](Store& store) { store.setComment("a", "j", "# new\n# old"); };
    expectChanges({
        {"systemd", "[a]\nk=1\nk=2\n# old\nj=3\n", comment, "[a]\nk=1\nk=2\n# new\n# old\nj=3\n"},
        {"systemd", "[a]\nk=1\n\nk=2\n# old\nj=3\n", comment,
         "[a]\nk=1\n\nk=2\n# new\n# old\nj=3\n"},
        {"systemd", "[a]\nk=1\n\nk=2\n\n# old\nj=3\n", comment,
         "[a]\nk=1\n\nk=2\n\n# new\n# old\nj=3\n"},
    });
}

TEST(DialectChanges, AMarkOfCommentsAfterValuesStartsACommentLine)
{
    auto const comment = [](char const* text) {
        return [=](Store& store) { store.setComment("a", "k", text); };
    };
    std::string const text = "[a]\n; x\nk = 1 ; why\n";
    for (char const* const dialect :
         {"ini,marks=hash,trailing=;", "ini,marks=none,trailing=;", "git,marks=#"}) {
        expectChanges({{dialect, text, comment("; x"), text},
                       {dialect, text, comment("y"), "[a]\n; y\nk = 1 ; why\n"}});
    }
    expectChanges({
        {"ini,marks=none,trailing=;", "[a]\nk = 1\n", comment("x"), "[a]\n;x\nk = 1\n"},
        {"ini,marks=none,trailing=;,trailingNeeds=blankBefore", "[a]\n; x\nk = 1\n",
         [](Store& store) { store.setValue("a", "k", "2"); }, "[a]\n; x\nk = 2\n"},
    });
}

TEST(DialectChanges, ARefusalNamesTheChange)
{
    expectChanges({
        {"sysctl", "junk\nk=v\n", [](Store& store) { store.deleteKey(".", "k"); },
         "site 87 [.] k: "},
        {"samba", "[s]\nk = 1\n", [](Store& store) { store.setComment("s", "k", "path C:\\"); },
         "site 85 [s] : #path C:\\"},
    });
}

TEST(DialectChanges, ACarriageReturnThatWouldEndTheLineIsRefused)
{
    auto const comment = [](Store& store) { store.setComment("s", "k", "c\rd"); };
    for (char const* const dialect : {"systemd", "networkd", "python", "python-inline"})
        expectChanges({{dialect, "[s]\nk=1\n", comment, "site 85 [s] : #c\rd"}});
    expectChanges({
        {"php", "[s]\nk=1\n", comment, "site 85 [s] : ;c\rd"},
        {"qt", "[s]\nk=1\n", comment, "site 85 [s] : #c\rd"},
        {"git", "[s]\nk=1\n", comment, "[s]\n#c\rd\nk=1\n"},
        {"php", "[s]\nk=1\n", set("s", "k", "a\rb"), "[s]\nk=\"a\rb\"\n"},
        {"env", "k='1\r'", set(".", "j", "a\rb"), "k='1\r'\nj=\"a\rb\""},
    });
}

TEST(DialectChanges, PhpReadsTheNameOfANewStanza)
{
    std::string const before = "[a'b']\nk = 1\n";
    for (char const* const name : {";", "a;b", "'", "a'b", "\"", "a\"b\"", "a\rb", "${x}", "a$",
                                   "a\\", "$$$", "\\\\\\", "$\\$"})
        expectChanges({{"php", before, set(name, "k", "2"), "refused"}});
    for (char const* const name : {"a b", "a$b", "a$$", "a\\b", "a\\\\", "$\\", "no", "a=b", "#"})
        expectChanges({{"php", before, set(name, "k", "2"), before + "\n[" + name + "]\nk = 2\n"}});
    expectChanges({
        {"php", before, set("a'b'", "k", "2"), "[a'b']\nk = 2\n"},
        {"php", "[a]\nk = 1\n", [](Store& store) { store.renameStanza("a", ";"); }, "refused"},
    });
}

TEST(DialectChanges, SystemdReadsOnlyUtf8)
{
    for (char const* const dialect : {"systemd", "networkd"})
        expectChanges({
            {dialect, "[A]\nk=1\n", set("A", "k", "\xe4"), "refused"},
            {dialect, "[A]\nk=1\n", set("A", "\xe4", "1"), "refused"},
            {dialect, "[A]\nk=1\n", set("\xe4", "k", "1"), "refused"},
            {dialect, "[A]\nk=1\n", set("A", "k", "\xc3\xa4"), "[A]\nk=\xc3\xa4\n"},
            {dialect, "[A]\nk=\xe4\n", set("A", "j", "1"), "[A]\nk=\xe4\nj=1\n"},
        });
}

TEST(DialectChanges, ANewNameHasNoSpacesThatProgramsDrop)
{
    for (char const* const dialect : {"desktop", "samba", "mysql", "python", "python-inline"})
        for (char const* const name : {"\fx", "x\f", "\rx", "x\r"})
            expectChanges({{dialect, "[a]\nk=1\n", set("a", name, "2"), "refused"}});
    for (char const* const name : {"\x1cx", "x\xc2\xa0", "\xe2\x80\xa8x"})
        expectChanges({{"python", "[a]\nk=1\n", set("a", name, "2"), "refused"}});
    for (char const* const name : {"x ", "x\t", "x\f", "x\xa0"})
        expectChanges({{"mysql", "[a]\nk=1\n", set(name, "k", "2"), "refused"}});
    expectChanges({
        {"mysql", "[a]\nk=1\n", set("a", "x\xa0", "2"), "refused"},
        {"mysql", "[a]\nk=1\n", set(" x", "k", "2"), "[a]\nk=1\n\n[ x]\nk=2\n"},
        {"mysql", "[a ]\nx\f=1\n", set("a", "x\f", "2"), "[a ]\nx\f=2\n"},
        {"python", "[a]\nk=1\n", set("x\xc2\xa0", "k", "2"), "[a]\nk=1\n\n[x\xc2\xa0]\nk=2\n"},
    });
}

TEST(DialectChanges, NamesOfKconfigAreSpelledWithEscapes)
{
    auto const rename = [](Store& store) { store.renameStanza("a]1", "][b[]"); };
    expectChanges({
        {"kconfig", "[a\\x5d1]\nk\\x3d=1\n", set("a]1", "k=", "2"), "[a\\x5d1]\nk\\x3d=2\n"},
        {"kconfig", "[a]\nk=1\n", set("a", "#[=\t ", "2"), "[a]\nk=1\n\\x23\\x5b\\x3d\\t\\s=2\n"},
        {"kconfig", "[a]\nk=1\n", set("a", "l[m]n", "2"), "[a]\nk=1\nl\\x5bm\\x5dn=2\n"},
        {"kconfig", "[a]\nk=1\n", set("a", "l[m][de]", "2"), "[a]\nk=1\nl\\x5bm\\x5d[de]=2\n"},
        {"kconfig", "[a]\nl\\x5Bm\\x5D=1\n", set("a", "l\\x5bm\\x5d", "2"),
         "[a]\nl\\x5Bm\\x5D=2\n"},
        {"kconfig", "[a]\nl\\x5bm\\x5d=1\n", set("a", "l[m]", "2"),
         "[a]\nl\\x5bm\\x5d=1\nl[m]=2\n"},
        {"kconfig", "[a]\nl\\\\x5b=1\n", set("a", "l\\\\x5b", "2"), "[a]\nl\\\\x5b=2\n"},
        {"kconfig", "[a]\nk=1\n", set("b]c][d\re", "k", "2"),
         "[a]\nk=1\n\n[b\\x5dc][d\\re]\nk=2\n"},
        {"kconfig", "[a\\x5d1]\nk=1\n", rename, "[][b\\x5b\\x5d]\nk=1\n"},
    });
}

TEST(DialectChanges, ANewKeyOfKconfigHasNoBackslash)
{
    auto const rename = [](Store& store) { store.renameKey("a", "k", "l\\m"); };
    auto const renameBack = [](Store& store) { store.renameKey("a", "k\\l", "m"); };
    expectChanges({
        {"kconfig", "[a]\nk=1\n", set("a", "l\\m", "2"), "refused"},
        {"kconfig", "[a]\nk=1\n", set("a", "l\\\\x5b", "2"), "refused"},
        {"kconfig", "[a]\nk=1\n", set("b", "l\\", "2"), "refused"},
        {"kconfig", "[a]\nk=1\n", rename, "refused"},
        {"kconfig", "[a]\nk=1\n", set("a", "l\\x5bm\\x5d", "2"), "[a]\nk=1\nl\\x5bm\\x5d=2\n"},
        {"kconfig", "[a]\nk=1\n", set("b\\c", "k", "2"), "[a]\nk=1\n\n[b\\\\c]\nk=2\n"},
        {"kconfig", "[a]\nk\\\\l=1\n", set("a", "k\\l", "2"), "[a]\nk\\\\l=2\n"},
        {"kconfig", "[a]\nk\\\\l=1\n", renameBack, "[a]\nm=1\n"},
    });
}

TEST(DialectChanges, ASpaceOfLatin1AtAnEndIsQuoted)
{
    expectChanges({
        {"mysql", "[a]\nk = 1\n", set("a", "k", "x\xa0"), "[a]\nk = \"x\xa0\"\n"},
        {"mysql", "[a]\nk = 1\n", set("a", "k", "\xa0x"), "[a]\nk = \"\xa0x\"\n"},
        {"mysql", "[a]\nk = 1\n", set("a", "k", "x\xa0y"), "[a]\nk = x\xa0y\n"},
        {"git", "[a]\n\tk = 1\n", set("a", "k", "x\xa0"), "[a]\n\tk = x\xa0\n"},
    });
}

TEST(DialectChanges, NamesOfQtAreSpelledWithPercentSigns)
{
    expectChanges({
        {"qt", "[Foo%20Bar]\nx\\y%20z=1\n", set("Foo Bar", "x/y z", "2"),
         "[Foo%20Bar]\nx\\y%20z=2\n"},
        {"qt", "[a]\nk=1\n", set("Foo Bar", "x/y z", "2"), "[a]\nk=1\n\n[Foo%20Bar]\nx\\y%20z=2\n"},
        {"qt", "[a]\nk=1\n", set("a", "\xe2\x82\xac\xc3\xbc%=;]\xf0\x9f\x98\x80", "2"),
         "[a]\nk=1\n%U20AC%FC%25%3D%3B%5D%UD83D%UDE00=2\n"},
        {"qt", "[a]\nk=1\n", set("a", "%0A", "2"), "[a]\nk=1\n%250A=2\n"},
        {"qt", "[a]\n%0A=1\n", set("a", "%0A", "2"), "[a]\n%0A=2\n"},
        {"qt", "[a]\n%e9=1\n", set("a", "\xc3\xa9", "2"), "[a]\n%e9=2\n"},
        {"qt", "[a]\n\xe9=1\n", set("a", "\xe9", "2"), "[a]\n\xe9=2\n"},
        {"qt", "[a]\nk=1\n", [](Store& store) { store.renameStanza("a", "b c"); },
         "[b%20c]\nk=1\n"},
        {"qt", "[a]\nk%20l=1\n", [](Store& store) { store.renameKey("a", "k l", "m/n"); },
         "[a]\nm\\n=1\n"},
        {"qt", "[a]\nk=1\n", set("a", "b\nc", "2"), "refused"},
    });
    EXPECT_EQ("1", valueOf("qt", "[a]\n%UD83D%20x=1\n", "a", "%UD83D x"));
}

TEST(DialectChanges, NumbersOfQtArePairsOfSurrogates)
{
    EXPECT_EQ("\xf0\x9f\x98\x80x", valueOf("qt", "[s]\nk = \\xd83d\\xde00x\n", "s", "k"));
    EXPECT_EQ("\xef\xbf\xbdx", valueOf("qt", "[s]\nk = \"\\xd83d\"x\n", "s", "k"));
    EXPECT_EQ("\xef\xbf\xbd\xef\xbf\xbd", valueOf("qt", "[s]\nk = \\xde00\\xd83d\n", "s", "k"));
}

// Two new keys in one store have the same lines as in two stores.
TEST(DialectChanges, NewKeysOfOneStoreAreThoseOfTwo)
{
    struct Files {
        char const* dialect;
        char const* before;
        char const* first;
        char const* second;
    };
    Files const files[] = {
        {"stanza", "[s]\na   = 1\nbcd = 2\n", "longer", "z"},
        {"stanza", "[s]\nk   =   v\n", "", "o"},
        {"stanza", "[s]\nlong = 1\n[t]\nx = 1\n", "n", "second"},
        {"python", "[s]\n  a   : 1\n  bcd : 2\nx\n", "longer", "z"},
        {"git", "[s] a = 1\n[t]\n\tx = 1\n", "n", "second"},
        {"ini", "a   = 1\nbcd = 2\n[s]\n", "longer", "z"},
    };
    for (Files const& f : files) {
        SCOPED_TRACE(f.before);
        auto const setFirst = [&](Store& store) {
            bool const isAlone = f.first[0] == '\0';
            store.setValue("s", isAlone ? "n" : f.first, isAlone ? "" : "3");
        };
        auto const setSecond = [&](Store& store) { store.setValue("s", f.second, "4"); };
        std::string const once = changed(f.dialect, f.before, [&](Store& store) {
            setFirst(store);
            setSecond(store);
        });
        EXPECT_EQ(changed(f.dialect, changed(f.dialect, f.before, setFirst), setSecond), once);
    }
}

// No change and no undo of a change is refused, and the undo restores the old values.
TEST(DialectChanges, TheLinesOfAKeyKeepTheSpellingsOfItsName)
{
    Change const removeFirst = [](Store& store) { store.removeValue("a", "max-speed", "1"); };
    expectChanges({
        {"mysql", "[a]\nmax-speed=1\nmax_speed=2\n", removeFirst, "[a]\nmax_speed=2\n"},
        {"git", "[a]\n\tMAX-speed = 1\n\tMax-Speed = 2\n", removeFirst, "[a]\n\tMax-Speed = 2\n"},
        {"samba", "[A]\nk k = 1\n[a]\nK K = 2\n", set("a", "l", "3"),
         "[A]\nk k = 1\n[a]\nK K = 2\nl = 3\n"},
    });
    Store store(1, dialectNamed("windows"));
    std::string const text = "[A]\nKey=1\nkey=2\n[a]\nl=3\n";
    store.loadText(text.data(), text.size());
    store.removeValue("A", "KEY", "1");
    EXPECT_EQ("[A]\nkey=2\n[a]\nl=3\n", textOf(store));
    store.setValue("A", "l", "4");
    EXPECT_EQ("[A]\nkey=2\n[a]\nl=4\n", textOf(store));
}

TEST(DialectChanges, ANewNameHasTheSpellingOfTheCaller)
{
    struct New {
        char const* dialect;
        char const* before;
        char const* stanza;
        char const* key;
        char const* other;  // another spelling of the key
        char const* after;
    };
    for (New const& c : {
             New{"windows", "[A]\nk=1\n", "a", "New", "NEW", "[A]\nk=1\nNew=v\n"},
             New{"mysql", "[a]\nk=1\n", "a", "a-b", "a_b", "[a]\nk=1\na-b=v\n"},
             New{"mysql", "[a]\nk=1\n", "a", "a_b", "a-b", "[a]\nk=1\na_b=v\n"},
             New{"git", "[a]\n\tk = 1\n", "B.Sub", "newKey", "newkey",
                 "[a]\n\tk = 1\n\n[B \"Sub\"]\n\tnewKey = v\n"},
             New{"samba", "[a]\nk = 1\n", "The B", "The Key", "thekey",
                 "[a]\nk = 1\n\n[The B]\nThe Key = v\n"},
             New{"python", "[a]\nk = 1\n", "B", "Key", "key", "[a]\nk = 1\n\n[B]\nKey = v\n"},
             New{"editorconfig", "[*]\nk = 1\n", "*", "Key", "key", "[*]\nk = 1\nKey = v\n"},
         }) {
        SCOPED_TRACE(std::string(c.dialect) + " " + c.key);
        Store store(1, dialectNamed(c.dialect));
        store.loadText(c.before, strlen(c.before));
        store.setValue(c.stanza, c.key, "v");
        EXPECT_EQ(c.after, textOf(store));
        ZLCString_6_0 value;
        store.getValue(c.stanza, c.other, value, 0, nullptr);
        EXPECT_STREQ("v", value.getChars());
        store.setValue(c.stanza, c.other, "w");
        store.setValue(c.stanza, c.other, "v");
        EXPECT_EQ(c.after, textOf(store));
    }
}

TEST(DialectChanges, ANewKeyBesideKeysInSeveralPlaces)
{
    std::string const git = "[s]\n\ta = 1\n\tb = 2\n\ta = 3\n# c\n\tc = 4\n\td = 5\n\tc = 6\n";
    Change const removeLast = [](Store& store) { store.removeValue("s", "c", "6"); };
    Change const removeBetween = [](Store& store) {
        store.deleteKey("s", "b");
        store.setValue("s", "n", "7");
    };
    expectChanges({
        {"git", git, set("s", "n", "7"), git + "\tn = 7\n"},
        {"git", git, removeLast, git.substr(0, git.rfind("\tc"))},
        {"git", git, removeBetween,
         "[s]\n\ta = 1\n\ta = 3\n# c\n\tc = 4\n\td = 5\n\tc = 6\n\tn = 7\n"},
    });
}

TEST(DialectChanges, ANewKeyTakesAFewTimesTheTimeOfAChange)
{
    constexpr unsigned kKeys = 100000;
    std::string text = "[s]\n";
    for (unsigned i = 0; i < kKeys; ++i)
        text += "key" + std::to_string(i) + "=1\n";
    Store change(1, dialectNamed("ini"));
    Store addition(1, dialectNamed("ini"));
    for (Store* store : {&change, &addition})
        store->loadText(text.data(), text.size());
    change.setValue("s", "key5", "2");
    addition.setValue("s", "new", "2");
    EXPECT_TRUE(takesAtMost(
        6, [&] { textOf(change); }, [&] { textOf(addition); }));
}

TEST(DialectChanges, ACommentStaysBetweenTheHeadersOfItsStanza)
{
    Change const remove = [](Store& store) { store.deleteStanza("a"); };
    Change const removeAndSet = [](Store& store) {
        store.deleteStanza("a");
        std::string const after = textOf(store);
        store.setValue("b", "l", "3");
    };
    std::string const before = "[b]\nk=1\n# c\n[a]\nj=1\n[b]\nl=2\n";
    expectChanges({
        {"ini", before, remove, "[b]\nk=1\n# c\n\n[b]\nl=2\n"},
        {"ini", before, removeAndSet, "[b]\nk=1\n# c\n\n[b]\nl=3\n"},
    });
}

TEST(DialectChanges, ALineInsideAValueKeepsItsLineEnding)
{
    Change const set = [](Store& store) { store.setValue("a", "k", "x"); };
    expectChanges({
        {"python-inline", "[a]\nk = 1\njunk\r\n  2\nl = 3\n", set, "[a]\nk = x\njunk\r\nl = 3\n"},
        {"python-inline", "[a]\r\nk = 1\r\njunk\n  2\r\nl = 3\r\n", set,
         "[a]\r\nk = x\r\njunk\nl = 3\r\n"},
        {"python-inline", "[a]\nk = 1\njunk\r\n  2", set, "[a]\nk = x\njunk"},
    });
}

TEST(DialectChanges, ANewKeyBelowAnEmptyValueHasSpacesOnBothSidesOfItsSignOrOnNone)
{
    Change const add = [](Store& store) { store.setValue("a", "m", "y"); };
    expectChanges({
        {"systemd", "[a]\nl =\n", add, "[a]\nl =\nm = y\n"},
        {"python", "[a]\nl =\n", add, "[a]\nl =\nm = y\n"},
        {"python", "[a]\nl :\n", add, "[a]\nl :\nm : y\n"},
        {"systemd", "[a]\nlong = 1\nl    =\n", add, "[a]\nlong = 1\nl    =\nm    = y\n"},
        {"systemd", "[a]\nlong =\nl    =\n", add, "[a]\nlong =\nl    =\nm    = y\n"},
        {"python", "[a]\nlong : 1\nl    :\n", add, "[a]\nlong : 1\nl    :\nm    : y\n"},
        {"desktop", "[a]\nlong=1\nl   =\n", add, "[a]\nlong=1\nl   =\nm   = y\n"},
        {"systemd", "[a]\nk=1\nl=\n", add, "[a]\nk=1\nl=\nm=y\n"},
    });
}

TEST(DialectChanges, EachChangeCanBeUndone)
{
    struct File {
        char const* dialect;
        char const* text;
        char const* stanza;
        char const* key;
    };
    File const files[] = {
        {"systemd", "[s]\nk=a b \\\n\n[t]\n", "s", "k"},
        {"systemd", "[s]\nk=a \\\n# c\n  b\nl=1\n", "s", "k"},
        {"desktop", "[s]\nk  =  a\nl=1\n", "s", "k"},
        {"git", "[s]\n\tk = a \\\n\n[t]\n", "s", "k"},
        {"git", "[s] k = \"a b\" c ; d\n", "s", "k"},
        {"php", "[s]\nk = \"a\n b\" ; d\nl = 1\n", "s", "k"},
        {"php", "[s]\nk = A | B\n", "s", "k"},
        {"samba", "[s]\n\tk = a\\\nb\n\tl = 1\n", "s", "k"},
        {"mysql", "[s]\nk = 'a' # c\n", "s", "k"},
        {"python", "[s]\n  k = 1\njunk\n  b = 2\nl = 1\n", "s", "k"},
        {"python", "[s]\nk = 1\n  # c\n   2\n\n  3\n\nl = 1\n", "s", "k"},
        {"python-inline", "[s]\nk = 1 ; c\n  2 ; d\nl = 1\n", "s", "k"},
        {"qt", "[s]\nk=a\\\n\nl=1\n", "s", "k"},
        {"kconfig", "[s][$i]\nk[$e]=a\\\\b\n", "s", "k"},
        {"editorconfig", "[s]\nk : a  # c\n", "s", "k"},
        {"windows", "\xef\xbb\xbf[s]\r\nk=\r\nl=1", "s", "k"},
        {"sysctl", "junk\n-k = 1\n", ".", "k"},
        {"env", "export k=a\\\n\nl=1 # c\n", ".", "k"},
        {"env", "k='a\nb'\nl=1\n", ".", "k"},
    };
    for (File const& f : files) {
        SCOPED_TRACE(f.text);
        std::string const old = valueOf(f.dialect, f.text, f.stanza, f.key);
        for (char const* value : {"x", "", "y z", "\xc3\xa4"}) {
            std::string const after = changed(f.dialect, f.text, set(f.stanza, f.key, value));
            EXPECT_EQ(value, valueOf(f.dialect, after, f.stanza, f.key)) << after;
            std::string const undone = changed(f.dialect, after, set(f.stanza, f.key, old));
            EXPECT_EQ(old, valueOf(f.dialect, undone, f.stanza, f.key)) << undone;
        }
        std::string const added = changed(f.dialect, f.text, set(f.stanza, "new", "1"));
        EXPECT_EQ(f.text, changed(f.dialect, added,
                                  [&](Store& store) { store.deleteKey(f.stanza, "new"); }))
            << added;
    }
}

// At the start of a line, a mark of comments after values starts a comment, too.
TEST(DialectChanges, ACommentWithTheMarkOfCommentsAfterValuesStays)
{
    EXPECT_EQ(" ; c\nl=  2; c\n", changed("php,marks=#", " ; c\nl=  1; c\n", set(".", "l", "2")));
    EXPECT_EQ("l=2\n ; c\n[s]\n", changed("php,marks=#", "l=1\n ; c\n[s]\n", set(".", "l", "2")));
}

TEST(DialectChanges, AValueThatNoLineCouldGetKeepsItsLine)
{
    char const* const kept = "[s]\nk = \xe2\x80\xa9\nk = 1\n";
    auto const setBoth = [](char const* first, char const* second) {
        return [=](Store& store) {
            char const* const values[] = {first, second};
            store.setValues("s", "k", values, 2);
        };
    };
    EXPECT_EQ("[s]\nk = \xe2\x80\xa9\nk = 2\n",
              changed("python", kept, setBoth("\xe2\x80\xa9", "2")));
    EXPECT_EQ(kept, changed("python", kept, setBoth("\xe2\x80\xa9", "1")));
    EXPECT_EQ("refused", changed("python", kept, setBoth("\xe2\x80\xa8", "1")));
    EXPECT_EQ("refused", changed("python", kept, set("s", "l", "\xe2\x80\xa9")));
}
