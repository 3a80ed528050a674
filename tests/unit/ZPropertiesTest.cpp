#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZProperties.h>
#include <Z/ZPropertiesImpl.h>
#include <Z/ZPropertiesIterator.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZUTF8String.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>
#include <zlib.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "EachAllocation.h"
#include "LockingProcess.h"
#include "Nobody.h"
#include "NotedMessages.h"
#include "StanzaStore.h"
#include "TestDirectory.h"
#include "Threads.h"

namespace {

constexpr char kSource[] = "src/Z/ZProperties";

ZPCache_6_0* newCache()
{
    auto* const cache = new (std::nothrow) ZSCFData_6_0;
    if (cache == nullptr)
        ZOutOfMemoryException_6_0().throwException("test", 1);
    return cache;
}

// A store over the cache of stanza files.
class Store : public ZProperties_6_0 {
public:
    explicit Store(unsigned long attributes = ZPCache_6_0::keepComments)
        : ZProperties_6_0(newCache())
    {
        setAttributes(attributes, nullptr);
    }
    using ZProperties_6_0::sendChangeNotice;

    std::function<void()> onPostLoad;
    void postLoad(char const* path) override
    {
        loaded = path;
        if (onPostLoad)
            onPostLoad();
    }

    std::string loaded;
};

class Factory final : public ZAbstractPropertiesFactory_6_0 {
public:
    ZProperties_6_0* makePropertiesInstance() override
    {
        ++made;
        auto* const store = new Store;
        store->onPostLoad = onPostLoad;
        if (!madeFor.empty())
            store->load(madeFor.c_str());
        return store;
    }

    std::string madeFor;  // if not empty, a file that the stores load first
    std::atomic<int> made{0};
    std::function<void()> onPostLoad;
};

// Describes the exception of a call in one line.
template <class Call>
std::string thrown(Call call)
{
    try {
        call();
    } catch (ZPropertiesIOException_6_0 const& e) {
        return std::string("io ") + e.propFile().getChars() + " " + e.api().getChars() + " " +
               std::to_string(e.excerrno());
    } catch (ZPropertiesInvalidDataException_6_0 const& e) {
        return std::string("data ") + e.propFile().getChars() + " " + std::to_string(e.badline()) +
               " " + e.baddata().getChars();
    } catch (ZPropertiesMissingPropertyException_6_0 const& e) {
        return std::string("missing ") + e.propFile().getChars() + " " + e.category().getChars() +
               " " + e.key().getChars();
    } catch (ZPropertiesInvalidValueException_6_0 const& e) {
        return std::string("value ") + std::to_string(e.messageNumber()) + " " +
               e.propFile().getChars() + " " + e.category().getChars() + " " + e.key().getChars() +
               " " + e.value().getChars();
    } catch (ZException_6_0 const& e) {
        return e.exceptionName();
    }
    return "nothing";
}

std::string valueOf(ZProperties_6_0 const& store, char const* category, char const* key)
{
    ZLCString_6_0 value;
    store.getValue(category, key, value, 0, "(none)");
    return value.getChars();
}

// The bytes of a companion file with one record for each triple.
std::string compressed(std::vector<std::string> const& triples)
{
    std::string plain;
    for (size_t i = 0; i < triples.size(); i += 3)
        plain += triples[i] + '\0' + triples[i + 1] + '\0' + triples[i + 2] + '\0' + '\0';
    plain.pop_back();
    std::string out(compressBound(plain.size()), '\0');
    uLongf length = out.size();
    compress(reinterpret_cast<Bytef*>(out.data()), &length,
             reinterpret_cast<Bytef const*>(plain.data()), plain.size());
    out.resize(length);
    return out;
}

class PropertiesTest : public testing::Test {
public:
    ~PropertiesTest() noexcept override {}

protected:
    TestDirectory directory_;
    Store store_;

    std::string load(std::string const& text)
    {
        std::string const path = directory_.write("conf", text);
        store_.load(path.c_str());
        return path;
    }
};

constexpr char kText[] =
    "# head\n\n[server]\nport = 80\nname = a\nname = b\nempty =\n\n[client]\n# port = 5\n\nx = 1\n";

}  // namespace

using ZProperties = PropertiesTest;

// ---- Construction ------------------------------------------------------------------------------

TEST(ZPropertiesObject, RefusesANullCache)
{
    EXPECT_EQ("ZInvalidParameterException", thrown([] { ZProperties_6_0 store(nullptr); }));
}

TEST_F(ZProperties, StartsEmptyUnmodifiedAndWithoutAFileName)
{
    EXPECT_EQ(0, store_.count());
    EXPECT_EQ(0, store_.isModified());
    EXPECT_TRUE(store_.fileName().isEmpty());
    EXPECT_EQ(0, store_.timeStamp());
}

TEST_F(ZProperties, CopyIsIndependent)
{
    std::string const path = load(kText);
    NotedChanges observer;
    store_.addObserver(&observer);
    ZProperties_6_0 copy(store_);
    copy.setValue("server", "port", "81");
    EXPECT_EQ("80", valueOf(store_, "server", "port"));
    EXPECT_EQ("81", valueOf(copy, "server", "port"));
    EXPECT_STREQ(path.c_str(), copy.fileName().getChars());
    EXPECT_EQ(0u, copy.countObservers());
    EXPECT_EQ("", observer.log);
    EXPECT_EQ(nullptr, store_.clone());
}

// ---- Names and defaults ------------------------------------------------------------------------

TEST_F(ZProperties, EveryFunctionRefusesNullAndEmptyNames)
{
    load(kText);
    ZLCString_6_0 out("before");
    ZArrayList_6_0 list(1, 1);
    struct Case {
        char const* name;
        std::function<void(char const*, char const*)> call;
        bool takesKey;
    };
    Case const cases[] = {
        {"exists", [&](auto* c, auto* k) { store_.exists(c, k); }, true},
        {"exists category", [&](auto* c, auto*) { store_.exists(c); }, false},
        {"isObfuscated", [&](auto* c, auto* k) { store_.isObfuscated(c, k); }, true},
        {"isObfuscated category", [&](auto* c, auto*) { store_.isObfuscated(c); }, false},
        {"getValue", [&](auto* c, auto* k) { store_.getValue(c, k, out, 0, nullptr); }, true},
        {"getIntegerValue", [&](auto* c, auto* k) { store_.getIntegerValue(c, k, 0, 0); }, true},
        {"getBooleanValue", [&](auto* c, auto* k) { store_.getBooleanValue(c, k, 0, 0); }, true},
        {"getValues", [&](auto* c, auto* k) { store_.getValues(c, k, list, zPropLocalStrings); },
         true},
        {"count", [&](auto* c, auto*) { store_.count(c); }, false},
        {"numValues", [&](auto* c, auto* k) { store_.numValues(c, k); }, true},
        {"numValues category", [&](auto* c, auto*) { store_.numValues(c); }, false},
        {"setValue", [&](auto* c, auto* k) { store_.setValue(c, k, "v"); }, true},
        {"setIntegerValue", [&](auto* c, auto* k) { store_.setIntegerValue(c, k, 1); }, true},
        {"setBooleanValue", [&](auto* c, auto* k) { store_.setBooleanValue(c, k, 1); }, true},
        {"deleteKey", [&](auto* c, auto* k) { store_.deleteKey(c, k); }, true},
        {"addEntryComment", [&](auto* c, auto* k) { store_.addEntryComment(c, k, "#x"); }, true},
        {"checkAccess", [&](auto* c, auto* k) { store_.checkAccess(c, k, 0); }, true},
        {"keyNames", [&](auto* c, auto*) { delete store_.keyNames(c); }, false},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ("ZInvalidParameterException", thrown([&] { c.call(nullptr, "k"); }));
        EXPECT_EQ("ZInvalidParameterException", thrown([&] { c.call("", "k"); }));
        if (c.takesKey) {
            EXPECT_EQ("ZInvalidParameterException", thrown([&] { c.call("server", nullptr); }));
            EXPECT_EQ("ZInvalidParameterException", thrown([&] { c.call("server", ""); }));
        }
    }
    EXPECT_STREQ("before", out.getChars());
    EXPECT_EQ(0, store_.isModified());
    EXPECT_EQ(2, store_.count());
}

TEST_F(ZProperties, RequiredAndADefaultAreMutuallyExclusive)
{
    load(kText);
    ZLCString_6_0 out("before");
    for (char const* key : {"port", "missing"}) {
        SCOPED_TRACE(key);
        EXPECT_EQ("ZInvalidParameterException",
                  thrown([&] { store_.getValue("server", key, out, 1, "x"); }));
        EXPECT_EQ("ZInvalidParameterException",
                  thrown([&] { store_.getIntegerValue("server", key, 1, 5); }));
        EXPECT_EQ("ZInvalidParameterException",
                  thrown([&] { store_.getBooleanValue("server", key, 1, 1); }));
    }
    EXPECT_STREQ("before", out.getChars());
    EXPECT_EQ(80u, store_.getIntegerValue("server", "port", 1, 0));
}

TEST_F(ZProperties, MissingKeyThrowsIfRequiredAndElseGivesTheDefault)
{
    std::string const path = load(kText);
    ZLCString_6_0 out("before");
    for (char const* key : {"missing", "empty"}) {
        SCOPED_TRACE(key);
        std::string const expected = "missing " + path + " server " + key;
        EXPECT_EQ(expected, thrown([&] { store_.getValue("server", key, out, 1, nullptr); }));
        EXPECT_EQ(expected, thrown([&] { store_.getIntegerValue("server", key, 1, 0); }));
        EXPECT_EQ(expected, thrown([&] { store_.getBooleanValue("server", key, 1, 0); }));
        EXPECT_STREQ("before", out.getChars());
        EXPECT_EQ(7u, store_.getIntegerValue("server", key, 0, 7));
        EXPECT_EQ(1, store_.getBooleanValue("server", key, 0, 1));
        EXPECT_EQ("(none)", valueOf(store_, "server", key));
    }
    store_.getValue("server", "missing", out, 0, nullptr);
    EXPECT_TRUE(out.isEmpty());
    EXPECT_EQ("missing " + path + " nowhere port",
              thrown([&] { store_.getValue("nowhere", "port", out, 1, nullptr); }));
}

TEST_F(ZProperties, MissingKeyReportsItsSite)
{
    load(kText);
    try {
        store_.getIntegerValue("server", "missing", 1, 0);
        FAIL();
    } catch (ZPropertiesMissingPropertyException_6_0 const& e) {
        EXPECT_EQ(28u, e.messageNumber());
        EXPECT_STREQ(kSource, e.who());
        EXPECT_EQ(95u, e.where());
    }
}

// ---- Values ------------------------------------------------------------------------------------

TEST_F(ZProperties, SingleValueIsTheLastValue)
{
    load("[s]\nk = a\nk = b\n");
    EXPECT_EQ("b", valueOf(store_, "s", "k"));
    EXPECT_EQ("a,b,", valuesOf(store_, "s", "k"));
}

TEST_F(ZProperties, NumbersAreReadInEveryNotation)
{
    struct Case {
        char const* text;
        unsigned expected;
        bool valid;
    };
    Case const cases[] = {
        {"0", 0, true},
        {"15", 15, true},
        {"0x1F", 31, true},
        {"0X1f", 31, true},
        {"017", 15, true},
        {"+5", 5, true},
        {" 5", 5, true},
        {"\t -5", 4294967291u, true},
        {"-1", 4294967295u, true},
        {"-2", 4294967294u, true},
        {"4294967295", 4294967295u, true},
        {"4294967296", 4294967295u, true},
        {"-4294967295", 1, true},
        {"-4294967296", 4294967295u, true},
        {"99999999999999999999999", 4294967295u, true},
        {"-99999999999999999999999", 4294967295u, true},
        {"0xFFFFFFFFF", 4294967295u, true},
        {"0x", 0, false},
        {"08", 0, false},
        {"12abc", 0, false},
        {"abc", 0, false},
        {"1 2", 0, false},
        {"1.5", 0, false},
        {"1e3", 0, false},
        {"-", 0, false},
        {"- 5", 0, false},
        {"--5", 0, false},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        store_.setValue("s", "n", c.text);
        if (c.valid)
            EXPECT_EQ(c.expected, store_.getIntegerValue("s", "n", 1, 0));
        else
            EXPECT_EQ(std::string("value 40  s n ") + c.text,
                      thrown([&] { store_.getIntegerValue("s", "n", 1, 0); }));
    }
}

TEST_F(ZProperties, InvalidNumberReportsItsSite)
{
    std::string const path = load("[s]\nn = 12abc\n");
    try {
        store_.getIntegerValue("s", "n", 0, 0);
        FAIL();
    } catch (ZPropertiesInvalidValueException_6_0 const& e) {
        EXPECT_EQ(40u, e.messageNumber());
        EXPECT_STREQ(kSource, e.who());
        EXPECT_EQ(160u, e.where());
        EXPECT_STREQ(path.c_str(), e.propFile().getChars());
    }
}

TEST_F(ZProperties, BooleansAreReadFromEveryWord)
{
    struct Case {
        char const* text;
        int expected;
    };
    Case const cases[] = {{"yes", 1},
                          {"y", 1},
                          {"true", 1},
                          {"t", 1},
                          {"1", 1},
                          {"no", 0},
                          {"n", 0},
                          {"false", 0},
                          {"f", 0},
                          {"0", 0},
                          {"YES", 1},
                          {"Yes", 1},
                          {"TRUE", 1},
                          {"T", 1},
                          {"FaLsE", 0},
                          {"NO", 0},
                          {"maybe", 2},
                          {"ye", 2},
                          {"yess", 2},
                          {"2", 2},
                          {"00", 2},
                          {"tr\xC3\xBC"
                           "e",
                           2}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        store_.setValue("s", "b", c.text);
        if (c.expected < 2)
            EXPECT_EQ(c.expected, store_.getBooleanValue("s", "b", 1, 0));
        else
            EXPECT_EQ(std::string("value 41  s b ") + c.text,
                      thrown([&] { store_.getBooleanValue("s", "b", 1, 0); }));
    }
}

