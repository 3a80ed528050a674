// Hostile callers: arguments that are strings of the store itself, files and companions that other
// programs changed, and the limits of a line.
#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesKVList.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZUTF8String.h>
#include <Z/zproperties_c.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "StanzaStore.h"

namespace {

using Store = ZStanzaFileProperties_6_0;

std::string const kLong(3000, 'x');  // too long to be stored inside a string object

}  // namespace

using StanzaHostile = StanzaStoreTest;

// ---- Strings of the store itself ---------------------------------------------------------------

TEST_F(StanzaHostile, DefaultMayBeTheStringOfTheReceiver)
{
    load("[s]\nempty =\n");
    ZLCString_6_0 local(kLong.c_str());
    store_.getValue("s", "none", local, 0, local.getChars());
    EXPECT_EQ(kLong, local.getChars());
    ZUTF8String_6_0 unicode(kLong.c_str());
    store_.getValue("s", "empty", unicode, 0, unicode.getChars());
    EXPECT_EQ(kLong, unicode.getChars());
}

TEST_F(StanzaHostile, NamesMayBeTheStringOfTheReceiver)
{
    load("[s]\nk = " + kLong + "\n");
    ZLCString_6_0 name("s");
    store_.getValue(name.getChars(), "k", name, 0, nullptr);
    EXPECT_EQ(kLong, name.getChars());
    name = ZLCString_6_0("k");
    store_.getValue("s", name.getChars(), name, 1, nullptr);
    EXPECT_EQ(kLong, name.getChars());

    ZArrayList_6_0 list(1, 1);
    list.addNoCopy(new ZLCString_6_0("s"));
    list.addNoCopy(new ZLCString_6_0("k"));
    store_.getValues(static_cast<ZLCString_6_0*>(list.get(0))->getChars(),
                     static_cast<ZLCString_6_0*>(list.get(1))->getChars(), list, zPropLocalStrings);
    ASSERT_EQ(1u, list.size());
    EXPECT_EQ(kLong, static_cast<ZLCString_6_0*>(list.get(0))->getChars());
}

TEST_F(StanzaHostile, ValueMayBeAValueOfTheStore)
{
    load("[s]\nk = " + kLong + "1\nk = " + kLong + "2\n");
    {
        ZStanzaIterator_6_0 keys(store_, "s");
        keys.nextEntry();
        store_.setValue("s", keys.entryName(), keys.entryValue(0));
        EXPECT_EQ(kLong + "1,", valuesOf(store_, "s", "k"));
        store_.setValue(keys.entryName(), keys.entryName(), keys.entryValue(0), 1);
        store_.addValue("s", "other", keys.entryValue(0), 0);
        store_.addEntryComment("s", keys.entryName(), keys.entryValue(0));
        store_.deleteKey("s", keys.entryName());
        EXPECT_STREQ("k", keys.entryName());
    }
    EXPECT_EQ(kLong + "1,", valuesOf(store_, "k", "k"));
    EXPECT_EQ(kLong + "1,", valuesOf(store_, "s", "other"));
    EXPECT_EQ(0, store_.exists("s", "k"));

    char const* text;
    {
        ZStanzaValueIterator_6_0 values(store_, "s", "other", zPropLocalStrings, zPropIterAny);
        values.nextValue(text);
        values.changeValue(text);
        EXPECT_EQ(kLong + "1,", valuesOf(store_, "s", "other"));
    }
    {
        ZStanzaValueIterator_6_0 values(store_, "s", "other", zPropLocalStrings, zPropIterAny);
        values.nextValue(text);
        values.addValue(text);
        EXPECT_EQ(kLong + "1," + kLong + "1,", valuesOf(store_, "s", "other"));
    }
    {
        ZStanzaValueIterator_6_0 values(store_, "s", "other", zPropUTF8Strings, zPropIterAny);
        values.nextValue(text);
        values.changeValue(text);
        values.addValue(text);
        values.addValue(text + 1);
        EXPECT_EQ(kLong + "1," + kLong + "1," + kLong.substr(1) + "1," + kLong + "1,",
                  valuesOf(store_, "s", "other"));
    }
}

