// ThreadCalls: makes pthread calls fail, counts them and delays their effect, in a test program
// whose z_test call has the keyword THREAD_CALLS.
//
//     threadCalls.fail[mutexInit] = ENOMEM;  // each call of this thread, until reset
//     threadCalls = ThreadCalls();
//
//     failThreadCall(condWait, 3);           // the third call from now, of any thread
//     EXPECT_TRUE(stopFailingThreadCalls());
//
// A call that fails has no effect, with two exceptions: a failed destruction frees its object, and
// an unlock() chosen by failThreadCall() unlocks, because a locked mutex would block other threads.
#pragma once

#include <errno.h>
#include <pthread.h>
#include <time.h>

#include <atomic>
#include <memory>
#include <utility>

#include "Threads.h"

enum ThreadCall {
    attrInit,
    attrSetDetachState,
    attrDestroy,
    threadCreate,
    threadJoin,
    keyCreate,
    atFork,
    mutexInit,
    mutexDestroy,
    mutexLock,
    mutexUnlock,
    condInit,
    condDestroy,
    condWait,
    condTimedWait,
    condSignal,
    condBroadcast,
    kThreadCallCount
};

// Names of the calls, and the errors that failThreadCall() makes them return.
struct ThreadCallKind {
    char const* name;
    int error;
};
inline constexpr ThreadCallKind kThreadCallKinds[kThreadCallCount] = {
    {"pthread_attr_init", ENOMEM},      {"pthread_attr_setdetachstate", EINVAL},
    {"pthread_attr_destroy", EINVAL},   {"pthread_create", EAGAIN},
    {"pthread_join", EINVAL},           {"pthread_key_create", EAGAIN},
    {"pthread_atfork", ENOMEM},         {"pthread_mutex_init", ENOMEM},
    {"pthread_mutex_destroy", EBUSY},   {"pthread_mutex_lock", EAGAIN},
    {"pthread_mutex_unlock", EPERM},    {"pthread_cond_init", EAGAIN},
    {"pthread_cond_destroy", EBUSY},    {"pthread_cond_wait", EINVAL},
    {"pthread_cond_timedwait", EINVAL}, {"pthread_cond_signal", EINVAL},
    {"pthread_cond_broadcast", EINVAL},
};

// The calls of one thread.
struct ThreadCalls {
    int fail[kThreadCallCount] = {};          // results that replace the calls if not 0
    int count[kThreadCallCount] = {};         // calls so far, failed ones included
    bool defaultAttributes = true;            // of all mutexes and conditions so far
    pthread_mutex_t* mutex = nullptr;         // of the last wait
    timespec until = {-1, -1};                // of the last timed wait
    int earlyWaits = 0;                       // waits that return immediately, as spurious wake-ups
    std::atomic<bool>* wakes = nullptr;       // set when this thread next wakes another thread
    void (*beforeCreateReturns)() = nullptr;  // runs at the end of each pthread_create()
};
inline thread_local ThreadCalls threadCalls;

// The call that fails in any thread, and the number of such calls up to it.
inline std::atomic<int> failingThreadCall_{-1};
inline std::atomic<long> callsUntilFailure_{0};

// Makes the n-th such call from now fail, counted from 1, in any thread.
inline void failThreadCall(ThreadCall call, long n)
{
    callsUntilFailure_ = n;
    failingThreadCall_ = call;
}

// Returns whether the call has failed.
inline bool stopFailingThreadCalls()
{
    failingThreadCall_ = -1;
    return callsUntilFailure_ <= 0;
}

// If true, the next broadcast takes effect only when its thread waits for the same condition: the
// woken threads run later than the broadcasting one.
inline std::atomic<bool> withholdsBroadcast{false};
inline std::atomic<pthread_cond_t*> withheldCondition{nullptr};

// While true, new threads wait before they run their entry.
inline std::atomic<bool> entriesHeld{false};

