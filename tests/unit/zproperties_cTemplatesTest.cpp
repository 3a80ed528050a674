// The plain functions that compare a file with a template, and two strings.
#include <Z/zproperties_c.h>
#include <errno.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "FailingAllocator.h"
#include "PlainFunctionsFixture.h"

namespace {

constexpr char kTemplate[] =
    "# [server]\n"
    "# where it listens\n"
    "# range: 1..65535\n"
    "# required\n"
    "#port = 8080\n"
    "# one of: tcp udp\n"
    "#protocol = tcp\n"
    "#trace = no\n"
    "# [log]\n"
    "#file = app.log\n";

class ZPropertiesCTemplates : public PlainFunctionsTest {
protected:
    // Returns each complaint as "LINE:COLUMN CAUSE TEXT".
    std::vector<std::string> check(std::string const& text, char const* dialect = nullptr)
    {
        write("checked.conf", text);
        write("template.conf", kTemplate);
        std::vector<std::string> found;
        EXPECT_EQ(0, zstzPropCheckTemplate_6_0(path("checked.conf").c_str(), dialect,
                                               path("template.conf").c_str(), add, &found));
        return found;
    }

    static int add(ZPROPProblem const* problem, void* context)
    {
        EXPECT_EQ(sizeof *problem, problem->size);
        static_cast<std::vector<std::string>*>(context)->push_back(
            std::to_string(problem->line) + ":" + std::to_string(problem->column) + " " +
            std::to_string(problem->cause) + " " + problem->text);
        return 0;
    }

    static std::string diff(std::string const& before, std::string const& after)
    {
        char* text = nullptr;
        size_t length = 0;
        EXPECT_EQ(0, zstzPropDiffText_6_0(before.data(), before.size(), "a", after.data(),
                                          after.size(), "b", &text, &length));
        Text const owned(text);
        return text == nullptr ? "" : std::string(text, length);
    }
};

using Complaints = std::vector<std::string>;

}  // namespace

// ---- Templates ----------------------------------------------------------------------------------

TEST_F(ZPropertiesCTemplates, AFileThatFollowsItsTemplateHasNoDifferences)
{
    EXPECT_EQ(Complaints{}, check("[server]\nport = 80\nprotocol = udp\n\n[log]\nfile = x\n"));
}

TEST_F(ZPropertiesCTemplates, EveryDifferenceIsReportedInFileOrder)
{
    Complaints const expected = {
        "1:1 32 key \"port\" in [server] is required and missing; add it, such as \"8080\"",
        "2:1 30 unknown key \"prt\" in [server]; the nearest name is \"port\"",
        "3:12 31 key \"protocol\" in [server]: \"sctp\" is not one of the values; use one of tcp, "
        "udp",
        "4:9 31 key \"trace\" in [server]: \"perhaps\" is not a boolean; use yes or no",
        "6:1 29 unknown stanza [lg]; the nearest name is \"log\""};
    EXPECT_EQ(expected, check("[server]\nprt = 80\nprotocol = sctp\ntrace = perhaps\n\n[lg]\n"));
}

TEST_F(ZPropertiesCTemplates, InvalidLinesAndDifferencesAreInOneOrder)
{
    Complaints const found = check("[server]\nport = x\nno entry\nprt = 1\n");
    ASSERT_EQ(3u, found.size());
    EXPECT_EQ("2:8 31", found[0].substr(0, 6));
    EXPECT_EQ("3:1 3 ", found[1].substr(0, 6));
    EXPECT_EQ("4:1 30", found[2].substr(0, 6));
}

TEST_F(ZPropertiesCTemplates, NamesAreComparedAsInTheDialect)
{
    EXPECT_EQ(Complaints{}, check("[SERVER]\n\tPort = 80\n", "git"));
    EXPECT_EQ(Complaints{}, check("[server]\nPORT: 80\n", "python"));
    EXPECT_EQ(Complaints{}, check("[server]\nport=1\n[server]\nport=2\n", "networkd"));
    Complaints const found = check("[server]\nport=1\n[server]\nprt=2\n", "networkd");
    ASSERT_EQ(1u, found.size());
    EXPECT_EQ("4:1 30 unknown key \"prt\" in [server]2]; the nearest name is \"port\"", found[0]);
    // An empty value resets the values above, which get a note.
    EXPECT_EQ(Complaints{}, check("[server]\nport=\nport=2\n", "systemd"));
    Complaints const reset = check("[server]\nport=1\nport=\nport=2\n", "systemd");
    ASSERT_EQ(1u, reset.size());
    EXPECT_EQ(0u, reset[0].find("2:1 27 another line with key \"port\" counts")) << reset[0];
}

