#include <Z/ZException.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>

#include <string>

#include "Raised.h"

namespace {

constexpr char kSource[] = "src/Z/ZUTF8String";

std::string textOf(ZAbstractString_6_0 const& string)
{
    return std::string(string.getChars(), string.getLength());
}

}  // namespace

TEST(ZUTF8String, LowerAndUpperChangeAsciiAndTheRest)
{
    struct Case {
        char const* text;
        char const* lower;
        char const* upper;
    };
    Case const cases[] = {
        {"", "", ""},
        {"AbZz@[`{19", "abzz@[`{19", "ABZZ@[`{19"},
        {"AB\xC3\x84"
         "CD",
         "ab\xC3\xA4"
         "cd",
         "AB\xC3\x84"
         "CD"},
        {"ab\xC3\xA4"
         "cd",
         "ab\xC3\xA4"
         "cd",
         "AB\xC3\x84"
         "CD"},
        {"\xD0\x96z", "\xD0\xB6z", "\xD0\x96Z"},                 // Cyrillic
        {"A\xE3\x81\x82Z", "a\xE3\x81\x82z", "A\xE3\x81\x82Z"},  // no case
        {"\xC3\x9F", "\xC3\x9F", "\xC3\x9F"},  // ß has no counterpart of its length
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        ZUTF8String_6_0 lower(c.text);
        EXPECT_EQ(&lower, &lower.lower());
        EXPECT_EQ(c.lower, textOf(lower));
        ZUTF8String_6_0 upper(c.text);
        EXPECT_EQ(&upper, &upper.upper());
        EXPECT_EQ(c.upper, textOf(upper));
    }
}

// ASCII is changed in blocks. After the first other byte the text services change the rest, and a
// zero byte ends both.
TEST(ZUTF8String, CaseChangesUpToTheFirstZeroByte)
{
    std::string all;
    for (int byte = 1; byte < 0x80; ++byte)
        all += static_cast<char>(byte);
    while (all.size() < 700)
        all += "Some MORE text, ";
    auto const changed = [](std::string text, size_t end, char first) {
        for (size_t i = 0; i < end; ++i)
            if (text[i] >= first && text[i] < first + 26)
                text[i] = static_cast<char>(text[i] ^ 0x20);
        return text;
    };
    for (size_t size : {0, 1, 15, 16, 17, 63, 64, 65, 127, 255, 256, 257, 300, 600}) {
        for (size_t start : {0, 1, 7, 60}) {
            for (size_t at = 0; at <= size; at += size > 100 ? 13 : 1) {
                std::string text = all.substr(start, size);
                ZUTF8String_6_0 lower(text.data(), static_cast<unsigned>(size));
                EXPECT_EQ(changed(text, size, 'A'), textOf(lower.lower()));
                if (at == size)
                    continue;
                text[at] = '\0';
                lower.setChars(text.data(), static_cast<unsigned>(size));
                lower.lower();
                EXPECT_EQ(changed(text, at, 'A'), std::string(lower.getChars(), size));
                ZUTF8String_6_0 upper(text.data(), static_cast<unsigned>(size));
                upper.upper();
                EXPECT_EQ(changed(text, at, 'a'), std::string(upper.getChars(), size));
                text[at] = '\xFF';  // no character: all others change
                upper.setChars(text.data(), static_cast<unsigned>(size));
                upper.upper();
                EXPECT_EQ(changed(text, size, 'a'), std::string(upper.getChars(), size));
            }
        }
    }
}

TEST(ZUTF8String, ReplaceOverwritesAnAsciiCharacter)
{
    struct Case {
        char const* text;
        char from;
        char to;
        char const* result;
    };
    Case const cases[] = {{"banana", 'a', 'o', "bonono"},
                          {"banana", 'x', 'y', "banana"},
                          {"", 'a', 'b', ""},
                          {"banana", 0, 'x', "banana"},
                          {"a\xE3\x81\x82"
                           "a",
                           'a', 'b',
                           "b\xE3\x81\x82"
                           "b"},
                          {"a\x7F", '\x7F', '-', "a-"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        ZUTF8String_6_0 string(c.text);
        EXPECT_EQ(&string, &string.replace(c.from, c.to));
        EXPECT_EQ(c.result, textOf(string));
        ZAbstractMutableString_6_0& base = string.setChars(c.text);
        EXPECT_EQ(c.result, textOf(base.replace(c.from, c.to)));
    }
}

TEST(ZUTF8String, ReplacingAByteThatIsNotACharacterThrows)
{
    ZUTF8String_6_0 string("a\xC3\xA4");
    for (char byte : {'\xC3', '\xA4', '\x80', '\xFF'}) {
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 299,
                                                           [&] { string.replace(byte, 'x'); }));
    }
    EXPECT_EQ("a\xC3\xA4", textOf(string));
}

TEST(ZUTF8String, ReplacingZeroExaminesNothing)
{
    // Neither valid UTF-8 nor free of zero bytes: a scan by characters would fail.
    std::string const bytes("a\xFF\0b", 4);
    for (char const* const set : {static_cast<char const*>(nullptr), ""}) {
        ZUTF8String_6_0 text(bytes.data(), static_cast<unsigned>(bytes.size()));
        EXPECT_EQ(&text, &text.replaceAll(set, "x"));
        EXPECT_EQ(bytes, textOf(text));
    }
}

TEST(ZUTF8String, ReplacesWholeStrings)
{
    ZUTF8String_6_0 string("\xE3\x81\x82\xE3\x82\x81");
    EXPECT_EQ(&string, &string.replace("\xE3\x82\x81", "x"));
    EXPECT_EQ("\xE3\x81\x82x", textOf(string));
    string.replaceAll("\xE3\x81\x82", "yz");
    EXPECT_EQ("yzx", textOf(string));
    ZUTF8String_6_0 other("a\xE3\x81\x82\xC3\xA4");
    other.replaceOther("\xE3\x81\x82", "-");
    EXPECT_EQ("-\xE3\x81\x82-", textOf(other));
    // A set consists of characters, not of bytes.
    ZUTF8String_6_0 set("\xE3\x81\x82");
    set.replaceAll("\xE3\x82\x81\xC3\xA4", "x");
    EXPECT_EQ("\xE3\x81\x82", textOf(set));
}

TEST(ZUTF8String, InvalidBytesCanBeReplaced)
{
    ZUTF8String_6_0 string("a\xFF-\xFF");
    string.replace("\xFF", "?");
    EXPECT_EQ("a?-?", textOf(string));
}

TEST(ZUTF8String, KeepsLengthWhenReplacingByZero)
{
    ZUTF8String_6_0 string("a,b,c");
    string.replace(',', '\0');
    EXPECT_EQ(std::string("a\0b\0c", 5), textOf(string));
    EXPECT_EQ(5u, string.getLength());
}
