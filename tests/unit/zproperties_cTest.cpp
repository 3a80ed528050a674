#include <Z/ZException.h>
#include <Z/ZStanzaFileProperties.h>
#include <Z/zproperties_c.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "LockingProcess.h"
#include "PlainFunctionsFixture.h"

using ZPropertiesC = PlainFunctionsTest;

int main(int argc, char** argv)
{
    if (LockingProcess::isWanted(argc, argv))
        return LockingProcess::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

// ---- Opening, closing, storing ------------------------------------------------------------------

TEST_F(ZPropertiesC, OpenRefusesBadArgumentsAndTouchesNothing)
{
    int marker = 0;
    auto* const before = reinterpret_cast<ZPROP_handle*>(&marker);
    std::string const name = path("service.conf");
    struct Case {
        char const* name;
        char const* file;
        int mode;
    };
    Case const cases[] = {{"mode 0", name.c_str(), 0},   {"mode 3", name.c_str(), 3},
                          {"mode -1", name.c_str(), -1}, {"mode 1000", name.c_str(), 1000},
                          {"no file", nullptr, 1},       {"nothing", nullptr, 0}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZPROP_handle* handle = before;
        EXPECT_EQ(55, zstzPropOpen_6_0(&handle, c.file, c.mode));
        EXPECT_EQ(before, handle);
    }
    EXPECT_EQ(55, zstzPropOpen_6_0(nullptr, name.c_str(), 1));
}

TEST_F(ZPropertiesC, OpenReadsInBothModes)
{
    for (int mode : {zpropOpenRead, zpropOpenUpdate}) {
        SCOPED_TRACE(mode);
        ZPROP_handle* handle = nullptr;
        ASSERT_EQ(0, zstzPropOpen_6_0(&handle, path("service.conf").c_str(), mode));
        int code = kUntouched;
        EXPECT_EQ(2, zstzPropNumStanzas_6_0(handle, &code));
        EXPECT_EQ(0, code);
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(handle, "server", "port", "1"));
        zstzPropClose_6_0(handle);
    }
}

TEST_F(ZPropertiesC, OpenFailsIfTheFileCannotBeRead)
{
    write("bad.conf", "[a]\nno equals sign\n");
    write("companion.conf", "[configuration-database]\nfile = " + path("service.conf") + ".obf\n");
    struct Case {
        char const* name;
        std::string file;
    };
    Case const cases[] = {
        {"missing", path("none.conf")},     {"an empty name", ""},
        {"a directory", directory_.path()}, {"below a file", path("service.conf/none")},
        {"invalid data", path("bad.conf")}, {"a missing companion", path("companion.conf")}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        int marker = 0;
        auto* handle = reinterpret_cast<ZPROP_handle*>(&marker);
        EXPECT_EQ(51, zstzPropOpen_6_0(&handle, c.file.c_str(), zpropOpenRead));
        EXPECT_EQ(nullptr, handle);
    }
}

TEST_F(ZPropertiesC, StoreWritesTheFileThatWasOpened)
{
    for (char const* name : {static_cast<char const*>(nullptr), ""}) {
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", name ? "82" : "81"));
        EXPECT_EQ(0, zstzPropStore_6_0(file_, name));
        std::string expected = kText;
        expected.replace(expected.find("8080"), 4, name ? "82" : "81");
        EXPECT_EQ(expected, read("service.conf"));
    }
}

TEST_F(ZPropertiesC, StoreToAnotherFileKeepsTheText)
{
    EXPECT_EQ(kText, stored()) << "comments, blank lines and order are kept";
    EXPECT_EQ(kText, read("service.conf"));
}

TEST_F(ZPropertiesC, StoreFailsIfTheFileCannotBeWritten)
{
    EXPECT_EQ(51, zstzPropStore_6_0(file_, directory_.path().c_str()));
    EXPECT_EQ(51, zstzPropStore_6_0(file_, path("none/none").c_str()));
    EXPECT_EQ("8080", value("server", "port"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr)) << "the handle stays usable";
    EXPECT_EQ(kText, read("service.conf"));
}

