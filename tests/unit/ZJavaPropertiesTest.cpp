#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZHashKeyMap.h>
#include <Z/ZLCString.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>

#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "FailingAllocator.h"
#include "JavaStore.h"
#include "PageEnd.h"
#include "Raised.h"
#include "TestDirectory.h"

using namespace java_store;

namespace {

// Reads the same text from a file and from a stream, checks that both give the same entries, and
// returns the entries of a store that held `before`.
Entries readOf(std::string const& text, char const* stopKey = nullptr, Entries const& before = {})
{
    TestDirectory const directory(TestDirectory::Place::memory);
    std::string const path = directory.write("f", text);
    Store fromFile;
    for (auto const& [key, value] : before)
        setBytes(fromFile, key, value);
    EXPECT_EQ(1, fromFile.load(path.c_str(), stopKey));
    if (stopKey != nullptr)
        return entriesOf(fromFile);

    Store fromStream;
    for (auto const& [key, value] : before)
        setBytes(fromStream, key, value);
    FILE* const stream = fopen(path.c_str(), "r");
    EXPECT_EQ(1, fromStream.loadProperties(stream, path.c_str()));
    fclose(stream);
    EXPECT_EQ(entriesOf(fromFile), entriesOf(fromStream));
    return entriesOf(fromFile);
}

// Returns the line of one entry in a stored file.
std::string writtenOf(std::string const& key, std::string const& value)
{
    TestDirectory const directory(TestDirectory::Place::memory);
    Store store;
    setBytes(store, key, value);
    store.store(directory.at("f").c_str());
    std::string const text = directory.read("f");
    EXPECT_EQ("#\n", text.substr(0, 2));
    return text.substr(2);
}

TEST(ZJavaProperties, ReadsKeysAndValues)
{
    struct Case {
        char const* name;
        char const* text;
        Entries expected;
    };
    Case const cases[] = {
        {"equals", "a=b\n", {{"a", "b"}}},
        {"equals between spaces", "a = b\n", {{"a", "b"}}},
        {"colon", "a:b\n", {{"a", "b"}}},
        {"blank", "a b\n", {{"a", "b"}}},
        {"spaces everywhere", "  a   =   b\n", {{"a", "b"}}},
        {"every kind of space", "\t\v\f a\t\v\f =\t\v\f b\n", {{"a", "b"}}},
        {"trailing spaces", "a = b  \n", {{"a", "b  "}}},
        {"no value", "a =\n", {{"a", ""}}},
        {"no value, spaces", "a =  \n", {{"a", ""}}},
        {"second separator", "a == b\n", {{"a", "= b"}}},
        {"inner spaces", "a=b c\td\n", {{"a", "b c\td"}}},
        {"comments", "# a=b\n! c=d\n  # e=f\n\t!g=h\nx=y\n", {{"x", "y"}}},
        {"no comment", "a=b # c ! d\n", {{"a", "b # c ! d"}}},
        {"comment characters in a key", "a#!b=c\n", {{"a#!b", "c"}}},
        {"empty lines", "\n\n  \n a=b\n \n", {{"a", "b"}}},
        {"carriage returns", "a=b\rc=d\r", {{"a", "b"}, {"c", "d"}}},
        {"both", "a=b\r\nc=d\r\n", {{"a", "b"}, {"c", "d"}}},
        {"both, reversed", "a=b\n\rc=d\n\r", {{"a", "b"}, {"c", "d"}}},
        {"twice", "a=b\na=c\n", {{"a", "c"}}},
        {"continued", "a = one\\\n    two\n", {{"a", "onetwo"}}},
        {"continued by both", "a = one\\\r\n    two\r\n", {{"a", "onetwo"}}},
        {"continued after a space", "a one \\\n\ttwo\\\n three\n", {{"a", "one twothree"}}},
        {"continued before the value", "a =\\\n  b\n", {{"a", "b"}}},
        {"continued without separator", "a \\\n b\n", {{"a", "b"}}},
        {"continuation escapes", "a=b\\\n\\:c\n", {{"a", "b:c"}}},
        {"empty continuation line", "a=b\\\n\nc=d\n", {{"a", "b"}, {"c", "d"}}},
        {"continuation line of spaces", "a=b\\\n  \nc=d\n", {{"a", "b"}, {"c", "d"}}},
        {"key escapes", "a\\\\\\ \\\t\\\v\\\f\\=\\:z=b\n", {{"a\\ \t\v\f=:z", "b"}}},
        {"value escapes", "a=\\\\\\ \\\t\\\v\\\f\\:\\\"\\'z\n", {{"a", "\\ \t\v\f:\"'z"}}},
        {"escaped first", "a \\ b\n", {{"a", " b"}}},
        {"one byte", "a=\\u0041\n", {{"a", "A"}}},
        {"two bytes", "k = caf\\u00e9\n", {{"k", "caf\xC3\xA9"}}},
        {"three bytes", "a=\\u20AC\\U20ac!\n", {{"a", "\xE2\x82\xAC\xE2\x82\xAC!"}}},
        {"the highest", "a=\\uFFFF\n", {{"a", "\xEF\xBF\xBF"}}},
        {"any bytes", "\xC3\xA9=\xE9\xFF\n", {{"\xC3\xA9", "\xE9\xFF"}}},
        {"nothing", "", {}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, readOf(c.text));
    }
}

TEST(ZJavaProperties, ConvertsOnlyHexadecimalDigits)
{
    std::string const digits = "0123456789abcdef";
    for (int c = 0; c < 256; ++c) {
        size_t const small = digits.find(static_cast<char>(c));
        size_t const large = digits.find(static_cast<char>(c >= 'A' && c <= 'F' ? c + 32 : 0));
        int const expected = small != digits.npos   ? static_cast<int>(small)
                             : large != digits.npos ? static_cast<int>(large)
                                                    : -1;
        EXPECT_EQ(expected, Store::hexConv(static_cast<char>(c))) << c;
    }
}

TEST(ZJavaProperties, SkipsALineWithAnError)
{
    struct Case {
        char const* name;
        char const* line;
    };
    Case const cases[] = {
        {"separator after spaces", "  = b\n"},
        {"letter escaped in a key", "a\\n = b\n"},
        {"quote escaped in a key", "a\\' = b\n"},
        {"unit in a key", "a\\u0041 = b\n"},
        {"letter escaped", "a = \\t\n"},
        {"equals escaped", "a = b\\=c\n"},
        {"comment sign escaped", "a = \\#\n"},
        {"zero byte escaped", "a = \\0\n"},
        {"no digit", "a = \\uG\n"},
        {"one digit", "a = \\u1 \n"},
        {"two digits", "a = \\u12:\n"},
        {"three digits", "a = \\u123g\n"},
        {"four digits cut", "a = \\u1\\\n"},
        {"error on a continuation line", "a = b\\\n c\\d\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ((Entries{{"x", "1"}, {"y", "2"}}),
                  readOf("x=1\n" + std::string(c.line) + "y=2\n"));
    }
}

TEST(ZJavaProperties, EncodesUnitsSeparately)
{
    EXPECT_EQ((Entries{{"a", "x"}}), readOf("a=\\u0000x\n"));
    EXPECT_EQ((Entries{{"a", "\x01\x7F"}}), readOf("a=\\u0001\\u007f\n"));
    EXPECT_EQ((Entries{{"a", "\xC2\x80\xDF\xBF"}}), readOf("a=\\u0080\\u07ff\n"));
    EXPECT_EQ((Entries{{"a", "\xE0\xA0\x80"}}), readOf("a=\\u0800\n"));
    // The two halves of a surrogate pair are converted separately.
    std::string const halves = "\xED\xA0\xBD\xED\xB8\x80";
    EXPECT_EQ((Entries{{"a", halves}}), readOf("a=\\ud83d\\uDE00\n"));
    EXPECT_EQ("a = \\ud83d\\ude00\n", writtenOf("a", halves));
}

TEST(ZJavaProperties, ReadsZeroBytesLikeOtherBytes)
{
    using namespace std::string_literals;
    EXPECT_EQ((Entries{{"a\0b"s, "c\0d"s}}), readOf("a\0b = c\0d\n"s));
    EXPECT_EQ((Entries{{"\0"s, "\0"s}}), readOf("\0=\0\n"s));
    EXPECT_EQ((Entries{{"a\0b"s, "c\0d"s}}), readOf(writtenOf("a\0b"s, "c\0d"s)));
}

TEST(ZJavaProperties, AddsToExistingEntries)
{
    Entries const before = {{"a", "1"}, {"b", "2"}};
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "3"}, {"c", "4"}}), readOf("b=3\nc=4\n", nullptr, before));
    EXPECT_EQ(before, readOf("", nullptr, before));
    EXPECT_EQ((Entries{{"a", "5"}, {"b", "2"}}), readOf("a=3\na=4\na=5\n", nullptr, before));
}

