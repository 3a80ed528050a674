#include <Z/zproperties_c.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stddef.h>
#include <string.h>

#include <string>
#include <thread>
#include <vector>

#include "FailingAllocator.h"
#include "PlainFunctionsFixture.h"

using ZPropertiesCLastError = PlainFunctionsTest;

namespace {

constexpr unsigned kSize = sizeof(ZPROPError);

ZPROPError lastError()
{
    ZPROPError error = {};
    error.size = kSize;
    EXPECT_EQ(0, zstzPropGetLastError_6_0(&error));
    return error;
}

// Returns the fields of the last failure: "code message errno line:column file|stanza|key|text".
std::string described()
{
    ZPROPError const error = lastError();
    return std::to_string(error.code) + " " + std::to_string(error.messageNumber) + " " +
           std::to_string(error.errorNumber) + " " + std::to_string(error.line) + ":" +
           std::to_string(error.column) + " " + error.file + "|" + error.stanza + "|" + error.key +
           "|" + error.text;
}

// Returns the text of the first problem of a file.
std::string problemOf(std::string const& file)
{
    std::string text;
    EXPECT_EQ(0, zstzPropFindProblems_6_0(
                     file.c_str(), "stanza",
                     [](ZPROPProblem const* problem, void* found) {
                         *static_cast<std::string*>(found) = problem->text;
                         return 1;
                     },
                     &text));
    return text;
}

constexpr char kBadKey[] =
    "No line can hold the key: it starts with \"#\" or \"[\", has a \"=\", a newline or spaces at "
    "its ends, or is too long.";
constexpr char kBadStanza[] =
    "No header can hold the name of the stanza: it has a \"]\" or a newline, or is too long.";
constexpr char kBadValue[] = "No line can hold the value: it has a newline, or is too long.";

template <class Action>
void inThread(Action action)
{
    std::thread(action).join();
}

}  // namespace

// ---- The failures -------------------------------------------------------------------------------

TEST_F(ZPropertiesCLastError, AThreadStartsWithoutAFailure)
{
    inThread([] { EXPECT_EQ("0 0 0 0:0 |||", described()); });
}

TEST_F(ZPropertiesCLastError, OpenGivesFileLineAndColumn)
{
    std::string const bad = write("bad.conf", "[a]\nk = v\n   no equals sign\n");
    ZPROP_handle* handle = nullptr;
    EXPECT_EQ(51, zstzPropOpen_6_0(&handle, bad.c_str(), zpropOpenRead));
    EXPECT_EQ("51 44 0 3:4 " + bad + "|||The configuration file \"" + bad +
                  "\" contains invalid data at line 3.\nData: \"no equals sign\"\n" +
                  problemOf(bad) + "; reads as python, open it with that dialect",
              described());
}

TEST_F(ZPropertiesCLastError, OpenGivesTheErrnoOfTheFailedCall)
{
    std::string const none = path("none.conf");
    ZPROP_handle* handle = nullptr;
    EXPECT_EQ(51, zstzPropOpen_6_0(&handle, none.c_str(), zpropOpenRead));
    EXPECT_EQ("51 43 2 0:0 " + none + "|||Access failed for configuration file " + none +
                  ".  The access function was fopen(r) and return code was 2",
              described());
}

