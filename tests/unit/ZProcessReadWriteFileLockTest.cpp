#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <thread>

#include "FileLockFixture.h"
#include "ProcessLockContract.h"

using namespace file_lock;

namespace {

constexpr char kBaseSource[] = "src/Z/ZProcessReadWriteLock";

class FileKind : private LockFile {
public:
    using Lock = file_lock::Lock;

    using LockFile::putSequence;

    std::unique_ptr<Lock> make() const { return std::make_unique<Lock>(dir().c_str(), "a"); }
    uint32_t sequence() const { return word(0); }
    std::string held() const
    {
        char const data = seen()[0];
        return data == 'r' ? "read" : data == 'w' ? "write" : "free";
    }

    // Both ranges and the descriptor.
    void checkDetails(Lock const& lock) const
    {
        std::string const ranges = seen();
        if (held() == "free") {
            EXPECT_TRUE(ranges == "--" || ranges == "??") << ranges;
            EXPECT_EQ(-1, lock.getFileHandle());
        } else {
            EXPECT_EQ(held() == "read" ? "r-" : "ww", ranges);
            EXPECT_GE(lock.getFileHandle(), 3);
        }
    }
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(OfFiles, ProcessLockContract, FileKind);

// ---- Names and directories ---------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, PathIsDirectoryPrefixAndName)
{
    EXPECT_EQ(dir() + "/._zplorders", Lock(dir().c_str(), "orders").getLockFileName());
    EXPECT_STREQ("._zplorders", Lock("orders").getLockFileName());
    EXPECT_STREQ("", Lock("orders").getLockDirName());
    EXPECT_STREQ("._zplorders", Lock(nullptr, "orders").getLockFileName());
    Lock const unnamed;
    EXPECT_EQ(std::string("._zpl") + unnamed.getLockName().getChars(), unnamed.getLockFileName());
    ZStubProcessReadWriteFileLock_6_0 const stub(dir().c_str(), "s");
    EXPECT_EQ(dir() + "/._zpls", stub.getLockFileName());
    EXPECT_STREQ("._zpls", ZStubProcessReadWriteFileLock_6_0("s").getLockFileName());
}

TEST_F(ZProcessReadWriteFileLock, KeepsASlashInTheName)
{
    Lock lock(dir().c_str(), "a/b");
    EXPECT_EQ(dir() + "/._zpla/b", lock.getLockFileName());
    ASSERT_EQ(0, mkdir(path().c_str(), 0700));
    lock.writeLock();
    EXPECT_EQ(0, access(directory_.at("._zpla/b").c_str(), F_OK));
    lock.unlock();
}

TEST_F(ZProcessReadWriteFileLock, KeepsTheErrnoOfAFailedOpenHidden)
{
    Lock lock(dir().c_str(), "none/b");
    lock.createLockFile();
    EXPECT_EQ(-1, lock.getFileHandle());
    EXPECT_TRUE(raises<ZLockResourceException_6_0>(33, EBADF, kSource, 327,
                                                   [&] { lock.lockFileRange(kRead, 0, 4); }));
}

TEST_F(ZProcessReadWriteFileLock, HashesAndComparesByPath)
{
    Lock const a(dir().c_str(), "a");
    Lock const b(dir().c_str(), "b");
    Lock const alsoA(dir().c_str(), "a");
    EXPECT_EQ(ZLCString_6_0(path().c_str()).hash(), a.hash());
    EXPECT_EQ(0, a.compare(alsoA));
    EXPECT_LT(a.compare(b), 0);
    EXPECT_GT(b.compare(a), 0);
    EXPECT_NE(0, a.compare(Lock("a")));
    ZObject_6_0 const stranger;
    EXPECT_EQ(a.ZObject_6_0::compare(stranger), a.compare(stranger));
}

TEST_F(ZProcessReadWriteFileLock, KeepsItsFileWhenRenamed)
{
    Lock lock(dir().c_str(), "a");
    ZLCString_6_0 name("b");
    lock.setLockName(name);
    EXPECT_EQ(path(), lock.getLockFileName());
    lock.setLockFileName("c");
    EXPECT_EQ(directory_.at("._zplc"), lock.getLockFileName());
    EXPECT_STREQ("b", lock.getLockName());
}

TEST_F(ZProcessReadWriteFileLock, MovesToAnotherDirectory)
{
    ASSERT_EQ(0, mkdir(directory_.at("sub").c_str(), 0700));
    Lock lock("a");
    lock.setLockDirName(directory_.at("sub").c_str());
    EXPECT_EQ(directory_.at("sub"), lock.getLockDirName());
    EXPECT_EQ(directory_.at("sub/._zpla"), lock.getLockFileName());
    lock.setLockDirName(nullptr);
    EXPECT_STREQ("", lock.getLockDirName());
    EXPECT_STREQ("._zpla", lock.getLockFileName());
}

TEST_F(ZProcessReadWriteFileLock, RefusesAnythingButAWritableDirectory)
{
    std::string const file = directory_.write("file", "");
    std::string const shut = directory_.at("shut");
    ASSERT_EQ(0, mkdir(shut.c_str(), 0500));
    std::string const blind = directory_.at("blind");
    ASSERT_EQ(0, mkdir(blind.c_str(), 0600));
    std::string const missing = directory_.at("missing");
    struct Case {
        char const* name;
        std::string dir;
    };
    Case const cases[] = {{"a file", file},
                          {"a device", "/dev/null"},
                          {"missing", missing},
                          {"not writable by its owner", shut},
                          {"not searchable by its owner", blind},
                          {"empty", ""}};
    Lock lock(dir().c_str(), "a");
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(
            22, kSource, 131, [&] { lock.setLockDirName(c.dir.c_str()); }));
        EXPECT_EQ(path(), lock.getLockFileName());
        EXPECT_EQ(dir(), lock.getLockDirName());
        EXPECT_TRUE(raises<ZInvalidParameterException_6_0>(
            22, kSource, 131, [&] { Lock const other(c.dir.c_str(), "a"); }));
    }
}

