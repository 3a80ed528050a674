// zsnprintf: formatted output with positional arguments everywhere and wide text in the local
// codeset.
//
// Subsystem: text.  Stands on: zqvrutil.
//
// One engine in three steps over one context: parse reads the format and fetches every argument,
// render writes the result and may run any number of times, done releases the memory of parse. The
// everyday functions (zsnprintf_6_0 and its kin) do the same without a context if they can.
//
// A conversion reads  % [n$] [flags] [width | * | *m$] [. [precision | * | *m$]] [length] letter:
// flags space # ' + - 0, length h l ll L q, letter one of % C E G S X c d e f g i o p s u x.
// C takes a 16-bit wide character and S a string of them; both are converted to the local codeset.
// Doubles are formatted as the platform does, in the locale of the calling thread. Their width
// counts columns where the platform's does: a decimal point or separator of several bytes may be
// one column.
// The everyday functions convert to the local codeset: the first call starts the text services and,
// without QVRDIR or without a local codeset, ends the process as zgetLCSHandle_6_0 does.
// Ownership: zasprintf_free_6_0 releases the results of the allocating functions.
// Threads: no shared state; every call works in its own context.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct qvr_cs; /* a codeset handle, qvr.h */

/// The type of a conversion and of its argument.
enum {
    zprintfChar = 0,                /* c: int, kept as char */
    zprintfWideChar = 1,            /* C: int, kept as 16-bit wide character */
    zprintfString = 2,              /* s: pointer to char */
    zprintfWideString = 3,          /* S: pointer to 16-bit wide characters */
    zprintfShort = 4,               /* hd hi: int, converted to short */
    zprintfUnsignedShort = 5,       /* ho hu hx hX: int, converted to unsigned short */
    zprintfInt = 6,                 /* d i: int */
    zprintfUnsigned = 7,            /* o u x X: unsigned */
    zprintfLong = 8,                /* ld li: long */
    zprintfUnsignedLong = 9,        /* lo lu lx lX: unsigned long */
    zprintfLongLong = 10,           /* lld lli, also with L and q: long long */
    zprintfUnsignedLongLong = 11,   /* llo llu llx llX, also with L and q: unsigned long long */
    zprintfPointer = 12,            /* p: pointer, all of it */
    zprintfExponent = 13,           /* e E: double */
    zprintfFixed = 14,              /* f: double */
    zprintfGeneral = 15,            /* g G: double */
    zprintfLongDoubleExponent = 16, /* Le LE, also with ll and q: long double */
    zprintfLongDoubleFixed = 17,    /* Lf: long double */
    zprintfLongDoubleGeneral = 18,  /* Lg LG: long double */
    zprintfPercent = 19             /* %%: nothing */
};

/// The parts between the % and the letter, and the properties of the letter.
enum {
    zprintfPositional = 0x1,             /* n$ */
    zprintfAlternate = 0x2,              /* # */
    zprintfLeft = 0x4,                   /* -, which clears zprintfZero */
    zprintfZero = 0x8,                   /* 0, ignored after -, cleared by any precision */
    zprintfBlank = 0x10,                 /* space */
    zprintfPlus = 0x20,                  /* + */
    zprintfGrouped = 0x40,               /* ' */
    zprintfWidth = 0x80,                 /* `width` is the width */
    zprintfStarWidth = 0x100,            /* `width` is the number of the argument that holds it */
    zprintfPositionalWidth = 0x200,      /* that number was written: *m$ */
    zprintfPrecision = 0x400,            /* `precision` is the precision */
    zprintfStarPrecision = 0x800,        /* `precision` is the number of the argument */
    zprintfPositionalPrecision = 0x1000, /* that number was written: .*m$ */
    zprintfHalf = 0x2000,                /* h */
    zprintfDouble = 0x4000,              /* l */
    zprintfQuad = 0x8000,                /* ll, L or q */
    zprintfOctal = 0x10000,              /* o */
    zprintfLowerHex = 0x20000,           /* x p */
    zprintfUpperHex = 0x40000,           /* X */
    zprintfUpperExponent = 0x80000,      /* E G */
    zprintfNoArgument = 0x100000,        /* %% */
    zprintfWidthOf8 = 0x200000,          /* minimum width of 8; set by no conversion */
    zprintfPrecisionOf8 = 0x400000       // minimum precision of 8, except for strings; set by
                                         // no conversion
};

/// Capacity of a context before it allocates: conversions, and arguments with the unused 0.
enum { zprintfInlineRecords = 10 };

/// One % of the format.
typedef struct ZPrintfConversion_6_0 {
    char const* start; /* the % */
    char const* end;   /* the letter; literal text continues after it */
    int32_t type;      /* zprintfChar … zprintfPercent */
    uint32_t flags;    /* zprintfPositional … */
    int32_t argIndex;  /* number of the value, from 1; 0 for %% */
    int32_t width;     /* the width, or the number of its argument */
    int32_t precision; /* the precision, or the number of its argument */
} ZPrintfConversion_6_0;