TEST_F(ZPropertiesC, OpenAndStoreFailWhileAnotherProcessHoldsAConflictingLock)
{
    std::string const name = path("service.conf");
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "9"));
    ZPROP_handle* second = nullptr;
    {
        LockingProcess const reading(name, F_RDLCK);
        EXPECT_EQ(0, zstzPropOpen_6_0(&second, name.c_str(), zpropOpenRead));
        zstzPropClose_6_0(second);
        EXPECT_EQ(51, zstzPropStore_6_0(file_, nullptr));
        EXPECT_EQ(kText, read("service.conf"));
    }
    {
        LockingProcess const writing(name, F_WRLCK);
        EXPECT_EQ(51, zstzPropOpen_6_0(&second, name.c_str(), zpropOpenRead));
        EXPECT_EQ(nullptr, second);
        EXPECT_EQ(51, zstzPropStore_6_0(file_, nullptr));
        EXPECT_EQ(kText, read("service.conf"));
    }
    EXPECT_EQ("9", value("server", "port"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    EXPECT_NE(std::string::npos, read("service.conf").find("port = 9\n"));
}

// ---- Missing arguments --------------------------------------------------------------------------

TEST_F(ZPropertiesC, MissingArgumentsReturn55OrZero)
{
    ZPROP_iter_handle* iterator = nullptr;
    struct Case {
        char const* name;
        int code;
        int expected;
    };
    Case const cases[] = {
        {"SetStringValue, stanza", zstzPropSetStringValue_6_0(file_, nullptr, "k", "v"), 55},
        {"SetStringValue, key", zstzPropSetStringValue_6_0(file_, "s", nullptr, "v"), 55},
        {"SetBooleanValue, stanza", zstzPropSetBooleanValue_6_0(file_, nullptr, "k", 1), 55},
        {"SetBooleanValue, key", zstzPropSetBooleanValue_6_0(file_, "s", nullptr, 1), 55},
        {"SetIntegerValue, stanza", zstzPropSetIntegerValue_6_0(file_, nullptr, "k", 1), 55},
        {"SetIntegerValue, key", zstzPropSetIntegerValue_6_0(file_, "s", nullptr, 1), 55},
        {"RemoveKey, stanza", zstzPropRemoveKey_6_0(file_, nullptr, "k"), 55},
        {"RemoveKey, key", zstzPropRemoveKey_6_0(file_, "s", nullptr), 55},
        {"RemoveStanza", zstzPropRemoveStanza_6_0(file_, nullptr), 55},
        {"AddLineComment, stanza", zstzPropAddLineComment_6_0(file_, nullptr, "k", "c"), 55},
        {"AddLineComment, key", zstzPropAddLineComment_6_0(file_, "s", nullptr, "c"), 55},
        {"AddLineComment, comment", zstzPropAddLineComment_6_0(file_, "s", "k", nullptr), 55},
        {"AddStanzaComment, stanza", zstzPropAddStanzaComment_6_0(file_, nullptr, "c"), 55},
        {"AddStanzaComment, comment", zstzPropAddStanzaComment_6_0(file_, "s", nullptr), 55},
        {"AddFileComment", zstzPropAddFileComment_6_0(file_, nullptr), 55},
        {"GetValues", zstzPropGetValues_6_0(file_, nullptr, 1), 55},
        {"GetValues, negative", zstzPropGetValues_6_0(file_, nullptr, -1), 55},
        {"GetValues of none", zstzPropGetValues_6_0(file_, nullptr, 0), 0},
        {"Iter_init, stanza", zstzPropIter_init_6_0(file_, nullptr, "k", &iterator), 55},
        {"Iter_init, out", zstzPropIter_init_6_0(file_, "s", "k", nullptr), 55},
        // Without a pointer to the code, or without a name, no code is stored.
        {"GetBooleanValue, stanza", zstzPropGetBooleanValue_6_0(file_, nullptr, "k", 1, nullptr),
         55},
        {"GetBooleanValue, code", zstzPropGetBooleanValue_6_0(file_, "s", "k", 1, nullptr), 55},
        {"GetIntegerValue, code",
         static_cast<int>(zstzPropGetIntegerValue_6_0(file_, "s", "k", 1, nullptr)), 55},
        {"Exists, code", zstzPropExists_6_0(file_, "server", "port", nullptr), 0},
        {"NumStanzas, code", zstzPropNumStanzas_6_0(file_, nullptr), 0},
        {"NumKeys, code", zstzPropNumKeys_6_0(file_, "server", nullptr), 0},
        {"NumValues, code", zstzPropNumValues_6_0(file_, "server", "host", nullptr), 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, c.code);
    }
    EXPECT_EQ(nullptr, iterator);
    EXPECT_EQ(nullptr, zstzPropGetStringValue_6_0(file_, "server", "port", 1, nullptr));

    int code = kUntouched;
    EXPECT_EQ(nullptr, zstzPropGetStringValue_6_0(file_, nullptr, "k", 1, &code));
    EXPECT_EQ(nullptr, zstzPropGetStringValue_6_0(file_, "s", nullptr, 1, &code));
    EXPECT_EQ(55, zstzPropGetBooleanValue_6_0(file_, nullptr, "k", 1, &code));
    EXPECT_EQ(55, zstzPropGetBooleanValue_6_0(file_, "s", nullptr, 1, &code));
    EXPECT_EQ(55u, zstzPropGetIntegerValue_6_0(file_, nullptr, "k", 1, &code));
    EXPECT_EQ(55u, zstzPropGetIntegerValue_6_0(file_, "s", nullptr, 1, &code));
    EXPECT_EQ(0, zstzPropExists_6_0(file_, nullptr, "k", &code));
    EXPECT_EQ(0, zstzPropNumKeys_6_0(file_, nullptr, &code));
    EXPECT_EQ(0, zstzPropNumValues_6_0(file_, nullptr, "k", &code));
    EXPECT_EQ(0, zstzPropNumValues_6_0(file_, "s", nullptr, &code));
    EXPECT_EQ(kUntouched, code) << "no code was stored";
    EXPECT_EQ(kText, stored());

    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", nullptr, &iterator));
    EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, nullptr));
    EXPECT_EQ(nullptr, zstzPropIter_getKey_6_0(iterator, nullptr));
    EXPECT_EQ(nullptr, zstzPropIter_getValue_6_0(iterator, nullptr));
    EXPECT_EQ(0, zstzPropIter_numKeys_6_0(iterator, nullptr));
    EXPECT_EQ(0, zstzPropIter_numValues_6_0(iterator, nullptr));
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
}

