#include <Z/store/journaled_file.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>
#include <set>
#include <string>

#include "AccessLists.h"
#include "JournalForm.h"
#include "JournaledFileFixture.h"

using ZJournaledFileAccess = JournaledFileFixture;

TEST_F(ZJournaledFileAccess, JournalAndCompanionHaveTheOwnerAndModeOfTheFile)
{
    bool const root = geteuid() == 0;
    put(kPlain);
    if (root) {
        ASSERT_EQ(0, chown(path_.c_str(), 12345, 23456));
    }
    ASSERT_EQ(0, chmod(path_.c_str(), 02640));
    auto const look = [root](std::string const& path) {
        struct stat status;
        ASSERT_EQ(0, stat(path.c_str(), &status)) << path;
        EXPECT_EQ(0640u, status.st_mode & 07777) << path;
        if (root) {
            EXPECT_EQ(12345u, status.st_uid) << path;
            EXPECT_EQ(23456u, status.st_gid) << path;
        }
    };
    CallPlan looking;
    looking.before = [&](SystemCall const& call) {
        if (call.name == "fallocate")
            look(journal_);
        return 0;
    };
    {
        CallRecorder const watch(looking);
        store(kLong);
    }
    look(companion_);
}

TEST_F(ZJournaledFileAccess, FilesThatCannotGetTheGroupAreReadableByNoGroup)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two groups";
    chmod(directory_.path().c_str(), 0777);
    put(kPlain);
    ASSERT_EQ(0, chown(path_.c_str(), 65534, 0));
    ASSERT_EQ(0, chmod(path_.c_str(), 0644));
    asNobody([&] {
        struct stat journal = {};
        CallPlan looking;
        looking.before = [&](SystemCall const& call) {
            if (call.name == "pwrite" && journal.st_mode == 0)
                stat(journal_.c_str(), &journal);
            return 0;
        };
        {
            CallRecorder const watch(looking);
            store(kLong);
        }
        struct stat companion;
        return stat(companion_.c_str(), &companion) == 0 && (companion.st_mode & 07777) == 0600 &&
               (journal.st_mode & 07777) == 0600;
    });
    EXPECT_EQ(kLong, load());
}

TEST_F(ZJournaledFileAccess, FilesThatCanOnlyGetTheGroupAreReadableByIt)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    chmod(directory_.path().c_str(), 0777);
    put(kPlain);
    ASSERT_EQ(0, chown(path_.c_str(), 0, 65534));
    ASSERT_EQ(0, chmod(path_.c_str(), 0660));
    asNobody([&] {
        struct stat journal = {};
        CallPlan looking;
        looking.before = [&](SystemCall const& call) {
            if (call.name == "pwrite" && journal.st_mode == 0)
                stat(journal_.c_str(), &journal);
            return 0;
        };
        CallRecorder const watch(looking);
        storeText(kLong.text);
        return (journal.st_mode & 07777) == 0660 && journal.st_uid == 65534 &&
               journal.st_gid == 65534;
    });
    EXPECT_EQ(kLong.text, directory_.read("conf"));
}

TEST_F(ZJournaledFileAccess, JournalIsAsUnreadableAsTheFile)
{
    put(kShort);
    chmod(path_.c_str(), 0640);
    bool seen = false;
    for (int call = 1; storeUpTo(call, kLong); ++call) {
        for (char const* name : {".conf.zjn", ".conf.zjn.new", ".conf.obf.new"}) {
            struct stat status;
            if (stat(directory_.at(name).c_str(), &status) != 0)
                continue;
            seen = true;
            mode_t const allowed = status.st_size == 0 ? 0640 | 0600 : 0640;
            EXPECT_EQ(0u, status.st_mode & 07777 & ~allowed) << name << " at " << call;
        }
        chmod(path_.c_str(), 0640);
    }
    EXPECT_TRUE(seen);
}

TEST_F(ZJournaledFileAccess, JournalAndCompanionHaveTheAccessListOfTheFile)
{
    // The mode shows the mask as the rights of the group, although the group has no rights.
    std::string const list = listFor(kOther, 6);
    put(kShort);
    if (!setList(path_, list))
        GTEST_SKIP() << "access control lists are not supported";
    struct stat status;
    ASSERT_EQ(0, stat(path_.c_str(), &status));
    ASSERT_EQ(0660u, status.st_mode & 07777);
    CallPlan looking;
    bool isSeen = false;
    looking.before = [&](SystemCall const& call) {
        for (char const* name : {".conf.zjn", ".conf.zjn.new", ".conf.obf.new"}) {
            std::string const path = directory_.at(name);
            if (stat(path.c_str(), &status) != 0 || status.st_size == 0)
                continue;
            isSeen = true;
            EXPECT_EQ(list, getAttribute(path)) << name << " at " << call.name;
        }
        return 0;
    };
    {
        CallRecorder const watch(looking);
        store(kLong);
    }
    EXPECT_TRUE(isSeen);
    EXPECT_EQ(list, getAttribute(companion_));
    EXPECT_EQ(kLong, load());
}

