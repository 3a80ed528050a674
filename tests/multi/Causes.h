// Causes: lasting reasons for which the system calls of a single-stepped process fail.
#pragma once

#include <string>
#include <vector>

#include "Campaign.h"
#include "Stepper.h"

// A cause that lasts: of the calls that are alike, one and all later ones fail.
struct Cause {
    enum Reach { everyFile, oneFile, oneCall } reach;
    Stepper::Call first;
    size_t from;  // the number of `first` among the calls that are alike, from 1
    int error;

    bool isLike(Stepper::Call const& call) const
    {
        if (reach == oneCall)
            return call.number == first.number;
        return call.family == first.family && (reach == everyFile || call.file == first.file);
    }

    std::string describe() const;
};

/// Returns the causes whose first failing call is one of `calls`: of each reach, and with each
/// error that can last. For a share, each call gets one error of each reach.
std::vector<Cause> lastingCauses(std::vector<Stepper::Call> const& calls, Extent extent);
