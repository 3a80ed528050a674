#include <Z/files/shared_file.h>
#include <Z/store/journaled_file.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "JournaledFileFixture.h"
#include "Threads.h"

using ZJournaledFileConcurrency = JournaledFileFixture;

TEST_F(ZJournaledFileConcurrency, CreatedFileStaysIfAnotherProcessStoresIntoIt)
{
    CallPlan meeting;
    meeting.before = [this](SystemCall const& call) {
        if (call.name == "F_SETLK" && directory_.read("conf").empty())
            directory_.write("conf", "others\n");
        return 0;
    };
    {
        CallRecorder const watch(meeting);
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
        EXPECT_EQ("others\n", std::string(file.text().data(), file.text().size()));
    }
    EXPECT_EQ("others\n", directory_.read("conf"));
}

TEST_F(ZJournaledFileConcurrency, CreatedFileIsNotRemovedOnceItsNameRefersToAnother)
{
    {
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
        directory_.write("other", "");
        ASSERT_EQ(0, rename(directory_.at("other").c_str(), path_.c_str()));
    }
    EXPECT_EQ("conf", directory_.names());
    std::filesystem::remove(path_);
    {
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
        std::filesystem::remove(path_);
    }
    EXPECT_EQ("", directory_.names());
}

TEST_F(ZJournaledFileConcurrency, FileThatAppearsDuringCreationIsOpened)
{
    // Before and after the check for a link.
    for (char const* moment : {"open", "lstat"})
        for (std::string const others : {"others\n", ""}) {
            SCOPED_TRACE(moment + others);
            std::filesystem::remove(path_);
            CallPlan meeting;
            meeting.after = [&](SystemCall const& call, ssize_t&) {
                if (call.name == moment && directory_.names().empty())
                    directory_.write("conf", others);
            };
            {
                CallRecorder const watch(meeting);
                zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
                EXPECT_EQ(others, std::string(file.text().data(), file.text().size()));
            }
            EXPECT_EQ(others, directory_.read("conf"));
        }
}

TEST_F(ZJournaledFileConcurrency, LinksThatAppearDuringAStoreAreNotFollowed)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    TestDirectory const elsewhere{TestDirectory::Place::memory};
    Pair const secret = {"secret text\n", compressed("root's own")};
    auto const plant = [&] {
        elsewhere.write("conf", secret.text);
        elsewhere.write("conf.obf", secret.companion);
    };
    std::string const directory = directory_.at("directory");
    std::string const away = directory_.at("away");
    std::string const file = directory + "/conf";
    struct Case {
        char const* name;
        std::function<void()> swap;
        int from = 1;  // the first call after the path is resolved this far
    };
    auto const swapForLink = [&](char const* name, int from = 1) {
        return Case{name,
                    [&, name] {
                        std::filesystem::remove_all(directory + "/" + name);
                        std::filesystem::create_symlink(
                            elsewhere.at(strstr(name, "obf") != nullptr ? "conf.obf" : "conf"),
                            directory + "/" + name);
                    },
                    from};
    };
    // The path is resolved by openat2() of the directory, fstat(), and lstat() of the file.
    Case const cases[] = {{"directory",
                           [&] {
                               std::filesystem::rename(directory, away);
                               std::filesystem::create_directory_symlink(elsewhere.path(),
                                                                         directory);
                           },
                           2},
                          swapForLink("conf", 4),
                          swapForLink("conf.obf"),
                          swapForLink(".conf.zjn"),
                          swapForLink(".conf.zjn.new"),
                          swapForLink(".conf.obf.new")};
    for (Case const& c : cases)
        for (int kind = 0; kind < 4; ++kind)
            for (int n = c.from;; ++n) {
                bool const stores = kind % 2 == 1;
                bool const isOurs =
                    kind / 2 == 1;  // root's own file, in the directory of another user
                SCOPED_TRACE(std::string(c.name) + (stores ? ", store " : ", load ") +
                             std::to_string(n));
                std::filesystem::remove_all(directory);
                std::filesystem::remove_all(away);
                std::filesystem::create_directory(directory);
                directory_.write("directory/conf", kShort.text);
                directory_.write("directory/conf.obf", kShort.companion);
                ASSERT_EQ(0, chown(directory.c_str(), 12345, 12345));
                uid_t const owner = isOurs ? 0 : 12345;
                for (std::string const& path : {file, directory + "/conf.obf"})
                    ASSERT_EQ(0, chown(path.c_str(), owner, owner));
                plant();
                std::string read;
                {
                    CallRecorder const watch(meddlingAt(n, c.swap));
                    try {
                        zstore::JournaledFile opened(file.c_str(),
                                                     stores ? zstore::JournaledFile::Mode::store
                                                            : zstore::JournaledFile::Mode::load);
                        zstore::JournaledFile::Bytes const bytes =
                            opened.readCompanion((directory + "/conf.obf").c_str());
                        read.assign(bytes.data(), bytes.length());
                        read += opened.text();
                        zstore::JournaledFile::Companion change = this->change(kLong);
                        change.path = directory + "/conf.obf";
                        if (stores)
                            opened.commit(kLong.text, change);
                    } catch (zstore::JournaledFile::IoError const&) {
                    }
                }
                // A file that only we can write may use any companion, even through a link.
                if (!isOurs) {
                    ASSERT_EQ(std::string::npos, read.find("secret"));
                    ASSERT_EQ(std::string::npos, read.find("root's own"));
                }
                ASSERT_EQ(secret.text, elsewhere.read("conf"));
                ASSERT_EQ(secret.companion, elsewhere.read("conf.obf"));
                ASSERT_EQ("conf conf.obf", elsewhere.names());
                if (callPlan.calls < n)
                    break;
            }
}