struct HeldEntry {
    static void* run(void* held)
    {
        HeldEntry const entry = *std::unique_ptr<HeldEntry>(static_cast<HeldEntry*>(held));
        entriesHeld.wait(true);
        WatchedThread* const watched = watched_.exchange(nullptr);
        if (watched != nullptr)
            watched->enter();
        return entry.entry(entry.argument);
    }

    // Releases the held threads; one of them becomes `watched`.
    static void release(WatchedThread* watched)
    {
        watched_ = watched;
        entriesHeld = false;
        entriesHeld.notify_all();
    }

    void* (*entry)(void*);
    void* argument;

    static inline std::atomic<WatchedThread*> watched_{nullptr};
};

// Counts the call. Returns the error that it fails with, or 0.
inline int plannedError(ThreadCall call)
{
    ++threadCalls.count[call];
    if (threadCalls.fail[call] != 0)
        return threadCalls.fail[call];
    bool const fails = failingThreadCall_ == call && callsUntilFailure_.fetch_sub(1) == 1;
    return fails ? kThreadCallKinds[call].error : 0;
}

inline void noteWake()
{
    if (threadCalls.wakes != nullptr)
        *std::exchange(threadCalls.wakes, nullptr) = true;
}

extern "C" {
int __real_pthread_attr_init(pthread_attr_t*);
int __real_pthread_attr_setdetachstate(pthread_attr_t*, int);
int __real_pthread_attr_destroy(pthread_attr_t*);
int __real_pthread_create(pthread_t*, pthread_attr_t const*, void* (*)(void*), void*);
int __real_pthread_join(pthread_t, void**);
int __real_pthread_key_create(pthread_key_t*, void (*)(void*));
int __real_pthread_atfork(void (*)(), void (*)(), void (*)());
int __real_pthread_mutex_init(pthread_mutex_t*, pthread_mutexattr_t const*);
int __real_pthread_mutex_destroy(pthread_mutex_t*);
int __real_pthread_mutex_lock(pthread_mutex_t*);
int __real_pthread_mutex_unlock(pthread_mutex_t*);
int __real_pthread_cond_init(pthread_cond_t*, pthread_condattr_t const*);
int __real_pthread_cond_destroy(pthread_cond_t*);
int __real_pthread_cond_wait(pthread_cond_t*, pthread_mutex_t*);
int __real_pthread_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, timespec const*);
int __real_pthread_cond_signal(pthread_cond_t*);
int __real_pthread_cond_broadcast(pthread_cond_t*);

[[gnu::used]] inline int __wrap_pthread_attr_init(pthread_attr_t* attributes)
{
    int const error = plannedError(attrInit);
    return error != 0 ? error : __real_pthread_attr_init(attributes);
}

[[gnu::used]] inline int __wrap_pthread_attr_setdetachstate(pthread_attr_t* attributes, int state)
{
    int const error = plannedError(attrSetDetachState);
    return error != 0 ? error : __real_pthread_attr_setdetachstate(attributes, state);
}

[[gnu::used]] inline int __wrap_pthread_attr_destroy(pthread_attr_t* attributes)
{
    int const rc = __real_pthread_attr_destroy(attributes);
    int const error = plannedError(attrDestroy);
    return error != 0 ? error : rc;
}

[[gnu::used]] inline int __wrap_pthread_create(pthread_t* id, pthread_attr_t const* attributes,
                                               void* (*entry)(void*), void* argument)
{
    int rc = plannedError(threadCreate);
    if (rc == 0 && entriesHeld) {
        auto held = std::make_unique<HeldEntry>(HeldEntry{entry, argument});
        rc = __real_pthread_create(id, attributes, HeldEntry::run, held.get());
        if (rc == 0)
            held.release();
    } else if (rc == 0) {
        rc = __real_pthread_create(id, attributes, entry, argument);
    }
    if (threadCalls.beforeCreateReturns != nullptr)
        threadCalls.beforeCreateReturns();
    return rc;
}

