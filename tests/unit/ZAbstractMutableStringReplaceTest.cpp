// Mutable strings: replacement of bytes, strings and characters, also outside ASCII.
#include <Z/ZAbstractMutableString.h>
#include <Z/ZException.h>
#include <Z/ZStringIterator.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CharacterSets.h"
#include "LinearTime.h"
#include "LocalText.h"
#include "MeasuredLength.h"
#include "MutableStrings.h"
#include "PageEnd.h"
#include "Raised.h"

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
    // A set, and a string of the last of its characters and of others.
    auto const prepare = [](size_t size) {
        std::string const set = ideographs(size);
        std::string text, ofSet, ofOthers;
        for (size_t i = 0; i < size; ++i) {
            std::string const member = set.substr(set.size() - 3 * (1 + i % 100), 3);
            text += member + "\u20ac";
            ofSet += member;
            ofOthers += "\u20ac";
        }
        return [=] {
            ZUTF8String_6_0 string(text.c_str());
            string.replaceAll(set.c_str(), "");
            EXPECT_TRUE(ofOthers == textOf(string));
            string.setChars(text.c_str());
            string.replaceOther(set.c_str(), "");
            EXPECT_TRUE(ofSet == textOf(string));
        };
    };
    EXPECT_TRUE(takesLinearTime(1500, prepare));
}

TEST(ZAbstractMutableStringText, ASetOfCollidingCharactersIsSearchedAsFastAsAnother)
{
    auto const prepare = [](SearchedSet const& searched) {
        return [searched] {
            ZUTF8String_6_0 string(searched.outside.c_str());
            string.replaceAll(searched.set.c_str(), "");
            EXPECT_EQ(searched.outside.size(), string.getLength());
        };
    };
    EXPECT_TRUE(takesAtMost(10, prepare(scatteredCharacters()), prepare(collidingCharacters())));
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

// ---- Kept behaviours ---------------------------------------------------------------------------

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
