#include "backup.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "failures.h"

namespace {

// A new file with a name of its own, which is removed again unless it is renamed.
class TemporaryFile {
public:
    explicit TemporaryFile(std::string const& path)
        : name_(path + ".XXXXXX"), fd_(mkstemp(name_.data()))
    {
    }
    TemporaryFile(TemporaryFile const&) = delete;
    TemporaryFile& operator=(TemporaryFile const&) = delete;
    ~TemporaryFile()
    {
        if (fd_ >= 0)
            close(fd_);
        if (fd_ >= 0 && !isRenamed_)
            unlink(name_.c_str());
    }

    bool isOpen() const { return fd_ >= 0; }

    bool write(std::string_view text)
    {
        while (!text.empty()) {
            ssize_t const length = ::write(fd_, text.data(), text.size());
            if (length < 0 && errno != EINTR)
                return false;
            text.remove_prefix(length > 0 ? static_cast<size_t>(length) : 0);
        }
        return true;
    }

    // Sets only the group if the owner cannot be set; without the group, only the owner may read
    // the copy.
    bool copyOwnerAndMode(std::string const& path)
    {
        struct stat status;
        if (stat(path.c_str(), &status) != 0)
            return false;
        mode_t mode = status.st_mode & 07777;
        if (fchown(fd_, status.st_uid, status.st_gid) != 0 &&
            fchown(fd_, static_cast<uid_t>(-1), status.st_gid) != 0)
            mode &= 0700;
        return fchmod(fd_, mode) == 0;
    }

    bool rename(std::string const& path)
    {
        isRenamed_ = fsync(fd_) == 0 && ::rename(name_.c_str(), path.c_str()) == 0;
        return isRenamed_;
    }

private:
    std::string name_;
    int const fd_;
    bool isRenamed_ = false;
};

}  // namespace

void storeBackup(std::string const& path, std::string const& suffix, std::string const& text)
{
    std::string const copy = path + suffix;
    TemporaryFile file(copy);
    if (!file.isOpen() || !file.copyOwnerAndMode(path) || !file.write(text) || !file.rename(copy))
        throw Failure{exitNoAccess,
                      copy,
                      {std::string("cannot write the copy: ") + strerror(errno),
                       "check the permissions of its directory and the free space"}};
}
