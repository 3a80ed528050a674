// ZException_p: holding a cancellation off, telling it from an exception, and whether either is on
// its way. Not installed.
#pragma once

#include <pthread.h>

#include <exception>

/// Holds off the cancellation of the thread while it lives: a cancellation inside a destructor
/// would end the process, and one between two system calls lose a descriptor.
class ZCancelGuard {
public:
    ZCancelGuard() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ZCancelGuard(ZCancelGuard const&) = delete;
    ZCancelGuard& operator=(ZCancelGuard const&) = delete;
    ~ZCancelGuard() { pthread_setcancelstate(before_, nullptr); }

private:
    int before_;
};

/// The thread unwinds its stack because it was cancelled, as far as the library has seen it.
inline thread_local bool zcancelled = false;

/// Returns, in a `catch (...)`, whether it has caught the cancellation of the thread: that unwinds
/// the stack without a C++ exception, and must be thrown on.
inline bool zcaughtCancellation()
{
    if (std::current_exception() != nullptr)
        return false;
    zcancelled = true;
    return true;
}

/// Returns, in a destructor, whether an exception thrown now would end the process.
inline bool zunwinding()
{
    return std::uncaught_exceptions() > 0 || zcancelled;
}
