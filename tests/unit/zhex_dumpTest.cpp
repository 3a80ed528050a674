#include <Z/zhex_dump.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>
#include <wchar.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "FailingAllocator.h"
#include "Reports.h"
#include "Threads.h"

namespace {

// The dump of `length` bytes at `data`.
std::string dumpOf(int length, unsigned char const* data, char const* title)
{
    char* text = nullptr;
    size_t size = 0;
    FILE* const stream = open_memstream(&text, &size);
    zhex_dump_6_0(stream, length, data, title);
    fclose(stream);
    std::string const dump(text, size);
    free(text);
    return dump;
}

// The same, byte by byte with the platform's printf.
std::string slowDumpOf(int length, unsigned char const* data, char const* title)
{
    std::string out;
    char piece[32];
    if (title != nullptr)
        out += std::string("\n\t") + title + "\n";
    std::string column;
    for (int i = 0; i < length; ++i) {
        if (i % 16 == 0) {
            if (i > 0)
                out += "  *" + column + "*";
            column.assign(16, ' ');
            snprintf(piece, sizeof piece, "\n%4.4x ", static_cast<unsigned>(i));
            out += piece;
        }
        if (i % 8 == 0)
            out += " ";
        snprintf(piece, sizeof piece, " %02x", data[i]);
        out += piece;
        column[static_cast<size_t>(i % 16)] =
            data[i] >= 32 && data[i] <= 253 ? static_cast<char>(data[i]) : '.';
    }
    if (length > 0) {
        for (int k = (length - 1) % 16 + 1; k < 16; ++k)
            out += k % 8 == 0 ? "    " : "   ";
        out += "  *" + column + "*";
    }
    return out + "\n";
}

std::vector<unsigned char> someBytes(size_t count)
{
    std::vector<unsigned char> bytes(count);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<unsigned char>(i * 7 + i / 256);
    return bytes;
}

std::string someTitle(size_t length)
{
    std::string title;
    while (title.size() < length)
        title += "title " + std::to_string(title.size());
    return title.substr(0, length);
}

}  // namespace

TEST(zhex_dump, WritesAFullLine)
{
    unsigned char bytes[16];
    for (unsigned char i = 0; i < 16; ++i)
        bytes[i] = i;
    EXPECT_EQ("\n0000   00 01 02 03 04 05 06 07  08 09 0a 0b 0c 0d 0e 0f  *................*\n",
              dumpOf(16, bytes, nullptr));
}

TEST(zhex_dump, FillsUpTheLastLine)
{
    auto const* const bytes = reinterpret_cast<unsigned char const*>("0123456789abcdefg");
    EXPECT_EQ(std::string(
                  "\n0000   30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66  *0123456789abcdef*") +
                  "\n0010   67" + std::string(15 * 3 + 1 + 2, ' ') + "*g               *\n",
              dumpOf(17, bytes, nullptr));
}

TEST(zhex_dump, WritesTheTitleFirst)
{
    unsigned char const byte = 'x';
    EXPECT_EQ("\n\ttitle\n\n", dumpOf(0, &byte, "title"));
    EXPECT_EQ("\n\ttitle\n\n", dumpOf(-5, &byte, "title"));
    EXPECT_EQ("\n", dumpOf(0, nullptr, nullptr));
    EXPECT_EQ(slowDumpOf(1, &byte, "title"), dumpOf(1, &byte, "title"));
}

TEST(zhex_dump, EqualsADumpMadeByteByByte)
{
    std::vector<unsigned char> const bytes = someBytes(4097);
    for (int length = 0; length <= 4097; ++length)
        ASSERT_EQ(slowDumpOf(length, bytes.data(), nullptr), dumpOf(length, bytes.data(), nullptr))
            << length;
}

TEST(zhex_dump, LongOffsetsTakeMoreDigits)
{
    std::vector<unsigned char> const bytes = someBytes(0x100011);
    std::string const dump = dumpOf(0x100011, bytes.data(), nullptr);
    EXPECT_NE(std::string::npos, dump.find("\nfff0 "));
    EXPECT_NE(std::string::npos, dump.find("\n10000 "));
    EXPECT_NE(std::string::npos, dump.find("\n100010 "));
    EXPECT_EQ(slowDumpOf(0x100011, bytes.data(), nullptr), dump);
}

TEST(zhex_dump, AWideStreamShowsTheDump)
{
    std::vector<unsigned char> const bytes = someBytes(100);
    FILE* const stream = tmpfile();
    fputws(L"before", stream);
    zhex_dump_6_0(stream, 100, bytes.data(), "title");
    fputws(L"after", stream);
    rewind(stream);
    std::string text(2000, '\0');
    ssize_t const got = pread(fileno(stream), text.data(), text.size(), 0);
    ASSERT_LE(0, got);
    text.resize(static_cast<size_t>(got));
    fclose(stream);
    EXPECT_EQ("before" + slowDumpOf(100, bytes.data(), "title") + "after", text);
}

// The sizes of the writes of a dump of `length` bytes.
std::vector<size_t> writesOf(int length, unsigned char const* data)
{
    std::vector<size_t> sizes;
    cookie_io_functions_t const functions = {
        nullptr,
        [](void* cookie, char const*, size_t size) {
            static_cast<std::vector<size_t>*>(cookie)->push_back(size);
            return static_cast<ssize_t>(size);
        },
        nullptr,
        nullptr,
    };
    FILE* const stream = fopencookie(&sizes, "w", functions);
    setvbuf(stream, nullptr, _IONBF, 0);
    zhex_dump_6_0(stream, length, data, "title");
    fclose(stream);
    return sizes;
}

