// access: owners and modes of the files next to a configuration file.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

namespace zstore {

constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;

/// Returns whether we own the file and are the only user who can write it.
bool onlyWeCanWrite(struct stat const& status);

/// Returns whether a journal with `status` can be used for the file `main`: a regular file with one
/// link, owned by the owner of the file, by root or by us, and writable by nobody who cannot write
/// the file.
bool isTrustedJournal(struct stat const& status, struct stat const& main);

/// Gives a new, empty file the owner, group and mode of `model`. Returns 0 or an errno. If we
/// cannot give it to the owner, group and others get no access, unless we can give it to the group.
/// `owned` reports whether the owner was set.
int copyOwnerAndMode(int fd, struct stat const& model, bool& owned);

/// Returns whether a directory refuses new files, by the errno of creating one.
bool isRefusal(int error);

}  // namespace zstore
