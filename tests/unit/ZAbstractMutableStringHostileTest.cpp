// Strings under abuse: random operations compared with a small model, arguments inside the string's
// own text, positions and lengths at the limits of their types, and failing streams.

#include <Z/ZAbstractMutableString.h>
#include <Z/ZLCString.h>
#include <Z/ZStringIterator.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdint>
#include <random>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

#include "../support/LocalText.h"

namespace {

// The contents and the capacity of a string.
struct Model {
    std::string text;
    size_t capacity = 95;

    void bump(size_t required)
    {
        if (required > capacity)
            capacity = required + (required + 7) / 5;
    }
    void set(std::string const& to)
    {
        bump(to.size());
        text = to;
    }
    void append(std::string const& more)
    {
        bump(text.size() + more.size());
        text += more;
    }
};

std::string replaced(std::string const& text, std::string const& what, std::string const& by)
{
    std::string result;
    size_t from = 0;
    for (size_t at; !what.empty() && (at = text.find(what, from)) != std::string::npos;
         from = at + what.size())
        result += text.substr(from, at - from) + by;
    return result + text.substr(from);
}

// Building blocks of random strings: whole characters of the string's codeset.
template <class String>
std::vector<std::string> pieces();

template <>
std::vector<std::string> pieces<ZUTF8String_6_0>()
{
    return {"a", "b", "ab", " ", "\t", "%", "%s", "\xC3\xA9", "\xE3\x81\x82", "\xF0\x9F\x98\x80"};
}

template <>
std::vector<std::string> pieces<ZLCString_6_0>()
{
    std::vector<std::string> result = {"a", "b", "ab", " ", "\t", "%", "%s", "B", "c", "bbb"};
    if (std::string const local = localCharacter().local; !local.empty())
        result.push_back(local);
    return result;
}

// Splits such a string into its characters.
std::vector<std::string> characters(std::string const& text, std::vector<std::string> const& known)
{
    std::vector<std::string> result;
    for (size_t at = 0; at < text.size(); at += result.back().size()) {
        std::string found(1, text[at]);
        for (std::string const& piece : known)
            if (static_cast<unsigned char>(piece[0]) >= 0x80 &&
                text.compare(at, piece.size(), piece) == 0)
                found = piece;
        result.push_back(found);
    }
    return result;
}

bool isSpace(char c)
{
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

template <class String>
class StringUnderAbuse : public testing::Test {
};
using Strings = testing::Types<ZUTF8String_6_0, ZLCString_6_0>;
TYPED_TEST_SUITE(StringUnderAbuse, Strings);

TYPED_TEST(StringUnderAbuse, BehavesAsAModel)
{
    std::vector<std::string> const known = pieces<TypeParam>();
    bool const isUtf8 = TypeParam().getCodesetHandle() == ZAbstractString_6_0::utf8_handle_;
    bool const scansBytes = isUtf8 || isSingleByteLocale();
    for (unsigned seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        auto const below = [&random](size_t n) { return n == 0 ? 0 : random() % n; };
        auto const any = [&](size_t most) {
            std::string text;
            for (size_t n = below(most + 1); n > 0; --n)
                text += known[below(known.size())];
            return text;
        };
        TypeParam string;
        Model model;
        for (int step = 0; step < 400; ++step) {
            size_t const op = below(24);
            SCOPED_TRACE("step " + std::to_string(step) + ", operation " + std::to_string(op));
            // Every fourth argument is inside the string's own text.
            bool const own = below(4) == 0;
            // Character boundaries: no operation splits a character.
            std::vector<size_t> places = {0};
            for (std::string const& c : characters(model.text, known))
                places.push_back(places.back() + c.size());
            size_t const at = places[below(places.size())];
            std::string const other = any(below(20) == 0 ? 60 : 6);
            char const* const given = own ? string.getChars() + at : other.c_str();
            std::string const value = given;
            size_t const first = below(places.size());
            size_t const last = first + below(places.size() - first);
            size_t const beyond = below(8) == 0 ? model.text.size() + below(3) : 0;
            auto const pos = static_cast<unsigned>(beyond != 0 ? beyond : places[first]);
            auto const count = static_cast<unsigned>(below(8) == 0 ? model.text.size() + 1
                                                                   : places[last] - places[first]);
            switch (op) {
                case 0:
                    string.append(given);
                    model.append(value);
                    break;
                case 1: {
                    string.append(given, static_cast<unsigned>(value.size()));
                    model.append(value);
                    break;
                }
                case 2:
                    string.append('x');
                    model.append("x");
                    break;
                case 3: {
                    string.prepend(given);
                    Model rebuilt;
                    rebuilt.append(value);
                    rebuilt.append(model.text);
                    model = rebuilt;
                    break;
                }
                case 4:
                    string.insert(pos, given);
                    if (pos <= model.text.size()) {
                        model.bump(model.text.size() + value.size());
                        model.text.insert(pos, value);
                    }
                    break;
                case 5:
                    string.remove(pos, count);
                    if (count == 0 && pos <= model.text.size())
                        model.text.resize(pos);
                    else if (count != 0 && pos + count <= model.text.size())
                        model.text.erase(pos, count);
                    break;
                case 6:
                    string.trunc(pos);
                    if (pos <= model.text.size())
                        model.text.resize(pos);
                    break;
                case 7:
                    if (below(4) == 0) {
                        string.clear();
                        model.text.clear();
                    }
                    break;
                case 8: {
                    auto const n = static_cast<unsigned>(below(below(9) == 0 ? 5000 : 150));
                    if (n > model.capacity)
                        model.capacity = n;
                    EXPECT_EQ(model.capacity, string.setCapacity(n));
                    break;
                }
                case 9:
                    string.setChars(given);
                    model.set(value);
                    break;
                case 10:
                    string = given;
                    model.set(value);
                    break;
                case 11: {
                    TypeParam const same(given);
                    string = same;
                    model.set(value);
                    break;
                }
                case 12: {
                    std::string const what = known[below(known.size())];
                    std::string const by = any(3);
                    string.replace(what.c_str(), by.c_str());
                    model.set(replaced(model.text, what, by));
                    break;
                }
                case 13: {
                    // Text inside the string itself, on both sides.
                    string.replace(known[0].c_str(), given);
                    model.set(replaced(model.text, known[0], value));
                    break;
                }
                case 14:
                    string.replace('a', 'b');
                    for (char& c : model.text)
                        c = c == 'a' ? 'b' : c;
                    break;
                case 15:
                    string.ZAbstractMutableString_6_0::replaceAll("%\t", '-');
                    for (char& c : model.text)
                        c = c == '%' || c == '\t' ? '-' : c;
                    break;
                case 16: {
                    string.replaceAll("b%", '\0');
                    std::string now;
                    for (char const c : model.text)
                        if (c != 'b' && c != '%')
                            now += c;
                    model.text = now;
                    break;
                }
                case 17:
                case 18: {
                    std::string const set = any(3);
                    std::string const by = any(2);
                    if (op == 17)
                        string.replaceAll(set.c_str(), by.c_str());
                    else
                        string.replaceOther(set.c_str(), by.c_str());
                    std::vector<std::string> const inSet = characters(set, known);
                    std::string now;
                    for (std::string const& c : characters(model.text, known)) {
                        bool const hit = std::find(inSet.begin(), inSet.end(), c) != inSet.end();
                        now += hit == (op == 17) ? by : c;
                    }
                    model.text = now;
                    model.capacity = string.getCapacity();
                    break;
                }
                case 19:
                    string.stripLeading();
                    while (!model.text.empty() && isSpace(model.text[0]))
                        model.text.erase(0, 1);
                    break;
                case 20:
                    string.stripTrailing();
                    while (model.text.size() > (scansBytes ? 1u : 0u) && isSpace(model.text.back()))
                        model.text.pop_back();
                    break;
                case 21: {
                    string.format("%s|%s", given, string.getChars());
                    model.text = value + "|" + model.text;
                    model.capacity = string.getCapacity();
                    break;
                }
                case 22: {
                    std::istringstream stream(other + "\r\nrest");
                    string.readLine(stream, 0);
                    model.text.clear();
                    for (char const c : other)
                        model.append(std::string(1, c));
                    EXPECT_EQ('\n', stream.peek());
                    break;
                }
                default:
                    string += string;
                    model.append(model.text);
                    break;
            }
            ASSERT_EQ(model.text, std::string(string.getChars()));
            ASSERT_EQ(model.text.size(), string.getLength());
            ASSERT_LE(string.getLength(), string.getCapacity());
            ASSERT_EQ(model.capacity, string.getCapacity());
            if (model.text.size() > 3000) {
                string.clear();
                model.text.clear();
            }
            uint32_t hash = 5381;
            for (char const c : model.text)
                hash = (hash * 33) ^ static_cast<unsigned char>(c);
            ASSERT_EQ(hash, string.hash());
            ASSERT_EQ(string.getLength(), string.getCharCount());
            std::string const tail = pos < model.text.size() ? model.text.substr(pos, count) : "";
            ASSERT_TRUE(string.subString(pos, count) == tail.c_str());
        }
    }
}

TYPED_TEST(StringUnderAbuse, PositionsAndLengthsMayBeAsLargeAsTheirType)
{
    for (char const* const text : {"", "abc",
                                   "abcdefghijklmnopqrstuvwxyz0123456789abcdefghijklmnop"
                                   "qrstuvwxyz0123456789abcdefghijklmnopqrstuvwxyz"}) {
        SCOPED_TRACE(text);
        TypeParam string(text);
        for (unsigned const huge : {UINT_MAX, UINT_MAX - 1, UINT_MAX / 2, 1u << 31}) {
            SCOPED_TRACE(huge);
            EXPECT_STREQ(text, string.insert(huge, "x").getChars());
            EXPECT_STREQ(text, string.insert(huge, "").getChars());
            EXPECT_STREQ(text, string.trunc(huge).getChars());
            for (unsigned const n : {0u, 1u, 2u, UINT_MAX, UINT_MAX - huge, UINT_MAX - huge + 1}) {
                EXPECT_STREQ(text, string.remove(huge, n).getChars());
                if (n > strlen(text) + 1) {
                    EXPECT_STREQ(text, string.remove(0, n).getChars());
                    EXPECT_STREQ(text, string.remove(1, n).getChars());
                }
                EXPECT_TRUE(string.subString(huge, n).isEmpty());
            }
            EXPECT_TRUE(string.subString(huge).isEmpty());
            EXPECT_STREQ(text, string.subString(0, huge).getChars());
            EXPECT_STREQ(*text == 0 ? "" : text + 1, string.subString(1, huge).getChars());
            EXPECT_EQ(-1, string.indexOf("x1", huge));
            EXPECT_EQ(-1, string.indexOf('x', huge));
            EXPECT_EQ(static_cast<int>(strlen(text)), string.indexOf(0, huge));
            EXPECT_EQ(static_cast<int>(strlen(text)), string.indexOf("", huge));
        }
    }
}

TYPED_TEST(StringUnderAbuse, NullPointersChangeNothing)
{
    char const* const none = nullptr;
    TypeParam string("abc");
    string.append(none);
    string.append(none, 5);
    string.append("x", 0);
    string += none;
    string.prepend(none);
    string.insert(1, none);
    string.replaceAll(none, 'x');
    string.replaceAll(none, "x");
    string.replaceAll("abc", none);
    string.replaceOther(none, "x");
    string.replaceOther("x", none);
    string.replace(none, "x");
    string.replace("a", none);
    string.replace("", "x");
    string.setChars(none);
    string.setChars(none, 3);
    string = none;
    string.format(none);
    EXPECT_STREQ("abc", string.getChars());
    EXPECT_EQ(3u, string.getLength());
    EXPECT_FALSE(string.contains(none));
    EXPECT_EQ(-1, string.indexOf(none, 0));
    EXPECT_EQ(3, string.lastIndexOf(none));
    EXPECT_TRUE(string.beginsWith(none));
    EXPECT_TRUE(string.endsWith(none));
    EXPECT_FALSE(string.equals(none));
    EXPECT_FALSE(string == none);
    EXPECT_TRUE(string != none);
    EXPECT_TRUE(TypeParam(none).isEmpty());
    EXPECT_TRUE(TypeParam(none, 9).isEmpty());
    EXPECT_STREQ("abc", (string + none).getChars());
}

TYPED_TEST(StringUnderAbuse, SearchingForNothingEnds)
{
    TypeParam string("abcabc");
    EXPECT_TRUE(string.contains(0));
    EXPECT_TRUE(string.contains(""));
    EXPECT_EQ(0, string.indexOf("", 0));
    EXPECT_EQ(6, string.indexOf(0, 0));
    EXPECT_EQ(string.indexOf('b', 0), string.indexOf('b' + 256, 0));
    if (string.getCodesetHandle() == ZAbstractString_6_0::utf8_handle_ || !isSingleByteLocale()) {
        EXPECT_EQ(6, string.lastIndexOf(0));
        EXPECT_EQ(3, string.lastIndexOf("abc"));
        EXPECT_EQ(4, string.lastIndexOf('b'));
        EXPECT_EQ(0, TypeParam("aaa").lastIndexOf("aa"));
    }
    string.lastIndexOf("");
    TypeParam("").lastIndexOf("");
    EXPECT_FALSE(TypeParam("").beginsWith(""));
    EXPECT_TRUE(string.beginsWith(""));
    EXPECT_FALSE(string.endsWith(""));
    EXPECT_FALSE(string.endsWith("xabcabc"));
    EXPECT_TRUE(string.endsWith("abcabc"));
    EXPECT_TRUE(string.endsWithCaseIgnored(TypeParam("CABC")));
    EXPECT_FALSE(string.endsWithCaseIgnored(TypeParam("xABCABC")));
    EXPECT_FALSE(string.endsWithCaseIgnored(TypeParam()));
    EXPECT_FALSE(string.beginsWithCaseIgnored(TypeParam()));
    EXPECT_FALSE(TypeParam().beginsWithCaseIgnored(string));
    EXPECT_FALSE(string.beginsWithCaseIgnored(TypeParam("ABCABCx")));
}

TYPED_TEST(StringUnderAbuse, AZeroByteEndsTheTextButNotTheString)
{
    TypeParam string("ab\0cd", 5);
    EXPECT_EQ(5u, string.getLength());
    EXPECT_TRUE(string == "ab");
    EXPECT_TRUE(string.equals("ab"));
    EXPECT_FALSE(string.equals(static_cast<ZObject_6_0 const&>(TypeParam("ab"))));
    TypeParam const copy(string);
    EXPECT_EQ(5u, copy.getLength());
    EXPECT_EQ(0, memcmp("ab\0cd", copy.getChars(), 6));
    EXPECT_TRUE(copy.equals(static_cast<ZObject_6_0 const&>(string)));
    string.append("e");
    EXPECT_EQ(0, memcmp("ab\0cde", string.getChars(), 7));
    string.insert(1, "-");
    EXPECT_EQ(3u, string.getLength());
    EXPECT_STREQ("a-b", string.getChars());
    TypeParam cut("ab\0cd  ", 7);
    cut.stripTrailing();
    cut.stripLeading();
    cut.lower();
    cut.upper();
    cut.replace("a", "aaaaaaaaaa");
    cut.replaceAll("b", "yyyyyyyyyyy");
    cut.replaceOther("b", "y");
    cut.prepend("p");
    EXPECT_LE(cut.getLength(), cut.getCapacity());
    EXPECT_EQ(0, cut.getChars()[cut.getLength()]);
}

TYPED_TEST(StringUnderAbuse, ASetMayIterateOverTheStringItself)
{
    TypeParam string("abcabc");
    TypeParam one;
    ZStringIterator_6_0 own(string, one);
    string.replaceAllOf(own, "a long replacement of many bytes, longer than the original text");
    EXPECT_TRUE(string.beginsWith("a long"));
    TypeParam other("xay");
    TypeParam step;
    ZStringIterator_6_0 walk(other, step);
    string.replaceNoneOf(walk, "a", "--");
    EXPECT_STREQ("--a--", string.getChars());
    string.replaceNoneOf(walk, string.getChars(), string.getChars());
    EXPECT_STREQ("--a--a--a--", string.getChars());
}

// A stream buffer that returns some bytes and then throws.
class ThrowingBuffer : public std::streambuf {
public:
    explicit ThrowingBuffer(std::string text) : text_(std::move(text))
    {
        setg(text_.data(), text_.data(), text_.data() + text_.size());
    }

protected:
    int_type underflow() override { throw std::runtime_error("no more"); }

private:
    std::string text_;
};

TYPED_TEST(StringUnderAbuse, AStreamThatFailsLeavesASoundString)
{
    std::string const line(300, 'x');
    ThrowingBuffer buffer(line);
    std::istream stream(&buffer);
    TypeParam string("before");
    string.readLine(stream, 1);
    EXPECT_EQ(line, string.getChars());
    EXPECT_TRUE(stream.bad());

    ThrowingBuffer again(line);
    std::istream raising(&again);
    raising.exceptions(std::ios::badbit);
    string = "before";
    EXPECT_ANY_THROW(string.readLine(raising, 1));
    EXPECT_EQ(strlen(string.getChars()), string.getLength());

    std::istream none(nullptr);
    string = "before";
    string.readLine(none, 1);
    EXPECT_TRUE(string.isEmpty());
}

TEST(ZUTF8StringUnderAbuse, ConvertedFromItselfOrItsOwnFamilyStaysSound)
{
    ZUTF8String_6_0 string("abc");
    string.convertFromCodeSet(string);
    EXPECT_EQ(strlen(string.getChars()), string.getLength());
    ZLCString_6_0 local(std::string(5000, 'q').c_str());
    string = local;
    EXPECT_EQ(5000u, string.getLength());
    EXPECT_EQ(15001u, string.getCapacity());
    local.convertFromCodeSet(local);
    EXPECT_EQ(strlen(local.getChars()), local.getLength());
}

}  // namespace
