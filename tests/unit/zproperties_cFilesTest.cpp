#include <Z/ZStanzaFileProperties.h>
#include <Z/ZStanzaProblem.h>
#include <Z/zproperties_c.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "FailingAllocator.h"
#include "LockingProcess.h"
#include "PlainFunctionsFixture.h"

int main(int argc, char** argv)
{
    if (LockingProcess::isWanted(argc, argv))
        return LockingProcess::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

namespace {

class ZPropertiesCFiles : public PlainFunctionsTest {
protected:
    std::string text()
    {
        size_t length = kUntouched;
        int code = kUntouched;
        Text const text(zstzPropStoreText_6_0(file_, &length, &code));
        EXPECT_EQ(0, code);
        EXPECT_EQ(text == nullptr ? 0 : strlen(text.get()), length);
        return text == nullptr ? "" : text.get();
    }
    int load(std::string const& text)
    {
        return zstzPropLoadText_6_0(file_, text.data(), text.size());
    }
    int isModified()
    {
        int code = kUntouched;
        int const result = zstzPropIsModified_6_0(file_, &code);
        EXPECT_EQ(0, code);
        return result;
    }
    std::string fileName()
    {
        int code = kUntouched;
        Text const name(zstzPropGetFileName_6_0(file_, &code));
        EXPECT_EQ(0, code);
        return textOf(name);
    }
    // Replaces the open file by a store without a file.
    void openNew()
    {
        zstzPropClose_6_0(file_);
        ASSERT_EQ(0, zstzPropNew_6_0(&file_, nullptr));
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

// ---- Opening by dialect -------------------------------------------------------------------------

TEST_F(ZPropertiesCFiles, OpenAsReadsTheStanzaDialect)
{
    for (char const* dialect : {static_cast<char const*>(nullptr), "stanza"}) {
        ZPROP_handle* handle = nullptr;
        ASSERT_EQ(0, zstzPropOpenAs_6_0(&handle, path("service.conf").c_str(), 2, dialect));
        int code = kUntouched;
        EXPECT_EQ(2, zstzPropNumStanzas_6_0(handle, &code));
        Text const name(zstzPropGetDialect_6_0(handle, &code));
        EXPECT_EQ("stanza", textOf(name));
        zstzPropClose_6_0(handle);
    }
}

TEST_F(ZPropertiesCFiles, AnUnknownDialectHasACodeOfItsOwn)
{
    std::string const name = path("service.conf");
    for (char const* dialect :
         {"", "Stanza", "stanza ", "git,none=1", "a dialect that is not there"}) {
        SCOPED_TRACE(dialect);
        ZPROP_handle* handle = file_;
        EXPECT_EQ(58, zstzPropOpenAs_6_0(&handle, name.c_str(), 1, dialect));
        EXPECT_EQ(nullptr, handle);
        EXPECT_EQ(58, lastError().code);
        EXPECT_EQ(name, lastError().file);
        handle = file_;
        EXPECT_EQ(58, zstzPropNew_6_0(&handle, dialect));
        EXPECT_EQ(nullptr, handle);
        EXPECT_EQ(
            58, zstzPropFindProblems_6_0(
                    name.c_str(), dialect, [](ZPROPProblem const*, void*) { return 0; }, nullptr));
    }
}

TEST_F(ZPropertiesCFiles, BadArgumentsTouchNothing)
{
    ZPROP_handle* handle = file_;
    EXPECT_EQ(55, zstzPropOpenAs_6_0(nullptr, "f", 1, nullptr));
    EXPECT_EQ(55, zstzPropOpenAs_6_0(&handle, nullptr, 1, nullptr));
    EXPECT_EQ(55, zstzPropOpenAs_6_0(&handle, "f", 0, nullptr));
    EXPECT_EQ(55, zstzPropOpenAs_6_0(&handle, "f", 3, "git"));
    EXPECT_EQ(file_, handle);
    EXPECT_EQ(55, zstzPropNew_6_0(nullptr, nullptr));
    EXPECT_EQ(55, zstzPropLoadText_6_0(file_, nullptr, 1));
    EXPECT_EQ(55, zstzPropFindProblems_6_0("f", nullptr, nullptr, nullptr));
    auto const callback = [](ZPROPProblem const*, void*) { return 0; };
    EXPECT_EQ(55, zstzPropFindProblems_6_0(nullptr, nullptr, callback, nullptr));
    EXPECT_EQ(55, zstzPropFindProblems_6_0("", nullptr, callback, nullptr));
    EXPECT_EQ(0, zstzPropIsModified_6_0(file_, nullptr));
    EXPECT_EQ(nullptr, zstzPropGetFileName_6_0(file_, nullptr));
    EXPECT_EQ(nullptr, zstzPropGetDialect_6_0(file_, nullptr));
    EXPECT_EQ(nullptr, zstzPropStoreText_6_0(file_, nullptr, nullptr));
    EXPECT_EQ(kText, text());
}

TEST_F(ZPropertiesCFiles, AClosedHandleIsRefused)
{
    ZPROP_handle* closed = nullptr;
    ASSERT_EQ(0, zstzPropNew_6_0(&closed, nullptr));
    zstzPropClose_6_0(closed);
    for (ZPROP_handle* handle : {closed, static_cast<ZPROP_handle*>(nullptr)})
        for (FileCall const& call : fileCalls()) {
            SCOPED_TRACE(call.name);
            EXPECT_EQ(55, call.code(handle));
        }
}

// ---- Stores without a file, and the text in memory ----------------------------------------------

TEST_F(ZPropertiesCFiles, ANewStoreHasNoFileUntilItIsStored)
{
    openNew();
    EXPECT_EQ("(null)", fileName());
    EXPECT_EQ("", text());
    EXPECT_EQ(0, isModified());
    EXPECT_EQ(51, zstzPropStore_6_0(file_, nullptr));
    EXPECT_EQ(51, zstzPropReload_6_0(file_));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "s", "k", "v"));
    EXPECT_EQ(1, isModified());
    std::string const name = path("new.conf");
    EXPECT_EQ(0, zstzPropStore_6_0(file_, name.c_str()));
    EXPECT_EQ(name, fileName());
    EXPECT_EQ(0, isModified());
    EXPECT_EQ("\n[s]\nk = v\n", read("new.conf"));
}

TEST_F(ZPropertiesCFiles, ReloadReadsTheFileAgainAndKeepsTheValuesIfItIsInvalid)
{
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "1"));
    EXPECT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ("8080", value("server", "port"));
    EXPECT_EQ(0, isModified());
    write("service.conf", "[server]\nport = 2\nbad line\n");
    EXPECT_EQ(51, zstzPropReload_6_0(file_));
    EXPECT_EQ(3u, lastError().line);
    EXPECT_EQ(kText, text());
    write("service.conf", "[server]\nport = 2\n");
    EXPECT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ("[server]\nport = 2\n", text());
}

