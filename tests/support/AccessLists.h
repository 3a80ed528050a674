// AccessLists: access control lists and other attributes of files.
#pragma once

#include <stdint.h>
#include <sys/xattr.h>

#include <string>
#include <vector>

struct AclEntry {
    uint16_t tag;
    uint16_t permissions;
    uint32_t id;
};
inline constexpr uint32_t kNoId = ~0U;
enum : uint16_t { kOwner = 1, kUser = 2, kOwningGroup = 4, kGroup = 8, kMask = 16, kOthers = 32 };

inline std::string listOf(std::vector<AclEntry> const& entries)
{
    std::string out;
    auto const put = [&out](uint32_t number, int bytes) {  // little-endian
        for (; bytes-- > 0; number >>= 8)
            out += static_cast<char>(number & 255);
    };
    put(2, 4);
    for (AclEntry const& entry : entries) {
        put(entry.tag, 2);
        put(entry.permissions, 2);
        put(entry.id, 4);
    }
    return out;
}

// Returns a list with permissions for the owner and for one more user.
inline std::string listFor(uint32_t user, uint16_t permissions)
{
    return listOf({{kOwner, 6, kNoId},
                   {kUser, permissions, user},
                   {kOwningGroup, 0, kNoId},
                   {kMask, 6, kNoId},
                   {kOthers, 0, kNoId}});
}

inline constexpr char kList[] = "system.posix_acl_access";

inline bool setList(std::string const& path, std::string const& list, char const* name = kList)
{
    return setxattr(path.c_str(), name, list.data(), list.size(), 0) == 0;
}

inline std::string getAttribute(std::string const& path, char const* name = kList)
{
    char value[1000];
    ssize_t const length = getxattr(path.c_str(), name, value, sizeof value);
    return {value, length > 0 ? static_cast<size_t>(length) : 0};
}

inline constexpr uint32_t kOther = 12345;  // another user
