#include "raise_sites.h"

#include "../ZException.h"

namespace zstanza {

void throwOutOfMemory()
{
    ZOutOfMemoryException_6_0().throwException(kSource, raiseInAllocate);
}

}  // namespace zstanza
