#include <Z/files/shared_file.h>
#include <Z/store/journaled_file.h>
#include <Z/store/text_diff.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <string>

#include "JournaledFileFixture.h"

using ZJournaledFileCase = JournaledFileFixture;

TEST_F(ZJournaledFileCase, ReplacesThePairAndLeavesNothingElse)
{
    long const descriptors = openDescriptors();
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        put(shape.before);
        EXPECT_EQ(shape.before, load());
        store(shape.after);
        EXPECT_EQ(shape.after, load());
        EXPECT_EQ(shape.after.text, directory_.read("conf"));
        EXPECT_EQ(shape.after.companion.empty() ? "conf" : "conf conf.obf", directory_.names());
    }
    EXPECT_EQ(descriptors, openDescriptors());
}

TEST_F(ZJournaledFileCase, StampIdentifiesTheWrittenFile)
{
    put(kShort);
    zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
    file.commit(viewOf(kLong.text), change(kLong));
    struct stat status;
    ASSERT_EQ(0, stat(path_.c_str(), &status));
    EXPECT_EQ(zstore::JournaledFile::Stamp(status), file.stamp());
    EXPECT_EQ(static_cast<off_t>(kLong.text.size()), file.stamp().size);
}

TEST_F(ZJournaledFileCase, StampChangesWithEachFieldOfTheStatus)
{
    void (*const changes[])(struct stat&) = {
        [](struct stat& status) { ++status.st_mtim.tv_sec; },
        [](struct stat& status) { ++status.st_mtim.tv_nsec; },
        [](struct stat& status) { ++status.st_size; },
        [](struct stat& status) { ++status.st_ino; },
        [](struct stat& status) { ++status.st_dev; },
    };
    struct stat const before = {};
    EXPECT_TRUE(zstore::JournaledFile::Stamp(before) == zstore::JournaledFile::Stamp(before));
    for (auto const& change : changes) {
        struct stat after = before;
        change(after);
        EXPECT_FALSE(zstore::JournaledFile::Stamp(before) == zstore::JournaledFile::Stamp(after))
            << &change - changes;
    }
}

TEST_F(ZJournaledFileCase, CreatedFileIsRemovedWithoutACommit)
{
    {
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
        EXPECT_EQ("conf", directory_.names());
        EXPECT_EQ(0u, file.text().size());
    }
    EXPECT_EQ("", directory_.names());
}

TEST_F(ZJournaledFileCase, FileInTheRootDirectoryIsStored)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may change the root directory";
    put(kShort);
    pid_t const child = fork();
    if (child == 0) {
        if (chroot(directory_.path().c_str()) != 0 || chdir("/") != 0)
            _exit(9);
        std::string renamed;
        CallPlan looking;
        looking.before = [&renamed](SystemCall const& call) {
            if (call.name == "rename")
                renamed += std::string(call.path) + " " + call.newPath + " ";
            return 0;
        };
        try {
            CallRecorder const watch(looking);
            zstore::JournaledFile file("/conf", zstore::JournaledFile::Mode::store);
            zstore::JournaledFile::Companion companion = change(kLong);
            companion.path = file.newCompanion();
            file.commit(viewOf(kLong.text), companion);
        } catch (...) {
            _exit(2);
        }
        _exit(
            renamed ==
                    "/.conf.zjn.new /.conf.zjn /.conf.obf.new /conf.obf /.conf.zjn /.conf.zjn.new "
                ? 0
                : 1);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ(kLong, load());
    EXPECT_EQ("conf conf.obf", directory_.names());
}

TEST_F(ZJournaledFileCase, StoreCreatesTheTargetOfADanglingLink)
{
    ASSERT_EQ(0, symlink("target", path_.c_str()));
    {
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
    }
    EXPECT_EQ("conf", directory_.names());
    store(kPlain);
    EXPECT_EQ("conf target", directory_.names());
    EXPECT_EQ(kPlain.text, directory_.read("target"));
}

