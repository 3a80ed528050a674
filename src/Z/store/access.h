// access: who can read and write a file, by its mode and its access control list, and giving the
// files next to a configuration file no more than that.
//
// With an access control list the group bits of the mode are its mask: they tell neither what the
// group may do nor that nobody else may do anything.
#pragma once

#include <stdint.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <vector>

namespace zstore {

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

    /// Returns whether a user has one of `permissions`, by the groups that the user database names.
    /// throws  std::bad_alloc.
    bool allows(uid_t user, unsigned permissions) const;

    /// Returns whether a user has one of `permissions`, or may have it by groups that the user
    /// database does not know.
    /// throws  std::bad_alloc.
    bool mayAllow(uid_t user, unsigned permissions) const;

    /// Returns whether everybody, except the owners, who has one of `permissions` here has it in
    /// `other` too. A membership in groups that cannot be known counts as the less favourable.
    bool isWithin(AccessList const& other, unsigned permissions) const;

    /// Gives a new, empty file the owner, the mode and the list of this file, and nothing that it
    /// inherited from its directory. Returns 0 or an errno. If we cannot give it to the owner,
    /// group and others get no access, unless we can give it to the group; nor do they if it cannot
    /// have the list. `owned` reports whether the owner was set.
    int copyTo(int fd, bool& owned) const;

    /// Gives `fd` the list of this file, but not its owner. Returns 0 or an errno.
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
    bool names(Entry const& entry) const;

    struct stat status_ = {};
    std::vector<unsigned char> bytes_;  // of the list, as the kernel has it; empty if there is none
    std::vector<Entry> named_;
    unsigned group_ = 0;
    unsigned others_ = 0;
    unsigned mask_ = kNoMask;
};

/// Copies the extended attributes of a file, security labels included. Access control lists, and
/// attributes that we may not read, are not copied. Returns 0, or the errno of an attribute that
/// `to` lacks now: one for which isForbidden() is false, if there is such an attribute.
/// throws  std::bad_alloc.
int copyAttributes(int from, int to);

}  // namespace zstore