TEST(ZJavaProperties, StopsAfterTheStopKey)
{
    std::string const text = "a=1\nb=2\nc=3\n";
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}}), readOf(text, "b"));
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}, {"c", "3"}}), readOf(text, "d"));
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}, {"c", "3"}}), readOf(text, ""));
    EXPECT_EQ((Entries{{"b", ""}}), readOf("b=\nc=3\n", "b"));
    EXPECT_EQ((Entries{{"b", "2"}}), readOf("b=2\nb=3\n", "b"));
    // The whole key must match.
    using namespace std::string_literals;
    EXPECT_EQ((Entries{{"bb", "1"}, {"b\0c"s, "2"}, {"b", "3"}}),
              readOf("bb=1\nb\0c=2\nb=3\nd=4\n"s, "b"));
}

TEST(ZJavaProperties, ResetsTheStopKey)
{
    TestDirectory const directory;
    std::string const path = directory.write("f", "a=1\nb=2\nc=3\n");
    Store store;
    store.load(path.c_str(), "a");
    store.load(path.c_str());
    EXPECT_EQ(3u, entriesOf(store).size());

    Store other;
    EXPECT_THROW(other.load(directory.at("missing").c_str(), "a"), ZPropertiesIOException_6_0);
    other.load(path.c_str());
    EXPECT_EQ(3u, entriesOf(other).size());
}

