#include <Z/ZArrayList.h>
#include <Z/ZBuffer.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZPropertiesKVList.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "EachAllocation.h"
#include "Raised.h"
#include "StanzaStore.h"

namespace {

constexpr char kSource[] = "src/Z/ZStanzaFileProperties";

using Store = ZStanzaFileProperties_6_0;

// A store that returns the text that it would write.
class VisibleStore final : public ZStanzaFileProperties_6_0 {
public:
    using ZStanzaFileProperties_6_0::ZStanzaFileProperties_6_0;

    std::string text() const
    {
        ZBuffer_6_0 text;
        dynamic_cast<ZSCFData_6_0&>(cache()).writeText(text);
        return std::string(static_cast<char const*>(text.getBuffer()), text.getLength());
    }
};

}  // namespace

using ZStanzaFileProperties = StanzaStoreTest;

// ---- Files -------------------------------------------------------------------------------------

TEST_F(ZStanzaFileProperties, ConstructorWithAPathLoadsTheFile)
{
    std::string const path = directory_.write("conf", "# c\n[s]\nk = v\n");
    Store const store(path.c_str(), 1);
    EXPECT_EQ("v,", valuesOf(store, "s", "k"));
    EXPECT_STREQ(path.c_str(), store.fileName().getChars());
    EXPECT_THROW(Store("/no/such/file", 1), ZPropertiesIOException_6_0);
    EXPECT_THROW(Store(nullptr, 1), ZInvalidParameterException_6_0);
}

TEST_F(ZStanzaFileProperties, RewriteKeepsCommentsBlankLinesAndOrder)
{
    constexpr char kText[] =
        "# head\n\n[b]\n# port = 1\n\nz = 1\na = 2\na = 3\n\n# tail of b\n[a]\nempty =\n\n";
    load(kText);
    EXPECT_EQ(kText, stored());
}

TEST_F(ZStanzaFileProperties, RewriteNormalisesWhitespaceAndDropsTextAfterAHeader)
{
    load("  # c  \n \t \n  [ s ] tail\n  k   =   v  \nx=\n");
    EXPECT_EQ("# c\n\n[ s ]\nk = v\nx =\n", stored());
}

TEST_F(ZStanzaFileProperties, CommentsAreDroppedUnlessKept)
{
    std::string const path = directory_.write("conf", "# c\n\n[s]\n# d\nk = v\n\n");
    Store store(path.c_str(), 0);
    store.store(nullptr);
    EXPECT_EQ("[s]\nk = v\n", directory_.read("conf"));
}

TEST_F(ZStanzaFileProperties, NewKeyFollowsItsTemplateComment)
{
    load("[s]\na = 1\n# key = 5\n\nb = 2\n[t]\n");
    store_.setValue("s", "key", "6");
    store_.setValue("s", "other", "7");
    store_.setValue("u", "k", "8");
    EXPECT_EQ("[s]\na = 1\n# key = 5\nkey = 6\n\nb = 2\nother = 7\n[t]\n\n[u]\nk = 8\n", stored());
}

TEST_F(ZStanzaFileProperties, CopyIsAStanzaStore)
{
    load("[s]\nk = v\n");
    Store copy(store_);
    copy.addValue("s", "k", "w", 0);
    EXPECT_EQ("v,w,", valuesOf(copy, "s", "k"));
    EXPECT_EQ("v,", valuesOf(store_, "s", "k"));
}

// ---- Values without a UTF-8 form ---------------------------------------------------------------

namespace {

// Not a character in any multibyte codeset, nor in ASCII.
constexpr char kUnconvertible[] = "\xFF";

bool isConvertible()
{
    return !ZUTF8String_6_0(ZLCConstString_6_0(kUnconvertible)).isEmpty();
}

}  // namespace

