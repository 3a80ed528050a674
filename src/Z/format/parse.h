// parse: reads a format into the conversions of a context and fetches its arguments.
#pragma once

#include <stdarg.h>
#include <stdlib.h>

#include "../zsnprintf.h"

namespace zformat {

// Implements zvsnprintf_parse_6_0. Returns false, with an empty context, if the format is invalid
// or memory is short.
bool parse(ZPrintfContext_6_0& context, struct qvr_cs const* codeset, char const* format,
           va_list args);

// Resets the context to empty inline arrays.
inline void clear(ZPrintfContext_6_0& context)
{
    context.conversions = context.inlineConversions;
    context.conversionCount = 0;
    context.arguments = context.inlineArguments;
    context.argumentCount = 0;
}

// Leaves the context valid for another release: callers may also clean up after a failed parse.
inline void release(ZPrintfContext_6_0& context)
{
    if (context.conversions != context.inlineConversions)
        free(context.conversions);
    if (context.arguments != context.inlineArguments)
        free(context.arguments);
    clear(context);
}

}  // namespace zformat
