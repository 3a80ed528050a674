#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStringTokenizer.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "CharacterSets.h"
#include "FailingAllocator.h"
#include "LinearTime.h"
#include "LocalText.h"
#include "MeasuredLength.h"
#include "PageEnd.h"
#include "Raised.h"
#include "Slots.h"

namespace {

constexpr char kSource[] = "src/Z/ZStringTokenizer";

using Tokens = std::vector<std::string>;

std::string textOf(ZObject_6_0 const* object)
{
    auto const& string = dynamic_cast<ZAbstractString_6_0 const&>(*object);
    return std::string(string.getChars(), string.getLength());
}

Tokens tokensOf(ZStringTokenizer_6_0& tokenizer)
{
    Tokens tokens;
    while (tokenizer.hasMore())
        tokens.push_back(textOf(tokenizer.getNext()));
    return tokens;
}

// Deletes the tokens of a list that does not own them: a leak checker also runs these tests.
void deleteMembers(ZArrayList_6_0& list)
{
    for (unsigned i = 0; i < list.size(); ++i)
        delete list.get(i);
}

// A string whose getChars() returns null.
class NoText : public ZUTF8ConstString_6_0 {
public:
    char const* getChars() const override { return nullptr; }
};

}  // namespace

TEST(ZStringTokenizer, WithoutATextThereAreNoElements)
{
    NoText const source;
    ZUTF8String_6_0 target("before");
    ZStringTokenizer_6_0 tokenizer(source, target);
    ZUTF8ConstString_6_0 const blank(" ");
    ZArrayList_6_0 list(1, 1);
    EXPECT_FALSE(tokenizer.hasMore());
    EXPECT_EQ(nullptr, tokenizer.getNext());
    EXPECT_EQ(0u, tokenizer.skipAll(blank));
    EXPECT_EQ(0u, tokenizer.skipOther(blank));
    tokenizer.list(list);
    EXPECT_EQ(0u, list.size());
    EXPECT_STREQ("before", target);
}

TEST(ZStringTokenizer, SplitsAtWhitespaceByDefault)
{
    ZLCString_6_0 const source("  a\tbc \r\n d ");
    ZLCString_6_0 target;
    ZStringTokenizer_6_0 tokenizer(source, target);
    EXPECT_TRUE(tokenizer.hasMore());
    EXPECT_EQ(&target, tokenizer.getNext());
    EXPECT_STREQ("a", target);
    EXPECT_TRUE(tokenizer.hasMore());
    EXPECT_EQ("bc", textOf(tokenizer.getNext()));
    EXPECT_TRUE(tokenizer.hasMore());
    EXPECT_EQ("d", textOf(tokenizer.getNext()));
    EXPECT_FALSE(tokenizer.hasMore());
}

TEST(ZStringTokenizer, SplitsAtEachDelimiter)
{
    struct Case {
        char const* text;
        char const* delimiters;
        Tokens tokens;
    };
    Case const cases[] = {
        {"a=b:c", "=:", {"a", "b", "c"}},
        {"a=:=b", "=:", {"a", "b"}},
        {"=a=", "=", {"a"}},
        {"abc", "", {"abc"}},
        {"abc", "xyz", {"abc"}},
        {"", "=", {}},
        {"===", "=", {}},
        {"a\vb", " \t\r\n", {"a\vb"}},
        {"a\xE3\x81\x82z", "\xE3\x81\x82", {"a", "z"}},
        {"a\xE3\x81\x82z\xC3\xA4q", "\xC3\xA4\xE3\x81\x82", {"a", "z", "q"}},
        {"\xE3\x81\x82\xE3\x82\x81", "\xE3\x81\x81", {"\xE3\x81\x82\xE3\x82\x81"}}};
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " at " + c.delimiters);
        ZUTF8String_6_0 target;
        ZUTF8String_6_0 const delimiters(c.delimiters);
        ZUTF8ConstString_6_0 const view(c.text);
        ZStringTokenizer_6_0 tokenizer(view, target, delimiters);
        EXPECT_EQ(c.tokens, tokensOf(tokenizer));
        ZUTF8String_6_0 const source(c.text);
        ZStringTokenizer_6_0 ofString(source, target, delimiters);
        EXPECT_EQ(c.tokens, tokensOf(ofString));
    }
}

