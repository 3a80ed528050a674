// ZThread: a thread around a run() of the user's, and objects that belong to a thread.
//
// Subsystem: threads.  Stands on: ZObject, ZException, ZMessage, ZLock, ZThreadPool.
//
// Ownership: the object is the caller's, and must live until its thread has ended; a detached
// thread with the auto-delete flag deletes its object itself as it ends (make it with new).
// Threads: start() and waitForExit() are called by one thread at a time.
#pragma once

#include "ZObject.h"

class ZThreadPool_6_0;

class ZThread_6_0 : public ZObject_6_0 {
public:
    /// Makes a thread that is not started.
    /// range   `detached` non-zero: nobody waits for its end. `autoDelete` counts for detached
    ///         threads alone.
    ZThread_6_0(int detached, int autoDelete);

    /// Wraps a thread that runs already, joinable.
    /// range   `threadId` is a pthread_t.
    explicit ZThread_6_0(unsigned long threadId);
    ZThread_6_0(ZThread_6_0 const&) = delete;
    ZThread_6_0& operator=(ZThread_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZThread_6_0() override;

    /// Returns the thread id, folded to 32 bits.
    uint32_t hash() const override;

    /// Orders by thread id: -1, 0 or 1.
    /// range   `other` is a ZThread_6_0; with anything else compares addresses.
    int compare(ZObject_6_0 const& other) const override;

    /// Refuses.
    /// throws  ZNotClonableException_6_0, always.
    [[noreturn]] ZObject_6_0* clone() const override;

    /// Starts the thread and stores its id. The thread may end, and delete its object, before this
    /// returns.
    /// throws  ZThreadException_6_0 (messages 15, 16, 17) with the rc of the call that failed.
    virtual void start();

    /// Waits for the thread's end; returns at once for a detached thread.
    /// throws  ZThreadException_6_0 (message 20): the rc of pthread_join(), or ESRCH for a thread
    ///         that was not started or was waited for already.
    /// threads a wait that is cancelled leaves the thread to be waited for again.
    virtual void waitForExit();

    /// Does the thread's work. An exception that leaves it ends the thread and is reported through
    /// the message service; cancelling the thread ends it too.
    virtual void run() = 0;

    /// Is called by the ending thread, however it ends; does nothing here.
    virtual void exit();

    /// Returns the pthread_t of the last start; 0 before the first one. It is that of the new
    /// thread as soon as the thread runs, and when start() returns.
    unsigned long getPThreadID() const;

    // Objects that belong to a thread: every thread has one of its own for a key.

    /// Makes a key; an object that a thread has for it is deleted when the thread ends.
    /// throws  ZThreadException_6_0 (message 29) with the rc of pthread_key_create().
    static void createThreadKey(unsigned int& key);

    /// Sets the calling thread's object for `key`.
    /// owns    taken over by the thread until it is replaced.
    /// throws  ZThreadException_6_0 (message 30) with the rc of pthread_setspecific().
    static void setThreadObject(unsigned int& key, ZObject_6_0* object);

    /// Returns the calling thread's object for `key`; null when it has none.
    static ZObject_6_0* getThreadObject(unsigned int& key);

    /// Deletes `object`; null is ignored.
    static void key_delete_routine(ZObject_6_0* object);

protected:
    int isDetached() const { return detached_; }
    int isAutoDelete() const { return autoDelete_; }
    int isJoinable() const;  // started, not detached, and not waited for yet
    ZThreadPool_6_0* pool() const { return pool_; }

private:
    friend class ZThreadPool_6_0;  // sets pool_, sees by creations_ whether a start made a thread
    struct Entry;                  // ZThread.cpp

    unsigned long id_;  // atomic: a pthread_t, 0 before the start
    int const detached_;
    int const autoDelete_;
    ZThreadPool_6_0* pool_;  // the pool that started it, or null; set before the start
    int joinable_;           // atomic: may be joined; a detached thread's gate while it is started
    unsigned creations_;     // threads made for this object; changed by start()
};