TEST(zhex_dump, IsOneWriteUnlessItIsVeryLong)
{
    constexpr int kLong = 2'000'000;
    std::vector<unsigned char> const bytes = someBytes(kLong);
    std::string const dump = slowDumpOf(200'000, bytes.data(), "title");
    EXPECT_EQ(std::vector<size_t>{dump.size()}, writesOf(200'000, bytes.data()));
    size_t all = 0;
    for (size_t const size : writesOf(kLong, bytes.data())) {
        EXPECT_GE(size_t{1} << 20, size);
        all += size;
    }
    std::string const longDump = slowDumpOf(kLong, bytes.data(), "title");
    EXPECT_EQ(longDump.size(), all);
    EXPECT_TRUE(longDump == dumpOf(kLong, bytes.data(), "title"));
}

TEST(zhex_dump, ATitleMayBeLongerThanTheBuffer)
{
    std::vector<unsigned char> const bytes = someBytes(20);
    std::string const title = someTitle((3 << 20) + 5);
    EXPECT_TRUE(slowDumpOf(20, bytes.data(), title.c_str()) ==
                dumpOf(20, bytes.data(), title.c_str()));
}

TEST(zhex_dump, NullStreamIsStandardError)
{
    unsigned char const byte = 'x';
    EXPECT_EQ(slowDumpOf(1, &byte, "t"), reportOf([&] { zhex_dump_6_0(nullptr, 1, &byte, "t"); }));
}

TEST(zhex_dump, KeepsTheUpperHalfLegible)
{
    for (int value = 0; value < 256; ++value) {
        auto const byte = static_cast<unsigned char>(value);
        std::string const dump = dumpOf(1, &byte, nullptr);
        char const shown = dump[dump.find('*') + 1];
        EXPECT_EQ(value >= 32 && value <= 253 ? static_cast<char>(byte) : '.', shown) << value;
    }
}

TEST(zhex_dump, WorksWithoutMemory)
{
    std::vector<unsigned char> const bytes = someBytes(1000);
    for (size_t titleLength : {5u, 80u, 85u, 88u, 90u, 300u}) {
        SCOPED_TRACE(titleLength);
        std::string const title = someTitle(titleLength);
        std::string const expected = slowDumpOf(1000, bytes.data(), title.c_str());
        char room[8192];
        FILE* const stream = fmemopen(room, sizeof room, "w");
        FailingAllocator::failAt(1, FailingAllocator::forEver);
        zhex_dump_6_0(stream, 1000, bytes.data(), title.c_str());
        FailingAllocator::stop();
        fclose(stream);
        EXPECT_EQ(expected, std::string(room, expected.size()));
    }
}

TEST(zhex_dump, AnExceptionOfTheStreamReleasesTheLock)
{
    cookie_io_functions_t const functions = {
        nullptr,
        [](void*, char const*, size_t) -> ssize_t { throw std::runtime_error("stream"); },
        nullptr,
        nullptr,
    };
    FILE* const stream = fopencookie(nullptr, "w", functions);
    ASSERT_NE(nullptr, stream);
    setvbuf(stream, nullptr, _IONBF, 0);
    std::vector<unsigned char> const bytes = someBytes(100);
    EXPECT_THROW(zhex_dump_6_0(stream, 100, bytes.data(), "title"), std::runtime_error);
    fclose(stream);
    std::string dump;
    std::thread([&] { dump = dumpOf(100, bytes.data(), "title"); }).join();
    EXPECT_EQ(slowDumpOf(100, bytes.data(), "title"), dump);
}

TEST(zhex_dump, ACancelledThreadFinishesItsDump)
{
    std::vector<unsigned char> const bytes = someBytes(100);
    char* text = nullptr;
    size_t size = 0;
    FILE* const stream = open_memstream(&text, &size);
    CancellableThread thread([&] {
        pthread_cancel(pthread_self());
        zhex_dump_6_0(stream, 100, bytes.data(), "title");
        pthread_testcancel();
    });
    EXPECT_TRUE(thread.endsCancelled());
    fclose(stream);
    std::string const dump(text, size);
    free(text);
    EXPECT_EQ(slowDumpOf(100, bytes.data(), "title"), dump);
    EXPECT_EQ(dump, dumpOf(100, bytes.data(), "title"));  // the lock is free
}

TEST(zhex_dump, ConcurrentDumpsDoNotInterleave)
{
    constexpr int kThreads = 8;
    constexpr int kDumps = 20;
    std::string const all = [] {
        char* text = nullptr;
        size_t size = 0;
        FILE* const stream = open_memstream(&text, &size);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([stream, t] {
                std::vector<unsigned char> const bytes(100, static_cast<unsigned char>('a' + t));
                for (int i = 0; i < kDumps; ++i)
                    zhex_dump_6_0(stream, 100, bytes.data(), "title");
            });
        for (std::thread& thread : threads)
            thread.join();
        fclose(stream);
        std::string const out(text, size);
        free(text);
        return out;
    }();
    std::vector<unsigned char> const sample(100, 'a');
    size_t const one = slowDumpOf(100, sample.data(), "title").size();
    ASSERT_EQ(one * kThreads * kDumps, all.size());
    for (size_t at = 0; at < all.size(); at += one) {
        char const letter = all[all.find('*', at) + 1];
        std::vector<unsigned char> const bytes(100, static_cast<unsigned char>(letter));
        ASSERT_EQ(slowDumpOf(100, bytes.data(), "title"), all.substr(at, one));
    }
}
