// The table directory: alias tables, converter files, and the effects of a bad one.
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "LinearTime.h"
#include "TextServices.h"

namespace {

int readdirError = 0;  // errno of a failing readdir(); 0: it works
int readError = 0;     // errno of the failing next read(); 0: it works

}  // namespace

// Replaces the C library's read(), also for the text services. The C++ name differs because
// <unistd.h> may define read() as an inline function in an optimised build.
extern "C" ssize_t replacedRead(int fd, void* buf, size_t count) __asm__("read");

ssize_t replacedRead(int fd, void* buf, size_t count)
{
    if (readError != 0) {
        errno = readError;
        readError = 0;
        return -1;
    }
    static auto const real =
        reinterpret_cast<ssize_t (*)(int, void*, size_t)>(dlsym(RTLD_NEXT, "read"));
    return real(fd, buf, count);
}

// As read().
extern "C" dirent* readdir(DIR* stream)
{
    if (readdirError != 0) {
        errno = readdirError;
        return nullptr;
    }
    static auto const real = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    return real(stream);
}

namespace {

// Restores the built-in tables after each test.
class qvrTables : public testing::Test {
protected:
    ~qvrTables() override { qvr_set_dir(""); }

    TemporaryDirectory directory_;
};

// The euro sign in a codeset; "none" if the codeset does not exist.
std::string euroIn(char const* codeset)
{
    Codeset const cs(codeset);
    return cs == nullptr ? "none" : hex(fromUtf8(cs, "\u20ac"));
}

std::string canonical(char const* name)
{
    char buf[512];
    return qvr_canonical_loc(name, buf, sizeof buf) == 0 ? buf : "none";
}

TEST_F(qvrTables, AMissingOrEmptyDirectoryLeavesTheBuiltInNames)
{
    directory_.write("file", "");
    std::string const names[] = {directory_.path(), directory_.path("missing"),
                                 directory_.path("missing/deeper"), directory_.path("file"), ""};
    for (std::string const& name : names) {
        SCOPED_TRACE(name);
        EXPECT_EQ(0, qvr_set_dir(name.c_str()));
        EXPECT_EQ("a4", euroIn("latin10"));
        EXPECT_EQ("ja_JP.EUC-JP", canonical("japanese"));
    }
}

TEST_F(qvrTables, ARelativeDirectoryIsMissingWithoutAWorkingDirectory)
{
    std::filesystem::path const before = std::filesystem::current_path();
    std::string const gone = directory_.path("gone");
    std::filesystem::create_directory(gone);
    std::filesystem::current_path(gone);
    std::filesystem::remove(gone);
    EXPECT_EQ(0, qvr_set_dir("tables"));
    EXPECT_EQ(0, qvr_set_dir("."));
    std::filesystem::current_path(before);
    EXPECT_EQ("a4", euroIn("latin10"));
}

TEST_F(qvrTables, NamesOfTheDirectoryTakePrecedence)
{
    directory_.write("codesets.alias",
                     "# our own names\n"
                     "\n"
                     "house-codeset  ISO-8859-15\n"
                     "\tLATIN1\twindows-1252   # as most texts that say so are\r\n"
                     "second latin10\n"
                     "loop-a loop-b\n"
                     "loop-b loop-a\n"
                     "last UTF-8");
    directory_.write("locales.alias",
                     "house  fr_FR.latin1\n"
                     "german de_AT.UTF-8\n"
                     "nihon  japanese\n");
    ASSERT_EQ(0, qvr_set_dir(directory_.path().c_str()));
    EXPECT_EQ("a4", euroIn("house-codeset"));
    EXPECT_EQ("a4", euroIn("House_Codeset")) << "case, hyphens and underscores are ignored";
    EXPECT_EQ("80", euroIn("latin-1"));
    EXPECT_EQ("80", euroIn("windows-1252"));
    EXPECT_EQ("a4", euroIn("second")) << "through the built-in table as well";
    EXPECT_EQ("e282ac", euroIn("last"));
    EXPECT_EQ("none", euroIn("loop-a"));
    EXPECT_EQ("none", euroIn("house"));
    EXPECT_EQ("fr_FR.ISO-8859-1", canonical("house"));
    EXPECT_EQ("de_AT.UTF-8", canonical("GERMAN"));
    EXPECT_EQ("ja_JP.EUC-JP", canonical("nihon"));
    EXPECT_EQ("fr_FR.ISO-8859-1", canonical("french"));

    ASSERT_EQ(0, qvr_set_dir(""));
    EXPECT_EQ("none", euroIn("house-codeset"));
    EXPECT_EQ("house", canonical("house"));
    EXPECT_EQ("de_DE.ISO-8859-1", canonical("german"));
}

TEST_F(qvrTables, ExistingHandlesAreUnchanged)
{
    directory_.write("codesets.alias", "house ISO-8859-15\n");
    ASSERT_EQ(0, qvr_set_dir(directory_.path().c_str()));
    Codeset const cs("house");
    ASSERT_EQ(0, qvr_set_dir(""));
    EXPECT_EQ("\xA4", fromUtf8(cs, "\u20ac"));
}

TEST_F(qvrTables, ABadTableChangesNothing)
{
    struct Case {
        char const* name;
        char const* table;
        std::string text;
    };
    std::string const longest(127, 'x');
    Case const cases[] = {
        {"one word", "codesets.alias", "good UTF-8\nalone\n"},
        {"three words", "codesets.alias", "good UTF-8\nhouse ISO-8859-15 really\n"},
        {"last line, no newline", "codesets.alias", "good UTF-8\nalone"},
        {"name after a comment", "codesets.alias", "alone # UTF-8\n"},
        {"too long an alias", "codesets.alias", longest + "y UTF-8\n"},
        {"too long a name", "codesets.alias", "house " + longest + "y\n"},
        {"not ASCII", "codesets.alias", "h\u00e4user UTF-8\n"},
        {"control character", "codesets.alias", "hou\x01se UTF-8\n"},
        {"delete", "codesets.alias", "hou\x7Fse UTF-8\n"},
        {"NUL", "codesets.alias", std::string("house UTF\0-8\n", 13)},
        {"slash", "codesets.alias", "house ../UTF-8\n"},
        {"backslash", "codesets.alias", "house a\\b\n"},
        {"comma in a name", "codesets.alias", "house ISO-2022-JP,version=2\n"},
        {"comma in an alias", "codesets.alias", "hou,se UTF-8\n"},
        {"twice", "codesets.alias", "house UTF-8\nother UTF-8\nHOUSE UTF-8\n"},
        {"twice, written differently", "codesets.alias", "my-house UTF-8\nmyhouse UTF-8\n"},
        {"twice, differing in leading zeros", "codesets.alias",
         "no1 UTF-8\nxyz UTF-8\nno001 UTF-8\n"},
        {"too big", "codesets.alias", std::string((1 << 20) + 1, '\n')},
        {"in the other table", "locales.alias", "alone\n"},
        {"twice in the other table", "locales.alias", "house C\nHouse C\n"},
    };
    TemporaryDirectory before;
    before.write("codesets.alias", "before ISO-8859-15\n");
    before.write("locales.alias", "before fr_FR\n");
    ASSERT_EQ(0, qvr_set_dir(before.path().c_str()));
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryDirectory bad;
        bad.write(std::strcmp(c.table, "codesets.alias") == 0 ? "locales.alias" : "codesets.alias",
                  "good UTF-8\n");
        bad.write(c.table, c.text);
        EXPECT_EQ(qvrInvalid, qvr_set_dir(bad.path().c_str()));
        EXPECT_EQ("a4", euroIn("before"));
        EXPECT_EQ("fr_FR", canonical("before"));
        EXPECT_EQ("none", euroIn("good"));
    }
}

