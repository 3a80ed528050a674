#include <Z/store/journaled_file.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

#include "JournalForm.h"
#include "JournaledFileFixture.h"

using ZJournaledFileFailures = JournaledFileFixture;

TEST_F(ZJournaledFileFailures, PairIsOldOrNewIfAnyCallFails)
{
    int const errors[] = {ENOSPC, EIO, EDQUOT, EINTR, EMFILE, EACCES, EROFS, ENOLCK};
    int failures = 0;
    int stayed = 0;
    int runs = 0;
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        for (int error : errors) {
            SCOPED_TRACE(strerror(error));
            for (int call = 1;; ++call) {
                SCOPED_TRACE(call);
                put(shape.before);
                long const descriptors = openDescriptors();
                CallPlan failing;
                failing.failAt = call;
                failing.error = error;
                bool isApplied = false;  // before the failing call
                int changes = 0;         // of the companion
                failing.before = [&](SystemCall const& made) {
                    if (callPlan.calls == call)
                        isApplied = changes > 0 && made.name == "fsync" && isOnDirectory(made);
                    changes += (made.name == "rename" && nameOf(made) == ".conf.obf.new") ||
                               (made.name == "unlink" && nameOf(made) == "conf.obf");
                    return 0;
                };
                bool raised = false;
                bool reached;
                std::string failed;
                {
                    CallRecorder const watch(failing);
                    try {
                        store(shape.after);
                    } catch (zstore::JournaledFile::IoError const& failure) {
                        raised = true;
                        EXPECT_EQ(error, failure.error);
                    }
                    failed = callPlan.failed;
                    reached = !failed.empty();
                }
                EXPECT_EQ(descriptors, openDescriptors());
                EXPECT_TRUE(reached || !raised);
                EXPECT_EQ(raised ? shape.before : shape.after, load()) << failed;
                // Only the journal stays if the directory of the companion cannot be synced after
                // the change, and the next store removes it. An EINTR is retried.
                bool const stays = isApplied && error != EINTR;
                EXPECT_TRUE(!stays || !raised);
                EXPECT_EQ(stays ? 0 : std::string::npos, directory_.names().find(".conf"));
                EXPECT_EQ(stays ? 0 : std::string::npos, directory_.names().find(".conf.zjn conf"))
                    << directory_.names() << " " << failed;
                stayed += stays;
                if (stays) {
                    store(kPlain);
                    EXPECT_EQ(kPlain, load());
                    EXPECT_EQ("conf", directory_.names());
                }
                if (HasFailure())
                    return;
                if (!reached)
                    break;
                ++runs;
                failures += raised;
            }
        }
    }
    EXPECT_LT(1000, runs);
    EXPECT_LT(300, failures);
    EXPECT_LT(30, stayed);
}

