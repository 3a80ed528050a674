#include <Z/store/journaled_file.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <linux/magic.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "AccessLists.h"
#include "JournalForm.h"
#include "JournaledFileFixture.h"

using ZJournaledFileCompanion = JournaledFileFixture;

TEST_F(ZJournaledFileCompanion, UnchangedCompanionIsNotWritten)
{
    struct stat before;
    struct stat after;
    put(kShort);
    ASSERT_EQ(0, stat(companion_.c_str(), &before));
    store({kLong.text, kShort.companion});
    ASSERT_EQ(0, stat(companion_.c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    // It is written if it is more readable than the file, or has a second name.
    ASSERT_EQ(0, chmod(companion_.c_str(), 0644));
    store({kShort.text, kShort.companion});
    ASSERT_EQ(0, stat(companion_.c_str(), &after));
    EXPECT_EQ(0600u, after.st_mode & 07777);
    ASSERT_EQ(0, link(companion_.c_str(), directory_.at("second").c_str()));
    store({kLong.text, kShort.companion});
    ASSERT_EQ(0, stat(companion_.c_str(), &after));
    EXPECT_EQ(1u, after.st_nlink);
    if (geteuid() != 0)
        return;
    ASSERT_EQ(0, chown(companion_.c_str(), 12345, 0));
    store({kShort.text, kShort.companion});
    ASSERT_EQ(0, stat(companion_.c_str(), &after));
    EXPECT_EQ(0u, after.st_uid);
    ASSERT_EQ(0, chown(companion_.c_str(), 0, 12345));
    store({kLong.text, kShort.companion});
    ASSERT_EQ(0, stat(companion_.c_str(), &after));
    EXPECT_EQ(0u, after.st_gid);
}

TEST_F(ZJournaledFileCompanion, CompanionOnAnotherDiskIsWrittenAgain)
{
    // The sync of the journal does not cover another disk.
    TestDirectory const elsewhere;
    struct stat before;
    struct stat after;
    put(kPlain);
    zstore::JournaledFile::Companion companion = change(kLong);
    companion.path = elsewhere.write("secrets", kLong.companion);
    ASSERT_EQ(0, stat(companion.path.c_str(), &before));
    ASSERT_EQ(0, stat(path_.c_str(), &after));
    if (before.st_dev == after.st_dev)
        GTEST_SKIP() << "/tmp and /dev/shm are on one disk";
    zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
    file.commit(viewOf(kLong.text), companion);
    ASSERT_EQ(0, stat(companion.path.c_str(), &after));
    EXPECT_NE(before.st_ino, after.st_ino);
}

TEST_F(ZJournaledFileCompanion, CompanionOfAnotherProgramIsSynced)
{
    struct Case {
        char const* name;
        long system;
        char const* call;    // that flushes it
        int directorySyncs;  // for its name; the first is the journal's
    };
    Case const cases[] = {{"XFS", XFS_SUPER_MAGIC, "sync_file_range", 0},
                          {"Btrfs", BTRFS_SUPER_MAGIC, "fdatasync", 0},
                          {"ext2", EXT2_SUPER_MAGIC, "fdatasync", 2}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        put(kShort);
        std::string first;
        CallPlan elsewhere = planOn(c.system);
        elsewhere.before = [&](SystemCall const& call) {
            if (call.name.find("sync") != std::string::npos && first.empty())
                first = call.name;
            // All of this precedes the journal, whose sync makes it durable.
            if (first.empty() && call.name == "open") {
                EXPECT_EQ("(missing)", directory_.read(".conf.zjn.new"));
            }
            return 0;
        };
        {
            CallRecorder const watch(elsewhere);
            store({kLong.text, kShort.companion});
            EXPECT_EQ(c.directorySyncs, watch.directorySyncs);
        }
        EXPECT_EQ(c.call, first);
        // If the sync fails, so does the store.
        put(kShort);
        elsewhere.before = [&](SystemCall const& call) {
            return call.name == c.call && callPlan.failed.empty() ? EIO : 0;
        };
        try {
            CallRecorder const watch(elsewhere);
            store({kLong.text, kShort.companion});
            ADD_FAILURE();
        } catch (zstore::JournaledFile::IoError const& failure) {
            EXPECT_EQ(companion_, failure.file);
            EXPECT_STREQ("fsync()", failure.callName());
        }
        EXPECT_EQ(kShort, load());
    }
}

TEST_F(ZJournaledFileCompanion, CompanionIsWrittenAgainIfItsNameCannotBeSynced)
{
    // Another program created it. Without a sync of its name a power cut might remove it.
    put(kShort);
    struct stat before;
    struct stat after;
    ASSERT_EQ(0, stat(companion_.c_str(), &before));
    {
        CallRecorder const watch(failing("fsync", "directory"));
        store({kLong.text, kShort.companion});
    }
    ASSERT_EQ(0, stat(companion_.c_str(), &after));
    EXPECT_NE(before.st_ino, after.st_ino);
    EXPECT_EQ((Pair{kLong.text, kShort.companion}), load());
}

TEST_F(ZJournaledFileCompanion, ErrnoOfTheCompanionsDirectoryIsReported)
{
    put(kPlain);
    zstore::JournaledFile::Companion companion = change(kLong);
    companion.path = directory_.at("missing/conf.obf");
    expectFailure(companion.path, "fopen(w)", ENOENT, CallPlan(), [&] {
        zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::store)
            .commit(kLong.text, companion);
    });
    std::string const directory = directory_.at("directory");
    std::filesystem::create_directory(directory);
    chmod(path_.c_str(), 0620);
    zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::load);
    for (int error : {EMFILE, ENFILE, ENOMEM, EIO})
        for (int nth : {1, 2}) {
            SCOPED_TRACE(strerror(error));
            CallPlan hiding;
            hiding.before = [&, seen = 0](SystemCall const& call) mutable {
                return call.name == "open" && ++seen == nth ? error : 0;
            };
            CallRecorder const watch(hiding);
            int const code = file.checkCompanionPath(directory + "/../conf.obf");
            EXPECT_EQ(nth == 1 ? error : 0, code);
        }
}

