#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "Raised.h"

namespace {

std::string bytesOf(ZBufferInterface_6_0 const& buffer)
{
    return std::string(static_cast<char const*>(buffer.getBuffer()), buffer.getLength());
}

// A pointer to bytes for a buffer to copy. The parameters of buffers are not const.
void* bytes(char const* text)
{
    return const_cast<char*>(text);
}

int signOf(int number)
{
    return number < 0 ? -1 : number > 0;
}

void expectEmpty(ZBufferInterface_6_0 const& buffer)
{
    EXPECT_EQ(0u, buffer.getLength());
    EXPECT_EQ(nullptr, buffer.getBuffer());
}

}  // namespace

// ---- The owning buffer

TEST(ZBuffer, StartsEmpty)
{
    ZBuffer_6_0 const buffer;
    expectEmpty(buffer);
    EXPECT_EQ(nullptr, static_cast<void*>(buffer));
}

TEST(ZBuffer, CopiesTheBytes)
{
    char source[] = "abcdef";
    ZBuffer_6_0 const buffer(3, source);
    source[0] = 'X';
    EXPECT_EQ("abc", bytesOf(buffer));
    EXPECT_NE(static_cast<void*>(source), buffer.getBuffer());
    EXPECT_EQ(buffer.getBuffer(), static_cast<void*>(buffer));
}

TEST(ZBuffer, StringIncludesItsTerminatingZero)
{
    ZBuffer_6_0 const buffer("abc");
    EXPECT_EQ(4u, buffer.getLength());
    EXPECT_EQ(std::string("abc\0", 4), bytesOf(buffer));
    ZBuffer_6_0 const empty("");
    EXPECT_EQ(std::string("\0", 1), bytesOf(empty));
    char const* const none = nullptr;
    expectEmpty(ZBuffer_6_0(none));
}

TEST(ZBuffer, CopiesAreDeep)
{
    ZBuffer_6_0 source("abc");
    ZBuffer_6_0 const copy(source);
    ZBuffer_6_0 assigned("something longer");
    assigned = source;
    std::unique_ptr<ZObject_6_0> const clone(source.clone());
    auto const& cloned = dynamic_cast<ZBuffer_6_0 const&>(*clone);
    static_cast<char*>(source.getBuffer())[0] = 'X';
    EXPECT_EQ(std::string("abc\0", 4), bytesOf(copy));
    EXPECT_EQ(std::string("abc\0", 4), bytesOf(assigned));
    EXPECT_EQ(std::string("abc\0", 4), bytesOf(cloned));
    ZBuffer_6_0 const none;
    assigned = none;
    expectEmpty(assigned);
    expectEmpty(ZBuffer_6_0(none));
}

TEST(ZBuffer, AssignmentToItselfKeepsTheBytes)
{
    ZBuffer_6_0 buffer("abc");
    ZBuffer_6_0& self = buffer;
    buffer = self;
    EXPECT_EQ(std::string("abc\0", 4), bytesOf(buffer));
}

TEST(ZBuffer, LengthZeroReleasesTheBlock)
{
    ZBuffer_6_0 buffer("abc");
    long const before = FailingAllocator::blocks();
    buffer.setLength(0);
    expectEmpty(buffer);
    EXPECT_EQ(before - 1, FailingAllocator::blocks());
    buffer.setLength(0);
    expectEmpty(buffer);
}

TEST(ZBuffer, ShorterLengthKeepsTheBlock)
{
    ZBuffer_6_0 buffer("abc");
    void* const block = buffer.getBuffer();
    buffer.setLength(2);
    EXPECT_EQ(2u, buffer.getLength());
    EXPECT_EQ(block, buffer.getBuffer());
    EXPECT_EQ("ab", bytesOf(buffer));
}

TEST(ZBuffer, LongerLengthKeepsTheBytesAndAddsZeros)
{
    ZBuffer_6_0 buffer("abc");
    buffer.setLength(2);
    buffer.setLength(6);
    EXPECT_EQ(std::string("ab\0\0\0\0", 6), bytesOf(buffer));
    ZBuffer_6_0 empty;
    empty.setLength(3);
    EXPECT_EQ(std::string(3, '\0'), bytesOf(empty));
}