// The report of qvr_check_dir() about a directory.
std::string problemOf(TemporaryDirectory const& directory, int expected = qvrInvalid)
{
    char problem[8192] = "before";
    EXPECT_EQ(expected, qvr_check_dir(directory.path().c_str(), problem, sizeof problem));
    return problem;
}

TEST_F(qvrTables, ACheckReportsFileLineAndProblem)
{
    struct Case {
        char const* name;
        char const* table;
        std::string text;
        std::string problem;  // after the path
    };
    std::string const longest(127, 'x');
    std::string const noNames = ": not two names; write an alias and the name it stands for";
    std::string const noName =
        " is not a name; write up to 127 characters of ASCII, none of / \\ ,";
    Case const cases[] = {
        {"one word", "codesets.alias", "# ours\n\ngood UTF-8\nalone\n", ":4" + noNames},
        {"three words", "codesets.alias", "house ISO-8859-15 really\n", ":1" + noNames},
        {"last line", "locales.alias", "good C\nalone", ":2" + noNames},
        {"too long", "codesets.alias", longest + "y UTF-8\n",
         ":1: \"" + longest + "...\"" + noName},
        {"control character", "codesets.alias", "a UTF-8\nh\x1Bo UTF-8\n", ":2: \"h?o\"" + noName},
        {"slash", "codesets.alias", "house ../UTF-8\n", ":1: \"../UTF-8\"" + noName},
        {"twice", "codesets.alias", "z UTF-8\nz UTF-8\nhouse UTF-8\nother UTF-8\nHOUSE UTF-8\n",
         ":2: \"z\" has a line already, 1; remove one of them"},
        {"twice, written differently", "locales.alias", "a C\nhouse C\nb C\nHOUSE C\n",
         ":4: \"HOUSE\" has a line already, 2; remove one of them"},
        {"too big", "codesets.alias", std::string((1 << 20) + 1, '\n'),
         ": larger than 1 MiB; remove rows"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        TemporaryDirectory bad;
        bad.write(c.table, c.text);
        EXPECT_EQ(bad.path(c.table) + c.problem, problemOf(bad));
        EXPECT_EQ(qvrInvalid, qvr_set_dir(bad.path().c_str()));
    }
}

TEST_F(qvrTables, ACheckReportsAnUnreadableFile)
{
    std::string const table = directory_.path("locales.alias");
    ASSERT_EQ(0, mkfifo(table.c_str(), 0600));
    EXPECT_EQ(table + ": not a regular file; replace it by one or remove it",
              problemOf(directory_));
    std::filesystem::remove(table);
    ASSERT_EQ(0, symlink("locales.alias", table.c_str()));
    EXPECT_EQ(table +
                  ": cannot open: Too many levels of symbolic links; check the path and its "
                  "permissions",
              problemOf(directory_));
    std::filesystem::remove(table);
    directory_.write("locales.alias", "house C\n");
    readError = EIO;
    EXPECT_EQ(table + ": cannot read: Input/output error; check the path and its permissions",
              problemOf(directory_));
    std::string const converters = directory_.path("converters");
    std::filesystem::create_directory(converters);
    readdirError = EIO;
    std::string const problem = problemOf(directory_);
    readdirError = 0;
    EXPECT_EQ(converters + ": cannot read: Input/output error; check the path and its permissions",
              problem);
    EXPECT_EQ("", problemOf(directory_, 0));
}

TEST_F(qvrTables, ACheckChangesNothingAndStaysInItsBuffer)
{
    directory_.write("codesets.alias", "house ISO-8859-15\n");
    EXPECT_EQ("", problemOf(directory_, 0));
    EXPECT_EQ("none", euroIn("house"));
    EXPECT_EQ(0, qvr_check_dir("", nullptr, 0));
    char problem[32] = "before";
    EXPECT_EQ(qvrInvalid, qvr_check_dir(nullptr, problem, sizeof problem));
    EXPECT_STREQ("", problem);
    EXPECT_EQ(0, qvr_check_dir(directory_.path("missing").c_str(), problem, sizeof problem));

    directory_.write("codesets.alias", "alone\n");
    std::string const whole = problemOf(directory_);
    for (size_t room = 1; room < sizeof problem; ++room) {
        memset(problem, '~', sizeof problem);
        EXPECT_EQ(qvrInvalid, qvr_check_dir(directory_.path().c_str(), problem, room));
        EXPECT_EQ(whole.substr(0, room - 1), problem);
        EXPECT_EQ(room == 1 ? 0 : whole[room - 2], problem[room == 1 ? 0 : room - 2]);
        EXPECT_EQ('~', problem[room]);
    }
    problem[0] = '~';
    EXPECT_EQ(qvrInvalid, qvr_check_dir(directory_.path().c_str(), problem, 0));
    EXPECT_EQ('~', problem[0]);
    EXPECT_EQ(qvrInvalid, qvr_check_dir(directory_.path().c_str(), nullptr, 5));
}

TEST_F(qvrTables, ARowCannotChangeTheMeaningOfABuiltInName)
{
    struct Case {
        char const* table;
        char const* alias;
        char const* name;
    };
    Case const refused[] = {
        {"codesets.alias", "UTF-8", "ISO-8859-1"},
        {"codesets.alias", "utf8", "UTF-16"},
        {"codesets.alias", "Utf_8", "house"},
        {"codesets.alias", "ibm-1208", "ISO-8859-1"},
        {"codesets.alias", "UTF8", "no-such-codeset"},
        {"codesets.alias", "ANSI_X3.4-1968", "UTF-8"},
        {"codesets.alias", "US-ASCII", "ISO-8859-1"},
        {"codesets.alias", "UHC", "EUC-KR"},
        {"codesets.alias", "EUC-JP", "UTF-8"},
        {"codesets.alias", "latin10", "ISO-8859-1"},
        {"codesets.alias", "KZ-1048", "PT154"},
        {"locales.alias", "C", "de_DE.UTF-8"},
        {"locales.alias", "posix", "en_US"},
    };
    directory_.write("codesets.alias", "house ISO-8859-15\n");
    ASSERT_EQ(0, qvr_set_dir(directory_.path().c_str()));
    for (Case const& c : refused) {
        SCOPED_TRACE(c.alias);
        TemporaryDirectory bad;
        bad.write(c.table, std::string("good UTF-8\n\n") + c.alias + ' ' + c.name + '\n');
        EXPECT_EQ(bad.path(c.table) + ":3: \"" + c.alias +
                      "\" is built in and cannot stand for \"" + c.name + "\"; remove the line",
                  problemOf(bad));
        EXPECT_EQ(qvrInvalid, qvr_set_dir(bad.path().c_str()));
        EXPECT_EQ("e282ac", euroIn("UTF8"));
        EXPECT_EQ("a4", euroIn("house")) << "the tables are unchanged";
    }
    Case const taken[] = {
        {"codesets.alias", "UTF8", "utf-8"},        {"codesets.alias", "UTF-8", "ibm-1208"},
        {"codesets.alias", "ASCII", "646"},         {"codesets.alias", "SJIS", "Shift_JIS"},
        {"codesets.alias", "PTCP154", "PT154"},     {"codesets.alias", "latin1", "windows-1252"},
        {"codesets.alias", "UTF-9", "UTF-8"},       {"locales.alias", "posix", "C"},
        {"locales.alias", "german", "de_AT.UTF-8"},
    };
    for (Case const& c : taken) {
        SCOPED_TRACE(c.alias);
        TemporaryDirectory good;
        good.write(c.table, std::string(c.alias) + ' ' + c.name + '\n');
        EXPECT_EQ("", problemOf(good, 0));
        EXPECT_EQ(0, qvr_set_dir(good.path().c_str()));
        EXPECT_EQ("e282ac", euroIn("UTF8"));
    }
}

TEST_F(qvrTables, AConverterFileCannotReplaceUtf8)
{
    std::filesystem::create_directory(directory_.path("converters"));
    for (char const* const name : {"utf-8.cnv", "UTF8.cnv", "ibm-1208.cnv"}) {
        SCOPED_TRACE(name);
        std::string const path = directory_.path("converters") + '/' + name;
        std::ofstream(path) << "anything";
        EXPECT_EQ(path + ": UTF-8 is built in; remove the file", problemOf(directory_));
        EXPECT_EQ(qvrInvalid, qvr_set_dir(directory_.path().c_str()));
        EXPECT_EQ("e282ac", euroIn("UTF-8"));
        std::filesystem::remove(path);
    }
    EXPECT_EQ(0, qvr_set_dir(directory_.path().c_str()));
}

TEST_F(qvrTables, OnlyAReadableRegularFileIsATable)
{
    struct Case {
        char const* name;
        void (*make)(char const* path);
    };
    Case const cases[] = {
        {"directory", [](char const* path) { mkdir(path, 0700); }},
        {"FIFO", [](char const* path) { EXPECT_EQ(0, mkfifo(path, 0600)); }},
        {"device", [](char const* path) { EXPECT_EQ(0, symlink("/dev/zero", path)); }},
        {"link to itself", [](char const* path) { EXPECT_EQ(0, symlink(path, path)); }},
        {"unreadable",
         [](char const* path) {
             std::ofstream(path) << "house UTF-8\n";
             chmod(path, 0);
         }},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        if (std::strcmp(c.name, "unreadable") == 0 && geteuid() == 0)
            continue;  // root can read everything
        TemporaryDirectory directory;
        c.make(directory.path("codesets.alias").c_str());
        EXPECT_EQ(qvrInvalid, qvr_set_dir(directory.path().c_str()));
    }
}

TEST_F(qvrTables, AnInterruptedReadIsRetriedAndAFailedReadIsReported)
{
    directory_.write("codesets.alias", "house ISO-8859-15\n");
    readError = EINTR;
    EXPECT_EQ(0, qvr_set_dir(directory_.path().c_str()));
    EXPECT_EQ(0, readError);
    EXPECT_EQ("a4", euroIn("house"));
    TemporaryDirectory other;
    other.write("codesets.alias", "other ISO-8859-15\n");
    readError = EIO;
    EXPECT_EQ(qvrInvalid, qvr_set_dir(other.path().c_str()));
    EXPECT_EQ("a4", euroIn("house"));
    EXPECT_EQ("none", euroIn("other"));
}

TEST_F(qvrTables, AnUnreadableDirectoryOfConvertersChangesNothing)
{
    directory_.write("codesets.alias", "house ISO-8859-15\n");
    ASSERT_EQ(0, qvr_set_dir(directory_.path().c_str()));
    TemporaryDirectory other;
    std::filesystem::create_directory(other.path("converters"));
    other.write("codesets.alias", "other ISO-8859-15\n");
    readdirError = EIO;
    int const rc = qvr_set_dir(other.path().c_str());
    readdirError = 0;
    EXPECT_EQ(qvrInvalid, rc);
    EXPECT_EQ("a4", euroIn("house"));
    EXPECT_EQ("none", euroIn("other"));
    EXPECT_EQ(0, qvr_set_dir(other.path().c_str()));
}

// A table of `size` bytes, with a different name in each row.
std::string tableOf(size_t size)
{
    std::string table;
    std::string name = "aaaa";
    while (table.size() + 7 <= size) {
        table += name + " C\n";
        for (size_t at = name.size(); at-- > 0;) {
            if (name[at] != 'z') {
                ++name[at];
                break;
            }
            name[at] = 'a';
        }
    }
    return table;
}

TEST_F(qvrTables, TheLargestTableIsRead)
{
    std::string table = tableOf(1 << 20);
    directory_.write("codesets.alias", table);
    directory_.write("locales.alias", table);
    EXPECT_EQ(0, qvr_set_dir(directory_.path().c_str()));
    for (char const* const name : {"aaaa", "FNJG", "zzz"})
        EXPECT_EQ(name[3] != 0 ? "C" : "zzz", canonical(name)) << name;

    table.replace(table.size() - 7, 4, "aaaa");
    directory_.write("codesets.alias", table);
    EXPECT_EQ(qvrInvalid, qvr_set_dir(directory_.path().c_str()));
}

TEST_F(qvrTables, ATableIsReadInLinearTime)
{
    auto const prepare = [this](size_t size) {
        std::string const path = directory_.path(std::to_string(size).c_str());
        std::filesystem::create_directory(path);
        for (char const* const file : {"/codesets.alias", "/locales.alias"})
            std::ofstream(path + file) << tableOf(size);
        return [path] { EXPECT_EQ(0, qvr_set_dir(path.c_str())); };
    };
    EXPECT_TRUE(takesLinearTime(8 << 10, prepare));
}

// ICU would take text after a comma for an option.
TEST_F(qvrTables, NamesWithOptionsAreUnknown)
{
    for (char const* const name :
         {"ISO-2022-JP,version=2", "IBM-1047,swaplfnl", "UTF-8,", ",UTF-8"})
        EXPECT_EQ(nullptr, qvr_cs_t(Codeset(name))) << name;
    EXPECT_NE(nullptr, qvr_cs_t(Codeset("ISO-2022-JP")));
}

TEST_F(qvrTables, LongNamesFillTheirBuffer)
{
    std::string const longest(127, 'x');
    directory_.write("codesets.alias", longest + " ISO-8859-15\n");
    ASSERT_EQ(0, qvr_set_dir(directory_.path().c_str()));
    EXPECT_EQ("a4", euroIn(longest.c_str()));
}

// The delivered tables list the built-in names, and every name in them resolves.
TEST_F(qvrTables, DeliveredTablesListTheBuiltInNames)
{
    char const* const shipped = std::getenv("QVRDIR");
    if (shipped == nullptr)
        GTEST_SKIP() << "QVRDIR does not name the tables";
    for (bool const given : {false, true}) {
        ASSERT_EQ(0, qvr_set_dir(given ? shipped : ""));
        size_t rows = 0;
        for (char const* const table : {"codesets.alias", "locales.alias"}) {
            std::ifstream file(std::string(shipped) + '/' + table);
            ASSERT_TRUE(file.good());
            for (std::string line; std::getline(file, line);) {
                if (line.empty() || line[0] == '#')
                    continue;
                SCOPED_TRACE(line);
                ++rows;
                std::string const alias = line.substr(0, line.find(' '));
                std::string const name = line.substr(line.rfind(' ') + 1);
                if (table[0] == 'l') {
                    EXPECT_EQ(canonical(name.c_str()), canonical(alias.c_str()));
                    EXPECT_NE(alias, canonical(alias.c_str()));
                    continue;
                }
                Codeset const one(alias.c_str());
                Codeset const other(name.c_str());
                ASSERT_NE(nullptr, qvr_cs_t(one));
                ASSERT_NE(nullptr, qvr_cs_t(other));
                for (char const* const probe : {"A\\~", "\u20ac", "\u8868", "\u4e02", "\u0416"})
                    EXPECT_EQ(hex(fromUtf8(other, probe)), hex(fromUtf8(one, probe)));
            }
        }
        EXPECT_LT(50u, rows);
    }
}

// A small character map, with a character of two code points, of which the first is a character
// too.
constexpr char kMap[] = R"(<code_set_name>  "house"
<mb_cur_min>     1
<mb_cur_max>     2
<uconv_class>    "MBCS"
<subchar>        \x1A
<icu:state>      0-80, 88:1
<icu:state>      40-7e
CHARMAP
<U0000> \x00 |0
<U001A> \x1A |0
<U0041> \x41 |0
<U0061> \x61 |0
<U20AC> \x80 |0
<U8868> \x88\x41 |0
<U00CA> \x88\x66 |0
<U00CA><U0304> \x88\x62 |0
END CHARMAP
)";