TEST_F(ZPropertiesCLastError, EachKindOfFailureIsRecorded)
{
    std::string const file = path("service.conf");
    ZPROP_iter_handle* keys = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", nullptr, &keys));
    int code = 0;
    struct Case {
        char const* name;
        std::function<void()> call;
        std::string expected;
    };
    std::string const badHandle = " 0 0 0:0 |||The handle is null, closed or not of this kind.";
    Case const cases[] = {
        {"a missing key",
         [&] { zstzPropGetIntegerValue_6_0(file_, "server", "none", kRequired, &code); },
         "54 28 0 0:0 " + file + "|server|none|The configuration file " + file +
             " is missing the required attribute none in stanza server."},
        {"not a number",
         [&] { zstzPropGetIntegerValue_6_0(file_, "server", "host", kRequired, &code); },
         "53 40 0 0:0 " + file + "|server|host|The configuration file " + file +
             " has an invalid numeric value gamma for key host in stanza server."},
        {"not a boolean",
         [&] { zstzPropGetBooleanValue_6_0(file_, "server", "host", kRequired, &code); },
         "53 41 0 0:0 " + file + "|server|host|The configuration file " + file +
             " has an invalid boolean value gamma for key host in stanza server."},
        {"an invalid key", [&] { zstzPropSetStringValue_6_0(file_, "s", "a=b", "v"); },
         "52 22 0 0:0 " + file + "|s|a=b|" + kBadKey},
        {"a closed handle", [&] { zstzPropStore_6_0(nullptr, nullptr); }, "55" + badHandle},
        {"a closed iterator", [&] { zstzPropIter_rmvValue_6_0(nullptr); }, "55" + badHandle},
        {"a null argument", [&] { zstzPropRemoveKey_6_0(file_, "s", nullptr); },
         "55 0 0 0:0 |||A required argument is null or out of range."},
        {"a null code", [&] { zstzPropNumStanzas_6_0(file_, nullptr); },
         "55 0 0 0:0 |||A required argument is null or out of range."},
        {"an iterator over keys", [&] { zstzPropIter_rmvValue_6_0(keys); },
         "57 0 0 0:0 |||The iterator does not support this operation."},
        {"a store in no directory", [&] { zstzPropStore_6_0(file_, "/none/x.conf"); },
         "51 43 2 0:0 /none/x.conf|||Access failed for configuration file /none/x.conf.  The "
         "access "
         "function was fopen(r+) and return code was 2"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        c.call();
        EXPECT_EQ(c.expected, described());
    }
    inThread([&] {
        EXPECT_EQ(57, zstzPropIter_close_6_0(keys));
        EXPECT_EQ("57 0 0 0:0 |||The iterator belongs to another thread.", described());
    });
    EXPECT_EQ(0, zstzPropIter_close_6_0(keys));
}

TEST_F(ZPropertiesCLastError, EachRefusalHasAReason)
{
    char const* const two[] = {"a", ""};
    std::string const longComment(9000, 'c');
    ASSERT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "server", "secret", "s3"));
    auto const set = [&](char const* stanza, char const* key, char const* value) {
        return zstzPropSetStringValue_6_0(file_, stanza, key, value);
    };
    int code = 0;
    auto const get = [&](char const* stanza, char const* key) {
        zstzPropGetIntegerValue_6_0(file_, stanza, key, kRequired, &code);
        return code;
    };
    struct Refusal {
        char const* stanza;
        char const* key;
        char const* text;
        std::function<int()> call;
    };
    Refusal const cases[] = {
        {"", "k", "The name of the stanza is empty.", [&] { return set("", "k", "v"); }},
        {"s", "", "The key is empty.", [&] { return set("s", "", "v"); }},
        {"a]", "k", kBadStanza, [&] { return set("a]", "k", "v"); }},
        {"s", "#k", kBadKey, [&] { return set("s", "#k", "v"); }},
        {"s", "k", kBadValue, [&] { return set("s", "k", "a\nb"); }},
        {"server", "secret", "The key has obfuscated values.",
         [&] { return set("server", "secret", "v"); }},
        {"server", "port", "The key has plain values.",
         [&] { return zstzPropSetObfuscatedValue_6_0(file_, "server", "port", "v"); }},
        {"server", "host", "One of several values is empty.",
         [&] { return zstzPropSetStringValues_6_0(file_, "server", "host", two, 2); }},
        {"server", "port", "The stanza has a key of the new name.",
         [&] { return zstzPropRenameKey_6_0(file_, "server", "port", "host"); }},
        {"server", "port", kBadKey,
         [&] { return zstzPropRenameKey_6_0(file_, "server", "port", "a=b"); }},
        {"server", "port", "The key is empty.",
         [&] { return zstzPropRenameKey_6_0(file_, "server", "port", ""); }},
        {"server", "", "The file has a stanza of the new name.",
         [&] { return zstzPropRenameStanza_6_0(file_, "server", "client"); }},
        {"server", "", "The name of the stanza is empty.",
         [&] { return zstzPropRenameStanza_6_0(file_, "server", ""); }},
        {"", "", "A line of the comment is too long.",
         [&] { return zstzPropSetFileComment_6_0(file_, longComment.c_str()); }},
        {"server", "port", "A line of the comment is too long.",
         [&] { return zstzPropAddLineComment_6_0(file_, "server", "port", longComment.c_str()); }},
        {"server", "secret", "The key has obfuscated values, and so no line for a comment.",
         [&] { return zstzPropSetLineComment_6_0(file_, "server", "secret", "c"); }},
        {"server", "port", "The spelling does not read back as one value of the line.",
         [&] { return zstzPropSetRawValue_6_0(file_, "server", "port", 0, " 1"); }},
        {"a]", "", kBadStanza, [&] { return zstzPropAddStanza_6_0(file_, "a]"); }},
        {"", "k", "The name of the stanza is empty.", [&] { return get("", "k"); }},
        {"s", "", "The key is empty.", [&] { return get("s", ""); }},
    };
    for (Refusal const& c : cases) {
        SCOPED_TRACE(c.text);
        int const refused = c.call();
        EXPECT_TRUE(refused == 52 || refused == 55) << refused;
        EXPECT_EQ(std::to_string(refused) + " 22 0 0:0 " + path("service.conf") + "|" + c.stanza +
                      "|" + c.key + "|" + c.text,
                  described());
    }
}