TEST(ZBuffer, SetBufferReplacesTheBytes)
{
    ZBuffer_6_0 buffer("abc");
    buffer.setBuffer(5, bytes("12345"));
    EXPECT_EQ("12345", bytesOf(buffer));
    buffer.setBuffer(1, bytes("x"));
    EXPECT_EQ("x", bytesOf(buffer));
    buffer.setBuffer(0, bytes("x"));
    expectEmpty(buffer);
    buffer.setBuffer(0, nullptr);
    expectEmpty(buffer);
}

TEST(ZBuffer, SetBufferTakesText)
{
    ZBuffer_6_0 buffer;
    char text[] = "ab";
    buffer.setBuffer(text);
    EXPECT_EQ(std::string("ab\0", 3), bytesOf(buffer));
    char* const none = nullptr;
    buffer.setBuffer(none);
    expectEmpty(buffer);
}

TEST(ZBuffer, SetBufferOfNullGivesZeros)
{
    ZBuffer_6_0 buffer("abcdefgh");
    buffer.setBuffer(3, nullptr);
    EXPECT_EQ(std::string(3, '\0'), bytesOf(buffer));
    buffer.setBuffer(20, nullptr);
    EXPECT_EQ(std::string(20, '\0'), bytesOf(buffer));
}

TEST(ZBuffer, SetBufferCopiesFromInsideTheBuffer)
{
    struct Case {
        char const* name;
        unsigned long kept;  // the length of the buffer, with a block of 6 bytes
        unsigned offset;
        unsigned long length;
        std::string expected;
    };
    std::string const large(100000, '\0');
    Case const cases[] = {
        {"all", 6, 0, 6, "abcdef"},
        {"start", 6, 0, 2, "ab"},
        {"tail", 6, 3, 3, "def"},
        {"overlapping", 6, 1, 5, "bcdef"},
        {"past the end", 6, 4, 4, std::string("ef\0\0", 4)},
        {"longer", 6, 0, 8, std::string("abcdef\0\0", 8)},
        {"longer, moving the block", 6, 2, 100000, "cdef" + large.substr(4)},
        {"across a shorter length", 2, 1, 4, "bcde"},
        {"past a shorter length", 2, 3, 3, "def"},
        {"past a shorter length and the block", 2, 4, 6, std::string("ef\0\0\0\0", 6)},
        {"past a shorter length, moving the block", 2, 3, 100000, "def" + large.substr(3)},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZBuffer_6_0 buffer(6, bytes("abcdef"));
        buffer.setLength(c.kept);
        buffer.setBuffer(c.length, static_cast<char*>(buffer.getBuffer()) + c.offset);
        EXPECT_EQ(c.expected, bytesOf(buffer));
    }
    ZBuffer_6_0 text("abc");
    text.setBuffer(static_cast<char*>(text.getBuffer()) + 1);
    EXPECT_EQ(std::string("bc\0", 3), bytesOf(text));
}

TEST(ZBuffer, ABlockIsKeptUntilItIsTooShort)
{
    ZBuffer_6_0 buffer("abcdefgh");
    void* const block = buffer.getBuffer();
    buffer.setLength(1);
    FailingAllocator::failAt(1, FailingAllocator::forEver);
    buffer.setLength(9);
    buffer.setBuffer(2, bytes("xy"));
    buffer.setBuffer(9, bytes("012345678"));
    EXPECT_FALSE(FailingAllocator::stop());
    EXPECT_EQ(block, buffer.getBuffer());
    EXPECT_EQ("012345678", bytesOf(buffer));
    buffer.setBufferNoCopy(2, block);
    buffer.setBuffer(3, static_cast<char*>(block) + 4);
    EXPECT_EQ("456", bytesOf(buffer));
}

