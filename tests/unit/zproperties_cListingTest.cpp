#include <Z/zproperties_c.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <thread>

#include "FailingAllocator.h"
#include "PlainFunctionsFixture.h"

namespace {

class ZPropertiesCListing : public PlainFunctionsTest {
protected:
    // Returns the JSON text, or "code N".
    std::string all(char const* stanza = nullptr, char const* key = nullptr)
    {
        size_t length = kUntouched;
        int code = kUntouched;
        Text const text(zstzPropGetAll_6_0(file_, stanza, key, &length, &code));
        if (code != 0)
            return "code " + std::to_string(code);
        EXPECT_EQ(strlen(text.get()), length);
        return text.get();
    }

    // Returns the marshalled form, or "code N".
    std::string marshalled(char const* stanza = nullptr, char const* key = nullptr)
    {
        size_t length = kUntouched;
        int code = kUntouched;
        Text const text(zstzPropGetAllMarshalled_6_0(file_, stanza, key, &length, &code));
        return code != 0 ? "code " + std::to_string(code) : std::string(text.get(), length);
    }
};

// Returns a string with its zeros.
template <size_t Size>
std::string bytes(char const (&text)[Size])
{
    return {text, Size - 1};
}

}  // namespace

TEST_F(ZPropertiesCListing, ReturnsEverythingInFileOrder)
{
    EXPECT_EQ(
        "{\"server\":{\"port\":[\"8080\"],\"host\":[\"alpha\",\"beta\",\"gamma\"],\"empty\":[],"
        "\"debug\":[\"yes\"]},\"client\":{\"retries\":[\"3\"]}}",
        all());
    EXPECT_EQ("{\"retries\":[\"3\"]}", all("client"));
    EXPECT_EQ("[\"alpha\",\"beta\",\"gamma\"]", all("server", "host"));
    EXPECT_EQ("[]", all("server", "empty"));
}

TEST_F(ZPropertiesCListing, ReturnsChangesAndNewKeysInTheOrderOfTheirLines)
{
    reopened("[s]\nz = 1\n# b\nb = 5\na = 2\n");
    ASSERT_EQ(0, zstzPropSetStringValue_6_0(file_, "s", "m", "new"));
    ASSERT_EQ(0, zstzPropSetStringValue_6_0(file_, "s", "z", "3"));
    ASSERT_EQ(0, zstzPropAddStanza_6_0(file_, "a"));
    EXPECT_EQ("{\"s\":{\"z\":[\"3\"],\"b\":[\"5\"],\"a\":[\"2\"],\"m\":[\"new\"]},\"a\":{}}",
              all());
    ASSERT_EQ(0, zstzPropRemoveKey_6_0(file_, "s", "z"));
    ASSERT_EQ(0, zstzPropRemoveStanza_6_0(file_, "a"));
    ASSERT_EQ(0, zstzPropRenameKey_6_0(file_, "s", "b", "y"));
    EXPECT_EQ("{\"s\":{\"y\":[\"5\"],\"a\":[\"2\"],\"m\":[\"new\"]}}", all());
    EXPECT_EQ("[s]\n# b\ny = 5\na = 2\nm = new\n\n", stored());
}

TEST_F(ZPropertiesCListing, ReturnsNothingAsEmptyObjects)
{
    reopened("");
    EXPECT_EQ("{}", all());
    reopened("[s]\n");
    EXPECT_EQ("{\"s\":{}}", all());
    EXPECT_EQ("{}", all("s"));
}

TEST_F(ZPropertiesCListing, ReturnsTheStanzaWithoutAName)
{
    reopened("[]\nk = v\n");
    EXPECT_EQ("{\"\":{\"k\":[\"v\"]}}", all());
    EXPECT_EQ("{\"k\":[\"v\"]}", all(""));
    EXPECT_EQ("[\"v\"]", all("", "k"));
}

