#include "access.h"

#include <errno.h>
#include <grp.h>
#include <pwd.h>
#include <string.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>

#include "bytes.h"

namespace zfiles {

namespace {

constexpr char kListAttribute[] = "system.posix_acl_access";
constexpr char kListPrefix[] = "system.posix_acl_";

// The attribute's form, little-endian: version (4 bytes), then entries of tag (2), permissions (2)
// and id (4).
constexpr size_t kHeaderSize = 4;
constexpr size_t kEntrySize = 8;
constexpr uint32_t kVersion = 2;
enum Tag : uint32_t { owner = 1, user = 2, owningGroup = 4, group = 8, mask = 16, others = 32 };

constexpr size_t kMaxListSize = 65536;
constexpr int kMaxGroups = 65536;

uint32_t numberAt(unsigned char const* at, size_t bytes)
{
    uint32_t number = 0;
    for (size_t i = bytes; i-- > 0;)
        number = number << 8 | at[i];
    return number;
}

bool isMissing(int error)
{
    return error == ENODATA || error == EOPNOTSUPP || error == ENOSYS;
}

// Returns the groups of a user, or nothing if the user database does not know the user.
std::optional<std::vector<gid_t>> groupsOf(uid_t user)
{
    std::vector<char> text(1024);
    passwd entry;
    passwd* found = nullptr;
    int error;
    while ((error = getpwuid_r(user, &entry, text.data(), text.size(), &found)) == ERANGE)
        text.resize(text.size() * 2);
    if (error != 0 || found == nullptr)
        return std::nullopt;
    std::vector<gid_t> groups(32);
    int count = static_cast<int>(groups.size());
    while (getgrouplist(found->pw_name, found->pw_gid, groups.data(), &count) < 0) {
        if (count <= static_cast<int>(groups.size()) || count > kMaxGroups)
            return std::nullopt;
        groups.resize(static_cast<size_t>(count));
    }
    groups.resize(static_cast<size_t>(count));
    return groups;
}

}  // namespace

bool onlyWeCanWrite(struct stat const& status)
{
    return status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool isRefusal(int error)
{
    return error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG;
}

bool isForbidden(int error)
{
    return error == EPERM || error == EACCES || error == EOPNOTSUPP || error == EINVAL;
}

int AccessList::read(int fd)
{
    *this = AccessList();
    if (fstat(fd, &status_) != 0)
        return errno;
    group_ = status_.st_mode >> 3 & 7;
    others_ = status_.st_mode & 7;
    // Most files have no list: then one call is enough.
    unsigned char small[kHeaderSize + 16 * kEntrySize];
    ssize_t length = fgetxattr(fd, kListAttribute, small, sizeof small);
    if (length >= 0) {
        bytes_.assign(small, small + length);
    } else if (errno == ERANGE) {
        bytes_.resize(kMaxListSize);
        length = fgetxattr(fd, kListAttribute, bytes_.data(), bytes_.size());
        if (length < 0)
            return errno;
        bytes_.resize(static_cast<size_t>(length));
    } else {
        return isMissing(errno) ? 0 : errno;
    }
    return parse(bytes_.data(), bytes_.size());
}

int AccessList::parse(unsigned char const* bytes, size_t length)
{
    if (length < kHeaderSize || (length - kHeaderSize) % kEntrySize != 0 ||
        numberAt(bytes, 4) != kVersion)
        return EINVAL;
    for (size_t at = kHeaderSize; at < length; at += kEntrySize) {
        uint32_t const tag = numberAt(bytes + at, 2);
        unsigned const permissions = numberAt(bytes + at + 2, 2);
        uint32_t const id = numberAt(bytes + at + 4, 4);
        if (tag == Tag::user || tag == Tag::group)
            named_.push_back({tag == Tag::group, id, permissions});
        else if (tag == Tag::owningGroup)
            group_ = permissions;
        else if (tag == Tag::mask)
            mask_ = permissions;
        else if (tag == Tag::others)
            others_ = permissions;
    }
    return 0;
}

bool AccessList::allows(uid_t user, unsigned permissions) const
{
    if (user == 0)
        return true;
    if (user == status_.st_uid)
        return (status_.st_mode >> 6 & permissions) != 0;
    for (Entry const& entry : named_)
        if (!entry.isGroup && entry.id == user)
            return (masked(entry.permissions) & permissions) != 0;
    bool isMember = false;
    for (gid_t const group : groupsOf(user).value_or(std::vector<gid_t>())) {
        bool const isNamed = group == status_.st_gid ||
                             std::any_of(named_.begin(), named_.end(), [&](Entry const& entry) {
                                 return entry.isGroup && entry.id == group;
                             });
        isMember = isMember || isNamed;
        if (isNamed && (ofGroup(group) & permissions) != 0)
            return true;
    }
    return !isMember && (others_ & permissions) != 0;
}

bool AccessList::mayAllow(uid_t user, unsigned permissions) const
{
    if (allows(user, permissions))
        return true;
    bool const isNamed = std::any_of(named_.begin(), named_.end(), [user](Entry const& entry) {
        return !entry.isGroup && entry.id == user;
    });
    return user != status_.st_uid && !isNamed && (ofAnyGroup() & permissions) != 0 &&
           !groupsOf(user).has_value();
}

// Returns the permissions that a user has in every possible set of groups.
unsigned AccessList::ofUser(uint32_t user) const
{
    if (user == 0 || user == status_.st_uid)
        return 7;
    for (Entry const& entry : named_)
        if (!entry.isGroup && entry.id == user)
            return masked(entry.permissions);
    return ofEveryGroup();
}

// Returns the permissions that an unlisted user has in every possible set of groups.
unsigned AccessList::ofEveryGroup() const
{
    unsigned permissions = others_ & masked(group_);
    for (Entry const& entry : named_)
        if (entry.isGroup)
            permissions &= masked(entry.permissions);
    return permissions;
}

// Returns the permissions that every unlisted user in a group has. A user in an unlisted group may
// also be in a listed group, which may have fewer permissions than others.
unsigned AccessList::ofGroup(uint32_t group) const
{
    unsigned permissions = 0;
    bool isNamed = group == status_.st_gid;
    if (isNamed)
        permissions = masked(group_);
    for (Entry const& entry : named_)
        if (entry.isGroup && entry.id == group) {
            permissions |= masked(entry.permissions);
            isNamed = true;
        }
    return isNamed ? permissions : ofEveryGroup();
}

// Returns the permissions that an unlisted user has in at least one possible set of groups.
unsigned AccessList::ofAnyGroup() const
{
    unsigned permissions = masked(group_) | others_;
    for (Entry const& entry : named_)
        if (entry.isGroup)
            permissions |= masked(entry.permissions);
    return permissions;
}

bool AccessList::names(Entry const& entry) const
{
    if (entry.isGroup && entry.id == status_.st_gid)
        return true;
    return std::any_of(named_.begin(), named_.end(), [&](Entry const& own) {
        return own.isGroup == entry.isGroup && own.id == entry.id;
    });
}

bool AccessList::isWithin(AccessList const& other, unsigned permissions) const
{
    auto const exceeds = [permissions](unsigned here, unsigned there) {
        return (here & ~there & permissions) != 0;
    };
    if (exceeds(others_, other.others_) || exceeds(masked(group_), other.ofGroup(status_.st_gid)))
        return false;
    for (Entry const& entry : named_)
        if (exceeds(masked(entry.permissions),
                    entry.isGroup ? other.ofGroup(entry.id) : other.ofUser(entry.id)))
            return false;
    // An entry of `other` that is missing here may reduce the rights.
    if (other.status_.st_gid != status_.st_gid && exceeds(others_, other.masked(other.group_)))
        return false;
    for (Entry const& entry : other.named_) {
        unsigned const here = entry.isGroup ? others_ : ofAnyGroup();
        bool const isOwner = !entry.isGroup && (entry.id == status_.st_uid || entry.id == 0);
        if (!names(entry) && !isOwner && exceeds(here, other.masked(entry.permissions)))
            return false;
    }
    return true;
}

int AccessList::copyTo(int fd, bool& owned) const
{
    struct stat now;
    if (fstat(fd, &now) != 0)
        return errno;
    bool const same = now.st_uid == status_.st_uid && now.st_gid == status_.st_gid;
    bool const given = same || fchown(fd, status_.st_uid, status_.st_gid) == 0;
    owned = given || now.st_uid == status_.st_uid;
    bool const hasGroup = given || fchown(fd, static_cast<uid_t>(-1), status_.st_gid) == 0;
    // If the file inherited a list from its directory, fchmod() would set the mask of the list.
    if (fremovexattr(fd, kListAttribute) != 0 && !isMissing(errno))
        return errno;
    bool hasList = true;
    if (hasGroup && isExtended()) {
        int const error = copyListTo(fd);
        hasList = error == 0;
        // EINVAL: the user namespace lacks a user of the list. EOPNOTSUPP: lists are not supported.
        if (!hasList && error != EINVAL && error != EOPNOTSUPP)
            return error;
    }
    mode_t const mode = status_.st_mode & (hasGroup && hasList ? kPermissions : S_IRWXU);
    return fchmod(fd, mode) != 0 ? errno : 0;
}

int AccessList::copyListTo(int fd) const
{
    if (bytes_.empty())
        return 0;
    return fsetxattr(fd, kListAttribute, bytes_.data(), bytes_.size(), 0) != 0 ? errno : 0;
}

namespace {

bool hasAttribute(int fd, char const* name, std::string_view value)
{
    Bytes found(value.size() + 1);
    ssize_t const length = fgetxattr(fd, name, found.data(), found.length());
    return length >= 0 && std::string_view(found.data(), static_cast<size_t>(length)) == value;
}

// Returns 0 or an errno. An attribute that is missing by now, or that we may not read, is skipped.
int copyAttribute(int from, int to, char const* name)
{
    auto const readError = [] { return isMissing(errno) || isForbidden(errno) ? 0 : errno; };
    ssize_t const room = fgetxattr(from, name, nullptr, 0);
    if (room < 0)
        return readError();
    Bytes value(static_cast<size_t>(room));
    ssize_t const length = fgetxattr(from, name, value.data(), value.length());
    if (length < 0)
        return readError();
    auto const size = static_cast<size_t>(length);
    if (fsetxattr(to, name, value.data(), size, 0) == 0)
        return 0;
    int const error = errno;
    // The kernel may have given the new file the same security label.
    return hasAttribute(to, name, {value.data(), size}) ? 0 : error;
}

}  // namespace

int copyAttributes(int from, int to)
{
    int failure = 0;
    ssize_t const length = flistxattr(from, nullptr, 0);
    if (length <= 0)
        return length == 0 || isMissing(errno) ? 0 : errno;
    Bytes names(static_cast<size_t>(length));
    ssize_t const listed = flistxattr(from, names.data(), names.length());
    if (listed < 0)
        return errno;
    std::string_view rest(names.data(), static_cast<size_t>(listed));
    while (!rest.empty()) {
        char const* const name = rest.data();
        size_t const size = strnlen(name, rest.size());
        if (size == rest.size())
            break;
        rest.remove_prefix(size + 1);
        if (strncmp(name, kListPrefix, sizeof kListPrefix - 1) == 0)
            continue;
        int const error = copyAttribute(from, to, name);
        if (error != 0 && (failure == 0 || isForbidden(failure)))
            failure = error;
    }
    return failure;
}

}  // namespace zfiles
