#include <Z/ZPropertiesImpl.h>

#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZSqueeze.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <wchar.h>

#include <functional>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "EachAllocation.h"
#include "FailingAllocator.h"

namespace {

using Cache = ZPCategoryBasedCache_6_0;
using Strings = std::vector<std::string>;

constexpr size_t kMostOfLine = 8191;  // that a line is read into

Strings strings(ZArrayList_6_0 const& list)
{
    Strings texts;
    for (unsigned i = 0; i < list.size(); ++i)
        texts.emplace_back(static_cast<ZLCString_6_0 const*>(list.get(i))->getChars());
    return texts;
}

Strings values(Cache const& cache, char const* category, char const* key,
               ZPCache_6_0::get_type_e type = ZPCache_6_0::anyValues)
{
    Strings texts;
    Cache::Values values = cache.values(category, key, type);
    for (Cache::Text text; values.next(text);)
        texts.emplace_back(text.chars, text.length);
    return texts;
}

Strings names(ZPCache_6_0 const& cache)
{
    ZArrayList_6_0 list(1, 1);
    cache.getNames(list);
    return strings(list);
}

Strings names(ZPCache_6_0 const& cache, char const* category)
{
    std::unique_ptr<ZArrayList_6_0> const list(cache.getNames(category));
    return list == nullptr ? Strings{"(missing)"} : strings(*list);
}

std::string textOf(ZSCFData_6_0 const& data)
{
    ZBuffer_6_0 text;
    data.writeText(text);
    return {static_cast<char const*>(text.getBuffer()), text.getLength()};
}

// Everything that can be seen of a cache without changing it.
std::string stateOf(ZSCFData_6_0 const& data)
{
    std::string state = "companion " + std::string(data.companionFile().getChars()) + "\n";
    ZArrayList_6_0 lines(1, 1);
    data.getLines(lines);
    for (unsigned i = 0; i < lines.size(); ++i) {
        auto const* const line = static_cast<ZPropLine_6_0 const*>(lines.get(i));
        state += std::to_string(line->type()) + " " + line->text().getChars() + "\n";
    }
    for (std::string const& category : names(data)) {
        state += "[" + category + "]\n";
        for (std::string const& key : names(data, category.c_str())) {
            for (auto const type : {ZPCache_6_0::plainValues, ZPCache_6_0::obfuscatedValues}) {
                state += key + " " + std::to_string(type) + ":";
                for (std::string const& value : values(data, category.c_str(), key.c_str(), type))
                    state += " <" + value + ">";
                state += "\n";
            }
        }
    }
    ZArrayList_6_0 items(1, 1);
    data.getObfuscatedItems(items);
    for (unsigned i = 0; i < items.size(); ++i) {
        auto const* const item = static_cast<ZObfuscatedItem_6_0 const*>(items.get(i));
        state += "item " + std::string(item->category().getChars()) + "/" + item->key().getChars() +
                 "\n";
    }
    return state;
}

// A stream over `text`.
class Stream {
public:
    explicit Stream(std::string const& text) : text_(text), stream_(nullptr)
    {
        stream_ =
            text.empty() ? fopen("/dev/null", "r") : fmemopen(text_.data(), text_.size(), "r");
    }
    ~Stream() { fclose(stream_); }
    Stream(Stream const&) = delete;
    Stream& operator=(Stream const&) = delete;
    FILE* file() const { return stream_; }

private:
    std::string text_;
    FILE* stream_;
};

// Reads `text` with comments kept.
std::unique_ptr<ZSCFData_6_0> parsed(std::string const& text,
                                     unsigned long attributes = ZPCache_6_0::keepComments)
{
    auto data = std::make_unique<ZSCFData_6_0>();
    data->setAttributes(attributes, nullptr);
    Stream const stream(text);
    data->be_read("test.conf", stream.file());
    return data;
}

// What be_write writes.
std::string written(ZSCFData_6_0& data)
{
    char* chars = nullptr;
    size_t length = 0;
    FILE* const file = open_memstream(&chars, &length);
    data.be_write("test.conf", file);
    fclose(file);
    std::string const text(chars, length);
    free(chars);
    return text;
}

// The text after `change` was made to what `before` holds.
template <class Change>
std::string changed(std::string const& before, Change change)
{
    std::unique_ptr<ZSCFData_6_0> const data = parsed(before);
    change(*data);
    return textOf(*data);
}

struct Refusal {
    int line;
    std::string text;
};

// Reads `text` into `data`, which must refuse it.
Refusal refusal(ZSCFData_6_0& data, std::string const& text)
{
    Stream const stream(text);
    try {
        data.be_read("test.conf", stream.file());
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        EXPECT_EQ(44u, e.messageNumber());
        EXPECT_STREQ("test.conf", e.propFile().getChars());
        EXPECT_STREQ("src/Z/ZPropertiesImpl", e.who());
        EXPECT_EQ(72u, e.where());
        return {e.badline(), e.baddata().getChars()};
    }
    ADD_FAILURE() << "accepted";
    return {0, ""};
}

std::string packed(std::string records)
{
    ZSqueeze_6_0 squeeze;
    std::vector<unsigned char> room(records.size() * 2 + 100);
    squeeze.setSource(reinterpret_cast<unsigned char*>(records.data()), records.size());
    int const length = squeeze.squeeze(room.data(), room.size());
    EXPECT_GT(length, 0);
    return {reinterpret_cast<char const*>(room.data()), static_cast<size_t>(length)};
}

std::string unpacked(ZBuffer_6_0& buffer)
{
    ZSqueeze_6_0 squeeze;
    std::vector<unsigned char> room(1 << 20);
    squeeze.setSource(static_cast<unsigned char*>(buffer.getBuffer()), buffer.getLength());
    int const length = squeeze.unsqueeze(room.data(), room.size());
    EXPECT_GT(length, 0);
    return {reinterpret_cast<char const*>(room.data()), static_cast<size_t>(length)};
}

void readCompanion(ZSCFData_6_0& data, std::string content)
{
    ZBuffer_6_0 buffer(content.size(), content.data());
    data.be_read_obfuscated(buffer);
}

// `content` must be refused, and leave `data` as it was.
void expectCompanionRefused(ZSCFData_6_0& data, std::string const& content)
{
    std::string const before = stateOf(data);
    try {
        readCompanion(data, content);
        ADD_FAILURE() << "accepted";
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        EXPECT_EQ(44u, e.messageNumber());
        EXPECT_STREQ("/x/test.obf", e.propFile().getChars());
        EXPECT_EQ(0, e.badline());
        EXPECT_STREQ("src/Z/ZPropertiesImpl", e.who());
    }
    EXPECT_EQ(before, stateOf(data));
}

// The processor time of this thread.
double secondsOfWork()
{
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

#define BYTES(literal) std::string(literal, sizeof(literal) - 1)

// Set in a process that gets no random bytes; see getrandom().
constexpr char kNoRandom[] = "Z_TEST_NO_RANDOM";
int randomRefused = 0;

}  // namespace

// In place of the platform's, for the library, too.
extern "C" ssize_t getrandom(void* to, size_t length, unsigned flags)
{
    if (getenv(kNoRandom) == nullptr)
        return syscall(SYS_getrandom, to, length, flags);
    ++randomRefused;
    errno = EAGAIN;
    return -1;
}

// --- lines and items

TEST(ZPropertiesImpl, LinesAreEqualWhenTypeAndTextAre)
{
    ZPropLine_6_0 const line(ZPropLine_6_0::comment, "# text");
    EXPECT_EQ(1u, line.type());
    EXPECT_STREQ("# text", line.text().getChars());
    EXPECT_TRUE(line.equals(ZPropLine_6_0(1, "# text")));
    EXPECT_FALSE(line.equals(ZPropLine_6_0(8, "# text")));
    EXPECT_FALSE(line.equals(ZPropLine_6_0(1, "# Text")));
    EXPECT_LT(line.compare(ZPropLine_6_0(2, "")), 0);
    EXPECT_GT(ZPropLine_6_0(2, "").compare(line), 0);
    EXPECT_LT(ZPropLine_6_0(8, "a").compare(ZPropLine_6_0(8, "b")), 0);
    EXPECT_NE(0, line.compare(ZObfuscatedItem_6_0("a", "b")));
    EXPECT_STREQ("", ZPropLine_6_0(2, nullptr).text().getChars());
}

TEST(ZPropertiesImpl, LineTypesAreThoseOfTheFile)
{
    EXPECT_EQ(1u, ZPropLine_6_0::comment);
    EXPECT_EQ(2u, ZPropLine_6_0::blank);
    EXPECT_EQ(4u, ZPropLine_6_0::stanzaHead);
    EXPECT_EQ(8u, ZPropLine_6_0::keyLine);
}

TEST(ZPropertiesImpl, LinesAreCopied)
{
    ZPropLine_6_0 const line(4, "stanza");
    std::unique_ptr<ZObject_6_0> const clone(line.clone());
    EXPECT_TRUE(line.equals(*clone));
    ZPropLine_6_0 other(8, "key");
    other = line;
    EXPECT_TRUE(other.equals(line));
    EXPECT_TRUE(ZPropLine_6_0(line).equals(line));
}

TEST(ZPropertiesImpl, ItemsAreEqualWhenBothNamesAre)
{
    ZObfuscatedItem_6_0 const item("stanza", "key");
    EXPECT_STREQ("stanza", item.category().getChars());
    EXPECT_STREQ("key", item.key().getChars());
    EXPECT_TRUE(item.equals(ZObfuscatedItem_6_0("stanza", "key")));
    EXPECT_FALSE(item.equals(ZObfuscatedItem_6_0("stanza", "other")));
    EXPECT_FALSE(item.equals(ZObfuscatedItem_6_0("other", "key")));
    EXPECT_LT(item.compare(ZObfuscatedItem_6_0("stanza", "key2")), 0);
    EXPECT_GT(item.compare(ZObfuscatedItem_6_0("a", "z")), 0);
    EXPECT_NE(0, item.compare(ZPropLine_6_0(1, "")));
    std::unique_ptr<ZObject_6_0> const clone(item.clone());
    EXPECT_TRUE(item.equals(*clone));
    ZObfuscatedItem_6_0 other("", nullptr);
    other = item;
    EXPECT_TRUE(other.equals(item));
}

TEST(ZPropertiesImpl, ItemsStayAsTheyWereWhenAssigningFails)
{
    std::string const name(500, 'n');
    ZObfuscatedItem_6_0 item("stanza", "key");
    ZObfuscatedItem_6_0 const other(name.c_str(), name.c_str());
    // Room that a string has won it keeps: blocks are not counted here.
    for (unsigned long n = 1;; ++n) {
        FailingAllocator::failAt(n);
        try {
            item = other;
        } catch (ZOutOfMemoryException_6_0 const&) {
        }
        if (!FailingAllocator::stop())
            break;
        EXPECT_TRUE(item.equals(ZObfuscatedItem_6_0("stanza", "key")));
    }
    EXPECT_TRUE(item.equals(other));
}

// --- the list of a category's keys

TEST(ZPropertiesImpl, KeyListHoldsEntriesOfTwoOwningLists)
{
    std::unique_ptr<ZArrayList_6_0> const entry(ZPKVList_6_0::makeEntry());
    ASSERT_EQ(2u, entry->size());
    EXPECT_EQ(2u, entry->capacity());
    EXPECT_NE(0, entry->ownsMembers());
    for (unsigned i = 0; i < 2; ++i) {
        auto const* const list = static_cast<ZArrayList_6_0 const*>(entry->get(i));
        EXPECT_EQ(0u, list->size());
        EXPECT_EQ(1u, list->capacity());
        EXPECT_NE(0, list->ownsMembers());
    }
    ZPKVList_6_0 keys;
    for (char const* name : {"one", "two", "three"}) {
        ZLCString_6_0 const key(name);
        keys.putEntry(&key, entry.get());
    }
    EXPECT_EQ(3u, keys.size());
    ZLCString_6_0 const two("two");
    EXPECT_EQ(2u, static_cast<ZArrayList_6_0*>(keys.getEntry(&two))->size());
    std::unique_ptr<ZPKVList_6_0> const clone(static_cast<ZPKVList_6_0*>(keys.clone()));
    keys.removeEntry(&two);
    EXPECT_EQ(nullptr, keys.getEntry(&two));
    EXPECT_NE(nullptr, clone->getEntry(&two));
    ZPKVList_6_0 const copy(keys);
    keys.removeAll();
    EXPECT_EQ(0u, keys.size());
    EXPECT_EQ(2u, copy.size());
    keys = *clone;
    EXPECT_EQ(3u, keys.size());
}

TEST(ZPropertiesImpl, KeyListGivesItsKeysInMapOrder)
{
    ZPKVList_6_0 keys;
    Cache cache;
    std::unique_ptr<ZArrayList_6_0> const entry(ZPKVList_6_0::makeEntry());
    for (int i = 0; i < 50; ++i) {
        ZLCString_6_0 const key(("key" + std::to_string(i)).c_str());
        keys.putEntry(&key, entry.get());
        cache.add("c", key.getChars(), 0);
    }
    std::unique_ptr<ZArrayList_6_0> const list(keys.getKeys());
    EXPECT_NE(0, list->ownsMembers());
    ZArrayList_6_0 listed(1, 1);
    keys.listKeys(listed);
    EXPECT_EQ(strings(*list), strings(listed));
    // The cache keeps no map, and gives the same order.
    EXPECT_EQ(strings(*list), names(cache, "c"));
}

TEST(ZPropertiesImpl, KeyListSurvivesEveryAllocationFailure)
{
    ZPKVList_6_0 keys;
    std::unique_ptr<ZArrayList_6_0> entry(ZPKVList_6_0::makeEntry());
    ZLCString_6_0 const key("key");
    failEachAllocation([&] { keys.putEntry(&key, entry.get()); },
                       [&] { EXPECT_EQ(0u, keys.size()); });
    failEachAllocation([&] { delete keys.getKeys(); }, [&] { EXPECT_EQ(1u, keys.size()); });
    failEachAllocation([&] { entry.reset(ZPKVList_6_0::makeEntry()); }, [] {});
}

// --- the cache that does nothing

namespace {

class Nothing : public ZPCache_6_0 {
public:
    ZPCache_6_0* clone() const override { return new Nothing(*this); }
};

}  // namespace

TEST(ZPropertiesImpl, PlainCacheHoldsNothing)
{
    Nothing cache;
    cache.add("c", "k", "v", 0);
    cache.add("c", "k", 0);
    cache.set("c", "k", "v");
    cache.set("c", "k");
    cache.setObfuscated("c", "k", "v");
    cache.setObfuscated("c", "k");
    cache.addLine("c", "k", "v", 0);
    cache.addLine("c", "k", 0);
    cache.addFileComment("#");
    cache.addLineComment("c", "#");
    cache.addLineComment("c", "k", "#");
    EXPECT_EQ(nullptr, cache.get("c", "k", ZPCache_6_0::anyValues));
    EXPECT_EQ(nullptr, cache.get("c", ZPCache_6_0::anyValues));
    EXPECT_EQ(0, cache.contains("c"));
    EXPECT_EQ(0, cache.contains("c", "k"));
    EXPECT_EQ(0, cache.isObfuscated("c"));
    EXPECT_EQ(0, cache.isObfuscated("c", "k"));
    EXPECT_EQ(0, cache.count());
    EXPECT_EQ(0, cache.keyCount("c"));
    EXPECT_EQ(0, cache.countValues("c"));
    EXPECT_EQ(0, cache.countValues("c", "k"));
    EXPECT_EQ(0, cache.obfuscatedItemCount());
    EXPECT_EQ(nullptr, cache.getNames("c"));
    EXPECT_EQ(Strings(), names(cache));
    ZArrayList_6_0 keys(1, 1);
    cache.getNames("c", keys);
    EXPECT_EQ(0u, keys.size());
    cache.remove("c", "k");
    cache.remove("c");
    cache.delLine("c", "k");
    cache.delLine("c");
    ZBuffer_6_0 buffer("left over");
    cache.be_read_obfuscated(buffer);
    cache.be_write_obfuscated(buffer);
    EXPECT_EQ(0u, buffer.getLength());
    cache.be_read("path", nullptr);
    cache.be_write("path", nullptr);
    cache.list(nullptr);
    Cache other;
    EXPECT_EQ(0, cache.swapContents(other));
    EXPECT_EQ(0, other.swapContents(cache));
    EXPECT_EQ(nullptr, cache.makeEmpty());
    EXPECT_EQ(nullptr, cache.direct());
}

TEST(ZPropertiesImpl, CategoryCacheReadsAndWritesNoText)
{
    Cache cache;
    cache.addLine("c", "k", "v", 1);
    cache.be_read("path", nullptr);
    cache.be_write("path", nullptr);
    ZBuffer_6_0 buffer("left over");
    cache.be_read_obfuscated(buffer);
    cache.be_write_obfuscated(buffer);
    EXPECT_EQ(0u, buffer.getLength());
    EXPECT_EQ((Strings{"v"}), values(cache, "c", "k"));
}

TEST(ZPropertiesImpl, CacheKeepsAttributesAndCompanionFile)
{
    Nothing cache;
    EXPECT_EQ(0u, cache.attributes());
    EXPECT_EQ(nullptr, cache.attributeArgument());
    EXPECT_STREQ("", cache.companionFile().getChars());
    cache.setAttributes(ZPCache_6_0::keepComments, &cache);
    EXPECT_EQ(1u, cache.attributes());
    EXPECT_EQ(&cache, cache.attributeArgument());
    cache.setCompanionFile("/x/y.obf");
    EXPECT_STREQ("/x/y.obf", cache.companionFile().getChars());
    std::unique_ptr<ZPCache_6_0> const clone(cache.clone());
    EXPECT_STREQ("/x/y.obf", clone->companionFile().getChars());
    EXPECT_EQ(1u, clone->attributes());
    cache.setCompanionFile(nullptr);
    EXPECT_STREQ("", cache.companionFile().getChars());
    cache.setCompanionFile("again");
    cache.clear();
    EXPECT_STREQ("", cache.companionFile().getChars());
    EXPECT_EQ(1u, cache.attributes());
    EXPECT_STREQ("", ZPCache_6_0::empty_);
}

TEST(ZPropertiesImpl, CombinedNamesAreUnambiguous)
{
    Nothing const cache;
    ZLCString_6_0 name("old");
    cache.makeKey(name, "stanza", "key");
    EXPECT_STREQ("[stanza]key", name.getChars());
    cache.makeKey(name, "", "");
    EXPECT_STREQ("[]", name.getChars());
    cache.makeKey(name, nullptr, nullptr);
    EXPECT_STREQ("[]", name.getChars());
}

namespace {

class OwnClass : public ZSCFData_6_0 {};

}  // namespace

TEST(ZPropertiesImpl, DirectLookUpsAreOfferedOnlyWithoutOverrides)
{
    Cache const cache;
    ZSCFData_6_0 const data;
    OwnClass const own;
    EXPECT_EQ(&cache, cache.direct());
    EXPECT_EQ(&data, data.direct());
    EXPECT_EQ(nullptr, own.direct());
}

// --- overrides of the value operations

namespace {

std::string textOrNull(char const* text)
{
    return text == nullptr ? "null" : text;
}

// Notes which value operations are called, and with what.
class NotingCache : public ZSCFData_6_0 {
public:
    using ZSCFData_6_0::add;
    using ZSCFData_6_0::contains;
    using ZSCFData_6_0::get;
    using ZSCFData_6_0::remove;
    using ZSCFData_6_0::set;
    using ZSCFData_6_0::setObfuscated;

