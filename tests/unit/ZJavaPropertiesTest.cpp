#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZHashKeyMap.h>
#include <Z/ZJavaProperties.h>
#include <Z/ZLCString.h>
#include <Z/ZLock.h>
#include <Z/ZUTF8String.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "FailingAllocator.h"
#include "JavaEntries.h"
#include "LockingProcess.h"
#include "Nobody.h"
#include "PageEnd.h"
#include "Raised.h"
#include "TestDirectory.h"

// If set, converting a unit fails.
inline bool convertingFails_ = false;
extern "C" {
int __real_zconvert_UTF16_to_UTF8_6_0(uint16_t const**, uint16_t const*, char**, char const*);
int __wrap_zconvert_UTF16_to_UTF8_6_0(uint16_t const** from, uint16_t const* fromEnd, char** to,
                                      char const* toEnd)
{
    return convertingFails_ ? 2 : __real_zconvert_UTF16_to_UTF8_6_0(from, fromEnd, to, toEnd);
}
}

namespace {

constexpr char kSource[] = "src/Z/ZJavaProperties";

using Store = ZJavaProperties_6_0;

std::string get(Store const& store, char const* key)
{
    ZUTF8String_6_0 value;
    store.getValue(ZUTF8String_6_0(key), value);
    return bytesOf(value);
}

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

// Returns the line that is written for one entry.
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
        {"inner blanks", "a=b c\td\n", {{"a", "b c\td"}}},
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
    // Also if part of the stream was read before.
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

// A counted string that runs an action during a call.
class Meddling final : public ZUTF8String_6_0 {
public:
    explicit Meddling(char const* text) : ZUTF8String_6_0(text) { ++alive; }
    Meddling(Meddling const& other)
        : ZUTF8String_6_0(other), onClone(other.onClone), onChars(other.onChars)
    {
        ++alive;
    }
    Meddling& operator=(Meddling const&) = delete;
    ~Meddling() override { --alive; }

    ZUTF8String_6_0* clone() const override
    {
        if (onClone)
            onClone();
        return new Meddling(*this);
    }
    char const* getChars() const override
    {
        if (onChars)
            onChars();
        return ZUTF8String_6_0::getChars();
    }

    std::function<void()> onClone;
    std::function<void()> onChars;
    static inline int alive = 0;
};

TEST(ZJavaProperties, ChangesNothingIfACloneThrows)
{
    Store store;
    setBytes(store, "a", "1");
    for (char const* text : {"a", "new"}) {
        Meddling key(text);
        Meddling value("2");
        auto const set = [&] { store.setValue(key, value); };
        value.onClone = [] {
            ZInvalidParameterException_6_0().throwException("src/Z/ZElsewhere", 7);
        };
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, "src/Z/ZElsewhere", 7, set));
        value.onClone = [] { throw 7; };
        EXPECT_THROW(set(), int);
        key.onClone = value.onClone;
        EXPECT_THROW(set(), int);
        EXPECT_EQ(2, Meddling::alive);
        EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store));
    }
    EXPECT_EQ(0, Meddling::alive);
}

TEST(ZJavaProperties, SetsAValueWhoseCloneSetsOthers)
{
    Store store;
    Meddling value("2");
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

// ---- Failures ----------------------------------------------------------------------------------

// Describes the exception of a call: class, file, call and errno.
template <class Call>
std::string raised(Call call)
{
    try {
        call();
    } catch (ZPropertiesIOException_6_0 const& e) {
        return std::to_string(e.where()) + " " + e.propFile().getChars() + " " +
               e.api().getChars() + " " + std::to_string(e.excerrno());
    } catch (ZUnexpectedEndOfFile_6_0& e) {
        testing::internal::CaptureStderr();
        e.dumpException();
        std::string const report = testing::internal::GetCapturedStderr();
        return std::to_string(e.where()) + " " + report.substr(report.find("Unexpected end"));
    } catch (ZException_6_0 const& e) {
        return e.exceptionName();
    }
    return "nothing";
}

class ZJavaPropertiesFiles : public testing::Test {
protected:
    ZJavaPropertiesFiles() { setBytes(store_, "a", "1"); }
    ~ZJavaPropertiesFiles() noexcept override {}  // the store's destructor may throw

    // Expects that loading throws this and changes nothing, with and without a stop key.
    void expectNoLoad(std::string const& path, std::string const& failure)
    {
        std::string const names = directory_.names();
        EXPECT_EQ(failure, raised([&] { store_.load(path.c_str()); }));
        EXPECT_EQ(failure, raised([&] { store_.load(path.c_str(), "a"); }));
        EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
        EXPECT_EQ(names, directory_.names());
    }

    void expectNoStore(std::string const& path, std::string const& failure)
    {
        std::string const names = directory_.names();
        EXPECT_EQ(failure, raised([&] { store_.store(path.c_str()); }));
        EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
        EXPECT_EQ(names, directory_.names());
    }

    TestDirectory const directory_{TestDirectory::Place::memory};
    Store store_;
};

TEST_F(ZJavaPropertiesFiles, ThatCannotBeReadAreRefused)
{
    std::string const file = directory_.write("f", "b=2\n");
    std::string const fifo = directory_.at("fifo");
    std::string const loop = directory_.at("loop");
    std::string const longName = directory_.at(std::string(300, 'x'));
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    ASSERT_EQ(0, symlink("loop", loop.c_str()));
    struct Case {
        char const* name;
        std::string path;
        int error;
    };
    Case const cases[] = {
        {"missing", directory_.at("missing"), ENOENT},
        {"folder missing", directory_.at("missing/f"), ENOENT},
        {"below a file", file + "/f", ENOTDIR},
        {"FIFO", fifo, EINVAL},
        {"device", "/dev/null", EINVAL},
        {"link to itself", loop, ELOOP},
        {"name too long", longName, ENAMETOOLONG},
    };
    long const open = openDescriptors();
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        expectNoLoad(c.path, "151 " + c.path + " fopen(r) " + std::to_string(c.error));
    }
    // A directory can be opened but not read.
    expectNoLoad(directory_.path(),
                 "291 Unexpected end of file encounted while reading " + directory_.path() + ".");
    // So can the memory of the process: its first page is not mapped.
    expectNoLoad("/proc/self/mem",
                 "291 Unexpected end of file encounted while reading /proc/self/mem.");
    EXPECT_EQ(open, openDescriptors());
}

