// StanzaStoreContract: the promises of every store of stanza files, whose file is local or in a
// cluster.
//
// The tests are instantiated for a class Kind with
//
//     using Store                            the class of the store
//     std::string path()                     of the file
//     void write(std::string const& text)    another program writes the file
//     std::string read()                     returns the text of the file
#pragma once

#include <Z/ZArrayList.h>
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/ZPropertiesKVList.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/ZUTF8String.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Raised.h"
#include "StanzaStore.h"
#include "TestDirectory.h"

// The Kind of a class of stores with a local file.
template <class StoreClass>
class LocalFileKind {
public:
    using Store = StoreClass;

    std::string path() const { return directory_.at("conf"); }
    void write(std::string const& text) const { directory_.write("conf", text); }
    std::string read() const { return directory_.read("conf"); }

private:
    TestDirectory const directory_{TestDirectory::Place::memory};
};

template <class Kind>
class StanzaStoreContract : public testing::Test {
public:
    ~StanzaStoreContract() noexcept override {}

protected:
    static constexpr char kSource[] = "src/Z/ZStanzaFileProperties";

    using Store = typename Kind::Store;

    void load(std::string const& text)
    {
        kind_.write(text);
        store_.load(kind_.path().c_str());
    }

    // Stores the store and returns the text of its file.
    std::string stored()
    {
        store_.store(nullptr);
        return kind_.read();
    }

    // Stores the store and returns the values of the key in another store that loads the file.
    std::string readBack(char const* category, char const* key)
    {
        store_.store(nullptr);
        Store const fresh(kind_.path().c_str(), 1);
        return valuesOf(fresh, category, key);
    }

    Kind kind_;
    Store store_{1};
};

TYPED_TEST_SUITE_P(StanzaStoreContract);

TYPED_TEST_P(StanzaStoreContract, RewriteKeepsCommentsBlankLinesAndOrder)
{
    constexpr char kText[] =
        "# head\n\n[b]\n# port = 1\n\nz = 1\na = 2\na = 3\n\n# tail of b\n[a]\nempty =\n\n";
    this->load(kText);
    EXPECT_EQ(kText, this->stored());
}

TYPED_TEST_P(StanzaStoreContract, RewriteNormalisesWhitespaceAndDropsTextAfterAHeader)
{
    this->load("  # c  \n \t \n  [ s ] tail\n  k   =   v  \nx=\n");
    EXPECT_EQ("# c\n\n[ s ]\nk = v\nx =\n", this->stored());
}

TYPED_TEST_P(StanzaStoreContract, NewKeyFollowsItsTemplateComment)
{
    this->load("[s]\na = 1\n# key = 5\n\nb = 2\n[t]\n");
    this->store_.setValue("s", "key", "6");
    this->store_.setValue("s", "other", "7");
    this->store_.setValue("u", "k", "8");
    EXPECT_EQ("[s]\na = 1\n# key = 5\nkey = 6\n\nb = 2\nother = 7\n[t]\n\n[u]\nk = 8\n",
              this->stored());
}

TYPED_TEST_P(StanzaStoreContract, CommentsGetAHashSign)
{
    this->load("[s]\nk = v\n");
    this->store_.addFileComment("file\n#marked");
    this->store_.addStanzaComment("s", "stanza");
    this->store_.addEntryComment("s", "k", "entry\nof two lines");
    this->store_.addStanzaComment("nowhere", "ignored");
    EXPECT_EQ("#file\n#marked\n\n#stanza\n[s]\n\n#entry\n#of two lines\nk = v\n", this->stored());
    ZLCString_6_0 comment;
    this->store_.checkComment(comment);
    EXPECT_STREQ("#", comment.getChars());
}

TYPED_TEST_P(StanzaStoreContract, LinesOfAStanzaCommentStayTogether)
{
    this->load("[r]\nk = a\n[s]\nk = a\n");
    this->store_.addStanzaComment("r", "one\n#two\n\nfour");
    this->store_.addStanzaComment("s", "five\nsix");
    EXPECT_EQ("\n#one\n#two\n#\n#four\n[r]\nk = a\n\n#five\n#six\n[s]\nk = a\n", this->stored());
    // A separate comment stays separated by a blank line.
    this->store_.addStanzaComment("s", "seven\neight");
    EXPECT_EQ("\n#one\n#two\n#\n#four\n[r]\nk = a\n\n#five\n#six\n\n#seven\n#eight\n[s]\nk = a\n",
              this->stored());
    this->store_.reload(nullptr);
    this->store_.deleteStanza("r");
    this->store_.addStanzaComment("s", "nine\n");
    EXPECT_EQ("\n#one\n#two\n#\n#four\n\n#nine\n#\n[s]\nk = a\n", this->stored());
}

