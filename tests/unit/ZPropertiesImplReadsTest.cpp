// Reading stanza files.
#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <random>
#include <string>
#include <utility>

#include "CacheHelpers.h"
#include "FailingAllocator.h"

using namespace std::string_literals;

// --- reading

TEST(ZPropertiesImplReads, ReadingParsesLines)
{
    struct Case {
        char const* name;
        std::string text;
        char const* key;
        Strings expected;
    };
    Case const cases[] = {
        {"plain", "[a]\nk=v\n", "k", {"v"}},
        {"whitespace", "[a]\n  k   =   v  \n", "k", {"v"}},
        {"all kinds of whitespace", "[a]\n\t\v\f k\t\v\f =\t\v\f v \t\v\f\r\n", "k", {"v"}},
        {"inside a value", "[a]\nk = two  words\n", "k", {"two  words"}},
        {"empty value", "[a]\nk =\n", "k", {}},
        {"blank value", "[a]\nk =   \n", "k", {}},
        {"several values", "[a]\nk=a\nk=b\nk=c\n", "k", {"a", "b", "c"}},
        {"empty among them", "[a]\nk=a\nk=\nk=c\n", "k", {"a", "c"}},
        {"more signs", "[a]\nk = a = b\n", "k", {"a = b"}},
        {"a mark in a value", "[a]\nk = # v\n", "k", {"# v"}},
        {"a key with spaces", "[a]\nk y = v\n", "k y", {"v"}},
        {"carriage returns", "[a]\r\nk = v\r\n", "k", {"v"}},
        {"a carriage return inside", "[a]\nk = a\rb\n", "k", {"a\rb"}},
        {"no last newline", "[a]\nk = v", "k", {"v"}},
        {"no last newline, header", "[a]\nk = v\n[b]", "k", {"v"}},
        {"text after a header", "[a] # c\nk = v\n", "k", {"v"}},
        {"indented head", "  [a]\nk = v\n", "k", {"v"}},
        {"invalid UTF-8", "[a]\nk = \xFF\xFE\x80\n", "k", {"\xFF\xFE\x80"}},
        {"high bytes are not whitespace", "[a]\nk = \xA0v\x85\n", "k", {"\xA0v\x85"}},
        {"a zero byte cuts the line", "[a]\nk = v\0lost\nl = w\n"s, "k", {"v"}},
        {"the line after a zero byte", "[a]\nk = v\0lost\nl = w\n"s, "l", {"w"}},
        {"a value before a zero byte", "[a]\nk = v  \0\n"s, "k", {"v"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const data = parsed(c.text);
        EXPECT_EQ(c.expected, values(*data, "a", c.key));
        EXPECT_EQ(1, data->contains("a", c.key));
    }
}

TEST(ZPropertiesImplReads, HeaderNamesAreReadVerbatim)
{
    auto const data = parsed("[ a b ]\n[]\n[x]y]\n[#]\n");
    for (char const* name : {" a b ", "", "x", "#"})
        EXPECT_EQ(1, data->contains(name)) << name;
    EXPECT_EQ(4, data->count());
}

TEST(ZPropertiesImplReads, InvalidLinesAreRefused)
{
    struct Case {
        char const* name;
        std::string text;
        int line;
        int column;
        std::string data;
    };
    Case const cases[] = {
        {"a key before any stanza", "k = v\n", 1, 1, "k = v"},
        {"a key after comments alone", "# c\n\n  k = v  \n", 3, 3, "k = v"},
        {"no sign", "[a]\nword\n", 2, 1, "word"},
        {"the sign first", "[a]\n  = v\n", 2, 3, "= v"},
        {"only the sign", "[a]\n=\n", 2, 1, "="},
        {"an open head", "[a\n", 1, 3, "[a"},
        {"a repeated head", "[a]\nk = v\n\n[a] again\n", 4, 2, "[a] again"},
        {"a repeated head among many", "[a]\n[b]\n[c]\n[b]x\n[d\n", 4, 2, "[b]x"},
        {"the first of two", "[a]\nword\n[a]\n", 2, 1, "word"},
        {"a byte order mark", "\xEF\xBB\xBF[a]\n", 1, 1, "\xEF\xBB\xBF[a]"},
        {"no last newline", "[a]\nword", 2, 1, "word"},
        {"a repeated head, indented", "[a]\n \t[a]\n", 2, 4, "[a]"},
        {"an open head with umlauts", "[\xC3\xA4\xC3\xB6 x \n", 1, 6, "[\xC3\xA4\xC3\xB6 x"},
        {"an open head of Latin-1", "[\xE4\xF6 x\n", 1, 6, "[\xE4\xF6 x"},
        {"before a zero byte", "[a]\nwo\0rd\n"s, 2, 1, "wo"},
        {"lines of carriage returns", "[a]\rk = v\r", 0, 0, ""},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZSCFData_6_0 data;
        data.setAttributes(ZPCache_6_0::keepComments, nullptr);
        if (c.line == 0) {
            // For the reader this is a single line: a header, and the rest is ignored.
            Stream const stream(c.text);
            data.be_read("test.conf", stream.file());
            EXPECT_EQ(1, data.count());
            continue;
        }
        Refusal const refused = refusal(data, c.text);
        EXPECT_EQ(c.line, refused.line);
        EXPECT_EQ(c.column, refused.column);
        EXPECT_EQ(c.data, refused.text);
        EXPECT_EQ("companion \n", stateOf(data));
    }
}

// Returns a stanza with 5,000 keys. A reader prefetches the index slots of more than 4,096 keys.
std::string largeStanza()
{
    std::string text = "[many]\n";
    for (int i = 0; i < 5000; ++i)
        text += "key" + std::to_string(i) + " = " + std::to_string(i) + "\n";
    return text;
}

TEST(ZPropertiesImplReads, LargeTextIsReadAsASmallOne)
{
    std::string const many = largeStanza();
    for (char const* text : {"[a]\nk=1\nl=2\nk=3\n", "\n# c\n\n[a]\n# d\n  # e\nk = v\n\n[b]\n",
                             "[a]\n[b]\nk = v\nk =\n\n\n# end\n", "[a]\nkey17 = other\nk = v"}) {
        SCOPED_TRACE(text);
        auto const data = parsed(many + text);
        EXPECT_EQ(many + textOf(*parsed(text)), textOf(*data));
        EXPECT_EQ((Strings{"17"}), values(*data, "many", "key17"));
        EXPECT_EQ(values(*parsed(text), "a", "k"), values(*data, "a", "k"));
    }
}

TEST(ZPropertiesImplReads, InvalidLinesOfALargeTextAreRefused)
{
    std::string const many = largeStanza();
    struct Case {
        char const* text;
        int line;  // after the large stanza
        char const* data;
    };
    Case const cases[] = {{"[a]\nword\n", 2, "word"},
                          {"[a]\nk = v\n[a] again\nword\n", 3, "[a] again"},
                          {"[b]\n[many]\nkey1 = v\n", 2, "[many]"},
                          {"# c\n\n[open\n", 3, "[open"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        auto const data = parsed("# c\n[z]\nk = v\n");
        std::string const before = stateOf(*data);
        Refusal const refused = refusal(*data, many + c.text);
        EXPECT_EQ(5001 + c.line, refused.line);
        EXPECT_EQ(c.data, refused.text);
        EXPECT_EQ(before, stateOf(*data));
    }
}

TEST(ZPropertiesImplReads, CommentsAndBlankLinesAreKeptOnRequest)
{
    char const* const text = "# file\n\n[a]\n  # about k  \nk = v\n\n";
    EXPECT_EQ("# file\n\n[a]\n# about k\nk = v\n\n", textOf(*parsed(text)));
    EXPECT_EQ("[a]\nk = v\n", textOf(*parsed(text, 0)));
    EXPECT_EQ("[a]\nk = v\n", textOf(*parsed(text, 4)));
    EXPECT_EQ("# file\n\n[a]\n# about k\nk = v\n\n", textOf(*parsed(text, 5)));
}

TEST(ZPropertiesImplReads, RepeatedKeyHasOneLine)
{
    EXPECT_EQ("[a]\nk = 1\nk = 3\nl = 2\n", textOf(*parsed("[a]\nk=1\nl=2\nk=3\n")));
}

TEST(ZPropertiesImplReads, EmptyFileIsAnEmptyCache)
{
    EXPECT_EQ("companion \n", stateOf(*parsed("")));
    EXPECT_EQ("companion \n2 \n", stateOf(*parsed("\n")));
    EXPECT_EQ("companion \n2 \n", stateOf(*parsed("\0\0\0"s)));
}

TEST(ZPropertiesImplReads, ReservedEntryNamesTheCompanionFile)
{
    EXPECT_STREQ("/x/y.obf",
                 parsed("[configuration-database]\nfile = /x/y.obf\n")->companionFile().getChars());
    EXPECT_STREQ("/z", parsed("[configuration-database]\nfile = /x\nfile = /z\n[b]\nfile = /n\n")
                           ->companionFile()
                           .getChars());
    EXPECT_STREQ("", parsed("[configuration]\nfile = /x\n[configuration-database]\nfile2 = /y\n")
                         ->companionFile()
                         .getChars());
    auto const data = parsed("[configuration-database]\nfile = /x/y.obf\n");
    EXPECT_EQ((Strings{"/x/y.obf"}), values(*data, "configuration-database", "file"));
}

TEST(ZPropertiesImplReads, LongLinesAreSplit)
{
    // A full buffer has 8191 bytes and a zero byte. A newline may be the last of these bytes.
    for (size_t const length : {kMaxReadLength - 2, kMaxReadLength - 1, kMaxReadLength}) {
        SCOPED_TRACE(length);
        std::string const line = "k = " + std::string(length - 4, 'v');
        auto const data = parsed("[a]\n" + line + "\nl = w\n");
        EXPECT_EQ((Strings{std::string(length - 4, 'v')}), values(*data, "a", "k"));
        EXPECT_EQ((Strings{"w"}), values(*data, "a", "l"));
    }
    ZSCFData_6_0 data;
    Refusal const refused =
        refusal(data, "[a]\nk = " + std::string(kMaxReadLength - 4, 'v') + "rest\n");
    EXPECT_EQ(3, refused.line);
    EXPECT_EQ(1, refused.column);
    EXPECT_EQ("rest", refused.text);
    auto const torn = parsed("[a]\nk = " + std::string(kMaxReadLength - 4, 'v') + "l = w\n");
    EXPECT_EQ((Strings{std::string(kMaxReadLength - 4, 'v')}), values(*torn, "a", "k"));
    EXPECT_EQ((Strings{"w"}), values(*torn, "a", "l"));
}

TEST(ZPropertiesImplReads, VeryLongLineIsReadToItsEnd)
{
    // A line that is read as hundreds of comments.
    std::string text = "[a]\n";
    std::string expected = text;
    for (int i = 0; i < 300; ++i) {
        std::string const piece =
            "# " + std::to_string(i) + std::string(kMaxReadLength - 6, 'x') + "!!!!";
        text += piece.substr(0, kMaxReadLength);
        expected += piece.substr(0, kMaxReadLength) + "\n";
    }
    EXPECT_TRUE(expected == textOf(*parsed(text)));
}

TEST(ZPropertiesImplReads, KeepsTheNewlineOfASplitLineAsABlankLine)
{
    // Written without its spaces, the line does not fill the buffer any more.
    auto const full = parsed("[a]\nk = " + std::string(kMaxReadLength - 4, 'v') + "\nl = w\n");
    EXPECT_EQ("[a]\nk=" + std::string(kMaxReadLength - 4, 'v') + "\n\nl = w\n", textOf(*full));
}

TEST(ZPropertiesImplReads, LinesAreSplitAsFgetsSplitsThem)
{
    // Only "#", spaces, zero bytes and newlines, so every line is a comment or a blank line.
    std::mt19937 random(20260601);
    for (int round = 0; round < 300; ++round) {
        std::string text;
        for (unsigned i = random() % 12; i > 0; --i) {
            size_t const length =
                random() % 3 == 0 ? random() % 20 : kMaxReadLength - 6 + random() % 12;
            text.append(length, random() % 5 == 0 ? ' ' : '#');
            if (!text.empty() && random() % 4 == 0)
                text[random() % text.size()] = '\0';
            if (random() % 4 != 0)
                text += '\n';
        }
        Stream const reference(text);
        Strings expected;
        char line[8192];
        while (fgets(line, sizeof line, reference.file()) != nullptr) {
            std::string piece = line;
            piece.erase(piece.find_last_not_of(" \n") + 1);
            piece.erase(0, piece.find_first_not_of(" \n"));
            expected.push_back(piece);
        }
        auto const data = parsed(text);
        ZArrayList_6_0 lines(1, 1);
        data->getLines(lines);
        ASSERT_EQ(expected.size(), lines.size());
        for (unsigned i = 0; i < lines.size(); ++i) {
            auto const* const read = static_cast<ZPropLine_6_0 const*>(lines.get(i));
            ASSERT_EQ(expected[i], read->text().getChars());
            ASSERT_EQ(expected[i].empty() ? 2u : 1u, read->type());
        }
    }
}

TEST(ZPropertiesImplReads, ReadingStartsAtThePositionOfTheStream)
{
    Stream const stream("skipped\n[a]\nk = v\n");
    char line[100];
    ASSERT_NE(nullptr, fgets(line, sizeof line, stream.file()));
    ZSCFData_6_0 data;
    data.be_read("test.conf", stream.file());
    EXPECT_EQ("[a]\nk = v\n", textOf(data));
}

TEST(ZPropertiesImplReads, ReadsAStreamWithoutASize)
{
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    std::string text = "[a]\n";
    for (int i = 0; i < 3000; ++i)
        text += "key" + std::to_string(i) + " = value\n";
    ASSERT_LT(text.size(), 65536u);
    ASSERT_EQ(static_cast<ssize_t>(text.size()), write(ends[1], text.data(), text.size()));
    close(ends[1]);
    FILE* const file = fdopen(ends[0], "r");
    ZSCFData_6_0 data;
    data.be_read("test.conf", file);
    fclose(file);
    EXPECT_EQ(3000, data.keyCount("a"));
    EXPECT_EQ(text, textOf(data));

    // Larger than the first block.
    std::string const large = "[b]\nk = " + std::string(8000, 'v') + "\n";
    std::string file2 = "[b]\n";
    for (int i = 0; i < 40; ++i)
        file2 += "k" + std::to_string(i) + " = " + std::string(8000, 'v') + "\n";
    auto const read = parsed(file2);
    EXPECT_EQ(file2, textOf(*read));
}

TEST(ZPropertiesImplReads, ReadsFilesOfAnyLength)
{
    for (size_t const keys : {0, 1, 10, 100, 5000, 20000}) {
        SCOPED_TRACE(keys);
        std::string text = keys == 0 ? "" : "[a]\n";
        for (size_t i = 0; i < keys; ++i)
            text += "key" + std::to_string(i) + " = value\n";
        FILE* const file = tmpfile();
        ASSERT_EQ(text.size(), fwrite(text.data(), 1, text.size(), file));
        rewind(file);
        ZSCFData_6_0 data;
        data.be_read("test.conf", file);
        fclose(file);
        EXPECT_EQ(text, textOf(data));
    }
}

TEST(ZPropertiesImplReads, FailureToReadIsReportedAndChangesNothing)
{
    auto const data = parsed("# c\n[a]\nk = v\n");
    std::string const before = stateOf(*data);
    FILE* const directory = fopen("/", "r");
    ASSERT_NE(nullptr, directory);
    try {
        data->be_read("/some/path", directory);
        ADD_FAILURE() << "accepted";
    } catch (ZPropertiesIOException_6_0 const& e) {
        EXPECT_EQ(43u, e.messageNumber());
        EXPECT_STREQ("/some/path", e.propFile().getChars());
        EXPECT_STREQ("fgets()", e.api().getChars());
        EXPECT_EQ(EISDIR, e.excerrno());
        EXPECT_STREQ("src/Z/ZPropertiesImpl", e.who());
        EXPECT_EQ(71u, e.where());
    }
    fclose(directory);
    EXPECT_EQ(before, stateOf(*data));
}

namespace {

// A stream that returns `good` and then fails.
struct FailingStream {
    std::string good;
    size_t given;
    int error;
};

ssize_t readFailing(void* cookie, char* to, size_t size)
{
    auto* const failing = static_cast<FailingStream*>(cookie);
    size_t const left = failing->good.size() - failing->given;
    if (left == 0) {
        errno = std::exchange(failing->error, 0);
        return errno == 0 ? 0 : -1;
    }
    size_t const count = left < size ? left : size;
    memcpy(to, failing->good.data() + failing->given, count);
    failing->given += count;
    return static_cast<ssize_t>(count);
}

}  // namespace

TEST(ZPropertiesImplReads, FileThatCannotBeReadToItsEndIsRefused)
{
    FailingStream failing = {"[b]\nk = v\n", 0, EIO};
    cookie_io_functions_t functions = {};
    functions.read = readFailing;
    FILE* const file = fopencookie(&failing, "r", functions);
    auto const data = parsed("# c\n[a]\nk = v\n");
    std::string const before = stateOf(*data);
    try {
        data->be_read("path", file);
        ADD_FAILURE() << "accepted";
    } catch (ZPropertiesIOException_6_0 const& e) {
        EXPECT_EQ(EIO, e.excerrno());
    }
    fclose(file);
    EXPECT_EQ(before, stateOf(*data));
}

TEST(ZPropertiesImplReads, EarlierStreamErrorIsNotAFailureToRead)
{
    FailingStream failing = {"[b]\nk = v\n", 0, 0};
    cookie_io_functions_t functions = {};
    functions.read = readFailing;
    FILE* const file = fopencookie(&failing, "r", functions);
    EXPECT_EQ(EOF, fputc('x', file));
    EXPECT_NE(0, ferror(file));
    ZSCFData_6_0 data;
    data.be_read("path", file);
    fclose(file);
    EXPECT_EQ("[b]\nk = v\n", textOf(data));
}

TEST(ZPropertiesImplReads, InterruptedReadContinues)
{
    FailingStream failing = {"[b]\nk = v\n", 0, EINTR};
    cookie_io_functions_t functions = {};
    functions.read = readFailing;
    FILE* const file = fopencookie(&failing, "r", functions);
    ZSCFData_6_0 data;
    data.be_read("path", file);
    fclose(file);
    EXPECT_EQ("[b]\nk = v\n", textOf(data));
}

TEST(ZPropertiesImplReads, ReadingAddsToTheContents)
{
    auto const data = parsed("# first\n\n[a]\n# k = 1\n\nz = 1\n");
    data->addLine("a", "y", "2", 0);  // builds the index of the section
    Stream const more("# second\n\n[b]\nk = v\n");
    data->be_read("test.conf", more.file());
    EXPECT_EQ("# first\n\n[a]\n# k = 1\n\nz = 1\ny = 2\n# second\n\n[b]\nk = v\n", textOf(*data));
    data->addLine("a", "k", "3", 0);
    EXPECT_EQ("# first\n\n[a]\n# k = 1\nk = 3\n\nz = 1\ny = 2\n# second\n\n[b]\nk = v\n",
              textOf(*data));
}

TEST(ZPropertiesImplReads, RefusedTextLeavesTheCacheUnchanged)
{
    char const* const kTexts[] = {
        "# more\n\nword\n",         "# more\n[b]\nk = 1\n[c]\nk = 2\nk = 3\n\nword\n",
        "[b]\nk = 1\n[a]\n",        "[configuration-database]\nfile = /other\n[open\n",
        "[removed]\nk = 1\nword\n",
    };
    for (char const* text : kTexts) {
        SCOPED_TRACE(text);
        auto const data = parsed("# c\n[removed]\nk = v\n[a]\nk = v\n# t = 1\n\n");
        data->setCompanionFile("/x/test.obf");
        data->remove("removed");
        data->addLine("a", "y", "2", 0);
        std::string const before = stateOf(*data);
        std::string const written = textOf(*data);
        refusal(*data, text);
        EXPECT_EQ(before, stateOf(*data));
        EXPECT_EQ(written, textOf(*data));
        // The cache can be used as before.
        data->addLine("a", "t", "3", 0);
        data->set("removed", "k", "w");
        data->addFileComment("# d");
        EXPECT_EQ("# c\n# d\n\n[removed]\nk = w\n[a]\nk = v\ny = 2\n# t = 1\nt = 3\n\n",
                  textOf(*data));
    }
}

TEST(ZPropertiesImplReads, RefusedTextKeepsNoMemory)
{
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text +=
            "[s" + std::to_string(i) + "]\n# c\n\nk = 1\nk = 2\nl = " + std::to_string(i) + "\n";
    auto const data = parsed("# c\n[a]\nk = v\nk = w\n");
    data->delLine("a", "k");  // leaves free slots that the read uses
    size_t const before = data->memoryUsed();
    refusal(*data, text + "word\n");
    EXPECT_LT(data->memoryUsed(), before + 1000);
    // The slots can be used again.
    data->readText("test.conf", text.data(), text.size());
    EXPECT_EQ(20001, data->count());
    EXPECT_EQ((Strings{"1", "2"}), values(*data, "s19999", "k"));
    EXPECT_EQ((Strings{"777"}), values(*data, "s777", "l"));

    ZSCFData_6_0 empty;
    size_t const none = empty.memoryUsed();
    refusal(empty, text + "word\n");
    EXPECT_EQ(none, empty.memoryUsed());
    empty.readText("test.conf", text.data(), text.size());
    EXPECT_EQ(20000, empty.count());
}

TEST(ZPropertiesImplReads, RefusedLinesLeaveThePreviousSectionUnchanged)
{
    auto const data = parsed("[a]\nk = v\nl = w\n");
    refusal(*data, "# c\n\n# m = 1\n\nword\n");
    data->addLine("a", "m", "1", 0);
    EXPECT_EQ("[a]\nk = v\nl = w\nm = 1\n", textOf(*data));
}

TEST(ZPropertiesImplReads, RefusedTextsMayExceedTheCapacityInTotal)
{
    ZSCFData_6_0 data;
    for (int i = 0; i < 4100; ++i)  // each uses 1 MiB of the 4 GiB that ids address
        refusal(data, "word\n");
    data.set("a", "k", "v");
    EXPECT_EQ((Strings{"v"}), values(data, "a", "k"));
}

TEST(ZPropertiesImplReads, StringsOfAnyLengthAreKept)
{
    Cache cache;
    std::vector<size_t> const lengths = {1, 65534, 65535, 65536, (1 << 20) - 1, 1 << 20, 3 << 20};
    for (size_t const length : lengths) {
        std::string const name(length, 'n');
        cache.set(name.c_str(), name.c_str(), std::string(length, 'v').c_str());
        cache.add(name.c_str(), name.c_str(), std::string(length, 'w').c_str(), 0);
    }
    std::unique_ptr<ZPCache_6_0> const clone(cache.clone());
    for (Cache const* const each : {&cache, dynamic_cast<Cache*>(clone.get())}) {
        EXPECT_EQ(lengths.size(), names(*each).size());
        for (size_t const length : lengths) {
            SCOPED_TRACE(length);
            std::string const name(length, 'n');
            EXPECT_EQ((Strings{name}), names(*each, name.c_str()));
            EXPECT_EQ((Strings{std::string(length, 'v'), std::string(length, 'w')}),
                      values(*each, name.c_str(), name.c_str()));
        }
    }
}

TEST(ZPropertiesImplReads, RemovedStanzaMayBeReadAgain)
{
    auto const data = parsed("[a]\nold = 1\n# c\n\n[b]\nk = 2\n");
    data->remove("a");
    Stream const more("[a]\nnew = 1\n");
    data->be_read("test.conf", more.file());
    EXPECT_EQ("[b]\nk = 2\n[a]\nnew = 1\n", textOf(*data));
    EXPECT_EQ((Strings{"new"}), names(*data, "a"));
}
