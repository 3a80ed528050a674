// Names, single characters, classes, case: the text services in the locale of the test.
#include <ctype.h>
#include <langinfo.h>
#include <locale.h>
#include <wchar.h>

#include <cstring>
#include <random>
#include <vector>

#include "GuardedBytes.h"
#include "TextServices.h"

namespace {

TEST(qvr, CodesetNamesHaveManySpellings)
{
    struct Case {
        char const* name;
        char const* text;
        std::string encoded;
    };
    Case const cases[] = {
        {"UTF8", "\u20ac", "\u20ac"},
        {"utf-8", "\u20ac", "\u20ac"},
        {"Utf_8", "\u20ac", "\u20ac"},
        {"ibm-1208", "\u20ac", "\u20ac"},
        {"ANSI_X3.4-1968", "~", "~"},
        {"us-ascii", "~", "~"},
        {"ASCII", "~", "~"},
        {"646", "~", "~"},
        {"ISO8859-1", "\u00e9", "\xE9"},
        {"iso88591", "\u00e9", "\xE9"},
        {"latin1", "\u00e9", "\xE9"},
        {"ISO-8859-15", "\u20ac", "\xA4"},
        {"ISO_8859-16", "\u20ac", "\xA4"},
        {"latin10", "\u0218", "\xAA"},
        {"CP1252", "\u20ac", "\x80"},
        {"windows-1252", "\u20ac", "\x80"},
        {"KOI8-R", "\u042f", "\xF1"},
        {"ARMSCII-8", "\u0531(", "\xB2("},
        {"armscii8", "\u0561)", "\xB3)"},
        {"GEORGIAN-PS", "\u10d0", "\xC0"},
        {"KOI8-T", "\u049b", "\x80"},
        {"PT154", "\u0496", "\x80"},
        {"PTCP154", "\u0496", "\x80"},
        {"CP154", "\u0496", "\x80"},
        {"RK1048", "\u04d9", "\xBC"},
        {"KZ-1048", "\u04d9", "\xBC"},
        {"STRK1048-2002", "\u04d9", "\xBC"},
        {"SJIS", "\u8868", "\x95\x5C"},
        {"Shift_JIS", "\u8868", "\x95\x5C"},
        {"eucJP", "\u8868", "\xC9\xBD"},
        {"EUC-JP", "\u8868", "\xC9\xBD"},
        {"ujis", "\u8868", "\xC9\xBD"},
        {"eucKR", "\uac00", "\xB0\xA1"},
        {"UHC", "\uac02", "\x81\x41"},
        {"gbk", "\u4e02", "\x81\x40"},
        {"GB18030", "\U0001F600", "\x94\x39\xFC\x36"},
        {"GB2312", "\u4e00", "\xD2\xBB"},
        {"BIG5", "\u4e00", "\xA4\x40"},
        {"IBM-037", "A", "\xC1"},
        {"IBM037", "[", "\xBA"},
        {"IBM-1047", "[", "\xAD"},
        {"cp1047", "[", "\xAD"},
        {"UTF-16BE", "A", std::string("\0A", 2)},
        {"ISO-2022-JP", "\u8868", "\x1B$BI=\x1B(B"},
        {"UTF-7", "\u8868", "+iGg-"},
        {"CESU-8", "\U0001F600", "\xED\xA0\xBD\xED\xB8\x80"},
        {"I.S.O:8859*015", "\u20ac", "\xA4"},
        {"ISO_8859-015", "\u20ac", "\xA4"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Codeset const cs(c.name);
        ASSERT_NE(nullptr, qvr_cs_t(cs));
        EXPECT_EQ(hex(c.encoded), hex(fromUtf8(cs, c.text)));
        EXPECT_EQ(c.text, toUtf8(cs, c.encoded));
    }
}

TEST(qvr, EncodersWriteTheFramingOfTheCodeset)
{
    struct Case {
        char const* name;
        char const* text;
        std::string encoded;
    };
    Case const cases[] = {
        {"UTF-16", "A", std::string("\xFF\xFE\x41\0", 4)},
        {"UTF-32", "A", std::string("\xFF\xFE\0\0A\0\0\0", 8)},
        {"ISO-2022-JP", "A\u8868", "A\x1B$BI=\x1B(B"},
        {"HZ", "A", "~}A"},
        {"IBM-930", "A\u8868", "\xC1\x0E\x46\xC0\x0F"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Codeset const cs(c.name);
        EXPECT_EQ(hex(c.encoded), hex(fromUtf8(cs, c.text)));
        EXPECT_EQ(c.text, toUtf8(cs, c.encoded));
        EXPECT_EQ("", fromUtf8(cs, ""));
    }
}

TEST(qvr, UnknownCodesetsHaveNoHandle)
{
    std::string const longName(1000, 'x');
    std::string const longestName(127, 'x');
    char const* const names[] = {
        "",
        " ",
        "nope",
        "ISO-8859-12",
        "ISO-8859-17",
        "UTF-9",
        "../UTF-8",
        "/etc/passwd",
        "UTF-8/",
        "a\\b",
        "\xC3\xA9",
        longName.c_str(),
        longestName.c_str(),
        nullptr,
    };
    for (char const* const name : names)
        EXPECT_EQ(nullptr, qvr_cs_t(Codeset(name))) << (name == nullptr ? "null" : name);
}

TEST(qvr, EveryHandleIsNew)
{
    for (char const* const name : {"UTF-8", "ISO-8859-1", "EUC-JP", "UTF-16"}) {
        Codeset const one(name);
        Codeset const other(name);
        EXPECT_NE(qvr_cs_t(one), qvr_cs_t(other));
    }
}

TEST(qvr, AHandleOutlivesItsTwin)
{
    qvr_cs_t const first = qvr_cs_new("EUC-JP");
    Codeset const second("EUC-JP");
    qvr_cs_free(first);
    EXPECT_EQ(2, qvr_mblen(second, "\xC9\xBD", 2));
    EXPECT_EQ("\xC9\xBD", fromUtf8(second, "\u8868"));
}

TEST(qvr, HandlesAreReleasedInAnyOrder)
{
    qvr_cs_t const first = qvr_cs_new("EUC-JP");
    qvr_cs_t const second = qvr_cs_new("EUC-KR");
    qvr_cs_t const third = qvr_cs_new("KOI8-R");
    qvr_cs_free(second);
    qvr_cs_free(first);
    EXPECT_EQ("\xD1", fromUtf8(third, "\u044f"));
    qvr_cs_t const again = qvr_cs_new("EUC-KR");
    EXPECT_EQ("\xB0\xA1", fromUtf8(again, "\uac00"));
    qvr_cs_free(third);
    EXPECT_EQ("\xB0\xA1", fromUtf8(again, "\uac00"));
    qvr_cs_free(again);
}

TEST(qvr, NullArgumentsAreFailures)
{
    Codeset const cs("UTF-8");
    qvr_cs_t const none = nullptr;
    char text[] = "ab";
    char out[16];
    uint32_t value = 7;
    struct tm time = {};
    EXPECT_EQ(qvrInvalid, qvr_set_dir(nullptr));
    EXPECT_EQ(qvrInvalid, qvr_os_lang_name(nullptr, 10));
    EXPECT_EQ(qvrInvalid, qvr_os_cs_name(nullptr, 10));
    EXPECT_EQ(qvrInvalid, qvr_canonical_loc(nullptr, out, 10));
    EXPECT_EQ(qvrInvalid, qvr_canonical_loc("C", nullptr, 10));
    EXPECT_EQ(nullptr, qvr_loc_new(nullptr));
    EXPECT_EQ(nullptr, qvr_cs_new(nullptr));
    qvr_cs_free(nullptr);
    qvr_loc_free(nullptr);
    for (auto const convert : {qvr_to_utf8, qvr_from_utf8}) {
        EXPECT_EQ(qvrInvalid, convert(none, text, 2, out, sizeof out));
        EXPECT_EQ(qvrInvalid, convert(cs, nullptr, 2, out, sizeof out));
        EXPECT_EQ(qvrInvalid, convert(cs, text, 2, nullptr, sizeof out));
        EXPECT_EQ(0, convert(cs, nullptr, 0, out, sizeof out));
        EXPECT_EQ(0, convert(cs, text, 0, nullptr, 0));
        EXPECT_EQ(qvrNoRoom, convert(cs, text, 2, nullptr, 0));
    }
    EXPECT_EQ(-1, qvr_mblen(none, text, 2));
    EXPECT_EQ(-1, qvr_mblen(cs, nullptr, 2));
    EXPECT_EQ(-1, qvr_mblen(cs, text, 0));
    EXPECT_EQ(-1, qvr_mbtowc(none, &value, text, 2));
    EXPECT_EQ(-1, qvr_mbtowc(cs, &value, nullptr, 2));
    EXPECT_EQ(-1, qvr_mbtowc(cs, &value, text, 0));
    EXPECT_EQ(7u, value);
    EXPECT_EQ(1, qvr_mbtowc(cs, nullptr, text, 2));
    EXPECT_EQ(-1, qvr_wctomb(none, out, sizeof out, 'a'));
    EXPECT_EQ(-1, qvr_wctomb(cs, nullptr, sizeof out, 'a'));
    EXPECT_EQ(nullptr, qvr_strstr(none, text, "a"));
    EXPECT_EQ(nullptr, qvr_strstr(cs, nullptr, "a"));
    EXPECT_EQ(nullptr, qvr_strstr(cs, text, nullptr));
    EXPECT_EQ(nullptr, qvr_strpbrk(none, text, "a"));
    EXPECT_EQ(nullptr, qvr_strpbrk(cs, nullptr, "a"));
    EXPECT_EQ(nullptr, qvr_strpbrk(cs, text, nullptr));
    EXPECT_EQ(nullptr, qvr_strtok(none, text, "a"));
    EXPECT_EQ(nullptr, qvr_strtok(cs, text, nullptr));
    EXPECT_EQ(0u, qvr_strspn(none, text, "a"));
    EXPECT_EQ(0u, qvr_strspn(cs, nullptr, "a"));
    EXPECT_EQ(0u, qvr_strspn(cs, text, nullptr));
    EXPECT_EQ(0u, qvr_strcspn(none, text, "x"));
    EXPECT_EQ(0u, qvr_strcspn(cs, nullptr, "x"));
    EXPECT_EQ(0u, qvr_strcspn(cs, text, nullptr));
    EXPECT_EQ(nullptr, qvr_strncat(none, text, "x", 0));
    EXPECT_EQ(nullptr, qvr_strncat(cs, nullptr, "x", 0));
    EXPECT_EQ(nullptr, qvr_strncat(cs, text, nullptr, 0));
    EXPECT_EQ(nullptr, qvr_strncpy(none, text, "x", 0));
    EXPECT_EQ(nullptr, qvr_strncpy(cs, nullptr, "x", 0));
    EXPECT_EQ(nullptr, qvr_strncpy(cs, text, nullptr, 0));
    EXPECT_EQ(nullptr, qvr_strchr(none, text, 'a'));
    EXPECT_EQ(nullptr, qvr_strchr(cs, nullptr, 'a'));
    EXPECT_EQ(nullptr, qvr_strrchr(none, text, 'a'));
    EXPECT_EQ(nullptr, qvr_strrchr(cs, nullptr, 'a'));
    EXPECT_EQ(nullptr, qvr_strupper(none, nullptr, text));
    EXPECT_EQ(nullptr, qvr_strupper(cs, nullptr, nullptr));
    EXPECT_EQ(nullptr, qvr_strlower(none, nullptr, text));
    EXPECT_EQ(nullptr, qvr_strlower(cs, nullptr, nullptr));
    EXPECT_EQ(-1, qvr_stricmp(none, nullptr, text, text));
    EXPECT_EQ(-1, qvr_stricmp(cs, nullptr, nullptr, text));
    EXPECT_EQ(-1, qvr_stricmp(cs, nullptr, text, nullptr));
    EXPECT_EQ(-1, qvr_strnicmp(none, nullptr, text, text, 1));
    EXPECT_EQ(-1, qvr_strnicmp(cs, nullptr, nullptr, text, 1));
    EXPECT_EQ(-1, qvr_strnicmp(cs, nullptr, text, nullptr, 1));
    EXPECT_EQ(0, qvr_strnicmp(cs, nullptr, text, "x", 0));
    EXPECT_EQ(nullptr, qvr_strptime(none, nullptr, "1", "%d", &time));
    EXPECT_EQ(nullptr, qvr_strptime(cs, nullptr, nullptr, "%d", &time));
    EXPECT_EQ(nullptr, qvr_strptime(cs, nullptr, "1", nullptr, &time));
    EXPECT_EQ(nullptr, qvr_strptime(cs, nullptr, "1", "%d", nullptr));
    EXPECT_STREQ("ab", text);
}

// The environment's locale, in this scope.
class qvrLocal : public testing::Test {
protected:
    qvrLocal() : before_(setlocale(LC_ALL, nullptr)) { setlocale(LC_ALL, ""); }
    ~qvrLocal() override { setlocale(LC_ALL, before_.c_str()); }

private:
    std::string const before_;
};

TEST_F(qvrLocal, NamesEqualThoseOfTheOperatingSystem)
{
    struct Case {
        int (*ask)(char*, size_t);
        std::string expected;
    };
    Case const cases[] = {{qvr_os_lang_name, setlocale(LC_CTYPE, nullptr)},
                          {qvr_os_cs_name, nl_langinfo(CODESET)}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.expected);
        char name[512] = "untouched";
        EXPECT_EQ(0, c.ask(name, sizeof name));
        EXPECT_EQ(c.expected, name);
        EXPECT_EQ(0, c.ask(name, c.expected.size() + 1));
        EXPECT_EQ(c.expected, name);
        std::memset(name, 'x', sizeof name);
        EXPECT_EQ(qvrNoRoom, c.ask(name, c.expected.size()));
        EXPECT_EQ(0, name[0]);
        EXPECT_EQ('x', name[1]);
        name[0] = 'x';
        EXPECT_EQ(qvrNoRoom, c.ask(name, 0));
        EXPECT_EQ('x', name[0]);
    }
}

TEST_F(qvrLocal, LocalHandlesCanBeCreated)
{
    char os[512];
    char canonical[512];
    char codeset[32];
    ASSERT_EQ(0, qvr_os_lang_name(os, sizeof os));
    ASSERT_EQ(0, qvr_canonical_loc(os, canonical, sizeof canonical));
    EXPECT_STREQ(std::strcmp(os, "POSIX") == 0 ? "C" : os, canonical)
        << "the test's locales have canonical names";
    ASSERT_EQ(0, qvr_os_cs_name(codeset, sizeof codeset));
    EXPECT_NE(nullptr, qvr_cs_t(Codeset(codeset)));
    EXPECT_NE(nullptr, qvr_loc_t(Locale(canonical)));
}

TEST_F(qvrLocal, CharactersEqualThoseOfTheOperatingSystem)
{
    char name[32];
    ASSERT_EQ(0, qvr_os_cs_name(name, sizeof name));
    Codeset const cs(name);
    // In the C locale the C library treats every byte as a character; ASCII ends at 0x7F.
    unsigned const last = std::strcmp(name, "ANSI_X3.4-1968") == 0 ? 0x7F : 0xFF;
    for (unsigned a = 0; a <= last; ++a) {
        for (unsigned b = 0; b <= last; ++b) {
            for (unsigned c = 0; c <= (a == 0x8F || a >= 0xE0 ? last : 0u); ++c) {
                char const bytes[] = {static_cast<char>(a), static_cast<char>(b),
                                      static_cast<char>(c), 0};
                mbstate_t state = {};
                wchar_t theirs = 0;
                size_t const length = mbrtowc(&theirs, bytes, 3, &state);
                uint32_t ours = 0;
                int const ourLength = qvr_mbtowc(cs, &ours, bytes, 3);
                int const expected = length <= 3 ? static_cast<int>(length) : -1;
                if (ourLength != expected ||
                    (expected >= 0 && ours != static_cast<uint32_t>(theirs))) {
                    // EUC-JP has unassigned bytes that some systems use.
                    EXPECT_TRUE(std::strcmp(name, "EUC-JP") == 0 && expected == -1)
                        << hex(std::string(bytes, 3)) << ' ' << ourLength << ' ' << length;
                }
            }
        }
    }
}

TEST(qvr, LocaleNamesHaveACanonicalForm)
{
    struct Case {
        char const* os;
        char const* canonical;
    };
    Case const cases[] = {
        {"C", "C"},
        {"POSIX", "C"},
        {"C.UTF-8", "C.UTF-8"},
        {"C.utf8", "C.UTF-8"},
        {"en_US.UTF-8", "en_US.UTF-8"},
        {"en_US.utf8", "en_US.UTF-8"},
        {"EN_us.Utf8", "en_US.UTF-8"},
        {"en_US", "en_US"},
        {"en", "en"},
        {"eo.utf-8", "eo.UTF-8"},
        {"de_DE@euro", "de_DE@euro"},
        {"de_DE.ISO8859-15@EURO", "de_DE.ISO-8859-15@euro"},
        {"de_DE.iso88591", "de_DE.ISO-8859-1"},
        {"ja_JP.eucJP", "ja_JP.EUC-JP"},
        {"ja_JP.ujis", "ja_JP.EUC-JP"},
        {"ja_JP.SJIS", "ja_JP.Shift_JIS"},
        {"zh_CN.gb18030", "zh_CN.GB18030"},
        {"zh_TW.big5", "zh_TW.Big5"},
        {"ro_RO.iso885916", "ro_RO.ISO-8859-16"},
        {"th_TH.iso885911", "th_TH.ISO-8859-11"},
        {"hy_AM.armscii8", "hy_AM.ARMSCII-8"},
        {"ka_GE.georgianps", "ka_GE.GEORGIAN-PS"},
        {"tg_TJ.koi8t", "tg_TJ.KOI8-T"},
        {"kk_KZ.pt154", "kk_KZ.PT154"},
        {"kk_KZ.Cyrillic-Asian", "kk_KZ.PT154"},
        {"kk_KZ.KZ-1048", "kk_KZ.RK1048"},
        {"en_US.no-such-codeset", "en_US.no-such-codeset"},
        {"sr_RS@latin", "sr_RS@latin"},
        {"es_419", "es_419"},
        {"german", "de_DE.ISO-8859-1"},
        {"German", "de_DE.ISO-8859-1"},
        {"japanese.euc", "ja_JP.EUC-JP"},
        {"turkish", "tr_TR.ISO-8859-9"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.os);
        char name[512];
        EXPECT_EQ(0, qvr_canonical_loc(c.os, name, sizeof name));
        EXPECT_STREQ(c.canonical, name);
        EXPECT_NE(nullptr, qvr_loc_t(Locale(c.os)));
        size_t const length = std::strlen(c.canonical);
        EXPECT_EQ(0, qvr_canonical_loc(c.os, name, length + 1));
        EXPECT_EQ(qvrNoRoom, qvr_canonical_loc(c.os, name, length));
        EXPECT_STREQ("", name);
        std::strcpy(name, c.os);
        EXPECT_EQ(0, qvr_canonical_loc(name, name, sizeof name)) << "in place";
        EXPECT_STREQ(c.canonical, name);
    }
}

TEST(qvr, ALocaleNameOfAnotherFormIsItsOwnCanonicalForm)
{
    std::string const longName = "en_US." + std::string(240, 'x');
    char const* const names[] = {
        "x",
        "1",
        "e1",
        "en_",
        "en.",
        "en@",
        "_US",
        ".UTF-8",
        "@euro",
        "en_U",
        "en_US.",
        "en_US@",
        "C_US",
        "en us",
        "en/US",
        "en_US.a/b",
        "en_US.UTF-8@a b",
        "LC_CTYPE=C;LC_NUMERIC=C",
        "\xC3\xA9n",
        "company",
        "Company.utf8@X",
        longName.c_str(),
    };
    for (char const* const each : names) {
        SCOPED_TRACE(each);
        char name[600] = "before";
        EXPECT_EQ(0, qvr_canonical_loc(each, name, sizeof name));
        EXPECT_STREQ(each, name);
        EXPECT_EQ(0, qvr_canonical_loc(name, name, sizeof name)) << "in place";
        EXPECT_STREQ(each, name);
        EXPECT_EQ(0, qvr_canonical_loc(each, name, std::strlen(each) + 1));
        EXPECT_EQ(qvrNoRoom, qvr_canonical_loc(each, name, std::strlen(each)));
        EXPECT_STREQ("", name);
        Locale const locale(each);
        EXPECT_NE(nullptr, qvr_loc_t(locale));
        // No rules of a language, and English words.
        char text[] = "i";
        EXPECT_STREQ("I", qvr_strupper(Codeset("UTF-8"), locale, text));
        struct tm time = {};
        EXPECT_NE(nullptr, qvr_strptime(Codeset("UTF-8"), locale, "March", "%B", &time));
        EXPECT_EQ(2, time.tm_mon);
    }
}

TEST(qvr, AnEmptyLocaleNameIsRejected)
{
    char name[8] = "before";
    EXPECT_EQ(qvrInvalid, qvr_canonical_loc("", name, sizeof name));
    EXPECT_STREQ("", name);
    EXPECT_EQ(nullptr, qvr_loc_new(""));
}

TEST(qvr, CharactersAreMeasuredAndDecoded)
{
    struct Case {
        char const* codeset;
        std::string bytes;
        int length;
        uint32_t value;
    };
    Case const cases[] = {
        {"US-ASCII", "a", 1, 'a'},
        {"US-ASCII", "\x7F", 1, 0x7F},
        {"US-ASCII", "\x80", -1, 0},
        {"ISO-8859-1", "\x80", 1, 0x80},
        {"ISO-8859-1", "\xFF", 1, 0xFF},
        {"ISO-8859-6", "\xA1", -1, 0},
        {"windows-1252", "\x80", 1, 0x20AC},
        {"IBM-037", "\x40", 1, ' '},
        {"IBM-1047", "\x25", 1, '\n'},
        {"CP437", "\x1A", 1, 0x1A},
        {"UTF-8", "\u00e9x", 2, 0xE9},
        {"UTF-8", "\U0010FFFF", 4, 0x10FFFF},
        {"Shift_JIS", "\x95\x5C", 2, 0x8868},
        {"Shift_JIS", "\xB1", 1, 0xFF71},
        {"Shift_JIS", "\x1A", 1, 0x1A},
        {"Shift_JIS", "\x1C", 1, 0x1C},
        {"Shift_JIS", "\x7F", 1, 0x7F},
        {"Shift_JIS", "\x95", -1, 0},
        {"Shift_JIS", "\x95 ", -1, 0},
        {"Shift_JIS", "\x95\xFF", -1, 0},
        {"Shift_JIS", "\xFF", -1, 0},
        {"EUC-JP", "\xC9\xBD", 2, 0x8868},
        {"EUC-JP", "\x8E\xB1", 2, 0xFF71},
        {"EUC-JP", "\x8F\xB0\xA1", 3, 0x4E02},
        {"EUC-JP", "\x8F\xB0", -1, 0},
        {"EUC-JP", "\x8F\xB0 ", -1, 0},
        {"EUC-JP", "\x8F", -1, 0},
        {"EUC-JP", "\xC9 ", -1, 0},
        {"EUC-KR", "\xB0\xA1", 2, 0xAC00},
        {"GBK", "\x81\x40", 2, 0x4E02},
        {"GBK", "\x81\x7F", -1, 0},
        {"Big5", "\xA4\x40", 2, 0x4E00},
        {"GB18030", "\x81\x30\x81\x30", 4, 0x80},
        {"GB18030", "\x94\x39\xFC\x36", 4, 0x1F600},
        {"GB18030", "\xE3\x32\x9A\x35", 4, 0x10FFFF},
        {"GB18030", "\xE3\x32\x9A\x36", -1, 0},
        {"GB18030", "\x81\x30\x81", -1, 0},
        {"GB18030", "\x81\x30\x81 ", -1, 0},
        {"GB18030", "\x81\x30", -1, 0},
        {"GB18030", "\x81", -1, 0},
        {"EUC-TW", "\x8E\xA2\xA1\xA1", 4, 0x4E42},
        {"EUC-TW", "\x8E\xA2\xA1", -1, 0},
        {"UTF-16LE", "a", -1, 0},
        {"ISO-2022-JP", "a", -1, 0},
        {"UTF-7", "a", -1, 0},
        {"CESU-8", "a", -1, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.codeset + (": " + hex(c.bytes)));
        Codeset const cs(c.codeset);
        GuardedBytes const text(c.bytes);
        uint32_t value = 0xABCDEF;
        EXPECT_EQ(c.length, qvr_mblen(cs, text, c.bytes.size()));
        EXPECT_EQ(c.length, qvr_mbtowc(cs, &value, text, c.bytes.size()));
        EXPECT_EQ(c.length < 0 ? 0xABCDEF : c.value, value);
        if (c.length < 0)
            continue;
        for (int n = 1; n < c.length; ++n) {
            GuardedBytes const part(c.bytes.substr(0, static_cast<size_t>(n)));
            EXPECT_EQ(-1, qvr_mblen(cs, part, static_cast<size_t>(n)));
            GuardedBytes const ended(c.bytes.substr(0, static_cast<size_t>(n)) + '\0');
            EXPECT_EQ(-1, qvr_mblen(cs, ended, SIZE_MAX)) << "stops at the terminator";
        }
    }
}

TEST(qvr, TheTerminatorHasLengthZero)
{
    for (char const* const name : {"UTF-8", "US-ASCII", "IBM-037", "EUC-JP", "GB18030", "UTF-16"}) {
        SCOPED_TRACE(name);
        Codeset const cs(name);
        GuardedBytes const text(std::string(1, '\0'));
        uint32_t value = 7;
        EXPECT_EQ(0, qvr_mblen(cs, text, 1));
        EXPECT_EQ(0, qvr_mblen(cs, text, SIZE_MAX));
        EXPECT_EQ(0, qvr_mbtowc(cs, &value, text, 1));
        EXPECT_EQ(0u, value);
    }
}

TEST(qvr, UnitsAreEncoded)
{
    struct Case {
        char const* codeset;
        uint16_t unit;
        std::string bytes;  // empty: not encodable
    };
    Case const cases[] = {
        {"UTF-8", 0, std::string(1, '\0')},
        {"UTF-8", 'a', "a"},
        {"UTF-8", 0x80, "\u0080"},
        {"UTF-8", 0x7FF, "\u07ff"},
        {"UTF-8", 0x800, "\u0800"},
        {"UTF-8", 0xFFFF, "\uffff"},
        {"UTF-8", 0xD800, ""},
        {"UTF-8", 0xDBFF, ""},
        {"UTF-8", 0xDC00, ""},
        {"UTF-8", 0xDFFF, ""},
        {"UTF-8", 0xD7FF, "\ud7ff"},
        {"UTF-8", 0xE000, "\ue000"},
        {"US-ASCII", 0x80, ""},
        {"ISO-8859-1", 0xE9, "\xE9"},
        {"ISO-8859-1", 0x20AC, ""},
        {"ISO-8859-1", 0, std::string(1, '\0')},
        {"IBM-037", 0, std::string(1, '\0')},
        {"IBM-037", 'A', "\xC1"},
        {"EUC-JP", 0x4E02, "\x8F\xB0\xA1"},
        {"EUC-JP", 0xA2, "\xA1\xF1"},
        {"EUC-JP", 0x200B, ""},
        {"EUC-JP", 0xD800, ""},
        {"GB18030", 0x80, "\x81\x30\x81\x30"},
        {"GB18030", 0xDC00, ""},
        {"UTF-16", 'a', ""},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.codeset << " U+" << std::hex << c.unit);
        Codeset const cs(c.codeset);
        char out[qvrMbLenMax + 1];
        std::memset(out, 'x', sizeof out);
        if (c.bytes.empty()) {
            EXPECT_EQ(-1, qvr_wctomb(cs, out, qvrMbLenMax, c.unit));
            EXPECT_EQ('x', out[0]);
            continue;
        }
        int const length = static_cast<int>(c.bytes.size());
        EXPECT_EQ(length, qvr_wctomb(cs, out, c.bytes.size(), c.unit));
        EXPECT_EQ(hex(c.bytes), hex(std::string(out, c.bytes.size())));
        EXPECT_EQ('x', out[length]);
        std::memset(out, 'x', sizeof out);
        EXPECT_EQ(-1, qvr_wctomb(cs, out, c.bytes.size() - 1, c.unit));
        EXPECT_EQ('x', out[0]);
    }
}

TEST(qvr, ConversionStaysInItsBuffer)
{
    struct Case {
        char const* codeset;
        std::string text;
        std::string encoded;
    };
    Case const cases[] = {
        {"UTF-8", "a\u00e9\u20ac\U0001F600z", "a\u00e9\u20ac\U0001F600z"},
        {"ISO-8859-1", "a\u00e9\u00fcz", "a\xE9\xFCz"},
        {"US-ASCII", "plain text", "plain text"},
        {"IBM-1047", "A[z", "\xC1\xAD\xA9"},
        {"Shift_JIS", "a\u8868z", "a\x95\x5Cz"},
        {"EUC-JP", "a\u8868\u4e02z", "a\xC9\xBD\x8F\xB0\xA1z"},
        {"GB18030", "a\u4e00\U0001F600z", "a\xD2\xBB\x94\x39\xFC\x36z"},
        {"ISO-2022-JP", "a\u8868z", "a\x1B$BI=\x1B(Bz"},
        {"UTF-16BE", "a\U0001F600", std::string("\0a\xD8\x3D\xDE\x00", 6)},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.codeset);
        Codeset const cs(c.codeset);
        struct Way {
            ptrdiff_t (*convert)(qvr_cs_t, char const*, size_t, char*, size_t);
            std::string from;
            std::string to;
        };
        for (Way const& way :
             {Way{qvr_to_utf8, c.encoded, c.text}, Way{qvr_from_utf8, c.text, c.encoded}}) {
            GuardedBytes const source(way.from);
            for (size_t room = 0; room <= way.to.size() + 1; ++room) {
                std::string const blank(room, 'x');
                GuardedBytes const target(blank);
                ptrdiff_t const n = way.convert(cs, source, way.from.size(), target, room);
                if (room < way.to.size()) {
                    EXPECT_EQ(qvrNoRoom, n) << room;
                } else {
                    EXPECT_EQ(static_cast<ptrdiff_t>(way.to.size()), n);
                    EXPECT_EQ(hex(way.to + blank.substr(way.to.size())),
                              hex(std::string(target, room)));
                }
            }
        }
    }
}

