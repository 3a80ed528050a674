// Compares the reader and writer of property files with java.util.Properties: the keys and values
// are the same except for a table of known differences.
#include <Z/ZJavaProperties.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "JavaDifferences.h"
#include "JavaEntries.h"
#include "JavaModel.h"
#include "JavaPeer.h"
#include "Sanitizers.h"
#include "TestDirectory.h"
#include "Visible.h"

namespace {

namespace fs = std::filesystem;

constexpr int kSkipped = 77;  // the exit code that CTest reports as "skipped"
constexpr unsigned kFiles = 20000;

constexpr unsigned kShare = kHasSanitizer ? 10 : 1;

class JavaPlatform : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        java = std::make_unique<JavaPeer>(getenv("Z_JAVA"), Z_TEST_SUPPORT "/PropertiesPeer.java");
    }
    static void TearDownTestSuite() { java.reset(); }

    // Returns the entries that the library reads from a file of these bytes.
    Entries load(std::string const& bytes)
    {
        ZJavaProperties_6_0 store;
        store.load(directory.write("f", bytes).c_str());
        return entriesOf(store);
    }

    // Returns the file that the library writes.
    std::string store(Entries const& entries)
    {
        ZJavaProperties_6_0 store;
        for (auto const& [key, value] : entries)
            setBytes(store, key, value);
        store.store(directory.at("f").c_str());
        return directory.read("f");
    }

    // Reads the file with both, expects that they differ only as the rules allow, and counts these.
    // Returns the entries that the library reads.
    Entries bothRead(std::string const& file)
    {
        Entries const ours = load(file);
        JavaReading const reading{JavaModel(file)};
        if (reading.rules().empty()) {
            EXPECT_EQ(ours, java->load(file));
            ++sameFiles;
        } else {
            EXPECT_EQ(ours, asBytes(java->load(reading.file())));
        }
        for (JavaRule const rule : reading.rules())
            ++met[rule];
        return ours;
    }

    // Writes and reads the same file with both, in both directions.
    void compare(std::string const& file)
    {
        Entries const ours = bothRead(file);
        std::string const written = store(ours);
        bothRead(written);
        if (canBeStored(ours)) {
            EXPECT_EQ(ours, load(written));
            EXPECT_EQ(ours, java->load(written));
            ++storedFiles;
        }
        if (std::optional<Entries> const theirs = java->load(file)) {
            std::string const rewritten = java->store(*theirs);
            EXPECT_EQ(theirs, java->load(rewritten));
            bothRead(rewritten);
        }
    }

    static std::optional<Entries> asBytes(std::optional<Entries> const& entries)
    {
        if (!entries)
            return std::nullopt;
        Entries bytes;
        for (auto const& [key, value] : *entries)
            bytes[JavaReading::bytesOf(key)] = JavaReading::bytesOf(value);
        return bytes;
    }

    static std::unique_ptr<JavaPeer> java;
    TestDirectory const directory{TestDirectory::Place::memory};
    std::map<JavaRule, unsigned> met;
    unsigned sameFiles = 0;    // files to which no rule applies
    unsigned storedFiles = 0;  // files that the library wrote completely
};

std::unique_ptr<JavaPeer> JavaPlatform::java;

// ---- The tables --------------------------------------------------------------------------------

TEST_F(JavaPlatform, ReadsAsTheTableOfDifferencesStates)
{
    for (JavaDifference const& row : javaDifferences()) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.ours, load(row.file));
        EXPECT_EQ(row.java, java->load(row.file));
        EXPECT_NE(row.java, row.ours);
        JavaReading const reading{JavaModel(row.file)};
        JavaRules expected = row.alongside;
        expected.insert(row.rule);
        EXPECT_EQ(expected, reading.rules());
        EXPECT_EQ(row.ours, asBytes(java->load(reading.file())));
    }
}

TEST_F(JavaPlatform, ReadsWrittenFilesAsTheTableStates)
{
    struct Row {
        char const* name;
        char const* key;
        char const* value;
        Entries ours;
        std::optional<Entries> java;
    };
    Row const rows[] = {
        {"key with a space", "a b", "", {{"a", "b = "}}, {{{"a", "b = "}}}},
        {"key with a separator", "a=b", "", {{"a", "b = "}}, {{{"a", "b = "}}}},
        {"key with a newline", "a\nb", "", {}, {{{"a", ""}, {"b", ""}}}},
        {"key with a backslash", "a\\b", "", {}, {{{"ab", ""}}}},
        {"key like a comment", "#a", "", {}, {{}}},
        {"empty key", "", "", {}, {{{"", ""}}}},
        {"key that is not ASCII", "\xC3\xA9", "", {{"\xC3\xA9", ""}}, {{{"\xC3\x83\xC2\xA9", ""}}}},
        {"value with a leading space", "a", " b", {{"a", "b"}}, {{{"a", "b"}}}},
        {"value with a newline", "a", "\nb=", {{"a", ""}, {"b", ""}}, {{{"a", ""}, {"b", ""}}}},
        {"value beyond U+FFFF", "a", "\xF0\x9F\x98\x80", {}, std::nullopt},
        {"value with DEL", "a", "\x7F", {}, std::nullopt},
        {"value with a stray byte", "a", "\x80", {}, std::nullopt},
        {"truncated value", "a", "\xC3", {{"a", "\xC3\x80"}}, {{{"a", "\xC3\x80"}}}},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        Entries const entries = {{row.key, row.value}};
        EXPECT_FALSE(canBeStored(entries));
        std::string const file = store(entries);
        EXPECT_EQ(row.ours, load(file));
        EXPECT_EQ(row.java, java->load(file));
        EXPECT_TRUE(row.ours != entries || row.java != entries);
        bothRead(file);
    }
}

