// Changes of values in several lines: the lines whose contents stay are verbatim.
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "DialectStore.h"

namespace {

using Store = ZStanzaFileProperties_6_0;

class File {
public:
    File(char const* dialect, std::string const& text) : store_(1, dialectNamed(dialect))
    {
        store_.loadText(text.data(), text.size());
    }

    std::string value(char const* stanza)
    {
        ZLCString_6_0 found;
        store_.getValue(stanza, "k", found, 0, nullptr);
        return found.getChars();
    }

    std::string textWith(char const* stanza, std::string const& value)
    {
        try {
            store_.setValue(stanza, "k", value.c_str(), 0);
            return textOf(store_);
        } catch (ZPropertiesInvalidValueException_6_0 const&) {
            return "refused";
        }
    }

private:
    Store store_;
};

// Replaces the first `old` of the value.
struct Case {
    char const* name;
    char const* dialect;
    std::string before;
    std::string old;
    std::string now;
    std::string after;
};

void expectCases(std::vector<Case> const& cases)
{
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        char const* const stanza = c.before.find("[s]") == std::string::npos ? "." : "s";
        File file(c.dialect, c.before);
        std::string value = file.value(stanza);
        size_t const at = value.find(c.old);
        ASSERT_NE(std::string::npos, at) << value;
        value.replace(at, c.old.size(), c.now);
        EXPECT_EQ(c.after, file.textWith(stanza, value));
        EXPECT_EQ(value, File(c.dialect, c.after).value(stanza));
    }
}

}  // namespace

TEST(DialectContinued, AChangedLineKeepsTheOthers)
{
    expectCases({
        {"first", "systemd", "[s]\nk=a \\\n  b \\\n  c\nl=1\n", "a", "x",
         "[s]\nk=x \\\n  b \\\n  c\nl=1\n"},
        {"middle", "systemd", "[s]\nk=a \\\n  b \\\n  c\nl=1\n", "b", "x y",
         "[s]\nk=a \\\n  x y \\\n  c\nl=1\n"},
        {"last", "systemd", "[s]\nk=a \\\r\n  b \\\r\n  c \r\nl=1\r\n", "c", "x",
         "[s]\nk=a \\\r\n  b \\\r\n  x \r\nl=1\r\n"},
        {"two", "networkd", "[s]\nk=a \\\n  b \\\n  c \\\n  d \\\n  e\n", "b    c    d",
         "x    c    y", "[s]\nk=a \\\n  x \\\n  c \\\n  y \\\n  e\n"},
        {"two neighbours", "systemd", "[s]\nk=a \\\n  b \\\n  c \\\n  d\n", "b    c", "x    y",
         "[s]\nk=a \\\n  x \\\n  y \\\n  d\n"},
        {"samba", "samba", "[s]\n\tk = a \\ \n\t  b \\\n\t  c\n", "b", "x",
         "[s]\n\tk = a \\ \n\t  x \\\n\t  c\n"},
        {"git", "git", "[s]\n\tk = a \\\n  \"b ; \\\" \\\n  c\" \\\n d # c\n", "a", "x",
         "[s]\n\tk = x \\\n  \"b ; \\\" \\\n  c\" \\\n d # c\n"},
        {"git, inside quotes", "git", "[s]\n\tk = \"a \\\n  b \\\n  c\" # c\n", "b", "x # \"",
         "[s]\n\tk = \"a \\\n  x # \\\" \\\n  c\" # c\n"},
        {"git, gets quotes", "git", "[s]\n\tk = a \\\n  b \\\n  c # c\n", "b", "x # y",
         "[s]\n\tk = a \\\n  \"x # y\" \\\n  c # c\n"},
        {"git, opening line", "git", "[s]\n\tk = \"a \\\n  b\" \\\n  c # c\n", "a", "x",
         "[s]\n\tk = \"x \\\n  b\" \\\n  c # c\n"},
        {"git, closing line", "git", "[s]\n\tk = \"a \\\n  b\" \\\n  c # c\n", "b", "x",
         "[s]\n\tk = \"a \\\n  x\" \\\n  c # c\n"},
        {"qt", "qt", "[s]\nk=a \\\n  b\\x41 \\\n  \"c, d\"\nl=1\n", "a", "x\xc3\xa9",
         "[s]\nk=x\\xe9 \\\n  b\\x41 \\\n  \"c, d\"\nl=1\n"},
        {"env", "env", "k=\"a \\\n  b \\\n  $c\" # c\n", "b", "`x`",
         "k=\"a \\\n  \\`x\\` \\\n  $c\" # c\n"},
        {"env, both kinds of breaks", "env", "k=\"a \\\n b\nc\n  d\"\n", "a", "x",
         "k=\"x \\\n b\nc\n  d\"\n"},
        {"env without quotes", "env", "k=a/\\\nb/\\\nc\nl=1\n", "b", "x", "k=a/\\\nx/\\\nc\nl=1\n"},
        {"php", "php", "[s]\nk = \"a\n  b\n  c\" ; c\n", "b", "x\"y",
         "[s]\nk = \"a\n  x\\\"y\n  c\" ; c\n"},
        // PHP closes a double quote at the end of a line.
        {"php, a quote at the end", "php", "[s]\nk = \"a\n  b\n  c\" ; c\n", "b", "x\"",
         "[s]\nk = 'a\n  x\"\n  c' ; c\n"},
        {"python", "python", "[s]\nk = a\n  b\n\tc \n", "b", "x", "[s]\nk = a\n  x\n\tc \n"},
    });
}

