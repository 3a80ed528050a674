// ZThreadPool: limits the number of running threads and keeps idle sleepers for reuse.
//
// Subsystem: threads.  Stands on: ZObject, ZException, ZLock, ZArrayList, ZThread.
//
// Get a thread with getAvailableIdleThread() and give it its work. Wake it up if it is a parked
// sleeper; start() it through the pool if it is new.
// Ownership: threads are borrowed; they must live until they have ended.
// Threads: any number of threads may use a pool at the same time. A thread takes the wake lock of a
// sleeper before the pool's mutex: do not wake a sleeper from within a call of the pool.
#pragma once

#include "ZObject.h"

class ZThread_6_0;

class ZThreadPool_6_0 : public ZObject_6_0 {
public:
    /// Creates a pool. The larger number limits the running threads, the smaller one the parked
    /// threads.
    /// range   if both are 0, start() waits forever.
    /// throws  ZThreadException_6_0 (messages 3, 7) with the rc of the call that failed.
    ZThreadPool_6_0(unsigned int one, unsigned int other);
    ZThreadPool_6_0(ZThreadPool_6_0 const&) = delete;
    ZThreadPool_6_0& operator=(ZThreadPool_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Destroys the pool without waiting for threads. Reports failures (messages 4, 8).
    ~ZThreadPool_6_0() override;

    /// Always throws.
    /// throws  ZNotClonableException_6_0.
    [[noreturn]] ZObject_6_0* clone() const override;

    /// Creates a thread for getAvailableIdleThread(). The base class returns null.
    /// owns    owned by the caller of getAvailableIdleThread().
    virtual ZThread_6_0* createThread();

    /// Starts `thread`; waits first while the maximum number of threads is running.
    /// throws  ZThreadException_6_0 (messages 5, 6) if the mutex fails.
    /// kept    if the thread does not start, reports that through the message service, frees the
    ///         slot and returns normally.
    void start(ZThread_6_0& thread);

    /// Returns a parked thread; if none is parked, the result of createThread().
    /// owns    a parked thread is borrowed; for a new one see createThread().
    /// throws  ZThreadException_6_0 (messages 5, 6) if the mutex fails; as createThread().
    void getAvailableIdleThread(ZThread_6_0*& thread);

    /// Ends the parked sleepers and waits until no thread of the pool is running. No thread is
    /// parked during the call; afterwards the pool is usable again. The call joins joinable parked
    /// sleepers: do not wait for them again.
    /// throws  ZThreadException_6_0 (messages 5, 6) if the mutex fails.
    void waitForExit();

    /// Called by a sleeper after each unit of work; sets `keep` to 1 if the sleeper is parked, else
    /// 0.
    /// throws  ZThreadException_6_0 (messages 5, 6) if the mutex fails; ZOutOfMemoryException_6_0.
    void threadDoneNotification(ZThread_6_0& thread, int& keep);

    /// Called by a thread of the pool when it ends.
    /// throws  ZThreadException_6_0 (messages 5, 6, 10) if the mutex or signalling fails.
    void threadDeathNotification(ZThread_6_0& thread);

private:
    void startInSlot(ZThread_6_0& thread);

    struct Rep;       // ZThreadPool.cpp
    Rep* const rep_;  // never null
};
