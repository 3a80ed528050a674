// JournaledFileFixture: the fixture of the tests of zstore::JournaledFile, and plans for the calls
// of a store.
#pragma once

#include <Z/store/journaled_file.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "FailingAllocator.h"
#include "Nobody.h"
#include "SharedFileTable.h"
#include "SystemCalls.h"
#include "TestDirectory.h"

// ---- The calls of a store ----------------------------------------------------------------------

using Range = std::pair<off_t, size_t>;  // offset and length

// Returns the state of a journal: "." if its checksum is overwritten, "?" if it may be valid; "" if
// the file is missing or not a journal.
inline std::string journalStateOf(char const* path)
{
    // Do not open a second name of the file: closing it would drop the lock.
    struct stat status;
    if (strstr(path, ".zjn") == nullptr || lstat(path, &status) != 0 || status.st_nlink > 1)
        return "";
    std::ifstream in(path, std::ios::binary);
    std::string const all{std::istreambuf_iterator<char>(in), {}};
    bool const whole = all.size() >= 4 && all.substr(all.size() - 4) != std::string(4, '\0');
    return whole ? "?" : ".";
}

// Returns the name of the file that a call uses, without directories.
inline std::string nameOf(SystemCall const& call)
{
    std::error_code ignored;
    std::filesystem::path path = call.path != nullptr ? call.path : "";
    if (call.path == nullptr)
        path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(call.fd), ignored);
    return path.filename().string();
}

inline bool isOnDirectory(SystemCall const& call)
{
    struct stat status;
    return call.path == nullptr && fstat(call.fd, &status) == 0 && S_ISDIR(status.st_mode);
}

// Watches the calls in this scope (RAII), and records some of them.
class CallRecorder {
public:
    explicit CallRecorder(CallPlan const& plan = CallPlan()) : watched_(recordingPlan(plan)) {}

    std::vector<Range> writes;  // by pwrite()
    std::string endings;        // of the journals that were removed, see journalStateOf()
    int directorySyncs = 0;
    int starts = 0;  // of writing to the disk without waiting; each fails

private:
    CallPlan recordingPlan(CallPlan plan)
    {
        plan.before = [this, before = plan.before](SystemCall const& call) {
            int const failure = record(call);
            return failure == 0 && before ? before(call) : failure;
        };
        return plan;
    }

    int record(SystemCall const& call)
    {
        if (call.name == "pwrite")
            writes.emplace_back(call.offset, call.length);
        if (call.name == "unlink")
            endings += journalStateOf(call.path);
        if (call.name == "fsync" && isOnDirectory(call))
            ++directorySyncs;
        if (call.name != "sync_file_range")
            return 0;
        EXPECT_EQ(0, call.offset);  // the whole file
        EXPECT_EQ(0u, call.length);
        if (call.flags == SYNC_FILE_RANGE_WRITE) {
            ++starts;
            return EIO;
        }
        EXPECT_EQ(SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER,
                  call.flags);
        return 0;
    }

    WatchedCalls const watched_;
};

// Returns a plan that pretends that the files are on a file system of this type, with these flags,
// and optionally that the journal is on another disk.
inline CallPlan planOn(long system, int flags = 0, bool otherDisk = false)
{
    CallPlan plan;
    plan.after = [=](SystemCall const& call, ssize_t& result) {
        if (call.name == "fstatfs") {
            static_cast<struct statfs*>(call.to)->f_type = system;
        } else if (call.name == "ioctl") {
            *static_cast<int*>(call.to) = flags;
            result = 0;
        } else if ((call.name == "fstat" || call.name == "lstat") && otherDisk) {
            if (nameOf(call).find(".zjn") != std::string::npos)
                ++static_cast<struct stat*>(call.to)->st_dev;
        }
    };
    return plan;
}

// ---- Generations -------------------------------------------------------------------------------

// Text and companion of one generation; both identify it. An empty companion means a missing file.
struct Pair {
    std::string text;
    std::string companion;

    bool operator==(Pair const& other) const
    {
        return text == other.text && companion == other.companion;
    }
};

inline std::ostream& operator<<(std::ostream& out, Pair const& pair)
{
    return out << "\"" << pair.text.substr(0, 60) << "\" (" << pair.text.size() << ") with "
               << pair.companion.size();
}

