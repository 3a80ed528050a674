#include <Z/ZPropertiesKVList.h>

#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "FailingAllocator.h"
#include "LocalText.h"

namespace {

std::string contentsOf(ZPropertiesKVList_6_0 const& list)
{
    std::string contents;
    for (int i = 0; i < list.getItemCount(); ++i)
        contents += std::string(list.getItemKey(i)->getChars()) + "=" +
                    list.getItemValue(i)->getChars() + ";";
    return contents;
}

void fill(ZPropertiesKVList_6_0& list)
{
    list.addItem(ZLCString_6_0("one"), ZLCString_6_0("1"));
    list.addItem(ZUTF8String_6_0("two"), ZLCConstString_6_0("2"));
    list.addItem(ZUTF8ConstString_6_0("one"), ZLCString_6_0(""));
}

}  // namespace

TEST(ZPropertiesKVList, ItemsKeepTheirOrder)
{
    ZPropertiesKVList_6_0 list(zPropLocalStrings);
    EXPECT_EQ(0, list.getItemCount());
    fill(list);
    EXPECT_EQ(3, list.getItemCount());
    EXPECT_EQ("one=1;two=2;one=;", contentsOf(list));
    list.clear();
    EXPECT_EQ(0, list.getItemCount());
    EXPECT_EQ(nullptr, list.getItemKey(0));
}

TEST(ZPropertiesKVList, StringTypeSelectsTheStringClass)
{
    ZPropertiesKVList_6_0 local(zPropLocalStrings);
    ZPropertiesKVList_6_0 utf8(zPropUTF8Strings);
    EXPECT_EQ(zPropLocalStrings, local.stringType());
    EXPECT_EQ(zPropUTF8Strings, utf8.stringType());
    fill(local);
    fill(utf8);
    for (int i = 0; i < 3; ++i) {
        EXPECT_NE(nullptr, dynamic_cast<ZLCString_6_0 const*>(local.getItemKey(i)));
        EXPECT_NE(nullptr, dynamic_cast<ZLCString_6_0 const*>(local.getItemValue(i)));
        EXPECT_NE(nullptr, dynamic_cast<ZUTF8String_6_0 const*>(utf8.getItemKey(i)));
        EXPECT_NE(nullptr, dynamic_cast<ZUTF8String_6_0 const*>(utf8.getItemValue(i)));
    }
    EXPECT_EQ(contentsOf(local), contentsOf(utf8));
}

TEST(ZPropertiesKVList, StringsOfTheOtherTypeAreConverted)
{
    LocalCharacter const character = localCharacter();
    std::string const localText = "caf" + character.local;
    std::string const utf8Text = "caf" + character.utf8;
    ZLCString_6_0 const local(localText.c_str());
    ZUTF8String_6_0 const utf8(utf8Text.c_str());
    for (bool const fromLocal : {true, false}) {
        SCOPED_TRACE(fromLocal);
        ZAbstractString_6_0 const& given =
            fromLocal ? static_cast<ZAbstractString_6_0 const&>(local) : utf8;
        ZPropertiesKVList_6_0 locals(zPropLocalStrings);
        locals.addItem(given, given);
        EXPECT_EQ(localText, locals.getItemKey(0)->getChars());
        EXPECT_EQ(localText, locals.getItemValue(0)->getChars());
        ZPropertiesKVList_6_0 utf8s(zPropUTF8Strings);
        utf8s.addItem(given, given);
        EXPECT_EQ(utf8Text, utf8s.getItemKey(0)->getChars());
        EXPECT_EQ(utf8Text, utf8s.getItemValue(0)->getChars());
    }
}

TEST(ZPropertiesKVList, OutOfRangeIndexReturnsNull)
{
    ZPropertiesKVList_6_0 list(zPropLocalStrings);
    fill(list);
    for (int const index : {-1, 3, 1000, -2147483647 - 1, 2147483647}) {
        EXPECT_EQ(nullptr, list.getItemKey(index));
        EXPECT_EQ(nullptr, list.getItemValue(index));
    }
}

TEST(ZPropertiesKVList, InvalidStringTypesThrow)
{
    for (int const type : {1, 7, -1}) {
        try {
            ZPropertiesKVList_6_0 const list(static_cast<ZPropertyStringType>(type));
            ADD_FAILURE() << type;
        } catch (ZInvalidParameterException_6_0 const& e) {
            EXPECT_EQ(22u, e.messageNumber());
            EXPECT_STREQ("src/Z/ZPropertiesKVList", e.who());
            EXPECT_EQ(41u, e.where());
        }
    }
}

