// Every problem of a stanza file: findProblems() against load() and store().
#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZStanzaProblem.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "EachAllocation.h"
#include "Nobody.h"
#include "TestDirectory.h"

using namespace std::string_literals;

namespace {

using Problem = ZStanzaProblem_6_0;
using Store = ZStanzaFileProperties_6_0;

class Problems {
public:
    explicit Problems(std::string const& file) { Store::findProblems(file.c_str(), list_); }

    unsigned size() const { return list_.size(); }
    Problem const& operator[](unsigned index) const
    {
        return dynamic_cast<Problem const&>(*list_.get(index));
    }

    bool hasErrors() const { return firstError() != nullptr; }
    Problem const* firstError() const
    {
        for (unsigned i = 0; i < size(); ++i)
            if ((*this)[i].kind() == Problem::error)
                return &(*this)[i];
        return nullptr;
    }

    // Returns whether a problem is about a line that a store changes. It keeps carriage returns
    // that do not end a line.
    bool hasChanges() const
    {
        for (unsigned i = 0; i < size(); ++i)
            if ((*this)[i].cause() != Problem::loneReturn)
                return true;
        return false;
    }

    // "LINE:COLUMN: TEXT\n" for each.
    std::string text() const
    {
        std::string all;
        for (unsigned i = 0; i < size(); ++i)
            all += std::to_string((*this)[i].line()) + ":" + std::to_string((*this)[i].column()) +
                   ": " + ((*this)[i].kind() == Problem::note ? "note: " : "") +
                   (*this)[i].text().getChars() + "\n";
        return all;
    }

private:
    ZArrayList_6_0 list_{16, 1};
};

// The refusal of a load; line 0 if it accepts the file.
struct Refusal {
    int line = 0;
    int column = 0;
};

Refusal refusalOf(std::string const& text)
{
    ZSCFData_6_0 data;
    data.setAttributes(ZPCache_6_0::keepComments, nullptr);
    try {
        data.readText("test.conf", text.data(), text.size());
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        return {e.badline(), e.column()};
    }
    return {};
}

std::string storedText(std::string const& text)
{
    ZSCFData_6_0 data;
    data.setAttributes(ZPCache_6_0::keepComments, nullptr);
    data.readText("test.conf", text.data(), text.size());
    ZBuffer_6_0 written;
    data.writeText(written);
    return {static_cast<char const*>(written.getBuffer()), written.getLength()};
}

bool isSplit(std::string const& text)
{
    size_t length = 0;
    for (char const c : text) {
        length = c == '\n' ? 0 : length + 1;
        if (length > 8190)
            return true;
    }
    return false;
}

std::string const kDropped =
    " has no value here but values elsewhere, and storing drops this line; remove it, or give it "
    "a value\n";
std::string const kMoved =
    " has values in other lines, and storing moves this line up to them; move it there\n";
std::string const kContinued =
    " looks like a continuation of the line above, but is a key of its own; remove the "
    "indentation, or write one line\n";
std::string const kLong =
    "the line exceeds 8190 bytes and would be split; shorten it or use a line per value\n";
std::string const kZero =
    "the line has a zero byte and is ignored after it; remove the zero byte\n";
std::string const kReturn =
    "the line has a carriage return without a newline, and does not end there; end each line with "
    "a newline, and remove other carriage returns\n";
std::string const kSpacing =
    "storing changes the whitespace of this line; write \"key = value\" and \"[stanza]\" without "
    "indentation\n";

}  // namespace

class StanzaProblems : public testing::Test {
protected:
    std::string find(std::string const& text)
    {
        return Problems(directory_.write("f", text)).text();
    }

    TestDirectory directory_{TestDirectory::Place::memory};
};

// ---- One problem -------------------------------------------------------------------------------

