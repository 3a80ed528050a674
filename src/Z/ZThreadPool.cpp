#include "ZThreadPool.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <new>
#include <utility>

#include "ZArrayList.h"
#include "ZException.h"
#include "ZThread.h"
#include "memory/rep.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZThreadPool";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInMutexInit = 52,
    raiseInConditionInit = 58,
    reportInMutexDestroy = 71,
    reportInConditionDestroy = 76,
    raiseInClone = 84,
    raiseInLock = 97,
    raiseInUnlock = 109,
    reportInWait = 126,
    reportInStart = 148,
    raiseInSignal = 173,
    reportInWaitForExit = 201,
    reportInWake = 208
};

using zreporting::Message;
using enum zreporting::Message;

[[noreturn]] void throwThreadException(Message message, int rc, RaiseSite site)
{
    ZThreadException_6_0(message, rc).throwException(kSource, site);
}

}  // namespace

struct ZThreadPool_6_0::Rep {
    // Marks a sleeper that waitForExit() is shutting down. Created and destroyed under the mutex.
    struct ShutdownRequest {
        ShutdownRequest(Rep& pool, ZThread_6_0& sleeper)
            : rep(pool), thread(sleeper), next(pool.shutdowns)
        {
            rep.shutdowns = this;
        }
        ShutdownRequest(ShutdownRequest const&) = delete;
        ShutdownRequest& operator=(ShutdownRequest const&) = delete;
        ~ShutdownRequest()
        {
            ShutdownRequest** link = &rep.shutdowns;
            while (*link != this)
                link = &(*link)->next;
            *link = next;
            // The ending thread may wait for the mark to be removed.
            rep.wake();
        }

        Rep& rep;
        ZThread_6_0& thread;
        ShutdownRequest* next;
    };

    Rep(unsigned maxActive, unsigned maxIdle)
        : idle(std::min(maxIdle, 16u), 0), maximumActive(maxActive), maximumIdle(maxIdle)
    {
        int rc = pthread_mutex_init(&mutex, nullptr);
        if (rc != 0)
            throwThreadException(mutexInit, rc, raiseInMutexInit);
        rc = pthread_cond_init(&condition, nullptr);
        if (rc != 0) {
            pthread_mutex_destroy(&mutex);
            throwThreadException(conditionInit, rc, raiseInConditionInit);
        }
    }

    ~Rep()
    {
        int rc = pthread_mutex_destroy(&mutex);
        if (rc != 0)
            zreporting::reportRc({kSource, reportInMutexDestroy}, mutexDestroy, rc);
        rc = pthread_cond_destroy(&condition);
        if (rc != 0)
            zreporting::reportRc({kSource, reportInConditionDestroy}, conditionDestroy, rc);
    }

    // Returns the index of `thread` in the parked threads, -1 if it is not parked. Compares
    // addresses because a thread's id changes with every start.
    int indexOf(ZThread_6_0 const& thread) const
    {
        for (unsigned i = 0; i < idle.size(); ++i)
            if (idle.get(i) == &thread)
                return static_cast<int>(i);
        return -1;
    }

    // Removes and returns the thread that was parked first; null if no thread is parked.
    ZThread_6_0* popIdle()
    {
        if (idle.isEmpty())
            return nullptr;
        auto* const thread = const_cast<ZObject_6_0*>(idle.get(0));
        idle.remove(0u);
        return static_cast<ZThread_6_0*>(thread);
    }

    bool isShuttingDown(ZThread_6_0 const& thread) const
    {
        for (ShutdownRequest const* request = shutdowns; request != nullptr;
             request = request->next)
            if (&request->thread == &thread)
                return true;
        return false;
    }

    // Wakes waiters after a change. Waking one is enough for a free slot, but if several wait, some
    // may wait for something else: wake all.
    int signal()
    {
        int const rc =
            waiting > 1 ? pthread_cond_broadcast(&condition) : pthread_cond_signal(&condition);
        // Do not lose the wake-up because the signal failed.
        if (rc != 0)
            pthread_cond_broadcast(&condition);
        return rc;
    }