TEST_F(ZProperties, EmptyValueIsZeroAndFalse)
{
    store_.setValue("s", "k", "x");
    {
        ZAbstractPropertyValuesIterator_6_0 values(store_, "s", "k", zPropLocalStrings,
                                                   zPropIterPlain);
        values.nextValue();
        values.changeValue("");
    }
    EXPECT_EQ(0u, store_.getIntegerValue("s", "k", 1, 0));
    EXPECT_EQ(0, store_.getBooleanValue("s", "k", 1, 0));
    EXPECT_EQ("", valueOf(store_, "s", "k"));
}

TEST_F(ZProperties, CountsAndExistence)
{
    load(kText);
    EXPECT_EQ(2, store_.count());
    EXPECT_EQ(3, store_.count("server"));
    EXPECT_EQ(1, store_.count("client"));
    EXPECT_EQ(0, store_.count("nowhere"));
    EXPECT_EQ(2, store_.numValues("server", "name"));
    EXPECT_EQ(0, store_.numValues("server", "empty"));
    EXPECT_EQ(0, store_.numValues("server", "missing"));
    EXPECT_EQ(0, store_.numValues("nowhere", "x"));
    EXPECT_EQ(3, store_.numValues("server"));
    EXPECT_EQ(0, store_.numValues("nowhere"));
    EXPECT_EQ(1, store_.exists("server", "empty"));
    EXPECT_EQ(0, store_.exists("server", "missing"));
    EXPECT_EQ(1, store_.exists("client"));
    EXPECT_EQ(0, store_.exists("nowhere"));
    EXPECT_EQ(0, store_.isObfuscated("server"));
    EXPECT_EQ(0, store_.isObfuscated("server", "port"));
    store_.setValue("client", "secret", "s", 1);
    EXPECT_EQ(1, store_.isObfuscated("client"));
    EXPECT_EQ(1, store_.isObfuscated("client", "secret"));
    EXPECT_EQ(1, store_.numValues("client", "secret"));
}

TEST_F(ZProperties, GetValuesFillsAListOfEitherType)
{
    load("[s]\nk = a\nk = b\n");
    ZArrayList_6_0 out(1, 1);
    ZLCString_6_0 const old("old");
    out.add(&old);
    store_.getValues("s", "k", out, zPropUTF8Strings);
    ASSERT_EQ(2u, out.size());
    auto const* const first = dynamic_cast<ZUTF8String_6_0 const*>(out.get(0));
    ASSERT_NE(nullptr, first);
    EXPECT_STREQ("a", first->getChars());
    store_.getValues("s", "k", out, zPropLocalStrings);
    ASSERT_EQ(2u, out.size());
    ASSERT_NE(nullptr, dynamic_cast<ZLCString_6_0 const*>(out.get(1)));
    store_.getValues("s", "missing", out, zPropLocalStrings);
    EXPECT_EQ(0u, out.size());
}

TEST_F(ZProperties, GetValuesRefusesABorrowingListAndAnInvalidType)
{
    load("[s]\nk = a\n");
    ZLCString_6_0 const old("old");
    ZArrayList_6_0 borrowing(1, 0);
    borrowing.addNoCopy(&old);
    ZArrayList_6_0 owning(1, 1);
    owning.add(&old);
    EXPECT_EQ("ZInvalidParameterException",
              thrown([&] { store_.getValues("s", "k", borrowing, zPropLocalStrings); }));
    for (int type : {1, 4, 7, 9, -1})
        EXPECT_EQ("ZInvalidParameterException", thrown([&] {
                      store_.getValues("s", "k", owning, static_cast<ZPropertyStringType>(type));
                  }));
    EXPECT_EQ(1u, borrowing.size());
    EXPECT_EQ(1u, owning.size());
}

TEST_F(ZProperties, GetValueConvertsToTheCodesetOfTheResult)
{
    load("[s]\nk = plain\n");
    ZUTF8String_6_0 utf8("before");
    store_.getValue("s", "k", utf8, 1, nullptr);
    EXPECT_STREQ("plain", utf8.getChars());
}

TEST_F(ZProperties, NamesAreListed)
{
    load(kText);
    std::unique_ptr<ZArrayList_6_0> const keys(store_.keyNames("server"));
    EXPECT_EQ(3u, keys->size());
    EXPECT_NE(0, keys->ownsMembers());
    EXPECT_EQ(nullptr, store_.keyNames("nowhere"));
    std::unique_ptr<ZArrayList_6_0> const categories(store_.categoryNames());
    EXPECT_EQ(2u, categories->size());
}

TEST_F(ZProperties, ListPrintsToStandardOutput)
{
    load("[s]\nk = a\nk = b\nempty =\n");
    testing::internal::CaptureStdout();
    store_.list();
    fflush(stdout);
    std::string const out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(0u, out.find("\n[s]\n"));
    EXPECT_NE(std::string::npos, out.find("k = a\nk = b\n"));
    EXPECT_NE(std::string::npos, out.find("empty =\n"));
}

// ---- Setting -----------------------------------------------------------------------------------

TEST_F(ZProperties, SetReplacesEveryValue)
{
    load("[s]\nk = a\nk = b\n");
    store_.setValue("s", "k", "c");
    EXPECT_EQ("c,", valuesOf(store_, "s", "k"));
    EXPECT_EQ(1, store_.isModified());
    store_.setValue("s", "k", "");
    EXPECT_EQ(1, store_.exists("s", "k"));
    EXPECT_EQ(0, store_.numValues("s", "k"));
    store_.setValue("s", "k", nullptr);
    EXPECT_EQ(1, store_.exists("s", "k"));
}

TEST_F(ZProperties, SetValueAcceptsSixTypesOfStrings)
{
    store_.setValue("s", "1", "text");
    store_.setValue("s", "2", "text", 0);
    store_.setValue("s", "3", ZLCString_6_0("text"), 0);
    store_.setValue("s", "4", ZUTF8String_6_0("text"), 0);
    store_.setValue("s", "5", ZLCConstString_6_0("text"), 0);
    store_.setValue("s", "6", ZUTF8ConstString_6_0("text"), 0);
    for (char const* key : {"1", "2", "3", "4", "5", "6"}) {
        SCOPED_TRACE(key);
        EXPECT_EQ("text", valueOf(store_, "s", key));
    }
    store_.setValue("s", "4", ZUTF8String_6_0(), 0);
    store_.setValue("s", "6", ZUTF8ConstString_6_0(""), 0);
    for (char const* key : {"4", "6"}) {
        SCOPED_TRACE(key);
        EXPECT_EQ(1, store_.exists("s", key));
        EXPECT_EQ(0, store_.numValues("s", key));
    }
}

TEST_F(ZProperties, NumbersAndBooleansAreStoredAsText)
{
    store_.setIntegerValue("s", "n", 4294967295u);
    store_.setBooleanValue("s", "y", 5);
    store_.setBooleanValue("s", "f", 0);
    EXPECT_EQ("4294967295", valueOf(store_, "s", "n"));
    EXPECT_EQ("yes", valueOf(store_, "s", "y"));
    EXPECT_EQ("no", valueOf(store_, "s", "f"));
}

TEST_F(ZProperties, ValuesOfAKeyStayPlainOrObfuscated)
{
    store_.setValue("s", "plain", "p");
    store_.setValue("s", "hidden", "h", 1);
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store_.setValue("s", "plain", "x", 1); }));
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store_.setValue("s", "hidden", "x"); }));
    EXPECT_EQ("ZInvalidParameterException",
              thrown([&] { store_.setIntegerValue("s", "hidden", 1); }));
    EXPECT_EQ("ZInvalidParameterException",
              thrown([&] { store_.setBooleanValue("s", "hidden", 1); }));
    EXPECT_EQ("p", valueOf(store_, "s", "plain"));
    EXPECT_EQ("h", valueOf(store_, "s", "hidden"));
    store_.checkAccess("s", "plain", 0);
    store_.checkAccess("s", "hidden", 1);
    store_.checkAccess("s", "missing", 1);
    store_.setValue("s", "hidden", "");  // a key without values has no kind
    store_.checkAccess("s", "hidden", 0);
    store_.setValue("s", "hidden", "open now");
    EXPECT_EQ(0, store_.isObfuscated("s", "hidden"));
}

TEST_F(ZProperties, RefusesStringsThatAFileCannotRepresent)
{
    load("[s]\nk = a\n");
    struct Case {
        char const* name;
        std::string category;
        std::string key;
        std::string value;
    };
    Case const cases[] = {
        {"bracket in the category", "a]b", "k", "v"},
        {"newline in the category", "a\nb", "k", "v"},
        {"equals in the key", "s", "a=b", "v"},
        {"comment as key", "s", "#k", "v"},
        {"header as key", "s", "[k", "v"},
        {"space before the key", "s", " k", "v"},
        {"tab after the key", "s", "k\t", "v"},
        {"newline in the key", "s", "a\nb", "v"},
        {"newline in the value", "s", "k", "a\n[x]"},
        {"line too long", "s", "k", std::string(8190, 'x')},
        {"key too long", "s", std::string(9000, 'x'), "v"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ("ZInvalidParameterException", thrown([&] {
                      store_.setValue(c.category.c_str(), c.key.c_str(), c.value.c_str());
                  }));
    }
    EXPECT_EQ(0, store_.isModified());
    EXPECT_EQ(1, store_.count());
    EXPECT_EQ("a", valueOf(store_, "s", "k"));
    // An obfuscated value is not in the file.
    store_.setValue("s", "secret", "a\nb", 1);
    EXPECT_EQ("a\nb", valueOf(store_, "s", "secret"));
    // The longest line that fits.
    std::string const longest(8190 - strlen("k = "), 'x');
    store_.setValue("s", "k", longest.c_str());
    store_.store(nullptr);
    Store again;
    again.load(directory_.at("conf").c_str());
    EXPECT_EQ(longest, valueOf(again, "s", "k"));
}

TEST_F(ZProperties, CompanionEntryCannotBeObfuscated)
{
    EXPECT_EQ("ZInvalidParameterException",
              thrown([&] { store_.setValue("configuration-database", "file", "/x", 1); }));
    EXPECT_EQ(0, store_.exists("configuration-database"));
    store_.setValue("configuration-database", "secret", "hidden", 1);
    EXPECT_EQ(1, store_.isObfuscated("configuration-database", "secret"));
    EXPECT_EQ("hidden", valueOf(store_, "configuration-database", "secret"));
}

TEST_F(ZProperties, UTF8WithoutALocalFormIsRefused)
{
    // In a UTF-8 locale every valid string has a local form; a truncated sequence never has.
    EXPECT_EQ("ZFromUTF8Exception",
              thrown([&] { store_.setValue("s", "k", ZUTF8String_6_0("\xC3"), 0); }));
    EXPECT_EQ("ZFromUTF8Exception",
              thrown([&] { store_.setValue("s", "k", ZUTF8ConstString_6_0("\xFF"), 0); }));
    EXPECT_EQ(0, store_.exists("s"));
}

TEST_F(ZProperties, OuterWhitespaceOfAPlainValueIsNotReadBack)
{
    std::string const path = directory_.at("conf");
    store_.setValue("s", "plain", " \tv\r");
    store_.setValue("s", "hidden", " \tv\r", 1);
    EXPECT_EQ(" \tv\r", valueOf(store_, "s", "plain"));
    store_.store(path.c_str());
    store_.reload(nullptr);
    EXPECT_EQ("v", valueOf(store_, "s", "plain"));
    EXPECT_EQ(" \tv\r", valueOf(store_, "s", "hidden"));
}

TEST_F(ZProperties, DeleteKeyRemovesTheKey)
{
    load(kText);
    store_.deleteKey("server", "port");
    EXPECT_EQ(0, store_.exists("server", "port"));
    EXPECT_EQ(1, store_.isModified());
    store_.deleteKey("server", "port");
    store_.deleteKey("nowhere", "port");
}

TEST_F(ZProperties, CommentsWithSeveralLinesBecomeCommentLines)
{
    load("[s]\nk = a\n");
    store_.addFileComment("# one\n# two");
    store_.addEntryComment("s", "k", "# three\n# four");
    store_.addEntryComment("s", "new", "# five");
    store_.store(nullptr);
    EXPECT_EQ("# one\n# two\n\n[s]\n\n# three\n# four\nk = a\n\n# five\nnew =\n",
              directory_.read("conf"));
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store_.addFileComment(nullptr); }));
    EXPECT_EQ("ZInvalidParameterException",
              thrown([&] { store_.addFileComment(("#" + std::string(8190, 'x')).c_str()); }));
}

TEST_F(ZProperties, CommentsWithoutAHashSignAreRefused)
{
    load("[s]\nk = a\n");
    for (char const* comment : {"[x]", "k = b", "", " # blank first", "# one\n[x]", "# one\n"}) {
        SCOPED_TRACE(comment);
        EXPECT_EQ("ZInvalidParameterException", thrown([&] { store_.addFileComment(comment); }));
        EXPECT_EQ("ZInvalidParameterException",
                  thrown([&] { store_.addEntryComment("s", "k", comment); }));
    }
    EXPECT_EQ(0, store_.isModified());
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
}

