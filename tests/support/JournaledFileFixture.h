// JournaledFileFixture: the fixture of the tests of ZJournaledFile, and plans for the calls of a
// store.
#pragma once

#include <Z/files/shared_file.h>
#include <Z/store/journaled_file.h>
#include <Z/store/limits.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <zlib.h>
#include <atomic>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>
#include "FailingAllocator.h"
#include "Nobody.h"
#include "SystemCalls.h"
#include "TestDirectory.h"

// ---- The calls of a store ----------------------------------------------------------------------

using Range = std::pair<off_t, size_t>;  // place and length

// Returns what a journal ends with: "." when that is no checksum, "?" when it is; "" for what is no
// journal or missing.
inline std::string endingOf(char const* path)
{
    // A second name of the file is not even opened: closing it would drop the lock.
    struct stat status;
    if (strstr(path, ".zjn") == nullptr || lstat(path, &status) != 0 || status.st_nlink > 1)
        return "";
    std::ifstream in(path, std::ios::binary);
    std::string const all{std::istreambuf_iterator<char>(in), {}};
    bool const whole = all.size() >= 4 && all.substr(all.size() - 4) != std::string(4, '\0');
    return whole ? "?" : ".";
}

// Returns the name of the file that a call works on, without its folders.
inline std::string nameOf(SystemCall const& call)
{
    std::error_code ignored;
    std::filesystem::path path = call.path != nullptr ? call.path : "";
    if (call.path == nullptr)
        path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(call.fd), ignored);
    return path.filename().string();
}

inline bool isOnFolder(SystemCall const& call)
{
    struct stat status;
    return call.path == nullptr && fstat(call.fd, &status) == 0 && S_ISDIR(status.st_mode);
}

// Watches the calls for a scope, and notes what some of them do.
class Watch {
public:
    explicit Watch(CallPlan const& wanted = CallPlan()) : watched_(noting(wanted)) {}

    std::vector<Range> writes;  // by pwrite()
    std::string endings;        // of the journals that were removed, see endingOf()
    int folderSyncs = 0;
    int starts = 0;  // of writing to the disk that is not waited for; each fails

private:
    CallPlan noting(CallPlan plan)
    {
        plan.before = [this, before = plan.before](SystemCall const& call) {
            int const end = note(call);
            return end == 0 && before ? before(call) : end;
        };
        return plan;
    }

    int note(SystemCall const& call)
    {
        if (call.name == "pwrite")
            writes.emplace_back(call.offset, call.length);
        if (call.name == "unlink")
            endings += endingOf(call.path);
        if (call.name == "fsync" && isOnFolder(call))
            ++folderSyncs;
        if (call.name != "sync_file_range")
            return 0;
        EXPECT_EQ(0, call.offset);  // all of the file
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

// A plan where the files seem to be on a file system of this type, to have these flags there, and
// the journal to be on another disk.
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

// ---- What is stored ----------------------------------------------------------------------------

// Text and companion of one generation: both say which. The companion of a generation without one
// is "".
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

// Contents that look packed.
inline std::string packed(std::string const& text)
{
    return "\x78\x9C" + text;
}

class JournaledFileFixture : public testing::Test {
public:
    ~JournaledFileFixture() noexcept override {}

protected:
    // Puts a pair where the store will find it, and nothing that a dead writer leaves.
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
        ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::load);
        Pair pair;
        pair.text.assign(file.text().data(), file.text().size());
        try {
            ZJournaledFile::Bytes const bytes = file.readCompanion(companion_.c_str());
            pair.companion.assign(bytes.data(), bytes.length());
        } catch (ZJournaledFile::IoError const& failure) {
            EXPECT_STREQ("mapFile()", failure.call);
            EXPECT_EQ(EINVAL, failure.error);
        }
        return pair;
    }

    ZJournaledFile::Companion change(Pair const& pair, bool hadCompanion = true) const
    {
        ZJournaledFile::Companion companion;
        companion.path = companion_;
        companion.contents = viewOf(pair.companion);
        if (!pair.companion.empty())
            companion.change = ZJournaledFile::Companion::written;
        else if (hadCompanion)
            companion.change = ZJournaledFile::Companion::removed;
        return companion;
    }

