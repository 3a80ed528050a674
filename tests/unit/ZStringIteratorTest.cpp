#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZStringIterator.h>
#include <Z/ZUTF8String.h>
#include <Z/zqvrutil.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "LocalText.h"
#include "MeasuredLength.h"
#include "PageEnd.h"
#include "Raised.h"
#include "Slots.h"

namespace {

constexpr char kSource[] = "src/Z/ZStringIterator";

using Characters = std::vector<std::string>;

template <class String, class Source>
Characters charactersOf(Source const& source)
{
    String target;
    ZStringIterator_6_0 iterator(source, target);
    Characters characters;
    while (iterator.hasMore()) {
        ZObject_6_0 const* const next = iterator.getNext();
        EXPECT_EQ(&target, next);
        characters.emplace_back(target.getChars(), target.getLength());
    }
    return characters;
}

template <class Source>
Characters viewsOf(Source const& source)
{
    ZCharacterViews_6_0 views(source);
    EXPECT_EQ(0u, views.length());
    Characters characters;
    while (char const* const character = views.next())
        characters.emplace_back(character, views.length());
    EXPECT_EQ(0u, views.length());
    EXPECT_EQ(nullptr, views.next());
    return characters;
}

// A string that hides the last byte of its text.
template <class String>
class Shortened : public String {
public:
    using String::String;
    unsigned int getLength() const override { return String::getLength() - 1; }
};

// A string whose getChars() returns null.
class NoText : public ZUTF8ConstString_6_0 {
public:
    char const* getChars() const override { return nullptr; }
};

}  // namespace

TEST(ZStringIterator, WithoutATextThereAreNoElements)
{
    NoText const source;
    ZUTF8String_6_0 target("before");
    ZStringIterator_6_0 iterator(source, target);
    EXPECT_FALSE(iterator.hasMore());
    EXPECT_EQ(nullptr, iterator.getNext());
    EXPECT_STREQ("before", target);
}