TEST_F(ZProcessReadWriteFileLock, StaysInItsDirectoryWhileItIsHeld)
{
    Lock lock(dir().c_str(), "a");
    lock.readLock();
    EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(32, kSource, 137,
                                                           [&] { lock.setLockDirName("/tmp"); }));
    EXPECT_EQ(dir(), lock.getLockDirName());
    EXPECT_EQ(path(), lock.getLockFileName());
    lock.setLockDirName(dir().c_str());
    lock.unlock();
    lock.setLockDirName("/tmp");
    EXPECT_STREQ("/tmp/._zpla", lock.getLockFileName());
}

// ---- The file ----------------------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, FileIsCreatedByTheFirstLock)
{
    mode_t const mask = umask(0);
    Lock lock(dir().c_str(), "a");
    EXPECT_EQ("", directory_.names());
    lock.readLock();
    EXPECT_EQ("._zpla", directory_.names());
    struct stat status;
    ASSERT_EQ(0, stat(path().c_str(), &status));
    EXPECT_EQ(02600u, status.st_mode & 07777);
    lock.unlock();
    umask(mask);
    EXPECT_EQ("._zpla", directory_.names());
    EXPECT_EQ(0ul, lock.getSequence());
    EXPECT_EQ(8u, directory_.read("._zpla").size());
    EXPECT_EQ(0u, word(0));
    EXPECT_EQ(static_cast<uint32_t>(getpid()), word(1));
}

TEST_F(ZProcessReadWriteFileLock, FileIsOpenOnlyWhileItIsLocked)
{
    long const before = openDescriptors();
    Lock lock(dir().c_str(), "a");
    EXPECT_EQ(-1, lock.getFileHandle());
    for (State state : {kRead, kProtect, kWrite}) {
        lock.lock(state);
        int const fd = lock.getFileHandle();
        EXPECT_GE(fd, 3);
        EXPECT_EQ(before + 1, openDescriptors());
        EXPECT_EQ(FD_CLOEXEC, fcntl(fd, F_GETFD));
        EXPECT_EQ(O_RDWR | O_SYNC, fcntl(fd, F_GETFL) & (O_ACCMODE | O_SYNC));
        lock.unlock();
        EXPECT_EQ(-1, lock.getFileHandle());
        EXPECT_EQ(before, openDescriptors());
    }
}

