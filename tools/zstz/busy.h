// busy: waits for files that another process uses.
#pragma once

#include <Z/ZException.h>
#include <errno.h>
#include <string.h>
#include <time.h>

#include <chrono>

#include "failures.h"

// The end of a wait.
class Deadline {
public:
    explicit Deadline(double seconds)
        : end_(Clock::now() +
               std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)))
    {
    }

    bool hasPassed() const { return Clock::now() >= end_; }

    /// Sleeps for a short time.
    static void pause()
    {
        constexpr timespec kInterval = {0, 10'000'000};
        nanosleep(&kInterval, nullptr);
    }

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point const end_;
};

/// Returns whether a call failed because another process has locked or changed the file, so that
/// another try may succeed.
inline bool isBusy(ZPropertiesIOException_6_0 const& failure)
{
    bool const isLocked = failure.excerrno() == EAGAIN || failure.excerrno() == EACCES;
    return (isLocked && strcmp(failure.api().getChars(), "fcntl()") == 0) ||
           failure.excerrno() == ESTALE;
}

/// Runs `action` again until no other process uses the file. It changes nothing if it fails.
template <class Action>
auto retryWhileBusy(Deadline const& deadline, Action action)
{
    for (;; Deadline::pause()) {
        try {
            return action();
        } catch (ZPropertiesIOException_6_0 const& failure) {
            if (!isBusy(failure) || deadline.hasPassed())
                throw;
        }
    }
}
