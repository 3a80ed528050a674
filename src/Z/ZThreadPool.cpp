#include "ZThreadPool.h"

#include <pthread.h>

#include <algorithm>
#include <new>
#include <utility>

#include "ZArrayList.h"
#include "ZException.h"
#include "ZLock_p.h"
#include "ZThread.h"

namespace {

constexpr char kSource[] = "src/Z/ZThreadPool";

// The number each raise site puts into its report. Log scanners match on it, so it belongs
// to the site and does not follow the line when the file is edited.
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
    reportInWaitForExit = 201
};

enum Message {
    mutexInit = 3,
    mutexDestroy = 4,
    mutexLock = 5,
    mutexUnlock = 6,
    conditionInit = 7,
    conditionDestroy = 8,
    conditionWait = 9,
    conditionSignal = 10
};

[[noreturn]] void raise(Message message, int rc, RaiseSite site)
{
    ZThreadException_6_0(message, rc).throwException(kSource, site);
}

}  // namespace

struct ZThreadPool_6_0::Rep {
    Rep(unsigned most, unsigned mostIdle)
        : idle(std::min(mostIdle, 16u), 0), maximumActive(most), maximumIdle(mostIdle)
    {
        int rc = pthread_mutex_init(&mutex, nullptr);
        if (rc != 0)
            raise(mutexInit, rc, raiseInMutexInit);
        rc = pthread_cond_init(&condition, nullptr);
        if (rc != 0) {
            pthread_mutex_destroy(&mutex);
            raise(conditionInit, rc, raiseInConditionInit);
        }
    }

    ~Rep()
    {
        int rc = pthread_mutex_destroy(&mutex);
        if (rc != 0)
            zreportRc(kSource, reportInMutexDestroy, mutexDestroy, rc);
        rc = pthread_cond_destroy(&condition);
        if (rc != 0)
            zreportRc(kSource, reportInConditionDestroy, conditionDestroy, rc);
    }

    // Returns the index of `thread` among the parked ones, -1 when it is not parked. By address: a
    // thread's id changes with every start.
    int indexOf(ZThread_6_0 const& thread) const
    {
        for (unsigned i = 0; i < idle.size(); ++i)
            if (idle.get(i) == &thread)
                return static_cast<int>(i);
        return -1;
    }

    void forget(ZThread_6_0 const& thread)
    {
        int const index = indexOf(thread);
        if (index >= 0)
            idle.remove(static_cast<unsigned>(index));
    }

    pthread_mutex_t mutex;
    pthread_cond_t condition;
    ZArrayList_6_0 idle;  // the parked threads, borrowed             } guarded by
    unsigned active = 0;  // threads started by the pool and not ended  } mutex
    unsigned const maximumActive;
    unsigned const maximumIdle;
    unsigned closing = 0;  // calls that wait for all to end: nothing is parked meanwhile } guarded
    unsigned waiting = 0;  // threads in a wait on the condition       } by mutex
};

namespace {

// Raises a number for a scope; the mutex is held at both its ends.
class Count {
public:
    explicit Count(unsigned& number) : number_(number) { ++number_; }
    Count(Count const&) = delete;
    Count& operator=(Count const&) = delete;
    ~Count() { --number_; }

private:
    unsigned& number_;
};

// Holds the pool's mutex for a scope.
class Guard {
public:
    explicit Guard(pthread_mutex_t& mutex) : mutex_(&mutex) { lock(); }
    Guard(Guard const&) = delete;
    Guard& operator=(Guard const&) = delete;
    ~Guard()
    {
        if (!locked_)
            return;
        int const rc = pthread_mutex_unlock(mutex_);
        if (rc != 0)
            zreportRc(kSource, raiseInUnlock, mutexUnlock, rc);
    }

    void lock()
    {
        int const rc = pthread_mutex_lock(mutex_);
        if (rc != 0)
            raise(mutexLock, rc, raiseInLock);
        locked_ = true;
    }

    // The release of a call that went well: its failure is raised.
    void unlock()
    {
        locked_ = false;
        int const rc = pthread_mutex_unlock(mutex_);
        if (rc != 0)
            raise(mutexUnlock, rc, raiseInUnlock);
    }

