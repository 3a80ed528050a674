// configuration: the contents that the fleet benchmarks store.
#pragma once

#include <Z/ZProperties.h>

#include <string>

// Adds 350 keys: the text has 12 kB.
inline void fillConfiguration(ZProperties_6_0& store)
{
    for (int stanza = 0; stanza < 10; ++stanza)
        for (int key = 0; key < 35; ++key)
            store.setValue(("stanza" + std::to_string(stanza)).c_str(),
                           ("key" + std::to_string(key)).c_str(), "a value of 24 characters");
}
