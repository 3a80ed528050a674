// ZMessage_p: the types of a report's inserts, for the exceptions and the message service. Not
// installed.
#pragma once

#include <stdint.h>

class ZZException_6_0;

/// Returns the types of the conversions in the text of a message: 's' and 'd', in order; "" if the
/// number has no text.
/// owns    static text.
char const* zmessageInsertTypes(uint32_t messageNumber);

/// Returns the types of the inserts in the calling thread's running report of `exception`. Returns
/// null if no such report runs, or if its print() is not the library's and states no types.
/// owns    static text.
char const* zstatedInsertTypes(ZZException_6_0 const* exception);