TEST_F(StanzaHostile, PathMayBeTheFileNameOfTheStore)
{
    std::string const path = load("[s]\nk = v\n");
    store_.reload(store_.fileName().getChars());
    store_.store(store_.fileName().getChars());
    EXPECT_EQ(path, store_.fileName().getChars());
    EXPECT_EQ("[s]\nk = v\n", directory_.read("conf"));
}

TEST_F(StanzaHostile, ListOfItemsMayBeGivenItsOwnItems)
{
    ZPropertiesKVList_6_0 list(zPropLocalStrings);
    list.addItem(ZLCString_6_0(kLong.c_str()), ZLCString_6_0("v"));
    for (int i = 0; i < 40; ++i)
        list.addItem(*list.getItemKey(0), *list.getItemValue(i));
    ZPropertiesKVList_6_0& same = list;
    list = same;
    ASSERT_EQ(41, list.getItemCount());
    EXPECT_EQ(kLong, list.getItemKey(40)->getChars());
    EXPECT_STREQ("v", list.getItemValue(40)->getChars());
    EXPECT_EQ(nullptr, list.getItemKey(41));
    EXPECT_EQ(nullptr, list.getItemKey(-1));
    EXPECT_EQ(nullptr, list.getItemValue(INT_MIN));
    EXPECT_EQ(nullptr, list.getItemValue(INT_MAX));
    store_.addStanza("s");
    store_.getStanza("s", list);
    EXPECT_EQ(0, list.getItemCount());
}

// ---- Companions that differ from their file --------------------------------------------------

TEST_F(StanzaHostile, ObfuscatedKeyGetsALineWhenItsValueBecomesPlain)
{
    load("[s]\na = 1\n[t]\nk = other\n");
    store_.setValue("s", "k", "secret", 1);
    store_.store(nullptr);
    Store second(directory_.at("conf").c_str(), 1);
    EXPECT_EQ(1, second.isObfuscated("s", "k"));
    second.setValue("s", "k", "");
    second.setValue("s", "k", "plain");
    second.store(nullptr);
    EXPECT_EQ("[s]\na = 1\nk = plain\n[t]\nk = other\n", directory_.read("conf").substr(0, 34));
    EXPECT_EQ("plain,", valuesOf(Store(directory_.at("conf").c_str(), 1), "s", "k"));
    EXPECT_EQ("conf", directory_.names());
}

TEST_F(StanzaHostile, DeletingAnObfuscatedKeyRemovesNoOtherLine)
{
    load("[s]\na = 1\n\n[t]\nk = other\n");
    store_.setValue("s", "k", "secret", 1);
    store_.store(nullptr);
    Store second(directory_.at("conf").c_str(), 1);
    second.deleteKey("s", "k");
    second.store(nullptr);
    EXPECT_EQ("other,", valuesOf(Store(directory_.at("conf").c_str(), 1), "t", "k"));
    EXPECT_EQ("conf", directory_.names());
}

TEST_F(StanzaHostile, CommentOnAnObfuscatedKeyStaysInItsStanza)
{
    load("[s]\na = 1\n[t]\nk = other\n");
    store_.setValue("s", "k", "secret", 1);
    store_.store(nullptr);
    Store second(directory_.at("conf").c_str(), 1);
    second.addEntryComment("s", "k", "note");
    second.store(nullptr);
    std::string const text = directory_.read("conf");
    if (text.find("#note") != std::string::npos) {
        EXPECT_LT(text.find("#note"), text.find("[t]")) << text;
    }
    EXPECT_EQ("secret,", valuesOf(Store(directory_.at("conf").c_str(), 1), "s", "k"));
    EXPECT_EQ("other,", valuesOf(Store(directory_.at("conf").c_str(), 1), "t", "k"));
}

TEST_F(StanzaHostile, StanzaOfOnlyTheCompanionLosesNoPlainValue)
{
    load("[a]\nx = 1\n");
    store_.setValue("s", "k", "secret", 1);
    store_.store(nullptr);
    directory_.write(
        "conf", "[a]\nx = 1\n[configuration-database]\nfile = " + directory_.at("conf.obf") + "\n");
    Store second(directory_.at("conf").c_str(), 1);
    EXPECT_EQ(1, second.exists("s", "k"));
    second.setValue("s", "plain", "kept");
    second.setValue("a", "y", "2");
    second.store(nullptr);
    Store third(directory_.at("conf").c_str(), 1);
    EXPECT_EQ("kept,", valuesOf(third, "s", "plain")) << directory_.read("conf");
    EXPECT_EQ("secret,", valuesOf(third, "s", "k"));
    EXPECT_EQ("2,", valuesOf(third, "a", "y"));
    EXPECT_EQ(0, third.exists("a", "plain"));
}

