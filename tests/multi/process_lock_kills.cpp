// Kills processes while they hold or wait for a process lock, and checks that the lock keeps its
// promises. usage: process_lock_kills [--kills N]
//
// Eight processes of four threads increment the number in a file under the write lock, and read it
// under the read lock. Every five milliseconds one of them is killed and replaced by another.
//
// - Never two writers: a word in shared memory has the id of the writing process. A process that
//   finds another id there must find it ended.
// - A kill never blocks the others: the next acquisition succeeds within a minute.
// - Nothing is lost: the number equals the increments that the processes know of, plus at most one
//   for each kill.
// - The sequence number increases by one with each update and is never the invalid number.
#include <Z/ZException.h>
#include <Z/ZProcessReadWriteFileLock.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "TestDirectory.h"

namespace {

using Lock = ZUnixProcessReadWriteFileLock_6_0;
using Clock = std::chrono::steady_clock;

constexpr int kProcesses = 8;
constexpr int kThreads = 4;
constexpr auto kBetweenKills = std::chrono::milliseconds(5);
constexpr auto kMaxWait = std::chrono::minutes(1);
constexpr unsigned long kInvalid = Lock::invalidSequence;

// In memory that all processes share.
struct Shared {
    std::atomic<bool> stop;
    std::atomic<pid_t> writer;            // 0: no process
    std::atomic<unsigned long> sequence;  // of the last completed update
    std::atomic<unsigned long> acquisitions;
    std::atomic<unsigned long> increments;  // increments that the processes know of
    std::atomic<int> faults;
    char firstFault[200];
};

void fault(Shared& shared, std::string const& what)
{
    if (shared.faults.fetch_add(1) == 0)
        std::snprintf(shared.firstFault, sizeof shared.firstFault, "%s", what.c_str());
}

// Returns whether a process ends. The kernel releases its locks a little before its state changes.
bool ends(pid_t process)
{
    std::string const path = "/proc/" + std::to_string(process) + "/stat";
    auto const limit = Clock::now() + kMaxWait;
    do {
        FILE* const file = std::fopen(path.c_str(), "re");
        if (file == nullptr)
            return true;
        char state = '?';
        int const got = std::fscanf(file, "%*d (%*[^)]) %c", &state);
        std::fclose(file);
        if (got != 1 || state == 'Z' || state == 'X')
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    } while (Clock::now() < limit);
    return false;
}

unsigned long readCounter(int fd)
{
    unsigned long counter = 0;
    return pread(fd, &counter, sizeof counter, 0) == sizeof counter ? counter : 0;
}

void incrementCounter(Shared& shared, Lock& lock, int fd)
{
    lock.writeLock();
    shared.acquisitions.fetch_add(1);
    pid_t const before = shared.writer.exchange(getpid());
    if (before != 0 && (before == getpid() || !ends(before)))
        fault(shared,
              "two writers: " + std::to_string(before) + " and " + std::to_string(getpid()));
    unsigned long const sequence = lock.getSequence();
    unsigned long const last = shared.sequence.load();
    if (sequence != last && !(before != 0 && sequence == last + 1))
        fault(shared,
              "the sequence went from " + std::to_string(last) + " to " + std::to_string(sequence));
    if (sequence == kInvalid)
        fault(shared, "the sequence is the invalid number");
    unsigned long const incremented = readCounter(fd) + 1;
    if (pwrite(fd, &incremented, sizeof incremented, 0) != sizeof incremented)
        fault(shared, "the counter cannot be written");
    // The two steps of unlock(); between them the sequence number is recorded.
    lock.sync(1);
    shared.sequence.store(lock.getSequence());
    pid_t self = getpid();
    if (!shared.writer.compare_exchange_strong(self, 0))
        fault(shared, "two writers at the end: " + std::to_string(self));
    lock.unlock(0);
    shared.increments.fetch_add(1);
}

void checkCounter(Shared& shared, Lock& lock, int fd)
{
    lock.readLock();
    shared.acquisitions.fetch_add(1);
    pid_t const writer = shared.writer.load();
    unsigned long const counter = readCounter(fd);
    std::this_thread::yield();
    if (readCounter(fd) != counter || shared.writer.load() != writer)
        fault(shared, "a writer during a read");
    if (writer != 0 && !ends(writer))
        fault(shared, "a living writer during a read");
    lock.unlock();
}

[[noreturn]] void work(Shared& shared, std::string const& directory)
{
    int const fd = open((directory + "/counter").c_str(), O_RDWR | O_CLOEXEC);
    Lock lock(directory.c_str(), "kills");
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            try {
                for (int n = i; !shared.stop; ++n)
                    n % 4 == 0 ? checkCounter(shared, lock, fd)
                               : incrementCounter(shared, lock, fd);
            } catch (ZResourceException_6_0 const& e) {
                fault(shared, "message " + std::to_string(e.messageNumber()) + ", rc " +
                                  std::to_string(e.returnCode()));
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    _exit(0);
}

pid_t start(Shared& shared, std::string const& directory)
{
    pid_t const process = fork();
    if (process == 0)
        work(shared, directory);
    return process;
}

}  // namespace

int main(int argc, char** argv)
{
    int kills = 200;
    if (argc == 3 && std::strcmp(argv[1], "--kills") == 0)
        kills = std::atoi(argv[2]);
    else if (argc != 1) {
        std::fprintf(stderr, "usage: %s [--kills N]\n", argv[0]);
        return 2;
    }
    TestDirectory const directory(TestDirectory::Place::memory);
    directory.write("counter", std::string(sizeof(unsigned long), '\0'));
    void* const memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return 2;
    Shared& shared = *new (memory) Shared{};

    pid_t processes[kProcesses];
    for (pid_t& process : processes)
        process = start(shared, directory.path());

    std::mt19937 random(7);
    Clock::duration longest{};
    bool awaited = false;  // an acquisition since the kill at `since`
    Clock::time_point since;
    unsigned long acquisitions = 0;
    auto const look = [&] {
        Clock::duration const waited = Clock::now() - since;
        if (!awaited)
            return;
        if (shared.acquisitions != acquisitions)
            awaited = false;
        else if (waited > kMaxWait)
            fault(shared, "no acquisition within a minute of a kill");
        longest = std::max(longest, waited);
    };
    int killed = 0;
    while (killed < kills && shared.faults == 0) {
        auto const next = Clock::now() + kBetweenKills;
        do {
            std::this_thread::sleep_for(std::chrono::microseconds(500));
            look();
        } while (Clock::now() < next);
        pid_t& process = processes[random() % kProcesses];
        kill(process, SIGKILL);
        ++killed;
        if (!awaited) {
            awaited = true;
            since = Clock::now();
            acquisitions = shared.acquisitions;
        }
        waitpid(process, nullptr, 0);
        process = start(shared, directory.path());
    }
    while (awaited && shared.faults == 0)
        look();
    shared.stop = true;
    for (pid_t const process : processes)
        waitpid(process, nullptr, 0);

    int const fd = open(directory.at("counter").c_str(), O_RDONLY | O_CLOEXEC);
    unsigned long const counter = readCounter(fd);
    close(fd);
    Lock lock(directory.path().c_str(), "kills");
    lock.readLock();
    unsigned long const sequence = lock.getSequence();
    lock.unlock();
    unsigned long const raises = shared.increments;
    auto const most = static_cast<unsigned long>(killed);
    if (counter < raises || counter > raises + most)
        fault(shared, "the counter does not match the increments");
    if (sequence > counter || sequence + most < counter)
        fault(shared, "the sequence does not match the increments");
    if (raises == 0)
        fault(shared, "nothing was incremented");

    std::printf(
        "process locks: %d kills, %lu acquisitions, counter %lu, known increments %lu, "
        "sequence %lu, longest wait %.1f ms, %d faults%s%s\n",
        killed, shared.acquisitions.load(), counter, raises, sequence,
        std::chrono::duration<double, std::milli>(longest).count(), shared.faults.load(),
        shared.faults == 0 ? "" : ": ", shared.firstFault);
    return shared.faults == 0 ? 0 : 1;
}
