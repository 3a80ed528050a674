// Functions that read many bytes at a time, compared with models that read one character at a time:
// in each kind of codeset, for each length to 200 at each alignment, some of them also for greater
// lengths, with invalid and cut characters.
#include <array>
#include <cstring>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "GuardedBytes.h"
#include "TextServices.h"

namespace {

struct Sample {
    char const* codeset;
    std::vector<std::string> pieces;  // repeated in random order
};

std::vector<Sample> samples()
{
    std::vector<std::string> const ascii = {"a", "Z", "iI", "@[`{",
                                            "The QUICK brown fox, 0123456789 "};
    auto const with = [&](std::vector<std::string> more) {
        more.insert(more.end(), ascii.begin(), ascii.end());
        return more;
    };
    return {
        {"UTF-8", ascii},
        {"UTF-8", with({"\u00e9", "\u00c4", "\u0130", "\u0131"})},
        {"UTF-8", with({"\u3042", "\u8a2d", "\U0001F600", "\uFFFF", "\u0800", "\uD7FF"})},
        {"UTF-8",
         with({"\x80", "\xC0\x80", "\xC3", "\xED\xA0\x80", "\xE0\x9F\xBF", "\xF4\x90\x80\x80"})},
        {"UTF-8",
         with({"\xF0\x8F\xBF\xBF", "\xF5", "\xFF", "\xE3\x81", "\xF0\x9F\x98", "\U0010FFFF"})},
        {"ISO-8859-1", with({"\xE9", "\xC4", "\x80"})},
        {"ISO-8859-9", with({"\xDD", "\xFD"})},
        {"windows-1252", with({"\x81", "\xE9"})},
        {"EUC-JP", with({"\xA4\xA2", "\xA3\xC1", "\x8F\xB0\xA1", "\xA4", "\xFF"})},
        {"Shift_JIS", with({"\x83\x41", "\x83\x61", "\xB1", "\x83", "\x80"})},
        {"GB18030", with({"\xC5\xE4", "\x81\x30\x81\x30", "\xA3\xC1", "\x81\x30"})},
        {"IBM-037", with({"\xC1\x81", "\xF1", "\x41"})},
        {"UTF-16", ascii},
    };
}

// Returns `size` bytes: the last piece may be cut.
std::string randomText(std::mt19937& random, Sample const& sample, size_t size)
{
    std::string text;
    while (text.size() < size)
        text += sample.pieces[random() % sample.pieces.size()];
    text.resize(size);
    return text;
}

// Places bytes at the end of readable memory: each size has its own alignment.
class End {
public:
    char* place(std::string const& text)
    {
        char* const at = room_ + (kRoom - text.size());
        std::memcpy(at, text.data(), text.size());
        return at;
    }

private:
    static constexpr size_t kRoom = 1024;
    GuardedBytes room_{std::string(kRoom, 'x')};
};

// The next character, or one invalid byte.
size_t unitLength(qvr_cs_t cs, char const* s, size_t n)
{
    int const length = qvr_mblen(cs, s, n);
    return length > 0 ? static_cast<size_t>(length) : 1;
}

size_t spanByCharacters(qvr_cs_t cs, char const* s, size_t n)
{
    size_t at = 0;
    while (at < n) {
        int const length = s[at] == 0 ? 1 : qvr_mblen(cs, s + at, n - at);
        if (length < 1)
            break;
        at += static_cast<size_t>(length);
    }
    return at;
}

TEST(qvr, ASpanIsTheSumOfItsCharacters)
{
    constexpr unsigned kSeed = 20261122;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    End end;
    for (Sample const& sample : samples()) {
        SCOPED_TRACE(sample.codeset);
        Codeset const cs(sample.codeset);
        for (size_t size = 0; size <= 200; ++size) {
            for (int round = 0; round < 8; ++round) {
                std::string text = randomText(random, sample, size);
                if (round >= 4 && size > 0)
                    text[random() % size] = round == 4 ? '\0' : static_cast<char>(random());
                char const* const at = end.place(text);
                ASSERT_EQ(spanByCharacters(cs, at, size), qvr_mbspan(cs, at, size))
                    << testing::PrintToString(text);
            }
        }
    }
    EXPECT_EQ(0u, qvr_mbspan(nullptr, "a", 1));
    EXPECT_EQ(0u, qvr_mbspan(Codeset("UTF-8"), nullptr, 1));
}

// Each byte at each position of a block, after and before each kind of character.
TEST(qvr, ASpanEndsAtEachInvalidByte)
{
    Codeset const cs("UTF-8");
    End end;
    for (std::string const piece : {"x", "\u00e9", "\u3042", "\U0001F600", "\u0e81\u07ff"}) {
        std::string text;
        while (text.size() < 144)
            text += piece;
        for (size_t at = 0; at < text.size(); ++at) {
            for (int byte = 0; byte < 256; ++byte) {
                std::string changed = text;
                changed[at] = static_cast<char>(byte);
                char const* const placed = end.place(changed);
                ASSERT_EQ(spanByCharacters(cs, placed, changed.size()),
                          qvr_mbspan(cs, placed, changed.size()))
                    << piece << ": " << byte << " at " << at;
            }
        }
    }
}

TEST(qvr, CaseChangesAsThatOfEachCharacter)
{
    constexpr unsigned kSeed = 20261123;
    constexpr size_t kMaxSize = 1000;  // more than the longest block
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    End end;
    Locale const plain("C");
    Locale const turkish("tr_TR");
    using Change = char* (*)(qvr_cs_t, qvr_loc_t, char*);
    for (Sample const& sample : samples()) {
        SCOPED_TRACE(sample.codeset);
        Codeset const cs(sample.codeset);
        for (size_t size = 0; size <= kMaxSize; size += size < 200 ? 1 : 37) {
            std::string const text = randomText(random, sample, size) + '\0';
            for (qvr_loc_t const loc :
                 {static_cast<qvr_loc_t>(plain), static_cast<qvr_loc_t>(turkish)}) {
                for (Change const change : {qvr_strlower, qvr_strupper}) {
                    std::string expected;
                    for (size_t at = 0; at < size;) {
                        size_t const length = unitLength(cs, text.data() + at, size - at);
                        std::string unit = text.substr(at, length);
                        change(cs, loc, unit.data());
                        expected += unit;
                        at += length;
                    }
                    char* const placed = end.place(text);
                    ASSERT_EQ(placed, change(cs, loc, placed));
                    ASSERT_EQ(expected, std::string(placed, size)) << testing::PrintToString(text);
                    ASSERT_EQ('\0', placed[size]);
                }
            }
        }
    }
}

// Compares one unit after the other: a short comparison has no blocks.
int orderByUnits(qvr_cs_t cs, qvr_loc_t loc, std::string const& a, std::string const& b)
{
    size_t atA = 0, atB = 0;
    while (atA < a.size() || atB < b.size()) {
        size_t const inA = atA == a.size() ? 0 : unitLength(cs, a.data() + atA, a.size() - atA);
        size_t const inB = atB == b.size() ? 0 : unitLength(cs, b.data() + atB, b.size() - atB);
        int const order =
            qvr_stricmp(cs, loc, a.substr(atA, inA).c_str(), b.substr(atB, inB).c_str());
        if (order != 0)
            return order;
        atA += inA;
        atB += inB;
    }
    return 0;
}

TEST(qvr, LongStringsCompareAsTheirCharacters)
{
    constexpr unsigned kSeed = 20261124;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    End endOfA, endOfB;
    Locale const plain("C");
    Locale const turkish("tr_TR");
    for (Sample const& sample : samples()) {
        SCOPED_TRACE(sample.codeset);
        Codeset const cs(sample.codeset);
        for (size_t size = 0; size <= 200; ++size) {
            for (int round = 0; round < 4; ++round) {
                std::string const a = randomText(random, sample, size);
                std::string b = a;
                qvr_loc_t const loc = round % 2 == 0 ? plain : turkish;
                qvr_strupper(cs, loc, b.data());
                if (round >= 2 && size > 0) {
                    size_t const at = random() % size;
                    b[at] = static_cast<char>(1 + random() % 255);
                }
                b += size % 3 == 0 ? "" : a.substr(0, size % 7);
                char const* const placedA = endOfA.place(a + '\0');
                char const* const placedB = endOfB.place(b + '\0');
                int const order = orderByUnits(cs, loc, a, b);
                ASSERT_EQ(order, qvr_stricmp(cs, loc, placedA, placedB))
                    << testing::PrintToString(a) << '\n'
                    << testing::PrintToString(b);
                ASSERT_EQ(-order, qvr_stricmp(cs, loc, placedB, placedA));
                ASSERT_EQ(order, qvr_strnicmp(cs, loc, placedA, placedB, 1000));
            }
        }
    }
}

// The first question about a character finds its classes; the second finds them remembered.
TEST(qvr, ClassesAreRemembered)
{
    using IsIn = int (*)(uint32_t);
    constexpr std::array<IsIn, 6> kClasses = {qvr_iswupper, qvr_iswlower, qvr_iswspace,
                                              qvr_iswdigit, qvr_iswalpha, qvr_iswalnum};
    for (uint32_t value = 0; value < 0x10200; ++value) {
        // Each class is the first of some character.
        std::array<int, kClasses.size()> first;
        for (size_t i = 0; i < first.size(); ++i) {
            size_t const asked = (i + value) % first.size();
            first[asked] = kClasses[asked](value);
            ASSERT_TRUE(first[asked] == 0 || first[asked] == 1);
        }
        for (size_t i = 0; i < first.size(); ++i)
            ASSERT_EQ(first[i], kClasses[i](value)) << value;
    }
}

}  // namespace