TEST(ZStringTokenizer, NeverSplitsALocalCharacter)
{
    std::string const wide = localCharacter().local;
    ZLCString_6_0 const source((wide + "=" + wide + "a " + wide).c_str());
    ZLCString_6_0 target;
    ZLCString_6_0 const delimiters("= ");
    ZStringTokenizer_6_0 tokenizer(source, target, delimiters);
    Tokens expected = {wide, wide + "a", wide};
    if (wide.empty())
        expected = {"a"};
    EXPECT_EQ(expected, tokensOf(tokenizer));
    if (!wide.empty()) {
        ZLCString_6_0 const atWide(wide.c_str());
        ZStringTokenizer_6_0 splits(source, target, atWide);
        EXPECT_EQ(Tokens({"=", "a "}), tokensOf(splits));
    }
}

TEST(ZStringTokenizer, DelimitersAreCopied)
{
    ZLCString_6_0 const source("a=b");
    ZLCString_6_0 target;
    ZLCString_6_0 delimiters("=");
    ZStringTokenizer_6_0 tokenizer(source, target, delimiters);
    delimiters = "b";
    EXPECT_EQ(Tokens({"a", "b"}), tokensOf(tokenizer));
}

TEST(ZStringTokenizer, DelimitersMayDifferFromCallToCall)
{
    ZLCString_6_0 const source("key = a,b ; c");
    ZLCString_6_0 target;
    ZStringTokenizer_6_0 tokenizer(source, target);
    ZLCConstString_6_0 const equals("= ");
    ZLCConstString_6_0 const comma(",");
    ZUTF8ConstString_6_0 const semicolon(" ;");
    EXPECT_TRUE(tokenizer.hasMore(equals));
    EXPECT_EQ("key", textOf(tokenizer.getNext(equals)));
    EXPECT_EQ(" = a", textOf(tokenizer.getNext(comma)));
    EXPECT_EQ(",b", textOf(tokenizer.getNext(semicolon)));
    EXPECT_TRUE(tokenizer.hasMore(comma));
    EXPECT_EQ(";", textOf(tokenizer.getNext()));
    EXPECT_EQ("c", textOf(tokenizer.getNext()));
    EXPECT_FALSE(tokenizer.hasMore(comma));
}

TEST(ZStringTokenizer, AtTheEndTheTargetIsEmptied)
{
    for (char const* text : {"", "   ", "\t\r\n"}) {
        SCOPED_TRACE(text);
        ZLCString_6_0 const source(text);
        ZLCString_6_0 target("before");
        ZStringTokenizer_6_0 tokenizer(source, target);
        EXPECT_FALSE(tokenizer.hasMore());
        EXPECT_STREQ("before", target);
        EXPECT_EQ(&target, tokenizer.getNext());
        EXPECT_STREQ("", target);
        EXPECT_EQ(&target, tokenizer.getNext());
        EXPECT_FALSE(tokenizer.hasMore());
    }
}

TEST(ZStringTokenizer, SkippingMeasuresWithoutAdvancing)
{
    ZUTF8String_6_0 const source(
        "  \xE3\x81\x82"
        "b c");
    ZUTF8String_6_0 target;
    ZStringTokenizer_6_0 const tokenizer(source, target);
    ZUTF8ConstString_6_0 const blank(" ");
    ZUTF8ConstString_6_0 const letter("b");
    EXPECT_EQ(2u, tokenizer.skipAll(blank));
    EXPECT_EQ(2u, tokenizer.skipAll(blank));
    EXPECT_EQ(0u, tokenizer.skipAll(letter));
    EXPECT_EQ(0u, tokenizer.skipOther(blank));
    EXPECT_EQ(5u, tokenizer.skipOther(letter));
    ZUTF8ConstString_6_0 const none("");
    EXPECT_EQ(0u, tokenizer.skipAll(none));
    EXPECT_EQ(8u, tokenizer.skipOther(none));
}

TEST(ZStringTokenizer, ResetReturnsToTheStartOfTheChangedSource)
{
    ZLCString_6_0 source("a b");
    ZLCString_6_0 target;
    ZStringTokenizer_6_0 tokenizer(source, target);
    EXPECT_EQ(Tokens({"a", "b"}), tokensOf(tokenizer));
    tokenizer.reset();
    EXPECT_EQ(Tokens({"a", "b"}), tokensOf(tokenizer));
    source.setCapacity(1000);
    source = "x y z";
    tokenizer.reset();
    EXPECT_EQ(Tokens({"x", "y", "z"}), tokensOf(tokenizer));
}

