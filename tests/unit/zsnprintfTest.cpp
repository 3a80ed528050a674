// Formatting: every conversion, buffers, wide text, threads.
#include <Z/zsnprintf.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <locale.h>
#include <qvr.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "FormattedText.h"
#include "GuardedBytes.h"
#include "GuardedRoom.h"

// Ordinary use.

TEST(zsnprintf, WritesEachConversion)
{
    EXPECT_EQ("", text(""));
    EXPECT_EQ("nothing else", text("nothing else"));
    EXPECT_EQ("x", text("%c", 'x'));
    EXPECT_EQ("abc", text("%s", "abc"));
    EXPECT_EQ("-12", text("%hd", -12));
    EXPECT_EQ("-12", text("%hi", 0x1FFF4));
    EXPECT_EQ("65524", text("%hu", -12));
    EXPECT_EQ("fff4", text("%hx", -12));
    EXPECT_EQ("FFF4", text("%hX", -12));
    EXPECT_EQ("177764", text("%ho", -12));
    EXPECT_EQ("-2147483648", text("%d", INT_MIN));
    EXPECT_EQ("2147483647", text("%i", INT_MAX));
    EXPECT_EQ("4294967295", text("%u", UINT_MAX));
    EXPECT_EQ("37777777777", text("%o", UINT_MAX));
    EXPECT_EQ("deadbeef", text("%x", 0xDEADBEEFu));
    EXPECT_EQ("DEADBEEF", text("%X", 0xDEADBEEFu));
    EXPECT_EQ("-9223372036854775808", text("%ld", LONG_MIN));
    EXPECT_EQ("9223372036854775807", text("%li", LONG_MAX));
    EXPECT_EQ("18446744073709551615", text("%lu", ULONG_MAX));
    EXPECT_EQ("1777777777777777777777", text("%lo", ULONG_MAX));
    EXPECT_EQ("ffffffffffffffff", text("%lx", ULONG_MAX));
    EXPECT_EQ("FFFFFFFFFFFFFFFF", text("%lX", ULONG_MAX));
    for (char const* format : {"%lld", "%lli", "%Ld", "%Li", "%qd", "%qi"})
        EXPECT_EQ("-9223372036854775808", text(format, LLONG_MIN)) << format;
    for (char const* format : {"%llu", "%Lu", "%qu"})
        EXPECT_EQ("18446744073709551615", text(format, ULLONG_MAX)) << format;
    for (char const* format : {"%llx", "%Lx", "%qx"})
        EXPECT_EQ("fedcba9876543210", text(format, 0xFEDCBA9876543210ull)) << format;
    for (char const* format : {"%llX", "%LX", "%qX"})
        EXPECT_EQ("FEDCBA9876543210", text(format, 0xFEDCBA9876543210ull)) << format;
    for (char const* format : {"%llo", "%Lo", "%qo"})
        EXPECT_EQ("1777777777777777777777", text(format, ULLONG_MAX)) << format;
    EXPECT_EQ("0x1234", text("%p", reinterpret_cast<void*>(0x1234)));
    EXPECT_EQ("0x7fff12345678abcd", text("%p", reinterpret_cast<void*>(0x7FFF12345678ABCD)));
    EXPECT_EQ(withPoint("1.500000e+00"), text("%e", 1.5));
    EXPECT_EQ(withPoint("1.500000E+00"), text("%E", 1.5));
    EXPECT_EQ(withPoint("1.500000"), text("%f", 1.5));
    EXPECT_EQ(withPoint("1.5"), text("%g", 1.5));
    EXPECT_EQ(withPoint("1.5E-10"), text("%G", 1.5e-10));
    for (char const* format : {"%Le", "%lle", "%qe"})
        EXPECT_EQ(withPoint("1.500000e+4000"), text(format, 1.5e4000L)) << format;
    for (char const* format : {"%LE", "%llE", "%qE"})
        EXPECT_EQ(withPoint("1.500000E+4000"), text(format, 1.5e4000L)) << format;
    for (char const* format : {"%Lf", "%llf", "%qf"})
        EXPECT_EQ(withPoint("1.500000"), text(format, 1.5L)) << format;
    for (char const* format : {"%Lg", "%llg", "%qg"})
        EXPECT_EQ(withPoint("1.5e-4000"), text(format, 1.5e-4000L)) << format;
    for (char const* format : {"%LG", "%llG", "%qG"})
        EXPECT_EQ(withPoint("1.5E-4000"), text(format, 1.5e-4000L)) << format;
    EXPECT_EQ("%", text("%%"));
    EXPECT_EQ("100% of key=42", text("%d%% of %s=%ld", 100, "key", 42L));
}