class qvrConverterFiles : public qvrTables {
protected:
    // Creates converters/<name>.cnv in the test's directory; false if the tool is not installed.
    bool make(char const* name, std::string const& map)
    {
        std::filesystem::create_directory(directory_.path("converters"));
        std::string const source = directory_.path(name) + ".ucm";
        std::ofstream(source, std::ios::binary) << map;
        std::string const command = "makeconv --small -d " + directory_.path("converters") + ' ' +
                                    source + " >/dev/null 2>&1";
        return std::system(command.c_str()) == 0;
    }
};

TEST_F(qvrConverterFiles, AddACodeset)
{
    if (!make("house", kMap))
        GTEST_SKIP() << "makeconv (Debian package icu-devtools) does not work here";
    directory_.write("codesets.alias", "own-name house\n");
    EXPECT_EQ("none", euroIn("house"));
    std::filesystem::copy_file(directory_.path("converters/house.cnv"),
                               directory_.path("converters/my house.cnv"));
    ASSERT_EQ(0, qvr_set_dir(directory_.path().c_str()));
    EXPECT_EQ("none", euroIn("my house")) << "not the name of a codeset";
    for (char const* const name : {"house", "HOUSE", "own-name"}) {
        SCOPED_TRACE(name);
        Codeset const cs(name);
        ASSERT_NE(nullptr, qvr_cs_t(cs));
        EXPECT_EQ("A\x88\x41", fromUtf8(cs, "A\u8868"));
        EXPECT_EQ("A\u8868", toUtf8(cs, "A\x88\x41"));
        EXPECT_EQ("failed: -1", fromUtf8(cs, "B"));
        EXPECT_EQ(2, qvr_mblen(cs, "\x88\x41", 2));
        EXPECT_EQ(-1, qvr_mblen(cs, "\x88\x42", 2));
    }
    Codeset const cs("house");
    ASSERT_EQ(0, qvr_set_dir(""));
    EXPECT_EQ("none", euroIn("house"));
    EXPECT_EQ("A\x88\x41", fromUtf8(cs, "A\u8868")) << "existing handles are unchanged";
}

