// Characters, strings and conversion in the local codeset.
#include <Z/zqvrutil.h>
#include <gtest/gtest.h>
#include <qvr.h>
#include <wchar.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "GuardedBytes.h"
#include "LocalText.h"

namespace {

// A codeset handle of the test.
class Codeset {
public:
    explicit Codeset(char const* name) : handle_(qvr_cs_new(name)) { EXPECT_NE(nullptr, handle_); }
    Codeset(Codeset const&) = delete;
    Codeset& operator=(Codeset const&) = delete;
    ~Codeset() { qvr_cs_free(handle_); }
    operator qvr_cs_t() const { return handle_; }

private:
    qvr_cs_t handle_;
};

// The conversion of UTF-16 into `room` bytes: result, consumed units, bytes.
struct Converted {
    int result;
    ptrdiff_t used;
    std::string bytes;

    bool operator==(Converted const&) const = default;
};

void PrintTo(Converted const& c, std::ostream* out)
{
    *out << c.result << " after " << c.used << " units: " << testing::PrintToString(c.bytes);
}

Converted fromUTF16(std::vector<uint16_t> const& units, size_t room)
{
    GuardedBytes const out(std::string(room, '~'));
    uint16_t const* src = units.data();
    char* dst = out;
    int const result =
        zconvert_UTF16_to_UTF8_6_0(&src, units.data() + units.size(), &dst, out + room);
    std::string const rest(dst, static_cast<size_t>(out + room - dst));
    EXPECT_EQ(std::string(rest.size(), '~'), rest);
    return {result, src - units.data(),
            std::string(static_cast<char*>(out), static_cast<size_t>(dst - out))};
}

}  // namespace

// Characters.

TEST(zqvrutil, MeasuresCharacters)
{
    Codeset const utf8("UTF-8"), japanese("EUC-JP"), latin("ISO-8859-1");
    struct Case {
        char const* name;
        qvr_cs_t codeset;
        char const* text;
        size_t n;
        int length;
    };
    Case const cases[] = {
        {"ASCII", utf8, "ab", 2, 1},
        {"two bytes", utf8, "\xC3\xA9x", 4, 2},
        {"three bytes", utf8, "\xE3\x81\x82x", 4, 3},
        {"four bytes", utf8, "\xF0\x9F\x98\x80x", 4, 4},
        {"terminator", utf8, "", 1, 0},
        {"invalid byte", utf8, "\xFF", 1, -1},
        {"overlong", utf8, "\xC0\x80", 2, -1},
        {"surrogate", utf8, "\xED\xA0\x80", 3, -1},
        {"cut", utf8, "\xE3\x81\x82", 2, -1},
        {"no space", utf8, "a", 0, -1},
        {"two bytes", japanese, "\xA4\xA2", 4, 2},
        {"cut", japanese, "\xA4", 1, -1},
        {"high byte", latin, "\xE9", 1, 1},
        {"terminator", latin, "", 1, 0},
        {"UTF-8 handle of the process", zgetUTF8Handle_6_0(), "\xC3\xA9", 2, 2},
        {"terminator", zgetUTF8Handle_6_0(), "", 1, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.length, zmblen_6_0(c.codeset, c.text, c.n));
    }
    EXPECT_EQ(-1, zmblen_6_0(nullptr, "a", 1));
    EXPECT_EQ(-1, zmblen_6_0(utf8, nullptr, 1));
    if (!isSingleByteLocale()) {
        EXPECT_EQ(0, zmblen_6_0(zgetLCSHandle_6_0(), "", 1));
        EXPECT_EQ(-1, zmblen_6_0(zgetLCSHandle_6_0(), "\xFF", 1));
    }
}

