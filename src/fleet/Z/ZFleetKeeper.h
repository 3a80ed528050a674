// ZFleetKeeper: a thread that renews the leases of locks and processes changes of configurations.
//
// Subsystem: fleet.  Stands on: ZFleetReadWriteLock, ZFleetProperties and the foundation's
// ZSleeperThread.
//
// The library makes no keeper: a program that calls keepAlive() and processChanges() from a loop
// of its own needs none. The unit of work of a keeper lasts until waitForExit(): it waits until a
// lease must be renewed, or until a configuration has changed.
//
// A keeper waits for a store object that another thread uses, and renews no lease in the meantime.
// If a store may take longer than half of the lease, give the locks a keeper of their own.
//
// Ownership: a keeper borrows its locks and stores until they are removed.
// Threads: any thread may add and remove locks and stores at any time, observers included.
// Observers of the locks and stores are notified on the thread of the keeper. An exception, of an
// observer or for a failed call, is reported by the message service, and the keeper continues; a
// failure that repeats is reported once.
// Processes: a child of fork() has no keeper.
#pragma once

#include <Z/ZSleeperThread.h>

class ZFleetProperties_6_0;
class ZFleetReadWriteLock_6_0;

/// A thread that renews the leases of locks and processes changes of configurations.
class ZFleetKeeper_6_0 : public ZSleeperThread_6_0 {
public:
    /// Creates a joinable keeper without starting it.
    /// throws  ZCreateResourceException_6_0 with the errno without a descriptor.
    ZFleetKeeper_6_0();
    ZFleetKeeper_6_0(ZFleetKeeper_6_0 const&) = delete;
    ZFleetKeeper_6_0& operator=(ZFleetKeeper_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Ends the thread, if it runs.
    ~ZFleetKeeper_6_0() override;

    /// Starts the thread.
    /// throws  as ZSleeperThread_6_0::start().
    void start() override;

    /// Ends the thread and waits for it: at most as long as a call to the cluster in
    /// progress. The keeper can be started again.
    /// throws  as ZSleeperThread_6_0::waitForExit().
    void waitForExit() override;

    /// Renews leases and processes changes until waitForExit().
    void doWork() override;

    /// Adds a lock, whether it is held or not. From now on, its lease is renewed while it is held.
    /// range   a lock that was added before is not added again.
    /// threads does not wait for the keeper's calls to the cluster, unless it uses this lock.
    void addLock(ZFleetReadWriteLock_6_0& lock);

    /// Removes a lock, and waits until the keeper does not use it. Call this before the lock is
    /// destroyed.
    /// threads an observer that the keeper notifies may call this. A thread must not hold the
    ///         store's lock or any lock that an observer acquires.
    void removeLock(ZFleetReadWriteLock_6_0& lock);

    /// As addLock(), for a store. Its changes are processed from the time at which it has loaded or
    /// stored a configuration of a cluster.
    void addStore(ZFleetProperties_6_0& store);

    /// As removeLock(), for a store.
    void removeStore(ZFleetProperties_6_0& store);

private:
    struct Rep;

    Rep* const rep_;  // never null
};
