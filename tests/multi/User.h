// User: another user for the file accesses of the process, set by a scope guard.
#pragma once

#include <fcntl.h>
#include <grp.h>
#include <sys/types.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

struct User {
    char const* name;
    uid_t id;
    gid_t group;
    std::vector<gid_t> groups;  // supplementary
};

/// Returns why the process cannot become another user; "" if it can.
inline std::string obstacleToOtherUsers()
{
    return geteuid() == 0 ? "" : "root is required";
}

// Requires root. The real user stays root.
class ScopedUser {
public:
    explicit ScopedUser(User const& user) { become(user.id, user.group, user.groups); }
    ScopedUser(ScopedUser const&) = delete;
    ScopedUser& operator=(ScopedUser const&) = delete;
    ~ScopedUser()
    {
        if (seteuid(0) != 0 || setegid(0) != 0 || setgroups(0, nullptr) != 0)
            _exit(97);
    }

    /// Makes the process the user's permanently.
    static void becomePermanently(User const& user)
    {
        if (setgroups(user.groups.size(), user.groups.data()) != 0 ||
            setresgid(user.group, user.group, user.group) != 0 ||
            setresuid(user.id, user.id, user.id) != 0)
            throw std::runtime_error(std::string("cannot become ") + user.name);
    }

private:
    static void become(uid_t id, gid_t group, std::vector<gid_t> const& groups)
    {
        if (setgroups(groups.size(), groups.data()) != 0 || setegid(group) != 0 || seteuid(id) != 0)
            throw std::runtime_error("cannot become another user");
    }
};

/// Returns whether the process may open a regular file.
inline bool mayOpen(std::string const& path, int flags)
{
    int const fd = open(path.c_str(), flags | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    close(fd);
    return fd >= 0;
}