    // As signal(), but reports a failure.
    void wake()
    {
        int const rc = signal();
        if (rc != 0)
            zreporting::reportRc({kSource, reportInWake}, conditionSignal, rc);
    }

    void removeIdle(ZThread_6_0 const& thread)
    {
        int const index = indexOf(thread);
        if (index >= 0)
            idle.remove(static_cast<unsigned>(index));
    }

    pthread_mutex_t mutex;
    pthread_cond_t condition;
    // Guarded by mutex.
    ZArrayList_6_0 idle;  // parked threads, borrowed
    unsigned active = 0;  // threads started by the pool, not ended
    unsigned const maximumActive;
    unsigned const maximumIdle;
    unsigned closing = 0;                  // waitForExit() calls; no thread is parked during them
    unsigned waiting = 0;                  // threads that wait on the condition
    ShutdownRequest* shutdowns = nullptr;  // sleepers that are being shut down
};

namespace {

// Increments `number` in this scope. The mutex must be held at both ends.
class ScopedIncrement {
public:
    explicit ScopedIncrement(unsigned& number) : number_(number) { ++number_; }
    ScopedIncrement(ScopedIncrement const&) = delete;
    ScopedIncrement& operator=(ScopedIncrement const&) = delete;
    ~ScopedIncrement() { --number_; }

private:
    unsigned& number_;
};

// Holds the pool's mutex in this scope.
class MutexGuard {
public:
    explicit MutexGuard(pthread_mutex_t& mutex) : mutex_(&mutex) { lock(); }
    enum Retry { retry };
    MutexGuard(pthread_mutex_t& mutex, Retry) : mutex_(&mutex)
    {
        if (pthread_mutex_lock(mutex_) == 0)
            locked_ = true;
        else
            lock();
    }
    MutexGuard(MutexGuard const&) = delete;
    MutexGuard& operator=(MutexGuard const&) = delete;
    ~MutexGuard()
    {
        if (!locked_)
            return;
        int const rc = pthread_mutex_unlock(mutex_);
        if (rc != 0)
            zreporting::reportRc({kSource, raiseInUnlock}, mutexUnlock, rc);
    }

    void lock()
    {
        int const rc = pthread_mutex_lock(mutex_);
        if (rc != 0)
            throwThreadException(mutexLock, rc, raiseInLock);
        locked_ = true;
    }

    // Releases the mutex at the end of a successful call, so a failure throws.
    void unlock()
    {
        locked_ = false;
        int const rc = pthread_mutex_unlock(mutex_);
        if (rc != 0)
            throwThreadException(mutexUnlock, rc, raiseInUnlock);
    }

    // Reports a failed wait and lets other threads take the mutex; the caller must check its
    // condition again.
    void wait(pthread_cond_t& condition, unsigned& waiting)
    {
        int rc = 0;
        {
            ScopedIncrement const counted(waiting);
            rc = pthread_cond_wait(&condition, mutex_);
        }
        if (rc == 0)
            return;
        zreporting::reportRc({kSource, reportInWait}, conditionWait, rc);
        unlock();
        sched_yield();
        lock();
    }

private:
    pthread_mutex_t* const mutex_;
    bool locked_ = false;
};

// Releases the pool's mutex in this scope.
class ScopedUnlock {
public:
    explicit ScopedUnlock(MutexGuard& guard) : guard_(guard)
    {
        zreporting::reportExceptions({kSource, raiseInUnlock}, [&] { guard_.unlock(); });
    }
    ScopedUnlock(ScopedUnlock const&) = delete;
    ScopedUnlock& operator=(ScopedUnlock const&) = delete;
    ~ScopedUnlock() noexcept(false)
    {
        zreporting::runInDestructor({kSource, raiseInLock}, [this] { guard_.lock(); });
    }

private:
    MutexGuard& guard_;
};

}  // namespace

ZThreadPool_6_0::ZThreadPool_6_0(unsigned int one, unsigned int other)
    : rep_(zmemory::makeRep<Rep>(kSource, raiseInMutexInit, std::max(one, other),
                                 std::min(one, other)))
{
}