TEST_F(ZJournaledFileCase, FileOfAnotherMountNamespaceIsStoredThere)
{
    put(kShort);
    int ready[2];
    int done[2];
    ASSERT_EQ(0, pipe(ready));
    ASSERT_EQ(0, pipe(done));
    pid_t const child = fork();
    if (child == 0) {
        char state = 'n';
        ::close(done[1]);
        if (unshare(CLONE_NEWNS) == 0 &&
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            mount("inner", directory_.path().c_str(), "tmpfs", 0, nullptr) == 0) {
            directory_.write("conf", kLong.text);
            state = 'y';
        }
        char wait;
        _exit(write(ready[1], &state, 1) == 1 && ::read(done[0], &wait, 1) == 0 ? 0 : 1);
    }
    ::close(ready[1]);
    ::close(done[0]);
    char state = 'n';
    EXPECT_EQ(1, ::read(ready[0], &state, 1));
    if (state == 'y') {
        std::string const inner = "/proc/" + std::to_string(child) + "/root" + directory_.path();
        std::string const link = directory_.at("link");
        std::filesystem::create_symlink(inner + "/conf", link);
        for (std::string const& path : {inner + "/conf", link, inner + "/new"}) {
            bool const isNew = path == inner + "/new";
            for (bool const replaces : {false, true}) {
                Pair const next = {path + (replaces ? "2\n" : "1\n"), ""};
                zstore::JournaledFile file(path.c_str(), zstore::JournaledFile::Mode::store);
                EXPECT_EQ(isNew && !replaces, file.text().empty());
                if (replaces)
                    file.replace(viewOf(next.text), zstore::JournaledFile::Companion());
                else
                    file.commit(viewOf(next.text), zstore::JournaledFile::Companion());
                file.close();
                zstore::JournaledFile const again(path.c_str(), zstore::JournaledFile::Mode::load);
                EXPECT_EQ(next.text, again.text());
            }
        }
        EXPECT_EQ("conf new", namesIn(inner));
    }
    ::close(done[1]);
    ::close(ready[0]);
    EXPECT_EQ(child, waitpid(child, nullptr, 0));
    if (state != 'y')
        GTEST_SKIP() << "only root may mount";
    EXPECT_EQ(kShort, load());
    EXPECT_EQ("conf conf.obf link", directory_.names());
}

// The text of its link in /proc is the old path and " (deleted)".
TEST_F(ZJournaledFileCase, FileWithoutANameIsRefused)
{
    put(kShort);
    int const fd = open(path_.c_str(), O_RDWR | O_CLOEXEC);
    std::string const open = "/proc/self/fd/" + std::to_string(fd);
    storeText("two\n");
    {
        zstore::JournaledFile const file(open.c_str(), zstore::JournaledFile::Mode::store);
        EXPECT_EQ("two\n", file.text());
    }
    ASSERT_EQ(0, unlink(path_.c_str()));
    for (bool const isOtherThere : {false, true}) {
        if (isOtherThere)
            directory_.write("conf (deleted)", "another\n");
        expectFailure(open, "fopen(r)", ENOENT, CallPlan(), [&] {
            zstore::JournaledFile const file(open.c_str(), zstore::JournaledFile::Mode::load);
        });
        expectFailure(open, "fopen(r+)", ENOENT, CallPlan(), [&] {
            zstore::JournaledFile const file(open.c_str(), zstore::JournaledFile::Mode::store);
        });
        EXPECT_EQ(isOtherThere ? "conf (deleted) conf.obf" : "conf.obf", directory_.names());
    }
    ::close(fd);
}

TEST_F(ZJournaledFileCase, NewFileHasTheModeThatTheMaskAllows)
{
    for (mode_t mask : {0000u, 0022u, 0077u}) {
        mode_t const before = umask(mask);
        store(kPlain);
        umask(before);
        struct stat status;
        ASSERT_EQ(0, stat(path_.c_str(), &status));
        EXPECT_EQ(0666u & ~mask, status.st_mode & 07777);
        std::filesystem::remove(path_);
    }
}

TEST_F(ZJournaledFileCase, LongPathsAndShortWritesWork)
{
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        put(shape.before);
        CallPlan shortWrites;
        shortWrites.shortTransfers = true;
        {
            CallRecorder const watch(shortWrites);
            store(shape.after);
            EXPECT_EQ(shape.after, load());
        }
    }
    // Names that are too long for the temporary journal, or for any hidden file: the file is
    // written without a journal.
    for (size_t length : {250, 252}) {
        std::string const name(length, 'n');
        std::string const file = directory_.write(name, "old\n");
        zstore::JournaledFile stored(file.c_str(), zstore::JournaledFile::Mode::store);
        stored.commit(viewOf(kPlain.text), zstore::JournaledFile::Companion());
        EXPECT_EQ(kPlain.text, directory_.read(name));
    }
}

