// The plain functions with files in other dialects than "stanza".
#include <Z/ZStanzaDialect.h>
#include <Z/zproperties_c.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "FailingCalls.h"
#include "PlainFunctionsFixture.h"

namespace {

constexpr char kUnit[] =
    "# a unit\n[Unit]\nDescription = A service\n\n[Service]\nExecStart=/bin/a\n"
    "ExecStart=/bin/b \\\n  --option\n; last\n";

class ZPropertiesCDialectFiles : public PlainFunctionsTest {
protected:
    // Replaces the open file by a new one. Returns the code.
    int open(char const* name, std::string const& text, char const* dialect = nullptr)
    {
        zstzPropClose_6_0(file_);
        write(name, text);
        return zstzPropOpenAs_6_0(&file_, path(name).c_str(), zpropOpenUpdate, dialect);
    }
    std::string text()
    {
        int code = kUntouched;
        Text const text(zstzPropStoreText_6_0(file_, nullptr, &code));
        EXPECT_EQ(0, code);
        return text == nullptr ? "" : text.get();
    }
    std::string raw(char const* stanza, char const* key, int index)
    {
        int code = kUntouched;
        Text const spelling(zstzPropGetRawValue_6_0(file_, stanza, key, index, &code));
        return code == 0 ? textOf(spelling) : "code " + std::to_string(code);
    }
    std::string dialect()
    {
        int code = kUntouched;
        Text const name(zstzPropGetDialect_6_0(file_, &code));
        EXPECT_EQ(0, code);
        return textOf(name);
    }
};

std::string lastText()
{
    ZPROPError error = {};
    error.size = sizeof error;
    EXPECT_EQ(0, zstzPropGetLastError_6_0(&error));
    return error.text;
}

}  // namespace

TEST_F(ZPropertiesCDialectFiles, ANameOfAFileImpliesItsDialect)
{
    struct Case {
        char const* name;
        char const* dialect;
        char const* text;
    };
    Case const cases[] = {{"a.service", "systemd", "[Unit]\n"},
                          {"b.service", "desktop", "[D-BUS Service]\nName=a.b\n"},
                          {"a.desktop", "desktop", "[Desktop Entry]\n"},
                          {".gitconfig", "git", "[a \"b\"]\n"},
                          {"setup.cfg", "python", "[a]\nk: v\n"},
                          {"a.conf", "stanza", "[a]\n"}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(0, open(c.name, c.text)) << lastText();
        EXPECT_EQ(c.dialect, dialect());
        EXPECT_EQ(c.text, text());
    }
}

TEST_F(ZPropertiesCDialectFiles, EveryDialectOpensCreatesAndFindsProblems)
{
    int count = 0;
    for (; ZStanzaDialect_6_0::nameAt(count) != nullptr; ++count) {
        char const* const name = ZStanzaDialect_6_0::nameAt(count);
        SCOPED_TRACE(name);
        bool const hasHeads = std::string(name) != "sysctl" && std::string(name) != "env";
        std::string const contents = hasHeads ? "[s]\nk=v\n" : "k=v\n";
        char const* const stanza = hasHeads ? "s" : ".";
        ASSERT_EQ(0, open("file", contents, name)) << lastText();
        EXPECT_EQ(name, dialect());
        EXPECT_EQ("v", value(stanza, "k"));
        EXPECT_EQ("v", raw(stanza, "k", 0));
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, stanza, "k", "w"));
        EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
        std::string const stored = read("file");
        EXPECT_NE(std::string::npos, stored.find("w")) << stored;
        if (std::string(name) != "stanza") {
            EXPECT_EQ(hasHeads ? "[s]\nk=w\n" : "k=w\n", stored);
        }
        auto const stop = [](ZPROPProblem const*, void*) { return 1; };
        EXPECT_EQ(0, zstzPropFindProblems_6_0(path("file").c_str(), name, stop, nullptr));
        zstzPropClose_6_0(file_);
        ASSERT_EQ(0, zstzPropNew_6_0(&file_, name));
        EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, stanza, "k", "x"));
        EXPECT_EQ("x", value(stanza, "k"));
        EXPECT_EQ(0, zstzPropLoadText_6_0(file_, contents.data(), contents.size()));
        EXPECT_EQ("v", value(stanza, "k"));
    }
    EXPECT_GT(count, 10);
}

