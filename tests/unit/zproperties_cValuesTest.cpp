// The plain functions for the values that count, with files in which not every line of a key does.
#include <Z/zproperties_c.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "FailingAllocator.h"
#include "PlainFunctionsFixture.h"

namespace {

class ZPropertiesCValues : public PlainFunctionsTest {
protected:
    // Replaces the store by one with these contents.
    void load(char const* dialect, std::string const& text)
    {
        zstzPropClose_6_0(file_);
        ASSERT_EQ(0, zstzPropNew_6_0(&file_, dialect));
        ASSERT_EQ(0, zstzPropLoadText_6_0(file_, text.data(), text.size()));
    }

    std::string text()
    {
        int code = kUntouched;
        Text const text(zstzPropStoreText_6_0(file_, nullptr, &code));
        EXPECT_EQ(0, code);
        return text == nullptr ? "" : text.get();
    }

    // Returns the range as "FIRST+COUNT", or "code N".
    std::string range(char const* key)
    {
        int first = kUntouched;
        int count = kUntouched;
        int const code = zstzPropGetCountingRange_6_0(file_, "s", key, &first, &count);
        if (code == 0)
            return std::to_string(first) + "+" + std::to_string(count);
        EXPECT_EQ(kUntouched, first);
        EXPECT_EQ(kUntouched, count);
        return "code " + std::to_string(code);
    }
};

ZPROPError lastError()
{
    ZPROPError error = {};
    error.size = sizeof error;
    EXPECT_EQ(0, zstzPropGetLastError_6_0(&error));
    return error;
}

}  // namespace

TEST_F(ZPropertiesCValues, TheRangeHasTheValuesThatCount)
{
    struct Case {
        char const* dialect;
        char const* text;
        char const* range;
    };
    Case const cases[] = {
        {"stanza", "[s]\nk=1\nk=2\n", "0+2"},
        {"stanza", "[s]\nk=\n", "0+0"},
        {"ini", "[s]\nk=1\nk=2\nk=3\n", "2+1"},
        {"windows", "[s]\nk=1\nk=2\nk=3\n", "0+1"},
        {"git", "[s]\nk=1\nk=2\n", "0+2"},
        {"git", "[s]\nk\n", "0+0"},
        {"systemd", "[s]\nk=1\nk=\nk=2\nk=3\n", "2+2"},
        {"systemd", "[s]\nk=1\nk=\n", "2+0"},
        {"systemd", "[s]\nk=1\nk=2\n", "0+2"},
        {"php", "[s]\nk=1\nk=2\n", "1+1"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.dialect) + ": " + c.text);
        load(c.dialect, c.text);
        EXPECT_EQ(c.range, range("k"));
    }
    load("php", "[s]\nk[]=1\nk[]=2\n");
    EXPECT_EQ("0+2", range("k[]"));
    EXPECT_EQ("code 54", range("none"));
}

TEST_F(ZPropertiesCValues, TheRangeOfObfuscatedValuesHasAllOfThem)
{
    ASSERT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "s", "secret", "x"));
    EXPECT_EQ("0+1", range("secret"));
}

TEST_F(ZPropertiesCValues, SettingAValueChangesTheOneLineThatCounts)
{
    struct Case {
        char const* dialect;
        char const* before;
        char const* after;
    };
    Case const cases[] = {
        {"ini", "[s]\nk=1\n; note\nk=2\n", "[s]\nk=1\n; note\nk=9\n"},
        {"windows", "[s]\nk=1\n; note\nk=2\n", "[s]\nk=9\n; note\nk=2\n"},
        {"desktop", "[s]\nk=9\nk=2\n", "[s]\nk=9\nk=9\n"},
        {"ini", "[s]\nk=1\nk=9\n", "[s]\nk=1\nk=9\n"},
        {"git", "[s]\nk=1\nk=2\n", "[s]\nk=9\n"},
        {"systemd", "[s]\nk=1\nk=\n# b\nk=2\n", "[s]\nk=1\nk=\n# b\nk=9\n"},
        {"systemd", "[s]\nk=1\nk=\n", "[s]\nk=1\nk=\nk=9\n"},
        {"systemd", "[s]\nk=\n", "[s]\nk=9\n"},
        {"systemd", "[s]\nk=1\nk=\nk=2\nk=3\n", "[s]\nk=9\n"},
        {"php", "[s]\nk[]=1\nk=2\nk=3\n", "[s]\nk[]=1\nk=2\nk=9\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.dialect) + ": " + c.before);
        load(c.dialect, c.before);
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "s", "k", "9"));
        EXPECT_EQ(c.after, text());
        EXPECT_EQ("9", value("s", "k"));
    }
    load("systemd", "[s]\nk=1\nk=\n");
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "s", "k", ""));
    EXPECT_EQ("[s]\nk=1\nk=\n", text());
    load("ini", "[s]\nk=1\nk=2\n");
    EXPECT_EQ(0, zstzPropSetBooleanValue_6_0(file_, "s", "k", 1));
    EXPECT_EQ("[s]\nk=1\nk=yes\n", text());
    EXPECT_EQ(0, zstzPropSetIntegerValue_6_0(file_, "s", "k", 7));
    EXPECT_EQ("[s]\nk=1\nk=7\n", text());
}

