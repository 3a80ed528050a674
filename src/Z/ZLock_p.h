// What the lock and condition modules share, and what others need who clean up under locks.
#pragma once

#include "ZException_p.h"

class ZException_6_0;

/// Reports a failed system call through the message service: message number and rc.
void zreportRc(char const* source, int site, int messageNumber, int rc) noexcept;

/// Reports an exception through the message service.
void zreportException(ZException_6_0& failure) noexcept;

/// Reports through the message service that an exception of no known class was caught.
void zreportUnknownException(char const* source, int site) noexcept;