TEST_F(qvrConverterFiles, ACharacterOfSeveralCodePointsHasALengthButNoValue)
{
    if (!make("house", kMap))
        GTEST_SKIP() << "makeconv (Debian package icu-devtools) does not work here";
    ASSERT_EQ(0, qvr_set_dir(directory_.path().c_str()));
    Codeset const cs("house");
    char const text[] = "\x88\x62";
    uint32_t value = 7;
    EXPECT_EQ(text, fromUtf8(cs, "\u00ca\u0304"));
    EXPECT_EQ(2, qvr_mblen(cs, text, 2));
    EXPECT_EQ(-1, qvr_mbtowc(cs, &value, text, 2));
    EXPECT_EQ(7u, value);
    EXPECT_EQ("\u00ca\u0304", toUtf8(cs, text));
    EXPECT_EQ("\x88\x66", fromUtf8(cs, "\u00ca"));
    EXPECT_EQ("\x88\x66\x88\x41\x88\x62", fromUtf8(cs, "\u00ca\u8868\u00ca\u0304"));
    char out[qvrMbLenMax];
    EXPECT_EQ(2, qvr_wctomb(cs, out, sizeof out, 0xCA));
    char copy[] =
        "a\x88\x62"
        "a";
    EXPECT_STREQ(
        "A\x88\x62"
        "A",
        qvr_strupper(cs, nullptr, copy));
    EXPECT_EQ(0, qvr_stricmp(cs, nullptr, "A\x88\x62", "a\x88\x62"));
    EXPECT_EQ(copy + 1, qvr_strpbrk(cs, copy, "x\x88\x62"));
}