TEST(zqvrutil, DecodesCharacters)
{
    Codeset const utf8("UTF-8"), japanese("EUC-JP");
    uint16_t wc[2] = {0xAAAA, 0xBBBB};
    EXPECT_EQ(1, zmbtowc_6_0(utf8, wc, "a", 1));
    EXPECT_EQ('a', wc[0]);
    EXPECT_EQ(3, zmbtowc_6_0(utf8, wc, "\xE3\x81\x82", 3));
    EXPECT_EQ(0x3042, wc[0]);
    EXPECT_EQ(2, zmbtowc_6_0(japanese, wc, "\xA4\xA2", 2));
    EXPECT_EQ(0x3042, wc[0]);
    EXPECT_EQ(0, zmbtowc_6_0(utf8, wc, "", 1));
    EXPECT_EQ(0, wc[0]);
    wc[0] = 0xAAAA;
    EXPECT_EQ(-1, zmbtowc_6_0(utf8, wc, "\xFF", 1));
    EXPECT_EQ(0, wc[0]);
    EXPECT_EQ(0xBBBB, wc[1]);
    EXPECT_EQ(1, zmbtowc_6_0(utf8, nullptr, "a", 1));
}

TEST(zqvrutil, MeasuresSpacesAndLetters)
{
    Codeset const utf8("UTF-8"), japanese("EUC-JP");
    struct Case {
        char const* name;
        qvr_cs_t codeset;
        char const* text;
        size_t n;
        int space;
        int letter;
    };
    Case const cases[] = {
        {"blank", utf8, " ", 1, 1, 0},
        {"tab", utf8, "\tx", 2, 1, 0},
        {"letter", utf8, "a", 1, 0, 1},
        {"digit", utf8, "7", 1, 0, 0},
        {"letter of two bytes", utf8, "\xC3\xA9", 2, 0, 2},
        {"ideographic space", utf8, "\xE3\x80\x80", 3, 3, 0},
        {"letter above U+FFFF", utf8, "\xF0\x9D\x90\x80", 4, 0, 4},
        {"hiragana", japanese, "\xA4\xA2", 2, 0, 2},
        {"ideographic space", japanese, "\xA1\xA1", 2, 2, 0},
        {"terminator", utf8, "", 1, 0, 0},
        {"invalid", utf8, "\xFF", 1, 0, 0},
        {"cut", utf8, "\xC3\xA9", 1, 0, 0},
        {"no space", utf8, "a", 0, 0, 0},
        {"null", utf8, nullptr, 1, 0, 0},
        {"no codeset", nullptr, "a", 1, 0, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.space, zisspace_6_0(c.codeset, c.text, c.n));
        EXPECT_EQ(c.letter, zisalpha_6_0(c.codeset, c.text, c.n));
    }
}

TEST(zqvrutil, ClassifiesWideCharacters)
{
    struct Case {
        uint32_t wc;
        int upper, lower, space, digit, alpha, alnum;
    };
    Case const cases[] = {
        {'A', 1, 0, 0, 0, 1, 1},     {'a', 0, 1, 0, 0, 1, 1},  {' ', 0, 0, 1, 0, 0, 0},
        {'0', 0, 0, 0, 1, 0, 1},     {'9', 0, 0, 0, 1, 0, 1},  {'_', 0, 0, 0, 0, 0, 0},
        {0xC9, 1, 0, 0, 0, 1, 1},    {0xE9, 0, 1, 0, 0, 1, 1}, {0x3042, 0, 0, 0, 0, 1, 1},
        {0x3000, 0, 0, 1, 0, 0, 0},  {0xA0, 0, 0, 0, 0, 0, 0}, {0x0663, 0, 0, 0, 0, 0, 1},
        {0x1D400, 1, 0, 0, 0, 1, 1}, {0, 0, 0, 0, 0, 0, 0},    {0xD800, 0, 0, 0, 0, 0, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.wc);
        EXPECT_EQ(c.upper, ziswupper_6_0(c.wc));
        EXPECT_EQ(c.lower, ziswlower_6_0(c.wc));
        EXPECT_EQ(c.space, ziswspace_6_0(c.wc));
        EXPECT_EQ(c.digit, ziswdigit_6_0(c.wc));
        EXPECT_EQ(c.alpha, ziswalpha_6_0(c.wc));
        EXPECT_EQ(c.alnum, ziswalnum_6_0(c.wc));
    }
}

