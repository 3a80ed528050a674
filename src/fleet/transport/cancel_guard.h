// cancel_guard: no thread is cancelled within a call to the cluster.
#pragma once

#include <pthread.h>

namespace zfleet {

// Disables the cancellation of the thread in this scope: gRPC does not unwind.
class CancelGuard {
public:
    CancelGuard() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    CancelGuard(CancelGuard const&) = delete;
    CancelGuard& operator=(CancelGuard const&) = delete;
    ~CancelGuard() { pthread_setcancelstate(before_, nullptr); }

    /// Returns the state outside of this scope.
    int before() const { return before_; }

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace zfleet