TEST_F(ZJournaledFileConcurrency, StoreDoesNotTouchTheFileThatReplacedItsOwn)
{
    // An editor replaces the file; the writer of the new file crashes while it writes the text.
    Pair const edited = {"edited edited edited\n", compressed("e")};
    int raised = 0;
    int torn = 0;
    for (int n = 1;; ++n) {
        SCOPED_TRACE(n);
        put(kShort);
        bool isStored = true;
        bool isReplaced = false;
        auto const replace = [&] {
            pid_t const child = fork();
            if (child == 0) {
                directory_.write("edited", edited.text);
                directory_.write("edited.obf", edited.companion);
                rename(directory_.at("edited").c_str(), path_.c_str());
                rename(directory_.at("edited.obf").c_str(), companion_.c_str());
                // In another thread: the plan applies to this one.
                std::thread([&] {
                    CallPlan dying;
                    dying.shortTransfers = true;
                    dying.before = [writes = 0](SystemCall const& call) mutable {
                        if (call.name == "pwrite" && nameOf(call) == "conf" && ++writes == 4)
                            _exit(0);
                        return 0;
                    };
                    CallRecorder const watch(dying);
                    store(kLong);
                }).join();
                _exit(1);
            }
            int status = 0;
            waitpid(child, &status, 0);
            isReplaced = true;
            torn += directory_.read("conf") != edited.text;
        };
        {
            CallRecorder const watch(meddlingAt(n, replace));
            try {
                store({"four four\n", compressed("4")});
            } catch (zstore::JournaledFile::IoError const& failure) {
                isStored = false;
                EXPECT_EQ(ESTALE, failure.error) << failure.file << failure.callName();
            }
        }
        if (!isReplaced)
            break;
        Pair const found = load();
        ASSERT_TRUE(found.text == kLong.text || found.text == edited.text || isStored) << found;
        raised += !isStored;
    }
    EXPECT_LT(20, raised);
    EXPECT_LT(20, torn);
}

TEST_F(ZJournaledFileConcurrency, StoringThreadCannotLoadTheSameFile)
{
    put(kShort);
    zstore::JournaledFile const storing(path_.c_str(), zstore::JournaledFile::Mode::store);
    for (zstore::JournaledFile::Mode use :
         {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store}) {
        try {
            zstore::JournaledFile const again(path_.c_str(), use);
            ADD_FAILURE();
        } catch (zstore::JournaledFile::IoError const& failure) {
            EXPECT_STREQ("fcntl()", failure.callName());
            EXPECT_EQ(EDEADLK, failure.error);
        }
    }
}

