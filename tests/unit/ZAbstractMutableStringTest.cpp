#include <Z/ZAbstractMutableString.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStringIterator.h>
#include <Z/ZUTF8String.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <qvr.h>
#include <time.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "LocalText.h"
#include "MeasuredLength.h"
#include "PageEnd.h"
#include "Raised.h"
#include "Slots.h"

namespace {

constexpr char kSource[] = "src/Z/ZAbstractMutableString";
constexpr char const* kNull = nullptr;

std::string textOf(ZAbstractString_6_0 const& string)
{
    return std::string(string.getChars(), string.getLength());
}

// The growth of the capacity: by the required size and a fifth of it.
unsigned grown(size_t required)
{
    return static_cast<unsigned>(required + (required + 7) / 5);
}

std::string filled(size_t length, char c = 'x')
{
    return std::string(length, c);
}

// The result of the conversion in place of the text services; 0: call them.
ptrdiff_t conversionResult = 0;

}  // namespace

// Override the text services' functions, so that a test can choose the result.
extern "C" ptrdiff_t qvr_to_utf8(qvr_cs_t cs, char const* src, size_t srcLen, char* dst,
                                 size_t dstLen)
{
    if (conversionResult != 0)
        return conversionResult;
    static auto const next =
        reinterpret_cast<decltype(&qvr_to_utf8)>(dlsym(RTLD_NEXT, "qvr_to_utf8"));
    return next(cs, src, srcLen, dst, dstLen);
}

extern "C" ptrdiff_t qvr_from_utf8(qvr_cs_t cs, char const* src, size_t srcLen, char* dst,
                                   size_t dstLen)
{
    if (conversionResult != 0)
        return conversionResult;
    static auto const next =
        reinterpret_cast<decltype(&qvr_from_utf8)>(dlsym(RTLD_NEXT, "qvr_from_utf8"));
    return next(cs, src, srcLen, dst, dstLen);
}

// Tests of the behaviour that both codesets share.
template <class String>
class ZAbstractMutableString : public testing::Test {
};
using Strings = testing::Types<ZLCString_6_0, ZUTF8String_6_0>;
TYPED_TEST_SUITE(ZAbstractMutableString, Strings);

// ---- Making and growing ----------------------------------------------------------------------

TYPED_TEST(ZAbstractMutableString, ANewStringIsEmptyWithACapacityOf95Bytes)
{
    TypeParam const string;
    EXPECT_EQ(0u, string.getLength());
    EXPECT_EQ(95u, string.getCapacity());
    EXPECT_EQ(95u, string.getDefaultLength());
    EXPECT_STREQ("", string.getChars());
}

TYPED_TEST(ZAbstractMutableString, IsCreatedFromTextCharactersAndNumbers)
{
    EXPECT_EQ("text", textOf(TypeParam("text")));
    EXPECT_EQ("", textOf(TypeParam(kNull)));
    EXPECT_EQ("tex", textOf(TypeParam("text", 3)));
    EXPECT_EQ("", textOf(TypeParam("text", 0)));
    EXPECT_EQ("", textOf(TypeParam(kNull, 3)));
    EXPECT_EQ(std::string("a\0b", 3), textOf(TypeParam("a\0b", 3)));
    EXPECT_EQ("c", textOf(TypeParam('c')));
    EXPECT_EQ("0", textOf(TypeParam(0)));
    EXPECT_EQ("2147483647", textOf(TypeParam(INT_MAX)));
    EXPECT_EQ("-2147483648", textOf(TypeParam(INT_MIN)));
    EXPECT_EQ("4294967295", textOf(TypeParam(UINT_MAX)));
    EXPECT_EQ("-9223372036854775808", textOf(TypeParam(LONG_MIN)));
    EXPECT_EQ("9223372036854775807", textOf(TypeParam(LONG_MAX)));
    EXPECT_EQ("18446744073709551615", textOf(TypeParam(ULONG_MAX)));
}

TYPED_TEST(ZAbstractMutableString, ACopyIsIndependent)
{
    for (size_t length : {0u, 4u, 95u, 96u, 500u}) {
        SCOPED_TRACE(length);
        TypeParam original(filled(length).c_str());
        TypeParam copy(original);
        EXPECT_EQ(textOf(original), textOf(copy));
        EXPECT_EQ(length > 95 ? grown(length) : 95u, copy.getCapacity());
        EXPECT_NE(original.getChars(), copy.getChars());
        copy.append("more");
        EXPECT_EQ(filled(length), textOf(original));
        original.clear();
        EXPECT_EQ(filled(length) + "more", textOf(copy));
    }
    EXPECT_EQ(std::string("a\0b", 3), textOf(TypeParam(TypeParam("a\0b", 3))));
}

TYPED_TEST(ZAbstractMutableString, AssignmentReplaces)
{
    TypeParam string("before");
    ZAbstractMutableString_6_0& base = string;
    EXPECT_EQ(&base, &(base = "text"));
    EXPECT_EQ("text", textOf(base));
    base = kNull;
    EXPECT_EQ("text", textOf(base));
    base = 'c';
    EXPECT_EQ("c", textOf(base));
    base = -7;
    EXPECT_EQ("-7", textOf(base));
    base = 7u;
    EXPECT_EQ("7", textOf(base));
    base = LONG_MIN;
    EXPECT_EQ("-9223372036854775808", textOf(base));
    base = ULONG_MAX;
    EXPECT_EQ("18446744073709551615", textOf(base));
    TypeParam const other("other");
    base = other;
    EXPECT_EQ("other", textOf(base));
    ZAbstractMutableString_6_0 const& itself = base;
    base = itself;
    EXPECT_EQ("other", textOf(base));
}

TYPED_TEST(ZAbstractMutableString, Byte96MovesTheTextToTheHeap)
{
    TypeParam string(filled(95).c_str());
    char const* const inside = string.getChars();
    EXPECT_EQ(95u, string.getCapacity());
    string.append('y');
    EXPECT_EQ(116u, string.getCapacity());
    EXPECT_NE(inside, string.getChars());
    EXPECT_EQ(filled(95) + "y", textOf(string));
    // Nothing happens while the text fits.
    for (int i = 0; i < 20; ++i)
        string.append('z');
    EXPECT_EQ(116u, string.getCapacity());
    string.append('z');
    EXPECT_EQ(grown(117), string.getCapacity());
    // The buffer never returns and never shrinks.
    string.clear();
    EXPECT_EQ(grown(117), string.getCapacity());
    EXPECT_STREQ("", string.getChars());
}

TYPED_TEST(ZAbstractMutableString, ALongTextGrowsStepByStep)
{
    std::string const piece = filled(100000);
    std::string expected;
    TypeParam string;
    for (int i = 0; i < 30; ++i) {
        string.append(piece.c_str());
        expected += piece;
        ASSERT_EQ(expected.size(), string.getLength());
        ASSERT_LE(expected.size(), string.getCapacity());
    }
    EXPECT_TRUE(expected == textOf(string));
}