TEST_F(ZJournaledFileCompanion, CompanionIsRemovedWhateverItsContents)
{
    put(kLong);
    zstore::JournaledFile::Companion companion = change(kPlain);
    companion.contents = viewOf(kShort.companion);
    std::string journal;
    zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
    CallRecorder const watch(keepingJournal(journal));
    file.commit(viewOf(kPlain.text), companion);
    EXPECT_EQ(journalOf(kLong, kPlain, companion_), journal);
}

TEST_F(ZJournaledFileCompanion, RecoveryDoesNotRemoveACompanionOfAnotherName)
{
    directory_.write("conf", kPlain.text);
    directory_.write("secrets", kLong.companion);
    directory_.write(".conf.zjn", journalOf(kLong, kPlain, directory_.at("secrets")));
    {
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
        EXPECT_EQ(kPlain.text, std::string(file.text().data(), file.text().size()));
    }
    EXPECT_EQ("conf secrets", directory_.names());
    EXPECT_EQ(kLong.companion, directory_.read("secrets"));
}

TEST_F(ZJournaledFileCompanion, RecoveryWritesTheCompanionInPlaceIfItsDirectoryIsReadOnly)
{
    chmod(directory_.path().c_str(), 0777);
    asNobody([&] {
        std::string const directory = directory_.at("directory");
        std::string const companion = directory + "/secrets";
        std::filesystem::create_directory(directory);
        directory_.write("conf", kLong.text);
        directory_.write("directory/secrets", kShort.companion);
        directory_.write(".conf.zjn", journalOf(kShort, kLong, companion));
        chmod(directory.c_str(), 0555);
        {
            zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
        }
        chmod(directory.c_str(), 0755);
        return directory_.read("directory/secrets") == kLong.companion &&
               directory_.names() == "conf directory";
    });
}

