#include <Z/ZException.h>
#include <Z/ZLocalHostName.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <stdint.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "FailingAllocator.h"
#include "NotedMessages.h"
#include "Raised.h"

// Results of the system calls, set by the test.
namespace {

struct System {
    char const* name = "host";
    int nameError = 0;
    char const* official = "host.example";
    int lookUpError = 0;
    size_t roomNeeded = 0;
    std::string asked;
    int lookUps = 0;
} system_;

}  // namespace

extern "C" int __wrap_gethostname(char* buffer, size_t size)
{
    if (system_.nameError != 0) {
        errno = system_.nameError;
        return -1;
    }
    strncpy(buffer, system_.name, size);  // truncates without a terminator, as gethostname() does
    return 0;
}

extern "C" int __wrap_gethostbyname_r(char const* name, hostent* entry, char* buffer, size_t size,
                                      hostent** result, int* error)
{
    ++system_.lookUps;
    system_.asked = name;
    *result = nullptr;
    if (system_.lookUpError != 0) {
        errno = system_.lookUpError;
        *error = HOST_NOT_FOUND;
        return system_.lookUpError;
    }
    if (size < system_.roomNeeded)
        return ERANGE;
    strcpy(buffer, system_.official);
    entry->h_name = buffer;
    *result = entry;
    return 0;
}

namespace {

class ZLocalHostName : public testing::Test {
protected:
    void SetUp() override { system_ = System(); }
};

}  // namespace

TEST_F(ZLocalHostName, IsTheOfficialName)
{
    EXPECT_STREQ("host.example", ZLocalHostName_6_0::getLocalHostName().getChars());
    EXPECT_EQ("host", system_.asked);
}

TEST_F(ZLocalHostName, QueriesTheSystemEveryTime)
{
    ZLocalHostName_6_0::getLocalHostName();
    ZLocalHostName_6_0::getLocalHostName();
    EXPECT_EQ(2, system_.lookUps);
}

TEST_F(ZLocalHostName, GrowsTheBufferForALongResult)
{
    system_.roomNeeded = 50000;
    EXPECT_STREQ("host.example", ZLocalHostName_6_0::getLocalHostName().getChars());
}

TEST_F(ZLocalHostName, TruncatesAnUnterminatedName)
{
    std::string const endless(400, 'x');
    system_.name = endless.c_str();
    ZLocalHostName_6_0::getLocalHostName();
    EXPECT_EQ(std::string(255, 'x'), system_.asked);
}

TEST_F(ZLocalHostName, ReportsAHostWithoutAName)
{
    NotedMessages noted;
    system_.nameError = EPERM;
    EXPECT_TRUE(ZLocalHostName_6_0::getLocalHostName().isEmpty());
    ASSERT_EQ(1u, noted.messages().size());
    NotedMessages::Message const message = noted.messages()[0];
    EXPECT_EQ("src/Z/ZLocalHostName", message.file);
    EXPECT_EQ(25, message.number);
    EXPECT_EQ(1, message.insertCount);
    EXPECT_EQ(std::to_string(EPERM), message.inserts[0]);
    EXPECT_EQ(0, system_.lookUps);
}

TEST_F(ZLocalHostName, ReportsANameThatDoesNotResolve)
{
    NotedMessages noted;
    system_.lookUpError = ENOENT;
    EXPECT_TRUE(ZLocalHostName_6_0::getLocalHostName().isEmpty());
    ASSERT_EQ(1u, noted.messages().size());
    EXPECT_EQ(26, noted.messages()[0].number);
    EXPECT_EQ(std::to_string(ENOENT), noted.messages()[0].inserts[0]);
}

TEST_F(ZLocalHostName, GivesUpOnAnEndlessResult)
{
    NotedMessages noted;
    system_.roomNeeded = SIZE_MAX;
    EXPECT_TRUE(ZLocalHostName_6_0::getLocalHostName().isEmpty());
    EXPECT_EQ(11, system_.lookUps);  // buffers of 1 KiB, doubled up to 1 MiB
    ASSERT_EQ(1u, noted.messages().size());
    EXPECT_EQ(26, noted.messages()[0].number);
}

TEST_F(ZLocalHostName, ThrowsWithoutMemory)
{
    ZLocalHostName_6_0::getLocalHostName();
    for (unsigned long n : {1ul, 2ul}) {
        SCOPED_TRACE(n);
        FailingAllocator::failAt(n);
        EXPECT_TRUE(raises<ZOutOfMemoryException_6_0>(
            1, "src/Z/ZLocalHostName", 40, [] { ZLocalHostName_6_0::getLocalHostName(); }));
        FailingAllocator::stop();
    }

    std::string const official(200, 'h');
    system_.official = official.c_str();
    system_.roomNeeded = 2000;
    EXPECT_LE(1u,
              failEachAllocation(
                  [&] { EXPECT_EQ(official, ZLocalHostName_6_0::getLocalHostName().getChars()); },
                  [] {}));
}