TEST(ZBuffer, SetBufferNoCopyTakesTheBlockOver)
{
    ZBuffer_6_0 buffer("abc");
    long const before = FailingAllocator::blocks();
    void* const block = malloc(2);
    memcpy(block, "xy", 2);
    buffer.setBufferNoCopy(2, block);
    EXPECT_EQ(block, buffer.getBuffer());
    EXPECT_EQ("xy", bytesOf(buffer));
    EXPECT_EQ(before, FailingAllocator::blocks());
    buffer.setBufferNoCopy(1, block);
    EXPECT_EQ("x", bytesOf(buffer));
    buffer.setBufferNoCopy(9, nullptr);
    expectEmpty(buffer);
    EXPECT_EQ(before - 1, FailingAllocator::blocks());
}

TEST(ZBuffer, TakeBufferMovesTheBlockToTheCaller)
{
    unsigned long length = 99;
    void* data = nullptr;
    {
        ZBuffer_6_0 buffer("abc");
        buffer.takeBuffer(length, data);
        expectEmpty(buffer);
    }
    EXPECT_EQ(4u, length);
    EXPECT_STREQ("abc", static_cast<char*>(data));
    free(data);
    ZBuffer_6_0 empty;
    empty.takeBuffer(length, data);
    EXPECT_EQ(0u, length);
    EXPECT_EQ(nullptr, data);
}

TEST(ZBuffer, CanBeFilledAgainAfterItsBlockWasTaken)
{
    unsigned long length = 0;
    void* data = nullptr;
    ZBuffer_6_0 buffer("abc");
    buffer.takeBuffer(length, data);
    buffer.setLength(1);
    EXPECT_NE(data, buffer.getBuffer());
    EXPECT_EQ(std::string(1, '\0'), bytesOf(buffer));
    buffer.setLength(0);
    buffer.setBuffer(1, data);
    EXPECT_EQ("a", bytesOf(buffer));
    free(data);
}

TEST(ZBuffer, HashesToItsAddress)
{
    ZBuffer_6_0 const one("abc"), same("abc");
    EXPECT_EQ(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&one)), one.hash());
    EXPECT_NE(one.hash(), same.hash());
}

TEST(ZBuffer, TooLongALengthThrowsAndChangesNothing)
{
    ZBuffer_6_0 buffer("abc");
    void* const block = buffer.getBuffer();
    auto const unchanged = [&] {
        EXPECT_EQ(block, buffer.getBuffer());
        EXPECT_EQ(std::string("abc\0", 4), bytesOf(buffer));
    };
    for (unsigned long length : {1ul << 62, ~0ul}) {
        EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(1, "src/Z/ZBuffer", 143,
                                                      [&] { buffer.setLength(length); }));
        unchanged();
        EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(1, "src/Z/ZBuffer", 143,
                                                      [&] { buffer.setBuffer(length, nullptr); }));
        unchanged();
    }
}

TEST(ZBuffer, FailedAllocationLeavesTheBufferUnchanged)
{
    for (auto mode : {FailingAllocator::once, FailingAllocator::forEver}) {
        ZBuffer_6_0 const source("something longer");
        ZBuffer_6_0 buffer("abc");
        auto const unchanged = [&] { EXPECT_EQ(std::string("abc\0", 4), bytesOf(buffer)); };
        EXPECT_LE(1u, failEachAllocation([] { ZBuffer_6_0 made("x"); }, unchanged, mode));
        EXPECT_LE(1u, failEachAllocation([&] { ZBuffer_6_0 copy(source); }, unchanged, mode));
        EXPECT_LE(1u, failEachAllocation([&] { delete source.clone(); }, unchanged, mode));
        EXPECT_LE(1u, failEachAllocation([&] { buffer = source; }, unchanged, mode));
        EXPECT_EQ(bytesOf(source), bytesOf(buffer));
    }
}

// ---- The view

TEST(ZConstBuffer, ViewsBytesOfTheCaller)
{
    char text[] = "abc";
    ZConstBuffer_6_0 view(3, text);
    EXPECT_EQ(text, view.getBuffer());
    EXPECT_EQ(text, static_cast<void*>(view));
    EXPECT_EQ(3u, view.getLength());
    text[0] = 'X';
    EXPECT_EQ("Xbc", bytesOf(view));
    expectEmpty(ZConstBuffer_6_0());
}