TEST_F(ZProperties, ModifiedFlagFollowsChangesLoadsAndStores)
{
    std::string const path = load(kText);
    EXPECT_EQ(0, store_.isModified());
    std::vector<std::function<void()>> const changes = {
        [&] { store_.setValue("s", "k", "v"); },
        [&] { store_.setIntegerValue("s", "k", 1); },
        [&] { store_.setBooleanValue("s", "k", 1); },
        [&] { store_.deleteKey("s", "k"); },
        [&] { store_.addFileComment("# x"); },
        [&] { store_.addEntryComment("s", "k", "# x"); },
    };
    for (auto const& change : changes) {
        change();
        EXPECT_EQ(1, store_.isModified());
        store_.resetModified();
    }
    store_.setModified();
    store_.store(nullptr);
    EXPECT_EQ(0, store_.isModified());
    store_.setModified();
    store_.reload(nullptr);
    EXPECT_EQ(0, store_.isModified());
}

// ---- Files -------------------------------------------------------------------------------------

TEST_F(ZProperties, FirstPathBecomesTheFileName)
{
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store_.load(nullptr); }));
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store_.load(""); }));
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store_.store(nullptr); }));
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store_.reload(""); }));
    EXPECT_NE("nothing", thrown([&] { store_.load(directory_.at("missing").c_str()); }));
    EXPECT_TRUE(store_.fileName().isEmpty());
    std::string const path = load("[s]\nk = a\n");
    EXPECT_STREQ(path.c_str(), store_.fileName().getChars());
    std::string const other = directory_.at("other");
    store_.store(other.c_str());
    EXPECT_STREQ(path.c_str(), store_.fileName().getChars());
    EXPECT_EQ("[s]\nk = a\n", directory_.read("other"));
    Store fresh;
    fresh.setValue("s", "k", "v");
    fresh.store(other.c_str());
    EXPECT_STREQ(other.c_str(), fresh.fileName().getChars());
}

TEST_F(ZProperties, StoreCreatesAMissingFileAndNoOther)
{
    store_.setValue("s", "k", "v");
    store_.store(directory_.at("new").c_str());
    EXPECT_EQ("\n[s]\nk = v\n", directory_.read("new"));
    EXPECT_EQ("new", directory_.names());
}

TEST_F(ZProperties, ShorterTextReplacesTheWholeFile)
{
    std::string const path = load("[s]\nk = " + std::string(4000, 'x') + "\n");
    store_.setValue("s", "k", "y");
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = y\n", directory_.read("conf"));
}

TEST_F(ZProperties, StoreKeepsInodeOwnerAndMode)
{
    std::string const path = load(kText);
    chmod(path.c_str(), 0640);
    struct stat before;
    stat(path.c_str(), &before);
    store_.setValue("server", "port", "8080");
    store_.store(nullptr);
    struct stat after;
    stat(path.c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mode, after.st_mode);
    EXPECT_EQ(before.st_uid, after.st_uid);
}

TEST_F(ZProperties, LoadFailuresReportTheCallAndChangeNothing)
{
    load("[s]\nk = a\n");
    store_.setValue("s", "k", "changed");
    std::string const conf = directory_.at("conf");
    mkdir(directory_.at("dir").c_str(), 0700);
    mkfifo(directory_.at("fifo").c_str(), 0600);
    struct Case {
        char const* name;
        char const* file;
        std::string text;
        std::string expected;
    };
    std::string const at = directory_.path() + "/";
    Case const cases[] = {
        {"missing", "missing", "", "io " + at + "missing fopen(r) 2"},
        {"missing directory", "no/where", "", "io " + at + "no/where fopen(r) 2"},
        {"file as directory", "conf/x", "", "io " + at + "conf/x fopen(r) 20"},
        {"directory", "dir", "", "io " + at + "dir fopen(r) 21"},
        {"fifo", "fifo", "", "io " + at + "fifo fopen(r) 22"},
        {"key before a header", "bad", "k = v\n", "data " + at + "bad 1 k = v"},
        {"no equals", "bad", "[t]\n\nword\n", "data " + at + "bad 3 word"},
        {"equals first", "bad", "[t]\n  = v  \n", "data " + at + "bad 2 = v"},
        {"no closing bracket", "bad", "# x\n[t\n", "data " + at + "bad 2 [t"},
        {"stanza twice", "bad", "[a]\nk=1\n[b]\n[a]\n", "data " + at + "bad 4 [a]"},
        {"long line", "bad", "[t]\nk = " + std::string(9000, 'x') + "\n",
         "data " + at + "bad 3 " + std::string(9000 - 8191 + 4, 'x')},
        {"byte order mark", "bad", "\xEF\xBB\xBF[t]\nk = v\n",
         "data " + at + "bad 1 \xEF\xBB\xBF[t]"},
        {"missing companion", "bad", "[configuration-database]\nfile = " + at + "nocompanion\n",
         "io " + at + "nocompanion mapFile() 22"},
    };
    long const descriptors = openDescriptors();
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        if (!c.text.empty())
            directory_.write(c.file, c.text);
        std::string const path = directory_.at(c.file);
        EXPECT_EQ(c.expected, thrown([&] { store_.load(path.c_str()); }));
        EXPECT_EQ(c.expected, thrown([&] { store_.reload(path.c_str()); }));
        Store fresh;
        EXPECT_EQ(c.expected, thrown([&] { fresh.load(path.c_str()); }));
        EXPECT_TRUE(fresh.fileName().isEmpty());
        EXPECT_EQ(0, fresh.count());
        EXPECT_EQ("changed", valueOf(store_, "s", "k"));
        EXPECT_EQ(1, store_.count());
        EXPECT_EQ(1, store_.isModified());
        EXPECT_STREQ(conf.c_str(), store_.fileName().getChars());
    }
    EXPECT_EQ(descriptors, openDescriptors());
    EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
}

TEST_F(ZProperties, LoadFailsIfTheFileCannotBeRead)
{
    // The memory of the process; nothing is mapped at address 0.
    load("[s]\nk = a\n");
    EXPECT_EQ("io /proc/self/mem read() " + std::to_string(EIO),
              thrown([&] { store_.load("/proc/self/mem"); }));
    EXPECT_EQ("a", valueOf(store_, "s", "k"));
}

TEST_F(ZProperties, UnusualTextIsRead)
{
    struct Case {
        char const* name;
        std::string text;
        char const* expected;
    };
    Case const cases[] = {
        {"CRLF", "[s]\r\nk = v\r\n", "v"},
        {"no newline at the end", "[s]\nk = v", "v"},
        {"NUL cuts the line", std::string("[s]\nk = v\0w\n", 12), "v"},
        {"invalid UTF-8", "[s]\nk = \xFF\xFE\n", "\xFF\xFE"},
        {"spaces", "  [s] tail\n  k   =   v  \n", "v"},
        {"blank before equals only", "[s]\nk =\n", "(none)"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Store store;
        store.load(directory_.write("conf", c.text).c_str());
        EXPECT_EQ(c.expected, valueOf(store, "s", "k"));
    }
    Store empty;
    empty.load(directory_.write("conf", "").c_str());
    EXPECT_EQ(0, empty.count());
}

TEST_F(ZProperties, LoadAddsToTheContents)
{
    load("[a]\nk = 1\n");
    store_.load(directory_.write("more", "[b]\nk = 2\n").c_str());
    EXPECT_EQ("1", valueOf(store_, "a", "k"));
    EXPECT_EQ("2", valueOf(store_, "b", "k"));
    std::string const again = directory_.write("again", "[c]\nk = 3\n[b]\nk = 4\n");
    EXPECT_EQ("data " + again + " 3 [b]", thrown([&] { store_.load(again.c_str()); }));
    EXPECT_EQ(2, store_.count());
}

TEST_F(ZProperties, ReloadReplacesTheContents)
{
    std::string const path = load("[a]\nk = 1\n");
    store_.setValue("b", "k", "2");
    store_.reload(nullptr);
    EXPECT_EQ(0, store_.exists("b"));
    EXPECT_EQ("1", valueOf(store_, "a", "k"));
    EXPECT_EQ(path, store_.loaded);
    directory_.write("conf", "broken");
    EXPECT_EQ("data " + path + " 1 broken", thrown([&] { store_.reload(nullptr); }));
    EXPECT_EQ("1", valueOf(store_, "a", "k"));
}

TEST_F(ZProperties, UnreadableAndUnwritableFilesAreRefused)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    chmod(directory_.path().c_str(), 0755);
    chmod(path.c_str(), 0000);
    asNobody([&] {
        Store store;
        bool const load =
            thrown([&] { store.load(path.c_str()); }) == "io " + path + " fopen(r) 13";
        store.setValue("s", "k", "b");
        bool const save =
            thrown([&] { store.store(path.c_str()); }) == "io " + path + " fopen(r+) 13";
        return load && save && store.isModified() != 0;
    });
    chmod(path.c_str(), 0600);
    EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
}

TEST_F(ZProperties, LoadAndStoreDoNotWaitForAnotherProcess)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "k", "b");
    {
        LockingProcess const writer(path, F_WRLCK);
        EXPECT_EQ("io " + path + " fcntl() 11", thrown([&] { store_.reload(nullptr); }));
        EXPECT_EQ("io " + path + " fcntl() 11", thrown([&] { store_.store(nullptr); }));
        EXPECT_EQ("b", valueOf(store_, "s", "k"));
        EXPECT_EQ(1, store_.isModified());
    }
    {
        LockingProcess const reader(path, F_RDLCK);
        EXPECT_EQ("io " + path + " fcntl() 11", thrown([&] { store_.store(nullptr); }));
        Store other;
        other.load(path.c_str());
        EXPECT_EQ("a", valueOf(other, "s", "k"));
    }
    EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
    EXPECT_EQ("conf", directory_.names());
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = b\n", directory_.read("conf"));
}

TEST_F(ZProperties, PostLoadSeesTheLoadedStoreAndItsExceptionUndoesTheLoad)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    std::string seen;
    NotedChanges observer;
    store_.addObserver(&observer);
    store_.onPostLoad = [&] {
        seen = valueOf(store_, "s", "k");
        store_.setValue("s", "made", "in postLoad");
        store_.sendChangeNotice(ZPropertyChanged_6_0::storeChanged, ZPropertyChanged_6_0::set, "s",
                                "made");
    };
    store_.load(path.c_str());
    EXPECT_EQ("a", seen);
    EXPECT_EQ(path, store_.loaded);
    EXPECT_EQ(0, store_.isModified());
    EXPECT_EQ("", observer.log);
    store_.onPostLoad = [&] { throw std::runtime_error("no"); };
    directory_.write("conf", "[s]\nk = b\n");
    EXPECT_THROW(store_.reload(nullptr), std::runtime_error);
    EXPECT_EQ("a", valueOf(store_, "s", "k"));
    store_.onPostLoad = nullptr;
    store_.setValue("s", "k", "c");
    EXPECT_EQ("2[s]k ", observer.log);  // the loading flag is reset
}

TEST_F(ZProperties, StoreInPostLoadResetsTheLoadingFlag)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    NotedChanges observer;
    store_.addObserver(&observer);
    store_.onPostLoad = [&] {
        store_.setValue("s", "k", "b");
        store_.store(path.c_str());
        store_.setValue("s", "k", "c");
    };
    store_.load(path.c_str());
    EXPECT_EQ("[s]\nk = b\n", directory_.read("conf"));
    EXPECT_EQ("2[s]k ", observer.log);
    EXPECT_EQ("c", valueOf(store_, "s", "k"));
}

TEST_F(ZProperties, StoreWritesTheFileThatWasRenamedIntoPlace)
{
    std::string const path = load("[s]\nk = a\n");
    directory_.write("edited", "[s]\nk = by an editor\n");
    rename(directory_.at("edited").c_str(), path.c_str());
    store_.setValue("s", "k", "b");
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = b\n", directory_.read("conf"));
}

TEST_F(ZProperties, StoreToALinkWritesItsTarget)
{
    std::string const path = directory_.write("real", "[s]\nk = a\n");
    std::string const link = directory_.at("link");
    ASSERT_EQ(0, symlink(path.c_str(), link.c_str()));
    store_.load(link.c_str());
    store_.setValue("s", "k", "b");
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = b\n", directory_.read("real"));
    struct stat status;
    ASSERT_EQ(0, lstat(link.c_str(), &status));
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    EXPECT_EQ("link real", directory_.names());
}

TEST_F(ZProperties, TimeStampIsTheModificationTimeOfTheFile)
{
    std::string const path = load("[s]\nk = a\n");
    utimbuf const times = {1000000000, 1000000000};
    utime(path.c_str(), &times);
    store_.reload(nullptr);
    EXPECT_EQ(1000000000, store_.timeStamp());
    long stamp = 0;
    EXPECT_EQ(1, ZProperties_6_0::checkAndSetTimeStamp(path.c_str(), stamp));
    EXPECT_EQ(1000000000, stamp);
    EXPECT_EQ(0, ZProperties_6_0::checkAndSetTimeStamp(path.c_str(), stamp));
    EXPECT_EQ(0, ZProperties_6_0::checkAndSetTimeStamp("/no/such/file", stamp));
    EXPECT_EQ(0, ZProperties_6_0::checkAndSetTimeStamp(nullptr, stamp));
    EXPECT_EQ(1000000000, stamp);
}

TEST_F(ZProperties, OnlyTheFileNamedByTheStoreSetsTheTimeStamp)
{
    auto const setTime = [&](std::string const& path, time_t time) {
        utimbuf const times = {time, time};
        utime(path.c_str(), &times);
    };
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    std::string const other = directory_.write("other", "[t]\nk = b\n");
    std::string const third = directory_.at("third");
    setTime(path, 1000000000);
    setTime(other, 1100000000);
    Factory factory;
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    store->load(other.c_str());
    EXPECT_EQ(1000000000, store->timeStamp());
    store->store(third.c_str());
    EXPECT_EQ(1000000000, store->timeStamp());
    EXPECT_EQ(path, store->fileName().getChars());
    // The file named by the store has not changed and is not reloaded.
    EXPECT_EQ(store, ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0));
    EXPECT_EQ("b", valueOf(*store, "t", "k"));
    // Another path to the same file.
    std::string const link = directory_.at("link");
    ASSERT_EQ(0, symlink(path.c_str(), link.c_str()));
    store->store(link.c_str());
    struct stat status;
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(status.st_mtim.tv_sec, store->timeStamp());
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("b", valueOf(*store, "t", "k"));
    directory_.write("conf", "[s]\nk = changed\n");
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("changed", valueOf(*store, "s", "k"));
    EXPECT_EQ(0, store->exists("t"));
}