TEST_F(ZStanzaFileProperties, KeepsReadingAnUnconvertibleValueAsEmptyUTF8)
{
    if (isConvertible())
        GTEST_SKIP() << "every byte is a character in this locale";
    load(std::string("[s]\nk = a\nk = ") + kUnconvertible + "\n");
    ZArrayList_6_0 texts(1, 1);
    store_.getValues("s", "k", texts, zPropUTF8Strings);
    ASSERT_EQ(2u, texts.size());
    EXPECT_STREQ("a", static_cast<ZUTF8String_6_0*>(texts.get(0))->getChars());
    EXPECT_STREQ("", static_cast<ZUTF8String_6_0*>(texts.get(1))->getChars());
    ZStanzaValueIterator_6_0 values(store_, "s", "k", zPropUTF8Strings, zPropIterAny);
    values.nextValue();
    EXPECT_STREQ("", values.nextValue().getChars());
    EXPECT_EQ(std::string("a,") + kUnconvertible + ",", valuesOf(store_, "s", "k"));
}

TEST_F(ZStanzaFileProperties, EmptyUTF8OfAnUnconvertibleValueIsNotStored)
{
    if (isConvertible())
        GTEST_SKIP() << "every byte is a character in this locale";
    for (int const obfuscated : {0, 1}) {
        SCOPED_TRACE(obfuscated);
        ZStanzaFileProperties_6_0 store(1);
        store.setValue("s", "k", "a", obfuscated);
        store.addValue("s", "k", kUnconvertible, obfuscated);
        std::string const before = valuesOf(store, "s", "k");
        store.resetModified();
        ZUTF8String_6_0 const empty;
        ZUTF8ConstString_6_0 const emptyView("");
        {
            ZStanzaValueIterator_6_0 values(store, "s", "k", zPropUTF8Strings, zPropIterAny);
            values.nextValue();
            EXPECT_THROW(values.addValue(""), ZInvalidParameterException_6_0);
            values.nextValue();
            EXPECT_THROW(values.changeValue(""), ZInvalidParameterException_6_0);
            EXPECT_EQ(1, values.isValid());
        }
        for (ZObject_6_0 const* text : {static_cast<ZObject_6_0 const*>(&empty),
                                        static_cast<ZObject_6_0 const*>(&emptyView)}) {
            ZArrayList_6_0 texts(2, 0);
            ZLCString_6_0 const fresh("fresh");
            texts.addNoCopy(&fresh);
            texts.addNoCopy(text);
            EXPECT_THROW(store.addValues("s", "k", texts, obfuscated),
                         ZInvalidParameterException_6_0);
        }
        EXPECT_THROW(store.setValue("s", "k", empty, obfuscated), ZInvalidParameterException_6_0);
        EXPECT_THROW(store.setValue("s", "k", emptyView, obfuscated),
                     ZInvalidParameterException_6_0);
        EXPECT_EQ(before, valuesOf(store, "s", "k"));
        EXPECT_EQ(0, store.isModified());
        // An empty string of the local codeset is not ambiguous.
        store.setValue("s", "k", "", obfuscated);
        EXPECT_EQ("", valuesOf(store, "s", "k"));
    }
}

TEST_F(ZStanzaFileProperties, EmptyUTF8IsStoredIfEveryValueIsConvertible)
{
    store_.setValue("s", "k", "a");
    store_.addValue("s", "k", "b", 0);
    {
        ZStanzaValueIterator_6_0 values(store_, "s", "k", zPropUTF8Strings, zPropIterAny);
        values.nextValue();
        values.changeValue("");
        values.addValue("");
    }
    ZUTF8String_6_0 const empty;
    ZArrayList_6_0 texts(2, 0);
    texts.addNoCopy(&empty);
    store_.addValues("s", "k", texts, 0);
    EXPECT_EQ(",,b,", valuesOf(store_, "s", "k"));
    store_.setValue("s", "k", empty, 0);
    EXPECT_EQ("", valuesOf(store_, "s", "k"));
}

// ---- Comments ----------------------------------------------------------------------------------