TEST_F(ZPropertiesCLastError, FailuresOfIteratorsHaveNames)
{
    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &iterator));
    int code = 0;
    EXPECT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(52, zstzPropIter_chgValue_6_0(iterator, "a\nb"));
    EXPECT_EQ("52 22 0 0:0 " + path("service.conf") + "|server|host|" + kBadValue, described());
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
}

TEST_F(ZPropertiesCLastError, TheFileIsTheFileOfTheStore)
{
    zstzPropClose_6_0(file_);
    ASSERT_EQ(0, zstzPropNew_6_0(&file_, nullptr));
    EXPECT_EQ(51, zstzPropStore_6_0(file_, nullptr));
    EXPECT_EQ("51 22 0 0:0 |||The store has no file; name a file.", described());
    EXPECT_EQ(51, zstzPropStore_6_0(file_, ""));
    ASSERT_EQ(0, zstzPropStore_6_0(file_, path("new.conf").c_str()));
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, "s", "a=b", "v"));
    EXPECT_EQ(path("new.conf"), lastError().file);
    // A second name does not change the file of the store.
    ASSERT_EQ(0, zstzPropStore_6_0(file_, path("copy.conf").c_str()));
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, "s", "a=b", "v"));
    EXPECT_EQ(path("new.conf"), lastError().file);
    EXPECT_EQ(51, zstzPropLoadText_6_0(file_, "x", 1));
    EXPECT_STREQ("", lastError().file);
    EXPECT_EQ(1u, lastError().line);
    ZPROP_handle* handle = nullptr;
    EXPECT_EQ(55, zstzPropOpenAs_6_0(&handle, "f", 7, nullptr));
    EXPECT_STREQ("f", lastError().file);
    EXPECT_EQ(51, zstzPropOpen_6_0(&handle, "", zpropOpenRead));
    EXPECT_STREQ("The name of the file is empty.", lastError().text);
}

TEST_F(ZPropertiesCLastError, SuccessfulCallsLeaveTheLastFailure)
{
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, "s", "a=b", "v"));
    std::string const before = described();
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "s", "k", "v"));
    zstzPropFree_6_0(nullptr);
    EXPECT_EQ(before, described());
}

TEST_F(ZPropertiesCLastError, EachThreadHasItsOwnFailure)
{
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, "mine", "a=b", "v"));
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([this, i] {
            std::string const stanza = "stanza " + std::to_string(i);
            for (int round = 0; round < 200; ++round) {
                EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, stanza.c_str(), "a=b", "v"));
                EXPECT_EQ(stanza, lastError().stanza);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_STREQ("mine", lastError().stanza);
}

