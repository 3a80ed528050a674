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
#include "StanzaStoreContract.h"

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

INSTANTIATE_TYPED_TEST_SUITE_P(OfFiles, StanzaStoreContract,
                               LocalFileKind<ZStanzaFileProperties_6_0>);

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

TEST_F(ZStanzaFileProperties, CommentsAreDroppedUnlessKept)
{
    std::string const path = directory_.write("conf", "# c\n\n[s]\n# d\nk = v\n\n");
    Store store(path.c_str(), 0);
    store.store(nullptr);
    EXPECT_EQ("[s]\nk = v\n", directory_.read("conf"));
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

// ---- Stanzas -----------------------------------------------------------------------------------

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