TEST_F(ZPropertiesCFiles, ATextIsLoadedAndStoredAsAFileIs)
{
    EXPECT_EQ(kText, text());
    EXPECT_EQ(0, load("# c\n[a]\nk = v\n"));
    EXPECT_EQ("# c\n[a]\nk = v\n", text());
    EXPECT_EQ(1, isModified());
    EXPECT_EQ(path("service.conf"), fileName());
    EXPECT_EQ(kText, read("service.conf"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    EXPECT_EQ("# c\n[a]\nk = v\n", read("service.conf"));
    EXPECT_EQ(0, zstzPropLoadText_6_0(file_, nullptr, 0));
    EXPECT_EQ("", text());
    // The text ends at its length, not at a zero byte.
    EXPECT_EQ(0, zstzPropLoadText_6_0(file_, "[a]\nk = value", 9));
    EXPECT_EQ("[a]\nk = v\n", text());
}

TEST_F(ZPropertiesCFiles, ATextReplacesAFileWhoseLinesWereKept)
{
    EXPECT_EQ(0, zstzPropSetOption_6_0(file_, zpropKeepLines, 1));
    EXPECT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ(0, load("[a]\nk = v\n"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    EXPECT_EQ("[a]\nk = v\n", read("service.conf"));
    EXPECT_EQ("[a]\nk = v\n", text());
}

TEST_F(ZPropertiesCFiles, AnInvalidTextChangesNothing)
{
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "1"));
    std::string const before = text();
    EXPECT_EQ(51, load("[a]\nk = v\n\n  no sign\n"));
    EXPECT_EQ(4u, lastError().line);
    EXPECT_EQ(3u, lastError().column);
    EXPECT_EQ(44u, lastError().messageNumber);
    EXPECT_EQ(before, text());
}

TEST_F(ZPropertiesCFiles, ATextWithoutTheValuesOfItsCompanionIsRefused)
{
    ZStanzaFileProperties_6_0 config(path("service.conf").c_str(), 1);
    config.setValue("server", "secret", "s3", 1);
    config.store(nullptr);
    ASSERT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ("s3", value("server", "secret"));
    std::string const withCompanion = text();
    EXPECT_EQ(std::string::npos, withCompanion.find("s3"));
    EXPECT_EQ(51, load(withCompanion));
    EXPECT_EQ(48u, lastError().messageNumber);
    EXPECT_EQ("s3", value("server", "secret"));
}

TEST_F(ZPropertiesCFiles, OneThreadLoadsTextsWhileOthersRead)
{
    std::atomic<bool> isDone = false;
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i)
        readers.emplace_back([&] {
            while (!isDone) {
                int code = kUntouched;
                Text const text(zstzPropStoreText_6_0(file_, nullptr, &code));
                EXPECT_EQ(0, code);
                std::string const found = textOf(text);
                EXPECT_TRUE(found == kText || found == "[a]\nk = v\n") << found;
                Text const name(zstzPropGetFileName_6_0(file_, &code));
                EXPECT_EQ(path("service.conf"), textOf(name));
            }
        });
    for (int round = 0; round < 200; ++round) {
        EXPECT_EQ(0, load("[a]\nk = v\n"));
        EXPECT_EQ(0, zstzPropReload_6_0(file_));
    }
    isDone = true;
    for (std::thread& reader : readers)
        reader.join();
}

// ---- Options ------------------------------------------------------------------------------------

TEST_F(ZPropertiesCFiles, CommentsAreKeptUnlessTheOptionIsOff)
{
    EXPECT_EQ(0, zstzPropSetOption_6_0(file_, zpropKeepComments, 0));
    EXPECT_EQ(kText, text());
    EXPECT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ(std::string::npos, text().find('#'));
    EXPECT_EQ(0, zstzPropSetOption_6_0(file_, zpropKeepComments, 1));
    EXPECT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ(kText, text());
}

TEST_F(ZPropertiesCFiles, WithKeptLinesAStoreChangesOnlyTheLinesOfChangedValues)
{
    constexpr char kSpaced[] = "[a]  \n\tk=1\n\n\n  j   =  2  \r\n#c\n";
    reopened(kSpaced);
    EXPECT_NE(kSpaced, text());
    EXPECT_EQ(0, zstzPropSetOption_6_0(file_, zpropKeepLines, 1));
    EXPECT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ(kSpaced, text());
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "a", "j", "3"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    EXPECT_EQ("[a]  \n\tk=1\n\n\n  j   =  3  \r\n#c\n", read("service.conf"));
    EXPECT_EQ(0, load(kSpaced));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "a", "k", "4"));
    EXPECT_EQ("[a]  \n\tk=4\n\n\n  j   =  2  \r\n#c\n", text());
}

