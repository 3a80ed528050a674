// access: the rights on a file, by its mode and access control list, and copying them to the files
// next to it, which must not grant more.
//
// If a file has an access control list, the group bits of its mode are the mask of the list: they
// show neither the rights of the group nor that no other user has rights.
#pragma once

#include <stdint.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <vector>

namespace zfiles {

constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;

enum Permission : unsigned { kMayWrite = 2, kMayRead = 4 };

/// Returns whether we own the file and are the only user who can write it.
bool onlyWeCanWrite(struct stat const& status);

/// Returns whether a directory refuses new files, by the errno of creating one.
bool isRefusal(int error);

/// Returns whether a call that sets or reads an attribute failed for lack of a permission, or of
/// support by the file system.
bool isForbidden(int error);

class AccessList {
public:
    /// Reads owner, mode and access control list of an open file. Returns 0 or an errno.
    /// throws  std::bad_alloc.
    int read(int fd);

    struct stat const& status() const { return status_; }

    /// Returns whether the file has more entries than its mode shows.
    bool isExtended() const { return !named_.empty() || mask_ != kNoMask; }

    /// Returns whether a user has one of `permissions`, by the groups in the user database.
    /// throws  std::bad_alloc.
    bool allows(uid_t user, unsigned permissions) const;

    /// Returns whether a user has one of `permissions`, or may have it by groups that the user
    /// database does not know.
    /// throws  std::bad_alloc.
    bool mayAllow(uid_t user, unsigned permissions) const;

    /// Returns whether each user except the owners has in `other` all of `permissions` that the
    /// user has here. Membership in groups is unknown: the result must hold for every membership.
    bool isWithin(AccessList const& other, unsigned permissions) const;

    /// Copies owner, mode and list to a new, empty file, and removes the list that it inherited
    /// from its directory. Returns 0 or an errno. If the group or the list cannot be set, group and
    /// others get no access. Sets `owned` to whether the file has the owner.
    int copyTo(int fd, bool& owned) const;

    /// Copies the list to `fd`, if the file has a list. Returns 0 or an errno.
    int copyListTo(int fd) const;

private:
    struct Entry {
        bool isGroup;
        uint32_t id;
        unsigned permissions;  // before the mask
    };
    static constexpr unsigned kNoMask = ~0U;

    int parse(unsigned char const* bytes, size_t length);
    unsigned masked(unsigned permissions) const { return permissions & mask_; }
    unsigned ofUser(uint32_t user) const;
    unsigned ofGroup(uint32_t group) const;
    unsigned ofAnyGroup() const;
    unsigned ofEveryGroup() const;
    bool names(Entry const& entry) const;

    struct stat status_ = {};
    std::vector<unsigned char> bytes_;  // the list in the kernel's form; empty without a list
    std::vector<Entry> named_;
    unsigned group_ = 0;
    unsigned others_ = 0;
    unsigned mask_ = kNoMask;
};

/// Copies the extended attributes of a file, security labels included, but not access control lists
/// and attributes that we may not read. Continues after a failure. Returns 0, or the errno of an
/// attribute that could not be copied, preferably one for which isForbidden() is false.
/// throws  std::bad_alloc.
int copyAttributes(int from, int to);

}  // namespace zfiles