TEST_F(ZJournaledFileCompanion, RecoveryReportsAMissingDirectoryOfTheCompanion)
{
    std::string const companion = directory_.at("directory/secrets");
    put({kLong.text, ""});
    directory_.write(".conf.zjn", journalOf(kPlain, kLong, companion));
    expectFailure(companion, "fopen(w)", ENOENT, CallPlan(), [&] {
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
    });
    EXPECT_EQ(".conf.zjn conf", directory_.names());
    std::filesystem::create_directory(directory_.at("directory"));
    {
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
    }
    EXPECT_EQ(kLong.companion, directory_.read("directory/secrets"));
    EXPECT_EQ("conf directory", directory_.names());
}

TEST_F(ZJournaledFileCompanion, CompanionWrittenInPlaceIsRestoredInPlace)
{
    struct Case {
        char const* call;
        char const* text;
    };
    for (Case const& c : {Case{"pwrite", "write()"}, Case{"ftruncate", "ftruncate()"},
                          Case{"fsync", "fsync()"}, Case{"open", "fopen(w)"}}) {
        SCOPED_TRACE(c.call);
        put(kShort);
        // The companion is opened once for reading.
        CallPlan plan = failing(c.call, "conf.obf", EIO, strcmp(c.call, "open") == 0 ? 2 : 1);
        plan.before = [before = plan.before](SystemCall const& call) {
            bool const isRefused = call.name == "open" && nameOf(call) == ".conf.obf.new";
            return isRefused ? EACCES : before(call);
        };
        expectFailure(companion_, c.text, EIO, plan, [&] { store(kLong); });
        EXPECT_EQ(kShort.companion, directory_.read("conf.obf"));
        EXPECT_EQ(kShort, load());
        EXPECT_EQ("conf conf.obf", directory_.names());
    }
}

TEST_F(ZJournaledFileCompanion, CompanionThatCannotBeRestoredInPlaceIsInTheJournal)
{
    // The journal has only the new companion: it does not recognise a prefix of the old one.
    Pair const before = {"one\n", compressed("1111")};
    Pair const after = {"two two\n", compressed("2222")};
    int stored = 0;
    for (int first = 1; first <= 6; ++first)
        for (int second = first + 1; second <= first + 6; ++second) {
            SCOPED_TRACE(std::to_string(first) + " and from " + std::to_string(second));
            put(before);
            CallPlan plan;
            plan.shortTransfers = true;
            plan.before = [&, seen = 0](SystemCall const& call) mutable {
                if (call.name == "open" && nameOf(call) == ".conf.obf.new")
                    return EACCES;
                if (call.name != "pwrite" || nameOf(call) != "conf.obf")
                    return 0;
                ++seen;
                return seen == first || seen >= second ? ENOSPC : 0;
            };
            Pair expected = after;
            try {
                CallRecorder const watch(plan);
                store(after);
                ++stored;
            } catch (zstore::JournaledFile::IoError const& failure) {
                EXPECT_EQ(ENOSPC, failure.error);
                expected = before;
            }
            EXPECT_EQ(expected, load());
            store(kPlain);
            EXPECT_EQ(kPlain, load());
            EXPECT_EQ("conf", directory_.names());
        }
    EXPECT_LT(10, stored);
}

TEST_F(ZJournaledFileCompanion, LinkIsNotFollowedWhenACompanionIsWrittenInPlace)
{
    chmod(directory_.path().c_str(), 0777);
    asNobody([&] {
        std::string const directory = directory_.at("directory");
        std::filesystem::create_directory(directory);
        directory_.write("conf", kPlain.text);
        directory_.write("target", kShort.companion);
        std::filesystem::create_symlink(directory_.at("target"), directory + "/secrets");
        chmod(directory.c_str(), 0555);
        zstore::JournaledFile::Companion companion = change(kLong);
        companion.path = directory + "/secrets";
        std::string seen;
        try {
            zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
            file.commit(viewOf(kLong.text), companion);
        } catch (zstore::JournaledFile::IoError const& failure) {
            seen = failure.callName() + std::to_string(failure.error);
        }
        chmod(directory.c_str(), 0755);
        return seen == "fopen(w)" + std::to_string(ELOOP) &&
               directory_.read("target") == kShort.companion && load() == kPlain;
    });
}

