#include <Z/store/journaled_file.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

#include "AccessLists.h"
#include "JournaledFileFixture.h"

using ZJournaledFileReplacing = JournaledFileFixture;

TEST_F(ZJournaledFileReplacing, ReplacingGivesTheNameToANewFileWithTheOldRights)
{
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        put(shape.before);
        ASSERT_EQ(0, chmod(path_.c_str(), 0640));
        bool const hasLists = setList(path_, listFor(kOther, 4));
        setxattr(path_.c_str(), "user.note", "keep", 4, 0);
        std::string const note = getAttribute(path_, "user.note");
        struct stat before;
        ASSERT_EQ(0, stat(path_.c_str(), &before));
        std::ifstream reader(path_);
        bool isLocked = true;
        CallPlan looking;
        looking.before = [&](SystemCall const& call) {
            // A reader without a lock always sees a complete text. It is another process: closing
            // the file here would drop the locks.
            pid_t const child = fork();
            if (child == 0) {
                std::string const text = directory_.read("conf");
                _exit(text == shape.before.text || text == shape.after.text ? 0 : 1);
            }
            int status = 0;
            waitpid(child, &status, 0);
            EXPECT_EQ(0, status) << call.name;
            isLocked = isLocked && !isFree(path_);
            return 0;
        };
        {
            zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
            {
                CallRecorder const watch(looking);
                file.replace(shape.after.text, change(shape.after));
                EXPECT_TRUE(isLocked);
            }
            struct stat after;
            ASSERT_EQ(0, stat(path_.c_str(), &after));
            EXPECT_NE(before.st_ino, after.st_ino);
            EXPECT_EQ(before.st_mode, after.st_mode);
            EXPECT_EQ(before.st_uid, after.st_uid);
            EXPECT_EQ(zstore::JournaledFile::Stamp(after), file.stamp());
            EXPECT_FALSE(isFree(path_));
        }
        EXPECT_TRUE(isFree(path_));
        if (hasLists) {
            EXPECT_EQ(listFor(kOther, 4), getAttribute(path_));
        }
        EXPECT_EQ(note, getAttribute(path_, "user.note"));
        EXPECT_EQ(shape.after, load());
        EXPECT_EQ(shape.before.text, std::string(std::istreambuf_iterator<char>(reader), {}));
        EXPECT_EQ(shape.after.companion.empty() ? "conf" : "conf conf.obf", directory_.names());
    }
}

TEST_F(ZJournaledFileReplacing, FailedOrKilledReplacingLeavesTheOldOrNewPair)
{
    auto const replace = [&](Pair const& pair) {
        zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
        file.replace(pair.text, change(pair));
    };
    for (Shape const& shape : kShapes)
        for (int error : {EIO, ENOSPC, EINVAL, EPERM})
            for (bool forEver : {false, true})
                for (int n = 1;; ++n) {
                    SCOPED_TRACE(std::string(shape.name) + ", call " + std::to_string(n) + ", " +
                                 strerror(error) + (forEver ? " permanently" : ""));
                    put(shape.before);
                    CallPlan failing;
                    (forEver ? failing.failFrom : failing.failAt) = n;
                    failing.error = error;
                    bool isStored = true;
                    {
                        CallRecorder const watch(failing);
                        try {
                            replace(shape.after);
                        } catch (zstore::JournaledFile::IoError const&) {
                            isStored = false;
                        }
                    }
                    bool const isReached = !callPlan.failed.empty();
                    Pair const found = load();
                    std::string const text = directory_.read("conf");
                    ASSERT_TRUE(found == shape.after || (!isStored && found == shape.before))
                        << found << callPlan.failed;
                    ASSERT_TRUE(forEver || isStored || found == shape.before) << callPlan.failed;
                    ASSERT_TRUE(text == shape.before.text || text == shape.after.text) << text;
                    replace(kLong);
                    ASSERT_EQ(kLong, load());
                    store(kShort);
                    ASSERT_EQ("conf conf.obf", directory_.names()) << callPlan.failed;
                    if (!isReached)
                        break;
                }
    for (Shape const& shape : kShapes)
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(shape.name) + ", killed at " + std::to_string(n));
            put(shape.before);
            pid_t const child = fork();
            if (child == 0) {
                CallPlan dying;
                dying.dieAt = n;
                CallRecorder const watch(dying);
                replace(shape.after);
                _exit(0);
            }
            int status = 0;
            waitpid(child, &status, 0);
            Pair const found = load();
            ASSERT_TRUE(found == shape.before || found == shape.after) << found;
            store(kPlain);
            ASSERT_EQ(kPlain, load());
            ASSERT_EQ("conf", directory_.names());
            if (status == 0)
                break;
        }
}

