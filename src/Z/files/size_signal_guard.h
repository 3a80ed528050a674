// size_signal_guard: makes a write beyond the file-size limit fail instead of ending the process.
//
// A write or an extension past RLIMIT_FSIZE sends SIGXFSZ to the calling thread, and the default
// action ends the process. If the signal is blocked, the call only fails, with EFBIG. The guard
// blocks the signal, and later consumes the signal that the call has left pending.
// Threads: a guard belongs to the thread that created it. Other threads keep their signal masks.
#pragma once

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>

namespace zfiles {

class SizeSignalGuard {
public:
    SizeSignalGuard()
    {
        sigemptyset(&signal_);
        sigaddset(&signal_, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &signal_, &before_);
        // A pending signal of a caller that had blocked the signal stays pending.
        wasPending_ = sigismember(&before_, SIGXFSZ) == 1 && isPending();
    }
    SizeSignalGuard(SizeSignalGuard const&) = delete;
    SizeSignalGuard& operator=(SizeSignalGuard const&) = delete;
    ~SizeSignalGuard()
    {
        int const error = errno;
        timespec const now = {0, 0};
        if (!wasPending_ && isPending())
            while (sigtimedwait(&signal_, nullptr, &now) < 0 && errno == EINTR)
                continue;
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = error;
    }

private:
    static bool isPending()
    {
        sigset_t pending;
        return sigpending(&pending) == 0 && sigismember(&pending, SIGXFSZ) == 1;
    }

    sigset_t signal_;
    sigset_t before_;  // the caller's signal mask
    bool wasPending_;
};

}  // namespace zfiles