// A user namespace may not know the users in the list.
TEST_F(ZJournaledFileAccess, OnlyTheOwnerGetsAccessIfTheListCannotBeSet)
{
    for (int const error : {EINVAL, EOPNOTSUPP}) {
        put(kShort);
        if (!setList(path_, listFor(kOther, 6)))
            GTEST_SKIP() << "access control lists are not supported";
        CallPlan refusing;
        std::set<mode_t> modes;
        refusing.before = [&](SystemCall const& call) {
            struct stat status;
            for (char const* name : {".conf.zjn", ".conf.zjn.new", ".conf.obf.new"})
                if (stat(directory_.at(name).c_str(), &status) == 0)
                    modes.insert(status.st_mode & 07777);
            return call.name == "fsetxattr" ? error : 0;
        };
        {
            CallRecorder const watch(refusing);
            store(kLong);
        }
        EXPECT_EQ(std::set<mode_t>{0600}, modes);
        struct stat status;
        ASSERT_EQ(0, stat(companion_.c_str(), &status));
        EXPECT_EQ(0600u, status.st_mode & 07777);
        EXPECT_EQ(listFor(kOther, 6), getAttribute(path_));
        EXPECT_EQ(kLong, load());
        // A new file would have other rights for the users in the list.
        expectFailure(directory_.at(".conf.new"), "fsetxattr()", EINVAL, refusing, [&] {
            zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
            file.replace(viewOf(kShort.text), zstore::JournaledFile::Companion());
        });
        EXPECT_EQ(kLong, load());
        EXPECT_EQ("conf conf.obf", directory_.names());
    }
}

TEST_F(ZJournaledFileAccess, DefaultListOfTheDirectoryGrantsNothing)
{
    put(kShort);
    if (!setList(directory_.path(), listFor(kOther, 6), "system.posix_acl_default"))
        GTEST_SKIP() << "access control lists are not supported";
    chmod(path_.c_str(), 0660);
    CallPlan looking;
    looking.before = [&](SystemCall const& call) {
        for (char const* name : {".conf.zjn", ".conf.zjn.new", ".conf.obf.new"}) {
            struct stat status;
            std::string const path = directory_.at(name);
            if (stat(path.c_str(), &status) != 0)
                continue;
            bool const isMasked = (status.st_mode & 0070) == 0;  // at first
            EXPECT_TRUE(getAttribute(path).empty() || (isMasked && status.st_size == 0))
                << name << " at " << call.name;
        }
        return 0;
    };
    {
        CallRecorder const watch(looking);
        store(kLong);
    }
    EXPECT_EQ("", getAttribute(companion_));
    EXPECT_EQ(kLong, load());
}

TEST_F(ZJournaledFileAccess, CompanionKeepsItsAccessListAndAttributes)
{
    put(kShort);
    char const note[] = "user.note";
    if (!setList(path_, listFor(kOther, 6)) || !setList(companion_, listFor(kOther, 4)) ||
        setxattr(companion_.c_str(), note, "keep", 4, 0) != 0)
        GTEST_SKIP() << "access control lists or attributes are not supported";
    for (Pair const& next : {kLong, kShort}) {
        store(next);
        EXPECT_EQ(next, load());
        EXPECT_EQ(listFor(kOther, 4), getAttribute(companion_));
        EXPECT_EQ("keep", getAttribute(companion_, note));
    }
    // A list that grants more than the file, to this user or to another, is not kept.
    ASSERT_TRUE(setList(companion_, listFor(54321, 4)));
    store(kLong);
    EXPECT_EQ(listFor(kOther, 6), getAttribute(companion_));
    ASSERT_TRUE(setList(path_, listFor(kOther, 4)));
    store(kShort);
    EXPECT_EQ(listFor(kOther, 4), getAttribute(companion_));
    EXPECT_EQ("keep", getAttribute(companion_, note));
}