TEST(qvr, ConversionRejectsCharactersWithoutACounterpart)
{
    struct Case {
        char const* name;
        char const* codeset;
        std::string text;
        bool toUtf8;
    };
    Case const cases[] = {
        {"not in Latin 1", "ISO-8859-1", "abc\u20ac", false},
        {"a supplementary character in Latin 1", "ISO-8859-1", "abc\U0001F600", false},
        {"not in ASCII", "US-ASCII", "abc\u00e9", false},
        {"byte above ASCII", "US-ASCII", "abc\xE9", true},
        {"unassigned byte", "ISO-8859-6", "abc\xA1", true},
        {"not in Japanese", "EUC-JP", "abc\u1E9E", false},
        {"ignorable, but not in the codeset", "EUC-JP", "abc\u200b", false},
        {"soft hyphen", "Shift_JIS", "abc\u00ad", false},
        {"ignorable in ISO-2022", "ISO-2022-JP", "abc\u200b", false},
        {"half a character at the end", "EUC-JP", "abc\xC9", true},
        {"half a character before another", "EUC-JP", "abc\xC9 z", true},
        {"not a lead byte", "EUC-JP", "abc\xFF", true},
        {"half a unit at the end", "UTF-16LE", std::string("a\0b", 3), true},
        {"a lone surrogate", "UTF-16LE", std::string("\x00\xD8", 2), true},
        {"a lone low surrogate", "UTF-16LE", std::string("\x00\xDC\x61\x00", 4), true},
        {"an unfinished escape", "ISO-2022-JP", "abc\x1B$", true},
        {"a quoted lead unit before another", "SCSU", std::string("\x0E\xD8\x00\x0E\xD8\x00z", 7),
         true},
        {"only a quoted lead unit", "SCSU", std::string("\x0E\xD8\x00z", 4), true},
        {"a quoted lead unit at the end", "SCSU", std::string("z\x0E\xD8\x00", 4), true},
        {"only a quoted trail unit", "SCSU", std::string("\x0E\xDC\x00z", 4), true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Codeset const cs(c.codeset);
        char out[64];
        EXPECT_EQ(qvrInvalid, (c.toUtf8 ? qvr_to_utf8 : qvr_from_utf8)(cs, c.text.data(),
                                                                       c.text.size(), out, 64));
        EXPECT_EQ("a", toUtf8(Codeset("EUC-JP"), "a")) << "the failure leaves no state";
        EXPECT_EQ(hex(fromUtf8(cs, "a")), hex(fromUtf8(Codeset(c.codeset), "a")));
    }
}

// Also if a byte that was tested when the codeset was built starts a longer sequence.
TEST(qvr, FirstConversionStartsInTheInitialState)
{
    for (char const* const name :
         {"SCSU", "BOCU-1", "UTF-7", "UTF-16BE", "CESU-8", "ISO-2022-KR"}) {
        SCOPED_TRACE(name);
        std::string const encoded = fromUtf8(Codeset(name), "\uac00z");
        EXPECT_EQ("\uac00z", toUtf8(Codeset(name), encoded));
    }
    EXPECT_EQ("\u4e01z", toUtf8(Codeset("SCSU"), "\x0E\x4E\x01z"));
}

TEST(qvr, ConversionContinuesAfterALongRunWithoutCharacters)
{
    // Enough changes of the window to fill a block without a character.
    EXPECT_EQ("a\u00e9", toUtf8(Codeset("SCSU"), std::string(200000, '\x10') + "a\xE9"));
}

// The rest of the character is past the given length.
TEST(qvr, ConversionEndsAtTheLength)
{
    std::string const text = "abcdefghij\u00e9";
    char out[64];
    for (char const* const name : {"UTF-8", "ISO-8859-1", "EUC-JP", "GB18030", "UTF-16"})
        EXPECT_EQ(qvrInvalid, qvr_from_utf8(Codeset(name), text.data(), text.size() - 1, out, 64))
            << name;
    EXPECT_EQ(qvrInvalid, qvr_to_utf8(Codeset("UTF-8"), text.data(), text.size() - 1, out, 64));
    for (char const* const name : {"EUC-JP", "GB18030", "Shift_JIS"}) {
        Codeset const cs(name);
        std::string const encoded = fromUtf8(cs, "abcdefghij\u8868");
        EXPECT_EQ(qvrInvalid, qvr_to_utf8(cs, encoded.data(), encoded.size() - 1, out, 64)) << name;
    }
}

TEST(qvr, ConversionTreatsTerminatorsAsCharacters)
{
    std::string const text("a\0b\0", 4);
    for (char const* const name : {"UTF-8", "ISO-8859-1", "EUC-JP", "GB18030"}) {
        SCOPED_TRACE(name);
        Codeset const cs(name);
        EXPECT_EQ(text, toUtf8(cs, text));
        EXPECT_EQ(text, fromUtf8(cs, text));
    }
    std::string const kanji = std::string("\0", 1) + "\u8868" + std::string("\0", 1);
    std::string const encoded = std::string("\0\xC9\xBD\0", 4);
    EXPECT_EQ(encoded, fromUtf8(Codeset("EUC-JP"), kanji));
    EXPECT_EQ(kanji, toUtf8(Codeset("EUC-JP"), encoded));
}

TEST(qvr, LongStringsConvertAcrossBlocks)
{
    for (char const* const name : {"EUC-JP", "GB18030", "UTF-16", "ISO-2022-JP", "ISO-8859-5"}) {
        SCOPED_TRACE(name);
        Codeset const cs(name);
        std::string text;
        for (uint32_t i = 0; text.size() < 300000; ++i)
            text += i % 7 == 0 ? "a" : i % 5 == 0 && *name == 'G' ? "\U0001F600" : "\u0416";
        std::string const encoded = fromUtf8(cs, text);
        EXPECT_TRUE(toUtf8(cs, encoded) == text);
    }
}

TEST(qvr, LongStringsConvertLikeTheirCharacters)
{
    struct Case {
        char const* codeset;
        std::vector<std::string> characters;  // besides ASCII
    };
    Case const cases[] = {
        {"UTF-8", {"\u00e9", "\u8868", "\U0001F600"}},
        {"US-ASCII", {"~"}},
        {"ISO-8859-15", {"\u00e9", "\u20ac"}},
        {"IBM-1047", {"\u00e9", "["}},
        {"Shift_JIS", {"\u8868", "\uff71"}},
        {"EUC-JP", {"\u8868", "\uff71"}},
        {"EUC-JP", {"\u8868", "\u4e02", "\u00e0"}},
        {"GB18030", {"\u00e9", "\u4e00", "\u0416"}},
        {"GB18030", {"\u4e00", "\u3400", "\U0001F600"}},
        {"UTF-16LE", {"\u8868", "\U0001F600"}},
    };
    std::mt19937 random(1);
    for (Case const& c : cases) {
        SCOPED_TRACE(c.codeset);
        Codeset const cs(c.codeset);
        std::string text;
        std::string encoded;
        for (int i = 0; i < 2000; ++i) {
            for (unsigned ascii = random() % 40; ascii > 0; --ascii) {
                std::string const letter(1, static_cast<char>(' ' + random() % 95));
                text += letter;
                encoded += fromUtf8(cs, letter);
            }
            std::string const& character = c.characters[random() % c.characters.size()];
            text += character;
            encoded += fromUtf8(cs, character);
        }
        EXPECT_TRUE(fromUtf8(cs, text) == encoded);
        EXPECT_TRUE(toUtf8(cs, encoded) == text);
    }
}

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