TEST(ZJavaProperties, ReadsNoByteOfAStreamAhead)
{
    // Also if the start of the stream was read before.
    char text[] = "first\na=1\nb=2";
    FILE* const stream = fmemopen(text, sizeof text - 1, "r");
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(text[i], getc(stream));
    Store store;
    EXPECT_EQ(1, store.loadProperties(stream, "memory"));
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store));
    EXPECT_TRUE(feof(stream));
    fclose(stream);
}

TEST(ZJavaProperties, ReadsNothingWithoutAPath)
{
    Store store;
    setBytes(store, "a", "1");
    EXPECT_EQ(1, store.load(nullptr));
    EXPECT_EQ(1, store.load(""));
    EXPECT_EQ(1, store.load(nullptr, "a"));
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store));
}

TEST(ZJavaProperties, HoldsLongStrings)
{
    for (size_t length : {95, 96, 3000, 4000, 4096, 5000, 1000000}) {
        SCOPED_TRACE(length);
        std::string const key(length, 'k');
        std::string const value(length, 'v');
        std::string const file = "a=1\n" + key + "=" + value + "\nb=2\n";
        EXPECT_EQ((Entries{{"a", "1"}, {key, value}, {"b", "2"}}), readOf(file));
        EXPECT_EQ(key + " = " + value + "\n", writtenOf(key, value));
    }
}

TEST(ZJavaProperties, NeedsNoMoreMemoryToReadAFileAgain)
{
    TestDirectory const directory;
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += "key" + std::to_string(i) + " = value\n";
    std::string const path = directory.write("f", text);
    Store store;
    store.load(path.c_str());
    FailingAllocator::failAt(0);
    long const before = FailingAllocator::blocks();
    for (int i = 0; i < 10; ++i)
        store.load(path.c_str());
    long const after = FailingAllocator::blocks();
    FailingAllocator::stop();
    EXPECT_EQ(before, after);
    EXPECT_EQ(1000u, entriesOf(store).size());
}