TEST_F(ZJavaPropertiesFiles, WithAJournalThatCannotBeReadAreRefused)
{
    chmod(directory_.path().c_str(), 0777);
    asNobody([&] {
        std::string const path = directory_.write("own", "b=2\n");
        std::string const journal = directory_.write(".own.zjn", "");
        chmod(journal.c_str(), 0000);
        expectNoLoad(path, "180 " + journal + " open() 13");
        return !HasFailure();
    });
}

TEST_F(ZJavaPropertiesFiles, ThatCannotBeWrittenAreRefused)
{
    std::string const file = directory_.write("f", "b=2\n");
    std::string const fifo = directory_.at("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    struct Case {
        char const* name;
        std::string path;
        int error;
    };
    Case const cases[] = {
        {"folder missing", directory_.at("missing/f"), ENOENT},
        {"below a file", file + "/f", ENOTDIR},
        {"directory", directory_.path(), EISDIR},
        {"FIFO", fifo, EINVAL},
        {"name too long", directory_.at(std::string(300, 'x')), ENAMETOOLONG},
    };
    long const open = openDescriptors();
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        expectNoStore(c.path, "360 " + c.path + " fopen(wt) " + std::to_string(c.error));
    }
    for (char const* path : {static_cast<char const*>(nullptr), ""})
        EXPECT_TRUE(
            raises<ZInvalidParameterException_6_0>(22, kSource, 352, [&] { store_.store(path); }));
    EXPECT_EQ("b=2\n", directory_.read("f"));
    EXPECT_EQ(open, openDescriptors());
}

TEST_F(ZJavaPropertiesFiles, OfOthersAreRefused)
{
    std::string const path = directory_.write("f", "b=2\n");
    chmod(path.c_str(), 0000);
    chmod(directory_.path().c_str(), 0555);
    asNobody([&] {
        expectNoLoad(path, "151 " + path + " fopen(r) 13");
        expectNoStore(path, "360 " + path + " fopen(wt) 13");
        expectNoStore(directory_.at("new"), "360 " + directory_.at("new") + " fopen(wt) 13");
        return !HasFailure();
    });
    chmod(path.c_str(), 0600);
    EXPECT_EQ("b=2\n", directory_.read("f"));
}

TEST_F(ZJavaPropertiesFiles, MustBeRegular)
{
    std::string const fifo = directory_.at("fifo");
    std::string const socketPath = directory_.at("socket");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    int const listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_GT(sizeof address.sun_path, socketPath.size());
    socketPath.copy(address.sun_path, socketPath.size());
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address));
    struct Case {
        char const* name;
        std::string path;
        int error;
    };
    Case const cases[] = {{"null device", "/dev/null", EINVAL},
                          {"endless device", "/dev/zero", EINVAL},
                          {"FIFO", fifo, EINVAL},
                          {"socket", socketPath, EINVAL}};
    struct stat before;
    stat("/dev/null", &before);
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        expectNoLoad(c.path, "151 " + c.path + " fopen(r) " + std::to_string(c.error));
        expectNoStore(c.path, "360 " + c.path + " fopen(wt) " + std::to_string(c.error));
    }
    close(listener);
    struct stat after;
    stat("/dev/null", &after);
    EXPECT_EQ(before.st_mode, after.st_mode);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(ZJavaPropertiesFiles, AreStoredOnlyIfReadableAndWritable)
{
    std::string const writeOnly = directory_.at("write-only");
    std::string const readOnly = directory_.at("read-only");
    chmod(directory_.path().c_str(), 0777);
    asNobody([&] {
        directory_.write("write-only", "b=2\n");
        directory_.write("read-only", "b=2\n");
        chmod(writeOnly.c_str(), 0200);
        chmod(readOnly.c_str(), 0400);
        expectNoLoad(writeOnly, "151 " + writeOnly + " fopen(r) 13");
        expectNoStore(writeOnly, "360 " + writeOnly + " fopen(wt) 13");
        expectNoStore(readOnly, "360 " + readOnly + " fopen(wt) 13");
        Store other;
        EXPECT_EQ(1, other.load(readOnly.c_str()));
        EXPECT_EQ((Entries{{"b", "2"}}), entriesOf(other));
        return !HasFailure();
    });
    chmod(writeOnly.c_str(), 0600);
    EXPECT_EQ("b=2\n", directory_.read("write-only"));
    EXPECT_EQ("b=2\n", directory_.read("read-only"));
}

