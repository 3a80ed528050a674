// ZThreadPool: bounds the threads that run at once, and keeps idle sleepers for reuse.
//
// Subsystem: threads.  Stands on: ZObject, ZException, ZLock, ZArrayList, ZThread.
//
// Get a thread with getAvailableIdleThread(), hand it its work, then wake it up if it is a parked
// sleeper or start() it through the pool if it is new.
// Ownership: threads are borrowed; they must live until they have ended.
// Threads: for use by every thread at once. A sleeper's wake lock is taken before the pool's mutex:
// do not wake a sleeper from within a call of the pool.
#pragma once

#include "ZObject.h"

class ZThread_6_0;

class ZThreadPool_6_0 : public ZObject_6_0 {
public:
    /// Makes a pool that runs at most as many threads as the larger number says, and parks at most
    /// as many as the smaller one says.
    /// range   with 0 for both no thread ever starts: start() waits for ever.
    /// throws  ZThreadException_6_0 (messages 3, 7) with the rc of the call that failed.
    ZThreadPool_6_0(unsigned int one, unsigned int other);
    ZThreadPool_6_0(ZThreadPool_6_0 const&) = delete;
    ZThreadPool_6_0& operator=(ZThreadPool_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Destroys the pool; waits for no thread. Failures are reported (messages 4, 8).
    ~ZThreadPool_6_0() override;

    /// Refuses.
    /// throws  ZNotClonableException_6_0, always.
    [[noreturn]] ZObject_6_0* clone() const override;

    /// Makes a thread for getAvailableIdleThread(); returns null here.
    /// owns    owned by who asked for it.
    virtual ZThread_6_0* createThread();

    /// Starts `thread`, waiting while as many run as may.
    /// throws  ZThreadException_6_0 (messages 5, 6) when the mutex fails.
    /// kept    a thread that does not start is reported through the message service, not counted,
    ///         and the call returns as if it had.
    void start(ZThread_6_0& thread);

    /// Hands out a parked thread, or what createThread() makes when there is none.
    /// owns    a parked thread is borrowed; for a new one see createThread().
    /// throws  ZThreadException_6_0 (messages 5, 6) when the mutex fails; as createThread().
    void getAvailableIdleThread(ZThread_6_0*& thread);

    /// Lets the parked sleepers end and waits until no thread of the pool runs; none is parked
    /// meanwhile. The pool is then as it was. Parked sleepers that are not detached have been
    /// waited for: waiting for one again raises.
    /// throws  ZThreadException_6_0 (messages 5, 6) when the mutex fails.
    void waitForExit();

    /// Is called by a sleeper behind each unit of work; `keep` tells whether it is parked.
    /// throws  ZThreadException_6_0 (messages 5, 6) when the mutex fails; or
    ///         ZOutOfMemoryException_6_0.
    void threadDoneNotification(ZThread_6_0& thread, int& keep);

    /// Is called by a thread of the pool that ends.
    /// throws  ZThreadException_6_0 (messages 5, 6, 10) when the mutex or signalling fails.
    void threadDeathNotification(ZThread_6_0& thread);

private:
    void startInSlot(ZThread_6_0& thread);

    struct Rep;       // ZThreadPool.cpp
    Rep* const rep_;  // never null
};