TEST_F(ZPropertiesC, EmptyNamesAreRefused)
{
    struct Case {
        char const* name;
        int code;
        int expected;
    };
    Case const changes[] = {
        {"SetStringValue, stanza", zstzPropSetStringValue_6_0(file_, "", "k", "v"), 52},
        {"SetStringValue, key", zstzPropSetStringValue_6_0(file_, "s", "", "v"), 52},
        {"SetBooleanValue, stanza", zstzPropSetBooleanValue_6_0(file_, "", "k", 1), 52},
        {"SetBooleanValue, key", zstzPropSetBooleanValue_6_0(file_, "s", "", 1), 52},
        {"SetIntegerValue, stanza", zstzPropSetIntegerValue_6_0(file_, "", "k", 1), 52},
        {"SetIntegerValue, key", zstzPropSetIntegerValue_6_0(file_, "s", "", 1), 52},
        {"RemoveKey, stanza", zstzPropRemoveKey_6_0(file_, "", "k"), 52},
        {"RemoveKey, key", zstzPropRemoveKey_6_0(file_, "s", ""), 52},
        {"RemoveStanza", zstzPropRemoveStanza_6_0(file_, ""), 52},
        {"AddLineComment, stanza", zstzPropAddLineComment_6_0(file_, "", "k", "c"), 52},
        {"AddLineComment, key", zstzPropAddLineComment_6_0(file_, "s", "", "c"), 52},
        {"AddStanzaComment", zstzPropAddStanzaComment_6_0(file_, "", "c"), 52},
    };
    for (Case const& c : changes) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, c.code);
    }
    EXPECT_EQ(kText, stored());

    EXPECT_EQ("code 55", value("", "k"));
    EXPECT_EQ("code 55", value("s", ""));
    int code = kUntouched;
    EXPECT_EQ(0, zstzPropGetBooleanValue_6_0(file_, "", "k", kRequired, &code));
    EXPECT_EQ(55, code);
    EXPECT_EQ(0u, zstzPropGetIntegerValue_6_0(file_, "s", "", kDefault, &(code = kUntouched)));
    EXPECT_EQ(55, code);
    EXPECT_EQ(0, zstzPropExists_6_0(file_, "", nullptr, &(code = kUntouched)));
    EXPECT_EQ(55, code);
    EXPECT_EQ(0, zstzPropExists_6_0(file_, "s", "", &(code = kUntouched)));
    EXPECT_EQ(55, code);
    EXPECT_EQ(0, zstzPropNumKeys_6_0(file_, "", &(code = kUntouched)));
    EXPECT_EQ(55, code);
    EXPECT_EQ(0, zstzPropNumValues_6_0(file_, "s", "", &(code = kUntouched)));
    EXPECT_EQ(55, code);

    ZPROP_iter_handle* iterator = reinterpret_cast<ZPROP_iter_handle*>(this);
    EXPECT_EQ(55, zstzPropIter_init_6_0(file_, "", nullptr, &iterator));
    EXPECT_EQ(nullptr, iterator);
    // A key with an empty name has no values.
    struct Names {
        char const* stanza;
        char const* key;
    };
    for (Names const& names : {Names{"", "k"}, Names{"server", ""}, Names{"", ""}}) {
        ASSERT_EQ(0, zstzPropIter_init_6_0(file_, names.stanza, names.key, &iterator));
        EXPECT_EQ(0, zstzPropIter_next_6_0(iterator, &(code = kUntouched)));
        EXPECT_EQ(0, code);
        EXPECT_EQ(52, zstzPropIter_addValue_6_0(iterator, "v"));
        EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    }
    EXPECT_EQ(kText, stored());
}