TEST_F(ZPropertiesCDialectFiles, OnlyTheLinesOfChangedValuesChange)
{
    ASSERT_EQ(0, open("a.service", kUnit));
    EXPECT_EQ("A service", value("Unit", "Description"));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "Unit", "Description", "Another"));
    EXPECT_EQ(0, zstzPropAddStringValue_6_0(file_, "Service", "ExecStart", "/bin/a"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    std::string expected = kUnit;
    expected.replace(expected.find("A service"), 9, "Another");
    expected.insert(expected.find("; last"), "ExecStart=/bin/a\n");
    EXPECT_EQ(expected, read("a.service"));
}

TEST_F(ZPropertiesCDialectFiles, AnEmptyValueIsAValue)
{
    ASSERT_EQ(0, open("a.service", kUnit));
    int code = kUntouched;
    EXPECT_EQ(0, zstzPropAddStringValue_6_0(file_, "Service", "ExecStart", ""));
    EXPECT_EQ(3, zstzPropNumValues_6_0(file_, "Service", "ExecStart", &code));
    EXPECT_EQ(0, zstzPropAddStringValue_6_0(file_, "Service", "ExecStart", ""));
    EXPECT_EQ(4, zstzPropNumValues_6_0(file_, "Service", "ExecStart", &code));
    EXPECT_EQ(9ul, zstzPropGetLine_6_0(file_, "Service", "ExecStart", 2, &code));
    EXPECT_EQ(0, code);
    EXPECT_EQ("(null)", raw("Service", "ExecStart", 2));
    EXPECT_EQ("/bin/a", raw("Service", "ExecStart", 0));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "Unit", "Description", ""));
    EXPECT_EQ(1, zstzPropNumValues_6_0(file_, "Unit", "Description", &code));
}

TEST_F(ZPropertiesCDialectFiles, ASpellingHasTheBytesOfTheLine)
{
    ASSERT_EQ(0, open(".gitconfig", "[a]\n\tk = \"v;w\"  ; note\n\tl = x\n"));
    EXPECT_EQ("v;w", value("a", "k"));
    EXPECT_EQ("\"v;w\"", raw("a", "k", 0));
    EXPECT_EQ(0, zstzPropSetRawValue_6_0(file_, "a", "k", 0, "\"y;z\"")) << lastText();
    EXPECT_EQ("y;z", value("a", "k"));
    // A comment mark outside of quotes, an open quote, an unknown escape.
    for (char const* spelling : {"y ; z", "\"y", "y\\q", "y\nz"}) {
        SCOPED_TRACE(spelling);
        EXPECT_EQ(52, zstzPropSetRawValue_6_0(file_, "a", "k", 0, spelling));
    }
    EXPECT_EQ("y;z", value("a", "k"));
    EXPECT_EQ("[a]\n\tk = \"y;z\"  ; note\n\tl = x\n", text());
    // The spelling stays, although another is shorter, or the value is the same.
    EXPECT_EQ(0, zstzPropSetRawValue_6_0(file_, "a", "l", 0, "\"x\""));
    EXPECT_EQ("x", value("a", "l"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    EXPECT_EQ("[a]\n\tk = \"y;z\"  ; note\n\tl = \"x\"\n", read(".gitconfig"));
}

TEST_F(ZPropertiesCDialectFiles, AStoreKeepsTheValueOfASpellingAndChangesOfAnotherProgram)
{
    ASSERT_EQ(0, open(".gitconfig", "[a]\n\tk = 1\n\tl = x\n"));
    ASSERT_EQ(0, zstzPropSetStringValue_6_0(file_, "a", "l", "y"));
    ASSERT_EQ(0, zstzPropSetRawValue_6_0(file_, "a", "k", 0, "\"v;w\""));
    write(".gitconfig", "[b]\n\tm = 2\n[a]\n\tk = 1\n\tl = x\n\tn = 3\n");
    ASSERT_EQ(0, zstzPropStore_6_0(file_, nullptr)) << lastText();
    EXPECT_EQ("[b]\n\tm = 2\n[a]\n\tk = \"v;w\"\n\tl = y\n\tn = 3\n", read(".gitconfig"));
    ASSERT_EQ(0, zstzPropSetRawValue_6_0(file_, "a", "k", 0, "z"));
    write(".gitconfig", "[a]\n\tk = 4\n\tl = y\n");
    EXPECT_EQ(51, zstzPropStore_6_0(file_, nullptr));
    EXPECT_EQ("[a]\n\tk = 4\n\tl = y\n", read(".gitconfig"));
}

TEST_F(ZPropertiesCDialectFiles, RefusalsHaveReasons)
{
    ASSERT_EQ(0, open("a.network", "[Peer]\nk=1\n[Peer]\nk=2\n"));
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, "Peer", "k", "3"));
    EXPECT_EQ("Several stanzas have the name; add the number of one of them, as in NAME]2.",
              lastText());
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "Peer]2", "k", "3"));
    EXPECT_EQ("[Peer]\nk=1\n[Peer]\nk=3\n", text());
    EXPECT_EQ(52, zstzPropSetObfuscatedValue_6_0(file_, "Peer]2", "s", "3"));
    EXPECT_EQ("Only stanza files have obfuscated values.", lastText());
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, "Peer]2", "a=b", "3"));
    EXPECT_EQ("No line of the dialect can hold the key.", lastText());
    EXPECT_EQ(52, zstzPropSetStringValue_6_0(file_, "Peer]2", "k", "a\nb"));
    EXPECT_EQ("No line of the dialect can hold the value.", lastText());
}

