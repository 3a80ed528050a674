#include "raise_sites.h"

#include "../ZException.h"

namespace zstanza {

void raiseOutOfMemory()
{
    ZOutOfMemoryException_6_0().throwException(kSource, raiseInAllocate);
}

}  // namespace zstanza