inline std::string_view viewOf(std::string const& text)
{
    return {text.data(), text.size()};
}

// Returns contents that look compressed.
inline std::string compressed(std::string const& text)
{
    return "\x78\x9C" + text;
}

class JournaledFileFixture : public testing::Test {
public:
    ~JournaledFileFixture() noexcept override {}

protected:
    // Writes a pair, and removes the files of crashed writers.
    void put(Pair const& pair)
    {
        for (auto const& entry : std::filesystem::directory_iterator(directory_.path()))
            if (entry.path().filename().string()[0] == '.')
                std::filesystem::remove_all(entry.path());
        directory_.write("conf", pair.text);
        if (pair.companion.empty())
            std::filesystem::remove(companion_);
        else
            directory_.write("conf.obf", pair.companion);
    }

    Pair load()
    {
        zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::load);
        Pair pair;
        pair.text.assign(file.text().data(), file.text().size());
        try {
            zstore::JournaledFile::Bytes const bytes = file.readCompanion(companion_.c_str());
            pair.companion.assign(bytes.data(), bytes.length());
        } catch (zstore::JournaledFile::IoError const& failure) {
            EXPECT_STREQ("mapFile()", failure.callName());
            EXPECT_EQ(EINVAL, failure.error);
        }
        return pair;
    }

    zstore::JournaledFile::Companion change(Pair const& pair, bool hadCompanion = true) const
    {
        zstore::JournaledFile::Companion companion;
        companion.path = companion_;
        companion.contents = viewOf(pair.companion);
        if (!pair.companion.empty())
            companion.change = zstore::JournaledFile::Companion::written;
        else if (hadCompanion)
            companion.change = zstore::JournaledFile::Companion::removed;
        return companion;
    }

    void store(Pair const& pair)
    {
        zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
        file.commit(viewOf(pair.text), change(pair));
    }

    // Stores `text` and keeps the companion.
    void storeText(std::string const& text)
    {
        zstore::JournaledFile file(path_.c_str(), zstore::JournaledFile::Mode::store);
        file.commit(viewOf(text), zstore::JournaledFile::Companion());
    }

    // Returns a plan that reads the journal into `journal` just before the text is written.
    CallPlan keepingJournal(std::string& journal) const
    {
        CallPlan plan;
        plan.before = [&](SystemCall const& call) {
            if (call.name == "pwrite" && journal.empty())
                journal = directory_.read(".conf.zjn");
            return 0;
        };
        return plan;
    }

    // Stores in a child that ends before its n-th call; returns false if it made fewer calls. Its
    // calls `failAt` and `failAlso` fail.
    bool storeUpTo(int n, Pair const& pair, int failAt = 0, int failAlso = 0)
    {
        pid_t const child = fork();
        if (child == 0) {
            CallPlan dying;
            dying.dieAt = n;
            dying.failAt = failAt;
            dying.failAlso = failAlso;
            try {
                CallRecorder const watch(dying);
                store(pair);
            } catch (...) {
                _exit(failAt != 0 ? 0 : 1);
            }
            _exit(0);
        }
        int status = 0;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) &&
                    (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == kDiedAtCall))
            << status;
        return WEXITSTATUS(status) == kDiedAtCall;
    }

    // Runs `call`, watched, and expects an IoError with this file, call and errno, and no
    // descriptor left open.
    template <class Call>
    static void expectFailure(std::string const& file, char const* text, int error,
                              CallPlan const& plan, Call call)
    {
        long const descriptors = openDescriptors();
        try {
            CallRecorder const watch(plan);
            call();
            ADD_FAILURE() << "nothing was thrown";
        } catch (zstore::JournaledFile::IoError const& failure) {
            EXPECT_EQ(file, failure.file);
            EXPECT_STREQ(text, failure.callName());
            EXPECT_EQ(error, failure.error);
        }
        EXPECT_EQ(descriptors, openDescriptors());
    }

    // Runs `call` once for each of its allocations, which fails. Expects std::bad_alloc, no leaked
    // block and no leaked descriptor, and runs `check`. Returns the count of failed allocations.
    template <class Call, class Check>
    static int failEachAllocation(CallPlan const& plan, Call call, Check check,
                                  FailingAllocator::Mode mode = FailingAllocator::once)
    {
        createTableOfSharedFiles();
        for (unsigned long n = 1;; ++n) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            long const descriptors = openDescriptors();
            bool raised = false;
            bool failed;
            {
                WatchedCalls const watched(plan);
                long const blocks = FailingAllocator::blocks();
                FailingAllocator::failAt(n, mode);
                try {
                    call();
                } catch (std::bad_alloc const&) {
                    raised = true;
                }
                failed = FailingAllocator::stop();
                EXPECT_EQ(blocks, FailingAllocator::blocks());
            }
            EXPECT_EQ(failed, raised);
            EXPECT_EQ(descriptors, openDescriptors());
            if (!failed || HasFailure())
                return static_cast<int>(n - 1);
            check();
        }
    }

    // Returns a plan in which the n-th call of this name on this file fails. "directory" means any
    // directory.
    static CallPlan failing(std::string const& name, std::string const& file, int error = EIO,
                            int nth = 1)
    {
        CallPlan plan;
        plan.before = [=, seen = 0](SystemCall const& call) mutable {
            bool const isMeant = call.name == name &&
                                 (file == "directory" ? isOnDirectory(call) : nameOf(call) == file);
            return isMeant && ++seen == nth ? error : 0;
        };
        return plan;
    }

    // Runs `body` in a child, as a user other than root, and expects it to return true.
    static void asNobody(std::function<bool()> const& body)
    {
        ::asNobody([&] {
            try {
                return body();
            } catch (zstore::JournaledFile::IoError const& failure) {
                fprintf(stderr, "%s %s %d\n", failure.file.c_str(), failure.callName(),
                        failure.error);
                return false;
            }
        });
    }

    TestDirectory directory_{TestDirectory::Place::memory};
    std::string const path_ = directory_.at("conf");
    std::string const companion_ = directory_.at("conf.obf");
    std::string const journal_ = directory_.at(".conf.zjn");
};

