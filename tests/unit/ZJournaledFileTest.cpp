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
#include "LockingProcess.h"
#include "Nobody.h"
#include "SystemCalls.h"
#include "TestDirectory.h"

namespace {

// ---- The calls of a store ----------------------------------------------------------------------

using Range = std::pair<off_t, size_t>;  // place and length

// Returns what a journal ends with: "." when that is no checksum, "?" when it is; "" for what is no
// journal or missing.
std::string endingOf(char const* path)
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
std::string nameOf(SystemCall const& call)
{
    std::error_code ignored;
    std::filesystem::path path = call.path != nullptr ? call.path : "";
    if (call.path == nullptr)
        path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(call.fd), ignored);
    return path.filename().string();
}

bool isOnFolder(SystemCall const& call)
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
CallPlan planOn(long system, int flags = 0, bool otherDisk = false)
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

std::ostream& operator<<(std::ostream& out, Pair const& pair)
{
    return out << "\"" << pair.text.substr(0, 60) << "\" (" << pair.text.size() << ") with "
               << pair.companion.size();
}

std::string_view viewOf(std::string const& text)
{
    return {text.data(), text.size()};
}

// Contents that look packed.
std::string packed(std::string const& text)
{
    return "\x78\x9C" + text;
}

class StoreFileTest : public testing::Test {
public:
    ~StoreFileTest() noexcept override {}

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

Pair const kShort = {"one\n", packed("1")};
Pair const kLong = {"two two two two two two\n", packed("22")};
Pair const kPlain = {"three\n", ""};

// The shapes of a store: what is there, and what is to be.
struct Shape {
    char const* name;
    Pair before;
    Pair after;
};
Shape const kShapes[] = {
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
Range rangeOf(std::string const& before, std::string const& after)
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

}  // namespace

using ZJournaledFileCase = StoreFileTest;

// ---- Ordinary use ------------------------------------------------------------------------------

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

TEST_F(ZJournaledFileCase, StampIsThatOfTheFileItWrote)
{
    put(kShort);
    ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
    file.commit(viewOf(kLong.text), change(kLong));
    struct stat status;
    ASSERT_EQ(0, stat(path_.c_str(), &status));
    EXPECT_EQ(ZJournaledFile::Stamp(status), file.stamp());
    EXPECT_EQ(static_cast<off_t>(kLong.text.size()), file.stamp().size);
}

TEST_F(ZJournaledFileCase, StampTellsWhatHasChanged)
{
    void (*const changes[])(struct stat&) = {
        [](struct stat& status) { ++status.st_mtim.tv_sec; },
        [](struct stat& status) { ++status.st_mtim.tv_nsec; },
        [](struct stat& status) { ++status.st_size; },
        [](struct stat& status) { ++status.st_ino; },
        [](struct stat& status) { ++status.st_dev; },
    };
    struct stat const before = {};
    EXPECT_TRUE(ZJournaledFile::Stamp(before) == ZJournaledFile::Stamp(before));
    for (auto const& change : changes) {
        struct stat after = before;
        change(after);
        EXPECT_FALSE(ZJournaledFile::Stamp(before) == ZJournaledFile::Stamp(after))
            << &change - changes;
    }
}

TEST_F(ZJournaledFileCase, FileThatWasMadeForNothingIsRemoved)
{
    {
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
        EXPECT_EQ("conf", directory_.names());
        EXPECT_EQ(0u, file.text().size());
    }
    EXPECT_EQ("", directory_.names());
}

TEST_F(ZJournaledFileCase, FileThatSomebodyElseStoresIntoBeforeItIsLockedStays)
{
    CallPlan meeting;
    meeting.before = [this](SystemCall const& call) {
        if (call.name == "F_SETLK" && directory_.read("conf").empty())
            directory_.write("conf", "theirs\n");
        return 0;
    };
    {
        Watch const watch(meeting);
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
        EXPECT_EQ("theirs\n", std::string(file.text().data(), file.text().size()));
    }
    EXPECT_EQ("theirs\n", directory_.read("conf"));
}

TEST_F(ZJournaledFileCase, FileThatWasMadeIsNoLongerOursOnceItsNameMeansAnother)
{
    {
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
        directory_.write("other", "");
        ASSERT_EQ(0, rename(directory_.at("other").c_str(), path_.c_str()));
    }
    EXPECT_EQ("conf", directory_.names());
    std::filesystem::remove(path_);
    {
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
        std::filesystem::remove(path_);
    }
    EXPECT_EQ("", directory_.names());
}

TEST_F(ZJournaledFileCase, FileThatAppearsWhileItIsMadeIsTheOneThatIsOpened)
{
    // Before it is looked for a link, and after.
    for (char const* moment : {"open", "lstat"})
        for (std::string const theirs : {"theirs\n", ""}) {
            SCOPED_TRACE(moment + theirs);
            std::filesystem::remove(path_);
            CallPlan meeting;
            meeting.after = [&](SystemCall const& call, ssize_t&) {
                if (call.name == moment && directory_.names().empty())
                    directory_.write("conf", theirs);
            };
            {
                Watch const watch(meeting);
                ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
                EXPECT_EQ(theirs, std::string(file.text().data(), file.text().size()));
            }
            EXPECT_EQ(theirs, directory_.read("conf"));
        }
}

TEST_F(ZJournaledFileCase, FileInTheRootDirectoryIsStoredLikeAnother)
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
            Watch const watch(looking);
            ZJournaledFile file("/conf", ZJournaledFile::Mode::store);
            ZJournaledFile::Companion companion = change(kLong);
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

TEST_F(ZJournaledFileCase, MakesTheFileWhereADanglingLinkPoints)
{
    ASSERT_EQ(0, symlink("target", path_.c_str()));
    {
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
    }
    EXPECT_EQ("conf", directory_.names());
    store(kPlain);
    EXPECT_EQ("conf target", directory_.names());
    EXPECT_EQ(kPlain.text, directory_.read("target"));
}

TEST_F(ZJournaledFileCase, FileOfAnotherMountNamespaceIsNotMistakenForOurs)
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
                ZJournaledFile file(path.c_str(), ZJournaledFile::Mode::store);
                EXPECT_EQ(isNew && !replaces, file.text().empty());
                if (replaces)
                    file.replace(viewOf(next.text), ZJournaledFile::Companion());
                else
                    file.commit(viewOf(next.text), ZJournaledFile::Companion());
                file.close();
                ZJournaledFile const again(path.c_str(), ZJournaledFile::Mode::load);
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
TEST_F(ZJournaledFileCase, FileWithoutANameIsNotMistakenForAnother)
{
    put(kShort);
    int const fd = open(path_.c_str(), O_RDWR | O_CLOEXEC);
    std::string const open = "/proc/self/fd/" + std::to_string(fd);
    storeText("two\n");
    {
        ZJournaledFile const file(open.c_str(), ZJournaledFile::Mode::store);
        EXPECT_EQ("two\n", file.text());
    }
    ASSERT_EQ(0, unlink(path_.c_str()));
    for (bool const isOtherThere : {false, true}) {
        if (isOtherThere)
            directory_.write("conf (deleted)", "another\n");
        expectFailure(open, "fopen(r)", ENOENT, CallPlan(),
                      [&] { ZJournaledFile const file(open.c_str(), ZJournaledFile::Mode::load); });
        expectFailure(open, "fopen(r+)", ENOENT, CallPlan(), [&] {
            ZJournaledFile const file(open.c_str(), ZJournaledFile::Mode::store);
        });
        EXPECT_EQ(isOtherThere ? "conf (deleted) conf.obf" : "conf.obf", directory_.names());
    }
    ::close(fd);
}

TEST_F(ZJournaledFileCase, NewFileHasTheModeThatTheMaskLeaves)
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

TEST_F(ZJournaledFileCase, LongPathAndShortWritesAreNoObstacle)
{
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        put(shape.before);
        CallPlan shortWrites;
        shortWrites.shortTransfers = true;
        {
            Watch const watch(shortWrites);
            store(shape.after);
            EXPECT_EQ(shape.after, load());
        }
    }
    // A name that leaves no room for that of the journal's temporary file, or for any: written
    // without a journal.
    for (size_t length : {250, 252}) {
        std::string const name(length, 'n');
        std::string const file = directory_.write(name, "old\n");
        ZJournaledFile stored(file.c_str(), ZJournaledFile::Mode::store);
        stored.commit(viewOf(kPlain.text), ZJournaledFile::Companion());
        EXPECT_EQ(kPlain.text, directory_.read(name));
    }
}

TEST_F(ZJournaledFileCase, FileThatGrowsWhileItIsReadIsReadToItsEnd)
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
        Watch const watch(growing);
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load);
        EXPECT_EQ(kPlain.text + more, std::string(file.text().data(), file.text().size()));
    }
}

TEST_F(ZJournaledFileCase, CallsThatASignalInterruptsGoOn)
{
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        put(shape.before);
        std::set<std::string> interrupted;
        bool second = false;
        CallPlan interrupting = planOn(XFS_SUPER_MAGIC);
        interrupting.shortTransfers = true;
        interrupting.before = [&](SystemCall const& call) {
            for (char const* name :
                 {"open", "F_SETLK", "pread", "write", "pwrite", "fsync", "fdatasync",
                  "sync_file_range", "ftruncate", "fallocate", "futimens"})
                if (call.name == name && (second = !second)) {
                    interrupted.insert(name);
                    return EINTR;
                }
            return 0;
        };
        {
            Watch const watch(interrupting);
            store(shape.after);
        }
        EXPECT_LE(7u, interrupted.size());
        EXPECT_EQ(shape.after, load());
    }
}

TEST_F(ZJournaledFileCase, NameOfANewFileIsSyncedWithoutAJournalToo)
{
    std::string const name(250, 'n');
    Watch const watch;
    ZJournaledFile stored(directory_.at(name).c_str(), ZJournaledFile::Mode::store);
    stored.commit(viewOf(kPlain.text), ZJournaledFile::Companion());
    EXPECT_EQ(1, watch.folderSyncs);
    EXPECT_EQ(kPlain.text, directory_.read(name));
}

TEST_F(ZJournaledFileCase, WritesOnlyWhatDiffers)
{
    std::string const head(10000, 'h');
    std::string const tail(9000, 't');
    struct Case {
        char const* name;
        std::string before;
        std::string after;
        Range written;
        size_t journalled;  // bytes of the texts in the journal
    };
    Case const cases[] = {
        {"one byte", head + "0" + tail, head + "1" + tail, {10000, 1}, 2},
        {"first byte", "0" + tail, "1" + tail, {0, 1}, 2},
        {"last byte", head + "0", head + "1", {10000, 1}, 2},
        {"two places", "0" + head + "0" + tail, "1" + head + "1" + tail, {0, 10002}, 20004},
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
        Watch const watch(keepingJournal(journal));
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

TEST_F(ZJournaledFileCase, TimeOfTheFileMovesEvenWhenItsTextStays)
{
    for (Pair const& after : {kShort, Pair{kShort.text, packed("other")}, Pair{kShort.text, ""}}) {
        put(kShort);
        timespec const old[] = {{1000, 0}, {1000, 0}};
        ASSERT_EQ(0, utimensat(AT_FDCWD, path_.c_str(), old, 0));
        ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
        EXPECT_EQ(1000, file.stamp().seconds);
        file.commit(viewOf(after.text), change(after));
        EXPECT_LT(1000000000, file.stamp().seconds);
    }
}

TEST_F(ZJournaledFileCase, CompanionThatIsAsWantedIsLeftAlone)
{
    struct stat before;
    struct stat after;
    put(kShort);
    ASSERT_EQ(0, stat(companion_.c_str(), &before));
    store({kLong.text, kShort.companion});
    ASSERT_EQ(0, stat(companion_.c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);
    // But not when it is more readable than the file, or has another name.
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

TEST_F(ZJournaledFileCase, CompanionOnAnotherDiskIsWrittenAnew)
{
    // The sync of the journal does not take it along.
    TestDirectory const elsewhere;
    struct stat before;
    struct stat after;
    put(kPlain);
    ZJournaledFile::Companion companion = change(kLong);
    companion.path = elsewhere.write("secrets", kLong.companion);
    ASSERT_EQ(0, stat(companion.path.c_str(), &before));
    ASSERT_EQ(0, stat(path_.c_str(), &after));
    if (before.st_dev == after.st_dev)
        GTEST_SKIP() << "there is one disk";
    ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
    file.commit(viewOf(kLong.text), companion);
    ASSERT_EQ(0, stat(companion.path.c_str(), &after));
    EXPECT_NE(before.st_ino, after.st_ino);
}

TEST_F(ZJournaledFileCase, CompanionThatAnotherProgramPutThereIsSynced)
{
    struct Case {
        char const* name;
        long system;
        char const* call;  // that takes it to the disk
        int folderSyncs;   // for its name; the first is the journal's
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
            // All of this comes before the journal, whose own sync takes the rest along.
            if (first.empty() && call.name == "open") {
                EXPECT_EQ("(missing)", directory_.read(".conf.zjn.new"));
            }
            return 0;
        };
        {
            Watch const watch(elsewhere);
            store({kLong.text, kShort.companion});
            EXPECT_EQ(c.folderSyncs, watch.folderSyncs);
        }
        EXPECT_EQ(c.call, first);
        // When that fails nothing is acknowledged.
        put(kShort);
        elsewhere.before = [&](SystemCall const& call) {
            return call.name == c.call && callPlan.failed.empty() ? EIO : 0;
        };
        try {
            Watch const watch(elsewhere);
            store({kLong.text, kShort.companion});
            ADD_FAILURE();
        } catch (ZJournaledFile::IoError const& failure) {
            EXPECT_EQ(companion_, failure.file);
            EXPECT_STREQ("fsync()", failure.call);
        }
        EXPECT_EQ(kShort, load());
    }
}

TEST_F(ZJournaledFileCase, CompanionWhoseNameCannotBeSyncedIsWrittenAnew)
{
    // Another program put it there. Without a sync of its name a power cut might take it away.
    put(kShort);
    struct stat before;
    struct stat after;
    ASSERT_EQ(0, stat(companion_.c_str(), &before));
    {
        Watch const watch(failing("fsync", "folder"));
        store({kLong.text, kShort.companion});
    }
    ASSERT_EQ(0, stat(companion_.c_str(), &after));
    EXPECT_NE(before.st_ino, after.st_ino);
    EXPECT_EQ((Pair{kLong.text, kShort.companion}), load());
}

TEST_F(ZJournaledFileCase, FolderOfTheCompanionThatCannotBeOpenedIsTheCauseThatIsTold)
{
    put(kPlain);
    ZJournaledFile::Companion companion = change(kLong);
    companion.path = directory_.at("missing/conf.obf");
    expectFailure(companion.path, "fopen(w)", ENOENT, CallPlan(), [&] {
        ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::store).commit(kLong.text, companion);
    });
    std::string const folder = directory_.at("folder");
    std::filesystem::create_directory(folder);
    chmod(path_.c_str(), 0620);
    ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load);
    for (int error : {EMFILE, ENFILE, ENOMEM, EIO})
        for (int nth : {1, 2}) {
            SCOPED_TRACE(strerror(error));
            CallPlan hiding;
            hiding.before = [&, seen = 0](SystemCall const& call) mutable {
                return call.name == "open" && ++seen == nth ? error : 0;
            };
            Watch const watch(hiding);
            int const code = file.checkCompanionPath(folder + "/../conf.obf");
            EXPECT_EQ(nth == 1 ? error : 0, code);
        }
}

TEST_F(ZJournaledFileCase, JournalAndCompanionHaveTheOwnerAndModeOfTheFile)
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
        Watch const watch(looking);
        store(kLong);
    }
    look(companion_);
}

