// Process locks between processes. The other processes run this program again.
#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "LockStates.h"
#include "OtherLocker.h"
#include "SeenRanges.h"
#include "TestDirectory.h"

namespace {

using Lock = ZUnixProcessReadWriteFileLock_6_0;

class ProcessLocks : public testing::Test {
protected:
    OtherLocker process() const { return {directory_.path(), "a"}; }
    std::string seen() const { return seenRanges(directory_.at("._zpla")); }

    TestDirectory directory_{TestDirectory::Place::memory};
};

}  // namespace

TEST_F(ProcessLocks, ReadersShareTheLock)
{
    OtherLocker one = process();
    OtherLocker two = process();
    EXPECT_EQ("read 0", one.does('r'));
    EXPECT_EQ("read 0", two.does('r'));
    EXPECT_EQ("unset 0", one.does('u'));
    EXPECT_EQ("r-", seen());
    EXPECT_EQ("unset 0", two.does('u'));
    EXPECT_EQ("--", seen());
}

TEST_F(ProcessLocks, WriterExcludesAllOthers)
{
    for (char first : {'w', 'p'})
        for (char second : {'r', 'w', 'p'}) {
            SCOPED_TRACE(std::string() + first + second);
            OtherLocker one = process();
            OtherLocker two = process();
            EXPECT_EQ("write", one.does(first).substr(0, 5));
            two.order(second);
            EXPECT_TRUE(two.waits());
            one.does('n');
            EXPECT_EQ(second == 'r' ? "read 0" : "write 0", two.answer());
            two.does('n');
        }
    EXPECT_EQ("--", seen());
}

TEST_F(ProcessLocks, WriterWaitsForTheReadersOfAllProcesses)
{
    OtherLocker one = process();
    OtherLocker two = process();
    OtherLocker writer = process();
    one.does('r');
    two.does('r');
    writer.order('w');
    EXPECT_TRUE(writer.waits());
    one.does('u');
    EXPECT_TRUE(writer.waits());
    two.does('u');
    EXPECT_EQ("write 0", writer.answer());
    writer.does('u');
}

TEST_F(ProcessLocks, WaitingWriterBlocksNewReaders)
{
    OtherLocker reader = process();
    OtherLocker writer = process();
    OtherLocker late = process();
    EXPECT_EQ("read 0", reader.does('r'));
    writer.order('w');
    EXPECT_TRUE(writer.waits());
    EXPECT_EQ("rw", seen());
    late.order('r');
    EXPECT_TRUE(late.waits());
    reader.does('u');
    EXPECT_EQ("write 0", writer.answer());
    EXPECT_TRUE(late.waits());
    EXPECT_EQ("unset 1", writer.does('u'));
    EXPECT_EQ("read 1", late.answer());
    late.does('u');
}

TEST_F(ProcessLocks, ChangesAreReportedToOtherProcesses)
{
    OtherLocker writer = process();
    OtherLocker observer = process();
    EXPECT_EQ("unset 0", observer.does('o'));
    EXPECT_EQ("read 0", observer.does('r'));
    EXPECT_EQ("unset 0", observer.does('u'));
    // One change, then two changes that it sees together, then none.
    writer.does('w');
    EXPECT_EQ("unset 1", writer.does('u'));
    EXPECT_EQ("write 1 0>1", observer.does('r'));
    EXPECT_EQ("unset 1 0>1", observer.does('u'));
    for (int i = 0; i < 2; ++i) {
        writer.does('w');
        writer.does('u');
    }
    EXPECT_EQ("write 3 0>1 1>3", observer.does('r'));
    EXPECT_EQ("unset 3 0>1 1>3", observer.does('u'));
    writer.does('w');
    EXPECT_EQ("unset 3", writer.does('n'));
    EXPECT_EQ("read 3 0>1 1>3", observer.does('r'));
    EXPECT_EQ("unset 3 0>1 1>3", observer.does('u'));
}

TEST_F(ProcessLocks, KilledProcessHoldsNothing)
{
    for (char held : {'r', 'w'}) {
        SCOPED_TRACE(held);
        OtherLocker holder = process();
        OtherLocker next = process();
        holder.does(held);
        next.order('w');
        EXPECT_TRUE(next.waits());
        holder.kill();
        EXPECT_EQ("write 0", next.answer());
        next.does('n');
    }
    // Kill a process that waits while it holds the gate.
    OtherLocker reader = process();
    OtherLocker waiting = process();
    reader.does('r');
    waiting.order('w');
    EXPECT_TRUE(waiting.waits());
    waiting.kill();
    OtherLocker late = process();
    EXPECT_EQ("read 0", late.does('r'));
    EXPECT_EQ("r-", seen());
}

