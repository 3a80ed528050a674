// io_error: the failure of a call on a file.
#pragma once

#include <string>

namespace zfiles {

// In the order of the names in io_error.cpp.
enum class FailedCall {
    access,
    fallocate,
    fchmod,
    fchown,
    fcntl,
    fdatasync,
    fgetxattr,
    fmemopen,
    fopenToRead,
    fopenToUpdate,
    fopenToWrite,
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
    unlink,
    write,
};

// A call that failed: the file, the call, the errno.
struct IoError {
    std::string file;
    FailedCall call;
    int error;

    /// Returns the name of the call in reports, such as "fopen(r)".
    char const* callName() const;
};

}  // namespace zfiles
