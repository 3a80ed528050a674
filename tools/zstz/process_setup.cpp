#include "process_setup.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "failures.h"

bool setTablesVariable()
{
    if (getenv("QVRDIR") != nullptr)
        return false;
    char self[PATH_MAX];
    ssize_t const length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        return false;
    self[length] = 0;
    *strrchr(self, '/') = 0;
    std::string const tables = std::string(self) + "/" + ZSTZ_TABLES;
    setenv("QVRDIR", tables.c_str(), 1);
    return true;
}

void openStandardDescriptors()
{
    for (int fd = 0; fd < 3; ++fd)
        if (fcntl(fd, F_GETFD) < 0)
            open("/dev/null", fd == 0 ? O_WRONLY : O_RDONLY);
}

void requirePrinted()
{
    if (fflush(stdout) != 0 || ferror(stdout))
        throw Failure{exitNoAccess, "standard output", {"cannot write", "check its destination"}};
}