TEST_F(ZProperties, CheckFileAccessChecksTheFileOrItsDirectory)
{
    std::string const path = directory_.write("conf", "");
    ZProperties_6_0::checkFileAccess(path.c_str());
    ZProperties_6_0::checkFileAccess(directory_.at("missing").c_str());
    ZProperties_6_0::checkFileAccess("missing-in-the-current-directory");
    EXPECT_EQ("io /no/such access() 2",
              thrown([] { ZProperties_6_0::checkFileAccess("/no/such/file"); }));
    EXPECT_EQ("ZInvalidParameterException",
              thrown([] { ZProperties_6_0::checkFileAccess(nullptr); }));
    asNobody([] {
        bool const root =
            thrown([] { ZProperties_6_0::checkFileAccess("/missing"); }) == "io / access() 13";
        bool const file = thrown([] { ZProperties_6_0::checkFileAccess("/etc/passwd"); }) ==
                          "io /etc/passwd access() 13";
        return root && file;
    });
}

TEST_F(ZProperties, CheckFileAccessFailsInARemovedDirectory)
{
    char back[4096];
    ASSERT_NE(nullptr, getcwd(back, sizeof back));
    std::string const directory = directory_.at("directory");
    ASSERT_EQ(0, mkdir(directory.c_str(), 0700));
    ASSERT_EQ(0, chdir(directory.c_str()));
    ASSERT_EQ(0, rmdir(directory.c_str()));
    EXPECT_EQ("io conf getcwd() 2", thrown([] { ZProperties_6_0::checkFileAccess("conf"); }));
    ASSERT_EQ(0, chdir(back));
}

// ---- The companion file ------------------------------------------------------------------------

TEST_F(ZProperties, ObfuscatedValuesAreStoredInTheCompanion)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    EXPECT_EQ("[s]\nk = a\n\n[configuration-database]\nfile = " + path + ".obf\n",
              directory_.read("conf"));
    EXPECT_EQ("conf conf.obf", directory_.names());
    EXPECT_EQ(std::string::npos, directory_.read("conf.obf").find("hidden"));
    Store again;
    again.load(path.c_str());
    EXPECT_EQ("hidden", valueOf(again, "s", "secret"));
    EXPECT_EQ(1, again.isObfuscated("s", "secret"));
}

TEST_F(ZProperties, CompanionHasTheModeOfItsFile)
{
    std::string const path = load("[s]\n");
    chmod(path.c_str(), 0640);
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    struct stat status;
    ASSERT_EQ(0, stat(directory_.at("conf.obf").c_str(), &status));
    EXPECT_EQ(0640u, status.st_mode & 07777);
}

TEST_F(ZProperties, CompanionIsRemovedWithItsLastItem)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    store_.setValue("s", "secret", "");
    store_.store(nullptr);
    EXPECT_EQ("conf", directory_.names());
    EXPECT_EQ(0, store_.exists("configuration-database", "file"));
    Store again;
    again.load(path.c_str());
    EXPECT_EQ(0, again.isObfuscated("s"));
}

TEST_F(ZProperties, RelativePathGivesAnAbsoluteCompanionPath)
{
    char before[4096];
    ASSERT_NE(nullptr, getcwd(before, sizeof before));
    ASSERT_EQ(0, chdir(directory_.path().c_str()));
    store_.setValue("s", "secret", "hidden", 1);
    store_.store("conf");
    ASSERT_EQ(0, chdir(before));
    EXPECT_EQ(directory_.at("conf.obf"), valueOf(store_, "configuration-database", "file"));
    EXPECT_EQ("conf conf.obf", directory_.names());
}

TEST_F(ZProperties, NamedCompanionIsUsedAsWritten)
{
    directory_.write("elsewhere", compressed({"s", "secret", "old"}));
    std::string const path =
        load("[s]\n[configuration-database]\nfile = " + directory_.at("elsewhere") + "\n");
    EXPECT_EQ("old", valueOf(store_, "s", "secret"));
    store_.setValue("s", "secret", "new", 1);
    store_.store(nullptr);
    EXPECT_EQ("conf elsewhere", directory_.names());
    Store again;
    again.load(path.c_str());
    EXPECT_EQ("new", valueOf(again, "s", "secret"));
    // A store removes only a companion with the file's own name.
    store_.setValue("s", "secret", "");
    store_.store(nullptr);
    EXPECT_EQ("conf elsewhere", directory_.names());
    EXPECT_EQ(0, store_.exists("configuration-database", "file"));
}

TEST_F(ZProperties, EmptyEntryNamesNoCompanion)
{
    for (bool const isBlanked : {false, true}) {
        SCOPED_TRACE(isBlanked);
        std::string const path =
            directory_.write("conf", "[configuration-database]\nfile =\n\n[s]\n");
        Store store;
        store.load(path.c_str());
        if (isBlanked) {
            store.setValue("configuration-database", "file", "elsewhere");
            ZAbstractPropertyValuesIterator_6_0 entry(store, "configuration-database", "file",
                                                      zPropLocalStrings, zPropIterPlain);
            entry.nextValue();
            entry.changeValue("");
        }
        store.setValue("s", "secret", "hidden", 1);
        store.store(nullptr);
        EXPECT_EQ("[configuration-database]\nfile = " + path + ".obf\n\n[s]\n",
                  directory_.read("conf"));
        EXPECT_EQ("conf conf.obf", directory_.names());
        Store again;
        again.load(path.c_str());
        EXPECT_EQ("hidden", valueOf(again, "s", "secret"));
    }
}

TEST_F(ZProperties, EntrySetByTheCallerNamesTheCompanion)
{
    std::string const path = load("[s]\n");
    std::string const companion = directory_.at("mine");
    store_.setValue("configuration-database", "file", companion.c_str());
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    EXPECT_EQ("conf mine", directory_.names());
    Store again;
    again.load(path.c_str());
    EXPECT_EQ("hidden", valueOf(again, "s", "secret"));
}

TEST_F(ZProperties, WhitespaceAroundTheCompanionEntryIsIgnored)
{
    // Whitespace at the ends of an entry does not survive in the text.
    std::string const path = load("[s]\n");
    std::string const mine = directory_.at("mine");
    for (char const* const end : {" ", "\t", " \r"})
        for (std::string const& entry : {mine + end, end + mine}) {
            SCOPED_TRACE(entry);
            store_.setValue("configuration-database", "file", entry.c_str());
            store_.setValue("s", "secret", "hidden", 1);
            EXPECT_EQ("nothing", thrown([&] { store_.store(nullptr); }));
            EXPECT_EQ("conf mine", directory_.names());
            EXPECT_EQ(mine, valueOf(store_, "configuration-database", "file"));
            Store again;
            EXPECT_EQ("nothing", thrown([&] { again.load(path.c_str()); }));
            EXPECT_EQ("hidden", valueOf(again, "s", "secret"));
            std::filesystem::remove(mine);
        }
}

TEST_F(ZProperties, CompanionIsRemovedWithItsLastItemThoughAnotherFileWasStoredFirst)
{
    std::string const path = load("[s]\nk = a\n");
    std::string const other = directory_.at("other");
    for (bool const isEdited : {false, true}) {
        SCOPED_TRACE(isEdited);
        store_.setValue("s", "secret", "hidden", 1);
        store_.store(nullptr);
        store_.setValue("s", "secret", "");
        store_.store(other.c_str());
        EXPECT_EQ("conf conf.obf other", directory_.names());
        // Another program may have removed the entry, or the file.
        if (isEdited)
            std::filesystem::remove(path);
        store_.store(nullptr);
        EXPECT_EQ("conf other", directory_.names());
        EXPECT_EQ("[s]\nk = a\nsecret =\n\n[configuration-database]\n", directory_.read("conf"));
    }
    // The store no longer knows the companion: another program may have written a file of that
    // name.
    directory_.write("conf.obf", "foreign");
    store_.store(nullptr);
    EXPECT_EQ("foreign", directory_.read("conf.obf"));
}

TEST_F(ZProperties, StoreThatNeverReadTheFileRemovesItsCompanion)
{
    std::string const path = directory_.at("conf");
    Store first;
    first.setValue("s", "secret", "hidden", 1);
    first.store(path.c_str());
    ASSERT_EQ("conf conf.obf", directory_.names());
    store_.setValue("s", "k", "a");
    store_.store(path.c_str());
    EXPECT_EQ("conf", directory_.names());
    // A companion that the file does not name stays.
    directory_.write("conf.obf", compressed({"s", "secret", "old"}));
    store_.store(path.c_str());
    EXPECT_EQ("conf conf.obf", directory_.names());
    // A companion of another name stays, even if the file names it.
    directory_.write("conf", "[configuration-database]\nfile = " + directory_.at("foreign") + "\n");
    directory_.write("foreign", compressed({"s", "secret", "old"}));
    store_.store(path.c_str());
    EXPECT_EQ("conf conf.obf foreign", directory_.names());
}

TEST_F(ZProperties, CopyOfAFileGetsItsOwnCompanion)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "first", 1);
    store_.store(nullptr);
    std::string const copy = directory_.write("copy", directory_.read("conf"));
    Store second;
    second.load(copy.c_str());
    EXPECT_EQ("first", valueOf(second, "s", "secret"));
    second.setValue("s", "secret", "second", 1);
    second.store(nullptr);
    EXPECT_EQ("conf conf.obf copy copy.obf", directory_.names());
    EXPECT_EQ("[s]\nk = a\n\n[configuration-database]\nfile = " + copy + ".obf\n",
              directory_.read("copy"));
    EXPECT_EQ(copy + ".obf", valueOf(second, "configuration-database", "file"));
    store_.reload(nullptr);
    EXPECT_EQ("first", valueOf(store_, "s", "secret"));
    second.reload(nullptr);
    EXPECT_EQ("second", valueOf(second, "s", "secret"));
    // Removing the last secret of the copy does not remove the secret of the original.
    second.setValue("s", "secret", "");
    second.store(nullptr);
    EXPECT_EQ("conf conf.obf copy", directory_.names());
    store_.reload(nullptr);
    EXPECT_EQ("first", valueOf(store_, "s", "secret"));
}

TEST_F(ZProperties, FileStoredByAnotherNameGetsItsOwnCompanion)
{
    std::string const path = load("[s]\nk = a\n");
    std::string const other = directory_.at("other");
    store_.setValue("s", "secret", "first", 1);
    store_.store(nullptr);
    store_.store(other.c_str());
    EXPECT_EQ("conf conf.obf other other.obf", directory_.names());
    store_.setValue("s", "secret", "second", 1);
    store_.store(nullptr);
    for (auto const& [name, secret] : {std::pair(path, "second"), std::pair(other, "first")}) {
        Store again;
        again.load(name.c_str());
        EXPECT_EQ(secret, valueOf(again, "s", "secret"));
        EXPECT_EQ(name + ".obf", valueOf(again, "configuration-database", "file"));
    }
}

TEST_F(ZProperties, CompanionIsKeptIfItsFileIsMissingOrTheSame)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    // The file was moved: no other file has that companion.
    std::string const moved = directory_.at("moved");
    std::filesystem::rename(path, moved);
    Store again;
    again.load(moved.c_str());
    again.setValue("s", "secret", "new", 1);
    again.store(nullptr);
    EXPECT_EQ("conf.obf moved", directory_.names());
    // The old name is a link to the file.
    ASSERT_EQ(0, symlink(moved.c_str(), path.c_str()));
    again.setValue("s", "secret", "newer", 1);
    again.store(nullptr);
    EXPECT_EQ("conf conf.obf moved", directory_.names());
    Store last;
    last.load(moved.c_str());
    EXPECT_EQ("newer", valueOf(last, "s", "secret"));
    // A directory of that name has no companion.
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    last.setValue("s", "secret", "newest", 1);
    last.store(nullptr);
    EXPECT_EQ("conf conf.obf moved", directory_.names());
}

TEST_F(ZProperties, CompanionIsReadOnce)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    std::string const second = directory_.write("second", "[t]\nk = b\n");
    std::string const third = directory_.write("third", "[u]\nk = c\n");
    store_.load(second.c_str());
    EXPECT_EQ("hidden,", valuesOf(store_, "s", "secret")) << "stored before";
    Store again;
    again.load(path.c_str());
    again.load(second.c_str());
    EXPECT_EQ("hidden,", valuesOf(again, "s", "secret")) << "read before";
    EXPECT_EQ("b", valueOf(again, "t", "k"));
    Store copy(again);
    copy.load(third.c_str());
    EXPECT_EQ("hidden,", valuesOf(copy, "s", "secret")) << "read by the copied store";
    // A failed load changes nothing; reload() reads the companion again.
    directory_.write("broken", "[v]\nbroken\n");
    EXPECT_NE("nothing", thrown([&] { again.load(directory_.at("broken").c_str()); }));
    EXPECT_NE("nothing", thrown([&] { again.reload(directory_.at("broken").c_str()); }));
    again.load(third.c_str());
    EXPECT_EQ("hidden,", valuesOf(again, "s", "secret")) << "after failures";
    again.reload(nullptr);
    EXPECT_EQ("hidden,", valuesOf(again, "s", "secret")) << "read again";
}

