// interruptible_wait: waits for a descriptor, until a signal handler ends the wait.
//
// Like a call that the kernel restarts: a handler with SA_RESTART runs, and the wait continues; any
// other handler ends it. A plain poll() ends for both. So the signals of the second kind stay
// blocked while the thread waits, and a signal descriptor reports them. They are also blocked
// between two waits, so that none of them is missed during a call to the cluster.
#pragma once

#include <signal.h>

#include "transport/endpoint.h"

namespace zfleet {

// Blocks the signals of the thread, except faults, in this scope.
class InterruptibleWait {
public:
    /// range   the thread cannot be cancelled in this scope; `cancelState` is its state in a wait.
    /// throws  CallError without a descriptor.
    explicit InterruptibleWait(int cancelState);
    InterruptibleWait(InterruptibleWait const&) = delete;
    InterruptibleWait& operator=(InterruptibleWait const&) = delete;

    /// The handler of a signal that has ended the wait runs here.
    ~InterruptibleWait();

    /// Waits until `fd` is readable, or until the time.
    /// throws  CallError with EINTR if a handler ends the wait.
    /// threads pthread_cancel() ends the wait, if the state of the constructor permits.
    void wait(int fd, Clock::time_point until) const;

private:
    sigset_t before_;
    int const cancelState_;
    int fd_;
};

}  // namespace zfleet
