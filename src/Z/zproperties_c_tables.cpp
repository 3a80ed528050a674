// The plain function that chooses the tables of the text services.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "handles/last_error.h"
#include "qvr.h"
#include "reporting/messages.h"
#include "text/table_directory.h"
#include "zproperties_c.h"

// Weak: another provider of the text services may lack this function.
extern "C" [[gnu::weak]] int qvr_check_dir(char const* dir, char* problem, size_t room);

namespace {

using zhandles::recordFailure;

constexpr size_t kMaxProblem = 6144;  // a path, two names and some words

// Records a problem "FILE:LINE: problem; remedy" of a table, or "FILE: problem; remedy".
int recordProblem(char const* directory, char const* problem, int error)
{
    char file[kMaxProblem];
    size_t const known = strnlen(directory, strlen(problem));
    char const* const end = strstr(problem + known, ": ");
    snprintf(file, sizeof file, "%.*s", end != nullptr ? static_cast<int>(end - problem) : 0,
             problem);
    unsigned long line = 0;
    char* const colon = strrchr(file, ':');
    if (colon != nullptr && colon[1] != '\0' &&
        colon[1 + strspn(colon + 1, "0123456789")] == '\0') {
        line = strtoul(colon + 1, nullptr, 10);
        *colon = '\0';
    }
    return recordFailure(zpropOpenStoreFailed,
                         *problem != '\0' ? problem : "A table cannot be used.",
                         {nullptr, nullptr, *file != '\0' ? file : directory}, 0, error, line);
}

}  // namespace

int zstzPropSetTables_6_0(char const* directory)
{
    if (directory == nullptr || *directory == '\0')
        return recordFailure(zpropBadHandle, zhandles::kMissingArgument);
    char problem[kMaxProblem] = "";
    int const before = errno;
    int const rc = qvr_check_dir == nullptr ? 0 : qvr_check_dir(directory, problem, sizeof problem);
    int const error = errno;
    errno = before;
    if (rc == qvrNoMemory)
        return recordFailure(zpropChangeFailed, zreporting::messageText(zreporting::outOfMemory),
                             {nullptr, nullptr, directory}, zreporting::outOfMemory, ENOMEM);
    if (rc != 0)
        return recordProblem(directory, problem, error);
    switch (ztext::setTableDirectory(directory)) {
        case ztext::DirectoryResult::accepted:
            return zpropOk;
        case ztext::DirectoryResult::tooLong:
            return recordFailure(zpropBadHandle, zhandles::kMissingArgument);
        default:
            return recordFailure(zpropChangeFailed,
                                 "The tables are in use; choose them before any other call.");
    }
}