TEST_F(ZProcessReadWriteFileLock, FirstUpdateOfAFreshFileWritesOne)
{
    directory_.write("._zpla", "");
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    EXPECT_EQ(0ul, lock.getSequence());
    lock.unlock();
    EXPECT_EQ(1ul, lock.getSequence());
    EXPECT_EQ(1u, word(0));
    EXPECT_EQ(8u, directory_.read("._zpla").size());
}

TEST_F(ZProcessReadWriteFileLock, SequenceSkipsTheInvalidNumber)
{
    for (uint32_t const last : {0xFFFFFFFEu, 0xFFFFFFFFu}) {
        putSequence(last);
        Lock lock(dir().c_str(), "a");
        lock.writeLock();
        EXPECT_EQ(last, lock.getSequence());
        EXPECT_EQ(0ul, lock.incSequence());
        EXPECT_EQ(0u, word(0));
        lock.unlock();
        EXPECT_EQ(1u, word(0));
    }
}

TEST_F(ZProcessReadWriteFileLock, SequenceNumberIsOneWordOfTheFile)
{
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    lock.writeSequenceNumber(0x1122334455667788ul);
    lock.unlock(0);
    EXPECT_EQ(0x55667788u, word(0));
    EXPECT_EQ(static_cast<uint32_t>(getpid()), word(1));
}

TEST_F(ZProcessReadWriteFileLock, EmptyFileLeavesTheOutputUnchanged)
{
    directory_.write("._zpla", "");
    Lock lock(dir().c_str(), "a");
    lock.createLockFile();
    unsigned long sequence = 17;
    lock.readSequenceNumber(&sequence);
    EXPECT_EQ(17ul, sequence);
    lock.closeLockFile();
    lock.closeLockFile();
    EXPECT_EQ(-1, lock.getFileHandle());
}

TEST_F(ZProcessReadWriteFileLock, TornFileHasItsOwnFailure)
{
    for (char const* text : {"1", "12", "123"}) {
        directory_.write("._zpla", text);
        Lock lock(dir().c_str(), "a");
        lock.createLockFile();
        unsigned long sequence = 0;
        EXPECT_TRUE(raises<ZReadResourceException_6_0>(
            35, kSource, 377, [&] { lock.readSequenceNumber(&sequence); }));
        try {
            lock.readSequenceNumber(&sequence);
        } catch (ZReadResourceException_6_0 const& e) {
            EXPECT_EQ(-1, e.returnCode());
        }
        lock.closeLockFile();
    }
}

// ---- Ranges ------------------------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, FailedStatIsAFailureToRead)
{
    Lock lock(dir().c_str(), "a");
    lock.lockFileRange(kWrite, 0, 4);
    uint32_t word = 0xCAFE;
    CallPlan wanted;
    wanted.failing = {{"stat", EACCES}};
    {
        WatchedCalls const watched(wanted);
        EXPECT_TRUE(raises<ZReadResourceException_6_0>(35, EACCES, kSource, 377,
                                                       [&] { lock.readBytes(&word, 0, 4); }));
    }
    EXPECT_EQ(0xCAFEu, word);
    EXPECT_EQ("w-", seen());
    lock.closeLockFile();
}

TEST_F(ZProcessReadWriteFileLock, OtherProcessesSeeTheRanges)
{
    struct Case {
        State asked;
        State state;
        char const* ranges;
    };
    Case const cases[] = {{kRead, kRead, "r-"}, {kProtect, kWrite, "ww"}, {kWrite, kWrite, "ww"}};
    Lock lock(dir().c_str(), "a");
    for (Case const& c : cases) {
        lock.lock(c.asked);
        EXPECT_EQ(c.state, lock.getLockState());
        EXPECT_EQ(c.ranges, seen());
        lock.promoteReadToWriteLock();
        EXPECT_EQ(c.ranges, seen());
        lock.unlock(0);
        EXPECT_EQ(kUnset, lock.getLockState());
        EXPECT_EQ("--", seen());
    }
}

