#include <Z/ZSqueeze.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <zlib.h>

#include <random>
#include <string>
#include <vector>

#include "FailingAllocator.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr int kStreamError = -2;
constexpr int kDataError = -3;
constexpr int kMemoryError = -4;
constexpr int kBufferError = -5;

Bytes bytesOf(std::string const& text)
{
    return Bytes(text.begin(), text.end());
}

Bytes squeezed(Bytes source)
{
    Bytes dest(source.size() + source.size() / 100 + 64);
    ZSqueeze_6_0 squeeze;
    squeeze.setSource(source.data(), source.size());
    int const length = squeeze.squeeze(dest.data(), dest.size());
    EXPECT_GT(length, 0);
    dest.resize(static_cast<size_t>(length));
    return dest;
}

Bytes randomBytes(std::mt19937& random, size_t length, unsigned letters)
{
    Bytes bytes(length);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random() % letters);
    return bytes;
}

}  // namespace

TEST(ZSqueeze, ExpandsToTheOriginalBytes)
{
    std::mt19937 random(20261121);
    for (size_t length : {0, 1, 2, 100, 4095, 4096, 70000, 1000000}) {
        for (unsigned letters : {1, 2, 26, 256}) {
            SCOPED_TRACE(testing::Message() << length << " bytes of " << letters << " letters");
            Bytes const source = randomBytes(random, length, letters);
            Bytes packed = squeezed(source);
            Bytes expanded(length + 1, 0xAA);
            ZSqueeze_6_0 squeeze;
            squeeze.setSource(packed.data(), packed.size());
            ASSERT_EQ(static_cast<int>(length),
                      squeeze.unsqueeze(expanded.data(), expanded.size()));
            EXPECT_EQ(0xAA, expanded.back());
            expanded.pop_back();
            EXPECT_EQ(source, expanded);
        }
    }
}

TEST(ZSqueeze, FitsExactly)
{
    Bytes source = bytesOf(std::string(5000, 'x') + "end");
    Bytes packed = squeezed(source);
    Bytes dest(packed.size());
    ZSqueeze_6_0 squeeze;
    squeeze.setSource(source.data(), source.size());
    EXPECT_EQ(static_cast<int>(packed.size()), squeeze.squeeze(dest.data(), dest.size()));
    EXPECT_EQ(packed, dest);
    Bytes expanded(source.size());
    squeeze.setSource(packed.data(), packed.size());
    EXPECT_EQ(static_cast<int>(source.size()), squeeze.unsqueeze(expanded.data(), expanded.size()));
    EXPECT_EQ(source, expanded);
}

TEST(ZSqueeze, SqueezesAtTheDefaultLevelIntoAZlibStream)
{
    Bytes source;
    for (int i = 0; i < 20000; ++i)
        source.push_back(static_cast<unsigned char>((i * i) >> 3));
    Bytes expected(compressBound(source.size()));
    uLongf length = expected.size();
    ASSERT_EQ(Z_OK, compress2(expected.data(), &length, source.data(), source.size(), -1));
    expected.resize(length);
    EXPECT_EQ(expected, squeezed(source));
}

TEST(ZSqueeze, TooSmallADestinationGivesABufferError)
{
    Bytes source = bytesOf(std::string(3000, 'x'));
    Bytes packed = squeezed(source);
    Bytes dest(source.size());
    ZSqueeze_6_0 squeeze;
    for (size_t room = 0; room < packed.size(); ++room) {
        SCOPED_TRACE(room);
        long const blocks = FailingAllocator::blocks();
        squeeze.setSource(source.data(), source.size());
        EXPECT_EQ(kBufferError, squeeze.squeeze(dest.data(), room));
        squeeze.setSource(packed.data(), packed.size());
        EXPECT_EQ(kBufferError, squeeze.unsqueeze(dest.data(), room));
        EXPECT_EQ(blocks, FailingAllocator::blocks());
    }
    long const blocks = FailingAllocator::blocks();
    squeeze.setSource(packed.data(), packed.size());
    EXPECT_EQ(kBufferError, squeeze.unsqueeze(dest.data(), source.size() - 1));
    EXPECT_EQ(blocks, FailingAllocator::blocks());
}

TEST(ZSqueeze, AStreamThatEndsEarlyGivesABufferError)
{
    Bytes packed = squeezed(bytesOf("a string worth compressing, compressing, compressing"));
    Bytes dest(1000);
    ZSqueeze_6_0 squeeze;
    for (size_t length = 0; length < packed.size(); ++length) {
        SCOPED_TRACE(length);
        long const blocks = FailingAllocator::blocks();
        squeeze.setSource(packed.data(), length);
        EXPECT_EQ(kBufferError, squeeze.unsqueeze(dest.data(), dest.size()));
        EXPECT_EQ(blocks, FailingAllocator::blocks());
    }
}

TEST(ZSqueeze, ADamagedStreamGivesADataError)
{
    Bytes const good = squeezed(bytesOf("a string worth compressing, compressing, compressing"));
    Bytes dest(1000);
    ZSqueeze_6_0 squeeze;
    Bytes noStream = bytesOf("[stanza]\nkey = value\n");
    squeeze.setSource(noStream.data(), noStream.size());
    EXPECT_EQ(kDataError, squeeze.unsqueeze(dest.data(), dest.size()));
    for (size_t i = 0; i < good.size(); ++i) {
        SCOPED_TRACE(i);
        Bytes bad = good;
        bad[i] ^= 0xFF;
        squeeze.setSource(bad.data(), bad.size());
        int const rc = squeeze.unsqueeze(dest.data(), dest.size());
        EXPECT_TRUE(rc == kDataError || rc == kBufferError) << rc;
    }
}