TEST_F(ZPropertiesCTemplates, ObfuscatedValuesAndTheirEntryAreNoDifferences)
{
    write("checked.conf", "[server]\nprotocol = tcp\n");
    zstzPropClose_6_0(file_);
    ASSERT_EQ(0, zstzPropOpen_6_0(&file_, path("checked.conf").c_str(), zpropOpenUpdate));
    ASSERT_EQ(0, zstzPropSetObfuscatedValue_6_0(file_, "server", "port", "80"));
    ASSERT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    ASSERT_NE(std::string::npos, read("checked.conf").find("[configuration-database]"));
    EXPECT_EQ(Complaints{}, check(read("checked.conf")));
}

TEST_F(ZPropertiesCTemplates, TheCallbackEndsTheSearch)
{
    check("");
    write("checked.conf", "[a]\n[b]\n[c]\n");
    int calls = 0;
    auto const stop = [](ZPROPProblem const*, void* context) {
        return ++*static_cast<int*>(context) == 2 ? 1 : 0;
    };
    EXPECT_EQ(0, zstzPropCheckTemplate_6_0(path("checked.conf").c_str(), nullptr,
                                           path("template.conf").c_str(), stop, &calls));
    EXPECT_EQ(2, calls);
}

TEST_F(ZPropertiesCTemplates, MissingFilesAndArgumentsAreRefused)
{
    std::vector<std::string> found;
    check("");
    std::string const file = path("checked.conf"), schema = path("template.conf");
    EXPECT_EQ(55, zstzPropCheckTemplate_6_0(nullptr, nullptr, schema.c_str(), add, &found));
    EXPECT_EQ(55, zstzPropCheckTemplate_6_0("", nullptr, schema.c_str(), add, &found));
    EXPECT_EQ(55, zstzPropCheckTemplate_6_0(file.c_str(), nullptr, nullptr, add, &found));
    EXPECT_EQ(55, zstzPropCheckTemplate_6_0(file.c_str(), nullptr, "", add, &found));
    EXPECT_EQ(55,
              zstzPropCheckTemplate_6_0(file.c_str(), nullptr, schema.c_str(), nullptr, &found));
    EXPECT_EQ(58, zstzPropCheckTemplate_6_0(file.c_str(), "no", schema.c_str(), add, &found));
    ZPROPError error = {};
    error.size = sizeof error;
    EXPECT_EQ(51,
              zstzPropCheckTemplate_6_0(file.c_str(), nullptr, path("none").c_str(), add, &found));
    EXPECT_EQ(0, zstzPropGetLastError_6_0(&error));
    EXPECT_EQ(ENOENT, error.errorNumber);
    EXPECT_EQ(path("none"), error.file);
    EXPECT_EQ(
        51, zstzPropCheckTemplate_6_0(path("none").c_str(), nullptr, schema.c_str(), add, &found));
    EXPECT_EQ(0, zstzPropGetLastError_6_0(&error));
    EXPECT_EQ(path("none"), error.file);
    write("empty.conf", "[a]\n# nothing\n");
    EXPECT_EQ(51, zstzPropCheckTemplate_6_0(file.c_str(), nullptr, path("empty.conf").c_str(), add,
                                            &found));
    EXPECT_EQ(0, zstzPropGetLastError_6_0(&error));
    EXPECT_EQ(path("empty.conf"), error.file);
    EXPECT_STREQ("The template has no comment of the form \"# key = default\".", error.text);
    EXPECT_TRUE(found.empty());
}

