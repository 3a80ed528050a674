// Names of codesets and locales, their handles, null arguments.
#include <ctype.h>
#include <langinfo.h>
#include <locale.h>
#include <wchar.h>

#include <cstring>
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

}  // namespace