TEST(ZStringTokenizer, ACopyHasThePositionOfTheOriginalAndItsOwnDelimiters)
{
    ZUTF8String_6_0 const source("a=b=c");
    ZUTF8String_6_0 target;
    ZUTF8ConstString_6_0 const equals("=");
    auto original = std::make_unique<ZStringTokenizer_6_0>(source, target, equals);
    original->getNext();
    ZStringTokenizer_6_0 copy(*original);
    ZLCString_6_0 const otherSource("x y");
    ZLCString_6_0 otherTarget("before");
    ZStringTokenizer_6_0 assigned(otherSource, otherTarget);
    assigned = *original;
    ZStringTokenizer_6_0& self = assigned;
    assigned = self;
    std::unique_ptr<ZObject_6_0> const object(static_cast<ZObject_6_0&>(*original).clone());
    original.reset();
    EXPECT_EQ(Tokens({"b", "c"}), tokensOf(copy));
    EXPECT_EQ(Tokens({"b", "c"}), tokensOf(assigned));
    EXPECT_STREQ("before", otherTarget);
    assigned.reset();
    EXPECT_EQ(&target, assigned.getNext());
    EXPECT_STREQ("a", target);
    EXPECT_EQ(Tokens({"b", "c"}), tokensOf(dynamic_cast<ZStringTokenizer_6_0&>(*object)));
}

TEST(ZStringTokenizer, FindsTheNextEqualToken)
{
    ZLCString_6_0 const source("a b c");
    ZLCString_6_0 target;
    ZStringTokenizer_6_0 tokenizer(source, target);
    ZLCString_6_0 const wanted("b");
    EXPECT_EQ(&target, tokenizer.findNext(wanted));
    EXPECT_EQ("c", textOf(tokenizer.getNext()));
    EXPECT_EQ(nullptr, tokenizer.findNext(wanted));
}

TEST(ZStringTokenizer, ListsIndependentTokens)
{
    ZLCString_6_0 const source("a bc  d");
    for (int owns : {0, 1}) {
        SCOPED_TRACE(owns);
        ZLCString_6_0 target;
        ZStringTokenizer_6_0 tokenizer(source, target);
        ZArrayList_6_0 list(1, owns);
        tokenizer.list(list);
        target = "changed";
        ASSERT_EQ(3u, list.size());
        EXPECT_EQ("a", textOf(list.get(0)));
        EXPECT_EQ("bc", textOf(list.get(1)));
        EXPECT_EQ("d", textOf(list.get(2)));
        EXPECT_NE(nullptr, dynamic_cast<ZLCString_6_0 const*>(list.get(0)));
        tokenizer.list(list);  // no tokens are left
        EXPECT_EQ(3u, list.size());
        if (owns == 0)
            deleteMembers(list);
    }
}

TEST(ZStringTokenizer, ListsTheRemainingTokens)
{
    ZUTF8String_6_0 const source("a b c");
    ZUTF8String_6_0 target;
    ZStringTokenizer_6_0 tokenizer(source, target);
    tokenizer.getNext();
    ZArrayList_6_0 list(1, 1);
    tokenizer.list(list);
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ("b", textOf(list.get(0)));
    EXPECT_NE(nullptr, dynamic_cast<ZUTF8String_6_0 const*>(list.get(0)));
}

// ---- Failures --------------------------------------------------------------------------------

TEST(ZStringTokenizer, DifferentCodesetsThrow)
{
    ZLCString_6_0 local("a");
    ZUTF8String_6_0 utf8("b");
    EXPECT_TRUE(raises<ZUnsupportedException_6_0>(
        48, kSource, 97, [&] { ZStringTokenizer_6_0 const made(local, utf8); }));
    EXPECT_TRUE(raises<ZUnsupportedException_6_0>(
        48, kSource, 97, [&] { ZStringTokenizer_6_0 const made(utf8, local); }));
    EXPECT_TRUE(raises<ZUnsupportedException_6_0>(
        48, kSource, 72, [&] { ZStringTokenizer_6_0 const made(local, utf8, local); }));
    EXPECT_TRUE(raises<ZUnsupportedException_6_0>(
        48, kSource, 72, [&] { ZStringTokenizer_6_0 const made(utf8, local, utf8); }));
    EXPECT_STREQ("a", local);
    EXPECT_STREQ("b", utf8);
}