TYPED_TEST(ZAbstractMutableString, AnAssignedTextGrowsLikeEveryOther)
{
    for (size_t const length : {96u, 97u, 115u, 116u, 200u, 1000u}) {
        SCOPED_TRACE(length);
        std::string expected = filled(length);
        TypeParam string(expected.c_str());
        ASSERT_EQ(grown(length), string.getCapacity());
        EXPECT_LT(grown(length), malloc_usable_size(const_cast<char*>(string.getChars())));
        char const* const buffer = string.getChars();
        while (string.getLength() < grown(length)) {
            string.append("y", 1);
            expected += 'y';
            ASSERT_EQ(expected, textOf(string));
            ASSERT_EQ(grown(length), string.getCapacity());
            ASSERT_EQ(buffer, string.getChars());
        }
        string.append('z');
        EXPECT_EQ(grown(grown(length) + 1), string.getCapacity());
        EXPECT_EQ(expected + "z", textOf(string));

        // Up to the capacity: with its own text, and with other text.
        size_t const slack = grown(length) - length;
        std::string const some = filled(slack, 's');
        TypeParam own(filled(length).c_str());
        own.append(own.getChars() + 1, static_cast<unsigned>(slack));
        EXPECT_EQ(filled(grown(length)), textOf(own));
        TypeParam inserted(filled(length).c_str());
        inserted.insert(1, some.c_str());
        EXPECT_EQ("x" + some + filled(length - 1), textOf(inserted));
        TypeParam set(filled(length).c_str());
        set.setChars(filled(grown(length), 's').c_str());
        EXPECT_EQ(filled(grown(length), 's'), textOf(set));
        TypeParam made(filled(length).c_str());
        EXPECT_EQ(grown(length), made.setCapacity(static_cast<unsigned>(length) + 1));
        for (TypeParam const* each : {&own, &inserted, &set, &made})
            EXPECT_EQ(grown(length), each->getCapacity());
    }
}

TYPED_TEST(ZAbstractMutableString, TheBufferHoldsTheCapacityAndMovesOnlyWhenItGrows)
{
    constexpr unsigned kSeed = 21007;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    for (int sequence = 0; sequence < 400; ++sequence) {
        TypeParam string;
        unsigned const longest = std::vector<unsigned>{120, 400, 3000}[random() % 3];
        for (int step = 0; step < 60; ++step) {
            std::string const text = filled(random() % longest, static_cast<char>('a' + step % 26));
            unsigned const n = random() % longest;
            unsigned const at = random() % (string.getLength() + 1);
            unsigned const capacity = string.getCapacity();
            char const* const buffer = string.getChars();
            unsigned const call = random() % 16;
            switch (call) {
                case 0:
                    string.append(text.c_str());
                    break;
                case 1:
                    string.setChars(text.c_str());
                    break;
                case 2:
                    string.insert(at, text.c_str());
                    break;
                case 3:
                    string.remove(at, n);
                    break;
                case 4:
                    string.trunc(n);
                    break;
                case 5:
                    string.clear();
                    break;
                case 6:
                    string.setCapacity(n);
                    break;
                case 7:
                    string.replace("a", "bcd");
                    break;
                case 8:
                    string.replaceAll("abc", text.substr(0, 3).c_str());
                    break;
                case 9:
                    string.format("%s%d", text.c_str(), step);
                    break;
                case 10:
                    string.append(string.getChars() + at);
                    break;
                case 11: {
                    std::istringstream stream(text);
                    string.readLine(stream, 0);
                    break;
                }
                case 12: {
                    ZLCString_6_0 const local(text.c_str());
                    ZUTF8String_6_0 const utf8(text.c_str());
                    ZAbstractString_6_0 const& source =
                        string.getCodesetHandle() == local.getCodesetHandle()
                            ? static_cast<ZAbstractString_6_0 const&>(utf8)
                            : local;
                    string.convertFromCodeSet(source);
                    break;
                }
                case 13:
                    string = TypeParam(text.c_str());
                    break;
                case 14:
                    string.prepend(text.c_str());
                    break;
                default:
                    for (unsigned i = 0; i < n % 200; ++i)
                        string.append('x');
            }
            SCOPED_TRACE("sequence " + std::to_string(sequence) + ", step " + std::to_string(step) +
                         ", call " + std::to_string(call));
            auto const inside = [&] {
                auto const offset = reinterpret_cast<uintptr_t>(string.getChars()) -
                                    reinterpret_cast<uintptr_t>(&string);
                return offset < sizeof string;
            };
            ASSERT_LE(string.getLength(), string.getCapacity());
            if (inside())
                ASSERT_EQ(95u, string.getCapacity());
            else
                ASSERT_LT(string.getCapacity(),
                          malloc_usable_size(const_cast<char*>(string.getChars())));
            if (call == 14)  // gives the old buffer back
                continue;
            ASSERT_LE(capacity, string.getCapacity());
            ASSERT_TRUE(buffer == string.getChars() || capacity < string.getCapacity());
        }
    }
}

TYPED_TEST(ZAbstractMutableString, AGrowingTextMovesRarely)
{
    TypeParam string;
    FailingAllocator::failAt(ULONG_MAX);
    for (int i = 0; i < 512; ++i)
        string.append("01234567");
    unsigned long const asked = FailingAllocator::asked();
    FailingAllocator::stop();
    EXPECT_EQ(4096u, string.getLength());
    EXPECT_GT(10u, asked);
}

TYPED_TEST(ZAbstractMutableString, SetCapacityGrowsExactlyAndNeverShrinks)
{
    TypeParam string("text");
    EXPECT_EQ(95u, string.setCapacity(10));
    EXPECT_EQ(95u, string.setCapacity(95));
    EXPECT_EQ(200u, string.setCapacity(200));
    EXPECT_EQ(200u, string.setCapacity(10));
    EXPECT_EQ(201u, string.setCapacity(201));
    EXPECT_EQ("text", textOf(string));
    EXPECT_EQ(4u, string.getLength());
}

TYPED_TEST(ZAbstractMutableString, ALengthThatDoesNotFitThrows)
{
    char const* const volatile hidden = "x";  // or the compiler warns about the false length
    char const* const x = hidden;
    TypeParam string("text");
    EXPECT_TRUE(
        raises<ZOutOfMemoryException_6_0>(1, kSource, 436, [&] { string.setCapacity(UINT_MAX); }));
    EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(1, kSource, 436,
                                                  [&] { string.append(x, UINT_MAX - 3); }));
    EXPECT_EQ("text", textOf(string));
    EXPECT_EQ(95u, string.getCapacity());
    TypeParam more(filled(1000).c_str());
    EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(1, kSource, 436,
                                                  [&] { more.append(x, UINT_MAX - 999); }));
    EXPECT_EQ(filled(1000), textOf(more));
    EXPECT_TRUE(
        raises<ZOutOfMemoryException_6_0>(1, kSource, 436, [&] { TypeParam(x, UINT_MAX); }));
}

// 20 KB in which every byte becomes 300 KB: 6 GB, which 32 bits would truncate to 1.7 GB.
TYPED_TEST(ZAbstractMutableString, AReplacementThatDoesNotFitThrows)
{
    TypeParam string(filled(20000, 'a').c_str());
    std::string const by = filled(300000);
    EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(1, kSource, 436,
                                                  [&] { string.replace("a", by.c_str()); }));
    EXPECT_EQ(filled(20000, 'a'), textOf(string));
}

TYPED_TEST(ZAbstractMutableString, VirtualFunctionsKeepTheirSlots)
{
    using S = ZAbstractMutableString_6_0;
    EXPECT_EQ(25, slotOf(static_cast<S& (S::*)(char const*, char)>(&S::replaceAll)));
    EXPECT_EQ(26, slotOf(static_cast<S& (S::*)(char, char)>(&S::replace)));
    EXPECT_EQ(27, slotOf(static_cast<S& (S::*)(char const*, char const*)>(&S::replace)));
    EXPECT_EQ(28, slotOf(static_cast<S& (S::*)(char const*, char const*)>(&S::replaceAll)));
    EXPECT_EQ(29, slotOf(&S::replaceOther));
    EXPECT_EQ(30, slotOf(&S::stripLeading));
    EXPECT_EQ(31, slotOf(&S::stripTrailing));
    EXPECT_EQ(32, slotOf(&S::convertFromCodeSet));
    using T = TypeParam;
    EXPECT_EQ(28, slotOf(static_cast<T& (T::*)(char const*, char const*)>(&T::replaceAll)));
    EXPECT_EQ(29, slotOf(&T::replaceOther));
    EXPECT_EQ(4, slotOf(&T::clone));
    EXPECT_EQ(24, slotOf(&T::getCodesetHandle));
}

