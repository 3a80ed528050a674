// ZAdler32: the Adler-32 checksum of RFC 1950.
//
// Subsystem: collections.  Stands on: nothing.
//
// Ownership: nothing is held.
// Threads: any thread, at any time.
#pragma once

class ZAdler32_6_0 {
public:
    /// Returns the checksum `adler` continued over `len` bytes at `buf`.
    /// range   the checksum of no bytes is 1: `buf` null returns it, a first call continues it.
    ///         `len` 0 returns `adler`. Only the low 32 bits of `adler` count.
    static unsigned long adler32(unsigned long adler, unsigned char const* buf, unsigned int len);
};
