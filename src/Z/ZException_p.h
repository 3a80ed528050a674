// ZException_p: telling a cancellation from an exception. Not installed.
#pragma once

#include <exception>

/// Returns, in a `catch (...)`, whether it has caught the cancellation of the thread: that unwinds
/// the stack without a C++ exception, and must be thrown on.
inline bool zcaughtCancellation()
{
    return std::current_exception() == nullptr;
}
