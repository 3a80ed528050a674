#include "traits.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>

#include "system_calls.h"

namespace zfiles {

// ext2 has the same number as ext4, but neither a log nor extents.
FileSystemTraits::FileSystemTraits(int fd)
{
    struct statfs system;
    if (fstatfs(fd, &system) != 0)
        return;
    int flags = 0;
    bool const ext4 = system.f_type == EXT4_SUPER_MAGIC &&
                      ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0 &&
                      (flags & (FS_EXTENT_FL | FS_INLINE_DATA_FL)) == FS_EXTENT_FL;
    overwritesInPlace = ext4 || system.f_type == XFS_SUPER_MAGIC;
    syncsDirectoryEntry = overwritesInPlace || system.f_type == BTRFS_SUPER_MAGIC;
}

int flushBeforeLaterSyncs(int fd, bool isOnSameDisk)
{
    if (!isOnSameDisk || !FileSystemTraits(fd).overwritesInPlace)
        return syncContents(fd);
    // A later sync flushes the cache of the disk.
    return retryOnEintr([fd] {
        return sync_file_range(
            fd, 0, 0,
            SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
    });
}

}  // namespace zfiles