TEST_F(ZJournaledFileCase, WhatCannotBeGivenToTheGroupIsKeptFromAnyGroup)
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
            Watch const watch(looking);
            store(kLong);
        }
        struct stat companion;
        return stat(companion_.c_str(), &companion) == 0 && (companion.st_mode & 07777) == 0600 &&
               (journal.st_mode & 07777) == 0600;
    });
    EXPECT_EQ(kLong, load());
}

TEST_F(ZJournaledFileCase, WhatCanBeGivenOnlyToTheGroupIsKeptForIt)
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
        Watch const watch(looking);
        storeText(kLong.text);
        return (journal.st_mode & 07777) == 0660 && journal.st_uid == 65534 &&
               journal.st_gid == 65534;
    });
    EXPECT_EQ(kLong.text, directory_.read("conf"));
}

TEST_F(ZJournaledFileCase, WaitsForTheDiskOnlyAsOftenAsTheFileSystemNeeds)
{
    struct Case {
        char const* name;
        long system;
        int flags;
        char const* waits;
        bool otherDisk = false;
    };
    // For the old text, the journal, its name, the new text, and the journal's end. The file may
    // have nothing to sync at first: then the range costs nothing.
    char const range[] = "sync_file_range fsync fdatasync sync_file_range ";
    char const all[] = "fdatasync fsync fsync fdatasync fdatasync ";
    Case const cases[] = {
        {"ext4", EXT4_SUPER_MAGIC, FS_EXTENT_FL, range},
        {"XFS", XFS_SUPER_MAGIC, 0, range},
        {"XFS, folder elsewhere", XFS_SUPER_MAGIC, 0, "fdatasync fsync fdatasync fdatasync ", true},
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
            Watch const watch(elsewhere);
            storeText(kLong.text);
        }
        EXPECT_EQ(c.waits, waits);
        // The name of a file that was made is synced in any case.
        std::filesystem::remove(path_);
        Watch const watch(elsewhere);
        storeText(kPlain.text);
        EXPECT_EQ(1, watch.folderSyncs);
    }
}

TEST_F(ZJournaledFileCase, FileSystemThatCannotBeToldIsWaitedForAsOftenAsAny)
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
    Watch const watch(unknown);
    storeText(kLong.text);
    EXPECT_EQ("fdatasync fsync fsync fdatasync fdatasync ", waits);
}

TEST_F(ZJournaledFileCase, FileSystemThatHasNothingToSyncIsNoFailure)
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
    Watch const watch(failing);
    store(kLong);
    EXPECT_EQ((std::set<std::string>{"fdatasync", "fsync"}), failed);
    EXPECT_EQ(kLong.text, directory_.read("conf"));
}

// ---- The journal's form ------------------------------------------------------------------------

namespace {

void putNumber(std::string& out, uint64_t number, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out += static_cast<char>(number >> (8 * i));
}

constexpr uint64_t kNone = ~uint64_t{0};

uint32_t crcOf(std::string const& bytes)
{
    return static_cast<uint32_t>(
        crc32(0, reinterpret_cast<Bytef const*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

uint32_t adlerOf(std::string const& bytes)
{
    return static_cast<uint32_t>(
        adler32(1, reinterpret_cast<Bytef const*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

// A journal by the form that it is documented to have.
std::string journalOf(Pair const& before, Pair const& after, std::string const& path)
{
    std::string oldMiddle = before.text;
    std::string newMiddle = after.text;
    std::string beginning;
    std::string end;
    while (!oldMiddle.empty() && !newMiddle.empty() && oldMiddle[0] == newMiddle[0]) {
        beginning += oldMiddle[0];
        oldMiddle.erase(0, 1);
        newMiddle.erase(0, 1);
    }
    while (!oldMiddle.empty() && !newMiddle.empty() && oldMiddle.back() == newMiddle.back()) {
        end.insert(0, 1, oldMiddle.back());
        oldMiddle.pop_back();
        newMiddle.pop_back();
    }
    std::string moved;
    if (oldMiddle.size() != newMiddle.size())
        std::swap(end, moved);

    std::string out = "ZSTORE2\n";
    putNumber(out, beginning.size(), 8);
    putNumber(out, end.size(), 8);
    putNumber(out, oldMiddle.size(), 8);
    putNumber(out, newMiddle.size(), 8);
    putNumber(out, moved.size(), 8);
    putNumber(out, after.companion.empty() ? kNone : after.companion.size(), 8);
    putNumber(out, before.companion.empty() ? kNone : before.companion.size(), 8);
    putNumber(out, before.companion.empty() ? 0 : crcOf(before.companion), 4);
    putNumber(out, adlerOf(beginning), 4);
    putNumber(out, adlerOf(end), 4);
    putNumber(out, path.size(), 4);
    out += path + oldMiddle + newMiddle + moved + after.companion;
    uint32_t const crc = crcOf(out);
    putNumber(out, crc != 0 ? crc : 1, 4);
    return out;
}

// Returns four bytes behind which the CRC-32 of `bytes` is 0.
std::string bytesToZeroCrc(std::string const& bytes)
{
    z_crc_t const* const table = get_crc_table();
    uint32_t state = ~uint32_t{0};  // what the four bytes are to lead to
    for (int i = 0; i < 4; ++i) {
        uint32_t index = 0;
        while ((table[index] ^ state) >> 24 != 0)
            ++index;
        state = (state ^ static_cast<uint32_t>(table[index])) << 8 | index;
    }
    std::string out;
    putNumber(out, state ^ ~crcOf(bytes), 4);
    return out;
}

}  // namespace

// ---- Faults ------------------------------------------------------------------------------------

TEST_F(ZJournaledFileCase, EveryCallMayFailAndThePairIsOldOrNew)
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
                bool isApplied = false;  // when the call is made
                int changes = 0;         // of the companion
                failing.before = [&](SystemCall const& made) {
                    if (callPlan.calls == call)
                        isApplied = changes > 0 && made.name == "fsync" && isOnFolder(made);
                    changes += (made.name == "rename" && nameOf(made) == ".conf.obf.new") ||
                               (made.name == "unlink" && nameOf(made) == "conf.obf");
                    return 0;
                };
                bool raised = false;
                bool reached;
                std::string failed;
                {
                    Watch const watch(failing);
                    try {
                        store(shape.after);
                    } catch (ZJournaledFile::IoError const& failure) {
                        raised = true;
                        EXPECT_EQ(error, failure.error);
                    }
                    failed = callPlan.failed;
                    reached = !failed.empty();
                }
                EXPECT_EQ(descriptors, openDescriptors());
                EXPECT_TRUE(reached || !raised);
                EXPECT_EQ(raised ? shape.before : shape.after, load()) << failed;
                // A journal stays, and nothing else, if the new name of the companion, or that it
                // is gone, cannot be synced: an EINTR is repeated. The next store removes it.
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

TEST_F(ZJournaledFileCase, FailureNamesFileAndCallAndLeavesTheOldPair)
{
    Pair const otherCompanion = {kShort.text, packed("other")};
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
        {"fsync", "folder", kShort, kLong, ".conf.zjn", "fsync()"},
        {"fallocate", "conf", kShort, kLong, "conf", "fallocate()"},
        {"open", ".conf.obf.new", kShort, kLong, "conf.obf", "fopen(w)"},
        {"fchmod", ".conf.obf.new", kShort, kLong, "conf.obf", "fchmod()"},
        {"write", ".conf.obf.new", kShort, kLong, "conf.obf", "write()"},
        {"fsync", ".conf.obf.new", kShort, kLong, "conf.obf", "fsync()"},
        {"pwrite", "conf", kShort, kLong, "conf", "write()"},
        {"ftruncate", "conf", kLong, kShort, "conf", "ftruncate()"},
        {"futimens", "conf", kShort, otherCompanion, "conf", "futimens()"},
        {"fdatasync", "conf", kShort, kLong, "conf", "fdatasync()", 2},
        {"fstat", "conf", kShort, kLong, "conf", "fstat()", 6},  // of what was written
        {"rename", ".conf.obf.new", kShort, kLong, "conf.obf", "rename()"},
        {"unlink", "conf.obf", kLong, kPlain, "conf.obf", "unlink()"},
        {"fstat", ".conf.obf.new", kShort, kLong, "conf.obf", "fstat()", 2},
        {"lstat", "conf", kShort, kLong, "conf", "fstat()", 2},    // of the locked file
        {"lstat", "conf", kShort, kLong, "conf", "fopen(r+)", 3},  // before the journal
        {"lstat", "conf", kShort, kLong, "conf", "fopen(r+)", 4},  // before the companion
        {"lstat", "conf", kShort, kLong, "conf", "fopen(r+)", 5},  // at the end
        {"fsync", "folder", {"", ""}, {"one\n", ""}, ".conf.zjn", "fsync()"},
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

TEST_F(ZJournaledFileCase, WritesThatMoveNothingAreAFailure)
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

TEST_F(ZJournaledFileCase, FolderThatRefusesAJournalIsDoneWithout)
{
    for (int error : {EACCES, EPERM, EROFS, ENAMETOOLONG}) {
        SCOPED_TRACE(strerror(error));
        put(kPlain);
        {
            Watch const watch(failing("open", ".conf.zjn.new", error));
            storeText(kLong.text);
            EXPECT_EQ("", watch.endings);
        }
        EXPECT_EQ(kLong.text, directory_.read("conf"));
    }
    // One that is only full, or that fails, is not.
    for (int error : {ENOSPC, EMFILE, EDQUOT}) {
        SCOPED_TRACE(strerror(error));
        put(kPlain);
        expectFailure(directory_.at(".conf.zjn.new"), "open()", error,
                      failing("open", ".conf.zjn.new", error), [&] { storeText(kLong.text); });
        EXPECT_EQ(kPlain, load());
    }
}

TEST_F(ZJournaledFileCase, StoreWhoseJournalCannotBeRetiredHasSucceeded)
{
    // The new pair is in place by then, and the journal describes it.
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
            Watch const watch(plan);
            store(kLong);
        }
        EXPECT_EQ(kLong, load());
        EXPECT_EQ(kLong.text, directory_.read("conf"));
        store(kPlain);
        EXPECT_EQ(kPlain, load());
        EXPECT_EQ("conf", directory_.names());
    }
}

TEST_F(ZJournaledFileCase, MemoryThatEndsLeavesThePairAndNothingElse)
{
    CallPlan const none;
    put(kShort);
    EXPECT_LT(
        5, failEachAllocation(
               none, [&] { ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load); },
               [] {}));
    // A store is whole or has not been.
    int const failed = failEachAllocation(
        none,
        [&] {
            ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
            ZJournaledFile::Companion companion;
            companion.change = ZJournaledFile::Companion::written;
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
    // So it is with what a dead writer left, for whoever loads it and for whoever finishes it.
    Pair const torn = {kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion};
    for (ZJournaledFile::Mode use : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store}) {
        put(torn);
        directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
        EXPECT_LT(10, failEachAllocation(
                          none,
                          [&] {
                              ZJournaledFile file(path_.c_str(), use);
                              file.readCompanion(companion_.c_str());
                          },
                          [&] { EXPECT_EQ(kLong, load()); }));
    }
    EXPECT_EQ(kLong.text, directory_.read("conf"));
    // A file that grows while it is read.
    put(kPlain);
    CallPlan growing;
    growing.after = [](SystemCall const& call, ssize_t& result) {
        if (call.name == "fstat" && result == 0)
            static_cast<struct stat*>(call.to)->st_size = 1;
    };
    EXPECT_LT(5, failEachAllocation(
                     growing,
                     [&] { ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load); },
                     [] {}));
}

TEST_F(ZJournaledFileCase, MemoryThatEndsLeavesNoFileThatWasMade)
{
    auto const make = [&] {
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
    };
    for (auto mode : {FailingAllocator::once, FailingAllocator::forEver})
        EXPECT_LT(5, failEachAllocation(
                         CallPlan(), make, [&] { EXPECT_EQ("", directory_.names()); }, mode));
}

TEST_F(ZJournaledFileCase, WherePuttingBackFailsTooThePairIsOldOrNew)
{
    Pair const pairs[][2] = {{kLong, kShort}, {kShort, kLong}};
    int news = 0;
    for (auto const& pair : pairs) {
        put(pair[0]);
        {
            Watch const watch;
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
                    Watch const watch(failing);
                    try {
                        store(pair[1]);
                    } catch (ZJournaledFile::IoError const&) {
                        raised = true;
                    }
                }
                // Where the old pair cannot be put back, the journal gives the new one; that is
                // acknowledged unless it is not known what is on the disk.
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

TEST_F(ZJournaledFileCase, StoreThatWritesNothingCutsNothing)
{
    // Another program, which knows of no lock, appends while the journal cannot be written.
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
        Watch const watch(failing);
        storeText(kShort.text);
        ADD_FAILURE();
    } catch (ZJournaledFile::IoError const& failure) {
        EXPECT_EQ(ENOSPC, failure.error);
    }
    EXPECT_EQ(kLong.text + "more\n", directory_.read("conf"));
    struct stat status;
    ASSERT_EQ(0, stat(path_.c_str(), &status));
    EXPECT_EQ(1000, status.st_mtime);
}

TEST_F(ZJournaledFileCase, RoomIsSetAsideForALongerTextWhereTheFileSystemCan)
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
            Watch const watch(failing);
            store(shape.after);
            EXPECT_EQ(shape.after.text.size() > shape.before.text.size() ? 1 : 0, asked);
        }
}

TEST_F(ZJournaledFileCase, RoomThatWasSetAsideIsGivenBack)
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
        std::ofstream(path_, std::ios::app) << "more\n";  // that is not cut either
        return EIO;
    };
    {
        Watch const watch(failing);
        EXPECT_THROW(store({std::string(1 << 20, 'x'), kLong.companion}), ZJournaledFile::IoError);
    }
    struct stat after;
    ASSERT_EQ(0, stat(path_.c_str(), &after));
    EXPECT_EQ(before.st_blocks, after.st_blocks);
    EXPECT_EQ(kShort.text + "more\n", directory_.read("conf"));
}

TEST_F(ZJournaledFileCase, CloseOfASyncedFileDoesNotMatter)
{
    put(kShort);
    CallPlan failing;
    failing.failing["close"] = EIO;
    {
        Watch const watch(failing);
        store(kLong);
    }
    EXPECT_EQ(kLong, load());
    EXPECT_EQ("conf conf.obf", directory_.names());
}

TEST_F(ZJournaledFileCase, DiskThatFailsForGoodLeavesAWholePair)
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
                Watch const watch(failing);
                try {
                    store(shape.after);
                } catch (ZJournaledFile::IoError const&) {
                    raised = true;
                }
                reached = !callPlan.failed.empty();
            }
            // Where the text can neither be synced nor put back nothing is acknowledged.
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