TEST_F(ZJournaledFileAccess, StoreThatWouldLoseAttributesOfTheCompanionFails)
{
    char const note[] = "user.note";
    struct Case {
        char const* call;
        char const* file;
        int nth;
        bool hasList;
    };
    for (Case const& c :
         {Case{"fsetxattr", ".conf.obf.new", 1, false}, Case{"fgetxattr", "conf.obf", 2, false},
          Case{"fgetxattr", "conf.obf", 3, false}, Case{"fsetxattr", ".conf.obf.new", 2, true},
          Case{"fsetxattr", ".conf.obf.new", 3, true}})
        for (int error : {ENOSPC, EDQUOT, EIO, ENOMEM}) {
            SCOPED_TRACE(std::string(c.call) + " " + std::to_string(c.nth) + " " + strerror(error));
            put(kShort);
            if (setxattr(companion_.c_str(), note, "keep", 4, 0) != 0 ||
                (c.hasList &&
                 !(setList(path_, listFor(kOther, 6)) && setList(companion_, listFor(kOther, 4)))))
                GTEST_SKIP() << "attributes or access control lists are not supported";
            expectFailure(companion_, "fsetxattr()", error, failing(c.call, c.file, error, c.nth),
                          [&] { store(kLong); });
            EXPECT_EQ(kShort, load());
            EXPECT_EQ("keep", getAttribute(companion_, note));
            EXPECT_EQ("conf conf.obf", directory_.names());
            std::filesystem::remove(path_);
            std::filesystem::remove(companion_);
        }
    // An attribute that we may not set does not make the store fail.
    for (int error : {EPERM, EACCES, EOPNOTSUPP}) {
        SCOPED_TRACE(strerror(error));
        put(kShort);
        ASSERT_EQ(0, setxattr(companion_.c_str(), note, "keep", 4, 0));
        {
            CallRecorder const watch(failing("fsetxattr", ".conf.obf.new", error));
            store(kLong);
        }
        EXPECT_EQ(kLong, load());
    }
}

TEST_F(ZJournaledFileAccess, CompanionKeepsNoListThatGrantsMoreThanAGroupOfTheUserHas)
{
    // The user may be in the file's group, which may read less than other users.
    put(kShort);
    ASSERT_EQ(0, chmod(path_.c_str(), 0604));
    std::string const list = listOf({{kOwner, 6, kNoId},
                                     {kUser, 4, kOther},
                                     {kOwningGroup, 0, kNoId},
                                     {kMask, 4, kNoId},
                                     {kOthers, 4, kNoId}});
    if (!setList(companion_, list))
        GTEST_SKIP() << "access control lists are not supported";
    store(kLong);
    EXPECT_EQ("", getAttribute(companion_));
    struct stat status;
    ASSERT_EQ(0, stat(companion_.c_str(), &status));
    EXPECT_EQ(0604u, status.st_mode & 07777);
}

TEST_F(ZJournaledFileAccess, OutOfMemoryLeavesNoNewCompanionWithAttributes)
{
    Pair const torn = {kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion};
    put(torn);
    directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
    if (setxattr(companion_.c_str(), "user.note", "keep", 4, 0) != 0)
        GTEST_SKIP() << "attributes are not supported";
    int const failed = failEachAllocation(
        CallPlan(),
        [&] { zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::store); },
        [&] {
            EXPECT_EQ(std::string::npos, directory_.names().find(".new")) << directory_.names();
            EXPECT_EQ(kLong, load());
        });
    EXPECT_LT(15, failed);
    EXPECT_EQ("keep", getAttribute(companion_, "user.note"));
    // The same for a complete store, which also allocates for the attributes.
    failEachAllocation(
        CallPlan(), [&] { store(kShort); },
        [&] {
            EXPECT_EQ("conf conf.obf", directory_.names());
            EXPECT_EQ(kLong, load());
        });
    EXPECT_EQ(kShort, load());
    EXPECT_EQ("keep", getAttribute(companion_, "user.note"));
}

TEST_F(ZJournaledFileAccess, AnotherUsersCompanionInAStickyDirectoryIsWrittenInPlace)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    chmod(directory_.path().c_str(), 01777);
    put(kShort);
    ASSERT_EQ(0, chown(path_.c_str(), 65534, 65534));
    chmod(companion_.c_str(), 0666);
    asNobody([&] {
        // The store fails if the companion would be more readable than the file.
        expectFailure(companion_, "fchmod()", EPERM, CallPlan(), [&] { store(kLong); });
        return !HasFailure() && load() == kShort;
    });
    if (!setList(companion_, listFor(65534, 6)))
        GTEST_SKIP() << "access control lists are not supported";
    asNobody([&] {
        store(kLong);
        bool const isStored = load() == kLong;
        store(kPlain);
        return isStored && load() == kPlain;
    });
    EXPECT_EQ("conf conf.obf", directory_.names());
    EXPECT_EQ("", directory_.read("conf.obf"));
}