ZThreadPool_6_0::~ZThreadPool_6_0()
{
    delete rep_;
}

ZObject_6_0* ZThreadPool_6_0::clone() const
{
    ZNotClonableException_6_0().throwException(kSource, raiseInClone);
}

ZThread_6_0* ZThreadPool_6_0::createThread()
{
    return nullptr;
}

void ZThreadPool_6_0::start(ZThread_6_0& thread)
{
    MutexGuard guard(rep_->mutex);
    while (rep_->active >= rep_->maximumActive)
        guard.wait(rep_->condition, rep_->waiting);
    startInSlot(thread);
    guard.unlock();
}

void ZThreadPool_6_0::startInSlot(ZThread_6_0& thread)
{
    // Frees the slot unless a thread was created; a created thread frees it when it ends. start()
    // can fail or be cancelled before or after the creation. The ending thread needs the mutex, so
    // `thread` is still valid here.
    struct Slot {
        Rep& rep;
        ZThread_6_0& thread;
        ZThreadPool_6_0* const poolBefore;
        unsigned const creationsBefore;

        ~Slot()
        {
            if (thread.creations_ != creationsBefore)
                return;
            thread.pool_ = poolBefore;
            --rep.active;
            rep.wake();
        }
    };
    // Count the thread before it runs: a short one reports its end before start() returns.
    Slot const slot{*rep_, thread, std::exchange(thread.pool_, this), thread.creations_};
    ++rep_->active;
    // KEPT: a thread that does not start is only reported through the message service. An exception
    // would end a program whose calls of start() have no handler.
    // Test: ZThreadPool.KeepsQuietAboutAThreadThatDoesNotStart
    zreporting::reportExceptions({kSource, reportInStart}, [&] { thread.start(); });
}

void ZThreadPool_6_0::getAvailableIdleThread(ZThread_6_0*& thread)
{
    thread = nullptr;
    {
        MutexGuard guard(rep_->mutex);
        thread = rep_->popIdle();
        guard.unlock();
    }
    if (thread == nullptr)
        thread = createThread();
}

void ZThreadPool_6_0::waitForExit()
{
    MutexGuard guard(rep_->mutex);
    {
        // No thread is parked until the end of this scope.
        ScopedIncrement const closing(rep_->closing);
        while (ZThread_6_0* const sleeper = rep_->popIdle()) {
            // An ending sleeper needs the mutex to report its end: release it.
            Rep::ShutdownRequest const request(*rep_, *sleeper);
            ScopedUnlock const unlocked(guard);
            zreporting::reportExceptions({kSource, reportInWaitForExit},
                                         [&] { sleeper->waitForExit(); });
        }
        while (rep_->active != 0)
            guard.wait(rep_->condition, rep_->waiting);
    }
    guard.unlock();
}

void ZThreadPool_6_0::threadDoneNotification(ZThread_6_0& thread, int& keep)
{
    keep = 0;
    MutexGuard guard(rep_->mutex);
    // A parked sleeper with an interval reports repeatedly: park it only once.
    if (rep_->closing == 0) {
        bool const parked = rep_->indexOf(thread) >= 0;
        bool const hasSpace = rep_->idle.size() < rep_->maximumIdle;
        if (!parked && hasSpace)
            rep_->idle.add(&thread);
        keep = parked || hasSpace ? 1 : 0;
    }
    guard.unlock();
}

void ZThreadPool_6_0::threadDeathNotification(ZThread_6_0& thread)
{
    // Try the mutex twice: without it the slot would leak.
    MutexGuard guard(rep_->mutex, MutexGuard::retry);
    // A detached thread may delete its object after this call. Wait while waitForExit() still uses
    // it.
    while (thread.detached_ != 0 && rep_->isShuttingDown(thread))
        guard.wait(rep_->condition, rep_->waiting);
    rep_->removeIdle(thread);
    --rep_->active;
    int const rc = rep_->signal();
    if (rc != 0)
        throwThreadException(conditionSignal, rc, raiseInSignal);
    guard.unlock();
}