TEST_F(ZProperties, CompanionIsReadAgainForEachTextThatNamesIt)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    struct Case {
        char const* name;
        std::function<void(ZStanzaFileProperties_6_0&)> remove;
    };
    Case const cases[] = {
        {"all stanzas removed",
         [](ZStanzaFileProperties_6_0& store) {
             store.deleteStanza("s");
             store.deleteStanza("configuration-database");
         }},
        {"another obfuscated value remains",
         [](ZStanzaFileProperties_6_0& store) {
             store.deleteStanza("s");
             store.deleteStanza("configuration-database");
             store.setValue("t", "other", "value", 1);
         }},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZStanzaFileProperties_6_0 store(path.c_str(), 1);
        c.remove(store);
        store.load(nullptr);
        EXPECT_EQ("hidden,", valuesOf(store, "s", "secret"));
        store.store(nullptr);
        ZStanzaFileProperties_6_0 const again(path.c_str(), 1);
        EXPECT_EQ("hidden", valueOf(again, "s", "secret"));
    }
    // A derived store may empty its cache itself.
    class Emptied final : public Store {
    public:
        void empty() { cache().clear(); }
    };
    Emptied store;
    store.load(path.c_str());
    store.empty();
    store.load(nullptr);
    EXPECT_EQ("hidden,", valuesOf(store, "s", "secret"));
}

TEST_F(ZProperties, DamagedCompanionsAreRefusedAndChangeNothing)
{
    std::string const companion = directory_.at("conf.obf");
    std::string const whole = compressed({"s", "secret", "value"});
    struct Case {
        char const* name;
        std::string contents;
        std::string expected;
    };
    std::string const data = "data " + companion + " 0 ";
    Case const cases[] = {
        {"empty", "", "io " + companion + " mapFile() 22"},
        {"truncated", whole.substr(0, whole.size() - 5), data},
        {"not compressed", "not zlib data", data},
    };
    load("[s]\nk = a\n");
    std::string const path = directory_.write(
        "conf", "[s]\nk = b\n[configuration-database]\nfile = " + companion + "\n");
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        directory_.write("conf.obf", c.contents);
        EXPECT_EQ(c.expected, thrown([&] { store_.reload(nullptr); }));
        EXPECT_EQ("a", valueOf(store_, "s", "k"));
    }
    std::filesystem::remove(companion);
    mkdir(companion.c_str(), 0700);
    EXPECT_EQ("io " + companion + " mapFile() 19", thrown([&] { store_.reload(nullptr); }));
    EXPECT_EQ("a", valueOf(store_, "s", "k"));
}

TEST_F(ZProperties, CompanionThatExpandsToTooMuchIsRefused)
{
    std::string const companion = directory_.at("conf.obf");
    // A block that expands to 64 KiB, many times.
    z_stream stream = {};
    ASSERT_EQ(Z_OK, deflateInit(&stream, 9));
    std::string zeros(1 << 16, '\0');
    std::string contents;
    std::string room(1 << 16, '\0');
    std::string block;
    for (int i = 0; i < 2; ++i) {
        stream.next_in = reinterpret_cast<Bytef*>(zeros.data());
        stream.avail_in = static_cast<uInt>(zeros.size());
        stream.next_out = reinterpret_cast<Bytef*>(room.data());
        stream.avail_out = static_cast<uInt>(room.size());
        ASSERT_EQ(Z_OK, deflate(&stream, Z_FULL_FLUSH));
        block.assign(room.data(), room.size() - stream.avail_out);
        contents += block;
    }
    deflateEnd(&stream);
    for (int i = 0; i < (300 << 20) / (1 << 16); ++i)
        contents += block;
    directory_.write("conf.obf", contents);
    std::string const path =
        directory_.write("conf", "[configuration-database]\nfile = " + companion + "\n");
    EXPECT_EQ("data " + companion + " 0 ", thrown([&] { store_.load(path.c_str()); }));
    EXPECT_EQ(0, store_.count());
}

TEST_F(ZProperties, FileThatOtherUsersCanWriteMayNameOnlyItsOwnCompanion)
{
    std::string const decoy = directory_.write("decoy", compressed({"s", "secret", "stolen"}));
    std::string const path =
        directory_.write("conf", "[s]\n[configuration-database]\nfile = " + decoy + "\n");
    chmod(path.c_str(), 0666);
    EXPECT_EQ("io " + decoy + " access() 1", thrown([&] { store_.load(path.c_str()); }));
    store_.setValue("configuration-database", "file", decoy.c_str());
    store_.setValue("s", "secret", "mine", 1);
    EXPECT_EQ("io " + decoy + " access() 1", thrown([&] { store_.store(path.c_str()); }));
    EXPECT_EQ(compressed({"s", "secret", "stolen"}), directory_.read("decoy"));
    // The file's own companion is valid if it is a regular file of the same owner.
    store_.setValue("configuration-database", "file", directory_.at("conf.obf").c_str());
    store_.store(path.c_str());
    Store again;
    again.load(path.c_str());
    EXPECT_EQ("mine", valueOf(again, "s", "secret"));
    std::filesystem::remove(directory_.at("conf.obf"));
    ASSERT_EQ(0, symlink(decoy.c_str(), directory_.at("conf.obf").c_str()));
    EXPECT_EQ("io " + directory_.at("conf.obf") + " access() 1",
              thrown([&] { again.reload(nullptr); }));
    std::filesystem::remove(directory_.at("conf.obf"));
    ASSERT_EQ(0, link(decoy.c_str(), directory_.at("conf.obf").c_str()));
    EXPECT_EQ("io " + directory_.at("conf.obf") + " access() 1",
              thrown([&] { again.reload(nullptr); }));
}

TEST_F(ZProperties, CompanionThatMayBelongToAnotherFileIsNotRemoved)
{
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    store_.setValue("s", "secret", "");
    // The companion has a second name, and other users can write the file.
    ASSERT_EQ(0, link(directory_.at("conf.obf").c_str(), directory_.at("second").c_str()));
    chmod(path.c_str(), 0666);
    store_.store(nullptr);
    EXPECT_EQ("conf conf.obf second", directory_.names());
    EXPECT_EQ("[s]\nk = a\nsecret =\n\n[configuration-database]\n", directory_.read("conf"));
}

TEST_F(ZProperties, ForeignFileIsNotReadAsACompanion)
{
    std::string const foreign = directory_.write("foreign", "root:x:0:0\n");
    std::string const path = load("[s]\n");
    for (std::string const& name : {foreign, path, directory_.path()}) {
        SCOPED_TRACE(name);
        store_.setValue("configuration-database", "file", name.c_str());
        store_.setValue("s", "secret", "hidden", 1);
        EXPECT_EQ("io " + name + " access() 1", thrown([&] { store_.store(nullptr); }));
        store_.setValue("s", "secret", "");
        EXPECT_EQ("nothing", thrown([&] { store_.store(nullptr); }));
    }
    EXPECT_EQ("root:x:0:0\n", directory_.read("foreign"));
    EXPECT_EQ("conf foreign", directory_.names());
}

TEST_F(ZProperties, CopyReplacesTheFileIfTheOriginalDoes)
{
    std::string const path = load("[s]\nk = a\n");
    for (int const replacing : {0, 1}) {
        SCOPED_TRACE(replacing);
        store_.setReplacing(replacing);
        Store copy(store_);
        EXPECT_EQ(replacing, copy.isReplacing());
        struct stat before = {};
        struct stat after = {};
        ASSERT_EQ(0, stat(path.c_str(), &before));
        copy.setValue("s", "k", replacing != 0 ? "b" : "c");
        copy.store(nullptr);
        ASSERT_EQ(0, stat(path.c_str(), &after));
        EXPECT_EQ(replacing != 0, before.st_ino != after.st_ino);
    }
}

TEST_F(ZProperties, LimitOfZeroRefusesFilesThatAreNotEmpty)
{
    struct RestoredLimit {
        unsigned long const before = ZProperties_6_0::maxFileSize();
        ~RestoredLimit() { ZProperties_6_0::setMaxFileSize(before); }
    } const restored;
    std::string const path = load("[s]\nk = a\n");
    std::string const empty = directory_.write("empty", "");
    ZProperties_6_0::setMaxFileSize(0);
    EXPECT_EQ("io " + path + " read() 27", thrown([&] { store_.reload(nullptr); }));
    Store other;
    EXPECT_EQ("nothing", thrown([&] { other.load(empty.c_str()); }));
}

TEST_F(ZProperties, FileWithTheNameOfTheCompanionIsNotOverwritten)
{
    std::string const stanzas = "[other]\nk = v\n";
    std::string const companion = directory_.write("conf.obf", stanzas);
    std::string const refused = "io " + companion + " access() 17";
    std::string const path = load("[s]\nk = a\n");
    store_.setValue("s", "secret", "hidden", 1);
    for (int const replacing : {0, 1}) {
        SCOPED_TRACE(replacing);
        store_.setReplacing(replacing);
        // The second call must not mistake the file for a companion that the store wrote.
        EXPECT_EQ(refused, thrown([&] { store_.store(nullptr); }));
        EXPECT_EQ(refused, thrown([&] { store_.store(nullptr); }));
    }
    EXPECT_EQ(1, store_.isModified());
    EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
    EXPECT_EQ(stanzas, directory_.read("conf.obf"));
    EXPECT_EQ("conf conf.obf", directory_.names());

    // A file is not created either if it cannot have its companion.
    directory_.write("new.obf", stanzas);
    Store other;
    other.setValue("s", "secret", "hidden", 1);
    EXPECT_EQ("io " + directory_.at("new.obf") + " access() 17",
              thrown([&] { other.store(directory_.at("new").c_str()); }));
    EXPECT_EQ("conf conf.obf new.obf", directory_.names());

    std::filesystem::remove(companion);
    EXPECT_EQ("nothing", thrown([&] { store_.store(nullptr); }));
    EXPECT_EQ("hidden,", valuesOf(store_, "s", "secret"));
}

TEST_F(ZProperties, FirstCompanionReplacesOnlyAFileThatAStoreCanHaveWritten)
{
    struct Case {
        char const* name;
        std::string contents;
        std::string expected;
    };
    std::string const refused = "io " + directory_.at("conf.obf") + " access() 17";
    Case const cases[] = {
        {"empty", "", "nothing"},
        {"earlier companion", compressed({"s", "secret", "old"}), "nothing"},
        {"one byte", "x", refused},
        {"Java property file", "x = 1\n", refused},
        {"comment", "# mine\n", refused},
        {"zero bytes", std::string(20, '\0'), refused},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        std::string const path = directory_.write("conf", "[s]\n");
        directory_.write("conf.obf", c.contents);
        Store store;
        store.load(path.c_str());
        store.setValue("s", "secret", "hidden", 1);
        EXPECT_EQ(c.expected, thrown([&] { store.store(nullptr); }));
        EXPECT_EQ(c.expected == "nothing", directory_.read("conf.obf") != c.contents);
    }
}

TEST_F(ZProperties, DamagedCompanionThatTheFileNamesIsReplaced)
{
    std::string const companion = directory_.write("conf.obf", "damaged");
    for (std::string const& entry : {companion, directory_.path() + "/./conf.obf"}) {
        SCOPED_TRACE(entry);
        directory_.write("conf.obf", "damaged");
        std::string const path =
            directory_.write("conf", "[configuration-database]\nfile = " + entry + "\n");
        Store store;
        store.setValue("s", "secret", "hidden", 1);
        EXPECT_EQ("nothing", thrown([&] { store.store(path.c_str()); }));
        Store again;
        again.load(path.c_str());
        EXPECT_EQ("hidden,", valuesOf(again, "s", "secret"));
    }
}

TEST_F(ZProperties, DirectoryOfALinkToASharedFileNeedNotBeWritable)
{
    // The companion of a file that others can write is created next to the file, not the link.
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    chmod(directory_.path().c_str(), 0755);
    std::filesystem::create_directory(directory_.at("shared"));
    ASSERT_EQ(0, chown(directory_.at("shared").c_str(), 65534, 65534));
    std::string const file = directory_.write("shared/conf", "[s]\nk = v\n");
    ASSERT_EQ(0, chown(file.c_str(), 65534, 65534));
    ASSERT_EQ(0, chmod(file.c_str(), 0660));
    std::string const link = directory_.at("link");
    std::filesystem::create_symlink(file, link);
    asNobody([&] {
        Store store;
        store.load(link.c_str());
        store.setValue("s", "password", "secret", 1);
        store.store(nullptr);
        return std::filesystem::exists(file + ".obf");
    });
}

TEST_F(ZProperties, CompanionDirectoryIsChecked)
{
    std::string const path = load("[s]\n");
    store_.setValue("configuration-database", "file", "/no/such/companion");
    store_.setValue("s", "secret", "hidden", 1);
    EXPECT_EQ("io /no/such access() 2", thrown([&] { store_.store(nullptr); }));
    EXPECT_EQ("[s]\n", directory_.read("conf"));
}

TEST_F(ZProperties, StoreFailsIfItCannotOpenTheDirectoryOfTheCompanionToRemove)
{
    // Otherwise a companion of the file itself would keep the secret.
    chmod(directory_.path().c_str(), 0777);
    std::string const locked = directory_.at("locked");
    asNobody([&] {
        mkdir(locked.c_str(), 0700);
        std::string const directory = locked + "/..";
        std::string const path = directory_.write(
            "conf", "[configuration-database]\nfile = " + directory + "/conf.obf\n");
        directory_.write("conf.obf", compressed({"s", "secret", "hidden"}));
        Store loaded;
        loaded.load(path.c_str());
        loaded.setValue("s", "secret", "");
        Store fresh;
        fresh.setValue("s", "k", "v");
        chmod(locked.c_str(), 0);
        for (Store* const store : {&loaded, &fresh}) {
            EXPECT_EQ("io " + directory + " access() 13",
                      thrown([&] { store->store(path.c_str()); }));
            EXPECT_EQ(compressed({"s", "secret", "hidden"}), directory_.read("conf.obf"));
        }
        chmod(locked.c_str(), 0700);
        loaded.store(nullptr);
        EXPECT_EQ("conf locked", directory_.names());
        return !testing::Test::HasFailure();
    });
}