TEST_F(ZJournaledFileConcurrency, CreatedFileStaysUnlessItIsKnownToBeEmptyAndUnlocked)
{
    struct Case {
        int error;
        char const* names;
    };
    for (Case const& c : {Case{EAGAIN, "conf"}, Case{EACCES, "conf"}, Case{ENOLCK, ""}}) {
        SCOPED_TRACE(strerror(c.error));
        std::filesystem::remove(path_);
        expectFailure(path_, "fcntl()", c.error, failing("F_SETLK", "conf", c.error), [&] {
            zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::store);
        });
        EXPECT_EQ(c.names, directory_.names());
    }
    // It also stays if another process has stored into it, or if that cannot be determined.
    for (bool isFilled : {true, false}) {
        SCOPED_TRACE(isFilled);
        std::filesystem::remove(path_);
        CallPlan plan;
        plan.before = [&, isRefused = false](SystemCall const& call) mutable {
            if (call.name == "F_SETLK" && nameOf(call) == "conf") {
                isRefused = true;
                if (isFilled)
                    directory_.write("conf", "others\n");
                return ENOLCK;
            }
            return isRefused && !isFilled && call.name == "fstat" ? EIO : 0;
        };
        expectFailure(path_, "fcntl()", ENOLCK, plan, [&] {
            zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::store);
        });
        EXPECT_EQ(isFilled ? "others\n" : "", directory_.read("conf"));
        EXPECT_EQ("conf", directory_.names());
    }
}

TEST_F(ZJournaledFileConcurrency, OtherThreadsTakeTurns)
{
    put(kShort);
    std::atomic<bool> loaded{false};
    std::thread other;
    WatchedThread loading;
    {
        zstore::JournaledFile storing(path_.c_str(), zstore::JournaledFile::Mode::store);
        other = std::thread([&] {
            loading.enter();
            EXPECT_EQ(kLong, load());
            loaded = true;
        });
        loading.waitUntilAsleep();
        EXPECT_FALSE(loaded);
        storing.commit(viewOf(kLong.text), change(kLong));
    }
    other.join();
    EXPECT_TRUE(loaded);
}

TEST_F(ZJournaledFileConcurrency, ClosingOneReferenceKeepsTheLockOfAnother)
{
    put(kShort);
    auto first =
        std::make_unique<zstore::JournaledFile>(path_.c_str(), zstore::JournaledFile::Mode::load);
    EXPECT_FALSE(isFree(path_));
    {
        zstore::JournaledFile const second(path_.c_str(), zstore::JournaledFile::Mode::load);
    }
    EXPECT_FALSE(isFree(path_));
    {
        zfiles::SharedFile file;
        ASSERT_EQ(0, file.open(path_.c_str(), O_RDWR, 0));
    }
    EXPECT_FALSE(isFree(path_));
    first.reset();
    EXPECT_TRUE(isFree(path_));
}

TEST_F(ZJournaledFileConcurrency, SecondNamesOfTheFileKeepItsLock)
{
    for (char const* name : {".conf.zjn", ".conf.zjn.new", ".conf.zjn.orphan", ".conf.obf.new"}) {
        SCOPED_TRACE(name);
        put(kShort);
        ASSERT_EQ(0, link(path_.c_str(), directory_.at(name).c_str()));
        int looks = 0;
        CallPlan looking;
        looking.before = [&](SystemCall const& call) {
            if (call.name != "pwrite")
                return 0;
            ++looks;
            EXPECT_FALSE(isFree(path_));
            return 0;
        };
        {
            CallRecorder const watch(looking);
            store(kLong);
        }
        EXPECT_EQ(2, looks);  // the text, and the end of the journal
        EXPECT_EQ(kLong, load());
        std::filesystem::remove(directory_.at(name));
    }
}

TEST_F(ZJournaledFileConcurrency, SharedFilesExcludeEachOther)
{
    put(kShort);
    zfiles::SharedFile one;
    zfiles::SharedFile other;
    ASSERT_EQ(0, one.open(path_.c_str(), O_RDONLY, 0));
    ASSERT_EQ(0, other.open(path_.c_str(), O_RDWR, 0));
    EXPECT_EQ(one.descriptor(), other.descriptor());
    EXPECT_EQ(0, one.lock(F_RDLCK, 0, 1));
    EXPECT_EQ(0, other.lock(F_RDLCK, 0, 1));
    EXPECT_EQ(0, other.lock(F_WRLCK, 1, 1));
    EXPECT_EQ(EDEADLK, one.lock(F_RDLCK, 1, 1));
    EXPECT_EQ(EDEADLK, one.lock(F_WRLCK, 0, 1));
    one.unlock(0, 1);
    WatchedThread locking;
    std::thread waiting([&] {
        zfiles::SharedFile third;
        ASSERT_EQ(0, third.open(path_.c_str(), O_RDWR, 0));
        locking.enter();
        EXPECT_EQ(0, third.lock(F_WRLCK, 0, 1));
        EXPECT_EQ(0, third.lock(F_WRLCK, 1, 1));
    });
    locking.waitUntilAsleep();
    other.unlock(0, 1);
    other.close();
    waiting.join();
    EXPECT_TRUE(isFree(path_));
    EXPECT_TRUE(one.isOpen());
    EXPECT_FALSE(other.isOpen());
}

