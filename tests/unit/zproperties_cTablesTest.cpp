// The text services start once per process, so each test runs in a process of its own.
#include <Z/zproperties_c.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "FailingAllocator.h"
#include "TestDirectory.h"

namespace {

ZPROPError lastError()
{
    ZPROPError error = {};
    error.size = sizeof error;
    zstzPropGetLastError_6_0(&error);
    return error;
}

// Ends the process unless `isTrue`.
void require(bool isTrue, int line)
{
    if (isTrue)
        return;
    fprintf(stderr, "line %d failed; last failure: %s\n", line, lastError().text);
    _exit(1);
}

// Sets and reads a value.
void useLibrary()
{
    ZPROP_handle* handle = nullptr;
    require(zstzPropNew_6_0(&handle, nullptr) == 0, __LINE__);
    require(zstzPropSetStringValue_6_0(handle, "s", "k", "v") == 0, __LINE__);
    int code = -1;
    char* const value = zstzPropGetStringValue_6_0(handle, "s", "k", 0, &code);
    require(value != nullptr && strcmp(value, "v") == 0, __LINE__);
    zstzPropFree_6_0(value);
    zstzPropClose_6_0(handle);
}

// The directory of the tables that the tests use.
std::string const& tables()
{
    static std::string const directory = [] {
        char const* const set = getenv("QVRDIR");
        return std::string(set != nullptr ? set : "");
    }();
    return directory;
}

void withoutVariable(void (*action)())
{
    ASSERT_FALSE(tables().empty());
    EXPECT_EXIT(
        {
            unsetenv("QVRDIR");
            action();
            _exit(0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace

TEST(ZPropertiesCTables, TheCallReplacesTheEnvironmentVariable)
{
    withoutVariable([] {
        require(zstzPropSetTables_6_0("/a directory that is replaced") == 0, __LINE__);
        require(zstzPropSetTables_6_0(tables().c_str()) == 0, __LINE__);
        useLibrary();
    });
}

TEST(ZPropertiesCTables, SeveralThreadsMayChooseTheTables)
{
    withoutVariable([] {
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([] {
                for (int round = 0; round < 20; ++round)
                    require(zstzPropSetTables_6_0(tables().c_str()) == 0, __LINE__);
            });
        for (std::thread& thread : threads)
            thread.join();
        useLibrary();
    });
}

TEST(ZPropertiesCTables, ExhaustedMemoryHasTheCodeOfAChange)
{
    withoutVariable([] {
        // ICU keeps a failure of its first use.
        require(zstzPropSetTables_6_0(tables().c_str()) == 0, __LINE__);
        for (unsigned long n = 1;; ++n) {
            FailingAllocator::failAt(n);
            int const code = zstzPropSetTables_6_0(tables().c_str());
            bool const failed = FailingAllocator::stop();
            require(code == 0 || (failed && code == 52), __LINE__);
            require(code == 0 || lastError().errorNumber == ENOMEM, __LINE__);
            require(code == 0 || lastError().messageNumber == 1, __LINE__);
            if (!failed) {
                require(n > 1, __LINE__);
                break;
            }
        }
        useLibrary();
    });
}

TEST(ZPropertiesCTables, AnUnreadableTableHasAnErrno)
{
    withoutVariable([] {
        TestDirectory const directory;
        // A loop of links cannot be opened, by root neither.
        require(symlink("codesets.alias", directory.at("codesets.alias").c_str()) == 0, __LINE__);
        require(zstzPropSetTables_6_0(directory.path().c_str()) == 51, __LINE__);
        require(lastError().errorNumber == ELOOP, __LINE__);
        require(lastError().file == directory.at("codesets.alias"), __LINE__);
        require(zstzPropSetTables_6_0(tables().c_str()) == 0, __LINE__);
        useLibrary();
    });
}

TEST(ZPropertiesCTables, WithoutTablesAStoreCannotBeOpened)
{
    withoutVariable([] {
        ZPROP_handle* handle = nullptr;
        require(zstzPropNew_6_0(&handle, nullptr) == 51 && handle == nullptr, __LINE__);
        require(lastError().messageNumber == 45, __LINE__);
        require(zstzPropOpen_6_0(&handle, "f", 1) == 51 && handle == nullptr, __LINE__);
        require(std::string(lastError().file) == "f", __LINE__);
        require(zstzPropSetTables_6_0(tables().c_str()) == 0, __LINE__);
        useLibrary();
    });
}

TEST(ZPropertiesCTables, TheDirectoryIsFinalAfterTheFirstUse)
{
    withoutVariable([] {
        require(zstzPropSetTables_6_0(tables().c_str()) == 0, __LINE__);
        useLibrary();
        require(zstzPropSetTables_6_0(tables().c_str()) == 52, __LINE__);
        require(lastError().code == 52, __LINE__);
        useLibrary();
    });
}

TEST(ZPropertiesCTables, ABadDirectoryChangesNothing)
{
    withoutVariable([] {
        TestDirectory const directory;
        directory.write("codesets.alias", "good UTF-8\nalone\n");
        require(zstzPropSetTables_6_0(directory.path().c_str()) == 51, __LINE__);
        require(strstr(lastError().text, "codesets.alias:2: ") != nullptr, __LINE__);
        require(lastError().file == directory.path() + "/codesets.alias", __LINE__);
        require(lastError().line == 2 && lastError().errorNumber == 0, __LINE__);
        directory.write("codesets.alias", "");
        mkdir(directory.at("locales.alias").c_str(), 0700);
        require(zstzPropSetTables_6_0(directory.path().c_str()) == 51, __LINE__);
        require(lastError().file == directory.at("locales.alias"), __LINE__);
        require(lastError().line == 0, __LINE__);
        require(zstzPropSetTables_6_0(nullptr) == 55, __LINE__);
        require(zstzPropSetTables_6_0("") == 55, __LINE__);
        require(lastError().code == 55, __LINE__);
        require(zstzPropSetTables_6_0(("/" + std::string(5000, 'd')).c_str()) != 0, __LINE__);
        require(zstzPropSetTables_6_0(tables().c_str()) == 0, __LINE__);
        useLibrary();
    });
}
