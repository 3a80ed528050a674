// The rights of users by the access control lists of files, compared with a model.
#include <errno.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "AccessLists.h"
#include "Sanitizers.h"
#include "Z/files/access.h"

using zfiles::AccessList;
using zfiles::kMayRead;
using zfiles::kMayWrite;

namespace {

// A sanitizer build is ten times slower.
constexpr int kRounds = kHasSanitizer ? 4000 : 40000;

constexpr unsigned kBoth = kMayRead | kMayWrite;
constexpr uid_t kOwners[] = {10, 11};
constexpr uid_t kUsers[] = {0, 10, 11, 20, 21, 30};
constexpr gid_t kGroups[] = {100, 101, 110, 111};

// A file of the model. If it has no list, its rights are its mode.
struct File {
    uid_t owner = 10;
    gid_t group = 100;
    bool hasList = false;
    unsigned ownerMay = 0, groupMay = 0, othersMay = 0, mask = 7;
    std::vector<AclEntry> named;

    bool allows(uid_t user, std::vector<gid_t> const& groups, unsigned permission) const
    {
        unsigned const limit = hasList ? mask : 7;
        if (user == 0)
            return true;
        if (user == owner)
            return (ownerMay & permission) != 0;
        for (AclEntry const& entry : named)
            if (entry.tag == kUser && entry.id == user)
                return (entry.permissions & limit & permission) != 0;
        auto const isIn = [&](gid_t id) {
            return std::find(groups.begin(), groups.end(), id) != groups.end();
        };
        bool isMember = isIn(group);
        bool isAllowed = isMember && (groupMay & limit & permission) != 0;
        for (AclEntry const& entry : named)
            if (entry.tag == kGroup && isIn(entry.id)) {
                isMember = true;
                isAllowed = isAllowed || (entry.permissions & limit & permission) != 0;
            }
        return isMember ? isAllowed : (othersMay & permission) != 0;
    }

    struct stat status() const
    {
        struct stat status = {};
        status.st_uid = owner;
        status.st_gid = group;
        status.st_mode = S_IFREG | ownerMay << 6 | (hasList ? mask : groupMay) << 3 | othersMay;
        return status;
    }

