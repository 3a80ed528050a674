// Formatting: invalid formats and arguments, failed allocations.
#include <Z/zsnprintf.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "FormattedText.h"

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

TEST(zsnprintf, ReadsTheWholeFormatBeforeItsArguments)
{
    // The strings must not be read: the call is rejected.
    char const* const invalid = reinterpret_cast<char const*>(1);
    char const* const formats[] = {
        "%s%y",       "text %s and %d%", "%s %s %s %s %s %s %s %s %s %s %s %s %s %y",
        "%d %1$y %s", "%s %3$s",         "%.5s %-y",
    };
    for (char const* format : formats) {
        SCOPED_TRACE(format);
        char buffer[16] = "untouched";
        EXPECT_EQ(-1, zsnprintf_6_0(buffer, sizeof buffer, format, invalid, invalid));
        EXPECT_STREQ("untouched", buffer);
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
    zgetLCSHandle_6_0();  // the first call allocates memory that stays
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
    zgetLCSHandle_6_0();  // the first call allocates memory that stays
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
    zgetLCSHandle_6_0();  // the first call allocates memory that stays
    char buffer[128];
    FailingAllocator::failAt(1, FailingAllocator::forEver);
    zsnprintf_6_0(buffer, sizeof buffer, "%s=%d %5.2f %g %e %Lf %08lx%% %d %p", "key", 42, 3.14159,
                  0.1, 1e10, 2.5L, 0xABCDL, 7, nullptr);
    EXPECT_FALSE(FailingAllocator::stop());
    EXPECT_EQ(withPoint("key=42  3.14 0.1"), std::string(buffer).substr(0, 16));
}