TEST_F(ZPropertiesCDialectFiles, ARefusedStanzaFileNamesADialectThatReadsIt)
{
    ASSERT_EQ(51, open("a.conf", "[a]\nk: v\n  more\n"));
    EXPECT_NE(std::string::npos, lastText().find("; reads as python, open it with that dialect"))
        << lastText();
    ASSERT_EQ(0, open("a.conf", "[a]\nk: v\n  more\n", "python"));
    constexpr char kNoHeader[] = "k: v\n";
    EXPECT_EQ(51, zstzPropLoadText_6_0(file_, kNoHeader, sizeof kNoHeader - 1));
    std::string const failure = lastText();
    EXPECT_EQ(2, std::count(failure.begin(), failure.end(), '\n')) << failure;
    EXPECT_EQ("v\nmore", value("a", "k"));
}

TEST_F(ZPropertiesCDialectFiles, TextsOfADialectAreMerged)
{
    std::string const base = "[a]\n  k: 1\nl: 2\n";
    std::string const ours = "[a]\n  k: 3\nl: 2\n";
    std::string const theirs = "[a]\n  k: 1\nl: 4\n";
    char* merged = nullptr;
    size_t length = 0;
    int conflicts = kUntouched;
    ASSERT_EQ(
        0, zstzPropMergeText_6_0(base.data(), base.size(), ours.data(), ours.size(), theirs.data(),
                                 theirs.size(), "python", &merged, &length, &conflicts))
        << lastText();
    Text const text(merged);
    EXPECT_EQ("[a]\n  k: 3\nl: 4\n", textOf(text));
    EXPECT_EQ(0, conflicts);
}

TEST_F(ZPropertiesCDialectFiles, EachFunctionFailsWithoutAChangeIfAnAllocationFails)
{
    ASSERT_EQ(0, open("a.service", kUnit));
    std::string const longValue(300, 'v');
    std::string const file = path("a.service");
    int code = kUntouched;
    std::vector<PlainCall> const calls = {
        {"OpenAs",
         [&] {
             ZPROP_handle* handle = nullptr;
             int const rc = zstzPropOpenAs_6_0(&handle, file.c_str(), zpropOpenRead, nullptr);
             EXPECT_EQ(rc == 0, handle != nullptr);
             zstzPropClose_6_0(handle);
             return rc;
         }},
        {"New",
         [] {
             ZPROP_handle* handle = nullptr;
             int const rc = zstzPropNew_6_0(&handle, "git");
             zstzPropClose_6_0(handle);
             return rc;
         }},
        {"GetDialect",
         [&] {
             Text const name(zstzPropGetDialect_6_0(file_, &code));
             return code;
         }},
        {"SetStringValue",
         [&] {
             return zstzPropSetStringValue_6_0(file_, "Unit", "Description", longValue.c_str());
         }},
        {"AddStringValue",
         [&] {
             return zstzPropAddStringValue_6_0(file_, "Service", "ExecStart", longValue.c_str());
         }},
        {"SetRawValue",
         [&] {
             return zstzPropSetRawValue_6_0(file_, "Service", "ExecStart", 0, longValue.c_str());
         }},
    };
    failEachAllocationOf(
        calls, [&] { ASSERT_EQ(0, zstzPropReload_6_0(file_)); },
        [&](int failure) {
            EXPECT_TRUE(failure == 51 || failure == 52) << failure;
            EXPECT_EQ(kUnit, text());
        });
}