TEST_F(ZPropertiesCFiles, AnOptionOfTheLinesActsAtTheNextLoad)
{
    constexpr char kSpaced[] = "[a]  \n\tk=1\nj   =  2\n";
    reopened(kSpaced);
    EXPECT_EQ(0, zstzPropSetOption_6_0(file_, zpropKeepLines, 1));
    EXPECT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ(0, zstzPropSetOption_6_0(file_, zpropKeepLines, 0));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "a", "j", "3"));
    EXPECT_EQ(0, zstzPropStore_6_0(file_, nullptr));
    EXPECT_EQ("[a]  \n\tk=1\nj   =  3\n", read("service.conf"));
    // A load that fails changes nothing.
    write("service.conf", "no sign\n");
    EXPECT_EQ(51, zstzPropReload_6_0(file_));
    EXPECT_EQ("[a]  \n\tk=1\nj   =  3\n", text());
    write("service.conf", kSpaced);
    EXPECT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ("[a]\nk = 1\nj = 2\n", text());
}

TEST_F(ZPropertiesCFiles, DefaultOptionsApplyToTheStoresOfTheirThread)
{
    constexpr char kSpaced[] = "[a]  \n\tk=1\n";
    std::thread([&] {
        EXPECT_EQ(0, zstzPropSetDefaultOption_6_0(zpropKeepLines, 1));
        reopened(kSpaced);
        EXPECT_EQ(kSpaced, text());
        EXPECT_EQ(0, zstzPropSetDefaultOption_6_0(zpropKeepLines, 0));
        EXPECT_EQ(0, zstzPropReload_6_0(file_));
        EXPECT_EQ(kSpaced, text()) << "the option of an open store stays";
        EXPECT_EQ(0, zstzPropSetDefaultOption_6_0(zpropKeepComments, 0));
        reopened(kText);
        EXPECT_EQ(std::string::npos, text().find('#'));
    }).join();
    reopened(kText);
    EXPECT_EQ(kText, text());
}

