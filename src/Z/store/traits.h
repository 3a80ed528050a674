// traits: guarantees of a file system that save a wait for the disk.
#pragma once

#include <sys/types.h>

namespace zstore {

struct FileSystemTraits {
    bool syncsDirectoryEntry = false;  // a sync of a file covers its name, also a new one
    bool overwritesInPlace = false;    // no copy on write

    explicit FileSystemTraits(int fd);
};

/// Waits until the contents are at least in the cache of the disk, so that every later sync of a
/// file on `disk` makes them durable. Returns 0 or an errno. A file and its directory may be on
/// different disks: one file can be mounted over another.
int flushBeforeLaterSyncs(int fd, dev_t disk);

}  // namespace zstore
