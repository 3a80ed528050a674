// Owning maps of strings, which are stored in cells of the table.
#include <Z/ZArrayList.h>
#include <Z/ZHashKeyMap.h>
#include <Z/ZLCString.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <typeinfo>
#include <vector>

#include "Containers.h"
#include "EachAllocation.h"
#include "FailingAllocator.h"
#include "Sanitizers.h"

namespace {

// A caller's string, which counts its clones.
class Name : public ZLCString_6_0 {
public:
    explicit Name(char const* text, int generation = 0)
        : ZLCString_6_0(text), generation_(generation)
    {
    }
    Name* clone() const override { return new Name(getChars(), generation_ + 1); }
    int generation() const { return generation_; }

private:
    int const generation_;
};

ZLCString_6_0 const& stringOf(ZObject_6_0 const* obj)
{
    return dynamic_cast<ZLCString_6_0 const&>(*obj);
}

size_t heapInUse()
{
    struct mallinfo2 const info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void put(ZKeyMap_6_0& map, std::string const& key, std::string const& value)
{
    ZLCString_6_0 const keyString(key.c_str()), valueString(value.c_str());
    map.putEntry(&keyString, &valueString);
}

// The text of the value of `key`; "-" for a null value, "" if the key is not found.
std::string get(ZKeyMap_6_0 const& map, std::string const& key)
{
    ZLCString_6_0 const keyString(key.c_str());
    ZObject_6_0 const* const value = map.getEntry(&keyString);
    return value != nullptr ? stringOf(value).getChars() : map.contains(&keyString) ? "-" : "";
}

std::vector<std::string> keysOf(ZKeyMap_6_0 const& map)
{
    ZArrayList_6_0 list(1, kBorrows);
    map.listKeys(list);
    std::vector<std::string> keys;
    for (unsigned i = 0; i < list.size(); ++i)
        keys.push_back(stringOf(list.get(i)).getChars());
    return keys;
}

}  // namespace

TEST(ZHashKeyMapStrings, StoresCopiesOfTheSameClass)
{
    ZHashKeyMap_6_0 map(10, kOwns);
    ZLCString_6_0 local("local");
    ZUTF8String_6_0 utf8("utf8");
    local.setCapacity(300);
    map.putEntry(&local, &utf8);
    map.putEntry(&utf8, &local);

    ZObject_6_0* const valueOfLocal = map.getEntry(&local);
    ZObject_6_0* const valueOfUtf8 = map.getEntry(&utf8);
    ASSERT_NE(nullptr, valueOfLocal);
    ASSERT_NE(nullptr, valueOfUtf8);
    EXPECT_NE(&utf8, valueOfLocal);
    EXPECT_NE(&local, valueOfUtf8);
    EXPECT_EQ(typeid(ZUTF8String_6_0), typeid(*valueOfLocal));
    EXPECT_EQ(typeid(ZLCString_6_0), typeid(*valueOfUtf8));
    std::unique_ptr<ZLCString_6_0> const clone(local.clone());
    std::unique_ptr<ZLCString_6_0> const cloneOfClone(clone->clone());
    EXPECT_EQ(cloneOfClone->getCapacity(), stringOf(valueOfUtf8).getCapacity());

    local = "changed";
    EXPECT_STREQ("local", stringOf(valueOfUtf8).getChars());
}

TEST(ZHashKeyMapStrings, ACallersStringClassIsClonedTwice)
{
    ZHashKeyMap_6_0 map(10, kOwns);
    Name const name("name");
    ZLCString_6_0 const text("text");
    map.putEntry(&name, &text);
    map.putEntry(&text, &name);
    ASSERT_NE(nullptr, map.getEntry(&text));
    EXPECT_EQ(2, dynamic_cast<Name&>(*map.getEntry(&text)).generation());
    ZArrayList_6_0 keys(1, kBorrows);
    map.listKeys(keys);
    ASSERT_EQ(2u, keys.size());
    Name const* const first = dynamic_cast<Name const*>(keys.get(0));
    Name const* const stored = first != nullptr ? first : dynamic_cast<Name const*>(keys.get(1));
    ASSERT_NE(nullptr, stored);
    EXPECT_EQ(2, stored->generation());
}

TEST(ZHashKeyMapStrings, AStoredValueCanGrow)
{
    std::string const large(500, 'x');
    ZHashKeyMap_6_0 map(0, kOwns);
    for (int i = 0; i < 100; ++i)
        put(map, "key" + std::to_string(i), "value");
    for (int i = 0; i < 100; i += 2) {
        ZLCString_6_0 const key(("key" + std::to_string(i)).c_str());
        dynamic_cast<ZLCString_6_0&>(*map.getEntry(&key)).append(large.c_str());
    }
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(i % 2 == 0 ? "value" + large : "value", get(map, "key" + std::to_string(i)));
    for (int i = 0; i < 100; i += 3) {
        ZLCString_6_0 const key(("key" + std::to_string(i)).c_str());
        map.removeEntry(&key);
    }
    put(map, "key2", "short");
    EXPECT_EQ("short", get(map, "key2"));
    EXPECT_EQ("value" + large, get(map, "key4"));
    ZHashKeyMap_6_0 const copy(map);
    map.removeAll();
    EXPECT_EQ(0u, map.size());
    EXPECT_EQ("value" + large, get(copy, "key4"));
}

TEST(ZHashKeyMapStrings, ObjectsKeepTheirAddresses)
{
    constexpr unsigned kCount = 40000;
    ZHashKeyMap_6_0 map(kCount, kOwns);
    std::vector<ZObject_6_0 const*> values;
    for (unsigned i = 0; i < kCount; ++i) {
        std::string const text = std::to_string(i);
        put(map, text, text + "!");
        ZLCString_6_0 const key(text.c_str());
        values.push_back(map.getEntry(&key));
    }
    for (unsigned i = 0; i < kCount; ++i) {
        std::string const text = std::to_string(i);
        ZLCString_6_0 const key(text.c_str());
        ASSERT_EQ(values[i], map.getEntry(&key));
        ASSERT_EQ(text + "!", stringOf(values[i]).getChars());
    }
}

TEST(ZHashKeyMapStrings, AnEmptyMapKeepsNoLargeBlocks)
{
    constexpr int kCount = 6000;
    std::vector<std::string> texts;
    for (int i = 0; i < kCount; ++i)
        texts.push_back(std::to_string(i));
    ZHashKeyMap_6_0 map(0, kOwns);
    put(map, "first", "value");
    put(map, "second", "value");
    long const before = FailingAllocator::blocks();
    for (int round = 0; round < 3; ++round) {
        for (std::string const& text : texts)
            put(map, text, text);
        EXPECT_LT(before, FailingAllocator::blocks());
        for (std::string const& key : keysOf(map)) {
            ZLCString_6_0 const keyString(key.c_str());
            map.removeEntry(&keyString);
        }
        ASSERT_EQ(0u, map.size());
        put(map, "first", "value");
        EXPECT_GE(before + 2, FailingAllocator::blocks());  // the index, and the table of blocks
    }
    EXPECT_EQ("value", get(map, "first"));
}

TEST(ZHashKeyMapStrings, AStoredKeyAndValueCanBePutAgain)
{
    ZHashKeyMap_6_0 map(0, kOwns);
    put(map, "a", "first");
    put(map, "b", "second");
    ZArrayList_6_0 keys(1, kBorrows);
    map.listKeys(keys);
    ZLCString_6_0 const a("a"), b("b");
    map.putEntry(&a, map.getEntry(&a));
    map.putEntry(&a, map.getEntry(&b));
    EXPECT_EQ("second", get(map, "a"));
    map.putEntry(keys.get(1), keys.get(1));
    EXPECT_EQ(2u, map.size());
}

TEST(ZHashKeyMapStrings, SmallMapNeedsAtMostOneAndAHalfTimesTheMemoryOfSeparateObjects)
{
    if (kHasSanitizer)
        GTEST_SKIP() << "the allocator of a sanitizer has no mallinfo2()";
    constexpr int kMaps = 200;  // a mean, because the C library counts some free blocks
    for (unsigned entries : {1u, 2u, 3u, 4u, 5u, 9u, 17u, 33u, 65u, 100u, 513u}) {
        SCOPED_TRACE(entries);
        std::vector<std::unique_ptr<ZHashKeyMap_6_0>> maps;
        std::vector<std::unique_ptr<ZObject_6_0>> objects;
        maps.reserve(2 * kMaps);
        objects.reserve(size_t{2} * kMaps * entries);
        auto const bytesOf = [&](bool owns) {
            size_t const before = heapInUse();
            for (int i = 0; i < kMaps; ++i) {
                maps.push_back(std::make_unique<ZHashKeyMap_6_0>(10, owns ? kOwns : kBorrows));
                for (unsigned entry = 0; entry < entries; ++entry) {
                    ZLCString_6_0 const key(std::to_string(entry).c_str());
                    ZLCString_6_0 const value("value");
                    if (owns) {
                        maps.back()->putEntry(&key, &value);
                        continue;
                    }
                    objects.emplace_back(key.clone());
                    objects.emplace_back(value.clone());
                    maps.back()->putEntry((objects.end() - 2)->get(), objects.back().get());
                }
            }
            return heapInUse() - before;
        };
        size_t const separate = bytesOf(false);
        size_t const inCells = bytesOf(true);
        EXPECT_LE(inCells, separate * 3 / 2) << separate;
    }
}

TEST(ZHashKeyMapStrings, FailedAllocationLeavesTheMapUnchanged)
{
    ZHashKeyMap_6_0 map(0, kOwns);
    for (int i = 0; i < 70; ++i) {
        std::vector<std::string> const keys = keysOf(map);
        std::string const text = std::to_string(i) + std::string(i % 3 == 0 ? 200 : 1, 'k');
        ZLCString_6_0 const key(text.c_str());
        ZLCString_6_0 const value(std::string(i % 2 == 0 ? 300 : 2, 'v').c_str());
        // A failed call may keep the memory of the cells for the next one.
        failEachAllocationOfSome([&] { map.putEntry(&key, &value); },
                                 [&] { map.removeEntry(&key); },
                                 [&] { EXPECT_EQ(keys, keysOf(map)); }, false);
        map.putEntry(&key, &value);
        failEachAllocation([&] { map.putEntry(&key, &key); },
                           [&] { EXPECT_EQ(value.getChars(), get(map, text)); });
        ASSERT_EQ(text, get(map, text));
    }
    std::vector<std::string> const keys = keysOf(map);
    failEachAllocation([&] { delete map.clone(); }, [&] { EXPECT_EQ(keys, keysOf(map)); });
}

TEST(ZHashKeyMapStrings, AgreesWithAStdMapOverRandomOperations)
{
    constexpr unsigned kSeed = 32013;
    std::cout << "seed " << kSeed << "\n";
    std::mt19937 random(kSeed);
    for (unsigned capacity : {0u, 100u, 3000u}) {
        ZHashKeyMap_6_0 map(capacity, kOwns);
        std::map<std::string, std::string> model;
        for (int step = 0; step < 20000; ++step) {
            unsigned const number = random() % 1500;
            std::string const key =
                std::to_string(number) + std::string(number % 7 == 0 ? 120 : 0, 'k');
            ZLCString_6_0 const keyString(key.c_str());
            switch (random() % 8) {
                case 0:
                case 1:
                case 2: {
                    std::string const value(random() % 9 == 0 ? 200 : random() % 20 + 1, 'v');
                    put(map, key, value);
                    model[key] = value;
                    break;
                }
                case 3:
                    map.putEntry(&keyString, nullptr);
                    model[key] = "-";
                    break;
                case 4: {
                    Name const value("a caller's");  // not in a cell
                    map.putEntry(&keyString, &value);
                    model[key] = value.getChars();
                    break;
                }
                case 5:
                case 6:
                    map.removeEntry(&keyString);
                    model.erase(key);
                    break;
                default:
                    if (random() % 500 == 0) {
                        map.removeAll();
                        model.clear();
                    } else if (random() % 200 == 0) {
                        map = ZHashKeyMap_6_0(map);
                    }
            }
            auto const at = model.find(key);
            ASSERT_EQ(at == model.end() ? "" : at->second, get(map, key));
            ASSERT_EQ(model.size(), map.size());
        }
        for (std::string const& key : keysOf(map))
            ASSERT_EQ(model.at(key), get(map, key));
    }
}