TEST_F(ZStanzaFileProperties, CommentsGetAHashSign)
{
    load("[s]\nk = v\n");
    store_.addFileComment("file\n#marked");
    store_.addStanzaComment("s", "stanza");
    store_.addEntryComment("s", "k", "entry\nof two lines");
    store_.addStanzaComment("nowhere", "ignored");
    EXPECT_EQ("#file\n#marked\n\n#stanza\n[s]\n\n#entry\n#of two lines\nk = v\n", stored());
    ZLCString_6_0 comment;
    store_.checkComment(comment);
    EXPECT_STREQ("#", comment.getChars());
}

TEST_F(ZStanzaFileProperties, LinesOfAStanzaCommentStayTogether)
{
    load("[r]\nk = a\n[s]\nk = a\n");
    store_.addStanzaComment("r", "one\n#two\n\nfour");
    store_.addStanzaComment("s", "five\nsix");
    EXPECT_EQ("\n#one\n#two\n#\n#four\n[r]\nk = a\n\n#five\n#six\n[s]\nk = a\n", stored());
    // A separate comment stays separated by a blank line.
    store_.addStanzaComment("s", "seven\neight");
    EXPECT_EQ("\n#one\n#two\n#\n#four\n[r]\nk = a\n\n#five\n#six\n\n#seven\n#eight\n[s]\nk = a\n",
              stored());
    store_.reload(nullptr);
    store_.deleteStanza("r");
    store_.addStanzaComment("s", "nine\n");
    EXPECT_EQ("\n#one\n#two\n#\n#four\n\n#nine\n#\n[s]\nk = a\n", stored());
}

TEST_F(ZStanzaFileProperties, CommentsCheckTheirArguments)
{
    load("[s]\nk = v\n");
    std::string const tooLong(8190, 'x');
    std::vector<std::function<void()>> const calls = {
        [&] { store_.addFileComment(nullptr); },
        [&] { store_.addFileComment(tooLong.c_str()); },
        [&] { store_.addStanzaComment("s", nullptr); },
        [&] { store_.addStanzaComment(nullptr, "c"); },
        [&] { store_.addStanzaComment("", "c"); },
        [&] { store_.addEntryComment("s", "k", nullptr); },
        [&] { store_.addEntryComment("s", "a=b", "c"); },
        [&] { store_.addEntryComment("s", "new", tooLong.c_str()); },
    };
    for (auto const& call : calls)
        EXPECT_THROW(call(), ZInvalidParameterException_6_0);
    EXPECT_EQ(0, store_.isModified());
    EXPECT_EQ("[s]\nk = v\n", stored());
}

// ---- Stanzas -----------------------------------------------------------------------------------

TEST_F(ZStanzaFileProperties, StanzasAreAddedAndDeleted)
{
    load("[s]\nk = v\n# c\n[t]\nx = 1\n");
    NotedChanges observer;
    store_.addObserver(&observer);
    store_.addStanza("new");
    EXPECT_EQ(1, store_.exists("new"));
    EXPECT_EQ(1, store_.isModified());
    store_.deleteStanza("s");
    EXPECT_EQ(0, store_.exists("s"));
    store_.addStanza("t");
    store_.deleteStanza("missing");
    EXPECT_EQ("0[new] 1[s] 0[t] 1[missing] ", observer.log);
    EXPECT_EQ("[t]\nx = 1\n\n[new]\n", stored());
}

TEST_F(ZStanzaFileProperties, StanzaNamesAreChecked)
{
    NotedChanges observer;
    store_.addObserver(&observer);
    for (char const* name : {static_cast<char const*>(nullptr), "", "a]b", "a\nb"}) {
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 65,
                                                           [&] { store_.addStanza(name); }));
    }
    for (char const* name : {static_cast<char const*>(nullptr), ""})
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 55,
                                                           [&] { store_.deleteStanza(name); }));
    EXPECT_EQ(0, store_.count());
    EXPECT_EQ(0, store_.isModified());
    EXPECT_EQ("", observer.log);
}

