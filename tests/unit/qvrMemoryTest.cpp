// The n-th allocation fails, for every n: each function returns its failure and leaks nothing.
#include <pthread.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "FailingAllocator.h"
#include "TextServices.h"

namespace {

// Runs `call`, which returns whether it succeeded, with each of its allocations failing in turn,
// only that one and all from it on. ICU and the C library cache some memory in a first call that
// does not fail.
template <class Call>
void failEach(Call call, std::vector<FailingAllocator::Mode> const& modes = {
                             FailingAllocator::once, FailingAllocator::forEver})
{
    ASSERT_TRUE(call()) << "without a failing allocation";
    for (FailingAllocator::Mode const mode : modes) {
        bool failed = true;
        for (unsigned long n = 1; failed; ++n) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            long const before = FailingAllocator::blocks();
            FailingAllocator::failAt(n, mode);
            bool const succeeded = call();
            failed = FailingAllocator::stop();
            EXPECT_EQ(before, FailingAllocator::blocks());
            EXPECT_TRUE(succeeded || failed);
        }
    }
    EXPECT_TRUE(call()) << "again, without a failing allocation";
}

// The same, each time in a new thread without converters.
template <class Call>
void failEachInANewThread(Call call)
{
    for (unsigned long n = 1;; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        bool succeeded = false;
        bool failed = false;
        std::thread([&] {
            FailingAllocator::failAt(n);
            succeeded = call();
            failed = FailingAllocator::stop();
        }).join();
        EXPECT_TRUE(succeeded || failed);
        if (!failed)
            break;
    }
}

TEST(qvrMemory, CreatingCodesetsSucceedsOrFails)
{
    char const* const names[] = {"UTF-8",  "ISO-8859-16", "KOI8-R",   "IBM-1047",
                                 "EUC-KR", "GB18030",     "UTF-16LE", "ISO-2022-JP"};
    for (char const* const name : names) {
        SCOPED_TRACE(name);
        failEach([&] {
            qvr_cs_t const cs = qvr_cs_new(name);
            qvr_cs_free(cs);
            return cs != nullptr;
        });
    }
}

TEST(qvrMemory, CreatingLocalesSucceedsOrFails)
{
    unsetenv("LOCPATH");  // newlocale() of C library 2.36 leaks a block if it is set
    for (char const* const name : {"C", "C.UTF-8", "tr_TR.UTF-8", "japanese"}) {
        SCOPED_TRACE(name);
        auto const call = [&] {
            qvr_loc_t const loc = qvr_loc_new(name);
            qvr_loc_free(loc);
            return loc != nullptr;
        };
        // Not all from one on: newlocale() leaks a block then too.
        failEach(call, {FailingAllocator::once});
    }
}

TEST(qvrMemory, ReadingWordsFailsOnceAndThenSucceeds)
{
    unsetenv("LOCPATH");  // newlocale() of C library 2.36 leaks a block if it is set
    qvr_cs_t const cs = qvr_cs_new("UTF-8");
    for (char const* const name : {"C", "C.UTF-8"}) {
        SCOPED_TRACE(name);
        auto const call = [&] {
            qvr_loc_t const loc = qvr_loc_new(name);
            tm time{};
            bool const hasWords = qvr_strptime(cs, loc, "May", "%b", &time) != nullptr;
            // An allocation fails only once.
            EXPECT_NE(nullptr, qvr_strptime(cs, loc, "May", "%b", &time));
            qvr_loc_free(loc);
            return loc != nullptr && hasWords;
        };
        // Not all from one on: newlocale() leaks a block then too.
        failEach(call, {FailingAllocator::once});
    }
    qvr_cs_free(cs);
}

TEST(qvrMemory, ParsingNumbersNeedsNoMemory)
{
    qvr_cs_t const cs = qvr_cs_new("UTF-8");
    qvr_loc_t const loc = qvr_loc_new("C.UTF-8");
    tm time{};
    FailingAllocator::failAt(1, FailingAllocator::forEver);
    char const* const end = qvr_strptime(cs, loc, "10:59", "%H:%M", &time);
    FailingAllocator::stop();
    EXPECT_NE(nullptr, end);
    qvr_loc_free(loc);
    qvr_cs_free(cs);
}

TEST(qvrMemory, CanonicalNamesFailWithACode)
{
    failEach([] {
        char name[128] = "before";
        int const rc = qvr_canonical_loc("German", name, sizeof name);
        EXPECT_STREQ(rc == 0 ? "de_DE.ISO-8859-1" : "", name);
        EXPECT_TRUE(rc == 0 || rc == qvrNoMemory) << rc;
        return rc == 0;
    });
}

