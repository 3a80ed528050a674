#include "ZSleeperThread.h"

#include <limits>

#include "ZLock.h"
#include "ZThreadPool.h"

namespace {

// A flag that is set while a call is under way, however it ends; guarded by the condition's lock.
class Underway {
public:
    Underway(int& calls, ZCondition_6_0& condition) : calls_(calls), condition_(condition)
    {
        ++calls_;
    }
    Underway(Underway const&) = delete;
    Underway& operator=(Underway const&) = delete;
    ~Underway() noexcept(false)
    {
        --calls_;
        condition_.broadcast();
    }

private:
    int& calls_;
    ZCondition_6_0& condition_;
};

}  // namespace

ZSleeperThread_6_0::ZSleeperThread_6_0(int detached, int autoDelete, unsigned long interval)
    : ZThread_6_0(detached, autoDelete),
      exit_(0),
      wake_(0),
      started_(0),
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
      started_(0),
      starts_(0),
      interval_(0),
      wakeCondition_(lock)
{
}

ZSleeperThread_6_0::~ZSleeperThread_6_0()
{
    // A sleeper that deletes itself may be done before its start() has returned.
    ZResourceLock_6_0 const guard(*startCondition_.getResource());
    while (starts_ > 0)
        startCondition_.wait();
}

void ZSleeperThread_6_0::start()
{
    ZResourceLock_6_0 const guard(*startCondition_.getResource());
    Underway const underway(starts_, startCondition_);
    ZThread_6_0::start();
    while (started_ == 0)
        startCondition_.wait();
}

void ZSleeperThread_6_0::waitForExit()
{
    bool const joins = isDetached() == 0;
    {
        ZResourceLock_6_0 const guard(*wakeCondition_.getResource());
        exit_ = 1;
        wakeCondition_.signal();
    }
    // A detached sleeper may be gone by now, or see the flag later: it makes itself ready again.
    if (!joins)
        return;
    ZThread_6_0::waitForExit();
    reset();
}

void ZSleeperThread_6_0::run()
{
    ZResourceLock_6_0 const guard(*wakeCondition_.getResource());
    {
        ZResourceLock_6_0 const startGuard(*startCondition_.getResource());
        started_ = 1;
        startCondition_.broadcast();
    }
    while (exit_ == 0) {
        sleep();
        if (exit_ != 0 || wake_ == 0)
            continue;
        doWork();
        wake_ = 0;
        if (pool() != nullptr) {
            int keep = 0;
            pool()->threadDoneNotification(*this, keep);
            if (keep == 0)
                exit_ = 1;
        }
    }
    if (isDetached() != 0)
        reset();
}

// Sleeps until there is work or the end; a wake-up that came before is not slept through.
void ZSleeperThread_6_0::sleep()
{
    if (wake_ != 0)
        return;
    if (interval_ == 0) {
        wakeCondition_.wait();
        return;
    }
    constexpr unsigned long kLongest = std::numeric_limits<long>::max();
    int timedOut = 0;
    wakeCondition_.wait(static_cast<long>(interval_ < kLongest ? interval_ : kLongest), timedOut);
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
    {
        ZResourceLock_6_0 const guard(*wakeCondition_.getResource());
        exit_ = 0;
    }
    ZResourceLock_6_0 const guard(*startCondition_.getResource());
    started_ = 0;
}