TEST_F(StanzaHostile, StanzaOfOnlyTheCompanionAcceptsComments)
{
    load("[a]\nx = 1\n");
    store_.setValue("s", "k", "secret", 1);
    store_.store(nullptr);
    directory_.write(
        "conf", "[a]\nx = 1\n[configuration-database]\nfile = " + directory_.at("conf.obf") + "\n");
    Store second(directory_.at("conf").c_str(), 1);
    second.addStanzaComment("s", "note");
    second.addEntryComment("s", "k", "entry");
    second.addEntryComment("s", "new", "entry");
    second.addStanza("s");
    second.store(nullptr);
    EXPECT_EQ("secret,", valuesOf(Store(directory_.at("conf").c_str(), 1), "s", "k"));
    second.deleteStanza("s");
    second.store(nullptr);
    Store third(directory_.at("conf").c_str(), 1);
    EXPECT_EQ(0, third.exists("s"));
    EXPECT_EQ("1,", valuesOf(third, "a", "x"));
}

TEST_F(StanzaHostile, PlainAndObfuscatedValuesOfOneKeyAreBothKept)
{
    load("[s]\nk = x\n");
    store_.setValue("s", "k", "");
    store_.setValue("s", "k", "secret", 1);
    store_.store(nullptr);
    std::string text = directory_.read("conf");
    text.insert(4, "k = plain\n");
    directory_.write("conf", text);
    Store second(directory_.at("conf").c_str(), 1);
    EXPECT_EQ("plain,", valuesOf(second, "s", "k"));
    EXPECT_EQ(1, second.numValues("s", "k"));
    second.store(nullptr);
    second.reload(nullptr);
    EXPECT_EQ("plain,", valuesOf(second, "s", "k"));
    EXPECT_EQ(1, second.isObfuscated("s", "k"));
}

// ---- Limits of a line --------------------------------------------------------------------------

TEST_F(StanzaHostile, LongestStanzaNameIsReadBack)
{
    load("");
    std::string const name(8188, 'n');
    store_.addStanza(name.c_str());
    EXPECT_THROW(store_.addStanza((name + "n").c_str()), ZInvalidParameterException_6_0);
    EXPECT_THROW(store_.setValue((name + "n").c_str(), "k", "v"), ZInvalidParameterException_6_0);
    EXPECT_THROW(store_.addEntryComment((name + "n").c_str(), "k", "v"),
                 ZInvalidParameterException_6_0);
    EXPECT_EQ(1, store_.count());
    store_.setValue(name.c_str(), "k", "v");
    EXPECT_EQ("v,", readBack(name.c_str(), "k"));
}

TEST_F(StanzaHostile, LongestKeyIsReadBackWithoutAValue)
{
    load("");
    std::string const key(8188, 'k');
    store_.setValue("s", key.c_str(), "");
    EXPECT_THROW(store_.setValue("s", (key + "k").c_str(), ""), ZInvalidParameterException_6_0);
    EXPECT_THROW(store_.setValue("s", key.c_str(), "v"), ZInvalidParameterException_6_0);
    EXPECT_THROW(store_.addEntryComment("s", (key + "k").c_str(), "c"),
                 ZInvalidParameterException_6_0);
    store_.store(nullptr);
    EXPECT_EQ(1, Store(directory_.at("conf").c_str(), 1).exists("s", key.c_str()));
}

TEST_F(StanzaHostile, ObfuscatedKeyThatLosesItsValueIsStillReadBack)
{
    load("[s]\n");
    std::string const key(8189, 'k');
    try {
        store_.setValue("s", key.c_str(), "secret", 1);
    } catch (ZInvalidParameterException_6_0 const&) {
        EXPECT_EQ(0, store_.exists("s", key.c_str()));
        return;
    }
    EXPECT_THROW(store_.setValue("s", key.c_str(), "", 1), ZInvalidParameterException_6_0);
}