TEST_F(ZJournaledFileFailures, FailureReportsFileAndCallAndLeavesTheOldPair)
{
    Pair const otherCompanion = {kShort.text, compressed("other")};
    struct Case {
        char const* call;
        char const* on;  // name of the file
        Pair before;
        Pair after;
        char const* file;
        char const* text;
        int nth = 1;
    };
    Case const cases[] = {
        {"open", "conf", kShort, kLong, "conf", "fopen(r+)"},
        {"F_SETLK", "conf", kShort, kLong, "conf", "fcntl()"},
        {"fstat", "conf", kShort, kLong, "conf", "fstat()", 2},  // of the locked file
        {"pread", "conf", kShort, kLong, "conf", "read()"},
        {"lstat", ".conf.zjn", kShort, kLong, ".conf.zjn", "lstat()"},
        {"open", "conf.obf", kShort, kLong, "conf.obf", "fopen(w)"},
        {"open", ".conf.zjn.new", kShort, kLong, ".conf.zjn.new", "open()"},
        {"fstat", ".conf.zjn.new", kShort, kLong, ".conf.zjn.new", "open()"},
        {"fstat", ".conf.zjn.new", kShort, kLong, ".conf.zjn.new", "fchmod()", 2},
        {"lstat", ".conf.zjn.new", kShort, kLong, ".conf.zjn", "rename()"},
        {"fchmod", ".conf.zjn.new", kShort, kLong, ".conf.zjn.new", "fchmod()"},
        {"fdatasync", "conf", kShort, kLong, "conf", "fdatasync()"},
        {"write", ".conf.zjn.new", kShort, kLong, ".conf.zjn.new", "write()"},
        {"rename", ".conf.zjn.new", kShort, kLong, ".conf.zjn", "rename()"},
        {"fsync", ".conf.zjn", kShort, kLong, ".conf.zjn", "fsync()"},
        {"fsync", "directory", kShort, kLong, ".conf.zjn", "fsync()"},
        {"fallocate", "conf", kShort, kLong, "conf", "fallocate()"},
        {"open", ".conf.obf.new", kShort, kLong, "conf.obf", "fopen(w)"},
        {"fchmod", ".conf.obf.new", kShort, kLong, "conf.obf", "fchmod()"},
        {"write", ".conf.obf.new", kShort, kLong, "conf.obf", "write()"},
        {"fsync", ".conf.obf.new", kShort, kLong, "conf.obf", "fsync()"},
        {"pwrite", "conf", kShort, kLong, "conf", "write()"},
        {"ftruncate", "conf", kLong, kShort, "conf", "ftruncate()"},
        {"futimens", "conf", kShort, otherCompanion, "conf", "futimens()"},
        {"fdatasync", "conf", kShort, kLong, "conf", "fdatasync()", 2},
        {"fstat", "conf", kShort, kLong, "conf", "fstat()", 4},  // after the rewrite
        {"rename", ".conf.obf.new", kShort, kLong, "conf.obf", "rename()"},
        {"unlink", "conf.obf", kLong, kPlain, "conf.obf", "unlink()"},
        {"fstat", ".conf.obf.new", kShort, kLong, "conf.obf", "fstat()", 2},
        {"lstat", "conf", kShort, kLong, "conf", "fstat()", 2},    // of the locked file
        {"lstat", "conf", kShort, kLong, "conf", "fopen(r+)", 3},  // before the journal
        {"lstat", "conf", kShort, kLong, "conf", "fopen(r+)", 4},  // before the companion
        {"lstat", "conf", kShort, kLong, "conf", "fopen(r+)", 5},  // at the end
        {"fsync", "directory", {"", ""}, {"one\n", ""}, ".conf.zjn", "fsync()"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(std::string(c.call) + " on " + c.on);
        put(c.before);
        std::string const names = directory_.names();
        expectFailure(directory_.at(c.file), c.text, EIO, failing(c.call, c.on, EIO, c.nth),
                      [&] { store(c.after); });
        EXPECT_EQ(c.before, load());
        EXPECT_EQ(c.before.text, directory_.read("conf"));
        EXPECT_EQ(names, directory_.names());
    }
}

TEST_F(ZJournaledFileFailures, WritesThatTransferNothingFail)
{
    struct Case {
        char const* call;
        char const* file;
    };
    for (Case const& c : {Case{"write", ".conf.zjn.new"}, Case{"pwrite", "conf"}}) {
        SCOPED_TRACE(c.call);
        put(kShort);
        expectFailure(directory_.at(c.file), "write()", EIO, failing(c.call, c.file, kMovesNothing),
                      [&] { store(kLong); });
        EXPECT_EQ(kShort, load());
        EXPECT_EQ("conf conf.obf", directory_.names());
    }
}

TEST_F(ZJournaledFileFailures, StoresWithoutAJournalIfTheDirectoryRefusesIt)
{
    for (int error : {EACCES, EPERM, EROFS, ENAMETOOLONG}) {
        SCOPED_TRACE(strerror(error));
        put(kPlain);
        {
            CallRecorder const watch(failing("open", ".conf.zjn.new", error));
            storeText(kLong.text);
            EXPECT_EQ("", watch.endings);
        }
        EXPECT_EQ(kLong.text, directory_.read("conf"));
    }
    // A full or failing directory makes the store fail.
    for (int error : {ENOSPC, EMFILE, EDQUOT}) {
        SCOPED_TRACE(strerror(error));
        put(kPlain);
        expectFailure(directory_.at(".conf.zjn.new"), "open()", error,
                      failing("open", ".conf.zjn.new", error), [&] { storeText(kLong.text); });
        EXPECT_EQ(kPlain, load());
    }
}

TEST_F(ZJournaledFileFailures, StoreSucceedsIfItsJournalCannotBeRetired)
{
    // The new pair is applied by then, and the journal describes it.
    std::map<std::string, int> const causes[] = {
        {{"pwrite", EIO}},
        {{"unlink", EPERM}},
        {{"pwrite", EIO}, {"unlink", EPERM}},
        {{"pwrite", EIO}, {"unlink", EIO}, {"open", EMFILE}}};
    for (auto const& cause : causes) {
        SCOPED_TRACE(cause.size());
        put(kShort);
        bool isStored = false;
        CallPlan plan;
        plan.before = [&](SystemCall const& call) {
            auto const failing = cause.find(call.name);
            isStored = isStored || (call.name == "rename" && nameOf(call) == ".conf.obf.new");
            return isStored && failing != cause.end() ? failing->second : 0;
        };
        {
            CallRecorder const watch(plan);
            store(kLong);
        }
        EXPECT_EQ(kLong, load());
        EXPECT_EQ(kLong.text, directory_.read("conf"));
        store(kPlain);
        EXPECT_EQ(kPlain, load());
        EXPECT_EQ("conf", directory_.names());
    }
}

TEST_F(ZJournaledFileFailures, OutOfMemoryLeavesOnlyThePair)
{
    CallPlan const none;
    put(kShort);
    EXPECT_LT(5, failEachAllocation(
                     none,
                     [&] {
                         zstore::JournaledFile const file(path_.c_str(),
                                                          zstore::JournaledFile::Mode::load);
                     },
                     [] {}));
    // A store is complete or changes nothing.
    int const failed = failEachAllocation(
        none,
        [&] {
            zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
            zstore::JournaledFile::Companion companion;
            companion.change = zstore::JournaledFile::Companion::written;
            companion.path = companion_;
            companion.contents = viewOf(kLong.companion);
            file.commit(viewOf(kLong.text), companion);
        },
        [&] {
            EXPECT_EQ(kShort, load());
            EXPECT_EQ("conf conf.obf", directory_.names());
        });
    EXPECT_LT(15, failed);
    EXPECT_EQ(kLong, load());
    // The same after a crash, for a load and for the store that completes it.
    Pair const torn = {kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion};
    for (zstore::JournaledFile::Mode use :
         {zstore::JournaledFile::Mode::load, zstore::JournaledFile::Mode::store}) {
        put(torn);
        directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
        EXPECT_LT(10, failEachAllocation(
                          none,
                          [&] {
                              zstore::JournaledFile file(path_.c_str(), use);
                              file.readCompanion(companion_.c_str());
                          },
                          [&] { EXPECT_EQ(kLong, load()); }));
    }
    EXPECT_EQ(kLong.text, directory_.read("conf"));
    // The same for a file that grows while it is read.
    put(kPlain);
    CallPlan growing;
    growing.after = [](SystemCall const& call, ssize_t& result) {
        if (call.name == "fstat" && result == 0)
            static_cast<struct stat*>(call.to)->st_size = 1;
    };
    EXPECT_LT(5, failEachAllocation(
                     growing,
                     [&] {
                         zstore::JournaledFile const file(path_.c_str(),
                                                          zstore::JournaledFile::Mode::load);
                     },
                     [] {}));
}

TEST_F(ZJournaledFileFailures, OutOfMemoryLeavesNoCreatedFile)
{
    auto const make = [&] {
        zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::store);
    };
    for (auto mode : {FailingAllocator::once, FailingAllocator::forEver})
        EXPECT_LT(5, failEachAllocation(
                         CallPlan(), make, [&] { EXPECT_EQ("", directory_.names()); }, mode));
}