TEST_F(ZProcessReadWriteFileLock, RangesAreLockedSeparately)
{
    Lock lock(dir().c_str(), "a");
    lock.lockFileRange(kRead, 0, 4);
    EXPECT_EQ("r-", seen());
    lock.lockFileRange(kProtect, 4, 4);
    EXPECT_EQ("rw", seen());
    lock.lockFileRange(kUnset, 0, 4);
    EXPECT_EQ("-w", seen());
    lock.unlockFileRange(4, 4);
    EXPECT_EQ("--", seen());
    EXPECT_GE(lock.getFileHandle(), 3);
    EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(
        32, kSource, 318, [&] { lock.lockFileRange(static_cast<State>(4), 0, 4); }));
    lock.closeLockFile();
    expectFree(lock);
}

TEST_F(ZProcessReadWriteFileLock, ReleasingARangeOfAClosedFileDoesNothing)
{
    Lock lock(dir().c_str(), "a");
    lock.unlockFileRange(0, 4);
    EXPECT_EQ("", directory_.names());
    EXPECT_EQ(-1, lock.getFileHandle());
}

TEST_F(ZProcessReadWriteFileLock, ReleasingARangeAdmitsItsWaiter)
{
    Lock lock(dir().c_str(), "a");
    lock.lockFileRange(kWrite, 0, 4);
    std::future<void> waiting =
        std::async(std::launch::async, [&] { lock.lockFileRange(kWrite, 0, 4); });
    EXPECT_TRUE(staysBlocked(waiting));
    lock.unlockFileRange(0, 4);
    EXPECT_TRUE(comesThrough(waiting));
    EXPECT_EQ("w-", seen());
    lock.unlockFileRange(0, 4);
    EXPECT_EQ("--", seen());
    lock.closeLockFile();
}

TEST_F(ZProcessReadWriteFileLock, BytesAreWrittenAcrossTheWords)
{
    Lock lock(dir().c_str(), "a");
    lock.writeLock();
    char bytes[] = "12345678";
    lock.writeBytes(bytes, 2, 4);
    lock.writeBytes(bytes, 4, 4);
    lock.writeBytes(bytes, 4, 6);  // starts with the existing bytes
    lock.unlock(0);
    EXPECT_EQ(std::string(2, '\0') + "12123456", directory_.read("._zpla"));
}

TEST_F(ZProcessReadWriteFileLock, DerivedClassNeedsNoFile)
{
    class Elsewhere : public Lock {
    public:
        using Lock::Lock;
        void lockFileRange(State, unsigned, unsigned) override {}
        void unlockFileRange(unsigned, unsigned) override {}
        void writeBytes(void*, unsigned, unsigned) override {}
        void readBytes(void*, unsigned, unsigned) override {}
    };
    auto lock = std::make_unique<Elsewhere>(dir().c_str(), "a");
    for (State state : {kRead, kWrite}) {
        lock->lock(state);
        EXPECT_EQ(state, lock->getLockState());
        lock->unlock();
        EXPECT_EQ(kUnset, lock->getLockState());
    }
    lock->readLock();
    EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(32, kBaseSource, 64,
                                                           [&] { delete lock.release(); }));
    EXPECT_EQ("", directory_.names());
}

TEST_F(ZProcessReadWriteFileLock, ProtocolRunsTheStepsInOrder)
{
    // A lock that records the steps on its file.
    class Traced : public ZAbstractProcessReadWriteFileLock_6_0 {
    public:
        std::string steps;
        Traced() : ZAbstractProcessReadWriteFileLock_6_0("t") {}
        void lockFileRange(State state, unsigned start, unsigned length) override
        {
            steps += std::string(getLockStateName(state)) + std::to_string(start) +
                     std::to_string(length) + " ";
        }
        void unlockFileRange(unsigned start, unsigned length) override
        {
            lockFileRange(kUnset, start, length);
        }
        void writeBytes(void*, unsigned offset, unsigned length) override
        {
            steps += "put" + std::to_string(offset) + std::to_string(length) + " ";
        }
        void readBytes(void*, unsigned offset, unsigned length) override
        {
            steps += "get" + std::to_string(offset) + std::to_string(length) + " ";
        }
        std::string taken() { return std::move(steps); }
    } lock;
    lock.readLock();
    EXPECT_EQ("write44 put44 read04 unset44 get04 ", lock.taken());
    elsewhere([&] { lock.readLock(); });
    EXPECT_EQ("", lock.taken());
    lock.unlock();
    EXPECT_EQ("", lock.taken());
    elsewhere([&] { lock.unlock(); });
    EXPECT_EQ("unset04 ", lock.taken());
    lock.readWithIntentToWriteLock();
    EXPECT_EQ("write44 put44 write04 get04 ", lock.taken());
    lock.unlock(1);
    EXPECT_EQ("put04 unset04 unset44 ", lock.taken());
}