// ---- Adding text -------------------------------------------------------------------------------

TYPED_TEST(ZAbstractMutableString, AppendAddsAtTheEnd)
{
    TypeParam string("a");
    ZAbstractMutableString_6_0& base = string;
    EXPECT_EQ(&base, &base.append("bc"));
    base.append("def", 2);
    base.append('g');
    base.append("h\0i", 3);
    EXPECT_EQ(std::string("abcdegh\0i", 9), textOf(base));
    base.append(kNull);
    base.append(kNull, 5);
    base.append("");
    EXPECT_EQ(9u, base.getLength());
    base.clear();
    base += "text";
    base += '-';
    base += static_cast<ZAbstractString_6_0 const&>(ZUTF8ConstString_6_0("utf8"));
    EXPECT_EQ("text-utf8", textOf(base));
    base += kNull;
    EXPECT_EQ("text-utf8", textOf(base));
}

TYPED_TEST(ZAbstractMutableString, InsertAddsBetween)
{
    struct Case {
        char const* text;
        unsigned at;
        char const* more;
        char const* result;
    };
    Case const cases[] = {{"abc", 0, "xy", "xyabc"}, {"abc", 1, "xy", "axybc"},
                          {"abc", 3, "xy", "abcxy"}, {"abc", 4, "xy", "abc"},
                          {"abc", 1, "", "abc"},     {"abc", 1, nullptr, "abc"},
                          {"", 0, "xy", "xy"},       {"abc", UINT_MAX, "xy", "abc"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.result);
        TypeParam string(c.text);
        EXPECT_EQ(&string, &string.insert(c.at, c.more));
        EXPECT_EQ(c.result, textOf(string));
    }
    TypeParam longer(filled(90).c_str());
    longer.insert(45, "0123456789");
    EXPECT_EQ(filled(45) + "0123456789" + filled(45), textOf(longer));
    EXPECT_EQ(grown(100), longer.getCapacity());
}

TYPED_TEST(ZAbstractMutableString, InsertMeasuresAgain)
{
    TypeParam string("ab\0cd", 5);
    string.insert(1, "x");
    EXPECT_EQ("axb", textOf(string));
}

TYPED_TEST(ZAbstractMutableString, PrependAddsAtTheStart)
{
    TypeParam string("abc");
    EXPECT_EQ(&string, &string.prepend("xy"));
    EXPECT_EQ("xyabc", textOf(string));
    string.prepend("");
    string.prepend(kNull);
    EXPECT_EQ("xyabc", textOf(string));
}

TYPED_TEST(ZAbstractMutableString, PrependReleasesABufferThatIsNotNeeded)
{
    struct Case {
        char const* name;
        size_t length;
        unsigned capacity;  // requested first
        size_t more;
        unsigned after;
    };
    Case const cases[] = {{"heap to object", 10, 500, 5, 95},
                          {"heap to object, full", 90, 500, 5, 95},
                          {"heap to heap", 100, 500, 5, grown(105)},
                          {"object to heap", 90, 95, 10, grown(100)},
                          {"object stays", 10, 95, 10, 95},
                          {"object stays, filled by the text", 0, 95, 95, 95},
                          {"object stays, filled by both", 1, 95, 94, 95},
                          {"long text before a short one", 1, 95, 200, grown(200)},
                          {"long text before a longer one", 60, 95, 200, grown(260)}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        TypeParam string(filled(c.length).c_str());
        string.setCapacity(c.capacity);
        string.prepend(filled(c.more, 'y').c_str());
        EXPECT_EQ(filled(c.more, 'y') + filled(c.length), textOf(string));
        EXPECT_EQ(c.after, string.getCapacity());
    }
}

TYPED_TEST(ZAbstractMutableString, PrependNullKeepsTheBuffer)
{
    TypeParam string("abc");
    string.setCapacity(500);
    string.prepend(kNull);
    EXPECT_EQ(500u, string.getCapacity());
}

// ---- Cutting ---------------------------------------------------------------------------------

TYPED_TEST(ZAbstractMutableString, RemoveDeletesBytes)
{
    struct Case {
        unsigned at;
        unsigned n;
        char const* result;
    };
    Case const cases[] = {{0, 2, "cde"},
                          {1, 2, "ade"},
                          {2, 3, "ab"},
                          {2, 4, "abcde"},
                          {2, 10, "abcde"},
                          {2, 0, "ab"},
                          {0, 0, ""},
                          {5, 0, "abcde"},
                          {6, 0, "abcde"},
                          {5, 1, "abcde"},
                          {UINT_MAX, 2, "abcde"},
                          {2, UINT_MAX, "abcde"},
                          {UINT_MAX, 1, "abcde"},
                          {0, 5, ""}};
    for (Case const& c : cases) {
        SCOPED_TRACE(std::to_string(c.at) + ", " + std::to_string(c.n));
        TypeParam string("abcde");
        EXPECT_EQ(&string, &string.remove(c.at, c.n));
        EXPECT_EQ(c.result, textOf(string));
        EXPECT_EQ(strlen(c.result), strlen(string.getChars()));
    }
}

TYPED_TEST(ZAbstractMutableString, TruncAndClearTruncate)
{
    TypeParam string("abcde");
    EXPECT_EQ(&string, &string.trunc(6));
    EXPECT_EQ("abcde", textOf(string));
    string.trunc(5);
    EXPECT_EQ("abcde", textOf(string));
    string.trunc(2);
    EXPECT_EQ("ab", textOf(string));
    EXPECT_STREQ("ab", string.getChars());
    EXPECT_EQ(&string, &string.clear());
    EXPECT_EQ("", textOf(string));
    EXPECT_STREQ("", string.getChars());
}

