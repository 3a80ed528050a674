// ZMessage_p: what the exceptions and the message service know of each other's inserts. Not
// installed.
#pragma once

#include <stdint.h>

class ZZException_6_0;

/// Returns the types of the inserts that the text of a message asks for: 's' and 'd', in order; ""
/// for a number without a text.
/// owns    static text.
char const* zmessageInsertTypes(uint32_t messageNumber);

/// Returns the types of the inserts that the library's print() passes in the calling thread's
/// report of `exception`; null if no report of it runs, or if a print() runs that does not state
/// them.
/// owns    static text.
char const* zstatedInsertTypes(ZZException_6_0 const* exception);