    // A failed wait is reported; the caller looks again.
    void wait(pthread_cond_t& condition, unsigned& waiting)
    {
        Count const counted(waiting);
        int const rc = pthread_cond_wait(&condition, mutex_);
        if (rc != 0)
            zreportRc(kSource, reportInWait, conditionWait, rc);
    }

private:
    pthread_mutex_t* const mutex_;
    bool locked_ = false;
};

// Runs `action`; whatever it raises is reported. Returns whether it raised nothing.
template <class Action>
bool reported(RaiseSite site, Action action)
{
    try {
        action();
        return true;
    } catch (ZException_6_0& failure) {
        zreportException(failure);
    } catch (...) {
        if (zcaughtCancellation())
            throw;
        zreportUnknownException(kSource, site);
    }
    return false;
}

}  // namespace

ZThreadPool_6_0::ZThreadPool_6_0(unsigned int one, unsigned int other)
    : rep_(new (std::nothrow) Rep(std::max(one, other), std::min(one, other)))
{
    if (rep_ == nullptr)
        ZOutOfMemoryException_6_0().throwException(kSource, raiseInMutexInit);
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
    Guard guard(rep_->mutex);
    while (rep_->active >= rep_->maximumActive)
        guard.wait(rep_->condition, rep_->waiting);
    // Counted before it runs: a short thread tells of its death before start() has returned, and
    // waits for the mutex with it.
    ZThreadPool_6_0* const before = std::exchange(thread.pool_, this);
    ++rep_->active;
    // KEPT: a thread that does not start is told to the message service alone; callers see it by
    // its work not being done. Test: ZThreadPool.KeepsQuietAboutAThreadThatDoesNotStart
    if (!reported(reportInStart, [&] { thread.start(); })) {
        thread.pool_ = before;
        --rep_->active;
        return;
    }
    guard.unlock();
}

void ZThreadPool_6_0::getAvailableIdleThread(ZThread_6_0*& thread)
{
    thread = nullptr;
    {
        Guard guard(rep_->mutex);
        if (!rep_->idle.isEmpty()) {
            thread = static_cast<ZThread_6_0*>(
                const_cast<ZObject_6_0*>(static_cast<ZObject_6_0 const*>(rep_->idle.get(0))));
            rep_->idle.remove(0u);
        }
        guard.unlock();
    }
    if (thread == nullptr)
        thread = createThread();
}

void ZThreadPool_6_0::waitForExit()
{
    Guard guard(rep_->mutex);
    // Nothing is parked from here on, until this is left, however that comes about.
    Count const closing(rep_->closing);

    // An ending sleeper needs the mutex to say so: let go of it while waiting for one.
    while (!rep_->idle.isEmpty()) {
        auto* const sleeper =
            static_cast<ZThread_6_0*>(const_cast<ZObject_6_0*>(rep_->idle.get(0)));
        rep_->idle.remove(0u);
        guard.unlock();
        reported(reportInWaitForExit, [&] { sleeper->waitForExit(); });
        guard.lock();
    }
    while (rep_->active != 0)
        guard.wait(rep_->condition, rep_->waiting);
}

void ZThreadPool_6_0::threadDoneNotification(ZThread_6_0& thread, int& keep)
{
    keep = 0;
    Guard guard(rep_->mutex);
    // A parked sleeper with an interval reports again and again: it is parked once.
    if (rep_->closing == 0) {
        bool const parked = rep_->indexOf(thread) >= 0;
        if (!parked && rep_->idle.size() < rep_->maximumIdle)
            rep_->idle.add(&thread);
        keep = rep_->indexOf(thread) >= 0 ? 1 : 0;
    }
    guard.unlock();
}

void ZThreadPool_6_0::threadDeathNotification(ZThread_6_0& thread)
{
    Guard guard(rep_->mutex);
    rep_->forget(thread);
    --rep_->active;
    // One waiter is enough for a free slot; of several, some may wait for the last end instead.
    int const rc = rep_->waiting > 1 ? pthread_cond_broadcast(&rep_->condition)
                                     : pthread_cond_signal(&rep_->condition);
    if (rc != 0)
        raise(conditionSignal, rc, raiseInSignal);
    guard.unlock();
}
