// ZAdler32: the Adler-32 checksum of RFC 1950.
//
// Subsystem: collections.  Stands on: nothing.
//
// Ownership: stores nothing.
// Threads: any thread, at any time.
#pragma once

class ZAdler32_6_0 {
public:
    /// Returns the checksum `adler` continued over `len` bytes at `buf`.
    /// range   the checksum of no bytes is 1; a null `buf` returns it, and a first call passes it.
    ///         `len` 0 returns `adler`. Only the low 32 bits of `adler` are used.
    static unsigned long adler32(unsigned long adler, unsigned char const* buf, unsigned int len);
};
