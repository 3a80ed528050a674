// Categories, keys and values of a cache.
#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZPropertiesImpl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
#include <wchar.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>

#include "CacheHelpers.h"
#include "FailingAllocator.h"
#include "LinearTime.h"

using namespace std::string_literals;

namespace {

class OwnClass : public ZSCFData_6_0 {};

}  // namespace

// --- values

TEST(ZPropertiesImplValues, GetSelectsTheListByType)
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
        // After the lists exist, the results are the same.
        EXPECT_EQ(c.any, values(cache, "c", "k", ZPCache_6_0::anyValues));
        EXPECT_EQ(c.any, strings(*cache.get("c", "k", ZPCache_6_0::anyValues)));
        EXPECT_EQ(c.isObfuscated, cache.isObfuscated("c", "k"));
        EXPECT_EQ(c.isObfuscated, cache.isObfuscated("c"));
        EXPECT_EQ(static_cast<int>(c.any.size()), cache.countValues("c", "k"));
    }
}

TEST(ZPropertiesImplValues, WithoutValuesAnyTypeReturnsThePlainList)
{
    Cache cache;
    cache.add("c", "k", 0);
    EXPECT_EQ(cache.get("c", "k", ZPCache_6_0::plainValues),
              cache.get("c", "k", ZPCache_6_0::anyValues));
}

TEST(ZPropertiesImplValues, MissingNamesReturnNothing)
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

TEST(ZPropertiesImplValues, AddKeepsTheValuesInOrder)
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

TEST(ZPropertiesImplValues, AddWithoutValueCreatesCategoryAndKey)
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

TEST(ZPropertiesImplValues, SetLeavesOneValueOfOneKind)
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

TEST(ZPropertiesImplValues, SetWithoutAKeyCreatesTheCategory)
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

TEST(ZPropertiesImplValues, ReturnedListsHoldTheValues)
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

TEST(ZPropertiesImplValues, NullInAReturnedListReadsAsNoValue)
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

TEST(ZPropertiesImplValues, ValuesRemovedFromAListAreNoLongerObfuscated)
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

TEST(ZPropertiesImplValues, ListOfOneValueHasCapacityForOne)
{
    Cache cache;
    cache.add("c", "k", "a", 0);
    EXPECT_EQ(1u, cache.get("c", "k", ZPCache_6_0::plainValues)->capacity());
    EXPECT_EQ(1u, cache.get("c", "k", ZPCache_6_0::obfuscatedValues)->capacity());
}

TEST(ZPropertiesImplValues, ChangesShowThatAnIterationIsNoLongerValid)
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
    cache.get("c", "k", ZPCache_6_0::anyValues);  // the values moved to a list
    EXPECT_TRUE(changed());
    cache.get("c", "none", ZPCache_6_0::anyValues);
    EXPECT_FALSE(changed());
}

TEST(ZPropertiesImplValues, IterationSkipsToAnIndexAndContinuesFromIt)
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

TEST(ZPropertiesImplValues, GenerationShowsThatListsWereDeleted)
{
    Cache cache;
    cache.addLine("c", "k", "a", 0);
    cache.addLine("c", "other", "a", 0);
    unsigned long seen = cache.generation();
    auto const changed = [&] { return std::exchange(seen, cache.generation()) != seen; };

    cache.delLine("c", "other");
    EXPECT_FALSE(changed()) << "no list was returned";
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

TEST(ZPropertiesImplValues, CategoryListsItsValuesInMapOrder)
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
    // Changing the list of copies does not change the cache, and the next call refills it.
    any->removeAll();
    EXPECT_EQ(22, cache.countValues("c"));
    EXPECT_EQ(any, cache.get("c", ZPCache_6_0::anyValues));
    EXPECT_EQ(22u, any->size());
    cache.remove("c", "secret");
    cache.get("c", ZPCache_6_0::anyValues);
    EXPECT_EQ(plain, strings(*any));
}

TEST(ZPropertiesImplValues, NamesAreInMapOrder)
{
    // 15 buckets by the hash of strings; insertion order within a bucket.
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

TEST(ZPropertiesImplValues, ManyNamesAreInMapOrderToo)
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

TEST(ZPropertiesImplValues, KeysAddedAgainAreLastInTheirBucket)
{
    // Two names of the same bucket.
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

TEST(ZPropertiesImplValues, NamesAreCopiedToAnOwningListAndBorrowedByAnyOther)
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

TEST(ZPropertiesImplValues, ListOfNamesIsUnchangedIfMemoryIsExhausted)
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

TEST(ZPropertiesImplValues, BorrowedNamesAreDeletedWithTheirKeyOrCategory)
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
    lendAndRemove();  // the memory for that stays allocated
    long const blocks = FailingAllocator::blocks();
    lendAndRemove();
    EXPECT_EQ(blocks, FailingAllocator::blocks());
    EXPECT_EQ(2, cache.keyCount("c"));
    EXPECT_EQ(1, cache.count());
}

TEST(ZPropertiesImplValues, ArgumentsMayBeStringsOfTheCache)
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

TEST(ZPropertiesImplValues, MemoryOfReplacedValuesIsReused)
{
    std::unique_ptr<ZSCFData_6_0> const data =
        parsed("# comment\n[c]\nk = a\nk = b\nl = c\n# m = 1\n\n[d]\nk = x\n[e]\n# n = 1\n\n");
    data->addLine("c", "new", "v", 0);  // builds the index of the section
    data->addLine("e", "new", "v", 0);
    data->delLine("e");  // and its templates
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
    // Strings in use were kept: the template is found, and the stanza can be revived.
    data->addLine("c", "m", "2", 0);
    data->set("d", "k", "y");
    EXPECT_EQ("# comment\n[c]\nk = a\nk = b\nl = c\nnew = v\n# m = 1\nm = 2\n\n[d]\nk = y\n",
              textOf(*data));
}

TEST(ZPropertiesImplValues, FailedCompactionIsNotAFailure)
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

TEST(ZPropertiesImplValues, CompactionTakesTimeInProportionToTheChanges)
{
    // Two million blank lines have no string, but scanning them takes time.
    auto const prepare = [](std::string const& before) {
        return [data = parsed(before + "[c]\nk = a\n"), value = std::string(100, 'v')] {
            for (int i = 0; i < 50000; ++i)
                data->set("c", "k", value.c_str());
        };
    };
    EXPECT_TRUE(takesAtMost(20, prepare(""), prepare(std::string(2000000, '\n'))));
}

TEST(ZPropertiesImplValues, ManyKeysAreAddedAndRemoved)
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

TEST(ZPropertiesImplValues, ListPrintsEveryCategoryInMapOrder)
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

TEST(ZPropertiesImplValues, ListReachesAWideStream)
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

TEST(ZPropertiesImplValues, ListOfAnEmptyCacheIsEmpty)
{
    char* chars = nullptr;
    size_t length = 0;
    FILE* const file = open_memstream(&chars, &length);
    Cache().list(file);
    fclose(file);
    EXPECT_STREQ("", chars);
    free(chars);
}

TEST(ZPropertiesImplValues, ListReportsAFailureThroughTheStream)
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
