#include <Z/zqvrutil.h>
#include <Z/zsnprintf.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <locale.h>
#include <qvr.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "FailingAllocator.h"
#include "GuardedBytes.h"
#include "GuardedRoom.h"

namespace {

constexpr char kFailure[] = "<-1>";

// The output of `format`, or kFailure; the same through every entry point.
std::string text(char const* format, ...)
{
    char buffer[4096];
    memset(buffer, '~', sizeof buffer);
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int const length = zvsnprintf_6_0(buffer, sizeof buffer, format, args);
    char* allocated = buffer;
    EXPECT_EQ(length, zvasprintf_6_0(&allocated, format, again));
    va_end(again);
    va_end(args);
    if (length < 0) {
        EXPECT_EQ(-1, length);
        EXPECT_EQ(nullptr, allocated);
        return kFailure;
    }
    EXPECT_GT(static_cast<int>(sizeof buffer), length);
    EXPECT_EQ('\0', buffer[length]);
    std::string const result(buffer, static_cast<size_t>(length));
    EXPECT_EQ(result, std::string(allocated, static_cast<size_t>(length)));
    EXPECT_EQ('\0', allocated[length]);
    zasprintf_free_6_0(allocated);
    return result;
}

// A parsed context, released at the end.
class Parsed {
public:
    explicit Parsed(char const* format, ...)
    {
        va_list args;
        va_start(args, format);
        result_ = zvsnprintf_parse_6_0(&context, zgetLCSHandle_6_0(), format, args);
        va_end(args);
    }
    Parsed(Parsed const&) = delete;
    Parsed& operator=(Parsed const&) = delete;
    ~Parsed()
    {
        if (result_ == 0)
            zvsnprintf_done_6_0(&context);
    }

    int result() const { return result_; }

    std::string render(int size = 4096) const
    {
        std::vector<char> buffer(static_cast<size_t>(size) + 1, '~');
        int const length = zvsnprintf_render_6_0(&context, buffer.data(), size);
        return length < 0 ? kFailure : std::string(buffer.data());
    }

    ZPrintfContext_6_0 context;

private:
    int result_;
};

// `text` with the decimal point of the test's locale.
std::string withPoint(std::string text)
{
    char shown[8];
    snprintf(shown, sizeof shown, "%.1f", 0.5);
    std::replace(text.begin(), text.end(), '.', shown[1]);
    return text;
}

// Sets a locale in the thread whose decimal point and separator have two bytes each, if it is
// installed.
class LocaleOfLongPoint {
public:
    LocaleOfLongPoint()
    {
        zgetLocalCodesetName_6_0();  // is not that of this locale
        if (isThere())
            before_ = uselocale(locale_);
    }
    LocaleOfLongPoint(LocaleOfLongPoint const&) = delete;
    LocaleOfLongPoint& operator=(LocaleOfLongPoint const&) = delete;
    ~LocaleOfLongPoint()
    {
        if (!isThere())
            return;
        uselocale(before_);
        freelocale(locale_);
    }

    bool isThere() const { return locale_ != nullptr; }

private:
    locale_t const locale_ = newlocale(LC_CTYPE_MASK | LC_NUMERIC_MASK, "ps_AF.UTF-8", nullptr);
    locale_t before_ = nullptr;
};

bool localCodesetIs(char const* name)
{
    return strcmp(name, zgetLocalCodesetName_6_0()) == 0;
}

}  // namespace

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

// The contents of a context.

