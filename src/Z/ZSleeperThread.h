// ZSleeperThread: a thread that sleeps until another thread wakes it or an interval has passed,
// then does one unit of work.
//
// Subsystem: threads.  Stands on: ZException, ZThread, ZCondition, ZLock, ZThreadPool.
//
// Ownership: as ZThread.
// Threads: any thread may call wakeUp(). The wake lock is held during the work: a wakeUp() in that
// time waits for the work to end and then starts the next unit. Several such calls start only one
// unit.
#pragma once

#include "ZCondition.h"
#include "ZThread.h"

class ZSleeperThread_6_0 : public ZThread_6_0 {
public:
    /// Creates a sleeper without starting it.
    /// units   `interval` is the number of whole seconds after which the sleeper works without
    ///         being woken; 0 is never.
    ZSleeperThread_6_0(int detached, int autoDelete, unsigned long interval);

    /// Creates a joinable sleeper.
    explicit ZSleeperThread_6_0(unsigned long interval);

    /// Creates a sleeper that works only when woken.
    ZSleeperThread_6_0(int detached, int autoDelete);

    /// Creates a joinable sleeper that works only when woken.
    ZSleeperThread_6_0();

    /// Creates a joinable sleeper that works only when woken, and sleeps on `lock`.
    /// owns    `lock` is borrowed until the sleeper is destroyed.
    /// threads start() and waitForExit() wait for the sleeper, which needs the lock: a thread that
    ///         calls them while it holds the lock waits forever.
    explicit ZSleeperThread_6_0(ZLock_6_0& lock);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZSleeperThread_6_0() override;

    /// Starts the thread and waits until its loop has started.
    /// throws  as ZThread_6_0::start().
    void start() override;

    /// Ends the loop after the current unit of work and, unless the thread is detached, waits for
    /// it to end. The sleeper can then be started again, a detached one as soon as its loop has
    /// ended. Does nothing for a detached sleeper that is not running.
    /// throws  as ZThread_6_0::waitForExit().
    void waitForExit() override;

    void run() override;

    /// Does one unit of work. An exception that leaves doWork() ends the thread. The unit is done
    /// then: the next start does not repeat it.
    virtual void doWork() = 0;

    /// Wakes the sleeper for one unit of work. A wake-up before the start or during the work is
    /// kept for the next unit.
    /// kept    has no effect if the work itself calls it: the flag is cleared after the work.
    void wakeUp();

    /// Prepares an ended sleeper for another start; waitForExit() calls it.
    void reset();

private:
    class Begin;  // ZSleeperThread.cpp

    void waitForBegin();
    void sleep();

    int exit_;        // the loop must end        } guarded by
    int wake_;        // work is pending          } wakeCondition_'s
    int looping_;     // a loop runs              } lock
    unsigned begun_;  // number of loops started  } guarded by
    int starts_;      // start() calls in flight  } startCondition_'s lock
    unsigned long const interval_;
    ZCondition_6_0 startCondition_;
    ZCondition_6_0 wakeCondition_;
};
