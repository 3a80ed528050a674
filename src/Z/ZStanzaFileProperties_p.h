// ZStanzaFileProperties_p: refusals and helpers of the sources of ZStanzaFileProperties.
#pragma once

#include "ZException.h"
#include "ZProperties_p.h"
#include "ZStanzaFileProperties.h"

namespace zproperties {

// Refuses a name, value or spelling.
[[noreturn]] inline void refuseText()
{
    ZInvalidParameterException_6_0().throwException(kSource, raiseForNewText);
}

[[noreturn]] inline void throwMissing(ZStanzaFileProperties_6_0 const& store, char const* stanza,
                                      char const* key)
{
    ZPropertiesMissingPropertyException_6_0(store.fileName().getChars(), stanza, key)
        .throwException(kSource, raiseForMissing);
}

// Makes a change of a key. If it throws, a key or stanza that it created without lines is removed
// without a trace.
template <class Change>
void changeKey(ZPCache_6_0& cache, char const* stanza, char const* key, Change change)
{
    bool const isNewStanza = cache.contains(stanza) == 0;
    bool const isNewKey = cache.contains(stanza, key) == 0;
    try {
        change();
    } catch (...) {
        if (isNewStanza)
            cache.remove(stanza);
        else if (isNewKey)
            cache.remove(stanza, key);
        throw;
    }
}

}  // namespace zproperties
