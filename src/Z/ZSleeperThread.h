// ZSleeperThread: a thread that sleeps until it is woken or an interval is over, then does one unit
// of work.
//
// Subsystem: threads.  Stands on: ZException, ZThread, ZCondition, ZLock, ZThreadPool.
//
// Ownership: as ZThread.
// Threads: wakeUp() is for every thread. The wake lock is held while the work is done: a wakeUp()
// meanwhile waits for its end and counts for the next unit; several of them count as one.
#pragma once

#include "ZCondition.h"
#include "ZThread.h"

class ZSleeperThread_6_0 : public ZThread_6_0 {
public:
    /// Makes a sleeper that is not started.
    /// units   `interval` is whole seconds between units of work without being woken; 0: never.
    ZSleeperThread_6_0(int detached, int autoDelete, unsigned long interval);

    /// Makes a joinable sleeper.
    explicit ZSleeperThread_6_0(unsigned long interval);

    /// Makes a sleeper that works only when woken.
    ZSleeperThread_6_0(int detached, int autoDelete);

    /// Makes a joinable sleeper that works only when woken.
    ZSleeperThread_6_0();

    /// Makes a joinable sleeper that works only when woken, and sleeps on `lock`.
    /// owns    `lock` is borrowed until the sleeper is destroyed.
    /// threads start() and waitForExit() wait for the sleeper, which needs the lock: a thread that
    ///         holds it then waits for ever.
    explicit ZSleeperThread_6_0(ZLock_6_0& lock);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZSleeperThread_6_0() override;

    /// Starts the thread and waits until it runs its loop.
    /// throws  as ZThread_6_0::start().
    void start() override;

    /// Ends the loop, behind the unit of work that is being done, and waits for the thread's end
    /// unless it is detached. The sleeper may be started again, a detached one once its loop has
    /// ended; where a detached one does not run, nothing happens.
    /// throws  as ZThread_6_0::waitForExit().
    void waitForExit() override;

    void run() override;

    /// Does one unit of work. An exception that leaves it ends the thread; the unit is done then,
    /// and the next start does not repeat it.
    virtual void doWork() = 0;

    /// Wakes the sleeper for one unit of work. Before a start, or while work is done, the wake-up
    /// is kept for the next unit. kept    called by the work itself it wakes nobody: the flag is
    /// cleared behind the work.
    void wakeUp();

    /// Makes an ended sleeper ready for another start; waitForExit() has done so.
    void reset();

private:
    class Begin;  // ZSleeperThread.cpp

    void waitForBegin();
    void sleep();

    int exit_;        // the loop must end        } guarded by
    int wake_;        // work is pending          } wakeCondition_'s
    int looping_;     // there is a loop to end   } lock
    unsigned begun_;  // loops begun              } guarded by
    int starts_;      // start() calls under way  } startCondition_'s lock
    unsigned long const interval_;
    ZCondition_6_0 startCondition_;
    ZCondition_6_0 wakeCondition_;
};