TEST_F(ZStanzaFileProperties, KeysAreListed)
{
    load("[s]\nk = v\nl = w\n");
    std::unique_ptr<ZArrayList_6_0> const keys(store_.getKeys("s"));
    EXPECT_EQ(2u, keys->size());
    EXPECT_EQ(nullptr, store_.getKeys("nowhere"));
}

TEST_F(ZStanzaFileProperties, KeepsTheFirstValueInAStanzaList)
{
    load("[s]\nk = first\nk = last\nempty =\n[t]\nx = 1\n");
    ZPropertiesKVList_6_0 list(zPropLocalStrings);
    list.addItem(ZLCString_6_0("old"), ZLCString_6_0("old"));
    store_.getStanza("s", list);
    ASSERT_EQ(2, list.getItemCount());
    for (int i = 0; i < 2; ++i) {
        bool const isKey = std::string("k") == list.getItemKey(i)->getChars();
        EXPECT_STREQ(isKey ? "first" : "", list.getItemValue(i)->getChars());
    }
    store_.getStanza("nowhere", list);
    EXPECT_EQ(0, list.getItemCount());
    EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(22, kSource, 55,
                                                       [&] { store_.getStanza("", list); }));
    EXPECT_THROW(store_.getStanza(nullptr, list), ZInvalidParameterException_6_0);
}

// ---- Adding values -----------------------------------------------------------------------------

TEST_F(ZStanzaFileProperties, AddValueAppendsAValueOnce)
{
    load("[s]\nk = a\nk = b\n");
    NotedChanges observer;
    store_.addObserver(&observer);
    store_.addValue("s", "k", "c", 0);
    store_.addValue("s", "k", "a", 0);
    EXPECT_EQ("a,b,c,", valuesOf(store_, "s", "k"));
    EXPECT_EQ("", observer.log);
    store_.addValue("s", "new", "x", 0);
    EXPECT_EQ("2[s]new ", observer.log);
    EXPECT_EQ("[s]\nk = a\nk = b\nk = c\nnew = x\n", stored());
}

TEST_F(ZStanzaFileProperties, AddValueAcceptsFiveTypesOfStrings)
{
    store_.addValue("s", "k", "1", 0);
    store_.addValue("s", "k", ZLCString_6_0("2"), 0);
    store_.addValue("s", "k", ZUTF8String_6_0("3"), 0);
    store_.addValue("s", "k", ZLCConstString_6_0("4"), 0);
    store_.addValue("s", "k", ZUTF8ConstString_6_0("5"), 0);
    EXPECT_EQ("1,2,3,4,5,", valuesOf(store_, "s", "k"));
}

TEST_F(ZStanzaFileProperties, ManyValuesAreAddedWithoutDuplicates)
{
    load("[s]\nk = a\n");
    ZArrayList_6_0 values(8, 1);
    for (char const* text : {"b", "a", "b", "", "c"}) {
        ZLCString_6_0 const value(text);
        values.add(&value);
    }
    ZUTF8String_6_0 const last("d");
    values.add(&last);
    store_.addValues("s", "k", values, 0);
    EXPECT_EQ("a,b,,c,d,", valuesOf(store_, "s", "k"));
    store_.addValues("s", "hidden", values, 1);
    EXPECT_EQ("b,a,,c,d,", valuesOf(store_, "s", "hidden"));
    EXPECT_EQ(1, store_.isObfuscated("s", "hidden"));
    ZArrayList_6_0 const none(1, 1);
    store_.addValues("s", "k", none, 0);
    EXPECT_EQ("a,b,,c,d,", valuesOf(store_, "s", "k"));
    // A file does not represent the empty value.
    EXPECT_EQ("a,b,c,d,", readBack("s", "k"));
    EXPECT_EQ("b,a,c,d,", readBack("s", "hidden"));
}