// ---- Values ------------------------------------------------------------------------------------

TEST(ZJavaProperties, ReturnsTheValuesThatWereSet)
{
    Store store;
    setBytes(store, "a", "1");
    setBytes(store, "b", "");
    setBytes(store, "a", "2");
    EXPECT_EQ((Entries{{"a", "2"}, {"b", ""}}), entriesOf(store));
    ZUTF8String_6_0 value("before");
    store.getValue(ZUTF8String_6_0("c"), value);
    EXPECT_EQ("", bytesOf(value));
    setBytes(store, "", "empty key");
    EXPECT_EQ("empty key", get(store, ""));
}

TEST(ZJavaProperties, AcceptsEveryKindOfString)
{
    std::string const keyText = "k\xC3\xA9y";
    char const* const key = keyText.c_str();
    std::unique_ptr<ZAbstractString_6_0> const keys[] = {
        std::make_unique<ZUTF8String_6_0>(key), std::make_unique<ZUTF8ConstString_6_0>(key),
        std::make_unique<ZLCString_6_0>(key), std::make_unique<ZLCConstString_6_0>(key)};
    for (auto const& setter : keys) {
        Store store;
        store.setValue(*setter, ZLCConstString_6_0("v\xC3\xA9"));
        for (auto const& getter : keys) {
            ZUTF8String_6_0 utf8;
            ZLCString_6_0 local;
            store.getValue(*getter, utf8);
            store.getValue(*getter, local);
            EXPECT_EQ("v\xC3\xA9", bytesOf(utf8));
            EXPECT_EQ("v\xC3\xA9", bytesOf(local));
        }
        EXPECT_EQ(1u, entriesOf(store).size());
    }
}

TEST(ZJavaProperties, AcceptsTheKeyAsTheOutput)
{
    Store store;
    setBytes(store, "a", "1");
    ZUTF8String_6_0 text("a");
    store.getValue(text, text);
    EXPECT_EQ("1", bytesOf(text));
}

TEST(ZJavaProperties, ListsKeysInTheOrderOfAMapOfTen)
{
    std::string text;
    ZHashKeyMap_6_0 map(10, 1);
    for (int i = 0; i < 100; ++i) {
        std::string const key = "key" + std::to_string(i * 7 % 100);
        text += key + " = " + std::to_string(i) + "\n";
        map.putEntry(std::make_unique<ZUTF8String_6_0>(key.c_str()).get(),
                     std::make_unique<ZUTF8String_6_0>("").get());
    }
    TestDirectory const directory;
    ZArrayList_6_0 keys(10, 1);
    {
        Store store;
        store.load(directory.write("f", text).c_str());
        store.listKeys(keys);
    }
    ZArrayList_6_0 expected(10, 1);
    map.listKeys(expected);
    ASSERT_EQ(100u, keys.size());
    for (unsigned i = 0; i < 100; ++i)
        EXPECT_TRUE(expected.get(i)->equals(*keys.get(i))) << i;
    EXPECT_NE(nullptr, dynamic_cast<ZUTF8String_6_0*>(keys.get(0)));
}

TEST(ZJavaProperties, RefusesToListKeysIntoABorrowingList)
{
    Store store;
    setBytes(store, "a", "1");
    ZArrayList_6_0 keys(10, 0);
    EXPECT_TRUE(
        raises<ZInvalidParameterException_6_0>(22, kSource, 220, [&] { store.listKeys(keys); }));
    EXPECT_EQ(0u, keys.size());
}

TEST(ZJavaProperties, CannotBeCloned)
{
    Store const store;
    auto const clone = [&] { delete store.clone(); };
    EXPECT_TRUE(raises<ZAbstractNotImplementedException_6_0>(31, kSource, 112, clone));
    try {
        clone();
    } catch (ZAbstractNotImplementedException_6_0& e) {
        EXPECT_STREQ("ZJavaProperties::clone", e.value().getChars());
    }
}

// A string class without a clone() of its own.
class Unclonable final : public ZUTF8String_6_0 {
public:
    using ZUTF8String_6_0::ZUTF8String_6_0;
    ZUTF8String_6_0* clone() const override { return nullptr; }
};