TEST_F(ZJournaledFileCase, LoadNamesTheCallThatFailed)
{
    put(kShort);
    for (int call = 1;; ++call) {
        SCOPED_TRACE(call);
        CallPlan failing;
        failing.failAt = call;
        std::string seen;
        bool reached;
        {
            Watch const watch(failing);
            try {
                ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load);
            } catch (ZJournaledFile::IoError const& failure) {
                seen = failure.call;
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

TEST_F(ZJournaledFileCase, LoadThatCannotLookAtTheJournalIsRefused)
{
    // Find the call after which the text is torn: without its journal it is nothing.
    int torn = 0;
    for (int call = 1; torn == 0; ++call) {
        put(kLong);
        ASSERT_TRUE(storeUpTo(call, kShort));
        if (directory_.read("conf") != kLong.text && directory_.read("conf") != kShort.text)
            torn = call;
    }
    int raised = 0;
    bool reached = true;
    for (int call = 1; reached; ++call) {
        SCOPED_TRACE(call);
        CallPlan failing;
        failing.failAt = call;
        failing.error = EMFILE;
        try {
            Watch const watch(failing);
            EXPECT_EQ(kShort, load());
        } catch (ZJournaledFile::IoError const& failure) {
            EXPECT_EQ(EMFILE, failure.error);
            ++raised;
        }
        reached = !callPlan.failed.empty();
    }
    EXPECT_LT(8, raised);
    // The next store does not take it for somebody else's either.
    for (int call = 1, died = 1; died != 0; ++call) {
        put(kLong);
        storeUpTo(torn, kShort);
        died = storeUpTo(1000, kPlain, call) || !(load() == kPlain);
        Pair const found = load();
        EXPECT_TRUE(found == kPlain || found == kShort) << found << " " << call;
    }
}

TEST_F(ZJournaledFileCase, JournalThatCannotBeLookedAtIsNamed)
{
    struct Case {
        char const* call;
        int nth;
        char const* text;
    };
    for (Case const& c :
         {Case{"lstat", 1, "lstat()"}, Case{"open", 1, "open()"}, Case{"fstat", 1, "open()"},
          Case{"fstat", 2, "read()"}, Case{"pread", 1, "read()"}}) {
        SCOPED_TRACE(c.call);
        put({kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion});
        directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
        for (ZJournaledFile::Mode use : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store})
            expectFailure(journal_, c.text, EMFILE, failing(c.call, ".conf.zjn", EMFILE, c.nth),
                          [&] { ZJournaledFile(path_.c_str(), use); });
        EXPECT_EQ(kLong, load());
    }
}

TEST_F(ZJournaledFileCase, KilledAtAnyCallThePairIsOldOrNewAndTheNextStoreTidiesUp)
{
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        int olds = 0;
        int news = 0;
        for (int call = 1;; ++call) {
            SCOPED_TRACE(call);
            put(shape.before);
            bool const died = storeUpTo(call, shape.after);
            Pair const found = load();
            EXPECT_TRUE(found == shape.after || (died && found == shape.before)) << found;
            (found == shape.after ? news : olds) += 1;
            // A store that begins finds the same pair, and leaves nothing of the dead one's.
            {
                ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
                EXPECT_EQ(found.text, std::string(file.text().data(), file.text().size()));
                file.commit(viewOf(kPlain.text), change(kPlain));
            }
            EXPECT_EQ(kPlain, load());
            EXPECT_EQ("conf", directory_.names());
            if (HasFailure())
                return;
            if (!died)
                break;
        }
        EXPECT_LT(0, news);
        EXPECT_TRUE(olds > 0 || shape.before == shape.after);
    }
}

TEST_F(ZJournaledFileCase, ContentsOfACompanionThatGoesDoNotMatter)
{
    put(kLong);
    ZJournaledFile::Companion companion = change(kPlain);
    companion.contents = viewOf(kShort.companion);
    std::string journal;
    ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
    Watch const watch(keepingJournal(journal));
    file.commit(viewOf(kPlain.text), companion);
    EXPECT_EQ(journalOf(kLong, kPlain, companion_), journal);
}

TEST_F(ZJournaledFileCase, KilledWhileFinishingADeadStoreThePairIsStillNew)
{
    // Find the call after which the text is torn, then die at each call of the store that finishes.
    int torn = 0;
    for (int call = 1; torn == 0; ++call) {
        put(kLong);
        ASSERT_TRUE(storeUpTo(call, kShort));
        if (directory_.read("conf") != kLong.text && directory_.read("conf") != kShort.text)
            torn = call;
    }
    for (int call = 1;; ++call) {
        SCOPED_TRACE(call);
        put(kLong);
        storeUpTo(torn, kShort);
        EXPECT_EQ(kShort, load());
        bool const died = storeUpTo(call, kPlain);
        Pair const found = load();
        EXPECT_TRUE(found == kShort || found == kPlain) << found;
        if (HasFailure() || !died)
            break;
    }
}

TEST_F(ZJournaledFileCase, DeadStoreThatCannotBeFinishedLeavesOnlyItsJournal)
{
    for (char const* failed : {"fallocate", "fsync"}) {  // for the text, of the companion
        SCOPED_TRACE(failed);
        put({kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion});
        directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
        CallPlan failing;
        failing.before = [failed](SystemCall const& call) {
            return call.name == failed && callPlan.failed.empty() ? EIO : 0;
        };
        {
            Watch const watch(failing);
            EXPECT_THROW(ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::store),
                         ZJournaledFile::IoError);
        }
        EXPECT_EQ(".conf.zjn conf conf.obf", directory_.names());
        EXPECT_EQ(kLong, load());
    }
}

TEST_F(ZJournaledFileCase, FinishedTextThatCannotBeReadIsAFailure)
{
    put({kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion});
    directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
    expectFailure(path_, "read()", EIO, failing("pread", "conf", EIO, 2),
                  [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::store); });
    EXPECT_EQ("conf conf.obf", directory_.names());
    EXPECT_EQ(kLong, load());
}

TEST_F(ZJournaledFileCase, CompanionOfAnotherNameStaysWhenADeadStoreWasToBeRidOfIt)
{
    directory_.write("conf", kPlain.text);
    directory_.write("secrets", kLong.companion);
    directory_.write(".conf.zjn", journalOf(kLong, kPlain, directory_.at("secrets")));
    {
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
        EXPECT_EQ(kPlain.text, std::string(file.text().data(), file.text().size()));
    }
    EXPECT_EQ("conf secrets", directory_.names());
    EXPECT_EQ(kLong.companion, directory_.read("secrets"));
}

TEST_F(ZJournaledFileCase, JournalThatIsNotPutAsideOnlyHasNotToCount)
{
    std::string const whole = journalOf(kShort, kLong, "");
    put(kPlain);
    directory_.write(".conf.zjn", whole);
    {
        Watch const watch(failing("rename", ".conf.zjn"));
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
    }
    EXPECT_EQ(".conf.zjn conf", directory_.names());
    EXPECT_EQ(".", endingOf(journal_.c_str()));
    // Put aside it need not even be invalid.
    directory_.write(".conf.zjn", whole);
    {
        Watch const watch(failing("pwrite", ".conf.zjn"));
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
    }
    EXPECT_EQ(whole, directory_.read(".conf.zjn.orphan"));
    // But one or the other it has to be.
    directory_.write(".conf.zjn", whole);
    CallPlan both;
    both.failing = {{"rename", EACCES}, {"pwrite", EIO}};
    expectFailure(journal_, "unlink()", EIO, both,
                  [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::store); });
    EXPECT_EQ(whole, directory_.read(".conf.zjn"));
    directory_.write(".conf.zjn", whole);
    CallPlan hidden = failing("open", ".conf.zjn", EACCES, 2);  // it has been read by then
    hidden.failing["rename"] = EACCES;
    expectFailure(journal_, "unlink()", EACCES, hidden,
                  [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::store); });
    EXPECT_EQ(whole, directory_.read(".conf.zjn"));
}

TEST_F(ZJournaledFileCase, KilledWhilePuttingBackThePairIsOldOrNew)
{
    int calls = 0;
    do
        put(kLong);
    while (storeUpTo(++calls, kShort));
    int kills = 0;
    for (int failing = 1; failing < calls; ++failing)
        for (int call = failing + 1;; ++call) {
            SCOPED_TRACE(failing);
            SCOPED_TRACE(call);
            put(kLong);
            bool const died = storeUpTo(call, kShort, failing);
            Pair const found = load();
            EXPECT_TRUE(found == kLong || found == kShort) << found;
            if (HasFailure())
                return;
            if (!died)
                break;
            ++kills;
        }
    EXPECT_LT(300, kills);
}

TEST_F(ZJournaledFileCase, KilledAfterTheJournalCouldNotBeRetiredThePairIsNew)
{
    // The journal can neither be invalidated, nor can its removal be synced: the store has been
    // applied all the same, and nothing is put back.
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        int invalidated = 0;
        int synced = 0;
        put(shape.before);
        CallPlan looking;
        looking.before = [&](SystemCall const& call) {
            bool const invalidates = call.name == "pwrite" && nameOf(call) == ".conf.zjn";
            if (invalidates && invalidated == 0)
                invalidated = callPlan.calls;
            if (call.name == "fsync" && isOnFolder(call))
                synced = callPlan.calls;
            return invalidates ? EIO : 0;
        };
        {
            Watch const watch(looking);
            store(shape.after);
        }
        ASSERT_LT(0, invalidated);
        ASSERT_LT(invalidated, synced);
        int kills = 0;
        for (int call = invalidated + 1;; ++call) {
            SCOPED_TRACE(call);
            put(shape.before);
            bool const died = storeUpTo(call, shape.after, invalidated, synced);
            EXPECT_EQ(shape.after, load());
            store(kPlain);
            EXPECT_EQ(kPlain, load());
            EXPECT_EQ("conf", directory_.names());
            if (HasFailure() || !died)
                break;
            ++kills;
        }
        EXPECT_LT(5, kills);
    }
}