// Strings.

TEST(zqvrutil, SearchesWholeCharacters)
{
    // In Shift_JIS the second byte of this character is a backslash.
    Codeset const japanese("Shift_JIS");
    char const text[] = "\x95\x5C\\b";
    EXPECT_EQ(text + 2, zstrchr_6_0(japanese, text, '\\'));
    EXPECT_EQ(text + 2, zstrrchr_6_0(japanese, text, '\\'));
    EXPECT_EQ(nullptr, zstrchr_6_0(japanese, text, 'c'));
    EXPECT_EQ(text + 2, zstrstr_6_0(japanese, text, "\\b"));
    EXPECT_EQ(text + 2, zstrpbrk_6_0(japanese, text, "b\\"));
    EXPECT_EQ(2u, zstrspn_6_0(japanese, text, "\x95\x5C"));
    EXPECT_EQ(2u, zstrcspn_6_0(japanese, text, "\\"));
    Codeset const latin("ISO-8859-1");
    EXPECT_EQ(text + 1, zstrchr_6_0(latin, text, '\\'));
}

TEST(zqvrutil, CutsTokensAndCopiesWholeCharacters)
{
    Codeset const japanese("Shift_JIS");
    char text[] = "\x95\x5C\\b,c";
    EXPECT_STREQ("\x95\x5C", zstrtok_6_0(japanese, text, "\\,"));
    EXPECT_STREQ("b", zstrtok_6_0(japanese, nullptr, "\\,"));
    EXPECT_STREQ("c", zstrtok_6_0(japanese, nullptr, "\\,"));
    EXPECT_EQ(nullptr, zstrtok_6_0(japanese, nullptr, "\\,"));

    char out[8] = "~~~~~~~";
    EXPECT_EQ(out, zstrncpy_6_0(japanese, out, "a\x95\x5C", 2));
    EXPECT_EQ(std::string("a\0~", 3), std::string(out, 3));
    EXPECT_EQ(out, zstrncat_6_0(japanese, out, "\x95\x5Cz", 2));
    EXPECT_STREQ("a\x95\x5C", out);
}

TEST(zqvrutil, ChangesCaseAndComparesWithoutIt)
{
    Codeset const utf8("UTF-8");
    char text[] =
        "Stra\xC3\x9F"
        "e \xC3\x89";
    EXPECT_EQ(text, zstrlower_6_0(utf8, text));
    EXPECT_STREQ(
        "stra\xC3\x9F"
        "e \xC3\xA9",
        text);
    EXPECT_EQ(text, zstrupper_6_0(utf8, text));
    EXPECT_STREQ(
        "STRA\xC3\x9F"
        "E \xC3\x89",
        text);
    EXPECT_EQ(0, zstricmp_6_0(utf8,
                              "\xC3\x89"
                              "a",
                              "\xC3\xA9"
                              "A"));
    EXPECT_GT(0, zstricmp_6_0(utf8, "a", "B"));
    EXPECT_LT(0, zstricmp_6_0(utf8, "C", "b"));
    EXPECT_EQ(0, zstrnicmp_6_0(utf8, "abX", "ABy", 2));
    EXPECT_NE(0, zstrnicmp_6_0(utf8, "abX", "ABy", 3));
    EXPECT_EQ(nullptr, zstrupper_6_0(utf8, nullptr));
}

