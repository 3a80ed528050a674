// translate_failures: the exceptions for failed calls to a cluster.
#pragma once

#include <Z/ZException.h>
#include <errno.h>

#include <new>

#include "ZFleetConflict_p.h"
#include "configuration/session.h"
#include "transport/cancel_guard.h"
#include "transport/failure.h"

namespace zfleet {

// The number of each raise site; each source that translates failures has them.
enum TranslationSite { raiseForCall = 101, raiseForConflict };

/// Runs `operation` on the configuration at `path`. Turns its failures into exceptions. The thread
/// cannot be cancelled in it.
template <class Operation>
void translateFailures(char const* source, char const* path, Operation operation)
{
    CancelGuard const uncancelled;
    try {
        operation();
    } catch (std::bad_alloc const&) {
        ZOutOfMemoryException_6_0().throwException(source, raiseForCall);
    } catch (ConflictError const& error) {
        ZFleetConflictException_6_0(path, new ZFleetConflictException_6_0::List(error.conflicts))
            .throwException(source, raiseForConflict);
    } catch (CallError const& error) {
        // A timeout and another cluster imply that the outcome is unknown; other codes do not.
        bool const isUnknown =
            error.isDoubtful && error.error != ETIMEDOUT && error.error != EREMCHG;
        ZPropertiesIOException_6_0(path, error.call.c_str(), isUnknown ? EINPROGRESS : error.error)
            .throwException(source, raiseForCall);
    }
}

}  // namespace zfleet