TEST_F(ZJournaledFileCompanion, CompanionThatNoProcessCouldReadIsNotCreated)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    // The file is root's and all users may write it: its companion must be root's too.
    chmod(directory_.path().c_str(), 0777);
    put(kPlain);
    chmod(path_.c_str(), 0666);
    asNobody([&] {
        long const descriptors = openDescriptors();
        try {
            store(kLong);
        } catch (zstore::JournaledFile::IoError const& failure) {
            return std::string(failure.callName()) == "fchown()" && load() == kPlain &&
                   directory_.names() == "conf" && openDescriptors() == descriptors;
        }
        return false;
    });
    // An existing companion is written in place.
    put(kShort);
    chmod(companion_.c_str(), 0666);
    asNobody([&] {
        std::string calls;
        CallPlan recordingPlan;
        recordingPlan.before = [&calls](SystemCall const& call) {
            calls += call.name + " ";
            return 0;
        };
        {
            CallRecorder const watch(recordingPlan);
            store(kLong);
        }
        return load() == kLong && directory_.names() == "conf conf.obf" &&
               calls.find("ftruncate pwrite fsync ") != std::string::npos;
    });
    EXPECT_EQ(kLong, load());
}

TEST_F(ZJournaledFileCompanion, FilesThatNoStoreCanHaveWrittenAreNotReplaced)
{
    // Only the companion of the file's own name may have any contents.
    put({kPlain.text, "text\n"});
    store(kLong);
    EXPECT_EQ(kLong, load());
    put(kPlain);
    directory_.write("text", "text of another user\n");
    directory_.write("xtext", "x, like the start of a zlib stream");
    std::filesystem::create_directory(directory_.at("directory"));
    ASSERT_EQ(0, mkfifo(directory_.at("pipe").c_str(), 0600));
    for (char const* name : {"text", "xtext", "directory", "pipe", "conf", ".conf.zjn"}) {
        SCOPED_TRACE(name);
        zstore::JournaledFile::Companion companion = change(kLong);
        companion.path = directory_.at(name);
        zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
        try {
            file.commit(viewOf(kLong.text), companion);
            ADD_FAILURE();
        } catch (zstore::JournaledFile::IoError const& failure) {
            EXPECT_EQ(companion.path, failure.file);
            EXPECT_STREQ("access()", failure.callName());
            EXPECT_EQ(EPERM, failure.error);
        }
        EXPECT_EQ(kPlain.text, directory_.read("conf"));
        EXPECT_EQ("conf directory pipe text xtext", directory_.names());
    }
    EXPECT_EQ("text of another user\n", directory_.read("text"));
    EXPECT_EQ("x, like the start of a zlib stream", directory_.read("xtext"));
}