TEST(zsnprintf, RecordsEveryConversion)
{
    struct Case {
        char const* format;
        int32_t type;
        uint32_t flags;
    };
    Case const cases[] = {
        {"%c", 0, 0},          {"%C", 1, 0},          {"%s", 2, 0},          {"%S", 3, 0},
        {"%hd", 4, 0x2000},    {"%hi", 4, 0x2000},    {"%ho", 5, 0x12000},   {"%hu", 5, 0x2000},
        {"%hx", 5, 0x22000},   {"%hX", 5, 0x42000},   {"%d", 6, 0},          {"%i", 6, 0},
        {"%o", 7, 0x10000},    {"%u", 7, 0},          {"%x", 7, 0x20000},    {"%X", 7, 0x40000},
        {"%ld", 8, 0x4000},    {"%li", 8, 0x4000},    {"%lo", 9, 0x14000},   {"%lu", 9, 0x4000},
        {"%lx", 9, 0x24000},   {"%lX", 9, 0x44000},   {"%lld", 10, 0x8000},  {"%Li", 10, 0x8000},
        {"%qd", 10, 0x8000},   {"%llo", 11, 0x18000}, {"%Lu", 11, 0x8000},   {"%qx", 11, 0x28000},
        {"%llX", 11, 0x48000}, {"%p", 12, 0x2000A},   {"%e", 13, 0},         {"%E", 13, 0x80000},
        {"%f", 14, 0},         {"%g", 15, 0},         {"%G", 15, 0x80000},   {"%Le", 16, 0x8000},
        {"%llE", 16, 0x88000}, {"%qe", 16, 0x8000},   {"%Lf", 17, 0x8000},   {"%Lg", 18, 0x8000},
        {"%LG", 18, 0x88000},  {"%%", 19, 0x100000},  {"%#x", 7, 0x20002},   {"%-d", 6, 0x4},
        {"%0d", 6, 0x8},       {"%-0d", 6, 0x4},      {"%0-d", 6, 0x4},      {"% d", 6, 0x10},
        {"%+d", 6, 0x20},      {"%'d", 6, 0x40},      {"%'+ #-d", 6, 0x76},  {"%5d", 6, 0x80},
        {"%05d", 6, 0x88},     {"%005d", 6, 0x88},    {"%.5d", 6, 0x400},    {"%0.5d", 6, 0x400},
        {"%05.5f", 14, 0x480}, {"%.d", 6, 0x400},     {"%5.5ld", 8, 0x4480}, {"%ls", 2, 0x4000},
        {"%hs", 2, 0x2000},    {"%llS", 3, 0x8000},   {"%lc", 0, 0x4000},    {"%lC", 1, 0x4000},
        {"%lp", 12, 0x2400A},  {"%l%", 19, 0x104000},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.format);
        std::string const format = std::string("ab") + c.format + "cd";
        uint16_t const wide[] = {'w', 0};
        Parsed const parsed(format.c_str(), wide);
        ASSERT_EQ(0, parsed.result());
        ASSERT_EQ(1, parsed.context.conversionCount);
        ZPrintfConversion_6_0 const& conversion = parsed.context.conversions[0];
        EXPECT_EQ(format.c_str() + 2, conversion.start);
        EXPECT_EQ(format.c_str() + format.size() - 3, conversion.end);
        EXPECT_EQ(c.type, conversion.type);
        EXPECT_EQ(c.flags, conversion.flags);
        EXPECT_EQ(c.type == 19 ? 0 : 1, conversion.argIndex);
        EXPECT_EQ(c.flags & 0x80 ? 5 : 0, conversion.width);
        EXPECT_EQ(c.flags & 0x400 && format.find(".d") == std::string::npos ? 5 : 0,
                  conversion.precision);
        EXPECT_EQ(zgetLCSHandle_6_0(), parsed.context.codeset);
        EXPECT_EQ(format.c_str(), parsed.context.format);
    }
}