TYPED_TEST(ZAbstractMutableString, StrippingRemovesWhitespace)
{
    struct Case {
        char const* text;
        char const* leading;
        char const* trailing;
        char const* both;
    };
    Case const cases[] = {{"  ab c\t\n", "ab c\t\n", "  ab c", "ab c"},
                          {"abc", "abc", "abc", "abc"},
                          {"", "", "", ""},
                          {" \t\n\v\f\ra", "a", " \t\n\v\f\ra", "a"},
                          {"a \t\n\v\f\r", "a \t\n\v\f\r", "a", "a"},
                          {"a b ", "a b ", "a b", "a b"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        TypeParam leading(c.text);
        EXPECT_EQ(&leading, &leading.stripLeading());
        EXPECT_EQ(c.leading, textOf(leading));
        TypeParam trailing(c.text);
        EXPECT_EQ(&trailing, &trailing.stripTrailing());
        EXPECT_EQ(c.trailing, textOf(trailing));
        TypeParam both(c.text);
        EXPECT_EQ(&both, &both.stripWhiteSpace());
        EXPECT_EQ(c.both, textOf(both));
    }
    TypeParam blanks("   ");
    EXPECT_EQ("", textOf(blanks.stripWhiteSpace()));
    TypeParam leading("   ");
    EXPECT_EQ("", textOf(leading.stripLeading()));
}

TYPED_TEST(ZAbstractMutableString, SetCharsReplaces)
{
    TypeParam string("before");
    EXPECT_EQ(&string, &string.setChars("text"));
    EXPECT_EQ("text", textOf(string));
    string.setChars(kNull);
    EXPECT_EQ("text", textOf(string));
    string.setChars(ZUTF8ConstString_6_0("\xE9"));
    EXPECT_EQ("\xE9", textOf(string));
    string.setChars("a\0b", 3);
    EXPECT_EQ(std::string("a\0b", 3), textOf(string));
    string.setChars(kNull, 3);
    EXPECT_EQ(3u, string.getLength());
    string.setChars(TypeParam("c\0d", 3));
    EXPECT_EQ(std::string("c\0d", 3), textOf(string));
    string.setChars(filled(200).c_str());
    EXPECT_EQ(filled(200), textOf(string));
    EXPECT_EQ(grown(200), string.getCapacity());
    string.setChars(string);
    EXPECT_EQ(filled(200), textOf(string));
}

// ---- Replacing -------------------------------------------------------------------------------

TYPED_TEST(ZAbstractMutableString, ReplaceAByteOfASetByAByte)
{
    struct Case {
        char const* text;
        char const* set;
        char by;
        char const* result;
    };
    Case const cases[] = {{"banana", "an", 'x', "bxxxxx"},
                          {"banana", "an", 0, "b"},
                          {"banana", "", 'x', "banana"},
                          {"banana", "z", 0, "banana"},
                          {"banana", nullptr, 'x', "banana"},
                          {"", "a", 0, ""},
                          {"aaa", "a", 0, ""},
                          {"ab", "ab", 'a', "aa"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.result);
        TypeParam string(c.text);
        EXPECT_EQ(&string, &string.replaceAll(c.set, c.by));
        EXPECT_EQ(c.result, textOf(string));
        EXPECT_EQ(strlen(c.result), strlen(string.getChars()));
    }
}

TYPED_TEST(ZAbstractMutableString, ReplaceAStringByAString)
{
    struct Case {
        char const* text;
        char const* from;
        char const* to;
        char const* result;
    };
    Case const cases[] = {{"a-b-c", "-", "+", "a+b+c"},
                          {"a-b-c", "-", "", "abc"},
                          {"a-b-c", "-", "<->", "a<->b<->c"},
                          {"aaaaa", "aa", "b", "bba"},
                          {"aaaa", "aa", "a", "aa"},
                          {"abc", "x", "y", "abc"},
                          {"abc", "", "y", "abc"},
                          {"abc", nullptr, "y", "abc"},
                          {"abc", "b", nullptr, "abc"},
                          {"abc", "abc", "", ""},
                          {"abc", "abc", "abcabc", "abcabc"},
                          {"", "a", "b", ""},
                          {"abab", "ab", "ba", "baba"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.result);
        TypeParam string(c.text);
        EXPECT_EQ(&string, &string.replace(c.from, c.to));
        EXPECT_EQ(c.result, textOf(string));
    }
    TypeParam grows(filled(60, 'a').c_str());
    grows.replace("a", "bb");
    EXPECT_EQ(filled(120, 'b'), textOf(grows));
    EXPECT_EQ(grown(120), grows.getCapacity());
    TypeParam shrinks(filled(200, 'a').c_str());
    shrinks.replace("aa", "b");
    EXPECT_EQ(filled(100, 'b'), textOf(shrinks));
    EXPECT_EQ(grown(200), shrinks.getCapacity());
}

TYPED_TEST(ZAbstractMutableString, ReplaceCharactersThatAreInASetOrAreNot)
{
    struct Case {
        char const* text;
        char const* set;
        char const* by;
        char const* inSet;
        char const* notInSet;
    };
    Case const cases[] = {{"banana", "an", "x", "bxxxxx", "xanana"},
                          {"banana", "an", "", "b", "anana"},
                          {"banana", "an", "an", "bananananan", "ananana"},
                          {"banana", "", "x", "banana", "xxxxxx"},
                          {"banana", "xyz", "<>", "banana", "<><><><><><>"},
                          {"banana", nullptr, "x", "banana", "banana"},
                          {"banana", "an", nullptr, "banana", "banana"},
                          {"", "an", "x", "", ""}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.inSet);
        TypeParam all(c.text);
        EXPECT_EQ(&all, &all.replaceAll(c.set, c.by));
        EXPECT_EQ(c.inSet, textOf(all));
        TypeParam other(c.text);
        EXPECT_EQ(&other, &other.replaceOther(c.set, c.by));
        EXPECT_EQ(c.notInSet, textOf(other));
        ZAbstractMutableString_6_0& base = all.setChars(c.text);
        EXPECT_EQ(c.inSet, textOf(base.replaceAll(c.set, c.by)));
    }
}

TYPED_TEST(ZAbstractMutableString, IteratorsAreResetFirst)
{
    TypeParam const set("ab");
    TypeParam character;
    ZStringIterator_6_0 letters(set, character);
    letters.getNext();
    TypeParam string("banana");
    ZAbstractMutableString_6_0& base = string;
    EXPECT_EQ(&base, &base.replaceAllOf(letters, "-"));
    EXPECT_EQ("--n-n-", textOf(string));
    EXPECT_EQ("--n-n-", textOf(base.replaceAllOf(letters, nullptr)));

    string = "banana";
    ZStringIterator_6_0 own(string, character);
    own.getNext();
    EXPECT_EQ(&base, &base.replaceNoneOf(own, "a", filled(50).c_str()));
    EXPECT_EQ(filled(50) + "a" + filled(50) + "a" + filled(50) + "a", textOf(string));
    EXPECT_EQ("x", textOf(*own.getNext()));  // it is at the start of the new text
    base.replaceNoneOf(own, nullptr, "-");
    base.replaceNoneOf(own, "a", nullptr);
    EXPECT_EQ(153u, string.getLength());
}

// A caller's iterator defines the characters: here two words and the text between them.
TYPED_TEST(ZAbstractMutableString, CharactersOfForeignIteratorsMayHaveAnyLength)
{
    class Pieces : public ZStringIterator_6_0 {
    public:
        explicit Pieces(TypeParam& target) : ZStringIterator_6_0(target, target), target_(target) {}
        void reset() override { next_ = 0; }
        bool hasMore() override { return next_ < 4; }
        ZAbstractMutableString_6_0* getNext() override
        {
            static constexpr char const* kPieces[] = {"banana banana", "", "n", "bandana bandana"};
            target_ = kPieces[next_++];
            return &target_;
        }

    private:
        TypeParam& target_;
        int next_ = 0;
    };
    TypeParam piece;
    Pieces pieces(piece);
    TypeParam string("banana");
    ZAbstractMutableString_6_0& base = string;
    base.replaceAllOf(pieces, "-");
    EXPECT_EQ("ba-a-a", textOf(string));
    base.replaceNoneOf(pieces, "an", "<>");
    EXPECT_EQ("<><>n<>", textOf(string));
}

// ---- Text of the own buffer --------------------------------------------------------------------

