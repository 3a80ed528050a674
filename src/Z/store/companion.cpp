#include "companion.h"

#include <errno.h>
#include <unistd.h>
#include <zlib.h>

#include "../files/access.h"

namespace zstore {

namespace {

// Returns whether opening a directory may succeed later.
bool isTransient(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == EIO;
}

}  // namespace

std::string absolutePath(std::string const& path)
{
    if (path[0] == '/')
        return path;
    char directory[4096];
    if (getcwd(directory, sizeof directory) == nullptr)
        throw IoError{path, FailedCall::getcwd, errno};
    return std::string(directory) + "/" + path;
}

std::string defaultCompanionPath(std::string const& path)
{
    return absolutePath(path) + kCompanionSuffix;
}

bool looksCompressed(std::string_view bytes)
{
    if (bytes.size() < 2)
        return bytes.empty();
    auto const first = static_cast<unsigned char>(bytes[0]);
    auto const second = static_cast<unsigned char>(bytes[1]);
    constexpr int kPresetDictionary = 0x20;  // no store uses one; text may have the bit: "x = 1"
    return (first & 0x0F) == Z_DEFLATED && (second & kPresetDictionary) == 0 &&
           (first * 256 + second) % 31 == 0;
}

CompanionFile::CompanionFile(MainFile const& main, std::string const& path)
    : main_(main), path_(path), name_(namePart(path))
{
    // Use the open directory of the main file: its path may refer to another directory by now.
    std::string const directory = directoryPart(path);
    if (main.isInDirectory(directory)) {
        directory_ = &main.directory;
        isOwn_ = name_ == main.name + kCompanionSuffix ||
                 (directory == directoryPart(main.path) &&
                  name_ == namePart(main.path) + kCompanionSuffix);
        return;
    }
    bool isMain = false;
    directoryError_ = elsewhere_.openFollowingLinks(directory);
    if (directoryError_ == 0)
        directoryError_ = elsewhere_.compare(main.directory, isMain);
    if (directoryError_ != 0)
        return;
    if (isMain) {
        directory_ = &main.directory;
        isOwn_ = name_ == main.name + kCompanionSuffix;
    }
    if (!isOwn_ && name_ == namePart(main.path) + kCompanionSuffix) {
        Directory given;  // differs if the given path is a link
        int error = given.openFollowingLinks(directoryPart(main.path));
        if (error == 0)
            error = elsewhere_.compare(given, isOwn_);
        if (isTransient(error))
            directoryError_ = error;
    }
}

int CompanionFile::ownershipError() const
{
    bool const leadsNowhere = directoryError_ == ENOENT || directoryError_ == ENOTDIR ||
                              directoryError_ == ELOOP || directoryError_ == ENAMETOOLONG;
    bool const hasOwnName =
        name_ == main_.name + kCompanionSuffix || name_ == namePart(main_.path) + kCompanionSuffix;
    return isOwn_ || leadsNowhere || !hasOwnName ? 0 : directoryError_;
}

// Returns whether stores of the main file use this name for the journal or a new file, or use the
// name of the main file for a new companion.
bool CompanionFile::isReserved() const
{
    if (directory_ != &main_.directory)
        return false;
    std::string const journal = main_.journalName();
    return name_ == journal || name_ == journal + kNewSuffix || name_ == main_.replacementName() ||
           hiddenSibling(name_, kNewSuffix) == main_.name;
}

int CompanionFile::check() const
{
    struct stat target;
    bool const isMain = directoryError_ == 0 &&
                        fstatat(directory_->descriptor(), name_.c_str(), &target, 0) == 0 &&
                        isSameFile(target, main_.status);
    if (isReserved() || isMain)
        return EPERM;
    if (onlyWeCanWrite(main_.status))
        return 0;
    if (!isOwn_)
        return isTransient(directoryError_) ? directoryError_ : EPERM;
    struct stat status;
    int const error = directory_->stat(name_, status);
    if (error != 0)
        return error == ENOENT ? 0 : error;
    return checkStatus(status);
}

int CompanionFile::checkStatus(struct stat const& status) const
{
    if (isSameFile(status, main_.status))
        return EPERM;
    if (onlyWeCanWrite(main_.status))
        return 0;
    return S_ISREG(status.st_mode) && status.st_nlink == 1 && status.st_uid == main_.status.st_uid
               ? 0
               : EPERM;
}

bool CompanionFile::exists(struct stat& status) const
{
    int const links = onlyWeCanWrite(main_.status) ? 0 : AT_SYMLINK_NOFOLLOW;
    return directoryError_ == 0 &&
           fstatat(directory_->descriptor(), name_.c_str(), &status, links) == 0;
}

int CompanionFile::openForReading(SharedFile& file) const
{
    if (int const error = check())
        return error;
    if (directoryError_ != 0)
        return directoryError_;
    int const links = onlyWeCanWrite(main_.status) ? 0 : O_NOFOLLOW;
    int const error = file.openAt(directory_->descriptor(), name_.c_str(), O_RDONLY | links, 0);
    return error != 0 ? error : checkOpen(file);
}

int CompanionFile::checkOpen(SharedFile& file) const
{
    struct stat status;
    int const error = fstat(file.descriptor(), &status) != 0 ? errno : checkStatus(status);
    if (error != 0)
        file.close();
    return error;
}

int CompanionFile::openForWriting(SharedFile& file) const
{
    if (directoryError_ != 0)
        return directoryError_;
    int error = file.openAt(directory_->descriptor(), name_.c_str(), O_RDWR | O_NOFOLLOW, 0);
    if (error != 0)
        return error;
    struct stat status;
    error = checkOpen(file);
    if (error == 0 && fstat(file.descriptor(), &status) == 0 && status.st_nlink != 1)
        error = EMLINK;
    if (error != 0)
        file.close();
    return error;
}

}  // namespace zstore
