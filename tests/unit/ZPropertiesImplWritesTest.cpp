// Writing stanza files, and their companions.
#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <random>
#include <string>

#include "CacheHelpers.h"

using namespace std::string_literals;

// --- writing

TEST(ZPropertiesImplWrites, FilesKeepTheirShape)
{
    char const* const kText =
        "# Configuration of the service\n"
        "#\n"
        "\n"
        "# Where it listens\n"
        "[net]\n"
        "port = 80\n"
        "\n"
        "# hosts that may connect\n"
        "host = a.example\n"
        "host = b.example\n"
        "empty =\n"
        "\n"
        "[log]\n"
        "# level = debug\n"
        "\n"
        "file = /var/log/x\n";
    auto const data = parsed(kText);
    EXPECT_EQ(kText, textOf(*data));
    EXPECT_EQ(kText, written(*data));
}

TEST(ZPropertiesImplWrites, ObfuscatedValuesStayOutOfTheText)
{
    auto const data = parsed("[a]\nk = plain\nsecret =\nboth = p\n");
    data->setObfuscated("a", "secret", "s");
    data->add("a", "both", "hidden", 1);
    EXPECT_EQ("[a]\nk = plain\nboth = p\n", textOf(*data));
    data->setObfuscated("a", "secret", "");
    EXPECT_EQ("[a]\nk = plain\nsecret =\nboth = p\n", textOf(*data));
}

TEST(ZPropertiesImplWrites, EmptyCacheWritesNothing)
{
    ZSCFData_6_0 data;
    EXPECT_EQ("", written(data));
    ZBuffer_6_0 text("left over");
    data.writeText(text);
    EXPECT_EQ(0u, text.getLength());
}

TEST(ZPropertiesImplWrites, FailureToWriteIsReported)
{
    auto const data = parsed("[a]\nk = " + std::string(8000, 'v') + "\n");
    FILE* const full = fopen("/dev/full", "w");
    ASSERT_NE(nullptr, full);
    setvbuf(full, nullptr, _IONBF, 0);
    try {
        data->be_write("/some/path", full);
        ADD_FAILURE() << "accepted";
    } catch (ZPropertiesIOException_6_0 const& e) {
        EXPECT_EQ(43u, e.messageNumber());
        EXPECT_STREQ("/some/path", e.propFile().getChars());
        EXPECT_STREQ("fwrite()", e.api().getChars());
        EXPECT_EQ(ENOSPC, e.excerrno());
        EXPECT_STREQ("src/Z/ZPropertiesImpl", e.who());
        EXPECT_EQ(81u, e.where());
    }
    fclose(full);
}

TEST(ZPropertiesImplWrites, FailureToFlushIsReported)
{
    auto const data = parsed("[a]\nk = v\n");
    FILE* const full = fopen("/dev/full", "w");  // the buffer of the stream accepts the text
    ASSERT_NE(nullptr, full);
    try {
        data->be_write("/some/path", full);
        ADD_FAILURE() << "accepted";
    } catch (ZPropertiesIOException_6_0 const& e) {
        EXPECT_STREQ("fwrite()", e.api().getChars());
        EXPECT_EQ(ENOSPC, e.excerrno());
        EXPECT_EQ(81u, e.where());
    }
    fclose(full);
}

// --- the companion file

TEST(ZPropertiesImplWrites, CompanionHoldsTheObfuscatedRecords)
{
    ZSCFData_6_0 data;
    ZBuffer_6_0 buffer("left over");
    data.be_write_obfuscated(buffer);
    EXPECT_EQ(0u, buffer.getLength());
    data.add("b", "k", "plain", 0);
    data.add("b", "k", "one", 1);
    data.add("a", "k", "two", 1);
    data.add("b", "k", "three", 1);
    data.be_write_obfuscated(buffer);
    // In the order in which the keys got obfuscated values, without the last zero byte.
    EXPECT_EQ("b\0k\0one\0\0b\0k\0three\0\0a\0k\0two\0"s, decompressed(buffer));
}

