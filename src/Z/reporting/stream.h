// stream: writes bytes to a stream that the program may have made wide.
//
// A byte write to a stream of wide orientation is lost: fwrite() does nothing and returns 0. The
// bytes then go to the stream's descriptor, after the text that the stream still holds.
#pragma once

#include <stdio.h>
#include <sys/uio.h>

namespace zreporting {

/// Writes `pieces` to `stream` immediately, after the text that the stream has buffered, in one
/// system call unless the descriptor accepts less. A stream without a descriptor is given
/// the bytes one after another; a wide one shows '?' for a byte that is not a character.
/// threads other threads write to the stream before or after it. A cancellation waits.
/// kept    errors are ignored: reports have no reader to tell.
void writeNow(FILE* stream, iovec* pieces, int count);

/// Writes `count` bytes to `stream`: like fwrite(), but not lost if the stream is wide.
void write(FILE* stream, char const* bytes, size_t count);

}  // namespace zreporting
