// failure: the meaning of the status of a call.
#pragma once

#include <string>

namespace zfleet {

// The next step after a status.
enum class Handling {
    final,          // fail
    retry,          // another attempt, at another endpoint first
    otherEndpoint,  // do not call this endpoint again
    renewToken      // authenticate again, once for each call
};

struct Verdict {
    int error;  // errno
    Handling handling;
    bool isDoubtful;  // the cluster may have executed the request
};

// The numbers of the statuses, as gRPC defines them.
enum StatusCode {
    statusCancelled = 1,
    statusUnknown = 2,
    statusInvalidArgument = 3,
    statusDeadlineExceeded = 4,
    statusNotFound = 5,
    statusAlreadyExists = 6,
    statusPermissionDenied = 7,
    statusResourceExhausted = 8,
    statusFailedPrecondition = 9,
    statusAborted = 10,
    statusOutOfRange = 11,
    statusUnimplemented = 12,
    statusInternal = 13,
    statusUnavailable = 14,
    statusDataLoss = 15,
    statusUnauthenticated = 16
};

/// Returns the meaning of a status other than OK.
Verdict classify(int code, std::string const& message);

// A call that has failed for good.
struct CallError {
    std::string call;  // such as "Range"
    int error;         // errno
    bool isDoubtful;   // an attempt may have been executed
    std::string detail;
};

}  // namespace zfleet