TEST_F(ZJournaledFileCompanion, FileWritableByOthersCanOnlyUseItsOwnCompanion)
{
    put(kShort);
    std::string const directory = directory_.at("directory");
    std::filesystem::create_directory(directory);
    directory_.write("directory/conf.obf", kShort.companion);
    directory_.write("directory/.conf.zjn", "");
    directory_.write("secrets", kShort.companion);
    std::string const missing = directory_.at("missing/conf.obf");
    chmod(path_.c_str(), 0620);
    zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::load);
    EXPECT_EQ(0, file.checkCompanionPath(companion_));
    EXPECT_EQ(0, file.checkCompanionPath(directory_.at("directory/../conf.obf")));
    EXPECT_EQ(EPERM, file.checkCompanionPath(directory_.at("secrets")));
    EXPECT_EQ(EPERM, file.checkCompanionPath(directory + "/conf.obf"));
    EXPECT_EQ(EPERM, file.checkCompanionPath(missing));
    {
        CallPlan hiding;
        hiding.before = [this](SystemCall const& call) {
            return call.name == "open" && call.path == directory_.at("directory/..") ? EACCES : 0;
        };
        CallRecorder const watch(hiding);
        EXPECT_EQ(EPERM, file.checkCompanionPath(directory_.at("directory/../conf.obf")));
    }
    {
        CallRecorder const watch(failing("lstat", "conf.obf", EACCES));
        EXPECT_EQ(EACCES, file.checkCompanionPath(companion_));
    }
    std::filesystem::remove(companion_);
    EXPECT_EQ(0, file.checkCompanionPath(companion_));  // it may be created
    // Only a regular file with one name that the file's owner owns.
    ASSERT_EQ(0, symlink("secrets", companion_.c_str()));
    EXPECT_EQ(EPERM, file.checkCompanionPath(companion_));
    std::filesystem::remove(companion_);
    ASSERT_EQ(0, link(directory_.at("secrets").c_str(), companion_.c_str()));
    EXPECT_EQ(EPERM, file.checkCompanionPath(companion_));
    std::filesystem::remove(directory_.at("secrets"));
    EXPECT_EQ(0, file.checkCompanionPath(companion_));
    if (geteuid() == 0) {
        ASSERT_EQ(0, chown(companion_.c_str(), 12345, 0));
        EXPECT_EQ(EPERM, file.checkCompanionPath(companion_));
    }
    // A file that only we can write can use any companion, except itself and the hidden files of
    // its stores.
    chmod(path_.c_str(), 0600);
    zstore::JournaledFile const ours(path_.c_str(), zstore::JournaledFile::Mode::load);
    for (std::string const& name :
         {directory + "/conf.obf", directory + "/.conf.zjn", missing, companion_})
        EXPECT_EQ(0, ours.checkCompanionPath(name)) << name;
    ASSERT_EQ(0, symlink("../conf", (directory + "/second").c_str()));
    for (std::string const& name :
         {path_, journal_, directory + "/../.conf.zjn", directory + "/second", journal_ + ".new",
          directory_.at(".conf.new")})
        EXPECT_EQ(EPERM, ours.checkCompanionPath(name)) << name;
}

TEST_F(ZJournaledFileCompanion, FileWithTheHiddenNameOfItsNewCompanionIsNotRemoved)
{
    std::string const hidden = directory_.write(".conf.obf.new", "one\n");
    expectFailure(companion_, "access()", EPERM, CallPlan(), [&] {
        zstore::JournaledFile file(hidden.c_str(), zstore::JournaledFile::Mode::store);
        file.commit("two\n", change(kShort));
    });
    EXPECT_EQ(".conf.obf.new", directory_.names());
    EXPECT_EQ("one\n", directory_.read(".conf.obf.new"));
}

TEST_F(ZJournaledFileCompanion, NewCompanionOfAFileWritableByOthersIsNextToTheRealFile)
{
    std::filesystem::create_directory(directory_.at("directory"));
    directory_.write("directory/real", kPlain.text);
    ASSERT_EQ(0, symlink("directory/real", path_.c_str()));
    EXPECT_EQ(
        companion_,
        zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::load).newCompanion());
    chmod(path_.c_str(), 0602);
    EXPECT_EQ(
        directory_.at("directory/real.obf"),
        zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::load).newCompanion());
}

