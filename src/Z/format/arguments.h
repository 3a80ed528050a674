// arguments: fetches the arguments of a call into a context, by the types of its conversions.
//
// A list can only be read in order, and each step needs a type. So arguments that are used in any
// order need two passes: find the type of each, then fetch them all. Inline for parse.cpp, because
// a call would cost as much as fetching a few arguments.
#pragma once

#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>

#include "../zsnprintf.h"
#include "conversions.h"

namespace zformat {

// The variable arguments of a call, in a class because a va_list cannot be passed by reference on
// every platform. Ends the list.
class ArgumentList {
public:
    /// Makes a list for va_start().
    ArgumentList() {}
    /// Copies a caller's list, which does not advance then.
    explicit ArgumentList(va_list args) { va_copy(list, args); }
    ArgumentList(ArgumentList const&) = delete;
    ArgumentList& operator=(ArgumentList const&) = delete;
    ~ArgumentList() { va_end(list); }

    va_list list;
};

// The stored type for each type code. Conversions may share an argument if it is equal: the
// platform passes both in the same way, signed or not.
inline constexpr int8_t kStorage[] = {0,  1,  2,  3,  4,  4,  6,  6,  8,  8,
                                      10, 10, 12, 13, 13, 13, 16, 16, 16, kNoType};

// Fetches the next argument of the list as `type`.
inline void fetch(int32_t type, ArgumentList& args, ZPrintfArgument_6_0& argument)
{
    argument.type = type;
    switch (type) {
        case zprintfChar:
            argument.value.character = static_cast<char>(va_arg(args.list, int));
            break;
        case zprintfWideChar:
            argument.value.wideCharacter = static_cast<uint16_t>(va_arg(args.list, int));
            break;
        case zprintfShort:
            argument.value.integer = static_cast<short>(va_arg(args.list, int));
            break;
        case zprintfUnsignedShort:
            argument.value.unsignedInteger = static_cast<unsigned short>(va_arg(args.list, int));
            break;
        case zprintfInt:
            argument.value.integer = va_arg(args.list, int);
            break;
        case zprintfUnsigned:
            argument.value.unsignedInteger = va_arg(args.list, unsigned);
            break;
        case zprintfLong:
            argument.value.integer = va_arg(args.list, long);
            break;
        case zprintfUnsignedLong:
            argument.value.unsignedInteger = va_arg(args.list, unsigned long);
            break;
        case zprintfLongLong:
            argument.value.integer = va_arg(args.list, long long);
            break;
        case zprintfUnsignedLongLong:
            argument.value.unsignedInteger = va_arg(args.list, unsigned long long);
            break;
        case zprintfExponent:
        case zprintfFixed:
        case zprintfGeneral:
            argument.value.real = va_arg(args.list, double);
            break;
        case zprintfLongDoubleExponent:
        case zprintfLongDoubleFixed:
        case zprintfLongDoubleGeneral:
            argument.value.longReal = va_arg(args.list, long double);
            break;
        default:
            argument.value.pointer = va_arg(args.list, void const*);
            break;
    }
}

// Records that argument `number` has `type`. Returns false if it already has another type.
inline bool recordType(ZPrintfContext_6_0& context, int32_t number, int32_t type)
{
    int32_t& known = context.arguments[number].type;
    if (known == kNoType)
        known = type;
    return kStorage[known] == kStorage[type];
}

// Fetches arguments that are used in any order: the format determines their types first.
inline bool fetchPositional(ZPrintfContext_6_0& context, ArgumentList& args)
{
    for (int32_t i = 1; i <= context.argumentCount; ++i)
        context.arguments[i].type = kNoType;
    for (int32_t i = 0; i < context.conversionCount; ++i) {
        ZPrintfConversion_6_0 const& conversion = context.conversions[i];
        if ((conversion.flags & zprintfStarWidth) &&
            !recordType(context, conversion.width, zprintfInt))
            return false;
        if ((conversion.flags & zprintfStarPrecision) &&
            !recordType(context, conversion.precision, zprintfInt))
            return false;
        if (!(conversion.flags & zprintfNoArgument) &&
            !recordType(context, conversion.argIndex, conversion.type))
            return false;
    }
    for (int32_t i = 1; i <= context.argumentCount; ++i) {
        if (context.arguments[i].type == kNoType)
            return false;
        fetch(context.arguments[i].type, args, context.arguments[i]);
    }
    return true;
}

// Fetches arguments that are used in the order of the list.
inline void fetchInOrder(ZPrintfContext_6_0& context, ArgumentList& args)
{
    ZPrintfArgument_6_0* next = context.arguments;
    ZPrintfConversion_6_0 const* const end = context.conversions + context.conversionCount;
    for (ZPrintfConversion_6_0 const* at = context.conversions; at != end; ++at) {
        if (at->flags & (zprintfStarWidth | zprintfStarPrecision)) {
            if (at->flags & zprintfStarWidth)
                fetch(zprintfInt, args, *++next);
            if (at->flags & zprintfStarPrecision)
                fetch(zprintfInt, args, *++next);
        }
        if (at->type != zprintfPercent)
            fetch(at->type, args, *++next);
    }
}

// Fetches the arguments that the conversions of `context` use from a copy of `list`. Returns false
// if an argument is unused or has two types, or if memory is short.
inline bool fetchArguments(ZPrintfContext_6_0& context, ArgumentUsage const& usage, va_list list)
{
    int32_t const count = usage.highest > usage.inOrder ? usage.highest : usage.inOrder;
    // A conversion uses at most three arguments. Reject a format with a certain gap before
    // allocating.
    if (count > int64_t{3} * context.conversionCount)
        return false;
    if (count >= zprintfInlineRecords) {
        size_t const size = sizeof(ZPrintfArgument_6_0) * (static_cast<size_t>(count) + 1);
        void* const block = malloc(size);
        if (block == nullptr)
            return false;
        context.arguments = static_cast<ZPrintfArgument_6_0*>(block);
    }
    context.argumentCount = count;
    ArgumentList args(list);
    if (usage.positional)
        return fetchPositional(context, args);
    fetchInOrder(context, args);
    return true;
}

}  // namespace zformat
