#include <Z/ZFileMap.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

extern "C" {
int __real_close(int);
int __real_munmap(void*, size_t);
int __real_open(char const*, int, ...);
int __real_fstat(int, struct stat*);
int __real_fallocate(int, int, off_t, off_t);
int __real_posix_fallocate(int, off_t, off_t);
}

namespace {

// What the map's calls answer instead, when not 0, and what they were asked.
struct Calls {
    int failClose = 0;  // closes all the same, as Linux does
    int failUnmap = 0;
    int failFstat = 0;
    int failReserve = 0;   // the room without the length
    int failAllocate = 0;  // the room and the length
    int interrupt = 0;     // times, of both
    std::function<void()> beforeReserve;
    std::function<void()> beforeOpen;
    int openFlags = 0;
    int descriptor = -1;
    int closed = -1;
};
Calls calls;

constexpr ZUnixFileMap_6_0::zmapmode kReadOnly = ZUnixFileMap_6_0::readOnly;
constexpr ZUnixFileMap_6_0::zmapmode kReadWrite = ZUnixFileMap_6_0::readWrite;
constexpr auto kOtherMode = static_cast<ZUnixFileMap_6_0::zmapmode>(2);

// A fresh directory for each test, with one file of text in it.
class FileMapTest : public testing::Test {
public:
    ~FileMapTest() noexcept override {}

protected:
    void SetUp() override
    {
        calls = Calls();
        char name[] = "/tmp/zfilemapXXXXXX";
        ASSERT_NE(nullptr, mkdtemp(name));
        directory_ = name;
        write("text", kText);
        write("empty", "");
    }
    void TearDown() override
    {
        calls = Calls();
        ASSERT_EQ(0, system(("rm -rf " + directory_).c_str()));
    }

    std::string path(std::string const& name) const { return directory_ + "/" + name; }
    ZLCString_6_0 name(std::string const& name) const { return ZLCString_6_0(path(name).c_str()); }
    void write(std::string const& name, std::string const& text) const
    {
        std::ofstream(path(name), std::ios::binary) << text;
    }
    std::string read(std::string const& name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }
    bool exists(std::string const& name) const { return access(path(name).c_str(), F_OK) == 0; }

    static inline std::string const kText = std::string(60, 'a') + std::string(40, 'b');
    std::string directory_;
};

using ZFileMap = FileMapTest;

// A map whose fields a test may read.
struct Seen : ZUnixFileMap_6_0 {
    using ZUnixFileMap_6_0::ZUnixFileMap_6_0;
    using ZUnixFileMap_6_0::operator=;
    void const* address() const { return address_; }
    unsigned long length() const { return length_; }
    int reserved() const { return reserved_; }
};

bool isOpen(int fd)
{
    return fcntl(fd, F_GETFD) >= 0;
}

}  // namespace

extern "C" {

int __wrap_close(int fd)
{
    calls.closed = fd;
    int const rc = __real_close(fd);
    if (calls.failClose != 0) {
        errno = calls.failClose;
        return -1;
    }
    return rc;
}

int __wrap_munmap(void* address, size_t length)
{
    if (calls.failUnmap != 0) {
        errno = calls.failUnmap;
        return -1;
    }
    return __real_munmap(address, length);
}

int __wrap_open(char const* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (calls.beforeOpen)
        calls.beforeOpen();
    calls.openFlags = flags;
    calls.descriptor = __real_open(path, flags, mode);
    return calls.descriptor;
}

int __wrap_fstat(int fd, struct stat* status)
{
    if (calls.failFstat != 0) {
        errno = calls.failFstat;
        return -1;
    }
    return __real_fstat(fd, status);
}

int __wrap_fallocate(int fd, int mode, off_t offset, off_t length)
{
    if (calls.beforeReserve)
        calls.beforeReserve();
    int const failure = calls.interrupt > 0 ? EINTR : calls.failReserve;
    if (calls.interrupt > 0)
        --calls.interrupt;
    if (failure == 0)
        return __real_fallocate(fd, mode, offset, length);
    errno = failure;
    return -1;
}

int __wrap_posix_fallocate(int fd, off_t offset, off_t length)
{
    if (calls.interrupt > 0) {
        --calls.interrupt;
        return EINTR;
    }
    return calls.failAllocate != 0 ? calls.failAllocate
                                   : __real_posix_fallocate(fd, offset, length);
}

}  // extern "C"

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
        EXPECT_EQ(7, code) << "a success leaves the code alone";
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