TYPED_TEST_P(StanzaStoreContract, CommentsCheckTheirArguments)
{
    this->load("[s]\nk = v\n");
    std::string const tooLong(8190, 'x');
    std::vector<std::function<void()>> const calls = {
        [&] { this->store_.addFileComment(nullptr); },
        [&] { this->store_.addFileComment(tooLong.c_str()); },
        [&] { this->store_.addStanzaComment("s", nullptr); },
        [&] { this->store_.addStanzaComment(nullptr, "c"); },
        [&] { this->store_.addStanzaComment("", "c"); },
        [&] { this->store_.addEntryComment("s", "k", nullptr); },
        [&] { this->store_.addEntryComment("s", "a=b", "c"); },
        [&] { this->store_.addEntryComment("s", "new", tooLong.c_str()); },
    };
    for (auto const& call : calls)
        EXPECT_THROW(call(), ZInvalidParameterException_6_0);
    EXPECT_EQ(0, this->store_.isModified());
    EXPECT_EQ("[s]\nk = v\n", this->stored());
}

TYPED_TEST_P(StanzaStoreContract, StanzasAreAddedAndDeleted)
{
    this->load("[s]\nk = v\n# c\n[t]\nx = 1\n");
    NotedChanges observer;
    this->store_.addObserver(&observer);
    this->store_.addStanza("new");
    EXPECT_EQ(1, this->store_.exists("new"));
    EXPECT_EQ(1, this->store_.isModified());
    this->store_.deleteStanza("s");
    EXPECT_EQ(0, this->store_.exists("s"));
    this->store_.addStanza("t");
    this->store_.deleteStanza("missing");
    EXPECT_EQ("0[new] 1[s] 0[t] 1[missing] ", observer.log);
    EXPECT_EQ("[t]\nx = 1\n\n[new]\n", this->stored());
}

TYPED_TEST_P(StanzaStoreContract, KeysAreListed)
{
    this->load("[s]\nk = v\nl = w\n");
    std::unique_ptr<ZArrayList_6_0> const keys(this->store_.getKeys("s"));
    EXPECT_EQ(2u, keys->size());
    EXPECT_EQ(nullptr, this->store_.getKeys("nowhere"));
}

TYPED_TEST_P(StanzaStoreContract, AddValueAppendsAValueOnce)
{
    this->load("[s]\nk = a\nk = b\n");
    NotedChanges observer;
    this->store_.addObserver(&observer);
    this->store_.addValue("s", "k", "c", 0);
    this->store_.addValue("s", "k", "a", 0);
    EXPECT_EQ("a,b,c,", valuesOf(this->store_, "s", "k"));
    EXPECT_EQ("", observer.log);
    this->store_.addValue("s", "new", "x", 0);
    EXPECT_EQ("2[s]new ", observer.log);
    EXPECT_EQ("[s]\nk = a\nk = b\nk = c\nnew = x\n", this->stored());
}

TYPED_TEST_P(StanzaStoreContract, AddValueAcceptsFiveTypesOfStrings)
{
    this->store_.addValue("s", "k", "1", 0);
    this->store_.addValue("s", "k", ZLCString_6_0("2"), 0);
    this->store_.addValue("s", "k", ZUTF8String_6_0("3"), 0);
    this->store_.addValue("s", "k", ZLCConstString_6_0("4"), 0);
    this->store_.addValue("s", "k", ZUTF8ConstString_6_0("5"), 0);
    EXPECT_EQ("1,2,3,4,5,", valuesOf(this->store_, "s", "k"));
}

