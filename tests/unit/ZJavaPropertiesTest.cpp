#include <Z/ZException.h>
#include <Z/ZJavaProperties.h>
#include <Z/ZLCString.h>
#include <Z/ZUTF8String.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "JavaEntries.h"
#include "LockingProcess.h"
#include "Raised.h"
#include "TestDirectory.h"

namespace {

constexpr char kSource[] = "src/Z/ZJavaProperties";

using Store = ZJavaProperties_6_0;

std::string get(Store const& store, char const* key)
{
    ZUTF8String_6_0 value;
    store.getValue(ZUTF8String_6_0(key), value);
    return bytesOf(value);
}

// Reads a text from a file and from a stream, which must come to the same, and returns what that
// makes of a store that has `before`.
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

// What is written for one entry.
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
        {"equals between blanks", "a = b\n", {{"a", "b"}}},
        {"colon", "a:b\n", {{"a", "b"}}},
        {"blank", "a b\n", {{"a", "b"}}},
        {"blanks everywhere", "  a   =   b\n", {{"a", "b"}}},
        {"every blank", "\t\v\f a\t\v\f =\t\v\f b\n", {{"a", "b"}}},
        {"blanks at the end", "a = b  \n", {{"a", "b  "}}},
        {"no value", "a =\n", {{"a", ""}}},
        {"no value, blanks", "a =  \n", {{"a", ""}}},
        {"second separator", "a == b\n", {{"a", "= b"}}},
        {"inner blanks", "a=b c\td\n", {{"a", "b c\td"}}},
        {"comments", "# a=b\n! c=d\n  # e=f\n\t!g=h\nx=y\n", {{"x", "y"}}},
        {"no comment", "a=b # c ! d\n", {{"a", "b # c ! d"}}},
        {"comment characters in a key", "a#!b=c\n", {{"a#!b", "c"}}},
        {"empty lines", "\n\n  \n a=b\n \n", {{"a", "b"}}},
        {"carriage returns", "a=b\rc=d\r", {{"a", "b"}, {"c", "d"}}},
        {"both", "a=b\r\nc=d\r\n", {{"a", "b"}, {"c", "d"}}},
        {"both the other way", "a=b\n\rc=d\n\r", {{"a", "b"}, {"c", "d"}}},
        {"twice", "a=b\na=c\n", {{"a", "c"}}},
        {"continued", "a = one\\\n    two\n", {{"a", "onetwo"}}},
        {"continued by both", "a = one\\\r\n    two\r\n", {{"a", "onetwo"}}},
        {"continued behind a blank", "a one \\\n\ttwo\\\n three\n", {{"a", "one twothree"}}},
        {"continued before the value", "a =\\\n  b\n", {{"a", "b"}}},
        {"continued without separator", "a \\\n b\n", {{"a", "b"}}},
        {"continuation escapes", "a=b\\\n\\:c\n", {{"a", "b:c"}}},
        {"empty continuation line", "a=b\\\n\nc=d\n", {{"a", "b"}, {"c", "d"}}},
        {"blank continuation line", "a=b\\\n  \nc=d\n", {{"a", "b"}, {"c", "d"}}},
        {"key escapes", "a\\\\\\ \\\t\\\v\\\f\\=\\:z=b\n", {{"a\\ \t\v\f=:z", "b"}}},
        {"value escapes", "a=\\\\\\ \\\t\\\v\\\f\\:\\\"\\'z\n", {{"a", "\\ \t\v\f:\"'z"}}},
        {"escaped first", "a \\ b\n", {{"a", " b"}}},
        {"one byte", "a=\\u0041\n", {{"a", "A"}}},
        {"two bytes", "k = caf\\u00e9\n", {{"k", "caf\xC3\xA9"}}},
        {"three bytes", "a=\\u20AC\\U20ac!\n", {{"a", "\xE2\x82\xAC\xE2\x82\xAC!"}}},
        {"the highest", "a=\\uFFFF\n", {{"a", "\xEF\xBF\xBF"}}},
        {"bytes as they are", "\xC3\xA9=\xE9\xFF\n", {{"\xC3\xA9", "\xE9\xFF"}}},
        {"nothing", "", {}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, readOf(c.text));
    }
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

TEST(ZJavaProperties, KeepsSkippingTheLineBehindAnError)
{
    EXPECT_EQ((Entries{{"d", "4"}}), readOf("a\nb=2\nd=4\n"));
    EXPECT_EQ((Entries{{"d", "4"}}), readOf("a \r\nb=2\r\nd=4\n"));
    EXPECT_EQ((Entries{{"d", "4"}}), readOf("a\\\nb=2\nd=4\n"));
    // Only when it was the line end.
    EXPECT_EQ((Entries{{"b", "2"}}), readOf("a=1\\=\nb=2\n"));
}

TEST(ZJavaProperties, KeepsPairingIgnoredLineEnds)
{
    EXPECT_EQ((Entries{{"a", "1b=2"}}), readOf("a=1\\\r\n\r\nb=2\r\n"));
    EXPECT_EQ((Entries{{"a", "1b=2"}}), readOf("a=1\\\n\rb=2\n"));
    EXPECT_EQ((Entries{{"d", "4"}}), readOf("a\r\n\r\nb=2\r\nd=4\r\n"));
}

TEST(ZJavaProperties, KeepsSeparatorsAndBackslashesThatBeginALine)
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

int main(int argc, char** argv)
{
    if (LockingProcess::isWanted(argc, argv))
        return LockingProcess::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
