// rep: allocates hidden representations, the parts of objects that public headers only declare.
#pragma once

#include <new>

#include "../ZException.h"

namespace zmemory {

/// Allocates a Rep, the part of an object that its header hides.
/// throws  ZOutOfMemoryException_6_0 from `site`; any exception of the Rep's constructor.
template <class Rep, class... Arguments>
Rep* makeRep(char const* source, int site, Arguments const&... arguments)
{
    Rep* const rep = new (std::nothrow) Rep(arguments...);
    if (rep == nullptr)
        ZOutOfMemoryException_6_0().throwException(source, site);
    return rep;
}

}  // namespace zmemory