TEST_F(ZJournaledFileCase, FileSizeLimitIsAFailureLikeAnother)
{
    put(kShort);
    std::string const big(1 << 20, 'x');
    for (bool interrupted : {false, true}) {
        SCOPED_TRACE(interrupted);
        pid_t const child = fork();
        if (child == 0) {
            rlimit const limit = {1 << 16, 1 << 16};
            setrlimit(RLIMIT_FSIZE, &limit);
            int error = 0;
            CallPlan plan;
            plan.before = [=, waits = 0](SystemCall const& call) mutable {
                return call.name == "sigtimedwait" && ++waits == 1 && interrupted ? EINTR : 0;
            };
            try {
                Watch const watch(plan);
                storeText(big);
            } catch (ZJournaledFile::IoError const& failure) {
                error = failure.error;
            }
            sigset_t pending;
            sigpending(&pending);
            _exit(error == EFBIG && sigismember(&pending, SIGXFSZ) == 0 ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(0, status);
        EXPECT_EQ(kShort, load());
        EXPECT_EQ("conf conf.obf", directory_.names());
    }
}

TEST_F(ZJournaledFileCase, FileSizeSignalThatWasPendingIsLeftPending)
{
    sigset_t size;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&size);
    sigaddset(&size, SIGXFSZ);
    ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, &size, &before));
    raise(SIGXFSZ);
    put(kShort);
    store(kLong);
    EXPECT_EQ(0, sigpending(&pending));
    EXPECT_EQ(1, sigismember(&pending, SIGXFSZ));
    timespec const now = {0, 0};
    sigtimedwait(&size, nullptr, &now);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(ZJournaledFileCase, FileSizeLimitBelowADeadWritersJournalIsNoObstacle)
{
    put(kShort);
    directory_.write(".conf.zjn", journalOf(kShort, {std::string(1 << 17, 'x'), ""}, ""));
    pid_t const child = fork();
    if (child == 0) {
        rlimit const limit = {1 << 16, 1 << 16};
        setrlimit(RLIMIT_FSIZE, &limit);
        store(kLong);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ(kLong, load());
    EXPECT_EQ("conf conf.obf", directory_.names());
}

// ---- Without a journal -------------------------------------------------------------------------

TEST_F(ZJournaledFileCase, DirectoryThatAllowsNoFilesIsWrittenInPlace)
{
    for (Shape const& shape : kShapes) {
        if (shape.before.companion.empty() != shape.after.companion.empty())
            continue;  // a companion cannot be made or removed there
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
            Watch const watch(looking);
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

TEST_F(ZJournaledFileCase, FaultsWithoutAJournalPutTheOldPairBack)
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
                Watch const watch(failing);
                try {
                    store(kShort);
                } catch (ZJournaledFile::IoError const&) {
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

TEST_F(ZJournaledFileCase, JournalThatCannotBeTakenAwayIsNotStoredBehind)
{
    // What would be stored then lies between the texts of the journal, and would be lost.
    chmod(directory_.path().c_str(), 0777);
    asNobody([&] {
        std::string const folder = directory_.at("folder");
        std::filesystem::create_directory(folder);
        directory_.write("folder/conf", "0000\n");
        directory_.write("folder/.conf.zjn", journalOf({"0000\n", ""}, {"1111\n", ""}, ""));
        chmod((folder + "/.conf.zjn").c_str(), 0400);
        chmod(folder.c_str(), 0555);
        std::string seen;
        try {
            ZJournaledFile file((folder + "/conf").c_str(), ZJournaledFile::Mode::store);
            file.commit(viewOf("1100\n"), ZJournaledFile::Companion());
        } catch (ZJournaledFile::IoError const& failure) {
            seen = failure.call;
        }
        chmod(folder.c_str(), 0755);
        return seen == "unlink()" && directory_.read("folder/conf") == "0000\n";
    });
}

TEST_F(ZJournaledFileCase, DeadStoreIsFinishedWhereTheCompanionsFolderAllowsNoFiles)
{
    chmod(directory_.path().c_str(), 0777);
    asNobody([&] {
        std::string const folder = directory_.at("folder");
        std::string const companion = folder + "/secrets";
        std::filesystem::create_directory(folder);
        directory_.write("conf", kLong.text);
        directory_.write("folder/secrets", kShort.companion);
        directory_.write(".conf.zjn", journalOf(kShort, kLong, companion));
        chmod(folder.c_str(), 0555);
        {
            ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
        }
        chmod(folder.c_str(), 0755);
        return directory_.read("folder/secrets") == kLong.companion &&
               directory_.names() == "conf folder";
    });
}

TEST_F(ZJournaledFileCase, MissingFolderOfTheCompanionIsNamedWhenADeadStoreIsFinished)
{
    std::string const companion = directory_.at("folder/secrets");
    put({kLong.text, ""});
    directory_.write(".conf.zjn", journalOf(kPlain, kLong, companion));
    expectFailure(companion, "fopen(w)", ENOENT, CallPlan(),
                  [&] { ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store); });
    EXPECT_EQ(".conf.zjn conf", directory_.names());
    std::filesystem::create_directory(directory_.at("folder"));
    {
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
    }
    EXPECT_EQ(kLong.companion, directory_.read("folder/secrets"));
    EXPECT_EQ("conf folder", directory_.names());
}

TEST_F(ZJournaledFileCase, CompanionThatIsWrittenInPlaceIsPutBackInPlace)
{
    struct Case {
        char const* call;
        char const* text;
    };
    for (Case const& c : {Case{"pwrite", "write()"}, Case{"ftruncate", "ftruncate()"},
                          Case{"fsync", "fsync()"}, Case{"open", "fopen(w)"}}) {
        SCOPED_TRACE(c.call);
        put(kShort);
        // The companion is opened once to be read.
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

TEST_F(ZJournaledFileCase, CompanionThatCanBeNeitherWrittenNorPutBackInPlaceIsNotLost)
{
    // The journal has only the new one: a beginning of the old one would mean nothing to it.
    Pair const before = {"one\n", packed("1111")};
    Pair const after = {"two two\n", packed("2222")};
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
                Watch const watch(plan);
                store(after);
                ++stored;
            } catch (ZJournaledFile::IoError const& failure) {
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

TEST_F(ZJournaledFileCase, LinkIsNotFollowedToACompanionThatIsWrittenInPlace)
{
    chmod(directory_.path().c_str(), 0777);
    asNobody([&] {
        std::string const folder = directory_.at("folder");
        std::filesystem::create_directory(folder);
        directory_.write("conf", kPlain.text);
        directory_.write("target", kShort.companion);
        std::filesystem::create_symlink(directory_.at("target"), folder + "/secrets");
        chmod(folder.c_str(), 0555);
        ZJournaledFile::Companion companion = change(kLong);
        companion.path = folder + "/secrets";
        std::string seen;
        try {
            ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
            file.commit(viewOf(kLong.text), companion);
        } catch (ZJournaledFile::IoError const& failure) {
            seen = failure.call + std::to_string(failure.error);
        }
        chmod(folder.c_str(), 0755);
        return seen == "fopen(w)" + std::to_string(ELOOP) &&
               directory_.read("target") == kShort.companion && load() == kPlain;
    });
}

TEST_F(ZJournaledFileCase, CompanionThatNobodyWouldReadIsNotMade)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    // The file is root's, and everybody may write it: its companion has to be root's, too.
    chmod(directory_.path().c_str(), 0777);
    put(kPlain);
    chmod(path_.c_str(), 0666);
    asNobody([&] {
        long const descriptors = openDescriptors();
        try {
            store(kLong);
        } catch (ZJournaledFile::IoError const& failure) {
            return std::string(failure.call) == "fchown()" && load() == kPlain &&
                   directory_.names() == "conf" && openDescriptors() == descriptors;
        }
        return false;
    });
    // One that is there is written in place.
    put(kShort);
    chmod(companion_.c_str(), 0666);
    asNobody([&] {
        std::string calls;
        CallPlan noting;
        noting.before = [&calls](SystemCall const& call) {
            calls += call.name + " ";
            return 0;
        };
        {
            Watch const watch(noting);
            store(kLong);
        }
        return load() == kLong && directory_.names() == "conf conf.obf" &&
               calls.find("ftruncate pwrite fsync ") != std::string::npos;
    });
    EXPECT_EQ(kLong, load());
}

// ---- The journal -------------------------------------------------------------------------------

TEST_F(ZJournaledFileCase, PicksBetweenFilesAndJournal)
{
    std::string const mixed = kShort.text + kLong.text.substr(kShort.text.size(), 5);
    struct Case {
        char const* name;
        Pair found;
        Pair expected;
        bool orphan;
    };
    Case const cases[] = {
        {"both old: files", kShort, kShort, false},
        {"text new, companion old: journal", {kLong.text, kShort.companion}, kLong, false},
        {"both new: journal", kLong, kLong, false},
        {"text mixed, companion old: journal", {mixed, kShort.companion}, kLong, false},
        {"text mixed, companion new: journal", {mixed, kLong.companion}, kLong, false},
        {"text of somebody else: files",
         {"else\n", kShort.companion},
         {"else\n", kShort.companion},
         true},
        {"companion of somebody else: files",
         {kLong.text, packed("?")},
         {kLong.text, packed("?")},
         true},
        {"text new, companion gone: files", {kLong.text, ""}, {kLong.text, ""}, true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        put(c.found);
        directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
        EXPECT_EQ(c.expected, load());
        EXPECT_EQ(c.found.text, directory_.read("conf"));  // load writes nothing
        {
            ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
            EXPECT_EQ(c.expected.text, std::string(file.text().data(), file.text().size()));
        }
        EXPECT_EQ(c.expected, load());
        EXPECT_EQ(c.expected.text, directory_.read("conf"));
        EXPECT_EQ(c.orphan, directory_.names().find(".conf.zjn.orphan") != std::string::npos);
        EXPECT_EQ(std::string::npos, directory_.names().find(".conf.zjn "));
        std::filesystem::remove(directory_.at(".conf.zjn.orphan"));
    }
}

// Two files may share a companion: a store of one, behind a dead store of the other, changes it.
TEST_F(ZJournaledFileCase, TornTextIsNotReadBesideTheCompanionOfAnother)
{
    std::string const mixed = kShort.text + kLong.text.substr(kShort.text.size(), 5);
    std::string const journal = journalOf(kShort, kLong, companion_);
    for (Pair const& found : {Pair{mixed, packed("?")}, Pair{mixed, ""}}) {
        put(found);
        directory_.write(".conf.zjn", journal);
        expectFailure(journal_, "access()", EPERM, CallPlan(), [&] { load(); });
        expectFailure(journal_, "access()", EPERM, CallPlan(), [&] { store(kPlain); });
        EXPECT_EQ(mixed, directory_.read("conf"));
        EXPECT_EQ(journal, directory_.read(".conf.zjn"));
        EXPECT_EQ(found.companion.empty() ? ".conf.zjn conf" : ".conf.zjn conf conf.obf",
                  directory_.names());
        // One of the two companions that the journal knows makes it count again.
        directory_.write("conf.obf", kLong.companion);
        EXPECT_EQ(kLong, load());
    }
}

TEST_F(ZJournaledFileCase, CompanionThatComesOrGoesIsOldOrNew)
{
    struct Case {
        char const* name;
        Pair before;
        Pair after;
        std::string companion;  // found, beside the new text
        bool counts;
    };
    Case const cases[] = {
        {"comes, and is not there yet", kPlain, kLong, "", true},
        {"comes, and is there", kPlain, kLong, kLong.companion, true},
        {"comes, and another is there", kPlain, kLong, packed("?"), false},
        {"goes, and is there still", kLong, kPlain, kLong.companion, true},
        {"goes, and is gone", kLong, kPlain, "", true},
        {"goes, and another is there", kLong, kPlain, packed("??"), false},
        {"changes, and another is there", kShort, kLong, packed("?"), false},
        {"changes, and is gone", kShort, kLong, "", false},
        {"changes beside a text that stays",
         kShort,
         {kShort.text, kLong.companion},
         kShort.companion,
         true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        Pair const found = {c.after.text, c.companion};
        put(found);
        directory_.write(".conf.zjn", journalOf(c.before, c.after, companion_));
        EXPECT_EQ(c.counts ? c.after : found, load());
    }
}

TEST_F(ZJournaledFileCase, CompanionThatGoesByTheJournalIsMissing)
{
    put({kPlain.text, kLong.companion});
    directory_.write(".conf.zjn", journalOf(kLong, kPlain, companion_));
    ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::load);
    expectFailure(companion_, "mapFile()", EINVAL, CallPlan(),
                  [&] { file.readCompanion(companion_.c_str()); });
}

TEST_F(ZJournaledFileCase, EveryInterruptedRewriteIsRecognised)
{
    // Writing from the front, cutting or growing, blocks in any order, and the zeroes that cutting
    // a file leaves for a moment.
    Pair const pairs[][2] = {{kShort, kLong},
                             {kLong, kShort},
                             {kLong, {"", ""}},
                             {{"", ""}, kLong},
                             {{"[a]\nkey=1\nend=9\n", ""}, {"[a]\nkey=234\nend=9\n", ""}},
                             {{"[a]\nkey=1111\nend=9\n", ""}, {"[a]\nkey=1\nend=9\n", ""}},
                             {{"[a]\nkey=123\nend=9\n", ""}, {"[a]\nkey=456\nend=9\n", ""}}};
    for (auto const& pair : pairs) {
        std::string const& before = pair[0].text;
        std::string const& after = pair[1].text;
        size_t const longer = std::max(before.size(), after.size());
        size_t const shorter = std::min(before.size(), after.size());
        for (size_t length = shorter; length <= longer; ++length)
            for (size_t done = 0; done <= length; ++done)
                for (bool zeroes : {false, true}) {
                    std::string text;
                    for (size_t i = 0; i < length; ++i) {
                        bool const isNew = i < done;
                        if (zeroes && i >= shorter && i >= done)
                            text += '\0';
                        else if (isNew ? i < after.size() : i >= before.size())
                            text += i < after.size() ? after[i] : '\0';
                        else
                            text += before[i];
                    }
                    directory_.write("conf", text);
                    directory_.write(".conf.zjn", journalOf({before, ""}, {after, ""}, ""));
                    std::string const expected = text == before && before != after ? before : after;
                    ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load);
                    ASSERT_EQ(expected, std::string(file.text().data(), file.text().size()))
                        << length << " " << done << " " << zeroes;
                }
    }
}

TEST_F(ZJournaledFileCase, TextThatDiffersWhereTheStoreChangedNothingIsSomebodyElses)
{
    struct Case {
        char const* before;
        char const* after;
        std::string found;
    };
    Case const cases[] = {{"aaa", "abcde", "abcdX"},
                          {"aaa", "abcde", "aaaX"},
                          {"aaa", "abcde", std::string("a\0cde", 5)},
                          {"aaa", "abc", std::string("a\0c", 3)},
                          {"aaa", "abc", std::string("abc\0", 4)},
                          {"aaa", "abc", "ab"},
                          {"aaa", "abcde", "ab"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=2\nc=1\n", "a=3\nb=2\nc=1\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=2\nc=1\n", "a=1\nb=1\nc=3\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=22\nc=1\n", "a=3\nb=22\nc=1\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=22\nc=1\n", "a=1\nb=22\nc=3\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=2\nc=1\n", "a=1\nb=2\nc=1\nd=1\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=2\nc=1\n", "a=1\nb=1\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=2\nc=1\n", "a=1\n"},
                          {"a=1\nb=1\nc=1\n", "a=1\nb=2\nc=1\n", ""}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.found);
        directory_.write("conf", c.found);
        directory_.write(".conf.zjn", journalOf({c.before, ""}, {c.after, ""}, ""));
        EXPECT_EQ((Pair{c.found, ""}), load());
        {
            ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
        }
        EXPECT_EQ(".conf.zjn.orphan conf", directory_.names());
        EXPECT_EQ(c.found, directory_.read("conf"));
        std::filesystem::remove(directory_.at(".conf.zjn.orphan"));
    }
}

TEST_F(ZJournaledFileCase, DamagedJournalsDoNotCount)
{
    Pair const torn = {kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion};
    std::string const whole = journalOf(kShort, kLong, companion_);
    put(torn);
    directory_.write(".conf.zjn", whole);
    EXPECT_EQ(kLong, load());
    for (size_t length = 0; length < whole.size(); ++length) {
        directory_.write(".conf.zjn", whole.substr(0, length));
        ASSERT_EQ(torn, load()) << length;
    }
    for (size_t i = 0; i < whole.size(); ++i) {
        std::string damaged = whole;
        damaged[i] = static_cast<char>(damaged[i] ^ 0x10);
        directory_.write(".conf.zjn", damaged);
        ASSERT_EQ(torn, load()) << i;
    }
    directory_.write(".conf.zjn", whole + "x");
    EXPECT_EQ(torn, load());
    // Lengths that do not add up, or only modulo 2^64, with a checksum that does.
    auto const loadWith = [&](std::string wrong) {
        putNumber(wrong, crcOf(wrong), 4);
        directory_.write(".conf.zjn", wrong);
        return load();
    };
    std::string const all = whole.substr(0, whole.size() - 4);
    EXPECT_EQ(kLong, loadWith(all));
    EXPECT_EQ(torn, loadWith(all + "x"));
    for (size_t at : {8, 16, 24, 32, 40, 48, 76}) {
        std::string wrong = all;
        wrong[at + 3] = '\x7F';
        EXPECT_EQ(torn, loadWith(wrong)) << at;
    }
    std::string wrong = all;
    wrong[24 + 7] = wrong[48 + 7] = '\x80';
    EXPECT_EQ(torn, loadWith(wrong));
    wrong = all;
    wrong[6] = '3';  // of a form that is not known
    EXPECT_EQ(torn, loadWith(wrong));
    // A path that would end before its end.
    std::string const longer = journalOf(kShort, kLong, companion_ + '\0');
    EXPECT_EQ(torn, loadWith(longer.substr(0, longer.size() - 4)));
    // An end that stays although the lengths of what is before it differ.
    directory_.write("conf", "bbaaE");
    wrong = journalOf({"aaaaE", ""}, {"bbE", ""}, "");
    wrong.resize(wrong.size() - 5);
    std::string sum;
    putNumber(sum, adlerOf("E"), 4);
    wrong.replace(72, 4, sum);
    std::swap(wrong[16], wrong[40]);
    EXPECT_EQ("bbaaE", loadWith(wrong).text);
    // Beginning and end that are as long as the file only modulo 2^64.
    directory_.write("conf", "-abb+");
    wrong = journalOf({"-aaa+", ""}, {"-bbb+", ""}, "");
    wrong.resize(wrong.size() - 4);
    EXPECT_EQ("-bbb+", loadWith(wrong).text);
    wrong[8 + 7] = wrong[16 + 7] = '\x80';
    EXPECT_EQ("-abb+", loadWith(wrong).text);
}

TEST_F(ZJournaledFileCase, LargeJournalIsWrittenInPieces)
{
    // The disk starts on each piece at once. That this can fail is nothing that matters.
    size_t const piece = 512 << 10;
    struct Case {
        size_t length;
        int starts;
    };
    for (Case const& c : {Case{piece - 1, 0}, Case{piece, 2}, Case{2 * piece + 1, 4}}) {
        SCOPED_TRACE(c.length);
        std::string before, after;
        for (size_t i = 0; i < c.length; ++i) {
            before += static_cast<char>('a' + i % 23);
            after += static_cast<char>('A' + i % 19);
        }
        put({before, ""});
        std::string journal;
        {
            Watch const watch(keepingJournal(journal));
            storeText(after);
            EXPECT_EQ(c.starts, watch.starts);
        }
        EXPECT_TRUE(journal == journalOf({before, ""}, {after, ""}, ""));
        EXPECT_TRUE(after == directory_.read("conf"));
        directory_.write("conf", after.substr(0, c.length / 2) + before.substr(c.length / 2));
        directory_.write(".conf.zjn", journal);
        EXPECT_TRUE((Pair{after, ""}) == load());
    }
}

TEST_F(ZJournaledFileCase, JournalWhoseChecksumIsZeroIsInvalidatedToo)
{
    // The last four bytes of the new text, which the journal ends with, make it 0.
    std::string const before(40, 'o');
    std::string after(36, 'n');
    std::string const journal = journalOf({before, ""}, {after + "1234", ""}, "");
    after += bytesToZeroCrc(journal.substr(0, journal.size() - 8));
    std::string whole = journalOf({before, ""}, {after, ""}, "");
    ASSERT_EQ(0u, crcOf(whole.substr(0, whole.size() - 4)));
    put({before, ""});
    std::string written;
    {
        Watch const watch(keepingJournal(written));
        storeText(after);
        EXPECT_EQ(".", watch.endings);
    }
    EXPECT_EQ(whole, written);
    // One that comes back behind the store does not take an edit for an interrupted rewrite.
    Pair const edited = {before.substr(0, 20) + after.substr(20), ""};
    put(edited);
    directory_.write(".conf.zjn", whole);
    EXPECT_EQ(after, load().text);
    directory_.write(".conf.zjn", whole.replace(whole.size() - 4, 4, 4, '\0'));
    EXPECT_EQ(edited, load());
}

TEST_F(ZJournaledFileCase, CompanionThatMayNotBeLookedAtLeavesNoTornText)
{
    // Whoever may not be led to the companion cannot tell whether the journal counts.
    std::filesystem::create_directory(directory_.at("folder"));
    directory_.write("folder/secrets", kShort.companion);
    directory_.write("conf", kLong.text.substr(0, 2) + kShort.text.substr(2));
    std::string const journal = journalOf(kShort, kLong, directory_.at("folder/secrets"));
    directory_.write(".conf.zjn", journal);
    chmod(path_.c_str(), 0666);
    for (ZJournaledFile::Mode use : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store}) {
        try {
            ZJournaledFile const file(path_.c_str(), use);
            ADD_FAILURE();
        } catch (ZJournaledFile::IoError const& failure) {
            EXPECT_EQ(directory_.at("folder/secrets"), failure.file);
            EXPECT_STREQ("access()", failure.call);
            EXPECT_EQ(EPERM, failure.error);
        }
        EXPECT_EQ(journal, directory_.read(".conf.zjn"));
    }
    chmod(path_.c_str(), 0600);
    {
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load);
        EXPECT_EQ(kLong.text, std::string(file.text().data(), file.text().size()));
    }
    // Where the text is the old one, or somebody else's, there is nothing to be told.
    for (std::string const& text : {kShort.text, std::string("else\n")}) {
        directory_.write("conf", text);
        directory_.write(".conf.zjn", journal);
        chmod(path_.c_str(), 0666);
        for (ZJournaledFile::Mode use : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store}) {
            ZJournaledFile const file(path_.c_str(), use);
            EXPECT_EQ(text, std::string(file.text().data(), file.text().size()));
        }
    }
}

TEST_F(ZJournaledFileCase, WhatNoStoreLeavesInTheCompanionsPlaceMakesTheJournalNotCount)
{
    std::string const torn = kLong.text.substr(0, 2) + kShort.text.substr(2);
    directory_.write("plain", "");
    std::filesystem::create_directory(directory_.at("folder"));
    ASSERT_EQ(0, mkfifo(directory_.at("pipe").c_str(), 0600));
    for (char const* name : {"folder", "pipe", "plain/secrets"}) {
        SCOPED_TRACE(name);
        directory_.write(".conf.zjn", journalOf(kShort, kLong, directory_.at(name)));
        directory_.write("conf", kLong.text);
        {
            ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load);
            EXPECT_EQ(kLong.text, std::string(file.text().data(), file.text().size()));
        }
        directory_.write("conf", torn);
        expectFailure(journal_, "access()", EPERM, CallPlan(), [&] {
            ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load);
        });
    }
}

