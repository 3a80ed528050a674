// The table of the files that are open for locking: users in one process share descriptors, and
// cannot release each other's locks.
#include <Z/files/shared_file.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <future>
#include <string>
#include <utility>

#include "SeenRanges.h"
#include "SystemCalls.h"
#include "TestDirectory.h"
#include "Threads.h"

// operator new(size_t), by the name that the linker knows it by.
extern "C" void* __real__Znwm(size_t size);

namespace {

// Runs in the midst of the next allocation.
std::function<void()> whileItAllocates;

class ZSharedFileTable : public testing::Test {
protected:
    ZSharedFileTable() : path_(directory_.write("file", "12345678")) {}

    std::string seen() const { return seenRanges(path_); }

    // Opens the file read-only and locks its first range for reading.
    void openForReading(zfiles::SharedFile& file) const
    {
        ASSERT_EQ(0, file.open(path_.c_str(), O_RDONLY, 0));
        ASSERT_EQ(0, file.lock(F_RDLCK, 0, 4));
    }

    TestDirectory directory_{TestDirectory::Place::memory};
    std::string const path_;
};

// Closes a descriptor in this scope (RAII).
class Closed {
public:
    explicit Closed(int fd) : fd_(fd), saved_(fcntl(fd, F_DUPFD_CLOEXEC, 3)) { close(fd); }
    Closed(Closed const&) = delete;
    Closed& operator=(Closed const&) = delete;
    ~Closed()
    {
        dup2(saved_, fd_);
        close(saved_);
    }

private:
    int const fd_;
    int const saved_;
};

// Opens the file in a process without a table. While the table is created, another user creates one
// too. Returns whether both use the same table in the end.
bool sharesTheFirstTable(char const* path)
{
    zfiles::SharedFile file;
    zfiles::SharedFile rival;
    int other = -1;
    whileItAllocates = [&] { other = rival.open(path, O_RDWR, 0); };
    return file.open(path, O_RDWR, 0) == 0 && other == 0 && file.descriptor() == rival.descriptor();
}

}  // namespace

extern "C" void* __wrap__Znwm(size_t size)
{
    if (whileItAllocates)
        std::exchange(whileItAllocates, nullptr)();
    return __real__Znwm(size);
}

// In a new process, which has no table.
TEST(ZSharedFileDeathTest, ConcurrentFirstUsersShareOneTable)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TestDirectory const directory(TestDirectory::Place::memory);
    std::string const path = directory.write("file", "");
    EXPECT_EXIT(std::exit(sharesTheFirstTable(path.c_str()) ? 0 : 1), testing::ExitedWithCode(0),
                "");
}

TEST_F(ZSharedFileTable, AllUsersGetADescriptorForWritingOnceOneUserWrites)
{
    long const before = openDescriptors();
    zfiles::SharedFile reader;
    zfiles::SharedFile writer;
    openForReading(reader);
    int const first = reader.descriptor();
    ASSERT_EQ(0, writer.open(path_.c_str(), O_RDWR, 0));
    EXPECT_NE(first, reader.descriptor());
    EXPECT_EQ(writer.descriptor(), reader.descriptor());
    EXPECT_EQ(1, write(reader.descriptor(), "x", 1));
    // The first descriptor stays open: closing it would release the locks.
    EXPECT_EQ(before + 2, openDescriptors());
    EXPECT_EQ("r-", seen());
    {
        zfiles::SharedFile late;
        WatchedCalls const watched;
        ASSERT_EQ(0, late.open(path_.c_str(), O_RDONLY, 0));
        EXPECT_EQ(writer.descriptor(), late.descriptor());
        EXPECT_EQ(-1, callPlan.opened) << "there was one to share";
    }
    writer.close();
    EXPECT_EQ("r-", seen());
    reader.close();
    EXPECT_EQ("--", seen());
    EXPECT_EQ(before, openDescriptors());
}