// ---- Reading ------------------------------------------------------------------------------------

TEST_F(ZPropertiesC, ReturnsTheLastValueAsAString)
{
    struct Case {
        char const* name;
        char const* stanza;
        char const* key;
        int flag;
        char const* expected;
    };
    Case const cases[] = {{"one value", "server", "port", kRequired, "8080"},
                          {"the last of three", "server", "host", kRequired, "gamma"},
                          {"empty, required", "server", "empty", kRequired, "(null)"},
                          {"empty, default", "server", "empty", kDefault, "(null)"},
                          {"missing key, required", "server", "none", kRequired, "code 54"},
                          {"missing key, flag 2", "server", "none", 2, "code 54"},
                          {"missing key, flag -1", "server", "none", -1, "code 54"},
                          {"missing key, default", "server", "none", kDefault, "(null)"},
                          {"missing stanza, required", "none", "port", kRequired, "code 54"},
                          {"missing stanza, default", "none", "port", kDefault, "(null)"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, value(c.stanza, c.key, c.flag));
    }
}

TEST_F(ZPropertiesC, ReturnsNumbersInEveryNotation)
{
    struct Case {
        char const* text;
        unsigned int number;
        int code;
    };
    Case const cases[] = {{"0", 0, 0},
                          {"15", 15, 0},
                          {"017", 15, 0},
                          {"0x1F", 31, 0},
                          {"0X1f", 31, 0},
                          {"4294967295", 4294967295u, 0},
                          {"0xFFFFFFFF", 4294967295u, 0},
                          {"037777777777", 4294967295u, 0},
                          {"4294967296", 4294967295u, 0},
                          {"99999999999999999999999", 4294967295u, 0},
                          {"+7", 7, 0},
                          {"-1", 4294967295u, 0},
                          {"12abc", 0, 53},
                          {"1 2", 0, 53},
                          {"0x", 0, 53},
                          {"08", 0, 53},
                          {"abc", 0, 53},
                          {"1.5", 0, 53},
                          {"-", 0, 53}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        reopened(std::string("[s]\nk = ") + c.text + "\n");
        for (int flag : {kRequired, kDefault}) {
            int code = kUntouched;
            EXPECT_EQ(c.number, zstzPropGetIntegerValue_6_0(file_, "s", "k", flag, &code));
            EXPECT_EQ(c.code, code);
        }
    }
    int code = kUntouched;
    EXPECT_EQ(0u, zstzPropGetIntegerValue_6_0(file_, "s", "none", kRequired, &code));
    EXPECT_EQ(54, code);
    EXPECT_EQ(0u, zstzPropGetIntegerValue_6_0(file_, "s", "none", kDefault, &code));
    EXPECT_EQ(0, code);
}

