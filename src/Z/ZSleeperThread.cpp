#include "ZSleeperThread.h"

#include <sched.h>

#include <limits>

#include "ZException.h"
#include "ZLock.h"
#include "ZThreadPool.h"
#include "reporting/failures.h"

namespace {

constexpr char kSource[] = "src/Z/ZSleeperThread";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum ReportSite { reportInLoopEnd = 47, reportInDestructor = 110 };

// Counts calls in progress. Guarded by the condition's lock.
class CallInProgress {
public:
    CallInProgress(int& calls, ZCondition_6_0& condition) : calls_(calls), condition_(condition)
    {
        ++calls_;
    }
    CallInProgress(CallInProgress const&) = delete;
    CallInProgress& operator=(CallInProgress const&) = delete;
    ~CallInProgress()
    {
        --calls_;
        try {
            condition_.broadcast();
        } catch (ZException_6_0 const&) {
            // It is reported where it was thrown.
        }
    }

private:
    int& calls_;
    ZCondition_6_0& condition_;
};

// Clears the wake flag after a unit of work, even if the work throws or is cancelled: the next
// start does not repeat it. A thread that waits to wake the sleeper sets the flag afterwards.
class ClearWakeFlag {
public:
    explicit ClearWakeFlag(int& wake) : wake_(wake) {}
    ClearWakeFlag(ClearWakeFlag const&) = delete;
    ClearWakeFlag& operator=(ClearWakeFlag const&) = delete;
    // KEPT: clears the flag even if the work itself set it. Work that wakes its own sleeper would
    // run without end. Test: ZSleeperThread.KeepsNoWakeUpOfItsOwnWork
    ~ClearWakeFlag() { wake_ = 0; }

private:
    int& wake_;
};

}  // namespace

// Reports the start of the loop to start(), even if the loop fails first. At the end a detached
// sleeper resets itself, because no thread waits for it.
class ZSleeperThread_6_0::Begin {
public:
    explicit Begin(ZSleeperThread_6_0& sleeper) : sleeper_(sleeper) {}
    Begin(Begin const&) = delete;
    Begin& operator=(Begin const&) = delete;
    ~Begin()
    {
        zreporting::runCleanup({kSource, reportInLoopEnd}, [this] {
            if (!reported_)
                reportStart();
            ZResourceLock_6_0 const guard(*sleeper_.wakeCondition_.getResource());
            sleeper_.looping_ = 0;
            if (sleeper_.isDetached() != 0)
                sleeper_.exit_ = 0;
        });
    }

    void reportStart()
    {
        ZResourceLock_6_0 const guard(*sleeper_.startCondition_.getResource());
        ++sleeper_.begun_;
        sleeper_.startCondition_.broadcast();
        reported_ = true;
    }

private:
    ZSleeperThread_6_0& sleeper_;
    bool reported_ = false;
};

ZSleeperThread_6_0::ZSleeperThread_6_0(int detached, int autoDelete, unsigned long interval)
    : ZThread_6_0(detached, autoDelete),
      exit_(0),
      wake_(0),
      looping_(0),
      begun_(0),
      starts_(0),
      interval_(interval)
{
}

ZSleeperThread_6_0::ZSleeperThread_6_0(unsigned long interval) : ZSleeperThread_6_0(0, 0, interval)
{
}

ZSleeperThread_6_0::ZSleeperThread_6_0(int detached, int autoDelete)
    : ZSleeperThread_6_0(detached, autoDelete, 0)
{
}

ZSleeperThread_6_0::ZSleeperThread_6_0() : ZSleeperThread_6_0(0, 0, 0)
{
}

ZSleeperThread_6_0::ZSleeperThread_6_0(ZLock_6_0& lock)
    : ZThread_6_0(0, 0),
      exit_(0),
      wake_(0),
      looping_(0),
      begun_(0),
      starts_(0),
      interval_(0),
      wakeCondition_(lock)
{
}

ZSleeperThread_6_0::~ZSleeperThread_6_0()
{
    zreporting::runCleanup({kSource, reportInDestructor}, [this] {
        // A sleeper that deletes itself may end before its start() has returned.
        ZResourceLock_6_0 const guard(*startCondition_.getResource());
        while (starts_ > 0)
            startCondition_.wait();
    });
}

void ZSleeperThread_6_0::start()
{
    ZResourceLock_6_0 const guard(*startCondition_.getResource());
    CallInProgress const inProgress(starts_, startCondition_);
    // Compare a count: a short loop may already have ended when this thread wakes up.
    unsigned const before = begun_;
    ZThread_6_0::start();
    while (begun_ == before)
        waitForBegin();
}

void ZSleeperThread_6_0::waitForBegin()
{
    try {
        startCondition_.wait();
    } catch (ZConditionException_6_0 const&) {
        // It is reported where it was thrown. The new thread exists and needs the lock to start.
        startCondition_.unlock();
        sched_yield();
        startCondition_.lock();
    }
}

void ZSleeperThread_6_0::waitForExit()
{
    bool const joins = isDetached() == 0;
    // Do not set exit_ if no loop runs: it would end the next one.
    if (joins && isJoinable() == 0)
        return ZThread_6_0::waitForExit();
    {
        ZResourceLock_6_0 const guard(*wakeCondition_.getResource());
        if (joins || looping_ != 0) {
            exit_ = 1;
            wakeCondition_.signal();
        }
    }
    // A detached sleeper may already be deleted, or may read the flag later.
    if (!joins)
        return;
    ZThread_6_0::waitForExit();
    reset();
}

void ZSleeperThread_6_0::run()
{
    Begin begin(*this);
    ZResourceLock_6_0 const guard(*wakeCondition_.getResource());
    looping_ = 1;
    begin.reportStart();
    while (exit_ == 0) {
        sleep();
        if (exit_ != 0 || wake_ == 0)
            continue;
        {
            ClearWakeFlag const clear(wake_);
            doWork();
        }
        if (pool() != nullptr) {
            int keep = 0;
            pool()->threadDoneNotification(*this, keep);
            if (keep == 0)
                exit_ = 1;
        }
    }
}

// Sleeps until there is work or the loop must end; returns immediately after an earlier wake-up.
void ZSleeperThread_6_0::sleep()
{
    if (wake_ != 0)
        return;
    if (interval_ == 0) {
        wakeCondition_.wait();
        return;
    }
    constexpr unsigned long kMaxInterval = std::numeric_limits<long>::max();
    int timedOut = 0;
    wakeCondition_.wait(static_cast<long>(interval_ < kMaxInterval ? interval_ : kMaxInterval),
                        timedOut);
    if (timedOut != 0)
        wake_ = 1;
}

void ZSleeperThread_6_0::wakeUp()
{
    ZResourceLock_6_0 const guard(*wakeCondition_.getResource());
    wake_ = 1;
    wakeCondition_.signal();
}

void ZSleeperThread_6_0::reset()
{
    ZResourceLock_6_0 const guard(*wakeCondition_.getResource());
    exit_ = 0;
}
