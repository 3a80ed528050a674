#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>

#include "FailingAllocator.h"
#include "LocalText.h"

namespace {

constexpr char const* kNull = nullptr;

std::string textOf(ZAbstractString_6_0 const& string)
{
    return std::string(string.getChars(), string.getLength());
}

// Bytes that are invalid in every codeset of these tests.
constexpr char kNoText[] = "a\xFF\xFE";

}  // namespace

// Tests of the behaviour that both families share.
template <class Family>
class ZLCString : public testing::Test {
};
struct Local {
    using String = ZLCString_6_0;
    using View = ZLCConstString_6_0;
    using OtherString = ZUTF8String_6_0;
    using OtherView = ZUTF8ConstString_6_0;
};
struct UTF8 {
    using String = ZUTF8String_6_0;
    using View = ZUTF8ConstString_6_0;
    using OtherString = ZLCString_6_0;
    using OtherView = ZLCConstString_6_0;
};
using Families = testing::Types<Local, UTF8>;
TYPED_TEST_SUITE(ZLCString, Families);

TYPED_TEST(ZLCString, IsCreatedFromAViewOfItsFamily)
{
    using String = typename TypeParam::String;
    using View = typename TypeParam::View;
    EXPECT_EQ("text", textOf(String(View("text"))));
    EXPECT_EQ(kNoText, textOf(String(View(kNoText))));
    EXPECT_EQ("", textOf(String(View())));
}

TYPED_TEST(ZLCString, PlainTextIsNeverConverted)
{
    using String = typename TypeParam::String;
    using View = typename TypeParam::View;
    EXPECT_EQ(kNoText, textOf(String(kNoText)));
    String string;
    string = kNoText;
    string += "\xE9";
    EXPECT_EQ(std::string(kNoText) + "\xE9", textOf(string));
    EXPECT_EQ(kNoText, textOf(View(kNoText)));
}

TYPED_TEST(ZLCString, AssignmentGivesTheSameClass)
{
    using String = typename TypeParam::String;
    using View = typename TypeParam::View;
    String string;
    String& same = string = "text";
    EXPECT_EQ(&string, &same);
    EXPECT_EQ("text", textOf(string));
    EXPECT_EQ("text", textOf(string = kNull));
    EXPECT_EQ("c", textOf(string = 'c'));
    EXPECT_EQ("-1", textOf(string = -1));
    EXPECT_EQ("4294967295", textOf(string = UINT_MAX));
    EXPECT_EQ("-9223372036854775808", textOf(string = LONG_MIN));
    EXPECT_EQ("18446744073709551615", textOf(string = ULONG_MAX));
    String const other("other");
    EXPECT_EQ("other", textOf(string = other));
    EXPECT_EQ("view", textOf(string = View("view")));
    String const& self = string;
    EXPECT_EQ("view", textOf(string = self));
    EXPECT_EQ("iew", textOf(string = View(string.getChars() + 1)));
}

TYPED_TEST(ZLCString, PlusAppends)
{
    using String = typename TypeParam::String;
    using View = typename TypeParam::View;
    String string("a");
    String& same = string += 'b';
    EXPECT_EQ(&string, &same);
    string += "c";
    string += String("d");
    string += View("e");
    string += kNull;
    string += string;
    EXPECT_EQ("abcdeabcde", textOf(string));

    String const left("left ");
    String const sum = left + "right";
    EXPECT_EQ("left right", textOf(sum));
    EXPECT_EQ("left left ", textOf(left + left));
    EXPECT_EQ("left view", textOf(left + View("view")));
    EXPECT_EQ("left ", textOf(left + kNull));
    EXPECT_EQ("left ", textOf(left));
    EXPECT_EQ("left a-b", textOf(left + "a" + String("-") + View("b")));
}

TYPED_TEST(ZLCString, ComparesWithItsFamily)
{
    using String = typename TypeParam::String;
    using View = typename TypeParam::View;
    String const string("text");
    View const view("text");
    EXPECT_TRUE(string == "text");
    EXPECT_TRUE(string == String("text"));
    EXPECT_TRUE(string == view);
    EXPECT_TRUE(view == string);
    EXPECT_TRUE(view == View("text"));
    EXPECT_TRUE(view == "text");
    EXPECT_FALSE(string == "Text");
    EXPECT_FALSE(string == kNull);
    EXPECT_FALSE(view == kNull);
    EXPECT_TRUE(string != "Text");
    EXPECT_TRUE(string != kNull);
    EXPECT_TRUE(string != String("text2"));
    EXPECT_TRUE(string != View("tex"));
    EXPECT_TRUE(view != String("tex"));
    EXPECT_TRUE(view != View("Text"));
    EXPECT_TRUE(view != "");
    EXPECT_FALSE(string != String("text"));
    EXPECT_FALSE(view != string);
    EXPECT_FALSE(String("a\0b", 3) == String("a\0c", 3));

    EXPECT_EQ(0, string.compare("text"));
    EXPECT_EQ(0, string.compare(String("text")));
    EXPECT_EQ(0, string.compare(view));
    EXPECT_EQ(0, view.compare(string));
    EXPECT_LT(string.compare("texts"), 0);
    EXPECT_GT(string.compare(String("a")), 0);
    EXPECT_LT(view.compare(View("z")), 0);
    ZObject_6_0 const& object = view;
    EXPECT_EQ(0, object.compare(string));
    EXPECT_EQ(0, static_cast<ZObject_6_0 const&>(string).compare(view));
    EXPECT_LT(object.compare(String("z")), 0);
    EXPECT_EQ(0, string.compareignorecase("TEXT"));
    EXPECT_EQ(0, string.compareignorecase(String("TEXT")));
    EXPECT_EQ(0, string.compareignorecase(View("tExt")));
    EXPECT_EQ(0, view.compareignorecase(String("TEXT")));
    EXPECT_EQ(0, view.compareignorecase(View("TEXT")));
    EXPECT_NE(0, view.compareignorecase("TEXTS"));
}

