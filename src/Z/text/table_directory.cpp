#include "table_directory.h"

#include <stdlib.h>
#include <string.h>

#include <mutex>

namespace ztext {
namespace {

constexpr size_t kMaxLength = 4095;

constinit std::mutex mutex;
// Guarded by `mutex`. The directory does not change once it is final.
char directory_[kMaxLength + 1];
bool isSet;
bool isFinal;

}  // namespace

DirectoryResult setTableDirectory(char const* directory)
{
    size_t const length = strnlen(directory, kMaxLength + 1);
    if (length > kMaxLength)
        return DirectoryResult::tooLong;
    std::lock_guard<std::mutex> const guard(mutex);
    if (isFinal)
        return DirectoryResult::inUse;
    memcpy(directory_, directory, length + 1);
    isSet = true;
    return DirectoryResult::accepted;
}

bool hasTableDirectory()
{
    std::lock_guard<std::mutex> const guard(mutex);
    return isSet || secure_getenv("QVRDIR") != nullptr;
}

char const* finalTableDirectory()
{
    std::lock_guard<std::mutex> const guard(mutex);
    isFinal = true;
    return isSet ? directory_ : secure_getenv("QVRDIR");
}

}  // namespace ztext