TEST_F(ZStanzaFileProperties, EmptyValueAddedToAKeyWithoutValuesCreatesTheKey)
{
    ZArrayList_6_0 values(2, 1);
    values.addNoCopy(new ZLCString_6_0(""));
    store_.addValues("s", "k", values, 0);
    EXPECT_EQ(1, store_.exists("s", "k"));
    EXPECT_EQ("", valuesOf(store_, "s", "k"));
    values.addNoCopy(new ZLCString_6_0("a"));
    NotedChanges observer;
    store_.addObserver(&observer);
    store_.addValues("s", "k", values, 0);
    EXPECT_EQ("a,", valuesOf(store_, "s", "k"));
    EXPECT_EQ("2[s]k 2[s]k ", observer.log);  // emptied, then set
    values.addNoCopy(new ZLCString_6_0("b"));
    store_.addValues("s", "k", values, 0);
    EXPECT_EQ("a,,b,", valuesOf(store_, "s", "k"));
    EXPECT_EQ("2[s]k 2[s]k ", observer.log);  // adding to existing values sends no notice
}

TEST_F(ZStanzaFileProperties, AddingChecksItsArgumentsAndChangesNothing)
{
    load("[s]\nk = a\n");
    store_.setValue("s", "hidden", "h", 1);
    store_.resetModified();
    std::string const tooLong(8190, 'x');
    ZArrayList_6_0 bad(2, 1);
    ZLCString_6_0 const good("good");
    ZLCString_6_0 const feed("a\nb");
    bad.add(&good);
    bad.add(&feed);
    ZArrayList_6_0 noStrings(1, 0);
    ZObject_6_0 const object;
    noStrings.addNoCopy(&object);
    ZArrayList_6_0 nulls(1, 0);
    nulls.addNoCopy(nullptr);
    std::vector<std::function<void()>> const calls = {
        [&] { store_.addValue(nullptr, "k", "v", 0); },
        [&] { store_.addValue("", "k", "v", 0); },
        [&] { store_.addValue("s", nullptr, "v", 0); },
        [&] { store_.addValue("s", "", "v", 0); },
        [&] { store_.addValue("s", "k", static_cast<char const*>(nullptr), 0); },
        [&] { store_.addValue("s", "k", "", 0); },
        [&] { store_.addValue("s", "k", ZLCString_6_0(), 0); },
        [&] { store_.addValue("s", "k", ZUTF8String_6_0(), 0); },
        [&] { store_.addValue("s]", "k", "v", 0); },
        [&] { store_.addValue("s", "#k", "v", 0); },
        [&] { store_.addValue("s", "k", "a\nb", 0); },
        [&] { store_.addValue("s", "k", tooLong.c_str(), 0); },
        [&] { store_.addValue("s", "k", "v", 1); },
        [&] { store_.addValue("s", "hidden", "v", 0); },
        [&] { store_.addValues("s", "k", bad, 0); },
        [&] { store_.addValues("s", "new", bad, 0); },
        [&] { store_.addValues("s", "k", noStrings, 0); },
        [&] { store_.addValues("s", "k", nulls, 0); },
    };
    for (size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_THROW(calls[i](), ZInvalidParameterException_6_0);
    }
    EXPECT_THROW(store_.addValue("s", "k", ZUTF8String_6_0("\xC3"), 0), ZFromUTF8Exception_6_0);
    EXPECT_EQ("a,", valuesOf(store_, "s", "k"));
    EXPECT_EQ("h,", valuesOf(store_, "s", "hidden"));
    EXPECT_EQ(2, store_.count("s"));
    EXPECT_EQ(0, store_.isModified());
}

TEST_F(ZStanzaFileProperties, TwentyThousandValuesAreAddedInOneCall)
{
    ZArrayList_6_0 values(20000, 1);
    for (int i = 0; i < 20000; ++i) {
        ZLCString_6_0 const value(i % 10000);
        values.add(&value);
    }
    store_.addValues("s", "k", values, 0);
    EXPECT_EQ(10000, store_.numValues("s", "k"));
}