    void add(char const* category, char const* key, char const* value, int obfuscated) override
    {
        note("add", {category, key, value, std::to_string(obfuscated).c_str()});
        if (textOrNull(value) == refused)
            ZInvalidParameterException_6_0().throwException("test", 1);
        ZSCFData_6_0::add(category, key, value, obfuscated);
    }
    void set(char const* category, char const* key, char const* value) override
    {
        note("set", {category, key, value});
        if (textOrNull(value) == refused)
            ZInvalidParameterException_6_0().throwException("test", 1);
        ZSCFData_6_0::set(category, key, value);
    }
    void setObfuscated(char const* category, char const* key, char const* value) override
    {
        note("setObfuscated", {category, key, value});
        ZSCFData_6_0::setObfuscated(category, key, value);
    }
    void remove(char const* category, char const* key) override
    {
        note("remove", {category, key});
        ZSCFData_6_0::remove(category, key);
    }
    void remove(char const* category) override
    {
        note("remove", {category});
        ZSCFData_6_0::remove(category);
    }
    int contains(char const* category) const override
    {
        note("contains", {category});
        return category == concealed ? 0 : ZSCFData_6_0::contains(category);
    }
    int contains(char const* category, char const* key) const override
    {
        note("contains", {category, key});
        return ZSCFData_6_0::contains(category, key);
    }
    ZArrayList_6_0* get(char const* category, char const* key, get_type_e type) override
    {
        note("get", {category, key, std::to_string(type).c_str()});
        return ZSCFData_6_0::get(category, key, type);
    }

    // What was noted since the last call.
    std::string taken() { return std::exchange(log_, std::string()); }

    std::string refused = "refused";
    std::string concealed = "concealed";

private:
    void note(char const* call, std::vector<char const*> const& arguments) const
    {
        log_ += call;
        for (char const* argument : arguments)
            log_ += " " + textOrNull(argument);
        log_ += "\n";
    }