TEST_F(ZJavaPropertiesFiles, OfAnyKindAreReadFromAStream)
{
    FILE* const null = fopen("/dev/null", "r");
    EXPECT_EQ(1, store_.loadProperties(null, "null"));
    fclose(null);
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));

    std::string const fifo = directory_.at("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    std::thread writer([&fifo] {
        FILE* const out = fopen(fifo.c_str(), "w");
        fputs("b=2\nc", out);
        fflush(out);
        fputs("=3\n", out);
        fclose(out);
    });
    FILE* const in = fopen(fifo.c_str(), "r");
    EXPECT_EQ(1, store_.loadProperties(in, "fifo"));
    fclose(in);
    writer.join();
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}, {"c", "3"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, FromAPipeWithoutDataFailIfItDoesNotWait)
{
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK));
    ASSERT_EQ(4, write(ends[1], "b=2\n", 4));
    FILE* const stream = fdopen(ends[0], "r");
    EXPECT_EQ("291 Unexpected end of file encounted while reading the pipe.",
              raised([&] { store_.loadProperties(stream, "the pipe"); }));
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
    fclose(stream);
    close(ends[1]);
}

TEST_F(ZJavaPropertiesFiles, FromAPipeFailIfASignalEndsTheWait)
{
    struct sigaction before;
    struct sigaction interrupting = {};
    interrupting.sa_handler = [](int) {};  // without SA_RESTART
    ASSERT_EQ(0, sigaction(SIGUSR1, &interrupting, &before));
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    ASSERT_EQ(4, write(ends[1], "b=2\n", 4));
    FILE* const stream = fdopen(ends[0], "r");
    std::atomic<bool> ended = false;
    std::string failure;
    std::thread reader([&] {
        failure = raised([&] { store_.loadProperties(stream, "the pipe"); });
        ended = true;
    });
    while (!ended) {
        pthread_kill(reader.native_handle(), SIGUSR1);
        usleep(1000);
    }
    reader.join();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_EQ("291 Unexpected end of file encounted while reading the pipe.", failure);
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
    fclose(stream);
    close(ends[1]);
}

// A thread waits for data of a pipe, is cancelled, and then gets the data.
TEST_F(ZJavaPropertiesFiles, FromAPipeAreReadCompletelyByACancelledThread)
{
    struct Reader {
        Store& store;
        FILE* stream;
        int result = -1;
        bool survived = false;
    };
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    ASSERT_EQ(6, write(ends[1], "b=2\nc=", 6));
    Reader reader{store_, fdopen(ends[0], "r")};
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(
                     &thread, nullptr,
                     [](void* argument) -> void* {
                         auto& own = *static_cast<Reader*>(argument);
                         own.result = own.store.loadProperties(own.stream, "pipe");
                         pthread_testcancel();
                         own.survived = true;
                         return nullptr;
                     },
                     &reader));
    // All data has been read: the thread waits, or is about to wait.
    for (int left = 1; left != 0;) {
        ASSERT_EQ(0, ioctl(ends[0], FIONREAD, &left));
        sched_yield();
    }
    pthread_cancel(thread);
    timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_nsec += 100000000;
    until.tv_sec += until.tv_nsec / 1000000000;
    until.tv_nsec %= 1000000000;
    void* ended = nullptr;
    EXPECT_EQ(ETIMEDOUT, pthread_timedjoin_np(thread, &ended, &until));
    ASSERT_EQ(6, write(ends[1], "3\nd=4\n", 6));
    close(ends[1]);
    ASSERT_EQ(0, pthread_join(thread, &ended));
    fclose(reader.stream);
    EXPECT_EQ(PTHREAD_CANCELED, ended);
    EXPECT_EQ(1, reader.result);
    EXPECT_FALSE(reader.survived);
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, LockedByAnotherProcessAreNotWaitedFor)
{
    std::string const path = directory_.write("f", "b=2\n");
    {
        LockingProcess const writer(path, F_WRLCK);
        expectNoLoad(path, "166 " + path + " fcntl() 11");
        expectNoStore(path, "373 " + path + " fcntl() 11");
    }
    {
        LockingProcess const reader(path, F_RDLCK);
        expectNoStore(path, "373 " + path + " fcntl() 11");
        Store other;
        EXPECT_EQ(1, other.load(path.c_str()));
        EXPECT_EQ("2", get(other, "b"));
    }
    EXPECT_EQ("b=2\n", directory_.read("f"));
    store_.store(path.c_str());
    EXPECT_EQ("#\na = 1\n", directory_.read("f"));
}