TYPED_TEST(ZAbstractMutableString, ArgumentsMayBePartsOfTheString)
{
    using Base = ZAbstractMutableString_6_0;
    struct Case {
        char const* name;
        std::function<void(Base&, char const*)> change;  // the argument is the text from 3 on
        std::function<std::string(std::string const&, std::string const&)> result;
    };
    using Text = std::string const&;
    Case const cases[] = {
        {"append", [](Base& s, char const* p) { s.append(p); },
         [](Text t, Text p) { return t + p; }},
        {"append n", [](Base& s, char const* p) { s.append(p, 2); },
         [](Text t, Text p) { return t + p.substr(0, 2); }},
        {"+=", [](Base& s, char const*) { s += s; }, [](Text t, Text) { return t + t; }},
        {"prepend", [](Base& s, char const* p) { s.prepend(p); },
         [](Text t, Text p) { return p + t; }},
        {"insert before", [](Base& s, char const* p) { s.insert(1, p); },
         [](Text t, Text p) { return t.substr(0, 1) + p + t.substr(1); }},
        {"insert inside", [](Base& s, char const* p) { s.insert(5, p); },
         [](Text t, Text p) { return t.substr(0, 5) + p + t.substr(5); }},
        {"insert after", [](Base& s, char const* p) { s.insert(s.getLength(), p); },
         [](Text t, Text p) { return t + p; }},
        {"setChars", [](Base& s, char const* p) { s.setChars(p); }, [](Text, Text p) { return p; }},
        {"setChars n", [](Base& s, char const* p) { s.setChars(p, 2); },
         [](Text, Text p) { return p.substr(0, 2); }},
        {"setChars itself", [](Base& s, char const*) { s.setChars(s); },
         [](Text t, Text) { return t; }},
        {"=", [](Base& s, char const* p) { s = p; }, [](Text, Text p) { return p; }},
        {"replace from", [](Base& s, char const* p) { s.replace(p, "new"); },
         [](Text t, Text) { return t.substr(0, 3) + "new"; }},
        {"replace to", [](Base& s, char const* p) { s.replace("0", p); },
         [](Text t, Text p) { return p + t.substr(1); }},
        {"replaceAll set", [](Base& s, char const* p) { s.replaceAll(p, '-'); },
         [](Text t, Text p) { return t.substr(0, 3) + std::string(p.size(), '-'); }},
        {"replaceAll text", [](Base& s, char const* p) { s.replaceAll("0", p); },
         [](Text t, Text p) { return p + t.substr(1); }},
        {"replaceAll own set", [](Base& s, char const* p) { s.replaceAll(p, "++"); },
         [](Text t, Text p) {
             std::string result = t.substr(0, 3);
             for (size_t i = 0; i < p.size(); ++i)
                 result += "++";
             return result;
         }},
        {"replaceOther", [](Base& s, char const* p) { s.replaceOther("0", p); },
         [](Text t, Text p) {
             std::string result = "0";
             for (size_t i = 1; i < t.size(); ++i)
                 result += p;
             return result;
         }},
        {"format", [](Base& s, char const* p) { s.format("%s|%s", p, s.getChars()); },
         [](Text t, Text p) { return p + "|" + t; }},
        {"format itself", [](Base& s, char const* p) { s.format(p); },
         [](Text, Text p) { return p; }},
    };
    // Short, filling the inline buffer, on the heap with spare capacity, on the heap without.
    for (size_t length : {10u, 60u, 95u, 96u, 116u, 700u}) {
        std::string text;
        for (size_t i = 0; i < length; ++i)
            text += static_cast<char>(i < 3 ? '0' + i : 'a' + i % 26);
        for (Case const& c : cases) {
            SCOPED_TRACE(std::string(c.name) + ", " + std::to_string(length));
            TypeParam string(text.c_str());
            if (length == 700)
                string.setCapacity(10000);
            c.change(string, string.getChars() + 3);
            EXPECT_EQ(c.result(text, text.substr(3)), textOf(string));
        }
    }
}

TYPED_TEST(ZAbstractMutableString, ConvertsAViewOfItself)
{
    for (size_t length : {10u, 95u, 200u}) {
        TypeParam string(filled(length).c_str());
        ZUTF8ConstString_6_0 const view(string.getChars() + 2);
        string.convertFromCodeSet(view);
        EXPECT_EQ(filled(length - 2), textOf(string));
    }
}

// ---- Formatting, reading -----------------------------------------------------------------------

TYPED_TEST(ZAbstractMutableString, FormatReplaces)
{
    TypeParam string("before");
    EXPECT_EQ(&string, &string.format("%2$s is %1$d", 7, "seven"));
    EXPECT_EQ("seven is 7", textOf(string));
    for (int length : {94, 95, 96, 510, 511, 512, 513, 5000}) {
        SCOPED_TRACE(length);
        string.format("%*d", length, 7);
        EXPECT_EQ(filled(static_cast<size_t>(length) - 1, ' ') + "7", textOf(string));
    }
    string = "before";
    string.format(kNull);
    EXPECT_EQ("before", textOf(string));
    string.format("%");
    EXPECT_EQ("before", textOf(string));
    string.format("%1$s %3$s", "a", "b", "c");
    EXPECT_EQ("before", textOf(string));
    string.format("");
    EXPECT_EQ("", textOf(string));
}

TYPED_TEST(ZAbstractMutableString, AFailedFormatChangesNothing)
{
    TypeParam string("before");
    EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(1, kSource, 436,
                                                  [&] { string.format("%2147483647d", 1); }));
    EXPECT_EQ("before", textOf(string));
    EXPECT_EQ(&string, &string.format("%2147483647d%d", 1, 1));
    EXPECT_EQ("before", textOf(string));
    // The platform allocates for so many digits, also in the second call.
    std::string const half = textOf(string.format("%17000.16500Lf", 0.5L));
    ASSERT_EQ(17000u, half.size());
    bool failed = true;
    for (unsigned long n = 1; failed; ++n) {
        SCOPED_TRACE(n);
        TypeParam digits("before");
        bool raised = false;
        FailingAllocator::failAt(n);
        try {
            digits.format("%17000.16500Lf", 0.5L);
        } catch (ZOutOfMemoryException_6_0 const&) {
            raised = true;
        }
        failed = FailingAllocator::stop();
        EXPECT_TRUE(failed || !raised);
        EXPECT_TRUE(textOf(digits) == "before" || (!raised && textOf(digits) == half));
    }
}

TYPED_TEST(ZAbstractMutableString, FormatGrowsTheBuffer)
{
    TypeParam string;
    string.format("%s", filled(1000).c_str());
    EXPECT_EQ(grown(1000), string.getCapacity());
}

TYPED_TEST(ZAbstractMutableString, ReadLineReadsOneLine)
{
    std::istringstream stream(std::string("one\ntwo\rthree\r\n\nzero\0byte\n  blanks \nlast", 40));
    TypeParam line("before");
    char const* const expected[] = {"one",  "two",  "three",     "",    "",
                                    "zero", "byte", "  blanks ", "last"};
    for (char const* text : expected) {
        EXPECT_EQ(&stream, &line.readLine(stream, 0));
        EXPECT_EQ(text, textOf(line));
    }
    EXPECT_TRUE(stream.eof());
    line = "before";
    line.readLine(stream, 0);
    EXPECT_EQ("", textOf(line));
}

TYPED_TEST(ZAbstractMutableString, ReadLineReadsLongLines)
{
    std::istringstream stream(filled(10000) + "\nnext");
    TypeParam line;
    line.readLine(stream, 0);
    EXPECT_EQ(filled(10000), textOf(line));
    line.readLine(stream, 0);
    EXPECT_EQ("next", textOf(line));
}

TYPED_TEST(ZAbstractMutableString, CaseChangesInPlace)
{
    TypeParam string("MiXed 1");
    EXPECT_EQ(&string, &string.lower());
    EXPECT_EQ("mixed 1", textOf(string));
    EXPECT_EQ(&string, &string.upper());
    EXPECT_EQ("MIXED 1", textOf(string));
    ZAbstractMutableString_6_0& base = string;
    EXPECT_EQ("mixed 1", textOf(base.lower()));
    EXPECT_EQ("MIXED 1", textOf(base.upper()));
    EXPECT_EQ("", textOf(TypeParam().lower()));
}

TYPED_TEST(ZAbstractMutableString, ComparesWithText)
{
    TypeParam const string("text");
    ZAbstractMutableString_6_0 const& base = string;
    EXPECT_TRUE(base == "text");
    EXPECT_FALSE(base == "texts");
    EXPECT_FALSE(base == kNull);
    EXPECT_TRUE(base != "Text");
    EXPECT_TRUE(base != kNull);
    EXPECT_FALSE(base != "text");
}

// ---- Characters outside ASCII ------------------------------------------------------------------

