// zhex_dump: writes bytes as a hexadecimal dump.
//
// Subsystem: text tools.  Stands on: ZException, ZLock.
//
// Threads: any; dumps of several threads never mix, whatever streams they go to.
#pragma once

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Writes `length` bytes: the title, if any, then lines of 16 bytes with their offset, the bytes in
/// two groups and a column of characters, then a line feed.
/// range   null `stream`: standard error. `length` 0 or less: the title and the line feed alone.
///         Null `title`: none.
/// throws  what a lock throws, and what the stream's own functions throw (fopencookie).
/// threads a dump is one write to the stream, one of more than 200,000 bytes several; a thread that
///         is cancelled meanwhile finishes it.
/// cost    at most 1 MiB of memory; without memory a write for each line.
/// kept    bytes 32 to 253 stand in the column as they are, also those that no terminal shows; take
///         care where the dump goes.
void zhex_dump_6_0(FILE* stream, int length, unsigned char const* data, char const* title);

#ifdef __cplusplus
}
#endif