TEST(zsnprintf, RecordsArgumentNumbers)
{
    {
        Parsed const parsed("%*.*d %s %% %-*c", 5, 3, 42, "a", 2, 'x');
        ASSERT_EQ(0, parsed.result());
        ASSERT_EQ(4, parsed.context.conversionCount);
        ZPrintfConversion_6_0 const* const c = parsed.context.conversions;
        EXPECT_EQ(0x900u, c[0].flags);
        EXPECT_EQ(1, c[0].width);
        EXPECT_EQ(2, c[0].precision);
        EXPECT_EQ(3, c[0].argIndex);
        EXPECT_EQ(4, c[1].argIndex);
        EXPECT_EQ(0, c[2].argIndex);
        EXPECT_EQ(0x104u, c[3].flags);
        EXPECT_EQ(5, c[3].width);
        EXPECT_EQ(6, c[3].argIndex);
        EXPECT_EQ(6, parsed.context.argumentCount);
        ZPrintfArgument_6_0 const* const a = parsed.context.arguments;
        EXPECT_EQ(zprintfInt, a[1].type);
        EXPECT_EQ(5, a[1].value.integer);
        EXPECT_EQ(42, a[3].value.integer);
        EXPECT_EQ(zprintfString, a[4].type);
        EXPECT_STREQ("a", static_cast<char const*>(a[4].value.pointer));
        EXPECT_EQ('x', a[6].value.character);
    }
    {
        Parsed const parsed("%3$*1$.*2$d", 5, 3, 42);
        ASSERT_EQ(0, parsed.result());
        ZPrintfConversion_6_0 const& c = parsed.context.conversions[0];
        EXPECT_EQ(0x1B01u, c.flags);
        EXPECT_EQ(3, c.argIndex);
        EXPECT_EQ(1, c.width);
        EXPECT_EQ(2, c.precision);
    }
}

TEST(zsnprintf, StoresArgumentsInTheirOwnSize)
{
    Parsed const parsed("%hd %hu %d %u %ld %lu %lld %llu %c", -1, -1, -1, -1, -1L, -1L, -1LL, -1LL,
                        0x141);
    ASSERT_EQ(0, parsed.result());
    ZPrintfArgument_6_0 const* const a = parsed.context.arguments;
    EXPECT_EQ(-1, a[1].value.integer);
    EXPECT_EQ(0xFFFFu, a[2].value.unsignedInteger);
    EXPECT_EQ(-1, a[3].value.integer);
    EXPECT_EQ(0xFFFFFFFFu, a[4].value.unsignedInteger);
    EXPECT_EQ(-1, a[5].value.integer);
    EXPECT_EQ(ULONG_MAX, a[6].value.unsignedInteger);
    EXPECT_EQ(-1, a[7].value.integer);
    EXPECT_EQ(ULLONG_MAX, a[8].value.unsignedInteger);
    EXPECT_EQ('A', a[9].value.character);
    for (int i = 1; i <= 9; ++i)
        EXPECT_EQ(i == 9 ? 0 : 3 + i, a[i].type);
}