TYPED_TEST(ZLCString, EqualityComparesEveryByte)
{
    using String = typename TypeParam::String;
    std::string text;
    for (size_t length = 0; length <= 40; ++length) {
        String const string(text.c_str());
        EXPECT_TRUE(string == String(text.c_str()));
        for (size_t at = 0; at < length; ++at) {
            std::string other = text;
            other[at] ^= 1;
            EXPECT_FALSE(string == String(other.c_str())) << length << " " << at;
            EXPECT_NE(0, string.compare(String(other.c_str()))) << length << " " << at;
        }
        text += static_cast<char>('0' + length);
    }
}

TYPED_TEST(ZLCString, SubStringIsInBytes)
{
    using String = typename TypeParam::String;
    String const string("text");
    EXPECT_EQ("text", textOf(string.subString(0)));
    EXPECT_EQ("xt", textOf(string.subString(2)));
    EXPECT_EQ("", textOf(string.subString(4)));
    EXPECT_EQ("", textOf(string.subString(10)));
    EXPECT_EQ("ex", textOf(string.subString(1, 2)));
    EXPECT_EQ("xt", textOf(string.subString(2, 100)));
    EXPECT_EQ("xt", textOf(string.subString(2, UINT_MAX)));
    EXPECT_EQ("", textOf(string.subString(2, 0)));
    EXPECT_EQ("", textOf(string.subString(10, 2)));
    EXPECT_EQ("", textOf(string.subString(UINT_MAX, UINT_MAX)));
    EXPECT_EQ("\x81", textOf(String("\xE3\x81\x82").subString(1, 1)));
}

TYPED_TEST(ZLCString, CloneIsACopyOfTheClass)
{
    using String = typename TypeParam::String;
    using View = typename TypeParam::View;
    String const string(std::string(200, 'x').c_str());
    std::unique_ptr<ZObject_6_0> const copy(static_cast<ZObject_6_0 const&>(string).clone());
    ZObject_6_0 const& made = *copy;
    EXPECT_TRUE(typeid(made) == typeid(String));
    EXPECT_TRUE(string.equals(*copy));
    EXPECT_NE(string.getChars(), static_cast<String&>(*copy).getChars());

    View const view("text");
    std::unique_ptr<ZObject_6_0> const other(static_cast<ZObject_6_0 const&>(view).clone());
    ZObject_6_0 const& second = *other;
    EXPECT_TRUE(typeid(second) == typeid(View));
    EXPECT_EQ(view.getChars(), static_cast<View&>(*other).getChars());
}

TYPED_TEST(ZLCString, AViewOfAStringIsNotACopy)
{
    using String = typename TypeParam::String;
    using View = typename TypeParam::View;
    String string("text");
    View const view(string);
    View assigned("other");
    assigned = string;
    EXPECT_EQ(string.getChars(), view.getChars());
    EXPECT_EQ(string.getChars(), assigned.getChars());
    string.replaceAll("t", 'T');
    EXPECT_STREQ("TexT", view.getChars());
    EXPECT_STREQ("TexT", assigned.getChars());
    // The view does not follow to a new buffer; the old one is inside the string and still exists.
    string.setCapacity(200);
    string = "new text";
    EXPECT_NE(string.getChars(), view.getChars());
}

TYPED_TEST(ZLCString, ConvertsFromTheOtherFamily)
{
    using String = typename TypeParam::String;
    using OtherString = typename TypeParam::OtherString;
    using OtherView = typename TypeParam::OtherView;
    LocalCharacter const sample = localCharacter();
    bool const toUtf8 = std::is_same_v<TypeParam, UTF8>;
    std::string const from = "a" + (toUtf8 ? sample.local : sample.utf8) + "b";
    std::string const to = "a" + (toUtf8 ? sample.utf8 : sample.local) + "b";
    OtherString const other(from.c_str());
    OtherView const view(from.c_str());
    EXPECT_EQ(to, textOf(String(other)));
    EXPECT_EQ(to, textOf(String(view)));
    String string("before");
    String& same = string = other;
    EXPECT_EQ(&string, &same);
    EXPECT_EQ(to, textOf(string));
    string = "before";
    EXPECT_EQ(to, textOf(string = view));
}

