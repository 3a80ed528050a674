// io_error: the failure of a call on a file.
//
// Header-only, so that zstz recognises the names of failed calls without exported functions.
#pragma once

#include <stddef.h>

#include <optional>
#include <string>
#include <string_view>

namespace zfiles {

enum class FailedCall {
    access,
    fallocate,
    fchmod,
    fchown,
    fcntl,
    fdatasync,
    fgets,
    fgetxattr,
    fmemopen,
    fopenToRead,
    fopenToUpdate,
    fopenToWrite,
    fopenToWriteText,
    fopencookie,
    fsetxattr,
    fstat,
    fsync,
    ftruncate,
    futimens,
    fwrite,
    getcwd,
    lstat,
    mapFile,
    open,
    read,
    rename,
    store,
    unlink,
    write,
};

// The names in reports, in the order of FailedCall.
inline constexpr char const* kCallNames[] = {
    "access()",   "fallocate()",   "fchmod()",    "fchown()", "fcntl()",   "fdatasync()",
    "fgets()",    "fgetxattr()",   "fmemopen()",  "fopen(r)", "fopen(r+)", "fopen(w)",
    "fopen(wt)",  "fopencookie()", "fsetxattr()", "fstat()",  "fsync()",   "ftruncate()",
    "futimens()", "fwrite()",      "getcwd()",    "lstat()",  "mapFile()", "open()",
    "read()",     "rename()",      "store()",     "unlink()", "write()",
};
static_assert(sizeof kCallNames / sizeof *kCallNames == static_cast<size_t>(FailedCall::write) + 1);

/// Returns the name of a call in reports, such as "fopen(r)".
constexpr char const* callName(FailedCall call)
{
    return kCallNames[static_cast<size_t>(call)];
}

/// Returns the call with a name; empty if no call has it.
inline std::optional<FailedCall> findCall(std::string_view name)
{
    for (size_t i = 0; i < sizeof kCallNames / sizeof *kCallNames; ++i)
        if (name == kCallNames[i])
            return static_cast<FailedCall>(i);
    return {};
}

// A call that failed: the file, the call, the errno.
struct IoError {
    std::string file;
    FailedCall call;
    int error;

    char const* callName() const { return zfiles::callName(call); }
};

}  // namespace zfiles
