// hold_counters: counts how often a thread holds a lock after the acquisition of a guard failed.
//
// A guard whose acquisition failed must release only what its thread held before or acquires later,
// through the guard or directly. The lock does not know its readers, so the guard counts: from the
// failure on, a counter counts the acquisitions and releases of its thread. It is not a field
// of the guard because programs have compiled in the guard's size.
//
// Threads: a counter belongs to the thread that started it.
#pragma once

#include <atomic>

class ZAbstractReadWriteLock_6_0;
class ZStackReadWriteLock_6_0;

namespace zlocks {

/// Number of guards, of all threads, whose last acquisition failed; 0 in most programs.
inline constinit std::atomic<unsigned> countingGuards __attribute__((visibility("hidden"))){0};

/// Set by the constructor of process locks: returns whether `lock` is a process lock. Guards
/// recognise in-process locks themselves; no other class calls recordHold().
inline constinit std::atomic<bool (*)(ZAbstractReadWriteLock_6_0 const& lock)> isProcessLock
    __attribute__((visibility("hidden"))){nullptr};

/// Set by the constructor of lock files: returns how often the calling thread holds `lock`, or -1
/// if that is unknown.
inline constinit std::atomic<int (*)(ZAbstractReadWriteLock_6_0 const& lock)> holdsOfCaller
    __attribute__((visibility("hidden"))){nullptr};

/// Starts a counter, or resets the existing one; does nothing if memory is exhausted.
void startCounting(ZStackReadWriteLock_6_0 const* guard, ZAbstractReadWriteLock_6_0 const* lock,
                   int holds);

/// Ends the counter and returns its count; returns `holds` if the guard had no counter.
int stopCounting(ZStackReadWriteLock_6_0 const* guard, int holds);

/// Adds `change` to the holds of each counting guard of the calling thread on `lock`.
void addToHolds(ZAbstractReadWriteLock_6_0 const* lock, int change);

/// Records that the calling thread has acquired `lock` (1) or released it (-1). `lock` may already
/// be destroyed.
inline void recordHold(ZAbstractReadWriteLock_6_0 const* lock, int change)
{
    if (__builtin_expect(countingGuards.load(std::memory_order_relaxed) != 0, 0))
        addToHolds(lock, change);
}

}  // namespace zlocks