TEST(qvrMemory, FailedTablesChangeNothing)
{
    TemporaryDirectory before;
    TemporaryDirectory after;
    before.write("codesets.alias", "house ISO-8859-15\n");
    after.write("codesets.alias", "house windows-1252\nanother UTF-8\n");
    after.write("locales.alias", "house fr_FR.UTF-8\n");
    std::filesystem::create_directory(after.path("converters"));
    after.write("converters/some-converter-with-a-long-name.cnv", "");
    std::string const beforePath = before.path();
    std::string const afterPath = after.path();
    bool failed = true;
    for (unsigned long n = 1; failed; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        ASSERT_EQ(0, qvr_set_dir(beforePath.c_str()));
        long const blocks = FailingAllocator::blocks();
        FailingAllocator::failAt(n);
        int const rc = qvr_set_dir(afterPath.c_str());
        failed = FailingAllocator::stop();
        EXPECT_EQ(failed ? qvrNoMemory : 0, rc);
        if (failed) {
            EXPECT_EQ(blocks, FailingAllocator::blocks());
        }
        EXPECT_EQ(failed ? "a4" : "80", hex(fromUtf8(Codeset("house"), "\u20ac")));
        EXPECT_EQ(failed, qvr_cs_t(Codeset("another")) == nullptr);
    }
    qvr_set_dir("");
}

TEST(qvrMemory, ABadTableIsReportedOrMemoryIsShort)
{
    TemporaryDirectory bad;
    bad.write("codesets.alias", "house UTF-8\nUTF8 ISO-8859-1\n");
    std::string const path = bad.path();
    std::string const problem = path +
                                "codesets.alias:2: \"UTF8\" is built in and cannot stand for "
                                "\"ISO-8859-1\"; remove the line";
    char first[512];
    // ICU remembers a failure of its first call.
    ASSERT_EQ(qvrInvalid, qvr_check_dir(path.c_str(), first, sizeof first));
    bool failed = true;
    unsigned long n = 1;
    for (; failed && !HasFailure(); ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        char text[512] = "before";
        long const blocks = FailingAllocator::blocks();
        FailingAllocator::failAt(n);
        int const rc = qvr_check_dir(path.c_str(), text, sizeof text);
        failed = FailingAllocator::stop();
        // An exception itself has memory from a reserve.
        EXPECT_TRUE(rc == qvrInvalid || (failed && rc == qvrNoMemory)) << rc;
        EXPECT_EQ(rc == qvrInvalid ? problem : "", text);
        EXPECT_EQ(blocks, FailingAllocator::blocks());
    }
    EXPECT_LT(5u, n);
}

TEST(qvrMemory, ConversionFailsWithACode)
{
    // The character has four bytes in GB18030, and three in EUC-JP, which encodes them with a
    // converter.
    Codeset const gb18030("GB18030");
    Codeset const eucJp("EUC-JP");
    Codeset const utf16("UTF-16");
    for (qvr_cs_t const each : {qvr_cs_t(gb18030), qvr_cs_t(eucJp), qvr_cs_t(utf16)}) {
        char const* const text = each == gb18030 ? "\u3400" : "\u4e02";
        std::string const encoded = fromUtf8(each, text);
        failEachInANewThread([&] {
            char out[16];
            ptrdiff_t const n = qvr_from_utf8(each, text, 3, out, sizeof out);
            EXPECT_TRUE(n > 0 || n == qvrNoMemory) << n;
            return n > 0;
        });
        failEachInANewThread([&] {
            char out[16];
            ptrdiff_t const n = qvr_to_utf8(each, encoded.data(), encoded.size(), out, sizeof out);
            EXPECT_TRUE(n > 0 || n == qvrNoMemory) << n;
            return n > 0;
        });
    }
}

// In a new process, which has not converted yet.
TEST(qvrMemoryDeathTest, ThreadsWithoutACacheStillConvert)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            // The C library stores the values of the first keys inline and allocates for more.
            for (int i = 0; i < 40; ++i) {
                pthread_key_t key;
                EXPECT_EQ(0, pthread_key_create(&key, nullptr));
            }
            Codeset const cs("EUC-JP");
            int converted = 0;
            failEachInANewThread([&] {
                char out[16];
                ptrdiff_t const n = qvr_from_utf8(cs, "\u4e02", 3, out, sizeof out);
                EXPECT_TRUE(n > 0 || n == qvrNoMemory) << n;
                converted += n > 0 ? 1 : 0;
                return n > 0;
            });
            EXPECT_EQ(3, converted);
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(qvrMemory, FourByteCharactersAreInvalidWithoutMemory)
{
    Codeset const cs("GB18030");
    failEachInANewThread([&] {
        int const length = qvr_mblen(cs, "\x81\x30\x81\x30", 4);
        EXPECT_TRUE(length == 4 || length == -1) << length;
        return length == 4;
    });
    failEachInANewThread([&] {
        char out[8];
        int const length = qvr_wctomb(cs, out, sizeof out, 0x80);
        EXPECT_TRUE(length == 4 || length == -1) << length;
        return length == 4;
    });
}

