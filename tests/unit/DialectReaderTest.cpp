// The reader of dialects reads as the model does: samples, samples cut at every byte, random
// contents, random switches, and the configuration files of the machine. Its work is linear.
#include <Z/dialects/switched_dialect.h>
#include <Z/dialects/table.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "DialectNames.h"
#include "DialectReading.h"
#include "LinearTime.h"

namespace fs = std::filesystem;
using namespace dialect_model;

namespace {

std::string bytesOf(fs::path const& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool isStanza(Dialect const& dialect)
{
    return dialect.name == "stanza";
}

// The samples by dialect.
std::multimap<std::string, fs::path> samples()
{
    std::multimap<std::string, fs::path> found;
    for (fs::directory_entry const& entry : fs::directory_iterator(Z_TEST_DATA "/dialects")) {
        std::string const extension = entry.path().extension();
        std::string const name = entry.path().filename();
        if (extension != ".reading" && extension != ".refused" && extension != ".counts")
            found.emplace(name.substr(0, name.find('.')), entry.path());
    }
    return found;
}

// Contents of pieces that mean something in one dialect or another.
class RandomContents {
public:
    explicit RandomContents(unsigned seed) : random_(seed) {}

    std::string next()
    {
        static char const* const kPieces[] = {"[",
                                              "]",
                                              "[a]",
                                              "[b \"C\"]",
                                              "[A]",
                                              "[a][b]",
                                              "[a][$i]",
                                              "[.]",
                                              "[]",
                                              "k",
                                              "K",
                                              "key",
                                              "a b",
                                              "a-b",
                                              "a_b",
                                              "k[]",
                                              "k[de]",
                                              "k[$e]",
                                              "export ",
                                              "-",
                                              "=",
                                              "=",
                                              "[$v]",
                                              ":",
                                              " = ",
                                              "= ",
                                              " ",
                                              "[$i]",
                                              "  ",
                                              "\t",
                                              "\n",
                                              "\n",
                                              "\n",
                                              "\n",
                                              "\n\n",
                                              "\n ",
                                              "\n  ",
                                              "\n\t",
                                              "\r\n",
                                              "\r",
                                              "#",
                                              ";",
                                              "!",
                                              " #",
                                              " ;",
                                              "# c",
                                              "; c",
                                              "\n# c\n",
                                              "\n ; c\n",
                                              "\"",
                                              "\"",
                                              "'",
                                              "\"x\"",
                                              "'y'",
                                              "\\",
                                              "\\",
                                              "\\\n",
                                              "\\\n",
                                              "\\\r\n",
                                              " \\\n",
                                              "\\ \n",
                                              "\\\"",
                                              "\\\\",
                                              "\\n",
                                              "\\s",
                                              "\\x41",
                                              "\\x",
                                              "\\101",
                                              "\\x20ac",
                                              "\\q",
                                              "\\$",
                                              "x",
                                              "1",
                                              "value",
                                              "\xc3",
                                              "\xa4",
                                              ".",
                                              "$",
                                              "\n[a]\n",
                                              "\n[b]\nk = 1\n",
                                              "\nk = 1\n",
                                              "\nk=\n",
                                              "\nalone\n",
                                              "\n=x\n",
                                              "k = v",
                                              "k=v",
                                              "\xef\xbb\xbf",
                                              "\\x5b",
                                              "\\x5D",
                                              "\\x5d\\x5b",
                                              "\\x5d1",
                                              "%41",
                                              "%U20AC",
                                              "\\\\x5b"};
        std::string text;
        for (unsigned count = pick(14); count-- > 0;)
            text += kPieces[pick(std::size(kPieces))];
        if (pick(3) == 0)
            text.insert(0, "[a]\n");
        return text;
    }

    unsigned pick(std::size_t count) { return static_cast<unsigned>(random_() % count); }

private:
    std::mt19937 random_;
};

testing::AssertionResult readsAsTheModel(std::string_view text, Switches const& rules,
                                         zdialects::SwitchedDialect const& dialect)
{
    std::string const difference = differenceFromModel(text, rules, dialect);
    return difference.empty() ? testing::AssertionSuccess()
                              : testing::AssertionFailure() << difference;
}

// Returns whether the library has a reader for the switches.
bool areReadable(Switches const& rules)
{
    return zdialects::isVariation(librarySwitches(findDialect("ini")->rules),
                                  librarySwitches(rules));
}

Switches randomSwitches(RandomContents& random)
{
    auto const pick = [&](unsigned count) { return random.pick(count); };
    for (;;) {
        Switches rules = kDialects[1 + pick(std::size(kDialects) - 1)].rules;
        for (unsigned changes = 1 + pick(4); changes-- > 0;) {
            switch (pick(26)) {
                case 0:
                    rules.marks = pick(8);
                    break;
                case 1:
                    rules.trailing = pick(4);
                    break;
                case 2:
                    rules.trailingNeeds = static_cast<TrailingNeeds>(pick(3));
                    break;
                case 3:
                    rules.heads = static_cast<Heads>(pick(8));
                    break;
                case 4:
                    rules.top = static_cast<Top>(pick(3));
                    break;
                case 5:
                    rules.repeatedHead = static_cast<RepeatedHead>(pick(3));
                    break;
                case 6:
                    rules.separators = pick(8);
                    break;
                case 7:
                    rules.keyAlone = static_cast<KeyAlone>(pick(4));
                    break;
                case 8:
                    rules.join = pick(2) == 0 ? 1u << pick(5) : pick(32);
                    break;
                case 9:
                    rules.joinSkipsComments = pick(2) == 1;
                    break;
                case 10:
                    rules.commentsJoin = pick(2) == 1;
                    break;
                case 11:
                    rules.quotes = pick(4);
                    break;
                case 12:
                    rules.quoting = static_cast<Quoting>(pick(5));
                    break;
                case 13:
                    rules.escapes = static_cast<Escapes>(pick(8));
                    break;
                case 14:
                    rules.unknownEscape = static_cast<UnknownEscape>(pick(4));
                    break;
                case 15:
                    rules.foldStanzas = static_cast<FoldStanzas>(pick(3));
                    break;
                case 16:
                    rules.foldKeys = pick(2) == 1;
                    break;
                case 17:
                    rules.dropBlanks = pick(2) == 1;
                    break;
                case 18:
                    rules.dashes = pick(2) == 1;
                    break;
                case 19:
                    rules.markers = pick(8);
                    break;
                case 20:
                    rules.blanksAtEnd = pick(2) == 1;
                    break;
                case 21:
                    rules.byteOrderMark = pick(2) == 1;
                    break;
                case 22:
                    rules.lone = static_cast<Returns>(pick(2));
                    break;
                case 23:
                    rules.names = static_cast<Names>(pick(3));
                    break;
                case 24:
                    rules.blankRuns = static_cast<BlankRuns>(pick(2));
                    break;
                case 25:
                    rules.paths = static_cast<Paths>(pick(2));
                    break;
            }
        }
        if (areReadable(rules))
            return rules;
    }
}

std::string repeated(std::string const& piece, std::size_t count)
{
    std::string text;
    text.reserve(piece.size() * count);
    for (std::size_t i = 0; i < count; ++i)
        text += piece;
    return text;
}

}  // namespace

TEST(DialectReader, ReadsEachSampleAsTheModel)
{
    auto const all = samples();
    for (Dialect const& row : kDialects) {
        if (isStanza(row))
            continue;
        zdialects::SwitchedDialect const dialect(librarySwitches(row.rules));
        auto const [first, last] = all.equal_range(std::string(row.name));
        EXPECT_NE(first, last);
        for (auto it = first; it != last; ++it)
            EXPECT_TRUE(readsAsTheModel(bytesOf(it->second), row.rules, dialect)) << it->second;
    }
}

// Each sample is read in every dialect, not only in its own.
TEST(DialectReader, ReadsEachSampleCutAtEveryByteAsTheModel)
{
    auto const all = samples();
    for (Dialect const& row : kDialects) {
        if (isStanza(row))
            continue;
        zdialects::SwitchedDialect const dialect(librarySwitches(row.rules));
        for (auto const& [name, path] : all) {
            std::string const bytes = bytesOf(path);
            EXPECT_TRUE(readsAsTheModel(bytes, row.rules, dialect)) << row.name << " " << path;
            if (name != row.name)
                continue;
            for (std::size_t length = 0; length < bytes.size(); ++length)
                ASSERT_TRUE(readsAsTheModel(bytes.substr(0, length), row.rules, dialect))
                    << path << " cut to " << length;
        }
    }
}

TEST(DialectReader, ReadsRandomTextsAsTheModel)
{
    unsigned const seed = 20260722;
    RandomContents texts(seed);
    std::vector<std::unique_ptr<zdialects::SwitchedDialect>> dialects;
    for (Dialect const& row : kDialects)
        if (!isStanza(row))
            dialects.push_back(
                std::make_unique<zdialects::SwitchedDialect>(librarySwitches(row.rules)));
    int failures = 0;
    for (int i = 0; i < 100'000 && failures < 3; ++i) {
        std::string const text = texts.next();
        std::size_t const index = texts.pick(dialects.size());
        testing::AssertionResult const result =
            readsAsTheModel(text, kDialects[index + 1].rules, *dialects[index]);
        failures += result ? 0 : 1;
        EXPECT_TRUE(result) << kDialects[index + 1].name << ", seed " << seed;
    }
}

TEST(DialectReader, ReadsRandomTextsWithRandomSwitchesAsTheModel)
{
    unsigned const seed = 20260723;
    RandomContents texts(seed);
    int failures = 0;
    for (int i = 0; i < 10'000 && failures < 3; ++i) {
        Switches const rules = randomSwitches(texts);
        zdialects::SwitchedDialect const dialect(librarySwitches(rules));
        for (int j = 0; j < 5; ++j) {
            testing::AssertionResult const result = readsAsTheModel(texts.next(), rules, dialect);
            failures += result ? 0 : 1;
            std::string switches;
            for (unsigned char const byte :
                 std::bit_cast<std::array<unsigned char, zdialects::kSwitchCount>>(
                     dialect.switches()))
                switches += std::to_string(byte) + " ";
            EXPECT_TRUE(result) << switches << ", seed " << seed;
        }
    }
}

TEST(DialectReader, ReadsTheFilesOfThisMachineAsTheModel)
{
    std::map<std::string, int> counts;
    for (char const* const root : {"/etc", "/usr/lib", "/usr/share"}) {
        std::error_code error;
        fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied,
                                            error);
        for (; it != fs::recursive_directory_iterator(); it.increment(error)) {
            std::string const path = it->path();
            if (dialectOf(path, "") == "stanza" || !it->is_regular_file(error) ||
                it->file_size(error) > 1 << 18)
                continue;
            std::string const text = bytesOf(path);
            std::string const name = dialectOf(path, text);
            if (++counts[name] > 400)
                continue;
            Switches const& rules = findDialect(name)->rules;
            zdialects::SwitchedDialect const dialect(librarySwitches(rules));
            EXPECT_TRUE(readsAsTheModel(text, rules, dialect)) << path;
        }
    }
    for (auto const& [name, count] : counts)
        std::printf("%s: %d files\n", name.c_str(), count);
}

