// ZWinRegistry: reads the registry of another operating system; here it refuses.
//
// Subsystem: platform.  Stands on: ZException.
//
// Kept so that programs for several platforms compile and find out at run time.
// Threads: any.
#pragma once

class ZAbstractMutableString_6_0;

class ZWinRegistry_6_0 {
public:
    /// Asks whether a value exists.
    /// throws  ZInvalidPlatformException_6_0, always.
    [[noreturn]] static int exists(char const* key, char const* valueName);

    /// Reads a value into `out`, which stays as it is.
    /// throws  ZInvalidPlatformException_6_0, always.
    [[noreturn]] static void getValue(char const* key, char const* valueName,
                                      ZAbstractMutableString_6_0& out);
};