TEST(ZAbstractMutableStringText, OnlyWholeLocalCharactersAreReplaced)
{
    LocalCharacter const sample = localCharacter();
    if (sample.local.empty())
        GTEST_SKIP() << "the locale has only ASCII";
    std::string const wide = sample.local;

    ZLCString_6_0 whole(("a" + wide + "b" + wide).c_str());
    whole.replace(wide.c_str(), "-");
    EXPECT_STREQ("a-b-", whole);

    // A byte of a longer character is not a character.
    ZLCString_6_0 part(("a" + wide).c_str());
    part.replace(wide.back(), 'x');
    EXPECT_EQ(wide.size() == 1 ? "ax" : "a" + wide, textOf(part));
    part.setChars(("a" + wide + "a").c_str());
    part.replace('a', 0);
    EXPECT_EQ(wide, textOf(part));

    ZLCString_6_0 set(("a" + wide + "b").c_str());
    set.replaceAll((wide + "b").c_str(), "(x)");
    EXPECT_STREQ("a(x)(x)", set);
    ZLCString_6_0 other(("a" + wide + "b").c_str());
    other.replaceOther((wide + "b").c_str(), "(x)");
    EXPECT_EQ("(x)" + wide + "b", textOf(other));

    ZLCString_6_0 strip(("  " + wide + "a" + wide + " \t").c_str());
    strip.stripWhiteSpace();
    EXPECT_EQ(wide + "a" + wide, textOf(strip));
}

TEST(ZAbstractMutableStringText, ACharacterLongerThanTheTextOrThanAnyThrows)
{
    for (int length : {41, qvrMbLenMax + 1}) {
        SCOPED_TRACE(length);
        std::string const set(static_cast<size_t>(length), 'b');
        ZUTF8String_6_0 string(filled(40).c_str());
        MeasuredLength const wrong(length);
        EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 512,
                                                   [&] { string.replaceAll(set.c_str(), "c"); }));
        EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 512,
                                                   [&] { string.replaceOther(set.c_str(), "c"); }));
        EXPECT_EQ(filled(40), textOf(string));
    }
}

TEST(ZAbstractMutableStringText, ALargeSetIsSearchedInLinearTime)
{
    // Every character from U+4E00 to U+9FFF, and a string of these and other characters.
    std::string set, text, ofSet, ofOthers;
    for (unsigned value = 0x4E00; value < 0xA000; ++value)
        set +=
            {static_cast<char>(0xE0 | value >> 12), static_cast<char>(0x80 | (value >> 6 & 0x3F)),
             static_cast<char>(0x80 | (value & 0x3F))};
    for (size_t i = 0; i < 100000; ++i) {
        std::string const member = set.substr(set.size() - 3 * (1 + i % 1000), 3);
        text += member + "\u20ac";
        ofSet += member;
        ofOthers += "\u20ac";
    }
    timespec start{}, end{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &start);
    ZUTF8String_6_0 string(text.c_str());
    string.replaceAll(set.c_str(), "");
    EXPECT_TRUE(ofOthers == textOf(string));
    string.setChars(text.c_str());
    string.replaceOther(set.c_str(), "");
    EXPECT_TRUE(ofSet == textOf(string));
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
    EXPECT_LT(end.tv_sec - start.tv_sec, 2) << "seconds";
}

// Characters that collide in a table whose hash is the common one of the golden ratio.
TEST(ZAbstractMutableStringText, ASetOfCollidingCharactersIsSearchedInLinearTime)
{
    std::string set;
    std::string outside;
    size_t members = 0;
    for (unsigned value = 0x10000; value < 0x110000; ++value) {
        std::string const character{static_cast<char>(0xF0 | value >> 18),
                                    static_cast<char>(0x80 | (value >> 12 & 0x3F)),
                                    static_cast<char>(0x80 | (value >> 6 & 0x3F)),
                                    static_cast<char>(0x80 | (value & 0x3F))};
        uint64_t number = 0;
        std::memcpy(&number, character.data(), character.size());
        uint64_t const spread = (number ^ number >> 29) * 0x9E3779B97F4A7C15u;
        size_t const slot = (spread ^ spread >> 32) & 0xFFFF;
        if (slot >= 0x800)
            continue;
        // Every colliding slot is taken; each lookup scans all of them.
        if (members < 32000 && members % 32 != 31)
            set += character;
        else if (slot < 0x100)
            outside += character;
        ++members;
    }
    while (outside.size() < 1000000)
        outside += outside;
    ZUTF8String_6_0 string(outside.c_str());
    timespec start{}, end{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &start);
    string.replaceAll(set.c_str(), "");
    EXPECT_EQ(outside.size(), string.getLength());
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
    EXPECT_LT(end.tv_sec - start.tv_sec, 2) << "seconds";
}

// In EUC-JP the second byte of one character and the first byte of the next look like a third
// character.
TEST(ZAbstractMutableStringText, AMatchAcrossTwoCharactersIsNotFound)
{
    if (localCodeset() != "EUC-JP")
        GTEST_SKIP() << "needs EUC-JP";
    ZLCString_6_0 string("\xA4\xA2\xA4\xA4");
    string.replace("\xA2\xA4", "x");
    EXPECT_STREQ("\xA4\xA2\xA4\xA4", string);
    string.replaceAll("\xA2\xA4", "x");
    EXPECT_STREQ("\xA4\xA2\xA4\xA4", string);
    string.replace("\xA4\xA4", "x");
    EXPECT_STREQ("\xA4\xA2x", string);
}

TEST(ZAbstractMutableStringText, ReplaceASingleLocalCharacter)
{
    struct Case {
        char const* text;
        char from;
        char to;
        char const* result;
    };
    Case const cases[] = {
        {"banana", 'a', 'o', "bonono"}, {"banana", 'a', 0, "bnn"}, {"aaa", 'a', 0, ""},
        {"abc", 0, 'x', "abc"},         {"abc", 'x', 'y', "abc"},  {"", 'a', 'b', ""},
        {"abc", 'a', 'a', "abc"},       {"abca", 'a', 0, "bc"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.result);
        ZLCString_6_0 string(c.text);
        EXPECT_EQ(&string, &string.replace(c.from, c.to));
        EXPECT_EQ(c.result, textOf(string));
        EXPECT_EQ(strlen(c.result), strlen(string.getChars()));
    }
}

TEST(ZAbstractMutableStringText, CharactersThatCannotBeMeasured)
{
    constexpr int kSite = 512;
    ZUTF8String_6_0 string("a\xE3\x81");
    EXPECT_TRUE(
        raises<ZQVRMBLenException_6_0>(46, kSource, kSite, [&] { string.replaceAll("a", "b"); }));
    EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, "src/Z/ZStringIterator", 113,
                                               [&] { string.replaceOther("a", "b"); }));
    EXPECT_EQ("a\xE3\x81", textOf(string));
    PageEnd const cut("b\xE3\x81");
    ZUTF8String_6_0 good("ab");
    EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, "src/Z/ZStringIterator", 113,
                                               [&] { good.replaceAll(cut.text(), "x"); }));
    EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, kSite,
                                               [&] { good.replaceOther(cut.text(), "x"); }));
    EXPECT_EQ("ab", textOf(good));

    std::string const localCut = localCharacter().cut;
    if (!localCut.empty()) {
        ZLCString_6_0 local((" a" + localCut + " ").c_str());
        EXPECT_TRUE(
            raises<ZQVRMBLenException_6_0>(46, kSource, kSite, [&] { local.stripTrailing(); }));
        EXPECT_EQ(" a" + localCut + " ", textOf(local));
        EXPECT_EQ("a" + localCut + " ", textOf(local.stripLeading()));
    }
}