TEST(DialectReader, RefusesLinesOfMoreThanAMebibyteAndZeroBytes)
{
    for (char const* const name : {"ini", "python", "samba", "php"}) {
        Switches const& rules = findDialect(name)->rules;
        zdialects::SwitchedDialect const dialect(librarySwitches(rules));
        std::string const longest = "[a]\nk = " + std::string(kMaxLine - 4, 'x') + "\n";
        EXPECT_TRUE(readsAsTheModel(longest, rules, dialect));
        EXPECT_TRUE(LibraryReading(longest, dialect).errors.empty());
        std::string const longer =
            "[a]\n" + std::string(kMaxLine + 1, 'x') + "\nk = \0\n\0" + std::string("\0=\0\n", 4);
        EXPECT_TRUE(readsAsTheModel(longer, rules, dialect));
        EXPECT_TRUE(readsAsTheModel(std::string("[a]\n\0b=1", 8), rules, dialect));
    }
}

// A sink that throws at the first error.
TEST(DialectReader, EndsWhenTheSinkThrows)
{
    class Thrower : public zdialects::FindingSink {
        void found(zdialects::Finding const& finding) override { throw finding; }
    };
    zdialects::SwitchedDialect const dialect(librarySwitches(findDialect("desktop")->rules));
    Thrower thrower;
    std::vector<zlines::Line> lines;
    try {
        dialect.read("[a]\nk=1\nalone\nk=2\n", lines, thrower);
        FAIL();
    } catch (zdialects::Finding const& finding) {
        EXPECT_EQ(zdialects::Fault::noSeparator, finding.fault);
        EXPECT_EQ(8u, finding.at);
        EXPECT_EQ(8u, finding.line);
    }
}