TEST(ZJavaProperties, RefusesStringsThatCannotBeCloned)
{
    Store store;
    setBytes(store, "a", "1");
    Unclonable const text("a");
    ZUTF8String_6_0 const other("b");
    for (auto const& set : {std::function([&] { store.setValue(text, other); }),
                            std::function([&] { store.setValue(other, text); })})
        EXPECT_TRUE(raises<ZNotClonableException_6_0>(14, kSource, 205, set));
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store));
}

TEST(ZJavaProperties, ChangesNothingIfACloneThrows)
{
    Store store;
    setBytes(store, "a", "1");
    for (char const* text : {"a", "new"}) {
        HookedString key(text);
        HookedString value("2");
        auto const set = [&] { store.setValue(key, value); };
        value.onClone = [] {
            ZInvalidParameterException_6_0().throwException("src/Z/ZElsewhere", 7);
        };
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, "src/Z/ZElsewhere", 7, set));
        value.onClone = [] { throw 7; };
        EXPECT_THROW(set(), int);
        key.onClone = value.onClone;
        EXPECT_THROW(set(), int);
        EXPECT_EQ(2, HookedString::alive);
        EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store));
    }
    EXPECT_EQ(0, HookedString::alive);
}

TEST(ZJavaProperties, SetsAValueWhoseCloneSetsOthers)
{
    Store store;
    HookedString value("2");
    value.onClone = [&store] {
        for (int i = 0; i < 100; ++i)
            setBytes(store, "key" + std::to_string(i), "1");
    };
    store.setValue(ZUTF8String_6_0("key7"), value);
    EXPECT_EQ(100u, entriesOf(store).size());
    EXPECT_EQ("2", get(store, "key7"));
}

// ---- Writing -----------------------------------------------------------------------------------

TEST(ZJavaProperties, WritesValues)
{
    struct Case {
        char const* name;
        std::string value;
        char const* written;
    };
    Case const cases[] = {
        {"plain", "value of = it's \"x\" # !", "value of = it's \"x\" # !"},
        {"empty", "", ""},
        {"colon and backslash", "c:\\d", "c\\:\\\\d"},
        {"control characters", "\x01\t\x1F", "\x01\t\x1F"},
        {"the last unescaped character", "~", "~"},
        {"two bytes", "caf\xC3\xA9", "caf\\u00e9"},
        {"lowest and highest of two", "\xC2\x80\xDF\xBF", "\\u0080\\u07ff"},
        {"three bytes", "\xE2\x82\xAC", "\\u20ac"},
        {"highest of three", "\xEF\xBF\xBF", "\\uffff"},
        {"two bytes truncated", "\xC3", "\\u00c0"},
        {"three bytes, only one present", "\xE2", "\\u2000"},
        {"three bytes, only two present", "\xE2\x82", "\\u2080"},
        {"a lead byte takes the next byte",
         "\xC3"
         "Ab\xE2:c",
         "\\u00c1b\\u2ea3"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(std::string("a = ") + c.written + "\n", writtenOf("a", c.value));
    }
}

// Plain bytes are copied in blocks.
TEST(ZJavaProperties, WritesEscapesAtEachPositionOfAValue)
{
    constexpr size_t kLongest = 50;
    struct Case {
        char const* text;
        char const* written;
    };
    Case const cases[] = {{"", ""},         {":", "\\:"},
                          {"\\", "\\\\"},   {"\x7F", "\\u"},
                          {"\x80", "\\u"},  {"\xC3\xA9", "\\u00e9"},
                          {"\xFF", "\\u"},  {"\xE2\x82\xAC", "\\u20ac"},
                          {"::", "\\:\\:"}, {"~\x01", "~\x01"}};
    TestDirectory const directory(TestDirectory::Place::memory);
    Store store;
    std::set<std::string> expected = {"#"};
    int keys = 0;
    for (Case const& c : cases) {
        for (size_t length = 0; length <= kLongest; ++length) {
            for (size_t at = 0; at <= length; ++at) {
                std::string const before(at, 'x');
                std::string const after(length - at, '9');
                std::string const key = "k" + std::to_string(++keys);
                setBytes(store, key, before + c.text + after);
                expected.insert(key + " = " + before + c.written + after);
            }
        }
    }
    store.store(directory.at("f").c_str());
    std::istringstream lines(directory.read("f"));
    std::set<std::string> written;
    for (std::string line; std::getline(lines, line);)
        written.insert(line);
    EXPECT_EQ(expected, written);
}

TEST(ZJavaProperties, ReadsNoByteAfterTheEndOfAValue)
{
    TestDirectory const directory;
    for (char const* text : {"\xC3", "\xE2", "\xE2\x82", "x\xF0", "x"}) {
        PageEnd const end(text);
        Store store;
        store.setValue(ZUTF8ConstString_6_0("a"), ZUTF8ConstString_6_0(end.text()));
        store.store(directory.at("f").c_str());
        EXPECT_EQ("#\n" + writtenOf("a", text), directory.read("f"));
    }
}

TEST(ZJavaProperties, WritesTheFileInPlace)
{
    TestDirectory const directory;
    std::string const path = directory.write("f", std::string(5000, 'x'));
    chmod(path.c_str(), 0640);
    struct stat before;
    stat(path.c_str(), &before);
    Store store;
    setBytes(store, "a", "1");
    setBytes(store, "b", "2");
    store.store(path.c_str());
    struct stat after;
    stat(path.c_str(), &after);
    EXPECT_EQ("#\na = 1\nb = 2\n", directory.read("f"));
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mode, after.st_mode);
    EXPECT_EQ("f", directory.names());
}

