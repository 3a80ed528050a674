// Mutable strings: insertion, removal, formatting, reading, case.
#include <Z/ZAbstractMutableString.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "LocalText.h"
#include "MutableStrings.h"
#include "Raised.h"
#include "Slots.h"

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
