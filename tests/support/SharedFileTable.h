// SharedFileTable: the process's table of shared files, for tests that count blocks in use.
#pragma once

#include <Z/files/shared_file.h>
#include <gtest/gtest.h>

// Opens a file once, before a test counts blocks: the first regular file that a process opens
// creates the table of shared files, which the library keeps until the process ends.
inline void createTableOfSharedFiles()
{
    EXPECT_EQ(0, zfiles::SharedFile().open("/proc/self/exe", O_RDONLY, 0));
}
