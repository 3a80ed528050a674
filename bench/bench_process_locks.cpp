// Process locks: acquire and release, without contention and in turns with another process.
#include <Z/ZProcessReadWriteFileLock.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>

#ifdef Z_PEER_BOOST
#include <boost/interprocess/sync/file_lock.hpp>
#endif
#ifdef Z_PEER_QT
#include <QLockFile>
#endif

namespace {

// A directory in memory, if the machine has one: the speed of a disk is a different question.
class Directory {
public:
    Directory()
    {
        std::string name =
            access("/dev/shm", W_OK) == 0 ? "/dev/shm/zbenchXXXXXX" : "/tmp/zbenchXXXXXX";
        path_ = mkdtemp(name.data());
        std::ofstream(file()) << "abcdefgh";
    }
    ~Directory()
    {
        for (char const* name : {"/file", "/._zpla", "/qt"})
            unlink((path_ + name).c_str());
        rmdir(path_.c_str());
    }
    std::string const& path() const { return path_; }
    std::string file() const { return path_ + "/file"; }

private:
    std::string path_;
};

struct Ours {
    ZUnixProcessReadWriteFileLock_6_0 lock;
    explicit Ours(Directory const& directory) : lock(directory.path().c_str(), "a") {}
    void read() { lock.readLock(); }
    void write() { lock.writeLock(); }
    void unlock() { lock.unlock(0); }
};

void setLock(int fd, short type, off_t start)
{
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = 4;
    benchmark::DoNotOptimize(fcntl(fd, F_SETLKW, &range));
}

// The least work of any lock that uses a file: it excludes no threads of the process, lets writers
// starve, and does not notice that its file was replaced.
struct Floor {
    std::string const path;
    int fd = -1;
    char number[4];
    explicit Floor(Directory const& directory) : path(directory.file()) {}
    void acquire(short type)
    {
        fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        setLock(fd, type, 0);
        benchmark::DoNotOptimize(::read(fd, number, sizeof number));
    }
    void read() { acquire(F_RDLCK); }
    void write() { acquire(F_WRLCK); }
    void unlock()
    {
        setLock(fd, F_UNLCK, 0);
        close(fd);
    }
};

// Adds the gate, the process id and the check of the file, as our lock does.
struct Protocol {
    std::string const path;
    int fd = -1;
    bool writes = false;
    char number[4];
    explicit Protocol(Directory const& directory) : path(directory.file()) {}
    void acquire(short type)
    {
        struct stat status;
        fd = open(path.c_str(), O_RDWR | O_CREAT | O_SYNC | O_CLOEXEC, 0600);
        benchmark::DoNotOptimize(fstat(fd, &status));
        setLock(fd, F_WRLCK, 4);
        benchmark::DoNotOptimize(getpid());
        benchmark::DoNotOptimize(pread(fd, number, sizeof number, 4));
        setLock(fd, type, 0);
        writes = type == F_WRLCK;
        if (!writes)
            setLock(fd, F_UNLCK, 4);
        benchmark::DoNotOptimize(stat(path.c_str(), &status));
        benchmark::DoNotOptimize(pread(fd, number, sizeof number, 0));
    }
    void read() { acquire(F_RDLCK); }
    void write() { acquire(F_WRLCK); }
    void unlock()
    {
        setLock(fd, F_UNLCK, 0);
        if (writes)
            setLock(fd, F_UNLCK, 4);
        close(fd);
    }
};

#ifdef Z_PEER_BOOST
// Keeps its file open; excludes no threads and has no sequence number.
struct BoostFileLock {
    boost::interprocess::file_lock lock;
    bool reads = false;
    explicit BoostFileLock(Directory const& directory) : lock(directory.file().c_str()) {}
    void read()
    {
        lock.lock_sharable();
        reads = true;
    }
    void write()
    {
        lock.lock();
        reads = false;
    }
    void unlock() { reads ? lock.unlock_sharable() : lock.unlock(); }
};
#endif

#ifdef Z_PEER_QT
// Has only a write lock.
struct QtLockFile {
    QLockFile lock;
    explicit QtLockFile(Directory const& directory)
        : lock(QString::fromStdString(directory.path() + "/qt"))
    {
    }
    void write() { lock.lock(); }
    void unlock() { lock.unlock(); }
};
#endif

template <class Lock>
void alone(benchmark::State& state, void (Lock::*acquire)())
{
    Directory const directory;
    Lock lock(directory);
    for (auto _ : state) {
        (lock.*acquire)();
        lock.unlock();
    }
}

// Two processes alternate: the process that has the lock and the turn passes the turn on.
template <class Lock>
void inTurns(benchmark::State& state)
{
    Directory const directory;
    auto* const turn = static_cast<std::atomic<int>*>(mmap(nullptr, sizeof(std::atomic<int>),
                                                           PROT_READ | PROT_WRITE,
                                                           MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    auto const takeTurn = [turn](Lock& lock, int mine) {
        for (bool taken = false; !taken;) {
            lock.write();
            taken = turn->load(std::memory_order_relaxed) == mine;
            if (taken)
                turn->store(1 - mine, std::memory_order_relaxed);
            lock.unlock();
        }
    };
    pid_t const other = fork();
    if (other == 0) {
        Lock lock(directory);
        for (;;)
            takeTurn(lock, 1);
    }
    {
        Lock lock(directory);
        for (auto _ : state)
            takeTurn(lock, 0);
    }
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
    munmap(turn, sizeof(std::atomic<int>));
}

template <class Lock>
void registerAll(std::string const& contender)
{
    benchmark::RegisterBenchmark(("ProcessLockRead/" + contender).c_str(), alone<Lock>,
                                 &Lock::read);
    benchmark::RegisterBenchmark(("ProcessLockWrite/" + contender).c_str(), alone<Lock>,
                                 &Lock::write);
    benchmark::RegisterBenchmark(("BetweenProcesses/" + contender).c_str(), inTurns<Lock>)
        ->UseRealTime();
}

bool const registered = [] {
    registerAll<Ours>("Z");
    registerAll<Floor>("floor");
    registerAll<Protocol>("floor.protocol");
#ifdef Z_PEER_BOOST
    registerAll<BoostFileLock>("boost.file_lock");
#endif
#ifdef Z_PEER_QT
    // In turns this would measure how long it sleeps between two attempts.
    benchmark::RegisterBenchmark("ProcessLockWrite/QLockFile", alone<QtLockFile>,
                                 &QtLockFile::write);
#endif
    return true;
}();

}  // namespace