TEST_F(ZPropertiesCFiles, AnOpenWaitsForAnotherProcessIfTheDefaultOptionSaysSo)
{
    std::string const name = path("service.conf");
    auto const find = [&] {
        return zstzPropFindProblems_6_0(
            name.c_str(), nullptr, [](ZPROPProblem const*, void*) { return 0; }, nullptr);
    };
    auto const open = [&] {
        ZPROP_handle* handle = nullptr;
        int const code = zstzPropOpenAs_6_0(&handle, name.c_str(), zpropOpenRead, nullptr);
        zstzPropClose_6_0(handle);
        return code;
    };
    for (std::function<int()> const& call :
         {std::function<int()>(find), std::function<int()>(open)}) {
        auto other = std::make_unique<LockingProcess>(name, F_WRLCK);
        EXPECT_EQ(51, call());
        EXPECT_EQ(EAGAIN, lastError().errorNumber);
        std::atomic<bool> isStarted = false;
        std::thread waiting([&] {
            EXPECT_EQ(0, zstzPropSetDefaultOption_6_0(zpropWaitMilliseconds, 1));
            EXPECT_EQ(51, call());
            EXPECT_EQ(0, zstzPropSetDefaultOption_6_0(zpropWaitSeconds, 3600));
            isStarted = true;
            EXPECT_EQ(0, call());
        });
        while (!isStarted)
            std::this_thread::yield();
        other.reset();
        waiting.join();
    }
}

TEST_F(ZPropertiesCFiles, AValueThatNoLineHoldsIsNoWrongType)
{
    reopened("[a]\nk=1\n");
    EXPECT_EQ(0, zstzPropSetOption_6_0(file_, zpropKeepLines, 1));
    EXPECT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "a", "k", " x"));
    int code = kUntouched;
    size_t length = kUntouched;
    EXPECT_EQ(nullptr, zstzPropStoreText_6_0(file_, &length, &code));
    EXPECT_EQ(52, code);
    EXPECT_EQ(0u, length);
    EXPECT_EQ(0ul, zstzPropGetLine_6_0(file_, "a", "k", 0, &code));
    EXPECT_EQ(52, code);
    EXPECT_EQ(nullptr, zstzPropGetRawValue_6_0(file_, "a", "k", 0, &code));
    EXPECT_EQ(52, code);
    EXPECT_EQ(51, zstzPropStore_6_0(file_, nullptr));
}