TEST_F(ZFileMap, MakesAndExtendsFilesWhenReadWrite)
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
        std::string const before = read(c.file);
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
        EXPECT_GT(status.st_blocks, 0) << "the room is on the disk";
    }
    struct stat status;
    ASSERT_EQ(0, stat(path("new").c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 0777);
}

TEST_F(ZFileMap, FailuresLeaveTheirCodeAndNothingMapped)
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

TEST_F(ZFileMap, KeepsAnEmptyFileAsGoodAsMissing)
{
    // Mapped to a length, an empty file is opened with the flags of a missing one.
    ZUnixFileMap_6_0 map(name("empty"), kReadWrite, 0);
    int code = 7;
    EXPECT_NE(nullptr, map.mapfile(&code, 10));
    EXPECT_EQ(0, code);
    EXPECT_NE(0, calls.openFlags & O_CREAT);
}

TEST_F(ZFileMap, OpensAsItsModeSays)
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
        map.mapfile(&code, 10);
        EXPECT_EQ(c.flags | O_NONBLOCK | O_CLOEXEC, calls.openFlags);
    }
}

TEST_F(ZFileMap, DoesNotWaitForTheWriterOfAPipe)
{
    ASSERT_EQ(0, mkfifo(path("pipe").c_str(), 0600));
    ZUnixFileMap_6_0 map(name("pipe"), kReadOnly, 0);
    int code = 7;
    EXPECT_EQ(nullptr, map.mapfile(&code, 10));
    EXPECT_EQ(ENODEV, code);
}

TEST_F(ZFileMap, BelievesTheFileThatItOpened)
{
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    calls.beforeOpen = [&] { write("text", "short"); };
    int code = 7;
    auto const* const bytes = static_cast<char const*>(map.mapfile(&code, 0));
    ASSERT_NE(nullptr, bytes);
    EXPECT_STREQ("short", bytes) << "five bytes and the zeroes of the page behind them";

    calls.beforeOpen = [&] { write("text", ""); };
    EXPECT_EQ(nullptr, map.mapfile(&code, 0));
    EXPECT_EQ(EINVAL, code);
    calls.beforeOpen = nullptr;

    write("text", kText);
    calls.failFstat = EIO;
    EXPECT_EQ(nullptr, map.mapfile(&code, 0));
    EXPECT_EQ(EIO, code);
    EXPECT_FALSE(isOpen(calls.descriptor));
}

TEST_F(ZFileMap, AFullDiskIsReportedAndTheFileKeepsItsLength)
{
    struct Case {
        char const* name;
        int failReserve;
        int failAllocate;
        int code;
    };
    Case const cases[] = {
        {"no room", ENOSPC, 0, ENOSPC},
        {"no length", 0, EFBIG, EFBIG},
        {"no room can be reserved, and there is none", EOPNOTSUPP, ENOSPC, ENOSPC}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        calls = Calls();
        calls.failReserve = c.failReserve;
        calls.failAllocate = c.failAllocate;
        ZUnixFileMap_6_0 map(name("text"), kReadWrite, 0);
        int code = 7;
        EXPECT_EQ(nullptr, map.mapfile(&code, 1000));
        EXPECT_EQ(c.code, code);
        EXPECT_FALSE(isOpen(calls.descriptor));
        EXPECT_EQ(kText, read("text"));
    }
}

TEST_F(ZFileMap, ExtendsWhereNoRoomCanBeReservedAndAfterInterruptions)
{
    for (int reserve : {0, EOPNOTSUPP}) {
        SCOPED_TRACE(reserve);
        write("text", kText);
        calls.failReserve = reserve;
        calls.interrupt = 2;
        ZUnixFileMap_6_0 map(name("text"), kReadWrite, 0);
        int code = 7;
        EXPECT_NE(nullptr, map.mapfile(&code, 1000));
        EXPECT_EQ(0, code);
        EXPECT_EQ(kText + std::string(900, '\0'), read("text"));
    }
}

TEST_F(ZFileMap, AFailedExtensionTakesNothingAwayFromOthers)
{
    ZUnixFileMap_6_0 map(name("text"), kReadWrite, 0);
    std::string const longer = kText + "what another process has added meanwhile";
    calls.beforeReserve = [&] { write("text", longer); };
    for (int reserve : {0, ENOSPC}) {
        SCOPED_TRACE(reserve);
        write("text", kText);
        calls.failReserve = reserve;
        calls.failAllocate = ENOSPC;
        int code = 7;
        EXPECT_EQ(nullptr, map.mapfile(&code, 1000));
        EXPECT_EQ(ENOSPC, code);
        EXPECT_EQ(longer, read("text"));
    }
}