// ---- A cache without a file format -------------------------------------------------------------

TEST_F(ZProperties, CacheWithoutAFileFormatReadsAndWritesNothing)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    auto* const cache = new (std::nothrow) ZPCategoryBasedCache_6_0;
    ZProperties_6_0 store(cache);
    store.load(path.c_str());
    EXPECT_EQ(0, store.count());
    store.setValue("s", "k", "v");
    store.addFileComment("not marked");
    EXPECT_EQ("v,", valuesOf(store, "s", "k"));
    store.store(nullptr);
    EXPECT_EQ("", directory_.read("conf"));
    EXPECT_EQ("v,", valuesOf(store, "s", "k"));
    store.reload(nullptr);
    EXPECT_EQ(0, store.count());
}

// ---- A cache of another class ------------------------------------------------------------------

namespace {

// Reads and writes through streams, and counts the calls.
class OwnCache : public ZSCFData_6_0 {
public:
    OwnCache() = default;
    OwnCache(OwnCache const&) = default;
    ZPCache_6_0* clone() const override { return new OwnCache(*this); }

    void be_read(char const* path, FILE* file) override
    {
        ++reads;
        ZSCFData_6_0::be_read(path, file);
    }
    void be_write(char const* path, FILE* file) override
    {
        ++writes;
        if (refuses)
            throw std::runtime_error("no text");
        // Write at several positions of the stream, without checking that it can seek.
        fputs(comment.c_str(), file);
        rewind(file);
        fputs("# M", file);
        fseek(file, 1, SEEK_CUR);
        fputs("N", file);
        fseek(file, 0, SEEK_END);
        fseek(file, -100000, SEEK_CUR);
        ZSCFData_6_0::be_write(path, file);
        if (misuses)
            (void)fgetc(file);
    }

    static inline int reads = 0;
    static inline int writes = 0;
    static inline bool refuses = false;
    static inline bool misuses = false;
    static inline std::string comment = "# mine\n";
};

// Cannot be copied.
class SingleCache final : public OwnCache {
public:
    ZPCache_6_0* clone() const override { return nullptr; }
};

// Calls a function of the test after the text of a file was read and before its companion.
class InterruptedCache : public OwnCache {
public:
    ZPCache_6_0* clone() const override { return isSingle ? nullptr : new InterruptedCache(*this); }
    void be_read(char const* path, FILE* file) override
    {
        OwnCache::be_read(path, file);
        afterRead();
    }

    static inline bool isSingle = false;
    static inline std::function<void()> afterRead;
};

// Inherits clone(), which returns an object of the base class.
class UncopiedCache final : public OwnCache {
public:
    void be_read(char const* path, FILE* file) override
    {
        ++ownReads;
        OwnCache::be_read(path, file);
    }

    static inline int ownReads = 0;
};

}  // namespace

TEST_F(ZProperties, FileThatIsReplacedDuringALoadIsReadAgainWithItsCompanion)
{
    // An editor renames a new file into place, and another store changes its companion.
    std::string const path = directory_.at("conf");
    int reads = 0;
    int replacements = 0;
    char const* secret = "";
    auto const replace = [&] {
        if (++reads > replacements)
            return;
        std::filesystem::rename(directory_.write("edited", directory_.read("conf")), path);
        Store other;
        other.load(path.c_str());
        other.setValue("s", "k", "new");
        other.setValue("s", "secret", secret, 1);
        other.store(nullptr);
    };
    for (bool const isSingle : {false, true})
        for (char const* const newSecret : {"second", ""}) {
            SCOPED_TRACE(std::string(newSecret) + (isSingle ? " single" : ""));
            Store first;
            first.setValue("s", "k", "old");
            first.setValue("s", "secret", "first", 1);
            first.store(path.c_str());
            InterruptedCache::isSingle = isSingle;
            InterruptedCache::afterRead = replace;
            ZProperties_6_0 store(new InterruptedCache);
            store.setValue("own", "k", "kept");
            reads = 0;
            replacements = 3;
            secret = newSecret;
            EXPECT_EQ("nothing", thrown([&] { store.load(path.c_str()); }));
            // A file that names no companion is complete.
            EXPECT_EQ(*newSecret == '\0' ? 2 : 4, reads);
            EXPECT_EQ("new,", valuesOf(store, "s", "k"));
            EXPECT_EQ(*newSecret == '\0' ? "" : "second,", valuesOf(store, "s", "secret"));
            EXPECT_EQ("kept,", valuesOf(store, "own", "k"));
            InterruptedCache::afterRead = nullptr;
            std::filesystem::remove(path);
        }
}

TEST_F(ZProperties, FileThatIsReplacedDuringEachLoadIsReported)
{
    std::string const path = directory_.at("conf");
    Store first;
    first.setValue("s", "secret", "first", 1);
    first.store(path.c_str());
    InterruptedCache::isSingle = false;
    InterruptedCache::afterRead = [&] {
        std::filesystem::rename(directory_.write("edited", directory_.read("conf")), path);
    };
    ZProperties_6_0 store(new InterruptedCache);
    EXPECT_EQ("io " + path + " fopen(r) 116", thrown([&] { store.load(path.c_str()); }));
    EXPECT_EQ(0, store.count());
    InterruptedCache::afterRead = nullptr;
}

TEST_F(ZProperties, CacheOfAnotherClassReadsAndWritesItself)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\nk = b\n");
    ZProperties_6_0 store(new OwnCache);
    OwnCache::reads = OwnCache::writes = 0;
    store.load(path.c_str());
    EXPECT_EQ(1, OwnCache::reads);
    EXPECT_EQ("b", valueOf(store, "s", "k"));
    EXPECT_EQ("a,b,", valuesOf(store, "s", "k"));
    EXPECT_EQ("", valuesOf(store, "s", "missing"));
    EXPECT_EQ("(none)", valueOf(store, "s", "missing"));
    EXPECT_EQ("nothing", thrown([&] { store.checkAccess("s", "missing", 1); }));
    store.setValue("s", "empty", "");
    EXPECT_EQ("(none)", valueOf(store, "s", "empty"));
    EXPECT_EQ("nothing", thrown([&] { store.checkAccess("s", "empty", 1); }));
    store.setValue("t", "empty", "");
    {
        ZPropertiesIterator_6_0 keys(store, "t");
        keys.nextEntry();
        EXPECT_EQ(nullptr, keys.entryValue(0));
    }
    store.deleteKey("s", "empty");
    store.deleteKey("t", "empty");
    store.checkAccess("s", "k", 0);
    EXPECT_EQ("ZInvalidParameterException", thrown([&] { store.checkAccess("s", "k", 1); }));
    {
        ZPropertiesIterator_6_0 keys(store, "s");
        keys.nextEntry();
        EXPECT_EQ(2, keys.valueCount());
        EXPECT_STREQ("a", keys.entryValue(0));
        EXPECT_STREQ("b", keys.entryValue(1));
        for (int const index : {-1, 2})
            EXPECT_EQ("ZInvalidParameterException", thrown([&] { keys.entryValue(index); }));
        ZAbstractPropertyValuesIterator_6_0 values(store, "s", "k", zPropLocalStrings,
                                                   zPropIterAny);
        values.nextValue();
        store.reload(nullptr);
        EXPECT_STREQ("b", values.nextValue().getChars());
        values.changeValue("c");
    }
    store.setValue("s", "secret", "hidden", 1);
    store.store(nullptr);
    EXPECT_EQ(1, OwnCache::writes);
    EXPECT_EQ("# MiNe\n[s]\nk = a\nk = c\n\n[configuration-database]\nfile = " + path + ".obf\n",
              directory_.read("conf"));
    store.reload(nullptr);
    EXPECT_EQ("hidden", valueOf(store, "s", "secret"));
    EXPECT_EQ("c", valueOf(store, "s", "k"));
}

TEST_F(ZProperties, StoreCallsTheOverridesOfItsCache)
{
    // Keeps values in upper case and hides the last value.
    class UpperCase final : public ZSCFData_6_0 {
    public:
        using ZSCFData_6_0::add;
        using ZSCFData_6_0::get;
        using ZSCFData_6_0::set;
        UpperCase() = default;
        UpperCase(UpperCase const& other) : ZSCFData_6_0(other) {}
        ~UpperCase() noexcept override {}
        ZPCache_6_0* clone() const override { return new UpperCase(*this); }
        void add(char const* category, char const* key, char const* value, int kind) override
        {
            ZSCFData_6_0::add(category, key, upper(value).c_str(), kind);
        }
        void set(char const* category, char const* key, char const* value) override
        {
            ZSCFData_6_0::set(category, key, upper(value).c_str());
        }
        ZArrayList_6_0* get(char const* category, char const* key, get_type_e type) override
        {
            auto const* const all = ZSCFData_6_0::get(category, key, type);
            if (all == nullptr)
                return nullptr;
            shown_.removeAll();
            for (unsigned i = 0; i + 1 < all->size(); ++i)
                shown_.add(all->get(i));
            return &shown_;
        }

    private:
        static std::string upper(char const* text)
        {
            std::string all = text == nullptr ? "" : text;
            for (char& c : all)
                c = static_cast<char>(toupper(c));
            return all;
        }
        ZArrayList_6_0 shown_{4, 1};
    };
    std::string const path = directory_.write("conf", "[s]\nk = a\nk = b\nk = c\n");
    ZProperties_6_0 store(new UpperCase);
    store.load(path.c_str());
    EXPECT_EQ("A,B,", valuesOf(store, "s", "k"));
    EXPECT_EQ(2, store.numValues("s", "k"));
    EXPECT_EQ(0, store.numValues("s", "missing"));
    EXPECT_EQ(3, store.numValues("s"));
    EXPECT_EQ(0, store.numValues("missing"));
    store.setValue("s", "new", "x");
    EXPECT_EQ(0, store.numValues("s", "new"));
    store.store(nullptr);
    EXPECT_EQ("[s]\nk = A\nk = B\nnew =\n", directory_.read("conf"));
}

TEST_F(ZProperties, CommentsWithoutAHashSignAreRefusedForDerivedStanzaCachesToo)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new OwnCache);
    store.load(path.c_str());
    for (char const* comment : {"[x]", "k = b", "", " # space first", "# one\n[x]", "# one\n"}) {
        SCOPED_TRACE(comment);
        EXPECT_EQ("ZInvalidParameterException", thrown([&] { store.addFileComment(comment); }));
        EXPECT_EQ("ZInvalidParameterException",
                  thrown([&] { store.addEntryComment("s", "k", comment); }));
    }
    EXPECT_EQ(0, store.isModified());
    EXPECT_EQ("nothing", thrown([&] { store.addEntryComment("s", "k", "# marked"); }));
}

TEST_F(ZProperties, CommentsOfOtherFileFormatsNeedNoHashSign)
{
    ZProperties_6_0 store(new ZPCategoryBasedCache_6_0);
    EXPECT_EQ("nothing", thrown([&] { store.addFileComment("; another mark\n; two"); }));
}

TEST_F(ZProperties, FailuresOfACacheOfAnotherClassChangeNothing)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new OwnCache);
    store.load(path.c_str());
    store.setValue("s", "k", "b");
    OwnCache::refuses = true;
    EXPECT_THROW(store.store(nullptr), std::runtime_error);
    OwnCache::refuses = false;
    OwnCache::misuses = true;
    EXPECT_EQ("io " + path + " fwrite() " + std::to_string(EBADF),
              thrown([&] { store.store(nullptr); }));
    OwnCache::misuses = false;
    EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
    EXPECT_EQ(1, store.isModified());
    directory_.write("conf", "broken");
    EXPECT_EQ("data " + path + " 1 broken", thrown([&] { store.reload(nullptr); }));
    EXPECT_EQ("data " + path + " 1 broken", thrown([&] { store.load(nullptr); }));
    EXPECT_EQ("b", valueOf(store, "s", "k"));
    directory_.write("conf", "");
    store.reload(nullptr);
    EXPECT_EQ(0, store.count());
}

TEST_F(ZProperties, FailedAllocationsWithACacheOfAnotherClassChangeNothing)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new OwnCache);
    store.load(path.c_str());
    store.setValue("s", "k", std::string(5000, 'b').c_str());
    OwnCache::comment = "# " + std::string(30000, 'c') + "\n";
    std::string const text =
        "# McN" + OwnCache::comment.substr(5) + "[s]\nk = " + std::string(5000, 'b') + "\n";
    long const descriptors = openDescriptors();
    // If a stream cannot be created or cannot grow, the failed call is reported.
    auto const streaming = [](auto call) {
        try {
            call();
        } catch (ZPropertiesIOException_6_0 const& failure) {
            EXPECT_EQ(ENOMEM, failure.excerrno()) << failure.api().getChars();
            ZOutOfMemoryException_6_0().throwException("test", 1);
        } catch (std::bad_alloc const&) {  // of the copy that the cache makes
            ZOutOfMemoryException_6_0().throwException("test", 1);
        }
    };
    auto const check = [&] {
        EXPECT_EQ(std::string(5000, 'b') + ",", valuesOf(store, "s", "k"));
        EXPECT_EQ(1, store.isModified());
        EXPECT_EQ("[s]\nk = a\n", directory_.read("conf"));
        EXPECT_EQ("conf", directory_.names());
        EXPECT_EQ(descriptors, openDescriptors());
    };
    EXPECT_LT(5u, failEachAllocationOfSome([&] { streaming([&] { store.store(nullptr); }); },
                                           [&] {
                                               EXPECT_EQ(text, directory_.read("conf"));
                                               directory_.write("conf", "[s]\nk = a\n");
                                               store.setModified();
                                           },
                                           check));
    EXPECT_LT(5u, failEachAllocationOfSome(
                      [&] { streaming([&] { store.reload(nullptr); }); },
                      [&] { store.setValue("s", "k", std::string(5000, 'b').c_str()); }, check));
    OwnCache::comment = "# mine\n";
}