TEST_F(StanzaHostile, LongestValueIsReadBack)
{
    load("[s]\n");
    std::string const value(8190 - 4, 'v');
    store_.setValue("s", "k", value.c_str());
    store_.addValue("s", "k", value.substr(1).c_str(), 0);
    EXPECT_THROW(store_.addValue("s", "k", (value + "v").c_str(), 0),
                 ZInvalidParameterException_6_0);
    EXPECT_EQ(value + "," + value.substr(1) + ",", readBack("s", "k"));
}

TEST_F(StanzaHostile, LongestLinesThatWereReadAreReadBack)
{
    // "k=" and a value: with a space on each side of "=" the longer lines would be split.
    for (size_t length = 8180; length <= 8188; ++length) {
        SCOPED_TRACE(length);
        std::string const value(length, 'v');
        store_.reload(directory_.write("conf", "[s]\nk=" + value + "\n").c_str());
        std::string const separator = length <= 8186 ? " = " : "=";
        EXPECT_EQ("[s]\nk" + separator + value + "\n", stored());
        EXPECT_EQ(value + ",", readBack("s", "k"));
    }
}

TEST_F(StanzaHostile, StrangeNamesAreReadBack)
{
    load("");
    for (char const* stanza : {"[a", " a ", "#", "=", "\t", "a=b"}) {
        for (char const* key : {"a b", "]", "a[", "a#", "k\tk"}) {
            store_.setValue(stanza, key, "= # [v] =");
            EXPECT_EQ("= # [v] =,", readBack(stanza, key)) << stanza << " " << key;
        }
    }
}

TEST_F(StanzaHostile, StanzaWithoutANameSurvives)
{
    char const* const kText = "[]\nk = v\n\n[s]\nk = w\n";
    load(kText);
    EXPECT_EQ(2, store_.count());
    EXPECT_EQ(kText, stored());
    EXPECT_THROW(store_.exists("", "k"), ZInvalidParameterException_6_0);
}

// ---- Template comments -------------------------------------------------------------------------

TEST_F(StanzaHostile, TemplateCommentNeedsItsBlankLine)
{
    struct Row {
        char const* before;
        char const* after;
    };
    for (Row const& row : std::vector<Row>{
             {"[s]\n#k=1\n\na = 1\n\n[t]\n", "[s]\n#k=1\nk = v\n\na = 1\n\n[t]\n"},
             {"[s]\n#  k  =1\na = 1\n\nb = 2\n[t]\n",
              "[s]\n#  k  =1\na = 1\nk = v\n\nb = 2\n[t]\n"},
             {"[s]\na = 1\n#k=1\n[t]\n", "[s]\na = 1\nk = v\n#k=1\n[t]\n"},
             {"[s]\na = 1\n#k\t=1\n\n[t]\n", "[s]\na = 1\nk = v\n#k\t=1\n\n[t]\n"},
             {"[s]\na = 1\n#kk=1\n\n[t]\n", "[s]\na = 1\nk = v\n#kk=1\n\n[t]\n"},
             {"[s]\na = 1\n##k=1\n\n[t]\n", "[s]\na = 1\nk = v\n##k=1\n\n[t]\n"},
             {"[s]\n\n#k=1\n# more\n\nb = 1\n", "[s]\n\n#k=1\n# more\nk = v\n\nb = 1\n"},
             {"[s]\n\na = 1\n[t]\n#k=1\n\n", "[s]\n\na = 1\nk = v\n[t]\n#k=1\n\n"},
             {"[s]\n\n\n", "[s]\nk = v\n\n\n"},
             {"#k=1\n\n[s]\n", "#k=1\n\n[s]\nk = v\n"},
         }) {
        Store store(directory_.write("conf", row.before).c_str(), 1);
        store.setValue("s", "k", "v");
        store.store(nullptr);
        EXPECT_EQ(row.after, directory_.read("conf")) << row.before;
        store.deleteKey("s", "k");
        store.store(nullptr);
        EXPECT_EQ(row.before, directory_.read("conf"));
        store.setValue("s", "k", "v");
        store.store(nullptr);
        EXPECT_EQ(row.after, directory_.read("conf"));
    }
}