TEST_F(ZJournaledFileCase, CompanionThatCannotBeLookedAtLeavesNoTornText)
{
    put({kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion});
    directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
    for (char const* call : {"open", "pread", "lstat"}) {
        SCOPED_TRACE(call);
        // Only what others may write, too, has to be told apart by lstat().
        chmod(path_.c_str(), strcmp(call, "lstat") == 0 ? 0620 : 0600);
        for (ZJournaledFile::Mode use : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store})
            expectFailure(companion_, "mapFile()", EIO, failing(call, "conf.obf"),
                          [&] { ZJournaledFile(path_.c_str(), use); });
    }
    EXPECT_EQ(kLong, load());
}

TEST_F(ZJournaledFileCase, JournalsThatAnybodyCouldHavePlantedDoNotCount)
{
    Pair const torn = {kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion};
    std::string const whole = journalOf(kShort, kLong, companion_);
    put(torn);
    directory_.write(".conf.zjn", whole);
    // Nor is a torn text taken for whole.
    auto const expectRefusal = [&] {
        for (ZJournaledFile::Mode mode : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store})
            expectFailure(journal_, "access()", EPERM, CallPlan(),
                          [&] { ZJournaledFile(path_.c_str(), mode); });
        EXPECT_EQ(torn.text, directory_.read("conf"));
        EXPECT_EQ(whole, directory_.read(".conf.zjn"));
    };
    chmod(journal_.c_str(), 0620);
    expectRefusal();
    chmod(journal_.c_str(), 0602);
    expectRefusal();
    chmod(journal_.c_str(), 0644);
    EXPECT_EQ(kLong, load());
    ASSERT_EQ(0, link(journal_.c_str(), directory_.at("second").c_str()));
    expectRefusal();
    std::filesystem::remove(journal_);
    ASSERT_EQ(0, symlink("second", journal_.c_str()));
    EXPECT_EQ(torn, load());
    std::filesystem::remove(journal_);
    ASSERT_EQ(0, mkfifo(journal_.c_str(), 0600));
    EXPECT_EQ(torn, load());
    std::filesystem::remove(journal_);
    ASSERT_EQ(0, mkdir(journal_.c_str(), 0700));
    EXPECT_EQ(torn, load());
    // One that the same people may write as the file is as good.
    std::filesystem::remove(journal_);
    directory_.write(".conf.zjn", journalOf(kShort, kLong, ""));
    chmod(path_.c_str(), 0620);
    chmod(journal_.c_str(), 0620);
    EXPECT_EQ(kLong.text, load().text);
}

TEST_F(ZJournaledFileCase, JournalsOfTheOwnerOfRootAndOfTheReaderCount)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of several owners";
    struct Case {
        uid_t owner;  // of the journal
        bool counts;
    };
    Case const cases[] = {{12345, true}, {0, true}, {65534, true}, {54321, false}};
    chmod(directory_.path().c_str(), 0755);
    directory_.write("conf", kLong.text.substr(0, 2) + kShort.text.substr(2));
    directory_.write(".conf.zjn", journalOf(kShort, kLong, ""));
    chmod(path_.c_str(), 0644);
    chmod(journal_.c_str(), 0644);
    ASSERT_EQ(0, chown(path_.c_str(), 12345, 0));
    for (Case const& c : cases) {
        SCOPED_TRACE(c.owner);
        ASSERT_EQ(0, chown(journal_.c_str(), c.owner, 0));
        asNobody([&] {
            if (!c.counts)
                expectFailure(journal_, "access()", EPERM, CallPlan(),
                              [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::load); });
            else
                EXPECT_EQ(kLong.text,
                          ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::load).text());
            return !HasFailure();
        });
    }
}

TEST_F(ZJournaledFileCase, JournalOfAStrangerThatCannotBeLookedAtLeavesNoTornText)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    std::string const torn = kLong.text.substr(0, 2) + kShort.text.substr(2);
    put({torn, ""});
    directory_.write(".conf.zjn", journalOf(kShort, kLong, ""));
    ASSERT_EQ(0, chown(journal_.c_str(), 54321, 54321));
    for (int error : {EMFILE, ENFILE, ENOMEM, EIO})
        for (ZJournaledFile::Mode mode : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store})
            expectFailure(journal_, "open()", error, failing("open", ".conf.zjn", error),
                          [&] { ZJournaledFile(path_.c_str(), mode); });
    EXPECT_EQ(".conf.zjn conf", directory_.names());
    EXPECT_EQ(torn, directory_.read("conf"));
}

TEST_F(ZJournaledFileCase, JournalThatIsReplacedWhileItIsLookedAtDoesNotCount)
{
    std::string const torn = kLong.text.substr(0, 2) + kShort.text.substr(2);
    std::string const second = directory_.at("second");
    for (bool linked : {false, true}) {
        SCOPED_TRACE(linked);
        directory_.write("conf", torn);
        directory_.write(".conf.zjn", journalOf(kShort, kLong, ""));
        int opened = 0;
        CallPlan racing;
        racing.before = [&](SystemCall const& call) {
            if (call.name != "open" || ++opened != 2)  // the first is the file's
                return 0;
            if (linked) {
                EXPECT_EQ(0, rename(journal_.c_str(), second.c_str()));
                EXPECT_EQ(0, symlink(second.c_str(), journal_.c_str()));
            } else {
                EXPECT_EQ(0, link(journal_.c_str(), second.c_str()));
            }
            return 0;
        };
        std::string found;
        try {
            Watch const watch(racing);
            ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load);
            found.assign(file.text().data(), file.text().size());
        } catch (ZJournaledFile::IoError const& failure) {
            EXPECT_EQ(journal_, failure.file);
            found = failure.call;
        }
        EXPECT_EQ(linked ? "open()" : "access()", found);
        std::filesystem::remove(journal_);
        std::filesystem::remove(second);
    }
}

TEST_F(ZJournaledFileCase, FilesThatNoStoreCanHaveWrittenAreNoCompanions)
{
    // Only under the name that belongs to the file may anything stand.
    put({kPlain.text, "text\n"});
    store(kLong);
    EXPECT_EQ(kLong, load());
    put(kPlain);
    directory_.write("text", "text of somebody else\n");
    directory_.write("xtext", "x, as what is packed begins");
    std::filesystem::create_directory(directory_.at("folder"));
    ASSERT_EQ(0, mkfifo(directory_.at("pipe").c_str(), 0600));
    for (char const* name : {"text", "xtext", "folder", "pipe", "conf", ".conf.zjn"}) {
        SCOPED_TRACE(name);
        ZJournaledFile::Companion companion = change(kLong);
        companion.path = directory_.at(name);
        ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
        try {
            file.commit(viewOf(kLong.text), companion);
            ADD_FAILURE();
        } catch (ZJournaledFile::IoError const& failure) {
            EXPECT_EQ(companion.path, failure.file);
            EXPECT_STREQ("access()", failure.call);
            EXPECT_EQ(EPERM, failure.error);
        }
        EXPECT_EQ(kPlain.text, directory_.read("conf"));
        EXPECT_EQ("conf folder pipe text xtext", directory_.names());
    }
    EXPECT_EQ("text of somebody else\n", directory_.read("text"));
    EXPECT_EQ("x, as what is packed begins", directory_.read("xtext"));
}

TEST_F(ZJournaledFileCase, FileThatOthersMayWriteNamesOnlyTheCompanionBesideIt)
{
    put(kShort);
    std::string const folder = directory_.at("folder");
    std::filesystem::create_directory(folder);
    directory_.write("folder/conf.obf", kShort.companion);
    directory_.write("folder/.conf.zjn", "");
    directory_.write("secrets", kShort.companion);
    std::string const missing = directory_.at("missing/conf.obf");
    chmod(path_.c_str(), 0620);
    ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load);
    EXPECT_EQ(0, file.checkCompanionPath(companion_));
    EXPECT_EQ(0, file.checkCompanionPath(directory_.at("folder/../conf.obf")));
    EXPECT_EQ(EPERM, file.checkCompanionPath(directory_.at("secrets")));
    EXPECT_EQ(EPERM, file.checkCompanionPath(folder + "/conf.obf"));
    EXPECT_EQ(EPERM, file.checkCompanionPath(missing));
    {
        CallPlan hiding;
        hiding.before = [this](SystemCall const& call) {
            return call.name == "open" && call.path == directory_.at("folder/..") ? EACCES : 0;
        };
        Watch const watch(hiding);
        EXPECT_EQ(EPERM, file.checkCompanionPath(directory_.at("folder/../conf.obf")));
    }
    {
        Watch const watch(failing("lstat", "conf.obf", EACCES));
        EXPECT_EQ(EACCES, file.checkCompanionPath(companion_));
    }
    std::filesystem::remove(companion_);
    EXPECT_EQ(0, file.checkCompanionPath(companion_));  // it may be made
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
    // One that is ours alone names any, but itself and the hidden files of its stores.
    chmod(path_.c_str(), 0600);
    ZJournaledFile const ours(path_.c_str(), ZJournaledFile::Mode::load);
    for (std::string const& name :
         {folder + "/conf.obf", folder + "/.conf.zjn", missing, companion_})
        EXPECT_EQ(0, ours.checkCompanionPath(name)) << name;
    ASSERT_EQ(0, symlink("../conf", (folder + "/second").c_str()));
    for (std::string const& name : {path_, journal_, folder + "/../.conf.zjn", folder + "/second",
                                    journal_ + ".new", directory_.at(".conf.new")})
        EXPECT_EQ(EPERM, ours.checkCompanionPath(name)) << name;
}

TEST_F(ZJournaledFileCase, FileWithTheHiddenNameOfItsNewCompanionIsNotRemoved)
{
    std::string const hidden = directory_.write(".conf.obf.new", "one\n");
    expectFailure(companion_, "access()", EPERM, CallPlan(), [&] {
        ZJournaledFile file(hidden.c_str(), ZJournaledFile::Mode::store);
        file.commit("two\n", change(kShort));
    });
    EXPECT_EQ(".conf.obf.new", directory_.names());
    EXPECT_EQ("one\n", directory_.read(".conf.obf.new"));
}

TEST_F(ZJournaledFileCase, NewCompanionOfAFileThatOthersMayWriteIsBesideTheRealFile)
{
    std::filesystem::create_directory(directory_.at("folder"));
    directory_.write("folder/real", kPlain.text);
    ASSERT_EQ(0, symlink("folder/real", path_.c_str()));
    EXPECT_EQ(companion_, ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::load).newCompanion());
    chmod(path_.c_str(), 0602);
    EXPECT_EQ(directory_.at("folder/real.obf"),
              ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::load).newCompanion());
}

