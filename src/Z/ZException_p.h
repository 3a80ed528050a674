// ZException_p: telling a cancellation from an exception, and whether either is on its way. Not
// installed.
#pragma once

#include <exception>

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
