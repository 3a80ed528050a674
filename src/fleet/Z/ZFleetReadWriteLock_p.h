// The hidden state of a lock, and the sites of its exceptions.
#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "ZFleetReadWriteLock.h"
#include "configuration/session.h"
#include "locking/fleet_lock.h"

namespace zfleet_lock {

inline constexpr char kSource[] = "src/fleet/Z/ZFleetReadWriteLock";

// Log scanners match these numbers.
enum RaiseSite {
    raiseForPath = 1,
    raiseForDirectory,
    raiseForFileName,
    raiseInLock,
    raiseInUnlock,
    raiseForLoss,
    raiseForFullDatabase,
    raiseInReadSequence,
    raiseInWriteSequence,
    raiseInKeepAlive,
    raiseForMemory,
};

}  // namespace zfleet_lock

struct ZFleetReadWriteLock_6_0::Rep {
    explicit Rep(char const* lockPath);

    /// Notifies the observers of a lock of its loss, if they do not know it. Reports their
    /// exceptions by the message service.
    static void reportLoss(ZFleetReadWriteLock_6_0& lock);

    std::string const path;
    zfleet::Connection const connection;
    zfleet::FleetLock lock;
    std::atomic<int64_t> patience{-1};  // milliseconds; negative: forever

    // Guarded by the mutex of the base, which acquires and releases.
    std::string sequence;                  // as text, of the acquisition
    std::optional<std::string> newNumber;  // that the release will write
};
