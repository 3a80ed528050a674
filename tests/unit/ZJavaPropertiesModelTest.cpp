// Compares the reader with a model of its state table, on random text cut at every byte.
#include <Z/ZJavaProperties.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

#include "JavaDifferences.h"
#include "JavaEntries.h"
#include "JavaModel.h"
#include "Sanitizers.h"
#include "TestDirectory.h"
#include "Visible.h"

namespace {

using Store = ZJavaProperties_6_0;

Entries entriesOf(JavaModel const& model)
{
    Entries entries;
    for (auto const& [key, value] : model.stored)
        entries[key] = value;
    return entries;
}

// Returns the entries that the store reads from a stream of these bytes.
Entries readFromStream(std::string_view bytes)
{
    Store store;
    // fmemopen() refuses a size of 0.
    FILE* const stream = bytes.empty()
                             ? fopen("/dev/null", "r")
                             : fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "r");
    EXPECT_EQ(1, store.loadProperties(stream, "memory"));
    fclose(stream);
    return entriesOf(store);
}

// A file that is rewritten for every text.
class ScratchFile {
public:
    ScratchFile() : path_(directory_.write("f", "")), fd_(open(path_.c_str(), O_WRONLY | O_CLOEXEC))
    {
    }
    ScratchFile(ScratchFile const&) = delete;
    ScratchFile& operator=(ScratchFile const&) = delete;
    ~ScratchFile() { close(fd_); }

    Entries read(std::string_view bytes, std::string const& stopKey)
    {
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()), pwrite(fd_, bytes.data(), bytes.size(), 0));
        EXPECT_EQ(0, ftruncate(fd_, static_cast<off_t>(bytes.size())));
        Store store;
        EXPECT_EQ(1, store.load(path_.c_str(), stopKey.c_str()));
        return entriesOf(store);
    }

private:
    TestDirectory const directory_{TestDirectory::Place::memory};
    std::string const path_;
    int const fd_;
};

std::string randomText(std::mt19937& random)
{
    using namespace std::string_view_literals;
    // Fragments that often form entries, and characters that make them invalid.
    constexpr std::string_view kPieces[] = {
        "a=1\n",     "b x\n", "key:2\n", "a = ",   " b=",     "key ",        "\na",
        "=",         "=",     ":",       " ",      " ",       "\n",          "\n",
        "\r\n",      "\r",    "\n\r",    "\\",     "\\",      "\\",          "\t",
        "\v",        "\f",    "#",       "!",      "u",       "\\u",         "\\U",
        "1",         "4f",    "A",       "\"",     "'",       "G",           "\0"sv,
        "\xC3",      "\xA9",  "\x7F",    "n",      "\\\n",    "\\\r\n",      "c = 3\n",
        "a\\=b=c\n", "\\u0",  "\\u00",   "\\u00e", "\\u00e9", "b=\\u20AC\n", "key=x\\\n  y\n"};
    std::string text;
    for (size_t pieces = 1 + random() % 14; pieces > 0; --pieces)
        text += kPieces[random() % std::size(kPieces)];
    return text;
}

constexpr int kTexts = kHasSanitizer ? 5000 : 100000;

TEST(ZJavaPropertiesModel, MatchesTheModelOnRandomTextCutAtEveryByte)
{
    std::mt19937 random(20020607);
    ScratchFile file;
    std::string const stopKeys[] = {"", "a", "b", "key"};
    size_t entries = 0;
    for (int i = 0; i < kTexts && !testing::Test::HasFailure(); ++i) {
        std::string const text = randomText(random);
        std::string const& stopKey = stopKeys[random() % std::size(stopKeys)];
        SCOPED_TRACE("text " + std::to_string(i) + ", " + visible(text) + ", stop key " + stopKey);
        for (size_t length = 0; length <= text.size(); ++length) {
            std::string_view const cut(text.data(), length);
            EXPECT_EQ(entriesOf(JavaModel(cut)), readFromStream(cut)) << "cut at " << length;
            if (length == text.size() || i % 50 == 0) {
                EXPECT_EQ(entriesOf(JavaModel(cut, stopKey)), file.read(cut, stopKey))
                    << "file, cut at " << length;
            }
        }
        entries += JavaModel(text).stored.size();
    }
    EXPECT_LT(static_cast<size_t>(kTexts) / 2, entries) << "the texts have too few entries";
}