TEST_F(ZPropertiesCValues, AddingALineThatCannotCountIsRefused)
{
    for (char const* dialect : {"ini", "windows", "desktop", "python", "php"}) {
        SCOPED_TRACE(dialect);
        load(dialect, "[s]\nk=7\n");
        EXPECT_EQ(52, zstzPropAddStringValue_6_0(file_, "s", "k", "8"));
        EXPECT_STREQ("The key exists, and only one of its lines would count; set its value.",
                     lastError().text);
        EXPECT_EQ(0u, lastError().messageNumber);
        EXPECT_STREQ("k", lastError().key);
        EXPECT_EQ("[s]\nk=7\n", text());
        EXPECT_EQ(0, zstzPropAddStringValue_6_0(file_, "s", "j", "8"));
    }
    load("php", "[s]\nk[]=7\n");
    EXPECT_EQ(0, zstzPropAddStringValue_6_0(file_, "s", "k[]", "8"));
    EXPECT_EQ("[s]\nk[]=7\nk[]=8\n", text());
}

TEST_F(ZPropertiesCValues, RemovingAValueRemovesOneThatCounts)
{
    struct Case {
        char const* dialect;
        char const* before;
        int code;
        char const* after;
    };
    Case const cases[] = {
        {"systemd", "[s]\nk=1\nk=\nk=1\nk=2\n", 0, "[s]\nk=1\nk=\nk=2\n"},
        {"systemd", "[s]\nk=1\nk=\nk=2\n", 54, "[s]\nk=1\nk=\nk=2\n"},
        {"ini", "[s]\nk=1\nk=2\n", 54, "[s]\nk=1\nk=2\n"},
        {"git", "[s]\nk=1\nk=2\n", 0, "[s]\nk=2\n"},
        {"ini", "[s]\nk=1\nj=2\n", 0, "[s]\nj=2\n"},
        {"ini", "[s]\nj=2\n", 54, "[s]\nj=2\n"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.dialect) + ": " + c.before);
        load(c.dialect, c.before);
        EXPECT_EQ(c.code, zstzPropRemoveValue_6_0(file_, "s", "k", "1"));
        EXPECT_EQ(c.after, text());
    }
}

TEST_F(ZPropertiesCValues, ChangesOfANameOfSeveralStanzasAreRefused)
{
    std::string const contents = "[s]\nk=1\n[s]\nk=2\n";
    load("networkd", contents);
    char const* const values[] = {"1"};
    int const codes[] = {
        zstzPropSetStringValue_6_0(file_, "s", "k", "9"),
        zstzPropSetStringValues_6_0(file_, "s", "k", values, 1),
        zstzPropAddStringValue_6_0(file_, "s", "k", "9"),
        zstzPropRemoveValue_6_0(file_, "s", "k", "1"),
        zstzPropRemoveKey_6_0(file_, "s", "k"),
        zstzPropRemoveStanza_6_0(file_, "s"),
        zstzPropRenameStanza_6_0(file_, "s", "t"),
        zstzPropRenameKey_6_0(file_, "s", "k", "j"),
        zstzPropSetStanzaComment_6_0(file_, "s", "c"),
        zstzPropSetLineComment_6_0(file_, "s", "k", "c"),
        zstzPropAddStanzaComment_6_0(file_, "s", "c"),
        zstzPropAddLineComment_6_0(file_, "s", "k", "c"),
        zstzPropSetRawValue_6_0(file_, "s", "k", 0, "9"),
    };
    for (size_t i = 0; i < std::size(codes); ++i)
        EXPECT_EQ(52, codes[i]) << i;
    EXPECT_STREQ("Several stanzas have the name; add the number of one of them, as in NAME]2.",
                 lastError().text);
    EXPECT_EQ(0u, lastError().messageNumber);
    EXPECT_EQ(contents, text());
    EXPECT_EQ("1", value("s", "k"));
}

