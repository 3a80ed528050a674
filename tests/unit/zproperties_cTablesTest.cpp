// The text services start once per process, so each test runs in a process of its own.
#include <Z/zproperties_c.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

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
        require(lastError().file == directory.path(), __LINE__);
        require(zstzPropSetTables_6_0(nullptr) == 55, __LINE__);
        require(zstzPropSetTables_6_0("") == 55, __LINE__);
        require(lastError().code == 55, __LINE__);
        require(zstzPropSetTables_6_0(("/" + std::string(5000, 'd')).c_str()) != 0, __LINE__);
        require(zstzPropSetTables_6_0(tables().c_str()) == 0, __LINE__);
        useLibrary();
    });
}
