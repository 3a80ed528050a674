// ZSqueeze: compresses and expands whole blocks of memory in one call.
//
// Subsystem: squeeze.  Stands on: nothing.
//
// Ownership: the source is borrowed until the last call that reads it.
// Threads: unsynchronised; callers serialise access to one object.
// Format: a zlib stream (RFC 1950) with the default memory settings.
#pragma once

/// A source and the level to compress it at; copies share the source.
///
/// The codes are 0 success, -2 stream error, -3 data error, -4 out of memory, -5 if the result does
/// not fit or the input ended early.
class ZSqueeze_6_0 {
public:
    /// Creates an object without a source, at the default level.
    ZSqueeze_6_0();

    /// Sets the bytes that squeeze() and unsqueeze() read.
    /// owns    borrowed.
    void setSource(unsigned char* data, unsigned long length);

    /// Compresses `srcLen` bytes at `src` into `dest`.
    /// range   `*destLen` is the capacity of `dest` on entry and the compressed size after a 0;
    ///         more than 4,294,967,295 bytes give -5, a null pointer -2.
    /// codes   0, -2, -4 or -5.
    int compress(unsigned char* dest, unsigned long* destLen, unsigned char const* src,
                 unsigned long srcLen);

    /// Expands `srcLen` bytes at `src` into `dest`.
    /// range   as compress().
    /// codes   0, -2, -3, -4 or -5.
    int uncompress(unsigned char* dest, unsigned long* destLen, unsigned char const* src,
                   unsigned long srcLen);

    /// Compresses the source into `dest` and returns the compressed size, or a negative code.
    /// range   a size that does not fit an int gives -5.
    int squeeze(unsigned char* dest, unsigned long destCapacity);

    /// Expands the source into `dest` and returns the expanded size, or a negative code.
    /// range   a size that does not fit an int gives -5.
    int unsqueeze(unsigned char* dest, unsigned long destCapacity);

private:
    unsigned char* source_;
    unsigned long sourceLength_;
    int level_;                  // -1 is the default level
    [[maybe_unused]] int flag_;  // 1; unused
};