TEST_F(ZJournaledFileAccess, AnotherUsersFileInAStickyDirectoryMakesAStoreFail)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    chmod(directory_.path().c_str(), 01777);
    struct Case {
        char const* name;  // of another user's file
        char const* call;
        Pair const* before;
        Pair const* after;
        bool replaces;
    };
    // Without a journal the store could tear the text.
    Case const cases[] = {{".conf.zjn.new", "open()", &kPlain, &kLong, false},
                          {".conf.zjn.new", "open()", &kPlain, &kLong, true},
                          {".conf.new", "open()", &kPlain, &kLong, true},
                          {".conf.obf.new", "fopen(w)", &kPlain, &kLong, false}};
    for (Case const& c : cases) {
        for (mode_t const kind : {S_IFREG, S_IFDIR}) {
            SCOPED_TRACE(std::string(c.name) + (kind == S_IFDIR ? ", directory" : ""));
            std::string const obstacle = directory_.at(c.name);
            put(*c.before);
            ASSERT_EQ(0, chown(path_.c_str(), 65534, 65534));
            ASSERT_EQ(0, kind == S_IFDIR ? mkdir(obstacle.c_str(), 0777)
                                         : mknod(obstacle.c_str(), S_IFREG | 0666, 0));
            asNobody([&] {
                expectFailure(obstacle, c.call, EEXIST, CallPlan(), [&] {
                    zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
                    zstore::JournaledFile::Companion companion;
                    companion.change = zstore::JournaledFile::Companion::written;
                    companion.path = companion_;
                    companion.contents = c.after->companion;
                    c.replaces ? file.replace(c.after->text, companion)
                               : file.commit(c.after->text, companion);
                });
                return !HasFailure() && load() == *c.before;
            });
            EXPECT_EQ(std::string(c.name) + " conf", directory_.names());
            std::filesystem::remove(obstacle);
            asNobody([&] {
                store(*c.after);
                return load() == *c.after;
            });
            EXPECT_EQ("conf conf.obf", directory_.names());
            std::filesystem::remove(path_);
            std::filesystem::remove(companion_);
        }
    }
    // An existing companion is written in place, without a new file.
    put(kShort);
    for (std::string const& path : {path_, companion_})
        ASSERT_EQ(0, chown(path.c_str(), 65534, 65534));
    directory_.write(".conf.obf.new", "another user's");
    asNobody([&] {
        store(kLong);
        return load() == kLong;
    });
    EXPECT_EQ("another user's", directory_.read(".conf.obf.new"));
}

TEST_F(ZJournaledFileAccess, JournalThatItsListMakesWritableForOthersIsIgnored)
{
    std::string const torn = kLong.text.substr(0, 2) + kShort.text.substr(2);
    std::string const whole = journalOf(kShort, kLong, "");
    directory_.write("conf", torn);
    directory_.write(".conf.zjn", whole);
    chmod(path_.c_str(), 0660);
    chmod(journal_.c_str(), 0660);
    EXPECT_EQ(kLong.text, load().text);
    if (!setList(journal_, listFor(kOther, 6)))
        GTEST_SKIP() << "access control lists are not supported";
    for (zstore::JournaledFile::Mode mode :
         {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store})
        expectFailure(journal_, "access()", EPERM, CallPlan(),
                      [&] { zstore::JournaledFile(path_.c_str(), mode); });
    EXPECT_EQ(torn, directory_.read("conf"));
    EXPECT_EQ(whole, directory_.read(".conf.zjn"));
    // It is trusted if the file has the same list, or if the user may only read.
    ASSERT_TRUE(setList(path_, listFor(kOther, 6)));
    EXPECT_EQ(kLong.text, load().text);
    ASSERT_TRUE(setList(path_, listFor(kOther, 4)));
    expectFailure(journal_, "access()", EPERM, CallPlan(),
                  [&] { zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::load); });
    ASSERT_TRUE(setList(journal_, listFor(kOther, 4)));
    EXPECT_EQ(kLong.text, load().text);
}