TYPED_TEST_P(StanzaStoreContract, ManyValuesAreAddedWithoutDuplicates)
{
    this->load("[s]\nk = a\n");
    ZArrayList_6_0 values(8, 1);
    for (char const* text : {"b", "a", "b", "", "c"}) {
        ZLCString_6_0 const value(text);
        values.add(&value);
    }
    ZUTF8String_6_0 const last("d");
    values.add(&last);
    this->store_.addValues("s", "k", values, 0);
    EXPECT_EQ("a,b,,c,d,", valuesOf(this->store_, "s", "k"));
    this->store_.addValues("s", "hidden", values, 1);
    EXPECT_EQ("b,a,,c,d,", valuesOf(this->store_, "s", "hidden"));
    EXPECT_EQ(1, this->store_.isObfuscated("s", "hidden"));
    ZArrayList_6_0 const none(1, 1);
    this->store_.addValues("s", "k", none, 0);
    EXPECT_EQ("a,b,,c,d,", valuesOf(this->store_, "s", "k"));
    // A file does not represent the empty value.
    EXPECT_EQ("a,b,c,d,", this->readBack("s", "k"));
    EXPECT_EQ("b,a,c,d,", this->readBack("s", "hidden"));
}

TYPED_TEST_P(StanzaStoreContract, EmptyValueAddedToAKeyWithoutValuesCreatesTheKey)
{
    ZArrayList_6_0 values(2, 1);
    values.addNoCopy(new ZLCString_6_0(""));
    this->store_.addValues("s", "k", values, 0);
    EXPECT_EQ(1, this->store_.exists("s", "k"));
    EXPECT_EQ("", valuesOf(this->store_, "s", "k"));
    values.addNoCopy(new ZLCString_6_0("a"));
    NotedChanges observer;
    this->store_.addObserver(&observer);
    this->store_.addValues("s", "k", values, 0);
    EXPECT_EQ("a,", valuesOf(this->store_, "s", "k"));
    EXPECT_EQ("2[s]k 2[s]k ", observer.log);  // emptied, then set
    values.addNoCopy(new ZLCString_6_0("b"));
    this->store_.addValues("s", "k", values, 0);
    EXPECT_EQ("a,,b,", valuesOf(this->store_, "s", "k"));
    EXPECT_EQ("2[s]k 2[s]k ", observer.log);  // adding to existing values sends no notice
}

TYPED_TEST_P(StanzaStoreContract, AddingChecksItsArgumentsAndChangesNothing)
{
    this->load("[s]\nk = a\n");
    this->store_.setValue("s", "hidden", "h", 1);
    this->store_.resetModified();
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
        [&] { this->store_.addValue(nullptr, "k", "v", 0); },
        [&] { this->store_.addValue("", "k", "v", 0); },
        [&] { this->store_.addValue("s", nullptr, "v", 0); },
        [&] { this->store_.addValue("s", "", "v", 0); },
        [&] { this->store_.addValue("s", "k", static_cast<char const*>(nullptr), 0); },
        [&] { this->store_.addValue("s", "k", "", 0); },
        [&] { this->store_.addValue("s", "k", ZLCString_6_0(), 0); },
        [&] { this->store_.addValue("s", "k", ZUTF8String_6_0(), 0); },
        [&] { this->store_.addValue("s]", "k", "v", 0); },
        [&] { this->store_.addValue("s", "#k", "v", 0); },
        [&] { this->store_.addValue("s", "k", "a\nb", 0); },
        [&] { this->store_.addValue("s", "k", tooLong.c_str(), 0); },
        [&] { this->store_.addValue("s", "k", "v", 1); },
        [&] { this->store_.addValue("s", "hidden", "v", 0); },
        [&] { this->store_.addValues("s", "k", bad, 0); },
        [&] { this->store_.addValues("s", "new", bad, 0); },
        [&] { this->store_.addValues("s", "k", noStrings, 0); },
        [&] { this->store_.addValues("s", "k", nulls, 0); },
    };
    for (size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_THROW(calls[i](), ZInvalidParameterException_6_0);
    }
    EXPECT_THROW(this->store_.addValue("s", "k", ZUTF8String_6_0("\xC3"), 0),
                 ZFromUTF8Exception_6_0);
    EXPECT_EQ("a,", valuesOf(this->store_, "s", "k"));
    EXPECT_EQ("h,", valuesOf(this->store_, "s", "hidden"));
    EXPECT_EQ(2, this->store_.count("s"));
    EXPECT_EQ(0, this->store_.isModified());
}

