#include "replacement.h"

#include <errno.h>
#include <fcntl.h>

#include "journal_file.h"

namespace zstore {

Replacement::Replacement(MainFile& main)
    : main_(main), name_(main.replacementName()), path_(main.pathOf(name_)), old_(main.status)
{
}

// A file that another writer has locked is its new file, or the file of an editor that the writer
// is about to exchange back: it is not a leftover.
int Replacement::checkLeftover() const
{
    Directory const& directory = main_.directory;
    struct stat status;
    if (directory.stat(name_, status) != 0 || !S_ISREG(status.st_mode))
        return 0;
    if (isSameFile(status, main_.status))
        return ESTALE;
    ZSharedFile leftover;
    if (leftover.openAt(directory.descriptor(), name_.c_str(), O_RDWR | O_NOFOLLOW, 0) != 0)
        return 0;
    int const error = leftover.lock(F_WRLCK, 0, 0);
    return error == EAGAIN || error == EACCES || error == EDEADLK ? ESTALE : 0;
}

int Replacement::prepare(AccessList const& access, std::string_view text, char const*& call)
{
    Directory const& directory = main_.directory;
    call = "fopen(r+)";
    if (int const error = checkLeftover())
        return error;
    ScopedFd fd(createExclusive(directory, name_));
    call = "open()";
    if (!fd.isOpen())
        return errno;
    isPrepared_ = true;
    if (fstat(fd.get(), &new_) != 0) {
        int const error = errno;
        directory.remove(name_);
        return error;
    }
    bool owned = false;
    call = "fchmod()";
    if (int const error = access.copyTo(fd.get(), owned))
        return error;
    // A new file that grants other rights than the old one must not take its name.
    call = "fchown()";
    struct stat given;
    if (!owned || fstat(fd.get(), &given) != 0 || given.st_gid != old_.st_gid ||
        ((given.st_mode ^ old_.st_mode) & kPermissions) != 0)
        return EPERM;
    call = "fsetxattr()";
    if (int const error = copyAttributes(main_.fd, fd.get()))
        return error;
    call = "write()";
    if (int const error = writeAll(fd.get(), text))
        return error;
    call = "fsync()";
    if (int const error = syncFile(fd.get()))
        return error;
    // Closing a descriptor drops all locks of the file: this one first.
    fd.close();
    call = "open()";
    if (int const error =
            main_.replacement.openAt(directory.descriptor(), name_.c_str(), O_RDWR | O_NOFOLLOW, 0))
        return error;
    call = "fcntl()";
    if (int const error = main_.replacement.lock(F_WRLCK, 0, 0))
        return error;
    call = "fstat()";
    dev_t const device = new_.st_dev;
    ino_t const inode = new_.st_ino;
    if (fstat(main_.replacement.descriptor(), &new_) != 0)
        return errno;
    return new_.st_dev == device && new_.st_ino == inode ? 0 : ESTALE;
}

int Replacement::publish()
{
    Directory const& directory = main_.directory;
    int error = directory.exchange(name_, main_.name);
    keepsOld_ = error == 0;
    if (error == EINVAL || error == ENOSYS)  // not on this file system
        error = directory.rename(name_, main_.name);
    if (error != 0)
        return error;
    isPublished_ = true;
    // An editor may have replaced the file meanwhile: after the exchange its file keeps the name,
    // before the exchange its file has got the hidden name and is exchanged back.
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

// Exchanges the files back unless an editor has replaced the new one: ESTALE. The check comes after
// the exchange, because an editor may be faster than any check before it.
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

int Replacement::revert(bool& isDurable)
{
    isDurable = true;
    if (!isPublished_)
        return 0;
    if (!keepsOld_)
        return ENOTSUP;
    Directory const& directory = main_.directory;
    if (directory.check(main_.name, new_) == ESTALE)
        return 0;
    if (int const error = exchangeBack())
        return error == ESTALE ? 0 : error;
    isPublished_ = false;
    use(main_.file, old_);
    isDurable = directory.sync(main_.fd) == 0;
    return 0;
}

void Replacement::removeHidden()
{
    if (isPrepared_ && (main_.directory.isAt(name_, new_) || main_.directory.isAt(name_, old_)))
        main_.directory.remove(name_);
}

void Replacement::use(ZSharedFile const& file, struct stat const& status)
{
    main_.fd = file.descriptor();
    main_.status = status;
}

}  // namespace zstore
