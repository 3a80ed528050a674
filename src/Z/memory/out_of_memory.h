// out_of_memory: turns std::bad_alloc of the standard library into the library's exception.
#pragma once

#include <new>

#include "../ZException.h"

namespace zmemory {

/// Runs `action` and returns its result.
/// throws  ZOutOfMemoryException_6_0 from `site` in place of std::bad_alloc; any other exception of
///         `action`.
template <class Action>
auto translateBadAlloc(char const* source, int site, Action action)
{
    try {
        return action();
    } catch (std::bad_alloc const&) {
        ZOutOfMemoryException_6_0().throwException(source, site);
    }
}

}  // namespace zmemory
