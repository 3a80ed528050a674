#include "parse.h"

#include <stdlib.h>
#include <string.h>

#include "arguments.h"
#include "conversions.h"

namespace zformat {
namespace {

// Grows the array of conversions.
bool growConversions(ZPrintfContext_6_0& context, int32_t& capacity)
{
    if (capacity > INT32_MAX - zprintfInlineRecords)
        return false;
    bool const isInline = context.conversions == context.inlineConversions;
    size_t const size =
        sizeof(ZPrintfConversion_6_0) * (static_cast<size_t>(capacity) + zprintfInlineRecords);
    void* const grown = isInline ? malloc(size) : realloc(context.conversions, size);
    if (grown == nullptr)
        return false;
    if (isInline)
        memcpy(grown, context.inlineConversions, sizeof context.inlineConversions);
    context.conversions = static_cast<ZPrintfConversion_6_0*>(grown);
    capacity += zprintfInlineRecords;
    return true;
}

bool readFormat(ZPrintfContext_6_0& context, ArgumentUsage& usage)
{
    int32_t capacity = zprintfInlineRecords;
    int32_t count = 0;
    char const* at = context.format;
    for (; *(at = findPercent(at)) != '\0'; ++at) {
        if (count == capacity && !growConversions(context, capacity))
            return false;
        ZPrintfConversion_6_0& conversion = context.conversions[count++];
        if (!readConversion(at, conversion, usage))
            return false;
        at = conversion.end;
    }
    context.conversionCount = count;
    context.formatEnd = at;
    return true;
}

}  // namespace

bool parse(ZPrintfContext_6_0& context, qvr_cs const* codeset, char const* format, va_list args)
{
    clear(context);
    context.codeset = codeset;
    context.format = format;
    if (format == nullptr)
        return false;
    ArgumentUsage usage;
    if (readFormat(context, usage) && fetchArguments(context, usage, args))
        return true;
    release(context);
    return false;
}

}  // namespace zformat