// ---- All other files are the same --------------------------------------------------------------

// Files as people and programs write them; one in three contains a rarer fragment.
std::string randomFile(std::mt19937& random)
{
    using namespace std::string_view_literals;
    constexpr std::string_view kLines[] = {"# a comment = no entry",
                                           "! another: \\u12 \\",
                                           "",
                                           "  ",
                                           "\t# c",
                                           "a=1",
                                           "key = value",
                                           "  host : example.org",
                                           "path\tc\\:\\\\data\\\\x",
                                           "list = one, \\\n    two, \\\n\tthree",
                                           "empty =",
                                           "empty:",
                                           "a.b-c_d=e=f:g",
                                           "cafe = caf\\u00e9 \\u20AC",
                                           "pair=\\ud83d\\ude00",
                                           "a\\ b\\=c\\:d\\\\ = e",
                                           "v = two  ",
                                           "w=\\ x\\\"y\\'",
                                           "a  b",
                                           "x=y\\\n",
                                           "z=\\\n  \\\n  1",
                                           "tab=\ta\tb",
                                           "comment# = !no",
                                           "q = \"\\\"\"",
                                           "low=\x01\x1F\x7E",
                                           "f\f=\f1",
                                           "b \\\n c",
                                           "nul=a\0b"sv};
    constexpr std::string_view kPieces[] = {"=",
                                            ":",
                                            " ",
                                            "\\",
                                            "\n",
                                            "\r",
                                            "\n\r",
                                            "\r\n",
                                            "#",
                                            "a",
                                            "\\u",
                                            "\\u0000",
                                            "\\U00",
                                            "41",
                                            "\v",
                                            "\\\n",
                                            "\\\r\n",
                                            "\\n",
                                            "\\=",
                                            "\\#",
                                            "\xC3\xA9",
                                            "\xFF",
                                            "\0"sv,
                                            " =x\n",
                                            "\\a=b\n",
                                            "=c=d\n",
                                            "k \\\n=v\n",
                                            "\n\nkey\nlost=1\n",
                                            "u=\\u12\n",
                                            "\x7F",
                                            "m=\\\r\n\r\nn\r\n"};
    constexpr std::string_view kEnds[] = {"\n", "\n", "\r\n", "\r"};

    std::string_view const end = kEnds[random() % std::size(kEnds)];
    std::string text;
    for (unsigned lines = 1 + random() % 6; lines > 0; --lines) {
        for (char const c : kLines[random() % std::size(kLines)])
            c == '\n' ? text += end : text += c;
        text += end;
    }
    if (random() % 3 == 0)
        for (unsigned pieces = 1 + random() % 3; pieces > 0; --pieces)
            text.insert(random() % (text.size() + 1), kPieces[random() % std::size(kPieces)]);
    if (random() % 40 == 0)
        text.resize(random() % text.size());
    return text;
}

TEST_F(JavaPlatform, ReadsAndWritesGeneratedFilesAlike)
{
    std::mt19937 random(20020607);
    for (unsigned i = 0; i < kFiles / kShare && !HasFailure(); ++i) {
        std::string const file = randomFile(random);
        SCOPED_TRACE("file " + std::to_string(i) + " " + visible(file));
        compare(file);
    }
    // Check that the test is effective.
    EXPECT_LT(kFiles / kShare, sameFiles);
    EXPECT_LT(kFiles / kShare / 4, storedFiles);
    for (JavaDifference const& row : javaDifferences())
        EXPECT_LT(20u / kShare, met[row.rule]) << row.name;
}

TEST_F(JavaPlatform, ReadsAndWritesTheFilesOfThisMachineAlike)
{
    unsigned files = 0;
    for (char const* root : {"/usr", "/etc", "/opt"}) {
        std::error_code error;
        fs::recursive_directory_iterator entry(root, fs::directory_options::skip_permission_denied,
                                               error);
        for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
            std::error_code ignored;
            if (entry->path().extension() != ".properties" || !entry->is_regular_file(ignored))
                continue;
            SCOPED_TRACE(entry->path());
            std::ifstream in(entry->path(), std::ios::binary);
            compare({std::istreambuf_iterator<char>(in), {}});
            ++files;
        }
    }
    std::cout << files << " files\n";
    EXPECT_LT(0u, files) << "the platform itself has some";
}

}  // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (getenv("Z_JAVA") == nullptr) {
        std::cout << "skipped: no Java development kit (default-jdk-headless)\n";
        return kSkipped;
    }
    return RUN_ALL_TESTS();
}