TEST_F(ZJournaledFileFailures, PairIsOldOrNewIfRollingBackFailsToo)
{
    Pair const pairs[][2] = {{kLong, kShort}, {kShort, kLong}};
    int news = 0;
    for (auto const& pair : pairs) {
        put(pair[0]);
        {
            CallRecorder const watch;
            store(pair[1]);
        }
        int const calls = callPlan.calls;
        for (int first = 1; first <= calls; ++first)
            for (int second = first + 1;; ++second) {
                SCOPED_TRACE(std::to_string(first) + " and " + std::to_string(second));
                put(pair[0]);
                CallPlan failing;
                failing.failAt = first;
                failing.failAlso = second;
                bool raised = false;
                {
                    CallRecorder const watch(failing);
                    try {
                        store(pair[1]);
                    } catch (zstore::JournaledFile::IoError const&) {
                        raised = true;
                    }
                }
                // If the old pair cannot be restored, the journal has the new one, and the store
                // succeeds unless the state of the disk is unknown.
                Pair const found = load();
                bool const isUnknown = raised && callPlan.failed == "fdatasync";
                EXPECT_TRUE(found == pair[raised ? 0 : 1] || (isUnknown && found == pair[1]))
                    << callPlan.failed << " " << found;
                news += !raised && directory_.read("conf") != pair[1].text;
                if (HasFailure())
                    return;
                if (second > callPlan.calls)
                    break;
            }
    }
    EXPECT_LT(0, news);
}