TEST_F(qvrConverterFiles, ReplaceAKnownCodeset)
{
    if (!make("iso-8859-15", kMap))
        GTEST_SKIP() << "makeconv (Debian package icu-devtools) does not work here";
    EXPECT_EQ("a4", euroIn("ISO-8859-15"));
    ASSERT_EQ(0, qvr_set_dir(directory_.path().c_str()));
    EXPECT_EQ("failed: -1", toUtf8(Codeset("ISO-8859-15"), "\xA4"));
    EXPECT_EQ("\u20ac", toUtf8(Codeset("ISO-8859-15"), "\x80"));
    ASSERT_EQ(0, qvr_set_dir(""));
    EXPECT_EQ("a4", euroIn("ISO-8859-15"));
}

// ICU looks up a short relative path in its own data, and the process may change its working
// directory.
TEST_F(qvrConverterFiles, OfARelativeDirectoryAreFoundAfterChdir)
{
    if (!make("house", kMap))
        GTEST_SKIP() << "makeconv (Debian package icu-devtools) does not work here";
    std::filesystem::path const whole = directory_.path("converters");
    std::filesystem::path const before = std::filesystem::current_path();
    for (char const* const down : {".", "..", "../.."}) {
        std::filesystem::path const place = (whole / down).lexically_normal();
        std::string const name = whole.parent_path().lexically_relative(place).string();
        SCOPED_TRACE(name);
        std::filesystem::current_path(place);
        ASSERT_EQ(0, qvr_set_dir(name.c_str()));
        EXPECT_EQ("80", euroIn("house"));
        std::filesystem::current_path("/");
        EXPECT_EQ("80", euroIn("house"));
    }
    std::filesystem::current_path(before);
}

TEST_F(qvrConverterFiles, WithInvalidContentsGiveNoHandle)
{
    std::filesystem::create_directory(directory_.path("converters"));
    directory_.write("converters/house.cnv", "this is no converter");
    directory_.write("converters/empty.cnv", "");
    directory_.write("converters/README", "nor is this");
    directory_.write("converters/.cnv", "nor this");
    ASSERT_EQ(0, qvr_set_dir(directory_.path().c_str()));
    EXPECT_EQ("none", euroIn("house"));
    EXPECT_EQ("none", euroIn("empty"));
    EXPECT_EQ("none", euroIn("README"));
    EXPECT_EQ("a4", euroIn("ISO-8859-15"));
}

}  // namespace
