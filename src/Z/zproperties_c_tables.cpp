// The plain function that chooses the tables of the text services.
#include <stddef.h>

#include "handles/last_error.h"
#include "qvr.h"
#include "text/table_directory.h"
#include "zproperties_c.h"

// Weak: another provider of the text services may lack this function.
extern "C" [[gnu::weak]] int qvr_check_dir(char const* dir, char* problem, size_t room);

int zstzPropSetTables_6_0(char const* directory)
{
    using zhandles::recordFailure;
    if (directory == nullptr || *directory == '\0')
        return recordFailure(zpropBadHandle, zhandles::kMissingArgument);
    char problem[6144] = "";  // a path, two names and some words
    if (qvr_check_dir != nullptr && qvr_check_dir(directory, problem, sizeof problem) != 0)
        return recordFailure(zpropOpenStoreFailed,
                             *problem != '\0' ? problem : "A table cannot be used.",
                             {nullptr, nullptr, directory});
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