TEST(ZStringIterator, IteratesOverUtf8Characters)
{
    struct Case {
        char const* text;
        Characters characters;
    };
    Case const cases[] = {
        {"", {}},
        {"abc", {"a", "b", "c"}},
        {"a\xC3\xA4\xE3\x81\x82\xF0\x9F\x98\x80z",
         {"a", "\xC3\xA4", "\xE3\x81\x82", "\xF0\x9F\x98\x80", "z"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(c.characters, charactersOf<ZUTF8String_6_0>(ZUTF8String_6_0(c.text)));
        EXPECT_EQ(c.characters, charactersOf<ZUTF8String_6_0>(ZUTF8ConstString_6_0(c.text)));
    }
}

TEST(ZStringIterator, IteratesOverCharactersOfTheLocale)
{
    std::string const wide = localCharacter().local;
    std::string const text = "a" + wide + "b";
    Characters expected = {"a", wide, "b"};
    if (wide.empty())
        expected = {"a", "b"};
    EXPECT_EQ(expected, charactersOf<ZLCString_6_0>(ZLCString_6_0(text.c_str())));
    EXPECT_EQ(expected, charactersOf<ZLCString_6_0>(ZLCConstString_6_0(text.c_str())));
}

TEST(ZStringIterator, InASingleByteLocaleEveryByteIsACharacter)
{
    if (!isSingleByteLocale())
        GTEST_SKIP() << "the locale has several bytes per character";
    std::string text;
    Characters expected;
    for (int byte = 1; byte < 256; ++byte) {
        text += static_cast<char>(byte);
        expected.emplace_back(1, static_cast<char>(byte));
    }
    EXPECT_EQ(expected, charactersOf<ZLCString_6_0>(ZLCString_6_0(text.c_str())));
}

TEST(ZStringIterator, AtTheEndTheTargetIsEmptied)
{
    ZUTF8String_6_0 utf8("before");
    ZUTF8String_6_0 const none;
    ZStringIterator_6_0 atNothing(none, utf8);
    EXPECT_FALSE(atNothing.hasMore());
    EXPECT_EQ(&utf8, atNothing.getNext());
    EXPECT_STREQ("", utf8);

    ZLCString_6_0 local("before");
    ZLCString_6_0 const one("a");
    ZStringIterator_6_0 iterator(one, local);
    iterator.getNext();
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(iterator.hasMore());
        EXPECT_EQ(&local, iterator.getNext());
        EXPECT_EQ(0u, local.getLength());
    }
}

TEST(ZStringIterator, EndsAtAZeroByte)
{
    EXPECT_EQ(Characters({"a"}), charactersOf<ZUTF8String_6_0>(ZUTF8String_6_0("a\0b", 3)));
    EXPECT_EQ(Characters({"a"}), charactersOf<ZLCString_6_0>(ZLCString_6_0("a\0b", 3)));
}

TEST(ZStringIterator, ResetReturnsToTheStartOfTheChangedSource)
{
    ZUTF8String_6_0 source("ab");
    ZUTF8String_6_0 target;
    ZStringIterator_6_0 iterator(source, target);
    iterator.getNext();
    iterator.getNext();
    iterator.reset();
    EXPECT_STREQ("a", *iterator.getNext());
    source.setCapacity(1000);
    source = "xyz";
    iterator.reset();
    EXPECT_STREQ("x", *iterator.getNext());
    EXPECT_STREQ("y", *iterator.getNext());
}

TEST(ZStringIterator, ACopyHasThePositionOfTheOriginal)
{
    ZUTF8String_6_0 const source("abc");
    ZUTF8String_6_0 target;
    ZStringIterator_6_0 iterator(source, target);
    iterator.getNext();
    ZStringIterator_6_0 copy(iterator);
    std::unique_ptr<ZObject_6_0> const object(static_cast<ZObject_6_0&>(iterator).clone());
    auto& clone = dynamic_cast<ZStringIterator_6_0&>(*object);
    EXPECT_EQ(&target, copy.getNext());
    EXPECT_STREQ("b", target);
    EXPECT_EQ(&target, clone.getNext());
    EXPECT_STREQ("b", target);
    EXPECT_STREQ("c", *clone.getNext());
    EXPECT_STREQ("b", *iterator.getNext());
    copy = clone;
    EXPECT_FALSE(copy.hasMore());
}

TEST(ZStringIterator, FindsTheNextEqualCharacter)
{
    ZUTF8String_6_0 const source(
        "a\xE3\x81\x82"
        "b");
    ZUTF8String_6_0 target;
    ZStringIterator_6_0 iterator(source, target);
    ZUTF8String_6_0 const wanted("\xE3\x81\x82");
    EXPECT_EQ(&target, iterator.findNext(wanted));
    EXPECT_STREQ("b", *iterator.getNext());
    EXPECT_EQ(nullptr, iterator.findNext(wanted));
}

TEST(ZStringIterator, ACharacterThatCannotBeMeasuredThrows)
{
    char const* const texts[] = {"a\xE3", "a\xE3\x81", "a\xF0\x9F\x98",
                                 "a\x81", "a\xFF\xFF", "a\xE3\x81z"};
    for (char const* text : texts) {
        SCOPED_TRACE(text);
        PageEnd const end(text);
        ZUTF8ConstString_6_0 const source(end.text());
        ZUTF8String_6_0 target;
        ZStringIterator_6_0 iterator(source, target);
        EXPECT_STREQ("a", *iterator.getNext());
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(iterator.hasMore());
            EXPECT_TRUE(
                raises<ZQVRMBLenException_6_0>(46, kSource, 113, [&] { iterator.getNext(); }));
            EXPECT_STREQ("a", target);
        }
        iterator.reset();
        EXPECT_STREQ("a", *iterator.getNext());
    }
}