TEST(ZStringTokenizer, ACharacterThatCannotBeMeasuredThrows)
{
    ZUTF8ConstString_6_0 const blank(" ");
    for (char const* text : {"a \xE3\x81", "a \x81", "a \xE3\x81 b"}) {
        SCOPED_TRACE(text);
        PageEnd const end(text);
        ZUTF8ConstString_6_0 const source(end.text());
        ZUTF8String_6_0 target("before");
        ZStringTokenizer_6_0 tokenizer(source, target);
        EXPECT_EQ("a", textOf(tokenizer.getNext()));
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(
                raises<ZQVRMBLenException_6_0>(46, kSource, 269, [&] { tokenizer.hasMore(); }));
            EXPECT_TRUE(
                raises<ZQVRMBLenException_6_0>(46, kSource, 269, [&] { tokenizer.getNext(); }));
            EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 269,
                                                       [&] { tokenizer.skipAll(blank); }));
            EXPECT_EQ(0u, tokenizer.skipOther(blank));
            EXPECT_STREQ("a", target);
        }
    }
    PageEnd const end(" ab\xE3\x81");
    ZUTF8ConstString_6_0 const source(end.text());
    ZUTF8String_6_0 target("before");
    ZStringTokenizer_6_0 tokenizer(source, target);
    EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 331, [&] { tokenizer.getNext(); }));
    EXPECT_STREQ("before", target);
    EXPECT_EQ(1u, tokenizer.skipAll(blank));
    EXPECT_TRUE(tokenizer.hasMore());
    EXPECT_TRUE(
        raises<ZQVRMBLenException_6_0>(46, kSource, 331, [&] { tokenizer.skipOther(blank); }));
}

// A string that hides the last byte of its text.
class Shortened : public ZUTF8String_6_0 {
public:
    using ZUTF8String_6_0::ZUTF8String_6_0;
    unsigned int getLength() const override { return ZUTF8String_6_0::getLength() - 1; }
};

TEST(ZStringTokenizer, AsksADerivedStringForItsLength)
{
    Shortened const source("a bc");
    ZUTF8String_6_0 target;
    ZStringTokenizer_6_0 tokenizer(source, target);
    EXPECT_STREQ("a", *tokenizer.getNext());
    EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 331, [&] { tokenizer.getNext(); }));
}

TEST(ZStringTokenizer, ATruncatedLocalCharacterThrows)
{
    std::string const cut = localCharacter().cut;
    if (cut.empty())
        GTEST_SKIP() << "every byte of the locale is a character";
    PageEnd const end(" a" + cut);
    ZLCConstString_6_0 const source(end.text());
    ZLCString_6_0 target("before");
    ZStringTokenizer_6_0 tokenizer(source, target);
    EXPECT_TRUE(tokenizer.hasMore());
    EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 331, [&] { tokenizer.getNext(); }));
    EXPECT_STREQ("before", target);
}

TEST(ZStringTokenizer, ACharacterLongerThanTheTextOrThanAnyThrows)
{
    for (int length : {41, 17}) {
        SCOPED_TRACE(length);
        ZUTF8String_6_0 const source(("\u00e9" + std::string(38, 'a')).c_str());
        ZUTF8String_6_0 target("before");
        ZStringTokenizer_6_0 tokenizer(source, target);
        MeasuredLength const wrong(length);
        EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 269, [&] { tokenizer.hasMore(); }));
        EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 269, [&] { tokenizer.getNext(); }));
        EXPECT_STREQ("before", target);
    }
}

