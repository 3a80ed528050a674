// Compares our formatted output with the platform's over generated formats. Intended differences
// are in kDifferences of PrintfModel.h; everything else must be identical.

#include <Z/zsnprintf.h>
#include <gtest/gtest.h>
#include <limits.h>

#include <algorithm>
#include <cfenv>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "GuardedRoom.h"
#include "PrintfModel.h"
#include "Sanitizers.h"

namespace {

using namespace printf_model;

constexpr unsigned kSeed = 20260101;
// A sanitizer is ten times slower and needs fewer examples.
constexpr int kFormats = kHasSanitizer ? 50000 : 200000;
constexpr int kReals = kHasSanitizer ? 15000 : 60000;

class zsnprintfGrid : public testing::Test {
protected:
    static void SetUpTestSuite() { setlocale(LC_ALL, ""); }
};

}  // namespace

TEST_F(zsnprintfGrid, EqualsThePlatformExceptForTheTable)
{
    std::printf("seed %u, %d formats\n", kSeed, kFormats);
    Generator generate{std::mt19937_64(kSeed)};
    GuardedRoom guarded(64);
    std::vector<unsigned> hits(kDifferenceCount);
    unsigned same = 0;
    unsigned refused = 0;
    for (int i = 0; i < kFormats; ++i) {
        Example const made = example(generate, hits);
        Format const& format = made.format;
        std::string const& expected = made.expected;
        SCOPED_TRACE(format.text);
        same += made.equalsPlatform;

        static char out[1 << 14];
        out[0] = '~';
        auto const print = [&](char* to, int size) {
            return withArguments(format.values, [&](auto... arguments) {
                return zsnprintf_6_0(to, size, format.text.c_str(), arguments...);
            });
        };
        int const length = print(out, sizeof out);
        if (!made.isAccepted) {
            ++refused;
            ASSERT_EQ(-1, length);
            ASSERT_EQ('~', out[0]);
            continue;
        }
        ASSERT_EQ(static_cast<int>(expected.size()), length);
        ASSERT_EQ(expected, std::string(out, static_cast<size_t>(length)));
        ASSERT_EQ('\0', out[length]);

        size_t const size = generate.below(65);
        char* const cut = guarded.last(size);
        ASSERT_EQ(length, print(cut, static_cast<int>(size)));
        if (size > 0) {
            size_t const shown = std::min(size - 1, expected.size());
            ASSERT_EQ(expected.substr(0, shown), std::string(cut, shown));
            ASSERT_EQ('\0', cut[shown]);
        }
    }
    std::printf("%u without a difference, %u refused\n", same, refused);
    for (size_t i = 0; i < kDifferenceCount; ++i) {
        std::printf("%6u  %s\n", hits[i], kDifferences[i].description);
        EXPECT_LT(0u, hits[i]) << kDifferences[i].description;
    }
    EXPECT_LT(static_cast<unsigned>(kFormats) / 10, same);
}

TEST_F(zsnprintfGrid, WritesDoublesDigitByDigitAsThePlatform)
{
    std::printf("seed %u, %d values\n", kSeed, kReals);
    Generator generate{std::mt19937_64(kSeed)};
    for (int i = 0; i < kReals; ++i) {
        long double const value = generate.real();
        int const precision =
            static_cast<int>(generate.oneIn(10) ? generate.below(400) : generate.below(22));
        for (char const* format : {"%.*e", "%.*f", "%.*g", "%.*E", "%#.*g"}) {
            Value const number = static_cast<double>(value);
            char out[1024];
            int const length =
                zsnprintf_6_0(out, sizeof out, format, precision, static_cast<double>(value));
            std::string const expected = platformText(format, {precision, number});
            ASSERT_EQ(expected, out) << format << " precision " << precision;
            ASSERT_EQ(static_cast<int>(expected.size()), length);
        }
        for (char const* format : {"%.*Le", "%.*Lf", "%.*Lg"}) {
            std::string const expected = platformText(format, {precision, value});
            std::string out(expected.size() + 1, '~');
            int const length =
                zsnprintf_6_0(out.data(), static_cast<int>(out.size()), format, precision, value);
            ASSERT_EQ(expected, out.c_str()) << format << " precision " << precision;
            ASSERT_EQ(static_cast<int>(expected.size()), length);
        }
    }
}

TEST_F(zsnprintfGrid, WritesEveryExponentAsThePlatform)
{
    // Powers of two and ten and their neighbours: digits carry and exponents change there.
    for (int exponent = -1074; exponent < 1024; ++exponent) {
        double const power = std::ldexp(1.0, exponent);
        for (double const value : {power, std::nextafter(power, 0.0), std::nextafter(power, 1e308)})
            for (char const* format : {"%g", "%e", "%f", "%.17g", "%.3g", "%.0e", "%.0f"})
                ASSERT_STREQ(platformText(format, {value}).c_str(), [&] {
                    static char out[512];
                    zsnprintf_6_0(out, sizeof out, format, value);
                    return out;
                }());
    }
    for (int exponent = -340; exponent <= 308; ++exponent) {
        double const power = strtod(("1e" + std::to_string(exponent)).c_str(), nullptr);
        for (double const factor : {1.0, 9.5, 9.9999995, 0.99999949, 5.0, 2.5, 1.25}) {
            for (double const value : {power * factor, std::nextafter(power * factor, 0.0),
                                       std::nextafter(power * factor, 1e308), -power * factor}) {
                for (char const* format : {"%g", "%e", "%f", "%.15g", "%.1e", "%.2f", "%.0g"}) {
                    char out[512];
                    zsnprintf_6_0(out, sizeof out, format, value);
                    ASSERT_EQ(platformText(format, {value}), out) << format;
                }
            }
        }
    }
}

TEST_F(zsnprintfGrid, WritesTheSmallestLongDoublesAsThePlatform)
{
    // Normal numbers, and denormal ones with less precision.
    using Limits = std::numeric_limits<long double>;
    long double const least = Limits::min();
    for (long double const value : {Limits::denorm_min(), 3 * Limits::denorm_min(), least / 2,
                                    least, std::nextafter(least, 0.0L), -least / 4, 0.0L, -0.0L}) {
        for (char const* format : {"%Le", "%Lf", "%Lg", "%.17Le", "%.0Le", "%#Lg", "%.4970Lf"}) {
            std::string const expected = platformText(format, {value});
            std::string out(expected.size() + 1, '~');
            EXPECT_EQ(static_cast<int>(expected.size()),
                      zsnprintf_6_0(out.data(), static_cast<int>(out.size()), format, value));
            EXPECT_STREQ(expected.c_str(), out.c_str()) << format;
        }
    }
}

TEST_F(zsnprintfGrid, RoundsInTheModeOfTheThread)
{
    struct Restore {
        ~Restore() { fesetround(FE_TONEAREST); }
    } const restore;
    for (int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO, FE_TONEAREST}) {
        for (double value : {0.125, -0.125, 0.1, -0.1, 2.5, 1e-10, 1234.5678}) {
            for (char const* format : {"%.2f", "%.0f", "%.3e", "%.2g"}) {
                fesetround(mode);
                char out[64];
                zsnprintf_6_0(out, sizeof out, format, value);
                char expected[64];
                snprintf(expected, sizeof expected, format, value);
                fesetround(FE_TONEAREST);
                EXPECT_STREQ(expected, out) << format << " " << mode;
            }
        }
    }
}