TEST_F(ProcessLocks, SignalEndsTheWaitOfOneProcessOnly)
{
    OtherLocker holder = process();
    OtherLocker waiting = process();
    holder.does('r');
    waiting.order('w');
    EXPECT_TRUE(waiting.waits());
    EXPECT_EQ("rw", seen());
    kill(waiting.id(), SIGUSR1);
    EXPECT_EQ("33 " + std::to_string(EINTR), waiting.answer());
    EXPECT_EQ("r-", seen());
    waiting.order('w');
    EXPECT_TRUE(waiting.waits());
    holder.does('u');
    EXPECT_EQ("write 0", waiting.answer());
}

// Three processes of four threads use one file through two lock objects each. The kernel sees only
// which process waits for which, so it sometimes reports a deadlock that does not exist. No other
// failure is allowed.
TEST_F(ProcessLocks, SeveralObjectsInSeveralProcessesNeverHang)
{
    struct Shared {
        std::atomic<int> writers;
        std::atomic<int> readers;
        std::atomic<int> acquisitions;
        std::atomic<int> faults;
    };
    void* const memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(MAP_FAILED, memory);
    Shared& shared = *new (memory) Shared{};
    constexpr int kTurns = 4000;
    auto const useBoth = [&](Lock* locks, unsigned seed) {
        std::minstd_rand random(seed);
        for (int i = 0; i < kTurns; ++i) {
            Lock& lock = locks[random() % 2];
            bool const writes = random() % 4 == 0;
            try {
                lock.lock(writes ? kWrite : kRead);
                std::atomic<int>& mine = writes ? shared.writers : shared.readers;
                bool const first = mine.fetch_add(1) == 0;
                if (writes ? !first || shared.readers != 0 : shared.writers != 0)
                    ++shared.faults;
                --mine;
                ++shared.acquisitions;
                lock.unlock(0);
            } catch (ZLockResourceException_6_0 const& e) {
                if (e.returnCode() != EDEADLK)
                    ++shared.faults;
            } catch (ZException_6_0 const&) {
                ++shared.faults;
            }
        }
    };
    std::vector<pid_t> processes;
    for (unsigned p = 0; p < 3; ++p) {
        processes.push_back(fork());
        if (processes.back() == 0) {
            Lock locks[2] = {{directory_.path().c_str(), "a"}, {directory_.path().c_str(), "a"}};
            std::vector<std::thread> threads;
            for (unsigned t = 0; t < 4; ++t)
                threads.emplace_back(useBoth, locks, 1 + 10 * p + t);
            for (std::thread& thread : threads)
                thread.join();
            bool free = true;
            for (Lock& lock : locks)
                free = free && lock.getLockState() == kUnset && lock.getFileHandle() == -1;
            _exit(free ? 0 : 1);
        }
    }
    for (pid_t const process : processes) {
        int status = 0;
        waitpid(process, &status, 0);
        EXPECT_EQ(0, status);
    }
    EXPECT_EQ(0, shared.faults);
    EXPECT_LT(3 * 4 * kTurns / 2, shared.acquisitions);
    EXPECT_EQ("--", seen());
    munmap(memory, sizeof(Shared));
}

// Makes 100,000 acquisitions against another process, with a signal every millisecond that
// interrupts calls. Each ends with the lock held, or with an exception and no lock.
TEST_F(ProcessLocks, SignalsLeaveTheLockHeldOrFree)
{
    constexpr int kAcquisitions = 100000;
    struct sigaction handler = {};
    handler.sa_handler = [](int) {};
    struct sigaction before;
    sigaction(SIGUSR1, &handler, &before);

    pid_t const other = fork();
    if (other == 0) {
        Lock lock(directory_.path().c_str(), "a");
        for (int i = 0;; ++i) {
            lock.lock(i % 4 == 0 ? kWrite : kRead);
            if (i % 16 == 0)
                std::this_thread::yield();
            lock.unlock();
        }
    }
    std::atomic<bool> done{false};
    pthread_t const self = pthread_self();
    std::thread signals([&] {
        while (!done) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            pthread_kill(self, SIGUSR1);
        }
    });

    Lock lock(directory_.path().c_str(), "a");
    int held = 0;
    int interrupted = 0;
    for (int i = 0; i < kAcquisitions && !HasFailure(); ++i) {
        State const asked = i % 3 == 0 ? kWrite : kRead;
        try {
            lock.lock(asked);
            ++held;
            EXPECT_EQ(asked, lock.getLockState());
            lock.unlock();
        } catch (ZLockResourceException_6_0 const& e) {
            ++interrupted;
            EXPECT_EQ(EINTR, e.returnCode());
            EXPECT_EQ(33u, e.messageNumber());
        }
        EXPECT_EQ(kUnset, lock.getLockState());
        EXPECT_EQ(-1, lock.getFileHandle());
        EXPECT_EQ(0, lock.getReaderCount());
    }
    done = true;
    signals.join();
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
    EXPECT_EQ(kAcquisitions, held + interrupted);
    EXPECT_EQ("--", seen());
    RecordProperty("interrupted", interrupted);
    sigaction(SIGUSR1, &before, nullptr);
}

int main(int argc, char** argv)
{
    if (OtherLocker::isWanted(argc, argv))
        return OtherLocker::run(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