TEST(zqvrutil, ReadsTimes)
{
    struct tm time = {};
    char const text[] = "2001-02-03 04:05:06 rest";
    EXPECT_EQ(text + 19, zstrptime_6_0(zgetLCSHandle_6_0(), text, "%Y-%m-%d %H:%M:%S", &time));
    EXPECT_EQ(101, time.tm_year);
    EXPECT_EQ(1, time.tm_mon);
    EXPECT_EQ(3, time.tm_mday);
    EXPECT_EQ(6, time.tm_sec);
    EXPECT_EQ(nullptr, zstrptime_6_0(zgetLCSHandle_6_0(), "x", "%Y", &time));
}

TEST(zqvrutil, CountsUpToTheFirstInvalidCharacter)
{
    Codeset const utf8("UTF-8"), japanese("EUC-JP");
    EXPECT_EQ(0u, zstrcount_6_0(utf8, nullptr));
    for (qvr_cs_t const codeset : {static_cast<qvr_cs_t>(utf8), zgetUTF8Handle_6_0()}) {
        EXPECT_EQ(0u, zstrcount_6_0(codeset, ""));
        EXPECT_EQ(3u, zstrcount_6_0(codeset, "abc"));
        EXPECT_EQ(5u, zstrcount_6_0(codeset, "\xC3\xA9\xE3\x81\x82\xFFz"));
        EXPECT_EQ(0u, zstrcount_6_0(codeset, "\xFFz"));
        EXPECT_EQ(1u, zstrcount_6_0(codeset, "a\xC3"));
    }
    EXPECT_EQ(4u, zstrcount_6_0(japanese, "\xA4\xA2\xA4\xA4\xA4"));
    EXPECT_EQ(0u, zstrcount_6_0(nullptr, "a"));
    char const anything[] = "a\xE9\xFF\x80";
    size_t const counted = zstrcount_6_0(zgetLCSHandle_6_0(), anything);
    EXPECT_EQ(isSingleByteLocale() ? 4u : 1u, counted);
}

TEST(zqvrutil, CountsWithoutReadingPastTheTerminator)
{
    Codeset const utf8("UTF-8"), japanese("EUC-JP");
    for (std::string const text :
         {"", "a", "ab\xC3\xA9", "ab\xE3\x81", "ab\xF0\x9F\x98", "ab\xC3"}) {
        GuardedBytes const bytes(text + '\0');
        size_t const valid = text.size() > 2 && text != "ab\xC3\xA9" ? 2 : text.size();
        EXPECT_EQ(valid, zstrcount_6_0(utf8, bytes));
        EXPECT_EQ(valid, zstrcount_6_0(zgetUTF8Handle_6_0(), bytes));
    }
    GuardedBytes const cut(std::string("a\xA4", 3));
    EXPECT_EQ(1u, zstrcount_6_0(japanese, cut));
}

// Conversion.

TEST(zqvrutil, ConvertsNothingWithoutAllArguments)
{
    for (auto const convert : {zlcs_to_utf8_6_0, zlcs_from_utf8_6_0}) {
        char out[4] = "~~~";
        EXPECT_EQ(0, convert(nullptr, 1, out, sizeof out));
        EXPECT_EQ(0, convert("a", 0, out, sizeof out));
        EXPECT_EQ(0, convert("a", 1, nullptr, sizeof out));
        EXPECT_EQ(0, convert("a", 1, out, 0));
        EXPECT_STREQ("~~~", out);
        EXPECT_EQ(2, convert("ab", 2, out, sizeof out));
        EXPECT_STREQ("ab~", out);
        EXPECT_GT(0, convert("abcde", 5, out, sizeof out));
    }
}

