// Locks: lock and unlock, uncontended, nested and contended; read-write locks; conditions; threads.
#include <Z/ZCondition.h>
#include <Z/ZLock.h>
#include <Z/ZReadWriteLock.h>
#include <Z/ZSleeperThread.h>
#include <Z/ZThread.h>
#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>

#ifdef Z_PEER_GLIB
#include <glib.h>
#endif
#ifdef Z_PEER_QT
#include <QMutex>
#include <QReadWriteLock>
#include <QRunnable>
#include <QThreadPool>
#endif
#ifdef Z_PEER_POCO
#include <Poco/Mutex.h>
#include <Poco/RWLock.h>
#include <Poco/Runnable.h>
#include <Poco/ThreadPool.h>
#endif
#ifdef Z_PEER_BOOST_THREAD
#include <boost/thread/shared_mutex.hpp>
#endif
#ifdef Z_PEER_APR
#include <apr_general.h>
#include <apr_thread_mutex.h>
#endif

namespace {

struct Ours {
    ZLock_6_0 lock_;
    void lock() { lock_.lock(); }
    void unlock() { lock_.unlock(); }
};

#ifdef Z_PEER_GLIB
struct GLib {
    GRecMutex mutex;
    GLib() { g_rec_mutex_init(&mutex); }
    ~GLib() { g_rec_mutex_clear(&mutex); }
    void lock() { g_rec_mutex_lock(&mutex); }
    void unlock() { g_rec_mutex_unlock(&mutex); }
};
#endif

#ifdef Z_PEER_APR
struct Apr {
    apr_pool_t* pool = nullptr;
    apr_thread_mutex_t* mutex = nullptr;
    Apr()
    {
        static bool const started = apr_initialize() == APR_SUCCESS;
        benchmark::DoNotOptimize(started);
        apr_pool_create(&pool, nullptr);
        apr_thread_mutex_create(&mutex, APR_THREAD_MUTEX_NESTED, pool);
    }
    ~Apr() { apr_pool_destroy(pool); }
    void lock() { apr_thread_mutex_lock(mutex); }
    void unlock() { apr_thread_mutex_unlock(mutex); }
};
#endif

template <class Lock>
void alone(benchmark::State& state)
{
    Lock lock;
    for (auto _ : state) {
        lock.lock();
        lock.unlock();
    }
}

template <class Lock>
void nested(benchmark::State& state)
{
    Lock lock;
    lock.lock();
    for (auto _ : state) {
        lock.lock();
        lock.unlock();
    }
    lock.unlock();
}

template <class Lock>
void contended(benchmark::State& state)
{
    static Lock lock;
    static long shared = 0;
    for (auto _ : state) {
        lock.lock();
        benchmark::DoNotOptimize(++shared);
        lock.unlock();
    }
}

// Rows run in two rounds: the contended ones start threads, and some C libraries lock more slowly
// after the process has started a second thread.
enum Round { withoutThreads, withThreads };

template <class Lock>
void registerLockRows(std::string const& contender, Round round)
{
    if (round == withoutThreads) {
        benchmark::RegisterBenchmark(("LockUnlock/" + contender).c_str(), alone<Lock>);
        benchmark::RegisterBenchmark(("LockUnlockNested/" + contender).c_str(), nested<Lock>);
    } else {
        benchmark::RegisterBenchmark(("LockUnlockContended/" + contender).c_str(), contended<Lock>)
            ->Threads(2)
            ->UseRealTime();
        benchmark::RegisterBenchmark(("LockUnlockThreaded/" + contender).c_str(), alone<Lock>);
    }
}

// ---- Read-write locks ------------------------------------------------------------------------
//
// Peers without an equivalent of "protect" have no row for it; of the rest only boost's lock can be
// upgraded.

struct OurReadWrite {
    static constexpr bool kUpgrades = true;
    ZReadWriteLock_6_0 lock;
    void readLock() { lock.readLock(); }
    void readUnlock() { lock.unlock(); }
    void writeLock() { lock.writeLock(); }
    void writeUnlock() { lock.unlock(); }
    void protectAndPromote()
    {
        lock.readWithIntentToWriteLock();
        lock.promoteReadToWriteLock();
    }
};

// Standard-library names for the four operations.
template <class Mutex>
struct Shared {
    static constexpr bool kUpgrades = false;
    Mutex lock;
    void readLock() { lock.lock_shared(); }
    void readUnlock() { lock.unlock_shared(); }
    void writeLock() { lock.lock(); }
    void writeUnlock() { lock.unlock(); }
};

#ifdef Z_PEER_BOOST_THREAD
struct BoostUpgrade : Shared<boost::upgrade_mutex> {
    static constexpr bool kUpgrades = true;
    void protectAndPromote()
    {
        lock.lock_upgrade();
        lock.unlock_upgrade_and_lock();
    }
};
#endif

#ifdef Z_PEER_QT
struct QtReadWrite {
    static constexpr bool kUpgrades = false;
    QReadWriteLock lock;
    void readLock() { lock.lockForRead(); }
    void readUnlock() { lock.unlock(); }
    void writeLock() { lock.lockForWrite(); }
    void writeUnlock() { lock.unlock(); }
};
#endif

#ifdef Z_PEER_POCO
struct PocoReadWrite {
    static constexpr bool kUpgrades = false;
    Poco::RWLock lock;
    void readLock() { lock.readLock(); }
    void readUnlock() { lock.unlock(); }
    void writeLock() { lock.writeLock(); }
    void writeUnlock() { lock.unlock(); }
};
#endif

template <class Lock>
void readAlone(benchmark::State& state)
{
    Lock lock;
    for (auto _ : state) {
        lock.readLock();
        lock.readUnlock();
    }
}

template <class Lock>
void writeAlone(benchmark::State& state)
{
    Lock lock;
    for (auto _ : state) {
        lock.writeLock();
        lock.writeUnlock();
    }
}

template <class Lock>
void promoteAlone(benchmark::State& state)
{
    Lock lock;
    for (auto _ : state) {
        lock.protectAndPromote();
        lock.writeUnlock();
    }
}

// 95 reads per 5 writes, from two threads.
template <class Lock>
void mostlyRead(benchmark::State& state)
{
    static Lock lock;
    static long shared = 0;
    unsigned turn = state.thread_index() == 0 ? 0 : 10;
    for (auto _ : state) {
        if (++turn % 20 == 0) {
            lock.writeLock();
            benchmark::DoNotOptimize(++shared);
            lock.writeUnlock();
        } else {
            lock.readLock();
            benchmark::DoNotOptimize(shared);
            lock.readUnlock();
        }
    }
}

template <class Lock>
void registerReadWriteRows(std::string const& contender)
{
    auto const add = [&contender](char const* row, void (*run)(benchmark::State&)) {
        return benchmark::RegisterBenchmark((row + contender).c_str(), run);
    };
    add("ReadLock/", readAlone<Lock>);
    add("WriteLock/", writeAlone<Lock>);
    if constexpr (Lock::kUpgrades)
        add("ProtectAndPromote/", promoteAlone<Lock>);
    add("MostlyRead/", mostlyRead<Lock>)->Threads(2)->UseRealTime();
}

// ---- Conditions ------------------------------------------------------------------------------

struct OurCondition {
    ZCondition_6_0 condition;
    void lock() { condition.lock(); }
    void unlock() { condition.unlock(); }
    void wait() { condition.wait(); }
    void signal() { condition.signal(); }
};

struct StdCondition {
    std::mutex mutex;
    std::condition_variable condition;
    void lock() { mutex.lock(); }
    void unlock() { mutex.unlock(); }
    void wait()
    {
        std::unique_lock<std::mutex> held(mutex, std::adopt_lock);
        condition.wait(held);
        held.release();
    }
    void signal() { condition.notify_one(); }
};

// Two threads pass a ball back and forth: one iteration is two wake-ups.
template <class Condition>
void pingPong(benchmark::State& state)
{
    enum Place { here, there, away };
    Condition moved;
    Place ball = here;
    auto const pass = [&](Place from, Place to) {
        moved.lock();
        while (ball != from && ball != away)
            moved.wait();
        bool const goesOn = ball != away;
        if (goesOn)
            ball = to;
        moved.signal();
        moved.unlock();
        return goesOn;
    };
    std::thread other([&] {
        while (pass(there, here)) {
        }
    });
    for (auto _ : state) {
        pass(here, there);
        moved.lock();
        while (ball != here)
            moved.wait();
        moved.unlock();
    }
    pass(here, away);
    other.join();
}

// ---- Threads ---------------------------------------------------------------------------------

class EmptyThread : public ZThread_6_0 {
public:
    EmptyThread() : ZThread_6_0(0, 0) {}
    void run() override {}
};

void startAndJoinOurs(benchmark::State& state)
{
    EmptyThread thread;
    for (auto _ : state) {
        thread.start();
        thread.waitForExit();
    }
}

void startAndJoinStd(benchmark::State& state)
{
    for (auto _ : state)
        std::thread([] {}).join();
}

// Counts the finished units of work; the submitting thread waits for each.
std::atomic<unsigned> done{0};

void workIsDone()
{
    done.fetch_add(1);
    done.notify_one();
}

template <class Submit>
void submitWork(benchmark::State& state, Submit submit)
{
    for (auto _ : state) {
        unsigned const before = done;
        submit();
        done.wait(before);
    }
}

void wakeASleeper(benchmark::State& state)
{
    class Worker : public ZSleeperThread_6_0 {
    public:
        void doWork() override { workIsDone(); }
    } worker;
    worker.start();
    submitWork(state, [&] { worker.wakeUp(); });
    worker.waitForExit();
}

#ifdef Z_PEER_QT
void submitToQt(benchmark::State& state)
{
    class Work : public QRunnable {
    public:
        void run() override { workIsDone(); }
    } work;
    work.setAutoDelete(false);
    QThreadPool pool;
    pool.setMaxThreadCount(1);
    submitWork(state, [&] { pool.start(&work); });
    pool.waitForDone();
}
#endif

#ifdef Z_PEER_POCO
void submitToPoco(benchmark::State& state)
{
    class Work : public Poco::Runnable {
    public:
        void run() override { workIsDone(); }
    } work;
    // A thread reports itself idle a moment after the work: with a single thread the next
    // submission would find none.
    Poco::ThreadPool pool(2, 16);
    submitWork(state, [&] { pool.start(work); });
    pool.joinAll();
}
#endif

bool const areRowsRegistered = [] {
    for (Round const round : {withoutThreads, withThreads}) {
        registerLockRows<Ours>("Z", round);
        registerLockRows<std::recursive_mutex>("std.recursive_mutex", round);
#ifdef Z_PEER_GLIB
        registerLockRows<GLib>("GRecMutex", round);
#endif
#ifdef Z_PEER_QT
        registerLockRows<QRecursiveMutex>("QRecursiveMutex", round);
#endif
#ifdef Z_PEER_POCO
        registerLockRows<Poco::Mutex>("Poco.Mutex", round);
#endif
#ifdef Z_PEER_APR
        registerLockRows<Apr>("apr_thread_mutex", round);
#endif
    }
    registerReadWriteRows<OurReadWrite>("Z");
    registerReadWriteRows<Shared<std::shared_mutex>>("std.shared_mutex");
#ifdef Z_PEER_BOOST_THREAD
    registerReadWriteRows<BoostUpgrade>("boost.upgrade_mutex");
#endif
#ifdef Z_PEER_QT
    registerReadWriteRows<QtReadWrite>("QReadWriteLock");
#endif
#ifdef Z_PEER_POCO
    registerReadWriteRows<PocoReadWrite>("Poco.RWLock");
#endif
    benchmark::RegisterBenchmark("PingPong/Z", pingPong<OurCondition>)->UseRealTime();
    benchmark::RegisterBenchmark("PingPong/std.condition_variable", pingPong<StdCondition>)
        ->UseRealTime();
    benchmark::RegisterBenchmark("StartAndJoin/Z", startAndJoinOurs)->UseRealTime();
    benchmark::RegisterBenchmark("StartAndJoin/std.thread", startAndJoinStd)->UseRealTime();
    benchmark::RegisterBenchmark("HandOutWork/Z", wakeASleeper)->UseRealTime();
#ifdef Z_PEER_QT
    benchmark::RegisterBenchmark("HandOutWork/QThreadPool", submitToQt)->UseRealTime();
#endif
#ifdef Z_PEER_POCO
    benchmark::RegisterBenchmark("HandOutWork/Poco.ThreadPool", submitToPoco)->UseRealTime();
#endif
    return true;
}();

}  // namespace