TEST(DialectReader, GivesViewsOfTheTextForValuesThatAreSpelledAsTheyRead)
{
    for (Dialect const& row : kDialects) {
        if (isStanza(row))
            continue;
        zdialects::SwitchedDialect const dialect(librarySwitches(row.rules));
        std::string const text =
            row.rules.heads == Heads::none ? "key=value\n" : "[a]\nkey=value\n";
        std::vector<zlines::Line> lines;
        dialect.split(text, lines);
        std::string space;
        std::string_view const value = dialect.value(text, lines.back(), space);
        EXPECT_EQ("value", value);
        EXPECT_EQ(text.data() + text.size() - 6, value.data()) << row.name;
        EXPECT_EQ(text.data() + text.size() - 10,
                  dialect.keyName(text, lines.back(), space).data());
    }
}

TEST(DialectReader, SharesTheDialectsOfTheTable)
{
    zdialects::Switches switches = librarySwitches(findDialect("git")->rules);
    EXPECT_EQ(zdialects::dialectWith(switches), zdialects::dialectWith(switches));
    EXPECT_EQ(switches, zdialects::dialectWith(switches)->switches());
    switches.foldKeys = false;
    EXPECT_NE(zdialects::dialectWith(switches), zdialects::dialectWith(switches));
    EXPECT_EQ(switches, zdialects::dialectWith(switches)->switches());
}