TEST(zqvrutil, ConvertsBetweenTheLocalCodesetAndUTF8)
{
    struct Case {
        char const* codeset;
        char const* local;
        char const* utf8;  // null: the other direction fails
    };
    Case const cases[] = {
        {"ANSI_X3.4-1968", "abc", "abc"},
        {"ANSI_X3.4-1968", "\xE9", nullptr},
        {"UTF-8", "\xC3\xA9\xE3\x81\x82", "\xC3\xA9\xE3\x81\x82"},
        {"UTF-8", "\xE9", nullptr},
        {"ISO-8859-1", "\xE9\xFF", "\xC3\xA9\xC3\xBF"},
        {"EUC-JP", "\xA4\xA2", "\xE3\x81\x82"},
        {"EUC-JP", "\xA4", nullptr},
    };
    for (Case const& c : cases) {
        if (strcmp(c.codeset, zgetLocalCodesetName_6_0()) != 0)
            continue;
        SCOPED_TRACE(c.local);
        char out[16];
        ptrdiff_t const length = zlcs_to_utf8_6_0(c.local, strlen(c.local), out, sizeof out);
        if (c.utf8 == nullptr) {
            EXPECT_GT(0, length);
            continue;
        }
        EXPECT_EQ(c.utf8, std::string(out, static_cast<size_t>(length)));
        ptrdiff_t const back = zlcs_from_utf8_6_0(c.utf8, strlen(c.utf8), out, sizeof out);
        EXPECT_EQ(c.local, std::string(out, static_cast<size_t>(back)));
    }
    char out[16];
    bool const hasThai = strcmp(zgetLocalCodesetName_6_0(), "UTF-8") == 0;
    EXPECT_EQ(hasThai ? 3 : -1, zlcs_from_utf8_6_0("\xE0\xB8\x81", 3, out, sizeof out));
    EXPECT_GT(0, zlcs_from_utf8_6_0("\xFF", 1, out, sizeof out));
}

TEST(zqvrutil, ConvertsUTF16ToUTF8)
{
    EXPECT_EQ((Converted{0, 0, ""}), fromUTF16({}, 8));
    EXPECT_EQ((Converted{0, 1, "\x7F"}), fromUTF16({0x7F}, 8));
    EXPECT_EQ((Converted{0, 1, "\xC2\x80"}), fromUTF16({0x80}, 8));
    EXPECT_EQ((Converted{0, 1, "\xDF\xBF"}), fromUTF16({0x7FF}, 8));
    EXPECT_EQ((Converted{0, 1, "\xE0\xA0\x80"}), fromUTF16({0x800}, 8));
    EXPECT_EQ((Converted{0, 1, "\xEF\xBF\xBF"}), fromUTF16({0xFFFF}, 8));
    EXPECT_EQ((Converted{0, 2, "\xF0\x90\x80\x80"}), fromUTF16({0xD800, 0xDC00}, 8));
    EXPECT_EQ((Converted{0, 2, "\xF4\x8F\xBF\xBF"}), fromUTF16({0xDBFF, 0xDFFF}, 8));
    EXPECT_EQ((Converted{0, 2, "\xF0\x9F\x98\x80"}), fromUTF16({0xD83D, 0xDE00}, 8));
    EXPECT_EQ((Converted{0, 2, std::string("\0a", 2)}), fromUTF16({0, 'a'}, 8));
}

TEST(zqvrutil, StopsAtTheCharacterThatDoesNotFit)
{
    std::vector<uint16_t> const units = {'a', 0xE9, 0x3042, 0xD83D, 0xDE00};
    std::string const whole = "a\xC3\xA9\xE3\x81\x82\xF0\x9F\x98\x80";
    struct Case {
        size_t room;
        ptrdiff_t used;
        size_t bytes;
    };
    Case const cases[] = {{0, 0, 0}, {1, 1, 1}, {2, 1, 1}, {3, 2, 3}, {4, 2, 3},
                          {5, 2, 3}, {6, 3, 6}, {7, 3, 6}, {8, 3, 6}, {9, 3, 6}};
    for (Case const& c : cases)
        EXPECT_EQ((Converted{2, c.used, whole.substr(0, c.bytes)}), fromUTF16(units, c.room))
            << c.room;
    EXPECT_EQ((Converted{0, 5, whole}), fromUTF16(units, 10));
}