TEST(ZJavaPropertiesModel, MatchesTheModelOnEveryByteInEveryState)
{
    // Texts that lead to each of the states, in their order.
    char const* const kLeads[] = {"",         "  ",       "# ",        "key",       "key\\",
                                  "key ",     "key = ",   "key = v",   "key = v\\", "key = v\\\n",
                                  "key=v\\u", "key=\\u1", "key=\\u1A", "key=\\u1a2"};
    char const* const kEnds[] = {"", "\n", "\\\n\n", "x = 1\ny = 2\n", " 1\n\ny = 2\n", "1a2b!\n"};
    ScratchFile file;
    for (size_t i = 0; i < std::size(kLeads); ++i) {
        for (int byte = 0; byte < 256; ++byte) {
            std::string const text = std::string(kLeads[i]) + static_cast<char>(byte);
            EXPECT_EQ(static_cast<int>(i) + 1, JavaModel(text).steps.back().state);
            for (char const* end : kEnds) {
                SCOPED_TRACE(visible(text + end));
                JavaModel const model(text + end);
                EXPECT_EQ(entriesOf(model), readFromStream(text + end));
                EXPECT_EQ(entriesOf(model), file.read(text + end, ""));
            }
        }
    }
}

TEST(ZJavaPropertiesModel, MatchesTheModelOnLargeFiles)
{
    std::mt19937 random(20261123);
    ScratchFile file;
    for (char const* end : {"\n", "\r\n", "\r"}) {
        SCOPED_TRACE(visible(end));
        std::string text;
        for (int i = 0; i < 20000; ++i) {
            std::string const number = std::to_string(random() % 15000);
            std::string const section(random() % 100, 's');  // longer than the prefixes of keys
            switch (random() % 8) {
                case 0:
                    text += "# a comment = 1";
                    break;
                case 1:
                    text += " k\\:" + number + " : caf\\u00e9\\U20AC\\u0000 \\\\" + number;
                    break;
                case 2:
                    text += "k" + number + "=first, \\" + end + "\tsecond \\" + end;
                    break;
                case 3:
                    text += "k" + number + "\\x = skipped";
                    break;
                case 4:
                    text += randomText(random);
                    break;
                default:
                    text += section + "." + number + " = value " + number;
            }
            text += end;
        }
        Entries const expected = entriesOf(JavaModel(text));
        EXPECT_LT(8000u, expected.size());
        EXPECT_EQ(expected, file.read(text, ""));
        EXPECT_EQ(entriesOf(JavaModel(text, "k77")), file.read(text, "k77"));
    }
}

TEST(ZJavaPropertiesModel, DifferencesFromTheJavaPlatformAreDocumented)
{
    std::ifstream in(Z_TEST_DATA "/../../docs/file-formats.md");
    std::string const text{std::istreambuf_iterator<char>(in), {}};
    size_t const heading = text.find("\n### Where the Java platform differs\n");
    ASSERT_NE(text.npos, heading);
    std::string const chapter = text.substr(heading, text.find("\n#", heading + 1) - heading);
    for (JavaDifference const& row : javaDifferences())
        EXPECT_NE(text.npos, chapter.find(std::string("\n| ") + row.name + " |")) << row.name;
    // The table has no other rows; one of these is its header.
    size_t rows = 0;
    for (size_t at = 0; (at = chapter.find("\n| ", at)) != text.npos; ++at)
        ++rows;
    EXPECT_EQ(javaDifferences().size() + 1, rows);
}

}  // namespace