TEST_F(ZJournaledFileCompanion, NewCompanionFailsInADirectoryWithATooLongPath)
{
    // The journal is created next to the given name, unless that is a link: its target is unknown.
    pid_t const child = fork();
    if (child == 0) {
        std::string const directory(200, 'f');
        if (chdir(directory_.path().c_str()) != 0)
            _exit(9);
        for (int depth = 0; depth < 25; ++depth)
            if (mkdir(directory.c_str(), 0700) != 0 || chdir(directory.c_str()) != 0)
                _exit(9);
        std::string seen;
        try {
            zstore::JournaledFile file("conf", zstore::JournaledFile::Mode::store);
            file.commit(viewOf(kPlain.text), zstore::JournaledFile::Companion());
            file.newCompanion();
        } catch (zstore::JournaledFile::IoError const& failure) {
            seen = failure.file + " " + failure.callName() + " " + strerror(failure.error);
        }
        struct stat status;
        bool const isStored =
            stat("conf", &status) == 0 && status.st_size == static_cast<off_t>(kPlain.text.size());
        std::string link;
        if (symlink("conf", "link") != 0)
            _exit(9);
        try {
            zstore::JournaledFile("link", zstore::JournaledFile::Mode::load);
        } catch (zstore::JournaledFile::IoError const& failure) {
            link = failure.file + " " + failure.callName() + " " + strerror(failure.error);
        }
        _exit(isStored && seen == std::string("conf getcwd() ") + strerror(ERANGE) &&
                      link == std::string("link fopen(r) ") + strerror(ENAMETOOLONG)
                  ? 0
                  : 1);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}

TEST_F(ZJournaledFileCompanion, CompanionOfImpossibleLengthIsNotRead)
{
    put(kShort);
    off_t const most = off_t{257} << 20;
    ASSERT_EQ(0, truncate(companion_.c_str(), most + 1));
    zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::load);
    try {
        file.readCompanion(companion_.c_str());
        ADD_FAILURE();
    } catch (zstore::JournaledFile::IoError const& failure) {
        EXPECT_EQ(companion_, failure.file);
        EXPECT_STREQ("mapFile()", failure.callName());
        EXPECT_EQ(EFBIG, failure.error);
    }
    ASSERT_EQ(0, truncate(companion_.c_str(), most));
    EXPECT_EQ(static_cast<size_t>(most), file.readCompanion(companion_.c_str()).length());
}

TEST_F(ZJournaledFileCompanion, CompanionTruncatedWhileItIsOpenedIsEmpty)
{
    put(kShort);
    zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::load);
    CallPlan cutting;
    cutting.before = [&](SystemCall const& call) {
        return call.name == "open" ? truncate(companion_.c_str(), 0) : 0;
    };
    expectFailure(companion_, "mapFile()", EINVAL, cutting,
                  [&] { file.readCompanion(companion_.c_str()); });
}

TEST_F(ZJournaledFileCompanion, UnsyncedDirectoryOfTheCompanionIsReportedByTheNextStore)
{
    std::filesystem::create_directory(directory_.at("directory"));
    std::string const companion = directory_.at("directory/conf.obf");
    directory_.write("directory/conf.obf", kShort.companion);
    put(kShort);
    auto const storeThere = [&](Pair const& pair) {
        zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
        zstore::JournaledFile::Companion wanted = change(pair);
        wanted.path = companion;
        file.commit(pair.text, wanted);
    };
    auto const expectPair = [&](Pair const& pair, char const* names) {
        zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::load);
        EXPECT_EQ(pair.text, file.text());
        EXPECT_EQ(pair.companion, file.readCompanion(companion.c_str()).view());
        EXPECT_EQ(names, directory_.names());
    };
    CallPlan plan;
    plan.before = [](SystemCall const& call) {
        return call.name == "fsync" && nameOf(call) == "directory" ? EIO : 0;
    };
    {
        CallRecorder const watch(plan);
        storeThere(kLong);
    }
    expectPair(kLong, ".conf.zjn conf conf.obf directory");
    for (int times = 0; times < 3; ++times) {
        expectFailure(companion, "fsync()", EIO, plan, [&] { storeThere(kShort); });
        expectPair(kLong, ".conf.zjn conf conf.obf directory");
    }
    storeThere(kShort);
    expectPair(kShort, "conf conf.obf directory");
}

