// raise_sites: the source name and the site numbers in reports about the contents of stanza files.
#pragma once

#include "../memory/rep.h"

namespace zstanza {

constexpr char kSource[] = "src/Z/ZPropertiesImpl";

// Stable ids in reports; log scanners match them. See docs/failures.md.
enum RaiseSite {
    raiseInAllocate = 61,
    raiseInRead = 71,
    raiseAtLine = 72,
    raiseInWrite = 81,
    raiseForLine = 85,
    raiseBelowContinuedLine = 86,
    raiseWithoutKeys = 87,
    raiseAboveIndentedLine = 88,
    raiseInExpand = 91,
    raiseAtRecord = 92,
    raiseInCompress = 95,
};

/// Throws ZOutOfMemoryException_6_0 from raiseInAllocate.
[[noreturn]] void throwOutOfMemory();

/// Allocates an object, as new.
/// throws  ZOutOfMemoryException_6_0 from raiseInAllocate; any exception of the constructor.
template <class Class, class... Arguments>
Class* allocate(Arguments const&... arguments)
{
    return zmemory::makeRep<Class>(kSource, raiseInAllocate, arguments...);
}

}  // namespace zstanza
