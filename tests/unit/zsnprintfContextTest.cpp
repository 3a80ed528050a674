// Formatting: the contents of a parsed context.
#include <Z/zsnprintf.h>
#include <gtest/gtest.h>
#include <limits.h>

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "FormattedText.h"

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
        int value;       // the width or precision
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

TEST(zsnprintf, FormatsTheSameWithAContextAndWithout)
{
    auto const direct = [](char* out, int size, char const* format, ...) {
        va_list args;
        va_start(args, format);
        int const length = zvsnprintf_6_0(out, size, format, args);
        va_end(args);
        return length;
    };
    auto const byContext = [](char* out, int size, char const* format, ...) {
        va_list args;
        va_start(args, format);
        ZPrintfContext_6_0 context;
        int const result = zvsnprintf_parse_6_0(&context, zgetLCSHandle_6_0(), format, args);
        va_end(args);
        EXPECT_EQ(0, result);
        int const length = zvsnprintf_render_6_0(&context, out, size);
        zvsnprintf_done_6_0(&context);
        return length;
    };
    char const* const formats[] = {
        "",
        "literal text that is longer than sixteen bytes",
        "%d",
        "<%d>",
        "%d%s%ld%p%c%%",
        "%hd and %s and %ld and %p and %c.",
        "%u %s %lu %p %c",
        "%x %s %lX %p %c",
        "%o%s%lo%p%c",
        "%5d|%10s|%-25ld|%30p|%3c|%5%",
        "%-5d|%-10s|%+ld|%-30p|%-3c",
        "%#x|%.2s|%#lo|%.20p|%c",
        "% d|%.0s|%025ld|%p|%lc",
        "%d%%%%%%%%%%%%%%%%%%%%%%",    // 12 conversions
        "%d%%%%%%%%%%%%%%%%%%%%%%%%",  // 13
        "%1$d %2$s %3$ld %4$p %5$c",
    };
    struct Values {
        int number;
        char const* text;
        long large;
        void const* pointer;
    };
    Values const all[] = {
        {0, "", 0, nullptr},
        {-1, nullptr, LONG_MIN, reinterpret_cast<void const*>(UINTPTR_MAX)},
        {INT_MAX, "sixteen bytes or more", LONG_MAX, reinterpret_cast<void const*>(0x10)},
        {INT_MIN, "text", 9999999999, reinterpret_cast<void const*>(0xF)},
        {100, "eight ch", -10000000000, reinterpret_cast<void const*>(0xFFFF0)},
    };
    for (char const* format : formats) {
        for (Values const& v : all) {
            int const whole =
                byContext(nullptr, 0, format, v.number, v.text, v.large, v.pointer, 'c');
            for (int size = 0; size <= whole + 2; ++size) {
                SCOPED_TRACE(testing::Message() << format << ' ' << v.number << ' ' << size);
                std::vector<char> expected(static_cast<size_t>(size) + 1, '~');
                std::vector<char> got = expected;
                ASSERT_EQ(whole, byContext(expected.data(), size, format, v.number, v.text, v.large,
                                           v.pointer, 'c'));
                ASSERT_EQ(whole, direct(got.data(), size, format, v.number, v.text, v.large,
                                        v.pointer, 'c'));
                ASSERT_EQ(expected, got);
            }
        }
    }
}
