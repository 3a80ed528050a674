// traits: guarantees of a file system that save waits for the disk.
#pragma once

#include <sys/types.h>

namespace zfiles {

struct FileSystemTraits {
    bool syncsDirectoryEntry = false;  // a sync of a file covers its name, even if it is new
    bool overwritesInPlace = false;    // no copy on write

    explicit FileSystemTraits(int fd);
};

/// Waits until the contents are at least in the cache of the disk, so that every later sync of a
/// file on `disk` makes them durable. Returns 0 or an errno. If the file is on another disk, for
/// example because it is mounted over a file, this waits until they are durable.
int flushBeforeLaterSyncs(int fd, dev_t disk);

}  // namespace zfiles