TEST_F(ZJournaledFileFailures, StoreThatWritesNothingTruncatesNothing)
{
    // Another program, which uses no lock, appends while the journal cannot be written.
    put(kLong);
    CallPlan failing;
    failing.before = [&](SystemCall const& call) {
        if (call.name != "write")
            return 0;
        std::ofstream(path_, std::ios::app) << "more\n";
        timespec const old[] = {{1000, 0}, {1000, 0}};
        utimensat(AT_FDCWD, path_.c_str(), old, 0);
        return ENOSPC;
    };
    try {
        CallRecorder const watch(failing);
        storeText(kShort.text);
        ADD_FAILURE();
    } catch (zstore::JournaledFile::IoError const& failure) {
        EXPECT_EQ(ENOSPC, failure.error);
    }
    EXPECT_EQ(kLong.text + "more\n", directory_.read("conf"));
    struct stat status;
    ASSERT_EQ(0, stat(path_.c_str(), &status));
    EXPECT_EQ(1000, status.st_mtime);
}

TEST_F(ZJournaledFileFailures, DiskThatFailsPermanentlyLeavesACompletePair)
{
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        for (int call = 1;; ++call) {
            SCOPED_TRACE(call);
            put(shape.before);
            CallPlan failing;
            failing.failFrom = call;
            bool raised = false;
            bool reached;
            {
                CallRecorder const watch(failing);
                try {
                    store(shape.after);
                } catch (zstore::JournaledFile::IoError const&) {
                    raised = true;
                }
                reached = !callPlan.failed.empty();
            }
            // If the text can neither be synced nor restored, the store fails.
            Pair const found = load();
            EXPECT_TRUE(found == shape.after || (raised && found == shape.before))
                << callPlan.failed << " " << found;
            store(kPlain);
            EXPECT_EQ(kPlain, load());
            EXPECT_EQ("conf", directory_.names());
            if (HasFailure())
                return;
            if (!reached)
                break;
        }
    }
}

TEST_F(ZJournaledFileFailures, LoadReportsTheFailedCall)
{
    put(kShort);
    for (int call = 1;; ++call) {
        SCOPED_TRACE(call);
        CallPlan failing;
        failing.failAt = call;
        std::string seen;
        bool reached;
        {
            CallRecorder const watch(failing);
            try {
                zstore::JournaledFile const file(path_.c_str(), zstore::JournaledFile::Mode::load);
            } catch (zstore::JournaledFile::IoError const& failure) {
                seen = failure.callName();
                EXPECT_EQ(seen == "lstat()" ? journal_ : path_, failure.file);
            }
            reached = !callPlan.failed.empty();
        }
        if (!reached)
            break;
        std::string const expected = callPlan.failed == "open"      ? "fopen(r)"
                                     : callPlan.failed == "F_SETLK" ? "fcntl()"
                                     : callPlan.failed == "pread"   ? "read()"
                                                                    : seen;
        if (callPlan.failed != "close" && !seen.empty()) {
            EXPECT_EQ(expected, seen) << callPlan.failed;
        }
    }
}

TEST_F(ZJournaledFileFailures, StoresInPlaceIfTheDirectoryAllowsNoFiles)
{
    for (Shape const& shape : kShapes) {
        if (shape.before.companion.empty() != shape.after.companion.empty())
            continue;  // a companion can be neither created nor removed there
        SCOPED_TRACE(shape.name);
        put(shape.before);
        chmod(directory_.path().c_str(), 0755);
        chmod(path_.c_str(), 0606);
        if (!shape.before.companion.empty())
            chmod(companion_.c_str(), 0606);
        chmod(directory_.path().c_str(), 0555);
        asNobody([&] {
            std::string padded = shape.after.text;
            CallPlan looking;
            looking.before = [&](SystemCall const& call) {
                if (call.name == "ftruncate" && padded == shape.after.text)
                    padded = directory_.read("conf");
                return 0;
            };
            CallRecorder const watch(looking);
            store(shape.after);
            Range const range = rangeOf(shape.before.text, shape.after.text);
            size_t const longer = std::max(shape.before.text.size(), padded.size());
            return (range.second == 0 || (!watch.writes.empty() && watch.writes[0] == range)) &&
                   padded == shape.after.text + std::string(longer - shape.after.text.size(), '\n');
        });
        chmod(directory_.path().c_str(), 0755);
        EXPECT_EQ(shape.after.text, directory_.read("conf"));
        if (!shape.after.companion.empty()) {
            EXPECT_EQ(shape.after.companion, directory_.read("conf.obf"));
        }
        std::filesystem::remove(path_);
        std::filesystem::remove(companion_);
    }
}