TEST_F(ZJournaledFileCompanion, CompanionWithAFixedNameIsWrittenInPlace)
{
    for (int error : {EBUSY, EPERM})
        for (Shape const& shape : kShapes) {
            if (shape.before.companion.empty())
                continue;
            SCOPED_TRACE(std::string(shape.name) + ": " + strerror(error));
            CallPlan plan;
            plan.before = [error](SystemCall const& call) {
                std::string const name = call.newPath != nullptr ? call.newPath
                                         : call.path != nullptr  ? call.path
                                                                 : "";
                bool const isName = call.name == "rename" || call.name == "unlink";
                return isName && name.find("/conf.obf") != std::string::npos ? error : 0;
            };
            put(shape.before);
            {
                CallRecorder const watch(plan);
                store(shape.after);
            }
            EXPECT_EQ(shape.after, load());
            EXPECT_EQ(shape.after.companion, directory_.read("conf.obf"));
            EXPECT_EQ("conf conf.obf", directory_.names());
            // A kill at each call leaves the old or the new pair.
            for (int call = 1; call < 200; ++call) {
                put(shape.before);
                CallPlan dying = plan;
                dying.dieAt = call;
                pid_t const child = fork();
                if (child == 0) {
                    CallRecorder const watch(dying);
                    store(shape.after);
                    _exit(0);
                }
                int status = 0;
                waitpid(child, &status, 0);
                Pair const found = load();
                ASSERT_TRUE(found == shape.before || found == shape.after) << call << found;
                if (status == 0)
                    break;
            }
        }
}

TEST_F(ZJournaledFileCompanion, MountedCompanionIsWrittenInPlace)
{
    put(kShort);
    pid_t const child = fork();
    if (child == 0) {
        std::string const source = directory_.write("source", kShort.companion);
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount(source.c_str(), companion_.c_str(), nullptr, MS_BIND, nullptr) != 0)
            _exit(77);
        bool good = true;
        for (Pair const& next : {kLong, kShort, kPlain, kLong}) {
            store(next);
            good = good && load() == next && directory_.read("source") == next.companion;
        }
        _exit(good ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WEXITSTATUS(status) == 77)
        GTEST_SKIP() << "only root may mount";
    EXPECT_EQ(0, status);
    EXPECT_EQ("conf conf.obf source", directory_.names());
}

TEST_F(ZJournaledFileCompanion, UnreadableCompanionOfAnotherUsersJournalIsReported)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of multiple owners";
    put({kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion});
    directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
    for (std::string const& path : {path_, companion_}) {
        ASSERT_EQ(0, chown(path.c_str(), kOther, 65534));
        ASSERT_EQ(0, chmod(path.c_str(), 0660));
    }
    ASSERT_EQ(0, chown(journal_.c_str(), 65534, 65534));
    for (char const* const call : {"open", "lstat"})
        for (int const error : {EMFILE, EIO, EACCES})
            for (auto const mode :
                 {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store}) {
                SCOPED_TRACE(std::string(call) + " " + std::to_string(error));
                expectFailure(companion_, "mapFile()", error, failing(call, "conf.obf", error),
                              [&] { zstore::JournaledFile(path_.c_str(), mode); });
            }
    // This text is complete without the journal.
    directory_.write("conf", "else\n");
    {
        CallRecorder const watch(failing("open", "conf.obf", EMFILE));
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::load);
        EXPECT_EQ("else\n", file.text());
    }
    directory_.write("conf", kLong.text.substr(0, 2) + kShort.text.substr(2));
    EXPECT_EQ(kLong, load());
}

