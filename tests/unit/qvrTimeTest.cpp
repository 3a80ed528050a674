// qvr_strptime: examples, then a comparison with the C library's strptime over generated formats.
#include <langinfo.h>
#include <locale.h>

#include <cstring>
#include <random>
#include <vector>

#include "GuardedBytes.h"
#include "TextServices.h"

namespace {

// The fields of a time, -1 if not set.
struct Fields {
    int second = -1;
    int minute = -1;
    int hour = -1;
    int day = -1;
    int month = -1;
    int year = -1;
    int dayOfWeek = -1;
    int dayOfYear = -1;

    bool operator==(Fields const&) const = default;
};

std::ostream& operator<<(std::ostream& out, Fields const& f)
{
    return out << f.year << '/' << f.month << '/' << f.day << ' ' << f.hour << ':' << f.minute
               << ':' << f.second << " week " << f.dayOfWeek << " year " << f.dayOfYear;
}

struct tm unset()
{
    struct tm time = {};
    time.tm_sec = time.tm_min = time.tm_hour = time.tm_mday = time.tm_mon = time.tm_year = -1;
    time.tm_wday = time.tm_yday = -1;
    time.tm_gmtoff = -1;
    return time;
}

Fields fields(struct tm const& time)
{
    return {time.tm_sec, time.tm_min,  time.tm_hour, time.tm_mday,
            time.tm_mon, time.tm_year, time.tm_wday, time.tm_yday};
}

TEST(qvrTime, EachConversionSetsItsFields)
{
    struct Case {
        char const* format;
        char const* text;
        Fields expected;
    };
    Case const cases[] = {
        {"%S", "59", {.second = 59}},
        {"%S", "61", {.second = 61}},
        {"%M", "07", {.minute = 7}},
        {"%H", "23", {.hour = 23}},
        {"%k", " 7", {.hour = 7}},
        {"%I", "12", {.hour = 0}},
        {"%I %p", "12 pm", {.hour = 12}},
        {"%p %I", "PM 7", {.hour = 19}},
        {"%l%p", " 7AM", {.hour = 7}},
        {"%H %p", "7 pm", {.hour = 7}},
        {"%d", "31", {.day = 31}},
        {"%e", " 1", {.day = 1}},
        {"%m", "12", {.month = 11}},
        {"%b", "aPr", {.month = 3}},
        {"%B", "april", {.month = 3}},
        {"%h", "Sep", {.month = 8}},
        {"%b", "May", {.month = 4}},
        {"%a", "Sunday", {.dayOfWeek = 0}},
        {"%A", "sat", {.dayOfWeek = 6}},
        {"%w", "6", {.dayOfWeek = 6}},
        {"%u", "7", {.dayOfWeek = 0}},
        {"%j %Y", "60 2024", {.day = 29, .month = 1, .year = 124, .dayOfWeek = 4, .dayOfYear = 59}},
        {"%y", "68", {.year = 168}},
        {"%y", "69", {.year = 69}},
        {"%C", "21", {.year = 200}},
        {"%C", "0", {.year = -1900}},
        {"%C%y", "1999", {.year = 99}},
        {"%y%C", "9919", {.year = 99}},
        {"%Y", "2024", {.year = 124}},
        {"%Y", "0", {.year = -1900}},
        {"%U", "7", {}},
        {"%Y %U", "2024 7", {.year = 124}},
        {"%Y %U %a %Z",
         "2024 1 Wed <UTC-3+x>",
         {.day = 10, .month = 0, .year = 124, .dayOfWeek = 3, .dayOfYear = 9}},
        {"%Y %U %a",
         "2024 1 Wed",
         {.day = 10, .month = 0, .year = 124, .dayOfWeek = 3, .dayOfYear = 9}},
        {"%Y %W %a",
         "2024 1 Wed",
         {.day = 3, .month = 0, .year = 124, .dayOfWeek = 3, .dayOfYear = 2}},
        {"%Y %W %u",
         "2024 53 2",
         {.day = 31, .month = 11, .year = 124, .dayOfWeek = 2, .dayOfYear = 365}},
        {"%F", "2024-02-29", {.day = 29, .month = 1, .year = 124, .dayOfWeek = 4, .dayOfYear = 59}},
        {"%D", "12/31/23", {.day = 31, .month = 11, .year = 123, .dayOfWeek = 0, .dayOfYear = 364}},
        {"%T", "23:59:58", {.second = 58, .minute = 59, .hour = 23}},
        {"%R", "23:59", {.minute = 59, .hour = 23}},
        {"%r", "11:59:58 pm", {.second = 58, .minute = 59, .hour = 23}},
        {"%c",
         "Thu Feb 29 12:34:56 2024",
         {.second = 56,
          .minute = 34,
          .hour = 12,
          .day = 29,
          .month = 1,
          .year = 124,
          .dayOfWeek = 4,
          .dayOfYear = 59}},
        {"%x %X",
         "02/29/24 12:34:56",
         {.second = 56,
          .minute = 34,
          .hour = 12,
          .day = 29,
          .month = 1,
          .year = 124,
          .dayOfWeek = 4,
          .dayOfYear = 59}},
        {"%Ey %Om", "24 2", {.month = 1, .year = 124}},
        {"a%%b%n%t%d", "a%b \n\t 7", {.day = 7}},
        {"%d  %m", "1\t\n2", {.day = 1, .month = 1}},
        {"%Y-%m-%d",
         "1970-01-01",
         {.day = 1, .month = 0, .year = 70, .dayOfWeek = 4, .dayOfYear = 0}},
        {"%Y-%m-%d",
         "1-1-1",
         {.day = 1, .month = 0, .year = -1899, .dayOfWeek = 1, .dayOfYear = 0}},
    };
    Codeset const cs("UTF-8");
    for (Case const& c : cases) {
        SCOPED_TRACE(c.format);
        SCOPED_TRACE(c.text);
        struct tm time = unset();
        GuardedBytes const text(c.text + std::string(1, '\0'));
        GuardedBytes const format(c.format + std::string(1, '\0'));
        char const* const end = qvr_strptime(cs, nullptr, text, format, &time);
        EXPECT_EQ(text + std::strlen(c.text), end);
        EXPECT_EQ(c.expected, fields(time));
    }
}

TEST(qvrTime, AMismatchChangesNothing)
{
    struct Case {
        char const* format;
        char const* text;
    };
    Case const cases[] = {
        {"%d", ""},
        {"%d", "x"},
        {"%d", "0"},
        {"%d", "-1"},
        {"%d", "+1"},
        {"%d", "\u0661"},
        {"%m", "0"},
        {"%m", "x"},
        {"%H", "x"},
        {"%I", "0"},
        {"%M", "x"},
        {"%b", "Foo"},
        {"%b", ""},
        {"%a", "Xyz"},
        {"%a", "January"},
        {"%b", "am"},
        {"%p", "xm"},
        {"%d %m", "12"},
        {"%d-%m", "1/2"},
        {"%d.", "1"},
        {"x", "y"},
        {"x", ""},
        {"%%", "x"},
        {"%Q", "1"},
        {"%", "%"},
        {"%E", "1"},
        {"%Z", " UTC"},
        {"%Z", ""},
        {"%j", "0"},
        {"%j", "367"},
        {"%j %Y", "366 2023"},
        {"%u", "0"},
        {"%w", "7"},
        {"%y", "x"},
        {"%Y %W %w", "2024 0 0"},
        {"%Y %W %u", "2024 53 3"},
        {"%Y %W %u", "2023 53 1"},
        {"%z", "x"},
        {"%z", "+"},
        {"%z", "+1"},
        {"%z", "+013"},
        {"%z", "+25"},
        {"%z", "+01:"},
        {"%z", "+0160"},
        {"%s", "x"},
        {"%s", "99999999999999999999"},
        {"%s", "9223372036854775808"},
        {"%s", "9223372036854775807"},
        {"%H:%M", "12:\xFF"},
        {"%H\xFF", "12\xFF"},
        {"%H%\xFF", "12"},
        {"%H%E\xFF", "12"},
        {"%d%d", "12\xC3"},
    };
    Codeset const cs("UTF-8");
    for (Case const& c : cases) {
        SCOPED_TRACE(c.format + std::string(" and ") + c.text);
        struct tm time;
        std::memset(&time, 0x5A, sizeof time);
        struct tm const before = time;
        EXPECT_EQ(nullptr, qvr_strptime(cs, nullptr, c.text, c.format, &time));
        EXPECT_EQ(0, std::memcmp(&before, &time, sizeof time));
    }
}

TEST(qvrTime, ParsesAsFarAsTheFormatReaches)
{
    Codeset const cs("UTF-8");
    struct tm time = {};
    char const text[] = "12:34 and more";
    EXPECT_STREQ(" and more", qvr_strptime(cs, nullptr, text, "%H:%M", &time));
    EXPECT_STREQ("and more", qvr_strptime(cs, nullptr, text, "%H:%M ", &time));
    EXPECT_STREQ(text, qvr_strptime(cs, nullptr, text, "", &time));
    EXPECT_STREQ("5", qvr_strptime(cs, nullptr, "45", "%d", &time)) << "45 is no day";
    EXPECT_EQ(4, time.tm_mday);
    EXPECT_STREQ("ust", qvr_strptime(cs, nullptr, "Augustust", "%b", &time)) << "longest name";
}

TEST(qvrTime, ZonesAndSeconds)
{
    struct Case {
        char const* text;
        long offset;
    };
    Case const cases[] = {{"Z", 0},          {"+0000", 0},      {"+01", 3600},     {"+0130", 5400},
                          {"-0800", -28800}, {"+05:45", 20700}, {"-14:00", -50400}};
    Codeset const cs("UTF-8");
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        struct tm time = unset();
        EXPECT_STREQ("", qvr_strptime(cs, nullptr, c.text, "%z", &time));
        EXPECT_EQ(c.offset, time.tm_gmtoff);
    }
    for (long const seconds : {0L, 1L, 951782400L, 2147483648L}) {
        time_t const moment = seconds;
        struct tm expected;
        localtime_r(&moment, &expected);
        struct tm time = unset();
        EXPECT_STREQ("", qvr_strptime(cs, nullptr, std::to_string(seconds).c_str(), "%s", &time));
        EXPECT_EQ(fields(expected), fields(time));
        EXPECT_STREQ(
            "", qvr_strptime(cs, nullptr, (" \t" + std::to_string(seconds)).c_str(), "%s", &time));
        EXPECT_EQ(fields(expected), fields(time));
    }
}