TEST_F(StanzaHostile, CommentsKeepTheirBlankLines)
{
    load("[s]\nk = v\n[t]\n");
    store_.addStanzaComment("t", "one");
    store_.addEntryComment("s", "k", "two");
    store_.addEntryComment("s", "k", "three");
    EXPECT_EQ("[s]\n\n#two\n#three\nk = v\n\n#one\n[t]\n", stored());
    store_.addFileComment("#four");
    store_.addFileComment("five");
    store_.addStanzaComment("none", "nowhere");
    EXPECT_EQ("#four\n#five\n\n[s]\n\n#two\n#three\nk = v\n\n#one\n[t]\n", stored());
    std::string const text = stored();
    store_.reload(nullptr);
    EXPECT_EQ(text, stored());
}

TEST_F(StanzaHostile, TwoStoresOfAFileEachWriteAllTheirValues)
{
    std::string const path = load("[s]\nk = v\n");
    Store other(path.c_str(), 1);
    other.setValue("s", "k", "secret only in part");
    other.setValue("s", "o", "hidden", 1);
    other.store(nullptr);
    EXPECT_EQ("v,", valuesOf(store_, "s", "k"));
    store_.reload(nullptr);
    EXPECT_EQ("hidden,", valuesOf(store_, "s", "o"));
    store_.deleteKey("s", "o");
    store_.store(nullptr);
    EXPECT_EQ("conf", directory_.names());
    other.reload(nullptr);
    EXPECT_EQ(0, other.exists("s", "o"));
    EXPECT_EQ(0, other.exists("configuration-database", "file"));
}

// ---- Iterators ---------------------------------------------------------------------------------

TEST_F(StanzaHostile, IteratorIndexOfEverySize)
{
    load("[s]\nk = a\n");
    ZStanzaIterator_6_0 keys(store_, "s");
    EXPECT_THROW(keys.entryValue(-1), ZPropertiesIteratorException_6_0);
    keys.nextEntry();
    EXPECT_THROW(keys.entryValue(-1), ZInvalidParameterException_6_0);
    EXPECT_THROW(keys.entryValue(INT_MIN), ZInvalidParameterException_6_0);
    EXPECT_THROW(keys.entryValue(INT_MAX), ZInvalidParameterException_6_0);
    EXPECT_STREQ("a", keys.entryValue(0));
}

TEST_F(StanzaHostile, RemovingTheFirstObfuscatedValueRemovesAll)
{
    load("[s]\n");
    store_.setValue("s", "k", "1", 1);
    store_.addValue("s", "k", "2", 1);
    store_.addValue("s", "k", "3", 1);
    NotedChanges observer;
    store_.addObserver(&observer);
    {
        ZStanzaValueIterator_6_0 values(store_, "s", "k", zPropLocalStrings, zPropIterAny);
        values.nextValue();
        values.nextValue();
        values.removeValue();
        EXPECT_EQ("1,3,", valuesOf(store_, "s", "k"));
        EXPECT_EQ(1, values.isValid());
        values.removeValue();
        EXPECT_EQ("", valuesOf(store_, "s", "k"));
        EXPECT_EQ(0, values.isValid());
        EXPECT_EQ(0, values.hasMore());
        EXPECT_EQ(0, values.valueCount());
        EXPECT_THROW(values.removeValue(), ZPropertiesIteratorException_6_0);
        EXPECT_THROW(values.changeValue("x"), ZPropertiesIteratorException_6_0);
        EXPECT_EQ("", observer.log);
        values.addValue("again");
        EXPECT_EQ("again,", valuesOf(store_, "s", "k"));
        EXPECT_EQ(1, store_.isObfuscated("s", "k"));
    }
    EXPECT_EQ("2[s]k 2[s]k ", observer.log);
    EXPECT_EQ(1, store_.exists("s", "k"));
    store_.deleteObservers();
}

TEST_F(StanzaHostile, RemovingEveryPlainValueLeavesTheKey)
{
    load("[s]\nk = 1\nk = 2\n");
    {
        ZStanzaValueIterator_6_0 values(store_, "s", "k", zPropUTF8Strings, zPropIterPlain);
        while (values.hasMore()) {
            values.nextValue();
            values.removeValue();
        }
        EXPECT_EQ(0, values.isValid());
    }
    EXPECT_EQ(1, store_.isModified());
    EXPECT_EQ("[s]\nk =\n", stored());
}

