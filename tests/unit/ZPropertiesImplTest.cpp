// The objects of a cache, the empty base class, copies, and the validation of names and values.
#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "CacheHelpers.h"
#include "EachAllocation.h"
#include "FailingAllocator.h"

using namespace std::string_literals;

// --- lines and items

TEST(ZPropertiesImpl, LinesAreEqualIfTypeAndTextAreEqual)
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

TEST(ZPropertiesImpl, LineTypesHaveFixedNumbers)
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

TEST(ZPropertiesImpl, ItemsAreEqualIfBothNamesAreEqual)
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

TEST(ZPropertiesImpl, FailedAssignmentLeavesAnItemUnchanged)
{
    std::string const name(500, 'n');
    ZObfuscatedItem_6_0 item("stanza", "key");
    ZObfuscatedItem_6_0 const other(name.c_str(), name.c_str());
    // A string keeps capacity that it has gained, so the number of blocks may differ.
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

TEST(ZPropertiesImpl, KeyListReturnsItsKeysInMapOrder)
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
    // A cache, which has no such map, returns the same order.
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

// --- the base class

namespace {

class Nothing : public ZPCache_6_0 {
public:
    ZPCache_6_0* clone() const override { return new Nothing(*this); }
};

}  // namespace

TEST(ZPropertiesImpl, BaseCacheHoldsNoValues)
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

TEST(ZPropertiesImpl, DirectLookupsAreOfferedOnlyWithoutOverrides)
{
    Cache const cache;
    ZSCFData_6_0 const data;
    OwnClass const own;
    EXPECT_EQ(&cache, cache.direct());
    EXPECT_EQ(&data, data.direct());
    EXPECT_EQ(nullptr, own.direct());
}

// --- copies and swaps

TEST(ZPropertiesImpl, CloneIsIndependent)
{
    auto const data = parsed("# c\n\n[a]\nk = 1\nk = 2\n# t = 1\n\n[b]\nk = v\n[removed]\nx = 1\n");
    data->setCompanionFile("/x/test.obf");
    data->add("a", "secret", "s", 1);
    data->addLine("a", "new", "n", 0);
    data->get("a", "k", ZPCache_6_0::plainValues);
    data->get("b", ZPCache_6_0::plainValues);
    data->remove("removed");
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
    clone->set("removed", "x", "2");
    EXPECT_EQ((Strings{"2"}), values(*clone, "removed", "x"));
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

TEST(ZPropertiesImpl, SwapExchangesContentsAndTheirLists)
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

TEST(ZPropertiesImpl, ClearKeepsOnlyTheAttributes)
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

// --- valid names and values

TEST(ZPropertiesImpl, NamesThatWouldNotBeReadBackAreInvalid)
{
    struct Case {
        char const* name;
        std::string category;
        std::string key;
        bool isValid;
    };
    Case const cases[] = {
        {"plain", "a", "k", true},
        {"spaces inside", "a b", "k y", true},
        {"other bytes", "\xC3\xA4", "\xFF", true},
        {"a mark inside", "#a", "k#", true},
        {"a bracket inside", "[a", "k[]", true},
        {"spaces around a category", " a ", "k", true},
        {"no category", "", "k", false},
        {"no key", "a", "", false},
        {"a bracket in the category", "a]", "k", false},
        {"a newline in the category", "a\nb", "k", false},
        {"an equal sign in the key", "a", "k=", false},
        {"a newline in the key", "a", "k\ny", false},
        {"a mark first", "a", "#k", false},
        {"a bracket first", "a", "[k", false},
        {"a space first", "a", " k", false},
        {"a space last", "a", "k ", false},
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

TEST(ZPropertiesImpl, ValuesThatWouldNotBeReadBackAreInvalid)
{
    EXPECT_EQ(1, Cache::validateValue("k", "v"));
    EXPECT_EQ(1, Cache::validateValue("k", ""));
    EXPECT_EQ(1, Cache::validateValue("k", nullptr));
    EXPECT_EQ(1, Cache::validateValue("k", "a\rb"));
    EXPECT_EQ(0, Cache::validateValue("k", "a\nb"));
    std::string const most(8190 - 4, 'v');
    EXPECT_EQ(1, Cache::validateValue("k", most.c_str()));
    EXPECT_EQ(0, Cache::validateValue("k", (most + "v").c_str()));
    EXPECT_EQ(1, Cache::validateValue(nullptr, (most + "v").c_str()));  // a line without a key
    EXPECT_EQ(0, Cache::validateValue(nullptr, (most + "12345").c_str()));
    ZSCFData_6_0 data;
    data.addLine("a", "k", most.c_str(), 0);
    data.addLine("a", "l", "w", 0);
    EXPECT_EQ(stateOf(data), stateOf(*parsed(textOf(data))));
}