TEST(ZSqueeze, AStreamWithAForeignDictionaryGivesADataError)
{
    Bytes const dictionary = bytesOf("dictionary");
    Bytes const source = bytesOf("dictionary dictionary");
    z_stream stream = {};
    ASSERT_EQ(Z_OK, deflateInit(&stream, 9));
    ASSERT_EQ(Z_OK, deflateSetDictionary(&stream, dictionary.data(), 10));
    Bytes packed(200);
    stream.next_in = const_cast<unsigned char*>(source.data());
    stream.avail_in = static_cast<unsigned>(source.size());
    stream.next_out = packed.data();
    stream.avail_out = static_cast<unsigned>(packed.size());
    ASSERT_EQ(Z_STREAM_END, deflate(&stream, Z_FINISH));
    packed.resize(stream.total_out);
    deflateEnd(&stream);

    Bytes dest(1000);
    ZSqueeze_6_0 squeeze;
    squeeze.setSource(packed.data(), packed.size());
    EXPECT_EQ(kDataError, squeeze.unsqueeze(dest.data(), dest.size()));
}

TEST(ZSqueeze, NullPointersReturnAnError)
{
    unsigned char some[64] = {};
    unsigned long length = sizeof some;
    ZSqueeze_6_0 squeeze;
    EXPECT_EQ(kStreamError, squeeze.compress(nullptr, &length, some, 1));
    EXPECT_EQ(kStreamError, squeeze.compress(some, nullptr, some, 1));
    EXPECT_EQ(kStreamError, squeeze.compress(some, &length, nullptr, 1));
    EXPECT_EQ(kStreamError, squeeze.uncompress(nullptr, &length, some, 1));
    EXPECT_EQ(kStreamError, squeeze.uncompress(some, nullptr, some, 1));
    EXPECT_EQ(kStreamError, squeeze.uncompress(some, &length, nullptr, 1));
    EXPECT_EQ(kStreamError, squeeze.squeeze(nullptr, 10));
    EXPECT_EQ(kStreamError, squeeze.unsqueeze(nullptr, 10));
    EXPECT_EQ(sizeof some, length);
    // An object without a source compresses no bytes, which still gives a stream.
    EXPECT_GT(squeeze.squeeze(some, sizeof some), 0);
    EXPECT_EQ(kBufferError, squeeze.unsqueeze(some, sizeof some));
}

TEST(ZSqueeze, LengthsOf33BitsDoNotFit)
{
    unsigned char some[64] = {};
    unsigned long const tooLong = 0x100000000ul;
    unsigned long length = tooLong;
    ZSqueeze_6_0 squeeze;
    EXPECT_EQ(kBufferError, squeeze.compress(some, &length, some, 1));
    EXPECT_EQ(kBufferError, squeeze.uncompress(some, &length, some, 1));
    length = sizeof some;
    EXPECT_EQ(kBufferError, squeeze.compress(some, &length, some, tooLong));
    EXPECT_EQ(kBufferError, squeeze.uncompress(some, &length, some, tooLong));
    squeeze.setSource(some, 1);
    EXPECT_EQ(kBufferError, squeeze.squeeze(some, tooLong));
    EXPECT_EQ(kBufferError, squeeze.unsqueeze(some, tooLong));
}

TEST(ZSqueeze, AFailedAllocationGivesAMemoryErrorAndLeaksNothing)
{
    Bytes source = bytesOf("a string worth compressing, compressing, compressing");
    Bytes packed = squeezed(source);
    struct Case {
        char const* name;
        Bytes& source;
        int (ZSqueeze_6_0::*call)(unsigned char*, unsigned long);
        Bytes const& expected;
    };
    Case const cases[] = {{"squeeze", source, &ZSqueeze_6_0::squeeze, packed},
                          {"unsqueeze", packed, &ZSqueeze_6_0::unsqueeze, source}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes dest(1000);
        ZSqueeze_6_0 squeeze;
        squeeze.setSource(c.source.data(), c.source.size());
        unsigned long failures = 0;
        for (unsigned long n = 1;; ++n) {
            SCOPED_TRACE(n);
            long const before = FailingAllocator::blocks();
            FailingAllocator::failAt(n);
            int const rc = (squeeze.*c.call)(dest.data(), dest.size());
            bool const failed = FailingAllocator::stop();
            EXPECT_EQ(before, FailingAllocator::blocks());
            if (!failed) {
                EXPECT_EQ(static_cast<int>(c.expected.size()), rc);
                break;
            }
            ++failures;
            EXPECT_EQ(kMemoryError, rc);
        }
        dest.resize(c.expected.size());
        EXPECT_EQ(c.expected, dest);
        EXPECT_LE(1u, failures);
    }
}

TEST(ZSqueeze, CopiesShareTheSource)
{
    Bytes source = bytesOf("shared");
    ZSqueeze_6_0 first;
    first.setSource(source.data(), source.size());
    ZSqueeze_6_0 second(first);
    ZSqueeze_6_0 third;
    third = first;
    source[0] = 'S';
    Bytes const expected = squeezed(source);
    for (ZSqueeze_6_0* squeeze : {&first, &second, &third}) {
        Bytes dest(100);
        int const length = squeeze->squeeze(dest.data(), dest.size());
        ASSERT_EQ(static_cast<int>(expected.size()), length);
        dest.resize(expected.size());
        EXPECT_EQ(expected, dest);
    }
}