inline Pair const kShort = {"one\n", compressed("1")};
inline Pair const kLong = {"two two two two two two\n", compressed("22")};
inline Pair const kPlain = {"three\n", ""};

// The shapes of a store: the pairs before and after.
struct Shape {
    char const* name;
    Pair before;
    Pair after;
};
inline Shape const kShapes[] = {
    {"longer", kShort, kLong},
    {"shorter", kLong, kShort},
    {"companion added", kPlain, kLong},
    {"companion removed", kLong, kPlain},
    {"text only", kPlain, {"four four four\n", ""}},
    {"companion only", kShort, {kShort.text, compressed("other")}},
    {"nothing changes", kShort, kShort},
    {"to nothing", kLong, {"", ""}},
    {"from nothing", {"", ""}, kLong},
};

// Returns the range that a store rewrites: after the common prefix, and before the common suffix
// unless that moves.
inline Range rangeOf(std::string const& before, std::string const& after)
{
    size_t first = 0;
    while (first < before.size() && first < after.size() && before[first] == after[first])
        ++first;
    size_t last = std::max(before.size(), after.size());
    if (before.size() == after.size())
        while (last > first && before[last - 1] == after[last - 1])
            --last;
    return {static_cast<off_t>(first), last - first};
}

// Returns a plan in which the n-th and all later calls of this name fail.
inline CallPlan failingFrom(std::string const& name, int error, int nth, bool& isReached)
{
    CallPlan plan;
    plan.before = [=, &isReached, seen = 0](SystemCall const& call) mutable {
        if (call.name != name || ++seen < nth)
            return 0;
        isReached = true;
        return error;
    };
    return plan;
}

// Returns whether another process could lock the file for writing.
inline bool isFree(std::string const& path)
{
    pid_t const child = fork();
    if (child == 0) {
        int const fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        struct flock whole = {};
        whole.l_type = F_WRLCK;
        _exit(fcntl(fd, F_SETLK, &whole) == 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status) == 0;
}

// Returns a plan that runs `meddle` before the n-th call.
inline CallPlan meddlingAt(int n, std::function<void()> const& meddle)
{
    CallPlan plan;
    plan.before = [=](SystemCall const&) {
        if (callPlan.calls == n)
            meddle();
        return 0;
    };
    return plan;
}
