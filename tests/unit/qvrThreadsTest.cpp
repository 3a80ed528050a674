// Handles used by many threads, while other threads create handles and change the tables.
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "TextServices.h"

namespace {

// Threads that start together.
template <class Work>
void runTogether(unsigned count, Work work)
{
    std::atomic<unsigned> ready = 0;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < count; ++i)
        threads.emplace_back([&, i] {
            ++ready;
            while (ready < count)
                std::this_thread::yield();
            work(i);
        });
    for (std::thread& thread : threads)
        thread.join();
}

struct Sample {
    char const* codeset;
    std::string text;
    std::string encoded;
};

Sample const kSamples[] = {
    {"UTF-8", "a\u00e9\u8868", "a\u00e9\u8868"},
    {"ISO-8859-15", "a\u20ac", "a\xA4"},
    {"EUC-JP", "a\u8868\u4e02", "a\xC9\xBD\x8F\xB0\xA1"},
    {"Shift_JIS", "a\u8868", "a\x95\x5C"},
    {"GB18030", "a\u4e00\U0001F600", "a\xD2\xBB\x94\x39\xFC\x36"},
    {"Big5", "\u4e00", "\xA4\x40"},
    {"EUC-KR", "\uac00", "\xB0\xA1"},
    {"ISO-2022-JP", "a\u8868z", "a\x1B$BI=\x1B(Bz"},
};

void expectConversions(qvr_cs_t cs, Sample const& sample)
{
    EXPECT_EQ(sample.encoded, fromUtf8(cs, sample.text));
    EXPECT_EQ(sample.text, toUtf8(cs, sample.encoded));
    std::string copy = sample.encoded;
    EXPECT_NE(nullptr, qvr_strupper(cs, nullptr, copy.data()));
    EXPECT_EQ(0, qvr_stricmp(cs, nullptr, copy.c_str(), sample.encoded.c_str()));
    EXPECT_EQ(sample.encoded.size(), qvr_strcspn(cs, sample.encoded.c_str(), "#"));
}

// In a new process, which has not converted yet.
TEST(qvrThreadsDeathTest, ConvertIfTheProcessHasNoKeysLeft)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            pthread_key_t key;
            while (pthread_key_create(&key, nullptr) == 0)
                continue;
            for (Sample const& sample : kSamples)
                for (int i = 0; i < 3; ++i)
                    expectConversions(Codeset(sample.codeset), sample);
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(qvrThreads, ShareHandles)
{
    std::vector<qvr_cs_t> handles;
    for (Sample const& sample : kSamples)
        handles.push_back(qvr_cs_new(sample.codeset));
    runTogether(8, [&](unsigned number) {
        for (unsigned round = 0; round < 200; ++round) {
            // More codesets than a thread has cached converters.
            size_t const i = (number + round) % std::size(kSamples);
            expectConversions(handles[i], kSamples[i]);
        }
    });
    for (qvr_cs_t const handle : handles)
        qvr_cs_free(handle);
}

TEST(qvrThreads, CreateAndReleaseHandlesOfTheSameCodesets)
{
    runTogether(8, [](unsigned) {
        for (unsigned round = 0; round < 10; ++round)
            for (Sample const& sample : kSamples)
                expectConversions(Codeset(sample.codeset), sample);
    });
}

TEST(qvrThreads, LookUpNamesWhileTheTablesChange)
{
    TemporaryDirectory one;
    TemporaryDirectory other;
    one.write("codesets.alias", "house ISO-8859-15\n");
    one.write("locales.alias", "house fr_FR\n");
    other.write("codesets.alias", "house windows-1252\n");
    other.write("locales.alias", "house de_DE\n");
    ASSERT_EQ(0, qvr_set_dir(one.path().c_str()));
    runTogether(4, [&](unsigned number) {
        for (unsigned round = 0; round < 200; ++round) {
            if (number == 0) {
                EXPECT_EQ(0, qvr_set_dir((round % 2 == 0 ? other : one).path().c_str()));
                continue;
            }
            std::string const euro = fromUtf8(Codeset("house"), "\u20ac");
            EXPECT_TRUE(euro == "\xA4" || euro == "\x80") << hex(euro);
            char name[64];
            EXPECT_EQ(0, qvr_canonical_loc("house", name, sizeof name));
            EXPECT_TRUE(std::strcmp(name, "fr_FR") == 0 || std::strcmp(name, "de_DE") == 0) << name;
            EXPECT_NE(nullptr, qvr_loc_t(Locale("house")));
        }
    });
    qvr_set_dir("");
}

TEST(qvrThreads, EachHasItsOwnTokens)
{
    Codeset const cs("UTF-8");
    runTogether(4, [&](unsigned number) {
        std::string const word(number + 1, static_cast<char>('a' + number));
        for (unsigned round = 0; round < 100; ++round) {
            std::string text;
            for (unsigned i = 0; i < 20; ++i)
                text += word + ' ';
            unsigned found = 0;
            for (char* token = qvr_strtok(cs, text.data(), " "); token != nullptr;
                 token = qvr_strtok(cs, nullptr, " ")) {
                EXPECT_EQ(word, token);
                ++found;
                std::this_thread::yield();
            }
            EXPECT_EQ(20u, found);
        }
    });
}

TEST(qvrThreads, CloseTheirConvertersWhenTheyEnd)
{
    Codeset const cs("GB18030");
    for (unsigned i = 0; i < 200; ++i)
        std::thread([&] { expectConversions(cs, kSamples[4]); }).join();
}

}  // namespace
