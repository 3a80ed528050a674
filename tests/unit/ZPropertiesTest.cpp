#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZProperties.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "PropertiesFixture.h"
#include "StanzaStore.h"

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