TEST(ZJavaProperties, CreatesAMissingFile)
{
    TestDirectory const directory;
    Store const empty;
    Store store;
    store.store(directory.at("f").c_str());
    EXPECT_EQ("#\n", directory.read("f"));
    EXPECT_EQ((Entries{}), readOf("#\n"));
}

TEST(ZJavaProperties, WritesInTheOrderOfItsKeys)
{
    TestDirectory const directory;
    Store store;
    for (int i = 0; i < 100; ++i)
        setBytes(store, "key" + std::to_string(i * 7 % 100), "v");
    ZArrayList_6_0 keys(2, 1);
    store.listKeys(keys);
    std::string expected = "#\n";
    for (unsigned i = 0; i < keys.size(); ++i)
        expected += bytesOf(static_cast<ZAbstractString_6_0 const&>(*keys.get(i))) + " = v\n";
    store.store(directory.at("f").c_str());
    EXPECT_EQ(expected, directory.read("f"));
}

TEST(ZJavaProperties, ReadsBackWrittenEntries)
{
    TestDirectory const directory;
    Store store;
    for (int i = 0; i < 2000; ++i)
        setBytes(store, "key" + std::to_string(i),
                 "c:\\" + std::to_string(i) + " caf\xC3\xA9\xE2\x82\xAC");
    store.store(directory.at("f").c_str());
    Store again;
    again.load(directory.at("f").c_str());
    EXPECT_EQ(entriesOf(store), entriesOf(again));
    again.store(directory.at("g").c_str());
    EXPECT_EQ(directory.read("f"), directory.read("g"));
}

// ---- Kept behaviours ---------------------------------------------------------------------------

TEST(ZJavaProperties, KeepsLosingTheLastLine)
{
    EXPECT_EQ((Entries{{"a", "1"}}), readOf("a=1\nb=2"));
    EXPECT_EQ((Entries{}), readOf("a=1\\\n"));
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}}), readOf("a=1\nb=2", "b"));
    EXPECT_EQ((Entries{{"b", ""}}), readOf("b", "b"));
    EXPECT_EQ((Entries{{"b", "1"}}), readOf("b=1\\=2", "b"));
    EXPECT_EQ((Entries{{"b", "1"}}), readOf("b=1\\=2\n", "b"));
}

