// Mutable strings: creation, copies, capacity, failed allocations.
#include <Z/ZAbstractMutableString.h>
#include <Z/ZException.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <climits>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "MutableStrings.h"
#include "Raised.h"

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
