// zsnprintf: formatted output with positional arguments everywhere and wide text in the local
// codeset.
//
// Subsystem: text.  Stands on: zqvrutil.
//
// One engine in three steps over one context: parse reads the format and fetches every argument,
// render produces the text and may run any number of times, done releases what parse allocated.
// The functions of everyday use (zsnprintf_6_0 and its kin) are drivers over the three.
//
// A conversion reads  % [n$] [flags] [width | * | *m$] [. [precision | * | *m$]] [length] letter:
// flags blank # ' + - 0, length h l ll L q, letter one of % C E G S X c d e f g i o p s u x.
// C takes a 16-bit wide character and S a text of them; both come out in the local codeset.
// Digits and letters of doubles are the platform's, in the locale of the calling thread, and so is
// what their width counts: a point or a separator of several bytes may be one column.
// The drivers convert to the local codeset: the first call of one of them starts the text services
// and, without QVRDIR or without a local codeset, ends the process as zgetLCSHandle_6_0 does.
// Ownership: results of the allocating drivers are released with zasprintf_free_6_0.
// Threads: no shared state; every call works in its own context.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct qvr_cs; /* a codeset handle, qvr.h */

/* What a conversion prints and how its argument is fetched. */
enum {
    zprintfChar = 0,                /* c: int, kept as char */
    zprintfWideChar = 1,            /* C: int, kept as 16-bit wide character */
    zprintfString = 2,              /* s: pointer to char */
    zprintfWideString = 3,          /* S: pointer to 16-bit wide characters */
    zprintfShort = 4,               /* hd hi: int, taken as short */
    zprintfUnsignedShort = 5,       /* ho hu hx hX: int, taken as unsigned short */
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

/* What was written between the % and the letter, and what the letter adds. */
enum {
    zprintfPositional = 0x1,             /* n$ */
    zprintfAlternate = 0x2,              /* # */
    zprintfLeft = 0x4,                   /* -, which clears zprintfZero */
    zprintfZero = 0x8,                   /* 0, ignored after -, cleared by any precision */
    zprintfBlank = 0x10,                 /* blank */
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
    zprintfWidthOf8 = 0x200000,          /* width at least 8; set by no conversion */
    zprintfPrecisionOf8 = 0x400000       /* precision at least 8; set by no conversion, and no limit
                                            to a text */
};

/* Room of a context before it allocates: conversions, and arguments counting the unused 0. */
enum { zprintfInlineRecords = 10 };

/* One % of the format. */
typedef struct ZPrintfConversion_6_0 {
    char const* start; /* the % */
    char const* end;   /* the letter; literal text goes on behind it */
    int32_t type;      /* zprintfChar … zprintfPercent */
    uint32_t flags;    /* zprintfPositional … */
    int32_t argIndex;  /* number of the value, from 1; 0 for %% */
    int32_t width;     /* the width, or the number of its argument */
    int32_t precision; /* the precision, or the number of its argument */
} ZPrintfConversion_6_0;

/* One argument, in the width that the platform passes it. */
typedef struct ZPrintfArgument_6_0 {
    int32_t type; /* type code that it was fetched as; a width or precision is zprintfInt */
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

/* The state of one formatting, usually on the caller's stack; parse sets every field it needs. */
typedef struct ZPrintfContext_6_0 {
    struct qvr_cs const* codeset; /* what C and S are converted to */
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
/// range   `codeset` may be null as long as no C or S is rendered.
/// owns    `format` and texts among the arguments are borrowed until done; what the context
///         allocated is released with zvsnprintf_done_6_0, or already when -1 is returned.
/// codes   0 done; -1 null format, unknown letter, format ending inside a conversion, two lengths,
///         h or l with e f g E G, * behind width digits, a second precision, a number above
///         2147483647, argument number 0, an argument number that nothing uses, one argument used
///         with two types (signed and unsigned of one width count as one), allocation failure.
/// kept    a 0 behind another 0 begins the width; any precision clears the 0 flag, for doubles
///         too; h, l, ll, L and q do not change c, s, C, S, p and %.
int zvsnprintf_parse_6_0(ZPrintfContext_6_0* context, struct qvr_cs const* codeset,
                         char const* format, va_list args);

/// Writes the text of a parsed context into `out` and ends it with a zero.
/// units   `size` counts bytes, the zero included; nothing is written when it is 0 or negative
///         or `out` is null.
/// codes   the length of the complete text without the zero, whatever `size` is; -1 when a wide
///         character has no form in the codeset, the text is longer than 2147483647 bytes, or
///         memory is short. What was rendered before a -1 is in `out`, ended with a zero.
int zvsnprintf_render_6_0(ZPrintfContext_6_0 const* context, char* out, int size);

/// Releases what the parse of `context` allocated.
/// range   after a parse, failed or not; a second time does nothing. The context holds no
///         conversions then.
void zvsnprintf_done_6_0(ZPrintfContext_6_0* context);

/// Delivers the width, the precision and the pad character of one conversion.
/// range   `arguments` are those of the conversion's context.
/// kept    a negative width from an argument is delivered as it is: it pads nothing (doubles
///         alone take it as left-justified). A negative precision counts as not given.
void get_render_params(ZPrintfConversion_6_0 const* conversion,
                       ZPrintfArgument_6_0 const* arguments, int* width, int* precision,
                       char* padChar);

/// Formats into `buf`, cut to `size` bytes with the ending zero.
/// units   `size` as in zvsnprintf_render_6_0.
/// codes   the length of the complete text; -1 as parse and render give it. A format that parse
///         refuses leaves `buf` untouched.
/// kept    zero padding stands before the sign (%05d of -42 gives 00-42); # with a hexadecimal 0
///         gives 0x0; behind a left-justified %p the padding is zeros; grouping does nothing for
///         integers nor a sign flag for unsigned ones; a null text is empty.
int zsnprintf_6_0(char* buf, int size, char const* format, ...);

/// Formats as zsnprintf_6_0 does, from an argument list.
int zvsnprintf_6_0(char* buf, int size, char const* format, va_list args);

/// Formats into a block of the right size.
/// range   null `result` or `format` gives -1.
/// owns    `*result` is owned by the caller, released with zasprintf_free_6_0; null after -1.
/// codes   the length of the text; -1 as zsnprintf_6_0, or allocation failure.
int zsprintf_6_0(char** result, char const* format, ...);

/// Formats as zsprintf_6_0 does, from an argument list.
/// range   where a list is a pointer, a null one gives -1.
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