TEST(zsnprintf, PrintsEveryBitOfTheMachinesTypes)
{
    long double const third = 1.0L / 3;
    char expected[64];
    snprintf(expected, sizeof expected, "%.25Lf", third);
    EXPECT_EQ(expected, text("%.25Lf", third));
    EXPECT_EQ("1099511627776", text("%ld", 1l << 40));
    EXPECT_EQ("0x10000000000", text("%p", reinterpret_cast<void*>(1ul << 40)));
}

TEST(zsnprintf, PadsAndTruncates)
{
    EXPECT_EQ("|   42|", text("|%5d|", 42));
    EXPECT_EQ("|42   |", text("|%-5d|", 42));
    EXPECT_EQ("|00042|", text("|%05d|", 42));
    EXPECT_EQ("|42   |", text("|%-05d|", 42));
    EXPECT_EQ("|42   |", text("|%0-5d|", 42));
    EXPECT_EQ("|+42|", text("|%+d|", 42));
    EXPECT_EQ("| 42|", text("|% d|", 42));
    EXPECT_EQ("|+42|", text("|%+ d|", 42));
    EXPECT_EQ("|-42|", text("|%+d|", -42));
    EXPECT_EQ("|  +42|", text("|%+5d|", 42));
    EXPECT_EQ("|+42  |", text("|%-+5d|", 42));
    EXPECT_EQ("|-0042|", text("|%.4d|", -42));
    EXPECT_EQ("|   -0042|", text("|%8.4d|", -42));
    EXPECT_EQ("||", text("|%.0d|", 0));
    EXPECT_EQ("||", text("|%.d|", 0));
    EXPECT_EQ("|+|", text("|%+.0d|", 0));
    EXPECT_EQ("|0|", text("|%.1d|", 0));
    EXPECT_EQ("|     |", text("|%5.0u|", 0));
    EXPECT_EQ("|  x|", text("|%3c|", 'x'));
    EXPECT_EQ("|x  |", text("|%-3c|", 'x'));
    EXPECT_EQ("|  x|", text("|%03c|", 'x'));
    EXPECT_EQ("|  abc|", text("|%5s|", "abc"));
    EXPECT_EQ("|abc  |", text("|%-5s|", "abc"));
    EXPECT_EQ("|  abc|", text("|%05s|", "abc"));
    EXPECT_EQ("|ab|", text("|%.2s|", "abc"));
    EXPECT_EQ("||", text("|%.0s|", "abc"));
    EXPECT_EQ("||", text("|%.s|", "abc"));
    EXPECT_EQ("|abc|", text("|%.9s|", "abc"));
    EXPECT_EQ("|   ab|", text("|%5.2s|", "abc"));
    EXPECT_EQ("|    %|", text("|%5%|"));
    EXPECT_EQ("|%    |", text("|%-5%|"));
    EXPECT_EQ("|    %|", text("|%05%|"));
    EXPECT_EQ("|  255|ff|0xff|0XFF|377|0377|",
              text("|%5u|%x|%#x|%#X|%o|%#o|", 255, 255, 255, 255, 255, 255));
    EXPECT_EQ("|    0xff|0xff    |0x0000ff|", text("|%#8x|%-#8x|%#08x|", 255, 255, 255));
    EXPECT_EQ("|  0x00ff|", text("|%#8.4x|", 255));
    EXPECT_EQ("|0377|00377|0|", text("|%#.3o|%#.5o|%#o|", 255, 255, 0));
    EXPECT_EQ("|0x0000001234|", text("|%12p|", reinterpret_cast<void*>(0x1234)));
    EXPECT_EQ("|0x00001234|", text("|%.8p|", reinterpret_cast<void*>(0x1234)));
    EXPECT_EQ(withPoint("| 3.14|"), text("|%5.2f|", 3.14159));
    EXPECT_EQ(withPoint("|3.14 |"), text("|%-5.2f|", 3.14159));
    EXPECT_EQ(withPoint("|-0003.500000|"), text("|%012f|", -3.5));
    EXPECT_EQ("|   inf|  -inf|", text("|%6f|%06f|", HUGE_VAL, -HUGE_VAL));
}

