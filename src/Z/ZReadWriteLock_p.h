// ZReadWriteLock_p: connects a guard whose acquisition failed with the later acquisitions of its
// thread. Not installed.
#pragma once

#include <atomic>

#include "ZReadWriteLock.h"

/// Number of guards, of all threads, whose last acquisition failed; 0 in most programs.
inline constinit std::atomic<unsigned> zcountingGuards __attribute__((visibility("hidden"))){0};

/// Set by the constructor of process locks: returns whether `lock` is a process lock. Guards
/// recognise in-process locks themselves; no other class calls zrecordHold().
inline constinit std::atomic<bool (*)(ZAbstractReadWriteLock_6_0 const& lock)> zisProcessLock
    __attribute__((visibility("hidden"))){nullptr};

/// Set by the constructor of lock files: returns how often the calling thread holds `lock`, or -1
/// if that is unknown.
inline constinit std::atomic<int (*)(ZAbstractReadWriteLock_6_0 const& lock)> zholdsOfCaller
    __attribute__((visibility("hidden"))){nullptr};

/// Adds `change` to the holds of each counting guard of the calling thread on `lock`.
void zaddToHolds(ZAbstractReadWriteLock_6_0 const* lock, int change);

/// Records that the calling thread has acquired `lock` (1) or released it (-1). `lock` may already
/// be destroyed.
inline void zrecordHold(ZAbstractReadWriteLock_6_0 const* lock, int change)
{
    if (__builtin_expect(zcountingGuards.load(std::memory_order_relaxed) != 0, 0))
        zaddToHolds(lock, change);
}