TEST(qvrTime, EveryDayOfFourHundredYearsIsFound)
{
    Codeset const cs("US-ASCII");
    for (time_t day = -25567; day < 146097 - 25567; ++day) {
        time_t const moment = day * 86400;
        struct tm expected;
        gmtime_r(&moment, &expected);
        char text[64];
        strftime(text, sizeof text, "%Y-%m-%d", &expected);
        struct tm time = unset();
        if (qvr_strptime(cs, nullptr, text, "%F", &time) == nullptr ||
            time.tm_wday != expected.tm_wday || time.tm_yday != expected.tm_yday)
            ADD_FAILURE() << text;
        strftime(text, sizeof text, "%Y %j", &expected);
        if (qvr_strptime(cs, nullptr, text, "%Y %j", &time) == nullptr ||
            time.tm_mon != expected.tm_mon || time.tm_mday != expected.tm_mday ||
            time.tm_wday != expected.tm_wday)
            ADD_FAILURE() << text;
        for (char const* const format : {"%Y %U %w", "%Y %W %u"}) {
            strftime(text, sizeof text, format, &expected);
            time = unset();
            if (qvr_strptime(cs, nullptr, text, format, &time) == nullptr ||
                time.tm_yday != expected.tm_yday || time.tm_mday != expected.tm_mday)
                ADD_FAILURE() << text << " as " << format;
        }
    }
}

