#include "replacement.h"

#include <errno.h>
#include <fcntl.h>

#include "journal_file.h"

namespace zstore {

Replacement::Replacement(MainFile& main)
    : main_(main), name_(main.replacementName()), path_(main.pathOf(name_)), old_(main.status)
{
}

// A hidden file that another writer has locked is not a leftover: it is the writer's new file, or
// an editor's file that the writer is about to exchange back.
int Replacement::checkLeftover() const
{
    Directory const& directory = main_.directory;
    struct stat status;
    if (directory.stat(name_, status) != 0 || !S_ISREG(status.st_mode))
        return 0;
    if (isSameFile(status, main_.status))
        return ESTALE;
    SharedFile leftover;
    if (leftover.openAt(directory.descriptor(), name_.c_str(), O_RDWR | O_NOFOLLOW, 0) != 0)
        return 0;
    int const error = leftover.lock(F_WRLCK, 0, 0);
    return error == EAGAIN || error == EACCES || error == EDEADLK ? ESTALE : 0;
}

int Replacement::prepare(AccessList const& access, std::string_view text, FailedCall& call)
{
    call = FailedCall::fopenToUpdate;
    if (int const error = checkLeftover())
        return error;
    isPrepared_ = true;
    return create(access, text, main_.replacement, new_, call);
}

// Creates the hidden file, locked, in `file`. Sets `status` to the status of the created file, even
// if this fails later.
int Replacement::create(AccessList const& access, std::string_view text, SharedFile& file,
                        struct stat& status, FailedCall& call)
{
    Directory const& directory = main_.directory;
    ScopedFd fd(createExclusive(directory, name_));
    call = FailedCall::open;
    if (!fd.isOpen())
        return errno;
    if (fstat(fd.get(), &status) != 0) {
        int const error = errno;
        directory.remove(name_);
        return error;
    }
    bool owned = false;
    call = FailedCall::fchmod;
    if (int const error = access.copyTo(fd.get(), owned))
        return error;
    // A new file with other rights than the old file must not get its name.
    call = FailedCall::fsetxattr;
    AccessList list;
    if (access.isExtended() && (list.read(fd.get()) != 0 || !list.isExtended()))
        return EINVAL;
    call = FailedCall::fchown;
    struct stat given;
    if (!owned || fstat(fd.get(), &given) != 0 || given.st_gid != old_.st_gid ||
        ((given.st_mode ^ old_.st_mode) & kPermissions) != 0)
        return EPERM;
    call = FailedCall::fsetxattr;
    if (int const error = copyAttributes(main_.fd, fd.get()))
        return error;
    call = FailedCall::write;
    if (int const error = writeAll(fd.get(), text))
        return error;
    call = FailedCall::fsync;
    if (int const error = syncFile(fd.get()))
        return error;
    // Closing a descriptor drops all locks of the file: close this one before locking.
    fd.close();
    call = FailedCall::open;
    if (int const error =
            file.openAt(directory.descriptor(), name_.c_str(), O_RDWR | O_NOFOLLOW, 0))
        return error;
    call = FailedCall::fcntl;
    if (int const error = file.lock(F_WRLCK, 0, 0))
        return error;
    call = FailedCall::fstat;
    struct stat locked;
    if (fstat(file.descriptor(), &locked) != 0)
        return errno;
    if (!isSameFile(locked, status))
        return ESTALE;
    status = locked;
    return 0;
}

int Replacement::publish()
{
    Directory const& directory = main_.directory;
    int error = directory.exchange(name_, main_.name);
    keepsOld_ = error == 0;
    if (error == EINVAL || error == ENOSYS) {  // not on this file system
        error = main_.checkName();
        if (error == 0)
            error = directory.rename(name_, main_.name);
    }
    if (error != 0)
        return error;
    isPublished_ = true;
    // An editor may have replaced the file. If that was after the exchange, its file keeps the
    // name; if before, its file got the hidden name and is exchanged back.
    if (directory.check(main_.name, new_) == ESTALE)
        return ESTALE;
    if (keepsOld_ && directory.check(name_, old_) == ESTALE) {
        if (exchangeBack() == 0)
            isPublished_ = false;
        return ESTALE;
    }
    use(main_.replacement, new_);
    return directory.sync(main_.fd);
}

// Exchanges the files back; returns ESTALE if an editor has replaced the new file. The check
// follows the exchange, because an editor could replace the file after a check before it.
int Replacement::exchangeBack()
{
    Directory const& directory = main_.directory;
    if (int const error = directory.exchange(name_, main_.name))
        return error;
    if (directory.check(name_, new_) != ESTALE)
        return 0;
    int const error = directory.exchange(name_, main_.name);
    return error != 0 ? error : ESTALE;
}

// Renames another new file, with the old text, over the new one.
int Replacement::replaceBack(AccessList const& access, std::string_view oldText)
{
    Directory const& directory = main_.directory;
    FailedCall call{};
    struct stat status = {};
    int error = create(access, oldText, restored_, status, call);
    if (error == 0)
        error = directory.check(main_.name, new_);
    if (error == 0)
        error = directory.rename(name_, main_.name);
    if (error != 0 && directory.isAt(name_, status))
        directory.remove(name_);
    return error;
}

int Replacement::revert(AccessList const& access, std::string_view oldText, bool& isDurable)
{
    isDurable = true;
    if (!isPublished_)
        return 0;
    Directory const& directory = main_.directory;
    if (directory.check(main_.name, new_) == ESTALE)
        return 0;
    if (int const error = keepsOld_ ? exchangeBack() : replaceBack(access, oldText))
        return error == ESTALE ? 0 : error;
    isPublished_ = false;
    if (keepsOld_)
        use(main_.file, old_);
    isDurable = directory.sync(main_.fd) == 0;
    return 0;
}

void Replacement::removeHidden()
{
    if (isPrepared_ && (main_.directory.isAt(name_, new_) || main_.directory.isAt(name_, old_)))
        main_.directory.remove(name_);
}

void Replacement::use(SharedFile const& file, struct stat const& status)
{
    main_.fd = file.descriptor();
    main_.status = status;
}

}  // namespace zstore