TEST_F(ZJournaledFileCase, FolderWhosePathIsTooLongHasNoPlaceForANewCompanion)
{
    // The journal goes beside the name as it was given then, unless that is a link, whose end
    // cannot be told.
    pid_t const child = fork();
    if (child == 0) {
        std::string const folder(200, 'f');
        if (chdir(directory_.path().c_str()) != 0)
            _exit(9);
        for (int depth = 0; depth < 25; ++depth)
            if (mkdir(folder.c_str(), 0700) != 0 || chdir(folder.c_str()) != 0)
                _exit(9);
        std::string seen;
        try {
            ZJournaledFile file("conf", ZJournaledFile::Mode::store);
            file.commit(viewOf(kPlain.text), ZJournaledFile::Companion());
            file.newCompanion();
        } catch (ZJournaledFile::IoError const& failure) {
            seen = failure.file + " " + failure.call + " " + strerror(failure.error);
        }
        struct stat status;
        bool const isStored =
            stat("conf", &status) == 0 && status.st_size == static_cast<off_t>(kPlain.text.size());
        std::string link;
        if (symlink("conf", "link") != 0)
            _exit(9);
        try {
            ZJournaledFile("link", ZJournaledFile::Mode::load);
        } catch (ZJournaledFile::IoError const& failure) {
            link = failure.file + " " + failure.call + " " + strerror(failure.error);
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

TEST_F(ZJournaledFileCase, JournalIsInvalidBeforeItIsRemoved)
{
    for (Shape const& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        put(shape.before);
        // A dead writer's, whole but without its name.
        directory_.write(".conf.zjn.new", journalOf(shape.before, shape.after, companion_));
        Watch const watch;
        store(shape.after);
        EXPECT_EQ("..", watch.endings);
    }
    // One that is about somebody else's text is put aside.
    put(kPlain);
    directory_.write(".conf.zjn", journalOf(kShort, kLong, ""));
    store(kShort);
    EXPECT_EQ(".", endingOf(directory_.at(".conf.zjn.orphan").c_str()));
    // One that did not get its name.
    put(kShort);
    CallPlan failing;
    failing.failing["rename"] = EIO;
    Watch const watch(failing);
    EXPECT_THROW(store(kLong), ZJournaledFile::IoError);
    EXPECT_EQ(".", watch.endings);
}

TEST_F(ZJournaledFileCase, JournalThatGoesWhileItIsTakenAwayIsGone)
{
    put(kShort);
    int looks = 0;
    CallPlan removing;
    removing.after = [&](SystemCall const& call, ssize_t&) {
        if (call.name == "lstat" && nameOf(call) == ".conf.zjn" && ++looks == 2)
            std::filesystem::remove(journal_);
    };
    {
        Watch const watch(removing);
        store(kLong);
        EXPECT_EQ(2, watch.folderSyncs);  // for the names of journal and companion
    }
    EXPECT_EQ(2, looks);  // for one of a crashed writer, and for its own
    EXPECT_EQ(kLong, load());
    EXPECT_EQ("conf conf.obf", directory_.names());
}

TEST_F(ZJournaledFileCase, RemovalOfAJournalThatCannotBeInvalidatedIsSynced)
{
    put(kPlain);
    CallPlan failing = planOn(XFS_SUPER_MAGIC);
    int writes = 0;
    failing.before = [&](SystemCall const& call) {
        return call.name == "pwrite" && ++writes == 2 ? EIO : 0;  // the first is the text's
    };
    Watch const watch(failing);
    storeText(kLong.text);
    EXPECT_EQ("?", watch.endings);
    EXPECT_EQ(1, watch.folderSyncs);
}

TEST_F(ZJournaledFileCase, JournalIsAsSecretAsTheFile)
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

TEST_F(ZJournaledFileCase, CompanionThatCannotBeOneForItsLengthIsNotRead)
{
    put(kShort);
    off_t const most = off_t{257} << 20;
    ASSERT_EQ(0, truncate(companion_.c_str(), most + 1));
    ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::load);
    try {
        file.readCompanion(companion_.c_str());
        ADD_FAILURE();
    } catch (ZJournaledFile::IoError const& failure) {
        EXPECT_EQ(companion_, failure.file);
        EXPECT_STREQ("mapFile()", failure.call);
        EXPECT_EQ(EFBIG, failure.error);
    }
    ASSERT_EQ(0, truncate(companion_.c_str(), most));
    EXPECT_EQ(static_cast<size_t>(most), file.readCompanion(companion_.c_str()).length());
}

TEST_F(ZJournaledFileCase, CompanionThatIsCutWhileItIsOpenedIsAnEmptyOne)
{
    put(kShort);
    ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::load);
    CallPlan cutting;
    cutting.before = [&](SystemCall const& call) {
        return call.name == "open" ? truncate(companion_.c_str(), 0) : 0;
    };
    expectFailure(companion_, "mapFile()", EINVAL, cutting,
                  [&] { file.readCompanion(companion_.c_str()); });
}

// ---- Causes that stay --------------------------------------------------------------------------

namespace {

// Fails a call with an error from its n-th time on.
CallPlan failingFrom(std::string const& name, int error, int nth, bool& isReached)
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

}  // namespace

TEST_F(ZJournaledFileCase, CauseThatStaysChangesNothingOrIsNoFailure)
{
    char const* const calls[] = {"open",      "openat2",  "fstat",  "lstat",  "pread",
                                 "write",     "pwrite",   "fsync",  "fchmod", "fdatasync",
                                 "ftruncate", "rename",   "unlink", "close",  "sync_file_range",
                                 "fallocate", "futimens", "F_SETLK"};
    int const errors[] = {EIO, ENOSPC, EPERM, EACCES, EBUSY, EROFS, EMFILE};
    Pair const others[] = {{"five five\n", packed("5")}, kPlain, {"seven\n", packed("777")}};
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
                            Watch const watch(next == &shape.after
                                                  ? plan
                                                  : failingFrom(name, error, 1, isReached));
                            store(*next);
                            expected = *next;
                            ++stored;
                        } catch (ZJournaledFile::IoError const&) {
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

TEST_F(ZJournaledFileCase, FolderOfTheCompanionThatCannotBeSyncedIsNamed)
{
    std::filesystem::create_directory(directory_.at("folder"));
    std::string const companion = directory_.at("folder/conf.obf");
    directory_.write("folder/conf.obf", kShort.companion);
    put(kShort);
    auto const storeThere = [&](Pair const& pair) {
        ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
        ZJournaledFile::Companion wanted = change(pair);
        wanted.path = companion;
        file.commit(pair.text, wanted);
    };
    auto const expectPair = [&](Pair const& pair, char const* names) {
        ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::load);
        EXPECT_EQ(pair.text, file.text());
        EXPECT_EQ(pair.companion, file.readCompanion(companion.c_str()).view());
        EXPECT_EQ(names, directory_.names());
    };
    CallPlan plan;
    plan.before = [](SystemCall const& call) {
        return call.name == "fsync" && nameOf(call) == "folder" ? EIO : 0;
    };
    {
        Watch const watch(plan);
        storeThere(kLong);
    }
    expectPair(kLong, ".conf.zjn conf conf.obf folder");
    for (int times = 0; times < 3; ++times) {
        expectFailure(companion, "fsync()", EIO, plan, [&] { storeThere(kShort); });
        expectPair(kLong, ".conf.zjn conf conf.obf folder");
    }
    storeThere(kShort);
    expectPair(kShort, "conf conf.obf folder");
}

TEST_F(ZJournaledFileCase, CompanionWhoseNameIsFixedIsWrittenInPlace)
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
                Watch const watch(plan);
                store(shape.after);
            }
            EXPECT_EQ(shape.after, load());
            EXPECT_EQ(shape.after.companion, directory_.read("conf.obf"));
            EXPECT_EQ("conf conf.obf", directory_.names());
            // Killed at each call, the pair is old or new.
            for (int call = 1; call < 200; ++call) {
                put(shape.before);
                CallPlan dying = plan;
                dying.dieAt = call;
                pid_t const child = fork();
                if (child == 0) {
                    Watch const watch(dying);
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

TEST_F(ZJournaledFileCase, CompanionThatIsMountedThereIsWrittenInPlace)
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

TEST_F(ZJournaledFileCase, FolderThatMayNotBeReadIsSyncedWithItsFileSystem)
{
    chmod(directory_.path().c_str(), 0777);
    asNobody([&] {
        std::string const folder = directory_.at("folder");
        std::filesystem::create_directory(folder);
        std::string const file = folder + "/conf";
        std::string const companion = folder + "/conf.obf";
        chmod(folder.c_str(), 0300);
        int syncs = 0;
        CallPlan counting;
        counting.before = [&syncs](SystemCall const& call) {
            syncs += call.name == "syncfs";
            return 0;
        };
        for (Pair const& next : {kLong, kShort, kPlain}) {
            Watch const watch(counting);
            ZJournaledFile stored(file.c_str(), ZJournaledFile::Mode::store);
            ZJournaledFile::Companion change = this->change(next);
            change.path = companion;
            stored.commit(next.text, change);
        }
        chmod(folder.c_str(), 0700);
        return syncs >= 3 && directory_.read("folder/conf") == kPlain.text &&
               namesIn(folder) == "conf";
    });
}

// ---- Access control lists ----------------------------------------------------------------------

namespace {

struct AclEntry {
    uint16_t tag;
    uint16_t permissions;
    uint32_t id;
};
constexpr uint32_t kNoId = ~0U;
enum : uint16_t { kOwner = 1, kUser = 2, kOwningGroup = 4, kGroup = 8, kMask = 16, kOthers = 32 };

std::string listOf(std::vector<AclEntry> const& entries)
{
    std::string out;
    putNumber(out, 2, 4);
    for (AclEntry const& entry : entries) {
        putNumber(out, entry.tag, 2);
        putNumber(out, entry.permissions, 2);
        putNumber(out, entry.id, 4);
    }
    return out;
}

// Gives one more user permissions, beside those of the owner.
std::string listFor(uint32_t user, uint16_t permissions)
{
    return listOf({{kOwner, 6, kNoId},
                   {kUser, permissions, user},
                   {kOwningGroup, 0, kNoId},
                   {kMask, 6, kNoId},
                   {kOthers, 0, kNoId}});
}

constexpr char kList[] = "system.posix_acl_access";

bool setList(std::string const& path, std::string const& list, char const* name = kList)
{
    return setxattr(path.c_str(), name, list.data(), list.size(), 0) == 0;
}

std::string getAttribute(std::string const& path, char const* name = kList)
{
    char value[1000];
    ssize_t const length = getxattr(path.c_str(), name, value, sizeof value);
    return {value, length > 0 ? static_cast<size_t>(length) : 0};
}

constexpr uint32_t kOther = 12345;  // another user

}  // namespace

TEST_F(ZJournaledFileCase, JournalAndCompanionHaveTheAccessListOfTheFile)
{
    // The mode shows the mask as the rights of the group, which has none.
    std::string const list = listFor(kOther, 6);
    put(kShort);
    if (!setList(path_, list))
        GTEST_SKIP() << "there are no access control lists";
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
        Watch const watch(looking);
        store(kLong);
    }
    EXPECT_TRUE(isSeen);
    EXPECT_EQ(list, getAttribute(companion_));
    EXPECT_EQ(kLong, load());
}

// A user namespace may know none of the users that the list names.
TEST_F(ZJournaledFileCase, WhereTheAccessListCannotBeSetOnlyTheOwnerGetsAccess)
{
    for (int const error : {EINVAL, EOPNOTSUPP}) {
        put(kShort);
        if (!setList(path_, listFor(kOther, 6)))
            GTEST_SKIP() << "there are no access control lists";
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
            Watch const watch(refusing);
            store(kLong);
        }
        EXPECT_EQ(std::set<mode_t>{0600}, modes);
        struct stat status;
        ASSERT_EQ(0, stat(companion_.c_str(), &status));
        EXPECT_EQ(0600u, status.st_mode & 07777);
        EXPECT_EQ(listFor(kOther, 6), getAttribute(path_));
        EXPECT_EQ(kLong, load());
        // A new file would be another one for those whom the list names.
        expectFailure(directory_.at(".conf.new"), "fsetxattr()", EINVAL, refusing, [&] {
            ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
            file.replace(viewOf(kShort.text), ZJournaledFile::Companion());
        });
        EXPECT_EQ(kLong, load());
        EXPECT_EQ("conf conf.obf", directory_.names());
    }
}

TEST_F(ZJournaledFileCase, DefaultListOfTheFolderGrantsNothing)
{
    put(kShort);
    if (!setList(directory_.path(), listFor(kOther, 6), "system.posix_acl_default"))
        GTEST_SKIP() << "there are no access control lists";
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
        Watch const watch(looking);
        store(kLong);
    }
    EXPECT_EQ("", getAttribute(companion_));
    EXPECT_EQ(kLong, load());
}

TEST_F(ZJournaledFileCase, CompanionKeepsItsAccessListAndAttributes)
{
    put(kShort);
    char const note[] = "user.note";
    if (!setList(path_, listFor(kOther, 6)) || !setList(companion_, listFor(kOther, 4)) ||
        setxattr(companion_.c_str(), note, "keep", 4, 0) != 0)
        GTEST_SKIP() << "there are no access control lists or attributes";
    for (Pair const& next : {kLong, kShort}) {
        store(next);
        EXPECT_EQ(next, load());
        EXPECT_EQ(listFor(kOther, 4), getAttribute(companion_));
        EXPECT_EQ("keep", getAttribute(companion_, note));
    }
    // Not a list that grants more than the file does: to another user, or more to this one.
    ASSERT_TRUE(setList(companion_, listFor(54321, 4)));
    store(kLong);
    EXPECT_EQ(listFor(kOther, 6), getAttribute(companion_));
    ASSERT_TRUE(setList(path_, listFor(kOther, 4)));
    store(kShort);
    EXPECT_EQ(listFor(kOther, 4), getAttribute(companion_));
    EXPECT_EQ("keep", getAttribute(companion_, note));
}

TEST_F(ZJournaledFileCase, StoreThatWouldLoseAttributesOfTheCompanionFails)
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
                GTEST_SKIP() << "there are no attributes or access control lists";
            expectFailure(companion_, "fsetxattr()", error, failing(c.call, c.file, error, c.nth),
                          [&] { store(kLong); });
            EXPECT_EQ(kShort, load());
            EXPECT_EQ("keep", getAttribute(companion_, note));
            EXPECT_EQ("conf conf.obf", directory_.names());
            std::filesystem::remove(path_);
            std::filesystem::remove(companion_);
        }
    // What we may not set is no reason to refuse the store.
    for (int error : {EPERM, EACCES, EOPNOTSUPP}) {
        SCOPED_TRACE(strerror(error));
        put(kShort);
        ASSERT_EQ(0, setxattr(companion_.c_str(), note, "keep", 4, 0));
        {
            Watch const watch(failing("fsetxattr", ".conf.obf.new", error));
            store(kLong);
        }
        EXPECT_EQ(kLong, load());
    }
}

TEST_F(ZJournaledFileCase, CompanionKeepsNoListThatGrantsMoreThanAGroupOfTheUserHas)
{
    // The user may be in the group of the file, which may read less than everybody else.
    put(kShort);
    ASSERT_EQ(0, chmod(path_.c_str(), 0604));
    std::string const list = listOf({{kOwner, 6, kNoId},
                                     {kUser, 4, kOther},
                                     {kOwningGroup, 0, kNoId},
                                     {kMask, 4, kNoId},
                                     {kOthers, 4, kNoId}});
    if (!setList(companion_, list))
        GTEST_SKIP() << "there are no access control lists";
    store(kLong);
    EXPECT_EQ("", getAttribute(companion_));
    struct stat status;
    ASSERT_EQ(0, stat(companion_.c_str(), &status));
    EXPECT_EQ(0604u, status.st_mode & 07777);
}

TEST_F(ZJournaledFileCase, MemoryThatEndsLeavesNoNewCompanionWithAttributes)
{
    Pair const torn = {kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion};
    put(torn);
    directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
    if (setxattr(companion_.c_str(), "user.note", "keep", 4, 0) != 0)
        GTEST_SKIP() << "there are no attributes";
    int const failed = failEachAllocation(
        CallPlan(), [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::store); },
        [&] {
            EXPECT_EQ(std::string::npos, directory_.names().find(".new")) << directory_.names();
            EXPECT_EQ(kLong, load());
        });
    EXPECT_LT(15, failed);
    EXPECT_EQ("keep", getAttribute(companion_, "user.note"));
    // So it is with a store of its own, which allocates for the attributes, too.
    failEachAllocation(
        CallPlan(), [&] { store(kShort); },
        [&] {
            EXPECT_EQ("conf conf.obf", directory_.names());
            EXPECT_EQ(kLong, load());
        });
    EXPECT_EQ(kShort, load());
    EXPECT_EQ("keep", getAttribute(companion_, "user.note"));
}

