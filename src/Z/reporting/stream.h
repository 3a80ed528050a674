// stream: writes bytes to a stream that may be wide.
//
// fwrite() to a stream of wide orientation does nothing and returns 0. Bytes for such a stream are
// written to its descriptor, after the text that the stream has buffered.
#pragma once

#include <stdio.h>
#include <sys/uio.h>

namespace zreporting {

/// Writes `pieces` to `stream` immediately, after the text that the stream has buffered, in one
/// system call unless the descriptor accepts less. A stream without a descriptor gets the bytes
/// through stdio; a wide one shows '?' for a byte that is not a character.
/// threads locks the stream. Not a cancellation point.
/// kept    errors are ignored: a failed report cannot be reported.
void writeNow(FILE* stream, iovec* pieces, int count);

/// Writes `count` bytes to `stream` like fwrite(), even if the stream is wide.
void write(FILE* stream, char const* bytes, size_t count);

}  // namespace zreporting