TEST(ZAbstractMutableStringText, ConvertsFromTheOtherCodeset)
{
    LocalCharacter const sample = localCharacter();
    ZLCString_6_0 const local(("a" + sample.local + "b").c_str());
    ZUTF8String_6_0 const utf8(("a" + sample.utf8 + "b").c_str());
    ZUTF8String_6_0 toUtf8("before");
    EXPECT_EQ(&toUtf8, &toUtf8.convertFromCodeSet(local));
    EXPECT_EQ(textOf(utf8), textOf(toUtf8));
    ZLCString_6_0 toLocal("before");
    EXPECT_EQ(&toLocal, &toLocal.convertFromCodeSet(utf8));
    EXPECT_EQ(textOf(local), textOf(toLocal));

    toUtf8.convertFromCodeSet(ZLCString_6_0());
    EXPECT_EQ(textOf(utf8), textOf(toUtf8));
    toLocal.convertFromCodeSet(ZUTF8ConstString_6_0("a\xFF"));
    EXPECT_EQ("", textOf(toLocal));
    EXPECT_STREQ("", toLocal.getChars());
}

TEST(ZAbstractMutableStringText, AConversionWithoutMemoryLeavesTheString)
{
    ZUTF8String_6_0 utf8("before");
    ZLCString_6_0 local("before");
    conversionResult = qvrNoMemory;
    bool const toUtf8 = bool(raises<ZOutOfMemoryException_6_0>(
        1, kSource, 436, [&] { utf8.convertFromCodeSet(ZLCConstString_6_0("text")); }));
    bool const toLocal = bool(raises<ZOutOfMemoryException_6_0>(
        1, kSource, 436, [&] { local.convertFromCodeSet(ZUTF8ConstString_6_0("text")); }));
    conversionResult = 0;
    EXPECT_TRUE(toUtf8);
    EXPECT_TRUE(toLocal);
    EXPECT_EQ("before", textOf(utf8));
    EXPECT_EQ("before", textOf(local));
}

TEST(ZAbstractMutableStringText, AConversionResultStaysWithinTheBuffer)
{
    for (ptrdiff_t const result :
         {ptrdiff_t{-1}, ptrdiff_t{-2}, ptrdiff_t{-1000}, ptrdiff_t{1000000}}) {
        SCOPED_TRACE(result);
        ZUTF8String_6_0 utf8("before");
        conversionResult = result;
        utf8.convertFromCodeSet(ZLCConstString_6_0("text"));
        conversionResult = 0;
        EXPECT_EQ(result < 0 ? 0u : utf8.getCapacity(), utf8.getLength());
    }
}

TEST(ZAbstractMutableStringText, ConversionSetsTheCapacity)
{
    struct Case {
        size_t length;
        unsigned toUtf8;
        unsigned toLocal;
    };
    Case const cases[] = {
        {31, 95, 95}, {32, 97, 95}, {47, 142, 95}, {48, 145, 97}, {200, 601, 401}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.length);
        ZUTF8String_6_0 utf8;
        utf8.convertFromCodeSet(ZLCString_6_0(filled(c.length).c_str()));
        EXPECT_EQ(filled(c.length), textOf(utf8));
        EXPECT_EQ(c.toUtf8, utf8.getCapacity());
        ZLCString_6_0 local;
        local.convertFromCodeSet(utf8);
        EXPECT_EQ(filled(c.length), textOf(local));
        EXPECT_EQ(c.toLocal, local.getCapacity());
        local.setCapacity(1000);
        local.convertFromCodeSet(utf8);
        EXPECT_EQ(1000u, local.getCapacity());
    }
}

// ---- Against a model ---------------------------------------------------------------------------

namespace {

// The contract of ZAbstractMutableString_6_0 for ASCII text.
class Model {
public:
    explicit Model(bool keepsFirst) : keepsFirst_(keepsFirst) {}

    std::string text;
    unsigned capacity = 95;

    void grow(size_t required, bool exact = false)
    {
        if (required > capacity)
            capacity = exact ? static_cast<unsigned>(required) : grown(required);
    }
    void set(std::string const& with)
    {
        text = with;
        grow(text.size());
    }
    void replace(std::string const& from, std::string const& to)
    {
        if (from.empty())
            return;
        std::string result;
        size_t at = 0;
        for (size_t found; (found = text.find(from, at)) != std::string::npos;
             at = found + from.size())
            result += text.substr(at, found - at) + to;
        set(result + text.substr(at));
    }
    void stripLeading() { text.erase(0, std::min(text.size(), text.find_first_not_of(" \t"))); }
    void stripTrailing()
    {
        size_t length = text.size();
        while (length > (keepsFirst_ ? 1u : 0u) && isspace(text[length - 1]))
            --length;
        text.resize(length);
    }
    void replaceCharacters(std::string const& set, std::string const& by, bool inSet)
    {
        std::string result;
        for (char c : text)
            result += (set.find(c) != std::string::npos) == inSet ? by : std::string(1, c);
        this->set(result);
    }

private:
    bool keepsFirst_;  // stripTrailing() does not examine position 0
};

}  // namespace

TYPED_TEST(ZAbstractMutableString, BehavesLikeAModelUnderRandomOperations)
{
    constexpr unsigned kSeed = 20240611;
    constexpr int kOperations = 120000;
    std::cout << "seed " << kSeed << ", " << kOperations << " operations\n";
    std::mt19937 random(kSeed);
    auto const below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    auto const someText = [&] {
        // Occasionally long, so that all growth occurs; mostly short.
        size_t const length = below(20) == 0 ? below(300) : below(12);
        std::string text;
        while (text.size() < length)
            text += "abcAB- \t"[below(8)];
        return text;
    };
    bool const singleByte = isSingleByteLocale();
    bool const isUtf8 = std::is_same_v<TypeParam, ZUTF8String_6_0>;

    TypeParam string;
    Model model(isUtf8 || singleByte);
    for (int i = 0; i < kOperations; ++i) {
        unsigned const operation = below(24);
        std::string const text = someText();
        char const* const chars = text.c_str();
        auto const length = static_cast<unsigned>(model.text.size());
        unsigned const at = below(length + 3);
        unsigned const n = below(8);
        switch (operation) {
            case 0:
                string.append(chars);
                model.text += text;
                model.grow(model.text.size());
                break;
            case 1:
                string.append(chars, static_cast<unsigned>(text.size() / 2));
                model.text += text.substr(0, text.size() / 2);
                model.grow(model.text.size());
                break;
            case 2:
                string += 'c';
                model.text += 'c';
                model.grow(model.text.size());
                break;
            case 3: {
                string.prepend(chars);
                std::string const old = model.text;
                model.capacity = 95;
                model.set(text);
                model.set(text + old);
                break;
            }
            case 4:
                string.insert(at, chars);
                if (at <= length) {
                    model.text.insert(at, text);
                    model.grow(model.text.size());
                }
                break;
            case 5:
                string.remove(at, n);
                if (n == 0 && at <= length)
                    model.text.resize(at);
                else if (n != 0 && at + n <= length)
                    model.text.erase(at, n);
                break;
            case 6:
                string.trunc(at);
                if (at <= length)
                    model.text.resize(at);
                break;
            case 7:
                if (below(4) == 0) {
                    string.clear();
                    model.text.clear();
                }
                break;
            case 8:
                string.setChars(chars);
                model.set(text);
                break;
            case 9:
                string = static_cast<int>(at) - 100;
                model.set(std::to_string(static_cast<int>(at) - 100));
                break;
            case 10:
                string.stripLeading();
                model.stripLeading();
                break;
            case 11:
                string.stripTrailing();
                model.stripTrailing();
                break;
            case 12:
                string.replaceAll("ab", '+');
                for (char& c : model.text)
                    c = c == 'a' || c == 'b' ? '+' : c;
                break;
            case 13:
                string.replaceAll(" -", '\0');
                std::erase_if(model.text, [](char c) { return c == ' ' || c == '-'; });
                break;
            case 14:
                string.replace('c', 'C');
                std::replace(model.text.begin(), model.text.end(), 'c', 'C');
                break;
            case 15: {
                std::string const from = text.substr(0, n % 3 + 1);
                string.replace(from.c_str(), n % 2 == 0 ? "<=>" : "");
                model.replace(from, n % 2 == 0 ? "<=>" : "");
                break;
            }
            case 16:
                string.lower();
                for (char& c : model.text)
                    c = static_cast<char>(tolower(c));
                break;
            case 17:
                string.upper();
                for (char& c : model.text)
                    c = static_cast<char>(toupper(c));
                break;
            case 18:
                if (length < 200) {
                    string.replaceAll("aB", "<>");
                    model.replaceCharacters("aB", "<>", true);
                }
                break;
            case 19:
                if (length < 200) {
                    string.replaceOther("abc<>", "");
                    model.replaceCharacters("abc<>", "", false);
                }
                break;
            case 20:
                string.format("%s/%d", chars, i);
                model.set(text + "/" + std::to_string(i));
                break;
            case 21:
                if (below(200) == 0) {
                    unsigned const capacity = below(1000);
                    string.setCapacity(capacity);
                    model.grow(capacity, true);
                }
                break;
            case 22: {
                TypeParam const copy(string);
                string.clear();
                string = copy;
                break;
            }
            case 23: {
                auto const from = static_cast<unsigned>(std::min<size_t>(at, length));
                auto const found = model.text.find(text.substr(0, 2), from);
                EXPECT_EQ(found == std::string::npos ? -1 : static_cast<int>(found),
                          string.indexOf(text.substr(0, 2).c_str(), at));
                EXPECT_EQ(model.text.substr(from, n), textOf(string.subString(at, n)));
                EXPECT_EQ(model.text.rfind(text, 0) == 0 && !model.text.empty(),
                          string.beginsWith(chars));
                break;
            }
        }
        ASSERT_EQ(model.text, textOf(string)) << "operation " << operation << " at step " << i;
        ASSERT_EQ(model.text.size(), strlen(string.getChars()));
        ASSERT_EQ(model.capacity, string.getCapacity())
            << "operation " << operation << " at step " << i;
        if (model.text.size() > 2000) {
            string.prepend("");
            string.clear();
            model.set(model.text);
            model.capacity = string.getCapacity();
            model.text.clear();
        }
    }
}

