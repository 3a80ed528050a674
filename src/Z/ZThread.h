// ZThread: a thread that runs a virtual run(), and thread-specific objects.
//
// Subsystem: threads.  Stands on: ZObject, ZException, ZMessage, ZLock, ZThreadPool.
//
// Ownership: the caller owns the object and must keep it until its thread has ended. A detached
// thread with the auto-delete flag deletes its object when it ends (create it with new).
// Threads: only one thread at a time may call start() and waitForExit().
#pragma once

#include "ZObject.h"

class ZThreadPool_6_0;

class ZThread_6_0 : public ZObject_6_0 {
public:
    /// Creates a thread without starting it.
    /// range   if `detached` is not 0, no thread waits for its end. `autoDelete` is ignored unless
    ///         the thread is detached.
    ZThread_6_0(int detached, int autoDelete);

    /// Wraps a running, joinable thread.
    /// range   `threadId` is a pthread_t.
    explicit ZThread_6_0(unsigned long threadId);
    ZThread_6_0(ZThread_6_0 const&) = delete;
    ZThread_6_0& operator=(ZThread_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZThread_6_0() override;

    /// Returns the thread id, folded to 32 bits.
    uint32_t hash() const override;

    /// Orders by thread id: -1, 0 or 1.
    /// range   `other` is a ZThread_6_0; compares addresses if it is not.
    int compare(ZObject_6_0 const& other) const override;

    /// Always throws.
    /// throws  ZNotClonableException_6_0.
    [[noreturn]] ZObject_6_0* clone() const override;

    /// Starts the thread and stores its id. The thread may end, and delete its object, before
    /// start() returns.
    /// throws  ZThreadException_6_0 (messages 15, 16, 17) with the rc of the call that failed.
    virtual void start();

    /// Waits for the thread to end; returns immediately for a detached thread.
    /// throws  ZThreadException_6_0 (message 20): the rc of pthread_join(), or ESRCH if the thread
    ///         was not started or was already waited for.
    /// threads a cancelled wait leaves the thread joinable.
    virtual void waitForExit();

    /// Does the thread's work. An exception that leaves run() ends the thread and is reported
    /// through the message service. Cancellation ends the thread too.
    virtual void run() = 0;

    /// Called by the ending thread, whatever ended it. The base class does nothing.
    virtual void exit();

    /// Returns the pthread_t of the last start; 0 before the first start. The new id is stored
    /// before the thread runs, and before start() returns.
    unsigned long getPThreadID() const;

    // Thread-specific objects: each thread has its own object for a key.

    /// Creates a key. When a thread ends, its object for the key is deleted.
    /// throws  ZThreadException_6_0 (message 29) with the rc of pthread_key_create().
    static void createThreadKey(unsigned int& key);

    /// Sets the calling thread's object for `key`.
    /// owns    taken over by the thread until it sets another object.
    /// throws  ZThreadException_6_0 (message 30) with the rc of pthread_setspecific().
    static void setThreadObject(unsigned int& key, ZObject_6_0* object);

    /// Returns the calling thread's object for `key`; null if it has none.
    static ZObject_6_0* getThreadObject(unsigned int& key);

    /// Deletes `object`; ignores null.
    static void key_delete_routine(ZObject_6_0* object);

protected:
    int isDetached() const { return detached_; }
    int isAutoDelete() const { return autoDelete_; }
    int isJoinable() const;  // started, not detached, not yet waited for
    ZThreadPool_6_0* pool() const { return pool_; }

private:
    friend class ZThreadPool_6_0;  // sets pool_, compares creations_
    struct Entry;                  // ZThread.cpp

    unsigned long id_;  // atomic: a pthread_t, 0 before the start
    int const detached_;
    int const autoDelete_;
    ZThreadPool_6_0* pool_;  // the pool that started it, or null; set before the start
    int joinable_;           // atomic: can be joined; holds a detached thread back in start()
    unsigned creations_;     // threads created for this object; changed by start()
};