TEST(ZConstBuffer, CopiesViewTheSameBytes)
{
    char text[] = "abc";
    ZConstBuffer_6_0 const view(3, text);
    ZConstBuffer_6_0 const copy(view);
    ZConstBuffer_6_0 assigned;
    assigned = view;
    std::unique_ptr<ZObject_6_0> const clone(view.clone());
    auto const& cloned = dynamic_cast<ZConstBuffer_6_0 const&>(*clone);
    EXPECT_EQ(text, copy.getBuffer());
    EXPECT_EQ(text, assigned.getBuffer());
    EXPECT_EQ(text, cloned.getBuffer());
    EXPECT_EQ(3u, cloned.getLength());
}

TEST(ZConstBuffer, SettingAllocatesAndFreesNothing)
{
    char text[] = "abcdef";
    long const before = FailingAllocator::blocks();
    ZConstBuffer_6_0 view(3, text);
    view.setLength(5);
    EXPECT_EQ(text, view.getBuffer());
    EXPECT_EQ("abcde", bytesOf(view));
    view.setLength(0);
    EXPECT_EQ(text, view.getBuffer());
    view.setBuffer(2, text + 1);
    EXPECT_EQ(text + 1, view.getBuffer());
    EXPECT_EQ(2u, view.getLength());
    unsigned long length = 0;
    void* data = nullptr;
    view.takeBuffer(length, data);
    EXPECT_EQ(2u, length);
    EXPECT_EQ(text + 1, data);
    expectEmpty(view);
    EXPECT_EQ(before, FailingAllocator::blocks());
}

TEST(ZConstBuffer, FailedCloneThrows)
{
    ZConstBuffer_6_0 const view;
    EXPECT_LE(1u, failEachAllocation([&] { delete view.clone(); }, [] {}));
}

// ---- Order

TEST(ZAbstractBuffer, ShorterSortsFirstThenTheBytes)
{
    struct Case {
        char const* name;
        std::string left;
        std::string right;
        int order;
    };
    Case const cases[] = {
        {"both empty", "", "", 0},
        {"same", "abc", "abc", 0},
        {"shorter", "zzz", "aaaa", -1},
        {"longer", "aaaa", "zzz", 1},
        {"less", "abc", "abd", -1},
        {"more", "abd", "abc", 1},
        {"bytes are unsigned", "\x7f", "\x80", -1},
        {"zeros count", std::string("a\0b", 3), std::string("a\0c", 3), -1},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZBuffer_6_0 const left(c.left.size(), bytes(c.left.data()));
        ZConstBuffer_6_0 const right(c.right.size(), bytes(c.right.data()));
        EXPECT_EQ(c.order, signOf(left.compare(right)));
        EXPECT_EQ(-c.order, signOf(right.compare(left)));
        EXPECT_EQ(c.order == 0, left.equals(right));
        EXPECT_EQ(c.order < 0, left < right);
    }
    ZBuffer_6_0 const three(3, bytes("zzz")), four(4, bytes("aaaa"));
    EXPECT_EQ(-1, three.compare(four));
    EXPECT_EQ(1, four.compare(three));
}

TEST(ZAbstractBuffer, ReturnsTheResultOfMemcmp)
{
    char const left[] = "a\x01";
    char const right[] = "a\x41";
    size_t const volatile length = 2;  // a constant would let the compiler return only the sign
    EXPECT_EQ(memcmp(left, right, length),
              ZConstBuffer_6_0(2, bytes(left)).compare(ZConstBuffer_6_0(2, bytes(right))));
}

TEST(ZAbstractBuffer, DoesNotReadBytesAtTheSameAddress)
{
    // A view of nonexistent bytes: compare() reads only length and address.
    void* const nowhere = reinterpret_cast<void*>(16);
    EXPECT_EQ(0, ZConstBuffer_6_0(1000, nowhere).compare(ZConstBuffer_6_0(1000, nowhere)));
    EXPECT_EQ(-1, ZConstBuffer_6_0(10, nowhere).compare(ZConstBuffer_6_0(1000, nowhere)));
}

