// The string functions: examples, then a comparison with a model that first splits strings into
// units.
#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "CharacterSets.h"
#include "GuardedBytes.h"
#include "LinearTime.h"
#include "TextServices.h"

namespace {

// Results as offsets in the rows; -1 is null.
ptrdiff_t offset(char const* found, char const* text)
{
    return found == nullptr ? -1 : found - text;
}

TEST(qvrStrings, StringsAreFoundAtWholeCharacters)
{
    struct Case {
        char const* name;
        char const* codeset;
        std::string text;
        std::string needle;
        ptrdiff_t expected;
    };
    Case const cases[] = {
        {"plain", "UTF-8", "abcabc", "ca", 2},
        {"at the end", "UTF-8", "abc", "c", 2},
        {"whole text", "UTF-8", "abc", "abc", 0},
        {"longer than the text", "UTF-8", "abc", "abcd", -1},
        {"empty needle", "UTF-8", "abc", "", 0},
        {"empty text", "UTF-8", "", "a", -1},
        {"both empty", "UTF-8", "", "", 0},
        {"many bytes", "UTF-8", "x\u00e9\u20ac", "\u20ac", 3},
        {"half a character", "UTF-8", "x\u00e9", "\xA9", -1},
        {"start of a character", "UTF-8", "x\u00e9", "\xC3", -1},
        {"end in the middle", "UTF-8", "x\u00e9", "x\xC3", -1},
        {"invalid byte itself", "UTF-8", "x\xA9y", "\xA9", 1},
        {"overlapping start", "UTF-8", "aab", "ab", 1},
        {"single byte", "ISO-8859-1", "x\xE9y", "\xE9y", 1},
        {"second byte", "Shift_JIS", "\x95\x5C\\", "\\", 2},
        {"second byte only", "Shift_JIS", "\x95\x5C", "\\", -1},
        {"across two characters", "EUC-JP", "\xC9\xBD\xC9\xBD", "\xBD\xC9", -1},
        {"three bytes", "EUC-JP", "\xB0\xA1\x8F\xB0\xA1", "\x8F\xB0\xA1", 2},
        {"inside three bytes", "EUC-JP", "\x8F\xB0\xA1", "\xB0\xA1", -1},
        {"inside four bytes", "GB18030",
         "\x81\x30\x81\x30"
         "0",
         "0", 4},
        {"convert-only bytes", "ISO-2022-JP", "abc", "bc", 1},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Codeset const cs(c.codeset);
        GuardedBytes const text(c.text + '\0');
        GuardedBytes const needle(c.needle + '\0');
        EXPECT_EQ(c.expected, offset(qvr_strstr(cs, text, needle), text));
    }
}

TEST(qvrStrings, SingleBytesAreFound)
{
    struct Case {
        char const* name;
        char const* codeset;
        std::string text;
        int c;
        ptrdiff_t first;
        ptrdiff_t last;
    };
    Case const cases[] = {
        {"plain", "UTF-8", "abcabc", 'b', 1, 4},
        {"missing", "UTF-8", "abc", 'x', -1, -1},
        {"terminator", "UTF-8", "abc", 0, 3, 3},
        {"terminator of an empty text", "EUC-JP", "", 0, 0, 0},
        {"part of a character", "UTF-8", "\u00e9\u00e9", 0xA9, -1, -1},
        {"as a char", "UTF-8", "\u00e9\xA9\u00e9", '\xA9', 2, 2},
        {"single byte", "ISO-8859-1", "x\xE9y\xE9", 0xE9, 1, 3},
        {"single byte as a char", "ISO-8859-1", "x\xE9y\xE9", '\xE9', 1, 3},
        {"second byte", "Shift_JIS", "\x95\x5C\\\x95\x5C", '\\', 2, 2},
        {"half-width letter", "Shift_JIS", "\xB1\x95\x5C\xB1", 0xB1, 0, 3},
        {"digit in four bytes", "GB18030",
         "\x81\x30\x81\x30"
         "0\x81\x30\x81\x30",
         '0', 4, 4},
        {"invalid byte", "EUC-JP", "\xC9\xBD\xFFz", 0xFF, 2, 2},
        {"more than a byte", "UTF-8", "abc", 'b' + 256, 1, 1},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Codeset const cs(c.codeset);
        GuardedBytes const text(c.text + '\0');
        EXPECT_EQ(c.first, offset(qvr_strchr(cs, text, c.c), text));
        EXPECT_EQ(c.last, offset(qvr_strrchr(cs, text, c.c), text));
    }
}

TEST(qvrStrings, SetsContainWholeCharacters)
{
    struct Case {
        char const* name;
        char const* codeset;
        std::string text;
        std::string set;
        size_t in;   // length of the start that consists of the set
        size_t out;  // length of the prefix without any of them
    };
    Case const cases[] = {
        {"plain", "UTF-8", "aabc", "ab", 3, 0},
        {"not at the start", "UTF-8", "xxa", "ab", 0, 2},
        {"all of it", "UTF-8", "abab", "ab", 4, 0},
        {"none of it", "UTF-8", "xyz", "ab", 0, 3},
        {"empty set", "UTF-8", "xyz", "", 0, 3},
        {"empty text", "UTF-8", "", "ab", 0, 0},
        {"many bytes", "UTF-8", "\u00e9\u20acx", "\u20ac\u00e9", 5, 0},
        {"a shared byte", "UTF-8", "\u00e8x", "\u00e9", 0, 3},
        {"invalid bytes are themselves", "UTF-8", "\xA9\u00e9", "\xA9", 1, 0},
        {"second bytes are ignored", "Shift_JIS", "\x95\x5C\\", "\\", 0, 2},
        {"three bytes", "EUC-JP", "\x8F\xB0\xA1\xB0\xA1", "\xB0\xA1", 0, 3},
        {"single byte", "ISO-8859-1", "\xE9\xE8x", "\xE8\xE9", 2, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Codeset const cs(c.codeset);
        GuardedBytes const text(c.text + '\0');
        GuardedBytes const set(c.set + '\0');
        EXPECT_EQ(c.in, qvr_strspn(cs, text, set));
        EXPECT_EQ(c.out, qvr_strcspn(cs, text, set));
        EXPECT_EQ(c.out == c.text.size() ? -1 : static_cast<ptrdiff_t>(c.out),
                  offset(qvr_strpbrk(cs, text, set), text));
    }
}

std::vector<std::string> tokens(qvr_cs_t cs, std::string text, char const* delimiters)
{
    std::vector<std::string> found;
    for (char* token = qvr_strtok(cs, text.data(), delimiters); token != nullptr;
         token = qvr_strtok(cs, nullptr, delimiters))
        found.push_back(token);
    return found;
}

TEST(qvrStrings, TokensAreBetweenWholeDelimiters)
{
    using List = std::vector<std::string>;
    struct Case {
        char const* name;
        char const* codeset;
        char const* text;
        char const* delimiters;
        List expected;
    };
    Case const cases[] = {
        {"blanks", "UTF-8", "  a bc  d ", " ", {"a", "bc", "d"}},
        {"several", "UTF-8", "a=b:c", "=:", {"a", "b", "c"}},
        {"not found", "UTF-8", "abc", ",", {"abc"}},
        {"no delimiters", "UTF-8", "a b", "", {"a b"}},
        {"only delimiters", "UTF-8", ",,,", ",", {}},
        {"empty", "UTF-8", "", ",", {}},
        {"long delimiter", "UTF-8", "a\u3000b\u3000\u3000c", "\u3000", {"a", "b", "c"}},
        {"second byte", "Shift_JIS", "\x95\x5C\\b", "\\", {"\x95\x5C", "b"}},
        {"long delimiter in EUC", "EUC-JP", "a\xA1\xA1\x62", "\xA1\xA1", {"a", "b"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Codeset const cs(c.codeset);
        EXPECT_EQ(c.expected, tokens(cs, c.text, c.delimiters));
        EXPECT_EQ(nullptr, qvr_strtok(cs, nullptr, c.delimiters)) << "nothing is left";
    }
}

TEST(qvrStrings, DelimitersMayChangeFromTokenToToken)
{
    Codeset const cs("UTF-8");
    char text[] = "key=a,b";
    EXPECT_STREQ("key", qvr_strtok(cs, text, "="));
    EXPECT_STREQ("a", qvr_strtok(cs, nullptr, ","));
    EXPECT_STREQ("b", qvr_strtok(cs, nullptr, ","));
    EXPECT_EQ(nullptr, qvr_strtok(cs, nullptr, ","));
}

TEST(qvrStrings, CopiesEndAtWholeCharacters)
{
    struct Case {
        char const* name;
        char const* codeset;
        std::string source;
        size_t n;
        std::string copied;
    };
    Case const cases[] = {
        {"all of it", "UTF-8", "abc", 5, "abc"},
        {"exactly", "UTF-8", "abc", 3, "abc"},
        {"a part", "UTF-8", "abc", 2, "ab"},
        {"nothing", "UTF-8", "abc", 0, ""},
        {"empty", "UTF-8", "", 3, ""},
        {"whole character fits", "UTF-8", "a\u20ac", 4, "a\u20ac"},
        {"last byte does not fit", "UTF-8", "a\u20ac", 3, "a"},
        {"first byte alone fits", "UTF-8", "a\u20ac", 2, "a"},
        {"four bytes", "UTF-8", "\U0001F600", 3, ""},
        {"invalid byte", "UTF-8", "a\xFFz", 2, "a\xFF"},
        {"character cut by the terminator", "UTF-8", "a\xE2\x82", 9, "a\xE2\x82"},
        {"two bytes", "EUC-JP", "\xC9\xBD\xC9\xBD", 3, "\xC9\xBD"},
        {"three bytes", "EUC-JP", "\x8F\xB0\xA1", 2, ""},
        {"four bytes of GB18030", "GB18030", "\x81\x30\x81\x30", 3, ""},
        {"half of GB18030", "GB18030", "\x81\x30\x81\x30", 2, ""},
        {"second byte", "Shift_JIS", "\x95\x5C\\", 1, ""},
        {"single byte", "ISO-8859-1", "\xE9\xE8", 1, "\xE9"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Codeset const cs(c.codeset);
        // The source has no byte that must not be read.
        GuardedBytes const source(c.source.size() >= c.n ? c.source.substr(0, c.n)
                                                         : c.source + '\0');
        GuardedBytes const copy(std::string(c.n, 'x'));
        EXPECT_EQ(copy, qvr_strncpy(cs, copy, source, c.n));
        EXPECT_EQ(hex(c.copied + std::string(c.n - c.copied.size(), '\0')),
                  hex(std::string(copy, c.n)));

        GuardedBytes const joined(std::string("<>\0", 3) + std::string(c.n, 'x'));
        EXPECT_EQ(joined, qvr_strncat(cs, joined, source, c.n));
        EXPECT_EQ(hex("<>" + c.copied), hex(static_cast<char*>(joined)));
    }
}

// The model: a string as a list of units, built with the function that measures a character.
class Model {
public:
    using Units = std::vector<std::string>;

    Model(qvr_cs_t cs, std::string const& text) : cs_(cs)
    {
        for (size_t at = 0; at < text.size();) {
            int const length = qvr_mblen(cs, text.c_str() + at, text.size() - at);
            size_t const step = length > 0 ? static_cast<size_t>(length) : 1;
            units_.push_back(text.substr(at, step));
            starts_.push_back(static_cast<ptrdiff_t>(at));
            at += step;
        }
    }

    ptrdiff_t find(std::string const& needle) const
    {
        Units const wanted = Model(cs_, needle).units_;
        if (wanted.empty())
            return 0;
        auto const at = std::search(units_.begin(), units_.end(), wanted.begin(), wanted.end());
        return at == units_.end() ? -1 : starts_[static_cast<size_t>(at - units_.begin())];
    }

    size_t span(std::string const& set, bool wanted) const
    {
        Units const members = Model(cs_, set).units_;
        size_t length = 0;
        for (std::string const& unit : units_) {
            if ((std::count(members.begin(), members.end(), unit) > 0) != wanted)
                break;
            length += unit.size();
        }
        return length;
    }

    ptrdiff_t find(char c, bool last) const
    {
        ptrdiff_t found = -1;
        for (size_t i = 0; i < units_.size(); ++i)
            if (units_[i] == std::string(1, c) && (last || found < 0))
                found = starts_[i];
        return found;
    }

    Units tokens(std::string const& set) const
    {
        Units const members = Model(cs_, set).units_;
        Units found;
        bool open = false;
        for (std::string const& unit : units_) {
            bool const ends = std::count(members.begin(), members.end(), unit) > 0;
            if (!ends && !open)
                found.push_back("");
            if (!ends)
                found.back() += unit;
            open = !ends;
        }
        return found;
    }

    // The units in `n` bytes, without bytes at their end that could start a longer character.
    std::string head(size_t n) const
    {
        std::string text;
        for (std::string const& unit : units_)
            text += unit;
        bool const sawEnd = n > text.size();
        text.resize(std::min(n, text.size()));
        size_t at = 0;
        for (std::string const& unit : units_) {
            if (unit.size() > text.size() - at || (!sawEnd && isBeginning(text.substr(at))))
                break;
            at += unit.size();
        }
        return text.substr(0, at);
    }

private:
    // Whether up to three more bytes complete a character.
    bool isBeginning(std::string const& bytes, int more = 3) const
    {
        if (bytes.empty() || qvr_mblen(cs_, bytes.data(), bytes.size()) > 0)
            return false;
        for (char const byte : {'\x30', '\x36', '\x40', '\x81', '\x90', '\xA1', '\xBF'}) {
            std::string const longer = bytes + byte;
            if (qvr_mblen(cs_, longer.data(), longer.size()) == static_cast<int>(longer.size()) ||
                (more > 1 && isBeginning(longer, more - 1)))
                return true;
        }
        return false;
    }

    qvr_cs_t const cs_;
    Units units_;
    std::vector<ptrdiff_t> starts_;
};

TEST(qvrStrings, AgreeWithAModelOverRandomStrings)
{
    struct Case {
        char const* codeset;
        std::vector<std::string> pieces;
    };
    Case const cases[] = {
        {"UTF-8", {"a", "b", "\u00e9", "\u00e8", "\u20ac", "\U0001F600", "\xA9", "\xC3", "\xF0"}},
        {"ISO-8859-1", {"a", "b", "\xE9", "\xE8", "\x80"}},
        {"US-ASCII", {"a", "b", "\x80", "\xFF"}},
        {"IBM-1047", {"\x81", "\x82", "\x15", "\xFF"}},
        {"Shift_JIS", {"a", "\\", "\x95\x5C", "\x95", "\x5C", "\x83\x61", "\xB1", "\xFF"}},
        {"EUC-JP", {"a", "\xC9\xBD", "\xBD\xC9", "\x8F\xB0\xA1", "\xB0\xA1", "\x8F", "\x8E\xB1"}},
        {"GB18030",
         {"a", "0", "\xD2\xBB", "\x81\x30\x81\x30", "\x81", "\x30", "\x94\x39\xDA\x36", "\xFF"}},
        {"Big5", {"a", "\xA4\x40", "\xA4", "\x40", "\xF9\xF9"}},
        {"ISO-2022-JP", {"a", "b", "\x1B"}},
    };
    unsigned const seed = 20250;
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    for (Case const& c : cases) {
        SCOPED_TRACE(c.codeset);
        Codeset const cs(c.codeset);
        auto const make = [&](unsigned most) {
            std::string text;
            for (unsigned n = random() % (most + 1); n > 0; --n)
                text += c.pieces[random() % c.pieces.size()];
            return text;
        };
        for (int run = 0; run < 4000; ++run) {
            std::string const text = make(10);
            std::string const other = make(3);
            SCOPED_TRACE(hex(text) + " and " + hex(other));
            Model const model(cs, text);
            char const* const s = text.c_str();
            ASSERT_EQ(model.find(other), offset(qvr_strstr(cs, s, other.c_str()), s));
            ASSERT_EQ(model.span(other, true), qvr_strspn(cs, s, other.c_str()));
            size_t const outside = model.span(other, false);
            ASSERT_EQ(outside, qvr_strcspn(cs, s, other.c_str()));
            ASSERT_EQ(outside == text.size() ? -1 : static_cast<ptrdiff_t>(outside),
                      offset(qvr_strpbrk(cs, s, other.c_str()), s));
            if (!other.empty()) {
                ASSERT_EQ(model.find(other[0], false), offset(qvr_strchr(cs, s, other[0]), s));
                ASSERT_EQ(model.find(other[0], true), offset(qvr_strrchr(cs, s, other[0]), s));
            }
            ASSERT_EQ(model.tokens(other), tokens(cs, text, other.c_str()));
            size_t const n = random() % (text.size() + 2);
            std::string copy(n, 'x');
            qvr_strncpy(cs, copy.data(), s, n);
            ASSERT_EQ(hex(model.head(n)), hex(copy.c_str()));
            ASSERT_EQ(0, qvr_stricmp(cs, nullptr, s, s));
            ASSERT_EQ(qvr_stricmp(cs, nullptr, s, other.c_str()),
                      -qvr_stricmp(cs, nullptr, other.c_str(), s));
        }
    }
}

// Sets of up to a few hundred elements: each size of the table.
TEST(qvrStrings, LargeSetsAgreeWithAModel)
{
    struct Case {
        char const* codeset;
        std::string (*character)(unsigned);
    };
    Case const cases[] = {
        {"UTF-8",
         [](unsigned n) {
             // Characters of one, three and four bytes, and invalid bytes.
             char const last = static_cast<char>(0x80 | (n & 0x3F));
             char const middle = static_cast<char>(0x80 | (n >> 6 & 0x3F));
             switch (n % 7) {
                 case 0:
                     return std::string(1, static_cast<char>('a' + n % 26));
                 case 1:
                     return std::string(1, last);
                 case 2:
                 case 3:
                     return std::string("\xF0\x9F") + middle + last;
                 default:
                     return std::string("\xE4") + middle + last;
             }
         }},
        {"EUC-JP",
         [](unsigned n) {
             std::string const two{static_cast<char>(0xB0 + n / 94 % 16),
                                   static_cast<char>(0xA1 + n % 94)};
             return n % 5 == 0 ? "\x8F" + two : n % 5 == 1 ? two.substr(1) : two;
         }},
        {"GB18030",
         [](unsigned n) {
             return std::string{'\x81', static_cast<char>('0' + n / 100 % 10),
                                static_cast<char>(0x81 + n / 10 % 10),
                                static_cast<char>('0' + n % 10)};
         }},
    };
    unsigned const seed = 20251;
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    for (Case const& c : cases) {
        SCOPED_TRACE(c.codeset);
        Codeset const cs(c.codeset);
        for (unsigned members : {1u, 5u, 31u, 32u, 33u, 64u, 65u, 200u, 600u}) {
            for (int run = 0; run < 20; ++run) {
                std::string set, text;
                for (unsigned n = 0; n < members; ++n)
                    set += c.character(random() % 1000);
                for (unsigned n = 0; n < 40; ++n)
                    text += c.character(random() % 1000);
                Model const model(cs, text);
                ASSERT_EQ(model.span(set, true), qvr_strspn(cs, text.c_str(), set.c_str()));
                ASSERT_EQ(model.span(set, false), qvr_strcspn(cs, text.c_str(), set.c_str()));
                ASSERT_EQ(model.tokens(set), tokens(cs, text, set.c_str()));
                // The string without its last characters as the set, so that the scan is long.
                set += text.substr(0, text.size() - 8);
                ASSERT_EQ(model.span(set, true), qvr_strspn(cs, text.c_str(), set.c_str()));
            }
        }
    }
}

TEST(qvrStrings, ALargeSetIsSearchedInLinearTime)
{
    // A set, and strings of its last character and of a character that is not in it.
    Codeset const cs("UTF-8");
    auto const prepare = [&cs](size_t size) {
        std::string const set = ideographs(size);
        std::string inSet, outside;
        for (size_t i = 0; i < size; ++i) {
            inSet += set.substr(set.size() - 3);
            outside += "\u20ac";
        }
        return [&cs, set, inSet, outside] {
            EXPECT_EQ(inSet.size(), qvr_strspn(cs, inSet.c_str(), set.c_str()));
            EXPECT_EQ(outside.size(), qvr_strcspn(cs, outside.c_str(), set.c_str()));
            EXPECT_EQ(nullptr, qvr_strpbrk(cs, outside.c_str(), set.c_str()));
            EXPECT_EQ(1u, tokens(cs, outside, set.c_str()).size());
        };
    };
    EXPECT_TRUE(takesLinearTime(1500, prepare));
}

// Periodic strings and needles: partial matches at many positions, or matches that are not at
// characters.
TEST(qvrStrings, LongNeedlesAgreeWithAModel)
{
    struct Case {
        char const* codeset;
        std::vector<std::string> pieces;  // bytes whose runs shift and split each other
    };
    Case const cases[] = {
        {"EUC-JP", {"\xA4\xA4", "\xA4", "\x8F\xA4\xA4", "\x8F", "\xA4\xA2", "a"}},
        {"Shift_JIS", {"\x95\x5C", "\x95\x95", "\x95", "\\", "\xB1", "a"}},
        {"GB18030", {"\x81\x30\x81\x30", "\x81\x30", "0", "\x81", "\x81\x81", "a"}},
        {"UTF-8", {"\xE3\x81\x82", "\xE3\x81", "\x81", "\xE3", "\xF0\x9F\x98\x80", "a"}},
    };
    unsigned const seed = 7041;
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    for (Case const& c : cases) {
        SCOPED_TRACE(c.codeset);
        Codeset const cs(c.codeset);
        auto const some = [&](size_t runs) {
            std::string text;
            for (; runs > 0; --runs) {
                std::string const& piece = c.pieces[random() % c.pieces.size()];
                for (size_t n = 1 + random() % 40; n > 0; --n)
                    text += piece;
            }
            return text;
        };
        int found = 0;
        int passed = 0;  // byte matches that are not at characters
        for (int round = 0; round < 4000; ++round) {
            std::string text = some(1 + random() % 6);
            std::string needle = some(1 + random() % 2);
            if (random() % 2 == 0) {  // a substring of the string
                size_t const at = random() % text.size();
                needle = text.substr(at, 1 + random() % (text.size() - at));
            }
            if (random() % 2 == 0)
                text += needle;
            ptrdiff_t const expected = Model(cs, text).find(needle);
            GuardedBytes const held(text + '\0');
            GuardedBytes const heldNeedle(needle + '\0');
            ASSERT_EQ(expected, offset(qvr_strstr(cs, held, heldNeedle), held))
                << hex(text) << " for " << hex(needle);
            found += expected >= 0;
            passed += static_cast<ptrdiff_t>(text.find(needle)) != expected;
        }
        EXPECT_GT(found, 500);
        EXPECT_GT(passed, 20);
    }
}

TEST(qvrStrings, ALongNeedleIsSearchedInLinearTime)
{
    // The needle's bytes occur at every second byte of the string, but never at a character; then
    // all of the needle except its last character occurs at each.
    struct Case {
        char const* name;
        char const* codeset;
        std::string before;
        std::string character;
        std::string end;
    };
    Case const cases[] = {
        {"between characters", "EUC-JP", "\xB0", "\xA4\xA2", ""},
        {"except its end", "EUC-JP", "", "\xA4\xA2", "\xA4\xA4"},
        {"except its end", "UTF-8", "", "\xC3\xA9", "\xC3\xA8"},
        {"except its end", "ISO-8859-1", "", "ab", "aa"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.name) + ", " + c.codeset);
        Codeset const cs(c.codeset);
        auto const prepare = [&c, &cs](size_t size) {
            std::string text = c.before;
            std::string needle;
            for (size_t i = 0; i < size; ++i) {
                text += c.character;
                if (i < size / 2)
                    needle += c.character;
            }
            needle += c.end;
            return [&cs, text, needle] {
                EXPECT_EQ(nullptr, qvr_strstr(cs, text.c_str(), needle.c_str()));
            };
        };
        EXPECT_TRUE(takesLinearTime(4000, prepare));
    }
}

TEST(qvrStrings, ASetOfCollidingCharactersIsSearchedAsFastAsAnother)
{
    Codeset const cs("UTF-8");
    auto const prepare = [&cs](SearchedSet const& searched) {
        return [&cs, searched] {
            EXPECT_EQ(searched.outside.size(),
                      qvr_strcspn(cs, searched.outside.c_str(), searched.set.c_str()));
        };
    };
    EXPECT_TRUE(takesAtMost(10, prepare(scatteredCharacters()), prepare(collidingCharacters())));
}

}  // namespace