TEST_F(ZJournaledFileConcurrency, ForkedChildHasAnEmptyTable)
{
    put(kShort);
    zstore::JournaledFile const loading(path_.c_str(), zstore::JournaledFile::Mode::load);
    pid_t const child = fork();
    if (child == 0) {
        Pair const found = load();
        _exit(found == kShort ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST_F(ZJournaledFileConcurrency, FileThatAnEditorReplacesIsLoadedWhole)
{
    // A load opens the file at most 100 times, and each open fails at most once for each
    // replacement: fewer replacements during a load let it succeed, however slow it is.
    constexpr int kReplacementsForEachLoad = 50;
    put(kShort);
    std::atomic<int> allowed{0};
    std::atomic<bool> stop{false};
    std::atomic<int> replaced{0};
    std::thread editor([&] {
        while (!stop) {
            if (allowed == 0) {
                std::this_thread::yield();
                continue;
            }
            --allowed;
            directory_.write("edited", "edit " + std::to_string(++replaced) + "\n");
            EXPECT_EQ(0, rename(directory_.at("edited").c_str(), path_.c_str()));
        }
    });
    for (int i = 0; i < 200 || replaced == 0; ++i) {
        allowed = kReplacementsForEachLoad;
        std::string text;
        EXPECT_NO_THROW({
            zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::load);
            text.assign(file.text().data(), file.text().size());
        });
        EXPECT_TRUE(text == kShort.text || text.compare(0, 5, "edit ") == 0) << text;
    }
    stop = true;
    editor.join();
}

TEST_F(ZJournaledFileConcurrency, OpeningAFileThatIsReplacedAtEachOpenFails)
{
    put(kShort);
    int opened = 0;
    CallPlan replacing;
    replacing.before = [&](SystemCall const& call) {
        opened += call.name == "open" && call.path == path_;
        if (call.name == "F_SETLK") {
            directory_.write("edited", "edited\n");
            EXPECT_EQ(0, rename(directory_.at("edited").c_str(), path_.c_str()));
        }
        return 0;
    };
    expectFailure(path_, "fopen(r)", ESTALE, replacing,
                  [&] { zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::load); });
    EXPECT_EQ(100, opened);
    expectFailure(path_, "fopen(r+)", ESTALE, replacing, [&] {
        zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::store);
    });
    EXPECT_EQ("edited\n", directory_.read("conf"));
}

TEST_F(ZJournaledFileConcurrency, FileRemovedWhileItIsOpenedIsMissing)
{
    // Before and after its real path is known.
    for (char const* moment : {"open", "F_SETLK"}) {
        SCOPED_TRACE(moment);
        bool isGone = false;
        CallPlan removing;
        removing.after = [&](SystemCall const& call, ssize_t& result) {
            if (!isGone && call.name == moment && result >= 0)
                isGone = std::filesystem::remove(path_);
        };
        put(kPlain);
        expectFailure(path_, "fopen(r)", ENOENT, removing, [&] {
            zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::load);
        });
        EXPECT_TRUE(isGone);
        // A store creates it again, even if it was the file that the store had created.
        for (bool made : {false, true}) {
            put(kPlain);
            if (made)
                std::filesystem::remove(path_);
            isGone = false;
            {
                CallRecorder const watch(removing);
                storeText(kLong.text);
            }
            EXPECT_TRUE(isGone);
            EXPECT_EQ(kLong.text, directory_.read("conf"));
        }
    }
}

TEST_F(ZJournaledFileConcurrency, FileThatBecomesADanglingLinkFails)
{
    struct Case {
        char const* target;
        int error;
    };
    for (Case const& c : {Case{"conf", ELOOP}, Case{"missing", ELOOP}}) {
        SCOPED_TRACE(c.target);
        put(kPlain);
        CallPlan linking;
        linking.after = [&](SystemCall const& call, ssize_t& result) {
            if (call.name == "open" && result >= 0 && std::filesystem::remove(path_))
                std::filesystem::create_symlink(c.target, path_);
        };
        expectFailure(path_, "fopen(r)", c.error, linking, [&] {
            zstore::JournaledFile(path_.c_str(), zstore::JournaledFile::Mode::load);
        });
        std::filesystem::remove(path_);
    }
}
