// The table of the files that are open for locking: what its users in one process share, and what
// they cannot take from each other.
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
    void openForReading(ZSharedFile& file) const
    {
        ASSERT_EQ(0, file.open(path_.c_str(), O_RDONLY, 0));
        ASSERT_EQ(0, file.lock(F_RDLCK, 0, 4));
    }

    TestDirectory directory_{TestDirectory::Place::memory};
    std::string const path_;
};

// Closes a descriptor for a scope.
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

// Opens the file in a process that has no table yet. While the table is made, another user comes
// and makes one too. Returns whether they share one in the end.
bool sharesTheFirstTable(char const* path)
{
    ZSharedFile file;
    ZSharedFile meanwhile;
    int other = -1;
    whileItAllocates = [&] { other = meanwhile.open(path, O_RDWR, 0); };
    return file.open(path, O_RDWR, 0) == 0 && other == 0 &&
           file.descriptor() == meanwhile.descriptor();
}

}  // namespace

extern "C" void* __wrap__Znwm(size_t size)
{
    if (whileItAllocates)
        std::exchange(whileItAllocates, nullptr)();
    return __real__Znwm(size);
}

// In a process of its own, which begins with this test.
TEST(ZSharedFileDeathTest, ThoseWhoComeFirstTogetherGetOneTable)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TestDirectory const directory(TestDirectory::Place::memory);
    std::string const path = directory.write("file", "");
    EXPECT_EXIT(std::exit(sharesTheFirstTable(path.c_str()) ? 0 : 1), testing::ExitedWithCode(0),
                "");
}