TEST_F(ZProperties, CacheThatCannotBeCopiedPreventsCopyingTheStore)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new SingleCache);
    store.load(path.c_str());
    EXPECT_EQ("ZNotClonableException", thrown([&] { ZProperties_6_0 const copy(store); }));
    EXPECT_EQ("a", valueOf(store, "s", "k"));
    store.reload(nullptr);
    EXPECT_EQ("a,", valuesOf(store, "s", "k"));
}

TEST_F(ZProperties, CacheThatCannotBeCopiedIsReadInPlace)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new UncopiedCache);
    UncopiedCache::ownReads = 0;
    store.load(path.c_str());
    store.reload(nullptr);
    EXPECT_EQ(2, UncopiedCache::ownReads);
    EXPECT_EQ("a", valueOf(store, "s", "k"));
    store.setValue("s", "secret", "hidden", 1);
    store.store(nullptr);
    store.reload(nullptr);
    EXPECT_EQ("hidden", valueOf(store, "s", "secret"));
}

TEST_F(ZProperties, FailuresWithACacheThatCannotBeCopiedChangeNothing)
{
    class StoreOver final : public ZProperties_6_0 {
    public:
        using ZProperties_6_0::ZProperties_6_0;
        ~StoreOver() noexcept override {}
        void postLoad(char const*) override
        {
            if (onPostLoad)
                onPostLoad();
        }

        std::function<void()> onPostLoad;
    };
    std::string const good = "[s]\nk = a\n";
    std::string const path = directory_.write("conf", good);
    std::string const missing = directory_.at("missing.obf");
    std::string const named = "[n]\nk = b\n[configuration-database]\nfile = " + missing + "\n";
    for (bool const isSingle : {true, false}) {
        SCOPED_TRACE(isSingle ? "without clone()" : "with the clone() of a base");
        directory_.write("conf", good);
        StoreOver store(isSingle ? static_cast<OwnCache*>(new SingleCache) : new UncopiedCache);
        store.load(path.c_str());
        std::string const other = directory_.write("other", named);
        EXPECT_EQ("io " + missing + " mapFile() 22", thrown([&] { store.load(other.c_str()); }));
        store.onPostLoad = [] { throw std::runtime_error("refused"); };
        directory_.write("other", "[n]\nk = b\n");
        EXPECT_THROW(store.load(other.c_str()), std::runtime_error);
        EXPECT_THROW(store.reload(nullptr), std::runtime_error);
        store.onPostLoad = nullptr;
        directory_.write("conf", "broken");
        EXPECT_EQ("data " + path + " 1 broken", thrown([&] { store.reload(nullptr); }));
        EXPECT_EQ(1, store.count());
        EXPECT_EQ("a,", valuesOf(store, "s", "k"));

        // store() adds the entry of the companion.
        store.setValue("s", "secret", "hidden", 1);
        OwnCache::refuses = true;
        EXPECT_THROW(store.store(nullptr), std::runtime_error);
        OwnCache::refuses = false;
        EXPECT_EQ(1, store.count());
        EXPECT_EQ(1, store.isModified());
        store.store(nullptr);
        EXPECT_EQ(2, store.count());
        store.reload(nullptr);
        EXPECT_EQ("hidden,", valuesOf(store, "s", "secret"));
        std::filesystem::remove(path + ".obf");
    }
}

TEST_F(ZProperties, FailedAllocationsWithACacheThatCannotBeCopiedChangeNothing)
{
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0 store(new UncopiedCache);
    store.load(path.c_str());
    store.setValue("s", "secret", "hidden", 1);
    store.store(nullptr);
    std::string const text = directory_.read("conf");
    store.setValue("s", "k", "b");
    auto const streaming = [](auto call) {
        try {
            call();
        } catch (ZPropertiesIOException_6_0 const& failure) {
            EXPECT_EQ(ENOMEM, failure.excerrno()) << failure.api().getChars();
            ZOutOfMemoryException_6_0().throwException("test", 1);
        } catch (std::bad_alloc const&) {
            ZOutOfMemoryException_6_0().throwException("test", 1);
        }
    };
    auto const check = [&] {
        EXPECT_EQ("b,", valuesOf(store, "s", "k"));
        EXPECT_EQ("hidden,", valuesOf(store, "s", "secret"));
        EXPECT_EQ(2, store.count());
        EXPECT_EQ(1, store.isModified());
        EXPECT_EQ(text, directory_.read("conf"));
    };
    EXPECT_LT(5u, failEachAllocationOfSome([&] { streaming([&] { store.reload(nullptr); }); },
                                           [&] { store.setValue("s", "k", "b"); }, check));
    std::string const other = directory_.write("other", "[n]\nk = c\n");
    EXPECT_LT(5u, failEachAllocationOfSome([&] { streaming([&] { store.load(other.c_str()); }); },
                                           [&] {
                                               store.reload(nullptr);
                                               store.setValue("s", "k", "b");
                                           },
                                           check));
}

TEST_F(ZProperties, OverridesOfACacheAreNotCalledWithoutNames)
{
    class NamedOnly final : public ZSCFData_6_0 {
    public:
        using ZSCFData_6_0::get;
        ~NamedOnly() noexcept override {}
        ZArrayList_6_0* get(char const* category, char const* key, get_type_e type) override
        {
            if (category == nullptr || key == nullptr)
                throw std::logic_error("no name");
            return ZSCFData_6_0::get(category, key, type);
        }
    };
    ZProperties_6_0 store(new NamedOnly);
    ZUTF8String_6_0 const text("");
    ZUTF8ConstString_6_0 const constant("");
    for (auto const& [category, key] :
         {std::pair<char const*, char const*>{nullptr, "k"}, {"s", nullptr}, {nullptr, nullptr}}) {
        EXPECT_THROW(store.setValue(category, key, text, 0), ZInvalidParameterException_6_0);
        EXPECT_THROW(store.setValue(category, key, constant, 0), ZInvalidParameterException_6_0);
    }
}

// ---- Notices -----------------------------------------------------------------------------------

TEST_F(ZProperties, ObserversAreNotifiedOfChanges)
{
    load(kText);
    NotedChanges observer;
    store_.addObserver(&observer);
    store_.setValue("s", "a", "1");
    store_.setIntegerValue("s", "b", 1);
    store_.setBooleanValue("s", "c", 1);
    store_.deleteKey("s", "a");
    store_.addFileComment("# comments send no notice");
    EXPECT_EQ("2[s]a 2[s]b 2[s]c 1[s]a ", observer.log);
    observer.log.clear();
    EXPECT_NE("nothing", thrown([&] { store_.setValue("s", "a=b", "1"); }));
    store_.reload(nullptr);
    store_.store(nullptr);
    EXPECT_EQ("", observer.log);
    store_.sendChangeNotice(ZPropertyChanged_6_0::storeChanged, ZPropertyChanged_6_0::added, "x",
                            nullptr);
    EXPECT_EQ("0[x] ", observer.log);
}

TEST_F(ZProperties, NoticesAreSentAfterTheLockIsReleased)
{
    NotedChanges observer;
    bool free = false;
    observer.action = [&] {
        std::thread([&] {
            store_.exists("s", "k");
            free = true;
        }).join();
    };
    store_.addObserver(&observer);
    store_.setValue("s", "k", "v");
    EXPECT_TRUE(free);
    free = false;
    {
        ZPropertiesIterator_6_0 const iterator(store_, "s");
        store_.setValue("s", "k", "w");
        EXPECT_FALSE(free);
    }
    EXPECT_TRUE(free);
    EXPECT_EQ("2[s]k 2[s]k ", observer.log);
}

TEST_F(ZProperties, ObserverMayUseTheStoreAndItsObservers)
{
    NotedChanges observer;
    NotedChanges second;
    store_.addObserver(&observer);
    observer.action = [&] {
        store_.addObserver(&second);
        store_.deleteObserver(&observer);
        store_.setValue("s", "other", "1");
    };
    store_.setValue("s", "k", "v");
    EXPECT_EQ("2[s]k ", observer.log);
    EXPECT_EQ("2[s]other ", second.log);
    EXPECT_EQ("1", valueOf(store_, "s", "other"));
}

TEST_F(ZProperties, ExceptionOfAnObserverReachesTheCallerAfterTheChange)
{
    NotedChanges observer;
    observer.action = [] { throw std::runtime_error("notified"); };
    store_.addObserver(&observer);
    EXPECT_THROW(store_.setValue("s", "k", "v"), std::runtime_error);
    EXPECT_EQ("v", valueOf(store_, "s", "k"));
    std::thread([&] { EXPECT_EQ(1, store_.exists("s", "k")); }).join();
    observer.log.clear();
    observer.action = [] { ZInvalidParameterException_6_0().throwException("test", 1); };
    EXPECT_THROW(store_.setValue("s", "k", "w"), ZInvalidParameterException_6_0);
    EXPECT_EQ("w", valueOf(store_, "s", "k"));
    observer.action = [] { throw std::runtime_error("notified"); };
    {
        SCOPED_TRACE("several notices");
        EXPECT_THROW(
            {
                ZPropertiesIterator_6_0 const iterator(store_, "s");
                store_.setValue("s", "a", "1");
                store_.setValue("s", "b", "1");
            },
            std::runtime_error);
        EXPECT_EQ("2[s]k 2[s]a 2[s]b ", observer.log);
    }
}

TEST_F(ZProperties, ExceptionsOfObserversAreReportedDuringUnwinding)
{
    NotedMessages messages;
    NotedChanges observer;
    store_.addObserver(&observer);
    for (bool const isLibraryException : {true, false}) {
        SCOPED_TRACE(isLibraryException);
        observer.action = [&] {
            if (isLibraryException)
                ZInvalidParameterException_6_0().throwException("test", 1);
            throw std::runtime_error("notified");
        };
        EXPECT_THROW(
            {
                ZPropertiesIterator_6_0 const iterator(store_, "s");
                store_.setValue("s", "a", "1");
                throw std::logic_error("unwinding");
            },
            std::logic_error);
    }
    EXPECT_EQ(1, messages.exceptions());
    ASSERT_EQ(1u, messages.messages().size());
    EXPECT_EQ(kSource, messages.messages()[0].file);
    EXPECT_EQ(235, messages.messages()[0].line);
    // With two notices, the first exception reaches the caller and the second is reported.
    observer.action = [] { throw std::runtime_error("notified"); };
    EXPECT_THROW(
        {
            ZPropertiesIterator_6_0 const iterator(store_, "s");
            store_.setValue("s", "a", "1");
            store_.setValue("s", "b", "1");
        },
        std::runtime_error);
    EXPECT_EQ(2u, messages.messages().size());
}

TEST_F(ZProperties, ObserverThatCancelsItsThreadEndsTheNotification)
{
    NotedChanges observer;
    store_.addObserver(&observer);
    observer.action = [] {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    };
    pthread_t thread;
    auto const change = [](void* store) -> void* {
        auto& changed = *static_cast<Store*>(store);
        ZPropertiesIterator_6_0 const iterator(changed, "s");
        changed.setValue("s", "a", "1");
        changed.setValue("s", "b", "1");
        return nullptr;
    };
    ASSERT_EQ(0, pthread_create(&thread, nullptr, change, &store_));
    void* result = nullptr;
    ASSERT_EQ(0, pthread_join(thread, &result));
    EXPECT_EQ(PTHREAD_CANCELED, result);
    EXPECT_EQ("2[s]a ", observer.log);
    observer.action = nullptr;
    store_.setValue("s", "c", "1");  // the lock is free
    EXPECT_EQ("2[s]a 2[s]c ", observer.log);
    EXPECT_EQ("1", valueOf(store_, "s", "b"));
}

// ---- One store for a path ----------------------------------------------------------------------

TEST_F(ZProperties, SharedStoreIsReloadedAfterItsFileChanges)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("a", valueOf(*store, "s", "k"));
    directory_.write("conf", "[s]\nk = b\n");
    EXPECT_EQ("a", valueOf(*store, "s", "k"));
    EXPECT_EQ(store, ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0));
    EXPECT_EQ("b", valueOf(*store, "s", "k"));
    EXPECT_EQ(1, factory.made);
    // An editor renames a new file into place.
    directory_.write("edited", "[s]\nk = c\n");
    rename(directory_.at("edited").c_str(), path.c_str());
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("c", valueOf(*store, "s", "k"));
    // Removing the file changes nothing.
    std::filesystem::remove(path);
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("c", valueOf(*store, "s", "k"));
}

TEST_F(ZProperties, TwoChangesInTheSameSecondAreBothDetected)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    struct stat status;
    stat(path.c_str(), &status);
    directory_.write("conf", "[s]\nk = b\n");
    timespec const sameSecond[2] = {
        status.st_atim,
        {status.st_mtim.tv_sec, status.st_mtim.tv_nsec == 0 ? 1 : status.st_mtim.tv_nsec - 1}};
    utimensat(AT_FDCWD, path.c_str(), sameSecond, 0);
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("b", valueOf(*store, "s", "k"));
}