TEST_F(ZJournaledFileCase, CompanionOfAnotherUserInAStickyFolderIsWrittenInPlace)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    chmod(directory_.path().c_str(), 01777);
    put(kShort);
    ASSERT_EQ(0, chown(path_.c_str(), 65534, 65534));
    chmod(companion_.c_str(), 0666);
    asNobody([&] {
        // Not where it would be more readable than the file.
        expectFailure(companion_, "fchmod()", EPERM, CallPlan(), [&] { store(kLong); });
        return !HasFailure() && load() == kShort;
    });
    if (!setList(companion_, listFor(65534, 6)))
        GTEST_SKIP() << "there are no access control lists";
    asNobody([&] {
        store(kLong);
        bool const isStored = load() == kLong;
        store(kPlain);
        return isStored && load() == kPlain;
    });
    EXPECT_EQ("conf conf.obf", directory_.names());
    EXPECT_EQ("", directory_.read("conf.obf"));
}

TEST_F(ZJournaledFileCase, FileOfAnotherUserInAStickyDirectoryIsInTheWay)
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
    // Without its journal the store could tear the text.
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
                    ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
                    ZJournaledFile::Companion companion;
                    companion.change = ZJournaledFile::Companion::written;
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
    // A companion that exists needs no new file.
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

TEST_F(ZJournaledFileCase, JournalThatOthersMayWriteByTheirAccessListDoesNotCount)
{
    std::string const torn = kLong.text.substr(0, 2) + kShort.text.substr(2);
    std::string const whole = journalOf(kShort, kLong, "");
    directory_.write("conf", torn);
    directory_.write(".conf.zjn", whole);
    chmod(path_.c_str(), 0660);
    chmod(journal_.c_str(), 0660);
    EXPECT_EQ(kLong.text, load().text);
    if (!setList(journal_, listFor(kOther, 6)))
        GTEST_SKIP() << "there are no access control lists";
    for (ZJournaledFile::Mode mode : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store})
        expectFailure(journal_, "access()", EPERM, CallPlan(),
                      [&] { ZJournaledFile(path_.c_str(), mode); });
    EXPECT_EQ(torn, directory_.read("conf"));
    EXPECT_EQ(whole, directory_.read(".conf.zjn"));
    // But it does where the file has the same list, and where the user may only read.
    ASSERT_TRUE(setList(path_, listFor(kOther, 6)));
    EXPECT_EQ(kLong.text, load().text);
    ASSERT_TRUE(setList(path_, listFor(kOther, 4)));
    expectFailure(journal_, "access()", EPERM, CallPlan(),
                  [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::load); });
    ASSERT_TRUE(setList(journal_, listFor(kOther, 4)));
    EXPECT_EQ(kLong.text, load().text);
}

TEST_F(ZJournaledFileCase, JournalOfAUserWhoCanWriteTheFileCounts)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of several owners";
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
            GTEST_SKIP() << "there are no access control lists";
        directory_.write(".conf.zjn", whole);
        ASSERT_EQ(0, chown(journal_.c_str(), kMember, c.group));
        if (c.counts) {
            EXPECT_EQ(kLong.text, load().text);
            storeText(kPlain.text);
            EXPECT_EQ(kPlain.text, load().text);
        } else {
            for (ZJournaledFile::Mode mode :
                 {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store})
                expectFailure(journal_, "access()", EPERM, CallPlan(),
                              [&] { ZJournaledFile(path_.c_str(), mode); });
            EXPECT_EQ(torn, directory_.read("conf"));
            EXPECT_EQ(whole, directory_.read(".conf.zjn"));
            // Where the text is whole, there is nothing to lose: the journal is put aside.
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

// The user of a container may have groups, but no row in the user database.
TEST_F(ZJournaledFileCase, UnreadableJournalOfAnUnknownUserLeavesNoTornText)
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
        for (auto const mode : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store})
            expectFailure(journal_, "open()", EACCES, CallPlan(),
                          [&] { ZJournaledFile const file(path_.c_str(), mode); });
        return !HasFailure();
    });
    // No group may write the file: the unknown user could not.
    chmod(path_.c_str(), 0640);
    asNobody([&] {
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load);
        return file.text() == torn;
    });
}

TEST_F(ZJournaledFileCase, JournalOfAUserWhoCannotWriteTheCompanionDoesNotChangeIt)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of several owners";
    put({kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion});
    directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
    for (std::string const& path : {path_, companion_})
        ASSERT_EQ(0, chown(path.c_str(), kOther, 65534));
    ASSERT_EQ(0, chmod(path_.c_str(), 0660));
    ASSERT_EQ(0, chmod(companion_.c_str(), 0640));
    ASSERT_EQ(0, chown(journal_.c_str(), 65534, 65534));
    expectFailure(journal_, "access()", EPERM, CallPlan(),
                  [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::store); });
    EXPECT_EQ(kShort.companion, directory_.read("conf.obf"));
    ASSERT_EQ(0, chmod(companion_.c_str(), 0660));
    EXPECT_EQ(kLong, load());
}

TEST_F(ZJournaledFileCase, CompanionThatCannotBeOpenedIsNamedIfAnotherUserWroteTheJournal)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of several owners";
    put({kLong.text.substr(0, 2) + kShort.text.substr(2), kShort.companion});
    directory_.write(".conf.zjn", journalOf(kShort, kLong, companion_));
    for (std::string const& path : {path_, companion_}) {
        ASSERT_EQ(0, chown(path.c_str(), kOther, 65534));
        ASSERT_EQ(0, chmod(path.c_str(), 0660));
    }
    ASSERT_EQ(0, chown(journal_.c_str(), 65534, 65534));
    for (char const* const call : {"open", "lstat"})
        for (int const error : {EMFILE, EIO, EACCES})
            for (auto const mode : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store}) {
                SCOPED_TRACE(std::string(call) + " " + std::to_string(error));
                expectFailure(companion_, "mapFile()", error, failing(call, "conf.obf", error),
                              [&] { ZJournaledFile(path_.c_str(), mode); });
            }
    // The text does not need the journal.
    directory_.write("conf", "else\n");
    {
        Watch const watch(failing("open", "conf.obf", EMFILE));
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load);
        EXPECT_EQ("else\n", file.text());
    }
    directory_.write("conf", kLong.text.substr(0, 2) + kShort.text.substr(2));
    EXPECT_EQ(kLong, load());
}

TEST_F(ZJournaledFileCase, RelativeCompanionOfADeadStoreIsThatOfItsWorkingDirectory)
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
                ZJournaledFile::Companion written = change(kLong);
                written.path = relative;
                ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
                {
                    Watch const watch(dying);
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
                ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::load);
                text = file.text();
                if (text == kLong.text || !isFirst) {
                    ZJournaledFile::Bytes const bytes = file.readCompanion(relative.c_str());
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
                ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::store);
            }
            ASSERT_EQ(0, chdir(before));
            EXPECT_EQ(text, directory_.read("conf"));
            EXPECT_EQ(companion, companion.empty() ? "" : directory_.read("conf.obf"));
            EXPECT_EQ("", namesIn(elsewhere));
        }
}

namespace {

// Whether another process could lock the file for writing.
bool isFree(std::string const& path)
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

}  // namespace

// ---- Replacing ---------------------------------------------------------------------------------

TEST_F(ZJournaledFileCase, ReplacingGivesTheNameToANewFileLikeTheOldOne)
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
            // A reader without a lock always sees one of the two. In a process of its own: a file
            // that is closed loses its locks.
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
            ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
            {
                Watch const watch(looking);
                file.replace(shape.after.text, change(shape.after));
                EXPECT_TRUE(isLocked);
            }
            struct stat after;
            ASSERT_EQ(0, stat(path_.c_str(), &after));
            EXPECT_NE(before.st_ino, after.st_ino);
            EXPECT_EQ(before.st_mode, after.st_mode);
            EXPECT_EQ(before.st_uid, after.st_uid);
            EXPECT_EQ(ZJournaledFile::Stamp(after), file.stamp());
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

TEST_F(ZJournaledFileCase, ReplacingThatFailsOrIsKilledLeavesTheOldPairOrTheNew)
{
    auto const replace = [&](Pair const& pair) {
        ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
        file.replace(pair.text, change(pair));
    };
    for (Shape const& shape : kShapes)
        for (int error : {EIO, ENOSPC, EINVAL, EPERM})
            for (bool forEver : {false, true})
                for (int n = 1;; ++n) {
                    SCOPED_TRACE(std::string(shape.name) + ", call " + std::to_string(n) + ", " +
                                 strerror(error) + (forEver ? " for ever" : ""));
                    put(shape.before);
                    CallPlan failing;
                    (forEver ? failing.failFrom : failing.failAt) = n;
                    failing.error = error;
                    bool isStored = true;
                    {
                        Watch const watch(failing);
                        try {
                            replace(shape.after);
                        } catch (ZJournaledFile::IoError const&) {
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
                Watch const watch(dying);
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

TEST_F(ZJournaledFileCase, ReplacingFailsWhereNoNewFileIsAllowed)
{
    put(kPlain);
    chmod(path_.c_str(), 0666);
    chmod(directory_.path().c_str(), 0555);
    asNobody([&] {
        std::string seen;
        try {
            ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
            file.replace(kLong.text, ZJournaledFile::Companion());
        } catch (ZJournaledFile::IoError const& failure) {
            seen = failure.file + " " + failure.call + " " + std::to_string(failure.error);
        }
        return seen == directory_.at(".conf.new") + " open() " + std::to_string(EACCES);
    });
    chmod(directory_.path().c_str(), 0777);
    if (geteuid() == 0)
        asNobody([&] {  // the file is root's
            expectFailure(directory_.at(".conf.new"), "fchown()", EPERM, CallPlan(), [&] {
                ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
                file.replace(kLong.text, ZJournaledFile::Companion());
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
            ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
            file.replace(kLong.text, ZJournaledFile::Companion());
        });
    }
    EXPECT_EQ("conf", directory_.names());
    EXPECT_EQ(kPlain, load());
}

TEST_F(ZJournaledFileCase, ReplacingFailsWhereTheNewFileWouldHaveOtherRights)
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
                ZJournaledFile file(path_.c_str(), ZJournaledFile::Mode::store);
                file.replace(kLong.text, ZJournaledFile::Companion());
            });
            return !HasFailure();
        });
        EXPECT_EQ("conf", directory_.names());
        EXPECT_EQ(kPlain, load());
    }
}

// ---- What others put there meanwhile -----------------------------------------------------------

namespace {

// Runs `meddle` before the n-th call.
CallPlan meddlingAt(int n, std::function<void()> const& meddle)
{
    CallPlan plan;
    plan.before = [=](SystemCall const&) {
        if (callPlan.calls == n)
            meddle();
        return 0;
    };
    return plan;
}

}  // namespace

TEST_F(ZJournaledFileCase, LinksThatAreSwappedInAreNotFollowed)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    TestDirectory const elsewhere{TestDirectory::Place::memory};
    Pair const secret = {"secret text\n", packed("root's own")};
    auto const plant = [&] {
        elsewhere.write("conf", secret.text);
        elsewhere.write("conf.obf", secret.companion);
    };
    std::string const folder = directory_.at("folder");
    std::string const away = directory_.at("away");
    std::string const file = folder + "/conf";
    struct Case {
        char const* name;
        std::function<void()> swap;
    };
    auto const swapForLink = [&](char const* name) {
        return Case{name, [&, name] {
                        std::filesystem::remove_all(folder + "/" + name);
                        std::filesystem::create_symlink(
                            elsewhere.at(strstr(name, "obf") != nullptr ? "conf.obf" : "conf"),
                            folder + "/" + name);
                    }};
    };
    Case const cases[] = {{"folder",
                           [&] {
                               std::filesystem::rename(folder, away);
                               std::filesystem::create_directory_symlink(elsewhere.path(), folder);
                           }},
                          swapForLink("conf"),
                          swapForLink("conf.obf"),
                          swapForLink(".conf.zjn"),
                          swapForLink(".conf.zjn.new"),
                          swapForLink(".conf.obf.new")};
    for (Case const& c : cases)
        for (int kind = 0; kind < 4; ++kind)
            for (int n = 1;; ++n) {
                bool const stores = kind % 2 == 1;
                bool const isOurs =
                    kind / 2 == 1;  // root's own file, in the folder of another user
                SCOPED_TRACE(std::string(c.name) + (stores ? ", store " : ", load ") +
                             std::to_string(n));
                std::filesystem::remove_all(folder);
                std::filesystem::remove_all(away);
                std::filesystem::create_directory(folder);
                directory_.write("folder/conf", kShort.text);
                directory_.write("folder/conf.obf", kShort.companion);
                ASSERT_EQ(0, chown(folder.c_str(), 12345, 12345));
                uid_t const owner = isOurs ? 0 : 12345;
                for (std::string const& path : {file, folder + "/conf.obf"})
                    ASSERT_EQ(0, chown(path.c_str(), owner, owner));
                plant();
                std::string read;
                {
                    Watch const watch(meddlingAt(n, c.swap));
                    try {
                        ZJournaledFile opened(file.c_str(), stores ? ZJournaledFile::Mode::store
                                                                   : ZJournaledFile::Mode::load);
                        ZJournaledFile::Bytes const bytes =
                            opened.readCompanion((folder + "/conf.obf").c_str());
                        read.assign(bytes.data(), bytes.length());
                        read += opened.text();
                        ZJournaledFile::Companion change = this->change(kLong);
                        change.path = folder + "/conf.obf";
                        if (stores)
                            opened.commit(kLong.text, change);
                    } catch (ZJournaledFile::IoError const&) {
                    }
                }
                // A file that is ours alone may name any companion, also by a link.
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

TEST_F(ZJournaledFileCase, LinkInThePathOfACompanionLeadsToNoOtherFolder)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    // The link leads to the folder of the file until root has decided that the companion is in it.
    TestDirectory const elsewhere{TestDirectory::Place::memory};
    std::string const folder = directory_.at("folder");
    std::string const link = directory_.at("link");
    std::string const companion = link + "/conf.obf";
    std::string const file = folder + "/conf";
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
                    SCOPED_TRACE(std::to_string(owner) + (isDead ? " dead" : "") +
                                 (removes ? " removes " : " writes ") + std::to_string(n));
                    std::filesystem::remove_all(folder);
                    std::filesystem::create_directory(folder);
                    lead("folder");
                    directory_.write("folder/conf", isDead ? torn.text : kShort.text);
                    directory_.write("folder/conf.obf", kShort.companion);
                    if (isDead)
                        directory_.write("folder/.conf.zjn",
                                         journalOf(kShort, removes ? without : kLong, companion));
                    for (auto const& entry : std::filesystem::directory_iterator(folder))
                        ASSERT_EQ(0, chown(entry.path().c_str(), owner, owner));
                    std::string const secret = packed("root's own");
                    elsewhere.write("conf.obf", secret);
                    {
                        Watch const watch(meddlingAt(n, [&] { lead(elsewhere.path()); }));
                        try {
                            ZJournaledFile opened(file.c_str(), ZJournaledFile::Mode::store);
                            ZJournaledFile::Companion change = this->change(kLong);
                            change.path = companion;
                            if (removes)
                                change.change = ZJournaledFile::Companion::removed;
                            if (!isDead && opened.isOwnCompanion(companion))
                                opened.commit(kLong.text, change);
                        } catch (ZJournaledFile::IoError const&) {
                        }
                    }
                    ASSERT_EQ(secret, elsewhere.read("conf.obf"));
                    ASSERT_EQ("conf.obf", elsewhere.names());
                    if (callPlan.calls < n)
                        break;
                }
}