TEST(zsnprintf, MovesToTheHeapAtTheEleventhConversionAndTheTenthArgument)
{
    Parsed const small("%d%d%d%d%d%d%d%d%d%%", 1, 2, 3, 4, 5, 6, 7, 8, 9);
    ASSERT_EQ(0, small.result());
    EXPECT_EQ(small.context.inlineConversions, small.context.conversions);
    EXPECT_EQ(small.context.inlineArguments, small.context.arguments);
    Parsed const more("%d%d%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10);
    ASSERT_EQ(0, more.result());
    EXPECT_EQ(more.context.inlineConversions, more.context.conversions);
    EXPECT_NE(more.context.inlineArguments, more.context.arguments);
    Parsed const most("%d%d%d%d%d%d%d%d%d%%%%", 1, 2, 3, 4, 5, 6, 7, 8, 9);
    ASSERT_EQ(0, most.result());
    EXPECT_NE(most.context.inlineConversions, most.context.conversions);
    EXPECT_EQ(most.context.inlineArguments, most.context.arguments);
    EXPECT_EQ("12345678910", more.render());
    EXPECT_EQ("123456789%%", most.render());
}

TEST(zsnprintf, RendersAnyNumberOfTimes)
{
    Parsed const parsed("%2$s=%1$d", 42, "key");
    ASSERT_EQ(0, parsed.result());
    EXPECT_EQ(6, zvsnprintf_render_6_0(&parsed.context, nullptr, 0));
    EXPECT_EQ("key=42", parsed.render());
    EXPECT_EQ("key", parsed.render(4));
    EXPECT_EQ("key=42", parsed.render());
}

TEST(zsnprintf, ReturnsParametersOfConversions)
{
    struct Case {
        char const* format;
        uint32_t extraFlags;
        int width;
        int precision;
        char pad;
    };
    Case const cases[] = {
        {"%2$*1$d%3$.0s", 0, 7, 1, ' '},           {"%2$d%1$.0d%3$.0s", 0, 0, 1, ' '},
        {"%2$05d%1$.0d%3$.0s", 0, 5, 1, '0'},      {"%2$-5d%1$.0d%3$.0s", 0, 5, 1, ' '},
        {"%2$05.3d%1$.0d%3$.0s", 0, 5, 3, ' '},    {"%2$.*1$d%3$.0s", 0, 0, 7, ' '},
        {"%2$u%1$.0d%3$.0s", 0x200000, 8, 1, ' '}, {"%2$9u%1$.0d%3$.0s", 0x200000, 9, 1, ' '},
        {"%2$u%1$.0d%3$.0s", 0x400000, 0, 8, ' '}, {"%2$.9u%1$.0d%3$.0s", 0x400000, 0, 9, ' '},
        {"%3$s%1$.0d%2$.0d", 0, 0, 0, ' '},        {"%3$05s%1$.0d%2$.0d", 0, 5, 0, ' '},
        {"%3$.2s%1$.0d%2$.0d", 0, 0, 2, ' '},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.format);
        Parsed parsed(c.format, 7, 42, "text");
        ASSERT_EQ(0, parsed.result());
        parsed.context.conversions[0].flags |= c.extraFlags;
        int width = -1;
        int precision = -1;
        char pad = '?';
        get_render_params(&parsed.context.conversions[0], parsed.context.arguments, &width,
                          &precision, &pad);
        EXPECT_EQ(c.width, width);
        EXPECT_EQ(c.precision, precision);
        EXPECT_EQ(c.pad, pad);
    }
    struct Default {
        char const* format;
        int precision;
        char pad;
    };
    Default const defaults[] = {
        {"%0c", 0, ' '},  {"%0s", 0, ' '},  {"%0hd", 1, '0'}, {"%0hu", 1, '0'},  {"%0d", 1, '0'},
        {"%0x", 1, '0'},  {"%0ld", 1, '0'}, {"%0lu", 1, '0'}, {"%0lld", 1, '0'}, {"%0llu", 1, '0'},
        {"%p", 0, '0'},   {"%0e", 0, '0'},  {"%0f", 6, '0'},  {"%0g", 0, '0'},   {"%0Le", 0, '0'},
        {"%0Lf", 6, '0'}, {"%0Lg", 0, '0'}, {"%0%", 0, ' '},  {"%0C", 0, ' '},   {"%0S", 0, ' '},
    };
    for (Default const& c : defaults) {
        SCOPED_TRACE(c.format);
        Parsed const parsed(c.format, nullptr, nullptr, nullptr);
        ASSERT_EQ(0, parsed.result());
        int width = -1;
        int precision = -1;
        char pad = '?';
        get_render_params(parsed.context.conversions, parsed.context.arguments, &width, &precision,
                          &pad);
        EXPECT_EQ(0, width);
        EXPECT_EQ(c.precision, precision);
        EXPECT_EQ(c.pad, pad);
    }
}

TEST(zsnprintf, HonoursTheFlagsThatNoConversionSets)
{
    Parsed parsed("%x|%d|%s", 0xAB, 42, "ab");
    ASSERT_EQ(0, parsed.result());
    for (int i = 0; i < 3; ++i)
        parsed.context.conversions[i].flags |= zprintfWidthOf8;
    EXPECT_EQ("      000000ab|      42|      ab", parsed.render());
    for (int i = 0; i < 3; ++i)
        parsed.context.conversions[i].flags ^= zprintfWidthOf8 | zprintfPrecisionOf8;
    EXPECT_EQ("000000ab|00000042|ab", parsed.render());

    Parsed reals("%g|%f|%e|%Lg|%Lf|%Le", 0.5, 0.5, 0.5, 0.5L, 0.5L, 0.5L);
    ASSERT_EQ(0, reals.result());
    for (int i = 0; i < 6; ++i)
        reals.context.conversions[i].flags |= zprintfWidthOf8;
    EXPECT_EQ(withPoint("     0.5|0.500000|5.000000e-01|     0.5|0.500000|5.000000e-01"),
              reals.render());
    for (int i = 0; i < 6; ++i)
        reals.context.conversions[i].flags |= zprintfPrecisionOf8;
    EXPECT_EQ(withPoint("     0.5|0.50000000|5.00000000e-01|     0.5|0.50000000|5.00000000e-01"),
              reals.render());

    Parsed given("%.2f|%.10f|%-3.0f|%s", 0.5, 0.5, 2.0, "longer than 8");
    ASSERT_EQ(0, given.result());
    for (int i = 0; i < 4; ++i)
        given.context.conversions[i].flags |= zprintfWidthOf8 | zprintfPrecisionOf8;
    EXPECT_EQ(withPoint("0.50000000|0.5000000000|2.00000000|longer than 8"), given.render());
}