TEST_F(ZPropertiesCFiles, ATextLargerThanAFileMayBeIsRefused)
{
    char const byte = '#';
    EXPECT_EQ(51, zstzPropLoadText_6_0(file_, &byte, SIZE_MAX));
    EXPECT_EQ(EFBIG, lastError().errorNumber);
    EXPECT_EQ(51, zstzPropLoadText_6_0(file_, &byte, size_t{1} << 31));
    EXPECT_EQ(kText, text());
}

TEST_F(ZPropertiesCFiles, AnUnknownOptionOrValueChangesNothing)
{
    EXPECT_EQ(55, zstzPropSetOption_6_0(file_, zpropKeepComments, 2));
    EXPECT_EQ(55, zstzPropSetOption_6_0(file_, zpropKeepComments, -1));
    EXPECT_EQ(55, zstzPropSetOption_6_0(file_, zpropKeepLines, 2));
    EXPECT_EQ(55, zstzPropSetOption_6_0(file_, zpropWaitSeconds, -1));
    for (int option : {0, -1, 5, 1000}) {
        SCOPED_TRACE(option);
        EXPECT_EQ(58, zstzPropSetOption_6_0(file_, option, 0));
        EXPECT_EQ(58, lastError().code);
        EXPECT_EQ(58, zstzPropSetDefaultOption_6_0(option, 0));
    }
    EXPECT_EQ(55, zstzPropSetDefaultOption_6_0(zpropKeepLines, 2));
    EXPECT_EQ(55, zstzPropSetDefaultOption_6_0(zpropWaitMilliseconds, -1));
    EXPECT_EQ(0, zstzPropReload_6_0(file_));
    EXPECT_EQ(kText, text());
}

TEST_F(ZPropertiesCFiles, LoadsAndStoresWaitForAnotherProcessIfTheOptionSaysSo)
{
    std::string const name = path("service.conf");
    EXPECT_EQ(0, zstzPropSetStringValue_6_0(file_, "server", "port", "1"));
    for (int storing : {1, 0}) {
        SCOPED_TRACE(storing);
        auto const call = [&] {
            return storing ? zstzPropStore_6_0(file_, nullptr) : zstzPropReload_6_0(file_);
        };
        auto other = std::make_unique<LockingProcess>(name, F_WRLCK);
        EXPECT_EQ(0, zstzPropSetOption_6_0(file_, zpropWaitSeconds, 0));
        EXPECT_EQ(51, call());
        EXPECT_EQ(EAGAIN, lastError().errorNumber);
        EXPECT_EQ(0, zstzPropSetOption_6_0(file_, zpropWaitSeconds, 3600));
        std::atomic<bool> isStarted = false;
        std::thread waiting([&] {
            isStarted = true;
            EXPECT_EQ(0, call());
        });
        while (!isStarted)
            std::this_thread::yield();
        other.reset();
        waiting.join();
    }
    EXPECT_NE(std::string::npos, read("service.conf").find("port = 1\n"));
}

// ---- Problems -----------------------------------------------------------------------------------

namespace {

struct Found {
    std::vector<std::string> problems;
    size_t most = 100;  // the number of problems after which the search stops
};

int addProblem(ZPROPProblem const* problem, void* context)
{
    auto& found = *static_cast<Found*>(context);
    EXPECT_EQ(sizeof(ZPROPProblem), problem->size);
    found.problems.push_back(std::to_string(problem->line) + ":" + std::to_string(problem->column) +
                             " " + std::to_string(problem->kind) + " " +
                             std::to_string(problem->cause) + " " +
                             std::to_string(problem->messageNumber) + " " + problem->text);
    return found.problems.size() >= found.most ? 1 : 0;
}

}  // namespace