    std::string bytes() const
    {
        if (!hasList)
            return "";
        std::vector<AclEntry> entries = {{kOwner, static_cast<uint16_t>(ownerMay), kNoId}};
        entries.insert(entries.end(), named.begin(), named.end());
        entries.push_back({kOwningGroup, static_cast<uint16_t>(groupMay), kNoId});
        entries.push_back({kMask, static_cast<uint16_t>(mask), kNoId});
        entries.push_back({kOthers, static_cast<uint16_t>(othersMay), kNoId});
        return listOf(entries);
    }
};

// The results of the replaced calls.
struct System {
    struct stat status = {};
    std::string list;        // empty: the file has no list
    int listErrors[2] = {};  // of the first and of the second question
    int questions = 0;
    std::vector<gid_t> groups;  // of each known user
    bool hasUsers = true;
    size_t entrySize = 0;  // of a row of the user database
} system_;

int read(AccessList& list, File const& file)
{
    system_.status = file.status();
    system_.list = file.bytes();
    system_.questions = 0;
    return list.read(0);
}

File randomFile(std::mt19937& random)
{
    File file;
    auto const permissions = [&] { return static_cast<unsigned>(random() % 4) * 2; };
    file.owner = kOwners[random() % 2];
    file.group = kGroups[random() % 2];
    file.ownerMay = permissions();
    file.groupMay = permissions();
    file.othersMay = permissions();
    file.hasList = random() % 4 != 0;
    if (!file.hasList)
        return file;
    file.mask = random() % 2 != 0 ? 7 : permissions();
    for (uid_t const user : {20U, 21U, file.owner})
        if (random() % 3 == 0)
            file.named.push_back({kUser, static_cast<uint16_t>(permissions()), user});
    for (gid_t const group : kGroups)
        if (random() % 3 == 0)
            file.named.push_back({kGroup, static_cast<uint16_t>(permissions()), group});
    return file;
}

std::vector<gid_t> groupsOfSet(unsigned set)
{
    std::vector<gid_t> groups;
    for (unsigned i = 0; i < 4; ++i)
        if ((set >> i & 1) != 0)
            groups.push_back(kGroups[i]);
    return groups;
}

// Returns whether each user has in `other` all permissions of the user in `file`, in any groups.
bool isWithin(File const& file, File const& other, unsigned permissions)
{
    for (uid_t const user : kUsers)
        for (unsigned set = 0; set < 16 && user != file.owner && user != other.owner; ++set)
            for (unsigned const permission : {kMayRead, kMayWrite})
                if ((permissions & permission) != 0 &&
                    file.allows(user, groupsOfSet(set), permission) &&
                    !other.allows(user, groupsOfSet(set), permission))
                    return false;
    return true;
}

TEST(AccessList, NoUserGainsARightFromAFileWithin)
{
    std::mt19937 random(5);
    int within = 0, modes = 0;
    for (int round = 0; round < kRounds; ++round) {
        File const file = randomFile(random);
        File const other = randomFile(random);
        AccessList fileList, otherList;
        ASSERT_EQ(0, read(fileList, file));
        ASSERT_EQ(0, read(otherList, other));
        for (unsigned const permissions : {unsigned(kMayRead), unsigned(kMayWrite), kBoth}) {
            bool const expected = isWithin(file, other, permissions);
            bool const found = fileList.isWithin(otherList, permissions);
            EXPECT_TRUE(expected || !found) << "round " << round << " permissions " << permissions;
            if (!file.hasList && !other.hasList) {
                EXPECT_EQ(expected, found) << "round " << round << " permissions " << permissions;
                ++modes;
            }
            within += found;
        }
        EXPECT_TRUE(fileList.isWithin(fileList, kBoth)) << "round " << round;
        if (HasFailure())
            return;
    }
    EXPECT_GT(within, kRounds / 8);
    EXPECT_GT(modes, kRounds / 8);
}

TEST(AccessList, AllowsWhatTheModelAllows)
{
    std::mt19937 random(6);
    for (int round = 0; round < kRounds / 2; ++round) {
        File const file = randomFile(random);
        AccessList list;
        ASSERT_EQ(0, read(list, file));
        EXPECT_EQ(file.hasList, list.isExtended());
        for (uid_t const user : kUsers) {
            system_.groups = groupsOfSet(static_cast<unsigned>(random() % 16));
            for (unsigned const permission : {kMayRead, kMayWrite}) {
                bool const expected = file.allows(user, system_.groups, permission);
                EXPECT_EQ(expected, list.allows(user, permission)) << round << " user " << user;
                EXPECT_EQ(expected, list.mayAllow(user, permission)) << round << " user " << user;
            }
        }
        if (HasFailure())
            return;
    }
}

TEST(AccessList, AUserWithoutARowMayBeInAnyGroup)
{
    std::mt19937 random(7);
    system_.hasUsers = false;
    for (int round = 0; round < kRounds / 2 && !HasFailure(); ++round) {
        File const file = randomFile(random);
        AccessList list;
        ASSERT_EQ(0, read(list, file));
        for (uid_t const user : kUsers)
            for (unsigned const permission : {kMayRead, kMayWrite}) {
                bool inAny = false;
                for (unsigned set = 0; set < 16; ++set)
                    inAny = inAny || file.allows(user, groupsOfSet(set), permission);
                EXPECT_EQ(inAny, list.mayAllow(user, permission)) << round << " user " << user;
                EXPECT_EQ(file.allows(user, {}, permission), list.allows(user, permission));
            }
    }
    system_.hasUsers = true;
}

TEST(AccessList, RowsAndGroupsOfAnyNumberAreRead)
{
    File file;
    file.group = 50000;
    file.groupMay = kMayRead;
    AccessList list;
    ASSERT_EQ(0, read(list, file));
    system_.groups.clear();
    for (gid_t group = 1; group <= 50000; ++group)
        system_.groups.push_back(group);
    system_.entrySize = 5000;
    EXPECT_TRUE(list.allows(20, kMayRead));
    system_.groups.pop_back();
    EXPECT_FALSE(list.allows(20, kMayRead));
    EXPECT_FALSE(list.mayAllow(20, kMayRead));
    system_.groups.resize(70000);  // more than any system allows: as a user without a row
    EXPECT_FALSE(list.allows(20, kMayRead));
    EXPECT_TRUE(list.mayAllow(20, kMayRead));
    system_.entrySize = 0;
}

TEST(AccessList, ListsOfAnyLengthAreReadAndOthersAreAnError)
{
    File file;
    file.hasList = true;
    for (uid_t user = 1000; user < 3000; ++user)
        file.named.push_back({kUser, static_cast<uint16_t>(user % 2 * 4), user});
    AccessList list;
    ASSERT_EQ(0, read(list, file));
    EXPECT_TRUE(list.allows(2999, kMayRead));
    EXPECT_FALSE(list.allows(2998, kMayRead));

    for (int const error : {ENODATA, EOPNOTSUPP, ENOSYS}) {
        system_.listErrors[0] = error;
        EXPECT_EQ(0, read(list, file));
        EXPECT_FALSE(list.isExtended());
    }
    system_.listErrors[0] = EIO;
    EXPECT_EQ(EIO, read(list, file));
    system_.listErrors[0] = 0;
    system_.listErrors[1] = EACCES;  // the list became longer, and then could not be read
    EXPECT_EQ(EACCES, read(list, file));
    system_.listErrors[1] = 0;

    std::string const good = file.bytes();
    for (std::string const& bad :
         {good.substr(0, 3), good.substr(0, good.size() - 1), '\3' + good.substr(1)}) {
        system_.list = bad;
        system_.questions = 0;
        EXPECT_EQ(EINVAL, list.read(0)) << bad.size();
    }
}

}  // namespace

extern "C" {

int __wrap_fstat(int, struct stat* status)
{
    *status = system_.status;
    return 0;
}

ssize_t __wrap_fgetxattr(int, char const* name, void* value, size_t size)
{
    EXPECT_STREQ(kList, name);
    int const error = system_.questions < 2 ? system_.listErrors[system_.questions] : 0;
    ++system_.questions;
    if (error != 0 || system_.list.empty() || system_.list.size() > size) {
        errno = error != 0 ? error : system_.list.empty() ? ENODATA : ERANGE;
        return -1;
    }
    memcpy(value, system_.list.data(), system_.list.size());
    return static_cast<ssize_t>(system_.list.size());
}

int __wrap_getpwuid_r(uid_t user, passwd* entry, char* text, size_t size, passwd** found)
{
    *found = nullptr;
    if (size < system_.entrySize)
        return ERANGE;
    if (!system_.hasUsers)
        return 0;
    *entry = {};
    entry->pw_name = text;
    strcpy(text, "user");
    entry->pw_uid = user;
    entry->pw_gid = system_.groups.empty() ? 9999 : system_.groups[0];
    *found = entry;
    return 0;
}

int __wrap_getgrouplist(char const*, gid_t group, gid_t* groups, int* count)
{
    std::vector<gid_t> all = system_.groups;
    if (all.empty())
        all.push_back(group);
    int const room = *count;
    *count = static_cast<int>(all.size());
    if (*count > room)
        return -1;
    std::copy(all.begin(), all.end(), groups);
    return *count;
}

}  // extern "C"