// Returns whether another process can lock the file with this type without waiting.
bool isFree(std::string const& path, short type)
{
    pid_t const child = fork();
    if (child == 0) {
        int const fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        struct flock whole = {};
        whole.l_type = type;
        whole.l_whence = SEEK_SET;
        _exit(fd >= 0 && fcntl(fd, F_SETLK, &whole) == 0 ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return status == 0;
}

TEST_F(ZJavaPropertiesFiles, AreUnchangedIfAValueThrows)
{
    std::string const path = directory_.write("f", "b=2\n");
    std::string const made = directory_.at("new");
    long const open = openDescriptors();
    bool raising = false;
    Meddling value("2");
    value.onChars = [&raising] {
        if (raising)
            throw 7;
    };
    store_.setValue(ZUTF8String_6_0("z"), value);
    raising = true;
    EXPECT_THROW(store_.store(path.c_str()), int);
    EXPECT_THROW(store_.store(made.c_str()), int);
    EXPECT_EQ("b=2\n", directory_.read("f"));
    EXPECT_EQ("f", directory_.names());
    EXPECT_EQ(open, openDescriptors());
    EXPECT_TRUE(isFree(path, F_WRLCK));
    raising = false;
    store_.store(path.c_str());
    EXPECT_EQ("#\nz = 2\na = 1\n", directory_.read("f"));
}

TEST_F(ZJavaPropertiesFiles, AreLockedForOthersWhileTheyAreStored)
{
    std::string const path = directory_.write("f", "b=2\n");
    int asked = 0;
    bool watching = false;
    Meddling value("2");
    value.onChars = [&] {
        if (!watching)
            return;
        ++asked;
        EXPECT_FALSE(isFree(path, F_RDLCK));
        EXPECT_EQ("b=2\n", directory_.read("f"));
    };
    store_.setValue(ZUTF8String_6_0("z"), value);
    watching = true;
    store_.store(path.c_str());
    watching = false;
    EXPECT_LT(0, asked);
    EXPECT_TRUE(isFree(path, F_WRLCK));
}

TEST_F(ZJavaPropertiesFiles, AreUnchangedIfWritingFails)
{
    std::string const path = directory_.write("f", "b=2\n");
    struct rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    struct rlimit limit = before;
    limit.rlim_cur = 5;
    setrlimit(RLIMIT_FSIZE, &limit);
    std::string const existing = raised([&] { store_.store(path.c_str()); });
    std::string const made = raised([&] { store_.store(directory_.at("new").c_str()); });
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ("410 " + directory_.at(".f.zjn.new") + " write() 27", existing);
    EXPECT_EQ("410 " + directory_.at(".new.zjn.new") + " write() 27", made);
    EXPECT_EQ("b=2\n", directory_.read("f"));
    EXPECT_EQ("f", directory_.names());
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, ThatFailDuringAReadAddNothing)
{
    FILE* const unreadable = fopen(directory_.at("w").c_str(), "w");
    EXPECT_TRUE(raises<ZUnexpectedEndOfFile_6_0>(53, kSource, 291,
                                                 [&] { store_.loadProperties(unreadable, "w"); }));
    fclose(unreadable);

    // Fails after a complete entry.
    int reads = 0;
    cookie_io_functions_t const functions = {[](void* cookie, char* buffer, size_t) -> ssize_t {
                                                 if (++*static_cast<int*>(cookie) > 1) {
                                                     errno = EIO;
                                                     return -1;
                                                 }
                                                 std::string_view const text = "a=2\nb=2\n";
                                                 text.copy(buffer, text.size());
                                                 return static_cast<ssize_t>(text.size());
                                             },
                                             nullptr, nullptr, nullptr};
    FILE* const failing = fopencookie(&reads, "r", functions);
    EXPECT_EQ("291 Unexpected end of file encounted while reading the path.",
              raised([&] { store_.loadProperties(failing, "the path"); }));
    fclose(failing);
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, WithAUnitThatCannotBeConvertedAddNothing)
{
    std::string const path = directory_.write("f", "a=2\nb=\\u0041\n");
    convertingFails_ = true;
    EXPECT_TRUE(raises<ZToUTF8Exception_6_0>(49, kSource, 914, [&] { store_.load(path.c_str()); }));
    convertingFails_ = false;
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store_));
    store_.load(path.c_str());
    EXPECT_EQ((Entries{{"a", "2"}, {"b", "A"}}), entriesOf(store_));
}