TEST(ZStringIterator, ATruncatedLocalCharacterThrows)
{
    std::string const cut = localCharacter().cut;
    if (cut.empty())
        GTEST_SKIP() << "every byte of the locale is a character";
    PageEnd const end("a" + cut);
    ZLCConstString_6_0 const source(end.text());
    ZLCString_6_0 target;
    ZStringIterator_6_0 iterator(source, target);
    EXPECT_STREQ("a", *iterator.getNext());
    EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 113, [&] { iterator.getNext(); }));
    EXPECT_STREQ("a", target);
}

TEST(ZStringIterator, ACharacterLongerThanTheTextThrows)
{
    ZUTF8ConstString_6_0 const source("\u00e9bc");
    ZUTF8String_6_0 target("before");
    ZStringIterator_6_0 iterator(source, target);
    MeasuredLength const wrong(5);
    EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 113, [&] { iterator.getNext(); }));
    EXPECT_STREQ("before", target);
}

// The string is built from known characters, so their list is the model.
TEST(ZStringIterator, ReturnsTheCharactersOfAComposedString)
{
    constexpr unsigned kSeed = 20240612;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    char const* const alphabet[] = {"a",
                                    " ",
                                    "\x7F",
                                    "\xC2\x80",
                                    "\xDF\xBF",
                                    "\xE0\xA0\x80",
                                    "\xEF\xBF\xBF",
                                    "\xF0\x90\x80\x80",
                                    "\xF4\x8F\xBF\xBF"};
    for (int round = 0; round < 2000; ++round) {
        Characters characters;
        std::string text;
        for (size_t n = random() % 60; n > 0; --n) {
            characters.emplace_back(alphabet[random() % std::size(alphabet)]);
            text += characters.back();
        }
        PageEnd const end(text);
        ZUTF8ConstString_6_0 const view(end.text());
        ZUTF8String_6_0 const owned(view);
        ASSERT_EQ(characters, charactersOf<ZUTF8String_6_0>(view));
        ASSERT_EQ(characters, charactersOf<ZUTF8String_6_0>(owned));
        ASSERT_EQ(characters, viewsOf(view));
        ASSERT_EQ(characters, viewsOf(owned));
    }
}

// Invalid characters, and every length: the services measure one character after the other.
template <class Owned, class View>
void expectMeasuredCharacters(std::vector<std::string> const& alphabet)
{
    constexpr unsigned kSeed = 20261125;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    for (size_t size = 0; size <= 200; ++size) {
        std::string text;
        while (text.size() < size)
            text += alphabet[random() % alphabet.size()];
        text.resize(size);
        PageEnd const end(text);
        View const view(end.text());
        Owned const owned(view);
        Characters expected;
        bool isValid = true;
        for (size_t at = 0; at < size && isValid;) {
            int const length = zmblen_6_0(view.getCodesetHandle(), end.text() + at, size - at);
            isValid = length > 0;
            if (isValid) {
                expected.emplace_back(text, at, static_cast<size_t>(length));
                at += static_cast<size_t>(length);
            }
        }
        auto const expectCharacters = [&](auto const& source) {
            Owned target;
            ZStringIterator_6_0 iterator(source, target);
            ZCharacterViews_6_0 views(source);
            for (std::string const& character : expected) {
                ASSERT_TRUE(iterator.hasMore());
                ASSERT_EQ(&target, iterator.getNext());
                ASSERT_EQ(character, std::string(target.getChars(), target.getLength()));
                char const* const next = views.next();
                ASSERT_EQ(character, std::string(next, views.length()));
            }
            ASSERT_EQ(!isValid, iterator.hasMore());
            if (isValid) {
                ASSERT_EQ(nullptr, views.next());
                return;
            }
            for (int i = 0; i < 2; ++i) {
                ASSERT_TRUE(
                    raises<ZQVRMBLenException_6_0>(46, kSource, 113, [&] { iterator.getNext(); }));
                ASSERT_TRUE(
                    raises<ZQVRMBLenException_6_0>(46, kSource, 152, [&] { views.next(); }));
            }
        };
        expectCharacters(view);
        expectCharacters(owned);
    }
}

