#include <Z/ZAdler32.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <iostream>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

unsigned long ours(unsigned long adler, Bytes const& bytes)
{
    return ZAdler32_6_0::adler32(adler, bytes.data(), static_cast<unsigned>(bytes.size()));
}

// The definition of RFC 1950, byte by byte.
unsigned long byTheDefinition(unsigned long adler, Bytes const& bytes)
{
    unsigned long low = adler & 0xffff;
    unsigned long high = adler >> 16 & 0xffff;
    for (unsigned char byte : bytes) {
        low = (low + byte) % 65521;
        high = (high + low) % 65521;
    }
    return high << 16 | low;
}

}  // namespace

TEST(ZAdler32, MatchesKnownChecksums)
{
    struct Case {
        char const* name;
        Bytes bytes;
        unsigned long sum;
    };
    Case const cases[] = {
        {"abc", {'a', 'b', 'c'}, 0x024D0127},
        {"one letter", {'a'}, 0x00620062},
        {"one zero", {0}, 0x00010001},
        {"ten letters", {'f', 'o', 'u', 'n', 'd', 'a', 't', 'i', 'o', 'n'}, 0x172B0438},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.sum, ours(1, c.bytes));
    }
}

TEST(ZAdler32, NullReturnsTheInitialValue)
{
    EXPECT_EQ(1u, ZAdler32_6_0::adler32(0, nullptr, 0));
    EXPECT_EQ(1u, ZAdler32_6_0::adler32(0x024D0127, nullptr, 100));
}

TEST(ZAdler32, ZeroLengthReturnsTheValue)
{
    unsigned char const byte = 0;
    for (unsigned long adler : {0ul, 1ul, 0x024D0127ul, 0xFFFFFFFFul})
        EXPECT_EQ(adler, ZAdler32_6_0::adler32(adler, &byte, 0));
}

TEST(ZAdler32, HigherBitsOfTheValueAreIgnored)
{
    Bytes const bytes{1, 2, 3};
    EXPECT_EQ(ours(7, bytes), ours(0xABCDEF0100000007ul, bytes));
}

TEST(ZAdler32, AnyLengthAndAnyValueFollowTheDefinition)
{
    // Every length up to a few groups of the fast loop, and lengths around a reduction.
    std::vector<size_t> lengths(400);
    for (size_t i = 0; i < lengths.size(); ++i)
        lengths[i] = i + 1;
    for (size_t around : {5504, 5552, 11104})
        for (size_t length = around - 3; length <= around + 70; ++length)
            lengths.push_back(length);
    for (int fill : {0, 1, 0x7f, 0x80, 0xff}) {
        for (size_t length : lengths) {
            Bytes const bytes(length, static_cast<unsigned char>(fill));
            // The largest possible sums, and sums that no checksum has.
            for (unsigned long adler : {1ul, 0xFFF0FFF0ul, 0xFFFFFFFFul, 0x0000FFFFul})
                ASSERT_EQ(byTheDefinition(adler, bytes), ours(adler, bytes))
                    << length << " of " << fill << " from " << adler;
        }
    }
}

TEST(ZAdler32, AgreesWithZlib)
{
    constexpr unsigned kSeed = 33001;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    Bytes bytes(200000);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    for (int round = 0; round < 20000; ++round) {
        size_t const most = round % 20 == 0 ? bytes.size() : 700;
        auto const length = static_cast<unsigned>(1 + random() % (most - 1));
        unsigned char const* const start = bytes.data() + random() % (bytes.size() - length);
        unsigned long const adler = (random() % 65521ul) << 16 | random() % 65521ul;
        ASSERT_EQ(adler32(adler, start, length), ZAdler32_6_0::adler32(adler, start, length))
            << "round " << round;
    }
}

TEST(ZAdler32, PartsAddUpToTheWhole)
{
    constexpr unsigned kSeed = 33002;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    Bytes bytes(30000);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    unsigned long const whole = ours(1, bytes);
    for (int round = 0; round < 200; ++round) {
        unsigned long adler = 1;
        for (size_t done = 0; done < bytes.size();) {
            size_t const part = std::min<size_t>(1 + random() % 9000, bytes.size() - done);
            adler = ZAdler32_6_0::adler32(adler, bytes.data() + done, static_cast<unsigned>(part));
            done += part;
        }
        ASSERT_EQ(whole, adler);
    }
}