// ---- Batches -----------------------------------------------------------------------------------

TEST_F(ZStanzaFileProperties, ItemsAreReadByTheirType)
{
    load("[s]\nyes = true\nn = 0x10\ntext = t\nmany = a\nmany = b\n");
    int truth = -1;
    unsigned int number = 0;
    ZLCString_6_0 text;
    ZArrayList_6_0 local(1, 1);
    ZArrayList_6_0 utf8(1, 1);
    ZPropertiesKVList_6_0 stanza(zPropLocalStrings);
    ZLCString_6_0 defaulted;
    unsigned int missing = 0;
    ZStzFileItem_6_0 items[] = {
        {zStzBoolean, "s", "yes", 1, &truth, {}},
        {zStzInteger, "s", "n", 1, &number, {}},
        {zStzString, "s", "text", 0, &text, {"x"}},
        {zStzStrings, "s", "many", 1, &local, {}},
        {zStzUTF8Strings, "s", "many", 0, &utf8, {}},
        {zStzStanza, "s", nullptr, 0, &stanza, {}},
        {zStzString, "s", "missing", 0, &defaulted, {"default"}},
        {zStzInteger, "s", "missing", 0, &missing, {}},
    };
    items[7].defaultValue.number = 7;
    store_.getItems(items, 8);
    EXPECT_EQ(1, truth);
    EXPECT_EQ(16u, number);
    EXPECT_STREQ("t", text.getChars());
    EXPECT_EQ(2u, local.size());
    ASSERT_EQ(2u, utf8.size());
    EXPECT_NE(nullptr, dynamic_cast<ZUTF8String_6_0*>(utf8.get(0)));
    EXPECT_EQ(4, stanza.getItemCount());
    EXPECT_STREQ("default", defaulted.getChars());
    EXPECT_EQ(7u, missing);
}

TEST_F(ZStanzaFileProperties, AnInvalidTypeEndsTheBatch)
{
    load("[s]\nn = 1\n");
    unsigned int first = 0;
    unsigned int second = 0;
    for (int type : {0, 7, -1, 100}) {
        ZStzFileItem_6_0 items[] = {
            {zStzInteger, "s", "n", 0, &first, {}},
            {type, "s", "n", 0, nullptr, {}},
            {zStzInteger, "s", "n", 0, &second, {}},
        };
        first = 0;
        store_.getItems(items, 3);
        EXPECT_EQ(1u, first);
        EXPECT_EQ(0u, second);
    }
}

TEST_F(ZStanzaFileProperties, BatchesCheckTheirArguments)
{
    load("[s]\nn = 1\nbad = x\n");
    unsigned int first = 0;
    unsigned int second = 5;
    ZStzFileItem_6_0 items[] = {
        {zStzInteger, "s", "n", 0, &first, {}},
        {zStzInteger, "s", "bad", 0, &second, {}},
    };
    auto const refused = [](auto call) {
        return raises<ZInvalidParameterException_6_0>(22, kSource, 260, call);
    };
    EXPECT_TRUE(refused([&] { store_.getItems(nullptr, 1); }));
    EXPECT_TRUE(refused([&] { store_.getItems(items, 0); }));
    store_.getItems(items, -1);
    EXPECT_EQ(0u, first);
    ZStzFileItem_6_0 noResult = {zStzInteger, "s", "n", 0, nullptr, {}};
    EXPECT_TRUE(refused([&] { store_.getItems(&noResult, 1); }));
    EXPECT_THROW(store_.getItems(items, 2), ZPropertiesInvalidValueException_6_0);
    EXPECT_EQ(1u, first);
    EXPECT_EQ(5u, second);
    items[1] = {zStzInteger, "s", "missing", 1, &second, {}};
    EXPECT_THROW(store_.getItems(items, 2), ZPropertiesMissingPropertyException_6_0);
    items[1].required = -1;
    store_.getItems(items, 2);
    EXPECT_EQ(0u, second);
}

