#include "transport/failure.h"

#include <errno.h>

namespace zfleet {

namespace {

struct Row {
    int code;
    char const* fragment;  // of the message; null: any message
    Verdict verdict;
};

// The first row that matches is valid. Replies of the cluster itself are never doubtful: it has
// refused the request.
constexpr Row kRows[] = {
    {statusCancelled, nullptr, {ECANCELED, Handling::retry, true}},
    {statusUnknown, nullptr, {EIO, Handling::retry, true}},
    {statusInvalidArgument, "request is too large", {EFBIG, Handling::final, false}},
    {statusInvalidArgument, "invalid user ID or password", {EACCES, Handling::final, false}},
    {statusInvalidArgument, "user name is empty", {EACCES, Handling::renewToken, false}},
    {statusInvalidArgument, "auth store is old", {EACCES, Handling::renewToken, false}},
    {statusInvalidArgument, nullptr, {EINVAL, Handling::final, false}},
    {statusDeadlineExceeded, nullptr, {ETIMEDOUT, Handling::retry, true}},
    {statusNotFound, nullptr, {ENOENT, Handling::final, false}},
    {statusAlreadyExists, nullptr, {EEXIST, Handling::final, false}},
    {statusPermissionDenied, nullptr, {EACCES, Handling::final, false}},
    // The reply exceeds the limit of this side: the request has been executed.
    {statusResourceExhausted, "eceived message larger", {EFBIG, Handling::final, true}},
    {statusResourceExhausted, "message larger", {EFBIG, Handling::final, false}},
    {statusResourceExhausted, "too many requests", {EAGAIN, Handling::final, false}},
    {statusResourceExhausted, nullptr, {ENOSPC, Handling::final, false}},
    {statusFailedPrecondition, nullptr, {EINVAL, Handling::final, false}},
    {statusAborted, nullptr, {EAGAIN, Handling::retry, true}},
    {statusOutOfRange, nullptr, {ESTALE, Handling::final, false}},
    // This side refuses compressed replies: the request has been executed.
    {statusUnimplemented, "ompression algorithm", {EPROTO, Handling::otherEndpoint, true}},
    {statusUnimplemented, nullptr, {EPROTO, Handling::otherEndpoint, false}},
    {statusInternal, nullptr, {EIO, Handling::retry, true}},
    {statusUnavailable, "andshake failed", {EPROTO, Handling::otherEndpoint, false}},
    {statusUnavailable, "http1.x server", {EPROTO, Handling::otherEndpoint, false}},
    {statusUnavailable, nullptr, {ETIMEDOUT, Handling::retry, true}},
    {statusDataLoss, nullptr, {EIO, Handling::retry, true}},
    {statusUnauthenticated, nullptr, {EACCES, Handling::renewToken, false}},
};

}  // namespace

Verdict classify(int code, std::string const& message)
{
    for (Row const& row : kRows)
        if (row.code == code &&
            (row.fragment == nullptr || message.find(row.fragment) != std::string::npos))
            return row.verdict;
    return {EIO, Handling::retry, true};
}

}  // namespace zfleet