TEST(ZStringTokenizer, AFailedAllocationLeaksNothing)
{
    std::string const longToken(300, 'x');
    ZUTF8String_6_0 const source((longToken + " a").c_str());
    ZUTF8String_6_0 target("before");
    ZUTF8String_6_0 const delimiters(std::string(200, ' ').c_str());
    EXPECT_LE(1u,
              failEachAllocation([&] { ZStringTokenizer_6_0 const made(source, target); }, [] {}));
    EXPECT_LE(1u, failEachAllocation(
                      [&] { ZStringTokenizer_6_0 const made(source, target, delimiters); }, [] {}));
    ZStringTokenizer_6_0 tokenizer(source, target, delimiters);
    ZStringTokenizer_6_0 other(source, target);
    EXPECT_LE(1u, failEachAllocation([&] { other = tokenizer; }, [] {}));
    EXPECT_LE(1u, failEachAllocation([&] { delete tokenizer.clone(); }, [] {}));
    EXPECT_LE(1u, failEachAllocation([&] { tokenizer.getNext(); },
                                     [&] { EXPECT_STREQ("before", target); }));
    EXPECT_EQ(longToken, textOf(&target));
    for (int owns : {0, 1}) {
        ZArrayList_6_0 list(1, owns);
        unsigned long const failed = failEachAllocation(
            [&] {
                tokenizer.reset();
                struct Emptied {
                    ZArrayList_6_0& list;
                    ~Emptied()
                    {
                        if (list.ownsMembers() == 0)
                            deleteMembers(list);
                        list.removeAll();
                    }
                } const emptied{list};
                ZArrayList_6_0 fresh(1, owns);
                struct Freed {
                    ZArrayList_6_0& list;
                    ~Freed()
                    {
                        if (list.ownsMembers() == 0)
                            deleteMembers(list);
                    }
                } const freed{fresh};
                tokenizer.list(fresh);
            },
            [] {});
        EXPECT_GE(failed, 4u);
    }
}

// ---- Against a model ---------------------------------------------------------------------------

TEST(ZStringTokenizer, ReturnsTheTokensOfAModel)
{
    constexpr unsigned kSeed = 20240613;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    char const* const alphabet[] = {
        "a", "b", " ", ",", "\xC3\xA4", "\xE3\x81\x82", "\xF0\x9F\x98\x80"};
    constexpr size_t kLetters = std::size(alphabet);
    for (int round = 0; round < 5000; ++round) {
        bool isDelimiter[kLetters] = {};
        std::string delimiters;
        for (size_t i = 0; i < kLetters; ++i) {
            isDelimiter[i] = random() % 3 == 0;
            if (isDelimiter[i])
                delimiters += alphabet[i];
        }
        std::string text;
        std::string token;
        Tokens expected;
        for (size_t n = random() % 40; n > 0; --n) {
            size_t const letter = random() % kLetters;
            text += alphabet[letter];
            if (!isDelimiter[letter]) {
                token += alphabet[letter];
            } else if (!token.empty()) {
                expected.push_back(token);
                token.clear();
            }
        }
        if (!token.empty())
            expected.push_back(token);
        PageEnd const end(text);
        ZUTF8ConstString_6_0 const source(end.text());
        ZUTF8String_6_0 target;
        ZUTF8String_6_0 const set(delimiters.c_str());
        ZStringTokenizer_6_0 tokenizer(source, target, set);
        ASSERT_EQ(expected, tokensOf(tokenizer)) << text << " at " << delimiters;
    }
}

// So many delimiters that a set replaces the search. In EUC-JP the second byte of one delimiter and
// the first of the next are a delimiter too: their bytes do occur.
TEST(ZStringTokenizer, ManyDelimitersAgreeWithASearch)
{
    bool const wide = localCodeset() == "EUC-JP" || localCodeset() == "UTF-8";
    if (!wide)
        GTEST_SKIP() << "every byte of the locale is a character";
    bool const isUtf8 = localCodeset() == "UTF-8";
    constexpr unsigned kSeed = 5511;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    auto const character = [&](unsigned n) {
        if (n % 7 == 0)
            return std::string(1, static_cast<char>('a' + n % 26));
        if (isUtf8 && n % 7 == 1)
            return std::string{'\xC3', static_cast<char>(0x80 + n % 64)};
        if (isUtf8)
            return std::string{'\xE4', static_cast<char>(0x80 + n / 64 % 2),
                               static_cast<char>(0x80 + n % 64)};
        std::string const two{static_cast<char>(0xB0 + n / 8 % 8), static_cast<char>(0xB0 + n % 8)};
        return n % 7 == 1 ? "\x8F" + two : two;
    };
    for (int round = 0; round < 300; ++round) {
        std::string set;
        for (size_t n = random() % 60; n > 0; --n)
            set += character(static_cast<unsigned>(random()));
        std::string text;
        std::string token;
        Tokens expected;
        for (size_t n = random() % 300; n > 0; --n) {
            std::string const next = character(static_cast<unsigned>(random()));
            text += next;
            if (set.find(next) == std::string::npos) {
                token += next;
            } else if (!token.empty()) {
                expected.push_back(token);
                token.clear();
            }
        }
        if (!token.empty())
            expected.push_back(token);
        PageEnd const end(text);
        ZLCConstString_6_0 const source(end.text());
        ZLCString_6_0 target;
        PageEnd const setEnd(set);
        ZLCConstString_6_0 const delimiters(setEnd.text());
        ZStringTokenizer_6_0 own(source, target, delimiters);
        ASSERT_EQ(expected, tokensOf(own)) << text << " at " << set;
        ZStringTokenizer_6_0 ofCalls(source, target);
        Tokens tokens;
        while (ofCalls.hasMore(delimiters))
            tokens.push_back(textOf(ofCalls.getNext(delimiters)));
        ASSERT_EQ(expected, tokens) << text << " at " << set;
    }
}