TEST(zsnprintf, ReadsWidthAndPrecisionFromArguments)
{
    EXPECT_EQ("   42", text("%*d", 5, 42));
    EXPECT_EQ("42   ", text("%-*d", 5, 42));
    EXPECT_EQ("00042", text("%.*d", 5, 42));
    EXPECT_EQ("  00042", text("%*.*d", 7, 5, 42));
    EXPECT_EQ("  ab", text("%*.*s", 4, 2, "abc"));
    EXPECT_EQ(withPoint("  3.14"), text("%*.*f", 6, 2, 3.14159));
    EXPECT_EQ("x  7|", text("%c%*d%c", 'x', 3, 7, '|'));
    EXPECT_EQ("    %", text("%*%", 5));
    // A negative precision is treated as not given.
    EXPECT_EQ("abc", text("%.*s", -1, "abc"));
    EXPECT_EQ("0", text("%.*d", -1, 0));
    EXPECT_EQ("0x0", text("%.*p", INT_MIN, nullptr));
    EXPECT_EQ(withPoint("0.500000"), text("%.*f", -7, 0.5));
    EXPECT_EQ(withPoint("0.5"), text("%.*g", INT_MIN, 0.5));
}

TEST(zsnprintf, ReadsArgumentsByNumber)
{
    EXPECT_EQ("b a", text("%2$s %1$s", "a", "b"));
    EXPECT_EQ("a a a", text("%1$s %1$s %1$s", "a"));
    EXPECT_EQ("7 x 3", text("%3$d %2$c %1$ld", 3L, 'x', 7));
    EXPECT_EQ("   42", text("%2$*1$d", 5, 42));
    EXPECT_EQ("00042", text("%1$.*2$d", 42, 5));
    EXPECT_EQ("  ab", text("%3$*1$.*2$s", 4, 2, "abc"));
    EXPECT_EQ("42", text("%001$d", 42));
    EXPECT_EQ("00042", text("%1$05d", 42));
    EXPECT_EQ(withPoint("0.5 7"), text("%2$g %1$d", 7, 0.5));
    EXPECT_EQ(withPoint("0.5 0.25"), text("%2$Lg %1$g", 0.25, 0.5L));
    // Conversions without a number count separately.
    EXPECT_EQ("b a c", text("%2$s %s %3$s", "a", "b", "c"));
    EXPECT_EQ("b a b", text("%2$s %s %s", "a", "b"));
    EXPECT_EQ("    5", text("%*1$d", 5));
    // A percent sign uses no argument, but the argument that it numbers must exist.
    EXPECT_EQ("% 7", text("%1$% %1$d", 7));
}

TEST(zsnprintf, SharesAnArgumentBetweenSignedAndUnsigned)
{
    EXPECT_EQ("-1 4294967295 ffffffff", text("%1$d %1$u %1$x", -1));
    EXPECT_EQ("4294967295 -1", text("%1$u %1$d", -1));
    EXPECT_EQ("-1 65535", text("%1$hd %1$hu", -1));
    EXPECT_EQ("65535 -1", text("%1$hu %1$hd", -1));
    EXPECT_EQ("-1 ffffffffffffffff", text("%1$ld %1$lx", -1L));
    EXPECT_EQ("18446744073709551615 -1", text("%1$llu %1$lld", -1LL));
    EXPECT_EQ(withPoint("0.500000 0.5 5.000000e-01"), text("%1$f %1$g %1$e", 0.5));
    EXPECT_EQ(withPoint("0.500000 0.5 5.000000e-01"), text("%1$Lf %1$Lg %1$Le", 0.5L));
    EXPECT_EQ("  3 3", text("%1$*1$d %1$d", 3));
    EXPECT_EQ("  3", text("%1$*1$u", 3));
}