TEST_F(ZPropertiesCLastError, LongStringsAreComplete)
{
    std::string const stanza(3000, 's');
    std::string const key(4000, 'k');
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, stanza.c_str(), (key + "=").c_str(), "v"));
        EXPECT_EQ(stanza, lastError().stanza);
        EXPECT_EQ(key + "=", lastError().key);
    }
    // The strings of one failure may be arguments of the next call.
    ZPROPError const error = lastError();
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, error.stanza, error.key, "v"));
    EXPECT_EQ(stanza, lastError().stanza);
    EXPECT_EQ(key + "=", lastError().key);
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, "s", "a=b", "v"));
    ZPROPError const usual = lastError();
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, usual.key, usual.stanza, "v\n"));
    EXPECT_STREQ("a=b", lastError().stanza);
    EXPECT_STREQ("s", lastError().key);
}

// ---- The record ---------------------------------------------------------------------------------

TEST_F(ZPropertiesCLastError, ARecordOfAnotherSizeIsRefusedOrFilledAsFarAsKnown)
{
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, "s", "a=b", "v"));
    std::string const before = described();
    EXPECT_EQ(55, zstzPropGetLastError_6_0(nullptr));
    struct Longer {
        ZPROPError error;
        char rest[64];
    };
    Longer record;
    for (unsigned size : {0u, 1u, 4u, kSize - 1}) {
        SCOPED_TRACE(size);
        memset(&record, 'x', sizeof record);
        Longer expected = record;
        expected.error.size = record.error.size = size;
        EXPECT_EQ(55, zstzPropGetLastError_6_0(&record.error));
        EXPECT_EQ(0, memcmp(&expected, &record, sizeof record));
    }
    for (unsigned size : {kSize, kSize + 64, 0xFFFFFFFFu}) {
        SCOPED_TRACE(size);
        memset(&record, 'x', sizeof record);
        record.error.size = size;
        EXPECT_EQ(0, zstzPropGetLastError_6_0(&record.error));
        EXPECT_EQ(kSize, record.error.size);
        EXPECT_STREQ("a=b", record.error.key);
        EXPECT_EQ(std::string(sizeof record.rest, 'x'),
                  std::string(record.rest, sizeof record.rest));
    }
    EXPECT_EQ(before, described());
}

// ---- Without memory -----------------------------------------------------------------------------

TEST_F(ZPropertiesCLastError, ExhaustedMemoryIsTheFailureItself)
{
    std::string const name = path("service.conf");
    int failures = 0;
    for (unsigned long n = 1;; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        ZPROP_handle* handle = nullptr;
        FailingAllocator::failAt(n);
        int const code = zstzPropOpen_6_0(&handle, name.c_str(), zpropOpenRead);
        bool const failed = FailingAllocator::stop();
        zstzPropClose_6_0(handle);
        if (code != 0) {
            ++failures;
            EXPECT_EQ("51 1 12 0:0 " + name + "|||Memory allocation failure.", described());
        }
        if (!failed || HasFailure())
            break;
    }
    EXPECT_GT(failures, 5);
}

TEST_F(ZPropertiesCLastError, LongStringsAreCutIfMemoryIsExhausted)
{
    std::string const stanza(3000, 's');
    // An exception whose own strings need no memory: the record alone allocates.
    for (unsigned long n = 1;; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        FailingAllocator::failAt(n);
        int const code = zstzPropSetStringValue_6_0(file_, stanza.c_str(), "a=b", "v");
        bool const failed = FailingAllocator::stop();
        EXPECT_EQ(52, code);
        ZPROPError const error = lastError();
        EXPECT_EQ(52, error.code);
        EXPECT_STREQ("a=b", error.key);
        EXPECT_EQ(0u, stanza.find(error.stanza));
        EXPECT_GE(strlen(error.stanza), 95u);
        EXPECT_EQ(22u, error.messageNumber);
        if (!failed) {
            EXPECT_EQ(stanza, error.stanza);
            break;
        }
        if (HasFailure())
            break;
    }
}
