// directory: one directory, and files in it by name.
//
// A Directory holds a descriptor, so all steps of a store happen in the same directory even if its
// path comes to refer to another directory. No function follows a symbolic link at the name.
#pragma once

#include <sys/stat.h>

#include <string>

#include "system_calls.h"

namespace zfiles {

/// Returns the directory part of a path, "." for a bare name.
std::string directoryPart(std::string const& path);
std::string namePart(std::string const& path);

/// Returns ".<name><suffix>".
std::string hiddenSibling(std::string const& name, char const* suffix);

class Directory {
public:
    Directory() = default;

    /// Opens a directory by a path without symbolic links. Returns 0 or an errno: ELOOP or ENOTDIR
    /// if the path has a link by now.
    int openResolved(std::string const& path);

    /// Opens a directory; links in its path are followed.
    int openFollowingLinks(std::string const& path);

    int descriptor() const { return fd_.get(); }
    std::string pathOf(std::string const& name) const;

    // Each returns 0 or an errno.
    int stat(std::string const& name, struct stat& status) const;
    int check(std::string const& name, struct stat const& file) const;  // ESTALE: another file
    int compare(Directory const& other, bool& isSame) const;
    bool isAt(std::string const& name, struct stat const& file) const
    {
        return check(name, file) == 0;
    }
    int rename(std::string const& from, std::string const& to) const;
    int exchange(std::string const& a, std::string const& b) const;
    int renameWithoutReplacing(std::string const& from, std::string const& to) const;
    int remove(std::string const& name) const;  // a missing file is no failure

    /// Returns whether only owners can remove files of the directory; false if that is unknown.
    bool isSticky() const;

    /// Opens a file and returns a descriptor of at least 3; -1 with errno if that fails. Use it
    /// only for files that this process has not locked: closing the descriptor would drop the
    /// locks.
    int openFile(std::string const& name, int flags, mode_t mode) const;

    /// Waits until the entries of the directory are durable. If the directory cannot be opened for
    /// reading, syncs the whole file system of `anyFile`, a descriptor.
    int sync(int anyFile) const;

private:
    int adopt(int fd, std::string&& path);

    ScopedFd fd_;
    std::string path_;
};

}  // namespace zfiles