TEST_F(ZJournaledFileCase, GrowingFileIsReadToItsEnd)
{
    std::string const more(10000, 'm');
    CallPlan growing;
    growing.before = [&](SystemCall const& call) {
        if (call.name == "pread" && directory_.read("conf") == kPlain.text)
            std::ofstream(path_, std::ios::app) << more;
        return 0;
    };
    put(kPlain);
    {
        CallRecorder const watch(growing);
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::load);
        EXPECT_EQ(kPlain.text + more, std::string(file.text().data(), file.text().size()));
    }
}

TEST_F(ZJournaledFileCase, CallsAreRetriedAfterASignal)
{
    for (bool hasOpenat2 : {true, false}) {
        for (Shape const& shape : kShapes) {
            SCOPED_TRACE(shape.name + std::string(hasOpenat2 ? "" : " without openat2()"));
            put(shape.before);
            std::set<std::string> interrupted;
            bool second = false;
            CallPlan interrupting = planOn(XFS_SUPER_MAGIC);
            interrupting.shortTransfers = true;
            interrupting.before = [&](SystemCall const& call) {
                for (char const* name :
                     {"open", "openat2", "F_SETLK", "pread", "write", "pwrite", "fsync",
                      "fdatasync", "sync_file_range", "ftruncate", "fallocate", "futimens"})
                    if (call.name == name && (second = !second)) {
                        interrupted.insert(name);
                        return EINTR;
                    }
                return !hasOpenat2 && call.name == "openat2" ? ENOSYS : 0;
            };
            {
                CallRecorder const watch(interrupting);
                store(shape.after);
            }
            EXPECT_LE(8u, interrupted.size());
            EXPECT_EQ(shape.after, load());
        }
    }
}

TEST_F(ZJournaledFileCase, NameOfANewFileIsSyncedEvenWithoutAJournal)
{
    std::string const name(250, 'n');
    CallRecorder const watch;
    zstore::JournaledFile stored(directory_.at(name).c_str(), zstore::JournaledFile::Mode::store);
    stored.commit(viewOf(kPlain.text), zstore::JournaledFile::Companion());
    EXPECT_EQ(1, watch.directorySyncs);
    EXPECT_EQ(kPlain.text, directory_.read(name));
}