TEST(ZStringIterator, MeasuresAsTheTextServicesDo)
{
    std::vector<std::string> const ascii = {"a", "plain text ", "\x7F", "\x01"};
    std::vector<std::string> const pieces[] = {
        ascii,
        {"\u00e9", "a", "\u07ff"},
        {"\u3042", "\uD7FF", "\uE000", "\u0800", "\U0001F600", "b"},
        {"\u3042", "plain text ", "\xE0\x9F\xBF"},
        {"\u3042", "plain text ", "\xED\xA0\x80"},
        {"\u00e9", "plain text ", "\xC0\x80"},
        {"\u00e9", "plain text ", "\x80", "\xC3"},
    };
    for (std::vector<std::string> const& alphabet : pieces) {
        SCOPED_TRACE(alphabet.back());
        expectMeasuredCharacters<ZUTF8String_6_0, ZUTF8ConstString_6_0>(alphabet);
        expectMeasuredCharacters<ZLCString_6_0, ZLCConstString_6_0>(alphabet);
    }
    LocalCharacter const local = localCharacter();
    expectMeasuredCharacters<ZLCString_6_0, ZLCConstString_6_0>({"plain text ", "b", local.local});
    expectMeasuredCharacters<ZLCString_6_0, ZLCConstString_6_0>({"plain text ", local.cut});
}

TEST(ZStringIterator, AsksADerivedStringForItsLength)
{
    Shortened<ZUTF8String_6_0> const owned("abc");
    Shortened<ZUTF8ConstString_6_0> const view("abc");
    ZUTF8String_6_0 target;
    auto const expectTwo = [&](ZStringIterator_6_0 iterator) {
        EXPECT_STREQ("a", *iterator.getNext());
        EXPECT_STREQ("b", *iterator.getNext());
        EXPECT_TRUE(raises<ZQVRMBLenException_6_0>(46, kSource, 113, [&] { iterator.getNext(); }));
    };
    expectTwo(ZStringIterator_6_0(owned, target));
    expectTwo(ZStringIterator_6_0(view, target));
    if (isSingleByteLocale())
        return;
    Shortened<ZLCString_6_0> const local("abc");
    ZLCString_6_0 localTarget;
    expectTwo(ZStringIterator_6_0(local, localTarget));
}

TEST(ZCharacterViews, WithoutATextThereAreNone)
{
    EXPECT_EQ(nullptr, ZCharacterViews_6_0(NoText()).next());
    EXPECT_EQ(Characters(), viewsOf(ZUTF8String_6_0()));
    EXPECT_EQ(Characters({"a"}), viewsOf(ZLCString_6_0("a\0b", 3)));
}

TEST(ZCharacterViews, ReferToTheTextOfTheSource)
{
    ZUTF8String_6_0 const source("a\u3042");
    ZCharacterViews_6_0 views(source);
    EXPECT_EQ(source.getChars(), views.next());
    EXPECT_EQ(source.getChars() + 1, views.next());
    EXPECT_EQ(3u, views.length());
}

TEST(ZStringIterator, AStepAllocatesNothing)
{
    ZUTF8String_6_0 const source("a\xE3\x81\x82");
    ZUTF8String_6_0 target;
    ZStringIterator_6_0 iterator(source, target);
    EXPECT_EQ(0u, failEachAllocation(
                      [&] {
                          iterator.reset();
                          while (iterator.hasMore())
                              iterator.getNext();
                      },
                      [] {}));
    EXPECT_LE(1u, failEachAllocation([&] { delete iterator.clone(); }, [] {}));
}

TEST(ZStringIterator, VirtualFunctionsKeepTheirSlots)
{
    using S = ZStringIterator_6_0;
    EXPECT_EQ(4, slotOf(&S::clone));
    EXPECT_EQ(6, slotOf(&S::findNext));
    EXPECT_EQ(7, slotOf(&S::hasMore));
    EXPECT_EQ(8, slotOf(&S::getNext));
    EXPECT_EQ(9, slotOf(&S::reset));
}