TEST_F(ZPropertiesC, ReturnsBooleansForEveryWord)
{
    struct Case {
        char const* text;
        int truth;
        int code;
    };
    Case const cases[] = {{"yes", 1, 0},    {"y", 1, 0},   {"true", 1, 0},  {"t", 1, 0},
                          {"1", 1, 0},      {"YES", 1, 0}, {"True", 1, 0},  {"T", 1, 0},
                          {"no", 0, 0},     {"n", 0, 0},   {"false", 0, 0}, {"f", 0, 0},
                          {"0", 0, 0},      {"NO", 0, 0},  {"False", 0, 0}, {"F", 0, 0},
                          {"maybe", 0, 53}, {"2", 0, 53},  {"yess", 0, 53}, {"ye", 0, 53},
                          {"on", 0, 53}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text);
        reopened(std::string("[s]\nk = ") + c.text + "\n");
        for (int flag : {kRequired, kDefault}) {
            int code = kUntouched;
            EXPECT_EQ(c.truth, zstzPropGetBooleanValue_6_0(file_, "s", "k", flag, &code));
            EXPECT_EQ(c.code, code);
        }
    }
    int code = kUntouched;
    EXPECT_EQ(0, zstzPropGetBooleanValue_6_0(file_, "s", "none", kRequired, &code));
    EXPECT_EQ(54, code);
    EXPECT_EQ(0, zstzPropGetBooleanValue_6_0(file_, "s", "none", kDefault, &code));
    EXPECT_EQ(0, code);
}

TEST_F(ZPropertiesC, CountsAndFindsStanzasKeysAndValues)
{
    struct Case {
        char const* name;
        int result;
        int expected;
    };
    int code = kUntouched;
    int worst = 0;
    auto const noted = [&](int result) {
        worst = std::max(worst, code);
        return result;
    };
    Case const cases[] = {
        {"stanzas", noted(zstzPropNumStanzas_6_0(file_, &code)), 2},
        {"keys", noted(zstzPropNumKeys_6_0(file_, "server", &code)), 4},
        {"keys of no stanza", noted(zstzPropNumKeys_6_0(file_, "none", &code)), 0},
        {"one value", noted(zstzPropNumValues_6_0(file_, "server", "port", &code)), 1},
        {"three values", noted(zstzPropNumValues_6_0(file_, "server", "host", &code)), 3},
        {"no value", noted(zstzPropNumValues_6_0(file_, "server", "empty", &code)), 0},
        {"values of no key", noted(zstzPropNumValues_6_0(file_, "server", "none", &code)), 0},
        {"a stanza", noted(zstzPropExists_6_0(file_, "server", nullptr, &code)), 1},
        {"no stanza", noted(zstzPropExists_6_0(file_, "none", nullptr, &code)), 0},
        {"a key", noted(zstzPropExists_6_0(file_, "server", "port", &code)), 1},
        {"a key without a value", noted(zstzPropExists_6_0(file_, "server", "empty", &code)), 1},
        {"no key", noted(zstzPropExists_6_0(file_, "server", "none", &code)), 0},
        {"a key of another stanza", noted(zstzPropExists_6_0(file_, "client", "port", &code)), 0}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.expected, c.result);
    }
    EXPECT_EQ(0, worst);
}