// ---- Factory and iterators ---------------------------------------------------------------------

TEST_F(ZStanzaFileProperties, FactoryIsASingletonAndKeepsComments)
{
    auto* const factory = Store::getFactory();
    ASSERT_NE(nullptr, factory);
    std::thread([&] { EXPECT_EQ(factory, Store::getFactory()); }).join();
    Store::init();
    EXPECT_EQ(factory, Store::getFactory());
    std::string const path = directory_.write("conf", "# c\n[s]\nk = v\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), *factory, 0);
    EXPECT_EQ(store, ZProperties_6_0::getPropertiesFor(path.c_str(), *factory, 0));
    EXPECT_NE(nullptr, dynamic_cast<Store*>(store));
    store->store(nullptr);
    EXPECT_EQ("# c\n[s]\nk = v\n", directory_.read("conf"));
    std::unique_ptr<ZProperties_6_0> const made(factory->makePropertiesInstance());
    EXPECT_EQ(0, made->count());
}

TEST_F(ZStanzaFileProperties, AnotherFactoryHasItsOwnStores)
{
    std::string const path = directory_.write("conf", "# c\n[s]\nk = v\n");
    Store::ZStanzaFilePropertiesFactory factory;
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_NE(store, ZProperties_6_0::getPropertiesFor(path.c_str(), *Store::getFactory(), 0));
    EXPECT_EQ(store, ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0));
    EXPECT_EQ("v,", valuesOf(*store, "s", "k"));
}

TEST_F(ZStanzaFileProperties, StanzaIteratorsIterateOverKeysAndValues)
{
    load("[s]\nk = a\nk = b\n");
    ZStanzaIterator_6_0 keys(store_, "s");
    keys.nextEntry();
    EXPECT_STREQ("k", keys.entryName());
    ZStanzaValueIterator_6_0 values(store_, "s", "k", zPropLocalStrings, zPropIterAny);
    EXPECT_EQ(2, values.valueCount());
    EXPECT_THROW(ZStanzaIterator_6_0(store_, nullptr), ZInvalidParameterException_6_0);
}

// ---- Failed allocations ------------------------------------------------------------------------

