// zhex_dump: writes bytes as a hexadecimal dump.
//
// Subsystem: text tools.  Stands on: ZException, ZLock.
//
// Threads: any. Concurrent dumps never interleave, whatever their streams.
#pragma once

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Writes `length` bytes: the title, if any, then lines of 16 bytes with their offset, the bytes in
/// two groups and a column of characters, then a newline.
/// range   null `stream`: standard error. `length` 0 or less: only the title and the newline. Null
///         `title`: no title.
/// throws  exceptions of the lock, and of the stream's own functions (fopencookie).
/// threads a dump is one write to the stream, a dump of more than 200,000 bytes several. A thread
///         that is cancelled during a dump completes it.
/// cost    at most 1 MiB of memory; without memory one write per line.
/// kept    bytes 32 to 253 are written verbatim in the column, even if a terminal does not print
///         them; take care before showing a dump.
void zhex_dump_6_0(FILE* stream, int length, unsigned char const* data, char const* title);

#ifdef __cplusplus
}
#endif