TEST(zsnprintf, ReturnsParametersOfEveryTypeInEveryForm)
{
    struct Type {
        int32_t code;
        bool isNumber;         // the 0 flag pads with zeros
        int defaultPrecision;  // if not given
    };
    Type const types[] = {
        {0, false, 0}, {1, false, 0}, {2, false, 0}, {3, false, 0}, {4, true, 1},
        {5, true, 1},  {6, true, 1},  {7, true, 1},  {8, true, 1},  {9, true, 1},
        {10, true, 1}, {11, true, 1}, {12, true, 0}, {13, true, 0}, {14, true, 6},
        {15, true, 0}, {16, true, 0}, {17, true, 6}, {18, true, 0}, {19, false, 0},
    };
    constexpr int kDefault = -1;
    struct Form {
        uint32_t flags;
        int32_t field;   // of the conversion: the value, or the number of its argument
        int value;       // what is meant
        int valueWith8;  // with the minimum of 8
    };
    ZPrintfArgument_6_0 arguments[5] = {};
    for (int i = 1; i < 5; ++i)
        arguments[i].type = 6;
    arguments[1].value.integer = 12;
    arguments[2].value.integer = -12;
    arguments[3].value.integer = 0;
    Form const widths[] = {{0, 77, 0, 8},    {0x80, 0, 0, 8},    {0x80, 5, 5, 8},
                           {0x80, 9, 9, 9},  {0x100, 1, 12, 12}, {0x100, 2, -12, 8},
                           {0x100, 3, 0, 8}, {0x300, 1, 12, 12}};
    Form const precisions[] = {
        {0, 77, kDefault, 8}, {0x400, 0, 0, 8},        {0x400, 5, 5, 8},
        {0x400, 9, 9, 9},     {0x800, 1, 12, 12},      {0x800, 3, 0, 8},
        {0x1800, 1, 12, 12},  {0x800, 2, kDefault, 8},  // a negative precision is not given
    };
    for (Type const& type : types) {
        for (Form const& width : widths) {
            for (Form const& precision : precisions) {
                for (uint32_t const others : {0x0u, 0x8u, 0x4u, 0x200000u, 0x400000u, 0x600008u}) {
                    ZPrintfConversion_6_0 const conversion = {
                        nullptr,
                        nullptr,
                        type.code,
                        width.flags | precision.flags | others,
                        4,
                        width.field,
                        precision.field,
                    };
                    int const given =
                        precision.value == kDefault ? type.defaultPrecision : precision.value;
                    int gotWidth = -99;
                    int gotPrecision = -99;
                    char pad = '?';
                    get_render_params(&conversion, arguments, &gotWidth, &gotPrecision, &pad);
                    ASSERT_EQ(others & 0x200000 ? width.valueWith8 : width.value, gotWidth)
                        << type.code << std::hex << " flags " << conversion.flags;
                    ASSERT_EQ(others & 0x400000 ? precision.valueWith8 : given, gotPrecision)
                        << type.code << std::hex << " flags " << conversion.flags;
                    ASSERT_EQ((others & 0x8) && type.isNumber ? '0' : ' ', pad)
                        << type.code << std::hex << " flags " << conversion.flags;
                }
            }
        }
    }
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

// Failures.

TEST(zsnprintf, RejectsInvalidFormats)
{
    char const* const formats[] = {
        "%",    "abc%",  "%5",      "%.",    "%l",    "%ll",    "%-",    "%*",       "%.*",
        "%1$",  "%y",    "%n",      "%a",    "%A",    "%F",     "%m",    "%hhd",     "%hld",
        "%lhd", "%llld", "%lLd",    "%Lld",  "%qqd",  "%hLd",   "%Lhd",  "%jd",      "%zd",
        "%td",  "%Ln",   "%hf",     "%lf",   "%he",   "%le",    "%hg",   "%lg",      "%hE",
        "%lE",  "%hG",   "%lG",     "%5*d",  "%5-d",  "%.5.5d", "%.5-d", "%.-5d",    "%.*5d",
        "%*5d", "%*1d",  "%*1$1$d", "%**d",  "%.**d", "%l5d",   "%ld%",  "%1$2$d",   "%1$d%",
        "%$d",  "%-1$d", "%00+5d",  "%\x80", "%\n",   "%1 d",   "%5 d",  "%d %\xff",
    };
    for (char const* format : formats) {
        SCOPED_TRACE(format);
        char buffer[16] = "untouched";
        char* result = buffer;
        EXPECT_EQ(-1, zsnprintf_6_0(buffer, sizeof buffer, format, 1, 1, 1));
        EXPECT_STREQ("untouched", buffer);
        EXPECT_EQ(-1, zsprintf_6_0(&result, format, 1, 1, 1));
        EXPECT_EQ(nullptr, result);
        result = buffer;
        EXPECT_EQ(-1, zasprintf_6_0(&result, format, 1, 1, 1));
        EXPECT_EQ(nullptr, result);
        EXPECT_EQ(-1, Parsed(format, 1, 1, 1).result());
    }
}

TEST(zsnprintf, RejectsNumbersThatDoNotFit)
{
    char const* const formats[] = {
        "%2147483648d",
        "%.2147483648d",
        "%99999999999999999999d",
        "%.99999999999999999999d",
        "%2147483648$d",
        "%*2147483648$d",
        "%.*2147483648$d",
        "%18446744073709551617$d",
        "%0$d",
        "%00$d",
        "%*0$d",
        "%.*0$d",
        "%1$*0$d",
        "%02147483648d",
        "%-2147483648d",
        "%1$2147483648d",
        "%+99999999999999999999d",
    };
    for (char const* format : formats)
        EXPECT_EQ(kFailure, text(format, 1, 1, 1)) << format;
}

TEST(zsnprintf, RejectsGapsInArgumentNumbers)
{
    EXPECT_EQ(kFailure, text("%3$s %1$s", "a", "b", "c"));
    EXPECT_EQ(kFailure, text("%2$d", 1, 2));
    EXPECT_EQ(kFailure, text("%3$*1$d", 1, 2, 3));
    EXPECT_EQ(kFailure, text("%s %3$s", "a", "b", "c"));
    EXPECT_EQ(kFailure, text("%1$%", 1));
    EXPECT_EQ(kFailure, text("%1$d %2$%", 1, 2));
    EXPECT_EQ("c b a", text("%3$s %2$s %1$s", "a", "b", "c"));
    EXPECT_EQ("  1", text("%2$*1$d", 3, 1));
}

TEST(zsnprintf, RejectsHugeNumbersBeforeAllocating)
{
    for (char const* format :
         {"%2147483647$d", "%*2147483647$d", "%.*2147483647$d", "%d %7$d", "%1$d %2000000$d"}) {
        SCOPED_TRACE(format);
        char buffer[8];
        FailingAllocator::failAt(1, FailingAllocator::forEver);
        int const result = zsnprintf_6_0(buffer, sizeof buffer, format, 1, 1);
        EXPECT_EQ(0u, FailingAllocator::asked());
        EXPECT_FALSE(FailingAllocator::stop());
        EXPECT_EQ(-1, result);
    }
}

TEST(zsnprintf, RejectsAnArgumentWithTwoTypes)
{
    char const* const formats[] = {
        "%1$d %1$s",      "%1$s %1$d",  "%1$d %1$ld",   "%1$ld %1$lld",  "%1$d %1$hd",
        "%1$c %1$d",      "%1$f %1$Lf", "%1$d %1$f",    "%1$s %1$S",     "%1$s %1$p",
        "%1$c %1$C",      "%1$*1$s",    "%1$.*1$ld",    "%1$*1$c",       "%1$*1$f",
        "%s %1$d",        "%1$p %1$lx", "%1$s %2$*1$d", "%1$ld %2$*1$d", "%1$s %2$.*1$d",
        "%1$hd %2$.*1$d",
    };
    for (char const* format : formats)
        EXPECT_EQ(kFailure, text(format, "a")) << format;
}

// A caller passes a pointer, which may be null, only on platforms where va_list is not an array.
template <class List>
void expectNullListRefused()
{
    if constexpr (std::is_array_v<List>) {
        std::remove_extent_t<List>* const none = nullptr;
        char buffer[8] = "~";
        char* result = buffer;
        EXPECT_EQ(-1, zvsprintf_6_0(&result, "x%d", none));
        EXPECT_EQ(nullptr, result);
        result = buffer;
        EXPECT_EQ(-1, zvasprintf_6_0(&result, "x%d", none));
        EXPECT_EQ(nullptr, result);
    } else {
        GTEST_SKIP() << "an argument list is not a pointer on this processor";
    }
}

TEST(zsnprintf, RejectsANullArgumentList)
{
    expectNullListRefused<va_list>();
}

TEST(zsnprintf, AllowsDoneAfterAFailedParseAndTwice)
{
    auto const parse = [](ZPrintfContext_6_0* context, char const* format, ...) {
        va_list args;
        va_start(args, format);
        int const rc = zvsnprintf_parse_6_0(context, zgetLCSHandle_6_0(), format, args);
        va_end(args);
        return rc;
    };
    char const* const formats[] = {"%%%%%%%%%%%%%%%%%%%%%%%y",  // fails after the eleventh
                                   nullptr, "%1$d%2$d%3$d%4$d%5$d%6$d%7$d%8$d%9$d%10$d%11$d"};
    for (char const* format : formats) {
        ZPrintfContext_6_0 context;
        parse(&context, format, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11);
        zvsnprintf_done_6_0(&context);
        zvsnprintf_done_6_0(&context);
    }
}

TEST(zsnprintf, RejectsNullArguments)
{
    char buffer[8] = "~";
    char* result = buffer;
    char const* const none = nullptr;
    EXPECT_EQ(-1, zsnprintf_6_0(buffer, sizeof buffer, none));
    EXPECT_EQ(-1, zsprintf_6_0(&result, none));
    EXPECT_EQ(nullptr, result);
    result = buffer;
    EXPECT_EQ(-1, zasprintf_6_0(&result, none));
    EXPECT_EQ(nullptr, result);
    EXPECT_EQ(-1, zsprintf_6_0(nullptr, "%d", 1));
    EXPECT_EQ(-1, zasprintf_6_0(nullptr, "%d", 1));
    EXPECT_EQ(-1, Parsed(none).result());
    zasprintf_free_6_0(nullptr);
}

TEST(zsnprintf, AllocatesTheSizeOfTheResult)
{
    char* result = nullptr;
    EXPECT_EQ(6, zsprintf_6_0(&result, "%s=%d", "key", 42));
    EXPECT_STREQ("key=42", result);
    zasprintf_free_6_0(result);
    EXPECT_EQ(0, zasprintf_6_0(&result, "%s", ""));
    EXPECT_STREQ("", result);
    zasprintf_free_6_0(result);
    EXPECT_EQ(100000, zasprintf_6_0(&result, "%100000d", 7));
    EXPECT_EQ(100000u, strlen(result));
    zasprintf_free_6_0(result);
}

TEST(zsnprintf, SurvivesEveryFailingAllocation)
{
    auto const call = [](char** result, char* buffer, int size) {
        char const* const format =
            "%d %d %d %d %d %d %d %d %d %d %d %d %d %d %d %d %d %d %d %d %s %.500Lf %20000.16500Lf";
        long double const third = 1.0L / 3;
        return result != nullptr
                   ? zasprintf_6_0(result, format, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14,
                                   15, 16, 17, 18, 19, 20, "end", third, third)
                   : zsnprintf_6_0(buffer, size, format, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13,
                                   14, 15, 16, 17, 18, 19, 20, "end", third, third);
    };
    char expected[21000];
    int const length = call(nullptr, expected, sizeof expected);
    ASSERT_LT(20500, length);
    ASSERT_GT(static_cast<int>(sizeof expected), length);
    for (FailingAllocator::Mode mode : {FailingAllocator::once, FailingAllocator::forEver}) {
        for (bool allocates : {false, true}) {
            unsigned long n = 1;
            for (;; ++n) {
                SCOPED_TRACE(n);
                ASSERT_GT(100u, n);
                char buffer[sizeof expected];
                char* result = buffer;
                long const before = FailingAllocator::blocks();
                FailingAllocator::failAt(n, mode);
                int const got = call(allocates ? &result : nullptr, buffer, sizeof buffer);
                bool const failed = FailingAllocator::stop();
                // The platform's conversion tolerates the failure of some of its allocations.
                if (got < 0) {
                    EXPECT_TRUE(failed);
                    EXPECT_EQ(-1, got);
                    if (allocates) {
                        EXPECT_EQ(nullptr, result);
                    }
                } else {
                    EXPECT_EQ(length, got);
                    EXPECT_EQ(0, strcmp(expected, allocates ? result : buffer));
                    if (allocates)
                        zasprintf_free_6_0(result);
                }
                EXPECT_EQ(before, FailingAllocator::blocks());
                if (!failed)
                    break;
            }
            EXPECT_LT(3u, n);
        }
    }
}

TEST(zsnprintf, SurvivesEveryFailingAllocationWhileMeasuringColumns)
{
    LocaleOfLongPoint const locale;
    if (!locale.isThere())
        GTEST_SKIP() << "the locale is not installed";
    char expected[20100], buffer[sizeof expected];
    auto const call = [](char(&out)[sizeof expected]) {
        return zsnprintf_6_0(out, sizeof out, "%20000.16500Lf|", 0.5L);
    };
    int const length = call(expected);
    EXPECT_EQ(20002, length);
    bool failed = true;
    for (unsigned long n = 1; failed; ++n) {
        SCOPED_TRACE(n);
        FailingAllocator::failAt(n);
        int const got = call(buffer);
        failed = FailingAllocator::stop();
        if (got < 0) {
            EXPECT_EQ(-1, got);
            EXPECT_STREQ("", buffer);
        } else {
            EXPECT_EQ(length, got);
            EXPECT_EQ(0, strcmp(expected, buffer));
        }
    }
}

TEST(zsnprintf, FreesItsMemoryIfTheFormatIsInvalid)
{
    std::string format;
    for (int i = 0; i < 35; ++i)
        format += "%%";
    format += "%y";
    long const before = FailingAllocator::blocks();
    EXPECT_EQ(-1, zsnprintf_6_0(nullptr, 0, format.c_str()));
    EXPECT_EQ(before, FailingAllocator::blocks());
    EXPECT_EQ(-1, zsnprintf_6_0(nullptr, 0, "%d%d%d%d%d%d%d%d%d%d%d%12$d%12$s", 1, 2, 3, 4, 5, 6, 7,
                                8, 9, 10, 11, 12));
    EXPECT_EQ(before, FailingAllocator::blocks());
}

TEST(zsnprintf, AllocatesNothingForShortFormats)
{
    char buffer[128];
    FailingAllocator::failAt(1, FailingAllocator::forEver);
    zsnprintf_6_0(buffer, sizeof buffer, "%s=%d %5.2f %g %e %Lf %08lx%% %d %p", "key", 42, 3.14159,
                  0.1, 1e10, 2.5L, 0xABCDL, 7, nullptr);
    EXPECT_FALSE(FailingAllocator::stop());
    EXPECT_EQ(withPoint("key=42  3.14 0.1"), std::string(buffer).substr(0, 16));
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
