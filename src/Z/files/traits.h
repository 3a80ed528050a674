// traits: guarantees of a file system that save waits for the disk.
#pragma once

namespace zfiles {

struct FileSystemTraits {
    bool syncsDirectoryEntry = false;  // a sync of a file covers its name, even if it is new
    bool overwritesInPlace = false;    // no copy on write

    explicit FileSystemTraits(int fd);
};

/// Waits until the contents are at least in the cache of the disk, so that every later sync of a
/// file on that disk makes them durable. Returns 0 or an errno. If the later syncs are on another
/// disk, for example because the file is mounted over a file, this waits until they are durable.
int flushBeforeLaterSyncs(int fd, bool isOnSameDisk);

}  // namespace zfiles