TEST(DialectContinued, LinesAreAddedAndRemoved)
{
    expectCases({
        {"added at the end", "systemd", "[s]\nk=a \\\n  b\nl=1\n", "b", "b    c",
         "[s]\nk=a \\\n  b \\\n  c\nl=1\n"},
        {"added in between", "systemd", "[s]\nk=a \\\n  b \\\n  c\n", "b    ", "b    x    y    ",
         "[s]\nk=a \\\n  b \\\n  x \\\n  y \\\n  c\n"},
        {"first removed", "systemd", "[s]\nk=a \\\n  b \\\n  c\n", "a    ", "",
         "[s]\nk=b \\\n  c\n"},
        {"middle removed", "samba", "[s]\nk = a \\\n  b \\\n  c\n", "b ", "",
         "[s]\nk = a \\\n  c\n"},
        {"last removed", "git", "[s]\n\tk = a \\\n  b \\\n  c # d\n", "   c", "",
         "[s]\n\tk = a \\\n  b # d\n"},
        {"removed with its quote", "git", "[s]\n\tk = a \\\n \"b ; \\\n  c\" \\\n d\n", " b ; ", "",
         "[s]\n\tk = a \\\n\"\\\n  c\" \\\n d\n"},
        {"first removed, and its spaces", "samba", "[s]\nk = a \\\n  b \\\n  c\n", "a ", "",
         "[s]\nk = b \\\n  c\n"},
        {"one line stays", "systemd", "[s]\nk=a \\\n  b\nl=1\n", "a    b", "a b",
         "[s]\nk=a b\nl=1\n"},
    });
}

TEST(DialectContinued, CommentsStayBetweenTheLinesThatStay)
{
    std::string const text = "[s]\nk=a \\\n# c\n  b \\\n; d\n  c\nl=1\n";
    expectCases({
        {"first", "systemd", text, "a", "x", "[s]\nk=x \\\n# c\n  b \\\n; d\n  c\nl=1\n"},
        {"middle", "systemd", text, "b", "x", "[s]\nk=a \\\n# c\n  x \\\n; d\n  c\nl=1\n"},
        {"last removed", "systemd", text, "    c", "", "[s]\n; d\nk=a \\\n# c\n  b\nl=1\n"},
        {"middle removed", "systemd", text, "b    ", "", "[s]\n; d\nk=a \\\n# c\n  c\nl=1\n"},
        {"one line stays", "systemd", text, "a    b    c", "a b c",
         "[s]\n# c\n; d\nk=a b c\nl=1\n"},
        {"python", "python", "[s]\nk = a\n# c\n  b\n; d\n  c\n", "b", "x",
         "[s]\nk = a\n# c\n  x\n; d\n  c\n"},
        {"python, last removed", "python", "[s]\nk = a\n# c\n  b\n; d\n  c\n", "\nc", "",
         "[s]\n; d\nk = a\n# c\n  b\n"},
    });
}

// The line breaks mean nothing in these formats: the lines that stay show where the others start.
TEST(DialectContinued, TheLinesBetweenChangedLinesStay)
{
    expectCases({
        {"samba, without spaces", "samba", "[s]\nk = a,\\\nb,\\\nc,\\\nd\n", "a,b,c,d", "X,b,c,Y",
         "[s]\nk = X,\\\nb,\\\nc,\\\nY\n"},
        {"samba", "samba", "[s]\nk=a, \\\n\tb, \\\n\tc d, \\\n\te\n", "a, b, c d", "X, b, Y",
         "[s]\nk=X, \\\n\tb, \\\n\tY, \\\n\te\n"},
        {"samba, three", "samba", "[s]\nk = a\\\n  b\\\n  c\\\n  d\\\n  e\n", "a b c d e",
         "X b Y d Z", "[s]\nk = X\\\n  b\\\n  Y\\\n  d\\\n  Z\n"},
        {"git", "git", "[s]\n\tk = /a/ \\\n\t/b/ \\\n\t\"/c/ ; \" \\\n\t/d/ # c\n", "/a/", "x y",
         "[s]\n\tk = x y \\\n\t/b/ \\\n\t\"/c/ ; \" \\\n\t/d/ # c\n"},
        {"qt", "qt", "[s]\r\nk=a, \\\r\nb, \\\r\nc, \\\r\nd\r\n", "a, b, c", "X, b, Y",
         "[s]\r\nk=X, \\\r\nb, \\\r\nY, \\\r\nd\r\n"},
        {"env", "env", "k=\"a:\\\nb:\\\nc:\\\nd\" # c\n", "a:b:c", "X:b:Y",
         "k=\"X:\\\nb:\\\nY:\\\nd\" # c\n"},
    });
}