// ---- Memory that is not there ------------------------------------------------------------------

TYPED_TEST(ZAbstractMutableString, AFailedAllocationLeavesTheStringUnchanged)
{
    using Base = ZAbstractMutableString_6_0;
    std::string const longText = filled(300, 'y');
    struct Case {
        char const* name;
        std::function<void(Base&, char const*)> change;
    };
    Case const cases[] = {
        {"append", [](Base& s, char const* p) { s.append(p); }},
        {"insert", [](Base& s, char const* p) { s.insert(1, p); }},
        {"prepend", [](Base& s, char const* p) { s.prepend(p); }},
        {"setChars", [](Base& s, char const* p) { s.setChars(p); }},
        {"setChars of a string", [](Base& s, char const* p) { s.setChars(ZLCConstString_6_0(p)); }},
        {"setCapacity", [](Base& s, char const*) { s.setCapacity(1000); }},
        {"replace", [](Base& s, char const* p) { s.replace("x", p); }},
        {"replaceAll", [](Base& s, char const* p) { s.replaceAll("x", p); }},
        {"replaceOther", [](Base& s, char const* p) { s.replaceOther("a", p); }},
        {"format", [](Base& s, char const* p) { s.format("%s %s", p, p); }},
        {"convert",
         [](Base& s, char const* p) {
             if (s.getCodesetHandle() == Base::utf8_handle_)
                 s.convertFromCodeSet(ZLCConstString_6_0(p));
             else
                 s.convertFromCodeSet(ZUTF8ConstString_6_0(p));
         }},
        {"copy", [](Base& s, char const*) { TypeParam const copy(static_cast<TypeParam&>(s)); }},
        {"clone", [](Base& s, char const*) { delete s.clone(); }},
        {"make", [](Base&, char const* p) { TypeParam const made(p); }},
        {"sum", [](Base& s, char const* p) { (void)(static_cast<TypeParam&>(s) + p); }},
    };
    for (size_t length : {10u, 150u}) {
        for (Case const& c : cases) {
            SCOPED_TRACE(std::string(c.name) + ", " + std::to_string(length));
            std::string const text = filled(length);
            TypeParam string(text.c_str());
            unsigned const capacity = string.getCapacity();
            char const* const chars = string.getChars();
            unsigned long const failed =
                failEachAllocation([&] { c.change(string, longText.c_str()); },
                                   [&] {
                                       EXPECT_EQ(text, textOf(string));
                                       EXPECT_EQ(capacity, string.getCapacity());
                                       EXPECT_EQ(chars, string.getChars());
                                   });
            EXPECT_GE(failed, std::string(c.name) == "copy" && length < 95 ? 0u : 1u);
        }
    }
}

TYPED_TEST(ZAbstractMutableString, AFailedAllocationThrowsFromTheGrowth)
{
    TypeParam string("text");
    std::string const longText = filled(200);
    FailingAllocator::failAt(1);
    bool const raised = bool(raises<ZOutOfMemoryException_6_0>(
        1, kSource, 436, [&] { string.append(longText.c_str()); }));
    FailingAllocator::stop();
    EXPECT_TRUE(raised);
    EXPECT_EQ("text", textOf(string));
}

TYPED_TEST(ZAbstractMutableString, ReadLineRetainsItsBytesWithoutMemory)
{
    std::istringstream stream(filled(300) + "\nnext");
    TypeParam line;
    FailingAllocator::failAt(1);
    bool const raised =
        bool(raises<ZOutOfMemoryException_6_0>(1, kSource, 436, [&] { line.readLine(stream, 0); }));
    FailingAllocator::stop();
    EXPECT_TRUE(raised);
    EXPECT_EQ(filled(95), textOf(line));
}

// ---- Kept behaviours ---------------------------------------------------------------------------

template <class String>
void keepsSkipFlagOn()
{
    std::istringstream stream("  one\n  two");
    stream.unsetf(std::ios_base::skipws);
    String line;
    line.readLine(stream, 0);
    EXPECT_EQ("  one", textOf(line));
    EXPECT_FALSE(stream.flags() & std::ios_base::skipws);
    line.readLine(stream, 1);
    EXPECT_EQ("  two", textOf(line));
    EXPECT_TRUE(stream.flags() & std::ios_base::skipws);
}

TEST(ZAbstractMutableString, KeepsSkipFlagOn)
{
    keepsSkipFlagOn<ZLCString_6_0>();
    keepsSkipFlagOn<ZUTF8String_6_0>();
}

template <class String>
void keepsReplacingBytes()
{
    String string("\xE3\x81\x82\xE3\x82\x81");
    string.replaceAll("\xE3", 'x');
    EXPECT_EQ("x\x81\x82x\x82\x81", textOf(string));
    string.replaceAll("\x81\x82", '\0');
    EXPECT_EQ("xx", textOf(string));
}

TEST(ZAbstractMutableString, KeepsReplacingBytes)
{
    keepsReplacingBytes<ZLCString_6_0>();
    keepsReplacingBytes<ZUTF8String_6_0>();
}

template <class String>
void keepsFirstSpace()
{
    bool const byBytes = std::is_same_v<String, ZUTF8String_6_0> || isSingleByteLocale();
    String string("   ");
    string.stripTrailing();
    EXPECT_EQ(byBytes ? " " : "", textOf(string));
    String one("\t");
    one.stripTrailing();
    EXPECT_EQ(byBytes ? "\t" : "", textOf(one));
}

TEST(ZAbstractMutableString, KeepsFirstSpace)
{
    keepsFirstSpace<ZLCString_6_0>();
    keepsFirstSpace<ZUTF8String_6_0>();
}
