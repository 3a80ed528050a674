#include "journal_file.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <utility>

#include "../files/access.h"
#include "../files/shared_file.h"
#include "../files/traits.h"
#include "limits.h"

namespace zstore {

namespace {

constexpr size_t kPieceSize = 512 << 10;  // bytes of a journal that one call writes
constexpr size_t kMaxGathered = 4096;     // bytes of small parts that one call writes
constexpr int kMaxOrphans = 10000;

// Overwrites the checksum of a journal, and waits until every later sync of a file on `disk` makes
// that durable.
int overwriteChecksum(int fd, dev_t disk)
{
    constexpr char kZeros[Journal::kChecksumSize] = "";
    struct stat status;
    if (fstat(fd, &status) != 0)
        return errno;
    off_t const end = status.st_size - static_cast<off_t>(sizeof kZeros);
    if (end > 0)
        if (int const error = writeAllAt(fd, {kZeros, sizeof kZeros}, end))
            return error;
    return flushBeforeLaterSyncs(fd, status.st_dev == disk);
}

// Invalidates the file `expected`, if it still has its name. It is opened through the table of open
// files: it may be a second name of the file that we have locked, and closing a descriptor of our
// own would drop the lock.
int invalidateAt(Directory const& directory, std::string const& name, struct stat const& expected,
                 dev_t disk)
{
    if (!S_ISREG(expected.st_mode) || expected.st_nlink != 1)
        return EPERM;
    SharedFile file;
    int const error = file.openAt(directory.descriptor(), name.c_str(), O_RDWR | O_NOFOLLOW, 0);
    if (error != 0)
        return error;
    struct stat status;
    if (fstat(file.descriptor(), &status) != 0)
        return errno;
    if (!isSameFile(status, expected) || status.st_nlink != 1)
        return EPERM;
    return overwriteChecksum(file.descriptor(), disk);
}

// Returns whether a removal failed because the file is another user's in a sticky directory. Such a
// directory still allows new files.
bool isProtected(Directory const& directory, struct stat const& file, int error)
{
    return (error == EPERM || error == EACCES) && directory.isSticky() && file.st_uid != geteuid();
}

// Removes a temporary file of a crashed writer. Returns EEXIST if it cannot be removed.
int clearLeftover(Directory const& directory, std::string const& name)
{
    struct stat status;
    if (int const error = directory.stat(name, status))
        return error == ENOENT ? 0 : error;
    try {
        invalidateAt(directory, name, status, kNoDisk);  // it may be a complete journal
    } catch (std::bad_alloc const&) {
        return ENOMEM;
    }
    int error = directory.remove(name);
    if (error != 0 && S_ISDIR(status.st_mode))
        error = renameToOrphan(directory, name, status);
    return isProtected(directory, status, error) ? EEXIST : error;
}

}  // namespace

FoundJournal findJournal(MainFile const& main)
{
    Directory const& directory = main.directory;
    std::string const name = main.journalName();
    std::string const path = directory.pathOf(name);
    FoundJournal found;
    if (int const error = directory.stat(name, found.status)) {
        if (error == ENOENT || error == ENAMETOOLONG)
            return found;
        throw IoError{path, FailedCall::lstat, error};
    }
    found.kind = FoundJournal::obstacle;
    if (!S_ISREG(found.status.st_mode))
        return found;
    AccessList ofMain;
    if (int const error = ofMain.read(main.fd))
        throw IoError{main.path, FailedCall::fgetxattr, error};
    SharedFile file;
    int error = file.openAt(directory.descriptor(), name.c_str(), O_RDONLY | O_NOFOLLOW, 0);
    // Any user of the directory may have created a file that we may not open.
    bool const isUnreadable =
        error == EACCES || error == ELOOP || error == EISDIR || error == EINVAL || error == ENOENT;
    if (isUnreadable && !ofMain.mayAllow(found.status.st_uid, kMayWrite))
        return found;
    if (error != 0)
        throw IoError{path, FailedCall::open, error};
    auto journal = std::make_unique<Journal>();
    AccessList list;
    error = list.read(file.descriptor());
    if (error == 0)
        error = readAll(file.descriptor(), maxJournalSize(), journal->bytes);
    if (error != 0)
        throw IoError{path, FailedCall::read, error};
    found.status = list.status();
    uid_t const owner = found.status.st_uid;
    found.isByOwner = owner == 0 || owner == main.status.st_uid || owner == geteuid();
    bool const isTrusted = found.status.st_nlink == 1 &&
                           (found.isByOwner || ofMain.allows(owner, kMayWrite)) &&
                           list.isWithin(ofMain, kMayWrite);
    bool const isComplete = journal->parse();
    if (isComplete)
        found.journal = std::move(journal);
    found.kind = isTrusted ? (isComplete ? FoundJournal::valid : FoundJournal::invalid)
                           : (isComplete ? FoundJournal::foreign : FoundJournal::obstacle);
    return found;
}

int createExclusive(Directory const& directory, std::string const& name)
{
    int const flags = O_RDWR | O_CREAT | O_EXCL;
    int const fd = directory.openFile(name, flags, S_IRUSR | S_IWUSR);
    if (fd >= 0 || errno != EEXIST)
        return fd;
    if (int const error = clearLeftover(directory, name)) {
        errno = error;
        return -1;
    }
    return directory.openFile(name, flags, S_IRUSR | S_IWUSR);
}

int renameToOrphan(Directory const& directory, std::string const& name, struct stat const& expected)
{
    if (int const error = directory.check(name, expected))
        return error;
    std::string aside = name + ".orphan";
    int error = directory.renameWithoutReplacing(name, aside);
    for (int number = 2; error == EEXIST && number < kMaxOrphans; ++number) {
        aside = name + ".orphan." + std::to_string(number);
        error = directory.renameWithoutReplacing(name, aside);
    }
    if (error != 0 || directory.isAt(aside, expected))
        return error;
    directory.renameWithoutReplacing(aside, name);
    return ESTALE;
}

void JournalFile::adopt(struct stat const& status)
{
    status_ = status;
    isPublished_ = true;
}

int JournalFile::create()
{
    fd_.reset(createExclusive(directory_, temporaryName_));
    if (!fd_.isOpen())
        return errno;
    if (fstat(fd_.get(), &status_) == 0)
        return 0;
    int const error = errno;
    directory_.remove(temporaryName_);
    fd_.close();
    return error;
}

int JournalFile::append(std::string_view bytes)
{
    if (gathered_.size() + bytes.size() <= kMaxGathered) {
        crc_ = checksum(bytes, crc_);
        gathered_ += bytes;
        return 0;
    }
    if (int const error = writeGathered())
        return error;
    while (!bytes.empty()) {
        std::string_view const piece = bytes.substr(0, kPieceSize);
        crc_ = checksum(piece, crc_);
        if (int const error = writeAll(fd_.get(), piece))
            return error;
        // The disk writes this piece while the next is prepared; sync() reports failures.
        if (piece.size() == kPieceSize)
            sync_file_range(fd_.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
        bytes = dropPrefix(bytes, piece.size());
    }
    return 0;
}

int JournalFile::finish()
{
    gathered_ += Journal::trailer(crc_);
    return writeGathered();
}

int JournalFile::writeGathered()
{
    int const error = writeAll(fd_.get(), gathered_);
    gathered_.clear();
    return error;
}

// If another file has replaced ours, its writer uses the same names. So only the journal of this
// object gets the name, and no valid journal loses it.
int JournalFile::publish()
{
    if (int const moved = directory_.check(temporaryName_, status_))
        return moved;
    int error = directory_.renameWithoutReplacing(temporaryName_, name_);
    if (error == EEXIST && replaceable_.st_nlink != 0 && directory_.isAt(name_, replaceable_)) {
        error = directory_.rename(temporaryName_, name_);
        // Another user's file in a sticky directory: an obstacle, although names can be created.
        if (error == EPERM || error == EACCES)
            error = EEXIST;
    }
    if (error != 0)
        return error;
    error = directory_.check(name_, status_);
    isPublished_ = error != ESTALE;
    return error;
}

int JournalFile::sync() const
{
    return syncFile(fd_.get());
}

void JournalFile::discard()
{
    if (!fd_.isOpen())
        return;
    overwriteChecksum(fd_.get(), kNoDisk);
    if (directory_.isAt(temporaryName_, status_))
        directory_.remove(temporaryName_);
    fd_.close();
}

// If another file has replaced ours, the name may refer to the journal of its writer. So the
// journal is renamed first: unlike a removal, that can be undone.
int JournalFile::removeOwn() const
{
    int error = directory_.renameWithoutReplacing(name_, temporaryName_);
    if (error == ENOENT)
        return 0;
    if (error != 0) {
        error = directory_.check(name_, status_);
        return error == 0 ? directory_.remove(name_) : error == ESTALE ? 0 : error;
    }
    if (directory_.check(temporaryName_, status_) == ESTALE)
        return directory_.renameWithoutReplacing(temporaryName_, name_);
    error = directory_.remove(temporaryName_);
    if (error != 0)
        error = directory_.remove(temporaryName_);
    if (error != 0)  // the next writer can replace it under its name
        directory_.renameWithoutReplacing(temporaryName_, name_);
    return error;
}

int JournalFile::invalidate(dev_t disk) const
{
    return fd_.isOpen() ? overwriteChecksum(fd_.get(), disk)
                        : invalidateAt(directory_, name_, status_, disk);
}

int JournalFile::retire(dev_t disk, int anyFile)
{
    if (!isPublished_)
        return 0;
    isPublished_ = false;
    int const error = invalidate(disk);
    bool const removed = removeOwn() == 0;
    fd_.close();
    return error == 0 || (removed && directory_.sync(anyFile) == 0) ? 0 : error;
}

}  // namespace zstore