TEST_F(ZSharedFileTable, ExclusiveCreationOfAnOpenFileFails)
{
    zfiles::SharedFile reader;
    zfiles::SharedFile maker;
    ASSERT_EQ(0, reader.open(path_.c_str(), O_RDWR, 0));
    ASSERT_EQ(0, reader.lock(F_RDLCK, 0, 4));
    EXPECT_EQ(EEXIST, maker.open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
    EXPECT_FALSE(maker.isOpen());
    EXPECT_EQ("r-", seen());
}

TEST_F(ZSharedFileTable, LowDescriptorOfALockedFileStaysOpenWithTheOthers)
{
    long const before = openDescriptors();
    zfiles::SharedFile reader;
    zfiles::SharedFile writer;
    openForReading(reader);
    {
        Closed const input(STDIN_FILENO);
        ASSERT_EQ(0, writer.open(path_.c_str(), O_RDWR, 0));
        EXPECT_LE(3, writer.descriptor());
        EXPECT_NE(-1, fcntl(STDIN_FILENO, F_GETFD));
        EXPECT_EQ("r-", seen());
        reader.close();
        writer.close();
        EXPECT_EQ(-1, fcntl(STDIN_FILENO, F_GETFD));
    }
    EXPECT_EQ(before, openDescriptors());
}

TEST_F(ZSharedFileTable, OpenFailsIfALowDescriptorCannotBeMoved)
{
    long const before = openDescriptors();
    CallPlan full;
    full.failing = {{"fcntl", EMFILE}};
    for (bool known : {false, true}) {
        SCOPED_TRACE(known);
        zfiles::SharedFile reader;
        zfiles::SharedFile writer;
        if (known)
            openForReading(reader);
        Closed const input(STDIN_FILENO);
        {
            WatchedCalls const watched(full);
            EXPECT_EQ(EMFILE, writer.open(path_.c_str(), O_RDWR, 0));
        }
        EXPECT_FALSE(writer.isOpen());
        EXPECT_EQ(known, fcntl(STDIN_FILENO, F_GETFD) != -1);
        EXPECT_EQ(known ? "r-" : "--", seen());
        reader.close();
        EXPECT_EQ(-1, fcntl(STDIN_FILENO, F_GETFD));
    }
    EXPECT_EQ(before, openDescriptors());
}

// Closing the new descriptor would release the locks of all users.
TEST_F(ZSharedFileTable, FailedStatusOfAnOpenedFileKeepsTheLocksOnIt)
{
    long const before = openDescriptors();
    {
        zfiles::SharedFile reader;
        openForReading(reader);
        zfiles::SharedFile writer;
        for (char const* call : {"stat", "fstat"}) {
            SCOPED_TRACE(call);
            {
                CallPlan plan;
                plan.failing[call] = EIO;
                WatchedCalls const watched(plan);
                EXPECT_EQ(EIO, writer.open(path_.c_str(), O_RDWR, 0));
                EXPECT_EQ(call, callPlan.failed);
            }
            EXPECT_EQ("r-", seen());
            writer.close();
        }
        EXPECT_EQ(0, writer.open(path_.c_str(), O_RDWR, 0));
        writer.close();
        EXPECT_EQ("r-", seen());
    }
    EXPECT_EQ(before, openDescriptors());
}

TEST_F(ZSharedFileTable, DescriptorOfAnUnknownFileIsClosedOnceItIsKnown)
{
    std::string const other = directory_.write("other", "12345678");
    zfiles::SharedFile reader;
    openForReading(reader);
    zfiles::SharedFile writer;
    {
        CallPlan plan;
        plan.failing["fstat"] = EIO;
        WatchedCalls const watched(plan);
        EXPECT_EQ(EIO, writer.open(other.c_str(), O_RDWR, 0));
    }
    long const open = openDescriptors();
    EXPECT_EQ(0, writer.open(other.c_str(), O_RDWR, 0));
    EXPECT_EQ(open, openDescriptors());
    EXPECT_EQ("r-", seen());
}

TEST_F(ZSharedFileTable, ReaderCanReadAgainWhileAWriterWaits)
{
    zfiles::SharedFile reader;
    zfiles::SharedFile again;
    zfiles::SharedFile stranger;
    zfiles::SharedFile writer;
    openForReading(reader);
    ASSERT_EQ(0, again.open(path_.c_str(), O_RDONLY, 0));
    ASSERT_EQ(0, stranger.open(path_.c_str(), O_RDONLY, 0));
    ASSERT_EQ(0, writer.open(path_.c_str(), O_RDWR, 0));
    WatchedThread thread;
    std::future<void> const writing = startWatched(thread, [&] {
        EXPECT_EQ(0, writer.lock(F_WRLCK, 0, 4));
        EXPECT_EQ(0, writer.unlock(0, 4));
    });
    EXPECT_TRUE(staysBlocked(thread, writing));
    EXPECT_EQ(0, again.lock(F_RDLCK, 0, 4));
    std::future<void> const reading =
        std::async(std::launch::async, [&] { EXPECT_EQ(0, stranger.lock(F_RDLCK, 0, 4)); });
    EXPECT_TRUE(staysBlocked(reading)) << "a new reader waits for the writer";
    EXPECT_EQ(0, again.unlock(0, 4));
    EXPECT_EQ("r-", seen());
    EXPECT_EQ(0, reader.unlock(0, 4));
    reading.wait();
    writing.wait();
}

TEST_F(ZSharedFileTable, RangesAreReleasedAsTheyWereLocked)
{
    zfiles::SharedFile file;
    ASSERT_EQ(0, file.open(path_.c_str(), O_RDWR, 0));
    ASSERT_EQ(0, file.lock(F_WRLCK, 0, 4));
    ASSERT_EQ(0, file.lock(F_WRLCK, 4, 4));
    EXPECT_EQ(0, file.unlock(0, 8));
    EXPECT_EQ("ww", seen());
    EXPECT_EQ(0, file.unlock(4, 4));
    EXPECT_EQ("w-", seen());
}

TEST_F(ZSharedFileTable, AbandoningAFileKeepsItsLocksAndChangesNoOtherUser)
{
    zfiles::SharedFile gone;
    zfiles::SharedFile other;
    ASSERT_EQ(0, gone.open(path_.c_str(), O_RDWR, 0));
    ASSERT_EQ(0, other.open(path_.c_str(), O_RDWR, 0));
    ASSERT_EQ(0, gone.lock(F_WRLCK, 0, 4));
    ASSERT_EQ(0, other.lock(F_WRLCK, 4, 4));
    gone.abandon();
    EXPECT_FALSE(gone.isOpen());
    gone.abandon();
    EXPECT_EQ("ww", seen());
    EXPECT_EQ(0, other.unlock(0, 4));
    EXPECT_EQ(0, other.unlock(4, 4));
    EXPECT_EQ("w-", seen());
    other.close();
    EXPECT_EQ("w-", seen());
}

TEST_F(ZSharedFileTable, DistinguishesItsFileFromOthers)
{
    zfiles::SharedFile file;
    ASSERT_EQ(0, file.open(path_.c_str(), O_RDONLY, 0));
    EXPECT_TRUE(file.isNamed(path_.c_str()));
    EXPECT_FALSE(file.isNamed(directory_.write("other", "").c_str()));
    EXPECT_FALSE(file.isNamed(directory_.at("missing").c_str()));
    // If the name cannot be checked, it is assumed to refer to the file.
    EXPECT_TRUE(file.isNamed((path_ + "/below").c_str()));
    // Every device numbers its inodes independently.
    CallPlan mounted;
    mounted.after = [](SystemCall const& call, ssize_t&) {
        if (call.name == "stat")
            ++static_cast<struct stat*>(call.to)->st_dev;
    };
    WatchedCalls const watched(mounted);
    EXPECT_FALSE(file.isNamed(path_.c_str()));
}