TEST_F(ZJournaledFileCase, StoreOfAFileThatWasReplacedLeavesTheNewOneAlone)
{
    // An editor replaces the file; the writer of the new one dies in the middle of its text.
    Pair const edited = {"edited edited edited\n", packed("e")};
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
                // In a thread, as the plan of this one is at work.
                std::thread([&] {
                    CallPlan dying;
                    dying.shortTransfers = true;
                    dying.before = [writes = 0](SystemCall const& call) mutable {
                        if (call.name == "pwrite" && nameOf(call) == "conf" && ++writes == 4)
                            _exit(0);
                        return 0;
                    };
                    Watch const watch(dying);
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
            Watch const watch(meddlingAt(n, replace));
            try {
                store({"four four\n", packed("4")});
            } catch (ZJournaledFile::IoError const& failure) {
                isStored = false;
                EXPECT_EQ(ESTALE, failure.error) << failure.file << failure.call;
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

TEST_F(ZJournaledFileCase, WhatCannotBeAJournalIsPutAside)
{
    struct Case {
        char const* name;
        std::function<void(std::string const&)> plant;
    };
    Case const cases[] = {
        {"folder",
         [](std::string const& path) { std::filesystem::create_directories(path + "/in"); }},
        {"pipe", [](std::string const& path) { mkfifo(path.c_str(), 0600); }},
        {"link", [](std::string const& path) { std::filesystem::create_symlink("conf", path); }},
        {"second name",
         [this](std::string const& path) {
             std::filesystem::create_hard_link(directory_.write("other", "other\n"), path);
         }},
        {"writable by others",
         [this](std::string const& path) {
             directory_.write(".conf.zjn", "theirs\n");
             chmod(path.c_str(), 0666);
         }},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        put(kShort);
        c.plant(journal_);
        EXPECT_EQ(kShort, load());
        store(kLong);
        EXPECT_EQ(kLong, load());
        EXPECT_EQ(0u, directory_.names().find(".conf.zjn.orphan conf conf.obf"))
            << directory_.names();
        // A temporary file of a folder's kind goes the same way.
        put(kShort);
        std::filesystem::create_directory(directory_.at(".conf.zjn.new"));
        store(kLong);
        EXPECT_EQ(kLong, load());
        std::filesystem::remove(directory_.at("other"));
    }
}

TEST_F(ZJournaledFileCase, OrphansAreNumberedAndNeverReplaced)
{
    for (char const* name : {".conf.zjn.orphan", ".conf.zjn.orphan.2", ".conf.zjn.orphan.3"}) {
        SCOPED_TRACE(name);
        directory_.write("conf", "else\n");
        std::string const text = "old of " + std::string(name);
        directory_.write(".conf.zjn", journalOf({text, ""}, kLong, ""));
        storeText(kPlain.text);
        EXPECT_NE(std::string::npos, directory_.read(name).find(text));
    }
    EXPECT_EQ(".conf.zjn.orphan .conf.zjn.orphan.2 .conf.zjn.orphan.3 conf", directory_.names());
}

TEST_F(ZJournaledFileCase, ObstacleThatCannotBePutAsideIsNamed)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has files of two owners";
    chmod(directory_.path().c_str(), 01777);
    directory_.write(".conf.zjn", "root's\n");
    directory_.write("conf", kPlain.text);
    ASSERT_EQ(0, chown(path_.c_str(), 65534, 65534));
    ASSERT_EQ(0, chown(journal_.c_str(), 12345, 65534));
    asNobody([&] {
        expectFailure(journal_, "rename()", EEXIST, CallPlan(), [&] { storeText(kLong.text); });
        return !HasFailure() && load() == kPlain;
    });
    EXPECT_EQ(".conf.zjn conf", directory_.names());
}

TEST_F(ZJournaledFileCase, FilesAboveTheLimitAreNeitherReadNorWritten)
{
    struct Limit {
        explicit Limit(size_t size) { zstore::setMaxFileSize(size); }
        ~Limit() { zstore::setMaxFileSize(zstore::kDefaultMaxFileSize); }
    };
    EXPECT_EQ(size_t{1} << 30, zstore::maxFileSize());
    put({std::string(100, 'x'), ""});
    {
        Limit const limit(100);
        EXPECT_EQ(100u, load().text.size());
        expectFailure(path_, "write()", EFBIG, CallPlan(),
                      [&] { storeText(std::string(101, 'y')); });
        storeText(std::string(100, 'y'));
        directory_.write("conf", std::string(101, 'x'));
        for (ZJournaledFile::Mode mode : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store})
            expectFailure(path_, "read()", EFBIG, CallPlan(),
                          [&] { ZJournaledFile(path_.c_str(), mode); });
        // Also one that grows while it is read.
        CallPlan growing;
        growing.after = [](SystemCall const& call, ssize_t& result) {
            if (call.name == "fstat" && result == 0)
                static_cast<struct stat*>(call.to)->st_size = 1;
        };
        expectFailure(path_, "read()", EFBIG, growing,
                      [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::load); });
    }
    put(kShort);
    directory_.write(".conf.zjn", "");
    auto const most = static_cast<off_t>(zstore::maxJournalSize());
    ASSERT_EQ(0, truncate(journal_.c_str(), most + 1));
    for (ZJournaledFile::Mode mode : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store})
        expectFailure(journal_, "read()", EFBIG, CallPlan(),
                      [&] { ZJournaledFile(path_.c_str(), mode); });
}

// ---- Locks -------------------------------------------------------------------------------------

TEST_F(ZJournaledFileCase, ThreadThatStoresCannotLoadTheSameFile)
{
    put(kShort);
    ZJournaledFile const storing(path_.c_str(), ZJournaledFile::Mode::store);
    for (ZJournaledFile::Mode use : {ZJournaledFile::Mode::load, ZJournaledFile::Mode::store}) {
        try {
            ZJournaledFile const again(path_.c_str(), use);
            ADD_FAILURE();
        } catch (ZJournaledFile::IoError const& failure) {
            EXPECT_STREQ("fcntl()", failure.call);
            EXPECT_EQ(EDEADLK, failure.error);
        }
    }
}

TEST_F(ZJournaledFileCase, FileThatWasMadeStaysUnlessItIsKnownToBeEmptyAndOurs)
{
    struct Case {
        int error;
        char const* names;
    };
    for (Case const& c : {Case{EAGAIN, "conf"}, Case{EACCES, "conf"}, Case{ENOLCK, ""}}) {
        SCOPED_TRACE(strerror(c.error));
        std::filesystem::remove(path_);
        expectFailure(path_, "fcntl()", c.error, failing("F_SETLK", "conf", c.error),
                      [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::store); });
        EXPECT_EQ(c.names, directory_.names());
    }
    // It stays, too, if somebody has stored into it, or if that cannot be found out.
    for (bool isFilled : {true, false}) {
        SCOPED_TRACE(isFilled);
        std::filesystem::remove(path_);
        CallPlan plan;
        plan.before = [&, isRefused = false](SystemCall const& call) mutable {
            if (call.name == "F_SETLK" && nameOf(call) == "conf") {
                isRefused = true;
                if (isFilled)
                    directory_.write("conf", "theirs\n");
                return ENOLCK;
            }
            return isRefused && !isFilled && call.name == "fstat" ? EIO : 0;
        };
        expectFailure(path_, "fcntl()", ENOLCK, plan,
                      [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::store); });
        EXPECT_EQ(isFilled ? "theirs\n" : "", directory_.read("conf"));
        EXPECT_EQ("conf", directory_.names());
    }
}

TEST_F(ZJournaledFileCase, OtherThreadsTakeTurns)
{
    put(kShort);
    std::atomic<bool> loaded{false};
    std::thread other;
    {
        ZJournaledFile storing(path_.c_str(), ZJournaledFile::Mode::store);
        other = std::thread([&] {
            EXPECT_EQ(kLong, load());
            loaded = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_FALSE(loaded);
        storing.commit(viewOf(kLong.text), change(kLong));
    }
    other.join();
    EXPECT_TRUE(loaded);
}

TEST_F(ZJournaledFileCase, ClosingOneUserOfAFileKeepsTheLockOfAnother)
{
    put(kShort);
    auto first = std::make_unique<ZJournaledFile>(path_.c_str(), ZJournaledFile::Mode::load);
    EXPECT_FALSE(isFree(path_));
    {
        ZJournaledFile const second(path_.c_str(), ZJournaledFile::Mode::load);
    }
    EXPECT_FALSE(isFree(path_));
    {
        ZSharedFile file;
        ASSERT_EQ(0, file.open(path_.c_str(), O_RDWR, 0));
    }
    EXPECT_FALSE(isFree(path_));
    first.reset();
    EXPECT_TRUE(isFree(path_));
}

TEST_F(ZJournaledFileCase, SecondNamesOfTheFileDoNotCostItsLock)
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
            Watch const watch(looking);
            store(kLong);
        }
        EXPECT_EQ(2, looks);  // the text, and the end of the journal
        EXPECT_EQ(kLong, load());
        std::filesystem::remove(directory_.at(name));
    }
}

TEST_F(ZJournaledFileCase, PipesInTheJournalsPlaceAreNotOpened)
{
    for (char const* name : {".conf.zjn", ".conf.zjn.new", ".conf.obf.new"}) {
        SCOPED_TRACE(name);
        put(kShort);
        ASSERT_EQ(0, mkfifo(directory_.at(name).c_str(), 0600));
        int const fd = open(directory_.at(name).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        store(kLong);
        pollfd pipe = {fd, POLLIN, 0};
        EXPECT_EQ(0, poll(&pipe, 1, 0));  // it would say so if a writer had gone
        close(fd);
        EXPECT_EQ(kLong, load());
        bool const isJournal = strcmp(name, ".conf.zjn") == 0;
        EXPECT_EQ(isJournal ? ".conf.zjn.orphan conf conf.obf" : "conf conf.obf",
                  directory_.names());
    }
}

TEST_F(ZJournaledFileCase, SharedFilesLockRangesForEachOther)
{
    put(kShort);
    ZSharedFile one;
    ZSharedFile other;
    ASSERT_EQ(0, one.open(path_.c_str(), O_RDONLY, 0));
    ASSERT_EQ(0, other.open(path_.c_str(), O_RDWR, 0));
    EXPECT_EQ(one.descriptor(), other.descriptor());
    EXPECT_EQ(0, one.lock(F_RDLCK, 0, 1));
    EXPECT_EQ(0, other.lock(F_RDLCK, 0, 1));
    EXPECT_EQ(0, other.lock(F_WRLCK, 1, 1));
    EXPECT_EQ(EDEADLK, one.lock(F_RDLCK, 1, 1));
    EXPECT_EQ(EDEADLK, one.lock(F_WRLCK, 0, 1));
    one.unlock(0, 1);
    std::thread waiting([&] {
        ZSharedFile third;
        ASSERT_EQ(0, third.open(path_.c_str(), O_RDWR, 0));
        EXPECT_EQ(0, third.lock(F_WRLCK, 0, 1));
        EXPECT_EQ(0, third.lock(F_WRLCK, 1, 1));
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    other.unlock(0, 1);
    other.close();
    waiting.join();
    EXPECT_TRUE(isFree(path_));
    EXPECT_TRUE(one.isOpen());
    EXPECT_FALSE(other.isOpen());
}

TEST_F(ZJournaledFileCase, OnlyRegularFilesAreOpened)
{
    ZSharedFile file;
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

TEST_F(ZJournaledFileCase, ClosedStandardDescriptorsDoNotGetIntoAFile)
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
                ZSharedFile file;
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

TEST_F(ZJournaledFileCase, ChildOfAForkStartsAnew)
{
    put(kShort);
    ZJournaledFile const loading(path_.c_str(), ZJournaledFile::Mode::load);
    pid_t const child = fork();
    if (child == 0) {
        Pair const found = load();
        _exit(found == kShort ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST_F(ZJournaledFileCase, FileThatIsReplacedAgainAndAgainIsGivenUp)
{
    put(kShort);
    std::atomic<bool> stop{false};
    std::thread editor([&] {
        for (int i = 0; !stop; ++i) {
            directory_.write("edited", "edit " + std::to_string(i) + "\n");
            rename(directory_.at("edited").c_str(), path_.c_str());
        }
    });
    for (int i = 0; i < 200; ++i) {
        ZJournaledFile const file(path_.c_str(), ZJournaledFile::Mode::load);
        std::string const text(file.text().data(), file.text().size());
        EXPECT_TRUE(text == kShort.text || text.compare(0, 5, "edit ") == 0) << text;
    }
    stop = true;
    editor.join();
}

TEST_F(ZJournaledFileCase, FileThatIsReplacedEachTimeItIsOpenedIsGivenUp)
{
    put(kShort);
    int opened = 0;
    CallPlan replacing;
    replacing.before = [&](SystemCall const& call) {
        opened += call.name == "open";
        if (call.name == "F_SETLK") {
            directory_.write("edited", "edited\n");
            EXPECT_EQ(0, rename(directory_.at("edited").c_str(), path_.c_str()));
        }
        return 0;
    };
    expectFailure(path_, "fopen(r)", ESTALE, replacing,
                  [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::load); });
    EXPECT_EQ(100, opened);
    expectFailure(path_, "fopen(r+)", ESTALE, replacing,
                  [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::store); });
    EXPECT_EQ("edited\n", directory_.read("conf"));
}

TEST_F(ZJournaledFileCase, FileThatGoesWhileItIsOpenedIsMissing)
{
    // Before its real path is known, and behind that.
    for (char const* moment : {"open", "F_SETLK"}) {
        SCOPED_TRACE(moment);
        bool isGone = false;
        CallPlan removing;
        removing.after = [&](SystemCall const& call, ssize_t& result) {
            if (!isGone && call.name == moment && result >= 0)
                isGone = std::filesystem::remove(path_);
        };
        put(kPlain);
        expectFailure(path_, "fopen(r)", ENOENT, removing,
                      [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::load); });
        EXPECT_TRUE(isGone);
        // A store makes it anew, also when it is the one that it made.
        for (bool made : {false, true}) {
            put(kPlain);
            if (made)
                std::filesystem::remove(path_);
            isGone = false;
            {
                Watch const watch(removing);
                storeText(kLong.text);
            }
            EXPECT_TRUE(isGone);
            EXPECT_EQ(kLong.text, directory_.read("conf"));
        }
    }
}

TEST_F(ZJournaledFileCase, FileThatBecomesALinkThatLeadsNowhereIsAFailure)
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
        expectFailure(path_, "fopen(r)", c.error, linking,
                      [&] { ZJournaledFile(path_.c_str(), ZJournaledFile::Mode::load); });
        std::filesystem::remove(path_);
    }
}