// A store with handlers of its own.
class OtherStates final : public Store {
public:
    void drop(int state) { handlers_[state] = nullptr; }
    void leave(int state, int to)
    {
        handlers_[state] = static_cast<Handler>(&OtherStates::nowhere);
        nowhere_ = to;
    }
    void shout() { handlers_[valChars] = static_cast<Handler>(&OtherStates::upper); }

private:
    int nowhere(char) { return nowhere_; }
    int upper(char c)
    {
        return doValCharsState(c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c);
    }

    int nowhere_ = 0;
};

TEST_F(ZJavaPropertiesFiles, WithoutAHandlerForAStateAddNothing)
{
    std::string const path = directory_.write("f", "a=2\nb\\=c=2\n");
    OtherStates store;
    setBytes(store, "a", "1");
    store.drop(5);
    EXPECT_TRUE(raises<ZJavaPropertyParseException_6_0>(54, kSource, 310,
                                                        [&] { store.load(path.c_str()); }));
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store));
}

TEST_F(ZJavaPropertiesFiles, AreReadByTheHandlersOfADerivedClass)
{
    std::string const path = directory_.write("f", "a=bcd\nb=ef\n");
    OtherStates store;
    store.shout();
    store.load(path.c_str());
    // The handler of the preceding state processes the first character of a value.
    EXPECT_EQ((Entries{{"a", "bCD"}, {"b", "eF"}}), entriesOf(store));

    for (int const nowhere : {99, 0, -1}) {
        SCOPED_TRACE(nowhere);
        OtherStates leaving;
        leaving.leave(5, nowhere);
        FILE* const stream = fopen(directory_.write("g", "a=1\nb\\=c=2\nd=3\n").c_str(), "r");
        EXPECT_EQ(0, leaving.loadProperties(stream, "g"));
        EXPECT_EQ('c', getc(stream));
        fclose(stream);
        EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(leaving));
    }
}

// A store that runs an action before every value.
class Interrupted final : public Store {
public:
    explicit Interrupted(std::function<void()> deed) : deed_(std::move(deed))
    {
        handlers_[keyEndBlanksFinal] = static_cast<Handler>(&Interrupted::interrupt);
    }
    ~Interrupted() override {}

private:
    int interrupt(char c)
    {
        deed_();
        return doKeyEndBlanksFinalState(c);
    }

    std::function<void()> const deed_;
};

TEST_F(ZJavaPropertiesFiles, AreLockedForOtherWritersWhileTheyAreRead)
{
    std::string const path = directory_.write("f", "a=2\nb=3\n");
    int asked = 0;
    Interrupted store([&] {
        ++asked;
        EXPECT_FALSE(isFree(path, F_WRLCK));
        EXPECT_TRUE(isFree(path, F_RDLCK));
    });
    store.load(path.c_str());
    EXPECT_EQ(2, asked);
    EXPECT_TRUE(isFree(path, F_WRLCK));
}

TEST_F(ZJavaPropertiesFiles, WithAHandlerThatThrowsAddNothing)
{
    std::string const path = directory_.write("f", "a=2\nb=3\nc=4\n");
    long const open = openDescriptors();
    int calls = 0;
    Interrupted store([&] {
        if (++calls == 2)
            throw 7;
    });
    setBytes(store, "a", "1");
    EXPECT_THROW(store.load(path.c_str(), "b"), int);
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store));
    EXPECT_EQ(open, openDescriptors());
    EXPECT_TRUE(isFree(path, F_WRLCK));
    // The stop key is reset too.
    store.load(path.c_str());
    EXPECT_EQ((Entries{{"a", "2"}, {"b", "3"}, {"c", "4"}}), entriesOf(store));
}