TEST(ZAbstractBuffer, SortsByAddressWithOtherObjects)
{
    ZObject_6_0 const object;
    ZBuffer_6_0 const buffer("abc");
    EXPECT_EQ(&object < static_cast<ZObject_6_0 const*>(&buffer) ? 1 : -1, buffer.compare(object));
}

namespace {

// A model of the buffer: a block, and the length of its valid part.
struct Model {
    std::string block;
    size_t length = 0;

    void setLength(size_t to)
    {
        block.resize(to == 0 ? 0 : std::max(to, block.size()));
        if (to > length)
            std::fill(block.begin() + length, block.begin() + to, '\0');
        length = to;
    }
    void set(std::string const& bytes)
    {
        setLength(bytes.size());
        std::copy(bytes.begin(), bytes.end(), block.begin());
    }
    std::string bytes() const { return block.substr(0, length); }
};

}  // namespace

TEST(ZBuffer, AgreesWithAModelOverRandomOperations)
{
    constexpr unsigned kSeed = 33003;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    ZBuffer_6_0 buffer;
    Model model;
    for (int step = 0; step < 100000; ++step) {
        unsigned long const length = random() % 300;
        switch (random() % 5) {
            case 0:
                buffer.setLength(length);
                model.setLength(length);
                break;
            case 1: {
                std::string text(length, static_cast<char>('a' + random() % 26));
                buffer.setBuffer(length, text.data());
                model.set(text);
                break;
            }
            case 2:
                if (!model.block.empty()) {
                    size_t const offset = random() % model.block.size();
                    buffer.setBuffer(length, static_cast<char*>(buffer.getBuffer()) + offset);
                    std::string taken = model.block.substr(offset);
                    taken.resize(length);
                    model.set(taken);
                }
                break;
            case 3: {
                void* block = nullptr;
                unsigned long taken = 0;
                buffer.takeBuffer(taken, block);
                ASSERT_EQ(model.length, taken);
                buffer.setBufferNoCopy(taken, block);
                model.block.resize(taken);
                break;
            }
            default:
                buffer = ZBuffer_6_0(buffer);
                model.set(model.bytes());
        }
        ASSERT_EQ(model.bytes(), bytesOf(buffer)) << "step " << step;
    }
}

TEST(ZBuffer, CallsOverriddenOperations)
{
    // A buffer with a maximum length.
    class Bounded : public ZBuffer_6_0 {
    public:
        void setLength(unsigned long length) override
        {
            lengths.push_back(length);
            ZBuffer_6_0::setLength(std::min(length, 6ul));
        }
        using ZBuffer_6_0::setBuffer;
        std::vector<unsigned long> lengths;
    };
    char bytes[] = "abcdefghij";
    Bounded buffer;
    buffer.setBuffer(4, bytes);
    EXPECT_EQ(0, memcmp("abcd", buffer.getBuffer(), 4));
    buffer.setBuffer(10, bytes);
    EXPECT_EQ(6u, buffer.getLength());
    EXPECT_EQ(0, memcmp("abcdef", buffer.getBuffer(), 6));
    buffer.setBuffer(5, static_cast<char*>(buffer.getBuffer()) + 1);
    EXPECT_EQ(0, memcmp("bcdef", buffer.getBuffer(), 5));
    buffer.setBuffer(3, nullptr);
    EXPECT_EQ(0, memcmp("\0\0\0", buffer.getBuffer(), 3));
    buffer.setBuffer(6, static_cast<char*>(buffer.getBuffer()) + 3);  // inside the block
    EXPECT_EQ(0, memcmp("eff\0\0\0", buffer.getBuffer(), 6));
    static_cast<ZBuffer_6_0&>(buffer) = ZBuffer_6_0(2, bytes);
    EXPECT_EQ(2u, buffer.getLength());
    buffer.setBuffer(static_cast<char*>(nullptr));
    EXPECT_EQ(nullptr, buffer.getBuffer());
    EXPECT_EQ((std::vector<unsigned long>{4, 10, 5, 3, 6, 2, 0}), buffer.lengths);
}
