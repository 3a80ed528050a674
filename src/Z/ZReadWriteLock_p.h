// ZReadWriteLock_p: what a guard whose acquisition failed learns of its thread's later holds. Not
// installed.
#pragma once

#include <atomic>

#include "ZReadWriteLock.h"

/// The guards, of all threads, whose last acquisition failed: seldom more than none.
inline constinit std::atomic<unsigned> zwatchingGuards __attribute__((visibility("hidden"))){0};

/// Set by the constructor of process locks: returns whether `lock` is one. A guard knows
/// in-process locks itself; no other class calls znoteHold().
inline constinit std::atomic<bool (*)(ZAbstractReadWriteLock_6_0 const& lock)> zisProcessLock
    __attribute__((visibility("hidden"))){nullptr};

/// Set by the constructor of lock files: returns how often the calling thread holds `lock`; -1 if
/// that is not known.
inline constinit std::atomic<int (*)(ZAbstractReadWriteLock_6_0 const& lock)> zholdsOfCaller
    __attribute__((visibility("hidden"))){nullptr};

/// Counts a hold of the calling thread for its guards of `lock` that watch.
void zcountHold(ZAbstractReadWriteLock_6_0 const* lock, int change);

/// Notes that the calling thread has acquired `lock` (1) or released it (-1). `lock` may be
/// destroyed already.
inline void znoteHold(ZAbstractReadWriteLock_6_0 const* lock, int change)
{
    if (__builtin_expect(zwatchingGuards.load(std::memory_order_relaxed) != 0, 0))
        zcountHold(lock, change);
}