TEST_F(ZJournaledFileCompanion, RelativeCompanionInAJournalRefersToTheWritersDirectory)
{
    char before[PATH_MAX];
    ASSERT_NE(nullptr, getcwd(before, sizeof before));
    std::string const elsewhere = directory_.at("elsewhere");
    std::string const relative = "conf.obf";
    for (bool const isFirst : {false, true})
        for (int n = 1, isDead = 1; isDead != 0; ++n) {
            SCOPED_TRACE(std::to_string(n) + (isFirst ? " first" : ""));
            put({kShort.text, isFirst ? "" : kShort.companion});
            std::filesystem::create_directory(elsewhere);
            ASSERT_EQ(0, chdir(directory_.path().c_str()));
            pid_t const child = fork();
            if (child == 0) {
                CallPlan dying;
                dying.dieAt = n;
                zstore::JournaledFile::Companion written = change(kLong);
                written.path = relative;
                zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
                {
                    CallRecorder const watch(dying);
                    file.commit(kLong.text, written);
                }
                _exit(0);
            }
            int status = 0;
            EXPECT_EQ(child, waitpid(child, &status, 0));
            isDead = status != 0;
            // A load in the same directory finds both.
            std::string text;
            std::string companion;
            {
                zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::load);
                text = file.text();
                if (text == kLong.text || !isFirst) {
                    zstore::JournaledFile::Bytes const bytes = file.readCompanion(relative.c_str());
                    companion.assign(bytes.data(), bytes.length());
                }
            }
            EXPECT_EQ(text == kLong.text ? kLong.companion
                      : isFirst          ? ""
                                         : kShort.companion,
                      companion);
            // A store in another one completes the same companion.
            ASSERT_EQ(0, chdir(elsewhere.c_str()));
            {
                zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
            }
            ASSERT_EQ(0, chdir(before));
            EXPECT_EQ(text, directory_.read("conf"));
            EXPECT_EQ(companion, companion.empty() ? "" : directory_.read("conf.obf"));
            EXPECT_EQ("", namesIn(elsewhere));
        }
}

TEST_F(ZJournaledFileCompanion, ChangedLinkInTheCompanionsPathIsDetected)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    // The link refers to the file's directory until root has decided that the companion is in it.
    TestDirectory const elsewhere{TestDirectory::Place::memory};
    std::string const directory = directory_.at("directory");
    std::string const link = directory_.at("link");
    std::string const companion = link + "/conf.obf";
    std::string const file = directory + "/conf";
    auto const lead = [&](std::string const& target) {
        std::filesystem::remove(link);
        std::filesystem::create_directory_symlink(target, link);
    };
    Pair const torn = {kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion};
    Pair const without = {kLong.text, ""};
    for (uid_t owner : {12345U, 0U})
        for (bool isDead : {false, true})
            for (bool removes : {false, true})
                for (int n = 1; owner != 0 || removes; ++n) {
                    SCOPED_TRACE(std::to_string(owner) + (isDead ? " after a crash" : "") +
                                 (removes ? " removes " : " writes ") + std::to_string(n));
                    std::filesystem::remove_all(directory);
                    std::filesystem::create_directory(directory);
                    lead("directory");
                    directory_.write("directory/conf", isDead ? torn.text : kShort.text);
                    directory_.write("directory/conf.obf", kShort.companion);
                    if (isDead)
                        directory_.write("directory/.conf.zjn",
                                         journalOf(kShort, removes ? without : kLong, companion));
                    for (auto const& entry : std::filesystem::directory_iterator(directory))
                        ASSERT_EQ(0, chown(entry.path().c_str(), owner, owner));
                    std::string const secret = compressed("root's own");
                    elsewhere.write("conf.obf", secret);
                    {
                        CallRecorder const watch(meddlingAt(n, [&] { lead(elsewhere.path()); }));
                        try {
                            zstore::JournaledFile opened(file.c_str(),
                                                         zstore::JournaledFile::Mode::store);
                            zstore::JournaledFile::Companion change = this->change(kLong);
                            change.path = companion;
                            if (removes)
                                change.change = zstore::JournaledFile::Companion::removed;
                            if (!isDead && opened.isOwnCompanion(companion))
                                opened.commit(kLong.text, change);
                        } catch (zstore::JournaledFile::IoError const&) {
                        }
                    }
                    ASSERT_EQ(secret, elsewhere.read("conf.obf"));
                    ASSERT_EQ("conf.obf", elsewhere.names());
                    if (callPlan.calls < n)
                        break;
                }
}
