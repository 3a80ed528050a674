#include "locking/interruptible_wait.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>

#include "transport/failure.h"

namespace zfleet {

namespace {

// Adds the signals to `set` whose handlers end a call. Signals that are ignored, or that end the
// process, do not.
void addInterrupting(sigset_t& set, sigset_t const& blocked)
{
    for (int number = 1; number <= SIGRTMAX; ++number) {
        struct sigaction action = {};
        if (sigismember(&blocked, number) != 0 || sigaction(number, nullptr, &action) != 0)
            continue;
        bool const hasHandler = (action.sa_flags & SA_SIGINFO) != 0 ||
                                (action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN);
        if (hasHandler && (action.sa_flags & SA_RESTART) == 0)
            sigaddset(&set, number);
    }
}

}  // namespace

InterruptibleWait::InterruptibleWait(int cancelState) : cancelState_(cancelState)
{
    sigset_t none;
    sigemptyset(&none);
    fd_ = signalfd(-1, &none, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd_ < 0)
        throw CallError{"signalfd()", errno, false, "no descriptor"};
    sigset_t blocked;
    sigfillset(&blocked);
    for (int const fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
        sigdelset(&blocked, fault);
    pthread_sigmask(SIG_BLOCK, &blocked, &before_);
}

InterruptibleWait::~InterruptibleWait()
{
    close(fd_);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

void InterruptibleWait::wait(int fd, Clock::time_point until) const
{
    for (;;) {
        sigset_t interrupting;
        sigemptyset(&interrupting);
        addInterrupting(interrupting, before_);
        signalfd(fd_, &interrupting, 0);
        sigset_t mask;
        sigorset(&mask, &before_, &interrupting);
        auto const left = std::max<long long>(
            0, std::chrono::duration_cast<std::chrono::nanoseconds>(until - Clock::now()).count());
        timespec const time{static_cast<time_t>(left / 1'000'000'000),
                            static_cast<long>(left % 1'000'000'000)};
        pollfd fds[] = {{fd, POLLIN, 0}, {fd_, POLLIN, 0}};
        pthread_setcancelstate(cancelState_, nullptr);
        int const count = ppoll(fds, 2, &time, &mask);
        int const error = errno;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        if (count > 0 && fds[1].revents != 0)
            throw CallError{"poll()", EINTR, false, "a signal"};
        if (count >= 0)
            return;
        if (error != EINTR)
            throw CallError{"poll()", error, false, "no wait"};
    }
}

}  // namespace zfleet