TEST_F(ZProperties, UnsavedChangesStayUnlessForced)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    store->setValue("s", "k", "mine");
    directory_.write("conf", "[s]\nk = other\n");
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("mine", valueOf(*store, "s", "k"));
    ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 1);
    EXPECT_EQ("other", valueOf(*store, "s", "k"));
    directory_.write("conf", "broken");
    EXPECT_EQ("data " + path + " 1 broken",
              thrown([&] { ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 1); }));
    EXPECT_EQ("other", valueOf(*store, "s", "k"));
}

TEST_F(ZProperties, SharedStoreReloadsItsPathEvenIfItsFileNameDiffers)
{
    Factory factory;
    factory.madeFor = directory_.write("other", "[s]\nk = other\n");
    std::string const path = directory_.write("conf", "[t]\nk = a\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    EXPECT_EQ("other", valueOf(*store, "s", "k"));
    EXPECT_EQ("a", valueOf(*store, "t", "k"));
    for (int const force : {0, 1}) {
        directory_.write("conf", force != 0 ? "[t]\nk = c\n" : "[t]\nk = bb\n");
        EXPECT_EQ(store, ZProperties_6_0::getPropertiesFor(path.c_str(), factory, force));
        EXPECT_EQ(force != 0 ? "c" : "bb", valueOf(*store, "t", "k"));
        EXPECT_EQ(0, store->exists("s"));
    }
}

TEST_F(ZProperties, PathIsRequired)
{
    Factory factory;
    EXPECT_EQ("ZInvalidParameterException",
              thrown([&] { ZProperties_6_0::getPropertiesFor(nullptr, factory, 0); }));
    EXPECT_EQ("ZInvalidParameterException",
              thrown([&] { ZProperties_6_0::getPropertiesFor("", factory, 0); }));
    EXPECT_EQ(0, factory.made);
}

TEST_F(ZProperties, FactoryThatReturnsNullIsRefused)
{
    class Nothing final : public ZAbstractPropertiesFactory_6_0 {
    public:
        ZProperties_6_0* makePropertiesInstance() override { return nullptr; }
    };
    Nothing factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ("ZInvalidParameterException",
                  thrown([&] { ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0); }));
}

TEST_F(ZProperties, OneThreadLoadsAndTheOthersWait)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    std::mutex mutex;
    std::condition_variable changed;
    int arrived = 0;
    factory.onPostLoad = [&] {
        std::unique_lock<std::mutex> guard(mutex);
        changed.wait(guard, [&] { return arrived == 8; });
    };
    std::vector<ZProperties_6_0*> found(8);
    std::vector<std::thread> threads;
    for (ZProperties_6_0*& one : found)
        threads.emplace_back([&] {
            {
                std::lock_guard<std::mutex> const guard(mutex);
                ++arrived;
                changed.notify_all();
            }
            one = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(1, factory.made);
    for (ZProperties_6_0 const* one : found)
        EXPECT_EQ(found[0], one);
}

TEST_F(ZProperties, ThreadThatRequestsTheStoreItIsLoadingGetsEDEADLK)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    std::string inner;
    factory.onPostLoad = [&] {
        inner = thrown([&] { ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0); });
    };
    EXPECT_NE(nullptr, ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0));
    EXPECT_EQ("io " + path + " fcntl() 35", inner);
}

TEST_F(ZProperties, LoadingAStoreDoesNotBlockOtherStores)
{
    Factory factory;
    Factory second;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    std::string const other = directory_.write("other", "[s]\nk = b\n");
    ZProperties_6_0* samePath = nullptr;
    ZProperties_6_0* sameFactory = nullptr;
    factory.onPostLoad = [&] {
        factory.onPostLoad = nullptr;
        samePath = ZProperties_6_0::getPropertiesFor(path.c_str(), second, 0);
        std::thread([&] {
            sameFactory = ZProperties_6_0::getPropertiesFor(other.c_str(), factory, 0);
        }).join();
    };
    ZProperties_6_0* const made = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    ASSERT_NE(nullptr, samePath);
    ASSERT_NE(nullptr, sameFactory);
    EXPECT_NE(made, samePath);
    EXPECT_EQ("a", valueOf(*samePath, "s", "k"));
    EXPECT_EQ("b", valueOf(*sameFactory, "s", "k"));
    EXPECT_EQ(sameFactory, ZProperties_6_0::getPropertiesFor(other.c_str(), factory, 0));
}

TEST_F(ZProperties, UnchangedStoreIsFoundWhileAnotherThreadLocksIt)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    std::future<ZProperties_6_0*> found;
    auto const isFound = [&] {
        found = std::async(std::launch::async, [&] {
            return ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
        });
        return found.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    };
    {
        ZPropertiesIterator_6_0 const holding(*store, "s");
        EXPECT_TRUE(isFound()) << "after loading";
    }
    EXPECT_EQ(store, found.get());
    store->setValue("s", "k", "b");
    {
        ZPropertiesIterator_6_0 const holding(*store, "s");
        EXPECT_TRUE(isFound()) << "with an unsaved change";
    }
    EXPECT_EQ(store, found.get());
    store->store(nullptr);
    {
        ZPropertiesIterator_6_0 const holding(*store, "s");
        EXPECT_TRUE(isFound()) << "after storing";
    }
    EXPECT_EQ(store, found.get());
    std::filesystem::remove(path);
    {
        ZPropertiesIterator_6_0 const holding(*store, "s");
        EXPECT_TRUE(isFound()) << "without its file";
    }
    EXPECT_EQ(store, found.get());
}

TEST_F(ZProperties, ChangedFileIsReloadedAfterTheStoreIsUnlocked)
{
    Factory factory;
    std::string const path = directory_.write("conf", "[s]\nk = a\n");
    ZProperties_6_0* const store = ZProperties_6_0::getPropertiesFor(path.c_str(), factory, 0);
    for (int const force : {0, 1}) {
        std::future<void> done;
        {
            ZPropertiesIterator_6_0 const holding(*store, "s");
            if (force == 0)
                directory_.write("conf", "[s]\nk = changed\n");
            done = std::async(std::launch::async, [&path, &factory, force] {
                ZProperties_6_0::getPropertiesFor(path.c_str(), factory, force);
            });
            EXPECT_TRUE(staysBlocked(done));
        }
        done.get();
        EXPECT_EQ("changed", valueOf(*store, "s", "k"));
    }
}

TEST_F(ZProperties, RingOfThreadsThatLoadStoresGetsEDEADLK)
{
    // Each thread, while it loads a store, requests the store that the next thread loads.
    constexpr size_t kThreads = 3;
    Factory factories[kThreads];
    std::string paths[kThreads];
    std::string inner[kThreads];
    std::atomic<size_t> arrived{0};
    for (size_t i = 0; i < kThreads; ++i)
        paths[i] = directory_.write("conf" + std::to_string(i), "[s]\nk = a\n");
    for (size_t i = 0; i < kThreads; ++i)
        factories[i].onPostLoad = [&, i] {
            ++arrived;
            waitUntil([&] { return arrived == kThreads; });
            size_t const next = (i + 1) % kThreads;
            inner[i] = thrown([&] {
                ZProperties_6_0::getPropertiesFor(paths[next].c_str(), factories[next], 0);
            });
        };
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            EXPECT_NE(nullptr,
                      ZProperties_6_0::getPropertiesFor(paths[i].c_str(), factories[i], 0));
        });
    for (std::thread& thread : threads)
        thread.join();
    size_t refused = 0;
    for (size_t i = 0; i < kThreads; ++i) {
        if (inner[i] == "nothing")
            continue;
        ++refused;
        EXPECT_EQ("io " + paths[(i + 1) % kThreads] + " fcntl() " + std::to_string(EDEADLK),
                  inner[i]);
    }
    EXPECT_EQ(1u, refused);
}

// ---- Threads -----------------------------------------------------------------------------------

TEST_F(ZProperties, EightThreadsUseOneStore)
{
    std::string const path = load(kText);
    class Counting final : public ZObserverInterface_6_0 {
    public:
        explicit Counting(ZProperties_6_0& store) : store_(store) {}
        void update(ZObservableInterface_6_0* sender, ZObservedParm_6_0 const&) override
        {
            ++calls;
            store_.exists("server", "port");
            sender->countObservers();
        }

        std::atomic<int> calls{0};

    private:
        ZProperties_6_0& store_;
    };
    Counting permanent(store_);
    store_.addObserver(&permanent);
    std::atomic<int> stored{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number)
        threads.emplace_back([&, number] {
            Counting own(store_);
            std::string const key = "k" + std::to_string(number);
            for (int round = 0; round < 40; ++round) {
                store_.addObserver(&own);
                store_.setIntegerValue("threads", key.c_str(), static_cast<unsigned>(round));
                EXPECT_EQ(static_cast<unsigned>(round),
                          store_.getIntegerValue("threads", key.c_str(), 0, 0));
                {
                    ZPropertiesIterator_6_0 iterator(store_, "server");
                    while (iterator.hasMore()) {
                        iterator.nextEntry();
                        iterator.entryValue(0);
                    }
                    store_.setValue("threads", key.c_str(), std::to_string(round).c_str());
                }
                if (round % 8 == number) {
                    store_.store(nullptr);
                    ++stored;
                }
                store_.deleteObserver(&own);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(8 * 40 * 2, permanent.calls);
    EXPECT_EQ(8 * 5, stored);
    store_.deleteObserver(&permanent);
    store_.store(nullptr);
    Store again;
    again.load(path.c_str());
    for (int number = 0; number < 8; ++number)
        EXPECT_EQ("39", valueOf(again, "threads", ("k" + std::to_string(number)).c_str()));
}

TEST_F(ZProperties, StoresToOneFileWaitForEachOther)
{
    std::string const path = directory_.write("conf", "[s]\nn = 0\n");
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number)
        threads.emplace_back([&, number] {
            for (int round = 0; round < 25; ++round) {
                Store store;
                store.load(path.c_str());
                unsigned const n = store.getIntegerValue("s", "n", 1, 0);
                if (store.numValues("s", "n") != 1 || n > 100)
                    ++torn;
                if (number % 2 == 0) {
                    store.setIntegerValue("s", "n", static_cast<unsigned>(round));
                    store.store(nullptr);
                }
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, torn);
    EXPECT_EQ("conf", directory_.names());
}

// ---- Failed allocations ------------------------------------------------------------------------

TEST_F(ZProperties, FailedAllocationsChangeNeitherStoreNorFiles)
{
    std::string const path = load("[s]\nk = a\nk = b\n");
    store_.setValue("s", "secret", "hidden", 1);
    store_.store(nullptr);
    std::string const text = directory_.read("conf");
    std::string const companion = directory_.read("conf.obf");
    store_.setValue("s", "k", "changed");
    std::string const longText(300, 'x');
    ZLCString_6_0 out("before");
    ZArrayList_6_0 list(1, 1);
    ZLCString_6_0 const old("old");
    list.add(&old);
    long const descriptors = openDescriptors();

    auto const check = [&] {
        EXPECT_EQ(2, store_.count("s"));
        EXPECT_EQ("changed,", valuesOf(store_, "s", "k"));
        EXPECT_EQ("hidden,", valuesOf(store_, "s", "secret"));
        EXPECT_EQ(1, store_.isModified());
        EXPECT_STREQ("before", out.getChars());
        EXPECT_EQ(1u, list.size());
        EXPECT_EQ(text, directory_.read("conf"));
        EXPECT_EQ(companion, directory_.read("conf.obf"));
        EXPECT_EQ("conf conf.obf", directory_.names());
        EXPECT_EQ(descriptors, openDescriptors());
    };
    // A failed allocation while a companion is expanded is reported as invalid data.
    auto const expanding = [](auto call) {
        try {
            call();
        } catch (ZPropertiesInvalidDataException_6_0 const&) {
            ZOutOfMemoryException_6_0().throwException("test", 1);
        }
    };
    // Runs each call with every allocation failing, one after another, then once without failures
    // and undoes that.
    struct Case {
        char const* name;
        std::function<void()> call;
        std::function<void()> undo;
    };
    Case const cases[] = {
        {"get", [&] { store_.getValue("s", "long", out, 0, longText.c_str()); },
         [&] { out = "before"; }},
        {"get all", [&] { store_.getValues("s", "k", list, zPropUTF8Strings); },
         [&] {
             list.removeAll();
             list.add(&old);
         }},
        {"set", [&] { store_.setValue("s", "new", longText.c_str()); },
         [&] { store_.deleteKey("s", "new"); }},
        {"set obfuscated", [&] { store_.setValue("s", "new", longText.c_str(), 1); },
         [&] { store_.deleteKey("s", "new"); }},
        {"set number", [&] { store_.setIntegerValue("s", "new", 5); },
         [&] { store_.deleteKey("s", "new"); }},
        {"delete", [&] { store_.deleteKey("s", "missing"); }, [] {}},
        {"iterate",
         [&] {
             ZPropertiesIterator_6_0 iterator(store_, "s");
             while (iterator.hasMore()) {
                 iterator.nextEntry();
                 iterator.entryValue(0);
             }
         },
         [] {}},
        {"names", [&] { delete store_.keyNames("s"); }, [] {}},
        {"categories", [&] { delete store_.categoryNames(); }, [] {}},
        {"reload", [&] { expanding([&] { store_.reload(nullptr); }); },
         [&] { store_.setValue("s", "k", "changed"); }},
        {"load into another", [&] { expanding([&] { Store().load(path.c_str()); }); }, [] {}},
        {"copy", [&] { ZProperties_6_0 const copy(store_); }, [] {}},
        {"store", [&] { store_.store(nullptr); },
         [&] {
             directory_.write("conf", text);
             directory_.write("conf.obf", companion);
             store_.setModified();
         }},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_LT(0u, failEachAllocationOfSome(c.call, c.undo, check));
        if (HasFailure())
            break;
    }
}

int main(int argc, char** argv)
{
    if (LockingProcess::isWanted(argc, argv))
        return LockingProcess::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