/// An argument, in the size in which the platform passes it.
typedef struct ZPrintfArgument_6_0 {
    int32_t type; /* type of the fetch; a width or precision is zprintfInt */
    union {
        char character;           /* zprintfChar */
        uint16_t wideCharacter;   /* zprintfWideChar */
        void const* pointer;      /* zprintfString, zprintfWideString, zprintfPointer */
        int64_t integer;          /* signed types, sign-extended */
        uint64_t unsignedInteger; /* unsigned types, zero-extended */
        double real;              /* zprintfExponent, zprintfFixed, zprintfGeneral */
        long double longReal;     /* zprintfLongDouble… */
    } value;
} ZPrintfArgument_6_0;

/// The state of a formatting, usually on the caller's stack; parse sets every field it needs.
typedef struct ZPrintfContext_6_0 {
    struct qvr_cs const* codeset; /* of converted C and S */
    ZPrintfConversion_6_0 inlineConversions[zprintfInlineRecords];
    ZPrintfConversion_6_0* conversions; /* inlineConversions or a heap array */
    int32_t conversionCount;
    ZPrintfArgument_6_0 inlineArguments[zprintfInlineRecords];
    ZPrintfArgument_6_0* arguments; /* inlineArguments or a heap array; index 0 is unused */
    int32_t argumentCount;          /* the largest number referenced */
    char const* format;             /* borrowed from parse to done */
    char const* formatEnd;          /* its terminator */
} ZPrintfContext_6_0;

/// Reads `format` and fetches its arguments from `args`.
/// range   `codeset` may be null if no C or S is rendered.
/// owns    `format` and string arguments are borrowed until done. zvsnprintf_done_6_0 releases the
///         memory of the context; after -1 it is already released.
/// codes   0 on success; -1 for a null format, unknown letter, format that ends inside a
///         conversion, two lengths, h or l with e f g E G, * after width digits, a second
///         precision, a number above 2147483647, argument number 0, an unused argument number, an
///         argument used with two types (signed and unsigned of one width are the same), allocation
///         failure.
/// kept    a 0 after another 0 starts the width; any precision clears the 0 flag, for doubles too;
///         h, l, ll, L and q do not change c, s, C, S, p and %.
int zvsnprintf_parse_6_0(ZPrintfContext_6_0* context, struct qvr_cs const* codeset,
                         char const* format, va_list args);

/// Writes the result of a parsed context into `out` and terminates it with a zero.
/// units   `size` is in bytes and includes the zero; nothing is written if it is 0 or negative or
///         `out` is null.
/// codes   the length of the complete result without the zero, whatever `size` is; -1 if a wide
///         character is not in the codeset, the result is longer than 2147483647 bytes, or memory
///         is short. `out` then holds the part rendered before, terminated with a zero.
int zvsnprintf_render_6_0(ZPrintfContext_6_0 const* context, char* out, int size);

/// Releases the memory of the parse of `context`.
/// range   after a parse, failed or not; a second call does nothing. The context then has no
///         conversions.
void zvsnprintf_done_6_0(ZPrintfContext_6_0* context);

/// Returns the width, the precision and the pad character of a conversion.
/// range   `arguments` are the arguments of the conversion's context.
/// kept    a negative width from an argument is returned unchanged: it pads nothing (only doubles
///         treat it as left-justified). A negative precision is treated as not given.
void get_render_params(ZPrintfConversion_6_0 const* conversion,
                       ZPrintfArgument_6_0 const* arguments, int* width, int* precision,
                       char* padChar);

/// Formats into `buf`, truncated to `size` bytes including the zero.
/// units   `size` as in zvsnprintf_render_6_0.
/// codes   the length of the complete result; -1 as parse and render return it. If parse rejects
///         the format, `buf` is untouched.
/// kept    zero padding precedes the sign (%05d of -42 gives 00-42); # with a hexadecimal 0 gives
///         0x0; a left-justified %p is padded with zeros; grouping has no effect on integers, nor
///         has a sign flag on unsigned ones; a null string is empty.
int zsnprintf_6_0(char* buf, int size, char const* format, ...);

/// Formats as zsnprintf_6_0 does, from an argument list.
int zvsnprintf_6_0(char* buf, int size, char const* format, va_list args);

/// Formats into an allocated block of the required size.
/// range   null `result` or `format` gives -1.
/// owns    `*result` is owned by the caller; released with zasprintf_free_6_0; null after -1.
/// codes   the length of the result; -1 as zsnprintf_6_0, or on allocation failure.
int zsprintf_6_0(char** result, char const* format, ...);

/// Formats as zsprintf_6_0 does, from an argument list.
/// range   a null list gives -1, on platforms where va_list is a pointer.
int zvsprintf_6_0(char** result, char const* format, va_list args);

/// Formats as zsprintf_6_0 does.
int zasprintf_6_0(char** result, char const* format, ...);

/// Formats as zsprintf_6_0 does, from an argument list.
int zvasprintf_6_0(char** result, char const* format, va_list args);

/// Releases a result of the four functions above; null is allowed.
void zasprintf_free_6_0(void* p);

#ifdef __cplusplus
}
#endif