TEST(DialectContinued, ExchangedLinesRemainTwoLines)
{
    expectCases({
        {"samba", "samba", "[s]\nk = a\\\n\t/p/1\\\n\t/p/2\\\n\tb\n", "\t/p/1\t/p/2",
         "\t/p/2\t/p/1", "[s]\nk = a\\\n\t/p/2\\\n\t/p/1\\\n\tb\n"},
        {"git", "git", "[s]\n\tk = a \\\n  b c \\\n  \"d ; \" \\\n  e\n", "  b c   d ;  ",
         "  d ;    b c ", "[s]\n\tk = a \\\n  \"d ; \" \\\n  b c \\\n  e\n"},
        {"qt, words in two lines", "qt", "[s]\nk=\"/p/1\\\n/p/2\\\nw 1\\\n x\"\n", "/p/2w 1",
         "w 1/p/2", "[s]\nk=\"/p/1\\\nw 1\\\n/p/2\\\n x\"\n"},
        {"systemd", "systemd", "[s]\nk=a \\\n  b \\\n  c \\\n  d\n", "b    c", "c    b",
         "[s]\nk=a \\\n  c \\\n  b \\\n  d\n"},
    });
}

// A line that would start or end inside a word has not stayed.
TEST(DialectContinued, AWordThatContainsAnOldLineIsInOneLine)
{
    expectCases({
        {"at its start", "samba", "[s]\nk = 1 \\\n  2 \\\n  3 \\\n  4\n", "1 2 3", "12 x",
         "[s]\nk = 12 \\\n  x \\\n  4\n"},
        {"at its end", "samba", "[s]\nk = 1,\\\n2\\\n,3\\\n,4\n", "1,2,3", "x,21,y",
         "[s]\nk = x,21,y\\\n,4\n"},
    });
}

// A comment after the value keeps its column if its line changes.
TEST(DialectContinued, ACommentAfterTheLastLineKeepsItsColumn)
{
    expectCases({
        {"shorter", "git", "[s]\n\tk = a \\\n  bcd    # c\n", "bcd", "x",
         "[s]\n\tk = a \\\n  x      # c\n"},
        {"longer", "git", "[s]\n\tk = a \\\n  bcd    # c\n", "bcd", "xxxxx",
         "[s]\n\tk = a \\\n  xxxxx  # c\n"},
        {"another line", "git", "[s]\n\tk = a \\\n  bcd    # c\n", "a", "xxx",
         "[s]\n\tk = xxx \\\n  bcd    # c\n"},
    });
}

