// What the lock and condition modules share, and what others need who clean up under locks.
#pragma once

#include "ZException.h"
#include "ZException_p.h"

/// Reports a failed system call through the message service: message number and rc.
void zreportRc(char const* source, int site, int messageNumber, int rc) noexcept;

/// Reports an exception through the message service.
void zreportException(ZException_6_0& failure) noexcept;

/// Reports through the message service that an exception of no known class was caught.
void zreportUnknownException(char const* source, int site) noexcept;

/// Runs what the destructor of a guard has to do. A second exception would end the process while a
/// first one unwinds the stack: what `release` raises is reported then, and thrown on otherwise.
template <class Release>
void zreleaseInDestructor(char const* source, int site, Release release)
{
    try {
        release();
    } catch (ZException_6_0& failure) {
        if (!zunwinding())
            throw;
        zreportException(failure);
    } catch (...) {
        if (zcaughtCancellation() || !zunwinding())
            throw;
        zreportUnknownException(source, site);
    }
}