TEST(ZStringTokenizer, ManyDelimitersAreSearchedInLinearTime)
{
    // A set, and a string of the last of its characters with tokens between.
    auto const prepare = [](size_t size) {
        std::string const set = ideographs(size);
        std::string text;
        for (size_t i = 0; i < size; ++i)
            text += set.substr(set.size() - 3 * (1 + i % 100), 3) + "\u20ac";
        return [set, text, size] {
            ZUTF8ConstString_6_0 const source(text.c_str());
            ZUTF8ConstString_6_0 const delimiters(set.c_str());
            ZUTF8String_6_0 target;
            ZStringTokenizer_6_0 tokenizer(source, target, delimiters);
            size_t tokens = 0;
            for (; tokenizer.hasMore(); ++tokens)
                ASSERT_EQ("\u20ac", textOf(tokenizer.getNext()));
            EXPECT_EQ(size, tokens);
            // A single token of all of them, with delimiters that are passed to the call.
            ZStringTokenizer_6_0 whole(source, target);
            ZUTF8String_6_0 const all((set + "\u20ac").c_str());
            EXPECT_EQ(text.size(), whole.skipAll(all));
        };
    };
    EXPECT_TRUE(takesLinearTime(1500, prepare));
}

TEST(ZStringTokenizer, ManyDelimitersWorkWithoutASet)
{
    std::string set;
    for (int i = 0; i < 64; ++i)
        set += {'\xE4', '\xB8', static_cast<char>(0x80 + i)};
    std::string const text = set + set + "\u20ac";
    ZUTF8ConstString_6_0 const source(text.c_str());
    ZUTF8ConstString_6_0 const delimiters(set.c_str());
    ZUTF8String_6_0 target;
    ZStringTokenizer_6_0 tokenizer(source, target);
    for (unsigned long n = 1;; ++n) {
        FailingAllocator::failAt(n, FailingAllocator::forEver);
        unsigned const length = tokenizer.skipAll(delimiters);
        bool const failed = FailingAllocator::stop();
        EXPECT_EQ(2 * set.size(), length);
        if (!failed)
            break;
        ASSERT_LT(n, 100u);
    }
}

TEST(ZStringTokenizer, VirtualFunctionsKeepTheirSlots)
{
    using S = ZStringTokenizer_6_0;
    EXPECT_EQ(4, slotOf(&S::clone));
    EXPECT_EQ(6, slotOf(&S::findNext));
    EXPECT_EQ(7, slotOf(static_cast<bool (S::*)(ZAbstractString_6_0 const&)>(&S::hasMore)));
    EXPECT_EQ(8, slotOf(static_cast<bool (S::*)()>(&S::hasMore)));
    EXPECT_EQ(9, slotOf(static_cast<ZAbstractMutableString_6_0* (S::*)(ZAbstractString_6_0 const&)>(
                     &S::getNext)));
    EXPECT_EQ(10, slotOf(static_cast<ZAbstractMutableString_6_0* (S::*)()>(&S::getNext)));
    EXPECT_EQ(11, slotOf(&S::reset));
    EXPECT_EQ(12, slotOf(&S::list));
}
