// failures: reports failures that must not go further, through the installed message service.
//
// A destructor cannot throw while an exception unwinds the stack: a second one would end the
// process. Its failure is reported instead, of whatever class it is: what a guard releases may be
// an object of a caller's class, which throws exceptions of its own.
#pragma once

#include "../ZException.h"
#include "../ZException_p.h"

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

/// Reports the exception that is being handled; `site` counts if it is not one of the library's.
/// range   only in a `catch (...)`. A cancellation is thrown on.
void reportCurrentException(Site site);

/// Runs `action` and reports the exception that leaves it. Returns whether there was none. A
/// cancellation goes on.
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

/// The same for an action that is not cancelled half-way: the end of a thread, or the roll-back
/// after a failure.
template <class Action>
bool runCleanup(Site site, Action action)
{
    ZCancelGuard const uncancelled;
    return reportExceptions(site, action);
}

/// Runs the action of a destructor that may throw. Its exception goes on unless another one unwinds
/// the stack: it is reported then.
template <class Action>
void runInDestructor(Site site, Action action)
{
    try {
        action();
    } catch (...) {
        if (zcaughtCancellation() || !zunwinding())
            throw;
        reportCurrentException(site);
    }
}

}  // namespace zreporting