TEST_F(ZStanzaFileProperties, FailedAllocationsChangeNothing)
{
    load("[s]\nk = a\n");
    store_.addValue("s", "k", "a", 0);  // creates the list of its values, which remains
    std::string const text(300, 'x');
    ZArrayList_6_0 values(4, 1);
    for (int i = 0; i < 4; ++i) {
        ZLCString_6_0 const value(i);
        values.add(&value);
    }
    ZPropertiesKVList_6_0 list(zPropLocalStrings);
    list.addItem(ZLCString_6_0("old"), ZLCString_6_0("old"));
    auto const check = [&] {
        EXPECT_EQ("a,", valuesOf(store_, "s", "k"));
        EXPECT_EQ(1, store_.count());
        EXPECT_EQ(1, store_.count("s"));
        EXPECT_EQ(0, store_.isModified());
        EXPECT_EQ(1, list.getItemCount());
    };
    struct Case {
        char const* name;
        std::function<void()> call;
        std::function<void()> undo;
    };
    Case const cases[] = {
        {"add to a key", [&] { store_.addValue("s", "k", text.c_str(), 0); },
         [&] { store_.setValue("s", "k", "a"); }},
        {"add to a new key", [&] { store_.addValue("s", "new", text.c_str(), 0); },
         [&] { store_.deleteKey("s", "new"); }},
        {"add to a new stanza", [&] { store_.addValue("new", "k", text.c_str(), 1); },
         [&] { store_.deleteStanza("new"); }},
        {"add several", [&] { store_.addValues("s", "k", values, 0); },
         [&] { store_.setValue("s", "k", "a"); }},
        {"add several to a new key", [&] { store_.addValues("s", "new", values, 0); },
         [&] { store_.deleteKey("s", "new"); }},
        {"add several to a new stanza", [&] { store_.addValues("new", "k", values, 1); },
         [&] { store_.deleteStanza("new"); }},
        {"add a stanza", [&] { store_.addStanza("new"); }, [&] { store_.deleteStanza("new"); }},
        {"delete a stanza", [&] { store_.deleteStanza("missing"); }, [] {}},
        {"comment a stanza", [&] { store_.addStanzaComment("s", "one\ntwo"); }, [] {}},
        {"comment a key", [&] { store_.addEntryComment("s", "k", text.c_str()); }, [] {}},
        {"list a stanza", [&] { store_.getStanza("s", list); },
         [&] {
             list.clear();
             list.addItem(ZLCString_6_0("old"), ZLCString_6_0("old"));
         }},
        {"make a store", [] { Store const store(1); }, [] {}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        auto const undo = [&] {
            c.undo();
            store_.resetModified();
        };
        bool const keepsRoom = strncmp(c.name, "add several", 11) == 0;
        failEachAllocationOfSome(c.call, undo, check, !keepsRoom);
        if (HasFailure())
            break;
    }
}

TEST_F(ZStanzaFileProperties, UndoesSeveralValuesWithoutAllocating)
{
    struct Case {
        char const* stanza;
        char const* key;
        int obfuscated;
        int values;  // number of values of the key before the call
    };
    // Only the companion contains "bare" and the stanza "far": they have no lines.
    Case const cases[] = {{"new", "k", 1, 0},   {"s", "new", 0, 0},   {"s", "k", 0, 1},
                          {"s", "empty", 0, 0}, {"s", "empty", 1, 0}, {"s", "hidden", 1, 1},
                          {"s", "bare", 0, 0},  {"s", "bare", 1, 0},  {"far", "k", 1, 1},
                          {"far", "new", 0, 0}, {"far", "new", 1, 0}};
    constexpr char kText[] = "[s]\nk = a\nempty =\n";
    {
        Store store(directory_.write("conf", kText).c_str(), 1);
        store.setValue("s", "hidden", "h", 1);
        store.setValue("s", "bare", "b", 1);
        store.setValue("far", "k", "f", 1);
        {
            ZStanzaValueIterator_6_0 bare(store, "s", "bare", zPropLocalStrings, zPropIterAny);
            bare.nextValue();
            bare.changeValue("");
        }
        store.store(nullptr);
    }
    std::string const entry =
        "[configuration-database]\nfile = " + directory_.at("conf.obf") + "\n";
    ZArrayList_6_0 values(4, 1);
    for (int i = 0; i < 20; ++i)
        values.addNoCopy(new ZLCString_6_0(i));
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.stanza) + "/" + c.key);
        VisibleStore store(directory_.write("conf", kText + entry).c_str(), 1);
        NotedChanges observer;
        store.addObserver(&observer);
        int const stanzas = store.count();
        int const keys = store.count("s");
        unsigned long failures = 0;
        for (unsigned long n = 1;; ++n) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            bool raised = false;
            FailingAllocator::failAt(n, FailingAllocator::forEver);
            try {
                store.addValues(c.stanza, c.key, values, c.obfuscated);
            } catch (ZOutOfMemoryException_6_0 const&) {
                raised = true;
            }
            bool const failed = FailingAllocator::stop();
            ASSERT_EQ(failed, raised);
            if (!failed)
                break;
            ++failures;
            ASSERT_EQ("", observer.log);
            ASSERT_EQ(stanzas, store.count());
            ASSERT_EQ(keys, store.count("s"));
            ASSERT_EQ(c.values, store.numValues(c.stanza, c.key));
            ASSERT_EQ(0, store.isModified());
            ASSERT_EQ(kText + entry, store.text());
        }
        EXPECT_LT(20u, failures);
        EXPECT_EQ(20 + c.values, store.numValues(c.stanza, c.key));
    }
}
