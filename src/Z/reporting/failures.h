// failures: reports failures that must not propagate, through the installed message service.
//
// A destructor must not throw while an exception unwinds the stack: that would end the process. Its
// failure is reported instead. The exception can be of any class, because a guard may release an
// object of a caller's class.
#pragma once

#include "../ZException.h"
#include "cancellation.h"
#include "messages.h"

namespace zreporting {

// The source name and the site number of a report.
struct Site {
    char const* source;
    int number;
};

/// Reports a failed system call: message number and rc.
void reportRc(Site site, int messageNumber, int rc) noexcept;

/// Reports an exception.
void reportException(ZException_6_0& failure) noexcept;

/// Reports the exception that is being handled; with `site` if it is not one of the library's.
/// range   only in a `catch (...)`. A cancellation is rethrown.
void reportCurrentException(Site site);

/// Runs `action` and reports its exception. Returns whether it threw none. A cancellation passes
/// through.
template <class Action>
bool reportExceptions(Site site, Action action)
{
    try {
        action();
        return true;
    } catch (...) {
        reportCurrentException(site);
        return false;
    }
}

/// Like reportExceptions(), for an action that must not be cancelled halfway: the end of a thread,
/// or the rollback after a failure.
template <class Action>
bool runCleanup(Site site, Action action)
{
    CancelGuard const uncancelled;
    return reportExceptions(site, action);
}

/// Runs the action of a destructor that may throw. If another exception unwinds the stack, reports
/// the exception of `action`; otherwise rethrows it.
template <class Action>
void runInDestructor(Site site, Action action)
{
    try {
        action();
    } catch (...) {
        if (caughtCancellation() || !unwinding())
            throw;
        reportCurrentException(site);
    }
}

}  // namespace zreporting