TEST(zqvrutil, ConvertsEveryCharacterFromUTF16)
{
    Codeset const utf8("UTF-8");
    for (uint32_t value = 0; value <= 0x10FFFF; ++value) {
        if (value >= 0xD800 && value <= 0xDFFF)
            continue;
        uint16_t units[2] = {static_cast<uint16_t>(value), 0};
        if (value > 0xFFFF) {
            units[0] = static_cast<uint16_t>(0xD800 + ((value - 0x10000) >> 10));
            units[1] = static_cast<uint16_t>(0xDC00 + ((value - 0x10000) & 0x3FF));
        }
        char bytes[8] = {};
        uint16_t const* src = units;
        char* dst = bytes;
        ASSERT_EQ(0, zconvert_UTF16_to_UTF8_6_0(&src, units + (value > 0xFFFF ? 2 : 1), &dst,
                                                bytes + sizeof bytes));
        uint32_t decoded = 0;
        int const length = qvr_mbtowc(utf8, &decoded, bytes, sizeof bytes);
        ASSERT_EQ(value == 0 ? 0 : dst - bytes, length) << value;
        ASSERT_EQ(value, decoded);
    }
}

// Kept behaviours.

TEST(zqvrutil, KeepsLengthOneInSingleByteLocales)
{
    if (!isSingleByteLocale())
        GTEST_SKIP() << "characters of this locale have several bytes";
    qvr_cs_t const local = zgetLCSHandle_6_0();
    EXPECT_EQ(1, zmblen_6_0(local, "a", 1));
    EXPECT_EQ(1, zmblen_6_0(local, "\xE9", 1));
    EXPECT_EQ(1, zmblen_6_0(local, "", 1));
    EXPECT_EQ(1, zmblen_6_0(local, "a", 0));
    // A second handle of the same codeset is not the local one.
    Codeset const other(zgetLocalCodesetName_6_0());
    EXPECT_EQ(0, zmblen_6_0(other, "", 1));
    EXPECT_EQ(-1, zmblen_6_0(other, "a", 0));
}

TEST(zqvrutil, KeepsSixteenBitsOfACharacter)
{
    Codeset const utf8("UTF-8");
    uint16_t wc = 0;
    EXPECT_EQ(4, zmbtowc_6_0(utf8, &wc, "\xF0\x9F\x98\x80", 4));
    EXPECT_EQ(0xF600, wc);
}

TEST(zqvrutil, KeepsCountingBytes)
{
    Codeset const utf8("UTF-8");
    EXPECT_EQ(6u, zstrcount_6_0(utf8, "\xC3\xA9\xC3\xA9\xC3\xA9"));
    EXPECT_EQ(3u, zstrcount_6_0(zgetLCSHandle_6_0(), "abc"));
}

TEST(zqvrutil, KeepsUnpairedSurrogates)
{
    EXPECT_EQ((Converted{0, 1, "\xED\xA0\x80"}), fromUTF16({0xD800}, 8));
    EXPECT_EQ((Converted{0, 1, "\xED\xBF\xBF"}), fromUTF16({0xDFFF}, 8));
    EXPECT_EQ((Converted{0, 2,
                         "\xED\xA0\x80"
                         "a"}),
              fromUTF16({0xD800, 'a'}, 8));
    EXPECT_EQ((Converted{0, 3, "\xED\xA0\x80\xF0\x90\x80\x80"}),
              fromUTF16({0xD800, 0xD800, 0xDC00}, 8));
    EXPECT_EQ((Converted{0, 2, "\xED\xB0\x80\xED\xA0\x80"}), fromUTF16({0xDC00, 0xD800}, 8));
    EXPECT_EQ((Converted{0, 3,
                         "\xED\xA0\x80\xEE\x80\x80"
                         "a"}),
              fromUTF16({0xD800, 0xE000, 'a'}, 8));
}