// Words between spaces and line breaks; other words replace some. Nothing else changes.
TEST(DialectContinued, OnlyTheChangedWordsOfRandomValuesChange)
{
    struct Format {
        char const* dialect;
        char const* stanza;
        char const* start;
        char const* end;
        std::vector<char const*> breaks;
    };
    Format const formats[] = {
        {"systemd", "s", "[s]\nk=", "\nl=1\n", {" \\\n  ", "\\\n\t", " \\\n#c\n "}},
        {"networkd", "s", "[s]\n  k =  ", "  \nl=1\n", {" \\\r\n    "}},
        {"samba", "s", "[s]\n\tk = ", "\n", {" \\\n\t\t", "\\  \n  ", " \\\n"}},
        {"git", "s", "[s]\n\tk = ", " ; c\n", {" \\\n\t\t", "\\\n  ", " \\\n"}},
        {"git", "s", "[s]\n\tk = \"", "\" # c\n", {" \\\n\t\t", "\\\n  ", " \\\n"}},
        {"qt", "s", "[s]\nk=", "\nl=1\n", {" \\\n\t\t", "\\\n  "}},
        {"qt", "s", "[s]\nk=\"", "\"\nl=1\n", {" \\\n\t\t", "\n  "}},
        {"php", "s", "[s]\nk = \"", "\" ; c\n", {" \n\t\t", "\n"}},
        {"php", "s", "[s]\nk = '", "'\n", {" \n\t\t", "\n"}},
        {"env", ".", "k=\"", "\" # c\n", {" \\\n\t\t", "\n", " \n  "}},
        {"env", ".", "export k='", "'\n", {" \n\t\t", "\n"}},
        {"python", "s", "[s]\nk = ", "\nl = 1\n", {"\n  ", "\n\t\t", "\n#c\n  "}},
        {"python-inline", "s", "[s]\nk: ", "\nl: 1\n", {"\n  ", "\n;c\n  "}},
    };
    std::mt19937 random(7);
    auto const pick = [&](size_t count) { return random() % count; };
    for (Format const& format : formats) {
        SCOPED_TRACE(std::string(format.dialect) + " " + format.start);
        for (int round = 0; round < 300; ++round) {
            std::string before = format.start;
            std::string after = format.start;
            std::vector<std::pair<std::string, std::string>> changes;
            size_t const lines = 2 + pick(6);
            for (size_t i = 0; i < lines; ++i) {
                std::string const gap = i == 0 ? "" : format.breaks[pick(format.breaks.size())];
                before += gap;
                after += gap;
                size_t const words = 1 + pick(3);
                for (size_t w = 0; w < words; ++w) {
                    std::string const id = std::to_string(i) + std::to_string(w);
                    std::string const old = "v" + id + "e";
                    bool const isChanged = pick(4) == 0;
                    std::string const now =
                        isChanged ? std::string(1 + pick(4), 'n') + id + "e" : old;
                    if (isChanged)
                        changes.emplace_back(old, now);
                    std::string const space = w == 0 ? "" : " ";
                    before += space + old;
                    after += space + now;
                }
            }
            before += format.end;
            after += format.end;
            File file(format.dialect, before);
            std::string value = file.value(format.stanza);
            for (auto const& [old, now] : changes) {
                ASSERT_NE(std::string::npos, value.find(old)) << value;
                value.replace(value.find(old), old.size(), now);
            }
            EXPECT_EQ(after, file.textWith(format.stanza, value)) << before;
        }
    }
}

// Parts of random bytes, each with its own line: a part that becomes another changes its line only.
TEST(DialectContinued, APartOfRandomBytesChangesItsLineOnly)
{
    struct Format {
        char const* dialect;
        char const* stanza;
        char const* start;
        char const* end;
        char const* lineBreak;  // without meaning, or with the meaning of the space in `join`
        char const* join;
        char const* bytes;  // which mean themselves
    };
    Format const formats[] = {
        {"systemd", "s", "[s]\nk=", "\n", "\\\n", " ", "ab \t=[]\"'$%"},
        {"samba", "s", "[s]\nk = ", "\n", "\\\n", "", "ab=[]\"'$%"},
        {"git", "s", "[s]\n\tk = ", "\n", "\\\n", "", "ab =[]'$%"},
        {"git", "s", "[s]\n\tk = \"", "\"\n", "\\\n", "", "ab =[];#'$%"},
        {"qt", "s", "[s]\nk=", "\n", "\\\n", "", "ab =[]'$%"},
        {"qt", "s", "[s]\nk=\"", "\"\n", "\\\n", "", "ab =[];,'$%"},
        {"php", "s", "[s]\nk=\"", "\"\n", "\n", "\n", "ab =[];,'%"},
        {"env", ".", "k=\"", "\"\n", "\\\n", "", "ab =[];,'%"},
        {"env", ".", "k='", "'\n", "\n", "\n", "ab =[];,$\"%"},
        {"env", ".", "k=", "\n", "\\\n", "", "ab=@%"},
        {"python", "s", "[s]\nk = ", "\n", "\n  ", "\n", "ab=[]\"'$%"},
    };
    std::mt19937 random(11);
    auto const pick = [&](size_t count) { return random() % count; };
    for (Format const& format : formats) {
        SCOPED_TRACE(std::string(format.dialect) + " " + format.start);
        std::string const bytes = format.bytes;
        for (int round = 0; round < 400; ++round) {
            size_t const count = 3 + pick(5);
            size_t const changed = 1 + pick(count - 2);
            std::string before = format.start;
            std::string after = format.start;
            std::string value;
            std::string wanted;
            for (size_t i = 0; i < count; ++i) {
                auto const part = [&](char first, char last) {
                    std::string middle;
                    for (size_t rest = pick(6); rest > 0; --rest)
                        middle += bytes[pick(bytes.size())];
                    return first + middle + last;
                };
                auto const first = static_cast<char>('c' + 2 * i);
                std::string const old = part(first, 'x');
                std::string const now = i == changed ? part(first, 'y') : old;
                std::string const end = i + 1 < count ? format.lineBreak : format.end;
                std::string const join = i + 1 < count ? format.join : "";
                before += old + end;
                after += now + end;
                value += old + join;
                wanted += now + join;
            }
            File file(format.dialect, before);
            ASSERT_EQ(value, file.value(format.stanza)) << before;
            EXPECT_EQ(after, file.textWith(format.stanza, wanted)) << before;
        }
    }
}