    mutable std::string log_;
};

}  // namespace

TEST(ZPropertiesImpl, ReadingCallsTheOverridesOfADerivedClass)
{
    NotingCache data;
    std::string const text = "[a]\nk = 1\nk = 2\nempty =\n[b]\n";
    data.readText("test.conf", text.data(), text.size());
    EXPECT_EQ(
        "contains a\nset a null null\nadd a k 1 0\nadd a k 2 0\nadd a empty  0\n"
        "contains b\nset b null null\n",
        data.taken());
    readCompanion(data, packed(BYTES("a\0s\0one\0\0a\0s\0two\0\0c\0s\0three\0")));
    EXPECT_EQ("add a s one 1\nadd a s two 1\nadd c s three 1\n", data.taken());
    EXPECT_EQ((Strings{"one", "two"}), values(data, "a", "s"));
}

TEST(ZPropertiesImpl, WritingCallsTheOverridesOfADerivedClass)
{
    NotingCache data;
    std::string const text = "[a]\nk = 1\nempty =\n[b]\n[c]\nk = 2\n";
    data.readText("test.conf", text.data(), text.size());
    data.addLine("a", "s", "secret", 1);
    data.remove("a", "k");
    data.remove("c");
    data.taken();
    EXPECT_EQ("[a]\nempty =\n[b]\n", textOf(data));
    EXPECT_EQ(
        "contains a\ncontains a k\ncontains a empty\nget a empty 1\nget a empty 2\n"
        "contains a s\nget a s 1\nget a s 2\ncontains b\ncontains c\n",
        data.taken());
    ZBuffer_6_0 buffer;
    data.be_write_obfuscated(buffer);
    EXPECT_EQ(BYTES("a\0s\0secret\0"), unpacked(buffer));
    EXPECT_EQ("get a s 2\n", data.taken());
    FILE* const file = tmpfile();
    data.list(file);
    fclose(file);
    EXPECT_NE(std::string::npos, data.taken().find("get a empty 1\n"));
}

TEST(ZPropertiesImpl, ChangingLinesCallsTheOverridesOfADerivedClass)
{
    struct Case {
        char const* name;
        std::function<void(NotingCache&)> change;
        std::string calls;
        std::string text;
    };
    std::string const before = "[a]\nk = 1\n";
    Case const cases[] = {
        {"new stanza", [](auto& data) { data.addStanzaLine("b"); }, "contains b\nset b null null\n",
         before + "\n[b]\n"},
        {"known stanza", [](auto& data) { data.addLine("a", nullptr, 0); },
         "contains a\ncontains a\n", before},
        {"value", [](auto& data) { data.addLine("a", "k", "2", 0); },
         "contains a\ncontains a\nset a k 2\n", "[a]\nk = 2\n"},
        {"obfuscated value", [](auto& data) { data.addLine("a", "s", "2", 1); },
         "contains a\ncontains a\nsetObfuscated a s 2\n", before},
        {"everything new", [](auto& data) { data.addLine("b", "k", "2", 0); },
         "contains b\ncontains b\nset b null null\nset b k 2\n", before + "\n[b]\nk = 2\n"},
        {"key removed", [](auto& data) { data.delLine("a", "k"); }, "remove a k\n", "[a]\n"},
        {"stanza removed", [](auto& data) { data.delLine("a"); }, "remove a\n", ""},
        {"comment of a stanza", [](auto& data) { data.addLineComment("a", "#c"); }, "contains a\n",
         "\n#c\n" + before},
        {"comment of a key", [](auto& data) { data.addLineComment("a", "k", "#c"); },
         "contains a\ncontains a k\n", "[a]\n\n#c\nk = 1\n"},
        {"comment of a new key", [](auto& data) { data.addLineComment("a", "n", "#c"); },
         "contains a\ncontains a n\ncontains a\nadd a n null 0\n", before + "\n#c\nn =\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        NotingCache data;
        data.setAttributes(ZPCache_6_0::keepComments, nullptr);
        data.readText("test.conf", before.data(), before.size());
        data.taken();
        c.change(data);
        EXPECT_EQ(c.calls, data.taken());
        EXPECT_EQ(c.text, textOf(data));
    }
}

TEST(ZPropertiesImpl, OverrideThatThrowsLeavesValuesAndLinesAsTheyWere)
{
    NotingCache data;
    data.setAttributes(ZPCache_6_0::keepComments, nullptr);
    std::string const text = "# c\n\n[a]\nk = 1\n# n = 5\n\n[b]\nk = 2\n";
    data.readText("test.conf", text.data(), text.size());
    std::string const state = stateOf(data);
    data.refused = "no";
    for (std::string const bad : {"[c]\nx = 1\n\n# c\ny = no\n", "[c]\nx = 1\n[c]\n",
                                  "[c]\nx = 1\nbroken\n", "[c]\n[b]\nx = no\n"}) {
        SCOPED_TRACE(bad);
        EXPECT_THROW(data.readText("test.conf", bad.data(), bad.size()), ZException_6_0);
        EXPECT_EQ(state, stateOf(data));
    }
    EXPECT_THROW(readCompanion(data, packed(BYTES("a\0s\0one\0\0a\0s\0no\0"))),
                 ZInvalidParameterException_6_0);
    for (char const* category : {"a", "b", "new"})
        for (char const* key : {"k", "n", "new"})
            EXPECT_THROW(data.addLine(category, key, "no", 0), ZInvalidParameterException_6_0);
    data.refused = "null";
    EXPECT_THROW(data.addLine("new", "k", "1", 0), ZInvalidParameterException_6_0);
    EXPECT_THROW(data.addLineComment("a", "new", "# c"), ZInvalidParameterException_6_0);
    EXPECT_EQ(state, stateOf(data));
    EXPECT_EQ(text, textOf(data));
}

TEST(ZPropertiesImpl, ChangeIsUndoneThoughEveryLaterOverrideThrows)
{
    // Lets a number of calls through, then throws from each one.
    class Failing final : public ZSCFData_6_0 {
    public:
        using ZSCFData_6_0::add;
        using ZSCFData_6_0::contains;
        using ZSCFData_6_0::remove;
        using ZSCFData_6_0::set;
        using ZSCFData_6_0::setObfuscated;
        ~Failing() noexcept override {}
        void add(char const* category, char const* key, int kind) override
        {
            tick();
            ZSCFData_6_0::add(category, key, kind);
        }
        void set(char const* category, char const* key, char const* value) override
        {
            tick();
            ZSCFData_6_0::set(category, key, value);
        }
        void setObfuscated(char const* category, char const* key, char const* value) override
        {
            tick();
            ZSCFData_6_0::setObfuscated(category, key, value);
        }
        void remove(char const* category, char const* key) override
        {
            tick();
            ZSCFData_6_0::remove(category, key);
        }
        void remove(char const* category) override
        {
            tick();
            ZSCFData_6_0::remove(category);
        }
        int contains(char const* category) const override
        {
            tick();
            return ZSCFData_6_0::contains(category);
        }

        mutable int allowed = INT_MAX;

    private:
        void tick() const
        {
            if (allowed == 0)
                throw std::runtime_error("refused");
            --allowed;
        }
    };
    struct Case {
        char const* name;
        std::function<void(Failing&)> change;
    };
    Case const cases[] = {
        {"stanza", [](Failing& data) { data.addStanzaLine("new"); }},
        {"value", [](Failing& data) { data.addLine("new", "k", "v", 0); }},
        {"obfuscated value", [](Failing& data) { data.addLine("new", "k", "v", 1); }},
        {"comment", [](Failing& data) { data.addLineComment("new", "k", "# c"); }},
    };
    std::string const text = "# top\n\n[s]\n# k = 1\n\nk = v\n\n[t]\nm = 1\n";
    for (Case const& c : cases) {
        bool isRefused = true;
        for (int allowed = 0; isRefused; ++allowed) {
            SCOPED_TRACE(std::string(c.name) + " " + std::to_string(allowed));
            Failing data;
            data.setAttributes(ZPCache_6_0::keepComments, nullptr);
            data.readText("test.conf", text.data(), text.size());
            std::string const before = stateOf(data);
            data.allowed = allowed;
            try {
                c.change(data);
                isRefused = false;
            } catch (std::runtime_error const&) {
                data.allowed = INT_MAX;
                EXPECT_EQ(before, stateOf(data));
                EXPECT_EQ(text, textOf(data));
            }
        }
    }
}

TEST(ZPropertiesImpl, OverrideMayKeepValuesElsewhere)
{
    // Nothing of it is in the cache but the lines.
    class Elsewhere final : public ZSCFData_6_0 {
    public:
        using ZSCFData_6_0::add;
        using ZSCFData_6_0::get;
        using ZSCFData_6_0::set;
        ~Elsewhere() noexcept override {}
        void add(char const* category, char const* key, char const* value, int) override
        {
            held_[category][key].push_back(value);
        }
        void set(char const* category, char const* key, char const* value) override
        {
            auto& keys = held_[category];
            if (key != nullptr)
                keys[key] = {value};
        }
        void remove(char const* category, char const* key) override { held_[category].erase(key); }
        void remove(char const* category) override { held_.erase(category); }
        int contains(char const* category) const override { return held_.count(category) != 0; }
        int contains(char const* category, char const* key) const override
        {
            auto const found = held_.find(category);
            return found != held_.end() && found->second.count(key) != 0;
        }
        ZArrayList_6_0* get(char const* category, char const* key, get_type_e type) override
        {
            list_.removeAll();
            if (type != obfuscatedValues)
                for (std::string const& value : held_[category][key])
                    list_.add(std::make_unique<ZLCString_6_0>(value.c_str()).get());
            return &list_;
        }

    private:
        std::map<std::string, std::map<std::string, Strings>> held_;
        ZArrayList_6_0 list_{4, 1};
    };
    Elsewhere data;
    data.setAttributes(ZPCache_6_0::keepComments, nullptr);
    std::string const text = "# c\n\n[a]\nk = 1\nk = 2\n# n = 5\n\nz = 1\n[b]\n";
    data.readText("test.conf", text.data(), text.size());
    EXPECT_EQ(0, data.count());
    EXPECT_EQ(text, textOf(data));
    data.addLine("a", "n", "3", 0);
    data.addLine("a", "k", "4", 0);
    data.addLine("c", "k", "5", 0);
    data.delLine("a", "z");
    data.addLineComment("b", "# of b");
    EXPECT_EQ("# c\n\n[a]\nk = 4\n# n = 5\nn = 3\n\n# of b\n[b]\n\n[c]\nk = 5\n", textOf(data));
    data.delLine("a");
    data.addLine("a", "again", "6", 0);
    EXPECT_EQ("# c\n\n[b]\n\n[c]\nk = 5\n\n[a]\nagain = 6\n", textOf(data));
    data.clear();
    EXPECT_EQ("", textOf(data));
}

TEST(ZPropertiesImpl, ConcealedStanzaIsReadIntoTheOneThatExists)
{
    NotingCache data;
    data.setAttributes(ZPCache_6_0::keepComments, nullptr);
    data.concealed = "a";
    std::string const text = "[a]\nk = 1\n[b]\nk = 1\n[a]\n# c\nx = 2\n";
    data.readText("test.conf", text.data(), text.size());
    data.concealed.clear();
    EXPECT_EQ("[a]\nk = 1\nx = 2\n[b]\nk = 1\n# c\n", textOf(data));
}

TEST(ZPropertiesImpl, DerivedClassSurvivesEveryAllocationFailure)
{
    std::string const torn =
        "[a]\n" + std::string(9000, 'x') + " = 1\nk = " + std::string(9000, 'y') + "=\n# c\n\n";
    for (int step = 0; step < 6; ++step) {
        SCOPED_TRACE(step);
        std::unique_ptr<NotingCache> data;
        std::string before;
        auto const prepare = [&] {
            data = std::make_unique<NotingCache>();
            data->setAttributes(ZPCache_6_0::keepComments, nullptr);
            std::string const text = "[s]\nk = 1\n# n = 5\n\n[t]\n";
            data->readText("test.conf", text.data(), text.size());
            before = stateOf(*data);
        };
        prepare();
        failEachAllocationOfSome(
            [&] {
                try {
                    if (step == 0)
                        data->addLine("new", "k", "v", 0);
                    else if (step == 1)
                        data->addLine("s", "n", "v", 0);
                    else if (step == 2)
                        data->addLineComment("s", "new", "# one\n# two");
                    else if (step == 3)
                        data->addLineComment("t", "# one\n# two");
                    else if (step == 4)
                        data->readText("test.conf", "[a]\nk = 1\n# c\n\n", 16);
                    else
                        data->addStanzaLine("new");
                } catch (std::bad_alloc const&) {  // of the notes
                    ZOutOfMemoryException_6_0().throwException("test", 1);
                }
            },
            prepare, [&] { EXPECT_EQ(before, stateOf(*data)); }, false);
    }
}

// --- values

TEST(ZPropertiesImpl, GetSelectsTheListByType)
{
    struct Case {
        char const* name;
        bool isPlain;
        bool isObfuscated;
        Strings any;
        Strings plain;
        Strings obfuscated;
    };
    Case const cases[] = {
        {"no value", false, false, {}, {}, {}},
        {"plain", true, false, {"p"}, {"p"}, {}},
        {"obfuscated", false, true, {"o"}, {}, {"o"}},
        {"both", true, true, {"p"}, {"p"}, {"o"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Cache cache;
        cache.add("c", "k", 0);
        if (c.isPlain)
            cache.add("c", "k", "p", 0);
        if (c.isObfuscated)
            cache.add("c", "k", "o", 1);
        EXPECT_EQ(c.any, values(cache, "c", "k", ZPCache_6_0::anyValues));
        EXPECT_EQ(c.plain, values(cache, "c", "k", ZPCache_6_0::plainValues));
        EXPECT_EQ(c.obfuscated, values(cache, "c", "k", ZPCache_6_0::obfuscatedValues));
        EXPECT_EQ(c.any, strings(*cache.get("c", "k", ZPCache_6_0::anyValues)));
        EXPECT_EQ(c.plain, strings(*cache.get("c", "k", ZPCache_6_0::plainValues)));
        EXPECT_EQ(c.obfuscated, strings(*cache.get("c", "k", ZPCache_6_0::obfuscatedValues)));
        // With the lists made, the answers are the same.
        EXPECT_EQ(c.any, values(cache, "c", "k", ZPCache_6_0::anyValues));
        EXPECT_EQ(c.any, strings(*cache.get("c", "k", ZPCache_6_0::anyValues)));
        EXPECT_EQ(c.isObfuscated, cache.isObfuscated("c", "k"));
        EXPECT_EQ(c.isObfuscated, cache.isObfuscated("c"));
        EXPECT_EQ(static_cast<int>(c.any.size()), cache.countValues("c", "k"));
    }
}

TEST(ZPropertiesImpl, WithoutValuesEitherTypeGivesThePlainList)
{
    Cache cache;
    cache.add("c", "k", 0);
    EXPECT_EQ(cache.get("c", "k", ZPCache_6_0::plainValues),
              cache.get("c", "k", ZPCache_6_0::anyValues));
}

TEST(ZPropertiesImpl, MissingNamesGiveNothing)
{
    Cache cache;
    cache.add("c", "k", "v", 0);
    struct Case {
        char const* category;
        char const* key;
    };
    Case const cases[] = {{"c", "other"},     {"other", "k"}, {nullptr, "k"}, {"c", nullptr},
                          {nullptr, nullptr}, {"c", ""},      {"", "k"}};
    for (Case const& c : cases) {
        EXPECT_EQ(nullptr, cache.get(c.category, c.key, ZPCache_6_0::anyValues));
        EXPECT_EQ(0, cache.contains(c.category, c.key));
        EXPECT_EQ(0, cache.isObfuscated(c.category, c.key));
        EXPECT_EQ(0, cache.countValues(c.category, c.key));
        EXPECT_EQ(-1, cache.values(c.category, c.key, ZPCache_6_0::anyValues).count());
        Cache::Text text = {"untouched", 9};
        EXPECT_FALSE(cache.lastValue(c.category, c.key, ZPCache_6_0::anyValues, text));
        EXPECT_STREQ("untouched", text.chars);
        cache.remove(c.category, c.key);
        cache.delLine(c.category, c.key);
    }
    for (char const* category : {"other", "", static_cast<char const*>(nullptr)}) {
        EXPECT_EQ(nullptr, cache.get(category, ZPCache_6_0::anyValues));
        EXPECT_EQ(nullptr, cache.getNames(category));
        EXPECT_EQ(0, cache.contains(category));
        EXPECT_EQ(0, cache.isObfuscated(category));
        EXPECT_EQ(0, cache.keyCount(category));
        EXPECT_EQ(0, cache.countValues(category));
        cache.remove(category);
        cache.delLine(category);
        cache.addLineComment(category, "# comment");
    }
    cache.addLineComment("c", static_cast<char const*>(nullptr));
    cache.addLineComment("c", "k", nullptr);
    cache.addLineComment("c", nullptr, "# comment");
    cache.addLineComment(nullptr, "k", "# comment");
    cache.addFileComment(nullptr);
    cache.add(nullptr, "k", "v", 0);
    cache.set(nullptr, "k", "v");
    cache.setObfuscated(nullptr, "k", "v");
    cache.addLine(nullptr, "k", "v", 0);
    cache.addStanzaLine(nullptr);
    cache.delStanzaLine(nullptr);
    EXPECT_EQ(1, cache.count());
    EXPECT_EQ((Strings{"v"}), values(cache, "c", "k"));
    ZArrayList_6_0 lines(1, 1);
    cache.getLines(lines);
    EXPECT_EQ(0u, lines.size());
}

TEST(ZPropertiesImpl, AddKeepsTheValuesInOrder)
{
    Cache cache;
    for (char const* value : {"a", "b", "a", "c"})
        cache.add("c", "k", value, 0);
    cache.add("c", "k", "", 0);
    cache.add("c", "k", nullptr, 0);
    cache.add("c", "k", 0);
    EXPECT_EQ((Strings{"a", "b", "a", "c"}), values(cache, "c", "k"));
    Cache::Text last;
    ASSERT_TRUE(cache.lastValue("c", "k", ZPCache_6_0::anyValues, last));
    EXPECT_STREQ("c", last.chars);
    EXPECT_EQ(1u, last.length);
}

TEST(ZPropertiesImpl, AddWithoutValueMakesCategoryAndKey)
{
    Cache cache;
    cache.add("c", nullptr, 0);
    EXPECT_EQ(1, cache.contains("c"));
    EXPECT_EQ(0, cache.keyCount("c"));
    cache.add("c", "", "lost", 0);
    EXPECT_EQ(0, cache.keyCount("c"));
    cache.add("c", "k", 1);
    EXPECT_EQ(1, cache.contains("c", "k"));
    EXPECT_EQ(0, cache.isObfuscated("c", "k"));
    EXPECT_EQ(0, cache.obfuscatedItemCount());
    EXPECT_EQ(0, cache.values("c", "k", ZPCache_6_0::anyValues).count());
}

TEST(ZPropertiesImpl, SetLeavesOneValueOfOneKind)
{
    Cache cache;
    cache.add("c", "k", "a", 0);
    cache.add("c", "k", "b", 0);
    cache.add("c", "k", "secret", 1);
    EXPECT_EQ(1, cache.obfuscatedItemCount());
    cache.set("c", "k", "new");
    EXPECT_EQ((Strings{"new"}), values(cache, "c", "k", ZPCache_6_0::plainValues));
    EXPECT_EQ(Strings(), values(cache, "c", "k", ZPCache_6_0::obfuscatedValues));
    EXPECT_EQ(0, cache.obfuscatedItemCount());
    cache.setObfuscated("c", "k", "hidden");
    EXPECT_EQ(Strings(), values(cache, "c", "k", ZPCache_6_0::plainValues));
    EXPECT_EQ((Strings{"hidden"}), values(cache, "c", "k", ZPCache_6_0::obfuscatedValues));
    EXPECT_EQ(1, cache.obfuscatedItemCount());
    cache.setObfuscated("c", "k", "hidden too");
    EXPECT_EQ(1, cache.obfuscatedItemCount());
    cache.setObfuscated("c", "k");
    EXPECT_EQ(0, cache.values("c", "k", ZPCache_6_0::anyValues).count());
    EXPECT_EQ(0, cache.obfuscatedItemCount());
    cache.set("c", "k", "x");
    cache.set("c", "k", "");
    EXPECT_EQ(1, cache.contains("c", "k"));
    EXPECT_EQ(0, cache.countValues("c", "k"));
    cache.set("c", "k", "x");
    cache.set("c", "k");
    EXPECT_EQ(0, cache.countValues("c", "k"));
}

TEST(ZPropertiesImpl, SetWithoutAKeyMakesTheCategory)
{
    Cache cache;
    cache.set("a", nullptr);
    cache.set("b", "", "value");
    cache.setObfuscated("c", nullptr, "value");
    for (char const* category : {"a", "b", "c"}) {
        EXPECT_EQ(1, cache.contains(category));
        EXPECT_EQ(0, cache.keyCount(category));
    }
    EXPECT_EQ(0, cache.obfuscatedItemCount());
}

TEST(ZPropertiesImpl, ListsThatWereHandedOutHoldTheValues)
{
    Cache cache;
    cache.add("c", "k", "a", 0);
    cache.add("c", "k", "b", 0);
    ZArrayList_6_0* const list = cache.get("c", "k", ZPCache_6_0::anyValues);
    EXPECT_NE(0, list->ownsMembers());
    EXPECT_EQ((Strings{"a", "b"}), strings(*list));

    ZLCString_6_0 const other("other");
    list->set(0, &other);
    EXPECT_EQ((Strings{"other", "b"}), values(cache, "c", "k"));
    list->add(&other);
    EXPECT_EQ(3, cache.countValues("c", "k"));
    Cache::Text last;
    ASSERT_TRUE(cache.lastValue("c", "k", ZPCache_6_0::anyValues, last));
    EXPECT_STREQ("other", last.chars);
    list->remove(1u);
    EXPECT_EQ((Strings{"other", "other"}), values(cache, "c", "k"));
    cache.add("c", "k", "c", 0);
    EXPECT_EQ((Strings{"other", "other", "c"}), strings(*list));
    cache.set("c", "k", "d");
    EXPECT_EQ((Strings{"d"}), strings(*list));
    cache.setObfuscated("c", "k", "e");
    EXPECT_EQ(Strings(), strings(*list));
    EXPECT_EQ(list, cache.get("c", "k", ZPCache_6_0::plainValues));
    EXPECT_NE(list, cache.get("c", "k", ZPCache_6_0::anyValues));
}

TEST(ZPropertiesImpl, NullInAListThatWasHandedOutReadsAsNothing)
{
    ZSCFData_6_0 data;
    data.addLine("c", "k", "a", 0);
    ZArrayList_6_0* const list = data.get("c", "k", ZPCache_6_0::anyValues);
    list->addNoCopy(nullptr);
    EXPECT_EQ((Strings{"a", ""}), values(data, "c", "k"));
    Cache::Text last;
    ASSERT_TRUE(data.lastValue("c", "k", ZPCache_6_0::anyValues, last));
    EXPECT_STREQ("", last.chars);
    EXPECT_EQ("\n[c]\nk = a\n", textOf(data));
}

TEST(ZPropertiesImpl, ValuesThatWereTakenOutOfAListAreObfuscatedNoMore)
{
    Cache cache;
    cache.add("c", "k", "secret", 1);
    cache.add("c", "plain", "v", 0);
    EXPECT_EQ(1, cache.isObfuscated("c"));
    cache.get("c", "k", ZPCache_6_0::obfuscatedValues)->removeAll();
    EXPECT_EQ(0, cache.isObfuscated("c"));
    EXPECT_EQ(0, cache.isObfuscated("c", "k"));
    Cache::Text last;
    EXPECT_FALSE(cache.lastValue("c", "k", ZPCache_6_0::obfuscatedValues, last));
    EXPECT_FALSE(cache.lastValue("c", "plain", ZPCache_6_0::obfuscatedValues, last));
}

TEST(ZPropertiesImpl, ListOfOneValueHasRoomForOne)
{
    Cache cache;
    cache.add("c", "k", "a", 0);
    EXPECT_EQ(1u, cache.get("c", "k", ZPCache_6_0::plainValues)->capacity());
    EXPECT_EQ(1u, cache.get("c", "k", ZPCache_6_0::obfuscatedValues)->capacity());
}

TEST(ZPropertiesImpl, ChangesTellThatAWalkIsNotValidAnyMore)
{
    Cache cache;
    cache.add("c", "k", "a", 0);
    cache.add("c", "k", "b", 0);
    unsigned long seen = cache.changes();
    auto const changed = [&] { return std::exchange(seen, cache.changes()) != seen; };
    Cache::Text text;
    cache.lastValue("c", "k", ZPCache_6_0::anyValues, text);
    cache.values("c", "k", ZPCache_6_0::anyValues).next(text);
    EXPECT_FALSE(changed());
    cache.add("c", "k", "c", 0);
    EXPECT_TRUE(changed());
    cache.get("c", "k", ZPCache_6_0::anyValues);  // the texts went into a list
    EXPECT_TRUE(changed());
    cache.get("c", "none", ZPCache_6_0::anyValues);
    EXPECT_FALSE(changed());
}

TEST(ZPropertiesImpl, WalkSkipsToAPlaceAndGoesOnFromIt)
{
    for (bool const isListed : {false, true}) {
        SCOPED_TRACE(isListed);
        Cache cache;
        for (char const* value : {"a", "b", "c", "d"})
            cache.add("c", "k", value, 0);
        if (isListed)
            cache.get("c", "k", ZPCache_6_0::plainValues);
        Cache::Text text;
        Cache::Values walk = cache.values("c", "k", ZPCache_6_0::plainValues);
        ASSERT_TRUE(walk.skipTo(0));
        ASSERT_TRUE(walk.skipTo(1));
        Cache::Values::Place const place = walk.place();
        ASSERT_TRUE(walk.next(text));
        EXPECT_STREQ("b", text.chars);
        EXPECT_FALSE(walk.skipTo(1));
        ASSERT_TRUE(walk.skipTo(3));
        ASSERT_TRUE(walk.next(text));
        EXPECT_STREQ("d", text.chars);
        EXPECT_FALSE(walk.next(text));
        EXPECT_FALSE(walk.skipTo(5));
        EXPECT_FALSE(walk.skipTo(-1));
        Cache::Values second = cache.values("c", "k", ZPCache_6_0::plainValues);
        second.resume(place);
        ASSERT_TRUE(second.next(text));
        EXPECT_STREQ("b", text.chars);
        ASSERT_TRUE(second.next(text));
        EXPECT_STREQ("c", text.chars);
    }
}

TEST(ZPropertiesImpl, GenerationTellsThatListsWentAway)
{
    Cache cache;
    cache.addLine("c", "k", "a", 0);
    cache.addLine("c", "other", "a", 0);
    unsigned long seen = cache.generation();
    auto const changed = [&] { return std::exchange(seen, cache.generation()) != seen; };

    cache.delLine("c", "other");
    EXPECT_FALSE(changed()) << "no list was handed out";
    ZArrayList_6_0* const list = cache.get("c", "k", ZPCache_6_0::anyValues);
    cache.set("c", "k", "b");
    cache.add("c", "k", "c", 0);
    cache.addLine("c", "more", "a", 0);
    EXPECT_FALSE(changed());
    EXPECT_EQ(list, cache.get("c", "k", ZPCache_6_0::anyValues));
    cache.remove("c", "k");
    EXPECT_TRUE(changed());
    cache.addLine("c", "k", "a", 0);
    cache.get("c", "k", ZPCache_6_0::anyValues);
    cache.delLine("c");
    EXPECT_TRUE(changed());
    cache.addLine("c", "k", "a", 0);
    cache.get("c", ZPCache_6_0::anyValues);
    cache.remove("c");
    EXPECT_TRUE(changed());
    cache.clear();
    EXPECT_TRUE(changed());
    Cache other;
    cache.swapContents(other);
    EXPECT_TRUE(changed());
}

TEST(ZPropertiesImpl, CategoryListsItsValuesInMapOrder)
{
    Cache cache;
    EXPECT_EQ(nullptr, cache.get("c", ZPCache_6_0::anyValues));
    cache.add("c", nullptr, 0);
    EXPECT_EQ(0u, cache.get("c", ZPCache_6_0::anyValues)->size());
    Strings plain;
    for (int i = 0; i < 20; ++i)
        cache.add("c", std::to_string(i).c_str(), ("value " + std::to_string(i)).c_str(), 0);
    for (std::string const& key : names(cache, "c"))
        plain.push_back("value " + key);
    cache.add("c", "0", "hidden", 1);
    cache.add("c", "secret", "s1", 1);
    cache.add("c", "secret", "s2", 1);
    EXPECT_EQ(plain, strings(*cache.get("c", ZPCache_6_0::plainValues)));
    EXPECT_EQ(3u, cache.get("c", ZPCache_6_0::obfuscatedValues)->size());
    ZArrayList_6_0* const any = cache.get("c", ZPCache_6_0::anyValues);
    EXPECT_EQ(22u, any->size());
    EXPECT_EQ(22, cache.countValues("c"));
    // Copies: changing the list changes nothing, and the next call fills it anew.
    any->removeAll();
    EXPECT_EQ(22, cache.countValues("c"));
    EXPECT_EQ(any, cache.get("c", ZPCache_6_0::anyValues));
    EXPECT_EQ(22u, any->size());
    cache.remove("c", "secret");
    cache.get("c", ZPCache_6_0::anyValues);
    EXPECT_EQ(plain, strings(*any));
}

TEST(ZPropertiesImpl, NamesComeInMapOrder)
{
    // Buckets of the hash that strings have, 15 of them; in a bucket as they came.
    Cache cache;
    char const* const kNames[] = {"alpha", "beta",    "gamma",   "delta", "epsilon", "zeta",
                                  "eta",   "theta",   "iota",    "kappa", "lambda",  "mu",
                                  "nu",    "xi",      "omikron", "pi",    "rho",     "sigma",
                                  "tau",   "ypsilon", "phi",     "chi",   "psi"};
    std::vector<Strings> buckets(15);
    for (char const* name : kNames) {
        cache.add(name, nullptr, 0);
        cache.add("keys", name, "v", 0);
        buckets[ZLCString_6_0(name).hash() % 15].push_back(name);
    }
    Strings expected;
    for (Strings const& bucket : buckets)
        expected.insert(expected.end(), bucket.begin(), bucket.end());
    EXPECT_EQ(expected, names(cache, "keys"));
    cache.remove("keys");
    EXPECT_EQ(expected, names(cache));
    EXPECT_EQ(23, cache.count());
}

TEST(ZPropertiesImpl, ManyNamesComeInMapOrderToo)
{
    for (int count : {128, 129, 1000}) {
        SCOPED_TRACE(count);
        Cache cache;
        std::vector<Strings> buckets(15);
        for (int i = 0; i < count; ++i) {
            std::string const name = "name" + std::to_string(i);
            cache.add(name.c_str(), nullptr, 0);
            cache.add("keys", name.c_str(), "v", 0);
            buckets[ZLCString_6_0(name.c_str()).hash() % 15].push_back(name);
        }
        Strings expected;
        for (Strings const& bucket : buckets)
            expected.insert(expected.end(), bucket.begin(), bucket.end());
        EXPECT_EQ(expected, names(cache, "keys"));
        int places = 0;
        ZPCachedKey_6_0* const keys = cache.listKeys("keys", places);
        ASSERT_EQ(count, places);
        EXPECT_EQ(expected[0], keys[0].name);
        EXPECT_EQ(expected.back(), keys[count - 1].name);
        free(keys);
        cache.remove("keys");
        EXPECT_EQ(expected, names(cache));
    }
}

TEST(ZPropertiesImpl, KeysThatComeBackGoToTheEndOfTheirBucket)
{
    // Two names of one bucket.
    std::string const one = "a0";
    std::string other;
    for (int i = 1; other.empty(); ++i) {
        std::string const name = "a" + std::to_string(i);
        if (ZLCString_6_0(name.c_str()).hash() % 15 == ZLCString_6_0(one.c_str()).hash() % 15)
            other = name;
    }
    Cache cache;
    cache.addLine("c", one.c_str(), "v", 0);
    cache.addLine("c", other.c_str(), "v", 0);
    cache.set("c", one.c_str(), "new");
    EXPECT_EQ((Strings{one, other}), names(cache, "c"));
    cache.remove("c", one.c_str());
    cache.add("c", one.c_str(), "v", 0);
    EXPECT_EQ((Strings{other, one}), names(cache, "c"));
    cache.delLine("c", other.c_str());
    cache.addLine("c", other.c_str(), "v", 0);
    EXPECT_EQ((Strings{one, other}), names(cache, "c"));
}

TEST(ZPropertiesImpl, NamesAreCopiedToAListThatOwnsAndLentToOneThatDoesNot)
{
    Cache cache;
    cache.add("c", "k", "v", 0);
    ZArrayList_6_0 lent(1, 0);
    cache.getNames(lent);
    cache.getNames("c", lent);
    EXPECT_EQ((Strings{"c", "k"}), strings(lent));
    ZArrayList_6_0 again(1, 0);
    cache.getNames(again);
    cache.getNames("c", again);
    EXPECT_EQ(lent.get(0), again.get(0));
    EXPECT_EQ(lent.get(1), again.get(1));

    ZArrayList_6_0 own(1, 1);
    ZLCString_6_0 const before("before");
    own.add(&before);
    cache.getNames(own);
    cache.getNames("c", own);
    cache.getNames("missing", own);
    cache.clear();
    EXPECT_EQ((Strings{"before", "c", "k"}), strings(own));
}

TEST(ZPropertiesImpl, ListOfNamesIsAsItWasWhenMemoryIsShort)
{
    Cache cache;
    for (int i = 0; i < 150; ++i) {
        cache.add(("category" + std::to_string(i)).c_str(), nullptr, 0);
        cache.add("c", ("key" + std::to_string(i)).c_str(), "v", 1);
    }
    ZLCString_6_0 const first("before");
    for (void (*part)(Cache const&, ZArrayList_6_0&) :
         {+[](Cache const&c, ZArrayList_6_0&list) { c.getNames(list); },
          +[](Cache const&c, ZArrayList_6_0&list) { c.getNames("c", list); },
          +[](Cache const&c, ZArrayList_6_0&list) { c.getObfuscatedItems(list); }}) {
        ZArrayList_6_0 list(1, 1);
        list.add(&first);
        EXPECT_LE(150u, failEachAllocation([&] { part(cache, list); },
                                           [&] { EXPECT_EQ(1u, list.size()); }));
        EXPECT_LT(150u, list.size());
    }
}

TEST(ZPropertiesImpl, NamesThatWereLentGoWithWhatTheyName)
{
    Cache cache;
    cache.add("c", "k", "v", 0);
    cache.add("c", "l", "v", 0);
    auto const lendAndRemove = [&cache] {
        cache.add("other", "k", "v", 0);
        {
            ZArrayList_6_0 lent(1, 0);
            cache.getNames(lent);
            cache.getNames("c", lent);
            cache.getNames("other", lent);
        }
        cache.remove("c", "k");
        cache.remove("other");
        cache.add("c", "k", "v", 0);
    };
    lendAndRemove();  // the room for that stays
    long const blocks = FailingAllocator::blocks();
    lendAndRemove();
    EXPECT_EQ(blocks, FailingAllocator::blocks());
    EXPECT_EQ(2, cache.keyCount("c"));
    EXPECT_EQ(1, cache.count());
}

TEST(ZPropertiesImpl, ArgumentsMayBeTextsOfTheCache)
{
    std::unique_ptr<ZSCFData_6_0> const data = parsed("[c]\nk = value\nl = other\n");
    Cache::Text text;
    ASSERT_TRUE(data->lastValue("c", "l", ZPCache_6_0::anyValues, text));
    data->set("c", "l", text.chars);
    EXPECT_EQ((Strings{"other"}), values(*data, "c", "l"));
    ASSERT_TRUE(data->lastValue("c", "l", ZPCache_6_0::anyValues, text));
    data->addLine("c", text.chars, text.chars, 0);
    EXPECT_EQ((Strings{"other"}), values(*data, "c", "other"));
    ZArrayList_6_0* const list = data->get("c", "k", ZPCache_6_0::anyValues);
    data->set("c", "k", static_cast<ZLCString_6_0*>(list->get(0))->getChars());
    EXPECT_EQ((Strings{"value"}), values(*data, "c", "k"));
}

TEST(ZPropertiesImpl, RoomOfReplacedValuesIsUsedAgain)
{
    std::unique_ptr<ZSCFData_6_0> const data =
        parsed("# comment\n[c]\nk = a\nk = b\nl = c\n# m = 1\n\n[d]\nk = x\n[e]\n# n = 1\n\n");
    data->addLine("c", "new", "v", 0);  // makes the section find its templates
    data->addLine("e", "new", "v", 0);
    data->delLine("e");  // with its templates
    data->add("d", "hidden", "secret", 1);
    data->remove("d");  // its lines stay
    std::string const value(100000, 'v');
    std::string const text = textOf(*data);
    for (int i = 0; i < 500; ++i) {
        data->set("c", "l", value.c_str());
        data->set("c", "l", "c");
    }
    EXPECT_EQ(text, textOf(*data));
    EXPECT_LT(data->memoryUsed(), 2000000u);
    // What the texts are in use for was not lost: the template is found, the stanza comes back.
    data->addLine("c", "m", "2", 0);
    data->set("d", "k", "y");
    EXPECT_EQ("# comment\n[c]\nk = a\nk = b\nl = c\nnew = v\n# m = 1\nm = 2\n\n[d]\nk = y\n",
              textOf(*data));
}

TEST(ZPropertiesImpl, RoomThatCannotBeUsedAgainIsNoFailure)
{
    Cache cache;
    cache.add("c", "k", "value", 0);
    std::string const value(100000, 'v');
    cache.set("c", "k", value.c_str());
    cache.set("c", "other", "takes a new block, with room for more");
    FailingAllocator::failAt(1, FailingAllocator::forEver);
    cache.set("c", "k", "");
    EXPECT_TRUE(FailingAllocator::stop());
    EXPECT_EQ(0, cache.countValues("c", "k"));
    cache.set("c", "k", "again");
    EXPECT_EQ((Strings{"again"}), values(cache, "c", "k"));
}

TEST(ZPropertiesImpl, RoomIsUsedAgainInTimeThatTheChangesPayFor)
{
    // Two million blank lines have no text, but to walk them takes time.
    auto const workFor = [](std::string const& before) {
        auto const data = parsed(before + "[c]\nk = a\n");
        std::string const value(100, 'v');
        double const start = secondsOfWork();
        for (int i = 0; i < 50000; ++i)
            data->set("c", "k", value.c_str());
        return secondsOfWork() - start;
    };
    EXPECT_GT(20 * (workFor("") + 0.005), workFor(std::string(2000000, '\n')));
}

TEST(ZPropertiesImpl, ManyKeysComeAndGo)
{
    Cache cache;
    std::mt19937 random(7);
    std::vector<int> there(3000, 0);
    for (int step = 0; step < 60000; ++step) {
        size_t const i = random() % there.size();
        std::string const key = "key" + std::to_string(i / 3);
        std::string const category = "category" + std::to_string(i % 3);
        if (there[i] != 0 && random() % 2 == 0) {
            cache.delLine(category.c_str(), key.c_str());
            there[i] = 0;
        } else {
            cache.addLine(category.c_str(), key.c_str(), std::to_string(step).c_str(), 0);
            there[i] = step + 1;
        }
    }
    int total = 0;
    for (size_t i = 0; i < there.size(); ++i) {
        std::string const key = "key" + std::to_string(i / 3);
        std::string const category = "category" + std::to_string(i % 3);
        Strings const expected = there[i] == 0 ? Strings() : Strings{std::to_string(there[i] - 1)};
        ASSERT_EQ(expected, values(cache, category.c_str(), key.c_str()));
        total += there[i] != 0;
    }
    EXPECT_EQ(total, cache.keyCount("category0") + cache.keyCount("category1") +
                         cache.keyCount("category2"));
}

TEST(ZPropertiesImpl, ListPrintsEveryCategoryInMapOrder)
{
    Cache cache;
    cache.add("b", "k", "one", 0);
    cache.add("b", "k", "two", 0);
    cache.add("a", "empty", 0);
    cache.add("a", "hidden", "secret", 1);
    cache.add("nothing", nullptr, 0);
    char* chars = nullptr;
    size_t length = 0;
    FILE* const file = open_memstream(&chars, &length);
    cache.list(file);
    fclose(file);
    std::string expected;
    for (std::string const& category : names(cache)) {
        expected += "\n[" + category + "]\n";
        if (category == "b")
            expected += "k = one\nk = two\n";
        if (category == "a")
            for (std::string const& key : names(cache, "a"))
                expected += key + " =\n";
    }
    EXPECT_EQ(expected, std::string(chars, length));
    free(chars);
}

TEST(ZPropertiesImpl, ListReachesAWideStream)
{
    Cache own;
    OwnClass derived;
    for (Cache* const cache : {&own, static_cast<Cache*>(&derived)}) {
        SCOPED_TRACE(cache == &own ? "the library's class" : "a caller's class");
        cache->add("c", "k", "value", 0);
        wchar_t* chars = nullptr;
        size_t length = 0;
        FILE* const file = open_wmemstream(&chars, &length);
        cache->list(file);
        fclose(file);
        EXPECT_EQ(L"\n[c]\nk = value\n", std::wstring(chars, length));
        free(chars);
    }
}

TEST(ZPropertiesImpl, ListOfAnEmptyCacheIsEmpty)
{
    char* chars = nullptr;
    size_t length = 0;
    FILE* const file = open_memstream(&chars, &length);
    Cache().list(file);
    fclose(file);
    EXPECT_STREQ("", chars);
    free(chars);
}

TEST(ZPropertiesImpl, ListTellsAFailureThroughTheStream)
{
    Cache cache;
    cache.add("c", "k", std::string(8000, 'v').c_str(), 0);
    cache.list(nullptr);
    FILE* const full = fopen("/dev/full", "w");
    ASSERT_NE(nullptr, full);
    setvbuf(full, nullptr, _IONBF, 0);
    cache.list(full);
    EXPECT_NE(0, ferror(full));
    fclose(full);
}

// --- lines

TEST(ZPropertiesImpl, NewStanzaGoesToTheEndBehindABlankLine)
{
    EXPECT_EQ("[a]\nk = 1\n\n[b]\n",
              changed("[a]\nk=1\n", [](Cache& cache) { cache.addStanzaLine("b"); }));
    EXPECT_EQ("[a]\nk = 1\n\n[b]\nl = 2\n",
              changed("[a]\nk=1\n", [](Cache& cache) { cache.addLine("b", "l", "2", 0); }));
    EXPECT_EQ("[a]\nk = 1\n",
              changed("[a]\nk=1\n", [](Cache& cache) { cache.addStanzaLine("a"); }));
}

TEST(ZPropertiesImpl, KeepsABlankLineAtTheTopOfANewFile)
{
    EXPECT_EQ("\n[a]\n", changed("", [](Cache& cache) { cache.addLine("a", nullptr, 0); }));
}

TEST(ZPropertiesImpl, NewKeyGoesBehindTheLastKeyLine)
{
    auto const add = [](Cache& cache) { cache.addLine("a", "new", "1", 0); };
    EXPECT_EQ("[a]\nk = 1\nnew = 1\n# end\n\n[b]\n", changed("[a]\nk=1\n# end\n\n[b]\n", add));
    EXPECT_EQ("[a]\nnew = 1\n# end\n\n[b]\n", changed("[a]\n# end\n\n[b]\n", add));
    EXPECT_EQ("[a]\nnew = 1\n", changed("[a]\n", add));
    EXPECT_EQ("[a]\nk = 1\nk = 2\nnew = 1\n\n\n", changed("[a]\nk=1\nk=2\n\n\n", add));
    EXPECT_EQ("[a]\nnew = 1\nk = 2\n", changed("[a]\nnew=0\nk=2\n", add));
}

TEST(ZPropertiesImpl, NewKeyGoesToTheBlankLineBehindItsTemplate)
{
    auto const add = [](Cache& cache) { cache.addLine("a", "k", "1", 0); };
    struct Case {
        char const* name;
        char const* before;
        char const* after;
    };
    Case const cases[] = {
        {"at the blank line", "[a]\n# k = default\n\nz=1\n",
         "[a]\n# k = default\nk = 1\n\nz = 1\n"},
        {"further comments", "[a]\n#k=\n# about k\n\nz=1\n",
         "[a]\n#k=\n# about k\nk = 1\n\nz = 1\n"},
        {"key lines between", "[a]\n#k=\ny=1\n\nz=1\n", "[a]\n#k=\ny = 1\nk = 1\n\nz = 1\n"},
        {"first of two", "[a]\n#k=\n\n#k=\n\nz=1\n", "[a]\n#k=\nk = 1\n\n#k=\n\nz = 1\n"},
        {"no blank line behind it", "[a]\n\nz=1\n#k=\n", "[a]\n\nz = 1\nk = 1\n#k=\n"},
        {"not in another stanza", "[a]\nz=1\n\n[b]\n#k=\n\n", "[a]\nz = 1\nk = 1\n\n[b]\n#k=\n\n"},
        {"a longer key", "[a]\n#kk=\n\nz=1\n", "[a]\n#kk=\n\nz = 1\nk = 1\n"},
        {"a shorter key", "[a]\n#=\n\nz=1\n", "[a]\n#=\n\nz = 1\nk = 1\n"},
        {"blanks anywhere", "[a]\n#   k   =5\n\nz=1\n", "[a]\n#   k   =5\nk = 1\n\nz = 1\n"},
        {"a tab is no blank", "[a]\n#\tk=5\n\nz=1\n", "[a]\n#\tk=5\n\nz = 1\nk = 1\n"},
        {"without the sign", "[a]\n# k 5\n\nz=1\n", "[a]\n# k 5\n\nz = 1\nk = 1\n"},
        {"two marks", "[a]\n##k=\n\nz=1\n", "[a]\n##k=\n\nz = 1\nk = 1\n"},
        {"a comment behind the blank line", "[a]\n#k=\n\n# z\nz=1\n",
         "[a]\n#k=\nk = 1\n\n# z\nz = 1\n"},
        {"blank lines on both sides", "[a]\n\n#k=\n\n# z\nz=1\n",
         "[a]\n\n#k=\nk = 1\n\n# z\nz = 1\n"},
        {"a blank line before it alone", "[a]\n\n#k=\nz=1\n", "[a]\n\n#k=\nz = 1\nk = 1\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.after, changed(c.before, add));
    }
}

TEST(ZPropertiesImpl, TemplatesAreFoundWhateverTheKey)
{
    auto const add = [](char const* key) {
        return [key](Cache& cache) { cache.addLine("a", key, "1", 0); };
    };
    // A pattern never matches its own blanks; one with the sign in it may match.
    EXPECT_EQ("[a]\n# k y = 5\n\nz = 1\nk y = 1\n", changed("[a]\n# k y = 5\n\nz=1\n", add("k y")));
    EXPECT_EQ("[a]\n# k=y = 5\nk=y = 1\n\nz = 1\n", changed("[a]\n# k=y = 5\n\nz=1\n", add("k=y")));
    EXPECT_EQ("[a]\n# k=x = 5\n\nz = 1\nk=y = 1\n", changed("[a]\n# k=x = 5\n\nz=1\n", add("k=y")));
    EXPECT_EQ("[a]\n# k=y 5\n\nz = 1\nk=y = 1\n", changed("[a]\n# k=y 5\n\nz=1\n", add("k=y")));
    EXPECT_EQ("[a]\n#k=y=\nk=y = 1\n\n# z\nz = 1\n",
              changed("[a]\n#k=y=\n\n# z\nz=1\n", add("k=y")));
}

TEST(ZPropertiesImpl, CommentsWithoutASignAreNoTemplates)
{
    // A store puts the sign before a comment; the cache takes it as it comes.
    for (std::string const comment : {"", "   ", "xk = 5", "  xk = 5"}) {
        SCOPED_TRACE(comment);
        auto const data = parsed("[a]\n# z = 1\n\ny = 1\n\nw = 1\n");
        data->addLine("a", "x", "1", 0);  // makes the section find its templates
        data->addLineComment("a", "y", comment.c_str());
        data->addLine("a", "k", "1", 0);
        std::string const end = "\n" + comment + "\ny = 1\n\nw = 1\nx = 1\nk = 1\n";
        EXPECT_EQ("[a]\n# z = 1\n" + end, textOf(*data));
        data->addLine("a", "z", "1", 0);
        EXPECT_EQ("[a]\n# z = 1\nz = 1\n" + end, textOf(*data));
    }
}

TEST(ZPropertiesImpl, CommentsAreMatchedWithoutTheirBlanks)
{
    struct Case {
        char const* pattern;
        char const* text;
        bool matches;
    };
    Case const cases[] = {
        {"#key=", "# key = 5", true},
        {"#key=", "#key=", true},
        {"#key=", "  #  k e y  =", true},
        {"#key=", "#key", false},
        {"#key=", "#key =x", true},
        {"#key=", "#\tkey=", false},
        {"#key=", "#Key=", false},
        {"", "anything", true},
        {"", "", true},
        {"#", "", false},
        {"#k y=", "#k y=", false},
        {"#key=", "key=", false},
        {nullptr, "#", false},
        {"#", nullptr, false},
    };
    for (Case const& c : cases)
        EXPECT_EQ(c.matches, Cache::isCommentWeWant(c.pattern, c.text))
            << (c.pattern == nullptr ? "null" : c.pattern);
}

TEST(ZPropertiesImpl, SettingAKeyKeepsItsLine)
{
    EXPECT_EQ("[a]\nk = new\n# c\nz = 1\n", changed("[a]\nk=1\n# c\nz=1\n", [](Cache& cache) {
                  cache.addLine("a", "k", "new", 0);
              }));
    EXPECT_EQ("[a]\nk =\nz = 1\n",
              changed("[a]\nk=1\nz=1\n", [](Cache& cache) { cache.addLine("a", "k", 0); }));
    EXPECT_EQ("[a]\nz = 1\n", changed("[a]\nk=1\nz=1\n",
                                      [](Cache& cache) { cache.addLine("a", "k", "hidden", 1); }));
}

TEST(ZPropertiesImpl, DeletedKeyLosesItsLine)
{
    auto const data = parsed("[a]\nk=1\nk=2\nz=1\n\n[b]\nk=3\n");
    data->delLine("a", "k");
    EXPECT_EQ("[a]\nz = 1\n\n[b]\nk = 3\n", textOf(*data));
    data->addLine("a", "k", "4", 0);
    EXPECT_EQ("[a]\nz = 1\nk = 4\n\n[b]\nk = 3\n", textOf(*data));
}

TEST(ZPropertiesImpl, RemovedKeyKeepsItsPlaceForComingBack)
{
    auto const data = parsed("[a]\nk=1\nz=1\n");
    data->remove("a", "k");
    EXPECT_EQ("[a]\nz = 1\n", textOf(*data));
    data->addLine("a", "k", "2", 0);
    EXPECT_EQ("[a]\nk = 2\nz = 1\n", textOf(*data));
    data->remove("a", "k");
    data->delLine("a", "k");
    data->addLine("a", "k", "3", 0);
    EXPECT_EQ("[a]\nz = 1\nk = 3\n", textOf(*data));
}

TEST(ZPropertiesImpl, DeletedStanzaTakesItsLinesAlong)
{
    auto const data = parsed("# file\n\n[a]\nk=1\n# about\nl=1\n\n[b]\nk=2\n");
    data->delLine("a");
    EXPECT_EQ("# file\n\n[b]\nk = 2\n", textOf(*data));
    data->delLine("b");
    EXPECT_EQ("# file\n\n", textOf(*data));
    EXPECT_EQ(0, data->count());
    data->addLine("b", "k", "3", 0);
    EXPECT_EQ("# file\n\n\n[b]\nk = 3\n", textOf(*data));
}

TEST(ZPropertiesImpl, KeepsTakingTheCommentsAboveTheNextHeadAlong)
{
    EXPECT_EQ("# about a\n[b]\nk = 2\n", changed("# about a\n[a]\nk=1\n\n# about b\n[b]\nk=2\n",
                                                 [](Cache& cache) { cache.delLine("a"); }));
}

TEST(ZPropertiesImpl, RemovedStanzaIsNotWritten)
{
    auto const data = parsed("[a]\nk=1\n# about b\n\n[b]\nk=2\n");
    data->remove("a");
    EXPECT_EQ("[b]\nk = 2\n", textOf(*data));
    // Its values come back without a new head line: the old lines serve.
    data->set("a", "k", "3");
    EXPECT_EQ("[a]\nk = 3\n# about b\n\n[b]\nk = 2\n", textOf(*data));
    // A new head line takes the place of the old lines.
    data->remove("a");
    data->addLine("a", "k", "4", 0);
    EXPECT_EQ("[b]\nk = 2\n\n[a]\nk = 4\n", textOf(*data));
}

TEST(ZPropertiesImpl, StanzaWithoutAHeadGetsOneWithItsFirstKeyLine)
{
    auto const data = parsed("[a]\nk=1\n");
    data->add("b", "hidden", "secret", 1);
    EXPECT_EQ("[a]\nk = 1\n", textOf(*data));
    data->addStanzaLine("b");
    EXPECT_EQ("[a]\nk = 1\n", textOf(*data)) << "it exists";
    data->addLine("b", "k", "2", 0);
    EXPECT_EQ("[a]\nk = 1\n\n[b]\nk = 2\n", textOf(*data));
    data->add("c", "hidden", "secret", 1);
    data->addLineComment("c", "# about c");
    EXPECT_EQ("[a]\nk = 1\n\n[b]\nk = 2\n\n# about c\n[c]\n", textOf(*data));
}

TEST(ZPropertiesImpl, FileCommentsJoinTheBlockThatLeadsTheFile)
{
    auto const add = [](Cache& cache) { cache.addFileComment("# new"); };
    struct Case {
        char const* name;
        char const* before;
        char const* after;
    };
    Case const cases[] = {
        {"a block and a blank line", "# one\n# two\n\n[a]\n", "# one\n# two\n# new\n\n[a]\n"},
        {"a block at the head", "# one\n[a]\n", "# one\n# new\n\n[a]\n"},
        {"a head alone", "[a]\n", "# new\n\n[a]\n"},
        {"a blank line first", "\n[a]\n", "# new\n\n[a]\n"},
        {"a blank line above a comment first", "\n# a\n[a]\n", "# new\n\n# a\n[a]\n"},
        {"a comment of the stanza", "# one\n\n# a\n[a]\n", "# one\n# new\n\n# a\n[a]\n"},
        {"nothing", "", "# new\n"},
        {"comments alone", "# one\n", "# one\n# new\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.after, changed(c.before, add));
    }
    EXPECT_EQ("# one\n# new\n# new\n\n[a]\n", changed("# one\n[a]\n", [&](Cache& cache) {
                  add(cache);
                  add(cache);
              }));
}

TEST(ZPropertiesImpl, StanzaCommentsStandRightAboveTheHead)
{
    auto const add = [](Cache& cache) { cache.addLineComment("b", "# new"); };
    EXPECT_EQ("[a]\nk = 1\n\n# new\n[b]\n", changed("[a]\nk=1\n[b]\n", add));
    EXPECT_EQ("[a]\nk = 1\n\n# new\n[b]\n", changed("[a]\nk=1\n\n[b]\n", add));
    EXPECT_EQ("[a]\n\n# old\n\n# new\n[b]\n", changed("[a]\n\n# old\n[b]\n", add));
    EXPECT_EQ("\n# new\n[b]\n", changed("[b]\n", add));
    EXPECT_EQ("[a]\n", changed("[a]\n", add));
    EXPECT_EQ("\n# new\n[b]\n",
              changed("[b]\n", [](Cache& cache) { cache.addStanzaComment("b", "# new"); }));
}

TEST(ZPropertiesImpl, KeyCommentsStandRightAboveTheKey)
{
    auto const add = [](Cache& cache) { cache.addLineComment("a", "k", "# new"); };
    EXPECT_EQ("[a]\n\n# new\nk = 1\n", changed("[a]\nk=1\n", add));
    EXPECT_EQ("[a]\nj = 1\n\n# new\nk = 1\n", changed("[a]\nj=1\nk=1\n", add));
    EXPECT_EQ("[a]\nj = 1\n\n# new\nk = 1\n", changed("[a]\nj=1\n\nk=1\n", add));
    EXPECT_EQ("[a]\n# old\n# new\nk = 1\n", changed("[a]\n# old\nk=1\n", add));
    EXPECT_EQ("[a]\nj = 1\n\n# new\nk =\n", changed("[a]\nj=1\n", add));
    EXPECT_EQ("\n[a]\n\n# new\nk =\n", changed("", add));
    // A key that is there without a line gets one, and keeps its values.
    auto const data = parsed("[a]\nj=1\n");
    data->add("a", "k", "secret", 1);
    data->addLineComment("a", "k", "# new");
    EXPECT_EQ("[a]\nj = 1\n\n# new\n", textOf(*data));
    EXPECT_EQ((Strings{"secret"}), values(*data, "a", "k"));
}

TEST(ZPropertiesImpl, CommentsOfSeveralLinesBecomeSeveralLines)
{
    auto const comment = [](std::string const& text) {
        auto const data = parsed("[a]\nk=1\n");
        data->addLineComment("a", "k", text.c_str());
        return textOf(*data);
    };
    EXPECT_EQ("[a]\n\n# one\n#two\n#\n# four\nk = 1\n", comment("# one\ntwo\n\n# four\n"));
    EXPECT_EQ("[a]\n\n\nk = 1\n", comment(""));
    EXPECT_EQ("[a]\n\n# one\nk = 1\n", comment("# one\n"));
    EXPECT_EQ("[a]\n\n# one\n#\nk = 1\n", comment("# one\n\n"));
    // What would not be read back as one line is cut.
    std::string const most(8190, 'x');
    EXPECT_EQ("[a]\n\n" + most + "\nk = 1\n", comment(most));
    EXPECT_EQ("[a]\n\n" + most + "\n#x\nk = 1\n", comment(most + "x"));
    std::string const lines = comment("#" + std::string(20000, 'x') + "\nend");
    auto const data = parsed(lines);
    EXPECT_EQ(lines, textOf(*data));
}

TEST(ZPropertiesImpl, LinesAreGivenInFileOrder)
{
    auto const data = parsed("# c\n\n[a]\nk=1\nk=2\n");
    ZArrayList_6_0 lines(1, 1);
    data->getLines(lines);
    ASSERT_EQ(4u, lines.size());
    EXPECT_TRUE(lines.get(0)->equals(ZPropLine_6_0(1, "# c")));
    EXPECT_TRUE(lines.get(1)->equals(ZPropLine_6_0(2, "")));
    EXPECT_TRUE(lines.get(2)->equals(ZPropLine_6_0(4, "a")));
    EXPECT_TRUE(lines.get(3)->equals(ZPropLine_6_0(8, "k")));
}

// --- reading

TEST(ZPropertiesImpl, ReadingTakesLinesApart)
{
    struct Case {
        char const* name;
        std::string text;
        char const* key;
        Strings expected;
    };
    Case const cases[] = {
        {"plain", "[a]\nk=v\n", "k", {"v"}},
        {"white space", "[a]\n  k   =   v  \n", "k", {"v"}},
        {"all white space", "[a]\n\t\v\f k\t\v\f =\t\v\f v \t\v\f\r\n", "k", {"v"}},
        {"inside a value", "[a]\nk = two  words\n", "k", {"two  words"}},
        {"empty value", "[a]\nk =\n", "k", {}},
        {"blank value", "[a]\nk =   \n", "k", {}},
        {"several values", "[a]\nk=a\nk=b\nk=c\n", "k", {"a", "b", "c"}},
        {"empty among them", "[a]\nk=a\nk=\nk=c\n", "k", {"a", "c"}},
        {"more signs", "[a]\nk = a = b\n", "k", {"a = b"}},
        {"a mark in a value", "[a]\nk = # v\n", "k", {"# v"}},
        {"a key with blanks", "[a]\nk y = v\n", "k y", {"v"}},
        {"carriage returns", "[a]\r\nk = v\r\n", "k", {"v"}},
        {"a carriage return inside", "[a]\nk = a\rb\n", "k", {"a\rb"}},
        {"no last line feed", "[a]\nk = v", "k", {"v"}},
        {"no last line feed, head", "[a]\nk = v\n[b]", "k", {"v"}},
        {"text behind a head", "[a] # c\nk = v\n", "k", {"v"}},
        {"indented head", "  [a]\nk = v\n", "k", {"v"}},
        {"invalid UTF-8", "[a]\nk = \xFF\xFE\x80\n", "k", {"\xFF\xFE\x80"}},
        {"high bytes are no white space", "[a]\nk = \xA0v\x85\n", "k", {"\xA0v\x85"}},
        {"a zero byte cuts the line", BYTES("[a]\nk = v\0lost\nl = w\n"), "k", {"v"}},
        {"behind a cut line", BYTES("[a]\nk = v\0lost\nl = w\n"), "l", {"w"}},
        {"a value before a zero byte", BYTES("[a]\nk = v  \0\n"), "k", {"v"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const data = parsed(c.text);
        EXPECT_EQ(c.expected, values(*data, "a", c.key));
        EXPECT_EQ(1, data->contains("a", c.key));
    }
}

TEST(ZPropertiesImpl, HeadNamesAreTakenAsTheyStand)
{
    auto const data = parsed("[ a b ]\n[]\n[x]y]\n[#]\n");
    for (char const* name : {" a b ", "", "x", "#"})
        EXPECT_EQ(1, data->contains(name)) << name;
    EXPECT_EQ(4, data->count());
}

TEST(ZPropertiesImpl, InvalidLinesAreRefused)
{
    struct Case {
        char const* name;
        std::string text;
        int line;
        std::string data;
    };
    Case const cases[] = {
        {"a key before any stanza", "k = v\n", 1, "k = v"},
        {"a key after comments alone", "# c\n\n  k = v  \n", 3, "k = v"},
        {"no sign", "[a]\nword\n", 2, "word"},
        {"the sign first", "[a]\n  = v\n", 2, "= v"},
        {"only the sign", "[a]\n=\n", 2, "="},
        {"an open head", "[a\n", 1, "[a"},
        {"a repeated head", "[a]\nk = v\n\n[a] again\n", 4, "[a] again"},
        {"a repeated head among many", "[a]\n[b]\n[c]\n[b]x\n[d\n", 4, "[b]x"},
        {"the first of two", "[a]\nword\n[a]\n", 2, "word"},
        {"a byte order mark", "\xEF\xBB\xBF[a]\n", 1, "\xEF\xBB\xBF[a]"},
        {"no last line feed", "[a]\nword", 2, "word"},
        {"before a zero byte", BYTES("[a]\nwo\0rd\n"), 2, "wo"},
        {"lines of carriage returns", "[a]\rk = v\r", 0, ""},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZSCFData_6_0 data;
        data.setAttributes(ZPCache_6_0::keepComments, nullptr);
        if (c.line == 0) {
            // One line for the reader: a head, and what follows it is ignored.
            Stream const stream(c.text);
            data.be_read("test.conf", stream.file());
            EXPECT_EQ(1, data.count());
            continue;
        }
        Refusal const refused = refusal(data, c.text);
        EXPECT_EQ(c.line, refused.line);
        EXPECT_EQ(c.data, refused.text);
        EXPECT_EQ("companion \n", stateOf(data));
    }
}

TEST(ZPropertiesImpl, CommentsAndBlankLinesAreKeptOnRequest)
{
    char const* const text = "# file\n\n[a]\n  # about k  \nk = v\n\n";
    EXPECT_EQ("# file\n\n[a]\n# about k\nk = v\n\n", textOf(*parsed(text)));
    EXPECT_EQ("[a]\nk = v\n", textOf(*parsed(text, 0)));
    EXPECT_EQ("[a]\nk = v\n", textOf(*parsed(text, 2)));
    EXPECT_EQ("# file\n\n[a]\n# about k\nk = v\n\n", textOf(*parsed(text, 3)));
}

TEST(ZPropertiesImpl, RepeatedKeyHasOneLine)
{
    EXPECT_EQ("[a]\nk = 1\nk = 3\nl = 2\n", textOf(*parsed("[a]\nk=1\nl=2\nk=3\n")));
}

TEST(ZPropertiesImpl, EmptyFileIsAnEmptyCache)
{
    EXPECT_EQ("companion \n", stateOf(*parsed("")));
    EXPECT_EQ("companion \n2 \n", stateOf(*parsed("\n")));
    EXPECT_EQ("companion \n2 \n", stateOf(*parsed(BYTES("\0\0\0"))));
}

TEST(ZPropertiesImpl, ReservedEntryNamesTheCompanionFile)
{
    EXPECT_STREQ("/x/y.obf",
                 parsed("[configuration-database]\nfile = /x/y.obf\n")->companionFile().getChars());
    EXPECT_STREQ("/z", parsed("[configuration-database]\nfile = /x\nfile = /z\n[b]\nfile = /n\n")
                           ->companionFile()
                           .getChars());
    EXPECT_STREQ("", parsed("[configuration]\nfile = /x\n[configuration-database]\nfile2 = /y\n")
                         ->companionFile()
                         .getChars());
    auto const data = parsed("[configuration-database]\nfile = /x/y.obf\n");
    EXPECT_EQ((Strings{"/x/y.obf"}), values(*data, "configuration-database", "file"));
}

TEST(ZPropertiesImpl, LongLinesAreReadInPieces)
{
    // A piece is what fits beside a zero byte into 8192 bytes. A line feed may be its last byte.
    for (size_t const length : {kMostOfLine - 2, kMostOfLine - 1, kMostOfLine}) {
        SCOPED_TRACE(length);
        std::string const line = "k = " + std::string(length - 4, 'v');
        auto const data = parsed("[a]\n" + line + "\nl = w\n");
        EXPECT_EQ((Strings{std::string(length - 4, 'v')}), values(*data, "a", "k"));
        EXPECT_EQ((Strings{"w"}), values(*data, "a", "l"));
    }
    ZSCFData_6_0 data;
    Refusal const refused =
        refusal(data, "[a]\nk = " + std::string(kMostOfLine - 4, 'v') + "rest\n");
    EXPECT_EQ(3, refused.line);
    EXPECT_EQ("rest", refused.text);
    auto const torn = parsed("[a]\nk = " + std::string(kMostOfLine - 4, 'v') + "l = w\n");
    EXPECT_EQ((Strings{std::string(kMostOfLine - 4, 'v')}), values(*torn, "a", "k"));
    EXPECT_EQ((Strings{"w"}), values(*torn, "a", "l"));
}

TEST(ZPropertiesImpl, LineOfManyPiecesIsReadToItsEnd)
{
    // A line of hundreds of pieces, each a comment.
    std::string text = "[a]\n";
    std::string expected = text;
    for (int i = 0; i < 300; ++i) {
        std::string const piece =
            "# " + std::to_string(i) + std::string(kMostOfLine - 6, 'x') + "!!!!";
        text += piece.substr(0, kMostOfLine);
        expected += piece.substr(0, kMostOfLine) + "\n";
    }
    EXPECT_TRUE(expected == textOf(*parsed(text)));
}

TEST(ZPropertiesImpl, KeepsTheLineFeedOfATornLineAsABlankLine)
{
    // Written without blanks, the line is no full piece any more.
    auto const full = parsed("[a]\nk = " + std::string(kMostOfLine - 4, 'v') + "\nl = w\n");
    EXPECT_EQ("[a]\nk=" + std::string(kMostOfLine - 4, 'v') + "\n\nl = w\n", textOf(*full));
}

TEST(ZPropertiesImpl, LinesAreCutAsFgetsCutsThem)
{
    // Marks, blanks, zero bytes and line feeds only: every piece is a comment or a blank line.
    std::mt19937 random(20260601);
    for (int round = 0; round < 300; ++round) {
        std::string text;
        for (unsigned i = random() % 12; i > 0; --i) {
            size_t const length =
                random() % 3 == 0 ? random() % 20 : kMostOfLine - 6 + random() % 12;
            text.append(length, random() % 5 == 0 ? ' ' : '#');
            if (!text.empty() && random() % 4 == 0)
                text[random() % text.size()] = '\0';
            if (random() % 4 != 0)
                text += '\n';
        }
        Stream const reference(text);
        Strings expected;
        char line[8192];
        while (fgets(line, sizeof line, reference.file()) != nullptr) {
            std::string piece = line;
            piece.erase(piece.find_last_not_of(" \n") + 1);
            piece.erase(0, piece.find_first_not_of(" \n"));
            expected.push_back(piece);
        }
        auto const data = parsed(text);
        ZArrayList_6_0 lines(1, 1);
        data->getLines(lines);
        ASSERT_EQ(expected.size(), lines.size());
        for (unsigned i = 0; i < lines.size(); ++i) {
            auto const* const read = static_cast<ZPropLine_6_0 const*>(lines.get(i));
            ASSERT_EQ(expected[i], read->text().getChars());
            ASSERT_EQ(expected[i].empty() ? 2u : 1u, read->type());
        }
    }
}

TEST(ZPropertiesImpl, ReadingGoesOnFromWhereTheStreamStands)
{
    Stream const stream("skipped\n[a]\nk = v\n");
    char line[100];
    ASSERT_NE(nullptr, fgets(line, sizeof line, stream.file()));
    ZSCFData_6_0 data;
    data.be_read("test.conf", stream.file());
    EXPECT_EQ("[a]\nk = v\n", textOf(data));
}

TEST(ZPropertiesImpl, ReadsWhatHasNoSize)
{
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    std::string text = "[a]\n";
    for (int i = 0; i < 3000; ++i)
        text += "key" + std::to_string(i) + " = value\n";
    ASSERT_LT(text.size(), 65536u);
    ASSERT_EQ(static_cast<ssize_t>(text.size()), write(ends[1], text.data(), text.size()));
    close(ends[1]);
    FILE* const file = fdopen(ends[0], "r");
    ZSCFData_6_0 data;
    data.be_read("test.conf", file);
    fclose(file);
    EXPECT_EQ(3000, data.keyCount("a"));
    EXPECT_EQ(text, textOf(data));

    // Larger than the first block that is asked for.
    std::string const large = "[b]\nk = " + std::string(8000, 'v') + "\n";
    std::string file2 = "[b]\n";
    for (int i = 0; i < 40; ++i)
        file2 += "k" + std::to_string(i) + " = " + std::string(8000, 'v') + "\n";
    auto const read = parsed(file2);
    EXPECT_EQ(file2, textOf(*read));
}

TEST(ZPropertiesImpl, ReadsFilesOfAnyLength)
{
    for (size_t const keys : {0, 1, 10, 100, 5000, 20000}) {
        SCOPED_TRACE(keys);
        std::string text = keys == 0 ? "" : "[a]\n";
        for (size_t i = 0; i < keys; ++i)
            text += "key" + std::to_string(i) + " = value\n";
        FILE* const file = tmpfile();
        ASSERT_EQ(text.size(), fwrite(text.data(), 1, text.size(), file));
        rewind(file);
        ZSCFData_6_0 data;
        data.be_read("test.conf", file);
        fclose(file);
        EXPECT_EQ(text, textOf(data));
    }
}

TEST(ZPropertiesImpl, FailureToReadIsReportedAndChangesNothing)
{
    auto const data = parsed("# c\n[a]\nk = v\n");
    std::string const before = stateOf(*data);
    FILE* const directory = fopen("/", "r");
    ASSERT_NE(nullptr, directory);
    try {
        data->be_read("/some/path", directory);
        ADD_FAILURE() << "accepted";
    } catch (ZPropertiesIOException_6_0 const& e) {
        EXPECT_EQ(43u, e.messageNumber());
        EXPECT_STREQ("/some/path", e.propFile().getChars());
        EXPECT_STREQ("fgets()", e.api().getChars());
        EXPECT_EQ(EISDIR, e.excerrno());
        EXPECT_STREQ("src/Z/ZPropertiesImpl", e.who());
        EXPECT_EQ(71u, e.where());
    }
    fclose(directory);
    EXPECT_EQ(before, stateOf(*data));
}

namespace {

// A stream that gives `good` bytes and then fails.
struct Failing {
    std::string good;
    size_t given;
    int error;
};

ssize_t readFailing(void* cookie, char* to, size_t size)
{
    auto* const failing = static_cast<Failing*>(cookie);
    size_t const left = failing->good.size() - failing->given;
    if (left == 0) {
        errno = std::exchange(failing->error, 0);
        return errno == 0 ? 0 : -1;
    }
    size_t const count = left < size ? left : size;
    memcpy(to, failing->good.data() + failing->given, count);
    failing->given += count;
    return static_cast<ssize_t>(count);
}

}  // namespace

TEST(ZPropertiesImpl, HalfAFileIsNoFile)
{
    Failing failing = {"[b]\nk = v\n", 0, EIO};
    cookie_io_functions_t functions = {};
    functions.read = readFailing;
    FILE* const file = fopencookie(&failing, "r", functions);
    auto const data = parsed("# c\n[a]\nk = v\n");
    std::string const before = stateOf(*data);
    try {
        data->be_read("path", file);
        ADD_FAILURE() << "accepted";
    } catch (ZPropertiesIOException_6_0 const& e) {
        EXPECT_EQ(EIO, e.excerrno());
    }
    fclose(file);
    EXPECT_EQ(before, stateOf(*data));
}

TEST(ZPropertiesImpl, FailureBeforeTheReadIsNoneOfTheRead)
{
    Failing failing = {"[b]\nk = v\n", 0, 0};
    cookie_io_functions_t functions = {};
    functions.read = readFailing;
    FILE* const file = fopencookie(&failing, "r", functions);
    EXPECT_EQ(EOF, fputc('x', file));
    EXPECT_NE(0, ferror(file));
    ZSCFData_6_0 data;
    data.be_read("path", file);
    fclose(file);
    EXPECT_EQ("[b]\nk = v\n", textOf(data));
}

TEST(ZPropertiesImpl, InterruptedReadGoesOn)
{
    Failing failing = {"[b]\nk = v\n", 0, EINTR};
    cookie_io_functions_t functions = {};
    functions.read = readFailing;
    FILE* const file = fopencookie(&failing, "r", functions);
    ZSCFData_6_0 data;
    data.be_read("path", file);
    fclose(file);
    EXPECT_EQ("[b]\nk = v\n", textOf(data));
}

TEST(ZPropertiesImpl, ReadingAddsToWhatIsThere)
{
    auto const data = parsed("# first\n\n[a]\n# k = 1\n\nz = 1\n");
    data->addLine("a", "y", "2", 0);  // makes the section find its templates
    Stream const more("# second\n\n[b]\nk = v\n");
    data->be_read("test.conf", more.file());
    EXPECT_EQ("# first\n\n[a]\n# k = 1\n\nz = 1\ny = 2\n# second\n\n[b]\nk = v\n", textOf(*data));
    data->addLine("a", "k", "3", 0);
    EXPECT_EQ("# first\n\n[a]\n# k = 1\nk = 3\n\nz = 1\ny = 2\n# second\n\n[b]\nk = v\n",
              textOf(*data));
}

TEST(ZPropertiesImpl, RefusedTextLeavesTheCacheAsItWas)
{
    char const* const kTexts[] = {
        "# more\n\nword\n",      "# more\n[b]\nk = 1\n[c]\nk = 2\nk = 3\n\nword\n",
        "[b]\nk = 1\n[a]\n",     "[configuration-database]\nfile = /other\n[open\n",
        "[gone]\nk = 1\nword\n",
    };
    for (char const* text : kTexts) {
        SCOPED_TRACE(text);
        auto const data = parsed("# c\n[gone]\nk = v\n[a]\nk = v\n# t = 1\n\n");
        data->setCompanionFile("/x/test.obf");
        data->remove("gone");
        data->addLine("a", "y", "2", 0);
        std::string const before = stateOf(*data);
        std::string const written = textOf(*data);
        refusal(*data, text);
        EXPECT_EQ(before, stateOf(*data));
        EXPECT_EQ(written, textOf(*data));
        // And it goes on as if nothing had been.
        data->addLine("a", "t", "3", 0);
        data->set("gone", "k", "w");
        data->addFileComment("# d");
        EXPECT_EQ("# c\n# d\n\n[gone]\nk = w\n[a]\nk = v\ny = 2\n# t = 1\nt = 3\n\n",
                  textOf(*data));
    }
}

TEST(ZPropertiesImpl, RefusedTextKeepsNoRoom)
{
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text +=
            "[s" + std::to_string(i) + "]\n# c\n\nk = 1\nk = 2\nl = " + std::to_string(i) + "\n";
    auto const data = parsed("# c\n[a]\nk = v\nk = w\n");
    data->delLine("a", "k");  // leaves places that the reading uses
    size_t const before = data->memoryUsed();
    refusal(*data, text + "word\n");
    EXPECT_LT(data->memoryUsed(), before + 1000);
    // The places are good for use.
    data->readText("test.conf", text.data(), text.size());
    EXPECT_EQ(20001, data->count());
    EXPECT_EQ((Strings{"1", "2"}), values(*data, "s19999", "k"));
    EXPECT_EQ((Strings{"777"}), values(*data, "s777", "l"));

    ZSCFData_6_0 empty;
    size_t const none = empty.memoryUsed();
    refusal(empty, text + "word\n");
    EXPECT_EQ(none, empty.memoryUsed());
    empty.readText("test.conf", text.data(), text.size());
    EXPECT_EQ(20000, empty.count());
}

TEST(ZPropertiesImpl, RefusedLinesLeaveTheSectionBeforeThemAsItWas)
{
    auto const data = parsed("[a]\nk = v\nl = w\n");
    refusal(*data, "# c\n\n# m = 1\n\nword\n");
    data->addLine("a", "m", "1", 0);
    EXPECT_EQ("[a]\nk = v\nl = w\nm = 1\n", textOf(*data));
}

TEST(ZPropertiesImpl, RefusedTextsMayBeMoreThanACacheHolds)
{
    ZSCFData_6_0 data;
    for (int i = 0; i < 4100; ++i)  // each takes 1 MiB of the 4 GiB that places reach
        refusal(data, "word\n");
    data.set("a", "k", "v");
    EXPECT_EQ((Strings{"v"}), values(data, "a", "k"));
}

TEST(ZPropertiesImpl, TextsAreKeptWhateverTheirLength)
{
    Cache cache;
    std::vector<size_t> const lengths = {1, 65534, 65535, 65536, (1 << 20) - 1, 1 << 20, 3 << 20};
    for (size_t const length : lengths) {
        std::string const name(length, 'n');
        cache.set(name.c_str(), name.c_str(), std::string(length, 'v').c_str());
        cache.add(name.c_str(), name.c_str(), std::string(length, 'w').c_str(), 0);
    }
    std::unique_ptr<ZPCache_6_0> const clone(cache.clone());
    for (Cache const* const each : {&cache, dynamic_cast<Cache*>(clone.get())}) {
        EXPECT_EQ(lengths.size(), names(*each).size());
        for (size_t const length : lengths) {
            SCOPED_TRACE(length);
            std::string const name(length, 'n');
            EXPECT_EQ((Strings{name}), names(*each, name.c_str()));
            EXPECT_EQ((Strings{std::string(length, 'v'), std::string(length, 'w')}),
                      values(*each, name.c_str(), name.c_str()));
        }
    }
}

TEST(ZPropertiesImpl, RemovedStanzaMayBeReadAnew)
{
    auto const data = parsed("[a]\nold = 1\n# c\n\n[b]\nk = 2\n");
    data->remove("a");
    Stream const more("[a]\nnew = 1\n");
    data->be_read("test.conf", more.file());
    EXPECT_EQ("[b]\nk = 2\n[a]\nnew = 1\n", textOf(*data));
    EXPECT_EQ((Strings{"new"}), names(*data, "a"));
}

// --- writing

TEST(ZPropertiesImpl, FilesKeepTheirShape)
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

TEST(ZPropertiesImpl, ObfuscatedValuesStayOutOfTheText)
{
    auto const data = parsed("[a]\nk = plain\nsecret =\nboth = p\n");
    data->setObfuscated("a", "secret", "s");
    data->add("a", "both", "hidden", 1);
    EXPECT_EQ("[a]\nk = plain\nboth = p\n", textOf(*data));
    data->setObfuscated("a", "secret", "");
    EXPECT_EQ("[a]\nk = plain\nsecret =\nboth = p\n", textOf(*data));
}

TEST(ZPropertiesImpl, EmptyCacheWritesNothing)
{
    ZSCFData_6_0 data;
    EXPECT_EQ("", written(data));
    ZBuffer_6_0 text("left over");
    data.writeText(text);
    EXPECT_EQ(0u, text.getLength());
}

TEST(ZPropertiesImpl, FailureToWriteIsReported)
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

TEST(ZPropertiesImpl, FailureToFlushIsReported)
{
    auto const data = parsed("[a]\nk = v\n");
    FILE* const full = fopen("/dev/full", "w");  // its buffer takes the text
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

TEST(ZPropertiesImpl, CompanionHoldsTheObfuscatedRecords)
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
    // Keys as they came to have obfuscated values; the last zero byte is left out.
    EXPECT_EQ(BYTES("b\0k\0one\0\0b\0k\0three\0\0a\0k\0two\0"), unpacked(buffer));
}

TEST(ZPropertiesImpl, CompanionIsReadBack)
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

TEST(ZPropertiesImpl, CompanionIsReadWithTheLastZeroByteOrWithoutIt)
{
    struct Case {
        char const* name;
        std::string records;  // complete
        Strings values;       // of key k in stanza a
    };
    Case const cases[] = {
        {"one record", BYTES("a\0k\0v\0\0"), {"v"}},
        {"two records", BYTES("a\0k\0v\0\0a\0k\0w\0\0"), {"v", "w"}},
        {"an empty value", BYTES("a\0k\0\0\0"), {}},
        {"an empty value behind another", BYTES("a\0k\0v\0\0a\0k\0\0\0"), {"v"}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZSCFData_6_0 complete;
        readCompanion(complete, packed(c.records));
        ASSERT_EQ(1, complete.contains("a", "k"));
        EXPECT_EQ(c.values, values(complete, "a", "k", ZPCache_6_0::obfuscatedValues));
        ZSCFData_6_0 shortened;
        readCompanion(shortened, packed(c.records.substr(0, c.records.size() - 1)));
        EXPECT_EQ(stateOf(complete), stateOf(shortened));
        complete.setCompanionFile("/x/test.obf");
        // One byte more or less is no sequence of records.
        expectCompanionRefused(complete, packed(c.records + std::string(1, '\0')));
        expectCompanionRefused(complete, packed(c.records.substr(0, c.records.size() - 2)));
    }
}

TEST(ZPropertiesImpl, CompanionJoinsWhatIsThere)
{
    auto const data = parsed("[a]\nk = plain\n[gone]\nk = v\n");
    data->remove("gone");
    data->get("a", "k", ZPCache_6_0::obfuscatedValues);  // a list that a caller knows
    readCompanion(*data, packed(BYTES("a\0k\0one\0\0a\0new\0two\0\0b\0k\0three\0\0a\0k\0four\0\0"
                                      "a\0empty\0\0\0gone\0k\0five\0")));
    EXPECT_EQ((Strings{"plain"}), values(*data, "a", "k", ZPCache_6_0::plainValues));
    EXPECT_EQ((Strings{"one", "four"}), values(*data, "a", "k", ZPCache_6_0::obfuscatedValues));
    EXPECT_EQ((Strings{"two"}), values(*data, "a", "new"));
    EXPECT_EQ((Strings{"three"}), values(*data, "b", "k"));
    EXPECT_EQ(Strings(), values(*data, "a", "empty"));
    EXPECT_EQ(1, data->contains("a", "empty"));
    EXPECT_EQ((Strings{"five"}), values(*data, "gone", "k"));
    EXPECT_EQ(4, data->obfuscatedItemCount());
    EXPECT_EQ("[a]\nk = plain\n[gone]\n", textOf(*data));
}

TEST(ZPropertiesImpl, RecordsLongerThanAnyStepArePacked)
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

TEST(ZPropertiesImpl, KeyThatIsObfuscatedAgainKeepsItsPlace)
{
    ZSCFData_6_0 data;
    data.setObfuscated("a", "k", "1");
    data.setObfuscated("b", "k", "2");
    data.setObfuscated("a", "k", "3");
    ZBuffer_6_0 buffer;
    data.be_write_obfuscated(buffer);
    EXPECT_EQ(BYTES("a\0k\0003\0\0b\0k\0002\0"), unpacked(buffer));
    data.set("a", "k", "4");
    data.setObfuscated("a", "k", "5");
    data.be_write_obfuscated(buffer);
    EXPECT_EQ(BYTES("b\0k\0002\0\0a\0k\0005\0"), unpacked(buffer));
}

TEST(ZPropertiesImpl, BadCompanionsAreRefused)
{
    auto const data = parsed("[a]\nk = v\n");
    data->setCompanionFile("/x/test.obf");
    data->add("a", "s", "kept", 1);
    std::string const good = packed(BYTES("a\0k\0one\0\0b\0k\0two\0"));
    struct Case {
        char const* name;
        std::string content;
    };
    Case const cases[] = {
        {"empty", ""},
        {"no zlib stream", "just some text that was never packed"},
        {"truncated", good.substr(0, good.size() - 5)},
        {"one byte", good.substr(0, 1)},
        {"changed", std::string(good).replace(good.size() / 2, 1, "\xAA")},
        {"no zero byte", packed("abc")},
        {"a name alone", packed(BYTES("a\0"))},
        {"two names", packed(BYTES("a\0k\0"))},
        {"a second record without value", packed(BYTES("a\0k\0v\0\0b\0k\0"))},
        {"no end of record", packed(BYTES("a\0k\0v\0b\0k\0w\0"))},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        expectCompanionRefused(*data, c.content);
    }
    readCompanion(*data, good);
    EXPECT_EQ((Strings{"one"}), values(*data, "a", "k", ZPCache_6_0::obfuscatedValues));
}

TEST(ZPropertiesImpl, ChangedByteOfACompanionIsRefusedOrChangesNothing)
{
    // The stream carries a checksum of its contents: what is accepted says what the good one says.
    std::string const good = packed(BYTES("a\0k\0one\0\0b\0k\0two\0\0c\0key\0a longer value\0"));
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

TEST(ZPropertiesImpl, CompanionOfNothingIsEmpty)
{
    // A stream of no bytes at all is well formed.
    std::vector<unsigned char> room(100);
    unsigned long length = room.size();
    ZSqueeze_6_0 squeeze;
    unsigned char nothing = 0;
    ASSERT_EQ(0, squeeze.compress(room.data(), &length, &nothing, 0));
    ZSCFData_6_0 data;
    readCompanion(data, std::string(reinterpret_cast<char*>(room.data()), length));
    EXPECT_EQ("companion \n", stateOf(data));
}

// --- copies

TEST(ZPropertiesImpl, CloneIsACopyOfItsOwn)
{
    auto const data = parsed("# c\n\n[a]\nk = 1\nk = 2\n# t = 1\n\n[b]\nk = v\n[gone]\nx = 1\n");
    data->setCompanionFile("/x/test.obf");
    data->add("a", "secret", "s", 1);
    data->addLine("a", "new", "n", 0);
    data->get("a", "k", ZPCache_6_0::plainValues);
    data->get("b", ZPCache_6_0::plainValues);
    data->remove("gone");
    ZArrayList_6_0 lent(1, 0);
    data->getNames(lent);
    data->getNames("a", lent);
    std::string const before = stateOf(*data);
    std::unique_ptr<ZSCFData_6_0> const clone(static_cast<ZSCFData_6_0*>(data->clone()));
    EXPECT_EQ(before, stateOf(*clone));
    EXPECT_EQ(textOf(*data), textOf(*clone));
    EXPECT_EQ(1u, clone->attributes());
    clone->addLine("a", "t", "x", 0);
    clone->delLine("b");
    static_cast<void>(clone->get("a", "k", ZPCache_6_0::plainValues)->remove(0u));
    EXPECT_EQ("# c\n\n[a]\nk = 2\nnew = n\n# t = 1\nt = x\n\n", textOf(*clone));
    EXPECT_EQ(before, stateOf(*data));
    clone->set("gone", "x", "2");
    EXPECT_EQ((Strings{"2"}), values(*clone, "gone", "x"));
    Cache cache;
    cache.add("c", "k", "v", 0);
    std::unique_ptr<ZPCache_6_0> const copy(cache.clone());
    EXPECT_EQ(1, copy->contains("c", "k"));
}

TEST(ZPropertiesImpl, EmptyCacheOfTheSameClassHasTheSameAttributes)
{
    auto const data = parsed("[a]\nk = v\n");
    int argument = 0;
    data->setAttributes(5, &argument);
    std::unique_ptr<ZPCache_6_0> const empty(data->makeEmpty());
    EXPECT_NE(nullptr, dynamic_cast<ZSCFData_6_0*>(empty.get()));
    EXPECT_EQ(0, empty->count());
    EXPECT_EQ(5u, empty->attributes());
    EXPECT_EQ(&argument, empty->attributeArgument());
    Cache const cache;
    std::unique_ptr<ZPCache_6_0> const other(cache.makeEmpty());
    EXPECT_EQ(nullptr, dynamic_cast<ZSCFData_6_0*>(other.get()));
    EXPECT_NE(nullptr, dynamic_cast<Cache*>(other.get()));
}

TEST(ZPropertiesImpl, ContentsChangePlacesWithTheirLists)
{
    auto const one = parsed("[a]\nk = 1\n");
    auto const other = parsed("[b]\nk = 2\n", 0);
    one->setCompanionFile("/x/one");
    ZArrayList_6_0* const list = one->get("a", "k", ZPCache_6_0::anyValues);
    EXPECT_EQ(1, one->swapContents(*other));
    EXPECT_EQ("[b]\nk = 2\n", textOf(*one));
    EXPECT_EQ("[a]\nk = 1\n", textOf(*other));
    EXPECT_STREQ("/x/one", other->companionFile().getChars());
    EXPECT_STREQ("", one->companionFile().getChars());
    EXPECT_EQ(1u, one->attributes());
    EXPECT_EQ(0u, other->attributes());
    EXPECT_EQ(list, other->get("a", "k", ZPCache_6_0::anyValues));
    EXPECT_EQ(1, one->swapContents(*one));
    EXPECT_EQ("[b]\nk = 2\n", textOf(*one));
}

TEST(ZPropertiesImpl, ClearForgetsAllButTheAttributes)
{
    auto const data = parsed("# c\n[a]\nk = v\n[configuration-database]\nfile = /x\n");
    data->add("a", "s", "s", 1);
    data->clear();
    EXPECT_EQ("companion \n", stateOf(*data));
    EXPECT_EQ(0, data->obfuscatedItemCount());
    EXPECT_EQ(1u, data->attributes());
    data->addLine("a", "k", "v", 0);
    EXPECT_EQ("\n[a]\nk = v\n", textOf(*data));
}

// --- what can be written and read back

TEST(ZPropertiesImpl, NamesThatWouldNotBeReadBackAreTold)
{
    struct Case {
        char const* name;
        std::string category;
        std::string key;
        bool isValid;
    };
    Case const cases[] = {
        {"plain", "a", "k", true},
        {"blanks inside", "a b", "k y", true},
        {"other bytes", "\xC3\xA4", "\xFF", true},
        {"a mark inside", "#a", "k#", true},
        {"a bracket inside", "[a", "k[]", true},
        {"blanks around a category", " a ", "k", true},
        {"no category", "", "k", false},
        {"no key", "a", "", false},
        {"a bracket in the category", "a]", "k", false},
        {"a line feed in the category", "a\nb", "k", false},
        {"a sign in the key", "a", "k=", false},
        {"a line feed in the key", "a", "k\ny", false},
        {"a mark first", "a", "#k", false},
        {"a bracket first", "a", "[k", false},
        {"a blank first", "a", " k", false},
        {"a blank last", "a", "k ", false},
        {"a tab first", "a", "\tk", false},
        {"a carriage return last", "a", "k\r", false},
        {"the longest category", std::string(8188, 'a'), "k", true},
        {"a longer one", std::string(8189, 'a'), "k", false},
        {"the longest key", "a", std::string(8188, 'k'), true},
        {"a longer one", "a", std::string(8189, 'k'), false},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.isValid, Cache::validateKey(c.category.c_str(), c.key.c_str()));
        if (!c.isValid)
            continue;
        ZSCFData_6_0 data;
        data.addLine(c.category.c_str(), c.key.c_str(), 0);
        auto const read = parsed(textOf(data));
        EXPECT_EQ(stateOf(data), stateOf(*read));
    }
    EXPECT_EQ(0, Cache::validateKey(nullptr, "k"));
    EXPECT_EQ(0, Cache::validateKey("a", nullptr));
    EXPECT_EQ(0, Cache::validateCategory(nullptr));
    EXPECT_EQ(1, Cache::validateCategory("a"));
}

TEST(ZPropertiesImpl, ValuesThatWouldNotBeReadBackAreTold)
{
    EXPECT_EQ(1, Cache::validateValue("k", "v"));
    EXPECT_EQ(1, Cache::validateValue("k", ""));
    EXPECT_EQ(1, Cache::validateValue("k", nullptr));
    EXPECT_EQ(1, Cache::validateValue("k", "a\rb"));
    EXPECT_EQ(0, Cache::validateValue("k", "a\nb"));
    std::string const most(8190 - 4, 'v');
    EXPECT_EQ(1, Cache::validateValue("k", most.c_str()));
    EXPECT_EQ(0, Cache::validateValue("k", (most + "v").c_str()));
    EXPECT_EQ(1, Cache::validateValue(nullptr, (most + "v").c_str()));  // by itself it is a line
    EXPECT_EQ(0, Cache::validateValue(nullptr, (most + "12345").c_str()));
    ZSCFData_6_0 data;
    data.addLine("a", "k", most.c_str(), 0);
    data.addLine("a", "l", "w", 0);
    EXPECT_EQ(stateOf(data), stateOf(*parsed(textOf(data))));
}

// --- when memory is short

namespace {

// Makes a change to a new cache with its n-th allocation failing: the cache is then as it was, and
// when it is gone nothing is left. Returns whether that many were asked for.
bool changeFailing(void (*change)(ZSCFData_6_0&), unsigned long n, FailingAllocator::Mode mode)
{
    SCOPED_TRACE("allocation " + std::to_string(n));
    long const blocks = FailingAllocator::blocks();
    bool hasFailed = false;
    {
        auto const data =
            parsed("# c\n[a]\nk = 1\nlisted = 1\n# t = 1\n\n[b]\nk = v\n[gone]\nx = 1\n# g\n");
        data->add("hidden", "k", "secret", 1);
        data->add("a", "listed secret", "zero", 1);
        data->remove("gone");
        data->get("a", "listed", ZPCache_6_0::plainValues);
        data->get("a", "listed secret", ZPCache_6_0::obfuscatedValues);
        data->get("b", ZPCache_6_0::plainValues);
        std::string const before = stateOf(*data);
        std::string const text = textOf(*data);
        bool raised = false;
        FailingAllocator::failAt(n, mode);
        try {
            change(*data);
        } catch (ZOutOfMemoryException_6_0 const&) {
            raised = true;
        } catch (std::bad_alloc const&) {
            raised = true;  // of a string that the change makes for itself
        }
        hasFailed = FailingAllocator::stop();
        // A failure to give room back is none.
        EXPECT_TRUE(hasFailed || !raised);
        if (raised) {
            EXPECT_EQ(before, stateOf(*data));
            EXPECT_EQ(text, textOf(*data));
            // The next call works.
            change(*data);
        }
    }
    EXPECT_EQ(blocks, FailingAllocator::blocks());
    return hasFailed;
}

}  // namespace

TEST(ZPropertiesImpl, EveryChangeHappensOrDoesNot)
{
    struct Case {
        char const* name;
        void (*change)(ZSCFData_6_0&);
    };
    static std::string const kLong(3000, 'x');
    Case const cases[] = {
        {"add", [](ZSCFData_6_0& d) { d.add("new", "key", kLong.c_str(), 0); }},
        {"add to a key", [](ZSCFData_6_0& d) { d.add("a", "k", kLong.c_str(), 0); }},
        {"add to a list", [](ZSCFData_6_0& d) { d.add("a", "listed", kLong.c_str(), 0); }},
        {"add obfuscated", [](ZSCFData_6_0& d) { d.add("a", "k", kLong.c_str(), 1); }},
        {"add without value", [](ZSCFData_6_0& d) { d.add("new", kLong.c_str(), 0); }},
        {"set", [](ZSCFData_6_0& d) { d.set("new", "key", kLong.c_str()); }},
        {"set a key", [](ZSCFData_6_0& d) { d.set("a", "k", kLong.c_str()); }},
        {"set a list", [](ZSCFData_6_0& d) { d.set("a", "listed", kLong.c_str()); }},
        {"set obfuscated", [](ZSCFData_6_0& d) { d.setObfuscated("a", "k", kLong.c_str()); }},
        {"add a line", [](ZSCFData_6_0& d) { d.addLine("a", "t", kLong.c_str(), 0); }},
        {"add a line to a new stanza",
         [](ZSCFData_6_0& d) { d.addLine("new", "key", kLong.c_str(), 0); }},
        {"add a line to a removed stanza",
         [](ZSCFData_6_0& d) { d.addLine("gone", "key", kLong.c_str(), 0); }},
        {"add a line to a stanza without head",
         [](ZSCFData_6_0& d) { d.addLine("hidden", "key", kLong.c_str(), 0); }},
        {"add a stanza", [](ZSCFData_6_0& d) { d.addStanzaLine(kLong.c_str()); }},
        {"add a removed stanza", [](ZSCFData_6_0& d) { d.addStanzaLine("gone"); }},
        {"add a file comment", [](ZSCFData_6_0& d) { d.addFileComment(kLong.c_str()); }},
        {"add a stanza comment", [](ZSCFData_6_0& d) { d.addLineComment("b", kLong.c_str()); }},
        {"add a stanza comment without head",
         [](ZSCFData_6_0& d) { d.addLineComment("hidden", "#a\nb\nc"); }},
        {"add a key comment",
         [](ZSCFData_6_0& d) { d.addLineComment("a", "k", ("#" + kLong + "=").c_str()); }},
        {"add a comment and its key",
         [](ZSCFData_6_0& d) { d.addLineComment("a", "t", "#a\n#b\n#c=1"); }},
        {"add a comment, its key and its stanza",
         [](ZSCFData_6_0& d) { d.addLineComment("new", "key", kLong.c_str()); }},
        {"delete a line", [](ZSCFData_6_0& d) { d.delLine("a", "k"); }},
        {"delete a stanza", [](ZSCFData_6_0& d) { d.delLine("a"); }},
        {"remove", [](ZSCFData_6_0& d) { d.remove("a", "k"); }},
        {"clear", [](ZSCFData_6_0& d) { d.clear(); }},
        {"get", [](ZSCFData_6_0& d) { d.get("a", "k", ZPCache_6_0::anyValues); }},
        {"get of a category", [](ZSCFData_6_0& d) { d.get("a", ZPCache_6_0::anyValues); }},
        {"get of a category again", [](ZSCFData_6_0& d) { d.get("b", ZPCache_6_0::anyValues); }},
        {"names", [](ZSCFData_6_0& d) { delete d.getNames("a"); }},
        {"names lent",
         [](ZSCFData_6_0& d) {
             ZArrayList_6_0 list(1, 0);
             d.getNames(list);
             d.getNames("a", list);
         }},
        {"clone", [](ZSCFData_6_0& d) { delete d.clone(); }},
        {"make empty", [](ZSCFData_6_0& d) { delete d.makeEmpty(); }},
        {"read",
         [](ZSCFData_6_0& d) {
             std::string text =
                 "# c\n\n[configuration-database]\nfile = " + kLong + "\n[gone]\nk = 1\nk = 2\n";
             for (int i = 0; i < 20; ++i)
                 text += "key" + std::to_string(i) + " = v\nkey" + std::to_string(i) + " = w\n";
             text += std::string(9000, '#') + "\n";
             d.readText("test.conf", text.data(), text.size());
         }},
        {"write",
         [](ZSCFData_6_0& d) {
             ZBuffer_6_0 buffer;
             d.writeText(buffer);
         }},
        {"write the companion",
         [](ZSCFData_6_0& d) {
             ZBuffer_6_0 buffer;
             d.be_write_obfuscated(buffer);
         }},
        {"read the companion",
         [](ZSCFData_6_0& d) {
             static std::string content =
                 packed(BYTES("a\0k\0one\0\0a\0listed secret\0two\0\0new\0key\0three\0\0"
                              "a\0listed secret\0four\0"));
             ZBuffer_6_0 buffer(content.size(), content.data());
             d.be_read_obfuscated(buffer);
         }},
        {"name the companion", [](ZSCFData_6_0& d) { d.setCompanionFile(kLong.c_str()); }},
    };
    {
        // The one static of a case is made before memory runs short.
        ZSCFData_6_0 data;
        for (Case const& c : cases)
            if (std::string(c.name) == "read the companion")
                c.change(data);
    }
    for (Case const& c : cases) {
        for (auto const mode : {FailingAllocator::once, FailingAllocator::forEver}) {
            SCOPED_TRACE(c.name);
            for (unsigned long n = 1; changeFailing(c.change, n, mode); ++n)
                ASSERT_LT(n, 1000u);
        }
    }
}

TEST(ZPropertiesImpl, WithoutRandomBytesNamesAreFoundAllTheSame)
{
    // The bytes are drawn once, by the first cache of a process.
    if (getenv(kNoRandom) == nullptr) {
        pid_t const child = fork();
        if (child == 0) {
            setenv(kNoRandom, "1", 1);
            char self[] = "test";
            char brief[] = "--gtest_brief=1";
            char filter[] = "--gtest_filter=*.WithoutRandomBytesNamesAreFoundAllTheSame";
            char* const arguments[] = {self, brief, filter, nullptr};
            execv("/proc/self/exe", arguments);
            _exit(127);
        }
        int status = -1;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_EQ(0, status);
        return;
    }
    Cache cache;
    for (int i = 0; i < 1000; ++i)
        cache.add("c", ("key" + std::to_string(i)).c_str(), std::to_string(i).c_str(), 0);
    EXPECT_EQ(1, randomRefused);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ((Strings{std::to_string(i)}),
                  values(cache, "c", ("key" + std::to_string(i)).c_str()));
    EXPECT_EQ(0, cache.contains("c", "key1000"));
}

TEST(ZPropertiesImpl, MakingACacheFailsCleanly)
{
    failEachAllocation([] { ZSCFData_6_0 const data; }, [] {});
    failEachAllocation([] { Cache const cache; }, [] {});
}