// A cancelled thread ends here: ThreadSanitizer does not see the end of a cancelled call.
[[gnu::used]] inline int __wrap_pthread_join(pthread_t id, void** result)
{
    pthread_testcancel();
    int const error = plannedError(threadJoin);
    return error != 0 ? error : __real_pthread_join(id, result);
}

[[gnu::used]] inline int __wrap_pthread_key_create(pthread_key_t* key, void (*destroy)(void*))
{
    int const error = plannedError(keyCreate);
    return error != 0 ? error : __real_pthread_key_create(key, destroy);
}

[[gnu::used]] inline int __wrap_pthread_atfork(void (*before)(), void (*inParent)(),
                                               void (*inChild)())
{
    int const error = plannedError(atFork);
    return error != 0 ? error : __real_pthread_atfork(before, inParent, inChild);
}

[[gnu::used]] inline int __wrap_pthread_mutex_init(pthread_mutex_t* mutex,
                                                   pthread_mutexattr_t const* attributes)
{
    threadCalls.defaultAttributes &= attributes == nullptr;
    int const error = plannedError(mutexInit);
    return error != 0 ? error : __real_pthread_mutex_init(mutex, attributes);
}

[[gnu::used]] inline int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex)
{
    int const rc = __real_pthread_mutex_destroy(mutex);
    int const error = plannedError(mutexDestroy);
    return error != 0 ? error : rc;
}

[[gnu::used]] inline int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex)
{
    int const error = plannedError(mutexLock);
    return error != 0 ? error : __real_pthread_mutex_lock(mutex);
}

[[gnu::used]] inline int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex)
{
    int const error = plannedError(mutexUnlock);
    if (error != 0 && threadCalls.fail[mutexUnlock] != 0)
        return error;
    int const rc = __real_pthread_mutex_unlock(mutex);
    return error != 0 ? error : rc;
}

[[gnu::used]] inline int __wrap_pthread_cond_init(pthread_cond_t* condition,
                                                  pthread_condattr_t const* attributes)
{
    threadCalls.defaultAttributes &= attributes == nullptr;
    int const error = plannedError(condInit);
    return error != 0 ? error : __real_pthread_cond_init(condition, attributes);
}

[[gnu::used]] inline int __wrap_pthread_cond_destroy(pthread_cond_t* condition)
{
    int const rc = __real_pthread_cond_destroy(condition);
    int const error = plannedError(condDestroy);
    return error != 0 ? error : rc;
}

[[gnu::used]] inline int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    threadCalls.mutex = mutex;
    if (threadCalls.earlyWaits > 0) {
        --threadCalls.earlyWaits;
        return 0;
    }
    if (withheldCondition.exchange(nullptr) == condition)
        __real_pthread_cond_broadcast(condition);
    int const error = plannedError(condWait);
    return error != 0 ? error : __real_pthread_cond_wait(condition, mutex);
}

[[gnu::used]] inline int __wrap_pthread_cond_timedwait(pthread_cond_t* condition,
                                                       pthread_mutex_t* mutex,
                                                       timespec const* until)
{
    threadCalls.mutex = mutex;
    threadCalls.until = *until;
    int const error = plannedError(condTimedWait);
    return error != 0 ? error : __real_pthread_cond_timedwait(condition, mutex, until);
}

[[gnu::used]] inline int __wrap_pthread_cond_signal(pthread_cond_t* condition)
{
    noteWake();
    int const error = plannedError(condSignal);
    return error != 0 ? error : __real_pthread_cond_signal(condition);
}

[[gnu::used]] inline int __wrap_pthread_cond_broadcast(pthread_cond_t* condition)
{
    noteWake();
    if (withholdsBroadcast.exchange(false)) {
        withheldCondition = condition;
        return 0;
    }
    int const error = plannedError(condBroadcast);
    return error != 0 ? error : __real_pthread_cond_broadcast(condition);
}
}