TEST(ZJavaProperties, KeepsTheEntryBeforeAnEmptyFile)
{
    TestDirectory const directory;
    std::string const file = directory.write("f", "a=1\nb=2\n");
    std::string const empty = directory.write("empty", "");
    Store store;
    store.load(file.c_str(), "b");
    setBytes(store, "b", "3");
    store.load(empty.c_str());
    EXPECT_EQ("3", get(store, "b"));
    store.load(empty.c_str(), "a");
    EXPECT_EQ("3", get(store, "b"));
    store.load(empty.c_str(), "b");
    EXPECT_EQ("2", get(store, "b"));
}

TEST(ZJavaProperties, KeepsSkippingTheLineAfterAnError)
{
    EXPECT_EQ((Entries{{"d", "4"}}), readOf("a\nb=2\nd=4\n"));
    EXPECT_EQ((Entries{{"d", "4"}}), readOf("a \r\nb=2\r\nd=4\n"));
    EXPECT_EQ((Entries{{"d", "4"}}), readOf("a\\\nb=2\nd=4\n"));
    // Only if the invalid character was the line ending.
    EXPECT_EQ((Entries{{"b", "2"}}), readOf("a=1\\=\nb=2\n"));
}

TEST(ZJavaProperties, KeepsPairingIgnoredLineEnds)
{
    EXPECT_EQ((Entries{{"a", "1b=2"}}), readOf("a=1\\\r\n\r\nb=2\r\n"));
    EXPECT_EQ((Entries{{"a", "1b=2"}}), readOf("a=1\\\n\rb=2\n"));
    EXPECT_EQ((Entries{{"d", "4"}}), readOf("a\r\n\r\nb=2\r\nd=4\r\n"));
}

TEST(ZJavaProperties, KeepsSeparatorsAndBackslashesAtTheStartOfALine)
{
    EXPECT_EQ((Entries{{"=x", "1"}}), readOf("=x=1\n"));
    EXPECT_EQ((Entries{{":", "x"}}), readOf(": x\n"));
    EXPECT_EQ((Entries{{"\\", "x"}}), readOf("\\=x\n"));
    EXPECT_EQ((Entries{{"\\a", "x"}}), readOf("  \\a=x\n"));
    EXPECT_EQ((Entries{{"b", "1"}}), readOf("=x\n\nb=1\n"));
    EXPECT_EQ((Entries{{"b", "1"}}), readOf(" =x\nb=1\n"));
}

TEST(ZJavaProperties, KeepsTheEscapesOfValuesApart)
{
    EXPECT_EQ((Entries{{"a=b", "c"}}), readOf("a\\=b = c\n"));
    EXPECT_EQ((Entries{}), readOf("a = b\\=c\n"));
    EXPECT_EQ((Entries{}), readOf("a\\\"b = c\na\\u0041 = c\n"));
    EXPECT_EQ((Entries{}), readOf("a = \\n\nb = \\t\nc = \\r\n"));
}

TEST(ZJavaProperties, KeepsTheStopKeyFromEmptyContinuationLines)
{
    EXPECT_EQ((Entries{{"b", "2"}, {"c", "3"}}), readOf("a=1\\\n\nb=2\\\n\nc=3\n", "b"));
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}}), readOf("a=1\\\n\nb=2\\\n\n"));
}

TEST(ZJavaProperties, KeepsWritingUAlone)
{
    EXPECT_EQ("a = \\u\\u\\u\\u!\n", writtenOf("a", "\xF0\x9F\x98\x80!"));
    EXPECT_EQ("a = \\u\n", writtenOf("a", "\x7F"));
    EXPECT_EQ("a = \\ub\n", writtenOf("a", "\x80\x62"));
    EXPECT_EQ((Entries{}), readOf(writtenOf("a", "\xF0\x9F\x98\x80")));
}

TEST(ZJavaProperties, KeepsKeysUnescaped)
{
    EXPECT_EQ("a=b = c\n", writtenOf("a=b", "c"));
    EXPECT_EQ((Entries{{"a", "b = c"}}), readOf(writtenOf("a=b", "c")));
    EXPECT_EQ("a \\:\xC3\xA9 = \n", writtenOf("a \\:\xC3\xA9", ""));
}

}  // namespace