TEST_F(ZJournaledFileCase, WritesOnlyTheChangedRange)
{
    std::string const head(10000, 'h');
    std::string const tail(9000, 't');
    struct Case {
        char const* name;
        std::string before;
        std::string after;
        Range written;
        size_t journalled;  // bytes of old and new text in the journal
    };
    Case const cases[] = {
        {"one byte", head + "0" + tail, head + "1" + tail, {10000, 1}, 2},
        {"first byte", "0" + tail, "1" + tail, {0, 1}, 2},
        {"last byte", head + "0", head + "1", {10000, 1}, 2},
        {"two ranges", "0" + head + "0" + tail, "1" + head + "1" + tail, {0, 10002}, 20004},
        {"longer", head + "0" + tail, head + "123" + tail, {10000, 9003}, 9004},
        {"shorter", head + "123" + tail, head + "0" + tail, {10000, 9001}, 9004},
        {"appended", head, head + tail, {10000, 9000}, 9000},
        {"cut", head + tail, head, {0, 0}, 9000},
        {"repeated", head + "a" + tail, head + "aa" + tail, {10001, 9001}, 9001},
        {"all", head, std::string(10000, 'H'), {0, 10000}, 20000},
        {"nothing", head, head, {0, 0}, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        put({c.before, ""});
        std::string journal;
        CallRecorder const watch(keepingJournal(journal));
        storeText(c.after);
        EXPECT_EQ(c.after, directory_.read("conf"));
        EXPECT_EQ(c.journalled, journal.size() - 84);
        if (c.written.second > 0) {
            ASSERT_EQ(2u, watch.writes.size());  // the other invalidates the journal
            EXPECT_EQ(c.written, watch.writes[0]);
        } else {
            EXPECT_EQ(1u, watch.writes.size());
        }
    }
}

TEST_F(ZJournaledFileCase, ChangedRangeIsExactAtAnyDistanceFromTheEnds)
{
    std::string const same(9000, 's');
    for (size_t const head : {0, 1, 15, 16, 17, 255, 256, 272, 273, 4095, 4096, 4368, 8193}) {
        for (size_t const tail : {0, 1, 15, 16, 17, 255, 256, 272, 273, 4095, 4096, 4368, 8193}) {
            for (char const* const middle : {"", "0", "0123456789abcdefghi"}) {
                SCOPED_TRACE(std::to_string(head) + middle + std::to_string(tail));
                std::string const before = same.substr(0, head) + middle + same.substr(0, tail);
                std::string const after = same.substr(0, head) + "1" + same.substr(0, tail);
                zstore::TextDiff const diff(before, after);
                EXPECT_EQ(head, diff.prefix);
                EXPECT_EQ(middle, diff.oldMiddle);
                EXPECT_EQ("1", diff.newMiddle);
                EXPECT_EQ(tail, diff.moved.size() + diff.suffix);
            }
        }
    }
}

TEST_F(ZJournaledFileCase, ModificationTimeChangesEvenIfTheTextStays)
{
    for (Pair const& after :
         {kShort, Pair{kShort.text, compressed("other")}, Pair{kShort.text, ""}}) {
        put(kShort);
        timespec const old[] = {{1000, 0}, {1000, 0}};
        ASSERT_EQ(0, utimensat(AT_FDCWD, path_.c_str(), old, 0));
        zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
        EXPECT_EQ(1000, file.stamp().seconds);
        file.commit(viewOf(after.text), change(after));
        EXPECT_LT(1000000000, file.stamp().seconds);
    }
}

TEST_F(ZJournaledFileCase, WaitsForTheDiskNoMoreThanTheFileSystemNeeds)
{
    struct Case {
        char const* name;
        long system;
        int flags;
        char const* waits;
        bool otherDisk = false;
    };
    // For the old text, the journal, its name, the new text, and the journal's end. If the old text
    // is synced already, its flush costs nothing.
    char const range[] = "sync_file_range fsync fdatasync sync_file_range ";
    char const all[] = "fdatasync fsync fsync fdatasync fdatasync ";
    Case const cases[] = {
        {"ext4", EXT4_SUPER_MAGIC, FS_EXTENT_FL, range},
        {"XFS", XFS_SUPER_MAGIC, 0, range},
        {"XFS, directory elsewhere", XFS_SUPER_MAGIC, 0, "fdatasync fsync fdatasync fdatasync ",
         true},
        {"Btrfs", BTRFS_SUPER_MAGIC, 0, "fdatasync fsync fdatasync fdatasync "},
        {"ext2", EXT2_SUPER_MAGIC, 0, all},
        {"contents in inodes", EXT4_SUPER_MAGIC, FS_EXTENT_FL | FS_INLINE_DATA_FL, all},
        {"NFS", NFS_SUPER_MAGIC, FS_EXTENT_FL, all}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        std::string waits;
        CallPlan elsewhere = planOn(c.system, c.flags, c.otherDisk);
        elsewhere.before = [&waits](SystemCall const& call) {
            if (call.name.find("sync") != std::string::npos)
                waits += call.name + " ";
            return 0;
        };
        put(kPlain);
        {
            CallRecorder const watch(elsewhere);
            storeText(kLong.text);
        }
        EXPECT_EQ(c.waits, waits);
        // The name of a created file is always synced.
        std::filesystem::remove(path_);
        CallRecorder const watch(elsewhere);
        storeText(kPlain.text);
        EXPECT_EQ(1, watch.directorySyncs);
    }
}

TEST_F(ZJournaledFileCase, UnknownFileSystemGetsAllSyncs)
{
    std::string waits;
    CallPlan unknown;
    unknown.after = [](SystemCall const& call, ssize_t& result) {
        if (call.name != "fstatfs")
            return;
        static_cast<struct statfs*>(call.to)->f_type = XFS_SUPER_MAGIC;
        result = -1;
    };
    unknown.before = [&waits](SystemCall const& call) {
        if (call.name.find("sync") != std::string::npos)
            waits += call.name + " ";
        return 0;
    };
    put(kPlain);
    CallRecorder const watch(unknown);
    storeText(kLong.text);
    EXPECT_EQ("fdatasync fsync fsync fdatasync fdatasync ", waits);
}

TEST_F(ZJournaledFileCase, FileSystemWithoutSyncIsSupported)
{
    put(kShort);
    std::set<std::string> failed;
    CallPlan failing;
    failing.before = [&](SystemCall const& call) {
        if (call.name != "fsync" && call.name != "fdatasync")
            return 0;
        failed.insert(call.name);
        return EINVAL;
    };
    CallRecorder const watch(failing);
    store(kLong);
    EXPECT_EQ((std::set<std::string>{"fdatasync", "fsync"}), failed);
    EXPECT_EQ(kLong.text, directory_.read("conf"));
}

TEST_F(ZJournaledFileCase, SpaceIsReservedForALongerText)
{
    for (int error : {0, EOPNOTSUPP, ENOSYS, EINVAL})
        for (Shape const& shape : kShapes) {
            SCOPED_TRACE(shape.name);
            put(shape.before);
            int asked = 0;
            CallPlan failing;
            failing.before = [&](SystemCall const& call) {
                if (call.name != "fallocate")
                    return 0;
                ++asked;
                return error;
            };
            CallRecorder const watch(failing);
            store(shape.after);
            EXPECT_EQ(shape.after.text.size() > shape.before.text.size() ? 1 : 0, asked);
        }
}

TEST_F(ZJournaledFileCase, ReservedSpaceIsFreedAfterAFailure)
{
    put(kShort);
    struct stat before;
    ASSERT_EQ(0, stat(path_.c_str(), &before));
    CallPlan failing;
    failing.before = [this](SystemCall const& call) {
        if (call.name != "fsync" || directory_.names().find(".conf.obf.new") == std::string::npos)
            return 0;
        struct stat meanwhile = {};
        EXPECT_EQ(0, stat(path_.c_str(), &meanwhile));
        EXPECT_LE(2048, meanwhile.st_blocks);
        std::ofstream(path_, std::ios::app) << "more\n";  // is not truncated either
        return EIO;
    };
    {
        CallRecorder const watch(failing);
        EXPECT_THROW(store({std::string(1 << 20, 'x'), kLong.companion}),
                     zstore::JournaledFile::IoError);
    }
    struct stat after;
    ASSERT_EQ(0, stat(path_.c_str(), &after));
    EXPECT_EQ(before.st_blocks, after.st_blocks);
    EXPECT_EQ(kShort.text + "more\n", directory_.read("conf"));
}

TEST_F(ZJournaledFileCase, FailedCloseOfASyncedFileIsIgnored)
{
    put(kShort);
    CallPlan failing;
    failing.failing["close"] = EIO;
    {
        CallRecorder const watch(failing);
        store(kLong);
    }
    EXPECT_EQ(kLong, load());
    EXPECT_EQ("conf conf.obf", directory_.names());
}

TEST_F(ZJournaledFileCase, OnlyRegularFilesAreOpened)
{
    zfiles::SharedFile file;
    EXPECT_EQ(EISDIR, file.open(directory_.path().c_str(), O_RDONLY, 0));
    ASSERT_EQ(0, mkfifo(path_.c_str(), 0600));
    EXPECT_EQ(EINVAL, file.open(path_.c_str(), O_RDWR, 0));
    EXPECT_EQ(EINVAL, file.open("/dev/null", O_RDONLY, 0));
    EXPECT_EQ(ENOENT, file.open(directory_.at("missing").c_str(), O_RDONLY, 0));
    directory_.write("real", "");
    ASSERT_EQ(0, symlink("real", directory_.at("link").c_str()));
    EXPECT_EQ(ELOOP, file.open(directory_.at("link").c_str(), O_RDONLY | O_NOFOLLOW, 0));
    EXPECT_EQ(0, file.open(directory_.at("link").c_str(), O_RDONLY, 0));
    EXPECT_FALSE(!file.isOpen());
}

TEST_F(ZJournaledFileCase, OutputForClosedStandardDescriptorsIsNotWrittenToAFile)
{
    put(kShort);
    for (int closed = 0; closed < 8; ++closed) {
        SCOPED_TRACE(closed);
        pid_t const child = fork();
        if (child == 0) {
            for (int fd = 0; fd < 3; ++fd)
                if ((closed & (1 << fd)) != 0)
                    close(fd);
            bool good = true;
            {
                zfiles::SharedFile file;
                good = file.open(path_.c_str(), O_RDWR, 0) == 0 && file.descriptor() >= 3;
            }
            store(kLong);
            for (int fd = 1; fd < 3; ++fd)
                if ((closed & (1 << fd)) != 0)
                    (void)!write(fd, "report", 6);
            store(kShort);
            _exit(good ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(0, WEXITSTATUS(status));
        EXPECT_EQ(kShort, load());
    }
}