TEST_F(StanzaProblems, EachProblemHasPlaceAndRemedy)
{
    std::string const many(8100, 'x');
    struct Case {
        char const* name;
        std::string text;
        std::string problems;
    };
    Case const cases[] = {
        {"nothing", "", ""},
        {"as stored", "# c\n\n[a]\nk = v\nk = w\nl =\n\n[]\n# d\n", ""},
        {"an open header", "  [ab\n", "1:6: \"[ab\": no \"]\" after the stanza name; add it\n"},
        {"keys after it belong to it", "[a\nk = v\nk =\n",
         "1:3: \"[a\": no \"]\" after the stanza name; add it\n3:1: note: key \"k\"" + kDropped},
        {"a repeated stanza", "[a]\n\n [a] x\n",
         "3:3: \"[a] x\": duplicate stanza; merge it with the earlier one of that name\n"},
        {"no sign", "[a]\n\tword \n",
         "2:2: \"word\": neither a stanza header, a comment nor KEY = VALUE; add \"=\", or \"#\" "
         "at the start\n"},
        {"no key", "[a]\n = v\n", "2:2: \"= v\": no key before \"=\"; add one\n"},
        {"no stanza", "k = v\n",
         "1:1: \"k = v\": key before the first stanza; move it below a [stanza] header\n"},
        {"a byte order mark", "\xEF\xBB\xBF[a]\nk = v\n",
         "1:1: \"\xEF\xBB\xBF[a]\": the file starts with a byte order mark; save it as UTF-8 "
         "without one\n"},
        {"UTF-16", "\xFF\xFE[\0a\0]\0\n\0x\0"s,
         "1:1: \"\xFF\xFE[\": the file is UTF-16; save it as UTF-8 without a byte order mark\n"},
        {"UTF-16, big endian", "\xFE\xFF\0[\0a\0]\0\n"s,
         "1:1: \"\xFE\xFF\": the file is UTF-16; save it as UTF-8 without a byte order mark\n"},
        {"a zero byte", "[a]\nk = v\0lost\n"s, "2:6: note: " + kZero},
        {"a zero byte in a bad line", "[a]\nwo\0rd\n"s, "2:3: \"wo\": " + kZero},
        {"a long comment", std::string(20000, '#') + "\n", "1:8192: note: " + kLong},
        {"a long value", "[a]\nk = " + many + many + "\n",
         "2:8192: \"" + many.substr(0, 60) + "...\": " + kLong},
        {"a long value of umlauts",
         "[a]\nk = v" + many.substr(0, 8000) + std::string(95, '-') + "\xC3\xA4" + many + "\n",
         "2:8191: \"" + many.substr(0, 60) + "...\": " + kLong},
        {"the longest line", "[a]\nk = " + std::string(8186, 'v') + "\n", ""},
        {"one byte more", "[a]\nk = " + std::string(8187, 'v') + "\n", "2:8192: note: " + kLong},
        {"an empty value, then another", "[a]\nk =\nk = v\n", "2:1: note: key \"k\"" + kDropped},
        {"a value, then an empty one", "[a]\nk = v\nk =\n", "3:1: note: key \"k\"" + kDropped},
        {"two empty values", "[a]\nk =\nk =\n", "3:1: note: key \"k\"" + kDropped},
        {"values apart", "[a]\nk = 1\nl = 2\nk = 3\n", "4:1: note: key \"k\"" + kMoved},
        {"values around a comment", "[a]\nk = 1\n# c\nk = 3\n", "4:1: note: key \"k\"" + kMoved},
        {"values around a dropped line", "[a]\nl = 1\nk = 1\nl =\nk = 3\n",
         "4:1: note: key \"l\"" + kDropped},
        {"text after a header", "[a] \xC3\xA4 x\n",
         "1:5: note: the text after \"]\" is ignored, and storing drops it; remove it, or make it "
         "a comment line\n"},
        {"a carriage return in a header line", "[a]\rk = v\r\n",
         "1:4: note: " + kReturn +
             "1:5: note: the text after \"]\" is ignored, and storing drops it; remove it, or make "
             "it a comment line\n"},
        {"carriage returns in lines", "[a]\n# c\rd\nk = v\r\n\xC3\xA4 = 1\r2\r3\nl\r",
         "2:4: note: 2 lines have carriage returns without a newline, this one first, and do not "
         "end there; end each line with a newline, and remove other carriage returns\n"
         "3:6: note: the line has CR LF at its end, and storing writes LF; convert the line "
         "endings\n5:1: \"l\": neither a stanza header, a comment nor KEY = VALUE; add \"=\", or "
         "\"#\" at the start\n"},
        {"a carriage return in an invalid line", "k = v\r[a]\r",
         "1:1: \"k = v\r[a]\": key before the first stanza; move it below a [stanza] header\n"
         "1:6: note: " +
             kReturn},
        {"a carriage return in a long line", "[a]\nk = v\rl = " + many + many + "\n",
         "2:6: note: " + kReturn + "2:8192: \"" + many.substr(0, 60) + "...\": " + kLong},
        {"a carriage return after a zero byte", "[a]\nk = v\0l\rm\n"s, "2:6: note: " + kZero},
        {"an indented key below a key", "[a]\nk = v,\n  w = x\n",
         "3:1: note: " + kSpacing + "3:3: note: key \"w\"" + kContinued},
        {"indented keys below a key", "[a]\n k = v,\n  w = x\n  y = z\n l = 1\n\tm = 1\n",
         "2:1: note: storing changes the whitespace of 5 lines, this one first; write \"key = "
         "value\" and \"[stanza]\" without indentation\n"
         "3:3: note: key \"w\"" +
             kContinued + "4:3: note: key \"y\"" + kContinued},
        {"indented keys", "[a]\n  k = v\n  l = v\n k = v\n# c\n  m = v\n\n   n = v\n",
         "2:1: note: storing changes the whitespace of 5 lines, this one first; write \"key = "
         "value\" and \"[stanza]\" without indentation\n"
         "4:2: note: key \"k\"" +
             kMoved},
        {"an indented line without a separator", "[a]\nk = v,\n  w\n  x = y\n",
         "3:3: \"w\": neither a stanza header, a comment nor KEY = VALUE; add \"=\", or \"#\" at "
         "the "
         "start\n4:1: note: " +
             kSpacing},
        {"whitespace", "[a]\nk=v\n", "2:2: note: " + kSpacing},
        {"whitespace of several lines", "# c \n [a]\nk =  v\nl = w\n  # d\n",
         "1:4: note: storing changes the whitespace of 4 lines, this one first; write \"key = "
         "value\" and \"[stanza]\" without indentation\n"},
        {"CR LF", "[a]\r\n\r\nk = v\r\n",
         "1:4: note: 3 lines have CR LF at their ends, this one first, and storing writes LF; "
         "convert the line "
         "endings\n"},
        {"CR LF in one line", "[a]\nk = v\r\n",
         "2:6: note: the line has CR LF at its end, and storing writes LF; convert the line "
         "endings\n"},
        {"no last newline", "[a]\nk = v",
         "2:6: note: the last line has no newline, and storing adds it; add it\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.problems, find(c.text));
    }
}

TEST_F(StanzaProblems, AllAreListedInFileOrder)
{
    EXPECT_EQ(
        "1:1: \"k = v\": key before the first stanza; move it below a [stanza] header\n"
        "3:1: note: key \"l\"" +
            kDropped +
            "4:1: \"= x\": no key before \"=\"; add one\n"
            "5:2: \"[a]\": duplicate stanza; merge it with the earlier one of that name\n"
            "6:1: \"word\": neither a stanza header, a comment nor KEY = VALUE; add \"=\", or "
            "\"#\" at "
            "the start\n"
            "7:1: note: key \"l\"" +
            kMoved + "8:3: \"[b\": no \"]\" after the stanza name; add it\n",
        find("k = v\n[a]\nl =\n= x\n[a]\nword\nl = 1\n[b\nm = 1\n"));
}

TEST_F(StanzaProblems, HaveTheNamesOfTheirStanzaAndKey)
{
    Problems const problems(
        directory_.write("f", "x\n[a]\nk =\nk = 1\n[b]\nl = 1\n#\nl = 2\n= y\n[c\nk = 1\nk =\n"));
    std::string names;
    for (unsigned i = 0; i < problems.size(); ++i)
        names += "["s + problems[i].stanza().getChars() + "]" + problems[i].key().getChars() + " ";
    EXPECT_EQ("[] [a]k [b]l [b] [b] [c]k ", names);
}

TEST_F(StanzaProblems, ColumnsCountCharactersInAnyLocale)
{
    struct Case {
        char const* name;
        char const* before;
        unsigned long characters;
    };
    Case const cases[] = {
        {"ASCII", "abc", 3},
        {"two bytes", "\xC3\xA4\xC3\xB6", 2},
        {"three bytes", "\xE2\x82\xAC", 1},
        {"four bytes", "\xF0\x9F\x98\x80", 1},
        {"Latin-1", "\xE4\xF6", 2},
        {"cut off", "\xE2\x82", 2},
        {"overlong", "\xC0\x80\xE0\x80\x80", 5},
        {"a surrogate", "\xED\xA0\x80", 3},
        {"too large", "\xF4\x90\x80\x80", 4},
        {"the largest", "\xF4\x8F\xBF\xBF", 1},
        {"a tab inside", "a\tb", 3},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Problems const problems(directory_.write("f", "["s + c.before));
        ASSERT_LT(0u, problems.size());
        EXPECT_EQ(c.characters + 2, problems[0].column());
    }
}

// ---- The companion -----------------------------------------------------------------------------

TEST_F(StanzaProblems, CompanionProblemsAreAtItsEntry)
{
    std::string const head = "[configuration-database]\nfile = ";
    std::string const remedy = "; restore it, or remove this line to give up its values\n";
    std::string const missing = directory_.at("missing.obf");
    std::string const damaged = directory_.write("damaged.obf", "no stream");
    std::string const empty = directory_.write("empty.obf", "");
    std::string const unread = "2:8: cannot read the companion file ";
    EXPECT_EQ(unread + missing + ": it is missing or empty" + remedy, find(head + missing + "\n"));
    EXPECT_EQ("2:8: damaged companion file " + damaged + remedy, find(head + damaged + "\n"));
    EXPECT_EQ(unread + directory_.path() + ": it is not a regular file" + remedy,
              find(head + directory_.path() + "\n"));
    EXPECT_EQ(unread + empty + ": it is missing or empty" + remedy, find(head + empty + "\n"));
    Problems const problems(directory_.at("f"));
    EXPECT_EQ(43u, problems[0].messageNumber());
    Store store(1);
    EXPECT_THROW(store.load(directory_.at("f").c_str()), ZPropertiesIOException_6_0);
}

TEST_F(StanzaProblems, LineWithoutAValueNextToObfuscatedValuesIsNoted)
{
    std::string const file = directory_.write("f", "[a]\nk = v\n");
    Store store(file.c_str(), 1);
    store.setValue("a", "secret", "s", 1);
    store.store(nullptr);
    EXPECT_EQ("", Problems(file).text());
    std::string const text = directory_.read("f");
    EXPECT_EQ("2:1: note: key \"secret\"" + kDropped,
              find("[a]\nsecret =" + text.substr(text.find('\n'))));
}

TEST_F(StanzaProblems, EntryOfACompanionThatAStoreChangesIsNoted)
{
    std::string const remedy = "; store the file once to correct the entry\n";
    std::string const file = directory_.write("f", "[a]\nk = v\n");
    Store store(file.c_str(), 1);
    store.setValue("a", "secret", "s", 1);
    store.store(nullptr);
    std::string const text = directory_.read("f");
    struct Case {
        char const* name;
        std::string companion;
        std::string reason;
    };
    // The stream of zlib has no bytes.
    std::string const empty = directory_.write("empty.obf", "\x78\x9C\x03\0\0\0\0\x01"s);
    Case const cases[] = {
        {"of the original", file + ".obf", " belongs to another file"},
        {"without values", empty, " has no values"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        std::string const copied =
            directory_.write("copy", text.substr(0, text.find("= /") + 2) + c.companion + "\n");
        EXPECT_EQ("5:8: note: storing changes this entry: the companion file " + c.companion +
                      c.reason + remedy,
                  Problems(copied).text());
        Store copy(copied.c_str(), 1);
        copy.store(nullptr);
        EXPECT_EQ(std::string::npos, directory_.read("copy").find(c.companion + "\n"));
        EXPECT_EQ("", Problems(copied).text());
    }
}

// ---- Against load() and store() ----------------------------------------------------------------

namespace {

using Random = std::mt19937;

std::string pieceOf(Random& random)
{
    static std::string const kPieces[] = {"[a]",
                                          "[b]",
                                          "[",
                                          "]",
                                          "[]",
                                          "=",
                                          "k",
                                          "l",
                                          " = ",
                                          "k = 1",
                                          "k =",
                                          "l=2",
                                          "\n",
                                          "\n",
                                          "\n",
                                          " ",
                                          "\t",
                                          "\r",
                                          "\r\n",
                                          "#",
                                          "# c",
                                          "\0"s,
                                          "\xEF\xBB\xBF",
                                          "\xFF\xFE",
                                          "\xC3\xA4",
                                          "\x85",
                                          "[a]\nk = v\n",
                                          "\n[b]\nk = v\n",
                                          "k = v\nk = w\n",
                                          "[configuration]",
                                          std::string(8185, 'y')};
    return kPieces[random() % std::size(kPieces)];
}

// A file as a store writes it, or with a few damaged bytes, or of random pieces.
std::string fileOf(Random& random)
{
    std::string text;
    if (random() % 2 == 0) {
        for (unsigned i = random() % 12; i > 0; --i)
            text += pieceOf(random);
        return text;
    }
    unsigned const stanzas = random() % 4;
    for (unsigned stanza = 0; stanza < stanzas; ++stanza) {
        text += "[s" + std::to_string(stanza) + "]\n";
        for (unsigned i = random() % 5; i > 0; --i)
            text += "k" + std::to_string(i) + (random() % 4 == 0 ? " =\n" : " = v\n");
        if (random() % 2 == 0)
            text += "# c\n\n";
    }
    for (unsigned i = random() % 4; i > 0 && !text.empty(); --i) {
        size_t const at = random() % text.size();
        switch (random() % 3) {
            case 0:
                text.erase(at, 1 + random() % 5);
                break;
            case 1:
                text.insert(at, pieceOf(random));
                break;
            default:
                text[at] = static_cast<char>(random());
                break;
        }
    }
    return text;
}

void expectPlaces(Problems const& problems, std::string const& text)
{
    std::vector<size_t> lengths(1);
    for (char const c : text) {
        if (c == '\n')
            lengths.push_back(0);
        else
            ++lengths.back();
    }
    for (unsigned i = 0; i < problems.size(); ++i) {
        Problem const& problem = problems[i];
        ASSERT_LE(1u, problem.line());
        ASSERT_LE(problem.line(), lengths.size());
        EXPECT_LE(1u, problem.column());
        EXPECT_LE(problem.column(), lengths[problem.line() - 1] + 1);
        EXPECT_NE(nullptr, strstr(problem.text().getChars(), "; "));
        if (i > 0) {
            EXPECT_LE(problems[i - 1].line(), problem.line());
        }
    }
}

}  // namespace

TEST_F(StanzaProblems, ErrorsAreRefusedByALoadAndFilesWithoutNotesAreStoredUnchanged)
{
    constexpr unsigned kSeed = 20261;
    constexpr int kFiles = 6000;
    Random random(kSeed);
    int refused = 0, changed = 0, clean = 0;
    for (int i = 0; i < kFiles; ++i) {
        std::string const text = fileOf(random);
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", file " + std::to_string(i) + ": " + text);
        Problems const problems(directory_.write("f", text));
        expectPlaces(problems, text);
        Refusal const refusal = refusalOf(text);
        EXPECT_EQ(refusal.line != 0, problems.hasErrors());
        if (Problem const* const error = problems.firstError();
            refusal.line != 0 && error != nullptr) {
            ++refused;
            if (!isSplit(text)) {
                EXPECT_EQ(static_cast<unsigned long>(refusal.line), error->line());
                if (error->cause() < Problem::byteOrderMark) {
                    EXPECT_EQ(static_cast<unsigned long>(refusal.column), error->column());
                }
            }
        } else if (refusal.line == 0) {
            bool const isSame = storedText(text) == text;
            EXPECT_EQ(isSame, !problems.hasChanges()) << problems.text();
            ++(isSame ? clean : changed);
        }
        if (HasFailure())
            break;
    }
    // Each branch has been reached.
    EXPECT_LT(500, refused);
    EXPECT_LT(500, changed);
    EXPECT_LT(200, clean);
}

TEST_F(StanzaProblems, CorrectingErrorsFromTheTopEndsWithALoad)
{
    constexpr unsigned kSeed = 7;
    Random random(kSeed);
    for (int i = 0; i < 300; ++i) {
        std::string text = fileOf(random);
        SCOPED_TRACE("seed " + std::to_string(kSeed) + ", file " + std::to_string(i) + ": " + text);
        // Removes the lines of all errors, again and again: a removed header makes its keys
        // invalid.
        for (int rounds = 0; rounds < 50; ++rounds) {
            Problems const problems(directory_.write("f", text));
            if (!problems.hasErrors())
                break;
            std::string kept;
            unsigned long line = 1;
            unsigned at = 0;
            for (size_t begin = 0; begin < text.size(); ++line) {
                size_t const newline = text.find('\n', begin);
                size_t const end = newline == text.npos ? text.size() : newline + 1;
                bool isBad = false;
                for (; at < problems.size() && problems[at].line() <= line; ++at)
                    isBad = isBad || problems[at].kind() == Problem::error;
                if (!isBad)
                    kept += text.substr(begin, end - begin);
                begin = end;
            }
            ASSERT_LT(kept.size(), text.size());
            text = kept;
        }
        EXPECT_EQ(0, refusalOf(text).line);
    }
}

// ---- Hostile files -----------------------------------------------------------------------------

TEST_F(StanzaProblems, MillionsOfBadLinesAreCounted)
{
    unsigned const kListed = 100000;
    std::string text;
    for (unsigned i = 0; i < 3 * kListed; ++i)
        text += "x\n";
    Problems const problems(directory_.write("f", text));
    ASSERT_EQ(kListed + 1, problems.size());
    for (unsigned i = 0; i < kListed; i += 9999)
        EXPECT_EQ(i + 1, problems[i].line());
    Problem const& last = problems[kListed];
    EXPECT_EQ(Problem::omitted, last.cause());
    EXPECT_EQ(Problem::error, last.kind());
    EXPECT_EQ(kListed + 1, last.line());
    EXPECT_STREQ("200000 more problems are not listed; correct the others first",
                 last.text().getChars());
}

TEST_F(StanzaProblems, ErrorAfterMillionsOfNotesIsListedAsOne)
{
    unsigned const kListed = 100000;
    std::string text = "[a]\nk = v\n";
    for (unsigned i = 0; i < kListed; ++i)
        text += "k =\n";
    Problems const notes(directory_.write("f", text));
    EXPECT_EQ(kListed, notes.size());
    EXPECT_FALSE(notes.hasErrors());
    Problems const problems(directory_.write("f", text + "x\n"));
    ASSERT_EQ(kListed + 1, problems.size());
    EXPECT_EQ(Problem::error, problems[kListed].kind());
    EXPECT_STREQ("one more problem is not listed; correct the others first",
                 problems[kListed].text().getChars());
}

TEST_F(StanzaProblems, OneLongLineIsOneProblem)
{
    std::string const text = "[a]\nk = " + std::string(3 << 20, 'x') + "\nl = 1\n";
    Problems const problems(directory_.write("f", text));
    ASSERT_EQ(1u, problems.size());
    EXPECT_EQ(Problem::splitLine, problems[0].cause());
    EXPECT_EQ(2u, problems[0].line());
    EXPECT_EQ(8192u, problems[0].column());
}

TEST_F(StanzaProblems, BinaryFilesHaveAPlaceForEveryProblem)
{
    Random random(3);
    std::string text(1 << 16, '\0');
    for (char& c : text)
        c = static_cast<char>(random());
    Problems const problems(directory_.write("f", text));
    EXPECT_TRUE(problems.hasErrors());
    expectPlaces(problems, text);
    EXPECT_EQ("1:1: note: " + kZero +
                  "1:5: note: the last line has no newline, and storing adds "
                  "it; add it\n",
              find("\0\0\0\0"s));
}

TEST_F(StanzaProblems, FilesThatCannotBeReadFailAsALoadDoes)
{
    std::string const pipe = directory_.at("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    std::string const closed = directory_.write("closed", "[a]\n");
    std::string const loop = directory_.at("loop");
    ASSERT_EQ(0, symlink("loop", loop.c_str()));
    struct Case {
        char const* name;
        std::string path;
    };
    Case const cases[] = {{"missing", directory_.at("missing")},
                          {"a directory", directory_.path()},
                          {"a pipe", pipe},
                          {"a loop", loop},
                          {"a device", "/dev/null"},
                          {"a long name", std::string(5000, 'x')}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        int expected = 0;
        try {
            Store store(c.path.c_str(), 1);
        } catch (ZPropertiesIOException_6_0 const& e) {
            expected = e.excerrno();
        }
        ZArrayList_6_0 list(1, 1);
        long const descriptors = openDescriptors();
        try {
            Store::findProblems(c.path.c_str(), list);
            ADD_FAILURE() << "accepted";
        } catch (ZPropertiesIOException_6_0 const& e) {
            EXPECT_EQ(expected, e.excerrno());
            EXPECT_STREQ("fopen(r)", e.api().getChars());
            EXPECT_EQ(c.path, e.propFile().getChars());
            EXPECT_STREQ("src/Z/ZProperties", e.who());
            EXPECT_EQ(640u, e.where());
        }
        EXPECT_EQ(0u, list.size());
        EXPECT_EQ(descriptors, openDescriptors());
    }
}

TEST_F(StanzaProblems, UnreadableFileFails)
{
    std::string const file = directory_.write("f", "[a]\n");
    ASSERT_EQ(0, chmod(file.c_str(), 0));
    ASSERT_EQ(0, chmod(directory_.path().c_str(), 0755));
    asNobody([&file] {
        ZArrayList_6_0 list(1, 1);
        try {
            Store::findProblems(file.c_str(), list);
        } catch (ZPropertiesIOException_6_0 const& e) {
            return e.excerrno() == EACCES;
        }
        return false;
    });
}

TEST_F(StanzaProblems, InvalidArgumentsAreRefused)
{
    std::string const file = directory_.write("f", "x\n");
    ZArrayList_6_0 list(1, 1);
    ZArrayList_6_0 borrowing(1, 0);
    EXPECT_THROW(Store::findProblems(nullptr, list), ZInvalidParameterException_6_0);
    EXPECT_THROW(Store::findProblems("", list), ZInvalidParameterException_6_0);
    EXPECT_THROW(Store::findProblems(file.c_str(), borrowing), ZInvalidParameterException_6_0);
    EXPECT_EQ(0u, list.size() + borrowing.size());
}

TEST_F(StanzaProblems, RecordsAreAppended)
{
    std::string const file = directory_.write("f", "x\n");
    ZArrayList_6_0 list(1, 1);
    Store::findProblems(file.c_str(), list);
    Store::findProblems(file.c_str(), list);
    EXPECT_EQ(2u, list.size());
}

TEST_F(StanzaProblems, WithoutMemoryTheListIsUnchanged)
{
    std::string text = "x\n[a]\nk=1\n[a]\n";
    for (int i = 0; i < 40; ++i)
        text += "key" + std::to_string(i) + " = v\nkey" + std::to_string(i) + " =\n";
    text += "# " + std::string(9000, 'c') + "\n[b\n";
    std::string const file = directory_.write("f", text);
    ZArrayList_6_0 list(1, 1);
    unsigned const expected = Problems(file).size();
    unsigned long const failed =
        failEachAllocationOfSome([&] { Store::findProblems(file.c_str(), list); },
                                 [&] {
                                     EXPECT_EQ(expected, list.size());
                                     list.removeAll();
                                 },
                                 [&] { EXPECT_EQ(0u, list.size()); }, false);
    EXPECT_GE(failed, 50u);
}

TEST_F(StanzaProblems, FileThatIsReplacedMeanwhileIsReadAsOneOfItsStates)
{
    std::string const file = directory_.write("f", "x\n");
    std::string const next = directory_.at("next");
    std::atomic<bool> isDone = false;
    std::atomic<int> replaced = 0;
    std::thread writer([&] {
        for (int i = 0; !isDone; ++i) {
            directory_.write("next", i % 2 == 0 ? "[a]\nk = v\n" : "x\ny\nz\n");
            ASSERT_EQ(0, rename(next.c_str(), file.c_str()));
            ++replaced;
        }
    });
    for (int i = 0; i < 200 || replaced < 200; ++i) {
        unsigned const found = Problems(file).size();
        EXPECT_TRUE(found == 0 || found == 1 || found == 3) << found;
    }
    isDone = true;
    writer.join();
}

TEST_F(StanzaProblems, FileLockedByAStoreOfAnotherProcessIsBusy)
{
    std::string const file = directory_.write("f", "x\n");
    int ready[2], done[2];
    ASSERT_EQ(0, pipe(ready));
    ASSERT_EQ(0, pipe(done));
    pid_t const child = fork();
    if (child == 0) {
        int const fd = open(file.c_str(), O_RDWR);
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        char byte = fcntl(fd, F_SETLK, &lock) == 0 ? 'y' : 'n';
        if (write(ready[1], &byte, 1) != 1 || close(done[1]) != 0)
            _exit(1);
        _exit(read(done[0], &byte, 1) == 0 ? 0 : 1);
    }
    close(done[0]);
    char byte = 0;
    ASSERT_EQ(1, read(ready[0], &byte, 1));
    EXPECT_EQ('y', byte);
    ZArrayList_6_0 list(1, 1);
    try {
        Store::findProblems(file.c_str(), list);
        ADD_FAILURE() << "accepted";
    } catch (ZPropertiesIOException_6_0 const& e) {
        EXPECT_STREQ("fcntl()", e.api().getChars());
        EXPECT_TRUE(e.excerrno() == EAGAIN || e.excerrno() == EACCES);
    }
    close(done[1]);
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    close(ready[0]);
    close(ready[1]);
}