TEST_F(ZFileMap, AMappingThatCannotBeGivenBackIsKept)
{
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    int code = 7;
    void* const address = map.mapfile(&code, 0);
    ASSERT_NE(nullptr, address);
    calls.failUnmap = ENOMEM;
    EXPECT_EQ(nullptr, map.mapfile(&code, 10));
    EXPECT_EQ(ENOMEM, code);
    EXPECT_FALSE(isOpen(calls.descriptor));
    EXPECT_EQ(0, msync(address, 1, MS_ASYNC));
    calls.failUnmap = 0;
    EXPECT_NE(nullptr, map.mapfile(&code, 10));
    EXPECT_EQ(0, code);
    map.unmapfile(&code);
    EXPECT_EQ(0, code);
    EXPECT_NE(0, msync(address, 1, MS_ASYNC));
}

TEST_F(ZFileMap, ReportsWhatUnmappingAnswers)
{
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    int code = 7;
    void* const address = map.mapfile(&code, 0);
    ASSERT_NE(nullptr, address);
    int const fd = calls.descriptor;
    calls.failUnmap = EINVAL;
    map.unmapfile(&code);
    EXPECT_EQ(EINVAL, code);
    EXPECT_FALSE(isOpen(fd)) << "the file is closed all the same";
    calls.failUnmap = 0;
    code = 7;
    map.unmapfile(&code);
    EXPECT_EQ(7, code) << "the address was kept, and is given back now";
    EXPECT_NE(0, msync(address, 1, MS_ASYNC));

    ASSERT_NE(nullptr, map.mapfile(&code, 0));
    calls.failClose = EIO;
    map.unmapfile(&code);
    EXPECT_EQ(EIO, code);
    calls.closed = -1;
    code = 7;
    map.unmapfile(&code);
    EXPECT_EQ(7, code);
    EXPECT_EQ(-1, calls.closed) << "a descriptor is closed once";
}

TEST_F(ZFileMap, GivesEverythingBackWhenDestroyed)
{
    int code = 7;
    void* address = nullptr;
    {
        ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
        address = map.mapfile(&code, 0);
        ASSERT_NE(nullptr, address);
        EXPECT_TRUE(isOpen(calls.descriptor));
        EXPECT_EQ(0, msync(address, 1, MS_ASYNC));
    }
    EXPECT_FALSE(isOpen(calls.descriptor));
    EXPECT_NE(0, msync(address, 1, MS_ASYNC));
}

TEST_F(ZFileMap, MappingAgainGivesTheFirstMappingBack)
{
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    int code = 7;
    ASSERT_NE(nullptr, map.mapfile(&code, 0));
    int const first = calls.descriptor;
    auto const* const bytes = static_cast<char const*>(map.mapfile(&code, 5));
    ASSERT_NE(nullptr, bytes);
    EXPECT_EQ(first, calls.descriptor) << "the descriptor was free again";
    EXPECT_EQ("aaaaa", std::string(bytes, 5));
}

TEST_F(ZFileMap, ToleratesNoPlaceForTheCode)
{
    ZUnixFileMap_6_0 map(name("text"), kReadOnly, 0);
    EXPECT_NE(nullptr, map.mapfile(nullptr, 0));
    map.unmapfile(nullptr);
    ZUnixFileMap_6_0 none(name("none"), kReadOnly, 0);
    EXPECT_EQ(nullptr, none.mapfile(nullptr, 0));
}

TEST_F(ZFileMap, CopiesHaveFileAndModeOfTheirSourceAndMapNothing)
{
    Seen map(name("text"), kReadWrite, 42);
    int code = 7;
    ASSERT_NE(nullptr, map.mapfile(&code, 0));
    Seen copy(map);
    EXPECT_EQ(42, copy.reserved());
    EXPECT_EQ(nullptr, copy.address());
    calls.closed = -1;
    copy.unmapfile(&code);
    EXPECT_EQ(-1, calls.closed);
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
    Seen target(name("text"), kReadOnly, 42);
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

TEST_F(ZFileMap, LeavesTheStandardStreamsToTheProcess)
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
        int const opened = calls.descriptor;
        map.unmapfile(&code);
        ASSERT_EQ(closed, dup2(saved, closed));
        __real_close(saved);
        EXPECT_EQ(closed, opened) << "the system offered the stream's number";
        EXPECT_NE(nullptr, address);
        EXPECT_FALSE(taken);
    }
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
