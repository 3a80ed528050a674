// cancellation: disables thread cancellation, distinguishes it from an exception, and detects
// unwinding by either.
#pragma once

#include <pthread.h>

#include <exception>

namespace zreporting {

/// Disables thread cancellation in this scope. A cancellation inside a destructor would end the
/// process; between two system calls it would leak a descriptor.
class CancelGuard {
public:
    CancelGuard() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    CancelGuard(CancelGuard const&) = delete;
    CancelGuard& operator=(CancelGuard const&) = delete;
    ~CancelGuard() { pthread_setcancelstate(before_, nullptr); }

private:
    int before_;
};

/// Whether the library has seen a cancellation unwind the stack of this thread.
inline thread_local bool cancelled = false;

/// Call in a `catch (...)`: returns whether it has caught the cancellation of the thread, which
/// unwinds the stack without a C++ exception and must be rethrown.
inline bool caughtCancellation()
{
    if (std::current_exception() != nullptr)
        return false;
    cancelled = true;
    return true;
}

/// Call in a destructor: returns whether an exception thrown now would end the process.
inline bool unwinding()
{
    return std::uncaught_exceptions() > 0 || cancelled;
}

}  // namespace zreporting
