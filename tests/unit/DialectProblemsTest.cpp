// The problems of files in other dialects, and the dialect that is suggested for contents.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZStanzaDialect.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZStanzaProblem.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "FailingAllocator.h"
#include "LinearTime.h"
#include "MachineFiles.h"
#include "TestDirectory.h"

namespace fs = std::filesystem;

namespace {

using Problem = ZStanzaProblem_6_0;

std::string bytesOf(fs::path const& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

ZStanzaDialect_6_0 named(std::string const& name)
{
    ZStanzaDialect_6_0 dialect;
    EXPECT_EQ(1, ZStanzaDialect_6_0::named(name.c_str(), dialect)) << name;
    return dialect;
}

std::string describe(ZArrayList_6_0 const& list)
{
    std::string out;
    for (unsigned i = 0; i < list.size(); ++i) {
        auto const& problem = static_cast<Problem const&>(*list.get(i));
        out += std::to_string(problem.line()) + ":" + std::to_string(problem.column()) +
               (problem.kind() == Problem::note ? " note " : " error ") +
               std::to_string(problem.cause()) + " [" + problem.stanza().getChars() + "] " +
               problem.key().getChars() + ": " + problem.text().getChars() + "\n";
    }
    return out;
}

class DialectProblems : public testing::Test {
protected:
    std::string problemsOf(std::string const& dialect, std::string const& text)
    {
        directory_.write("file", text);
        ZArrayList_6_0 list(16, 1);
        ZStanzaFileProperties_6_0::findProblems(directory_.at("file").c_str(), named(dialect),
                                                list);
        return describe(list);
    }

    TestDirectory directory_;
};

}  // namespace

TEST_F(DialectProblems, HaveAPlaceACauseAndARemedy)
{
    struct Case {
        char const* dialect;
        std::string text;
        char const* expected;
    };
    Case const cases[] = {
        {"desktop", "[a]\nk=v\n", ""},
        {"desktop", "[a\n[b\"]\n[c[]\n",
         "1:1 error 1 [] : \"[a\": no \"]\" after the name in the header; add it\n"
         "3:1 error 20 [b\"] : \"[c[]\": the name in the header has characters that the format "
         "does "
         "not allow; write another name\n"},
        {"desktop", "k=1\n[a]\n  alone \r\n=x\nk]=1\n",
         "1:1 error 5 [] : \"k=1\": key above the first header; move it below a header\n"
         "3:3 error 3 [a] : \"alone\": neither a header, a comment nor a key with a separator; add "
         "the separator, or make it a comment\n"
         "4:1 error 4 [a] : \"=x\": no key before the separator; add one\n"
         "5:1 error 21 [a] : \"k]=1\": the key has characters that the format does not allow; "
         "write "
         "another key, or correct the characters after it\n"},
        {"desktop", "\xef\xbb\xbf[a]\nk=1\n",
         "1:1 error 6 [] : \"\xef\xbb\xbf[a]\": the file starts with a byte order mark; save it as "
         "UTF-8 without one\n"},
        {"git", "\xff\xfe[\n",
         "1:1 error 7 [] : \"\xff\xfe[\": the file is UTF-16; save it as UTF-8 without a byte "
         "order "
         "mark\n"},
        {"ini", std::string("k=1\nb\0=1\n", 9),
         "2:2 error 11 [] : \"b\": the line has a zero byte; remove it\n"},
        {"git", "[core]\n\tname = \xc3\xa4\\q\n\tother = \"x\n",
         "2:10 error 23 [core] : \"name = \xc3\xa4\\q\": the format does not have this escape; "
         "write two backslashes for one\n"
         "3:10 error 22 [core] : \"other = \"x\": a quote is not closed; close it\n"},
        {"systemd", "[A]\r\nk=1\rj=2\r\n; c\rl=3\n",
         "2:4 error 36 [A] : \"k=1\rj=2\": a carriage return is not followed by a newline; end "
         "each "
         "line with a newline, and remove other carriage returns\n"
         "3:4 error 36 [A] : \"; c\rl=3\": a carriage return is not followed by a newline; end "
         "each "
         "line with a newline, and remove other carriage returns\n"},
        {"git", "[a\rk = \"1\r",
         "1:3 error 36 [] : \"[a\rk = \"1\r\": a carriage return is not followed by a newline; end "
         "each line with a newline, and remove other carriage returns\n"},
        {"php", "k = \"1\r2\"\r\n", ""},
        {"env", "k=\"\r\"\r",
         "1:6 error 36 [] : \"k=\"\r\"\r\": a carriage return is not followed by a newline; end "
         "each line with a newline, and remove other carriage returns\n"},
        {"php", "a = 1\nb = \"x\n\n",
         "2:5 error 22 [.] : \"b = \"x\": a quote is not closed; close it\n"},
        {"systemd", "<?xml?>\n<service/>\n",
         "1:1 error 25 [] : \"<?xml?>\": the file has neither a header nor a key of this format; "
         "choose another dialect\n"
         "1:1 note 26 [] : \"<?xml?>\": programs that read this format ignore the line: no header "
         "is "
         "above it; correct it, or make it a comment\n"
         "2:1 note 26 [] : \"<service/>\": programs that read this format ignore the line: no "
         "header "
         "is above it; correct it, or make it a comment\n"},
        {"systemd", "\xef\xbb\xbfk=1\n[A]\nalone\n=x\n",
         "1:1 note 26 [] : \"\xef\xbb\xbfk=1\": programs that read this format ignore the line: no "
         "header is above it; correct it, or make it a comment\n"
         "3:1 note 26 [A] : \"alone\": programs that read this format ignore the line: it has no "
         "separator; correct it, or make it a comment\n"
         "4:1 note 26 [A] : \"=x\": programs that read this format ignore the line: it has no key "
         "before the separator; correct it, or make it a comment\n"},
        {"env", "A= x\nB=1\n",
         "1:1 note 26 [.] : \"A= x\": programs that read this format ignore the line: a space is "
         "next to the separator; correct it, or make it a comment\n"},
        {"kconfig", "[A][B]\nk=1\n[c\n",
         "3:1 note 26 [A][B] : \"[c\": programs that read this format ignore the line: it starts "
         "with \"[\" and has no \"]\"; correct it, or make it a comment\n"},
        {"mysql", "!include x\n[a]\nk=1\nk=2\n",
         "1:1 note 28 [] : \"!include x\": directives are kept, but not followed; read the other "
         "file as well if its values matter\n"},
        {"ini,repeatedHead=refused", "[a]\nk=1\n[a]\n",
         "3:1 error 2 [a] : \"[a]\": duplicate stanza; merge it with the earlier one of that "
         "name\n"},
        {"samba", "[A]\nMax Log = 1\nk = 1\n[a]\nmaxlog = 2\nk = 2\nmaxlog = 3\n",
         "2:1 note 27 [A] Max Log: another line with key \"Max Log\" counts, and this one is "
         "ignored; remove one of them\n"
         "3:1 note 27 [A] k: another line with key \"k\" counts, and this one is ignored; remove "
         "one of them\n"
         "5:1 note 27 [A] maxlog: another line with key \"maxlog\" counts, and this one is "
         "ignored; remove one of them\n"},
        {"samba", "[a]\n# on D:\\\n[b]\n  ; x \\\ny=1 \\\nz=1\n# end \\",
         "3:1 note 39 [a] : \"[b]\": the comment above continues here, but programs may read this "
         "line; remove the backslash above, or the line\n"
         "5:1 note 39 [a] : \"y=1 \\\": the comment above continues here, but programs may read "
         "this line; remove the backslash above, or the line\n"},
        {"windows", "[A]\nk=1\n[a]\nK=2\n",
         "3:1 note 37 [A] : \"[a]\": programs may read only the first of the stanzas with this "
         "name; join it with the earlier one\n"
         "4:1 note 27 [A] K: another line with key \"K\" counts, and this one is ignored; remove "
         "one of them\n"},
        {"php", "[a]\nk=1\n[b]\nk=1\n[a]\nl=1\n[A]\nk=1\n[a] ; c\n",
         "5:1 note 37 [a] : \"[a]\": programs may read only the last of the stanzas with this "
         "name; join it with the earlier one\n"
         "9:1 note 37 [a] : \"[a] ; c\": programs may read only the last of the stanzas with this "
         "name; join it with the earlier one\n"},
        {"php,joinedHeads=all", "[a]\nk=1\n[a]\nl=1\n", ""},
        {"git", "[a]\nk=1\n[a]\nl=1\n", ""},
        {"git,joinedHeads=first", "[a]\nk=1\n[A]\nl=1\n",
         "3:1 note 37 [a] : \"[A]\": programs may read only the first of the stanzas with this "
         "name; join it with the earlier one\n"},
        {"php", "k[]=1\nk[]=2\n", ""},
        {"git,joinedHeads=first", "[a]\nk=1\nk=2\n", ""},
        {"git,refusals=repeatedHeads", "[a]\nk=1\nk=2\n", ""},
        {"networkd", "[a]\nk=1\n[a]\nk=2\nk=3\n", ""},
        {"systemd", "[S]\na=1\nb=1\na=\na=2\n[S]\na=\na=3\nc=\nc=1\n",
         "2:1 note 27 [S] a: another line with key \"a\" counts, and this one is ignored; remove "
         "one of them\n"
         "5:1 note 27 [S] a: another line with key \"a\" counts, and this one is ignored; remove "
         "one of them\n"},
        {"networkd", "[a]\nk=1\n[a]\nk=2\nk=\n",
         "4:1 note 27 [a] k: another line with key \"k\" counts, and this one is ignored; remove "
         "one of them\n"},
        {"stanza", "[a]\nalone\n",
         "2:1 error 3 [a] : \"alone\": neither a stanza header, a comment nor KEY = VALUE; add "
         "\"=\", or \"#\" at the start\n"},
    };
    for (Case const& c : cases)
        EXPECT_EQ(c.expected, problemsOf(c.dialect, c.text)) << c.dialect << "\n" << c.text;
}

TEST_F(DialectProblems, IncludeLinesForWhichOnlyProgramsRefuseTheFile)
{
    std::string const refused = "programs that read this format refuse the file: ";
    struct Case {
        char const* dialect;
        char const* text;
        std::string expected;
    };
    Case const cases[] = {
        {"python", "[a]\nk = 1\n[b]\nk = 2\n[a]\nK: 3\nalone\n",
         "5:1 error 34 [a] : \"[a]\": " + refused +
             "the header is repeated; join it with the earlier one\n"
             "6:1 error 34 [a] K: \"K: 3\": " +
             refused +
             "the key is repeated; join it with the earlier one\n"
             "7:1 error 33 [a] : \"alone\": " +
             refused + "it has no separator; correct the line\n"},
        {"python", "[DEFAULT]\nk = 1\n[a]\nk = 2\n[DEFAULT]\nj = 1\n", ""},
        {"python-inline", "[a]\nk = 1\n[a]\nk = 2\n= 3\n",
         "2:1 note 27 [a] k: another line with key \"k\" counts, and this one is ignored; "
         "remove one of them\n"
         "5:1 error 33 [a] : \"= 3\": " +
             refused + "it has no key before the separator; correct the line\n"},
        {"systemd", "[A]\n# \xff\nk=\xc3\xa4\nl=a\\\n; \xfe\nb \xf0\xff\n",
         "6:3 error 33 [A] : \"b \xf0\xff\": " + refused +
             "it is not valid UTF-8; correct the line\n"},
        {"php", "[s]\nk = 5 # no\n",
         "2:9 error 33 [s] : \"k = 5 # no\": " + refused +
             "a word such as \"no\" is neither the whole value nor in quotes; correct the line\n"},
        {"php", "k = a\"b\"c\n",
         "1:5 note 35 [.] : \"k = a\"b\"c\": programs that read this format drop the quotes within "
         "the value; write quotes around the whole value\n"},
        {"env", "k=a\"b\"c\nl='d'\n",
         "1:3 note 35 [.] : \"k=a\"b\"c\": programs that read this format drop the quotes within "
         "the value; write quotes around the whole value\n"},
    };
    for (Case const& c : cases) {
        EXPECT_EQ(c.expected, problemsOf(c.dialect, c.text)) << c.dialect << "\n" << c.text;
        ZStanzaFileProperties_6_0 store(1, named(c.dialect));
        EXPECT_NO_THROW(store.load(directory_.at("file").c_str())) << c.text;
    }
}

TEST_F(DialectProblems, IncludeEachLineThatPhpCannotParse)
{
    struct Case {
        char const* line;
        size_t column;  // of the fault, in the second line; 0 if PHP accepts the file
    };
    Case const cases[] = {
        {"k = 5 # no", 9},
        {"k = no # 5", 5},
        {"k = x (y)", 7},
        {"k = none more", 5},
        {"no", 1},
        {"null = 1", 1},
        {"Yes = 1", 1},
        {"k = 'a' no", 9},
        {"k = (a", 5},
        {"k = a)", 6},
        {"k = a |", 5},
        {"k = | a", 5},
        {"k = a = b", 7},
        {"k = !", 5},
        {"k = ()", 6},
        {"k = yes&no", 5},
        {"k = ${a", 5},
        {"k = \"${a\"", 6},
        {"k{ = 1", 2},
        {"k[a = 1", 2},
        {"k[a] 1", 6},
        {"k = (a) b", 9},
        {"\tno", 2},
        {"k = \"a\" no", 9},
        {"k = a!b", 6},
        {"k = a${}", 6},
        {"k = yes;c", 0},
        {"k = nope", 0},
        {"k = \"no more\"", 0},
        {"k = not yes-or-no", 0},
        {" null = 1", 0},
        {"null[] = 1", 0},
        {"k = ~E_ALL & (A | !B)", 0},
        {"k = a${b}c", 0},
        {"k = 'x (y)'", 0},
        {"k = a $b", 0},
        {"nothing = 1", 0},
        {"a b-c.d = 1", 0},
        {"k = a ; (no", 0},
        {"k =", 0},
        {"k =;", 0},
        {"k[no] = 1", 0},
    };
    for (Case const& c : cases) {
        std::string const problems = problemsOf("php", "[s]\n" + std::string(c.line) + "\nz = 1\n");
        size_t const at = problems.find(" error 33 ");
        std::string const place = "2:" + std::to_string(c.column);
        if (c.column == 0)
            EXPECT_EQ(std::string::npos, at) << c.line << "\n" << problems;
        else
            EXPECT_NE(std::string::npos, problems.find(place + " error 33 [s] ")) << c.line << "\n"
                                                                                  << problems;
    }
}

TEST_F(DialectProblems, IncludeALineOfMoreThanAMebibyte)
{
    std::string const problems = problemsOf("ini", "k = 1\nk = " + std::string(1 << 20, 'x'));
    EXPECT_EQ("2:1048577 error 24 [] ", problems.substr(0, problems.find(':', 12))) << problems;
}

TEST_F(DialectProblems, OfAMissingFileAreAnExceptionThatChangesNothing)
{
    ZArrayList_6_0 list(16, 1);
    std::string const missing = directory_.at("missing");
    EXPECT_THROW(ZStanzaFileProperties_6_0::findProblems(missing.c_str(), named("git"), list),
                 ZPropertiesIOException_6_0);
    EXPECT_THROW(ZStanzaFileProperties_6_0::findProblems(nullptr, named("git"), list),
                 ZInvalidParameterException_6_0);
    EXPECT_THROW(ZStanzaFileProperties_6_0::findProblems("", named("git"), list),
                 ZInvalidParameterException_6_0);
    ZArrayList_6_0 borrowing(16, 0);
    EXPECT_THROW(ZStanzaFileProperties_6_0::findProblems(missing.c_str(), named("git"), borrowing),
                 ZInvalidParameterException_6_0);
    EXPECT_EQ(0u, list.size() + borrowing.size());
}

TEST_F(DialectProblems, BeyondTheLimitAreCountedWithoutMemory)
{
    constexpr unsigned kLimit = 100000;
    for (char const* const pattern : {"a=\n", "alone\n", "a=\nalone\n"}) {
        SCOPED_TRACE(pattern);
        unsigned long previous = 0;
        for (unsigned const count : {kLimit + 20000, 2 * kLimit}) {
            std::string text = "[s]\n";
            while (text.size() < count * strlen(pattern))
                text += pattern;
            directory_.write("file", text);
            ZArrayList_6_0 list(16, 1);
            FailingAllocator::failAt(ULONG_MAX);
            ZStanzaFileProperties_6_0::findProblems(directory_.at("file").c_str(), named("ini"),
                                                    list);
            unsigned long const asked = FailingAllocator::asked();
            FailingAllocator::stop();
            ASSERT_EQ(kLimit + 1, list.size());
            EXPECT_EQ(Problem::omitted, static_cast<Problem const*>(list.get(kLimit))->cause());
            // Vectors grow, but no line has an allocation of its own.
            if (previous != 0) {
                EXPECT_LT(asked, previous + 1000);
            }
            previous = asked;
        }
    }
}

TEST_F(DialectProblems, TakeLinearTime)
{
    struct Case {
        char const* pattern;
        char const* dialect = "ini";
    };
    Case const cases[] = {{"alone\n"},
                          {"k=1\n"},
                          {"[a]\n[b]\nk=1\n"},
                          {"[a]\nx=1\n=\n"},
                          {"[a]\nx=1\n=\n", "python"},
                          {"k=\xff\n", "systemd"},
                          {"k=\\\"x\n", "php"},
                          {"k='\n[\"\n", "php"},
                          {"k=(a\n[']\n", "php"}};
    for (auto const& [pattern, dialect] : cases) {
        EXPECT_TRUE(takesLinearTime(3000, [&, pattern = pattern,
                                           dialect = dialect](std::size_t size) {
            std::string text = "[a]\n";
            for (std::size_t i = 0; i < size; ++i)
                text += pattern;
            std::string const name = std::to_string(size);
            directory_.write(name, text);
            return [path = directory_.at(name), dialect] {
                ZArrayList_6_0 list(16, 1);
                ZStanzaFileProperties_6_0::findProblems(path.c_str(), named(dialect), list);
            };
        })) << pattern;
    }
}

TEST(SuggestedDialect, ReadsTheContentsWithoutAProblem)
{
    struct Case {
        char const* text;
        char const* dialect;  // null for none
    };
    Case const cases[] = {
        {"", nullptr},
        {"# only a comment\n", nullptr},
        {"[a]\n", nullptr},
        {"<xml/>\n", nullptr},
        {"\xff\xfe", nullptr},
        {"[remote \"origin\"]\n\turl = x\n", "git"},
        {"[a]\nk[de]=x\nk_y=1\n", "desktop"},
        {"[A]\nKx=1\n; c\n[B]\nKx=\n", "systemd"},
        {"[A]\nKx=1\n; c\n[A]\nJx=\n", "systemd"},
        {"[A]\nKx=1\n; c\n[A]\nKx=\n", "networkd"},
        {"; c\n[boot]\nk=1\n", "ini"},
        {"[a]\nk=1\n[a]\nk=2\n", "ini"},
        {"[a]\nk=1\n[zz", nullptr},
        {"k: v\n", nullptr},
        {"# c\npasswd: files\ngroup: files\n", nullptr},
        {"root = true\n[*.c]\nk: v\n", "editorconfig"},
        {"[PHP]\n; c\nk = 1\n", "php"},
        {"; c\nextension=curl\n", "php"},
        {"; c\n[www]\npm.max_children = 5\n", "php"},
        {"; c\nk = 1\n", "ini"},
        {"# c\nkernel.panic = 1\n", "sysctl"},
        {"[global]\n  map to guest = x\n; c\n", "samba"},
        {"[General]\nk=1,2;\n; c\nv=@Point(1 2)\n", "ini"},
        {"[Interface]\nA=1\n[Peer]\nB=1\n[Peer]\nB=2\n", "networkd"},
        {"[core]\n\tbare = false ; c\n\tflag\n", "git"},
        {"[a]\nk = 1\n[a]\nj = 1\n", "ini"},
        {"\xef\xbb\xbf[a]\nk = 1\n", "ini"},
        {"[mysqld]\nskip-name-resolve\n", "mysql"},
        {"[a]\nk=1\n\xc3\xa4\xc3\xb6 junk\n", nullptr},
        {"[a]\nk=1\nnot an option\n", nullptr},
        {"[a]\nk = 1\n  2\n", "python"},
        {"export A='x'\n", "env"},
    };
    for (Case const& c : cases)
        EXPECT_STREQ(c.dialect, ZStanzaDialect_6_0::readsAs(c.text, strlen(c.text))) << c.text;
    EXPECT_EQ(nullptr, ZStanzaDialect_6_0::readsAs(nullptr, 0));
    EXPECT_EQ(nullptr, ZStanzaDialect_6_0::readsAs("k=\0", 3));
    std::string const longLine = "[a]\nk = " + std::string(9000, 'x') + "\n";
    EXPECT_STREQ("ini", ZStanzaDialect_6_0::readsAs(longLine.data(), longLine.size()));
}

// Of the machine's files that stanza refuses and whose names decide, most get the right suggestion.
TEST(SuggestedDialect, IsMostlyThatOfTheName)
{
    std::map<std::string, std::map<std::string, int>> counts;
    int right = 0;
    int all = 0;
    forEachMachineFile([&](fs::directory_entry const& entry) {
        std::string const path = entry.path();
        std::error_code error;
        ZStanzaDialect_6_0 dialect;
        if (ZStanzaDialect_6_0::recognised(path.c_str(), nullptr, 0, dialect) == 0 ||
            !entry.is_regular_file(error) || entry.file_size(error) > 1 << 18)
            return;
        std::string const text = bytesOf(path);
        ZStanzaDialect_6_0::recognised(path.c_str(), text.data(), text.size(), dialect);
        try {
            ZStanzaFileProperties_6_0 const store(path.c_str(), 0);
        } catch (ZPropertiesInvalidDataException_6_0 const&) {
            char const* const name = ZStanzaDialect_6_0::readsAs(text.data(), text.size());
            ++counts[dialect.name()][name == nullptr ? "none" : name];
            ++all;
            right += name != nullptr && std::string(name) == dialect.name() ? 1 : 0;
        } catch (ZException_6_0 const&) {
        }
    });
    for (auto const& [expected, found] : counts)
        for (auto const& [name, count] : found)
            std::printf("%s read as %s: %d\n", expected.c_str(), name.c_str(), count);
    std::printf("%d of %d\n", right, all);
    EXPECT_LE(all, 2 * right);
}