TEST_F(ZPropertiesCTemplates, WithoutMemoryTheCheckReturns51)
{
    check("[server]\nprt = 80\nprotocol = sctp\n\n[lg]\n");
    auto const ignore = [](ZPROPProblem const*, void*) { return 0; };
    std::string const file = path("checked.conf"), schema = path("template.conf");
    int failures = 0;
    for (unsigned long n = 1;; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        long const blocks = FailingAllocator::blocks();
        FailingAllocator::failAt(n);
        int const code =
            zstzPropCheckTemplate_6_0(file.c_str(), nullptr, schema.c_str(), ignore, nullptr);
        bool const failed = FailingAllocator::stop();
        EXPECT_GE(blocks, FailingAllocator::blocks());
        if (code != 0) {
            EXPECT_EQ(51, code);
            ++failures;
        }
        if (!failed || HasFailure())
            break;
    }
    EXPECT_GT(failures, 5);
}

TEST_F(ZPropertiesCTemplates, ThreadsCheckAtTheSameTime)
{
    check("[server]\nprt = 80\n");
    auto const search = [&] {
        for (int i = 0; i < 50; ++i) {
            std::vector<std::string> found;
            EXPECT_EQ(0, zstzPropCheckTemplate_6_0(path("checked.conf").c_str(), nullptr,
                                                   path("template.conf").c_str(), add, &found));
            EXPECT_EQ(2u, found.size());
        }
    };
    std::thread other(search);
    search();
    other.join();
}

// ---- Differences --------------------------------------------------------------------------------

TEST_F(ZPropertiesCTemplates, ADifferenceIsAUnifiedDiff)
{
    EXPECT_EQ("--- a\n+++ b\n@@ -1,2 +1,2 @@\n a\n-b\n+c\n", diff("a\nb\n", "a\nc\n"));
    EXPECT_EQ("--- a\n+++ b\n@@ -0,0 +1 @@\n+a\n\\ No newline at end of file\n", diff("", "a"));
    EXPECT_EQ("", diff("a\n", "a\n"));
    EXPECT_EQ("", diff("", ""));
}

TEST_F(ZPropertiesCTemplates, ADifferenceOfRepeatedLinesIsLinear)
{
    // A quadratic comparison of 1e6 lines would not end.
    std::string before;
    for (int i = 0; i < 1000000; ++i)
        before += "key = " + std::to_string(i % 100) + "\n";
    std::string after = before;
    after.replace(after.find("key = 57"), 8, "key = xx");
    after.replace(after.rfind("key = 57"), 8, "key = yy");
    std::string const found = diff(before, after);
    EXPECT_NE(std::string::npos, found.find("\n+key = xx\n"));
    EXPECT_NE(std::string::npos, found.find("\n+key = yy\n"));
    EXPECT_LT(found.size(), 400u);
}

TEST_F(ZPropertiesCTemplates, ADifferenceNeedsItsArguments)
{
    char* text = nullptr;
    size_t length = 7;
    EXPECT_EQ(55, zstzPropDiffText_6_0("a", 1, "a", "b", 1, "b", nullptr, nullptr));
    EXPECT_EQ(55, zstzPropDiffText_6_0(nullptr, 1, "a", "b", 1, "b", &text, &length));
    EXPECT_EQ(0u, length);
    EXPECT_EQ(55, zstzPropDiffText_6_0("a", 1, "a", nullptr, 1, "b", &text, nullptr));
    EXPECT_EQ(55, zstzPropDiffText_6_0("a", 1, nullptr, "b", 1, "b", &text, nullptr));
    EXPECT_EQ(55, zstzPropDiffText_6_0("a", 1, "a", "b", 1, nullptr, &text, nullptr));
    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(0, zstzPropDiffText_6_0(nullptr, 0, "a", nullptr, 0, "b", &text, nullptr));
    EXPECT_EQ(nullptr, text);
}

TEST_F(ZPropertiesCTemplates, WithoutMemoryADifferenceReturns51)
{
    int failures = 0;
    for (unsigned long n = 1;; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        char* text = nullptr;
        long const blocks = FailingAllocator::blocks();
        FailingAllocator::failAt(n);
        int const code =
            zstzPropDiffText_6_0("a\nb\nc\n", 6, "a", "a\nd\nc\n", 6, "b", &text, nullptr);
        bool const failed = FailingAllocator::stop();
        EXPECT_EQ(code == 0, text != nullptr);
        zstzPropFree_6_0(text);
        EXPECT_GE(blocks, FailingAllocator::blocks());
        if (code != 0) {
            EXPECT_EQ(51, code);
            ++failures;
        }
        if (!failed || HasFailure())
            break;
    }
    EXPECT_GT(failures, 3);
}