TEST(ZPropertiesKVList, CopiesAreIndependent)
{
    ZPropertiesKVList_6_0 list(zPropUTF8Strings);
    fill(list);
    ZPropertiesKVList_6_0 const copy(list);
    std::unique_ptr<ZPropertiesKVList_6_0> const clone(
        static_cast<ZPropertiesKVList_6_0*>(list.clone()));
    ZPropertiesKVList_6_0 assigned(zPropLocalStrings);
    assigned.addItem(ZLCString_6_0("old"), ZLCString_6_0("item"));
    assigned = list;
    assigned = *&assigned;
    list.clear();
    for (ZPropertiesKVList_6_0 const* other :
         {&copy, static_cast<ZPropertiesKVList_6_0 const*>(clone.get()),
          static_cast<ZPropertiesKVList_6_0 const*>(&assigned)}) {
        EXPECT_EQ("one=1;two=2;one=;", contentsOf(*other));
        EXPECT_EQ(zPropUTF8Strings, other->stringType());
        EXPECT_NE(nullptr, dynamic_cast<ZUTF8String_6_0 const*>(other->getItemKey(0)));
    }
    assigned = list;
    EXPECT_EQ(0, assigned.getItemCount());
}

TEST(ZPropertiesKVList, AssigningAListOfAnyLengthReplacesAllItems)
{
    for (int const before : {0, 1, 2, 5}) {
        for (int const after : {0, 1, 2, 5}) {
            SCOPED_TRACE(std::to_string(before) + " to " + std::to_string(after));
            ZPropertiesKVList_6_0 target(zPropLocalStrings);
            for (int i = 0; i < before; ++i)
                target.addItem(ZLCString_6_0("old"), ZLCString_6_0(i));
            ZPropertiesKVList_6_0 source(zPropLocalStrings);
            for (int i = 0; i < after; ++i)
                source.addItem(ZLCString_6_0("new"), ZLCString_6_0(i));
            target = source;
            EXPECT_EQ(contentsOf(source), contentsOf(target));
        }
    }
}

TEST(ZPropertiesKVList, EntriesCopyTheirStringsAndCompareByKeyThenValue)
{
    ZLCString_6_0 key("key");
    ZKVEntry_6_0 const entry(key, ZLCString_6_0("value"), zPropLocalStrings);
    key = "changed";
    EXPECT_STREQ("key", entry.key().getChars());
    EXPECT_STREQ("value", entry.value().getChars());
    std::unique_ptr<ZObject_6_0> const clone(entry.clone());
    EXPECT_TRUE(entry.equals(*clone));
    ZKVEntry_6_0 other(ZLCString_6_0("key"), ZLCString_6_0("value2"), zPropLocalStrings);
    EXPECT_LT(entry.compare(other), 0);
    EXPECT_GT(other.compare(entry), 0);
    EXPECT_LT(
        entry.compare(ZKVEntry_6_0(ZLCString_6_0("kez"), ZLCString_6_0(""), zPropLocalStrings)), 0);
    EXPECT_NE(0, entry.compare(key));
    other = entry;
    EXPECT_TRUE(other.equals(entry));
    other = *&other;
    EXPECT_TRUE(other.equals(entry));
}

TEST(ZPropertiesKVList, FailedAllocationsLeaveTheListUnchanged)
{
    for (ZPropertyStringType const type : {zPropLocalStrings, zPropUTF8Strings}) {
        ZLCString_6_0 const longText(std::string(500, 'x').c_str());
        ZPropertiesKVList_6_0 list(type);
        fill(list);
        auto const same = [&] { EXPECT_EQ("one=1;two=2;one=;", contentsOf(list)); };
        failEachAllocation([&] { ZPropertiesKVList_6_0 const copy(list); }, same);
        failEachAllocation([&] { delete list.clone(); }, same);
        ZPropertiesKVList_6_0 other(type);
        for (int i = 0; i < 5; ++i)
            other.addItem(longText, longText);
        // A failed addItem() or assignment may leave the list with more capacity, so leaks are
        // counted only after the list is destroyed.
        for (auto const &change :
             {+[](ZPropertiesKVList_6_0&to, ZPropertiesKVList_6_0 const&from) {
                  to.addItem(*from.getItemKey(0), *from.getItemValue(0));
              },
              +[](ZPropertiesKVList_6_0&to, ZPropertiesKVList_6_0 const&from) { to = from; }}) {
            long const blocks = FailingAllocator::blocks();
            {
                ZPropertiesKVList_6_0 target(list);
                for (unsigned long n = 1;; ++n) {
                    FailingAllocator::failAt(n);
                    try {
                        change(target, other);
                    } catch (ZOutOfMemoryException_6_0 const&) {
                    }
                    if (!FailingAllocator::stop())
                        break;
                    EXPECT_EQ("one=1;two=2;one=;", contentsOf(target));
                }
                EXPECT_NE("one=1;two=2;one=;", contentsOf(target));
            }
            EXPECT_EQ(blocks, FailingAllocator::blocks());
        }
        failEachAllocation([&] { ZPropertiesKVList_6_0 const made(type); }, same);
        // The 11th item exceeds the list's initial capacity.
        while (other.getItemCount() < 10)
            other.addItem(longText, longText);
        failEachAllocation([&] { other.addItem(longText, longText); },
                           [&] { EXPECT_EQ(10, other.getItemCount()); });
        EXPECT_EQ(11, other.getItemCount());
    }
}
