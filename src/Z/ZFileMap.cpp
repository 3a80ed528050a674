#include "ZFileMap.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files/shared_file.h"
#include "files/size_signal_guard.h"
#include "reporting/cancellation.h"

namespace {

constexpr mode_t kCreateMode = 0600;

// Extends the file to `length` bytes and allocates their disk space: writing through a mapping of a
// file with holes kills the process if the disk is full. Returns 0 or an errno.
int extend(int fd, unsigned long size, unsigned long length)
{
    if (length > LONG_MAX)
        return EFBIG;
    // Some file systems allocate space past the file-size limit; it would stay allocated although
    // the file cannot be extended.
    rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur < length)
        return EFBIG;
    zfiles::SizeSignalGuard const noSignal;
    auto const from = static_cast<off_t>(size);
    auto const more = static_cast<off_t>(length - size);
    // Allocate the space first and extend the file only if that succeeds: a failed extension must
    // not be undone by truncation, because another process may have extended the file since.
    int rc = 0;
    do {
        rc = fallocate(fd, FALLOC_FL_KEEP_SIZE, from, more) == 0 ? 0 : errno;
    } while (rc == EINTR);
    if (rc != 0 && rc != EOPNOTSUPP)
        return rc;
    do {
        rc = posix_fallocate(fd, from, more);
    } while (rc == EINTR);
    return rc;
}

// Opens a file and returns a descriptor, or -1 with errno. Never returns 1 or 2: if the process has
// closed its standard output or error, their output must not be written into the mapped file.
int openForMapping(char const* name, int flags)
{
    int fd = open(name, flags, kCreateMode);
    // The kernel may refuse O_CREAT for an existing file of another user in a sticky directory
    // (fs.protected_regular), even to root.
    if (fd < 0 && errno == EACCES && (flags & O_CREAT) != 0) {
        fd = open(name, flags & ~O_CREAT);
        if (fd < 0)
            errno = EACCES;
    }
    return fd > STDIN_FILENO ? zfiles::moveAboveStdio(fd) : fd;
}

// Maps the first `length` bytes of a file. Returns 0 and sets `address`, or returns an errno.
int mapShared(int fd, unsigned long length, bool writable, void*& address)
{
    int const protection = writable ? PROT_READ | PROT_WRITE : PROT_READ;
    void* const mapped = mmap(nullptr, length, protection, MAP_SHARED, fd, 0);
    if (mapped == MAP_FAILED)
        return errno;
    address = mapped;
    return 0;
}

}  // namespace

ZAbstractFileMap_6_0::ZAbstractFileMap_6_0(ZLCString_6_0 const& name, zmapmode mode, int reserved)
    : name_(name), mode_(mode), reserved_(reserved), address_(nullptr), length_(0)
{
}

ZAbstractFileMap_6_0::ZAbstractFileMap_6_0(ZAbstractFileMap_6_0 const& other)
    : ZAbstractFileMap_6_0(other.name_, other.mode_, other.reserved_)
{
}

ZAbstractFileMap_6_0& ZAbstractFileMap_6_0::operator=(ZAbstractFileMap_6_0 const&)
{
    // KEPT: copies nothing. The target keeps its mapping: a program that reads through its address
    // would read unmapped memory if an assignment replaced the mapping.
    // Test: ZFileMap.KeepsItsOwnFileWhenAssignedTo
    return *this;
}

ZAbstractFileMap_6_0::~ZAbstractFileMap_6_0() = default;

ZUnixFileMap_6_0::ZUnixFileMap_6_0(ZLCString_6_0 const& name, zmapmode mode, int reserved)
    : ZAbstractFileMap_6_0(name, mode, reserved), descriptor_(0)
{
}

ZUnixFileMap_6_0::ZUnixFileMap_6_0(ZUnixFileMap_6_0 const& other)
    : ZAbstractFileMap_6_0(other), descriptor_(0)
{
}

ZUnixFileMap_6_0& ZUnixFileMap_6_0::operator=(ZUnixFileMap_6_0 const& other)
{
    // KEPT: assigning an object with a mapping maps this object's own file. A program that writes
    // through the target after the assignment writes to the target's file; with the name copied it
    // would overwrite the source's. Test: ZFileMap.KeepsItsOwnFileWhenAssignedTo
    if (this != &other && other.address_ != nullptr) {
        int ignored = 0;
        mapfile(&ignored, 0);
    }
    return *this;
}

void* ZUnixFileMap_6_0::mapfile(int* err, unsigned long length)
{
    zreporting::CancelGuard const uncancelled;
    int scratch = 0;
    int& code = err != nullptr ? *err : scratch;
    unmapfile(&scratch);
    // Keep a mapping that could not be removed, so that unmapfile() can be called again.
    code = address_ != nullptr ? scratch : 0;
    if (code != 0)
        return nullptr;

    struct stat status;
    bool const isThere = stat(name_.getChars(), &status) == 0;
    auto size = isThere ? static_cast<unsigned long>(status.st_size) : 0;
    // KEPT: an empty file, and a file that stat() fails for, are treated as missing: both are
    // created and extended. A program that creates an empty file and then maps it read-write, to
    // fill it, would have no memory to fill if only missing files were extended.
    // Test: ZFileMap.KeepsAnEmptyFileEquivalentToAMissingOne
    code = size == 0 ? ENOENT : 0;
    if (length == 0 && size == 0) {
        code = EINVAL;
        return nullptr;
    }

    bool const writable = mode_ != readOnly;
    int flags = (writable ? O_RDWR : O_RDONLY) | O_NONBLOCK | O_CLOEXEC;
    if (code == ENOENT && mode_ == readWrite)
        flags |= O_CREAT;
    int const fd = openForMapping(name_.getChars(), flags);
    if (fd < 0) {
        code = errno;
        return nullptr;
    }
    // KEPT: fails if open() returns descriptor 0, because descriptor_ 0 means no open file; the
    // code stays. In a daemon that has closed its standard input, the mapped file would otherwise
    // become the standard input, and the next read of it would read the file.
    // Test: ZFileMap.KeepsDescriptorZeroAFailure
    if (fd == 0) {
        close(fd);
        return nullptr;
    }

    // The file may have been replaced or changed between stat() and open(): use only the open file
    // from here on.
    descriptor_ = fd;
    code = fstat(fd, &status) == 0 ? 0 : errno;
    if (code == 0) {
        size = static_cast<unsigned long>(status.st_size);
        length_ = length != 0 ? length : size;
        if (length_ == 0)
            code = EINVAL;
        else if (mode_ == readWrite && length_ > size)
            code = extend(fd, size, length_);
    }
    if (code == 0)
        code = mapShared(fd, length_, writable, address_);
    if (code != 0)
        unmapfile(&scratch);
    return address_;
}

void ZUnixFileMap_6_0::unmapfile(int* err)
{
    zreporting::CancelGuard const uncancelled;
    int scratch = 0;
    int& code = err != nullptr ? *err : scratch;
    if (address_ != nullptr) {
        if (munmap(address_, length_) == 0)
            address_ = nullptr;
        else
            code = errno;
    }
    if (descriptor_ != 0) {
        // A failed close() releases the descriptor too: a second close() could close a file that
        // another thread has opened since.
        if (close(descriptor_) != 0)
            code = errno;
        descriptor_ = 0;
    }
}

ZUnixFileMap_6_0::~ZUnixFileMap_6_0()
{
    int ignored = 0;
    unmapfile(&ignored);
}
