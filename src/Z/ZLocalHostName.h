// ZLocalHostName: the canonical name of this host.
//
// Subsystem: platform.  Stands on: ZException, ZMessage, ZLCString, ZLock.
//
// Threads: any. Nothing is cached: every call asks the system again.
#pragma once

#include "ZLCString.h"

class ZLocalHostName_6_0 {
public:
    /// Returns the official name that the resolver gives for this host's name; empty when the
    /// system does not tell, which is reported through the message service (messages 25 and 26).
    /// throws  ZOutOfMemoryException_6_0.
    static ZLCString_6_0 getLocalHostName();
};
