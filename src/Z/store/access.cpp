#include "access.h"

#include <errno.h>
#include <unistd.h>

namespace zstore {

bool onlyWeCanWrite(struct stat const& status)
{
    return status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool isTrustedJournal(struct stat const& status, struct stat const& main)
{
    mode_t const writers = S_IWGRP | S_IWOTH;
    return S_ISREG(status.st_mode) && status.st_nlink == 1 &&
           (status.st_uid == main.st_uid || status.st_uid == 0 || status.st_uid == geteuid()) &&
           (status.st_mode & writers & ~main.st_mode) == 0;
}

int copyOwnerAndMode(int fd, struct stat const& model, bool& owned)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return errno;
    mode_t mode = model.st_mode & kPermissions;
    bool const same = status.st_uid == model.st_uid && status.st_gid == model.st_gid;
    bool const given = same || fchown(fd, model.st_uid, model.st_gid) == 0;
    owned = given || status.st_uid == model.st_uid;
    if (!given && fchown(fd, static_cast<uid_t>(-1), model.st_gid) != 0)
        mode &= S_IRWXU;
    return fchmod(fd, mode) != 0 ? errno : 0;
}

bool isRefusal(int error)
{
    return error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG;
}

}  // namespace zstore