    void store(Pair const& pair)
    {
        ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
        file.commit(viewOf(pair.text), change(pair));
    }

    // Stores a text whose companion, if any, stays.
    void storeText(std::string const& text)
    {
        ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
        file.commit(viewOf(text), ZJournaledFile::Companion());
    }

    // A plan that reads the journal into `journal`, just before the text is written.
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

    // Stores in a child that ends at its n-th call; returns false when it got through. Its calls
    // `failAt` and `failAlso` fail.
    bool storeUpTo(int n, Pair const& pair, int failAt = 0, int failAlso = 0)
    {
        pid_t const child = fork();
        if (child == 0) {
            CallPlan dying;
            dying.dieAt = n;
            dying.failAt = failAt;
            dying.failAlso = failAlso;
            try {
                Watch const watch(dying);
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

    // Runs `call`, watched, and expects it to fail: on this file, in this call, with this errno. No
    // descriptor may be left open.
    template <class Call>
    static void expectFailure(std::string const& file, char const* text, int error,
                              CallPlan const& plan, Call call)
    {
        long const descriptors = openDescriptors();
        try {
            Watch const watch(plan);
            call();
            ADD_FAILURE() << "nothing was raised";
        } catch (ZJournaledFile::IoError const& failure) {
            EXPECT_EQ(file, failure.file);
            EXPECT_STREQ(text, failure.call);
            EXPECT_EQ(error, failure.error);
        }
        EXPECT_EQ(descriptors, openDescriptors());
    }

    // Runs `call` with each of its allocations failing: std::bad_alloc, no block and no descriptor
    // left, and what `check` expects. Returns how many failed.
    template <class Call, class Check>
    static int failEachAllocation(CallPlan const& plan, Call call, Check check,
                                  FailingAllocator::Mode mode = FailingAllocator::once)
    {
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

    // A plan where this call on this file fails once, the n-th time that it is made.
    static CallPlan failing(std::string const& name, std::string const& file, int error = EIO,
                            int nth = 1)
    {
        CallPlan plan;
        plan.before = [=, seen = 0](SystemCall const& call) mutable {
            bool const isMeant =
                call.name == name && (file == "folder" ? isOnFolder(call) : nameOf(call) == file);
            return isMeant && ++seen == nth ? error : 0;
        };
        return plan;
    }

    // Runs `body` as somebody who is not root, in a child; expects it to return true.
    static void asNobody(std::function<bool()> const& body)
    {
        ::asNobody([&] {
            try {
                return body();
            } catch (ZJournaledFile::IoError const& failure) {
                fprintf(stderr, "%s %s %d\n", failure.file.c_str(), failure.call, failure.error);
                return false;
            }
        });
    }

    TestDirectory directory_{TestDirectory::Place::memory};
    std::string const path_ = directory_.at("conf");
    std::string const companion_ = directory_.at("conf.obf");
    std::string const journal_ = directory_.at(".conf.zjn");
};

inline Pair const kShort = {"one\n", packed("1")};
inline Pair const kLong = {"two two two two two two\n", packed("22")};
inline Pair const kPlain = {"three\n", ""};

// The shapes of a store: what is there, and what is to be.
struct Shape {
    char const* name;
    Pair before;
    Pair after;
};
inline Shape const kShapes[] = {
    {"longer", kShort, kLong},
    {"shorter", kLong, kShort},
    {"companion comes", kPlain, kLong},
    {"companion goes", kLong, kPlain},
    {"text only", kPlain, {"four four four\n", ""}},
    {"companion only", kShort, {kShort.text, packed("other")}},
    {"nothing changes", kShort, kShort},
    {"to nothing", kLong, {"", ""}},
    {"from nothing", {"", ""}, kLong},
};

// Place and length of what is rewritten in place: behind the common beginning, and before the
// common end unless that moves.
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

// Fails a call with an error from its n-th time on.
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

// Whether another process could lock the file for writing.
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

// Runs `meddle` before the n-th call.
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