TEST_F(ZPropertiesC, ReadsObfuscatedValuesLikePlainValues)
{
    std::string const name = path("secret.conf");
    {
        ZStanzaFileProperties_6_0 store(1);
        store.addValue("login", "password", "open sesame", 1);
        store.addValue("login", "password", "second", 1);
        store.setValue("login", "user", "ali");
        store.store(name.c_str());
    }
    EXPECT_EQ(std::string::npos, read("secret.conf").find("sesame"));
    zstzPropClose_6_0(file_);
    ASSERT_EQ(0, zstzPropOpen_6_0(&file_, name.c_str(), zpropOpenUpdate));
    EXPECT_EQ("second", value("login", "password"));
    EXPECT_EQ("open sesame second ", values("login", "password"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    EXPECT_EQ(std::string::npos, read("secret.conf").find("sesame"));
    zstzPropClose_6_0(file_);
    ASSERT_EQ(0, zstzPropOpen_6_0(&file_, name.c_str(), zpropOpenUpdate));
    EXPECT_EQ("open sesame second ", values("login", "password"));
}

// ---- Changing -----------------------------------------------------------------------------------

TEST_F(ZPropertiesC, SetsValuesOfEveryType)
{
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "host", "delta"));
    EXPECT_EQ(0, zstzPropSetBooleanValue_6_0(file_, "server", "debug", 0));
    EXPECT_EQ(0, zstzPropSetIntegerValue_6_0(file_, "server", "port", 4294967295u));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "client", "retries", nullptr));
    EXPECT_EQ(0, zstzPropSetBooleanValue_6_0(file_, "client", "new", -3));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "added", "key", "two words = one value"));
    EXPECT_EQ("delta ", values("server", "host"));
    EXPECT_EQ("(null)", value("client", "retries"));
    EXPECT_EQ(
        "# how the service is reached\n"
        "\n"
        "[server]\n"
        "# where it listens\n"
        "port = 4294967295\n"
        "host = delta\n"
        "empty =\n"
        "debug = no\n"
        "\n"
        "[client]\n"
        "retries =\n"
        "new = yes\n"
        "\n"
        "[added]\n"
        "key = two words = one value\n",
        stored());
    EXPECT_EQ(kText, read("service.conf"));
}

TEST_F(ZPropertiesC, RefusesStringsThatAFileCannotRepresent)
{
    std::string const longValue(8200, 'x');
    struct Case {
        char const* name;
        char const* stanza;
        char const* key;
        char const* value;
    };
    Case const cases[] = {{"a bracket in a stanza", "a]b", "k", "v"},
                          {"a newline in a stanza", "a\nb", "k", "v"},
                          {"an equals sign in a key", "s", "a=b", "v"},
                          {"a key like a comment", "s", "#k", "v"},
                          {"a key like a stanza", "s", "[k", "v"},
                          {"a key that starts with a space", "s", " k", "v"},
                          {"a key that ends with a space", "s", "k ", "v"},
                          {"a newline in a key", "s", "a\nb", "v"},
                          {"a newline in a value", "s", "k", "v\n[x]"},
                          {"a value too long for a line", "s", "k", longValue.c_str()}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, c.stanza, c.key, c.value));
    }
    EXPECT_EQ(kText, stored());

    ZPROP_iter_handle* iterator = nullptr;
    ASSERT_EQ(0, zstzPropIter_init_6_0(file_, "server", "host", &iterator));
    int code = kUntouched;
    ASSERT_EQ(1, zstzPropIter_next_6_0(iterator, &code));
    EXPECT_EQ(52, zstzPropIter_chgValue_6_0(iterator, "a\nb"));
    EXPECT_EQ(52, zstzPropIter_addValue_6_0(iterator, longValue.c_str()));
    EXPECT_EQ("alpha", textOf(Text(zstzPropIter_getValue_6_0(iterator, &code))));
    EXPECT_EQ(0, zstzPropIter_close_6_0(iterator));
    EXPECT_EQ(kText, stored());
}