TEST(qvrMemory, CaseIsUnchangedWithoutMemory)
{
    Codeset const cs("EUC-JP");
    std::string const small = fromUtf8(cs, "a\u00e0");
    std::string const capital = fromUtf8(cs, "A\u00c0");
    ASSERT_EQ(4u, small.size());
    std::string const half = "A" + small.substr(1);  // ASCII needs no converter
    failEachInANewThread([&] {
        std::string text = small;
        EXPECT_EQ(text.data(), qvr_strupper(cs, nullptr, text.data()));
        EXPECT_TRUE(text == capital || text == half) << hex(text);
        return text == capital;
    });
    failEachInANewThread([&] {
        std::string text = capital;
        EXPECT_EQ(text.data(), qvr_strlower(cs, nullptr, text.data()));
        return text == small;
    });
    failEachInANewThread([&] {
        char out[qvrMbLenMax] = "###";
        int const length = qvr_wctomb(cs, out, sizeof out, 0xE0);
        EXPECT_EQ(length == -1 ? "###" : small.substr(1), std::string(out, 3));
        return length == 3;
    });
}

TEST(qvrMemory, FourByteCharactersCompareAsBytesWithoutMemory)
{
    Codeset const cs("GB18030");
    std::string const small = fromUtf8(cs, "\u00fe");
    std::string const capital = fromUtf8(cs, "\u00de");
    ASSERT_EQ(4u, small.size());
    failEachInANewThread([&] {
        int const order = qvr_stricmp(cs, nullptr, small.c_str(), capital.c_str());
        EXPECT_TRUE(order == 0 || order == 1) << order;
        return order == 0;
    });
}

TEST(qvrMemory, TablesNeedNoMemory)
{
    Codeset const utf8Codeset("UTF-8");
    Codeset const latin1("ISO-8859-1");
    Codeset const eucJp("EUC-JP");
    Locale const loc("de_DE.UTF-8");
    struct tm time = {};
    EXPECT_NE(nullptr, qvr_strptime(utf8Codeset, loc, "March", "%B", &time));  // reads the words
    FailingAllocator::failAt(1, FailingAllocator::forEver);
    char out[64];
    char text[] = "a\u00e9 b \u8868";
    uint32_t value;
    EXPECT_EQ(2, qvr_mblen(utf8Codeset, text + 1, 2));
    EXPECT_EQ(2, qvr_mbtowc(utf8Codeset, &value, text + 1, 2));
    EXPECT_EQ(2, qvr_wctomb(utf8Codeset, out, sizeof out, 0xE9));
    EXPECT_EQ(9, qvr_from_utf8(utf8Codeset, text, 9, out, sizeof out));
    EXPECT_EQ(2, qvr_from_utf8(latin1, text, 3, out, sizeof out));
    EXPECT_EQ(3, qvr_to_utf8(latin1, out, 2, out + 8, 8));
    EXPECT_EQ(3, qvr_mblen(eucJp, "\x8F\xB0\xA1", 3));
    EXPECT_EQ(3, qvr_from_utf8(eucJp, "a\u8868", 4, out, sizeof out));
    EXPECT_EQ(4, qvr_to_utf8(eucJp, out, 3, out + 8, 8));
    EXPECT_EQ(2, qvr_wctomb(eucJp, out, sizeof out, 0x8868));
    EXPECT_EQ(text + 6, qvr_strstr(utf8Codeset, text, "\u8868"));
    EXPECT_EQ(text, qvr_strupper(utf8Codeset, loc, text));
    EXPECT_EQ(0, qvr_stricmp(utf8Codeset, loc, "A\u00c9", "a\u00e9"));
    EXPECT_EQ(1, qvr_iswalpha(0xE9));
    EXPECT_NE(nullptr, qvr_strptime(utf8Codeset, loc, "1 March 2024", "%d %B %Y", &time));
    EXPECT_NE(nullptr, qvr_strptime(utf8Codeset, nullptr, "1 March 2024", "%d %B %Y", &time));
    unsigned long const asked = FailingAllocator::asked();
    EXPECT_FALSE(FailingAllocator::stop());
    EXPECT_EQ(0u, asked);
}

TEST(qvrMemory, LargeSetsWorkWithoutATable)
{
    Codeset const cs("UTF-8");
    std::string set;
    for (char middle = 0; middle < 4; ++middle)
        for (char last = 0; last < 64; ++last)
            set += {'\xE4', static_cast<char>('\x80' + middle), static_cast<char>('\x80' + last)};
    std::string const text = set + "\u20ac";
    failEach([&] {
        return qvr_strspn(cs, text.c_str(), set.c_str()) == set.size() &&
               qvr_strcspn(cs, text.c_str() + set.size(), set.c_str()) == 3;
    });
}

TEST(qvrMemory, LongNeedlesWorkWithoutATable)
{
    Codeset const cs("EUC-JP");
    std::string needle, shifted = "\xB0";
    for (int i = 0; i < 400; ++i) {
        needle += "\xA4\xA2";
        shifted += "\xA4\xA2";
    }
    std::string const text = shifted + "\xA1" + needle;
    failEach([&] {
        return qvr_strstr(cs, text.c_str(), needle.c_str()) == text.c_str() + shifted.size() + 1;
    });
}

}  // namespace