TYPED_TEST(ZLCString, LongStringsConvertToo)
{
    using String = typename TypeParam::String;
    using OtherString = typename TypeParam::OtherString;
    LocalCharacter const sample = localCharacter();
    bool const toUtf8 = std::is_same_v<TypeParam, UTF8>;
    std::string from;
    std::string to;
    for (int i = 0; i < 5000; ++i) {
        from += "x" + (toUtf8 ? sample.local : sample.utf8);
        to += "x" + (toUtf8 ? sample.utf8 : sample.local);
    }
    EXPECT_EQ(to, textOf(String(OtherString(from.c_str()))));
}

TYPED_TEST(ZLCString, AnEmptySourceEmptiesTheTarget)
{
    using String = typename TypeParam::String;
    using OtherString = typename TypeParam::OtherString;
    using OtherView = typename TypeParam::OtherView;
    EXPECT_EQ("", textOf(String(OtherString())));
    EXPECT_EQ("", textOf(String(OtherView())));
    String string("before");
    EXPECT_EQ("", textOf(string = OtherString()));
    string = "before";
    EXPECT_EQ("", textOf(string = OtherView()));
}

TYPED_TEST(ZLCString, ASourceThatCannotBeConvertedEmptiesTheTarget)
{
    using String = typename TypeParam::String;
    using OtherString = typename TypeParam::OtherString;
    using OtherView = typename TypeParam::OtherView;
    if (std::is_same_v<TypeParam, UTF8> && localCodeset() == "ISO-8859-1")
        GTEST_SKIP() << "every string of the locale can be converted";
    EXPECT_EQ("", textOf(String(OtherString(kNoText))));
    EXPECT_EQ("", textOf(String(OtherView(kNoText))));
    String string("before");
    EXPECT_EQ("", textOf(string = OtherString(kNoText)));
    EXPECT_STREQ("", string.getChars());
    string = "before";
    EXPECT_EQ("", textOf(string = OtherView(kNoText)));
}

TYPED_TEST(ZLCString, AViewOfTheTargetConverts)
{
    using String = typename TypeParam::String;
    using OtherView = typename TypeParam::OtherView;
    String string(std::string(90, 'x').c_str());
    string = OtherView(string.getChars() + 10);
    EXPECT_EQ(std::string(80, 'x'), textOf(string));
    string = OtherView(string.getChars() + 10);
    EXPECT_EQ(std::string(70, 'x'), textOf(string));
}

TYPED_TEST(ZLCString, AFailedAllocationLeavesTheTargetOfAConversion)
{
    using String = typename TypeParam::String;
    using OtherString = typename TypeParam::OtherString;
    OtherString const source(std::string(300, 'x').c_str());
    String string("before");
    EXPECT_LE(1u, failEachAllocation([&] { string = source; },
                                     [&] { EXPECT_EQ("before", textOf(string)); }));
    EXPECT_LE(1u, failEachAllocation([&] { String const made(source); }, [] {}));
    String const longer(std::string(300, 'y').c_str());
    EXPECT_LE(1u, failEachAllocation([&] { delete longer.clone(); }, [] {}));
    EXPECT_LE(1u, failEachAllocation([&] { longer.subString(100); }, [] {}));
}

TEST(ZLCString, FamiliesDoNotMixImplicitly)
{
    // A comparison between the families would have to guess whether to convert.
    EXPECT_TRUE((std::is_convertible_v<ZUTF8String_6_0, ZLCString_6_0>));
    EXPECT_TRUE((std::is_convertible_v<ZLCConstString_6_0, ZUTF8String_6_0>));
    EXPECT_TRUE((std::is_convertible_v<char const*, ZLCString_6_0>));
    EXPECT_FALSE((std::is_convertible_v<int, ZLCString_6_0>));
}

TEST(ZLCString, LocalCaseFollowsTheCodeset)
{
    if (localCodeset() != "ISO-8859-1")
        GTEST_SKIP() << "needs ISO-8859-1";
    ZLCString_6_0 string("\xC4z");
    EXPECT_EQ("\xE4z", textOf(string.lower()));
    EXPECT_EQ("\xC4Z", textOf(string.upper()));
}

TEST(ZLCString, CaseChangesLeaveTheSecondByteOfACharacter)
{
    if (localCodeset() != "EUC-JP")
        GTEST_SKIP() << "needs EUC-JP";
    ZLCString_6_0 string("a\xA4\xA2Z");
    EXPECT_EQ("A\xA4\xA2Z", textOf(string.upper()));
    EXPECT_EQ("a\xA4\xA2z", textOf(string.lower()));
}
