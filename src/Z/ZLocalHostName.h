// ZLocalHostName: the canonical name of this host.
//
// Subsystem: platform.  Stands on: ZException, ZMessage, ZLCString, ZLock.
//
// Threads: any. Nothing is cached: every call queries the system.
#pragma once

#include "ZLCString.h"

class ZLocalHostName_6_0 {
public:
    /// Returns the resolver's official name for this host's name. If the system has none, returns
    /// the empty string and reports through the message service (messages 25 and 26).
    /// throws  ZOutOfMemoryException_6_0.
    static ZLCString_6_0 getLocalHostName();
};