TEST_F(ZJournaledFileReplacing, ReplacingFailsIfTheDirectoryAllowsNoFile)
{
    put(kPlain);
    chmod(path_.c_str(), 0666);
    chmod(directory_.path().c_str(), 0555);
    asNobody([&] {
        std::string seen;
        try {
            zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
            file.replace(kLong.text, zstore::JournaledFile::Companion());
        } catch (zstore::JournaledFile::IoError const& failure) {
            seen = failure.file + " " + failure.callName() + " " + std::to_string(failure.error);
        }
        return seen == directory_.at(".conf.new") + " open() " + std::to_string(EACCES);
    });
    chmod(directory_.path().c_str(), 0777);
    if (geteuid() == 0)
        asNobody([&] {  // the file is root's
            expectFailure(directory_.at(".conf.new"), "fchown()", EPERM, CallPlan(), [&] {
                zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
                file.replace(kLong.text, zstore::JournaledFile::Companion());
            });
            return !HasFailure();
        });
    chmod(directory_.path().c_str(), 0700);
    for (int const error : {EROFS, EPERM, ENAMETOOLONG}) {
        CallPlan refusing;
        refusing.before = [error](SystemCall const& call) {
            return call.name == "open" && (call.flags & O_CREAT) != 0 ? error : 0;
        };
        expectFailure(directory_.at(".conf.new"), "open()", error, refusing, [&] {
            zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
            file.replace(kLong.text, zstore::JournaledFile::Companion());
        });
    }
    EXPECT_EQ("conf", directory_.names());
    EXPECT_EQ(kPlain, load());
}

TEST_F(ZJournaledFileReplacing, ReplacingFailsIfTheNewFileWouldHaveOtherRights)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a file to a foreign group, or label it";
    constexpr uid_t kNobody = 65534;
    struct Case {
        char const* name;
        gid_t group;
        bool isLabelled;
        char const* call;
    };
    Case const cases[] = {{"a group that its owner is not in", 0, false, "fchown()"},
                          {"a label that its owner cannot set", kNobody, true, "fsetxattr()"}};
    ASSERT_EQ(0, chmod(directory_.path().c_str(), 0777));
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        put(kPlain);
        ASSERT_EQ(0, chown(path_.c_str(), kNobody, c.group));
        if (c.isLabelled && setxattr(path_.c_str(), "security.note", "x", 1, 0) != 0)
            continue;  // no labels on this file system
        asNobody([&] {
            expectFailure(directory_.at(".conf.new"), c.call, EPERM, CallPlan(), [&] {
                zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
                file.replace(kLong.text, zstore::JournaledFile::Companion());
            });
            return !HasFailure();
        });
        EXPECT_EQ("conf", directory_.names());
        EXPECT_EQ(kPlain, load());
    }
}

TEST_F(ZJournaledFileReplacing, CompanionStaysIfAnEditorReplacesTheFileDuringTheDirectorySync)
{
    Pair const edited = {"edited edited edited\n", compressed("e")};
    put(kShort);
    CallPlan replacing;
    bool isExchanged = false;
    bool isEdited = false;
    replacing.before = [&](SystemCall const& call) {
        isExchanged = isExchanged || (call.name == "rename" && call.newPath == path_);
        if (isExchanged && !isEdited && call.name == "fsync") {
            isEdited = true;
            pid_t const child = fork();
            if (child == 0) {
                directory_.write("edited", edited.text);
                directory_.write("edited.obf", edited.companion);
                rename(directory_.at("edited").c_str(), path_.c_str());
                rename(directory_.at("edited.obf").c_str(), companion_.c_str());
                _exit(0);
            }
            int status = 0;
            waitpid(child, &status, 0);
        }
        // The store does not even change the companion for a moment.
        if (isEdited) {
            EXPECT_EQ(edited.companion, directory_.read("conf.obf")) << call.name;
        }
        return 0;
    };
    expectFailure(path_, "fopen(r+)", ESTALE, replacing, [&] {
        zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
        file.replace(kLong.text, change(kLong));
    });
    EXPECT_TRUE(isEdited);
    EXPECT_EQ(edited, load());
    EXPECT_EQ("conf conf.obf", directory_.names());
}
