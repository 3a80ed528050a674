#include "io_error.h"

namespace zfiles {

namespace {

constexpr char const* kNames[] = {
    "access()",    "fallocate()", "fchmod()",  "fchown()",    "fcntl()",    "fdatasync()",
    "fgetxattr()", "fmemopen()",  "fopen(r)",  "fopen(r+)",   "fopen(w)",   "fopencookie()",
    "fsetxattr()", "fstat()",     "fsync()",   "ftruncate()", "futimens()", "fwrite()",
    "getcwd()",    "lstat()",     "mapFile()", "open()",      "read()",     "rename()",
    "unlink()",    "write()",
};
static_assert(sizeof kNames / sizeof *kNames == static_cast<size_t>(FailedCall::write) + 1);

}  // namespace

char const* IoError::callName() const
{
    return kNames[static_cast<size_t>(call)];
}

}  // namespace zfiles
