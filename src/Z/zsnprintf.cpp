#include "zsnprintf.h"

#include <stdlib.h>
#include <string.h>

#include <array>
#include <type_traits>

#include "format/render.h"
#include "zqvrutil.h"

namespace {

constexpr int kDone = 0;
constexpr int kFailed = -1;

// The variable arguments of a call. A copy, because a va_list cannot be passed by reference on
// every platform, and the caller's list must not advance.
class ArgumentList {
public:
    explicit ArgumentList(va_list args) { va_copy(list, args); }
    ArgumentList(ArgumentList const&) = delete;
    ArgumentList& operator=(ArgumentList const&) = delete;
    ~ArgumentList() { va_end(list); }

    va_list list;
};

// A letter that ends a conversion, with its type for no length, for h, for l, and for ll, L or q.
struct Letter {
    char letter;
    int8_t type[4];
    uint32_t flags;
};

constexpr int8_t kNoType = -1;

// KEPT: a length has no effect on a string, a pointer or a percent sign, whereas the platform takes
// wide characters for l. A format with %ls and a narrow argument would break otherwise; C and S are
// the wide conversions.
// Test: zsnprintf.KeepsLengthsWithoutEffectOnStrings
constexpr Letter kLetters[] = {
    {'\0', {kNoType, kNoType, kNoType, kNoType}, 0},  // not a letter
    {'%', {19, 19, 19, 19}, zprintfNoArgument},
    {'C', {1, 1, 1, 1}, 0},
    {'E', {13, kNoType, kNoType, 16}, zprintfUpperExponent},
    {'G', {15, kNoType, kNoType, 18}, zprintfUpperExponent},
    {'S', {3, 3, 3, 3}, 0},
    {'X', {7, 5, 9, 11}, zprintfUpperHex},
    {'c', {0, 0, 0, 0}, 0},
    {'d', {6, 4, 8, 10}, 0},
    {'e', {13, kNoType, kNoType, 16}, 0},
    {'f', {14, kNoType, kNoType, 17}, 0},
    {'g', {15, kNoType, kNoType, 18}, 0},
    {'i', {6, 4, 8, 10}, 0},
    {'o', {7, 5, 9, 11}, zprintfOctal},
    {'p', {12, 12, 12, 12}, zprintfLowerHex | zprintfAlternate | zprintfZero},
    {'s', {2, 2, 2, 2}, 0},
    {'u', {7, 5, 9, 11}, 0},
    {'x', {7, 5, 9, 11}, zprintfLowerHex},
};

// The row of kLetters for each byte.
constexpr std::array<uint8_t, 256> kRowOfLetter = [] {
    std::array<uint8_t, 256> row{};
    for (uint8_t i = 1; i < sizeof kLetters / sizeof *kLetters; ++i)
        row[static_cast<unsigned char>(kLetters[i].letter)] = i;
    return row;
}();

Letter const& letterAt(char const* at)
{
    return kLetters[kRowOfLetter[static_cast<unsigned char>(*at)]];
}

// The stored type for each type code. Conversions may share an argument if it is equal: the
// platform passes both in the same way, signed or not.
constexpr int8_t kStorage[] = {0,  1,  2,  3,  4,  4,  6,  6,  8,  8,
                               10, 10, 12, 13, 13, 13, 16, 16, 16, kNoType};

// The argument numbers that a format uses, collected while it is read.
struct Demand {
    int32_t inOrder = 0;      // arguments of conversions without n$
    int32_t highest = 0;      // largest explicit number
    bool positional = false;  // the format has an explicit number
};

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Reads the digits at `at`, if any, and advances past them; no digits give 0. Returns false above
// INT32_MAX.
bool readNumber(char const*& at, int32_t& number)
{
    int64_t value = 0;
    for (; isDigit(*at); ++at) {
        value = value * 10 + (*at - '0');
        if (value > INT32_MAX)
            return false;
    }
    number = static_cast<int32_t>(value);
    return true;
}

void demandWritten(int32_t number, Demand& demand)
{
    demand.positional = true;
    if (number > demand.highest)
        demand.highest = number;
}

// Reads the rest of a `*`: a number and $, or nothing, which uses the next argument.
bool readStar(char const*& at, uint32_t positionalFlag, int32_t& number, uint32_t& flags,
              Demand& demand)
{
    if (!isDigit(*at)) {
        number = ++demand.inOrder;
        return true;
    }
    if (!readNumber(at, number) || number == 0 || *at != '$')
        return false;
    ++at;
    flags |= positionalFlag;
    demandWritten(number, demand);
    return true;
}

// Reads the flags at `at`.
//
// KEPT: a second 0 starts the width and is not another flag, so no flag may follow it. A format
// such as "%00-5d" would be accepted otherwise.
// Test: zsnprintf.KeepsASecondZeroAsTheWidth
char const* readFlags(char const* at, uint32_t& flags)
{
    for (;; ++at) {
        switch (*at) {
            case ' ':
                flags |= zprintfBlank;
                break;
            case '#':
                flags |= zprintfAlternate;
                break;
            case '\'':
                flags |= zprintfGrouped;
                break;
            case '+':
                flags |= zprintfPlus;
                break;
            case '-':
                flags = (flags | zprintfLeft) & ~uint32_t{zprintfZero};
                break;
            case '0':
                if (flags & zprintfZero)
                    return at;
                if (!(flags & zprintfLeft))
                    flags |= zprintfZero;
                break;
            default:
                return at;
        }
    }
}

// Reads the conversion at the % at `at` into `conversion`. Returns false if it is invalid.
bool readConversion(char const* at, ZPrintfConversion_6_0& conversion, Demand& demand)
{
    conversion.start = at++;
    conversion.width = 0;
    conversion.precision = 0;
    if (Letter const& letter = letterAt(at); letter.type[0] != kNoType) {
        // The common case: nothing between the % and the letter.
        conversion.end = at;
        conversion.type = letter.type[0];
        conversion.flags = letter.flags;
        conversion.argIndex = letter.flags & zprintfNoArgument ? 0 : ++demand.inOrder;
        return true;
    }

    uint32_t flags = 0;
    int32_t argIndex = 0;

    // Number, flags, width. Digits without $ are the width; a leading 0 is a flag.
    if (isDigit(*at)) {
        char const* const digits = at;
        if (!readNumber(at, argIndex))
            return false;
        if (*at == '$') {
            if (argIndex == 0)
                return false;
            ++at;
            flags |= zprintfPositional;
            demandWritten(argIndex, demand);
        } else {
            at = digits;
            argIndex = 0;
        }
    }
    at = readFlags(at, flags);
    if (isDigit(*at)) {
        flags |= zprintfWidth;
        if (!readNumber(at, conversion.width))
            return false;
    } else if (*at == '*') {
        flags |= zprintfStarWidth;
        if (!readStar(++at, zprintfPositionalWidth, conversion.width, flags, demand))
            return false;
    }

    if (*at == '.') {
        ++at;
        // KEPT: clears the 0 flag for doubles too, unlike the platform. Columns of numbers with a
        // precision would be padded with zeros otherwise.
        // Test: zsnprintf.KeepsPrecisionClearingTheZeroFlag
        flags &= ~uint32_t{zprintfZero};
        if (*at == '*') {
            flags |= zprintfStarPrecision;
            if (!readStar(++at, zprintfPositionalPrecision, conversion.precision, flags, demand))
                return false;
        } else {
            flags |= zprintfPrecision;
            if (!readNumber(at, conversion.precision))
                return false;
        }
    }

    int length = 0;  // column of Letter::type
    switch (*at) {
        case 'h':
            ++at;
            flags |= zprintfHalf;
            length = 1;
            break;
        case 'l':
            ++at;
            flags |= zprintfDouble;
            length = 2;
            if (*at == 'l') {
                ++at;
                flags = (flags & ~uint32_t{zprintfDouble}) | zprintfQuad;
                length = 3;
            }
            break;
        case 'L':
        case 'q':
            ++at;
            flags |= zprintfQuad;
            length = 3;
            break;
        default:
            break;
    }

    // A second length, a second precision and the end of the format are not letters either.
    Letter const& letter = letterAt(at);
    conversion.type = letter.type[length];
    if (conversion.type == kNoType)
        return false;
    flags |= letter.flags;
    if (flags & zprintfNoArgument)
        argIndex = 0;
    else if (!(flags & zprintfPositional))
        argIndex = ++demand.inOrder;
    conversion.flags = flags;
    conversion.argIndex = argIndex;
    conversion.end = at;
    return true;
}

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

// Returns the next % or the end of the format.
char const* findPercent(char const* at)
{
    return *at == '%' ? at : strchrnul(at, '%');
}

bool readFormat(ZPrintfContext_6_0& context, Demand& demand)
{
    int32_t capacity = zprintfInlineRecords;
    int32_t count = 0;
    char const* at = context.format;
    for (; *(at = findPercent(at)) != '\0'; ++at) {
        if (count == capacity && !growConversions(context, capacity))
            return false;
        ZPrintfConversion_6_0& conversion = context.conversions[count++];
        if (!readConversion(at, conversion, demand))
            return false;
        at = conversion.end;
    }
    context.conversionCount = count;
    context.formatEnd = at;
    return true;
}

// Fetches the next argument of the list as `type`.
void fetch(int32_t type, ArgumentList& args, ZPrintfArgument_6_0& argument)
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
bool claim(ZPrintfContext_6_0& context, int32_t number, int32_t type)
{
    int32_t& known = context.arguments[number].type;
    if (known == kNoType)
        known = type;
    return kStorage[known] == kStorage[type];
}

// Fetches arguments that are used in any order: the format determines their types first.
bool fetchPositional(ZPrintfContext_6_0& context, ArgumentList& args)
{
    for (int32_t i = 1; i <= context.argumentCount; ++i)
        context.arguments[i].type = kNoType;
    for (int32_t i = 0; i < context.conversionCount; ++i) {
        ZPrintfConversion_6_0 const& conversion = context.conversions[i];
        if ((conversion.flags & zprintfStarWidth) && !claim(context, conversion.width, zprintfInt))
            return false;
        if ((conversion.flags & zprintfStarPrecision) &&
            !claim(context, conversion.precision, zprintfInt))
            return false;
        if (!(conversion.flags & zprintfNoArgument) &&
            !claim(context, conversion.argIndex, conversion.type))
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
void fetchInOrder(ZPrintfContext_6_0& context, ArgumentList& args)
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

bool fetchArguments(ZPrintfContext_6_0& context, Demand const& demand, va_list list)
{
    int32_t const count = demand.highest > demand.inOrder ? demand.highest : demand.inOrder;
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
    if (demand.positional)
        return fetchPositional(context, args);
    fetchInOrder(context, args);
    return true;
}

// Resets the context to empty inline arrays.
void clear(ZPrintfContext_6_0& context)
{
    context.conversions = context.inlineConversions;
    context.conversionCount = 0;
    context.arguments = context.inlineArguments;
    context.argumentCount = 0;
}

// Leaves the context valid for another release: callers may also clean up after a failed parse.
void release(ZPrintfContext_6_0& context)
{
    if (context.conversions != context.inlineConversions)
        free(context.conversions);
    if (context.arguments != context.inlineArguments)
        free(context.arguments);
    clear(context);
}

// Returns whether the list is null, which is possible only if va_list is a pointer.
template <class List>
bool isNone(List const& list)
{
    if constexpr (std::is_pointer_v<List>)
        return list == nullptr;
    else
        return false;
}

}  // namespace

int zvsnprintf_parse_6_0(ZPrintfContext_6_0* context, qvr_cs_t codeset, char const* format,
                         va_list args)
{
    clear(*context);
    context->codeset = codeset;
    context->format = format;
    if (format == nullptr)
        return kFailed;

    Demand demand;
    if (readFormat(*context, demand) && fetchArguments(*context, demand, args))
        return kDone;
    release(*context);
    return kFailed;
}

void zvsnprintf_done_6_0(ZPrintfContext_6_0* context)
{
    release(*context);
}

int zsnprintf_6_0(char* buf, int size, char const* format, ...)
{
    va_list args;
    va_start(args, format);
    int const length = zvsnprintf_6_0(buf, size, format, args);
    va_end(args);
    return length;
}

int zvsnprintf_6_0(char* buf, int size, char const* format, va_list args)
{
    ZPrintfContext_6_0 context;
    if (zvsnprintf_parse_6_0(&context, zgetLCSHandle_6_0(), format, args) != kDone)
        return kFailed;
    int const length = zvsnprintf_render_6_0(&context, buf, size);
    release(context);
    return length;
}

int zsprintf_6_0(char** result, char const* format, ...)
{
    va_list args;
    va_start(args, format);
    int const length = zvasprintf_6_0(result, format, args);
    va_end(args);
    return length;
}

int zvsprintf_6_0(char** result, char const* format, va_list args)
{
    return zvasprintf_6_0(result, format, args);
}

int zasprintf_6_0(char** result, char const* format, ...)
{
    va_list args;
    va_start(args, format);
    int const length = zvasprintf_6_0(result, format, args);
    va_end(args);
    return length;
}

int zvasprintf_6_0(char** result, char const* format, va_list args)
{
    if (result == nullptr)
        return kFailed;
    *result = nullptr;
    if (isNone(args))
        return kFailed;
    ZPrintfContext_6_0 context;
    if (zvsnprintf_parse_6_0(&context, zgetLCSHandle_6_0(), format, args) != kDone)
        return kFailed;
    int length = zprintf::render(context, nullptr, 0);
    if (length >= 0) {
        size_t const size = static_cast<size_t>(length) + 1;
        char* const text = static_cast<char*>(malloc(size));
        if (text == nullptr || zprintf::render(context, text, size) != length) {
            free(text);
            length = kFailed;
        } else {
            *result = text;
        }
    }
    zvsnprintf_done_6_0(&context);
    return length;
}

void zasprintf_free_6_0(void* p)
{
    free(p);
}
