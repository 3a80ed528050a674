// budget: the time of an operation, and whether its calls may be repeated.
#pragma once

#include <functional>

#include "transport/endpoint.h"

namespace zfleet {

// Whether a transaction may be executed twice without harm. A put without a condition is not
// idempotent: repeated late, it would undo another program's later put. A call that changes nothing
// is never doubtful.
enum class Repetition { isHarmless, isHarmful, changesNothing };

/// Returns the random pause after a number of earlier pauses.
Clock::duration randomPause(unsigned pauses);

// The time that an operation may take, and the pauses between its attempts.
class Budget {
public:
    explicit Budget(Clock::duration time) : end_(Clock::now() + time) {}

    Clock::duration left() const { return end_ - Clock::now(); }
    bool isUsedUp() const { return left() <= Clock::duration::zero(); }

    /// Waits a random time before the next attempt, but not past the end. `wait` may take a part of
    /// this time, which it receives.
    void pause(std::function<void(Clock::duration)> const& wait = {});

private:
    Clock::time_point const end_;
    unsigned pauses_ = 0;
};

}  // namespace zfleet
