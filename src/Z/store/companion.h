// companion: decides which file a configuration file can use for its obfuscated values.
//
// A file that only we can write can name any companion. Any other file can only use the companion
// of its path, "<path>.obf", and only if that is a regular file with one link and the owner of the
// file. No file can name itself or its journal.
//
// Every check uses an open file or the descriptor of its directory.
#pragma once

#include <sys/stat.h>

#include <string>

#include "main_file.h"
#include "names.h"

namespace zstore {

// zlib adds less than 1 MiB to 256 MiB, the limit of an expanded companion.
constexpr size_t kMaxCompanionSize = size_t{257} << 20;

/// Returns `path` if it is absolute, else the working directory and `path`.
/// throws  IoError (path, "getcwd()", errno).
std::string absolutePath(std::string const& path);

/// Returns ".obf" appended to `path`, made absolute.
/// throws  IoError (path, "getcwd()", errno).
std::string defaultCompanionPath(std::string const& path);

/// Returns whether the contents can be a companion's: empty, or the start of a zlib stream.
bool looksCompressed(std::string_view bytes);

class CompanionFile {
public:
    /// Opens the directory of the companion at `path`. It may be missing.
    /// throws  std::bad_alloc.
    CompanionFile(MainFile const& main, std::string const& path);
    CompanionFile(CompanionFile const&) = delete;
    CompanionFile& operator=(CompanionFile const&) = delete;

    std::string const& path() const { return path_; }
    std::string const& name() const { return name_; }
    Directory const& directory() const { return *directory_; }

    /// Returns 0, or the errno of opening its directory.
    int directoryError() const { return directoryError_; }

    /// Returns whether this is the companion of the main file's path. Stores remove no other file.
    bool isOwn() const { return isOwn_; }

    /// Returns 0, or the errno of opening its directory if this file may belong to the path of the
    /// main file, although isOwn() is false: it has the right name.
    int ownershipError() const;

    /// Returns 0 if the main file can use this companion, EPERM if not, or an errno if that cannot
    /// be determined.
    int check() const;

    /// Returns whether the file exists, and sets `status`. A link at the name is followed if the
    /// main file can use any companion.
    bool exists(struct stat& status) const;

    /// Opens the companion and checks it again, on its descriptor.
    /// codes   ENOENT if it is missing; EPERM as check(); EISDIR or EINVAL for anything but a
    ///         regular file; else the errno of the call.
    /// throws  std::bad_alloc.
    int openForReading(SharedFile& file) const;

    /// Opens the companion for writing in place: only a regular file with one link; no symbolic
    /// link is followed.
    /// codes   as openForReading(); EMLINK; ELOOP.
    int openForWriting(SharedFile& file) const;

private:
    bool isReserved() const;
    int checkStatus(struct stat const& status) const;
    int checkOpen(SharedFile& file) const;

    MainFile const& main_;
    std::string const path_;
    std::string const name_;
    bool isOwn_ = false;
    Directory elsewhere_;
    Directory const* directory_ = &elsewhere_;
    int directoryError_ = 0;
};

}  // namespace zstore
