// Causes: what makes the system calls of a stepped process fail for good.
#pragma once

#include <string>
#include <vector>

#include "Campaign.h"
#include "Stepper.h"

// A cause that lasts: like calls fail from one of them on.
struct Cause {
    enum Reach { everyFile, oneFile, oneCall } reach;
    Stepper::Call first;
    size_t from;  // the number of `first` among the like calls, from 1
    int error;

    bool isLike(Stepper::Call const& call) const
    {
        if (reach == oneCall)
            return call.number == first.number;
        return call.family == first.family && (reach == everyFile || call.file == first.file);
    }

    std::string describe() const;
};

/// Returns the causes that strike one of `calls` first: of each reach, and with each error that can
/// last. As a share, each call gets one error of each reach.
std::vector<Cause> lastingCauses(std::vector<Stepper::Call> const& calls, Extent extent);
