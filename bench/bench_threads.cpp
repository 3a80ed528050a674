// Locks: lock and unlock, alone, nested and contended.
#include <Z/ZLock.h>
#include <benchmark/benchmark.h>

#include <mutex>
#include <string>

#ifdef Z_PEER_GLIB
#include <glib.h>
#endif
#ifdef Z_PEER_QT
#include <QMutex>
#endif
#ifdef Z_PEER_POCO
#include <Poco/Mutex.h>
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

// Rows come in two rounds: the contended ones start threads, and a C library that knows of a second
// thread locks more dearly from then on.
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

bool const areLockRowsRegistered = [] {
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
    return true;
}();

}  // namespace