TEST_F(ZJavaPropertiesFiles, WithAKeyThatCannotBeComparedAddNothing)
{
    std::string const path = directory_.write("f", "new=2\na=2\nz=2\na=3\n");
    int left = 0;  // calls until one throws; 0: none throws
    Meddling key("z");
    key.onChars = [&left] {
        if (left > 0 && --left == 0)
            throw 7;
    };
    store_.setValue(key, ZUTF8String_6_0("1"));
    int n = 1;
    for (bool threw = true; threw && n < 100; ++n) {
        left = n;
        try {
            store_.load(path.c_str());
            threw = false;
        } catch (int) {
        }
        left = 0;
        if (threw) {
            EXPECT_EQ((Entries{{"a", "1"}, {"z", "1"}}), entriesOf(store_)) << n;
        }
    }
    EXPECT_LT(2, n);
    EXPECT_EQ((Entries{{"a", "3"}, {"new", "2"}, {"z", "2"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, StoreAnEntryAtTheEndOfItsLine)
{
    Interrupted* self = nullptr;
    std::vector<Entries> seen;
    Interrupted store([&] { seen.push_back(entriesOf(*self)); });
    self = &store;
    setBytes(store, "a", "1");
    store.load(directory_.write("f", "a=2\nb=\nb=3\nc=4\n").c_str());
    std::vector<Entries> const expected = {
        {{"a", "1"}}, {{"a", "2"}}, {{"a", "2"}, {"b", ""}}, {{"a", "2"}, {"b", "3"}}};
    // This handler also processes a line ending, once for an empty value.
    seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
    EXPECT_EQ(expected, seen);
    EXPECT_EQ((Entries{{"a", "2"}, {"b", "3"}, {"c", "4"}}), entriesOf(store));
}

// A store whose handlers are called one character at a time.
class ByHand final : public Store {
public:
    int take(std::string_view text)
    {
        int state = startLine;
        for (char const c : text)
            state = (this->*handlers_[state])(c);
        return state;
    }
};

TEST_F(ZJavaPropertiesFiles, AreNotNeededForAHandlerToStore)
{
    ByHand store;
    setBytes(store, "b", "1");
    EXPECT_EQ(1, store.take("a=1\nb=2\nc\\=d=e \\u20ac\\\n  f\n"));
    EXPECT_EQ((Entries{{"a", "1"},
                       {"b", "2"},
                       {"c=d",
                        "e \xE2\x82\xAC"
                        "f"}}),
              entriesOf(store));
    // A failed read of a file undoes none of these entries.
    EXPECT_THROW(store.load(directory_.at("missing").c_str()), ZPropertiesIOException_6_0);
    EXPECT_EQ(3u, entriesOf(store).size());
    std::string const path = directory_.write("f", "a=3\nb=\\u0041\n");
    convertingFails_ = true;
    EXPECT_THROW(store.load(path.c_str()), ZToUTF8Exception_6_0);
    convertingFails_ = false;
    EXPECT_EQ("1", get(store, "a"));
    EXPECT_EQ("2", get(store, "b"));
}

TEST_F(ZJavaPropertiesFiles, MayBeReadDuringAnotherRead)
{
    std::string const inner = directory_.write("inner", "b=2\nc=3\nd");
    std::string const outer = directory_.write("outer", "w=0\nlong key=1 \\u0041\ny=2\nz=9\n");
    for (char const* const stopKey : {"", "y"}) {
        SCOPED_TRACE(stopKey);
        int depth = 0;
        Interrupted* self = nullptr;
        Interrupted store([&] {
            if (depth++ == 0)
                self->load(inner.c_str(), "none");
        });
        self = &store;
        EXPECT_EQ(1, store.load(outer.c_str(), stopKey));
        Entries expected = {{"w", "0"}, {"b", "2"}, {"c", "3"}, {"long", "key=1 A"}, {"y", "2"}};
        if (*stopKey == 0)
            expected["z"] = "9";
        EXPECT_EQ(expected, entriesOf(store));
    }
}

// A nested read starts in the middle of the second entry of the outer read; each of the two
// succeeds or fails.
TEST_F(ZJavaPropertiesFiles, ThatFailDuringAnotherReadUndoOnlyThemselves)
{
    std::string const inner = directory_.write("inner", "a=20\nb=20\nc=20\n");
    std::string const outer = directory_.write("outer", "a=10\nb=10\nd=10\n");
    Entries const before = {{"a", "1"}, {"z", "1"}};
    for (bool const innerFails : {false, true}) {
        for (bool const outerFails : {false, true}) {
            SCOPED_TRACE(
                std::string(innerFails ? "the inner read fails" : "the inner read succeeds") +
                (outerFails ? ", the outer read fails" : ", the outer read succeeds"));
            int calls = 0;
            Interrupted* self = nullptr;
            Interrupted store([&] {
                ++calls;
                if (innerFails && calls == 5)
                    throw 5;  // at the last entry of the inner file
                if (outerFails && calls == 6)
                    throw 6;  // at the last entry of the outer file
                if (calls != 2)
                    return;
                setBytes(*self, "z", "2");
                setBytes(*self, "new", "2");
                try {
                    self->load(inner.c_str());
                } catch (int) {
                }
                Entries expected = {{"a", "10"}, {"z", "2"}, {"new", "2"}};
                if (!innerFails)
                    expected.insert_or_assign("a", "20"), expected["b"] = expected["c"] = "20";
                EXPECT_EQ(expected, entriesOf(store));
            });
            self = &store;
            for (auto const& [key, value] : before)
                setBytes(store, key, value);
            if (outerFails)
                EXPECT_THROW(store.load(outer.c_str()), int);
            else
                EXPECT_EQ(1, store.load(outer.c_str()));
            Entries expected = before;
            if (!outerFails) {
                expected = {{"a", innerFails ? "10" : "20"},
                            {"b", "10"},
                            {"d", "10"},
                            {"z", "2"},
                            {"new", "2"}};
                if (!innerFails)
                    expected["c"] = "20";
            }
            EXPECT_EQ(6, calls);
            EXPECT_EQ(expected, entriesOf(store));
            // Later changes are not undone, and the next read starts from scratch.
            setBytes(store, "a", "3");
            EXPECT_THROW(store.load(directory_.at("missing").c_str()), ZPropertiesIOException_6_0);
            EXPECT_EQ("3", get(store, "a"));
        }
    }
}

TEST_F(ZJavaPropertiesFiles, ThatFailPreserveTheOrderOfTheKeys)
{
    std::string text;
    for (int i = 0; i < 300; ++i) {
        setBytes(store_, "old" + std::to_string(i), "1");
        text += "new" + std::to_string(i) + " = 2\nold" + std::to_string(i) + " = 2\n";
    }
    store_.store(directory_.at("before").c_str());
    std::string const path = directory_.write("f", text + "last=\\u0041\n");
    convertingFails_ = true;
    EXPECT_THROW(store_.load(path.c_str()), ZToUTF8Exception_6_0);
    convertingFails_ = false;
    store_.store(directory_.at("after").c_str());
    EXPECT_EQ(directory_.read("before"), directory_.read("after"));
}

// A value whose destructor runs an action.
class Parting final : public ZUTF8String_6_0 {
public:
    Parting(std::string const& text, std::function<void()> deed)
        : ZUTF8String_6_0(text.c_str()), deed_(std::move(deed))
    {
    }
    ~Parting() noexcept(false) override
    {
        if (deed_)
            deed_();
    }
    ZUTF8String_6_0* clone() const override { return new Parting(getChars(), deed_); }

private:
    std::function<void()> const deed_;
};

TEST_F(ZJavaPropertiesFiles, AreReadCompletelyIfDestroyingAnOldValueThrows)
{
    std::string const path = directory_.write("f", "old=2\na=2\nb=2\n");
    bool raising = false;
    store_.setValue(ZUTF8String_6_0("old"), Parting("1", [&] {
                        if (raising)
                            throw 7;
                    }));
    raising = true;
    EXPECT_THROW(store_.load(path.c_str()), int);
    raising = false;
    EXPECT_EQ((Entries{{"a", "2"}, {"b", "2"}, {"old", "2"}}), entriesOf(store_));
}

TEST_F(ZJavaPropertiesFiles, ThatFailAreUndoneCompletelyIfDestroyingAValueThrows)
{
    std::string const path = directory_.write("f", "a=2\nb=2\nc=2\n");
    bool raising = false;
    int calls = 0;
    Interrupted* self = nullptr;
    Interrupted store([&] {
        if (++calls == 3)
            throw 3;
        if (calls == 2) {
            self->setValue(ZUTF8String_6_0("d"), Parting("2", [&] {
                               if (raising)
                                   throw 7;
                           }));
            raising = true;
        }
    });
    self = &store;
    setBytes(store, "a", "1");
    testing::internal::CaptureStderr();
    try {
        store.load(path.c_str());
        ADD_FAILURE();
    } catch (int raised) {
        EXPECT_EQ(3, raised);
    }
    raising = false;
    EXPECT_NE("", testing::internal::GetCapturedStderr());
    EXPECT_EQ((Entries{{"a", "1"}}), entriesOf(store));
}

TEST_F(ZJavaPropertiesFiles, ReadInsideOneAnotherAddNothingIfMemoryIsExhausted)
{
    std::string const longText(200, 'x');
    std::string const inner =
        directory_.write("inner", "a = 2\nin" + longText + " = " + longText + "\n");
    std::string const outer =
        directory_.write("outer", "a = 3\n" + longText + " = y\nb = " + longText + "\n");
    Entries const before = {{"a", "1"}, {longText, "1"}};
    Entries const expected = {{"a", "2"},
                              {"in" + longText, longText},
                              {longText, "y"},
                              {"b", longText},
                              {"set", longText}};
    unsigned long n = 1;
    for (bool failed = true; failed && !HasFailure(); ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        long const blocks = FailingAllocator::blocks();
        {
            int calls = 0;
            ZUTF8String_6_0 const key("set");
            ZUTF8String_6_0 const value(longText.c_str());
            Interrupted* self = nullptr;
            Interrupted store([&] {
                if (++calls == 3) {
                    self->setValue(key, value);
                    self->load(inner.c_str(), "none");
                }
            });
            self = &store;
            for (auto const& [name, text] : before)
                setBytes(store, name, text);
            bool raised = false;
            FailingAllocator::failAt(n);
            try {
                store.load(outer.c_str(), longText.c_str() + 1);
            } catch (ZOutOfMemoryException_6_0 const&) {
                raised = true;
            }
            failed = FailingAllocator::stop();
            EXPECT_EQ(failed, raised);
            EXPECT_EQ(failed ? before : expected, entriesOf(store));
        }
        EXPECT_EQ(blocks, FailingAllocator::blocks());
    }
    EXPECT_LT(20u, n);
}

// ---- Memory and threads ------------------------------------------------------------------------

TEST_F(ZJavaPropertiesFiles, AddNothingIfMemoryIsExhausted)
{
    std::string const longText(200, 'x');
    std::string text;
    Entries expected = {{"a", "2"}, {longText, "1"}};
    for (int i = 0; i < 100; ++i) {
        text += "key" + std::to_string(i) + " = one \\u20ac\\\n " + longText + "\n";
        expected["key" + std::to_string(i)] = "one \xE2\x82\xAC" + longText;
    }
    expected["key7"] = "3";
    // Existing keys, new keys, and one key twice.
    std::string const path = directory_.write("f", text + "a = 2\nkey7 = 3\n");
    Entries const before = {{"a", "1"}, {"key50", "before"}, {longText, "1"}};

    unsigned long n = 1;
    for (bool failed = true; failed && !HasFailure(); ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        long const blocks = FailingAllocator::blocks();
        {
            Store store;
            for (auto const& [key, value] : before)
                setBytes(store, key, value);
            bool raised = false;
            FailingAllocator::failAt(n);
            try {
                store.load(path.c_str(), "none");
            } catch (ZOutOfMemoryException_6_0 const&) {
                raised = true;
            }
            failed = FailingAllocator::stop();
            EXPECT_EQ(failed, raised);
            EXPECT_EQ(failed ? before : expected, entriesOf(store));
        }
        EXPECT_EQ(blocks, FailingAllocator::blocks());
    }
    EXPECT_LT(20u, n);
}

TEST_F(ZJavaPropertiesFiles, AndValuesAreUnchangedIfMemoryIsExhausted)
{
    std::string const longText(200, 'x');
    setBytes(store_, longText, longText);
    Entries const before = entriesOf(store_);
    ZUTF8String_6_0 const key(longText.c_str());
    ZUTF8String_6_0 const newKey("new");
    ZUTF8String_6_0 value("before");
    ZArrayList_6_0 keys(1, 1);
    std::string const path = directory_.at("f");
    auto const store = [&] { store_.store(path.c_str()); };

    EXPECT_LT(0u, failEachAllocation([] { Store const made; }, [] {}));
    EXPECT_LT(0u, failEachAllocation([&] { store_.getValue(key, value); },
                                     [&] { EXPECT_EQ("before", bytesOf(value)); }));
    EXPECT_EQ(longText, bytesOf(value));
    EXPECT_LT(2u, failEachAllocation([&] { store_.listKeys(keys); },
                                     [&] { EXPECT_EQ(0u, keys.size()); }));
    EXPECT_LT(3u, failEachAllocation(store, [&] { EXPECT_EQ("", directory_.names()); }));
    std::string const written = directory_.read("f");
    directory_.write("f", "old\n");
    EXPECT_LT(3u, failEachAllocation(store, [&] {
                  EXPECT_EQ("old\n", directory_.read("f"));
                  EXPECT_EQ("f", directory_.names());
              }));
    EXPECT_EQ(written, directory_.read("f"));
    EXPECT_LT(2u, failEachAllocation([&] { store_.setValue(newKey, key); },
                                     [&] { EXPECT_EQ(before, entriesOf(store_)); }));
    EXPECT_EQ(longText, get(store_, "new"));
}

TEST_F(ZJavaPropertiesFiles, AndAStoreServeEightThreads)
{
    constexpr int kThreads = 8;
    constexpr int kRounds = 20;
    std::string text;
    for (int i = 0; i < 100; ++i)
        text += "key" + std::to_string(i) + " = caf\\u00e9 " + std::to_string(i) + "\n";
    std::string const path = directory_.write("f", text);
    Store const* readOnly = nullptr;
    Store loaded;
    loaded.load(path.c_str());
    readOnly = &loaded;

    ZLock_6_0 lock;  // serialises the use of one store, as its contract requires
    std::atomic<int> wrong = 0;
    auto const work = [&](int number) {
        std::string const own = directory_.at("t" + std::to_string(number));
        for (int i = 0; i < kRounds; ++i) {
            // A store that no thread changes may be read by all.
            if (get(*readOnly, "key42") != "caf\xC3\xA9 42")
                ++wrong;
            // Every thread has its own store; all stores use one file.
            Store mine;
            mine.load(path.c_str());
            setBytes(mine, "thread", std::to_string(number));
            mine.store(own.c_str());
            ZResourceLock_6_0 const hold(lock);
            store_.load(own.c_str());
            if (get(store_, "thread") != std::to_string(number))
                ++wrong;
            store_.store(directory_.at("shared").c_str());
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back(work, i);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(102u, entriesOf(store_).size());
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

int main(int argc, char** argv)
{
    if (LockingProcess::isWanted(argc, argv))
        return LockingProcess::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
