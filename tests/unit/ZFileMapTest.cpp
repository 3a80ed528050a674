#include <Z/ZFileMap.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "SystemCalls.h"
#include "TestDirectory.h"

namespace {

constexpr ZUnixFileMap_6_0::zmapmode kReadOnly = ZUnixFileMap_6_0::readOnly;
constexpr ZUnixFileMap_6_0::zmapmode kReadWrite = ZUnixFileMap_6_0::readWrite;
constexpr auto kOtherMode = static_cast<ZUnixFileMap_6_0::zmapmode>(2);

// A new directory for each test, with a text file and an empty file. `callPlan` records the system
// calls of the map.
class ZFileMap : public testing::Test {
protected:
    ZFileMap()
    {
        write("text", kText);
        write("empty", "");
    }

    std::string path(std::string const& name) const { return directory_.at(name); }
    ZLCString_6_0 name(std::string const& name) const { return ZLCString_6_0(path(name).c_str()); }
    void write(std::string const& name, std::string const& text) const
    {
        directory_.write(name, text);
    }
    std::string read(std::string const& name) const { return directory_.read(name); }
    bool exists(std::string const& name) const { return access(path(name).c_str(), F_OK) == 0; }

    static inline std::string const kText = std::string(60, 'a') + std::string(40, 'b');
    TestDirectory const directory_;
    WatchedCalls const watched_;
};

// A map with readable fields.
struct VisibleMap : ZUnixFileMap_6_0 {
    using ZUnixFileMap_6_0::ZUnixFileMap_6_0;
    using ZUnixFileMap_6_0::operator=;
    void const* address() const { return address_; }
    unsigned long length() const { return length_; }
    int reserved() const { return reserved_; }
};

// For CallPlan::before: stores the flags of open() in `flags`.
auto notingFlags(int& flags)
{
    return [&flags](SystemCall const& call) {
        if (call.name == "open")
            flags = call.flags;
        return 0;
    };
}

bool isOpen(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

}  // namespace

TEST_F(ZFileMap, MapsAWholeFileOrItsFirstBytes)
{
    struct Case {
        char const* name;
        ZUnixFileMap_6_0::zmapmode mode;
        unsigned long length;
        size_t seen;
    };
    Case const cases[] = {
        {"all, read only", kReadOnly, 0, 100},         {"all, read-write", kReadWrite, 0, 100},
        {"all, another mode", kOtherMode, 0, 100},     {"ten bytes, read only", kReadOnly, 10, 10},
        {"ten bytes, read-write", kReadWrite, 10, 10}, {"exactly all", kReadWrite, 100, 100}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZUnixFileMap_6_0 map(name("text"), c.mode, 0);
        int code = 7;
        auto const* const bytes = static_cast<char const*>(map.mapfile(&code, c.length));
        ASSERT_NE(nullptr, bytes);
        EXPECT_EQ(0, code);
        EXPECT_EQ(kText.substr(0, c.seen), std::string(bytes, c.seen));
        code = 7;
        map.unmapfile(&code);
        EXPECT_EQ(7, code) << "a success does not change the code";
        EXPECT_EQ(kText, read("text"));
    }
}

TEST_F(ZFileMap, WritesThroughAReadWriteMapping)
{
    for (auto const mode : {kReadWrite, kOtherMode}) {
        SCOPED_TRACE(mode);
        write("text", kText);
        ZUnixFileMap_6_0 map(name("text"), mode, 0);
        int code = 7;
        auto* const bytes = static_cast<char*>(map.mapfile(&code, 0));
        ASSERT_NE(nullptr, bytes);
        bytes[99] = '!';
        map.unmapfile(&code);
        EXPECT_EQ(kText.substr(0, 99) + "!", read("text"));
    }
}

TEST_F(ZFileMap, AReadOnlyMappingCannotBeWritten)
{
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    int code = 7;
    auto* const bytes = static_cast<char*>(map.mapfile(&code, 0));
    ASSERT_NE(nullptr, bytes);
    EXPECT_DEATH(*static_cast<char volatile*>(bytes) = '!', "");
}

TEST_F(ZFileMap, CreatesAndExtendsFilesInReadWriteMode)
{
    struct Case {
        char const* name;
        char const* file;
        unsigned long length;
    };
    Case const cases[] = {{"missing", "new", 4096},
                          {"missing, one byte", "new1", 1},
                          {"empty", "empty", 5000},
                          {"shorter", "text", 101}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        std::string const before = exists(c.file) ? read(c.file) : "";
        ZUnixFileMap_6_0 map(name(c.file), kReadWrite, 0);
        int code = 7;
        auto* const bytes = static_cast<char*>(map.mapfile(&code, c.length));
        ASSERT_NE(nullptr, bytes);
        EXPECT_EQ(0, code);
        std::string const expected = before + std::string(c.length - before.size(), '\0');
        EXPECT_EQ(expected, std::string(bytes, c.length));
        map.unmapfile(&code);
        EXPECT_EQ(expected, read(c.file));
        struct stat status;
        ASSERT_EQ(0, stat(path(c.file).c_str(), &status));
        EXPECT_GT(status.st_blocks, 0) << "the disk space is allocated";
    }
    struct stat status;
    ASSERT_EQ(0, stat(path("new").c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777);
}

TEST_F(ZFileMap, FailuresReturnTheirCodeAndMapNothing)
{
    struct Case {
        char const* name;
        char const* file;
        ZUnixFileMap_6_0::zmapmode mode;
        unsigned long length;
        int code;
        bool created;
    };
    Case const cases[] = {
        {"missing, read only", "none", kReadOnly, 10, ENOENT, false},
        {"missing, another mode", "none", kOtherMode, 10, ENOENT, false},
        {"missing, read only, all", "none", kReadOnly, 0, EINVAL, false},
        {"missing, read-write, all", "none", kReadWrite, 0, EINVAL, false},
        {"empty, all, read only", "empty", kReadOnly, 0, EINVAL, true},
        {"empty, all, read-write", "empty", kReadWrite, 0, EINVAL, true},
        {"no such directory", "none/none", kReadWrite, 10, ENOENT, false},
        {"a file as directory", "text/none", kReadWrite, 10, ENOTDIR, false},
        {"a directory, read-write", ".", kReadWrite, 0, EISDIR, true},
        {"a directory, read only", ".", kReadOnly, 0, ENODEV, true},
        {"too long a mapping", "text", kReadOnly, ULONG_MAX, ENOMEM, true},
        {"too long an extension", "text", kReadWrite, ULONG_MAX, EFBIG, true},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZUnixFileMap_6_0 map(name(c.file), c.mode, 0);
        int code = 7;
        EXPECT_EQ(nullptr, map.mapfile(&code, c.length));
        EXPECT_EQ(c.code, code);
        EXPECT_EQ(c.created, exists(c.file));
        code = 7;
        map.unmapfile(&code);
        EXPECT_EQ(7, code);
    }
    EXPECT_EQ(kText, read("text"));
    EXPECT_EQ("", read("empty"));
}

TEST_F(ZFileMap, KeepsAnEmptyFileEquivalentToAMissingOne)
{
    // With a length, an empty file is opened with the same flags as a missing file.
    ZUnixFileMap_6_0 map(name("empty"), kReadWrite, 0);
    int code = 7;
    int flags = 0;
    callPlan.before = notingFlags(flags);
    EXPECT_NE(nullptr, map.mapfile(&code, 10));
    EXPECT_EQ(0, code);
    EXPECT_NE(0, flags & O_CREAT);
}

TEST_F(ZFileMap, OpensAccordingToItsMode)
{
    struct Case {
        char const* name;
        ZUnixFileMap_6_0::zmapmode mode;
        char const* file;
        int flags;
    };
    Case const cases[] = {{"read only", kReadOnly, "text", O_RDONLY},
                          {"read-write", kReadWrite, "text", O_RDWR},
                          {"another mode", kOtherMode, "text", O_RDWR},
                          {"read only, missing", kReadOnly, "none", O_RDONLY},
                          {"another mode, missing", kOtherMode, "none", O_RDWR},
                          {"read-write, missing", kReadWrite, "made", O_RDWR | O_CREAT}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        ZUnixFileMap_6_0 map(name(c.file), c.mode, 0);
        int code = 7;
        int flags = 0;
        callPlan.before = notingFlags(flags);
        map.mapfile(&code, 10);
        EXPECT_EQ(c.flags | O_NONBLOCK | O_CLOEXEC, flags);
    }
}

// The kernel refuses O_CREAT for another user's file in a sticky directory.
TEST_F(ZFileMap, MapsAnEmptyFileThatMustNotBeOpenedWithCreate)
{
    callPlan.before = [](SystemCall const& call) {
        bool const isThere = call.path != nullptr && access(call.path, F_OK) == 0;
        return call.name == "open" && (call.flags & O_CREAT) != 0 && isThere ? EACCES : 0;
    };
    ZUnixFileMap_6_0 map(name("empty"), kReadWrite, 0);
    int code = 7;
    EXPECT_NE(nullptr, map.mapfile(&code, 10));
    EXPECT_EQ(0, code);
    ZUnixFileMap_6_0 made(name("made"), kReadWrite, 0);
    EXPECT_NE(nullptr, made.mapfile(&code, 10));
    EXPECT_EQ(std::string(10, '\0'), read("made"));
    // If the directory forbids creating the file, the code is still EACCES.
    callPlan.before = [](SystemCall const& call) {
        return call.name == "open" && (call.flags & O_CREAT) != 0 ? EACCES : 0;
    };
    ZUnixFileMap_6_0 missing(name("missing"), kReadWrite, 0);
    EXPECT_EQ(nullptr, missing.mapfile(&code, 10));
    EXPECT_EQ(EACCES, code);
}

TEST_F(ZFileMap, DoesNotWaitForTheWriterOfAPipe)
{
    ASSERT_EQ(0, mkfifo(path("pipe").c_str(), 0600));
    ZUnixFileMap_6_0 map(name("pipe"), kReadOnly, 0);
    int code = 7;
    EXPECT_EQ(nullptr, map.mapfile(&code, 10));
    EXPECT_EQ(ENODEV, code);
}

TEST_F(ZFileMap, UsesTheStatusOfTheOpenFile)
{
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    std::string text = "short";
    callPlan.before = [&](SystemCall const& call) {
        if (call.name == "open")
            write("text", text);
        return 0;
    };
    int code = 7;
    auto const* const bytes = static_cast<char const*>(map.mapfile(&code, 0));
    ASSERT_NE(nullptr, bytes);
    EXPECT_STREQ("short", bytes) << "five bytes, followed by the zeros of the page";

    text = "";
    EXPECT_EQ(nullptr, map.mapfile(&code, 0));
    EXPECT_EQ(EINVAL, code);
    callPlan.before = nullptr;

    write("text", kText);
    callPlan.failing["fstat"] = EIO;
    EXPECT_EQ(nullptr, map.mapfile(&code, 0));
    EXPECT_EQ(EIO, code);
    EXPECT_FALSE(isOpen(callPlan.opened));
}

TEST_F(ZFileMap, AFullDiskIsReportedAndTheFileKeepsItsLength)
{
    struct Case {
        char const* name;
        int failReserve;
        int failAllocate;
        int code;
    };
    Case const cases[] = {{"no space", ENOSPC, 0, ENOSPC},
                          {"cannot extend", 0, EFBIG, EFBIG},
                          {"cannot allocate past the end, no space", EOPNOTSUPP, ENOSPC, ENOSPC}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        callPlan.failing = {{"fallocate", c.failReserve}, {"posix_fallocate", c.failAllocate}};
        ZUnixFileMap_6_0 map(name("text"), kReadWrite, 0);
        int code = 7;
        EXPECT_EQ(nullptr, map.mapfile(&code, 1000));
        EXPECT_EQ(c.code, code);
        EXPECT_FALSE(isOpen(callPlan.opened));
        EXPECT_EQ(kText, read("text"));
    }
}

TEST_F(ZFileMap, ExtendsWithoutFallocateAndAfterInterruptions)
{
    for (int reserve : {0, EOPNOTSUPP}) {
        SCOPED_TRACE(reserve);
        write("text", kText);
        callPlan.failing["fallocate"] = reserve;
        callPlan.before = [reserving = 2, extending = 2](SystemCall const& call) mutable {
            bool const isInterrupted = (call.name == "fallocate" && reserving-- > 0) ||
                                       (call.name == "posix_fallocate" && extending-- > 0);
            return isInterrupted ? EINTR : 0;
        };
        ZUnixFileMap_6_0 map(name("text"), kReadWrite, 0);
        int code = 7;
        EXPECT_NE(nullptr, map.mapfile(&code, 1000));
        EXPECT_EQ(0, code);
        EXPECT_EQ(kText + std::string(900, '\0'), read("text"));
    }
}

TEST_F(ZFileMap, FailedExtensionKeepsAppendedBytes)
{
    ZUnixFileMap_6_0 map(name("text"), kReadWrite, 0);
    std::string const longer = kText + "text that another process appended";
    callPlan.before = [&](SystemCall const& call) {
        if (call.name == "fallocate")
            write("text", longer);
        return 0;
    };
    for (int reserve : {0, ENOSPC}) {
        SCOPED_TRACE(reserve);
        write("text", kText);
        callPlan.failing = {{"fallocate", reserve}, {"posix_fallocate", ENOSPC}};
        int code = 7;
        EXPECT_EQ(nullptr, map.mapfile(&code, 1000));
        EXPECT_EQ(ENOSPC, code);
        EXPECT_EQ(longer, read("text"));
    }
}

TEST_F(ZFileMap, FileSizeLimitIsReportedAsACode)
{
    struct Case {
        char const* name;
        rlim_t limit;   // when mapfile() reads the limit
        rlim_t within;  // after mapfile() has read the limit
        int reserve;    // errno of fallocate(), or 0
    };
    rlim_t const none = RLIM_INFINITY;
    Case const cases[] = {{"a limit below the length", 500, 500, 0},
                          {"a limit below the present size", 50, 50, 0},
                          {"a limit that another process sets after the check", none, 500, 0},
                          {"the same, without fallocate()", none, 500, EOPNOTSUPP}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        pid_t const child = fork();
        if (child == 0) {
            signal(SIGXFSZ, SIG_DFL);
            rlimit limit = {c.limit, none};
            setrlimit(RLIMIT_FSIZE, &limit);
            callPlan.failing["fallocate"] = c.reserve;
            callPlan.before = [&](SystemCall const& call) {
                limit.rlim_cur = c.within;
                if (call.name == "fallocate")
                    setrlimit(RLIMIT_FSIZE, &limit);
                return 0;
            };
            ZUnixFileMap_6_0 map(name("text"), kReadWrite, 0);
            int code = 7;
            void const* const address = map.mapfile(&code, 1000);
            sigset_t pending;
            sigpending(&pending);
            _exit(address == nullptr && code == EFBIG && !sigismember(&pending, SIGXFSZ) ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_EQ(0, status) << "ended by signal " << WTERMSIG(status);
        EXPECT_EQ(kText, read("text"));
    }
}

TEST_F(ZFileMap, MappingThatCannotBeRemovedStays)
{
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    int code = 7;
    void* const address = map.mapfile(&code, 0);
    ASSERT_NE(nullptr, address);
    callPlan.failing["munmap"] = ENOMEM;
    EXPECT_EQ(nullptr, map.mapfile(&code, 10));
    EXPECT_EQ(ENOMEM, code);
    EXPECT_FALSE(isOpen(callPlan.opened));
    EXPECT_EQ(0, msync(address, 1, MS_ASYNC));
    callPlan.failing.clear();
    EXPECT_NE(nullptr, map.mapfile(&code, 10));
    EXPECT_EQ(0, code);
    map.unmapfile(&code);
    EXPECT_EQ(0, code);
    EXPECT_NE(0, msync(address, 1, MS_ASYNC));
}

TEST_F(ZFileMap, ReportsErrorsOfUnmapping)
{
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    int code = 7;
    void* const address = map.mapfile(&code, 0);
    ASSERT_NE(nullptr, address);
    int const fd = callPlan.opened;
    callPlan.failing["munmap"] = EINVAL;
    map.unmapfile(&code);
    EXPECT_EQ(EINVAL, code);
    EXPECT_FALSE(isOpen(fd)) << "the file is closed anyway";
    callPlan.failing.clear();
    code = 7;
    map.unmapfile(&code);
    EXPECT_EQ(7, code) << "the address was kept, and is unmapped now";
    EXPECT_NE(0, msync(address, 1, MS_ASYNC));

    ASSERT_NE(nullptr, map.mapfile(&code, 0));
    callPlan.failing["close"] = EIO;
    map.unmapfile(&code);
    EXPECT_EQ(EIO, code);
    int const calls = callPlan.calls;
    code = 7;
    map.unmapfile(&code);
    EXPECT_EQ(7, code);
    EXPECT_EQ(calls, callPlan.calls) << "a descriptor is closed once";
}

TEST_F(ZFileMap, DestructorReleasesEverything)
{
    int code = 7;
    void* address = nullptr;
    {
        ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
        address = map.mapfile(&code, 0);
        ASSERT_NE(nullptr, address);
        EXPECT_TRUE(isOpen(callPlan.opened));
        EXPECT_EQ(0, msync(address, 1, MS_ASYNC));
    }
    EXPECT_FALSE(isOpen(callPlan.opened));
    EXPECT_NE(0, msync(address, 1, MS_ASYNC));
}

TEST_F(ZFileMap, MappingAgainRemovesTheFirstMapping)
{
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    int code = 7;
    ASSERT_NE(nullptr, map.mapfile(&code, 0));
    int const first = callPlan.opened;
    auto const* const bytes = static_cast<char const*>(map.mapfile(&code, 5));
    ASSERT_NE(nullptr, bytes);
    EXPECT_EQ(first, callPlan.opened) << "the descriptor was free again";
    EXPECT_EQ("aaaaa", std::string(bytes, 5));
}

TEST_F(ZFileMap, ToleratesANullCodePointer)
{
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    EXPECT_NE(nullptr, map.mapfile(nullptr, 0));
    map.unmapfile(nullptr);
    ZUnixFileMap_6_0 none(name("none"), kReadOnly, 0);
    EXPECT_EQ(nullptr, none.mapfile(nullptr, 0));
}

TEST_F(ZFileMap, CopiesHaveFileAndModeOfTheirSourceAndMapNothing)
{
    VisibleMap map(name("text"), kReadWrite, 42);
    int code = 7;
    ASSERT_NE(nullptr, map.mapfile(&code, 0));
    VisibleMap copy(map);
    EXPECT_EQ(42, copy.reserved());
    EXPECT_EQ(nullptr, copy.address());
    int const calls = callPlan.calls;
    copy.unmapfile(&code);
    EXPECT_EQ(calls, callPlan.calls);
    auto* const bytes = static_cast<char*>(copy.mapfile(&code, 1));
    ASSERT_NE(nullptr, bytes);
    *bytes = '!';
    EXPECT_EQ("!" + kText.substr(1), read("text"));
}

TEST_F(ZFileMap, KeepsItsOwnFileWhenAssignedTo)
{
    write("other", "other file");
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    ZUnixFileMap_6_0 other(name("other"), kReadOnly, 0);
    int code = 7;
    VisibleMap target(name("text"), kReadOnly, 42);
    EXPECT_EQ(42, target.reserved());

    target = other;
    EXPECT_EQ(nullptr, target.address()) << "the source has no mapping";
    target = static_cast<ZUnixFileMap_6_0&>(target);
    EXPECT_EQ(nullptr, target.address());
    ASSERT_NE(nullptr, other.mapfile(&code, 3));
    target = other;
    ASSERT_NE(nullptr, target.address());
    EXPECT_EQ(100ul, target.length());
    EXPECT_EQ(kText, std::string(static_cast<char const*>(target.address()), 100));

    ZAbstractFileMap_6_0& base = target;
    void const* const before = target.address();
    base = other;
    EXPECT_EQ(before, target.address());
}

TEST_F(ZFileMap, DoesNotUseTheDescriptorsOfStandardStreams)
{
    for (int closed : {1, 2}) {
        SCOPED_TRACE(closed);
        int const saved = fcntl(closed, F_DUPFD, 10);
        ASSERT_GE(saved, 0);
        ASSERT_EQ(0, __real_close(closed));
        ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
        int code = 7;
        void const* const address = map.mapfile(&code, 0);
        bool const taken = isOpen(closed);
        int const opened = callPlan.opened;
        map.unmapfile(&code);
        ASSERT_EQ(closed, dup2(saved, closed));
        __real_close(saved);
        EXPECT_EQ(closed, opened) << "the system offered the stream's number";
        EXPECT_NE(nullptr, address);
        EXPECT_FALSE(taken);
    }
}

TEST_F(ZFileMap, FailsIfItCannotMoveAboveTheStandardStreams)
{
    int const saved = fcntl(1, F_DUPFD, 10);
    ASSERT_GE(saved, 0);
    ASSERT_EQ(0, __real_close(1));
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    callPlan.failing["fcntl"] = EMFILE;
    int code = 7;
    void const* const address = map.mapfile(&code, 0);
    callPlan.failing.clear();
    bool const left = isOpen(1);
    ASSERT_EQ(1, dup2(saved, 1));
    __real_close(saved);
    EXPECT_EQ(nullptr, address);
    EXPECT_EQ(EMFILE, code);
    EXPECT_FALSE(left);
}

TEST_F(ZFileMap, KeepsDescriptorZeroAFailure)
{
    int const saved = fcntl(0, F_DUPFD, 10);
    ASSERT_GE(saved, 0);
    ASSERT_EQ(0, __real_close(0));
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    ZUnixFileMap_6_0 made(name("made"), kReadWrite, 0);
    int code = 7;
    void const* const address = map.mapfile(&code, 0);
    bool const left = isOpen(0);
    int madeCode = 7;
    void const* const madeAddress = made.mapfile(&madeCode, 10);
    ASSERT_EQ(0, dup2(saved, 0));
    __real_close(saved);
    EXPECT_EQ(nullptr, address);
    EXPECT_EQ(0, code);
    EXPECT_FALSE(left);
    EXPECT_EQ(nullptr, madeAddress);
    EXPECT_EQ(ENOENT, madeCode);
}
