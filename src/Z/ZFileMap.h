// ZFileMap: a shared mapping of a file, or of its first bytes, read-only or read-write.
//
// Subsystem: process locks.  Stands on: ZException, ZLCString.
//
// Ownership: a map owns its mapping and its descriptor, and releases both in its destructor.
// Threads: unsynchronised; callers serialise access to one map.
// Record locks: closing the descriptor drops all record locks that the process holds on the file,
// as every close() does. Do not map a file while the process holds record locks on it.
#pragma once

#include "ZLCString.h"

/// The base of file maps: the file name, the mode and the mapping.
class ZAbstractFileMap_6_0 {
public:
    /// The mode of a mapping. Any other value maps read-write, but neither creates nor extends the
    /// file.
    enum zmapmode : int { readOnly = 0, readWrite = 1 };

    /// Stores the file name; does not open the file.
    /// range   `reserved` is stored and has no effect.
    /// owns    `name` is copied.
    /// throws  ZOutOfMemoryException_6_0.
    ZAbstractFileMap_6_0(ZLCString_6_0 const& name, zmapmode mode, int reserved);

    /// Copies the file name and the mode, but not the mapping.
    ZAbstractFileMap_6_0(ZAbstractFileMap_6_0 const& other);

    /// Does nothing.
    /// kept    an assignment changes neither the file nor the mapping.
    ZAbstractFileMap_6_0& operator=(ZAbstractFileMap_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Maps the first `length` bytes of the file; 0 means all of it.
    virtual void* mapfile(int* err, unsigned long length) = 0;

    /// Removes the mapping and closes the file.
    virtual void unmapfile(int* err) = 0;

    virtual ~ZAbstractFileMap_6_0();

protected:
    ZLCString_6_0 name_;
    zmapmode mode_;
    int reserved_;
    void* address_;         // null if nothing is mapped
    unsigned long length_;  // of the mapping, in bytes
};

/// A file map over mmap().
class ZUnixFileMap_6_0 : public ZAbstractFileMap_6_0 {
public:
    /// Stores the file name; does not open the file.
    /// range   `reserved` is stored and has no effect.
    /// owns    `name` is copied.
    /// throws  ZOutOfMemoryException_6_0.
    ZUnixFileMap_6_0(ZLCString_6_0 const& name, zmapmode mode, int reserved);

    /// Copies the file name and the mode, but not the mapping.
    ZUnixFileMap_6_0(ZUnixFileMap_6_0 const& other);

    /// Copies nothing. If `other` is a different object with a mapping, maps this object's own file
    /// as mapfile() with `length` 0 does.
    /// kept    a failure is not reported.
    ZUnixFileMap_6_0& operator=(ZUnixFileMap_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Maps the first `length` bytes of the file and returns their address, or null.
    ///
    /// Removes an existing mapping first. In readWrite mode, creates a missing file (mode 0600) and
    /// extends a shorter file to `length`, allocating its disk space.
    /// range   `length` 0 means the file's size. In other modes, `length` may exceed the file's
    ///         size. Accessing memory past the file's last page raises SIGBUS, even if the file was
    ///         long enough and another process has truncated it since. `err` may be null.
    /// owns    borrowed until unmapfile() or destruction.
    /// codes   `*err` is 0, or: 22 (EINVAL) if `length` is 0 and the file is missing or empty;
    ///         EFBIG if the file would exceed the file-size limit of the process (no SIGXFSZ is
    ///         delivered); else the errno of the failed call. Nothing is mapped or open then,
    ///         except an old mapping that could not be removed. A failed extension leaves the
    ///         file's length unchanged if the file system supports FALLOC_FL_KEEP_SIZE.
    /// kept    an empty file is treated as missing. If the process has closed descriptor 0, open()
    ///         returns 0, which means no open file here: the result is null, although `*err` may
    ///         be 0.
    void* mapfile(int* err, unsigned long length) override;

    /// Removes the mapping and closes the file.
    /// range   `err` may be null.
    /// codes   `*err` is the errno of munmap() or close() if one of them fails, else unchanged.
    void unmapfile(int* err) override;

    ~ZUnixFileMap_6_0() override;

private:
    int descriptor_;  // 0 means no open file
};