TEST(zsnprintf, FetchesEachOfManyArgumentsOnce)
{
    EXPECT_EQ("1 2 3 4 5 6 7 8 9", text("%d %d %d %d %d %d %d %d %d", 1, 2, 3, 4, 5, 6, 7, 8, 9));
    EXPECT_EQ("1 2 3 4 5 6 7 8 9 10",
              text("%d %d %d %d %d %d %d %d %d %d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
    EXPECT_EQ("1 2 3 4 5 6 7 8 9 10 11",
              text("%d %d %d %d %d %d %d %d %d %d %d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11));
    EXPECT_EQ(
        "1 two 3 4,5 6 seven 8 9 10 11 12 thirteen 14 15 16 17 18 19 20 21 22",
        text("%d %s %ld %d,%d %d %s %d %d %d %d %d %s %d %d %d %d %d %d %d %d %d", 1, "two", 3L, 4,
             5, 6, "seven", 8, 9, 10, 11, 12, "thirteen", 14, 15, 16, 17, 18, 19, 20, 21, 22));
    EXPECT_EQ("11 10 9 8 7 6 5 4 3 2 1",
              text("%11$d %10$d %9$d %8$d %7$d %6$d %5$d %4$d %3$d %2$d %1$d", 1, 2, 3, 4, 5, 6, 7,
                   8, 9, 10, 11));
    EXPECT_EQ("%%%%%%%%%%%%", text("%%%%%%%%%%%%%%%%%%%%%%%%"));
    // Three conversions with nine arguments, then with ten.
    EXPECT_EQ("  1  2  3", text("%*.*d%*.*d%*.*d", 3, 1, 1, 3, 1, 2, 3, 1, 3));
    EXPECT_EQ("  1  2  34", text("%*.*d%*.*d%*.*d%d", 3, 1, 1, 3, 1, 2, 3, 1, 3, 4));
}

TEST(zsnprintf, PadsPointsOfSeveralBytesAsThePlatformDoes)
{
    LocaleOfLongPoint const locale;
    if (!locale.isThere())
        GTEST_SKIP() << "the locale is not installed";
    EXPECT_EQ("0\xD9\xAB", text("%#.0f", 0.0));
    char expected[1024];
    for (char const* format : {"%f", "%12.2f|", "%-12.2f|", "%012f", "%+12g", "%'18.2f|",
                               "%-'18.1f|", "%#12.0f", "%12.3e", "%'f", "%60.45f", "%-500.450f|"}) {
        for (double const value : {0.5, -1234567.25, 0.0, HUGE_VAL}) {
            snprintf(expected, sizeof expected, format, value);
            EXPECT_EQ(expected, text(format, value)) << format;
        }
    }
    for (char const* format : {"%12.2Lf|", "%'600.500Lf|"}) {
        snprintf(expected, sizeof expected, format, 1234567.25L);
        EXPECT_EQ(expected, text(format, 1234567.25L)) << format;
    }
    char buffer[8];
    EXPECT_EQ(INT_MAX, zsnprintf_6_0(buffer, sizeof buffer, "%2147483646f", 0.5));
    EXPECT_STREQ("       ", buffer);
}

// Buffers.

TEST(zsnprintf, TruncatesAtTheCapacity)
{
    char buffer[8] = "~~~~~~~";
    EXPECT_EQ(8, zsnprintf_6_0(buffer, 5, "%s", "abcdefgh"));
    EXPECT_STREQ("abcd", buffer);
    EXPECT_EQ('~', buffer[5]);
    EXPECT_EQ(3, zsnprintf_6_0(nullptr, 0, "%d", 123));
    EXPECT_EQ(3, zsnprintf_6_0(nullptr, 10, "%d", 123));
    EXPECT_EQ(3, zsnprintf_6_0(buffer, 0, "%d", 123));
    EXPECT_EQ(3, zsnprintf_6_0(buffer, -1, "%d", 123));
    EXPECT_EQ(3, zsnprintf_6_0(buffer, INT_MIN, "%d", 123));
    EXPECT_STREQ("abcd", buffer);
    EXPECT_EQ(3, zsnprintf_6_0(buffer, 1, "%d", 123));
    EXPECT_STREQ("", buffer);
}

TEST(zsnprintf, WritesNothingPastTheCapacityForAnyConversion)
{
    GuardedRoom guarded(64);
    uint16_t const wide[] = {'w', 'i', 'd', 'e', 0};
    struct Case {
        char const* format;
        bool isReal;
    };
    Case const cases[] = {
        {"literal text that is longer than any buffer in this test, 64 bytes at most", false},
        {"%d", false},
        {"a%30db", false},
        {"a%-30db", false},
        {"%030d", false},
        {"%.40d", false},
        {"%#40x", false},
        {"%#040x", false},
        {"%-#40x", false},
        {"%p", false},
        {"%60p", false},
        {"%c", false},
        {"%40c", false},
        {"%-40c|", false},
        {"%%%40%", false},
        {"%f", true},
        {"%.50f", true},
        {"%50.20e", true},
        {"%-50g|", true},
        {"%050f", true},
        {"%'.3f", true},
        {"%#.0f", true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.format);
        auto const format = [&](char* out, int size) {
            return c.isReal ? zsnprintf_6_0(out, size, c.format, -12345.678)
                            : zsnprintf_6_0(out, size, c.format, 12345);
        };
        char whole[256];
        int const length = format(whole, sizeof whole);
        ASSERT_LT(0, length);
        for (int size = 0; size <= 64; ++size) {
            char* const out = guarded.last(static_cast<size_t>(size));
            ASSERT_EQ(length, format(out, size)) << size;
            if (size > 0) {
                ASSERT_EQ(std::string(whole).substr(0, static_cast<size_t>(size) - 1), out) << size;
            }
        }
    }
    for (int size = 0; size <= 64; ++size) {
        char* out = guarded.last(static_cast<size_t>(size));
        EXPECT_EQ(12, zsnprintf_6_0(out, size, "%10S%C%s", wide, 'x', "y"));
        if (size > 0) {
            EXPECT_EQ(std::string("      widexy").substr(0, static_cast<size_t>(size) - 1), out);
        }
        out = guarded.last(static_cast<size_t>(size));
        EXPECT_EQ(13, zsnprintf_6_0(out, size, "%-10S|%s", wide, "yz"));
        if (size > 0) {
            EXPECT_EQ(std::string("wide      |yz").substr(0, static_cast<size_t>(size) - 1), out);
        }
    }
}

TEST(zsnprintf, ReadsNoStringPastItsPrecision)
{
    GuardedBytes const bytes("abcd");
    char const* const narrow = bytes;
    EXPECT_EQ("abcd", text("%.4s", narrow));
    EXPECT_EQ("ab", text("%.*s", 2, narrow));
    EXPECT_EQ("   abcd", text("%7.4s", narrow));
    uint16_t const units[] = {'w', 'x', 'y'};
    GuardedBytes const wideBytes(std::string(reinterpret_cast<char const*>(units), sizeof units));
    void const* const wide = static_cast<char const*>(wideBytes);
    EXPECT_EQ("wxy", text("%.3S", wide));
    EXPECT_EQ("    wx", text("%6.2S", wide));
}

TEST(zsnprintf, HandlesHugeWidthsByArithmetic)
{
    char buffer[8];
    EXPECT_EQ(INT_MAX, zsnprintf_6_0(buffer, sizeof buffer, "%2147483647d", 1));
    EXPECT_STREQ("       ", buffer);
    EXPECT_EQ(INT_MAX, zsnprintf_6_0(buffer, sizeof buffer, "%-2147483647d", 1));
    EXPECT_STREQ("1      ", buffer);
    EXPECT_EQ(INT_MAX, zsnprintf_6_0(buffer, sizeof buffer, "%.2147483647d", 1));
    EXPECT_STREQ("0000000", buffer);
    EXPECT_EQ(INT_MAX, zsnprintf_6_0(buffer, sizeof buffer, "%2147483647s", "a"));
    EXPECT_EQ(INT_MAX, zsnprintf_6_0(buffer, sizeof buffer, "%2147483647f", 1.0));
    EXPECT_STREQ("       ", buffer);
    EXPECT_EQ(INT_MAX, zsnprintf_6_0(buffer, sizeof buffer, "%.2147483645f", 1.0));
    EXPECT_EQ(INT_MAX, zsnprintf_6_0(buffer, sizeof buffer, "%-*f", INT_MAX, 1.0));
    EXPECT_EQ(INT_MAX, zsnprintf_6_0(buffer, sizeof buffer, "%*f", -INT_MAX, 1.0));
    EXPECT_EQ(2, zsnprintf_6_0(buffer, sizeof buffer, "%.2147483647g", 10.0));
    EXPECT_STREQ("10", buffer);
    EXPECT_EQ(1000006, zsnprintf_6_0(buffer, sizeof buffer, "%.1000000e", 1.0));
    EXPECT_EQ(1000001, zsnprintf_6_0(buffer, sizeof buffer, "%#.1000000g", 1.0));
}

TEST(zsnprintf, FailsAboveTheLargestLength)
{
    EXPECT_EQ(-1, zsnprintf_6_0(nullptr, 0, "%2147483647d%d", 1, 1));
    EXPECT_EQ(-1, zsnprintf_6_0(nullptr, 0, "x%2147483647d", 1));
    EXPECT_EQ(-1, zsnprintf_6_0(nullptr, 0, "%2147483647dx", 1));
    EXPECT_EQ(-1, zsnprintf_6_0(nullptr, 0, "%.2147483647d", -1));
    EXPECT_EQ(-1, zsnprintf_6_0(nullptr, 0, "%#.2147483647x", 1));
    EXPECT_EQ(-1, zsnprintf_6_0(nullptr, 0, "%.2147483647f", 1.0));
    EXPECT_EQ(-1, zsnprintf_6_0(nullptr, 0, "%*f", INT_MIN, 1.0));
    char buffer[4] = "~~~";
    EXPECT_EQ(-1, zsnprintf_6_0(buffer, sizeof buffer, "ab%2147483647d", 1));
    EXPECT_STREQ("ab", buffer);
    char* result = buffer;
    EXPECT_EQ(-1, zasprintf_6_0(&result, "%2147483647d%d", 1, 1));
    EXPECT_EQ(nullptr, result);
}

// Wide text.

TEST(zsnprintf, ConvertsWideTextToTheLocalCodeset)
{
    struct Case {
        char const* codeset;
        uint16_t unit;
        char const* bytes;  // null if the codeset lacks the character
    };
    Case const cases[] = {
        {"ANSI_X3.4-1968", 'a', "a"},
        {"ANSI_X3.4-1968", 0xE9, nullptr},
        {"ANSI_X3.4-1968", 0x3042, nullptr},
        {"UTF-8", 'a', "a"},
        {"UTF-8", 0xE9, "\xC3\xA9"},
        {"UTF-8", 0x3042, "\xE3\x81\x82"},
        {"UTF-8", 0xFFFD, "\xEF\xBF\xBD"},
        {"UTF-8", 0xD800, nullptr},
        {"UTF-8", 0xDC00, nullptr},
        {"ISO-8859-1", 'a', "a"},
        {"ISO-8859-1", 0xE9, "\xE9"},
        {"ISO-8859-1", 0x3042, nullptr},
        {"EUC-JP", 'a', "a"},
        {"EUC-JP", 0x3042, "\xA4\xA2"},
        {"EUC-JP", 0xE9, "\x8F\xAB\xB1"},
        {"EUC-JP", 0x0E01, nullptr},
    };
    int rows = 0;
    for (Case const& c : cases) {
        if (!localCodesetIs(c.codeset))
            continue;
        SCOPED_TRACE(c.unit);
        ++rows;
        uint16_t const wide[] = {'<', c.unit, '>', 0};
        if (c.bytes == nullptr) {
            EXPECT_EQ(kFailure, text("%S", wide));
            EXPECT_EQ(kFailure, text("%9S", wide));
            EXPECT_EQ(kFailure, text("%C", c.unit));
            char buffer[8] = "~~~~~~~";
            EXPECT_EQ(-1, zsnprintf_6_0(buffer, sizeof buffer, "ab%S", wide));
            EXPECT_STREQ("ab", buffer);
            EXPECT_EQ(-1, zsnprintf_6_0(nullptr, 0, "%S", wide));
            // Characters past the precision are not converted.
            EXPECT_EQ("<", text("%.1S", wide));
            continue;
        }
        std::string const bytes = c.bytes;
        EXPECT_EQ("<" + bytes + ">", text("%S", wide));
        EXPECT_EQ(bytes, text("%C", c.unit));
        EXPECT_EQ(std::string(9 - bytes.size() - 2, ' ') + "<" + bytes + ">", text("%9S", wide));
        EXPECT_EQ("<" + bytes + ">" + std::string(9 - bytes.size() - 2, ' '), text("%-9S", wide));
        EXPECT_EQ(std::string(5 - bytes.size(), ' ') + bytes + "|", text("%5C|", c.unit));
        EXPECT_EQ(bytes + std::string(5 - bytes.size(), ' ') + "|", text("%-5C|", c.unit));
        for (size_t limit = 0; limit < 8; ++limit) {
            std::string const expected = limit < 1                  ? ""
                                         : limit < 1 + bytes.size() ? "<"
                                         : limit < 2 + bytes.size() ? "<" + bytes
                                                                    : "<" + bytes + ">";
            EXPECT_EQ(expected, text("%.*S", static_cast<int>(limit), wide)) << limit;
        }
    }
    EXPECT_LT(0, rows) << zgetLocalCodesetName_6_0();
}

TEST(zsnprintf, TruncatesWideStringsBetweenCharacters)
{
    bool const isUTF8 = localCodesetIs("UTF-8");
    if (!isUTF8 && !localCodesetIs("EUC-JP"))
        GTEST_SKIP() << "no long characters in this codeset";
    size_t const bytesPerCharacter = isUTF8 ? 3 : 2;
    uint16_t const wide[] = {0x3042, 0x3044, 0};
    std::string const whole = text("%S", wide);
    ASSERT_EQ(2 * bytesPerCharacter, whole.size());
    GuardedRoom guarded(64);
    for (size_t size = 1; size <= whole.size() + 2; ++size) {
        size_t const fitting = std::min(size - 1, whole.size()) / bytesPerCharacter;
        char* out = guarded.last(size);
        EXPECT_EQ(static_cast<int>(whole.size()) + 1,
                  zsnprintf_6_0(out, static_cast<int>(size), "%S|", wide));
        std::string expected = whole.substr(0, fitting * bytesPerCharacter);
        if (fitting == 2 && size == whole.size() + 2)
            expected += "|";
        EXPECT_EQ(expected, out) << size;
        out = guarded.last(size);
        EXPECT_EQ(static_cast<int>(bytesPerCharacter),
                  zsnprintf_6_0(out, static_cast<int>(size), "%C", 0x3042));
        EXPECT_EQ(size > bytesPerCharacter ? whole.substr(0, bytesPerCharacter) : "", out) << size;
    }
    // A narrow string is truncated at any byte.
    char buffer[3];
    zsnprintf_6_0(buffer, sizeof buffer, "x%s", whole.c_str());
    EXPECT_EQ("x" + whole.substr(0, 1), buffer);
}

TEST(zsnprintf, UsesSixteenBitsOfAWideCharacter)
{
    EXPECT_EQ("a", text("%C", 0x10061));
    EXPECT_EQ(std::string(1, '\0'), text("%C", 0));
    EXPECT_EQ("", text("%S", nullptr));
    EXPECT_EQ("   ", text("%3S", nullptr));
}

TEST(zsnprintf, NeedsNoCodesetForNarrowText)
{
    ZPrintfContext_6_0 context;
    auto const parse = [&](char const* format, ...) {
        va_list args;
        va_start(args, format);
        int const result = zvsnprintf_parse_6_0(&context, nullptr, format, args);
        va_end(args);
        return result;
    };
    char buffer[16];
    ASSERT_EQ(0, parse("%s%d", "a", 1));
    EXPECT_EQ(2, zvsnprintf_render_6_0(&context, buffer, sizeof buffer));
    zvsnprintf_done_6_0(&context);
    ASSERT_EQ(0, parse("%C", 'a'));
    EXPECT_EQ(-1, zvsnprintf_render_6_0(&context, buffer, sizeof buffer));
    zvsnprintf_done_6_0(&context);
}

// Threads.

TEST(zsnprintf, FormatsInConcurrentThreads)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([i] {
            for (int round = 0; round < 500; ++round) {
                char buffer[64];
                char expected[64];
                int const length = zsnprintf_6_0(buffer, sizeof buffer, "%2$s %1$d %3$.3f", i,
                                                 "thread", round / 8.0);
                snprintf(expected, sizeof expected, "thread %d %.3f", i, round / 8.0);
                EXPECT_EQ(static_cast<int>(strlen(expected)), length);
                EXPECT_STREQ(expected, buffer);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

// Kept behaviours.

TEST(zsnprintf, KeepsZerosBeforeTheSign)
{
    EXPECT_EQ("00-42", text("%05d", -42));
    EXPECT_EQ("00+42", text("%+05d", 42));
    EXPECT_EQ("00 42", text("% 05d", 42));
    EXPECT_EQ("000-9223372036854775808", text("%023ld", LONG_MIN));
}

TEST(zsnprintf, KeepsThePrefixOfZero)
{
    EXPECT_EQ("0x0", text("%#x", 0));
    EXPECT_EQ("0X0", text("%#X", 0));
    EXPECT_EQ("0x0", text("%p", nullptr));
    // The padding does not include it.
    EXPECT_EQ("    0x0", text("%#5x", 0));
    EXPECT_EQ("0x00000", text("%#05x", 0));
    EXPECT_EQ("0x0    ", text("%-#5x", 0));
    EXPECT_EQ("0x00000000", text("%8p", nullptr));
    EXPECT_EQ("0x", text("%#.0x", 0));
    EXPECT_EQ("0x", text("%.0p", nullptr));
    EXPECT_EQ("", text("%#.0o", 0));
}

TEST(zsnprintf, KeepsZerosAfterALeftJustifiedPointer)
{
    EXPECT_EQ("0x12340000|", text("%-10p|", reinterpret_cast<void*>(0x1234)));
    EXPECT_EQ("0x00000000000000001234|", text("%.20p|", reinterpret_cast<void*>(0x1234)));
}

TEST(zsnprintf, KeepsPrecisionClearingTheZeroFlag)
{
    EXPECT_EQ(withPoint("    3.14"), text("%08.2f", 3.14159));
    EXPECT_EQ(withPoint("    3.14"), text("%08.2Lf", 3.14159L));
    EXPECT_EQ("      42", text("%08.*d", -1, 42));
    EXPECT_EQ(withPoint("3.500000").insert(0, 2, ' '), text("%010.*f", -1, 3.5));
}

TEST(zsnprintf, KeepsSignsAndGroupingWithoutEffectOnIntegers)
{
    EXPECT_EQ("1234567", text("%'d", 1234567));
    EXPECT_EQ("1234567", text("%'+ u", 1234567));
    EXPECT_EQ("12d687", text("%+ x", 1234567));
    EXPECT_EQ("4553207", text("%+ o", 1234567));
}

TEST(zsnprintf, KeepsANegativeWidthWithoutEffectExceptOnDoubles)
{
    EXPECT_EQ("42|", text("%*d|", -5, 42));
    EXPECT_EQ("2a|", text("%*x|", -5, 42));
    EXPECT_EQ("ab|", text("%*s|", -5, "ab"));
    EXPECT_EQ("a|", text("%*c|", -5, 'a'));
    EXPECT_EQ("42|", text("%*d|", INT_MIN, 42));
    EXPECT_EQ(withPoint("0.5  |"), text("%*g|", -5, 0.5));
    EXPECT_EQ(withPoint("0.5  |"), text("%-*Lg|", -5, 0.5L));
}

TEST(zsnprintf, KeepsANullStringEmpty)
{
    char const* const none = nullptr;
    EXPECT_EQ("", text("%s", none));
    EXPECT_EQ("   |", text("%3s|", none));
    EXPECT_EQ("   |", text("%-3.2s|", none));
}

TEST(zsnprintf, KeepsASecondZeroAsTheWidth)
{
    EXPECT_EQ("00042", text("%005d", 42));
    EXPECT_EQ("42", text("%00d", 42));
    EXPECT_EQ(kFailure, text("%00+5d", 42));
    EXPECT_EQ("000+42", text("%+006d", 42));
}

TEST(zsnprintf, KeepsLengthsWithoutEffectOnStrings)
{
    EXPECT_EQ("ab", text("%ls", "ab"));
    EXPECT_EQ("ab", text("%hs", "ab"));
    EXPECT_EQ("a", text("%lc", 'a'));
    EXPECT_EQ("0x1234", text("%lp", reinterpret_cast<void*>(0x1234)));
    EXPECT_EQ("%", text("%l%"));
    uint16_t const wide[] = {'w', 0};
    EXPECT_EQ("w", text("%hS", wide));
}