TEST_F(ZJournaledFileAccess, JournalOfAUserThatCanWriteTheFileIsTrusted)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of multiple owners";
    constexpr uid_t kMember = 65534;
    struct Case {
        char const* name;
        mode_t mode;
        gid_t group;
        std::string list;
        bool counts;
    };
    Case const cases[] = {
        {"in the group", 0660, 65534, "", true},
        {"in the group, which may read", 0640, 65534, "", false},
        {"not in the group", 0660, 23456, "", false},
        {"in the group, others may write", 0606, 65534, "", false},
        {"one of the others", 0606, 23456, "", true},
        {"named", 0660, 23456, listFor(kMember, 6), true},
        {"named as a reader", 0660, 23456, listFor(kMember, 4), false},
        {"in the group of the mask", 0660, 65534, listFor(kOther, 6), false},
        {"in a named group", 0660, 23456,
         listOf({{kOwner, 6, kNoId},
                 {kOwningGroup, 0, kNoId},
                 {kGroup, 6, 65534},
                 {kMask, 6, kNoId},
                 {kOthers, 0, kNoId}}),
         true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        std::string const torn = kLong.text.substr(0, 2) + kShort.text.substr(2);
        std::string const whole = journalOf(kShort, kLong, "");
        put({torn, ""});
        ASSERT_EQ(0, chown(path_.c_str(), kOther, c.group));
        ASSERT_EQ(0, chmod(path_.c_str(), c.mode));
        if (!c.list.empty() && !setList(path_, c.list))
            GTEST_SKIP() << "access control lists are not supported";
        directory_.write(".conf.zjn", whole);
        ASSERT_EQ(0, chown(journal_.c_str(), kMember, c.group));
        if (c.counts) {
            EXPECT_EQ(kLong.text, load().text);
            storeText(kPlain.text);
            EXPECT_EQ(kPlain.text, load().text);
        } else {
            for (zstore::JournaledFile::Mode mode :
                 {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store})
                expectFailure(journal_, "access()", EPERM, CallPlan(),
                              [&] { zstore::JournaledFile(path_.c_str(), mode); });
            EXPECT_EQ(torn, directory_.read("conf"));
            EXPECT_EQ(whole, directory_.read(".conf.zjn"));
            // If the text is complete, nothing can be lost: the journal is renamed to an orphan.
            for (std::string const& text : {kShort.text, kLong.text, std::string("else\n")}) {
                directory_.write("conf", text);
                EXPECT_EQ(text, load().text);
            }
            storeText(kPlain.text);
            EXPECT_EQ(kPlain.text, load().text);
            EXPECT_EQ(whole, directory_.read(".conf.zjn.orphan"));
        }
        std::filesystem::remove(path_);
    }
}

// The user of a container may have groups, but be missing in the user database.
TEST_F(ZJournaledFileAccess, UnreadableJournalOfAnUnknownUserLeavesNoTornText)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may give files away";
    constexpr uid_t kUnknown = 54321;
    std::string const torn = kLong.text.substr(0, 2) + kShort.text.substr(2);
    chmod(directory_.path().c_str(), 0777);
    directory_.write("conf", torn);
    directory_.write(".conf.zjn", journalOf(kShort, {kLong.text, kShort.companion}, companion_));
    ASSERT_EQ(0, chown(path_.c_str(), 65534, 12345));
    ASSERT_EQ(0, chown(journal_.c_str(), kUnknown, kUnknown));
    chmod(path_.c_str(), 0660);
    asNobody([&] {
        for (auto const mode :
             {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store})
            expectFailure(journal_, "open()", EACCES, CallPlan(),
                          [&] { zstore::JournaledFile const file(path_.c_str(), mode); });
        return !HasFailure();
    });
    // No group may write the file: the unknown user could not.
    chmod(path_.c_str(), 0640);
    asNobody([&] {
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::load);
        return file.text() == torn;
    });
}

TEST_F(ZJournaledFileAccess, JournalOfAUserThatCannotWriteTheCompanionDoesNotChangeIt)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of multiple owners";
    put({kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion});
    directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
    for (std::string const& path : {path_, companion_})
        ASSERT_EQ(0, chown(path.c_str(), kOther, 65534));
    ASSERT_EQ(0, chmod(path_.c_str(), 0660));
    ASSERT_EQ(0, chmod(companion_.c_str(), 0640));
    ASSERT_EQ(0, chown(journal_.c_str(), 65534, 65534));
    expectFailure(journal_, "access()", EPERM, CallPlan(), [&] {
        zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::store);
    });
    EXPECT_EQ(kShort.companion, directory_.read("conf.obf"));
    ASSERT_EQ(0, chmod(companion_.c_str(), 0660));
    EXPECT_EQ(kLong, load());
}