// Passes the same string and format to the C library. The formats omit its differences: a day of
// the week computed for an incomplete date, %C after %Y, the modifiers, and zone names.
TEST(qvrTime, AgreesWithTheCLibraryOverGeneratedFormats)
{
    char const* const conversions[] = {"%H", "%M", "%S", "%d", "%e", "%m", "%b", "%B",
                                       "%y", "%Y", "%I", "%p", "%T", "%R", "%D", "%F",
                                       "%c", "%x", "%X", "%r", "%%", "%n", " ",  "  ",
                                       "-",  "/",  ":",  "x",  "%t", "%k", "%l", "%j"};
    Codeset const cs("US-ASCII");
    locale_t const c = newlocale(LC_ALL_MASK, "C", nullptr);
    unsigned const seed = 31107;
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    size_t matched = 0;
    for (int run = 0; run < 100000; ++run) {
        std::string format;
        bool wholeDate = false;
        bool dayOfYear = false;
        for (unsigned n = 1 + random() % 5; n > 0; --n) {
            std::string const conversion = conversions[random() % std::size(conversions)];
            format += conversion;
            wholeDate = wholeDate || conversion == "%F" || conversion == "%D" || conversion == "%x";
            dayOfYear = dayOfYear || conversion == "%j";
        }
        time_t const moment = static_cast<time_t>(random()) + 86400 * (random() % 20000L);
        struct tm source;
        gmtime_r(&moment, &source);
        char text[256] = {};
        strftime_l(text, sizeof text, format.c_str(), &source, c);
        if (random() % 3 == 0 && text[0] != 0)
            text[random() % std::strlen(text)] = "0 9:x-/\n"[random() % 8];
        struct tm ours = {};
        struct tm theirs = {};
        char const* const end = qvr_strptime(cs, nullptr, text, format.c_str(), &ours);
        char const* const theirEnd = strptime_l(text, format.c_str(), &theirs, c);
        SCOPED_TRACE("\"" + format + "\" and \"" + text + '"');
        if (end == nullptr && theirEnd != nullptr && dayOfYear)
            continue;  // a day that the year does not have
        ASSERT_EQ(theirEnd == nullptr ? -1 : theirEnd - text, end == nullptr ? -1 : end - text);
        if (end == nullptr)
            continue;
        ++matched;
        // For an incomplete date the C library still computes the rest.
        if (!wholeDate || dayOfYear)
            ours.tm_wday = theirs.tm_wday = ours.tm_yday = theirs.tm_yday = 0;
        if (dayOfYear)
            ours.tm_mon = theirs.tm_mon = ours.tm_mday = theirs.tm_mday = 0;
        ASSERT_EQ(fields(theirs), fields(ours));
    }
    EXPECT_LT(20000u, matched);
    std::printf("%zu of 100000 texts were read\n", matched);
    freelocale(c);
}

