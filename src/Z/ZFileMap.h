// ZFileMap: a file, or its first bytes, as shared memory; read only, or read-write.
//
// Subsystem: process locks.  Stands on: ZException, ZLCString.
//
// Ownership: a map owns its mapping and its descriptor, and gives both back when it is destroyed.
// Threads: unsynchronised; callers serialise access to one map.
// Giving the descriptor back drops the record locks that the process holds on the file, as every
// close() does: a file that is locked for others to see is not mapped besides.
#pragma once

#include "ZLCString.h"

/// What every file map has: the file's name, how it is mapped, and the mapping.
class ZAbstractFileMap_6_0 {
public:
    /// How a file is mapped. Any other non-zero value maps read-write and never creates or
    /// extends the file.
    enum zmapmode : int { readOnly = 0, readWrite = 1 };

    /// Names the file; nothing is opened.
    /// range   `reserved` is kept with the object and has no effect.
    /// owns    `name` is copied.
    /// throws  ZOutOfMemoryException_6_0.
    ZAbstractFileMap_6_0(ZLCString_6_0 const& name, zmapmode mode, int reserved);

    /// Names the same file; nothing is mapped.
    ZAbstractFileMap_6_0(ZAbstractFileMap_6_0 const& other);

    /// Does nothing.
    /// kept    a map keeps its file and its mapping when it is assigned to.
    ZAbstractFileMap_6_0& operator=(ZAbstractFileMap_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Maps the first `length` bytes of the file; 0 means all of it.
    virtual void* mapfile(int* err, unsigned long length) = 0;

    /// Takes the mapping back and closes the file.
    virtual void unmapfile(int* err) = 0;

    virtual ~ZAbstractFileMap_6_0();

protected:
    ZLCString_6_0 name_;
    zmapmode mode_;
    int reserved_;
    void* address_;         // null when nothing is mapped
    unsigned long length_;  // bytes mapped
};

/// A file map over mmap().
class ZUnixFileMap_6_0 : public ZAbstractFileMap_6_0 {
public:
    /// Names the file; nothing is opened.
    /// range   `reserved` is kept with the object and has no effect.
    /// owns    `name` is copied.
    /// throws  ZOutOfMemoryException_6_0.
    ZUnixFileMap_6_0(ZLCString_6_0 const& name, zmapmode mode, int reserved);

    /// Names the same file; nothing is mapped.
    ZUnixFileMap_6_0(ZUnixFileMap_6_0 const& other);

    /// Maps this object's own file, whole, when `other` has a mapping; copies nothing.
    /// kept    a failure is not reported.
    ZUnixFileMap_6_0& operator=(ZUnixFileMap_6_0 const& other);

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Maps the first `length` bytes of the file and returns their address, or null.
    ///
    /// A map that holds a mapping gives that back first. Read-write, a missing or empty file is
    /// created (mode 0600) and a shorter one extended to `length`, with its room on the disk.
    /// range   `length` 0 means the file's size; where nothing is extended it may pass that. To
    ///         touch what lies beyond the file's last page ends the process (SIGBUS), also after
    ///         another process has cut the file. `err` may be null.
    /// owns    borrowed until unmapfile() or destruction.
    /// codes   `*err` is 0, or: 22 (EINVAL) when there is nothing to map, which is also how an
    ///         empty file answers to a length of 0; EFBIG when the file would exceed the file-size
    ///         limit of the process (no SIGXFSZ is delivered); else the errno of what failed.
    ///         Nothing stays mapped or open then, but for an old mapping that could not be given
    ///         back; a file that could not be extended keeps its length where the file system can
    ///         reserve room.
    /// kept    an empty file counts as missing. In a process without a standard input the file gets
    ///         its descriptor, 0, which counts as none: null is returned and the code may be 0.
    void* mapfile(int* err, unsigned long length) override;

    /// Takes the mapping back and closes the file.
    /// range   `err` may be null.
    /// codes   `*err` is the errno of munmap() or close() when one fails, and else untouched.
    void unmapfile(int* err) override;

    ~ZUnixFileMap_6_0() override;

private:
    int descriptor_;  // 0 means no open file
};