TEST(DialectReader, TakesLinearTimeForAnyText)
{
    struct Case {
        char const* dialect;
        char const* start;
        char const* piece;
    };
    Case const cases[] = {
        {"php", "k = \"", "\nk = 1"},
        {"php", "", "k = \"\n"},
        {"env", "", "k='\n"},
        {"qt", "k = ", "\"a\n"},
        {"git", "[a]\n", "k = \"\n"},
        {"git", "[a]\nk = ", "\\\n"},
        {"git", "", "[a] "},
        {"python", "[a]\nk = 1", "\n  x"},
        {"python", "[a]\nk = 1", "\n\n#c"},
        {"python", "[a]\nk = 1\n", "alone\n x\n"},
        {"samba", "", "a\\\n"},
        {"samba", "[a]\n", "k = 1 \\\n"},
        {"systemd", "[a]\nk = \\\n", "# c\n"},
        {"systemd", "[a]\nk=1", "\\\n;c\n x"},
        {"kconfig", "k", "[$a]"},
        {"kconfig", "", "[a"},
        {"kconfig", "", "[a]"},
        {"mysql", "[a]\nk = ", "'\"#"},
        {"desktop", "[a]\nk=", "\\"},
        {"editorconfig", "[a]\nk = ", " #;"},
        {"samba", "", "\\\n"},
        {"ini", "", "\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.dialect) + " " + c.start + c.piece);
        zdialects::SwitchedDialect const dialect(librarySwitches(findDialect(c.dialect)->rules));
        EXPECT_TRUE(takesLinearTime(10'000, [&](std::size_t size) {
            return [&dialect, text = c.start + repeated(c.piece, size) + "\n"] {
                std::vector<zlines::Line> lines;
                dialect.split(text, lines);
                std::string space;
                for (zlines::Line const& line : lines)
                    if (line.isKey())
                        static_cast<void>(dialect.value(text, line, space).size() +
                                          dialect.keyName(text, line, space).size());
            };
        }));
    }
}