// In the locale of the test: the operating system's output parses back.
TEST(qvrTime, NamesOfTheLocaleAreReadInItsCodeset)
{
    std::string const before = setlocale(LC_ALL, nullptr);
    setlocale(LC_ALL, "");
    {
        Codeset const cs(nl_langinfo(CODESET));
        Locale const loc(setlocale(LC_TIME, nullptr));
        ASSERT_NE(nullptr, qvr_loc_t(loc));
        for (char const* const format :
             {"%a %d %b %Y", "%A, %d. %B %Y", "%d %h %Y", "%x", "%c", "%r"}) {
            for (int month = 0; month < 12; ++month) {
                struct tm source = {};
                source.tm_sec = 56;
                source.tm_min = 34;
                source.tm_hour = 1 + month;
                source.tm_mday = 3 + month;
                source.tm_mon = month;
                source.tm_year = 124;
                time_t const moment = timegm(&source);
                gmtime_r(&moment, &source);
                char text[256];
                ASSERT_NE(0u, strftime(text, sizeof text, format, &source));
                SCOPED_TRACE(text);
                struct tm time = source;
                time.tm_mon = time.tm_mday = 1;
                char const* const end = qvr_strptime(cs, loc, text, format, &time);
                ASSERT_NE(nullptr, end);
                EXPECT_STREQ("", end);
                if (std::strcmp(format, "%r") != 0) {
                    EXPECT_EQ(month, time.tm_mon);
                    EXPECT_EQ(source.tm_mday, time.tm_mday);
                }
            }
        }
    }
    setlocale(LC_ALL, before.c_str());
}

TEST(qvrTime, EnglishNamesReplaceThoseOfAMissingLocale)
{
    Codeset const cs("UTF-8");
    Locale const loc("vo_XX.UTF-8");
    ASSERT_NE(nullptr, qvr_loc_t(loc));
    struct tm time = {};
    EXPECT_STREQ("", qvr_strptime(cs, loc, "Monday 1 March", "%A %d %B", &time));
    EXPECT_EQ(2, time.tm_mon);
}

TEST(qvrTime, TextAndFormatAreInTheCodeset)
{
    Codeset const ebcdic("IBM-1047");
    std::string const format = fromUtf8(ebcdic, "%d %b %Y");
    std::string const text = fromUtf8(ebcdic, "29 feb 2024!");
    struct tm time = {};
    char const* const end = qvr_strptime(ebcdic, nullptr, text.c_str(), format.c_str(), &time);
    ASSERT_NE(nullptr, end);
    EXPECT_EQ(text.c_str() + text.size() - 1, end);
    EXPECT_EQ(1, time.tm_mon);
    Codeset const eucJp("EUC-JP");
    std::string const japanese = fromUtf8(eucJp, "2024\u5e743\u67081\u65e5");
    EXPECT_STREQ("", qvr_strptime(eucJp, nullptr, japanese.c_str(),
                                  fromUtf8(eucJp, "%Y\u5e74%m\u6708%d\u65e5").c_str(), &time));
    EXPECT_EQ(2, time.tm_mon);
}

}  // namespace