TEST(ZPropertiesImplWrites, CompanionIsReadBack)
{
    ZSCFData_6_0 data;
    for (int i = 0; i < 500; ++i) {
        std::string const key = "key" + std::to_string(i % 100);
        data.add(("stanza" + std::to_string(i % 7)).c_str(), key.c_str(),
                 std::string(static_cast<size_t>(i) + 1, 's').c_str(), 1);
    }
    ZBuffer_6_0 buffer;
    data.be_write_obfuscated(buffer);
    ZSCFData_6_0 other;
    other.be_read_obfuscated(buffer);
    EXPECT_EQ(stateOf(data), stateOf(other));
    other.be_read_obfuscated(buffer);
    EXPECT_EQ(2 * data.countValues("stanza1"), other.countValues("stanza1"));
    EXPECT_EQ(data.obfuscatedItemCount(), other.obfuscatedItemCount());
}

TEST(ZPropertiesImplWrites, CompanionIsReadWithTheLastZeroByteOrWithoutIt)
{
    struct Case {
        char const* name;
        std::string records;  // complete
        Strings values;       // of key k in stanza a
    };
    Case const cases[] = {
        {"one record", "a\0k\0v\0\0"s, {"v"}},
        {"two records", "a\0k\0v\0\0a\0k\0w\0\0"s, {"v", "w"}},
        {"an empty value", "a\0k\0\0\0"s, {}},
        {"an empty value after another", "a\0k\0v\0\0a\0k\0\0\0"s, {"v"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZSCFData_6_0 complete;
        readCompanion(complete, compressed(c.records));
        ASSERT_EQ(1, complete.contains("a", "k"));
        EXPECT_EQ(c.values, values(complete, "a", "k", ZPCache_6_0::obfuscatedValues));
        ZSCFData_6_0 shortened;
        readCompanion(shortened, compressed(c.records.substr(0, c.records.size() - 1)));
        EXPECT_EQ(stateOf(complete), stateOf(shortened));
        complete.setCompanionFile("/x/test.obf");
        // One byte more or less is not a sequence of records.
        expectCompanionRefused(complete, compressed(c.records + std::string(1, '\0')));
        expectCompanionRefused(complete, compressed(c.records.substr(0, c.records.size() - 2)));
    }
}

TEST(ZPropertiesImplWrites, CompanionAddsToTheContents)
{
    auto const data = parsed("[a]\nk = plain\n[removed]\nk = v\n");
    data->remove("removed");
    data->get("a", "k", ZPCache_6_0::obfuscatedValues);  // a list that a caller holds
    readCompanion(*data, compressed("a\0k\0one\0\0a\0new\0two\0\0b\0k\0three\0\0a\0k\0four\0\0"
                                    "a\0empty\0\0\0removed\0k\0five\0"s));
    EXPECT_EQ((Strings{"plain"}), values(*data, "a", "k", ZPCache_6_0::plainValues));
    EXPECT_EQ((Strings{"one", "four"}), values(*data, "a", "k", ZPCache_6_0::obfuscatedValues));
    EXPECT_EQ((Strings{"two"}), values(*data, "a", "new"));
    EXPECT_EQ((Strings{"three"}), values(*data, "b", "k"));
    EXPECT_EQ(Strings(), values(*data, "a", "empty"));
    EXPECT_EQ(1, data->contains("a", "empty"));
    EXPECT_EQ((Strings{"five"}), values(*data, "removed", "k"));
    EXPECT_EQ(4, data->obfuscatedItemCount());
    EXPECT_EQ("[a]\nk = plain\n[removed]\n", textOf(*data));
}

TEST(ZPropertiesImplWrites, RecordsLongerThanAnyBufferStepAreCompressed)
{
    ZSCFData_6_0 data;
    std::string value;
    std::mt19937 random(1);
    for (int i = 0; i < 100000; ++i)
        value += static_cast<char>('!' + random() % 90);
    data.add("a", "k", "x", 1);
    data.add("a", "k", value.c_str(), 1);
    ZBuffer_6_0 buffer;
    data.be_write_obfuscated(buffer);
    ZSCFData_6_0 other;
    other.be_read_obfuscated(buffer);
    EXPECT_EQ((Strings{"x", value}), values(other, "a", "k"));
}

TEST(ZPropertiesImplWrites, KeyThatIsObfuscatedAgainKeepsItsPosition)
{
    ZSCFData_6_0 data;
    data.setObfuscated("a", "k", "1");
    data.setObfuscated("b", "k", "2");
    data.setObfuscated("a", "k", "3");
    ZBuffer_6_0 buffer;
    data.be_write_obfuscated(buffer);
    EXPECT_EQ("a\0k\0003\0\0b\0k\0002\0"s, decompressed(buffer));
    data.set("a", "k", "4");
    data.setObfuscated("a", "k", "5");
    data.be_write_obfuscated(buffer);
    EXPECT_EQ("b\0k\0002\0\0a\0k\0005\0"s, decompressed(buffer));
}

TEST(ZPropertiesImplWrites, BadCompanionsAreRefused)
{
    auto const data = parsed("[a]\nk = v\n");
    data->setCompanionFile("/x/test.obf");
    data->add("a", "s", "kept", 1);
    std::string const good = compressed("a\0k\0one\0\0b\0k\0two\0"s);
    struct Case {
        char const* name;
        std::string content;
    };
    Case const cases[] = {
        {"empty", ""},
        {"not a zlib stream", "just some text that was never compressed"},
        {"truncated", good.substr(0, good.size() - 5)},
        {"one byte", good.substr(0, 1)},
        {"changed", std::string(good).replace(good.size() / 2, 1, "\xAA")},
        {"no zero byte", compressed("abc")},
        {"a name alone", compressed("a\0"s)},
        {"two names", compressed("a\0k\0"s)},
        {"a second record without value", compressed("a\0k\0v\0\0b\0k\0"s)},
        {"no end of record", compressed("a\0k\0v\0b\0k\0w\0"s)},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        expectCompanionRefused(*data, c.content);
    }
    readCompanion(*data, good);
    EXPECT_EQ((Strings{"one"}), values(*data, "a", "k", ZPCache_6_0::obfuscatedValues));
}

TEST(ZPropertiesImplWrites, ChangedByteOfACompanionIsRefusedOrChangesNothing)
{
    // The stream has a checksum, so an accepted stream has the same contents as the original.
    std::string const good = compressed("a\0k\0one\0\0b\0k\0two\0\0c\0key\0a longer value\0"s);
    ZSCFData_6_0 whole;
    readCompanion(whole, good);
    std::string const expected = stateOf(whole);
    ASSERT_NE(std::string::npos, expected.find("<a longer value>"));
    int refused = 0;
    for (size_t at = 0; at < good.size(); ++at) {
        for (int const change : {1, 0x80, 0xFF}) {
            std::string bad = good;
            bad[at] = static_cast<char>(bad[at] ^ change);
            ZSCFData_6_0 data;
            try {
                readCompanion(data, bad);
                EXPECT_EQ(expected, stateOf(data)) << at;
            } catch (ZPropertiesInvalidDataException_6_0 const& e) {
                EXPECT_EQ(44u, e.messageNumber());
                EXPECT_EQ("companion \n", stateOf(data));
                ++refused;
            }
        }
    }
    EXPECT_LT(static_cast<int>(good.size()) * 2, refused);
}

TEST(ZPropertiesImplWrites, CompanionWithoutValuesIsEmpty)
{
    // A stream without contents is valid.
    std::vector<unsigned char> room(100);
    unsigned long length = room.size();
    ZSqueeze_6_0 squeeze;
    unsigned char nothing = 0;
    ASSERT_EQ(0, squeeze.compress(room.data(), &length, &nothing, 0));
    ZSCFData_6_0 data;
    readCompanion(data, std::string(reinterpret_cast<char*>(room.data()), length));
    EXPECT_EQ("companion \n", stateOf(data));
}
