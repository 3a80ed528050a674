// Classes of characters, case, comparison without regard to case.
#include <ctype.h>
#include <locale.h>

#include <string>

#include "GuardedBytes.h"
#include "TextServices.h"

namespace {

TEST(qvr, AsciiIsClassifiedAsInC)
{
    locale_t const c = newlocale(LC_ALL_MASK, "C", nullptr);
    for (int i = 0; i < 128; ++i) {
        SCOPED_TRACE(i);
        uint32_t const wc = static_cast<uint32_t>(i);
        EXPECT_EQ(isupper_l(i, c) != 0, qvr_iswupper(wc));
        EXPECT_EQ(islower_l(i, c) != 0, qvr_iswlower(wc));
        EXPECT_EQ(isspace_l(i, c) != 0, qvr_iswspace(wc));
        EXPECT_EQ(isdigit_l(i, c) != 0, qvr_iswdigit(wc));
        EXPECT_EQ(isalpha_l(i, c) != 0, qvr_iswalpha(wc));
        EXPECT_EQ(isalnum_l(i, c) != 0, qvr_iswalnum(wc));
    }
    freelocale(c);
}

TEST(qvr, CodePointsAreClassifiedAsInUnicode)
{
    struct Case {
        char const* name;
        uint32_t value;
        char const* classes;  // u l s d a n
    };
    Case const cases[] = {
        {"A with ring", 0xC5,
         "u..."
         "an"},
        {"sharp s", 0xDF, ".l..an"},
        {"capital sharp s", 0x1E9E, "u...an"},
        {"feminine ordinal", 0xAA, ".l..an"},
        {"Greek omega", 0x3C9, ".l..an"},
        {"Cyrillic Zhe", 0x416, "u...an"},
        {"title-case Dz", 0x1F2, "....an"},
        {"kanji", 0x8868, "....an"},
        {"hiragana", 0x3042, "....an"},
        {"Deseret, beyond 16 bits", 0x10400, "u...an"},
        {"Roman numeral one", 0x2160, "u...an"},
        {"Arabic digit", 0x661, ".....n"},
        {"full-width digit", 0xFF11, ".....n"},
        {"superscript two", 0xB2, "......"},
        {"next line", 0x85, "..s..."},
        {"no-break space", 0xA0, "......"},
        {"figure space", 0x2007, "......"},
        {"narrow no-break space", 0x202F, "......"},
        {"en quad", 0x2000, "..s..."},
        {"line separator", 0x2028, "..s..."},
        {"ideographic space", 0x3000, "..s..."},
        {"zero-width space", 0x200B, "......"},
        {"euro", 0x20AC, "......"},
        {"combining acute", 0x301, "......"},
        {"high surrogate", 0xD800, "......"},
        {"low surrogate", 0xDFFF, "......"},
        {"last code point", 0x10FFFF, "......"},
        {"above the last", 0x110000, "......"},
        {"all bits", 0xFFFFFFFF, "......"},
    };
    for (Case const& c : cases) {
        std::string found;
        found += qvr_iswupper(c.value) ? 'u' : '.';
        found += qvr_iswlower(c.value) ? 'l' : '.';
        found += qvr_iswspace(c.value) ? 's' : '.';
        found += qvr_iswdigit(c.value) ? 'd' : '.';
        found += qvr_iswalpha(c.value) ? 'a' : '.';
        found += qvr_iswalnum(c.value) ? 'n' : '.';
        EXPECT_EQ(c.classes, found) << c.name;
    }
}

TEST(qvr, CaseChangesInPlaceAndOneToOne)
{
    struct Case {
        char const* name;
        char const* codeset;
        char const* locale;
        std::string lower;
        std::string upper;
        bool back = true;  // lower(upper) gives the lower string
    };
    Case const cases[] = {
        {"ASCII", "US-ASCII", "C", "az[09~", "AZ[09~"},
        {"ASCII in UTF-8", "UTF-8", "C", "az[09~", "AZ[09~"},
        {"two bytes", "UTF-8", "C", "\u00e9\u0436\u03c9", "\u00c9\u0416\u03a9"},
        {"three bytes", "UTF-8", "C", "\u1e01\uff41", "\u1e00\uff21"},
        {"four bytes", "UTF-8", "C", "\U00010428", "\U00010400"},
        {"sharp s has no single counterpart", "UTF-8", "C", "\u00df", "\u00df"},
        {"a ligature has no single counterpart", "UTF-8", "C", "\ufb01", "\ufb01"},
        {"fewer bytes: dotless i", "UTF-8", "C", "\u0131", "\u0131"},
        {"fewer bytes: long s", "UTF-8", "C", "\u017f", "\u017f"},
        {"more bytes: a with stroke", "UTF-8", "C", "\u2c65", "\u2c65"},
        {"final sigma", "UTF-8", "C", "\u03c2", "\u03a3", false},
        {"kanji", "UTF-8", "C", "\u8868x", "\u8868X"},
        {"invalid bytes stay", "UTF-8", "C", "a\xFFz\xC3", "A\xFFZ\xC3"},
        {"Latin 1", "ISO-8859-1", "C", "a\xE9\xFE", "A\xC9\xDE"},
        {"not in the codeset", "ISO-8859-1", "C", "\xFF\xB5", "\xFF\xB5"},
        {"Cyrillic", "KOI8-R", "C", "\xC1\xC2", "\xE1\xE2"},
        {"the first byte above ASCII", "windows-1251", "C", "\x90", "\x80"},
        {"EBCDIC", "IBM-037", "C", "\x81\x91\xA2", "\xC1\xD1\xE2"},
        {"full-width in EUC-JP", "EUC-JP", "C", "a\xA3\xE1\xC9\xBD", "A\xA3\xC1\xC9\xBD"},
        {"second bytes stay", "Shift_JIS", "C", "\x83\x61z", "\x83\x61Z"},
        {"Cyrillic in GB18030", "GB18030", "C", "\xA7\xD1", "\xA7\xA1"},
        {"beyond 16 bits in GB18030", "GB18030", "C", "\x90\x30\xEB\x34", "\x90\x30\xE7\x34"},
        {"three bytes in EUC-JP", "EUC-JP", "C", "\x8F\xAB\xA2", "\x8F\xAA\xA2"},
        {"Turkish in Latin 5", "ISO-8859-9", "tr_TR", "i\xFDz", "\xDDIZ"},
        {"Azerbaijani in Latin 5", "ISO-8859-9", "az_AZ", "i\xFD", "\xDDI"},
        {"other languages in Latin 5", "ISO-8859-9", "de_DE", "iz", "IZ"},
        {"Turkish in UTF-8 takes more bytes", "UTF-8", "tr_TR", "i", "i"},
        {"convert-only codesets stay", "UTF-16", "C", "az", "az"},
        {"empty", "UTF-8", "C", "", ""},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Codeset const cs(c.codeset);
        Locale const loc(c.locale);
        GuardedBytes const text(c.lower + '\0');
        EXPECT_EQ(text, qvr_strupper(cs, loc, text));
        EXPECT_EQ(hex(c.upper), hex(static_cast<char*>(text)));
        EXPECT_EQ(text, qvr_strlower(cs, loc, text));
        if (c.back) {
            EXPECT_EQ(hex(c.lower), hex(static_cast<char*>(text)));
        }
    }
}

TEST(qvr, WithoutALocaleNoRulesOfALanguageApply)
{
    Codeset const cs("ISO-8859-9");
    char text[] = "i\xFDz";
    EXPECT_STREQ("IIZ", qvr_strupper(cs, nullptr, text));
    EXPECT_EQ(0, qvr_stricmp(cs, nullptr, "FILE", "file"));
    EXPECT_NE(0, qvr_stricmp(cs, Locale("tr_TR"), "FILE", "file"));
}

TEST(qvr, StringsCompareWithoutRegardToCase)
{
    struct Case {
        char const* name;
        char const* codeset;
        char const* locale;
        std::string a;
        std::string b;
        int order;
    };
    Case const cases[] = {
        {"same", "UTF-8", "C", "abc", "abc", 0},
        {"case", "UTF-8", "C", "aBc", "AbC", 0},
        {"before", "UTF-8", "C", "ABc", "abd", -1},
        {"shorter", "UTF-8", "C", "ab", "ABC", -1},
        {"empty", "UTF-8", "C", "", "a", -1},
        {"both empty", "UTF-8", "C", "", "", 0},
        {"letters as lower case", "UTF-8", "C", "_", "Z", -1},
        {"Greek", "UTF-8", "C", "\u03a3", "\u03c3", 0},
        {"three sigmas", "UTF-8", "C", "\u03c2", "\u03c3", 0},
        {"Kelvin, of other length", "UTF-8", "C", "\u212a1", "k1", 0},
        {"sharp s is not ss", "UTF-8", "C", "\u00df", "ss", 1},
        {"by code point, not by byte", "UTF-8", "C", "\uffff", "\U00010000", -1},
        {"invalid bytes last", "UTF-8", "C", "\xFF", "\U0010FFFF", 1},
        {"invalid by value", "UTF-8", "C", "\x80", "\xFF", -1},
        {"same invalid", "UTF-8", "C", "A\xFF", "a\xFF", 0},
        {"EBCDIC by code point", "IBM-037", "C", "\x81", "\xF1", 1},
        {"EBCDIC case", "IBM-037", "C", "\x81", "\xC1", 0},
        {"full-width", "EUC-JP", "C", "\xA3\xE1", "\xA3\xC1", 0},
        {"second bytes are not letters", "Shift_JIS", "C", "\x83\x41", "\x83\x61", -1},
        {"Turkish i", "ISO-8859-9", "tr_TR", "i\xFD", "\xDDI", 0},
        {"Turkish I is not i", "ISO-8859-9", "tr_TR", "I", "i", 1},
        {"Turkish in UTF-8", "UTF-8", "tr_TR.UTF-8", "i\u0131", "\u0130I", 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Codeset const cs(c.codeset);
        Locale const loc(c.locale);
        GuardedBytes const a(c.a + '\0');
        GuardedBytes const b(c.b + '\0');
        EXPECT_EQ(c.order, qvr_stricmp(cs, loc, a, b));
        EXPECT_EQ(-c.order, qvr_stricmp(cs, loc, b, a));
        EXPECT_EQ(c.order, qvr_strnicmp(cs, loc, a, b, 100));
    }
}

// ASCII is compared several bytes at a time, and each string is at the end of its memory.
TEST(qvr, ComparisonDoesNotDependOnThePositionOfADifference)
{
    auto const orderOf = [](unsigned char a, unsigned char b) {
        int const difference = tolower(a) - tolower(b);
        return difference < 0 ? -1 : difference > 0 ? 1 : 0;
    };
    Codeset const cs("UTF-8");
    for (size_t const at : {0u, 3u, 7u, 8u, 63u, 255u, 256u, 257u, 600u}) {
        std::string const same(at, 'q');
        std::string const other(at, 'Q');
        for (size_t const behind : {0u, 1u, 9u}) {
            GuardedBytes const a(same + '?' + std::string(behind, 'r') + '\0');
            GuardedBytes const b(other + '?' + std::string(behind, 'R') + '\0');
            for (int first = 0; first < 0x80; ++first) {
                for (int second = 0; second < 0x80; ++second) {
                    a[at] = static_cast<char>(first);
                    b[at] = static_cast<char>(second);
                    int const order = orderOf(static_cast<unsigned char>(first),
                                              static_cast<unsigned char>(second));
                    ASSERT_EQ(order, qvr_stricmp(cs, nullptr, a, b))
                        << at << ": " << first << " and " << second;
                    ASSERT_EQ(order, qvr_strnicmp(cs, nullptr, a, b, at + 1));
                    ASSERT_EQ(0, qvr_strnicmp(cs, nullptr, a, b, at));
                }
            }
        }
        std::string const accented = same + "\u00e9" + same;
        GuardedBytes const a(accented + '\0');
        EXPECT_EQ(0, qvr_stricmp(cs, nullptr, a, (other + "\u00c9" + other).c_str()));
        EXPECT_EQ(-1, qvr_stricmp(cs, nullptr, a, (other + "\u00c9" + other + "x").c_str()));
    }
}

TEST(qvr, ComparisonReadsNothingPastATerminator)
{
    Codeset const cs("UTF-8");
    std::string const text = "Thirty-two bytes, and then some.";
    for (size_t length = 0; length < text.size(); ++length) {
        SCOPED_TRACE(length);
        GuardedBytes const shorter(text.substr(0, length) + '\0');
        GuardedBytes const longer(text + '\0');
        EXPECT_EQ(-1, qvr_stricmp(cs, nullptr, shorter, longer));
        EXPECT_EQ(1, qvr_stricmp(cs, nullptr, longer, shorter));
        EXPECT_EQ(0, qvr_stricmp(cs, nullptr, shorter, shorter));
    }
}

TEST(qvr, OnlyTheFirstBytesAreCompared)
{
    struct Case {
        char const* name;
        std::string a;
        std::string b;
        size_t n;
        int order;
    };
    Case const cases[] = {
        {"none", "a", "b", 0, 0},
        {"equal so far", "abX", "ABy", 2, 0},
        {"different within", "abX", "ABy", 3, -1},
        {"terminator within", "ab", "AB", 5, 0},
        {"shorter", "ab", "abc", 5, -1},
        {"whole characters", "\u00e9x", "\u00c9y", 2, 0},
        {"a character cut in both", "\u00e9", "\u00e9", 1, 0},
        {"cut characters compare by byte", "\u00e9", "\u0416", 1, -1},
        {"cut in one of them", "\u212a", "k", 1, 1},
    };
    Codeset const cs("UTF-8");
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.order, qvr_strnicmp(cs, nullptr, c.a.c_str(), c.b.c_str(), c.n));
        EXPECT_EQ(-c.order, qvr_strnicmp(cs, nullptr, c.b.c_str(), c.a.c_str(), c.n));
        if (c.a.size() >= c.n && c.b.size() >= c.n) {
            GuardedBytes const a(c.a.substr(0, c.n));
            GuardedBytes const b(c.b.substr(0, c.n));
            EXPECT_EQ(c.order, qvr_strnicmp(cs, nullptr, a, b, c.n)) << "reads no further byte";
        }
    }
}

}  // namespace