TEST_F(ZProcessReadWriteFileLock, LastReaderOfTheProcessClosesTheFile)
{
    Lock lock(dir().c_str(), "a");
    lock.readLock();
    int const fd = lock.getFileHandle();
    elsewhere([&] {
        lock.readLock();
        EXPECT_EQ(fd, lock.getFileHandle());
    });
    lock.unlock();
    EXPECT_EQ(fd, lock.getFileHandle());
    elsewhere([&] { lock.unlock(); });
    expectFree(lock);
}

// ---- Releasing ---------------------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, RefusedCallsCreateNoFile)
{
    Lock lock(dir().c_str(), "a");
    EXPECT_THROW(lock.unlock(), ZUnlockResourceException_6_0);
    EXPECT_EQ("", directory_.names());
    for (int value : {4, 7, -1})
        EXPECT_THROW(lock.lock(static_cast<State>(value)), ZInvalidResourceStateException_6_0);
    EXPECT_EQ("", directory_.names());
}

TEST_F(ZProcessReadWriteFileLock, WriterIsRefusedIfTheStateIsSetButNoThreadHoldsTheLock)
{
    class Inconsistent : public ZStubProcessReadWriteFileLock_6_0 {
    public:
        void leaveReadBehind() { setLockState(kRead); }
        void repair() { setLockState(kUnset); }
    } lock;
    lock.leaveReadBehind();
    EXPECT_TRUE(
        raises<ZInvalidResourceStateException_6_0>(32, kSource, 211, [&] { lock.writeLock(); }));
    EXPECT_EQ(kRead, lock.getLockState());
    lock.repair();
    elsewhere([&] {
        lock.writeLock();
        lock.unlock();
    });
}

TEST_F(ZProcessReadWriteFileLock, DestroyingAHeldLockThrows)
{
    for (State state : {kRead, kWrite}) {
        auto lock = std::make_unique<ZStubProcessReadWriteFileLock_6_0>();
        lock->lock(state);
        EXPECT_TRUE(raises<ZInvalidResourceStateException_6_0>(32, kBaseSource, 64,
                                                               [&] { delete lock.release(); }));
    }
}

// ---- Without a file ----------------------------------------------------------------------------

TEST_F(ZProcessReadWriteFileLock, StubKeepsTheSequenceInMemory)
{
    ZStubProcessReadWriteFileLock_6_0 lock(dir().c_str(), "a");
    Observer observer;
    lock.addObserver(&observer);
    lock.writeLock();
    EXPECT_EQ(kWrite, lock.getLockState());
    lock.unlock();
    EXPECT_EQ(1ul, lock.getSequence());
    lock.readLock();
    EXPECT_EQ(kRead, lock.getLockState());
    EXPECT_EQ(1ul, lock.getSequence());
    lock.unlock();
    EXPECT_EQ("", directory_.names());
    unsigned long sequence = 0;
    lock.readSequenceNumber(&sequence);
    EXPECT_EQ(1ul, sequence);
    lock.readSequenceNumber(nullptr);
    lock.writeSequenceNumber(0x100000009ul);
    lock.readSequenceNumber(&sequence);
    EXPECT_EQ(9ul, sequence);
    // A number that another object wrote is reported as usual.
    lock.readLock();
    EXPECT_EQ("1>9 ", observer.changes);
    EXPECT_EQ(kWrite, lock.getLockState());
    lock.unlock();
    char bytes[4] = {'a', 'b', 'c', 'd'};
    lock.writeBytes(bytes, 0, 4);
    lock.readBytes(bytes, 0, 4);
    EXPECT_EQ("abcd", std::string(bytes, 4));
    lock.lockFileRange(kWrite, 0, 4);
    lock.unlockFileRange(0, 4);
}

int main(int argc, char** argv)
{
    if (OtherLocker::isWanted(argc, argv))
        return OtherLocker::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