TEST_F(ZJournaledFileFailures, FailuresWithoutAJournalRestoreTheOldPair)
{
    put(kLong);
    chmod(path_.c_str(), 0606);
    chmod(companion_.c_str(), 0606);
    chmod(directory_.path().c_str(), 0555);
    asNobody([&] {
        for (int call = 1;; ++call) {
            CallPlan failing;
            failing.failAt = call;
            bool raised = false;
            bool reached;
            {
                CallRecorder const watch(failing);
                try {
                    store(kShort);
                } catch (zstore::JournaledFile::IoError const&) {
                    raised = true;
                }
                reached = !callPlan.failed.empty();
            }
            std::string const text = directory_.read("conf");
            std::string const companion = directory_.read("conf.obf");
            Pair const expected = raised ? kLong : kShort;
            if (text != expected.text || companion != expected.companion) {
                fprintf(stderr, "call %d, %s\n", call, callPlan.failed.c_str());
                return false;
            }
            if (!reached)
                return true;
            store(kLong);
        }
    });
    chmod(directory_.path().c_str(), 0700);
}

TEST_F(ZJournaledFileFailures, LastingCauseChangesNothingOrTheStoreSucceeds)
{
    char const* const calls[] = {"open",      "openat2",  "fstat",  "lstat",  "pread",
                                 "write",     "pwrite",   "fsync",  "fchmod", "fdatasync",
                                 "ftruncate", "rename",   "unlink", "close",  "sync_file_range",
                                 "fallocate", "futimens", "F_SETLK"};
    int const errors[] = {EIO, ENOSPC, EPERM, EACCES, EBUSY, EROFS, EMFILE};
    Pair const others[] = {
        {"five five\n", compressed("5")}, kPlain, {"seven\n", compressed("777")}};
    int stored = 0;
    int raised = 0;
    for (Shape const& shape : kShapes)
        for (char const* name : calls)
            for (int error : errors) {
                bool isReached = true;
                for (int n = 1; isReached; ++n) {
                    SCOPED_TRACE(std::string(shape.name) + ": " + name + " " + strerror(error) +
                                 " from " + std::to_string(n));
                    put(shape.before);
                    isReached = false;
                    Pair expected = shape.before;
                    CallPlan const plan = failingFrom(name, error, n, isReached);
                    for (Pair const* next : {&shape.after, &others[0], &others[1], &others[2]}) {
                        try {
                            CallRecorder const watch(next == &shape.after
                                                         ? plan
                                                         : failingFrom(name, error, 1, isReached));
                            store(*next);
                            expected = *next;
                            ++stored;
                        } catch (zstore::JournaledFile::IoError const&) {
                            ++raised;
                        }
                        ASSERT_EQ(expected, load());
                        if (!isReached)
                            break;
                    }
                    store(kLong);
                    ASSERT_EQ(kLong, load());
                    ASSERT_EQ(kLong.text, directory_.read("conf"));
                    ASSERT_EQ("conf conf.obf", directory_.names());
                }
            }
    EXPECT_LT(1000, stored);
    EXPECT_LT(1000, raised);
}

TEST_F(ZJournaledFileFailures, UnreadableDirectoryIsSyncedWithItsFileSystem)
{
    chmod(directory_.path().c_str(), 0777);
    asNobody([&] {
        std::string const directory = directory_.at("directory");
        std::filesystem::create_directory(directory);
        std::string const file = directory + "/conf";
        std::string const companion = directory + "/conf.obf";
        chmod(directory.c_str(), 0300);
        int syncs = 0;
        CallPlan counting;
        counting.before = [&syncs](SystemCall const& call) {
            syncs += call.name == "syncfs";
            return 0;
        };
        for (Pair const& next : {kLong, kShort, kPlain}) {
            CallRecorder const watch(counting);
            zstore::JournaledFile stored(file.c_str(), zstore::JournaledFile::Mode::store);
            zstore::JournaledFile::Companion change = this->change(next);
            change.path = companion;
            stored.commit(next.text, change);
        }
        chmod(directory.c_str(), 0700);
        return syncs >= 3 && directory_.read("directory/conf") == kPlain.text &&
               namesIn(directory) == "conf";
    });
}

TEST(FailedCall, IsFoundByItsName)
{
    for (char const* const name : zfiles::kCallNames) {
        auto const call = zfiles::findCall(name);
        ASSERT_TRUE(call) << name;
        EXPECT_STREQ(name, zfiles::callName(*call));
    }
    EXPECT_FALSE(zfiles::findCall("open"));
    EXPECT_FALSE(zfiles::findCall(""));
}
