// signal_guard: no signal reaches the threads that a call to the cluster may start.
#pragma once

#include <pthread.h>
#include <signal.h>

namespace zfleet {

// Blocks the signals of the calling thread in this scope: a new thread of gRPC inherits this, and
// would receive the signals of the program otherwise. Faults of the thread itself are not blocked.
class SignalGuard {
public:
    SignalGuard()
    {
        sigset_t blocked;
        sigfillset(&blocked);
        for (int const fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
            sigdelset(&blocked, fault);
        pthread_sigmask(SIG_BLOCK, &blocked, &before_);
    }
    SignalGuard(SignalGuard const&) = delete;
    SignalGuard& operator=(SignalGuard const&) = delete;
    ~SignalGuard() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

}  // namespace zfleet