TEST_F(ZPropertiesCValues, AnOptionIsTrue)
{
    int code = kUntouched;
    for (char const* dialect : {"git", "mysql"}) {
        SCOPED_TRACE(dialect);
        load(dialect, "[s]\nk\nj=\nl=no\n");
        EXPECT_EQ(1, zstzPropGetBooleanValue_6_0(file_, "s", "k", kRequired, &code));
        EXPECT_EQ(0, code);
        EXPECT_EQ(0, zstzPropGetBooleanValue_6_0(file_, "s", "l", kRequired, &code));
        EXPECT_EQ(0, code);
        EXPECT_EQ(0, zstzPropGetBooleanValue_6_0(file_, "s", "none", kRequired, &code));
        EXPECT_EQ(54, code);
        int result = kUntouched;
        ZPROPValue record = {zpropBoolean, "s", "k", kRequired, &result};
        EXPECT_EQ(0, zstzPropGetValues_6_0(file_, &record, 1));
        EXPECT_EQ(1, result);
    }
    load("stanza", "[s]\nk =\n");
    zstzPropGetBooleanValue_6_0(file_, "s", "k", kRequired, &code);
    EXPECT_EQ(54, code);
}

// ---- Hostile callers ----------------------------------------------------------------------------

TEST_F(ZPropertiesCValues, TheRangeOfABadHandleOrWithoutANameIs55)
{
    int first = kUntouched;
    int count = kUntouched;
    EXPECT_EQ(55, zstzPropGetCountingRange_6_0(nullptr, "server", "port", &first, &count));
    EXPECT_EQ(55, zstzPropGetCountingRange_6_0(file_, nullptr, "port", &first, &count));
    EXPECT_EQ(55, zstzPropGetCountingRange_6_0(file_, "server", nullptr, &first, &count));
    EXPECT_EQ(55, zstzPropGetCountingRange_6_0(file_, "server", "port", nullptr, &count));
    EXPECT_EQ(55, zstzPropGetCountingRange_6_0(file_, "server", "port", &first, nullptr));
    EXPECT_EQ(54, zstzPropGetCountingRange_6_0(file_, "", "port", &first, &count));
    EXPECT_EQ(54, zstzPropGetCountingRange_6_0(file_, "server", "", &first, &count));
    zstzPropClose_6_0(file_);
    EXPECT_EQ(55, zstzPropGetCountingRange_6_0(file_, "server", "port", &first, &count));
    EXPECT_EQ(kUntouched, first);
    EXPECT_EQ(kUntouched, count);
}

TEST_F(ZPropertiesCValues, TheRangeIsConsistentWhileAnotherThreadChangesTheValues)
{
    load("systemd", "[s]\nk=1\n");
    std::thread writer([&] {
        char const* const three[] = {"1", "", "2"};
        for (int i = 0; i < 2000; ++i)
            EXPECT_EQ(0, zstzPropSetStringValues_6_0(file_, "s", "k", three, i % 2 == 0 ? 3 : 1));
    });
    for (int i = 0; i < 2000; ++i) {
        std::string const found = range("k");
        EXPECT_TRUE(found == "2+1" || found == "0+1") << found;
    }
    writer.join();
}

TEST_F(ZPropertiesCValues, WithoutMemoryNothingChanges)
{
    std::string const contents = "[s]\nk=1\nk=2\n";
    std::string const longValue(300, 'x');
    load("ini", contents);
    for (unsigned long n = 1;; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        FailingAllocator::failAt(n);
        int const code = zstzPropSetStringValue_6_0(file_, "s", "k", longValue.c_str());
        bool const failed = FailingAllocator::stop();
        if (code == 0) {
            EXPECT_EQ("[s]\nk=1\nk=" + longValue + "\n", text());
            break;
        }
        ASSERT_TRUE(failed);
        EXPECT_EQ(52, code);
        ASSERT_EQ(contents, text());
    }
}