TEST_F(ZPropertiesCListing, IncludesObfuscatedValuesAndKeysThatHaveNoLine)
{
    ASSERT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "client", "password", "geheim"));
    EXPECT_EQ("{\"retries\":[\"3\"],\"password\":[\"geheim\"]}", all("client"));
    ASSERT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    // Only the companion has the key.
    reopened(read("service.conf"));
    EXPECT_EQ("{\"retries\":[\"3\"],\"password\":[\"geheim\"]}", all("client"));
    EXPECT_EQ("[\"geheim\"]", all("client", "password"));
}

TEST_F(ZPropertiesCListing, EscapesWhatJsonCannotHold)
{
    struct Case {
        char const* name;
        char const* value;
        char const* json;
    };
    Case const cases[] = {
        {"quotes and backslashes", "a\"b\\c", "a\\\"b\\\\c"},
        {"control characters", "a\x01\x1f\tb\x7f", "a\\u0001\\u001f\\u0009b\x7f"},
        {"only an escape", "\"", "\\\""},
        {"UTF-8", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"},
        {"the first and last of each length",
         "\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xef\xbf\xbf\xf0\x90\x80\x80\xf4\x8f\xbf\xbf",
         "\xc2\x80\xdf\xbf\xe0\xa0\x80\xed\x9f\xbf\xef\xbf\xbf\xf0\x90\x80\x80\xf4\x8f\xbf\xbf"},
        {"a byte of Latin-1", "a\xe4z", "a\\udce4z"},
        {"continuations alone", "\x80\xbf", "\\udc80\\udcbf"},
        {"a cut character at the end", "a\xe2\x82", "a\\udce2\\udc82"},
        {"a cut character", "\xf0\x9f\x98.", "\\udcf0\\udc9f\\udc98."},
        {"overlong", "\xc0\xaf\xe0\x9f\xbf\xf0\x8f\xbf\xbf",
         "\\udcc0\\udcaf\\udce0\\udc9f\\udcbf\\udcf0\\udc8f\\udcbf\\udcbf"},
        {"a surrogate", "\xed\xa0\x80", "\\udced\\udca0\\udc80"},
        {"too large", "\xf4\x90\x80\x80\xf5\xff", "\\udcf4\\udc90\\udc80\\udc80\\udcf5\\udcff"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        reopened("[s]\nk = 1\n");
        ASSERT_EQ(0, zstzPropSetStringValue_6_0(file_, "s", "k", c.value));
        EXPECT_EQ("[\"" + std::string(c.json) + "\"]", all("s", "k"));
        reopened("[" + std::string(c.value) + "]\nk" + c.value + "k = 1\n");
        EXPECT_EQ("{\"" + std::string(c.json) + "\":{\"k" + c.json + "k\":[\"1\"]}}", all());
    }
}

TEST_F(ZPropertiesCListing, MarshalsDictionariesListsAndStrings)
{
    reopened("[s]\nk = 1\nk = two\nl =\n[t]\n");
    EXPECT_EQ(bytes("{z\x01s{z\x01k[\2\0\0\0z\x01"
                    "1z\3twoz\x01l[\0\0\0\0"
                    "0z\x01t{00"),
              marshalled());
    EXPECT_EQ(bytes("{z\x01k[\2\0\0\0z\x01"
                    "1z\3twoz\x01l[\0\0\0\0"
                    "0"),
              marshalled("s"));
    EXPECT_EQ(bytes("[\2\0\0\0z\x01"
                    "1z\3two"),
              marshalled("s", "k"));
    EXPECT_EQ(bytes("[\0\0\0\0"), marshalled("s", "l"));
    EXPECT_EQ("code 54", marshalled("nothing"));
    EXPECT_EQ("code 54", marshalled("s", "nothing"));
    reopened("");
    EXPECT_EQ("{0", marshalled());
}

TEST_F(ZPropertiesCListing, MarshalsTextThatIsNotAsciiWithSurrogatesForInvalidBytes)
{
    reopened("[s]\nk = \xc3\xa4\xe4\"\n");
    EXPECT_EQ(bytes("[\1\0\0\0u\6\0\0\0\xc3\xa4\xed\xb3\xa4\""), marshalled("s", "k"));
    std::string const longText(300, 'x');
    ASSERT_EQ(0, zstzPropSetStringValue_6_0(file_, "s", "k", longText.c_str()));
    EXPECT_EQ(bytes("[\1\0\0\0u\x2c\1\0\0") + longText, marshalled("s", "k"));
}

// The second occurrence of a string is stored with a mark; later ones refer to it by its number.
TEST_F(ZPropertiesCListing, MarshalsRepeatedStringsAsReferences)
{
    reopened("[s]\na = yes\nb = yes\nc = yes\n\n[t]\na = yes\n\n[u]\na = no\n");
    EXPECT_EQ(bytes("{z\x01s{z\x01"
                    "a[\1\0\0\0z\3yesz\x01"
                    "b[\1\0\0\0\xfa\3yesz\x01"
                    "c[\1\0\0\0r\0\0\0\0"
                    "0z\x01t{\xfa\x01"
                    "a[\1\0\0\0r\0\0\0\0"
                    "0z\x01u{r\1\0\0\0[\1\0\0\0z\2no00"),
              marshalled());
}

TEST_F(ZPropertiesCListing, ReportsMissingNamesAndArguments)
{
    EXPECT_EQ("code 54", all("nothing"));
    EXPECT_EQ("code 54", all("server", "nothing"));
    EXPECT_EQ("code 54", all("", "port"));
    ZPROPError error = {};
    error.size = sizeof error;
    ASSERT_EQ(0, zstzPropGetLastError_6_0(&error));
    EXPECT_EQ(54, error.code);
    EXPECT_EQ(28u, error.messageNumber);
    EXPECT_STREQ("port", error.key);

    int code = kUntouched;
    size_t length = kUntouched;
    EXPECT_EQ(nullptr, zstzPropGetAll_6_0(file_, nullptr, "port", &length, &code));
    EXPECT_EQ(kUntouched, code);
    EXPECT_EQ(0u, length);
    EXPECT_EQ(nullptr, zstzPropGetAll_6_0(file_, nullptr, nullptr, &length, nullptr));
    EXPECT_EQ(nullptr, zstzPropGetAll_6_0(nullptr, nullptr, nullptr, nullptr, &code));
    EXPECT_EQ(55, code);
    Text const text(zstzPropGetAll_6_0(file_, nullptr, nullptr, nullptr, &code));
    EXPECT_NE(nullptr, text);
    EXPECT_EQ(0, code);
}

TEST_F(ZPropertiesCListing, WithoutMemoryFailsAndLeaksNothing)
{
    unsigned long n = 1;
    for (;; ++n) {
        int code = kUntouched;
        size_t length = kUntouched;
        long const before = FailingAllocator::blocks();
        FailingAllocator::failAt(n);
        char* const text = zstzPropGetAll_6_0(file_, nullptr, nullptr, &length, &code);
        bool const hasFailed = FailingAllocator::stop();
        if (!hasFailed) {
            EXPECT_NE(nullptr, text);
            zstzPropFree_6_0(text);
            break;
        }
        ASSERT_EQ(nullptr, text) << "allocation " << n;
        EXPECT_EQ(52, code);
        EXPECT_EQ(0u, length);
        EXPECT_EQ(before, FailingAllocator::blocks());
    }
    EXPECT_GT(n, 3u);
}

TEST_F(ZPropertiesCListing, ReturnsTheValuesOfOneMoment)
{
    reopened("[s]\na = 0\nb = 0\n");
    constexpr int kRounds = 2000;
    std::thread writer([this] {
        char const* values[2] = {"0", "1"};
        for (int i = 1; i <= kRounds; ++i) {
            char const* const value = values[i % 2];
            char const* const pair[2] = {value, value};
            ASSERT_EQ(0, zstzPropSetStringValues_6_0(file_, "s", "a", pair, 2));
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        std::string const text = all("s", "a");
        EXPECT_TRUE(text == "[\"0\"]" || text == "[\"0\",\"0\"]" || text == "[\"1\",\"1\"]")
            << text;
    }
    writer.join();
}