TEST_F(ZPropertiesC, RemovesKeysAndStanzas)
{
    EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, "server", "host"));
    EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, "server", "none"));
    EXPECT_EQ(0, zstzPropRemoveKey_6_0(file_, "none", "none"));
    EXPECT_EQ("code 54", value("server", "host"));
    EXPECT_EQ(
        "# how the service is reached\n"
        "\n"
        "[server]\n"
        "# where it listens\n"
        "port = 8080\n"
        "empty =\n"
        "debug = yes\n"
        "\n"
        "[client]\n"
        "retries = 3\n",
        stored());
    EXPECT_EQ(0, zstzPropRemoveStanza_6_0(file_, "server"));
    EXPECT_EQ(0, zstzPropRemoveStanza_6_0(file_, "none"));
    int code = kUntouched;
    EXPECT_EQ(1, zstzPropNumStanzas_6_0(file_, &code));
    EXPECT_EQ(
        "# how the service is reached\n"
        "\n"
        "[client]\n"
        "retries = 3\n",
        stored());
}

TEST_F(ZPropertiesC, AddsComments)
{
    EXPECT_EQ(0, zstzPropAddLineComment_6_0(file_, "server", "debug", "more output"));
    EXPECT_EQ(0, zstzPropAddStanzaComment_6_0(file_, "client", "#the callers"));
    EXPECT_EQ(0, zstzPropAddFileComment_6_0(file_, "edited by hand"));
    EXPECT_EQ(0, zstzPropAddStanzaComment_6_0(file_, "none", "nothing to comment"));
    EXPECT_EQ(
        "# how the service is reached\n"
        "#edited by hand\n"
        "\n"
        "[server]\n"
        "# where it listens\n"
        "port = 8080\n"
        "host = alpha\n"
        "host = beta\n"
        "host = gamma\n"
        "empty =\n"
        "\n"
        "#more output\n"
        "debug = yes\n"
        "\n"
        "#the callers\n"
        "[client]\n"
        "retries = 3\n",
        stored());
}

// ---- Lists of values ----------------------------------------------------------------------------

TEST_F(ZPropertiesC, ReadsAListOfValues)
{
    int truth = kUntouched;
    unsigned int number = kUntouched;
    char* text = nullptr;
    char* none = nullptr;
    char** list = nullptr;
    char** noList = nullptr;
    int missing = kUntouched;
    ZPROPValue records[] = {{zpropBoolean, "server", "debug", kRequired, &truth},
                            {zpropInteger, "server", "port", kRequired, &number},
                            {zpropString, "server", "host", kRequired, &text},
                            {zpropString, "server", "empty", kRequired, &none},
                            {zpropStringList, "server", "host", kRequired, &list},
                            {zpropStringList, "server", "none", kRequired, &noList},
                            {zpropBoolean, "server", "none", kDefault, &missing}};
    constexpr int kCount = 7;
    ASSERT_EQ(0, zstzPropGetValues_6_0(file_, records, kCount));
    EXPECT_EQ(1, truth);
    EXPECT_EQ(8080u, number);
    EXPECT_STREQ("gamma", text);
    EXPECT_EQ(nullptr, none);
    ASSERT_NE(nullptr, list);
    EXPECT_STREQ("alpha", list[0]);
    EXPECT_STREQ("beta", list[1]);
    EXPECT_STREQ("gamma", list[2]);
    EXPECT_EQ(nullptr, list[3]);
    ASSERT_NE(nullptr, noList);
    EXPECT_EQ(nullptr, noList[0]);
    EXPECT_EQ(0, missing);

    zstzPropFreeValuesList_6_0(file_, nullptr, kCount);
    zstzPropFreeValuesList_6_0(file_, records, 0);
    zstzPropFreeValuesList_6_0(file_, records, -1);
    EXPECT_STREQ("gamma", text);
    for (int round = 0; round < 2; ++round) {
        zstzPropFreeValuesList_6_0(file_, records, kCount);
        EXPECT_EQ(nullptr, text);
        EXPECT_EQ(nullptr, list);
        EXPECT_EQ(nullptr, noList);
        EXPECT_EQ(1, truth);
        EXPECT_EQ(8080u, number);
    }
}