TEST_F(StanzaHostile, ValueIsAddedAlthoughTheKeyLostItsOtherValues)
{
    load("[s]\nk = 1\nk = 2\nk = 3\n");
    {
        ZStanzaValueIterator_6_0 values(store_, "s", "k", zPropLocalStrings, zPropIterAny);
        while (values.hasMore())
            values.nextValue();
        store_.setValue("s", "k", "only");
        EXPECT_EQ(0, values.isValid());
        EXPECT_EQ(0, values.hasMore());
        EXPECT_THROW(values.changeValue("x"), ZPropertiesIteratorException_6_0);
        values.addValue("behind");
        EXPECT_EQ("only,behind,", valuesOf(store_, "s", "k"));
        EXPECT_EQ(1, values.isValid());
    }
    {
        ZStanzaValueIterator_6_0 values(store_, "s", "k", zPropLocalStrings, zPropIterAny);
        values.nextValue();
        values.nextValue();
        store_.deleteKey("s", "k");
        values.addValue("new");
        EXPECT_EQ(1, values.isValid());
        values.changeValue("newer");
        EXPECT_EQ("newer,", valuesOf(store_, "s", "k"));
    }
    {
        ZStanzaValueIterator_6_0 values(store_, "s", "none", zPropLocalStrings, zPropIterAny);
        values.addValue("");
        EXPECT_EQ(0, values.isValid());
        values.addValue("v");
        EXPECT_EQ(1, values.isValid());
        EXPECT_EQ("v,", valuesOf(store_, "s", "none"));
    }
}

// ---- Adding, notices ---------------------------------------------------------------------------

TEST_F(StanzaHostile, AddedValuesNotifyOnlyForTheFirstValueOfANewKey)
{
    load("[s]\nk = 1\n");
    NotedChanges observer;
    store_.addObserver(&observer);
    ZArrayList_6_0 values(2, 1);
    for (char const* value : {"1", "2", "1", "2", "3"})
        values.addNoCopy(new ZLCString_6_0(value));
    store_.addValues("s", "k", values, 0);
    EXPECT_EQ("1,2,3,", valuesOf(store_, "s", "k"));
    EXPECT_EQ("", observer.log);
    store_.addValues("t", "k", values, 1);
    EXPECT_EQ("1,2,3,", valuesOf(store_, "t", "k"));
    EXPECT_EQ("2[t]k ", observer.log);
    EXPECT_THROW(store_.addValues("t", "k", values, 0), ZInvalidParameterException_6_0);
    store_.reload(nullptr);
    EXPECT_EQ("2[t]k ", observer.log);
    store_.deleteObservers();
}

TEST_F(StanzaHostile, EveryChangeNotifiesEvenIfNothingExisted)
{
    load("[s]\nk = 1\n");
    NotedChanges observer;
    store_.addObserver(&observer);
    store_.deleteKey("s", "none");
    store_.deleteKey("none", "none");
    store_.deleteStanza("none");
    store_.addStanza("s");
    store_.setValue("s", "k", "");
    EXPECT_EQ("1[s]none 1[none]none 1[none] 0[s] 2[s]k ", observer.log);
    EXPECT_EQ(1, store_.isModified());
    EXPECT_EQ("[s]\nk =\n", stored());
    store_.deleteObservers();
}

TEST_F(StanzaHostile, StoreToAnotherPathLeavesTheFirstFileUnchanged)
{
    char const* const kText = "  [s]  tail\nk=v\n";
    std::string const path = load(kText);
    store_.setValue("s", "k", "w");
    store_.store(directory_.at("copy").c_str());
    EXPECT_EQ(kText, directory_.read("conf"));
    EXPECT_EQ("[s]\nk = w\n", directory_.read("copy"));
    EXPECT_EQ(path, store_.fileName().getChars());
    EXPECT_EQ(0, store_.isModified());
}

TEST_F(StanzaHostile, ItemsMayShareAReceiver)
{
    load("[s]\nk = 7\nk = 8\n");
    ZLCString_6_0 text;
    ZPropertiesKVList_6_0 stanza(zPropUTF8Strings);
    ZStzFileItem_6_0 items[] = {
        {zStzString, "s", "k", -1, &text, {"d"}},
        {zStzString, "s", "none", -1, &text, {"default"}},
        {zStzStanza, "s", nullptr, 5, &stanza, {nullptr}},
        {zStzStanza, "s", nullptr, 0, &stanza, {nullptr}},
    };
    store_.getItems(items, 4);
    EXPECT_STREQ("default", text.getChars());
    ASSERT_EQ(1, stanza.getItemCount());
    EXPECT_STREQ("7", stanza.getItemValue(0)->getChars());
}