TYPED_TEST_P(StanzaStoreContract, ItemsAreReadByTheirType)
{
    this->load("[s]\nyes = true\nn = 0x10\ntext = t\nmany = a\nmany = b\n");
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
    this->store_.getItems(items, 8);
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

TYPED_TEST_P(StanzaStoreContract, AnInvalidTypeEndsTheBatch)
{
    this->load("[s]\nn = 1\n");
    unsigned int first = 0;
    unsigned int second = 0;
    for (int type : {0, 7, -1, 100}) {
        ZStzFileItem_6_0 items[] = {
            {zStzInteger, "s", "n", 0, &first, {}},
            {type, "s", "n", 0, nullptr, {}},
            {zStzInteger, "s", "n", 0, &second, {}},
        };
        first = 0;
        this->store_.getItems(items, 3);
        EXPECT_EQ(1u, first);
        EXPECT_EQ(0u, second);
    }
}

TYPED_TEST_P(StanzaStoreContract, BatchesCheckTheirArguments)
{
    this->load("[s]\nn = 1\nbad = x\n");
    unsigned int first = 0;
    unsigned int second = 5;
    ZStzFileItem_6_0 items[] = {
        {zStzInteger, "s", "n", 0, &first, {}},
        {zStzInteger, "s", "bad", 0, &second, {}},
    };
    auto const refused = [](auto call) {
        return raises<ZInvalidParameterException_6_0>(22, StanzaStoreContract<TypeParam>::kSource,
                                                      260, call);
    };
    EXPECT_TRUE(refused([&] { this->store_.getItems(nullptr, 1); }));
    EXPECT_TRUE(refused([&] { this->store_.getItems(items, 0); }));
    this->store_.getItems(items, -1);
    EXPECT_EQ(0u, first);
    ZStzFileItem_6_0 noResult = {zStzInteger, "s", "n", 0, nullptr, {}};
    EXPECT_TRUE(refused([&] { this->store_.getItems(&noResult, 1); }));
    EXPECT_THROW(this->store_.getItems(items, 2), ZPropertiesInvalidValueException_6_0);
    EXPECT_EQ(1u, first);
    EXPECT_EQ(5u, second);
    items[1] = {zStzInteger, "s", "missing", 1, &second, {}};
    EXPECT_THROW(this->store_.getItems(items, 2), ZPropertiesMissingPropertyException_6_0);
    items[1].required = -1;
    this->store_.getItems(items, 2);
    EXPECT_EQ(0u, second);
}

TYPED_TEST_P(StanzaStoreContract, StanzaIteratorsIterateOverKeysAndValues)
{
    this->load("[s]\nk = a\nk = b\n");
    ZStanzaIterator_6_0 keys(this->store_, "s");
    keys.nextEntry();
    EXPECT_STREQ("k", keys.entryName());
    ZStanzaValueIterator_6_0 values(this->store_, "s", "k", zPropLocalStrings, zPropIterAny);
    EXPECT_EQ(2, values.valueCount());
    EXPECT_THROW(ZStanzaIterator_6_0(this->store_, nullptr), ZInvalidParameterException_6_0);
}

REGISTER_TYPED_TEST_SUITE_P(StanzaStoreContract, RewriteKeepsCommentsBlankLinesAndOrder,
                            RewriteNormalisesWhitespaceAndDropsTextAfterAHeader,
                            NewKeyFollowsItsTemplateComment, CommentsGetAHashSign,
                            LinesOfAStanzaCommentStayTogether, CommentsCheckTheirArguments,
                            StanzasAreAddedAndDeleted, KeysAreListed, AddValueAppendsAValueOnce,
                            AddValueAcceptsFiveTypesOfStrings, ManyValuesAreAddedWithoutDuplicates,
                            EmptyValueAddedToAKeyWithoutValuesCreatesTheKey,
                            AddingChecksItsArgumentsAndChangesNothing, ItemsAreReadByTheirType,
                            AnInvalidTypeEndsTheBatch, BatchesCheckTheirArguments,
                            StanzaIteratorsIterateOverKeysAndValues);
