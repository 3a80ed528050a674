// The model of dialects reads the sample files of tests/data/dialects as their readings specify,
// and the library reads the samples of the stanza format as the model does.
//
// DIALECT.CASE.EXTENSION has one of these next to it:
//
//     DIALECT.CASE.reading  stanza, key and value of each value, with tabs between them, in the
//                           order of stanzas and keys; a key alone has no value, a stanza without
//                           keys has no key; \t, \n and \\ are escapes
//     DIALECT.CASE.refused  LINE:COLUMN of the first error
//
// DIALECT.CASE.counts has the form of a reading, with only the values that count.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStanzaFileProperties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "DialectModel.h"
#include "DialectNames.h"

namespace fs = std::filesystem;
using namespace dialect_model;

namespace {

struct Sample {
    std::string name;
    std::string dialect;
    fs::path path;
    fs::path base;  // without the extension
    Switches const& switches() const { return findDialect(dialect)->rules; }
};

std::string bytesOf(fs::path const& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<Sample> samples()
{
    std::vector<Sample> found;
    for (fs::directory_entry const& entry : fs::directory_iterator(Z_TEST_DATA "/dialects")) {
        std::string const extension = entry.path().extension();
        if (extension == ".reading" || extension == ".refused" || extension == ".counts")
            continue;
        Sample sample;
        sample.name = entry.path().filename();
        sample.dialect = sample.name.substr(0, sample.name.find('.'));
        sample.path = entry.path();
        sample.base = fs::path(entry.path()).replace_extension();
        found.push_back(sample);
    }
    std::sort(found.begin(), found.end(),
              [](Sample const& a, Sample const& b) { return a.name < b.name; });
    return found;
}

std::string escaped(std::string const& text)
{
    std::string out;
    for (char const c : text)
        out += c == '\t' ? "\\t" : c == '\n' ? "\\n" : c == '\\' ? "\\\\" : std::string(1, c);
    return out;
}

std::string readingOf(DialectModel const& model, bool onlyCounting = false)
{
    std::string out;
    for (Stanza const& stanza : model.stanzas) {
        std::string const name = escaped(stanza.name);
        if (stanza.keys.empty())
            out += name + "\n";
        for (Key const& key : stanza.keys) {
            std::string const start = name + "\t" + escaped(key.name);
            if (key.values.empty())
                out += start + "\n";
            for (Value const& value : onlyCounting ? model.counting(key) : key.values)
                out += start + (value.alone ? "" : "\t" + escaped(value.text)) + "\n";
        }
    }
    return out;
}

std::string placeOf(Problem const& problem)
{
    return std::to_string(problem.line) + ":" + std::to_string(problem.column) + "\n";
}

DialectModel read(char const* dialect, std::string_view text)
{
    return DialectModel(text, findDialect(dialect)->rules);
}

// The kind of each line as a letter.
std::string kindsOf(DialectModel const& model)
{
    std::string kinds;
    for (Line const& line : model.lines)
        kinds += "b#hk+i-"[static_cast<int>(line.kind)];
    return kinds;
}

}  // namespace

TEST(DialectModel, ReadsEachSampleAsItsReadingSpecifies)
{
    for (Sample const& sample : samples()) {
        SCOPED_TRACE(sample.name);
        ASSERT_NE(nullptr, findDialect(sample.dialect));
        std::string const bytes = bytesOf(sample.path);
        DialectModel const model(bytes, sample.switches());
        if (fs::exists(sample.base.string() + ".refused")) {
            std::string const expected = bytesOf(sample.base.string() + ".refused");
            if (model.refused())
                EXPECT_EQ(expected, placeOf(model.errors.front()));
            else
                ADD_FAILURE() << "not refused:\n" << readingOf(model);
            continue;
        }
        if (model.refused())
            ADD_FAILURE() << placeOf(model.errors.front()) << model.errors.front().text;
        EXPECT_EQ(bytesOf(sample.base.string() + ".reading"), readingOf(model));
        if (fs::exists(sample.base.string() + ".counts")) {
            EXPECT_EQ(bytesOf(sample.base.string() + ".counts"), readingOf(model, true));
        }
    }
}

TEST(DialectModel, HasASampleOfEachRuleOfEachDialect)
{
    std::map<std::string, std::set<std::string>> subjects;  // of each dialect
    for (Sample const& sample : samples()) {
        std::string const subject = sample.base.extension();
        subjects[sample.dialect].insert(subject.substr(1));
    }
    EXPECT_EQ(std::size(kDialects), subjects.size());
    for (Dialect const& dialect : kDialects) {
        Switches const& rules = dialect.rules;
        std::vector<std::string> needed = {
            "blanks",    "byte-order-mark", "bytes",        "comments", "continuation",
            "headers",   "key-alone",       "line-endings", "names",    "repeated-key",
            "separator", "trailing",        "utf-16",       "zero-byte"};
        if (dialect.name != "stanza")
            needed.insert(needed.end(), {"lone-return", "only-returns"});
        if (rules.lone == Returns::lineEnd && rules.quoting != Quoting::none)
            needed.push_back("quoted-return");
        if (rules.heads != Heads::none)
            needed.insert(needed.end(), {"no-key", "repeated-header", "top"});
        if (rules.heads != Heads::none && rules.repeatedHead != RepeatedHead::refused)
            needed.push_back("comments-at-repeated-headers");
        if (rules.escapes == Escapes::none || rules.quoting != Quoting::none)
            needed.push_back("quotes");
        if (rules.escapes != Escapes::none && rules.escapes != Escapes::php &&
            rules.escapes != Escapes::environment)
            needed.push_back("escapes");
        if (rules.markers & dollarSuffix)
            needed.push_back("markers");
        if (rules.names == Names::percent)
            needed.push_back("percent");
        if (rules.names == Names::escaped)
            needed.push_back("escaped-names");
        if (rules.repeatedKey == RepeatedKey::lastOrPhpList)
            needed.push_back("extensions");
        for (std::string const& subject : needed)
            EXPECT_TRUE(subjects[std::string(dialect.name)].contains(subject))
                << dialect.name << " has no sample \"" << subject << '"';
    }
}

// Half a character stands for itself.
TEST(DialectModel, ASurrogateAtTheEndOfANameIsItsText)
{
    for (std::string const name : {"", "%", "%2", "%U", "%Uded5", "%Ud83d", "%Ud83d%"})
        EXPECT_EQ(name, percentDecoded(name));
    EXPECT_EQ("a b\xe2\x82\xac", percentDecoded("a%20b%U20AC"));
}

TEST(DialectModel, LinesCoverEachSampleHoweverItIsCut)
{
    for (Sample const& sample : samples()) {
        SCOPED_TRACE(sample.name);
        std::string const bytes = bytesOf(sample.path);
        for (std::size_t length = 0; length <= bytes.size(); ++length) {
            std::string const cut = bytes.substr(0, length);
            DialectModel const model(cut, sample.switches());
            std::size_t at = 0;
            for (Line const& line : model.lines) {
                ASSERT_LE(at, line.begin);
                ASSERT_LE(line.begin, line.end);
                ASSERT_LE(line.end, line.next);
                at = line.next;
            }
            ASSERT_EQ(length, at);
            for (Stanza const& stanza : model.stanzas) {
                for (Key const& key : stanza.keys) {
                    for (Value const& value : key.values) {
                        ASSERT_LE(value.keyBegin, value.keyEnd);
                        ASSERT_LE(value.keyEnd, value.valueBegin);
                        ASSERT_LE(value.valueBegin, value.valueEnd);
                        ASSERT_LE(value.valueEnd, length);
                        ASSERT_LE(value.line, value.lastLine);
                    }
                }
            }
        }
    }
}

TEST(DialectModel, ClassifiesEachLine)
{
    struct Case {
        char const* dialect;
        char const* text;
        char const* kinds;
    };
    Case const cases[] = {
        {"systemd", "top=1\n\n# c\n[a]\nk=1 \\\n; c\n 2\nalone\n", "-b#hki+-"},
        {"samba", "# c \\\nd\n[a]\nk = 1\\\n2\n", "##hk+"},
        {"git", "[a] k = 1\n[b]\nl = \"x\\\ny\" ; c\n", "hhk+"},
        {"python", "[a]\nk = 1\n\n# c\n  2\n\nl = 3\n", "hk+i+bk"},
        {"php", "[a]\nk = \"1\n\n2\" ; c\nalone\n", "hk++-"},
        {"mysql", "!include x\n[a]\nalone\n", "-hk"},
        {"kconfig", "[a]\n[b\nk=1\n", "h-k"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(c.kinds, kindsOf(read(c.dialect, c.text)));
    }
}

TEST(DialectModel, FindsTheColumnsAndTheSpellingOfAValue)
{
    struct Case {
        char const* dialect;
        char const* text;
        std::size_t line;
        std::vector<std::size_t> columns;  // key, its end, value, its end
        char const* raw;
    };
    Case const cases[] = {
        {"ini", "[a]\n  speed =  3 \n", 2, {3, 8, 12, 13}, "3"},
        {"ini", "[a]\nspeed =\n", 2, {1, 6, 8, 8}, ""},
        {"ini", "[a]\nspeed =   \n", 2, {1, 6, 9, 9}, ""},
        {"git", "[a] speed = \"3\" x ; c\n", 1, {5, 10, 13, 18}, "\"3\" x"},
        {"git", "[a]\nspeed =   ; c\n", 2, {1, 6, 9, 9}, ""},
        {"git", "[a]\nspeed\n", 2, {1, 6, 6, 6}, ""},
        {"desktop", "[a]\nspeed=3  \n", 2, {1, 6, 7, 10}, "3  "},
        {"systemd", "[a]\nk=1 \\\n# c\n 2 \n", 2, {1, 2, 3, 6}, "1 \\\n# c\n 2"},
        {"python", "[a]\nk : 1\n  2  \n\n", 2, {1, 2, 5, 6}, "1\n  2"},
        {"env", "export  A='x' # c\n", 1, {9, 10, 11, 14}, "'x'"},
        {"sysctl", "- a.b = 1\r\n", 1, {3, 6, 9, 10}, "1"},
        {"kconfig", "[a]\nk[de][$e] = 1\n", 2, {1, 6, 13, 14}, "1"},
        {"systemd", "\xef\xbb\xbf[a]\nk=1\n", 2, {1, 2, 3, 4}, "1"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        DialectModel const model = read(c.dialect, c.text);
        ASSERT_FALSE(model.refused());
        Line const& line = model.lines[c.line - 1];
        EXPECT_EQ(c.columns,
                  (std::vector<std::size_t>{line.key, line.keyEnd, line.value, line.valueEnd}));
        Value const& value = model.stanzas.back().keys.back().values.back();
        EXPECT_EQ(c.line, value.line);
        EXPECT_EQ(c.raw, model.raw(value));
    }
}

TEST(DialectModel, ReportsEveryBadLine)
{
    DialectModel const model = read("desktop", "k=1\n[a]\nalone\nk[=2\n[b]\nj=3\n; c\n");
    std::string places;
    for (Problem const& problem : model.errors)
        places += placeOf(problem);
    EXPECT_EQ("1:1\n3:1\n4:1\n7:1\n", places);
}

TEST(DialectModel, RefusesALineOfMoreThanAMebibyteExceptInStanza)
{
    std::string const text = "[a]\nk = " + std::string(kMaxLine - 4, 'x') + "\n";
    EXPECT_FALSE(read("ini", text).refused());
    std::string const longer = "[a]\nk = " + std::string(kMaxLine - 3, 'x') + "\n";
    ASSERT_TRUE(read("ini", longer).refused());
    EXPECT_EQ(2U, read("ini", longer).errors.front().line);
    // The stanza format splits it into lines without a separator.
    EXPECT_EQ("no separator", read("stanza", longer).errors.front().text);
}

TEST(DialectModel, ReadsStanzaFilesAsTheLibraryDoes)
{
    for (Sample const& sample : samples()) {
        if (sample.dialect != "stanza")
            continue;
        SCOPED_TRACE(sample.name);
        std::string const bytes = bytesOf(sample.path);
        DialectModel const model(bytes, sample.switches());
        try {
            ZStanzaFileProperties_6_0 const store(sample.path.c_str(), 1);
            ASSERT_FALSE(model.refused());
            ASSERT_EQ(static_cast<int>(model.stanzas.size()), store.count());
            for (Stanza const& stanza : model.stanzas) {
                if (stanza.name.empty())
                    continue;  // no caller can name the stanza of the header "[]"
                ASSERT_EQ(static_cast<int>(stanza.keys.size()), store.count(stanza.name.c_str()));
                for (Key const& key : stanza.keys) {
                    ZArrayList_6_0 list(2, 1);
                    store.getValues(stanza.name.c_str(), key.name.c_str(), list,
                                    static_cast<ZPropertyStringType>(0));
                    EXPECT_EQ(key.values.size(), list.size()) << key.name;
                }
            }
        } catch (ZPropertiesInvalidDataException_6_0 const& e) {
            ASSERT_TRUE(model.refused());
            EXPECT_EQ(model.errors.front().line, static_cast<std::size_t>(e.badline()));
        }
    }
}

TEST(DialectNames, ANameDecidesIfOnlyOneFormatUsesIt)
{
    struct Case {
        char const* path;
        char const* text;
        char const* dialect;
    };
    Case const cases[] = {
        {"/etc/pump.conf", "", "stanza"},
        {"/etc/ssl/openssl.cnf", "", "stanza"},
        {"pump.cfg", "", "stanza"},
        {"pumprc", "", "stanza"},
        {"/usr/lib/systemd/system/pump.service", "[Unit]\n", "systemd"},
        {"pump.service", "# c\n [D-BUS Service] \nName=a\n", "desktop"},
        {"pump.service", "<?xml?>\n", "systemd"},
        {"/etc/systemd/system/pump.service.d/speed.conf", "", "systemd"},
        {"/etc/systemd/journald.conf", "", "systemd"},
        {"/usr/lib/systemd/resolv.conf", "", "stanza"},
        {"wet0.network", "", "networkd"},
        {"pump.desktop", "", "desktop"},
        {".gitmodules", "", "git"},
        {"/srv/pump/.git/config", "", "git"},
        {"/etc/php/8.2/mods-available/pump.ini", "", "php"},
        {"pump.ini", "", "stanza"},
        {"/etc/samba/smb.conf", "", "samba"},
        {"/etc/mysql/conf.d/pump.cnf", "", "mysql"},
        {"setup.cfg", "", "python"},
        {"my_setup.cfg", "", "stanza"},
        {"/etc/supervisor/conf.d/pump.conf", "", "python-inline"},
        {".editorconfig", "", "editorconfig"},
        {"/etc/systemd/dnssd/pump.dnssd", "", "systemd"},
        {"/etc/NetworkManager/NetworkManager.conf", "", "desktop"},
        {"/usr/lib/NetworkManager/conf.d/10-pump.conf", "", "desktop"},
        {"NetworkManager.conf", "", "stanza"},
        {"WINDOWS/win.ini", "", "windows"},
        {"WINDOWS/system.ini", "", "windows"},
        {"/etc/sysctl.d/10-pump.conf", "", "sysctl"},
        {"/usr/lib/os-release", "", "env"},
        {"/etc/default/pump", "", "env"},
    };
    for (Case const& c : cases)
        EXPECT_EQ(c.dialect, dialectOf(c.path, c.text)) << c.path;
    for (DialectName const& name : kDialectNames)
        EXPECT_NE(nullptr, findDialect(name.dialect)) << name.pattern;
}