TEST_F(ZPropertiesCFiles, FindProblemsPassesEveryProblemInFileOrder)
{
    std::string const name = write("bad.conf", "k = v\n[a]\nno sign\nk = v \n[a]\n= v\n");
    Found found;
    EXPECT_EQ(0, zstzPropFindProblems_6_0(name.c_str(), nullptr, addProblem, &found));
    ZArrayList_6_0 expected(1, 1);
    ZStanzaFileProperties_6_0::findProblems(name.c_str(), expected);
    ASSERT_EQ(expected.size(), found.problems.size());
    ASSERT_GE(found.problems.size(), 4u);
    for (unsigned i = 0; i < expected.size(); ++i) {
        auto const& problem = *static_cast<ZStanzaProblem_6_0 const*>(expected.get(i));
        EXPECT_EQ(std::to_string(problem.line()) + ":" + std::to_string(problem.column()) + " " +
                      std::to_string(problem.kind()) + " " + std::to_string(problem.cause()) + " " +
                      std::to_string(problem.messageNumber()) + " " + problem.text().getChars(),
                  found.problems[i]);
    }
    Found first;
    first.most = 1;
    EXPECT_EQ(0, zstzPropFindProblems_6_0(name.c_str(), "stanza", addProblem, &first));
    ASSERT_EQ(1u, first.problems.size());
    EXPECT_EQ(found.problems[0], first.problems[0]);
}

TEST_F(ZPropertiesCFiles, FindProblemsFailsOnlyIfTheFileCannotBeRead)
{
    Found found;
    std::string const name = path("service.conf");
    EXPECT_EQ(0, zstzPropFindProblems_6_0(name.c_str(), nullptr, addProblem, &found));
    std::string const none = path("none.conf");
    EXPECT_EQ(51, zstzPropFindProblems_6_0(none.c_str(), nullptr, addProblem, &found));
    EXPECT_EQ(ENOENT, lastError().errorNumber);
    EXPECT_EQ(none, lastError().file);
    EXPECT_EQ(51, zstzPropFindProblems_6_0(directory_.path().c_str(), nullptr, addProblem, &found));
    EXPECT_TRUE(found.problems.empty());
}

// ---- Without memory -----------------------------------------------------------------------------

TEST_F(ZPropertiesCFiles, EachFunctionFailsWithoutAChangeIfAnAllocationFails)
{
    std::string const longValue(300, 'v');
    std::string const other = "[other]\nk = " + longValue + "\n";
    std::string const bad = write("bad.conf", "no sign\n[a]\n[a]\n" + longValue + "\n");
    struct Case {
        char const* name;
        int expected;
        std::function<int()> call;
    };
    int code = 0;
    Case const cases[] = {
        {"New", 51,
         [] {
             ZPROP_handle* handle = nullptr;
             int const result = zstzPropNew_6_0(&handle, nullptr);
             EXPECT_EQ(result == 0, handle != nullptr);
             zstzPropClose_6_0(handle);
             return result;
         }},
        {"Reload", 51, [&] { return zstzPropReload_6_0(file_); }},
        {"GetFileName", 52,
         [&] {
             Text const name(zstzPropGetFileName_6_0(file_, &code));
             return code;
         }},
        {"StoreText", 52,
         [&] {
             Text const text(zstzPropStoreText_6_0(file_, nullptr, &code));
             return code;
         }},
        {"FindProblems", 51,
         [&] {
             return zstzPropFindProblems_6_0(
                 bad.c_str(), nullptr, [](ZPROPProblem const*, void*) { return 0; }, nullptr);
         }},
        {"LoadText", 51, [&] { return zstzPropLoadText_6_0(file_, other.data(), other.size()); }},
    };
    for (Case const& c : cases) {
        int failures = 0;
        for (unsigned long n = 1;; ++n) {
            SCOPED_TRACE(std::string(c.name) + ", allocation " + std::to_string(n));
            FailingAllocator::failAt(n);
            int const result = c.call();
            bool const failed = FailingAllocator::stop();
            if (result != 0) {
                ++failures;
                EXPECT_EQ(c.expected, result);
                EXPECT_EQ(ENOMEM, lastError().errorNumber);
                EXPECT_EQ(kText, text());
                EXPECT_EQ(0, isModified());
            }
            if (!failed || HasFailure())
                break;
            // A failed allocation of memory that is not needed is no failure of the call.
            ASSERT_EQ(0, zstzPropReload_6_0(file_));
        }
        EXPECT_GE(failures, 1) << c.name;
    }
    EXPECT_EQ(other, text());
}