TEST_F(ZSharedFileTable, AllUsersGetADescriptorForWritingOnceOneWantsToWrite)
{
    long const before = openDescriptors();
    ZSharedFile reader;
    ZSharedFile writer;
    openForReading(reader);
    int const first = reader.descriptor();
    ASSERT_EQ(0, writer.open(path_.c_str(), O_RDWR, 0));
    EXPECT_NE(first, reader.descriptor());
    EXPECT_EQ(writer.descriptor(), reader.descriptor());
    EXPECT_EQ(1, write(reader.descriptor(), "x", 1));
    // The first stays open: closing it would free what is locked.
    EXPECT_EQ(before + 2, openDescriptors());
    EXPECT_EQ("r-", seen());
    {
        ZSharedFile late;
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

TEST_F(ZSharedFileTable, FileThatIsOpenCannotBeMade)
{
    ZSharedFile reader;
    ZSharedFile maker;
    ASSERT_EQ(0, reader.open(path_.c_str(), O_RDWR, 0));
    ASSERT_EQ(0, reader.lock(F_RDLCK, 0, 4));
    EXPECT_EQ(EEXIST, maker.open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
    EXPECT_FALSE(maker.isOpen());
    EXPECT_EQ("r-", seen());
}

TEST_F(ZSharedFileTable, LowDescriptorOfALockedFileStaysOpenWithTheOthers)
{
    long const before = openDescriptors();
    ZSharedFile reader;
    ZSharedFile writer;
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

TEST_F(ZSharedFileTable, LowDescriptorThatCannotBeMovedIsAFailure)
{
    long const before = openDescriptors();
    CallPlan full;
    full.failing = {{"fcntl", EMFILE}};
    for (bool known : {false, true}) {
        SCOPED_TRACE(known);
        ZSharedFile reader;
        ZSharedFile writer;
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

// The writer waits for this very thread, which would never let go if it waited for the writer.
// Closing the new descriptor would release the locks of all users.
TEST_F(ZSharedFileTable, FailedStatusOfAnOpenedFileKeepsTheLocksOnIt)
{
    long const before = openDescriptors();
    {
        ZSharedFile reader;
        openForReading(reader);
        ZSharedFile writer;
        for (int n : {1, 3}) {
            SCOPED_TRACE(n);
            {
                CallPlan wanted;
                wanted.failAt = n;
                WatchedCalls const watched(wanted);
                EXPECT_EQ(EIO, writer.open(path_.c_str(), O_RDWR, 0));
                EXPECT_EQ(n == 1 ? "stat" : "fstat", callPlan.failed);
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
    ZSharedFile reader;
    openForReading(reader);
    ZSharedFile writer;
    {
        CallPlan wanted;
        wanted.failAt = 3;
        WatchedCalls const watched(wanted);
        EXPECT_EQ(EIO, writer.open(other.c_str(), O_RDWR, 0));
        EXPECT_EQ("fstat", callPlan.failed);
    }
    long const open = openDescriptors();
    EXPECT_EQ(0, writer.open(other.c_str(), O_RDWR, 0));
    EXPECT_EQ(open, openDescriptors());
    EXPECT_EQ("r-", seen());
}

TEST_F(ZSharedFileTable, ReaderMayReadAgainBesideAWriterThatWaits)
{
    ZSharedFile reader;
    ZSharedFile again;
    ZSharedFile stranger;
    ZSharedFile writer;
    openForReading(reader);
    ASSERT_EQ(0, again.open(path_.c_str(), O_RDONLY, 0));
    ASSERT_EQ(0, stranger.open(path_.c_str(), O_RDONLY, 0));
    ASSERT_EQ(0, writer.open(path_.c_str(), O_RDWR, 0));
    std::future<void> const writing = std::async(std::launch::async, [&] {
        EXPECT_EQ(0, writer.lock(F_WRLCK, 0, 4));
        EXPECT_EQ(0, writer.unlock(0, 4));
    });
    EXPECT_TRUE(staysBlocked(writing));
    EXPECT_EQ(0, again.lock(F_RDLCK, 0, 4));
    std::future<void> const reading =
        std::async(std::launch::async, [&] { EXPECT_EQ(0, stranger.lock(F_RDLCK, 0, 4)); });
    EXPECT_TRUE(staysBlocked(reading)) << "who does not read yet lets the writer go first";
    EXPECT_EQ(0, again.unlock(0, 4));
    EXPECT_EQ("r-", seen());
    EXPECT_EQ(0, reader.unlock(0, 4));
    reading.wait();
    writing.wait();
}

TEST_F(ZSharedFileTable, RangesAreReleasedAsTheyWereLocked)
{
    ZSharedFile file;
    ASSERT_EQ(0, file.open(path_.c_str(), O_RDWR, 0));
    ASSERT_EQ(0, file.lock(F_WRLCK, 0, 4));
    ASSERT_EQ(0, file.lock(F_WRLCK, 4, 4));
    EXPECT_EQ(0, file.unlock(0, 8));
    EXPECT_EQ("ww", seen());
    EXPECT_EQ(0, file.unlock(4, 4));
    EXPECT_EQ("w-", seen());
}

TEST_F(ZSharedFileTable, AbandoningAFileKeepsWhatIsLockedAndTouchesNobodyElse)
{
    ZSharedFile gone;
    ZSharedFile other;
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

TEST_F(ZSharedFileTable, KnowsItsFileFromOthers)
{
    ZSharedFile file;
    ASSERT_EQ(0, file.open(path_.c_str(), O_RDONLY, 0));
    EXPECT_TRUE(file.isNamed(path_.c_str()));
    EXPECT_FALSE(file.isNamed(directory_.write("other", "").c_str()));
    EXPECT_FALSE(file.isNamed(directory_.at("missing").c_str()));
    // Where the name cannot be looked at, nothing speaks against it.
    EXPECT_TRUE(file.isNamed((path_ + "/below").c_str()));
    // Inodes are numbered anew on every device.
    CallPlan mounted;
    mounted.after = [](SystemCall const& call, ssize_t&) {
        if (call.name == "stat")
            ++static_cast<struct stat*>(call.to)->st_dev;
    };
    WatchedCalls const watched(mounted);
    EXPECT_FALSE(file.isNamed(path_.c_str()));
}