// ---- Flat functions ----------------------------------------------------------------------------

TEST_F(StanzaHostile, FlatListOfAMissingKeyIsEmptyWithEitherFlag)
{
    std::string const path = directory_.write("flat", "[s]\nk =\n");
    ZPROP_handle* handle = nullptr;
    ASSERT_EQ(0, zstzPropOpen_6_0(&handle, path.c_str(), 1));
    for (int flag : {0, 1, 2, -1}) {
        for (char const* key : {"k", "none"}) {
            char** list = nullptr;
            ZPROPValue record{zpropStringList, "s", key, flag, &list};
            ASSERT_EQ(0, zstzPropGetValues_6_0(handle, &record, 1)) << flag << key;
            ASSERT_NE(nullptr, list);
            EXPECT_EQ(nullptr, list[0]);
            zstzPropFreeValuesList_6_0(handle, &record, 1);
            EXPECT_EQ(nullptr, list);
        }
    }
    EXPECT_EQ(0, zstzPropGetValues_6_0(handle, nullptr, 0));
    EXPECT_EQ(55, zstzPropGetValues_6_0(handle, nullptr, -1));
    EXPECT_EQ(55, zstzPropGetValues_6_0(handle, nullptr, 1));
    zstzPropFreeValuesList_6_0(handle, nullptr, 1);
    zstzPropClose_6_0(handle);
}

TEST_F(StanzaHostile, FlatStepWithoutACodeArgumentDoesNotStep)
{
    std::string const path = directory_.write("flat", "[s]\nk = 1\nk = 2\n");
    ZPROP_handle* handle = nullptr;
    ASSERT_EQ(0, zstzPropOpen_6_0(&handle, path.c_str(), 2));
    ZPROP_iter_handle* values = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(handle, "s", "k", &values));
    EXPECT_EQ(0, zstzPropIter_next_6_0(values, nullptr));
    int code = -1;
    EXPECT_EQ(1, zstzPropIter_next_6_0(values, &code));
    char* text = zstzPropIter_getValue_6_0(values, &code);
    EXPECT_STREQ("1", text);
    EXPECT_EQ(0, zstzPropIter_addValue_6_0(values, text));  // the current value of the iterator
    zstzPropFree_6_0(text + 1);
    zstzPropFree_6_0(text);
    zstzPropFree_6_0(text);
    EXPECT_EQ(3, zstzPropIter_numValues_6_0(values, &code));
    EXPECT_EQ(0, zstzPropIter_close_6_0(values));
    EXPECT_EQ(55, zstzPropIter_close_6_0(values));
    zstzPropClose_6_0(handle);
    code = -1;
    EXPECT_EQ(0, zstzPropNumStanzas_6_0(handle, &code));
    EXPECT_EQ(55, code);
    zstzPropClose_6_0(handle);
}

TEST_F(StanzaHostile, FlatHandleAndIteratorAreNotInterchangeable)
{
    std::string const path = directory_.write("flat", "[s]\nk = 1\n");
    ZPROP_handle* handle = nullptr;
    ASSERT_EQ(0, zstzPropOpen_6_0(&handle, path.c_str(), 2));
    ZPROP_iter_handle* keys = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(handle, "s", nullptr, &keys));
    int code = -1;
    EXPECT_EQ(0, zstzPropNumStanzas_6_0(reinterpret_cast<ZPROP_handle*>(keys), &code));
    EXPECT_EQ(55, code);
    code = -1;
    EXPECT_EQ(0, zstzPropIter_next_6_0(reinterpret_cast<ZPROP_iter_handle*>(handle), &code));
    EXPECT_EQ(55, code);
    zstzPropClose_6_0(reinterpret_cast<ZPROP_handle*>(keys));
    EXPECT_EQ(55, zstzPropIter_close_6_0(reinterpret_cast<ZPROP_iter_handle*>(handle)));
    EXPECT_EQ(1, zstzPropIter_next_6_0(keys, &code));
    EXPECT_EQ(0, zstzPropIter_close_6_0(keys));
    zstzPropClose_6_0(handle);
}