TEST_F(ZPropertiesC, AListEndsAtItsFirstFailure)
{
    reopened("[s]\nword = abc\nnumber = 5\nname = x\n");
    struct Case {
        char const* name;
        ZPROPValueType type;
        char const* stanza;
        char const* key;
        int flag;
        bool hasResult;
        int code;
    };
    Case const cases[] = {{"missing number", zpropInteger, "s", "none", kRequired, true, 54},
                          {"missing, flag 2", zpropInteger, "s", "none", 2, true, 54},
                          {"missing text", zpropString, "none", "name", kRequired, true, 54},
                          {"not a number", zpropInteger, "s", "word", kDefault, true, 53},
                          {"not a boolean", zpropBoolean, "s", "number", kDefault, true, 53},
                          {"no stanza", zpropBoolean, nullptr, "name", kDefault, true, 55},
                          {"no key", zpropStringList, "s", nullptr, kDefault, true, 55},
                          {"an empty key", zpropString, "s", "", kDefault, true, 55},
                          {"no result", zpropString, "s", "name", kDefault, false, 55}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        char* before = nullptr;
        union {
            void* pointer;
            unsigned int number;
        } failed = {nullptr};
        // The results after the failed record contain garbage before the call.
        int garbage = 0;
        auto* after = reinterpret_cast<char*>(&garbage);
        auto** list = reinterpret_cast<char**>(&garbage);
        unsigned int number = kUntouched;
        ZPROPValue records[] = {{zpropString, "s", "name", kRequired, &before},
                                {c.type, c.stanza, c.key, c.flag, c.hasResult ? &failed : nullptr},
                                {zpropString, "s", "name", kRequired, &after},
                                {zpropStringList, "s", "name", kRequired, &list},
                                {zpropInteger, "s", "number", kRequired, &number}};
        EXPECT_EQ(c.code, zstzPropGetValues_6_0(file_, records, 5));
        EXPECT_STREQ("x", before);
        EXPECT_EQ(nullptr, after);
        EXPECT_EQ(nullptr, list);
        EXPECT_EQ(unsigned{kUntouched}, number);
        zstzPropFreeValuesList_6_0(file_, records, 5);
        EXPECT_EQ(nullptr, before);
    }
}

TEST_F(ZPropertiesC, KeepsOneExceptionOfItsOwn)
{
    for (int type : {0, 5, -1, 1000}) {
        SCOPED_TRACE(type);
        char* before = nullptr;
        int garbage = 0;
        auto* after = reinterpret_cast<char*>(&garbage);
        ZPROPValue records[] = {{zpropString, "server", "port", kRequired, &before},
                                {type, "server", "port", kRequired, &garbage},
                                {zpropString, "server", "port", kRequired, &after}};
        try {
            zstzPropGetValues_6_0(file_, records, 3);
            FAIL() << "nothing was thrown";
        } catch (ZInvalidParameterException_6_0 const& failure) {
            EXPECT_EQ(22u, failure.messageNumber());
            EXPECT_STREQ("src/Z/zproperties_c", failure.who());
            EXPECT_EQ(431u, failure.where());
        }
        EXPECT_STREQ("8080", before);
        EXPECT_EQ(nullptr, after);
        zstzPropFreeValuesList_6_0(file_, records, 3);
        EXPECT_EQ(nullptr, before);
    }
    EXPECT_EQ("8080", value("server", "port"));
}
